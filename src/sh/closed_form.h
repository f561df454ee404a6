// Closed-form real spherical harmonics, bands 0 to 15, written once over a
// lane type (sh/lanes.h).  Powers of x, y and z are Lum32f product chains;
// they are widened, and the polynomials and constants are Lum64f.  Bands 0 to
// 4 are written out here with their factoring; bands 5 to 15 come from the
// generated sh/closed_bands.h.
#pragma once

#include "sh/closed_terms.h"
#include "sh/lanes.h"

template <>
struct ShBand<0> {
    template <class D, class Sink>
    static void put(const ShTerms<D>&, Sink& s, int off) {
        s.putConst(off, 0.28209479177387814);
    }
};

// Deliberate: bands 1 to 4 keep their constants exactly as this library has
// always written them.  Seven of them (1.092548430592079, 0.5462742152960395,
// 1.445305721320277, 2.890611442640554, 0.1057855469152043, 1.770130769779931,
// 2.503342941796705) lie an ulp or so of binary64 from the exact value, which
// can move the last bit of a Lum32f result; the generated bands are exact.
template <>
struct ShBand<1> {
    template <class D, class Sink>
    static void put(const ShTerms<D>& t, Sink& s, int off) {
        s.put(off + 0, -0.4886025119029199 * t.y[1]);
        s.put(off + 1, 0.4886025119029199 * t.z[1]);
        s.put(off + 2, -0.4886025119029199 * t.x[1]);
    }
};

template <>
struct ShBand<2> {
    template <class D, class Sink>
    static void put(const ShTerms<D>& t, Sink& s, int off) {
        const D *x = t.x, *y = t.y, *z = t.z;
        s.put(off + 0, 1.092548430592079 * (x[1] * y[1]));
        s.put(off + 1, -1.092548430592079 * (y[1] * z[1]));
        s.put(off + 2, 0.31539156525252 * (3.0 * z[2] - 1.0));
        s.put(off + 3, -1.092548430592079 * (x[1] * z[1]));
        s.put(off + 4, 0.5462742152960395 * (x[2] - y[2]));
    }
};

template <>
struct ShBand<3> {
    template <class D, class Sink>
    static void put(const ShTerms<D>& t, Sink& s, int off) {
        const D *x = t.x, *y = t.y, *z = t.z;
        const D z5m1 = 5.0 * z[2] - 1.0;
        s.put(off + 0, 0.5900435899266435 * (y[3] - 3.0 * (x[2] * y[1])));
        s.put(off + 1, 2.890611442640554 * ((x[1] * y[1]) * z[1]));
        s.put(off + 2, -0.4570457994644657 * (y[1] * z5m1));
        s.put(off + 3, 0.3731763325901154 * (z[1] * (5.0 * z[2] - 3.0)));
        s.put(off + 4, -0.4570457994644657 * (x[1] * z5m1));
        s.put(off + 5, 1.445305721320277 * (z[1] * (x[2] - y[2])));
        s.put(off + 6, -0.5900435899266435 * (x[3] - 3.0 * (x[1] * y[2])));
    }
};

template <>
struct ShBand<4> {
    template <class D, class Sink>
    static void put(const ShTerms<D>& t, Sink& s, int off) {
        const D *x = t.x, *y = t.y, *z = t.z;
        const D xy = x[1] * y[1], x2my2 = x[2] - y[2];
        const D z7m1 = 7.0 * z[2] - 1.0, z7m3 = 7.0 * z[2] - 3.0;
        s.put(off + 0, 2.503342941796705 * (xy * x2my2));
        s.put(off + 1, -1.770130769779931 * (z[1] * (3.0 * (x[2] * y[1]) - y[3])));
        s.put(off + 2, 0.94617469575756 * (xy * z7m1));
        s.put(off + 3, -0.6690465435572892 * ((y[1] * z[1]) * z7m3));
        s.put(off + 4, 0.1057855469152043 * ((35.0 * z[4] - 30.0 * z[2]) + 3.0));
        s.put(off + 5, -0.6690465435572892 * ((x[1] * z[1]) * z7m3));
        s.put(off + 6, 0.47308734787878 * (x2my2 * z7m1));
        s.put(off + 7, -1.770130769779931 * (z[1] * (x[3] - 3.0 * (x[1] * y[2]))));
        s.put(off + 8, 0.6258357354491761 * ((x[4] - 6.0 * (x[2] * y[2])) + y[4]));
    }
};

#include "sh/closed_bands.h"

// The running powers of one lane group and the terms built from them.
template <class Ln>
struct ShPowers {
    using F = typename Ln::F;
    F x, y, z;     // the direction
    F px, py;      // the current Lum32f powers of x and y
    F z2, pz;      // z^2 and the current even power of z, a chain of products by z^2
    ShTerms<typename Ln::D> t;

    // Terms of band l: x^l and y^l, one Lum32f product each; for even l
    // z^l, one Lum32f product by z^2 (odd powers of z are never formed: an
    // odd polynomial in z is z times an even one); Re, Im of (x + iy)^l.
    template <int l>
    void step() {
        if constexpr (l == 1) {
            px = x, py = y;
            t.z[1] = Ln::widen(z);
        } else {
            px = px * x, py = py * y;
        }
        if constexpr (l == 2) {
            z2 = z * z, pz = z2;
        } else if constexpr (l % 2 == 0) {
            pz = pz * z2;
        }
        if constexpr (l % 2 == 0) t.z[l] = Ln::widen(pz);
        t.x[l] = Ln::widen(px), t.y[l] = Ln::widen(py);
        ShReIm<l>::run(t);
    }
};

// Bands l to L of a block, band after band; band k lands at offset k * k.
template <class Ln, int l, class Sink>
inline void ownSHClosedFrom(ShPowers<Ln>& p, unsigned L, Sink& s) {
    p.template step<l>();
    ShBand<l>::put(p.t, s, l * l);
    if constexpr (l < 15) {
        if (L > static_cast<unsigned>(l)) ownSHClosedFrom<Ln, l + 1>(p, L, s);
    }
}

// The block of bands 0 to L (L at most 15) of the lane group (x, y, z).
template <class Ln, class Sink>
inline void ownSHClosedBlock(typename Ln::F x, typename Ln::F y, typename Ln::F z, unsigned L,
                             Sink& s) {
    ShPowers<Ln> p;
    p.x = x, p.y = y, p.z = z;
    ShBand<0>::put(p.t, s, 0);
    if (L > 0) ownSHClosedFrom<Ln, 1>(p, L, s);
}

template <class Ln, int l>
inline void ownSHStepsUpTo(ShPowers<Ln>& p) {
    if constexpr (l >= 1) {
        ownSHStepsUpTo<Ln, l - 1>(p);
        p.template step<l>();
    }
}

// Band L alone, at offsets 0 to 2L: the same terms and expansion as in the
// block, so the same bits.
template <class Ln, int L, class Sink>
inline void ownSHClosedBandOnly(typename Ln::F x, typename Ln::F y, typename Ln::F z, Sink& s) {
    ShPowers<Ln> p;
    p.x = x, p.y = y, p.z = z;
    ownSHStepsUpTo<Ln, L>(p);
    ShBand<L>::put(p.t, s, 0);
}

// Sinks: round each Lum64f result to Lum32f and store it, for one direction
// straight into its block, for eight into lane-major rows.
struct ShSink1 {
    Lum32f* p;
    void put(int i, Lum64f v) { p[i] = static_cast<Lum32f>(v); }
    void putConst(int i, Lum64f v) { p[i] = static_cast<Lum32f>(v); }
};

struct ShSink8 {
    ShF8* p;
    void put(int i, ShD8 v) { p[i] = ShLane8::narrow(v); }
    void putConst(int i, Lum64f v) { p[i] = ShLane8::splat(static_cast<Lum32f>(v)); }
};
