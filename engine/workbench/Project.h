// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Project files: the `.qxj` text that keeps one image's process history, its report
/// text, the copying of step files into the project's folder, and the two readers (the whole
/// project into a window, or its commands only for Filter Files).
///
/// A `.qxj` file has a heading line and then one line per history record, fields closed by
/// '<' and the line by "<>". Version 5.0 lines hold 63 fields; version 2.0 lines the first 8,
/// the others taking the defaults of a new record. Paths and parameter texts stand unquoted,
/// so they can't hold '<' or '>'.
#pragma once
#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "engine/ProcessStructure.h"

namespace astrivelle {

class CProcessWindow;
class INotify;

// ---- headings -------------------------------------------------------------------------------
inline constexpr const char* kProjectColorHeading = "Astrivelle Color Project v5.0<>";
inline constexpr const char* kProjectMonoHeading = "Astrivelle Monochrome Project v5.0<>";
/// What a reader looks for in line 0 (a v5.0 heading is tested with its '<').
inline constexpr const char* kProjectColorV5 = "Astrivelle Color Project v5.0<";
inline constexpr const char* kProjectMonoV5 = "Astrivelle Monochrome Project v5.0<";
inline constexpr const char* kProjectColorV2 = "Astrivelle Color Project v2.0<";
inline constexpr const char* kProjectMonoV2 = "Astrivelle Monochrome Project v2.0<";

/// Markers of a pasted command that has not been run.
inline constexpr const char* kReprocessCommand = "REPROCESS COMMAND";
inline constexpr const char* kNotRunFile = "~~";

// ---- fixed texts ----------------------------------------------------------------------------
inline constexpr const char* kProjectNameCharsText =
    "A file name can't contain any of the following characters:\n";
inline constexpr const char* kProjectNameEmptyText = "Please Enter A Project Name.";
inline constexpr const char* kProjectOpenErrorFormat =
    "Error Opening Project File : Path = %s\n Name = %s\n Commands = %s\n Images = %s\n Text = %s";
inline constexpr const char* kProjectSaveDirText =
    "Could not save project to the specified directory.";
inline constexpr const char* kProjectSaveFilterText =
    "Could not save project filter file to the specified directory.";
inline constexpr const char* kProjectSaveMaskText =
    "Could not save project mask file to the specified directory.";
inline constexpr const char* kProjectCopy1Format =
    "Error 1 Copying Image File  : Path = %s\n Name = %s\n Commands = %s\n Images = %s\n Text = "
    "%s\n From = %s\n To = %s";
inline constexpr const char* kProjectCopy2Format =
    "Error 2 Copying Image File : Path = %s\n Name = %s\n Commands = %s\n Images = %s\n Text = "
    "%s\n From = %s\n To = %s";
inline constexpr const char* kProjectTextOpenErrorFormat =
    "Error Opening Text File : Path = %s\n Name = %s\n Commands = %s\n Images = %s\n Text = %s";

inline constexpr const char* kLoadProjectTitle = "Load Project";
inline constexpr const char* kSelectProjectFileTitle = "Select Project File";
inline constexpr const char* kProjectFileFilter =
    "Astrivelle Project (*.qxj)|*.qxj|All Files (*.*)|*.*|";
inline constexpr const char* kProjectFormatErrorText =
    "Project Format Error. The Project Did Not Load.";
inline constexpr const char* kProjectNotProjectText =
    "Project Format Error - Not An QX Project 2.0 or 5.0?\nThe Project Did Not Load.";
inline constexpr const char* kProjectCorruptText =
    "Project Format Error - Corrupt Project File.\nThe Project Did Not Load.";
inline constexpr const char* kProjectInitialNameText =
    "Project Format Error - Corrupt Project Initial Image File Name.\nThe Project May Not Load.";
inline constexpr const char* kProjectMovedText =
    "The Directory Path Saved In The Project Does Not Match The Current Open Project Path.\n"
    "Please Select Or Create A Directory On A Hard Drive To Restore The Project.";
inline constexpr const char* kProjectRestoreFolderTitle =
    "Select A Project File Save Directory On A Hard Drive.";
inline constexpr const char* kProjectInitialMissingText =
    "The Project Initial Image Is Not Available.\nA New Color Image Will Be Created And the "
    "Commands Copied.";
inline constexpr const char* kProjectCantLoadText = "Can't Load Project.";
inline constexpr const char* kProjectNotAllOperationsText =
    "Operation Format Error - Not All Operations Loaded.";
inline constexpr const char* kProjectCommandsFormatText = "Project File Format Error.";
inline constexpr const char* kProjectNoCommandsText = "The Project File Contains No Commands.";

// ---- the line format ------------------------------------------------------------------------

/// The field reader: finds '<' in `text`. Above position 0: `field` takes what stands before
/// it and `text` what stands behind it. At position 0 (an empty field): `field` becomes empty
/// and `text` loses its first character. Both true; false when there is no '<'.
bool SplitField(std::string* field, std::string* text);

/// The heading line (with its "<>", without the newline) for an image of `colorType`.
const char* ProjectHeading(std::uint32_t colorType);

/// One v5.0 line of a record, "<>\n" included. Flags are written 1 or 0, the opacity with
/// three decimals, the surface with fifteen; numbers never depend on the locale.
std::string FormatProjectLine(const CProcessStructure& record);

/// The text that a reader keeps of a line: what stands before the first '>'. False when the
/// line holds no '>' at a position of at least 1.
bool CutProjectLine(const std::string& line, std::string* text);

/// The version of a heading line (already cut): 5 or 2, 0 when it is not a project. `color`
/// tells the colour model of the heading.
int ProjectHeadingVersion(const std::string& text, bool* color);

/// Reads a later line (already cut) into `record`, in field order: the two paths, the
/// channel flags, operation, parameters, and for v5.0 the blend, mask and surface fields.
/// Fields a v2.0 line lacks keep the values `record` has. False when a field is missing.
bool ParseProjectFields(std::string text, bool v5, CProcessStructure* record);

/// Numbers as the reader takes them: leading blanks, an optional sign, digits (atoi) or a
/// decimal number (atof); anything unreadable is 0. The decimal point is always '.'.
int ProjectAtoi(const std::string& text);
double ProjectAtof(const std::string& text);

/// printf's "%.*f" without the locale (the writer's "%4.3f" and "%16.15f").
std::string ProjectFixed(double value, int decimals);

// ---- the report text ------------------------------------------------------------------------

/// "Normal" .. "Lab Luminosity" by blend mode index; "Normal" for an index out of range.
const char* ProjectBlendModeName(int mode);

/// The report's date, "%d/%d/%d %d:%d" of month, day, year, hour and minute, with the minute
/// written "0%d" when below 10.
std::string ProjectReportDate(const std::tm& when);

/// The report of a history: heading, final name, comment, date, then each record's paths
/// (when `withImages`), channels, operation, blend, mask and parameter fields.
std::string ProjectReportText(const std::vector<CProcessStructure>& records, bool color,
                              const std::string& finalName, const std::string& comment,
                              bool withImages, const std::string& date);

/// `path` with ".qxj" or ".QXJ" changed to ".txt" (appended when neither is there).
std::string ProjectTextPath(const std::string& path);

// ---- saving ---------------------------------------------------------------------------------

/// The save tool's checks of a project name: no \ / : * ? " < > |, then not empty once
/// trimmed. False with the text to show (the characters' text with 30 blanks and the nine
/// characters, or "Please Enter A Project Name."); `trimmed` takes the name to use.
bool ValidateProjectName(const std::string& name, std::string* trimmed, std::string* text);

/// The project's path: folder, '/', name and ".qxj", with doubled separators made single
/// except a leading pair.
std::string ProjectPathFor(const std::string& folder, const std::string& name);

/// Copies `source` into `folder` under its own name through a temporary file and a rename,
/// and makes the copy writable (a source may be read-only). A source that already is that
/// file is not copied. `copy` gets the path in the folder. False when the copy failed.
bool CopyIntoFolder(const std::string& source, const std::string& folder, std::string* copy);

/// Writes `text` to `path` through a temporary file in the same folder, renamed over `path`
/// only when complete. False when the file couldn't be written.
bool WriteTextSafely(const std::string& path, const std::string& text);

// ---- reading --------------------------------------------------------------------------------

/// The commands of a project for Filter Files: the records after the origin, their paths
/// dropped. `colorModel` takes "COLOR" or "MONO" by the heading. False with the fixed text in
/// `errorText` (and `list` emptied) on a format error or when there is no command.
bool ReadProjectCommands(const std::string& path, std::vector<CProcessStructure>* list,
                         std::string* colorModel, std::string* errorText);

/// Every record of a project as it stands in the file, the origin first (its channel and
/// blend fields at their defaults, as Load Project takes them), without any window or image.
/// `color` tells the heading's model. False with the fixed text of Load Project in
/// `errorText` on a format error; `records` then holds what was read before it.
bool ReadProjectRecords(const std::string& path, std::vector<CProcessStructure>* records,
                        bool* color, std::string* errorText);

/// How LoadProjectFile reaches the parts of the program around it.
struct ProjectLoadOptions {
    /// Opens the origin image into the window by the normal open path; by default the image
    /// is read by its extension and the window's path and title set from the file.
    std::function<bool(CProcessWindow& window, const std::string& path)> openImage;
    /// The default save type, which picks the placeholder's extension (".fit" for the FITS
    /// types, ".tif" otherwise); empty takes the one of the options in force.
    std::string defaultSaveType;
};

/// What LoadProjectFile did.
struct ProjectLoadResult {
    bool opened = false;      ///< the window holds an image and at least the origin record
    bool complete = false;    ///< every line was read
    bool moved = false;       ///< the project's paths named another folder
    bool placeholder = false; ///< the origin was missing: a new 200 x 200 colour image
    bool color = false;       ///< the heading's colour model
    int version = 0;          ///< 5 or 2
    std::string restoreFolder;
};

/// Load Project without its file dialog: reads `qxjPath` into `window` (image, history,
/// path), asking through the window's notifier (the moved-project box and folder picker) and
/// telling every failure with its fixed text. Step files are copied, never deleted. After a
/// load `currentStep` is 0: the origin is shown, and Redo or All Commands go forward.
/// Returns result->opened.
bool LoadProjectFile(const std::string& qxjPath, CProcessWindow& window,
                     const ProjectLoadOptions& options = {}, ProjectLoadResult* result = nullptr);

/// The placeholder's file name: "NI__%d" with the first number free in `folder`, and the
/// extension by the save type.
std::string PlaceholderImagePath(const std::string& folder, const std::string& saveType);

} // namespace astrivelle
