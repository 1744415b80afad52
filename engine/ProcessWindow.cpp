// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The operator gate, the operator skeleton and the guards of an open image.
#include "engine/ProcessWindow.h"

#include "engine/Blend.h"
#include "engine/ImageHeader.h"
#include "engine/OperatorNames.h"

namespace astrivelle {

namespace {
std::mutex& ImageStateLock() {
    static std::mutex lock;
    return lock;
}
} // namespace

CProcessWindow::CProcessWindow(INotify* notify) : notify_(notify ? notify : &SilentNotify()) {}

const char* CaptionSuffix(std::uint32_t colorType) {
    switch (colorType) {
    case ColorRGB:
        return " - RGB";
    case ColorRed:
        return " - Red";
    case ColorGreen:
        return " - Green";
    case ColorBlue:
        return " - Blue";
    case ColorCyan:
        return " - Cyan";
    case ColorMagenta:
        return " - Magenta";
    case ColorYellow:
        return " - Yellow";
    default:
        return " - Gray";
    }
}

std::string CProcessWindow::Caption() const {
    return title + CaptionSuffix(image.colorType);
}

void CProcessWindow::BeginHistory(const std::string& firstOperation) {
    history.clear();
    CProcessStructure first;
    first.operation = firstOperation;
    first.curImageFile = filePath;
    history.push_back(first);
    currentStep = 0;
    lastOp = firstOperation;
    pending = false;
    stepDirty = false;
}

std::vector<int> CProcessWindow::SelectedSlots() const {
    if (image.colorType != ColorRGB)
        return image.Slots();
    std::vector<int> slots;
    for (int s = 0; s < 3; ++s)
        if (channelSelect[s])
            slots.push_back(s);
    return slots;
}

bool CProcessWindow::BeginOperator(const std::string& name) {
    currentOp = name;
    if (WorksInPlace(name) && name == lastOp && pending)
        image.PreviousToCurrent(); // a repeat starts again from the step's input
    if (name != lastOp) {
        pending = false; // the last step is final now
        notify().SetCaption(Caption());
    }
    stepDirty = true;
    if (!pending) {
        notify().SetWaitCursor(true);
        if (!lastOp.empty() && !IsNoReplayName(lastOp) && stepStore)
            stepStore->SaveStepImage(*this);
        image.CurrentToPrevious();
        pending = true;
        newStep = true;
        notify().SetCaption(Caption());
    } else {
        newStep = false; // this application replaces the pending step
    }
    if (replacingStep)
        newStep = false;
    lastOp = name;
    return true;
}

namespace {

/// What an application changes in the history, so that a failed or cancelled one can take it
/// back: the list's length, the shown step, its text and the last operator.
struct HistoryMark {
    std::size_t size;
    int step;
    std::string lastOp;
    std::string parameters; ///< of the step a repeat would edit
    bool hadStep;

    explicit HistoryMark(const CProcessWindow& w)
        : size(w.history.size()), step(w.currentStep), lastOp(w.lastOp),
          hadStep(w.currentStep >= 0 && w.currentStep < static_cast<int>(w.history.size())) {
        if (hadStep)
            parameters = w.history[w.currentStep].parameters;
    }

    /// Removes the entry the run added (or puts back the text of the step it repeated); the
    /// next application then starts a step of its own.
    void TakeBack(CProcessWindow& w) const {
        if (w.history.size() > size) {
            w.history.erase(w.history.begin() + w.currentStep);
            w.currentStep = step;
            w.pending = false;
            w.lastOp = lastOp;
        } else if (hadStep && step < static_cast<int>(w.history.size())) {
            w.history[step].parameters = parameters;
        }
        w.notify().HistoryChanged();
    }
};

} // namespace

bool CProcessWindow::RunOperator(const std::string& name, const std::string& parameters,
                                 const std::function<bool(bool)>& work) {
    const HistoryMark mark(*this);
    if (!BeginOperator(name))
        return false;
    opRunning = true;
    const std::string keptCaption = Caption();
    notify().SetCaption("*** Operation In Progress ***");
    notify().SetWaitCursor(true);

    CProcessStructure local; // default blend values: mode 0, opacity 1, no mask
    bool blendActive = false;
    if (!isBlinkImage) {
        if (newStep) {
            CProcessStructure record = local;
            record.prevImageFile = filePath;
            record.operation = name;
            record.parameters = parameters;
            int at = currentStep + 1;
            if (at > static_cast<int>(history.size()))
                at = static_cast<int>(history.size());
            history.insert(history.begin() + at, record);
            currentStep = at;
            notify().HistoryChanged();
        } else if (replacingStep && currentStep + 1 < static_cast<int>(history.size())) {
            ++currentStep;
            CProcessStructure& entry = history[currentStep];
            entry.prevImageFile = filePath;
            entry.filterFile.clear();
            entry.operation = name;
            entry.parameters = parameters;
            local = entry;
            blendActive = BlendActive(entry);
        } else if (currentStep >= 0 && currentStep < static_cast<int>(history.size())) {
            CProcessStructure& entry = history[currentStep];
            if (historyView)
                historyView->BlendValues(&entry);
            entry.parameters = parameters;
            local = entry;
            blendActive = BlendActive(entry);
        }
    }
    replacingStep = false;

    bool ok = work(pending);
    if (!ok && !isBlinkImage)
        mark.TakeBack(*this); // a failed or cancelled application leaves no step behind

    if (ok && blendActive) {
        // The pure result goes to the work rows, then the blend overwrites the current
        // planes; on failure the unblended result stays.
        const BlendStep step = local.applyMask ? BlendStep::ApplyMask : BlendStep::BlendOnly;
        if (blender) {
            if (!blender->Blend(*this, local, BlendStepWord(step)))
                notify().Message("No memory for blend or mask mode.");
        } else {
            // Without a blender no file is read here: flat and surface masks only.
            BlendFailure why = BlendFailure::None;
            if (!BlendRecord(image, local, step, nullptr, BlendWork::SaveCurrent, &why))
                notify().Message(BlendFailureText(why));
        }
    }
    opRunning = false;
    AfterOperator(); // new statistics, then one refresh of the display and the readouts
    notify().SetWaitCursor(false);
    notify().SetCaption(keptCaption);
    return ok;
}

void CProcessWindow::AfterOperator() {
    image.ComputeStatistics();
    UpdateSbigHeaderFromStatistics(image); // an SBIG header's Range and Background follow
    notify().ImageChanged();
}

bool CheckOperatorGuards(const CProcessWindow& w, std::string* text) {
    struct Guard {
        bool holds;
        const char* text;
    };
    const Guard guards[] = {
        {w.isCombineImagesCombination,
         "Image Is A Combine Images Combination. Flatten, Copy, Or Duplicate The Image First"},
        {w.threadBusy, "Operation In Progress"},
        {w.isCombineLRGBTarget,
         "Image Is A Combine LRGB, LCMY, HSL Target. Press Done or Duplicate The Image First"},
        {w.isCombineFrequencyTarget,
         "Image Is A Combine Frequency Target. Press Done or Duplicate The Image First"},
        {w.isMixLRGBTarget, "Image Is A Mix LRGB and Hue Combination. Press Release Combination "
                            "or Duplicate The Image First"},
        {w.isCombineBayerTarget,
         "Image Is A Combine Bayer CFA Target. Press Done or Duplicate The Image First"},
        {w.isImageMathTarget, "Image Is An Image Math Target. Duplicate The Image First"},
        {w.fileOpBusy, "Image File Operation In Progress"},
    };
    for (const Guard& g : guards)
        if (g.holds) {
            if (text)
                *text = g.text;
            return false;
        }
    return true;
}

void SetBusy(CProcessWindow& window, bool busy) {
    {
        std::lock_guard<std::mutex> hold(ImageStateLock());
        window.threadBusy = busy;
    }
    window.notify().ImageChanged();
}

} // namespace astrivelle
