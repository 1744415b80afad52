// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The file-operation frame: output names, prefixes, the usable-file check, output
/// lists, busy flags, and the per-file loop with failures, cancel and safe writing.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "TestSupport.h"
#include "engine/Image.h"
#include "engine/ImageHeader.h"
#include "fileio/FileDispatch.h"
#include "imagesets/FileOperation.h"

using namespace astrivelle;
using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

void WriteFits(const std::string& path, int w, int h, std::uint32_t colorType, float base) {
    Image img;
    MakeImage(img, w, h, colorType, [&](int s, int x, int y) { return base + s * 7 + x + y * w; });
    img.SetGeometryFits(KindFITS, colorType, 0, DataFloat, w, h);
    ASSERT_TRUE(img.WriteFile(path, KindFITS)) << LastFileError();
}

/// Records phases, counters and statuses; may raise cancel when a counter is reached.
class Owner : public IFileOpOwner {
public:
    std::vector<long> phases;
    std::vector<std::pair<long, long>> counters;
    std::vector<std::string> statuses;
    long cancelAtCounter = -1;
    void SetProgress(long step, long total) override {
        EXPECT_EQ(total, kFileOpPhases);
        phases.push_back(step);
    }
    void SetStatus(const std::string& text) override { statuses.push_back(text); }
    void SetCounter(long current, long total) override {
        counters.emplace_back(current, total);
        if (current == cancelAtCounter)
            RequestCancel();
    }
};

std::vector<std::string> FilesIn(const fs::path& dir) {
    std::vector<std::string> names;
    if (fs::is_directory(dir))
        for (const auto& e : fs::directory_iterator(dir))
            names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

FileOpHandlers AddHundred() {
    FileOpHandlers h;
    h.process = [](Image& img, const std::string&, std::size_t, IProgress*, std::string*) {
        for (int s : img.Slots())
            for (std::uint32_t i = 0; i < img.pixelCount; ++i)
                img.curPlane[s][i] += 100;
        return true;
    };
    return h;
}

} // namespace

TEST(FileOperation, OutputNamesFollowPrefixNameAndSaveType) {
    struct Case {
        const char* prefix;
        const char* input;
        const char* saveType;
        const char* expected;
    };
    for (const Case& c : {Case{"C_", "/in/m31.fits", "SAMEASINPUT", "/out/C_m31.fits"},
                          Case{"", "/in/m31.fts", "SAMEASINPUT", "/out/m31.fts"},
                          Case{"N_", "/in/a.b.tif", "COMPFIT", "/out/N_a.b.fit"},
                          Case{"FF_", "/in/x.fit", "TIFF16", "/out/FF_x.tif"},
                          Case{"R_", "/in/x.jpg", "UNCOMPFIT32", "/out/R_x.fit"}}) {
        SCOPED_TRACE(c.input);
        EXPECT_EQ(OutputFileName("/out", c.prefix, c.input, OutputExtension(c.saveType, c.input)),
                  c.expected);
    }
}

TEST(FileOperation, PrefixIsTrimmedAndRefusesPathCharacters) {
    std::string prefix, message;
    EXPECT_TRUE(CheckPrefix("  C_ \t", &prefix, &message));
    EXPECT_EQ(prefix, "C_");
    EXPECT_TRUE(CheckPrefix("", &prefix, &message));
    EXPECT_EQ(prefix, "");
    const std::string expected = std::string("A file prefix can't contain any of the following "
                                             "characters:\n") +
                                 std::string(30, ' ') + "\\/:*?\"<>|";
    for (const char* bad : {"a/b", "a\\b", "c:", "*", "?x", "\"", "<", ">", "a|b"}) {
        SCOPED_TRACE(bad);
        prefix = "unchanged";
        EXPECT_FALSE(CheckPrefix(bad, &prefix, &message));
        EXPECT_EQ(message, expected);
        EXPECT_EQ(prefix, "unchanged");
    }
    EXPECT_FALSE(CheckPrefix("a/b", &prefix, &message, false));
    EXPECT_EQ(message.substr(0, message.find('\n') + 1),
              "A prefix can't contain any of the following characters:\n");
}

TEST(FileOperation, CheckFilesAppliesSizeColourAndNameRules) {
    ScratchDir dir;
    WriteFits(dir.file("a.fit"), 20, 10, ColorGray, 1);
    WriteFits(dir.file("b.fits"), 20, 10, ColorGray, 2);
    WriteFits(dir.file("c.fit"), 30, 10, ColorGray, 3);
    WriteFits(dir.file("d.fit"), 20, 10, ColorRGB, 4);
    std::ofstream(dir.file("noext")) << "x";
    std::ofstream(dir.file("f.xyz")) << "x";
    std::ofstream(dir.file("broken.fit")) << "not a fits file";
    const std::vector<std::string> paths = {
        dir.file("a.fit"), dir.file("b.fits"), dir.file("c.fit"),     dir.file("d.fit"),
        dir.file("noext"), dir.file("f.xyz"),  dir.file("broken.fit")};
    CImageFileList usable;
    std::vector<std::string> rejected;
    std::vector<CheckedFile> details;

    EXPECT_FALSE(CheckFiles("CALIBRATE", kSetMonoOnly, paths, &usable, &rejected, &details));
    ASSERT_EQ(usable.size(), 2u);
    EXPECT_EQ(usable[0].path, dir.file("a.fit"));
    EXPECT_EQ(usable[1].path, dir.file("b.fits"));
    EXPECT_EQ(usable[1].listIndex, 1);
    EXPECT_EQ(usable[0].width, 20);
    EXPECT_EQ(usable[0].height, 10);
    EXPECT_EQ(usable[0].isColor, 0);
    EXPECT_EQ(rejected,
              (std::vector<std::string>{"c.fit", "d.fit", "noext", "f.xyz", "broken.fit"}));
    ASSERT_EQ(details.size(), paths.size());
    EXPECT_EQ(details[4].text, "Invalid filename:\nnoext");
    EXPECT_EQ(details[5].text, "Invalid filename:\nf.xyz");
    EXPECT_EQ(details[6].text, "Could not read: broken.fit");

    // Each file by itself: other sizes and colours pass under EITHER.
    EXPECT_FALSE(CheckFiles("FILTERFILES", kSetEither, paths, &usable, &rejected));
    EXPECT_EQ(usable.size(), 4u);
    EXPECT_EQ(usable[3].isColor, 1);
    // COLORonly keeps only the colour file; the first usable file then sets the size.
    CheckFiles("COMBINE", kSetColorOnly, paths, &usable, &rejected);
    ASSERT_EQ(usable.size(), 1u);
    EXPECT_EQ(usable[0].path, dir.file("d.fit"));
    // All usable gives true.
    EXPECT_TRUE(CheckFiles("RESIZE", kSetEither, {dir.file("a.fit"), dir.file("b.fits")}, &usable,
                           &rejected));
    EXPECT_FALSE(CheckFiles("RESIZE", kSetEither, {}, &usable, &rejected));
}

TEST(FileOperation, CheckFilesReadsTheSbigSizeFromItsHeader) {
    test::ScratchDir dir;
    auto sbig = [&](const std::string& name, int w, int h) {
        Image img;
        test::MakeImage(img, w, h, ColorGray, [](int, int x, int y) { return 100.0f * x + y; });
        img.fileType = KindSBIG;
        auto header = std::make_shared<ImageHeader>();
        header->imageType = "ST-7 Image";
        header->satLevel = 65535;
        img.header = header;
        const std::string path = dir.file(name);
        EXPECT_TRUE(img.WriteFile(path, KindSBIG));
        return path;
    };
    const std::string a = sbig("a.st7", 12, 9), b = sbig("b.st7", 12, 9), c = sbig("c.st7", 10, 9);
    const std::string bad = dir.file("bad.st7");
    std::ofstream(bad) << "not an SBIG header";
    CImageFileList usable;
    std::vector<std::string> rejected;
    std::vector<CheckedFile> details;
    EXPECT_FALSE(CheckFiles("COMBINE", kSetEither, {a, b, c, bad}, &usable, &rejected, &details));
    ASSERT_EQ(usable.size(), 2u);
    EXPECT_EQ(usable[0].width, 12);
    EXPECT_EQ(usable[0].height, 9);
    EXPECT_EQ(usable[0].isColor, 0);
    ASSERT_EQ(details.size(), 4u);
    EXPECT_EQ(details[2].text, "c.st7 is 10 x 9, the list is 12 x 9");
    EXPECT_EQ(details[3].text, "Can't Open: bad.st7");
}

TEST(FileOperation, RefusedFilesQuestionNamesTheOperation) {
    RecordingNotify notify;
    const std::vector<std::string> rejected = {"x.fit", "y.fit"};
    notify.answer = Answer::Yes;
    EXPECT_TRUE(ConfirmRejected(notify, "resize", rejected));
    ASSERT_EQ(notify.questions.size(), 1u);
    EXPECT_EQ(notify.questions[0],
              "Not all selected images could be used. Display\nthe list of files not included "
              "before continuing (Yes/No)\nor Cancel the resize operation?");
    ASSERT_EQ(notify.messages.size(), 1u);
    EXPECT_EQ(notify.messages[0], "x.fit\ny.fit\n");
    notify.answer = Answer::No;
    EXPECT_TRUE(ConfirmRejected(notify, "combine", rejected));
    EXPECT_EQ(notify.messages.size(), 1u);
    notify.answer = Answer::Cancel;
    EXPECT_FALSE(ConfirmRejected(notify, "combine", rejected));
    EXPECT_TRUE(ConfirmRejected(notify, "combine", {}));
}

TEST(FileOperation, OutputListsCaptionsAndBusyFlags) {
    EXPECT_EQ(OutputListCaption(OutputListKind::Calibrated, 3), "Calibrated Image Set - 3 images");
    EXPECT_EQ(OutputListCaption(OutputListKind::CalibratedColor, 1),
              "Calibrated Color Image Set - 1 images");
    EXPECT_EQ(OutputListCaption(OutputListKind::InitialLight, 0),
              "Initial Light Frame Image Set - 0 images");
    EXPECT_EQ(InputFilesLabel(4), "4 Input Files : ");
    EXPECT_EQ(OutputFilesLabel(0), "0 Output Files : ");
    EXPECT_EQ(OperationNames().front(), "Calibrate Files");
    EXPECT_EQ(OperationNames().size(), 19u);
    EXPECT_TRUE(IsOperationKeyword("CALIBRATE COMBINE"));
    EXPECT_FALSE(IsOperationKeyword("calibrate"));

    CFileMultiOpList lists;
    CFileOpList l;
    l.operation = "Calibrate Files";
    l.files.resize(2);
    lists.Set(l);
    l.files.resize(5);
    lists.Set(l); // replaces the earlier list of the same operation
    CFileOpList found;
    ASSERT_TRUE(lists.Find("Calibrate Files", &found));
    EXPECT_EQ(found.Caption(), "Calibrated Image Set - 5 images");
    EXPECT_EQ(lists.All().size(), 1u);
    EXPECT_FALSE(lists.Find("Grade Files", &found));

    EXPECT_STREQ(BusyText(FileOpKind::AlignTSR),
                 "Align Translate, Scale, Rotate Files Is Currently Busy.");
    EXPECT_STREQ(BusyText(FileOpKind::Calibrate), "Calibrate Files Is Currently Busy.");
    {
        FileOpBusy first(FileOpKind::Grade);
        EXPECT_TRUE(first.Acquired());
        EXPECT_TRUE(IsFileOpBusy(FileOpKind::Grade));
        FileOpBusy second(FileOpKind::Grade);
        EXPECT_FALSE(second.Acquired());
        EXPECT_FALSE(IsFileOpBusy(FileOpKind::Crop));
    }
    EXPECT_FALSE(IsFileOpBusy(FileOpKind::Grade));
}

TEST(FileOperation, BadFileIsReportedAndTheRunGoesOn) {
    ScratchDir dir;
    WriteFits(dir.file("a.fit"), 8, 6, ColorGray, 10);
    std::ofstream(dir.file("bad.fit")) << "garbage";
    WriteFits(dir.file("b.fit"), 8, 6, ColorGray, 20);
    FileOpJob job;
    job.inputs = {dir.file("a.fit"), dir.file("bad.fit"), dir.file("b.fit")};
    job.outDir = dir.file("out");
    job.prefix = "P_";
    job.doneText = "All done";
    Owner owner;
    RecordingNotify notify;
    const FileOpResult r = RunFileOperation(job, AddHundred(), &owner, &notify);
    EXPECT_EQ(r.end, FileOpEnd::CompletedWithFailures);
    EXPECT_EQ(r.outputs,
              (std::vector<std::string>{dir.file("out/P_a.fit"), dir.file("out/P_b.fit")}));
    ASSERT_EQ(r.failures.size(), 1u);
    EXPECT_EQ(r.failures[0].text, "Error reading bad.fit");
    ASSERT_EQ(notify.messages.size(), 1u);
    EXPECT_EQ(notify.messages[0].substr(0, 21), "Error reading bad.fit");
    EXPECT_EQ(r.status, "All done");
    // Phases 1..5 for each written file, 1 for the failed one; the counter runs 1..3 of 3.
    EXPECT_EQ(owner.phases, (std::vector<long>{1, 2, 3, 4, 5, 1, 1, 2, 3, 4, 5}));
    EXPECT_EQ(owner.counters, (std::vector<std::pair<long, long>>{{1, 3}, {2, 3}, {3, 3}}));
    Image back;
    ASSERT_TRUE(back.ReadFile(dir.file("out/P_b.fit"), ".fit"));
    EXPECT_FLOAT_EQ(back.curPlane[back.Slots().front()][0], 120.0f);
    EXPECT_EQ(FilesIn(dir.path() / "out"), (std::vector<std::string>{"P_a.fit", "P_b.fit"}));
}

TEST(FileOperation, OutputsNeverReplaceAnInput) {
    ScratchDir dir;
    WriteFits(dir.file("a.fit"), 8, 6, ColorGray, 10);
    const auto before = fs::file_size(dir.file("a.fit"));
    FileOpJob job;
    job.inputs = {dir.file("a.fit")};
    job.outDir = dir.path().string(); // same folder, empty prefix: the output is the input
    job.prefix = "";
    const FileOpResult r = RunFileOperation(job, AddHundred(), nullptr, nullptr);
    EXPECT_EQ(r.end, FileOpEnd::CompletedWithFailures);
    EXPECT_TRUE(r.outputs.empty());
    ASSERT_EQ(r.failures.size(), 1u);
    EXPECT_EQ(r.failures[0].text, "Error writing image to disk.");
    Image back;
    ASSERT_TRUE(back.ReadFile(dir.file("a.fit"), ".fit"));
    EXPECT_FLOAT_EQ(back.curPlane[back.Slots().front()][0], 10.0f);
    EXPECT_EQ(fs::file_size(dir.file("a.fit")), before);

    // Two inputs of the same name in different folders: the second does not replace the
    // first one's output.
    fs::create_directories(dir.path() / "other");
    WriteFits(dir.file("other/a.fit"), 8, 6, ColorGray, 50);
    job.inputs = {dir.file("a.fit"), dir.file("other/a.fit")};
    job.outDir = dir.file("out");
    job.prefix = "X_";
    const FileOpResult twice = RunFileOperation(job, AddHundred(), nullptr, nullptr);
    EXPECT_EQ(twice.outputs.size(), 1u);
    ASSERT_TRUE(back.ReadFile(dir.file("out/X_a.fit"), ".fit"));
    EXPECT_FLOAT_EQ(back.curPlane[back.Slots().front()][0], 110.0f);
}

TEST(FileOperation, CancelKeepsCompletedOutputs) {
    ScratchDir dir;
    std::vector<std::string> inputs;
    for (int i = 0; i < 4; ++i) {
        inputs.push_back(dir.file("f" + std::to_string(i) + ".fit"));
        WriteFits(inputs.back(), 8, 6, ColorGray, static_cast<float>(i));
    }
    FileOpJob job;
    job.inputs = inputs;
    job.outDir = dir.file("out");
    job.prefix = "C_";
    job.doneText = "never";
    Owner owner;
    owner.cancelAtCounter = 3; // raised while the third file is under way
    const FileOpResult r = RunFileOperation(job, AddHundred(), &owner, nullptr);
    EXPECT_EQ(r.end, FileOpEnd::Cancelled);
    EXPECT_EQ(r.status, "Thread Canceled");
    EXPECT_EQ(owner.statuses.back(), "Thread Canceled");
    EXPECT_EQ(r.outputs.size(), 2u);
    EXPECT_EQ(FilesIn(dir.path() / "out"), (std::vector<std::string>{"C_f0.fit", "C_f1.fit"}));
    Image back;
    ASSERT_TRUE(back.ReadFile(dir.file("out/C_f1.fit"), ".fit"));
    EXPECT_FLOAT_EQ(back.curPlane[back.Slots().front()][0], 101.0f);
}

TEST(FileOperation, WriteFailureGivesTheWriteTextAndLeavesNoPartialFile) {
    ScratchDir dir;
    WriteFits(dir.file("a.fit"), 8, 6, ColorGray, 10);
    WriteFits(dir.file("b.fit"), 8, 6, ColorGray, 20);
    // The name of a's output is taken by a folder with content: the rename must fail.
    fs::create_directories(dir.path() / "out" / "C_a.fit" / "inside");
    FileOpJob job;
    job.inputs = {dir.file("a.fit"), dir.file("b.fit")};
    job.outDir = dir.file("out");
    job.prefix = "C_";
    RecordingNotify notify;
    FileOpResult r = RunFileOperation(job, AddHundred(), nullptr, &notify);
    ASSERT_EQ(r.failures.size(), 1u);
    EXPECT_EQ(r.failures[0].text, "Error writing image to disk.");
    EXPECT_EQ(r.outputs, std::vector<std::string>{dir.file("out/C_b.fit")});
    EXPECT_EQ(FilesIn(dir.path() / "out"), (std::vector<std::string>{"C_a.fit", "C_b.fit"}));
    EXPECT_TRUE(fs::is_directory(dir.path() / "out" / "C_a.fit"));

    // An output folder that is a file: every write fails, an operation's own text is used.
    std::ofstream(dir.file("plain")) << "x";
    job.outDir = dir.file("plain");
    job.writeFailureText = "Error writing ";
    r = RunFileOperation(job, AddHundred(), nullptr, nullptr);
    EXPECT_TRUE(r.outputs.empty());
    ASSERT_EQ(r.failures.size(), 2u);
    EXPECT_EQ(r.failures[1].text, "Error writing C_b.fit");
    EXPECT_FALSE(r.failures[1].detail.empty());

    // A stop-on-write operation ends at the first failure with its text as the status.
    job.stopOnWriteFailure = true;
    r = RunFileOperation(job, AddHundred(), nullptr, nullptr);
    EXPECT_EQ(r.end, FileOpEnd::Stopped);
    EXPECT_EQ(r.failures.size(), 1u);
    EXPECT_EQ(r.status, "Error writing C_a.fit");
}

TEST(FileOperation, ProcessFailureUsesTheOperationsText) {
    ScratchDir dir;
    WriteFits(dir.file("a.fit"), 8, 6, ColorGray, 10);
    FileOpJob job;
    job.inputs = {dir.file("a.fit")};
    job.outDir = dir.file("out");
    job.processFailureText = "Error filtering ";
    FileOpHandlers h;
    h.process = [](Image&, const std::string&, std::size_t, IProgress*, std::string* why) {
        *why = "because";
        return false;
    };
    FileOpResult r = RunFileOperation(job, h, nullptr, nullptr);
    ASSERT_EQ(r.failures.size(), 1u);
    EXPECT_EQ(r.failures[0].text, "Error filtering a.fit");
    EXPECT_EQ(r.failures[0].detail, "because");
    job.processFailureText.clear();
    r = RunFileOperation(job, h, nullptr, nullptr);
    EXPECT_EQ(r.failures[0].text, "because");
    EXPECT_FALSE(fs::exists(dir.file("out/a.fit")));
}

TEST(FileOperation, WorkerRunsTheBodyOnItsOwnThread) {
    FileOpWorker worker;
    std::atomic<bool> ran{false};
    std::thread::id id;
    ASSERT_TRUE(worker.Start(
        [&] {
            id = std::this_thread::get_id();
            ran = true;
        },
        "NORMAL", nullptr));
    worker.Join();
    EXPECT_TRUE(ran);
    EXPECT_NE(id, std::this_thread::get_id());
    EXPECT_FALSE(worker.Running());
}
