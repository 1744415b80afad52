// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Digital Development's three-plane path against its steps written out plainly (curve
/// and decompress colour, value plane with its own offset, the window curve, the value swapped
/// into each pixel's HSV), bit for bit, on fractional colour data with zero channels, every
/// filter and Fix Defects both ways; and the plain window gather on fractional data.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <random>

#include "TestSupport.h"
#include "operators/FilterSupport.h"
#include "operators/Stretch.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

constexpr double M = 65535.0;

/// The window about (x, y) by the mirror rule, -1.0 skipped, integer weight sum.
double Blur(const std::vector<float>& copy, int w, int h, int x, int y, int side,
            const double* weights, bool lowPass) {
    const int half = side / 2;
    double sum = 0;
    int weightSum = 0;
    for (int dy = -half; dy <= half; ++dy)
        for (int dx = -half; dx <= half; ++dx) {
            const double v = copy[MirrorIndex(y, dy, h) * w + MirrorIndex(x, dx, w)];
            const double wt = weights[(dy + half) * side + (dx + half)];
            if (v == -1.0)
                continue;
            sum += v * wt;
            weightSum = static_cast<int>(weightSum + wt);
        }
    return lowPass ? sum / weightSum : sum;
}

struct Settings {
    ScaleType type;
    double scale, black, white;
    int filter; ///< index into the sharpening filters
    bool fix;
    double strength, weight;
    int bmin, breakPoint;
};

/// The operator's parameters for the settings, with colour weights of 0.3, 0.55 and 0.8.
DigitalDevelopmentParams ParamsOf(const Settings& s) {
    DigitalDevelopmentParams p;
    p.scaleType = s.type;
    p.pre.scale = s.scale;
    p.pre.black = s.black;
    p.pre.white = s.white;
    p.filter = kSharpeningFilterTexts[s.filter];
    p.fixDefects = s.fix;
    p.strength = s.strength;
    p.backgroundWeight = s.weight;
    p.backgroundMin = s.bmin;
    p.breakPoint = s.breakPoint;
    p.red = 0.3;
    p.green = 0.55;
    p.blue = 0.8;
    return p;
}

/// The three-plane run written out from its steps, on the image's top level.
void Reference(Image& img, const Settings& s, const CCustomFilter& custom) {
    const int w = img.width, h = img.height, n = w * h;
    const double M = img.maxValue;
    const PreStretch pre{s.type, s.scale, s.black, s.white, M, true};
    int offset[3];
    for (int c = 0; c < 3; ++c)
        offset[c] = BackgroundOffset(img.MedianLevelOfPlane(img.prevPlane[c]), s.weight);
    const double a = s.breakPoint, bmin = s.bmin;
    auto plainCurve = [&](double v) { return v / (v + a + 1.0) * M + bmin; };
    std::vector<float> out[3] = {std::vector<float>(n), std::vector<float>(n),
                                 std::vector<float>(n)};
    for (int y = 0; y < h; ++y) {
        double held = kDdpRowStartBlueRatio;
        for (int x = 0; x < w; ++x) {
            const int i = y * w + x;
            double q[3], o[3];
            for (int c = 0; c < 3; ++c)
                q[c] = pre(static_cast<double>(img.prevPlane[c][i]) + offset[c]);
            DecompressColor(q[0], q[1], q[2], plainCurve(q[0]), plainCurve(q[1]), plainCurve(q[2]),
                            0.3, 0.55, 0.8, &held, &o[0], &o[1], &o[2]);
            for (int c = 0; c < 3; ++c)
                out[c][i] = static_cast<float>(ClampStretch(o[c], 0.0, M));
        }
    }
    if (s.filter != 0 && s.strength > 0.0) {
        std::vector<float> value(n);
        for (int i = 0; i < n; ++i)
            value[i] = static_cast<float>(
                ClampStretch(std::max(pre(img.prevPlane[0][i]),
                                      std::max(pre(img.prevPlane[1][i]), pre(img.prevPlane[2][i]))),
                             0.0, M));
        Image valueImage;
        MakeImage(valueImage, w, h, ColorGray, [&](int, int x, int y) { return value[y * w + x]; });
        valueImage.maxValue = img.maxValue;
        const int vOffset =
            BackgroundOffset(valueImage.MedianLevelOfPlane(valueImage.curPlane[0]), s.weight);
        for (float& v : value) {
            const double d = static_cast<double>(v) + vOffset;
            v = d <= 0.0 ? 1.0f : static_cast<float>(d);
        }
        std::vector<double> box(81, 1.0);
        const int side = s.filter == 5 ? custom.size : 2 * s.filter + 1;
        const double* weights = s.filter == 5 ? custom.weights.data() : box.data();
        const bool lowPass = s.filter == 5 ? custom.lowPass : true;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const int i = y * w + x;
                const double v = value[i];
                const double f = Blur(value, w, h, x, y, side, weights, lowPass);
                const double d = (1.0 - s.strength) * v + s.strength * f + a + 1.0;
                double o = v / d * M + bmin;
                if (s.fix)
                    o = std::max(o, v / (a + v + 1.0) * M + bmin);
                const double second = static_cast<float>(ClampStretch(o, 0.0, M));
                double hh, ss, vv, r, g, b;
                Image::RgbToHsv(out[0][i], out[1][i], out[2][i], &hh, &ss, &vv);
                Image::HsvToRgb(hh, ss, second, &r, &g, &b);
                out[0][i] = static_cast<float>(ClampStretch(r, 0.0, M));
                out[1][i] = static_cast<float>(ClampStretch(g, 0.0, M));
                out[2][i] = static_cast<float>(ClampStretch(b, 0.0, M));
            }
    }
    for (int c = 0; c < 3; ++c)
        std::copy(out[c].begin(), out[c].end(), img.curPlane[c]);
}

void Fill(Image& img, int w, int h, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<float> noise(0.f, 40.f);
    MakeImage(img, w, h, ColorRGB, [&](int s, int x, int y) -> double {
        if ((x + 2 * y) % 11 == 0)
            return 0.0; // zero channels (and whole zero pixels where the rule meets all three)
        if ((x * 3 + y + s) % 13 == 0)
            return 0.0;
        float v = 1200.f + 40.f * s + 3.7f * x + 2.1f * y + noise(rng);
        if ((x * 7 + y * 5) % 23 == 0)
            v += 30000.f + 1000.f * s;
        return std::clamp(v, 0.f, 65535.f);
    });
}

/// Runs the operator on `img` and the written-out steps on `ref` (the same pixels), and
/// compares every plane bit for bit: the first pixel that differs, or success.
::testing::AssertionResult SameAsTheSteps(Image& img, Image& ref, const Settings& s,
                                          const CCustomFilter& custom) {
    if (!RunDigitalDevelopment(img, ParamsOf(s), StretchChannels{}, false, &custom, nullptr))
        return ::testing::AssertionFailure() << "the operator failed";
    Reference(ref, s, custom);
    for (int c = 0; c < 3; ++c)
        for (std::size_t i = 0; i < img.pixelCount; ++i)
            if (img.curPlane[c][i] != ref.curPlane[c][i])
                return ::testing::AssertionFailure()
                       << "plane " << c << " pixel " << i << ": " << img.curPlane[c][i]
                       << " against " << ref.curPlane[c][i];
    return ::testing::AssertionSuccess();
}

/// Runs `body` at each width of the three-plane row kernels this processor has, back at the
/// widest after.
void ForEachRowWidth(const std::function<void(int)>& body) {
    for (int lanes : {4, 8}) {
        if (!stretch_testing::SetDdpRowLanes(lanes)) {
            std::printf("[ SKIPPED  ] %d-lane row kernels: this processor has no AVX-512\n", lanes);
            continue;
        }
        body(lanes);
    }
    stretch_testing::SetDdpRowLanes(0);
}

} // namespace

TEST(DigitalDevelopmentThreePlanes, EqualTheStepsWrittenOutBitForBit) {
    ForEachRowWidth([](int lanes) {
        CCustomFilter custom;
        custom.size = 5;
        custom.lowPass = true;
        for (int k = 0; k < 25; ++k)
            custom.weights[k] = (k * 7) % 5 == 0 ? 2.5 : 1.0;
        const Settings settings[] = {
            {ScaleType::None, 1.0, 0.0, 1.0, 4, false, 0.5, 1.0, 0, 2000},
            {ScaleType::None, 1.0, 0.0, 1.0, 4, true, 0.9, 0.8, 30, 400},
            {ScaleType::Linear, 1.3, 0.01, 0.95, 1, true, 0.3, 1.0, 10, 800},
            {ScaleType::Root, 0.6, 0.002, 1.0, 2, false, 1.0, 0.5, 0, 100},
            {ScaleType::Power, 1.4, 0.0, 0.9, 3, true, 0.7, 1.1, 5, 3000},
            {ScaleType::None, 1.0, 0.0, 1.0, 5, false, 0.6, 1.0, 0, 1500},
            {ScaleType::Linear, 0.8, 0.0, 1.0, 5, true, 0.4, 0.9, 0, 700},
            {ScaleType::None, 1.0, 0.0, 1.0, 0, false, 0.0, 1.0, 0, 2000},
        };
        for (const auto& [w, h] : {std::pair{37, 29}, std::pair{6, 5}, std::pair{64, 3}})
            for (const Settings& s : settings) {
                Image img, ref;
                Fill(img, w, h, w * 31 + h);
                Fill(ref, w, h, w * 31 + h);
                ASSERT_TRUE(SameAsTheSteps(img, ref, s, custom))
                    << lanes << " lanes " << w << "x" << h << " filter " << s.filter << " fix "
                    << s.fix;
            }
    });
}

TEST(DigitalDevelopmentThreePlanes, PlainGatherOnFineFractionsEqualsTheWindowRule) {
    // Values with bits far below the point take the plain gather of each window.
    const int w = 41, h = 23;
    std::mt19937 rng(3);
    std::vector<double> in(w * h);
    for (std::size_t i = 0; i < in.size(); ++i)
        in[i] = i % 17 == 0 ? 1e-9 * (i % 5) : (rng() % 60000) / 7.0;
    for (const char* filter : {"Soft", "Hard Plus"}) {
        Image img;
        MakeImage(img, w, h, ColorGray, [&](int, int x, int y) { return in[y * w + x]; });
        DigitalDevelopmentParams p;
        p.filter = filter;
        p.strength = 0.7;
        p.breakPoint = 900;
        p.backgroundWeight = 0.0;
        stretch_testing::ResetWindowCounts();
        ASSERT_TRUE(RunDigitalDevelopment(img, p, StretchChannels{}, false, nullptr, nullptr));
        EXPECT_EQ(stretch_testing::PlainPlanes(), 1);
        std::vector<float> copy(in.begin(), in.end());
        std::vector<double> box(81, 1.0);
        const int side = std::string(filter) == "Soft" ? 3 : 9;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const double v = copy[y * w + x];
                const double f = Blur(copy, w, h, x, y, side, box.data(), true);
                const double o = v / ((1.0 - 0.7) * v + 0.7 * f + 900.0 + 1.0) * M;
                ASSERT_EQ(img.curPlane[0][y * w + x], static_cast<float>(ClampStretch(o, 0.0, M)))
                    << filter << " " << x << "," << y;
            }
    }
}

TEST(DigitalDevelopmentThreePlanes, HeldBlueRatioAndGreyPixelsEqualTheStepsBitForBit) {
    ForEachRowWidth([](int lanes) {
        // Whole levels with the background weight at 1, so that many pixels sit exactly on their
        // channel's median: a red of 0 that is the largest reads the blue ratio held along the row
        // (from the row start, from a pixel just before, or from one several blocks back). Grey
        // pixels and pixels with two equal channels take the HSV rule's edge branches. Several
        // sizes in a row, the scratch plane of one run serving the next.
        const Settings settings[] = {
            {ScaleType::None, 1.0, 0.0, 1.0, 0, false, 0.0, 1.0, 0, 2000},
            {ScaleType::None, 1.0, 0.0, 1.0, 4, false, 0.5, 1.0, 0, 2000},
            {ScaleType::Linear, 1.2, 0.0, 1.0, 2, true, 0.8, 1.0, 20, 500},
            {ScaleType::Root, 0.7, 0.0, 1.0, 1, false, 0.4, 1.0, 0, 900},
        };
        const CCustomFilter custom;
        for (const auto& [w, h] : {std::pair{37, 11}, std::pair{64, 5}, std::pair{37, 11},
                                   std::pair{3, 4}, std::pair{203, 6}})
            for (const Settings& s : settings) {
                auto fill = [&](Image& img) {
                    std::mt19937 rng(w * 7 + h);
                    MakeImage(img, w, h, ColorRGB, [&](int c, int x, int y) -> double {
                        const unsigned kind = (x * 5 + y * 3) % 9;
                        if (kind == 0)
                            return 1000.0; // all three on the median: red largest and 0
                        if (kind == 1)
                            return c == 0 ? 1000.0
                                          : 1000.0 - (rng() % 40); // red 0, the others below
                        if (kind == 2)
                            return 1200.0; // grey
                        if (kind == 3)
                            return c == 2 ? 1300.0 : 1500.0; // two equal largest
                        return 1000.0 + static_cast<double>(rng() % 400) - 240.0; // medians at 1000
                    });
                };
                Image img, ref;
                fill(img);
                fill(ref);
                ASSERT_TRUE(SameAsTheSteps(img, ref, s, custom))
                    << lanes << " lanes " << w << "x" << h << " filter " << s.filter;
            }
    });
}

TEST(DigitalDevelopmentThreePlanes, HeldBlueRatioIsTheLastSetBeforeIt) {
    // One row: pixels 5 and 6 set the blue ratio within one group of four and of eight, the
    // earlier with 100 / 500 and the later with 400 / 500; pixel 9, of the next group, has its
    // red the largest and 0 and must read the later one. The other pixels of the row have
    // green the largest, and two grey rows keep every channel's median at 1000. The red of 0
    // curves to the background minimum, which must not be 0 for the ratio to show.
    const int w = 24, h = 3;
    auto fill = [&](Image& img) {
        MakeImage(img, w, h, ColorRGB, [&](int c, int x, int y) -> double {
            const double grey[3] = {1000, 1000, 1000}, earlier[3] = {1500, 1200, 1100},
                         later[3] = {1500, 1100, 1400}, held[3] = {1000, 990, 999},
                         green[3] = {1000, 1500, 1000};
            if (y > 0)
                return grey[c];
            return (x == 5 ? earlier : x == 6 ? later : x == 9 ? held : green)[c];
        });
    };
    const Settings settings[] = {{ScaleType::None, 1.0, 0.0, 1.0, 0, false, 0.0, 1.0, 30, 2000},
                                 {ScaleType::None, 1.0, 0.0, 1.0, 1, false, 0.5, 1.0, 30, 2000}};
    const CCustomFilter custom;
    ForEachRowWidth([&](int lanes) {
        for (const Settings& s : settings) {
            Image img, ref;
            fill(img);
            fill(ref);
            ASSERT_TRUE(SameAsTheSteps(img, ref, s, custom))
                << lanes << " lanes, filter " << s.filter;
            Reference(ref, s, custom);
            for (int c = 0; c < 3; ++c)
                for (int i = 0; i < w * h; ++i)
                    ASSERT_EQ(img.curPlane[c][i], ref.curPlane[c][i])
                        << lanes << " lanes, filter " << s.filter << " plane " << c << " pixel "
                        << i;
        }
    });
}

TEST(DigitalDevelopmentWindows, EveryWindowPathEqualsTheStepsBitForBit) {
    ForEachRowWidth([](int lanes) {
        // The value plane's offset is applied as its entries are read when the plane without
        // offset shows the sums exact for any offset the background weight allows; otherwise the
        // plane takes the offset first and is scanned (running sums or the plain gather). Widths
        // that leave one to three pixels past the last group of four, planes narrower than the
        // window, other top levels (counted with the level rounding, or beyond the counted range).
        struct Case {
            const char* name;
            std::uint32_t top;
            double weight;
            std::function<double(std::mt19937&, int, int, int)> value;
            bool sliding;
        };
        const Case cases[] = {
            {"whole levels", 65535, 1.0,
             [](std::mt19937& r, int c, int x, int y) {
                 return 900.0 + c * 30 + (x * 7 + y * 3) % 50 + r() % 200;
             },
             true},
            {"quarters", 65535, 0.8,
             [](std::mt19937& r, int c, int x, int) {
                 return 1000.0 + c * 11 + x + (r() % 800) * 0.25;
             },
             true},
            // Bits down to 2^-30 pass the exact test on the plane with its offset (all below 1)
            // but not the one made before the offset is known.
            {"bits far down", 65535, 1.0,
             [](std::mt19937& r, int, int, int) {
                 return std::ldexp(2.0 * (r() % 1048576) + 1, -30);
             },
             true},
            {"fine fractions", 65535, 0.0,
             [](std::mt19937& r, int c, int x, int y) {
                 return (x + y) % 2 == 0 ? 1e-12 * (1 + c + r() % 5) : (r() % 60000) / 7.0;
             },
             false},
            // Red mostly above the top level: it counts at the top.
            {"top 4095", 4095, 1.0,
             [](std::mt19937& r, int c, int x, int y) {
                 return (c == 0 ? 3700.0 : 300.0) + c * 9 + x * 5 + y + r() % 900;
             },
             true},
            // Red largest, green 0 and blue just above it (no background min to lift them): the
            // hue comes out a hair below 0 and wraps round to 1.0.
            {"hue at the circle's end", 65535, 0.0,
             [](std::mt19937& r, int c, int x, int y) {
                 if ((x + 2 * y) % 3 == 0)
                     return c == 0 ? 30000.0 : (c == 1 ? 0.0 : 1e-30);
                 return 800.0 + c * 40 + r() % 3000;
             },
             true},
            {"top 100000", 100000, 0.9,
             [](std::mt19937& r, int c, int x, int y) {
                 return 70000.0 + c * 9 + x * 5 + y + r() % 900;
             },
             true},
        };
        const CCustomFilter custom;
        for (const Case& k : cases)
            for (const auto& [w, h] : {std::pair{37, 13}, std::pair{6, 5}, std::pair{3, 4},
                                       std::pair{1, 1}, std::pair{2, 9}, std::pair{13, 10}})
                for (const int filter : {1, 4})
                    for (const bool fix : {false, true}) {
                        const Settings s{ScaleType::None, 1.0, 0.0, 1.0, filter, fix, 0.7,
                                         k.weight,        0,   900};
                        auto fill = [&](Image& img) {
                            std::mt19937 rng(w * 13 + h);
                            MakeImage(img, w, h, ColorRGB,
                                      [&](int c, int x, int y) { return k.value(rng, c, x, y); });
                            img.maxValue = k.top;
                        };
                        Image img, ref;
                        fill(img);
                        fill(ref);
                        stretch_testing::ResetWindowCounts();
                        ASSERT_TRUE(RunDigitalDevelopment(img, ParamsOf(s), StretchChannels{},
                                                          false, &custom, nullptr));
                        // A single pixel sums exactly whatever its bits.
                        const bool sliding = k.sliding || w * h == 1;
                        EXPECT_EQ(stretch_testing::SlidingPlanes(), sliding ? 1 : 0) << k.name;
                        EXPECT_EQ(stretch_testing::PlainPlanes(), sliding ? 0 : 1) << k.name;
                        Reference(ref, s, custom);
                        for (int c = 0; c < 3; ++c)
                            for (int i = 0; i < w * h; ++i)
                                ASSERT_EQ(img.curPlane[c][i], ref.curPlane[c][i])
                                    << lanes << " lanes " << k.name << " " << w << "x" << h
                                    << " filter " << filter << " fix " << fix << " plane " << c
                                    << " pixel " << i;
                    }
    });
}

TEST(DigitalDevelopmentWindows, OnePlaneWithAndWithoutMinusOneEqualsThePlainGather) {
    // Whole levels with the median at 1000 and the full background weight: 999 becomes -1.0,
    // left out of the window sums and counts; the same plane without 999 keeps no counts.
    for (const bool minusOne : {true, false})
        for (const auto& [w, h] :
             {std::pair{37, 21}, std::pair{5, 7}, std::pair{2, 3}, std::pair{1, 12}})
            for (const char* filter : {"Soft", "Medium", "Hard Plus"}) {
                auto level = [&](int x, int y) -> double {
                    const int k = (x * 5 + y * 3) % 7;
                    if (k == 0)
                        return minusOne ? 999.0 : 998.0;
                    return k < 4 ? 1000.0 : 1000.0 + k * 37 + x;
                };
                DigitalDevelopmentParams p;
                p.filter = filter;
                p.strength = 0.8;
                p.breakPoint = 200;
                p.backgroundWeight = 1.0;
                Image fast, plain;
                MakeImage(fast, w, h, ColorGray, [&](int, int x, int y) { return level(x, y); });
                MakeImage(plain, w, h, ColorGray, [&](int, int x, int y) { return level(x, y); });
                ASSERT_EQ(fast.MedianLevelOfPlane(fast.curPlane[0]), 1000u);
                stretch_testing::ResetWindowCounts();
                ASSERT_TRUE(
                    RunDigitalDevelopment(fast, p, StretchChannels{}, false, nullptr, nullptr));
                EXPECT_EQ(stretch_testing::SlidingPlanes(), 1);
                stretch_testing::SetWindowPath(stretch_testing::WindowPath::Plain);
                ASSERT_TRUE(
                    RunDigitalDevelopment(plain, p, StretchChannels{}, false, nullptr, nullptr));
                stretch_testing::SetWindowPath(stretch_testing::WindowPath::Auto);
                for (int i = 0; i < w * h; ++i)
                    ASSERT_EQ(fast.curPlane[0][i], plain.curPlane[0][i])
                        << (minusOne ? "with" : "without") << " -1.0, " << filter << " " << w << "x"
                        << h << " pixel " << i;
            }
}
