// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The rules the image-set sheets of a front end follow, kept free of any window code:
/// whether an operation may start while others run, the output folder of a run and its
/// write test, the caption an output list shows, the list a run leaves, the choices of the
/// combination page and the parameter text of the last application of an operator.
#pragma once
#include <string>
#include <vector>

#include "engine/ProcessStructure.h"
#include "imagesets/FileOperation.h"

namespace astrivelle {

/// What every other file operation answers while the automatic image-set process runs.
inline constexpr const char* kAutomaticInProgressText = "Automatic Image Set Process In Progress.";
/// The name of the file the write test creates and deletes in an output folder.
inline constexpr const char* kOutputTestFileName = "AstrivelleTESTPATH1#2#3.txt";
/// Shown when an output folder can't take files: the folder, then the system's error text.
inline constexpr const char* kCheckOutputDirectoryFormat =
    "Please Check The Output Directory\n%s - %s";

/// Marks the Read Noise and Gain computation as running (or not). While it runs no image-set
/// operation starts ("Compute Read Noise & Gain In Progress.").
void SetReadNoiseGainRunning(bool on);
bool ReadNoiseGainRunning();

/// Why an operation of `kind` may not start now, or empty: "Compute Read Noise & Gain In
/// Progress." while that runs, the busy text of `kind` while it runs, and for Calibrate the
/// busy text of any other operation that runs (the automatic process excepted). FileOpKind::
/// Count_ stands for an operation without a busy flag (Convert): only the first rule applies.
std::string FileOpStartRefusal(FileOpKind kind);

/// The folder a run writes to: `text` trimmed, or when that is empty the folder of the first
/// input. The folder is created when missing and must take a file (kOutputTestFileName is
/// created and deleted); otherwise false with kCheckOutputDirectoryFormat filled in `message`.
bool ResolveOutputDirectory(const std::string& text, const std::vector<std::string>& inputs,
                            std::string* folder, std::string* message);

/// The kind of output list an operation name leaves: "Calibrate Files" Calibrated (or
/// CalibratedColor for colour data), "Bayer Interpolate/Split Files" Color, "Normalize Files"
/// Normalized, "Filter Files" Filtered, "Grade Files" Graded, the alignments Aligned. False
/// for operations whose lists have no caption of their own (Resize, Crop, Convert, Combine).
bool OutputListKindOf(const std::string& operation, bool color, OutputListKind* kind);

/// The caption a list shows in the "File List": its kind's caption ("Calibrated Image Set -
/// 3 images"), or for a list without a kind the operation name after the output label
/// ("3 Output Files : Resize Files").
std::string OutputListText(const CFileOpList& list);

/// The list a run of `operation` leaves: `outputs` in order, numbered from 0, with the kind
/// of OutputListKindOf (Calibrated when there is none; OutputListText does not use it then).
CFileOpList MakeOutputList(const std::string& operation, bool color,
                           const std::vector<std::string>& outputs);

/// The paths of a list, in order.
std::vector<std::string> ListPaths(const CFileOpList& list);

/// "Standard Deviation Clip Factor:": the 80 values 0.05 .. 4.00 in steps of 0.05, and the
/// index of the default (2.55).
const std::vector<double>& ClipFactorChoices();
inline constexpr int kDefaultClipFactorIndex = 50;

/// The HDR page's compress value of a slider position (position times 2 over 1000), and the
/// position that shows a value.
double CompressOfSlider(int position);
int SliderOfCompress(double compress);

/// The parameter text of the latest step of `operation` among the applied steps of a history
/// (entries 0 .. currentStep, the later ones undone). False when there is none.
bool LastAppliedParameters(const std::vector<CProcessStructure>& history, int currentStep,
                           const std::string& operation, std::string* parameters);

/// The applied steps of a history that Filter Files can replay, in order (steps whose
/// operator the replay registry knows; the first step, the reading of the file, is not one).
std::vector<CProcessStructure> ReplayableSteps(const std::vector<CProcessStructure>& history,
                                               int currentStep);

} // namespace astrivelle
