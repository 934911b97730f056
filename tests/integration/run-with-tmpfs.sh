#!/usr/bin/env bash
# Runs a Windows test program under Wine with a 1 MiB tmpfs as its destination disk:
#   run-with-tmpfs.sh <wine-run.sh> <program.exe> [arguments...]
# The tmpfs is mounted under /tmp and handed over as NWX_DISKFULL_DIR (its Z:\ path).
# Exits 77 (a skip for ctest) when no tmpfs can be mounted here.
set -u
runner=$1
shift
mountpoint=$(mktemp -d /tmp/nwx-diskfull.XXXXXX)
if ! mount -t tmpfs -o size=1m tmpfs "$mountpoint" 2>/tmp/nwx-diskfull-mount.err; then
  echo "SKIP: cannot mount a tmpfs at $mountpoint: $(cat /tmp/nwx-diskfull-mount.err)"
  rmdir "$mountpoint"
  exit 77
fi
cleanup() {
  umount "$mountpoint" 2>/dev/null || umount -l "$mountpoint" 2>/dev/null
  rmdir "$mountpoint" 2>/dev/null
}
trap cleanup EXIT
export NWX_DISKFULL_DIR="Z:${mountpoint//\//\\}"
"$runner" "$@"
