// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The stretch operator functions of an open image: the channels from the colour mode and
/// the selection, the record, then the pixel work. A run that cannot have its memory or is
/// cancelled takes its history entry back.
#include "engine/ProcessWindow.h"
#include "operators/FilterSupport.h"
#include "operators/Stretch.h"

namespace astrivelle {

namespace {

constexpr const char* kNoMemoryText = "Could Not Allocate Memory For Operation.";

/// The channels of the image: a single-plane colour type names its own slot, an RGB image
/// takes the main window's selection.
StretchChannels ChannelsOf(const CProcessWindow& w) {
    if (w.image.colorType == ColorRGB)
        return {w.channelSelect[0], w.channelSelect[1], w.channelSelect[2]};
    const int slot = SlotOfColorType(w.image.colorType);
    return {slot == 0, slot == 1, slot == 2};
}

/// What an application changed in the history, so that a failed run can take it back.
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

    /// Removes the entry the run added (or restores the text of the step it repeated), and
    /// makes the next application start a step of its own.
    void Undo(CProcessWindow& w, bool restorePlanes) const {
        if (restorePlanes)
            w.image.PreviousToCurrent();
        if (w.history.size() > size) {
            w.history.erase(w.history.begin() + w.currentStep);
            w.currentStep = step;
            w.pending = false;
            w.lastOp = lastOp;
        } else if (hadStep && step < static_cast<int>(w.history.size())) {
            w.history[step].parameters = parameters;
        }
        w.notify().HistoryChanged();
        w.AfterOperator();
    }
};

} // namespace

bool CProcessWindow::DigitalDevelopment(const DigitalDevelopmentParams& params, IProgress* progress,
                                        const CCustomFilter* customFilter) {
    const StretchChannels channels = ChannelsOf(*this);
    const bool colour = !channels.OnePlane(image);
    const std::string text = FormatDigitalDevelopment(params, colour);
    // The pixels follow the values as recorded, so that replay gives the same result.
    DigitalDevelopmentParams p;
    ParseDigitalDevelopment(text, &p, nullptr, nullptr);
    if (p.filter == "Custom" && p.strength != 0.0 && customFilter &&
        !CustomSizeAccepted(customFilter->size)) {
        notify().Message(kCustomFilterSizeText);
        return false;
    }
    const HistoryMark mark(*this);
    const bool ok = RunOperator("Digital Development", text, [&](bool pending) {
        return RunDigitalDevelopment(image, p, channels, pending, customFilter, progress);
    });
    if (!ok) {
        const bool cancelled = progress && progress->Cancelled();
        mark.Undo(*this, cancelled);
        if (!cancelled)
            notify().Message(kNoMemoryText);
    }
    return ok;
}

bool CProcessWindow::ArcSinH(const ArcSinHParams& params, IProgress* progress) {
    const StretchChannels channels = ChannelsOf(*this);
    const std::string text = FormatArcSinH(params);
    ArcSinHParams p;
    ParseArcSinH(text, &p, nullptr);
    const HistoryMark mark(*this);
    const bool ok = RunOperator("ArcSinH", text, [&](bool pending) {
        return RunArcSinH(image, p, channels, pending, progress);
    });
    if (!ok)
        mark.Undo(*this, true);
    return ok;
}

bool CProcessWindow::GeneralStretch(const GeneralStretchParams& params) {
    const StretchChannels channels = ChannelsOf(*this);
    const std::string text = FormatGeneralStretch(params);
    GeneralStretchParams p;
    ParseGeneralStretch(text, &p, nullptr);
    return RunOperator("General Stretch Functions", text, [&](bool pending) {
        return RunGeneralStretch(image, p, channels, pending);
    });
}

} // namespace astrivelle
