#include "ref/sh_ref.h"

#include <cmath>

std::vector<double> refSHBlock(double x, double y, double z, int L) {
    const double pi = std::acos(-1.0);
    const double r = std::sqrt(x * x + y * y + z * z);
    x /= r, y /= r, z /= r;
    const double phi = std::atan2(y, x);
    const double s = std::sqrt(std::fmax(0.0, 1.0 - z * z));
    std::vector<double> out((L + 1) * (L + 1));
    for (int m = 0; m <= L; ++m) {
        // P(m, m) = (-1)^m (2m - 1)!! s^m, then upwards in l.
        double pmm = 1.0;
        for (int k = 1; k <= m; ++k) pmm *= -(2.0 * k - 1.0) * s;
        double pPrev = 0.0, p = pmm;
        for (int l = m; l <= L; ++l) {
            if (l == m + 1) {
                pPrev = p;
                p = z * (2.0 * m + 1.0) * pmm;
            } else if (l > m + 1) {
                const double next = ((2.0 * l - 1.0) * z * p - (l + m - 1.0) * pPrev) / (l - m);
                pPrev = p;
                p = next;
            }
            // K(l, m) = sqrt((2l + 1) / (4 pi) (l - m)! / (l + m)!)
            double ratio = 1.0;
            for (int k = l - m + 1; k <= l + m; ++k) ratio /= k;
            const double k = std::sqrt((2.0 * l + 1.0) / (4.0 * pi) * ratio);
            if (m == 0) {
                out[l * l + l] = k * p;
            } else {
                out[l * l + l + m] = std::sqrt(2.0) * k * p * std::cos(m * phi);
                out[l * l + l - m] = std::sqrt(2.0) * k * p * std::sin(m * phi);
            }
        }
    }
    return out;
}
