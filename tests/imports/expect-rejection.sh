#!/usr/bin/env bash
# Proves that check-imports.sh rejects a program linked against the C++ runtime DLLs: it must
# fail and name libstdc++-6.dll.
set -u
objdump=$1
sample_dir=$2
output=$("$(dirname "$0")/check-imports.sh" "$objdump" "$sample_dir")
status=$?
printf '%s\n' "$output"
if [ "$status" -eq 0 ]; then
    echo "check-imports.sh accepted a dynamically linked sample"
    exit 1
fi
if ! printf '%s\n' "$output" | grep -q 'imports libstdc++-6.dll'; then
    echo "check-imports.sh failed without naming libstdc++-6.dll"
    exit 1
fi
echo "OK: the dynamically linked sample was rejected"
