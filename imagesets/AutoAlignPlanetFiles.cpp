// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Auto Align Planet Files: the worker loop over the usable files, centring each on its
/// disk and writing it through the file-operation frame's safe write.
#include "imagesets/AutoAlignPlanetFiles.h"

#include <algorithm>
#include <filesystem>

#include "engine/Image.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

/// Centres one image in place on its disk, with the sky subtracted and the run's target.
bool Centre(Image& image, double* targetX, double* targetY, PlanetShift* shift) {
    double cx = -1, cy = -1;
    bool ok;
    if (image.colorType == ColorRGB) {
        ok =
            image.CenterOnDisk(true, nullptr, image.curPlane[0], nullptr, image.curPlane[1],
                               nullptr, image.curPlane[2], true, false, targetX, targetY, &cx, &cy);
    } else {
        const std::vector<int> slots = image.Slots();
        if (slots.empty())
            return false;
        ok = image.CenterOnDiskMono(true, nullptr, image.curPlane[slots.front()], true, false,
                                    targetX, targetY, &cx, &cy);
    }
    if (!ok)
        return false;
    // Without a centroid the outputs stay at -1 and the image went on unshifted.
    shift->found = !(cx == -1 && cy == -1);
    if (shift->found) {
        shift->centroidX = cx;
        shift->centroidY = cy;
        shift->shiftX = *targetX - cx;
        shift->shiftY = *targetY - cy;
    }
    return true;
}

} // namespace

AutoAlignPlanetResult AutoAlignPlanetFiles(const AutoAlignPlanetRequest& request,
                                           IProgress* progress, INotify* notify) {
    AutoAlignPlanetResult result;
    const auto stop = [&](const std::string& text) {
        result.run = StopRun(progress, notify, text);
        return result;
    };
    FileOpBusy busy(FileOpKind::AutoPlanet);
    if (!busy.Acquired())
        return stop(kAutoAlignPlanetBusyText);
    if (request.files.empty())
        return stop(kAutoAlignPlanetOneImageText);

    CImageFileList usable;
    std::vector<std::string> rejected;
    CheckFiles(kAutoAlignPlanetKeyword, kSetEither, request.files, &usable, &rejected);
    if (notify && !ConfirmRejected(*notify, "auto align", rejected))
        return stop(kThreadCanceledText);
    usable.erase(std::remove_if(usable.begin(), usable.end(),
                                [&](const CImageFileInfo& f) {
                                    return f.excluded ||
                                           std::find(request.excluded.begin(),
                                                     request.excluded.end(),
                                                     f.path) != request.excluded.end();
                                }),
                 usable.end());
    if (usable.empty())
        return stop(kAutoAlignPlanetOneUsableText);

    result.started = true;
    FileOpResult& run = result.run;
    IFileOpOwner* owner = dynamic_cast<IFileOpOwner*>(progress);
    const auto phase = [&](long p) {
        if (progress)
            progress->SetProgress(p, kFileOpPhases);
    };
    const auto cancelled = [&] { return progress && progress->Cancelled(); };
    const auto fail = [&](const std::string& path, const std::string& text,
                          const std::string& detail) {
        if (notify)
            notify->Message(detail.empty() ? text : text + "\n" + detail);
        run.failures.push_back({path, text, detail});
    };
    if (progress)
        progress->SetStatus(kAutoAlignPlanetRunningText);

    std::error_code ec;
    if (!request.outputDirectory.empty() && !fs::is_directory(request.outputDirectory, ec))
        fs::create_directories(request.outputDirectory, ec);
    // No output may replace an input, nor an output written before it.
    std::vector<std::string> keep;
    for (const CImageFileInfo& f : usable)
        keep.push_back(f.path);

    std::string writeFailure;
    const long total = static_cast<long>(usable.size());
    for (long n = 0; n < total; ++n) {
        const std::string& path = usable[static_cast<std::size_t>(n)].path;
        const fs::path name(path);
        if (owner)
            owner->SetCounter(n + 1, total);
        phase(PhaseRead);
        Image image;
        if (!image.ReadFile(path, name.extension().string())) {
            fail(path, "Error reading " + name.filename().string(), {});
            continue;
        }
        phase(PhaseProcess);
        PlanetShift shift;
        shift.input = path;
        if (!Centre(image, &result.targetX, &result.targetY, &shift)) {
            fail(path, "Error processing " + name.filename().string(), "no memory for the shift");
            continue;
        }
        phase(PhaseProcessed);
        if (cancelled()) {
            run.end = FileOpEnd::Cancelled;
            break;
        }
        phase(PhaseWrite);
        std::string target, text, detail;
        if (!WriteFileOpOutput(image, request.outputDirectory, kAutoAlignPlanetPrefix, path,
                               "SAMEASINPUT", keep, &target, &text, &detail)) {
            writeFailure =
                std::string("Error writing ") + kAutoAlignPlanetPrefix + name.stem().string();
            fail(path, writeFailure, detail);
            if (progress)
                progress->SetStatus(writeFailure);
        } else {
            run.inputs.push_back(path);
            run.outputs.push_back(target);
            keep.push_back(target);
            result.shifts.push_back(shift);
            phase(PhaseDone);
        }
        if (cancelled()) {
            run.end = FileOpEnd::Cancelled;
            break;
        }
    }
    if (run.end != FileOpEnd::Cancelled && !run.failures.empty())
        run.end = FileOpEnd::CompletedWithFailures;
    if (run.end == FileOpEnd::Cancelled)
        run.status = kThreadCanceledText;
    else if (!writeFailure.empty())
        run.status = writeFailure; // a write failure stands as the last status
    else
        run.status = kAutoAlignPlanetDoneText;
    if (progress)
        progress->SetStatus(run.status);

    if (!run.outputs.empty())
        FileOpLists().Set(
            OutputListOf(kAutoAlignPlanetListName, OutputListKind::Aligned, run.outputs));
    if (notify)
        notify->Beep();
    return result;
}

} // namespace astrivelle
