// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Levels tool driven through its controls: the pixels and record it leaves match the
/// image's Levels operator function, typed entries are checked, the slider updates live.
#include <gtest/gtest.h>

#include <cstring>

#include "ToolFrameTestSupport.h"

#include "operators/Curves.h"
#include "shell/LevelsTool.h"
#include "shell/OperatorTools.h"
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QSlider>

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

float Gradient(int s, int x, int y) {
    return static_cast<float>(x * 517 + y * 1301 + s * 37);
}

void Type(CTransferLevels* tool, const char* text) {
    tool->valueEdit->setText(text);
    emit tool->valueEdit->returnPressed();
}

} // namespace

TEST(LevelsTool, ApplyGivesThePixelsAndRecordOfTheOperatorFunction) {
    for (bool color : {false, true}) {
        ToolTestShell shell;
        shell.setup.slidersEnabled = false;
        CProcessWindow* expected = shell.MakeImage(40, 30, color, Gradient);
        CProcessWindow* target = shell.MakeImage(40, 30, color, Gradient);
        CTransferLevels* tool = CTransferLevels::Show(shell);
        ASSERT_NE(tool, nullptr);
        EXPECT_FALSE(tool->enableSlider->isChecked()) << "starts as the live-update option";
        EXPECT_EQ(tool->windowTitle().toStdString(), "Levels - " + target->title);
        const char* channel = color ? "Red" : "Monochrome";
        ASSERT_EQ(tool->channelCombo->count(), color ? 4 : 1);
        Select(tool->channelCombo, channel);
        Select(tool->levelCombo, "Black");
        Type(tool, "1000");
        Select(tool->levelCombo, "White Gamma");
        tool->valueSlider->setValue(750); // 5.5
        EXPECT_EQ(tool->valueEdit->text(), "5.5000");
        ASSERT_TRUE(Press(tool, "apply"));
        EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();

        LevelsParams p;
        SetLevelsValue(&p, channel, LevelsEntry::Black, 1000);
        SetLevelsValue(&p, channel, LevelsEntry::WhiteGamma, 5.5);
        p.channel = channel;
        p.level = LevelsEntry::WhiteGamma;
        ASSERT_TRUE(expected->Levels(p));
        ASSERT_EQ(target->history.size(), 2u);
        EXPECT_EQ(target->history[1].operation, "Levels");
        EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
        EXPECT_NE(target->history[1].parameters.find("RED LEVELS#  Black : 1000#"),
                  std::string::npos);
        EXPECT_NE(target->history[1].parameters.find("RGB LEVELS#  Black : 1000#"),
                  std::string::npos)
            << "the master folds to the largest Black";
        EXPECT_TRUE(SamePixels(*target, *expected));
        EXPECT_NE(target->image.curPlane[0][5], Gradient(0, 5, 0));
    }
}

TEST(LevelsTool, TypedEntriesAreCheckedAndKeepTheirValue) {
    struct Case {
        const char* level;
        const char* text;
        const char* message;
        const char* shown;
    };
    const Case cases[] = {
        {"Black", "", "Please enter a value or use the slider.", "0"},
        {"Black", "70000",
         "Please enter an integer value for black such that\n 0 <= Black <= white value 65535.",
         "0"},
        {"Midtone", "x",
         "Please enter an integer value for Midtone such that\n 0 Black <= Midtone <= 65535 "
         "White.",
         "32767"},
        {"Black Gamma", "11", "Please enter a value for Gamma such that\n 0.0 <= Gamma <= 10.0",
         "1.0000"},
        {"Output White", "-1", "Please enter an integer value X such that\n 0 <= X <= 65535.",
         "65535"},
    };
    for (const Case& c : cases) {
        ToolTestShell shell;
        shell.setup.slidersEnabled = false;
        shell.MakeImage(8, 8, true, Gradient);
        CTransferLevels* tool = CTransferLevels::Show(shell);
        Select(tool->levelCombo, c.level);
        Type(tool, c.text);
        EXPECT_EQ(shell.LastMessage(), c.message);
        EXPECT_EQ(tool->valueEdit->text().toStdString(), c.shown);
        EXPECT_EQ(FormatLevels(tool->Values()), FormatLevels([&] {
                      LevelsParams p;
                      p.level = tool->Values().level;
                      return p;
                  }()));
    }
}

TEST(LevelsTool, EnableSliderReappliesToTheSameStep) {
    ToolTestShell shell;
    shell.setup.slidersEnabled = true;
    CProcessWindow* w = shell.MakeImage(16, 8, false, Gradient);
    CTransferLevels* tool = CTransferLevels::Show(shell);
    ASSERT_TRUE(tool->enableSlider->isChecked());
    Select(tool->levelCombo, "Output Black");
    tool->valueSlider->setValue(20000);
    ASSERT_EQ(w->history.size(), 2u);
    tool->valueSlider->setValue(100);
    ASSERT_EQ(w->history.size(), 2u) << "each change replaces the pending step";
    LevelsSet s;
    s.outputBlack = 100;
    for (int i = 0; i < 16 * 8; ++i)
        ASSERT_EQ(w->image.curPlane[0][i],
                  static_cast<float>(LevelsTransfer(s, w->image.prevPlane[0][i])));
}

TEST(LevelsTool, ResetAndLoadParameters) {
    ToolTestShell shell;
    shell.setup.slidersEnabled = false;
    CProcessWindow* w = shell.MakeImage(16, 8, true, Gradient);
    CTransferLevels* tool = CTransferLevels::Show(shell);
    LevelsParams p;
    p.channel = "Blue";
    p.level = LevelsEntry::Midtone;
    p.sets[3].midtone = 12000;
    p.sets[3].white = 40000;
    p.sets[0].midtone = 12000;
    p.sets[0].white = 40000;
    const std::string text = FormatLevels(p);
    ASSERT_TRUE(tool->LoadParameters(text));
    EXPECT_EQ(tool->channelCombo->currentText(), "Blue");
    EXPECT_EQ(tool->levelCombo->currentText(), "Midtone");
    EXPECT_EQ(tool->valueEdit->text(), "12000");
    ASSERT_TRUE(Press(tool, "apply"));
    ASSERT_EQ(w->history.size(), 2u);
    EXPECT_EQ(w->history[1].parameters, text);

    Image replay;
    MakeImage(replay, 16, 8, ColorRGB, Gradient);
    CProcessStructure r;
    r.operation = "Levels";
    r.parameters = text;
    ASSERT_TRUE(replay.ApplyCommand(r, nullptr, nullptr, nullptr));
    EXPECT_EQ(std::memcmp(replay.curPlane[2], w->image.curPlane[2], sizeof(float) * 128), 0);

    EXPECT_FALSE(tool->LoadParameters("Channel : RGB#"));
    ASSERT_TRUE(Press(tool, "reset"));
    EXPECT_EQ(tool->channelCombo->currentText(), "RGB");
    EXPECT_EQ(tool->levelCombo->currentText(), "Black");
    EXPECT_EQ(FormatLevels(tool->Values()), FormatLevels(LevelsParams{}));

    const OperatorTool* entry = FindOperatorTool("Levels");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->className, "CTransferLevels");
    EXPECT_EQ(entry->submenu, "&Tone");
}

TEST(LevelsTool, Screenshot) {
    ToolTestShell shell;
    shell.MakeImage(8, 8, true, Gradient);
    CTransferLevels* tool = CTransferLevels::Show(shell);
    tool->adjustSize();
    ASSERT_TRUE(tool->grab().save(ScreenshotFolder() + "/LevelsTool.png"));
}
