// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Micro Curves: the Y-only tabulation, the default shortcut, the range, the master as an
/// offset, the Lab path, presets and range checks, the graph helpers, the texts and replay.
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

/// The curve value of level i on the 0..65535 scale, written out from the four Y values.
double BezierAt(double yb, double yf, double yl, double yw, int i) {
    const double t = i / 65535.0, u = 1.0 - t;
    yb *= 257, yf *= 257, yl *= 257, yw *= 257;
    return u * u * u * yb + 3.0 * t * u * u * yf + 3.0 * t * t * u * yl + t * t * t * yw;
}

MicroCurve Curve(int bx, int by, int x1, int y1, int x2, int y2, int wx, int wy) {
    MicroCurve c;
    c.blackX = bx;
    c.blackY = by;
    c.points = {{x1, y1}, {x2, y2}};
    c.whiteX = wx;
    c.whiteY = wy;
    return c;
}

MicroCurve Preset(const char* name) {
    MicroCurve c;
    EXPECT_TRUE(ApplyMicroCurvePreset(&c, name)) << name;
    return c;
}

void Apply(Image& img, int plane, const MicroCurveSlot& m, const MicroCurveSlot& c) {
    img.ApplyMicroCurves(false, img.prevPlane[plane], img.curPlane[plane], m.curve.blackX,
                         m.curve.blackY, m.curve.whiteX, m.curve.whiteY, m.curve.points,
                         c.curve.blackX, c.curve.blackY, c.curve.whiteX, c.curve.whiteY,
                         c.curve.points, m.min, m.max, c.min, c.max);
}

/// Every level once: a 256 x 256 ramp.
float Ramp(int, int x, int y) {
    return static_cast<float>(y * 256 + x);
}

float Colours(int s, int x, int y) {
    return static_cast<float>((x * 2731 + y * 977 + s * 21011) % 65536);
}

} // namespace

TEST(MicroCurves, DefaultCurveIsAnSShapeInYAlone) {
    // At t = 0.25 the default Y values 0, 100, 155, 255 give 67.97, not 63.75.
    EXPECT_NEAR(BezierAt(0, 100, 155, 255, 0) / 257, 0.0, 1e-12);
    std::vector<double> y;
    MicroCurveBezierY(MicroCurve{}, &y);
    ASSERT_EQ(y.size(), 65536u);
    const double quarter = 0.25 * 0.75 * 0.75 * 3 * 100 + 3 * 0.0625 * 0.75 * 155 + 255 / 64.0;
    EXPECT_NEAR(quarter, 67.97, 0.005);
    EXPECT_NEAR(y[16384] / 257, 67.97, 0.01);

    // One control point moved by one unit in X, nothing else: the table is that S-shape.
    const MicroCurve moved = Curve(0, 0, 101, 100, 155, 155, 255, 255);
    ASSERT_FALSE(IsDefaultCurve(moved));
    std::vector<std::uint16_t> table(65536);
    MicroCurveTable(moved, 0, 65535, 65535, table.data());
    EXPECT_NEAR(table[16384] / 257.0, 67.97, 0.01);
    for (int i = 0; i < 65536; i += 111)
        ASSERT_EQ(table[i], static_cast<std::uint16_t>(BezierAt(0, 100, 155, 255, i))) << i;

    // On the pixels: master moved sideways, channel default -> both evaluated, the master as
    // an offset added to the channel: 2 S(i) - i.
    Image img;
    MakeImage(img, 256, 256, ColorGray, Ramp);
    MicroCurveSlot m, c;
    m.curve = moved;
    Apply(img, 0, m, c);
    for (int i = 0; i < 65536; i += 37) {
        const double s = std::trunc(BezierAt(0, 100, 155, 255, i));
        ASSERT_EQ(img.curPlane[0][i], static_cast<float>(std::clamp(2 * s - i, 0.0, 65535.0))) << i;
    }
    EXPECT_GT(img.curPlane[0][16384], 16384 + 2000);

    // Both default: the identity.
    Image same;
    MakeImage(same, 256, 256, ColorGray, Ramp);
    Apply(same, 0, MicroCurveSlot{}, MicroCurveSlot{});
    EXPECT_EQ(std::memcmp(same.curPlane[0], same.prevPlane[0], 65536 * sizeof(float)), 0);
}

TEST(MicroCurves, DefaultMasterWithAChangedChannelIsEvaluated) {
    Image img;
    MakeImage(img, 256, 256, ColorRGB, Ramp);
    MicroCurvesParams p;
    p.curveSlots[1].curve = Preset("Darker");
    ASSERT_TRUE(ApplyMicroCurvesParams(img, p));
    const MicroCurve darker = Preset("Darker");
    for (int i = 0; i < 65536; i += 29) {
        const double s = std::trunc(BezierAt(0, 100, 155, 255, i));
        const double d = std::trunc(BezierAt(0, darker.points[0].y, darker.points[1].y, 255, i));
        ASSERT_EQ(img.curPlane[0][i], static_cast<float>(std::clamp(s + d - i, 0.0, 65535.0))) << i;
    }
    // Green and Blue pair the default master with default slots: the identity.
    EXPECT_EQ(std::memcmp(img.curPlane[1], img.prevPlane[1], 65536 * sizeof(float)), 0);
    EXPECT_EQ(std::memcmp(img.curPlane[2], img.prevPlane[2], 65536 * sizeof(float)), 0);
}

TEST(MicroCurves, RangeLeavesTheOutsideAloneWithoutHoles) {
    MicroCurveSlot m, c;
    m.min = c.min = 20000;
    m.max = c.max = 40000;
    c.curve = Preset("Lighter +");
    Image img;
    MakeImage(img, 256, 256, ColorGray, Ramp);
    Apply(img, 0, m, c);
    int changed = 0;
    for (int i = 0; i < 65536; ++i) {
        if (i < 20000 || i >= 40000)
            ASSERT_EQ(img.curPlane[0][i], static_cast<float>(i)) << i;
        else
            changed += img.curPlane[0][i] != static_cast<float>(i);
    }
    EXPECT_GT(changed, 15000);
    // The entry at Min itself is written again by the first few levels of the squeezed curve
    // (the last one to land there stands): each curve adds its own 1 or 2 levels.
    EXPECT_GE(img.curPlane[0][20000], 20000);
    EXPECT_LE(img.curPlane[0][20000], 20004);

    std::vector<std::uint16_t> table(65536);
    MicroCurveTable(c.curve, 20000, 40000, 65535, table.data());
    for (int i = 20000; i <= 40000; ++i)
        ASSERT_GE(table[i], 20000) << "an entry left empty at " << i;
}

TEST(MicroCurves, NegativeIsRoughlyTheInverse) {
    const MicroCurve neg = Preset("Negative");
    EXPECT_EQ(neg.blackY, 255);
    EXPECT_EQ(neg.whiteY, 0);
    std::vector<std::uint16_t> table(65536);
    MicroCurveTable(neg, 0, 65535, 65535, table.data());
    EXPECT_EQ(table[0], 65535);
    EXPECT_EQ(table[65535], 0);
    double worst = 0;
    for (int i = 0; i < 65536; ++i)
        worst = std::max(worst, std::abs(double(table[i]) - (65535 - i)));
    EXPECT_GT(worst, 500) << "only approximately 65535 - p";
    EXPECT_LT(worst, 1500);
}

TEST(MicroCurves, LabPathMatchesAPerPixelComputation) {
    MicroCurveSlot sl, sa, sb;
    sl.curve = Preset("Lighter");
    sa.curve = Preset("Min - Max +");
    sb.curve = Preset("Darker -");
    sb.min = 10000;
    sb.max = 50000;
    for (bool allDefault : {false, true}) {
        if (allDefault)
            sl = sa = sb = MicroCurveSlot{};
        std::vector<std::uint16_t> tl(65536), ta(65536), tb(65536);
        if (allDefault) {
            for (int i = 0; i < 65536; ++i)
                tl[i] = ta[i] = tb[i] = static_cast<std::uint16_t>(i);
        } else {
            MicroCurveTable(sl.curve, sl.min, sl.max, 65535, tl.data());
            MicroCurveTable(sa.curve, sa.min, sa.max, 65535, ta.data());
            MicroCurveTable(sb.curve, sb.min, sb.max, 65535, tb.data());
        }
        Image img;
        MakeImage(img, 64, 48, ColorRGB, Colours);
        img.ApplyMicroCurvesLab(false, img.prevPlane, img.curPlane, sl.curve, sa.curve, sb.curve,
                                sl.min, sl.max, sa.min, sa.max, sb.min, sb.max);
        int moved = 0;
        for (std::uint32_t i = 0; i < img.pixelCount; ++i) {
            float L, a, b, r, g, bb;
            Image::RgbToLab(img.prevPlane[0][i], img.prevPlane[1][i], img.prevPlane[2][i], &L, &a,
                            &b);
            const int il = static_cast<int>(L / 100.0 * 65535) & 0xFFFF;
            const int ia = static_cast<int>((a + 100.0) / 200.0 * 65535) & 0xFFFF;
            const int ib = static_cast<int>((b + 110.0) / 220.0 * 65535) & 0xFFFF;
            Image::LabToRgb(static_cast<float>(tl[il] * 100.0 / 65535),
                            static_cast<float>(ta[ia] / 65535.0 * 200 - 100),
                            static_cast<float>(tb[ib] / 65535.0 * 220 - 110), &r, &g, &bb);
            ASSERT_EQ(img.curPlane[0][i], r) << i;
            ASSERT_EQ(img.curPlane[1][i], g) << i;
            ASSERT_EQ(img.curPlane[2][i], bb) << i;
            moved += std::abs(r - img.prevPlane[0][i]) > 300;
        }
        if (allDefault)
            EXPECT_LT(moved, 20) << "default curves only round trip through Lab";
        else
            EXPECT_GT(moved, 500);
    }
}

TEST(MicroCurves, PresetsAndRangeChecks) {
    struct Case {
        const char* name;
        int x1, y1, x2, y2;
    };
    const Case cases[] = {{"Default", 100, 100, 155, 155}, {"Min --- Max +++", 239, 16, 16, 239},
                          {"Min +", 32, 159, 127, 96},     {"Max +", 127, 96, 96, 223},
                          {"Darker --", 208, 16, 239, 32}, {"Lighter ++", 16, 208, 32, 239},
                          {"Negative", 100, 155, 155, 100}};
    for (const Case& c : cases) {
        MicroCurve curve = Curve(3, 4, 5, 6, 7, 8, 9, 10);
        ASSERT_TRUE(ApplyMicroCurvePreset(&curve, c.name));
        ASSERT_EQ(curve.points.size(), 2u);
        EXPECT_EQ(curve.points[0].x, c.x1) << c.name;
        EXPECT_EQ(curve.points[0].y, c.y1) << c.name;
        EXPECT_EQ(curve.points[1].x, c.x2) << c.name;
        EXPECT_EQ(curve.points[1].y, c.y2) << c.name;
        const bool negative = std::string(c.name) == "Negative";
        EXPECT_EQ(curve.blackX, 0);
        EXPECT_EQ(curve.blackY, negative ? 255 : 0);
        EXPECT_EQ(curve.whiteX, 255);
        EXPECT_EQ(curve.whiteY, negative ? 0 : 255);
    }
    EXPECT_EQ(MicroCurvePresetNames().size(), 18u);
    EXPECT_EQ(MicroCurvePresetNames().front(), "Default");
    EXPECT_TRUE(IsDefaultCurve(Preset("Default")));
    MicroCurve c;
    EXPECT_FALSE(ApplyMicroCurvePreset(&c, "Brighter"));

    MicroCurveSlot slot;
    slot.min = 1000;
    slot.max = 2000;
    std::string message;
    EXPECT_FALSE(SetMicroCurveMax(&slot, 1000, &message));
    EXPECT_EQ(message, "Please select a max luminance greater than min luminance.");
    EXPECT_FALSE(SetMicroCurveMin(&slot, 2500, &message));
    EXPECT_EQ(message, "Please select a min luminance less than max luminance.");
    EXPECT_DOUBLE_EQ(slot.min, 1000);
    EXPECT_DOUBLE_EQ(slot.max, 2000);
    EXPECT_TRUE(SetMicroCurveMax(&slot, 1001, &message));
    EXPECT_TRUE(SetMicroCurveMin(&slot, 0, &message));
    EXPECT_DOUBLE_EQ(slot.max, 1001);

    EXPECT_EQ(MicroCurvesSlotOfChannel("b", "LAB"), 3);
    EXPECT_EQ(MicroCurvesSlotOfChannel("a", "LAB"), 1);
    EXPECT_EQ(MicroCurvesSlotOfChannel("Green", "RGB"), 2);
    EXPECT_EQ(MicroCurvesSlotOfChannel("Monochrome", "RGB"), 0);
    EXPECT_EQ(MicroCurvesSlotOfChannel("Green", "LAB"), -1);
}

TEST(MicroCurves, GraphHelpers) {
    const auto points = MicroCurveDrawPoints(MicroCurve{});
    ASSERT_EQ(points.size(), 258u); // every 255th of 65536 steps
    EXPECT_DOUBLE_EQ(points.front().first, 0);
    EXPECT_DOUBLE_EQ(points.back().first, 255);
    EXPECT_DOUBLE_EQ(points.back().second, 255);
    for (const auto& [x, y] : points)
        ASSERT_NEAR(x, y, 1e-9) << "the default draws as the diagonal";
    // Moved sideways: the drawing changes even though the table would only lose the shortcut.
    const auto moved = MicroCurveDrawPoints(Curve(0, 0, 140, 100, 155, 155, 255, 255));
    EXPECT_GT(moved[64].first, points[64].first + 5);
    EXPECT_DOUBLE_EQ(moved[64].second, points[64].second);

    const MicroCurve c;
    EXPECT_EQ(LimitDragX(c, 1, 200, 5), 145); // the next point's X - 2 radius
    EXPECT_EQ(LimitDragX(c, 1, -4, 5), 10);   // the black point's X + 2 radius
    EXPECT_EQ(LimitDragX(c, 2, 120, 5), 120);
    EXPECT_EQ(LimitDragX(c, 3, 100, 5), 165);
    EXPECT_EQ(LimitDragX(c, 0, 50, 5), 50);
    EXPECT_EQ(LimitDragX(Curve(0, 0, 5, 1, 12, 2, 255, 255), 1, 8, 5), 5)
        << "no room: the point stays";

    EXPECT_EQ(MicroCurveReadout(0, 65535, 128, 64, true), "(32896.0, 16448.0)");
    EXPECT_EQ(MicroCurveReadout(1000, 2000, 255, 0, true), "(2000.0, 1000.0)");
    EXPECT_EQ(MicroCurveReadout(0, 65535, 300, 10, false), "(,)");
}

TEST(MicroCurvesText, TheThreeForms) {
    const std::string block = " Black X : 0# Black Y : 0# White X : 255# White Y : 255#"
                              " Number of Control Points : 2#  Point 1 X : 100#  Point 1 Y : 100#"
                              "  Point 2 X : 155#  Point 2 Y : 155# Min :    0.0# Max : 65535.0#";
    MicroCurvesParams mono;
    mono.monochrome = true;
    mono.channel = "Monochrome";
    EXPECT_EQ(FormatMicroCurves(mono), "Current Channel : Monochrome#Monochrome Curve#" + block);
    MicroCurvesParams rgb;
    rgb.channel = "Green";
    EXPECT_EQ(FormatMicroCurves(rgb), "Current Channel : Green#RGB Curve#" + block + "Red Curve#" +
                                          block + "Green Curve#" + block + "Blue Curve#" + block);
    MicroCurvesParams lab;
    lab.colorSpace = "LAB";
    lab.channel = "a";
    EXPECT_EQ(FormatMicroCurves(lab), "Current Channel : a#Lab L Curve#" + block + "Lab a Curve#" +
                                          block + "Lab b Curve#" + block);

    lab.curveSlots[3].curve = Preset("Negative");
    lab.curveSlots[3].min = 123.5;
    lab.curveSlots[2].curve = Preset("Darker"); // slot 2 takes no part in Lab
    MicroCurvesParams back;
    ASSERT_TRUE(ParseMicroCurves(FormatMicroCurves(lab), &back, nullptr));
    EXPECT_EQ(back.colorSpace, "LAB");
    EXPECT_EQ(back.channel, "a");
    EXPECT_EQ(back.curveSlots[3].curve.blackY, 255);
    EXPECT_EQ(back.curveSlots[3].curve.points[1].y, 100);
    EXPECT_DOUBLE_EQ(back.curveSlots[3].min, 123.5);
    EXPECT_TRUE(IsDefaultCurve(back.curveSlots[2].curve));
    ASSERT_TRUE(ParseMicroCurves(FormatMicroCurves(mono), &back, nullptr));
    EXPECT_TRUE(back.monochrome);

    std::string error;
    EXPECT_FALSE(ParseMicroCurves("Current Channel : RGB#Sepia Curve#", &back, &error));
    EXPECT_NE(error.find("curve"), std::string::npos);
    EXPECT_FALSE(
        ParseMicroCurves("Current Channel : RGB#RGB Curve#" + block + "Red Curve#", &back, &error));
    EXPECT_NE(error.find("Red Curve values"), std::string::npos) << error;
}

TEST(MicroCurvesOperator, PlanesByModeAndReplayIsBitIdentical) {
    MicroCurvesParams rgb;
    rgb.curveSlots[0].curve = Preset("Min - Max +");
    rgb.curveSlots[1].curve = Preset("Lighter");
    rgb.curveSlots[2].curve = Preset("Darker");
    rgb.curveSlots[3].curve = Preset("Negative");
    rgb.curveSlots[3].min = 5000;
    MicroCurvesParams lab = rgb;
    lab.colorSpace = "LAB";
    lab.channel = "L";
    struct Case {
        std::uint32_t type;
        const MicroCurvesParams* params;
        const char* head;
    };
    const Case cases[] = {{ColorRGB, &rgb, "RGB Curve#"},
                          {ColorRGB, &lab, "Lab L Curve#"},
                          {ColorGray, &rgb, "Monochrome Curve#"},
                          {ColorGreen, &rgb, "Monochrome Curve#"},
                          {ColorGray, &lab, "Monochrome Curve#"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.head);
        CProcessWindow w;
        MakeImage(w.image, 96, 40, c.type, Colours);
        w.BeginHistory("Read");
        ASSERT_TRUE(w.MicroCurves(*c.params));
        ASSERT_EQ(w.history.size(), 2u);
        EXPECT_EQ(w.history[1].operation, "Micro Curves");
        EXPECT_NE(w.history[1].parameters.find(c.head), std::string::npos);

        // What the colour mode selects, through the pixel functions directly.
        Image expect;
        MakeImage(expect, 96, 40, c.type, Colours);
        if (c.type == ColorRGB && c.params->colorSpace == "LAB") {
            const auto& s = c.params->curveSlots;
            expect.ApplyMicroCurvesLab(false, expect.prevPlane, expect.curPlane, s[0].curve,
                                       s[1].curve, s[3].curve, s[0].min, s[0].max, s[1].min,
                                       s[1].max, s[3].min, s[3].max);
        } else if (c.type == ColorRGB) {
            for (int plane = 0; plane < 3; ++plane)
                Apply(expect, plane, c.params->curveSlots[0], c.params->curveSlots[plane + 1]);
        } else {
            // One curve is recorded: the master, with the plane's own slot at its default.
            const int plane = SlotOfColorType(c.type);
            Apply(expect, plane, c.params->curveSlots[0], MicroCurveSlot{});
        }
        Image copy;
        MakeImage(copy, 96, 40, c.type, Colours);
        CProcessStructure r;
        r.operation = "Micro Curves";
        r.parameters = w.history[1].parameters;
        std::string error;
        ASSERT_TRUE(copy.ApplyCommand(r, nullptr, nullptr, nullptr, &error)) << error;
        for (int s : w.image.Slots()) {
            EXPECT_EQ(std::memcmp(expect.curPlane[s], w.image.curPlane[s],
                                  sizeof(float) * expect.pixelCount),
                      0)
                << "slot " << s;
            EXPECT_EQ(
                std::memcmp(copy.curPlane[s], w.image.curPlane[s], sizeof(float) * copy.pixelCount),
                0)
                << "replay, slot " << s;
        }
    }
}
