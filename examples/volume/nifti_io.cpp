#include "volume/nifti_io.h"

#include <nifti2_io.h>

#include <cstring>
#include <filesystem>
#include <memory>

#include "common/image.h"

namespace demo {

namespace {

struct NimFree {
    void operator()(nifti_image* nim) const { nifti_image_free(nim); }
};
using NimPtr = std::unique_ptr<nifti_image, NimFree>;

// Sample i of the raw data as a double.
double rawAt(const nifti_image* nim, int64_t i) {
    const void* d = nim->data;
    switch (nim->datatype) {
        case DT_UINT8: return static_cast<const uint8_t*>(d)[i];
        case DT_INT8: return static_cast<const int8_t*>(d)[i];
        case DT_UINT16: return static_cast<const uint16_t*>(d)[i];
        case DT_INT16: return static_cast<const int16_t*>(d)[i];
        case DT_UINT32: return static_cast<const uint32_t*>(d)[i];
        case DT_INT32: return static_cast<const int32_t*>(d)[i];
        case DT_FLOAT32: return static_cast<const float*>(d)[i];
        case DT_FLOAT64: return static_cast<const double*>(d)[i];
        default: return 0.0;
    }
}

}  // namespace

bool niftiAvailable() { return true; }

bool readNifti(const std::string& path, Volume* volume, std::string* error) {
    NimPtr nim(nifti_image_read(path.c_str(), 1));
    if (!nim || !nim->data) {
        if (error) *error = "cannot read NIfTI file " + path;
        return false;
    }
    switch (nim->datatype) {
        case DT_UINT8: case DT_INT8: case DT_UINT16: case DT_INT16: case DT_UINT32:
        case DT_INT32: case DT_FLOAT32: case DT_FLOAT64: break;
        default:
            if (error) *error = path + ": sample type " + std::to_string(nim->datatype) +
                                " is not supported (only real scalar types are)";
            return false;
    }
    const int64_t nx = nim->nx, ny = nim->ny > 0 ? nim->ny : 1, nz = nim->nz > 0 ? nim->nz : 1;
    if (nx < 1 || nx > 1 << 16 || ny > 1 << 16 || nz > 1 << 16) {
        if (error) *error = path + ": unsupported extents";
        return false;
    }
    const bool scaled = nim->scl_slope != 0.0 && (nim->scl_slope != 1.0 || nim->scl_inter != 0.0);
    SampleType type = SampleType::F32;
    if (!scaled && nim->datatype == DT_UINT8) type = SampleType::U8;
    if (!scaled && nim->datatype == DT_UINT16) type = SampleType::U16;
    Volume v(type, static_cast<int>(nx), static_cast<int>(ny), static_cast<int>(nz));
    const double spacing[3] = {nim->dx, nim->dy, nim->dz};
    for (int k = 0; k < 3; ++k) v.spacing[k] = spacing[k] > 0.0 ? spacing[k] : 1.0;
    int64_t i = 0;
    for (int z = 0; z < v.depth(); ++z)
        for (int y = 0; y < v.height(); ++y)
            for (int x = 0; x < v.width(); ++x, ++i) {
                double s = rawAt(nim.get(), i);
                if (scaled) s = s * nim->scl_slope + nim->scl_inter;
                v.set(x, y, z, s);
            }
    *volume = std::move(v);
    return true;
}

bool writeNifti(const std::string& path, const Volume& volume, std::string* error) {
    if (volume.empty()) {
        if (error) *error = "nothing to write";
        return false;
    }
    if (!makeParentDirs(path, error)) return false;
    const int64_t dims[8] = {3, volume.width(), volume.height(), volume.depth(), 1, 1, 1, 1};
    int datatype = DT_FLOAT32;
    if (volume.type() == SampleType::U8) datatype = DT_UINT8;
    if (volume.type() == SampleType::U16) datatype = DT_UINT16;
    NimPtr nim(nifti_make_new_nim(dims, datatype, 1));
    if (!nim) {
        if (error) *error = "cannot make a NIfTI image";
        return false;
    }
    nim->dx = nim->pixdim[1] = volume.spacing[0];
    nim->dy = nim->pixdim[2] = volume.spacing[1];
    nim->dz = nim->pixdim[3] = volume.spacing[2];
    nim->xyz_units = NIFTI_UNITS_MM;
    nim->nifti_type = NIFTI_FTYPE_NIFTI1_1;
    const size_t rowBytes = static_cast<size_t>(volume.width()) * sampleBytes(volume.type());
    uint8_t* out = static_cast<uint8_t*>(nim->data);
    for (int z = 0; z < volume.depth(); ++z)
        for (int y = 0; y < volume.height(); ++y, out += rowBytes)
            std::memcpy(out, volume.row<uint8_t>(y, z), rowBytes);
    if (nifti_set_filenames(nim.get(), path.c_str(), 0, 1) != 0) {
        if (error) *error = "not a NIfTI file name: " + path;
        return false;
    }
    std::error_code ec;
    std::filesystem::remove(path, ec);
    nifti_image_write(nim.get());
    if (!std::filesystem::exists(path, ec)) {
        if (error) *error = "cannot write " + path;
        return false;
    }
    return true;
}

}  // namespace demo
