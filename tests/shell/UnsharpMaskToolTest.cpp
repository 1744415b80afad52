// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Unsharp Mask and Edge Extraction tools driven through their controls: pixels and
/// records equal those of the operator functions; recorded texts load back.
#include <gtest/gtest.h>

#include "ToolFrameTestSupport.h"

#include "shell/UnsharpMaskTool.h"
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QRadioButton>
#include <QSlider>
#include <QSpinBox>

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

float Field(int s, int x, int y) {
    return static_cast<float>(2000 + 900 * ((x * 5 + y * 3 + s) % 7) + 11 * y);
}

} // namespace

TEST(UnsharpMaskTool, ApplyGivesTheOperatorFunctionsPixelsAndRecord) {
    for (bool color : {false, true}) {
        ToolTestShell shell;
        CProcessWindow* expected = shell.MakeImage(30, 20, color, Field);
        CProcessWindow* target = shell.MakeImage(30, 20, color, Field);
        UnsharpParams p;
        p.variant = UnsharpParams::Binarization;
        p.filter = UnsharpParams::Binomial;
        p.radius = 2;
        p.backgroundWeight = 0.65;
        p.threshold = 4000;
        p.strength = 0.8;
        p.applyMin = 100;
        p.applyMax = 60000;
        p.feather = 50;
        ASSERT_TRUE(expected->UnsharpMask(p));

        CLSTEUnsharpMask* tool = CLSTEUnsharpMask::Show(shell);
        ASSERT_NE(tool, nullptr);
        tool->findChild<QCheckBox*>("enableSlider")->setChecked(false);
        tool->findChild<QRadioButton*>("binarize")->click();
        tool->findChild<QComboBox*>("filter")->setCurrentIndex(3);
        tool->findChild<QComboBox*>("windowSize")->setCurrentIndex(1);
        tool->findChild<QSlider*>("weightSlider")->setValue(65);
        tool->findChild<QSpinBox*>("threshold")->setValue(4000);
        tool->findChild<QDoubleSpinBox*>("strength")->setValue(0.8);
        tool->findChild<QSpinBox*>("minApply")->setValue(100);
        tool->findChild<QSpinBox*>("maxApply")->setValue(60000);
        tool->findChild<QSpinBox*>("featherRange")->setValue(50);
        EXPECT_DOUBLE_EQ(tool->findChild<QDoubleSpinBox*>("backgroundWeight")->value(), 0.65);
        ASSERT_TRUE(Press(tool, "apply"));
        EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
        ASSERT_EQ(target->history.size(), 2u);
        EXPECT_EQ(target->history[1].operation, "Unsharp Mask");
        EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
        ExpectSamePixels(target, expected);
    }
}

TEST(UnsharpMaskTool, LoadsARecordAndKeepsTheWeightShortOfOne) {
    ToolTestShell shell;
    shell.MakeImage(16, 16, false, Field);
    CLSTEUnsharpMask* tool = CLSTEUnsharpMask::Show(shell);
    ASSERT_NE(tool, nullptr);
    tool->findChild<QCheckBox*>("enableSlider")->setChecked(false);
    const std::string text = "Operation : Sharpen#Window Size : 7x7#Unsharp Filter : Median#"
                             "Background Weight : 0.3000#Reduce Artifacts : Yes#Filter Strength "
                             ": 0.9000#Apply Min : 5#Apply Max : 50000#Feather Range : 7#";
    ASSERT_TRUE(tool->LoadParameters(text));
    EXPECT_EQ(FormatUnsharp(tool->Values()), text);
    EXPECT_FALSE(tool->LoadParameters("Operation : Sharpen#"));
    EXPECT_LT(tool->findChild<QDoubleSpinBox*>("backgroundWeight")->maximum(), 1.0);
    ASSERT_TRUE(Press(tool, "reset"));
    EXPECT_EQ(FormatUnsharp(tool->Values()), FormatUnsharp(UnsharpParams{}));
    // A custom filter of sum 0 is refused with its text, nothing recorded.
    CCustomFilter zero;
    zero.name = "Flat";
    zero.weights = {1, -1, 0, 0, 0, 0, 0, 0, 0};
    tool->SetCustomFilter(zero);
    tool->findChild<QComboBox*>("filter")->setCurrentIndex(4);
    ASSERT_TRUE(Press(tool, "apply"));
    EXPECT_EQ(shell.LastMessage(),
              "Please Choose A Custom Filter With A Sum Of Entries Not Equal To Zero.");
    EXPECT_EQ(shell.model.ActiveImage()->history.size(), 1u);
}

TEST(UnsharpMaskTool, EnableSliderReappliesOnEachChangeInOneStep) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(16, 12, false, Field);
    CLSTEUnsharpMask* tool = CLSTEUnsharpMask::Show(shell);
    tool->findChild<QCheckBox*>("enableSlider")->setChecked(true);
    tool->findChild<QSlider*>("weightSlider")->setValue(40);
    tool->findChild<QSlider*>("weightSlider")->setValue(70);
    ASSERT_EQ(w->history.size(), 2u) << "live changes edit the same step";
    CProcessWindow* expected = shell.MakeImage(16, 12, false, Field);
    UnsharpParams p;
    p.backgroundWeight = 0.7;
    ASSERT_TRUE(expected->UnsharpMask(p));
    EXPECT_EQ(w->history[1].parameters, expected->history[1].parameters);
    ExpectSamePixels(w, expected);
}
