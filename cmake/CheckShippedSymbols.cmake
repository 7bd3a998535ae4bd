# Reads the public symbols of the shipped binaries' PDB files (llvm-pdbutil) and fails when
#   - the stack protector is missing: no __stack_chk_fail or __stack_chk_guard, which the linker
#     takes from the library's base layer only when some function checks a canary;
#   - libssp's start-up came along (its __chk_fail): it would load a cryptographic provider into
#     the client each time the library is loaded;
#   - a test hook is present: the tests link their own definitions of the library's seams, and no
#     hook variable (gTq...Hook) or switch of theirs may reach a shipped file.
# Run: cmake -DPDBUTIL=<llvm-pdbutil> -DPDBS=<a.pdb>,<b.pdb> -P cmake/CheckShippedSymbols.cmake
cmake_minimum_required(VERSION 3.25)
if(NOT PDBUTIL OR NOT PDBS)
    message(FATAL_ERROR "Pass -DPDBUTIL=<llvm-pdbutil> -DPDBS=<pdb files>")
endif()

string(REPLACE "," ";" pdbs "${PDBS}")
set(failures 0)
foreach(pdb IN LISTS pdbs)
    execute_process(COMMAND ${PDBUTIL} dump --publics ${pdb}
                    OUTPUT_VARIABLE publics RESULT_VARIABLE failed ERROR_VARIABLE error)
    if(failed)
        message(SEND_ERROR "${pdb}: llvm-pdbutil failed: ${error}")
        math(EXPR failures "${failures} + 1")
        continue()
    endif()
    foreach(needed IN ITEMS "`__stack_chk_fail`" "`__stack_chk_guard`")
        string(FIND "${publics}" "${needed}" at)
        if(at EQUAL -1)
            message(SEND_ERROR "${pdb}: no ${needed}: the stack protector is not linked in")
            math(EXPR failures "${failures} + 1")
        endif()
    endforeach()
    string(FIND "${publics}" "`__chk_fail`" at)
    if(NOT at EQUAL -1)
        message(SEND_ERROR "${pdb}: libssp's stack protector is linked in, not the library's own")
        math(EXPR failures "${failures} + 1")
    endif()
    string(REGEX MATCHALL "`[^`]*(gTq[A-Za-z]*Hook|TqAllowRegistrySnapshots)[^`]*`" hooks "${publics}")
    if(hooks)
        message(SEND_ERROR "${pdb}: test hooks in a shipped binary: ${hooks}")
        math(EXPR failures "${failures} + 1")
    endif()
endforeach()
if(failures GREATER 0)
    message(FATAL_ERROR "${failures} finding(s)")
endif()
message(STATUS "Stack protector linked in, no test hooks: ${PDBS}")
