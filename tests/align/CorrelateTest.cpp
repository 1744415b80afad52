// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Point correlation: CorrelateAt, CorrelateSearch and SubPixelRefine on frames with
/// known shifts, and AlignProjective4 against a known projective map.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "engine/Image.h"
#include "tests/align/PointScene.h"
#include "tests/support/TestSupport.h"

namespace astrivelle {
namespace {

using test::Map2;

constexpr int kW = 240, kH = 200;

/// A pattern of three stars at (120, 100) among single stars.
test::Scene StarField(std::uint32_t seed = 7, double background = 200) {
    test::Scene s = test::MakeScene(60, kW, kH, seed, test::Asterism(120, 100, 25000));
    s.background = background;
    return s;
}

struct Template {
    std::vector<float> values;
    double norm = 0;
};

Template Cut(const Image& img, int r, int x, int y) {
    Template t;
    img.CorrelationTemplate(r, x, y, false, &t.values, &t.norm);
    return t;
}

TEST(CorrelateAt, FindsTheExactIntegerShift) {
    const test::Scene scene = StarField();
    Image ref;
    test::RenderScene(ref, kW, kH, scene, Map2());
    const int r = 10;
    const Template t = Cut(ref, r, 120, 100);
    struct Case {
        int dx, dy;
    };
    for (const Case c : {Case{0, 0}, Case{7, -4}, Case{-10, 10}, Case{10, -10}, Case{-3, 9}}) {
        Image cur;
        test::RenderScene(cur, kW, kH, scene, Map2::Shift(c.dx, c.dy));
        int x = -1, y = -1;
        bool off = true;
        double best = 0;
        cur.CorrelateAt(r, t.values.data(), t.norm, 120, 100, &x, &y, &off, &best, false);
        EXPECT_FALSE(off);
        EXPECT_EQ(x, 120 + c.dx) << c.dx << "," << c.dy;
        EXPECT_EQ(y, 100 + c.dy) << c.dx << "," << c.dy;
        EXPECT_NEAR(best, 1.0, 1e-6);
    }
}

TEST(CorrelateAt, EqualCorrelationsTakeTheFirstInRowOrder) {
    // A flat image correlates equally everywhere: the first offset (-r, -r) stands.
    Image flat;
    test::MakeImage(flat, 100, 80, ColorGray, [](int, int, int) { return 500.0; });
    const int r = 5;
    const Template t = Cut(flat, r, 50, 40);
    int x = 0, y = 0;
    bool off = true;
    double best = 0;
    flat.CorrelateAt(r, t.values.data(), t.norm, 50, 40, &x, &y, &off, &best, false);
    EXPECT_EQ(x, 45);
    EXPECT_EQ(y, 35);
    EXPECT_NEAR(best, 1.0, 1e-12);

    // Four equal maxima around the centre: the one in the earliest row stands.
    Image two;
    test::MakeImage(two, 100, 80, ColorGray, [](int, int x, int y) {
        return ((x == 47 || x == 53) && y == 40) || (x == 50 && (y == 37 || y == 43)) ? 9000.0
                                                                                      : 0.0;
    });
    Image spot;
    test::MakeImage(spot, 100, 80, ColorGray,
                    [](int, int x, int y) { return x == 50 && y == 40 ? 9000.0 : 0.0; });
    const Template st = Cut(spot, r, 50, 40);
    two.CorrelateAt(r, st.values.data(), st.norm, 50, 40, &x, &y, &off, &best, false);
    EXPECT_EQ(x, 50);
    EXPECT_EQ(y, 37);
}

TEST(CorrelateAt, OffTheEdgeAtTwoRPlusOne) {
    Image img;
    test::MakeImage(img, 100, 80, ColorGray, [](int, int x, int y) { return 100.0 + x + 3 * y; });
    const int r = 5; // 2r + 1 = 11
    const Template t = Cut(img, r, 50, 40);
    struct Case {
        int x, y;
        bool off;
    };
    for (const Case c : {Case{11, 40, true}, Case{12, 40, false}, Case{89, 40, true},
                         Case{88, 40, false}, Case{50, 11, true}, Case{50, 12, false},
                         Case{50, 69, true}, Case{50, 68, false}, Case{-3, 40, true}}) {
        int x = 7, y = 7;
        bool off = !c.off;
        double best = 7;
        img.CorrelateAt(r, t.values.data(), t.norm, c.x, c.y, &x, &y, &off, &best, false);
        EXPECT_EQ(off, c.off) << c.x << "," << c.y;
        if (c.off) {
            EXPECT_EQ(x, 0);
            EXPECT_EQ(y, 0);
            EXPECT_EQ(best, 0.0);
        } else {
            EXPECT_GT(best, 0.9);
        }
    }
}

TEST(CorrelateAt, ColourImagesReadLuminanceOrTheFirstPlane) {
    // Red holds the pattern, green is flat and bright: luminance (the largest of the three)
    // sees only green, the first plane sees the pattern.
    Image ref;
    test::MakeImage(ref, 120, 100, ColorRGB, [](int slot, int x, int y) {
        if (slot == 1)
            return 60000.0;
        return slot == 0 && std::abs(x - 60) <= 1 && std::abs(y - 50) <= 1 ? 30000.0 : 0.0;
    });
    Image cur;
    test::MakeImage(cur, 120, 100, ColorRGB, [](int slot, int x, int y) {
        if (slot == 1)
            return 60000.0;
        return slot == 0 && std::abs(x - 63) <= 1 && std::abs(y - 48) <= 1 ? 30000.0 : 0.0;
    });
    std::vector<float> t;
    double norm = 0;
    ref.CorrelationTemplate(6, 60, 50, true, &t, &norm);
    int x = 0, y = 0;
    bool off = true;
    double best = 0;
    cur.CorrelateAt(6, t.data(), norm, 60, 50, &x, &y, &off, &best, true);
    EXPECT_EQ(x, 63);
    EXPECT_EQ(y, 48);
    ref.CorrelationTemplate(6, 60, 50, false, &t, &norm);
    cur.CorrelateAt(6, t.data(), norm, 60, 50, &x, &y, &off, &best, false);
    EXPECT_EQ(x, 54); // flat: the first offset
    EXPECT_EQ(y, 44);
}

struct Tracked {
    bool ok = false;
    double x = 0, y = 0, maxShift = 0;
    std::string error;
};

Tracked Track(const Image& cur, const Template& t, int r, double startX, double startY,
              double minimum, double step) {
    Tracked out;
    out.x = startX;
    out.y = startY;
    out.ok = cur.CorrelateSearch(r, t.values.data(), t.norm, startX, startY, minimum, step, &out.x,
                                 &out.y, &out.maxShift, &out.error);
    return out;
}

TEST(CorrelateSearch, RingsFindAPointMovedFurtherThanTheRadius) {
    // A dark sky, so that a wrong place correlates poorly.
    const test::Scene scene = StarField(11, 0);
    Image ref;
    test::RenderScene(ref, kW, kH, scene, Map2());
    const int r = 10;
    const Template t = Cut(ref, r, 120, 100);
    struct Case {
        int dx, dy;
    };
    // Within r, within the ring of eight (up to 2r), within the outer ring (up to 3r).
    for (const Case c : {Case{4, -6}, Case{15, -12}, Case{-18, 3}, Case{25, 22}, Case{-27, -5}}) {
        Image cur;
        test::RenderScene(cur, kW, kH, scene, Map2::Shift(c.dx, c.dy));
        const Tracked k = Track(cur, t, r, 120, 100, 0.95, 1.0);
        ASSERT_TRUE(k.ok) << c.dx << "," << c.dy << ": " << k.error;
        EXPECT_EQ(k.x, 120 + c.dx);
        EXPECT_EQ(k.y, 100 + c.dy);
        EXPECT_NEAR(k.maxShift, std::hypot(c.dx, c.dy), 1e-9);
    }
}

TEST(CorrelateSearch, MinimumZeroAcceptsTheFirstCorrelation) {
    const test::Scene scene = StarField(11, 0);
    Image ref, cur;
    test::RenderScene(ref, kW, kH, scene, Map2());
    test::RenderScene(cur, kW, kH, scene, Map2::Shift(16, 0));
    const int r = 10;
    const Template t = Cut(ref, r, 120, 100);
    int x = 0, y = 0;
    bool off = true;
    double best = 0;
    cur.CorrelateAt(r, t.values.data(), t.norm, 120, 100, &x, &y, &off, &best, false);
    ASSERT_LT(best, 0.95);
    const Tracked first = Track(cur, t, r, 120, 100, 0.0, 1.0);
    ASSERT_TRUE(first.ok);
    EXPECT_EQ(first.x, x); // the start's answer, though the point lies further out
    EXPECT_EQ(first.y, y);
    const Tracked searched = Track(cur, t, r, 120, 100, 0.95, 1.0);
    ASSERT_TRUE(searched.ok);
    EXPECT_EQ(searched.x, 136);
}

TEST(CorrelateSearch, FailureTexts) {
    const test::Scene scene = StarField(11, 0);
    Image ref;
    test::RenderScene(ref, kW, kH, scene, Map2());
    const int r = 10;
    const Template t = Cut(ref, r, 120, 100);
    // The point drifted into the border band (2r + 1 = 21 >= 18): the edge words, whatever
    // the minimum.
    for (double minimum : {0.0, 0.95}) {
        const Tracked k = Track(ref, t, r, 18, 100, minimum, 1.0);
        EXPECT_FALSE(k.ok);
        EXPECT_EQ(k.error,
                  "Alignment point (18, 100) has tracked too close to the image edge. Reselect.");
    }
    // A ring reaching past the edge counts too: start inside, the rings outside.
    Image dark;
    test::MakeImage(dark, kW, kH, ColorGray, [](int, int, int) { return 0.0; });
    Tracked k = Track(dark, t, r, 30, 100, 0.5, 1.0);
    EXPECT_EQ(k.error,
              "Alignment point (30, 100) has tracked too close to the image edge. Reselect.");
    // Nothing correlates and every try was inside.
    k = Track(dark, t, r, 120, 100, 0.5, 1.0);
    EXPECT_FALSE(k.ok);
    EXPECT_EQ(k.error, "Images Not Correlated.");
}

TEST(SubPixelRefine, RecoversAKnownSubPixelShift) {
    const test::Scene scene = StarField(5, 200);
    Image ref;
    test::RenderScene(ref, kW, kH, scene, Map2());
    const int r = 12;
    const Template t = Cut(ref, r, 120, 100);
    struct Case {
        double dx, dy, step, tolerance;
    };
    for (const Case c : {Case{3.3, -2.6, 0.1, 0.12}, Case{-4.72, 1.18, 0.1, 0.12},
                         Case{0.45, 0.0, 0.2, 0.2}, Case{-1.5, 2.5, 0.5, 0.3}}) {
        Image cur;
        test::RenderScene(cur, kW, kH, scene, Map2::Shift(c.dx, c.dy));
        const Tracked k = Track(cur, t, r, 120, 100, 0.7, c.step);
        ASSERT_TRUE(k.ok) << k.error;
        EXPECT_NEAR(k.x, 120 + c.dx, c.tolerance) << c.dx;
        EXPECT_NEAR(k.y, 100 + c.dy, c.tolerance) << c.dy;
        // The result lies on the step's grid around the integer position.
        const double steps = (k.x - std::floor(k.x + 1e-9)) / c.step;
        EXPECT_NEAR(steps, std::round(steps), 1e-6);
    }
    // A block reaching outside the image is not refined.
    double x = 0, y = 0;
    EXPECT_FALSE(ref.SubPixelRefine(r, t.values.data(), 0.1, 5, 100, &x, &y));
}

// ---- AlignProjective4 -----------------------------------------------------------------------

/// The back map (reference -> current) the test chooses; the points follow from it.
struct Homography {
    double m[9];
    void Apply(double x, double y, double* ox, double* oy) const {
        const double w = m[6] * x + m[7] * y + m[8];
        *ox = (m[0] * x + m[1] * y + m[2]) / w;
        *oy = (m[3] * x + m[4] * y + m[5]) / w;
    }
};

/// The three-sample rule at s of a plane.
double ThreeSample(const float* p, int w, int h, double sx, double sy, bool* inside) {
    const int ix = static_cast<int>(sx), iy = static_cast<int>(sy);
    const double fx = sx - ix, fy = sy - iy;
    const int nx = fx > 0.5 ? ix + 1 : ix - 1, ny = fy > 0.5 ? iy + 1 : iy - 1;
    *inside = sx > -1 && sy > -1 && ix >= 0 && iy >= 0 && ix < w && iy < h && nx >= 0 && nx < w &&
              ny >= 0 && ny < h;
    if (!*inside)
        return 0;
    const double c = p[iy * w + ix], xv = p[iy * w + nx], yv = p[ny * w + ix];
    return std::clamp((xv * (1 - fx) + c * fx + yv * (1 - fy) + c * fy) / 2, 0.0, 65535.0);
}

TEST(AlignProjective4, PixelsFollowTheProjectiveMap) {
    const Homography back{{0.9213, 0.0417, 6.31, -0.0291, 1.0492, -4.17, 1.93e-4, -1.47e-4, 1.0}};
    const double refX[4] = {20, 190, 185, 25}, refY[4] = {15, 20, 150, 140};
    double curX[4], curY[4];
    for (int k = 0; k < 4; ++k)
        back.Apply(refX[k], refY[k], &curX[k], &curY[k]);
    Image src;
    test::MakeImage(src, 200, 160, ColorGray, [](int, int x, int y) {
        return 1000.0 + 37.0 * x + 11.0 * y + ((x * 7 + y * 13) % 17) * 50.0;
    });
    const int w = 220, h = 180;
    Image out;
    out.SetGeometryFits(KindFITS, ColorGray, 0, DataFloat, w, h);
    ASSERT_TRUE(out.AllocatePlanes(1));
    const float* c0 = src.curPlane[SlotOfColorType(ColorGray)];
    std::string error;
    ASSERT_TRUE(src.AlignProjective4(&out, w, h, c0, nullptr, nullptr, refX, refY, curX, curY,
                                     false, nullptr, nullptr, nullptr, nullptr, &error))
        << error;
    const float* o = out.curPlane[SlotOfColorType(ColorGray)];
    int compared = 0, zeros = 0;
    for (int y = 0; y < h; y += 3)
        for (int x = 0; x < w; x += 3) {
            double sx = 0, sy = 0;
            back.Apply(x, y, &sx, &sy);
            bool inside = false;
            const double expected = ThreeSample(c0, 200, 160, sx, sy, &inside);
            ASSERT_NEAR(o[y * w + x], expected, 0.05 + 1e-5 * expected) << x << "," << y;
            ++(inside ? compared : zeros);
        }
    EXPECT_GT(compared, 2000);
    EXPECT_GT(zeros, 50);
}

TEST(AlignProjective4, SizeOnlyGivesTheMappedCorners) {
    Image src;
    test::MakeImage(src, 101, 81, ColorGray, [](int, int, int) { return 1.0; });
    // The image's own corners as the current square; the reference a known quadrilateral.
    const double curX[4] = {0, 100, 100, 0}, curY[4] = {0, 0, 80, 80};
    const double refX[4] = {-12.5, 130.2, 121.9, 3.3}, refY[4] = {7.7, -20.4, 99.6, 85.1};
    int minX = 0, maxX = 0, minY = 0, maxY = 0;
    std::string error;
    ASSERT_TRUE(src.AlignProjective4(nullptr, 0, 0, nullptr, nullptr, nullptr, refX, refY, curX,
                                     curY, true, &minX, &maxX, &minY, &maxY, &error));
    EXPECT_EQ(minX, -12);
    EXPECT_EQ(maxX, 130);
    EXPECT_EQ(minY, -20);
    EXPECT_EQ(maxY, 99);
    // And back: the quadrilateral onto itself is the identity (up to the truncation of a
    // rounded whole number).
    ASSERT_TRUE(src.AlignProjective4(nullptr, 0, 0, nullptr, nullptr, nullptr, refX, refY, refX,
                                     refY, true, &minX, &maxX, &minY, &maxY, &error));
    EXPECT_NEAR(minX, 0, 1);
    EXPECT_NEAR(maxX, 100, 1);
    EXPECT_NEAR(minY, 0, 1);
    EXPECT_NEAR(maxY, 80, 1);
}

TEST(AlignProjective4, DegenerateQuadrilateralsFail) {
    Image src;
    test::MakeImage(src, 50, 50, ColorGray, [](int, int, int) { return 1.0; });
    const double good[2][4] = {{0, 40, 40, 0}, {0, 0, 40, 40}};
    const double line[2][4] = {{0, 10, 20, 30}, {0, 10, 20, 30}}; // all collinear
    const double three[2][4] = {{0, 40, 40, 40}, {0, 0, 20, 40}}; // points 1, 2, 3 collinear
    struct Case {
        const double (*ref)[4];
        const double (*cur)[4];
        const char* text;
    };
    for (const Case c : {Case{good, line, "Current points not linearly Independent"},
                         Case{good, three, "Current points not linearly Independent"},
                         Case{line, good, "Reference points not linearly Independent"},
                         Case{three, good, "Reference points not linearly Independent"}}) {
        std::string error;
        int a, b, d, e;
        EXPECT_FALSE(src.AlignProjective4(nullptr, 0, 0, nullptr, nullptr, nullptr, c.ref[0],
                                          c.ref[1], c.cur[0], c.cur[1], true, &a, &b, &d, &e,
                                          &error));
        EXPECT_EQ(error, c.text);
    }
    // Points 0, 1, 2 collinear in the reference: the product has no inverse.
    const double flat[2][4] = {{0, 20, 40, 10}, {0, 0, 0, 30}};
    std::string error;
    int a, b, d, e;
    EXPECT_FALSE(src.AlignProjective4(nullptr, 0, 0, nullptr, nullptr, nullptr, flat[0], flat[1],
                                      good[0], good[1], true, &a, &b, &d, &e, &error));
    EXPECT_FALSE(error.empty());
}

} // namespace
} // namespace astrivelle
