# Visual C++'s ABI without Visual C++: clang-cl and lld-link for x86_64-pc-windows-msvc. There is
# no Windows SDK or C runtime here, so CMake's checks compile without linking.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(CMAKE_C_COMPILER ${NWX_CLANG_CL})
set(CMAKE_CXX_COMPILER ${NWX_CLANG_CL})
set(CMAKE_C_COMPILER_TARGET x86_64-pc-windows-msvc)
set(CMAKE_CXX_COMPILER_TARGET x86_64-pc-windows-msvc)
set(CMAKE_LINKER ${NWX_LLD_LINK})
set(CMAKE_MT ${NWX_LLVM_MT})
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
# Nothing but what the host names: the Windows SDK's import libraries are not here either.
set(CMAKE_C_STANDARD_LIBRARIES "" CACHE STRING "the host names its own")
set(CMAKE_CXX_STANDARD_LIBRARIES "" CACHE STRING "the host names its own")
