// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The 32 blend modes against plain formulas, opacity, flat masks, channel selection,
/// ShowMask and the blend step with its work rows.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "TestSupport.h"
#include "engine/Blend.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

double Clamp(double v) {
    return std::min(65535.0, std::max(0.0, v));
}

/// The blend modes 0..23 as the history text gives them, written out plainly: B from the
/// layer C (the pure result) and the base P (the input).
double Reference(int mode, double C, double P) {
    switch (mode) {
    case 0: // Normal
        return C;
    case 1: // Darken
        return std::min(C, P);
    case 2: // Multiply
        return C * P / 65535;
    case 3: // Color Burn, numerator in single precision
        return Clamp(C > 0 ? 65535 - static_cast<double>(static_cast<float>(65535 - P)) / C * 65535
                           : P);
    case 4: // Linear Burn
        return 65535 > C + P ? 0 : C + P - 65535;
    case 5: // Lighten
        return std::max(C, P);
    case 6: // Screen
        return 65535 - (65535 - C) * (65535 - P) / 65535;
    case 7: // Color Dodge, denominator in single precision
        return Clamp(65535 - C > 0 ? P / static_cast<double>(static_cast<float>(65535 - C)) * 65535
                                   : 65535);
    case 8:  // Linear Dodge
    case 18: // Add
        return std::min(C + P, 65535.0);
    case 9: // Overlay
        return P < 32768 ? C * 2 * P / 65535 : 65535 - (65535 - C) * 2 * (65535 - P) / 65535;
    case 10: // Soft Light
        return C <= 32768 ? (C + 32768) * P / 65535
                          : 65535 - (65535 - (C - 32768)) * (65535 - P) / 65535;
    case 11: // Hard Light
        return C < 32768 ? P * 2 * C / 65535 : 65535 - (65535 - P) * 2 * (65535 - C) / 65535;
    case 12: { // Vivid Light: Overlay of the Hard Light
        const double t = Reference(11, C, P);
        return Clamp(P < 32768 ? t * 2 * P / 65535 : 65535 - (65535 - t) * 2 * (65535 - P) / 65535);
    }
    case 13: // Linear Light
        return Clamp(C <= 32768 ? C * 2 + P - 65535 : (C - 32768) * 2 + P);
    case 14: // Pin Light
        return Clamp(C <= 32768 ? std::min(P, 2 * C) : std::max(P, 2 * (C - 32768)));
    case 15: // Hard Mix
        return (C + P) * 0.5 < 32768 ? 0 : 65535;
    case 16: // Reflect
        return P == 65535 ? P : std::min(C * C / (65535 - P), 65535.0);
    case 17: // Glow
        return C == 65535 ? C : std::min(P * P / (65535 - C), 65535.0);
    case 19: // Average
        return (C + P) * 0.5;
    case 20: // Subtract
        return P > C ? P - C : 0;
    case 21: // Difference
        return std::fabs(C - P);
    case 22: // Exclusion
        return C + P - C * 2 * P / 65535;
    case 23: // Negation
        return 65535 - std::fabs(65535 - C - P);
    }
    ADD_FAILURE() << "no reference for mode " << mode;
    return 0;
}

/// Modes 24..31 as the text composes them from the colour conversions.
void ColorReference(int mode, const double c[3], const double p[3], double out[3]) {
    if (mode <= 27) {
        double hc, sc, vc, hp, sp, vp;
        Image::RgbToHsv(c[0], c[1], c[2], &hc, &sc, &vc);
        Image::RgbToHsv(p[0], p[1], p[2], &hp, &sp, &vp);
        const double h = (mode == 24 || mode == 26) ? hc : hp;
        const double s = (mode == 25 || mode == 26) ? sc : sp;
        const double v = mode == 27 ? vc : vp;
        Image::HsvToRgb(h, s, v, &out[0], &out[1], &out[2]);
        return;
    }
    float Lc, ac, bc, Lp, ap, bp;
    Image::RgbToLab(float(c[0]), float(c[1]), float(c[2]), &Lc, &ac, &bc);
    Image::RgbToLab(float(p[0]), float(p[1]), float(p[2]), &Lp, &ap, &bp);
    const float Cc = std::sqrt(ac * ac + bc * bc), Cp = std::sqrt(ap * ap + bp * bp);
    float L = Lp, a = 0, b = 0;
    if (mode == 28 && Cc != 0) {
        a = ac / Cc * Cp;
        b = bc / Cc * Cp;
    } else if (mode == 29 && Cp != 0) {
        a = ap / Cp * Cc;
        b = bp / Cp * Cc;
    } else if (mode == 30) {
        a = ac;
        b = bc;
    } else if (mode == 31) {
        L = Lc;
        a = ap;
        b = bp;
    }
    float r, g, bl;
    Image::LabToRgb(L, a, b, &r, &g, &bl);
    out[0] = r;
    out[1] = g;
    out[2] = bl;
}

/// Base and layer values: the ends, the middle on both sides, odd fractions, and the values at
/// which the modes change branch.
const float kGrid[] = {0.0f,     1.0f,     0.1f,     1000.3f,  16384.0f, 32767.0f,
                       32767.5f, 32768.0f, 32769.0f, 40000.7f, 65534.0f, 65535.0f};
constexpr int kN = static_cast<int>(std::size(kGrid));

/// A mono image whose previous plane holds P = kGrid[y] and current plane C = kGrid[x].
void GridImage(Image& img) {
    MakeImage(img, kN, kN, ColorGray, [](int, int x, int) { return kGrid[x]; });
    for (int y = 0; y < kN; ++y)
        for (int x = 0; x < kN; ++x)
            img.prevPlane[0][y * kN + x] = kGrid[y];
}

bool BlendMono(Image& img, BlendStep step, int mode, double opacity, std::uint32_t level,
               const MaskSurface& surface = DefaultMaskSurface(), const float* maskPlane = nullptr,
               bool luminance = true) {
    return img.BlendMask(true, false, false, img.prevPlane[0], img.curPlane[0], nullptr, nullptr,
                         nullptr, nullptr, step, mode, opacity, level, surface, maskPlane,
                         luminance, false);
}

/// An RGB image with distinct values per channel in both planes.
void ColorImage(Image& img, int w = 7, int h = 5) {
    MakeImage(img, w, h, ColorRGB, [](int s, int x, int y) {
        return std::fmod(1234.5 + 9001.0 * x + 6007.0 * y + 17011.0 * s, 65535.0);
    });
    for (int s = 0; s < 3; ++s)
        for (int i = 0; i < w * h; ++i)
            img.prevPlane[s][i] = static_cast<float>(
                std::fmod(300.25 + 13.0 * i * (s + 1) + 21000.0 * s + 5000.0 * (i % 4), 65535.0));
}

bool BlendColor(Image& img, const bool sel[3], BlendStep step, int mode, double opacity,
                std::uint32_t level, bool keep) {
    return img.BlendMask(sel[0], sel[1], sel[2], img.prevPlane[0], img.curPlane[0],
                         img.prevPlane[1], img.curPlane[1], img.prevPlane[2], img.curPlane[2], step,
                         mode, opacity, level, DefaultMaskSurface(), nullptr, true, keep);
}

} // namespace

TEST(BlendModes, EveryChannelModeMatchesItsFormulaOnTheGrid) {
    for (int mode = 0; mode < kFirstColorBlendMode; ++mode) {
        Image img;
        GridImage(img);
        ASSERT_TRUE(BlendMono(img, BlendStep::BlendOnly, mode, 1.0, 65535)) << mode;
        for (int y = 0; y < kN; ++y)
            for (int x = 0; x < kN; ++x) {
                const double want = Reference(mode, kGrid[x], kGrid[y]);
                EXPECT_FLOAT_EQ(img.curPlane[0][y * kN + x], static_cast<float>(want))
                    << BlendModeName(mode) << " C=" << kGrid[x] << " P=" << kGrid[y];
                EXPECT_EQ(img.prevPlane[0][y * kN + x], kGrid[y]) << "the input stays";
            }
        EXPECT_EQ(BlendChannelValue(mode, 20000, 50000), Reference(mode, 20000, 50000));
    }
}

TEST(BlendModes, SpecialValues) {
    struct Case {
        int mode;
        double c, p, want;
    };
    const Case cases[] = {
        {16, 0, 65535, 65535},      // Reflect at P = 65535
        {16, 40000, 65535, 65535},  //
        {16, 40000, 60000, 65535},  // limited
        {16, 1000, 535, 15.384615}, // 1000^2 / 65000
        {17, 0, 65535, 65535},      // Glow at C = 65535
        {17, 65535, 0, 65535},      //
        {17, 535, 1000, 15.384615}, //
        {3, 0, 1234, 1234},         // Color Burn at C = 0 returns P
        {3, 0, 0, 0},               //
        {3, 65535, 65535, 65535},   //
        {3, 100, 1000, 0},          // clamped
        {7, 65535, 0, 65535},       // Color Dodge at C = 65535
        {7, 60000, 60000, 65535},   // clamped
        {15, 32768, 32768, 65535},  // Hard Mix at a mean of 32768
        {15, 65535, 1, 65535},      //
        {15, 32767, 32768, 0},      // a mean of 32767.5
        {4, 30000, 30000, 0},       // Linear Burn below the sum
        {4, 40000, 30000, 4465},    //
        {13, 0, 0, 0},              // Linear Light clamped at both ends
        {13, 65535, 65535, 65535},  //
        {14, 20000, 50000, 40000},  // Pin Light, dark half: the smaller of P and 2C
        {14, 60000, 10000, 54464},  // light half: the greater of P and 2(C - 32768)
        {10, 32768, 65535, 65536},  // Soft Light is not clamped
        {20, 1000, 500, 0},         // Subtract never negative
        {23, 65535, 65535, 0},      // Negation
        {23, 0, 0, 0},              //
        {22, 65535, 65535, 0},      // Exclusion
        {12, 65535, 65535, 65535},  // Vivid Light
        {12, 0, 0, 0},              //
    };
    for (const Case& k : cases)
        EXPECT_NEAR(BlendChannelValue(k.mode, k.c, k.p), k.want, 1e-4)
            << BlendModeName(k.mode) << " C=" << k.c << " P=" << k.p;
}

TEST(BlendModes, ColorModesMatchTheirConversions) {
    const double layers[][3] = {{60000, 20000, 5000},  {0, 0, 0},           {65535, 65535, 65535},
                                {12000, 12000, 12000}, {100, 40000, 65535}, {32768, 1, 900.5}};
    const double bases[][3] = {{10000, 30000, 50000}, {65535, 0, 0},     {0, 0, 0},
                               {40000, 40000, 40000}, {5000, 4000, 100}, {20000, 60000, 30000}};
    for (int mode = kFirstColorBlendMode; mode < kBlendModeCount; ++mode) {
        Image img;
        const int n = static_cast<int>(std::size(layers));
        MakeImage(img, n, n, ColorRGB, [&](int s, int x, int) { return layers[x][s]; });
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x)
                for (int s = 0; s < 3; ++s)
                    img.prevPlane[s][y * n + x] = static_cast<float>(bases[y][s]);
        const bool all[3] = {true, true, true};
        ASSERT_TRUE(BlendColor(img, all, BlendStep::BlendOnly, mode, 1.0, 65535, false));
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x) {
                // The planes hold floats: the reference starts from the same stored values.
                double c[3], p[3], want[3];
                for (int s = 0; s < 3; ++s) {
                    c[s] = static_cast<float>(layers[x][s]);
                    p[s] = static_cast<float>(bases[y][s]);
                }
                ColorReference(mode, c, p, want);
                for (int s = 0; s < 3; ++s)
                    EXPECT_NEAR(img.curPlane[s][y * n + x], want[s], 0.01)
                        << BlendModeName(mode) << " pixel " << x << "," << y << " channel " << s;
            }
    }
}

TEST(BlendModes, ColorModesKeepTheirDefiningPart) {
    // Luminosity takes the layer's value, Hue keeps the base's value and saturation.
    const double c[3] = {60000, 20000, 5000}, p[3] = {10000, 30000, 50000};
    double out[3];
    BlendColorValue(27, c, p, out);
    EXPECT_NEAR(*std::max_element(out, out + 3), 60000, 1e-6);
    BlendColorValue(24, c, p, out);
    EXPECT_NEAR(*std::max_element(out, out + 3), 50000, 1e-6);
    EXPECT_NEAR(*std::min_element(out, out + 3), 10000, 1e-6);
    EXPECT_GT(out[0], out[2]) << "the layer's red hue";
    // Lab Color of a grey layer on a grey base is the base.
    const double g1[3] = {20000, 20000, 20000}, g2[3] = {40000, 40000, 40000};
    BlendColorValue(30, g1, g2, out);
    for (double v : out)
        EXPECT_NEAR(v, 40000, 40);
}

TEST(BlendModes, NamesByIndex) {
    const std::pair<int, const char*> names[] = {
        {0, "Normal"},      {3, "Color Burn"}, {12, "Vivid Light"},   {15, "Hard Mix"},
        {16, "Reflect"},    {17, "Glow"},      {23, "Negation"},      {24, "Hue"},
        {27, "Luminosity"}, {28, "Lab Hue"},   {31, "Lab Luminosity"}};
    for (const auto& [i, name] : names)
        EXPECT_STREQ(BlendModeName(i), name);
    EXPECT_EQ(BlendModeName(32), nullptr);
    EXPECT_EQ(BlendModeName(-1), nullptr);
}

TEST(BlendOpacity, ZeroGivesTheInputAndOneTheModeResult) {
    for (int mode = 0; mode < kBlendModeCount; ++mode)
        for (double opacity : {0.0, 0.25, 1.0}) {
            Image img, pure;
            ColorImage(img);
            ColorImage(pure);
            const bool all[3] = {true, true, true};
            ASSERT_TRUE(BlendColor(img, all, BlendStep::BlendOnly, mode, opacity, 65535, false));
            ASSERT_TRUE(BlendColor(pure, all, BlendStep::BlendOnly, mode, 1.0, 65535, false));
            for (int s = 0; s < 3; ++s)
                for (std::uint32_t i = 0; i < img.pixelCount; ++i) {
                    const double P = img.prevPlane[s][i], B = pure.curPlane[s][i];
                    if (opacity == 0.0) {
                        ASSERT_EQ(img.curPlane[s][i], img.prevPlane[s][i]) << mode;
                    } else if (opacity == 1.0) {
                        ASSERT_EQ(img.curPlane[s][i], pure.curPlane[s][i]) << mode;
                    } else {
                        ASSERT_NEAR(img.curPlane[s][i], 0.75 * P + 0.25 * B, 0.01) << mode;
                    }
                }
        }
}

TEST(BlendMaskLevel, FlatMaskWeighsTheModeResult) {
    // Mode Multiply, flat mask level L, opacity o: (1-o)P + o((1-m)P + m B), m = L / 65535.
    struct Case {
        std::uint32_t level;
        double opacity;
    };
    const Case cases[] = {{0, 1.0}, {65535, 1.0}, {16384, 1.0}, {32768, 0.5}, {50000, 0.2}};
    for (const Case& k : cases) {
        Image img;
        GridImage(img);
        ASSERT_TRUE(BlendMono(img, BlendStep::ApplyMask, 2, k.opacity, k.level));
        const double m = k.level / 65535.0;
        for (int y = 0; y < kN; ++y)
            for (int x = 0; x < kN; ++x) {
                const double P = kGrid[y], C = kGrid[x];
                const double B = (1 - m) * P + m * (C * P / 65535);
                EXPECT_NEAR(img.curPlane[0][y * kN + x], (1 - k.opacity) * P + k.opacity * B, 0.01)
                    << "level " << k.level;
            }
        if (k.level == 0 && k.opacity == 1.0) {
            for (int i = 0; i < kN * kN; ++i)
                EXPECT_EQ(img.curPlane[0][i], img.prevPlane[0][i]) << "a zero mask keeps P";
        }
    }
    // Without ApplyMask the level plays no part.
    Image a, b;
    GridImage(a);
    GridImage(b);
    ASSERT_TRUE(BlendMono(a, BlendStep::BlendOnly, 9, 0.7, 0));
    ASSERT_TRUE(BlendMono(b, BlendStep::BlendOnly, 9, 0.7, 65535));
    for (int i = 0; i < kN * kN; ++i)
        EXPECT_EQ(a.curPlane[0][i], b.curPlane[0][i]);
}

TEST(BlendMaskFile, PerPixelMaskSamples) {
    Image img;
    GridImage(img);
    std::vector<float> mask(kN * kN);
    for (int i = 0; i < kN * kN; ++i)
        mask[i] = static_cast<float>((i * 4099) % 65536);
    // A file mask is used only without the luminance flag.
    ASSERT_TRUE(BlendMono(img, BlendStep::ApplyMask, 6, 0.9, 65535, DefaultMaskSurface(),
                          mask.data(), false));
    for (int y = 0; y < kN; ++y)
        for (int x = 0; x < kN; ++x) {
            const double P = kGrid[y], C = kGrid[x], m = mask[y * kN + x] / 65535.0;
            const double B = (1 - m) * P + m * Reference(6, C, P);
            EXPECT_NEAR(img.curPlane[0][y * kN + x], 0.1 * P + 0.9 * B, 0.01);
        }
    // ShowMask puts the file mask in the current plane.
    ASSERT_TRUE(BlendMono(img, BlendStep::ShowMask, 6, 0.9, 65535, DefaultMaskSurface(),
                          mask.data(), false));
    for (int i = 0; i < kN * kN; ++i)
        EXPECT_EQ(img.curPlane[0][i], mask[i]);
}

TEST(BlendChannels, UnselectedChannelsTakeTheInputUnlessKept) {
    struct Case {
        bool sel[3];
        bool keep;
        int mode;
    };
    const Case cases[] = {
        {{false, true, false}, false, 2},  {{true, false, true}, false, 9},
        {{false, true, false}, true, 2},   {{true, true, true}, false, 21},
        {{false, false, true}, false, 26}, {{true, false, false}, true, 29},
    };
    for (const Case& k : cases) {
        Image img, before, full;
        ColorImage(img);
        ColorImage(before);
        ColorImage(full);
        ASSERT_TRUE(BlendColor(img, k.sel, BlendStep::BlendOnly, k.mode, 1.0, 65535, k.keep));
        for (int s = 0; s < 3; ++s)
            for (std::uint32_t i = 0; i < img.pixelCount; ++i) {
                const float P = before.prevPlane[s][i], C = before.curPlane[s][i];
                if (k.mode < kFirstColorBlendMode) {
                    const float want =
                        k.sel[s] ? static_cast<float>(Reference(k.mode, C, P)) : (k.keep ? C : P);
                    ASSERT_FLOAT_EQ(img.curPlane[s][i], want) << "mode " << k.mode << " ch " << s;
                } else {
                    // The layer takes P in the unselected channels (C when kept).
                    double c[3], p[3], want[3];
                    for (int t = 0; t < 3; ++t) {
                        p[t] = before.prevPlane[t][i];
                        c[t] = (k.sel[t] || k.keep) ? before.curPlane[t][i] : p[t];
                    }
                    ColorReference(k.mode, c, p, want);
                    ASSERT_NEAR(img.curPlane[s][i], want[s], 0.01) << "mode " << k.mode;
                }
            }
    }
}

TEST(BlendChannels, ColorModeThroughMaskKeepsUnselectedInput) {
    Image img, before;
    ColorImage(img);
    ColorImage(before);
    const bool sel[3] = {true, false, false};
    ASSERT_TRUE(BlendColor(img, sel, BlendStep::ApplyMask, 26, 1.0, 65535, false));
    for (std::uint32_t i = 0; i < img.pixelCount; ++i) {
        EXPECT_EQ(img.curPlane[1][i], before.prevPlane[1][i]);
        EXPECT_EQ(img.curPlane[2][i], before.prevPlane[2][i]);
    }
}

TEST(BlendChannels, RecordFlagsChooseTheChannels) {
    struct Case {
        std::uint32_t colorType;
        std::uint8_t select, r, g, b;
        bool want[3];
    };
    const Case cases[] = {
        {ColorRGB, 0, 0, 0, 0, {true, true, true}},    // flags ignored without channelSelect
        {ColorRGB, 1, 1, 0, 1, {true, false, true}},   //
        {ColorRGB, 1, 0, 1, 0, {false, true, false}},  //
        {ColorGray, 1, 0, 0, 1, {true, false, false}}, // monochrome: its slot
        {ColorGreen, 0, 1, 1, 1, {false, true, false}},
        {ColorYellow, 0, 1, 1, 1, {false, false, true}},
    };
    for (const Case& k : cases) {
        Image img;
        img.SetGeometry(KindFITS, k.colorType, 0, 2, 2);
        CProcessStructure r;
        r.channelSelect = k.select;
        r.channelRed = k.r;
        r.channelGreen = k.g;
        r.channelBlue = k.b;
        bool sel[3];
        BlendChannelsOf(img, r, sel);
        for (int s = 0; s < 3; ++s)
            EXPECT_EQ(sel[s], k.want[s]) << "type " << k.colorType << " slot " << s;
    }
}

TEST(BlendShowMask, FlatMaskFillsOnlySelectedCurrentPlanes) {
    Image img, before;
    ColorImage(img);
    ColorImage(before);
    const bool sel[3] = {false, true, false};
    ASSERT_TRUE(BlendColor(img, sel, BlendStep::ShowMask, 2, 0.5, 12345, false));
    for (std::uint32_t i = 0; i < img.pixelCount; ++i) {
        EXPECT_EQ(img.curPlane[1][i], 12345.0f);
        EXPECT_EQ(img.curPlane[0][i], before.curPlane[0][i]) << "ShowMask ends after the mask";
        EXPECT_EQ(img.curPlane[2][i], before.curPlane[2][i]);
        for (int s = 0; s < 3; ++s)
            EXPECT_EQ(img.prevPlane[s][i], before.prevPlane[s][i]);
    }
}

TEST(BlendFailures, RefusedBlendsWriteNothing) {
    struct Case {
        const char* what;
        std::uint32_t colorType;
        int mode;
        bool luminance;
        bool nullSelected;
    };
    const Case cases[] = {
        {"colour mode on mono", ColorGray, 24, true, false},
        {"Lab mode on mono", ColorGray, 31, true, false},
        {"mode 32", ColorGray, 32, true, false},
        {"mode -1", ColorRGB, -1, true, false},
        {"file mask not given", ColorGray, 2, false, false},
        {"selected plane missing", ColorGray, 2, true, true},
    };
    for (const Case& k : cases) {
        Image img;
        MakeImage(img, 3, 3, k.colorType, [](int s, int x, int y) { return 100 + x + 10 * y + s; });
        const float before = img.curPlane[0][4];
        EXPECT_FALSE(img.BlendMask(true, k.colorType == ColorRGB, k.colorType == ColorRGB,
                                   img.prevPlane[0], k.nullSelected ? nullptr : img.curPlane[0],
                                   img.prevPlane[1], img.curPlane[1], img.prevPlane[2],
                                   img.curPlane[2], BlendStep::ApplyMask, k.mode, 0.5, 30000,
                                   DefaultMaskSurface(), nullptr, k.luminance, false))
            << k.what;
        EXPECT_EQ(img.curPlane[0][4], before) << k.what;
    }
}

TEST(BlendRecordStep, WorkRowsHoldThePureResultAndOpacityChangesReuseThem) {
    Image img;
    MakeImage(img, 5, 4, ColorGray, [](int, int x, int y) { return 1000.0 * (x + 1) + y; });
    for (std::uint32_t i = 0; i < img.pixelCount; ++i)
        img.curPlane[0][i] = 40000.0f + i; // the pure result of some operator
    CProcessStructure r;
    r.blendMode = 2;
    r.opacity = 0.5;
    BlendFailure why = BlendFailure::BadMode;
    ASSERT_TRUE(BlendRecord(img, r, BlendStep::BlendOnly, nullptr, BlendWork::SaveCurrent, &why));
    EXPECT_EQ(why, BlendFailure::None);
    auto expect = [&](double opacity) {
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 5; ++x) {
                const int i = y * 5 + x;
                const double P = 1000.0 * (x + 1) + y, C = 40000.0 + i;
                ASSERT_NEAR(img.curPlane[0][i], (1 - opacity) * P + opacity * C * P / 65535, 0.01);
                ASSERT_EQ(img.prevPlane[0][i], static_cast<float>(P));
                ASSERT_EQ(img.workRows[0][y][x], static_cast<float>(C));
            }
    };
    expect(0.5);
    // New values: the pure result comes back from the work rows, not from the blended planes.
    for (double o : {0.9, 0.0, 1.0}) {
        r.opacity = o;
        ASSERT_TRUE(BlendRecord(img, r, BlendStep::BlendOnly, nullptr, BlendWork::RestoreSaved));
        expect(o);
    }
}

TEST(BlendRecordStep, FailuresNameTheirReasonAndLeaveThePureResult) {
    struct Case {
        int mode;
        std::uint8_t luminance;
        BlendFailure want;
        const char* text;
    };
    const Case cases[] = {
        {25, 1, BlendFailure::ModeNeedsColor,
         "Blend modes Hue to Lab Luminosity need an RGB image; the result is left unblended."},
        {40, 1, BlendFailure::BadMode, "Unknown blend mode; the result is left unblended."},
        {2, 0, BlendFailure::MaskMissing,
         "The image mask file can't be read here; the result is left unblended."},
    };
    for (const Case& k : cases) {
        Image img;
        MakeImage(img, 2, 2, ColorGray, [](int, int, int) { return 700.0; });
        img.curPlane[0][0] = 900;
        CProcessStructure r;
        r.blendMode = k.mode;
        r.luminanceMask = k.luminance;
        BlendFailure why = BlendFailure::None;
        EXPECT_FALSE(
            BlendRecord(img, r, BlendStep::ApplyMask, nullptr, BlendWork::SaveCurrent, &why));
        EXPECT_EQ(why, k.want);
        EXPECT_STREQ(BlendFailureText(why), k.text);
        EXPECT_EQ(img.curPlane[0][0], 900.0f);
    }
    EXPECT_STREQ(BlendFailureText(BlendFailure::NoMemory), "No memory for blend or mask mode.");
    // Without ApplyMask no mask file is needed.
    CProcessStructure r;
    r.luminanceMask = 0;
    EXPECT_FALSE(BlendNeedsMaskFile(r, BlendStep::BlendOnly));
    EXPECT_TRUE(BlendNeedsMaskFile(r, BlendStep::ShowMask));
}

TEST(BlendStepWords, RoundTrip) {
    for (BlendStep s : {BlendStep::BlendOnly, BlendStep::ApplyMask, BlendStep::ShowMask}) {
        BlendStep back = BlendStep::BlendOnly;
        ASSERT_TRUE(ParseBlendStep(BlendStepWord(s), &back));
        EXPECT_EQ(back, s);
    }
    BlendStep back;
    EXPECT_FALSE(ParseBlendStep("applymask", &back));
    EXPECT_STREQ(BlendStepWord(BlendStep::ApplyMask), "ApplyMask");
}
