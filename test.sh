#!/bin/bash
# Builds a preset and runs all its tests, or checks what goes to a vendor tree; installs what is
# missing first.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. tools/setup.sh

usage="usage: ./test.sh [dev|release|asan|tsan]    (default: dev)
       ./test.sh fuzz [SECONDS]             (default: 20 for each target)
       ./test.sh device [--write]           (--write makes anew what it makes)"
preset=${1:-dev}
second='^$'
case $preset in
    dev | release) packages=("${build_packages[@]}") ;;
    asan | tsan) packages=("${build_packages[@]}" "${sanitizer_packages[@]}") ;;
    fuzz) packages=("${build_packages[@]}" "${sanitizer_packages[@]}"); second='^[0-9]*$' ;;
    device) packages=("${build_packages[@]}" "${device_packages[@]}"); second='^(--write)?$' ;;
    -h | --help) echo "$usage"; exit 0 ;;
    *) echo "$usage" >&2; exit 2 ;;
esac
[[ $# -le 2 && ${2:-} =~ $second ]] || { echo "$usage" >&2; exit 2; }

install_packages "${packages[@]}"
if [[ $preset == fuzz ]]; then
    build asan fuzz
    printf '%s\n' frames parcels plugin at text |
        xargs -P 2 -n 1 tests/fuzz/run.sh build/asan "${2:-20}"
    exit
fi
if [[ $preset == device ]]; then
    build dev ox-modem
    exec python3 tools/device/check.py "${@:2}"
fi
build "$preset"

# The thread sanitizer's shadow memory does not go with every address randomisation.
run=()
if [[ $preset == tsan ]] && setarch -R true 2>/dev/null; then
    run=(setarch -R)
fi
"${run[@]}" ctest --preset "$preset" -j "$(nproc)"
