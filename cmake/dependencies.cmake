# Libraries that are installed and called. The cross-built ones come from the cache that scripts/dependencies fills;
# the native ones, for the host preset, from the system's packages.
if(WIN32)
    # The same name as in scripts/dependencies: another recipe, another directory.
    set(recipe ${CMAKE_SOURCE_DIR}/scripts/dependencies.recipe)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${recipe})
    file(SHA256 ${recipe} recipe_hash)
    string(SUBSTRING ${recipe_hash} 0 12 recipe_hash)
    # Empty is as good as not set, as for the shell of scripts/lib.sh.
    set(cache_root $ENV{XDG_CACHE_HOME})
    if(NOT cache_root)
        set(cache_root $ENV{HOME}/.cache)
    endif()
    if(NOT VELMOX_DEPENDENCIES)
        set(VELMOX_DEPENDENCIES ${cache_root}/velmox-deps/windows-${recipe_hash})
    endif()
    if(NOT EXISTS ${VELMOX_DEPENDENCIES}/complete)
        message(FATAL_ERROR "No cross-built libraries in ${VELMOX_DEPENDENCIES}: run scripts/dependencies first")
    endif()
    # Stale results of an earlier configuration must not outlive a change of the recipe.
    unset(GTest_DIR CACHE)

    function(velmox_imported name archive)
        add_library(${name} STATIC IMPORTED)
        set_target_properties(${name} PROPERTIES
            IMPORTED_LOCATION ${VELMOX_DEPENDENCIES}/lib/${archive}
            INTERFACE_INCLUDE_DIRECTORIES ${VELMOX_DEPENDENCIES}/include)
    endfunction()

    velmox_imported(velmox::pcre libpcre.a)
    target_compile_definitions(velmox::pcre INTERFACE PCRE_STATIC)
    velmox_imported(velmox::crypto libcrypto.a)
    target_link_libraries(velmox::crypto INTERFACE ws2_32 crypt32)
    velmox_imported(velmox::xml2 libxml2.a)
    target_compile_definitions(velmox::xml2 INTERFACE LIBXML_STATIC)
    set_target_properties(velmox::xml2 PROPERTIES
        INTERFACE_INCLUDE_DIRECTORIES ${VELMOX_DEPENDENCIES}/include/libxml2)
    target_link_libraries(velmox::xml2 INTERFACE ws2_32 bcrypt)

    find_package(GTest CONFIG REQUIRED PATHS ${VELMOX_DEPENDENCIES} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
else()
    find_package(GTest CONFIG REQUIRED)
    add_library(velmox::pcre INTERFACE IMPORTED)
    target_link_libraries(velmox::pcre INTERFACE pcre)
    add_library(velmox::xml2 INTERFACE IMPORTED)
    target_include_directories(velmox::xml2 INTERFACE /usr/include/libxml2)
    target_link_libraries(velmox::xml2 INTERFACE xml2)
endif()

# Headers alone, the same for both; in a folder of their own, as the cross compiler must not see the system's.
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/include)
file(CREATE_LINK /usr/include/nlohmann ${CMAKE_BINARY_DIR}/include/nlohmann SYMBOLIC)
add_library(velmox::json INTERFACE IMPORTED)
target_include_directories(velmox::json INTERFACE ${CMAKE_BINARY_DIR}/include)
file(CREATE_LINK /usr/include/xxhash.h ${CMAKE_BINARY_DIR}/include/xxhash.h SYMBOLIC)
add_library(velmox::xxhash INTERFACE IMPORTED)
target_include_directories(velmox::xxhash INTERFACE ${CMAKE_BINARY_DIR}/include)
target_compile_definitions(velmox::xxhash INTERFACE XXH_INLINE_ALL)
