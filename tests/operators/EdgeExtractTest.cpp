// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Edge Extract: hand-computed responses of every type, the common end, the texts and
/// replay.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "TestSupport.h"
#include "engine/ProcessStructure.h"
#include "engine/ProcessWindow.h"
#include "operators/Restoration.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

bool Extract(Image& img, int type, bool binarize = false, int threshold = 0, double scale = 1.0,
             int radius = 1, double width = 1.0) {
    return img.EdgeExtract(false, img.prevPlane[0], img.curPlane[0], type, binarize, threshold,
                           scale, radius, width);
}

/// A 5 x 5 image whose centre 3 x 3 is 10 20 30 / 40 45 60 / 70 80 100.
double Patch(int, int x, int y) {
    static const double inner[9] = {10, 20, 30, 40, 45, 60, 70, 80, 100};
    if (x >= 1 && x <= 3 && y >= 1 && y <= 3)
        return inner[(y - 1) * 3 + x - 1];
    return 500.0;
}

} // namespace

TEST(EdgeExtract, HandComputedSmallWindows) {
    struct Case {
        int type;
        double expect;
    };
    const Case cases[] = {
        {EdgeOnePixel, 35.0},       // 45 - 10
        {EdgeSobel, 340.0},         // |90| + |250|
        {EdgeKirsch, 770.0 / 15.0}, // 8 * (60 + 100 + 80 + 70 - ...) : the best mask gives 770
        {EdgeLaplace, 20.0},        // |20 + 40 + 60 + 80 - 180|
    };
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, 5, 5, ColorGray, Patch);
        ASSERT_TRUE(Extract(img, c.type));
        EXPECT_FLOAT_EQ(img.curPlane[0][2 * 5 + 2], static_cast<float>(c.expect))
            << EdgeTypeWord(c.type);
        // Brightness scales, and binarization turns it into black or white first.
        Image scaled;
        MakeImage(scaled, 5, 5, ColorGray, Patch);
        ASSERT_TRUE(Extract(scaled, c.type, false, 0, 2.5));
        EXPECT_FLOAT_EQ(scaled.curPlane[0][12], static_cast<float>(c.expect * 2.5));
        Image bin;
        MakeImage(bin, 5, 5, ColorGray, Patch);
        ASSERT_TRUE(Extract(bin, c.type, true, static_cast<int>(c.expect) + 1, 0.5));
        EXPECT_EQ(bin.curPlane[0][12], 0.0f);
        Image white;
        MakeImage(white, 5, 5, ColorGray, Patch);
        ASSERT_TRUE(Extract(white, c.type, true, static_cast<int>(c.expect), 0.5));
        EXPECT_EQ(white.curPlane[0][12], 32767.5f);
    }
}

TEST(EdgeExtract, FlatPlaneGivesZeroForEveryType) {
    for (double level : {0.0, 1234.0, 65535.0})
        for (int type = EdgeOnePixel; type <= EdgeContraHarmonic; ++type) {
            Image img;
            MakeImage(img, 23, 17, ColorGray, [&](int, int, int) { return level; });
            ASSERT_TRUE(Extract(img, type, false, 0, 3.0, 2, 1.5));
            for (int i = 0; i < 23 * 17; ++i) {
                if (type == EdgeDeriche) // a recursive filter: zero to rounding
                    ASSERT_NEAR(img.curPlane[0][i], 0.0f, 1e-3) << level << " " << i;
                else
                    ASSERT_EQ(img.curPlane[0][i], 0.0f) << EdgeTypeWord(type) << " " << level;
            }
            // Binarization with Threshold 0 turns every pixel white.
            Image bin;
            MakeImage(bin, 23, 17, ColorGray, [&](int, int, int) { return level; });
            ASSERT_TRUE(Extract(bin, type, true, 0, 1.0, 2, 1.5));
            for (int i = 0; i < 23 * 17; ++i)
                ASSERT_EQ(bin.curPlane[0][i], 65535.0f) << EdgeTypeWord(type);
        }
}

TEST(EdgeExtract, MorphologicalResponseOfOneBrightPixel) {
    for (double background : {0.0, 50.0}) {
        Image img;
        MakeImage(img, 9, 9, ColorGray, [&](int, int x, int y) {
            return (x == 4 && y == 4) ? background + 900.0 : background;
        });
        ASSERT_TRUE(Extract(img, EdgeMorphological));
        for (int y = 0; y < 9; ++y)
            for (int x = 0; x < 9; ++x) {
                // The smoothed centre is background + 100 on the 3 x 3 about the star; the
                // 5 x 5 window of the image sees both the star and the sky there.
                const bool near = std::abs(x - 4) <= 1 && std::abs(y - 4) <= 1;
                EXPECT_EQ(img.curPlane[0][y * 9 + x], near ? 100.0f : 0.0f) << x << "," << y;
            }
    }
    // A plain step edge counts little: the smoothed centre lies at one of the extremes.
    Image step;
    MakeImage(step, 12, 6, ColorGray, [](int, int x, int) { return x < 6 ? 100.0 : 1000.0; });
    ASSERT_TRUE(Extract(step, EdgeMorphological));
    EXPECT_EQ(step.curPlane[0][2 * 12 + 5], 300.0f); // c = 400: min(300, 600)
    EXPECT_EQ(step.curPlane[0][2 * 12 + 1], 0.0f);
}

TEST(EdgeExtract, OtherTypesLeaveThePlaneAndDericheSeesEdges) {
    Image img;
    MakeImage(img, 6, 6, ColorGray, [](int, int x, int y) { return 100.0 * x + y; });
    ASSERT_TRUE(Extract(img, 8));
    for (int i = 0; i < 36; ++i)
        EXPECT_EQ(img.curPlane[0][i], img.prevPlane[0][i]);
    ASSERT_TRUE(Extract(img, 0));
    EXPECT_EQ(img.curPlane[0][7], 101.0f);

    // Deriche: a vertical step edge answers on its columns and hardly far from it.
    Image step;
    MakeImage(step, 40, 20, ColorGray, [](int, int x, int) { return x < 20 ? 1000.0 : 5000.0; });
    ASSERT_TRUE(Extract(step, EdgeDeriche, false, 0, 1.0, 1, 1.0));
    const float atEdge = step.curPlane[0][10 * 40 + 19];
    EXPECT_GT(atEdge, 500.0f);
    EXPECT_LT(step.curPlane[0][10 * 40 + 2], atEdge * 0.01f);
    EXPECT_NEAR(step.curPlane[0][10 * 40 + 19], step.curPlane[0][3 * 40 + 19], 1.0);
    // A larger alpha is a narrower filter: the response falls off faster.
    Image narrow;
    MakeImage(narrow, 40, 20, ColorGray, [](int, int x, int) { return x < 20 ? 1000.0 : 5000.0; });
    ASSERT_TRUE(Extract(narrow, EdgeDeriche, false, 0, 1.0, 1, 3.0));
    EXPECT_LT(narrow.curPlane[0][10 * 40 + 15] / narrow.curPlane[0][10 * 40 + 19],
              step.curPlane[0][10 * 40 + 15] / step.curPlane[0][10 * 40 + 19]);
}

TEST(EdgeExtract, ContraHarmonicValueAndGuards) {
    // Eight 100 and one 1000, p = 1: 1080000 / 1800 - 9 / 0.081 = 488.9 -> 488.
    Image img;
    MakeImage(img, 3, 3, ColorGray,
              [](int, int x, int y) { return x == 1 && y == 1 ? 1000.0 : 100.0; });
    ASSERT_TRUE(Extract(img, EdgeContraHarmonic, false, 0, 1.0, 1, 1.0));
    EXPECT_EQ(img.curPlane[0][4], 488.0f);
    // Zeros under p = 1: S2 = 0 becomes 0.01 (0 / 0.01, not 0 / 0).
    // Zeros under p = -1: S4 = 0 becomes 0.01.
    for (double p : {1.0, -1.0, 2.0}) {
        Image zero;
        MakeImage(zero, 5, 5, ColorGray, [](int, int x, int) { return x == 0 ? 0.0 : 0.0; });
        ASSERT_TRUE(Extract(zero, EdgeContraHarmonic, false, 0, 1.0, 1, p));
        for (int i = 0; i < 25; ++i)
            ASSERT_EQ(zero.curPlane[0][i], 0.0f) << p;
    }
    // Window from the radius: a 5 x 5 window reaches the bright pixel two places away.
    Image wide;
    MakeImage(wide, 7, 7, ColorGray,
              [](int, int x, int y) { return x == 5 && y == 3 ? 1000.0 : 100.0; });
    ASSERT_TRUE(Extract(wide, EdgeContraHarmonic, false, 0, 1.0, 1, 1.0));
    EXPECT_EQ(wide.curPlane[0][3 * 7 + 3], 0.0f);
    ASSERT_TRUE(Extract(wide, EdgeContraHarmonic, false, 0, 1.0, 2, 1.0));
    EXPECT_GT(wide.curPlane[0][3 * 7 + 3], 100.0f);
}

TEST(EdgeExtract, NoDataEntriesAreLeftOut) {
    Image img;
    MakeImage(img, 5, 5, ColorGray,
              [](int, int x, int y) { return x == 1 && y == 1 ? -1.0 : 300.0; });
    ASSERT_TRUE(Extract(img, EdgeOnePixel));
    EXPECT_EQ(img.curPlane[0][2 * 5 + 2], 0.0f) << "the smallest valid value is 300";
    ASSERT_TRUE(Extract(img, EdgeLaplace));
    EXPECT_EQ(img.curPlane[0][2 * 5 + 2], 0.0f) << "the corner is not in the Laplace sum";
}

TEST(EdgeExtract, ParameterTexts) {
    EdgeParams p;
    p.type = EdgeContraHarmonic;
    p.edgeWidth = 1.5;
    p.window = 7;
    p.binarize = true;
    p.threshold = 250;
    p.brightness = 2.0;
    EXPECT_EQ(FormatEdge(p), "Type : Contra-harmonic#Edge Width : 1.5000#Window Size : 7x7#"
                             "Binarization : Yes#Threshold : 250#Brightness : 2.0000#");
    p.type = EdgeDeriche;
    EXPECT_EQ(FormatEdge(p), "Type : Deriche#Edge Width : 1.5000#Window Size Disabled: 7x7#"
                             "Binarization : Yes#Threshold : 250#Brightness : 2.0000#");
    p.type = EdgeSobel;
    p.binarize = false;
    EXPECT_EQ(FormatEdge(p), "Type : Sobel#Edge Width Disabled : 1.5000#Window Size Disabled: "
                             "7x7#Binarization : No#Threshold : 250#Brightness : 2.0000#");
    for (int type = 1; type <= 7; ++type) {
        EdgeParams q = p;
        q.type = type;
        EdgeParams back;
        std::string error;
        ASSERT_TRUE(ParseEdge(FormatEdge(q), &back, &error)) << error;
        EXPECT_EQ(back.type, type);
        EXPECT_EQ(back.window, 7);
        EXPECT_EQ(back.edgeWidth, 1.5);
        EXPECT_EQ(FormatEdge(back), FormatEdge(q));
    }
    EdgeParams back;
    std::string error;
    EXPECT_FALSE(ParseEdge("Type : Canny#Edge Width : 1.0#", &back, &error));
    EXPECT_NE(error.find("type"), std::string::npos);
    EXPECT_EQ(std::string(EdgeFailureText(EdgeDeriche)),
              "Could not allocate memory.\n Please close some programs and try again.");
}

TEST(EdgeExtract, ReplayGivesTheOperatorFunctionsPixels) {
    for (int type = EdgeOnePixel; type <= EdgeContraHarmonic; ++type)
        for (bool color : {false, true}) {
            auto fill = [](int s, int x, int y) {
                return 200.0 + 1500.0 * ((x * 3 + y * 7 + s) % 5) + (x == 6 && y == 6 ? 9000 : 0);
            };
            RecordingNotify notify;
            CProcessWindow w(&notify);
            MakeImage(w.image, 21, 15, color ? ColorRGB : ColorGray, fill);
            w.BeginHistory("Read");
            EdgeParams p;
            p.type = type;
            p.window = 5;
            p.edgeWidth = type == EdgeDeriche ? 0.7 : 1.2;
            p.brightness = 1.5;
            ASSERT_TRUE(w.EdgeExtract(p));
            ASSERT_EQ(w.history.size(), 2u);
            EXPECT_EQ(w.history[1].operation, "Edge Extract");
            EXPECT_EQ(w.history[1].parameters, FormatEdge(p));
            Image again;
            MakeImage(again, 21, 15, color ? ColorRGB : ColorGray, fill);
            std::string error;
            ASSERT_TRUE(again.ApplyCommand(w.history[1], nullptr, nullptr, nullptr, &error))
                << error;
            for (int s : again.Slots())
                for (int i = 0; i < 21 * 15; ++i)
                    ASSERT_EQ(again.curPlane[s][i], w.image.curPlane[s][i]) << EdgeTypeWord(type);
        }
}

TEST(EdgeExtract, MorphologicalWindowsReadFromTheRowsEqualTheGatheredOnes) {
    // Planes of several kinds and sizes; each -1.0 mark or NaN sends the whole plane to the
    // gathered windows, so those kinds compare the gathered form with itself and the others
    // the rows with the gathering, bit for bit.
    struct Kind {
        const char* name;
        int w, h;
        double (*value)(std::mt19937&);
    };
    const Kind kinds[] = {
        {"16-bit noise", 67, 41, [](std::mt19937& r) { return double(r() % 65536); }},
        {"fractions", 40, 33, [](std::mt19937& r) { return (r() % 100000) / 7.0; }},
        {"negative", 23, 19, [](std::mt19937& r) { return double(int(r() % 2001) - 1000); }},
        {"a -1.0 mark", 30, 30, [](std::mt19937& r) { return r() % 50 ? r() % 900 : -1.0; }},
        {"tiny", 3, 2, [](std::mt19937& r) { return double(r() % 300); }},
        {"one column", 1, 17, [](std::mt19937& r) { return double(r() % 300); }},
        {"five square", 5, 5, [](std::mt19937& r) { return double(r() % 300); }},
    };
    for (const Kind& k : kinds) {
        std::mt19937 rng(7);
        std::vector<float> values(static_cast<std::size_t>(k.w) * k.h);
        for (auto& v : values)
            v = static_cast<float>(k.value(rng));
        std::vector<float> out[2];
        for (const bool plain : {true, false}) {
            edge_testing::SetPlainMorphology(plain);
            Image img;
            MakeImage(img, k.w, k.h, ColorGray, [&](int, int x, int y) {
                return static_cast<double>(values[static_cast<std::size_t>(y) * k.w + x]);
            });
            ASSERT_TRUE(Extract(img, EdgeMorphological, false, 0, 1.5));
            out[plain ? 0 : 1].assign(img.curPlane[0], img.curPlane[0] + values.size());
        }
        edge_testing::SetPlainMorphology(false);
        for (std::size_t i = 0; i < values.size(); ++i)
            ASSERT_EQ(std::memcmp(&out[0][i], &out[1][i], sizeof(float)), 0)
                << k.name << " at " << i % k.w << "," << i / k.w << ": " << out[0][i] << " vs "
                << out[1][i];
    }
}
