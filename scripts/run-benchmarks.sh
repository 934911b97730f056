#!/usr/bin/env bash
# Runs every bench_*.exe of a Windows build under Wine (cmake/wine-run.sh, the build's own
# prefix) and prints what each one prints. Usage: scripts/run-benchmarks.sh [build dir]
set -u
build=${1:-build}
here=$(cd "$(dirname "$0")/.." && pwd)
bindir="$build/bin"
shopt -s nullglob
benches=("$bindir"/bench_*.exe)
if [ ${#benches[@]} -eq 0 ]; then
  echo "run-benchmarks: no bench_*.exe in $bindir (build the 'bench' target first)" >&2
  exit 1
fi
status=0
for bench in "${benches[@]}"; do
  if ! "$here/cmake/wine-run.sh" "$bench"; then
    echo "run-benchmarks: $(basename "$bench") failed" >&2
    status=1
  fi
done
exit $status
