// SPDX-License-Identifier: GPL-3.0-or-later
/// \file ArcSinH: the curve, the pre-stretch forms, the median offset, the decompress-colour
/// step with its zero rules, the channel choice, the text and its replay.
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

/// The curve written out plainly: S of a pre-stretched v.
double CurveS(double v, double power, double expand) {
    const double k = (1.001 - power) * 2000.0;
    return std::asinh(v * k / M) * (M * expand) / std::asinh(k);
}

double Final(double s, double expand, int backgroundMin) {
    return std::clamp(s * M / (M - expand) + backgroundMin, 0.0, 65535.0);
}

bool Apply(Image& img, const ArcSinHParams& p) {
    return RunArcSinH(img, p, StretchChannels{}, false, nullptr);
}

} // namespace

TEST(ArcSinH, WhiteStaysWhiteAndPowerOneIsNearLinear) {
    Image img;
    MakeImage(img, 64, 1, ColorGray, [](int, int x, int) { return x == 63 ? M : x * 1000.0; });
    ArcSinHParams p;
    p.backgroundWeight = 0.0; // no offset
    ASSERT_TRUE(Apply(img, p));
    EXPECT_EQ(img.curPlane[0][63], 65535.0f) << "M * M / (M - 1) clamps to 65535";
    for (int x = 0; x < 63; ++x) {
        const double t = x * 1000.0 / M;
        const double expect = std::asinh(2 * t) / std::asinh(2.0) * M * M / (M - 1.0);
        EXPECT_NEAR(img.curPlane[0][x], expect, 0.01) << x;
    }
    // The curve lifts the darks: 1000 goes to about 1650.
    EXPECT_NEAR(img.curPlane[0][1], 1000.0 * 2 / std::asinh(2.0) * M / (M - 1), 2.0);
}

TEST(ArcSinH, PowerExpandAndBackgroundMin) {
    struct Case {
        double power, expand;
        int backgroundMin;
    };
    const Case cases[] = {{0.0, 1.0, 0}, {0.5, 1.25, 0}, {0.9, 0.8, 300}, {1.1, 1.0, 50}};
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, 50, 2, ColorGray, [](int, int x, int y) { return x * 1300.0 + y * 7; });
        ArcSinHParams p;
        p.backgroundWeight = 0.0;
        p.power = c.power;
        p.expand = c.expand;
        p.backgroundMin = c.backgroundMin;
        ASSERT_TRUE(Apply(img, p));
        for (int i = 0; i < 100; ++i) {
            const double v = img.prevPlane[0][i];
            EXPECT_NEAR(img.curPlane[0][i],
                        Final(CurveS(v, c.power, c.expand), c.expand, c.backgroundMin), 0.02)
                << "power " << c.power << " pixel " << i;
        }
    }
}

TEST(ArcSinH, MedianOffsetMakesDarkPixelsNegativeAndTheClampGivesZero) {
    // 30 of 32 pixels at 1000: the median is 1000 and the offset -1000.
    auto fill = [](int, int x, int) { return x == 0 ? 400.0 : (x == 1 ? 5000.0 : 1000.0); };
    for (int backgroundMin : {0, 2000}) {
        Image img;
        MakeImage(img, 32, 1, ColorGray, fill);
        ArcSinHParams p; // Background Weight 1.0
        p.backgroundMin = backgroundMin;
        ASSERT_TRUE(Apply(img, p));
        const double dark = Final(CurveS(-600, 1.0, 1.0), 1.0, backgroundMin);
        EXPECT_NEAR(img.curPlane[0][0], dark, 0.01);
        EXPECT_NEAR(img.curPlane[0][1], Final(CurveS(4000, 1.0, 1.0), 1.0, backgroundMin), 0.01);
        EXPECT_NEAR(img.curPlane[0][2], backgroundMin, 1e-3) << "the median goes to 0";
        if (backgroundMin == 0)
            EXPECT_EQ(img.curPlane[0][0], 0.0f);
        else
            EXPECT_GT(img.curPlane[0][0], 1000.0f) << "Background Min lifts it above 0";
    }
}

TEST(ArcSinH, PreStretchForms) {
    struct Case {
        ScaleType type;
        double scale, black, white;
    };
    const Case cases[] = {{ScaleType::Linear, 2.0, 0.01, 0.9},
                          {ScaleType::Root, 0.5, 0.02, 0.95},
                          {ScaleType::Power, 1.5, 0.0, 1.0},
                          {ScaleType::None, 3.0, 0.5, 0.5}};
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, 40, 1, ColorGray, [](int, int x, int) { return x * 1600.0; });
        ArcSinHParams p;
        p.backgroundWeight = 0.0;
        p.scaleType = c.type;
        p.pre = {c.scale, c.black, c.white, kBlackRangeTexts[0]};
        ASSERT_TRUE(Apply(img, p));
        for (int x = 0; x < 40; ++x) {
            const double t = x * 1600.0 / M;
            double v = x * 1600.0;
            if (c.type == ScaleType::Linear)
                v = (t * (c.scale * c.white - c.black) + c.black) * M;
            else if (c.type != ScaleType::None)
                v = std::pow(std::fabs(t * (c.white - c.black) + c.black), c.scale) * M;
            EXPECT_NEAR(img.curPlane[0][x], Final(CurveS(v, 1.0, 1.0), 1.0, 0), 0.02)
                << ScaleTypeText(c.type) << " x " << x;
        }
    }
}

TEST(DecompressColor, LargestChannelLeadsAndTheZeroRules) {
    const double sr = 5000, sg = 3000, sb = 2000, wr = 0.3, wg = 0.6, wb = 0.9;
    struct Case {
        double r, g, b, heldIn;
        double R, G, B, heldOut;
    };
    const Case cases[] = {
        // red largest
        {400, 200, 100, 7.0, sr, 0.5 * sr * wr + (1 - wr) * sg, 0.25 * sr * wr + (1 - wr) * sb,
         0.25},
        // green largest, blue largest
        {100, 400, 200, 7.0, 0.25 * sg * wg + (1 - wg) * sr, sg, 0.5 * sg * wg + (1 - wg) * sb,
         7.0},
        {100, 200, 400, 7.0, 0.25 * sb * wb + (1 - wb) * sr, 0.5 * sb * wb + (1 - wb) * sg, sb,
         7.0},
        // red largest at 0: g / r becomes b / 0.001, b / r keeps the held value
        {0, -1, -2, 7.0, sr, (-2 / 0.001) * sr * wr + (1 - wr) * sg, 7.0 * sr * wr + (1 - wr) * sb,
         7.0},
        // green largest at 0 and blue largest at 0: divided by 0.001
        {-1, 0, -2, 7.0, (-1 / 0.001) * sg * wg + (1 - wg) * sr, sg,
         (-2 / 0.001) * sg * wg + (1 - wg) * sb, 7.0},
        {-1, -2, 0, 7.0, (-1 / 0.001) * sb * wb + (1 - wb) * sr,
         (-2 / 0.001) * sb * wb + (1 - wb) * sg, sb, 7.0},
    };
    for (const Case& c : cases) {
        double held = c.heldIn, R, G, B;
        DecompressColor(c.r, c.g, c.b, sr, sg, sb, wr, wg, wb, &held, &R, &G, &B);
        EXPECT_DOUBLE_EQ(R, c.R) << c.r << "," << c.g << "," << c.b;
        EXPECT_DOUBLE_EQ(G, c.G) << c.r << "," << c.g << "," << c.b;
        EXPECT_DOUBLE_EQ(B, c.B) << c.r << "," << c.g << "," << c.b;
        EXPECT_DOUBLE_EQ(held, c.heldOut);
    }
}

TEST(ArcSinH, ThreePlanesKeepTheColourOfAStar) {
    Image img;
    // Background 1000 everywhere; a star (9000, 5000, 3000), a pixel with red 0 after the
    // offset and the others below it, and a green-led pixel.
    MakeImage(img, 8, 2, ColorRGB, [](int s, int x, int y) {
        if (y == 1 && x == 0)
            return std::array<double, 3>{9000, 5000, 3000}[s];
        if (y == 1 && x == 1)
            return std::array<double, 3>{1000, 990, 980}[s];
        if (y == 1 && x == 2)
            return std::array<double, 3>{1500, 4000, 2000}[s];
        return 1000.0;
    });
    ArcSinHParams p;
    p.red = 0.25;
    p.green = 0.5;
    p.blue = 0.75;
    p.backgroundMin = 3000;
    ASSERT_TRUE(Apply(img, p));
    auto out = [&](int s, int x) { return img.curPlane[s][8 + x]; };
    auto F = [&](double s) { return Final(s, 1.0, 3000); };
    // The star: red leads.
    const double r = 8000, g = 4000, b = 2000;
    EXPECT_NEAR(out(0, 0), F(CurveS(r, 1, 1)), 0.02);
    EXPECT_NEAR(out(1, 0), F(g / r * CurveS(r, 1, 1) * 0.25 + 0.75 * CurveS(g, 1, 1)), 0.02);
    EXPECT_NEAR(out(2, 0), F(b / r * CurveS(r, 1, 1) * 0.25 + 0.75 * CurveS(b, 1, 1)), 0.02);
    // Red 0 is the largest: its curve is 0, so each other channel keeps (1 - wr) of its own.
    EXPECT_NEAR(out(0, 1), 3000.0, 1e-3);
    EXPECT_NEAR(out(1, 1), F(0.75 * CurveS(-10, 1, 1)), 0.02);
    EXPECT_NEAR(out(2, 1), F(0.75 * CurveS(-20, 1, 1)), 0.02);
    // Green leads.
    EXPECT_NEAR(out(1, 2), F(CurveS(3000, 1, 1)), 0.02);
    EXPECT_NEAR(out(0, 2), F(500.0 / 3000 * CurveS(3000, 1, 1) * 0.5 + 0.5 * CurveS(500, 1, 1)),
                0.02);
    // The background: all three 0 after the offset, no NaN anywhere.
    for (int s = 0; s < 3; ++s)
        EXPECT_NEAR(img.curPlane[s][3], 3000.0, 1e-3);
}

TEST(ArcSinH, ChannelSelectionChoosesTheForm) {
    auto fill = [](int s, int x, int) { return 1000.0 + 3000.0 * x + 500.0 * s; };
    ArcSinHParams p;
    p.backgroundWeight = 0.0;
    // One channel: only that plane, by the one-plane curve.
    {
        CProcessWindow w;
        MakeImage(w.image, 16, 1, ColorRGB, fill);
        w.BeginHistory("Read");
        w.channelSelect[0] = w.channelSelect[2] = false;
        ASSERT_TRUE(w.ArcSinH(p, nullptr));
        for (int x = 0; x < 16; ++x) {
            EXPECT_EQ(w.image.curPlane[0][x], static_cast<float>(fill(0, x, 0)));
            EXPECT_EQ(w.image.curPlane[2][x], static_cast<float>(fill(2, x, 0)));
            EXPECT_NEAR(w.image.curPlane[1][x], Final(CurveS(fill(1, x, 0), 1, 1), 1, 0), 0.02);
        }
        ASSERT_EQ(w.history.size(), 2u);
        EXPECT_EQ(w.history[1].operation, "ArcSinH");
        EXPECT_EQ(w.history[1].parameters, FormatArcSinH(p));
    }
    // Two channels: the three-plane form on all three.
    {
        CProcessWindow w;
        MakeImage(w.image, 16, 1, ColorRGB, fill);
        w.BeginHistory("Read");
        w.channelSelect[0] = false;
        ASSERT_TRUE(w.ArcSinH(p, nullptr));
        Image ref;
        MakeImage(ref, 16, 1, ColorRGB, fill);
        ASSERT_TRUE(Apply(ref, p));
        for (int s = 0; s < 3; ++s)
            for (int x = 0; x < 16; ++x)
                EXPECT_EQ(w.image.curPlane[s][x], ref.curPlane[s][x]);
    }
    // A single-plane colour type: its own plane.
    {
        CProcessWindow w;
        MakeImage(w.image, 16, 1, ColorBlue, fill);
        w.BeginHistory("Read");
        ASSERT_TRUE(w.ArcSinH(p, nullptr));
        EXPECT_NEAR(w.image.curPlane[2][5], Final(CurveS(fill(2, 5, 0), 1, 1), 1, 0), 0.02);
    }
}

TEST(ArcSinH, CancelLeavesNoStepAndTheInput) {
    CProcessWindow w;
    MakeImage(w.image, 16, 16, ColorGray, [](int, int x, int y) { return x * 100.0 + y; });
    w.BeginHistory("Read");
    RecordingProgress progress;
    progress.RequestCancel();
    EXPECT_FALSE(w.ArcSinH(ArcSinHParams{}, &progress));
    EXPECT_EQ(w.history.size(), 1u);
    EXPECT_EQ(w.image.curPlane[0][17], 101.0f);
    progress.ResetCancel();
    EXPECT_TRUE(w.ArcSinH(ArcSinHParams{}, &progress));
    EXPECT_EQ(w.history.size(), 2u);
    EXPECT_EQ(progress.lastStep, progress.lastTotal);
}

TEST(ArcSinHText, TemplateAndParse) {
    EXPECT_EQ(FormatArcSinH(ArcSinHParams{}),
              "Pre-Stretch Scale Type : None#Pre-Stretch Black Range : 0.0 - 0.100#"
              "Pre-Stretch Scale :  1.000#Pre-Stretch Black Point :  0.00000#"
              "Pre-Stretch White Point :  1.000#Background Weight Range : 0.0 - 1.00#"
              "Power Range : 0.000 - 1.25000#Background Min : 0#Background Weight : 1.00000#"
              "Power :  1.000#Expand : 1.000#Red : 0.500#Green : 0.500#Blue : 0.500#");
    const std::string text =
        "Pre-Stretch Scale Type : nth Root X^n#Pre-Stretch Black Range : 0.099 - 0.100#"
        "Pre-Stretch Scale :  0.300#Pre-Stretch Black Point :  0.09950#"
        "Pre-Stretch White Point :  0.800#Background Weight Range : 0.90 - 1.00#"
        "Power Range : 0.995 - 1.00125#Background Min : 120#Background Weight : 0.95000#"
        "Power :  0.998#Expand : 1.100#Red : 0.100#Green : 0.200#Blue : 0.300#";
    ArcSinHParams p;
    std::string error;
    ASSERT_TRUE(ParseArcSinH(text, &p, &error)) << error;
    EXPECT_EQ(p.scaleType, ScaleType::Root);
    EXPECT_EQ(p.pre.blackRange, "0.099 - 0.100");
    EXPECT_DOUBLE_EQ(p.pre.scale, 0.3);
    EXPECT_DOUBLE_EQ(p.pre.black, 0.0995);
    EXPECT_EQ(p.weightRange, "0.90 - 1.00");
    EXPECT_EQ(p.powerRange, "0.995 - 1.00125");
    EXPECT_EQ(p.backgroundMin, 120);
    EXPECT_DOUBLE_EQ(p.power, 0.998);
    EXPECT_DOUBLE_EQ(p.expand, 1.1);
    EXPECT_DOUBLE_EQ(p.blue, 0.3);
    EXPECT_EQ(FormatArcSinH(p), text);

    struct Bad {
        std::string text;
        const char* errorHas;
    };
    const Bad bad[] = {
        {text.substr(0, text.find("Blue")), "blue missing"},
        {"Pre-Stretch Scale Type : Cubic#" + text.substr(text.find('#') + 1), "Cubic"},
        {"", "pre-stretch scale type missing"},
    };
    for (const Bad& b : bad) {
        EXPECT_FALSE(ParseArcSinH(b.text, &p, &error));
        EXPECT_NE(error.find(b.errorHas), std::string::npos) << error;
    }
}

TEST(ArcSinHReplay, GivesTheOperatorFunctionsPixels) {
    ArcSinHParams p;
    p.scaleType = ScaleType::Linear;
    p.pre = {1.5, 0.002, 0.9, kBlackRangeTexts[0]};
    p.backgroundWeight = 0.8;
    p.power = 0.95;
    p.expand = 1.2;
    p.backgroundMin = 40;
    p.red = 0.2;
    for (std::uint32_t type : {ColorGray, ColorRGB}) {
        auto fill = [](int s, int x, int y) {
            return std::fmod(x * 977.0 + y * 313.0 + s * 1231.0, 20000.0) + 0.25 * s;
        };
        CProcessWindow w;
        MakeImage(w.image, 33, 17, type, fill);
        w.BeginHistory("Read");
        ASSERT_TRUE(w.ArcSinH(p, nullptr));
        Image copy;
        MakeImage(copy, 33, 17, type, fill);
        std::string error;
        ASSERT_TRUE(copy.ApplyCommand(w.history[1], nullptr, nullptr, nullptr, &error)) << error;
        for (int s : copy.Slots())
            for (int i = 0; i < 33 * 17; ++i)
                ASSERT_EQ(copy.curPlane[s][i], w.image.curPlane[s][i]) << s << " " << i;
    }
}
