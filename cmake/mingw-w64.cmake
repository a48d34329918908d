# Cross-compilation for 64-bit Windows by Debian's MinGW-w64 with POSIX threads.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(tool_prefix x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${tool_prefix}-gcc-posix)
set(CMAKE_CXX_COMPILER ${tool_prefix}-g++-posix)
set(CMAKE_RC_COMPILER ${tool_prefix}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${tool_prefix})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
