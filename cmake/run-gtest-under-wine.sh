#!/usr/bin/env bash
# Runs a GoogleTest program under Wine (wine-run.sh) and passes only when it exits 0 and
# GoogleTest printed its summary. Under Wine a test program whose stack was overwritten has been
# seen to end in the middle of a test with exit code 0; the summary is what proves it finished.
set -u
output=$(mktemp)
trap 'rm -f "$output"' EXIT
"$(dirname "$0")/wine-run.sh" "$@" 2>&1 | tee "$output"
status=${PIPESTATUS[0]}
if [ "$status" -ne 0 ]; then
  exit "$status"
fi
if ! grep -q '^\[  PASSED  \] [0-9]* test' "$output"; then
  echo "run-gtest-under-wine: $1 ended without GoogleTest's summary" >&2
  exit 1
fi
