// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Colour filter arrays: keywords, interpolation (RGB and CYGM, full and half size),
/// split and combine.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "TestSupport.h"
#include "calibration/Bayer.h"

namespace astrivelle {
namespace {

const std::vector<std::string> kRgb = {"RG,GB",   "GR,BG",   "GB,RG",   "BG,GR",
                                       "RGr,GbB", "GrR,BGb", "GbB,RGr", "BGb,GrR"};
const std::vector<std::string> kCygm = {"CYGM,CYMG", "YCMG,YCGM", "GMCY,MGCY", "MGYC,GMYC",
                                        "CYMG,CYGM", "YCGM,YCMG", "MGCY,GMCY", "GMYC,MGYC"};

/// A mosaic of light (r, g, b) seen through the cell: C = (g + b) / 2, Y = (r + g) / 2,
/// M = (r + b) / 2.
std::vector<float> Mosaic(const CfaCell& cell, int w, int h, float r, float g, float b) {
    std::vector<float> m(static_cast<std::size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float v = 0;
            switch (cell.At(x, y)) {
            case CfaColor::R:
                v = r;
                break;
            case CfaColor::G:
                v = g;
                break;
            case CfaColor::B:
                v = b;
                break;
            case CfaColor::C:
                v = 0.5f * (g + b);
                break;
            case CfaColor::Y:
                v = 0.5f * (r + g);
                break;
            case CfaColor::M:
                v = 0.5f * (r + b);
                break;
            }
            m[static_cast<std::size_t>(y) * w + x] = v;
        }
    return m;
}

struct Planes {
    int w = 0, h = 0;
    std::vector<float> r, g, b;
};

Planes Interpolate(const std::vector<float>& src, int w, int h, const CfaCell& cell, bool reduce,
                   bool half, float top = 65535.0f) {
    Planes p;
    EXPECT_TRUE(InterpolatedSize(cell, w, h, half, &p.w, &p.h));
    p.r.assign(static_cast<std::size_t>(p.w) * p.h, -1.0f);
    p.g = p.r;
    p.b = p.r;
    EXPECT_TRUE(InterpolateMosaic(src.data(), w, h, cell, reduce, half, top, p.r.data(), p.g.data(),
                                  p.b.data()));
    return p;
}

TEST(BayerPattern, KeywordsAreExactAndCellsReadRowByRow) {
    CfaCell c;
    for (const auto& k : kRgb)
        EXPECT_TRUE(ParseCfaKeyword(k, &c)) << k;
    for (const auto& k : kCygm)
        EXPECT_TRUE(ParseCfaKeyword(k, &c)) << k;
    for (const char* bad : {"rg,gb", "RGGB", "RG,GB ", "", "CYGM", "RG,BG"})
        EXPECT_FALSE(ParseCfaKeyword(bad, &c)) << bad;
    ASSERT_TRUE(ParseCfaKeyword("GrR,BGb", &c));
    EXPECT_EQ(c.At(0, 0), CfaColor::G);
    EXPECT_EQ(c.At(1, 0), CfaColor::R);
    EXPECT_EQ(c.At(0, 1), CfaColor::B);
    EXPECT_EQ(c.At(3, 3), CfaColor::G);
    ASSERT_TRUE(ParseCfaKeyword("CYGM,CYMG", &c));
    EXPECT_TRUE(c.cygm);
    // C Y / G M / C Y / M G
    const CfaColor expect[4][2] = {{CfaColor::C, CfaColor::Y},
                                   {CfaColor::G, CfaColor::M},
                                   {CfaColor::C, CfaColor::Y},
                                   {CfaColor::M, CfaColor::G}};
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 2; ++x)
            EXPECT_EQ(c.At(x, y), expect[y % 4][x]);
    // Every keyword of the frame type list reads.
    EXPECT_EQ(CfaFrameTypes().size(), 16u + 36u);
    for (const CfaFrameType& t : CfaFrameTypes())
        EXPECT_TRUE(ParseCfaKeyword(t.keyword, &c)) << t.shown;
    EXPECT_STREQ(CfaFrameTypes()[0].shown, "RGB Geberic - RG,GB");
    EXPECT_STREQ(CfaFrameTypes().back().keyword, "RGr,GbB");
}

TEST(BayerInterpolate, SizesFullAndHalf) {
    CfaCell rgb, cygm;
    ASSERT_TRUE(ParseCfaKeyword("RG,GB", &rgb));
    ASSERT_TRUE(ParseCfaKeyword("CYGM,CYMG", &cygm));
    int w = 0, h = 0;
    ASSERT_TRUE(InterpolatedSize(rgb, 100, 80, false, &w, &h));
    EXPECT_EQ(w, 98);
    EXPECT_EQ(h, 78);
    ASSERT_TRUE(InterpolatedSize(rgb, 100, 80, true, &w, &h));
    EXPECT_EQ(w, 50);
    EXPECT_EQ(h, 40);
    ASSERT_TRUE(InterpolatedSize(cygm, 100, 80, false, &w, &h));
    EXPECT_EQ(w, 98);
    EXPECT_FALSE(InterpolatedSize(cygm, 100, 80, true, &w, &h));
    EXPECT_FALSE(InterpolatedSize(rgb, 2, 80, false, &w, &h));
    // An odd-sized mosaic interpolates but does not split.
    EXPECT_TRUE(InterpolatedSize(rgb, 101, 81, false, &w, &h));
    EXPECT_FALSE(SplitSize(rgb, 101, 80, ColorRed, false, &w, &h));
    EXPECT_FALSE(SplitSize(rgb, 100, 81, ColorGreen, false, &w, &h));
}

TEST(BayerInterpolate, FlatMosaicGivesFlatColourForEveryPattern) {
    for (bool half : {false, true})
        for (bool reduce : {false, true})
            for (const auto& k : kRgb) {
                CfaCell cell;
                ASSERT_TRUE(ParseCfaKeyword(k, &cell));
                const std::vector<float> m(100 * 80, 1234.5f);
                const Planes p = Interpolate(m, 100, 80, cell, reduce, half);
                EXPECT_EQ(p.w, half ? 50 : 98);
                EXPECT_EQ(p.h, half ? 40 : 78);
                for (std::size_t i = 0; i < p.r.size(); ++i) {
                    ASSERT_EQ(p.r[i], 1234.5f) << k << " " << i;
                    ASSERT_EQ(p.g[i], 1234.5f) << k << " " << i;
                    ASSERT_EQ(p.b[i], 1234.5f) << k << " " << i;
                }
            }
}

TEST(BayerInterpolate, UniformColourIsRecoveredAtEverySiteAndEdge) {
    // Light of one colour through any pattern: every output pixel, edges included (the
    // reflection keeps the colour of the reflected site), gives that colour back.
    for (const auto& k : kRgb) {
        CfaCell cell;
        ASSERT_TRUE(ParseCfaKeyword(k, &cell));
        const std::vector<float> m = Mosaic(cell, 12, 10, 3000.0f, 2000.0f, 1000.0f);
        for (bool reduce : {false, true})
            for (bool half : {false, true}) {
                const Planes p = Interpolate(m, 12, 10, cell, reduce, half);
                for (std::size_t i = 0; i < p.r.size(); ++i) {
                    ASSERT_EQ(p.r[i], 3000.0f) << k << " pixel " << i;
                    ASSERT_EQ(p.g[i], 2000.0f) << k << " pixel " << i;
                    ASSERT_EQ(p.b[i], 1000.0f) << k << " pixel " << i;
                }
            }
    }
    for (const auto& k : kCygm) {
        CfaCell cell;
        ASSERT_TRUE(ParseCfaKeyword(k, &cell));
        const std::vector<float> m = Mosaic(cell, 14, 18, 3000.0f, 2000.0f, 1000.0f);
        const Planes p = Interpolate(m, 14, 18, cell, false, false);
        for (std::size_t i = 0; i < p.r.size(); ++i) {
            ASSERT_NEAR(p.r[i], 3000.0f, 0.01f) << k << " pixel " << i;
            ASSERT_NEAR(p.g[i], 2000.0f, 0.01f) << k << " pixel " << i;
            ASSERT_NEAR(p.b[i], 1000.0f, 0.01f) << k << " pixel " << i;
        }
    }
}

TEST(BayerInterpolate, CygmFlatMosaicGivesFlatColour) {
    for (const auto& k : kCygm) {
        CfaCell cell;
        ASSERT_TRUE(ParseCfaKeyword(k, &cell));
        const std::vector<float> m(40 * 30, 777.0f);
        const Planes p = Interpolate(m, 40, 30, cell, false, false);
        for (std::size_t i = 0; i < p.r.size(); ++i) {
            ASSERT_EQ(p.r[i], 777.0f);
            ASSERT_EQ(p.g[i], 777.0f);
            ASSERT_EQ(p.b[i], 777.0f);
        }
    }
}

TEST(BayerInterpolate, OutputIsShiftedByOneAndClamped) {
    CfaCell cell;
    ASSERT_TRUE(ParseCfaKeyword("RG,GB", &cell));
    // Only the red sites carry light: the red plane is that light, the others nothing.
    const std::vector<float> m = Mosaic(cell, 10, 8, 70000.0f, 0.0f, -5.0f);
    const Planes p = Interpolate(m, 10, 8, cell, false, false);
    for (std::size_t i = 0; i < p.r.size(); ++i) {
        ASSERT_EQ(p.r[i], 65535.0f);
        ASSERT_EQ(p.g[i], 0.0f);
        ASSERT_EQ(p.b[i], 0.0f);
    }
    // Output (1, 1) is input (2, 2), the keyword's top left (a red site): a distinct red
    // value there shows up only in the red plane at (1, 1) and its red neighbours' estimates.
    std::vector<float> one(10 * 8, 0.0f);
    one[2 * 10 + 2] = 400.0f;
    const Planes q = Interpolate(one, 10, 8, cell, false, false);
    EXPECT_EQ(q.r[1 * 8 + 1], 400.0f);
    // Green site right of it (output (2, 1)): red is (L + R) / 2.
    EXPECT_EQ(q.r[1 * 8 + 2], 200.0f);
    // Blue site diagonal to it (output (2, 2)): red is the mean of the four diagonals.
    EXPECT_EQ(q.r[2 * 8 + 2], 100.0f);
    EXPECT_EQ(q.g[1 * 8 + 1], 0.0f);
}

TEST(BayerInterpolate, GreenAtRedSiteFollowsTheSmootherAxis) {
    CfaCell cell;
    ASSERT_TRUE(ParseCfaKeyword("RG,GB", &cell));
    // A 9 by 9 mosaic; red site (4, 4) is output (3, 3).
    const auto run = [&](auto set, bool reduce) {
        std::vector<float> m(81, 100.0f);
        set(m);
        const Planes p = Interpolate(m, 9, 9, cell, reduce, false);
        return p.g[3 * 7 + 3];
    };
    // A hot green to the left: the row is the rougher axis when R2 and L2 differ more than
    // U2 and D2; then Gd = (U + D) / 2 = 100 and the four-mean is higher: green 100.
    EXPECT_EQ(run(
                  [](std::vector<float>& m) {
                      m[4 * 9 + 3] = 500;
                      m[4 * 9 + 2] = 300;
                  },
                  false),
              100.0f);
    // The same hot green when the column is rougher: Gd = (L + R) / 2 = 300, four-mean 200.
    EXPECT_EQ(run(
                  [](std::vector<float>& m) {
                      m[4 * 9 + 3] = 500;
                      m[2 * 9 + 4] = 300;
                  },
                  false),
              200.0f);
    // Equal roughness: the four-mean 200.
    EXPECT_EQ(run([](std::vector<float>& m) { m[4 * 9 + 3] = 500; }, false), 200.0f);
    // Reduce green noise: the smaller of the two axis means.
    EXPECT_EQ(run([](std::vector<float>& m) { m[4 * 9 + 3] = 500; }, true), 100.0f);
}

TEST(BayerInterpolate, ReduceGreenNoiseStopsAHotGreen) {
    CfaCell cell;
    ASSERT_TRUE(ParseCfaKeyword("RG,GB", &cell));
    std::vector<float> m(81, 100.0f);
    m[4 * 9 + 5] = 9000.0f; // green site (5, 4), output (4, 3)
    const Planes plain = Interpolate(m, 9, 9, cell, false, false);
    const Planes reduced = Interpolate(m, 9, 9, cell, true, false);
    EXPECT_EQ(plain.g[3 * 7 + 4], 9000.0f);
    EXPECT_EQ(reduced.g[3 * 7 + 4], 100.0f); // the mean of its diagonals
}

TEST(BayerInterpolate, HalfSizeTakesTheCellsSamples) {
    CfaCell cell;
    ASSERT_TRUE(ParseCfaKeyword("GB,RG", &cell)); // G B / R G
    const std::vector<float> m = {10, 20, 11, 21, //
                                  30, 40, 31, 41};
    const Planes p = Interpolate(m, 4, 2, cell, false, true);
    ASSERT_EQ(p.w, 2);
    ASSERT_EQ(p.h, 1);
    EXPECT_EQ(p.r[0], 30.0f);
    EXPECT_EQ(p.b[0], 20.0f);
    EXPECT_EQ(p.g[0], 25.0f);
    EXPECT_EQ(p.g[1], 26.0f);
    const Planes q = Interpolate(m, 4, 2, cell, true, true);
    EXPECT_EQ(q.g[0], 10.0f);
}

TEST(BayerSplit, SplitSizesAndCombineRoundTrip) {
    for (const auto& k : kRgb) {
        CfaCell cell;
        ASSERT_TRUE(ParseCfaKeyword(k, &cell));
        const int w = 12, h = 10;
        std::vector<float> m(w * h);
        for (int i = 0; i < w * h; ++i)
            m[i] = static_cast<float>(i * 7 % 1000);
        int rw, rh, gw, gh, aw, ah;
        ASSERT_TRUE(SplitSize(cell, w, h, ColorRed, false, &rw, &rh));
        ASSERT_TRUE(SplitSize(cell, w, h, ColorGreen, false, &gw, &gh));
        ASSERT_TRUE(SplitSize(cell, w, h, ColorGreen, true, &aw, &ah));
        EXPECT_EQ(rw, 6);
        EXPECT_EQ(rh, 5);
        EXPECT_EQ(gw, 6);
        EXPECT_EQ(gh, 10);
        EXPECT_EQ(ah, 5);
        std::vector<float> r(rw * rh), g(gw * gh), b(rw * rh), avg(aw * ah);
        ASSERT_TRUE(SplitMosaic(m.data(), w, h, cell, ColorRed, false, r.data()));
        ASSERT_TRUE(SplitMosaic(m.data(), w, h, cell, ColorGreen, false, g.data()));
        ASSERT_TRUE(SplitMosaic(m.data(), w, h, cell, ColorBlue, false, b.data()));
        ASSERT_TRUE(SplitMosaic(m.data(), w, h, cell, ColorGreen, true, avg.data()));
        for (int y = 0; y < rh; ++y)
            for (int x = 0; x < rw; ++x)
                for (int dy = 0; dy < 2; ++dy)
                    for (int dx = 0; dx < 2; ++dx) {
                        const float v = m[(2 * y + dy) * w + 2 * x + dx];
                        const CfaColor site = cell.site[dy][dx];
                        const float got = site == CfaColor::R   ? r[y * rw + x]
                                          : site == CfaColor::B ? b[y * rw + x]
                                                                : g[(2 * y + dy) * gw + x];
                        if (site == CfaColor::R || site == CfaColor::B || site == CfaColor::G) {
                            EXPECT_EQ(got, v);
                        }
                    }
        EXPECT_EQ(avg[0], (g[0] + g[gw]) * 0.5f);
        // Back into a mosaic: the same mosaic; with factors, each site times its factor.
        std::vector<float> back(w * h, -1.0f);
        const double ones[3] = {1, 1, 1};
        ASSERT_TRUE(CombineIntoMosaic(back.data(), w, h, cell, r.data(), g.data(), b.data(), ones));
        EXPECT_EQ(back, m) << k;
        const double scales[3] = {2.0, 0.5, 3.0};
        std::vector<float> scaled(w * h, -1.0f);
        ASSERT_TRUE(
            CombineIntoMosaic(scaled.data(), w, h, cell, r.data(), nullptr, b.data(), scales));
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const CfaColor s = cell.At(x, y);
                const float v = m[y * w + x];
                const float expect = s == CfaColor::R   ? v * 2.0f
                                     : s == CfaColor::B ? v * 3.0f
                                                        : -1.0f;
                ASSERT_EQ(scaled[y * w + x], expect);
            }
    }
}

TEST(BayerImage, ImageMembersAndWholeImageInterpolation) {
    Image mosaic;
    CfaCell cell;
    ASSERT_TRUE(ParseCfaKeyword("BG,GR", &cell));
    const std::vector<float> m = Mosaic(cell, 20, 16, 900.0f, 600.0f, 300.0f);
    test::MakeImage(mosaic, 20, 16, ColorGray, [&](int, int x, int y) { return m[y * 20 + x]; });
    mosaic.headerCards.push_back({"EXTNAME", "X", "", CardString});
    mosaic.headerCards.push_back({"TELESCOP", "T", "", CardString});

    Image rgb;
    std::string error;
    ASSERT_TRUE(InterpolateBayerImage(mosaic, "BG,GR", false, false, &rgb, &error)) << error;
    EXPECT_EQ(rgb.colorType, static_cast<std::uint32_t>(ColorRGB));
    EXPECT_EQ(rgb.width, 18);
    EXPECT_EQ(rgb.height, 14);
    EXPECT_EQ(rgb.curPlane[0][5], 900.0f);
    EXPECT_EQ(rgb.curPlane[1][5], 600.0f);
    EXPECT_EQ(rgb.curPlane[2][5], 300.0f);
    ASSERT_EQ(rgb.headerCards.size(), 1u);
    EXPECT_EQ(rgb.headerCards[0].key, "TELESCOP");

    EXPECT_FALSE(InterpolateBayerImage(rgb, "BG,GR", false, false, &mosaic, &error));
    EXPECT_EQ(error, "Image must be a monochrome CFA .");
    Image tiny;
    test::MakeImage(tiny, 2, 2, ColorGray, [](int, int, int) { return 1; });
    EXPECT_FALSE(InterpolateBayerImage(tiny, "RG,GB", false, false, &rgb, &error));
    EXPECT_EQ(error, "The Image Is Too Small to Interpolate.");

    // Split the mosaic with the Image member into a float FITS green plane, then put the
    // red, green and blue planes back into a fresh mosaic.
    Image red, green, blue;
    ASSERT_TRUE(red.SplitBayerPlane(mosaic, ColorRed, "BG,GR", false, false, ""));
    ASSERT_TRUE(green.SplitBayerPlane(mosaic, ColorGreen, "BG,GR", false, false, "COMPFIT32"));
    ASSERT_TRUE(blue.SplitBayerPlane(mosaic, ColorBlue, "BG,GR", false, false, "UNCOMPFIT"));
    EXPECT_EQ(red.fileType, KindTIFF);
    EXPECT_EQ(green.fileType, KindFITS);
    EXPECT_EQ(green.dataType, static_cast<std::uint32_t>(DataFloat));
    EXPECT_TRUE(green.fitsCompress);
    EXPECT_FALSE(blue.fitsCompress);
    EXPECT_EQ(green.width, 10);
    EXPECT_EQ(green.height, 16);
    EXPECT_EQ(red.curPlane[SlotOfColorType(ColorRed)][0], 900.0f);

    Image back;
    test::MakeImage(back, 20, 16, ColorGray, [](int, int, int) { return 0; });
    const double ones[3] = {1, 1, 1};
    ASSERT_TRUE(back.CombineBayerPlanes(&red, &green, &blue, ones, "BG,GR"));
    for (int i = 0; i < 20 * 16; ++i)
        ASSERT_EQ(back.curPlane[0][i], m[i]);
    // A set of another size is refused.
    EXPECT_FALSE(back.CombineBayerPlanes(&green, nullptr, nullptr, ones, "BG,GR"));
}

} // namespace
} // namespace astrivelle
