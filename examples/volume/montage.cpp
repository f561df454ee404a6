#include "volume/montage.h"

#include <algorithm>
#include <cmath>

namespace demo {

namespace {

constexpr int kGap = 6;
constexpr uint8_t kBackdrop = 40;

// Slice s of a volume as (columns, rows) and a sampler.
struct Slice {
    const Volume* v;
    int kind;  // 0 axial, 1 coronal, 2 sagittal
    int columns() const { return kind == 2 ? v->height() : v->width(); }
    int rows() const { return kind == 0 ? v->height() : v->depth(); }
    double at(int c, int r) const {
        switch (kind) {
            case 0: return v->get(c, r, v->depth() / 2);
            case 1: return v->get(c, v->height() / 2, v->depth() - 1 - r);
            default: return v->get(v->width() / 2, c, v->depth() - 1 - r);
        }
    }
};

}  // namespace

Image makeMontage(const Volume& before, const Volume& after, double lo, double hi,
                  int minCell) {
    const Volume* vols[2] = {&before, &after};
    int cellW = 1, cellH = 1;
    for (const Volume* v : vols)
        for (int k = 0; k < 3; ++k) {
            const Slice s{v, k};
            if (v->empty()) continue;
            cellW = std::max(cellW, s.columns());
            cellH = std::max(cellH, s.rows());
        }
    const int zoom = std::max(1, (minCell + std::max(cellW, cellH) - 1) / std::max(cellW, cellH));
    const int cw = cellW * zoom, ch = cellH * zoom;
    Image img(3 * cw + 4 * kGap, 2 * ch + 3 * kGap, 1);
    std::fill(img.pixels.begin(), img.pixels.end(), kBackdrop);
    const double span = hi > lo ? hi - lo : 1.0;
    for (int row = 0; row < 2; ++row) {
        const Volume* v = vols[row];
        if (v->empty()) continue;
        for (int k = 0; k < 3; ++k) {
            const Slice s{v, k};
            const int ox = kGap + k * (cw + kGap) + (cw - s.columns() * zoom) / 2;
            const int oy = kGap + row * (ch + kGap) + (ch - s.rows() * zoom) / 2;
            for (int r = 0; r < s.rows(); ++r)
                for (int c = 0; c < s.columns(); ++c) {
                    const double t = (s.at(c, r) - lo) / span;
                    const double g = std::nearbyint(255.0 * std::min(1.0, std::max(0.0, t)));
                    const uint8_t grey = static_cast<uint8_t>(g == g ? g : 0.0);
                    for (int zy = 0; zy < zoom; ++zy)
                        std::fill_n(img.at(ox + c * zoom, oy + r * zoom + zy), zoom, grey);
                }
        }
    }
    return img;
}

}  // namespace demo
