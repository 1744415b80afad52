// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The "Smoothing & Noise Reduction" tool: one of eight window filters (three
/// nonadaptive, five detail preserving) with its window size, strength, order and apply
/// range, run on a worker thread with progress and cancel.
#pragma once
#include <string>

#include "operators/Filters.h"
#include "shell/OperatorTools.h"
#include "shell/ToolFrame.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QRadioButton;
class QSlider;
class QSpinBox;

namespace astrivelle {

class CSNR : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CSNR";
    static constexpr const char* kTitle = "Smoothing & Noise Reduction";
    static constexpr bool kNeedsImage = true;

    static CSNR* Show(ShellContext& context);
    explicit CSNR(ShellContext& context);

    /// The values the controls hold now.
    SmoothingParams Values() const;
    /// Puts values into the controls (the window size kept to the list, 3x3 to 999x999).
    void SetValues(const SmoothingParams& params);
    /// Loads a step's parameter text (process history); false when it does not parse.
    bool LoadParameters(const std::string& text);
    /// Back to the defaults: Gaussian, 3x3, strength 1, order 1, the full range, no feather.
    void Reset();

    QRadioButton* typeButtons[10] = {}; ///< by filter type; 0 and 7 stay null
    QComboBox* windowSize = nullptr;
    QSlider* strengthSlider = nullptr;
    QLabel* strengthValue = nullptr;
    QSpinBox* order = nullptr;
    QSpinBox* minApply = nullptr;
    QSlider* minSlider = nullptr;
    QSpinBox* maxApply = nullptr;
    QSlider* maxSlider = nullptr;
    QSpinBox* featherRange = nullptr;
    QSlider* featherSlider = nullptr;
    QCheckBox* enableSlider = nullptr;
    QPushButton* resetButton = nullptr;

protected:
    void OnApply() override;
    void OnImageChanged() override;
    void OnWorkerFinished(bool ok) override;

private:
    int levelTop_ = 65535;
    bool minEditedLast_ = true;
    bool liveAgain_ = false; ///< a slider moved while a live run was going
    void TypeChanged();
    void SetLevelTop(int top);
    void LiveChange();
};

/// The Process menu entry of the tool.
OperatorTool SmoothingToolEntry();

} // namespace astrivelle
