// lumr-volume: resamples and filters a 3D volume through lumr and shows the
// result as a montage of middle slices.
#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "common/image.h"
#include "common/progress.h"
#include "lumr.h"
#include "volume/montage.h"
#include "volume/nifti_io.h"
#include "volume/ops.h"
#include "volume/phantom.h"

using namespace demo;

namespace {

const char* kUsage =
    "usage: lumr-volume [options]\n"
    "Input (default: a generated Shepp-Logan-like head phantom)\n"
    "  --input FILE              read a NIfTI volume (.nii or .nii.gz)\n"
    "  --phantom N | WxHxD       phantom extents (default 128)\n"
    "  --type 8u|16u|32f         phantom sample type (default 8u)\n"
    "Steps, run in the order given (default: --swirl 120)\n"
    "  --resize F | FX,FY,FZ     resize by factors\n"
    "  --warp DEG[,SCALE[,AXIS]] turn by DEG about AXIS (x, y or z; default z) and scale,\n"
    "                            about the centre (affine warp)\n"
    "  --swirl DEG               remap through a swirl field about the z axis\n"
    "  --filter 3|5              3x3x3 or 5x5x5 binomial smoothing\n"
    "  --interp NAME|CODE        interpolation of the steps after it: nearest, linear,\n"
    "                            lagrange, bspline, catmullrom (default), cubicbc\n"
    "Output\n"
    "  --montage FILE            PNG of the middle slices before and after\n"
    "                            (default out/volume.png)\n"
    "  --window LO,HI            sample values shown black to white (default: the lower\n"
    "                            half of the input's range, so that soft tissue shows)\n"
    "  --nifti-out FILE          write the result as NIfTI (default out/volume_result.nii.gz\n"
    "                            when the input was NIfTI)\n"
    "  --threads N               threads for lumr and for this tool\n"
    "  --quiet                   no progress bar\n";

struct Step {
    enum Kind { Resize, Warp, Swirl, Filter } kind;
    double a = 0, b = 0, c = 0;
    char axis = 'z';
    Lum32s code = LUM_RESAMPLE_CATMULLROM;
};

[[noreturn]] void fail(const std::string& message) {
    std::fprintf(stderr, "lumr-volume: %s\n", message.c_str());
    std::exit(1);
}

// Up to three comma-separated numbers; returns how many were read.
int parseNumbers(const std::string& text, double out[3]) {
    int n = 0;
    const char* p = text.c_str();
    while (*p && n < 3) {
        char* end = nullptr;
        out[n] = std::strtod(p, &end);
        if (end == p) return -1;
        ++n;
        p = end;
        if (*p == ',') ++p;
        else if (*p) return -1;
    }
    return *p ? -1 : n;
}

std::string describe(const Step& s) {
    char text[160];
    switch (s.kind) {
        case Step::Resize:
            std::snprintf(text, sizeof text, "resize x%g,%g,%g (%s)", s.a, s.b, s.c,
                          interpolationName(s.code));
            break;
        case Step::Warp:
            std::snprintf(text, sizeof text, "warp %g deg about %c, scale %g (%s)", s.a, s.axis,
                          s.b, interpolationName(s.code));
            break;
        case Step::Swirl:
            std::snprintf(text, sizeof text, "swirl %g deg (%s)", s.a, interpolationName(s.code));
            break;
        case Step::Filter:
            std::snprintf(text, sizeof text, "filter %dx%dx%d", static_cast<int>(s.a),
                          static_cast<int>(s.a), static_cast<int>(s.a));
            break;
    }
    return text;
}

std::string extents(const Volume& v) {
    return std::to_string(v.width()) + "x" + std::to_string(v.height()) + "x" +
           std::to_string(v.depth()) + " " + sampleTypeName(v.type());
}

}  // namespace

int main(int argc, char** argv) {
    std::string input, montagePath = "out/volume.png", niftiOut;
    int pw = 128, ph = 128, pd = 128, threads = 0;
    SampleType type = SampleType::U8;
    bool quiet = false;
    double window[3] = {0, 0, 0};
    bool windowGiven = false;
    Lum32s code = LUM_RESAMPLE_CATMULLROM;
    std::vector<Step> steps;

    for (int i = 1; i < argc; ++i) {
        const std::string opt = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) fail("option " + opt + " needs a value");
            return argv[++i];
        };
        double n[3];
        if (opt == "-h" || opt == "--help") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (opt == "--input") {
            input = value();
        } else if (opt == "--phantom") {
            const std::string v = value();
            if (std::sscanf(v.c_str(), "%dx%dx%d", &pw, &ph, &pd) != 3) {
                if (std::sscanf(v.c_str(), "%d", &pw) != 1) fail("bad --phantom " + v);
                ph = pd = pw;
            }
            if (pw < 1 || ph < 1 || pd < 1 || pw > 2048 || ph > 2048 || pd > 2048)
                fail("phantom extents must be 1 to 2048");
        } else if (opt == "--type") {
            if (!parseSampleType(value(), &type)) fail("--type takes 8u, 16u or 32f");
        } else if (opt == "--interp") {
            if (!parseInterpolation(value(), &code)) fail("unknown interpolation");
        } else if (opt == "--resize") {
            const int k = parseNumbers(value(), n);
            if (k != 1 && k != 3) fail("--resize takes F or FX,FY,FZ");
            if (k == 1) n[1] = n[2] = n[0];
            if (!(n[0] > 0 && n[1] > 0 && n[2] > 0) || n[0] > 16 || n[1] > 16 || n[2] > 16)
                fail("resize factors must lie in (0, 16]");
            steps.push_back({Step::Resize, n[0], n[1], n[2], 'z', code});
        } else if (opt == "--warp") {
            std::string v = value();
            char axis = 'z';
            const size_t comma = v.rfind(',');
            if (comma != std::string::npos && comma + 2 == v.size() &&
                (v.back() == 'x' || v.back() == 'y' || v.back() == 'z')) {
                axis = v.back();
                v.resize(comma);
            }
            const int k = parseNumbers(v, n);
            if (k < 1 || k > 2) fail("--warp takes DEG[,SCALE[,AXIS]]");
            if (k == 1) n[1] = 1.0;
            if (!(n[1] > 0.01 && n[1] < 100)) fail("warp scale must lie in (0.01, 100)");
            steps.push_back({Step::Warp, n[0], n[1], 0, axis, code});
        } else if (opt == "--swirl") {
            if (parseNumbers(value(), n) != 1) fail("--swirl takes degrees");
            steps.push_back({Step::Swirl, n[0], 0, 0, 'z', code});
        } else if (opt == "--filter") {
            const std::string v = value();
            if (v != "3" && v != "5") fail("--filter takes 3 or 5");
            steps.push_back({Step::Filter, static_cast<double>(v[0] - '0'), 0, 0, 'z', code});
        } else if (opt == "--montage") {
            montagePath = value();
        } else if (opt == "--window") {
            if (parseNumbers(value(), window) != 2 || !(window[1] > window[0]))
                fail("--window takes LO,HI with LO below HI");
            windowGiven = true;
        } else if (opt == "--nifti-out") {
            niftiOut = value();
        } else if (opt == "--threads") {
            threads = std::atoi(value().c_str());
            if (threads < 1 || threads > 1024) fail("--threads takes 1 to 1024");
        } else if (opt == "--quiet") {
            quiet = true;
        } else {
            fail("unknown option " + opt + " (see --help)");
        }
    }
    if (steps.empty()) steps.push_back({Step::Swirl, 120.0, 0, 0, 'z', code});
    if (threads > 0) {
        omp_set_num_threads(threads);
        lumSetNumThreads(threads);
    }

    std::string error;
    Volume source;
    Stopwatch loadClock;
    if (!input.empty()) {
        if (!readNifti(input, &source, &error)) fail(error);
        if (niftiOut.empty()) niftiOut = "out/volume_result.nii.gz";
        std::printf("input    %s: %s\n", input.c_str(), extents(source).c_str());
    } else {
        source = makePhantom(type, pw, ph, pd);
        std::printf("input    head phantom %s, made in %.3f s\n", extents(source).c_str(),
                    loadClock.seconds());
    }

    double lo, hi;
    source.range(&lo, &hi);
    hi = lo + 0.5 * (hi - lo);
    if (windowGiven) lo = window[0], hi = window[1];
    Volume current;
    const Volume* from = &source;
    double busy = 0.0;
    int64_t produced = 0;
    for (const Step& s : steps) {
        Volume out;
        const std::string what = describe(s);
        Stopwatch clock;
        LumStatus status = lumStatusOk;
        switch (s.kind) {
            case Step::Resize: {
                const int d = std::max(1, static_cast<int>(from->depth() * s.c + 0.5));
                Progress p(what, d, !quiet);
                status = resizeVolume(*from, &out, s.code, s.a, s.b, s.c, &p);
                break;
            }
            case Step::Warp: {
                Progress p(what, from->depth(), !quiet);
                status = warpVolume(*from, &out, s.code, s.a, s.axis, s.b, &p);
                break;
            }
            case Step::Swirl: {
                Progress p(what, from->depth(), !quiet);
                status = swirlVolume(*from, &out, s.code, s.a, &p);
                break;
            }
            case Step::Filter: {
                Progress p(what, from->depth(), !quiet);
                status = filterVolume(*from, &out, static_cast<int>(s.a), &p);
                break;
            }
        }
        const double seconds = clock.seconds();
        if (status < 0) fail(what + " failed with status " + std::to_string(status));
        if (status > 0)
            std::printf("note     %s: status %d (warning), part of the output left at 0\n",
                        what.c_str(), status);
        busy += seconds;
        produced += out.voxels();
        std::printf("step     %-44s %s -> %s  %.3f s  %.1f Mvoxel/s\n", what.c_str(),
                    extents(*from).c_str(), extents(out).c_str(), seconds,
                    out.voxels() / (seconds > 0 ? seconds : 1e-9) / 1e6);
        current = std::move(out);
        from = &current;
    }

    const Image montage = makeMontage(source, current, lo, hi);
    if (!writePng(montagePath, montage, &error)) fail(error);
    std::printf("summary  %zu step(s), %.1f Mvoxel in %.3f s: %.1f Mvoxel/s on %d thread(s)\n",
                steps.size(), produced / 1e6, busy, produced / (busy > 0 ? busy : 1e-9) / 1e6,
                lumGetNumThreads());
    std::printf("wrote    %s (top: before, bottom: after; axial, coronal, sagittal)\n",
                montagePath.c_str());
    if (!niftiOut.empty()) {
        if (!writeNifti(niftiOut, current, &error)) fail(error);
        std::printf("wrote    %s\n", niftiOut.c_str());
    }
    return 0;
}
