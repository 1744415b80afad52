// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The exact area of a pixel inside a circle against numeric integration: each quadrant
/// formula, random circles pixel by pixel and in total, the flux of a window, and the
/// "Pt < 0" guard.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "align/FluxInCircle.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

constexpr double kPi = 3.14159265358979323846;

/// Area of [x0, x1] x [y0, y1] inside the circle of radius r about the origin, by the
/// midpoint rule over x of the covered part of each vertical line.
double NumericArea(double x0, double x1, double y0, double y1, double r, int steps = 4000) {
    const double dx = (x1 - x0) / steps;
    double area = 0.0;
    for (int i = 0; i < steps; ++i) {
        const double x = x0 + (i + 0.5) * dx;
        const double q = r * r - x * x;
        if (q <= 0.0)
            continue;
        const double h = std::sqrt(q);
        const double lo = std::max(y0, -h), hi = std::min(y1, h);
        if (hi > lo)
            area += (hi - lo) * dx;
    }
    return area;
}

using Formula = double (*)(double, double, double, double, double, INotify*);

struct FormulaCase {
    const char* name;
    Formula fn;
    int quadrant; // 1..4
    int set;      // 0 nearest only, 1 with the neighbour along x, 2 along y, 3 both
};

/// A square of quadrant I with the wanted corner set inside the circle of radius `r`.
void QuadrantIRect(int set, double* a, double* b, double* c, double* d, double* r) {
    switch (set) {
    case 0: // only (1.2, 1.2) inside a circle of 2
        *a = 1.2, *b = 2.2, *c = 1.2, *d = 2.2, *r = 2.0;
        return;
    case 1: // (0.2, 1.4) and (1.2, 1.4)
        *a = 0.2, *b = 1.2, *c = 1.4, *d = 2.4, *r = 2.0;
        return;
    case 2: // (1.4, 0.2) and (1.4, 1.2)
        *a = 1.4, *b = 2.4, *c = 0.2, *d = 1.2, *r = 2.0;
        return;
    default: // all but (2, 2) inside a circle of 2.5
        *a = 1.0, *b = 2.0, *c = 1.0, *d = 2.0, *r = 2.5;
        return;
    }
}

} // namespace

TEST(FluxInCircle, EveryQuadrantFormulaMatchesIntegration) {
    const FormulaCase cases[] = {
        {"ComputeQuadI_HFDV1", ComputeQuadI_HFDV1, 1, 0},
        {"ComputeQuadI_HFDV1V2", ComputeQuadI_HFDV1V2, 1, 1},
        {"ComputeQuadI_HFDV1V4", ComputeQuadI_HFDV1V4, 1, 2},
        {"ComputeQuadI_HFDV1V2V4", ComputeQuadI_HFDV1V2V4, 1, 3},
        {"ComputeQuadII_HFDV2", ComputeQuadII_HFDV2, 2, 0},
        {"ComputeQuadII_HFDV1V2", ComputeQuadII_HFDV1V2, 2, 1},
        {"ComputeQuadII_HFDV2V3", ComputeQuadII_HFDV2V3, 2, 2},
        {"ComputeQuadII_HFDV1V2V3", ComputeQuadII_HFDV1V2V3, 2, 3},
        {"ComputeQuadIII_HFDV3", ComputeQuadIII_HFDV3, 3, 0},
        {"ComputeQuadIII_HFDV3V4", ComputeQuadIII_HFDV3V4, 3, 1},
        {"ComputeQuadIII_HFDV2V3", ComputeQuadIII_HFDV2V3, 3, 2},
        {"ComputeQuadIII_HFDV2V3V4", ComputeQuadIII_HFDV2V3V4, 3, 3},
        {"ComputeQuadIV_HFDV4", ComputeQuadIV_HFDV4, 4, 0},
        {"ComputeQuadIV_HFDV3V4", ComputeQuadIV_HFDV3V4, 4, 1},
        {"ComputeQuadIV_HFDV1V4", ComputeQuadIV_HFDV1V4, 4, 2},
        {"ComputeQuadIV_HFDV1V3V4", ComputeQuadIV_HFDV1V3V4, 4, 3},
    };
    for (const FormulaCase& fc : cases) {
        SCOPED_TRACE(fc.name);
        double a, b, c, d, r;
        QuadrantIRect(fc.set, &a, &b, &c, &d, &r);
        // Mirror the square of quadrant I into the formula's quadrant.
        const bool left = fc.quadrant == 2 || fc.quadrant == 3;
        const bool down = fc.quadrant == 3 || fc.quadrant == 4;
        const double x0 = left ? -b : a, x1 = left ? -a : b;
        const double y0 = down ? -d : c, y1 = down ? -c : d;
        const double expected = NumericArea(x0, x1, y0, y1, r);
        RecordingNotify notify;
        const double area = fc.fn(x0, x1, y0, y1, r, &notify);
        EXPECT_NEAR(area, expected, 2e-6);
        EXPECT_GT(area, 0.0);
        EXPECT_LT(area, 1.0);
        // The dispatcher picks the same formula for the square.
        EXPECT_DOUBLE_EQ(PixelAreaInCircle(x0, x1, y0, y1, r, &notify), area);
        EXPECT_TRUE(notify.messages.empty());
    }
}

TEST(FluxInCircle, RandomCirclesPixelByPixelAndInTotal) {
    std::mt19937 rng(20240611);
    std::uniform_real_distribution<double> centre(-0.5, 0.5), radius(0.3, 12.0);
    const int half = 13;
    double worst = 0.0;
    for (int trial = 0; trial < 40; ++trial) {
        const double cx = centre(rng), cy = centre(rng), r = radius(rng);
        SCOPED_TRACE("circle " + std::to_string(cx) + ", " + std::to_string(cy) + " r " +
                     std::to_string(r));
        double total = 0.0;
        for (int j = -half; j <= half; ++j)
            for (int i = -half; i <= half; ++i) {
                const double x0 = i - 0.5 - cx, y0 = j - 0.5 - cy;
                const double area = PixelAreaInCircle(x0, x0 + 1.0, y0, y0 + 1.0, r);
                total += area;
                // Integration only where the circle's edge may cross the pixel.
                const double dist = std::hypot(i - cx, j - cy);
                if (std::fabs(dist - r) < 0.75) {
                    const double expected = NumericArea(x0, x0 + 1.0, y0, y0 + 1.0, r, 2000);
                    ASSERT_NEAR(area, expected, 2e-5) << "pixel " << i << ", " << j;
                    worst = std::max(worst, std::fabs(area - expected));
                } else {
                    ASSERT_NEAR(area, dist < r ? 1.0 : 0.0, 1e-12) << "pixel " << i << ", " << j;
                }
            }
        // The whole circle lies in the window: the areas add up to pi r^2.
        EXPECT_NEAR(total, kPi * r * r, 1e-9 * r * r);
    }
    RecordProperty("worst_pixel_error", std::to_string(worst));
}

TEST(FluxInCircle, WindowFluxWeighsPixelsByTheirArea) {
    // A window of ones gives the area; a window with one bright pixel at (1, 0) from the
    // centre gives that pixel's own share.
    const int half = 5, side = 2 * half + 1;
    std::vector<float> ones(side * side, 1.0f);
    for (double r : {0.5, 1.7, 3.25, 5.0})
        EXPECT_NEAR(FluxInCircle(ones.data(), half, 0.2, -0.3, r), kPi * r * r, 1e-9) << r;
    std::vector<float> one(side * side, 0.0f);
    one[half * side + half + 1] = 1000.0f; // one column right of the centre
    const double r = 1.2, cx = 0.25, cy = 0.1;
    const double expected = 1000.0 * NumericArea(0.5 - cx, 1.5 - cx, -0.5 - cy, 0.5 - cy, r);
    EXPECT_NEAR(FluxInCircle(one.data(), half, cx, cy, r), expected, 1e-3);
    // Rows run downwards in the window while y points up: a pixel one row above the centre
    // is at y = +1.
    std::vector<float> above(side * side, 0.0f);
    above[(half - 1) * side + half] = 1.0f;
    EXPECT_NEAR(FluxInCircle(above.data(), half, 0.0, 0.6, 0.8),
                NumericArea(-0.5, 0.5, 0.5 - 0.6, 1.5 - 0.6, 0.8), 1e-6);
}

TEST(FluxInCircle, NegativeAreaIsSaidAndUsed) {
    // A formula asked about a square it does not fit (no corner inside) gives a negative
    // value: the guard names the function and the value is still returned.
    RecordingNotify notify;
    const double v = ComputeQuadIII_HFDV3V4(-3.0, -2.5, -3.0, -2.5, 1.0, &notify);
    EXPECT_LT(v, -0.00001);
    ASSERT_EQ(notify.messages.size(), 1u);
    EXPECT_EQ(notify.messages[0], "ComputeQuadIII_HFDV3V4Pt < 0");
    // Without a notifier nothing is said and the value is the same.
    EXPECT_DOUBLE_EQ(ComputeQuadIII_HFDV3V4(-3.0, -2.5, -3.0, -2.5, 1.0, nullptr), v);
}
