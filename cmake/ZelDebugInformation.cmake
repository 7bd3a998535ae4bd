# zel_split_debug_information(TARGET): beside the build's own file, which keeps its debug
# information so that crash reports under Wine name the functions, dist/ gets the copy to ship
# (stripped, with a link to its debug file) and that debug file, <file>.debug.
function(zel_split_debug_information target)
    set(file $<TARGET_FILE_NAME:${target}>)
    set(dist ${CMAKE_BINARY_DIR}/dist)
    file(MAKE_DIRECTORY ${dist})
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> ${dist}/${file}.debug
        COMMAND ${CMAKE_OBJCOPY} --strip-all --add-gnu-debuglink=${file}.debug
                $<TARGET_FILE:${target}> ${dist}/${file}
        WORKING_DIRECTORY ${dist}
        VERBATIM)
endfunction()
