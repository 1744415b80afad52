// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Image::Scale: its refusals and texts, the three resampling kernels and the commit.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "TestSupport.h"
#include "engine/Image.h"

namespace astrivelle {
namespace {

constexpr const char* kNoFactor = "Could Not Determine The Image Factor - Image::Scale()";

ScaleParams ByFactor(double f, int type, bool commit = true) {
    ScaleParams p;
    p.byFactor = true;
    p.preserveAspect = true;
    p.uniformFactor = f;
    p.resampleType = type;
    p.commit = commit;
    return p;
}

TEST(Scale, FactorOneChangesNothing) {
    Image img;
    test::MakeImage(img, 4, 3, ColorGray, [](int, int x, int y) { return x + 10 * y; });
    float* cur = img.curPlane[0];
    test::RecordingNotify notify;
    std::string text;
    ScaleParams p = ByFactor(1.0, 2);
    EXPECT_FALSE(img.Scale(p, img.curPlane[0], img.prevPlane[0], &text, &notify));
    EXPECT_EQ(text, "No Scale Needed");
    EXPECT_TRUE(notify.messages.empty());
    EXPECT_EQ(img.curPlane[0], cur);
    EXPECT_EQ(img.width, 4);
    EXPECT_EQ(img.curPlane[0][5], 11.0f);

    // The same by dimension: 4 x 3 to 4 x 3.
    p = ScaleParams{};
    p.byDimension = true;
    p.newWidth = 4.9; // truncated
    p.newHeight = 3;
    text.clear();
    EXPECT_FALSE(img.Scale(p, img.curPlane[0], img.prevPlane[0], &text, &notify));
    EXPECT_EQ(text, "No Scale Needed");
}

TEST(Scale, FlagsMustNameExactlyOneWay) {
    for (bool both : {true, false}) {
        Image img;
        test::MakeImage(img, 4, 3, ColorGray, [](int, int x, int) { return x; });
        ScaleParams p = ByFactor(2.0, 1);
        p.byDimension = both;
        p.byFactor = both;
        test::RecordingNotify notify;
        std::string text;
        EXPECT_FALSE(img.Scale(p, img.curPlane[0], img.prevPlane[0], &text, &notify));
        EXPECT_EQ(text, kNoFactor);
        ASSERT_EQ(notify.messages.size(), 1u);
        EXPECT_EQ(notify.messages[0], kNoFactor);
        EXPECT_EQ(img.width, 4);
        // Without a notifier the text still comes back.
        text.clear();
        EXPECT_FALSE(img.Scale(p, img.curPlane[0], img.prevPlane[0], &text));
        EXPECT_EQ(text, kNoFactor);
    }
}

TEST(Scale, NearestDoublingReplicatesPixels) {
    Image img;
    test::MakeImage(img, 3, 2, ColorGray, [](int, int x, int y) { return 1 + x + 3 * y; });
    img.prevPlane[0][0] = 99.0f;
    std::string text;
    ASSERT_TRUE(img.Scale(ByFactor(2.0, 1), img.curPlane[0], img.prevPlane[0], &text));
    EXPECT_EQ(img.width, 6);
    EXPECT_EQ(img.height, 4);
    EXPECT_EQ(img.pixelCount, 24u);
    const float expect[4][6] = {
        {1, 1, 2, 2, 3, 3}, {1, 1, 2, 2, 3, 3}, {4, 4, 5, 5, 6, 6}, {4, 4, 5, 5, 6, 6}};
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x)
            EXPECT_EQ(img.curPlane[0][y * 6 + x], expect[y][x]) << x << "," << y;
    // The previous plane is resampled too.
    EXPECT_EQ(img.prevPlane[0][0], 99.0f);
    EXPECT_EQ(img.prevPlane[0][7], 99.0f);
    EXPECT_EQ(img.prevPlane[0][8], 2.0f);
}

TEST(Scale, NearestHalvingTakesTheSecondOfEachPair) {
    // Target centres map to source 0.5 and 2.5, which round up to pixels 1 and 3.
    Image img;
    test::MakeImage(img, 4, 4, ColorGray, [](int, int x, int y) { return x + 10 * y; });
    std::string text;
    ASSERT_TRUE(img.Scale(ByFactor(0.5, 1), img.curPlane[0], img.prevPlane[0], &text));
    ASSERT_EQ(img.width, 2);
    EXPECT_EQ(img.curPlane[0][0], 11.0f);
    EXPECT_EQ(img.curPlane[0][1], 13.0f);
    EXPECT_EQ(img.curPlane[0][2], 31.0f);
    EXPECT_EQ(img.curPlane[0][3], 33.0f);
}

TEST(Scale, SmoothKernelsKeepAConstant) {
    for (int type : {2, 3})
        for (double f : {0.37, 1.5, 2.0, 3.3}) {
            Image img;
            test::MakeImage(img, 7, 5, ColorGray, [](int, int, int) { return 1234.5; });
            std::string text;
            ASSERT_TRUE(img.Scale(ByFactor(f, type), img.curPlane[0], img.prevPlane[0], &text));
            EXPECT_EQ(img.width, static_cast<int>(7 * f));
            for (std::uint32_t i = 0; i < img.pixelCount; ++i)
                ASSERT_EQ(img.curPlane[0][i], 1234.5f) << "type " << type << " factor " << f;
        }
}

TEST(Scale, SmoothKernelsAreExactOnARampInside) {
    // Bilinear and the cubic B-spline both reproduce a linear function wherever their taps
    // stay inside the image.
    for (int type : {2, 3}) {
        const int radius = type - 1;
        Image img;
        test::MakeImage(img, 12, 10, ColorGray,
                        [](int, int x, int y) { return 100.0 + 3.0 * x + 7.0 * y; });
        std::string text;
        ASSERT_TRUE(img.Scale(ByFactor(2.0, type), img.curPlane[0], img.prevPlane[0], &text));
        ASSERT_EQ(img.width, 24);
        int checked = 0;
        for (int y = 0; y < img.height; ++y)
            for (int x = 0; x < img.width; ++x) {
                const double sx = (x + 0.5) / 2.0 - 0.5, sy = (y + 0.5) / 2.0 - 0.5;
                const int cx = static_cast<int>(std::floor(sx + 0.5));
                const int cy = static_cast<int>(std::floor(sy + 0.5));
                if (cx - radius < 0 || cy - radius < 0 || cx + radius > 11 || cy + radius > 9)
                    continue;
                EXPECT_NEAR(img.curPlane[0][y * 24 + x], 100.0 + 3.0 * sx + 7.0 * sy, 1e-3)
                    << "type " << type << " at " << x << "," << y;
                ++checked;
            }
        EXPECT_GT(checked, 100);
    }
}

TEST(Scale, BicubicIsTheBSplineNotAnInterpolator) {
    // A single bright pixel spreads: the B-spline weights at offset 0 and 1 are 2/3 and 1/6.
    Image img;
    test::MakeImage(img, 9, 9, ColorGray,
                    [](int, int x, int y) { return x == 4 && y == 4 ? 36.0 : 0.0; });
    ScaleParams p;
    p.byFactor = true;
    p.preserveAspect = false;
    p.factorX = 2.0;
    p.factorY = 2.0;
    p.resampleType = 3;
    p.commit = true;
    std::string text;
    ASSERT_TRUE(img.Scale(p, img.curPlane[0], img.prevPlane[0], &text));
    // Target (8, 8) maps to source 3.75: offsets from pixel 4 are -0.25 on both axes.
    auto R = [](double t) {
        auto P = [](double u) { return u > 0 ? u * u * u : 0.0; };
        return (P(t + 2) - 4 * P(t + 1) + 6 * P(t) - 4 * P(t - 1)) / 6;
    };
    EXPECT_NEAR(R(0), 2.0 / 3, 1e-15);
    EXPECT_NEAR(R(1), 1.0 / 6, 1e-15);
    EXPECT_NEAR(img.curPlane[0][8 * 18 + 8], 36.0 * R(-0.25) * R(-0.25), 1e-4);
    EXPECT_NEAR(img.curPlane[0][9 * 18 + 9], 36.0 * R(0.25) * R(0.25), 1e-4);
}

TEST(Scale, ByDimensionAndCommitPerChannel) {
    Image img;
    test::MakeImage(img, 10, 6, ColorRGB, [](int s, int x, int y) { return 100 * s + x; });
    ScaleParams p;
    p.byDimension = true;
    p.newWidth = 5;
    p.newHeight = 3;
    p.resampleType = 1;
    std::string text;
    for (int s = 0; s < 3; ++s) {
        p.commit = s == 2;
        ASSERT_TRUE(img.Scale(p, img.curPlane[s], img.prevPlane[s], &text));
        // The size changes only with the last channel.
        EXPECT_EQ(img.width, s == 2 ? 5 : 10);
    }
    EXPECT_EQ(img.height, 3);
    EXPECT_EQ(img.pixelCount, 15u);
    for (int s = 0; s < 3; ++s)
        EXPECT_EQ(img.curPlane[s][0], 100.0f * s + 1.0f);

    // A mono image keeps its slot.
    Image green;
    test::MakeImage(green, 4, 4, ColorGreen, [](int, int x, int) { return x; });
    ASSERT_TRUE(green.Scale(ByFactor(1.5, 2), green.curPlane[1], green.prevPlane[1], &text));
    EXPECT_EQ(green.width, 6);
    EXPECT_EQ(green.curPlane[0], nullptr);
    ASSERT_NE(green.curPlane[1], nullptr);
}

TEST(Scale, RefusesSizesOfZero) {
    Image img;
    test::MakeImage(img, 4, 4, ColorGray, [](int, int x, int) { return x; });
    std::string text;
    EXPECT_FALSE(img.Scale(ByFactor(0.1, 1), img.curPlane[0], img.prevPlane[0], &text));
    EXPECT_EQ(text, kNoFactor);
    EXPECT_EQ(img.width, 4);
}

} // namespace
} // namespace astrivelle
