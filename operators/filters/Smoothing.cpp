// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Smoothing: the filter types and their texts, the window, Image::Smooth's dispatch to
/// the separable and the rank filters, the parameter text and its replay.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>

#include "engine/Image.h"
#include "engine/ParamText.h"
#include "operators/Filters.h"
#include "operators/filters/SmoothingKernels.h"

namespace astrivelle {

namespace {

struct TypeInfo {
    int type;
    const char* name;
    const char* progress;
    const char* cancel;
    int limit;             ///< largest half size
    const char* limitText; ///< null where the size list is the only bound
};

const TypeInfo kTypes[] = {
    {SmoothBox, "Box Filter", "Box Filter ...", "Box Filter Canceled.", 499, nullptr},
    {SmoothBinomial, "Binomial Filter", "Binomial Filter ...", "Binomial Filter Canceled.", 85,
     "Maximum blur window size of the binomial function is 171 x 171."},
    {SmoothGaussian, "Gaussian Filter", "Gaussian Filter ...", "Gaussian Filter Canceled.", 499,
     nullptr},
    {SmoothSelectedNbhd, "Selected Neighborhood", "Selected Nbhd Filter ...",
     "Selected Nbhd Filter Canceled.", 25,
     "Maximum blur window size of the Selected Neighborhood function is 51 x 51."},
    {SmoothQuantile, "Quantile Filter", "Quantile Filter ...", "Quantile Filter Canceled.", 25,
     "Maximum blur window size of the Quantile function is 51 x 51."},
    {SmoothMedian, "Median", "Median Filter ...", "Median Filter Canceled.", 25,
     "Maximum blur window size of the Median function is 51 x 51."},
    {SmoothAbsDifference, "Absolute Difference", "Absolute Difference Filter ...",
     "Absolute Difference Filter Canceled.", 25,
     "Maximum blur window size of the Absolute Difference function is 51 x 51."},
    {SmoothAdaptiveMedian, "Adaptive Median", "Adaptive Median Filter ...",
     "Adaptive Median Filter Canceled.", 25,
     "Maximum blur window size of the Adaptive Median function is 51 x 51."},
};

const TypeInfo* Info(int type) {
    for (const TypeInfo& t : kTypes)
        if (t.type == type)
            return &t;
    return nullptr;
}

constexpr const char* kWindowTooLarge =
    "Window Size is large than the image. Use a smaller smoothing Window Size.";

} // namespace

bool IsSmoothingType(int type) {
    return Info(type) != nullptr;
}

const char* SmoothingTypeName(int type) {
    const TypeInfo* t = Info(type);
    return t ? t->name : "";
}

int SmoothingTypeOfName(const std::string& name) {
    for (const TypeInfo& t : kTypes)
        if (name == t.name)
            return t.type;
    return 0;
}

const char* SmoothingProgressText(int type) {
    const TypeInfo* t = Info(type);
    return t ? t->progress : "";
}

const char* SmoothingCancelText(int type) {
    const TypeInfo* t = Info(type);
    return t ? t->cancel : "";
}

int SmoothingHalfSizeLimit(int type) {
    const TypeInfo* t = Info(type);
    return t ? t->limit : 499;
}

bool LimitSmoothingWindow(SmoothingParams* p, std::string* text) {
    const TypeInfo* t = Info(p->type);
    if (p->halfSize < 1)
        p->halfSize = 1;
    if (!t || p->halfSize <= t->limit)
        return false;
    p->halfSize = t->limit;
    if (text && t->limitText)
        *text = t->limitText;
    return t->limitText != nullptr;
}

bool SmoothingWindowFits(const SmoothingParams& p, int width, int height, std::string* text) {
    const int side = 2 * p.halfSize + 1;
    if (side >= width && side >= height) {
        if (text)
            *text = kWindowTooLarge;
        return false;
    }
    return true;
}

std::string SmoothingRangeText(int applyMin, int applyMax, bool minEdited) {
    if (applyMin < applyMax)
        return {};
    return minEdited ? "Please select a min luminance less than max luminance."
                     : "Please select a max luminance greater than min luminance.";
}

std::string SmoothingSizeLabel(int halfSize) {
    const int side = 2 * halfSize + 1;
    return FormatText("%dx%d", side, side);
}

int SmoothingOrderValue(int order) {
    order = std::clamp(order, 1, 997);
    return order % 2 == 0 ? order - 1 : order;
}

int SmoothingPositionOfStrength(double strength) {
    return static_cast<int>(std::clamp(std::lround(strength * 100.0), 0L, 100L));
}

// ---- the image's members ------------------------------------------------------------------

void Image::SetWindow(int halfSize) {
    windowHalf = halfSize;
    windowSide = 2 * halfSize + 1;
    windowCount = windowSide * windowSide;
    try {
        windowWeights.assign(static_cast<std::size_t>(windowCount) + 1, 0.0);
    } catch (const std::bad_alloc&) {
        SmallBufferFailure();
    }
}

bool Image::Smooth(IProgress* progress, bool pending, float* prev, float* cur, int type,
                   int halfSize, double strength, int order, int applyMin, int applyMax,
                   int feather) {
    if (!IsSmoothingType(type) || !prev || !cur || width <= 0 || height <= 0)
        return false;
    SmoothingParams limited;
    limited.type = type;
    limited.halfSize = halfSize;
    LimitSmoothingWindow(&limited, nullptr);
    if (!pending)
        CopyPlane(prev, cur);
    SetWindow(limited.halfSize);

    smoothing::PlaneJob job;
    job.type = type;
    job.prev = prev;
    job.cur = cur;
    job.width = width;
    job.height = height;
    job.half = limited.halfSize;
    job.strength = strength;
    job.order = order;
    job.applyMin = applyMin;
    job.applyMax = applyMax;
    job.feather = feather;
    job.top = maxValue;

    if (progress)
        progress->SetStatus(SmoothingProgressText(type));
    smoothing::FilterRun run(progress, height);
    bool ok;
    if (IsSeparableSmoothing(type)) {
        int noMemory = 0;
        ok = smoothing::SeparableFilter(job, &run, &noMemory);
        if (!ok && noMemory != 0) {
            if (progress)
                progress->SetStatus(noMemory == 1 ? "No Memory for Smoothing Function."
                                                  : "Out of Memory.");
            return false;
        }
    } else {
        ok = smoothing::RankFilter(job, &run);
    }
    if (!ok) {
        if (progress)
            progress->SetStatus(SmoothingCancelText(type));
        CopyPlane(cur, prev);
        return false;
    }
    return true;
}

// ---- parameter text -----------------------------------------------------------------------

std::string FormatSmoothing(const SmoothingParams& p) {
    const int side = 2 * p.halfSize + 1;
    if (p.type == SmoothAdaptiveMedian)
        return FormatText("Type : %s#Filter Strength : %6.5f#Window Size : %d x %d#Order : %d#"
                          "Apply Min : %d#Apply Max : %d#Feather Range : %d#",
                          SmoothingTypeName(p.type), p.strength, side, side, p.order, p.applyMin,
                          p.applyMax, p.feather);
    return FormatText("Type : %s#Filter Strength : %6.5f#Window Size : %d x %d#"
                      "Apply Min : %d#Apply Max : %d#Feather Range : %d#",
                      SmoothingTypeName(p.type), p.strength, side, side, p.applyMin, p.applyMax,
                      p.feather);
}

bool ParseSmoothing(const std::string& text, SmoothingParams* params, std::string* error) {
    std::string rest = text, value;
    auto fail = [&](const char* what) {
        if (error)
            *error = std::string("Smoothing: ") + what + " missing in \"" + text + "\"";
        return false;
    };
    SmoothingParams p;
    if (!NextValue(&value, &rest))
        return fail("type");
    p.type = SmoothingTypeOfName(value);
    if (p.type == 0)
        return fail("type");
    if (!NextValue(&value, &rest))
        return fail("filter strength");
    p.strength = std::atof(value.c_str());
    if (!NextValue(&value, &rest))
        return fail("window size");
    p.halfSize = WindowSizeRadius(value);
    if (p.type == SmoothAdaptiveMedian) {
        if (!NextValue(&value, &rest))
            return fail("order");
        p.order = std::atoi(value.c_str());
    }
    if (!NextValue(&value, &rest))
        return fail("apply min");
    p.applyMin = std::atoi(value.c_str());
    if (!NextValue(&value, &rest))
        return fail("apply max");
    p.applyMax = std::atoi(value.c_str());
    if (!NextValue(&value, &rest))
        return fail("feather range");
    p.feather = std::atoi(value.c_str());
    *params = p;
    return true;
}

// ---- replay -------------------------------------------------------------------------------

bool ApplySmoothing(Image& image, const SmoothingParams& params, IProgress* progress,
                    std::string* error) {
    SmoothingParams p = params;
    std::string text;
    LimitSmoothingWindow(&p, nullptr);
    if (!SmoothingWindowFits(p, image.width, image.height, &text)) {
        if (error)
            *error = text;
        return false;
    }
    for (int s : image.Slots()) {
        float* prev = image.prevPlane[s];
        float* cur = image.curPlane[s];
        if (!prev || !cur)
            return false;
        if (!image.Smooth(progress, false, prev, cur, p.type, p.halfSize, p.strength, p.order,
                          p.applyMin, p.applyMax, p.feather)) {
            if (error)
                *error = progress && progress->Cancelled() ? SmoothingCancelText(p.type)
                                                           : "No Memory for Smoothing Function.";
            return false;
        }
    }
    return true;
}

namespace {

bool ReplaySmoothing(Image& image, const std::string& text, const ReplayContext& context,
                     std::string* error) {
    SmoothingParams p;
    return ParseSmoothing(text, &p, error) && ApplySmoothing(image, p, context.progress, error);
}

bool RoundTripSmoothing(const std::string& text, std::string* formatted) {
    SmoothingParams p;
    if (!ParseSmoothing(text, &p, nullptr))
        return false;
    *formatted = FormatSmoothing(p);
    return true;
}

} // namespace

OperatorDescriptor SmoothingDescriptor() {
    OperatorDescriptor d;
    d.name = "Smoothing";
    d.replay = ReplaySmoothing;
    d.roundTrip = RoundTripSmoothing;
    SmoothingParams gauss;
    gauss.type = SmoothGaussian;
    gauss.halfSize = 2;
    gauss.strength = 0.75;
    gauss.applyMin = 100;
    gauss.applyMax = 60000;
    gauss.feather = 50;
    d.examples.push_back(FormatSmoothing(gauss));
    SmoothingParams adaptive;
    adaptive.type = SmoothAdaptiveMedian;
    adaptive.halfSize = 1;
    adaptive.order = 3;
    d.examples.push_back(FormatSmoothing(adaptive));
    return d;
}

} // namespace astrivelle
