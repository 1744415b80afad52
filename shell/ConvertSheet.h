// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Convert Files sheet: the output type, the stretch replayed on each file with the
/// parameter text of its last application to the active image, and a brightness step.
#pragma once
#include "shell/FileSetFrame.h"

class QCheckBox;

namespace astrivelle {

struct ConvertFilesRequest;

class ConvertSheet : public FileSetFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CConvertFileDlg";
    static constexpr bool kNeedsImage = false;
    explicit ConvertSheet(ShellContext& context);
    static ConvertSheet* Show(ShellContext& context);

    /// The stretch's operator name as the request takes it ("Levels", ..., empty for "None").
    std::string StretchName() const;
    /// Fills the parameter field with the text of the chosen stretch's last application to
    /// the active image. False (the field emptied) when there is no image, no stretch or no
    /// such step; the run then gives the "Please apply ..." text.
    bool UseLastApplied();
    /// The request the controls describe (files and folder left empty); false when the
    /// brightness step does not read.
    bool ReadRequest(ConvertFilesRequest* request);

    QComboBox* outputType = nullptr; ///< ".TIF", ".JPG", ".BMP", ".FIT"
    QComboBox* stretch = nullptr;    ///< "None", "Levels", "BCS", ...
    QLineEdit* parameters = nullptr; ///< read-only unless "Edit" is ticked
    QCheckBox* editParameters = nullptr;
    QPushButton* useLastButton = nullptr;
    QLineEdit* brightnessStep = nullptr;

protected:
    bool Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                 const std::string& prefix, FileSetBody* body) override;
};

} // namespace astrivelle
