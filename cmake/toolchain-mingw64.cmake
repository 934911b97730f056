# Cross-compiles for 64-bit Windows with Debian's MinGW-w64 (posix threads model).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(NWX_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${NWX_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${NWX_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${NWX_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${NWX_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# Every artifact must run on a clean Windows: no libstdc++, libgcc or winpthread DLLs.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")

# Tests and tools run under Wine; the wrapper creates the build tree's Wine prefix on first use.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh)
