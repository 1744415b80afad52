// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The System Options tool: the program's global choices, the accelerator the start-up
/// check found (read-only), and Save, which validates, applies and writes the setup file.
#pragma once
#include <string>
#include <vector>

#include "engine/SystemOptions.h"
#include "shell/ToolFrame.h"

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QRadioButton;

namespace astrivelle {

class CSystemOption : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CSystemOption";
    static constexpr const char* kTitle = "System Options";
    static constexpr bool kNeedsImage = false;

    /// Opens (or raises) the tool: the main frame's "File | System Options" calls this.
    static CSystemOption* Show(ShellContext& context);

    explicit CSystemOption(ShellContext& context);

    /// What the controls hold now.
    SystemOptionsControls Controls() const;
    /// The file Save writes: the model's setup path, else the default one.
    std::string SetupPath();
    /// Save: false (nothing written, the text shown) when refused or the write failed.
    bool Save();

    QButtonGroup* displayGroup = nullptr;
    QRadioButton* autoFitButton = nullptr;
    QRadioButton* useDefaultButton = nullptr;
    QComboBox* scaleList = nullptr;
    QButtonGroup* backgroundGroup = nullptr;
    QButtonGroup* saveTypeGroup = nullptr;
    QButtonGroup* priorityGroup = nullptr;
    QCheckBox* useAcceleratorCheck = nullptr;
    std::vector<QLabel*> acceleratorLines;
    QComboBox* jpegList = nullptr;
    QLineEdit* openImageLimit = nullptr;
    QCheckBox* slidersCheck = nullptr;
    QCheckBox* stickyCopyCheck = nullptr;
};

} // namespace astrivelle
