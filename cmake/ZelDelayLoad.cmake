# Delay-loaded Windows system DLLs: the loader maps them when one of their functions is first
# called, not when the DLL is loaded. shell32 alone costs tens of milliseconds to load and is
# needed for one folder path; winscard only by the card code.
#
# zel_delay_loaded(TARGET DLL) makes an INTERFACE target that links DLL delay-loaded; link it
# where the system import library would be linked.
#
# The delay-import library is made from the names the toolchain's own import library defines:
#   GNU ld: dlltool --output-delaylib (GNU ld has no --delayload option);
#   lld:    an import library from llvm-dlltool, and --delayload=DLL.

find_program(ZEL_NM NAMES ${CMAKE_C_COMPILER_TARGET}-nm x86_64-w64-mingw32-nm llvm-nm-16 llvm-nm
             REQUIRED)

# The functions LIBRARY (a path to libX.a) defines, as the text of a .def file in OUT.
function(zel_def_of_import_library library dll out)
    execute_process(COMMAND ${ZEL_NM} --defined-only ${library}
                    OUTPUT_VARIABLE symbols RESULT_VARIABLE failed ERROR_QUIET)
    if(failed)
        message(FATAL_ERROR "Cannot list the symbols of ${library}")
    endif()
    string(REGEX MATCHALL "[^\n]* T [A-Za-z_][A-Za-z0-9_@]*" lines "${symbols}")
    set(names "")
    foreach(line IN LISTS lines)
        string(REGEX REPLACE ".* T " "" name "${line}")
        list(APPEND names "${name}")
    endforeach()
    list(REMOVE_DUPLICATES names)
    list(SORT names)
    list(JOIN names "\n    " exports)
    set(${out} "LIBRARY ${dll}\nEXPORTS\n    ${exports}\n" PARENT_SCOPE)
endfunction()

function(zel_delay_loaded target dll)
    string(TOLOWER "${dll}" stem)
    find_library(ZEL_IMPORT_LIBRARY_${stem} NAMES lib${stem}.a REQUIRED)
    set(folder ${CMAKE_BINARY_DIR}/delayload)
    set(def ${folder}/${stem}.def)
    set(library ${folder}/lib${stem}_delay.a)
    file(MAKE_DIRECTORY ${folder})
    zel_def_of_import_library(${ZEL_IMPORT_LIBRARY_${stem}} ${stem}.dll definition)

    add_library(${target} INTERFACE)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        target_link_options(${target} INTERFACE "-Wl,--delayload=${stem}.dll")
    endif()
    target_link_libraries(${target} INTERFACE ${library})

    # Made again only when the names changed, so that configuring again relinks nothing.
    set(madeFrom "")
    if(EXISTS ${def} AND EXISTS ${library})
        file(READ ${def} madeFrom)
    endif()
    if(madeFrom STREQUAL definition)
        return()
    endif()
    file(WRITE ${def} "${definition}")
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        find_program(ZEL_LLVM_DLLTOOL NAMES llvm-dlltool-16 llvm-dlltool REQUIRED)
        execute_process(COMMAND ${ZEL_LLVM_DLLTOOL} -m i386:x86-64 -d ${def} -l ${library}
                        RESULT_VARIABLE failed)
    else()
        find_program(ZEL_DLLTOOL NAMES x86_64-w64-mingw32-dlltool REQUIRED)
        execute_process(COMMAND ${ZEL_DLLTOOL} --input-def ${def} --output-delaylib ${library}
                                --dllname ${stem}.dll
                        RESULT_VARIABLE failed)
    endif()
    if(failed)
        file(REMOVE ${def} ${library})
        message(FATAL_ERROR "Cannot make the delay-import library of ${stem}.dll")
    endif()
endfunction()
