// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Digital Development tool (pages Stretch and Color & Sharpening), and the pre-stretch
/// panel that the three stretch tools share. Apply runs the operator on a worker thread.
#pragma once
#include <QGroupBox>

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
class QTabWidget;

namespace astrivelle {

/// Scale type, Scale (labelled by type), Black Point with its range, White Point and
/// "Reset Scale". One set of settings per scale type: switching type keeps what was set.
class CPreStretchPanel : public QGroupBox {
    Q_OBJECT
public:
    CPreStretchPanel(bool hasNone, QWidget* parent);

    ScaleType Type() const { return sets_.type; }
    /// The settings of the type in use, as the fields show them.
    PreStretchSettings Settings() const;
    void SetValues(ScaleType type, const PreStretchSettings& settings);
    /// "Reset Scale": every type's settings at their defaults.
    void Reset();
    /// Enables or disables the sliders (Enable Sliders).
    void EnableSliders(bool on);

    QComboBox* typeCombo = nullptr;
    QLabel* scaleLabel = nullptr;
    QLineEdit* scaleEdit = nullptr;
    QSlider* scaleSlider = nullptr;
    QLineEdit* blackEdit = nullptr;
    QSlider* blackSlider = nullptr;
    QComboBox* blackRangeCombo = nullptr;
    QLineEdit* whiteEdit = nullptr;
    QPushButton* resetButton = nullptr;

signals:
    /// A slider moved (live update).
    void slid();

private:
    bool hasNone_;
    bool syncing_ = false;
    PreStretchSets sets_;
    void Show();
    void Store();
    void TypeChosen(int index);
};

/// Reads a number from a line edit; `fallback` when it holds none.
double FieldNumber(const QLineEdit* edit, double fallback);

class CColorDDP : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CColorDDP";
    static constexpr const char* kTitle = "Digital Development";
    static constexpr bool kNeedsImage = true;

    static CColorDDP* Show(ShellContext& context);
    explicit CColorDDP(ShellContext& context);

    DigitalDevelopmentParams Values() const;
    void SetValues(const DigitalDevelopmentParams& params);
    bool LoadParameters(const std::string& text);
    /// The stretch settings at their defaults ("Reset").
    void ResetStretch();

    QTabWidget* pages = nullptr;
    CPreStretchPanel* preStretch = nullptr;
    // Stretch page.
    QComboBox* breakPointRange = nullptr;
    QLineEdit* breakPoint = nullptr;
    QSlider* breakPointSlider = nullptr;
    QComboBox* weightRange = nullptr;
    QLineEdit* backgroundWeight = nullptr;
    QSlider* weightSlider = nullptr;
    QLineEdit* backgroundMin = nullptr;
    // Color & Sharpening page.
    QComboBox* filter = nullptr;
    QCheckBox* fixDefects = nullptr;
    QLineEdit* strength = nullptr;
    QSlider* strengthSlider = nullptr;
    QLineEdit* colorEdits[3] = {nullptr, nullptr, nullptr};
    QSlider* colorSliders[3] = {nullptr, nullptr, nullptr};
    QCheckBox* enableSliders = nullptr;
    QPushButton* resetButton = nullptr;

protected:
    void OnApply() override;

private:
    bool syncing_ = false;
    void FilterChosen();
    bool CheckField(QLineEdit* edit, DdpField field);
    void SyncSliders();
    void Slid();
};

OperatorTool DigitalDevelopmentToolEntry();

} // namespace astrivelle
