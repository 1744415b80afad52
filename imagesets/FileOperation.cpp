// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The file-operation frame: usable-file check, prefixes and output names, output
/// lists, busy flags and the per-file worker loop.
#include "imagesets/FileOperation.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "engine/Image.h"
#include "engine/Worker.h"
#include "fileio/Bmp.h"
#include "fileio/FileDispatch.h"
#include "fileio/Fits.h"
#include "fileio/Jpeg.h"
#include "fileio/SaveType.h"
#include "fileio/Sbig.h"
#include "fileio/Tiff.h"
#include "fileio/WriteSafely.h"

namespace astrivelle {

namespace fs = std::filesystem;

// ---- keywords -------------------------------------------------------------------------------

const std::vector<std::string>& OperationKeywords() {
    static const std::vector<std::string> words = {
        "CALIBRATE COMBINE", "CALIBRATE", "COMBINE",   "RESIZE",      "NORMALIZE", "GRADE", "CROP",
        "AUTOALIGNPLANET",   "12PTALIGN", "BINTFILES", "FILTERFILES", "BLINK"};
    return words;
}

bool IsOperationKeyword(const std::string& keyword) {
    const auto& w = OperationKeywords();
    return std::find(w.begin(), w.end(), keyword) != w.end();
}

bool IsSetKeyword(const std::string& keyword) {
    return keyword == kSetEither || keyword == kSetColorOnly || keyword == kSetMonoOnly ||
           keyword == kSetVideo;
}

const std::vector<std::string>& OperationNames() {
    static const std::vector<std::string> names = {
        "Calibrate Files",
        "Bayer Interpolate/Split Files",
        "Resize Files",
        "Normalize Files",
        "Crop Files",
        "Grade Files",
        "Auto Align Planet Files",
        "Align TSR Files",
        "Combine Files/HDR Add",
        "Filter Files",
        "Convert Files",
        "Digital Camera Raw Conversion Files",
        "Video Frame Files",
        "Convert MOV and AVI to SER Files",
        "Processed Bias Frames",
        "Processed Dark Frames",
        "Processed Flat Frames",
        "Processed Flat Dark Frames",
        "Processed Light Frames",
    };
    return names;
}

// ---- usable files ---------------------------------------------------------------------------

namespace {

struct HeaderFacts {
    std::int32_t width = 0, height = 0;
    bool isColor = false;
};

/// Reads what the check needs from a file's header (the pixels only where the format has no
/// header-only path). Empty on success, else the fixed text that starts the rejection.
std::string ProbeHeader(const std::string& path, const std::string& kind, HeaderFacts* facts) {
    if (kind == "FITS") {
        FitsGeometry g;
        if (!ProbeFITSGeometry(path, &g))
            return kCouldNotReadText;
        facts->width = g.width;
        facts->height = g.height;
        facts->isColor = g.isColor;
        return {};
    }
    if (kind == "TIFF") {
        TiffFile file;
        std::string text;
        if (!ReadTiffTags(path, &file, &text))
            return kCantOpenText;
        facts->width = static_cast<std::int32_t>(file.width);
        facts->height = static_cast<std::int32_t>(file.height);
        facts->isColor = file.colorSpace == "RGB";
        return {};
    }
    if (kind == "JPEG") {
        std::uint32_t w = 0, h = 0;
        std::string space;
        std::int32_t comps = 0;
        if (!JPEGReadImageHeader(path, &w, &h, &space, &comps))
            return kCantOpenText;
        facts->width = static_cast<std::int32_t>(w);
        facts->height = static_cast<std::int32_t>(h);
        facts->isColor = space != "GRAY";
        return {};
    }
    if (kind == "BMP") {
        BmpHeaderInfo info;
        if (!ReadBmpHeader(path, &info))
            return kCantOpenText;
        facts->width = info.header.width;
        facts->height = info.header.height < 0 ? -info.header.height : info.header.height;
        facts->isColor = info.header.bitCount == 24;
        return {};
    }
    if (kind == "SBIG") {
        // The size stands in the text header of the first 2048 bytes.
        if (ProbeSBIG(path) == KindNone)
            return kCantOpenText;
        std::ifstream in(path, std::ios::binary);
        char text[2049] = {};
        if (!in.read(text, 2048))
            return kCantOpenText;
        ImageHeader header;
        header.ParseText(text);
        if (header.width <= 0 || header.height <= 0)
            return kCantOpenText;
        facts->width = header.width;
        facts->height = header.height;
        facts->isColor = false; // SBIG files hold one plane
        return {};
    }
    // The rest: the reader is the only way to the size.
    Image image;
    if (!image.ReadFile(path, fs::path(path).extension().string()))
        return "Can't Open ";
    facts->width = image.width;
    facts->height = image.height;
    facts->isColor = image.colorType == ColorRGB;
    return {};
}

bool SameSizeKeyword(const std::string& op) {
    return op == "CALIBRATE COMBINE" || op == "CALIBRATE" || op == "COMBINE" || op == "RESIZE" ||
           op == "NORMALIZE" || op == "GRADE" || op == "CROP" || op == "AUTOALIGNPLANET" ||
           op == "12PTALIGN";
}

bool SameColorKeyword(const std::string& op) {
    return op == "CALIBRATE COMBINE" || op == "CALIBRATE" || op == "COMBINE";
}

} // namespace

bool CheckFiles(const std::string& operationKeyword, const std::string& setKeyword,
                const std::vector<std::string>& paths, CImageFileList* usable,
                std::vector<std::string>* rejected, std::vector<CheckedFile>* details) {
    usable->clear();
    rejected->clear();
    if (details)
        details->clear();
    const bool sameSize = SameSizeKeyword(operationKeyword);
    const bool sameColor = SameColorKeyword(operationKeyword);
    bool haveFirst = false;
    HeaderFacts first;
    for (const std::string& path : paths) {
        const std::string name = fs::path(path).filename().string();
        CheckedFile outcome;
        outcome.path = path;
        const std::string ext = fs::path(path).extension().string();
        const std::string kind = ImageKindOfExtension(ext);
        HeaderFacts facts;
        if (fs::path(path).stem().empty() || kind.empty()) {
            outcome.text = kInvalidFilenameLongText + name;
        } else if (std::string failed = ProbeHeader(path, kind, &facts); !failed.empty()) {
            outcome.text = failed + name;
        } else if (operationKeyword != "BLINK" &&
                   ((setKeyword == kSetColorOnly && !facts.isColor) ||
                    (setKeyword == kSetMonoOnly && facts.isColor))) {
            outcome.text = name + (facts.isColor ? " is COLOR" : " is MONO");
        } else if (haveFirst && sameSize &&
                   (facts.width != first.width || facts.height != first.height)) {
            outcome.text = name + " is " + std::to_string(facts.width) + " x " +
                           std::to_string(facts.height) + ", the list is " +
                           std::to_string(first.width) + " x " + std::to_string(first.height);
        } else if (haveFirst && sameColor && facts.isColor != first.isColor) {
            outcome.text = name + (facts.isColor ? " is COLOR" : " is MONO");
        } else {
            outcome.usable = true;
            if (!haveFirst) {
                first = facts;
                haveFirst = true;
            }
            CImageFileInfo info;
            info.path = path;
            info.width = facts.width;
            info.height = facts.height;
            info.isColor = facts.isColor ? 1 : 0;
            info.listIndex = static_cast<std::int32_t>(usable->size());
            usable->push_back(std::move(info));
        }
        if (!outcome.usable)
            rejected->push_back(name);
        if (details)
            details->push_back(std::move(outcome));
    }
    return !usable->empty() && rejected->empty();
}

std::string NotAllUsableQuestion(const std::string& operationWord) {
    return "Not all selected images could be used. Display\nthe list of files not included "
           "before continuing (Yes/No)\nor Cancel the " +
           operationWord + " operation?";
}

bool ConfirmRejected(INotify& notify, const std::string& operationWord,
                     const std::vector<std::string>& rejected) {
    if (rejected.empty())
        return true;
    const Answer a = notify.Ask(NotAllUsableQuestion(operationWord), true);
    if (a == Answer::Cancel)
        return false;
    if (a == Answer::Yes) {
        std::string list;
        for (const std::string& name : rejected)
            list += name + "\n";
        notify.Message(list);
    }
    return true;
}

// ---- prefix and output names ----------------------------------------------------------------

bool CheckPrefix(const std::string& text, std::string* prefix, std::string* message,
                 bool fileWord) {
    const char* blanks = " \t\r\n";
    const auto b = text.find_first_not_of(blanks);
    const std::string trimmed = b == std::string::npos
                                    ? std::string()
                                    : text.substr(b, text.find_last_not_of(blanks) - b + 1);
    if (trimmed.find_first_of(kPrefixForbiddenChars) != std::string::npos) {
        if (message)
            *message = std::string(fileWord ? kFilePrefixCharsText : kPrefixCharsText) +
                       std::string(30, ' ') + kPrefixForbiddenChars;
        return false;
    }
    if (prefix)
        *prefix = trimmed;
    return true;
}

std::string OutputExtension(const std::string& saveType, const std::string& inputPath) {
    const SaveTypeEntry* entry = FindSaveType(saveType);
    if (!entry || !entry->extension)
        return fs::path(inputPath).extension().string();
    return entry->extension;
}

std::string OutputFileName(const std::string& outDir, const std::string& prefix,
                           const std::string& inputPath, const std::string& extension) {
    return (fs::path(outDir) / (prefix + fs::path(inputPath).stem().string() + extension)).string();
}

// ---- output lists ---------------------------------------------------------------------------

const char* OutputListCaptionFormat(OutputListKind kind) {
    switch (kind) {
    case OutputListKind::Aligned:
        return "Aligned Image Set - %d images";
    case OutputListKind::Graded:
        return "Graded Image Set - %d images";
    case OutputListKind::Normalized:
        return "Normalized Image Set - %d images";
    case OutputListKind::NoiseReduced:
        return "Noise Reduced Image Set - %d images";
    case OutputListKind::Filtered:
        return "Filtered Image Set - %d images";
    case OutputListKind::CalibratedColor:
        return "Calibrated Color Image Set - %d images";
    case OutputListKind::Calibrated:
        return "Calibrated Image Set - %d images";
    case OutputListKind::Color:
        return "Color Image Set - %d images";
    case OutputListKind::InitialLight:
        return "Initial Light Frame Image Set - %d images";
    }
    return "";
}

std::string OutputListCaption(OutputListKind kind, int count) {
    char buf[96];
    std::snprintf(buf, sizeof buf, OutputListCaptionFormat(kind), count);
    return buf;
}

void CFileMultiOpList::Set(const CFileOpList& list) {
    std::lock_guard<std::mutex> g(lock_);
    for (CFileOpList& l : lists_)
        if (l.operation == list.operation) {
            l = list;
            return;
        }
    lists_.push_back(list);
}

bool CFileMultiOpList::Find(const std::string& operation, CFileOpList* list) const {
    std::lock_guard<std::mutex> g(lock_);
    for (const CFileOpList& l : lists_)
        if (l.operation == operation) {
            if (list)
                *list = l;
            return true;
        }
    return false;
}

std::vector<CFileOpList> CFileMultiOpList::All() const {
    std::lock_guard<std::mutex> g(lock_);
    return lists_;
}

void CFileMultiOpList::Clear() {
    std::lock_guard<std::mutex> g(lock_);
    lists_.clear();
}

CFileOpList OutputListOf(const std::string& operation, OutputListKind kind,
                         const std::vector<std::string>& outputs) {
    CFileOpList list;
    list.operation = operation;
    list.kind = kind;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        CImageFileInfo info;
        info.path = outputs[i];
        info.listIndex = static_cast<std::int32_t>(i);
        list.files.push_back(info);
    }
    return list;
}

CFileMultiOpList& FileOpLists() {
    static CFileMultiOpList lists;
    return lists;
}

std::string InputFilesLabel(int count) {
    return std::to_string(count) + " Input Files : ";
}

std::string OutputFilesLabel(int count) {
    return std::to_string(count < 0 ? 0 : count) + " Output Files : ";
}

// ---- busy rules -----------------------------------------------------------------------------

namespace {
std::atomic<bool> busyFlags[static_cast<int>(FileOpKind::Count_)];
}

const char* BusyText(FileOpKind kind) {
    switch (kind) {
    case FileOpKind::Combine:
        return "Combine Files/HDR Add Is Currently Busy.";
    case FileOpKind::Grade:
        return "Grade Files Is Currently Busy.";
    case FileOpKind::Filter:
        return "Filter Files Is Currently Busy.";
    case FileOpKind::Resize:
        return "Resize Files Is Currently Busy.";
    case FileOpKind::Normalize:
        return "Normalize Files Is Currently Busy.";
    case FileOpKind::Blink:
        return "Blink Files Is Currently Busy.";
    case FileOpKind::Crop:
        return "Crop Files Is Currently Busy.";
    case FileOpKind::AlignTSR:
        return "Align Translate, Scale, Rotate Files Is Currently Busy.";
    case FileOpKind::AutoPlanet:
        return "Auto Planet Align Is Currently Busy.";
    case FileOpKind::Calibrate:
        return "Calibrate Files Is Currently Busy.";
    case FileOpKind::Bayer:
        return "Bayer Interpolation Is Currently Busy.";
    case FileOpKind::Automatic:
        return "Auto Image Set Processing Is Currently Busy.";
    case FileOpKind::Count_:
        break;
    }
    return "";
}

FileOpBusy::FileOpBusy(FileOpKind kind)
    : kind_(kind), acquired_(!busyFlags[static_cast<int>(kind)].exchange(true)) {}

FileOpBusy::~FileOpBusy() {
    if (acquired_)
        busyFlags[static_cast<int>(kind_)].store(false);
}

bool IsFileOpBusy(FileOpKind kind) {
    return busyFlags[static_cast<int>(kind)].load();
}

std::string OtherFileOpBusyText(FileOpKind kind) {
    for (int k = 0; k < static_cast<int>(FileOpKind::Count_); ++k) {
        const auto other = static_cast<FileOpKind>(k);
        if (other != kind && other != FileOpKind::Automatic && IsFileOpBusy(other))
            return BusyText(other);
    }
    return {};
}

// ---- the worker loop ------------------------------------------------------------------------

bool WriteFileOpOutput(Image& image, const std::string& outDir, const std::string& prefix,
                       const std::string& nameSource, const std::string& saveType,
                       const std::vector<std::string>& protectedFiles, std::string* outPath,
                       std::string* text, std::string* detail) {
    const std::string extension =
        ApplySaveType(image, saveType, fs::path(nameSource).extension().string());
    const std::string target = OutputFileName(outDir, prefix, nameSource, extension);
    if (outPath)
        *outPath = target;
    std::string why;
    ClearLastFileError();
    if (!WriteImageSafely(image, target, image.fileType, protectedFiles, &why)) {
        if (text)
            *text = WriteFailureText(image.fileType, fs::path(target).filename().string());
        if (detail) {
            const std::string more = LastFileError();
            *detail = more.empty() ? why : why + ": " + more;
        }
        return false;
    }
    return true;
}

namespace {

void Report(INotify* notify, const FileOpFailure& f) {
    if (notify)
        notify->Message(f.detail.empty() ? f.text : f.text + "\n" + f.detail);
}

} // namespace

FileOpResult StopRun(IProgress* progress, INotify* notify, const std::string& text) {
    FileOpResult result;
    result.end = FileOpEnd::Stopped;
    result.status = text;
    result.failures.push_back({{}, text, {}});
    if (notify)
        notify->Message(text);
    if (progress)
        progress->SetStatus(text);
    return result;
}

FileOpResult RunFileOperation(const FileOpJob& job, const FileOpHandlers& handlers,
                              IProgress* progress, INotify* notify) {
    FileOpResult result;
    IFileOpOwner* owner = dynamic_cast<IFileOpOwner*>(progress);
    auto phase = [&](long p) {
        if (progress)
            progress->SetProgress(p, kFileOpPhases);
    };
    auto cancelled = [&] { return progress && progress->Cancelled(); };

    std::vector<std::string> keep = job.inputs;
    keep.insert(keep.end(), job.protectedFiles.begin(), job.protectedFiles.end());

    std::error_code ec;
    if (!job.outDir.empty() && !fs::is_directory(job.outDir, ec))
        fs::create_directories(job.outDir, ec);

    const long total = static_cast<long>(job.inputs.size());
    bool failed = false;
    for (long n = 0; n < total; ++n) {
        if (cancelled()) {
            result.end = FileOpEnd::Cancelled;
            break;
        }
        const std::string& path = job.inputs[n];
        const std::string name = fs::path(path).filename().string();
        if (owner)
            owner->SetCounter(n + 1, total);
        if (progress)
            progress->SetStatus(job.runningText.empty() ? name : job.runningText);
        phase(PhaseRead);

        Image image;
        std::string why;
        ClearLastFileError();
        const bool read = handlers.read ? handlers.read(image, path, &why)
                                        : image.ReadFile(path, fs::path(path).extension().string());
        if (!read) {
            FileOpFailure f{path, job.readFailureText + name,
                            handlers.read ? why : LastFileError()};
            Report(notify, f);
            result.failures.push_back(std::move(f));
            failed = true;
            if (job.stopOnReadFailure) {
                result.end = FileOpEnd::Stopped;
                break;
            }
            continue;
        }
        phase(PhaseProcess);
        if (cancelled()) {
            result.end = FileOpEnd::Cancelled;
            break;
        }
        if (handlers.process &&
            !handlers.process(image, path, static_cast<std::size_t>(n), progress, &why)) {
            if (cancelled()) {
                result.end = FileOpEnd::Cancelled;
                break;
            }
            FileOpFailure f = job.processFailureText.empty()
                                  ? FileOpFailure{path, why, {}}
                                  : FileOpFailure{path, job.processFailureText + name, why};
            Report(notify, f);
            result.failures.push_back(std::move(f));
            failed = true;
            if (job.stopOnProcessFailure) {
                result.end = FileOpEnd::Stopped;
                break;
            }
            continue;
        }
        phase(PhaseProcessed);
        if (cancelled()) {
            result.end = FileOpEnd::Cancelled;
            break;
        }
        phase(PhaseWrite);
        std::string target, text, detail;
        if (!WriteFileOpOutput(image, job.outDir, job.prefix, path, job.saveType, keep, &target,
                               &text, &detail)) {
            if (!job.writeFailureText.empty())
                text = job.writeFailureText + fs::path(target).filename().string();
            FileOpFailure f{path, text, detail};
            Report(notify, f);
            result.failures.push_back(std::move(f));
            failed = true;
            if (job.stopOnWriteFailure) {
                result.end = FileOpEnd::Stopped;
                break;
            }
            continue;
        }
        result.inputs.push_back(path);
        result.outputs.push_back(target);
        keep.push_back(target); // a later input of the same name must not replace this output
        phase(PhaseDone);
    }
    if (result.end == FileOpEnd::Completed && failed)
        result.end = FileOpEnd::CompletedWithFailures;
    if (result.end == FileOpEnd::Cancelled)
        result.status = kThreadCanceledText;
    else if (result.end == FileOpEnd::Stopped && !result.failures.empty())
        result.status = result.failures.back().text;
    else
        result.status = job.doneText;
    if (progress)
        progress->SetStatus(result.status);
    if (notify)
        notify->Beep();
    return result;
}

FileOpWorker::~FileOpWorker() {
    Join();
}

void FileOpWorker::Join() {
    if (thread_.joinable())
        thread_.join();
}

bool FileOpWorker::Start(std::function<void()> body, const std::string& priorityWord,
                         INotify* notify) {
    Join();
    running_.store(true);
    try {
        thread_ = std::thread([this, priorityWord, body = std::move(body)] {
            ApplyThreadPriority(priorityWord);
            body();
            running_.store(false);
        });
    } catch (const std::system_error&) {
        running_.store(false);
        if (notify)
            notify->Message(kThreadFailedText);
        return false;
    }
    return true;
}

} // namespace astrivelle
