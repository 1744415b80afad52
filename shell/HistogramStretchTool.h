// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Histogram Contrast Stretch tool: the six stretch types, Scale (Blend for the
/// background/highlight type) and the background and highlight powers and breaks. A short
/// operator on the GUI thread; "Enable Slider" re-applies on every change.
#pragma once
#include <array>
#include <string>

#include "operators/Curves.h"
#include "shell/OperatorTools.h"
#include "shell/ToolFrame.h"

class QCheckBox;
class QDoubleSpinBox;
class QLabel;
class QPushButton;
class QRadioButton;
class QSlider;

namespace astrivelle {

class CHistogramStretch : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CHistogramStretch";
    static constexpr const char* kTitle = "Histogram Contrast Stretch";
    static constexpr bool kNeedsImage = true;

    static CHistogramStretch* Show(ShellContext& context);
    explicit CHistogramStretch(ShellContext& context);

    HistogramStretchParams Values() const;
    void SetValues(const HistogramStretchParams& params);
    bool LoadParameters(const std::string& text);
    /// Back to the tool's defaults (HistogramStretchParams{}).
    void Reset();

    /// Types 1..6 in order ("uniform" ... "bkgHigh").
    std::array<QRadioButton*, 6> typeButtons{};
    QDoubleSpinBox* scaleBox = nullptr;
    QLabel* scaleLabel = nullptr;
    QDoubleSpinBox* highlightScaleBox = nullptr;
    QDoubleSpinBox* highlightBreakBox = nullptr;
    QDoubleSpinBox* backgroundScaleBox = nullptr;
    QDoubleSpinBox* backgroundBreakBox = nullptr;
    QCheckBox* enableSlider = nullptr;
    QCheckBox* toAllImages = nullptr;
    QPushButton* resetButton = nullptr;

protected:
    void OnApply() override;

private:
    bool loading_ = false;
    void TypeChanged();
    void Changed();
    bool ApplyTo(CProcessWindow& window, const HistogramStretchParams& params);
};

OperatorTool HistogramStretchToolEntry();

} // namespace astrivelle
