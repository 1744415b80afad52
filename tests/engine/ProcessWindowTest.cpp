// SPDX-License-Identifier: GPL-3.0-or-later
/// \file How applications become history steps, the guards and the worker start.
#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>

#include "TestSupport.h"
#include "engine/ProcessWindow.h"
#include "engine/Worker.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

/// Remembers which operator the image showed each time a step was saved, and its first pixel.
class RecordingStepStore : public IStepStore {
public:
    std::vector<std::string> savedOps;
    std::vector<float> savedFirstPixel;
    bool SaveStepImage(CProcessWindow& w) override {
        savedOps.push_back(w.lastOp);
        savedFirstPixel.push_back(w.image.curPlane[0][0]);
        return true;
    }
};

struct OpenImage {
    RecordingNotify notify;
    RecordingStepStore store;
    CProcessWindow window{&notify};
    OpenImage() {
        MakeImage(window.image, 4, 3, ColorGray, [](int, int x, int y) { return 1000 + x + y; });
        window.title = "M42.fit";
        window.stepStore = &store;
        window.BeginHistory("Read");
    }
};

} // namespace

TEST(PendingSequence, RepeatChangesOneStepAndAnotherOperatorAddsOne) {
    OpenImage o;
    CProcessWindow& w = o.window;
    ASSERT_TRUE(w.PixelMathAdd(false, 100, 0, 65535, 0));
    EXPECT_EQ(w.history.size(), 2u);
    EXPECT_EQ(w.currentStep, 1);
    EXPECT_TRUE(w.pending);
    EXPECT_TRUE(o.store.savedOps.empty()) << "no step file after a freshly read image";
    EXPECT_FLOAT_EQ(w.image.curPlane[0][0], 1100);

    // The same operator again: it starts from the step's input and replaces the step.
    ASSERT_TRUE(w.PixelMathAdd(true, 50, 0, 65535, 0));
    EXPECT_EQ(w.history.size(), 2u);
    EXPECT_EQ(w.currentStep, 1);
    EXPECT_FLOAT_EQ(w.image.curPlane[0][0], 950);
    EXPECT_FLOAT_EQ(w.image.prevPlane[0][0], 1000);
    EXPECT_EQ(w.history[1].operation, "Pixel Math");
    EXPECT_EQ(w.history[1].parameters, "Operation: Subtract#Constant: 50.000#Threshold Min: 0#"
                                       "Threshold Max: 65535#Feather Range: 0#");
    EXPECT_TRUE(o.store.savedOps.empty()) << "a repeat writes no file";

    // Another operator: the Pixel Math state is saved first, then a new entry follows it.
    ASSERT_TRUE(w.RunOperator("Negative", "", [&](bool pending) {
        EXPECT_TRUE(pending);
        for (int s : w.image.Slots())
            for (std::uint32_t i = 0; i < w.image.pixelCount; ++i)
                w.image.curPlane[s][i] = 65535 - w.image.prevPlane[s][i];
        return true;
    }));
    ASSERT_EQ(o.store.savedOps.size(), 1u);
    EXPECT_EQ(o.store.savedOps[0], "Pixel Math");
    EXPECT_FLOAT_EQ(o.store.savedFirstPixel[0], 950);
    ASSERT_EQ(w.history.size(), 3u);
    EXPECT_EQ(w.history[2].operation, "Negative");
    EXPECT_EQ(w.currentStep, 2);
    EXPECT_FLOAT_EQ(w.image.curPlane[0][0], 65535 - 950);
    EXPECT_FLOAT_EQ(w.image.prevPlane[0][0], 950);
}

TEST(PendingSequence, AFailedApplicationTakesItsStepBack) {
    OpenImage o;
    CProcessWindow& w = o.window;
    ASSERT_TRUE(w.PixelMathAdd(false, 100, 0, 65535, 0));
    const std::string kept = w.history[1].parameters;

    // A repeat that fails puts the step's text back and keeps the step.
    EXPECT_FALSE(w.RunOperator("Pixel Math", "x#", [](bool) { return false; }));
    ASSERT_EQ(w.history.size(), 2u);
    EXPECT_EQ(w.history[1].parameters, kept);

    // A new operator that fails leaves no step, and the next one starts a step of its own.
    const std::size_t before = w.history.size();
    EXPECT_FALSE(w.RunOperator("Negative", "", [](bool) { return false; }));
    EXPECT_EQ(w.history.size(), before);
    EXPECT_EQ(w.currentStep, static_cast<int>(before) - 1);
    EXPECT_FALSE(w.pending);
    EXPECT_EQ(w.lastOp, "Pixel Math");
    ASSERT_TRUE(w.RunOperator("Negative", "", [](bool) { return true; }));
    EXPECT_EQ(w.history.size(), before + 1);
    EXPECT_EQ(w.history.back().operation, "Negative");
}

TEST(PendingSequence, CaptionShowsOperationInProgressThenIsRestored) {
    OpenImage o;
    ASSERT_TRUE(o.window.PixelMathMultiply(2.0, 0, 65535, 0));
    ASSERT_FALSE(o.notify.captions.empty());
    EXPECT_NE(std::find(o.notify.captions.begin(), o.notify.captions.end(),
                        "*** Operation In Progress ***"),
              o.notify.captions.end());
    EXPECT_EQ(o.notify.captions.back(), "M42.fit - Gray");
    EXPECT_FALSE(o.window.opRunning);
    EXPECT_DOUBLE_EQ(o.window.image.redStats.max, 2 * (1000 + 3 + 2)) << "statistics refreshed";
}

TEST(PendingSequence, BlinkImageKeepsNoHistoryButRuns) {
    OpenImage o;
    o.window.isBlinkImage = true;
    ASSERT_TRUE(o.window.PixelMathAdd(false, 10, 0, 65535, 0));
    ASSERT_TRUE(o.window.PixelMathDivide(2, 0, 65535, 0));
    EXPECT_EQ(o.window.history.size(), 1u);
    EXPECT_FLOAT_EQ(o.window.image.curPlane[0][0], 500);
}

TEST(PendingSequence, ReplacingStepTakesTheNextEntryAndItsBlendValues) {
    OpenImage o;
    CProcessWindow& w = o.window;
    ASSERT_TRUE(w.PixelMathAdd(false, 10, 0, 65535, 0));
    // Step back as undo would, then replay forward into the existing entry.
    w.currentStep = 0;
    w.lastOp = "Read";
    w.pending = false;
    w.replacingStep = true;
    ASSERT_TRUE(w.PixelMathAdd(false, 20, 0, 65535, 0));
    EXPECT_EQ(w.history.size(), 2u);
    EXPECT_EQ(w.currentStep, 1);
    EXPECT_NE(w.history[1].parameters.find("Constant: 20.000"), std::string::npos);
    EXPECT_FALSE(w.replacingStep);
}

TEST(PendingSequence, ActiveBlendWithoutBlenderBlendsTheRepeatedStep) {
    OpenImage o;
    CProcessWindow& w = o.window;
    ASSERT_TRUE(w.PixelMathAdd(false, 10, 0, 65535, 0));
    EXPECT_EQ(w.image.workRows[0], nullptr) << "no blend values: no work rows";
    w.history[1].opacity = 0.5; // as the history tool would set it
    ASSERT_TRUE(w.PixelMathAdd(false, 20, 0, 65535, 0));
    EXPECT_TRUE(o.notify.messages.empty());
    // Input 1000 + x + y, pure result +20, half opacity: +10; the work rows keep the pure
    // result and the previous planes the input.
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) {
            EXPECT_FLOAT_EQ(w.image.curPlane[0][y * 4 + x], 1010 + x + y);
            EXPECT_FLOAT_EQ(w.image.prevPlane[0][y * 4 + x], 1000 + x + y);
            ASSERT_NE(w.image.workRows[0], nullptr);
            EXPECT_FLOAT_EQ(w.image.workRows[0][y][x], 1020 + x + y);
        }

    // A mask file needs a blender that reads it: the result stays unblended, with a text.
    w.history[1].luminanceMask = 0;
    w.history[1].maskFile = "/nowhere/mask.fit";
    ASSERT_TRUE(w.PixelMathAdd(false, 30, 0, 65535, 0));
    ASSERT_EQ(o.notify.messages.size(), 1u);
    EXPECT_EQ(o.notify.messages[0],
              "The image mask file can't be read here; the result is left unblended.");
    EXPECT_FLOAT_EQ(w.image.curPlane[0][0], 1030);
}

TEST(Guards, FirstHoldingGuardWinsInOrder) {
    struct Case {
        bool CProcessWindow::*flag;
        const char* text;
    };
    const Case cases[] = {
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
    CProcessWindow clean;
    std::string text;
    EXPECT_TRUE(CheckOperatorGuards(clean, &text));
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        // Set this guard and every later one: this one's text must win.
        CProcessWindow w;
        for (std::size_t k = i; k < std::size(cases); ++k)
            w.*(cases[k].flag) = true;
        EXPECT_FALSE(CheckOperatorGuards(w, &text));
        EXPECT_EQ(text, cases[i].text);
    }
}

TEST(Worker, RefusedByFileOperationWithItsText) {
    OpenImage o;
    o.window.fileOpBusy = true;
    OperatorWorker worker;
    bool ran = false;
    EXPECT_FALSE(worker.Start(o.window, "NORMAL", [&] { ran = true; }));
    worker.Join();
    EXPECT_FALSE(ran);
    ASSERT_EQ(o.notify.messages.size(), 1u);
    EXPECT_EQ(o.notify.messages[0], "Image File Operation In Progress");
}

TEST(Worker, PriorityWordChoosesIdleScheduling) {
    for (const char* word : {"IDLE", "NORMAL", "idle"}) {
        OpenImage o;
        OperatorWorker worker;
        std::atomic<int> policy{-1};
        std::atomic<bool> busyInside{false};
        ASSERT_TRUE(worker.Start(o.window, word, [&] {
            policy = sched_getscheduler(0);
            busyInside = o.window.threadBusy;
            o.window.PixelMathAdd(false, 1, 0, 65535, 0);
        }));
        worker.Join();
        EXPECT_EQ(policy.load(), std::string(word) == "IDLE" ? SCHED_IDLE : SCHED_OTHER) << word;
        EXPECT_TRUE(busyInside);
        EXPECT_FALSE(o.window.threadBusy) << "released after the body";
        EXPECT_FLOAT_EQ(o.window.image.curPlane[0][0], 1001);
    }
}

TEST(Worker, SecondStartOnABusyImageIsRefused) {
    OpenImage o;
    OperatorWorker first, second;
    std::atomic<bool> release{false};
    ASSERT_TRUE(first.Start(o.window, "NORMAL", [&] {
        while (!release)
            std::this_thread::yield();
    }));
    EXPECT_FALSE(second.Start(o.window, "NORMAL", [] {}));
    release = true;
    first.Join();
    EXPECT_EQ(o.notify.messages.back(), "Operation In Progress");
}
