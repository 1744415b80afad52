// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The process history tool driven through its controls on an image opened through the
/// model: rows and marks, undo and redo by the buttons, the opacity slider, the blend mode
/// list, copy, paste and delete of commands, forward processing, print text and project save.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <QSpinBox>

#include <filesystem>
#include <fstream>

#include "ToolFrameTestSupport.h"
#include "engine/workbench/History.h"
#include "engine/workbench/Project.h"
#include "shell/BlendControls.h"
#include "shell/HistoryTool.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

constexpr int kW = 6, kH = 4;

float Origin(int s, int x, int y) {
    return static_cast<float>(1000 + 100 * x + 10 * y + 3000 * s);
}

/// A test shell with one image read from M31.fit through the model, and the history tool.
struct HistoryBench : ToolTestShell {
    CProcessWindow* w = nullptr;
    CProcessHistory* tool = nullptr;

    explicit HistoryBench(bool color = false) {
        Image img;
        astrivelle::test::MakeImage(img, kW, kH, color ? ColorRGB : ColorGray, Origin);
        img.fitsCompress = false;
        const std::string path = dir.file("M31.fit");
        EXPECT_TRUE(img.WriteFile(path, KindFITS));
        w = model.OpenImageFile(path);
        EXPECT_NE(w, nullptr) << LastMessage();
    }
    CProcessHistory* Open() {
        tool = CProcessHistory::Show(*this);
        return tool;
    }
    /// The shown sample at (x, y) of the first slot.
    float Pixel(int x = 0, int y = 0) const {
        const int s = w->image.Slots().front();
        return w->image.curPlane[s][y * kW + x];
    }
    std::vector<std::string> Rows() const {
        std::vector<std::string> rows;
        for (int i = 0; i < tool->rowList->count(); ++i)
            rows.push_back(tool->rowList->item(i)->text().toStdString());
        return rows;
    }
    std::vector<std::string> Details() const {
        std::vector<std::string> rows;
        for (int i = 0; i < tool->detailList->count(); ++i)
            rows.push_back(tool->detailList->item(i)->text().toStdString());
        return rows;
    }
    void Select(std::initializer_list<int> rows) {
        tool->rowList->clearSelection();
        for (int row : rows)
            tool->rowList->item(row)->setSelected(true);
    }
    bool Add(double constant) { return w->PixelMathAdd(false, constant, 0, 65535, 0); }
    /// A new step after the shown one: the step before is made final first (as closing its
    /// tool does), so that the same operator does not replace it.
    bool NextAdd(double constant) {
        w->pending = false;
        return Add(constant);
    }
    bool NextMultiply(double factor) {
        w->pending = false;
        return w->PixelMathMultiply(factor, 0, 65535, 0);
    }
    /// Tells the tool the history changed, as the main frame does.
    void Changed() { CProcessHistory::ReloadIfOpen(); }
};

/// Processes events until `done` holds or `ms` passed.
bool WaitFor(const std::function<bool()>& done, int ms = 5000) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    return done();
}

} // namespace

TEST(HistoryTool, RowsCarryTheShownAndBrokenMarksAndTheDetailsOfTheShownStep) {
    HistoryBench b;
    ASSERT_TRUE(b.w);
    ASSERT_TRUE(b.Open());
    EXPECT_EQ(b.tool->windowTitle().toStdString(), "Process History - M31.fit");
    EXPECT_EQ(b.Rows(), (std::vector<std::string>{">>Read"}));

    ASSERT_TRUE(b.Add(100));
    b.Changed();
    EXPECT_EQ(b.Rows(), (std::vector<std::string>{"Read", ">>Pixel Math"}));
    EXPECT_EQ(b.tool->rowList->currentRow(), 1);
    const std::vector<std::string> details = b.Details();
    ASSERT_GE(details.size(), 3u);
    EXPECT_EQ(details[0], "Previous Image File : " + b.dir.file("M31.fit"));
    EXPECT_EQ(details[1].rfind("Current Image File : ", 0), 0u);
    EXPECT_NE(std::find(details.begin(), details.end(), "Constant: 100.000"), details.end());
    EXPECT_NE(b.tool->rowList->item(0)->foreground().color(), QColor(200, 0, 0));

    // Undo, redo, then a second Pixel Math on the step shown before the first: the new step
    // goes in after "Read" and the old one no longer chains to the row above it.
    ASSERT_TRUE(Press(b.tool, "undo"));
    ASSERT_TRUE(Press(b.tool, "redo"));
    EXPECT_EQ(b.Rows(), (std::vector<std::string>{"Read", ">>Pixel Math"}));
    ASSERT_TRUE(Press(b.tool, "undo"));
    ASSERT_TRUE(b.w->PixelMathMultiply(2.0, 0, 65535, 0));
    b.Changed();
    EXPECT_EQ(b.Rows(), (std::vector<std::string>{"Read", ">>Pixel Math", "~~ Pixel Math"}));
    for (int row = 0; row < 3; ++row)
        EXPECT_EQ(b.tool->rowList->item(row)->foreground().color(), QColor(200, 0, 0)) << row;
    EXPECT_FLOAT_EQ(b.Pixel(2, 1), 2 * Origin(0, 2, 1));
}

TEST(HistoryTool, UndoRedoAndDoubleClickMoveThePixelsAndTheSelectedRow) {
    HistoryBench b;
    ASSERT_TRUE(b.w);
    ASSERT_TRUE(b.Add(100));
    ASSERT_TRUE(b.NextMultiply(2.0));
    ASSERT_TRUE(b.Open());
    EXPECT_EQ(b.Rows(), (std::vector<std::string>{"Read", "Pixel Math", ">>Pixel Math"}));
    const float origin = Origin(0, 3, 2);
    EXPECT_FLOAT_EQ(b.Pixel(3, 2), (origin + 100) * 2);
    EXPECT_FALSE(b.tool->redoButton->isEnabled());
    EXPECT_FALSE(b.tool->nextButton->isEnabled());

    struct Step {
        const char* button;
        int row;
        float value;
    };
    const Step steps[] = {
        {"undo", 1, origin + 100},
        {"undo", 0, origin},
        {"redo", 1, origin + 100},
        {"redo", 2, (origin + 100) * 2},
    };
    for (const Step& s : steps) {
        ASSERT_TRUE(Press(b.tool, s.button)) << s.button << " " << s.row;
        EXPECT_EQ(b.w->currentStep, s.row);
        EXPECT_EQ(b.tool->rowList->currentRow(), s.row);
        EXPECT_EQ(b.tool->rowList->item(s.row)->text().left(2), ">>");
        EXPECT_FLOAT_EQ(b.Pixel(3, 2), s.value) << s.button << " to " << s.row;
    }
    EXPECT_FALSE(b.tool->redoButton->isEnabled());
    EXPECT_TRUE(b.tool->undoButton->isEnabled());

    // A double-click on a row shows that step.
    emit b.tool->rowList->itemDoubleClicked(b.tool->rowList->item(0));
    EXPECT_EQ(b.w->currentStep, 0);
    EXPECT_FLOAT_EQ(b.Pixel(3, 2), origin);
    EXPECT_FALSE(b.tool->undoButton->isEnabled());
    EXPECT_TRUE(b.tool->nextButton->isEnabled());
    EXPECT_FALSE(b.tool->blend->isEnabled()); // step 0 has nothing to blend
}

TEST(HistoryTool, OpacityTakesEffectWhenTheSliderIsReleased) {
    HistoryBench b;
    ASSERT_TRUE(b.w);
    ASSERT_TRUE(b.Add(1000));
    ASSERT_TRUE(b.Open());
    ASSERT_TRUE(b.tool->blend->isEnabled());
    QSlider* slider = b.tool->blend->opacitySlider;
    EXPECT_EQ(slider->value(), 1000);
    EXPECT_EQ(b.tool->blend->opacityLabel->text().toStdString(), "1.000");
    const float input = Origin(0, 4, 3);
    ASSERT_FLOAT_EQ(b.Pixel(4, 3), input + 1000);

    slider->setSliderDown(true);
    slider->setValue(500);
    EXPECT_EQ(b.tool->blend->opacityLabel->text().toStdString(), "0.500");
    EXPECT_FLOAT_EQ(b.Pixel(4, 3), input + 1000); // not while dragging
    slider->setSliderDown(false);                 // release
    EXPECT_FLOAT_EQ(b.Pixel(4, 3), input + 500);
    EXPECT_DOUBLE_EQ(b.w->history[1].opacity, 0.5);

    // Again from the pure result, not from the blended one: 0 gives the input exactly, 1
    // the pure result.
    slider->setSliderDown(true);
    slider->setValue(0);
    slider->setSliderDown(false);
    EXPECT_FLOAT_EQ(b.Pixel(4, 3), input);
    slider->setSliderDown(true);
    slider->setValue(1000);
    slider->setSliderDown(false);
    EXPECT_FLOAT_EQ(b.Pixel(4, 3), input + 1000);

    // A mode from the list: Darken keeps the smaller of input and result.
    QComboBox* modes = b.tool->blend->modeList;
    const int darken = modes->findData(1);
    ASSERT_GE(darken, 0);
    modes->setCurrentIndex(darken);
    emit modes->activated(darken);
    EXPECT_EQ(b.w->history[1].blendMode, 1);
    EXPECT_FLOAT_EQ(b.Pixel(4, 3), input);
}

TEST(HistoryTool, MaskControlsBlendThroughAFlatOrAFileMask) {
    HistoryBench b;
    ASSERT_TRUE(b.w);
    ASSERT_TRUE(b.Add(1000));
    ASSERT_TRUE(b.Open());
    CHistoryBlendControls* c = b.tool->blend;
    ASSERT_TRUE(c->applyMaskCheck->isChecked());
    ASSERT_TRUE(c->luminanceRadio->isChecked());
    EXPECT_FALSE(c->maskFileEdit->isEnabled());
    const float input = Origin(0, 1, 2);

    // A flat luminance mask at half level: half of the step's change.
    c->maskLevelSpin->setValue(32768);
    EXPECT_EQ(b.w->history[1].maskLevel, 32768u);
    EXPECT_NEAR(b.Pixel(1, 2), input + 1000.0 * 32768 / 65535, 0.01);
    // Without "Apply Mask" the level does not count.
    c->applyMaskCheck->click();
    EXPECT_EQ(b.w->history[1].applyMask, 0);
    EXPECT_FLOAT_EQ(b.Pixel(1, 2), input + 1000);
    c->applyMaskCheck->click();

    // A file mask: 0 on the left half, full on the right half.
    Image mask;
    astrivelle::test::MakeImage(mask, kW, kH, ColorGray,
                                [](int, int x, int) { return x < kW / 2 ? 0.0 : 65535.0; });
    mask.fitsCompress = false;
    const std::string maskPath = b.dir.file("mask.fit");
    ASSERT_TRUE(mask.WriteFile(maskPath, KindFITS));
    c->chooseMaskFile = [&] { return QString::fromStdString(maskPath); };
    c->fileRadio->click();
    EXPECT_EQ(b.w->history[1].maskFile, maskPath);
    EXPECT_EQ(b.w->history[1].luminanceMask, 0);
    EXPECT_FLOAT_EQ(b.Pixel(1, 2), input);
    EXPECT_FLOAT_EQ(b.Pixel(kW - 1, 2), Origin(0, kW - 1, 2) + 1000);

    // A mask of another size is refused with its text; the values stay.
    Image small;
    astrivelle::test::MakeImage(small, 2, 2, ColorGray, [](int, int, int) { return 100.0; });
    small.fitsCompress = false;
    const std::string smallPath = b.dir.file("small.fit");
    ASSERT_TRUE(small.WriteFile(smallPath, KindFITS));
    c->chooseMaskFile = [&] { return QString::fromStdString(smallPath); };
    c->browseButton->click();
    EXPECT_EQ(b.LastMessage(), kBlendMaskSizeText);
    EXPECT_EQ(b.w->history[1].maskFile, maskPath);
}

TEST(HistoryTool, BlendModeListIndentsGroupsAndOffersColourModesOnlyForColourImages) {
    struct Case {
        int mode;
        const char* text;
    };
    const Case cases[] = {
        {0, "Normal"},   {1, "Darken"},         {2, "  Multiply"}, {4, "  Linear Burn"},
        {5, "Lighten"},  {8, "  Linear Dodge"}, {9, "Overlay"},    {15, "  Hard Mix"},
        {16, "Reflect"}, {23, "Negation"},      {24, "Hue"},       {31, "Lab Luminosity"},
    };
    const std::vector<BlendModeItem> color = BlendModeItems(true);
    const std::vector<BlendModeItem> mono = BlendModeItems(false);
    ASSERT_EQ(color.size(), 32u);
    ASSERT_EQ(mono.size(), 24u);
    for (const Case& c : cases) {
        EXPECT_EQ(color[c.mode].text, c.text);
        EXPECT_EQ(color[c.mode].mode, c.mode);
    }

    // The tool's list for each kind of image.
    for (bool rgb : {false, true}) {
        HistoryBench b(rgb);
        ASSERT_TRUE(b.w);
        ASSERT_TRUE(b.Add(10));
        ASSERT_TRUE(b.Open());
        QComboBox* modes = b.tool->blend->modeList;
        EXPECT_EQ(modes->count(), rgb ? 32 : 24);
        for (int mode = 24; mode < 32; ++mode)
            EXPECT_EQ(modes->findData(mode) >= 0, rgb) << mode;
        EXPECT_EQ(modes->findText("Hue") >= 0, rgb);
        EXPECT_EQ(modes->itemText(modes->findData(10)).toStdString(), "  Soft Light");
    }
}

TEST(HistoryTool, CopyPasteAndDeleteThroughTheButtons) {
    HistoryBench b;
    ASSERT_TRUE(b.w);
    ASSERT_TRUE(b.Add(100));
    ASSERT_TRUE(b.Open());
    EXPECT_FALSE(b.tool->pasteButton->isEnabled()); // nothing copied yet

    // Row 0 can't be copied; row 1 goes to the shared clipboard.
    b.Select({0, 1});
    ASSERT_TRUE(Press(b.tool, "copy"));
    EXPECT_EQ(b.LastMessage(), kHistoryCantCopyInitialText);
    ASSERT_EQ(b.model.copiedCommands().Size(), 1u);
    EXPECT_TRUE(b.tool->pasteButton->isEnabled());

    b.Select({1});
    ASSERT_TRUE(Press(b.tool, "paste"));
    EXPECT_EQ(b.Rows(), (std::vector<std::string>{"Read", ">>Pixel Math", "~~ Pixel Math"}));
    EXPECT_EQ(b.w->history[2].prevImageFile, "REPROCESS COMMAND");

    // Next Command runs the pasted step forward on the shown state.
    const float input = Origin(0, 1, 1);
    ASSERT_TRUE(Press(b.tool, "next"));
    EXPECT_EQ(b.w->currentStep, 2);
    EXPECT_FLOAT_EQ(b.Pixel(1, 1), input + 200);
    EXPECT_EQ(b.Rows(), (std::vector<std::string>{"Read", "Pixel Math", ">>Pixel Math"}));

    // Delete asks first; "No" keeps the rows.
    b.Select({2});
    b.notify.answer = Answer::No;
    ASSERT_TRUE(Press(b.tool, "delete"));
    EXPECT_EQ(b.notify.questions.back(), kHistoryConfirmDeleteText);
    EXPECT_EQ(b.w->history.size(), 3u);
    b.Select({2});
    b.notify.answer = Answer::Yes;
    ASSERT_TRUE(Press(b.tool, "delete"));
    EXPECT_EQ(b.Rows(), (std::vector<std::string>{"Read", ">>Pixel Math"}));
    EXPECT_FLOAT_EQ(b.Pixel(1, 1), input + 100); // the new last step is shown

    // Paste with nothing selected: the engine's text.
    b.tool->rowList->clearSelection();
    ASSERT_TRUE(Press(b.tool, "paste"));
    EXPECT_EQ(b.LastMessage(), kHistoryPasteNoRowText);
}

TEST(HistoryTool, AllCommandsRunsForwardOnATimerAndCanBeCancelled) {
    HistoryBench b;
    ASSERT_TRUE(b.w);
    ASSERT_TRUE(b.Add(10));
    ASSERT_TRUE(b.NextMultiply(2.0));
    ASSERT_TRUE(b.NextAdd(7));
    ASSERT_TRUE(b.Open());
    b.tool->SetForwardInterval(20);
    const float origin = Origin(0, 5, 3);
    const float last = (origin + 10) * 2 + 7;

    emit b.tool->rowList->itemDoubleClicked(b.tool->rowList->item(0));
    ASSERT_EQ(b.w->currentStep, 0);
    ASSERT_TRUE(Press(b.tool, "all"));
    EXPECT_TRUE(b.tool->ForwardRunning());
    EXPECT_EQ(b.tool->windowTitle().toStdString(), kAllCommandsCancelHint);
    EXPECT_FALSE(b.tool->undoButton->isEnabled()); // commands wait for the run
    ASSERT_TRUE(WaitFor([&] { return !b.tool->ForwardRunning(); }));
    EXPECT_EQ(b.w->currentStep, 3);
    EXPECT_FLOAT_EQ(b.Pixel(5, 3), last);
    EXPECT_EQ(b.tool->windowTitle().toStdString(), "Process History - M31.fit");

    // A cancel request asks; "Yes" stops after the step in hand.
    emit b.tool->rowList->itemDoubleClicked(b.tool->rowList->item(0));
    ASSERT_EQ(b.w->currentStep, 0);
    b.notify.answer = Answer::Yes;
    b.tool->SetForwardInterval(200);
    ASSERT_TRUE(Press(b.tool, "all"));
    EXPECT_EQ(b.w->currentStep, 1);
    b.tool->ForwardCancel().RequestCancel();
    ASSERT_TRUE(WaitFor([&] { return !b.tool->ForwardRunning(); }));
    EXPECT_EQ(b.notify.questions.back(), kAllCommandsCancelQuestion);
    EXPECT_EQ(b.w->currentStep, 2);
    EXPECT_FLOAT_EQ(b.Pixel(5, 3), (origin + 10) * 2);
}

TEST(HistoryTool, PrintTextAsksWhenBrokenAndShowsTheReport) {
    HistoryBench b;
    ASSERT_TRUE(b.w);
    ASSERT_TRUE(b.Add(100));
    ASSERT_TRUE(b.Open());
    ASSERT_TRUE(Press(b.tool, "print"));
    auto* text = b.tool->findChild<QPlainTextEdit*>("printText");
    ASSERT_NE(text, nullptr);
    const std::string shown = text->toPlainText().toStdString();
    EXPECT_EQ(shown.rfind("     Astrivelle Monochrome Project v5.0", 0), 0u);
    EXPECT_NE(shown.find("     Operation : Pixel Math\n"), std::string::npos);
    EXPECT_NE(shown.find("     Blend Mode Normal, Opacity 1.000\n"), std::string::npos);
    text->window()->close();
    QCoreApplication::processEvents();

    // A broken sequence asks; "No" shows nothing.
    b.Select({1});
    ASSERT_TRUE(Press(b.tool, "copy"));
    b.Select({0});
    ASSERT_TRUE(Press(b.tool, "paste"));
    b.notify.answer = Answer::No;
    const std::size_t before = b.notify.questions.size();
    ASSERT_TRUE(Press(b.tool, "print"));
    ASSERT_EQ(b.notify.questions.size(), before + 1);
    EXPECT_EQ(b.notify.questions.back(), kPrintConfirmText);
    QCoreApplication::processEvents(); // deferred deletion of the closed window
    EXPECT_EQ(b.tool->findChild<QPlainTextEdit*>("printText"), nullptr);
}

TEST(HistoryTool, SaveProjectChecksTheNameAndWritesProjectAndReport) {
    HistoryBench b;
    ASSERT_TRUE(b.w);
    ASSERT_TRUE(b.Add(100));
    ASSERT_TRUE(b.Open());
    const QString folder = QString::fromStdString(b.dir.file("proj"));
    std::filesystem::create_directories(folder.toStdString());

    EXPECT_FALSE(b.tool->SaveProjectAs("M31:a", folder, true));
    EXPECT_EQ(b.LastMessage().rfind(kProjectNameCharsText, 0), 0u);
    EXPECT_FALSE(b.tool->SaveProjectAs("   ", folder, true));
    EXPECT_EQ(b.LastMessage(), kProjectNameEmptyText);

    ASSERT_TRUE(b.tool->SaveProjectAs("  Night1 ", folder, true, "first light"));
    const std::string qxj = b.dir.file("proj/Night1.qxj");
    ASSERT_TRUE(std::filesystem::exists(qxj));
    ASSERT_TRUE(std::filesystem::exists(b.dir.file("proj/Night1.txt")));
    std::ifstream in(qxj);
    std::string heading;
    std::getline(in, heading);
    EXPECT_EQ(heading, kProjectMonoHeading);
    EXPECT_EQ(b.model.lastFolder, folder.toStdString());

    // The project opens again with both steps.
    std::vector<CProcessStructure> records;
    bool color = true;
    std::string error;
    ASSERT_TRUE(ReadProjectRecords(qxj, &records, &color, &error)) << error;
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[1].operation, "Pixel Math");
    EXPECT_FALSE(records[1].curImageFile.empty());
}

TEST(HistoryTool, ScreenshotWithSeveralRows) {
    HistoryBench b(true);
    ASSERT_TRUE(b.w);
    ASSERT_TRUE(b.Add(100));
    ASSERT_TRUE(b.NextMultiply(1.5));
    ASSERT_TRUE(Press(b.Open(), "undo"));
    b.Select({2});
    ASSERT_TRUE(Press(b.tool, "copy"));
    b.Select({1});
    ASSERT_TRUE(Press(b.tool, "paste"));
    ASSERT_EQ(b.tool->rowList->count(), 4);
    b.tool->show();
    QCoreApplication::processEvents();
    const QImage shot = b.tool->grab().toImage();
    ASSERT_FALSE(shot.isNull());
    const QString path = ScreenshotFolder() + "/history_tool.png";
    ASSERT_TRUE(shot.save(path));
    EXPECT_GT(shot.width(), 200);
}
