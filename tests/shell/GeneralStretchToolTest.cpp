// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The General Stretch Functions tool driven through its controls: Apply matches the
/// operator function, the exponent field is labelled by function and each function keeps its
/// own settings, there is no "None" scale type, a recorded text loads and applies.
#include <gtest/gtest.h>

#include "ToolFrameTestSupport.h"

#include "engine/ProcessWindow.h"
#include "shell/DigitalDevelopmentTool.h"
#include "shell/GeneralStretchTool.h"
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QSlider>
#include <QSpinBox>

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

float Ramp(int s, int x, int y) {
    return static_cast<float>(x * 1900 + y * 700 + s * 300);
}

} // namespace

TEST(GeneralStretchTool, ApplyMatchesTheOperatorFunction) {
    for (bool color : {false, true}) {
        ToolTestShell shell;
        CProcessWindow* expected = shell.MakeImage(30, 10, color, Ramp);
        CProcessWindow* target = shell.MakeImage(30, 10, color, Ramp);
        CColorBCS* tool = CColorBCS::Show(shell);
        ASSERT_NE(tool, nullptr);
        EXPECT_EQ(tool->windowTitle().toStdString(),
                  "General Stretch Functions - " + target->title);
        tool->enableSliders->setChecked(false);
        tool->function->setCurrentText("nth Root X^n");
        TypeField(tool->exponent, "0.500");
        tool->outputWhite->setValue(60000);
        tool->outputBlack->setValue(500);
        tool->backgroundMin->setValue(20);
        GeneralStretchParams p;
        p.function = StretchFunction::Root;
        p.exponent = 0.5;
        p.outputWhite = 60000;
        p.outputBlack = 500;
        p.backgroundMin = 20;
        ASSERT_TRUE(expected->GeneralStretch(p));
        ASSERT_TRUE(Press(tool, "apply"));
        EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
        ASSERT_EQ(target->history.size(), 2u);
        EXPECT_EQ(target->history[1].operation, "General Stretch Functions");
        EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
        EXPECT_NE(target->history[1].parameters.find("#Root :  0.500#"), std::string::npos);
        ExpectSamePixels(*target, *expected);
    }
}

TEST(GeneralStretchTool, EachFunctionKeepsItsSettingsAndLabel) {
    ToolTestShell shell;
    shell.MakeImage(8, 8, false, Ramp);
    CColorBCS* tool = CColorBCS::Show(shell);
    tool->enableSliders->setChecked(false);
    EXPECT_EQ(tool->preStretch->typeCombo->count(), 3) << "no None";
    EXPECT_EQ(tool->preStretch->typeCombo->currentText(), "Linear");
    EXPECT_EQ(tool->weightRange->count(), 4);
    const char* labels[] = {"Power", "Power", "Root", "Exponent"};
    for (int i = 0; i < 4; ++i) {
        tool->function->setCurrentIndex(i);
        EXPECT_EQ(tool->exponentLabel->text().toStdString(), labels[i]);
    }
    tool->function->setCurrentText("nth Power X^n");
    TypeField(tool->exponent, "1.200");
    tool->outputBlack->setValue(900);
    tool->function->setCurrentText("Linear");
    EXPECT_EQ(tool->exponent->text(), "1.000");
    EXPECT_EQ(tool->outputBlack->value(), 0);
    tool->function->setCurrentText("nth Power X^n");
    EXPECT_EQ(tool->exponent->text(), "1.200");
    EXPECT_EQ(tool->outputBlack->value(), 900);
    EXPECT_EQ(tool->exponentSlider->value(), 960); // 1.2 * 800 on "0.000 - 1.25000"
    tool->resetButton->click();
    EXPECT_EQ(tool->exponent->text(), "1.000");
}

TEST(GeneralStretchTool, LoadsARecordedTextAndAppliesIt) {
    ToolTestShell shell;
    CProcessWindow* expected = shell.MakeImage(16, 9, true, Ramp);
    CProcessWindow* target = shell.MakeImage(16, 9, true, Ramp);
    GeneralStretchParams p;
    p.function = StretchFunction::HybridArcSinH;
    p.scaleType = ScaleType::Power;
    p.pre = {1.25, 0.02, 0.95, kBlackRangeTexts[0]};
    p.exponent = 0.9;
    p.backgroundWeight = 0.25;
    p.outputBlack = 100;
    ASSERT_TRUE(expected->GeneralStretch(p));
    CColorBCS* tool = CColorBCS::Show(shell);
    ASSERT_TRUE(tool->LoadParameters(expected->history[1].parameters));
    EXPECT_EQ(tool->function->currentText(), "Hybrid ArcSinH");
    EXPECT_EQ(tool->preStretch->scaleLabel->text(), "Exponent");
    tool->enableSliders->setChecked(false);
    ASSERT_TRUE(Press(tool, "apply"));
    ASSERT_EQ(target->history.size(), 2u);
    EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
    ExpectSamePixels(*target, *expected);
    EXPECT_FALSE(tool->LoadParameters("Pre-Stretch Scale Type : Linear#"));
}
