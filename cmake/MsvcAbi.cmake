# The binary contract with hosts built by Visual C++: the decorated names of the exported
# functions as Visual C++ spells them, read from the public headers by clang in MSVC mode.

if(NOT WIN32)
    return()
endif()

find_program(NWX_CLANG NAMES clang clang-14 REQUIRED)
find_program(NWX_LLVM_READOBJ NAMES llvm-readobj llvm-readobj-14 REQUIRED)
find_program(NWX_LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)
find_program(NWX_LLD_LINK NAMES lld-link lld-link-14 REQUIRED)
# For the SDK's tests: the Visual C++ driver and the manifest tool of the same LLVM.
find_program(NWX_CLANG_CL NAMES clang-cl clang-cl-14 REQUIRED)
find_program(NWX_LLVM_MT NAMES llvm-mt llvm-mt-14 REQUIRED)
if(CMAKE_DLLTOOL)
    set(NWX_MINGW_DLLTOOL ${CMAKE_DLLTOOL})
else()
    find_program(NWX_MINGW_DLLTOOL NAMES x86_64-w64-mingw32-dlltool REQUIRED)
endif()

set(NWX_ABI_DIR ${CMAKE_BINARY_DIR}/abi)
file(GLOB NWX_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/interfaces/*.h)
list(APPEND NWX_PUBLIC_HEADERS ${PROJECT_SOURCE_DIR}/src/exports/NetWorkerXbsa.h)

# nwx_msvc_export_names(<name> ANCHORS <source> DLL <file name> [BOUND_TO <source>])
# Generates, in ${NWX_ABI_DIR}, <name>-aliases.def (link the DLL with it: it exports every
# Visual C++ name as an alias of the GCC symbol), <name>-msvc.def (input of the Visual C++
# import library), <name>-gcc-imports.def (input of a MinGW import library through which GCC
# code imports the Visual C++ names), <name>.names and <name>.lib, the Visual C++ import
# library. BOUND_TO names a second table, in the same order, of the functions that the Visual
# C++ names are bound to (otherwise the GCC names' own). Sets <name>_ALIASES_DEF, <name>_GCC_IMPORTS_DEF and <name>_MSVC_IMPLIB in the
# caller's scope.
function(nwx_msvc_export_names name)
    cmake_parse_arguments(A "" "ANCHORS;DLL;BOUND_TO" "" ${ARGN})
    set(prefix ${NWX_ABI_DIR}/${name})
    add_custom_command(
        OUTPUT ${prefix}-aliases.def ${prefix}-msvc.def ${prefix}-gcc-imports.def ${prefix}.names
               ${prefix}.lib
        COMMAND bash ${PROJECT_SOURCE_DIR}/cmake/msvc-export-names.sh ${NWX_CLANG}
                ${NWX_LLVM_READOBJ} ${NWX_LLVM_DLLTOOL} ${CMAKE_CXX_COMPILER} ${A_ANCHORS}
                ${PROJECT_SOURCE_DIR}/src ${A_DLL} ${prefix} ${A_BOUND_TO}
        DEPENDS ${A_ANCHORS} ${A_BOUND_TO} ${NWX_PUBLIC_HEADERS}
                ${PROJECT_SOURCE_DIR}/cmake/msvc-export-names.sh
        COMMENT "Reading the Visual C++ names of ${A_DLL}'s exports"
        VERBATIM)
    set(${name}_ALIASES_DEF ${prefix}-aliases.def PARENT_SCOPE)
    set(${name}_GCC_IMPORTS_DEF ${prefix}-gcc-imports.def PARENT_SCOPE)
    set(${name}_MSVC_IMPLIB ${prefix}.lib PARENT_SCOPE)
endfunction()
