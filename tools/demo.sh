#!/usr/bin/env bash
# The main job: builds the DLL and the demo package, seeds a fresh Wine prefix with the old
# vendor's installation, installs the package with Wine's msiexec (the whole sequence: the
# document comes out of the Binary table, its macros are resolved against the installer's
# properties, SERVERURL given on the command line) and prints what the migration did: the
# custom actions' results, the macro section before and after, MigrVantora.log and the keys.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

tools/setup.sh
cmake --preset windows >/dev/null
cmake --build --preset windows --target vtrMigrUtils base_package vtrdemo >/dev/null

prefix=$root/build/windows/demo-prefix
rm -rf "$prefix" "$prefix.lock"
echo "== Creating a fresh Wine prefix in $prefix"
tools/wine-run "$prefix" --start

work_unix=$prefix/drive_c/vtr-demo
mkdir -p "$work_unix"
cp packaging/vtrMigrateConf.xml "$work_unix/sample.xml"

trace=$root/build/windows/demo-wine-stderr.log
: > "$trace"
status=0
VTR_WINE_STDERR=$trace tools/wine-run "$prefix" build/windows/tools/win/vtrdemo.exe \
  "Z:$(echo "$root/build/windows/packaging/vtrMigrUtils.msi" | tr / '\\')" 'C:\vtr-demo' || status=$?
tools/wine-run "$prefix" --stop
exit $status
