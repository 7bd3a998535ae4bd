/* A module with no behaviour of its own: the tests only read its resources. */
__declspec(dllexport) int ZelKitModuleMarker(void) {
    return 1;
}
