// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Pixel Math tool driven through its controls: the pixels and history it leaves
/// match the image's own Pixel Math functions, a repeat replaces the step, guards refuse.
#include <gtest/gtest.h>

#include <functional>

#include "ToolFrameTestSupport.h"

#include "shell/PixelMathTool.h"
#include <QCheckBox>
#include <QLineEdit>
#include <QRadioButton>
#include <QSpinBox>

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

float Gradient(int s, int x, int y) {
    return static_cast<float>(x * 517 + y * 1301 + s * 37);
}

/// Typing in the field goes through textEdited as a keyboard would.
void TypeInto(QLineEdit* edit, const char* text) {
    edit->setText(text);
    edit->textEdited(edit->text());
}

/// Sets the tool's controls as a user would and presses Apply.
void ApplyThroughTool(CPixelMath* tool, const char* op, const char* constant, int min, int max,
                      int feather) {
    tool->findChild<QRadioButton*>(op)->click();
    auto* edit = tool->findChild<QLineEdit*>("constant");
    TypeInto(edit, constant);
    tool->findChild<QSpinBox*>("minApply")->setValue(min);
    tool->findChild<QSpinBox*>("maxApply")->setValue(max);
    tool->findChild<QSpinBox*>("featherRange")->setValue(feather);
    ASSERT_TRUE(Press(tool, "apply"));
}

} // namespace

TEST(PixelMathTool, ApplyGivesThePixelsAndRecordOfTheOperatorFunctions) {
    struct Case {
        const char* button;
        const char* constant;
        int min, max, feather;
        std::function<bool(CProcessWindow&)> reference;
    };
    const Case cases[] = {
        {"add", "100", 0, 65535, 0,
         [](CProcessWindow& w) { return w.PixelMathAdd(false, 100, 0, 65535, 0); }},
        {"subtract", "250.5", 3000, 20000, 1500,
         [](CProcessWindow& w) { return w.PixelMathAdd(true, 250.5, 3000, 20000, 1500); }},
        {"multiply", "1.75", 0, 30000, 4000,
         [](CProcessWindow& w) { return w.PixelMathMultiply(1.75, 0, 30000, 4000); }},
        {"divide", "3", 5000, 65535, 0,
         [](CProcessWindow& w) { return w.PixelMathDivide(3, 5000, 65535, 0); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.button);
        for (bool color : {false, true}) {
            ToolTestShell shell;
            CProcessWindow* expected = shell.MakeImage(40, 30, color, Gradient);
            CProcessWindow* target = shell.MakeImage(40, 30, color, Gradient);
            ASSERT_NE(target, nullptr);
            ASSERT_EQ(shell.model.ActiveImage(), target);
            ASSERT_TRUE(c.reference(*expected));

            CPixelMath* tool = CPixelMath::Show(shell);
            ASSERT_NE(tool, nullptr);
            ApplyThroughTool(tool, c.button, c.constant, c.min, c.max, c.feather);

            EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
            ASSERT_EQ(target->history.size(), 2u);
            EXPECT_EQ(target->history[1].operation, "Pixel Math");
            EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
            for (int s : target->image.Slots())
                for (int i = 0; i < 40 * 30; ++i)
                    ASSERT_EQ(target->image.curPlane[s][i], expected->image.curPlane[s][i])
                        << "slot " << s << " pixel " << i;
            ASSERT_FALSE(shell.changed.empty());
            EXPECT_EQ(shell.changed.back(), target);
            // And the step did change pixels.
            int changed = 0;
            for (int y = 0; y < 30; ++y)
                for (int x = 0; x < 40; ++x)
                    changed += target->image.curPlane[0][y * 40 + x] != Gradient(0, x, y);
            EXPECT_GT(changed, 100);
        }
    }
}

TEST(PixelMathTool, ApplyingAgainReplacesTheStep) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(16, 8, false, Gradient);
    CPixelMath* tool = CPixelMath::Show(shell);
    ApplyThroughTool(tool, "add", "100", 0, 65535, 0);
    ASSERT_EQ(w->history.size(), 2u);
    ApplyThroughTool(tool, "add", "250", 0, 65535, 0);
    ASSERT_EQ(w->history.size(), 2u) << "the same operator again changes the same step";
    EXPECT_EQ(w->history[1].parameters, "Operation: Add#Constant: 250.000#Threshold Min: 0#"
                                        "Threshold Max: 65535#Feather Range: 0#");
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 16; ++x)
            ASSERT_EQ(w->image.curPlane[0][y * 16 + x], Gradient(0, x, y) + 250);
    // Another operation is still the same operator: the step is replaced again.
    ApplyThroughTool(tool, "multiply", "2", 0, 65535, 0);
    ASSERT_EQ(w->history.size(), 2u);
    EXPECT_EQ(w->image.curPlane[0][3], Gradient(0, 3, 0) * 2);
}

TEST(PixelMathTool, GuardRefusalShowsItsTextAndChangesNothing) {
    struct Case {
        bool CProcessWindow::*flag;
        const char* text;
    };
    const Case cases[] = {
        {&CProcessWindow::fileOpBusy, "Image File Operation In Progress"},
        {&CProcessWindow::threadBusy, "Operation In Progress"},
        {&CProcessWindow::isImageMathTarget,
         "Image Is An Image Math Target. Duplicate The Image First"},
    };
    for (const Case& c : cases) {
        ToolTestShell shell;
        CProcessWindow* w = shell.MakeImage(16, 8, false, Gradient);
        w->*c.flag = true;
        CPixelMath* tool = CPixelMath::Show(shell);
        ApplyThroughTool(tool, "add", "100", 0, 65535, 0);
        EXPECT_EQ(shell.LastMessage(), c.text);
        EXPECT_EQ(w->history.size(), 1u);
        EXPECT_EQ(w->image.curPlane[0][17], Gradient(0, 1, 1));
        w->*c.flag = false;
    }
}

TEST(PixelMathTool, ToAllImagesChangesEveryOpenImage) {
    ToolTestShell shell;
    CProcessWindow* a = shell.MakeImage(8, 8, false, Gradient);
    CProcessWindow* b = shell.MakeImage(8, 8, true, Gradient);
    CPixelMath* tool = CPixelMath::Show(shell);
    tool->toAllImages->setChecked(true);
    ApplyThroughTool(tool, "subtract", "40", 0, 65535, 0);
    for (CProcessWindow* w : {a, b}) {
        ASSERT_EQ(w->history.size(), 2u);
        EXPECT_EQ(w->image.curPlane[0][9], Gradient(0, 1, 1) - 40);
    }
}

TEST(PixelMathTool, CaptionFollowsTheActiveImageAndTheLock) {
    ToolTestShell shell;
    EXPECT_EQ(CPixelMath::Show(shell), nullptr);
    EXPECT_EQ(shell.LastMessage(), "Please Open An Image First.");

    CProcessWindow* a = shell.MakeImage(8, 8, false, Gradient);
    CPixelMath* tool = CPixelMath::Show(shell);
    ASSERT_NE(tool, nullptr);
    EXPECT_EQ(tool->windowTitle().toStdString(), "Pixel Math - " + a->title);
    EXPECT_EQ(CPixelMath::Show(shell), tool) << "one instance per tool";

    tool->lockCheck->setChecked(true);
    CProcessWindow* b = shell.MakeImage(8, 8, false, Gradient);
    ToolFrame::ActiveImageChanged();
    EXPECT_EQ(tool->windowTitle().toStdString(), "Pixel Math - " + a->title) << "locked to a";
    ApplyThroughTool(tool, "add", "5", 0, 65535, 0);
    EXPECT_EQ(a->history.size(), 2u);
    EXPECT_EQ(b->history.size(), 1u);

    // The locked image closes: the tool falls back to the active one and clears its lock.
    ASSERT_TRUE(shell.model.CloseImage(a));
    ToolFrame::ActiveImageChanged();
    EXPECT_EQ(tool->windowTitle().toStdString(), "Pixel Math - " + b->title);
    ApplyThroughTool(tool, "add", "5", 0, 65535, 0);
    EXPECT_FALSE(tool->lockCheck->isChecked());
    EXPECT_EQ(b->history.size(), 2u);
}

TEST(PixelMathTool, PositionIsKeptByClassName) {
    ToolTestShell shell;
    shell.MakeImage(8, 8, false, Gradient);
    CPixelMath* tool = CPixelMath::Show(shell);
    tool->move(123, 77);
    const QPoint at = tool->pos();
    ASSERT_TRUE(Press(tool, "done"));
    EXPECT_EQ(ToolFrame::Find("CPixelMath"), nullptr);
    ASSERT_EQ(shell.setup.toolPositions.count("CPixelMath"), 1u);
    EXPECT_EQ(shell.setup.toolPositions["CPixelMath"].x, at.x());
    EXPECT_EQ(shell.setup.toolPositions["CPixelMath"].y, at.y());
    QCoreApplication::processEvents();
    CPixelMath* again = CPixelMath::Show(shell);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->pos(), at);
    ToolFrame::ResetPositions(shell);
    EXPECT_TRUE(shell.setup.toolPositions.empty());
}

TEST(PixelMathTool, LoadsAStepsParameterText) {
    ToolTestShell shell;
    shell.MakeImage(8, 8, false, Gradient);
    CPixelMath* tool = CPixelMath::Show(shell);
    ASSERT_TRUE(tool->LoadParameters("Operation: Subtract#Constant: 100.000#Threshold Min: 10#"
                                     "Threshold Max: 900#Feather Range: 20#"));
    EXPECT_TRUE(tool->subtractButton->isChecked());
    const PixelMathParams p = tool->Values();
    EXPECT_EQ(p.op, PixelMathParams::Op::Subtract);
    EXPECT_DOUBLE_EQ(p.constant, 100.0);
    EXPECT_EQ(p.applyMin, 10);
    EXPECT_EQ(p.applyMax, 900);
    EXPECT_EQ(p.feather, 20);
    EXPECT_FALSE(tool->LoadParameters("Operation: Add#Constant: 1#"));
    // Switching to Multiply starts the constant at 1.
    tool->addButton->click();
    tool->multiplyButton->click();
    EXPECT_DOUBLE_EQ(tool->Values().constant, 1.0);
}

TEST(PixelMathTool, Screenshot) {
    ToolTestShell shell;
    shell.MakeImage(8, 8, false, Gradient);
    CPixelMath* tool = CPixelMath::Show(shell);
    tool->adjustSize();
    const QString path = ScreenshotFolder() + "/PixelMathTool.png";
    ASSERT_TRUE(tool->grab().save(path));
}
