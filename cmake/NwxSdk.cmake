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

# The CMake package of the SDK: find_package(NetWorkerXbsa CONFIG) in a host's project.
include(CMakePackageConfigHelpers)
set(NWX_SDK_CMAKE_DIR ${NWX_SDK_DIR}/lib/cmake/NetWorkerXbsa)
configure_file(${PROJECT_SOURCE_DIR}/cmake/package/NetWorkerXbsaConfig.cmake.in
               ${NWX_SDK_CMAKE_DIR}/NetWorkerXbsaConfig.cmake @ONLY)
write_basic_package_version_file(${NWX_SDK_CMAKE_DIR}/NetWorkerXbsaConfigVersion.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)

# make dist: the versioned SDK archive and the NuGet package in build/dist (cmake/make-dist.cmake).
file(STRINGS ${PROJECT_SOURCE_DIR}/CHANGELOG.md nwx_release_lines REGEX "^## \\[${PROJECT_VERSION}\\]")
string(REGEX MATCH "[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]" NWX_RELEASE_DATE "${nwx_release_lines}")
# The script's settings but DIST_DIR: tests write the same files elsewhere to compare them.
set(NWX_DIST_DEFINITIONS -DSDK_DIR=${NWX_SDK_DIR} -DSOURCE_DIR=${PROJECT_SOURCE_DIR}
    -DVERSION=${PROJECT_VERSION} -DRELEASE_DATE=${NWX_RELEASE_DATE})
add_custom_target(dist
    COMMAND ${CMAKE_COMMAND} ${NWX_DIST_DEFINITIONS} -DDIST_DIR=${CMAKE_BINARY_DIR}/dist
            -P ${PROJECT_SOURCE_DIR}/cmake/make-dist.cmake
    COMMENT "Release files of NetWorkerXbsa ${PROJECT_VERSION} in ${CMAKE_BINARY_DIR}/dist"
    VERBATIM)
add_dependencies(dist sdk)
