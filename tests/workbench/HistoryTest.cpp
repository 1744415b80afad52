// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Undo, redo, go-to-step, forward processing and the editing of the command list, on
/// images whose steps go to real step files.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

#include "TestSupport.h"
#include "engine/ProcessWindow.h"
#include "engine/workbench/History.h"

using namespace astrivelle;
using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

/// Records the tool requests of the history besides the texts.
class HistoryNotify : public RecordingNotify {
public:
    struct ToolCall {
        std::string operation, parameters;
        bool apply;
    };
    std::vector<ToolCall> toolCalls;
    std::string busyTool;
    bool ShowTool(const std::string& op, const std::string& params, bool apply) override {
        toolCalls.push_back({op, params, apply});
        return false;
    }
    bool ToolBusy(const std::string& op) override { return op == busyTool; }
};

constexpr int kW = 5, kH = 4;

float Origin(int x, int y) {
    return static_cast<float>(1000 + 10 * x + y);
}

/// An image read from `M31.fit` in a scratch folder, with the workbench's history.
struct OpenImage {
    ScratchDir dir;
    HistoryNotify notify;
    CProcessWindow w{&notify};
    explicit OpenImage(std::uint32_t colorType = ColorGray) {
        MakeImage(w.image, kW, kH, colorType, [](int s, int x, int y) { return Origin(x, y) + s; });
        w.filePath = dir.file("M31.fit");
        w.title = "M31.fit";
        EXPECT_TRUE(w.image.WriteFile(w.filePath, KindFITS));
        AttachHistory(w);
        w.BeginHistory("Read");
    }
    /// A step named `name` that adds `delta` to every sample of the step's input.
    bool Apply(const std::string& name, float delta) {
        char params[64];
        std::snprintf(params, sizeof params, "Delta : %g#", delta);
        return w.RunOperator(name, params, [&](bool) {
            for (int s : w.image.Slots())
                for (int i = 0; i < kW * kH; ++i)
                    w.image.curPlane[s][i] = w.image.prevPlane[s][i] + delta;
            return true;
        });
    }
    /// The offset of the shown state from the origin, which must be the same at every pixel.
    float Offset(bool previous = false) const {
        const int s = w.image.Slots().front();
        const float* p = previous ? w.image.prevPlane[s] : w.image.curPlane[s];
        const float d = p[0] - Origin(0, 0) - s;
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x)
                EXPECT_FLOAT_EQ(p[y * kW + x] - Origin(x, y) - s, d) << x << "," << y;
        return d;
    }
    /// The statistics shown are those of the planes shown (a fresh pass gives the same).
    void ExpectStatisticsOfShownPlanes() {
        const ChannelStats shown = w.image.redStats;
        w.image.ComputeStatistics();
        EXPECT_EQ(shown.mean, w.image.redStats.mean);
        EXPECT_EQ(shown.max, w.image.redStats.max);
        EXPECT_EQ(shown.min, w.image.redStats.min);
        EXPECT_EQ(shown.median, w.image.redStats.median);
    }
    std::vector<std::string> Rows() const { return BuildHistoryListView(w).rows; }
    std::vector<std::string> StepFiles() const {
        std::vector<std::string> names;
        for (const auto& e : fs::directory_iterator(dir.path()))
            if (e.path().filename() != "M31.fit")
                names.push_back(e.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
};

CProcessStructure Command(const std::string& op, const std::string& params) {
    CProcessStructure r;
    r.operation = op;
    r.parameters = params;
    r.prevImageFile = "/elsewhere/A.fit";
    r.curImageFile = "/elsewhere/A$1.fit";
    return r;
}

} // namespace

TEST(History, StepFileIsWrittenOnlyWhenTheNextDifferentOperatorStarts) {
    OpenImage o;
    ASSERT_TRUE(o.Apply("Levels", 100)); // on a fresh image: "Read" needs no file
    EXPECT_TRUE(o.StepFiles().empty());
    ASSERT_TRUE(o.Apply("Levels", 250)); // a repeat changes the pending step, still no file
    EXPECT_TRUE(o.StepFiles().empty());
    ASSERT_EQ(o.w.history.size(), 2u);
    EXPECT_EQ(o.w.history[1].parameters, "Delta : 250#");

    ASSERT_TRUE(o.Apply("Negative", 7));
    EXPECT_EQ(o.StepFiles(), std::vector<std::string>{"M31$1.fit"});
    const std::string step1 = o.dir.file("M31$1.fit");
    EXPECT_EQ(o.w.history[1].curImageFile, step1);
    EXPECT_EQ(o.w.history[2].prevImageFile, step1); // the next row chains to it
    EXPECT_TRUE(o.w.history[2].curImageFile.empty());
    EXPECT_EQ(o.w.tempFiles, std::vector<std::string>{step1});
    Image back; // the file holds the Levels state with the second values
    ASSERT_TRUE(back.ReadFile(step1, ".fit"));
    EXPECT_FLOAT_EQ(back.curPlane[0][kW + 2], Origin(2, 1) + 250);
    EXPECT_EQ(o.Rows(), (std::vector<std::string>{"Read", "Levels", ">>Negative"}));
    EXPECT_FALSE(BuildHistoryListView(o.w).sequenceBroken);
}

TEST(History, UndoAtStepZeroAndRedoAtTheEndDoNothing) {
    OpenImage o;
    EXPECT_FALSE(o.w.Undo());
    EXPECT_EQ(o.w.currentStep, 0);
    ASSERT_TRUE(o.Apply("Levels", 5));
    EXPECT_FALSE(o.w.Redo());
    EXPECT_EQ(o.w.currentStep, 1);
    EXPECT_EQ(o.Offset(), 5);
    EXPECT_TRUE(o.notify.messages.empty());
    EXPECT_TRUE(UndoAvailable(o.w));
    EXPECT_FALSE(RedoAvailable(o.w));

    o.w.isBlinkImage = true;
    EXPECT_FALSE(o.w.Undo());
    EXPECT_FALSE(o.w.Redo());
    EXPECT_EQ(o.notify.messages, (std::vector<std::string>{"Undo not available for Blink Image",
                                                           "Redo not available for Blink Image"}));
}

TEST(History, UndoAndRedoWalkTheStatesBothWays) {
    OpenImage o;
    ASSERT_TRUE(o.Apply("Levels", 100));
    ASSERT_TRUE(o.Apply("Negative", 20));
    ASSERT_TRUE(o.Apply("Threshold", 3));
    const float states[] = {0, 100, 120, 123};
    for (int step = 3; step > 0; --step) {
        ASSERT_TRUE(o.w.Undo()) << step;
        EXPECT_EQ(o.w.currentStep, step - 1);
        EXPECT_EQ(o.Offset(), states[step - 1]);
        EXPECT_EQ(o.w.lastOp, o.w.history[step - 1].operation);
        o.ExpectStatisticsOfShownPlanes();
        if (step - 1 > 0) { // the input of the shown step is in the previous planes
            EXPECT_EQ(o.Offset(true), states[step - 2]);
        }
    }
    EXPECT_FALSE(o.w.Undo());
    for (int step = 1; step <= 3; ++step) {
        ASSERT_TRUE(o.w.Redo()) << step;
        EXPECT_EQ(o.Offset(), states[step]);
        EXPECT_EQ(o.Offset(true), states[step - 1]);
        o.ExpectStatisticsOfShownPlanes();
        ASSERT_TRUE(o.w.Undo()); // back and forth along the chain, from the planes
        EXPECT_EQ(o.Offset(), states[step - 1]);
        o.ExpectStatisticsOfShownPlanes();
        ASSERT_TRUE(o.w.Redo());
    }
    EXPECT_EQ(o.Rows().back(), ">>Threshold");
    EXPECT_EQ(o.StepFiles(), (std::vector<std::string>{"M31$1.fit", "M31$2.fit", "M31$3.fit"}));
    EXPECT_EQ(o.notify.messages, std::vector<std::string>{});
}

TEST(History, UndoAlongTheChainTakesTheStateFromThePlanes) {
    OpenImage o;
    ASSERT_TRUE(o.Apply("Levels", 100));
    ASSERT_TRUE(o.Apply("Negative", 20));
    ASSERT_TRUE(o.w.Undo());
    ASSERT_TRUE(o.w.Redo());
    // After the redo the previous planes hold step 1: an undo needs only step 0's file.
    fs::remove(o.w.history[1].curImageFile);
    ASSERT_TRUE(o.w.Undo());
    EXPECT_EQ(o.Offset(), 100);
    EXPECT_EQ(o.Offset(true), 0);
    EXPECT_TRUE(o.notify.messages.empty());
}

TEST(History, UnreadableStepFileKeepsThePlanesAndTheStepAsSet) {
    OpenImage o;
    ASSERT_TRUE(o.Apply("Levels", 100));
    ASSERT_TRUE(o.Apply("Negative", 20));
    ASSERT_TRUE(o.Apply("Threshold", 1));
    ASSERT_TRUE(o.w.GoToStep(3 - 1));        // saves step 3, shows step 2
    fs::remove(o.w.history[0].curImageFile); // the origin is gone
    fs::remove(o.w.history[1].curImageFile);
    EXPECT_FALSE(o.w.GoToStep(0));
    EXPECT_EQ(o.w.currentStep, 0);
    EXPECT_EQ(o.Offset(), 120);
    EXPECT_EQ(o.notify.messages,
              std::vector<std::string>{"Error reading process history image file."});
    EXPECT_TRUE(o.w.GoToStep(3)); // the user may go to another step
    EXPECT_EQ(o.Offset(), 121);
}

TEST(History, GoToStepShowsTheRowAndIgnoresTheShownOrigin) {
    OpenImage o;
    ASSERT_TRUE(o.Apply("Levels", 100));
    ASSERT_TRUE(o.Apply("Negative", 20));
    ASSERT_TRUE(o.Apply("Threshold", 3));
    ASSERT_TRUE(o.w.GoToStep(1));
    EXPECT_EQ(o.w.currentStep, 1);
    EXPECT_EQ(o.Offset(), 100);
    EXPECT_EQ(o.Rows(), (std::vector<std::string>{"Read", ">>Levels", "Negative", "Threshold"}));
    const HistoryListView view = BuildHistoryListView(o.w);
    EXPECT_EQ(view.details, (std::vector<std::string>{
                                "Previous Image File : " + o.dir.file("M31.fit"),
                                "Current Image File : " + o.dir.file("M31$1.fit"), "Delta : 100"}));
    ASSERT_TRUE(o.w.GoToStep(0));
    EXPECT_EQ(o.Offset(), 0);
    EXPECT_FALSE(o.w.GoToStep(0)); // ">>" on row 0
    EXPECT_FALSE(o.w.GoToStep(9));
    ASSERT_TRUE(o.w.GoToStep(3));
    EXPECT_EQ(o.Offset(), 123);
}

TEST(History, OperatorAfterUndoInsertsBehindTheShownStep) {
    OpenImage o;
    ASSERT_TRUE(o.Apply("Levels", 100));
    ASSERT_TRUE(o.Apply("Negative", 20));
    ASSERT_TRUE(o.w.Undo());
    ASSERT_TRUE(o.Apply("Threshold", 1000));
    EXPECT_EQ(o.Offset(), 1100);
    EXPECT_EQ(o.w.currentStep, 2);
    EXPECT_EQ(o.Rows(), (std::vector<std::string>{"Read", "Levels", ">>Threshold", "~~ Negative"}));
    const HistoryListView view = BuildHistoryListView(o.w);
    EXPECT_TRUE(view.sequenceBroken);
    EXPECT_EQ(view.textColor, 200);
    // The history is never cut: Negative still has its state.
    ASSERT_TRUE(o.w.GoToStep(3));
    EXPECT_EQ(o.Offset(), 120);
    // Printing a broken sequence asks first.
    o.notify.answer = Answer::No;
    EXPECT_FALSE(ConfirmHistoryConsistent(o.w, false));
    EXPECT_TRUE(ConfirmHistoryConsistent(o.w, true) == false);
    EXPECT_EQ(o.notify.questions,
              (std::vector<std::string>{kPrintConfirmText, kSaveAllAsConfirmText}));
}

TEST(History, DeletingTheShownLastStepShowsTheNewLastStep) {
    OpenImage o;
    ASSERT_TRUE(o.Apply("Levels", 100));
    ASSERT_TRUE(o.Apply("Negative", 20));
    ASSERT_TRUE(o.Apply("Threshold", 3));
    o.notify.answer = Answer::No;
    EXPECT_FALSE(o.w.DeleteCommands({3}));
    EXPECT_EQ(o.w.history.size(), 4u);
    o.notify.answer = Answer::Yes;
    ASSERT_TRUE(o.w.DeleteCommands({0, 3}));
    EXPECT_EQ(o.notify.questions,
              (std::vector<std::string>{"Confirm delete operation?", "Confirm delete operation?"}));
    EXPECT_EQ(o.notify.messages, std::vector<std::string>{"Can't delete the initial image."});
    EXPECT_EQ(o.w.history.size(), 3u);
    EXPECT_EQ(o.w.currentStep, 2);
    EXPECT_EQ(o.Offset(), 120);
    EXPECT_EQ(o.w.lastOp, "Negative");
}

TEST(History, DeletingRowsBelowTheShownStepMovesItUp) {
    OpenImage o;
    ASSERT_TRUE(o.Apply("Levels", 100));
    ASSERT_TRUE(o.Apply("Negative", 20));
    ASSERT_TRUE(o.Apply("Threshold", 3));
    o.notify.answer = Answer::Yes;
    ASSERT_TRUE(o.w.DeleteCommands({1}));
    EXPECT_EQ(o.w.currentStep, 2);
    EXPECT_EQ(o.Offset(), 123); // still the same state
    EXPECT_EQ(o.Rows(), (std::vector<std::string>{"Read", "~~ Negative", ">>Threshold"}));
    EXPECT_FALSE(o.w.DeleteCommands({}));
    EXPECT_EQ(o.notify.messages.back(), "No Commands Selected.");
}

TEST(History, CopyAndPasteMarkTheRowsAndRunForward) {
    OpenImage o;
    ASSERT_TRUE(o.w.PixelMathAdd(false, 100, 0, 65535, 0));
    std::vector<CProcessStructure> clipboard;
    o.w.copiedCommands = &clipboard;
    EXPECT_FALSE(o.w.CopyCommands({}));
    EXPECT_FALSE(o.w.CopyCommands({0}));
    EXPECT_EQ(o.notify.messages,
              (std::vector<std::string>{"No Commands Selected.", "Can't Copy The Initial Image."}));
    ASSERT_TRUE(o.w.CopyCommands({0, 1}));
    ASSERT_EQ(clipboard.size(), 1u);
    EXPECT_EQ(clipboard[0].operation, "Pixel Math");

    EXPECT_FALSE(o.w.PasteCommands(-1));
    EXPECT_EQ(o.notify.messages.back(), "Please Select A Command To Paste Commands After.");
    clipboard.push_back(Command("Pixel Math", "Operation: Subtract#Constant: 30.000#Threshold Min: "
                                              "0#Threshold Max: 65535#Feather Range: 0#"));
    ASSERT_TRUE(o.w.PasteCommands(1));
    ASSERT_EQ(o.w.history.size(), 4u);
    for (int i : {2, 3}) {
        EXPECT_EQ(o.w.history[i].prevImageFile, "REPROCESS COMMAND");
        EXPECT_EQ(o.w.history[i].curImageFile, "~~");
    }
    EXPECT_EQ(o.Rows(),
              (std::vector<std::string>{"Read", ">>Pixel Math", "~~ Pixel Math", "~~ Pixel Math"}));
    EXPECT_TRUE(ForwardAvailable(o.w));

    // A pasted row can't be shown before it is run.
    o.notify.messages.clear();
    EXPECT_FALSE(o.w.Redo());
    EXPECT_EQ(o.notify.messages,
              std::vector<std::string>{"Please reprocess all commands marked with ~~ using the All "
                                       "Commands or Next Command button."});
    ASSERT_TRUE(o.w.GoToStep(1));

    ASSERT_TRUE(o.w.AllCommands(0));
    EXPECT_EQ(o.w.currentStep, 3);
    EXPECT_EQ(o.Offset(), 100 + 100 - 30);
    EXPECT_FALSE(ForwardAvailable(o.w));
    EXPECT_FALSE(BuildHistoryListView(o.w).sequenceBroken); // the forward run chained them
    // Undo goes back through the files the forward run wrote.
    ASSERT_TRUE(o.w.Undo());
    EXPECT_EQ(o.Offset(), 200);
    ASSERT_TRUE(o.w.Undo());
    EXPECT_EQ(o.Offset(), 100);
}

TEST(History, PasteOnAMonochromeImageDropsTheColourOnlyNames) {
    OpenImage o;
    ASSERT_TRUE(o.Apply("Levels", 1));
    ASSERT_TRUE(o.Apply("Mix Channels", 2)); // the image's own history has one too
    ASSERT_TRUE(o.Apply("Negative", 3));
    std::vector<CProcessStructure> clipboard = {Command("Hue-Saturation-Luminance", "a#"),
                                                Command("Threshold", "Threshold Point : 9#"),
                                                Command("HSL Micro Curves", "b#"),
                                                Command("Additive Color Balance", "c#"),
                                                Command("Selective HSL Color Balance", "d#"),
                                                Command("Color Balance", "e#"),
                                                Command("Reduce RGB", "f#"),
                                                Command("Mix Channels", "g#")};
    o.w.copiedCommands = &clipboard;
    ASSERT_TRUE(o.w.PasteCommands(1));
    std::vector<std::string> names;
    for (const CProcessStructure& r : o.w.history)
        names.push_back(r.operation);
    EXPECT_EQ(names, (std::vector<std::string>{"Read", "Levels", "Threshold", "Negative"}));
    EXPECT_EQ(o.w.currentStep, 3); // still Negative, the state shown
    EXPECT_EQ(o.Offset(), 6);
    EXPECT_TRUE(o.notify.messages.empty());

    OpenImage rgb(ColorRGB);
    rgb.w.copiedCommands = &clipboard;
    ASSERT_TRUE(rgb.w.PasteCommands(0));
    EXPECT_EQ(rgb.w.history.size(), 1u + clipboard.size());
}

TEST(History, NextCommandRunsTheStepAfterTheShownOne) {
    OpenImage o;
    ASSERT_TRUE(o.w.PixelMathAdd(false, 100, 0, 65535, 0));
    ASSERT_TRUE(o.Apply("Levels", 1));
    ASSERT_TRUE(o.w.GoToStep(0));
    o.notify.toolCalls.clear();
    ASSERT_TRUE(o.w.NextCommand());
    EXPECT_EQ(o.w.currentStep, 1);
    EXPECT_EQ(o.Offset(), 100);
    ASSERT_EQ(o.notify.toolCalls.size(), 1u); // the tool is asked first, with Apply
    EXPECT_EQ(o.notify.toolCalls[0].operation, "Pixel Math");
    EXPECT_TRUE(o.notify.toolCalls[0].apply);
    EXPECT_EQ(o.w.history.size(), 3u); // replaced, not added
    EXPECT_EQ(o.w.history[1].prevImageFile, o.dir.file("M31.fit"));

    // A "Levels" step whose text does not parse: the step is not run and the row before it
    // stays.
    EXPECT_FALSE(o.w.NextCommand());
    EXPECT_EQ(o.w.currentStep, 1);
    EXPECT_EQ(o.Offset(), 100);
    EXPECT_EQ(o.notify.messages.back(), "Levels: level missing in \"Delta : 1#\"");
    EXPECT_EQ(o.w.history[2].parameters, "Delta : 1#");
}

TEST(History, NextCommandRefusalsAndTheToolCheck) {
    OpenImage o;
    ASSERT_TRUE(o.Apply("Smoothing", 1));
    ASSERT_TRUE(o.Apply("Feature Mask", 1));
    ASSERT_TRUE(o.Apply("Non-Adaptive Iterative Restoration", 1));
    ASSERT_TRUE(o.Apply("Levels", 1));
    ASSERT_TRUE(o.w.GoToStep(0));
    o.notify.messages.clear();
    struct Case {
        int from;
        const char* busyTool;
        const char* text;
    } cases[] = {
        {0, "Smoothing", "Smoothing is currently in use."},
        {1, "Feature Mask", "Feature Mask \u00a9 is currently in use."},
        {2, "Non-Adaptive Iterative Restoration",
         "Non-adaptive iterative restoration is currently in use."},
    };
    for (const Case& c : cases) {
        o.w.currentStep = c.from;
        o.notify.busyTool = c.busyTool;
        EXPECT_FALSE(o.w.NextCommand());
        EXPECT_EQ(o.notify.messages.back(), c.text);
        EXPECT_EQ(o.w.currentStep, c.from);
    }
    o.notify.busyTool = "Levels"; // not a threaded tool: no check
    EXPECT_EQ(ToolCheckText(o.w, "Levels"), "");

    o.w.currentStep = 0;
    o.w.threadBusy = true;
    o.notify.messages.clear();
    EXPECT_FALSE(o.w.NextCommand());
    o.w.quietForward = true;
    EXPECT_FALSE(o.w.NextCommand());
    EXPECT_EQ(o.notify.messages, std::vector<std::string>{"Operation In Progress"});
    o.w.quietForward = false;
    o.w.threadBusy = false;

    CProcessWindow empty(&o.notify);
    EXPECT_FALSE(empty.NextCommand());
    EXPECT_EQ(o.notify.messages.back(), "No Image Is Available");
}

TEST(History, AllCommandsIsPacedAndCanBeCancelled) {
    OpenImage o;
    std::vector<CProcessStructure> clipboard = {
        Command("Pixel Math", "Operation: Add#Constant: 10.000#Threshold Min: 0#Threshold Max: "
                              "65535#Feather Range: 0#"),
        Command("Pixel Math", "Operation: Add#Constant: 1.000#Threshold Min: 0#Threshold Max: "
                              "65535#Feather Range: 0#")};
    o.w.copiedCommands = &clipboard;
    ASSERT_TRUE(o.w.PasteCommands(0));
    const auto start = std::chrono::steady_clock::now();
    RecordingProgress progress;
    ASSERT_TRUE(o.w.AllCommands(60, &progress));
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, std::chrono::milliseconds(60)); // one tick between the two steps
    EXPECT_EQ(o.Offset(), 11);
    EXPECT_EQ(progress.statuses.front(), "Hold Ctrl + Shift Down To Cancel All Commands");
    EXPECT_FALSE(o.w.AllCommands(0)); // nothing left

    OpenImage c;
    c.w.copiedCommands = &clipboard;
    ASSERT_TRUE(c.w.PasteCommands(0));
    RecordingProgress cancel;
    cancel.RequestCancel();
    c.notify.answer = Answer::Yes;
    EXPECT_FALSE(c.w.AllCommands(0, &cancel));
    EXPECT_EQ(c.notify.questions, std::vector<std::string>{"Cancel Forward Processing?"});
    EXPECT_EQ(c.w.currentStep, 1); // stopped after the first step
    EXPECT_EQ(c.Offset(), 10);
}

TEST(History, PrintTextLaysOutEveryRecord) {
    OpenImage o;
    ASSERT_TRUE(o.Apply("Levels", 2));
    o.w.history[1].channelSelect = 1;
    o.w.history[1].channelGreen = 0;
    o.w.history[1].blendMode = 6;
    o.w.history[1].opacity = 0.25;
    o.w.history[1].maskFile = "/m/mask.fit";
    std::tm when{};
    when.tm_year = 2024 - 1900;
    when.tm_mon = 2;
    when.tm_mday = 7;
    when.tm_hour = 21;
    when.tm_min = 5;
    const std::string origin = o.dir.file("M31.fit");
    const std::string expected =
        "     Astrivelle Monochrome Project v5.0"
        "\n\n     Date: 3/7/2024 21:05"
        "\n\n     Previous Image File : \n"
        "      Current Image File : " +
        origin +
        "\n"
        "\n"
        "     Operation : Read\n"
        "     Blend Mode Normal, Opacity 1.000\n"
        "     Use Mask True, Mask Level 65535, Mask File Name \n"
        "\n\n     Previous Image File : " +
        origin +
        "\n"
        "      Current Image File : \n"
        "      Current Image Mask File : /m/mask.fit\n"
        "\n"
        "     Apply to:  Red Blue\n"
        "     Operation : Levels\n"
        "     Blend Mode Screen, Opacity 0.250\n"
        "     Use Mask True, Mask Level 65535, Mask File Name /m/mask.fit\n"
        "     Delta : 2\n";
    EXPECT_EQ(HistoryPrintText(o.w, when), expected);
    when.tm_min = 42;
    EXPECT_NE(HistoryPrintText(o.w, when).find("Date: 3/7/2024 21:42"), std::string::npos);
}

TEST(History, EmptyHistoryShowsNoOperations) {
    CProcessWindow w;
    EXPECT_EQ(BuildHistoryListView(w).rows, std::vector<std::string>{"No Operations"});
    EXPECT_FALSE(BlendControlsAvailable(w));
}

TEST(History, BlendValuesOfAStepAreReappliedFromItsPureResult) {
    OpenImage o;
    ASSERT_TRUE(o.Apply("Levels", 1000));
    CProcessStructure values;
    values.opacity = 0.5;
    ASSERT_TRUE(o.w.ReapplyBlend(false, &values));
    EXPECT_EQ(o.Offset(), 500); // half way between the input and the pure result
    EXPECT_EQ(o.w.history[1].opacity, 0.5);
    values.opacity = 0.0; // opacity 0 gives the input exactly
    ASSERT_TRUE(o.w.ReapplyBlend(false, &values));
    EXPECT_EQ(o.Offset(), 0);
    values.opacity = 0.25;
    ASSERT_TRUE(o.w.ReapplyBlend(false, &values));

    // The next operator keeps the blended state and the pure result in step files.
    ASSERT_TRUE(o.Apply("Negative", 1));
    EXPECT_EQ(o.StepFiles(), (std::vector<std::string>{"M31$1.fit", "M31Filter$1.fit"}));
    EXPECT_EQ(o.w.history[1].filterFile, o.dir.file("M31Filter$1.fit"));
    EXPECT_EQ(o.w.image.workRows[0], nullptr);
    ASSERT_TRUE(o.w.Undo());
    EXPECT_EQ(o.Offset(), 250);
    ASSERT_NE(o.w.image.workRows[0], nullptr); // the pure result came back from its file
    EXPECT_FLOAT_EQ(o.w.image.workRows[0][1][2], Origin(2, 1) + 1000);
    values.opacity = 1.0;
    ASSERT_TRUE(o.w.ReapplyBlend(false, &values));
    EXPECT_EQ(o.Offset(), 1000);

    // Geometry steps and the origin have no blend.
    ASSERT_TRUE(o.w.GoToStep(0));
    EXPECT_FALSE(o.w.ReapplyBlend(false, &values));
    EXPECT_TRUE(IsNoBlendOperation("Rotate CW"));
    EXPECT_FALSE(IsNoBlendOperation("Levels"));
}
