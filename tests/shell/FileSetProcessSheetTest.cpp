// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Automatic Image Set Process sheet run offscreen: its controls give the saved
/// parameter record and a reopened sheet shows it again; a small mono night run through the
/// sheet gives the steps, states, summary and stacked pixels of the engine run, the step list
/// filling while the run goes and the frame pages locked until it ends; refusals say their
/// texts without starting; cancel ends with "Processing Canceled"; the menu command opens it.
#include "ToolFrameTestSupport.h"

#include <QAction>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QRadioButton>
#include <QTabWidget>
#include <QTreeWidget>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <random>

#include "calibration/CalibrationSetup.h"
#include "engine/SystemOptions.h"
#include "imagesets/FileSetProcess.h"
#include "imagesets/FileSetRules.h"
#include "shell/CalibrationSetupDialog.h"
#include "shell/FileSetProcessSheet.h"
#include "shell/FileSetSheets.h"

namespace astrivelle::test {
namespace {

namespace fs = std::filesystem;

/// A desktop context whose program calibration setup and saved records are put back after.
class AutoShell : public ToolTestShell {
public:
    AutoShell() : keptSetup_(ProgramCalibrationSetup()), keptRecords_(Options().setup.records) {
        FileOpLists().Clear();
        ProgramCalibrationSetup() = CalibrationSetup();
    }
    ~AutoShell() override {
        ToolFrame::CloseAll();
        delete CalibrationSetupDialog::Open();
        FileOpLists().Clear();
        ProgramCalibrationSetup() = keptSetup_;
        Options().setup.records = keptRecords_;
    }

    /// A mono frame of `level` with noise and one star at (20, 15), written as 16-bit FITS.
    std::string Frame(const std::string& name, float level, unsigned seed, int w = 64, int h = 64) {
        std::mt19937 rng(seed);
        std::normal_distribution<float> noise(0.0f, 20.0f);
        Image img;
        test::MakeImage(img, w, h, ColorGray, [&](int, int x, int y) {
            const float dx = x - 20.0f, dy = y - 15.0f;
            return level + noise(rng) + 8000.0f * std::exp(-(dx * dx + dy * dy) / 4.0f);
        });
        const std::string path = dir.file(name);
        EXPECT_TRUE(img.WriteFile(path, KindFITS)) << path;
        return path;
    }
    std::vector<std::string> Frames(const std::string& stem, int n, float level, unsigned seed) {
        std::vector<std::string> out;
        for (int i = 0; i < n; ++i)
            out.push_back(Frame(stem + std::to_string(i) + ".fit", level, seed + i));
        return out;
    }

private:
    CalibrationSetup keptSetup_;
    std::map<std::string, std::string> keptRecords_;
};

QStringList Q(const std::vector<std::string>& paths) {
    QStringList list;
    for (const std::string& p : paths)
        list << QString::fromStdString(p);
    return list;
}

/// The rows of the step list as "name|detail|state".
std::vector<std::string> Rows(const FileSetProcessSheet* sheet) {
    std::vector<std::string> rows;
    for (int i = 0; i < sheet->stepList->topLevelItemCount(); ++i) {
        const QTreeWidgetItem* item = sheet->stepList->topLevelItem(i);
        rows.push_back((item->text(0) + "|" + item->text(1) + "|" + item->text(2)).toStdString());
    }
    return rows;
}

std::vector<std::string> Rows(const std::vector<CFileSetOpElement>& steps) {
    std::vector<std::string> rows;
    for (const CFileSetOpElement& s : steps)
        rows.push_back(s.name + "|" + s.detail + "|" + s.state);
    return rows;
}

bool PagesEnabled(FileSetProcessSheet* sheet) {
    for (FrameKind k :
         {FrameKind::Light, FrameKind::Dark, FrameKind::Flat, FrameKind::FlatDark, FrameKind::Bias})
        if (!sheet->Page(k).page->isEnabled())
            return false;
    return true;
}

bool PagesDisabled(FileSetProcessSheet* sheet) {
    for (FrameKind k :
         {FrameKind::Light, FrameKind::Dark, FrameKind::Flat, FrameKind::FlatDark, FrameKind::Bias})
        if (sheet->Page(k).page->isEnabled())
            return false;
    return true;
}

template <class T> T* Child(QWidget* parent, const char* name) {
    T* w = parent->findChild<T*>(name);
    EXPECT_NE(w, nullptr) << name;
    return w;
}

void Check(QWidget* sheet, const char* name, bool on) {
    if (auto* c = Child<QCheckBox>(sheet, name))
        c->setChecked(on);
}
void Pick(QWidget* sheet, const char* name) {
    if (auto* r = Child<QRadioButton>(sheet, name))
        r->setChecked(true);
}

// ---- controls and the saved record ---------------------------------------------------------

TEST(FileSetProcessSheet, ControlsGiveTheSavedRecordAndAReopenedSheetShowsIt) {
    struct Case {
        const char* what;
        std::function<void(FileSetProcessSheet*)> set; ///< what the user does
        std::function<void(CAutoProcessParams&)> want; ///< the record it must give
    };
    const std::vector<Case> cases = {
        {"untouched controls are the defaults", [](FileSetProcessSheet*) {},
         [](CAutoProcessParams&) {}},
        {"OSC with every light step and its choices",
         [](FileSetProcessSheet* s) {
             Pick(s, "typeOsc");
             Select(s->colorConversion, "Bayer Basic Raw");
             Select(s->frameType, "RGB Generic + (1,0) - GR,BG");
             Select(s->bayerOutput, "Green");
             Pick(s, "saveFloat");
             Check(s, "extraFilters", true);
             Check(s, "smoothing", true);
             Select(s->aggressiveness, "Very Aggressive");
             Check(s, "normalize", true);
             Pick(s, "normalizeUser");
             TypeField(s->background, "1234.5");
             TypeField(s->deviation, "900");
             Check(s, "setDeviation", true);
             Check(s, "grade", true);
             Pick(s, "percentEcc");
             Select(s->percentValue, " 35% ");
             Check(s, "align", true);
             Check(s, "mirrorFlip", true);
             Check(s, "smallStars", true);
             TypeField(s->clipFactor, "1.85");
             Check(s, "minimizeDisk", true);
             Check(s, "displayCombination", true);
             Check(s, "normalizeFlats", true);
             Check(s, "autoDarkMatch", true);
             Check(s, "adaptiveWithoutDark", true);
             Select(s->adaptiveLevel, "Aggressive");
             Select(s->Page(FrameKind::Dark).method, "Sigma Clip Median");
             Select(s->Page(FrameKind::Light).method, "Excluded Min/Max Average");
             TypeField(s->Page(FrameKind::Light).name, "Night1");
         },
         [](CAutoProcessParams& p) {
             p.processType = "OSCCCD";
             p.colorType = "BASICBAYER";
             p.frameType = "RGB Generic + (1,0) - GR,BG";
             p.cfaPattern = "GR,BG";
             p.bayerOutput = "GREEN";
             p.saveType = "COMPFIT32";
             p.filters = true;
             p.filterSmoothing = true;
             p.aggressiveness = "Very Aggressive";
             p.normalize = "USER";
             p.normalizeBackground = 1234.5;
             p.normalizeDeviation = 900;
             p.normalizeSetDeviation = true;
             p.grade = "PERCENTECC";
             p.gradePercent = 35;
             p.align = "AUTOSTAR";
             p.mirrorFlip = true;
             p.smallStars = true;
             p.clipFactor = 1.85;
             p.minimizeDisk = true;
             p.displayCombination = true;
             p.normalizeFlats = true;
             p.autoDarkMatch = true;
             p.adaptiveWithoutDark = true;
             p.adaptiveLevel = "Aggressive";
             p.darks.method = "SIGMED";
             p.lights.method = "EXCAVG";
             p.lights.name = "Night1";
         }},
        {"DSLR, quick alignment, minimum target, eccentricity limit, no stack",
         [](FileSetProcessSheet* s) {
             Pick(s, "typeDslr");
             Select(s->colorConversion, "Color At Capture WB");
             Pick(s, "saveTiff16");
             Check(s, "normalize", true);
             Pick(s, "normalizeMin");
             Check(s, "grade", true);
             Pick(s, "maxEcc");
             Select(s->maxEccValue, " 0.35");
             Check(s, "align", true);
             Check(s, "quickAlign", true);
             Check(s, "meridianFlip", true);
             Check(s, "wideRange", true);
             Check(s, "combine", false);
             Select(s->Page(FrameKind::Bias).method, "Adaptive Addition");
             TypeField(s->Page(FrameKind::FlatDark).name, "FD");
         },
         [](CAutoProcessParams& p) {
             p.processType = "DSLR";
             p.colorType = "COLOR";
             p.saveType = "TIFF16";
             p.normalize = "MIN";
             p.grade = "MAXECC";
             p.gradeMaxEccentricity = 0.35;
             p.align = "QUICK";
             p.meridianFlip = true;
             p.wideRange = true;
             p.combine = false;
             p.bias.method = "ADPADD";
             p.flatDarks.name = "FD";
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        AutoShell shell;
        // One file in two lists: the run is refused after the record was saved.
        const std::string light = shell.Frame("l.fit", 2000, 1);
        const std::string other = shell.Frame("o.fit", 2000, 2);
        CAutoProcessParams want;
        want.lights.files = {light, other};
        want.darks.files = {other};
        want.outputDirectory = shell.dir.file("out");
        c.want(want);

        FileSetProcessSheet* sheet = FileSetProcessSheet::Show(shell);
        ASSERT_NE(sheet, nullptr);
        sheet->AddFiles(FrameKind::Light, Q({light, other}));
        sheet->AddFiles(FrameKind::Dark, Q({other}));
        EXPECT_EQ(sheet->Page(FrameKind::Light).count->text(), "2 Files");
        TypeField(sheet->outputDirectory, want.outputDirectory.c_str());
        c.set(sheet);
        ASSERT_TRUE(Press(sheet, "process"));
        EXPECT_FALSE(sheet->Running());
        ASSERT_EQ(shell.setup.records.count(kFileSetProcessRecord), 1u);
        EXPECT_EQ(shell.setup.records[kFileSetProcessRecord], FormatAutoProcessParams(want));

        // A new sheet shows the record: its controls give the same text again.
        sheet->close();
        delete sheet;
        FileSetProcessSheet* again = FileSetProcessSheet::Show(shell);
        ASSERT_NE(again, nullptr);
        EXPECT_EQ(again->Files(FrameKind::Light), want.lights.files);
        CAutoProcessParams shown;
        ASSERT_TRUE(again->ReadParams(&shown));
        EXPECT_EQ(FormatAutoProcessParams(shown), FormatAutoProcessParams(want));
    }
}

TEST(FileSetProcessSheet, MonoCcdFixesTheColourControls) {
    AutoShell shell;
    FileSetProcessSheet* sheet = FileSetProcessSheet::Show(shell);
    EXPECT_TRUE(sheet->typeMono->isChecked()) << "the default process type is Mono. CCD";
    EXPECT_FALSE(sheet->colorConversion->isEnabled());
    EXPECT_FALSE(sheet->frameType->isEnabled());
    EXPECT_EQ(sheet->frameType->itemText(0), "RGB Geberic - RG,GB");
    EXPECT_EQ(sheet->percentValue->itemText(0), " 95% ");
    EXPECT_EQ(sheet->percentValue->itemText(sheet->percentValue->count() - 1), "  5% ");
    sheet->typeOsc->setChecked(true);
    EXPECT_TRUE(sheet->colorConversion->isEnabled());
    EXPECT_TRUE(sheet->frameType->isEnabled());
    Select(sheet->colorConversion, "Color At Capture WB");
    EXPECT_FALSE(sheet->frameType->isEnabled()) << "no Bayer array for colour data";
    // Texts of the light page's switches, spaces included.
    for (const char* text : {"Extra Filters  -->", "Normalize  -->", "Grade -->", "Align -->",
                             "Combine", "Minimize Hard Drive Use ", "Display Combination"}) {
        bool found = false;
        for (QCheckBox* c : sheet->Page(FrameKind::Light).page->findChildren<QCheckBox*>())
            found = found || c->text() == text;
        EXPECT_TRUE(found) << "'" << text << "'";
    }
    const QStringList tabs = {"Light Frames", "Dark Frames", "Flat Frames", "Flat Dark Frames",
                              "Bias Frames"};
    for (int i = 0; i < tabs.size(); ++i)
        EXPECT_EQ(sheet->pages->tabText(i), tabs[i]);
}

// ---- a run ---------------------------------------------------------------------------------

TEST(FileSetProcessSheet, MonoNightGivesTheEngineStepsAndStackWhileThePagesAreLocked) {
    AutoShell shell;
    const std::vector<std::string> lights = shell.Frames("light", 3, 3400, 10);
    const std::vector<std::string> darks = shell.Frames("dark", 2, 400, 20);
    const std::vector<std::string> flats = shell.Frames("flat", 2, 20000, 30);

    FileSetProcessSheet* sheet = FileSetProcessSheet::Show(shell);
    sheet->AddFiles(FrameKind::Light, Q(lights));
    sheet->AddFiles(FrameKind::Dark, Q(darks));
    sheet->AddFiles(FrameKind::Flat, Q(flats));
    TypeField(sheet->outputDirectory, shell.dir.file("sheet").c_str());
    sheet->displayCombination->setChecked(true);
    CAutoProcessParams params;
    ASSERT_TRUE(sheet->ReadParams(&params));

    // Rows whose state was shown while the run still went.
    std::vector<std::string> live;
    QObject::connect(sheet->stepList, &QTreeWidget::itemChanged, sheet,
                     [&](QTreeWidgetItem* item, int column) {
                         // Before the end of the run rewrites the rows.
                         if (column == 2 && sheet->Running() && sheet->LastResult().steps.empty() &&
                             !item->text(2).isEmpty())
                             live.push_back((item->text(0) + "|" + item->text(2)).toStdString());
                     });

    ASSERT_TRUE(Press(sheet, "process"));
    EXPECT_TRUE(sheet->Running());
    EXPECT_TRUE(PagesDisabled(sheet)) << "the frame pages are locked while the run lasts";
    EXPECT_FALSE(sheet->processButton->isEnabled());
    EXPECT_TRUE(sheet->cancelRunButton->isEnabled());
    const std::vector<std::string> queued = {
        "Combine Dark Frames|Median - 2 Files|", "Set Dark Frame|MasterDark.fit|",
        "Combine Flat Frames|Median - 2 Files|", "Set Flat Frame|MasterFlat.fit|",
        "Calibrate Light Frames|3 Files|",       "Combine Light Frames|Average|"};
    EXPECT_EQ(Rows(sheet), queued) << "the queue is shown before its first step ends";

    ASSERT_TRUE(sheet->WaitForRun());
    EXPECT_TRUE(PagesEnabled(sheet));
    EXPECT_TRUE(sheet->processButton->isEnabled());
    EXPECT_FALSE(sheet->cancelRunButton->isEnabled());
    const FileSetRunResult& got = sheet->LastResult();
    ASSERT_TRUE(got.ok) << got.text;
    EXPECT_EQ(sheet->status->text(), "Completed");
    EXPECT_NE(std::find(live.begin(), live.end(), "Combine Dark Frames|Completed"), live.end())
        << "the step list fills as the run goes";

    // The same parameters straight through the engine, into another folder.
    CAutoProcessParams direct = params;
    direct.outputDirectory = shell.dir.file("direct");
    CalibrationSetup setup;
    std::vector<std::string> told;
    const FileSetRunResult want = RunFileSetProcess(
        direct, nullptr, nullptr, &setup, false, [&](std::size_t i, const CFileSetOpElement& s) {
            told.push_back(std::to_string(i) + " " + s.name + (s.state.empty() ? "" : " - ") +
                           s.state);
        });
    ASSERT_TRUE(want.ok) << want.text;
    EXPECT_EQ(Rows(sheet), Rows(want.steps));
    EXPECT_EQ(Rows(got.steps), Rows(want.steps));
    EXPECT_EQ(sheet->summary->toPlainText().toStdString(), want.summary);
    EXPECT_EQ(told.front(), "0 Combine Dark Frames");
    EXPECT_EQ(told[1], "0 Combine Dark Frames - Completed");
    EXPECT_EQ(told.back(), "5 Combine Light Frames - Completed");
    EXPECT_EQ(told.size(), 12u) << "each step told as it starts and as it ends";

    Image a, b;
    ASSERT_TRUE(a.ReadFile(got.combined, ".fit")) << got.combined;
    ASSERT_TRUE(b.ReadFile(want.combined, ".fit")) << want.combined;
    EXPECT_EQ(got.combined, fs::path(shell.dir.file("sheet/Combined.fit")).string());
    ASSERT_EQ(a.pixelCount, b.pixelCount);
    for (std::uint32_t i = 0; i < a.pixelCount; ++i)
        ASSERT_EQ(a.curPlane[0][i], b.curPlane[0][i]) << "at " << i;
    // 3400 less the 400 dark, over a flat normalized to its own level.
    EXPECT_NEAR(a.curPlane[0][40 * 64 + 50], 3000.0f, 80.0f);

    // The set steps chose the program's system frames, kept with the settings.
    EXPECT_EQ(ProgramCalibrationSetup().darkPath,
              fs::path(shell.dir.file("sheet/MasterDark.fit")).string());
    EXPECT_TRUE(ProgramCalibrationSetup().useFlat);
    EXPECT_EQ(Options().setup.records[kCalibrationSetupRecord],
              FormatCalibrationSetup(ProgramCalibrationSetup()));
    // "Display Combination": the stack is open in the workbench.
    CProcessWindow* shown = shell.model.ActiveImage();
    ASSERT_NE(shown, nullptr);
    ASSERT_EQ(shown->image.pixelCount, a.pixelCount);
    for (std::uint32_t i = 0; i < a.pixelCount; ++i)
        ASSERT_EQ(shown->image.curPlane[0][i], a.curPlane[0][i]) << "at " << i;
}

TEST(FileSetProcessSheet, CancelEndsWithProcessingCanceledAndUnlocksThePages) {
    AutoShell shell;
    FileSetProcessSheet* sheet = FileSetProcessSheet::Show(shell);
    sheet->AddFiles(FrameKind::Light, Q(shell.Frames("light", 3, 2000, 40)));
    sheet->AddFiles(FrameKind::Dark, Q(shell.Frames("dark", 2, 400, 50)));
    TypeField(sheet->outputDirectory, shell.dir.file("out").c_str());
    ASSERT_TRUE(Press(sheet, "process"));
    ASSERT_TRUE(Press(sheet, "cancelRun"));
    ASSERT_TRUE(sheet->WaitForRun());
    EXPECT_TRUE(sheet->LastResult().cancelled);
    EXPECT_EQ(sheet->status->text(), "Processing Canceled");
    EXPECT_TRUE(PagesEnabled(sheet));
    EXPECT_FALSE(fs::exists(shell.dir.file("out/Combined.fit")));
    const std::vector<std::string> rows = Rows(sheet);
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_NE(rows.back(), "Combine Light Frames|Average|Completed");
    // A run after the cancel goes to the end.
    ASSERT_TRUE(Press(sheet, "process"));
    ASSERT_TRUE(sheet->WaitForRun());
    EXPECT_EQ(sheet->status->text(), "Completed");
    EXPECT_TRUE(fs::exists(shell.dir.file("out/Combined.fit")));
}

// ---- refusals ------------------------------------------------------------------------------

TEST(FileSetProcessSheet, RefusalsSayTheirTextsAndStartNothing) {
    struct Case {
        const char* what;
        std::function<void(AutoShell&, FileSetProcessSheet*)> set;
        std::string text;
    };
    const std::string forbidden = std::string("A light frame combination name can't contain any "
                                              "of the following characters:\n") +
                                  std::string(30, ' ') + kPrefixForbiddenChars;
    const std::vector<Case> cases = {
        {"a file in two lists",
         [](AutoShell& s, FileSetProcessSheet* sheet) {
             const std::string f = s.Frame("twice.fit", 500, 3);
             sheet->AddFiles(FrameKind::Dark, Q({f}));
         },
         "Some selected dark frames are contained in the light frame list."},
        {"raw files under Mono. CCD",
         [](AutoShell& s, FileSetProcessSheet* sheet) {
             sheet->AddFiles(FrameKind::Bias, Q({s.dir.file("bias.cr2")}));
         },
         "Digital raw bias files are not compatible with the selected Image Set Process Type of "
         "CCD."},
        {"a forbidden character in the stack's name",
         [](AutoShell&, FileSetProcessSheet* sheet) {
             TypeField(sheet->Page(FrameKind::Light).name, "Night*1");
         },
         forbidden},
        {"the Calibration Setup window open",
         [](AutoShell& s, FileSetProcessSheet*) { CalibrationSetupDialog::Show(s); },
         "Please close Calibration Setup before using auto process calibration setup."},
        {"a clip factor that is not a number",
         [](AutoShell&, FileSetProcessSheet* sheet) { TypeField(sheet->clipFactor, "2.x"); },
         "Please Enter a Real Number."},
        {"another automatic run going", [](AutoShell&, FileSetProcessSheet*) {},
         "Auto Image Set Processing Is Currently Busy."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        AutoShell shell;
        FileSetProcessSheet* sheet = FileSetProcessSheet::Show(shell);
        const std::string light = shell.Frame("twice.fit", 2000, 3);
        sheet->AddFiles(FrameKind::Light, Q({light}));
        TypeField(sheet->outputDirectory, shell.dir.file("out").c_str());
        c.set(shell, sheet);
        std::optional<FileOpBusy> other;
        if (c.text == BusyText(FileOpKind::Automatic))
            other.emplace(FileOpKind::Automatic);
        EXPECT_FALSE(sheet->Process());
        EXPECT_FALSE(sheet->Running());
        EXPECT_EQ(shell.LastMessage(), c.text);
        EXPECT_EQ(sheet->status->text().toStdString(), c.text);
        EXPECT_EQ(sheet->stepList->topLevelItemCount(), 0);
        EXPECT_TRUE(PagesEnabled(sheet));
        EXPECT_FALSE(fs::exists(shell.dir.file("out/Combined.fit")));
        delete CalibrationSetupDialog::Open();
    }
}

TEST(FileSetProcessSheet, UnreadableFramesAskAndDoNotStart) {
    AutoShell shell;
    FileSetProcessSheet* sheet = FileSetProcessSheet::Show(shell);
    const std::string bad = shell.dir.file("notanimage.fit");
    { std::ofstream(bad) << "not a FITS file"; }
    sheet->AddFiles(FrameKind::Light, Q({shell.Frame("l.fit", 2000, 4), bad}));
    TypeField(sheet->outputDirectory, shell.dir.file("out").c_str());
    shell.notify.answer = Answer::Yes;
    EXPECT_FALSE(sheet->Process());
    const std::string text = "All light frames and other selected frames must be the same size "
                             "and their\ncolor type must match the selected Image Set Process "
                             "Type.";
    ASSERT_EQ(shell.notify.questions.size(), 1u);
    EXPECT_EQ(shell.notify.questions[0].substr(0, text.size()), text);
    EXPECT_EQ(shell.LastMessage(), "notanimage.fit\n") << "Yes lists the files not used";
    EXPECT_EQ(sheet->status->text().toStdString(), text);
    EXPECT_FALSE(sheet->Running());
}

TEST(FileSetProcessSheet, NoCommandsIsSaidForAnEmptyQueue) {
    AutoShell shell;
    FileSetProcessSheet* sheet = FileSetProcessSheet::Show(shell);
    sheet->AddFiles(FrameKind::Light, Q({shell.Frame("l.fit", 2000, 5)}));
    sheet->combine->setChecked(false);
    TypeField(sheet->outputDirectory, shell.dir.file("out").c_str());
    ASSERT_TRUE(Press(sheet, "process"));
    ASSERT_TRUE(sheet->WaitForRun());
    EXPECT_EQ(sheet->status->text(), "No Commands To Process.");
    EXPECT_EQ(sheet->stepList->topLevelItemCount(), 0);
}

// ---- menu ----------------------------------------------------------------------------------

TEST(FileSetProcessSheet, OpensFromTheImageSetsMenu) {
    AutoShell shell;
    QMenu menu;
    BuildFileSetMenu(&menu, shell);
    QAction* action = menu.findChild<QAction*>("actionFileSetProcess");
    ASSERT_NE(action, nullptr);
    EXPECT_EQ(action->text(), "&Automatic Image Set Process...");
    action->trigger();
    auto* sheet = dynamic_cast<FileSetProcessSheet*>(ToolFrame::Find("CFileSetProcess"));
    ASSERT_NE(sheet, nullptr);
    EXPECT_TRUE(sheet->isVisible());
    action->trigger();
    EXPECT_EQ(ToolFrame::Find("CFileSetProcess"), sheet) << "one sheet at a time";
}

} // namespace
} // namespace astrivelle::test
