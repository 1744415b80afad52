// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Writing FITS: every data type in every layout, compressed and not, read back; the
/// rounding rule; the float planes writer; fpack's files; failures that touch nothing.
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <vector>

#include <gtest/gtest.h>

#include "FitsTestFiles.h"
#include "TestSupport.h"
#include "engine/Image.h"
#include "engine/Levels.h"
#include "fileio/FileDispatch.h"
#include "fileio/Fits.h"

namespace astrivelle {
namespace {

using test::ScratchDir;

std::vector<float> Plane(const Image& img, int slot) {
    return std::vector<float>(img.curPlane[slot], img.curPlane[slot] + img.pixelCount);
}

/// A pixel value that differs per slot and position and includes fractions and both ends.
double Source(int slot, int x, int y) {
    const int i = y * 7 + x;
    if (i == 0)
        return 0.0;
    if (i == 1)
        return 65535.0;
    return std::fmod(1000.0 * (slot + 1) + i * 1234.567, 65535.0);
}

/// What a plane value comes back as after a write of `dataType` and a read.
float Expected(std::uint32_t dataType, double v) {
    switch (dataType) {
    case Data8:
        return static_cast<float>((RoundLevel(v) / 257) * 257);
    case Data16:
    case Data32:
        return static_cast<float>(RoundLevel(v));
    default:
        return static_cast<float>(v);
    }
}

struct Layout {
    const char* name;
    std::uint32_t colorType;
    bool maxim;
    int hdus;  ///< HDUs of the uncompressed file
    int naxis; ///< NAXIS of the image HDUs
};

const Layout kLayouts[] = {
    {"Gray", ColorGray, false, 1, 2},
    {"GreenSlot1", ColorGreen, false, 1, 2},
    {"MagentaSlot1", ColorMagenta, false, 1, 2},
    {"BlueSlot2", ColorBlue, false, 1, 2},
    {"YellowSlot2", ColorYellow, false, 1, 2},
    {"RgbThreeHdus", ColorRGB, false, 3, 2},
    {"RgbMaxim", ColorRGB, true, 1, 3},
};

TEST(FitsWrite, EveryDataTypeAndLayoutRoundTrips) {
    ScratchDir dir;
    const int w = 7, h = 5;
    for (std::uint32_t dataType : {Data8, Data16, Data32, DataFloat, DataDouble})
        for (const Layout& layout : kLayouts)
            for (bool compress : {false, true}) {
                SCOPED_TRACE(std::string(layout.name) + " dataType " + std::to_string(dataType) +
                             (compress ? " compressed" : " uncompressed"));
                Image img;
                test::MakeImage(img, w, h, layout.colorType, Source);
                img.dataType = dataType;
                img.fitsMaximColor = layout.maxim;
                img.fitsCompress = compress;
                const std::string path = dir.file("out.fit");
                ASSERT_TRUE(img.WriteFile(path, KindFITS)) << LastFileError();
                test::ExpectFitsVerifies(path);
                EXPECT_EQ(test::HduCount(path), layout.hdus + (compress ? 1 : 0));
                const int first = compress ? 2 : 1;
                EXPECT_EQ(test::KeyText(path, first, compress ? "ZNAXIS" : "NAXIS"),
                          std::to_string(layout.naxis));

                Image back;
                ASSERT_TRUE(back.ReadFITS(path)) << LastFileError();
                EXPECT_EQ(back.width, w);
                EXPECT_EQ(back.height, h);
                EXPECT_EQ(back.dataType, dataType);
                EXPECT_EQ(back.fitsCompress, compress);
                EXPECT_EQ(back.colorType, layout.colorType == ColorRGB ? ColorRGB : ColorGray);
                const std::vector<int> slots = img.Slots();
                for (std::size_t k = 0; k < slots.size(); ++k) {
                    const std::vector<float> got = Plane(back, static_cast<int>(k));
                    for (int y = 0; y < h; ++y)
                        for (int x = 0; x < w; ++x) {
                            const float want = Expected(dataType, Source(slots[k], x, y));
                            const float have = got[static_cast<std::size_t>(y * w + x)];
                            // Every type is lossless, compressed floats included.
                            EXPECT_EQ(have, want) << "x " << x << " y " << y;
                        }
                }
            }
}

TEST(FitsWrite, SixteenBitIsUnsignedWithBzero) {
    ScratchDir dir;
    Image img;
    test::MakeImage(img, 2, 1, ColorGray, [](int, int x, int) { return x ? 65535 : 0; });
    const std::string path = dir.file("u.fit");
    ASSERT_TRUE(img.WriteFITS(path, KindFITS)) << LastFileError();
    EXPECT_EQ(test::KeyText(path, 1, "BITPIX"), "16");
    EXPECT_EQ(test::KeyText(path, 1, "BZERO"), "32768");
}

TEST(FitsWrite, NearestIntegerRoundsHalfDown) {
    const std::vector<float> values = {0.5f, 0.51f, 1.5f, 1.51f, 2.49f, 65535.4f, 70000.f, -3.f};
    struct Case {
        std::uint32_t dataType;
        std::vector<float> expected;
    };
    for (const Case& c : {Case{Data16, {0, 1, 1, 2, 2, 65535, 65535, 0}},
                          // 32-bit values never exceed 65535 after a round trip.
                          Case{Data32, {0, 1, 1, 2, 2, 65535, 65535, 0}},
                          // 8-bit: the nearest integer divided by 257, truncated.
                          Case{Data8, {0, 0, 0, 0, 0, 65535, 65535, 0}}}) {
        ScratchDir dir;
        Image img;
        test::MakeImage(img, static_cast<int>(values.size()), 1, ColorGray,
                        [&](int, int x, int) { return values[static_cast<std::size_t>(x)]; });
        img.dataType = c.dataType;
        const std::string path = dir.file("r.fit");
        ASSERT_TRUE(img.WriteFITS(path, KindFITS)) << LastFileError();
        Image back;
        ASSERT_TRUE(back.ReadFITS(path)) << LastFileError();
        EXPECT_EQ(Plane(back, 0), c.expected) << "dataType " << c.dataType;
    }
    // 8-bit truncation after rounding: 513.5 -> 513 -> 1, 514.51 -> 515 -> 2.
    ScratchDir dir;
    Image img;
    test::MakeImage(img, 2, 1, ColorGray, [](int, int x, int) { return x ? 514.51 : 513.5; });
    img.dataType = Data8;
    ASSERT_TRUE(img.WriteFITS(dir.file("b.fit"), KindFITS));
    Image back;
    ASSERT_TRUE(back.ReadFITS(dir.file("b.fit")));
    EXPECT_EQ(Plane(back, 0), (std::vector<float>{257, 514}));
}

TEST(FitsWrite, FloatPlanesWriterTakesFilterRowsOrCurrentPlanes) {
    ScratchDir dir;
    Image img;
    test::MakeImage(img, 3, 2, ColorRGB, [](int s, int x, int y) { return 100 * s + 10 * y + x; });
    img.dataType = Data8; // ignored: always 32-bit float
    const std::string path = dir.file("Filter$1.fit");
    EXPECT_FALSE(img.WriteFITSFloatPlanes(path, "FILTER"));
    EXPECT_EQ(LastFileError(), "The image has no filter planes to write");

    ASSERT_TRUE(img.AllocateWorkRows());
    for (int s = 0; s < 3; ++s)
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 3; ++x)
                img.workRows[s][y][x] = -5.25f + s * 70000.0f + x; // out of range on purpose
    ASSERT_TRUE(img.WriteFITSFloatPlanes(path, "FILTER")) << LastFileError();
    test::ExpectFitsVerifies(path);
    EXPECT_EQ(test::HduCount(path), 3);
    for (int hdu = 1; hdu <= 3; ++hdu) {
        EXPECT_EQ(test::KeyText(path, hdu, "BITPIX"), "-32");
        EXPECT_EQ(test::KeyText(path, hdu, "NAXIS"), "2");
    }
    {
        // The raw samples are the filter rows as they are, not clamped.
        ImageFileGuard guard;
        int status = 0, anyNull = 0;
        fitsfile* f = nullptr;
        ffdkopn(&f, path.c_str(), READONLY, &status);
        ffmahd(f, 2, nullptr, &status);
        float got[6] = {};
        float zero = 0;
        ffgpv(f, TFLOAT, 1, 6, &zero, got, &anyNull, &status);
        ffclos(f, &status);
        ASSERT_EQ(status, 0);
        EXPECT_EQ(
            std::vector<float>(got, got + 6),
            (std::vector<float>{69994.75f, 69995.75f, 69996.75f, 69994.75f, 69995.75f, 69996.75f}));
    }
    ASSERT_TRUE(img.WriteFITSFloatPlanes(path, "CURRENT")) << LastFileError();
    Image back;
    ASSERT_TRUE(back.ReadFITS(path));
    EXPECT_EQ(back.dataType, DataFloat);
    EXPECT_EQ(Plane(back, 2), (std::vector<float>{200, 201, 202, 210, 211, 212}));
}

TEST(FitsWrite, FailuresTouchNothingElse) {
    ScratchDir dir;
    const std::string blocker = dir.file("not_a_folder");
    std::ofstream(blocker) << "keep me";
    Image img;
    test::MakeImage(img, 2, 2, ColorGray, [](int, int, int) { return 1; });
    EXPECT_FALSE(img.WriteFile(blocker + "/out.fit", KindFITS));
    EXPECT_FALSE(LastFileError().empty());
    std::ifstream in(blocker);
    std::string kept((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(kept, "keep me");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);

    // An invalid colour type or data type is refused before the target is deleted.
    const std::string existing = dir.file("existing.fit");
    std::ofstream(existing) << "old";
    img.colorType = 5;
    EXPECT_FALSE(img.WriteFITS(existing, KindFITS));
    EXPECT_EQ(LastFileError(), "Internal error, image does not have a valid color type.");
    img.colorType = ColorGray;
    img.dataType = 7;
    EXPECT_FALSE(img.WriteFITS(existing, KindFITS));
    EXPECT_EQ(LastFileError(), "FITS data type 7 cannot be written");
    EXPECT_TRUE(std::filesystem::exists(existing));
    EXPECT_EQ(std::filesystem::file_size(existing), 3u);
}

TEST(FitsWrite, WritingReplacesAnExistingFile) {
    ScratchDir dir;
    const std::string path = dir.file("again.fit");
    for (int value : {10, 20}) {
        Image img;
        test::MakeImage(img, 2, 2, ColorGray, [&](int, int, int) { return value; });
        ASSERT_TRUE(img.WriteFITS(path, KindFITS)) << LastFileError();
    }
    Image back;
    ASSERT_TRUE(back.ReadFITS(path));
    EXPECT_EQ(Plane(back, 0), std::vector<float>(4, 20.0f));
}

TEST(FitsWrite, FpackRiceFilesReadBackIdentical) {
    if (!test::HaveProgram("fpack"))
        GTEST_SKIP() << "fpack is not installed";
    ScratchDir dir;
    std::vector<std::uint16_t> planes[3];
    for (int p = 0; p < 3; ++p) {
        planes[p].resize(64 * 48);
        for (std::size_t i = 0; i < planes[p].size(); ++i)
            planes[p][i] = static_cast<std::uint16_t>((i * 2654435761u + p * 999) % 65536);
    }
    struct Case {
        const char* name;
        int hdus;
    };
    for (const Case& c : {Case{"mono.fits", 1}, Case{"rgb.fits", 3}}) {
        const std::string path = dir.file(c.name);
        std::vector<test::HduSpec> hdus;
        for (int p = 0; p < c.hdus; ++p)
            hdus.push_back({USHORT_IMG, {64, 48}, TUSHORT, planes[p].data(), {}});
        ASSERT_EQ(test::WriteHdus(path, hdus), 0);
        for (const char* option : {"", "-r"}) {
            SCOPED_TRACE(std::string(c.name) + " fpack " + option);
            const std::string packed = path + ".fz";
            std::filesystem::remove(packed);
            std::string output;
            ASSERT_EQ(test::RunCommand("fpack " + std::string(option) + " '" + path + "'", &output),
                      0)
                << output;
            EXPECT_EQ(test::KeyText(packed, 2, "ZCMPTYPE"), "'RICE_1  '");
            Image original, unpacked;
            ASSERT_TRUE(original.ReadFITS(path)) << LastFileError();
            ASSERT_TRUE(unpacked.ReadFITS(packed)) << LastFileError();
            EXPECT_FALSE(original.fitsCompress);
            EXPECT_TRUE(unpacked.fitsCompress);
            EXPECT_EQ(unpacked.colorType, original.colorType);
            EXPECT_EQ(unpacked.dataType, Data16);
            for (int s : original.Slots())
                EXPECT_EQ(Plane(unpacked, s), Plane(original, s));
        }
    }
}

} // namespace
} // namespace astrivelle
