// The SAH build's memory contract: admission, whole-block charging, arena
// exhaustion, the internal-consistency status, and release of everything on
// every path.  The core's allocator is wrapped here (forwarding to the real
// one) to count live blocks and to refuse a chosen allocation.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

#include "kdtree/sah.h"
#include "kdtree/sah_mesh.h"
#include "ref/tree_validator.h"

namespace {

std::atomic<long> gCalls{0};
std::atomic<long> gLive{0};
std::atomic<long> gFailAt{-1};

// The core's own functions, found past this binary's; a reference to the
// core keeps it linked even when no test calls it directly.
template <typename Fn>
Fn real(const char* name) {
    static const volatile auto keepCoreLinked = &lumGetNumThreads;
    (void)keepCoreLinked;
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// Transparent unless a test arms gFailAt.
extern "C" void* lumMalloc(int64_t size) {
    static const auto next = real<void* (*)(int64_t)>("lumMalloc");
    if (gCalls++ == gFailAt.load()) return nullptr;
    void* p = next(size);
    if (p) ++gLive;
    return p;
}
extern "C" void lumFree(void* p) {
    static const auto next = real<void (*)(void*)>("lumFree");
    if (p) --gLive;
    next(p);
}

namespace {

constexpr Lum32u kBlockCharge = 0x1000028u;

struct Outcome {
    LumStatus status;
    long calls;
    long liveAfterFree;  // blocks still held once the tree is released
};

// One build; a valid tree on success, the outputs untouched on failure.
Outcome build(const SahMesh& m, Lum32u limit, Lum32s maxDepth = 20, const float* clip = nullptr,
              long failAt = -1) {
    const long live0 = gLive.load();
    gCalls = 0;
    gFailAt = failAt;
    LumKDTreeNode* const canary = reinterpret_cast<LumKDTreeNode*>(0x1234);
    LumKDTreeNode* tree = canary;
    Lum32s size = -77;
    const LumStatus st = ownKDTreeBuildSAH(m.v.data(), m.t.data(), m.nv(), m.nt(), &tree, &size,
                                           0.8f, maxDepth, limit, clip);
    gFailAt = -1;
    const long calls = gCalls.load();
    if (st == lumStatusOk) {
        // Clipped-away triangles need not stand anywhere.
        const std::vector<char> required(clip ? size_t(m.nt()) : 0, 0);
        EXPECT_TRUE(lumrTreeIsValid(tree, size, m.nt(), maxDepth, required));
        EXPECT_EQ(gLive.load(), live0 + 1);  // the tree alone stays
        lumFree(tree);
    } else {
        EXPECT_TRUE(tree == canary && size == -77);
    }
    return {st, calls, gLive.load() - live0};
}

TEST(SahMemory, AdmissionChargesAndStatuses) {
    const SahMesh m = sahSoup(200, 5);
    const Lum32u admission = 84u * Lum32u(m.nt()) + 12u * Lum32u(m.nv()) + 0x20001E0u;
    // Charges: context 400, twelve arrays of 4 nT, two 16 MiB arenas (small
    // mesh), and one whole block for each of polygons, nodes and leaf lists.
    const Lum32u least = 400u + 48u * Lum32u(m.nt()) + 2 * 0x1000000u + 3 * kBlockCharge;
    const struct {
        Lum32u limit;
        LumStatus status;
    } cases[] = {
        {admission - 1, lumStatusNoMem},  // nothing allocated at all
        // The context is made, but the arenas' charge leaves less than a
        // block: the first block request runs the pool dry.
        {admission, lumStatusPoolExhausted},
        {least, lumStatusOk},
        {least - 1, lumStatusPoolExhausted},
    };
    for (const auto& c : cases) {
        const Outcome o = build(m, c.limit);
        EXPECT_EQ(o.status, c.status) << c.limit;
        EXPECT_EQ(o.liveAfterFree, 0) << c.limit;
        if (c.status == lumStatusNoMem) {
            EXPECT_EQ(o.calls, 0) << c.limit;
        }
    }

    // A NaN corner makes the item look like it spans the plane to the
    // classification while the sweep never passes its bounds: the counts
    // disagree.
    SahMesh odd = sahSoup(400, 12);
    odd.tri(odd.vert(NAN, NAN, NAN), odd.vert(0.5f, 0.5f, 0.5f), odd.vert(0.6f, 0.55f, 0.4f));
    const Outcome o = build(odd, 256u << 20);
    EXPECT_EQ(o.status, lumStatusInternal);
    EXPECT_EQ(o.liveAfterFree, 0);
}

// A large triangle in z = 0 clipped to the unit square leaves four corners,
// all made by cutting, 12 bytes each in the vertex arena.  With three
// vertices the arena is one 16 MiB unit, and reaching its end counts as
// full: 1,398,101 corners fit, so 349,525 triangles do and one more does not.
TEST(SahMemory, VertexArenaRunsOutInClipping) {
    const float clip[6] = {-1, -1, -1, 1, 1, 1};
    for (Lum32s n : {349525, 349526}) {
        SahMesh m;
        m.vert(-10, -10, 0);
        m.vert(30, -10, 0);
        m.vert(-10, 30, 0);
        m.t.reserve(size_t(n) * 4);
        for (Lum32s i = 0; i < n; ++i) m.tri(0, 1, 2);
        const Outcome o = build(m, 128u << 20, 0, clip);
        EXPECT_EQ(o.status, n == 349525 ? lumStatusOk : lumStatusPoolExhausted) << n;
        EXPECT_EQ(o.liveAfterFree, 0);
    }
}

// Refusing each allocation in turn: every one ends in lumStatusNoMem with
// nothing left behind, the last one being the final block.
TEST(SahMemory, EveryRefusedAllocationIsNoMemAndReleasesAll) {
    const SahMesh m = sahBumpySphere(12, 16);
    const float clip[6] = {-0.5f, -2, -2, 2, 0.7f, 2};
    for (const float* box : {static_cast<const float*>(nullptr), clip}) {
        const Outcome ok = build(m, 512u << 20, 20, box);
        ASSERT_EQ(ok.status, lumStatusOk);
        ASSERT_GT(ok.calls, 10);  // context, arrays, arenas, blocks, final block
        for (long k = 0; k < ok.calls; ++k) {
            const Outcome o = build(m, 512u << 20, 20, box, k);
            EXPECT_EQ(o.status, lumStatusNoMem) << "allocation " << k;
            EXPECT_EQ(o.liveAfterFree, 0) << "allocation " << k;
        }
    }
}

}  // namespace
