// An independent reader of KD-tree blocks, for any suite that builds trees.
// It decodes the block from the format rules alone (it does not use the
// library's block accessors) and checks that the block is exactly what a
// writer following those rules produces: node encodings, child pairs placed
// depth-first with the low subtree first, lists in the same order right
// after the nodes, compact leaves wherever the numbers fit, the reported
// size, the depth bound, and which triangles are reachable.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "lumr.h"

struct TreeReport {
    std::string error;           // empty when the block is well formed
    int64_t nodes = 0;           // all nodes, root included
    int64_t leaves = 0;          // leaves with at least one triangle
    int64_t emptyLeaves = 0;
    int64_t compactLeaves = 0;
    int64_t listEntries = 0;
    int64_t references = 0;      // triangle numbers over all leaves
    int depth = 0;               // deepest leaf, root at 0
    std::vector<char> reached;   // per triangle: stands in some leaf
    double averagePerLeaf() const { return leaves ? double(references) / double(leaves) : 0.0; }
};

// Reads the block of size bytes built for nTriangles triangles.  With
// requireCompact, a list leaf whose numbers fit a compact node is an error
// (the list build writes lists only and passes false).
TreeReport lumrInspectTree(const LumKDTreeNode* tree, Lum32s size, Lum32s nTriangles,
                           Lum32s maxDepth, bool requireCompact = true);

// Well formed, and every triangle with required[t] != 0 (all of them when
// required is empty) stands in at least one leaf.
::testing::AssertionResult lumrTreeIsValid(const LumKDTreeNode* tree, Lum32s size,
                                           Lum32s nTriangles, Lum32s maxDepth,
                                           const std::vector<char>& required = {},
                                           bool requireCompact = true);

// Calls leaf(triangles) for every leaf whose cell meets the closed query
// box (min x, y, z, max x, y, z).  Cells are cut by the split planes alone.
void lumrTreeVisitBox(const LumKDTreeNode* tree, const float* query,
                      const std::function<void(const std::vector<Lum32s>&)>& leaf);

// Every finite point of every triangle (inside the clip box, when one is
// given) lies in a leaf that lists the triangle: the leaves meeting a tiny
// box around three random points inside each triangle include it.
::testing::AssertionResult lumrTreeCoversTriangles(const LumKDTreeNode* tree, const float* vertices,
                                                   const Lum32s* triangles, Lum32s nTriangles,
                                                   const float* clip, uint32_t seed);
