#!/usr/bin/env bash
# Runs nwexch_cli_tests under Wine in a prefix of its own (the tests register and delete the
# "nsrexecd" service, which must not disturb other tests), with a 1 MiB tmpfs for the
# disk-full test when mounting is possible. Usage: run-cli-tests.sh WINE_RUN TEST_EXE WORK_DIR
set -euo pipefail
wine_run=$1
test_exe=$2
work=$3

winpath() { printf 'Z:%s' "${1//\//\\}"; }

mkdir -p "$work"
export WINEPREFIX=$work/wineprefix
rm -rf "$work/run"
mkdir -p "$work/run"
export NWEXCH_TEST_WORK
NWEXCH_TEST_WORK=$(winpath "$work/run")

tiny=$work/tiny
mkdir -p "$tiny"
mountpoint -q "$tiny" && umount "$tiny" || true
if [ "$(id -u)" -ne 0 ]; then
  export NWEXCH_TEST_TINY_SKIP="mounting a 1 MiB tmpfs needs root"
elif mount -t tmpfs -o size=1m nwexch-tiny "$tiny" 2>/dev/null; then
  trap 'umount "$tiny" 2>/dev/null || true' EXIT
  export NWEXCH_TEST_TINY
  NWEXCH_TEST_TINY=$(winpath "$tiny")
else
  export NWEXCH_TEST_TINY_SKIP="mount -t tmpfs failed (no privilege in this container?)"
fi
"$wine_run" "$test_exe" "${@:4}"
