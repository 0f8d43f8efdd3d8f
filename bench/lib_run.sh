#!/usr/bin/env bash
# Builds the `bench` preset (Release, no sanitizers) and runs the support library's
# benchmarks, then prints, from the median of the repetitions, our time over the other's for
# each row (below 1.0: we are faster): the built-in UTF-8/UTF-16 conversions over ICU's
# ucnv_convertEx, and HashTable over std::unordered_map. Extra arguments go to the binary.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset bench >/dev/null
cmake --build build/bench --target vtr_lib_bench -j 2

json=build/bench/lib-bench-results.json
build/bench/bench/vtr_lib_bench --benchmark_out="$json" --benchmark_out_format=json \
  --benchmark_repetitions=5 --benchmark_report_aggregates_only=true "$@" >/dev/null

python3 - "$json" <<'PY'
import json, sys
rows = {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("aggregate_name") != "median":
        continue
    case, _, who = b["run_name"].rpartition("/")
    rows.setdefault(case, {})[who] = b["cpu_time"]
print(f"{'case':<28}{'ours':>14}{'theirs':>14}{'ours/theirs':>13}   (median cpu time, {'ns'})")
for case, t in rows.items():
    ours = t.get("builtin", t.get("HashTable"))
    theirs = t.get("icu", t.get("unordered_map"))
    print(f"{case:<28}{ours:>14.0f}{theirs:>14.0f}{ours / theirs:>13.2f}")
PY
