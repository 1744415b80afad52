// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The persistent settings of one user and the setup file that holds them.
#pragma once
#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace astrivelle {

/// The setup file's format version; a file with any other value leaves the defaults.
inline constexpr std::uint32_t kSetupVersion = 319907;
/// The number in the setup file's name, "QXSP%d.qxp".
inline constexpr int kSetupFileNumber = 600;

/// What each of the leading strings of the setup file holds.
enum SetupString : int {
    SetupLastFolder = 0,        ///< last folder used; default of the file dialogs
    SetupProjectFolder = 1,     ///< default project directory
    SetupImageSetFolder = 2,    ///< last folder of the image-set tools
    SetupCalibrationFolder = 3, ///< last folder of the calibration frames
    SetupVideoFolder = 4,       ///< last folder of the video tools
    SetupColorSpace = 5,        ///< "SRGB"
    SetupCustomFilterName = 6,  ///< "Identity"
    SetupCustomFilterSize = 7,  ///< "3"
    SetupCustomPsfName = 8,     ///< "Box"
    SetupCustomPsfSize = 9,     ///< "3"
    SetupDistortionScale = 10,  ///< "1x"
    SetupArcsecUnit = 11,       ///< "Pixels"
    SetupArcsecScale = 12,      ///< "1.0"
    SetupArcsecSetupName = 13,  ///< the arcsecond setup last chosen
    SetupOperatorPreset = 14,   ///< the operator preset last chosen
    SetupBackground = 15,       ///< main window background letter, "B"
    SetupPriority = 16,         ///< background thread priority, "NORMAL" or "IDLE"
    SetupFileOperation = 17,    ///< the image-set operation last chosen
    SetupScriptFile = 18,       ///< the command file last used
    SetupStringCount = 19,
};

/// A tool window's remembered place, kept by the tool's class name.
struct ToolPosition {
    std::int32_t x = 0;
    std::int32_t y = 0;
    bool hasSize = false; ///< whether w and h were remembered too
    std::int32_t w = 0;
    std::int32_t h = 0;
    bool operator==(const ToolPosition&) const = default;
};

/// One entry of the arcsecond setup list: nine strings (name, unit, scale and the values a
/// measuring tool needs), kept as text as the tools enter them.
using ArcsecSetup = std::array<std::string, 9>;

/// Every persistent value with its built-in default, in the order of the setup file.
struct CSetupParams {
    std::array<std::string, SetupStringCount> strings = DefaultStrings();
    std::uint8_t toolFlag = 0;
    std::string saveType = "COMPFIT";  ///< default new file type of the operators
    std::string saveType2 = "COMPFIT"; ///< default file type of the image-set tools
    std::string displayAdjustment = "No Adjustment";
    std::int32_t jpegQuality = 100;    ///< the list index times 5
    std::int32_t maxOpenImages = 100;  ///< above 0
    std::int32_t initialScaleFlag = 0; ///< 0: auto fit to the screen; 1: use `scale`
    double scale = 0.5;
    bool slidersEnabled = true;
    std::array<double, 4> numericPresets{60, 0.7, 20, 0.7};
    std::array<std::int32_t, 8> integerPresets{100, 75, 50, 25, 90, 80, 70, 60};
    std::string presetText;
    std::int32_t fileFilterIndex = 1; ///< last filter of the open dialog, 1..13
    std::int32_t fileFilterSubtype = 0;
    std::uint8_t filterFlag = 0;
    std::vector<ArcsecSetup> arcsecSetups;
    std::map<std::string, ToolPosition> toolPositions; ///< by class name, e.g. "CHistogram"
    std::vector<std::string> recentFiles;
    bool useAccelerator = false;
    bool stickyCopyPortion = false;
    /// The parameter records of the image-set tools by name ("CalibrationSetup", ...), each
    /// the text its owner writes and reads. A file written before they existed has none.
    std::map<std::string, std::string> records;

    static std::array<std::string, SetupStringCount> DefaultStrings();

    const std::string& Background() const { return strings[SetupBackground]; }
    const std::string& Priority() const { return strings[SetupPriority]; }

    bool operator==(const CSetupParams&) const = default;
};

/// "NORMAL" or "IDLE" from the priority slot; anything other than "IDLE" reads as "NORMAL".
std::string GetThreadPriorityWord(const CSetupParams& params);

/// How a load ended.
enum class SetupLoadStatus {
    Loaded,       ///< every field was read
    Missing,      ///< the file is absent or cannot be opened: defaults, no error
    OtherVersion, ///< another version: defaults, no error
    Failed,       ///< the read stopped early: values read so far kept, error text set
};

/// Resets `params` to the defaults and reads the setup file over them. Returns false only
/// when a read failed part-way; `errorText` then holds "Setup file is truncated: ",
/// "Setup file is corrupt: " or "Error reading Setup Params : " with the path, and every
/// value read before the failure stays in `params`.
bool LoadSetupParams(const std::string& path, CSetupParams& params,
                     std::string* errorText = nullptr, SetupLoadStatus* status = nullptr);

/// Writes the file: creates the folder if needed, writes a temporary file beside the target
/// and renames it over the target, so the old file stays whole if anything fails. On failure
/// `errorText` is "Error writing Setup Params : " and the path.
bool SaveSetupParams(const std::string& path, const CSetupParams& params,
                     std::string* errorText = nullptr);

/// The bytes SaveSetupParams writes.
std::string SerializeSetupParams(const CSetupParams& params);

/// `$XDG_CONFIG_HOME/astrivelle/QXSP600.qxp`, or `$HOME/.config/astrivelle/QXSP600.qxp`
/// when XDG_CONFIG_HOME is unset, empty or relative.
std::string DefaultSetupPath();

/// The default project directory `$HOME/Astrivelle`, created if absent; if it cannot be
/// created, `$TMPDIR/Astrivelle` (or `/tmp/Astrivelle`). Returns false when neither can be
/// made, with "Error Creating QX Default Project directory - " and the system's message.
bool DefaultProjectDirectory(std::string& folder, std::string* errorText = nullptr);

} // namespace astrivelle
