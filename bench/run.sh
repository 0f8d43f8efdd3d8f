#!/usr/bin/env bash
# Builds the `bench` preset (Release, no sanitizers) and runs the formatting benchmark, then
# prints, for each case, each formatter's time per call and Str_Snprintf's time over that of
# glibc snprintf, stb_sprintf and {fmt} (below 1.0: we are faster). Within a repetition the
# four formatters run in alternating blocks of calls, so a ratio compares times from the
# same stretch of a machine whose speed wanders; what is printed is the median over the
# repetitions of each time and each ratio.
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
names = ("Str_Snprintf", "glibc", "stb", "fmt")
rows = []
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("aggregate_name") == "median":
        rows.append((b["family_index"], b["run_name"], b))
print(f"median of {sys.argv[2]} repetitions; time per call in ns, ratios taken within each repetition")
print(f"{'case':<18}" + "".join(f"{n:>14}" for n in names)
      + "".join(f"{'ours/' + n:>12}" for n in names[1:]))
worst = {n: 0.0 for n in names[1:]}
for _, case, b in sorted(rows):
    cells = "".join(f"{b[n]:>14.1f}" for n in names)
    ratios = ""
    for n in names[1:]:
        r = b["ours/" + n]
        worst[n] = max(worst[n], r)
        ratios += f"{r:>12.2f}"
    print(f"{case:<18}{cells}{ratios}")
print(f"{'worst':<18}" + " " * 14 * len(names) + "".join(f"{worst[n]:>12.2f}" for n in names[1:]))
PY
