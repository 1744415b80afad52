// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The hexcone HSV and sRGB/D65 Lab conversions: known values and round trips.
#include <gtest/gtest.h>

#include <cmath>

#include "engine/Image.h"

namespace astrivelle {
namespace {

TEST(Hsv, KnownColours) {
    struct Case {
        double r, g, b, h, s, v;
    } cases[] = {
        {65535, 0, 0, 0.0, 1, 65535},        {0, 65535, 0, 1.0 / 3, 1, 65535},
        {0, 0, 65535, 2.0 / 3, 1, 65535},    {65535, 65535, 0, 1.0 / 6, 1, 65535},
        {0, 65535, 65535, 0.5, 1, 65535},    {65535, 0, 65535, 5.0 / 6, 1, 65535},
        {100, 100, 100, 0, 0, 100},          {0, 0, 0, 0, 0, 0},
        {200, 100, 0, 1.0 / 12, 1, 200},     {200, 0, 100, 11.0 / 12, 1, 200},
        {400, 300, 100, 1.0 / 9, 0.75, 400},
    };
    for (const Case& c : cases) {
        double h, s, v;
        Image::RgbToHsv(c.r, c.g, c.b, &h, &s, &v);
        EXPECT_NEAR(h, c.h, 1e-15) << c.r << " " << c.g << " " << c.b;
        EXPECT_NEAR(s, c.s, 1e-15);
        EXPECT_EQ(v, c.v);
    }
}

TEST(Hsv, ExactSectorBoundaries) {
    // Pure green and blue land exactly on h6 = 2 and 4, where the two other channels are p.
    double h, s, v, r, g, b;
    Image::RgbToHsv(0, 1000, 0, &h, &s, &v);
    EXPECT_EQ(h * 6.0, 2.0);
    Image::HsvToRgb(h, 0.25, 1000, &r, &g, &b);
    EXPECT_EQ(r, 750.0);
    EXPECT_EQ(g, 1000.0);
    EXPECT_EQ(b, 750.0);
    Image::RgbToHsv(0, 0, 1000, &h, &s, &v);
    EXPECT_EQ(h * 6.0, 4.0);
    Image::HsvToRgb(h, 0.25, 1000, &r, &g, &b);
    EXPECT_EQ(r, 750.0);
    EXPECT_EQ(g, 750.0);
    EXPECT_EQ(b, 1000.0);
    // Hue 1.0 is hue 0.
    Image::HsvToRgb(1.0, 1.0, 500, &r, &g, &b);
    EXPECT_EQ(r, 500.0);
    EXPECT_EQ(g, 0.0);
    EXPECT_EQ(b, 0.0);
    // v = 0 gives black, s = 0 gray.
    Image::HsvToRgb(0.3, 0.5, 0, &r, &g, &b);
    EXPECT_EQ(r + g + b, 0.0);
    Image::HsvToRgb(0.3, 0, 321, &r, &g, &b);
    EXPECT_EQ(r, 321.0);
    EXPECT_EQ(g, 321.0);
    EXPECT_EQ(b, 321.0);
}

TEST(Hsv, RoundTripOverAGrid) {
    const double levels[] = {0, 1, 257, 1000, 20000, 32767.5, 50000, 65535};
    for (double r : levels)
        for (double g : levels)
            for (double b : levels) {
                double h, s, v, r2, g2, b2;
                Image::RgbToHsv(r, g, b, &h, &s, &v);
                ASSERT_GE(h, 0.0);
                ASSERT_LT(h, 1.0);
                Image::HsvToRgb(h, s, v, &r2, &g2, &b2);
                EXPECT_NEAR(r2, r, 1e-9) << r << " " << g << " " << b;
                EXPECT_NEAR(g2, g, 1e-9) << r << " " << g << " " << b;
                EXPECT_NEAR(b2, b, 1e-9) << r << " " << g << " " << b;
            }
}

TEST(Lab, KnownValues) {
    // Worked by hand (in double) from the conversion's constants; the single-precision
    // result must agree to the last few digits.
    struct Case {
        float r, g, b;
        double L, a, bb;
    } cases[] = {
        {65535, 65535, 65535, 100.0, 0.0150798, 0.0046534},
        {0, 0, 0, -5.2e-7, 0.0, 0.0},
        {32768, 32768, 32768, 53.389728, 0.0090205, 0.0027836},
        {65535, 0, 0, 53.240588, 80.092308, 67.202751},
        {0, 65535, 0, 87.735099, -86.149385, 83.179703},
        {0, 0, 65535, 32.295673, 79.185591, -107.857300},
        {1000, 20000, 50000, 36.680428, 27.581795, -65.998216},
    };
    for (const Case& c : cases) {
        float L, a, bb;
        Image::RgbToLab(c.r, c.g, c.b, &L, &a, &bb);
        EXPECT_NEAR(L, c.L, 2e-4) << c.r << " " << c.g << " " << c.b;
        EXPECT_NEAR(a, c.a, 2e-3) << c.r << " " << c.g << " " << c.b;
        EXPECT_NEAR(bb, c.bb, 2e-3) << c.r << " " << c.g << " " << c.b;
    }
}

TEST(Lab, RoundTripErrorPattern) {
    // The inverse matrix is rounded to four places, so a round trip does not return the input
    // exactly; these are the errors of that pair of matrices (worked in double).
    struct Case {
        float r, g, b;
        double r2, g2, b2;
    } cases[] = {
        {65535, 65535, 65535, 65535.0, 65534.70, 65528.06},
        {0, 0, 0, 0.0, 0.0, 0.0},
        {32768, 32768, 32768, 32772.83, 32767.84, 32764.35},
        {65535, 0, 0, 65535.0, 88.83, 20.99},
        {0, 65535, 0, 274.53, 65531.76, 14.51},
        {0, 0, 65535, 0.0, 0.0, 65526.85},
        {1000, 20000, 50000, 1001.27, 19998.71, 49993.73},
    };
    for (const Case& c : cases) {
        float L, a, bb, r, g, b;
        Image::RgbToLab(c.r, c.g, c.b, &L, &a, &bb);
        Image::LabToRgb(L, a, bb, &r, &g, &b);
        EXPECT_NEAR(r, c.r2, 1.0) << c.r << " " << c.g << " " << c.b;
        EXPECT_NEAR(g, c.g2, 1.0) << c.r << " " << c.g << " " << c.b;
        EXPECT_NEAR(b, c.b2, 1.0) << c.r << " " << c.g << " " << c.b;
    }
}

TEST(Lab, InverseClampsToTheLevelRange) {
    float r, g, b;
    Image::LabToRgb(100.0f, 127.0f, 127.0f, &r, &g, &b); // outside the sRGB gamut
    EXPECT_EQ(r, 65535.0f);
    EXPECT_GE(g, 0.0f);
    EXPECT_EQ(b, 0.0f);
    Image::LabToRgb(-20.0f, 0.0f, 0.0f, &r, &g, &b);
    EXPECT_EQ(r, 0.0f);
    EXPECT_EQ(g, 0.0f);
    EXPECT_EQ(b, 0.0f);
}

} // namespace
} // namespace astrivelle
