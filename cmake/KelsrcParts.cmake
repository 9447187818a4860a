# Which parts are built. A part whose needs are left out is left out with them; a contradiction between options that
# are OFF by default, which someone has asked for, ends with one sentence.

include(CMakeDependentOption)

option(KELSRC_BUNDLED_PLATFORM "Build the pipeline's platform libraries from this tree; OFF takes them from find_package" ON)
# The parts around the library fill meshes, and those are this tree's own.
cmake_dependent_option(KELSRC_BUILD_PREPARE "Build what makes inputs fit a writer (needs meshoptimizer)" ON
    KELSRC_BUNDLED_PLATFORM OFF)
cmake_dependent_option(KELSRC_BUILD_IMPORTER "Build the importer for model files (needs Assimp)" ON
    KELSRC_BUNDLED_PLATFORM OFF)
cmake_dependent_option(KELSRC_BUILD_CONVERT "Build conversion by recipe (needs preparation and importer)" ON
    "KELSRC_BUILD_PREPARE;KELSRC_BUILD_IMPORTER" OFF)
cmake_dependent_option(KELSRC_BUILD_CLI "Build the kelsrc command (needs conversion and CLI11)" ON
    KELSRC_BUILD_CONVERT OFF)
set(KELSRC_VIEWER AUTO CACHE STRING "Compile the viewer's page into the command: AUTO (where Node.js and npm are found), ON or OFF")
set_property(CACHE KELSRC_VIEWER PROPERTY STRINGS AUTO ON OFF)
option(KELSRC_BUILD_TESTS "Build the tests (needs GoogleTest and RapidCheck)" OFF)
option(KELSRC_BUILD_BENCH "Build the benchmarks (needs Google Benchmark)" OFF)
option(KELSRC_SANITIZE "AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(KELSRC_COVERAGE "Instrument for line coverage" OFF)
option(KELSRC_FUZZ "Instrument for libFuzzer (needs clang); build the target fuzzers" OFF)

# kelsrc_needs(<option> <needed option> <why>)
function(kelsrc_needs option needed why)
    if(${option} AND NOT ${needed})
        message(FATAL_ERROR "${option}=${${option}} needs ${needed}=ON: ${why}.")
    endif()
endfunction()
kelsrc_needs(KELSRC_BUILD_TESTS KELSRC_BUNDLED_PLATFORM "the tests fill this tree's own meshes")
kelsrc_needs(KELSRC_FUZZ KELSRC_BUNDLED_PLATFORM "the reader, which is fuzzed, makes this tree's own meshes")
kelsrc_needs(KELSRC_BUILD_BENCH KELSRC_BUILD_PREPARE "the comparison cuts its meshes with it")
if(KELSRC_VIEWER STREQUAL "ON")
    kelsrc_needs(KELSRC_VIEWER KELSRC_BUILD_CLI "the page is part of the command")
endif()
if(KELSRC_FUZZ AND KELSRC_SANITIZE)
    message(FATAL_ERROR "KELSRC_FUZZ=ON brings its own sanitizers: leave KELSRC_SANITIZE off.")
endif()
if(KELSRC_FUZZ AND NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "KELSRC_FUZZ=ON needs clang, which brings libFuzzer: set CMAKE_CXX_COMPILER.")
endif()
