// A planar volume as the library's C1PV functions take it: one pointer per z
// plane, rows of `step` bytes, one channel of 8u, 16u or 32f samples.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/aligned.h"

namespace demo {

enum class SampleType { U8, U16, F32 };

const char* sampleTypeName(SampleType type);  // "8u", "16u", "32f"
int sampleBytes(SampleType type);
bool parseSampleType(const std::string& text, SampleType* type);

class Volume {
public:
    Volume() = default;
    // Zero-filled; rows padded to a multiple of 16 bytes.
    Volume(SampleType type, int width, int height, int depth);
    Volume(Volume&&) = default;
    Volume& operator=(Volume&&) = default;

    SampleType type() const { return type_; }
    int width() const { return width_; }
    int height() const { return height_; }
    int depth() const { return depth_; }
    int32_t step() const { return step_; }  // bytes from row to row
    int64_t voxels() const { return int64_t{width_} * height_ * depth_; }
    bool empty() const { return voxels() == 0; }

    // Voxel spacing carried from and to files; the library ignores it.
    double spacing[3] = {1.0, 1.0, 1.0};

    template <class T>
    T* row(int y, int z) {
        return reinterpret_cast<T*>(planes_[static_cast<size_t>(z)] + static_cast<int64_t>(y) * step_);
    }
    template <class T>
    const T* row(int y, int z) const {
        return reinterpret_cast<const T*>(planes_[static_cast<size_t>(z)] +
                                          static_cast<int64_t>(y) * step_);
    }
    // Plane pointer arrays in the form the C1PV functions take.
    template <class T>
    std::vector<T*> planes() {
        std::vector<T*> out(planes_.size());
        for (size_t z = 0; z < planes_.size(); ++z) out[z] = reinterpret_cast<T*>(planes_[z]);
        return out;
    }
    template <class T>
    std::vector<const T*> planes() const {
        std::vector<const T*> out(planes_.size());
        for (size_t z = 0; z < planes_.size(); ++z)
            out[z] = reinterpret_cast<const T*>(planes_[z]);
        return out;
    }

    // Any sample as a double, and back with rounding and saturation.
    double get(int x, int y, int z) const;
    void set(int x, int y, int z, double value);
    void range(double* lo, double* hi) const;  // over all samples

private:
    SampleType type_ = SampleType::U8;
    int width_ = 0, height_ = 0, depth_ = 0;
    int32_t step_ = 0;
    AlignedArray<uint8_t> storage_;
    std::vector<uint8_t*> planes_;
};

// Converts every sample to another type (rounding and saturating).
Volume convertVolume(const Volume& src, SampleType to);

}  // namespace demo
