#!/usr/bin/env bash
# Reads the decorated names of a DLL's exported C++ functions from a table of their addresses
# (an "anchors" source that includes the public header), as Visual C++ and as MinGW GCC mangle
# them, and writes the module-definition files that bind the two:
#
#   <out>-aliases.def      for MinGW ld: export each Visual C++ name as an alias of the GCC symbol
#   <out>-msvc.def         for llvm-dlltool: the Visual C++ import library of the DLL
#   <out>-gcc-imports.def  for MinGW dlltool: lets GCC code import the DLL's Visual C++ names
#   <out>.names            "<msvc name> <gcc name>" per line, for tests and docs
#   <out>.lib              the Visual C++ import library of the DLL (made from <out>-msvc.def)
#
# Each anchors source is compiled three times: by clang for x86_64-pc-windows-msvc with a
# built-in wchar_t, again as for /Zc:wchar_t- (wchar_t is unsigned short), and by the MinGW
# compiler. The table's relocations list the functions in the same order every time, which pairs
# the names without typing any of them by hand.
#
# With a second table, <bound anchors.cpp> (GCC names only, in the same order), the Visual C++
# names are bound to its functions instead of the GCC names' own: the DLL gives a Visual C++ host
# other objects than a GCC one.
#
# usage: msvc-export-names.sh <clang> <llvm-readobj> <llvm-dlltool> <mingw-g++> <anchors.cpp>
#                             <include dir> <dll name> <out prefix> [<bound anchors.cpp>]
set -euo pipefail

clang=$1 readobj=$2 dlltool=$3 gxx=$4 anchors=$5 include=$6 dll=$7 out=$8 bound=${9:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

common=(-std=c++17 -DNETWORKERXBSA_STATIC -I "$include" -c "$anchors")
"$clang" --target=x86_64-pc-windows-msvc "${common[@]}" -o "$work/msvc.obj"
"$clang" --target=x86_64-pc-windows-msvc -Xclang -fno-wchar "${common[@]}" -o "$work/nowchar.obj"
"$gxx" "${common[@]}" -o "$work/gcc.obj"
if [ -n "$bound" ]; then
    "$gxx" -std=c++17 -DNETWORKERXBSA_STATIC -I "$include" -c "$bound" -o "$work/bound.obj"
fi

# The symbol of every relocation, in the order of the table.
relocated() {
    "$readobj" --relocations "$1" | sed -n 's/^ *0x[0-9A-Fa-f]* IMAGE_REL_AMD64_ADDR64 \(.*\) ([0-9]*)$/\1/p'
}
relocated "$work/msvc.obj" >"$work/msvc.txt"
relocated "$work/nowchar.obj" >"$work/nowchar.txt"
relocated "$work/gcc.obj" >"$work/gcc.txt"
if [ -n "$bound" ]; then
    relocated "$work/bound.obj" >"$work/bound.txt"
else
    cp "$work/gcc.txt" "$work/bound.txt"
fi

count=$(wc -l <"$work/gcc.txt")
if [ "$count" -eq 0 ] || [ "$(wc -l <"$work/msvc.txt")" -ne "$count" ] ||
   [ "$(wc -l <"$work/nowchar.txt")" -ne "$count" ] ||
   [ "$(wc -l <"$work/bound.txt")" -ne "$count" ]; then
    echo "msvc-export-names: $anchors gave unequal or empty tables" >&2
    exit 1
fi
if grep -v '^?' "$work/msvc.txt" "$work/nowchar.txt" >&2 ||
   grep -v '^_Z' "$work/gcc.txt" "$work/bound.txt" >&2; then
    echo "msvc-export-names: a name above is not a decorated C++ name" >&2
    exit 1
fi

# Both spellings against the symbol they are bound to; a function without a wide string has
# only one.
{
    paste -d ' ' "$work/msvc.txt" "$work/bound.txt"
    paste -d ' ' "$work/nowchar.txt" "$work/bound.txt"
} | awk '!seen[$1]++' >"$work/names"

{
    echo "EXPORTS"
    awk '{ printf "    \"%s\" = %s\n", $1, $2 }' "$work/names"
} >"$work/aliases.def"
{
    echo "LIBRARY $dll"
    echo "EXPORTS"
    awk '{ printf "    \"%s\"\n", $1 }' "$work/names"
} >"$work/msvc.def"
{
    echo "LIBRARY $dll"
    echo "EXPORTS"
    paste -d ' ' "$work/gcc.txt" "$work/msvc.txt" | awk '{ printf "    %s == \"%s\"\n", $1, $2 }'
} >"$work/gcc-imports.def"

mkdir -p "$(dirname "$out")"
cp "$work/names" "$out.names"
cp "$work/aliases.def" "$out-aliases.def"
cp "$work/msvc.def" "$out-msvc.def"
cp "$work/gcc-imports.def" "$out-gcc-imports.def"
"$dlltool" -m i386:x86-64 -d "$out-msvc.def" -l "$out.lib"
