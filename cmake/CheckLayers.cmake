# Fails when a source file under src/ includes from a layer it may not use:
#   base < logging < host < middleware, card, identityagent < api
# A layer includes from itself and the layers below; card also from middleware (its
# check-and-clear asks the middleware detection). A bare name must be a file of the same folder
# or the public header.
# Run: cmake -DSOURCE_DIR=<repository> -P cmake/CheckLayers.cmake
cmake_minimum_required(VERSION 3.25)
if(NOT SOURCE_DIR)
    message(FATAL_ERROR "Pass -DSOURCE_DIR=<repository>")
endif()

set(allowed_base base)
set(allowed_logging base logging)
set(allowed_host base logging host)
set(allowed_middleware base logging host middleware)
set(allowed_card base logging host middleware card)
set(allowed_identityagent base logging host identityagent)
set(allowed_api base logging host middleware card identityagent api)
set(layers base logging host middleware card identityagent api)

set(violations 0)
file(GLOB layer_folders LIST_DIRECTORIES true RELATIVE ${SOURCE_DIR}/src ${SOURCE_DIR}/src/*)
foreach(folder IN LISTS layer_folders)
    if(IS_DIRECTORY ${SOURCE_DIR}/src/${folder} AND NOT folder IN_LIST layers)
        message(SEND_ERROR "src/${folder}/ is no layer (${layers})")
        math(EXPR violations "${violations} + 1")
    endif()
endforeach()

foreach(layer IN LISTS layers)
    file(GLOB_RECURSE sources ${SOURCE_DIR}/src/${layer}/*.h ${SOURCE_DIR}/src/${layer}/*.cpp)
    foreach(source IN LISTS sources)
        file(STRINGS ${source} includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
        file(RELATIVE_PATH shown ${SOURCE_DIR} ${source})
        get_filename_component(folder ${source} DIRECTORY)
        foreach(line IN LISTS includes)
            string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([^\"]*)\".*$" "\\1" target "${line}")
            if(target MATCHES "/")
                string(REGEX REPLACE "/.*$" "" target_layer "${target}")
                if(NOT target_layer IN_LIST allowed_${layer})
                    message(SEND_ERROR
                        "${shown}: includes \"${target}\": ${layer} may include only from "
                        "${allowed_${layer}}")
                    math(EXPR violations "${violations} + 1")
                endif()
            elseif(NOT EXISTS ${folder}/${target} AND NOT EXISTS ${SOURCE_DIR}/include/${target})
                message(SEND_ERROR "${shown}: includes \"${target}\", which is not beside it")
                math(EXPR violations "${violations} + 1")
            endif()
        endforeach()
    endforeach()
endforeach()

if(violations GREATER 0)
    message(FATAL_ERROR "${violations} include(s) against the layer order")
endif()
message(STATUS "Every include of src/ points down the layer order")
