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
    // A failure takes its step back (RunOperator); a cancel also puts the input back, while
    // a failed allocation has changed nothing.
    const bool ok = RunOperator("Digital Development", text, [&](bool pending) {
        if (RunDigitalDevelopment(image, p, channels, pending, customFilter, progress))
            return true;
        if (progress && progress->Cancelled())
            image.PreviousToCurrent();
        return false;
    });
    if (!ok && !(progress && progress->Cancelled()))
        notify().Message(kNoMemoryText);
    return ok;
}

bool CProcessWindow::ArcSinH(const ArcSinHParams& params, IProgress* progress) {
    const StretchChannels channels = ChannelsOf(*this);
    const std::string text = FormatArcSinH(params);
    ArcSinHParams p;
    ParseArcSinH(text, &p, nullptr);
    return RunOperator("ArcSinH", text, [&](bool pending) {
        if (RunArcSinH(image, p, channels, pending, progress))
            return true;
        image.PreviousToCurrent();
        return false;
    });
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
