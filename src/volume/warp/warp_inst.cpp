// The affine warp drivers of every sample type and code, in constant data.
#include "volume/warp/warp_kernels.h"

namespace {

using K4 = OwnCubic4;
using K5 = OwnCubic5;
using K6 = OwnCubic6;
using K7 = OwnCubic7;
using S8 = OwnSample8u;
using S16 = OwnSample16u;
using S32 = OwnSample32f;

}  // namespace

// Slot = code; slots 0 and 3 stay empty.
const OwnWarpDriver ownWarpAffineTable[24] = {
    nullptr, ownWarpAffine<S8, OwnNearest>,  ownWarpAffine<S8, OwnLinear>,  nullptr,
    ownWarpAffine<S8, K4>,  ownWarpAffine<S8, K5>,  ownWarpAffine<S8, K6>,  ownWarpAffine<S8, K7>,
    nullptr, ownWarpAffine<S16, OwnNearest>, ownWarpAffine<S16, OwnLinear>, nullptr,
    ownWarpAffine<S16, K4>, ownWarpAffine<S16, K5>, ownWarpAffine<S16, K6>, ownWarpAffine<S16, K7>,
    nullptr, ownWarpAffine<S32, OwnNearest>, ownWarpAffine<S32, OwnLinear>, nullptr,
    ownWarpAffine<S32, K4>, ownWarpAffine<S32, K5>, ownWarpAffine<S32, K6>, ownWarpAffine<S32, K7>,
};
