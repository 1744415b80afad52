// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Bayer Interpolate/Split Files sheet: the frame type (generic patterns and the
/// camera list) with its pattern keyword, the output colour, "Reduce Green Noise", "Build
/// (R,G,B) Pixel", "Average Green", the save type and the prefix with its colour rules.
#pragma once
#include "shell/FileSetFrame.h"

class QCheckBox;

namespace astrivelle {

struct BayerFilesParams;

class BayerSheet : public FileSetFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CBayerCFAInterpFiles";
    static constexpr bool kNeedsImage = false;
    explicit BayerSheet(ShellContext& context);
    static BayerSheet* Show(ShellContext& context);

    /// The parameters the controls describe (files and folder left empty).
    void ReadParams(BayerFilesParams* params) const;

    QComboBox* frameType = nullptr;   ///< CfaFrameTypes() in order, the keyword as data
    QLabel* patternKeyword = nullptr; ///< the chosen row's keyword
    QComboBox* outputColor = nullptr; ///< "RGB", "RED", "GREEN", "BLUE"
    QCheckBox* reduceGreenNoise = nullptr;
    QCheckBox* buildRGBPixel = nullptr;
    QCheckBox* averageGreen = nullptr;
    QComboBox* saveType = nullptr;
    QLineEdit* prefix = nullptr;   ///< empty takes the colour's default
    QLabel* prefixShown = nullptr; ///< the prefix a run would write

protected:
    bool Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                 const std::string& prefix, FileSetBody* body) override;
    bool OutputsAreColor() const override;

private:
    void Refresh();
};

} // namespace astrivelle
