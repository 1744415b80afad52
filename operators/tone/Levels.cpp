// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Levels: the two-segment power curve per plane, its parameter text and its replay.
#include <cmath>
#include <cstdlib>
#include <vector>

#include "engine/Parallel.h"
#include "engine/ParamText.h"
#include "operators/Curves.h"

namespace astrivelle {

namespace {

/// The transfer function with its guards applied once: a gamma of exactly 0 is 0.001, a
/// segment width of exactly 0 is 0.01.
struct LevelsCurve {
    double black, midtone, intensity, blackGamma, whiteGamma, white, outBlack, outWhite;
    double lowWidth, highWidth;

    LevelsCurve(int b, int m, int mi, double bg, double wg, int w, int ob, int ow)
        : black(b), midtone(m), intensity(mi), blackGamma(bg == 0.0 ? 0.001 : bg),
          whiteGamma(wg == 0.0 ? 0.001 : wg), white(w), outBlack(ob), outWhite(ow),
          lowWidth(m - b == 0 ? 0.01 : double(m) - double(b)),
          highWidth(w - m == 0 ? 0.01 : double(w) - double(m)) {}

    /// pow(x, 1.0) is x exactly, so a gamma of 1 skips the call and changes nothing.
    static double Power(double x, double g) { return g == 1.0 ? x : std::pow(x, g); }

    double Eval(double p) const {
        if (p <= black)
            return outBlack;
        if (p <= midtone)
            return Power((p - black) / lowWidth, blackGamma) * (intensity - outBlack) + outBlack;
        if (p < white)
            return Power((p - midtone) / highWidth, whiteGamma) * (outWhite - intensity) +
                   intensity;
        return outWhite;
    }
};

/// Above this many pixels the results of the 65536 integer levels are computed once and looked
/// up: the same function of the same value, so the pixels are the same as without the cache.
constexpr std::uint32_t kCachePixels = 4u * 65536u;

} // namespace

double LevelsTransfer(const LevelsSet& s, double p) {
    const LevelsCurve curve(s.black, s.midtone, s.midtoneIntensity, s.blackGamma, s.whiteGamma,
                            s.white, s.outputBlack, s.outputWhite);
    return curve.Eval(p);
}

void Image::ApplyLevels(bool pending, float* prev, float* cur, int black, int midtone,
                        int midtoneIntensity, double blackGamma, double whiteGamma, int white,
                        int outputBlack, int outputWhite) {
    if (!prev || !cur)
        return;
    if (!pending)
        CopyPlane(prev, cur);
    const LevelsCurve curve(black, midtone, midtoneIntensity, blackGamma, whiteGamma, white,
                            outputBlack, outputWhite);
    const double top = maxValue;
    const int w = width;
    auto value = [&curve, top](double p) {
        return static_cast<float>(ClampValue(curve.Eval(p), 0.0, top));
    };
    if (pixelCount < kCachePixels) {
        ParallelRows(height, [&](int y0, int y1) {
            const std::size_t end = static_cast<std::size_t>(y1) * w;
            for (std::size_t i = static_cast<std::size_t>(y0) * w; i < end; ++i)
                cur[i] = value(prev[i]);
        });
        return;
    }
    std::vector<float> levels(65536);
    ParallelRows(256, [&](int b0, int b1) {
        for (int k = b0 * 256; k < b1 * 256; ++k)
            levels[k] = value(k);
    });
    const float* table = levels.data();
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const std::size_t begin = static_cast<std::size_t>(y) * w, end = begin + w;
            // Branch-free look-up of the integer level; a row holding any other value is
            // corrected afterwards by the function itself.
            bool exact = true;
            for (std::size_t i = begin; i < end; ++i) {
                const float f = prev[i];
                const float c = f > 0.0f ? (f < 65535.0f ? f : 65535.0f) : 0.0f;
                const int k = static_cast<int>(c);
                cur[i] = table[k];
                exact &= static_cast<float>(k) == f;
            }
            if (exact)
                continue;
            for (std::size_t i = begin; i < end; ++i) {
                const float f = prev[i];
                const float c = f > 0.0f ? (f < 65535.0f ? f : 65535.0f) : 0.0f;
                if (static_cast<float>(static_cast<int>(c)) != f)
                    cur[i] = value(f);
            }
        }
    });
}

// ---- parameter text ---------------------------------------------------------------------

namespace {

const char* kSetHeads[4] = {"RGB LEVELS", "RED LEVELS", "GREEN LEVELS", "BLUE LEVELS"};

} // namespace

std::string FormatLevels(const LevelsParams& p) {
    std::string text = "Channel : " + p.channel + "#" + "Level :" + LevelsEntryName(p.level) + "#";
    for (int k = 0; k < 4; ++k) {
        const LevelsSet& s = p.sets[k];
        text += FormatText("%s#  Black : %d#  MidTone : %d#  MidTone Intensity : %d#  White : %d#"
                           "  Black Gamma : %6.5f#  White Gamma : %6.5f#  Output Black : %d#"
                           "  Output White : %d#",
                           kSetHeads[k], s.black, s.midtone, s.midtoneIntensity, s.white,
                           s.blackGamma, s.whiteGamma, s.outputBlack, s.outputWhite);
    }
    return text;
}

bool ParseLevels(const std::string& text, LevelsParams* params, std::string* error) {
    std::string rest = text, field, value;
    auto fail = [&](const std::string& what) {
        if (error)
            *error = "Levels: " + what + " missing in \"" + text + "\"";
        return false;
    };
    LevelsParams p;
    if (!NextValue(&value, &rest))
        return fail("channel");
    p.channel = value;
    if (!NextValue(&value, &rest) || !LevelsEntryOf(value, &p.level))
        return fail("level");
    for (int k = 0; k < 4; ++k) {
        if (!NextField(&field, &rest) || field.find(kSetHeads[k]) == std::string::npos)
            return fail(kSetHeads[k]);
        LevelsSet& s = p.sets[k];
        int* ints[] = {&s.black, &s.midtone, &s.midtoneIntensity, &s.white};
        for (int* v : ints) {
            if (!NextValue(&value, &rest))
                return fail(std::string(kSetHeads[k]) + " values");
            *v = std::atoi(value.c_str());
        }
        for (double* v : {&s.blackGamma, &s.whiteGamma}) {
            if (!NextValue(&value, &rest))
                return fail(std::string(kSetHeads[k]) + " gamma");
            *v = std::atof(value.c_str());
        }
        for (int* v : {&s.outputBlack, &s.outputWhite}) {
            if (!NextValue(&value, &rest))
                return fail(std::string(kSetHeads[k]) + " output");
            *v = std::atoi(value.c_str());
        }
    }
    *params = p;
    return true;
}

bool ApplyLevelsParams(Image& image, const LevelsParams& p, bool pending) {
    // Slot s takes set s + 1: Red, Green, Blue; a monochrome image's slot 0 takes Red.
    for (int s : image.Slots()) {
        float* prev = image.prevPlane[s];
        float* cur = image.curPlane[s];
        if (!prev || !cur)
            return false;
        const LevelsSet& set = p.sets[s + 1];
        image.ApplyLevels(pending, prev, cur, set.black, set.midtone, set.midtoneIntensity,
                          set.blackGamma, set.whiteGamma, set.white, set.outputBlack,
                          set.outputWhite);
    }
    return true;
}

namespace {

bool ReplayLevels(Image& image, const std::string& text, const ReplayContext&, std::string* error) {
    LevelsParams p;
    return ParseLevels(text, &p, error) && ApplyLevelsParams(image, p);
}

bool RoundTripLevels(const std::string& text, std::string* formatted) {
    LevelsParams p;
    if (!ParseLevels(text, &p, nullptr))
        return false;
    *formatted = FormatLevels(p);
    return true;
}

} // namespace

OperatorDescriptor LevelsDescriptor() {
    OperatorDescriptor d;
    d.name = "Levels";
    d.replay = ReplayLevels;
    d.roundTrip = RoundTripLevels;
    LevelsParams p;
    d.examples.push_back(FormatLevels(p));
    p.channel = "Green";
    p.level = LevelsEntry::WhiteGamma;
    p.sets[2].white = 50000;
    p.sets[2].midtone = 20000;
    p.sets[2].whiteGamma = 0.75;
    p.sets[1].black = 1200;
    p.sets[1].blackGamma = 2.5;
    p.sets[3].outputWhite = 60000;
    p.sets[0].black = 1200;
    d.examples.push_back(FormatLevels(p));
    p.channel = "Monochrome";
    p.level = LevelsEntry::OutputBlack;
    p.sets[1].outputBlack = 500;
    d.examples.push_back(FormatLevels(p));
    return d;
}

} // namespace astrivelle
