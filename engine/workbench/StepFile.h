// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Step files of the process history: their names (`M31$1.fit`, `M31Filter$1.fit`), the
/// test that a folder can take them, and a write that never leaves a half-written file under a
/// name the history points to.
#pragma once
#include <cstdint>
#include <string>

namespace astrivelle {

class Image;

/// Name of the file the writable test creates and deletes in a folder.
inline constexpr const char* kStepTestFileName = "AstrivelleTESTPATH1#2#3.txt";
/// Shown when a folder can't take step files: the folder, then the system's error text.
inline constexpr const char* kStepCheckDirectoryFormat =
    "Please Check The Output Directory\n%s - %s";

/// Number templates of the two kinds of step file.
inline constexpr const char* kStepImageTag = "$%d";
inline constexpr const char* kStepFilterTag = "Filter$%d";

/// True when a file can be created in `folder`: creates and deletes kStepTestFileName there.
/// On failure `errorText` takes the system's error text.
bool StepFolderWritable(const std::string& folder, std::string* errorText = nullptr);

/// The stem step files take from an image's file name: the name without its extension, and
/// without a trailing "$<digits>" so that the steps of an image shown from its own step file
/// keep numbering `M31$N` rather than growing `M31$1$1`.
std::string StepStemOf(const std::string& fileName);

/// `folder/stem` + the tag with `number` + `extension`.
std::string StepFilePath(const std::string& folder, const std::string& stem, const char* tag,
                         int number, const std::string& extension);

/// The lowest-numbered step file name from 1 upward for which no file exists.
std::string FreeStepFilePath(const std::string& folder, const std::string& stem, const char* tag,
                             const std::string& extension);

/// What a step file holds.
enum class StepFileKind {
    State,  ///< the shown state, written by the ordinary save of the image's file kind
    Filter, ///< the pure operator result (the work rows), always a float FITS file
};

/// Writes a step file of `image` into `folder`: first under a temporary name, then moved, in
/// one step that never replaces an existing file, to the lowest free name of the tag (the
/// probe is repeated when another writer took a name meanwhile). The final name appears only
/// with the whole file behind it. `path` takes the final name; on failure the temporary file
/// is gone and `failText` holds the text to show.
bool WriteStepFile(Image& image, StepFileKind kind, const std::string& folder,
                   const std::string& stem, const std::string& extension, std::string* path,
                   std::string* failText);

} // namespace astrivelle
