#!/usr/bin/env bash
# The main job end to end, as an administrator runs it, against the simulated NetWorker:
# install it, seed an Exchange backup, list it, restore one storage group in process, through
# the helper program, and through four helper sessions side by side (--jobs 4), verify every
# restored byte, report. Usage: scripts/demo.sh BUILD
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-build}" && pwd)
bin=$build/bin
run="$root/cmake/wine-run.sh"
demo=$build/demo
server=demo-backup
client=EXCH01
group="/Second Storage Group"
db_size=$((300 * 1024 * 1024))

# Windows path of a Linux path (Wine's drive Z: is the Linux root).
winpath() { printf 'Z:%s' "${1//\//\\}"; }

for exe in nwexch.exe NetWorker64BitClient.exe nwsim-admin.exe; do
  [ -f "$bin/$exe" ] || { echo "demo: $bin/$exe is missing; run 'make build' first" >&2; exit 1; }
done

rm -rf "$demo"
mkdir -p "$demo"
store=$(winpath "$demo/store")

echo "== Installing the simulated NetWorker client and registering the \"nsrexecd\" service"
"$run" "$bin/nwsim-admin.exe" install --dir "$(winpath "$demo/networker")" --root "$store"

echo "== Seeding an Exchange backup of client $client on server $server"
"$run" "$bin/nwsim-admin.exe" seed-exchange --server "$server" --client "$client" \
  --db-size "$db_size" --root "$store"

echo "== nwexch list"
"$run" "$bin/nwexch.exe" list --server "$server" --client "$client"

failures=0
report=()
# label, mode, further options
runs=("in-process in-process" "helper helper" "helper-jobs4 helper --jobs 4")
for entry in "${runs[@]}"; do
  read -r label mode extra <<<"$entry"
  out=$demo/restored-$label
  echo "== nwexch restore --match \"$group/*\" --mode $mode${extra:+ $extra}"
  start=$(date +%s%N)
  status=0
  # shellcheck disable=SC2086 # $extra is options, split on purpose
  "$run" "$bin/nwexch.exe" restore --server "$server" --client "$client" --mode "$mode" \
    $extra --match "$group/*" --to "$(winpath "$out")" || status=$?
  end=$(date +%s%N)
  if [ "$status" -ne 0 ]; then
    echo "demo: restore $label ended with exit code $status" >&2
    failures=$((failures + 1))
  fi

  files=0 bytes=0 verified=0
  while IFS= read -r -d '' file; do
    relative=${file#"$out"}
    files=$((files + 1))
    bytes=$((bytes + $(stat -c %s "$file")))
    if "$run" "$bin/nwsim-admin.exe" verify --server "$server" --client "$client" \
         --object "$relative" --file "$(winpath "$file")" --root "$store" >/dev/null; then
      verified=$((verified + 1))
    else
      echo "demo: $file does not match the backup" >&2
      failures=$((failures + 1))
    fi
  done < <(find "$out" -type f -print0 2>/dev/null)
  if [ "$files" -eq 0 ]; then
    echo "demo: nothing was restored by $label" >&2
    failures=$((failures + 1))
  fi
  ms=$(((end - start) / 1000000))
  rate=$(awk -v b="$bytes" -v ms="$ms" 'BEGIN { printf "%.1f", (ms > 0 ? b / 1000000 / (ms / 1000) : 0) }')
  report+=("$(printf '%-12s  %2d files  %10d bytes  %6.1f s  %7s MB/s  %d of %d verified' \
    "$label" "$files" "$bytes" "$(awk -v ms="$ms" 'BEGIN { print ms / 1000 }')" "$rate" \
    "$verified" "$files")")
done

echo
echo "== Report (MB/s over the whole nwexch run, start-up included)"
printf '%s\n' "${report[@]}"
if [ "$failures" -ne 0 ]; then
  echo "demo: FAILED ($failures problems)" >&2
  exit 1
fi
echo "demo: every restored file matches the backup"
