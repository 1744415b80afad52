// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Resize Files over the file-operation frame.
#include "imagesets/ResizeFiles.h"

#include <filesystem>

#include "engine/Image.h"

namespace astrivelle {

namespace fs = std::filesystem;

std::string ResizeParamsText(const ResizeRequest& r) {
    if (r.mode == ResizeMode::Size || r.mode == ResizeMode::MonoBayer) {
        if (r.height <= 0)
            return kResizeHeightText;
        if (r.width <= 0)
            return kResizeWidthText;
    }
    if (r.mode == ResizeMode::Factor && !(r.factor > 0.0))
        return kResizeFactorText;
    return {};
}

void ResizeTargetSize(const ResizeRequest& r, int width, int height, int setWidth, int setHeight,
                      int* outWidth, int* outHeight) {
    switch (r.mode) {
    case ResizeMode::Factor:
        *outWidth = static_cast<int>(width * r.factor);
        *outHeight = static_cast<int>(height * r.factor);
        return;
    case ResizeMode::Size:
    case ResizeMode::MonoBayer:
        *outWidth = r.width;
        *outHeight = r.height;
        return;
    case ResizeMode::Largest:
    case ResizeMode::Smallest:
        break;
    }
    *outWidth = setWidth;
    *outHeight = setHeight;
}

FileOpResult ResizeFiles(const ResizeRequest& request, IProgress* progress, INotify* notify) {
    FileOpResult result;
    FileOpBusy busy(FileOpKind::Resize);
    if (!busy.Acquired())
        return StopRun(progress, notify, BusyText(FileOpKind::Resize));
    const std::string paramsText = ResizeParamsText(request);
    if (!paramsText.empty())
        return StopRun(progress, notify, paramsText);
    if (request.interpolation < 1 || request.interpolation > 3)
        return StopRun(progress, notify,
                       "Unknown interpolation " + std::to_string(request.interpolation));
    std::string prefix, message;
    if (!CheckPrefix(request.prefix, &prefix, &message))
        return StopRun(progress, notify, message);

    // The sizes of the set, from the headers; each file is taken by itself.
    CImageFileList usable;
    std::vector<std::string> rejected;
    std::vector<CheckedFile> details;
    CheckFiles("FILTERFILES", kSetEither, request.files, &usable, &rejected, &details);
    std::vector<FileOpFailure> unread;
    for (const CheckedFile& d : details)
        if (!d.usable) {
            FileOpFailure f{d.path, "Error reading " + fs::path(d.path).filename().string(),
                            d.text};
            if (notify)
                notify->Message(f.text + (f.detail.empty() ? "" : "\n" + f.detail));
            unread.push_back(std::move(f));
        }
    int setW = 0, setH = 0;
    double setArea = -1;
    const bool largest = request.mode == ResizeMode::Largest;
    for (const CImageFileInfo& f : usable) {
        const double area = static_cast<double>(f.width) * f.height;
        if (setArea < 0 || (largest ? area > setArea : area < setArea)) {
            setArea = area;
            setW = f.width;
            setH = f.height;
        }
    }
    bool anyScale = false;
    std::vector<std::string> inputs;
    for (const CImageFileInfo& f : usable) {
        int w = 0, h = 0;
        ResizeTargetSize(request, f.width, f.height, setW, setH, &w, &h);
        anyScale = anyScale || w != f.width || h != f.height;
        inputs.push_back(f.path);
    }
    if (!usable.empty() && !anyScale) {
        result.failures = unread;
        result.end = unread.empty() ? FileOpEnd::Completed : FileOpEnd::CompletedWithFailures;
        result.status = kResizeNoScaleText;
        if (progress)
            progress->SetStatus(result.status);
        return result;
    }

    FileOpJob job;
    job.inputs = inputs;
    job.outDir = request.outputDirectory;
    job.prefix = prefix;
    job.saveType = request.ownerName == kResizeOwnerPipeline ? request.saveType : "SAMEASINPUT";
    const bool monoBayer = request.mode == ResizeMode::MonoBayer;
    job.runningText = monoBayer ? kResizeMonoBayerRunningText : kResizeRunningText;
    job.doneText = monoBayer ? kResizeMonoBayerDoneText : "Completed";
    job.readFailureText = "Error reading ";
    job.processFailureText = "Error resizing ";
    job.writeFailureText = "Error writing ";
    FileOpHandlers handlers;
    handlers.process = [&](Image& image, const std::string&, std::size_t, IProgress*,
                           std::string* why) {
        int w = 0, h = 0;
        ResizeTargetSize(request, image.width, image.height, setW, setH, &w, &h);
        if (w == image.width && h == image.height)
            return true; // already at its size: written as it is
        ScaleParams p;
        p.resampleType = request.interpolation;
        if (request.mode == ResizeMode::Factor) {
            p.byFactor = true;
            p.preserveAspect = true;
            p.uniformFactor = request.factor;
        } else {
            p.byDimension = true;
            p.newWidth = w;
            p.newHeight = h;
        }
        const std::vector<int> slots = image.Slots();
        for (std::size_t i = 0; i < slots.size(); ++i) {
            const int s = slots[i];
            p.commit = i + 1 == slots.size();
            if (!image.Scale(p, image.curPlane[s], image.prevPlane[s], why))
                return false;
        }
        return true;
    };
    FileOpResult run = RunFileOperation(job, handlers, progress, notify);
    run.failures.insert(run.failures.begin(), unread.begin(), unread.end());
    if (run.end == FileOpEnd::Completed && !unread.empty())
        run.end = FileOpEnd::CompletedWithFailures;
    return run;
}

} // namespace astrivelle
