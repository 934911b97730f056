#!/usr/bin/env bash
# The release files as `make dist` writes them, checked the way their users take them:
#  - written twice, into two directories: the same bytes both times (reproducible archives);
#  - each .sha256 file names its archive and its hash;
#  - the SDK archive unpacks to the SDK, the change log and the CMake package;
#  - the NuGet package's structure and MSBuild files (check-nupkg.py);
#  - a host's own CMake project finds the unpacked package with find_package and builds with
#    clang-cl and lld-link for the Visual C++ ABI (cmakehost/); cmake_package_tests runs it.
# Usage: check-dist.sh SETTINGS OUT  (SETTINGS: the generated dist-test-settings.sh)
set -euo pipefail
# shellcheck disable=SC1090
source "$1"
out=$2
here=$(cd "$(dirname "$0")" && pwd)

rm -rf "$out"
mkdir -p "$out"
for run in first second; do
  "$cmake" "${dist_definitions[@]}" -DDIST_DIR="$out/$run" -P "$dist_script" >/dev/null
done
sdk_zip=NetWorkerXbsa-$version-sdk-x64.zip
nupkg=NetWorkerXbsa.native.$version.nupkg
for file in "$sdk_zip" "$nupkg"; do
  cmp "$out/first/$file" "$out/second/$file" || { echo "check-dist: $file differs between two runs" >&2; exit 1; }
  (cd "$out/first" && sha256sum --check --quiet "$file.sha256") ||
    { echo "check-dist: $file.sha256 does not match" >&2; exit 1; }
done

mkdir -p "$out/unpacked"
(cd "$out/unpacked" && "$cmake" -E tar xf "$out/first/$sdk_zip")
root=$out/unpacked/NetWorkerXbsa-$version-sdk-x64
for entry in CHANGELOG.md README.md include/NetWorkerXbsa.h include/interfaces/xbsa.h \
             lib/NetWorkerXbsa.lib lib/TarnLog.lib bin/NetWorkerXbsa.dll bin/TarnLog.dll \
             bin/NetWorker64BitClient.exe lib/cmake/NetWorkerXbsa/NetWorkerXbsaConfig.cmake \
             lib/cmake/NetWorkerXbsa/NetWorkerXbsaConfigVersion.cmake; do
  [ -f "$root/$entry" ] || { echo "check-dist: $sdk_zip lacks $entry" >&2; exit 1; }
done
grep -q "^## \[$version\]" "$root/CHANGELOG.md" ||
  { echo "check-dist: the change log in $sdk_zip has no entry for $version" >&2; exit 1; }

python3 "$here/check-nupkg.py" "$out/first/$nupkg" "$version"

"$cmake" -S "$here/cmakehost" -B "$out/cmake-host" -G "Unix Makefiles" \
  -DCMAKE_TOOLCHAIN_FILE="$here/cmakehost/clang-cl-toolchain.cmake" \
  -DNWX_CLANG_CL="$clang_cl" -DNWX_LLD_LINK="$lld_link" -DNWX_LLVM_MT="$llvm_mt" \
  -DCMAKE_PREFIX_PATH="$root" -DHOST_SOURCES="$host_sources" \
  -DHOST_SYSTEM_LIBRARIES="$host_system_libraries" -DCMAKE_BUILD_TYPE=Release >/dev/null
"$cmake" --build "$out/cmake-host" >/dev/null
for file in cmake_host.exe NetWorkerXbsa.dll TarnLog.dll NetWorker64BitClient.exe; do
  [ -f "$out/cmake-host/$file" ] || { echo "check-dist: the CMake host build lacks $file" >&2; exit 1; }
done
echo "check-dist: $sdk_zip and $nupkg reproducible and complete; the CMake host built"
