# room_<name>: the room's objects, together with those of the rooms it USES, make a shared library without an
# undefined name. A call into any other room fails here, although libkelSrc as a whole would link.

# Everything that `target` reaches through its link interface: rooms in `rooms_out`, libraries in `libraries_out`.
function(room_closure target rooms_out libraries_out)
    set(open ${target})
    set(seen)
    set(rooms)
    set(libraries)
    while(open)
        list(POP_FRONT open next)
        string(REGEX REPLACE "^\\$<LINK_ONLY:(.*)>$" "\\1" next "${next}")
        if(NOT TARGET ${next})
            continue()
        endif()
        get_target_property(aliased ${next} ALIASED_TARGET)
        if(aliased)
            set(next ${aliased})
        endif()
        if(next IN_LIST seen)
            continue()
        endif()
        list(APPEND seen ${next})
        get_target_property(type ${next} TYPE)
        if(type STREQUAL "OBJECT_LIBRARY")
            list(APPEND rooms ${next})
        elseif(NOT type STREQUAL "INTERFACE_LIBRARY")
            list(APPEND libraries ${next})
        endif()
        get_target_property(links ${next} INTERFACE_LINK_LIBRARIES)
        if(links)
            list(APPEND open ${links})
        endif()
    endwhile()
    set(${rooms_out} ${rooms} PARENT_SCOPE)
    set(${libraries_out} ${libraries} PARENT_SCOPE)
endfunction()

function(room_link_command out)
    get_directory_property(options DIRECTORY ${PROJECT_SOURCE_DIR} LINK_OPTIONS)
    set(command ${CMAKE_CXX_COMPILER} -shared -fPIC ${options} -o /dev/null)
    foreach(room IN LISTS ARGN)
        get_target_property(type ${room} TYPE)
        if(type STREQUAL "OBJECT_LIBRARY")
            list(APPEND command $<TARGET_OBJECTS:${room}>)
        else()
            list(APPEND command $<TARGET_FILE:${room}>)
        endif()
    endforeach()
    # A sanitizer's own names come from the program, so only a plain build may demand that none is missing.
    if(KELSRC_SANITIZE)
        list(APPEND command -Wl,-z,defs -lasan -lubsan)
    else()
        list(APPEND command -Wl,-z,defs)
    endif()
    set(${out} ${command} PARENT_SCOPE)
endfunction()

get_property(rooms GLOBAL PROPERTY KELSRC_ROOMS)
foreach(room IN LISTS rooms)
    room_closure(room_${room} objects libraries)
    room_link_command(command ${objects} ${libraries})
    add_test(NAME ${KELSRC_TEST_PREFIX}room_${room} COMMAND ${command} COMMAND_EXPAND_LISTS)
endforeach()

# The measure itself: a room without one of the rooms that it uses must be noticed.
room_closure(room_default_writer objects libraries)
list(REMOVE_ITEM objects room_container)
room_link_command(command ${objects} ${libraries})
add_test(NAME ${KELSRC_TEST_PREFIX}room_walls_notice_a_call_into_a_room_not_used
    COMMAND ${command} COMMAND_EXPAND_LISTS)
set_tests_properties(${KELSRC_TEST_PREFIX}room_walls_notice_a_call_into_a_room_not_used PROPERTIES
    PASS_REGULAR_EXPRESSION "undefined reference to .*ShapeResourceContainer")

# A header of a room that is not used is not found, one of the room's own is.
function(room_include_test name room header)
    add_test(NAME ${KELSRC_TEST_PREFIX}${name} COMMAND_EXPAND_LISTS
        COMMAND ${CMAKE_CXX_COMPILER} -std=c++17 -fsyntax-only -x c++
            "-I$<JOIN:$<TARGET_PROPERTY:room_${room},INCLUDE_DIRECTORIES>,;-I>" -include ${header} /dev/null)
endfunction()
room_include_test(room_container_may_include_its_own_header container kel/src/container/ShapeResourceContainer.h)
room_include_test(room_container_may_not_include_the_encoding container kel/src/encoding/DataTypes.h)
set_tests_properties(${KELSRC_TEST_PREFIX}room_container_may_not_include_the_encoding PROPERTIES
    PASS_REGULAR_EXPRESSION "DataTypes.h: No such file or directory")
