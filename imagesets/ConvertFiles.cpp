// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Convert Files over the file-operation frame.
#include "imagesets/ConvertFiles.h"

#include <algorithm>
#include <filesystem>

#include "engine/Image.h"
#include "engine/Parallel.h"
#include "engine/ProcessStructure.h"
#include "fileio/SaveType.h"
#include "imagesets/FilterFiles.h"
#include "operators/Registry.h"

namespace astrivelle {

namespace {

/// The short name of a stretch in the "Please apply ..." texts.
std::string ShortName(const std::string& stretch) {
    if (stretch == "Digital Development" || stretch == "DDP")
        return "DDP";
    return stretch;
}

std::string FileNameOf(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

bool AddBrightness(Image& image, double step) {
    const float top = static_cast<float>(image.maxValue);
    const int w = image.width;
    for (int s : image.Slots()) {
        float* plane = image.curPlane[s];
        if (!plane)
            return false;
        ParallelRows(image.height, [&](int y0, int y1) {
            float* p = plane + static_cast<std::size_t>(y0) * w;
            float* end = plane + static_cast<std::size_t>(y1) * w;
            for (; p < end; ++p)
                *p = std::clamp(static_cast<float>(*p + step), 0.0f, top);
        });
    }
    return true;
}

} // namespace

std::string ConvertSaveType(const std::string& outputType) {
    std::string upper = outputType;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    if (upper == ".TIF" || upper == ".TIFF")
        return "TIFF16";
    if (upper == ".JPG" || upper == ".JPEG")
        return "JPEG";
    if (upper == ".BMP")
        return "BMP";
    if (upper == ".PNG")
        return "PNG";
    if (upper == ".FIT" || upper == ".FITS")
        return "UNCOMPFIT";
    if (outputType != "SAMEASINPUT" && IsKnownSaveType(outputType, true))
        return outputType;
    return {};
}

std::string ConvertStretchText(const ConvertFilesRequest& request) {
    if (request.stretch.empty())
        return {};
    if (request.parameters.empty())
        return "Please apply " + ShortName(request.stretch) +
               " to an image to set its parameters before conversion.";
    const std::string name = request.stretch == "DDP" ? "Digital Development" : request.stretch;
    if (!FindOperator(name))
        return "Convert Files: the stretch \"" + request.stretch +
               "\" has no recorded form that can be replayed.";
    return {};
}

FileOpResult ConvertFiles(const ConvertFilesRequest& request, IProgress* progress,
                          INotify* notify) {
    const std::string saveType = ConvertSaveType(request.outputType);
    if (saveType.empty())
        return StopRun(progress, notify, "Unknown output type " + request.outputType);
    const std::string refused = ConvertStretchText(request);
    if (!refused.empty())
        return StopRun(progress, notify, refused);
    std::string prefix, message;
    if (!CheckPrefix(request.prefix, &prefix, &message))
        return StopRun(progress, notify, message);

    std::vector<CProcessStructure> records;
    if (!request.stretch.empty()) {
        CProcessStructure record;
        record.operation = request.stretch == "DDP" ? "Digital Development" : request.stretch;
        record.parameters = request.parameters;
        records.push_back(record);
    }
    FileOpJob job;
    job.inputs = request.files;
    job.outDir = request.outputDirectory;
    job.prefix = prefix;
    job.saveType = saveType;
    job.runningText = kConvertRunningText;
    job.doneText = "Completed";
    job.readFailureText = "Error reading ";
    job.processFailureText = {};
    job.writeFailureText = kConvertWriteFailureText;
    FileOpHandlers handlers;
    handlers.process = [&](Image& image, const std::string& path, std::size_t, IProgress*,
                           std::string* why) {
        std::string reason;
        if (!ApplyRecords(image, records, &reason)) {
            *why = "Error converting " + FileNameOf(path) + (reason.empty() ? "" : ": " + reason);
            return false;
        }
        if (request.brightnessStep != 0 && !AddBrightness(image, request.brightnessStep)) {
            *why = kConvertBrightnessFailureText + FileNameOf(path);
            return false;
        }
        return true;
    };
    return RunFileOperation(job, handlers, progress, notify);
}

} // namespace astrivelle
