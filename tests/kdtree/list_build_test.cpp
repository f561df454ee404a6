// The build front end: its check order, the list build's block word for
// word, and that a failed call leaves the outputs alone.
#include <gtest/gtest.h>

#include <cmath>

#include "lumr.h"

namespace {

constexpr Lum32u kList = Lum32u(lumKDTreeTagList), kSAH = Lum32u(lumKDTreeTagSAH);
LumKDTreeNode* const kCanaryTree = reinterpret_cast<LumKDTreeNode*>(0x1234);

// Builds one triangle with canary outputs; on failure checks they were kept.
LumStatus Build(Lum32u tag, Lum32s maxDepth, Lum32f quality = 0.5f, Lum32s limitMB = 64) {
    static const Lum32f v[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    static const Lum32s t[4] = {0, 1, 2, 0};
    const LumKDTreeBuildParams params{tag, maxDepth, quality, limitMB, nullptr};
    LumKDTreeNode* tree = kCanaryTree;
    Lum32s size = -77;
    const LumStatus st = lumrKDTreeBuildAlloc(&tree, v, t, 3, 1, &size, &params);
    if (st == lumStatusOk) {
        lumrKDTreeFree(tree);
    } else {
        EXPECT_EQ(tree, kCanaryTree);
        EXPECT_EQ(size, -77);
    }
    return st;
}

TEST(ListBuild, BlockWordForWord) {
    // The list build reads neither vertices nor triangles, so one float and
    // one index stand in for arrays of a thousand.
    const Lum32f oneVertex = 0;
    const Lum32s oneIndex = 0;
    const LumKDTreeBuildParams params{kList, 10, 0.5f, 64, nullptr};
    for (Lum32s n : {0, 1, 3, 1000}) {
        LumKDTreeNode* tree = nullptr;
        Lum32s size = 0;
        ASSERT_EQ(lumrKDTreeBuildAlloc(&tree, &oneVertex, &oneIndex, 1000, n, &size, &params),
                  lumStatusOk);
        ASSERT_NE(tree, nullptr);
        EXPECT_EQ(size, 16 + 4 * n);
        const Lum32u* w = reinterpret_cast<const Lum32u*>(tree);
        EXPECT_EQ(w[0], 0xFFFFFFF0u);  // the list stands 16 bytes after the root
        EXPECT_EQ(w[1], Lum32u(n));    // a list even for one triangle; 0 is empty
        EXPECT_EQ(w[2], 0u);
        EXPECT_EQ(w[3], 0u);
        for (Lum32s i = 0; i < n; ++i) ASSERT_EQ(w[4 + i], Lum32u(i));
        lumrKDTreeFree(tree);
    }
    lumrKDTreeFree(nullptr);  // passed on as it stands
}

TEST(ListBuild, ChecksInOrder) {
    const LumKDTreeBuildParams ok{kList, 10, 0.5f, 64, nullptr};
    const Lum32f v = 0;
    const Lum32s t = 0;
    LumKDTreeNode* tree = kCanaryTree;
    Lum32s size = -77;
    // Pointers first, each one alone.
    EXPECT_EQ(lumrKDTreeBuildAlloc(nullptr, &v, &t, 1, 1, &size, &ok), lumStatusNullPtr);
    EXPECT_EQ(lumrKDTreeBuildAlloc(&tree, nullptr, &t, 1, 1, &size, &ok), lumStatusNullPtr);
    EXPECT_EQ(lumrKDTreeBuildAlloc(&tree, &v, nullptr, 1, 1, &size, &ok), lumStatusNullPtr);
    EXPECT_EQ(lumrKDTreeBuildAlloc(&tree, &v, &t, 1, 1, nullptr, &ok), lumStatusNullPtr);
    // A null pointer beats a bad size; a bad size beats a null parameter block.
    EXPECT_EQ(lumrKDTreeBuildAlloc(&tree, nullptr, &t, -1, -1, &size, nullptr), lumStatusNullPtr);
    EXPECT_EQ(lumrKDTreeBuildAlloc(&tree, &v, &t, -1, 1, &size, nullptr), lumStatusSize);
    EXPECT_EQ(lumrKDTreeBuildAlloc(&tree, &v, &t, 1, -1, &size, nullptr), lumStatusSize);
    EXPECT_EQ(lumrKDTreeBuildAlloc(&tree, &v, &t, 1, 1, &size, nullptr), lumStatusNullPtr);
    EXPECT_EQ(tree, kCanaryTree);
    EXPECT_EQ(size, -77);

    // Tags: a single flipped bit of either is unknown.
    for (Lum32u tag : {kList, kSAH})
        for (int bit : {0, 7, 31}) EXPECT_EQ(Build(tag ^ (1u << bit), 10), lumStatusBadArg);
    // Depth: 0 and 50 pass, -1 and 51 fail, for both tags.
    for (Lum32u tag : {kList, kSAH}) {
        for (Lum32s depth : {-1, 51}) EXPECT_EQ(Build(tag, depth), lumStatusBadBuildParam);
        for (Lum32s depth : {0, 50}) EXPECT_EQ(Build(tag, depth, 0.5f, 128), lumStatusOk);
    }
}

TEST(SahFrontEnd, QualityAndMemoryLimit) {
    // Depth before quality, quality before the memory limit.
    EXPECT_EQ(Build(kSAH, 51, NAN, 0), lumStatusBadBuildParam);
    EXPECT_EQ(Build(kSAH, 10, -0.5f, 0), lumStatusBadBuildParam);
    EXPECT_EQ(Build(kSAH, 10, 1.0000001f, 0), lumStatusBadBuildParam);
    // The limit shifted left by 19 in 32 bits must reach 0x1000000: 31 MiB
    // fails, and so does any limit whose remainder modulo 8192 is below 32;
    // 4096 passes with a byte limit of 0, which the build refuses.
    for (Lum32s mb : {0, 31, 8192 + 31, 8192 * 3, -8192, 4096})
        EXPECT_EQ(Build(kSAH, 10, 0.5f, mb), lumStatusNoMem) << mb;
    // These pass every check of the front end (a NaN quality included) and
    // reach the build: its admission needs a little over 32 MiB, 33 MiB then
    // leaves no room for its two 16 MiB arenas and a chunk of each list, and
    // 128 MiB or -1 (a byte limit of 0xFFF00000) build.
    for (Lum32f q : {0.0f, 1.0f, Lum32f(NAN)}) {
        EXPECT_EQ(Build(kSAH, 10, q, 32), lumStatusNoMem);
        EXPECT_EQ(Build(kSAH, 10, q, 33), lumStatusPoolExhausted);
        for (Lum32s mb : {128, 8192 + 128, -1}) EXPECT_EQ(Build(kSAH, 10, q, mb), lumStatusOk) << mb;
    }
}

}  // namespace
