#!/usr/bin/env bash
# Builds the `bench` preset (Release, no sanitizers) and runs the formatting benchmark, then
# prints Str_Snprintf's time over glibc snprintf's for each case (below 1.0: we are faster).
# Extra arguments go to the benchmark binary, e.g. --benchmark_filter=double.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset bench >/dev/null
cmake --build build/bench --target vtr_bench -j "$(nproc)"

json=build/bench/bench-results.json
build/bench/bench/vtr_bench --benchmark_out="$json" --benchmark_out_format=json \
  --benchmark_repetitions=3 --benchmark_report_aggregates_only=true "$@"

python3 - "$json" <<'PY'
import json, sys
rows = {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("aggregate_name", "median") != "median":
        continue
    case, _, formatter = b["run_name"].rpartition("/")
    rows.setdefault(case, {})[formatter] = b["cpu_time"]
names = ("Str_Snprintf", "glibc", "stb", "fmt")
print()
print(f"{'case':<18}" + "".join(f"{n + ' ns':>16}" for n in names) + f"{'ours/glibc':>12}")
for case, t in rows.items():
    cells = "".join(f"{t[n]:>16.1f}" if n in t else f"{'-':>16}" for n in names)
    ratio = t["Str_Snprintf"] / t["glibc"] if "Str_Snprintf" in t and "glibc" in t else float("nan")
    print(f"{case:<18}{cells}{ratio:>12.2f}")
PY
