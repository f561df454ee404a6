#include "volume/warp/warp.h"

LumStatus ownInvertAffine(const Lum64f c[3][4], Lum64f inv[3][4]) {
    const Lum64f c00 = c[0][0], c01 = c[0][1], c02 = c[0][2], c03 = c[0][3];
    const Lum64f c10 = c[1][0], c11 = c[1][1], c12 = c[1][2], c13 = c[1][3];
    const Lum64f c20 = c[2][0], c21 = c[2][1], c22 = c[2][2], c23 = c[2][3];
    const Lum64f A = c11 * c22 - c21 * c12;
    const Lum64f B = c22 * c10 - c12 * c20;
    const Lum64f C = c21 * c10 - c11 * c20;
    const Lum64f D = (A * c00 - B * c01) + C * c02;
    // Deliberate: an absolute threshold, so a well-conditioned but small
    // matrix (a diagonal of 1e-4) is refused as singular.
    if (D > -1e-10 && D < 1e-10) return lumStatusBadCoeffs;
    const Lum64f r = 1.0 / D, n = 0.0 - r;
    inv[0][0] = r * A;
    inv[1][0] = 0.0 - r * B;
    inv[2][0] = r * C;
    inv[0][1] = n * (c22 * c01 - c21 * c02);
    inv[1][1] = r * (c22 * c00 - c20 * c02);
    inv[2][1] = n * (c21 * c00 - c20 * c01);
    inv[0][2] = r * (c12 * c01 - c11 * c02);
    inv[1][2] = n * (c12 * c00 - c10 * c02);
    inv[2][2] = r * (c11 * c00 - c10 * c01);
    const Lum64f P = c12 * c23 - c22 * c13, Q = c02 * c23 - c22 * c03, R = c02 * c13 - c12 * c03;
    inv[0][3] = n * ((c01 * P - c11 * Q) + c21 * R);
    inv[1][3] = r * ((c00 * P - c10 * Q) + c20 * R);
    const Lum64f S = c11 * c23 - c21 * c13, U = c01 * c23 - c21 * c03, V = c01 * c13 - c11 * c03;
    inv[2][3] = n * ((c00 * S - c10 * U) + c20 * V);
    return lumStatusOk;
}
