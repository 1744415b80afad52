// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Manual grading: each image of a list shown in turn, graded A to F by the user (or
/// skipped), the graded ones copied under names that carry their grade, as the automatic
/// grades are, so that the graded combines read their weights back from the names.
#pragma once
#include <string>
#include <utility>
#include <vector>

namespace astrivelle {

class Image;

inline constexpr const char* kManualGradeInProgressText = "Manual Grade In Progress...";
inline constexpr const char* kManualGradeReadErrorText = "Error reading file";
inline constexpr const char* kManualGradeListErrorText = "Error reading file list";
inline constexpr const char* kManualGradeCannotReadText = "Could not read the file to grade";
inline constexpr const char* kManualGradeCompleteText = "Grading Complete";
inline constexpr const char* kManualGradeCanceledText = "Manual Grade Canceled";

/// The display aids of the page, in order: the auto display stretch, then three stretches
/// applied to a copy before it is shown.
inline constexpr const char* kManualGradeAids[4] = {"Auto", "DDP", "Levels", "BCS"};

/// The operator a display aid applies ("Digital Development", "Levels", "General Stretch
/// Functions"), or "" for "Auto" (and for an unknown aid).
std::string ManualGradeAidOperator(const std::string& aid);

/// The name of a graded copy: "AG" + letter + "_Average_" + the source's file name.
std::string ManualGradeName(char letter, const std::string& source);

/// One manual grading pass over a list of files.
class ManualGradeSession {
public:
    /// Starts over `files` into `outDir`: status "Manual Grade In Progress...". False with
    /// "Error reading file list" when the list is empty or a file of it does not exist.
    bool Start(const std::vector<std::string>& files, const std::string& outDir);
    /// True from Start until the last file is graded or skipped, or Cancel.
    bool Active() const { return active_; }
    std::size_t Index() const { return index_; }
    std::size_t Count() const { return files_.size(); }
    /// The file being graded ("" when none).
    std::string Current() const;
    /// Reads the current file for showing; false with "Error reading file" and the file's name.
    bool Read(Image* image, std::string* error) const;
    /// Grades the current file A, B, C, D or F: its copy is written and the next file comes.
    /// False with the reason, staying on the file: "Could not read the file to grade" when it
    /// is gone, "Error saving graded image - " and its name when the copy fails.
    bool Grade(char letter, std::string* error);
    /// Passes over the current file without a copy.
    void Skip();
    /// Ends the pass early: "Manual Grade Canceled". The copies made stay.
    void Cancel();
    /// The status: in progress, "Grading Complete" (the copies then published as the grade
    /// operation's output list), or canceled.
    const std::string& Status() const { return status_; }
    /// The copies written, in order, and each file's grade ('S' skipped).
    const std::vector<std::string>& Outputs() const { return outputs_; }
    const std::vector<std::pair<std::string, char>>& Grades() const { return grades_; }

private:
    void Next();
    std::vector<std::string> files_;
    std::string outDir_, status_;
    std::size_t index_ = 0;
    bool active_ = false;
    std::vector<std::string> outputs_;
    std::vector<std::pair<std::string, char>> grades_;
};

} // namespace astrivelle
