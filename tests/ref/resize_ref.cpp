// Per-sample models of the volume resizer; see resize_ref.h.
#include "ref/resize_ref.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

using U32 = std::uint32_t;

int clampi(int v, int lo, int hi) { return v < lo ? lo : v > hi ? hi : v; }

int extent(const ResizeCase& c, int a) {
    return a == 0 ? c.vol.width : a == 1 ? c.vol.height : c.vol.depth;
}

double coordNearest(const ResizeCase& c, int a, int X) {
    const double inv = 1.0 / c.factor[a], off = (0.0 - c.shift[a]) / c.factor[a];
    return inv * (X + 0.5) - 1e-10 + off;
}

template <class T>
using Val = std::conditional_t<std::is_same_v<T, float>, float, U32>;

template <class T>
struct Lin {
    const ResizeCase& c;
    const T* src;
    int nx, ny, nz;

    static float f32(double s) { return static_cast<float>(s - std::floor(s)); }
    static U32 q14(double s) {
        return static_cast<U32>(std::trunc(16384.0 * (s - std::floor(s)) + 1e-7));
    }
    const T* row(int p, int r) const {
        return src + (static_cast<size_t>(p) * ny + r) * static_cast<size_t>(nx);
    }
    // Rim arithmetic: x as (1 - f) a + f b, y as b f + (1 - f) a.
    static Val<T> rimX(const T* row, int ia, int ib, double s) {
        if constexpr (std::is_same_v<T, float>) {
            const float f = f32(s);
            return (1.0f - f) * row[ia] + f * row[ib];
        } else {
            const U32 wb = q14(s), wa = 16384 - wb;
            return (wa * row[ia] + wb * row[ib] + 8192) >> 14;
        }
    }
    static Val<T> rimY(T a, T b, double s) {
        if constexpr (std::is_same_v<T, float>) {
            const float f = f32(s);
            return b * f + (1.0f - f) * a;
        } else {
            const U32 wb = q14(s), wa = 16384 - wb;
            return (wa * a + wb * b + 8192) >> 14;
        }
    }
    // Core x: a + (b - a) f; Q14 for 16u; Q6 for 8u.
    static Val<T> coreX(const T* row, int ix, double s) {
        if constexpr (std::is_same_v<T, float>) {
            const float a = row[ix], b = row[ix + 1];
            return a + (b - a) * f32(s);
        } else {
            const U32 wb = q14(s), wa = 16384 - wb;
            if constexpr (std::is_same_v<T, Lum16u>)
                return (wa * row[ix] + wb * row[ix + 1] + 8192) >> 14;
            else
                return std::min<U32>((wa * row[ix] + wb * row[ix + 1] + 128) >> 8, 32767);
        }
    }
    static Val<T> blend(Val<T> A, Val<T> B, double s, U32 round, int shift) {
        if constexpr (std::is_same_v<T, float>) {
            const float w = f32(s);
            (void)round, (void)shift;
            return (1.0f - w) * A + w * B;
        } else {
            const U32 wb = q14(s), wa = 16384 - wb;
            return (wa * A + wb * B + round) >> shift;
        }
    }
    // One source plane at destination (X, Y): the rim value, or the core
    // value in its stored form (Q6 for 8u unless the plane is final).
    Val<T> plane(int p, int X, int Y, bool final2D, bool* rim) const {
        const double sx = refResizeCoord(c, 0, X), sy = refResizeCoord(c, 1, Y);
        const int ix = static_cast<int>(std::floor(sx)), iy = static_cast<int>(std::floor(sy));
        const bool xl = sx < 0.0, xt = sx >= nx - 1;
        *rim = true;
        if (sy < 0.0 || sy >= ny - 1) {
            const T* r = row(p, sy < 0.0 ? 0 : ny - 1);
            if (xl) return rimX(r, 0, 0, sx);
            if (xt) return rimX(r, nx - 1, nx - 1, sx);
            return rimX(r, ix, ix + 1, sx);
        }
        if (xl) return rimY(row(p, iy)[0], row(p, iy + 1)[0], sy);
        if (xt) return rimY(row(p, iy)[nx - 1], row(p, iy + 1)[nx - 1], sy);
        *rim = false;
        const Val<T> A = coreX(row(p, iy), ix, sx), B = coreX(row(p, iy + 1), ix, sx);
        if (std::is_same_v<T, Lum8u> && final2D) return std::min<U32>(blend(A, B, sy, 524288, 20), 255);
        return blend(A, B, sy, 8192, 14);
    }
    T sample(int X, int Y, int Z) const {
        const double sz = refResizeCoord(c, 2, Z);
        bool rim = false;
        if (sz < 0.0 || sz >= nz - 1)
            return static_cast<T>(plane(sz < 0.0 ? 0 : nz - 1, X, Y, true, &rim));
        const int iz = static_cast<int>(std::floor(sz));
        const Val<T> P = plane(iz, X, Y, false, &rim), Q = plane(iz + 1, X, Y, false, &rim);
        if (std::is_same_v<T, Lum8u> && !rim)
            return static_cast<T>(std::min<U32>(blend(P, Q, sz, 524288, 20), 255));
        return static_cast<T>(blend(P, Q, sz, 8192, 14));
    }
};

}  // namespace

double refResizeCoord(const ResizeCase& c, int a, int X) {
    const double inv = 1.0 / c.factor[a], off = (0.0 - c.shift[a]) / c.factor[a];
    return inv * (X + 0.5) - 0.5 + off;
}

bool refResizeRegion(const ResizeCase& c, int begin[3], int end[3]) {
    const int so[3] = {c.srcBox.x, c.srcBox.y, c.srcBox.z};
    const int se[3] = {c.srcBox.width, c.srcBox.height, c.srcBox.depth};
    const int dor[3] = {c.dstBox.x, c.dstBox.y, c.dstBox.z};
    const int de[3] = {c.dstBox.width, c.dstBox.height, c.dstBox.depth};
    bool ok = true;
    for (int a = 0; a < 3; ++a) {
        const int clipped = std::min(extent(c, a) - so[a], se[a]);
        const double start = so[a] * c.factor[a] + c.shift[a];
        const double stop = (so[a] + clipped) * c.factor[a] + c.shift[a];
        begin[a] = static_cast<int>(std::max(start, double(dor[a])) + 0.4999999999);
        end[a] = static_cast<int>(std::min(stop, double(dor[a] + de[a])) + 0.5000000001);
        ok = ok && begin[a] < end[a];
    }
    return ok;
}

double refTrilinear(const ResizeCase& c, const std::vector<double>& src, int X, int Y, int Z) {
    const int D[3] = {X, Y, Z};
    int i0[3], i1[3];
    double f[3];
    for (int a = 0; a < 3; ++a) {
        const double s = (D[a] + 0.5 - c.shift[a]) / c.factor[a] - 0.5;
        const double fl = std::floor(s);
        f[a] = s - fl;
        i0[a] = clampi(static_cast<int>(fl), 0, extent(c, a) - 1);
        i1[a] = clampi(static_cast<int>(fl) + 1, 0, extent(c, a) - 1);
    }
    auto at = [&](int x, int y, int z) {
        return src[(static_cast<size_t>(z) * c.vol.height + y) * c.vol.width + x];
    };
    double v = 0.0;
    for (int k = 0; k < 8; ++k) {
        const double w = ((k & 1) ? f[0] : 1 - f[0]) * ((k & 2) ? f[1] : 1 - f[1]) *
                         ((k & 4) ? f[2] : 1 - f[2]);
        v += w * at((k & 1) ? i1[0] : i0[0], (k & 2) ? i1[1] : i0[1], (k & 4) ? i1[2] : i0[2]);
    }
    return v;
}

template <class T>
T refNearestSample(const ResizeCase& c, const T* src, int X, int Y, int Z) {
    int idx[3];
    const int D[3] = {X, Y, Z};
    for (int a = 0; a < 3; ++a)
        idx[a] = clampi(static_cast<int>(coordNearest(c, a, D[a])), 0, extent(c, a) - 1);
    return src[(static_cast<size_t>(idx[2]) * c.vol.height + idx[1]) * c.vol.width + idx[0]];
}

template <class T>
T refLinearSample(const ResizeCase& c, const T* src, int X, int Y, int Z) {
    return Lin<T>{c, src, c.vol.width, c.vol.height, c.vol.depth}.sample(X, Y, Z);
}

template Lum8u refNearestSample<Lum8u>(const ResizeCase&, const Lum8u*, int, int, int);
template Lum16u refNearestSample<Lum16u>(const ResizeCase&, const Lum16u*, int, int, int);
template Lum32f refNearestSample<Lum32f>(const ResizeCase&, const Lum32f*, int, int, int);
template Lum8u refLinearSample<Lum8u>(const ResizeCase&, const Lum8u*, int, int, int);
template Lum16u refLinearSample<Lum16u>(const ResizeCase&, const Lum16u*, int, int, int);
template Lum32f refLinearSample<Lum32f>(const ResizeCase&, const Lum32f*, int, int, int);

namespace {

// The C1V and C1PV entry points of a sample type; f and sh are the factors
// and shifts.
template <class T, class... A>
LumStatus callV(const T* s, const double* f, const double* sh, Lum32s code, Lum8u* buf, A... a) {
    if constexpr (sizeof(T) == 1)
        return lumrResize_8u_C1V(s, a..., f[0], f[1], f[2], sh[0], sh[1], sh[2], code, buf);
    else if constexpr (sizeof(T) == 2)
        return lumrResize_16u_C1V(s, a..., f[0], f[1], f[2], sh[0], sh[1], sh[2], code, buf);
    else
        return lumrResize_32f_C1V(s, a..., f[0], f[1], f[2], sh[0], sh[1], sh[2], code, buf);
}
template <class T, class... A>
LumStatus callPV(const T* const* s, const double* f, const double* sh, Lum32s code, Lum8u* buf, A... a) {
    if constexpr (sizeof(T) == 1)
        return lumrResize_8u_C1PV(s, a..., f[0], f[1], f[2], sh[0], sh[1], sh[2], code, buf);
    else if constexpr (sizeof(T) == 2)
        return lumrResize_16u_C1PV(s, a..., f[0], f[1], f[2], sh[0], sh[1], sh[2], code, buf);
    else
        return lumrResize_32f_C1PV(s, a..., f[0], f[1], f[2], sh[0], sh[1], sh[2], code, buf);
}

// A volume as an entry point sees it: rows of w + 2 samples, planes of h + 1
// rows, upright or upside down and back to front, the padding holding 0x5A
// bytes ('Z').  Byte steps carry sizeof(T) - 1 bytes beyond their whole samples,
// which the entry points drop by an arithmetic shift, also when negative.
template <class T>
struct Stored {
    int w, h, d, sign;
    std::vector<T> mem;
    Stored(const std::vector<T>& dense, int w_, int h_, int d_, bool flipped)
        : w(w_), h(h_), d(d_), sign(flipped ? -1 : 1), mem(size_t(w_ + 2) * (h_ + 1) * d_) {
        std::memset(mem.data(), 0x5A, mem.size() * sizeof(T));
        for (int z = 0; z < d; ++z)
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) mem[at(x, y, z)] = dense[(size_t(z) * h + y) * w + x];
    }
    size_t at(int x, int y, int z) const {
        return (size_t(sign > 0 ? z : d - 1 - z) * (h + 1) + (sign > 0 ? y : h - 1 - y)) * (w + 2) + x;
    }
    T* plane(int z) { return mem.data() + at(0, 0, z); }
    Lum32s step() const { return sign * (w + 2) * Lum32s(sizeof(T)) + Lum32s(sizeof(T)) - 1; }
    Lum32s planeStep() const {
        return sign * (w + 2) * (h + 1) * Lum32s(sizeof(T)) + Lum32s(sizeof(T)) - 1;
    }
    // The dense samples back; false if anything beyond a row was written.
    bool takeOut(std::vector<T>& dense) const {
        bool intact = true;
        const T* p = mem.data();
        for (int z = 0; z < d; ++z)
            for (int r = 0; r <= h; ++r)
                for (int x = 0; x < w + 2; ++x, ++p)
                    if (r == h || x >= w) intact = intact && std::memcmp(p, "ZZZZ", sizeof(T)) == 0;
        for (int z = 0; z < d; ++z)
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) dense[(size_t(z) * h + y) * w + x] = mem[at(x, y, z)];
        return intact;
    }
};

}  // namespace

template <class T>
LumStatus refRunResize(const ResizeCase& c, const std::vector<T>& src, std::vector<T>& dst,
                       int code, ResizeForm form, int misalign) {
    Lum32s size = 0;
    const LumStatus bs = lumrResizeGetBufSize(&c.srcBox, &c.dstBox, 1, code, &size);
    if (bs != lumStatusOk) return bs;
    // An exact block: new[] of the size, so an overrun hits the redzone.
    std::vector<Lum8u> raw(static_cast<size_t>(size) + misalign);
    Lum8u* buf = raw.data() + misalign;
    const bool neg = form == ResizeForm::VNegative;
    Stored<T> s(src, c.vol.width, c.vol.height, c.vol.depth, neg);
    Stored<T> o(dst, c.dstVol.width, c.dstVol.height, c.dstVol.depth, neg);
    LumStatus st;
    if (form == ResizeForm::PV) {
        std::vector<const T*> sp(s.d);
        std::vector<T*> dp(o.d);
        for (int z = 0; z < s.d; ++z) sp[z] = s.plane(z);
        for (int z = 0; z < o.d; ++z) dp[z] = o.plane(z);
        st = callPV<T>(sp.data(), c.factor, c.shift, code, buf, &c.vol, s.step(), &c.srcBox, dp.data(),
                    o.step(), &c.dstBox);
    } else {
        st = callV<T>(s.plane(0), c.factor, c.shift, code, buf, &c.vol, s.step(), s.planeStep(),
                      &c.srcBox, o.plane(0), o.step(), o.planeStep(), &c.dstBox);
    }
    EXPECT_TRUE(o.takeOut(dst)) << "a write beyond the rows of the destination";
    return st;
}

template LumStatus refRunResize<Lum8u>(const ResizeCase&, const std::vector<Lum8u>&,
                                       std::vector<Lum8u>&, int, ResizeForm, int);
template LumStatus refRunResize<Lum16u>(const ResizeCase&, const std::vector<Lum16u>&,
                                        std::vector<Lum16u>&, int, ResizeForm, int);
template LumStatus refRunResize<Lum32f>(const ResizeCase&, const std::vector<Lum32f>&,
                                        std::vector<Lum32f>&, int, ResizeForm, int);

#include <random>

template <class T>
std::vector<T> refRandomVolume(const LumVolume& v, unsigned seed) {
    std::mt19937 g(seed);
    std::vector<T> out(static_cast<size_t>(v.width) * v.height * v.depth);
    for (T& s : out) {
        if constexpr (std::is_same_v<T, float>)
            s = std::uniform_real_distribution<float>(-100.0f, 100.0f)(g);
        else
            s = static_cast<T>(g());
    }
    return out;
}
template std::vector<Lum8u> refRandomVolume<Lum8u>(const LumVolume&, unsigned);
template std::vector<Lum16u> refRandomVolume<Lum16u>(const LumVolume&, unsigned);
template std::vector<Lum32f> refRandomVolume<Lum32f>(const LumVolume&, unsigned);

// ---- Cubic family ------------------------------------------------------------

void refCubicCoefs(int code, float f, float out[4]) {
    const float t0 = -1.0f - f;
    const float t[4] = {t0, 1.0f + t0, t0 + 2.0f, t0 + 3.0f};
    for (int m = 0; m < 4; ++m) {
        const double a = std::fabs(double(t[m]));
        double v;
        if (a >= 2.0) {
            v = 0.0;
        } else if (a < 1.0) {
            switch (code) {
                case 4: v = (((a * 0.5) * a - a) - 0.5) * a + 1.0; break;
                case 5: v = ((a * 0.5) * a - a) * a + 0.6666666666666666; break;
                case 6: v = ((a * 1.5 - 2.5) * a) * a + 1.0; break;
                default: v = ((a * 0.95 - 1.7) * a) * a + 0.8333333333333334; break;
            }
        } else if (a >= 1.0) {
            switch (code) {
                case 4: v = (((-0.16666666666666666 * a) * a + a) - 1.8333333333333333) * a + 1.0; break;
                case 5: v = ((-0.16666666666666666 * a) * a + a) * a + ((1.3333333333333333 - a) - a); break;
                case 6: v = ((-0.5 * a + 2.5) * a + -4.0) * a + 2.0; break;
                default: v = ((-0.38333333333333336 * a + 2.0) * a + -3.4) * a + 1.8666666666666667; break;
            }
        } else {
            v = 1.0;
        }
        out[m] = static_cast<float>(v);
    }
}

namespace {

enum CubicClass { kA, kB, kCore, kC, kD, kClamped };

struct CubicPos {
    CubicClass cls;
    int i;
    float k[4];
    int taps[4];  // class tap list
};

CubicPos cubicPos(const ResizeCase& c, int code, int axis, int X) {
    const int n = extent(c, axis);
    const double s = refResizeCoord(c, axis, X);
    CubicPos p;
    p.i = static_cast<int>(std::floor(s));
    refCubicCoefs(code, static_cast<float>(s - std::floor(s)), p.k);
    if (n < 3) p.cls = kClamped;
    else if (s < 0) p.cls = kA;
    else if (s < 1) p.cls = kB;
    else if (s >= n - 1) p.cls = kD;
    else if (s >= n - 2) p.cls = kC;
    else p.cls = kCore;
    const int lists[5][4] = {{0, 0, 0, 1}, {0, 0, 1, 2}, {p.i - 1, p.i, p.i + 1, p.i + 2},
                             {n - 3, n - 2, n - 1, n - 1}, {n - 2, n - 1, n - 1, n - 1}};
    for (int m = 0; m < 4; ++m)
        p.taps[m] = p.cls == kClamped ? clampi(p.i - 1 + m, 0, n - 1) : lists[p.cls][m];
    return p;
}

float sum4(const float* k, float a, float b, float c, float d) {
    return (k[0] * a + k[1] * b) + (k[2] * c + k[3] * d);
}

template <class T>
struct Cub {
    const ResizeCase& c;
    const T* src;
    int code;
    bool negativeRowStep;
    int nx, ny;

    float at(int p, int y, int x) const {
        return float(src[(static_cast<size_t>(p) * ny + y) * nx + x]);
    }
    // Plain x filter of one source row with the column's class tap list.
    float rowX(int p, int y, const CubicPos& px) const {
        return sum4(px.k, at(p, y, px.taps[0]), at(p, y, px.taps[1]), at(p, y, px.taps[2]),
                    at(p, y, px.taps[3]));
    }
    // Merged x filter of a rim column.
    float colX(int p, int y, const CubicPos& px) const {
        const float* k = px.k;
        const int n = nx;
        switch (px.cls) {
            case kA: return ((k[0] + k[1]) + k[2]) * at(p, y, 0) + k[3] * at(p, y, 1);
            case kB: return (k[3] * at(p, y, 2) + (k[0] + k[1]) * at(p, y, 0)) + k[2] * at(p, y, 1);
            case kC: return ((k[2] + k[3]) * at(p, y, n - 1) + k[0] * at(p, y, n - 3)) + k[1] * at(p, y, n - 2);
            case kD: return k[0] * at(p, y, n - 2) + ((k[1] + k[2]) + k[3]) * at(p, y, n - 1);
            default: return rowX(p, y, px);
        }
    }
    float plane(int p, int X, int Y, bool* rim) const {
        const CubicPos px = cubicPos(c, code, 0, X), py = cubicPos(c, code, 1, Y);
        const float* k = py.k;
        *rim = py.cls != kCore || px.cls != kCore;
        switch (py.cls) {
            case kA: return ((k[0] + k[1]) + k[2]) * rowX(p, 0, px) + k[3] * rowX(p, 1, px);
            case kB: return ((k[0] + k[1]) * rowX(p, 0, px) + k[3] * rowX(p, 2, px)) + k[2] * rowX(p, 1, px);
            case kC:
            case kD:
            case kClamped: {
                int t[4] = {py.taps[0], py.taps[1], py.taps[2], py.taps[3]};
                if (py.cls == kD && negativeRowStep) {
                    // Class d keeps the rows of the class c row before it in the
                    // region, or row 0 four times.
                    int b[3], e[3];
                    refResizeRegion(c, b, e);
                    bool cBefore = false;
                    for (int y = b[1]; y < Y; ++y) cBefore = cBefore || cubicPos(c, code, 1, y).cls == kC;
                    const int cRows[4] = {ny - 3, ny - 2, ny - 1, ny - 1};
                    for (int m = 0; m < 4; ++m) t[m] = cBefore ? cRows[m] : 0;
                }
                return sum4(k, rowX(p, t[0], px), rowX(p, t[1], px), rowX(p, t[2], px), rowX(p, t[3], px));
            }
            default: break;
        }
        const int i = py.i;
        if (px.cls != kCore)
            return sum4(k, colX(p, i - 1, px), colX(p, i, px), colX(p, i + 1, px), colX(p, i + 2, px));
        return sum4(k, rowX(p, i - 1, px), rowX(p, i, px), rowX(p, i + 1, px), rowX(p, i + 2, px));
    }
    T sample(int X, int Y, int Z) const {
        const CubicPos pz = cubicPos(c, code, 2, Z);
        bool rim = false;
        float v[4];
        for (int m = 0; m < 4; ++m) v[m] = plane(pz.taps[m], X, Y, &rim);
        const float r = sum4(pz.k, v[0], v[1], v[2], v[3]);
        if constexpr (std::is_same_v<T, float>) {
            return r;
        } else {
            const int hi = std::is_same_v<T, Lum8u> ? 255 : 65535;
            if (rim) return static_cast<T>(clampi(static_cast<int>(std::trunc(double(r) + 0.5000001)), 0, hi));
            return static_cast<T>(clampi(static_cast<int>(std::trunc(r)), 0, hi));
        }
    }
};

}  // namespace

template <class T>
T refCubicSample(const ResizeCase& c, const T* src, int code, int X, int Y, int Z,
                 bool negativeRowStep) {
    return Cub<T>{c, src, code, negativeRowStep, c.vol.width, c.vol.height}.sample(X, Y, Z);
}
template Lum8u refCubicSample<Lum8u>(const ResizeCase&, const Lum8u*, int, int, int, int, bool);
template Lum16u refCubicSample<Lum16u>(const ResizeCase&, const Lum16u*, int, int, int, int, bool);
template Lum32f refCubicSample<Lum32f>(const ResizeCase&, const Lum32f*, int, int, int, int, bool);
