// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Resize Files sheet: factor, largest, smallest or a given size, and the
/// interpolation.
#pragma once
#include "shell/FileSetFrame.h"

class QComboBox;
class QRadioButton;

namespace astrivelle {

class ResizeSheet : public FileSetFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CResizeFiles";
    static constexpr bool kNeedsImage = false;
    explicit ResizeSheet(ShellContext& context);
    static ResizeSheet* Show(ShellContext& context);

    QRadioButton* modeFactor = nullptr;
    QRadioButton* modeLargest = nullptr;
    QRadioButton* modeSmallest = nullptr;
    QRadioButton* modeSize = nullptr;
    QLineEdit* factor = nullptr;
    QLineEdit* width = nullptr;
    QLineEdit* height = nullptr;
    QComboBox* interpolation = nullptr; ///< "Nearest Neighbor", "Bilinear", "Bicubic"

protected:
    bool Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                 const std::string& prefix, FileSetBody* body) override;
};

/// The Crop Files sheet: a box about one point (entered as numbers) or about each image's
/// brightness centroid.
class CropSheet : public FileSetFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CCropFiles";
    static constexpr bool kNeedsImage = false;
    explicit CropSheet(ShellContext& context);
    static CropSheet* Show(ShellContext& context);

    QRadioButton* aboutPoint = nullptr;
    QRadioButton* aboutCentroid = nullptr;
    QLineEdit* centerX = nullptr;
    QLineEdit* centerY = nullptr;
    QLineEdit* width = nullptr;
    QLineEdit* height = nullptr;

protected:
    bool Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                 const std::string& prefix, FileSetBody* body) override;
};

} // namespace astrivelle
