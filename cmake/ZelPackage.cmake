# What a Windows developer takes: `cmake --install` lays out
#   bin/      ZelPlatformMethods64.dll, zelplat.exe (stripped)
#   lib/      libZelPlatformMethods64.dll.a (mingw-w64, clang), ZelPlatformMethods64.lib (MSVC)
#   lib/cmake/ZelPlatformMethods64/   the CMake package
#   include/  ZelPlatformMethods64.h
#   README.md and the licence file
# and CPack packs it as ZelPlatformMethods64-<version>-win64.zip. The debug information of the two
# binaries is component Debug, left out of a plain install and packed as ...-win64-debug.zip.
include(CMakePackageConfigHelpers)

set(ZEL_DIST_DIR ${CMAKE_BINARY_DIR}/dist)
set(ZEL_PACKAGE_CONFIG_DIR lib/cmake/ZelPlatformMethods64)

install(FILES ${ZEL_DIST_DIR}/ZelPlatformMethods64.dll ${ZEL_DIST_DIR}/zelplat.exe
        DESTINATION bin COMPONENT Runtime)
install(FILES $<TARGET_LINKER_FILE:ZelPlatformMethods64> ${ZEL_MSVC_IMPORT_LIBRARY}
        DESTINATION lib COMPONENT Runtime)
install(FILES ${PROJECT_SOURCE_DIR}/include/ZelPlatformMethods64.h
        DESTINATION include COMPONENT Runtime)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION . COMPONENT Runtime)
foreach(licence IN ITEMS LICENSE LICENSE.txt LICENSE.md COPYING)
    if(EXISTS ${PROJECT_SOURCE_DIR}/${licence})
        install(FILES ${PROJECT_SOURCE_DIR}/${licence} DESTINATION . COMPONENT Runtime)
    endif()
endforeach()

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

install(FILES ${ZEL_DIST_DIR}/ZelPlatformMethods64.dll.debug ${ZEL_DIST_DIR}/zelplat.exe.debug
        DESTINATION bin COMPONENT Debug EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR ${PROJECT_NAME})
set(CPACK_PACKAGE_FILE_NAME ${PROJECT_NAME}-${PROJECT_VERSION}-win64)
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Runtime Debug)
set(CPACK_ARCHIVE_RUNTIME_FILE_NAME ${CPACK_PACKAGE_FILE_NAME})
set(CPACK_ARCHIVE_DEBUG_FILE_NAME ${CPACK_PACKAGE_FILE_NAME}-debug)
include(CPack)
