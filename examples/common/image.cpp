#include "common/image.h"

#include <png.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace demo {

bool makeParentDirs(const std::string& path, std::string* error) {
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    if (parent.empty()) return true;
    std::error_code ec;
    std::filesystem::create_directories(parent, ec);
    if (ec) {
        if (error) *error = "cannot create " + parent.string() + ": " + ec.message();
        return false;
    }
    return true;
}

namespace {

// libpng reports through longjmp; these wrappers keep it to one place.
struct PngFile {
    FILE* f = nullptr;
    ~PngFile() {
        if (f) std::fclose(f);
    }
};

}  // namespace

bool writePng(const std::string& path, const Image& image, std::string* error) {
    if (image.channels != 1 && image.channels != 3) {
        if (error) *error = "only grey and RGB images are written";
        return false;
    }
    if (image.width < 1 || image.height < 1 ||
        image.pixels.size() != static_cast<size_t>(image.width) * image.height * image.channels) {
        if (error) *error = "image has no pixels or an inconsistent size";
        return false;
    }
    if (!makeParentDirs(path, error)) return false;
    PngFile file;
    file.f = std::fopen(path.c_str(), "wb");
    if (!file.f) {
        if (error) *error = "cannot open " + path + ": " + std::strerror(errno);
        return false;
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!png || !info) {
        png_destroy_write_struct(&png, &info);
        if (error) *error = "out of memory in the PNG writer";
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        if (error) *error = "PNG writer failed on " + path;
        return false;
    }
    png_init_io(png, file.f);
    png_set_IHDR(png, info, static_cast<png_uint_32>(image.width),
                 static_cast<png_uint_32>(image.height), 8,
                 image.channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < image.height; ++y)
        png_write_row(png, const_cast<png_bytep>(image.at(0, y)));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    if (std::fflush(file.f) != 0) {
        if (error) *error = "cannot write " + path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

bool readPng(const std::string& path, Image* image, std::string* error) {
    PngFile file;
    file.f = std::fopen(path.c_str(), "rb");
    if (!file.f) {
        if (error) *error = "cannot open " + path + ": " + std::strerror(errno);
        return false;
    }
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!png || !info) {
        png_destroy_read_struct(&png, &info, nullptr);
        if (error) *error = "out of memory in the PNG reader";
        return false;
    }
    Image out;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        if (error) *error = path + " is not a readable PNG";
        return false;
    }
    png_init_io(png, file.f);
    png_read_info(png, info);
    png_set_strip_16(png);
    png_set_strip_alpha(png);
    png_set_packing(png);
    png_set_expand(png);  // palettes and small grey depths to 8 bits
    png_read_update_info(png, info);
    const int colorType = png_get_color_type(png, info);
    const int channels = (colorType & PNG_COLOR_MASK_COLOR) ? 3 : 1;
    out = Image(static_cast<int>(png_get_image_width(png, info)),
                static_cast<int>(png_get_image_height(png, info)), channels);
    if (png_get_rowbytes(png, info) != static_cast<size_t>(out.width) * channels) {
        png_destroy_read_struct(&png, &info, nullptr);
        if (error) *error = path + " has a pixel form this reader does not take";
        return false;
    }
    for (int y = 0; y < out.height; ++y) png_read_row(png, out.at(0, y), nullptr);
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    *image = std::move(out);
    return true;
}

namespace {

// The gamma curve sampled at 2^14 + 1 points: a pixel needs no pow, and the
// nearest sample is within a hundredth of a grey level of the curve.
constexpr int kGammaSteps = 1 << 14;

struct GammaTable {
    uint8_t level[kGammaSteps + 1];
    GammaTable() {
        for (int i = 0; i <= kGammaSteps; ++i) {
            const double v = std::pow(static_cast<double>(i) / kGammaSteps, 1.0 / 2.2) * 255.0 + 0.5;
            level[i] = static_cast<uint8_t>(v > 255.0 ? 255.0 : v);
        }
    }
};

}  // namespace

uint8_t toDisplay8(float linear) {
    static const GammaTable table;
    if (!(linear > 0.0f)) return 0;  // negatives and NaN
    if (linear >= 1.0f) return 255;
    return table.level[static_cast<int>(linear * kGammaSteps + 0.5f)];
}

}  // namespace demo
