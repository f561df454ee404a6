// A mesh made ready for rays: box, triangle records, triangle and vertex
// normals, and the KD-tree, together as the library's LumRayScene.
#pragma once

#include <string>
#include <vector>

#include "common/aligned.h"
#include "lumr.h"
#include "render/mesh.h"

namespace demo {

enum class TreeKind { SAH, List };

struct TreeOptions {
    TreeKind kind = TreeKind::SAH;
    Lum32s maxDepth = 40;
    Lum32f splitQuality = 1.0f;
    Lum32s memoryLimitMB = 256;
};

class Scene {
public:
    Scene() = default;
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    // Builds everything from `mesh` (kept).  On failure returns the status and
    // says which step failed in *error.  If the SAH build is refused the list
    // tree is built instead and *note says so.
    LumStatus build(Mesh mesh, const TreeOptions& options, std::string* error,
                    std::string* note);

    const Mesh& mesh() const { return mesh_; }
    const LumRayScene& rays() const { return view_; }
    const float* bound() const { return bound_; }
    const float* triangleNormals() const { return triNormals_.data(); }
    const float* vertexNormals() const { return vertNormals_.data(); }
    TreeKind treeKind() const { return treeKind_; }
    Lum32s treeBytes() const { return treeBytes_; }
    double buildSeconds() const { return buildSeconds_; }

private:
    Mesh mesh_;
    float bound_[6] = {0, 0, 0, 0, 0, 0};
    AlignedArray<LumTriangleAccel> accel_;
    AlignedArray<float> triNormals_, vertNormals_;
    LumKDTreeNode* tree_ = nullptr;
    Lum32s treeBytes_ = 0;
    TreeKind treeKind_ = TreeKind::SAH;
    double buildSeconds_ = 0.0;
    LumRayScene view_{nullptr, nullptr, nullptr};
};

// Per-vertex normals: the sum of the unit normals of the triangles around a
// vertex, made unit length (zero where they cancel).
void vertexNormalsFrom(const Mesh& mesh, const float* triangleNormals, float* vertexNormals);

}  // namespace demo
