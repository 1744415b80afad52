// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The process history of an open image without its window: the step store that
/// BeginOperator saves through, the rows and details the history list shows, the print text,
/// and the fixed texts of undo, redo and the command editing. The operations themselves are
/// members of CProcessWindow (engine/ProcessWindow.h), defined in History*.cpp here.
///
/// Undo is neither an inverse operator nor a copy in memory: the state after each step lies
/// in a step file beside the image, and only the shown state and its input are in planes.
#pragma once
#include <ctime>
#include <string>
#include <vector>

#include "engine/ProcessStructure.h"
#include "engine/ProcessWindow.h"
#include "engine/workbench/CommandClipboard.h" // the clipboard and the marks of pasted rows

namespace astrivelle {

// ---- fixed texts ----------------------------------------------------------------------------
inline constexpr const char* kHistoryBrokenPrefix = "~~ ";
inline constexpr const char* kHistoryShownPrefix = ">>";
inline constexpr const char* kHistoryNoOperations = "No Operations";
inline constexpr int kHistoryBrokenColor = 200; ///< red value of the list's text when broken

inline constexpr const char* kUndoBlinkText = "Undo not available for Blink Image";
inline constexpr const char* kRedoBlinkText = "Redo not available for Blink Image";
inline constexpr const char* kHistoryNoImageText = "No Image Is Available";
inline constexpr const char* kHistoryBusyText = "Operation In Progress";
inline constexpr const char* kHistoryNoSelectionText = "No Commands Selected.";
inline constexpr const char* kHistoryCantCopyInitialText = "Can't Copy The Initial Image.";
inline constexpr const char* kHistoryConfirmDeleteText = "Confirm delete operation?";
inline constexpr const char* kHistoryCantDeleteInitialText = "Can't delete the initial image.";
inline constexpr const char* kHistoryPasteNoRowText =
    "Please Select A Command To Paste Commands After.";
inline constexpr const char* kHistoryReprocessText =
    "Please reprocess all commands marked with ~~ using the All Commands or Next Command "
    "button.";
inline constexpr const char* kAllCommandsCancelHint =
    "Hold Ctrl + Shift Down To Cancel All Commands";
inline constexpr const char* kAllCommandsCancelQuestion = "Cancel Forward Processing?";
inline constexpr const char* kStepReadErrorText = "Error reading process history image file.";
inline constexpr const char* kStepMemoryText =
    "Could not allocate memory. Please save your work and restart.";
inline constexpr const char* kStepResizeText =
    "Not enough storage to complete operation. Save work and restart Astrivelle.";
inline constexpr const char* kFilterMemoryText = "Could not allocate memory for image filter file.";
inline constexpr const char* kFilterSizeText =
    "Image filter file size does not match image size. Apply Filter.";
inline constexpr const char* kFilterReadText = "Error reading image filter file. Apply Filter.";
inline constexpr const char* kMaskSizeText =
    "Image mask size does not match current image size. Check mask.";
inline constexpr const char* kMaskMonoText =
    "Image mask file must be a monochrome image. Check mask.";
inline constexpr const char* kMaskReadText = "Error reading image mask file. Check mask.";
inline constexpr const char* kBlendNoMemoryText = "No Memory For Blend or Mask Operation.";
inline constexpr const char* kBlendMaskSizeText =
    "Mask width or height does not match current active image.";
inline constexpr const char* kBlendMaskMonoText = "Mask file must be a monochrome image.";
inline constexpr const char* kBlendMaskReadText = "Error reading image mask file.";
inline constexpr const char* kPrintConfirmText =
    "The Image Sequence Does Not Match The Commands.\nCommands Prefixed With ~~ Need To Be "
    "Applied To Be Consistent.\n Continue With Print?";
inline constexpr const char* kSaveAllAsConfirmText =
    "The Image Sequence Does Not Match The Commands.\nCommands Prefixed With ~~ Need To Be "
    "Applied To Be Consistent.\n Continue With Save All As?";

// ---- the step store ---------------------------------------------------------------------------

/// The step store of the workbench: BeginOperator saves the state before a new operator
/// through it into the image's step file. One instance serves every window.
class HistoryStepStore : public IStepStore {
public:
    bool SaveStepImage(CProcessWindow& window) override;
};

/// The step store every window opened by the workbench uses.
HistoryStepStore& TheHistoryStepStore();

/// Gives a window its history: the step store, so that operators save their steps.
void AttachHistory(CProcessWindow& window);

/// True when the option "Show and Set Filter Window on Undo, Redo, Double-click, Delete" is
/// on (the tool flag of the setup parameters).
bool ShowToolOnHistoryMoves();

// ---- what the history list shows --------------------------------------------------------------

/// The command list of an image as the history tool shows it.
struct HistoryListView {
    /// One row per record: the operation, after ">>" for the shown step and "~~ " for a row
    /// whose prevImageFile differs from the curImageFile of the row above. "No Operations"
    /// alone for an empty history.
    std::vector<std::string> rows;
    bool sequenceBroken = false; ///< some row carries "~~ "
    int textColor = 0;           ///< kHistoryBrokenColor (dark red) when broken, else 0
    /// The shown step: "Previous Image File : ", "Current Image File : ", "Apply to: " with
    /// the channels when channelSelect is set, then one row per `#` field of its parameters.
    std::vector<std::string> details;
};

HistoryListView BuildHistoryListView(const CProcessWindow& window);

/// Undo and redo as the main window's toolbar offers them.
bool UndoAvailable(const CProcessWindow& window);
bool RedoAvailable(const CProcessWindow& window);
/// "&Next Command" and "&All Commands": a step after the shown one exists.
bool ForwardAvailable(const CProcessWindow& window);
/// The history's blend controls: not for step 0 nor for the operators whose input and
/// result don't align ("Scale", "Bin", "Rotate", "Threshold", ...).
bool BlendControlsAvailable(const CProcessWindow& window);

/// Names the blend controls are disabled for.
bool IsNoBlendOperation(const std::string& operation);

/// Names of the operators that only work on colour images; PasteCommands drops them on a
/// monochrome image.
bool IsColorOnlyOperation(const std::string& operation);

/// The text of the tool check before a forward run of `operation`, or empty when its tool
/// is free (or the operator has no threaded tool).
std::string ToolCheckText(CProcessWindow& window, const std::string& operation);

// ---- the print text ---------------------------------------------------------------------------

/// The history tool's "&Print Text": the heading of the colour model, the date, and each
/// record's files, channels, operation, blend, mask and parameter fields, laid out as a
/// project's report.
std::string HistoryPrintText(const CProcessWindow& window, const std::tm& when);

/// Asks kPrintConfirmText (or kSaveAllAsConfirmText when `forSaveAllAs`) if the sequence is
/// broken or a step after the shown one has no file; true to go on.
bool ConfirmHistoryConsistent(CProcessWindow& window, bool forSaveAllAs);

} // namespace astrivelle
