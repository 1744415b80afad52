// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The neighbourhood buffer: filling at edges, its measures and the centroid.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "TestSupport.h"
#include "engine/Image.h"

namespace astrivelle {
namespace {

TEST(Neighbourhood, CornerUsesOnlyValidSamples) {
    // v = 10 y + x + 1 on 5 x 5; about (0, 0) radius 2 the valid samples are
    // 1 2 3 11 12 13 21 22 23.
    Image img;
    test::MakeImage(img, 5, 5, ColorGray, [](int, int x, int y) { return 10 * y + x + 1; });
    img.FillNbhd(img.curPlane[0], 0, 0, 2);
    ASSERT_EQ(img.nbhdCount, 25);
    EXPECT_EQ(img.nbhdSide, 5);
    int outside = 0;
    for (int i = 0; i < img.nbhdCount; ++i)
        outside += img.nbhd[i] == -1.0f;
    EXPECT_EQ(outside, 16);
    EXPECT_EQ(img.nbhd[2 * 5 + 2], 1.0f); // the centre
    EXPECT_DOUBLE_EQ(img.MeanOfNbhd(), 12.0);
    EXPECT_EQ(img.MedianOfNbhd(), 12u);
    EXPECT_EQ(img.MaxOfNbhd(), 23.0);
    EXPECT_EQ(img.MinOfNbhd(), 1.0);

    // The opposite corner: samples 23 24 25 33 34 35 43 44 45.
    img.FillNbhd(img.curPlane[0], 4, 4, 2);
    EXPECT_DOUBLE_EQ(img.MeanOfNbhd(), 34.0);
    EXPECT_EQ(img.MedianOfNbhd(), 34u);
    EXPECT_EQ(img.nbhdX, 4u);
    EXPECT_EQ(img.nbhdY, 4u);
}

TEST(Neighbourhood, MedianOfRadiusZeroRoundsTheSample) {
    struct Case {
        float v;
        std::uint32_t level;
    } cases[] = {{7.5f, 7}, {7.51f, 8}, {-3.0f, 0}, {80000.0f, 65535}};
    for (const Case& c : cases) {
        Image img;
        test::MakeImage(img, 1, 1, ColorGray, [&](int, int, int) { return c.v; });
        img.FillNbhd(img.curPlane[0], 0, 0, 0);
        EXPECT_EQ(img.nbhdCount, 1);
        EXPECT_EQ(img.MedianOfNbhd(), c.level) << c.v;
    }
}

TEST(Neighbourhood, MedianSortsRoundedSamples) {
    // Rounded: 1 1 2 2 3 3 4 4 9 -> element 9 / 2 = 4 is 3.
    const float v[] = {1.4f, 0.6f, 2.5f, 1.6f, 3.0f, 2.51f, 4.0f, 3.5f, 9.0f};
    Image img;
    test::MakeImage(img, 3, 3, ColorGray, [&](int, int x, int y) { return v[y * 3 + x]; });
    img.FillNbhd(img.curPlane[0], 1, 1, 1);
    EXPECT_EQ(img.MedianOfNbhd(), 3u);
}

TEST(Neighbourhood, StdDevUsesTruncatedMean) {
    // Mean 2.9 truncates to 2: squared deviations 8 * 4 + 24.1^2.
    Image img;
    test::MakeImage(img, 3, 3, ColorGray,
                    [](int, int x, int y) { return x == 2 && y == 2 ? 26.1f : 0.0f; });
    img.FillNbhd(img.curPlane[0], 1, 1, 1);
    const double last = static_cast<double>(26.1f) - 2.0;
    EXPECT_NEAR(img.StdDevOfNbhd(), std::sqrt((32.0 + last * last) / 8.0), 1e-9);

    img.FillNbhd(img.curPlane[0], 0, 0, 0); // one sample
    EXPECT_EQ(img.StdDevOfNbhd(), 0.0);
}

TEST(Neighbourhood, EntropyFollowsThePlaneRules) {
    const float v[] = {1, 1, 1, 1, 2, 2, 2, 3, 3};
    Image img;
    test::MakeImage(img, 3, 3, ColorGray, [&](int, int x, int y) { return v[y * 3 + x]; });
    img.FillNbhd(img.curPlane[0], 1, 1, 1);
    const double p1 = 4.0 / 9, p2 = 3.0 / 9, p3 = 2.0 / 9;
    const double entropy = -(p1 * std::log(p1) + p2 * std::log(p2) + p3 * std::log(p3));
    EXPECT_NEAR(img.EntropyOfNbhd(), entropy, 1e-12);
    EXPECT_NEAR(img.EntropyRatioOfNbhd(), -(p1 * std::log(p1) + p2 * std::log(p2)) / entropy,
                1e-12);
    // The whole 3 x 3 plane through ComputeStatistics gives the same numbers exactly.
    img.ComputeStatistics();
    EXPECT_EQ(img.EntropyOfNbhd(), img.redStats.entropy);
    EXPECT_EQ(img.EntropyRatioOfNbhd(), img.redStats.entropyRatio);

    Image flat;
    test::MakeImage(flat, 3, 3, ColorGray, [](int, int, int) { return 5.0; });
    flat.FillNbhd(flat.curPlane[0], 1, 1, 1);
    EXPECT_EQ(flat.EntropyOfNbhd(), 0.0);
    EXPECT_EQ(flat.EntropyRatioOfNbhd(), -1.0);
}

TEST(Neighbourhood, CentroidInImageCoordinates) {
    // A symmetric blob about (4, 5) on a 9 x 9 image.
    Image img;
    test::MakeImage(img, 9, 9, ColorGray, [](int, int x, int y) {
        const double d2 = (x - 4) * (x - 4) + (y - 5) * (y - 5);
        return 1000.0 * std::exp(-d2 / 2.0) + 50.0;
    });
    img.FillNbhd(img.curPlane[0], 4, 5, 2);
    double cx = 0, cy = 0;
    img.CentroidOfNbhd(&cx, &cy);
    EXPECT_NEAR(cx, 4.0, 1e-9);
    EXPECT_NEAR(cy, 5.0, 1e-9);

    // Centre 10 and its right neighbour 4, the rest 0: background 14/9, weights are the
    // heights above it, so cx = 4 + (4 - 14/9) / (14 - 28/9).
    Image two;
    test::MakeImage(two, 9, 9, ColorGray, [](int, int x, int y) {
        return y == 4 && x == 4 ? 10.0 : (y == 4 && x == 5 ? 4.0 : 0.0);
    });
    two.FillNbhd(two.curPlane[0], 4, 4, 1);
    two.CentroidOfNbhd(&cx, &cy);
    EXPECT_NEAR(cx, 4.0 + (4.0 - 14.0 / 9) / (14.0 - 28.0 / 9), 1e-9);
    EXPECT_NEAR(cy, 4.0, 1e-12);

    // Radius 0 and a flat window give the centre.
    two.FillNbhd(two.curPlane[0], 7, 2, 0);
    two.CentroidOfNbhd(&cx, &cy);
    EXPECT_EQ(cx, 7.0);
    EXPECT_EQ(cy, 2.0);
    two.FillNbhd(two.curPlane[0], 1, 7, 1);
    two.CentroidOfNbhd(&cx, &cy);
    EXPECT_EQ(cx, 1.0);
    EXPECT_EQ(cy, 7.0);
}

TEST(Neighbourhood, ColourFillStoresTheValue) {
    Image img;
    test::MakeImage(img, 2, 2, ColorRGB,
                    [](int s, int x, int y) { return s == x + y ? 100.0 * (s + 1) : 1.0; });
    img.FillNbhdColor(img.curPlane[0], img.curPlane[1], img.curPlane[2], 0, 0, 1);
    // Row by row about (0, 0): the first row and column are outside.
    const float expect[] = {-1, -1, -1, -1, 100, 200, -1, 200, 300};
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(img.nbhd[i], expect[i]) << i;
}

TEST(Neighbourhood, MeasureFillsTheResults) {
    Image img;
    test::MakeImage(img, 5, 5, ColorGray, [](int, int x, int y) { return 10 * y + x + 1; });
    img.FillNbhd(img.curPlane[0], 0, 0, 2);
    img.MeasureNeighbourhood();
    EXPECT_DOUBLE_EQ(img.nbhdMean, 12.0);
    EXPECT_DOUBLE_EQ(img.nbhdAverage, 12.0);
    EXPECT_EQ(img.nbhdMedian, 12u);
    EXPECT_EQ(img.nbhdMax, 23.0);
    EXPECT_EQ(img.nbhdMin, 1.0);
    EXPECT_NEAR(img.nbhdEntropy, std::log(9.0), 1e-12);
    EXPECT_GT(img.nbhdStdDev, 0.0);
    EXPECT_GT(img.nbhdCentroidX, 0.0); // brighter samples lie right and below
    EXPECT_GT(img.nbhdCentroidY, 0.0);
}

TEST(Neighbourhood, BuffersAreSizedByRadius) {
    Image img;
    img.SetNbhdRadius(3);
    EXPECT_EQ(img.nbhdSide, 7);
    EXPECT_EQ(img.nbhdCount, 49);
    for (int i = 0; i <= img.nbhdCount; ++i)
        EXPECT_EQ(img.nbhd[i], 0.0f);
    img.SetNbhdAltRadius(5);
    img.SetStarShapeRadius(1);
    ASSERT_NE(img.nbhdAlt, nullptr);
    ASSERT_NE(img.nbhdStar, nullptr);
    EXPECT_EQ(img.nbhdCount, 49); // the counts describe nbhd
    img.nbhdAlt[121] = 1.0f;      // (2*5+1)^2 + 1 floats
    img.nbhdStar[9] = 1.0f;
}

} // namespace
} // namespace astrivelle
