// SPDX-License-Identifier: GPL-3.0-or-later
/// \file AlignProjective4: resampling through the projective map between two quadrilaterals
/// of four point pairs, each quadrilateral reached from the unit square.
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "engine/Image.h"
#include "engine/Parallel.h"
#include "operators/geometry/AlignSampling.h"

namespace astrivelle {

namespace {

/// 3 by 3, row order, acting on column vectors (x, y, 1).
struct Matrix3 {
    double m[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
};

/// The map of the unit square's corners (0,0), (1,0), (1,1), (0,1) onto the four points in
/// that order. False when points 1, 2, 3 have determinant 0.
bool SquareToQuad(const double x[4], const double y[4], Matrix3* out) {
    const double dx1 = x[1] - x[2], dx2 = x[3] - x[2];
    const double dy1 = y[1] - y[2], dy2 = y[3] - y[2];
    const double sx = x[0] - x[1] + x[2] - x[3];
    const double sy = y[0] - y[1] + y[2] - y[3];
    const double det = dx1 * dy2 - dx2 * dy1;
    if (det == 0)
        return false;
    const double g = (sx * dy2 - dx2 * sy) / det;
    const double h = (dx1 * sy - sx * dy1) / det;
    double* m = out->m;
    m[0] = x[1] - x[0] + g * x[1];
    m[1] = x[3] - x[0] + h * x[3];
    m[2] = x[0];
    m[3] = y[1] - y[0] + g * y[1];
    m[4] = y[3] - y[0] + h * y[3];
    m[5] = y[0];
    m[6] = g;
    m[7] = h;
    m[8] = 1;
    return true;
}

double Determinant(const Matrix3& a) {
    const double* m = a.m;
    return m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
           m[2] * (m[3] * m[7] - m[4] * m[6]);
}

bool Invert(const Matrix3& a, Matrix3* out) {
    const double det = Determinant(a);
    if (det == 0 || !std::isfinite(det))
        return false;
    const double* m = a.m;
    double* r = out->m;
    r[0] = (m[4] * m[8] - m[5] * m[7]) / det;
    r[1] = (m[2] * m[7] - m[1] * m[8]) / det;
    r[2] = (m[1] * m[5] - m[2] * m[4]) / det;
    r[3] = (m[5] * m[6] - m[3] * m[8]) / det;
    r[4] = (m[0] * m[8] - m[2] * m[6]) / det;
    r[5] = (m[2] * m[3] - m[0] * m[5]) / det;
    r[6] = (m[3] * m[7] - m[4] * m[6]) / det;
    r[7] = (m[1] * m[6] - m[0] * m[7]) / det;
    r[8] = (m[0] * m[4] - m[1] * m[3]) / det;
    return true;
}

Matrix3 Multiply(const Matrix3& a, const Matrix3& b) {
    Matrix3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            double s = 0;
            for (int k = 0; k < 3; ++k)
                s += a.m[i * 3 + k] * b.m[k * 3 + j];
            r.m[i * 3 + j] = s;
        }
    return r;
}

/// The point (x, y) through the map; false at infinity.
inline bool Apply(const Matrix3& a, double x, double y, double* ox, double* oy) {
    const double* m = a.m;
    const double w = m[6] * x + m[7] * y + m[8];
    if (w == 0)
        return false;
    *ox = (m[0] * x + m[1] * y + m[2]) / w;
    *oy = (m[3] * x + m[4] * y + m[5]) / w;
    return true;
}

} // namespace

bool Image::AlignProjective4(Image* out, int w, int h, const float* c0, const float* c1,
                             const float* c2, const double refX[4], const double refY[4],
                             const double curX[4], const double curY[4], bool sizeOnly,
                             int* outMinX, int* outMaxX, int* outMinY, int* outMaxY,
                             std::string* error) {
    const auto fail = [&](const char* text) {
        if (error)
            *error = text;
        return false;
    };
    Matrix3 squareToCur, squareToRef, curToSquare, forward, back;
    if (!SquareToQuad(curX, curY, &squareToCur) || !Invert(squareToCur, &curToSquare))
        return fail("Current points not linearly Independent");
    if (!SquareToQuad(refX, refY, &squareToRef))
        return fail("Reference points not linearly Independent");
    forward = Multiply(squareToRef, curToSquare); // current -> reference
    if (!Invert(forward, &back))                  // reference -> current, for sampling
        return fail("No inverse of back compute matrix");

    if (sizeOnly) {
        const double cx[4] = {0, static_cast<double>(width - 1), 0, static_cast<double>(width - 1)};
        const double cy[4] = {0, 0, static_cast<double>(height - 1),
                              static_cast<double>(height - 1)};
        double minX = std::numeric_limits<double>::max(), maxX = -minX;
        double minY = minX, maxY = -minX;
        for (int k = 0; k < 4; ++k) {
            double x = 0, y = 0;
            if (!Apply(forward, cx[k], cy[k], &x, &y) || !std::isfinite(x) || !std::isfinite(y))
                return fail("No inverse of back compute matrix");
            minX = std::min(minX, x);
            maxX = std::max(maxX, x);
            minY = std::min(minY, y);
            maxY = std::max(maxY, y);
        }
        if (outMinX)
            *outMinX = static_cast<int>(minX);
        if (outMaxX)
            *outMaxX = static_cast<int>(maxX);
        if (outMinY)
            *outMinY = static_cast<int>(minY);
        if (outMaxY)
            *outMaxY = static_cast<int>(maxY);
        return true;
    }

    if (!out || w <= 0 || h <= 0 || out->width != w || out->height != h)
        return fail("No inverse of back compute matrix");
    const std::vector<int> slots = out->Slots();
    const float* source[3] = {c0, c1, c2};
    float* target[3] = {nullptr, nullptr, nullptr};
    int channels = 0;
    for (int k = 0; k < 3 && k < static_cast<int>(slots.size()); ++k) {
        if (!source[k] || !out->curPlane[slots[k]])
            break;
        target[k] = out->curPlane[slots[k]];
        channels = k + 1;
    }
    if (channels == 0)
        return fail("No inverse of back compute matrix");
    const int sw = width, sh = height;
    const double top = static_cast<double>(maxValue);
    ParallelRows(h, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            for (int x = 0; x < w; ++x) {
                const std::size_t at = static_cast<std::size_t>(y) * w + x;
                double sx = 0, sy = 0;
                ThreeSample s;
                if (!Apply(back, x, y, &sx, &sy) || !ThreeSamplePosition(sx, sy, sw, sh, &s)) {
                    for (int k = 0; k < channels; ++k)
                        target[k][at] = 0.0f;
                    continue;
                }
                for (int k = 0; k < channels; ++k)
                    target[k][at] = ThreeSampleValue(source[k], s, top);
            }
    });
    return true;
}

} // namespace astrivelle
