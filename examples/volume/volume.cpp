#include "volume/volume.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace demo {

const char* sampleTypeName(SampleType type) {
    switch (type) {
        case SampleType::U8: return "8u";
        case SampleType::U16: return "16u";
        case SampleType::F32: return "32f";
    }
    return "?";
}

int sampleBytes(SampleType type) {
    switch (type) {
        case SampleType::U8: return 1;
        case SampleType::U16: return 2;
        case SampleType::F32: return 4;
    }
    return 1;
}

bool parseSampleType(const std::string& text, SampleType* type) {
    if (text == "8u") *type = SampleType::U8;
    else if (text == "16u") *type = SampleType::U16;
    else if (text == "32f") *type = SampleType::F32;
    else return false;
    return true;
}

Volume::Volume(SampleType type, int width, int height, int depth)
    : type_(type), width_(width), height_(height), depth_(depth) {
    if (width < 1 || height < 1 || depth < 1) {
        width_ = height_ = depth_ = 0;
        return;
    }
    step_ = static_cast<int32_t>(((int64_t{width} * sampleBytes(type) + 15) / 16) * 16);
    const size_t planeBytes = static_cast<size_t>(step_) * static_cast<size_t>(height);
    storage_.resize(planeBytes * static_cast<size_t>(depth));
    planes_.resize(static_cast<size_t>(depth));
    for (int z = 0; z < depth; ++z) planes_[static_cast<size_t>(z)] = storage_.data() + planeBytes * z;
}

double Volume::get(int x, int y, int z) const {
    switch (type_) {
        case SampleType::U8: return row<uint8_t>(y, z)[x];
        case SampleType::U16: return row<uint16_t>(y, z)[x];
        case SampleType::F32: return row<float>(y, z)[x];
    }
    return 0.0;
}

namespace {
template <class T>
T saturateRound(double v) {
    if (!(v == v)) return T(0);
    const double lo = static_cast<double>(std::numeric_limits<T>::min());
    const double hi = static_cast<double>(std::numeric_limits<T>::max());
    v = std::nearbyint(v);
    return static_cast<T>(v < lo ? lo : (v > hi ? hi : v));
}
}  // namespace

void Volume::set(int x, int y, int z, double value) {
    switch (type_) {
        case SampleType::U8: row<uint8_t>(y, z)[x] = saturateRound<uint8_t>(value); break;
        case SampleType::U16: row<uint16_t>(y, z)[x] = saturateRound<uint16_t>(value); break;
        case SampleType::F32: row<float>(y, z)[x] = static_cast<float>(value); break;
    }
}

void Volume::range(double* lo, double* hi) const {
    double mn = std::numeric_limits<double>::infinity(), mx = -mn;
    for (int z = 0; z < depth_; ++z)
        for (int y = 0; y < height_; ++y)
            for (int x = 0; x < width_; ++x) {
                const double v = get(x, y, z);
                mn = std::min(mn, v);
                mx = std::max(mx, v);
            }
    if (empty()) mn = mx = 0.0;
    *lo = mn;
    *hi = mx;
}

Volume convertVolume(const Volume& src, SampleType to) {
    Volume out(to, src.width(), src.height(), src.depth());
    for (int k = 0; k < 3; ++k) out.spacing[k] = src.spacing[k];
    for (int z = 0; z < src.depth(); ++z)
        for (int y = 0; y < src.height(); ++y)
            for (int x = 0; x < src.width(); ++x) out.set(x, y, z, src.get(x, y, z));
    return out;
}

}  // namespace demo
