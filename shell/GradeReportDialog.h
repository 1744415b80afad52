// SPDX-License-Identifier: GPL-3.0-or-later
/// \file "Report Or Select Graded Files": the table of a grade run's list (sharpness or star
/// shape), saving the report, and taking the selected rows as the set's output list.
#pragma once
#include <QDialog>

#include <functional>
#include <string>
#include <vector>

#include "imagesets/GradeFiles.h"

class QPushButton;
class QTableWidget;

namespace astrivelle {

class GradeReportDialog : public QDialog {
    Q_OBJECT
public:
    static constexpr const char* kTitle = "Report Or Select Graded Files";
    GradeReportDialog(const GradeResult& result, QWidget* parent = nullptr);

    /// Writes the save form of the report to `path` (WriteGradeReport); false with the reason.
    bool SaveReport(const std::string& path, std::string* error);
    /// The source files of the selected rows, in table order.
    std::vector<std::string> SelectedFiles() const;
    /// "Use and Save Selected &Files": the selected rows' files become the output list of
    /// "Grade Files"; false when no row is selected.
    bool UseSelected();

    QTableWidget* table = nullptr;
    QPushButton* saveButton = nullptr;
    QPushButton* useButton = nullptr;
    QPushButton* closeButton = nullptr;
    /// Told after UseSelected changed the output lists.
    std::function<void()> onUsed;

private:
    void AskAndSave();
    GradeResult result_;
};

} // namespace astrivelle
