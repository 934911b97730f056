#!/usr/bin/env bash
# Runs each libFuzzer target of a native build for a while and keeps what it learns.
# Usage: scripts/run-fuzzers.sh [native build dir] [fuzzer...]   (default: build/native, all)
#
#   FUZZ_SECONDS=600   time per fuzzer
#   FUZZ_JOBS=1        fuzzers run side by side (each uses one core)
#   FUZZ_TIMEOUT=30    seconds one input may take before it counts as a finding
#   FUZZ_MINIMIZE=1    afterwards rewrite each kept corpus as the smallest set with the same
#                      coverage (the hand-made seed-* inputs stay)
#   FUZZ_FLAGS=...     more libFuzzer flags, e.g. FUZZ_FLAGS=-only_ascii=1
#
# Two corpora per fuzzer. The working corpus, <build>/fuzz-runs/<name>/corpus/, keeps every
# input that libFuzzer found interesting, across runs. The kept corpus, fuzz/corpus/<name>/
# (under version control, replayed by ctest), only grows by the inputs that reach code none of
# its inputs reaches, so that it stays small; nothing is ever removed from it unless asked
# (FUZZ_MINIMIZE), so a reproducer put there stays. fuzz/dict/<name>.dict is used when present.
# Crash, leak, timeout and out-of-memory reproducers are written to fuzz/artifacts/<name>/ (not
# under version control). Prints one summary line per fuzzer at the end (also written to
# <build>/fuzz-runs/summary.txt) and exits 1 when any fuzzer found something or could not run.
set -u
here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-build/native}
shift $(($# > 0 ? 1 : 0))
seconds=${FUZZ_SECONDS:-600}
jobs=${FUZZ_JOBS:-1}
timeout=${FUZZ_TIMEOUT:-30}
minimize=${FUZZ_MINIMIZE:-0}
read -r -a extra_flags <<<"${FUZZ_FLAGS:-}"

list="$build/fuzzers.txt"
if [ ! -s "$list" ]; then
  echo "run-fuzzers: no $list (configure the native preset: cmake --preset native)" >&2
  exit 1
fi
runs="$build/fuzz-runs"
mkdir -p "$runs"

# "<name> <path>" lines of the chosen fuzzers, in the build's order.
selected=()
while read -r name path; do
  if [ $# -eq 0 ] || [[ " $* " == *" $name "* ]]; then
    selected+=("$name $path")
  fi
done <"$list"
if [ ${#selected[@]} -eq 0 ]; then
  echo "run-fuzzers: none of '$*' is in $list" >&2
  exit 1
fi

files_in() { find "$1" -maxdepth 1 -type f | wc -l; }
kib_in() { find "$1" -maxdepth 1 -type f -printf '%s\n' | awk '{ n += $1 } END { printf "%d", (n + 1023) / 1024 }'; }
# The value after "<key>" in the run's log: the last progress line for cov/ft, the final
# statistics for the rest; "?" when the run did not get that far.
stat_of() {
  local value
  case $1 in
    cov: | ft:) value=$(grep -E '^#[0-9]+' "$2" | tail -n 1 | grep -oE "$1 [0-9]+" | cut -d' ' -f2) ;;
    *) value=$(grep -E "^stat::$1:" "$2" | tail -n 1 | grep -oE '[0-9]+$') ;;
  esac
  echo "${value:-?}"
}

run_one() {
  local name=$1 binary=$2
  local corpus="$here/fuzz/corpus/$name"
  local artifacts="$here/fuzz/artifacts/$name"
  local work="$runs/$name"
  rm -rf "$work/minimal" "$work"/*.log "$work/summary"
  mkdir -p "$work/corpus" "$corpus" "$artifacts"
  local dict=()
  [ -f "$here/fuzz/dict/$name.dict" ] && dict=("-dict=$here/fuzz/dict/$name.dict")
  local files_before kib_before
  files_before=$(files_in "$corpus")
  kib_before=$(kib_in "$corpus")
  touch "$work/started"

  # New inputs go to the first directory, so the kept corpus is only read while fuzzing.
  local started status
  started=$(date +%s)
  "$binary" -max_total_time="$seconds" -timeout="$timeout" -rss_limit_mb=1024 \
    -print_final_stats=1 -artifact_prefix="$artifacts/" "${dict[@]}" "${extra_flags[@]}" \
    "$work/corpus" "$corpus" >"$work/fuzz.log" 2>&1
  status=$?
  local elapsed=$(($(date +%s) - started))

  # -merge=1 keeps every input already in the first directory and adds those of the others
  # that reach something new; -use_counters=0 makes "new" mean an edge not reached before
  # rather than an edge taken more often. It runs the inputs in child processes, so one bad
  # input cannot lose the merge.
  local merge_status
  if [ "$minimize" = 1 ]; then
    mkdir -p "$work/minimal"
    find "$corpus" -maxdepth 1 -type f -name 'seed-*' -exec cp {} "$work/minimal"/ \;
    "$binary" -merge=1 -use_counters=0 -timeout="$timeout" -rss_limit_mb=1024 \
      "${extra_flags[@]}" "$work/minimal" "$corpus" "$work/corpus" >"$work/merge.log" 2>&1
    merge_status=$?
    if [ $merge_status -eq 0 ] && [ "$(files_in "$work/minimal")" -gt 0 ]; then
      find "$corpus" -maxdepth 1 -type f -delete
      cp "$work/minimal"/* "$corpus"/
    fi
  else
    "$binary" -merge=1 -use_counters=0 -timeout="$timeout" -rss_limit_mb=1024 \
      "${extra_flags[@]}" "$corpus" "$work/corpus" >"$work/merge.log" 2>&1
    merge_status=$?
  fi

  local findings=()
  local artifact
  while IFS= read -r artifact; do
    findings+=("${artifact#"$here"/}")
  done < <(find "$artifacts" -type f -newer "$work/started" | sort)
  if [ $status -ne 0 ] && [ ${#findings[@]} -eq 0 ]; then
    findings+=("fuzzer exit status $status, see ${work#"$here"/}/fuzz.log")
  fi
  if [ $merge_status -ne 0 ]; then
    findings+=("merge exit status $merge_status, see ${work#"$here"/}/merge.log")
  fi

  local finding_text="none"
  [ ${#findings[@]} -gt 0 ] && finding_text="${#findings[@]}: ${findings[*]}"
  printf '%-24s %6s %11s %8s %6s %7s %6s %15s   %s\n' "$name" "${elapsed}s" \
    "$(stat_of number_of_executed_units "$work/fuzz.log")" \
    "$(stat_of average_exec_per_sec "$work/fuzz.log")" \
    "$(stat_of cov: "$work/fuzz.log")" "$(stat_of ft: "$work/fuzz.log")" \
    "$(stat_of new_units_added "$work/fuzz.log")" \
    "${files_before}->$(files_in "$corpus") (${kib_before}->$(kib_in "$corpus") KiB)" \
    "$finding_text" >"$work/summary"
  [ ${#findings[@]} -eq 0 ]
}

echo "run-fuzzers: ${#selected[@]} fuzzer(s), ${seconds}s each, $jobs at a time"
for entry in "${selected[@]}"; do
  read -r name binary <<<"$entry"
  if [ ! -x "$binary" ]; then
    echo "run-fuzzers: $binary is not built (cmake --build --preset native --target fuzzers)" >&2
    exit 1
  fi
  while [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; do
    wait -n
  done
  echo "run-fuzzers: $name ($(date +%H:%M:%S))"
  run_one "$name" "$binary" &
done
wait

{
  printf '%-24s %6s %11s %8s %6s %7s %6s %15s   %s\n' fuzzer time execs exec/s cov ft new \
    "corpus files (size)" findings
  for entry in "${selected[@]}"; do
    read -r name _ <<<"$entry"
    cat "$runs/$name/summary" 2>/dev/null || echo "$name: no summary (see $runs/$name)"
  done
} | tee "$runs/summary.txt"

if grep -qvE '   none$' <(tail -n +2 "$runs/summary.txt"); then
  echo "run-fuzzers: findings above; reproducers are in fuzz/artifacts/<fuzzer>/" >&2
  exit 1
fi
exit 0
