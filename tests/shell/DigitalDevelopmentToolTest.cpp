// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Digital Development tool driven through its controls: the pixels and record of a
/// worker run match the operator function, the field checks speak their texts, Strength and Fix
/// Defects follow the filter, each scale type keeps its own settings, a recorded text loads.
#include <gtest/gtest.h>

#include "ToolFrameTestSupport.h"

#include "engine/ProcessWindow.h"
#include "shell/DigitalDevelopmentTool.h"
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QSlider>
#include <QTabWidget>

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

float Sky(int s, int x, int y) {
    return static_cast<float>(900 + (x * 37 + y * 53 + s * 11) % 400 +
                              (x == 7 && y == 5 ? 20000 : 0));
}

} // namespace

TEST(DigitalDevelopmentTool, ApplyRunsOnAWorkerAndMatchesTheOperatorFunction) {
    for (bool color : {false, true}) {
        ToolTestShell shell;
        CProcessWindow* expected = shell.MakeImage(24, 16, color, Sky);
        CProcessWindow* target = shell.MakeImage(24, 16, color, Sky);
        CColorDDP* tool = CColorDDP::Show(shell);
        ASSERT_NE(tool, nullptr);
        EXPECT_EQ(tool->pages->count(), 2);
        EXPECT_EQ(tool->pages->tabText(0), "Stretch");
        tool->enableSliders->setChecked(false);
        tool->preStretch->typeCombo->setCurrentText("Linear");
        TypeField(tool->preStretch->scaleEdit, "1.500");
        TypeField(tool->breakPoint, "3000");
        TypeField(tool->backgroundMin, "25");
        tool->filter->setCurrentText("Hard Plus");
        TypeField(tool->strength, "0.650");
        tool->fixDefects->setChecked(true);
        TypeField(tool->colorEdits[0], "0.300");

        DigitalDevelopmentParams p;
        p.scaleType = ScaleType::Linear;
        p.pre.scale = 1.5;
        p.breakPoint = 3000;
        p.backgroundMin = 25;
        p.filter = "Hard Plus";
        p.strength = 0.65;
        p.fixDefects = true;
        p.red = 0.3;
        ASSERT_TRUE(expected->DigitalDevelopment(p, nullptr));

        ASSERT_TRUE(Press(tool, "apply"));
        tool->WaitForWorker();
        EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
        ASSERT_EQ(target->history.size(), 2u);
        EXPECT_EQ(target->history[1].operation, "Digital Development");
        EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
        ExpectSamePixels(*target, *expected);
        EXPECT_FALSE(target->threadBusy);
        EXPECT_EQ(tool->windowTitle().toStdString(), "Digital Development - " + target->title);
    }
}

TEST(DigitalDevelopmentTool, FieldChecksAndTheFilterSwitch) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(8, 8, false, Sky);
    CColorDDP* tool = CColorDDP::Show(shell);
    struct Case {
        QLineEdit* edit;
        const char* text;
        const char* message;
        const char* after;
    };
    const Case cases[] = {
        {tool->backgroundMin, "-5", "Please Enter a Positve Real Number.", "-5"},
        {tool->breakPoint, "none", "Please Enter a Positive Real Number.", "none"},
        {tool->backgroundWeight, "1.5", "Please enter a number between 0.0 and 1.2.", "1.200"},
        {tool->backgroundWeight, "-2", "Please enter a number between 0.0 and 1.2.", "0.0"},
    };
    for (const Case& c : cases) {
        shell.notify.messages.clear();
        TypeField(c.edit, c.text);
        EXPECT_EQ(shell.LastMessage(), c.message);
        EXPECT_EQ(c.edit->text().toStdString(), c.after);
    }
    // A bad field stops Apply with its text.
    TypeField(tool->backgroundMin, "0");
    TypeField(tool->backgroundWeight, "1.0");
    TypeField(tool->breakPoint, "-1");
    shell.notify.messages.clear();
    ASSERT_TRUE(Press(tool, "apply"));
    tool->WaitForWorker();
    EXPECT_EQ(shell.LastMessage(), "Please Enter a Positive Real Number.");
    EXPECT_EQ(w->history.size(), 1u);

    tool->filter->setCurrentText("None");
    EXPECT_FALSE(tool->strength->isEnabled());
    EXPECT_FALSE(tool->fixDefects->isEnabled());
    EXPECT_FALSE(tool->strengthSlider->isEnabled());
    tool->filter->setCurrentText("Soft");
    EXPECT_TRUE(tool->fixDefects->isEnabled());
    EXPECT_TRUE(tool->strength->isEnabled());
}

TEST(DigitalDevelopmentTool, EachScaleTypeKeepsItsSettings) {
    ToolTestShell shell;
    shell.MakeImage(8, 8, false, Sky);
    CColorDDP* tool = CColorDDP::Show(shell);
    CPreStretchPanel* pre = tool->preStretch;
    EXPECT_EQ(pre->typeCombo->currentText(), "None");
    pre->typeCombo->setCurrentText("Linear");
    EXPECT_EQ(pre->scaleLabel->text(), "Factor");
    TypeField(pre->scaleEdit, "2.000");
    EXPECT_EQ(pre->scaleSlider->value(), 400);
    pre->typeCombo->setCurrentText("nth Power X^n");
    EXPECT_EQ(pre->scaleLabel->text(), "Exponent");
    EXPECT_EQ(pre->scaleEdit->text(), "1.000");
    pre->scaleSlider->setValue(500);
    EXPECT_EQ(pre->scaleEdit->text(), "1.500");
    pre->typeCombo->setCurrentText("Linear");
    EXPECT_EQ(pre->scaleEdit->text(), "2.000") << "Linear kept its factor";
    pre->blackSlider->setValue(250);
    EXPECT_EQ(pre->blackEdit->text(), "0.02500");
    pre->resetButton->click();
    EXPECT_EQ(pre->typeCombo->currentText(), "None");
    pre->typeCombo->setCurrentText("Linear");
    EXPECT_EQ(pre->scaleEdit->text(), "1.000");
    // The background weight slider uses the power mapping: 800 is 1.0.
    EXPECT_EQ(tool->weightSlider->value(), 800);
}

TEST(DigitalDevelopmentTool, LoadsARecordedTextAndAppliesIt) {
    ToolTestShell shell;
    CProcessWindow* expected = shell.MakeImage(20, 12, true, Sky);
    CProcessWindow* target = shell.MakeImage(20, 12, true, Sky);
    DigitalDevelopmentParams p;
    p.scaleType = ScaleType::Root;
    p.pre = {0.75, 0.005, 0.9, kBlackRangeTexts[1]};
    p.breakPointRange = kBreakPointRangeTexts[2];
    p.breakPoint = 4000;
    p.backgroundWeight = 0.95;
    p.filter = "Medium";
    p.strength = 0.4;
    p.green = 0.8;
    ASSERT_TRUE(expected->DigitalDevelopment(p, nullptr));
    CColorDDP* tool = CColorDDP::Show(shell);
    ASSERT_TRUE(tool->LoadParameters(expected->history[1].parameters));
    EXPECT_EQ(tool->breakPointRange->currentText(), "0 -  5000");
    EXPECT_EQ(tool->breakPointSlider->maximum(), 5000);
    EXPECT_FALSE(tool->LoadParameters("Pre-Stretch Scale Type : None#"));
    tool->enableSliders->setChecked(false);
    ASSERT_TRUE(Press(tool, "apply"));
    tool->WaitForWorker();
    ASSERT_EQ(target->history.size(), 2u);
    EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
    ExpectSamePixels(*target, *expected);
}

TEST(DigitalDevelopmentTool, Screenshot) {
    ToolTestShell shell;
    shell.MakeImage(8, 8, false, Sky);
    CColorDDP* tool = CColorDDP::Show(shell);
    tool->adjustSize();
    ASSERT_TRUE(tool->grab().save(ScreenshotFolder() + "/DigitalDevelopmentTool.png"));
}
