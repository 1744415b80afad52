// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Calibrate Files sheet: light frames calibrated with the system frames of the
/// Calibration Setup, written as "C_" + name.
#pragma once
#include "shell/FileSetFrame.h"

class QLabel;

namespace astrivelle {

class CalibrateSheet : public FileSetFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CCalibrateFilesDlg";
    static constexpr bool kNeedsImage = false;
    explicit CalibrateSheet(ShellContext& context);
    static CalibrateSheet* Show(ShellContext& context);

    QPushButton* setupButton = nullptr; ///< "Calibration Setup..."
    QLabel* setupSummary = nullptr;

protected:
    bool CheckInputs(const std::vector<std::string>& files,
                     std::vector<std::string>* usable) override;
    bool Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                 const std::string& prefix, FileSetBody* body) override;
    bool OutputsAreColor() const override;
    void OnImageChanged() override { RefreshSummary(); }

private:
    void RefreshSummary();
};

} // namespace astrivelle
