#!/usr/bin/env bash
# Runs every benchmark binary of a build directory.
set -euo pipefail
build=${1:-build}
status=0
for b in "$build"/bench/bench_*; do
  [ -x "$b" ] || continue
  echo "== $(basename "$b")"
  "$b" --benchmark_min_time=0.2 || status=1
done
exit $status
