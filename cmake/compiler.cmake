# Language level, warnings and the launcher that every target of the tree shares.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)

option(VELMOX_SANITIZE "AddressSanitizer and UndefinedBehaviorSanitizer (host preset)" OFF)
option(VELMOX_FUZZ "Instrumentation for libFuzzer, and its programs alone (fuzz preset; clang)" OFF)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
    set(launcher ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/cmake/launch)
    set(CMAKE_C_COMPILER_LAUNCHER ${launcher})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${launcher})
endif()

# -Wno-missing-field-initializers: Windows structures are zeroed by `= {}` or by their first field alone.
set(VELMOX_WARNINGS -Wall -Wextra -Wconversion -Werror -Wno-missing-field-initializers)

add_library(velmox-flags INTERFACE)
target_compile_options(velmox-flags INTERFACE ${VELMOX_WARNINGS})
target_include_directories(velmox-flags INTERFACE ${CMAKE_SOURCE_DIR}/src)
if(WIN32)
    # Windows 7 is the oldest system served; the C run-time is linked in, so that one file is the whole program.
    target_compile_definitions(velmox-flags INTERFACE
        WINVER=0x0601 _WIN32_WINNT=0x0601 UNICODE _UNICODE)
    # PCRE recurses on the stack, some 2 KiB for each turn of a repeated group, and key paths reach 32,767
    # characters. The room is address space; only what is touched costs memory.
    target_link_options(velmox-flags INTERFACE -static -Wl,--stack,134217728)
endif()
if(VELMOX_SANITIZE)
    target_compile_options(velmox-flags INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    target_link_options(velmox-flags INTERFACE -fsanitize=address,undefined)
endif()
if(VELMOX_FUZZ)
    # The warnings are those of GCC in the other presets: clang knows no gnu_printf.
    target_compile_options(velmox-flags INTERFACE -w -fsanitize=fuzzer-no-link)
    target_link_options(velmox-flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
