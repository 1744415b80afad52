// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Star-match alignment of a set of files ("Auto Star"): every image brought onto one
/// reference without hand-picked points, by descriptor matching at full size (AutoStarThread)
/// or by Quick Alignment's voting over star pairs on scaled images (AutoStarQuickThread).
/// Each output is "ASA_" + the input's name; the reference is written first, unchanged.
#pragma once
#include <array>
#include <string>
#include <vector>

#include "imagesets/FileOperation.h"

namespace astrivelle {

inline constexpr const char* kAlignStarPrefix = "ASA_";
inline constexpr const char* kAlignStarOwnerDialog = "CAlignTSR";
inline constexpr const char* kAlignStarOwnerPipeline = "CFileSetProcess";
/// The output list's operation name (the Align Methods page).
inline constexpr const char* kAlignStarListName = "Align TSR Files";

inline constexpr const char* kSelectReferenceText = "Please select a reference image.";
inline constexpr const char* kTwoImagesForAlignText =
    "At least two images are required for align. Check the Exclude From Align box.";
inline constexpr const char* kErrorReadingReferenceText = "Error Reading Reference Image";
inline constexpr const char* kErrorReadingImageText = "Error Reading Image";
inline constexpr const char* kErrorWritingImageText = "Error Writing Image";
inline constexpr const char* kNoMemoryAlignImageText = "No memory for align image";
inline constexpr const char* kNoMemorySbigWriteText = "No memory for SBIG write image";
inline constexpr const char* kLessThan2ReferenceStarsText =
    "Less than 2 Stars Found in Reference Image.";
inline constexpr const char* kNoStarsCurrentText = "No Stars Found in Current Image.";
inline constexpr const char* kNotEnoughStarsQuickText =
    "Not enough stars for auto star. Use the Small Star-Wide Field option, different reference, "
    "On Reference, or On Each.";
inline constexpr const char* kReferenceScaleFailedText = "Reference Scale Failed";
inline constexpr const char* kScaleFailedText = "Scale Failed";
inline constexpr const char* kAnalyzeSetParamsText = "Analyze Image Set Parameters...";
inline constexpr const char* kAnalyzeReferenceText = "Analyze Reference Image...";
inline constexpr const char* kAnalyzeSetText = "Analyze Image Set...";
inline constexpr const char* kBuildAlignDataText = "Build Alignment Data...";
inline constexpr const char* kAlignSetText = "Align Image Set...";

/// The parameter block of a run.
struct AutoStarParams {
    std::string ownerName = kAlignStarOwnerDialog; ///< the caller's name
    CImageFileList files;                          ///< isReference and excluded are read
    std::string label;
    std::string referencePath; ///< empty: the file marked isReference, if any
    std::string outputDirectory;
    bool quickAlignment = true;
    bool meridianFlip = false;
    bool mirrorFlip = false;
    bool wideBrightnessRange = false;
    bool shortFLSmallStars = false;
    /// Honoured only for the owner "CFileSetProcess".
    std::string saveType = "SAMEASINPUT";
};

/// How one current image was aligned: the points that drove the resampling (0-based, in the
/// reference's and in the (flipped) current image's full-size pixels) and the results.
struct AlignStarFrame {
    std::string input, output;
    std::string flip = "N"; ///< quick only: the flip applied before the points were taken
    int votes = 0;          ///< quick only
    bool affine = true;     ///< AlignAffine3, else AlignRigid2
    std::vector<std::array<double, 2>> reference, current;
    double rotation = 0, shiftX = 0, shiftY = 0;
};

struct AlignStarResult {
    FileOpResult run;
    bool started = false;
    std::string step; ///< "Completed" or "Error", for the automatic process
    std::vector<AlignStarFrame> frames;
    double scale = 1.0; ///< quick: the factor s of the scaled search
};

/// The worker body on the calling thread: the checks, then AutoStarQuickThread or
/// AutoStarThread by `quickAlignment`. Only one alignment runs at a time (the Align Methods
/// page's busy flag).
AlignStarResult AlignStarFiles(const AutoStarParams& params, IProgress* progress, INotify* notify);

/// The map of a frame from the current image's own 0-based pixel coordinates (before any
/// flip) to the reference's: x' = m[0] x + m[1] y + m[2], y' = m[3] x + m[4] y + m[5]. The
/// affine of three point pairs, or the rotation and shift of two that bring the first current
/// point onto the first reference point, after the frame's flip of a `width` x `height`
/// image. False for point sets that fix no map.
bool AlignStarFrameMap(const AlignStarFrame& frame, int width, int height,
                       std::array<double, 6>* m);

/// The two worker entries (after the checks of AlignStarFiles); they return 0.
int AutoStarThread(const AutoStarParams& params, IProgress* progress, INotify* notify,
                   AlignStarResult* result);
int AutoStarQuickThread(const AutoStarParams& params, IProgress* progress, INotify* notify,
                        AlignStarResult* result);

} // namespace astrivelle
