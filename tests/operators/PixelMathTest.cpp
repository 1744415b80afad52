// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Pixel Math: the range and feather rule, the four forms, the text and its replay.
#include <gtest/gtest.h>

#include <cmath>

#include "TestSupport.h"
#include "engine/ProcessStructure.h"
#include "operators/Masks.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

/// The rule written out plainly for one pixel: the oracle the pixel functions must match.
double Oracle(double p, char op, double c, int mn, int mx, int f) {
    const int lo = mn - f, hi = mx + f;
    if (p < lo || p > hi)
        return p;
    double m = op == '+' ? p + c : (op == '*' ? p * c : p / c);
    double out = m;
    if (f != 0 && p <= mn)
        out = (1 - (p - lo) / f) * p + (p - lo) / f * m;
    else if (f != 0 && p >= mx)
        out = (1 - (hi - p) / f) * p + (hi - p) / f * m;
    return std::min(65535.0, std::max(0.0, out));
}

float* Plane(Image& img) {
    return img.curPlane[0];
}

} // namespace

TEST(PixelMath, MatchesThePlainRuleOverARamp) {
    struct Case {
        char op;
        double c;
        int mn, mx, f;
    };
    const Case cases[] = {{'+', 1000, 0, 65535, 0},    {'+', -500, 100, 300, 50},
                          {'+', 70000, 0, 65535, 0},   {'*', 2.5, 1000, 2000, 200},
                          {'*', 0.0, 0, 65535, 0},     {'/', 3.0, 500, 600, 100},
                          {'/', 0.25, 0, 65535, 20000}};
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, 257, 255, ColorGray, [](int, int x, int y) { return (y * 257 + x) * 1.0; });
        float* cur = img.curPlane[0];
        float* prev = img.prevPlane[0];
        if (c.op == '+')
            img.PixelAdd(false, prev, cur, c.c, c.mn, c.mx, c.f);
        else if (c.op == '*')
            img.PixelMultiply(false, prev, cur, c.c, c.mn, c.mx, c.f);
        else
            img.PixelDivide(false, prev, cur, c.c, c.mn, c.mx, c.f);
        for (std::uint32_t i = 0; i < img.pixelCount; ++i)
            ASSERT_EQ(cur[i], static_cast<float>(Oracle(i, c.op, c.c, c.mn, c.mx, c.f)))
                << c.op << c.c << " at " << i;
    }
}

TEST(PixelMath, FeatherEndsAndFullRange) {
    Image img;
    MakeImage(img, 5, 1, ColorGray, [](int, int x, int) {
        const double v[] = {50, 100, 150, 200, 250};
        return v[x];
    });
    // lo = 100 - 50 = 50: weight 0 at 50; at applyMin 100 the full change.
    img.PixelAdd(false, img.prevPlane[0], Plane(img), 1000, 100, 200, 50);
    EXPECT_FLOAT_EQ(Plane(img)[0], 50);
    EXPECT_FLOAT_EQ(Plane(img)[1], 1100);
    EXPECT_FLOAT_EQ(Plane(img)[2], 1150);
    EXPECT_FLOAT_EQ(Plane(img)[3], 1200);
    EXPECT_FLOAT_EQ(Plane(img)[4], 250);

    // Feather 0, range 0..65535: every pixel changes.
    Image all;
    MakeImage(all, 3, 1, ColorGray, [](int, int x, int) { return x * 30000.0; });
    all.PixelAdd(false, all.prevPlane[0], Plane(all), 10, 0, 65535, 0);
    EXPECT_FLOAT_EQ(Plane(all)[0], 10);
    EXPECT_FLOAT_EQ(Plane(all)[1], 30010);
    EXPECT_FLOAT_EQ(Plane(all)[2], 60010);
}

TEST(PixelMath, AddMinusMOverZeroToTwoM) {
    // The star detector's use: values up to 2m lose m and clamp at 0; higher values stay.
    const double m = 1000;
    Image img;
    MakeImage(img, 4, 1, ColorGray, [](int, int x, int) {
        const double v[] = {400, 1500, 2000, 2001};
        return v[x];
    });
    img.PixelAdd(false, img.prevPlane[0], Plane(img), -m, 0, static_cast<int>(2 * m), 0);
    EXPECT_FLOAT_EQ(Plane(img)[0], 0);
    EXPECT_FLOAT_EQ(Plane(img)[1], 500);
    EXPECT_FLOAT_EQ(Plane(img)[2], 1000);
    EXPECT_FLOAT_EQ(Plane(img)[3], 2001);
}

TEST(PixelMath, DivideByZeroChangesNothingNotEvenThePendingCopy) {
    Image img;
    MakeImage(img, 2, 1, ColorGray, [](int, int x, int) { return 100 + x; });
    img.prevPlane[0][0] = 7; // a stale previous plane must stay stale
    img.PixelDivide(false, img.prevPlane[0], Plane(img), 0.0, 0, 65535, 0);
    EXPECT_FLOAT_EQ(Plane(img)[0], 100);
    EXPECT_FLOAT_EQ(img.prevPlane[0][0], 7);

    Image rgb;
    MakeImage(rgb, 2, 1, ColorRGB, [](int s, int x, int) { return 100 * (s + 1) + x; });
    rgb.PixelDivideColor(false, 0.0, 0, 65535, 0);
    EXPECT_FLOAT_EQ(rgb.curPlane[2][1], 301);
}

TEST(PixelMath, ColourMultiplyTakesTheLargestChannel) {
    Image rgb;
    // One pixel whose red is inside the range but whose value (blue, 5000) is outside it.
    MakeImage(rgb, 2, 1, ColorRGB, [](int s, int x, int) {
        const double px[2][3] = {{100, 200, 5000}, {100, 200, 300}};
        return px[x][s];
    });
    rgb.PixelMultiplyColor(false, 2.0, 0, 1000, 0);
    EXPECT_FLOAT_EQ(rgb.curPlane[0][0], 100);
    EXPECT_FLOAT_EQ(rgb.curPlane[2][0], 5000);
    EXPECT_FLOAT_EQ(rgb.curPlane[0][1], 200);
    EXPECT_FLOAT_EQ(rgb.curPlane[1][1], 400);
    EXPECT_FLOAT_EQ(rgb.curPlane[2][1], 600);

    // Feathered: the weight comes from the value (300) and applies to all three.
    Image f;
    MakeImage(f, 1, 1, ColorRGB, [](int s, int, int) { return 100.0 * (s + 1); });
    f.PixelMultiplyColor(false, 2.0, 400, 1000, 200); // lo 200: w = (300 - 200) / 200 = 0.5
    EXPECT_FLOAT_EQ(f.curPlane[0][0], 150);
    EXPECT_FLOAT_EQ(f.curPlane[1][0], 300);
    EXPECT_FLOAT_EQ(f.curPlane[2][0], 450);
}

TEST(PixelMathText, TemplatesAndParse) {
    PixelMathParams p;
    p.op = PixelMathParams::Op::Subtract;
    p.constant = 100;
    p.applyMin = 5;
    p.applyMax = 60000;
    p.feather = 7;
    EXPECT_EQ(FormatPixelMath(p), "Operation: Subtract#Constant: 100.000#Threshold Min: 5#"
                                  "Threshold Max: 60000#Feather Range: 7#");
    PixelMathParams back;
    ASSERT_TRUE(ParsePixelMath(FormatPixelMath(p), &back, nullptr));
    EXPECT_EQ(back.op, PixelMathParams::Op::Subtract);
    EXPECT_DOUBLE_EQ(back.constant, 100) << "Subtract keeps the constant as given";
    EXPECT_EQ(PixelMathKeyword(back.op), std::string("SUB"));

    std::string error;
    EXPECT_FALSE(ParsePixelMath("Operation: Add#Constant: 1.000#Threshold Min: 0#"
                                "Threshold Max: 65535#",
                                &back, &error));
    EXPECT_NE(error.find("feather"), std::string::npos);
    EXPECT_FALSE(ParsePixelMath("Operation: Modulo#Constant: 1#Threshold Min: 0#"
                                "Threshold Max: 1#Feather Range: 0#",
                                &back, nullptr));
}

TEST(PixelMathReplay, EveryTemplateGivesTheOperatorResult) {
    struct Case {
        const char* text;
        double expect; // of the pixel 1000
    };
    const Case cases[] = {
        {"Operation: Add#Constant: 250.000#Threshold Min: 0#Threshold Max: 65535#"
         "Feather Range: 0#",
         1250},
        {"Operation: Subtract#Constant: 100.000#Threshold Min: 0#Threshold Max: 65535#"
         "Feather Range: 0#",
         900},
        {"Operation: Multiply#Constant: 1.500#Threshold Min: 0#Threshold Max: 65535#"
         "Feather Range: 0#",
         1500},
        {"Operation: Divide#Constant: 4.000#Threshold Min: 0#Threshold Max: 65535#"
         "Feather Range: 0#",
         250},
    };
    for (const Case& c : cases)
        for (std::uint32_t type : {ColorGray, ColorGreen, ColorRGB}) {
            Image img;
            MakeImage(img, 3, 2, type, [](int, int, int) { return 1000.0; });
            CProcessStructure r;
            r.operation = "Pixel Math";
            r.parameters = c.text;
            std::string error;
            ASSERT_TRUE(img.ApplyCommand(r, nullptr, nullptr, nullptr, &error)) << error;
            for (int s : img.Slots()) {
                EXPECT_FLOAT_EQ(img.curPlane[s][5], c.expect) << c.text << " type " << type;
                EXPECT_FLOAT_EQ(img.prevPlane[s][5], 1000) << "replay keeps the input";
            }
        }
}
