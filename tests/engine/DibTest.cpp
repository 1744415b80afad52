// SPDX-License-Identifier: GPL-3.0-or-later
/// \file CDib and Image::FillDib: row padding, bottom-up order, BGR bytes, colour tables and
/// the logical palettes.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "engine/Dib.h"
#include "engine/Image.h"

namespace astrivelle {
namespace {

TEST(Dib, CreateEightBitPadsRowsAndHasAGrayRamp) {
    struct Case {
        int width;
        std::size_t stride8, stride24;
    } cases[] = {{1, 4, 4}, {2, 4, 8}, {3, 4, 12}, {4, 4, 12}, {5, 8, 16}, {7, 8, 24}};
    for (const Case& c : cases) {
        EXPECT_EQ(CDib::StrideFor(c.width, 8), c.stride8) << c.width;
        EXPECT_EQ(CDib::StrideFor(c.width, 24), c.stride24) << c.width;
    }
    CDib dib;
    std::string text;
    ASSERT_TRUE(dib.CreateEightBit(5, 3, &text));
    EXPECT_EQ(dib.BitCount(), 8);
    EXPECT_EQ(dib.RowStride(), 8u);
    EXPECT_EQ(dib.BitsSize(), 24u);
    EXPECT_EQ(dib.Header().sizeImage, 24u);
    EXPECT_EQ(dib.Header().clrUsed, 256u);
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(dib.Colors()[i].red, i);
        EXPECT_EQ(dib.Colors()[i].green, i);
        EXPECT_EQ(dib.Colors()[i].blue, i);
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(Dib, FailureText) {
    CDib dib;
    std::string text;
    EXPECT_FALSE(dib.CreateEightBit(1 << 22, 1 << 22, &text)); // 16 TB
    EXPECT_EQ(text, "Out of memory for DIB bits");
    EXPECT_FALSE(dib.IsValid());
}
#endif

TEST(FillDib, MonoRowsArePaddedAndBottomUp) {
    for (int w : {1, 2, 3, 5}) {
        const int h = 3;
        Image img;
        // Row y holds levels that map to bytes 10 y + x + 1.
        test::MakeImage(img, w, h, ColorGray,
                        [](int, int x, int y) { return 255.0 * (10 * y + x + 1); });
        CDib dib;
        ASSERT_TRUE(img.FillDib(dib));
        ASSERT_EQ(dib.Width(), w);
        ASSERT_EQ(dib.BitCount(), 8);
        const std::size_t stride = dib.RowStride();
        EXPECT_EQ(stride % 4, 0u);
        for (int row = 0; row < h; ++row) {
            const std::uint8_t* bytes = dib.Bits() + row * stride;
            const int y = h - 1 - row; // stored row 0 is the bottom image row
            for (int x = 0; x < w; ++x)
                EXPECT_EQ(bytes[x], 10 * y + x + 1) << "w " << w << " row " << row;
            for (std::size_t pad = w; pad < stride; ++pad)
                EXPECT_EQ(bytes[pad], 0) << "w " << w << " pad " << pad;
        }
    }
}

TEST(FillDib, ByteMapping) {
    struct Case {
        float in;
        int byte;
    } cases[] = {{0, 0},   {254.4f, 0},  {254.6f, 1},  {255.0f, 1},  {510.0f, 2},
                 {-50, 0}, {65279, 255}, {65535, 255}, {90000, 255}, {32767.5f, 128}};
    const int n = sizeof(cases) / sizeof(cases[0]);
    Image img;
    test::MakeImage(img, n, 1, ColorGray, [&](int, int x, int) { return cases[x].in; });
    CDib dib;
    ASSERT_TRUE(img.FillDib(dib));
    for (int x = 0; x < n; ++x)
        EXPECT_EQ(dib.Bits()[x], cases[x].byte) << cases[x].in;
}

TEST(FillDib, MonoSlotAndPalette) {
    Image img;
    test::MakeImage(img, 2, 1, ColorMagenta, [](int, int x, int) { return 2550.0 * (x + 1); });
    CDib dib;
    ASSERT_TRUE(img.FillDib(dib));
    EXPECT_EQ(dib.Bits()[0], 10);
    EXPECT_EQ(dib.Bits()[1], 20);
    const RgbQuad& q = dib.Colors()[100];
    EXPECT_EQ(q.red, 100);
    EXPECT_EQ(q.green, 0);
    EXPECT_EQ(q.blue, 100);
}

TEST(FillDib, RgbIsBgrBottomUpAndPadded) {
    for (int w : {1, 2, 3, 5}) {
        const int h = 2;
        Image img;
        test::MakeImage(img, w, h, ColorRGB, [](int s, int x, int y) {
            return 255.0 * (100 * s + 10 * y + x + 1); // bytes 100 s + 10 y + x + 1
        });
        CDib dib;
        ASSERT_TRUE(img.FillDib(dib));
        ASSERT_EQ(dib.BitCount(), 24);
        const std::size_t stride = dib.RowStride();
        EXPECT_EQ(stride, (static_cast<std::size_t>(w) * 3 + 3) / 4 * 4);
        for (int row = 0; row < h; ++row) {
            const std::uint8_t* bytes = dib.Bits() + row * stride;
            const int y = h - 1 - row;
            for (int x = 0; x < w; ++x) {
                EXPECT_EQ(bytes[3 * x + 0], 200 + 10 * y + x + 1); // blue
                EXPECT_EQ(bytes[3 * x + 1], 100 + 10 * y + x + 1); // green
                EXPECT_EQ(bytes[3 * x + 2], 10 * y + x + 1);       // red
            }
            for (std::size_t pad = 3 * w; pad < stride; ++pad)
                EXPECT_EQ(bytes[pad], 0);
        }
    }
}

TEST(FillDib, ReusesAMatchingBitmapAndClearsIt) {
    Image img;
    test::MakeImage(img, 3, 1, ColorGray, [](int, int, int) { return 2550.0; });
    CDib dib;
    ASSERT_TRUE(dib.CreateEightBit(3, 1));
    const std::uint8_t* bits = dib.Bits();
    dib.Bits()[3] = 77; // padding
    ASSERT_TRUE(img.FillDib(dib));
    EXPECT_EQ(dib.Bits(), bits);
    EXPECT_EQ(dib.Bits()[0], 10);
    EXPECT_EQ(dib.Bits()[3], 0);
    Image empty;
    EXPECT_FALSE(empty.FillDib(dib));
}

TEST(DibPalette, ColourTypes) {
    struct Case {
        std::uint32_t type;
        bool r, g, b;
    } cases[] = {{ColorGray, 1, 1, 1},   {ColorRed, 1, 0, 0},  {ColorGreen, 0, 1, 0},
                 {ColorBlue, 0, 0, 1},   {ColorCyan, 0, 1, 1}, {ColorMagenta, 1, 0, 1},
                 {ColorYellow, 1, 1, 0}, {ColorRGB, 1, 1, 1},  {5, 1, 1, 1}};
    CDib dib;
    ASSERT_TRUE(dib.CreateEightBit(4, 4));
    for (const Case& c : cases) {
        dib.SetDibPalette(c.type);
        for (int i : {0, 1, 128, 255}) {
            const RgbQuad& q = dib.Colors()[i];
            EXPECT_EQ(q.red, c.r ? i : 0) << c.type;
            EXPECT_EQ(q.green, c.g ? i : 0) << c.type;
            EXPECT_EQ(q.blue, c.b ? i : 0) << c.type;
        }
    }
}

TEST(Palettes, EntriesAndRuns) {
    auto bw = PaletteBW240();
    ASSERT_EQ(bw.size(), 236u);
    EXPECT_EQ(bw[0].red, 17);
    EXPECT_EQ(bw[110].red, 127);
    EXPECT_EQ(bw[111].red, 129);
    EXPECT_EQ(bw[173].red, 191);
    EXPECT_EQ(bw[174].red, 193);
    EXPECT_EQ(bw[235].red, 254);
    for (const auto& e : bw) {
        EXPECT_TRUE(e.red != 128 && e.red != 192) << int(e.red);
        EXPECT_EQ(e.red, e.green);
        EXPECT_EQ(e.red, e.blue);
    }
    auto bw64 = PaletteBW64();
    ASSERT_EQ(bw64.size(), 64u);
    EXPECT_EQ(bw64[0].red, 0);
    EXPECT_EQ(bw64[63].blue, 252);

    struct Mono {
        std::vector<PaletteEntry> (*make)();
        bool r, g, b;
    } monos[] = {{PaletteRed, 1, 0, 0},  {PaletteGreen, 0, 1, 0},   {PaletteBlue, 0, 0, 1},
                 {PaletteCyan, 0, 1, 1}, {PaletteMagenta, 1, 0, 1}, {PaletteYellow, 1, 1, 0}};
    for (const Mono& m : monos) {
        auto p = m.make();
        ASSERT_EQ(p.size(), 236u);
        const int levels[][2] = {{0, 18}, {109, 127}, {110, 129}, {235, 254}};
        for (const auto& [index, level] : levels) {
            EXPECT_EQ(p[index].red, m.r ? level : 0);
            EXPECT_EQ(p[index].green, m.g ? level : 0);
            EXPECT_EQ(p[index].blue, m.b ? level : 0);
        }
    }

    auto rgb = PaletteRGB();
    ASSERT_EQ(rgb.size(), 256u);
    auto hex = [](const PaletteEntry& e) { return (e.red << 16) | (e.green << 8) | e.blue; };
    EXPECT_EQ(hex(rgb[0]), 0x000000);
    EXPECT_EQ(hex(rgb[1]), 0x800000);
    EXPECT_EQ(hex(rgb[9]), 0xA6CAF0);
    EXPECT_EQ(hex(rgb[10]), 0x000000); // cube start
    EXPECT_EQ(hex(rgb[11]), 0x000033); // blue fastest
    EXPECT_EQ(hex(rgb[10 + 36 * 2 + 6 * 3 + 4]), 0x6699CC);
    EXPECT_EQ(hex(rgb[225]), 0xFFFFFF); // cube end
    EXPECT_EQ(hex(rgb[227]), 0x111111); // grays
    EXPECT_EQ(hex(rgb[241]), 0xFFFFFF);
    EXPECT_EQ(hex(rgb[246]), 0xFFFBF0);
    EXPECT_EQ(hex(rgb[255]), 0xFFFFFF);
    EXPECT_EQ(PaletteForColorType(ColorCyan).size(), 236u);
    EXPECT_EQ(PaletteForColorType(ColorRGB).size(), 256u);
    EXPECT_EQ(hex(PaletteForColorType(ColorGray)[0]), 0x111111);
}

} // namespace
} // namespace astrivelle
