// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Unsharp Mask page of "Sharpening & Texture Enhancement": a short operator applied
/// on the GUI thread through the image's Unsharp Mask operator function.
#pragma once
#include <string>

#include "operators/FilterSupport.h"
#include "operators/Restoration.h"
#include "shell/OperatorTools.h"
#include "shell/ToolFrame.h"

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QRadioButton;
class QSlider;
class QSpinBox;

namespace astrivelle {

class CLSTEUnsharpMask : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CLSTEUnsharpMask";
    static constexpr const char* kTitle = "Unsharp Mask";
    static constexpr bool kNeedsImage = true;

    static CLSTEUnsharpMask* Show(ShellContext& context);
    explicit CLSTEUnsharpMask(ShellContext& context);

    UnsharpParams Values() const;
    void SetValues(const UnsharpParams& params);
    bool LoadParameters(const std::string& text);
    /// The filter "Custom" stands for (the program starts with "Identity").
    void SetCustomFilter(const CCustomFilter& filter) { customFilter_ = filter; }
    const CCustomFilter& CustomFilter() const { return customFilter_; }

    QRadioButton* sharpenButton = nullptr;
    QRadioButton* binarizeButton = nullptr;
    QComboBox* filterBox = nullptr;
    QComboBox* windowSize = nullptr;
    QDoubleSpinBox* backgroundWeight = nullptr;
    QSlider* weightSlider = nullptr;
    QSpinBox* threshold = nullptr;
    QCheckBox* reduceArtifacts = nullptr;
    QDoubleSpinBox* strength = nullptr;
    QSpinBox* minApply = nullptr;
    QSpinBox* maxApply = nullptr;
    QSpinBox* featherRange = nullptr;
    QCheckBox* enableSlider = nullptr;

protected:
    void OnApply() override;

private:
    CCustomFilter customFilter_;
    bool minEditedLast_ = false;
    bool loading_ = false;
    void Changed();
    void Reset();
};

OperatorTool UnsharpMaskToolEntry();

} // namespace astrivelle
