// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The System Options Save rules, their lists and the options in force.
#include "engine/SystemOptions.h"

#include <algorithm>
#include <limits>

#include "engine/Notify.h"

namespace astrivelle {

namespace {

template <class List, class Pred> int IndexWhere(const List& list, Pred pred, int otherwise) {
    for (std::size_t i = 0; i < list.size(); ++i)
        if (pred(list[i]))
            return static_cast<int>(i);
    return otherwise;
}

bool InRange(int index, std::size_t size) {
    return index >= 0 && static_cast<std::size_t>(index) < size;
}

constexpr int kUncompTifButton = 2;

} // namespace

const std::vector<std::string>& DisplayAdjustmentChoices() {
    static const std::vector<std::string> list{"No Adjustment", "Auto Stretch"};
    return list;
}

const std::vector<std::string>& BackgroundChoices() {
    static const std::vector<std::string> list{"R", "G", "B", "W", "LG", "DG", "BK"};
    return list;
}

const std::vector<OptionChoice>& SaveTypeChoices() {
    static const std::vector<OptionChoice> list{
        {"COMPFIT", "Lossless Compressed 16-bit FIT"},
        {"UNCOMPFIT", "16-bit FIT"},
        {"UNCOMPTIF", "Uncompressed 16-bit TIF"},
        {"UNCOMPFIT32", "32-bit Float FIT"},
        {"COMPFIT32", "Lossless Compressed 32-bit Float FIT"},
    };
    return list;
}

const std::vector<OptionChoice>& PriorityChoices() {
    static const std::vector<OptionChoice> list{{"NORMAL", "Normal"}, {"IDLE", "Reduced"}};
    return list;
}

const std::vector<std::string>& ScaleChoices() {
    static const std::vector<std::string> list = [] {
        std::vector<std::string> v;
        for (int p = 10; p <= 200; p += 10)
            v.push_back(std::to_string(p) + "%");
        return v;
    }();
    return list;
}

const std::vector<std::string>& JpegQualityChoices() {
    static const std::vector<std::string> list = [] {
        std::vector<std::string> v;
        for (int q = 0; q <= 100; q += 5)
            v.push_back(std::to_string(q) + "%");
        return v;
    }();
    return list;
}

SystemOptionsControls ControlsFromOptions(const CSetupParams& params) {
    SystemOptionsControls c;
    c.displayButton = params.displayAdjustment == DisplayAdjustmentChoices()[1] ? 1 : 0;
    c.autoFit = params.initialScaleFlag == 0;
    const int lastScale = static_cast<int>(ScaleChoices().size()) - 1;
    const double s = params.scale * 10.0 - 1.0;
    c.scaleIndex = s != s ? 4 : static_cast<int>(std::clamp(s + 0.5, 0.0, double(lastScale)));
    c.backgroundButton = IndexWhere(
        BackgroundChoices(), [&](const std::string& b) { return b == params.Background(); }, 2);
    c.saveTypeButton = IndexWhere(
        SaveTypeChoices(), [&](const OptionChoice& o) { return params.saveType == o.keyword; },
        kUncompTifButton);
    c.priorityButton = GetThreadPriorityWord(params) == "IDLE" ? 1 : 0;
    c.useAccelerator = params.useAccelerator;
    const int lastJpeg = static_cast<int>(JpegQualityChoices().size()) - 1;
    c.jpegIndex = std::clamp(params.jpegQuality / 5, 0, lastJpeg);
    c.openImageLimit = params.maxOpenImages;
    c.slidersEnabled = params.slidersEnabled;
    c.stickyCopyPortion = params.stickyCopyPortion;
    return c;
}

bool ApplySystemOptions(const SystemOptionsControls& controls, CSetupParams& params,
                        std::string* errorText) {
    if (controls.openImageLimit <= 0) {
        if (errorText)
            *errorText = kOpenImageLimitText;
        return false;
    }
    params.maxOpenImages = static_cast<std::int32_t>(
        std::min<std::int64_t>(controls.openImageLimit, std::numeric_limits<std::int32_t>::max()));

    params.displayAdjustment = DisplayAdjustmentChoices()[controls.displayButton == 1 ? 1 : 0];

    if (controls.autoFit) {
        params.initialScaleFlag = 0;
    } else {
        const int last = static_cast<int>(ScaleChoices().size()) - 1;
        params.initialScaleFlag = 1;
        params.scale = (std::clamp(controls.scaleIndex, 0, last) + 1) / 10.0;
    }

    const int lastJpeg = static_cast<int>(JpegQualityChoices().size()) - 1;
    params.jpegQuality = std::clamp(controls.jpegIndex, 0, lastJpeg) * 5;

    const auto& types = SaveTypeChoices();
    params.saveType = InRange(controls.saveTypeButton, types.size())
                          ? types[controls.saveTypeButton].keyword
                          : types[kUncompTifButton].keyword;
    params.strings[SetupPriority] = controls.priorityButton == 1 ? "IDLE" : "NORMAL";

    params.useAccelerator = controls.useAccelerator;
    params.stickyCopyPortion = controls.stickyCopyPortion;

    if (InRange(controls.backgroundButton, BackgroundChoices().size()))
        params.strings[SetupBackground] = BackgroundChoices()[controls.backgroundButton];
    params.slidersEnabled = controls.slidersEnabled;
    if (errorText)
        errorText->clear();
    return true;
}

bool SaveSystemOptions(const SystemOptionsControls& controls, CSetupParams& params,
                       const std::string& path, std::string* errorText) {
    return ApplySystemOptions(controls, params, errorText) &&
           SaveSetupParams(path, params, errorText);
}

std::vector<std::string> AcceleratorTexts(const AcceleratorInfo& info) {
    if (!info.present)
        return {kAcceleratorNotAvailableText};
    return {
        "GPU : " + info.description,
        "Dedicated Memory : " + std::to_string(info.dedicatedMemoryKb) + " KB",
        std::string("Supports Double Precision : ") + (info.doublePrecision ? "Yes" : "No"),
    };
}

SystemOptionsState& Options() {
    static SystemOptionsState state;
    return state;
}

void InitializeSystemOptions(const std::string& setupPath, INotify& notify) {
    SystemOptionsState& o = Options();
    std::string error;
    if (!LoadSetupParams(setupPath, o.setup, &error))
        notify.Message(error);
    o.accelerator = QueryDefaultAccelerator();
    DetectAccelerator(o.accelerator, o.setup, notify);
}

std::string GetThreadPriorityWord() {
    return GetThreadPriorityWord(Options().setup);
}
bool UseAccelerator() {
    return Options().accelerator.present && Options().setup.useAccelerator;
}
bool AcceleratorHasDouble() {
    return Options().accelerator.doublePrecision;
}
std::int64_t AcceleratorMemoryKb() {
    return Options().accelerator.dedicatedMemoryKb;
}

} // namespace astrivelle
