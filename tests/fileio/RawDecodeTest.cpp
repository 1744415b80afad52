// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Camera raw conversion: the pattern keyword of every filter word, the conversion and
/// output keywords, the cards, the pixel layout of each conversion on small DNG files, FITS
/// outputs end to end, and files the decoder cannot or can only partly read.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <unistd.h>

#include <gtest/gtest.h>

#include "RawTestDng.h"
#include "TestSupport.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/Fits.h"
#include "fileio/Raw.h"

namespace astrivelle {
namespace {

using test::ScratchDir;
using test::TestDng;

const char* const kPatterns[4] = {"RG,GB", "GR,BG", "GB,RG", "BG,GR"};

TestDng MakeDng(const std::string& pattern) {
    TestDng d;
    test::SetCfa(d, pattern);
    test::FillTestSamples(d);
    return d;
}

/// The mosaic value NoWBCFA gives a sample: black removed, white at 65535.
double Unbalanced(const TestDng& d, int x, int y) {
    return (d.samples[static_cast<std::size_t>(y) * d.width + x] - double(d.black)) * 65535.0 /
           (d.white - double(d.black));
}

int ColourAt(const TestDng& d, int x, int y) {
    return d.cfa[(y & 1) * 2 + (x & 1)];
}

RawRequest Request(const std::string& input, const std::string& conversion) {
    RawRequest r;
    r.ownerName = "CFileSetProcess";
    r.conversion = conversion;
    r.saveType = "UNCOMPFIT";
    r.inputPath = input;
    return r;
}

const CFITSHeader* FindCard(const HeaderList& cards, const std::string& key) {
    for (const CFITSHeader& c : cards)
        if (c.key == key)
            return &c;
    return nullptr;
}

std::vector<std::string> Comments(const HeaderList& cards) {
    std::vector<std::string> out;
    for (const CFITSHeader& c : cards)
        if (c.key == "COMMENT")
            out.push_back(c.comment);
    return out;
}

TEST(RawPattern, FilterWordsGiveTheirKeywords) {
    struct Case {
        std::uint32_t filters;
        const char* keyword;
    };
    for (const Case& c :
         {Case{0x94949494u, "RG,GB"}, Case{0xb4b4b4b4u, "RG,GB"}, Case{0x61616161u, "GR,BG"},
          Case{0xe1e1e1e1u, "GR,BG"}, Case{0x16161616u, "BG,GR"}, Case{0x1e1e1e1eu, "BG,GR"},
          Case{0x49494949u, "GB,RG"}, Case{0x4b4b4b4bu, "GB,RG"}, Case{0x1e4e1e4eu, "CYGM,CYMG"},
          Case{0xe1e4e1e4u, "GMCY,MGCY"}, Case{0u, ""}, Case{9u, ""}, Case{1u, ""},
          Case{0x5a5a5a5au, ""}, Case{0xb4b4b4b5u, ""}}) {
        EXPECT_STREQ(PatternKeywordOfFilters(c.filters), c.keyword) << std::hex << c.filters;
    }
    EXPECT_EQ(NormalizeFilterWord(0xb4b4b4b4u), 0x94949494u);
    EXPECT_EQ(NormalizeFilterWord(0xe1e1e1e1u), 0x61616161u);
    EXPECT_EQ(NormalizeFilterWord(0x1e1e1e1eu), 0x16161616u);
    EXPECT_EQ(NormalizeFilterWord(0x4b4b4b4bu), 0x49494949u);
    EXPECT_EQ(NormalizeFilterWord(0x1e4e1e4eu), 0x1e4e1e4eu);
}

TEST(RawKeywords, ConversionsAndTheirDialogTexts) {
    const auto list = RawConversions();
    ASSERT_EQ(list.size(), 4u);
    const char* const expect[4][2] = {{"Color", "At Capture White Balanced Color"},
                                      {"NoWBCFA", "Bayer No White Balance"},
                                      {"WBCFA", "Bayer At Capture White Balance"},
                                      {"BASICBAYER", "Bayer Basic Raw"}};
    for (int i = 0; i < 4; ++i) {
        EXPECT_STREQ(list[i].keyword, expect[i][0]);
        EXPECT_STREQ(list[i].dialogText, expect[i][1]);
        EXPECT_EQ(list[i].mosaic, i != 0);
        EXPECT_EQ(FindRawConversion(expect[i][0]), &list[i]);
    }
    EXPECT_EQ(FindRawConversion("color"), nullptr);
    EXPECT_EQ(FindRawConversion("CFA"), nullptr);
}

TEST(RawKeywords, SaveTypesSetKindSamplesAndExtension) {
    struct Case {
        const char* keyword;
        std::int32_t kind;
        std::uint32_t dataType; ///< checked for FITS only
        std::uint32_t tiffBits; ///< checked for TIFF only
        bool compress;
        const char* extension;
    };
    const Case cases[] = {
        {"COMPFIT", KindFITS, Data16, 0, true, ".fit"},
        {"UNCOMPFIT", KindFITS, Data16, 0, false, ".fit"},
        {"COMPFIT32", KindFITS, DataFloat, 0, true, ".fit"},
        {"UNCOMPFIT32", KindFITS, DataFloat, 0, false, ".fit"},
        {"TIFF16", KindTIFF, 0, 16, false, ".tif"},
        {"TIFF8", KindTIFF, 0, 8, false, ".tif"},
        {"JPEG", KindJPEG, 0, 0, false, ".jpg"},
        {"BMP", KindBMP, 0, 0, false, ".bmp"},
        // Anything else is a 16-bit TIFF.
        {"SAMEASINPUT", KindTIFF, 0, 16, false, ".tif"},
        {"compfit", KindTIFF, 0, 16, false, ".tif"},
    };
    for (const Case& c : cases) {
        Image img;
        test::MakeImage(img, 4, 3, ColorRGB, [](int s, int x, int y) { return s + x + y; });
        img.tiffBitsPerSample = 32;
        img.fitsCompress = !c.compress;
        EXPECT_EQ(ApplyRawSaveType(img, c.keyword), c.extension) << c.keyword;
        EXPECT_EQ(img.fileType, c.kind) << c.keyword;
        EXPECT_EQ(img.width, 4);
        EXPECT_EQ(img.height, 3);
        EXPECT_EQ(img.colorType, ColorRGB);
        EXPECT_EQ(img.maxValue, 65535u);
        if (c.kind == KindFITS) {
            EXPECT_EQ(img.dataType, c.dataType) << c.keyword;
            EXPECT_EQ(img.fitsCompress, c.compress) << c.keyword;
        }
        if (c.kind == KindTIFF) {
            EXPECT_EQ(img.tiffBitsPerSample, c.tiffBits) << c.keyword;
        }
        EXPECT_EQ(IsRawSaveType(c.keyword),
                  std::string(c.keyword) != "SAMEASINPUT" && std::string(c.keyword) != "compfit");
    }
    EXPECT_EQ(RawSaveTypes().size(), 8u);
}

TEST(RawKeywords, OutputNameReplacesTheRawExtension) {
    struct Case {
        const char* input;
        const char* saveType;
        const char* output; ///< nullptr: refused
    };
    for (const Case& c :
         {Case{"/in/IMG_0001.CR2", "COMPFIT", "/out/CVT_IMG_0001.fit"},
          Case{"/in/a.crw", "TIFF8", "/out/CVT_a.tif"}, Case{"/in/a.nef", "JPEG", "/out/CVT_a.jpg"},
          Case{"/in/a.NRW", "BMP", "/out/CVT_a.bmp"},
          Case{"/in/a.dcr", "UNCOMPFIT32", "/out/CVT_a.fit"},
          Case{"/in/a.Pef", "TIFF16", "/out/CVT_a.tif"},
          Case{"/in/a.raf", "COMPFIT", "/out/CVT_a.fit"},
          Case{"/in/a.orf", "COMPFIT", "/out/CVT_a.fit"},
          Case{"/in/a.dng", "COMPFIT", "/out/CVT_a.fit"},
          Case{"/in/a.arw", "COMPFIT", "/out/CVT_a.fit"},
          Case{"/in/1ds.TIF", "COMPFIT", "/out/CVT_1ds.fit"}, Case{"/in/a.jpg", "COMPFIT", nullptr},
          Case{"/in/a.cr3", "COMPFIT", nullptr}, Case{"/in/a.rw2", "COMPFIT", nullptr},
          Case{"/in/noext", "COMPFIT", nullptr}}) {
        std::string out = "untouched";
        EXPECT_EQ(RawOutputPath("/out", "CVT_", c.input, c.saveType, &out), c.output != nullptr)
            << c.input;
        EXPECT_EQ(out, c.output ? c.output : "untouched") << c.input;
    }
    EXPECT_EQ(RawUnsupportedFormatMessage("A.JPG"),
              "Image File Format Does Not Support Raw Conversion.\n\n A.JPG");
    EXPECT_STREQ(kRawCouldNotConvert, "Could not convert file.");
    EXPECT_STREQ(kRawAlreadyInProgress, "Digital Camera Raw Conversion Is Already In Progress.");
}

TEST(RawCards, CameraCardsInOrder) {
    RawFileInfo info;
    info.make = "Canon";
    info.model = "EOS 300D";
    info.pattern = "RG,GB";
    info.shutter = 1.0 / 60;
    info.iso = 1600;
    info.aperture = 5.6;
    info.focalLength = 24;
    const HeaderList cards = RawHeaderCards(info);
    ASSERT_EQ(cards.size(), 6u);
    EXPECT_EQ(cards[0].key, "CFAPAT");
    EXPECT_EQ(cards[0].value, "RG,GB");
    EXPECT_EQ(cards[0].comment, "CFA Pattern");
    EXPECT_EQ(cards[0].dataType, 3u);
    EXPECT_EQ(Comments(cards),
              (std::vector<std::string>{"Canon EOS 300D", "1/60", "1600", "f/5.6", "24.0 mm"}));

    // Exposures from one second on are written in seconds; no pattern, no CFAPAT.
    struct Case {
        double seconds;
        const char* text;
    };
    for (const Case& c :
         {Case{1.0 / 4000, "1/4000"}, Case{0.5, "1/2"}, Case{1.0 / 3, "1/3"}, Case{1.0, "1.0 sec"},
          Case{30.0, "30.0 sec"}, Case{2.5, "2.5 sec"}, Case{0.0, "0.0 sec"}})
        EXPECT_EQ(RawShutterText(c.seconds), c.text) << c.seconds;
    info.pattern.clear();
    EXPECT_EQ(FindCard(RawHeaderCards(info), "CFAPAT"), nullptr);
}

TEST(RawDecode, MosaicOfEveryPatternUnderEveryMosaicKeyword) {
    ScratchDir dir;
    for (const char* pattern : kPatterns) {
        const TestDng dng = MakeDng(pattern);
        const std::string path = dir.file("cfa.dng");
        ASSERT_TRUE(test::WriteTestDng(path, dng));
        for (const char* conversion : {"NoWBCFA", "WBCFA", "BASICBAYER"}) {
            SCOPED_TRACE(std::string(pattern) + " " + conversion);
            RawRequest request = Request(path, conversion);
            HeaderList header;
            request.header = &header;
            Image img;
            RawFileInfo info;
            ASSERT_TRUE(DecodeRawImage(request, img, &info)) << LastFileError();
            EXPECT_EQ(request.pattern, pattern);
            EXPECT_EQ(info.make, "Astrivelle");
            EXPECT_EQ(info.model, "Test Body");
            EXPECT_EQ(img.colorType, ColorGray);
            EXPECT_EQ(img.width, dng.width);
            EXPECT_EQ(img.height, dng.height);
            ASSERT_NE(img.curPlane[0], nullptr);
            EXPECT_EQ(img.curPlane[1], nullptr);
            const CFITSHeader* cfa = FindCard(header, "CFAPAT");
            ASSERT_NE(cfa, nullptr);
            EXPECT_EQ(cfa->value, pattern);
            EXPECT_EQ(Comments(header), (std::vector<std::string>{"Astrivelle Test Body", "1/125",
                                                                  "800", "f/2.8", "50.0 mm"}));
            EXPECT_EQ(Comments(img.headerCards), Comments(header));

            double mul[3] = {1, 1, 1};
            if (std::string(conversion) == "WBCFA") {
                mul[0] = (1 / 0.5) / (1 / 1.0); // green is the smallest: 1
                mul[2] = (1 / 0.8) / (1 / 1.0);
            } else if (std::string(conversion) == "BASICBAYER") {
                for (int c = 0; c < 3; ++c)
                    mul[c] = info.multipliers[c];
                // The decoder's daylight balance is neither unity nor the camera's.
                EXPECT_GT(mul[0], 1.05);
                EXPECT_NE(std::lround(mul[0] * 100), 200);
            }
            EXPECT_DOUBLE_EQ(*std::min_element(mul, mul + 3), 1.0);
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(info.multipliers[c], mul[c], 1e-4) << c;
            double worst = 0;
            for (int y = 0; y < dng.height; ++y)
                for (int x = 0; x < dng.width; ++x) {
                    const double want =
                        std::min(65535.0, Unbalanced(dng, x, y) * mul[ColourAt(dng, x, y)]);
                    worst = std::max(worst, std::abs(img.curPlane[0][y * dng.width + x] - want));
                }
            EXPECT_LT(worst, 0.05);
        }
    }
}

TEST(RawDecode, BasicBayerUsesTheDaylightBalanceOfTheColourMatrix) {
    // The decoder's daylight multipliers come from the XYZ-to-camera matrix: camera-from-sRGB
    // rows, each multiplier the reciprocal of its row's sum.
    const double xyzRgb[3][3] = {{0.412453, 0.357580, 0.180423},
                                 {0.212671, 0.715160, 0.072169},
                                 {0.019334, 0.119193, 0.950227}};
    double mul[3];
    for (int i = 0; i < 3; ++i) {
        double sum = 0;
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k)
                sum += test::kTestColorMatrix[i * 3 + k] / 10000.0 * xyzRgb[k][j];
        mul[i] = 1 / sum;
    }
    const double smallest = *std::min_element(mul, mul + 3);
    ScratchDir dir;
    const std::string path = dir.file("basic.dng");
    ASSERT_TRUE(test::WriteTestDng(path, MakeDng("RG,GB")));
    RawRequest request = Request(path, "BASICBAYER");
    Image img;
    RawFileInfo info;
    ASSERT_TRUE(DecodeRawImage(request, img, &info)) << LastFileError();
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(info.multipliers[c], mul[c] / smallest, 2e-3) << c;
}

TEST(RawDecode, WhiteBalanceClipsAtTheCeiling) {
    ScratchDir dir;
    TestDng dng = MakeDng("RG,GB");
    dng.samples[0] = static_cast<std::uint16_t>(dng.white);      // a saturated red site
    dng.samples[1] = static_cast<std::uint16_t>(dng.black - 50); // a green below black
    const std::string path = dir.file("clip.dng");
    ASSERT_TRUE(test::WriteTestDng(path, dng));
    for (const char* conversion : {"NoWBCFA", "WBCFA"}) {
        RawRequest request = Request(path, conversion);
        Image img;
        ASSERT_TRUE(DecodeRawImage(request, img)) << LastFileError();
        EXPECT_FLOAT_EQ(img.curPlane[0][0], 65535.0f) << conversion;
        EXPECT_FLOAT_EQ(img.curPlane[0][1], 0.0f) << conversion;
    }
}

TEST(RawDecode, ColorIsThreePlanesOfTheVisibleArea) {
    ScratchDir dir;
    TestDng dng = MakeDng("GR,BG");
    // Left half red light, right half blue light.
    for (int y = 0; y < dng.height; ++y)
        for (int x = 0; x < dng.width; ++x) {
            const int c = ColourAt(dng, x, y);
            const bool red = x < dng.width / 2;
            const int level = (red && c == 0) || (!red && c == 2) ? 2500 : 150;
            dng.samples[y * dng.width + x] = static_cast<std::uint16_t>(dng.black + level);
        }
    const std::string path = dir.file("color.dng");
    ASSERT_TRUE(test::WriteTestDng(path, dng));
    for (bool linear : {false, true}) {
        RawRequest request = Request(path, "Color");
        request.linear = linear;
        HeaderList header;
        request.header = &header;
        Image img;
        ASSERT_TRUE(DecodeRawImage(request, img)) << LastFileError();
        EXPECT_EQ(request.pattern, "GR,BG");
        ASSERT_NE(FindCard(header, "CFAPAT"), nullptr);
        EXPECT_EQ(img.colorType, ColorRGB);
        EXPECT_EQ(img.width, dng.width);
        EXPECT_EQ(img.height, dng.height);
        for (int s = 0; s < 3; ++s)
            ASSERT_NE(img.curPlane[s], nullptr);
        const int y = dng.height / 2, w = dng.width;
        const int left = y * w + 3, right = y * w + w - 4;
        EXPECT_GT(img.curPlane[0][left], 2 * img.curPlane[1][left]) << linear;
        EXPECT_GT(img.curPlane[0][left], 2 * img.curPlane[2][left]) << linear;
        EXPECT_GT(img.curPlane[2][right], 2 * img.curPlane[0][right]) << linear;
        EXPECT_GT(img.curPlane[2][right], 2 * img.curPlane[1][right]) << linear;
        for (int s = 0; s < 3; ++s)
            for (std::uint32_t i = 0; i < img.pixelCount; ++i)
                ASSERT_TRUE(img.curPlane[s][i] >= 0 && img.curPlane[s][i] <= 65535);
    }
}

TEST(RawDecode, HalfSizeOnlyForTheFileOperationsColor) {
    ScratchDir dir;
    const TestDng dng = MakeDng("RG,GB");
    const std::string path = dir.file("half.dng");
    ASSERT_TRUE(test::WriteTestDng(path, dng));
    struct Case {
        const char* owner;
        const char* conversion;
        int width; ///< expected
    };
    for (const Case& c :
         {Case{"CFileSetProcess", "Color", dng.width / 2}, Case{"FileOpen", "Color", dng.width},
          Case{"CFileSetProcess", "WBCFA", dng.width}}) {
        RawRequest request = Request(path, c.conversion);
        request.ownerName = c.owner;
        request.buildRGBPixel = true;
        request.reduceGreenNoise = true;
        Image img;
        ASSERT_TRUE(DecodeRawImage(request, img)) << LastFileError();
        EXPECT_EQ(img.width, c.width) << c.owner << " " << c.conversion;
    }
}

TEST(RawDecodeFile, FitsOutputsEndToEnd) {
    ScratchDir dir;
    const TestDng dng = MakeDng("BG,GR");
    const std::string input = dir.file("IMG_1.dng");
    ASSERT_TRUE(test::WriteTestDng(input, dng));
    struct Case {
        const char* saveType;
        const char* conversion;
        std::uint32_t dataType;
        bool compressed;
        std::uint32_t colorType;
    };
    for (const Case& c : {Case{"COMPFIT", "NoWBCFA", Data16, true, ColorGray},
                          Case{"UNCOMPFIT", "WBCFA", Data16, false, ColorGray},
                          Case{"COMPFIT32", "BASICBAYER", DataFloat, true, ColorGray},
                          Case{"UNCOMPFIT32", "NoWBCFA", DataFloat, false, ColorGray},
                          Case{"UNCOMPFIT", "Color", Data16, false, ColorRGB}}) {
        SCOPED_TRACE(std::string(c.saveType) + " " + c.conversion);
        RawRequest request = Request(input, c.conversion);
        request.saveType = c.saveType;
        ASSERT_TRUE(
            RawOutputPath(dir.path().string(), "CVT_", input, c.saveType, &request.outputPath));
        test::RecordingProgress progress;
        request.owner = &progress;
        HeaderList header;
        request.header = &header;
        ASSERT_TRUE(DecodeRawFile(request)) << LastFileError();
        EXPECT_EQ(progress.lastStep, 7);
        EXPECT_EQ(progress.lastTotal, 7);
        EXPECT_EQ(request.pattern, "BG,GR");

        FitsGeometry geometry;
        ASSERT_TRUE(ProbeFITSGeometry(request.outputPath, &geometry)) << LastFileError();
        EXPECT_EQ(geometry.compressed, c.compressed);
        EXPECT_EQ(geometry.dataType, c.dataType);
        Image back;
        ASSERT_TRUE(back.ReadFile(request.outputPath, ".fit")) << LastFileError();
        EXPECT_EQ(back.width, dng.width);
        EXPECT_EQ(back.height, dng.height);
        EXPECT_EQ(back.colorType, c.colorType);
        const CFITSHeader* cfa = FindCard(back.headerCards, "CFAPAT");
        ASSERT_NE(cfa, nullptr);
        EXPECT_EQ(cfa->value, "BG,GR");
        EXPECT_EQ(cfa->comment, "CFA Pattern");
        EXPECT_EQ(
            Comments(back.headerCards),
            (std::vector<std::string>{"Astrivelle Test Body", "1/125", "800", "f/2.8", "50.0 mm"}));
        if (std::string(c.conversion) == "NoWBCFA") {
            const double tolerance = c.dataType == DataFloat ? 0.01 : 0.51;
            for (int y = 0; y < dng.height; ++y)
                for (int x = 0; x < dng.width; ++x)
                    ASSERT_NEAR(back.curPlane[0][y * dng.width + x], Unbalanced(dng, x, y),
                                tolerance);
        }
    }
}

TEST(RawDecodeFile, OtherOutputsChooseTheirWriter) {
    ScratchDir dir;
    const std::string input = dir.file("x.dng");
    ASSERT_TRUE(test::WriteTestDng(input, MakeDng("RG,GB")));
    struct Case {
        const char* saveType;
        std::int32_t kind;
        std::uint32_t bits;
        const char* extension;
    };
    for (const Case& c : {Case{"TIFF16", KindTIFF, 16, ".tif"}, Case{"TIFF8", KindTIFF, 8, ".tif"},
                          Case{"JPEG", KindJPEG, 0, ".jpg"}, Case{"BMP", KindBMP, 0, ".bmp"}}) {
        RawRequest request = Request(input, "WBCFA");
        Image img;
        ASSERT_TRUE(DecodeRawImage(request, img)) << LastFileError();
        EXPECT_EQ(ApplyRawSaveType(img, c.saveType), c.extension);
        EXPECT_EQ(img.fileType, c.kind);
        if (c.kind == KindTIFF) {
            EXPECT_EQ(img.tiffBitsPerSample, c.bits);
        }
        EXPECT_EQ(img.colorType, ColorGray);
        // The whole conversion either writes the file or says why not.
        request = Request(input, "WBCFA");
        request.saveType = c.saveType;
        ASSERT_TRUE(
            RawOutputPath(dir.path().string(), "CVT_", input, c.saveType, &request.outputPath));
        const bool written = DecodeRawFile(request);
        EXPECT_EQ(written, std::filesystem::exists(request.outputPath)) << c.saveType;
        if (!written) {
            EXPECT_FALSE(LastFileError().empty()) << c.saveType;
        }
    }
}

TEST(RawDecode, FilesTheDecoderRefuses) {
    ScratchDir dir;
    const TestDng dng = MakeDng("RG,GB");
    const std::string truncated = dir.file("truncated.dng");
    ASSERT_TRUE(test::WriteTestDng(truncated, dng, 100)); // 100 of 1536 sample bytes
    TestDng blank = dng;
    std::fill(blank.samples.begin(), blank.samples.end(), 0);
    const std::string zeros = dir.file("zeros.dng");
    ASSERT_TRUE(test::WriteTestDng(zeros, blank));
    const std::string text = dir.file("text.cr2");
    std::ofstream(text) << "not a raw file at all\n";
    const std::string empty = dir.file("empty.nef");
    std::ofstream(empty).flush();

    struct Case {
        std::string path;
        const char* conversion;
        const char* reasonStart;
        const char* pattern; ///< known even when the decode fails
    };
    for (const Case& c :
         {Case{dir.file("missing.nef"), "Color", "LibRaw could not open the file: ", ""},
          Case{text, "NoWBCFA", "LibRaw could not open the file: ", ""},
          Case{empty, "NoWBCFA", "LibRaw could not open the file: ", ""},
          Case{truncated, "NoWBCFA", "The raw file ends before its image data does", "RG,GB"},
          Case{truncated, "Color", "The raw file ends before its image data does", "RG,GB"},
          Case{zeros, "WBCFA", "The raw file holds no image data", "RG,GB"},
          Case{truncated, "nowbcfa", "Unknown raw conversion \"nowbcfa\"", ""}}) {
        SCOPED_TRACE(c.path + " " + c.conversion);
        RawRequest request = Request(c.path, c.conversion);
        request.saveType = "UNCOMPFIT";
        request.outputPath = dir.file("never.fit");
        request.pattern = "stale";
        EXPECT_FALSE(DecodeRawFile(request));
        EXPECT_EQ(LastFileError().rfind(c.reasonStart, 0), 0u) << LastFileError();
        EXPECT_EQ(request.pattern, c.pattern);
        EXPECT_FALSE(std::filesystem::exists(request.outputPath));
    }
}

/// Real camera files: makes, models and patterns, and never a crash.
TEST(RawRealData, IdentificationAndPatternOfRealFiles) {
    struct Case {
        const char* file;
        const char* make;
        const char* model;
        const char* pattern; ///< nullptr: not identified at all
    };
    const Case cases[] = {
        {"raw/exiftool_stubs/CanonRaw.crw", "Canon", "EOS 300D", "RG,GB"},
        {"raw/exiftool_stubs/CanonRaw.cr2", "", "", nullptr},
        {"raw/exiftool_stubs/CanonRaw.cr3", "Canon", "EOS M50", "RG,GB"},
        {"raw/exiftool_stubs/DNG.dng", "Canon", "EOS 350D", "RG,GB"},
        {"raw/exiftool_stubs/FujiFilm.raf", "Fujifilm", "S5Pro", "GB,RG"},
        {"raw/exiftool_stubs/Minolta.mrw", "Minolta", "DiMAGE A2", "RG,GB"},
        {"raw/exiftool_stubs/Nikon.nef", "Nikon", "D70", "BG,GR"},
        {"raw/exiftool_stubs/Panasonic.rw2", "Panasonic", "DMC-LX3", "BG,GR"},
        {"raw/exiftool_stubs/PhaseOne.iiq", "Leaf", "Credo 40", "RG,GB"},
        {"raw/Nikon_Coolscan_IV_ED_uncompressed.nef", "Nikon", "COOLSCAN IV ED", ""},
    };
    int seen = 0;
    for (const Case& c : cases) {
        const std::string path = test::RealData(c.file);
        if (path.empty())
            continue;
        ++seen;
        SCOPED_TRACE(c.file);
        RawFileInfo info;
        const bool identified = IdentifyRawFile(path, &info);
        EXPECT_EQ(identified, c.pattern != nullptr) << LastFileError();
        if (!c.pattern) {
            EXPECT_EQ(LastFileError(),
                      "LibRaw could not open the file: Unsupported file format or not RAW file");
            continue;
        }
        EXPECT_EQ(info.make, c.make);
        EXPECT_EQ(info.model, c.model);
        EXPECT_EQ(info.pattern, c.pattern);
        // A stub has its image data cut out: each conversion either decodes or fails with a
        // reason, and the pattern is known either way.
        for (const char* conversion : {"NoWBCFA", "Color"}) {
            RawRequest request = Request(path, conversion);
            Image img;
            const bool decoded = DecodeRawImage(request, img);
            EXPECT_EQ(request.pattern, c.pattern) << conversion;
            if (!decoded)
                EXPECT_FALSE(LastFileError().empty()) << conversion;
            else
                EXPECT_GT(img.width, 0);
        }
    }
    if (seen == 0)
        GTEST_SKIP() << "real raw files are not present";
}

TEST(RawRealData, StubsWithoutImageDataAreRefused) {
    for (const char* file : {"raw/exiftool_stubs/CanonRaw.crw", "raw/exiftool_stubs/Nikon.nef",
                             "raw/exiftool_stubs/DNG.dng", "raw/exiftool_stubs/CanonRaw.cr3",
                             "raw/exiftool_stubs/Panasonic.rw2"}) {
        const std::string path = test::RealData(file);
        if (path.empty())
            GTEST_SKIP() << "real raw files are not present";
        RawRequest request = Request(path, "WBCFA");
        Image img;
        EXPECT_FALSE(DecodeRawImage(request, img)) << file;
        const std::string why = LastFileError();
        EXPECT_TRUE(why.rfind("LibRaw could not decode the file", 0) == 0 ||
                    why == "The raw file ends before its image data does" ||
                    why == "The raw file holds too little data for its image")
            << file << ": " << why;
    }
}

TEST(RawRealData, RealBayerDngDecodes) {
    const std::string path = test::RealData("raw/Blackmagic_PocketCinema4K_12bit.dng");
    if (path.empty())
        GTEST_SKIP() << "real raw files are not present";
    RawRequest request = Request(path, "NoWBCFA");
    HeaderList header;
    request.header = &header;
    Image img;
    RawFileInfo info;
    ASSERT_TRUE(DecodeRawImage(request, img, &info)) << LastFileError();
    EXPECT_EQ(request.pattern, "RG,GB");
    EXPECT_EQ(info.make, "Blackmagic");
    EXPECT_EQ(img.width, 4128);
    EXPECT_EQ(img.height, 2176);
    EXPECT_EQ(img.colorType, ColorGray);
    EXPECT_EQ(Comments(header).front(), "Blackmagic Pocket Cinema Camera 4K");
    // An outdoor scene: most of the mosaic lies well inside the range.
    double sum = 0;
    for (std::uint32_t i = 0; i < img.pixelCount; ++i)
        sum += img.curPlane[0][i];
    const double mean = sum / img.pixelCount;
    EXPECT_GT(mean, 200);
    EXPECT_LT(mean, 60000);
}

TEST(RawRealData, FilmScannerNefHasNoMosaic) {
    const std::string path = test::RealData("raw/Nikon_Coolscan_IV_ED_uncompressed.nef");
    if (path.empty())
        GTEST_SKIP() << "real raw files are not present";
    for (const char* conversion : {"NoWBCFA", "WBCFA", "BASICBAYER"}) {
        RawRequest request = Request(path, conversion);
        Image img;
        EXPECT_FALSE(DecodeRawImage(request, img)) << conversion;
        EXPECT_EQ(LastFileError(), "The raw file has no colour filter mosaic to keep");
        EXPECT_EQ(request.pattern, "");
    }
    RawRequest request = Request(path, "Color");
    HeaderList header;
    request.header = &header;
    Image img;
    ASSERT_TRUE(DecodeRawImage(request, img)) << LastFileError();
    EXPECT_EQ(img.colorType, ColorRGB);
    EXPECT_EQ(img.width, 869);
    EXPECT_EQ(img.height, 593);
    EXPECT_EQ(FindCard(header, "CFAPAT"), nullptr);
    EXPECT_EQ(Comments(header).front(), "Nikon COOLSCAN IV ED");
}

/// The generator's DNGs, when the generator is built beside this test program.
TEST(RawSynth, GeneratedDngsGiveTheirPatterns) {
    char self[4096] = {};
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0)
        GTEST_SKIP() << "cannot locate the test program";
    const std::filesystem::path synth =
        std::filesystem::path(self).parent_path().parent_path() / "astrivelle-synth";
    if (!std::filesystem::exists(synth))
        GTEST_SKIP() << "astrivelle-synth is not built in " << synth.parent_path();
    ScratchDir dir;
    std::string output;
    ASSERT_EQ(test::RunCommand(
                  synth.string() + " raw --out " + dir.path().string() + " --size 48x36", &output),
              0)
        << output;
    for (const char* pattern : kPatterns) {
        std::string name =
            std::string("raw_") + pattern[0] + pattern[1] + pattern[3] + pattern[4] + ".dng";
        RawRequest request = Request(dir.file(name), "NoWBCFA");
        HeaderList header;
        request.header = &header;
        Image img;
        ASSERT_TRUE(DecodeRawImage(request, img)) << name << ": " << LastFileError();
        EXPECT_EQ(request.pattern, pattern);
        EXPECT_EQ(FindCard(header, "CFAPAT")->value, pattern);
        EXPECT_EQ(img.width, 48);
        EXPECT_EQ(img.height, 36);
        // Top left is the red patch: its red sites are the brightest of the cell.
        const std::string cells = std::string(pattern).erase(2, 1);
        const int red = static_cast<int>(cells.find('R'));
        const float redValue = img.curPlane[0][(red / 2) * 48 + red % 2];
        for (int i = 0; i < 4; ++i)
            if (i != red) {
                EXPECT_GT(redValue, 3 * img.curPlane[0][(i / 2) * 48 + i % 2]) << name;
            }
    }
}

} // namespace
} // namespace astrivelle
