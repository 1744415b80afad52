// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The resampling of the star alignments: Image::AlignAffine3 (three point pairs, a full
/// affine map) and Image::AlignRigid2 (two pairs, a turn and a shift).
///
/// Both map each output pixel back into the source and take three samples there: the centre
/// C at the truncated position (ix, iy), the x neighbour X (ix + 1 when the x fraction is
/// above 0.5, else ix - 1) and the y neighbour Y chosen the same way. The value is
/// (X (1 - fx) + C fx + Y (1 - fy) + C fy) / 2: the larger fraction gives the centre the larger
/// weight. That is this system's resampling of aligned frames, kept as it is; the output is 0
/// where any of the three samples lies outside the source.
#include <cmath>
#include <vector>

#include "engine/Image.h"
#include "engine/Parallel.h"
#include "operators/geometry/AlignSampling.h"

namespace astrivelle {

namespace {

/// Radians to degrees in the alignment results: the system's own constant.
constexpr double kDegreeFactor = 57.2962;

constexpr const char* kCurrentDependent = "Current points not linearly Independent";
constexpr const char* kReferenceDependent = "Reference points not linearly Independent";
constexpr const char* kNoInverse = "No inverse of back compute matrix";

/// s = A (q - r) + c: the back map from an output pixel q to its source position s.
struct BackMap {
    double a00, a01, a10, a11;
    double rx, ry;
    double cx, cy;
};

/// Fills out's planes from up to three source channels by the three-sample rule.
void Resample3(const Image& source, Image* out, int w, int h, const float* const in[3],
               const BackMap& m) {
    const std::vector<int> slots = out->Slots();
    float* dst[3] = {nullptr, nullptr, nullptr};
    const float* src[3] = {nullptr, nullptr, nullptr};
    int channels = 0;
    for (int k = 0; k < 3; ++k)
        if (in[k] && k < static_cast<int>(slots.size()) && out->curPlane[slots[k]]) {
            src[channels] = in[k];
            dst[channels] = out->curPlane[slots[k]];
            ++channels;
        }
    const int sw = source.width, sh = source.height;
    const double top = source.maxValue;
    ParallelRows(h, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const double qy = y - m.ry;
            const std::size_t row = static_cast<std::size_t>(y) * w;
            for (int x = 0; x < w; ++x) {
                const double qx = x - m.rx;
                const double sx = m.a00 * qx + m.a01 * qy + m.cx;
                const double sy = m.a10 * qx + m.a11 * qy + m.cy;
                ThreeSample sample;
                if (!ThreeSamplePosition(sx, sy, sw, sh, &sample)) {
                    for (int k = 0; k < channels; ++k)
                        dst[k][row + x] = 0.0f;
                    continue;
                }
                for (int k = 0; k < channels; ++k)
                    dst[k][row + x] = ThreeSampleValue(src[k], sample, top);
            }
        }
    });
}

/// The angle between two vectors by the arc cosine of their normalised dot product; false
/// for a zero vector.
bool AngleBetween(double ax, double ay, double bx, double by, double* radians) {
    // One square root of the product of the squared lengths: equal vectors give exactly 1.
    const double norms = std::sqrt((ax * ax + ay * ay) * (bx * bx + by * by));
    if (norms == 0.0)
        return false;
    double cosine = (ax * bx + ay * by) / norms;
    cosine = cosine > 1.0 ? 1.0 : (cosine < -1.0 ? -1.0 : cosine); // rounding past +-1
    *radians = std::acos(cosine);
    return true;
}

void SetError(std::string* error, const char* text) {
    if (error)
        *error = text;
}

} // namespace

bool Image::AlignAffine3(Image* out, int w, int h, const float* c0, const float* c1,
                         const float* c2, double ref1x, double ref1y, double ref2x, double ref2y,
                         double ref3x, double ref3y, double cur1x, double cur1y, double cur2x,
                         double cur2y, double cur3x, double cur3y, double* outRotation,
                         bool sizeOnly, int* outMinX, int* outMaxX, int* outMinY, int* outMaxY,
                         double* outShiftX, double* outShiftY, std::string* error) {
    // Difference vectors as the columns of C (current) and R (reference).
    const double u1x = cur2x - cur1x, u1y = cur2y - cur1y;
    const double u2x = cur3x - cur1x, u2y = cur3y - cur1y;
    const double v1x = ref2x - ref1x, v1y = ref2y - ref1y;
    const double v2x = ref3x - ref1x, v2y = ref3y - ref1y;
    const double detC = u1x * u2y - u2x * u1y;
    if (detC == 0.0) {
        SetError(error, kCurrentDependent);
        return false;
    }
    const double detR = v1x * v2y - v2x * v1y;
    if (detR == 0.0) {
        SetError(error, kReferenceDependent);
        return false;
    }
    // M = R C^-1 = R adj(C) / det C, the forward map p -> M (p - c1) + r1.
    const double m00 = (v1x * u2y - v2x * u1y) / detC;
    const double m01 = (-v1x * u2x + v2x * u1x) / detC;
    const double m10 = (v1y * u2y - v2y * u1y) / detC;
    const double m11 = (-v1y * u2x + v2y * u1x) / detC;
    const double detM = m00 * m11 - m01 * m10;
    if (detM == 0.0 || !std::isfinite(detM)) {
        if (outRotation)
            *outRotation = 0.0;
        SetError(error, kNoInverse);
        return false;
    }
    if (sizeOnly) {
        const double corners[4][2] = {
            {0.0, 0.0}, {width - 1.0, 0.0}, {0.0, height - 1.0}, {width - 1.0, height - 1.0}};
        int minX = 0, maxX = 0, minY = 0, maxY = 0;
        for (int k = 0; k < 4; ++k) {
            const double px = corners[k][0] - cur1x, py = corners[k][1] - cur1y;
            const int fx = static_cast<int>(m00 * px + m01 * py + ref1x);
            const int fy = static_cast<int>(m10 * px + m11 * py + ref1y);
            minX = k == 0 || fx < minX ? fx : minX;
            maxX = k == 0 || fx > maxX ? fx : maxX;
            minY = k == 0 || fy < minY ? fy : minY;
            maxY = k == 0 || fy > maxY ? fy : maxY;
        }
        if (outMinX)
            *outMinX = minX;
        if (outMaxX)
            *outMaxX = maxX;
        if (outMinY)
            *outMinY = minY;
        if (outMaxY)
            *outMaxY = maxY;
        return true;
    }
    if (!out || w <= 0 || h <= 0 || width <= 0 || height <= 0)
        return false;
    // M^-1 = C R^-1 = C adj(R) / det R: exact for whole-number differences, so a pure shift
    // maps back by the shift alone.
    BackMap back;
    back.a00 = (u1x * v2y - u2x * v1y) / detR;
    back.a01 = (-u1x * v2x + u2x * v1x) / detR;
    back.a10 = (u1y * v2y - u2y * v1y) / detR;
    back.a11 = (-u1y * v2x + u2y * v1x) / detR;
    back.rx = ref1x;
    back.ry = ref1y;
    back.cx = cur1x;
    back.cy = cur1y;
    double angle = 0.0;
    if (!AngleBetween(v1x, v1y, u1x, u1y, &angle))
        angle = 0.0;
    if (outRotation)
        *outRotation = angle * kDegreeFactor;
    if (outShiftX)
        *outShiftX = ref1x - cur1x;
    if (outShiftY)
        *outShiftY = ref1y - cur1y;
    const float* in[3] = {c0, c1, c2};
    Resample3(*this, out, w, h, in, back);
    return true;
}

bool Image::AlignRigid2(Image* out, int w, int h, const float* c0, const float* c1, const float* c2,
                        double ref1x, double ref1y, double ref2x, double ref2y, double cur1x,
                        double cur1y, double cur2x, double cur2y, double* outRotation,
                        double* outShiftX, double* outShiftY) {
    const double ax = ref2x - ref1x, ay = ref2y - ref1y;
    const double bx = cur2x - cur1x, by = cur2y - cur1y;
    double angle = 0.0;
    if (!AngleBetween(ax, ay, bx, by, &angle))
        return false;
    // The sign of the truncated cross product a x b, zero counting as positive; the turn
    // that brings the current pair onto the reference pair goes against it.
    const double cross = ax * by - ay * bx;
    const long long truncated =
        cross > 9e18 ? 1 : (cross < -9e18 ? -1 : static_cast<long long>(cross));
    const double sign = truncated >= 0 ? 1.0 : -1.0;
    const double theta = -angle * sign;
    if (outRotation)
        *outRotation = theta * kDegreeFactor;
    const double c = std::cos(theta), s = std::sin(theta);
    // The turn about the origin, then the shift that puts cur1 on ref1.
    const double tx = ref1x - (c * cur1x - s * cur1y);
    const double ty = ref1y - (s * cur1x + c * cur1y);
    if (outShiftX)
        *outShiftX = tx;
    if (outShiftY)
        *outShiftY = ty;
    if (!out || w <= 0 || h <= 0 || width <= 0 || height <= 0)
        return false;
    // s = R(-theta) (q - t), written as A (q - r1) + c1 with A = R(-theta).
    BackMap back;
    back.a00 = c;
    back.a01 = s;
    back.a10 = -s;
    back.a11 = c;
    back.rx = ref1x;
    back.ry = ref1y;
    back.cx = cur1x;
    back.cy = cur1y;
    const float* in[3] = {c0, c1, c2};
    Resample3(*this, out, w, h, in, back);
    return true;
}

} // namespace astrivelle
