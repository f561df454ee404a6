// The flat KD-tree block: how nodes and leaves are encoded and read.  Every
// build writes through these encoders and every walk reads through these
// accessors, so the bit layout lives in this one place.
//
// A node is two 32-bit words.  Bit 31 of word0 tells a leaf.
//   interior: word0 = byte offset to the child pair (multiple of 8) | axis,
//             word1 = split position as float bits; low child first.
//   leaf:     word1 == 0             empty
//             word1 bit 31 clear     list of word1 triangle numbers at
//                                    (node address) - (signed word0)
//             word1 bit 31 set       compact: one to three numbers inside
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "lumr.h"

constexpr Lum32u kNodeLeafBit = 0x80000000u;
constexpr Lum32s kCompactLimit = 0x1FFFFFFF;  // largest number word1 can hold

inline bool ownNodeIsLeaf(const LumKDTreeNode* n) { return (n->word0 & kNodeLeafBit) != 0; }
inline int ownNodeAxis(const LumKDTreeNode* n) { return int(n->word0 & 3u); }
inline Lum32f ownNodeSplit(const LumKDTreeNode* n) {
    Lum32f f;
    std::memcpy(&f, &n->word1, 4);
    return f;
}
// The pair of children: [0] low (below the plane), [1] high.
inline const LumKDTreeNode* ownNodeChildren(const LumKDTreeNode* n) {
    return reinterpret_cast<const LumKDTreeNode*>(reinterpret_cast<const char*>(n) +
                                                  (n->word0 & ~7u));
}

// A leaf's triangles: either a pointer into the block's lists or up to three
// numbers decoded from the node, always in testing order.
struct OwnLeafTriangles {
    Lum32s count;
    const Lum32s* list;  // null for a compact leaf
    Lum32s inl[3];
    Lum32s operator[](Lum32s i) const { return list ? list[i] : inl[i]; }
};

inline OwnLeafTriangles ownLeafTriangles(const LumKDTreeNode* n) {
    OwnLeafTriangles t{0, nullptr, {0, 0, 0}};
    const Lum32u w0 = n->word0, w1 = n->word1;
    if (w1 == 0) return t;
    if ((w1 & kNodeLeafBit) == 0) {
        t.count = Lum32s(w1);
        t.list = reinterpret_cast<const Lum32s*>(reinterpret_cast<const char*>(n) -
                                                 std::intptr_t(Lum32s(w0)));
        return t;
    }
    const Lum32s m = Lum32s((w1 & 0x7FFFFFFCu) >> 2);
    const Lum32s g = Lum32s(w0 & 0x7FFFFFFFu);
    t.count = Lum32s(w1 & 3u);
    if (t.count == 1) {
        t.inl[0] = g;
    } else if (t.count == 2) {
        t.inl[0] = g, t.inl[1] = m;
    } else {
        t.inl[0] = m - (g >> 16), t.inl[1] = m, t.inl[2] = m + Lum32s(w0 & 0xFFFFu);
    }
    return t;
}

// ---- Writing ---------------------------------------------------------------

inline void ownWriteInterior(LumKDTreeNode* n, int axis, std::ptrdiff_t pairOffsetBytes,
                             Lum32f split) {
    n->word0 = Lum32u(pairOffsetBytes) | Lum32u(axis);
    std::memcpy(&n->word1, &split, 4);
}

// Compact encoding of one to three triangles, or false when the numbers do
// not fit and the leaf must be a list.  For two numbers the second goes to
// word1 as it stands when it fits 29 bits, else the pair is swapped; three
// numbers are stored sorted, so they are tested in ascending order.
inline bool ownEncodeCompact(const Lum32s* tris, Lum32s count, LumKDTreeNode* n) {
    if (count == 1) {
        n->word0 = Lum32u(tris[0]) | kNodeLeafBit;
        n->word1 = 0x80000001u;
        return true;
    }
    if (count == 2) {
        Lum32s a = tris[0], b = tris[1];
        if (b > kCompactLimit) {
            if (a > kCompactLimit) return false;
            std::swap(a, b);
        }
        n->word0 = Lum32u(a) | kNodeLeafBit;
        n->word1 = (Lum32u(b) << 2) | 0x80000002u;
        return true;
    }
    if (count == 3) {
        Lum32s s[3] = {tris[0], tris[1], tris[2]};
        std::sort(s, s + 3);
        const Lum32s lo = s[0], mid = s[1], hi = s[2];
        if (!(mid < 0x20000000 && mid - lo < 32768 && hi - mid < 65536)) return false;
        n->word0 = (Lum32u(mid - lo) << 16) | Lum32u(hi - mid) | kNodeLeafBit;
        n->word1 = (Lum32u(mid) << 2) | 0x80000003u;
        return true;
    }
    return false;
}

// List entries a leaf of these triangles needs in the block (0 if compact).
inline Lum32s ownLeafListEntries(const Lum32s* tris, Lum32s count) {
    LumKDTreeNode probe;
    if (count == 0 || ownEncodeCompact(tris, count, &probe)) return 0;
    return count;
}

// A list leaf (or an empty leaf when count is 0): word0 is the distance from
// the list back to the node, negative because lists follow the nodes.
inline void ownWriteListLeaf(LumKDTreeNode* n, const Lum32s* list, Lum32s count) {
    const std::ptrdiff_t back = reinterpret_cast<const char*>(n) - reinterpret_cast<const char*>(list);
    n->word0 = Lum32u(Lum32s(back));
    n->word1 = Lum32u(count);
}

// Writes a leaf in compact form when it can; otherwise copies the numbers to
// *listCursor, which advances past them.
inline void ownWriteLeaf(LumKDTreeNode* n, const Lum32s* tris, Lum32s count, Lum32s*& listCursor) {
    if (count > 0 && ownEncodeCompact(tris, count, n)) return;
    if (count > 0) std::memcpy(listCursor, tris, size_t(count) * 4);
    ownWriteListLeaf(n, listCursor, count);
    listCursor += count;
}
