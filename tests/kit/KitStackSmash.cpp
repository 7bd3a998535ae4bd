// A program whose one function copies its argument into an 8-byte buffer without a bound: with a
// short argument it prints it and ends; with a long one it overruns the buffer, and the stack
// protector of the library's base layer (which this program links, as the DLL and zelplat do)
// must end it before the function returns.
#include <cstdio>
#include <cstring>

namespace {

__attribute__((noinline)) void copyUnbounded(const char* text) {
    char buffer[8];
    std::memcpy(buffer, text, std::strlen(text) + 1);
    std::printf("copied %s\n", buffer);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    copyUnbounded(argv[1]);
    std::printf("returned\n");
    return 0;
}
