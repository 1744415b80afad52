// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Pixel Math tool: one arithmetic step with a constant on the pixels whose level lies
/// in the "Apply To Luminance Level" range, with a feathered edge. A short operator: Apply runs
/// it on the GUI thread through the image's Pixel Math operator functions.
#pragma once
#include <string>

#include "operators/Masks.h"
#include "shell/OperatorTools.h"
#include "shell/ToolFrame.h"

class QCheckBox;
class QLineEdit;
class QRadioButton;
class QSlider;
class QSpinBox;

namespace astrivelle {

class CPixelMath : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CPixelMath";
    static constexpr const char* kTitle = "Pixel Math";
    static constexpr bool kNeedsImage = true;

    /// Opens (or raises) the tool: the main frame's "Pixel Math" menu item calls this.
    static CPixelMath* Show(ShellContext& context);

    explicit CPixelMath(ShellContext& context);

    /// The values the controls hold now.
    PixelMathParams Values() const;
    /// Puts values into the controls.
    void SetValues(const PixelMathParams& params);
    /// Loads a step's parameter text (process history); false when it does not parse.
    bool LoadParameters(const std::string& text);

    QRadioButton* addButton = nullptr;
    QRadioButton* subtractButton = nullptr;
    QRadioButton* multiplyButton = nullptr;
    QRadioButton* divideButton = nullptr;
    QLineEdit* constantEdit = nullptr;
    QSlider* constantSlider = nullptr;
    QSpinBox* minApply = nullptr;
    QSlider* minSlider = nullptr;
    QSpinBox* maxApply = nullptr;
    QSlider* maxSlider = nullptr;
    QSpinBox* featherRange = nullptr;
    QSlider* featherSlider = nullptr;
    QCheckBox* enableSliders = nullptr;
    QCheckBox* toAllImages = nullptr;

protected:
    void OnApply() override;
    void OnImageChanged() override;

private:
    int levelTop_ = 65535;
    bool multiplicative_ = false;
    bool syncing_ = false;
    void OperationChanged();
    void ConstantTyped();
    void ConstantSlid(int position);
    void SetLevelTop(int top);
    bool ApplyTo(CProcessWindow& window, const PixelMathParams& params);
};

/// The Process menu entry of the tool.
OperatorTool PixelMathToolEntry();

} // namespace astrivelle
