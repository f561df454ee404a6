// Reading a triangle record: the three axes packed into its first word.
// The builder writes w x 16 + p x 4 + q, plus bit 31 for an axis-aligned
// plane; a record whose first word is 0 is degenerate and never tested.
#pragma once

#include "lumr.h"

struct OwnAccelAxes {
    int w, p, q;
};

inline bool ownAccelIsDegenerate(const LumTriangleAccel& r) { return r.axisCode == 0; }

inline OwnAccelAxes ownAccelAxes(const LumTriangleAccel& r) {
    return {int((r.axisCode >> 4) & 3u), int((r.axisCode >> 2) & 3u), int(r.axisCode & 3u)};
}
