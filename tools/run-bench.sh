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
if [ -x /usr/bin/python3 ]; then
  echo "== python_bench"
  LUMR_LIBRARY_DIR="$build" /usr/bin/python3 bench/python_bench.py || status=1
fi
exit $status
