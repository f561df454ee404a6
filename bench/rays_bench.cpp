// Ray generation and normals.  Figures are meant as ratios within one run:
// the eye-ray vector body against its plain loop and against a memset of the
// same three planes, the triangle normal table at one and two threads, and
// the smooth normal's vector body against its plain loop.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "lumr.h"

namespace {

const Lum32f kCorner[3] = {-1.0f, 0.75f, 1.0f};
const Lum32f kStepCol[3] = {0.002f, 0.0f, 0.0001f};
const Lum32f kStepRow[3] = {0.0f, -0.002f, 0.0003f};

struct AlignedPlanes {
    explicit AlignedPlanes(std::size_t n) {
        for (auto*& p : planes) p = static_cast<Lum32f*>(lumMalloc(static_cast<int64_t>(n) * 4));
        pl = {planes[0], planes[1], planes[2]};
    }
    ~AlignedPlanes() {
        for (auto* p : planes) lumFree(p);
    }
    Lum32f* planes[3];
    LumPlanes3 pl;
};

// Square blocks; the plain loop is forced by a width one short of a multiple
// of 4 (the eye generator chooses its body by width alone).
void eye(benchmark::State& state, bool vector, int shift = 0) {
    const int side = static_cast<int>(state.range(0));
    const LumRect2D size{vector ? side : side - 1, side};
    AlignedPlanes out(static_cast<std::size_t>(side) * side + 8);
    const LumPlanes3 planes{out.pl.X + shift, out.pl.Y + shift, out.pl.Z + shift};
    for (auto _ : state) {
        lumrCastEye_32f(kCorner, kStepCol, kStepRow, 1, 2, {side, side}, &planes, size);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * size.width * size.height);
}

void BM_CastEyeVector(benchmark::State& s) { eye(s, true); }
void BM_CastEyePlain(benchmark::State& s) { eye(s, false); }
// Misaligned planes: the same vector body with unaligned stores.
void BM_CastEyeVectorUnaligned(benchmark::State& s) { eye(s, true, 1); }

void BM_Memset3Planes(benchmark::State& state) {
    const int side = static_cast<int>(state.range(0));
    const std::size_t n = static_cast<std::size_t>(side) * side;
    AlignedPlanes out(n);
    for (auto _ : state) {
        for (auto* p : out.planes) std::memset(p, 0, n * 4);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(n));
}

BENCHMARK(BM_CastEyeVector)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_CastEyeVectorUnaligned)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_CastEyePlain)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_Memset3Planes)->Arg(64)->Arg(256)->Arg(1024);

// A grid of 1024 x 512 quads, two triangles each (1M triangles), numbered
// row by row as a mesh exporter would.
struct Mesh {
    static constexpr int kCols = 1024, kRows = 512;
    Mesh() {
        for (int r = 0; r <= kRows; ++r)
            for (int c = 0; c <= kCols; ++c) {
                verts.push_back(0.01f * c);
                verts.push_back(0.01f * r);
                verts.push_back(0.1f * static_cast<Lum32f>((r * 7 + c * 13) % 17));
            }
        for (int r = 0; r < kRows; ++r)
            for (int c = 0; c < kCols; ++c) {
                const Lum32s v = r * (kCols + 1) + c;
                const Lum32s quad[8] = {v, v + 1, v + kCols + 1, 0, v + 1, v + kCols + 2, v + kCols + 1, 0};
                tris.insert(tris.end(), quad, quad + 8);
            }
        norms.resize(3 * tris.size() / 4);
    }
    std::vector<Lum32f> verts;
    std::vector<Lum32s> tris;
    std::vector<Lum32f> norms;
};

void BM_TriangleNormal(benchmark::State& state) {
    static Mesh mesh;
    const Lum32s saved = lumGetNumThreads();
    lumSetNumThreads(static_cast<Lum32s>(state.range(0)));
    const Lum32s count = 1 << 20;
    for (auto _ : state) {
        lumrTriangleNormal_32f(mesh.verts.data(), mesh.tris.data(), mesh.norms.data(), count);
        benchmark::ClobberMemory();
    }
    lumSetNumThreads(saved);
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_TriangleNormal)->Arg(1)->Arg(2)->UseRealTime();

// Hits on a 4k-triangle mesh in runs of four lanes on one triangle half the
// time, the other half scattered, with a tenth of the rays missing.
void smooth(benchmark::State& state, bool vector) {
    const int n = 4096, nt = 1 << 12, nv = nt / 2;
    std::mt19937 rng(2);
    std::uniform_real_distribution<Lum32f> d(-1.0f, 1.0f), w(0.0f, 0.5f);
    Lum32f* vn = static_cast<Lum32f*>(lumMalloc(3 * nv * 4));
    Lum32s* index = static_cast<Lum32s*>(lumMalloc(4 * nt * 4));
    for (int i = 0; i < 3 * nv; ++i) vn[i] = d(rng);
    for (int i = 0; i < 4 * nt; ++i) index[i] = static_cast<Lum32s>(rng() % nv);
    AlignedPlanes hitUV(n), out(n);
    Lum32s* hits = static_cast<Lum32s*>(lumMalloc(n * 4));
    for (int i = 0; i < n; i += 4) {
        const bool shared = rng() % 2 == 0;
        const Lum32s t = static_cast<Lum32s>(rng() % nt);
        for (int j = 0; j < 4; ++j)
            hits[i + j] = rng() % 10 == 0 ? -1 : shared ? t : static_cast<Lum32s>(rng() % nt);
    }
    for (int i = 0; i < n; ++i) hitUV.planes[0][i] = w(rng), hitUV.planes[1][i] = w(rng);
    Lum32f* const uv[2] = {hitUV.planes[0], hitUV.planes[1]};
    const Lum32s len = vector ? n : n - 1;  // an odd length takes the plain loop
    for (auto _ : state) {
        lumrSurfSmoothNormal_32f(vn, index, hits, uv, &out.pl, len, 4);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * len);
    lumFree(vn), lumFree(index), lumFree(hits);
}

void BM_SmoothNormalVector(benchmark::State& s) { smooth(s, true); }
void BM_SmoothNormalPlain(benchmark::State& s) { smooth(s, false); }
BENCHMARK(BM_SmoothNormalVector);
BENCHMARK(BM_SmoothNormalPlain);

}  // namespace

BENCHMARK_MAIN();
