// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The automatic image set process: the queue, the checks and their texts, runs with and
/// without light frames, a step that leaves nothing, cancel, and the parameter record.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "TestSupport.h"
#include "engine/Image.h"
#include "engine/SetupParams.h"
#include "imagesets/FileSetProcess.h"

using namespace astrivelle;
namespace fs = std::filesystem;

namespace {

/// A frame of `level` with noise, one bright star at (20, 15), written as FITS.
std::string WriteFrame(const test::ScratchDir& dir, const std::string& name, int w, int h,
                       float level, unsigned seed, bool color = false) {
    std::mt19937 rng(seed);
    std::normal_distribution<float> noise(0.0f, 20.0f);
    Image img;
    test::MakeImage(img, w, h, color ? ColorRGB : ColorGray, [&](int, int x, int y) {
        const float dx = x - 20.0f, dy = y - 15.0f;
        return level + noise(rng) + 8000.0f * std::exp(-(dx * dx + dy * dy) / 4.0f);
    });
    const std::string path = dir.file(name);
    EXPECT_TRUE(img.WriteFile(path, KindFITS));
    return path;
}

std::vector<std::string> Frames(const test::ScratchDir& dir, const std::string& stem, int n,
                                float level, int w = 64, int h = 48) {
    std::vector<std::string> out;
    for (int i = 0; i < n; ++i)
        out.push_back(WriteFrame(dir, stem + std::to_string(i) + ".fit", w, h, level, 100 + i));
    return out;
}

std::vector<std::string> Names(const std::vector<CFileSetOpElement>& q) {
    std::vector<std::string> n;
    for (const auto& e : q)
        n.push_back(e.name);
    return n;
}

/// Records statuses; requests cancel when a status starts with `cancelAt`.
class Recorder : public IProgress {
public:
    std::string cancelAt;
    std::vector<std::string> statuses;
    void SetStatus(const std::string& text) override {
        statuses.push_back(text);
        if (!cancelAt.empty() && text.rfind(cancelAt, 0) == 0)
            RequestCancel();
    }
};

class Messages : public INotify {
public:
    std::vector<std::string> said;
    void Message(const std::string& text, const std::string&) override { said.push_back(text); }
};

} // namespace

TEST(FileSetProcess, QueueFollowsTheFramesAndSwitches) {
    auto files = [](std::initializer_list<const char*> n) {
        return std::vector<std::string>(n.begin(), n.end());
    };
    struct Case {
        const char* what;
        std::function<void(CAutoProcessParams&)> set;
        std::vector<std::string> queue;
    };
    const std::vector<Case> cases = {
        {"no lights: masters only",
         [&](CAutoProcessParams& p) {
             p.darks.files = files({"d1.fit", "d2.fit"});
             p.flats.files = files({"f1.fit", "f2.fit"});
             p.flatDarks.files = files({"fd1.fit", "fd2.fit"});
             p.bias.files = files({"b1.fit", "b2.fit"});
             p.normalizeFlats = true;
         },
         {"Combine Dark Frames", "Set Dark Frame", "Normalize Flat Frames", "Combine Flat Frames",
          "Set Flat Frame", "Combine Flat Dark Frames", "Set Flat Dark Frame",
          "Combine Bias Frames", "Set Bias Frame"}},
        {"one dark is the master",
         [&](CAutoProcessParams& p) {
             p.darks.files = files({"d1.fit"});
             p.lights.files = files({"l1.fit", "l2.fit"});
         },
         {"Set Dark Frame", "Calibrate Light Frames", "Combine Light Frames"}},
        {"lights with only the combine",
         [&](CAutoProcessParams& p) {
             p.lights.files = files({"l1.fit", "l2.fit"});
         },
         {"Combine Light Frames"}},
        {"every light step, Bayer colour",
         [&](CAutoProcessParams& p) {
             p.processType = "OSCCCD";
             p.colorType = "WBCFA";
             p.lights.files = files({"l1.fit", "l2.fit"});
             p.bias.files = files({"b1.fit"});
             p.filters = true;
             p.normalize = "AVG";
             p.grade = "AUTOECC";
             p.align = "QUICK";
         },
         {"Set Bias Frame", "Calibrate Light Frames", "Bayer Convert Light Frames",
          "Filter Light Frames", "Normalize Light Frames", "Grade Light Frames",
          "Align Light Frames", "Combine Light Frames"}},
        {"mono from Bayer resizes",
         [&](CAutoProcessParams& p) {
             p.processType = "OSCCCD";
             p.colorType = "MONO";
             p.lights.files = files({"l1.fit", "l2.fit"});
             p.combine = false;
         },
         {"Resize Mono Bayer Light Frames"}},
        {"CCD never colour converts",
         [&](CAutoProcessParams& p) {
             p.processType = "CCD";
             p.colorType = "CFA";
             p.lights.files = files({"l1.fit"});
             p.combine = false;
         },
         {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        CAutoProcessParams p;
        c.set(p);
        EXPECT_TRUE(BuildConversionList(p).empty());
        EXPECT_EQ(Names(BuildCommandList(p)), c.queue);
    }
}

TEST(FileSetProcess, RawFilesQueueConversionsFirst) {
    CAutoProcessParams p;
    p.processType = "DSLR";
    p.darks.files = {"/n/d1.CR2"};
    p.flats.files = {"/n/f1.fit", "/n/f2.fit"};
    p.lights.files = {"/n/l1.nef", "/n/l2.NEF"};
    EXPECT_EQ(Names(BuildConversionList(p)),
              (std::vector<std::string>{"Convert Digital Dark Frames",
                                        "Convert Digital Light Frames", "Check Converted Files"}));
    // After conversion one raw dark is still combined; one ready FITS is not.
    EXPECT_EQ(Names(BuildCommandList(p, true)).front(), "Combine Dark Frames");
    EXPECT_EQ(Names(BuildCommandList(p, false)).front(), "Set Dark Frame");
    p.processType = "CCD";
    EXPECT_TRUE(BuildConversionList(p).empty());
    EXPECT_TRUE(IsDigitalRawFile("a.Cr2"));
    EXPECT_FALSE(IsDigitalRawFile("a.tif"));
    EXPECT_FALSE(IsDigitalRawFile("a.fit"));
}

TEST(FileSetProcess, ChecksRefuseWithTheirTexts) {
    test::ScratchDir dir;
    const auto lights = Frames(dir, "light", 2, 3000);
    const auto darks = Frames(dir, "dark", 2, 500);
    const std::string bigDark = WriteFrame(dir, "bigdark.fit", 80, 48, 500, 7);
    const std::string colorLight = WriteFrame(dir, "colour.fit", 64, 48, 3000, 8, true);
    const std::string junk = dir.file("junk.fit");
    std::ofstream(junk) << "not an image";
    struct Case {
        const char* what;
        std::function<void(CAutoProcessParams&)> set;
        bool dialogOpen;
        std::string text;
    };
    const std::vector<Case> cases = {
        {"setup window open", [](CAutoProcessParams&) {}, true, kFileSetSetupOpenText},
        {"dark in the lights", [&](CAutoProcessParams& p) { p.darks.files = {lights[1]}; }, false,
         "Some selected dark frames are contained in the light frame list."},
        {"bias in the flats",
         [&](CAutoProcessParams& p) {
             p.flats.files = {darks[0]};
             p.bias.files = {darks[0]};
         },
         false, "Some selected bias frames are contained in the flat frame list."},
        {"raw under CCD", [&](CAutoProcessParams& p) { p.flatDarks.files = {dir.file("x.NEF")}; },
         false,
         "Digital raw flat dark files are not compatible with the selected Image Set Process Type "
         "of CCD."},
        {"combination name", [&](CAutoProcessParams& p) { p.darks.name = "a*b"; }, false,
         std::string("A dark frame combination name can't contain any of the following "
                     "characters:\n") +
             std::string(30, ' ') + "\\/:*?\"<>|"},
        {"unreadable light", [&](CAutoProcessParams& p) { p.lights.files.push_back(junk); }, false,
         "All light frames and other selected frames must be the same size and their\ncolor "
         "type must match the selected Image Set Process Type."},
        {"darks of two sizes",
         [&](CAutoProcessParams& p) {
             p.darks.files = {darks[0], bigDark};
         },
         false, "Dark frames must all have the same width and height."},
        {"dark of another size", [&](CAutoProcessParams& p) { p.darks.files = {bigDark}; }, false,
         "Selected dark frames are not the same size as other selected frames."},
        {"mixed colour lights",
         [&](CAutoProcessParams& p) { p.lights.files.push_back(colorLight); }, false,
         "All light frames must be the same color type\nas the selected Image Set Process Type."},
        {"mono lights under colour DSLR",
         [&](CAutoProcessParams& p) {
             p.processType = "DSLR";
             p.colorType = "COLOR";
         },
         false,
         "Selected bias frames must all have the same color\ntype as the selected Image Set "
         "Process Type."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        CAutoProcessParams p;
        p.lights.files = lights;
        p.outputDirectory = dir.file("out");
        c.set(p);
        std::string text;
        EXPECT_FALSE(CheckFileSetProcess(p, c.dialogOpen, nullptr, &text));
        EXPECT_EQ(text, c.text);
        const FileSetRunResult r = RunFileSetProcess(p, nullptr, nullptr, nullptr, c.dialogOpen);
        EXPECT_FALSE(r.started);
        EXPECT_EQ(r.text, c.text);
    }
    CAutoProcessParams good;
    good.lights.files = lights;
    good.darks.files = darks;
    good.outputDirectory = dir.file("out");
    std::string text;
    EXPECT_TRUE(CheckFileSetProcess(good, false, nullptr, &text)) << text;
}

TEST(FileSetProcess, NoLightsBuildsAndSetsTheMasters) {
    test::ScratchDir dir;
    CAutoProcessParams p;
    p.darks.files = Frames(dir, "dark", 3, 500);
    p.flats.files = Frames(dir, "flat", 3, 20000);
    p.bias.files = Frames(dir, "bias", 2, 300);
    p.outputDirectory = dir.file("out");
    CalibrationSetup setup;
    setup.darkPath = "/old/dark.fit";
    setup.useDark = true;
    setup.flatDarkPath = "/old/flatdark.fit";
    setup.useFlatDark = true;
    const FileSetRunResult r = RunFileSetProcess(p, nullptr, nullptr, &setup);
    ASSERT_TRUE(r.ok) << r.text;
    EXPECT_EQ(Names(r.steps), (std::vector<std::string>{"Combine Dark Frames", "Set Dark Frame",
                                                        "Combine Flat Frames", "Set Flat Frame",
                                                        "Combine Bias Frames", "Set Bias Frame"}));
    for (const auto& s : r.steps)
        EXPECT_EQ(s.state, "Completed") << s.name;
    const std::string out = fs::path(p.outputDirectory).string();
    EXPECT_EQ(setup.darkPath, out + "/MasterDark.fit");
    EXPECT_EQ(setup.flatPath, out + "/MasterFlat.fit");
    EXPECT_EQ(setup.biasPath, out + "/MasterBias.fit");
    EXPECT_TRUE(setup.useDark && setup.useFlat && setup.useBias);
    EXPECT_FALSE(setup.useFlatDark) << "a frame of an earlier setup is not kept";
    EXPECT_EQ(setup.colorModel, "MONO");
    EXPECT_EQ(setup.frameWidth, 64);
    // The master dark is the median of three frames: near 500 away from the star.
    Image master;
    ASSERT_TRUE(master.ReadFile(setup.darkPath, ".fit"));
    EXPECT_NEAR(master.curPlane[0][40 * 64 + 50], 500.0f, 60.0f);
    EXPECT_EQ(r.summary,
              "Command Summary Statistics : 6 Commands Processed : \nCombine Dark Frames - "
              "Completed\nSet Dark Frame - Completed\nCombine Flat Frames - Completed\nSet Flat "
              "Frame - Completed\nCombine Bias Frames - Completed\nSet Bias Frame - Completed");
    CFileOpList list;
    EXPECT_TRUE(FileOpLists().Find("Processed Dark Frames", &list));
}

TEST(FileSetProcess, OneDarkIsTheMasterAndLightsAreCalibratedAndStacked) {
    test::ScratchDir dir;
    CAutoProcessParams p;
    p.darks.files = {WriteFrame(dir, "onedark.fit", 64, 48, 400, 1)};
    p.lights.files = Frames(dir, "light", 4, 3400);
    p.outputDirectory = dir.file("out");
    p.minimizeDisk = true;
    Recorder progress;
    CalibrationSetup setup;
    const FileSetRunResult r = RunFileSetProcess(p, &progress, nullptr, &setup);
    ASSERT_TRUE(r.ok) << r.text;
    EXPECT_EQ(Names(r.steps), (std::vector<std::string>{"Set Dark Frame", "Calibrate Light Frames",
                                                        "Combine Light Frames"}));
    EXPECT_EQ(setup.darkPath, p.darks.files[0]) << "one dark file is the master itself";
    EXPECT_NE(
        std::find(progress.statuses.begin(), progress.statuses.end(), "Set Dark Frame - Completed"),
        progress.statuses.end());
    EXPECT_EQ(r.summary.substr(r.summary.find("\n4 Initial")),
              "\n4 Initial Input Light Frames : \n4 Calibrated Light Frames : \n1 Combination "
              "Frames : ");
    Image stack;
    ASSERT_TRUE(stack.ReadFile(r.combined, ".fit"));
    EXPECT_NEAR(stack.curPlane[0][40 * 64 + 50], 3000.0f, 40.0f) << "3400 less the dark";
    // Minimize Hard Drive Use: the calibrated frames went once the stack was written.
    for (const auto& f : p.lights.files) {
        EXPECT_TRUE(fs::exists(f)) << "inputs are never deleted";
        EXPECT_FALSE(fs::exists(dir.file("out/C_" + fs::path(f).filename().string())));
    }
}

TEST(FileSetProcess, CombineOnlyTakesTheLightListDirectly) {
    test::ScratchDir dir;
    CAutoProcessParams p;
    p.lights.files = Frames(dir, "light", 3, 2000);
    p.lights.method = "MAX";
    p.lights.name = "Stack";
    p.outputDirectory = dir.file("out");
    const FileSetRunResult r = RunFileSetProcess(p, nullptr, nullptr);
    ASSERT_TRUE(r.ok) << r.text;
    EXPECT_EQ(Names(r.steps), std::vector<std::string>{"Combine Light Frames"});
    EXPECT_EQ(r.combined, fs::path(dir.file("out/Stack.fit")).string());
    EXPECT_EQ(r.summary, "Command Summary Statistics : 1 Commands Processed : \nCombine Light "
                         "Frames - Completed\n3 Initial Input Light Frames : \n1 Combination "
                         "Frames : ");
}

TEST(FileSetProcess, AStepThatLeavesNothingStopsTheRun) {
    test::ScratchDir dir;
    CAutoProcessParams p;
    p.lights.files = Frames(dir, "light", 3, 2000);
    p.grade = "MAXECC";
    p.gradeMaxEccentricity = 0.0; // no star is that round
    p.outputDirectory = dir.file("out");
    Messages said;
    const FileSetRunResult r = RunFileSetProcess(p, nullptr, &said);
    EXPECT_FALSE(r.ok);
    ASSERT_EQ(r.steps.size(), 2u);
    EXPECT_EQ(r.steps[0].name, "Grade Light Frames");
    EXPECT_EQ(r.steps[0].state, "Error");
    EXPECT_EQ(r.steps[1].state, "") << "the combine never started";
    EXPECT_EQ(r.text, "Light frame input list empty. Light frame processing cancelled.");
    EXPECT_EQ(r.status, "* Light Frame Processing Cancelled *");
    EXPECT_FALSE(fs::exists(dir.file("out/Combined.fit")));
    EXPECT_EQ(r.summary,
              "Command Summary Statistics : 1 Commands Processed : \nGrade Light "
              "Frames - Error\n3 Initial Input Light Frames : \n0 Graded Light Frames : ");
}

TEST(FileSetProcess, CancelEndsTheRunAndNoCommandsIsSaid) {
    test::ScratchDir dir;
    CAutoProcessParams p;
    p.darks.files = Frames(dir, "dark", 2, 400);
    p.lights.files = Frames(dir, "light", 3, 2000);
    p.outputDirectory = dir.file("out");
    Recorder progress;
    progress.cancelAt = "Calibrate Light Frames";
    const FileSetRunResult r = RunFileSetProcess(p, &progress, nullptr);
    EXPECT_TRUE(r.cancelled);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.status, "Processing Canceled");
    ASSERT_EQ(r.steps.size(), 4u);
    EXPECT_EQ(r.steps[1].state, "Completed");
    EXPECT_EQ(r.steps[2].state, "Error");
    EXPECT_EQ(r.steps[3].state, "");
    EXPECT_TRUE(fs::exists(dir.file("out/MasterDark.fit"))) << "earlier results stay";
    EXPECT_FALSE(fs::exists(dir.file("out/Combined.fit")));

    CAutoProcessParams none;
    none.outputDirectory = dir.file("out");
    none.lights.files = {p.lights.files[0]};
    none.combine = false;
    const FileSetRunResult empty = RunFileSetProcess(none, nullptr, nullptr);
    EXPECT_EQ(empty.status, "No Commands To Process.");

    FileOpBusy other(FileOpKind::Automatic);
    const FileSetRunResult busy = RunFileSetProcess(p, nullptr, nullptr);
    EXPECT_FALSE(busy.started);
    EXPECT_EQ(busy.text, "Auto Image Set Processing Is Currently Busy.");
}

TEST(FileSetProcess, ParameterRecordRoundTrips) {
    CAutoProcessParams p;
    p.lights.files = {"/a/l1.fit", "/a/l 2.fit"};
    p.bias.files = {"/a/b.fit"};
    p.darks.method = "SIGMED";
    p.flats.name = "Flat=Master";
    p.processType = "OSCCCD";
    p.colorType = "BASICBAYER";
    p.cfaPattern = "GR,BG";
    p.bayerOutput = "GREEN";
    p.filters = true;
    p.aggressiveness = "Very Aggressive";
    p.normalize = "USER";
    p.normalizeBackground = 1234.5;
    p.grade = "PERCENTECC";
    p.gradePercent = 35;
    p.align = "AUTOSTAR";
    p.mirrorFlip = true;
    p.clipFactor = 1.85;
    p.saveType = "COMPFIT32";
    p.outputDirectory = "/tmp/x";
    p.minimizeDisk = true;
    CSetupParams setup;
    SaveAutoProcessParams(setup, p);
    ASSERT_EQ(setup.records.count("FileSetProcess"), 1u);
    CAutoProcessParams back;
    back.lights.files = {"/old.fit"};
    ASSERT_TRUE(LoadAutoProcessParams(setup, &back));
    EXPECT_EQ(FormatAutoProcessParams(back), FormatAutoProcessParams(p));
    EXPECT_EQ(back.lights.files, p.lights.files);
    EXPECT_EQ(back.flats.name, "Flat=Master");
    EXPECT_EQ(back.clipFactor, 1.85);
    EXPECT_EQ(back.lights.files.size(), 2u) << "a named list replaces the old one";

    for (const char* bad : {"processType=MONO", "align=SOMETIMES", "gradePercent=33",
                            "lights.method=NOPE", "clipFactor=x", "filters=yes", "no equals"}) {
        CAutoProcessParams q;
        EXPECT_FALSE(ParseAutoProcessParams(bad, &q)) << bad;
    }
    CSetupParams empty;
    EXPECT_FALSE(LoadAutoProcessParams(empty, &back));
}
