// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Calibration Setup dialog over the program's calibration record: the colour
/// model, the mosaic pattern, the four system frames with their "Use During Calibration"
/// checks, the dark factors with "Auto", and the adaptive high/low pixel reduction.
#pragma once
#include <QDialog>

#include "calibration/CalibrationSetup.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace astrivelle {

class ShellContext;

/// The record every calibrate run of the program reads; it lives for the program's life.
CalibrationSetup& ProgramCalibrationSetup();

class CalibrationSetupDialog : public QDialog {
    Q_OBJECT
public:
    explicit CalibrationSetupDialog(ShellContext& context);
    ~CalibrationSetupDialog() override;
    /// Opens (or raises) the one dialog.
    static CalibrationSetupDialog* Show(ShellContext& context);
    /// The open dialog, or null: Calibrate refuses to start while it is open.
    static CalibrationSetupDialog* Open();

    /// The record as the dialog shows it (OK copies it to the program's record).
    const CalibrationSetup& Edited() const { return setup_; }
    /// Takes a frame file, as its Select button does after the file dialog; false when the
    /// file is refused (the text was shown).
    bool SelectFrame(SystemFrame frame, const std::string& path);

    QComboBox* colorModel = nullptr;   ///< "MONO", "COLOR"
    QComboBox* monoFileType = nullptr; ///< "CCD", "Bayer CFA"
    QComboBox* frameType = nullptr;    ///< the camera list
    QLineEdit* framePath[4] = {};      ///< flat, flat dark, dark, bias
    QCheckBox* useFrame[4] = {};
    QPushButton* selectFrame[4] = {};
    QLabel* frameSize = nullptr;
    QLineEdit* darkFactor = nullptr;
    QLineEdit* overallFactor = nullptr;
    QCheckBox* autoDark = nullptr;
    QCheckBox* adaptiveWithDark = nullptr;
    QCheckBox* adaptiveWithoutDark = nullptr;
    QComboBox* adaptiveLevel = nullptr; ///< "Normal", "Aggressive", "Very Aggressive"
    QPushButton* clearAll = nullptr;
    QPushButton* okButton = nullptr;

    /// OK: reads the factors ("Please Enter a Real Number." when one does not read) and
    /// stores the record; false when a value was refused.
    bool Accept();

private:
    void Load();
    void ReadChoices();
    ShellContext& context_;
    CalibrationSetup setup_;
    bool loading_ = false;
};

} // namespace astrivelle
