// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Grade Files sheet: the automatic page (edge sharpness with its grade limits and
/// switches, or star shape with its selection), the run on the worker, and the report dialog
/// of the last run; the manual page (shell/ManualGradePage.h) on a tab of its own.
#pragma once
#include <memory>

#include "imagesets/GradeFiles.h"
#include "shell/FileSetFrame.h"

class QCheckBox;
class QRadioButton;

namespace astrivelle {

class GradeReportDialog;
class ManualGradePage;

class GradeSheet : public FileSetFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CGradeFiles";
    static constexpr bool kNeedsImage = false;
    explicit GradeSheet(ShellContext& context);
    static GradeSheet* Show(ShellContext& context);

    /// The request the controls describe (files and folder left empty); false when a number
    /// does not read.
    bool ReadRequest(GradeRequest* request);
    /// The whole result of the last run.
    const GradeResult& LastGradeResult() const { return *result_; }
    /// Opens (or raises) the report of the last run; null when there was none.
    GradeReportDialog* OpenReport();

    QRadioButton* bySharpness = nullptr;
    QRadioButton* byStarShape = nullptr;
    QLineEdit* limits[4] = {};   ///< lower limits of A, B, C, D in percent
    QCheckBox* useGrade[5] = {}; ///< A, B, C, D, F
    QComboBox* focus = nullptr;  ///< "&Average Focus" ...
    QRadioButton* maxEcc = nullptr;
    QComboBox* maxEccValue = nullptr; ///< " %4.2f"
    QRadioButton* percentEcc = nullptr;
    QComboBox* percentValue = nullptr; ///< " 95% " .. "  5% "
    QRadioButton* autoEcc = nullptr;
    QCheckBox* showReport = nullptr; ///< opens the report after a run
    QPushButton* reportButton = nullptr;
    ManualGradePage* manual = nullptr; ///< the manual page over the same list and folder

protected:
    bool Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                 const std::string& prefix, FileSetBody* body) override;
    void Finished(const FileOpResult& result) override;

private:
    void Refresh();
    std::shared_ptr<GradeResult> result_;
};

} // namespace astrivelle
