# The example of docs/api.md is built and run by the suite, so the page cannot drift from what the
# library does. A block is marked "<!-- api-example: NAME -->" on the line before its fence.

# Sets outVar to the text of the fenced block marked NAME in doc (without its fences).
function(zel_doc_example_block doc name outVar)
    set(marker "<!-- api-example: ${name} -->\n```")
    string(FIND "${doc}" "${marker}" start)
    if(start EQUAL -1)
        message(FATAL_ERROR "docs/api.md: no block marked 'api-example: ${name}'")
    endif()
    string(LENGTH "${marker}" markerLength)
    math(EXPR start "${start} + ${markerLength}")
    string(SUBSTRING "${doc}" ${start} -1 rest)
    # Skip the fence's language word and its line end.
    string(FIND "${rest}" "\n" lineEnd)
    math(EXPR lineEnd "${lineEnd} + 1")
    string(SUBSTRING "${rest}" ${lineEnd} -1 rest)
    string(FIND "${rest}" "\n```" end)
    if(end EQUAL -1)
        message(FATAL_ERROR "docs/api.md: the block 'api-example: ${name}' has no closing fence")
    endif()
    math(EXPR end "${end} + 1")
    string(SUBSTRING "${rest}" 0 ${end} block)
    set(${outVar} "${block}" PARENT_SCOPE)
endfunction()

if(CMAKE_SCRIPT_MODE_FILE)
    # Test mode: run the example program and compare its output with the page's, line for line.
    execute_process(COMMAND ${WINE_RUN} ${PROGRAM}
                    OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE exitCode)
    string(REPLACE "\r\n" "\n" output "${output}")
    file(READ ${EXPECTED} expected)
    if(NOT exitCode EQUAL 0 OR NOT output STREQUAL expected)
        message(FATAL_ERROR "The example of docs/api.md (exit code ${exitCode}) printed:\n"
                            "${output}\nThe page says it prints:\n${expected}\n${errors}")
    endif()
    message(STATUS "The example printed what docs/api.md says")
endif()
