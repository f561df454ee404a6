// Indexed triangle meshes as the library takes them, and their import.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace demo {

enum Material : uint8_t { kModel = 0, kGround = 1 };

struct Mesh {
    std::vector<float> vertices;     // x, y, z per vertex
    std::vector<int32_t> triangles;  // three vertex numbers and an unused fourth
    std::vector<uint8_t> material;   // one per triangle

    int32_t vertexCount() const { return static_cast<int32_t>(vertices.size() / 3); }
    int32_t triangleCount() const { return static_cast<int32_t>(triangles.size() / 4); }
    void addTriangle(int32_t a, int32_t b, int32_t c, uint8_t m) {
        triangles.insert(triangles.end(), {a, b, c, 0});
        material.push_back(m);
    }
};

// Any format the import library reads (OBJ, PLY, OFF, STL and more).
bool importMesh(const std::string& path, Mesh* mesh, std::string* error);
// The Stanford bunny of data/bunny.txt, carried inside the program.
bool loadEmbeddedBunny(Mesh* mesh, std::string* error);
// The plain text form of that file: comment lines starting with '#', then
// "vertexCount triangleCount", x y z per vertex, and three zero-based
// vertex numbers per triangle.  `text` ends with a zero byte.
bool parseMeshText(const char* text, Mesh* mesh, std::string* error);

// Scales and moves the mesh so that it is `height` tall, centred over the
// origin in x and z, and stands on y = 0.  Meshes whose longest side is not
// y are taken as they are (no turning).
void standOnGround(Mesh* mesh, float height);

// Adds a square ground of two triangles at y = 0, `half` to each side.
void addGround(Mesh* mesh, float half);

}  // namespace demo
