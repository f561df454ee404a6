#!/usr/bin/env bash
# Runs both example programs on their built-in defaults and says where the
# pictures are.  Usage: examples/demo.sh BUILD_DIR [OUT_DIR]
set -euo pipefail
build=${1:-build}
out=${2:-out}
render=$build/examples/lumr-render
volume=$build/examples/lumr-volume
mkdir -p "$out"

echo "== lumr-render: the Stanford bunny, ray-traced"
"$render" --out "$out/render.png"

echo
echo "== lumr-volume: 8u head phantom, swirl remap (Catmull-Rom)"
"$volume" --type 8u --swirl 120 --montage "$out/volume_swirl.png"

echo
echo "== lumr-volume: 16u head phantom, affine warp 30 degrees about x, scale 1.25 (linear)"
"$volume" --type 16u --interp linear --warp 30,1.25,x --montage "$out/volume_warp.png" \
          --nifti-out "$out/phantom_warp.nii.gz"

echo
echo "== lumr-volume: 32f head phantom, resize by 0.6 (B-spline), then 5x5x5 smoothing"
"$volume" --type 32f --interp bspline --resize 0.6 --filter 5 \
          --montage "$out/volume_resize_filter.png"

echo
echo "== lumr-volume: the warped volume read back from NIfTI, 3x3x3 smoothing"
"$volume" --input "$out/phantom_warp.nii.gz" --filter 3 --montage "$out/volume_nifti.png" \
          --nifti-out "$out/volume_result.nii.gz"

echo
echo "Pictures written:"
for f in render.png volume_swirl.png volume_warp.png volume_resize_filter.png volume_nifti.png; do
  echo "  $(cd "$out" && pwd)/$f"
done
echo "Volumes written: $out/phantom_warp.nii.gz, $out/volume_result.nii.gz"
