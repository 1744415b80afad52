// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The General Stretch Functions tool: pre-stretch, stretch function (one set of settings
/// per function), background weight, exponent and the output range. A short operator: Apply
/// runs it on the GUI thread.
#pragma once
#include <array>
#include <string>

#include "operators/Stretch.h"
#include "shell/OperatorTools.h"
#include "shell/ToolFrame.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSlider;
class QSpinBox;

namespace astrivelle {

class CPreStretchPanel;

class CColorBCS : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CColorBCS";
    static constexpr const char* kTitle = "General Stretch Functions";
    static constexpr bool kNeedsImage = true;

    static CColorBCS* Show(ShellContext& context);
    explicit CColorBCS(ShellContext& context);

    GeneralStretchParams Values() const;
    void SetValues(const GeneralStretchParams& params);
    bool LoadParameters(const std::string& text);
    /// Every function's settings at their defaults ("Reset").
    void ResetStretch();

    CPreStretchPanel* preStretch = nullptr;
    QComboBox* function = nullptr;
    QComboBox* weightRange = nullptr;
    QLineEdit* backgroundWeight = nullptr;
    QSlider* weightSlider = nullptr;
    QComboBox* powerRange = nullptr;
    QLabel* exponentLabel = nullptr;
    QLineEdit* exponent = nullptr;
    QSlider* exponentSlider = nullptr;
    QSpinBox* backgroundMin = nullptr;
    QSpinBox* outputWhite = nullptr;
    QSpinBox* outputBlack = nullptr;
    QCheckBox* enableSliders = nullptr;
    QPushButton* resetButton = nullptr;

protected:
    void OnApply() override;

private:
    bool syncing_ = false;
    /// One record per stretch function; the fields show the chosen one.
    std::array<GeneralStretchParams, 4> records_{};
    StretchFunction shown_ = StretchFunction::Linear;
    void StoreShown();
    void ShowRecord(StretchFunction fn);
    void SyncSliders();
    void Slid();
};

OperatorTool GeneralStretchToolEntry();

} // namespace astrivelle
