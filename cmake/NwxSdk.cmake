# The SDK for hosts built by Visual C++ (`make sdk`; part of every Windows build):
#   sdk/include  NetWorkerXbsa.h and the interface headers it includes
#   sdk/lib      NetWorkerXbsa.lib and TarnLog.lib, Visual C++ import libraries
#   sdk/bin      NetWorkerXbsa.dll, TarnLog.dll and NetWorker64BitClient.exe
#   sdk/README.md
if(NOT WIN32 OR NOT TARGET NetWorkerXbsa OR NOT TARGET TarnLog OR NOT TARGET NetWorker64BitClient)
    return()
endif()

set(NWX_SDK_DIR ${CMAKE_BINARY_DIR}/sdk)
file(GLOB nwx_sdk_interface_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/interfaces/*.h)
add_custom_target(sdk ALL
    COMMAND ${CMAKE_COMMAND} -E make_directory ${NWX_SDK_DIR}/include/interfaces
            ${NWX_SDK_DIR}/lib ${NWX_SDK_DIR}/bin
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${PROJECT_SOURCE_DIR}/src/exports/NetWorkerXbsa.h
            ${NWX_SDK_DIR}/include/
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${nwx_sdk_interface_headers}
            ${NWX_SDK_DIR}/include/interfaces/
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${NWX_ABI_DIR}/NetWorkerXbsa.lib
            ${NWX_ABI_DIR}/TarnLog.lib ${NWX_SDK_DIR}/lib/
    COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:NetWorkerXbsa>
            $<TARGET_FILE:TarnLog> $<TARGET_FILE:NetWorker64BitClient> ${NWX_SDK_DIR}/bin/
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${PROJECT_SOURCE_DIR}/docs/sdk/README.md
            ${NWX_SDK_DIR}/README.md
    COMMENT "SDK for Visual C++ hosts in ${NWX_SDK_DIR}"
    VERBATIM)
add_dependencies(sdk NetWorkerXbsa TarnLog NetWorker64BitClient)
