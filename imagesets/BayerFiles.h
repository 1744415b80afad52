// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Bayer Interpolate/Split Files: each mosaic of a list interpolated to colour, or one
/// of its colour planes split out, and written as DIR/prefix + name with ".tif" or ".fit".
#pragma once
#include <string>
#include <vector>

#include "imagesets/FileOperation.h"

namespace astrivelle {

/// The parameters of a run (the file form of the interpolation record).
struct BayerFilesParams {
    std::vector<std::string> files;
    std::string frameType;  ///< the list text, for the record only
    std::string cfaPattern; ///< "RG,GB", ..., "CYGM,CYMG", ...
    bool reduceGreenNoise = false;
    bool buildRGBPixel = false;
    std::string outputColor = "RGB"; ///< "RGB", "RED", "GREEN" or "BLUE"
    bool averageGreen = false;
    /// "COMPFIT", "UNCOMPFIT" (16-bit FITS), "COMPFIT32", "UNCOMPFIT32" (float FITS); any
    /// other keyword writes a 16-bit TIFF.
    std::string saveType;
    std::string prefix; ///< empty takes the default of the output colour
    std::string outputDirectory;
};

/// The status of a run by output colour: "Converting Files To RGB Color...", "Converting
/// Files To Red Data Only...", "... Green ...", "... Blue ..."; empty for another word.
std::string BayerFilesStatus(const std::string& outputColor);

/// The prefix of a run: the default ("BINT_", "BAYER_RED_", "BAYER_GREEN_", "BAYER_BLUE_")
/// for an empty one, else the user's with "_RED_", "_GREEN_" or "_BLUE_" behind it for a
/// split. False with "A prefix can't contain any of the following characters:\n" (and the
/// characters) in `message` for a forbidden character.
bool BayerFilesPrefix(const std::string& outputColor, const std::string& userPrefix,
                      std::string* prefix, std::string* message);

/// Runs the list on the calling thread through the file-operation frame (five phases a
/// file, cancel, temporary file and rename). A bad file is reported through `notify` with
/// its fixed text ("Error Reading " + name, "Error width not divisible by 2 use Images Size
/// with Filter Files to remove the right column " + name, "Red Data Split Error " + name,
/// "Error Writing " + output name, ...) and the run goes on. A second run while one is going
/// ends at once with "Bayer Interpolation Is Currently Busy.".
FileOpResult RunBayerFiles(const BayerFilesParams& params, IProgress* progress, INotify* notify);

} // namespace astrivelle
