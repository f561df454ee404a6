// 8-bit images and their PNG files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace demo {

// Rows top to bottom, `channels` bytes per pixel (1 grey, 3 RGB).
struct Image {
    int width = 0;
    int height = 0;
    int channels = 3;
    std::vector<uint8_t> pixels;

    Image() = default;
    Image(int w, int h, int c) : width(w), height(h), channels(c),
        pixels(static_cast<size_t>(w) * h * c, 0) {}
    uint8_t* at(int x, int y) {
        return pixels.data() + (static_cast<size_t>(y) * width + x) * channels;
    }
    const uint8_t* at(int x, int y) const {
        return pixels.data() + (static_cast<size_t>(y) * width + x) * channels;
    }
};

// Writes an 8-bit grey or RGB PNG.  Creates missing parent folders.  On
// failure returns false and says why in *error.
bool writePng(const std::string& path, const Image& image, std::string* error);

// Reads an 8-bit grey or RGB PNG (other forms are converted to those two).
bool readPng(const std::string& path, Image* image, std::string* error);

// Creates the folder that will hold `path`, with its parents.
bool makeParentDirs(const std::string& path, std::string* error);

// 0..1 linear light to an sRGB-like 8-bit value (gamma 2.2, clamped).
uint8_t toDisplay8(float linear);

}  // namespace demo
