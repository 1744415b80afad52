// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The command clipboard: history records copied from one image, to be pasted into the
/// history of the same or another open image. One clipboard serves every image of the program:
/// the main window hands its list to each window it owns (CProcessWindow::copiedCommands), and
/// the history's copy and paste read and write that list.
#pragma once
#include <cstddef>
#include <string>
#include <vector>

#include "engine/ProcessStructure.h"

namespace astrivelle {

/// `prevImageFile` of a pasted command that has not been run.
inline constexpr const char* kReprocessCommandMark = "REPROCESS COMMAND";
/// `curImageFile` of a pasted command that has not been run.
inline constexpr const char* kNotRunMark = "~~";

/// The operations on the shared list of copied records.
class CCommandClipboard {
public:
    /// Replaces the contents with `records` (copied by value).
    void Set(const std::vector<CProcessStructure>& records) { records_ = records; }
    /// Appends one record.
    void Add(const CProcessStructure& record) { records_.push_back(record); }
    void Clear() { records_.clear(); }
    bool Empty() const { return records_.empty(); }
    std::size_t Size() const { return records_.size(); }
    const std::vector<CProcessStructure>& Records() const { return records_; }
    /// The list itself, as the windows hold it.
    std::vector<CProcessStructure>& Storage() { return records_; }

    /// Copies of the records as a paste inserts them: `prevImageFile` "REPROCESS COMMAND"
    /// and `curImageFile` "~~", so that they can only be run forward; everything else (blend
    /// values, mask, channels, parameters) as copied.
    std::vector<CProcessStructure> PasteCopies() const;

private:
    std::vector<CProcessStructure> records_;
};

/// The clipboard shared by all open images of this process (the main window's
/// `copiedCommands`).
CCommandClipboard& SharedCommandClipboard();

} // namespace astrivelle
