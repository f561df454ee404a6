// The remap drivers of every sample type and code, in constant data.
#include "volume/remap/remap_kernels.h"

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
const OwnRemapDriver ownRemapTable[24] = {
    nullptr, ownRemap<S8, OwnNearest>,  ownRemap<S8, OwnLinear>,  nullptr,
    ownRemap<S8, K4>,  ownRemap<S8, K5>,  ownRemap<S8, K6>,  ownRemap<S8, K7>,
    nullptr, ownRemap<S16, OwnNearest>, ownRemap<S16, OwnLinear>, nullptr,
    ownRemap<S16, K4>, ownRemap<S16, K5>, ownRemap<S16, K6>, ownRemap<S16, K7>,
    nullptr, ownRemap<S32, OwnNearest>, ownRemap<S32, OwnLinear>, nullptr,
    ownRemap<S32, K4>, ownRemap<S32, K5>, ownRemap<S32, K6>, ownRemap<S32, K7>,
};
