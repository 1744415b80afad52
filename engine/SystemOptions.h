// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The System Options tool without its window: the captions and value lists a front end
/// shows, the controls it edits, the Save rules that apply them, and the process-wide record
/// of the options in force.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "engine/Accelerator.h"
#include "engine/SetupParams.h"

namespace astrivelle {

class INotify;

/// A stored keyword and the label shown for it.
struct OptionChoice {
    const char* keyword;
    const char* label;
};

inline constexpr const char* kCaptionImageDisplay = "Image Display";
inline constexpr const char* kCaptionInitialScale = "Initial Image Display Scale";
inline constexpr const char* kCaptionAutoFit = "Auto &Fit To Screen";
inline constexpr const char* kCaptionUseDefaultScale = "Use D&efault";
inline constexpr const char* kCaptionBackground = "Main Window Background Color";
inline constexpr const char* kCaptionSaveType = "Default New File Type";
inline constexpr const char* kCaptionPriority = "Background Thread Priority";
inline constexpr const char* kCaptionUseAccelerator = "Use GPU Acceleration";
inline constexpr const char* kCaptionJpegQuality = "JPEG Saved Image Compresion Quality:";
inline constexpr const char* kCaptionOpenImageLimit = "Maximum Number Of Open Images:";
inline constexpr const char* kCaptionSliders = "En&able sliders on dialog box initialize";
inline constexpr const char* kCaptionStickyCopy = "Sticky Copy Portion Toolbar Button";

inline constexpr const char* kOpenImageLimitText =
    "Maximum Number Of Open Images Must Be Greater Than 0.";
inline constexpr const char* kAcceleratorNotAvailableText = "GPU Acceleration Not Available.";

/// "No Adjustment", "Auto Stretch": the display adjustment by button index.
const std::vector<std::string>& DisplayAdjustmentChoices();
/// "R", "G", "B", "W", "LG", "DG", "BK".
const std::vector<std::string>& BackgroundChoices();
/// The five save types by button index: COMPFIT, UNCOMPFIT, UNCOMPTIF, UNCOMPFIT32,
/// COMPFIT32, each with its description ("Lossless Compressed 16-bit FIT", ...).
const std::vector<OptionChoice>& SaveTypeChoices();
/// NORMAL "Normal", IDLE "Reduced".
const std::vector<OptionChoice>& PriorityChoices();
/// "10%" .. "200%" in steps of 10; entry i stands for the scale (i + 1) / 10.
const std::vector<std::string>& ScaleChoices();
/// "0%" .. "100%" in steps of 5; entry i stands for the quality i * 5.
const std::vector<std::string>& JpegQualityChoices();

/// What the tool's controls hold. Button indices outside their lists fall through as the
/// Save rules say.
struct SystemOptionsControls {
    int displayButton = 0;    ///< 0 "No Adjustment", 1 "Auto Stretch"
    bool autoFit = true;      ///< "Auto &Fit To Screen" (else "Use D&efault" with scaleIndex)
    int scaleIndex = 4;       ///< into ScaleChoices()
    int backgroundButton = 2; ///< into BackgroundChoices()
    int saveTypeButton = 0;   ///< into SaveTypeChoices()
    int priorityButton = 0;   ///< into PriorityChoices()
    bool useAccelerator = false;
    int jpegIndex = 20; ///< into JpegQualityChoices()
    std::int64_t openImageLimit = 100;
    bool slidersEnabled = true;
    bool stickyCopyPortion = false;
};

/// The controls as the tool opens on `params`.
SystemOptionsControls ControlsFromOptions(const CSetupParams& params);

/// The tool's Save, without writing the file. A limit of 0 or below is refused first with
/// kOpenImageLimitText in `errorText` and nothing applied (the front end puts the focus on
/// that field). Otherwise, in order: the limit; the display adjustment by button; the scale
/// flag 0 with auto fit, else 1 with the scale (index + 1) / 10; the JPEG quality index * 5;
/// the save type by button, "UNCOMPTIF" when none matches; the priority, "NORMAL" unless the
/// IDLE button; `useAccelerator` and `stickyCopyPortion` by their checks. The background and
/// the sliders check, which a window applies as they are clicked, are carried over too.
bool ApplySystemOptions(const SystemOptionsControls& controls, CSetupParams& params,
                        std::string* errorText = nullptr);

/// ApplySystemOptions, then SaveSetupParams to `path`. Nothing is written when the limit is
/// refused.
bool SaveSystemOptions(const SystemOptionsControls& controls, CSetupParams& params,
                       const std::string& path, std::string* errorText = nullptr);

/// The read-only lines the tool shows about the accelerator: "GPU : " + description,
/// "Dedicated Memory : %d KB", "Supports Double Precision : Yes" / "No"; or the single line
/// "GPU Acceleration Not Available." when none is available.
std::vector<std::string> AcceleratorTexts(const AcceleratorInfo& info);
/// Whether the "Use GPU Acceleration" check is enabled.
inline bool AcceleratorCheckEnabled(const AcceleratorInfo& info) {
    return info.present;
}

/// The options in force for this process: read at start, changed by the tool, written at
/// exit. Written on the user interface thread only. Pixel functions do not read it: their
/// callers pass the values (priority, save type, quality, accelerator flags) as arguments
/// when the operator starts.
struct SystemOptionsState {
    CSetupParams setup;
    AcceleratorInfo accelerator; ///< what DetectAccelerator kept; cleared when none qualified
};
SystemOptionsState& Options();

/// Start-up steps 5 and 6: loads the setup file into Options() (a read failure is shown
/// through `notify` with its text, the values read so far kept), then queries the default
/// accelerator and runs DetectAccelerator.
void InitializeSystemOptions(const std::string& setupPath, INotify& notify);

/// Values of Options() as operators take them.
std::string GetThreadPriorityWord();
bool UseAccelerator();
bool AcceleratorHasDouble();
std::int64_t AcceleratorMemoryKb();

} // namespace astrivelle
