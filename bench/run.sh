#!/bin/bash
# Builds the benchmarks, runs them all and prints their figures beside those of their baselines.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. tools/setup.sh

case $* in
    "" | --json) ;;
    -h | --help) echo "usage: bench/run.sh [--json]"; exit 0 ;;
    *) echo "usage: bench/run.sh [--json]" >&2; exit 2 ;;
esac
{
    install_packages "${build_packages[@]}"
    build release ox-modem-bench
    echo "Measuring, for about half a minute"
} >&2

# Several short runs in random order, so that a disturbance meets both sides of a ratio.
measure() {
    "$@" --benchmark_min_time=0.15 --benchmark_repetitions=9 --benchmark_format=json \
        --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true
}
results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT
export TMPDIR=$results
bench=build/release/bin/ox-modem-bench
processor=$(taskset -cp $$ | grep -o '[0-9]*$')
measure taskset -c "$processor" "$bench" >"$results/pinned"
measure "$bench" --benchmark_filter=roundTrips >"$results/free"
python3 bench/table.py "$results/pinned" "$results/free" "$@"
