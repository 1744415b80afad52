// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The open images of the main window: the limit, the active image, and the commands
/// that bring a new image into being (open, new, duplicate, copy portion).
#include "engine/workbench/MainWindow.h"

#include "calibration/Bayer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <system_error>

#include "engine/ImageHeader.h"
#include "engine/Parallel.h"
#include "engine/SetupParams.h"
#include "engine/SystemOptions.h"
#include "engine/workbench/History.h"
#include "engine/workbench/StepFile.h"
#include "fileio/FileDispatch.h"
#include "fileio/SaveType.h"
#include "fileio/Tiff.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

/// The step store a window gets when the model was given none: the history's, which writes
/// each step's state to its step file beside the image.
IStepStore* DefaultStepStore() {
    return &TheHistoryStepStore();
}

std::string FolderOf(const std::string& path) {
    return fs::path(path).parent_path().string();
}

std::string FileNameOf(const std::string& path) {
    return fs::path(path).filename().string();
}

/// The file fields that decide how an image is written, carried to a copy.
void CopyFileFields(const Image& from, Image& to) {
    to.fileType = from.fileType;
    to.dataType = from.dataType;
    to.fitsCompress = from.fitsCompress;
    to.fitsMaximColor = from.fitsMaximColor;
    to.tiffBitsPerSample = from.tiffBitsPerSample;
    to.jpegQuality = from.jpegQuality;
    to.jpegFlags[0] = from.jpegFlags[0];
    to.jpegFlags[1] = from.jpegFlags[1];
    to.headerCards = from.headerCards;
    to.description = from.description;
    for (int s = 0; s < 3; ++s)
        to.planeSubtractMinimum[s] = from.planeSubtractMinimum[s];
    to.header = from.header ? std::make_shared<ImageHeader>(*from.header) : nullptr;
    to.tiffInfo = from.tiffInfo ? std::make_shared<TiffInfo>(*from.tiffInfo) : nullptr;
}

} // namespace

std::string OpenImageLimitText(int limit) {
    char text[200];
    if (limit == 1)
        std::snprintf(text, sizeof text,
                      "No More Than %d Image Can Be Open At A Time.\n Check File | System "
                      "Options to change the limit.",
                      limit);
    else
        std::snprintf(text, sizeof text,
                      "No More Than %d Images Can Be Open At One Time.\n Check File | System "
                      "Options to change the limit",
                      limit);
    return text;
}

bool FolderIsWritable(const std::string& folder, std::string* error) {
    std::error_code ec;
    if (folder.empty() || !fs::is_directory(folder, ec)) {
        if (error)
            *error = std::strerror(ENOENT);
        return false;
    }
    return StepFolderWritable(folder, error); // creates and deletes the test file
}

std::string CompactHistoryText(const std::vector<CProcessStructure>& history,
                               const std::string& heading) {
    std::string text = heading;
    for (const CProcessStructure& r : history) {
        text += "Previous Image : " + r.prevImageFile + "#";
        text += "Current Image : " + r.curImageFile + "#";
        text += r.operation + "#";
        text += r.parameters;
        if (!r.parameters.empty() && r.parameters.back() != '#')
            text += '#';
    }
    return text;
}

// ---- the model ---------------------------------------------------------------------------------

CMainWindow::CMainWindow(INotify* notify) : notify_(notify ? notify : &SilentNotify()) {}

CMainWindow::~CMainWindow() = default;

bool CMainWindow::Start() {
    std::error_code ec;
    startFolder = fs::current_path(ec).string();
    tempFiles.clear();
    keptFiles.clear();
    copiedCommands().Clear();
    std::string error;
    if (!DefaultProjectDirectory(projectFolder, &error)) {
        notify().Message(error);
        return false;
    }
    return true;
}

bool CMainWindow::SetActiveImage(CProcessWindow* window) {
    if (!images_.Activate(window))
        return false;
    window->notify().SetCaption(window->Caption());
    return true;
}

int CMainWindow::MaxOpenImages() const {
    return maxOpenImages > 0 ? maxOpenImages : Options().setup.maxOpenImages;
}

bool CMainWindow::CanOpenAnother() {
    const int limit = MaxOpenImages();
    if (imageCount() < limit)
        return true;
    notify().Message(OpenImageLimitText(limit));
    return false;
}

CProcessWindow* CMainWindow::ResolveToolTarget(CProcessWindow** lockedTo) {
    if (lockedTo && *lockedTo) {
        if (images_.Contains(*lockedTo))
            return *lockedTo;
        *lockedTo = nullptr; // the image has gone: the lock is cleared
    }
    CProcessWindow* active = images_.Active();
    if (!active)
        notify().Message(kNoImageAvailableText);
    return active;
}

CProcessWindow* CMainWindow::Adopt(std::unique_ptr<CProcessWindow> window) {
    window->SetNotify(notify_);
    // The program-wide lists the history and the projects add to.
    window->mainTempFiles = &tempFiles;
    window->mainKeptFiles = &keptFiles;
    window->copiedCommands = &copiedCommands().Storage();
    if (!window->stepStore)
        window->stepStore = stepStore ? stepStore : DefaultStepStore();
    if (!window->blender)
        window->blender = blender;
    window->channelSelect[0] = channelRed;
    window->channelSelect[1] = channelGreen;
    window->channelSelect[2] = channelBlue;
    CProcessWindow* w = images_.Add(std::move(window));
    w->image.ComputeStatistics();
    notify().SetCaption(w->Caption());
    notify().HistoryChanged();
    return w;
}

CProcessWindow* CMainWindow::AddImage(std::unique_ptr<CProcessWindow> window) {
    if (!window || !CanOpenAnother())
        return nullptr;
    return Adopt(std::move(window));
}

std::string CMainWindow::SaveFolder(bool showBox) {
    if (FolderIsWritable(lastFolder))
        return lastFolder;
    std::string folder = projectFolder;
    if (folder.empty() && !DefaultProjectDirectory(folder))
        folder = fs::temp_directory_path().string();
    if (showBox)
        notify().Message(kUsingDefaultSavePathText + folder);
    return folder;
}

std::string CMainWindow::FreeName(const std::string& folder, const std::string& stem,
                                  const std::string& extension) const {
    for (int n = 1;; ++n) {
        const std::string path =
            (fs::path(folder) / (stem + "_" + std::to_string(n) + extension)).string();
        std::error_code ec;
        if (fs::exists(path, ec))
            continue;
        bool taken = false; // an image not yet saved holds its name too
        images_.ForEach([&](CProcessWindow& w) {
            if (fs::path(w.filePath).lexically_normal() == fs::path(path).lexically_normal())
                taken = true;
        });
        if (!taken)
            return path;
    }
}

// ---- open ----------------------------------------------------------------------------------

CProcessWindow* CMainWindow::OpenImageFile(const std::string& path, OpenSelection* selection) {
    // The extension first, then the limit, then the file itself.
    const std::string name = FileNameOf(path);
    const std::size_t point = name.rfind('.');
    if (point == std::string::npos || point + 1 == name.size()) {
        notify().Message(kInvalidFilenameText);
        return nullptr;
    }
    if (!CanOpenAnother())
        return nullptr;

    OpenSelection single;
    OpenOptions options;
    options.notify = notify_;
    OpenClassification how;
    if (!ClassifyOpenFile(path, selection ? *selection : single, options, &how)) {
        notify().Message(how.message);
        return nullptr;
    }
    const bool converted = !how.conversion.empty(); // camera raw, through a temporary FITS file

    std::unique_ptr<CProcessWindow> window;
    try {
        window = std::make_unique<CProcessWindow>(notify_);
    } catch (const std::bad_alloc&) {
        notify().Message(kCannotCreateFrameText);
        return nullptr;
    }
    Image& image = window->image;
    bool read = false;
    if (how.fileType == KindSBIG || how.fileType == KindSBIGCompressed)
        read = image.ReadSBIG(how.pathToRead, how.colorType);
    else
        read = image.ReadFile(how.pathToRead, fs::path(how.pathToRead).extension().string());
    if (!read) {
        std::string text;
        if (converted)
            text = kCouldNotDisplayRawText + how.name;
        else if (how.fileType == KindTIFF && !LastFileError().empty())
            text = LastFileError(); // the reader's own text
        else
            text = "Could not read " + path;
        notify().Message(text);
        if (converted) {
            std::error_code ec;
            fs::remove(how.pathToRead, ec);
        }
        return nullptr;
    }
    if (how.filterIndex > 0)
        Options().setup.fileFilterIndex = how.filterIndex;

    window->filePath = how.pathToRead;
    window->title = FileNameOf(how.pathToRead);
    window->BeginHistory("Read");
    window->history[0].prevImageFile = window->filePath;
    window->history[0].curImageFile = window->filePath;
    lastFolder = FolderOf(path);
    CProcessWindow* w = Adopt(std::move(window));
    if (converted)
        AddTempFile(*w, how.pathToRead);
    return w;
}

int CMainWindow::OpenImageFiles(const std::vector<std::string>& paths,
                                const std::function<bool()>& escapeHeld) {
    int opened = 0;
    OpenSelection selection; // the raw question is asked once for the files of one open
    for (const std::string& path : paths) {
        notify().SetCaption(std::string(kMainTitle) + " - " + kOpenHoldEscCaption);
        if (OpenImageFile(path, &selection))
            ++opened;
        if (escapeHeld && escapeHeld() && notify().Ask(kCancelOpenQuestion) == Answer::Yes)
            break;
    }
    notify().SetCaption(kMainTitle);
    return opened;
}

// ---- new, duplicate, copy portion --------------------------------------------------------------

CProcessWindow* CMainWindow::NewImage(int width, int height, bool color, float value,
                                      const std::string& stem) {
    if (!CanOpenAnother())
        return nullptr;
    auto window = std::make_unique<CProcessWindow>(notify_);
    Image& image = window->image;
    const std::uint32_t colorType = color ? ColorRGB : ColorGray;
    image.SetGeometryFits(KindFITS, colorType, 0, Data16, width, height);
    if (width <= 0 || height <= 0 || !image.AllocatePlanes(1)) {
        notify().Message(kCannotAllocateWindowText);
        return nullptr;
    }
    for (int s : image.Slots()) {
        float* cur = image.curPlane[s];
        float* prev = image.prevPlane[s];
        ParallelRows(height, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y)
                for (int x = 0; x < width; ++x) {
                    cur[std::size_t(y) * width + x] = value;
                    prev[std::size_t(y) * width + x] = value;
                }
        });
    }
    const std::string extension = ApplySaveType(image, Options().setup.saveType, ".fit");
    image.description = "PROC"; // the type code of a made image
    window->filePath = FreeName(SaveFolder(false), stem, extension);
    window->title = FileNameOf(window->filePath);
    window->BeginHistory("New Image");
    window->history[0].prevImageFile = window->filePath;
    return Adopt(std::move(window));
}

CProcessWindow* CMainWindow::CheckedSource(CProcessWindow* source) {
    CProcessWindow* from = source ? source : images_.Active();
    if (!from || !images_.Contains(from)) {
        notify().Message(kPleaseOpenAnImageText);
        return nullptr;
    }
    if (from->threadBusy) {
        notify().Message(kOperationInProgressText);
        return nullptr;
    }
    if (!CanOpenAnother())
        return nullptr;
    return from;
}

CProcessWindow* CMainWindow::DuplicateImage(const std::string& name, CProcessWindow* source) {
    CProcessWindow* from = CheckedSource(source);
    if (!from)
        return nullptr;
    const std::string folder = SaveFolder(true);
    const fs::path own(from->filePath.empty() ? from->title : from->filePath);
    auto window = std::make_unique<CProcessWindow>(notify_);
    Image& src = from->image;
    CopyFileFields(src, window->image);
    if (!window->image.CopyFrom(src, src.width, src.height, src.maxValue, src.colorType,
                                src.colorDetail)) {
        notify().Message(kCannotAllocateWindowText);
        return nullptr;
    }
    window->filePath =
        FreeName(folder, name.empty() ? own.stem().string() : name, own.extension().string());
    window->title = FileNameOf(window->filePath);
    window->BeginHistory("Duplicate Image");
    window->history[0].prevImageFile = from->filePath;
    window->history[0].parameters = CompactHistoryText(from->history, kDuplicateHeading);
    return Adopt(std::move(window));
}

CProcessWindow* CMainWindow::BayerInterpolateImage(const std::string& cfaPattern,
                                                   bool reduceGreenNoise, bool buildRgbPixel,
                                                   CProcessWindow* source) {
    CProcessWindow* from = CheckedSource(source);
    if (!from)
        return nullptr;
    auto window = std::make_unique<CProcessWindow>(notify_);
    std::string error;
    if (!InterpolateBayerImage(from->image, cfaPattern, reduceGreenNoise, buildRgbPixel,
                               &window->image, &error)) {
        notify().Message(error);
        return nullptr;
    }
    // A window keeps the input of the latest operator in its previous planes.
    if (!window->image.AllocatePlanes(1)) {
        notify().Message(kCannotAllocateWindowText);
        return nullptr;
    }
    window->image.CurrentToPrevious();
    const fs::path own(from->filePath.empty() ? from->title : from->filePath);
    const std::string name = kBayerImagePrefix + own.filename().string();
    const fs::path beside = own.parent_path() / name;
    std::error_code ec;
    bool taken = fs::exists(beside, ec); // on disk, or held by an image not yet saved
    images_.ForEach([&](CProcessWindow& w) {
        taken = taken || fs::path(w.filePath).lexically_normal() == beside.lexically_normal();
    });
    if (!taken && !own.parent_path().empty() && FolderIsWritable(own.parent_path().string()))
        window->filePath = beside.string();
    else
        window->filePath = FreeName(SaveFolder(true), kBayerImagePrefix + own.stem().string(),
                                    own.extension().string());
    window->title = FileNameOf(window->filePath);
    window->BeginHistory("Bayer CFA Interpolation");
    window->history[0].prevImageFile = from->filePath;
    window->history[0].parameters = CompactHistoryText(from->history, kBayerHeading);
    return Adopt(std::move(window));
}

CProcessWindow* CMainWindow::CopyPortion(int x, int y, int width, int height,
                                         const std::string& name, CProcessWindow* source) {
    CProcessWindow* from = CheckedSource(source);
    if (!from)
        return nullptr;
    Image& src = from->image;
    // Clip the rectangle to the image.
    const int x0 = std::max(x, 0), y0 = std::max(y, 0);
    const int x1 = std::min(x + width, src.width), y1 = std::min(y + height, src.height);
    if (x1 <= x0 || y1 <= y0) {
        notify().Message("The portion lies outside the image.");
        return nullptr;
    }
    const int w = x1 - x0, h = y1 - y0;
    const std::string folder = SaveFolder(true);
    const fs::path own(from->filePath.empty() ? from->title : from->filePath);
    auto window = std::make_unique<CProcessWindow>(notify_);
    Image& dst = window->image;
    CopyFileFields(src, dst);
    dst.SetSize(w, h);
    dst.maxValue = src.maxValue;
    dst.colorType = src.colorType;
    dst.colorDetail = src.colorDetail;
    if (!dst.AllocatePlanes(1)) {
        notify().Message(kCannotAllocateWindowText);
        return nullptr;
    }
    for (int s : dst.Slots()) {
        const float* from_plane = src.curPlane[s];
        float* cur = dst.curPlane[s];
        float* prev = dst.prevPlane[s];
        const int srcWidth = src.width;
        ParallelRows(h, [&](int r0, int r1) {
            for (int r = r0; r < r1; ++r) {
                const float* row = from_plane + std::size_t(r + y0) * srcWidth + x0;
                std::memcpy(cur + std::size_t(r) * w, row, sizeof(float) * w);
                std::memcpy(prev + std::size_t(r) * w, row, sizeof(float) * w);
            }
        });
    }
    window->filePath =
        FreeName(folder, name.empty() ? own.stem().string() : name, own.extension().string());
    window->title = FileNameOf(window->filePath);
    window->BeginHistory("Copy Portion");
    window->history[0].prevImageFile = from->filePath;
    window->history[0].parameters = CompactHistoryText(from->history, kCopyPortionHeading);
    return Adopt(std::move(window));
}

} // namespace astrivelle
