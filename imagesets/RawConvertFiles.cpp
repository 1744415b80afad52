// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Digital Camera Raw Conversion Files over the file-operation frame.
#include "imagesets/RawConvertFiles.h"

#include <atomic>
#include <filesystem>

#include "engine/Image.h"
#include "fileio/Raw.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

std::atomic<bool> rawRunBusy{false};

/// Holds the one-run-at-a-time flag for the lifetime of a run.
class RawBusy {
public:
    RawBusy() : acquired_(!rawRunBusy.exchange(true)) {}
    ~RawBusy() {
        if (acquired_)
            rawRunBusy.store(false);
    }
    RawBusy(const RawBusy&) = delete;
    RawBusy& operator=(const RawBusy&) = delete;
    bool Acquired() const { return acquired_; }

private:
    bool acquired_;
};

/// The progress owner the frame talks to: it forwards to the caller's owner and raises its own
/// cancel flag when the caller's is raised or when a question's Cancel ends the run.
class RunProgress : public IFileOpOwner {
public:
    explicit RunProgress(IProgress* inner)
        : inner_(inner), owner_(dynamic_cast<IFileOpOwner*>(inner)) {
        Poll();
    }
    void SetProgress(long step, long total) override {
        if (inner_)
            inner_->SetProgress(step, total);
        Poll();
    }
    void SetStatus(const std::string& text) override {
        if (inner_)
            inner_->SetStatus(text);
        Poll();
    }
    void SetCounter(long current, long total) override {
        if (owner_)
            owner_->SetCounter(current, total);
        Poll();
    }
    /// Raises this flag when the caller's is raised; true when either is.
    bool Poll() {
        if (inner_ && inner_->Cancelled())
            RequestCancel();
        return Cancelled();
    }
    bool Stopped() const { return stopped_; }
    void Stop() {
        stopped_ = true;
        RequestCancel();
    }

private:
    IProgress* inner_;
    IFileOpOwner* owner_;
    bool stopped_ = false;
};

/// The notifier the frame talks to: a failure already shown as a question is not shown again.
class RunNotify : public INotify {
public:
    explicit RunNotify(INotify* inner) : inner_(inner) {}
    void Message(const std::string& text, const std::string& title) override {
        if (text == shown_) {
            shown_.clear();
            return;
        }
        if (inner_)
            inner_->Message(text, title);
    }
    Answer Ask(const std::string& text, bool withCancel) override {
        shown_ = text;
        return inner_ ? inner_->Ask(text, withCancel) : Answer::No;
    }
    void Beep() override {
        if (inner_)
            inner_->Beep();
    }

private:
    INotify* inner_;
    std::string shown_;
};

} // namespace

RawConvertResult ConvertRawFiles(const RawConvertRequest& request, IProgress* progress,
                                 INotify* notify) {
    RawConvertResult result;
    RawBusy busy;
    if (!busy.Acquired()) {
        result.run = StopRun(progress, notify, kRawAlreadyInProgress);
        return result;
    }
    if (!FindRawConversion(request.conversion)) {
        result.run = StopRun(progress, notify, kRawCouldNotConvert);
        return result;
    }
    std::string prefix, message;
    if (!CheckPrefix(request.prefix, &prefix, &message)) {
        result.run = StopRun(progress, notify, message);
        return result;
    }

    RunProgress runProgress(progress);
    RunNotify runNotify(notify);
    const std::size_t count = request.files.size();
    std::vector<std::string> patterns(count), details(count);
    std::vector<char> decoded(count, 0);
    const bool color = request.conversion == "Color";
    FileOpFailure stopFailure;

    FileOpJob job;
    job.inputs = request.files;
    job.outDir = request.outputDirectory;
    job.prefix = prefix;
    job.saveType = ResolveRawSaveType(request.saveType);
    job.doneText = kRawConvertDoneText;
    job.processFailureText.clear(); // the handler's texts name the file themselves
    FileOpHandlers handlers;
    // The decoder reads the file itself: nothing is read before the process step.
    handlers.read = [](Image&, const std::string&, std::string*) { return true; };
    handlers.process = [&](Image& image, const std::string& path, std::size_t index, IProgress*,
                           std::string* why) {
        const std::string name = fs::path(path).filename().string();
        if (!IsRawConversionExtension(fs::path(path).extension().string())) {
            *why = RawUnsupportedFormatMessage(name);
            if (runNotify.Ask(*why, true) == Answer::Cancel) {
                stopFailure = {path, *why, {}};
                runProgress.Stop();
            }
            return false;
        }
        RawFileInfo info;
        ClearLastFileError();
        if (!IdentifyRawFile(path, &info)) {
            *why = kRawCouldNotOpenText + name;
            details[index] = LastFileError();
            return false;
        }
        RawRequest raw;
        raw.ownerName = request.ownerName;
        raw.linear = request.linear;
        raw.conversion = request.conversion;
        raw.saveType = job.saveType;
        raw.inputPath = path;
        raw.reduceGreenNoise = color && request.reduceGreenNoise;
        raw.buildRGBPixel = color && request.buildRGBPixel;
        ClearLastFileError();
        if (!DecodeRawImage(raw, image)) {
            *why = kRawCouldNotConvert;
            details[index] = LastFileError();
            return false;
        }
        patterns[index] = raw.pattern;
        decoded[index] = 1;
        return !runProgress.Poll();
    };
    FileOpResult run = RunFileOperation(job, handlers, &runProgress, &runNotify);

    // The reasons behind the handler's failures, in the order the files failed.
    std::size_t next = 0;
    for (FileOpFailure& f : run.failures) {
        while (next < count && request.files[next] != f.path)
            ++next;
        if (next < count && f.detail.empty())
            f.detail = details[next];
    }
    if (runProgress.Stopped()) {
        // The Cancel of the unsupported-format question: that file is the last failure.
        run.failures.push_back(stopFailure);
        run.end = FileOpEnd::Stopped;
        run.status = kRawCouldNotConvert;
    } else if (run.end != FileOpEnd::Cancelled && run.outputs.empty()) {
        run.status = kRawCouldNotConvert;
    }
    if (progress && run.status != kThreadCanceledText)
        progress->SetStatus(run.status);

    // Each output with the pattern keyword of its input.
    std::size_t at = 0;
    for (std::size_t k = 0; k < run.inputs.size(); ++k) {
        while (at < count && !(decoded[at] && request.files[at] == run.inputs[k]))
            ++at;
        result.files.push_back({run.inputs[k], run.outputs[k], at < count ? patterns[at] : ""});
        if (at < count)
            ++at;
    }
    result.run = std::move(run);
    if (!result.run.outputs.empty())
        FileOpLists().Set(
            OutputListOf(kRawConvertOperation, OutputListKind::InitialLight, result.run.outputs));
    return result;
}

} // namespace astrivelle
