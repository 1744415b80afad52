// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Micro Curves tool driven through its controls and its graph: presets, dragging
/// between neighbours, the readout, the range checks, Lab, and the record it leaves.
#include <gtest/gtest.h>

#include <cstring>

#include "ToolFrameTestSupport.h"

#include "operators/Curves.h"
#include "shell/MicroCurvesTool.h"
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QMouseEvent>
#include <QRadioButton>
#include <QSpinBox>

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

float Gradient(int s, int x, int y) {
    return static_cast<float>((x * 1517 + y * 2301 + s * 9001) % 65536);
}

void ChoosePreset(CTransferCurves* tool, const char* name) {
    const int at = tool->presetCombo->findText(name);
    ASSERT_GE(at, 0);
    tool->presetCombo->setCurrentIndex(at);
    emit tool->presetCombo->activated(at);
}

void Mouse(QWidget* widget, QEvent::Type type, const QPoint& at, Qt::MouseButtons buttons) {
    QMouseEvent event(type, QPointF(at), widget->mapToGlobal(QPointF(at)), Qt::LeftButton, buttons,
                      Qt::NoModifier);
    QApplication::sendEvent(widget, &event);
}

void Drag(CurveGraph* graph, QPoint from, QPoint to) {
    Mouse(graph, QEvent::MouseButtonPress, from, Qt::LeftButton);
    Mouse(graph, QEvent::MouseMove, to, Qt::LeftButton);
    Mouse(graph, QEvent::MouseButtonRelease, to, Qt::NoButton);
}

} // namespace

TEST(MicroCurvesTool, PresetApplyMatchesTheOperatorFunction) {
    for (bool color : {false, true}) {
        ToolTestShell shell;
        shell.setup.slidersEnabled = false;
        CProcessWindow* expected = shell.MakeImage(40, 30, color, Gradient);
        CProcessWindow* target = shell.MakeImage(40, 30, color, Gradient);
        CTransferCurves* tool = CTransferCurves::Show(shell);
        ASSERT_NE(tool, nullptr);
        EXPECT_EQ(tool->windowTitle().toStdString(), "Micro Curves - " + target->title);
        EXPECT_FALSE(tool->enableDrawing->isChecked());
        EXPECT_EQ(tool->channelCombo->count(), color ? 4 : 1);
        EXPECT_EQ(tool->labSpace->isEnabled(), color);
        if (color)
            Select(tool->channelCombo, "Red");
        ChoosePreset(tool, "Lighter");
        tool->minSpin->setValue(1000);
        ASSERT_TRUE(Press(tool, "apply"));
        EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();

        MicroCurvesParams p;
        const int slot = color ? 1 : 0;
        ApplyMicroCurvePreset(&p.curveSlots[slot].curve, "Lighter");
        p.curveSlots[slot].min = 1000;
        p.channel = color ? "Red" : "Monochrome";
        ASSERT_TRUE(expected->MicroCurves(p));
        ASSERT_EQ(target->history.size(), 2u);
        EXPECT_EQ(target->history[1].operation, "Micro Curves");
        EXPECT_EQ(target->history[1].parameters, expected->history[1].parameters);
        EXPECT_NE(target->history[1].parameters.find(color ? "Current Channel : Red#RGB Curve#"
                                                           : "Monochrome Curve#"),
                  std::string::npos);
        EXPECT_TRUE(SamePixels(*target, *expected));
    }
}

TEST(MicroCurvesTool, DraggingIsLimitedByTheNeighboursAndReadoutFollows) {
    ToolTestShell shell;
    shell.setup.slidersEnabled = false;
    shell.MakeImage(8, 8, false, Gradient);
    CTransferCurves* tool = CTransferCurves::Show(shell);
    CurveGraph* graph = tool->graph;
    EXPECT_EQ(graph->PickPoint(graph->ToWidget(103, 98)), 1);
    EXPECT_EQ(graph->PickPoint(graph->ToWidget(120, 120)), -1);

    Drag(graph, graph->ToWidget(100, 100), graph->ToWidget(100, 140));
    MicroCurve c = tool->Values().curveSlots[0].curve;
    EXPECT_EQ(c.points[0].x, 100);
    EXPECT_EQ(c.points[0].y, 140);
    // Past the second control point: stopped twice the pick radius before it.
    Drag(graph, graph->ToWidget(100, 140), graph->ToWidget(200, 150));
    c = tool->Values().curveSlots[0].curve;
    EXPECT_EQ(c.points[0].x, 155 - 2 * CurveGraph::kPickRadius);
    EXPECT_EQ(c.points[0].y, 150);
    // The black point can be lifted.
    Drag(graph, graph->ToWidget(0, 0), graph->ToWidget(0, 30));
    EXPECT_EQ(tool->Values().curveSlots[0].curve.blackY, 30);

    Mouse(graph, QEvent::MouseMove, graph->ToWidget(128, 64), Qt::NoButton);
    EXPECT_EQ(tool->readout->text(), "(32896.0, 16448.0)");
    tool->maxSpin->setValue(2000);
    tool->minSpin->setValue(1000);
    Mouse(graph, QEvent::MouseMove, graph->ToWidget(255, 0), Qt::NoButton);
    EXPECT_EQ(tool->readout->text(), "(2000.0, 1000.0)");
    Mouse(graph, QEvent::MouseMove, QPoint(1, 1), Qt::NoButton);
    EXPECT_EQ(tool->readout->text(), "(,)");
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(graph, &leave);
    EXPECT_EQ(tool->readout->text(), "(,)");
}

TEST(MicroCurvesTool, RangeChecksKeepTheRange) {
    ToolTestShell shell;
    shell.setup.slidersEnabled = false;
    shell.MakeImage(8, 8, true, Gradient);
    CTransferCurves* tool = CTransferCurves::Show(shell);
    tool->minSpin->setValue(30000);
    tool->maxSpin->setValue(20000);
    EXPECT_EQ(shell.LastMessage(), "Please select a max luminance greater than min luminance.");
    EXPECT_EQ(tool->maxSpin->value(), 65535);
    tool->maxSpin->setValue(40000);
    tool->minSpin->setValue(50000);
    EXPECT_EQ(shell.LastMessage(), "Please select a min luminance less than max luminance.");
    EXPECT_EQ(tool->minSpin->value(), 30000);
    EXPECT_DOUBLE_EQ(tool->Values().curveSlots[0].min, 30000);
    EXPECT_DOUBLE_EQ(tool->Values().curveSlots[0].max, 40000);
}

TEST(MicroCurvesTool, LabSelectorResetsAndLiveDrawing) {
    ToolTestShell shell;
    shell.setup.slidersEnabled = true;
    CProcessWindow* w = shell.MakeImage(24, 16, true, Gradient);
    CTransferCurves* tool = CTransferCurves::Show(shell);
    tool->labSpace->click();
    ASSERT_EQ(tool->channelCombo->count(), 3);
    EXPECT_EQ(tool->channelCombo->itemText(2), "b");
    Select(tool->channelCombo, "b");
    EXPECT_EQ(tool->CurrentSlot(), 3);
    EXPECT_EQ(tool->lowLabel->text(), "Blue");
    EXPECT_EQ(tool->highLabel->text(), "Yellow");
    Select(tool->channelCombo, "a");
    EXPECT_EQ(tool->lowLabel->text(), "Green");
    EXPECT_EQ(tool->highLabel->text(), "Red");

    ChoosePreset(tool, "Darker"); // live: applied at once
    ASSERT_EQ(w->history.size(), 2u);
    EXPECT_NE(w->history[1].parameters.find("Current Channel : a#Lab L Curve#"), std::string::npos);
    ChoosePreset(tool, "Lighter");
    ASSERT_EQ(w->history.size(), 2u) << "a live change replaces the step";
    Image replay;
    MakeImage(replay, 24, 16, ColorRGB, Gradient);
    CProcessStructure r;
    r.operation = "Micro Curves";
    r.parameters = w->history[1].parameters;
    ASSERT_TRUE(replay.ApplyCommand(r, nullptr, nullptr, nullptr));
    for (int s = 0; s < 3; ++s)
        EXPECT_EQ(std::memcmp(replay.curPlane[s], w->image.curPlane[s], sizeof(float) * 384), 0);

    Select(tool->channelCombo, "L");
    ChoosePreset(tool, "Negative");
    ASSERT_TRUE(Press(tool, "reset"));
    EXPECT_TRUE(IsDefaultCurve(tool->Values().curveSlots[0].curve));
    EXPECT_FALSE(IsDefaultCurve(tool->Values().curveSlots[1].curve)) << "Reset: this slot only";
    EXPECT_EQ(tool->presetCombo->currentText(), "Default");
    ASSERT_TRUE(Press(tool, "resetAll"));
    for (const MicroCurveSlot& s : tool->Values().curveSlots)
        EXPECT_TRUE(IsDefaultCurve(s.curve));
}

TEST(MicroCurvesTool, LoadsARecordedText) {
    ToolTestShell shell;
    shell.setup.slidersEnabled = false;
    CProcessWindow* w = shell.MakeImage(16, 8, true, Gradient);
    CTransferCurves* tool = CTransferCurves::Show(shell);
    MicroCurvesParams p;
    p.channel = "Blue";
    ApplyMicroCurvePreset(&p.curveSlots[3].curve, "Min +");
    p.curveSlots[3].max = 50000;
    const std::string text = FormatMicroCurves(p);
    ASSERT_TRUE(tool->LoadParameters(text));
    EXPECT_EQ(tool->channelCombo->currentText(), "Blue");
    EXPECT_EQ(tool->maxSpin->value(), 50000);
    ASSERT_TRUE(Press(tool, "apply"));
    ASSERT_EQ(w->history.size(), 2u);
    EXPECT_EQ(w->history[1].parameters, text);
    EXPECT_FALSE(tool->LoadParameters("Current Channel : Blue#"));
}

TEST(MicroCurvesTool, Screenshot) {
    ToolTestShell shell;
    shell.MakeImage(8, 8, true, Gradient);
    CTransferCurves* tool = CTransferCurves::Show(shell);
    tool->enableDrawing->setChecked(false);
    ChoosePreset(tool, "Min -- Max ++");
    tool->adjustSize();
    ASSERT_TRUE(tool->grab().save(ScreenshotFolder() + "/MicroCurvesTool.png"));
}
