// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Edge Extraction tool: one of seven edge extractors, applied on the GUI thread
/// through the image's Edge Extract operator function.
#pragma once
#include <string>

#include "operators/Restoration.h"
#include "shell/OperatorTools.h"
#include "shell/ToolFrame.h"

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QRadioButton;
class QSpinBox;

namespace astrivelle {

class CLEE : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CLEE";
    static constexpr const char* kTitle = "Edge Extraction";
    static constexpr bool kNeedsImage = true;

    static CLEE* Show(ShellContext& context);
    explicit CLEE(ShellContext& context);

    EdgeParams Values() const;
    void SetValues(const EdgeParams& params);
    bool LoadParameters(const std::string& text);

    /// The type buttons, index type - 1.
    QRadioButton* typeButtons[7] = {};
    QDoubleSpinBox* edgeWidth = nullptr;
    QComboBox* windowSize = nullptr;
    QCheckBox* binarize = nullptr;
    QSpinBox* threshold = nullptr;
    QDoubleSpinBox* brightness = nullptr;
    QCheckBox* enableSlider = nullptr;

protected:
    void OnApply() override;

private:
    bool loading_ = false;
    void Changed();
};

OperatorTool EdgeExtractToolEntry();

} // namespace astrivelle
