# The one version of the product is the CMake project version. It reaches every binary through
# a VERSIONINFO resource (nwx_version_resource), nwexch --version (NWX_VERSION), the SDK archive's
# name and the CMake and NuGet packages; CHANGELOG.md's newest entry must name it.

file(STRINGS ${PROJECT_SOURCE_DIR}/CHANGELOG.md nwx_changelog_versions REGEX "^## \\[[0-9]")
list(GET nwx_changelog_versions 0 nwx_newest_entry)
string(REGEX REPLACE "^## \\[([^]]*)\\].*" "\\1" nwx_newest_version "${nwx_newest_entry}")
if(NOT nwx_newest_version STREQUAL PROJECT_VERSION)
    message(FATAL_ERROR "CHANGELOG.md's newest entry is ${nwx_newest_version}, the project "
                        "version ${PROJECT_VERSION}: give the release its entry")
endif()

# nwx_version_resource(<target> <file description>)
# Adds the VERSIONINFO resource: file and product version, product name, the description, the
# original file name (the target's output file name).
function(nwx_version_resource target description)
    if(NOT WIN32)
        return()
    endif()
    get_target_property(type ${target} TYPE)
    get_target_property(output_name ${target} OUTPUT_NAME)
    if(NOT output_name)
        set(output_name ${target})
    endif()
    get_target_property(prefix ${target} PREFIX)
    if(type STREQUAL "SHARED_LIBRARY")
        set(NWX_RC_FILE_TYPE VFT_DLL)
        set(suffix ".dll")
        if(prefix STREQUAL "prefix-NOTFOUND")
            set(prefix "lib")
        endif()
    else()
        set(NWX_RC_FILE_TYPE VFT_APP)
        set(suffix ".exe")
        set(prefix "")
    endif()
    set(NWX_RC_FILE_NAME ${prefix}${output_name}${suffix})
    set(NWX_RC_INTERNAL_NAME ${prefix}${output_name})
    set(NWX_RC_DESCRIPTION "${description}")
    set(rc ${CMAKE_CURRENT_BINARY_DIR}/${target}-version.rc)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/VersionInfo.rc.in ${rc} @ONLY)
    target_sources(${target} PRIVATE ${rc})
    # The files and their expected names, for the test that reads the resources back.
    set_property(GLOBAL APPEND PROPERTY NWX_VERSIONED_TARGETS ${target})
endfunction()
