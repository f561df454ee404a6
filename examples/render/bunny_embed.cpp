// The bunny's OBJ text, assembled into the program so that the default scene
// needs no file at run time.
#include "render/mesh.h"

#ifndef DEMO_BUNNY_OBJ
#error "DEMO_BUNNY_OBJ must name the OBJ file to embed"
#endif

asm(".section .rodata\n"
    ".balign 16\n"
    ".type demoBunnyObj, @object\n"
    "demoBunnyObj:\n"
    ".incbin \"" DEMO_BUNNY_OBJ "\"\n"
    "demoBunnyObjEnd:\n"
    ".byte 0\n"
    ".previous\n");

extern "C" const char demoBunnyObj[];
extern "C" const char demoBunnyObjEnd[];

namespace demo {

bool loadEmbeddedBunny(Mesh* mesh, std::string* error) {
    return importMeshFromMemory(demoBunnyObj, static_cast<size_t>(demoBunnyObjEnd - demoBunnyObj),
                                "obj", mesh, error);
}

}  // namespace demo
