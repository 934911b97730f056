#!/usr/bin/env bash
# Fails when a built .exe or .dll imports a DLL that is neither part of Windows nor one of
# ours. Every artifact must run on a clean Windows: the C++ runtime is linked statically, so
# libstdc++-6.dll, libgcc_s_seh-1.dll and libwinpthread-1.dll must never appear.
#
# usage: check-imports.sh <objdump> <directory>...
# Directories are searched recursively; a directory that does not exist is skipped.
set -u

objdump=$1
shift

# Our own DLLs: the library, the logging library and the simulator's NetWorker image.
ours="tarnlog.dll networkerxbsa.dll liblocal.dll librpc.dll librap.dll libnsr.dll libasm.dll
      libbsa.dll libnsrbsa.dll"

# DLLs that ship with Windows.
system="kernel32.dll ntdll.dll kernelbase.dll user32.dll gdi32.dll advapi32.dll msvcrt.dll
        ucrtbase.dll shell32.dll shlwapi.dll ole32.dll oleaut32.dll rpcrt4.dll ws2_32.dll
        mswsock.dll bcrypt.dll crypt32.dll secur32.dll sspicli.dll userenv.dll version.dll
        psapi.dll dbghelp.dll imagehlp.dll iphlpapi.dll netapi32.dll winmm.dll comctl32.dll
        comdlg32.dll setupapi.dll cfgmgr32.dll wintrust.dll dnsapi.dll mpr.dll winhttp.dll
        wininet.dll powrprof.dll wtsapi32.dll normaliz.dll uxtheme.dll dwmapi.dll"

allowed() {
    local dll
    dll=$(printf '%s' "$1" | tr '[:upper:]' '[:lower:]')
    case "$dll" in
        api-ms-win-*.dll | ext-ms-win-*.dll) return 0 ;;
    esac
    for known in $ours $system; do
        [ "$dll" = "$known" ] && return 0
    done
    return 1
}

checked=0
bad=0
for dir in "$@"; do
    [ -d "$dir" ] || continue
    while IFS= read -r -d '' artifact; do
        if ! imports=$("$objdump" -p "$artifact" 2>&1); then
            echo "FAIL $artifact: objdump could not read it: $imports"
            bad=$((bad + 1))
            continue
        fi
        checked=$((checked + 1))
        while read -r dll; do
            if ! allowed "$dll"; then
                echo "FAIL $artifact imports $dll"
                bad=$((bad + 1))
            fi
        done < <(printf '%s\n' "$imports" | sed -n 's/^[[:space:]]*DLL Name: //p' | tr -d '\r')
    done < <(find "$dir" -type f \( -iname '*.exe' -o -iname '*.dll' \) -print0 | sort -z)
done

if [ "$checked" -eq 0 ]; then
    echo "FAIL no .exe or .dll found in: $*"
    exit 1
fi
if [ "$bad" -ne 0 ]; then
    echo "$bad forbidden import(s) in $checked artifact(s)"
    exit 1
fi
echo "OK: $checked artifact(s) import only Windows DLLs and our own"
