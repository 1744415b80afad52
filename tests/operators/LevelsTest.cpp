// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Levels: the transfer function against the plain rule, the guards, the planes each
/// colour mode takes, the master set editing rules, the entry checks, the gamma slider, the
/// text and its replay.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "TestSupport.h"
#include "engine/ProcessStructure.h"
#include "engine/ProcessWindow.h"
#include "operators/Curves.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

/// The rule written out plainly: the oracle of the pixel function.
float Oracle(const LevelsSet& s, double p, double top = 65535.0) {
    const double bg = s.blackGamma == 0.0 ? 0.001 : s.blackGamma;
    const double wg = s.whiteGamma == 0.0 ? 0.001 : s.whiteGamma;
    const double lw = s.midtone - s.black == 0 ? 0.01 : s.midtone - s.black;
    const double hw = s.white - s.midtone == 0 ? 0.01 : s.white - s.midtone;
    double r;
    if (p <= s.black)
        r = s.outputBlack;
    else if (p <= s.midtone)
        r = std::pow((p - s.black) / lw, bg) * (s.midtoneIntensity - s.outputBlack) + s.outputBlack;
    else if (p < s.white)
        r = std::pow((p - s.midtone) / hw, wg) * (s.outputWhite - s.midtoneIntensity) +
            s.midtoneIntensity;
    else
        r = s.outputWhite;
    return static_cast<float>(std::min(std::max(r, 0.0), top));
}

void Apply(Image& img, int slot, const LevelsSet& s) {
    img.ApplyLevels(false, img.prevPlane[slot], img.curPlane[slot], s.black, s.midtone,
                    s.midtoneIntensity, s.blackGamma, s.whiteGamma, s.white, s.outputBlack,
                    s.outputWhite);
}

LevelsSet Set(int black, int mid, int intensity, double bg, double wg, int white, int ob, int ow) {
    LevelsSet s;
    s.black = black;
    s.midtone = mid;
    s.midtoneIntensity = intensity;
    s.blackGamma = bg;
    s.whiteGamma = wg;
    s.white = white;
    s.outputBlack = ob;
    s.outputWhite = ow;
    return s;
}

float Mixed(int, int x, int y) {
    // Integer levels over the whole range, with fractional and out-of-range values mixed in.
    const int i = y * 600 + x;
    if (i % 97 == 0)
        return static_cast<float>(i % 65536) + 0.375f;
    if (i % 1013 == 0)
        return -3.0f;
    if (i % 1019 == 0)
        return 70000.5f;
    return static_cast<float>((i * 7) % 65536);
}

} // namespace

TEST(Levels, DefaultsKeepTheImage) {
    // Small (plain loop) and large (integer levels looked up) images alike.
    for (int rows : {4, 500}) {
        Image img;
        MakeImage(img, 600, rows, ColorGray, [](int s, int x, int y) {
            const float v = Mixed(s, x, y);
            return v < 0 || v > 65535 ? 1234.5f : v;
        });
        Apply(img, 0, LevelsSet{});
        for (std::uint32_t i = 0; i < img.pixelCount; ++i) {
            const float p = img.prevPlane[0][i];
            ASSERT_NEAR(img.curPlane[0][i], p, std::max(1e-7f * p, 1e-6f)) << i;
        }
    }
}

TEST(Levels, MatchesThePlainRule) {
    const LevelsSet cases[] = {
        Set(1000, 1000, 30000, 2.0, 0.5, 3000, 100, 65000),  // Midtone equal to Black
        Set(0, 32767, 32767, 0.0, 1.0, 65535, 0, 65535),     // gamma 0 -> 0.001
        Set(100, 30000, 20000, 2.2, 0.4, 60000, 50, 64000),  // both gammas
        Set(5000, 40000, 40000, 1.0, 0.0, 40000, 0, 65535),  // Midtone equal to White
        Set(0, 32767, 60000, 1.0, 1.0, 65535, 70000, 90000), // outputs clamp to the maximum
        Set(20000, 30000, 10000, 3.0, 3.0, 50000, 65535, 0), // inverted output
    };
    for (const LevelsSet& s : cases)
        for (int rows : {3, 500}) {
            Image img;
            MakeImage(img, 600, rows, ColorGray, Mixed);
            Apply(img, 0, s);
            for (std::uint32_t i = 0; i < img.pixelCount; ++i)
                ASSERT_EQ(img.curPlane[0][i], Oracle(s, img.prevPlane[0][i]))
                    << "pixel " << i << " value " << img.prevPlane[0][i] << " black " << s.black;
        }
}

TEST(Levels, FractionalPlanesEqualThePlainPowerForm) {
    // Fractional values everywhere (the power is evaluated per pixel), on a small image and on
    // one large enough for the integer-level table; near the segment ends too.
    const LevelsSet cases[] = {
        Set(1200, 9000, 30000, 0.8, 1.3, 60000, 0, 65535),
        Set(100, 30000, 20000, 2.2, 0.4, 60000, 50, 64000),
        Set(0, 32767, 32767, 0.0, 1.0, 65535, 0, 65535),
        Set(20000, 30000, 10000, 3.0, 3.0, 50000, 65535, 0),
        Set(1000, 2000, 40000, 1.0, 1.0, 3000, 0, 65535),
        Set(500, 700, 1000, 9.5, 0.05, 900, 0, 65535),
        Set(0, 65535, 65535, 0.999, 1.001, 65535, 0, 65535),
        Set(1, 2, 30000, 100.0, 1e-4, 65535, 0, 65535),
    };
    std::mt19937 rng(17);
    std::uniform_real_distribution<float> any(-10.0f, 70000.0f), unit(0.0f, 1.0f);
    for (const LevelsSet& s : cases)
        for (int rows : {7, 440}) {
            const int ends[] = {s.black, s.midtone, s.white};
            Image img;
            MakeImage(img, 600, rows, ColorGray, [&](int, int x, int) {
                if (x % 5 == 0) // within a few levels of a segment end
                    return ends[x % 3] + (unit(rng) - 0.5f) * 8.0f;
                if (x % 7 == 0) // within a hair of one
                    return ends[x % 3] + (unit(rng) - 0.5f) * 1e-3f;
                return any(rng);
            });
            Apply(img, 0, s);
            long mismatches = 0;
            for (std::uint32_t i = 0; i < img.pixelCount; ++i)
                if (img.curPlane[0][i] != Oracle(s, img.prevPlane[0][i]) && ++mismatches < 5)
                    ADD_FAILURE() << "value " << img.prevPlane[0][i] << " gives "
                                  << img.curPlane[0][i] << ", the plain form "
                                  << Oracle(s, img.prevPlane[0][i]) << " (gammas " << s.blackGamma
                                  << ", " << s.whiteGamma << ")";
            EXPECT_EQ(mismatches, 0);
        }
}

TEST(Levels, SubnormalAndSpecialValuesEqualThePlainPowerForm) {
    const float special[] = {1e-45f,
                             1e-40f,
                             1e-30f,
                             -0.0f,
                             0.0f,
                             0.5f,
                             1.0f,
                             65535.0f,
                             std::numeric_limits<float>::infinity(),
                             -std::numeric_limits<float>::infinity(),
                             std::numeric_limits<float>::quiet_NaN(),
                             65534.99f,
                             3e38f};
    for (const LevelsSet& s : {Set(0, 30000, 30000, 0.5, 2.0, 65535, 0, 65535),
                               Set(0, 10, 30000, 0.5, 2.0, 65535, 100, 65535)}) {
        Image img;
        MakeImage(img, 13, 8, ColorGray, [&](int, int x, int) { return special[x]; });
        Apply(img, 0, s);
        for (std::uint32_t i = 0; i < img.pixelCount; ++i) {
            const float expect = Oracle(s, img.prevPlane[0][i]);
            if (std::isnan(expect))
                EXPECT_TRUE(std::isnan(img.curPlane[0][i])) << i;
            else
                EXPECT_EQ(img.curPlane[0][i], expect) << "value " << img.prevPlane[0][i];
        }
    }
}

TEST(Levels, EdgeValues) {
    struct Case {
        LevelsSet set;
        float p;
        float expect;
    };
    const LevelsSet s = Set(100, 30000, 20000, 2.2, 0.4, 60000, 50, 64000);
    const LevelsSet flat = Set(1000, 1000, 30000, 2.0, 0.5, 3000, 100, 65000);
    const LevelsSet g0 = Set(0, 32767, 32767, 0.0, 1.0, 65535, 0, 65535);
    const Case cases[] = {
        {s, 60000, 64000}, // at White: Output White
        {s, 30000, 20000}, // at Midtone: Midtone Intensity
        {s, 100, 50},      // at Black: Output Black
        {s, 65535, 64000}, // above White
        {flat, 1000, 100}, // Midtone = Black: Black itself is Output Black...
        {flat, 1001, 30000 + std::pow(1.0 / 2000, 0.5) * 35000}, // ...and above it step 3
        {flat, 3000, 65000},
        {g0, 100, static_cast<float>(std::pow(100.0 / 32767, 0.001) * 32767)},
    };
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, 1, 1, ColorGray, [&](int, int, int) { return c.p; });
        Apply(img, 0, c.set);
        EXPECT_FLOAT_EQ(img.curPlane[0][0], c.expect) << c.p;
    }
    // A gamma of 0 lifts the whole lower segment to nearly its top.
    Image img;
    MakeImage(img, 1, 1, ColorGray, [](int, int, int) { return 1.0f; });
    Apply(img, 0, g0);
    EXPECT_GT(img.curPlane[0][0], 32400);
    EXPECT_LT(img.curPlane[0][0], 32767);
}

TEST(Levels, ClampsToTheImagesMaximum) {
    Image img;
    MakeImage(img, 2, 1, ColorGray, [](int, int x, int) { return x == 0 ? 100.0f : 4000.0f; });
    img.maxValue = 4095;
    Apply(img, 0, Set(0, 1000, 3000, 1.0, 1.0, 2000, 0, 65535));
    EXPECT_FLOAT_EQ(img.curPlane[0][0], 300);
    EXPECT_FLOAT_EQ(img.curPlane[0][1], 4095);
}

TEST(Levels, PendingReadsThePreviousPlaneOnly) {
    Image img;
    MakeImage(img, 2, 1, ColorGray, [](int, int x, int) { return 1000.0f * (x + 1); });
    const LevelsSet s = Set(0, 32767, 32767, 1.0, 1.0, 65535, 500, 65535);
    img.curPlane[0][0] = 9999; // what a first application left
    img.ApplyLevels(true, img.prevPlane[0], img.curPlane[0], s.black, s.midtone, s.midtoneIntensity,
                    s.blackGamma, s.whiteGamma, s.white, s.outputBlack, s.outputWhite);
    EXPECT_FLOAT_EQ(img.curPlane[0][0], Oracle(s, 1000));
    EXPECT_FLOAT_EQ(img.prevPlane[0][0], 1000);
}

TEST(LevelsEditing, MasterFoldRules) {
    struct Case {
        LevelsEntry entry;
        const char* channel;
        double value;
        double master; // expected afterwards
    };
    using E = LevelsEntry;
    // Each row continues from the state the rows before it left.
    const Case cases[] = {
        {E::Black, "Red", 500, 500},   // the largest
        {E::Black, "Green", 300, 500}, // still Red's
        {E::Black, "Red", 100, 500},   // the old master holds: channels moved back below it
        {E::OutputBlack, "Blue", 700, 700},
        {E::White, "Red", 60000, 60000}, // the smallest
        {E::White, "Red", 65535, 60000}, // the old master holds
        {E::Midtone, "Green", 20000, 20000},
        {E::MidtoneIntensity, "Blue", 40000, 32767}, // 32767 of the old master is smaller
        {E::MidtoneIntensity, "Blue", 1000, 1000},
        {E::OutputWhite, "Green", 50000, 50000},
        {E::BlackGamma, "Red", 2.5, 1.0}, // gammas: the master is unchanged
        {E::WhiteGamma, "Blue", 0.2, 1.0},
    };
    LevelsParams p;
    for (const Case& c : cases) {
        SetLevelsValue(&p, c.channel, c.entry, c.value);
        EXPECT_DOUBLE_EQ(LevelsValue(p.sets[0], c.entry), c.master)
            << LevelsEntryName(c.entry) << " " << c.channel << " " << c.value;
        EXPECT_DOUBLE_EQ(LevelsValue(p.sets[LevelsSetOfChannel(c.channel)], c.entry), c.value);
    }
    EXPECT_DOUBLE_EQ(p.sets[1].blackGamma, 2.5);
    // "Monochrome" edits the Red set.
    SetLevelsValue(&p, "Monochrome", E::OutputBlack, 900);
    EXPECT_EQ(p.sets[1].outputBlack, 900);
    EXPECT_EQ(p.sets[0].outputBlack, 900);
}

TEST(LevelsEditing, MasterDeltaGoesToEveryChannelClamped) {
    LevelsParams p;
    SetLevelsValue(&p, "Red", LevelsEntry::Black, 1000); // master 1000
    SetLevelsValue(&p, "RGB", LevelsEntry::Black, 1500); // +500
    EXPECT_EQ(p.sets[0].black, 1500);
    EXPECT_EQ(p.sets[1].black, 1500);
    EXPECT_EQ(p.sets[2].black, 500);
    EXPECT_EQ(p.sets[3].black, 500);
    SetLevelsValue(&p, "RGB", LevelsEntry::Black, 200); // -1300: Green and Blue stop at 0
    EXPECT_EQ(p.sets[1].black, 200);
    EXPECT_EQ(p.sets[2].black, 0);
    EXPECT_EQ(p.sets[3].black, 0);

    SetLevelsValue(&p, "Blue", LevelsEntry::OutputWhite, 65000); // master 65000
    SetLevelsValue(&p, "RGB", LevelsEntry::OutputWhite, 65535);  // +535: Blue 65535, others top
    EXPECT_EQ(p.sets[1].outputWhite, 65535);
    EXPECT_EQ(p.sets[3].outputWhite, 65535);

    SetLevelsValue(&p, "Red", LevelsEntry::BlackGamma, 2.0);
    SetLevelsValue(&p, "RGB", LevelsEntry::BlackGamma, 9.5); // +8.5
    EXPECT_DOUBLE_EQ(p.sets[0].blackGamma, 9.5);
    EXPECT_DOUBLE_EQ(p.sets[1].blackGamma, 10.0);
    EXPECT_DOUBLE_EQ(p.sets[2].blackGamma, 9.5);
}

TEST(LevelsEditing, MidtoneFollowsBlackAndWhite) {
    struct Case {
        int black, midtone, white;
        bool moveWhite;
        int to;
        int expectMidtone;
    };
    const Case cases[] = {
        {0, 32767, 65535, false, 1000, 33267}, // keeps 32767 / 65535 of the width
        {0, 16000, 64000, true, 32000, 8000},  // a quarter stays a quarter
        {0, 0, 1000, true, 2000, 1000},        // fraction 0: the middle
        {500, 500, 500, true, 600, 550},       // width below 1: the middle
        {100, 400, 900, true, 100, 100},       // White = Black: Midtone is White
        {0, 150, 100, false, 50, 100},         // limited to White
    };
    for (const Case& c : cases) {
        LevelsSet s;
        s.black = c.black;
        s.midtone = c.midtone;
        s.white = c.white;
        MoveLevelsEnd(&s, c.moveWhite, c.to);
        EXPECT_EQ(s.midtone, c.expectMidtone) << c.black << " " << c.midtone << " " << c.white;
    }
    // Through the master: every set's Midtone follows its own Black.
    LevelsParams p;
    SetLevelsValue(&p, "RGB", LevelsEntry::White, 32767);
    for (const LevelsSet& s : p.sets) {
        EXPECT_EQ(s.white, 32767);
        EXPECT_EQ(s.midtone, 16383);
    }
}

TEST(LevelsEditing, EntryChecksAndTheirTexts) {
    LevelsSet s;
    s.black = 1000;
    s.midtone = 20000;
    s.white = 50000;
    struct Case {
        LevelsEntry entry;
        const char* text;
        bool ok;
        double value;
        const char* message;
    };
    using E = LevelsEntry;
    const Case cases[] = {
        {E::Black, "", false, 0, "Please enter a value or use the slider."},
        {E::WhiteGamma, "  ", false, 0, "Please enter a value or use the slider."},
        {E::Black, "12x", false, 0,
         "Please enter an integer value for black such that\n 0 <= Black <= white value 50000."},
        {E::Black, "-5", false, 0,
         "Please enter an integer value for black such that\n 0 <= Black <= white value 50000."},
        {E::Black, "50001", false, 0, "Please enter a value less than the white value."},
        {E::Black, " 400 ", true, 400, ""},
        {E::White, "2.5", false, 0,
         "Please enter an integer value for White such that\n 1000 <= White <= max value "
         "65535."},
        {E::White, "70000", false, 0,
         "Please enter an integer value for White such that\n 1000 <= White <= max value "
         "65535."},
        {E::White, "999", false, 0, "Please enter a value less than the black value."},
        {E::White, "65535", true, 65535, ""},
        {E::Midtone, "abc", false, 0,
         "Please enter an integer value for Midtone such that\n 1000 Black <= Midtone <= 50000 "
         "White."},
        {E::Midtone, "60000", false, 0, "Please enter a value between black and white."},
        {E::Midtone, "999", false, 0, "Please enter a value between black and white."},
        {E::Midtone, "1000", true, 1000, ""},
        {E::BlackGamma, "10.5", false, 0,
         "Please enter a value for Gamma such that\n 0.0 <= Gamma <= 10.0"},
        {E::WhiteGamma, "-0.1", false, 0,
         "Please enter a value for Gamma such that\n 0.0 <= Gamma <= 10.0"},
        {E::WhiteGamma, "0.25", true, 0.25, ""},
        {E::MidtoneIntensity, "65536", false, 0,
         "Please enter an integer value X such that\n 0 <= X <= 65535."},
        {E::OutputBlack, "1e3", false, 0,
         "Please enter an integer value X such that\n 0 <= X <= 65535."},
        {E::OutputWhite, "0", true, 0, ""},
    };
    for (const Case& c : cases) {
        double value = -1;
        std::string message;
        EXPECT_EQ(ValidateLevelsEntry(s, c.entry, c.text, 65535, &value, &message), c.ok) << c.text;
        if (c.ok)
            EXPECT_DOUBLE_EQ(value, c.value) << c.text;
        else
            EXPECT_EQ(message, c.message) << c.text;
    }
}

TEST(LevelsEditing, GammaSlider) {
    const std::pair<int, double> points[] = {{0, 0.0},   {250, 0.5}, {499, 0.998}, {500, 1.0},
                                             {600, 2.8}, {750, 5.5}, {1000, 10.0}};
    for (const auto& [position, gamma] : points) {
        EXPECT_DOUBLE_EQ(GammaFromSlider(position), gamma) << position;
        EXPECT_EQ(SliderFromGamma(gamma), position) << gamma;
    }
    EXPECT_EQ(FormatGamma(1.0), "1.0000");
    EXPECT_EQ(FormatGamma(0.25), "0.2500");
    EXPECT_EQ(FormatGamma(10.0), "10.0000");
}

TEST(LevelsText, TemplateAndParse) {
    LevelsParams p;
    const std::string defaults =
        "Channel : RGB#Level :Black#"
        "RGB LEVELS#  Black : 0#  MidTone : 32767#  MidTone Intensity : 32767#  White : 65535#"
        "  Black Gamma : 1.00000#  White Gamma : 1.00000#  Output Black : 0#"
        "  Output White : 65535#"
        "RED LEVELS#  Black : 0#  MidTone : 32767#  MidTone Intensity : 32767#  White : 65535#"
        "  Black Gamma : 1.00000#  White Gamma : 1.00000#  Output Black : 0#"
        "  Output White : 65535#"
        "GREEN LEVELS#  Black : 0#  MidTone : 32767#  MidTone Intensity : 32767#"
        "  White : 65535#  Black Gamma : 1.00000#  White Gamma : 1.00000#  Output Black : 0#"
        "  Output White : 65535#"
        "BLUE LEVELS#  Black : 0#  MidTone : 32767#  MidTone Intensity : 32767#  White : 65535#"
        "  Black Gamma : 1.00000#  White Gamma : 1.00000#  Output Black : 0#"
        "  Output White : 65535#";
    EXPECT_EQ(FormatLevels(p), defaults);

    p.channel = "Blue";
    p.level = LevelsEntry::MidtoneIntensity;
    p.sets[3] = Set(12, 345, 6789, 0.125, 7.5, 40000, 3, 65000);
    LevelsParams back;
    ASSERT_TRUE(ParseLevels(FormatLevels(p), &back, nullptr));
    EXPECT_EQ(back.channel, "Blue");
    EXPECT_EQ(back.level, LevelsEntry::MidtoneIntensity);
    EXPECT_EQ(back.sets[3].black, 12);
    EXPECT_EQ(back.sets[3].midtone, 345);
    EXPECT_EQ(back.sets[3].midtoneIntensity, 6789);
    EXPECT_EQ(back.sets[3].white, 40000);
    EXPECT_DOUBLE_EQ(back.sets[3].blackGamma, 0.125);
    EXPECT_DOUBLE_EQ(back.sets[3].whiteGamma, 7.5);
    EXPECT_EQ(back.sets[3].outputBlack, 3);
    EXPECT_EQ(back.sets[3].outputWhite, 65000);

    std::string error;
    EXPECT_FALSE(ParseLevels("Channel : RGB#Level :Black#RGB LEVELS#  Black : 0#", &back, &error));
    EXPECT_NE(error.find("RGB LEVELS"), std::string::npos) << error;
    EXPECT_FALSE(ParseLevels("Channel : RGB#Level :Blackest#", &back, &error));
    EXPECT_NE(error.find("level"), std::string::npos) << error;
}

TEST(LevelsOperator, PlanesByColourModeAndReplayIsBitIdentical) {
    LevelsParams p;
    p.sets[0] = Set(0, 100, 100, 1.0, 1.0, 200, 0, 65535); // recorded, never applied
    p.sets[1] = Set(1000, 20000, 30000, 0.7, 1.6, 50000, 200, 64000);
    p.sets[2] = Set(3000, 10000, 15000, 2.0, 0.0, 60000, 0, 60000);
    p.sets[3] = Set(0, 0, 40000, 0.0, 0.5, 30000, 1000, 65535);
    struct Case {
        std::uint32_t type;
        int setOfSlot[3];
    };
    const Case cases[] = {{ColorRGB, {1, 2, 3}},
                          {ColorGray, {1, 0, 0}},
                          {ColorRed, {1, 0, 0}},
                          {ColorGreen, {0, 2, 0}},
                          {ColorYellow, {0, 0, 3}}};
    for (const Case& c : cases) {
        CProcessWindow w;
        MakeImage(w.image, 300, 20, c.type, Mixed);
        w.BeginHistory("Read");
        ASSERT_TRUE(w.Levels(p));
        ASSERT_EQ(w.history.size(), 2u);
        EXPECT_EQ(w.history[1].operation, "Levels");
        EXPECT_EQ(w.history[1].parameters, FormatLevels(p));
        for (int s : w.image.Slots())
            for (std::uint32_t i = 0; i < w.image.pixelCount; ++i)
                ASSERT_EQ(w.image.curPlane[s][i],
                          Oracle(p.sets[c.setOfSlot[s]], w.image.prevPlane[s][i]))
                    << "type " << c.type << " slot " << s;

        Image copy;
        MakeImage(copy, 300, 20, c.type, Mixed);
        CProcessStructure r;
        r.operation = "Levels";
        r.parameters = w.history[1].parameters;
        std::string error;
        ASSERT_TRUE(copy.ApplyCommand(r, nullptr, nullptr, nullptr, &error)) << error;
        for (int s : w.image.Slots())
            EXPECT_EQ(
                std::memcmp(copy.curPlane[s], w.image.curPlane[s], sizeof(float) * copy.pixelCount),
                0)
                << "type " << c.type << " slot " << s;
    }
}

TEST(LevelsOperator, RepeatWhilePendingStartsFromTheSameInput) {
    CProcessWindow w;
    MakeImage(w.image, 30, 10, ColorGray, Mixed);
    w.BeginHistory("Read");
    LevelsParams p;
    p.sets[1].outputBlack = 5000;
    ASSERT_TRUE(w.Levels(p));
    p.sets[1].outputBlack = 100;
    ASSERT_TRUE(w.Levels(p));
    EXPECT_EQ(w.history.size(), 2u) << "a live repeat edits the same step";
    for (std::uint32_t i = 0; i < w.image.pixelCount; ++i)
        ASSERT_EQ(w.image.curPlane[0][i], Oracle(p.sets[1], w.image.prevPlane[0][i]));
}

TEST(Levels, TableFormEqualsThePlainRuleAtEveryWidth) {
    // The table of large planes (cubic per unit interval, settled by its bound or evaluated by
    // the curve) against the rule written out, in each width the processor runs: whole and
    // fractional levels, values at, within a hair of and a few levels from each segment end,
    // subnormals, out-of-range values, and curves from both fixed and random settings.
    std::vector<LevelsSet> curves = {
        Set(1200, 9000, 30000, 0.8, 1.3, 60000, 0, 65535),
        Set(0, 32767, 32767, 0.0, 0.0, 65535, 0, 65535), // gammas 0 -> 0.001
        Set(100, 30000, 20000, 0.3, 2.7, 60000, 50, 64000),
        Set(500, 20000, 40000, 2.7, 0.3, 50000, 0, 65535),
        Set(0, 1, 30000, 1.0, 1.0, 65535, 0, 65535),
        Set(20000, 30000, 10000, 2.7, 1.0, 50000, 65535, 0), // inverted output
        Set(10, 200, 60000, 0.3, 0.3, 400, 70000, 90000),    // clamps to the maximum
        Set(3, 700, 1000, 9.5, 0.05, 900, 0, 65535),
    };
    std::mt19937 rng(29);
    const double gammas[] = {0.0, 0.3, 1.0, 2.7};
    for (int k = 0; k < 8; ++k) {
        std::uniform_int_distribution<int> level(0, 65535);
        int ends[3] = {level(rng), level(rng), level(rng)};
        std::sort(ends, ends + 3);
        if (ends[0] == ends[1] || ends[1] == ends[2])
            continue;
        const double bg = k < 4 ? gammas[k] : std::uniform_real_distribution<double>(0.05, 5)(rng);
        const double wg =
            k < 4 ? gammas[3 - k] : std::uniform_real_distribution<double>(0.05, 5)(rng);
        curves.push_back(Set(ends[0], ends[1], level(rng), bg, wg, ends[2], level(rng) / 4,
                             65535 - level(rng) / 4));
    }
    std::uniform_real_distribution<float> unit(0.0f, 1.0f), any(-5.0f, 66000.0f);
    for (const LevelsSet& s : curves) {
        std::vector<float> in;
        for (int end : {s.black, s.midtone, s.white}) {
            const float e = static_cast<float>(end);
            for (float d : {0.0f, 1e-3f, -1e-3f, 0.5f, -0.5f, 1.0f, -1.0f, 0.25f, 3.75f})
                in.push_back(e + d);
            in.push_back(std::nextafter(e, 0.0f));
            in.push_back(std::nextafter(e, 1e9f));
            for (int i = 0; i < 200; ++i)
                in.push_back(e + (unit(rng) - 0.5f) * 16.0f);
        }
        for (float v : {1e-45f, 1e-40f, 0.0f, -0.0f, 65535.0f, 65535.5f, 65536.0f, 65536.5f, 1e9f,
                        std::numeric_limits<float>::quiet_NaN()})
            in.push_back(v);
        for (int i = 0; i < 20000; ++i)
            in.push_back(i % 3 == 0 ? std::floor(any(rng)) : any(rng));
        for (int lanes : {1, 4, 8}) {
            std::vector<float> out(in.size(), -7.0f);
            if (!levels_testing::TableForm(s.black, s.midtone, s.midtoneIntensity, s.blackGamma,
                                           s.whiteGamma, s.white, s.outputBlack, s.outputWhite,
                                           65535.0, in.data(), out.data(), in.size(), lanes)) {
                EXPECT_NE(lanes, 1) << "the one-at-a-time form runs everywhere";
                continue;
            }
            long mismatches = 0;
            for (std::size_t i = 0; i < in.size(); ++i) {
                const float expect = Oracle(s, in[i]);
                const bool same =
                    std::isnan(expect) ? std::isnan(out[i]) : std::memcmp(&expect, &out[i], 4) == 0;
                if (!same && ++mismatches < 5)
                    ADD_FAILURE() << lanes << " lanes: value " << in[i] << " gives " << out[i]
                                  << ", the plain form " << expect << " (black " << s.black
                                  << ", midtone " << s.midtone << ", white " << s.white
                                  << ", gammas " << s.blackGamma << ", " << s.whiteGamma << ")";
            }
            EXPECT_EQ(mismatches, 0);
        }
    }
}

TEST(Levels, TableFormRefusesCurvesItCannotBound) {
    // Ends out of order or equal, or a gamma not positive and finite: the fast form instead.
    const float in[4] = {1.5f, 2.5f, 3.5f, 4.5f};
    float out[4];
    EXPECT_FALSE(levels_testing::TableForm(1000, 1000, 30000, 2.0, 0.5, 3000, 100, 65000, 65535.0,
                                           in, out, 4, 1));
    EXPECT_FALSE(levels_testing::TableForm(5000, 40000, 40000, 1.0, 1.0, 40000, 0, 65535, 65535.0,
                                           in, out, 4, 1));
    EXPECT_FALSE(
        levels_testing::TableForm(0, 100, 200, -1.0, 1.0, 300, 0, 65535, 65535.0, in, out, 4, 1));
    EXPECT_FALSE(levels_testing::TableForm(0, 100, 200, 1.0, 1.0, 300, 0, 65535, 65535.0, in, out,
                                           4, 3)); // no such width
    EXPECT_TRUE(
        levels_testing::TableForm(0, 100, 200, 1.0, 1.0, 300, 0, 65535, 65535.0, in, out, 4, 1));
}
