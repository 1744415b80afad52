// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Histogram Contrast Stretch tool driven through its controls: every type gives the
/// pixels and record of the operator function; Blend, live update, Reset and loading a text.
#include <gtest/gtest.h>

#include <cstring>

#include "ToolFrameTestSupport.h"

#include "operators/Curves.h"
#include "shell/HistogramStretchTool.h"
#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QRadioButton>

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

float Gradient(int s, int x, int y) {
    return static_cast<float>((x * x * 97 + y * 1301 + s * 37) % 65536);
}

} // namespace

TEST(HistogramStretchTool, EveryTypeMatchesTheOperatorFunction) {
    const char* buttons[] = {"uniform",    "exponential", "rayleigh",
                             "hyperbolic", "logarithmic", "bkgHigh"};
    for (int type = 1; type <= 6; ++type) {
        SCOPED_TRACE(buttons[type - 1]);
        ToolTestShell shell;
        shell.setup.slidersEnabled = false;
        CProcessWindow* expected = shell.MakeImage(40, 30, type % 2 == 0, Gradient);
        CProcessWindow* target = shell.MakeImage(40, 30, type % 2 == 0, Gradient);
        CHistogramStretch* tool = CHistogramStretch::Show(shell);
        ASSERT_NE(tool, nullptr);
        EXPECT_EQ(tool->windowTitle().toStdString(),
                  "Histogram Contrast Stretch - " + target->title);
        tool->findChild<QRadioButton*>(buttons[type - 1])->click();
        EXPECT_EQ(tool->scaleLabel->text(), type == 6 ? "Blend" : "Scale");
        EXPECT_EQ(tool->highlightBreakBox->isEnabled(), type == 6);
        tool->scaleBox->setValue(0.35);
        tool->highlightBreakBox->setValue(0.6);
        ASSERT_TRUE(Press(tool, "apply"));
        EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();

        HistogramStretchParams p;
        p.type = type;
        p.scale = 0.35;
        p.highlightBreak = 0.6;
        ASSERT_TRUE(expected->HistogramContrastStretch(p));
        ASSERT_EQ(target->history.size(), 2u);
        EXPECT_EQ(target->history[1].operation, "Histogram Contrast Stretch");
        EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
        EXPECT_TRUE(SamePixels(*target, *expected));
    }
}

TEST(HistogramStretchTool, LiveUpdateResetAndLoad) {
    ToolTestShell shell;
    shell.setup.slidersEnabled = true;
    CProcessWindow* w = shell.MakeImage(16, 8, false, Gradient);
    CHistogramStretch* tool = CHistogramStretch::Show(shell);
    ASSERT_TRUE(tool->enableSlider->isChecked());
    EXPECT_EQ(w->history.size(), 1u) << "opening the tool applies nothing";
    tool->scaleBox->setValue(1.0);
    ASSERT_EQ(w->history.size(), 2u);
    tool->scaleBox->setValue(0.0);
    ASSERT_EQ(w->history.size(), 2u);
    EXPECT_EQ(w->history[1].parameters.substr(0, 30), "Type : Uniform#Scale : 0.0000#");
    // Uniform at Scale 0 keeps each level within one.
    for (int i = 0; i < 128; ++i)
        ASSERT_NEAR(w->image.curPlane[0][i], w->image.prevPlane[0][i], 1.0);

    tool->enableSlider->setChecked(false);
    HistogramStretchParams p;
    p.type = 6;
    p.scale = 0.8;
    p.backgroundBreak = 0.1;
    const std::string text = FormatHistogramStretch(p);
    ASSERT_TRUE(tool->LoadParameters(text));
    EXPECT_TRUE(tool->typeButtons[5]->isChecked());
    EXPECT_EQ(tool->typeButtons[5]->text(), "Background/Highlight Contrast");
    EXPECT_EQ(tool->scaleLabel->text(), "Blend");
    ASSERT_TRUE(Press(tool, "apply"));
    EXPECT_EQ(w->history[1].parameters, text);
    EXPECT_FALSE(tool->LoadParameters("Type : Sepia#"));

    ASSERT_TRUE(Press(tool, "reset"));
    EXPECT_EQ(FormatHistogramStretch(tool->Values()),
              FormatHistogramStretch(HistogramStretchParams{}));
}

TEST(HistogramStretchTool, Screenshot) {
    ToolTestShell shell;
    shell.MakeImage(8, 8, true, Gradient);
    CHistogramStretch* tool = CHistogramStretch::Show(shell);
    tool->adjustSize();
    ASSERT_TRUE(tool->grab().save(ScreenshotFolder() + "/HistogramStretchTool.png"));
}
