// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The image store: colour type changes, complementary colours, copies, the crop copy
/// and clamped pixel access.
#include <gtest/gtest.h>

#include <vector>

#include "TestSupport.h"
#include "engine/Image.h"
#include "engine/PageAlloc.h"

namespace astrivelle {
namespace {

TEST(ImageStore, FreshObject) {
    Image img;
    EXPECT_EQ(img.maxValue, 1u);
    EXPECT_EQ(img.colorType, static_cast<std::uint32_t>(ColorGray));
    img.SetGeometry(KindFITS, ColorGray, 0, 3, 2);
    EXPECT_EQ(img.maxValue, 65535u);
    EXPECT_EQ(img.pixelCount, 6u);
    EXPECT_FALSE(img.AllocatePlanes(2));
    EXPECT_TRUE(img.AllocatePlanes(1));
    EXPECT_NE(img.curPlane[0], nullptr);
    EXPECT_EQ(img.curPlane[1], nullptr);
    EXPECT_EQ(img.curPlane[0][5], 0.0f); // planes come zero-filled
}

TEST(ConvertColorType, SameSlotMovesNothing) {
    Image img;
    test::MakeImage(img, 3, 2, ColorRed, [](int, int x, int y) { return x + 10 * y; });
    float* cur = img.curPlane[0];
    float* prev = img.prevPlane[0];
    ASSERT_TRUE(img.ConvertColorType(ColorCyan, 4));
    EXPECT_EQ(img.colorType, static_cast<std::uint32_t>(ColorCyan));
    EXPECT_EQ(img.colorDetail, 4u);
    EXPECT_EQ(img.curPlane[0], cur);
    EXPECT_EQ(img.prevPlane[0], prev);
}

TEST(ConvertColorType, OtherSlotMovesBothPlanes) {
    Image img;
    test::MakeImage(img, 3, 2, ColorRed, [](int, int x, int y) { return x + 10 * y; });
    img.prevPlane[0][4] = 77.0f;
    ASSERT_TRUE(img.ConvertColorType(ColorGreen, 0));
    EXPECT_EQ(img.curPlane[0], nullptr);
    EXPECT_EQ(img.prevPlane[0], nullptr);
    ASSERT_NE(img.curPlane[1], nullptr);
    ASSERT_NE(img.prevPlane[1], nullptr);
    EXPECT_EQ(img.curPlane[1][4], 11.0f);
    EXPECT_EQ(img.prevPlane[1][4], 77.0f);
    EXPECT_EQ(img.curPlane[2], nullptr);
    // And on to slot 2 through yellow.
    ASSERT_TRUE(img.ConvertColorType(ColorYellow, 0));
    EXPECT_EQ(img.curPlane[1], nullptr);
    EXPECT_EQ(img.curPlane[2][5], 12.0f);
}

TEST(ConvertToComplementary, AveragesThePairsAndClamps) {
    Image img;
    const float r[] = {100, 65535, -400}, g[] = {300, 65535, 0}, b[] = {500, 65535, 100};
    test::MakeImage(img, 3, 1, ColorRGB,
                    [&](int s, int x, int) { return (s == 0 ? r : (s == 1 ? g : b))[x]; });
    ASSERT_TRUE(img.ConvertToComplementary(ColorRGB));
    const float expect[3][3] = {{400, 65535, 50}, {300, 65535, 0}, {200, 65535, 0}};
    for (int s = 0; s < 3; ++s)
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(img.curPlane[s][x], expect[s][x]) << s << "," << x;

    Image mono;
    test::MakeImage(mono, 2, 1, ColorRed, [](int, int x, int) { return 5 + x; });
    ASSERT_TRUE(mono.ConvertToComplementary(ColorCyan));
    EXPECT_EQ(mono.colorType, static_cast<std::uint32_t>(ColorCyan));
    EXPECT_EQ(mono.curPlane[0][1], 6.0f);
}

TEST(Copy, CopyFromTakesCurrentForBoth) {
    Image src;
    test::MakeImage(src, 4, 3, ColorRGB, [](int s, int x, int y) { return 100 * s + x + 10 * y; });
    src.prevPlane[2][7] = -1.0f;
    Image dup;
    ASSERT_TRUE(dup.CopyFrom(src, 4, 3, 65535, ColorRGB, 0));
    EXPECT_EQ(dup.width, 4);
    EXPECT_EQ(dup.pixelCount, 12u);
    for (int s = 0; s < 3; ++s)
        for (int i = 0; i < 12; ++i) {
            EXPECT_EQ(dup.curPlane[s][i], src.curPlane[s][i]);
            EXPECT_EQ(dup.prevPlane[s][i], src.curPlane[s][i]);
        }
    EXPECT_NE(dup.curPlane[0], src.curPlane[0]);

    Image all;
    ASSERT_TRUE(all.CopyAllFrom(src, 4, 3, 65535, ColorRGB, 0));
    EXPECT_EQ(all.prevPlane[2][7], -1.0f);
    EXPECT_EQ(all.curPlane[2][7], src.curPlane[2][7]);
}

TEST(Copy, CropRowsWritesZeroBeyondTheSource) {
    // A 3 x 2 source of rows copied into a 5 x 4 plane.
    std::vector<float> r0 = {1, 2, 3}, r1 = {4, 5, 6};
    float* rows[4] = {r0.data(), r1.data(), nullptr, nullptr};
    Image img;
    img.SetGeometry(KindFITS, ColorGray, 0, 5, 4);
    std::vector<float> plane(20, -9.0f);
    img.CropRowsToPlane(rows, 3, 2, plane.data());
    const float expect[20] = {1, 2, 3, 0, 0, 4, 5, 6, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(plane[i], expect[i]) << i;
}

TEST(PixelAccess, CoordinatesAreClamped) {
    Image img;
    test::MakeImage(img, 3, 2, ColorGray, [](int, int x, int y) { return x + 10 * y + 0.5; });
    EXPECT_EQ(img.RedAt(-5, -5), 0.5f);
    EXPECT_EQ(img.RedAt(9, 9), 12.5f);
    EXPECT_EQ(img.RedLevelAt(9, 0), 2); // 2.5 stays 2
    EXPECT_EQ(img.LevelAt(img.curPlane[0], 1, 7), 11);
}

} // namespace
} // namespace astrivelle
