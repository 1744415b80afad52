// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The restoration tools and the PSF editor: a worker run gives the operator function's
/// pixels and record, Step Through waits for Next, Cancel keeps the count done.
#include <gtest/gtest.h>

#include "ToolFrameTestSupport.h"

#include "shell/PsfEditor.h"
#include "shell/RestorationTool.h"
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QSpinBox>

#include <chrono>
#include <thread>

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

float Blurry(int s, int x, int y) {
    return static_cast<float>(1000 + 400 * ((x / 2 + y / 3 + s) % 4) + 5 * x);
}

/// Processes events until `done` holds or five seconds pass.
template <class Fn> bool WaitFor(Fn done) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

} // namespace

TEST(RestorationTool, RunGivesTheOperatorFunctionsPixelsAndRecord) {
    const char* buttons[4] = {"vanCittert", "richardsonLucy", "maximumEntropy", "oneStepGradient"};
    for (int type = 1; type <= 4; ++type) {
        SCOPED_TRACE(buttons[type - 1]);
        ToolTestShell shell;
        CProcessWindow* expected = shell.MakeImage(24, 16, type == 2, Blurry);
        CProcessWindow* target = shell.MakeImage(24, 16, type == 2, Blurry);
        RestorationParams p;
        p.type = type;
        p.psfType = type == 3 ? PsfBinomial : PsfGauss;
        p.halfSize = type == 3 ? 1 : 2;
        p.relax = DefaultRelax(type);
        p.iterations = 4;
        p.reduceArtifacts = type == 4;
        ASSERT_TRUE(expected->IterativeRestoration(p, nullptr, nullptr));

        CIterativeRestoration* tool = CIterativeRestoration::Show(shell);
        ASSERT_NE(tool, nullptr);
        tool->findChild<QRadioButton*>(buttons[type - 1])->click();
        EXPECT_DOUBLE_EQ(tool->findChild<QDoubleSpinBox*>("relax")->value(), DefaultRelax(type));
        tool->findChild<QComboBox*>("psfType")->setCurrentIndex(p.psfType - 1);
        tool->findChild<QComboBox*>("psfSize")->setCurrentIndex(p.halfSize - 1);
        tool->findChild<QSpinBox*>("iterations")->setValue(4);
        tool->findChild<QCheckBox*>("reduceArtifacts")->setChecked(type == 4);
        ASSERT_TRUE(Press(tool, "apply"));
        tool->WaitForWorker();
        EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
        ASSERT_EQ(target->history.size(), 2u);
        EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
        EXPECT_NE(target->history[1].parameters.find("Iterations : 4#"), std::string::npos);
        EXPECT_EQ(tool->findChild<QLabel*>("iterationsDone")->text(), "Iterations Done: 4");
        ExpectSamePixels(target, expected);
    }
}

TEST(RestorationTool, StepThroughWaitsForNextAndCancelKeepsTheCount) {
    ToolTestShell shell;
    CProcessWindow* target = shell.MakeImage(20, 20, false, Blurry);
    CAdaptiveIterativeRestoration* tool = CAdaptiveIterativeRestoration::Show(shell);
    ASSERT_NE(tool, nullptr);
    tool->findChild<QSpinBox*>("iterations")->setValue(6);
    tool->findChild<QCheckBox*>("stepThrough")->setChecked(true);
    ASSERT_TRUE(Press(tool, "apply"));
    ASSERT_TRUE(WaitFor([&] { return tool->WaitingForNext(); }));
    ASSERT_TRUE(WaitFor([&] {
        return tool->findChild<QLabel*>("iterationsDone")->text() == "Iterations Done: 1";
    }));
    ASSERT_TRUE(Press(tool, "next"));
    ASSERT_TRUE(WaitFor([&] {
        return tool->WaitingForNext() &&
               tool->findChild<QLabel*>("iterationsDone")->text() == "Iterations Done: 2";
    }));
    ASSERT_TRUE(Press(tool, "cancel"));
    tool->WaitForWorker();
    ASSERT_EQ(target->history.size(), 2u);
    const std::string& text = target->history[1].parameters;
    EXPECT_EQ(text.substr(text.size() - 15), "Iterations : 2#");
    EXPECT_EQ(tool->findChild<QLabel*>("iterationsDone")->text(), "Iterations Done: 2");

    // The record replays to the same pixels.
    CProcessWindow* again = shell.MakeImage(20, 20, false, Blurry);
    std::string error;
    ASSERT_TRUE(again->image.ApplyCommand(target->history[1], nullptr, nullptr, nullptr, &error))
        << error;
    ExpectSamePixels(again, target);

    // And a recorded text loads back into the tool.
    ASSERT_TRUE(tool->LoadParameters(text));
    EXPECT_EQ(FormatAdaptiveRestoration(tool->Values()) + "Iterations : 2#",
              text.substr(0, text.size() - 15) + "Iterations : 2#");
}

TEST(RestorationTool, PsfEditorOperationsFilesAndUse) {
    ToolTestShell shell;
    shell.MakeImage(15, 15, false, [](int, int x, int y) { return 100.0f * x + y; });
    const CCustomPSF keep = CurrentCustomPsf();
    CCustomPSFDlg editor(shell);
    EXPECT_EQ(editor.nameEdit->text(), "Box");
    EXPECT_EQ(editor.sizeBox->currentText(), "3 x 3");
    EXPECT_EQ(editor.sizeBox->itemText(editor.sizeBox->count() - 1), "13 x 13");
    EXPECT_EQ(editor.cells[1][1]->text(), "1.000");

    editor.valueEdit->setText("0");
    ASSERT_TRUE(Press(&editor, "DIV"));
    EXPECT_EQ(shell.LastMessage(), "Could Not Divide By Zero.");
    editor.valueEdit->setText("x");
    ASSERT_TRUE(Press(&editor, "MUL"));
    EXPECT_EQ(shell.LastMessage(), "Please Enter A Real Number.");
    editor.valueEdit->setText("2");
    ASSERT_TRUE(Press(&editor, "MUL"));
    EXPECT_EQ(editor.cells[0][0]->text(), "2.000");
    editor.cells[0][0]->setText("5");
    ASSERT_TRUE(Press(&editor, "Unitize"));
    EXPECT_EQ(editor.cells[0][0]->text(), "1.000");
    EXPECT_EQ(editor.cells[2][2]->text(), "0.400");
    ASSERT_TRUE(Press(&editor, "R"));
    EXPECT_EQ(editor.cells[0][0]->text(), "0.000");
    EXPECT_EQ(editor.cells[0][1]->text(), "1.000");

    editor.nameEdit->setText("Comet");
    const std::string path = shell.dir.file("comet.psf");
    ASSERT_TRUE(editor.SaveFile(path));
    CCustomPSF fromFile;
    ASSERT_TRUE(ReadPsfFile(path, &fromFile, nullptr));
    EXPECT_EQ(fromFile.name, "Comet");
    EXPECT_EQ(fromFile.values[1], 1.0);

    editor.sizeBox->setCurrentIndex(1); // 5 x 5, the values about the centre
    EXPECT_EQ(editor.Psf().size, 5);
    EXPECT_EQ(editor.cells[1][2]->text(), "1.000");
    ASSERT_TRUE(editor.LoadFile(path));
    EXPECT_EQ(editor.Psf(), fromFile);

    editor.nameEdit->setText("a/b");
    EXPECT_FALSE(editor.Commit());
    EXPECT_EQ(shell.LastMessage(),
              "A file name can't contain any of the following characters:\n\\/:*?\"<>|");
    editor.nameEdit->setText("Comet");
    ASSERT_TRUE(editor.Commit());
    EXPECT_EQ(CurrentCustomPsf(), fromFile);

    // The custom PSF runs through the tool as through the operator function.
    CProcessWindow* expected = shell.MakeImage(15, 15, false, Blurry);
    CProcessWindow* target = shell.MakeImage(15, 15, false, Blurry);
    RestorationParams p;
    p.type = RichardsonLucy;
    p.psfType = PsfCustom;
    p.relax = 1.0;
    p.iterations = 3;
    ASSERT_TRUE(expected->IterativeRestoration(p, &fromFile, nullptr));
    CIterativeRestoration* tool = CIterativeRestoration::Show(shell);
    ASSERT_TRUE(tool->LoadParameters(expected->history[1].parameters));
    EXPECT_EQ(tool->findChild<QComboBox*>("psfSize")->currentText(), "3x3");
    ASSERT_TRUE(Press(tool, "apply"));
    tool->WaitForWorker();
    ASSERT_EQ(target->history.size(), 2u);
    EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
    ExpectSamePixels(target, expected);
    CurrentCustomPsf() = keep;
}
