#include "frame/own.h"

namespace {
const LumLibVersion kVersion = {
    6, 1, 137, 667, {'e', '9', '\0', '\0'}, "lumre9-6.1.dll", "6.1 build 137.20", "Jun 10 2009",
};
}  // namespace

LUMR_EXPORT const LumLibVersion* lumrGetLibVersion(void) { return &kVersion; }
