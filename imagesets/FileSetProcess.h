// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The automatic image set process: the frames of a night (lights, darks, flats, flat
/// darks, bias) carried through master combination, calibration, colour conversion, extra
/// filters, normalization, grading, alignment and the final stack as one queue of steps. Each
/// step is the worker of the operation that owns it, run in turn with the previous step's
/// outputs as its input; the set steps write the masters into the calibration setup.
#pragma once
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "calibration/CalibrationSetup.h"
#include "imagesets/FileOperation.h"

namespace astrivelle {

struct CSetupParams;

/// The caller name every step runs under.
inline constexpr const char* kFileSetOwner = "CFileSetProcess";
/// The name of the parameters' record among the saved parameter records.
inline constexpr const char* kFileSetProcessRecord = "FileSetProcess";

// ---- fixed texts ----------------------------------------------------------------------------

inline constexpr const char* kFileSetSetupOpenText =
    "Please close Calibration Setup before using auto process calibration setup.";
inline constexpr const char* kFileSetNoCommandsText = "No Commands To Process.";
inline constexpr const char* kFileSetInputEmptyText =
    "Light frame input list empty. Light frame processing cancelled.";
inline constexpr const char* kFileSetInputEmptyStatus = "* Light Frame Processing Cancelled *";
inline constexpr const char* kFileSetCanceledStatus = "Processing Canceled";
inline constexpr const char* kFileSetRawBusyText = "Digital raw conversion is already in progress.";
inline constexpr const char* kFileSetCompleted = "Completed";
inline constexpr const char* kFileSetError = "Error";
/// The smoothing of the extra filters, always with this parameter text.
inline constexpr const char* kFileSetSmoothingParams =
    "Type : Selected Neighborhood#Filter Strength : 1.00000#Window Size : 3 x 3#Apply Min : "
    "0#Apply Max : 65535#Feather Range : 0#";

// ---- parameters -----------------------------------------------------------------------------

/// The frame kinds, in the order of their pages.
enum class FrameKind { Light, Dark, Flat, FlatDark, Bias };

/// "light", "dark", "flat", "flat dark", "bias": the word of the fixed texts.
const char* FrameKindWord(FrameKind kind);

/// One frame type's page: its files, how its master is combined and named.
struct FrameSetPage {
    std::vector<std::string> files;
    std::string method = "MED"; ///< combine keyword (AVG, EXCAVG, MED, ...)
    std::string name;           ///< the combination's file name, without extension
};

/// CAutoProcessParams: everything a run needs, saved between runs.
struct CAutoProcessParams {
    FrameSetPage lights{{}, "AVG", "Combined"};
    FrameSetPage darks{{}, "MED", "MasterDark"};
    FrameSetPage flats{{}, "MED", "MasterFlat"};
    FrameSetPage flatDarks{{}, "MED", "MasterFlatDark"};
    FrameSetPage bias{{}, "MED", "MasterBias"};

    std::string processType = "CCD"; ///< "DSLR", "OSCCCD", "CCD"
    /// "COLOR", "CFA", "WBCFA", "BASICBAYER", "MONO" ("Mono": a mono output from Bayer data,
    /// which sets the resize step). Ignored for "CCD".
    std::string colorType = "CFA";
    std::string frameType = "RGB Geberic - RG,GB"; ///< the "Frame Type:" entry, for the record
    std::string cfaPattern = "RG,GB";              ///< its array code
    std::string bayerOutput = "RGB";               ///< "RGB", "GREEN", "RED", "BLUE"

    bool filters = false;                  ///< "Extra Filters  -->"
    bool filterBadPixels = true;           ///< "Reduce High, Low, Bloom Pixel"
    bool filterSmoothing = false;          ///< "Smoothing"
    std::string aggressiveness = "Normal"; ///< "Normal", "Aggressive", "Very Aggressive"

    bool normalizeFlats = false;
    /// "NONE" (off), "MAX", "AVG", "MIN" or "USER" (the target values below).
    std::string normalize = "NONE";
    double normalizeBackground = 5120;
    double normalizeDeviation = 2000;
    bool normalizeSetDeviation = false;

    /// "NONE" (off), "MAXECC" (the eccentricity limit), "PERCENTECC" (the best percentage)
    /// or "AUTOECC".
    std::string grade = "NONE";
    double gradeMaxEccentricity = 0.5;
    int gradePercent = 50; ///< 5 .. 95 in steps of 5

    std::string align = "NONE"; ///< "NONE", "QUICK", "AUTOSTAR"
    bool meridianFlip = false;
    bool mirrorFlip = false;
    bool wideRange = false;
    bool smallStars = false;

    bool combine = true; ///< "Combine"
    double clipFactor = 2.55;
    std::string saveType = "UNCOMPFIT";   ///< intermediate file type
    std::string convertedPrefix = "CVT_"; ///< "Converted File Prefix: " of the raw conversions
    std::string outputDirectory;
    bool minimizeDisk = false; ///< "Minimize Hard Drive Use "
    bool displayCombination = false;

    bool autoDarkMatch = false;
    bool adaptiveWithDark = false;
    bool adaptiveWithoutDark = false;
    std::string adaptiveLevel = "Normal";

    const FrameSetPage& Page(FrameKind kind) const;
    FrameSetPage& Page(FrameKind kind);
};

/// The record text: one "name=value" line per field; a file list one "name=path" line per
/// file.
std::string FormatAutoProcessParams(const CAutoProcessParams& params);
/// Reads a record over `params` (lists named in it are replaced). False for a line without
/// "=", a value that does not read as its field's type, or a keyword its field does not take.
bool ParseAutoProcessParams(const std::string& text, CAutoProcessParams* params);
/// Stores the record under kFileSetProcessRecord / reads it back (false when absent or bad;
/// `params` then keeps the values read so far).
void SaveAutoProcessParams(CSetupParams& setup, const CAutoProcessParams& params);
bool LoadAutoProcessParams(const CSetupParams& setup, CAutoProcessParams* params);

// ---- checks and the queue -------------------------------------------------------------------

/// True for a file the raw conversion takes (a camera raw extension other than TIFF).
bool IsDigitalRawFile(const std::string& path);

/// The checks at the start of a run: the Calibration Setup window (`setupDialogOpen`), the
/// output folder, a file in two lists, raw files under "CCD", the combination names, then the
/// frames of every list (readable, one size, the colour type of the process type). False with
/// the first refusal's fixed text. Files that can't be read are listed through `notify` when
/// it answers Yes to the question.
bool CheckFileSetProcess(const CAutoProcessParams& params, bool setupDialogOpen, INotify* notify,
                         std::string* text);

/// One command of the queue (CFileSetOpElement) and how it ended.
struct CFileSetOpElement {
    std::string name;   ///< "Combine Dark Frames", ...
    std::string detail; ///< what it works with: the method, the count, the master
    std::string state;  ///< empty while queued, "Completed" or "Error"
    std::string result; ///< the step's own final text
};

/// Stage one: the raw conversions of a DSLR run with raw files and "Check Converted Files";
/// empty otherwise.
std::vector<CFileSetOpElement> BuildConversionList(const CAutoProcessParams& params);
/// Stage two, in order: the masters and their set steps, then the light frame steps.
/// `rawConverted` is true when stage one ran (one raw dark is then still combined).
std::vector<CFileSetOpElement> BuildCommandList(const CAutoProcessParams& params,
                                                bool rawConverted = false);

// ---- the run --------------------------------------------------------------------------------

struct FileSetRunResult {
    bool started = false; ///< false when a check refused the run
    bool ok = false;      ///< every step "Completed"
    bool cancelled = false;
    std::string text;   ///< the refusal or the failing step's text
    std::string status; ///< the final status line
    std::vector<CFileSetOpElement> steps;
    std::string summary;              ///< the statistics summary
    CalibrationSetup setup;           ///< the calibration setup as the set steps left it
    std::vector<std::string> masters; ///< dark, flat, flat dark, bias master paths (set ones)
    std::string combined;             ///< the final stack, when written
    /// Counters of the summary.
    int initialLights = 0, calibrated = 0, bayerConverted = 0, resized = 0, filtered = 0,
        normalized = 0, graded = 0, aligned = 0, combinations = 0;
};

/// The statistics summary of a finished run (see FileSetRunResult).
std::string FileSetSummary(const FileSetRunResult& result);

/// Told, on the running thread, of each step of the queue as it starts (its state empty) and
/// as it ends ("Completed" or "Error"); `index` is the step's place in
/// FileSetRunResult::steps (stage two follows the conversions).
using FileSetStepObserver = std::function<void(std::size_t index, const CFileSetOpElement& step)>;

/// Runs the whole process on the calling thread: the checks, the queue, each step through its
/// worker with the previous light step's outputs, the set steps into `setup` (cleared of
/// frames first; may be null), "Minimize Hard Drive Use ", and the summary. The outputs stand
/// in FileOpLists() under "Processed ... Frames". The cancel flag of `progress` ends the run
/// after the running worker stops ("Processing Canceled"). A second run while one is going is
/// refused with "Auto Image Set Processing Is Currently Busy.". `onStep`, when set, follows
/// the queue step by step.
FileSetRunResult RunFileSetProcess(const CAutoProcessParams& params, IProgress* progress,
                                   INotify* notify, CalibrationSetup* setup = nullptr,
                                   bool setupDialogOpen = false,
                                   const FileSetStepObserver& onStep = {});

/// The same run for a caller that has just passed CheckFileSetProcess with these parameters
/// (a window that shows the refusals itself): the files are not read for the checks again.
FileSetRunResult RunCheckedFileSetProcess(const CAutoProcessParams& params, IProgress* progress,
                                          INotify* notify, CalibrationSetup* setup = nullptr,
                                          const FileSetStepObserver& onStep = {});

} // namespace astrivelle
