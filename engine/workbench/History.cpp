// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Saving and reading step states, showing a step again, undo, redo and go-to-step.
#include "engine/workbench/History.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "engine/Image.h"
#include "engine/ImageHeader.h"
#include "engine/SetupParams.h"
#include "engine/SystemOptions.h"
#include "engine/workbench/HistoryInternal.h"
#include "engine/workbench/StepFile.h"
#include "fileio/FileDispatch.h"
#include "fileio/Fits.h"
#include "fileio/Tiff.h"

namespace astrivelle {

namespace fs = std::filesystem;

// ---- the store ------------------------------------------------------------------------------

bool HistoryStepStore::SaveStepImage(CProcessWindow& window) {
    return history_detail::SaveStep(window, /*beforeOperator=*/true);
}

HistoryStepStore& TheHistoryStepStore() {
    static HistoryStepStore store;
    return store;
}

void AttachHistory(CProcessWindow& window) {
    window.stepStore = &TheHistoryStepStore();
}

bool ShowToolOnHistoryMoves() {
    return Options().setup.toolFlag != 0;
}

namespace history_detail {

bool HasImage(const CProcessWindow& w) {
    return w.image.width > 0 && w.image.height > 0 && !w.image.Slots().empty() &&
           w.image.curPlane[w.image.Slots().front()] != nullptr;
}

bool RefuseBusy(CProcessWindow& w) {
    if (!w.threadBusy)
        return false;
    w.notify().Message(kHistoryBusyText);
    return true;
}

void AddTempFile(CProcessWindow& w, const std::string& path) {
    w.tempFiles.push_back(path);
    if (w.mainTempFiles)
        w.mainTempFiles->push_back(path);
}

bool SaveStep(CProcessWindow& w, bool beforeOperator) {
    if (w.history.empty() || w.currentStep <= 0) {
        if (w.stepDirty) { // whatever the planes held is no longer known
            w.curPlanesFile.clear();
            w.prevPlanesFile.clear();
            w.prevPlanesStatsValid = false;
        }
        w.stepDirty = false; // the origin step is the file the image came from
        return true;
    }
    if (w.currentStep >= static_cast<int>(w.history.size()))
        return false;
    CProcessStructure& record = w.history[w.currentStep];
    if (!record.curImageFile.empty() && !w.stepDirty)
        return true;

    // Folder and name of the window's file; a folder that can't take files gives way to the
    // default project directory.
    const fs::path current(w.filePath.empty() ? w.title : w.filePath);
    std::string folder = w.filePath.empty() ? std::string() : current.parent_path().string();
    std::string error;
    if (folder.empty() || !StepFolderWritable(folder, &error)) {
        const std::string first = folder.empty() ? std::string(".") : folder;
        const std::string firstError = error.empty() ? std::string("No folder") : error;
        std::string fallback;
        std::string fallbackError;
        if (!DefaultProjectDirectory(fallback, &fallbackError) ||
            !StepFolderWritable(fallback, &fallbackError)) {
            char text[4096];
            std::snprintf(text, sizeof text, kStepCheckDirectoryFormat, first.c_str(),
                          firstError.c_str());
            record.curImageFile.clear(); // the state is in no file
            w.notify().Message(text);
            return false;
        }
        folder = fallback;
    }
    std::string stem = StepStemOf(current.filename().string());
    if (stem.empty())
        stem = "Image";
    const std::string extension = current.extension().string();

    std::string path;
    std::string failText;
    if (!WriteStepFile(w.image, StepFileKind::State, folder, stem, extension, &path, &failText)) {
        record.curImageFile.clear();
        w.notify().Message(failText);
        return false;
    }
    record.curImageFile = path;
    AddTempFile(w, path);
    w.filePath = path; // as an ordinary save: the window now names the file it wrote

    record.filterFile.clear();
    const std::vector<int> slots = w.image.Slots();
    if (!slots.empty() && w.image.workRows[slots.front()]) {
        std::string filterPath;
        if (WriteStepFile(w.image, StepFileKind::Filter, folder, stem, ".fit", &filterPath,
                          &failText)) {
            record.filterFile = filterPath;
            AddTempFile(w, filterPath);
        }
        // The pure result belongs to this step alone: kept or not, it goes.
        w.image.FreeWorkRows();
    }
    // Before an operator the planes are about to change: the state stays dirty for the step
    // that follows, whose record may still name an older file (a forward replay).
    w.stepDirty = beforeOperator;
    w.curPlanesFile = beforeOperator ? std::string() : path;
    w.prevPlanesFile.clear();
    w.prevPlanesStatsValid = false;
    return true;
}

bool PlanesTrusted(const CProcessWindow& w) {
    return !w.stepDirty && !w.curPlanesFile.empty() && w.filePath == w.curPlanesFile;
}

bool SwapPlanes(CProcessWindow& w) {
    Image& img = w.image;
    for (int s : img.Slots())
        std::swap(img.curPlane[s], img.prevPlane[s]);
    std::swap(w.curPlanesFile, w.prevPlanesFile);
    ChannelStats* shown[4] = {&img.redStats, &img.greenStats, &img.blueStats, &img.valueStats};
    const bool known = w.prevPlanesStatsValid;
    for (int i = 0; i < 4; ++i)
        std::swap(*shown[i], w.prevPlanesStats[i]);
    // The statistics now kept are those of the planes that were shown.
    w.prevPlanesStatsValid = true;
    return known;
}

bool ShowStepFiles(CProcessWindow& w, const std::string& curFile, const std::string& prevFile) {
    // The origin record may name no previous file: it has no input.
    const bool wantPrev = !prevFile.empty() && curFile != prevFile;
    bool swapped = false;
    bool statsKnown = false;
    if (PlanesTrusted(w) && curFile != w.curPlanesFile &&
        (curFile == w.prevPlanesFile || (wantPrev && prevFile == w.curPlanesFile))) {
        // One of the states wanted is in the other plane set already: along the chain an undo
        // finds the wanted state in the previous planes, and a redo finds its input in the
        // current ones. Exchanging the planes saves reading that file again.
        statsKnown = SwapPlanes(w);
        w.filePath = w.curPlanesFile;
        swapped = true;
    }
    if (!(PlanesTrusted(w) && w.curPlanesFile == curFile)) {
        if (!w.LoadStepImage(curFile, "CUR")) {
            if (swapped) { // an unreadable step leaves the planes as they were
                SwapPlanes(w);
                w.filePath = w.curPlanesFile;
                w.prevPlanesStatsValid = statsKnown;
            }
            return false;
        }
    } else if (swapped && statsKnown) {
        // The planes were shown before with these statistics: no new pass over them.
        UpdateSbigHeaderFromStatistics(w.image);
        w.notify().ImageChanged();
    } else if (swapped) {
        w.AfterOperator(); // statistics and display of the state now shown
    }
    if (wantPrev && !(PlanesTrusted(w) && w.prevPlanesFile == prevFile))
        w.LoadStepImage(prevFile, "PREV");
    return true;
}

} // namespace history_detail

using namespace history_detail;

bool CProcessWindow::SaveStepImage() {
    return SaveStep(*this, /*beforeOperator=*/false);
}

bool CProcessWindow::LoadStepImage(const std::string& path, const std::string& which) {
    const bool toCurrent = which == "CUR";
    Image loaded;
    if (!loaded.ReadFile(path, fs::path(path).extension().string())) {
        notify().Message(kStepReadErrorText);
        return false;
    }
    const std::vector<int> from = loaded.Slots();
    if (from.empty()) {
        notify().Message(kStepReadErrorText);
        return false;
    }
    const bool loadedRgb = loaded.colorType == ColorRGB;
    const bool imageRgb = image.colorType == ColorRGB;
    if (loaded.width != image.width || loaded.height != image.height || loadedRgb != imageRgb) {
        if (!toCurrent) {
            // Input and result of a step that changes the size don't align: the previous
            // planes can't hold an input of another size next to the shown state.
            prevPlanesFile.clear();
            prevPlanesStatsValid = false;
            return true;
        }
        if (loadedRgb != imageRgb)
            image.colorType = loadedRgb ? ColorRGB : ColorGray;
        if (!image.Resize(loaded.width, loaded.height, 3)) {
            notify().Message(kStepResizeText);
            return false;
        }
        image.maxValue = loaded.maxValue;
        curPlanesFile.clear();
        prevPlanesFile.clear();
        prevPlanesStatsValid = false;
        filePath = path;
    }
    const std::vector<int> to = image.Slots();
    for (std::size_t i = 0; i < to.size() && i < from.size(); ++i) {
        float*& target = toCurrent ? image.curPlane[to[i]] : image.prevPlane[to[i]];
        std::swap(target, loaded.curPlane[from[i]]); // the old plane goes with `loaded`
    }
    if (toCurrent) {
        filePath = path;
        curPlanesFile = path;
        AfterOperator(); // statistics and display
    } else {
        prevPlanesFile = path;
        prevPlanesStatsValid = false;
    }
    return true;
}

bool CProcessWindow::LoadStepFilter(const std::string& filterPath, const std::string& maskPath) {
    if (!filterPath.empty()) {
        FitsGeometry g;
        if (!ProbeFITSGeometry(filterPath, &g)) {
            notify().Message(kFilterReadText);
            return false;
        }
        if (g.width != image.width || g.height != image.height) {
            notify().Message(kFilterSizeText);
            return false;
        }
        if (!image.AllocateWorkRows()) {
            notify().Message(kFilterMemoryText);
            return false;
        }
        const std::vector<int> slots = image.Slots();
        bool ok;
        if (image.colorType == ColorRGB) {
            FitsGeometry found;
            ok = ReadFITSRows(image.workRows[0], image.workRows[1], image.workRows[2], filterPath,
                              image.width, image.height, &found) &&
                 found.isColor;
        } else {
            ok = ReadFITSRows(image.workRows[slots.front()], nullptr, nullptr, filterPath,
                              image.width, image.height);
        }
        if (!ok) {
            image.FreeWorkRows();
            notify().Message(kFilterReadText);
            return false;
        }
        image.workValid = 1;
    }
    if (!maskPath.empty()) {
        const std::string ext = UpperExtension(fs::path(maskPath).extension().string());
        std::int64_t w = 0, h = 0;
        bool color = false;
        bool read = false;
        if (IsFitsExtension(ext)) {
            FitsGeometry g;
            read = ProbeFITSGeometry(maskPath, &g);
            w = g.width;
            h = g.height;
            color = g.isColor;
        } else if (ext == ".TIF" || ext == ".TIFF") {
            TiffFile tiff;
            std::string text;
            read = ReadTiffTags(maskPath, &tiff, &text);
            w = tiff.width;
            h = tiff.height;
            color = tiff.colorSpace != "GRAY";
        }
        if (!read) {
            notify().Message(kMaskReadText);
            return false;
        }
        if (w != image.width || h != image.height) {
            notify().Message(kMaskSizeText);
            return false;
        }
        if (color) {
            notify().Message(kMaskMonoText);
            return false;
        }
    }
    return true;
}

bool CProcessWindow::ReprocessCommand(const std::string& operation, const std::string& prevFile,
                                      const std::string& curFile, const std::string& parameters,
                                      bool apply, bool showTool, const std::string& filterFile,
                                      const std::string& maskFile) {
    bool shown = true;
    if (prevFile == kReprocessCommandMark) {
        notify().Message(kHistoryReprocessText);
        shown = false;
    } else {
        if (!apply) {
            image.FreeWorkRows();
            const std::string cur = curFile.empty() ? prevFile : curFile;
            if (!ShowStepFiles(*this, cur, prevFile))
                return false;
            if (!filterFile.empty() || !maskFile.empty())
                LoadStepFilter(filterFile, maskFile);
        } else {
            // A forward run makes the pure result anew; an older one must not stand in for it.
            image.FreeWorkRows();
            if (!maskFile.empty() && !LoadStepFilter(std::string(), maskFile))
                return false;
        }
    }
    bool toolTook = false;
    if (showTool)
        toolTook = notify().ShowTool(operation, parameters, apply);
    if (apply && !toolTook && shown)
        return ReplayStep(*this, operation, parameters);
    return shown;
}

namespace {

/// Shows the record `index` as Undo, Redo and a double-click in the list do.
bool ShowRecord(CProcessWindow& w, int index) {
    if (!SaveStep(w, /*beforeOperator=*/false)) {
        // The shown state could not be kept in a file; going elsewhere would lose it.
        return false;
    }
    const CProcessStructure record = w.history[index];
    if (record.channelSelect) {
        w.channelSelect[0] = record.channelRed != 0;
        w.channelSelect[1] = record.channelGreen != 0;
        w.channelSelect[2] = record.channelBlue != 0;
    }
    w.lastOp = record.operation;
    w.currentStep = index;
    const bool ok = w.ReprocessCommand(record.operation, record.prevImageFile, record.curImageFile,
                                       record.parameters, false, ShowToolOnHistoryMoves(),
                                       record.filterFile, record.maskFile);
    w.notify().HistoryChanged();
    return ok;
}

} // namespace

bool CProcessWindow::Undo() {
    if (isBlinkImage) {
        notify().Message(kUndoBlinkText);
        return false;
    }
    if (RefuseBusy(*this) || currentStep <= 0 || currentStep >= static_cast<int>(history.size()))
        return false;
    return ShowRecord(*this, currentStep - 1);
}

bool CProcessWindow::Redo() {
    if (isBlinkImage) {
        notify().Message(kRedoBlinkText);
        return false;
    }
    if (RefuseBusy(*this) || currentStep + 1 >= static_cast<int>(history.size()))
        return false;
    return ShowRecord(*this, currentStep + 1);
}

bool CProcessWindow::GoToStep(int index) {
    if (isBlinkImage || RefuseBusy(*this) || index < 0 || index >= static_cast<int>(history.size()))
        return false;
    if (index == currentStep && index == 0)
        return false; // the row that holds ">>" as row 0
    const std::string refusal = ToolCheckText(*this, history[index].operation);
    if (!refusal.empty()) {
        notify().Message(refusal);
        return false;
    }
    return ShowRecord(*this, index);
}

void CProcessWindow::DropHistory() {
    std::error_code ec;
    for (const std::string& path : tempFiles) {
        if (keepFiles || std::find(keptFiles.begin(), keptFiles.end(), path) != keptFiles.end())
            continue;
        fs::remove(path, ec);
        if (mainTempFiles)
            mainTempFiles->erase(std::remove(mainTempFiles->begin(), mainTempFiles->end(), path),
                                 mainTempFiles->end());
    }
    tempFiles.clear();
    history.clear();
    currentStep = 0;
    curPlanesFile.clear();
    prevPlanesFile.clear();
    prevPlanesStatsValid = false;
}

} // namespace astrivelle
