// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Micro Curves tool: a Bezier curve per slot drawn on a 0..255 graph whose black,
/// white and control points are picked and dragged, presets, the range each curve applies to,
/// RGB or Lab. A short operator on the GUI thread; "Enable Drawing" re-applies on each change.
#pragma once
#include <QWidget>

#include <functional>
#include <string>

#include "operators/Curves.h"
#include "shell/OperatorTools.h"
#include "shell/ToolFrame.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QRadioButton;
class QSpinBox;

namespace astrivelle {

/// The curve graph: draws one curve in X and Y with dashed handles, picks the point within
/// kPickRadius of the cursor and drags it between its neighbours, and reports the cursor as
/// "(%d.0, %d.0)" on the scale of the slot's range, or "(,)" outside.
class CurveGraph : public QWidget {
    Q_OBJECT
public:
    static constexpr int kMargin = 6;
    static constexpr int kPickRadius = 5; ///< in curve units (0..255)

    explicit CurveGraph(QWidget* parent);
    /// The slot drawn and edited; not owned.
    void SetSlot(MicroCurveSlot* slot);
    /// Widget position of a curve point (0..255 each) and back.
    QPoint ToWidget(int x, int y) const;
    void ToCurve(const QPoint& at, int* x, int* y) const;
    bool Inside(const QPoint& at) const;
    /// The point (0 black, 1.. control points, last white) within the pick radius, or -1.
    int PickPoint(const QPoint& at) const;
    QString Readout() const { return readout_; }

    /// Runs after a drag moved a point (`finished` once the button is released).
    std::function<void(bool finished)> onCurveChanged;
    std::function<void(const QString&)> onReadout;

protected:
    void paintEvent(QPaintEvent*) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    MicroCurveSlot* slot_ = nullptr;
    int dragging_ = -1;
    QString readout_ = "(,)";
    void ShowReadout(const QPoint& at);
    void MovePoint(int index, int x, int y);
};

class CTransferCurves : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CTransferCurves";
    static constexpr const char* kTitle = "Micro Curves";
    static constexpr bool kNeedsImage = true;

    static CTransferCurves* Show(ShellContext& context);
    explicit CTransferCurves(ShellContext& context);

    MicroCurvesParams Values() const;
    void SetValues(const MicroCurvesParams& params);
    bool LoadParameters(const std::string& text);
    /// The slot the channel selector addresses.
    int CurrentSlot() const;

    QRadioButton* rgbSpace = nullptr;
    QRadioButton* labSpace = nullptr;
    QComboBox* channelCombo = nullptr;
    QComboBox* presetCombo = nullptr;
    QSpinBox* minSpin = nullptr;
    QSpinBox* maxSpin = nullptr;
    QPushButton* resetButton = nullptr;
    QPushButton* resetAllButton = nullptr;
    QCheckBox* enableDrawing = nullptr;
    QCheckBox* toAllImages = nullptr;
    CurveGraph* graph = nullptr;
    QLabel* readout = nullptr;
    QLabel* lowLabel = nullptr;
    QLabel* highLabel = nullptr;

protected:
    void OnApply() override;
    void OnImageChanged() override;

private:
    MicroCurvesParams params_;
    bool syncing_ = false;
    bool IsColor();
    void FillChannels();
    void ShowSlot();
    void PresetChosen();
    void MinTyped();
    void MaxTyped();
    void Changed();
    bool ApplyTo(CProcessWindow& window, const MicroCurvesParams& params);
};

OperatorTool MicroCurvesToolEntry();

} // namespace astrivelle
