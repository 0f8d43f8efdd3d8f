#!/usr/bin/env bash
# Migrates a generated tree of 10,000 keys and 50,000 values with MigrateVantoraSvc under
# Wine and, in the same run, copies it with `reg copy /s /f`; prints both times and the ratio.
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD
tools/setup.sh
cmake --preset windows >/dev/null
cmake --build --preset windows --target svc_migration_bench >/dev/null
prefix=$root/build/windows/bench-prefix
win() { echo "Z:$(echo "$1" | tr / '\\')"; }
tools/wine-run "$prefix" --start
status=0
tools/wine-run "$prefix" build/windows/bench/migration/svc_migration_bench.exe \
  "$(win "$root/build/windows/migration/vtrMigrUtils.dll")" \
  "$(win "$root/build/windows/packaging/vtrMigrUtils.msi")" 'C:\vtr-bench' "$@" || status=$?
tools/wine-run "$prefix" --stop
exit $status
