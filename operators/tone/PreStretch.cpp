// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The front end the three stretches share: the median level of a plane, the scale types
/// and choice texts, the slider mappings and the field checks of their tools.
#include <tbb/task_arena.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>
#include <vector>

#include "engine/Image.h"
#include "engine/Levels.h"
#include "engine/Parallel.h"
#include "engine/ParamText.h"
#include "operators/Stretch.h"

namespace astrivelle {

// ---- median level ---------------------------------------------------------------------------

std::uint32_t Image::MedianLevelOfPlane(const float* plane) const {
    if (!plane || width <= 0 || height <= 0)
        return 0;
    const std::size_t bins = static_cast<std::size_t>(maxValue) + 1;
    const int top = static_cast<int>(std::min<std::uint32_t>(maxValue, 65535));
    const int chunks = std::min(height, std::clamp(tbb::this_task_arena::max_concurrency(), 1, 16));
    std::vector<std::uint32_t> hist;
    try {
        hist.assign(bins * static_cast<std::size_t>(chunks), 0u);
    } catch (const std::bad_alloc&) {
        SmallBufferFailure();
    }
    const int w = width, h = height;
    // Fixed row chunks, one histogram each, merged afterwards.
    ParallelRows(chunks, [&](int c0, int c1) {
        for (int c = c0; c < c1; ++c) {
            std::uint32_t* counts = hist.data() + bins * static_cast<std::size_t>(c);
            const int y0 = static_cast<int>(static_cast<long>(h) * c / chunks);
            const int y1 = static_cast<int>(static_cast<long>(h) * (c + 1) / chunks);
            const float* p = plane + static_cast<std::size_t>(y0) * w;
            const float* end = plane + static_cast<std::size_t>(y1) * w;
            if (top == 65535)
                for (; p < end; ++p)
                    ++counts[RoundLevel16(*p)];
            else
                for (; p < end; ++p)
                    ++counts[RoundLevel(*p, 0, top)];
        }
    });
    for (int c = 1; c < chunks; ++c) {
        const std::uint32_t* counts = hist.data() + bins * static_cast<std::size_t>(c);
        for (std::size_t b = 0; b < bins; ++b)
            hist[b] += counts[b];
    }
    const double n = static_cast<double>(w) * h;
    double running = 0.0;
    for (std::size_t b = 0; b < bins; ++b) {
        running += hist[b];
        if (running * 100.0 / n >= 50.0)
            return static_cast<std::uint32_t>(b);
    }
    return static_cast<std::uint32_t>(bins - 1);
}

// ---- choice texts ---------------------------------------------------------------------------

bool ScaleTypeFromText(const std::string& text, ScaleType* type) {
    const int i = ChoiceIndex(kScaleTypeTexts, text);
    if (i < 0)
        return false;
    *type = static_cast<ScaleType>(i);
    return true;
}

const char* ScaleTypeText(ScaleType type) {
    return kScaleTypeTexts[static_cast<int>(type)];
}

const char* ScaleFieldLabel(ScaleType type) {
    switch (type) {
    case ScaleType::Linear:
        return "Factor";
    case ScaleType::Root:
        return "Root";
    case ScaleType::Power:
        return "Exponent";
    default:
        return "Scale";
    }
}

const char* ExponentFieldLabel(StretchFunction function) {
    switch (function) {
    case StretchFunction::Root:
        return "Root";
    case StretchFunction::Power:
        return "Exponent";
    default:
        return "Power";
    }
}

int SharpeningFilterIndex(const std::string& text) {
    return ChoiceIndex(kSharpeningFilterTexts, text);
}

PreStretchSets DefaultPreStretchSets(bool hasNone) {
    PreStretchSets sets;
    sets.type = hasNone ? ScaleType::None : ScaleType::Linear;
    return sets;
}

bool StretchChannels::OnePlane(const Image& image) const {
    if (image.colorType != ColorRGB)
        return true;
    return (red ? 1 : 0) + (green ? 1 : 0) + (blue ? 1 : 0) == 1;
}

// ---- slider mappings ------------------------------------------------------------------------

bool RangeBounds(const std::string& rangeText, double* lo, double* hi) {
    const std::string::size_type dash = rangeText.find(" - ");
    if (dash == std::string::npos)
        return false;
    const char* first = rangeText.c_str();
    char* end = nullptr;
    const double a = std::strtod(first, &end);
    if (end == first)
        return false;
    const char* second = rangeText.c_str() + dash + 3;
    const double b = std::strtod(second, &end);
    if (end == second)
        return false;
    *lo = a;
    *hi = b;
    return true;
}

double ClampToRange(const std::string& rangeText, double value) {
    double lo = 0, hi = 0;
    if (!RangeBounds(rangeText, &lo, &hi))
        return value;
    return std::clamp(value, lo, hi);
}

namespace {

int Round(double position) {
    return static_cast<int>(std::lround(position));
}

/// Steps over a range: the position of a value and the value of a position.
int StepPosition(const std::string& rangeText, double value, int steps) {
    double lo = 0, hi = 1;
    RangeBounds(rangeText, &lo, &hi);
    if (hi <= lo)
        return 0;
    return std::clamp(Round((value - lo) / (hi - lo) * steps), 0, steps);
}

double StepValue(const std::string& rangeText, int position, int steps) {
    double lo = 0, hi = 1;
    RangeBounds(rangeText, &lo, &hi);
    return lo + (hi - lo) * std::clamp(position, 0, steps) / steps;
}

} // namespace

void ScaleSliderRange(ScaleType type, int* lo, int* hi) {
    *lo = 0;
    switch (type) {
    case ScaleType::Linear:
        *hi = 2000;
        break;
    case ScaleType::Root:
        *hi = 1000;
        break;
    case ScaleType::Power:
        *hi = 4000;
        break;
    default:
        *hi = 0;
    }
}

int ScaleSliderPosition(ScaleType type, double scale) {
    int lo = 0, hi = 0;
    ScaleSliderRange(type, &lo, &hi);
    double position = 0;
    switch (type) {
    case ScaleType::Linear:
        position = scale * 200.0;
        break;
    case ScaleType::Root:
        position = scale * 1000.0;
        break;
    case ScaleType::Power:
        position = (scale - 1.0) * 1000.0;
        break;
    default:
        break;
    }
    return std::clamp(Round(position), lo, hi);
}

double ScaleFromSlider(ScaleType type, int position) {
    switch (type) {
    case ScaleType::Linear:
        return position / 200.0;
    case ScaleType::Root:
        return position / 1000.0;
    case ScaleType::Power:
        return position / 1000.0 + 1.0;
    default:
        return 1.0;
    }
}

int BlackSliderPosition(const std::string& blackRange, double black) {
    return StepPosition(blackRange, black, kBlackSliderSteps);
}

double BlackFromSlider(const std::string& blackRange, int position) {
    return StepValue(blackRange, position, kBlackSliderSteps);
}

namespace {
/// K of the power ranges; 0 marks the last, which maps p * 800.
double PowerK(const std::string& powerRange) {
    static const double k[] = {160000.0, 8000.0, 3200.0, 1600.0, 0.0};
    const int i = ChoiceIndex(kPowerRangeTexts, powerRange);
    return i < 0 ? 0.0 : k[i];
}
} // namespace

int PowerSliderPosition(const std::string& powerRange, double p) {
    p = ClampToRange(powerRange, p);
    const double k = PowerK(powerRange);
    const double position = k == 0.0 ? p * 800.0 : (p - 1.0) * k + 800.0;
    return std::clamp(Round(position), 0, kPowerSliderSteps);
}

double PowerFromSlider(const std::string& powerRange, int position) {
    position = std::clamp(position, 0, kPowerSliderSteps);
    const double k = PowerK(powerRange);
    return k == 0.0 ? position / 800.0 : (position - 800.0) / k + 1.0;
}

int WeightSliderPosition(const std::string& weightRange, double weight) {
    return StepPosition(weightRange, weight, kWeightSliderSteps);
}

double WeightFromSlider(const std::string& weightRange, int position) {
    return StepValue(weightRange, position, kWeightSliderSteps);
}

int BreakPointSliderTop(const std::string& breakPointRange) {
    double lo = 0, hi = 0;
    if (!RangeBounds(breakPointRange, &lo, &hi) || hi <= 0)
        return 65535;
    return static_cast<int>(hi);
}

// ---- Digital Development field checks --------------------------------------------------------

namespace {
/// A whole number text (spaces around allowed); false for anything else.
bool ReadNumber(const std::string& text, double* value) {
    const char* begin = text.c_str();
    char* end = nullptr;
    const double v = std::strtod(begin, &end);
    if (end == begin)
        return false;
    while (*end == ' ' || *end == '\t')
        ++end;
    if (*end != '\0' || !std::isfinite(v))
        return false;
    *value = v;
    return true;
}
} // namespace

bool CheckDdpField(DdpField field, const std::string& text, double* value, std::string* message,
                   std::string* resetText) {
    message->clear();
    resetText->clear();
    double v = 0;
    const bool read = ReadNumber(text, &v);
    switch (field) {
    case DdpField::BackgroundMin:
        if (!read || v < 0.0) {
            *message = "Please Enter a Positve Real Number.";
            return false;
        }
        break;
    case DdpField::BreakPoint:
        if (!read || v < 0.0) {
            *message = "Please Enter a Positive Real Number.";
            return false;
        }
        break;
    case DdpField::BackgroundWeight:
        if (!read || v < 0.0 || v > 1.2) {
            *message = "Please enter a number between 0.0 and 1.2.";
            *resetText = read && v > 1.2 ? "1.200" : "0.0";
            return false;
        }
        break;
    }
    *value = v;
    return true;
}

// ---- reading the texts -----------------------------------------------------------------------

bool StretchFieldReader::Fail(const char* name) {
    if (error_)
        *error_ = std::string(operator_) + ": " + name + " missing in \"" + text_ + "\"";
    return false;
}

bool StretchFieldReader::Text(const char* name, std::string* value) {
    if (!NextValue(value, &rest_))
        return Fail(name);
    return true;
}

bool StretchFieldReader::Number(const char* name, double* value) {
    std::string v;
    if (!Text(name, &v))
        return false;
    *value = std::atof(v.c_str());
    return true;
}

bool StretchFieldReader::Integer(const char* name, int* value) {
    std::string v;
    if (!Text(name, &v))
        return false;
    *value = std::atoi(v.c_str());
    return true;
}

bool StretchFieldReader::Flag(const char* name, bool* value) {
    std::string v;
    if (!Text(name, &v))
        return false;
    *value = IsYes(v);
    return true;
}

bool StretchFieldReader::Scale(const char* name, ScaleType* type) {
    std::string v;
    if (!Text(name, &v))
        return false;
    if (!ScaleTypeFromText(v, type)) {
        if (error_)
            *error_ = std::string(operator_) + ": unknown scale type \"" + v + "\"";
        return false;
    }
    return true;
}

bool StretchFieldReader::More() const {
    std::string field, rest = rest_;
    return NextField(&field, &rest);
}

} // namespace astrivelle
