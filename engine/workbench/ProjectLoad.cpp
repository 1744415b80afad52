// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The two project readers: Load Project (image, history and the restore of a moved
/// project) and the command reader of Filter Files.
#include <filesystem>
#include <system_error>

#include "engine/ImageHeader.h"
#include "engine/ProcessWindow.h"
#include "engine/SystemOptions.h"
#include "engine/workbench/LineReader.h"
#include "engine/workbench/Project.h"
#include "fileio/OpenClassify.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

std::string FolderOf(const std::string& path) {
    const fs::path folder = fs::path(path).parent_path();
    return folder.empty() ? std::string(".") : folder.string();
}

std::string NameOf(const std::string& path) {
    return fs::path(path).filename().string();
}

bool SameFolder(const std::string& a, const std::string& b) {
    if (fs::path(a).lexically_normal() == fs::path(b).lexically_normal())
        return true;
    std::error_code ec;
    return fs::exists(a, ec) && fs::exists(b, ec) && fs::equivalent(a, b, ec);
}

bool IsMarker(const std::string& path) {
    return path.empty() || path == kReprocessCommand || path == kNotRunFile;
}

bool DefaultOpenImage(CProcessWindow& window, const std::string& path) {
    if (path.find('\0') != std::string::npos)
        return false;
    if (!window.image.ReadFile(path, fs::path(path).extension().string()))
        return false;
    window.filePath = path;
    window.title = NameOf(path);
    window.image.ComputeStatistics();
    return true;
}

bool IsFitsSaveType(const std::string& saveType) {
    return saveType == "COMPFIT" || saveType == "UNCOMPFIT" || saveType == "COMPFIT32" ||
           saveType == "UNCOMPFIT32";
}

/// The placeholder image: 200 x 200, colour, black.
bool MakePlaceholder(CProcessWindow& window, const std::string& path) {
    Image& img = window.image;
    if (fs::path(path).extension() == ".fit")
        img.SetGeometryFits(KindFITS, ColorRGB, 0, Data16, 200, 200);
    else
        img.SetGeometryTiff(KindTIFF, ColorRGB, 0, 200, 200, 16);
    if (!img.AllocatePlanes(1))
        return false;
    img.ComputeStatistics();
    window.filePath = path;
    window.title = NameOf(path);
    return true;
}

/// A later file of a moved project: copied from the project's folder (or, failing that, from
/// where the record says it was) into the restore folder. The path is rewritten only when
/// the file is there; a failure is not reported, the step's file is then missing until used.
void RestoreLaterFile(std::string* path, const std::string& projectFolder,
                      const std::string& restoreFolder) {
    if (IsMarker(*path))
        return;
    std::string copy;
    const std::string beside = (fs::path(projectFolder) / NameOf(*path)).string();
    if (CopyIntoFolder(beside, restoreFolder, &copy) || CopyIntoFolder(*path, restoreFolder, &copy))
        *path = copy;
}

} // namespace

std::string PlaceholderImagePath(const std::string& folder, const std::string& saveType) {
    const std::string extension = IsFitsSaveType(saveType) ? ".fit" : ".tif";
    std::error_code ec;
    for (int n = 1;; ++n) {
        const fs::path candidate = fs::path(folder) / ("NI__" + std::to_string(n) + extension);
        if (!fs::exists(candidate, ec))
            return candidate.string();
    }
}

bool LoadProjectFile(const std::string& qxjPath, CProcessWindow& window,
                     const ProjectLoadOptions& options, ProjectLoadResult* result) {
    ProjectLoadResult local;
    ProjectLoadResult& out = result ? *result : local;
    out = ProjectLoadResult{};
    INotify& notify = window.notify();

    CLineReader reader;
    if (!reader.Open(qxjPath))
        return false; // nothing more happens
    std::string line, text, field;

    // Line 0: the heading.
    if (!reader.ReadLine(&line) || !CutProjectLine(line, &text)) {
        notify.Message(kProjectFormatErrorText);
        return false;
    }
    out.version = ProjectHeadingVersion(text, &out.color);
    if (out.version == 0) {
        notify.Message(kProjectNotProjectText);
        return false;
    }
    const bool v5 = out.version == 5;

    // Line 1: the origin.
    if (!reader.ReadLine(&line) || !CutProjectLine(line, &text)) {
        notify.Message(kProjectFormatErrorText);
        return false;
    }
    std::string first, second;
    if (!SplitField(&first, &text) || !SplitField(&second, &text)) {
        notify.Message(kProjectCorruptText);
        return false;
    }
    if (first != second)
        notify.Message(kProjectInitialNameText);

    const std::string projectFolder = FolderOf(qxjPath);
    std::string originPath = first;
    bool copyLater = false;
    out.restoreFolder = projectFolder;
    if (!SameFolder(FolderOf(first), projectFolder)) {
        // The project was moved with its folder: its lines name the old folder.
        out.moved = true;
        notify.Message(kProjectMovedText);
        std::string chosen = projectFolder;
        if (!notify.ChooseFolder(kProjectRestoreFolderTitle, &chosen) || chosen.empty())
            return false; // the user chose no folder: nothing is loaded
        out.restoreFolder = chosen;
        originPath = (fs::path(chosen) / NameOf(first)).string();
        if (!SameFolder(chosen, projectFolder)) {
            std::string copy;
            const std::string beside = (fs::path(projectFolder) / NameOf(first)).string();
            if (!CopyIntoFolder(beside, chosen, &copy)) {
                notify.Message(kProjectInitialMissingText);
                out.placeholder = true;
            }
        }
        copyLater = true;
    }

    window.history.clear();
    if (!out.placeholder) {
        const bool opened = options.openImage ? options.openImage(window, originPath)
                                              : DefaultOpenImage(window, originPath);
        if (!opened) {
            notify.Message(kProjectInitialMissingText);
            out.placeholder = true;
        }
    }
    if (out.placeholder) {
        const std::string saveType =
            options.defaultSaveType.empty() ? Options().setup.saveType : options.defaultSaveType;
        const std::string path = PlaceholderImagePath(out.restoreFolder, saveType);
        if (!MakePlaceholder(window, path)) {
            notify.Message(kProjectCantLoadText);
            return false;
        }
        window.placeholderImage = true;
    }

    // The rest of line 1: channel fields skipped, then operation and parameters.
    CProcessStructure origin;
    origin.prevImageFile = window.filePath;
    origin.curImageFile = window.filePath;
    bool originComplete = true;
    for (int i = 0; i < 4 && originComplete; ++i)
        originComplete = SplitField(&field, &text);
    if (originComplete && (originComplete = SplitField(&field, &text)))
        origin.operation = field;
    if (originComplete && (originComplete = SplitField(&field, &text)))
        origin.parameters = field;
    if (origin.operation.empty())
        origin.operation = "Read";
    window.history.push_back(origin);
    window.currentStep = 0;
    window.lastOp = origin.operation;
    window.pending = false;
    window.stepDirty = false;
    out.opened = true;
    if (!originComplete) {
        notify.Message(kProjectNotAllOperationsText);
        notify.HistoryChanged();
        return true;
    }

    // Later lines: one record each.
    bool complete = true;
    while (reader.ReadLine(&line)) {
        if (!CutProjectLine(line, &text)) {
            notify.Message(kProjectFormatErrorText);
            complete = false;
            break;
        }
        CProcessStructure r;
        if (!ParseProjectFields(text, v5, &r)) {
            notify.Message(kProjectNotAllOperationsText);
            complete = false;
            break;
        }
        if (copyLater) {
            RestoreLaterFile(&r.prevImageFile, projectFolder, out.restoreFolder);
            RestoreLaterFile(&r.curImageFile, projectFolder, out.restoreFolder);
        }
        if (out.placeholder) {
            // Without the origin the commands can only be applied forward.
            r.prevImageFile = kReprocessCommand;
            r.curImageFile = kNotRunFile;
        }
        window.history.push_back(std::move(r));
    }
    out.complete = complete;
    window.currentStep = 0;
    notify.HistoryChanged();
    return true;
}

bool ReadProjectRecords(const std::string& path, std::vector<CProcessStructure>* records,
                        bool* color, std::string* errorText) {
    records->clear();
    auto fail = [&](const std::string& text) {
        if (errorText)
            *errorText = text;
        return false;
    };
    CLineReader reader;
    if (!reader.Open(path))
        return fail(std::string(kCouldNotOpenText) + NameOf(path));
    std::string line, text, field;
    if (!reader.ReadLine(&line) || !CutProjectLine(line, &text))
        return fail(kProjectFormatErrorText);
    bool isColor = false;
    const int version = ProjectHeadingVersion(text, &isColor);
    if (version == 0)
        return fail(kProjectNotProjectText);
    if (color)
        *color = isColor;
    if (!reader.ReadLine(&line) || !CutProjectLine(line, &text))
        return fail(kProjectFormatErrorText);
    CProcessStructure origin;
    if (!SplitField(&origin.prevImageFile, &text) || !SplitField(&origin.curImageFile, &text))
        return fail(kProjectCorruptText);
    bool complete = true;
    for (int i = 0; i < 4 && complete; ++i)
        complete = SplitField(&field, &text);
    complete =
        complete && SplitField(&origin.operation, &text) && SplitField(&origin.parameters, &text);
    records->push_back(origin);
    if (!complete)
        return fail(kProjectNotAllOperationsText);
    while (reader.ReadLine(&line)) {
        if (!CutProjectLine(line, &text))
            return fail(kProjectFormatErrorText);
        CProcessStructure r;
        if (!ParseProjectFields(text, version == 5, &r))
            return fail(kProjectNotAllOperationsText);
        records->push_back(std::move(r));
    }
    return true;
}

bool ReadProjectCommands(const std::string& path, std::vector<CProcessStructure>* list,
                         std::string* colorModel, std::string* errorText) {
    list->clear();
    auto fail = [&](const std::string& text) {
        list->clear();
        if (errorText)
            *errorText = text;
        return false;
    };
    CLineReader reader;
    if (!reader.Open(path))
        return fail(std::string(kCouldNotOpenText) + NameOf(path));
    std::string line, text;
    if (!reader.ReadLine(&line) || !CutProjectLine(line, &text))
        return fail(kProjectFormatErrorText);
    bool color = false;
    const int version = ProjectHeadingVersion(text, &color);
    if (version == 0)
        return fail(kProjectNotProjectText);
    if (colorModel)
        *colorModel = color ? "COLOR" : "MONO";
    // Line 1, the origin, is skipped whole.
    if (reader.ReadLine(&line)) {
        if (!CutProjectLine(line, &text))
            return fail(kProjectFormatErrorText);
        while (reader.ReadLine(&line)) {
            if (!CutProjectLine(line, &text))
                return fail(kProjectFormatErrorText);
            CProcessStructure r;
            if (!ParseProjectFields(text, version == 5, &r))
                return fail(kProjectCommandsFormatText);
            // The files belong to the image the project was made on.
            r.prevImageFile.clear();
            r.curImageFile.clear();
            r.filterFile.clear();
            list->push_back(std::move(r));
        }
    }
    if (list->empty())
        return fail(kProjectNoCommandsText);
    return true;
}

} // namespace astrivelle
