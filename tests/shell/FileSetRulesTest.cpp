// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The rules under the image-set sheets: start refusals, output folders, list captions,
/// the clip factor and compress choices, and the parameters of the last applied step.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "TestSupport.h"
#include "imagesets/CombineMethods.h"
#include "imagesets/FileSetRules.h"
#include "imagesets/ReadNoiseGain.h"

namespace astrivelle {
namespace {

namespace fs = std::filesystem;

TEST(FileSetRules, StartRefusals) {
    EXPECT_EQ(FileOpStartRefusal(FileOpKind::Normalize), "");
    EXPECT_EQ(FileOpStartRefusal(FileOpKind::Count_), "");
    {
        FileOpBusy crop(FileOpKind::Crop);
        // The operation's own flag, and for Calibrate any other operation's.
        EXPECT_EQ(FileOpStartRefusal(FileOpKind::Crop), "Crop Files Is Currently Busy.");
        EXPECT_EQ(FileOpStartRefusal(FileOpKind::Calibrate), "Crop Files Is Currently Busy.");
        EXPECT_EQ(FileOpStartRefusal(FileOpKind::Normalize), "");
        EXPECT_EQ(FileOpStartRefusal(FileOpKind::Count_), "");
    }
    {
        // Every other operation, those without a kind included, is locked while it runs.
        FileOpBusy automatic(FileOpKind::Automatic);
        for (FileOpKind other : {FileOpKind::Calibrate, FileOpKind::Crop, FileOpKind::Count_})
            EXPECT_EQ(FileOpStartRefusal(other), "Automatic Image Set Process In Progress.");
        EXPECT_EQ(FileOpStartRefusal(FileOpKind::Automatic),
                  "Auto Image Set Processing Is Currently Busy.");
    }
    SetReadNoiseGainRunning(true);
    EXPECT_EQ(FileOpStartRefusal(FileOpKind::Resize), kReadNoiseGainBusyText);
    EXPECT_EQ(FileOpStartRefusal(FileOpKind::Count_), kReadNoiseGainBusyText);
    SetReadNoiseGainRunning(false);
    EXPECT_EQ(FileOpStartRefusal(FileOpKind::Resize), "");
}

TEST(FileSetRules, OutputFolderDefaultsCreationAndWriteTest) {
    test::ScratchDir dir;
    std::string folder, message;
    // Empty: the first input's folder.
    ASSERT_TRUE(
        ResolveOutputDirectory("  ", {dir.file("x/a.fit"), "/elsewhere/b.fit"}, &folder, &message));
    EXPECT_EQ(folder, dir.file("x"));
    EXPECT_TRUE(fs::is_directory(folder));
    EXPECT_FALSE(fs::exists(fs::path(folder) / kOutputTestFileName));
    // Given: trimmed and created.
    ASSERT_TRUE(ResolveOutputDirectory(" " + dir.file("out/deep") + " ", {}, &folder, &message));
    EXPECT_EQ(folder, dir.file("out/deep"));
    EXPECT_TRUE(fs::is_directory(folder));
    // A folder that can't be made: a plain file stands in its path.
    { std::ofstream(dir.file("plain")) << "x"; }
    const std::string blocked = dir.file("plain/sub");
    EXPECT_FALSE(ResolveOutputDirectory(blocked, {}, &folder, &message));
    EXPECT_EQ(message, "Please Check The Output Directory\n" + blocked + " - Not a directory");
}

TEST(FileSetRules, ListKindsAndCaptions) {
    struct Case {
        const char* operation;
        bool color;
        const char* caption; // with 2 files
    } cases[] = {
        {"Calibrate Files", false, "Calibrated Image Set - 2 images"},
        {"Calibrate Files", true, "Calibrated Color Image Set - 2 images"},
        {"Bayer Interpolate/Split Files", false, "Color Image Set - 2 images"},
        {"Normalize Files", false, "Normalized Image Set - 2 images"},
        {"Filter Files", false, "Filtered Image Set - 2 images"},
        {"Grade Files", false, "Graded Image Set - 2 images"},
        {"Auto Align Planet Files", false, "Aligned Image Set - 2 images"},
        {"Resize Files", false, "2 Output Files : Resize Files"},
        {"Crop Files", false, "2 Output Files : Crop Files"},
        {"Combine Files/HDR Add", false, "2 Output Files : Combine Files/HDR Add"},
    };
    for (const Case& c : cases) {
        const CFileOpList list = MakeOutputList(c.operation, c.color, {"/d/a.fit", "/d/b.fit"});
        EXPECT_EQ(OutputListText(list), c.caption) << c.operation;
        EXPECT_EQ(list.operation, c.operation);
        ASSERT_EQ(list.files.size(), 2u);
        EXPECT_EQ(list.files[1].listIndex, 1);
        EXPECT_EQ(ListPaths(list), (std::vector<std::string>{"/d/a.fit", "/d/b.fit"}));
    }
    EXPECT_EQ(OutputListText(MakeOutputList("Resize Files", false, {})),
              "0 Output Files : Resize Files");
}

TEST(FileSetRules, ClipFactorsAndCompress) {
    const std::vector<double>& f = ClipFactorChoices();
    ASSERT_EQ(f.size(), 80u);
    EXPECT_DOUBLE_EQ(f.front(), 0.05);
    EXPECT_DOUBLE_EQ(f.back(), 4.0);
    EXPECT_DOUBLE_EQ(f[kDefaultClipFactorIndex], 2.55);
    EXPECT_DOUBLE_EQ(f[kDefaultClipFactorIndex], kDefaultClipFactor);
    EXPECT_DOUBLE_EQ(CompressOfSlider(100), 0.2);
    EXPECT_DOUBLE_EQ(CompressOfSlider(1000), 2.0);
    EXPECT_EQ(SliderOfCompress(0.2), 100);
    EXPECT_EQ(SliderOfCompress(CompressOfSlider(377)), 377);
}

TEST(FileSetRules, LastAppliedAndReplayableSteps) {
    std::vector<CProcessStructure> h(5);
    h[0].operation = "Read";
    h[1].operation = "Levels";
    h[1].parameters = "L1";
    h[2].operation = "Pixel Math";
    h[2].parameters = "P";
    h[3].operation = "Levels";
    h[3].parameters = "L2";
    h[4].operation = "No Such Operator";
    std::string p;
    ASSERT_TRUE(LastAppliedParameters(h, 4, "Levels", &p));
    EXPECT_EQ(p, "L2");
    // The step after the current one is undone.
    ASSERT_TRUE(LastAppliedParameters(h, 2, "Levels", &p));
    EXPECT_EQ(p, "L1");
    EXPECT_FALSE(LastAppliedParameters(h, 4, "BCS", &p));
    EXPECT_FALSE(LastAppliedParameters({}, 0, "Levels", &p));
    const std::vector<CProcessStructure> steps = ReplayableSteps(h, 4);
    for (const CProcessStructure& s : steps) {
        EXPECT_NE(s.operation, "Read");
        EXPECT_NE(s.operation, "No Such Operator");
    }
    EXPECT_TRUE(ReplayableSteps(h, 0).empty());
}

} // namespace
} // namespace astrivelle
