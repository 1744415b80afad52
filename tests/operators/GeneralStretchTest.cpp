// SPDX-License-Identifier: GPL-3.0-or-later
/// \file General Stretch Functions: each function against its formula, the hybrid black point,
/// the output range and its division by zero, the channels, the texts and the replay.
#include <gtest/gtest.h>

#include <cmath>

#include "TestSupport.h"
#include "engine/ProcessStructure.h"
#include "engine/ProcessWindow.h"
#include "operators/Stretch.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

constexpr double M = 65535.0;

bool Apply(Image& img, const GeneralStretchParams& p) {
    return RunGeneralStretch(img, p, StretchChannels{}, false);
}

double Clamp(double v) {
    return std::isnan(v) ? 0.0 : std::clamp(v, 0.0, 65535.0);
}

} // namespace

TEST(GeneralStretch, EachFunctionFollowsItsFormula) {
    struct Case {
        StretchFunction function;
        double exponent, black;
        int white, outBlack, backgroundMin;
    };
    const Case cases[] = {
        {StretchFunction::Linear, 1.0, 0.0, 65535, 0, 0},
        {StretchFunction::Linear, 1.0, 0.0, 60000, 1000, 50},
        {StretchFunction::HybridArcSinH, 1.0, 0.0, 65535, 0, 0},
        {StretchFunction::HybridArcSinH, 0.5, 0.03, 62000, 2000, 100},
        {StretchFunction::Root, 0.5, 0.0, 65535, 0, 0},
        {StretchFunction::Root, 0.25, 0.0, 50000, 500, 200},
        {StretchFunction::Power, 2.0, 0.0, 65535, 0, 0},
        {StretchFunction::Power, 1.125, 0.0, 65535, 3000, 10},
    };
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, 66, 1, ColorGray, [](int, int x, int) { return x * 1000.0 + 7; });
        GeneralStretchParams p;
        p.function = c.function;
        p.exponent = c.exponent;
        p.pre.black = c.black;
        p.outputWhite = c.white;
        p.outputBlack = c.outBlack;
        p.backgroundMin = c.backgroundMin;
        ASSERT_TRUE(Apply(img, p));
        const double W = c.white, O = c.outBlack, B = c.backgroundMin;
        for (int x = 0; x < 66; ++x) {
            double t = (x * 1000.0 + 7) / M, out;
            if (c.function == StretchFunction::Linear) {
                out = (M * t - O) * M / (W - O) + B;
            } else if (c.function == StretchFunction::HybridArcSinH) {
                const double black = 0.1 - c.black;
                t = t * (1.0 - black) + black;
                const double L = std::log(c.exponent * 600), A = -std::log(black + 0.0001) / L;
                const double y = (std::log(t) / L + A) * M + B;
                out = (y - O) * M / (W - O) + B;
            } else {
                const double y = std::pow(t, c.exponent) * M + B;
                out = (y - O) * M / (W - O) + B;
            }
            EXPECT_NEAR(img.curPlane[0][x], Clamp(out), 0.01)
                << kStretchFunctionTexts[static_cast<int>(c.function)] << " x " << x;
        }
    }
}

TEST(GeneralStretch, HybridAtZeroAndEqualOutputEnds) {
    // Black 0.1 makes the hybrid's black point 0: x = 0 takes the logarithm of 0.
    Image img;
    MakeImage(img, 4, 1, ColorGray, [](int, int x, int) { return x * 20000.0; });
    GeneralStretchParams p;
    p.function = StretchFunction::HybridArcSinH;
    p.pre.black = 0.1;
    ASSERT_TRUE(Apply(img, p));
    EXPECT_EQ(img.curPlane[0][0], 0.0f);
    EXPECT_GT(img.curPlane[0][1], 0.0f);

    // Output White equal to Output Black: 0 or 65535 by the sign of the numerator.
    for (StretchFunction fn : {StretchFunction::Linear, StretchFunction::Root}) {
        Image flat;
        MakeImage(flat, 3, 1, ColorGray, [](int, int x, int) { return 10000.0 + 10000.0 * x; });
        GeneralStretchParams q;
        q.function = fn;
        q.exponent = 1.0;
        q.outputWhite = q.outputBlack = 20000;
        ASSERT_TRUE(Apply(flat, q));
        EXPECT_EQ(flat.curPlane[0][0], 0.0f);
        EXPECT_EQ(flat.curPlane[0][2], 65535.0f);
        EXPECT_EQ(flat.curPlane[0][1], 0.0f) << "0 / 0 counts as the bottom";
    }
}

TEST(GeneralStretch, PreStretchAndMedianOffset) {
    // Root pre-stretch with a median offset by weight 0.5; the curve is Linear.
    Image img;
    MakeImage(img, 21, 1, ColorGray,
              [](int, int x, int) { return x < 11 ? 2000.0 : 2000.0 + 3000.0 * x; });
    GeneralStretchParams p;
    p.scaleType = ScaleType::Root;
    p.pre = {0.5, 0.01, 0.9, kBlackRangeTexts[0]};
    p.backgroundWeight = 0.5; // median 2000 -> offset -1000
    ASSERT_TRUE(Apply(img, p));
    for (int x = 0; x < 21; ++x) {
        const double q = (x < 11 ? 2000.0 : 2000.0 + 3000.0 * x) - 1000.0;
        const double t = std::sqrt(std::fabs(q / M * (0.9 - 0.01) + 0.01));
        EXPECT_NEAR(img.curPlane[0][x], Clamp(M * t), 0.01) << x;
    }
}

TEST(GeneralStretch, ChannelsAreIndependentAndFollowTheSelection) {
    auto fill = [](int s, int x, int) { return 500.0 * x + 3000.0 * s; };
    GeneralStretchParams p;
    p.function = StretchFunction::Power;
    p.exponent = 1.25;
    CProcessWindow w;
    MakeImage(w.image, 10, 1, ColorRGB, fill);
    w.BeginHistory("Read");
    w.channelSelect[1] = w.channelSelect[2] = false;
    ASSERT_TRUE(w.GeneralStretch(p));
    for (int x = 0; x < 10; ++x) {
        EXPECT_NEAR(w.image.curPlane[0][x], std::pow(fill(0, x, 0) / M, 1.25) * M, 0.01);
        EXPECT_EQ(w.image.curPlane[1][x], static_cast<float>(fill(1, x, 0)));
        EXPECT_EQ(w.image.curPlane[2][x], static_cast<float>(fill(2, x, 0)));
    }
    // All three: each by its own formula, no colour step.
    w.channelSelect[1] = w.channelSelect[2] = true;
    ASSERT_TRUE(w.GeneralStretch(p));
    EXPECT_EQ(w.history.size(), 2u) << "the same operator again edits the pending step";
    for (int s = 0; s < 3; ++s)
        EXPECT_NEAR(w.image.curPlane[s][7], std::pow(fill(s, 7, 0) / M, 1.25) * M, 0.01);
}

TEST(GeneralStretchText, EveryLabelOfTheExponentField) {
    GeneralStretchParams p;
    EXPECT_EQ(FormatGeneralStretch(p),
              "Pre-Stretch Scale Type : Linear#Pre-Stretch Black Range : 0.0 - 0.100#"
              "Pre-Stretch Scale :  1.000#Pre-Stretch Black Point :  0.00000#"
              "Pre-Stretch White Point :  1.000#Stretch Function Type : Linear#"
              "Background Weight Range : 0.0 - 1.00#Power & Root Range : 0.000 - 1.25000#"
              "Background Min : 0#Background Weight : 0.00000#Power :  1.000#"
              "Output White : 65535#Output Black : 0#");
    struct Case {
        StretchFunction function;
        const char* field;
    };
    const Case cases[] = {{StretchFunction::Linear, "#Power :  0.750#"},
                          {StretchFunction::HybridArcSinH, "#Power :  0.750#"},
                          {StretchFunction::Root, "#Root :  0.750#"},
                          {StretchFunction::Power, "#Exponent :  0.750#"}};
    for (const Case& c : cases) {
        p.function = c.function;
        p.exponent = 0.75;
        p.scaleType = ScaleType::Power;
        p.outputBlack = 12;
        const std::string text = FormatGeneralStretch(p);
        EXPECT_NE(text.find(c.field), std::string::npos) << text;
        GeneralStretchParams back;
        std::string error;
        ASSERT_TRUE(ParseGeneralStretch(text, &back, &error)) << error;
        EXPECT_EQ(back.function, c.function);
        EXPECT_DOUBLE_EQ(back.exponent, 0.75);
        EXPECT_EQ(back.scaleType, ScaleType::Power);
        EXPECT_EQ(back.outputBlack, 12);
        EXPECT_EQ(FormatGeneralStretch(back), text);
    }
    GeneralStretchParams back;
    std::string error;
    std::string text = FormatGeneralStretch(GeneralStretchParams{});
    text.replace(text.find("Type : Linear#Back"), 13, "Type : Cubic");
    EXPECT_FALSE(ParseGeneralStretch(text, &back, &error));
    EXPECT_NE(error.find("unknown stretch function \"Cubic\""), std::string::npos) << error;
    text = FormatGeneralStretch(GeneralStretchParams{});
    EXPECT_FALSE(ParseGeneralStretch(text.substr(0, text.find("Output Black")), &back, &error));
    EXPECT_NE(error.find("output black missing"), std::string::npos) << error;
}

TEST(GeneralStretchReplay, GivesTheOperatorFunctionsPixels) {
    for (int fn = 0; fn < 4; ++fn)
        for (std::uint32_t type : {ColorGray, ColorRGB}) {
            GeneralStretchParams p;
            p.function = static_cast<StretchFunction>(fn);
            p.scaleType = ScaleType::Root;
            p.pre = {0.75, 0.004, 0.95, kBlackRangeTexts[0]};
            p.exponent = fn == 3 ? 1.2 : 0.6;
            p.backgroundWeight = 0.3;
            p.backgroundMin = 25;
            p.outputWhite = 64000;
            p.outputBlack = 300;
            auto fill = [](int s, int x, int y) { return x * 1531.0 + y * 211.0 + s * 97.5; };
            CProcessWindow w;
            MakeImage(w.image, 29, 13, type, fill);
            w.BeginHistory("Read");
            ASSERT_TRUE(w.GeneralStretch(p));
            Image copy;
            MakeImage(copy, 29, 13, type, fill);
            std::string error;
            ASSERT_TRUE(copy.ApplyCommand(w.history[1], nullptr, nullptr, nullptr, &error))
                << error;
            for (int s : copy.Slots())
                for (int i = 0; i < 29 * 13; ++i)
                    ASSERT_EQ(copy.curPlane[s][i], w.image.curPlane[s][i]) << fn << " " << i;
        }
}

TEST(StretchSliders, MappingsAndRanges) {
    // Power: 800 is always 1.0; the ends of each range are 0 and 1000; typed values clamp.
    for (const char* range : kPowerRangeTexts) {
        double lo = 0, hi = 0;
        ASSERT_TRUE(RangeBounds(range, &lo, &hi)) << range;
        EXPECT_EQ(PowerSliderPosition(range, 1.0), 800) << range;
        EXPECT_EQ(PowerSliderPosition(range, lo), 0) << range;
        EXPECT_EQ(PowerSliderPosition(range, hi), 1000) << range;
        EXPECT_EQ(PowerSliderPosition(range, hi + 5), 1000) << range;
        EXPECT_DOUBLE_EQ(PowerFromSlider(range, 800), 1.0) << range;
        EXPECT_NEAR(PowerFromSlider(range, 0), lo, 1e-12) << range;
        EXPECT_NEAR(PowerFromSlider(range, 1000), hi, 1e-12) << range;
    }
    EXPECT_EQ(PowerSliderPosition("0.995 - 1.00125", 0.999), 640); // (p - 1) * 160000 + 800
    EXPECT_EQ(PowerSliderPosition("0.000 - 1.25000", 0.5), 400);   // p * 800
    EXPECT_DOUBLE_EQ(ClampToRange("0.900 - 1.02500", 2.0), 1.025);

    EXPECT_EQ(ScaleSliderPosition(ScaleType::Linear, 1.0), 200);
    EXPECT_EQ(ScaleSliderPosition(ScaleType::Root, 0.5), 500);
    EXPECT_EQ(ScaleSliderPosition(ScaleType::Power, 1.5), 500);
    EXPECT_DOUBLE_EQ(ScaleFromSlider(ScaleType::Power, 250), 1.25);
    EXPECT_DOUBLE_EQ(ScaleFromSlider(ScaleType::Linear, 300), 1.5);
    EXPECT_STREQ(ScaleFieldLabel(ScaleType::Linear), "Factor");
    EXPECT_STREQ(ScaleFieldLabel(ScaleType::Root), "Root");
    EXPECT_STREQ(ScaleFieldLabel(ScaleType::Power), "Exponent");

    EXPECT_EQ(BlackSliderPosition("0.0 - 0.100", 0.05), 500); // Black * 10000
    EXPECT_EQ(BlackSliderPosition("0.090 - 0.100", 0.095), 500);
    EXPECT_NEAR(BlackFromSlider("0.0 - 0.001", 250), 0.00025, 1e-15);
    EXPECT_NEAR(WeightFromSlider("0.50 - 1.00", 500), 0.75, 1e-15);
    EXPECT_EQ(BreakPointSliderTop("0 -  5000"), 5000);
    EXPECT_EQ(BreakPointSliderTop("0 -   500"), 500);

    EXPECT_EQ(DefaultPreStretchSets(true).type, ScaleType::None);
    EXPECT_EQ(DefaultPreStretchSets(false).type, ScaleType::Linear);
    EXPECT_EQ(DefaultPreStretchSets(true).Current(), PreStretchSettings{});
}

TEST(StretchMedian, RoundedLevelsAndTheFiftyPercentWalk) {
    struct Case {
        std::vector<float> pixels;
        std::uint32_t median;
    };
    const Case cases[] = {
        {{10.5f, 10.5f, 10.6f, 11.f}, 10}, // 10.5 rounds down, so half the pixels are at 10
        {{10.6f, 10.6f, 10.4f, 12.f}, 11}, // 10.6 rounds up
        {{-50.f, -3.f, 70000.f, 70000.f}, 0}, {{-50.f, 70000.f, 70000.f, 70000.f}, 65535},
        {{1.f, 2.f, 3.f, 4.f, 5.f}, 3},
    };
    for (const Case& c : cases) {
        Image img;
        const int n = static_cast<int>(c.pixels.size());
        MakeImage(img, n, 1, ColorGray, [&](int, int x, int) { return c.pixels[x]; });
        EXPECT_EQ(img.MedianLevelOfPlane(img.curPlane[0]), c.median);
    }
}
