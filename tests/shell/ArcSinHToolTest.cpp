// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The ArcSinH tool driven through its controls: a worker run matches the operator
/// function, the power slider keeps 800 at 1.0 and holds typed values in range, a slider moved
/// with Enable Sliders re-applies in the same step, a recorded text loads.
#include <gtest/gtest.h>

#include "ToolFrameTestSupport.h"

#include "engine/ProcessWindow.h"
#include "shell/ArcSinHTool.h"
#include "shell/DigitalDevelopmentTool.h"
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QSlider>
#include <QSpinBox>

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

float Sky(int s, int x, int y) {
    return static_cast<float>(700 + (x * 41 + y * 29 + s * 13) % 500 +
                              (x == 3 && y == 4 ? 30000 : 0));
}

} // namespace

TEST(ArcSinHTool, ApplyRunsOnAWorkerAndMatchesTheOperatorFunction) {
    for (bool color : {false, true}) {
        ToolTestShell shell;
        CProcessWindow* expected = shell.MakeImage(20, 14, color, Sky);
        CProcessWindow* target = shell.MakeImage(20, 14, color, Sky);
        CArcSinH* tool = CArcSinH::Show(shell);
        ASSERT_NE(tool, nullptr);
        tool->enableSliders->setChecked(false);
        tool->preStretch->typeCombo->setCurrentText("nth Root X^n");
        TypeField(tool->preStretch->scaleEdit, "0.800");
        TypeField(tool->power, "0.900");
        TypeField(tool->expand, "1.100");
        tool->backgroundMin->setValue(60);
        TypeField(tool->colorEdits[2], "0.200");
        ArcSinHParams p;
        p.scaleType = ScaleType::Root;
        p.pre.scale = 0.8;
        p.power = 0.9;
        p.expand = 1.1;
        p.backgroundMin = 60;
        p.blue = 0.2;
        ASSERT_TRUE(expected->ArcSinH(p, nullptr));
        ASSERT_TRUE(Press(tool, "apply"));
        tool->WaitForWorker();
        EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
        ASSERT_EQ(target->history.size(), 2u);
        EXPECT_EQ(target->history[1].operation, "ArcSinH");
        EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
        ExpectSamePixels(*target, *expected);
    }
}

TEST(ArcSinHTool, PowerSliderAndRanges) {
    ToolTestShell shell;
    shell.MakeImage(8, 8, false, Sky);
    CArcSinH* tool = CArcSinH::Show(shell);
    tool->enableSliders->setChecked(false);
    for (int i = 0; i < tool->powerRange->count(); ++i) {
        tool->powerRange->setCurrentIndex(i);
        TypeField(tool->power, "1.000");
        EXPECT_EQ(tool->powerSlider->value(), 800) << i;
    }
    tool->powerRange->setCurrentText("0.900 - 1.02500");
    TypeField(tool->power, "3.0");
    EXPECT_EQ(tool->power->text(), "1.025") << "a typed value is held in the range";
    EXPECT_EQ(tool->powerSlider->value(), 1000);
    tool->enableSliders->setChecked(true);
    EXPECT_TRUE(tool->powerSlider->isEnabled());
    tool->powerSlider->setValue(400);
    EXPECT_EQ(tool->power->text(), "0.950");
    EXPECT_EQ(tool->weightRange->count(), 6);
    tool->weightRange->setCurrentText("0.50 - 1.00");
    tool->weightSlider->setValue(500);
    EXPECT_EQ(tool->backgroundWeight->text(), "0.75000");
    tool->WaitForWorker();
}

TEST(ArcSinHTool, SlidersReapplyInTheSameStep) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(16, 10, false, Sky);
    CArcSinH* tool = CArcSinH::Show(shell);
    tool->enableSliders->setChecked(true);
    tool->powerSlider->setValue(700);
    tool->WaitForWorker();
    ASSERT_EQ(w->history.size(), 2u);
    tool->powerSlider->setValue(600);
    tool->WaitForWorker();
    ASSERT_EQ(w->history.size(), 2u) << "a repeat edits the pending step";
    ArcSinHParams p = tool->Values();
    EXPECT_EQ(w->history[1].parameters, FormatArcSinH(p));
    CProcessWindow* fresh = shell.MakeImage(16, 10, false, Sky);
    ASSERT_TRUE(fresh->ArcSinH(p, nullptr));
    ExpectSamePixels(*w, *fresh);
}

TEST(ArcSinHTool, LoadsARecordedText) {
    ToolTestShell shell;
    shell.MakeImage(8, 8, false, Sky);
    CArcSinH* tool = CArcSinH::Show(shell);
    ArcSinHParams p;
    p.scaleType = ScaleType::Power;
    p.pre = {1.25, 0.0915, 1.0, kBlackRangeTexts[3]};
    p.weightRange = kWeightRangeTexts[5];
    p.backgroundWeight = 0.95;
    p.power = 0.975;
    p.expand = 1.2;
    p.backgroundMin = 100;
    p.red = 0.1;
    const std::string text = FormatArcSinH(p);
    ASSERT_TRUE(tool->LoadParameters(text));
    EXPECT_EQ(FormatArcSinH(tool->Values()), text);
    EXPECT_EQ(tool->preStretch->blackRangeCombo->currentText(), "0.090 - 0.100");
    EXPECT_FALSE(tool->LoadParameters("nonsense#"));
}
