// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The image-set sheets run offscreen: each sheet filled by its controls' names gives the
/// files, pixels and status the engine gives for the same request; the "File List" captions,
/// cancel keeping the finished outputs, the busy refusal, a bad file reported while the run
/// goes on, and every sheet opening from its menu command.
#include "ToolFrameTestSupport.h"

#include <QAction>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QTreeWidget>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>

#include "engine/SystemOptions.h"
#include "imagesets/CalibrateFiles.h"
#include "imagesets/CombineFiles.h"
#include "imagesets/FileSetRules.h"
#include "imagesets/NormalizeFiles.h"
#include "shell/CalibrateSheet.h"
#include "shell/CalibrationSetupDialog.h"
#include "shell/CombineSheet.h"
#include "shell/FileSetSheets.h"
#include "shell/MainFrame.h"
#include "shell/NormalizeSheet.h"
#include "shell/QtNotify.h"

namespace astrivelle::test {
namespace {

namespace fs = std::filesystem;

/// A recording notifier that can act when a text arrives (on the user interface thread).
class HookNotify : public RecordingNotify {
public:
    std::function<void(const std::string&)> onMessage;
    void Message(const std::string& text, const std::string& title) override {
        RecordingNotify::Message(text, title);
        if (onMessage)
            onMessage(text);
    }
};

/// A desktop context for the sheets with a hookable notifier.
class SheetShell : public SheetTestShell<HookNotify> {
public:
    ~SheetShell() override { delete CalibrationSetupDialog::Open(); }

    /// Three frames of 16 x 12 with different levels and spreads.
    std::vector<std::string> ThreeFrames() {
        return {Fits("a.fit", 16, 12, [](int x, int y) { return 1000 + 10 * x + y; }),
                Fits("b.fit", 16, 12, [](int x, int y) { return 3000 + 40 * x + 7 * y; }),
                Fits("c.fit", 16, 12, [](int x, int y) { return 500 + 3 * x + 20 * y; })};
    }
};

QStringList Q(const std::vector<std::string>& paths) {
    QStringList list;
    for (const std::string& p : paths)
        list << QString::fromStdString(p);
    return list;
}

void Type(QWidget* sheet, const char* name, const char* text) {
    auto* edit = sheet->findChild<QLineEdit*>(name);
    ASSERT_NE(edit, nullptr) << name;
    TypeField(edit, text);
}

/// Both files hold the same planes, sample for sample.
void ExpectSameFile(const std::string& a, const std::string& b) {
    Image x, y;
    ASSERT_TRUE(x.ReadFile(a, fs::path(a).extension().string())) << a;
    ASSERT_TRUE(y.ReadFile(b, fs::path(b).extension().string())) << b;
    ASSERT_EQ(x.width, y.width);
    ASSERT_EQ(x.height, y.height);
    ASSERT_EQ(x.Slots(), y.Slots());
    for (int s : x.Slots())
        for (std::uint32_t i = 0; i < x.pixelCount; ++i)
            ASSERT_EQ(x.curPlane[s][i], y.curPlane[s][i]) << a << " slot " << s << " at " << i;
}

std::vector<std::string> TopItems(const FileSetFrame* sheet) {
    std::vector<std::string> items;
    for (int i = 0; i < sheet->outputLists->topLevelItemCount(); ++i)
        items.push_back(sheet->outputLists->topLevelItem(i)->text(0).toStdString());
    return items;
}

std::vector<std::string> Names(const std::vector<std::string>& paths) {
    std::vector<std::string> names;
    for (const std::string& p : paths)
        names.push_back(fs::path(p).filename().string());
    return names;
}

// ---- Normalize -----------------------------------------------------------------------------

TEST(FileSetSheet, NormalizeGivesTheEngineFilesStatusAndCaption) {
    SheetShell shell;
    const std::vector<std::string> files = shell.ThreeFrames();
    NormalizeSheet* sheet = NormalizeSheet::Show(shell);
    ASSERT_NE(sheet, nullptr);
    sheet->findChild<QRadioButton*>("targetUser")->setChecked(true);
    Type(sheet, "background", "2500");
    Type(sheet, "deviation", "300");
    Type(sheet, "outputDirectory", shell.dir.file("sheet").c_str());
    sheet->AddFiles(Q(files));
    ASSERT_TRUE(Press(sheet, "run"));
    EXPECT_FALSE(sheet->runButton->isEnabled());
    ASSERT_TRUE(sheet->WaitForRun());
    // The list is the next run's input.
    CFileOpList list;
    ASSERT_TRUE(FileOpLists().Find("Normalize Files", &list));
    EXPECT_EQ(ListPaths(list), sheet->LastResult().outputs);

    NormalizeRequest request;
    request.files = files;
    request.outputDirectory = shell.dir.file("engine");
    request.target = NormalizeTarget::UserDefined;
    request.background = 2500;
    request.deviation = 300;
    const NormalizeResult expected = NormalizeFiles(request, nullptr, nullptr);
    ASSERT_EQ(expected.run.outputs.size(), 3u);
    const FileOpResult& got = sheet->LastResult();
    ASSERT_EQ(Names(got.outputs), Names(expected.run.outputs));
    EXPECT_EQ(Names(got.outputs)[0], "NL_a.fit");
    for (std::size_t i = 0; i < got.outputs.size(); ++i)
        ExpectSameFile(got.outputs[i], expected.run.outputs[i]);
    EXPECT_EQ(sheet->status->text().toStdString(), expected.run.status);
    EXPECT_EQ(sheet->counter->text(), "3 of 3");
    EXPECT_EQ(TopItems(sheet), std::vector<std::string>{"Normalized Image Set - 3 images"});
    EXPECT_TRUE(shell.notify.messages.empty());
    EXPECT_TRUE(sheet->runButton->isEnabled());
}

TEST(FileSetSheet, NormalizeRefusalsBeforeTheRun) {
    SheetShell shell;
    const std::vector<std::string> files = shell.ThreeFrames();
    NormalizeSheet* sheet = NormalizeSheet::Show(shell);
    struct Case {
        std::vector<std::string> inputs;
        const char* prefix;
        const char* background;
        std::string text;
    } cases[] = {
        {{files[0]}, "NL_", "5120", kNormalizeTwoImagesText},
        {files, "N|L", "5120",
         std::string(kFilePrefixCharsText) + std::string(30, ' ') + kPrefixForbiddenChars},
        {files, "NL_", "70000",
         "Please select an average background level and average standard deviation < 65535"},
        {files, "NL_", "abc", "Please Enter a Real Number."},
    };
    sheet->findChild<QRadioButton*>("targetUser")->setChecked(true);
    for (const Case& c : cases) {
        shell.notify.messages.clear();
        sheet->SetInputFiles(c.inputs);
        Type(sheet, "prefix", c.prefix);
        Type(sheet, "background", c.background);
        EXPECT_FALSE(sheet->Run()) << c.text;
        EXPECT_FALSE(sheet->Running());
        ASSERT_EQ(shell.notify.messages.size(), 1u) << c.text;
        EXPECT_EQ(shell.notify.messages[0], c.text);
        EXPECT_EQ(sheet->status->text().toStdString(), c.text);
    }
}

TEST(FileSetSheet, BusyOperationRefusesTheRunWithItsText) {
    SheetShell shell;
    NormalizeSheet* sheet = NormalizeSheet::Show(shell);
    sheet->SetInputFiles(shell.ThreeFrames());
    {
        FileOpBusy held(FileOpKind::Normalize);
        ASSERT_TRUE(held.Acquired());
        EXPECT_FALSE(Press(sheet, "run") && sheet->Running());
        ASSERT_FALSE(shell.notify.messages.empty());
        EXPECT_EQ(shell.notify.messages.back(), "Normalize Files Is Currently Busy.");
        EXPECT_EQ(sheet->status->text(), "Normalize Files Is Currently Busy.");
    }
    // Calibrate also waits for any other operation.
    CalibrateSheet* calibrate = CalibrateSheet::Show(shell);
    calibrate->SetInputFiles({shell.dir.file("a.fit")});
    FileOpBusy combine(FileOpKind::Combine);
    shell.notify.messages.clear();
    EXPECT_FALSE(calibrate->Run());
    ASSERT_EQ(shell.notify.messages.size(), 1u);
    EXPECT_EQ(shell.notify.messages[0], "Combine Files/HDR Add Is Currently Busy.");
}

TEST(FileSetSheet, BadOutputIsReportedAndTheRunGoesOn) {
    SheetShell shell;
    const std::vector<std::string> files = shell.ThreeFrames();
    // A folder under the second output's name: that write fails.
    fs::create_directories(shell.dir.file("out/NL_b.fit"));
    NormalizeSheet* sheet = NormalizeSheet::Show(shell);
    Type(sheet, "outputDirectory", shell.dir.file("out").c_str());
    sheet->AddFiles(Q(files));
    ASSERT_TRUE(sheet->Run());
    ASSERT_TRUE(sheet->WaitForRun());
    const FileOpResult& got = sheet->LastResult();
    EXPECT_EQ(Names(got.outputs), (std::vector<std::string>{"NL_a.fit", "NL_c.fit"}));
    EXPECT_EQ(got.end, FileOpEnd::CompletedWithFailures);
    ASSERT_EQ(got.failures.size(), 1u);
    ASSERT_FALSE(shell.notify.messages.empty());
    EXPECT_EQ(shell.notify.messages[0].rfind("Error writing NL_b.fit", 0), 0u)
        << shell.notify.messages[0];
    EXPECT_EQ(TopItems(sheet), std::vector<std::string>{"Normalized Image Set - 2 images"});
}

TEST(FileSetSheet, RefusedFilesAreAskedAboutAndLeftOut) {
    SheetShell shell;
    std::vector<std::string> files = shell.ThreeFrames();
    files.push_back(shell.Fits("small.fit", 8, 8, [](int x, int) { return x; }));
    NormalizeSheet* sheet = NormalizeSheet::Show(shell);
    Type(sheet, "outputDirectory", shell.dir.file("out").c_str());
    sheet->SetInputFiles(files);
    shell.notify.answer = Answer::Cancel;
    EXPECT_FALSE(sheet->Run());
    ASSERT_EQ(shell.notify.questions.size(), 1u);
    EXPECT_EQ(shell.notify.questions[0], NotAllUsableQuestion("normalize"));
    EXPECT_EQ(sheet->status->text(), kThreadCanceledText);

    shell.notify.answer = Answer::Yes; // show the names, then go on
    ASSERT_TRUE(sheet->Run());
    ASSERT_TRUE(sheet->WaitForRun());
    ASSERT_EQ(shell.notify.questions.size(), 2u);
    ASSERT_EQ(shell.notify.messages.size(), 1u);
    EXPECT_EQ(shell.notify.messages[0], "small.fit\n");
    EXPECT_EQ(sheet->LastResult().outputs.size(), 3u);
}

TEST(FileSetSheet, CancelKeepsTheFinishedOutputs) {
    SheetShell shell;
    const std::vector<std::string> files = shell.ThreeFrames();
    fs::create_directories(shell.dir.file("out/NL_b.fit"));
    NormalizeSheet* sheet = NormalizeSheet::Show(shell);
    Type(sheet, "outputDirectory", shell.dir.file("out").c_str());
    sheet->AddFiles(Q(files));
    // The worker waits while its failure is shown: Cancel is pressed then.
    shell.notify.onMessage = [&](const std::string&) { EXPECT_TRUE(Press(sheet, "cancelRun")); };
    ASSERT_TRUE(sheet->Run());
    ASSERT_TRUE(sheet->WaitForRun());
    const FileOpResult& got = sheet->LastResult();
    EXPECT_EQ(got.end, FileOpEnd::Cancelled);
    EXPECT_EQ(Names(got.outputs), std::vector<std::string>{"NL_a.fit"});
    EXPECT_TRUE(fs::exists(shell.dir.file("out/NL_a.fit")));
    EXPECT_FALSE(fs::exists(shell.dir.file("out/NL_c.fit")));
    EXPECT_EQ(sheet->status->text(), kThreadCanceledText);
    EXPECT_EQ(TopItems(sheet), std::vector<std::string>{"Normalized Image Set - 1 images"});
    EXPECT_TRUE(sheet->runButton->isEnabled());
    EXPECT_FALSE(sheet->cancelRunButton->isEnabled());
}

// ---- Combine -------------------------------------------------------------------------------

TEST(FileSetSheet, CombineGivesTheEngineImageForEachMethod) {
    struct Case {
        const char* text;
        CombineMethod method;
        int clipIndex;
    } cases[] = {
        {"Average", CombineMethod::Avg, kDefaultClipFactorIndex},
        {"Sigma Median", CombineMethod::SigMed, 19},
        {"Maximum", CombineMethod::Max, kDefaultClipFactorIndex},
    };
    for (const Case& c : cases) {
        SheetShell shell;
        const std::vector<std::string> files = shell.ThreeFrames();
        CombineSheet* sheet = CombineSheet::Show(shell);
        Select(sheet->method, c.text);
        EXPECT_EQ(sheet->clipFactor->isEnabled(), c.method == CombineMethod::SigMed);
        sheet->clipFactor->setCurrentIndex(c.clipIndex);
        Type(sheet, "combineName", "Stack");
        Select(sheet->saveType, "UNCOMPFIT32");
        Type(sheet, "outputDirectory", shell.dir.file("sheet").c_str());
        sheet->AddFiles(Q(files));
        ASSERT_TRUE(Press(sheet, "run")) << c.text;
        ASSERT_TRUE(sheet->WaitForRun());

        CombineFilesParams params;
        params.files = files;
        params.settings.method = c.method;
        params.settings.clipFactor = ClipFactorChoices()[c.clipIndex];
        params.outDir = shell.dir.file("engine");
        params.name = "Stack";
        params.saveType = "UNCOMPFIT32";
        fs::create_directories(params.outDir);
        CombineFilesOutcome expected;
        ASSERT_TRUE(CombineFiles(params, nullptr, &expected));
        const FileOpResult& got = sheet->LastResult();
        ASSERT_EQ(got.outputs.size(), 1u) << c.text;
        EXPECT_EQ(fs::path(got.outputs[0]).filename(), "Stack.fit");
        ExpectSameFile(got.outputs[0], expected.output);
        EXPECT_EQ(sheet->status->text(), " 3 Images");
        EXPECT_EQ(TopItems(sheet),
                  std::vector<std::string>{"1 Output Files : Combine Files/HDR Add"});
        EXPECT_TRUE(shell.notify.messages.empty()) << shell.notify.messages.front();
    }
}

TEST(FileSetSheet, CombineRefusesABadNameAndTooFewUsableFiles) {
    SheetShell shell;
    std::vector<std::string> files = shell.ThreeFrames();
    CombineSheet* sheet = CombineSheet::Show(shell);
    sheet->SetInputFiles(files);
    Type(sheet, "combineName", "a<b");
    EXPECT_FALSE(sheet->Run());
    ASSERT_EQ(shell.notify.messages.size(), 1u);
    EXPECT_EQ(shell.notify.messages[0], CombineNameError("a<b"));

    shell.notify.messages.clear();
    Type(sheet, "combineName", "Stack");
    sheet->SetInputFiles({files[0], shell.Fits("other.fit", 8, 8, [](int, int) { return 1; })});
    EXPECT_FALSE(sheet->Run());
    ASSERT_EQ(shell.notify.messages.size(), 1u);
    EXPECT_EQ(shell.notify.messages[0],
              "The image file combine operation requires more than one usable image.\nPlease "
              "select at least two compatible images.");
}

// ---- Calibrate -----------------------------------------------------------------------------

TEST(FileSetSheet, CalibrateGivesTheEngineFilesWithTheSetupOfTheDialog) {
    SheetShell shell;
    const std::string dark =
        shell.Fits("dark.fit", 16, 12, [](int x, int y) { return 100 + x + y; });
    const std::string flat =
        shell.Fits("flat.fit", 16, 12, [](int x, int) { return 20000 + 300 * x; });
    const std::vector<std::string> lights = {
        shell.Fits("l1.fit", 16, 12, [](int x, int y) { return 5000 + 50 * x + 9 * y; }),
        shell.Fits("l2.fit", 16, 12, [](int x, int y) { return 7000 + 20 * x + 30 * y; })};

    CalibrateSheet* sheet = CalibrateSheet::Show(shell);
    ASSERT_TRUE(Press(sheet, "calibrationSetup"));
    CalibrationSetupDialog* dialog = CalibrationSetupDialog::Open();
    ASSERT_NE(dialog, nullptr);
    Select(dialog->colorModel, "MONO");
    Type(dialog, "darkPath", dark.c_str());
    Type(dialog, "flatPath", flat.c_str());
    EXPECT_TRUE(dialog->useFrame[static_cast<int>(SystemFrame::Dark)]->isChecked());
    EXPECT_EQ(dialog->frameSize->text(), "Calibration Frame Size: 16 x 12");
    Type(dialog, "darkFactor", "0.800");

    // While the setup is open Calibrate waits.
    sheet->SetInputFiles(lights);
    Type(sheet, "outputDirectory", shell.dir.file("sheet").c_str());
    EXPECT_FALSE(sheet->Run());
    ASSERT_EQ(shell.notify.messages.size(), 1u);
    EXPECT_EQ(shell.notify.messages[0], "Please Close Calibration Setup Before Using Calibrate.");
    shell.notify.messages.clear();

    ASSERT_TRUE(Press(dialog, "ok"));
    delete CalibrationSetupDialog::Open(); // closed dialogs go later; now for the test
    ASSERT_EQ(CalibrationSetupDialog::Open(), nullptr);
    const CalibrationSetup setup = ProgramCalibrationSetup();
    EXPECT_EQ(setup.darkPath, dark);
    EXPECT_DOUBLE_EQ(setup.darkFactor, 0.8);

    ASSERT_TRUE(sheet->Run());
    ASSERT_TRUE(sheet->WaitForRun());

    CalibrateRequest request;
    request.files = lights;
    request.outputDirectory = shell.dir.file("engine");
    request.setup = setup;
    const CalibrateResult expected = CalibrateFiles(request, nullptr, nullptr);
    ASSERT_EQ(expected.run.outputs.size(), 2u);
    const FileOpResult& got = sheet->LastResult();
    ASSERT_EQ(Names(got.outputs), (std::vector<std::string>{"C_l1.fit", "C_l2.fit"}));
    for (std::size_t i = 0; i < 2; ++i)
        ExpectSameFile(got.outputs[i], expected.run.outputs[i]);
    EXPECT_EQ(sheet->status->text().toStdString(), expected.run.status);
    EXPECT_EQ(TopItems(sheet), std::vector<std::string>{"Calibrated Image Set - 2 images"});
    EXPECT_TRUE(shell.notify.messages.empty());

    // The next sheet takes these outputs as its input.
    ASSERT_TRUE(Press(sheet, "nextNormalize"));
    auto* normalize = dynamic_cast<NormalizeSheet*>(ToolFrame::Find(NormalizeSheet::kClassName));
    ASSERT_NE(normalize, nullptr);
    EXPECT_EQ(normalize->InputFiles(), got.outputs);
    ProgramCalibrationSetup() = CalibrationSetup{};
}

TEST(FileSetSheet, CalibrateWithoutAColourModelSaysSo) {
    SheetShell shell;
    ProgramCalibrationSetup() = CalibrationSetup{};
    CalibrateSheet* sheet = CalibrateSheet::Show(shell);
    sheet->SetInputFiles(shell.ThreeFrames());
    EXPECT_FALSE(sheet->Run());
    ASSERT_EQ(shell.notify.messages.size(), 1u);
    EXPECT_EQ(shell.notify.messages[0], kCalibrateNoModelText);
}

TEST(FileSetSheet, SetupDialogKeepsTheAdaptiveChoicesApart) {
    SheetShell shell;
    ProgramCalibrationSetup() = CalibrationSetup{};
    CalibrationSetupDialog* dialog = CalibrationSetupDialog::Show(shell);
    dialog->adaptiveWithoutDark->setChecked(true);
    EXPECT_FALSE(dialog->autoDark->isEnabled());
    dialog->adaptiveWithDark->setChecked(true);
    EXPECT_FALSE(dialog->adaptiveWithoutDark->isChecked());
    EXPECT_TRUE(dialog->autoDark->isEnabled());
    dialog->autoDark->setChecked(true);
    EXPECT_FALSE(dialog->adaptiveWithoutDark->isEnabled());
    EXPECT_FALSE(dialog->darkFactor->isEnabled());
    Select(dialog->adaptiveLevel, "Very Aggressive");
    EXPECT_EQ(dialog->Edited().adaptiveLevel, "Highest");
    ASSERT_TRUE(Press(dialog, "clearAll"));
    EXPECT_FALSE(dialog->Edited().adaptiveWithDark);
    EXPECT_EQ(dialog->Edited().adaptiveLevel, "Normal");
}

// ---- menu ----------------------------------------------------------------------------------

TEST(FileSetSheet, EachSheetOpensFromItsMenuCommand) {
    ToolTestApp();
    ScratchDir dir;
    const std::string home = std::getenv("HOME") ? std::getenv("HOME") : "";
    const CSetupParams kept = Options().setup;
    fs::create_directories(dir.file("home"));
    setenv("HOME", dir.file("home").c_str(), 1);
    {
        MainFrame frame(dir.file("config/QXSP600.qxp"));
        frame.Notifier().SetRecording(true);
        for (const FileSetSheetEntry& entry : FileSetSheets()) {
            QAction* action = frame.Action(entry.objectName);
            ASSERT_NE(action, nullptr) << entry.objectName.toStdString();
            action->trigger();
            QWidget* open = nullptr;
            for (QWidget* w : QApplication::topLevelWidgets())
                if (w->isVisible() && entry.asFrame && entry.asFrame(w))
                    open = w;
            ASSERT_NE(open, nullptr) << entry.objectName.toStdString();
            open->close();
            QApplication::processEvents();
        }
        QAction* setup = frame.Action("actionCalibrationSetup");
        ASSERT_NE(setup, nullptr);
        setup->trigger();
        EXPECT_NE(CalibrationSetupDialog::Open(), nullptr);
        delete CalibrationSetupDialog::Open();
        ToolFrame::CloseAll();
    }
    setenv("HOME", home.c_str(), 1);
    Options().setup = kept;
}

} // namespace
} // namespace astrivelle::test
