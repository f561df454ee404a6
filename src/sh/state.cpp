// The spherical-harmonic state: which algorithm and up to which band, and for
// the recurrence the two coefficient tables, placed inside the caller's block.
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "frame/own.h"
#include "sh/sh.h"

namespace {

constexpr Lum32u kClosedFormSize = 16;

// Size of a recurrence state: both tables of n entries, each rounded up to 16
// bytes, and 32 bytes for the four fields and the alignment of table A.  The
// arithmetic is Lum32u and wraps for huge bands, unlooked at.
Lum32u localRecurrenceSize(Lum32u maxBand) {
    const Lum32u n = (maxBand * (maxBand + 2) + maxBand + 2) / 2;
    return 2 * ((4 * n + 15) & ~15u) + 32;
}

Lum32f* localAlign16(void* p) {
    const std::uintptr_t a = (reinterpret_cast<std::uintptr_t>(p) + 15) & ~std::uintptr_t(15);
    return reinterpret_cast<Lum32f*>(a);
}

// Band l's entries of both tables, in the precision each entry has always had.
void localFillBand(Lum32f* a, Lum32f* b, int l) {
    const long long ll = static_cast<long long>(l) * l;
    a[0] = static_cast<Lum32f>(std::sqrt(static_cast<Lum64f>(4 * ll - 1)) / l);
    const Lum32f q0 = static_cast<Lum32f>(2 * l + 1) / static_cast<Lum32f>(2 * l - 3);
    b[0] = static_cast<Lum32f>((1.0 / l - 1.0) * std::sqrt(static_cast<Lum64f>(q0)));
    for (int m = 1; m < l; ++m) {
        const long long mm = static_cast<long long>(m) * m;
        const Lum32f qa = static_cast<Lum32f>(4 * ll - 1) / static_cast<Lum32f>(ll - mm);
        a[m] = std::sqrt(qa);
        const long long num = ((l - 1LL) * (l - 1LL) - mm) * (2LL * l + 1);
        const long long den = (ll - mm) * (2LL * l - 3);
        const Lum32f qb = static_cast<Lum32f>(num) / static_cast<Lum32f>(den);
        // Deliberate: at m = l - 1 the numerator is zero and the entry is -0;
        // the recurrence never reads it.
        b[m] = static_cast<Lum32f>(-std::sqrt(static_cast<Lum64f>(qb)));
    }
    a[l] = static_cast<Lum32f>(-std::sqrt(static_cast<Lum64f>(2 * l + 1) / (2.0 * l)));
}

}  // namespace

LUMR_EXPORT LumStatus lumrSHGetSize_32f(Lum32u maxBand, Lum32u algorithm, Lum32u* pSize) {
    if (!pSize) return lumStatusNullPtr;
    if (algorithm == lumSHClosedForm) {
        if (maxBand > kSHMaxBand) return lumStatusSize;
        *pSize = kClosedFormSize;
        return lumStatusOk;
    }
    if (algorithm == lumSHRecurrence) {
        *pSize = localRecurrenceSize(maxBand);
        return lumStatusOk;
    }
    return lumStatusBadBand;
}

LUMR_EXPORT LumStatus lumrSHInit_32f(LumSHState* pState, Lum32u maxBand, Lum32u algorithm) {
    if (!pState) return lumStatusNullPtr;
    if (algorithm == lumSHClosedForm) {
        if (maxBand > kSHMaxBand) return lumStatusSize;
        // The block is 16 bytes: the two fields and room up to the first pointer.
        ownZero16(pState, kClosedFormSize / 2);
        pState->maxBand = maxBand;
        pState->algorithm = algorithm;
        return lumStatusOk;
    }
    if (algorithm != lumSHRecurrence) return lumStatusBadBand;

    const Lum32u size = localRecurrenceSize(maxBand);
    ownZero16(pState, static_cast<Lum32s>(size / 2));
    pState->maxBand = maxBand;
    pState->algorithm = algorithm;
    const std::size_t n = (static_cast<std::size_t>(maxBand) + 1) * (maxBand + 2) / 2;
    Lum32f* a = localAlign16(pState + 1);
    Lum32f* b = localAlign16(a + n);
    pState->tableA = a;
    pState->tableB = b;

    // Bands 0 and 1, also for maxBand 0: each table has room for four entries.
    // Table B's entries of these bands stay as cleared.
    const Lum32f c0 = static_cast<Lum32f>(1.0 / std::sqrt(12.566370614359172));
    const Lum32f c1 = static_cast<Lum32f>(static_cast<Lum64f>(c0) * 1.7320508075688772);
    a[0] = c0;
    a[1] = c1;
    a[2] = -c1;
    for (Lum32u l = 2; l <= maxBand; ++l) {
        const std::size_t first = static_cast<std::size_t>(l) * (l + 1) / 2;
        localFillBand(a + first, b + first, static_cast<int>(l));
    }
    return lumStatusOk;
}
