// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The measures of one star: edge radii along the axes and diagonals, widths, axes and
/// eccentricity, peak and background, the acceptance rule, and FWHM and HFD when asked for.
#include "align/StarMeasure.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "align/FluxInCircle.h"
#include "engine/Image.h"
#include "engine/Parallel.h"

namespace astrivelle {

namespace {

constexpr double kSqrt2 = 1.4142135623730951;

/// The eight rays in the order of the record: left, right, top, bottom, top-left, top-right,
/// bottom-left, bottom-right (window rows grow downwards).
struct Ray {
    int dx, dy;
    bool diagonal;
};
constexpr Ray kRays[8] = {{-1, 0, false}, {1, 0, false}, {0, -1, false}, {0, 1, false},
                          {-1, -1, true}, {1, -1, true}, {-1, 1, true},  {1, 1, true}};

/// The window value k steps from the centre along a ray.
inline double RayValue(const float* w, int side, int r, const Ray& ray, int k) {
    return w[static_cast<std::size_t>(r + ray.dy * k) * side + (r + ray.dx * k)];
}

} // namespace

double StarFwhm(Image& image, const float* channel, int px, int py, int r, double background,
                double* outX, double* outY) {
    image.LoadNbhd(channel, px, py, r);
    image.NbhdClipBelow(background);
    const int side = image.starNbhd.nbhdSide, count = image.starNbhd.nbhdCount;
    const float* w = image.starNbhd.buffer.get();
    float top = w[0];
    for (int i = 1; i < count; ++i)
        if (w[i] > top)
            top = w[i];
    // The position is the mean of the coordinates of all pixels equal to the maximum.
    double sumX = 0.0, sumY = 0.0;
    int n = 0;
    for (int i = 0; i < count; ++i)
        if (w[i] == top) {
            sumX += px - r + i % side;
            sumY += py - r + i / side;
            ++n;
        }
    const double mx = sumX / n, my = sumY / n;
    if (outX)
        *outX = mx;
    if (outY)
        *outY = my;
    image.LoadNbhd(channel, static_cast<int>(mx), static_cast<int>(my), r);
    image.NbhdClipBelow(background);
    w = image.starNbhd.buffer.get();
    const double half = w[static_cast<std::size_t>(r) * side + r] * 0.5;
    int total = 0;
    for (const Ray& ray : kRays)
        for (int k = 0; k <= r; ++k) // the walk goes on past pixels below half
            if (RayValue(w, side, r, ray, k) >= half)
                ++total;
    return 2.0 * total / 8.0 - 1.0;
}

double StarHfd(Image& image, const float* channel, int r, double cx, double cy, double background,
               INotify* notify) {
    const int px = static_cast<int>(cx - 1.0), py = static_cast<int>(cy - 1.0);
    image.LoadNbhd(channel, px, py, r);
    image.NbhdClipBelow(background);
    const float* w = image.starNbhd.buffer.get();
    const int count = image.starNbhd.nbhdCount;
    double flux = 0.0;
    for (int i = 0; i < count; ++i)
        flux += w[i];
    const double half = flux / 2.0;
    // The circle's centre from the centre pixel's centre, y up.
    const double ox = cx - std::trunc(cx), oy = -(cy - std::trunc(cy));
    const auto reaches = [&](double radius) {
        return FluxInCircle(w, r, ox, oy, radius, notify) >= half;
    };
    // Three scans for the first radius that holds half the flux; a scan that finds nothing
    // keeps the value before it.
    double value = r;
    for (int k = 1; k <= r; ++k)
        if (reaches(k)) {
            value = k;
            break;
        }
    for (double step : {0.1, 0.01}) {
        const double start = value - 10.0 * step;
        for (int k = 0; k <= 10; ++k) {
            const double radius = start + k * step;
            if (reaches(radius)) {
                value = radius;
                break;
            }
        }
    }
    return 2.0 * value;
}

bool Image::MeasureStar(bool forceAccept, const float* channel, int x, int y, int r, int rDiag,
                        int edgeMargin, double maxAsymmetry, double peakFactor,
                        CStarShapeStructure* outStar, bool wantFwhm, bool wantHfd) {
    if (r < 1 || !outStar)
        return false;
    if (rDiag > r)
        rDiag = r;
    LoadNbhd(channel, x, y, r);
    double cx = 0.0, cy = 0.0;
    NbhdCentroid(&cx, &cy);
    int px = static_cast<int>(cx - 1.0), py = static_cast<int>(cy - 1.0);
    if (py <= edgeMargin || py >= height - edgeMargin || px <= edgeMargin ||
        px >= width - edgeMargin)
        return false;
    if ((cx - 1.0) - px > 0.5)
        ++px;
    if ((cy - 1.0) - py > 0.5)
        ++py;
    LoadNbhd(channel, px, py, r);
    const int side = starNbhd.nbhdSide;
    const float* w = starNbhd.buffer.get();
    const double peak = w[static_cast<std::size_t>(r) * side + r];

    // Edge radii: from the outer end inwards, the steepest rise wins; the outermost of equal
    // rises stays.
    double radius[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    bool rises = true;
    for (int j = 0; j < 8; ++j) {
        const Ray& ray = kRays[j];
        double best = 0.0;
        for (int k = ray.diagonal ? rDiag : r; k >= 1; --k) {
            const double d = RayValue(w, side, r, ray, k - 1) - RayValue(w, side, r, ray, k);
            if (d > best) {
                best = d;
                radius[j] = k - d / 65535.0 + 0.5;
            }
        }
        if (ray.diagonal)
            radius[j] *= kSqrt2;
        if (!(best > 0.0))
            rises = false;
    }
    const double left = radius[0], right = radius[1], topR = radius[2], bottom = radius[3];
    const double topLeft = radius[4], topRight = radius[5], bottomLeft = radius[6],
                 bottomRight = radius[7];

    // The largest radius, strictly greater replacing, in the order of the record's names.
    double maxRadius = 0.0;
    const char* maxName = "";
    if (left > 0.0) {
        maxRadius = left;
        maxName = "LeftRadius";
    }
    const std::pair<double, const char*> others[] = {{right, "RightRadius"},
                                                     {topR, "TopRadius"},
                                                     {bottom, "BottomRadius"},
                                                     {topLeft, "TopLeftRadius"},
                                                     {bottomRight, "BottomRightRadius"},
                                                     {topRight, "TopRightRadius"},
                                                     {bottomLeft, "BottomLeftRadius"}};
    for (const auto& [value, name] : others)
        if (value > maxRadius) {
            maxRadius = value;
            maxName = name;
        }

    // Widths, and the eccentricity of the one width larger than all three others.
    const double widths[4] = {left + right, topR + bottom, topLeft + bottomRight,
                              topRight + bottomLeft};
    static const char* const kAxisNames[4] = {"Horizontal", "Vertical", "Left Diagonal",
                                              "Right Diagonal"};
    static const int kPartner[4] = {1, 0, 3, 2};
    double eccentricity = 0.0;
    const char* major = "";
    const char* minor = "";
    for (int i = 0; i < 4; ++i) {
        bool largest = true;
        for (int j = 0; j < 4; ++j)
            if (j != i && !(widths[i] > widths[j]))
                largest = false;
        if (!largest)
            continue;
        const double a = widths[i], b = widths[kPartner[i]];
        const double e2 = 1.0 - (b * b) / (a * a);
        if (i == 2 ? e2 >= 0.0001 : e2 > 0.0001) {
            eccentricity = std::sqrt(e2);
            major = kAxisNames[i];
            minor = kAxisNames[kPartner[i]];
        }
        break;
    }

    // Background: the border ring of the window, the last row and column left out.
    double background = 0.0;
    if (r > maxRadius) {
        const int ring = std::min(r - static_cast<int>(maxRadius), 3);
        double sum = 0.0;
        int n = 0;
        for (int row = -r; row <= r - 1; ++row)
            for (int col = -r; col <= r - 1; ++col)
                if (std::abs(row) > r - ring || std::abs(col) > r - ring) {
                    sum += w[static_cast<std::size_t>(row + r) * side + (col + r)];
                    ++n;
                }
        background = n ? sum / n : 0.0;
    }

    // Acceptance.
    if (!rises)
        return false;
    if (!forceAccept) {
        const auto lopsided = [&](double a, double b) {
            return std::fabs(static_cast<double>(static_cast<int>(a - b))) > maxAsymmetry;
        };
        // The third pair is top against left, not the diagonals.
        if (lopsided(topR, bottom) || lopsided(left, right) || lopsided(topR, left))
            return false;
        if (!(peak > peakFactor * NbhdMeanValue()))
            return false;
    }

    CStarShapeStructure& s = *outStar;
    s = CStarShapeStructure{};
    s.valid = 1;
    s.x = cx;
    s.y = cy;
    s.leftRadius = left;
    s.rightRadius = right;
    s.topRadius = topR;
    s.bottomRadius = bottom;
    s.topLeftRadius = topLeft;
    s.topRightRadius = topRight;
    s.bottomLeftRadius = bottomLeft;
    s.bottomRightRadius = bottomRight;
    s.widthX = widths[0];
    s.widthY = widths[1];
    s.widthLeftDiagonal = widths[2];
    s.widthRightDiagonal = widths[3];
    s.majorAxis = major;
    s.minorAxis = minor;
    s.maxRadius = maxRadius;
    s.maxRadiusName = maxName;
    s.eccentricity = eccentricity;
    s.peak = peak;
    s.background = background;
    if (wantFwhm)
        s.fwhm = StarFwhm(*this, channel, px, py, r, background);
    if (wantHfd)
        s.hfd = StarHfd(*this, channel, r, cx, cy, background);
    return true;
}

const float* StarChannel(const Image& image, std::vector<float>* scratch) {
    if (image.colorType != ColorRGB) {
        const int slot = SlotOfColorType(image.colorType);
        return slot >= 0 ? image.curPlane[slot] : nullptr;
    }
    const float* r = image.curPlane[0];
    const float* g = image.curPlane[1];
    const float* b = image.curPlane[2];
    if (!r || !g || !b)
        return nullptr;
    scratch->resize(image.pixelCount);
    float* out = scratch->data();
    const std::size_t w = static_cast<std::size_t>(image.width);
    ParallelRows(image.height, [&](int y0, int y1) {
        for (std::size_t i = y0 * w; i < y1 * w; ++i)
            out[i] = static_cast<float>(image.ValueOf(r[i], g[i], b[i]));
    });
    return out;
}

} // namespace astrivelle
