# Writes the release files of one version into DIST_DIR (cmake -P; the `dist` target runs it):
#   NetWorkerXbsa-<VERSION>-sdk-x64.zip          the SDK (headers, import libraries, binaries,
#                                                CMake package, README) and CHANGELOG.md
#   NetWorkerXbsa.native.<VERSION>.nupkg         the native NuGet package
#   and a .sha256 file beside each ("<hash>  <file name>").
# Both archives are reproducible: their entries are in name order and all carry the release's
# date (RELEASE_DATE, from CHANGELOG.md), so two runs over the same files give the same bytes.
#
# -DSDK_DIR=<build>/sdk -DSOURCE_DIR=<source> -DDIST_DIR=<out> -DVERSION=x.y.z
# -DRELEASE_DATE=YYYY-MM-DD
foreach(variable SDK_DIR SOURCE_DIR DIST_DIR VERSION RELEASE_DATE)
    if(NOT DEFINED ${variable})
        message(FATAL_ERROR "make-dist.cmake needs -D${variable}=...")
    endif()
endforeach()

# A zip of everything below `stage`, entries in name order, all dated RELEASE_DATE, and its
# .sha256 file (cmake/reproducible-zip.py: CMake's own zip writer records each file's access and
# change times, which differ from run to run).
function(nwx_reproducible_zip stage archive)
    find_program(python NAMES python3 REQUIRED)
    file(REMOVE ${archive})
    execute_process(
        COMMAND ${python} ${SOURCE_DIR}/cmake/reproducible-zip.py ${stage} ${archive}
                ${RELEASE_DATE}
        RESULT_VARIABLE failed)
    if(failed)
        message(FATAL_ERROR "could not write ${archive}")
    endif()
    file(SHA256 ${archive} hash)
    get_filename_component(name ${archive} NAME)
    file(WRITE ${archive}.sha256 "${hash}  ${name}\n")
endfunction()

set(sdk_name NetWorkerXbsa-${VERSION}-sdk-x64)
set(stage ${DIST_DIR}/stage)
file(REMOVE_RECURSE ${stage})

# The SDK archive: the SDK as it is, and the change log.
file(COPY ${SDK_DIR}/ DESTINATION ${stage}/sdk/${sdk_name})
file(COPY ${SOURCE_DIR}/CHANGELOG.md DESTINATION ${stage}/sdk/${sdk_name})
nwx_reproducible_zip(${stage}/sdk ${DIST_DIR}/${sdk_name}.zip)

# The NuGet package: a zip with the .nuspec at its root and build/native for MSBuild.
set(nuget ${stage}/nuget)
set(native ${nuget}/build/native)
configure_file(${SOURCE_DIR}/cmake/package/NetWorkerXbsa.native.nuspec.in
               ${nuget}/NetWorkerXbsa.native.nuspec @ONLY)
file(COPY ${SOURCE_DIR}/cmake/package/NetWorkerXbsa.native.props
          ${SOURCE_DIR}/cmake/package/NetWorkerXbsa.native.targets DESTINATION ${native})
file(COPY ${SDK_DIR}/include/ DESTINATION ${native}/include)
file(COPY ${SDK_DIR}/lib/NetWorkerXbsa.lib ${SDK_DIR}/lib/TarnLog.lib DESTINATION ${native}/lib/x64)
file(COPY ${SDK_DIR}/bin/NetWorkerXbsa.dll ${SDK_DIR}/bin/TarnLog.dll
          ${SDK_DIR}/bin/NetWorker64BitClient.exe DESTINATION ${native}/bin/x64)
file(COPY ${SDK_DIR}/README.md ${SOURCE_DIR}/CHANGELOG.md DESTINATION ${nuget})
file(WRITE ${nuget}/[Content_Types].xml
     "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
     "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">\n"
     "  <Default Extension=\"nuspec\" ContentType=\"application/octet\" />\n"
     "  <Default Extension=\"props\" ContentType=\"application/octet\" />\n"
     "  <Default Extension=\"targets\" ContentType=\"application/octet\" />\n"
     "  <Default Extension=\"h\" ContentType=\"application/octet\" />\n"
     "  <Default Extension=\"lib\" ContentType=\"application/octet\" />\n"
     "  <Default Extension=\"dll\" ContentType=\"application/octet\" />\n"
     "  <Default Extension=\"exe\" ContentType=\"application/octet\" />\n"
     "  <Default Extension=\"md\" ContentType=\"application/octet\" />\n"
     "</Types>\n")
nwx_reproducible_zip(${nuget} ${DIST_DIR}/NetWorkerXbsa.native.${VERSION}.nupkg)
file(REMOVE_RECURSE ${stage})
message(STATUS "NetWorkerXbsa ${VERSION}: ${DIST_DIR}/${sdk_name}.zip, "
               "${DIST_DIR}/NetWorkerXbsa.native.${VERSION}.nupkg")
