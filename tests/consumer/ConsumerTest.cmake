# Installs the build into WORK_DIR/install, as `cmake --install` does for a developer, and checks
# the installed tree from a client's side. MODE:
#   layout   the tree holds the release's files and nothing else
#   mingw    the client project beside this script finds the package with find_package, links the
#            imported target with the mingw-w64 toolchain, and runs under Wine
#   msvc     a client compiled and linked the MSVC way (clang in MSVC mode, lld-link) with
#            ZelPlatformMethods64.lib runs under Wine
#   symbols  the Debug component is a symbol store of the binaries' PDB files
#   exports  both import libraries name exactly the exports of the .def
# Run: cmake -DMODE=... -DBUILD_DIR=... -DWORK_DIR=... (and what the mode needs) -P ConsumerTest.cmake
cmake_minimum_required(VERSION 3.25)

function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT status EQUAL 0)
        string(JOIN " " command ${ARGV})
        message(FATAL_ERROR "${command}\nended with ${status}:\n${out}\n${err}")
    endif()
endfunction()

# Runs a Windows program under Wine and requires exit code 0 and exactly the expected output,
# the concatenation of the remaining arguments.
function(expect_program_output program)
    string(JOIN "" expected ${ARGN})
    execute_process(COMMAND ${WINE_RUN} ${program} RESULT_VARIABLE status OUTPUT_VARIABLE out
                    ERROR_VARIABLE err)
    string(REPLACE "\r\n" "\n" out "${out}")
    if(NOT status EQUAL 0 OR NOT out STREQUAL expected)
        message(FATAL_ERROR "${program} ended with ${status}, printed:\n${out}\n"
                            "expected:\n${expected}\nstandard error:\n${err}")
    endif()
    message(STATUS "${program} printed:\n${out}")
endfunction()

# The DLL beside a client program must be the installed one, byte for byte.
function(expect_installed_dll folder)
    file(SHA256 ${install}/bin/ZelPlatformMethods64.dll installed)
    file(SHA256 ${folder}/ZelPlatformMethods64.dll beside)
    if(NOT installed STREQUAL beside)
        message(FATAL_ERROR "${folder}/ZelPlatformMethods64.dll is not the installed DLL")
    endif()
endfunction()

set(install ${WORK_DIR}/install)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${install})

if(MODE STREQUAL "layout")
    set(expected
        CHANGELOG.md
        LICENSE
        README.md
        THIRD-PARTY-NOTICES.txt
        bin/ZelPlatformMethods64.dll
        bin/zelplat.exe
        docs/api.md
        include/ZelPlatformMethods64.h
        lib/ZelPlatformMethods64.lib
        lib/cmake/ZelPlatformMethods64/ZelPlatformMethods64Config.cmake
        lib/cmake/ZelPlatformMethods64/ZelPlatformMethods64ConfigVersion.cmake
        lib/libZelPlatformMethods64.dll.a)
    file(GLOB_RECURSE found RELATIVE ${install} ${install}/*)
    list(SORT found)
    if(NOT found STREQUAL expected)
        string(JOIN "\n  " found_text ${found})
        string(JOIN "\n  " expected_text ${expected})
        message(FATAL_ERROR "Installed:\n  ${found_text}\nexpected:\n  ${expected_text}")
    endif()
    # With PDB symbols the shipped binaries are the files the suite tested, byte for byte.
    foreach(binary IN ITEMS ZelPlatformMethods64.dll zelplat.exe)
        if(NOT PDB)
            break()
        endif()
        file(SHA256 ${install}/bin/${binary} installed)
        file(SHA256 ${BUILD_DIR}/bin/${binary} tested)
        if(NOT installed STREQUAL tested)
            message(FATAL_ERROR "bin/${binary} is not the file the suite tested")
        endif()
    endforeach()
    message(STATUS "The installed tree holds the release files")
elseif(MODE STREQUAL "symbols")
    # The Debug component: each binary's PDB in a symbol store, under the PDB's GUID and age.
    set(store ${WORK_DIR}/symbols)
    file(REMOVE_RECURSE ${store})
    run(${CMAKE_COMMAND} --install ${BUILD_DIR} --component Debug --prefix ${store})
    file(GLOB_RECURSE found RELATIVE ${store} ${store}/*)
    list(SORT found)
    set(layout "")
    foreach(file IN LISTS found)
        string(REGEX REPLACE "/[0-9A-F]+/" "/<GUID><age>/" shape "${file}")
        list(APPEND layout "${shape}")
        # <GUID><age>: 32 hex digits and the age, at least one digit without leading zeros.
        set(key "")
        if(file MATCHES "^([^/]+)/([0-9A-F]+)/([^/]+)$" AND CMAKE_MATCH_1 STREQUAL CMAKE_MATCH_3)
            set(key ${CMAKE_MATCH_2})
        endif()
        string(LENGTH "${key}" length)
        if(length LESS 33)
            message(FATAL_ERROR "${file} is not a symbol-store path <name>/<GUID><age>/<name>")
        endif()
        string(SUBSTRING "${key}" 32 1 ageLead)
        if(ageLead STREQUAL "0")
            message(FATAL_ERROR "${file}: the age has a leading zero")
        endif()
        get_filename_component(pdb ${file} NAME)
        file(SHA256 ${store}/${file} stored)
        file(SHA256 ${BUILD_DIR}/bin/${pdb} built)
        if(NOT stored STREQUAL built)
            message(FATAL_ERROR "${file} is not the PDB the build wrote")
        endif()
    endforeach()
    set(expected "ZelPlatformMethods64.pdb/<GUID><age>/ZelPlatformMethods64.pdb"
                 "zelplat.pdb/<GUID><age>/zelplat.pdb")
    if(NOT layout STREQUAL expected)
        message(FATAL_ERROR "The symbol store holds:\n  ${found}\nexpected the shape:\n  ${expected}")
    endif()
    message(STATUS "The symbol store holds:\n  ${found}")
elseif(MODE STREQUAL "mingw")
    set(client ${WORK_DIR}/client)
    run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${client} -G ${GENERATOR}
        -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM} -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE}
        -DCMAKE_BUILD_TYPE=Release
        -DZelPlatformMethods64_DIR=${install}/lib/cmake/ZelPlatformMethods64
        -DZEL_EXPECTED_VERSION=${EXPECTED_VERSION})
    run(${CMAKE_COMMAND} --build ${client})
    expect_installed_dll(${client})
    expect_program_output(${client}/zel_consumer.exe
        "ZelPlatformGetExportedInterface: 0, 11 of 11 entries\n"
        "entries are the imports: yes\n"
        "GetFileVersion: 0, \"${EXPECTED_MAJOR}\", length 1\n"
        "FreeStringData: NULL\n")
elseif(MODE STREQUAL "msvc")
    set(client ${WORK_DIR}/msvc-client)
    file(MAKE_DIRECTORY ${client})
    run(${DLLTOOL} -m i386:x86-64 -d ${CMAKE_CURRENT_LIST_DIR}/kernel32.def
        -l ${client}/kernel32.lib)
    run(${CLANG} --target=x86_64-pc-windows-msvc -O1 -Wall -Wextra -Werror -ffreestanding
        -fno-stack-protector -I${install}/include -c ${CMAKE_CURRENT_LIST_DIR}/MsvcConsumer.c
        -o ${client}/MsvcConsumer.obj)
    run(${LLD_LINK} /nologo /entry:start /subsystem:console /nodefaultlib
        /out:${client}/msvc_consumer.exe ${client}/MsvcConsumer.obj
        ${install}/lib/ZelPlatformMethods64.lib ${client}/kernel32.lib)
    file(COPY ${install}/bin/ZelPlatformMethods64.dll DESTINATION ${client})
    expect_installed_dll(${client})
    expect_program_output(${client}/msvc_consumer.exe
        "GetFileVersion: \"${EXPECTED_MAJOR}\"\nFreeStringData: NULL\n")
elseif(MODE STREQUAL "exports")
    file(STRINGS ${SOURCE_DIR}/src/api/ZelPlatformMethods64.def lines)
    set(expected)
    set(in_exports FALSE)
    foreach(line IN LISTS lines)
        string(STRIP "${line}" line)
        if(line STREQUAL "EXPORTS")
            set(in_exports TRUE)
        elseif(in_exports AND NOT line STREQUAL "")
            list(APPEND expected ${line})
        endif()
    endforeach()
    list(SORT expected)
    list(LENGTH expected count)
    if(NOT count EQUAL 11)
        message(FATAL_ERROR "The .def names ${count} exports, not 11: ${expected}")
    endif()
    foreach(library IN ITEMS ZelPlatformMethods64.lib libZelPlatformMethods64.dll.a)
        execute_process(COMMAND ${NM} --defined-only --just-symbol-name ${install}/lib/${library}
                        RESULT_VARIABLE status OUTPUT_VARIABLE symbols ERROR_VARIABLE err)
        if(NOT status EQUAL 0)
            message(FATAL_ERROR "${NM} ${library} ended with ${status}: ${err}")
        endif()
        string(REGEX MATCHALL "__imp_[A-Za-z0-9_]+" imports "${symbols}")
        list(TRANSFORM imports REPLACE "^__imp_" "")
        list(REMOVE_DUPLICATES imports)
        list(SORT imports)
        if(NOT imports STREQUAL expected)
            message(FATAL_ERROR "${library} imports ${imports}\nthe .def exports ${expected}")
        endif()
        message(STATUS "${library}: ${imports}")
    endforeach()
else()
    message(FATAL_ERROR "MODE is layout, mingw, msvc or exports, not \"${MODE}\"")
endif()
