// SPDX-License-Identifier: GPL-3.0-or-later
/// \file One open image with its history and the engine state by which every operator is
/// applied and recorded. No window here: what a window would show goes through INotify.
#pragma once
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "engine/Image.h"
#include "engine/Notify.h"
#include "engine/ProcessStructure.h"

namespace astrivelle {

class CProcessWindow;

/// Where a step's state goes before the next different operator changes it. The history
/// subsystem provides the real one (step files next to the image); without one no step file
/// is written and undo past the pending step is not possible.
class IStepStore {
public:
    virtual ~IStepStore() = default;
    /// Writes the state the image shows now; false on failure.
    virtual bool SaveStepImage(CProcessWindow& window) = 0;
};

/// Blends the pure operator result with the step's input (blend mode, opacity, mask). Provided
/// by the history subsystem; without one an active blend is reported as not available.
class IBlender {
public:
    virtual ~IBlender() = default;
    /// `mode` is "ApplyMask" or "BlendOnly".
    virtual bool Blend(CProcessWindow& window, const CProcessStructure& record,
                       const std::string& mode) = 0;
};

/// Where the blend values of a repeated step come from when the history tool is open.
class IHistoryView {
public:
    virtual ~IHistoryView() = default;
    virtual void BlendValues(CProcessStructure* record) = 0;
};

class CProcessWindow {
public:
    explicit CProcessWindow(INotify* notify = nullptr);

    Image image;
    std::vector<CProcessStructure> history;
    std::string filePath; ///< the file the image was read from or saved to
    std::string title;    ///< name shown in the caption

    // Engine state.
    int currentStep = 0;
    std::string currentOp;
    std::string lastOp;
    bool pending = false;
    bool stepDirty = false;
    bool newStep = false;
    bool replacingStep = false;
    bool opRunning = false;
    bool threadBusy = false;
    bool fileOpBusy = false;
    bool isBlinkImage = false;

    // Roles that a tool holding this image gives it; the guards refuse operators on them.
    bool isCombineImagesCombination = false;
    bool isCombineLRGBTarget = false;
    bool isCombineFrequencyTarget = false;
    bool isMixLRGBTarget = false;
    bool isCombineBayerTarget = false;
    bool isImageMathTarget = false;

    /// Channels that per-channel operators apply to on an RGB image (main window selection).
    bool channelSelect[3] = {true, true, true};

    // Seams filled by the history subsystem and the front end.
    IStepStore* stepStore = nullptr;
    IBlender* blender = nullptr;
    IHistoryView* historyView = nullptr;

    INotify& notify() { return *notify_; }
    void SetNotify(INotify* n) { notify_ = n ? n : &SilentNotify(); }

    /// Starts the history with its first step ("Read", "New Image"...).
    void BeginHistory(const std::string& firstOperation);

    /// The gate of every application: decides by `pending` whether this adds a step or
    /// repeats the last one, and saves the previous step's state when a new operator starts.
    bool BeginOperator(const std::string& name);

    /// The skeleton every operator function follows: gate, caption, record, pixel work,
    /// blend, display refresh, statistics. `work(pending)` runs the pixel function on each
    /// channel that applies. Returns false when the gate refused or the work failed.
    bool RunOperator(const std::string& name, const std::string& parameters,
                     const std::function<bool(bool pending)>& work);

    /// Refreshes statistics and readouts after an operator.
    void AfterOperator();

    /// The caption: title and colour suffix.
    std::string Caption() const;

    // ---- Pixel Math operator functions (operators/masks/) ----------------------------------
    bool PixelMathAdd(bool subtract, double constant, int applyMin, int applyMax, int feather);
    bool PixelMathMultiply(double constant, int applyMin, int applyMax, int feather);
    bool PixelMathDivide(double constant, int applyMin, int applyMax, int feather);

private:
    INotify* notify_;
};

/// " - RGB", " - Red", ... " - Gray" by colour type.
const char* CaptionSuffix(std::uint32_t colorType);

/// The guards tested before any tool starts on an image, in their order. Returns false with
/// the text of the first that holds.
bool CheckOperatorGuards(const CProcessWindow& window, std::string* text);

/// Sets threadBusy under the process-wide image-state lock and asks for a repaint.
void SetBusy(CProcessWindow& window, bool busy);

} // namespace astrivelle
