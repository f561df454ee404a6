// Ascending sort of floats by their bit patterns: three 11-bit passes over
// an order-preserving 32-bit key, with all three histograms counted in one
// pass.  Long bound lists of the split search take this sort.
#include <algorithm>
#include <cstring>

#include "frame/own.h"
#include "kdtree/split_search.h"

namespace {

constexpr int kRadixBits = 11;
constexpr Lum32u kBuckets = 1u << kRadixBits;

// Unsigned key order is float order: negative floats have all bits
// inverted, the others get the sign bit set.
inline Lum32u localKey(Lum32u bits) {
    return (bits & 0x80000000u) ? ~bits : (bits | 0x80000000u);
}
inline Lum32u localUnkey(Lum32u key) {
    return (key & 0x80000000u) ? (key & 0x7FFFFFFFu) : ~key;
}
inline Lum32u localLoad(const Lum32f* p) {
    Lum32u u;
    std::memcpy(&u, p, 4);
    return u;
}
inline void localStore(Lum32f* p, Lum32u u) { std::memcpy(p, &u, 4); }

}  // namespace

void ownSortRadix_32f(Lum32f* data, Lum32f* scratch, Lum32s count) {
    if (count < 2) return;
    Lum32f* a = data;
    Lum32f* b = scratch;
    Lum32u hist[3][kBuckets];
    std::memset(hist, 0, sizeof(hist));
    for (Lum32s i = 0; i < count; ++i) {
        const Lum32u k = localKey(localLoad(a + i));
        ++hist[0][k & (kBuckets - 1)];
        ++hist[1][(k >> kRadixBits) & (kBuckets - 1)];
        ++hist[2][k >> (2 * kRadixBits)];
    }
    for (auto& h : hist) {  // exclusive prefix sums: first slot of each bucket
        Lum32u sum = 0;
        for (Lum32u& c : h) {
            const Lum32u t = c;
            c = sum;
            sum += t;
        }
    }
    // Pass 1 turns floats into keys, pass 3 turns keys back into floats.
    for (Lum32s i = 0; i < count; ++i) {
        const Lum32u k = localKey(localLoad(a + i));
        localStore(b + hist[0][k & (kBuckets - 1)]++, k);
    }
    for (Lum32s i = 0; i < count; ++i) {
        const Lum32u k = localLoad(b + i);
        localStore(a + hist[1][(k >> kRadixBits) & (kBuckets - 1)]++, k);
    }
    for (Lum32s i = 0; i < count; ++i) {
        const Lum32u k = localLoad(a + i);
        localStore(b + hist[2][k >> (2 * kRadixBits)]++, localUnkey(k));
    }
    ownCopy32(scratch, data, count);
}

void ownSortAscendExact_32f(Lum32f* data, Lum32s count) {
    if (count < 2) return;
    // Sorted ascending, an array is unique except for the order of -0 and
    // +0 and for NaN.  Those lists keep the quicksort's own arrangement; all
    // others may take any correct sort.
    bool unique = true;
    for (Lum32s i = 0; i < count; ++i) {
        const Lum32u u = localLoad(data + i);
        unique &= u != 0x80000000u && (u & 0x7FFFFFFFu) <= 0x7F800000u;
    }
    if (unique)
        std::sort(data, data + count);
    else
        ownSortAscend_32f(data, count);
}
