# The fourth number of the version. scripts/package sets it; whatever is not packed has 0.
set(VELMOX_BUILD_NUMBER 0 CACHE STRING "Number of the product's build")

# velmox_version(program description [build])
#
# Gives a Windows program its version resource, from which ProgramVersion reads: its name, what it is in a few words, and
# the version of the product.
function(velmox_version program description)
    set(build ${VELMOX_BUILD_NUMBER})
    if(ARGC GREATER 2)
        set(build ${ARGV2})
    endif()
    set(resource ${CMAKE_CURRENT_BINARY_DIR}/${program}.rc)
    configure_file(${CMAKE_SOURCE_DIR}/cmake/version.rc.in ${resource} @ONLY)
    # By itself, for the compiler of resources takes neither the options nor the definitions of the program.
    add_library(${program}-version OBJECT ${resource})
    target_sources(${program} PRIVATE $<TARGET_OBJECTS:${program}-version>)
endfunction()

# velmox_program(name description source LINK libraries...)
#
# A program of the installation that is also built natively. Its source defines runProgram (util/system/program_entry.h).
function(velmox_program name description source)
    cmake_parse_arguments(arg "" "" "LINK" ${ARGN})
    add_executable(${name} ${source})
    target_link_libraries(${name} PRIVATE velmox-entry ${arg_LINK})
    if(WIN32)
        target_link_options(${name} PRIVATE -municode)
        velmox_version(${name} ${description})
        install(TARGETS ${name} RUNTIME DESTINATION bin)
    endif()
endfunction()
