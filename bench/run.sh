#!/bin/bash
# Builds the benchmarks and measures times (options are Google Benchmark's), or counts instructions.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. tools/setup.sh
install_packages "${build_packages[@]}" >&2
build release ox-modem-bench >&2
if [[ ${1-} == count ]]; then
    install_packages "${count_packages[@]}" >&2
    exec python3 bench/count.py "${@:2}"
fi
exec build/release/bin/ox-modem-bench "$@"
