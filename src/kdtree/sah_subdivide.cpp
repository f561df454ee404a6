// The subdivision: an explicit stack of nodes still to build, the split
// search for each node, and the cutting of its polygons into the children.
// Nodes are built one after the other; only the search of a large node
// spreads its three axes over threads, so the tree is the same whatever the
// thread count.
#include <omp.h>

#include <algorithm>
#include <cstring>

#include "frame/own.h"
#include "kdtree/sah_context.h"
#include "kdtree/split_search.h"

namespace {

// Extents at or below this are flat: no cut on such an axis, and an axis
// needs a second non-flat one for a cut to make sense.
constexpr Lum32f kFlatExtent = 1e-5f;
constexpr Lum64f kMinGain = Lum64f(1e-5f);  // 9.99999974737875e-6
constexpr Lum32s kParallelItems = 75;       // larger nodes search axes in parallel
constexpr int kStackStates = 50;            // the deepest tree

struct AxisArrays {
    Lum32f* starts;
    Lum32f* ends;
    Lum32f* planars;
    Lum32f* scratch;
};

inline AxisArrays localArrays(Lum32f* const* work, int set) {
    return {work[4 * set], work[4 * set + 1], work[4 * set + 2], work[4 * set + 3]};
}

// One axis's sorted bound lists as the last search left them, in that axis's
// own four work arrays.  A node that goes on with its parent's items
// unchanged (the other child empty) has the same lists, made from the same
// items in the same order, so its search takes them as they are: gathering
// and sorting again would make exactly these arrays.
struct SortedLists {
    const Lum32f* starts;
    const Lum32f* ends;
    const Lum32f* planars;
    Lum32s n, m;
    bool odd;         // a NaN or a -0 among starts or ends: the plain sweep
    bool planarsOdd;  // the same among the planars
    bool valid;       // made from the present node's items
};

// Gathers and sorts one axis's bounds into its lists.  The gathering also
// learns each list's key range, which tells the sort how many passes it
// needs and whether the quick sweep applies.
void localGatherSort(const LumSAHItem* items, Lum32s count, int axis, const AxisArrays& w,
                     SortedLists* lists) {
    Lum32s n = 0, m = 0;
    LumBoundsRange rs, re, rp;
    Lum32u* const starts = reinterpret_cast<Lum32u*>(w.starts);
    Lum32u* const ends = reinterpret_cast<Lum32u*>(w.ends);
    Lum32u* const planars = reinterpret_cast<Lum32u*>(w.planars);
    for (Lum32s i = 0; i < count; ++i) {
        const Lum32f lo = ownItemLo(items[i], axis), hi = ownItemHi(items[i], axis);
        Lum32u loBits, hiBits;
        std::memcpy(&loBits, &lo, 4);
        std::memcpy(&hiBits, &hi, 4);
        if (lo != hi) {
            starts[n] = loBits;
            ends[n++] = hiBits;
            rs.add(loBits);
            re.add(hiBits);
        } else {
            planars[m++] = loBits;
            rp.add(loBits);
        }
    }
    // Each sort leaves its result in its own array or in a free one; the
    // next sort takes what is still free as scratch.
    Lum32f* const sortedStarts = ownSortBoundsRanged_32f(w.starts, w.scratch, n, rs, kSAHRadixGate);
    Lum32f* free1 = sortedStarts == w.starts ? w.scratch : w.starts;
    Lum32f* const sortedEnds = ownSortBoundsRanged_32f(w.ends, free1, n, re, kSAHRadixGate);
    Lum32f* const free2 = sortedEnds == w.ends ? free1 : w.ends;
    // The planars take the comparison sort's arrangement at any count.
    lists->planars = ownSortBoundsRanged_32f(w.planars, free2, m, rp, count);
    lists->starts = sortedStarts;
    lists->ends = sortedEnds;
    lists->n = n;
    lists->m = m;
    lists->odd = (rs.odd | re.odd) != 0;
    lists->planarsOdd = rp.odd != 0;
    lists->valid = true;
}

// Sweeps one axis into its record, gathering and sorting first unless the
// axis's lists still hold for these items.  extentA and extentB are the
// box's other two extents.
void localSearchAxis(LumSplitResult* rec, const LumSAHItem* items, Lum32s count, const Lum32f* box,
                     int axis, Lum32f extentA, Lum32f extentB, const AxisArrays& w,
                     SortedLists* lists) {
    if (!lists->valid) localGatherSort(items, count, axis, w, lists);
    const Lum32f* const sortedStarts = lists->starts;
    const Lum32f* const sortedEnds = lists->ends;
    const Lum32f* const sortedPlanars = lists->planars;
    const Lum32s n = lists->n, m = lists->m;
    const Lum32f boxMin = box[axis], boxMax = box[axis + 3];
    if (m == 0) {
        if (lists->odd)
            ownSweepSplit(sortedStarts, sortedEnds, n, boxMin, boxMax, extentA, extentB,
                          &rec->cost, &rec->splitPos, &rec->leftCount, &rec->rightCount);
        else
            ownSweepSplitClean(sortedStarts, sortedEnds, n, boxMin, boxMax, extentA, extentB,
                               &rec->cost, &rec->splitPos, &rec->leftCount, &rec->rightCount);
        rec->planarSide = 1;
    } else {
        ownSweepSplitPlanar(sortedStarts, sortedEnds, sortedPlanars, n, m, boxMin, boxMax,
                            extentA, extentB, &rec->cost, &rec->splitPos, &rec->leftCount,
                            &rec->rightCount, &rec->planarSide);
    }
    rec->axis = axis;
}

// The cheapest of the three records, ties to the later axis; then the cut
// must save more than ratio expected triangle tests.
void localChoose(LumSplitResult* result, const LumSplitResult* rec, Lum32s count, Lum64f minGain) {
    const Lum64f c0 = rec[0].cost, c1 = rec[1].cost, c2 = rec[2].cost;
    int axis;
    if (c1 > c0)
        axis = c2 > c0 ? 0 : 2;
    else
        axis = c2 > c1 ? 1 : 2;
    const Lum64f leafCost = result->cost;
    if (Lum64f(count) * (leafCost - rec[axis].cost) > minGain) {
        *result = rec[axis];
        result->axis = axis;
    } else {
        result->axis = -1;
    }
}

inline Lum64f localMinGain(Lum64f leafCost, Lum32f ratio) {
    const Lum64f g = leafCost * Lum64f(ratio);
    return g > kMinGain ? g : kMinGain;
}

void localFindBestSplit(LumSplitResult* result, const LumSAHItem* items, Lum32s count,
                        const Lum32f* box, Lum32f* const* work, Lum32f ratio,
                        SortedLists* lists) {
    const Lum32f ext[3] = {box[3] - box[0], box[4] - box[1], box[5] - box[2]};
    LumSplitResult rec[3];
    for (int axis = 0; axis < 3; ++axis) {
        rec[axis] = *result;  // leaf cost
        const Lum32f extA = ext[axis == 0 ? 1 : 0], extB = ext[axis == 2 ? 1 : 2];
        if (!(ext[axis] > kFlatExtent)) continue;
        // A cut needs a second non-flat axis (the check costs nothing here,
        // before the gathering, and changes no outcome).
        if (!(extA > kFlatExtent) && !(extB > kFlatExtent)) continue;
        // Each axis in its own arrays, so that all three lists outlive the
        // search.
        localSearchAxis(&rec[axis], items, count, box, axis, extA, extB, localArrays(work, axis),
                        &lists[axis]);
    }
    localChoose(result, rec, count, localMinGain(result->cost, ratio));
}

// The same search with each axis in its own OpenMP section and its own four
// work arrays.  The team is the number of axes worth searching, not the
// application's thread count: the sections share nothing writable, and a
// refused fork runs them one after the other in the calling thread.
// The region forks only above kForkItems items: below that, waking the team
// cost more than the search it shared (a 100k-triangle build ran at half
// speed with forks from 76 items on two cores).  The sections then run in
// the calling thread, which gives the same cut.
constexpr Lum32s kForkItems = 4096;
void localFindBestSplitSortSearch_MT(LumSplitResult* result, const LumSAHItem* items,
                                     Lum32s count, const Lum32f* box, Lum32f* const* work,
                                     Lum32f ratio, SortedLists* lists) {
    const Lum32f ext[3] = {box[3] - box[0], box[4] - box[1], box[5] - box[2]};
    LumSplitResult rec[3] = {*result, *result, *result};
    const Lum64f minGain = localMinGain(result->cost, ratio);
    const bool on[3] = {ext[0] > kFlatExtent, ext[1] > kFlatExtent, ext[2] > kFlatExtent};
    auto section = [&](int axis) {
        const Lum32f extA = ext[axis == 0 ? 1 : 0], extB = ext[axis == 2 ? 1 : 2];
        localSearchAxis(&rec[axis], items, count, box, axis, extA, extB, localArrays(work, axis),
                        &lists[axis]);
    };
    const int axes = int(on[0]) + int(on[1]) + int(on[2]);
    if (axes == 3) {
#pragma omp parallel sections num_threads(3) if(count > kForkItems)
        {
#pragma omp section
            section(0);
#pragma omp section
            section(1);
#pragma omp section
            section(2);
        }
    } else if (axes == 2) {
        const int a = on[0] ? 0 : 1;
        const int b = on[2] ? 2 : 1;
#pragma omp parallel sections num_threads(2) if(count > kForkItems)
        {
#pragma omp section
            section(a);
#pragma omp section
            section(b);
        }
    }
    // With one axis or none the records keep the leaf cost: no cut passes.
    localChoose(result, rec, count, minGain);
}

struct State {
    LumSAHNode* node;
    Lum32f box[6];
    Lum32s depth;
    char* itemCursor;
    char* vertexCursor;
};

// The leaf: triangle numbers to the leaf chunks, polygon arrays back to
// their free lists.
LumStatus localMakeLeaf(LumSAHContext* ctx, LumSAHNode* node, LumSAHItem* items) {
    const Lum32s n = Lum32s(node->value);
    void* p = nullptr;
    const LumStatus st = ownSAHChunkTake(ctx, &ctx->leafChunks, size_t(n) * 4, &p);
    if (st != lumStatusOk) return st;
    Lum32s* list = static_cast<Lum32s*>(p);
    for (Lum32s i = 0; i < n; ++i) {
        list[i] = ownItemTriangle(items[i]);
        ownSAHPolygonArrayRelease(ctx, items[i].vertices, ownItemCount(items[i]));
    }
    node->link = list;
    return lumStatusOk;
}

// Sorts the node's items into the left and right arrays by the same
// comparisons as the sweeps count them, cutting the items that cross.
// *cutsStartAtSplit tells whether every cut piece on the high side has its
// least coordinate exactly at the split, bit for bit, as a convex polygon's
// does; rounding in earlier cuts could break that.
LumStatus localClassify(LumSAHContext* ctx, const LumSAHItem* items, Lum32s count,
                        const LumSplitResult& cut, LumSAHItem* left, LumSAHItem* right,
                        bool* cutsStartAtSplit) {
    const int axis = cut.axis;
    const Lum32f s = cut.splitPos;
    Lum32u sBits;
    std::memcpy(&sBits, &s, 4);
    bool exact = true;
    Lum32s nl = 0, nr = 0;
    for (Lum32s i = 0; i < count; ++i) {
        const LumSAHItem& it = items[i];
        const Lum32f lo = ownItemLo(it, axis), hi = ownItemHi(it, axis);
        bool toLeft, toRight;
        if (lo == hi) {
            toLeft = lo < s || (lo == s && cut.planarSide == 0);
            toRight = !toLeft && (lo > s || lo == s);
        } else {
            toLeft = hi <= s;
            toRight = !toLeft && lo >= s;
        }
        if (toLeft || toRight) {
            // More items on a side than the search counted: only NaN
            // coordinates get here, and the arrays must not overflow.
            if (toLeft ? nl >= cut.leftCount : nr >= cut.rightCount) return lumStatusInternal;
            if (toLeft)
                left[nl++] = it;
            else
                right[nr++] = it;
            continue;
        }
        if (nl >= cut.leftCount || nr >= cut.rightCount) return lumStatusInternal;
        const LumStatus st = ownPolygonSplit(&it, &left[nl], &right[nr], s, axis, ctx);
        if (st != lumStatusOk) return st;
        const Lum32f low = ownItemLo(right[nr], axis);
        Lum32u lowBits;
        std::memcpy(&lowBits, &low, 4);
        exact &= lowBits == sBits;
        ++nl, ++nr;
    }
    if (nl != cut.leftCount || nr != cut.rightCount) return lumStatusInternal;
    *cutsStartAtSplit = exact;
    return lumStatusOk;
}

// The split axis's lists of the high child, from its parent's: on that axis
// an item above the plane keeps its bounds, an item across it is cut to one
// starting exactly at the split and ending where it ended, and flat items
// above (or in the plane, by planarSide) stay flat.  So the child's ends
// and planars are tails of the parent's, and its starts are a tail with the
// cut items' starts, all equal to the split, just before it.  For lists
// without NaN or -0 the sorted arrangement is unique, so these are exactly
// the arrays that gathering and sorting would make.  False when the lists
// do not qualify; the child then gathers them.
bool localHighChildLists(SortedLists* lists, const LumSplitResult& cut) {
    const Lum32f s = cut.splitPos;
    Lum32u sBits;
    std::memcpy(&sBits, &s, 4);
    if (!lists->valid || lists->odd || lists->planarsOdd) return false;
    if (sBits == 0x80000000u || s != s) return false;  // the child's bounds would not be clean
    const Lum32f* const starts = lists->starts;
    const Lum32f* const ends = lists->ends;
    const Lum32f* const planars = lists->planars;
    const Lum32s n = lists->n, m = lists->m;
    const Lum32s below = Lum32s(std::lower_bound(starts, starts + n, s) - starts);
    const Lum32s atOrBelow = Lum32s(std::upper_bound(ends, ends + n, s) - ends);
    const Lum32s cuts = below - atOrBelow;
    const Lum32s flatFrom =
        Lum32s((cut.planarSide == 0 ? std::upper_bound(planars, planars + m, s)
                                    : std::lower_bound(planars, planars + m, s)) -
               planars);
    if (cuts < 0 || (n - atOrBelow) + (m - flatFrom) != cut.rightCount) return false;
    Lum32f* const childStarts = const_cast<Lum32f*>(starts) + atOrBelow;
    for (Lum32s k = 0; k < cuts; ++k) childStarts[k] = s;
    lists->starts = childStarts;
    lists->ends = ends + atOrBelow;
    lists->planars = planars + flatFrom;
    lists->n = n - atOrBelow;
    lists->m = m - flatFrom;
    return true;
}

}  // namespace

LumStatus ownOptimizationPSAH(LumSAHContext* ctx, LumSAHNode* root, Lum32f splitQuality,
                              Lum32s maxDepth, const Lum32f* box) {
    const Lum32f ratio = Lum32f((10.0 - 9.0 * Lum64f(splitQuality)) * 0.50575697422027588);
    // The node being built always has its items in the root's array: a
    // child's count never exceeds its parent's, so the high child's items
    // are copied over its parent's and a waiting low child's are copied in
    // when it is taken up.  Left arrays wait on the item arena above.
    LumSAHItem* const items = static_cast<LumSAHItem*>(root->link);
    State stack[kStackStates];
    int top = 0;
    State cur;
    cur.node = root;
    std::memcpy(cur.box, box, sizeof(cur.box));
    cur.depth = 0;
    cur.itemCursor = ctx->itemCursor;
    cur.vertexCursor = ctx->vertexCursor;
    // Sorted lists per axis; they hold only while the items stay the same.
    SortedLists lists[3] = {};

    for (;;) {
        // Everything a finished subtree put on the arenas above this node's
        // cursors is no longer referred to.
        if (cur.vertexCursor >= ctx->vertexStart && cur.vertexCursor < ctx->vertexEnd)
            ctx->vertexCursor = cur.vertexCursor;
        if (cur.itemCursor >= ctx->itemStart && cur.itemCursor < ctx->itemEnd)
            ctx->itemCursor = cur.itemCursor;

        LumSAHNode* node = cur.node;
        const Lum32s count = Lum32s(node->value);
        LumSplitResult cut;
        cut.axis = -1;
        if (cur.depth != maxDepth) {
            const Lum64f dx = cur.box[3] - cur.box[0];
            const Lum64f dy = cur.box[4] - cur.box[1];
            const Lum64f dz = cur.box[5] - cur.box[2];
            cut.cost = Lum64f(count) * (dx * (dy + dz) + dy * dz);
            if (count <= kParallelItems)
                localFindBestSplit(&cut, items, count, cur.box, ctx->work, ratio, lists);
            else
                localFindBestSplitSortSearch_MT(&cut, items, count, cur.box, ctx->work, ratio,
                                                lists);
        }

        if (cut.axis < 0) {
            LumStatus st = localMakeLeaf(ctx, node, items);
            if (st != lumStatusOk) return st;
            if (top == 0) return lumStatusOk;
            for (SortedLists& l : lists) l.valid = false;
            cur = stack[--top];
            const Lum32s n = Lum32s(cur.node->value);
            ownCopy32(cur.node->link, items, n * Lum32s(sizeof(LumSAHItem) / 4));
            cur.node->link = items;
            continue;
        }

        void* p = nullptr;
        LumStatus st = ownSAHChunkTake(ctx, &ctx->nodeChunks, 2 * sizeof(LumSAHNode), &p);
        if (st != lumStatusOk) return st;
        LumSAHNode* pair = static_cast<LumSAHNode*>(p);
        pair[0] = *node;
        pair[1] = *node;
        node->kind = cut.axis;
        std::memcpy(&node->value, &cut.splitPos, 4);
        node->link = pair;
        const Lum32s depth = cur.depth + 1;
        const int axis = cut.axis;

        if (cut.leftCount == 0) {  // nothing below the plane: all items go high
            pair[0].value = 0;
            pair[0].link = nullptr;
            cur.node = &pair[1];
            cur.box[axis] = cut.splitPos;
            cur.depth = depth;
            continue;
        }
        if (cut.rightCount == 0) {
            pair[1].value = 0;
            pair[1].link = nullptr;
            cur.node = &pair[0];
            cur.box[axis + 3] = cut.splitPos;
            cur.depth = depth;
            continue;
        }

        // Both children get new item lists; only the split axis's may be
        // carried into the high child.
        SortedLists carried = lists[axis];
        for (SortedLists& l : lists) l.valid = false;
        if (top >= kStackStates) return lumStatusInternal;  // depth is at most 50
        State& low = stack[top++];
        low.node = &pair[0];
        std::memcpy(low.box, cur.box, sizeof(low.box));
        low.box[axis + 3] = cut.splitPos;
        low.depth = depth;
        low.itemCursor = ctx->itemCursor;
        void* lp = nullptr;
        void* rp = nullptr;
        st = ownSAHArenaTake(&ctx->itemCursor, ctx->itemEnd,
                             size_t(cut.leftCount) * sizeof(LumSAHItem), &lp);
        if (st != lumStatusOk) return st;
        char* const afterLeft = ctx->itemCursor;
        st = ownSAHArenaTake(&ctx->itemCursor, ctx->itemEnd,
                             size_t(cut.rightCount) * sizeof(LumSAHItem), &rp);
        if (st != lumStatusOk) return st;
        LumSAHItem* left = static_cast<LumSAHItem*>(lp);
        LumSAHItem* right = static_cast<LumSAHItem*>(rp);
        bool cutsStartAtSplit = false;
        st = localClassify(ctx, items, count, cut, left, right, &cutsStartAtSplit);
        if (st != lumStatusOk) return st;
        if (cutsStartAtSplit && localHighChildLists(&carried, cut)) lists[axis] = carried;

        ownCopy32(right, items, cut.rightCount * Lum32s(sizeof(LumSAHItem) / 4));
        pair[0].value = Lum32u(cut.leftCount);
        pair[0].link = left;
        pair[1].value = Lum32u(cut.rightCount);
        pair[1].link = items;
        low.vertexCursor = ctx->vertexCursor;

        cur.node = &pair[1];
        cur.box[axis] = cut.splitPos;
        cur.depth = depth;
        cur.itemCursor = afterLeft;
        cur.vertexCursor = ctx->vertexCursor;
    }
}
