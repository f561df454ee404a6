#!/usr/bin/env bash
# Installs the Debian packages the build and tests need, when missing;
# `install-deps.sh bench` adds the peer libraries the benchmarks compare with.
# As root it runs apt-get; otherwise it prints the exact command and stops.
set -euo pipefail
need=(cmake g++ make pkg-config binutils libgtest-dev libbenchmark-dev
      python3 python3-numpy python3-scipy python3-pytest
      libpng-dev zlib1g-dev libassimp-dev libnifti2-dev)  # the example programs
if [ "${1:-}" = bench ]; then
  need+=(libembree-dev)
fi
missing=()
for p in "${need[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
if [ "$(id -u)" -eq 0 ]; then
  echo "installing: ${missing[*]}" >&2
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
else
  echo "missing packages; run as root:" >&2
  echo "  apt-get install -y ${missing[*]}" >&2
  exit 1
fi
