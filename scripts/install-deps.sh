#!/usr/bin/env bash
# Installs what the build needs on Debian 12; runs apt-get update only when something is missing.
set -euo pipefail
packages=(
  cmake make g++ clang libclang-rt-14-dev lld llvm
  g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
  wine wine64 googletest util-linux python3
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo=sudo
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
