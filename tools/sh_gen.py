#!/usr/bin/env python3
"""Writes the closed-form real spherical harmonics of bands 5 to 15 as a C++ header.

Usage: sh_gen.py [OUTPUT]   (standard output without an argument)

Everything is derived from the definition with exact arithmetic:

    Y(l, 0)  = K(l, 0) P(l, 0)(z)
    Y(l, m)  = (-1)^m sqrt(2) K(l, m) P(l, m)(z) Re((x + iy)^m)     m > 0
    Y(l, -m) = (-1)^m sqrt(2) K(l, m) P(l, m)(z) Im((x + iy)^m)     m > 0
    K(l, m)  = sqrt((2l + 1) / (4 pi) (l - m)! / (l + m)!)

with P(l, m) the m-th derivative of the Legendre polynomial of degree l.  Each
polynomial is written with coprime integer coefficients and a positive leading
coefficient; its rational content goes into the constant, which is
sign x sqrt(rational / pi), evaluated to 80 digits and rounded once to binary64.

The expansions use the widened Lum32f powers t.x[k], t.y[k], t.z[1] and the
even powers t.z[2j] (a chain of products by z^2: an odd polynomial in z is
written as z times an even one), and the shared parts t.re[m], t.im[m] (the
coprime Re and Im polynomials of (x + iy)^m), so every sum and constant
product is a Lum64f operation.

Python 3 standard library only.
"""
import sys
from decimal import Decimal, getcontext
from fractions import Fraction
from math import comb, gcd

getcontext().prec = 80

FIRST_BAND = 5
LAST_BAND = 15


def dec_pi():
    """pi to the current precision (the classic series of the decimal module's recipes)."""
    getcontext().prec += 4
    three = Decimal(3)
    lasts, t, s, n, na, d, da = 0, three, 3, 1, 0, 0, 24
    while s != lasts:
        lasts = s
        n, na = n + na, na + 8
        d, da = d + da, da + 32
        t = (t * n) / d
        s += t
    getcontext().prec -= 4
    return +s


PI = dec_pi()


def legendre(l):
    """Legendre polynomial of degree l as {power: Fraction}."""
    poly = {}
    for k in range(l // 2 + 1):
        c = Fraction((-1) ** k * comb(l, k) * comb(2 * l - 2 * k, l), 2 ** l)
        poly[l - 2 * k] = c
    return poly


def derivative(poly, m):
    out = {}
    for p, c in poly.items():
        if p < m:
            continue
        f = 1
        for i in range(m):
            f *= p - i
        out[p - m] = c * f
    return out


def content(coeffs):
    """Positive rational g such that every coefficient / g is an integer, jointly coprime."""
    fr = [Fraction(c) for c in coeffs if c != 0]
    num = 0
    den = 1
    for c in fr:
        num = gcd(num, abs(c.numerator))
        den = den * c.denominator // gcd(den, c.denominator)
    return Fraction(num, den)


def normalise(poly):
    """(g, {power: int}) with poly = g x integer polynomial, leading coefficient positive."""
    g = content(poly.values())
    lead = poly[max(poly)]
    if lead < 0:
        g = -g
    return g, {p: int(c / g) for p, c in poly.items()}


def re_im(m):
    """Re and Im of (x + iy)^m as {(px, py): int}."""
    re, im = {}, {}
    for k in range(m + 1):
        c = comb(m, k)
        if k % 2 == 0:
            re[(m - k, k)] = (-1) ** (k // 2) * c
        else:
            im[(m - k, k)] = (-1) ** ((k - 1) // 2) * c
    return re, im


def to_binary64(rational, sign):
    """Correctly rounded binary64 of sign x sqrt(rational / pi)."""
    v = (Decimal(rational.numerator) / Decimal(rational.denominator) / PI).sqrt()
    f = float(v)
    # The 80-digit value must not sit so close to a rounding boundary that its
    # own last digit could decide the binary64 result.
    eps = Decimal(10) ** -60
    assert float(v * (1 + eps)) == f and float(v * (1 - eps)) == f
    return sign * f


def constant(l, m, poly_content, xy_content):
    """Constant of Y(l, +-m) for a z part of content poly_content and an xy part of xy_content."""
    k2 = Fraction(2 * l + 1, 4)
    for i in range(l - m + 1, l + m + 1):
        k2 /= i
    if m > 0:
        k2 *= 2
    c = poly_content * xy_content
    sign = (-1) ** m * (1 if c > 0 else -1)
    return to_binary64(k2 * c * c, sign)


def lit(f):
    s = "%.17g" % f
    if "e" not in s and "." not in s:
        s += ".0"
    return s


def sum_expr(terms):
    """terms: list of (int coefficient, monomial text, is_constant); first coefficient > 0."""
    out = ""
    for i, (c, mono, is_const) in enumerate(terms):
        a = abs(c)
        if is_const:
            t = lit(float(a))
        elif a == 1:
            t = mono
        else:
            t = "%s * %s" % (lit(float(a)), mono)
        if i == 0:
            assert c > 0
            out = t
        else:
            out = "(%s) %s %s" % (out, "+" if c > 0 else "-", t) if i > 1 else \
                "%s %s %s" % (out, "+" if c > 0 else "-", t)
    return out


def xy_mono(px, py):
    if px == 0:
        return "y[%d]" % py
    if py == 0:
        return "x[%d]" % px
    return "(x[%d] * y[%d])" % (px, py)


def xy_parts(m):
    """(re content, re expr, im content, im expr) of (x + iy)^m."""
    re, im = re_im(m)
    res = []
    for part in (re, im):
        g, norm = normalise({py: Fraction(c) for (px, py), c in part.items()})
        # normalise orders by the power of y; the leading term must be the
        # lowest power of y, so fix the sign on that one instead.
        first = min(norm)
        if norm[first] < 0:
            g, norm = -g, {p: -c for p, c in norm.items()}
        terms = [(norm[py], xy_mono(m - py, py), False) for py in sorted(norm)]
        res.append((g, sum_expr(terms)))
    return res[0][0], res[0][1], res[1][0], res[1][1]


def z_part(l, m):
    """(content, expression or None for a constant 1) of P(l, m)."""
    g, norm = normalise(derivative(legendre(l), m))
    powers = sorted(norm, reverse=True)
    if powers == [0]:
        assert norm[0] == 1
        return g, None
    odd = powers[-1] % 2 == 1
    if odd and len(powers) == 1:
        return g, "z[1]"
    # An odd polynomial is z times an even one: only z and the powers of z^2
    # enter, which halves the Lum32f roundings behind the highest power.
    terms = [(norm[p], "z[%d]" % (p - odd), p - odd == 0) for p in powers]
    e = sum_expr(terms)
    return g, "z[1] * (%s)" % e if odd else e


# Magnitudes of the constants of bands 2 to 4 as this library's own closed
# forms state them; the generator must reproduce them from the definition
# before its output can be trusted for the higher bands.
KNOWN = {
    (2, 0): 0.31539156525252, (2, 1): 1.092548430592079, (2, -1): 1.092548430592079,
    (2, 2): 0.5462742152960395, (2, -2): 1.092548430592079,
    (3, 0): 0.3731763325901154, (3, 1): 0.4570457994644657, (3, -1): 0.4570457994644657,
    (3, 2): 1.445305721320277, (3, -2): 2.890611442640554, (3, 3): 0.5900435899266435,
    (3, -3): 0.5900435899266435,
    (4, 0): 0.1057855469152043, (4, 1): 0.6690465435572892, (4, -1): 0.6690465435572892,
    (4, 2): 0.47308734787878, (4, -2): 0.94617469575756, (4, 3): 1.770130769779931,
    (4, -3): 1.770130769779931, (4, 4): 0.6258357354491761, (4, -4): 2.503342941796705,
    (5, 0): 0.1169503224534236,
}


def band_constants(l):
    """{m: constant} for m = -l .. l."""
    out = {}
    for m in range(0, l + 1):
        gz, _ = z_part(l, m)
        if m == 0:
            out[0] = constant(l, 0, gz, Fraction(1))
            continue
        gre, _, gim, _ = xy_parts(m)
        out[m] = constant(l, m, gz, gre)
        out[-m] = constant(l, m, gz, gim)
    return out


def self_check():
    for (l, m), want in KNOWN.items():
        got = abs(band_constants(l)[m])
        assert abs(got - want) <= 4e-16 * want, (l, m, got, want)


def emit(out):
    w = out.write
    w("// Generated by tools/sh_gen.py; do not edit.  Regenerate with\n")
    w("//   python3 tools/sh_gen.py src/sh/closed_bands.h\n")
    w("// Closed-form real spherical harmonics of bands %d to %d, one straight-line\n"
      % (FIRST_BAND, LAST_BAND))
    w("// expansion per band.  Constants are the correctly rounded binary64 values\n")
    w("// of their exact definitions; sums and products are Lum64f operations on\n")
    w("// widened Lum32f powers.\n")
    w("#pragma once\n\n")
    w('#include "sh/closed_terms.h"\n\n')
    w("// t.re[m], t.im[m]: the coprime integer Re and Im polynomials of (x + iy)^m.\n")
    w("template <int M>\nstruct ShReIm;\n\n")
    for m in range(1, LAST_BAND + 1):
        _, re, _, im = xy_parts(m)
        w("template <>\nstruct ShReIm<%d> {\n" % m)
        w("    template <class D>\n    static void run(ShTerms<D>& t) {\n")
        w("        const D* x = t.x;\n        const D* y = t.y;\n")
        w("        t.re[%d] = %s;\n" % (m, re))
        w("        t.im[%d] = %s;\n" % (m, im))
        w("    }\n};\n\n")
    for l in range(FIRST_BAND, LAST_BAND + 1):
        consts = band_constants(l)
        w("// Band %d: Y(%d, m) goes to s.put(off + %d + m, ...).\n" % (l, l, l))
        w("template <>\nstruct ShBand<%d> {\n" % l)
        w("    template <class D, class Sink>\n")
        w("    static void put(const ShTerms<D>& t, Sink& s, int off) {\n")
        w("        const D* z = t.z;\n")
        for m in range(0, l + 1):
            _, q = z_part(l, m)
            w("        {\n")
            if q is not None:
                w("            const D q = %s;\n" % q)
            if m == 0:
                assert q is not None
                w("            s.put(off + %d, %s * q);\n" % (l, lit(consts[0])))
            else:
                for sign, part in ((1, "re"), (-1, "im")):
                    c = lit(consts[sign * m])
                    if q is None:
                        e = "%s * t.%s[%d]" % (c, part, m)
                    else:
                        e = "(%s * q) * t.%s[%d]" % (c, part, m)
                    w("            s.put(off + %d, %s);\n" % (l + sign * m, e))
            w("        }\n")
        w("    }\n};\n\n")


def main():
    self_check()
    if len(sys.argv) > 1:
        with open(sys.argv[1], "w", newline="\n") as f:
            emit(f)
    else:
        emit(sys.stdout)


if __name__ == "__main__":
    main()
