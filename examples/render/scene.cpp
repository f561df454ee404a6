#include "render/scene.h"

#include <cmath>

#include "common/progress.h"

namespace demo {

Scene::~Scene() {
    if (tree_) lumrKDTreeFree(tree_);
}

void vertexNormalsFrom(const Mesh& mesh, const float* triangleNormals, float* vertexNormals) {
    const size_t nv = static_cast<size_t>(mesh.vertexCount());
    std::vector<double> sum(nv * 3, 0.0);
    for (int32_t t = 0; t < mesh.triangleCount(); ++t)
        for (int c = 0; c < 3; ++c) {
            const size_t v = static_cast<size_t>(mesh.triangles[static_cast<size_t>(4 * t + c)]);
            for (int k = 0; k < 3; ++k) sum[3 * v + k] += triangleNormals[3 * t + k];
        }
    for (size_t v = 0; v < nv; ++v) {
        const double len = std::sqrt(sum[3 * v] * sum[3 * v] + sum[3 * v + 1] * sum[3 * v + 1] +
                                     sum[3 * v + 2] * sum[3 * v + 2]);
        for (int k = 0; k < 3; ++k)
            vertexNormals[3 * v + k] = len > 1e-12 ? static_cast<float>(sum[3 * v + k] / len) : 0.0f;
    }
}

LumStatus Scene::build(Mesh mesh, const TreeOptions& options, std::string* error,
                       std::string* note) {
    mesh_ = std::move(mesh);
    const Lum32s nv = mesh_.vertexCount(), nt = mesh_.triangleCount();
    for (int32_t i : mesh_.triangles)
        if (i < 0 || i >= nv) {
            if (error) *error = "a triangle names a vertex that does not exist";
            return lumStatusBadArg;
        }
    Stopwatch clock;
    LumStatus s = lumrSetBoundBox_32f(mesh_.vertices.data(), nv, bound_);
    if (s != lumStatusOk) {
        if (error) *error = "scene box";
        return s;
    }
    Lum32s recordBytes = 0;
    lumrTriangleAccelGetSize(&recordBytes);
    accel_.resize(static_cast<size_t>(nt) * static_cast<size_t>(recordBytes) / sizeof(LumTriangleAccel));
    lumrTriangleAccelInit(accel_.data(), mesh_.vertices.data(), mesh_.triangles.data(), nt);

    triNormals_.resize(static_cast<size_t>(nt) * 3);
    s = lumrTriangleNormal_32f(mesh_.vertices.data(), mesh_.triangles.data(), triNormals_.data(), nt);
    if (s != lumStatusOk) {
        if (error) *error = "triangle normals";
        return s;
    }
    vertNormals_.resize(static_cast<size_t>(nv) * 3);
    vertexNormalsFrom(mesh_, triNormals_.data(), vertNormals_.data());

    LumKDTreeBuildParams params{};
    params.tag = options.kind == TreeKind::SAH ? lumKDTreeTagSAH : lumKDTreeTagList;
    params.maxDepth = options.maxDepth;
    params.splitQuality = options.splitQuality;
    params.memoryLimitMB = options.memoryLimitMB;
    params.pClipBox = nullptr;
    treeKind_ = options.kind;
    s = lumrKDTreeBuildAlloc(&tree_, mesh_.vertices.data(), mesh_.triangles.data(), nv, nt,
                             &treeBytes_, &params);
    if (s != lumStatusOk && options.kind == TreeKind::SAH) {
        if (note)
            *note = "the SAH build answered status " + std::to_string(s) +
                    "; using the list tree (every ray tests every triangle)";
        params.tag = lumKDTreeTagList;
        treeKind_ = TreeKind::List;
        s = lumrKDTreeBuildAlloc(&tree_, mesh_.vertices.data(), mesh_.triangles.data(), nv, nt,
                                 &treeBytes_, &params);
    }
    if (s != lumStatusOk) {
        tree_ = nullptr;
        if (error) *error = "KD-tree build";
        return s;
    }
    buildSeconds_ = clock.seconds();
    view_ = LumRayScene{bound_, accel_.data(), tree_};
    return lumStatusOk;
}

}  // namespace demo
