# kelsrc_viewer_source(<variable>): a source file that holds the viewer's page, which npm makes at build time; see
# cli/page/ViewerPage.cpp. Empty where there is no Node.js: the command then looks for a file viewer.html at run time. The page
# is installed as well, for whoever puts it on a server.

set(KELSRC_OLDEST_NODE 18.19)

# Says in `variable` why the page cannot be built; empty when it can.
function(kelsrc_viewer_obstacle variable)
    find_program(KELSRC_NODE node)
    find_program(KELSRC_NPM npm)
    mark_as_advanced(KELSRC_NODE KELSRC_NPM)
    set(${variable} "" PARENT_SCOPE)
    if(NOT KELSRC_NODE OR NOT KELSRC_NPM)
        set(${variable} "Node.js and npm are not both installed" PARENT_SCOPE)
        return()
    endif()
    execute_process(COMMAND ${KELSRC_NODE} --version OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    string(REGEX REPLACE "^v" "" version "${version}")
    if(NOT version VERSION_GREATER_EQUAL KELSRC_OLDEST_NODE)
        set(${variable} "Node.js ${version} is older than ${KELSRC_OLDEST_NODE}" PARENT_SCOPE)
    endif()
endfunction()

function(kelsrc_viewer_source variable)
    set(${variable} "" PARENT_SCOPE)
    if(KELSRC_VIEWER STREQUAL "AUTO" OR KELSRC_VIEWER)
        kelsrc_viewer_obstacle(obstacle)
        if(obstacle AND KELSRC_VIEWER STREQUAL "AUTO")
            message(STATUS "The command is built without the viewer: ${obstacle}")
            return()
        elseif(obstacle)
            message(FATAL_ERROR "KELSRC_VIEWER=${KELSRC_VIEWER}, but ${obstacle}. Install nodejs and npm, or set it OFF.")
        endif()
    else()
        return()
    endif()

    set(web ${PROJECT_SOURCE_DIR}/web)
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${web}/loader/src/* ${web}/viewer/src/*)
    file(GLOB settings CONFIGURE_DEPENDS ${web}/*.sh ${web}/*.json ${web}/loader/*.json ${web}/viewer/*.json ${web}/viewer/*.ts
        ${web}/viewer/*.html)
    set(page ${CMAKE_CURRENT_BINARY_DIR}/viewer.html.gz)
    add_custom_command(OUTPUT ${page} ${CMAKE_CURRENT_BINARY_DIR}/viewer.html
        COMMAND ${web}/build.sh ${CMAKE_CURRENT_BINARY_DIR}
        DEPENDS ${sources} ${settings}
        COMMENT "Building the viewer's page"
        VERBATIM)
    # The assembler takes the bytes as they are: no text form of a megabyte to compile.
    set(source ${CMAKE_CURRENT_BINARY_DIR}/ViewerBytes.cpp)
    set(KELSRC_VIEWER_PAGE ${page})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/ViewerBytes.cpp.in ${source} @ONLY)
    set_source_files_properties(${source} PROPERTIES OBJECT_DEPENDS ${page})
    set(${variable} ${source} PARENT_SCOPE)

    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/viewer.html DESTINATION ${CMAKE_INSTALL_DATADIR}/kelsrc COMPONENT runtime)
endfunction()
