// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Reading and writing an image by file extension or file kind, and the reason of the
/// last failure. Image::ReadFile and Image::WriteFile (declared in engine/Image.h) live here.
#pragma once
#include <string>

namespace astrivelle {

/// Why the last image file operation of this thread failed, in plain words ("TIFF files are
/// not supported yet", a cfitsio status text, ...). Empty after a success. The caller still
/// words the message a user sees; this is the detail behind it.
std::string LastFileError();

/// Stores the reason of a failure for LastFileError (format code calls it where it fails).
void SetLastFileError(const std::string& reason);

/// Clears the reason; the entry points call it first.
void ClearLastFileError();

/// The extension with its dot upper-cased (".fit" -> ".FIT"); "" stays "".
std::string UpperExtension(const std::string& extension);

/// True when the upper-cased extension names FITS (".FIT", ".FTS", ".FITS").
bool IsFitsExtension(const std::string& extension);

} // namespace astrivelle
