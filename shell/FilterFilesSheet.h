// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Filter Files sheet: the list of operators (name and "#" parameter text) replayed
/// in order on each file, taken from the active image's history or a project file, reordered
/// and removed on the methods page; the prefix ("FF_" by default) and the save type.
#pragma once
#include "engine/ProcessStructure.h"
#include "shell/FileSetFrame.h"

class QLabel;

namespace astrivelle {

class FilterFilesSheet : public FileSetFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CFilterFilesDlg";
    static constexpr bool kNeedsImage = false;
    explicit FilterFilesSheet(ShellContext& context);
    static FilterFilesSheet* Show(ShellContext& context);

    /// The rows in list order, each with the text as it stands in its field.
    std::vector<CProcessStructure> Records() const;
    void SetRecords(const std::vector<CProcessStructure>& records);
    /// Adds every replayable step of the active image's applied history, and takes the
    /// image's colour model; false (said) when there is no image or no such step.
    bool AddFromImage();
    /// Adds the step of the active image chosen in `imageSteps`.
    bool AddChosenStep();
    /// Adds the commands of a project file and takes its colour model; false with the
    /// reader's text said.
    bool AddFromProject(const std::string& path);
    /// Moves the selected row one place up (-1) or down (+1); false at an end or without one.
    bool MoveSelected(int by);
    /// Removes the selected rows; false (said) when none is selected.
    bool RemoveSelectedRows();
    /// "COLOR" or "MONO" of the source the rows came from, empty for either.
    const std::string& ColorModel() const { return colorModel_; }

    QTreeWidget* operators = nullptr; ///< "Operator", "Parameters"
    QComboBox* imageSteps = nullptr;  ///< the active image's replayable steps
    QPushButton* addStepButton = nullptr;
    QPushButton* addAllButton = nullptr;
    QPushButton* addProjectButton = nullptr;
    QPushButton* removeOperatorButton = nullptr;
    QPushButton* moveUpButton = nullptr;
    QPushButton* moveDownButton = nullptr;
    QPushButton* clearOperatorsButton = nullptr;
    QComboBox* saveType = nullptr;
    QLabel* colorModelLabel = nullptr;

protected:
    bool Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                 const std::string& prefix, FileSetBody* body) override;
    void OnImageChanged() override;

private:
    void AddRow(const CProcessStructure& record);
    void SetColorModel(const std::string& model);
    void RefreshImageSteps();
    std::vector<CProcessStructure> steps_; ///< what imageSteps lists
    std::string colorModel_;
};

} // namespace astrivelle
