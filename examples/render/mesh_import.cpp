#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <assimp/Importer.hpp>
#include <cfloat>

#include "render/mesh.h"

namespace demo {

namespace {

// Normals, texture coordinates and colours are dropped before corners are
// joined, so that faces share vertices by position alone (STL stores a normal
// per face) and smooth normals can be made from the triangles around them.
constexpr unsigned kSteps = aiProcess_RemoveComponent | aiProcess_Triangulate |
                            aiProcess_JoinIdenticalVertices | aiProcess_PreTransformVertices |
                            aiProcess_SortByPType;
constexpr int kDropped = aiComponent_NORMALS | aiComponent_TANGENTS_AND_BITANGENTS |
                         aiComponent_COLORS | aiComponent_TEXCOORDS;

bool collect(const aiScene* scene, Mesh* mesh, std::string* error, const std::string& what) {
    if (!scene) return false;
    Mesh out;
    for (unsigned m = 0; m < scene->mNumMeshes; ++m) {
        const aiMesh* src = scene->mMeshes[m];
        if (!(src->mPrimitiveTypes & aiPrimitiveType_TRIANGLE)) continue;
        const int32_t base = out.vertexCount();
        for (unsigned v = 0; v < src->mNumVertices; ++v)
            out.vertices.insert(out.vertices.end(),
                                {src->mVertices[v].x, src->mVertices[v].y, src->mVertices[v].z});
        for (unsigned f = 0; f < src->mNumFaces; ++f) {
            const aiFace& face = src->mFaces[f];
            if (face.mNumIndices != 3) continue;
            out.addTriangle(base + static_cast<int32_t>(face.mIndices[0]),
                            base + static_cast<int32_t>(face.mIndices[1]),
                            base + static_cast<int32_t>(face.mIndices[2]), kModel);
        }
    }
    if (out.triangleCount() == 0) {
        if (error) *error = what + " holds no triangles";
        return false;
    }
    *mesh = std::move(out);
    return true;
}

}  // namespace

bool importMesh(const std::string& path, Mesh* mesh, std::string* error) {
    Assimp::Importer importer;
    importer.SetPropertyInteger(AI_CONFIG_PP_RVC_FLAGS, kDropped);
    const aiScene* scene = importer.ReadFile(path, kSteps);
    if (!scene) {
        if (error) *error = "cannot import " + path + ": " + importer.GetErrorString();
        return false;
    }
    return collect(scene, mesh, error, path);
}

void standOnGround(Mesh* mesh, float height) {
    float lo[3] = {FLT_MAX, FLT_MAX, FLT_MAX}, hi[3] = {-FLT_MAX, -FLT_MAX, -FLT_MAX};
    for (size_t i = 0; i < mesh->vertices.size(); i += 3)
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], mesh->vertices[i + k]);
            hi[k] = std::max(hi[k], mesh->vertices[i + k]);
        }
    const float tall = hi[1] - lo[1];
    const float scale = tall > 0.0f ? height / tall : 1.0f;
    const float shift[3] = {-(lo[0] + hi[0]) * 0.5f, -lo[1], -(lo[2] + hi[2]) * 0.5f};
    for (size_t i = 0; i < mesh->vertices.size(); i += 3)
        for (int k = 0; k < 3; ++k)
            mesh->vertices[i + k] = (mesh->vertices[i + k] + shift[k]) * scale;
}

void addGround(Mesh* mesh, float half) {
    const int32_t base = mesh->vertexCount();
    mesh->vertices.insert(mesh->vertices.end(), {-half, 0.0f, -half, half, 0.0f, -half,
                                                 half, 0.0f, half, -half, 0.0f, half});
    // Counter-clockwise seen from above: normals point up.
    mesh->addTriangle(base + 0, base + 2, base + 1, kGround);
    mesh->addTriangle(base + 0, base + 3, base + 2, kGround);
}

}  // namespace demo
