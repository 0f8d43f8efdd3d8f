#!/usr/bin/env bash
# Counts the wineserver requests that MigrateVantoraSvc and `reg copy /s /f` make per key:
# both run on a tree of 12 keys and on one of 22, under a wineserver that traces every
# request, and the difference between the two runs, divided by 10, is printed by request.
#
#   bench/migration/requests.sh [DLL]     (default: the current build's DLL)
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD
dll=${1:-$root/build/windows/migration/vtrMigrUtils.dll}
cmake --preset windows >/dev/null
cmake --build --preset windows --target svc_migration_bench >/dev/null

prefix=$root/build/windows/bench-prefix
work=$root/build/windows/bench-requests
mkdir -p "$work"
win() { echo "Z:$(echo "$1" | tr / '\\')"; }
export WINEPREFIX=$prefix WINEARCH=win64 WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
unset DISPLAY WAYLAND_DISPLAY
wineserver=/usr/lib/wine/wineserver64
[ -x "$wineserver" ] || wineserver=$(command -v wineserver)

for leaves in 9 19; do
  tools/wine-run "$prefix" --stop
  tools/wine-run "$prefix" --start
  tools/wine-run "$prefix" --stop
  "$wineserver" -f -d1 2>"$work/trace-$leaves" &
  server=$!
  tools/wine-run "$prefix" build/windows/bench/migration/svc_migration_bench.exe "$(win "$dll")" \
    "$(win "$root/build/windows/packaging/vtrMigrUtils.msi")" 'C:\vtr-bench' time 1 1 "$leaves" 5 1 >/dev/null
  "$wineserver" -k
  wait "$server" || true
done

# Requests of the migrating thread between the benchmark's two marker opens, and every
# request of the thread that creates reg copy's destination.
count() {
  if [ "$1" = migration ]; then
    awk '/VtrBenchMigrationBegins/ { thread = $1; on = 1; next } /VtrBenchMigrationEnds/ { on = 0 }
         on && $1 == thread && $2 ~ /\($/ { n[$2]++ } END { for (r in n) print r, n[r] }' "$2"
  else
    thread=$(grep -m1 'create_key(.*BenchRegCopy' "$2" | cut -d' ' -f1)
    awk -v thread="$thread" '$1 == thread && $2 ~ /\($/ { n[$2]++ } END { for (r in n) print r, n[r] }' "$2"
  fi
}
for who in migration reg; do
  echo "== $who: requests per key"
  join -a1 -a2 -e0 -o 0,1.2,2.2 <(count $who "$work/trace-9" | sort) <(count $who "$work/trace-19" | sort) |
    awk '{ d = ($3 - $2) / 10; if (d) { printf "  %-24s %5.1f\n", substr($1, 1, length($1) - 1), d; t += d } }
         END { printf "  %-24s %5.1f\n", "total", t }'
done
