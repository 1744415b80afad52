// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Step files: names, the writable-folder test and its fallback, writes that never leave
/// a half-written file under a final name, failures that let the operator run, and deletion.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "TestSupport.h"
#include "engine/ProcessWindow.h"
#include "engine/workbench/History.h"
#include "engine/workbench/StepFile.h"

using namespace astrivelle;
using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

/// Sets an environment variable for the length of a test.
class EnvGuard {
public:
    EnvGuard(const char* name, const std::string& value) : name_(name) {
        if (const char* old = std::getenv(name)) {
            had_ = true;
            old_ = old;
        }
        setenv(name, value.c_str(), 1);
    }
    ~EnvGuard() {
        if (had_)
            setenv(name_, old_.c_str(), 1);
        else
            unsetenv(name_);
    }

private:
    const char* name_;
    std::string old_;
    bool had_ = false;
};

void Touch(const std::string& path, const std::string& text = "x") {
    std::ofstream(path) << text;
}

/// A window on `path` (written there when `writeOrigin`) with the workbench's history.
void Open(CProcessWindow& w, const std::string& path, int kind = KindFITS, int width = 6,
          int height = 5, bool writeOrigin = true) {
    MakeImage(w.image, width, height, ColorGray, [](int, int x, int y) { return 100 * x + y; });
    w.image.fileType = kind;
    w.filePath = path;
    w.title = fs::path(path).filename().string();
    if (writeOrigin) {
        EXPECT_TRUE(w.image.WriteFile(path, kind));
    }
    AttachHistory(w);
    w.BeginHistory("Read");
}

bool AddStep(CProcessWindow& w, const std::string& name, float delta) {
    return w.RunOperator(name, "Delta#", [&](bool) {
        for (std::uint32_t i = 0; i < w.image.pixelCount; ++i)
            w.image.curPlane[0][i] = w.image.prevPlane[0][i] + delta;
        return true;
    });
}

std::vector<std::string> Names(const fs::path& dir) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(dir))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

TEST(StepFile, NamesAndStems) {
    struct Case {
        const char* fileName;
        const char* stem;
    } cases[] = {
        {"M31.fit", "M31"},   {"M31$1.fit", "M31"},           {"M31$12.fit", "M31"},
        {"M31$.fit", "M31$"}, {"M31$1a.fit", "M31$1a"},       {"$3.fit", "$3"},
        {"a.b.tif", "a.b"},   {"NoExtension", "NoExtension"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(StepStemOf(c.fileName), c.stem) << c.fileName;
    EXPECT_EQ(StepFilePath("/d", "M31", kStepImageTag, 3, ".fit"), "/d/M31$3.fit");
    EXPECT_EQ(StepFilePath("/d", "M31", kStepFilterTag, 2, ".fit"), "/d/M31Filter$2.fit");

    ScratchDir dir;
    const std::string folder = dir.path().string();
    EXPECT_EQ(FreeStepFilePath(folder, "M31", kStepImageTag, ".tif"), dir.file("M31$1.tif"));
    Touch(dir.file("M31$1.tif"));
    Touch(dir.file("M31$2.tif"));
    Touch(dir.file("M31$4.tif"));
    EXPECT_EQ(FreeStepFilePath(folder, "M31", kStepImageTag, ".tif"), dir.file("M31$3.tif"));
    EXPECT_EQ(FreeStepFilePath(folder, "M31", kStepFilterTag, ".fit"), dir.file("M31Filter$1.fit"));
}

TEST(StepFile, WritableFolderTest) {
    ScratchDir dir;
    std::string error;
    EXPECT_TRUE(StepFolderWritable(dir.path().string(), &error));
    EXPECT_FALSE(fs::exists(dir.file("AstrivelleTESTPATH1#2#3.txt"))); // created and deleted
    Touch(dir.file("plain"));
    EXPECT_FALSE(StepFolderWritable(dir.file("plain"), &error));
    EXPECT_EQ(error, "Not a directory");
    error.clear();
    EXPECT_FALSE(StepFolderWritable("/proc", &error));
    EXPECT_FALSE(error.empty());
}

TEST(StepFile, StepsAreWrittenInTheImagesOwnFormat) {
    struct Case {
        const char* name;
        int kind;
    } cases[] = {{"M31.fit", KindFITS}, {"M31.tif", KindTIFF}, {"M31.fts", KindFITS}};
    for (const Case& c : cases) {
        ScratchDir dir;
        CProcessWindow w;
        Open(w, dir.file(c.name), c.kind);
        ASSERT_TRUE(AddStep(w, "Levels", 7));
        ASSERT_TRUE(AddStep(w, "Negative", 1));
        const std::string step = w.history[1].curImageFile;
        EXPECT_EQ(fs::path(step).filename(),
                  StepStemOf(c.name) + "$1" + fs::path(c.name).extension().string());
        Image back;
        ASSERT_TRUE(back.ReadFile(step, fs::path(step).extension().string())) << c.name;
        EXPECT_EQ(back.fileType, c.kind);
        EXPECT_FLOAT_EQ(back.curPlane[0][2 * 6 + 3], 300 + 2 + 7);
    }
}

TEST(StepFile, TheNumberingStaysOnTheImagesStem) {
    ScratchDir dir;
    CProcessWindow w;
    Open(w, dir.file("M31.fit"));
    ASSERT_TRUE(AddStep(w, "Levels", 1));
    ASSERT_TRUE(AddStep(w, "Negative", 2));
    ASSERT_TRUE(w.Undo()); // the window now shows M31$1.fit
    EXPECT_EQ(w.filePath, dir.file("M31$1.fit"));
    ASSERT_TRUE(AddStep(w, "Threshold", 3));
    ASSERT_TRUE(AddStep(w, "High Pass", 4));
    for (const std::string& name : Names(dir.path()))
        EXPECT_EQ(name.find("$1$"), std::string::npos) << name;
    EXPECT_EQ(Names(dir.path()), (std::vector<std::string>{"M31$1.fit", "M31$2.fit", "M31$3.fit",
                                                           "M31$4.fit", "M31.fit"}));
}

TEST(StepFile, AnExistingFileIsNeverReplaced) {
    ScratchDir dir;
    CProcessWindow w;
    Open(w, dir.file("M31.fit"));
    Touch(dir.file("M31$1.fit"), "not ours");
    ASSERT_TRUE(AddStep(w, "Levels", 1));
    ASSERT_TRUE(AddStep(w, "Negative", 1));
    EXPECT_EQ(w.history[1].curImageFile, dir.file("M31$2.fit"));
    std::ifstream in(dir.file("M31$1.fit"));
    std::string text;
    std::getline(in, text);
    EXPECT_EQ(text, "not ours");
}

TEST(StepFile, TheFinalNameAppearsOnlyComplete) {
    ScratchDir dir;
    Image image;
    MakeImage(image, 1500, 1000, ColorRGB, [](int s, int x, int y) { return s + x + y; });
    image.dataType = DataFloat;
    const std::string target = dir.file("Big$1.fit");
    std::atomic<bool> done{false};
    std::atomic<long> seen{0};
    std::vector<long long> sizes;
    std::thread watcher([&] {
        while (!done.load()) {
            struct stat st;
            if (::stat(target.c_str(), &st) == 0) {
                sizes.push_back(static_cast<long long>(st.st_size));
                ++seen;
            }
        }
    });
    std::string path, failText;
    const bool ok = WriteStepFile(image, StepFileKind::State, dir.path().string(), "Big", ".fit",
                                  &path, &failText);
    done = true;
    watcher.join();
    ASSERT_TRUE(ok) << failText;
    EXPECT_EQ(path, target);
    const long long full = static_cast<long long>(fs::file_size(target));
    for (long long size : sizes)
        EXPECT_EQ(size, full); // never seen growing under its final name
    EXPECT_EQ(Names(dir.path()), std::vector<std::string>{"Big$1.fit"}); // no temporary left

    // A write that fails leaves neither the final name nor a temporary behind.
    image.fileType = KindNone;
    EXPECT_FALSE(WriteStepFile(image, StepFileKind::State, dir.path().string(), "Big", ".fit",
                               &path, &failText));
    EXPECT_EQ(failText, "File Type Is Not Defined, \nPossible Corrupt Object Or File.");
    EXPECT_EQ(Names(dir.path()), std::vector<std::string>{"Big$1.fit"});
}

TEST(StepFile, AnUnwritableFolderFallsBackToTheProjectDirectory) {
    ScratchDir dir;
    Touch(dir.file("plain"));
    EnvGuard home("HOME", dir.file("home"));
    CProcessWindow w;
    Open(w, dir.file("plain") + "/M31.fit", KindFITS, 6, 5, /*writeOrigin=*/false);
    ASSERT_TRUE(AddStep(w, "Levels", 1));
    ASSERT_TRUE(AddStep(w, "Negative", 1));
    EXPECT_EQ(w.history[1].curImageFile, dir.file("home") + "/Astrivelle/M31$1.fit");
    EXPECT_TRUE(fs::exists(w.history[1].curImageFile));
}

TEST(StepFile, AFailedStepWriteLetsTheOperatorRunAndTellsTheUser) {
    ScratchDir dir;
    Touch(dir.file("plain"));
    // Neither the image's folder nor the default project directory can be made.
    EnvGuard home("HOME", dir.file("plain") + "/home");
    EnvGuard tmp("TMPDIR", dir.file("plain") + "/tmp");
    RecordingNotify notify;
    CProcessWindow w(&notify);
    const std::string folder = dir.file("plain") + "/sub";
    Open(w, folder + "/M31.fit", KindFITS, 6, 5, /*writeOrigin=*/false);
    ASSERT_TRUE(AddStep(w, "Levels", 1));
    ASSERT_TRUE(AddStep(w, "Negative", 10));
    EXPECT_FLOAT_EQ(w.image.curPlane[0][7], 100 + 1 + 1 + 10); // the operator ran
    EXPECT_EQ(notify.messages, std::vector<std::string>{"Please Check The Output Directory\n" +
                                                        folder + " - Not a directory"});
    EXPECT_TRUE(w.history[1].curImageFile.empty());
    EXPECT_EQ(w.history.size(), 3u);
    EXPECT_TRUE(w.tempFiles.empty());
    // Undo would lose the unsaved state: it stays where it is.
    EXPECT_FALSE(w.Undo());
    EXPECT_EQ(w.currentStep, 2);
}

TEST(StepFile, StepFilesGoWhenTheHistoryIsDropped) {
    ScratchDir dir;
    CProcessWindow w;
    std::vector<std::string> all = {"/other/file.fit"};
    w.mainTempFiles = &all;
    Open(w, dir.file("M31.fit"));
    ASSERT_TRUE(AddStep(w, "Levels", 1));
    ASSERT_TRUE(AddStep(w, "Negative", 1));
    ASSERT_TRUE(AddStep(w, "Threshold", 1));
    ASSERT_TRUE(w.Undo());
    const std::vector<std::string> steps = {dir.file("M31$1.fit"), dir.file("M31$2.fit"),
                                            dir.file("M31$3.fit")};
    EXPECT_EQ(w.tempFiles, steps);
    EXPECT_EQ(all.size(), 4u);
    for (const std::string& p : steps)
        EXPECT_TRUE(fs::exists(p)) << p;
    w.keptFiles = {steps[1]}; // a saved project names this one
    w.DropHistory();
    EXPECT_FALSE(fs::exists(steps[0]));
    EXPECT_TRUE(fs::exists(steps[1]));
    EXPECT_FALSE(fs::exists(steps[2]));
    EXPECT_TRUE(fs::exists(dir.file("M31.fit"))); // the origin is the user's file
    EXPECT_TRUE(w.tempFiles.empty());
    EXPECT_TRUE(w.history.empty());
    EXPECT_EQ(all, (std::vector<std::string>{"/other/file.fit", steps[1]}));

    CProcessWindow kept;
    Open(kept, dir.file("M33.fit"));
    ASSERT_TRUE(AddStep(kept, "Levels", 1));
    ASSERT_TRUE(AddStep(kept, "Negative", 1));
    kept.keepFiles = true;
    kept.DropHistory();
    EXPECT_TRUE(fs::exists(dir.file("M33$1.fit")));
}
