#!/usr/bin/env bash
# MigrateVantoraSvc under Wine against `reg copy /s /f`, after making sure it still does what
# a baseline build does.
#
#   bench/migration/run.sh [--baseline REV] [--repeat N] [--seed N] [TOP MIDDLE LEAVES VALUES]
#
# 1. Equivalence: builds the DLL of REV (default: the merge-base with main) once, into
#    build/bench-baseline/, then migrates the same seeded tree with that DLL and with the
#    current one and compares the results: the action's code, the log without timestamps and
#    ids, and every key with its descriptor and values, byte for byte. Any difference fails
#    the script, before anything is timed.
# 2. Speed: migrates a generated tree and copies it with `reg copy /s /f`, N times in turns
#    (default 5), and prints each pair's ratio and their median. Without a shape, a tree of
#    10,011 keys and one of 50,051 keys, five values each.
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD

baseline=""
repeat=5
seed=1
while [ $# -gt 0 ]; do
  case "$1" in
    --baseline) baseline=$2; shift 2 ;;
    --repeat) repeat=$2; shift 2 ;;
    --seed) seed=$2; shift 2 ;;
    *) break ;;
  esac
done
shapes=("10 10 99 5" "50 10 99 5")
[ $# -eq 4 ] && shapes=("$*")
[ $# -eq 0 ] || [ $# -eq 4 ] || { echo "usage: $0 [--baseline REV] [--repeat N] [--seed N] [TOP MIDDLE LEAVES VALUES]" >&2; exit 2; }

tools/setup.sh
cmake --preset windows >/dev/null
cmake --build --preset windows --target svc_migration_bench >/dev/null

revision=$(git rev-parse --short=12 "${baseline:-$(git merge-base main HEAD)}^{commit}")
base_dir=$root/build/bench-baseline/$revision
base_dll=$base_dir/src/build/windows/migration/vtrMigrUtils.dll
if [ ! -f "$base_dll" ]; then
  echo "building the baseline DLL of $revision (kept in $base_dir)"
  rm -rf "$base_dir"
  mkdir -p "$base_dir/src"
  git archive "$revision" | tar -x -C "$base_dir/src"
  (cd "$base_dir/src" && cmake --preset windows >/dev/null &&
     cmake --build --preset windows --target vtrMigrUtils >"$base_dir/build.log") ||
    { echo "the baseline doesn't build; see $base_dir/build.log" >&2; exit 1; }
fi

prefix=$root/build/windows/bench-prefix
win() { echo "Z:$(echo "$1" | tr / '\\')"; }
bench() {
  tools/wine-run "$prefix" build/windows/bench/migration/svc_migration_bench.exe "$(win "$1")" \
    "$(win "$root/build/windows/packaging/vtrMigrUtils.msi")" 'C:\vtr-bench' "${@:2}"
}
current_dll=$root/build/windows/migration/vtrMigrUtils.dll
out=$root/build/windows/bench-equivalence
mkdir -p "$out"
tools/wine-run "$prefix" --start
trap 'tools/wine-run "$prefix" --stop' EXIT
# The prefix's wineserver works in a directory named after the prefix's device and inode;
# its CPU time, read by the benchmark, is the server's half of every request.
server_dir=$(printf 'server-%x-%x' $(stat -c '%d %i' "$(realpath "$prefix")"))
for pid in $(pgrep wineserver || true); do
  if [[ "$(readlink "/proc/$pid/cwd" || true)" == */"$server_dir" ]]; then
    export VTR_WINESERVER_STAT="Z:\\proc\\$pid\\stat" VTR_CLOCK_TICKS=$(getconf CLK_TCK)
  fi
done

echo "== equivalence with $revision, seed $seed"
bench "$base_dll" dump "$(win "$out/baseline.txt")" "$seed"
bench "$current_dll" dump "$(win "$out/current.txt")" "$seed"
if ! cmp -s "$out/baseline.txt" "$out/current.txt"; then
  echo "the current build behaves differently from $revision:"
  diff "$out/baseline.txt" "$out/current.txt" | head -40
  exit 1
fi
echo "same result, log, keys, descriptors and values ($(grep -c '^key ' "$out/current.txt") keys, $(grep -c '^  value ' "$out/current.txt") values, $(sed -n '/^--- log/,/^--- registry/p' "$out/current.txt" | wc -l) log lines)"

status=0
for shape in "${shapes[@]}"; do
  echo "== speed, shape $shape"
  # shellcheck disable=SC2086
  bench "$current_dll" time $shape "$repeat" || status=$?
done
exit $status
