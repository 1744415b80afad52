// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The ArcSinH tool: pre-stretch, background weight, power, expand, Background Min and the
/// decompress-colour weights. Apply runs the operator on a worker thread.
#pragma once
#include <string>

#include "operators/Stretch.h"
#include "shell/OperatorTools.h"
#include "shell/ToolFrame.h"

class QCheckBox;
class QComboBox;
class QLineEdit;
class QPushButton;
class QSlider;
class QSpinBox;

namespace astrivelle {

class CPreStretchPanel;

class CArcSinH : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CArcSinH";
    static constexpr const char* kTitle = "ArcSinH";
    static constexpr bool kNeedsImage = true;

    static CArcSinH* Show(ShellContext& context);
    explicit CArcSinH(ShellContext& context);

    ArcSinHParams Values() const;
    void SetValues(const ArcSinHParams& params);
    bool LoadParameters(const std::string& text);
    /// The stretch settings at their defaults ("Reset"); the pre-stretch keeps its own.
    void ResetStretch();

    CPreStretchPanel* preStretch = nullptr;
    QComboBox* weightRange = nullptr;
    QLineEdit* backgroundWeight = nullptr;
    QSlider* weightSlider = nullptr;
    QComboBox* powerRange = nullptr;
    QLineEdit* power = nullptr;
    QSlider* powerSlider = nullptr;
    QLineEdit* expand = nullptr;
    QSpinBox* backgroundMin = nullptr;
    QLineEdit* colorEdits[3] = {nullptr, nullptr, nullptr};
    QSlider* colorSliders[3] = {nullptr, nullptr, nullptr};
    QCheckBox* enableSliders = nullptr;
    QPushButton* resetButton = nullptr;

protected:
    void OnApply() override;

private:
    bool syncing_ = false;
    void SyncSliders();
    void Slid();
};

OperatorTool ArcSinHToolEntry();

} // namespace astrivelle
