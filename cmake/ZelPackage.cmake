# What a Windows developer takes: `cmake --install` lays out
#   bin/      ZelPlatformMethods64.dll, zelplat.exe (stripped)
#   lib/      libZelPlatformMethods64.dll.a (mingw-w64, clang), ZelPlatformMethods64.lib (MSVC)
#   lib/cmake/ZelPlatformMethods64/   the CMake package
#   include/  ZelPlatformMethods64.h
#   docs/     api.md, the reference for callers
#   README.md, CHANGELOG.md, LICENSE, THIRD-PARTY-NOTICES.txt
# and scripts/package.sh packs it as ZelPlatformMethods64-<version>-win64.zip. The debug symbols
# of the two binaries are component Debug, left out of a plain install and packed as
# ...-win64-debug.zip: with lld the PDB files as a symbol store (<name>.pdb/<GUID><age>/<name>.pdb)
# at its root, with GNU ld the binaries' .debug files in bin/.
include(CMakePackageConfigHelpers)

set(ZEL_PACKAGE_CONFIG_DIR lib/cmake/ZelPlatformMethods64)

install(FILES ${ZEL_DIST_DIR}/ZelPlatformMethods64.dll ${ZEL_DIST_DIR}/zelplat.exe
        DESTINATION bin COMPONENT Runtime)
install(FILES $<TARGET_LINKER_FILE:ZelPlatformMethods64> ${ZEL_MSVC_IMPORT_LIBRARY}
        DESTINATION lib COMPONENT Runtime)
install(FILES ${PROJECT_SOURCE_DIR}/include/ZelPlatformMethods64.h
        DESTINATION include COMPONENT Runtime)
install(FILES ${PROJECT_SOURCE_DIR}/docs/api.md DESTINATION docs COMPONENT Runtime)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
              ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/THIRD-PARTY-NOTICES.txt
        DESTINATION . COMPONENT Runtime)

configure_file(cmake/ZelPlatformMethods64Config.cmake.in
               ${CMAKE_BINARY_DIR}/package/ZelPlatformMethods64Config.cmake @ONLY)
# A 64-bit client of the same major version accepts this one.
write_basic_package_version_file(
    ${CMAKE_BINARY_DIR}/package/ZelPlatformMethods64ConfigVersion.cmake
    VERSION ${PROJECT_VERSION}
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/package/ZelPlatformMethods64Config.cmake
              ${CMAKE_BINARY_DIR}/package/ZelPlatformMethods64ConfigVersion.cmake
        DESTINATION ${ZEL_PACKAGE_CONFIG_DIR} COMPONENT Runtime)

if(ZEL_PDB)
    install(DIRECTORY ${ZEL_SYMBOL_STORE_DIR}/ DESTINATION . COMPONENT Debug EXCLUDE_FROM_ALL)
else()
    install(FILES ${ZEL_DIST_DIR}/ZelPlatformMethods64.dll.debug ${ZEL_DIST_DIR}/zelplat.exe.debug
            DESTINATION bin COMPONENT Debug EXCLUDE_FROM_ALL)
endif()

# What scripts/package.sh builds: the installed tree's binaries and import libraries.
add_custom_target(zel_release DEPENDS ZelPlatformMethods64 zelplat
                                      ZelPlatformMethods64_msvc_import_library)
