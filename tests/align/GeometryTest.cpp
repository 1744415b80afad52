// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The geometric transforms: flips, Translate in its three modes, Rotate and its extent,
/// the operators of the sheet with their texts, and replay of their records.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "engine/Image.h"
#include "engine/ProcessStructure.h"
#include "engine/ProcessWindow.h"
#include "operators/Geometry.h"
#include "operators/Registry.h"

namespace astrivelle {
namespace {

using test::MakeImage;

/// A value that differs at every pixel, so that any misplaced pixel shows.
double Pattern(int x, int y) {
    return 1000.0 + 37.0 * x + 101.0 * y + ((x * 7 + y * 3) % 5);
}

std::vector<float> Plane(const Image& img, int slot = -1) {
    const int s = slot < 0 ? img.Slots().front() : slot;
    return std::vector<float>(img.curPlane[s], img.curPlane[s] + img.pixelCount);
}

float At(const std::vector<float>& p, int w, int x, int y) {
    return p[static_cast<std::size_t>(y) * w + x];
}

// ---- flips ----------------------------------------------------------------------------------

TEST(Flip, RowsAndColumnsMoveEachPixelToItsMirror) {
    for (bool inPlace : {false, true}) {
        Image img;
        MakeImage(img, 7, 5, ColorGray, [](int, int x, int y) { return Pattern(x, y); });
        std::vector<float> out(35);
        float* dst = inPlace ? img.curPlane[0] : out.data();
        ASSERT_TRUE(img.FlipRows(inPlace, inPlace ? nullptr : img.curPlane[0], dst));
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 7; ++x)
                ASSERT_EQ(dst[y * 7 + x], Pattern(x, 4 - y)) << inPlace << " " << x << "," << y;
        std::vector<float> rows(dst, dst + 35);
        float* dst2 = inPlace ? img.curPlane[0] : out.data();
        ASSERT_TRUE(img.FlipColumns(inPlace, inPlace ? nullptr : rows.data(), dst2));
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 7; ++x)
                ASSERT_EQ(dst2[y * 7 + x], Pattern(6 - x, 4 - y)) << "the half turn";
    }
}

TEST(Flip, DoubleFlipRestoresTheSource) {
    Image img;
    MakeImage(img, 6, 9, ColorGray, [](int, int x, int y) { return Pattern(x, y); });
    const std::vector<float> source = Plane(img);
    for (int pass = 0; pass < 2; ++pass) {
        ASSERT_TRUE(img.FlipRows(true, nullptr, img.curPlane[0]));
        ASSERT_TRUE(img.FlipColumns(true, nullptr, img.curPlane[0]));
        if (pass == 0) {
            EXPECT_NE(Plane(img), source);
        }
    }
    EXPECT_EQ(Plane(img), source);
    EXPECT_FALSE(img.FlipRows(false, nullptr, img.curPlane[0])) << "no source";
}

// ---- translate ------------------------------------------------------------------------------

struct Shift {
    bool up, left;
    double dy, dx;
    bool subPixel;
    int mode;
};

std::vector<float> Translated(const std::function<double(int, int)>& fn, int w, int h,
                              const Shift& s, float border) {
    Image img;
    MakeImage(img, w, h, ColorGray, [&](int, int x, int y) { return fn(x, y); });
    std::vector<float> out(static_cast<std::size_t>(w) * h, -1.0f);
    EXPECT_TRUE(img.Translate(false, img.curPlane[0], out.data(), s.up, s.left, s.dy, s.dx, border,
                              s.subPixel, s.mode));
    return out;
}

TEST(Translate, AMoveByTheFullWidthLeavesOnlyBorderPixels) {
    const Shift shifts[] = {
        {false, false, 0, 9, false, 1}, {false, true, 0, 9, false, 1},
        {false, false, 0, 9, true, 2},  {false, true, 0, 9.0, true, 3},
        {true, false, 6, 0, true, 2},   {false, false, 0, 25.75, true, 3},
    };
    for (const Shift& s : shifts) {
        const std::vector<float> out = Translated(Pattern, 9, 6, s, 77.0f);
        for (float v : out)
            ASSERT_EQ(v, 77.0f) << "dx " << s.dx << " dy " << s.dy << " mode " << s.mode;
    }
}

TEST(Translate, ZeroFractionsInBilinearModeReproduceTheSource) {
    const std::vector<float> out = Translated(Pattern, 8, 5, {false, false, 0, 0, true, 2}, 5.0f);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 8; ++x)
            ASSERT_EQ(At(out, 8, x, y), Pattern(x, y)) << x << "," << y;
    // Whole-pixel amounts with sub-pixel precision equal the plain move.
    const std::vector<float> sub = Translated(Pattern, 8, 5, {true, false, 2, 3, true, 2}, 5.0f);
    const std::vector<float> plain = Translated(Pattern, 8, 5, {true, false, 2, 3, false, 1}, 5.0f);
    EXPECT_EQ(sub, plain);
}

TEST(Translate, WholePixelsTruncateAndFollowTheDirection) {
    const auto ramp = [](int x, int y) { return x + 10.0 * y; };
    // Right 2.7 and down 1.2 move by (2, 1): dst(x, y) = src(x - 2, y - 1).
    std::vector<float> out = Translated(ramp, 6, 5, {false, false, 1.2, 2.7, false, 2}, -3.0f);
    EXPECT_EQ(At(out, 6, 2, 1), 0.0f);
    EXPECT_EQ(At(out, 6, 5, 4), 33.0f);
    EXPECT_EQ(At(out, 6, 3, 2), 11.0f);
    EXPECT_EQ(At(out, 6, 1, 3), -3.0f);
    EXPECT_EQ(At(out, 6, 4, 0), -3.0f);
    // Left 1 and up 2: dst(x, y) = src(x + 1, y + 2). Mode 1 with sub-pixel truncates too.
    out = Translated(ramp, 6, 5, {true, true, 2.9, 1.5, true, 1}, -3.0f);
    EXPECT_EQ(At(out, 6, 0, 0), 21.0f);
    EXPECT_EQ(At(out, 6, 4, 2), 45.0f);
    EXPECT_EQ(At(out, 6, 5, 0), -3.0f);
    EXPECT_EQ(At(out, 6, 0, 3), -3.0f);
    // A negative amount is the other direction.
    EXPECT_EQ(Translated(ramp, 6, 5, {false, false, -2, -1, false, 1}, -3.0f), out);
}

TEST(Translate, BilinearSpreadsAnImpulseByTheFourWeights) {
    const auto impulse = [](int x, int y) { return x == 2 && y == 2 ? 100.0 : 0.0; };
    // Right 0.25, down 0.5: weights (1-fx)(1-fy) = 0.375 at the base, fx(1-fy) = 0.125 one
    // column against the move, (1-fx)fy = 0.375 one row against it, fx fy = 0.125.
    std::vector<float> out = Translated(impulse, 6, 6, {false, false, 0.5, 0.25, true, 2}, 7.0f);
    EXPECT_FLOAT_EQ(At(out, 6, 2, 2), 37.5f);
    EXPECT_FLOAT_EQ(At(out, 6, 3, 2), 12.5f);
    EXPECT_FLOAT_EQ(At(out, 6, 2, 3), 37.5f);
    EXPECT_FLOAT_EQ(At(out, 6, 3, 3), 12.5f);
    EXPECT_FLOAT_EQ(At(out, 6, 1, 2), 0.0f);
    EXPECT_FLOAT_EQ(At(out, 6, 0, 3), 7.0f) << "column 0 needs column -1";
    EXPECT_FLOAT_EQ(At(out, 6, 3, 0), 7.0f) << "row 0 needs row -1";
    // Left 0.25, up 0.5: the neighbours lie to the right and below.
    out = Translated(impulse, 6, 6, {true, true, 0.5, 0.25, true, 2}, 7.0f);
    EXPECT_FLOAT_EQ(At(out, 6, 2, 2), 37.5f);
    EXPECT_FLOAT_EQ(At(out, 6, 1, 2), 12.5f);
    EXPECT_FLOAT_EQ(At(out, 6, 2, 1), 37.5f);
    EXPECT_FLOAT_EQ(At(out, 6, 1, 1), 12.5f);
    EXPECT_FLOAT_EQ(At(out, 6, 5, 1), 7.0f);
    EXPECT_FLOAT_EQ(At(out, 6, 1, 5), 7.0f);
}

TEST(Translate, BicubicUsesTheBSplineWeightsInTheirOrder) {
    const auto impulse = [](int x, int y) { return x == 3 && y == 3 ? 384.0 : 0.0; };
    // Right 0.25, down 0: x weights R(-1.25), R(-0.25), R(0.75), R(1.75) = 27, 235, 121, 1
    // (/384) land on columns 2, 3, 4, 5; y weights R(1), R(0), R(-1) = 1/6, 2/3, 1/6 on rows
    // 2, 3, 4 (fy = 0 still blurs: the B-spline does not interpolate).
    const std::vector<float> out =
        Translated(impulse, 8, 8, {false, false, 0, 0.25, true, 3}, -1.0f);
    const double col[4] = {27, 235, 121, 1};
    const double row[3] = {1.0 / 6.0, 2.0 / 3.0, 1.0 / 6.0};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c)
            EXPECT_NEAR(At(out, 8, 2 + c, 2 + r), col[c] * row[r], 1e-4) << c << "," << r;
    EXPECT_NEAR(At(out, 8, 3, 5), 0.0, 1e-6);
    // Columns whose taps reach outside (x + 1 and x - 2 are needed) keep the border.
    EXPECT_EQ(At(out, 8, 1, 3), -1.0f);
    EXPECT_EQ(At(out, 8, 7, 3), -1.0f);
    EXPECT_EQ(At(out, 8, 3, 0), -1.0f) << "row 0 needs row -1";
    // The centre of mass moves by exactly the fraction.
    double sum = 0, sx = 0;
    for (int y = 2; y <= 6; ++y)
        for (int x = 2; x <= 6; ++x) {
            sum += At(out, 8, x, y);
            sx += x * At(out, 8, x, y);
        }
    EXPECT_NEAR(sum, 384.0, 1e-3);
    EXPECT_NEAR(sx / sum, 3.25, 1e-6);
}

TEST(Translate, InPlaceEqualsAPlaneCopy) {
    for (int mode : {1, 2, 3}) {
        Image img;
        MakeImage(img, 9, 7, ColorGray, [](int, int x, int y) { return Pattern(x, y); });
        std::vector<float> out(63);
        ASSERT_TRUE(img.Translate(false, img.curPlane[0], out.data(), true, false, 1.3, 2.6, 9.0f,
                                  true, mode));
        ASSERT_TRUE(
            img.Translate(true, nullptr, img.curPlane[0], true, false, 1.3, 2.6, 9.0f, true, mode));
        EXPECT_EQ(Plane(img), out) << mode;
    }
    Image img;
    MakeImage(img, 3, 3, ColorGray, [](int, int, int) { return 1.0; });
    std::vector<float> out(9);
    EXPECT_FALSE(img.Translate(false, img.curPlane[0], out.data(), false, false, 1, 1, 0, true, 4))
        << "no mode 4";
}

// ---- rotate ---------------------------------------------------------------------------------

TEST(Rotate, QuarterTurnsAboutTheCentreAreTranspositions) {
    struct Case {
        bool clockwise;
        bool radians;
        double angle;
    };
    const Case cases[] = {{true, false, 90}, {false, false, 90}, {true, true, 1.5707963268}};
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, 7, 7, ColorGray, [](int, int x, int y) { return Pattern(x, y); });
        ASSERT_TRUE(img.Rotate(img.prevPlane[0], img.curPlane[0], img.prevPlane[0], 3, 3, c.angle,
                               c.clockwise, c.radians, -5.0f, 1, false, true));
        for (int y = 0; y < 7; ++y)
            for (int x = 0; x < 7; ++x) {
                // Clockwise on the screen: the top-left corner goes to the top-right.
                const double expect = c.clockwise ? Pattern(y, 6 - x) : Pattern(6 - y, x);
                ASSERT_EQ(img.curPlane[0][y * 7 + x], expect)
                    << (c.clockwise ? "CW " : "CCW ") << x << "," << y;
            }
    }
}

TEST(Rotate, AddBorderSizesTheOutputToTheTurnedCorners) {
    struct Case {
        int w, h;
        double aboutX, aboutY, angle;
        int outW, outH;
    };
    const Case cases[] = {
        {7, 5, 3, 2, 90, 5, 7},  {10, 10, 4, 4, 45, 15, 15}, {8, 6, 0, 0, 0, 8, 6},
        {8, 6, 0, 0, 180, 8, 6}, {20, 4, 10, 2, 30, 20, 14}, // 20cos30+4sin30 = 19.32
    };
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, c.w, c.h, ColorGray, [](int, int, int) { return 1.0; });
        int w = 0, h = 0;
        double ox = 0, oy = 0;
        img.RotatedExtent(c.aboutX, c.aboutY, c.angle, true, false, true, &w, &h, &ox, &oy);
        EXPECT_EQ(w, c.outW) << c.angle;
        EXPECT_EQ(h, c.outH) << c.angle;
        img.RotatedExtent(c.aboutX, c.aboutY, c.angle, true, false, false, &w, &h, &ox, &oy);
        EXPECT_EQ(w, c.w);
        EXPECT_EQ(h, c.h);
    }
    // The quarter turn of a 7 x 5 about (3, 2) into 5 x 7: dst(X, Y) = src(Y, 4 - X), and
    // the previous plane takes the new size too.
    Image img;
    MakeImage(img, 7, 5, ColorGray, [](int, int x, int y) { return Pattern(x, y); });
    ASSERT_TRUE(img.Rotate(img.prevPlane[0], img.curPlane[0], img.prevPlane[0], 3, 2, 90, true,
                           false, 0.0f, 1, true, true));
    ASSERT_EQ(img.width, 5);
    ASSERT_EQ(img.height, 7);
    EXPECT_EQ(img.pixelCount, 35u);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 5; ++x) {
            ASSERT_EQ(img.curPlane[0][y * 5 + x], Pattern(y, 4 - x)) << x << "," << y;
            ASSERT_EQ(img.prevPlane[0][y * 5 + x], img.curPlane[0][y * 5 + x]);
        }
}

TEST(Rotate, NoTurnReproducesAndOutsideTakesTheBorder) {
    for (int mode : {1, 2}) {
        Image img;
        MakeImage(img, 6, 4, ColorGray, [](int, int x, int y) { return Pattern(x, y); });
        const std::vector<float> source = Plane(img);
        ASSERT_TRUE(img.Rotate(img.prevPlane[0], img.curPlane[0], img.prevPlane[0], 2, 2, 0, true,
                               false, 0.0f, mode, false, true));
        EXPECT_EQ(Plane(img), source) << mode;
    }
    // A half turn about pixel (0, 0) sends everything but that pixel off the image.
    Image img;
    MakeImage(img, 4, 3, ColorGray, [](int, int x, int y) { return Pattern(x, y); });
    ASSERT_TRUE(img.Rotate(img.curPlane[0], img.curPlane[0], img.prevPlane[0], 0, 0, 180, true,
                           false, 42.0f, 1, false, true));
    EXPECT_EQ(img.curPlane[0][0], Pattern(0, 0));
    for (int i = 1; i < 12; ++i)
        EXPECT_EQ(img.curPlane[0][i], 42.0f) << i;
}

// ---- scale: the size and factors it derives -------------------------------------------------

TEST(Scale, SizeAndFactorsFollowFromWhicheverIsGiven) {
    struct Case {
        bool byFactor;
        double fx, fy;
        double width, height;
        int outW, outH;
    };
    const Case cases[] = {
        {true, 1.5, 0.75, 0, 0, 10, 3},  // 7 * 1.5 = 10.5 and 5 * 0.75 = 3.75, truncated
        {true, 0.2, 3.0, 0, 0, 1, 15},   // 1.4 -> 1
        {false, 0, 0, 10.9, 2.2, 10, 2}, // a size is truncated too
        {false, 0, 0, 14, 5, 14, 5},     // one axis alone may change
    };
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, 7, 5, ColorGray, [](int, int x, int y) { return Pattern(x, y); });
        ScaleParams p;
        p.preserveAspect = false;
        p.byFactor = c.byFactor;
        p.byDimension = !c.byFactor;
        p.factorX = c.fx;
        p.factorY = c.fy;
        p.newWidth = c.width;
        p.newHeight = c.height;
        p.resampleType = 1;
        p.commit = true;
        std::string text;
        ASSERT_TRUE(img.Scale(p, img.curPlane[0], img.prevPlane[0], &text)) << text;
        EXPECT_EQ(img.width, c.outW);
        EXPECT_EQ(img.height, c.outH);
        // The factors are the given ones, or new size over old: target centres map back by
        // them (nearest here).
        const double fx = c.byFactor ? c.fx : static_cast<double>(c.outW) / 7;
        const double fy = c.byFactor ? c.fy : static_cast<double>(c.outH) / 5;
        for (int y = 0; y < c.outH; ++y)
            for (int x = 0; x < c.outW; ++x) {
                const int sx = static_cast<int>(std::floor((x + 0.5) / fx - 0.5 + 0.5));
                const int sy = static_cast<int>(std::floor((y + 0.5) / fy - 0.5 + 0.5));
                ASSERT_EQ(img.curPlane[0][y * c.outW + x],
                          Pattern(std::min(sx, 6), std::min(sy, 4)))
                    << x << "," << y;
            }
    }
}

// ---- operators, texts and replay -----------------------------------------------------------

/// An open image of 9 x 7 (mono or RGB) with distinct values per plane.
struct Window {
    test::RecordingNotify notify;
    CProcessWindow w{&notify};
    explicit Window(std::uint32_t type = ColorGray, int width = 9, int height = 7) {
        MakeImage(w.image, width, height, type,
                  [](int s, int x, int y) { return Pattern(x, y) + 500.0 * s; });
        w.BeginHistory("Read");
    }
};

/// Replays `record` on a fresh copy of the origin and compares with the operator's result.
void ExpectReplayMatches(const CProcessWindow& w, std::uint32_t type, int width, int height,
                         const std::string& label) {
    ASSERT_GE(w.history.size(), 2u) << label;
    const CProcessStructure& record = w.history.back();
    Image replay;
    MakeImage(replay, width, height, type,
              [](int s, int x, int y) { return Pattern(x, y) + 500.0 * s; });
    std::string error;
    ASSERT_TRUE(replay.ApplyCommand(record, nullptr, nullptr, nullptr, &error))
        << label << ": " << error << " in " << record.parameters;
    ASSERT_EQ(replay.width, w.image.width) << label;
    ASSERT_EQ(replay.height, w.image.height) << label;
    for (int s : w.image.Slots())
        for (std::uint32_t i = 0; i < w.image.pixelCount; ++i)
            ASSERT_EQ(replay.curPlane[s][i], w.image.curPlane[s][i])
                << label << " slot " << s << " at " << i;
}

TEST(GeometryOperator, EveryRecordReplaysToTheSamePixels) {
    struct Case {
        const char* label;
        const char* operation;
        std::function<bool(CProcessWindow&)> run;
    };
    TranslateParams t1;
    t1.dx = 2.6;
    t1.dy = 1.2;
    t1.subPixel = false;
    t1.border = 300;
    TranslateParams t2;
    t2.up = true;
    t2.left = true;
    t2.dx = 1.123456; // the record keeps four decimals, and so does the operator
    t2.dy = 0.75;
    TranslateParams t3 = t2;
    t3.interpolation = InterpolateBicubic;
    RotateParams r1;
    r1.angle = 17.5;
    r1.aboutX = 4;
    r1.aboutY = 3;
    r1.border = 12;
    RotateParams r2 = r1;
    r2.addBorder = true;
    r2.clockwise = false;
    r2.interpolation = InterpolateBicubic;
    RotateParams r3 = r1;
    r3.radians = true;
    r3.angle = 0.3;
    r3.interpolation = InterpolateNearest;
    ScaleStepParams s1;
    s1.factorX = 1.5;
    s1.factorY = 0.75;
    ScaleStepParams s2;
    s2.byFactor = false;
    s2.width = 13;
    s2.height = 4;
    s2.interpolation = InterpolateBicubic;
    const Case cases[] = {
        {"translate whole", "Translate", [&](CProcessWindow& w) { return w.Translate(t1); }},
        {"translate bilinear", "Translate", [&](CProcessWindow& w) { return w.Translate(t2); }},
        {"translate bicubic", "Translate", [&](CProcessWindow& w) { return w.Translate(t3); }},
        {"rotate", "Rotate", [&](CProcessWindow& w) { return w.Rotate(r1); }},
        {"rotate add border", "Rotate", [&](CProcessWindow& w) { return w.Rotate(r2); }},
        {"rotate radians", "Rotate", [&](CProcessWindow& w) { return w.Rotate(r3); }},
        {"scale factor", "Scale", [&](CProcessWindow& w) { return w.Scale(s1); }},
        {"scale size", "Scale", [&](CProcessWindow& w) { return w.Scale(s2); }},
        {"mirror vertical", "Mirror Vertical",
         [](CProcessWindow& w) { return w.MirrorVertical(); }},
        {"mirror horizontal", "Mirror Horizontal",
         [](CProcessWindow& w) { return w.MirrorHorizontal(); }},
    };
    for (std::uint32_t type : {ColorGray, ColorRGB})
        for (const Case& c : cases) {
            Window win(type);
            ASSERT_TRUE(c.run(win.w)) << c.label;
            EXPECT_TRUE(win.notify.messages.empty()) << c.label << ": " << win.notify.messages[0];
            ASSERT_EQ(win.w.history.size(), 2u);
            EXPECT_EQ(win.w.history.back().operation, c.operation);
            // The text reads back to itself.
            const OperatorDescriptor* d = FindOperator(c.operation);
            ASSERT_TRUE(d && d->roundTrip);
            std::string again;
            ASSERT_TRUE(d->roundTrip(win.w.history.back().parameters, &again));
            EXPECT_EQ(again, win.w.history.back().parameters);
            ExpectReplayMatches(win.w, type, 9, 7, c.label);
        }
}

TEST(GeometryOperator, TextsOfTheRecords) {
    TranslateParams t;
    t.up = true;
    t.dy = 1.5;
    t.dx = 2;
    t.border = 7;
    EXPECT_EQ(FormatTranslate(t), "Translate Up : 1.5000#Translate Right : 2.0000#Border Pixel : "
                                  "7#Sub-Pixel : Yes#Interpolation : Bilinear#");
    RotateParams r;
    r.angle = 0.25;
    r.clockwise = false;
    r.radians = true;
    r.aboutX = 10;
    r.aboutY = 20;
    r.interpolation = InterpolateNearest;
    EXPECT_EQ(FormatRotate(r), "Rotate CCW (Radians) : 0.2500#About : (10, 20)#Border Value : 0#"
                               "Add Border : No#Interpolation : Nearest Nbhd#");
    ScaleStepParams s;
    s.byFactor = false;
    s.width = 640;
    s.height = 480;
    EXPECT_EQ(FormatScale(s), "Scale By : Size#Width : 640#Height : 480#Interpolation : Bilinear#");
    // The labels carry the directions; a text without them is refused.
    TranslateParams back;
    std::string error;
    ASSERT_TRUE(ParseTranslate("Translate Down : 3#Translate Left : 0.5#Border Pixel : 1#Sub-Pixel "
                               ": No#Interpolation : Nearest Neighbor#",
                               &back, &error))
        << error;
    EXPECT_FALSE(back.up);
    EXPECT_TRUE(back.left);
    EXPECT_EQ(back.dx, 0.5);
    EXPECT_FALSE(back.subPixel);
    EXPECT_EQ(back.interpolation, 1);
    EXPECT_FALSE(ParseTranslate("Shift : 3#Translate Left : 0.5#Border Pixel : 1#Sub-Pixel : "
                                "No#Interpolation : Bilinear#",
                                &back, &error));
    EXPECT_FALSE(ParseTranslate("Translate Down : 3#Translate Left : 0.5#Border Pixel : 1#Sub-"
                                "Pixel : No#Interpolation : Lanczos#",
                                &back, &error));
    RotateParams rb;
    EXPECT_FALSE(ParseRotate("Rotate CW (Degrees) : 5#About : 10 20#Border Value : 0#Add Border "
                             ": No#Interpolation : Bilinear#",
                             &rb, &error))
        << "the centre needs its comma";
    ScaleStepParams sb;
    EXPECT_FALSE(ParseScale("Scale By : Factor#Width X : 0#Height X : 1#Interpolation : "
                            "Bilinear#",
                            &sb, &error));
}

TEST(GeometryOperator, ChecksShowTheSheetsTextsAndRecordNothing) {
    struct Case {
        std::function<bool(CProcessWindow&)> run;
        const char* text;
    };
    TranslateParams negative;
    negative.dx = -1;
    TranslateParams border;
    border.border = -5;
    RotateParams angle;
    angle.angle = -3;
    ScaleStepParams factor;
    factor.factorX = 0;
    ScaleStepParams width;
    width.byFactor = false;
    width.width = 0;
    width.height = 10;
    ScaleStepParams height = width;
    height.width = 10;
    height.height = -2;
    const Case cases[] = {
        {[&](CProcessWindow& w) { return w.Translate(negative); },
         "Please enter a positive real number."},
        {[&](CProcessWindow& w) { return w.Translate(border); },
         "Please enter a positive integer."},
        {[&](CProcessWindow& w) { return w.Rotate(angle); },
         "Please enter a positive real number."},
        {[&](CProcessWindow& w) { return w.Scale(factor); },
         "Please enter a positive real number."},
        {[&](CProcessWindow& w) { return w.Scale(width); },
         "The width W is not a positive integer."},
        {[&](CProcessWindow& w) { return w.Scale(height); },
         "The height H is not a positive integer."},
    };
    for (const Case& c : cases) {
        Window win;
        const std::vector<float> before = Plane(win.w.image);
        EXPECT_FALSE(c.run(win.w));
        ASSERT_EQ(win.notify.messages.size(), 1u);
        EXPECT_EQ(win.notify.messages[0], c.text);
        EXPECT_EQ(win.w.history.size(), 1u);
        EXPECT_EQ(Plane(win.w.image), before);
    }
    // No image at all.
    test::RecordingNotify notify;
    CProcessWindow empty(&notify);
    EXPECT_FALSE(empty.MirrorVertical());
    EXPECT_FALSE(empty.Translate(TranslateParams{}));
    EXPECT_FALSE(empty.Rotate(RotateParams{}));
    EXPECT_FALSE(empty.Scale(ScaleStepParams{}));
    ASSERT_EQ(notify.messages.size(), 4u);
    for (const std::string& m : notify.messages)
        EXPECT_EQ(m, "No image is availble.");
    // A factor of 1 is no scale: no step and no message.
    Window win;
    EXPECT_FALSE(win.w.Scale(ScaleStepParams{}));
    EXPECT_TRUE(win.notify.messages.empty());
    EXPECT_EQ(win.w.history.size(), 1u);
}

TEST(GeometryOperator, RepeatedTranslateEditsOneStepButMirrorsStack) {
    Window win;
    const std::vector<float> origin = Plane(win.w.image);
    TranslateParams t;
    t.dx = 3;
    t.subPixel = false;
    ASSERT_TRUE(win.w.Translate(t));
    t.dx = 1;
    ASSERT_TRUE(win.w.Translate(t));
    ASSERT_EQ(win.w.history.size(), 2u) << "the repeat replaces the pending step";
    // The repeat starts again from the step's input: a move by 1, not by 4.
    const std::vector<float> now = Plane(win.w.image);
    EXPECT_EQ(At(now, 9, 1, 0), At(origin, 9, 0, 0));
    EXPECT_EQ(At(now, 9, 8, 6), At(origin, 9, 7, 6));

    Window mirrors;
    ASSERT_TRUE(mirrors.w.MirrorVertical());
    ASSERT_TRUE(mirrors.w.MirrorVertical());
    EXPECT_EQ(mirrors.w.history.size(), 3u);
    EXPECT_EQ(Plane(mirrors.w.image), origin) << "two flips are the original again";
    ASSERT_TRUE(mirrors.w.Scale([] {
        ScaleStepParams s;
        s.factorX = 2;
        s.factorY = 2;
        return s;
    }()));
    ASSERT_TRUE(mirrors.w.Rotate(RotateParams{}));
    EXPECT_EQ(mirrors.w.history.size(), 5u) << "a rotate after a scale is a step of its own";
    EXPECT_EQ(mirrors.w.image.width, 18);
}

TEST(GeometryOperator, ScaleOfAColourImageResizesEveryPlane) {
    Window win(ColorRGB, 6, 4);
    ScaleStepParams s;
    s.byFactor = false;
    s.width = 12;
    s.height = 8;
    s.interpolation = InterpolateNearest;
    ASSERT_TRUE(win.w.Scale(s));
    ASSERT_EQ(win.w.image.width, 12);
    ASSERT_EQ(win.w.image.height, 8);
    // Nearest doubling: each source pixel fills a 2 x 2 block, per plane.
    for (int slot = 0; slot < 3; ++slot)
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 12; ++x)
                ASSERT_EQ(win.w.image.curPlane[slot][y * 12 + x],
                          Pattern(x / 2, y / 2) + 500 * slot);
}

} // namespace
} // namespace astrivelle
