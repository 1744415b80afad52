// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Writing TIFF: sample conversion at 8, 16 and 32 bits for every colour type, the file
/// layout and its declared counts, the camera tags and Exif carried through a read and a
/// write, the writer's texts, and libtiff's own tools reading what we write.
#include <cmath>
#include <cstring>
#include <filesystem>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "TiffTestFiles.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/Tiff.h"

namespace astrivelle {
namespace {

using test::ScratchDir;

/// The values every plane gets: the edges of the scale, fractions either side of one half,
/// out-of-range values and NaN.
const std::vector<float> kValues = {0.f,   0.5f,    0.51f,     1.5f,     1.51f,   256.f,
                                    257.f, 65278.f, 65279.f,   65534.6f, 65535.f, 70000.f,
                                    -3.f,  12345.f, 30000.25f, NAN};

/// Expected 16-bit sample: nearest integer (halves go down), clamped.
const std::vector<std::uint16_t> k16 = {0,     0,     1,     1,     2, 256,   257,   65278,
                                        65279, 65535, 65535, 65535, 0, 12345, 30000, 0};
/// Expected 8-bit sample: the 16-bit sample divided by 257, truncated.
const std::vector<std::uint8_t> k8 = {0, 0, 0, 0, 0, 0, 1, 254, 254, 255, 255, 255, 0, 48, 116, 0};

/// Image of 4 x 4 holding kValues in the slot of the colour type (RGB: per slot rotated).
void MakeValues(Image& img, std::uint32_t colorType, std::uint32_t bits) {
    img.SetGeometryTiff(KindTIFF, colorType, 0, 4, 4, bits);
    ASSERT_TRUE(img.AllocatePlanes(3));
    for (int s = 0; s < 3; ++s)
        for (int i = 0; i < 16; ++i)
            img.curPlane[s][i] = kValues[(i + 5 * s) % 16];
}

struct WriteCase {
    std::uint32_t colorType;
    std::uint32_t bits;
};

void PrintTo(const WriteCase& c, std::ostream* os) {
    *os << "type" << c.colorType << "_bits" << c.bits;
}

class TiffWriteRoundTrip : public ::testing::TestWithParam<WriteCase> {};

TEST_P(TiffWriteRoundTrip, SamplesAndLayoutAreExact) {
    const WriteCase& c = GetParam();
    Image img;
    MakeValues(img, c.colorType, c.bits);
    ScratchDir dir;
    const std::string path = dir.file("w.tif");
    ASSERT_TRUE(img.WriteTIFF(path)) << LastFileError();
    const bool rgb = c.colorType == ColorRGB;
    const int samples = rgb ? 3 : 1;
    const int slot = rgb ? 0 : SlotOfColorType(c.colorType);

    // The pixels are one strip at offset 8, in the machine's little-endian order.
    const auto bytes = test::ReadBytes(path);
    ASSERT_GE(bytes.size(), 8u + 16 * samples * c.bits / 8);
    for (int i = 0; i < 16; ++i)
        for (int s = 0; s < samples; ++s) {
            const int v = (i + 5 * (slot + s)) % 16;
            const std::uint8_t* p = bytes.data() + 8 + (i * samples + s) * (c.bits / 8);
            if (c.bits == 8) {
                EXPECT_EQ(p[0], k8[v]) << "value " << kValues[v];
            } else if (c.bits == 16) {
                EXPECT_EQ(p[0] | (p[1] << 8), k16[v]) << "value " << kValues[v];
            } else {
                float f;
                std::memcpy(&f, p, 4);
                if (std::isnan(kValues[v]))
                    EXPECT_TRUE(std::isnan(f));
                else
                    EXPECT_EQ(f, static_cast<float>(double(kValues[v]) / 65535.0));
            }
        }

    // The directory as the reader sees it.
    TiffFile file;
    std::string message;
    ASSERT_TRUE(ReadTiffTags(path, &file, &message)) << LastFileError();
    EXPECT_EQ(file.colorSpace, rgb ? "RGB" : "GRAY");
    EXPECT_EQ(file.stripOffsets, std::vector<std::uint32_t>{8});
    EXPECT_EQ(file.rowsPerStrip, 4u);
    // The declared strip byte count: 2 bytes a sample at 16 bits, 3 (not 4) at 32.
    const std::uint32_t perSample = c.bits == 8 ? 1 : (c.bits == 16 ? 2 : 3);
    EXPECT_EQ(file.stripByteCounts, std::vector<std::uint32_t>{16u * perSample * samples});
    EXPECT_EQ(file.info.photometric, rgb ? 2 : 1);
    EXPECT_EQ(file.info.software, "Astrivelle");
    EXPECT_EQ(file.info.sampleFormat, c.bits == 32 ? (rgb ? 257 : 1) : 0);
    const std::uint16_t entries = static_cast<std::uint16_t>(
        bytes[file.header[4] | (file.header[5] << 8) | (file.header[6] << 16)] |
        (bytes[(file.header[4] | (file.header[5] << 8) | (file.header[6] << 16)) + 1] << 8));
    EXPECT_EQ(entries, (rgb ? 14 : 13) + (c.bits == 32 ? 1 : 0));

    // And read back: one plane for a single-plane type.
    Image back;
    ASSERT_TRUE(back.ReadTIFF(path, &message)) << LastFileError();
    EXPECT_EQ(back.colorType, rgb ? ColorRGB : ColorGray);
    EXPECT_EQ(back.tiffBitsPerSample, c.bits);
    for (int s = 0; s < samples; ++s)
        for (int i = 0; i < 16; ++i) {
            const int v = (i + 5 * (slot + s)) % 16;
            const float got = back.curPlane[s][i];
            if (c.bits == 8)
                EXPECT_EQ(got, k8[v] * 257.f);
            else if (c.bits == 16)
                EXPECT_EQ(got, k16[v]);
            else if (std::isnan(kValues[v]))
                EXPECT_TRUE(std::isnan(got));
            else
                EXPECT_NEAR(got, kValues[v], std::abs(kValues[v]) * 1e-6f) << kValues[v];
        }
}

std::vector<WriteCase> AllWriteCases() {
    std::vector<WriteCase> cases;
    for (std::uint32_t t : {1u, 2u, 3u, 4u, 6u, 7u, 8u, 9u})
        for (std::uint32_t b : {8u, 16u, 32u})
            cases.push_back({t, b});
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Tiff, TiffWriteRoundTrip, ::testing::ValuesIn(AllWriteCases()),
                         [](const auto& info) {
                             return "type" + std::to_string(info.param.colorType) + "_bits" +
                                    std::to_string(info.param.bits);
                         });

TEST(TiffWrite, GrayThirtyTwoBitsDeclaresThreeBytesASampleAndReadsBack) {
    Image img;
    test::MakeImage(img, 6, 5, ColorGray, [](int, int x, int y) { return 1000.0 * x + y; });
    img.tiffBitsPerSample = 32;
    ScratchDir dir;
    ASSERT_TRUE(img.WriteTIFF(dir.file("f.tif")));
    TiffFile file;
    std::string message;
    ASSERT_TRUE(ReadTiffTags(dir.file("f.tif"), &file, &message));
    EXPECT_EQ(file.stripByteCounts, std::vector<std::uint32_t>{3u * 6 * 5});
    // The pixels themselves take four bytes each.
    EXPECT_GE(std::filesystem::file_size(dir.file("f.tif")), 8u + 4 * 6 * 5);
    Image back;
    ASSERT_TRUE(back.ReadTIFF(dir.file("f.tif"), &message));
    for (int i = 0; i < 30; ++i)
        EXPECT_NEAR(back.curPlane[0][i], img.curPlane[0][i], 1e-2);
}

TEST(TiffWrite, InvalidColorTypesAndUnopenableFiles) {
    ScratchDir dir;
    for (std::uint32_t ct : {0u, 5u, 10u, 0xFFFFFFFFu}) {
        Image img;
        MakeValues(img, ColorGray, 16);
        img.colorType = ct;
        EXPECT_FALSE(img.WriteTIFF(dir.file("x.tif")));
        EXPECT_EQ(LastFileError(), tifftext::kColorType);
        EXPECT_FALSE(std::filesystem::exists(dir.file("x.tif")));
    }
    Image img;
    MakeValues(img, ColorGray, 16);
    EXPECT_FALSE(img.WriteTIFF(dir.file("no/such/folder/x.tif")));
    EXPECT_EQ(LastFileError(), tifftext::kOpenForWrite);
    if (std::filesystem::exists("/dev/full")) {
        EXPECT_FALSE(img.WriteTIFF("/dev/full"));
        EXPECT_FALSE(LastFileError().empty());
    }
}

/// A sink that stores bytes and fails its `failAt`-th Write (0-based), or its seek.
class FailingSink : public TiffSink {
public:
    explicit FailingSink(int failAt) : failAt_(failAt) {}
    bool Write(const void* data, std::size_t n) override {
        if (calls_++ == failAt_)
            return false;
        const auto* p = static_cast<const std::uint8_t*>(data);
        if (at_ + n > bytes.size())
            bytes.resize(at_ + n);
        std::memcpy(bytes.data() + at_, p, n);
        at_ += n;
        return true;
    }
    bool Seek(std::uint64_t offset) override {
        at_ = offset;
        return true;
    }
    int calls() const { return calls_; }
    std::vector<std::uint8_t> bytes;

private:
    int failAt_;
    int calls_ = 0;
    std::uint64_t at_ = 0;
};

TiffInfo FullInfo() {
    TiffInfo info;
    info.make = "Nikon";
    info.hasMake = true;
    info.model = "D810A";
    info.hasModel = true;
    std::memcpy(info.exif.exifVersion, "0230", 4);
    info.exif.SetPresent(36864, true);
    info.exif.fNumber = {28, 10};
    info.exif.SetPresent(33437, true);
    std::strcpy(info.exif.dateTimeDigitized, "2023:01:02 03:04:05");
    info.exif.SetPresent(36868, true);
    info.exif.isoSpeedRatings = 800;
    info.exif.SetPresent(34855, true);
    info.iccProfile.assign(40, 0x5A);
    info.hasIccProfile = true;
    return info;
}

// Each piece of the file fails with its own text, in the order the pieces are written.
TEST(TiffWrite, EachFailedPieceHasItsText) {
    const TiffInfo info = FullInfo();
    std::vector<float> plane(12, 1000.f);
    TiffWriteRequest q;
    q.red = q.green = q.blue = plane.data();
    q.bits = 32;
    q.colorType = ColorRGB;
    q.width = 4;
    q.height = 3;
    q.info = &info;
    const std::string exif = std::string("\n") + tifftext::kExifData;
    const std::vector<std::string> expected = {
        tifftext::kHeader,    // the eight header bytes
        tifftext::kImageData, // the pixels (one block)
        tifftext::kImageData, // the three bit counts
        tifftext::kImageData, // the three sample formats
        tifftext::kImageData, // make
        tifftext::kImageData, // model
        tifftext::kImageData, // the two resolutions
        tifftext::kImageData, // the software name
        std::string("Problem writing FNumber Exif data.") + exif,
        std::string("Problem writing DateTimeDigitized Exif data.") + exif,
        std::string(tifftext::kExifCount) + exif,
        std::string(tifftext::kImageData) + exif, // FNumber entry
        std::string(tifftext::kImageData) + exif, // ISO entry
        std::string(tifftext::kImageData) + exif, // version entry
        std::string(tifftext::kImageData) + exif, // DateTimeDigitized entry
        tifftext::kIccData,                       // the profile
        tifftext::kImageData,                     // the directory up to tag 339
        tifftext::kExifTag,                       // the Exif entry
        tifftext::kIccTag,                        // the ICC entry
        tifftext::kImageData,                     // the next-directory word
        tifftext::kHeader,                        // the directory's offset in the header
    };
    for (std::size_t k = 0; k < expected.size(); ++k) {
        FailingSink sink(static_cast<int>(k));
        std::string message;
        EXPECT_FALSE(WriteTiffToSink(sink, q, &message)) << "write " << k;
        EXPECT_EQ(message, expected[k]) << "write " << k;
    }
    FailingSink ok(-1);
    std::string message;
    ASSERT_TRUE(WriteTiffToSink(ok, q, &message)) << message;
    EXPECT_EQ(ok.calls(), static_cast<int>(expected.size()));
}

struct ExifCase {
    const char* name;
    std::vector<std::uint16_t> tags;
    bool icc;
};

void PrintTo(const ExifCase& c, std::ostream* os) {
    *os << c.name;
}

class TiffExifRoundTrip : public ::testing::TestWithParam<ExifCase> {};

/// Fills every Exif field with a value derived from its tag.
void FillExif(TiffExif& x, const std::vector<std::uint16_t>& tags) {
    for (std::uint16_t tag : tags) {
        const int i = TiffExifIndex(tag);
        ASSERT_GE(i, 0);
        x.present[i] = true;
    }
    x.exposureTime = {1, 125};
    x.fNumber = {56, 10};
    x.exposureProgram = 1;
    x.isoSpeedRatings = 1600;
    std::memcpy(x.exifVersion, "0231", 4);
    std::strcpy(x.dateTimeOriginal, "2024:03:04 21:00:01");
    std::strcpy(x.dateTimeDigitized, "2024:03:04 21:00:02");
    x.shutterSpeedValue = {0xFFFFFFF9u, 1}; // signed -7 carried in the unsigned word
    x.apertureValue = {497, 100};
    x.exposureBiasValue = {0xFFFFFFFFu, 3};
    x.maxApertureValue = {3, 1};
    x.flash = 16;
    x.focalLength = {135, 1};
    std::memcpy(x.flashPixVersion, "0100", 4);
    x.colorSpace = 1;
    x.focalPlaneXResolution = {6000, 36};
    x.focalPlaneYResolution = {4000, 24};
    x.focalPlaneResolutionUnit = 4;
    x.sensingMethod = 2;
    x.fileSource[0] = 3;
    x.customRendered = 0;
    x.exposureMode = 1;
    x.whiteBalance = 1;
    x.sceneCaptureType = 3;
}

/// Whether the field of `tag` holds the same value in both.
bool SameField(const TiffExif& a, const TiffExif& b, std::uint16_t tag) {
    auto r = [](const TiffRationalValue& x, const TiffRationalValue& y) {
        return x.numerator == y.numerator && x.denominator == y.denominator;
    };
    switch (tag) {
    case 33434:
        return r(a.exposureTime, b.exposureTime);
    case 33437:
        return r(a.fNumber, b.fNumber);
    case 34850:
        return a.exposureProgram == b.exposureProgram;
    case 34855:
        return a.isoSpeedRatings == b.isoSpeedRatings;
    case 36864:
        return std::memcmp(a.exifVersion, b.exifVersion, 4) == 0;
    case 36867:
        return std::memcmp(a.dateTimeOriginal, b.dateTimeOriginal, 20) == 0;
    case 36868:
        return std::memcmp(a.dateTimeDigitized, b.dateTimeDigitized, 20) == 0;
    case 37377:
        return r(a.shutterSpeedValue, b.shutterSpeedValue);
    case 37378:
        return r(a.apertureValue, b.apertureValue);
    case 37380:
        return r(a.exposureBiasValue, b.exposureBiasValue);
    case 37381:
        return r(a.maxApertureValue, b.maxApertureValue);
    case 37385:
        return a.flash == b.flash;
    case 37386:
        return r(a.focalLength, b.focalLength);
    case 40960:
        return std::memcmp(a.flashPixVersion, b.flashPixVersion, 4) == 0;
    case 40961:
        return a.colorSpace == b.colorSpace;
    case 41486:
        return r(a.focalPlaneXResolution, b.focalPlaneXResolution);
    case 41487:
        return r(a.focalPlaneYResolution, b.focalPlaneYResolution);
    case 41488:
        return a.focalPlaneResolutionUnit == b.focalPlaneResolutionUnit;
    case 41495:
        return a.sensingMethod == b.sensingMethod;
    case 41728:
        return std::memcmp(a.fileSource, b.fileSource, 4) == 0;
    case 41985:
        return a.customRendered == b.customRendered;
    case 41986:
        return a.exposureMode == b.exposureMode;
    case 41987:
        return a.whiteBalance == b.whiteBalance;
    case 41990:
        return a.sceneCaptureType == b.sceneCaptureType;
    default:
        return false;
    }
}

/// `got` holds the values of the fields present in `want` and the empty value elsewhere.
void ExpectSameExifValues(const TiffExif& got, const TiffExif& want) {
    const TiffExif empty;
    for (int i = 0; i < 24; ++i) {
        const std::uint16_t tag = kTiffExifTags[i].tag;
        EXPECT_TRUE(SameField(got, want.present[i] ? want : empty, tag)) << kTiffExifTags[i].name;
    }
}

TEST_P(TiffExifRoundTrip, KeepsExactlyThePresentTags) {
    const ExifCase& c = GetParam();
    Image img;
    test::MakeImage(img, 3, 2, ColorRGB, [](int s, int x, int y) { return 100 * s + 10 * x + y; });
    img.tiffBitsPerSample = 16;
    auto info = std::make_shared<TiffInfo>();
    FillExif(info->exif, c.tags);
    info->make = std::string("Canon\0", 6);
    info->hasMake = true;
    info->xResolution[0] = 300;
    info->xResolution[1] = 1;
    info->yResolution[0] = 72;
    info->yResolution[1] = 1;
    info->resolutionUnit = 2;
    if (c.icc) {
        for (int i = 0; i < 300; ++i)
            info->iccProfile.push_back(static_cast<std::uint8_t>(i * 7));
        info->hasIccProfile = true;
    }
    img.tiffInfo = info;
    ScratchDir dir;
    ASSERT_TRUE(img.WriteTIFF(dir.file("a.tif"))) << LastFileError();

    // Through a read and a second write, as a processed image goes.
    Image mid;
    std::string message;
    ASSERT_TRUE(mid.ReadTIFF(dir.file("a.tif"), &message)) << LastFileError();
    ASSERT_TRUE(mid.WriteTIFF(dir.file("b.tif"))) << LastFileError();
    Image back;
    ASSERT_TRUE(back.ReadTIFF(dir.file("b.tif"), &message)) << LastFileError();
    ASSERT_TRUE(back.tiffInfo);
    const TiffInfo& got = *back.tiffInfo;
    const bool written = std::find(c.tags.begin(), c.tags.end(), 36864) != c.tags.end();
    TiffExif want;
    if (written)
        want = info->exif;
    for (int i = 0; i < 24; ++i)
        EXPECT_EQ(got.exif.present[i], want.present[i]) << kTiffExifTags[i].name;
    ExpectSameExifValues(got.exif, want);
    EXPECT_EQ(got.make, info->make);
    EXPECT_FALSE(got.hasModel);
    EXPECT_EQ(got.xResolution[0], 300u);
    EXPECT_EQ(got.yResolution[0], 72u);
    EXPECT_EQ(got.resolutionUnit, 2);
    EXPECT_EQ(got.hasIccProfile, c.icc);
    EXPECT_EQ(got.iccProfile, info->iccProfile);
    for (int s = 0; s < 3; ++s)
        EXPECT_EQ(back.curPlane[s][5], float(100 * s + 21));

    // The Exif directory holds just these entries: tiffdump lists them.
    if (written && test::HaveProgram("tiffdump")) {
        std::string out;
        ASSERT_EQ(test::RunCommand("tiffdump " + dir.file("b.tif"), &out), 0) << out;
        EXPECT_NE(out.find("34665"), std::string::npos) << out;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Tiff, TiffExifRoundTrip,
    ::testing::Values(ExifCase{"version_only", {36864}, false},
                      ExifCase{"camera_basics", {33434, 33437, 34855, 36864, 36867, 37386}, true},
                      ExifCase{"all",
                               {33434, 33437, 34850, 34855, 36864, 36867, 36868, 37377,
                                37378, 37380, 37381, 37385, 37386, 40960, 40961, 41486,
                                41487, 41488, 41495, 41728, 41985, 41986, 41987, 41990},
                               true},
                      ExifCase{"without_version_nothing_is_written", {33434, 33437, 34855}, true}),
    [](const auto& info) { return std::string(info.param.name); });

// Exif as camera software writes it (big-endian, with tags we do not carry) keeps our tags.
TEST(TiffExif, ForeignDirectoryKeepsOnlyCarriedTags) {
    test::TiffBuilder b(false);
    auto offsets = test::AddStrips(b, 1, 1, 1, 16, 1, {5});
    auto tags = test::BaseTags(1, 1, 1, 16, offsets, 1);
    // The Exif directory: ExposureTime, an unknown tag, ExifVersion, ISO, FileSource (count 1).
    std::vector<std::uint8_t> ifd;
    b.Put16(ifd, 5);
    const std::uint32_t ifdAt = b.Blob(std::vector<std::uint8_t>(2 + 5 * 12 + 4 + 8, 0));
    auto entry = [&](std::uint16_t tag, std::uint16_t type, std::uint32_t count,
                     std::vector<std::uint8_t> field) {
        b.Put16(ifd, tag);
        b.Put16(ifd, type);
        b.Put32(ifd, count);
        ifd.insert(ifd.end(), field.begin(), field.end());
    };
    std::vector<std::uint8_t> off;
    b.Put32(off, ifdAt + 2 + 5 * 12 + 4);
    entry(33434, 5, 1, off);
    entry(37500, 7, 4, {1, 2, 3, 4}); // MakerNote, not carried
    entry(34855, 3, 1, {0x06, 0x40, 0, 0});
    entry(36864, 7, 4, {'0', '2', '2', '1'});
    entry(41728, 7, 1, {3, 0, 0, 0});
    b.Put32(ifd, 0);
    b.Put32(ifd, 1);
    b.Put32(ifd, 60);
    tags.push_back({34665, 4, {ifdAt}});
    auto bytes = b.Finish(tags);
    std::memcpy(bytes.data() + ifdAt, ifd.data(), ifd.size());
    ScratchDir dir;
    test::WriteBytes(dir.file("e.tif"), bytes);
    TiffFile file;
    std::string message;
    ASSERT_TRUE(ReadTiffTags(dir.file("e.tif"), &file, &message)) << LastFileError();
    const TiffExif& x = file.info.exif;
    EXPECT_EQ(x.PresentCount(), 4);
    EXPECT_EQ(x.exposureTime.numerator, 1u);
    EXPECT_EQ(x.exposureTime.denominator, 60u);
    EXPECT_EQ(x.isoSpeedRatings, 1600);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(x.exifVersion), 4), "0221");
    EXPECT_EQ(x.fileSource[0], 3);

    // The same Exif bytes parsed as an APP1 block.
    ExifBlock block;
    ASSERT_TRUE(ParseExifBlock(bytes.data(), bytes.size(), &block));
    EXPECT_TRUE(block.hasExifDirectory);
    EXPECT_EQ(block.exif.isoSpeedRatings, 1600);
    EXPECT_FALSE(ParseExifBlock(bytes.data(), 7, &block));
}

TEST(TiffDirectoryChain, FollowsNextOffsetsAndStopsAtLoops) {
    test::TiffBuilder b;
    auto first = b.Finish({{256, 3, {1}}});
    // A second directory pointing back to the first.
    const std::uint32_t firstAt = first[4] | (first[5] << 8);
    std::vector<std::uint8_t> second;
    b.Put16(second, 1);
    b.Put16(second, 257);
    b.Put16(second, 3);
    b.Put32(second, 1);
    b.Put32(second, 9);
    b.Put32(second, firstAt);
    const std::uint32_t secondAt = static_cast<std::uint32_t>(first.size());
    first.insert(first.end(), second.begin(), second.end());
    first[firstAt + 2 + 12] = static_cast<std::uint8_t>(secondAt);
    first[firstAt + 2 + 12 + 1] = static_cast<std::uint8_t>(secondAt >> 8);
    std::vector<TiffDirectory> chain;
    ASSERT_TRUE(ParseTiffDirectoryChain(first.data(), first.size(), true, firstAt, &chain));
    ASSERT_EQ(chain.size(), 2u);
    EXPECT_EQ(chain[1].Find(257)->value, 9u);
    EXPECT_FALSE(ParseTiffDirectoryChain(first.data(), first.size(), true, 0xFFFF, &chain));
    EXPECT_FALSE(ParseTiffDirectoryChain(first.data(), 9, true, firstAt, &chain));
}

// libtiff's tools accept every file we write, and its big- and little-endian copies of them
// (re-stripped to three rows a strip) read exactly like the original.
TEST(TiffInterop, LibtiffReadsOursAndItsTwinsReadLikeOurs) {
    if (!test::HaveProgram("tiffinfo") || !test::HaveProgram("tiffdump") ||
        !test::HaveProgram("tiffcp"))
        GTEST_SKIP() << "libtiff-tools (tiffinfo, tiffdump, tiffcp) are not installed";
    ScratchDir dir;
    for (const WriteCase& c : AllWriteCases()) {
        SCOPED_TRACE("type " + std::to_string(c.colorType) + " bits " + std::to_string(c.bits));
        Image img;
        test::MakeImage(img, 13, 7, c.colorType, [](int s, int x, int y) {
            return (s * 20011 + x * 3001 + y * 577) % 65536;
        });
        img.tiffBitsPerSample = c.bits;
        if (c.colorType == ColorRGB) {
            auto info = std::make_shared<TiffInfo>(FullInfo());
            img.tiffInfo = info;
        }
        const std::string ours = dir.file("ours.tif");
        ASSERT_TRUE(img.WriteTIFF(ours)) << LastFileError();
        std::string out;
        EXPECT_EQ(test::RunCommand("tiffinfo -D " + ours, &out), 0) << out;
        EXPECT_EQ(out.find("rror"), std::string::npos) << out;
        EXPECT_EQ(test::RunCommand("tiffdump " + ours, &out), 0) << out;
        EXPECT_EQ(out.find("rror"), std::string::npos) << out;
        if (c.bits == 32)
            continue; // libtiff copies only the declared three bytes a sample of the strip
        Image first;
        std::string message;
        ASSERT_TRUE(first.ReadTIFF(ours, &message)) << LastFileError();
        for (const char* order : {"-B", "-L"}) {
            const std::string twin = dir.file(std::string("twin") + order + ".tif");
            ASSERT_EQ(test::RunCommand(
                          std::string("tiffcp ") + order + " -r 3 " + ours + " " + twin, &out),
                      0)
                << out;
            Image copy;
            ASSERT_TRUE(copy.ReadTIFF(twin, &message)) << LastFileError() << " " << order;
            TiffFile tags;
            ASSERT_TRUE(ReadTiffTags(twin, &tags, &message));
            EXPECT_EQ(tags.littleEndian, std::string(order) == "-L");
            EXPECT_EQ(tags.stripCount, 3u);
            ASSERT_EQ(copy.colorType, first.colorType);
            for (int s : first.Slots())
                for (std::uint32_t i = 0; i < first.pixelCount; ++i)
                    ASSERT_EQ(copy.curPlane[s][i], first.curPlane[s][i]) << order << " at " << i;
        }
    }
}

} // namespace
} // namespace astrivelle
