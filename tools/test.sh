#!/usr/bin/env bash
# Builds the presets and runs every test: the host preset natively under ASan and UBSan
# (unit tests and short fuzz runs), the tsan preset (the hash table and lock tests under
# ThreadSanitizer, two small executables), the windows preset under Wine (unit, integration
# and end-to-end msiexec scenarios).
set -euo pipefail
cd "$(dirname "$0")/.."

tools/setup.sh

jobs=$(nproc)
status=0
for preset in host tsan windows; do
  echo "== $preset: configure and build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "== $preset: test"
  ctest --preset "$preset" -j "$jobs" || status=1
done
exit $status
