#!/usr/bin/env bash
# Installs the Debian packages the example programs need, when missing:
# PNG output, the mesh import library of lumr-render and the NIfTI I/O of
# lumr-volume.  As root it runs apt-get; otherwise it prints the exact
# command and stops.
set -euo pipefail
need=(libpng-dev zlib1g-dev libassimp-dev libnifti2-dev)
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
  echo "missing packages for the examples; run as root:" >&2
  echo "  apt-get install -y ${missing[*]}" >&2
  exit 1
fi
