// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The mask of a blend: where it comes from, the surface of control points checked
/// against a plain Bernstein sum, and mask files read and checked against the image.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "TestSupport.h"
#include "engine/Blend.h"
#include "engine/Mask.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

/// The default grid of control points with z from fn(x, y).
template <class Fn> MaskSurface SurfaceWithZ(Fn fn) {
    MaskSurface s = DefaultMaskSurface();
    for (int k = 0; k < 16; ++k)
        s[k * 3 + 2] = fn(s[k * 3], s[k * 3 + 1]);
    return s;
}

/// The mask a surface with the default x and y gives, computed the long way: on the default
/// grid the surface's x and y are linear in v and u, so the point of image sample (row r,
/// column c) lands on column c(w-1)/w and row (h-1)(h-r)/h, truncated; its z is the plain
/// Bernstein sum. Unreached samples take the mean of reached neighbours, pass by pass.
std::vector<double> ReferenceMask(const MaskSurface& s, int w, int h, double maxValue,
                                  double level) {
    auto bern = [](int k, double t) {
        const double coef[4] = {1, 3, 3, 1};
        return coef[k] * std::pow(t, k) * std::pow(1 - t, 3 - k);
    };
    std::vector<double> mask(static_cast<std::size_t>(w) * h, -1.0);
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c) {
            const int tx = c * (w - 1) / w;
            const int ty = (h - 1) * (h - r) / h;
            double z = 0;
            for (int i = 0; i < 4; ++i)
                for (int j = 0; j < 4; ++j)
                    z += bern(i, double(r) / h) * bern(j, double(c) / w) * s[(i * 4 + j) * 3 + 2];
            double& m = mask[ty * w + tx];
            if (m == -1.0)
                m = std::clamp(maxValue * z + level, 0.0, maxValue);
        }
    for (bool holes = true; holes;) {
        holes = false;
        const std::vector<double> before = mask;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                if (before[y * w + x] != -1.0)
                    continue;
                double sum = 0;
                int n = 0;
                for (int yy = std::max(0, y - 1); yy <= std::min(h - 1, y + 1); ++yy)
                    for (int xx = std::max(0, x - 1); xx <= std::min(w - 1, x + 1); ++xx)
                        if (before[yy * w + xx] != -1.0) {
                            sum += before[yy * w + xx];
                            ++n;
                        }
                if (n)
                    mask[y * w + x] = sum / n;
                else
                    holes = true;
            }
    }
    return mask;
}

std::vector<float> BuildMask(const MaskSurface& s, int w, int h, double maxValue, int level) {
    std::vector<float> mask(static_cast<std::size_t>(w) * h);
    EXPECT_TRUE(BuildSurfaceMask(mask.data(), w, h, maxValue, level, s));
    return mask;
}

} // namespace

TEST(MaskSource, FlatSurfaceOrFileByTheRecordFlags) {
    MaskSurface raised = DefaultMaskSurface();
    raised[5 * 3 + 2] = 0.25;
    EXPECT_EQ(MaskSourceOf(true, DefaultMaskSurface()), MaskSource::Flat);
    EXPECT_EQ(MaskSourceOf(true, raised), MaskSource::Surface);
    EXPECT_EQ(MaskSourceOf(false, DefaultMaskSurface()), MaskSource::File);
    EXPECT_EQ(MaskSourceOf(false, raised), MaskSource::File);
}

TEST(MaskSurfaceEval, CornersAndPlanesAreReproduced) {
    const MaskSurface plane = SurfaceWithZ([](double x, double y) { return 0.05 * x - 0.03 * y; });
    for (double u : {0.0, 0.2, 0.5, 0.9, 1.0})
        for (double v : {0.0, 0.3, 0.5, 1.0}) {
            double x, y, z;
            EvaluateMaskSurface(plane, u, v, &x, &y, &z);
            EXPECT_NEAR(x, -3 + 6 * v, 1e-12);
            EXPECT_NEAR(y, -3 + 6 * u, 1e-12);
            EXPECT_NEAR(z, 0.05 * x - 0.03 * y, 1e-12);
        }
}

TEST(MaskSurfaceBuild, MatchesTheBernsteinSumEverywhere) {
    struct Case {
        int w, h, level;
        double maxValue;
        MaskSurface surface;
    };
    const Case cases[] = {
        {60, 40, 20000, 65535, SurfaceWithZ([](double x, double y) { return 0.02 * (x - y); })},
        {37, 23, 0, 65535, SurfaceWithZ([](double x, double y) {
             return (x == -1 && y == 1) ? 0.5 : 0.0; // one raised inner control point
         })},
        {16, 61, 65535, 65535, SurfaceWithZ([](double x, double y) { return -0.1 * x * y; })},
        {25, 25, 1000, 4095,
         SurfaceWithZ([](double x, double y) { return 0.3 * std::sin(x + y); })},
    };
    for (const Case& k : cases) {
        const std::vector<float> got = BuildMask(k.surface, k.w, k.h, k.maxValue, k.level);
        const std::vector<double> want = ReferenceMask(k.surface, k.w, k.h, k.maxValue, k.level);
        for (int i = 0; i < k.w * k.h; ++i)
            ASSERT_NEAR(got[i], want[i], 0.02)
                << k.w << "x" << k.h << " sample " << i % k.w << "," << i / k.w;
        // The last column is reached by no point and is filled from its left.
        EXPECT_GE(*std::min_element(got.begin(), got.end()), 0.0f);
    }
}

TEST(MaskSurfaceBuild, PlaneThroughTheControlPointsAndBetweenThem) {
    // On a 60 x 60 image the control points with x, y in -3, -1, 1 are image samples exactly:
    // column s * 59 / 60 and row 59 - r of the point at u = r / 60, v = s / 60.
    const MaskSurface plane =
        SurfaceWithZ([](double x, double y) { return 0.05 * x - 0.03 * y + 0.25; });
    const std::vector<float> mask = BuildMask(plane, 60, 60, 65535, 1000);
    struct Point {
        double x, y;
    };
    const Point points[] = {{-3, -3}, {-1, -3}, {1, -3}, {-3, -1}, {-1, -1},  {1, -1},
                            {-3, 1},  {-1, 1},  {1, 1},  {0, 0},   {-2, 0.5}, {2, 2}};
    for (const Point& p : points) {
        const int s = static_cast<int>(std::lround((p.x + 3) / 6 * 60));
        const int r = static_cast<int>(std::lround((p.y + 3) / 6 * 60));
        const int col = s * 59 / 60, row = 59 - r;
        EXPECT_NEAR(mask[row * 60 + col], 65535 * (0.05 * p.x - 0.03 * p.y + 0.25) + 1000, 0.05)
            << "point " << p.x << "," << p.y;
    }
    // The corner (-3, -3) is the first sample of the bottom row: z = -0.15 + 0.09 + 0.25.
    EXPECT_NEAR(mask[59 * 60], 65535 * 0.19 + 1000, 0.01);
}

TEST(MaskSurfaceBuild, ClampingAndSurfacesOutsideTheImage) {
    struct Case {
        const char* what;
        MaskSurface surface;
        int level;
        double maxValue;
        float want;
    };
    MaskSurface outside = DefaultMaskSurface();
    for (int k = 0; k < 16; ++k)
        outside[k * 3] += 10; // every point right of the image
    MaskSurface narrow = SurfaceWithZ([](double, double) { return 0.3; });
    for (int k = 0; k < 16; ++k)
        narrow[k * 3] = narrow[k * 3] / 2 - 1.5; // the left half only
    const Case cases[] = {
        {"z above the top", SurfaceWithZ([](double, double) { return 2.0; }), 0, 65535, 65535},
        {"z below zero", SurfaceWithZ([](double, double) { return -1.0; }), 1000, 65535, 0},
        {"smaller maximum", SurfaceWithZ([](double, double) { return 0.5; }), 4000, 4095, 4095},
        {"outside: the level", outside, 30000, 65535, 30000},
        {"outside: level clamped", outside, 65535, 4095, 4095},
        {"left half, holes filled", narrow, 100, 65535, static_cast<float>(0.3 * 65535 + 100)},
    };
    for (const Case& k : cases) {
        const std::vector<float> mask = BuildMask(k.surface, 31, 17, k.maxValue, k.level);
        for (float v : mask)
            ASSERT_NEAR(v, k.want, 0.02) << k.what;
    }
}

TEST(MaskSurfaceBlend, ShowMaskAndApplyMaskUseTheSurface) {
    const MaskSurface surface =
        SurfaceWithZ([](double x, double y) { return 0.08 * x + 0.02 * y; });
    const int w = 24, h = 18, level = 30000;
    const std::vector<float> mask = BuildMask(surface, w, h, 65535, level);
    Image img;
    MakeImage(img, w, h, ColorGray, [](int, int x, int y) { return 500.0 * x + 100.0 * y; });
    ASSERT_TRUE(img.BlendMask(true, false, false, img.prevPlane[0], img.curPlane[0], nullptr,
                              nullptr, nullptr, nullptr, BlendStep::ShowMask, 2, 1.0, level,
                              surface, nullptr, true, false));
    for (int i = 0; i < w * h; ++i)
        ASSERT_EQ(img.curPlane[0][i], mask[i]);

    // ApplyMask: Screen weighed by the surface, then opacity 0.6.
    Image blend;
    MakeImage(blend, w, h, ColorGray, [](int, int x, int y) { return 2000.0 * y + 7.0 * x; });
    for (int i = 0; i < w * h; ++i)
        blend.curPlane[0][i] = 60000.0f - 100.0f * i;
    ASSERT_TRUE(blend.BlendMask(true, false, false, blend.prevPlane[0], blend.curPlane[0], nullptr,
                                nullptr, nullptr, nullptr, BlendStep::ApplyMask, 6, 0.6, level,
                                surface, nullptr, true, false));
    for (int i = 0; i < w * h; ++i) {
        const double P = blend.prevPlane[0][i], C = 60000.0f - 100.0f * i, m = mask[i] / 65535.0;
        const double B = (1 - m) * P + m * (65535 - (65535 - C) * (65535 - P) / 65535);
        ASSERT_NEAR(blend.curPlane[0][i], 0.4 * P + 0.6 * B, 0.01) << i;
    }
}

TEST(MaskFile, ReadAndCheckedAgainstTheImage) {
    ScratchDir dir;
    auto write = [&](const std::string& name, int w, int h, std::uint32_t type, std::int32_t kind) {
        Image m;
        MakeImage(m, w, h, type, [](int s, int x, int y) { return 1000.0 * x + 10.0 * y + s; });
        const std::string path = dir.file(name);
        EXPECT_TRUE(m.WriteFile(path, kind)) << name;
        return path;
    };
    const std::string good = write("mask.fit", 6, 4, ColorGray, KindFITS);
    const std::string goodTiff = write("mask.tif", 6, 4, ColorGray, KindTIFF);
    const std::string small = write("small.fit", 5, 4, ColorGray, KindFITS);
    const std::string color = write("color.fit", 6, 4, ColorRGB, KindFITS);
    const std::string bmp = write("mask.bmp", 6, 4, ColorGray, KindBMP);
    struct Case {
        std::string path;
        bool ok;
        const char* text;
    };
    const Case cases[] = {
        {good, true, ""},
        {goodTiff, true, ""},
        {small, false, "Mask width or height does not match current active image."},
        {color, false, "Mask file must be a monochrome image."},
        {bmp, false, "Error reading image mask file."}, // only FITS and TIFF masks
        {dir.file("absent.fit"), false, "Error reading image mask file."},
        {dir.file("noextension"), false, "Error reading image mask file."},
    };
    for (const Case& k : cases) {
        Image mask;
        const float* plane = nullptr;
        std::string text;
        EXPECT_EQ(ReadMaskFile(k.path, 6, 4, &mask, &plane, &text), k.ok) << k.path;
        if (!k.ok) {
            EXPECT_EQ(text, k.text) << k.path;
            continue;
        }
        ASSERT_NE(plane, nullptr);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 6; ++x)
                EXPECT_FLOAT_EQ(plane[y * 6 + x], 1000.0 * x + 10.0 * y) << k.path;
    }
}
