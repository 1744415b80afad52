// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The blend modes, Image::BlendMask and the blend step of an operator or a replayed record.
#include "engine/Blend.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <utility>

#include "engine/Mask.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"

namespace astrivelle {

namespace {

constexpr double kTop = 65535.0;
constexpr double kHalf = 32768.0;

inline double Clamp(double v) {
    return v < 0.0 ? 0.0 : (v > kTop ? kTop : v);
}

/// Hard Light of layer c over base p; the first stage of Vivid Light.
inline double HardLight(double c, double p) {
    return c < kHalf ? p * 2.0 * c / kTop : kTop - (kTop - p) * 2.0 * (kTop - c) / kTop;
}

/// One channel of modes 0..23. Color Burn and Color Dodge divide by a numerator or a
/// denominator rounded to single precision first; Vivid Light is Overlay of Hard Light.
template <int M> inline double ModeValue(double c, double p) {
    if constexpr (M == 0) {
        return c;
    } else if constexpr (M == 1) {
        return c < p ? c : p;
    } else if constexpr (M == 2) {
        return c * p / kTop;
    } else if constexpr (M == 3) {
        return Clamp(c > 0.0 ? kTop - static_cast<double>(static_cast<float>(kTop - p)) / c * kTop
                             : p);
    } else if constexpr (M == 4) {
        const double s = c + p;
        return kTop > s ? 0.0 : s - kTop;
    } else if constexpr (M == 5) {
        return c > p ? c : p;
    } else if constexpr (M == 6) {
        return kTop - (kTop - c) * (kTop - p) / kTop;
    } else if constexpr (M == 7) {
        return Clamp(kTop - c > 0.0 ? p / static_cast<double>(static_cast<float>(kTop - c)) * kTop
                                    : kTop);
    } else if constexpr (M == 8 || M == 18) {
        const double s = c + p;
        return s > kTop ? kTop : s;
    } else if constexpr (M == 9) {
        return p < kHalf ? c * 2.0 * p / kTop : kTop - (kTop - c) * 2.0 * (kTop - p) / kTop;
    } else if constexpr (M == 10) {
        return c <= kHalf ? (c + kHalf) * p / kTop
                          : kTop - (kTop - (c - kHalf)) * (kTop - p) / kTop;
    } else if constexpr (M == 11) {
        return HardLight(c, p);
    } else if constexpr (M == 12) {
        const double t = HardLight(c, p);
        return Clamp(p < kHalf ? t * 2.0 * p / kTop : kTop - (kTop - t) * 2.0 * (kTop - p) / kTop);
    } else if constexpr (M == 13) {
        return Clamp(c <= kHalf ? c * 2.0 + p - kTop : (c - kHalf) * 2.0 + p);
    } else if constexpr (M == 14) {
        if (c <= kHalf) {
            const double twice = 2.0 * c;
            return Clamp(p < twice ? p : twice);
        }
        const double twice = 2.0 * (c - kHalf);
        return Clamp(p > twice ? p : twice);
    } else if constexpr (M == 15) {
        return (c + p) * 0.5 < kHalf ? 0.0 : kTop;
    } else if constexpr (M == 16) {
        if (p == kTop)
            return p;
        const double r = c * c / (kTop - p);
        return r > kTop ? kTop : r;
    } else if constexpr (M == 17) {
        if (c == kTop)
            return c;
        const double r = p * p / (kTop - c);
        return r > kTop ? kTop : r;
    } else if constexpr (M == 19) {
        return (c + p) * 0.5;
    } else if constexpr (M == 20) {
        return p > c ? p - c : 0.0;
    } else if constexpr (M == 21) {
        return std::fabs(c - p);
    } else if constexpr (M == 22) {
        return c + p - c * 2.0 * p / kTop;
    } else {
        static_assert(M == 23);
        return kTop - std::fabs(kTop - c - p);
    }
}

/// One row of one channel: mode, then the mask (m = 1 without one), then opacity.
using RowKernel = void (*)(const float* prev, float* cur, const float* mask, double flatM,
                           double opacity, int n);

template <int M, bool PerPixelMask>
void BlendRow(const float* __restrict prev, float* __restrict cur, const float* __restrict mask,
              double flatM, double opacity, int n) {
    const double keep = 1.0 - opacity;
    for (int x = 0; x < n; ++x) {
        const double p = prev[x];
        double b = ModeValue<M>(cur[x], p);
        const double m = PerPixelMask ? mask[x] / kTop : flatM;
        b = (1.0 - m) * p + m * b;
        cur[x] = static_cast<float>(keep * p + opacity * b);
    }
}

template <bool PerPixel, int... M>
constexpr std::array<RowKernel, sizeof...(M)> MakeKernels(std::integer_sequence<int, M...>) {
    return {&BlendRow<M, PerPixel>...};
}

constexpr auto kFlatKernels = MakeKernels<false>(std::make_integer_sequence<int, 24>{});
constexpr auto kMaskKernels = MakeKernels<true>(std::make_integer_sequence<int, 24>{});

double ChannelValue(int mode, double c, double p) {
    switch (mode) {
    case 0:
        return ModeValue<0>(c, p);
    case 1:
        return ModeValue<1>(c, p);
    case 2:
        return ModeValue<2>(c, p);
    case 3:
        return ModeValue<3>(c, p);
    case 4:
        return ModeValue<4>(c, p);
    case 5:
        return ModeValue<5>(c, p);
    case 6:
        return ModeValue<6>(c, p);
    case 7:
        return ModeValue<7>(c, p);
    case 8:
        return ModeValue<8>(c, p);
    case 9:
        return ModeValue<9>(c, p);
    case 10:
        return ModeValue<10>(c, p);
    case 11:
        return ModeValue<11>(c, p);
    case 12:
        return ModeValue<12>(c, p);
    case 13:
        return ModeValue<13>(c, p);
    case 14:
        return ModeValue<14>(c, p);
    case 15:
        return ModeValue<15>(c, p);
    case 16:
        return ModeValue<16>(c, p);
    case 17:
        return ModeValue<17>(c, p);
    case 18:
        return ModeValue<18>(c, p);
    case 19:
        return ModeValue<19>(c, p);
    case 20:
        return ModeValue<20>(c, p);
    case 21:
        return ModeValue<21>(c, p);
    case 22:
        return ModeValue<22>(c, p);
    case 23:
        return ModeValue<23>(c, p);
    default:
        return c;
    }
}

} // namespace

const char* BlendStepWord(BlendStep step) {
    switch (step) {
    case BlendStep::ApplyMask:
        return "ApplyMask";
    case BlendStep::ShowMask:
        return "ShowMask";
    default:
        return "BlendOnly";
    }
}

bool ParseBlendStep(std::string_view word, BlendStep* step) {
    for (BlendStep s : {BlendStep::BlendOnly, BlendStep::ApplyMask, BlendStep::ShowMask})
        if (word == BlendStepWord(s)) {
            *step = s;
            return true;
        }
    return false;
}

const char* BlendModeName(int mode) {
    static const char* const names[kBlendModeCount] = {
        "Normal",     "Darken",        "Multiply",    "Color Burn",   "Linear Burn",
        "Lighten",    "Screen",        "Color Dodge", "Linear Dodge", "Overlay",
        "Soft Light", "Hard Light",    "Vivid Light", "Linear Light", "Pin Light",
        "Hard Mix",   "Reflect",       "Glow",        "Add",          "Average",
        "Subtract",   "Difference",    "Exclusion",   "Negation",     "Hue",
        "Saturation", "Color",         "Luminosity",  "Lab Hue",      "Lab Saturation",
        "Lab Color",  "Lab Luminosity"};
    return mode >= 0 && mode < kBlendModeCount ? names[mode] : nullptr;
}

double BlendChannelValue(int mode, double c, double p) {
    return ChannelValue(mode, c, p);
}

void BlendColorValue(int mode, const double c[3], const double p[3], double out[3]) {
    if (mode <= 27) {
        double hc, sc, vc, hp, sp, vp;
        Image::RgbToHsv(c[0], c[1], c[2], &hc, &sc, &vc);
        Image::RgbToHsv(p[0], p[1], p[2], &hp, &sp, &vp);
        switch (mode) {
        case 24:
            Image::HsvToRgb(hc, sp, vp, &out[0], &out[1], &out[2]);
            break;
        case 25:
            Image::HsvToRgb(hp, sc, vp, &out[0], &out[1], &out[2]);
            break;
        case 26:
            Image::HsvToRgb(hc, sc, vp, &out[0], &out[1], &out[2]);
            break;
        default:
            Image::HsvToRgb(hp, sp, vc, &out[0], &out[1], &out[2]);
            break;
        }
        return;
    }
    float lc, ac, bc, lp, ap, bp;
    Image::RgbToLab(static_cast<float>(c[0]), static_cast<float>(c[1]), static_cast<float>(c[2]),
                    &lc, &ac, &bc);
    Image::RgbToLab(static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2]),
                    &lp, &ap, &bp);
    float L = lp, a = 0, b = 0;
    switch (mode) {
    case 28: {
        const float cc = std::sqrt(ac * ac + bc * bc), cp = std::sqrt(ap * ap + bp * bp);
        if (cc != 0.0f) {
            a = ac / cc * cp;
            b = bc / cc * cp;
        }
        break;
    }
    case 29: {
        const float cc = std::sqrt(ac * ac + bc * bc), cp = std::sqrt(ap * ap + bp * bp);
        if (cp != 0.0f) {
            a = ap / cp * cc;
            b = bp / cp * cc;
        }
        break;
    }
    case 30:
        a = ac;
        b = bc;
        break;
    default:
        L = lc;
        a = ap;
        b = bp;
        break;
    }
    float r, g, bl;
    Image::LabToRgb(L, a, b, &r, &g, &bl);
    out[0] = r;
    out[1] = g;
    out[2] = bl;
}

bool Image::BlendMask(bool red, bool green, bool blue, const float* prevR, float* curR,
                      const float* prevG, float* curG, const float* prevB, float* curB,
                      BlendStep mode, std::int32_t blendMode, double opacity,
                      std::uint32_t maskLevel, const std::array<double, 48>& maskSurface,
                      const float* maskPlane, bool luminanceMask, bool keepUnselected) {
    if (blendMode < 0 || blendMode >= kBlendModeCount || width <= 0 || height <= 0)
        return false;
    const bool sel[3] = {red, green, blue};
    const float* prev[3] = {prevR, prevG, prevB};
    float* cur[3] = {curR, curG, curB};
    for (int k = 0; k < 3; ++k)
        if (sel[k] && (!prev[k] || !cur[k]))
            return false;
    const bool rgb = colorType == ColorRGB && prevR && curR && prevG && curG && prevB && curB;
    if (blendMode >= kFirstColorBlendMode && !rgb)
        return false;

    // The mask: a flat level needs no plane; a surface is built into one; a file is given.
    const std::size_t w = static_cast<std::size_t>(width);
    const std::size_t count = w * static_cast<std::size_t>(height);
    float* ownMask = nullptr;
    const float* mask = nullptr;
    double flatM = 1.0; // no mask: the layer counts in full
    if (mode != BlendStep::BlendOnly) {
        switch (MaskSourceOf(luminanceMask, maskSurface)) {
        case MaskSource::Flat:
            flatM = maskLevel / kTop;
            break;
        case MaskSource::Surface:
            ownMask = AllocPlane(count);
            if (!ownMask)
                return false;
            if (!BuildSurfaceMask(ownMask, width, height, maxValue, maskLevel, maskSurface)) {
                PageFree(ownMask);
                return false;
            }
            mask = ownMask;
            break;
        case MaskSource::File:
            if (!maskPlane)
                return false;
            mask = maskPlane;
            break;
        }
    }

    if (mode == BlendStep::ShowMask) {
        const float level = static_cast<float>(maskLevel);
        ParallelRows(height, [&](int y0, int y1) {
            const std::size_t a = y0 * w, z = y1 * w;
            for (int k = 0; k < 3; ++k) {
                if (!sel[k])
                    continue;
                if (mask)
                    std::memcpy(cur[k] + a, mask + a, sizeof(float) * (z - a));
                else
                    std::fill(cur[k] + a, cur[k] + z, level);
            }
        });
        PageFree(ownMask);
        return true;
    }

    if (blendMode < kFirstColorBlendMode) {
        const RowKernel kernel = mask ? kMaskKernels[blendMode] : kFlatKernels[blendMode];
        ParallelRows(height, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y) {
                const std::size_t at = y * w;
                for (int k = 0; k < 3; ++k) {
                    if (sel[k])
                        kernel(prev[k] + at, cur[k] + at, mask ? mask + at : nullptr, flatM,
                               opacity, width);
                    else if (rgb && !keepUnselected)
                        std::memcpy(cur[k] + at, prev[k] + at, sizeof(float) * w);
                }
            }
        });
    } else {
        const bool masked = mode == BlendStep::ApplyMask;
        ParallelRows(height, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y)
                for (std::size_t i = y * w, end = i + w; i < end; ++i) {
                    double p[3], c[3], out[3];
                    for (int k = 0; k < 3; ++k) {
                        p[k] = prev[k][i];
                        c[k] = (sel[k] || keepUnselected) ? cur[k][i] : p[k];
                    }
                    BlendColorValue(blendMode, c, p, out);
                    const double m = mask ? mask[i] / kTop : flatM;
                    for (int k = 0; k < 3; ++k) {
                        double b = out[k];
                        if (masked)
                            b = sel[k] ? (1.0 - m) * p[k] + m * b : p[k];
                        cur[k][i] = static_cast<float>((1.0 - opacity) * p[k] + opacity * b);
                    }
                }
        });
    }
    PageFree(ownMask);
    return true;
}

const char* BlendFailureText(BlendFailure failure) {
    switch (failure) {
    case BlendFailure::None:
        return "";
    case BlendFailure::MaskMissing:
        return "The image mask file can't be read here; the result is left unblended.";
    case BlendFailure::ModeNeedsColor:
        return "Blend modes Hue to Lab Luminosity need an RGB image; the result is left "
               "unblended.";
    case BlendFailure::BadMode:
        return "Unknown blend mode; the result is left unblended.";
    default:
        return "No memory for blend or mask mode.";
    }
}

void BlendChannelsOf(const Image& image, const CProcessStructure& record, bool selected[3]) {
    selected[0] = selected[1] = selected[2] = false;
    if (image.colorType != ColorRGB) {
        const int slot = SlotOfColorType(image.colorType);
        if (slot >= 0)
            selected[slot] = true;
        return;
    }
    if (record.channelSelect) {
        selected[0] = record.channelRed != 0;
        selected[1] = record.channelGreen != 0;
        selected[2] = record.channelBlue != 0;
    } else {
        selected[0] = selected[1] = selected[2] = true;
    }
}

bool BlendNeedsMaskFile(const CProcessStructure& record, BlendStep step) {
    return step != BlendStep::BlendOnly &&
           MaskSourceOf(record.luminanceMask != 0, record.maskSurface) == MaskSource::File;
}

bool BlendRecord(Image& image, const CProcessStructure& record, BlendStep step,
                 const float* maskPlane, BlendWork work, BlendFailure* failure) {
    auto fail = [&](BlendFailure why) {
        if (failure)
            *failure = why;
        return false;
    };
    if (failure)
        *failure = BlendFailure::None;
    if (record.blendMode < 0 || record.blendMode >= kBlendModeCount)
        return fail(BlendFailure::BadMode);
    if (record.blendMode >= kFirstColorBlendMode && image.colorType != ColorRGB)
        return fail(BlendFailure::ModeNeedsColor);
    if (BlendNeedsMaskFile(record, step) && !maskPlane)
        return fail(BlendFailure::MaskMissing);

    bool haveWork = true;
    for (int s : image.Slots())
        haveWork = haveWork && image.workRows[s] != nullptr;
    if (work == BlendWork::RestoreSaved && haveWork) {
        image.RestoreWork();
    } else {
        if (!haveWork && !image.AllocateWorkRows())
            return fail(BlendFailure::NoMemory);
        image.SaveWork();
    }

    bool sel[3];
    BlendChannelsOf(image, record, sel);
    Image& im = image;
    if (!im.BlendMask(sel[0], sel[1], sel[2], im.prevPlane[0], im.curPlane[0], im.prevPlane[1],
                      im.curPlane[1], im.prevPlane[2], im.curPlane[2], step, record.blendMode,
                      record.opacity, record.maskLevel, record.maskSurface, maskPlane,
                      record.luminanceMask != 0, false))
        return fail(BlendFailure::NoMemory);
    return true;
}

} // namespace astrivelle
