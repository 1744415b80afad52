// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Opening a file for display: every extension row with its kind, colour type, filter
/// index and refusal text, the single-letter SBIG plane extensions, and camera raw files
/// converted to a temporary FITS file.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "FitsTestFiles.h"
#include "RawTestDng.h"
#include "TestSupport.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/OpenClassify.h"
#include "fileio/Raw.h"

namespace astrivelle {
namespace {

using test::ScratchDir;

/// Probes that answer by the file name and record which one ran.
struct FakeProbes {
    std::string called;
    std::int32_t sbigKind = KindSBIG;
    bool readable = true;
    bool color = false;
    std::string tiffMessage;

    OpenProbes Make() {
        OpenProbes p;
        p.sbig = [this](const std::string&) {
            called += "sbig;";
            return readable ? sbigKind : std::int32_t{KindNone};
        };
        p.fits = [this](const std::string&, bool* isColor) {
            called += "fits;";
            *isColor = color;
            return readable;
        };
        p.tiff = [this](const std::string&, bool* isRgb, std::string* message) {
            called += "tiff;";
            *isRgb = color;
            *message = readable ? "" : tiffMessage;
            return readable;
        };
        p.jpeg = [this](const std::string&, std::string* space) {
            called += "jpeg;";
            *space = color ? "YCbCr" : "GRAY";
            return readable;
        };
        p.raw = [this](RawRequest& r) {
            called += "raw:" + r.conversion + ":" + r.saveType + ";";
            return readable;
        };
        return p;
    }
};

TEST(OpenClassify, EveryExtensionRow) {
    struct Case {
        const char* path;
        const char* probe; ///< the probe that must run ("" for none)
        std::int32_t kind;
        std::uint32_t mono;  ///< colour type of a mono answer
        std::uint32_t color; ///< colour type of a colour answer
        int filterIndex;
    };
    const Case cases[] = {
        {"/d/a.st5", "sbig;", KindSBIG, 9, 9, 6},
        {"/d/a.ST6", "sbig;", KindSBIG, 9, 9, 6},
        {"/d/a.st7", "sbig;", KindSBIG, 9, 9, 6},
        {"/d/a.st8", "sbig;", KindSBIG, 9, 9, 6},
        {"/d/a.stx", "sbig;", KindSBIG, 9, 9, 6},
        {"/d/a.255", "sbig;", KindSBIG, 9, 9, 6},
        {"/d/a.237", "sbig;", KindSBIG, 9, 9, 6},
        {"/d/a.st9", "sbig;", KindSBIG, 9, 9, 6},
        {"/d/a.stv", "sbig;", KindSBIG, 9, 9, 6},
        {"/d/a.st2k", "sbig;", KindSBIG, 9, 9, 6},
        {"/d/a.st4k", "sbig;", KindSBIG, 9, 9, 6},
        {"/d/a.Sbig", "sbig;", KindSBIG, 9, 9, 6},
        {"/d/a.r", "sbig;", KindSBIG, 2, 2, 6},
        {"/d/a.G", "sbig;", KindSBIG, 3, 3, 6},
        {"/d/a.b", "sbig;", KindSBIG, 4, 4, 6},
        {"/d/a.C", "sbig;", KindSBIG, 6, 6, 6},
        {"/d/a.m", "sbig;", KindSBIG, 7, 7, 6},
        {"/d/a.Y", "sbig;", KindSBIG, 8, 8, 6},
        {"/d/a.bmp", "", KindBMP, 1, 1, 0},
        {"/d/a.fit", "fits;", KindFITS, 9, 1, 2},
        {"/d/a.FITS", "fits;", KindFITS, 9, 1, 2},
        {"/d/a.fts", "fits;", KindFITS, 9, 1, 2},
        {"/d/a.tif", "tiff;", KindTIFF, 9, 1, 3},
        {"/d/a.TIFF", "tiff;", KindTIFF, 9, 1, 3},
        {"/d/a.jpg", "jpeg;", KindJPEG, 9, 1, 0},
        {"/d/a.jpe", "jpeg;", KindJPEG, 9, 1, 0},
        {"/d/a.JPEG", "jpeg;", KindJPEG, 9, 1, 0},
        {"/d/a.crw", "raw:Color:COMPFIT;fits;", KindFITS, 9, 1, 7},
        {"/d/a.cr2", "raw:Color:COMPFIT;fits;", KindFITS, 9, 1, 8},
        {"/d/a.NEF", "raw:Color:COMPFIT;fits;", KindFITS, 9, 1, 9},
        {"/d/a.dcr", "raw:Color:COMPFIT;fits;", KindFITS, 9, 1, 10},
        {"/d/a.pef", "raw:Color:COMPFIT;fits;", KindFITS, 9, 1, 11},
        {"/d/a.orf", "raw:Color:COMPFIT;fits;", KindFITS, 9, 1, 12},
        {"/d/a.arw", "raw:Color:COMPFIT;fits;", KindFITS, 9, 1, 13},
    };
    ScratchDir dir;
    OpenOptions options;
    options.tempDir = dir.path().string();
    for (const Case& c : cases)
        for (bool color : {false, true}) {
            SCOPED_TRACE(std::string(c.path) + (color ? " colour" : " mono"));
            FakeProbes fake;
            fake.color = color;
            fake.sbigKind = color ? KindSBIGCompressed : KindSBIG;
            OpenSelection selection;
            OpenClassification out;
            ASSERT_TRUE(ClassifyOpenFile(c.path, selection, options, &out, fake.Make()))
                << out.message;
            EXPECT_EQ(fake.called, c.probe);
            const std::int32_t kind =
                c.kind == KindSBIG ? fake.sbigKind : c.kind; // both SBIG kinds open
            EXPECT_EQ(out.fileType, kind);
            EXPECT_EQ(out.colorType, color ? c.color : c.mono);
            EXPECT_EQ(out.filterIndex, c.filterIndex);
            EXPECT_TRUE(out.message.empty());
        }
}

TEST(OpenClassify, RefusalTexts) {
    struct Case {
        const char* path;
        const char* message;
    };
    const Case cases[] = {
        {"/d/noext", "Invalid filename."},
        {"/d/trailing.", "Invalid filename."},
        {"/d.d/noext", "Invalid filename."}, // a point in the folder is not an extension
        {"C:\\d\\trailing.", "Invalid filename."},
        {"/d/a.raw", "Could Not Open A.RAW"},
        {"/d/a.dng", "Could Not Open A.DNG"},
        {"/d/a.cr3", "Could Not Open A.CR3"},
        {"/d/a.png", "Could Not Open A.PNG"},
        {"C:\\d\\img.xyz", "Could Not Open IMG.XYZ"},
        // Each reader's failure.
        {"/d/a.st7", "Could Not Open A.ST7"},
        {"/d/a.r", "Could Not Open A.R"},
        {"/d/a.fit", "Could Not Read /d/a.fit"},
        {"/d/a.tif", "Could not read /d/a.tif"},
        {"/d/a.jpg", "Could not read /d/a.jpg"},
        {"/d/a.nef", "Could Not Open A.NEF"},
    };
    for (const Case& c : cases) {
        FakeProbes fake;
        fake.readable = false;
        OpenSelection selection;
        OpenClassification out;
        EXPECT_FALSE(ClassifyOpenFile(c.path, selection, {}, &out, fake.Make())) << c.path;
        EXPECT_EQ(out.message, c.message) << c.path;
        EXPECT_EQ(out.filterIndex, 0) << c.path;
    }
    // An SBIG probe that finds another format refuses too.
    FakeProbes fake;
    fake.sbigKind = KindNone;
    OpenSelection selection;
    OpenClassification out;
    EXPECT_FALSE(ClassifyOpenFile("/d/x.stx", selection, {}, &out, fake.Make()));
    EXPECT_EQ(out.message, "Could Not Open X.STX");
    // The TIFF reader's own words stand as they are.
    fake = FakeProbes{};
    fake.readable = false;
    fake.tiffMessage = "Unsupported TIFF compression.";
    EXPECT_FALSE(ClassifyOpenFile("/d/x.tif", selection, {}, &out, fake.Make()));
    EXPECT_EQ(out.message, "Unsupported TIFF compression.");
}

TEST(OpenClassify, RawQuestionOncePerSelectionAndDisplayFailure) {
    ScratchDir dir;
    test::RecordingNotify notify;
    notify.answer = Answer::Yes;
    OpenOptions options;
    options.notify = &notify;
    options.tempDir = dir.path().string();
    FakeProbes fake;
    OpenSelection selection;
    OpenClassification out;
    for (const char* path : {"/d/one.cr2", "/d/two.orf", "/d/three.arw"}) {
        ASSERT_TRUE(ClassifyOpenFile(path, selection, options, &out, fake.Make()));
        EXPECT_EQ(out.conversion, "WBCFA");
    }
    EXPECT_EQ(notify.questions, std::vector<std::string>{
                                    "Convert DSLR raw to Bayer at capture white balance format?"});
    EXPECT_EQ(out.pathToRead, dir.file("CVT_three.fit"));

    // The converted file that cannot be shown.
    OpenProbes probes = fake.Make();
    probes.fits = [](const std::string&, bool*) { return false; };
    EXPECT_FALSE(ClassifyOpenFile("/d/four.pef", selection, options, &out, probes));
    EXPECT_EQ(out.message, "Could Not Display Raw DSLR file FOUR.PEF");
}

/// A 2048-byte SBIG text header of the given image type, and a few pixel bytes.
std::string WriteSbigHeader(const ScratchDir& dir, const std::string& name,
                            const std::string& type) {
    std::string header = type + "\n\rWidth = 4\n\rHeight = 2\n\rEnd\n\r\x1a";
    header.resize(2048, '\0');
    header += std::string(16, '\0');
    const std::string path = dir.file(name);
    std::ofstream(path, std::ios::binary) << header;
    return path;
}

TEST(OpenClassify, SingleLetterPlanesOpenOnlyHere) {
    ScratchDir dir;
    struct Case {
        const char* name;
        const char* type;
        std::int32_t kind;
        std::uint32_t colorType;
    };
    for (const Case& c : {Case{"red.R", "ST-7 Image", KindSBIG, ColorRed},
                          Case{"green.g", "ST-7 Compressed Image", KindSBIGCompressed, ColorGreen},
                          Case{"cyan.C", "ST-8 Image", KindSBIG, ColorCyan},
                          Case{"frame.st7", "ST-7 Image", KindSBIG, ColorGray}}) {
        const std::string path = WriteSbigHeader(dir, c.name, c.type);
        OpenSelection selection;
        OpenClassification out;
        ASSERT_TRUE(ClassifyOpenFile(path, selection, {}, &out)) << c.name << ": " << out.message;
        EXPECT_EQ(out.fileType, c.kind) << c.name;
        EXPECT_EQ(out.colorType, c.colorType) << c.name;
    }
    // The dispatch by extension knows no single-letter extension.
    const std::string red = dir.file("red.R");
    Image img;
    EXPECT_FALSE(img.ReadFile(red, ".R"));
    // A foreign file under a plane extension.
    const std::string fits = dir.file("m.fit");
    const std::uint16_t px[4] = {1, 2, 3, 4};
    ASSERT_EQ(test::WriteMono(fits, USHORT_IMG, TUSHORT, 2, 2, px), 0);
    std::filesystem::copy_file(fits, dir.file("m.Y"));
    OpenSelection selection;
    OpenClassification out;
    EXPECT_FALSE(ClassifyOpenFile(dir.file("m.Y"), selection, {}, &out));
    EXPECT_EQ(out.message, "Could Not Open M.Y");
    // The FITS file itself is mono.
    ASSERT_TRUE(ClassifyOpenFile(fits, selection, {}, &out)) << out.message;
    EXPECT_EQ(out.fileType, KindFITS);
    EXPECT_EQ(out.colorType, ColorGray);
    EXPECT_FALSE(ClassifyOpenFile(dir.file("absent.fits"), selection, {}, &out));
    EXPECT_EQ(out.message, "Could Not Read " + dir.file("absent.fits"));
}

TEST(OpenClassify, RawFileConvertsToATemporaryFits) {
    ScratchDir dir;
    test::TestDng dng;
    test::SetCfa(dng, "GB,RG");
    test::FillTestSamples(dng);
    // LibRaw goes by the contents: a DNG under a Nikon name converts as any raw file.
    const std::string path = dir.file("night.nef");
    ASSERT_TRUE(test::WriteTestDng(path, dng));
    for (Answer answer : {Answer::No, Answer::Yes}) {
        test::RecordingNotify notify;
        notify.answer = answer;
        OpenOptions options;
        options.notify = &notify;
        options.tempDir = dir.path().string();
        OpenSelection selection;
        OpenClassification out;
        ASSERT_TRUE(ClassifyOpenFile(path, selection, options, &out)) << out.message;
        EXPECT_EQ(out.pathToRead, dir.file("CVT_night.fit"));
        EXPECT_EQ(out.fileType, KindFITS);
        EXPECT_EQ(out.filterIndex, 9);
        EXPECT_EQ(out.conversion, answer == Answer::Yes ? "WBCFA" : "Color");
        EXPECT_EQ(out.colorType, answer == Answer::Yes ? ColorGray : ColorRGB);
        Image img;
        ASSERT_TRUE(img.ReadFile(out.pathToRead, ".fit")) << LastFileError();
        EXPECT_EQ(img.width, dng.width);
        EXPECT_TRUE(
            std::any_of(img.headerCards.begin(), img.headerCards.end(), [](const CFITSHeader& c) {
                return c.key == "CFAPAT" && c.value == "GB,RG";
            }));
    }
    // A file LibRaw cannot read.
    const std::string bad = dir.file("bad.CR2");
    std::ofstream(bad) << std::string(5000, 'x');
    OpenSelection selection;
    OpenClassification out;
    OpenOptions options;
    options.tempDir = dir.path().string();
    EXPECT_FALSE(ClassifyOpenFile(bad, selection, options, &out));
    EXPECT_EQ(out.message, "Could Not Open BAD.CR2");
    EXPECT_FALSE(std::filesystem::exists(dir.file("CVT_bad.fit")));
}

TEST(OpenClassify, RealTiffAndJpegFiles) {
    struct Case {
        const char* file;
        std::int32_t kind;
        std::uint32_t colorType;
    };
    int seen = 0;
    for (const Case& c : {Case{"tiff/astro4j_mars_mono.tif", KindTIFF, ColorGray},
                          Case{"tiff/astro4j_mars_color.tif", KindTIFF, ColorRGB}}) {
        const std::string path = test::RealData(c.file);
        if (path.empty())
            continue;
        ++seen;
        OpenSelection selection;
        OpenClassification out;
        ASSERT_TRUE(ClassifyOpenFile(path, selection, {}, &out)) << c.file << ": " << out.message;
        EXPECT_EQ(out.fileType, c.kind) << c.file;
        EXPECT_EQ(out.colorType, c.colorType) << c.file;
        EXPECT_EQ(out.filterIndex, 3);
    }
    // The JPEG sample is stored under a .jpeg name.
    if (const std::string jpeg = test::RealData("tiff/ngc6976.jpeg"); !jpeg.empty()) {
        ++seen;
        OpenSelection selection;
        OpenClassification out;
        ASSERT_TRUE(ClassifyOpenFile(jpeg, selection, {}, &out)) << out.message;
        EXPECT_EQ(out.fileType, KindJPEG);
        EXPECT_EQ(out.colorType, ColorRGB);
    }
    ScratchDir dir;
    const std::string junk = dir.file("junk.jpg");
    std::ofstream(junk) << "not a jpeg";
    OpenSelection selection;
    OpenClassification out;
    EXPECT_FALSE(ClassifyOpenFile(junk, selection, {}, &out));
    EXPECT_EQ(out.message, "Could not read " + junk);
    if (seen == 0)
        GTEST_SKIP() << "real TIFF and JPEG files are not present";
}

} // namespace
} // namespace astrivelle
