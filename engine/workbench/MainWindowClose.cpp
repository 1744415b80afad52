// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The rules by role that refuse operators and closing, closing one image or all of
/// them with their temporary files, and the order of program exit.
#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

#include "engine/SetupParams.h"
#include "engine/SystemOptions.h"
#include "engine/workbench/MainWindow.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

/// One closing rule: the flag and its text in each of the three lists (null: the CloseQuery
/// text stands).
struct CloseRule {
    bool CProcessWindow::*flag;
    const char* query;
    const char* all;
    const char* menu;
};

constexpr const char* kCloseAllCombine = "To Close All Images With A Combine Image or Mosaic "
                                         "Operation In Progress, Use Flatten First.";
constexpr const char* kCloseAllImageMath =
    "Image Math Operation In Progress. Please Free Source 1 And 2.";

const CloseRule kCloseRules[] = {
    {&CProcessWindow::cropFilesUse, "Close Crop Files to close this image.", nullptr,
     "This image is in use by Crop Files."},
    {&CProcessWindow::alignTsrFilesUse, "Close Align TSR Files to close this image.", nullptr,
     "This image is in use by Align Files."},
    {&CProcessWindow::alignPlanetFilesUse, "Close Align Planet Files to close this image.", nullptr,
     "This image is in use by Auto Align Files."},
    {&CProcessWindow::blinkFilesUse, "Close Blink Files to close this image.", nullptr,
     "This image is in use by Blink Files."},
    {&CProcessWindow::gradeFilesUse, "Close Grade Files to close this image.", nullptr,
     "This image is in use by Grade Files."},
    {&CProcessWindow::convertFilesUse, "Close Convert Files to close this image.", nullptr,
     "This image is in use by Convert Files."},
    {&CProcessWindow::fileOpBusy, "Please complete the file operation to close this image.",
     nullptr, "This image is in use by a file operation."},
    {&CProcessWindow::videoSource,
     "Please close the Video display and process window to close this image.", nullptr,
     "This image is in use by the Video display and process command."},
    {&CProcessWindow::closeLocked, "This image is close locked.", nullptr, nullptr},
    {&CProcessWindow::threadBusy, "Operation in progress.", "Operation In Progress.", nullptr},
    {&CProcessWindow::isImageMathTarget,
     "Close the Image Math command to close an Image Math target image.", kCloseAllImageMath,
     nullptr},
    {&CProcessWindow::imageMathSource,
     "To close an Image Math source image, use Free Source or choose another source.",
     kCloseAllImageMath, nullptr},
    {&CProcessWindow::isCombineImagesCombination,
     "To close a Combine Image combination image, use Flatten first.", kCloseAllCombine,
     "To Close A Combine Image Image, Use Flatten First."},
    {&CProcessWindow::combineImagesSource,
     "To close a Combine Image source image, use Flatten or Delete first.", kCloseAllCombine,
     "To Close A Combine Image Source Image, Use Flatten First."},
    {&CProcessWindow::combineImagesMask,
     "To close a Combine Image source mask image, use Flatten or Delete first.", kCloseAllCombine,
     nullptr},
    {&CProcessWindow::combineFrequencySource,
     "This source image is in use by the Combine Frequency dialoge box. \n Use Clear Selection "
     "or close the dialoge box first.",
     nullptr, nullptr},
    {&CProcessWindow::combineChannelSource,
     "This source image is in use by the Combine Channel dialoge box. \n Use Clear Selection or "
     "close the dialoge box first.",
     "Source Image In Use By The Combine Channel Dialog Box.\n Use Clear Selection Or Close The "
     "Dialog Box First.",
     nullptr},
    {&CProcessWindow::mixLrgbSource,
     "This source image is in use by the Mix LRGB and Hue dialoge box. \n Clear selection or "
     "close the dialoge box first.",
     nullptr, nullptr},
    {&CProcessWindow::isCombineLRGBTarget,
     "This target image is in use by the Combine Channel dialoge box. \n Close the dialoge box "
     "first.",
     "Target Image In Use By The Combine Channel Dialog Box.\n Close The Dialog Box First.",
     nullptr},
    {&CProcessWindow::isCombineFrequencyTarget,
     "This target image is in use by the Combine Frequency dialoge box. \n Close the dialoge box "
     "first.",
     nullptr, nullptr},
    {&CProcessWindow::isMixLRGBTarget,
     "This combination image is in use by the Mix LRGB and Hue dialoge box. \n Release "
     "combination image selection or close the dialoge box first.",
     "Combination Image In Use By The Mix LRGB and Hue Dialog Box.\n Release Combination Image "
     "Selection Or Close The Dialog Box First.",
     nullptr},
    {&CProcessWindow::combineCfaSource,
     "This source image is in use by the Combine Bayer CFA dialoge box. \n Use Clear Selection "
     "or close the dialoge box first.",
     nullptr, nullptr},
    {&CProcessWindow::isCombineBayerTarget,
     "This target image is in use by the Combine Bayer CFA dialoge box. \n Apply with Use New "
     "Image checked, click Free Target,\nor close the dialoge box first.",
     nullptr, nullptr},
    {&CProcessWindow::timeSequenceSource, "This image is in use by the Time Sequence dialoge box.",
     "Please close the Time Sequence dialog box first.", "This image is a Time Sequence source."},
    {&CProcessWindow::alignSource, "This image is in use by the Align dialoge box.",
     "Please close the Align dialog box first.", nullptr},
};

struct SourceRule {
    bool CProcessWindow::*flag;
    const char* text;
};

const SourceRule kSourceRules[] = {
    {&CProcessWindow::combineImagesSource,
     "Image Is A Combine Images Source. Flatten, Copy, Or Duplicate The Image First"},
    {&CProcessWindow::combineImagesMask,
     "Image Is A Combine Images Mask. Flatten, Copy, Or Duplicate The Image First"},
    {&CProcessWindow::combineImagesGrayMask,
     "Image Is A Combine Images Grayscale Mask. Flatten, Copy, Or Duplicate The Image First"},
    {&CProcessWindow::combineFrequencySource,
     "Image Is A Combine Frequency Source. Press Done or Duplicate The Image First"},
    {&CProcessWindow::mixLrgbSource,
     "Image Is A Mix LRGB and Hue Source. Delete Selection or Close the Command First"},
};

std::string Normal(const std::string& path) {
    return fs::path(path).lexically_normal().string();
}

bool Listed(const std::vector<std::string>& list, const std::string& path) {
    const std::string n = Normal(path);
    return std::any_of(list.begin(), list.end(),
                       [&](const std::string& p) { return Normal(p) == n; });
}

void AddOnce(std::vector<std::string>& list, const std::string& path) {
    if (!path.empty() && !Listed(list, path))
        list.push_back(path);
}

void RemoveFile(const std::string& path) {
    std::error_code ec;
    fs::remove(path, ec);
}

} // namespace

bool CheckCloseRules(const CProcessWindow& window, CloseKind kind, std::string* text) {
    for (const CloseRule& rule : kCloseRules) {
        if (!(window.*rule.flag))
            continue;
        const char* chosen = rule.query;
        if (kind == CloseKind::All && rule.all)
            chosen = rule.all;
        else if (kind == CloseKind::Menu && rule.menu)
            chosen = rule.menu;
        if (text)
            *text = chosen;
        return false;
    }
    return true;
}

bool CProcessWindow::CloseQuery() {
    std::string text;
    if (CheckCloseRules(*this, CloseKind::Query, &text))
        return true;
    notify().Message(text);
    return false;
}

bool CheckSourceRefusals(const CProcessWindow& window, std::string* text) {
    for (const SourceRule& rule : kSourceRules)
        if (window.*rule.flag) {
            if (text)
                *text = rule.text;
            return false;
        }
    return true;
}

bool CheckTargetGuards(const CProcessWindow& window, std::string* text) {
    return CheckOperatorGuards(window, text) && CheckSourceRefusals(window, text);
}

const std::vector<std::string>& ImageSetJobNames() {
    static const std::vector<std::string> names = {
        "Digital Camera Raw File Conversion",
        "Bayer CFA Interpolation",
        "Combine Files/HDR Add",
        "Resize Files",
        "Normalize Files",
        "Calibrate Files",
        "Automatic DSLR, OSC CCD, CCD Image Set Processing",
        "Translate, Scale, Rotation Alignment",
        "Crop Files",
        "Auto Align Files",
        "Convert MOV AVI to SER",
        "Blink Files",
        "Compute Read Noise & Gain",
        "Grade Files",
        "Convert Files",
    };
    return names;
}

const std::vector<MainExitOperator>& ExitOperatorTable() {
    static const std::vector<MainExitOperator> table = {
        {"Frequency Filter In Progress.", {"Frequency Filter"}},
        {"High Pass Filter In Progress.", {"High Pass"}},
        {"Band Suppression In Progress.", {"Band Suppression"}},
        {"Smoothing Operation In Progress.", {"Smoothing"}},
        {"Background/Highlight Smoothing Operation In Progress.",
         {"Background/Highlight Smoothing"}},
        {"Star Size Reduction/Smoothing Operation In Progress.", {"Star Size Reduction/Smoothing"}},
        {"Line Suppress Operation In Progress.", {"Suppress Lines"}},
        {"Restoration Operation In Progress.",
         {"Non-Adaptive Iterative Restoration", "Adaptive Richardson-Lucy"}},
        {"Multi Scale Decomposition In Progress.", {"Multiresolution Smooth-Sharpen"}},
        {"ArcSinH Operation In Progress.", {"ArcSinH"}},
        {"Digital Development Operation In Progress.", {"Digital Development"}},
    };
    return table;
}

// ---- temporary files ---------------------------------------------------------------------------

void CMainWindow::AddTempFile(CProcessWindow& window, const std::string& path) {
    AddOnce(window.tempFiles, path);
    AddOnce(tempFiles, path);
}

void CMainWindow::KeepFiles(CProcessWindow& window, const std::vector<std::string>& paths) {
    for (const std::string& p : paths) {
        AddOnce(window.keptFiles, p);
        AddOnce(keptFiles, p);
    }
}

void CMainWindow::ForgetTempFile(const std::string& path) {
    const std::string n = Normal(path);
    auto drop = [&](std::vector<std::string>& list) {
        list.erase(std::remove_if(list.begin(), list.end(),
                                  [&](const std::string& p) { return Normal(p) == n; }),
                   list.end());
    };
    drop(tempFiles);
    images_.ForEach([&](CProcessWindow& w) { drop(w.tempFiles); });
}

bool CMainWindow::IsKept(const std::string& path, const CProcessWindow* closing) const {
    if (Listed(keptFiles, path))
        return true;
    bool kept = false;
    images_.ForEach([&](CProcessWindow& w) {
        // A project's files, the files of a window a project keeps, and the file another open
        // image shows are never deleted.
        if (Listed(w.keptFiles, path) || (w.keepFiles && Listed(w.tempFiles, path)) ||
            (&w != closing && !w.filePath.empty() && Normal(w.filePath) == Normal(path)))
            kept = true;
    });
    return kept;
}

void CMainWindow::ReleaseFiles(CProcessWindow& window) {
    // The window's kept lists join the program's so that exit spares them too.
    for (const std::string& p : window.keptFiles)
        AddOnce(keptFiles, p);
    if (window.keepFiles) {
        for (const std::string& p : window.tempFiles)
            AddOnce(keptFiles, p);
        return;
    }
    const std::vector<std::string> files = window.tempFiles;
    for (const std::string& p : files)
        if (!IsKept(p, &window)) {
            RemoveFile(p);
            ForgetTempFile(p);
        }
}

// ---- close -------------------------------------------------------------------------------------

bool CMainWindow::CloseImage(CProcessWindow* window, CloseKind kind) {
    if (!images_.Contains(window))
        return false;
    std::string text;
    if (kind == CloseKind::Query) {
        if (!window->CloseQuery())
            return false;
    } else if (!CheckCloseRules(*window, kind, &text)) {
        notify().Message(text);
        return false;
    }
    ReleaseFiles(*window);
    images_.Remove(window); // destroyed here
    return true;
}

bool CMainWindow::CloseAll() {
    std::string text;
    for (CProcessWindow* w : images_.List())
        if (!CheckCloseRules(*w, CloseKind::All, &text)) {
            notify().Message(text);
            return false;
        }
    for (CProcessWindow* w : images_.List()) {
        ReleaseFiles(*w);
        images_.Remove(w);
    }
    return true;
}

// ---- exit --------------------------------------------------------------------------------------

bool CMainWindow::BeginImageSetJob(const std::string& name) {
    const auto& names = ImageSetJobNames();
    if (std::find(names.begin(), names.end(), name) == names.end())
        return false;
    runningJobs_.push_back(name);
    return true;
}

void CMainWindow::EndImageSetJob(const std::string& name) {
    auto it = std::find(runningJobs_.begin(), runningJobs_.end(), name);
    if (it != runningJobs_.end())
        runningJobs_.erase(it);
}

bool CMainWindow::Exit() {
    for (const std::string& job : ImageSetJobNames())
        if (std::find(runningJobs_.begin(), runningJobs_.end(), job) != runningJobs_.end()) {
            notify().Message("Please Cancel " + job + " Before Closing.");
            return false;
        }
    for (const MainExitOperator& op : ExitOperatorTable()) {
        bool inFlight = false;
        images_.ForEach([&](CProcessWindow& w) {
            if ((w.threadBusy || w.opRunning) &&
                std::find(op.names.begin(), op.names.end(), w.currentOp) != op.names.end())
                inFlight = true;
        });
        if (inFlight) {
            notify().Message(op.text);
            return false;
        }
    }

    CSetupParams& setup = Options().setup;
    setup.strings[SetupLastFolder] = lastFolder;
    if (!projectFolder.empty())
        setup.strings[SetupProjectFolder] = projectFolder;
    std::string error;
    if (!SaveSetupParams(setupPath.empty() ? DefaultSetupPath() : setupPath, setup, &error))
        notify().Message(error);

    std::vector<std::string> all = tempFiles;
    images_.ForEach([&](CProcessWindow& w) {
        for (const std::string& p : w.tempFiles)
            AddOnce(all, p);
    });
    std::vector<std::string> left;
    for (const std::string& p : all) {
        bool kept = Listed(keptFiles, p);
        images_.ForEach([&](CProcessWindow& w) {
            if (Listed(w.keptFiles, p) || (w.keepFiles && Listed(w.tempFiles, p)))
                kept = true;
        });
        if (kept)
            left.push_back(p);
        else
            RemoveFile(p);
    }
    tempFiles = left;
    images_.Clear();
    runningJobs_.clear();
    return true;
}

} // namespace astrivelle
