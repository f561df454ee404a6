// The split search's sorts of bound lists.  The plain forms: an ascending
// sort of floats by their bit patterns in three 11-bit passes over an
// order-preserving 32-bit key, with all three histograms counted in one
// pass, and the comparison sort for short lists.  The ranged form makes the
// same arrangements quicker, from what the gathering learnt about the list:
// a vector sorting network for short lists with a unique arrangement, and a
// radix sort with only the passes the key range needs.
#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

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

namespace {

// Short lists: straight insertion, only for lists whose arrangement is
// unique (no NaN, so the comparisons order everything).
void localInsertionSort(Lum32f* a, Lum32s n) {
    for (Lum32s i = 1; i < n; ++i) {
        const Lum32f v = a[i];
        Lum32s j = i;
        while (j > 0 && a[j - 1] > v) {
            a[j] = a[j - 1];
            --j;
        }
        a[j] = v;
    }
}

// ---- Vector sort of short unique lists --------------------------------------
// Min and max pick one of their operands, and with no NaN and no -0 among the
// values equal values have equal bits: a sorting network on vectors leaves
// exactly the unique ascending arrangement.  Lists are padded with +inf,
// whose bits equal any +inf of the list, so the first count values out are
// the answer.

constexpr int kBlock = 64;                      // eight vectors of eight
constexpr int kVecSortMax = 768;   // beyond this the radix sort is quicker

inline __m256 localReverse(__m256 v) {
    return _mm256_permute_ps(_mm256_permute2f128_ps(v, v, 1), _MM_SHUFFLE(0, 1, 2, 3));
}

// A bitonic vector of eight into ascending order.
inline __m256 localClean8(__m256 v) {
    __m256 t = _mm256_permute2f128_ps(v, v, 1);
    v = _mm256_blend_ps(_mm256_min_ps(v, t), _mm256_max_ps(v, t), 0xF0);
    t = _mm256_permute_ps(v, _MM_SHUFFLE(1, 0, 3, 2));
    v = _mm256_blend_ps(_mm256_min_ps(v, t), _mm256_max_ps(v, t), 0xCC);
    t = _mm256_permute_ps(v, _MM_SHUFFLE(2, 3, 0, 1));
    return _mm256_blend_ps(_mm256_min_ps(v, t), _mm256_max_ps(v, t), 0xAA);
}

inline void localMinMax(__m256& a, __m256& b) {
    const __m256 lo = _mm256_min_ps(a, b);
    b = _mm256_max_ps(a, b);
    a = lo;
}

// Two ascending runs of 8k (v[0..k) and v[k..2k)) into one run of 16k.
template <int kVecs>
inline void localMergeRuns(__m256* v) {
    for (int i = 0; i < kVecs; ++i) v[kVecs + i] = localReverse(v[kVecs + i]);
    for (int i = 0; i < kVecs / 2; ++i) std::swap(v[kVecs + i], v[2 * kVecs - 1 - i]);
    for (int i = 0; i < kVecs; ++i) localMinMax(v[i], v[kVecs + i]);
    // Both halves are bitonic now: halve the distance down to one vector.
    for (int d = kVecs / 2; d >= 1; d /= 2)
        for (int base = 0; base < 2 * kVecs; base += 2 * d)
            for (int i = 0; i < d; ++i) localMinMax(v[base + i], v[base + d + i]);
    for (int i = 0; i < 2 * kVecs; ++i) v[i] = localClean8(v[i]);
}

// Sorts 64 values at p in place.
void localSortBlock(Lum32f* p) {
    __m256 v[8];
    for (int i = 0; i < 8; ++i) v[i] = _mm256_loadu_ps(p + 8 * i);
    // Each lane across the eight vectors, by a network of 19 comparators.
    static constexpr int kNet[19][2] = {{0, 2}, {1, 3}, {4, 6}, {5, 7}, {0, 4}, {1, 5}, {2, 6},
                                        {3, 7}, {0, 1}, {2, 3}, {4, 5}, {6, 7}, {2, 4}, {3, 5},
                                        {1, 4}, {3, 6}, {1, 2}, {3, 4}, {5, 6}};
    for (const auto& c : kNet) localMinMax(v[c[0]], v[c[1]]);
    // Transpose: each vector becomes one sorted run of eight.
    const __m256 t0 = _mm256_unpacklo_ps(v[0], v[1]), t1 = _mm256_unpackhi_ps(v[0], v[1]);
    const __m256 t2 = _mm256_unpacklo_ps(v[2], v[3]), t3 = _mm256_unpackhi_ps(v[2], v[3]);
    const __m256 t4 = _mm256_unpacklo_ps(v[4], v[5]), t5 = _mm256_unpackhi_ps(v[4], v[5]);
    const __m256 t6 = _mm256_unpacklo_ps(v[6], v[7]), t7 = _mm256_unpackhi_ps(v[6], v[7]);
    const __m256 s0 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(1, 0, 1, 0));
    const __m256 s1 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(3, 2, 3, 2));
    const __m256 s2 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(1, 0, 1, 0));
    const __m256 s3 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(3, 2, 3, 2));
    const __m256 s4 = _mm256_shuffle_ps(t4, t6, _MM_SHUFFLE(1, 0, 1, 0));
    const __m256 s5 = _mm256_shuffle_ps(t4, t6, _MM_SHUFFLE(3, 2, 3, 2));
    const __m256 s6 = _mm256_shuffle_ps(t5, t7, _MM_SHUFFLE(1, 0, 1, 0));
    const __m256 s7 = _mm256_shuffle_ps(t5, t7, _MM_SHUFFLE(3, 2, 3, 2));
    v[0] = _mm256_permute2f128_ps(s0, s4, 0x20);
    v[1] = _mm256_permute2f128_ps(s1, s5, 0x20);
    v[2] = _mm256_permute2f128_ps(s2, s6, 0x20);
    v[3] = _mm256_permute2f128_ps(s3, s7, 0x20);
    v[4] = _mm256_permute2f128_ps(s0, s4, 0x31);
    v[5] = _mm256_permute2f128_ps(s1, s5, 0x31);
    v[6] = _mm256_permute2f128_ps(s2, s6, 0x31);
    v[7] = _mm256_permute2f128_ps(s3, s7, 0x31);
    for (int i = 0; i < 8; i += 2) localMergeRuns<1>(v + i);
    for (int i = 0; i < 8; i += 4) localMergeRuns<2>(v + i);
    localMergeRuns<4>(v);
    for (int i = 0; i < 8; ++i) _mm256_storeu_ps(p + 8 * i, v[i]);
}

// Merges the ascending runs a (la values) and b (lb values), both whole
// vectors, into out, eight values at a time.
void localMergeVec(const Lum32f* a, int la, const Lum32f* b, int lb, Lum32f* out) {
    __m256 v[2] = {_mm256_loadu_ps(a), _mm256_loadu_ps(b)};
    int ia = 8, ib = 8;
    for (;;) {
        localMergeRuns<1>(v);
        _mm256_storeu_ps(out, v[0]);
        out += 8;
        v[0] = v[1];
        if (ia < la && (ib >= lb || a[ia] <= b[ib])) {
            v[1] = _mm256_loadu_ps(a + ia);
            ia += 8;
        } else if (ib < lb) {
            v[1] = _mm256_loadu_ps(b + ib);
            ib += 8;
        } else {
            break;
        }
    }
    _mm256_storeu_ps(out, v[0]);
}

// The unique ascending arrangement of 16 < n <= kVecSortMax values without
// NaN or -0.
void localVecSort(Lum32f* data, Lum32s n) {
    alignas(32) Lum32f buf[2][kVecSortMax];
    const int blocks = (n + kBlock - 1) / kBlock;
    const Lum32f inf = std::numeric_limits<Lum32f>::infinity();
    std::memcpy(buf[0], data, size_t(n) * 4);
    std::fill(buf[0] + n, buf[0] + blocks * kBlock, inf);
    for (int b = 0; b < blocks; ++b) localSortBlock(buf[0] + b * kBlock);
    // Runs of 64 merged pairwise, doubling, between the two buffers.
    int src = 0;
    for (int run = kBlock; run < blocks * kBlock; run *= 2) {
        const int total = blocks * kBlock;
        for (int at = 0; at < total; at += 2 * run) {
            const int la = std::min(run, total - at), lb = std::min(run, total - at - la);
            if (lb == 0)
                std::memcpy(buf[1 - src] + at, buf[src] + at, size_t(la) * 4);
            else
                localMergeVec(buf[src] + at, la, buf[src] + at + la, lb, buf[1 - src] + at);
        }
        src = 1 - src;
    }
    std::memcpy(data, buf[src], size_t(n) * 4);
}

// LSD radix sort of the keys' offsets from keyMin in kPasses passes of
// kWidth bits; the floats themselves move, and each pass recomputes their
// key.  Returns where the sorted floats ended.
template <int kWidth, int kPasses>
Lum32f* localRadixRanged(Lum32f* data, Lum32f* scratch, Lum32s n, Lum32u keyMin, Lum32u span) {
    constexpr Lum32u kSize = 1u << kWidth, kMask = kSize - 1;
    Lum32u hist[kPasses][kSize];
    // The top pass needs only the buckets the range reaches.
    Lum32u used[kPasses];
    for (int q = 0; q < kPasses; ++q) used[q] = kSize;
    used[kPasses - 1] = (span >> (kWidth * (kPasses - 1))) + 1;
    for (int q = 0; q < kPasses; ++q) std::memset(hist[q], 0, used[q] * sizeof(Lum32u));
    const Lum32u* in = reinterpret_cast<const Lum32u*>(data);
    for (Lum32s i = 0; i < n; ++i) {
        const Lum32u d = ownBoundKey(in[i]) - keyMin;
        ++hist[0][d & kMask];
        if (kPasses > 1) ++hist[kPasses > 1 ? 1 : 0][(d >> kWidth) & kMask];
        if (kPasses > 2) ++hist[kPasses > 2 ? 2 : 0][(d >> (2 * kWidth)) & kMask];
    }
    for (int q = 0; q < kPasses; ++q) {
        Lum32u sum = 0;
        for (Lum32u b = 0; b < used[q]; ++b) {
            const Lum32u t = hist[q][b];
            hist[q][b] = sum;
            sum += t;
        }
    }
    Lum32f* src = data;
    Lum32f* dst = scratch;
    for (int q = 0; q < kPasses; ++q) {
        const Lum32u* s = reinterpret_cast<const Lum32u*>(src);
        Lum32u* d = reinterpret_cast<Lum32u*>(dst);
        Lum32u* h = hist[q];
        const int shift = kWidth * q;
        for (Lum32s i = 0; i < n; ++i) {
            const Lum32u bits = s[i];
            d[h[((ownBoundKey(bits) - keyMin) >> shift) & kMask]++] = bits;
        }
        Lum32f* t = src;
        src = dst;
        dst = t;
    }
    return src;
}

}  // namespace

Lum32f* ownSortBoundsRanged_32f(Lum32f* data, Lum32f* scratch, Lum32s count,
                                const LumBoundsRange& range, Lum32s gate) {
    if (count < 2) return data;
    if (count <= gate && range.odd) {
        // -0 beside +0, or NaN: the comparison sort's arrangement is the
        // result, so that sort itself makes it.
        ownSortAscend_32f(data, count);
        return data;
    }
    const Lum32u span = range.keyMax - range.keyMin;
    if (span == 0) return data;  // all bits equal
    if (!range.odd && count <= kVecSortMax) {
        // Short unique lists sort quicker by comparisons; above the gate the
        // radix sort's key order is float order for them.
        if (count < 16)
            localInsertionSort(data, count);
        else
            localVecSort(data, count);
        return data;
    }
    const int bits = 32 - __builtin_clz(span);
    if (bits <= 11) return localRadixRanged<11, 1>(data, scratch, count, range.keyMin, span);
    if (bits <= 22) return localRadixRanged<11, 2>(data, scratch, count, range.keyMin, span);
    // Two wider passes still beat three: 8192 counters fit the first-level
    // cache.
    if (bits <= 26) return localRadixRanged<13, 2>(data, scratch, count, range.keyMin, span);
    ownSortRadix_32f(data, scratch, count);
    return data;
}
