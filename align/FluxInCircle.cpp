// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The exact area of a pixel square inside a circle: one closed formula per quadrant
/// and corner set, the dispatcher with the squares that cross an axis, and the flux of a star
/// window inside a circle.
#include "align/FluxInCircle.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "engine/Notify.h"

namespace astrivelle {

namespace {

/// Height of the arc above the x axis at x (0 beyond the circle).
inline double ArcHeight(double x, double r) {
    const double q = r * r - x * x;
    return q > 0.0 ? std::sqrt(q) : 0.0;
}

/// The integral of the arc height from 0 to x (0 <= x <= r): the area under the arc.
inline double ArcIntegral(double x, double r) {
    if (r <= 0.0)
        return 0.0;
    const double s = std::clamp(x / r, -1.0, 1.0);
    return 0.5 * (x * ArcHeight(x, r) + r * r * std::asin(s));
}

// The four formulas of a square [a, b] x [c, d] of quadrant I (0 <= a <= b, 0 <= c <= d),
// named by the corners inside besides the nearest one (a, c): none, (b, c) along x, (a, d)
// along y, both. The arc meets y = c at x = ArcHeight(c) and y = d at x = ArcHeight(d).

/// Only (a, c): the arc enters through the left edge and leaves through the bottom edge.
double NearOnly(double a, double b, double c, double r) {
    const double xb = std::clamp(ArcHeight(c, r), a, b);
    return ArcIntegral(xb, r) - ArcIntegral(a, r) - c * (xb - a);
}

/// (a, c) and (b, c): the whole bottom edge is inside; the arc runs from left to right edge.
double AlongX(double a, double b, double c, double r) {
    return ArcIntegral(b, r) - ArcIntegral(a, r) - c * (b - a);
}

/// (a, c) and (a, d): the whole left edge is inside; the arc runs from top to bottom edge.
double AlongY(double a, double b, double c, double d, double r) {
    const double xt = std::clamp(ArcHeight(d, r), a, b);
    const double xb = std::clamp(ArcHeight(c, r), xt, b);
    return (xt - a) * (d - c) + ArcIntegral(xb, r) - ArcIntegral(xt, r) - c * (xb - xt);
}

/// All but the far corner (b, d): the arc runs from the top edge to the right edge.
double AllButFar(double a, double b, double c, double d, double r) {
    const double xt = std::clamp(ArcHeight(d, r), a, b);
    return (xt - a) * (d - c) + ArcIntegral(b, r) - ArcIntegral(xt, r) - c * (b - xt);
}

/// The debugging guard every formula keeps: a negative area is said and used all the same.
double Checked(double area, const char* name, INotify* notify) {
    if (area < -0.00001 && notify)
        notify->Message(std::string(name) + "Pt < 0");
    return area;
}

} // namespace

// ---- quadrant I: (a, b, c, d) = (x0, x1, y0, y1) ------------------------------------------

double ComputeQuadI_HFDV1(double x0, double x1, double y0, double, double r, INotify* notify) {
    return Checked(NearOnly(x0, x1, y0, r), "ComputeQuadI_HFDV1", notify);
}
double ComputeQuadI_HFDV1V2(double x0, double x1, double y0, double, double r, INotify* notify) {
    return Checked(AlongX(x0, x1, y0, r), "ComputeQuadI_HFDV1V2", notify);
}
double ComputeQuadI_HFDV1V4(double x0, double x1, double y0, double y1, double r, INotify* notify) {
    return Checked(AlongY(x0, x1, y0, y1, r), "ComputeQuadI_HFDV1V4", notify);
}
double ComputeQuadI_HFDV1V2V4(double x0, double x1, double y0, double y1, double r,
                              INotify* notify) {
    return Checked(AllButFar(x0, x1, y0, y1, r), "ComputeQuadI_HFDV1V2V4", notify);
}

// ---- quadrant II: mirrored in x, (a, b, c, d) = (-x1, -x0, y0, y1) --------------------------

double ComputeQuadII_HFDV2(double x0, double x1, double y0, double, double r, INotify* notify) {
    return Checked(NearOnly(-x1, -x0, y0, r), "ComputeQuadII_HFDV2", notify);
}
double ComputeQuadII_HFDV1V2(double x0, double x1, double y0, double, double r, INotify* notify) {
    return Checked(AlongX(-x1, -x0, y0, r), "ComputeQuadII_HFDV1V2", notify);
}
double ComputeQuadII_HFDV2V3(double x0, double x1, double y0, double y1, double r,
                             INotify* notify) {
    return Checked(AlongY(-x1, -x0, y0, y1, r), "ComputeQuadII_HFDV2V3", notify);
}
double ComputeQuadII_HFDV1V2V3(double x0, double x1, double y0, double y1, double r,
                               INotify* notify) {
    return Checked(AllButFar(-x1, -x0, y0, y1, r), "ComputeQuadII_HFDV1V2V3", notify);
}

// ---- quadrant III: mirrored in both, (a, b, c, d) = (-x1, -x0, -y1, -y0) --------------------

double ComputeQuadIII_HFDV3(double x0, double x1, double, double y1, double r, INotify* notify) {
    return Checked(NearOnly(-x1, -x0, -y1, r), "ComputeQuadIII_HFDV3", notify);
}
double ComputeQuadIII_HFDV3V4(double x0, double x1, double, double y1, double r, INotify* notify) {
    return Checked(AlongX(-x1, -x0, -y1, r), "ComputeQuadIII_HFDV3V4", notify);
}
double ComputeQuadIII_HFDV2V3(double x0, double x1, double y0, double y1, double r,
                              INotify* notify) {
    return Checked(AlongY(-x1, -x0, -y1, -y0, r), "ComputeQuadIII_HFDV2V3", notify);
}
double ComputeQuadIII_HFDV2V3V4(double x0, double x1, double y0, double y1, double r,
                                INotify* notify) {
    return Checked(AllButFar(-x1, -x0, -y1, -y0, r), "ComputeQuadIII_HFDV2V3V4", notify);
}

// ---- quadrant IV: mirrored in y, (a, b, c, d) = (x0, x1, -y1, -y0) --------------------------

double ComputeQuadIV_HFDV4(double x0, double x1, double, double y1, double r, INotify* notify) {
    return Checked(NearOnly(x0, x1, -y1, r), "ComputeQuadIV_HFDV4", notify);
}
double ComputeQuadIV_HFDV3V4(double x0, double x1, double, double y1, double r, INotify* notify) {
    return Checked(AlongX(x0, x1, -y1, r), "ComputeQuadIV_HFDV3V4", notify);
}
double ComputeQuadIV_HFDV1V4(double x0, double x1, double y0, double y1, double r,
                             INotify* notify) {
    return Checked(AlongY(x0, x1, -y1, -y0, r), "ComputeQuadIV_HFDV1V4", notify);
}
double ComputeQuadIV_HFDV1V3V4(double x0, double x1, double y0, double y1, double r,
                               INotify* notify) {
    return Checked(AllButFar(x0, x1, -y1, -y0, r), "ComputeQuadIV_HFDV1V3V4", notify);
}

// ---- the dispatcher -------------------------------------------------------------------------

namespace {

using QuadFormula = double (*)(double, double, double, double, double, INotify*);

/// By quadrant (I..IV) the formulas of: nearest only, with the neighbour along x, with the
/// neighbour along y, with both.
const QuadFormula kFormulas[4][4] = {
    {ComputeQuadI_HFDV1, ComputeQuadI_HFDV1V2, ComputeQuadI_HFDV1V4, ComputeQuadI_HFDV1V2V4},
    {ComputeQuadII_HFDV2, ComputeQuadII_HFDV1V2, ComputeQuadII_HFDV2V3, ComputeQuadII_HFDV1V2V3},
    {ComputeQuadIII_HFDV3, ComputeQuadIII_HFDV3V4, ComputeQuadIII_HFDV2V3,
     ComputeQuadIII_HFDV2V3V4},
    {ComputeQuadIV_HFDV4, ComputeQuadIV_HFDV3V4, ComputeQuadIV_HFDV1V4, ComputeQuadIV_HFDV1V3V4},
};

/// A square inside one quadrant (touching an axis at most).
double QuadrantArea(double x0, double x1, double y0, double y1, double r, INotify* notify) {
    const bool right = x1 > 0.0, up = y1 > 0.0;
    // In mirrored coordinates the square is [a, b] x [c, d] of quadrant I.
    const double a = right ? x0 : -x1, b = right ? x1 : -x0;
    const double c = up ? y0 : -y1, d = up ? y1 : -y0;
    const double r2 = r * r;
    if (b * b + d * d <= r2)
        return (x1 - x0) * (y1 - y0); // all four corners inside
    if (a * a + c * c > r2)
        return 0.0; // not even the nearest corner
    const bool alongX = b * b + c * c <= r2, alongY = a * a + d * d <= r2;
    const int quadrant = right ? (up ? 0 : 3) : (up ? 1 : 2);
    const int set = (alongX ? 1 : 0) + (alongY ? 2 : 0);
    return kFormulas[quadrant][set](x0, x1, y0, y1, r, notify);
}

} // namespace

double PixelAreaInCircle(double x0, double x1, double y0, double y1, double r, INotify* notify) {
    if (!(r > 0.0) || x1 <= x0 || y1 <= y0)
        return 0.0;
    // The axis cases: cut the square where it crosses an axis.
    const double xs[3] = {x0, x0 < 0.0 && x1 > 0.0 ? 0.0 : x1, x1};
    const double ys[3] = {y0, y0 < 0.0 && y1 > 0.0 ? 0.0 : y1, y1};
    double area = 0.0;
    for (int i = 0; i < 2; ++i) {
        if (xs[i + 1] <= xs[i])
            continue;
        for (int j = 0; j < 2; ++j)
            if (ys[j + 1] > ys[j])
                area += QuadrantArea(xs[i], xs[i + 1], ys[j], ys[j + 1], r, notify);
    }
    return area;
}

double FluxInCircle(const float* window, int half, double cx, double cy, double r,
                    INotify* notify) {
    if (!window || half < 0 || !(r > 0.0))
        return 0.0;
    const int side = 2 * half + 1;
    const double reach = r + 0.7072; // beyond this distance of its centre a pixel is outside
    double flux = 0.0;
    for (int j = 0; j < side; ++j) {
        const double py = static_cast<double>(half - j) - cy;
        if (std::fabs(py) > reach)
            continue;
        const float* row = window + static_cast<std::size_t>(j) * side;
        for (int i = 0; i < side; ++i) {
            const double v = row[i];
            if (v == 0.0)
                continue;
            const double px = static_cast<double>(i - half) - cx;
            if (px * px + py * py > reach * reach)
                continue;
            flux += v * PixelAreaInCircle(px - 0.5, px + 0.5, py - 0.5, py + 0.5, r, notify);
        }
    }
    return flux;
}

} // namespace astrivelle
