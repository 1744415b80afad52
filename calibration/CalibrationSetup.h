// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The calibration setup: the system frames (dark, flat, flat dark, bias) and how they
/// are used, the choice of a frame from disk, the pre-flight check of every calibrate run, and
/// the frames prepared in memory (flat dark taken off the flat, the luminance flat of Bayer
/// data, the per-colour sets where calibration runs per colour).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace astrivelle {

/// The setup record. It lives for the program's life and is read by every calibrate run.
struct CalibrationSetup {
    std::string colorModel; ///< "MONO" or "COLOR"
    bool bayerData = false; ///< under "MONO": "Bayer CFA" (true) or "CCD" (false)
    std::string frameType;  ///< display name of the camera or generic pattern
    std::string cfaPattern = "RG,GB";
    std::string flatPath, flatDarkPath, darkPath, biasPath;
    bool useFlat = false, useFlatDark = false, useDark = false, useBias = false;
    std::int32_t frameWidth = 0, frameHeight = 0; ///< "Calibration Frame Size:"
    double darkFactor = 1.0;
    double overallFactor = 1.0;
    bool autoDarkMatch = false;
    bool adaptiveWithDark = false;        ///< "With Dark Subtraction"
    bool adaptiveWithoutDark = false;     ///< "Without Dark Subtraction"
    std::string adaptiveLevel = "Normal"; ///< "Normal", "High", "Highest"

    /// "Clear All": paths, flags, both factors to 1.0, adaptiveWithDark, adaptiveLevel and
    /// the frame size.
    void ClearAll();
    /// "Auto" on clears adaptiveWithoutDark (the dialog then disables that choice).
    void SetAutoDarkMatch(bool on);
    /// "Without Dark Subtraction" on clears "Auto" and "With Dark Subtraction".
    void SetAdaptiveWithoutDark(bool on);
    /// "With Dark Subtraction" on clears "Without Dark Subtraction".
    void SetAdaptiveWithDark(bool on);
};

/// The name of the setup's record among the saved parameter records.
inline constexpr const char* kCalibrationSetupRecord = "CalibrationSetup";

/// The setup as the text of its saved record: one "name=value" line per field.
std::string FormatCalibrationSetup(const CalibrationSetup& setup);
/// Reads a record written by FormatCalibrationSetup over `setup`; fields it does not name
/// keep their values, unknown names are passed over. False for a line without "=" or a value
/// that does not read as its field's type.
bool ParseCalibrationSetup(const std::string& text, CalibrationSetup* setup);

/// Which system frame.
enum class SystemFrame { Flat, FlatDark, Dark, Bias };

/// "FLAT", "FLATDARK", "DARK", "BIAS".
const char* SystemFrameName(SystemFrame frame);
/// "Select Master Flat", "Select Master Flat Dark", "Select Master Dark", "Select Master Bias".
const char* SystemFrameTitle(SystemFrame frame);
/// "SystemFlat", "SystemFlatDark", "SystemDark", "SystemBias".
const char* SystemFrameSystemName(SystemFrame frame);

/// Takes a frame file from disk into the setup: the file is probed for size and colour; its
/// path goes to the frame's field and its "Use During Calibration" flag is set; a dark clears
/// both adaptive choices. The first frame chosen sets frameWidth and frameHeight. False with
/// the refusal text ("Not a 24 bit BMP.", "Invalid file type.", the colour-model text, or
/// "Error reading system frame " + path).
bool SelectFrameFromDisk(CalibrationSetup& setup, SystemFrame frame, const std::string& path,
                         std::string* text);

/// The pre-flight of a calibrate run. False with the first problem's fixed text.
bool CheckSystemFrames(const CalibrationSetup& setup, std::string* text);

/// True when calibration works per colour: Bayer data, an even frame size, and any of
/// autoDarkMatch, adaptiveWithDark, adaptiveWithoutDark.
bool SplitsColours(const CalibrationSetup& setup);

// ---- Bayer seam ------------------------------------------------------------------------------

/// Splits a mosaic plane (width x height, both even) by a CFA pattern keyword into a red
/// plane of width/2 x height/2, a green plane of width/2 x height (both green sites of each
/// cell) and a blue plane of width/2 x height/2.
using BayerSplitFn = bool (*)(const float* mosaic, int width, int height,
                              const std::string& pattern, float* red, float* green, float* blue);
/// The inverse of the split: writes the three sets back into a mosaic of width x height.
using BayerCombineFn = bool (*)(const float* red, const float* green, const float* blue, int width,
                                int height, const std::string& pattern, float* mosaic);

/// Installs the split and combine the per-colour calibration and the read noise measure use.
/// By default they are the mosaic cores of calibration/Bayer.h (2 x 2 patterns; a CYGM
/// keyword fails). Null pointers remove them; ResetBayerPlaneSeam puts the built-in ones back.
void SetBayerPlaneSeam(BayerSplitFn split, BayerCombineFn combine);
void ResetBayerPlaneSeam();
BayerSplitFn BayerSplitSeam();
BayerCombineFn BayerCombineSeam();
/// The text when a per-colour run finds no split or combine installed.
inline constexpr const char* kBayerSeamMissingText =
    "Bayer split and combine are not available in this build.";

// ---- frames in memory ------------------------------------------------------------------------

/// One frame as planes: whole planes (one for mono, three for colour) and, when calibration
/// runs per colour, the red, green and blue sets of a mosaic.
struct FramePlanes {
    std::vector<float> plane[3];
    std::vector<float> set[3];
    bool loaded = false;
};

/// The frames of one run.
struct CalibrationFrames {
    std::int32_t width = 0, height = 0;
    bool splitColours = false;
    FramePlanes flat, dark, bias;
    /// The planes a frame supplies for an image slot (0..2 of a colour image, 0 for mono),
    /// or for a colour set when `perColour`; null when the frame is not loaded.
    const float* Plane(const FramePlanes& frame, int index, bool perColour) const;
};

/// Reads and prepares the frames the setup uses: the flat with its flat dark taken off
/// (a flat pixel loses the flat dark only when it is at least the flat dark + 1.0), the
/// luminance flat for Bayer data (a box filter of radius 2, strength 1.0), and the colour
/// sets where calibration runs per colour. False with the step's fixed text ("System error
/// reading the flat image.", "Could not allocate memory for luminance flat.", ...).
bool LoadCalibrationFrames(const CalibrationSetup& setup, CalibrationFrames* frames,
                           std::string* text);

/// Frees the planes of a LoadCalibrationFrames.
void ReleaseCalibrationFrames(CalibrationFrames* frames);

/// Takes the flat dark off a flat, pixel by pixel: flat - flatDark where flat >= flatDark +
/// 1.0, otherwise the flat as it was.
void SubtractFlatDark(float* flat, const float* flatDark, std::size_t count);

} // namespace astrivelle
