// The picture of a volume step: the three orthogonal middle slices of the
// volume before (top row) and after (bottom row), in grey.
#pragma once

#include "common/image.h"
#include "volume/volume.h"

namespace demo {

// Axial (x right, y down) at the middle z; coronal (x right, z up) at the
// middle y; sagittal (y right, z up) at the middle x.  Samples lo..hi map to
// black..white in both rows, so that the rows compare.  Each slice is drawn
// centred in a cell as large as the largest slice, zoomed by a whole factor
// so cells are at least `minCell` pixels.
Image makeMontage(const Volume& before, const Volume& after, double lo, double hi,
                  int minCell = 192);

}  // namespace demo
