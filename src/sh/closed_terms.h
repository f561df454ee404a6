// Shared terms of the closed-form expansions: the Lum32f powers of x, y and z
// widened to Lum64f, and the Re and Im polynomials of (x + iy)^m built from
// them.  Band l's expansion reads only terms of index l or below, so a block
// of bands 0 to L and a single band L see the same terms and give the same
// bits.
#pragma once

template <class D>
struct ShTerms {  // index 0 unused: power k sits at k
    D x[16], y[16];  // widened x^k, y^k, each a chain of Lum32f products by x, y
    D z[16];         // widened z and the even powers of z (odd k above 1 unused)
    D re[16], im[16];  // coprime integer Re, Im of (x + iy)^m (bands from 5 only)
};

// Band L's expansion: put(t, s, off) hands Y(L, m) to s.put(off + L + m, value)
// for m = -L .. L, each value a Lum64f that the sink rounds to Lum32f.
template <int L>
struct ShBand;
