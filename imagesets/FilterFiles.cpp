// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Filter Files over the file-operation frame.
#include "imagesets/FilterFiles.h"

#include "engine/Image.h"

namespace astrivelle {

bool ApplyRecords(Image& image, const std::vector<CProcessStructure>& records, std::string* why) {
    for (const CProcessStructure& record : records)
        if (!image.ApplyCommand(record, nullptr, nullptr, nullptr, why))
            return false;
    return true;
}

FileOpResult FilterFiles(const FilterFilesRequest& request, IProgress* progress, INotify* notify) {
    FileOpResult result;
    FileOpBusy busy(FileOpKind::Filter);
    if (!busy.Acquired())
        return StopRun(progress, notify, BusyText(FileOpKind::Filter));
    if (request.records.empty())
        return StopRun(progress, notify, "No filters selected.");
    std::string prefix, message;
    if (!CheckPrefix(request.prefix, &prefix, &message))
        return StopRun(progress, notify, message);

    FileOpJob job;
    job.inputs = request.files;
    job.outDir = request.outputDirectory;
    job.prefix = prefix;
    job.saveType = request.saveType;
    job.runningText = kFilterFilesRunningText;
    job.doneText = "Completed";
    job.readFailureText = "Error reading ";
    job.processFailureText = kFilterFilesFailureText;
    job.writeFailureText = "Error writing ";
    FileOpHandlers handlers;
    handlers.process = [&](Image& image, const std::string&, std::size_t, IProgress*,
                           std::string* why) {
        // COLORonly / MONOonly: files of the other model are not in the selection.
        if (request.colorModel == "COLOR" && image.colorType != ColorRGB) {
            *why = "the commands take colour images only (COLORonly)";
            return false;
        }
        if (request.colorModel == "MONO" && image.colorType == ColorRGB) {
            *why = "the commands take monochrome images only (MONOonly)";
            return false;
        }
        return ApplyRecords(image, request.records, why);
    };
    return RunFileOperation(job, handlers, progress, notify);
}

} // namespace astrivelle
