// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The resampling of the star alignments: AlignAffine3 and AlignRigid2 with the
/// three-sample rule, their angles in the system's degrees, their errors and extremes.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "engine/Image.h"

namespace astrivelle {
namespace {

using test::MakeImage;

constexpr int kW = 60, kH = 50;

double Ramp(int x, int y) {
    return x + 100.0 * y;
}

/// A source image (the ramp, or per channel the ramp plus 10000 * channel) and an output of
/// the same size.
struct Pair {
    Image src, out;
    explicit Pair(std::uint32_t type = ColorGray) {
        MakeImage(src, kW, kH, type, [](int s, int x, int y) { return Ramp(x, y) + 10000.0 * s; });
        MakeImage(out, kW, kH, type, [](int, int, int) { return -7.0; });
    }
    float Out(int x, int y, int k = 0) const { return out.curPlane[out.Slots()[k]][y * kW + x]; }
};

TEST(AlignAffine3, IdentityPointsTakeTheLeftAndUpperNeighbours) {
    // With s = (x, y) exactly, both fractions are 0: the neighbours are x - 1 and y - 1 with
    // weight 1 each and the centre with weight 0, so the value is their mean, and row 0 and
    // column 0 are 0 (their neighbour lies outside).
    Pair p;
    double rotation = -1, sx = -1, sy = -1;
    std::string error;
    ASSERT_TRUE(p.src.AlignAffine3(&p.out, kW, kH, p.src.curPlane[0], nullptr, nullptr, 10, 10, 50,
                                   12, 20, 40, 10, 10, 50, 12, 20, 40, &rotation, false, nullptr,
                                   nullptr, nullptr, nullptr, &sx, &sy, &error))
        << error;
    EXPECT_EQ(rotation, 0.0);
    EXPECT_EQ(sx, 0.0);
    EXPECT_EQ(sy, 0.0);
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            const double expect = (x == 0 || y == 0) ? 0.0 : (Ramp(x - 1, y) + Ramp(x, y - 1)) / 2;
            ASSERT_EQ(p.Out(x, y), expect) << x << "," << y;
        }
    // On a ramp a x + b y + c that is the ramp less (a + b) / 2: a constant comes back as is.
    EXPECT_EQ(p.Out(30, 20), Ramp(30, 20) - 50.5);
}

TEST(AlignAffine3, PureTranslationByTheQuirkyThreeSamples) {
    // Reference = current + (3.25, -2.5): s = (x - 3.25, y + 2.5), fractions 0.75 and 0.5.
    // fx = 0.75 > 0.5 takes ix + 1; fy = 0.5 is not above 0.5 and takes iy - 1.
    Pair p;
    double rotation = -1, sx = 0, sy = 0;
    std::string error;
    ASSERT_TRUE(p.src.AlignAffine3(&p.out, kW, kH, p.src.curPlane[0], nullptr, nullptr, 13.25, 7.5,
                                   53.25, 9.5, 23.25, 37.5, 10, 10, 50, 12, 20, 40, &rotation,
                                   false, nullptr, nullptr, nullptr, nullptr, &sx, &sy, &error))
        << error;
    EXPECT_EQ(rotation, 0.0);
    EXPECT_EQ(sx, 3.25);
    EXPECT_EQ(sy, -2.5);
    // out(5, 3): s = (1.75, 5.5): C = src(1,5) = 501, X = src(2,5) = 502, Y = src(1,4) = 401:
    // (502 * 0.25 + 501 * 0.75 + 401 * 0.5 + 501 * 0.5) / 2 = 476.125.
    EXPECT_FLOAT_EQ(p.Out(5, 3), 476.125f);
    // out(4, 3): s = (0.75, 5.5): (501 * 0.25 + 500 * 0.75 + 400 * 0.5 + 500 * 0.5) / 2.
    EXPECT_FLOAT_EQ(p.Out(4, 3), 475.125f);
    // out(10, 0): s = (6.75, 2.5): (207 * 0.25 + 206 * 0.75 + 106 * 0.5 + 206 * 0.5) / 2.
    EXPECT_FLOAT_EQ(p.Out(10, 0), 181.125f);
    // s = (-0.25, ...) truncates to 0 with the neighbour -1: outside, 0.
    EXPECT_EQ(p.Out(3, 3), 0.0f);
    // Row 47 reads rows 49 and 48; row 48 would need row 50.
    // out(10, 47): s = (6.75, 49.5): (4907 * 0.25 + 4906 * 0.75 + 4806 * 0.5 + 4906 * 0.5) / 2.
    EXPECT_FLOAT_EQ(p.Out(10, 47), 4881.125f);
    EXPECT_EQ(p.Out(10, 48), 0.0f);
}

TEST(AlignAffine3, ColourChannelsGoToTheOutputSlotsAndAreClamped) {
    Pair p(ColorRGB);
    p.src.curPlane[2][3 * kW + 3] = 90000.0f; // above the maximum
    p.src.curPlane[2][2 * kW + 3] = 90000.0f;
    p.src.curPlane[2][3 * kW + 2] = 90000.0f;
    double rotation = 0;
    ASSERT_TRUE(p.src.AlignAffine3(&p.out, kW, kH, p.src.curPlane[0], p.src.curPlane[1],
                                   p.src.curPlane[2], 0, 0, 10, 0, 0, 10, 0, 0, 10, 0, 0, 10,
                                   &rotation, false, nullptr, nullptr, nullptr, nullptr, nullptr,
                                   nullptr));
    for (int k = 0; k < 2; ++k)
        EXPECT_EQ(p.Out(20, 20, k), (Ramp(19, 20) + Ramp(20, 19)) / 2 + 10000.0 * k) << k;
    EXPECT_EQ(p.Out(3, 3, 2), 65535.0f);
    // A monochrome output takes channel 0 in its own slot.
    Image mono;
    MakeImage(mono, kW, kH, ColorGreen, [](int, int, int) { return -1.0; });
    ASSERT_TRUE(p.src.AlignAffine3(&mono, kW, kH, p.src.curPlane[1], nullptr, nullptr, 0, 0, 10, 0,
                                   0, 10, 0, 0, 10, 0, 0, 10, &rotation, false, nullptr, nullptr,
                                   nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(mono.curPlane[1][20 * kW + 20], (Ramp(19, 20) + Ramp(20, 19)) / 2 + 10000.0);
}

TEST(AlignAffine3, DependentPointsAreRefusedWithTheirTexts) {
    struct Case {
        double ref[6];
        double cur[6];
        const char* text;
    };
    const Case cases[] = {
        {{0, 0, 10, 0, 0, 10}, {0, 0, 10, 10, 20, 20}, "Current points not linearly Independent"},
        {{5, 5, 15, 5, 25, 5}, {0, 0, 10, 0, 0, 10}, "Reference points not linearly Independent"},
        {{5, 5, 5, 5, 1, 2}, {1, 1, 1, 1, 3, 4}, "Current points not linearly Independent"},
    };
    for (const Case& c : cases) {
        Pair p;
        std::string error;
        double rotation = 99;
        EXPECT_FALSE(p.src.AlignAffine3(&p.out, kW, kH, p.src.curPlane[0], nullptr, nullptr,
                                        c.ref[0], c.ref[1], c.ref[2], c.ref[3], c.ref[4], c.ref[5],
                                        c.cur[0], c.cur[1], c.cur[2], c.cur[3], c.cur[4], c.cur[5],
                                        &rotation, false, nullptr, nullptr, nullptr, nullptr,
                                        nullptr, nullptr, &error));
        EXPECT_EQ(error, c.text);
        EXPECT_EQ(p.Out(10, 10), -7.0f) << "nothing drawn";
    }
}

TEST(AlignAffine3, SizeOnlyGivesTheTruncatedExtremesOfTheMappedCorners) {
    struct Case {
        double ref[6];
        double cur[6];
        int minX, maxX, minY, maxY;
    };
    const Case cases[] = {
        // The shift (3.25, -2.5): corners (0,0), (59,0), (0,49), (59,49) go to x 3.25, 62.25
        // and y -2.5, 46.5; -2.5 truncates towards 0.
        {{13.25, 7.5, 53.25, 9.5, 23.25, 37.5}, {10, 10, 50, 12, 20, 40}, 3, 62, -2, 46},
        // A quarter turn: (x, y) -> (-y, x).
        {{0, 0, 0, 1, -1, 0}, {0, 0, 1, 0, 0, 1}, -49, 0, 0, 59},
        // Twice the size about the origin.
        {{0, 0, 2, 0, 0, 2}, {0, 0, 1, 0, 0, 1}, 0, 118, 0, 98},
    };
    for (const Case& c : cases) {
        Pair p;
        int minX = 7, maxX = 7, minY = 7, maxY = 7;
        ASSERT_TRUE(p.src.AlignAffine3(nullptr, 0, 0, nullptr, nullptr, nullptr, c.ref[0], c.ref[1],
                                       c.ref[2], c.ref[3], c.ref[4], c.ref[5], c.cur[0], c.cur[1],
                                       c.cur[2], c.cur[3], c.cur[4], c.cur[5], nullptr, true, &minX,
                                       &maxX, &minY, &maxY, nullptr, nullptr));
        EXPECT_EQ(minX, c.minX);
        EXPECT_EQ(maxX, c.maxX);
        EXPECT_EQ(minY, c.minY);
        EXPECT_EQ(maxY, c.maxY);
    }
}

TEST(AlignAffine3, RotationIsInTheSystemsDegrees) {
    // The reference is the current turned by 30 degrees about (40, 30).
    const double t = 30.0 * 3.14159265358979323846 / 180.0;
    auto turn = [&](double x, double y, double* rx, double* ry) {
        *rx = 40 + std::cos(t) * (x - 40) - std::sin(t) * (y - 30);
        *ry = 30 + std::sin(t) * (x - 40) + std::cos(t) * (y - 30);
    };
    double r[6];
    const double c[6] = {10, 10, 50, 10, 10, 40};
    for (int k = 0; k < 3; ++k)
        turn(c[2 * k], c[2 * k + 1], &r[2 * k], &r[2 * k + 1]);
    Pair p;
    double rotation = 0;
    ASSERT_TRUE(p.src.AlignAffine3(&p.out, kW, kH, p.src.curPlane[0], nullptr, nullptr, r[0], r[1],
                                   r[2], r[3], r[4], r[5], c[0], c[1], c[2], c[3], c[4], c[5],
                                   &rotation, false, nullptr, nullptr, nullptr, nullptr, nullptr,
                                   nullptr));
    EXPECT_NEAR(rotation, t * 57.2962, 1e-9);
    EXPECT_GT(std::fabs(rotation - 30.0), 1e-6) << "57.2962 is not 180 / pi";
}

TEST(AlignRigid2, AngleAndSignOfAKnownTurn) {
    struct Case {
        double degrees;
        double sign; ///< of the rotation result
    };
    const double pi = 3.14159265358979323846;
    for (const Case& c : {Case{10, -1}, Case{-10, 1}, Case{135, -1}, Case{-60, 1}}) {
        const double t = c.degrees * pi / 180.0;
        // Current = reference turned by t about (50, 40).
        auto turn = [&](double x, double y, double* rx, double* ry) {
            *rx = 50 + std::cos(t) * (x - 50) - std::sin(t) * (y - 40);
            *ry = 40 + std::sin(t) * (x - 50) + std::cos(t) * (y - 40);
        };
        const double ref[4] = {20, 25, 45, 25};
        double cur[4];
        turn(ref[0], ref[1], &cur[0], &cur[1]);
        turn(ref[2], ref[3], &cur[2], &cur[3]);
        Pair p;
        double rotation = 0, tx = 0, ty = 0;
        ASSERT_TRUE(p.src.AlignRigid2(&p.out, kW, kH, p.src.curPlane[0], nullptr, nullptr, ref[0],
                                      ref[1], ref[2], ref[3], cur[0], cur[1], cur[2], cur[3],
                                      &rotation, &tx, &ty));
        EXPECT_NEAR(rotation, c.sign * std::fabs(t) * 57.2962, 1e-9) << c.degrees;
        // The turn by the result (back to radians by the same factor) and the shift carry
        // both current points onto the reference.
        const double back = rotation / 57.2962;
        for (int k = 0; k < 2; ++k) {
            const double x = std::cos(back) * cur[2 * k] - std::sin(back) * cur[2 * k + 1] + tx;
            const double y = std::sin(back) * cur[2 * k] + std::cos(back) * cur[2 * k + 1] + ty;
            EXPECT_NEAR(x, ref[2 * k], 1e-9) << c.degrees;
            EXPECT_NEAR(y, ref[2 * k + 1], 1e-9) << c.degrees;
        }
    }
}

TEST(AlignRigid2, ATruncatedCrossProductOfZeroCountsAsPositive) {
    // a = (100, 0); b = (100, +-0.005): the cross products +-0.5 both truncate to 0, so both
    // turns come out with the same (negative) sign.
    Pair p;
    double up = 0, down = 0, tx, ty;
    ASSERT_TRUE(p.src.AlignRigid2(&p.out, kW, kH, p.src.curPlane[0], nullptr, nullptr, 0, 0, 100, 0,
                                  0, 0, 100, 0.005, &up, &tx, &ty));
    ASSERT_TRUE(p.src.AlignRigid2(&p.out, kW, kH, p.src.curPlane[0], nullptr, nullptr, 0, 0, 100, 0,
                                  0, 0, 100, -0.005, &down, &tx, &ty));
    EXPECT_LT(up, 0.0);
    EXPECT_DOUBLE_EQ(up, down);
    EXPECT_NEAR(up, -std::atan(0.00005) * 57.2962, 1e-6);
    // A zero vector has no angle.
    EXPECT_FALSE(p.src.AlignRigid2(&p.out, kW, kH, p.src.curPlane[0], nullptr, nullptr, 5, 5, 5, 5,
                                   0, 0, 1, 1, &up, &tx, &ty));
}

TEST(AlignRigid2, AWholePixelShiftResamplesByTheThreeSampleRule) {
    // No turn; cur1 (5, 5) onto ref1 (7, 6): s = (x - 2, y - 1), fractions 0, so the value is
    // the mean of src(x - 3, y - 1) and src(x - 2, y - 2).
    Pair p;
    double rotation = 1, tx = 0, ty = 0;
    ASSERT_TRUE(p.src.AlignRigid2(&p.out, kW, kH, p.src.curPlane[0], nullptr, nullptr, 7, 6, 27, 6,
                                  5, 5, 25, 5, &rotation, &tx, &ty));
    EXPECT_EQ(rotation, 0.0);
    EXPECT_EQ(tx, 2.0);
    EXPECT_EQ(ty, 1.0);
    EXPECT_EQ(p.Out(10, 10), (Ramp(7, 9) + Ramp(8, 8)) / 2);
    EXPECT_EQ(p.Out(2, 10), 0.0f) << "needs column -1";
    EXPECT_EQ(p.Out(3, 10), (Ramp(0, 9) + Ramp(1, 8)) / 2);
}

} // namespace
} // namespace astrivelle
