// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Reading and writing an image by file extension or file kind, and the reason of the
/// last failure. Image::ReadFile and Image::WriteFile (declared in engine/Image.h) live here.
#pragma once
#include <cstdint>
#include <string>

namespace astrivelle {

/// Why the last image file operation of this thread failed, in plain words ("TIFF files are
/// not supported yet", a cfitsio status text, ...). Empty after a success. The caller still
/// words the message a user sees; this is the detail behind it.
std::string LastFileError();

/// The text shown when writing an image of a file kind failed: "Error writing image to disk."
/// (FITS), "Error writing TIFF image to disk.", "Error writing JPEG image to disk.", "Error
/// writing SBIG image to disk.", "Could Not Save " + name + " In A Windows 24 Bit BMP Format.",
/// and "File Type Is Not Defined, \nPossible Corrupt Object Or File." for an unknown kind.
std::string WriteFailureText(std::int32_t fileKind, const std::string& name);

/// Stores the reason of a failure for LastFileError (format code calls it where it fails).
void SetLastFileError(const std::string& reason);

/// Clears the reason; the entry points call it first.
void ClearLastFileError();

/// The extension with its dot upper-cased (".fit" -> ".FIT"); "" stays "".
std::string UpperExtension(const std::string& extension);

/// True when the upper-cased extension names FITS (".FIT", ".FTS", ".FITS").
bool IsFitsExtension(const std::string& extension);

/// The still-image kind an extension names (upper-cased, with its dot): "FITS", "TIFF",
/// "JPEG", "BMP", "SBIG", "RAW", or "" when the extension is not one of the image kinds.
std::string ImageKindOfExtension(const std::string& extension);

} // namespace astrivelle
