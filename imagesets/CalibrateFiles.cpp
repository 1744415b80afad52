// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Calibrate Files worker over the file-operation frame.
#include "imagesets/CalibrateFiles.h"

#include <filesystem>

#include "engine/Image.h"

namespace astrivelle {

namespace fs = std::filesystem;

bool CheckCalibrateFiles(const CalibrateRequest& request, INotify& notify,
                         std::vector<std::string>* usable, std::string* text) {
    usable->clear();
    const std::string& model = request.setup.colorModel;
    if (model != "MONO" && model != "COLOR") {
        *text = kCalibrateNoModelText;
        return false;
    }
    if (request.files.empty()) {
        *text = kCalibrateNoImageText;
        return false;
    }
    CImageFileList list;
    std::vector<std::string> rejected;
    CheckFiles("CALIBRATE", model == "COLOR" ? kSetColorOnly : kSetMonoOnly, request.files, &list,
               &rejected);
    for (const CImageFileInfo& info : list) {
        if (info.width == request.setup.frameWidth && info.height == request.setup.frameHeight)
            usable->push_back(info.path);
        else
            rejected.push_back(fs::path(info.path).filename().string());
    }
    if (usable->empty()) {
        *text = kCalibrateNoUsableText;
        return false;
    }
    if (!ConfirmRejected(notify, "calibrate", rejected)) {
        usable->clear();
        *text = kThreadCanceledText;
        return false;
    }
    return true;
}

CalibrateResult CalibrateFiles(const CalibrateRequest& request, IProgress* progress,
                               INotify* notify) {
    CalibrateResult result;
    auto status = [&](const std::string& s) {
        if (progress)
            progress->SetStatus(s);
    };
    auto stop = [&](const std::string& s) {
        result.run.end = FileOpEnd::Stopped;
        result.run.status = s;
        status(s);
        if (notify)
            notify->Message(s);
        return result;
    };
    // One calibration at a time; and none while another file operation works.
    FileOpBusy busy(FileOpKind::Calibrate);
    if (!busy.Acquired())
        return stop(kCalibrateInProgressText);
    if (const std::string other = OtherFileOpBusyText(FileOpKind::Calibrate); !other.empty())
        return stop(other);
    // The request is copied at the start: the setup may change while the worker runs.
    const CalibrationSetup setup = request.setup;
    std::string text;
    if (!CheckSystemFrames(setup, &text))
        return stop(text);
    const CalibrateOptions options = OptionsOfSetup(setup);

    status("Preparing Calibration Frames...");
    CalibrationFrames frames;
    if (!LoadCalibrationFrames(setup, &frames, &text))
        return stop(kCalibrateFramesFailedText);

    HotPixelThresholds thresholds;
    if (options.useDark && (options.adaptiveWithDark || options.adaptiveWithoutDark)) {
        status("Compute High Pixel Reduction Statistics...");
        if (!ComputeHotPixelThresholds(options, frames, &thresholds, &text)) {
            ReleaseCalibrationFrames(&frames);
            return stop(text);
        }
    }
    result.started = true;
    status("Calibrating Frames...");

    FileOpJob job;
    job.inputs = request.files;
    job.outDir = request.outputDirectory;
    job.prefix = request.prefix;
    job.saveType = request.ownerName == kCalibrateOwnerPipeline ? request.saveType : "SAMEASINPUT";
    job.doneText = AppliedText(options);
    job.readFailureText = "Error reading ";
    job.processFailureText = "";
    job.writeFailureText = "Error writing ";
    job.runningText = "Calibrating Frames...";
    job.protectedFiles = {setup.flatPath, setup.flatDarkPath, setup.darkPath, setup.biasPath};

    const HeaderList cards = CalibrationCards(options);
    FileOpHandlers handlers;
    handlers.process = [&](Image& image, const std::string& path, std::size_t, IProgress*,
                           std::string* why) {
        const std::string name = fs::path(path).filename().string();
        std::vector<double> used;
        if (!CalibrateImage(image, name, options, frames, thresholds, why, &used)) {
            return false;
        }
        HeaderList out = cards;
        CopyHeaderWithoutExtName(image.headerCards, out);
        image.headerCards = std::move(out);
        result.factors.push_back(std::move(used));
        return true;
    };
    // A calibration failure's text already names the file: the frame adds nothing before it.
    result.run = RunFileOperation(job, handlers, progress, nullptr);
    ReleaseCalibrationFrames(&frames);
    for (const FileOpFailure& f : result.run.failures) {
        if (notify)
            notify->Message(f.detail.empty() ? f.text : f.text + "\n" + f.detail);
    }
    if (result.run.end == FileOpEnd::CompletedWithFailures && !result.run.failures.empty())
        result.run.status = result.run.failures.back().text;
    status(result.run.status);
    if (notify)
        notify->Beep();
    return result;
}

} // namespace astrivelle
