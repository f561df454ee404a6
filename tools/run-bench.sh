#!/usr/bin/env bash
# Runs every family's benchmarks and prints one summary table: lumr's figure,
# the peer's or baseline's figure measured in the same run, and the ratio
# (tools/bench_table.py).
#   tools/run-bench.sh [build-dir] [--raw] [--all] [--min-time S] [--only family,...]
# --raw (or LUMR_BENCH_RAW=1 in the environment, e.g. `LUMR_BENCH_RAW=1 make bench`)
# also shows every benchmark's own output before the table; --all (or
# LUMR_BENCH_ALL=1) runs every benchmark of each binary, not only the table's.
#
# The peers' headers may have been installed after the last configure (make
# bench installs them after building): configure and build again, so that
# the benchmarks that load a peer are rebuilt with its declarations.
set -euo pipefail
build=${1:-build}
[ $# -gt 0 ] && shift
extra=()
[ "${LUMR_BENCH_RAW:-0}" = 1 ] && extra+=(--raw)
[ "${LUMR_BENCH_ALL:-0}" = 1 ] && extra+=(--all)
cmake -S "$(dirname "$0")/.." -B "$build" >/dev/null
cmake --build "$build" -j "$(nproc)" >/dev/null
exec /usr/bin/python3 "$(dirname "$0")/bench_table.py" "$build" "${extra[@]}" "$@"
