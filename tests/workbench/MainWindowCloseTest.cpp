// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The rules by role: operator guards and source refusals, the three lists of closing
/// texts, Close All, temporary files on close and at exit, and the order of program exit.
#include <gtest/gtest.h>

#include "MainWindowTestSupport.h"
#include "engine/SetupParams.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

struct CloseCase {
    bool CProcessWindow::*flag;
    const char* query;
    const char* all;
    const char* menu;
};

const char* const kCombineAll = "To Close All Images With A Combine Image or Mosaic Operation "
                                "In Progress, Use Flatten First.";
const char* const kImageMathAll = "Image Math Operation In Progress. Please Free Source 1 And 2.";

// Every flag that refuses a close, in the order of the rules, with its three texts.
const CloseCase kCloseCases[] = {
    {&CProcessWindow::cropFilesUse, "Close Crop Files to close this image.",
     "Close Crop Files to close this image.", "This image is in use by Crop Files."},
    {&CProcessWindow::alignTsrFilesUse, "Close Align TSR Files to close this image.",
     "Close Align TSR Files to close this image.", "This image is in use by Align Files."},
    {&CProcessWindow::alignPlanetFilesUse, "Close Align Planet Files to close this image.",
     "Close Align Planet Files to close this image.", "This image is in use by Auto Align Files."},
    {&CProcessWindow::blinkFilesUse, "Close Blink Files to close this image.",
     "Close Blink Files to close this image.", "This image is in use by Blink Files."},
    {&CProcessWindow::gradeFilesUse, "Close Grade Files to close this image.",
     "Close Grade Files to close this image.", "This image is in use by Grade Files."},
    {&CProcessWindow::convertFilesUse, "Close Convert Files to close this image.",
     "Close Convert Files to close this image.", "This image is in use by Convert Files."},
    {&CProcessWindow::fileOpBusy, "Please complete the file operation to close this image.",
     "Please complete the file operation to close this image.",
     "This image is in use by a file operation."},
    {&CProcessWindow::videoSource,
     "Please close the Video display and process window to close this image.",
     "Please close the Video display and process window to close this image.",
     "This image is in use by the Video display and process command."},
    {&CProcessWindow::closeLocked, "This image is close locked.", "This image is close locked.",
     "This image is close locked."},
    {&CProcessWindow::threadBusy, "Operation in progress.", "Operation In Progress.",
     "Operation in progress."},
    {&CProcessWindow::isImageMathTarget,
     "Close the Image Math command to close an Image Math target image.", kImageMathAll,
     "Close the Image Math command to close an Image Math target image."},
    {&CProcessWindow::imageMathSource,
     "To close an Image Math source image, use Free Source or choose another source.",
     kImageMathAll,
     "To close an Image Math source image, use Free Source or choose another source."},
    {&CProcessWindow::isCombineImagesCombination,
     "To close a Combine Image combination image, use Flatten first.", kCombineAll,
     "To Close A Combine Image Image, Use Flatten First."},
    {&CProcessWindow::combineImagesSource,
     "To close a Combine Image source image, use Flatten or Delete first.", kCombineAll,
     "To Close A Combine Image Source Image, Use Flatten First."},
    {&CProcessWindow::combineImagesMask,
     "To close a Combine Image source mask image, use Flatten or Delete first.", kCombineAll,
     "To close a Combine Image source mask image, use Flatten or Delete first."},
    {&CProcessWindow::combineFrequencySource,
     "This source image is in use by the Combine Frequency dialoge box. \n Use Clear Selection "
     "or close the dialoge box first.",
     nullptr, nullptr},
    {&CProcessWindow::combineChannelSource,
     "This source image is in use by the Combine Channel dialoge box. \n Use Clear Selection or "
     "close the dialoge box first.",
     "Source Image In Use By The Combine Channel Dialog Box.\n Use Clear Selection Or Close The "
     "Dialog Box First.",
     nullptr},
    {&CProcessWindow::mixLrgbSource,
     "This source image is in use by the Mix LRGB and Hue dialoge box. \n Clear selection or "
     "close the dialoge box first.",
     nullptr, nullptr},
    {&CProcessWindow::isCombineLRGBTarget,
     "This target image is in use by the Combine Channel dialoge box. \n Close the dialoge box "
     "first.",
     "Target Image In Use By The Combine Channel Dialog Box.\n Close The Dialog Box First.",
     nullptr},
    {&CProcessWindow::isCombineFrequencyTarget,
     "This target image is in use by the Combine Frequency dialoge box. \n Close the dialoge box "
     "first.",
     nullptr, nullptr},
    {&CProcessWindow::isMixLRGBTarget,
     "This combination image is in use by the Mix LRGB and Hue dialoge box. \n Release "
     "combination image selection or close the dialoge box first.",
     "Combination Image In Use By The Mix LRGB and Hue Dialog Box.\n Release Combination Image "
     "Selection Or Close The Dialog Box First.",
     nullptr},
    {&CProcessWindow::combineCfaSource,
     "This source image is in use by the Combine Bayer CFA dialoge box. \n Use Clear Selection "
     "or close the dialoge box first.",
     nullptr, nullptr},
    {&CProcessWindow::isCombineBayerTarget,
     "This target image is in use by the Combine Bayer CFA dialoge box. \n Apply with Use New "
     "Image checked, click Free Target,\nor close the dialoge box first.",
     nullptr, nullptr},
    {&CProcessWindow::timeSequenceSource, "This image is in use by the Time Sequence dialoge box.",
     "Please close the Time Sequence dialog box first.", "This image is a Time Sequence source."},
    {&CProcessWindow::alignSource, "This image is in use by the Align dialoge box.",
     "Please close the Align dialog box first.", "This image is in use by the Align dialoge box."},
};

} // namespace

TEST(CloseRules, EachFlagRefusesWithItsTextInEachList) {
    for (const CloseCase& c : kCloseCases) {
        SCOPED_TRACE(c.query);
        CProcessWindow w;
        std::string text;
        EXPECT_TRUE(CheckCloseRules(w, CloseKind::Query, &text)) << "a new window closes";
        w.*c.flag = true;
        ASSERT_FALSE(CheckCloseRules(w, CloseKind::Query, &text));
        EXPECT_EQ(text, c.query);
        ASSERT_FALSE(CheckCloseRules(w, CloseKind::All, &text));
        EXPECT_EQ(text, c.all ? c.all : c.query);
        ASSERT_FALSE(CheckCloseRules(w, CloseKind::Menu, &text));
        EXPECT_EQ(text, c.menu ? c.menu : c.query);
    }
}

TEST(CloseRules, TheFirstRuleInOrderWins) {
    // Each flag together with every later one: the earlier text is the one shown.
    const std::size_t n = std::size(kCloseCases);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = i + 1; j < n; ++j) {
            CProcessWindow w;
            w.*kCloseCases[j].flag = true;
            w.*kCloseCases[i].flag = true;
            std::string text;
            ASSERT_FALSE(CheckCloseRules(w, CloseKind::Query, &text));
            EXPECT_EQ(text, kCloseCases[i].query) << "with " << kCloseCases[j].query;
        }
}

TEST(CloseRules, RolesThatDoNotHoldAnImageLetItClose) {
    CProcessWindow w;
    w.combineImagesGrayMask = true;
    w.isBlinkImage = true;
    w.keepFiles = true;
    w.placeholderImage = true;
    w.pending = true;
    EXPECT_TRUE(CheckCloseRules(w, CloseKind::Query, nullptr));
    EXPECT_TRUE(w.CloseQuery());
}

TEST(CloseRules, CloseQueryShowsTheTextAndTheModelKeepsTheWindow) {
    MainBench b;
    CProcessWindow* w = b.Open("M31.fit");
    ASSERT_NE(w, nullptr);
    w->closeLocked = true;
    EXPECT_FALSE(b.main.CloseImage(w));
    EXPECT_EQ(b.LastMessage(), "This image is close locked.");
    EXPECT_TRUE(b.main.IsOpen(w));
    EXPECT_FALSE(b.main.CloseImage(w, CloseKind::Menu));
    w->closeLocked = false;
    w->cropFilesUse = true;
    EXPECT_FALSE(b.main.CloseImage(w, CloseKind::Menu));
    EXPECT_EQ(b.LastMessage(), "This image is in use by Crop Files.");
    w->cropFilesUse = false;
    EXPECT_TRUE(b.main.CloseImage(w));
    EXPECT_FALSE(b.main.IsOpen(w));
    EXPECT_EQ(b.main.imageCount(), 0);
}

TEST(TargetGuards, SourceRefusalsFlagByFlagAfterTheOperatorGuards) {
    struct Case {
        bool CProcessWindow::*flag;
        const char* text;
    };
    const Case cases[] = {
        {&CProcessWindow::combineImagesSource,
         "Image Is A Combine Images Source. Flatten, Copy, Or Duplicate The Image First"},
        {&CProcessWindow::combineImagesMask,
         "Image Is A Combine Images Mask. Flatten, Copy, Or Duplicate The Image First"},
        {&CProcessWindow::combineImagesGrayMask,
         "Image Is A Combine Images Grayscale Mask. Flatten, Copy, Or Duplicate The Image First"},
        {&CProcessWindow::combineFrequencySource,
         "Image Is A Combine Frequency Source. Press Done or Duplicate The Image First"},
        {&CProcessWindow::mixLrgbSource,
         "Image Is A Mix LRGB and Hue Source. Delete Selection or Close the Command First"},
        // The operator guards, which come first.
        {&CProcessWindow::isCombineImagesCombination,
         "Image Is A Combine Images Combination. Flatten, Copy, Or Duplicate The Image First"},
        {&CProcessWindow::threadBusy, "Operation In Progress"},
        {&CProcessWindow::isCombineLRGBTarget,
         "Image Is A Combine LRGB, LCMY, HSL Target. Press Done or Duplicate The Image First"},
        {&CProcessWindow::isCombineFrequencyTarget,
         "Image Is A Combine Frequency Target. Press Done or Duplicate The Image First"},
        {&CProcessWindow::isMixLRGBTarget, "Image Is A Mix LRGB and Hue Combination. Press "
                                           "Release Combination or Duplicate The Image First"},
        {&CProcessWindow::isCombineBayerTarget,
         "Image Is A Combine Bayer CFA Target. Press Done or Duplicate The Image First"},
        {&CProcessWindow::isImageMathTarget,
         "Image Is An Image Math Target. Duplicate The Image First"},
        {&CProcessWindow::fileOpBusy, "Image File Operation In Progress"},
    };
    for (const Case& c : cases) {
        CProcessWindow w;
        std::string text;
        EXPECT_TRUE(CheckTargetGuards(w, &text));
        w.*c.flag = true;
        EXPECT_FALSE(CheckTargetGuards(w, &text));
        EXPECT_EQ(text, c.text);
    }
    // An operator guard is tested before any source refusal; the sources in their order.
    CProcessWindow w;
    w.mixLrgbSource = true;
    w.combineImagesMask = true;
    std::string text;
    EXPECT_FALSE(CheckSourceRefusals(w, &text));
    EXPECT_EQ(text, cases[1].text);
    w.fileOpBusy = true;
    EXPECT_FALSE(CheckTargetGuards(w, &text));
    EXPECT_EQ(text, "Image File Operation In Progress");
    // Closing roles that are not source roles do not refuse an operator.
    CProcessWindow locked;
    locked.closeLocked = true;
    locked.cropFilesUse = true;
    EXPECT_TRUE(CheckTargetGuards(locked, &text));
}

TEST(CloseAll, TestsEveryImageBeforeClosingAny) {
    MainBench b;
    CProcessWindow* a = b.Open("A.fit");
    CProcessWindow* c = b.Open("C.fit");
    ASSERT_TRUE(a && c);
    const std::string stepA = b.Touch("A$1.fit");
    b.main.AddTempFile(*a, stepA);
    c->closeLocked = true; // the last image refuses
    EXPECT_FALSE(b.main.CloseAll());
    EXPECT_EQ(b.LastMessage(), "This image is close locked.");
    EXPECT_EQ(b.main.imageCount(), 2);
    EXPECT_TRUE(Exists(stepA)) << "nothing is closed when one image refuses";

    c->closeLocked = false;
    c->combineImagesMask = true;
    EXPECT_FALSE(b.main.CloseAll());
    EXPECT_EQ(b.LastMessage(), kCombineAll);

    c->combineImagesMask = false;
    EXPECT_TRUE(b.main.CloseAll());
    EXPECT_EQ(b.main.imageCount(), 0);
    EXPECT_EQ(b.main.ActiveImage(), nullptr);
    EXPECT_FALSE(Exists(stepA));
}

TEST(ActiveImage, AfterClosesTheMostRecentlyActiveTakesOver) {
    MainBench b;
    CProcessWindow* a = b.Open("A.fit");
    CProcessWindow* bb = b.Open("B.fit");
    CProcessWindow* c = b.Open("C.fit");
    ASSERT_TRUE(a && bb && c);
    EXPECT_EQ(b.main.ActiveImage(), c) << "a new image is active";
    ASSERT_TRUE(b.main.SetActiveImage(a));
    // Closing an image that is not active leaves the active one.
    ASSERT_TRUE(b.main.CloseImage(bb));
    EXPECT_EQ(b.main.ActiveImage(), a);
    ASSERT_NE(b.Open("D.fit"), nullptr);
    CProcessWindow* d = b.main.ActiveImage();
    ASSERT_TRUE(b.main.SetActiveImage(a));
    // Activation order is c, d, a: closing a hands over to d, then to c.
    ASSERT_TRUE(b.main.CloseImage(a));
    EXPECT_EQ(b.main.ActiveImage(), d);
    ASSERT_TRUE(b.main.CloseImage(d));
    EXPECT_EQ(b.main.ActiveImage(), c);
    ASSERT_TRUE(b.main.CloseImage(c));
    EXPECT_EQ(b.main.ActiveImage(), nullptr);
    // The list keeps the order of opening.
    EXPECT_FALSE(b.main.SetActiveImage(c)) << "a closed window can't be made active";
}

TEST(ActiveImage, AToolLockedToAClosedImageFallsBackAndLosesTheLock) {
    MainBench b;
    CProcessWindow* a = b.Open("A.fit");
    CProcessWindow* c = b.Open("C.fit");
    CProcessWindow* locked = a;
    EXPECT_EQ(b.main.ResolveToolTarget(&locked), a) << "while open, the lock holds";
    ASSERT_TRUE(b.main.CloseImage(a));
    EXPECT_EQ(b.main.ResolveToolTarget(&locked), c);
    EXPECT_EQ(locked, nullptr);
    ASSERT_TRUE(b.main.CloseImage(c));
    EXPECT_EQ(b.main.ResolveToolTarget(&locked), nullptr);
    EXPECT_EQ(b.LastMessage(), "No Image Is Available");
}

TEST(TempFiles, DeletedOnCloseUnlessKeptOrShown) {
    MainBench b;
    CProcessWindow* w = b.Open("M31.fit");
    CProcessWindow* other = b.Open("Other.fit");
    ASSERT_TRUE(w && other);
    const std::string s1 = b.Touch("M31$1.fit");
    const std::string s2 = b.Touch("M31$2.fit");
    const std::string f1 = b.Touch("M31Filter$1.fit");
    const std::string shown = b.Touch("M31$3.fit");
    for (const std::string& p : {s1, s2, f1, shown})
        b.main.AddTempFile(*w, p);
    EXPECT_EQ(b.main.tempFiles.size(), 4u);
    b.main.KeepFiles(*w, {s2}); // a project names it
    other->filePath = shown;    // another image shows this step file

    // A refused close deletes nothing.
    w->alignSource = true;
    EXPECT_FALSE(b.main.CloseImage(w));
    EXPECT_TRUE(Exists(s1) && Exists(f1));
    w->alignSource = false;

    ASSERT_TRUE(b.main.CloseImage(w));
    EXPECT_FALSE(Exists(s1));
    EXPECT_FALSE(Exists(f1));
    EXPECT_TRUE(Exists(s2)) << "named by a project";
    EXPECT_TRUE(Exists(shown)) << "shown by another open image";
    EXPECT_TRUE(Exists(b.dir.file("M31.fit"))) << "the image's own file is never a temp file";
    // The deleted ones have left the program's list; the others wait for exit.
    EXPECT_EQ(b.main.tempFiles, (std::vector<std::string>{s2, shown}));
}

TEST(TempFiles, KeepFilesSparesThemOnCloseAndAtExit) {
    MainBench b;
    CProcessWindow* w = b.Open("M31.fit");
    CProcessWindow* v = b.Open("M42.fit");
    const std::string kept = b.Touch("M31$1.fit");
    const std::string gone = b.Touch("M42$1.fit");
    const std::string open = b.Touch("M31$2.fit");
    b.main.AddTempFile(*w, kept);
    b.main.AddTempFile(*v, gone);
    w->keepFiles = true;
    ASSERT_TRUE(b.main.CloseImage(w));
    EXPECT_TRUE(Exists(kept));
    // An image still open at exit with keepFiles set keeps its files too.
    CProcessWindow* u = b.Open("M51.fit");
    b.main.AddTempFile(*u, open);
    u->keepFiles = true;
    ASSERT_TRUE(b.main.Exit());
    EXPECT_TRUE(Exists(kept));
    EXPECT_TRUE(Exists(open));
    EXPECT_FALSE(Exists(gone)) << "an open image's temp file is deleted at exit";
    EXPECT_EQ(b.main.imageCount(), 0);
}

TEST(Exit, JobsThenOperatorsInFlightEachWithItsText) {
    MainBench b;
    // Jobs in the order exit tests them, not in the order they started.
    const auto& jobs = ImageSetJobNames();
    ASSERT_EQ(jobs.size(), 15u);
    const char* const jobTexts[] = {
        "Please Cancel Digital Camera Raw File Conversion Before Closing.",
        "Please Cancel Bayer CFA Interpolation Before Closing.",
        "Please Cancel Combine Files/HDR Add Before Closing.",
        "Please Cancel Resize Files Before Closing.",
        "Please Cancel Normalize Files Before Closing.",
        "Please Cancel Calibrate Files Before Closing.",
        "Please Cancel Automatic DSLR, OSC CCD, CCD Image Set Processing Before Closing.",
        "Please Cancel Translate, Scale, Rotation Alignment Before Closing.",
        "Please Cancel Crop Files Before Closing.",
        "Please Cancel Auto Align Files Before Closing.",
        "Please Cancel Convert MOV AVI to SER Before Closing.",
        "Please Cancel Blink Files Before Closing.",
        "Please Cancel Compute Read Noise & Gain Before Closing.",
        "Please Cancel Grade Files Before Closing.",
        "Please Cancel Convert Files Before Closing.",
    };
    EXPECT_FALSE(b.main.BeginImageSetJob("Stack Files")) << "not a job of the list";
    for (auto it = jobs.rbegin(); it != jobs.rend(); ++it)
        ASSERT_TRUE(b.main.BeginImageSetJob(*it));
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        EXPECT_FALSE(b.main.Exit());
        EXPECT_EQ(b.LastMessage(), jobTexts[i]);
        b.main.EndImageSetJob(jobs[i]);
    }

    // Operators in flight: a busy image whose current operator has an exit text.
    struct Op {
        const char* name;
        const char* text;
    };
    const Op ops[] = {
        {"Frequency Filter", "Frequency Filter In Progress."},
        {"High Pass", "High Pass Filter In Progress."},
        {"Band Suppression", "Band Suppression In Progress."},
        {"Smoothing", "Smoothing Operation In Progress."},
        {"Background/Highlight Smoothing", "Background/Highlight Smoothing Operation In Progress."},
        {"Star Size Reduction/Smoothing", "Star Size Reduction/Smoothing Operation In Progress."},
        {"Suppress Lines", "Line Suppress Operation In Progress."},
        {"Non-Adaptive Iterative Restoration", "Restoration Operation In Progress."},
        {"Adaptive Richardson-Lucy", "Restoration Operation In Progress."},
        {"Multiresolution Smooth-Sharpen", "Multi Scale Decomposition In Progress."},
        {"ArcSinH", "ArcSinH Operation In Progress."},
        {"Digital Development", "Digital Development Operation In Progress."},
    };
    CProcessWindow* w = b.Open("M31.fit");
    ASSERT_NE(w, nullptr);
    for (const Op& op : ops) {
        w->currentOp = op.name;
        w->threadBusy = true;
        b.main.BeginImageSetJob("Grade Files"); // a job is tested before the operators
        EXPECT_FALSE(b.main.Exit());
        EXPECT_EQ(b.LastMessage(), "Please Cancel Grade Files Before Closing.");
        b.main.EndImageSetJob("Grade Files");
        EXPECT_FALSE(b.main.Exit());
        EXPECT_EQ(b.LastMessage(), op.text);
    }
    // Two in flight on two images: the earlier entry of the table is told.
    CProcessWindow* v = b.Open("M42.fit");
    w->currentOp = "Digital Development";
    v->currentOp = "High Pass";
    v->opRunning = true;
    EXPECT_FALSE(b.main.Exit());
    EXPECT_EQ(b.LastMessage(), "High Pass Filter In Progress.");
    EXPECT_FALSE(Exists(b.main.setupPath)) << "a refused exit saves nothing";
    // A worker without an exit text does not hold the program.
    w->currentOp = "Feature Mask";
    v->opRunning = false;
    EXPECT_TRUE(b.main.Exit());
}

TEST(Exit, SavesTheSetupThenDeletesTheRemainingTempFiles) {
    MainBench b;
    CProcessWindow* w = b.Open("M31.fit");
    CProcessWindow* v = b.Open("M42.fit");
    const std::string closedStep = b.Touch("M42$1.fit");
    const std::string openStep = b.Touch("M31$1.fit");
    const std::string projectStep = b.Touch("M31$2.fit");
    const std::string loose = b.Touch("loose.tmp"); // listed by the program alone
    b.main.AddTempFile(*v, closedStep);
    b.main.AddTempFile(*w, openStep);
    b.main.AddTempFile(*w, projectStep);
    b.main.tempFiles.push_back(loose);
    b.main.KeepFiles(*w, {projectStep});
    v->keepFiles = true; // closed with its files kept...
    ASSERT_TRUE(b.main.CloseImage(v));
    w->closeLocked = true; // ...and a close lock does not hold the program
    b.main.lastFolder = b.dir.file("project");

    ASSERT_TRUE(b.main.Exit());
    EXPECT_FALSE(Exists(openStep));
    EXPECT_FALSE(Exists(loose));
    EXPECT_TRUE(Exists(projectStep));
    EXPECT_TRUE(Exists(closedStep));
    EXPECT_TRUE(Exists(b.dir.file("M31.fit")));
    EXPECT_EQ(b.main.imageCount(), 0);
    // The setup file holds what the program ended with.
    CSetupParams read;
    ASSERT_TRUE(Exists(b.main.setupPath));
    ASSERT_TRUE(LoadSetupParams(b.main.setupPath, read));
    EXPECT_EQ(read.strings[SetupLastFolder], b.dir.file("project"));
    EXPECT_EQ(read.strings[SetupProjectFolder], b.main.projectFolder);
}

TEST(Exit, ASetupThatCannotBeWrittenIsToldAndTheProgramStillEnds) {
    MainBench b;
    const std::string plain = b.Touch("plain");
    b.main.setupPath = plain + "/config/QXSP600.qxp"; // a folder under a regular file
    const std::string step = b.Touch("x$1.fit");
    b.main.tempFiles.push_back(step);
    ASSERT_TRUE(b.main.Exit());
    EXPECT_EQ(b.LastMessage(), "Error writing Setup Params : " + b.main.setupPath);
    EXPECT_FALSE(Exists(step));
}

TEST(TempFiles, StepFilesOfTheHistoryGoWithTheImage) {
    MainBench b;
    CProcessWindow* w = b.Open("M31.fit");
    ASSERT_NE(w, nullptr);
    ASSERT_NE(w->stepStore, nullptr) << "the model gives each window the history's step store";
    ASSERT_TRUE(w->PixelMathAdd(false, 100, 0, 65535, 0));
    // Another operator saves the Pixel Math state to the first step file.
    ASSERT_TRUE(w->RunOperator("Negative", "", [&](bool) {
        for (std::uint32_t i = 0; i < w->image.pixelCount; ++i)
            w->image.curPlane[0][i] = 65535 - w->image.prevPlane[0][i];
        return true;
    }));
    const std::string step = b.dir.file("M31$1.fit");
    ASSERT_TRUE(Exists(step)) << b.LastMessage();
    EXPECT_EQ(w->tempFiles, std::vector<std::string>{step});
    EXPECT_EQ(b.main.tempFiles, std::vector<std::string>{step});
    ASSERT_TRUE(b.main.CloseImage(w));
    EXPECT_FALSE(Exists(step));
    EXPECT_TRUE(b.main.tempFiles.empty());
    EXPECT_TRUE(Exists(b.dir.file("M31.fit")));
}
