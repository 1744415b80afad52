// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The map of an aligned frame from its own pixels to the reference's: the affine of
/// three point pairs, the rotation and shift of two, and the flip applied before the points.
#include <gtest/gtest.h>

#include <cmath>

#include "imagesets/AlignStarFiles.h"

namespace astrivelle {
namespace {

std::array<double, 2> Apply(const std::array<double, 6>& m, double x, double y) {
    return {m[0] * x + m[1] * y + m[2], m[3] * x + m[4] * y + m[5]};
}

TEST(AlignStarFrameMap, AffineRigidAndFlips) {
    const std::array<double, 6> truth{1.01, -0.02, 5.5, 0.03, 0.99, -7.25};
    const double w = 200, h = 120;
    struct Case {
        const char* flip;
        bool affine;
    };
    for (const Case& c : {Case{"N", true}, Case{"H", true}, Case{"V", true}, Case{"VH", true},
                          Case{"N", false}, Case{"VH", false}}) {
        SCOPED_TRACE(std::string(c.flip) + (c.affine ? " affine" : " rigid"));
        // A rigid truth for the two-pair case: a turn by 0.3 rad and a shift.
        const double t = 0.3;
        const std::array<double, 6> map =
            c.affine ? truth : std::array<double, 6>{std::cos(t), -std::sin(t), 12,
                                                     std::sin(t), std::cos(t),  -4};
        // The points are taken in the flipped current image.
        auto flipped = [&](double x, double y) {
            const bool fh = std::string(c.flip) == "H" || std::string(c.flip) == "VH";
            const bool fv = std::string(c.flip) == "V" || std::string(c.flip) == "VH";
            return std::array<double, 2>{fh ? w - 1 - x : x, fv ? h - 1 - y : y};
        };
        AlignStarFrame frame;
        frame.flip = c.flip;
        frame.affine = c.affine;
        const double own[3][2] = {{10, 20}, {150, 30}, {60, 100}};
        for (int k = 0; k < (c.affine ? 3 : 2); ++k) {
            frame.current.push_back(flipped(own[k][0], own[k][1]));
            frame.reference.push_back(Apply(map, own[k][0], own[k][1]));
        }
        std::array<double, 6> m{};
        ASSERT_TRUE(AlignStarFrameMap(frame, static_cast<int>(w), static_cast<int>(h), &m));
        for (const auto& p :
             {std::array<double, 2>{0, 0}, {w - 1, 0}, {0, h - 1}, {w - 1, h - 1}}) {
            const auto a = Apply(m, p[0], p[1]), b = Apply(map, p[0], p[1]);
            EXPECT_NEAR(a[0], b[0], 1e-9);
            EXPECT_NEAR(a[1], b[1], 1e-9);
        }
    }
    AlignStarFrame collinear;
    collinear.current = {{0, 0}, {1, 1}, {2, 2}};
    collinear.reference = {{0, 0}, {1, 1}, {2, 2}};
    std::array<double, 6> m{};
    EXPECT_FALSE(AlignStarFrameMap(collinear, 10, 10, &m));
    AlignStarFrame one;
    one.affine = false;
    one.current = {{3, 3}};
    one.reference = {{4, 4}};
    EXPECT_FALSE(AlignStarFrameMap(one, 10, 10, &m));
}

} // namespace
} // namespace astrivelle
