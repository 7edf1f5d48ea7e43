#!/usr/bin/env bash
# Builds the benchmarks, runs them next to their floors and peers, and prints the figures with their ratios.
# On a machine that does nothing else; the stores are made below TMPDIR, which must be on a real disk.
set -euo pipefail
cd "$(dirname "$0")/.."

./install-packages.sh
cmake --preset release >/dev/null
cmake --build --preset release >/dev/null
bin=build/release/bin
results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT

# Interleaved repetitions, so that a slow moment of the machine falls on all of them alike.
options=(--benchmark_enable_random_interleaving=true --benchmark_repetitions=9 --benchmark_min_time=0.2
    --benchmark_report_aggregates_only=false --benchmark_out_format=json)
"$bin/bag_bench" "${options[@]}" --benchmark_out="$results/bag.json" >/dev/null 2>&1
"$bin/instance_bench" "${options[@]}" --benchmark_out="$results/instance.json" >/dev/null 2>&1
"$bin/value_bench" "${options[@]}" --benchmark_out="$results/value.json" >/dev/null 2>&1
python3 bench/report.py "$results/bag.json" "$results/instance.json" "$results/value.json"
echo
echo "whole classes:"
python3 bench/enumeration.py "$bin" docs/enumeration.svg
echo
echo "events:"
python3 bench/events.py "$bin"
echo
echo "schemas:"
python3 bench/schema.py "$bin"
echo
echo "the tool:"
python3 bench/tool.py "$bin"

# System calls of one operation: the difference between many and few, divided.
count_calls() {
    strace -f -c -o "$results/calls" "$bin/one_operation" "$1" "$2" >/dev/null 2>&1
    awk '/total$/ { print $4 }' "$results/calls" | tail -n 1
}
echo
echo "system calls an operation:"
for operation in bag get put; do
    few=$(count_calls "$operation" 100)
    many=$(count_calls "$operation" 600)
    awk -v name="$operation" -v few="$few" -v many="$many" \
        'BEGIN { printf "  %-4s %.2f\n", name, (many - few) / 500 }'
done
