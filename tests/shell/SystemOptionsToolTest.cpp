// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The System Options tool: Save refuses a limit of 0 and writes nothing, saves what the
/// controls hold, and shows what the accelerator check found.
#include <gtest/gtest.h>

#include "ToolFrameTestSupport.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>

#include <filesystem>

#include "shell/SystemOptionsTool.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

/// Keeps the process-wide options as they were.
struct KeepOptions {
    SystemOptionsState kept = Options();
    ~KeepOptions() { Options() = kept; }
};

} // namespace

TEST(SystemOptionsTool, ALimitOfZeroOrBelowIsRefusedAndNothingIsSaved) {
    for (const char* limit : {"0", "-3", ""}) {
        SCOPED_TRACE(limit);
        KeepOptions keep;
        ToolTestShell shell;
        const CSetupParams before = shell.setup;
        CSystemOption* tool = CSystemOption::Show(shell);
        ASSERT_NE(tool, nullptr);
        tool->openImageLimit->setText(limit);
        tool->jpegList->setCurrentIndex(3);
        tool->saveTypeGroup->button(2)->click();
        ASSERT_TRUE(Press(tool, "save"));
        EXPECT_EQ(
            shell.notify.messages,
            std::vector<std::string>{"Maximum Number Of Open Images Must Be Greater Than 0."});
        EXPECT_FALSE(std::filesystem::exists(shell.model.setupPath));
        EXPECT_EQ(shell.setup, before);
        EXPECT_EQ(Options().setup, keep.kept.setup);
        EXPECT_EQ(ToolFrame::Find("CSystemOption"), tool) << "the tool stays open";
    }
}

TEST(SystemOptionsTool, SaveWritesWhatTheControlsHold) {
    KeepOptions keep;
    ToolTestShell shell;
    CSystemOption* tool = CSystemOption::Show(shell);
    tool->openImageLimit->setText("7");
    tool->displayGroup->button(1)->click();
    tool->useDefaultButton->click();
    tool->scaleList->setCurrentIndex(14); // 150%
    tool->jpegList->setCurrentIndex(17);  // 85%
    tool->saveTypeGroup->button(3)->click();
    tool->priorityGroup->button(1)->click();
    tool->stickyCopyCheck->setChecked(true);
    ASSERT_TRUE(Press(tool, "save"));
    EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
    QCoreApplication::processEvents();
    EXPECT_EQ(ToolFrame::Find("CSystemOption"), nullptr) << "Save closes the tool";

    CSetupParams read;
    std::string why;
    ASSERT_TRUE(LoadSetupParams(shell.model.setupPath, read, &why)) << why;
    EXPECT_EQ(read.maxOpenImages, 7);
    EXPECT_EQ(read.displayAdjustment, "Auto Stretch");
    EXPECT_EQ(read.initialScaleFlag, 1);
    EXPECT_DOUBLE_EQ(read.scale, 1.5);
    EXPECT_EQ(read.jpegQuality, 85);
    EXPECT_EQ(read.saveType, "UNCOMPFIT32");
    EXPECT_EQ(read.Priority(), "IDLE");
    EXPECT_TRUE(read.stickyCopyPortion);
    shell.setup.toolPositions.erase("CSystemOption"); // remembered as the tool closed
    EXPECT_EQ(read, shell.setup);
    EXPECT_EQ(Options().setup.maxOpenImages, 7) << "the options in force follow";
}

TEST(SystemOptionsTool, OpensOnTheSettingsAndAppliesBackgroundAndSlidersAtOnce) {
    KeepOptions keep;
    ToolTestShell shell;
    shell.setup.maxOpenImages = 12;
    shell.setup.jpegQuality = 40;
    shell.setup.initialScaleFlag = 1;
    shell.setup.scale = 0.3;
    shell.setup.strings[SetupBackground] = "DG";
    CSystemOption* tool = CSystemOption::Show(shell);
    EXPECT_EQ(tool->openImageLimit->text(), "12");
    EXPECT_EQ(tool->jpegList->currentText(), "40%");
    EXPECT_TRUE(tool->useDefaultButton->isChecked());
    EXPECT_EQ(tool->scaleList->currentText(), "30%");
    EXPECT_EQ(tool->backgroundGroup->checkedButton()->text(), "DG");
    tool->backgroundGroup->button(0)->click();
    EXPECT_EQ(shell.setup.Background(), "R");
    tool->slidersCheck->setChecked(!shell.setup.slidersEnabled);
    EXPECT_EQ(shell.setup.slidersEnabled, tool->slidersCheck->isChecked());
    EXPECT_EQ(tool->windowTitle(), "System Options");
}

TEST(SystemOptionsTool, ShowsWhatTheAcceleratorCheckFound) {
    KeepOptions keep;
    {
        ToolTestShell shell;
        Options().accelerator = AcceleratorInfo{};
        CSystemOption* tool = CSystemOption::Show(shell);
        ASSERT_EQ(tool->acceleratorLines.size(), 1u);
        EXPECT_EQ(tool->acceleratorLines[0]->text(), "GPU Acceleration Not Available.");
        EXPECT_FALSE(tool->useAcceleratorCheck->isEnabled());
    }
    {
        ToolTestShell shell;
        Options().accelerator.present = true;
        Options().accelerator.description = "Test Device";
        Options().accelerator.dedicatedMemoryKb = 4194304;
        Options().accelerator.doublePrecision = true;
        CSystemOption* tool = CSystemOption::Show(shell);
        ASSERT_EQ(tool->acceleratorLines.size(), 3u);
        EXPECT_EQ(tool->acceleratorLines[0]->text(), "GPU : Test Device");
        EXPECT_EQ(tool->acceleratorLines[1]->text(), "Dedicated Memory : 4194304 KB");
        EXPECT_EQ(tool->acceleratorLines[2]->text(), "Supports Double Precision : Yes");
        EXPECT_TRUE(tool->useAcceleratorCheck->isEnabled());
    }
}

TEST(SystemOptionsTool, Screenshot) {
    KeepOptions keep;
    ToolTestShell shell;
    CSystemOption* tool = CSystemOption::Show(shell);
    tool->adjustSize();
    ASSERT_TRUE(tool->grab().save(ScreenshotFolder() + "/SystemOptionsTool.png"));
}
