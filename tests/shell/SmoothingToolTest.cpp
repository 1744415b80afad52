// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Smoothing & Noise Reduction tool driven through its controls: its worker run
/// leaves the pixels and the record of the operator function, the window and range checks
/// say their texts, cancel restores, a recorded text loads and applies, live runs follow the
/// strength slider.
#include <gtest/gtest.h>

#include <QElapsedTimer>

#include "ToolFrameTestSupport.h"

#include "shell/SmoothingTool.h"
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QProgressBar>
#include <QRadioButton>
#include <QSlider>
#include <QSpinBox>

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

float Speckle(int s, int x, int y) {
    return static_cast<float>((x * 7919 + y * 104729 + s * 31) % 40000 + 2000);
}

/// Waits for the tool's worker and the events it posted.
void Finish(CSNR* tool) {
    tool->WaitForWorker();
    QCoreApplication::processEvents();
}

CSNR* OpenTool(ToolTestShell& shell) {
    shell.setup.slidersEnabled = false;
    return CSNR::Show(shell);
}

} // namespace

TEST(SmoothingTool, ApplyGivesThePixelsAndRecordOfTheOperatorFunction) {
    struct Case {
        const char* button;
        int sizeIndex, strength, min, max, feather;
        bool color;
    };
    const Case cases[] = {{"median", 2, 80, 3000, 30000, 1000, false},
                          {"gaussian", 4, 100, 0, 65535, 0, true},
                          {"absoluteDifference", 1, 60, 0, 65535, 0, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.button);
        ToolTestShell shell;
        CProcessWindow* expected = shell.MakeImage(48, 36, c.color, Speckle);
        CProcessWindow* target = shell.MakeImage(48, 36, c.color, Speckle);
        CSNR* tool = OpenTool(shell);
        ASSERT_NE(tool, nullptr);
        tool->findChild<QRadioButton*>(c.button)->click();
        tool->findChild<QComboBox*>("windowSize")->setCurrentIndex(c.sizeIndex);
        tool->findChild<QSlider*>("strengthSlider")->setValue(c.strength);
        tool->findChild<QSpinBox*>("minApply")->setValue(c.min);
        tool->findChild<QSpinBox*>("maxApply")->setValue(c.max);
        tool->findChild<QSpinBox*>("featherRange")->setValue(c.feather);
        ASSERT_TRUE(Press(tool, "apply"));
        Finish(tool);

        const SmoothingParams p = tool->Values();
        EXPECT_EQ(p.halfSize, c.sizeIndex + 1);
        ASSERT_TRUE(expected->Smoothing(p, nullptr));
        EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
        ASSERT_EQ(target->history.size(), 2u);
        EXPECT_EQ(target->history[1].operation, "Smoothing");
        EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
        int changed = 0;
        for (int s : target->image.Slots())
            for (int i = 0; i < 48 * 36; ++i) {
                ASSERT_EQ(target->image.curPlane[s][i], expected->image.curPlane[s][i]) << i;
                changed += target->image.curPlane[s][i] != target->image.prevPlane[s][i];
            }
        EXPECT_GT(changed, 200);
        EXPECT_EQ(tool->progressBar->value(), tool->progressBar->maximum());
    }
}

TEST(SmoothingTool, ChecksSayTheirTexts) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(40, 30, false, Speckle);
    CSNR* tool = OpenTool(shell);
    // Binomial 173 x 173 is set back to 171 x 171 with its text; then the image is too small.
    tool->findChild<QRadioButton*>("binomial")->click();
    tool->windowSize->setCurrentIndex(85); // 173x173
    ASSERT_TRUE(Press(tool, "apply"));
    Finish(tool);
    ASSERT_EQ(shell.notify.messages.size(), 2u);
    EXPECT_EQ(shell.notify.messages[0],
              "Maximum blur window size of the binomial function is 171 x 171.");
    EXPECT_EQ(shell.notify.messages[1],
              "Window Size is large than the image. Use a smaller smoothing Window Size.");
    EXPECT_EQ(tool->windowSize->currentText(), "171x171");
    EXPECT_EQ(w->history.size(), 1u);

    // The median's limit, then a run at 51 x 51 on an image that is taller.
    shell.notify.messages.clear();
    CProcessWindow* tall = shell.MakeImage(40, 60, false, Speckle);
    tool->findChild<QRadioButton*>("median")->click();
    tool->windowSize->setCurrentIndex(30);
    ASSERT_TRUE(Press(tool, "apply"));
    Finish(tool);
    EXPECT_EQ(
        shell.notify.messages,
        std::vector<std::string>{"Maximum blur window size of the Median function is 51 x 51."});
    ASSERT_EQ(tall->history.size(), 2u);
    EXPECT_NE(tall->history[1].parameters.find("Window Size : 51 x 51#"), std::string::npos);

    // The range: min not below max.
    shell.notify.messages.clear();
    tool->windowSize->setCurrentIndex(0);
    tool->maxApply->setValue(20000);
    tool->minApply->setValue(30000);
    ASSERT_TRUE(Press(tool, "apply"));
    EXPECT_EQ(shell.LastMessage(), "Please select a min luminance less than max luminance.");
    tool->minApply->setValue(100);
    tool->maxApply->setValue(50);
    ASSERT_TRUE(Press(tool, "apply"));
    EXPECT_EQ(shell.LastMessage(), "Please select a max luminance greater than min luminance.");
    EXPECT_EQ(tall->history.size(), 2u);
}

TEST(SmoothingTool, CancelRestoresThePlane) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(700, 500, false, Speckle);
    CSNR* tool = OpenTool(shell);
    tool->findChild<QRadioButton*>("median")->click();
    tool->windowSize->setCurrentIndex(24); // 49x49
    ASSERT_TRUE(Press(tool, "apply"));
    ASSERT_TRUE(tool->Busy());
    ASSERT_TRUE(Press(tool, "cancel"));
    Finish(tool);
    EXPECT_EQ(tool->statusLine->text(), "Median Filter Canceled.");
    for (int y = 0; y < 500; y += 7)
        for (int x = 0; x < 700; x += 3)
            ASSERT_EQ(w->image.curPlane[0][y * 700 + x], Speckle(0, x, y));
    EXPECT_TRUE(tool->applyButton->isEnabled());
}

TEST(SmoothingTool, LoadsARecordedTextAndAppliesIt) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(30, 20, false, Speckle);
    CSNR* tool = OpenTool(shell);
    const std::string text = "Type : Adaptive Median#Filter Strength : 0.75000#Window Size : 5 x 5#"
                             "Order : 3#Apply Min : 100#Apply Max : 60000#Feather Range : 500#";
    ASSERT_TRUE(tool->LoadParameters(text));
    EXPECT_TRUE(tool->typeButtons[SmoothAdaptiveMedian]->isChecked());
    EXPECT_TRUE(tool->order->isEnabled());
    EXPECT_EQ(tool->windowSize->currentText(), "5x5");
    EXPECT_EQ(tool->strengthSlider->value(), 75);
    EXPECT_EQ(tool->order->value(), 3);
    EXPECT_FALSE(tool->LoadParameters("Type : Median#Filter Strength : 1#"));
    ASSERT_TRUE(Press(tool, "apply"));
    Finish(tool);
    ASSERT_EQ(w->history.size(), 2u);
    EXPECT_EQ(w->history[1].parameters, text);

    // Reset: Gaussian, 3x3, full strength, the whole range.
    ASSERT_TRUE(Press(tool, "reset"));
    const SmoothingParams p = tool->Values();
    EXPECT_EQ(p.type, SmoothGaussian);
    EXPECT_EQ(p.halfSize, 1);
    EXPECT_EQ(p.strength, 1.0);
    EXPECT_EQ(p.applyMin, 0);
    EXPECT_EQ(p.applyMax, 65535);
    EXPECT_EQ(p.feather, 0);
    EXPECT_FALSE(tool->order->isEnabled());
}

TEST(SmoothingTool, EnableSliderRunsEachChangeInTheSameStep) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(30, 20, false, Speckle);
    CSNR* tool = OpenTool(shell);
    tool->findChild<QRadioButton*>("box")->click();
    tool->strengthSlider->setValue(50);
    EXPECT_EQ(w->history.size(), 1u) << "no live run while Enable Slider is off";
    tool->findChild<QCheckBox*>("enableSlider")->setChecked(true);
    tool->strengthSlider->setValue(40);
    Finish(tool);
    tool->strengthSlider->setValue(20);
    Finish(tool);
    ASSERT_EQ(w->history.size(), 2u) << "a live change edits the pending step";
    EXPECT_NE(w->history[1].parameters.find("Filter Strength : 0.20000#"), std::string::npos);
    // The pixels are those of one application at 0.2 on the original.
    CProcessWindow* expected = shell.MakeImage(30, 20, false, Speckle);
    SmoothingParams p = tool->Values();
    ASSERT_TRUE(expected->Smoothing(p, nullptr));
    for (int i = 0; i < 600; ++i)
        ASSERT_EQ(w->image.curPlane[0][i], expected->image.curPlane[0][i]) << i;
}

TEST(SmoothingTool, Screenshot) {
    ToolTestShell shell;
    shell.MakeImage(8, 8, false, Speckle);
    CSNR* tool = OpenTool(shell);
    EXPECT_EQ(tool->windowTitle().toStdString().rfind("Smoothing & Noise Reduction - ", 0), 0u);
    tool->adjustSize();
    ASSERT_TRUE(tool->grab().save(ScreenshotFolder() + "/SmoothingTool.png"));
}
