// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Edge Extraction tool driven through its controls.
#include <gtest/gtest.h>

#include "ToolFrameTestSupport.h"

#include "shell/EdgeExtractTool.h"
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QRadioButton>
#include <QSpinBox>

using namespace astrivelle;
using namespace astrivelle::test;

namespace {
float Stars(int s, int x, int y) {
    return static_cast<float>(500 + 30 * ((x + 2 * y + s) % 5) +
                              ((x % 7 == 3 && y % 5 == 2) ? 8000 : 0));
}
} // namespace

TEST(EdgeExtractTool, EveryTypeGivesTheOperatorFunctionsPixelsAndRecord) {
    const char* buttons[7] = {"onePixel",      "sobel",   "kirsch",        "laplace",
                              "morphological", "deriche", "contraHarmonic"};
    for (int type = 1; type <= 7; ++type) {
        SCOPED_TRACE(buttons[type - 1]);
        ToolTestShell shell;
        CProcessWindow* expected = shell.MakeImage(25, 18, type % 2 == 0, Stars);
        CProcessWindow* target = shell.MakeImage(25, 18, type % 2 == 0, Stars);
        EdgeParams p;
        p.type = type;
        p.edgeWidth = 1.25;
        p.window = 5;
        p.binarize = type == 3;
        p.threshold = 700;
        p.brightness = 1.5;
        ASSERT_TRUE(expected->EdgeExtract(p));

        CLEE* tool = CLEE::Show(shell);
        ASSERT_NE(tool, nullptr);
        tool->findChild<QCheckBox*>("enableSlider")->setChecked(false);
        tool->findChild<QRadioButton*>(buttons[type - 1])->click();
        tool->findChild<QDoubleSpinBox*>("edgeWidth")->setValue(1.25);
        tool->findChild<QComboBox*>("windowSize")->setCurrentIndex(1);
        tool->findChild<QCheckBox*>("binarize")->setChecked(type == 3);
        tool->findChild<QSpinBox*>("threshold")->setValue(700);
        tool->findChild<QDoubleSpinBox*>("brightness")->setValue(1.5);
        EXPECT_EQ(tool->findChild<QComboBox*>("windowSize")->isEnabled(), type == 7);
        EXPECT_EQ(tool->findChild<QDoubleSpinBox*>("edgeWidth")->isEnabled(), type >= 6);
        ASSERT_TRUE(Press(tool, "apply"));
        ASSERT_EQ(target->history.size(), 2u);
        EXPECT_EQ(target->history[1].operation, "Edge Extract");
        EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
        for (int s : target->image.Slots())
            for (std::uint32_t i = 0; i < target->image.pixelCount; ++i)
                ASSERT_EQ(target->image.curPlane[s][i], expected->image.curPlane[s][i]);
    }
}

TEST(EdgeExtractTool, LoadsARecordedText) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(12, 12, false, Stars);
    CLEE* tool = CLEE::Show(shell);
    const std::string text = "Type : Contra-harmonic#Edge Width : 2.5000#Window Size : 9x9#"
                             "Binarization : Yes#Threshold : 42#Brightness : 0.5000#";
    ASSERT_TRUE(tool->LoadParameters(text));
    EXPECT_EQ(FormatEdge(tool->Values()), text);
    tool->findChild<QCheckBox*>("enableSlider")->setChecked(false);
    ASSERT_TRUE(Press(tool, "apply"));
    ASSERT_EQ(w->history.size(), 2u);
    EXPECT_EQ(w->history[1].parameters, text);
    EXPECT_FALSE(tool->LoadParameters("Type : Canny#"));
}
