// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Combine Files/HDR Add sheet: method, clip factor, the HDR values, the combined
/// file's name and save type on the methods page; one output file a run.
#pragma once
#include "shell/FileSetFrame.h"

class QComboBox;
class QSlider;

namespace astrivelle {

class CombineSheet : public FileSetFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CCombineFiles";
    static constexpr bool kNeedsImage = false;
    explicit CombineSheet(ShellContext& context);
    static CombineSheet* Show(ShellContext& context);

    QComboBox* method = nullptr;     ///< the thirteen methods by their texts
    QComboBox* clipFactor = nullptr; ///< "Standard Deviation Clip Factor:"
    QSlider* compress = nullptr;     ///< HDR compress (position * 2 / 1000)
    QLineEdit* brightness = nullptr; ///< HDR brightness
    QLineEdit* combineName = nullptr;
    QComboBox* saveType = nullptr;

protected:
    bool Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                 const std::string& prefix, FileSetBody* body) override;

private:
    void Refresh();
};

} // namespace astrivelle
