// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The blend controls of the process history: the blend mode list with its indented
/// groups, the opacity slider applied on release, and the mask settings (apply, luminance or
/// file mask, mask level). They edit the blend fields of the step shown; the history tool
/// blends the step again when they report a change.
#pragma once
#include <QString>
#include <QWidget>

#include <functional>
#include <string>
#include <vector>

#include "engine/ProcessStructure.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;
class QSlider;
class QSpinBox;

namespace astrivelle {

/// One entry of the blend mode list: its text (group members indented by two blanks) and the
/// index of the mode it stands for.
struct BlendModeItem {
    std::string text;
    int mode = 0;
};

/// The blend mode list in its order: modes 0 to 23 for every image, 24 to 31 only when
/// `color`. The groups are headed by "Darken", "Lighten" and "Overlay".
std::vector<BlendModeItem> BlendModeItems(bool color);

/// The opacity as the control shows it ("%4.3f").
std::string OpacityText(double opacity);

/// The slider position (0..1000, thousandths) of an opacity, and back.
int OpacityToSlider(double opacity);
double SliderToOpacity(int position);

class CHistoryBlendControls : public QWidget {
    Q_OBJECT
public:
    explicit CHistoryBlendControls(QWidget* parent = nullptr);

    /// Shows the blend values of `record`; `color` picks the list of modes.
    void SetValues(const CProcessStructure& record, bool color);
    /// Writes the controls' values into the blend and mask fields of `record`; the mask
    /// surface stays that of the record last shown.
    void GetValues(CProcessStructure* record) const;

    /// The file picker of the file mask; tests replace it. Returns the chosen path or empty.
    std::function<QString()> chooseMaskFile;

    QComboBox* modeList = nullptr;
    QSlider* opacitySlider = nullptr;
    QLabel* opacityLabel = nullptr;
    QCheckBox* applyMaskCheck = nullptr;
    QRadioButton* luminanceRadio = nullptr;
    QRadioButton* fileRadio = nullptr;
    QLineEdit* maskFileEdit = nullptr;
    QPushButton* browseButton = nullptr;
    QSpinBox* maskLevelSpin = nullptr;

signals:
    /// The user changed a blend value: the shown step must be blended again. `maskChanged`
    /// when a mask setting changed.
    void BlendChanged(bool maskChanged);

private:
    MaskSurface surface_ = DefaultMaskSurface();
    bool loading_ = false;
    void Changed(bool maskChanged);
    void BrowseMask();
    void UpdateMaskEnabling();
};

} // namespace astrivelle
