// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Reading TIFF by the tag rules: sample conversion in both byte orders and over several
/// strips, the texts and the silent failures, sizes refused before allocation, and damaged
/// files that must fail without harm.
#include <cmath>
#include <cstring>
#include <filesystem>
#include <random>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "TiffTestFiles.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/Tiff.h"

namespace astrivelle {
namespace {

using test::AddStrips;
using test::BaseTags;
using test::ScratchDir;
using test::TiffBuilder;
using test::TiffTag;

std::uint32_t FloatBits(float f) {
    std::uint32_t v;
    std::memcpy(&v, &f, 4);
    return v;
}

struct SampleCase {
    const char* name;
    bool littleEndian;
    int samples;
    int bits;
    std::uint32_t rowsPerStrip;
    std::uint16_t offsetType;
};

void PrintTo(const SampleCase& c, std::ostream* os) {
    *os << c.name;
}

class TiffSamples : public ::testing::TestWithParam<SampleCase> {};

// 3 x 5 images in strips of rowsPerStrip rows: the last strip may be short.
TEST_P(TiffSamples, ReadConvertsEverySampleStripByStrip) {
    const SampleCase& c = GetParam();
    const std::uint32_t w = 3, h = 5;
    std::vector<std::uint32_t> raw;
    std::vector<float> expected;
    for (std::uint32_t i = 0; i < w * h * c.samples; ++i) {
        if (c.bits == 8) {
            const std::uint32_t v = (i * 37 + 3) % 256;
            raw.push_back(v);
            expected.push_back(float(v * 257));
        } else if (c.bits == 16) {
            const std::uint32_t v = (i * 4099 + 258) % 65536;
            raw.push_back(v);
            expected.push_back(float(v));
        } else {
            const float f = (i % 7 == 0) ? 1.0f : float(i) / 64.0f - 0.25f;
            raw.push_back(FloatBits(f));
            expected.push_back(f * 65535.0f);
        }
    }
    TiffBuilder b(c.littleEndian);
    auto offsets = AddStrips(b, w, h, c.samples, c.bits, c.rowsPerStrip, raw);
    ScratchDir dir;
    const std::string path = dir.file("s.tif");
    test::WriteBytes(
        path, b.Finish(BaseTags(w, h, c.samples, c.bits, offsets, c.rowsPerStrip, c.offsetType)));
    Image img;
    std::string message = "x";
    ASSERT_TRUE(img.ReadTIFF(path, &message)) << LastFileError();
    EXPECT_EQ(message, "");
    EXPECT_EQ(img.width, 3);
    EXPECT_EQ(img.height, 5);
    EXPECT_EQ(img.fileType, KindTIFF);
    EXPECT_EQ(img.colorType, c.samples == 3 ? ColorRGB : ColorGray);
    EXPECT_EQ(img.tiffBitsPerSample, std::uint32_t(c.bits));
    EXPECT_EQ(img.maxValue, 65535u);
    ASSERT_TRUE(img.tiffInfo);
    for (std::uint32_t p = 0; p < w * h; ++p)
        for (int s = 0; s < c.samples; ++s)
            ASSERT_EQ(img.curPlane[s][p], expected[p * c.samples + s])
                << "pixel " << p << " sample " << s;
}

INSTANTIATE_TEST_SUITE_P(
    Tiff, TiffSamples,
    ::testing::Values(
        SampleCase{"le_gray8", true, 1, 8, 2, 4}, SampleCase{"be_gray8", false, 1, 8, 2, 3},
        SampleCase{"le_gray16", true, 1, 16, 2, 4}, SampleCase{"be_gray16", false, 1, 16, 2, 4},
        SampleCase{"be_gray16_short_offsets", false, 1, 16, 3, 3},
        SampleCase{"le_gray32", true, 1, 32, 4, 4}, SampleCase{"be_gray32", false, 1, 32, 1, 4},
        SampleCase{"le_rgb8", true, 3, 8, 2, 4}, SampleCase{"be_rgb8", false, 3, 8, 5, 4},
        SampleCase{"le_rgb16", true, 3, 16, 2, 3}, SampleCase{"be_rgb16", false, 3, 16, 2, 4},
        SampleCase{"le_rgb32", true, 3, 32, 3, 4}, SampleCase{"be_rgb32", false, 3, 32, 2, 4}),
    [](const auto& info) { return std::string(info.param.name); });

/// A valid 2 x 2 gray 16-bit file in one strip; `edit` changes the entries before writing.
std::vector<std::uint8_t>
GrayFile(bool le, const std::function<void(std::vector<TiffTag>&, TiffBuilder&)>& edit) {
    TiffBuilder b(le);
    auto offsets = AddStrips(b, 2, 2, 1, 16, 2, {1, 2, 3, 4});
    auto tags = BaseTags(2, 2, 1, 16, offsets, 2);
    if (edit)
        edit(tags, b);
    return b.Finish(tags);
}

TiffTag* Find(std::vector<TiffTag>& tags, std::uint16_t tag) {
    for (TiffTag& t : tags)
        if (t.tag == tag)
            return &t;
    return nullptr;
}

void Remove(std::vector<TiffTag>& tags, std::uint16_t tag) {
    std::erase_if(tags, [&](const TiffTag& t) { return t.tag == tag; });
}

/// Inserts keeping the tags sorted, as TIFF writers do.
void Insert(std::vector<TiffTag>& tags, TiffTag t) {
    auto at =
        std::find_if(tags.begin(), tags.end(), [&](const TiffTag& x) { return x.tag > t.tag; });
    tags.insert(at, std::move(t));
}

struct FailCase {
    const char* name;
    std::function<std::vector<std::uint8_t>()> make;
    const char* text; ///< "" for a failure without words
};

void PrintTo(const FailCase& c, std::ostream* os) {
    *os << c.name;
}

class TiffTagFailures : public ::testing::TestWithParam<FailCase> {};

TEST_P(TiffTagFailures, FailWithTheirTextOrNone) {
    const FailCase& c = GetParam();
    ScratchDir dir;
    const std::string path = dir.file("f.tif");
    test::WriteBytes(path, c.make());
    std::string message = "stale";
    TiffFile file;
    EXPECT_FALSE(ReadTiffTags(path, &file, &message));
    EXPECT_EQ(message, c.text);
    EXPECT_FALSE(LastFileError().empty()) << "a silent failure still leaves its reason";
    Image img;
    message = "stale";
    EXPECT_FALSE(img.ReadTIFF(path, &message));
    EXPECT_EQ(message, c.text);
    EXPECT_EQ(img.curPlane[0], nullptr);
}

using Tags = std::vector<TiffTag>;

INSTANTIATE_TEST_SUITE_P(
    Tiff, TiffTagFailures,
    ::testing::Values(
        FailCase{"byte_order",
                 [] {
                     auto f = GrayFile(true, nullptr);
                     f[0] = f[1] = 'X';
                     return f;
                 },
                 tifftext::kByteOrder},
        FailCase{"byte_order_lowercase",
                 [] {
                     auto f = GrayFile(true, nullptr);
                     f[0] = f[1] = 'i';
                     return f;
                 },
                 tifftext::kByteOrder},
        FailCase{"magic_43",
                 [] {
                     auto f = GrayFile(true, nullptr);
                     f[2] = 43;
                     return f;
                 },
                 ""},
        FailCase{"magic_big_endian_42_unswapped",
                 [] {
                     auto f = GrayFile(false, nullptr);
                     f[2] = 42; // "MM" followed by 2A 00 reads as 0x2A00
                     f[3] = 0;
                     return f;
                 },
                 ""},
        FailCase{"bits_8_16_8",
                 [] {
                     return GrayFile(true, [](Tags& t, TiffBuilder&) {
                         Find(t, 258)->numbers = {8, 16, 8};
                     });
                 },
                 ""},
        FailCase{"bits_two_values",
                 [] {
                     return GrayFile(true, [](Tags& t, TiffBuilder&) {
                         Find(t, 258)->numbers = {16, 16};
                     });
                 },
                 ""},
        FailCase{"bits_12",
                 [] {
                     return GrayFile(true,
                                     [](Tags& t, TiffBuilder&) { Find(t, 258)->numbers = {12}; });
                 },
                 ""},
        FailCase{"compressed_lzw",
                 [] {
                     return GrayFile(true,
                                     [](Tags& t, TiffBuilder&) { Find(t, 259)->numbers = {5}; });
                 },
                 tifftext::kOnlyUncompressed},
        FailCase{"compressed_big_endian",
                 [] {
                     return GrayFile(
                         false, [](Tags& t, TiffBuilder&) { Find(t, 259)->numbers = {32773}; });
                 },
                 tifftext::kOnlyUncompressed},
        FailCase{"palette_with_good_tags",
                 [] {
                     return GrayFile(true, [](Tags& t, TiffBuilder&) {
                         Find(t, 258)->numbers = {8};
                         std::vector<std::uint32_t> map(3 * 256, 0);
                         Insert(t, {320, 3, map});
                     });
                 },
                 tifftext::kPalette},
        FailCase{"palette_photometric_3_stops_first",
                 [] {
                     return GrayFile(true, [](Tags& t, TiffBuilder&) {
                         Find(t, 262)->numbers = {3};
                         Insert(t, {320, 3, std::vector<std::uint32_t>(3 * 65536 / 256, 0)});
                     });
                 },
                 ""},
        FailCase{"photometric_cmyk",
                 [] {
                     return GrayFile(true,
                                     [](Tags& t, TiffBuilder&) { Find(t, 262)->numbers = {5}; });
                 },
                 ""},
        FailCase{"no_strip_offsets",
                 [] { return GrayFile(true, [](Tags& t, TiffBuilder&) { Remove(t, 273); }); },
                 tifftext::kRequiredTags},
        FailCase{"no_photometric",
                 [] { return GrayFile(true, [](Tags& t, TiffBuilder&) { Remove(t, 262); }); },
                 tifftext::kRequiredTags},
        FailCase{"no_compression",
                 [] { return GrayFile(true, [](Tags& t, TiffBuilder&) { Remove(t, 259); }); },
                 tifftext::kRequiredTags},
        FailCase{"tiled",
                 [] {
                     return GrayFile(true, [](Tags& t, TiffBuilder&) {
                         Remove(t, 273);
                         Remove(t, 278);
                         Remove(t, 279);
                         Insert(t, {322, 3, {16}});
                         Insert(t, {323, 3, {16}});
                         Insert(t, {324, 4, {8}});
                     });
                 },
                 tifftext::kRequiredTags},
        FailCase{"two_samples",
                 [] {
                     return GrayFile(true,
                                     [](Tags& t, TiffBuilder&) { Find(t, 277)->numbers = {2}; });
                 },
                 ""},
        FailCase{"four_samples",
                 [] {
                     return GrayFile(true,
                                     [](Tags& t, TiffBuilder&) { Find(t, 277)->numbers = {4}; });
                 },
                 ""},
        FailCase{"width_as_ascii",
                 [] {
                     return GrayFile(true, [](Tags& t, TiffBuilder&) {
                         *Find(t, 256) = TiffTag{256, 2, {}, {'2', 0}};
                     });
                 },
                 ""},
        FailCase{"rows_per_strip_rational",
                 [] {
                     return GrayFile(true, [](Tags& t, TiffBuilder&) {
                         *Find(t, 278) = TiffTag{278, 5, {2, 1}};
                     });
                 },
                 ""},
        FailCase{"strip_offsets_rational",
                 [] {
                     return GrayFile(true, [](Tags& t, TiffBuilder&) {
                         *Find(t, 273) = TiffTag{273, 5, {8, 1, 8, 1}};
                     });
                 },
                 ""},
        FailCase{"strip_offsets_beyond_file",
                 [] {
                     return GrayFile(true, [](Tags& t, TiffBuilder&) {
                         *Find(t, 273) = TiffTag{273, 4, {8, 8, 8}, {}, 0x7FFFFFF0};
                     });
                 },
                 ""},
        FailCase{"directory_beyond_file",
                 [] {
                     auto f = GrayFile(true, nullptr);
                     f[4] = f[5] = f[6] = 0xF0;
                     return f;
                 },
                 ""},
        FailCase{"exif_beyond_file",
                 [] {
                     return GrayFile(true, [](Tags& t, TiffBuilder&) {
                         Insert(t, {34665, 4, {0x00FFFFF0}});
                     });
                 },
                 ""},
        FailCase{"icc_longer_than_file",
                 [] {
                     return GrayFile(true, [](Tags& t, TiffBuilder&) {
                         Insert(t, {34675, 7, {}, {1, 2, 3, 4, 5, 6}, -1, 0x7FFFFFFF});
                     });
                 },
                 ""},
        FailCase{"make_beyond_file",
                 [] {
                     return GrayFile(true, [](Tags& t, TiffBuilder&) {
                         Insert(t, {271, 2, {}, {'C', 'a', 'n', 'o', 'n', 0}, 0x10000000});
                     });
                 },
                 ""},
        FailCase{"header_only",
                 [] {
                     return std::vector<std::uint8_t>{'I', 'I', 42, 0};
                 },
                 ""},
        FailCase{"empty", [] { return std::vector<std::uint8_t>{}; }, ""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(TiffRead, OneStripTakesEveryRowWhateverRowsPerStripSays) {
    TiffBuilder b;
    auto offsets = AddStrips(b, 2, 3, 1, 16, 3, {10, 11, 12, 13, 14, 15});
    auto tags = BaseTags(2, 3, 1, 16, offsets, 3);
    Find(tags, 278)->numbers = {1};
    ScratchDir dir;
    test::WriteBytes(dir.file("a.tif"), b.Finish(tags));
    Image img;
    std::string message;
    ASSERT_TRUE(img.ReadTIFF(dir.file("a.tif"), &message)) << LastFileError();
    EXPECT_EQ(std::vector<float>(img.curPlane[0], img.curPlane[0] + 6),
              (std::vector<float>{10, 11, 12, 13, 14, 15}));
}

TEST(TiffRead, MissingRowsPerStripMeansOneStripOfAllRows) {
    TiffBuilder b;
    auto offsets = AddStrips(b, 1, 4, 1, 8, 4, {0, 1, 254, 255});
    auto tags = BaseTags(1, 4, 1, 8, offsets, 4);
    Remove(tags, 278);
    ScratchDir dir;
    test::WriteBytes(dir.file("a.tif"), b.Finish(tags));
    TiffFile file;
    std::string message;
    ASSERT_TRUE(ReadTiffTags(dir.file("a.tif"), &file, &message));
    EXPECT_EQ(file.rowsPerStrip, 4u);
    EXPECT_EQ(file.colorSpace, "GRAY");
    Image img;
    ASSERT_TRUE(img.ReadTIFF(dir.file("a.tif"), &message));
    // 8-bit samples scale by 257: 255 reads as 65535.
    EXPECT_EQ(std::vector<float>(img.curPlane[0], img.curPlane[0] + 4),
              (std::vector<float>{0, 257, 65278, 65535}));
}

TEST(TiffRead, ThirtyTwoBitIntegersAreReadAsFloatsAndWhiteIsZeroIsNotInverted) {
    TiffBuilder b;
    auto offsets = AddStrips(b, 2, 1, 1, 32, 1, {FloatBits(0.5f), 1});
    auto tags = BaseTags(2, 1, 1, 32, offsets, 1);
    Find(tags, 262)->numbers = {0};
    Insert(tags, {339, 3, {1}}); // unsigned integer samples, still read as floats
    ScratchDir dir;
    test::WriteBytes(dir.file("a.tif"), b.Finish(tags));
    Image img;
    std::string message;
    ASSERT_TRUE(img.ReadTIFF(dir.file("a.tif"), &message)) << LastFileError();
    EXPECT_EQ(img.curPlane[0][0], 0.5f * 65535.0f);
    float tiny;
    const std::uint32_t one = 1;
    std::memcpy(&tiny, &one, 4);
    EXPECT_EQ(img.curPlane[0][1], tiny * 65535.0f);
    EXPECT_EQ(img.tiffInfo->photometric, 0);
    EXPECT_EQ(img.tiffInfo->sampleFormat, 0);
}

TEST(TiffRead, TagsOfTheOpenPath) {
    struct Case {
        int samples, bits;
        std::vector<std::uint32_t> sampleFormat;
        const char* space;
        std::uint16_t format;
    };
    for (const Case& c :
         {Case{1, 8, {}, "GRAY", 0}, Case{3, 16, {}, "RGB", 0}, Case{1, 32, {3}, "GRAY", 1},
          Case{3, 32, {3, 3, 3}, "RGB", 257}, Case{3, 32, {3, 1, 3}, "RGB", 0}}) {
        TiffBuilder b(false);
        std::vector<std::uint32_t> v(7 * 3 * c.samples, 0);
        auto offsets = AddStrips(b, 7, 3, c.samples, c.bits, 3, v);
        auto tags = BaseTags(7, 3, c.samples, c.bits, offsets, 3);
        Insert(tags, {271, 2, {}, {'N', 'I', 'K', 'O', 'N', 0}});
        Insert(tags, {282, 5, {300, 1}});
        Insert(tags, {296, 3, {2}});
        Insert(tags, {305, 2, {}, {'c', 'a', 'm', 'e', 'r', 'a', ' ', '1', '.', '0', 0}});
        if (!c.sampleFormat.empty())
            Insert(tags, {339, 3, c.sampleFormat});
        ScratchDir dir;
        test::WriteBytes(dir.file("t.tif"), b.Finish(tags));
        TiffFile file;
        std::string message;
        ASSERT_TRUE(ReadTiffTags(dir.file("t.tif"), &file, &message)) << LastFileError();
        EXPECT_EQ(file.colorSpace, c.space);
        EXPECT_FALSE(file.littleEndian);
        EXPECT_EQ(file.width, 7u);
        EXPECT_EQ(file.height, 3u);
        EXPECT_EQ(file.info.bitsPerSample, c.bits);
        EXPECT_EQ(file.info.sampleFormat, c.format);
        EXPECT_EQ(file.info.make, std::string("NIKON\0", 6));
        EXPECT_EQ(file.info.software, "camera 1.0");
        EXPECT_EQ(file.info.resolutionUnit, 2);
        EXPECT_TRUE(file.info.hasXResolution);
        EXPECT_FALSE(file.info.hasYResolution);
        // The resolution's eight bytes are kept as they stand in a big-endian file.
        EXPECT_EQ(file.info.xResolution[0], 0x2C010000u); // 00 00 01 2C read low byte first
    }
}

TEST(TiffRead, MakeAndModelKeepAtMost39Bytes) {
    const std::string longMake(60, 'M');
    auto bytes = GrayFile(true, [&](Tags& t, TiffBuilder&) {
        Insert(t, {271, 2, {}, std::vector<std::uint8_t>(longMake.begin(), longMake.end())});
        Insert(t, {272, 2, {}, {'E', 'O', 'S', 0}});
    });
    ScratchDir dir;
    test::WriteBytes(dir.file("m.tif"), bytes);
    TiffFile file;
    std::string message;
    ASSERT_TRUE(ReadTiffTags(dir.file("m.tif"), &file, &message));
    EXPECT_EQ(file.info.make, std::string(39, 'M'));
    EXPECT_EQ(file.info.model, std::string("EOS\0", 4));
}

// Sizes that the file cannot hold are refused before any plane is allocated.
TEST(TiffRead, ImpossibleSizesAreRefusedBeforeAllocation) {
    struct Case {
        const char* name;
        std::uint32_t width, height, rowsPerStrip;
    };
    for (const Case& c :
         {Case{"more_pixels_than_file", 4000, 3000, 3000}, Case{"absurd_width", 0xFFFFFFFFu, 1, 1},
          Case{"absurd_both", 0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF},
          Case{"over_4g_pixels", 70000, 70000, 1}, Case{"zero_width", 0, 2, 2},
          Case{"zero_rows_per_strip", 2, 2, 0}, Case{"strips_short_of_height", 2, 3, 1}}) {
        SCOPED_TRACE(c.name);
        TiffBuilder b;
        auto offsets = AddStrips(b, 2, 2, 1, 16, 1, {1, 2, 3, 4});
        auto tags = BaseTags(c.width, c.height, 1, 16, offsets, c.rowsPerStrip);
        ScratchDir dir;
        test::WriteBytes(dir.file("big.tif"), b.Finish(tags));
        Image img;
        std::string message = "stale";
        EXPECT_FALSE(img.ReadTIFF(dir.file("big.tif"), &message));
        EXPECT_EQ(message, "");
        EXPECT_EQ(img.curPlane[0], nullptr);
        EXPECT_FALSE(LastFileError().empty());
    }
}

TEST(TiffRead, RowsArrayReaderFillsCallerRows) {
    TiffBuilder b;
    std::vector<std::uint32_t> v;
    for (int i = 0; i < 4 * 3 * 3; ++i)
        v.push_back(i * 1000);
    auto offsets = AddStrips(b, 4, 3, 3, 16, 2, v);
    ScratchDir dir;
    test::WriteBytes(dir.file("r.tif"), b.Finish(BaseTags(4, 3, 3, 16, offsets, 2)));
    TiffFile file;
    ASSERT_TRUE(file.Open(dir.file("r.tif")));
    std::vector<float> planes[3];
    std::vector<float*> rows[3];
    for (int p = 0; p < 3; ++p) {
        planes[p].assign(12, -1);
        for (int y = 0; y < 3; ++y)
            rows[p].push_back(planes[p].data() + 4 * (2 - y)); // rows bottom-up on purpose
    }
    std::string message;
    ASSERT_TRUE(file.Read(rows[0].data(), rows[1].data(), rows[2].data(), &message));
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x)
            for (int p = 0; p < 3; ++p)
                EXPECT_EQ(rows[p][y][x], float(((y * 4 + x) * 3 + p) * 1000));
}

/// A small RGB file with every optional piece, written by our writer.
std::vector<std::uint8_t> RichFile(const std::string& path) {
    Image img;
    test::MakeImage(img, 5, 4, ColorRGB, [](int s, int x, int y) { return 1000 * s + 97 * x + y; });
    img.tiffBitsPerSample = 16;
    auto info = std::make_shared<TiffInfo>();
    info->make = std::string("Canon\0", 6);
    info->hasMake = true;
    info->model = std::string("EOS 6D\0", 7);
    info->hasModel = true;
    info->exif.exifVersion[0] = '0';
    info->exif.exifVersion[1] = '2';
    info->exif.exifVersion[2] = '3';
    info->exif.exifVersion[3] = '0';
    info->exif.SetPresent(36864, true);
    info->exif.exposureTime = {1, 250};
    info->exif.SetPresent(33434, true);
    std::strcpy(info->exif.dateTimeOriginal, "2024:05:01 22:10:00");
    info->exif.SetPresent(36867, true);
    info->iccProfile.assign(64, 7);
    info->hasIccProfile = true;
    img.tiffInfo = info;
    EXPECT_TRUE(img.WriteTIFF(path)) << LastFileError();
    return test::ReadBytes(path);
}

TEST(TiffRead, TruncatedAtEveryOffsetFailsCleanly) {
    ScratchDir dir;
    const auto full = RichFile(dir.file("full.tif"));
    ASSERT_GT(full.size(), 200u);
    // The directory is last; only its next-directory word may go missing unnoticed.
    for (std::size_t n = 0; n + 4 < full.size(); ++n) {
        test::WriteBytes(dir.file("cut.tif"),
                         std::vector<std::uint8_t>(full.begin(), full.begin() + n));
        Image img;
        std::string message;
        EXPECT_FALSE(img.ReadTIFF(dir.file("cut.tif"), &message)) << "cut at " << n;
    }
}

TEST(TiffRead, CorruptBytesNeverCrash) {
    ScratchDir dir;
    const auto full = RichFile(dir.file("full.tif"));
    std::mt19937 rng(11);
    int read = 0;
    for (int trial = 0; trial < 600; ++trial) {
        auto bytes = full;
        const int flips = 1 + trial % 4;
        for (int k = 0; k < flips; ++k) {
            // Mostly the tag area at the end, where a flip changes meaning.
            const std::size_t at =
                (trial & 1) ? bytes.size() - 1 - rng() % 300 : rng() % bytes.size();
            bytes[at] = static_cast<std::uint8_t>(rng());
        }
        test::WriteBytes(dir.file("bad.tif"), bytes);
        Image img;
        std::string message;
        read += img.ReadTIFF(dir.file("bad.tif"), &message);
        if (img.curPlane[0]) {
            EXPECT_GT(img.pixelCount, 0u);
        }
    }
    EXPECT_GT(read, 0); // some flips land in pixels and still read
}

TEST(TiffRead, MemorySourceReadsLikeAFile) {
    ScratchDir dir;
    const auto bytes = RichFile(dir.file("m.tif"));
    TiffFile file;
    file.OpenMemory(bytes.data(), bytes.size());
    std::string message;
    ASSERT_TRUE(file.ReadTags(&message));
    ASSERT_TRUE(file.CheckStrips());
    std::vector<float> p[3];
    for (auto& v : p)
        v.assign(20, 0);
    ASSERT_TRUE(file.ReadPlanes(p[0].data(), p[1].data(), p[2].data()));
    EXPECT_EQ(p[2][19], float(2000 + 97 * 4 + 3));
    EXPECT_EQ(file.info.exif.PresentCount(), 3);
}

TEST(TiffRead, MissingFileFailsWithoutText) {
    Image img;
    std::string message = "stale";
    EXPECT_FALSE(img.ReadTIFF("/nonexistent/dir/x.tif", &message));
    EXPECT_EQ(message, "");
    EXPECT_NE(LastFileError().find("x.tif"), std::string::npos);
}

} // namespace
} // namespace astrivelle
