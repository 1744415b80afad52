// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Histogram Contrast Stretch: the six curves on histograms with known counts, the
/// Scale 0 identity and Scale 1 equalisation, the blend of type 6, the text and replay.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "TestSupport.h"
#include "engine/ProcessStructure.h"
#include "engine/ProcessWindow.h"
#include "operators/Curves.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

void Stretch(Image& img, const HistogramStretchParams& p) {
    img.HistogramStretch(false, img.prevPlane[0], img.curPlane[0], p.type, p.scale,
                         p.highlightScale, p.highlightBreak, p.backgroundScale, p.backgroundBreak);
}

HistogramStretchParams Params(int type, double scale) {
    HistogramStretchParams p;
    p.type = type;
    p.scale = scale;
    return p;
}

/// 800 pixels in a row: 100 at 10, 100 at 20, 200 at 30, 400 at 1000.
float FourLevels(int, int x, int) {
    return x < 100 ? 10.0f : x < 200 ? 20.0f : x < 400 ? 30.0f : 1000.0f;
}

float Scattered(int s, int x, int y) {
    return static_cast<float>((x * 7919 + y * 104729 + s * 3) % 65536);
}

} // namespace

TEST(HistogramStretch, UniformScaleZeroIsTheIdentityWithinOneLevel) {
    Image img;
    MakeImage(img, 256, 256, ColorGray, Scattered);
    Stretch(img, Params(1, 0.0));
    for (std::uint32_t i = 0; i < img.pixelCount; ++i) {
        const double p = img.prevPlane[0][i];
        ASSERT_NEAR(img.curPlane[0][i], p, 1.0) << p;
        // Every level counts 1: the cumulative table is the straight line (i + 1) / 65536.
        ASSERT_FLOAT_EQ(img.curPlane[0][i], static_cast<float>(65534.0 * (p + 1) / 65536));
    }
}

TEST(HistogramStretch, UniformScaleOneEqualises) {
    Image img;
    MakeImage(img, 800, 1, ColorGray, FourLevels);
    Stretch(img, Params(1, 1.0));
    const float* out = img.curPlane[0];
    EXPECT_FLOAT_EQ(out[0], 65534.0f * 100 / 800);
    EXPECT_FLOAT_EQ(out[150], 65534.0f * 200 / 800);
    EXPECT_FLOAT_EQ(out[300], 65534.0f * 400 / 800);
    EXPECT_FLOAT_EQ(out[799], 65534.0f);
}

TEST(HistogramStretch, ConstantPlaneGoesToTheTopLessOne) {
    for (float level : {0.0f, 1234.0f, 65535.0f}) {
        Image img;
        MakeImage(img, 7, 5, ColorGray, [&](int, int, int) { return level; });
        Stretch(img, Params(1, 0.8));
        for (std::uint32_t i = 0; i < img.pixelCount; ++i)
            ASSERT_FLOAT_EQ(img.curPlane[0][i], 65534.0f) << level;
    }
}

TEST(HistogramStretch, TheOtherCurvesOnTwoEqualLevels) {
    // Half the pixels at 100, half at 5000: c is 0.5 and 1 whatever the power.
    struct Case {
        int type;
        double scale;
        double low, high;
    };
    const double m1 = 65534.0;
    const Case cases[] = {
        {2, 0.5, m1 * std::log(2.7 * 0.5 + 1), 65535},     // exceeds M - 1: clamped
        {3, 0.3, m1 * std::sqrt(2 * 0.09 * std::log(2.0)), //
         m1 * std::sqrt(2 * 0.09 * std::log(1 / 0.01))},   // c = 1 uses d = 0.01
        {4, 0.5, m1 * 2 * 0.5 * 0.125, m1 * 2 * 0.5},      //
        {5, 0.5, std::pow(m1, 0.5) * 5, 65535},            //
    };
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, 10, 2, ColorGray, [](int, int, int y) { return y == 0 ? 100.0f : 5000.0f; });
        Stretch(img, Params(c.type, c.scale));
        EXPECT_FLOAT_EQ(img.curPlane[0][0], static_cast<float>(c.low)) << c.type;
        EXPECT_FLOAT_EQ(img.curPlane[0][19], static_cast<float>(c.high)) << c.type;
    }
}

TEST(HistogramStretch, RayleighAtTheTopLevelUsesTheGuard) {
    Image img;
    MakeImage(img, 256, 256, ColorGray, Scattered);
    Stretch(img, Params(3, 0.3));
    const float top = static_cast<float>(65534.0 * std::sqrt(2 * 0.09 * std::log(100.0)));
    const float highest = static_cast<float>(img.MaxOfPlane(img.prevPlane[0]));
    int atTop = 0;
    for (std::uint32_t i = 0; i < img.pixelCount; ++i)
        if (img.prevPlane[0][i] == highest) {
            EXPECT_FLOAT_EQ(img.curPlane[0][i], top);
            ++atTop;
        }
    EXPECT_GE(atTop, 1);
}

TEST(HistogramStretch, BackgroundHighlightBlend) {
    // 10 pixels each at 100 and 200 (background below 655), 60000 and 62000 (highlight from
    // 58981); both powers 1.
    auto fill = [](int, int x, int) {
        const float v[] = {100, 200, 60000, 62000};
        return v[x / 10];
    };
    struct Case {
        double blend;
        float at100, at200, at60000, at62000;
    };
    const float half = 65534.0f / 2;
    const Case cases[] = {{0.0, half, 65534, 65534, 65534},
                          {1.0, 0, 0, half, 65534},
                          {0.25, 0.75f * half, 0.75f * 65534, 0.75f * 65534 + 0.25f * half, 65534}};
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, 40, 1, ColorGray, fill);
        HistogramStretchParams p = Params(6, c.blend);
        p.backgroundBreak = 0.01;
        p.highlightBreak = 0.9;
        p.backgroundScale = 1.0;
        p.highlightScale = 1.0;
        Stretch(img, p);
        EXPECT_FLOAT_EQ(img.curPlane[0][0], c.at100) << c.blend;
        EXPECT_FLOAT_EQ(img.curPlane[0][10], c.at200) << c.blend;
        EXPECT_FLOAT_EQ(img.curPlane[0][20], c.at60000) << c.blend;
        EXPECT_FLOAT_EQ(img.curPlane[0][30], c.at62000) << c.blend;
    }
}

TEST(HistogramStretchText, TemplatesAndParse) {
    HistogramStretchParams p = Params(2, 0.25);
    p.highlightScale = 0.5;
    p.highlightBreak = 0.75;
    p.backgroundScale = 0.125;
    p.backgroundBreak = 0.0625;
    EXPECT_EQ(FormatHistogramStretch(p),
              "Type : Exponential#Scale : 0.2500#Highlight Scale : 0.5000#Highlight Break : "
              "0.7500#Background Scale : 0.1250#Background Break : 0.0625#");
    p.type = 6;
    EXPECT_EQ(FormatHistogramStretch(p),
              "Type : Bkg-High Contrast#Blend : 0.2500#Highlight Scale : 0.5000#Highlight Break : "
              "0.7500#Background Scale : 0.1250#Background Break : 0.0625#");
    HistogramStretchParams back;
    ASSERT_TRUE(ParseHistogramStretch(FormatHistogramStretch(p), &back, nullptr));
    EXPECT_EQ(back.type, 6);
    EXPECT_DOUBLE_EQ(back.scale, 0.25);
    EXPECT_DOUBLE_EQ(back.backgroundBreak, 0.0625);
    const char* names[] = {"Uniform",    "Exponential", "Rayleigh",
                           "Hyperbolic", "Logarithmic", "Bkg-High Contrast"};
    for (int t = 1; t <= 6; ++t) {
        ASSERT_TRUE(ParseHistogramStretch(FormatHistogramStretch(Params(t, 0.5)), &back, nullptr));
        EXPECT_EQ(back.type, t);
        EXPECT_STREQ(HistogramStretchTypeName(t), names[t - 1]);
    }
    std::string error;
    EXPECT_FALSE(ParseHistogramStretch("Type : Gamma#Scale : 0.5#", &back, &error));
    EXPECT_NE(error.find("type"), std::string::npos);
    EXPECT_FALSE(ParseHistogramStretch("Type : Uniform#Scale : 0.5#", &back, &error));
    EXPECT_NE(error.find("highlight scale"), std::string::npos);
}

TEST(HistogramStretchOperator, EachPlaneByItsOwnHistogramAndReplay) {
    for (std::uint32_t type : {ColorRGB, ColorGray, ColorBlue})
        for (int stretch : {1, 4, 6}) {
            CProcessWindow w;
            MakeImage(w.image, 64, 32, type, Scattered);
            w.BeginHistory("Read");
            HistogramStretchParams p = Params(stretch, 0.6);
            ASSERT_TRUE(w.HistogramContrastStretch(p));
            ASSERT_EQ(w.history.size(), 2u);
            EXPECT_EQ(w.history[1].operation, "Histogram Contrast Stretch");
            EXPECT_EQ(w.history[1].parameters, FormatHistogramStretch(p));

            Image expect, copy;
            MakeImage(expect, 64, 32, type, Scattered);
            MakeImage(copy, 64, 32, type, Scattered);
            for (int s : expect.Slots())
                expect.HistogramStretch(false, expect.prevPlane[s], expect.curPlane[s], p.type,
                                        p.scale, p.highlightScale, p.highlightBreak,
                                        p.backgroundScale, p.backgroundBreak);
            CProcessStructure r;
            r.operation = "Histogram Contrast Stretch";
            r.parameters = w.history[1].parameters;
            std::string error;
            ASSERT_TRUE(copy.ApplyCommand(r, nullptr, nullptr, nullptr, &error)) << error;
            for (int s : w.image.Slots()) {
                EXPECT_EQ(std::memcmp(expect.curPlane[s], w.image.curPlane[s],
                                      sizeof(float) * expect.pixelCount),
                          0);
                EXPECT_EQ(std::memcmp(copy.curPlane[s], w.image.curPlane[s],
                                      sizeof(float) * copy.pixelCount),
                          0);
            }
        }
    CProcessWindow w;
    MakeImage(w.image, 4, 4, ColorGray, Scattered);
    w.BeginHistory("Read");
    EXPECT_FALSE(w.HistogramContrastStretch(Params(7, 0.5)));
    EXPECT_EQ(w.history.size(), 1u);
}
