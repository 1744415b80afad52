// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Reduce High, Low, Bloom Pixel: hot, cold and paired pixels, bloom streaks with the
/// 50-value limit, the three default entries, the text and its replay.
#include <gtest/gtest.h>

#include <functional>

#include "TestSupport.h"
#include "engine/ProcessStructure.h"
#include "engine/ProcessWindow.h"
#include "operators/ReducePixels.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

using Fill = std::function<double(int x, int y)>;

struct Expect {
    int x, y;
    double value;
};

/// Runs the pixel function on a w x h mono image made by `fill`; every pixel listed in
/// `changed` must hold its value, every other its input.
void Check(int w, int h, const Fill& fill, const ReducePixelsParams& p,
           const std::vector<Expect>& changed) {
    Image img;
    MakeImage(img, w, h, ColorGray, [&](int, int x, int y) { return fill(x, y); });
    ASSERT_TRUE(img.ReduceHighLow(false, img.prevPlane[0], img.curPlane[0], p.reduce, p.lowStrength,
                                  p.difference, p.windowSize, p.effectSize));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            double want = static_cast<float>(fill(x, y));
            for (const Expect& e : changed)
                if (e.x == x && e.y == y)
                    want = static_cast<float>(e.value);
            ASSERT_EQ(img.curPlane[0][y * w + x], static_cast<float>(want))
                << "at (" << x << ", " << y << ")";
            ASSERT_EQ(img.prevPlane[0][y * w + x], static_cast<float>(fill(x, y)))
                << "the input stays in the previous plane";
        }
}

ReducePixelsParams Params(ReducePixelKind kind, bool low, double d, int window, int effect) {
    ReducePixelsParams p;
    p.reduce = kind;
    p.lowStrength = low;
    p.difference = d;
    p.windowSize = window;
    p.effectSize = effect;
    return p;
}

/// Background rising with the square of x: the effect window about x = 3 holds the columns
/// 1010, 1040, 1090, 1160, 1250 five times each, the centre's 1090 four times.
double SquareX(int x, int) {
    return 1000.0 + 10.0 * x * x;
}

} // namespace

TEST(ReducePixels, HighLowAndBothFindTheirPixels) {
    using K = ReducePixelKind;
    const Fill hot = [](int x, int y) { return x == 3 && y == 3 ? 30000.0 : SquareX(x, y); };
    const Fill cold = [](int x, int y) { return x == 3 && y == 3 ? 100.0 : SquareX(x, y); };
    const Fill tilted = [](int x, int y) {
        return x == 3 && y == 3 ? 30000.0 : 1000.0 + 10.0 * x + 100.0 * y;
    };
    // Median: index 11 of the 24 sorted values is 1090; mean: 26660 / 24.
    const double median = 1090.0, mean = 26660.0 / 24.0;
    struct Case {
        const char* what;
        Fill fill;
        ReducePixelsParams p;
        std::vector<Expect> changed;
    };
    const Case cases[] = {
        {"hot pixel, median", hot, Params(K::High, false, 0.5, 5, 5), {{3, 3, median}}},
        {"hot pixel, mean", hot, Params(K::High, true, 0.5, 5, 5), {{3, 3, mean}}},
        {"hot pixel, Both", hot, Params(K::Both, false, 0.5, 5, 5), {{3, 3, median}}},
        {"hot pixel is not low", hot, Params(K::Low, false, 0.5, 5, 5), {}},
        {"cold pixel, Low", cold, Params(K::Low, false, 0.5, 5, 5), {{3, 3, median}}},
        {"cold pixel, Both mean", cold, Params(K::Both, true, 0.5, 5, 5), {{3, 3, mean}}},
        {"cold pixel is not high", cold, Params(K::High, false, 0.5, 5, 5), {}},
        // H = trunc(0.03 * 30000) = 900 is below every neighbour: not found.
        {"difference too small", hot, Params(K::High, false, 0.03, 5, 5), {}},
        // Effect 3 x 3: columns 1040, 1090, 1160 three times, centre's twice; index 3.
        {"effect 3 x 3", hot, Params(K::High, false, 0.5, 3, 3), {{3, 3, 1090.0}}},
        // A plane of distinct values: 1220, 1230, 1240, 1320, 1340, 1420, 1430, 1440 about
        // (3, 3); the lower median (index 3) is 1320, the mean 1330.
        {"lower median", tilted, Params(K::High, false, 0.5, 3, 3), {{3, 3, 1320.0}}},
        {"mean of distinct values", tilted, Params(K::High, true, 0.5, 3, 3), {{3, 3, 1330.0}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Check(7, 7, c.fill, c.p, c.changed);
    }
}

TEST(ReducePixels, PairedHotPixelsUseTheOneSidedSetsAndEdgesStay) {
    const ReducePixelsParams p = Params(ReducePixelKind::High, false, 0.5, 5, 5);
    // Two hot pixels side by side: each has the other as a neighbour, so "all eight" fails,
    // but the sets of the far side find both; the window median is the background.
    Check(9, 7, [](int x, int y) { return y == 3 && (x == 3 || x == 4) ? 30000.0 : 1000.0; }, p,
          {{3, 3, 1000.0}, {4, 3, 1000.0}});
    // A step edge: every set of a bright pixel holds a bright neighbour; nothing changes.
    Check(9, 7, [](int x, int) { return x < 4 ? 1000.0 : 30000.0; }, p, {});
    // A flat zero image: H of 0 reaches every neighbour, and the median of zeros is 0.
    Check(5, 5, [](int, int) { return 0.0; }, p, {});
}

TEST(ReducePixels, BloomStreakTakesTheMeanOfUnmarkedValues) {
    // Rows rise with the square of y: 1010, 1040, 1090, 1160, 1250 for y = 1..5.
    const Fill streak = [](int x, int y) {
        return y == 3 && x >= 3 && x <= 5 ? 60000.0 : 1000.0 + 10.0 * y * y;
    };
    // Small bloom (T = 0.4 * 65535): the three streak pixels are marked. Each 5 x 5 window
    // holds 22 unmarked values: four full rows and two of row 3.
    const double small = (5.0 * (1010 + 1040 + 1160 + 1250) + 2.0 * 1090) / 22.0;
    Check(9, 7, streak, Params(ReducePixelKind::Bloom, false, 0.6, 5, 5),
          {{3, 3, small}, {4, 3, small}, {5, 3, small}});
    // With a difference of 0.9 the threshold is limited to 0.15 * 65535 and still finds it;
    // with 0.05 it is 0.95 * 65535, above the streak's rise: nothing is marked.
    Check(9, 7, streak, Params(ReducePixelKind::Bloom, false, 0.9, 5, 5),
          {{3, 3, small}, {4, 3, small}, {5, 3, small}});
    Check(9, 7, streak, Params(ReducePixelKind::Bloom, false, 0.05, 5, 5), {});

    // Large bloom, effect 11 x 11: only the first 50 unmarked values count, in row order:
    // rows 2 to 5 whole (1040, 1090, 1160, 1250) and six of row 6 (1360).
    const Fill tall = [](int x, int y) {
        return y == 7 && x == 7 ? 65000.0 : 1000.0 + 10.0 * y * y;
    };
    const double large = (11.0 * (1040 + 1090 + 1160 + 1250) + 6.0 * 1360) / 50.0;
    Check(15, 15, tall, Params(ReducePixelKind::Bloom, false, 0.084, 9, 11), {{7, 7, large}});
}

TEST(ReducePixels, DefaultEntriesAreExact) {
    const std::vector<std::string> expected = {
        "Default High Pixel Reduction#Reduce : High#Reduce Strength : Normal#Difference : "
        "0.50000#Window Size : 5 x 5#Effect Size : 5 x 5#",
        "Default Small Bloom Pixel Reduction#Reduce : Bloom#Reduce Strength : Normal#"
        "Difference : 0.60000#Window Size : 5 x 5#Effect Size : 5 x 5#",
        "Default Large Bloom Pixel Reduction#Reduce : Bloom#Reduce Strength : Normal#"
        "Difference : 0.08400#Window Size : 9 x 9#Effect Size : 11 x 11#",
    };
    EXPECT_EQ(ReducePixelsDefaultPresets(), expected);
    for (const std::string& e : expected) {
        std::string name;
        ReducePixelsParams p;
        ASSERT_TRUE(ParseReducePixelsPreset(e, &name, &p, nullptr)) << e;
        EXPECT_TRUE(IsReducePixelsDefaultName(name));
        EXPECT_EQ(FormatReducePixelsPreset(name, p), e) << "the entry survives a round trip";
    }
    EXPECT_FALSE(IsReducePixelsDefaultName("My Reduction"));
}

TEST(ReducePixels, DefaultEntriesReplayAsTheOperatorRuns) {
    // Colour scene: hot and cold pixels, a streak, a gradient.
    auto fill = [](int s, int x, int y) {
        if (y == 4 && x >= 6 && x <= 9)
            return 64000.0;
        if (x == 3 && y == 9)
            return 40000.0 + s;
        if (x == 12 && y == 12)
            return 50.0;
        return 2000.0 + 40.0 * x + 17.0 * y + 300.0 * s;
    };
    for (const std::string& entry : ReducePixelsDefaultPresets()) {
        SCOPED_TRACE(entry);
        std::string name, error;
        ReducePixelsParams p;
        ASSERT_TRUE(ParseReducePixelsPreset(entry, &name, &p, &error)) << error;
        const std::string text = entry.substr(entry.find('#') + 1);

        CProcessWindow w;
        MakeImage(w.image, 18, 16, ColorRGB, fill);
        w.BeginHistory("Read");
        ASSERT_TRUE(w.ReducePixels(p));
        ASSERT_EQ(w.history.size(), 2u);
        EXPECT_EQ(w.history[1].operation, kReducePixelsName);
        EXPECT_EQ(w.history[1].parameters, text);

        Image replayed;
        MakeImage(replayed, 18, 16, ColorRGB, fill);
        CProcessStructure r;
        r.operation = kReducePixelsName;
        r.parameters = text;
        ASSERT_TRUE(replayed.ApplyCommand(r, nullptr, nullptr, nullptr, &error)) << error;
        int changed = 0;
        for (int s = 0; s < 3; ++s)
            for (std::uint32_t i = 0; i < replayed.pixelCount; ++i) {
                ASSERT_EQ(replayed.curPlane[s][i], w.image.curPlane[s][i]) << s << " " << i;
                changed += replayed.curPlane[s][i] != replayed.prevPlane[s][i];
            }
        EXPECT_GT(changed, 0) << "each default entry finds something in the scene";
    }
}

TEST(ReducePixels, BadTextsAreRefused) {
    const char* bad[] = {
        "",
        "Reduce : Medium#Reduce Strength : Normal#Difference : 0.50000#Window Size : 5 x 5#"
        "Effect Size : 5 x 5#",
        "Reduce : High#Reduce Strength : Strong#Difference : 0.50000#Window Size : 5 x 5#"
        "Effect Size : 5 x 5#",
        "Reduce : High#Reduce Strength : Normal#Difference : abc#Window Size : 5 x 5#"
        "Effect Size : 5 x 5#",
        "Reduce : High#Reduce Strength : Normal#Difference : 1.50000#Window Size : 5 x 5#"
        "Effect Size : 5 x 5#",
        "Reduce : High#Reduce Strength : Normal#Difference : 0.50000#Window Size : 4 x 4#"
        "Effect Size : 5 x 5#",
        "Reduce : High#Reduce Strength : Normal#Difference : 0.50000#Window Size : 5 x 7#"
        "Effect Size : 5 x 5#",
        "Reduce : High#Reduce Strength : Normal#Difference : 0.50000#Window Size : 5 x 5#"
        "Effect Size : 13 x 13#",
        "Reduce : High#Reduce Strength : Normal#Difference : 0.50000#Window Size : 5 x 5#",
    };
    for (const char* text : bad) {
        SCOPED_TRACE(text);
        ReducePixelsParams p;
        std::string error;
        EXPECT_FALSE(ParseReducePixels(text, &p, &error));
        EXPECT_NE(error.find(kReducePixelsName), std::string::npos) << error;
        Image img;
        MakeImage(img, 5, 5, ColorGray,
                  [](int, int x, int y) { return x == 2 && y == 2 ? 9e3 : 1e3; });
        CProcessStructure r;
        r.operation = kReducePixelsName;
        r.parameters = text;
        EXPECT_FALSE(img.ApplyCommand(r, nullptr, nullptr, nullptr, &error));
        EXPECT_EQ(img.curPlane[0][12], 9e3f) << "a refused text changes nothing";
    }
    std::string name;
    ReducePixelsParams p;
    EXPECT_FALSE(ParseReducePixelsPreset("#Reduce : High#", &name, &p, nullptr));
    // The operator function refuses out-of-range values before any step.
    CProcessWindow w;
    MakeImage(w.image, 5, 5, ColorGray, [](int, int, int) { return 1e3; });
    w.BeginHistory("Read");
    p = ReducePixelsParams{};
    p.effectSize = 4;
    EXPECT_FALSE(w.ReducePixels(p));
    EXPECT_EQ(w.history.size(), 1u);
}
