// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Grade Files: every image of a set rated by edge sharpness (a whole-image gradient
/// energy, graded A to F) or by star shape and size (from the star search), and the chosen
/// ones copied, not processed, under names that carry their grade; the text reports.
#pragma once
#include <array>
#include <string>
#include <vector>

#include "engine/SetupParams.h"
#include "imagesets/FileOperation.h"

namespace astrivelle {

inline constexpr const char* kGradeOwnerDialog = "CGradeFiles";
inline constexpr const char* kGradeOwnerPipeline = "CFileSetProcess";
inline constexpr const char* kGradeOperationName = "Grade Files";

// Status texts.
inline constexpr const char* kGradeFocusText = "Calculate Focus Grades...";
inline constexpr const char* kGradeSavingSharpnessText = "Saving Sharpness Graded Files...";
inline constexpr const char* kGradeStarDataText = "Calculating Star Shape Data...";
inline constexpr const char* kGradeSavingShapeText = "Saving Star Shape Graded Files...";
inline constexpr const char* kGradeDoneText = "Completed";

// Failure texts.
inline constexpr const char* kGradeNoneText = "No Images Graded";
inline constexpr const char* kGradeNoStarsText = "No Stars Detected";
inline constexpr const char* kGradeReadErrorText = "Error reading ";
inline constexpr const char* kGradeSaveErrorText = "Error saving graded image - ";
inline constexpr const char* kGradeStarShapeUnavailableText = "Star shape data not available.";
inline constexpr const char* kGradePercentRangeText = "Best percentage index out of range";
inline constexpr const char* kGradeNoMemoryText = "No memory for operation";
inline constexpr const char* kGradeOneImageText =
    "The grade file operation requires at least one image.\nPlease select at least one image.";
inline constexpr const char* kGradeOneUsableText =
    "The grade file operation requires at least one usable image.\nPlease select at least one "
    "image.";
inline constexpr const char* kGradeIntervalsText =
    "Grade A must be greater than grade B etc...\n Please check the grade intervals.";
/// Formatted with the output folder and the reason.
inline constexpr const char* kGradeOutputDirFormat =
    "Please Check Output Directory.\nUnable to save graded file %s - %s";
inline constexpr const char* kGradeThreadFailedText = "Auto Grade thread could not be created.";

// Summary formats.
inline constexpr const char* kGradeSharpnessSummaryFormat =
    "Edge Sharpness : Best %4.3f, Avg %4.3f, Worst %4.3f, StdDev %4.3f";
inline constexpr const char* kGradeEccentricityFormat =
    "Star Eccentricity : Min %4.3f, Avg %4.3f, Max %4.3f, StD %4.3f";
inline constexpr const char* kGradeSizeFormat =
    "Star Size : Min %5.3f, Avg %5.3f, Max %5.3f, StD %5.3f";
inline constexpr const char* kGradeMinEccentricityFormat =
    "Min eccentricity %4.3f  >  max allowed eccentricity %4.3f  --  Star Eccentricity : Min "
    "%4.3f, Avg %4.3f, Max %4.3f, StD %4.3f";
inline constexpr const char* kGradeSelectedFormat = "Selected %d of %d";

// Report texts.
inline constexpr const char* kSharpnessReportFilter =
    "Auto Edge Sharpness Grade Report (*.txt)|*.txt|";
inline constexpr const char* kSharpnessReportTitle = "Auto Edge Sharpness Grade";
inline constexpr const char* kStarReportFilter =
    "Auto Star Sahpe and Size Grade Report (*.txt)|*.txt|";
inline constexpr const char* kStarReportTitle = "Auto Star Shape and Size Grade";

/// The star-shape selection keywords.
inline constexpr const char* kGradeMaxEcc = "MAXECC";
inline constexpr const char* kGradeAutoEcc = "AUTOECC";
inline constexpr const char* kGradePercentEcc = "PERCENTECC";

/// The stars one image may give: the capacity of the bounded search.
inline constexpr int kGradeStarCapacity = 5000;

enum class GradeMethod { Sharpness, StarShape };
/// The channel whose sharpness names and scores a file ("&Average Focus", "&Red Focus"...).
enum class FocusChannel { Average, Red, Green, Blue };
/// "Average", "Red", "Green" or "Blue".
const char* FocusWord(FocusChannel channel);

/// What a run is started with.
struct GradeRequest {
    std::string ownerName = kGradeOwnerDialog;
    std::string jobLabel;
    std::vector<std::string> files;
    std::string outputDirectory;
    GradeMethod method = GradeMethod::Sharpness;
    /// Star shape: MAXECC, AUTOECC or PERCENTECC.
    std::string mode = kGradeMaxEcc;
    /// MAXECC: the largest eccentricity allowed; PERCENTECC: the best percentage (5..95).
    double limit = 0.5;
    /// Sharpness: the lower limits of grades A, B, C, D in percent (A > B > C > D).
    std::array<double, 4> intervals{90, 80, 70, 60};
    /// Sharpness: "Use Images With These Edge Sharpness Grades" A, B, C, D, F.
    std::array<bool, 5> useGrades{true, true, true, true, true};
    FocusChannel focus = FocusChannel::Average;
    /// When set, the report is written there at the end.
    std::string reportPath;
};

/// An entry of the sharpness list (CAutoGradeList).
struct SharpnessGrade {
    std::string path, folder, name, extension; ///< name without folder or extension
    double red = 0, green = 0, blue = 0, mean = 0;
    double score = 0; ///< the focus channel's value over the set's largest
    char grade = 'F';
    int index = 0;
};

/// An entry of the star-shape list (CAutoStarGradeList).
struct StarShapeGrade {
    std::string path, folder, name, extension;
    double eccentricity = 0; ///< average over the image's stars
    double size = 0;         ///< average of (widthX + widthY + both diagonals) / 4
    int stars = 0;
    bool selected = false;
};

/// Minimum, average, maximum and standard deviation (n - 1) of a set of values.
struct GradeStats {
    double min = 0, avg = 0, max = 0, stdDev = 0;
};

struct GradeResult {
    FileOpResult run;
    bool started = false; ///< false when a check stopped it before the first file
    GradeMethod method = GradeMethod::Sharpness;
    std::vector<SharpnessGrade> sharpness;
    std::vector<StarShapeGrade> starShapes; ///< the images with stars, in list order
    int filesRead = 0;
    /// The summary lines, for the run's summary of the automatic process.
    std::vector<std::string> summary;
    std::string detail; ///< "Selected %d of %d" (star shape)
    std::string step;   ///< "Completed" or "Error", for the automatic process
    GradeStats eccentricity, size, combined;
    /// What the sharpness list was graded with, for a recalculation of the report.
    std::array<double, 4> intervals{90, 80, 70, 60};
    FocusChannel focus = FocusChannel::Average;
};

/// The edge sharpness of an image: the mean of the red, green and blue edge energies with
/// the grading kernels (one value standing for all three on a monochrome image). False for
/// a missing plane.
bool EdgeSharpness(const Image& image, double* red, double* green, double* blue, double* mean);

/// "A".."F" for a score (0..1) by the four limits in percent.
char SharpnessGradeLetter(double score, const std::array<double, 4>& intervals);
/// "AG" + grade + "_" + word + score ("%2.3f" without its point) + "_" + fileName.
std::string SharpnessGradeFileName(char grade, FocusChannel channel, double score,
                                   const std::string& fileName);
/// "ASG_ECC" + E ("%2.3f") + "Size" + S ("%4.3f") + "_" + fileName, points as hyphens.
std::string StarShapeGradeFileName(double eccentricity, double size, const std::string& fileName);

/// The worker body, on the calling thread: the checks, the measures of every file, the
/// grading or selection, and the copies. A second run while one is going ends at once with
/// "Grade Files Is Currently Busy.".
GradeResult GradeFiles(const GradeRequest& request, IProgress* progress, INotify* notify);

/// The text of a report: the star report of the star-shape list (`print` picks the print
/// form of the file lines), the sharpness report of the sharpness list.
std::string GradeReportText(const GradeResult& result, bool print = false);
/// Writes the save form of the report; false with the reason.
bool WriteGradeReport(const std::string& path, const GradeResult& result, std::string* error);

/// "Recalc&ulate" of the report: the list keeps the entries whose `keep` flag is set (one
/// flag per entry of the result's list) and its figures are computed again over them as the
/// run computes them: for sharpness the scores against the best kept file, the grades by the
/// result's limits and the summary line; for star shape the three statistics and the summary
/// lines, every kept entry selected. False, the result unchanged, when no entry is kept
/// ("No Images Graded") or the flags do not match the list.
bool RecalculateGrades(GradeResult* result, const std::vector<bool>& keep, std::string* error);

/// "Auto Min/Max" of the report: the entries within the automatic limits. Star shape: the
/// rule of "Auto", E + S <= (mean E + std. dev. E) + (mean S + std. dev. S) over the list.
/// Sharpness (higher is better): a score at or above the mean score less one standard
/// deviation (n - 1) of the scores.
std::vector<bool> AutoMinMaxSelection(const GradeResult& result);

/// Copies a graded file to outDir / name through a temporary name and a rename, never over one
/// of `inputs`, with plain read-write attributes; false with the reason in `why`.
bool CopyGraded(const std::string& source, const std::string& outDir, const std::string& name,
                const std::vector<std::string>& inputs, std::string* outPath, std::string* why);

// ---- the grade weights of "Edit Grades" ------------------------------------------------------

/// The record of the setup file that holds the five weights, "A B C D F" in percent. The
/// setup's first four integer presets hold A to D as well, for files written before it.
inline constexpr const char* kGradeWeightsRecord = "GradeWeights";
inline constexpr const char* kGradeWeightRangeText =
    "Grade weights must be whole numbers from 0 to 100.";

/// The weights in percent for A, B, C, D, F that the graded combines use.
std::array<int, 5> GradeWeightPercents(const CSetupParams& setup);
/// A weight as typed: a whole number 0..100 (spaces around allowed); false otherwise.
bool ParseGradeWeight(const std::string& text, int* value);
/// Stores the five weights (each 0..100) on the setup; false with kGradeWeightRangeText and
/// nothing changed when one is outside.
bool SetGradeWeightPercents(CSetupParams& setup, const std::array<int, 5>& percent,
                            std::string* error = nullptr);

} // namespace astrivelle
