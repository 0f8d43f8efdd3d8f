#!/usr/bin/env bash
# Builds the `bench` preset (Release, no sanitizers) and runs the formatting benchmark, then
# prints, for each case, Str_Snprintf's time over that of glibc snprintf, stb_sprintf and
# {fmt} (below 1.0: we are faster). Each time is the median of the repetitions; the
# repetitions of all rows are interleaved in one process, so a load that comes and goes on a
# shared machine falls on every formatter alike and the ratios hold.
# Extra arguments go to the benchmark binary, e.g. --benchmark_filter=double.
set -euo pipefail
cd "$(dirname "$0")/.."

repetitions=${VTR_BENCH_REPETITIONS:-15}

cmake --preset bench >/dev/null
cmake --build build/bench --target vtr_bench -j 2

json=build/bench/bench-results.json
build/bench/bench/vtr_bench --benchmark_out="$json" --benchmark_out_format=json \
  --benchmark_repetitions="$repetitions" --benchmark_enable_random_interleaving=true \
  --benchmark_min_time=0.05 --benchmark_report_aggregates_only=true "$@" >/dev/null

python3 - "$json" "$repetitions" <<'PY'
import json, sys
rows = {}
order = {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("aggregate_name", "median") != "median":
        continue
    case, _, formatter = b["run_name"].rpartition("/")
    rows.setdefault(case, {})[formatter] = b["cpu_time"]
    order[case] = min(order.get(case, b["family_index"]), b["family_index"])
names = ("Str_Snprintf", "glibc", "stb", "fmt")
print(f"median of {sys.argv[2]} repetitions, cpu time in ns")
print(f"{'case':<18}" + "".join(f"{n:>14}" for n in names)
      + "".join(f"{'ours/' + n:>12}" for n in names[1:]))
worst = {n: 0.0 for n in names[1:]}
for case, t in sorted(rows.items(), key=lambda item: order[item[0]]):
    cells = "".join(f"{t[n]:>14.1f}" if n in t else f"{'-':>14}" for n in names)
    ratios = ""
    for n in names[1:]:
        if "Str_Snprintf" in t and n in t:
            r = t["Str_Snprintf"] / t[n]
            worst[n] = max(worst[n], r)
            ratios += f"{r:>12.2f}"
        else:
            ratios += f"{'-':>12}"
    print(f"{case:<18}{cells}{ratios}")
print(f"{'worst':<18}" + " " * 14 * len(names) + "".join(f"{worst[n]:>12.2f}" for n in names[1:]))
PY
