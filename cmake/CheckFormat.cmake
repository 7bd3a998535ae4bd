# Fails when a C or C++ source of the repository differs from what .clang-format makes of it.
# Run: cmake -DSOURCE_DIR=<repository> -DCLANG_FORMAT=<clang-format> -P cmake/CheckFormat.cmake
cmake_minimum_required(VERSION 3.25)
if(NOT SOURCE_DIR OR NOT CLANG_FORMAT)
    message(FATAL_ERROR "Pass -DSOURCE_DIR=<repository> and -DCLANG_FORMAT=<clang-format>")
endif()
set(sources)
foreach(folder src tests tools bench include)
    file(GLOB_RECURSE found ${SOURCE_DIR}/${folder}/*.cpp ${SOURCE_DIR}/${folder}/*.h
         ${SOURCE_DIR}/${folder}/*.c)
    list(APPEND sources ${found})
endforeach()
execute_process(COMMAND ${CLANG_FORMAT} --dry-run --Werror ${sources}
                RESULT_VARIABLE status ERROR_VARIABLE findings)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "Not formatted as .clang-format says:\n${findings}")
endif()
list(LENGTH sources count)
message(STATUS "${count} sources follow .clang-format")
