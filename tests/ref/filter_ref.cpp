#include "ref/filter_ref.h"

#include <cmath>

namespace {

Lum16s refSaturate(int64_t v) {
    if (v > 32767) return 32767;
    if (v < -32768) return -32768;
    return static_cast<Lum16s>(v);
}

bool refIsPowerOfTwoAbove1(int64_t d) {
    if (d < 2) return false;
    while (d % 2 == 0) d /= 2;
    return d == 1;
}

// n / d rounded to nearest, ties to even, for d > 0, by floor and remainder.
int64_t refDivideHalfEven(int64_t n, int64_t d) {
    int64_t q = n / d, r = n % d;
    if (r < 0) q -= 1, r += d;
    if (2 * r > d || (2 * r == d && (q % 2 != 0))) q += 1;
    return q;
}

int64_t refWrap32(int64_t v) {
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v)));
}

}  // namespace

Lum16s refFilterFinish(int64_t sum, Lum32s divisor, RefFilterRules rules) {
    if (rules == RefFilterRules::Vector) sum = refWrap32(sum);
    if (divisor == 1) return refSaturate(sum);
    if (refIsPowerOfTwoAbove1(divisor)) return refSaturate(refDivideHalfEven(sum, divisor));
    if (rules == RefFilterRules::Scalar) {
        const double q =
            static_cast<double>(sum) / static_cast<double>(static_cast<float>(divisor));
        if (q >= 32767.0) return 32767;
        if (q <= -32768.0) return -32768;
        return static_cast<Lum16s>(std::nearbyint(q));
    }
    const float p = static_cast<float>(sum) * (1.0f / static_cast<float>(divisor));
    if (p >= 32767.0f) return 32767;
    if (p <= -32768.0f) return -32768;
    return static_cast<Lum16s>(std::nearbyintf(p));
}

std::vector<Lum16s> refFilter(const RefFilterCase& c, RefFilterRules rules) {
    std::vector<Lum16s> out(static_cast<size_t>(c.width) * c.height * c.depth);
    size_t n = 0;
    for (int64_t z = 0; z < c.depth; ++z) {
        for (int64_t y = 0; y < c.height; ++y) {
            for (int64_t x = 0; x < c.width; ++x) {
                int64_t sum = 0;
                for (int64_t k = 0; k < c.kd; ++k) {
                    for (int64_t j = 0; j < c.kh; ++j) {
                        for (int64_t i = 0; i < c.kw; ++i) {
                            const int64_t e = c.kernel[(k * c.kh + j) * c.kw + i];
                            const int64_t s =
                                c.srcPlanes[z + c.az - k]
                                           [(y + c.ay - j) * c.srcStepN + (x + c.ax - i)];
                            const int64_t p = e * s;
                            sum += rules == RefFilterRules::Scalar ? refWrap32(p) : p;
                        }
                    }
                }
                out[n++] = refFilterFinish(sum, c.divisor, rules);
            }
        }
    }
    return out;
}
