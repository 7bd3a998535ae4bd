# How the shipped binaries are made: the same bytes from the same commit on any machine and in any
# folder, and debug symbols that WinDbg and Visual Studio read.
#
# - Paths: the source folder is named C:/ZelPlatformMethods64 in everything the compiler writes
#   (debug information, __FILE__), whatever folder the sources were checked out to. CodeView
#   records no compiler command line, and the PDB gives the build folder the same root.
# - PE time stamp: SOURCE_DATE_EPOCH when the environment sets it, else the time of the checked-out
#   commit; without either, the linker's hash of the image (lld -Brepro).
# - PDB (clang and lld): every program and DLL gets <name>.pdb beside it. -Brepro makes its GUID a
#   hash of the content, and the image's debug directory names the PDB by file name only.
#
# zel_release_binary(TARGET) puts what ships of TARGET into dist/: with lld the file itself (the
# file the tests run) and its PDB, also laid out in symbols/ as a symbol store
# (<name>.pdb/<GUID><age>/<name>.pdb); with GNU ld a copy without debug information, whose
# debug file goes beside it as <file>.debug.

# Hardening of everything built here (the image tests check the shipped binaries):
# - a stack canary in every function with an array or an address-taken local
#   (-fstack-protector-strong); the canary and its check routine are the library's own
#   (src/base/TqStackGuard.cpp), so libssp, which the compiler names for the link, is linked only
#   into programs without the library (the test kit's);
# - CET shadow-stack compatibility (lld /cetcompat): a return address that does not match the
#   shadow stack ends the process where the CPU and Windows enforce it.
# Control Flow Guard is not available: mingw-w64 10 has no load configuration (_load_config_used)
# for the linker to fill.
add_compile_options(-fstack-protector-strong)
add_link_options(-fstack-protector-strong)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    add_link_options(-Wl,-Xlink=-cetcompat)
endif()

set(ZEL_DEBUG_SOURCE_ROOT "C:/ZelPlatformMethods64")
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=${ZEL_DEBUG_SOURCE_ROOT})

if(DEFINED ENV{SOURCE_DATE_EPOCH})
    set(ZEL_SOURCE_DATE_EPOCH $ENV{SOURCE_DATE_EPOCH})
else()
    execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} log -1 --format=%ct
                    OUTPUT_VARIABLE ZEL_SOURCE_DATE_EPOCH OUTPUT_STRIP_TRAILING_WHITESPACE
                    RESULT_VARIABLE noCommit ERROR_QUIET)
    if(noCommit)
        set(ZEL_SOURCE_DATE_EPOCH "")
    endif()
endif()
if(NOT ZEL_SOURCE_DATE_EPOCH STREQUAL "" AND NOT ZEL_SOURCE_DATE_EPOCH MATCHES "^[0-9]+$")
    message(FATAL_ERROR "SOURCE_DATE_EPOCH must be seconds since 1970, not '${ZEL_SOURCE_DATE_EPOCH}'")
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    set(ZEL_PDB ON)
    add_compile_options(-gcodeview -gno-codeview-command-line)
    file(RELATIVE_PATH buildFolder ${PROJECT_SOURCE_DIR} ${CMAKE_BINARY_DIR})
    add_link_options(
        -Wl,--pdb=
        -Wl,-Xlink=-Brepro
        -Wl,-Xlink=-release
        -Wl,-Xlink=-pdbaltpath:%_PDB%
        -Wl,-Xlink=-pdbsourcepath:${ZEL_DEBUG_SOURCE_ROOT}/${buildFolder})
    if(NOT ZEL_SOURCE_DATE_EPOCH STREQUAL "")
        add_link_options(-Wl,-Xlink=-timestamp:${ZEL_SOURCE_DATE_EPOCH})
    endif()
    find_program(ZEL_LLVM_READOBJ NAMES llvm-readobj-16 llvm-readobj REQUIRED)
    # The mingw-w64 runtime's archives carry DWARF, which lld 16 keeps whenever it writes a PDB
    # (it has no /debug:nodwarf). The symbols belong in the PDB: the shipped images are stripped
    # of DWARF after the link, and their PE checksum, which llvm-objcopy leaves zero, is written
    # again by a small helper built for this machine.
    find_program(ZEL_LLVM_OBJCOPY NAMES llvm-objcopy-16 llvm-objcopy REQUIRED)
    find_program(ZEL_HOST_CC NAMES clang-16 cc REQUIRED)
    set(ZEL_PE_CHECKSUM ${CMAKE_BINARY_DIR}/host/zel-pe-checksum)
    add_custom_command(OUTPUT ${ZEL_PE_CHECKSUM}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/host
        COMMAND ${ZEL_HOST_CC} -O2 -o ${ZEL_PE_CHECKSUM} ${PROJECT_SOURCE_DIR}/cmake/ZelPeChecksum.c
        DEPENDS ${PROJECT_SOURCE_DIR}/cmake/ZelPeChecksum.c
        COMMENT "Building the PE checksum helper for this machine"
        VERBATIM)
    add_custom_target(zel_pe_checksum DEPENDS ${ZEL_PE_CHECKSUM})
else()
    set(ZEL_PDB OFF)
    if(NOT ZEL_SOURCE_DATE_EPOCH STREQUAL "")
        add_link_options(-Wl,--no-insert-timestamp)
    endif()
endif()

set(ZEL_DIST_DIR ${CMAKE_BINARY_DIR}/dist)
set(ZEL_SYMBOL_STORE_DIR ${CMAKE_BINARY_DIR}/symbols)

function(zel_release_binary target)
    set(file $<TARGET_FILE_NAME:${target}>)
    file(MAKE_DIRECTORY ${ZEL_DIST_DIR})
    if(ZEL_PDB)
        set(pdb $<TARGET_FILE_DIR:${target}>/$<TARGET_FILE_BASE_NAME:${target}>.pdb)
        add_dependencies(${target} zel_pe_checksum)
        add_custom_command(TARGET ${target} POST_BUILD
            COMMAND ${ZEL_LLVM_OBJCOPY} --strip-debug $<TARGET_FILE:${target}>
            COMMAND ${ZEL_PE_CHECKSUM} $<TARGET_FILE:${target}>
            COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:${target}> ${pdb} ${ZEL_DIST_DIR}
            COMMAND ${CMAKE_COMMAND} -DBINARY=$<TARGET_FILE:${target}> -DPDB=${pdb}
                    -DSTORE=${ZEL_SYMBOL_STORE_DIR} -DREADOBJ=${ZEL_LLVM_READOBJ}
                    -P ${PROJECT_SOURCE_DIR}/cmake/ZelSymbolStore.cmake
            VERBATIM)
    else()
        add_custom_command(TARGET ${target} POST_BUILD
            COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> ${file}.debug
            COMMAND ${CMAKE_OBJCOPY} --strip-all --add-gnu-debuglink=${file}.debug
                    $<TARGET_FILE:${target}> ${file}
            WORKING_DIRECTORY ${ZEL_DIST_DIR}
            VERBATIM)
    endif()
endfunction()

# zel_version_resource(TARGET FILETYPE DESCRIPTION): the version resource of a shipped binary
# (FILETYPE VFT_DLL or VFT_APP), with the project's version and licence.
function(zel_version_resource target filetype description)
    set(ZEL_RC_FILETYPE ${filetype})
    set(ZEL_RC_DESCRIPTION ${description})
    set(ZEL_RC_NAME ${target})
    if(filetype STREQUAL "VFT_DLL")
        set(ZEL_RC_FILE_NAME ${target}.dll)
    else()
        set(ZEL_RC_FILE_NAME ${target}.exe)
    endif()
    set(rc ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/ZelVersionInfo.rc.in ${rc} @ONLY)
    target_sources(${target} PRIVATE ${rc})
endfunction()
