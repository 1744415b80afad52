// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Digital Development: the curve, the sharpening window (mirror rule, -1.0 entries, the
/// integer weight sum) against a plain computation, the running sums against the plain gather,
/// Fix Defects, the three-plane path with its zero rules and value plane, memory failure and
/// cancel without a history step, the texts, the field checks and the replay.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "TestSupport.h"
#include "engine/ProcessStructure.h"
#include "engine/ProcessWindow.h"
#include "operators/FilterSupport.h"
#include "operators/Stretch.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

constexpr double M = 65535.0;

bool Apply(Image& img, const DigitalDevelopmentParams& p, const CCustomFilter* custom = nullptr) {
    return RunDigitalDevelopment(img, p, StretchChannels{}, false, custom, nullptr);
}

/// The window rule written out plainly: offsets d outside the image are taken as -d (then held
/// inside), -1.0 entries skipped, the sum of weights an integer truncated at each addition.
double OracleBlur(const std::vector<double>& copy, int w, int h, int x, int y, int side,
                  const double* weights, bool lowPass) {
    const int half = side / 2;
    double sum = 0;
    int weightSum = 0;
    for (int dy = -half; dy <= half; ++dy)
        for (int dx = -half; dx <= half; ++dx) {
            int yy = y + dy, xx = x + dx;
            if (yy < 0 || yy >= h)
                yy = y - dy;
            if (xx < 0 || xx >= w)
                xx = x - dx;
            yy = std::clamp(yy, 0, h - 1);
            xx = std::clamp(xx, 0, w - 1);
            const double v = copy[yy * w + xx];
            const double wt = weights[(dy + half) * side + (dx + half)];
            if (v == -1.0)
                continue;
            sum += v * wt;
            weightSum = static_cast<int>(weightSum + wt);
        }
    return lowPass ? sum / weightSum : sum;
}

/// The one-plane curve on a mono plane with a box or custom filter, no pre-stretch.
std::vector<float> OraclePlane(const std::vector<double>& in, int w, int h, int offset, double a,
                               double bmin, double s, bool fix, int side, const double* weights,
                               bool lowPass) {
    std::vector<double> copy(in.size());
    for (std::size_t i = 0; i < in.size(); ++i)
        copy[i] = static_cast<float>(in[i] + offset);
    std::vector<float> out(in.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double v = in[y * w + x] + offset;
            const double f = OracleBlur(copy, w, h, x, y, side, weights, lowPass);
            const double d = (1 - s) * v + s * f + a + 1;
            double o = v / d * M + bmin;
            if (fix)
                o = std::max(o, v / (a + v + 1) * M + bmin);
            out[y * w + x] = static_cast<float>(std::clamp(o, 0.0, M));
        }
    return out;
}

const std::vector<double> kOnes(81, 1.0);

} // namespace

TEST(DigitalDevelopment, WhitePixelAtTheDefaultsWithMedianZero) {
    Image img;
    MakeImage(img, 5, 5, ColorGray, [](int, int x, int y) { return x == 2 && y == 2 ? M : 0.0; });
    ASSERT_TRUE(Apply(img, DigitalDevelopmentParams{}));
    EXPECT_EQ(img.curPlane[0][12], static_cast<float>(M * 65535.0 / 131071.0));
    EXPECT_LT(img.curPlane[0][12], M / 2);
    EXPECT_EQ(img.curPlane[0][0], 0.0f);
}

TEST(DigitalDevelopment, CurveWithOffsetPreStretchAndBackgroundMin) {
    Image img;
    MakeImage(img, 40, 1, ColorGray, [](int, int x, int) { return x < 21 ? 3000.0 : x * 1500.0; });
    DigitalDevelopmentParams p;
    p.scaleType = ScaleType::Power;
    p.pre = {1.5, 0.01, 0.9, kBlackRangeTexts[0]};
    p.backgroundWeight = 0.5; // median 3000 -> offset -1500
    p.breakPoint = 2000;
    p.backgroundMin = 100;
    ASSERT_TRUE(Apply(img, p));
    for (int x = 0; x < 40; ++x) {
        const double q = (x < 21 ? 3000.0 : x * 1500.0) - 1500.0;
        const double v = std::pow(std::fabs(q / M * (0.9 - 0.01) + 0.01), 1.5) * M;
        EXPECT_NEAR(img.curPlane[0][x], std::clamp(v / (v + 2001) * M + 100, 0.0, M), 0.01) << x;
    }
}

TEST(DigitalDevelopment, HardPlusMatchesThePlainComputation) {
    // Integer data around a median of 1000 (so many window entries are exactly -1.0 after the
    // offset), odd sizes, a plane narrower than the window.
    struct Case {
        int w, h;
        const char* filter;
        int side;
        double strength;
        bool fix;
    };
    const Case cases[] = {{37, 23, "Hard Plus", 9, 0.7, false}, {37, 23, "Hard Plus", 9, 1.0, true},
                          {12, 40, "Soft", 3, 0.5, false},      {6, 5, "Hard Plus", 9, 0.3, false},
                          {20, 11, "Medium", 5, 0.9, true},     {15, 15, "Hard", 7, 0.2, false}};
    for (const Case& c : cases) {
        std::mt19937 rng(c.w * 100 + c.h);
        std::uniform_int_distribution<int> near(995, 1005);
        std::vector<double> in(c.w * c.h);
        for (std::size_t i = 0; i < in.size(); ++i)
            in[i] = i % 4 == 0 ? 999.0
                               : (i % 4 == 1 ? 1000.0 : (i % 8 == 2 ? near(rng) * 7.0 : near(rng)));
        Image img;
        MakeImage(img, c.w, c.h, ColorGray, [&](int, int x, int y) { return in[y * c.w + x]; });
        const int offset = -static_cast<int>(img.MedianLevelOfPlane(img.curPlane[0]));
        ASSERT_EQ(offset, -1000) << "999 is then exactly -1.0";
        DigitalDevelopmentParams p;
        p.filter = c.filter;
        p.strength = c.strength;
        p.fixDefects = c.fix;
        p.breakPoint = 300;
        p.backgroundMin = 20;
        stretch_testing::ResetWindowCounts();
        ASSERT_TRUE(Apply(img, p));
        EXPECT_EQ(stretch_testing::SlidingPlanes(), 1) << "integer data takes the running sums";
        const std::vector<float> expect = OraclePlane(in, c.w, c.h, offset, 300, 20, c.strength,
                                                      c.fix, c.side, kOnes.data(), true);
        int skipped = 0;
        for (double v : in)
            skipped += v + offset == -1.0;
        EXPECT_GT(skipped, 0) << "the case must hold -1.0 entries";
        for (int i = 0; i < c.w * c.h; ++i)
            ASSERT_EQ(img.curPlane[0][i], expect[i])
                << c.filter << " " << c.w << "x" << c.h << " pixel " << i;
    }
}

TEST(DigitalDevelopment, RunningSumsEqualThePlainGatherBitForBit) {
    struct Case {
        const char* name;
        int w, h;
        std::function<double(std::mt19937&)> value;
        bool running;
    };
    const Case cases[] = {
        {"integers", 61, 47, [](std::mt19937& r) { return double(r() % 65536); }, true},
        {"quarters", 64, 33, [](std::mt19937& r) { return (r() % 200000) * 0.25; }, true},
        {"fine fractions", 30, 30,
         [](std::mt19937& r) { return (r() % 2 ? 1e-9 : 0.0) + (r() % 4000) / 3.0; }, false},
        {"around -1", 25, 19, [](std::mt19937& r) { return 999.0 + r() % 3; }, true},
    };
    for (const Case& c : cases) {
        std::mt19937 rng(7);
        std::vector<double> in(c.w * c.h);
        for (double& v : in)
            v = c.value(rng);
        if (!c.running)
            in[0] = 1e-9; // a value with bits far below the point: no exact running sums
        for (const char* filter : {"Soft", "Hard Plus"}) {
            DigitalDevelopmentParams p;
            p.filter = filter;
            p.strength = 0.8;
            p.breakPoint = 500;
            // Without an offset the tiny value stays in the copy that is summed.
            p.backgroundWeight = c.running ? 1.0 : 0.0;
            Image fast, plain;
            MakeImage(fast, c.w, c.h, ColorGray,
                      [&](int, int x, int y) { return in[y * c.w + x]; });
            MakeImage(plain, c.w, c.h, ColorGray,
                      [&](int, int x, int y) { return in[y * c.w + x]; });
            stretch_testing::ResetWindowCounts();
            ASSERT_TRUE(Apply(fast, p));
            EXPECT_EQ(stretch_testing::SlidingPlanes(), c.running ? 1 : 0) << c.name;
            stretch_testing::SetWindowPath(stretch_testing::WindowPath::Plain);
            ASSERT_TRUE(Apply(plain, p));
            stretch_testing::SetWindowPath(stretch_testing::WindowPath::Auto);
            for (int i = 0; i < c.w * c.h; ++i)
                ASSERT_EQ(fast.curPlane[0][i], plain.curPlane[0][i]) << c.name << " " << i;
        }
    }
}

TEST(DigitalDevelopment, CustomFilterWeightsAndIntegerWeightSum) {
    // A 3x3 low-pass custom filter with fractional weights: the weight sum is truncated as it
    // grows (0.6 + 0.6 -> 0 + 0.6 ...), which the plain computation shares.
    CCustomFilter custom;
    custom.name = "Test";
    custom.size = 3;
    custom.lowPass = true;
    const double weights[9] = {0.6, 1.6, 0.6, 1.6, 4.0, 1.6, 0.6, 1.6, 0.6};
    std::copy(weights, weights + 9, custom.weights.begin());
    std::vector<double> in(14 * 9);
    for (int i = 0; i < 14 * 9; ++i)
        in[i] = 1000 + (i * 37) % 300;
    Image img;
    MakeImage(img, 14, 9, ColorGray, [&](int, int x, int y) { return in[y * 14 + x]; });
    DigitalDevelopmentParams p;
    p.filter = "Custom";
    p.strength = 0.5;
    p.backgroundWeight = 0.0;
    p.breakPoint = 1000;
    ASSERT_TRUE(Apply(img, p, &custom));
    const auto expect = OraclePlane(in, 14, 9, 0, 1000, 0, 0.5, false, 3, weights, true);
    for (int i = 0; i < 14 * 9; ++i)
        ASSERT_EQ(img.curPlane[0][i], expect[i]) << i;

    // Sizes other than 3, 5, 7, 9 are refused with their text; nothing is recorded.
    custom.size = 11;
    CProcessWindow w;
    RecordingNotify notify;
    w.SetNotify(&notify);
    MakeImage(w.image, 14, 9, ColorGray, [&](int, int x, int y) { return in[y * 14 + x]; });
    w.BeginHistory("Read");
    EXPECT_FALSE(w.DigitalDevelopment(p, nullptr, &custom));
    ASSERT_EQ(notify.messages.size(), 1u);
    EXPECT_EQ(notify.messages[0], kCustomFilterSizeText);
    EXPECT_EQ(w.history.size(), 1u);
}

TEST(DigitalDevelopment, FixDefectsTakesTheLarger) {
    // A dark pixel among bright ones: its blur is above it, so the sharpened value is smaller
    // than the plain curve; a bright pixel beside dark ones the other way round.
    auto fill = [](int, int x, int y) {
        return (x == 4 && y == 4) ? 500.0 : (x < 2 ? 100.0 : 8000.0);
    };
    DigitalDevelopmentParams p;
    p.filter = "Soft";
    p.strength = 1.0;
    p.backgroundWeight = 0.0;
    p.breakPoint = 1000;
    Image plain, fixed;
    MakeImage(plain, 9, 9, ColorGray, fill);
    MakeImage(fixed, 9, 9, ColorGray, fill);
    ASSERT_TRUE(Apply(plain, p));
    p.fixDefects = true;
    ASSERT_TRUE(Apply(fixed, p));
    const int dark = 4 * 9 + 4, bright = 4 * 9 + 2;
    const float curve = static_cast<float>(500.0 / 1501.0 * M);
    EXPECT_LT(plain.curPlane[0][dark], curve);
    EXPECT_EQ(fixed.curPlane[0][dark], curve);
    EXPECT_GT(plain.curPlane[0][bright], static_cast<float>(8000.0 / 9001.0 * M));
    EXPECT_EQ(fixed.curPlane[0][bright], plain.curPlane[0][bright]);
}

TEST(DigitalDevelopment, ThreePlanesDecompressColourAndTheZeroRules) {
    // Most pixels (1000, 1000, 1000): medians 1000, offsets -1000 with weight 1.
    const double px[5][3] = {{1000, 990, 980},
                             {1400, 1200, 1100},
                             {1000, 995, 990},
                             {1000, 1000, 1000},
                             {1000, 990, 1000}};
    Image img;
    MakeImage(img, 5, 3, ColorRGB, [&](int s, int x, int y) { return y == 2 ? px[x][s] : 1000.0; });
    DigitalDevelopmentParams p;
    p.backgroundMin = 500;
    p.red = 0.3;
    p.green = 0.5;
    p.blue = 0.7;
    ASSERT_TRUE(Apply(img, p));
    const double a = 65535, B = 500, wr = 0.3;
    auto S = [&](double v) { return v / (v + a + 1) * M + B; };
    auto at = [&](int s, int x) { return static_cast<double>(img.curPlane[s][10 + x]); };
    const double tol = 0.005;
    // x 0: red 0 is the largest at the row's start: g / r becomes b / 0.001, b / r is 1.0.
    EXPECT_NEAR(at(0, 0), S(0), tol);
    EXPECT_NEAR(at(1, 0), std::max(0.0, (-20 / 0.001) * S(0) * wr + (1 - wr) * S(-10)), tol);
    EXPECT_NEAR(at(2, 0), 1.0 * S(0) * wr + (1 - wr) * S(-20), tol);
    // x 1: red leads with b / r = 0.25.
    EXPECT_NEAR(at(1, 1), 0.5 * S(400) * wr + (1 - wr) * S(200), tol);
    EXPECT_NEAR(at(2, 1), 0.25 * S(400) * wr + (1 - wr) * S(100), tol);
    // x 2: red 0 again: b / r keeps 0.25 from x 1.
    EXPECT_NEAR(at(1, 2), std::max(0.0, (-10 / 0.001) * S(0) * wr + (1 - wr) * S(-5)), tol);
    EXPECT_NEAR(at(2, 2), 0.25 * S(0) * wr + (1 - wr) * S(-10), tol);
    // x 3: all 0: green is (1 - wr) of B, blue the held ratio's share plus (1 - wr) of B.
    EXPECT_NEAR(at(1, 3), (1 - wr) * B, tol);
    EXPECT_NEAR(at(2, 3), 0.25 * B * wr + (1 - wr) * B, tol);
    // x 4: red 0 with blue 0 and green below: g / r is b / 0.001 = 0, so green keeps
    // (1 - wr) of its own curve rather than dropping far below 0.
    EXPECT_NEAR(at(1, 4), (1 - wr) * S(-10), tol);
    EXPECT_GT(at(1, 4), 300.0);
    EXPECT_NEAR(at(2, 4), 0.25 * S(0) * wr + (1 - wr) * S(0), tol);
    // Row 0 starts with all 0 again, held 1.0: blue is B itself.
    EXPECT_NEAR(img.curPlane[2][0], B, tol);
}

TEST(DigitalDevelopment, ThreePlanesWithAFilterGoThroughTheValuePlane) {
    const int w = 13, h = 11;
    auto fill = [](int s, int x, int y) {
        return 1000.0 + ((x * 7 + y * 13 + s * 5) % 17) * (s + 1) * 40.0 +
               (x == 6 && y == 5 ? 9000 : 0);
    };
    Image img;
    MakeImage(img, w, h, ColorRGB, fill);
    DigitalDevelopmentParams p;
    p.scaleType = ScaleType::Linear;
    p.pre = {1.2, 0.0, 1.0, kBlackRangeTexts[0]};
    p.filter = "Medium";
    p.strength = 0.6;
    p.fixDefects = true;
    p.breakPoint = 400;
    p.backgroundMin = 10;
    p.backgroundWeight = 0.9;
    ASSERT_TRUE(Apply(img, p));

    // The same four steps written out.
    const int n = w * h;
    Image plain;
    MakeImage(plain, w, h, ColorRGB, fill);
    p.filter = "None";
    ASSERT_TRUE(Apply(plain, p)); // step 1 alone
    auto pre = [](double q) { return (q / M * (1.2 * 1.0 - 0.0) + 0.0) * M; };
    std::vector<double> value(n);
    for (int i = 0; i < n; ++i) {
        const int x = i % w, y = i / w;
        value[i] = static_cast<float>(std::clamp(
            std::max(pre(fill(0, x, y)), std::max(pre(fill(1, x, y)), pre(fill(2, x, y)))), 0.0,
            M));
    }
    Image valueImage;
    MakeImage(valueImage, w, h, ColorGray, [&](int, int x, int y) { return value[y * w + x]; });
    const int offset = static_cast<int>(
        -static_cast<double>(valueImage.MedianLevelOfPlane(valueImage.curPlane[0])) * 0.9);
    std::vector<double> fixedValue(n);
    for (int i = 0; i < n; ++i) {
        const double v = value[i] + offset;
        fixedValue[i] = v <= 0 ? 1.0 : static_cast<float>(v);
    }
    const auto second = OraclePlane(fixedValue, w, h, 0, 400, 10, 0.6, true, 5, kOnes.data(), true);
    for (int i = 0; i < n; ++i) {
        double hh, s, v, r, g, b;
        Image::RgbToHsv(plain.curPlane[0][i], plain.curPlane[1][i], plain.curPlane[2][i], &hh, &s,
                        &v);
        Image::HsvToRgb(hh, s, second[i], &r, &g, &b);
        ASSERT_FLOAT_EQ(img.curPlane[0][i], static_cast<float>(std::clamp(r, 0.0, M))) << i;
        ASSERT_FLOAT_EQ(img.curPlane[1][i], static_cast<float>(std::clamp(g, 0.0, M))) << i;
        ASSERT_FLOAT_EQ(img.curPlane[2][i], static_cast<float>(std::clamp(b, 0.0, M))) << i;
    }
}

TEST(DigitalDevelopment, NoMemoryOrCancelLeavesNoHistoryEntry) {
    auto fill = [](int s, int x, int y) { return 800.0 + x * 90 + y * 30 + s * 11; };
    DigitalDevelopmentParams p;
    p.filter = "Hard Plus";
    p.strength = 0.5;
    for (std::uint32_t type : {ColorGray, ColorRGB}) {
        CProcessWindow w;
        RecordingNotify notify;
        w.SetNotify(&notify);
        MakeImage(w.image, 20, 12, type, fill);
        w.BeginHistory("Read");
        // Both forms need one scratch plane (the RGB form's value plane).
        stretch_testing::SetAllocationBudget(0);
        EXPECT_FALSE(w.DigitalDevelopment(p, nullptr));
        stretch_testing::SetAllocationBudget(-1);
        ASSERT_EQ(notify.messages.size(), 1u);
        EXPECT_EQ(notify.messages[0], "Could Not Allocate Memory For Operation.");
        EXPECT_EQ(w.history.size(), 1u);
        EXPECT_EQ(w.image.curPlane[0][25], static_cast<float>(fill(0, 5, 1)));

        // It works once memory is there; a failed repeat keeps the step's text.
        ASSERT_TRUE(w.DigitalDevelopment(p, nullptr));
        ASSERT_EQ(w.history.size(), 2u);
        const std::string recorded = w.history[1].parameters;
        const float result = w.image.curPlane[0][25];
        DigitalDevelopmentParams q = p;
        q.strength = 0.9;
        stretch_testing::SetAllocationBudget(0);
        EXPECT_FALSE(w.DigitalDevelopment(q, nullptr));
        stretch_testing::SetAllocationBudget(-1);
        EXPECT_EQ(w.history.size(), 2u);
        EXPECT_EQ(w.history[1].parameters, recorded);
        EXPECT_EQ(w.image.curPlane[0][25], result);
        EXPECT_EQ(notify.messages.size(), 2u);

        // Cancel: no message, no new step, the input shown.
        CProcessWindow c;
        c.SetNotify(&notify);
        MakeImage(c.image, 20, 12, type, fill);
        c.BeginHistory("Read");
        RecordingProgress progress;
        progress.RequestCancel();
        EXPECT_FALSE(c.DigitalDevelopment(p, &progress));
        EXPECT_EQ(c.history.size(), 1u);
        EXPECT_EQ(notify.messages.size(), 2u) << "a cancel says nothing";
        EXPECT_EQ(c.image.curPlane[0][25], static_cast<float>(fill(0, 5, 1)));
    }
}

TEST(DigitalDevelopmentText, BothFormsAndParse) {
    DigitalDevelopmentParams p;
    EXPECT_EQ(FormatDigitalDevelopment(p, false),
              "Pre-Stretch Scale Type: None#Pre-Stretch Scale : 1.000#"
              "Pre-Stretch Black Point : 0.00000#Pre-Stretch White Point : 1.000#"
              "Pre-Stretch Black Point Range : 0.0 - 0.100#Break-Point Slider Range : 0 - 65535#"
              "Backgd-Wt Slider Range : 0.000 - 1.25000#Background Min : 0#"
              "Background Weight : 1.00000#Break-Point Highlights : 65535#"
              "Sharpening Filter : None#Fix Defects :No#Sharpening Strength : 0.000#");
    EXPECT_EQ(FormatDigitalDevelopment(p, true),
              "Pre-Stretch Scale Type : None#Pre-Stretch Scale : 1.000#"
              "Pre-Stretch Black Point : 0.00000#Pre-Stretch White Point : 1.000#"
              "Pre-Stretch Black Point Range : 0.0 - 0.100#Break-Point Slider Range : 0 - 65535#"
              "Backgd-Wt Slider Range : 0.000 - 1.25000#Background Min : 0#"
              "Background Weight : 1.00000#Break-Point Highlights : 65535#"
              "Sharpening Filter :None#Fix Defects :No#Sharpening Strength : 0.000#"
              "Red : 0.500#Green : 0.500#Blue : 0.500#");
    p.scaleType = ScaleType::Root;
    p.pre = {0.25, 0.0095, 0.75, kBlackRangeTexts[1]};
    p.breakPointRange = kBreakPointRangeTexts[4];
    p.weightRange = kPowerRangeTexts[0];
    p.backgroundMin = 12;
    p.backgroundWeight = 0.99875;
    p.breakPoint = 450;
    p.filter = "Hard Plus";
    p.fixDefects = true;
    p.strength = 0.125;
    p.red = 0.1;
    p.green = 0.2;
    p.blue = 0.4;
    for (bool colour : {false, true}) {
        const std::string text = FormatDigitalDevelopment(p, colour);
        DigitalDevelopmentParams back;
        bool backColour = !colour;
        std::string error;
        ASSERT_TRUE(ParseDigitalDevelopment(text, &back, &backColour, &error)) << error;
        EXPECT_EQ(backColour, colour);
        EXPECT_EQ(back.scaleType, ScaleType::Root);
        EXPECT_EQ(back.pre, p.pre);
        EXPECT_EQ(back.breakPointRange, "0 -   500");
        EXPECT_EQ(back.weightRange, "0.995 - 1.00125");
        EXPECT_EQ(back.backgroundMin, 12);
        EXPECT_DOUBLE_EQ(back.backgroundWeight, 0.99875);
        EXPECT_EQ(back.breakPoint, 450);
        EXPECT_EQ(back.filter, "Hard Plus");
        EXPECT_TRUE(back.fixDefects);
        EXPECT_DOUBLE_EQ(back.strength, 0.125);
        EXPECT_DOUBLE_EQ(back.blue, colour ? 0.4 : 0.5);
        EXPECT_EQ(FormatDigitalDevelopment(back, colour), text);
    }
    DigitalDevelopmentParams back;
    std::string error, text = FormatDigitalDevelopment(p, true);
    EXPECT_FALSE(ParseDigitalDevelopment(text.substr(0, text.find("Sharpening Strength")), &back,
                                         nullptr, &error));
    EXPECT_NE(error.find("sharpening strength missing"), std::string::npos) << error;
    text.replace(text.find("Hard Plus"), 9, "Extreme");
    EXPECT_FALSE(ParseDigitalDevelopment(text, &back, nullptr, &error));
    EXPECT_NE(error.find("unknown sharpening filter \"Extreme\""), std::string::npos) << error;
}

TEST(DigitalDevelopmentChecks, FieldTexts) {
    struct Case {
        DdpField field;
        const char* text;
        bool ok;
        const char* message;
        const char* reset;
    };
    const Case cases[] = {
        {DdpField::BackgroundMin, "120", true, "", ""},
        {DdpField::BackgroundMin, "-3", false, "Please Enter a Positve Real Number.", ""},
        {DdpField::BackgroundMin, "abc", false, "Please Enter a Positve Real Number.", ""},
        {DdpField::BreakPoint, "2500.5", true, "", ""},
        {DdpField::BreakPoint, "-1", false, "Please Enter a Positive Real Number.", ""},
        {DdpField::BreakPoint, "", false, "Please Enter a Positive Real Number.", ""},
        {DdpField::BackgroundWeight, "1.2", true, "", ""},
        {DdpField::BackgroundWeight, "1.3", false, "Please enter a number between 0.0 and 1.2.",
         "1.200"},
        {DdpField::BackgroundWeight, "-0.1", false, "Please enter a number between 0.0 and 1.2.",
         "0.0"},
        {DdpField::BackgroundWeight, "x", false, "Please enter a number between 0.0 and 1.2.",
         "0.0"},
    };
    for (const Case& c : cases) {
        double value = -99;
        std::string message, reset;
        EXPECT_EQ(CheckDdpField(c.field, c.text, &value, &message, &reset), c.ok) << c.text;
        EXPECT_EQ(message, c.message) << c.text;
        EXPECT_EQ(reset, c.reset) << c.text;
        if (c.ok) {
            EXPECT_DOUBLE_EQ(value, std::atof(c.text));
        }
    }
}

TEST(DigitalDevelopmentReplay, GivesTheOperatorFunctionsPixels) {
    DigitalDevelopmentParams p;
    p.scaleType = ScaleType::Linear;
    p.pre = {1.25, 0.001, 0.95, kBlackRangeTexts[0]};
    p.filter = "Hard Plus";
    p.strength = 0.75;
    p.fixDefects = true;
    p.breakPoint = 1200;
    p.backgroundMin = 30;
    p.backgroundWeight = 0.9;
    p.red = 0.4;
    for (std::uint32_t type : {ColorGray, ColorRGB})
        for (const char* filter : {"None", "Hard Plus", "Custom"}) {
            p.filter = filter;
            auto fill = [](int s, int x, int y) {
                return std::fmod(x * 911.0 + y * 577.0 + s * 1013.0, 9000.0) + 500.0;
            };
            CProcessWindow w;
            MakeImage(w.image, 31, 19, type, fill);
            w.BeginHistory("Read");
            ASSERT_TRUE(w.DigitalDevelopment(p, nullptr));
            EXPECT_EQ(w.history[1].parameters, FormatDigitalDevelopment(p, type == ColorRGB));
            Image copy;
            MakeImage(copy, 31, 19, type, fill);
            std::string error;
            ASSERT_TRUE(copy.ApplyCommand(w.history[1], nullptr, nullptr, nullptr, &error))
                << error;
            for (int s : copy.Slots())
                for (int i = 0; i < 31 * 19; ++i)
                    ASSERT_EQ(copy.curPlane[s][i], w.image.curPlane[s][i])
                        << filter << " slot " << s << " " << i;
        }
}
