// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The image-set sheets in one table: the menu item that opens each, and the operation
/// a sheet's "next" buttons hand their outputs to. A new sheet adds one entry here.
#pragma once
#include <QString>

#include <string>
#include <vector>

#include "imagesets/FileOperation.h"

class QMenu;
class QWidget;

namespace astrivelle {

class FileSetFrame;
class ShellContext;

struct FileSetSheetEntry {
    QString menuText;   ///< "&Calibrate Files..."
    QString objectName; ///< "actionCalibrateFiles"
    /// The busy flag the sheet runs under (Count_: none); a "next" button refuses with its
    /// busy text while it is set.
    FileOpKind kind = FileOpKind::Count_;
    /// The text of the button that opens this sheet with another sheet's outputs ("Calibrate",
    /// "Combine", ...); empty: no such button.
    QString nextText;
    /// Opens or raises the sheet (null when it can't open; it said why).
    QWidget* (*show)(ShellContext& context) = nullptr;
    /// Set for sheets built on FileSetFrame (the next buttons fill their input list).
    FileSetFrame* (*asFrame)(QWidget* sheet) = nullptr;
};

/// Every sheet, in menu order.
const std::vector<FileSetSheetEntry>& FileSetSheets();

/// Fills the "Image Sets" menu, one action per sheet.
void BuildFileSetMenu(QMenu* menu, ShellContext& context);

/// Opens the sheet of `entry` with `inputs` as its input list, unless its operation runs
/// (its busy text is said then). Null when it did not open.
FileSetFrame* OpenWithInputs(ShellContext& context, const FileSetSheetEntry& entry,
                             const std::vector<std::string>& inputs);

} // namespace astrivelle
