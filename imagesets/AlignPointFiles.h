// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Point-correlation alignment of a set of files (Align TSR): points marked on the
/// reference are followed through the set by normalized correlation (or taken as the user set
/// them on each image), and each image is translated, rotated, or translated, scaled and
/// rotated onto the reference; optionally into one large mosaic frame. Outputs are written as
/// tag + "_" + name with the alignment's history line as a COMMENT card.
#pragma once
#include <array>
#include <string>
#include <vector>

#include "imagesets/FileOperation.h"

namespace astrivelle {

/// The alignment types of the page, by keyword: "1PT", "2PT", "SRPT", "12PT".
enum class AlignPointType {
    Translate,            ///< 1PT, tag "Tn": the common (red) point
    Rotate,               ///< 2PT, tag "Rt": about the common point, angle by the blue point
    TranslateRotate,      ///< SRPT, tag "TnRt": the red and blue points
    TranslateScaleRotate, ///< 12PT, tag "TnScRt": red, blue and the scale points (3 or more)
};

const char* AlignPointKeyword(AlignPointType type);
const char* AlignPointTag(AlignPointType type);
/// "QX Alignment : Translate", "QX Alignment : Rotate", "QX Alignment : Translate & Rotate",
/// "QX Alignment : Translate, Scale, & Rotate".
const char* AlignPointHistory(AlignPointType type);
/// The type of a keyword; false for another word.
bool AlignPointTypeFromKeyword(const std::string& keyword, AlignPointType* type);

inline constexpr const char* kAlignPointOperation = "Align TSR Files";
inline constexpr const char* kAlignPointReferenceHistory = "QX Alignment : Reference Image";
inline constexpr const char* kAlignPointSizeText =
    "Shift, scale, and rotation alignment requires at least two images that are the same size";
inline constexpr const char* kAlignPointReferenceText =
    "Reference image must be used. Uncheck Reference Image box to exclude from alignment";
inline constexpr const char* kAlignPointRotationPointText =
    "Please select a common rotation point.";
inline constexpr const char* kAlignPointInvalidTypeText = "Invalid Alignment Type";
inline constexpr const char* kAlignPointMemoryText =
    "Could not allocate memory for align operation.";
inline constexpr const char* kAlignPointReadReferenceText = "Error Reading Reference Image";
inline constexpr const char* kAlignPointReadText = "Error Reading Image";
inline constexpr const char* kAlignPointReadMosaicText = "Error Reading Mosaic Image";
inline constexpr const char* kAlignPointMosaicSizeText = "Error Computing Mosaic Size";
inline constexpr const char* kAlignPointMosaicResizeText = "Mosaic Resize Reference Image Error";
inline constexpr const char* kAlignPointResizeText = "Error Image Resize - No Memory";
inline constexpr const char* kAlignPointWriteText = "Error writing aligned image";
inline constexpr const char* kAlignPointWriteReferenceText = "Can not write reference image.";
inline constexpr const char* kAlignPointNotCorrelatedText = "Images Not Correlated.";
inline constexpr const char* kAlignPointNoneCorrelatedText = "No Images Correlated";
inline constexpr const char* kAlignPointNoneAlignedText = "No Images Aligned";
/// Radians to degrees in the alignment results: the system's own constant.
inline constexpr double kAlignPointDegreeFactor = 57.2962;

/// The colour name of a point slot: "red", "blue", then the scale points "green", "yellow",
/// "cyan", "orange", "purple", "teal", "sky blue", "magenta".
const char* AlignPointColorName(int slot);

/// The largest radius, from `radius` down in steps of 10, for which the correlation box of
/// the 0-based point (x, y) (x - 2r .. x + 2r, likewise y) lies inside a width by height image
/// with a pixel to spare, i.e. the point is not off the edge for CorrelateAt; 0 when none.
int FitCorrelationRadius(int radius, int x, int y, int width, int height);

/// "The selected translation correlation nbhd radius of %d is too large for the selected red
/// point (%d, %d).\nPress OK to use the smaller nbhd radius %d or Cancel to reselect the radius
/// or point." (the rotation group for blue, the scale group for the others).
std::string RadiusTooLargeText(int slot, int radius, int x, int y, int reduced);
/// "The selected red translation point (%d,%d) is too close to the edge of the image.\nPlease
/// reselect." and the like by colour.
std::string PointTooCloseText(int slot, int x, int y);

/// Fits the radius of one point: unchanged when it fits; a reduced radius is asked about
/// through `notify` (OK/Cancel: Yes keeps the smaller radius). False with the edge text in
/// `text` when it reaches 0, or with an empty `text` when the user cancelled.
bool FitPointRadius(int slot, int radius, double x, double y, int width, int height,
                    INotify* notify, int* outRadius, std::string* text);

/// The status line of a finished run ("%d Images Correlated, Max - Tran. : %5.2f", ...).
std::string AlignPointStatusText(AlignPointType type, bool correlated, int count,
                                 double translation, double rotation, double scale);

/// The slots a type uses of the reference's set points: {red} for 1PT, {red, blue} for 2PT
/// and SRPT, every set point for 12PT (at least three for it to be usable).
std::vector<int> AlignPointSlots(AlignPointType type, const std::array<AlignPoint, 10>& points);

/// What a run is started with.
struct AlignPointRequest {
    /// The set; exactly one record has isReference, whose points are the user's points. With
    /// `correlate` off every image carries its own points. Excluded records are left out.
    CImageFileList files;
    std::string outputDirectory;
    AlignPointType type = AlignPointType::Translate;
    int translationRadius = 30; ///< the red point's correlation radius
    int rotationRadius = 30;    ///< the blue and scale points' radius
    double minimum = 0.70;      ///< the minimum acceptable correlation, a fraction
    /// Sub-pixel refinement of the tracked points: a step below 1 (0.1, 0.2, 0.5) refines.
    double subPixelStep = 0.1;
    bool correlate = true; ///< follow the points by correlation ("Correlate")
    bool mosaic = false;   ///< "Mosaic Mode"
    /// Points set on a star are first moved to its centroid (window of radius 14).
    bool pointsOnStars = false;
    /// The first plane of an RGB image already holds the luminance.
    bool luminanceMode = false;
    std::string saveType = "SAMEASINPUT";
    /// "Search &Angle In Degrees :" and "Search Angle &Increment In Degrees :" of the page,
    /// kept with the other parameters. The tracking follows points by translation of the
    /// neighbourhood only, so neither changes a run.
    double searchAngle = 1.0;
    double angleIncrement = 0.10;
    /// A mosaic frame size set by the user ("Mosaic Size"); 0 keeps the collected extent.
    /// The collected extent is centred in a set frame (cut evenly when the frame is smaller).
    int mosaicWidth = 0, mosaicHeight = 0;
};

/// The search angles of the page, as shown: "0.5" .. "5.0".
const std::vector<std::string>& SearchAngleChoices();
/// The search angle increments of the page, as shown: "0.01" .. "0.50".
const std::vector<std::string>& AngleIncrementChoices();

/// The points used on one written image.
struct AlignPointImage {
    std::string input;
    std::string output;
    std::array<AlignPoint, 10> points{}; ///< the current points found (or set) on it
    double rotation = 0;                 ///< degrees
    double scale = 1;
};

struct AlignPointResult {
    FileOpResult run;     ///< outputs: the reference first, then the aligned images
    bool started = false; ///< false when the setup stopped it before any file was written
    std::string referenceOutput;
    int aligned = 0; ///< images written besides the reference
    std::vector<AlignPointImage> images;
    std::array<int, 10> radii{}; ///< the fitted radius of each used point
    double maxTranslation = 0, maxRotation = 0, maxScale = 1;
    int outputWidth = 0, outputHeight = 0; ///< the reference size, or the mosaic extent
    int mosaicOffsetX = 0, mosaicOffsetY = 0;
};

/// The whole run on the calling thread: the setup checks, the reference read and its
/// templates cut, the mosaic sizing pass when asked, the reference written first, then each
/// image tracked, transformed and written. An image whose points do not correlate is skipped
/// with its message and the run goes on. A second run while one is going ends at once with
/// "Align Translate, Scale, Rotate Files Is Currently Busy.".
AlignPointResult AlignPointFiles(const AlignPointRequest& request, IProgress* progress,
                                 INotify* notify);

/// The frame of a mosaic: its size and where the reference's pixel (0, 0) falls in it.
struct AlignMosaicExtent {
    int width = 0, height = 0;
    int offsetX = 0, offsetY = 0;
    /// The extent the images' corners span, before a set size is applied.
    int collectedWidth = 0, collectedHeight = 0;
    int skipped = 0; ///< images whose points did not correlate (left out of the extent)
};

/// The sizing pass of a mosaic run alone, without writing files: the setup checks, the
/// reference's points and templates, and the corners of every image mapped into the
/// reference's frame (whatever `request.mosaic` says). False with the run's text in `text`
/// ("Error Reading Mosaic Image", "Error Computing Mosaic Size", the setup's texts); an
/// empty `text` when the user cancelled a radius question.
bool AlignPointMosaicSize(const AlignPointRequest& request, INotify* notify,
                          AlignMosaicExtent* extent, std::string* text);

} // namespace astrivelle
