// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The manual page of Grade Files: each image of the sheet's list shown in turn through
/// a display aid, graded with "&A" .. "&F" or passed with "&Skip", the graded ones copied as
/// the automatic grades are; and the grade weights "A%" .. "F%" the graded combines use.
#pragma once
#include <QGroupBox>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "imagesets/ManualGrade.h"

class QComboBox;
class QLabel;
class QPushButton;

namespace astrivelle {

class GradeWeightFields;
class ShellContext;

class ManualGradePage : public QGroupBox {
    Q_OBJECT
public:
    /// `checks` gives the usable files and the output folder, saying its own refusals.
    using StartChecks = std::function<bool(std::vector<std::string>*, std::string*)>;
    ManualGradePage(ShellContext& context, StartChecks checks, QWidget* parent);
    ~ManualGradePage() override;

    /// "Start": the pass over the usable files; false when a check or the list refuses.
    bool Start();
    /// A grade key ('A' .. 'F'), or 'S' for "&Skip".
    bool Press(char key);
    void Cancel();
    /// The copy of the current image as shown, with its aid applied ("Auto" leaves it as it is
    /// and the picture takes the auto display stretch).
    const Image* Shown() const { return shown_.get(); }
    const ManualGradeSession& Session() const { return session_; }

    QComboBox* aid = nullptr; ///< "Auto", "DDP", "Levels", "BCS"
    QPushButton* startButton = nullptr;
    QPushButton* keys[6] = {}; ///< "&A", "&B", "&C", "&D", "&F", "&Skip"
    QPushButton* cancelButton = nullptr;
    QLabel* picture = nullptr;
    QLabel* fileLabel = nullptr;
    QLabel* status = nullptr;
    GradeWeightFields* weights = nullptr;

private:
    /// Reads the current file, then shows it through the aid.
    void ShowCurrent();
    /// Shows the file read through the aid chosen now.
    void ShowAid();
    void Refresh();
    void StoreWeights();
    ShellContext& context_;
    StartChecks checks_;
    ManualGradeSession session_;
    std::unique_ptr<Image> original_, shown_;
};

} // namespace astrivelle
