// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Editing the command list (copy, cut, paste, delete) and blending a step again.
#include <algorithm>
#include <filesystem>
#include <set>

#include "engine/Blend.h"
#include "engine/Image.h"
#include "engine/workbench/CommandClipboard.h"
#include "engine/workbench/History.h"
#include "engine/workbench/HistoryInternal.h"
#include "fileio/FileDispatch.h"

namespace astrivelle {

using namespace history_detail;

bool IsColorOnlyOperation(const std::string& operation) {
    static const char* const kNames[] = {
        "Hue-Saturation-Luminance",
        "HSL Micro Curves",
        "Additive Color Balance",
        "Selective HSL Color Balance",
        "Mix Channels",
        "Color Balance",
        "Reduce RGB",
    };
    for (const char* name : kNames)
        if (operation == name)
            return true;
    return false;
}

bool IsNoBlendOperation(const std::string& operation) {
    static const char* const kNames[] = {
        "Scale",
        "Bin",
        "Image Size",
        "Add Border",
        "Edit Pixel Intensity",
        "Edit Pixel Color",
        "Mirror Vertical",
        "Mirror Horizontal",
        "Rotate CW",
        "Rotate CCW",
        "Translate",
        "Rotate",
        "Center Object",
        "Align Planet",
        "Threshold",
    };
    for (const char* name : kNames)
        if (operation == name)
            return true;
    return false;
}

namespace {

std::vector<CProcessStructure>& Clipboard(CProcessWindow& w) {
    return w.copiedCommands ? *w.copiedCommands : SharedCommandClipboard().Storage();
}

} // namespace

bool CProcessWindow::CopyCommands(const std::vector<int>& selection) {
    if (RefuseBusy(*this))
        return false;
    if (selection.empty()) {
        notify().Message(kHistoryNoSelectionText);
        return false;
    }
    SaveStepImage();
    std::vector<CProcessStructure>& clipboard = Clipboard(*this);
    clipboard.clear();
    for (int index : std::set<int>(selection.begin(), selection.end())) {
        if (index == 0) {
            notify().Message(kHistoryCantCopyInitialText);
            continue;
        }
        if (index > 0 && index < static_cast<int>(history.size()))
            clipboard.push_back(history[index]);
    }
    return !clipboard.empty();
}

bool CProcessWindow::DeleteCommands(const std::vector<int>& selection) {
    if (RefuseBusy(*this))
        return false;
    if (selection.empty()) {
        notify().Message(kHistoryNoSelectionText);
        return false;
    }
    if (notify().Ask(kHistoryConfirmDeleteText) != Answer::Yes)
        return false;
    std::set<int> doomed;
    for (int index : selection) {
        if (index == 0)
            notify().Message(kHistoryCantDeleteInitialText);
        else if (index > 0 && index < static_cast<int>(history.size()))
            doomed.insert(index);
    }
    if (doomed.empty())
        return false;
    const bool shownDeleted = doomed.count(currentStep) != 0;
    int below = 0;
    for (int index : doomed)
        below += index < currentStep ? 1 : 0;
    std::vector<CProcessStructure> kept;
    kept.reserve(history.size() - doomed.size());
    for (int i = 0; i < static_cast<int>(history.size()); ++i)
        if (!doomed.count(i))
            kept.push_back(std::move(history[i]));
    history = std::move(kept);
    image.FreeWorkRows();
    bool ok = true;
    if (shownDeleted) {
        // The state shown belonged to a step that is gone: show the step that now stands
        // there, or the new last one.
        currentStep = std::min(currentStep - below, static_cast<int>(history.size()) - 1);
        const CProcessStructure record = history[currentStep];
        lastOp = record.operation;
        pending = false;
        stepDirty = false; // the dropped state needs no file
        curPlanesFile.clear();
        prevPlanesFile.clear();
        prevPlanesStatsValid = false;
        ok = ReprocessCommand(record.operation, record.prevImageFile, record.curImageFile,
                              record.parameters, false, ShowToolOnHistoryMoves(), record.filterFile,
                              record.maskFile);
    } else {
        currentStep -= below;
    }
    notify().HistoryChanged();
    return ok;
}

bool CProcessWindow::CutCommands(const std::vector<int>& selection) {
    if (selection.empty()) {
        notify().Message(kHistoryNoSelectionText);
        return false;
    }
    const bool copied = CopyCommands(selection);
    const bool deleted = DeleteCommands(selection);
    return copied && deleted;
}

bool CProcessWindow::PasteCommands(int afterIndex) {
    if (RefuseBusy(*this))
        return false;
    if (afterIndex < 0 || history.empty()) {
        notify().Message(kHistoryPasteNoRowText);
        return false;
    }
    const int last = static_cast<int>(history.size()) - 1;
    if (afterIndex > last)
        afterIndex = last;
    // A monochrome image can't take the colour-only operators: they leave all three groups,
    // its own history included, without a word.
    const bool mono = image.colorType != ColorRGB;
    auto fits = [&](const CProcessStructure& r) {
        return !(mono && IsColorOnlyOperation(r.operation));
    };

    std::vector<CProcessStructure> list;
    list.reserve(history.size() + Clipboard(*this).size());
    int shown = 0;
    auto takeOwn = [&](int i) {
        if (fits(history[i]))
            list.push_back(history[i]);
        if (i == currentStep) // a dropped shown step: the row before it stands for it
            shown = std::max(0, static_cast<int>(list.size()) - 1);
    };
    for (int i = 0; i <= afterIndex; ++i)
        takeOwn(i);
    int pasted = 0;
    for (const CProcessStructure& copied : Clipboard(*this)) {
        if (!fits(copied))
            continue;
        CProcessStructure r = copied;
        r.prevImageFile = kReprocessCommandMark;
        r.curImageFile = kNotRunMark;
        list.push_back(std::move(r));
        ++pasted;
    }
    for (int i = afterIndex + 1; i <= last; ++i)
        takeOwn(i);
    history = std::move(list);
    currentStep = shown;
    notify().HistoryChanged();
    return pasted > 0;
}

namespace {

/// Reads a blend's mask file into `mask` (its one plane): FITS or TIFF, monochrome, of the
/// image's size. False with the text told otherwise.
bool LoadBlendMask(CProcessWindow& w, const std::string& path, Image& mask, const float** plane) {
    const std::string ext = std::filesystem::path(path).extension().string();
    if (!IsFitsExtension(ext) && UpperExtension(ext) != ".TIF" && UpperExtension(ext) != ".TIFF") {
        w.notify().Message(kBlendMaskReadText);
        return false;
    }
    if (!mask.ReadFile(path, ext)) {
        w.notify().Message(kBlendMaskReadText);
        return false;
    }
    if (mask.width != w.image.width || mask.height != w.image.height) {
        w.notify().Message(kBlendMaskSizeText);
        return false;
    }
    if (mask.colorType == ColorRGB) {
        w.notify().Message(kBlendMaskMonoText);
        return false;
    }
    *plane = mask.curPlane[SlotOfColorType(mask.colorType)];
    return true;
}

} // namespace

bool CProcessWindow::ReapplyBlend(bool maskChanged, const CProcessStructure* values) {
    if (RefuseBusy(*this) || !BlendControlsAvailable(*this))
        return false;
    CProcessStructure& record = history[currentStep];
    CProcessStructure wanted = record;
    if (values) {
        wanted.blendMode = values->blendMode;
        wanted.opacity = values->opacity;
        wanted.applyMask = values->applyMask;
        wanted.luminanceMask = values->luminanceMask;
        wanted.maskLevel = values->maskLevel;
        wanted.maskSurface = values->maskSurface;
        wanted.maskFile = values->maskFile;
    } else if (historyView) {
        historyView->BlendValues(&wanted);
    }
    const BlendStep step = wanted.applyMask ? BlendStep::ApplyMask : BlendStep::BlendOnly;
    Image mask;
    const float* maskPlane = nullptr;
    if (BlendActive(wanted) && BlendNeedsMaskFile(wanted, step) &&
        !LoadBlendMask(*this, wanted.maskFile, mask, &maskPlane))
        return false;
    (void)maskChanged; // the mask file is read for every blend, changed or not

    // 1. The values belong to the shown step from now on.
    record.blendMode = wanted.blendMode;
    record.opacity = wanted.opacity;
    record.applyMask = wanted.applyMask;
    record.luminanceMask = wanted.luminanceMask;
    record.maskLevel = wanted.maskLevel;
    record.maskSurface = wanted.maskSurface;
    record.maskFile = wanted.maskFile;
    stepDirty = true;
    bool ok = true;
    if (BlendActive(record)) {
        // 2-5. The pure result back from the work rows (or kept there first), then one
        // blend pass over the channels of the record.
        BlendFailure why = BlendFailure::None;
        if (!BlendRecord(image, record, step, maskPlane, BlendWork::RestoreSaved, &why)) {
            notify().Message(why == BlendFailure::NoMemory ? kBlendNoMemoryText
                                                           : BlendFailureText(why));
            ok = false;
        }
    } else {
        // Normal at full opacity without a mask: the pure result itself, if it was kept.
        const std::vector<int> slots = image.Slots();
        if (!slots.empty() && image.workRows[slots.front()])
            image.RestoreWork();
    }
    notify().ImageChanged();
    AfterOperator();
    return ok;
}

} // namespace astrivelle
