// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Unsharp Mask: the per-pixel rule against a plain computation, its edge cases, the
/// custom filter refusal, the texts and replay.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "TestSupport.h"
#include "engine/ProcessStructure.h"
#include "engine/ProcessWindow.h"
#include "operators/Restoration.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

double Ramp(int, int x, int y) {
    return 1000.0 + 731.0 * ((x * 5 + y * 3) % 13) + 17.0 * y;
}

/// The rule written out for one pixel.
float Oracle(const Image& img, int x, int y, const std::vector<double>& k, const UnsharpParams& p) {
    const int w = img.width, h = img.height, r = p.radius, n = 2 * r + 1;
    const float* prev = img.prevPlane[0];
    std::vector<double> win;
    for (int dy = -r; dy <= r; ++dy)
        for (int dx = -r; dx <= r; ++dx)
            win.push_back(prev[MirrorIndex(y, dy, h) * w + MirrorIndex(x, dx, w)]);
    double sum = 0;
    for (double v : k)
        sum += v;
    double s = 0;
    if (p.filter == UnsharpParams::Median) {
        std::sort(win.begin(), win.end());
        s = win[win.size() / 2];
    } else {
        for (int j = 0; j < n * n; ++j)
            s += k[j] / sum * win[j];
    }
    const double pv = prev[y * w + x];
    const ApplyRange range(p.applyMin, p.applyMax, p.feather);
    double u = pv;
    if (!range.Outside(pv)) {
        s *= p.backgroundWeight;
        u = (pv - s) * (1.0 / (1.0 - p.backgroundWeight)) * p.strength + (1 - p.strength) * pv;
        u = range.Feather(pv, u);
    }
    if (p.reduceArtifacts && pv > u)
        u = pv;
    u = std::clamp(u, 0.0, double(img.maxValue));
    if (p.variant == UnsharpParams::Binarization)
        return u > p.threshold ? float(img.maxValue) : 0.0f;
    return static_cast<float>(u);
}

bool Sharpen(Image& img, const UnsharpParams& p, const double* custom = nullptr) {
    return img.UnsharpMask(false, img.prevPlane[0], img.curPlane[0], custom, p.radius, p.variant,
                           p.filter, p.backgroundWeight, p.threshold, p.strength, p.applyMin,
                           p.applyMax, p.feather, p.reduceArtifacts);
}

} // namespace

TEST(UnsharpMask, MatchesThePlainRule) {
    const double custom[25] = {0, 1, 2, 1, 0, 1, 2, 3, 2, 1, 2, 3, -4,
                               3, 2, 1, 2, 3, 2, 1, 0, 1, 2, 1, 0};
    for (int filter = UnsharpParams::Box; filter <= UnsharpParams::Custom; ++filter)
        for (int variant : {UnsharpParams::Sharpen, UnsharpParams::Binarization}) {
            UnsharpParams p;
            p.filter = filter;
            p.variant = variant;
            p.radius = filter == UnsharpParams::Custom ? 2 : filter;
            p.backgroundWeight = 0.6;
            p.strength = filter == UnsharpParams::Box ? 0.7 : 1.0;
            p.reduceArtifacts = filter == UnsharpParams::Gauss;
            p.threshold = 5000;
            if (filter == UnsharpParams::Binomial) {
                p.applyMin = 3000;
                p.applyMax = 7000;
                p.feather = 1500;
            }
            SCOPED_TRACE(FormatUnsharp(p));
            Image img;
            MakeImage(img, 300, 21, ColorGray, Ramp);
            ASSERT_TRUE(Sharpen(img, p, filter == UnsharpParams::Custom ? custom : nullptr));
            const std::vector<double> k = UnsharpWeights(filter, p.radius, custom);
            int changed = 0;
            for (int y = 0; y < img.height; ++y)
                for (int x = 0; x < img.width; ++x) {
                    ASSERT_EQ(img.curPlane[0][y * 300 + x], Oracle(img, x, y, k, p))
                        << x << "," << y;
                    changed += img.curPlane[0][y * 300 + x] != img.prevPlane[0][y * 300 + x];
                }
            EXPECT_GT(changed, 1000);
        }
}

TEST(UnsharpMask, EdgeCases) {
    // B = 0 leaves the image, whatever the strength.
    for (double s : {1.0, 0.35}) {
        Image img;
        MakeImage(img, 40, 30, ColorGray, Ramp);
        UnsharpParams p;
        p.backgroundWeight = 0.0;
        p.strength = s;
        ASSERT_TRUE(Sharpen(img, p));
        for (int i = 0; i < 40 * 30; ++i)
            ASSERT_EQ(img.curPlane[0][i], img.prevPlane[0][i]) << s << " " << i;
    }
    // A flat plane stays at its level for any B below 1.
    for (double b : {0.1, 0.5, 0.9, 0.99})
        for (int filter = 1; filter <= 4; ++filter) {
            Image img;
            MakeImage(img, 20, 20, ColorGray, [](int, int, int) { return 12345.0; });
            UnsharpParams p;
            p.filter = filter;
            p.backgroundWeight = b;
            ASSERT_TRUE(Sharpen(img, p));
            for (int i = 0; i < 400; ++i)
                ASSERT_NEAR(img.curPlane[0][i], 12345.0f, 0.01) << b << " filter " << filter;
        }
    // Binarization: maxValue above the threshold, 0 below.
    Image bin;
    MakeImage(bin, 10, 1, ColorGray, [](int, int x, int) { return x * 1000.0; });
    UnsharpParams p;
    p.variant = UnsharpParams::Binarization;
    p.backgroundWeight = 0.0;
    p.threshold = 4500;
    ASSERT_TRUE(Sharpen(bin, p));
    for (int x = 0; x < 10; ++x)
        EXPECT_EQ(bin.curPlane[0][x], x > 4 ? 65535.0f : 0.0f) << x;
    // Reduce Artifacts: the dark rim around a star is gone, the star is still sharpened.
    auto star = [](int, int x, int y) { return (x == 8 && y == 8) ? 30000.0 : 1000.0; };
    Image plain, reduced;
    MakeImage(plain, 17, 17, ColorGray, star);
    MakeImage(reduced, 17, 17, ColorGray, star);
    UnsharpParams q;
    q.filter = UnsharpParams::Box;
    q.radius = 1;
    q.backgroundWeight = 0.5;
    ASSERT_TRUE(Sharpen(plain, q));
    q.reduceArtifacts = true;
    ASSERT_TRUE(Sharpen(reduced, q));
    EXPECT_LT(plain.curPlane[0][8 * 17 + 7], 1000.0f) << "without: a dark rim";
    EXPECT_EQ(reduced.curPlane[0][8 * 17 + 7], 1000.0f);
    EXPECT_GT(reduced.curPlane[0][8 * 17 + 8], 30000.0f);
    for (int i = 0; i < 17 * 17; ++i)
        EXPECT_GE(reduced.curPlane[0][i], reduced.prevPlane[0][i]);
}

TEST(UnsharpMask, CustomFilterWithSumZeroIsRefused) {
    RecordingNotify notify;
    CProcessWindow w(&notify);
    MakeImage(w.image, 8, 8, ColorGray, Ramp);
    w.BeginHistory("Read");
    CCustomFilter edge;
    edge.name = "Edges";
    edge.weights = {-1, -1, -1, -1, 8, -1, -1, -1, -1};
    UnsharpParams p;
    p.filter = UnsharpParams::Custom;
    EXPECT_FALSE(w.UnsharpMask(p, &edge));
    ASSERT_EQ(notify.messages.size(), 1u);
    EXPECT_EQ(notify.messages[0],
              "Please Choose A Custom Filter With A Sum Of Entries Not Equal To Zero.");
    EXPECT_EQ(w.history.size(), 1u) << "nothing recorded";

    // A usable custom filter records its name and its own size.
    CCustomFilter soft;
    soft.name = "Soft5";
    soft.size = 5;
    soft.weights.fill(0.0);
    for (int j = 0; j < 25; ++j)
        soft.weights[j] = 1.0 + (j % 3);
    ASSERT_TRUE(w.UnsharpMask(p, &soft));
    EXPECT_EQ(w.history[1].parameters.substr(0, 66),
              "Operation : Sharpen#Window Size : 5x5#Unsharp Filter : Soft5#Backg");
    Image again;
    MakeImage(again, 8, 8, ColorGray, Ramp);
    std::string error;
    EXPECT_FALSE(again.ApplyCommand(w.history[1], nullptr, nullptr, nullptr, &error));
    EXPECT_NE(error.find("Soft5"), std::string::npos) << error;
    ASSERT_TRUE(again.ApplyCommand(w.history[1], &soft, nullptr, nullptr, &error)) << error;
    for (int i = 0; i < 64; ++i)
        ASSERT_EQ(again.curPlane[0][i], w.image.curPlane[0][i]);
}

TEST(UnsharpMask, ParameterTexts) {
    UnsharpParams p;
    EXPECT_EQ(FormatUnsharp(p),
              "Operation : Sharpen#Window Size : 5x5#Unsharp Filter : Gauss#"
              "Background Weight : 0.5000#Reduce Artifacts : No#Filter "
              "Strength : 1.0000#Apply Min : 0#Apply Max : 65535#Feather Range : 0#");
    p.variant = UnsharpParams::Binarization;
    p.filter = UnsharpParams::Median;
    p.radius = 1;
    p.backgroundWeight = 0.75;
    p.threshold = 1234;
    p.reduceArtifacts = true;
    p.strength = 0.5;
    p.applyMin = 10;
    p.applyMax = 20000;
    p.feather = 30;
    const std::string text = FormatUnsharp(p);
    EXPECT_EQ(text, "Operation : Binarization#Window Size : 3x3#Unsharp Filter : Median#"
                    "Background Weight : 0.7500#Threshold : 1234#Reduce Artifacts : Yes#Filter "
                    "Strength : 0.5000#Apply Min : 10#Apply Max : 20000#Feather Range : 30#");
    UnsharpParams back;
    std::string error;
    ASSERT_TRUE(ParseUnsharp(text, &back, &error)) << error;
    EXPECT_EQ(FormatUnsharp(back), text);
    EXPECT_EQ(back.threshold, 1234);
    for (const char* word : {"Box", "Median", "Gauss", "Binomial"}) {
        UnsharpParams q;
        std::string t = FormatUnsharp(q);
        t.replace(t.find("Gauss"), 5, word);
        ASSERT_TRUE(ParseUnsharp(t, &q, &error));
        EXPECT_EQ(UnsharpFilterWord(q), word);
        EXPECT_NE(q.filter, UnsharpParams::Custom);
    }
    EXPECT_FALSE(ParseUnsharp("Operation : Blur#", &back, &error));
    EXPECT_FALSE(ParseUnsharp("Operation : Sharpen#Window Size : 3x3#Unsharp Filter : Box#"
                              "Background Weight : 0.5000#Reduce Artifacts : No#",
                              &back, &error));
    EXPECT_NE(error.find("filter strength"), std::string::npos) << error;
    EXPECT_EQ(BinomialRow(7), (std::vector<double>{1, 6, 15, 20, 15, 6, 1}));
    EXPECT_EQ(BinomialRow(9)[4], 70.0);
}

TEST(UnsharpMask, ReplayGivesTheOperatorFunctionsPixels) {
    for (bool color : {false, true})
        for (int filter = 1; filter <= 4; ++filter) {
            RecordingNotify notify;
            CProcessWindow w(&notify);
            MakeImage(w.image, 33, 19, color ? ColorRGB : ColorGray, Ramp);
            w.BeginHistory("Read");
            UnsharpParams p;
            p.filter = filter;
            p.radius = 2;
            p.backgroundWeight = 0.8;
            p.variant = filter == 4 ? UnsharpParams::Binarization : UnsharpParams::Sharpen;
            p.threshold = 9000;
            ASSERT_TRUE(w.UnsharpMask(p));
            ASSERT_EQ(w.history.size(), 2u);
            EXPECT_EQ(w.history[1].operation, "Unsharp Mask");
            EXPECT_EQ(w.history[1].parameters, FormatUnsharp(p));
            Image again;
            MakeImage(again, 33, 19, color ? ColorRGB : ColorGray, Ramp);
            std::string error;
            ASSERT_TRUE(again.ApplyCommand(w.history[1], nullptr, nullptr, nullptr, &error))
                << error;
            for (int s : again.Slots())
                for (int i = 0; i < 33 * 19; ++i)
                    ASSERT_EQ(again.curPlane[s][i], w.image.curPlane[s][i]);
        }
}
