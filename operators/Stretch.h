// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Stretch family: Digital Development, ArcSinH and General Stretch Functions. The shared
/// front end (median offset and pre-stretch), the choice lists with their texts, the parameter
/// records and their `#` texts, the slider mappings and checks of the tools, and the descriptors.
#pragma once
#include <array>
#include <cmath>
#include <cstdint>
#include <string>

#include "operators/Registry.h"

namespace astrivelle {

class Image;
class IProgress;
struct CCustomFilter;

// ---- choice lists (stored and recorded as their texts) ----------------------------------------

enum class ScaleType { None = 0, Linear = 1, Root = 2, Power = 3 };

inline constexpr std::array<const char*, 4> kScaleTypeTexts = {"None", "Linear", "nth Root X^n",
                                                               "nth Power X^n"};
inline constexpr std::array<const char*, 5> kBlackRangeTexts = {
    "0.0 - 0.100", "0.0 - 0.010", "0.0 - 0.001", "0.090 - 0.100", "0.099 - 0.100"};
/// The power range, also the background weight range of Digital Development. The fifth entry
/// is the default.
inline constexpr std::array<const char*, 5> kPowerRangeTexts = {
    "0.995 - 1.00125", "0.900 - 1.02500", "0.750 - 1.06250", "0.500 - 1.12500", "0.000 - 1.25000"};
/// The background weight range of ArcSinH (all six) and General Stretch (the first four).
inline constexpr std::array<const char*, 6> kWeightRangeTexts = {
    "0.0 - 1.00", "0.0 - 0.50", "0.0 - 0.25", "0.0 - 0.10", "0.50 - 1.00", "0.90 - 1.00"};
inline constexpr int kGeneralStretchWeightRanges = 4;
inline constexpr std::array<const char*, 5> kBreakPointRangeTexts = {
    "0 - 65535", "0 - 10000", "0 -  5000", "0 -  1000", "0 -   500"};
inline constexpr std::array<const char*, 4> kStretchFunctionTexts = {
    "Linear", "Hybrid ArcSinH", "nth Root X^n", "nth Power X^n"};
inline constexpr std::array<const char*, 6> kSharpeningFilterTexts = {
    "None", "Soft", "Medium", "Hard", "Hard Plus", "Custom"};

enum class StretchFunction { Linear = 0, HybridArcSinH = 1, Root = 2, Power = 3 };

/// Index of `text` in a list, or -1.
template <std::size_t N>
int ChoiceIndex(const std::array<const char*, N>& list, const std::string& text) {
    for (std::size_t i = 0; i < N; ++i)
        if (text == list[i])
            return static_cast<int>(i);
    return -1;
}

/// The scale type of its text; false for any other text.
bool ScaleTypeFromText(const std::string& text, ScaleType* type);
const char* ScaleTypeText(ScaleType type);
/// The label of the Scale field: "Factor", "Root", "Exponent"; "Scale" for "None".
const char* ScaleFieldLabel(ScaleType type);
/// The label of General Stretch's exponent field: "Power", or "Root" / "Exponent".
const char* ExponentFieldLabel(StretchFunction function);
/// Index into kSharpeningFilterTexts, or -1.
int SharpeningFilterIndex(const std::string& text);

// ---- pre-stretch settings ------------------------------------------------------------------

struct PreStretchSettings {
    double scale = 1.0;
    double black = 0.0;
    double white = 1.0;
    std::string blackRange = kBlackRangeTexts[0];
    bool operator==(const PreStretchSettings&) const = default;
};

/// What a dialog keeps: one set per scale type, so that switching type keeps what was set for
/// it, and the type in use.
struct PreStretchSets {
    ScaleType type = ScaleType::None;
    std::array<PreStretchSettings, 4> sets{};
    PreStretchSettings& Current() { return sets[static_cast<int>(type)]; }
    const PreStretchSettings& Current() const { return sets[static_cast<int>(type)]; }
};

/// "Reset Scale": every set at its default, the type at the dialog's first one ("None" for
/// Digital Development and ArcSinH, "Linear" for General Stretch, which has no "None").
PreStretchSets DefaultPreStretchSets(bool hasNone);

// ---- slider mappings -----------------------------------------------------------------------

/// "lo - hi" read as two numbers; false when the text is not of that shape.
bool RangeBounds(const std::string& rangeText, double* lo, double* hi);
/// The value limited to the range of the text (unchanged when the text is no range).
double ClampToRange(const std::string& rangeText, double value);

/// Scale slider: Scale * 200 for "Linear" (0..2000), * 1000 for a root (0..1000) and
/// (Scale - 1) * 1000 for a power (0..4000). "None" has no slider (0..0).
void ScaleSliderRange(ScaleType type, int* lo, int* hi);
int ScaleSliderPosition(ScaleType type, double scale);
double ScaleFromSlider(ScaleType type, int position);

/// Black point slider: 1000 steps over the black range (Black * 10000 on "0.0 - 0.100").
inline constexpr int kBlackSliderSteps = 1000;
int BlackSliderPosition(const std::string& blackRange, double black);
double BlackFromSlider(const std::string& blackRange, int position);

/// Power slider (also Digital Development's background weight): 1000 steps, 800 meaning 1.0;
/// position (p - 1) * K + 800 with K 160000, 8000, 3200, 1600 for the first four ranges and
/// p * 800 for the last.
inline constexpr int kPowerSliderSteps = 1000;
int PowerSliderPosition(const std::string& powerRange, double p);
double PowerFromSlider(const std::string& powerRange, int position);

/// Background weight slider of ArcSinH and General Stretch: 1000 steps over the range.
inline constexpr int kWeightSliderSteps = 1000;
int WeightSliderPosition(const std::string& weightRange, double weight);
double WeightFromSlider(const std::string& weightRange, int position);

/// The top of a break-point range ("0 -  5000" -> 5000); 65535 for any other text.
int BreakPointSliderTop(const std::string& breakPointRange);

/// Sharpening Strength is slider position / 1000, the decompress weights position / 500.
inline constexpr int kStrengthSliderTop = 1000;
inline constexpr int kColorWeightSliderTop = 500;

// ---- Digital Development field checks ------------------------------------------------------

enum class DdpField { BackgroundMin, BreakPoint, BackgroundWeight };

/// Checks a typed field of Digital Development. True with the value when it is good; else
/// `message` holds the text to show and, for the background weight, `resetText` the text the
/// field is reset to ("0.0" below the range, "1.200" above it); empty for the other two.
bool CheckDdpField(DdpField field, const std::string& text, double* value, std::string* message,
                   std::string* resetText);

// ---- parameter records ---------------------------------------------------------------------

struct DigitalDevelopmentParams {
    ScaleType scaleType = ScaleType::None;
    PreStretchSettings pre;
    std::string breakPointRange = kBreakPointRangeTexts[0];
    std::string weightRange = kPowerRangeTexts[4];
    int backgroundMin = 0;
    double backgroundWeight = 1.0;
    int breakPoint = 65535; ///< Break-Point Highlights
    std::string filter = kSharpeningFilterTexts[0];
    bool fixDefects = false;
    double strength = 0.0;
    double red = 0.5, green = 0.5, blue = 0.5;
};

struct ArcSinHParams {
    ScaleType scaleType = ScaleType::None;
    PreStretchSettings pre;
    std::string weightRange = kWeightRangeTexts[0];
    std::string powerRange = kPowerRangeTexts[4];
    int backgroundMin = 0;
    double backgroundWeight = 1.0;
    double power = 1.0;
    double expand = 1.0;
    double red = 0.5, green = 0.5, blue = 0.5;
};

struct GeneralStretchParams {
    ScaleType scaleType = ScaleType::Linear;
    PreStretchSettings pre;
    StretchFunction function = StretchFunction::Linear;
    std::string weightRange = kWeightRangeTexts[0];
    std::string powerRange = kPowerRangeTexts[4]; ///< "Power & Root Range"
    int backgroundMin = 0;
    double backgroundWeight = 0.0;
    double exponent = 1.0;
    int outputWhite = 65535;
    int outputBlack = 0;
};

/// The `#` texts. Digital Development has a one-plane form and a colour form (with the Red,
/// Green, Blue weights); General Stretch names its exponent "Power", "Root" or "Exponent".
std::string FormatDigitalDevelopment(const DigitalDevelopmentParams& params, bool colour);
bool ParseDigitalDevelopment(const std::string& text, DigitalDevelopmentParams* params,
                             bool* colour, std::string* error);
std::string FormatArcSinH(const ArcSinHParams& params);
bool ParseArcSinH(const std::string& text, ArcSinHParams* params, std::string* error);
std::string FormatGeneralStretch(const GeneralStretchParams& params);
bool ParseGeneralStretch(const std::string& text, GeneralStretchParams* params, std::string* error);

/// Reads the fields of a stretch text in order. Each call takes the next field; the first
/// that is missing fails with "<operator>: <name> missing in "<text>"" in `error`.
class StretchFieldReader {
public:
    StretchFieldReader(const std::string& text, const char* operatorName, std::string* error)
        : text_(text), rest_(text), operator_(operatorName), error_(error) {}
    bool Text(const char* name, std::string* value);
    bool Number(const char* name, double* value);
    bool Integer(const char* name, int* value);
    bool Flag(const char* name, bool* value); ///< "Yes" is set, anything else not
    bool Scale(const char* name, ScaleType* type);
    /// True while fields remain.
    bool More() const;

private:
    std::string text_, rest_;
    const char* operator_;
    std::string* error_;
    bool Fail(const char* name);
};

// ---- application to an image ---------------------------------------------------------------

/// The channels a stretch applies to: the image's colour mode and the channel selection.
struct StretchChannels {
    bool red = true, green = true, blue = true;
    /// True when the one-plane form runs: a single-plane colour type, or exactly one flag.
    bool OnePlane(const Image& image) const;
};

/// Text of the failure when the current custom filter has a size other than 3, 5, 7 or 9.
inline constexpr const char* kCustomFilterSizeText =
    "The Custom Filter Must Be 3x3, 5x5, 7x7 or 9x9.";
/// True for the custom sizes Digital Development accepts.
inline bool CustomSizeAccepted(int size) {
    return size == 3 || size == 5 || size == 7 || size == 9;
}

/// Runs each stretch on an image with the given channels (replay and the operator functions
/// share these). `custom` null means the default custom filter (Identity 3 x 3). False when
/// cancelled, when Digital Development cannot have its memory, or for an unaccepted custom
/// size.
bool RunDigitalDevelopment(Image& image, const DigitalDevelopmentParams& params,
                           const StretchChannels& channels, bool pending,
                           const CCustomFilter* custom, IProgress* progress);
bool RunArcSinH(Image& image, const ArcSinHParams& params, const StretchChannels& channels,
                bool pending, IProgress* progress);
bool RunGeneralStretch(Image& image, const GeneralStretchParams& params,
                       const StretchChannels& channels, bool pending);

OperatorDescriptor DigitalDevelopmentDescriptor();
OperatorDescriptor ArcSinHDescriptor();
OperatorDescriptor GeneralStretchDescriptor();

// ---- the shared front end, hoisted out of the pixel loops -----------------------------------

/// The background offset of a channel: trunc(-median * weight).
inline int BackgroundOffset(std::uint32_t median, double weight) {
    return static_cast<int>(-static_cast<double>(median) * weight);
}

/// The pre-stretch of a pixel value q = p + offset, in doubles. With `backToLevels` (ArcSinH
/// and Digital Development) "Linear" and the power forms are multiplied by `top` again and
/// "None" leaves q as it is; without it (General Stretch) the result is on the 0..1 scale.
struct PreStretch {
    ScaleType type = ScaleType::None;
    double scale = 1.0, black = 0.0, white = 1.0, top = 65535.0;
    bool backToLevels = true;

    double operator()(double q) const {
        if (type == ScaleType::None)
            return backToLevels ? q : q / top;
        double x = q / top;
        if (type == ScaleType::Linear)
            x = x * (scale * white - black) + black;
        else
            x = std::pow(std::fabs(x * (white - black) + black), scale);
        return backToLevels ? x * top : x;
    }
};

/// The decompress-colour step of one pixel. r, g, b are the pre-stretched values, sr, sg, sb
/// their curves, w* the weights. `heldBlueRatio` carries b / r along a row: a pixel whose red
/// is the largest and 0 keeps the value of the last pixel that had one (the row's start value
/// before any).
inline void DecompressColor(double r, double g, double b, double sr, double sg, double sb,
                            double wr, double wg, double wb, double* heldBlueRatio, double* outR,
                            double* outG, double* outB) {
    if (r >= g && r >= b) {
        double gr;
        if (r != 0.0) {
            gr = g / r;
            *heldBlueRatio = b / r;
        } else {
            gr = b / 0.001; // sic: the blue, not the green, over the small divisor
        }
        *outR = sr;
        *outG = gr * sr * wr + (1.0 - wr) * sg;
        *outB = *heldBlueRatio * sr * wr + (1.0 - wr) * sb;
    } else if (g >= r && g >= b) {
        const double d = g != 0.0 ? g : 0.001;
        *outG = sg;
        *outR = (r / d) * sg * wg + (1.0 - wg) * sr;
        *outB = (b / d) * sg * wg + (1.0 - wg) * sb;
    } else {
        const double d = b != 0.0 ? b : 0.001;
        *outB = sb;
        *outR = (r / d) * sb * wb + (1.0 - wb) * sr;
        *outG = (g / d) * sb * wb + (1.0 - wb) * sg;
    }
}

/// The final clamp of the stretches: lo..hi, NaN to lo.
inline double ClampStretch(double v, double lo, double hi) {
    if (!(v >= lo))
        return lo;
    return v > hi ? hi : v;
}

/// The value the held b / r of Digital Development starts each row with.
inline constexpr double kDdpRowStartBlueRatio = 1.0;

// ---- test hooks ------------------------------------------------------------------------------

namespace stretch_testing {
/// How Digital Development sums a box window: chosen per plane (Auto), always the plain
/// gather (the oracle), or never falling back.
enum class WindowPath { Auto, Plain };
void SetWindowPath(WindowPath path);
/// Planes summed by the running (sliding) sums since the last reset, and by the plain gather.
void ResetWindowCounts();
int SlidingPlanes();
int PlainPlanes();
/// The next `n` scratch-plane allocations of Digital Development succeed, the rest fail;
/// -1 (the default) lets all succeed.
void SetAllocationBudget(int n);
/// The three-plane row kernels run 4 or 8 pixels at a time (8 only where the processor has
/// AVX-512); 0 (the default) takes the widest. False, and nothing changed, for a width this
/// processor cannot run.
bool SetDdpRowLanes(int lanes);
/// The width the row kernels run at now.
int DdpRowLanes();
} // namespace stretch_testing

} // namespace astrivelle
