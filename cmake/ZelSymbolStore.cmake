# Lays out the PDB of BINARY in the symbol store STORE the way WinDbg and Visual Studio look for
# it: STORE/<pdb name>/<GUID><age>/<pdb name>, the GUID as 32 upper-case hex digits in the order
# of its text form, the age in hex without leading zeros, both read from the binary's CodeView
# debug entry. The PDB's earlier builds are removed from the store.
# Run: cmake -DBINARY=<dll or exe> -DPDB=<its pdb> -DSTORE=<folder> -DREADOBJ=<llvm-readobj>
#            -P cmake/ZelSymbolStore.cmake
cmake_minimum_required(VERSION 3.25)
foreach(argument BINARY PDB STORE READOBJ)
    if(NOT ${argument})
        message(FATAL_ERROR "Pass -D${argument}=...")
    endif()
endforeach()

execute_process(COMMAND ${READOBJ} --coff-debug-directory ${BINARY}
                OUTPUT_VARIABLE directory RESULT_VARIABLE failed)
if(failed)
    message(FATAL_ERROR "Cannot read the debug directory of ${BINARY}")
endif()
# PDBGUID: (B0 B1 ... B15): the bytes as stored, Data1, Data2 and Data3 little-endian.
if(NOT directory MATCHES "PDBGUID: \\(([0-9A-F ]+)\\)[^\n]*\n[ ]*PDBAge: ([0-9]+)[^\n]*\n[ ]*PDBFileName: ([^\n]+)")
    message(FATAL_ERROR "${BINARY} names no PDB in its debug directory:\n${directory}")
endif()
set(guidBytes "${CMAKE_MATCH_1}")
set(name ${CMAKE_MATCH_3})
math(EXPR age "${CMAKE_MATCH_2}" OUTPUT_FORMAT HEXADECIMAL)
string(REGEX REPLACE "^0x0*" "" age "${age}")
string(TOUPPER "${age}" age)
if(age STREQUAL "")
    set(age 0)
endif()
string(REPLACE " " ";" bytes "${guidBytes}")
list(LENGTH bytes count)
if(NOT count EQUAL 16)
    message(FATAL_ERROR "${BINARY}: a PDB GUID of ${count} bytes")
endif()
set(guid "")
foreach(index 3 2 1 0 5 4 7 6 8 9 10 11 12 13 14 15)
    list(GET bytes ${index} byte)
    string(APPEND guid ${byte})
endforeach()

get_filename_component(pdbFile ${PDB} NAME)
if(NOT name STREQUAL pdbFile)
    message(FATAL_ERROR "${BINARY} names its PDB '${name}', not ${pdbFile}")
endif()
file(REMOVE_RECURSE ${STORE}/${name})
file(COPY ${PDB} DESTINATION ${STORE}/${name}/${guid}${age})
