// The bunny of data/bunny.txt, assembled into the program so that the
// default scene needs no file at run time.
#include <cstdlib>
#include <string>

#include "render/mesh.h"

#ifndef DEMO_BUNNY_TEXT
#error "DEMO_BUNNY_TEXT must name the mesh file to embed"
#endif

asm(".section .rodata\n"
    ".balign 16\n"
    ".type demoBunnyText, @object\n"
    "demoBunnyText:\n"
    ".incbin \"" DEMO_BUNNY_TEXT "\"\n"
    "demoBunnyTextEnd:\n"
    ".byte 0\n"
    ".previous\n");

extern "C" const char demoBunnyText[];
extern "C" const char demoBunnyTextEnd[];

namespace demo {

bool parseMeshText(const char* text, Mesh* mesh, std::string* error) {
    auto fail = [&](const char* why) {
        if (error) *error = std::string("mesh text: ") + why;
        return false;
    };
    const char* p = text;
    // Comment lines first.
    while (*p == '#' || *p == '\n' || *p == '\r') {
        if (*p == '#')
            while (*p && *p != '\n') ++p;
        if (*p) ++p;
    }
    char* end = nullptr;
    const long nv = std::strtol(p, &end, 10);
    if (end == p) return fail("no vertex count");
    p = end;
    const long nt = std::strtol(p, &end, 10);
    if (end == p) return fail("no triangle count");
    p = end;
    if (nv < 3 || nt < 1 || nv > (1L << 24) || nt > (1L << 24)) return fail("bad counts");
    Mesh out;
    out.vertices.resize(static_cast<size_t>(nv) * 3);
    for (float& v : out.vertices) {
        v = std::strtof(p, &end);
        if (end == p) return fail("too few vertex coordinates");
        p = end;
    }
    for (long t = 0; t < nt; ++t) {
        int32_t idx[3];
        for (int32_t& i : idx) {
            const long v = std::strtol(p, &end, 10);
            if (end == p) return fail("too few triangle entries");
            if (v < 0 || v >= nv) return fail("a triangle names a missing vertex");
            i = static_cast<int32_t>(v);
            p = end;
        }
        out.addTriangle(idx[0], idx[1], idx[2], kModel);
    }
    *mesh = std::move(out);
    return true;
}

bool loadEmbeddedBunny(Mesh* mesh, std::string* error) {
    // The assembler adds a terminating zero after the file.
    (void)demoBunnyTextEnd;
    return parseMeshText(demoBunnyText, mesh, error);
}

}  // namespace demo
