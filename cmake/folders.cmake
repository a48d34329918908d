# velmox_library(name PURE files... BOUND files... LINK targets...)
#
# One library a source folder, so that the linker enforces who may include whom. PURE files need no operating
# system and are compiled natively as well (preset host); BOUND files are compiled for Windows alone.
function(velmox_library name)
    cmake_parse_arguments(arg "" "" "PURE;BOUND;HOST;LINK;LINK_BOUND" ${ARGN})
    set(sources ${arg_PURE})
    if(WIN32)
        list(APPEND sources ${arg_BOUND})
        list(APPEND arg_LINK ${arg_LINK_BOUND})
    else()
        list(APPEND sources ${arg_HOST})
    endif()
    if(NOT sources)
        return()
    endif()
    add_library(${name} STATIC ${sources})
    target_link_libraries(${name} PUBLIC velmox-flags ${arg_LINK})
endfunction()

# velmox_tests(name PURE files... BOUND files... LINK targets... PREFIX prefix)
#
# One GoogleTest program a folder, registered as one CTest test, with its results in results/<name>.xml.
#
# PREFIX names a Wine prefix of the program's own (build/wine-<prefix>) that is made anew for each run, with the
# installation in it. Tests that install services or change what others see need one; the rest share build/wine.
function(velmox_tests name)
    cmake_parse_arguments(arg "" "PREFIX" "PURE;BOUND;LINK;LINK_BOUND" ${ARGN})
    set(sources ${arg_PURE})
    if(WIN32)
        list(APPEND sources ${arg_BOUND})
        list(APPEND arg_LINK ${arg_LINK_BOUND})
    endif()
    if(NOT sources)
        return()
    endif()
    add_executable(${name} ${sources})
    target_link_libraries(${name} PRIVATE velmox-flags ${arg_LINK} test-support GTest::gtest_main GTest::gmock)
    target_precompile_headers(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests/support/prelude.h)

    set(runner)
    set(environment GTEST_OUTPUT=xml:results/${name}.xml)
    if(CMAKE_CROSSCOMPILING)
        set(runner ${CMAKE_SOURCE_DIR}/scripts/wine)
        if(arg_PREFIX)
            list(APPEND runner --fresh)
            list(APPEND environment VELMOX_WINEPREFIX=${CMAKE_SOURCE_DIR}/build/wine-${arg_PREFIX})
        endif()
    endif()
    add_test(NAME ${name} COMMAND ${runner} $<TARGET_FILE:${name}> WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
    set_tests_properties(${name} PROPERTIES TIMEOUT 300 ENVIRONMENT "${environment}")
endfunction()
