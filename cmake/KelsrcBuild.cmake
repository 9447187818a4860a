# How every target of this project is compiled, and how a room is declared.

include(GNUInstallDirs)

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
# One folder for all headers, reached by the exported include path: a system's include folder gets no "src" of ours.
set(KELSRC_INSTALLED_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/kelsrc)
# Installed programs and libraries find each other from where they lie, so the installed tree can be moved.
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR};$ORIGIN")

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

if(KELSRC_USE_CCACHE)
    find_program(KELSRC_CCACHE ccache)
    if(KELSRC_CCACHE)
        set(CMAKE_CXX_COMPILER_LAUNCHER ${KELSRC_CCACHE})
    endif()
endif()

# The files written are a contract to the last bit: the same input gives the same bytes on every machine.
# So no multiply and add may be fused (the product would keep bits that the contract rounds away), and
# nothing may be reordered or assumed finite.
add_library(kelsrc_flags INTERFACE)
target_compile_options(kelsrc_flags INTERFACE -ffp-contract=off -fno-fast-math)
target_compile_options(kelsrc_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow=local -Wnon-virtual-dtor -Woverloaded-virtual)
if(KELSRC_WERROR)
    target_compile_options(kelsrc_flags INTERFACE -Werror)
endif()
if(KELSRC_SANITIZE)
    # -g1 has the lines that a report names; full debug information makes the build a third longer.
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -O1 -g1)
    add_link_options(-fsanitize=address,undefined)
endif()
if(KELSRC_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
        -O1 -g -Wno-unknown-warning-option)
    add_link_options(-fsanitize=address,undefined)
endif()
if(KELSRC_COVERAGE)
    add_compile_options(--coverage -O0)
    add_link_options(--coverage)
endif()

# kelsrc_room(<name> [DIR <include root>] [HEADERS <header>...] [PUBLIC_HEADERS <header>...] [SOURCES ...]
#             [USES <target>...])
#
# One room of the house: an object library that sees only its own headers and those of the rooms that it
# USES. A room with DIR owns that folder as its include root. Rooms below kel/src share one source tree, so each
# gets an include root of its own in the build tree that holds nothing but links to its headers: including a header
# of a room that is not in USES does not compile, and calling into it does not link (the tests named room_* try).
# Paths are relative to the project's root. PUBLIC_HEADERS are for users, too, and are installed. A room's header is
# public when it declares a function that callers may use beside the writers, or when such a header includes it;
# tests/packaging/installed_headers.txt lists them all.
function(kelsrc_room name)
    cmake_parse_arguments(ROOM "" "DIR" "HEADERS;PUBLIC_HEADERS;SOURCES;USES" ${ARGN})
    list(TRANSFORM ROOM_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/)
    add_library(room_${name} OBJECT ${ROOM_SOURCES})
    if(ROOM_DIR)
        set(root ${PROJECT_SOURCE_DIR}/${ROOM_DIR})
    else()
        set(root ${CMAKE_BINARY_DIR}/rooms/${name})
        foreach(header IN LISTS ROOM_HEADERS ROOM_PUBLIC_HEADERS)
            get_filename_component(parent ${root}/${header} DIRECTORY)
            file(MAKE_DIRECTORY ${parent})
            file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${header} ${root}/${header} SYMBOLIC)
        endforeach()
        foreach(header IN LISTS ROOM_PUBLIC_HEADERS)
            get_filename_component(folder ${header} DIRECTORY)
            install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${KELSRC_INSTALLED_HEADERS}/${folder}
                COMPONENT development)
        endforeach()
    endif()
    target_include_directories(room_${name} PUBLIC $<BUILD_INTERFACE:${root}>)
    target_link_libraries(room_${name} PRIVATE kelsrc_flags PUBLIC ${ROOM_USES})
    set_property(GLOBAL APPEND PROPERTY KELSRC_ROOMS ${name})
    set_property(GLOBAL APPEND PROPERTY KELSRC_INCLUDE_ROOTS ${root})
endfunction()

# kelsrc_assemble(<target> [WITHOUT <room>...]): makes all rooms declared so far, but those named, the content of a
# target, with the include paths and libraries that whoever uses it needs.
function(kelsrc_assemble target)
    cmake_parse_arguments(LIB "" "" "WITHOUT" ${ARGN})
    get_property(rooms GLOBAL PROPERTY KELSRC_ROOMS)
    get_property(roots GLOBAL PROPERTY KELSRC_INCLUDE_ROOTS)
    list(REMOVE_DUPLICATES roots)
    if(LIB_WITHOUT)
        list(REMOVE_ITEM rooms ${LIB_WITHOUT})
    endif()
    foreach(room IN LISTS rooms)
        target_sources(${target} PRIVATE $<TARGET_OBJECTS:room_${room}>)
    endforeach()
    target_include_directories(${target} PUBLIC
        "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include;${roots}>"
        $<INSTALL_INTERFACE:${KELSRC_INSTALLED_HEADERS}>)
    target_include_directories(${target} SYSTEM PUBLIC $<BUILD_INTERFACE:${PICOJSON_INCLUDE_DIR}>)
    target_link_libraries(${target} PUBLIC glm::glm)
    if(KELSRC_BUNDLED_PLATFORM)
        target_compile_definitions(${target} PUBLIC KELSRC_BUNDLED_MESH=1)
        target_link_libraries(${target} PUBLIC Boost::log PRIVATE simdjson::simdjson)
    else()
        target_link_libraries(${target} PUBLIC kel::mesh kel::structure kel::utils kel::logging src::src)
    endif()
endfunction()
