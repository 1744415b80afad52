// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Normalize Files sheet: mode, target and the user's values on the methods page.
#pragma once
#include "shell/FileSetFrame.h"

class QCheckBox;
class QRadioButton;

namespace astrivelle {

struct NormalizeRequest;

class NormalizeSheet : public FileSetFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CNormalizeFiles";
    static constexpr bool kNeedsImage = false;
    explicit NormalizeSheet(ShellContext& context);
    static NormalizeSheet* Show(ShellContext& context);

    /// The request the controls describe (files and folder left empty); false when a number
    /// does not read.
    bool ReadRequest(NormalizeRequest* request);

    QRadioButton* modeBrightness = nullptr;
    QRadioButton* modeRange = nullptr;
    QRadioButton* targetMaximum = nullptr;
    QRadioButton* targetAverage = nullptr;
    QRadioButton* targetMinimum = nullptr;
    QRadioButton* targetUser = nullptr;
    QLineEdit* background = nullptr;
    QLineEdit* deviation = nullptr;
    QCheckBox* useSetDeviation = nullptr;
    QLineEdit* minimum = nullptr;
    QLineEdit* maximum = nullptr;

protected:
    bool Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                 const std::string& prefix, FileSetBody* body) override;

private:
    void Refresh();
};

} // namespace astrivelle
