# cmake -DPROGRAM=... -DPREFIX=... -DOUT=... -P AddSuites.cmake: writes the ctest tests of one test program.
#
# One test of ctest per test suite of the program, so that a thousand cases do not start a thousand processes, which costs
# more than most of them. A large suite is dealt out to several, so that all processors have work. What fails is named,
# case by case, in the output.

set(MOST_CASES 40)

execute_process(COMMAND ${PROGRAM} --gtest_list_tests OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE ";" "\\;" listing "${listing}")
string(REPLACE "\n" ";" lines "${listing}")
set(script "")
set(suite "")
set(cases 0)

function(add_suite suite cases)
    if(NOT suite OR cases EQUAL 0)
        return()
    endif()
    math(EXPR shards "(${cases} + ${MOST_CASES} - 1) / ${MOST_CASES}")
    math(EXPR last "${shards} - 1")
    foreach(shard RANGE ${last})
        set(name "${PREFIX}.${suite}")
        set(environment "")
        if(shards GREATER 1)
            math(EXPR number "${shard} + 1")
            set(name "${name}.${number}_of_${shards}")
            set(environment "ENVIRONMENT \"GTEST_TOTAL_SHARDS=${shards};GTEST_SHARD_INDEX=${shard}\"")
        endif()
        string(APPEND script "add_test([==[${name}]==] [==[${PROGRAM}]==] [==[--gtest_filter=${suite}.*]==] --gtest_brief=1)\n"
            "set_tests_properties([==[${name}]==] PROPERTIES TIMEOUT 600 COST ${cases} ${environment})\n")
    endforeach()
    set(script "${script}" PARENT_SCOPE)
endfunction()

foreach(line IN LISTS lines)
    if(line MATCHES "^([A-Za-z0-9_/]+)\\.")
        set(next ${CMAKE_MATCH_1})
        add_suite("${suite}" ${cases})
        set(suite ${next})
        set(cases 0)
    elseif(line MATCHES "^  [^ ]")
        math(EXPR cases "${cases} + 1")
    endif()
endforeach()
add_suite("${suite}" ${cases})
if(script STREQUAL "")
    message(FATAL_ERROR "${PROGRAM} has no tests")
endif()
file(WRITE ${OUT} "${script}")
