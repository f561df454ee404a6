// The cubic coefficient routines.  Each tap's distance to the sample point is
// formed in single precision from the fraction, widened to double, and the
// piecewise polynomial evaluated in double in the order written; the four
// coefficients are not normalised afterwards.
#include <cmath>

#include "volume/resize/resize.h"

namespace {

struct Lagrange {
    static double inner(double a) { return (((a * 0.5) * a - a) - 0.5) * a + 1.0; }
    static double outer(double a) {
        return (((-0.16666666666666666 * a) * a + a) - 1.8333333333333333) * a + 1.0;
    }
};
struct BSpline {  // B = 1, C = 0: smooths, does not pass through the samples
    static double inner(double a) { return ((a * 0.5) * a - a) * a + 0.6666666666666666; }
    static double outer(double a) {
        return ((-0.16666666666666666 * a) * a + a) * a + ((1.3333333333333333 - a) - a);
    }
};
struct CatmullRom {  // B = 0, C = 0.5
    static double inner(double a) { return ((a * 1.5 - 2.5) * a) * a + 1.0; }
    static double outer(double a) { return ((-0.5 * a + 2.5) * a + -4.0) * a + 2.0; }
};
struct CubicBC {  // B = 0.5, C = 0.3
    static double inner(double a) { return ((a * 0.95 - 1.7) * a) * a + 0.8333333333333334; }
    static double outer(double a) {
        return ((-0.38333333333333336 * a + 2.0) * a + -3.4) * a + 1.8666666666666667;
    }
};

template <class Poly>
Lum32f localCoef(Lum32f t) {
    const double a = std::fabs(static_cast<double>(t));
    if (a >= 2.0) return 0.0f;
    if (a < 1.0) return static_cast<Lum32f>(Poly::inner(a));
    if (a >= 1.0) return static_cast<Lum32f>(Poly::outer(a));
    return 1.0f;  // Deliberate: a NaN distance fails every test and weighs 1.
}

template <class Poly>
void localCoefs(const Lum32f* pFrac, Lum32s count, Lum32f* pCoef) {
    for (Lum32s k = 0; k < count; ++k) {
        const Lum32f t0 = -1.0f - pFrac[k];
        const Lum32f t1 = 1.0f + t0, t2 = t0 + 2.0f, t3 = t0 + 3.0f;
        pCoef[4 * k] = localCoef<Poly>(t0);
        pCoef[4 * k + 1] = localCoef<Poly>(t1);
        pCoef[4 * k + 2] = localCoef<Poly>(t2);
        pCoef[4 * k + 3] = localCoef<Poly>(t3);
    }
}

}  // namespace

void ownResizeCoefLagrange(const Lum32f* pFrac, Lum32s count, Lum32f* pCoef) {
    localCoefs<Lagrange>(pFrac, count, pCoef);
}
void ownResizeCoefBSpline(const Lum32f* pFrac, Lum32s count, Lum32f* pCoef) {
    localCoefs<BSpline>(pFrac, count, pCoef);
}
void ownResizeCoefCatmullRom(const Lum32f* pFrac, Lum32s count, Lum32f* pCoef) {
    localCoefs<CatmullRom>(pFrac, count, pCoef);
}
void ownResizeCoefCubicBC(const Lum32f* pFrac, Lum32s count, Lum32f* pCoef) {
    localCoefs<CubicBC>(pFrac, count, pCoef);
}
