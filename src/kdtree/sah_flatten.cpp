// The working tree written out as the flat block: node pairs in depth-first
// order with the low subtree first, then the lists of the leaves that do not
// fit a compact node, in the same order.  All encoding goes through the
// shared block encoders.
#include <climits>
#include <cstring>

#include "frame/own.h"
#include "kdtree/block.h"
#include "kdtree/sah_context.h"

namespace {

inline const LumSAHNode* localPair(const LumSAHNode* n) {
    return static_cast<const LumSAHNode*>(n->link);
}
inline Lum32f localSplit(const LumSAHNode* n) {
    Lum32f f;
    std::memcpy(&f, &n->value, 4);
    return f;
}

// Nodes other than the root, and list entries, under n.
void localCount(const LumSAHNode* n, int64_t& nodes, int64_t& entries) {
    while (n->kind != kSAHLeafKind) {
        nodes += 2;
        localCount(&localPair(n)[0], nodes, entries);
        n = &localPair(n)[1];
    }
    entries += ownLeafListEntries(static_cast<const Lum32s*>(n->link), Lum32s(n->value));
}

}  // namespace

int64_t ownMeasureTree(const LumSAHNode* root) {
    int64_t nodes = 0, entries = 0;
    localCount(root, nodes, entries);
    return 16 + 8 * nodes + 4 * entries;
}

void ownWriteTree(const LumSAHNode* node, LumKDTreeNode* out, LumKDTreeNode*& nodeCursor,
                  Lum32s*& listCursor) {
    while (node->kind != kSAHLeafKind) {
        LumKDTreeNode* pair = nodeCursor;
        nodeCursor += 2;
        ownWriteInterior(out, node->kind,
                         reinterpret_cast<char*>(pair) - reinterpret_cast<char*>(out),
                         localSplit(node));
        ownWriteTree(&localPair(node)[0], &pair[0], nodeCursor, listCursor);
        node = &localPair(node)[1];
        out = &pair[1];
    }
    ownWriteLeaf(out, static_cast<const Lum32s*>(node->link), Lum32s(node->value), listCursor);
}

LumStatus ownFlattenTree(const LumSAHNode* root, LumKDTreeNode** ppTree, Lum32s* pSize) {
    const int64_t size = ownMeasureTree(root);
    // A block beyond what a Lum32s size can report is refused like any
    // allocation that cannot be had.
    if (size > INT_MAX - 8) return lumStatusNoMem;
    LumKDTreeNode* block = static_cast<LumKDTreeNode*>(ownAlloc64(Lum32s((size >> 3) + 1)));
    if (!block) return lumStatusNoMem;
    block[1].word0 = 0;  // the two words after the root are never read
    block[1].word1 = 0;
    LumKDTreeNode* nodeCursor = block + 2;
    int64_t nodes = 0, entries = 0;
    localCount(root, nodes, entries);
    Lum32s* listCursor = reinterpret_cast<Lum32s*>(block + 2 + nodes);
    ownWriteTree(root, block, nodeCursor, listCursor);
    *ppTree = block;
    *pSize = Lum32s(size);
    return lumStatusOk;
}
