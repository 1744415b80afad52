// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Reading FITS: sample types and clamping, locating a compressed image, colour from
/// three axes or three HDUs, the rows reader, the probe, and files that must fail.
#include <cmath>
#include <cstdint>
#include <fstream>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "FitsTestFiles.h"
#include "TestSupport.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/Fits.h"

namespace astrivelle {
namespace {

using test::HduSpec;
using test::ScratchDir;
using test::WriteHdus;
using test::WriteMono;

std::vector<float> Plane(const Image& img, int slot) {
    return std::vector<float>(img.curPlane[slot], img.curPlane[slot] + img.pixelCount);
}

/// Rewrites the value field (columns 11-30) of the first card named `key` in the file.
void PatchCard(const std::string& path, const std::string& key, const std::string& value) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(file)), {});
    std::string name = key;
    name.resize(8, ' ');
    name += "= ";
    for (std::size_t at = 0; at + 80 <= bytes.size(); at += 80)
        if (bytes.compare(at, 10, name) == 0) {
            std::string field(20 - value.size(), ' ');
            field += value;
            file.seekp(static_cast<std::streamoff>(at + 10));
            file.write(field.data(), 20);
            return;
        }
    FAIL() << key << " not found in " << path;
}

TEST(FitsRead, Bzero32768SixteenBitReadsAsUnsignedWithoutLoss) {
    ScratchDir dir;
    const std::string path = dir.file("u16.fit");
    const std::uint16_t data[6] = {0, 1, 32767, 32768, 40000, 65535};
    ASSERT_EQ(WriteMono(path, USHORT_IMG, TUSHORT, 3, 2, data), 0);
    EXPECT_EQ(test::KeyText(path, 1, "BZERO"), "32768");
    Image img;
    ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
    EXPECT_EQ(img.width, 3);
    EXPECT_EQ(img.height, 2);
    EXPECT_EQ(img.fileType, KindFITS);
    EXPECT_EQ(img.colorType, ColorGray);
    EXPECT_EQ(img.dataType, Data16);
    EXPECT_FALSE(img.fitsCompress);
    EXPECT_EQ(Plane(img, 0), (std::vector<float>{0, 1, 32767, 32768, 40000, 65535}));
}

struct SampleCase {
    const char* name;
    int bitpix;
    int type;
    std::vector<double> written;
    std::vector<float> expected;
    std::uint32_t dataType;
    const char* bzero; ///< key forced on the file, "" for none
};

// Names the case in test listings instead of dumping its bytes.
void PrintTo(const SampleCase& c, std::ostream* os) {
    *os << c.name;
}

class FitsSampleTypes : public ::testing::TestWithParam<SampleCase> {};

template <class T> std::vector<T> As(const std::vector<double>& v) {
    return std::vector<T>(v.begin(), v.end());
}

TEST_P(FitsSampleTypes, ReadConvertsAndClamps) {
    const SampleCase& c = GetParam();
    ScratchDir dir;
    const std::string path = dir.file("sample.fits");
    const long n = static_cast<long>(c.written.size());
    int status = 0;
    switch (c.type) {
    case TBYTE: {
        auto v = As<std::uint8_t>(c.written);
        status = WriteMono(path, c.bitpix, c.type, n, 1, v.data());
        break;
    }
    case TSHORT: {
        auto v = As<std::int16_t>(c.written);
        status = WriteMono(path, c.bitpix, c.type, n, 1, v.data());
        break;
    }
    case TINT: {
        auto v = As<std::int32_t>(c.written);
        status = WriteMono(path, c.bitpix, c.type, n, 1, v.data());
        break;
    }
    case TUINT: {
        auto v = As<std::uint32_t>(c.written);
        status = WriteMono(path, c.bitpix, c.type, n, 1, v.data());
        break;
    }
    case TFLOAT: {
        auto v = As<float>(c.written);
        status = WriteMono(path, c.bitpix, c.type, n, 1, v.data());
        break;
    }
    default: {
        status = WriteMono(path, c.bitpix, c.type, n, 1, c.written.data());
        break;
    }
    }
    ASSERT_EQ(status, 0);
    if (*c.bzero) {
        EXPECT_EQ(test::KeyText(path, 1, "BZERO"), c.bzero);
    }
    test::ExpectFitsVerifies(path);
    Image img;
    ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
    EXPECT_EQ(img.dataType, c.dataType);
    EXPECT_EQ(Plane(img, 0), c.expected);
}

const double kNaN = std::numeric_limits<double>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(
    EveryBitpix, FitsSampleTypes,
    ::testing::Values(
        // 8-bit samples are scaled by 65535 / 255.
        SampleCase{"Byte", BYTE_IMG, TBYTE, {0, 1, 128, 255}, {0, 257, 32896, 65535}, Data8, ""},
        // Signed 16-bit: negative values read as 0.
        SampleCase{
            "Short", SHORT_IMG, TSHORT, {-5, -32768, 0, 7, 32767}, {0, 0, 0, 7, 32767}, Data16, ""},
        SampleCase{"Long",
                   LONG_IMG,
                   TINT,
                   {-1, 0, 1234, 65535, 70000, 2147483647},
                   {0, 0, 1234, 65535, 65535, 65535},
                   Data32,
                   ""},
        // BZERO 2147483648: the TINT read overflows, TUINT reads it.
        SampleCase{"UnsignedLong",
                   ULONG_IMG,
                   TUINT,
                   {0, 5, 65535, 65536, 3000000000.0},
                   {0, 5, 65535, 65535, 65535},
                   Data32,
                   "2147483648"},
        // Floats are clamped, never normalised; NaN is the null value 1.
        SampleCase{"Float",
                   FLOAT_IMG,
                   TFLOAT,
                   {-1.5, 0.25, 1.0, 65535.5, 70000, kNaN},
                   {0, 0.25f, 1.0f, 65535, 65535, 1},
                   DataFloat,
                   ""},
        SampleCase{"Double",
                   DOUBLE_IMG,
                   TDOUBLE,
                   {-1e30, 0.125, 0.999, 12345.678, 1e30, kNaN},
                   {0, 0.125f, 0.999f, 12345.678f, 65535, 1},
                   DataDouble,
                   ""}),
    [](const ::testing::TestParamInfo<SampleCase>& info) { return info.param.name; });

TEST(FitsRead, UnsupportedBitpixFails) {
    ScratchDir dir;
    const std::string path = dir.file("i64.fit");
    const long long data[4] = {1, 2, 3, 4};
    ASSERT_EQ(WriteMono(path, LONGLONG_IMG, TLONGLONG, 2, 2, data), 0);
    Image img;
    EXPECT_FALSE(img.ReadFITS(path));
    EXPECT_EQ(LastFileError(), "Unsupported FITS BITPIX 64");
    bool color = true;
    EXPECT_TRUE(ProbeFITS(path, &color)); // the probe only looks at the layout
    EXPECT_FALSE(color);
}

TEST(FitsRead, EmptyPrimaryWithCompressedImageReadsAndMarksCompressed) {
    ScratchDir dir;
    const std::string path = dir.file("rice.fit");
    std::vector<std::uint16_t> data(40 * 30);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<std::uint16_t>((i * 977) % 65536);
    ASSERT_EQ(WriteHdus(path, {{USHORT_IMG, {40, 30}, TUSHORT, data.data(), {}}}, true), 0);
    ASSERT_EQ(test::KeyText(path, 1, "NAXIS"), "0");
    ASSERT_EQ(test::KeyText(path, 2, "ZCMPTYPE"), "'RICE_1  '");
    Image img;
    ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
    EXPECT_TRUE(img.fitsCompress);
    EXPECT_EQ(img.colorType, ColorGray);
    EXPECT_EQ(img.dataType, Data16);
    EXPECT_EQ(Plane(img, 0), std::vector<float>(data.begin(), data.end()));
    FitsGeometry g;
    ASSERT_TRUE(ProbeFITSGeometry(path, &g));
    EXPECT_TRUE(g.compressed);
    EXPECT_EQ(g.width, 40);
    EXPECT_EQ(g.height, 30);
}

TEST(FitsRead, CompressedZbitpixSetsTheDataType) {
    struct Case {
        int bitpix;
        int type;
        std::uint32_t expected;
    };
    for (const Case& c : {Case{LONG_IMG, TINT, Data32}, Case{FLOAT_IMG, TFLOAT, DataFloat},
                          Case{DOUBLE_IMG, TDOUBLE, DataDouble}, Case{BYTE_IMG, TBYTE, Data8}}) {
        ScratchDir dir;
        const std::string path = dir.file("z.fit");
        std::vector<double> values(8 * 4, 100.0);
        std::vector<std::uint8_t> bytes(values.size(), 100);
        std::vector<std::int32_t> ints(values.size(), 100);
        std::vector<float> floats(values.size(), 100.0f);
        const void* data = c.type == TBYTE    ? static_cast<const void*>(bytes.data())
                           : c.type == TINT   ? static_cast<const void*>(ints.data())
                           : c.type == TFLOAT ? static_cast<const void*>(floats.data())
                                              : static_cast<const void*>(values.data());
        ASSERT_EQ(WriteHdus(path, {{c.bitpix, {8, 4}, c.type, data, {}}}, true), 0);
        Image img;
        ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
        EXPECT_EQ(img.dataType, c.expected) << "BITPIX " << c.bitpix;
        EXPECT_TRUE(img.fitsCompress);
    }
}

/// Three 4 x 3 HDUs: red 1000 + i, green 2000 + i, blue 3000 + i; `blueAxes` sizes the last.
std::string WriteThreeHdus(const ScratchDir& dir, std::vector<long> blueAxes,
                           std::vector<std::uint16_t> (&planes)[3]) {
    const std::string path = dir.file("rgb.fits");
    for (int p = 0; p < 3; ++p) {
        planes[p].resize(12);
        for (int i = 0; i < 12; ++i)
            planes[p][i] = static_cast<std::uint16_t>(1000 * (p + 1) + i);
    }
    planes[2].resize(static_cast<std::size_t>(blueAxes[0] * blueAxes[1]), 7);
    auto key = [](const char* name) {
        return [name](fitsfile* f, int* s) {
            ffpkys(f, "WHERE", const_cast<char*>(name), "which HDU", s);
        };
    };
    EXPECT_EQ(WriteHdus(path, {{USHORT_IMG, {4, 3}, TUSHORT, planes[0].data(), key("red")},
                               {USHORT_IMG, {4, 3}, TUSHORT, planes[1].data(), key("green")},
                               {USHORT_IMG, blueAxes, TUSHORT, planes[2].data(), key("blue")}}),
              0);
    return path;
}

std::string CardValue(const Image& img, const std::string& key) {
    for (const CFITSHeader& c : img.headerCards)
        if (c.key == key)
            return c.value;
    return "<absent>";
}

TEST(FitsRead, ThreeHdusOfOneSizeReadAsRgbWithTheLastHeader) {
    ScratchDir dir;
    std::vector<std::uint16_t> planes[3];
    const std::string path = WriteThreeHdus(dir, {4, 3}, planes);
    Image img;
    ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
    EXPECT_EQ(img.colorType, ColorRGB);
    for (int p = 0; p < 3; ++p)
        EXPECT_EQ(Plane(img, p), std::vector<float>(planes[p].begin(), planes[p].end()));
    EXPECT_EQ(CardValue(img, "WHERE"), "blue");
    bool color = false;
    ASSERT_TRUE(ProbeFITS(path, &color));
    EXPECT_TRUE(color);
}

TEST(FitsRead, MismatchedThirdHduLeavesBlueAsAllocated) {
    ScratchDir dir;
    std::vector<std::uint16_t> planes[3];
    const std::string path = WriteThreeHdus(dir, {5, 3}, planes);
    Image img;
    ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
    EXPECT_EQ(img.colorType, ColorRGB);
    EXPECT_EQ(Plane(img, 0), std::vector<float>(planes[0].begin(), planes[0].end()));
    EXPECT_EQ(Plane(img, 1), std::vector<float>(planes[1].begin(), planes[1].end()));
    EXPECT_EQ(Plane(img, 2), std::vector<float>(12, 0.0f));
    // The header is the one of the HDU reached: the third.
    EXPECT_EQ(CardValue(img, "WHERE"), "blue");
    bool color = true;
    ASSERT_TRUE(ProbeFITS(path, &color));
    EXPECT_FALSE(color); // the probe demands the third HDU of the same size too
}

TEST(FitsRead, SecondHduOfAnotherSizeLeavesGray) {
    ScratchDir dir;
    const std::string path = dir.file("two.fits");
    const std::uint16_t a[4] = {1, 2, 3, 4};
    const std::uint16_t b[6] = {9, 9, 9, 9, 9, 9};
    ASSERT_EQ(WriteHdus(path, {{USHORT_IMG, {2, 2}, TUSHORT, a, {}},
                               {USHORT_IMG,
                                {3, 2},
                                TUSHORT,
                                b,
                                [](fitsfile* f, int* s) {
                                    ffpkys(f, "WHERE", const_cast<char*>("second"), "", s);
                                }}}),
              0);
    Image img;
    ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
    EXPECT_EQ(img.colorType, ColorGray);
    EXPECT_EQ(Plane(img, 0), (std::vector<float>{1, 2, 3, 4}));
    EXPECT_EQ(img.curPlane[1], nullptr);
    EXPECT_EQ(CardValue(img, "WHERE"), "second");
}

TEST(FitsRead, TwoHdusOfOneSizeAreColourForTheReaderButMonoForTheProbe) {
    ScratchDir dir;
    const std::string path = dir.file("two.fits");
    const std::uint16_t a[4] = {1, 2, 3, 4};
    const std::uint16_t b[4] = {5, 6, 7, 8};
    ASSERT_EQ(WriteHdus(path, {{USHORT_IMG, {2, 2}, TUSHORT, a, {}},
                               {USHORT_IMG, {2, 2}, TUSHORT, b, {}}}),
              0);
    Image img;
    ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
    EXPECT_EQ(img.colorType, ColorRGB);
    EXPECT_EQ(Plane(img, 1), (std::vector<float>{5, 6, 7, 8}));
    EXPECT_EQ(Plane(img, 2), std::vector<float>(4, 0.0f));
    bool color = true;
    ASSERT_TRUE(ProbeFITS(path, &color));
    EXPECT_FALSE(color);
}

TEST(FitsRead, ThreeAxesAreRedGreenBlueInOrder) {
    ScratchDir dir;
    const std::string path = dir.file("cube.fits");
    std::vector<float> data(3 * 6);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<float>(10 * i) + 0.5f;
    ASSERT_EQ(WriteHdus(path, {{FLOAT_IMG, {3, 2, 3}, TFLOAT, data.data(), {}}}), 0);
    Image img;
    ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
    EXPECT_EQ(img.colorType, ColorRGB);
    EXPECT_EQ(img.width, 3);
    EXPECT_EQ(img.height, 2);
    for (int p = 0; p < 3; ++p)
        EXPECT_EQ(Plane(img, p),
                  std::vector<float>(data.begin() + 6 * p, data.begin() + 6 * p + 6));
    bool color = false;
    ASSERT_TRUE(ProbeFITS(path, &color));
    EXPECT_TRUE(color);
}

TEST(FitsRead, ThreeAxesWithFewerThanThreePlanesReadAsGray) {
    ScratchDir dir;
    const std::string path = dir.file("cube1.fits");
    const std::uint16_t data[6] = {1, 2, 3, 4, 5, 6};
    ASSERT_EQ(WriteHdus(path, {{USHORT_IMG, {3, 2, 1}, TUSHORT, data, {}}}), 0);
    Image img;
    ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
    EXPECT_EQ(img.colorType, ColorGray);
    EXPECT_EQ(Plane(img, 0), (std::vector<float>{1, 2, 3, 4, 5, 6}));
    bool color = true;
    ASSERT_TRUE(ProbeFITS(path, &color));
    EXPECT_FALSE(color);
    // The rows reader without green and blue reads the first plane only.
    std::vector<float> red(6);
    float* rows[2] = {red.data(), red.data() + 3};
    EXPECT_TRUE(ReadFITSRows(rows, nullptr, nullptr, path, 3, 2)) << LastFileError();
    EXPECT_EQ(red, (std::vector<float>{1, 2, 3, 4, 5, 6}));
}

TEST(FitsRead, ScaledIntegersBeyondBothRangesReadAsFloatsAndClamp) {
    // BSCALE 2 and BZERO 40000 put stored 16-bit samples at 40000 + 2 s: beyond both the
    // signed and the unsigned 16-bit range for large s.
    ScratchDir dir;
    const std::string path = dir.file("scaled.fits");
    const std::int16_t stored[4] = {-20000, 0, 10000, 20000}; // 0, 40000, 60000, 80000
    ASSERT_EQ(WriteMono(path, SHORT_IMG, TSHORT, 2, 2, stored,
                        [](fitsfile* f, int* status) {
                            double scale = 2, zero = 40000;
                            ffuky(f, TDOUBLE, "BSCALE", &scale, nullptr, status);
                            ffuky(f, TDOUBLE, "BZERO", &zero, nullptr, status);
                            ffrdef(f, status);
                        }),
              0);
    Image img;
    ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
    EXPECT_EQ(Plane(img, 0), (std::vector<float>{0, 40000, 60000, 65535}));
    EXPECT_EQ(img.dataType, Data16);
}

TEST(FitsRead, RowsReaderFillsCallerRows) {
    ScratchDir dir;
    std::vector<std::uint16_t> planes[3];
    const std::string path = WriteThreeHdus(dir, {4, 3}, planes);
    FitsGeometry g;
    ASSERT_TRUE(ProbeFITSGeometry(path, &g));
    ASSERT_EQ(g.width, 4);
    ASSERT_EQ(g.height, 3);
    EXPECT_TRUE(g.isColor);
    EXPECT_EQ(g.dataType, Data16);

    std::vector<float> store[3];
    std::vector<float*> rows[3];
    for (int p = 0; p < 3; ++p) {
        store[p].assign(12, -1.0f);
        for (int y = 0; y < 3; ++y)
            rows[p].push_back(store[p].data() + 4 * y);
    }
    // Green absent: only red is read, colour is not looked for.
    FitsGeometry found;
    ASSERT_TRUE(ReadFITSRows(rows[0].data(), nullptr, rows[2].data(), path, 4, 3, &found));
    EXPECT_EQ(store[0], std::vector<float>(planes[0].begin(), planes[0].end()));
    EXPECT_EQ(store[2], std::vector<float>(12, -1.0f));
    EXPECT_FALSE(found.isColor);

    ASSERT_TRUE(ReadFITSRows(rows[0].data(), rows[1].data(), rows[2].data(), path, 4, 3, &found));
    EXPECT_TRUE(found.isColor);
    for (int p = 0; p < 3; ++p)
        EXPECT_EQ(store[p], std::vector<float>(planes[p].begin(), planes[p].end()));

    // Rows of another size are refused before anything is written into them.
    store[0].assign(12, -1.0f);
    EXPECT_FALSE(ReadFITSRows(rows[0].data(), nullptr, nullptr, path, 3, 4));
    EXPECT_EQ(LastFileError(), "The FITS image is 4 x 3, not 3 x 4");
    EXPECT_EQ(store[0], std::vector<float>(12, -1.0f));
}

TEST(FitsRead, SubtractionMinimaComeFromBmmsKeys) {
    ScratchDir dir;
    const std::string path = dir.file("bmms.fit");
    const std::uint16_t data[1] = {5};
    ASSERT_EQ(WriteMono(path, USHORT_IMG, TUSHORT, 1, 1, data,
                        [](fitsfile* f, int* s) {
                            double a = -12.5, b = 3.0, c = -0.25;
                            ffpkyd(f, "BMMS1", a, 5, "", s);
                            ffpkyd(f, "BMMS2", b, 5, "", s);
                            ffpkyd(f, "BMMS3", c, 5, "", s);
                        }),
              0);
    Image img;
    img.planeSubtractMinimum[1] = 99; // a value from before is not kept
    ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
    EXPECT_DOUBLE_EQ(img.planeSubtractMinimum[0], -12.5);
    EXPECT_DOUBLE_EQ(img.planeSubtractMinimum[1], 0.0);
    EXPECT_DOUBLE_EQ(img.planeSubtractMinimum[2], -0.25);
}

TEST(FitsRead, HostileSizesFailWithoutAllocating) {
    ScratchDir dir;
    const std::uint16_t data[4] = {1, 2, 3, 4};
    struct Case {
        const char* naxis1;
        const char* naxis2;
        const char* reason;
    };
    for (const Case& c :
         {Case{"60000", "60000", "The FITS file is shorter than its header says"},
          Case{"100000", "100000", "The FITS image size 100000 x 100000 is not usable"},
          Case{"0", "2", "The FITS image size 0 x 2 is not usable"}}) {
        const std::string path = dir.file("big.fit");
        ASSERT_EQ(WriteMono(path, USHORT_IMG, TUSHORT, 2, 2, data), 0);
        PatchCard(path, "NAXIS1", c.naxis1);
        PatchCard(path, "NAXIS2", c.naxis2);
        Image img;
        EXPECT_FALSE(img.ReadFITS(path));
        EXPECT_EQ(LastFileError(), c.reason);
        EXPECT_EQ(img.curPlane[0], nullptr);
    }
}

TEST(FitsRead, HostileCompressedSizeFailsCleanly) {
    ScratchDir dir;
    const std::string path = dir.file("bigz.fit");
    const std::uint16_t data[4] = {1, 2, 3, 4};
    ASSERT_EQ(WriteHdus(path, {{USHORT_IMG, {2, 2}, TUSHORT, data, {}}}, true), 0);
    PatchCard(path, "ZNAXIS1", "60000");
    PatchCard(path, "ZNAXIS2", "60000");
    Image img;
    EXPECT_FALSE(img.ReadFITS(path));
    EXPECT_FALSE(LastFileError().empty());
}

TEST(FitsRead, BadFilesFail) {
    ScratchDir dir;
    std::vector<std::uint16_t> data(100 * 100, 1234);
    const std::string good = dir.file("good.fit");
    ASSERT_EQ(WriteMono(good, USHORT_IMG, TUSHORT, 100, 100, data.data()), 0);

    const std::string truncated = dir.file("truncated.fit");
    {
        std::ifstream in(good, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(in)), {});
        std::ofstream(truncated, std::ios::binary).write(bytes.data(), 2880 + 1000);
    }
    const std::string garbage = dir.file("garbage.fit");
    {
        std::ofstream out(garbage, std::ios::binary);
        for (int i = 0; i < 5000; ++i)
            out.put(static_cast<char>((i * 131 + 7) % 256));
    }
    const std::string tiffBytes = dir.file("really_tiff.fit");
    {
        std::ofstream out(tiffBytes, std::ios::binary);
        out.write("II*\0\x08\0\0\0", 8);
        out << std::string(3000, '\0');
    }
    const std::string empty = dir.file("empty.fit");
    std::ofstream(empty).close();

    for (const std::string& path :
         {truncated, garbage, tiffBytes, empty, dir.file("missing.fit")}) {
        Image img;
        EXPECT_FALSE(img.ReadFITS(path)) << path;
        EXPECT_FALSE(LastFileError().empty()) << path;
        bool color;
        EXPECT_FALSE(ProbeFITS(path, &color)) << path;
    }
    Image img;
    EXPECT_TRUE(img.ReadFITS(good)) << LastFileError();
    EXPECT_EQ(LastFileError(), "");
}

} // namespace
} // namespace astrivelle
