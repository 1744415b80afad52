// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Normalize Files over the file-operation frame.
#include "imagesets/NormalizeFiles.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "engine/Image.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

std::string WithLimit(const char* format) {
    char text[160];
    std::snprintf(text, sizeof text, format, kNormalizeLimit);
    return text;
}

/// The pair of statistics of one plane for the mode.
std::array<double, 2> PlaneStats(const Image& image, const float* plane, NormalizeMode mode) {
    if (mode == NormalizeMode::BrightnessContrast)
        return {image.MeanOfPlane(plane), image.StdDevOfPlane(plane)};
    return {image.MinOfPlane(plane), image.MaxOfPlane(plane)};
}

void Add(NormalizeChannelSet& set, const std::array<double, 2>& v) {
    for (int i = 0; i < 2; ++i) {
        set.largest[i] = set.count ? std::max(set.largest[i], v[i]) : v[i];
        set.smallest[i] = set.count ? std::min(set.smallest[i], v[i]) : v[i];
        set.sum[i] += v[i];
    }
    ++set.count;
}

} // namespace

std::string NormalizeParamsText(const NormalizeRequest& r) {
    if (r.target != NormalizeTarget::UserDefined)
        return {};
    if (r.mode == NormalizeMode::BrightnessContrast) {
        const bool backgroundOk = r.background >= 0 && r.background < kNormalizeLimit;
        if (r.useSetDeviation)
            return backgroundOk ? std::string()
                                : WithLimit("Please select an average background level < %d");
        if (!backgroundOk || !(r.deviation >= 0 && r.deviation < kNormalizeLimit))
            return WithLimit(
                "Please select an average background level and average standard deviation < %d");
        return {};
    }
    if (!(r.minimum >= 0 && r.minimum < r.maximum && r.maximum <= kNormalizeLimit))
        return WithLimit("Please select minimum range < maximum range and maximum range <= %d");
    return {};
}

std::array<double, 2> NormalizeTargetOf(const NormalizeRequest& r, const NormalizeChannelSet& set) {
    switch (r.target) {
    case NormalizeTarget::SetMaximum:
        return set.largest;
    case NormalizeTarget::SetMinimum:
        return set.smallest;
    case NormalizeTarget::SetAverage:
        return set.Average();
    case NormalizeTarget::UserDefined:
        break;
    }
    if (r.mode == NormalizeMode::Range)
        return {r.minimum, r.maximum};
    return {r.background, r.useSetDeviation ? set.Average()[1] : r.deviation};
}

NormalizeResult NormalizeFiles(const NormalizeRequest& request, IProgress* progress,
                               INotify* notify) {
    NormalizeResult result;
    result.step = "Error";
    const auto stop = [&](const std::string& text) {
        result.run.end = FileOpEnd::Stopped;
        result.run.status = text;
        if (!text.empty()) {
            result.run.failures.push_back({{}, text, {}});
            if (notify)
                notify->Message(text);
        }
        if (progress)
            progress->SetStatus(text);
        return result;
    };
    FileOpBusy busy(FileOpKind::Normalize);
    if (!busy.Acquired())
        return stop(BusyText(FileOpKind::Normalize));
    if (request.files.size() < 2)
        return stop(kNormalizeTwoImagesText);
    const std::string paramsText = NormalizeParamsText(request);
    if (!paramsText.empty())
        return stop(paramsText);
    std::string prefix, message;
    if (!CheckPrefix(request.prefix, &prefix, &message))
        return stop(message);

    CImageFileList usable;
    std::vector<std::string> rejected;
    CheckFiles("NORMALIZE", kSetEither, request.files, &usable, &rejected);
    if (notify && !ConfirmRejected(*notify, "normalize", rejected))
        return stop(kThreadCanceledText);
    if (usable.size() < 2)
        return stop(kNormalizeTwoUsableText);

    // Stage 1: the statistics of every file and channel, one file in memory at a time.
    if (progress)
        progress->SetStatus(kNormalizeAnalyzeText);
    const NormalizeMode mode = request.mode;
    std::vector<std::string> inputs;
    std::vector<std::array<std::array<double, 2>, 3>> fileStats;
    const long total = static_cast<long>(usable.size());
    for (long n = 0; n < total; ++n) {
        if (progress && progress->Cancelled()) {
            result.run.end = FileOpEnd::Cancelled;
            result.run.status = kThreadCanceledText;
            progress->SetStatus(kThreadCanceledText);
            return result;
        }
        if (progress)
            progress->SetProgress(n + 1, total);
        const std::string& path = usable[n].path;
        Image image;
        if (!image.ReadFile(path, fs::path(path).extension().string())) {
            FileOpFailure f{path, "Error reading " + fs::path(path).filename().string(), {}};
            if (notify)
                notify->Message(f.text);
            result.run.failures.push_back(std::move(f));
            continue;
        }
        std::array<std::array<double, 2>, 3> stats{};
        for (int s : image.Slots()) {
            stats[s] = PlaneStats(image, image.curPlane[s], mode);
            Add(result.sets[s], stats[s]);
        }
        inputs.push_back(path);
        fileStats.push_back(stats);
    }
    if (inputs.size() < 2)
        return stop(kNormalizeTwoUsableText);
    for (int s = 0; s < 3; ++s)
        result.targets[s] = NormalizeTargetOf(request, result.sets[s]);

    // Stage 2: each file normalized channel by channel and written.
    result.started = true;
    FileOpJob job;
    job.inputs = inputs;
    job.outDir = request.outputDirectory;
    job.prefix = prefix;
    job.saveType = request.ownerName == kNormalizeOwnerPipeline ? request.saveType : "SAMEASINPUT";
    job.runningText = kNormalizeRunningText;
    job.doneText = "Completed";
    job.readFailureText = "Error reading ";
    job.writeFailureText = "Error writing ";
    const bool byMeanStd = mode == NormalizeMode::BrightnessContrast;
    FileOpHandlers handlers;
    handlers.process = [&](Image& image, const std::string&, std::size_t index, IProgress*,
                           std::string* why) {
        for (int s : image.Slots()) {
            const auto& own = fileStats[index][s];
            const auto& target = result.targets[s];
            if (!image.NormalizeChannel(true, nullptr, image.curPlane[s], byMeanStd, own[0], own[1],
                                        target[0], target[1])) {
                *why = "missing plane";
                return false;
            }
        }
        return true;
    };
    FileOpResult run = RunFileOperation(job, handlers, progress, notify);
    // The failures of the analysis come first.
    run.failures.insert(run.failures.begin(), result.run.failures.begin(),
                        result.run.failures.end());
    if (run.end == FileOpEnd::Completed && !result.run.failures.empty())
        run.end = FileOpEnd::CompletedWithFailures;
    if (run.end != FileOpEnd::Cancelled && run.outputs.empty()) {
        run.status = kNormalizeNoneText;
        if (progress)
            progress->SetStatus(run.status);
    }
    result.step = run.outputs.empty() ? "Error" : "Completed";
    result.run = std::move(run);
    if (!result.run.outputs.empty())
        FileOpLists().Set(
            OutputListOf("Normalize Files", OutputListKind::Normalized, result.run.outputs));
    return result;
}

} // namespace astrivelle
