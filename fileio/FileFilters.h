// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The file dialogs' filter strings and the save dialog's extension check (CFileDlg), as
/// plain functions: the platform's dialogs show them, these decide.
#pragma once
#include <span>
#include <string>
#include <vector>

namespace astrivelle {

/// Each entry is "text|patterns|"; a dialog's filter is the entries one after another.
std::string JoinFilters(std::span<const char* const> entries);

/// The list images are opened with: all files, FIT, TIFF, JPEG, BMP, SBIG, then the seven
/// camera raw entries (Canon crw, Canon cr2, Nikon, Kodak, Pentax, Olympus, Sony). The dialog's
/// filter index is 1-based in this order.
std::span<const char* const> OpenImageFilterEntries();

/// The per-extension SBIG entries of the save dialogs, from "SBIG (*.sbig)" to
/// "SBIG PixCel237 Type 3 Format (*.237)".
std::span<const char* const> SaveSbigFilterEntries();

/// The raw conversion file list: all files, the seven camera raw entries of the open list,
/// then "Nikon (*.nef; *.nrw)", "Adobe Digital Negative (*.dng)", "Fuji (*.raf)" and
/// "Canon 1Ds (*.tif)".
std::span<const char* const> RawConversionFilterEntries();

/// The ordinary save of an image (mode 20): the FIT and the TIFF entry.
std::span<const char* const> SaveImageFilterEntries();

/// The filter index the ordinary save starts at: 2 (TIFF) for an image of kind KindTIFF,
/// else 1 (FIT).
int SaveImageFilterIndex(int fileType);

/// The fixed texts of the check.
inline constexpr const char* kRemovePeriodText = "Please remove the period from the filename.";
inline constexpr const char* kSaveAsTitle = "Save As";
inline constexpr const char* kInvalidExtensionText =
    " has an invalid extension for its type.\nPlease remove the extension from the name and "
    "choose an extension from the type list.";

/// The extensions (upper case, no dot) a save dialog of this mode lets the user type. False
/// for mode 19, which checks nothing; an unknown mode gives true with an empty list (every
/// typed extension is refused).
bool SaveDialogExtensions(int mode, std::vector<std::string>* allowed);

/// What the dialog says when the user confirms `fileName` (the name as typed; a folder part
/// before the last '/' or '\\' is ignored).
struct SaveNameCheck {
    bool accepted = true;
    std::string message; ///< the period text, or the name + kInvalidExtensionText
    std::string title;   ///< kSaveAsTitle for the invalid extension box, else empty
};

/// The extension after the last point is upper-cased. A point with nothing after it gives the
/// period text (in every mode); an empty extension passes (the dialog supplies one); any other
/// must be in the mode's list, else the "Save As" box with the name.
SaveNameCheck CheckSaveFileName(int mode, const std::string& fileName);

} // namespace astrivelle
