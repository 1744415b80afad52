// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Filter Files: a list of recorded operators replayed, in list order, on each file of a
/// list, each result written as prefix ("FF_" by default) + name.
#pragma once
#include <string>
#include <vector>

#include "engine/ProcessStructure.h"
#include "imagesets/FileOperation.h"

namespace astrivelle {

inline constexpr const char* kFilterFilesPrefix = "FF_";
inline constexpr const char* kFilterFilesRunningText = "Applying Filters...";
inline constexpr const char* kFilterFilesFailureText = "Error filtering ";

/// What a run is started with.
struct FilterFilesRequest {
    std::vector<std::string> files;
    std::string outputDirectory;
    std::string prefix = kFilterFilesPrefix;
    std::string saveType = "SAMEASINPUT";
    /// The operators, each with its "#" parameter text, applied in this order.
    std::vector<CProcessStructure> records;
    /// "COLOR" or "MONO" takes only images of that model (the others fail); empty takes both.
    std::string colorModel;
};

/// Applies `records` in order to `image` by the replay dispatch; false with the reason of the
/// first that fails (the image then holds the partial result).
bool ApplyRecords(Image& image, const std::vector<CProcessStructure>& records, std::string* why);

/// The worker body, on the calling thread: "Applying Filters..." through the file-operation
/// frame; a file whose operator fails is reported as "Error filtering " + name with the
/// reason, and the run goes on. An empty operator list or a bad prefix stops before the first
/// file. A second run while one is going ends at once with "Filter Files Is Currently Busy.".
FileOpResult FilterFiles(const FilterFilesRequest& request, IProgress* progress, INotify* notify);

} // namespace astrivelle
