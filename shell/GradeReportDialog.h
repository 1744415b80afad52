// SPDX-License-Identifier: GPL-3.0-or-later
/// \file "Report Or Select Graded Files": the table of a grade run's list (sharpness or star
/// shape) with its figures, recalculating them over the selected rows, the automatic
/// selection, the grade weights of the graded combines, printing the report to a PDF file,
/// saving it, and taking the selected rows as the set's output list.
#pragma once
#include <QDialog>

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "imagesets/GradeFiles.h"

class QLabel;
class QLineEdit;
class QPushButton;
class QTableWidget;

namespace astrivelle {

/// "&Edit Grades": the five weights in percent of the grades A, B, C, D, F that the graded
/// combines give a file ("A%" .. "F%"), each a whole number from 0 to 100.
/// The five grade weights "A%" .. "F%" as fields: read from the setup, stored back.
class GradeWeightFields : public QWidget {
    Q_OBJECT
public:
    /// In a column of labelled rows, or in one row.
    GradeWeightFields(bool row, QWidget* parent);
    void Load(const CSetupParams& setup);
    /// Reads the fields into the setup; false with kGradeWeightRangeText in `error` (and the
    /// focus on the field) when one does not read, nothing stored.
    bool Store(CSetupParams& setup, std::string* error);

    std::array<QLineEdit*, 5> weights{}; ///< A, B, C, D, F
};

class GradeWeightsDialog : public QDialog {
    Q_OBJECT
public:
    static constexpr const char* kTitle = "Edit Grades";
    GradeWeightsDialog(CSetupParams& setup, QWidget* parent = nullptr);
    /// Reads the five fields and stores them on the setup; false with kGradeWeightRangeText
    /// shown in `message` (and the focus on the field) when one does not read, nothing stored.
    bool Store();

    GradeWeightFields* fields = nullptr;
    std::array<QLineEdit*, 5> weights{}; ///< the fields' own
    QLabel* message = nullptr;
    QPushButton* okButton = nullptr;
    QPushButton* cancelButton = nullptr;

private:
    CSetupParams& setup_;
};

class GradeReportDialog : public QDialog {
    Q_OBJECT
public:
    static constexpr const char* kTitle = "Report Or Select Graded Files";
    /// `setup` holds the grade weights (the process's options when null).
    GradeReportDialog(const GradeResult& result, QWidget* parent = nullptr,
                      CSetupParams* setup = nullptr);

    /// The list and figures the report shows now.
    const GradeResult& Result() const { return result_; }
    /// Writes the save form of the report to `path` (WriteGradeReport); false with the reason.
    bool SaveReport(const std::string& path, std::string* error);
    /// The print form of the report ("%s  -  %s  -  %s  -  %s\n" lines).
    std::string PrintText() const;
    /// "&Print Report" to a PDF file at `path`, the print form in a fixed-pitch font; false
    /// with the reason.
    bool PrintReport(const std::string& path, std::string* error);
    /// The source files of the selected rows, in table order.
    std::vector<std::string> SelectedFiles() const;
    /// "Use and Save Selected &Files": the selected rows' files become the output list of
    /// "Grade Files"; false when no row is selected.
    bool UseSelected();
    /// "Recalc&ulate": the list keeps the selected rows and its figures and grades are
    /// computed again over them (RecalculateGrades); false with "No Images Graded" in the
    /// figures line when no row is selected.
    bool Recalculate();
    /// "Auto Min/Max": selects the rows within the automatic limits (AutoMinMaxSelection).
    void AutoMinMax();
    /// "&Edit Grades": opens the weights dialog (non-modal).
    GradeWeightsDialog* OpenEditGrades();

    QTableWidget* table = nullptr;
    QLabel* figures = nullptr; ///< the summary lines of the list
    QPushButton* saveButton = nullptr;
    QPushButton* useButton = nullptr;
    QPushButton* recalculateButton = nullptr;
    QPushButton* autoButton = nullptr;
    QPushButton* editGradesButton = nullptr;
    QPushButton* printButton = nullptr;
    QPushButton* closeButton = nullptr;
    /// Told after UseSelected changed the output lists.
    std::function<void()> onUsed;

private:
    void Fill();
    void AskAndSave();
    void AskAndPrint();
    GradeResult result_;
    CSetupParams* setup_;
};

} // namespace astrivelle
