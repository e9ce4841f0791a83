#!/bin/bash
# Runs one fuzz target: run.sh BUILD SECONDS NAME. What it learns stays in BUILD/corpus/NAME.
set -euo pipefail
build=$(cd "$1" && pwd) seconds=$2 name=$3
kept=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/corpus/$name
mkdir -p "$build/corpus/$name" "$build/crashes"
log=$build/fuzz-$name.log
leaks=1
# Targets with threads: what those hold for a moment looks like a leak; looked for at the end alone.
[[ $name == frames || $name == text ]] && leaks=0
if "$build/bin/fuzz-$name" -max_total_time="$seconds" -timeout=30 -rss_limit_mb=2048 \
    -max_len=4096 -detect_leaks=$leaks -artifact_prefix="$build/crashes/$name-" "$build/corpus/$name" "$kept" \
    >"$log" 2>&1; then
    echo "fuzz $name: $(grep '^Done' "$log")"
    exit 0
fi
tail -n 60 "$log"
sed -n "s|.*Test unit written to \(.*\)|fuzz $name: to see it again: $build/bin/fuzz-$name \1|p" "$log"
exit 1
