// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The geometric transform sheet: the Rotate, Scale and Translate pages and the two
/// mirrors, each applied to the image through its operator function (history and undo there).
#pragma once
#include <string>

#include "operators/Geometry.h"
#include "shell/OperatorTools.h"
#include "shell/ToolFrame.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;
class QSpinBox;
class QTabWidget;

namespace astrivelle {

class CGEOTRANSFORM : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CGEOTRANSFORM";
    static constexpr const char* kTitle = "Geometric Transforms";
    static constexpr bool kNeedsImage = true;

    static CGEOTRANSFORM* Show(ShellContext& context);
    explicit CGEOTRANSFORM(ShellContext& context);

    /// The values of a page; false with the fixed text in `text` when a field does not read.
    bool RotateValues(RotateParams* params, std::string* text) const;
    bool ScaleValues(ScaleStepParams* params, std::string* text) const;
    bool TranslateValues(TranslateParams* params, std::string* text) const;
    void SetRotate(const RotateParams& params);
    void SetScale(const ScaleStepParams& params);
    void SetTranslate(const TranslateParams& params);
    /// Loads a recorded step of `operation` ("Rotate", "Scale", "Translate", the mirrors) and
    /// shows its page; false when the text does not parse.
    bool LoadStep(const std::string& operation, const std::string& parameters);

    QTabWidget* pages = nullptr;
    QWidget* rotatePage = nullptr;
    QWidget* scalePage = nullptr;
    QWidget* translatePage = nullptr;
    // Rotate page.
    QComboBox* rotateDirection = nullptr; ///< "Rotate CW (Degrees)" ...
    QLineEdit* angle = nullptr;
    QComboBox* angleStep = nullptr; ///< "0.05", "0.1" .. "0.9"
    QPushButton* angleUp = nullptr;
    QPushButton* angleDown = nullptr;
    QSpinBox* aboutX = nullptr;
    QSpinBox* aboutY = nullptr;
    QLabel* aboutLabel = nullptr; ///< "About : (%d, %d) %s"
    QCheckBox* addBorder = nullptr;
    QLineEdit* rotateBorder = nullptr;
    QComboBox* rotateInterpolation = nullptr;
    // Scale page.
    QRadioButton* bySize = nullptr;
    QRadioButton* byFactor = nullptr;
    QLineEdit* scaleWidth = nullptr;
    QLineEdit* scaleHeight = nullptr;
    QLineEdit* factorX = nullptr;
    QLineEdit* factorY = nullptr;
    QComboBox* scaleInterpolation = nullptr;
    // Translate page.
    QComboBox* verticalDirection = nullptr;   ///< "Translate Up" / "Translate Down"
    QComboBox* horizontalDirection = nullptr; ///< "Translate Right" / "Translate Left"
    QLineEdit* shiftY = nullptr;
    QLineEdit* shiftX = nullptr;
    QLineEdit* borderPixel = nullptr;
    QCheckBox* subPixel = nullptr;
    QComboBox* translateInterpolation = nullptr;
    // Mirrors.
    QPushButton* mirrorVertical = nullptr;
    QPushButton* mirrorHorizontal = nullptr;

protected:
    void OnApply() override;
    void OnImageChanged() override;

private:
    void Mirror(bool vertical);
    void StepAngle(int sign);
    void RefreshAbout();
    void RefreshScale();
    void Finish(CProcessWindow* target);
};

/// The Process menu entry of the sheet.
OperatorTool GeoTransformToolEntry();

} // namespace astrivelle
