#!/usr/bin/env bash
# Runs a Windows program under Wine in the build tree's own prefix.
# WINEPREFIX may be set by the caller; otherwise the prefix lives beside the binaries (build/wineprefix).
set -eu
program=$1
shift
if [ -z "${WINEPREFIX:-}" ]; then
  bindir=$(cd "$(dirname "$program")" && pwd)
  WINEPREFIX=$(cd "$bindir/.." && pwd)/wineprefix
fi
export WINEPREFIX
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  mkdir -p "$WINEPREFIX"
  (
    flock 9
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
      wineboot -i >/dev/null 2>&1 || true
      wineserver -w || true
    fi
  ) 9>"$WINEPREFIX.lock"
fi
exec wine "$program" "$@"
