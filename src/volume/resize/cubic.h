// Codes 4 to 7, the cubic family.
#pragma once

#include "volume/resize/tables.h"

// Not yet built: the cubic codes are refused by the worker for now.
template <class T, class Storage>
LumStatus ownResizeCubic(const OwnResizeJob<T, Storage>&) {
    return lumStatusBadInterpolation;
}
