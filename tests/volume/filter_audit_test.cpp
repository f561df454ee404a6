// Volume filter: the 32-bit arithmetic of the vector store, and the flip and
// anchor of the general vector rows on all three axes, with values worked
// out by hand from the definition.
#include <gtest/gtest.h>

#include <vector>

#include "lumr.h"

namespace {

// A dense volume with `pad` samples of room on every side; plane pointers
// may be indexed below 0.
struct PaddedVolume {
    PaddedVolume(Lum32s w, Lum32s h, Lum32s d, Lum32s pad)
        : pad(pad), stepN(w + 2 * pad), rows(h + 2 * pad),
          data(static_cast<size_t>(stepN) * rows * (d + 2 * pad), 0), planes(d + 2 * pad) {
        for (Lum32s z = 0; z < d + 2 * pad; ++z)
            planes[z] = data.data() + (static_cast<size_t>(z) * rows + pad) * stepN + pad;
    }
    Lum16s& at(Lum32s x, Lum32s y, Lum32s z) { return planes[z + pad][y * stepN + x]; }
    Lum32s pad, stepN, rows;
    std::vector<Lum16s> data;
    std::vector<Lum16s*> planes;
};

struct Output {
    LumStatus status;
    std::vector<Lum16s> v;  // x fastest
};

Output filter(PaddedVolume& src, LumVolume dv, const std::vector<Lum32s>& kernel, LumVolume kv,
              LumPoint3D anchor, Lum32s divisor) {
    Lum32s size = 0;
    EXPECT_EQ(lumrFilterGetBufSize(&dv, &kv, 1, &size), lumStatusOk);
    std::vector<Lum8u> buf(size);
    std::vector<Lum16s> out(static_cast<size_t>(dv.width) * dv.height * dv.depth, 0x7777);
    std::vector<Lum16s*> dst(dv.depth);
    for (Lum32s z = 0; z < dv.depth; ++z) dst[z] = out.data() + static_cast<size_t>(z) * dv.width * dv.height;
    std::vector<const Lum16s*> sp(src.planes.begin(), src.planes.end());
    const LumStatus st =
        lumrFilter_16s_C1PV(sp.data() + src.pad, src.stepN * 2, dst.data(), dv.width * 2, &dv,
                            kernel.data(), &kv, &anchor, divisor, buf.data());
    return Output{st, out};
}

// Three taps of a 3x3x3 kernel (sum 4, all inside the table range, so the
// vector path runs at width 16) meet samples 32767, -32768 and 30000:
//   a = 32766 * 32767 + (-32767) * (-32768) + 5 * 30000 = 2147469778.
// Divisor 65536 is the shift mode with sh = 16, half = 32768.
// Vector store, 32-bit: (a >>> 16) & 1 = 32767 & 1 = 1, and
//   a + 32767 + 1 = 2147502546 wraps to -2147464750, >> 16 = -32768.
// Scalar path, 64-bit sum: t = 32767, u = (51666 + 32768 + 1 - 1) >> 16 = 1,
//   t + u = 32768, clamped to 32767.
TEST(FilterAudit, ShiftRoundingWrapsInTheVectorStoreOnly) {
    std::vector<Lum32s> k(27, 0);
    k[0] = 32766, k[1] = -32767, k[2] = 5;  // i = 0, 1, 2 of row 0, plane 0
    for (Lum32s width : {16, 15}) {
        PaddedVolume s(width, 1, 1, 3);
        // Anchor (2, 0, 0): element i meets src(x + 2 - i, y, z).
        for (Lum32s x = -3; x < width + 3; ++x) {
            const Lum32s r = ((x % 3) + 3) % 3;
            s.at(x, 0, 0) = r == 2 ? 32767 : r == 1 ? -32768 : 30000;
        }
        const Output o = filter(s, LumVolume{width, 1, 1}, k, LumVolume{3, 3, 3},
                                LumPoint3D{2, 0, 0}, 65536);
        ASSERT_EQ(o.status, lumStatusOk);
        // Only outputs whose taps see 32767, -32768, 30000 in that order have
        // the worked sum: x + 2 = 2 (mod 3).
        for (Lum32s x = 0; x < width; x += 3)
            EXPECT_EQ(o.v[x], width >= 16 ? -32768 : 32767) << "width " << width << " x " << x;
    }
}

// One element set in kernels of the general branch (an even and an odd width,
// extents from 3 up, so the vector rows run from width 16) meets the sample
// at position + anchor - (i, j, k).  Width 27 ends in a step of sixteen, one
// of eight and three single samples.
TEST(FilterAudit, GeneralVectorRowsFlipOnEveryAxis) {
    struct Case {
        LumVolume kv;
        Lum32s i, j, k;
        LumPoint3D anchor;
    };
    const Case cases[] = {
        {{4, 3, 5}, 3, 0, 4, {1, 2, 0}},  {{4, 3, 5}, 0, 2, 1, {-2, 1, 3}},
        {{7, 3, 3}, 6, 1, 0, {3, 1, 1}},  {{7, 3, 3}, 0, 0, 2, {0, 0, 2}},
        {{3, 4, 3}, 1, 3, 2, {2, -1, 1}}, {{5, 5, 3}, 4, 4, 0, {4, 0, 2}},
    };
    const Lum32s w = 27, h = 3, d = 2, pad = 8;
    PaddedVolume s(w, h, d, pad);
    for (Lum32s z = -pad; z < d + pad; ++z)
        for (Lum32s y = -pad; y < h + pad; ++y)
            for (Lum32s x = -pad; x < w + pad; ++x)
                s.at(x, y, z) = static_cast<Lum16s>(1000 * z + 100 * y + x);
    for (const Case& c : cases) {
        std::vector<Lum32s> k(static_cast<size_t>(c.kv.width) * c.kv.height * c.kv.depth, 0);
        k[(static_cast<size_t>(c.k) * c.kv.height + c.j) * c.kv.width + c.i] = 3;
        const Output o = filter(s, LumVolume{w, h, d}, k, c.kv, c.anchor, 3);
        ASSERT_EQ(o.status, lumStatusOk);
        size_t n = 0;
        for (Lum32s z = 0; z < d; ++z)
            for (Lum32s y = 0; y < h; ++y)
                for (Lum32s x = 0; x < w; ++x, ++n)
                    ASSERT_EQ(o.v[n], s.at(x + c.anchor.x - c.i, y + c.anchor.y - c.j,
                                           z + c.anchor.z - c.k))
                        << c.kv.width << "x" << c.kv.height << "x" << c.kv.depth << " at " << x
                        << "," << y << "," << z;
    }
}

}  // namespace
