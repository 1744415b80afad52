// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Digital Camera Raw Conversion Files: outputs and names by conversion keyword and save
/// type, the failures of a list (the run goes on), the Cancel of the format question, cancel,
/// one run at a time, never over an input.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "../fileio/RawTestDng.h"
#include "TestSupport.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/Raw.h"
#include "imagesets/RawConvertFiles.h"

namespace astrivelle {
namespace {

namespace fs = std::filesystem;

std::string MakeDng(const test::ScratchDir& dir, const std::string& name,
                    const std::string& pattern) {
    test::TestDng dng;
    test::SetCfa(dng, pattern);
    test::FillTestSamples(dng);
    const std::string path = dir.file(name);
    EXPECT_TRUE(test::WriteTestDng(path, dng));
    return path;
}

std::string ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

RawConvertRequest Request(const std::vector<std::string>& files, const std::string& outDir,
                          const std::string& conversion, const std::string& saveType) {
    RawConvertRequest r;
    r.files = files;
    r.outputDirectory = outDir;
    r.conversion = conversion;
    r.saveType = saveType;
    return r;
}

TEST(RawConvertFiles, OutputsAndNamesByConversionAndSaveType) {
    test::ScratchDir dir;
    const std::string a = MakeDng(dir, "a.dng", "GR,BG");
    const std::string b = MakeDng(dir, "b.DNG", "BG,GR");
    struct Case {
        const char* conversion;
        const char* saveType;
        const char* extension;
        std::uint32_t colorType;
    };
    const Case cases[] = {
        {"NoWBCFA", "UNCOMPFIT32", ".fit", ColorGray},
        {"WBCFA", "COMPFIT", ".fit", ColorGray},
        {"BASICBAYER", "UNCOMPFIT", ".fit", ColorGray},
        {"Color", "COMPFIT32", ".fit", ColorRGB},
        {"Color", "TIFF16", ".tif", ColorRGB},
        {"NoWBCFA", "TIFF8", ".tif", ColorGray},
        {"Color", "JPEG", ".jpg", ColorRGB},
        {"WBCFA", "BMP", ".bmp", ColorGray},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.conversion) + " " + c.saveType);
        const std::string out = dir.file(std::string("out-") + c.conversion + c.saveType);
        test::RecordingProgress progress;
        test::RecordingNotify notify;
        const RawConvertResult r =
            ConvertRawFiles(Request({a, b}, out, c.conversion, c.saveType), &progress, &notify);
        ASSERT_EQ(r.run.end, FileOpEnd::Completed) << r.run.status;
        EXPECT_EQ(r.run.status, "Completed");
        EXPECT_EQ(progress.statuses.back(), "Completed");
        EXPECT_TRUE(notify.messages.empty());
        const std::vector<std::string> expected = {
            (fs::path(out) / ("CVT_a" + std::string(c.extension))).string(),
            (fs::path(out) / ("CVT_b" + std::string(c.extension))).string()};
        ASSERT_EQ(r.run.outputs, expected);
        ASSERT_EQ(r.files.size(), 2u);
        EXPECT_EQ(r.files[0].pattern, "GR,BG");
        EXPECT_EQ(r.files[1].pattern, "BG,GR");
        CFileOpList list;
        ASSERT_TRUE(FileOpLists().Find(kRawConvertOperation, &list));
        ASSERT_EQ(list.files.size(), 2u);
        EXPECT_EQ(list.files[1].path, expected[1]);
        for (const auto& e : fs::directory_iterator(out))
            EXPECT_TRUE(e.path() == expected[0] || e.path() == expected[1])
                << "no temporary file stays: " << e.path();

        Image written;
        ASSERT_TRUE(written.ReadFile(expected[0], c.extension)) << LastFileError();
        EXPECT_EQ(written.width, 32);
        EXPECT_EQ(written.height, 24);
        const bool eightBit = std::string(c.saveType) == "TIFF8" ||
                              std::string(c.saveType) == "JPEG" || std::string(c.saveType) == "BMP";
        if (!eightBit) {
            EXPECT_EQ(written.colorType, c.colorType);
        }
        if (std::string(c.extension) == ".fit") {
            // The pattern card travels with the output.
            bool found = false;
            for (const CFITSHeader& card : written.headerCards)
                found |= card.key == "CFAPAT" && card.value == "GR,BG";
            EXPECT_TRUE(found);
        }
        if (std::string(c.saveType) == "UNCOMPFIT32") {
            // Float FITS: the very pixels of a direct decode.
            RawRequest direct;
            direct.conversion = c.conversion;
            direct.inputPath = a;
            Image decoded;
            ASSERT_TRUE(DecodeRawImage(direct, decoded));
            for (std::uint32_t i = 0; i < decoded.pixelCount; ++i)
                ASSERT_EQ(written.curPlane[0][i], decoded.curPlane[0][i]) << i;
        }
    }
}

TEST(RawConvertFiles, BadFilesAreReportedAndTheRunGoesOn) {
    test::ScratchDir dir;
    const std::string good = MakeDng(dir, "good.dng", "RG,GB");
    const std::string text = dir.file("notes.txt");
    std::ofstream(text) << "not an image";
    const std::string garbage = dir.file("garbage.nef");
    std::ofstream(garbage) << std::string(4096, 'x');
    const std::string good2 = MakeDng(dir, "good2.arw", "GB,RG");
    std::vector<std::string> files = {good, text, garbage, dir.file("missing.cr2"), good2};
    const std::string stub = test::RealData("raw/exiftool_stubs/CanonRaw.cr2");
    if (!stub.empty())
        files.push_back(stub); // a real Canon header LibRaw cannot identify

    test::RecordingProgress progress;
    test::RecordingNotify notify;
    const RawConvertResult r =
        ConvertRawFiles(Request(files, dir.file("out"), "NoWBCFA", "COMPFIT"), &progress, &notify);
    EXPECT_EQ(r.run.end, FileOpEnd::CompletedWithFailures);
    EXPECT_EQ(r.run.status, "Completed");
    EXPECT_EQ(r.run.outputs, (std::vector<std::string>{dir.file("out/CVT_good.fit"),
                                                       dir.file("out/CVT_good2.fit")}));
    ASSERT_EQ(r.files.size(), 2u);
    EXPECT_EQ(r.files[1].pattern, "GB,RG");
    std::vector<std::string> texts;
    for (const FileOpFailure& f : r.run.failures)
        texts.push_back(f.text);
    std::vector<std::string> want = {
        "Image File Format Does Not Support Raw Conversion.\n\n notes.txt",
        "Could Not Open garbage.nef", "Could Not Open missing.cr2"};
    if (!stub.empty())
        want.push_back("Could Not Open CanonRaw.cr2");
    EXPECT_EQ(texts, want);
    EXPECT_FALSE(r.run.failures[1].detail.empty()) << "the decoder's reason is kept";
    // The format question is asked once and not shown again as a message.
    EXPECT_EQ(notify.questions, (std::vector<std::string>{want[0]}));
    EXPECT_EQ(std::vector<std::string>(notify.messages.begin(), notify.messages.begin() + 2),
              (std::vector<std::string>{want[1], want[2]}));
}

TEST(RawConvertFiles, CancelOfTheFormatQuestionEndsTheRun) {
    test::ScratchDir dir;
    const std::string first = MakeDng(dir, "first.dng", "RG,GB");
    const std::string text = dir.file("notes.jpg");
    std::ofstream(text) << "x";
    const std::string last = MakeDng(dir, "last.dng", "RG,GB");
    test::RecordingProgress progress;
    test::RecordingNotify notify;
    notify.answer = Answer::Cancel;
    const RawConvertResult r = ConvertRawFiles(
        Request({first, text, last}, dir.file("out"), "Color", "TIFF16"), &progress, &notify);
    EXPECT_EQ(r.run.end, FileOpEnd::Stopped);
    EXPECT_EQ(r.run.status, "Could not convert file.");
    EXPECT_EQ(progress.statuses.back(), "Could not convert file.");
    EXPECT_EQ(r.run.outputs, (std::vector<std::string>{dir.file("out/CVT_first.tif")}));
    ASSERT_EQ(r.run.failures.size(), 1u);
    EXPECT_EQ(r.run.failures[0].text,
              "Image File Format Does Not Support Raw Conversion.\n\n notes.jpg");
    EXPECT_FALSE(fs::exists(dir.file("out/CVT_last.tif")));
}

/// Raises cancel when the first output is in place.
class CancelAfterFirst : public test::RecordingProgress {
public:
    void SetProgress(long step, long total) override {
        RecordingProgress::SetProgress(step, total);
        if (step == PhaseDone)
            RequestCancel();
    }
};

TEST(RawConvertFiles, CancelKeepsFinishedOutputsOnly) {
    test::ScratchDir dir;
    const std::string a = MakeDng(dir, "a.dng", "RG,GB");
    const std::string b = MakeDng(dir, "b.dng", "RG,GB");
    CancelAfterFirst progress;
    const RawConvertResult r =
        ConvertRawFiles(Request({a, b}, dir.file("out"), "WBCFA", "UNCOMPFIT"), &progress, nullptr);
    EXPECT_EQ(r.run.end, FileOpEnd::Cancelled);
    EXPECT_EQ(r.run.status, kThreadCanceledText);
    EXPECT_EQ(progress.statuses.back(), kThreadCanceledText);
    EXPECT_EQ(r.run.outputs, (std::vector<std::string>{dir.file("out/CVT_a.fit")}));
    int count = 0;
    for (const auto& e : fs::directory_iterator(dir.file("out"))) {
        (void)e;
        ++count;
    }
    EXPECT_EQ(count, 1) << "nothing of the second file";
}

TEST(RawConvertFiles, NeverOverAnInput) {
    test::ScratchDir dir;
    // The old Canon form takes ".tif" as a raw extension: with no prefix and TIFF16 into the
    // input's own folder, the output would be the input itself.
    const std::string dng = MakeDng(dir, "x.dng", "RG,GB");
    const std::string input = dir.file("frame.tif");
    fs::copy_file(dng, input);
    const std::string before = ReadBytes(input);
    RawConvertRequest req = Request({input, dng}, dir.path().string(), "NoWBCFA", "TIFF16");
    req.prefix = "";
    test::RecordingNotify notify;
    const RawConvertResult r = ConvertRawFiles(req, nullptr, &notify);
    EXPECT_EQ(r.run.end, FileOpEnd::CompletedWithFailures);
    EXPECT_EQ(r.run.outputs, (std::vector<std::string>{dir.file("x.tif")}));
    ASSERT_EQ(r.run.failures.size(), 1u);
    EXPECT_EQ(r.run.failures[0].path, input);
    EXPECT_EQ(ReadBytes(input), before) << "the input is untouched";

    // A run that wrote nothing says so.
    req.files = {input};
    const RawConvertResult none = ConvertRawFiles(req, nullptr, nullptr);
    EXPECT_TRUE(none.run.outputs.empty());
    EXPECT_EQ(none.run.status, "Could not convert file.");
}

/// Holds the first run inside its first status until released.
class HoldingProgress : public IProgress {
public:
    std::promise<void> entered;
    std::shared_future<void> release;
    std::atomic<bool> held{false};
    void SetStatus(const std::string&) override {
        if (!held.exchange(true)) {
            entered.set_value();
            release.wait();
        }
    }
};

TEST(RawConvertFiles, OneRunAtATimeAndChecksBeforeTheFirstFile) {
    test::ScratchDir dir;
    const std::string a = MakeDng(dir, "a.dng", "RG,GB");
    std::promise<void> go;
    HoldingProgress holding;
    holding.release = go.get_future().share();
    std::future<void> entered = holding.entered.get_future();
    RawConvertResult first;
    std::thread worker([&] {
        first =
            ConvertRawFiles(Request({a}, dir.file("out"), "NoWBCFA", "COMPFIT"), &holding, nullptr);
    });
    entered.wait();
    test::RecordingNotify notify;
    const RawConvertResult second =
        ConvertRawFiles(Request({a}, dir.file("out2"), "NoWBCFA", "COMPFIT"), nullptr, &notify);
    go.set_value();
    worker.join();
    EXPECT_EQ(second.run.status, "Digital Camera Raw Conversion Is Already In Progress.");
    EXPECT_EQ(notify.messages,
              (std::vector<std::string>{"Digital Camera Raw Conversion Is Already In Progress."}));
    EXPECT_FALSE(fs::exists(dir.file("out2")));
    EXPECT_TRUE(first.run.Ok()) << first.run.status;

    RawConvertRequest bad = Request({a}, dir.file("out3"), "NoWBCFA", "COMPFIT");
    bad.prefix = "a/b";
    const RawConvertResult refused = ConvertRawFiles(bad, nullptr, nullptr);
    EXPECT_EQ(refused.run.end, FileOpEnd::Stopped);
    EXPECT_EQ(refused.run.status.rfind(kFilePrefixCharsText, 0), 0u) << refused.run.status;
    bad.prefix = "CVT_";
    bad.conversion = "Sepia";
    EXPECT_EQ(ConvertRawFiles(bad, nullptr, nullptr).run.status, "Could not convert file.");
    EXPECT_FALSE(fs::exists(dir.file("out3")));
}

} // namespace
} // namespace astrivelle
