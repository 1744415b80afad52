// SPDX-License-Identifier: GPL-3.0-or-later
/// \file BMP through CDib: the bytes we write (header, padding, row order, the division by
/// 255), reading 24-bit, 8-bit palette and core-header files in both row orders, round trips,
/// and hostile files refused with their texts before anything is allocated.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <mutex>
#include <thread>

#include "BmpTestFiles.h"
#include "TestSupport.h"
#include "engine/Dib.h"
#include "engine/Image.h"
#include "fileio/Bmp.h"
#include "fileio/FileDispatch.h"
#include "fileio/FileLock.h"

namespace astrivelle {
namespace {

using test::BmpLayout;
using test::MakeBmp;
using test::ReadBytes;
using test::ScratchDir;
using test::WriteBytes;

std::uint32_t Le32(const std::vector<std::uint8_t>& b, std::size_t at) {
    return b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) |
           (static_cast<std::uint32_t>(b[at + 3]) << 24);
}

bool LockIsFree() {
    bool free = false;
    std::thread([&] {
        if (ImageFileLock().try_lock()) {
            free = true;
            ImageFileLock().unlock();
        }
    }).join();
    return free;
}

TEST(BmpWrite, HeaderPaddingAndBottomUpRowsForWidthsOneToFive) {
    ScratchDir dir;
    for (int w = 1; w <= 5; ++w) {
        const int h = 2;
        Image img;
        // Bytes: red 10 y + x + 1, green 100 + that, blue 200 + that... (level = byte * 255).
        test::MakeImage(img, w, h, ColorRGB, [](int s, int x, int y) {
            return 255.0 * ((s == 0 ? 0 : (s == 1 ? 100 : 200)) + 10 * y + x + 1);
        });
        const std::string path = dir.file("w" + std::to_string(w) + ".bmp");
        ASSERT_TRUE(img.WriteBMP(path)) << LastFileError();
        const auto b = ReadBytes(path);
        const std::size_t stride = (3 * w + 3) / 4 * 4;
        ASSERT_EQ(b.size(), 54 + stride * h) << w;
        EXPECT_EQ(b[0], 'B');
        EXPECT_EQ(b[1], 'M');
        EXPECT_EQ(Le32(b, 2), 54 + stride * h);
        EXPECT_EQ(Le32(b, 6), 0u);
        EXPECT_EQ(Le32(b, 10), 54u);
        EXPECT_EQ(Le32(b, 14), 40u);
        EXPECT_EQ(Le32(b, 18), static_cast<std::uint32_t>(w));
        EXPECT_EQ(Le32(b, 22), static_cast<std::uint32_t>(h));
        EXPECT_EQ(b[26] | (b[27] << 8), 1);
        EXPECT_EQ(b[28] | (b[29] << 8), 24);
        EXPECT_EQ(Le32(b, 30), 0u);
        for (int row = 0; row < h; ++row) {
            const int y = h - 1 - row; // the image's last row goes first
            const std::uint8_t* p = b.data() + 54 + row * stride;
            for (int x = 0; x < w; ++x) {
                EXPECT_EQ(p[3 * x + 0], 200 + 10 * y + x + 1) << "w " << w; // blue
                EXPECT_EQ(p[3 * x + 1], 100 + 10 * y + x + 1);
                EXPECT_EQ(p[3 * x + 2], 10 * y + x + 1);
            }
            for (std::size_t pad = 3 * w; pad < stride; ++pad)
                EXPECT_EQ(p[pad], 0) << "w " << w << " pad " << pad;
        }
    }
}

TEST(BmpWrite, WidthThreeRowIsTwelveBytes) {
    ScratchDir dir;
    Image img;
    test::MakeImage(img, 3, 1, ColorGray, [](int, int, int) { return 0.0; });
    ASSERT_TRUE(img.WriteBMP(dir.file("a.bmp")));
    EXPECT_EQ(ReadBytes(dir.file("a.bmp")).size(), 54u + 12u);
}

TEST(BmpWrite, LevelsDivideBy255AndClamp) {
    struct Case {
        float level;
        int byte;
    } cases[] = {{0, 0},       {254.4f, 0},  {254.6f, 1},  {255, 1},     {510, 2}, {65024, 254},
                 {65025, 255}, {65279, 255}, {65535, 255}, {90000, 255}, {-40, 0}, {32767.5f, 128}};
    const int n = sizeof cases / sizeof cases[0];
    ScratchDir dir;
    Image img;
    test::MakeImage(img, n, 1, ColorGray, [&](int, int x, int) { return cases[x].level; });
    ASSERT_TRUE(img.WriteBMP(dir.file("m.bmp")));
    const auto b = ReadBytes(dir.file("m.bmp"));
    for (int x = 0; x < n; ++x)
        for (int c = 0; c < 3; ++c) // a mono image fills all three channels
            EXPECT_EQ(b[54 + 3 * x + c], cases[x].byte) << cases[x].level;
}

TEST(BmpWrite, MonoTypesUseTheirPlaneAndInvalidTypeFails) {
    ScratchDir dir;
    Image img;
    img.SetGeometry(KindFITS, ColorBlue, 0, 2, 1);
    ASSERT_TRUE(img.AllocatePlanes(1));
    img.curPlane[2][0] = 255 * 7;
    img.curPlane[2][1] = 255 * 9;
    ASSERT_TRUE(img.WriteBMP(dir.file("b.bmp"))) << LastFileError();
    const auto b = ReadBytes(dir.file("b.bmp"));
    EXPECT_EQ(b[54], 7);
    EXPECT_EQ(b[57 + 2], 9);
    img.colorType = 5;
    EXPECT_FALSE(img.WriteBMP(dir.file("c.bmp")));
    EXPECT_EQ(LastFileError(), "Internal error, image does not have a valid color type.");
    img.colorType = ColorBlue;
    EXPECT_FALSE(img.WriteBMP(dir.file("no/such/folder/d.bmp")));
    EXPECT_EQ(LastFileError().rfind("Error  = ", 0), 0u) << LastFileError();
    EXPECT_TRUE(LockIsFree());
    EXPECT_EQ(BmpSaveFailureText("M42.bmp"),
              "Could Not Save M42.bmp In A Windows 24 Bit BMP Format.");
}

TEST(BmpRoundTrip, TwentyFourBitGivesBytesTimes257) {
    ScratchDir dir;
    const int w = 7, h = 5;
    Image img;
    test::MakeImage(img, w, h, ColorRGB,
                    [](int s, int x, int y) { return 255.0 * ((37 * s + 11 * x + 23 * y) % 256); });
    ASSERT_TRUE(img.WriteBMP(dir.file("r.bmp")));
    Image back;
    ASSERT_TRUE(back.ReadBMP(dir.file("r.bmp"))) << LastFileError();
    EXPECT_EQ(back.width, w);
    EXPECT_EQ(back.height, h);
    EXPECT_EQ(back.fileType, KindBMP);
    EXPECT_EQ(back.colorType, ColorRGB);
    EXPECT_EQ(back.maxValue, 65535u);
    for (int s = 0; s < 3; ++s)
        for (int i = 0; i < w * h; ++i)
            ASSERT_EQ(back.curPlane[s][i], img.curPlane[s][i] / 255.0f * 257.0f) << s << " " << i;
    // A gray image opens as three equal planes.
    Image gray;
    test::MakeImage(gray, 3, 2, ColorGray, [](int, int x, int y) { return 255.0 * (x + 3 * y); });
    ASSERT_TRUE(gray.WriteBMP(dir.file("g.bmp")));
    ASSERT_TRUE(back.ReadBMP(dir.file("g.bmp")));
    EXPECT_EQ(back.colorType, ColorRGB);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(back.curPlane[0][i], 257.0f * i);
        EXPECT_EQ(back.curPlane[1][i], 257.0f * i);
        EXPECT_EQ(back.curPlane[2][i], 257.0f * i);
    }
}

/// Reads a hand-made file and returns the image's pixels as (r, g, b) bytes (level / 257).
std::vector<std::array<int, 3>> ReadPixels(const std::vector<std::uint8_t>& bytes, int* w, int* h) {
    ScratchDir dir;
    WriteBytes(dir.file("x.bmp"), bytes);
    Image img;
    EXPECT_TRUE(img.ReadBMP(dir.file("x.bmp"))) << LastFileError();
    std::vector<std::array<int, 3>> px;
    *w = img.width;
    *h = img.height;
    for (std::uint32_t i = 0; i < img.pixelCount; ++i) {
        std::array<int, 3> p;
        for (int s = 0; s < 3; ++s) {
            const float v = img.curPlane[s][i];
            EXPECT_EQ(static_cast<int>(v) % 257, 0);
            p[s] = static_cast<int>(v) / 257;
        }
        px.push_back(p);
    }
    return px;
}

TEST(BmpRead, TwentyFourBitBothRowOrdersAndPaddings) {
    for (int w = 1; w <= 5; ++w) {
        BmpLayout layout;
        layout.width = w;
        layout.bitCount = 24;
        for (int y = 0; y < 3; ++y) {
            std::vector<std::uint8_t> row;
            for (int x = 0; x < w; ++x) {
                row.push_back(static_cast<std::uint8_t>(200 + x));    // blue
                row.push_back(static_cast<std::uint8_t>(100 + y));    // green
                row.push_back(static_cast<std::uint8_t>(10 * y + x)); // red
            }
            layout.rows.push_back(row);
        }
        for (int sign : {1, -1}) {
            layout.height = 3 * sign;
            int gw = 0, gh = 0;
            const auto px = ReadPixels(MakeBmp(layout), &gw, &gh);
            ASSERT_EQ(gw, w);
            ASSERT_EQ(gh, 3);
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < w; ++x) {
                    const auto& p = px[y * w + x];
                    EXPECT_EQ(p[0], 10 * y + x) << "w " << w << " sign " << sign;
                    EXPECT_EQ(p[1], 100 + y);
                    EXPECT_EQ(p[2], 200 + x);
                }
        }
    }
}

TEST(BmpRead, EightBitPaletteReadsAsColourInAllHeaderForms) {
    // Entries (blue, green, red): 0 pure red, 1 pure green, 2 a mix, 3 white.
    const std::vector<std::uint8_t> table = {0, 0, 255, 0, 255, 0, 30, 20, 10, 255, 255, 255};
    for (std::uint32_t headerSize : {12u, 40u, 124u}) {
        for (int w : {1, 2, 3, 5}) {
            BmpLayout layout;
            layout.headerSize = headerSize;
            layout.width = w;
            layout.height = headerSize == 12 ? 2 : -2;
            layout.bitCount = 8;
            layout.table = table;
            layout.clrUsed = 4;
            layout.rows = {{}, {}};
            for (int x = 0; x < w; ++x) {
                layout.rows[0].push_back(static_cast<std::uint8_t>(x % 4));
                layout.rows[1].push_back(static_cast<std::uint8_t>(3 - x % 4));
            }
            int gw = 0, gh = 0;
            const auto px = ReadPixels(MakeBmp(layout), &gw, &gh);
            ASSERT_EQ(gw, w);
            ASSERT_EQ(gh, 2);
            const std::array<int, 3> rgb[4] = {
                {255, 0, 0}, {0, 255, 0}, {10, 20, 30}, {255, 255, 255}};
            for (int x = 0; x < w; ++x) {
                EXPECT_EQ(px[x], rgb[x % 4]) << "header " << headerSize << " w " << w;
                EXPECT_EQ(px[w + x], rgb[3 - x % 4]) << "header " << headerSize << " w " << w;
            }
        }
    }
}

TEST(BmpRead, CoreHeaderTwentyFourBit) {
    BmpLayout layout;
    layout.headerSize = 12;
    layout.width = 2;
    layout.height = 2;
    layout.rows = {{1, 2, 3, 4, 5, 6}, {7, 8, 9, 10, 11, 12}};
    int w = 0, h = 0;
    const auto px = ReadPixels(MakeBmp(layout), &w, &h);
    ASSERT_EQ(px.size(), 4u);
    EXPECT_EQ(px[0], (std::array<int, 3>{3, 2, 1}));
    EXPECT_EQ(px[3], (std::array<int, 3>{12, 11, 10}));
}

TEST(BmpRead, CdibKeepsWhatTheFileHeld) {
    BmpLayout layout;
    layout.width = 3;
    layout.height = -2;
    layout.bitCount = 8;
    layout.table = {1, 2, 3};
    layout.clrUsed = 1;
    layout.rows = {{0, 0, 0}, {0, 0, 0}};
    const auto bytes = MakeBmp(layout);
    CDib dib;
    std::string text;
    ASSERT_TRUE(dib.ReadMemory(bytes.data(), bytes.size(), &text)) << text;
    EXPECT_EQ(dib.Height(), 2);
    EXPECT_TRUE(dib.File().topDown);
    EXPECT_EQ(dib.File().headerSize, 40u);
    EXPECT_EQ(dib.File().dataOffset, 14u + 40u + 4u);
    EXPECT_EQ(dib.RowStride(), 4u);
    EXPECT_EQ(dib.Colors()[0].red, 3);
    EXPECT_EQ(dib.Colors()[1].red, 0); // entries the file did not hold are black
}

TEST(BmpRead, HostileFilesAreRefusedWithTheirTexts) {
    BmpLayout good;
    good.width = 4;
    good.height = 4;
    good.rows.assign(4, std::vector<std::uint8_t>(12, 9));
    const std::vector<std::uint8_t> base = MakeBmp(good);
    auto patched = [&](std::size_t at, std::uint32_t value, int bytes) {
        std::vector<std::uint8_t> b = base;
        for (int i = 0; i < bytes; ++i)
            b[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
        return b;
    };
    auto cut = [&](std::size_t size) {
        return std::vector<std::uint8_t>(base.begin(), base.begin() + size);
    };
    BmpLayout sixteen = good;
    sixteen.bitCount = 16;
    BmpLayout four = good;
    four.bitCount = 4;
    four.table = {0, 0, 0};
    four.clrUsed = 1;
    BmpLayout rle = good;
    rle.bitCount = 8;
    rle.compression = 1;
    rle.table = {0, 0, 0};
    rle.clrUsed = 1;
    BmpLayout coreCut;
    coreCut.headerSize = 12;
    std::vector<std::uint8_t> coreShort = MakeBmp(coreCut);
    coreShort.resize(20);
    struct Case {
        const char* name;
        std::vector<std::uint8_t> bytes;
        std::string text;
    } cases[] = {
        {"empty", {}, "Failed to read file header"},
        {"short file header", cut(10), "Failed to read file header"},
        {"not BM", patched(0, 'P' | ('K' << 8), 2), "Not a bitmap file"},
        {"short info header", cut(30), "Failed to read BITMAPINFOHEADER"},
        {"short core header", coreShort, "Failed to read BITMAPCOREHEADER"},
        {"header size 20", patched(14, 20, 4), " File is not Windows or PM DIB format"},
        {"truncated rows", cut(base.size() - 1), "Failed to read bits"},
        {"absurd width", patched(18, 0x7FFFFFFF, 4), "Failed to read bits"},
        {"absurd height", patched(22, 0x40000000, 4), "Failed to read bits"},
        {"data offset past the end", patched(10, 0xFFFFFFF0u, 4), "Failed to read bits"},
        {"zero width", patched(18, 0, 4), "The bitmap size 0 x 4 is not usable"},
        {"zero height", patched(22, 0, 4), "The bitmap size 4 x 0 is not usable"},
        {"most negative height", patched(22, 0x80000000u, 4),
         "The bitmap size 4 x -2147483648 is not usable"},
        {"bit count 7", patched(28, 7, 2), "The bitmap has 7 bits per pixel"},
        {"too many colours",
         [&] {
             BmpLayout s = good;
             s.bitCount = 8;
             s.clrUsed = 257;
             return MakeBmp(s);
         }(),
         "Failed to read color table"},
        {"table past the end",
         [&] {
             BmpLayout s = good;
             s.bitCount = 8;
             s.clrUsed = 200;
             s.table.assign(600, 7);
             std::vector<std::uint8_t> b = MakeBmp(s);
             b.resize(54 + 100);
             return b;
         }(),
         "Failed to read color table"},
        {"sixteen bits", MakeBmp(sixteen), kBmpNotEightOr24Text},
        {"four bits", MakeBmp(four), kBmpNotEightOr24Text},
        {"run-length encoded", MakeBmp(rle), "Run-length encoded bitmaps are not supported"},
        {"unknown compression", patched(30, 9, 4), "The bitmap compression 9 is unknown"},
    };
    ScratchDir dir;
    for (const Case& c : cases) {
        const std::string path = dir.file("bad.bmp");
        WriteBytes(path, c.bytes);
        Image img;
        EXPECT_FALSE(img.ReadBMP(path)) << c.name;
        EXPECT_EQ(LastFileError(), c.text) << c.name;
        EXPECT_TRUE(LockIsFree()) << c.name;
        CDib dib;
        std::string text;
        if (c.text != kBmpNotEightOr24Text) {
            EXPECT_FALSE(dib.ReadMemory(c.bytes.data(), c.bytes.size(), &text)) << c.name;
            EXPECT_EQ(text, c.text) << c.name;
            EXPECT_FALSE(dib.IsValid()) << c.name;
        }
    }
    Image img;
    EXPECT_FALSE(img.ReadBMP(dir.file("missing.bmp")));
    EXPECT_EQ(LastFileError(), "Error  = No such file or directory");
}

TEST(BmpWrite, EightBitDibWritesItsColourTable) {
    ScratchDir dir;
    CDib dib;
    ASSERT_TRUE(dib.CreateEightBit(3, 2));
    dib.SetDibPalette(ColorRed);
    dib.Row(0)[0] = 200; // bottom row, first pixel
    std::string text;
    ASSERT_TRUE(dib.Write(dir.file("e.bmp"), &text)) << text;
    const auto b = ReadBytes(dir.file("e.bmp"));
    ASSERT_EQ(b.size(), 54u + 1024u + 8u);
    EXPECT_EQ(Le32(b, 10), 54u + 1024u);
    CDib back;
    ASSERT_TRUE(back.Read(dir.file("e.bmp"), &text)) << text;
    EXPECT_EQ(back.BitCount(), 8);
    EXPECT_EQ(back.Colors()[200].red, 200);
    EXPECT_EQ(back.Colors()[200].green, 0);
    Image img;
    ASSERT_TRUE(img.ReadBMP(dir.file("e.bmp")));
    EXPECT_EQ(img.curPlane[0][3], 200.0f * 257); // bottom-left is the last image row
    EXPECT_EQ(img.curPlane[1][3], 0.0f);
}

TEST(BmpRead, ToolMadeFilesWhenAvailable) {
    if (!test::HaveProgram("cjpeg") || !test::HaveProgram("djpeg"))
        GTEST_SKIP() << "cjpeg/djpeg not installed";
    // djpeg writes bitmaps itself: 24-bit, 8-bit palette ones with -colors, and the old core
    // form with -os2. Its PPM of the same JPEG is the truth.
    ScratchDir dir;
    std::string ppm = "P6\n5 3\n255\n";
    for (int i = 0; i < 15; ++i) {
        ppm += static_cast<char>(16 * i);
        ppm += static_cast<char>(255 - 16 * i);
        ppm += static_cast<char>(128);
    }
    std::ofstream(dir.file("in.ppm"), std::ios::binary) << ppm;
    ASSERT_EQ(test::RunCommand("cjpeg -quality 100 -outfile " + dir.file("in.jpg") + " " +
                               dir.file("in.ppm")),
              0);
    ASSERT_EQ(
        test::RunCommand("djpeg -pnm -outfile " + dir.file("out.ppm") + " " + dir.file("in.jpg")),
        0);
    const auto truth = ReadBytes(dir.file("out.ppm"));
    ASSERT_EQ(truth.size(), 11u + 45u);
    struct Case {
        const char* option;
        int bits;
        int tolerance;
    } cases[] = {{"-bmp", 24, 0}, {"-os2", 24, 0}, {"-bmp -colors 16", 8, 80}};
    for (const Case& c : cases) {
        const std::string out = dir.file("out.bmp");
        ASSERT_EQ(test::RunCommand(std::string("djpeg ") + c.option + " -outfile " + out + " " +
                                   dir.file("in.jpg")),
                  0);
        CDib dib;
        ASSERT_TRUE(dib.Read(out));
        EXPECT_EQ(dib.BitCount(), c.bits) << c.option;
        Image img;
        ASSERT_TRUE(img.ReadBMP(out)) << c.option << ": " << LastFileError();
        ASSERT_EQ(img.width, 5);
        ASSERT_EQ(img.height, 3);
        for (int i = 0; i < 15; ++i)
            for (int s = 0; s < 3; ++s)
                EXPECT_NEAR(img.curPlane[s][i] / 257, truth[11 + 3 * i + s], c.tolerance)
                    << c.option << " pixel " << i << " channel " << s;
    }
}

} // namespace
} // namespace astrivelle
