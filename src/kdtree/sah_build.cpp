#include "kdtree/sah.h"

// The SAH build is not available yet: a request that passed every check of
// the front end is refused here with lumStatusBadArg.
LumStatus ownKDTreeBuildSAH(const Lum32f*, const Lum32s*, Lum32s, Lum32s, LumKDTreeNode**,
                            Lum32s*, Lum32f, Lum32s, Lum32u, const Lum32f*) {
    return lumStatusBadArg;
}
