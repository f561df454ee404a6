// Affine warp against a peer toolkit's resampling filter (affine transform,
// linear interpolation) on the same input as bench/warp_bench.cpp: a 256^3
// volume rotated by 20 degrees about z and scaled by 1.2, into a 256 x 256 x
// 32 box.  Both run in this process, interleaved, best of a few runs.
// Built as build/bench/warp_itk when CMake finds the toolkit (Debian:
// libinsighttoolkit5-dev); `warp_itk --json out.json` also writes the rows.
#include <itkAffineTransform.h>
#include <itkImage.h>
#include <itkLinearInterpolateImageFunction.h>
#include <itkMultiThreaderBase.h>
#include <itkResampleImageFilter.h>

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "lumr.h"

namespace {

constexpr int kN = 256, kDz = 32, kZ0 = 112;

// Best of a few runs by the given clock: process CPU time for one thread
// (other work on a shared machine does not count), wall time for two.
template <class F>
double bestSeconds(clockid_t clock, F&& f, int repeats = 5) {
    auto now = [clock] {
        timespec ts;
        clock_gettime(clock, &ts);
        return ts.tv_sec + 1e-9 * ts.tv_nsec;
    };
    double best = 1e30;
    for (int r = 0; r < repeats; ++r) {
        const double t = now();
        f();
        best = std::min(best, now() - t);
    }
    return best;
}

std::string rows;  // JSON objects, comma-separated

template <class T>
void run(const char* name) {
    using Image = itk::Image<T, 3>;
    auto input = Image::New();
    typename Image::RegionType region;
    region.SetSize({kN, kN, kN});
    input->SetRegions(region);
    input->Allocate();
    T* data = input->GetBufferPointer();
    for (size_t n = 0; n < size_t(kN) * kN * kN; ++n) {
        const size_t x = n % kN, y = (n / kN) % kN, z = n / (size_t(kN) * kN);
        data[n] = T(120.0 + 100.0 * std::sin(x * 0.05) * std::cos(y * 0.07) + (z % 7));
    }
    // Forward map 1.2 R (p - c) + c; the filter wants the inverse.
    const double a = 20.0 * 3.14159265358979323846 / 180.0, s = 1.2, m = 127.5;
    Lum64f c[3][4] = {{s * std::cos(a), -s * std::sin(a), 0, 0}, {s * std::sin(a), s * std::cos(a), 0, 0}, {0, 0, s, 0}};
    for (int i = 0; i < 3; ++i) c[i][3] = m - (c[i][0] + c[i][1] + c[i][2]) * m;
    auto transform = itk::AffineTransform<double, 3>::New();
    typename itk::AffineTransform<double, 3>::MatrixType fwd;
    typename itk::AffineTransform<double, 3>::OutputVectorType off;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) fwd(i, j) = c[i][j];
        off[i] = c[i][3];
    }
    transform->SetMatrix(fwd);
    transform->SetOffset(off);
    auto inverse = itk::AffineTransform<double, 3>::New();
    transform->GetInverse(inverse);

    auto filter = itk::ResampleImageFilter<Image, Image>::New();
    filter->SetInput(input);
    filter->SetTransform(inverse);
    filter->SetInterpolator(itk::LinearInterpolateImageFunction<Image, double>::New());
    filter->SetSize({kN, kN, kDz});
    typename Image::PointType origin;
    origin[0] = 0, origin[1] = 0, origin[2] = kZ0;
    filter->SetOutputOrigin(origin);

    std::vector<const T*> ps(kN);
    std::vector<T> dst(size_t(kN) * kN * kN);
    std::vector<T*> pd(kN);
    for (int k = 0; k < kN; ++k) ps[k] = data + size_t(k) * kN * kN, pd[k] = dst.data() + size_t(k) * kN * kN;
    const LumVolume sv{kN, kN, kN};
    const LumBox box{0, 0, 0, kN, kN, kN}, dbox{0, 0, kZ0, kN, kN, kDz};
    auto lumr = [&] {
        if constexpr (sizeof(T) == 1)
            lumrWarpAffine_8u_C1PV(ps.data(), &sv, kN, &box, pd.data(), kN, &dbox, c, LUM_RESAMPLE_LINEAR);
        else
            lumrWarpAffine_32f_C1PV(ps.data(), &sv, kN * 4, &box, pd.data(), kN * 4, &dbox, c, LUM_RESAMPLE_LINEAR);
    };
    const double voxels = double(kN) * kN * kDz;
    for (int threads : {1, 2}) {
        itk::MultiThreaderBase::SetGlobalDefaultNumberOfThreads(threads);
        filter->SetNumberOfWorkUnits(threads);
        lumSetNumThreads(threads);
        const clockid_t clock = threads == 1 ? CLOCK_PROCESS_CPUTIME_ID : CLOCK_MONOTONIC;
        const double peer = voxels / bestSeconds(clock, [&] { filter->Modified(); filter->Update(); }) / 1e6;
        const double mine = voxels / bestSeconds(clock, lumr) / 1e6;
        std::printf("%s linear, %d thread(s) (%s): peer %.1f Mvoxel/s, lumr %.1f Mvoxel/s, ratio %.2fx\n",
                    name, threads, threads == 1 ? "cpu" : "wall", peer, mine, mine / peer);
        char row[320];
        std::snprintf(row, sizeof row,
                      "%s{\"case\": \"%s linear\", \"unit\": \"Mvoxel/s\", \"lumr\": %.6g, "
                      "\"peer\": %.6g, \"peer_name\": \"ITK ResampleImageFilter linear\", "
                      "\"clock\": \"%s\", \"threads\": %d}",
                      rows.empty() ? "" : ",\n ", name, mine, peer,
                      threads == 1 ? "cpu" : "wall", threads);
        rows += row;
    }
}

}  // namespace

int main(int argc, char** argv) {
    const char* json = argc == 3 && std::strcmp(argv[1], "--json") == 0 ? argv[2] : nullptr;
    if (argc != 1 && !json) {
        std::fprintf(stderr, "usage: %s [--json out.json]\n", argv[0]);
        return 2;
    }
    run<unsigned char>("8u");
    run<float>("32f");
    if (json) {
        FILE* out = std::fopen(json, "w");
        if (!out) return 1;
        std::fprintf(out, "[%s]\n", rows.c_str());
        std::fclose(out);
    }
    return 0;
}
