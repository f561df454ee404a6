// lumr-render: ray-traces a triangle mesh on a ground plane into a PNG.
#include <omp.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/image.h"
#include "common/progress.h"
#include "render/mesh.h"
#include "render/renderer.h"
#include "render/scene.h"
#include "render/sky.h"

using namespace demo;

namespace {

const char* kUsage =
    "usage: lumr-render [options] [MESH]\n"
    "  MESH                 OBJ, PLY, OFF, STL or any other format the import library\n"
    "                       reads (default: the Stanford bunny built into the program)\n"
    "  --size WxH           image size (default 800x600)\n"
    "  --eye X,Y,Z          camera position (default -1.2,1.0,2.6)\n"
    "  --target X,Y,Z       point looked at (default 0,0.42,0)\n"
    "  --fov DEG            vertical field of view (default 36)\n"
    "  --light X,Y,Z        key light position (default -2.4,3.6,1.6)\n"
    "  --power P            key light power (default 45)\n"
    "  --threads N          threads for the blocks and for lumr (default: all)\n"
    "  --block N            block edge in pixels (default 16)\n"
    "  --tree sah|list      KD-tree build (default sah)\n"
    "  --no-shadows, --no-reflections, --no-ground\n"
    "  --out FILE           output PNG (default out/render.png)\n"
    "  --quiet              no progress bar\n"
    "The mesh is scaled to stand 1 unit tall on the ground at the origin; y is up.\n";

[[noreturn]] void fail(const std::string& message) {
    std::fprintf(stderr, "lumr-render: %s\n", message.c_str());
    std::exit(1);
}

void parse3(const std::string& opt, const std::string& text, float out[3]) {
    if (std::sscanf(text.c_str(), "%f,%f,%f", &out[0], &out[1], &out[2]) != 3)
        fail(opt + " takes X,Y,Z");
}

}  // namespace

int main(int argc, char** argv) {
    RenderOptions options;
    std::string meshPath, outPath = "out/render.png";
    TreeOptions tree;
    bool ground = true;
    int threads = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string opt = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) fail("option " + opt + " needs a value");
            return argv[++i];
        };
        if (opt == "-h" || opt == "--help") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (opt == "--size") {
            const std::string v = value();
            if (std::sscanf(v.c_str(), "%dx%d", &options.width, &options.height) != 2 ||
                options.width < 1 || options.height < 1 || options.width > 16384 ||
                options.height > 16384)
                fail("--size takes WxH, 1 to 16384 each");
        } else if (opt == "--eye") {
            parse3(opt, value(), options.camera.eye);
        } else if (opt == "--target") {
            parse3(opt, value(), options.camera.target);
        } else if (opt == "--fov") {
            options.camera.fovDegrees = std::strtof(value().c_str(), nullptr);
            if (!(options.camera.fovDegrees > 1.0f && options.camera.fovDegrees < 170.0f))
                fail("--fov takes 1 to 170 degrees");
        } else if (opt == "--light") {
            parse3(opt, value(), options.light.position);
        } else if (opt == "--power") {
            options.light.power = std::strtof(value().c_str(), nullptr);
            if (!(options.light.power >= 0.0f)) fail("--power takes a number of 0 or more");
        } else if (opt == "--threads") {
            threads = std::atoi(value().c_str());
            if (threads < 1 || threads > 1024) fail("--threads takes 1 to 1024");
        } else if (opt == "--block") {
            options.block = std::atoi(value().c_str());
            if (options.block < 4 || options.block > 256) fail("--block takes 4 to 256");
        } else if (opt == "--tree") {
            const std::string v = value();
            if (v == "sah") tree.kind = TreeKind::SAH;
            else if (v == "list") tree.kind = TreeKind::List;
            else fail("--tree takes sah or list");
        } else if (opt == "--no-shadows") {
            options.shadows = false;
        } else if (opt == "--no-reflections") {
            options.reflections = false;
        } else if (opt == "--no-ground") {
            ground = false;
        } else if (opt == "--out") {
            outPath = value();
        } else if (opt == "--quiet") {
            options.progress = false;
        } else if (!opt.empty() && opt[0] == '-') {
            fail("unknown option " + opt + " (see --help)");
        } else if (meshPath.empty()) {
            meshPath = opt;
        } else {
            fail("only one mesh file");
        }
    }
    if (threads > 0) {
        omp_set_num_threads(threads);
        lumSetNumThreads(threads);
    }

    std::string error, note;
    Mesh mesh;
    Stopwatch loadClock;
    if (meshPath.empty() ? !loadEmbeddedBunny(&mesh, &error) : !importMesh(meshPath, &mesh, &error))
        fail(error);
    const double loadSeconds = loadClock.seconds();
    standOnGround(&mesh, 1.0f);
    if (ground) addGround(&mesh, 4.0f);
    const double l = std::sqrt(options.light.position[0] * options.light.position[0] +
                               options.light.position[1] * options.light.position[1] +
                               options.light.position[2] * options.light.position[2]);
    for (int k = 0; k < 3; ++k)
        options.sky.sun[k] = static_cast<float>(l > 0 ? options.light.position[k] / l : (k == 1));

    Scene scene;
    if (scene.build(std::move(mesh), tree, &error, &note) != lumStatusOk)
        fail("scene setup failed at " + error);
    if (!note.empty()) std::fprintf(stderr, "lumr-render: note: %s\n", note.c_str());

    ShLighting lighting;
    Stopwatch shClock;
    if (lighting.init(2) != lumStatusOk || lighting.project(options.sky, 4096) != lumStatusOk)
        fail("spherical-harmonic lighting setup failed");
    const double shSeconds = shClock.seconds();

    Image image;
    RenderStats stats;
    if (!render(scene, lighting, options, &image, &stats, &error)) fail(error);
    if (!writePng(outPath, image, &error)) fail(error);

    const int64_t total = stats.eyeRays + stats.shadowRays + stats.reflectionRays;
    std::printf("scene    %s: %d triangles, %d vertices (loaded in %.3f s)\n",
                meshPath.empty() ? "Stanford bunny (built in)" : meshPath.c_str(),
                scene.mesh().triangleCount(), scene.mesh().vertexCount(), loadSeconds);
    std::printf("build    box, records, normals and %s tree (%d bytes) in %.3f s; SH sky (band 2, "
                "4096 samples) in %.3f s\n",
                scene.treeKind() == TreeKind::SAH ? "SAH" : "list", scene.treeBytes(),
                scene.buildSeconds(), shSeconds);
    std::printf("rays     eye %lld, shadow %lld, reflection %lld: %lld in all\n",
                static_cast<long long>(stats.eyeRays), static_cast<long long>(stats.shadowRays),
                static_cast<long long>(stats.reflectionRays), static_cast<long long>(total));
    std::printf("render   %dx%d in %.3f s on %d thread(s): %.2f Mrays/s\n", options.width,
                options.height, stats.seconds, stats.threads,
                total / (stats.seconds > 0 ? stats.seconds : 1e-9) / 1e6);
    std::printf("wrote    %s\n", outPath.c_str());
    return 0;
}
