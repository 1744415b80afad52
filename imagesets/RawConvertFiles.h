// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Digital Camera Raw Conversion Files: each camera raw file of a list decoded by a
/// conversion keyword and written by a raw save type as "CVT_" + name, over the file-operation
/// frame, one run at a time (the decoder is not re-entrant).
#pragma once
#include <string>
#include <vector>

#include "imagesets/FileOperation.h"

namespace astrivelle {

inline constexpr const char* kRawConvertPrefix = "CVT_";
/// The operation name under which the run's outputs are kept as a file list.
inline constexpr const char* kRawConvertOperation = "Digital Camera Raw Conversion Files";
inline constexpr const char* kRawConvertOwnerDialog = "CDigitalConvertRawFiles";
inline constexpr const char* kRawConvertOwnerPipeline = "CFileSetProcess";
/// A file LibRaw cannot open or identify: this text and the file's name.
inline constexpr const char* kRawCouldNotOpenText = "Could Not Open ";
/// The status of a run that ended normally with at least one output.
inline constexpr const char* kRawConvertDoneText = "Completed";

/// What a run is started with.
struct RawConvertRequest {
    std::string ownerName = kRawConvertOwnerDialog;
    std::vector<std::string> files;
    std::string outputDirectory;
    std::string prefix = kRawConvertPrefix;
    std::string conversion = "Color"; ///< "Color", "NoWBCFA", "WBCFA", "BASICBAYER"
    std::string saveType = "COMPFIT"; ///< a RawSaveTypes() keyword
    bool linear = false;              ///< "Color": linear output
    bool reduceGreenNoise = false;    ///< "Color" only
    bool buildRGBPixel = false;       ///< "Color" only
};

/// One file's pattern keyword as the decoder reported it ("" when the sensor has none).
struct RawConvertedFile {
    std::string input, output, pattern;
};

struct RawConvertResult {
    FileOpResult run;
    std::vector<RawConvertedFile> files; ///< the written files, in order
};

/// The worker body, on the calling thread. Checks first: a second run while one is going ends
/// at once with "Digital Camera Raw Conversion Is Already In Progress.", an unknown conversion
/// keyword or save type, or a prefix with a forbidden character, stops before the first file.
/// Then each file, the file's name as status: a name without a raw extension is reported as
/// "Image File Format Does Not Support Raw Conversion.\n\n " + name, asked with Cancel through
/// `notify` (Cancel ends the run with "Could not convert file."); a file LibRaw can't open or
/// identify fails with "Could Not Open " + name, a decode that fails after that with "Could not
/// convert file."; the run goes on after each. Outputs go through a temporary name, never over
/// an input. A run that wrote nothing (and was not cancelled) ends with "Could not convert
/// file."; else "Completed", or kThreadCanceledText on cancel. The outputs are stored as the
/// list "Digital Camera Raw Conversion Files".
RawConvertResult ConvertRawFiles(const RawConvertRequest& request, IProgress* progress,
                                 INotify* notify);

} // namespace astrivelle
