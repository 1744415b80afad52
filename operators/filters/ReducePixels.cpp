// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Reduce High, Low, Bloom Pixel: detection of isolated high and low pixels by seven
/// neighbour sets, replacement from the effect window, the row scan of bloom streaks; the
/// parameter text, the three default presets, the operator function and the replay.
#include "operators/ReducePixels.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

#include "engine/Image.h"
#include "engine/Parallel.h"
#include "engine/ParamText.h"
#include "engine/ProcessWindow.h"
#include "operators/FilterSupport.h"

namespace astrivelle {

namespace {

/// Largest effect window: 11 x 11.
constexpr int kMaxSide = 11;
/// The bloom replacement averages at most this many unmarked values.
constexpr int kBloomValues = 50;

/// The neighbour sets, as bits over UL, U, UR, L, R, DL, D, DR (bit 0 to bit 7).
enum : unsigned { UL = 1, U = 2, UR = 4, L = 8, R = 16, DL = 32, D = 64, DR = 128 };
constexpr unsigned kSets[7] = {
    0xFF,                 // all eight
    UL | U | UR | L | DL, // top row and left side
    UL | U | UR | R | DR, // top row and right side
    DL | D | DR | UL | L, // bottom row and left side
    DL | D | DR | UR | R, // bottom row and right side
    UL | UR | DL | DR,    // corners
    U | L | R | D,        // sides
};

/// The eight neighbours of (x, y) by the mirror rule, in the order of the bits above.
inline void Neighbours(const float* p, int w, int h, int x, int y, double n[8]) {
    const int xl = MirrorIndex(x, -1, w), xr = MirrorIndex(x, 1, w);
    const float* up = p + static_cast<std::size_t>(MirrorIndex(y, -1, h)) * w;
    const float* mid = p + static_cast<std::size_t>(y) * w;
    const float* dn = p + static_cast<std::size_t>(MirrorIndex(y, 1, h)) * w;
    n[0] = up[xl];
    n[1] = up[x];
    n[2] = up[xr];
    n[3] = mid[xl];
    n[4] = mid[xr];
    n[5] = dn[xl];
    n[6] = dn[x];
    n[7] = dn[xr];
}

/// High: H at or above every neighbour of a set.
inline bool IsHigh(const double n[8], double hv) {
    for (unsigned set : kSets) {
        bool all = true;
        for (int i = 0; i < 8 && all; ++i)
            if ((set >> i) & 1u)
                all = hv >= n[i];
        if (all)
            return true;
    }
    return false;
}

/// Low: every neighbour of a set at or above L.
inline bool IsLow(const double n[8], double lv) {
    for (unsigned set : kSets) {
        bool all = true;
        for (int i = 0; i < 8 && all; ++i)
            if ((set >> i) & 1u)
                all = n[i] >= lv;
        if (all)
            return true;
    }
    return false;
}

/// The effect window about (x, y) without its centre, by the mirror rule, into `out`; returns
/// the count.
inline int EffectValues(const float* p, int w, int h, int x, int y, int half, double* out) {
    int k = 0;
    for (int dy = -half; dy <= half; ++dy) {
        const float* row = p + static_cast<std::size_t>(MirrorIndex(y, dy, h)) * w;
        for (int dx = -half; dx <= half; ++dx)
            if (dx != 0 || dy != 0)
                out[k++] = row[MirrorIndex(x, dx, w)];
    }
    return k;
}

} // namespace

bool Image::ReduceHighLow(bool pending, float* prev, float* cur, ReducePixelKind reduce,
                          bool lowStrength, double difference, int windowSize, int effectSize) {
    if (!prev || !cur || width <= 0 || height <= 0)
        return false;
    if (!IsReducePixelsSize(windowSize) || !IsReducePixelsSize(effectSize))
        return false;
    if (!pending)
        CopyPlane(prev, cur);
    const int w = width, h = height;
    const int half = effectSize / 2;
    const double top = maxValue;

    if (reduce == ReducePixelKind::Bloom) {
        // Marks: one byte per pixel and two spare, as the scan's buffer is laid out.
        const std::size_t count = static_cast<std::size_t>(w) * h + 2;
        std::unique_ptr<std::uint8_t[]> marks(new (std::nothrow) std::uint8_t[count]());
        if (!marks)
            return false;
        const double k = std::max(1.0 - difference, 0.15);
        const double t = k * 65535.0;
        // The scan follows each row on one thread: a run's end decides where the next starts.
        for (int y = 0; y < h; ++y) {
            const float* row = prev + static_cast<std::size_t>(y) * w;
            std::uint8_t* mark = marks.get() + static_cast<std::size_t>(y) * w;
            int x = 0;
            while (x < w - 1) {
                const double start = row[x];
                if (row[x + 1] - start < t) {
                    ++x;
                    continue;
                }
                int j = x + 1;
                while (j < w && row[j] - start >= t)
                    mark[j++] = 1;
                x = j;
            }
        }
        const std::uint8_t* m = marks.get();
        ParallelRows(h, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y)
                for (int x = 0; x < w; ++x) {
                    const std::size_t i = static_cast<std::size_t>(y) * w + x;
                    double out = prev[i];
                    if (m[i]) {
                        double sum = 0;
                        int n = 0;
                        for (int dy = -half; dy <= half && n < kBloomValues; ++dy) {
                            const std::size_t r =
                                static_cast<std::size_t>(MirrorIndex(y, dy, h)) * w;
                            for (int dx = -half; dx <= half && n < kBloomValues; ++dx) {
                                const std::size_t j = r + MirrorIndex(x, dx, w);
                                if (!m[j]) {
                                    sum += prev[j];
                                    ++n;
                                }
                            }
                        }
                        if (n > 0)
                            out = sum / n;
                    }
                    cur[i] = static_cast<float>(ClampValue(out, 0.0, top));
                }
        });
        return true;
    }

    const bool testHigh = reduce == ReducePixelKind::High || reduce == ReducePixelKind::Both;
    const bool testLow = reduce == ReducePixelKind::Low || reduce == ReducePixelKind::Both;
    ParallelRows(h, [&](int y0, int y1) {
        double n[8];
        double window[kMaxSide * kMaxSide];
        for (int y = y0; y < y1; ++y)
            for (int x = 0; x < w; ++x) {
                const std::size_t i = static_cast<std::size_t>(y) * w + x;
                const double p = prev[i];
                Neighbours(prev, w, h, x, y, n);
                const bool found = (testHigh && IsHigh(n, std::trunc(difference * p))) ||
                                   (testLow && IsLow(n, std::trunc((2.0 - difference) * p)));
                double out = p;
                if (found) {
                    const int count = EffectValues(prev, w, h, x, y, half, window);
                    if (lowStrength) {
                        double sum = 0;
                        for (int k = 0; k < count; ++k)
                            sum += window[k];
                        out = sum / count;
                    } else {
                        double* mid = window + (count - 1) / 2;
                        std::nth_element(window, mid, window + count);
                        out = *mid;
                    }
                }
                cur[i] = static_cast<float>(ClampValue(out, 0.0, top));
            }
    });
    return true;
}

// ---- parameter text ---------------------------------------------------------------------

namespace {

constexpr const char* kKindWords[] = {"High", "Low", "Both", "Bloom"};
constexpr const char* kFormat = "Reduce : %s#Reduce Strength : %s#Difference : %6.5f#"
                                "Window Size : %d x %d#Effect Size : %d x %d#";

/// "n x n" of the size list into `side`.
bool ReadSquare(const std::string& value, int* side) {
    int a = 0, b = 0;
    char tail = 0;
    if (std::sscanf(value.c_str(), "%d x %d%c", &a, &b, &tail) != 2 || a != b ||
        !IsReducePixelsSize(a))
        return false;
    *side = a;
    return true;
}

struct Preset {
    const char* name;
    ReducePixelsParams params;
};

const Preset kPresets[3] = {
    {"Default High Pixel Reduction", {ReducePixelKind::High, false, 0.5, 5, 5}},
    {"Default Small Bloom Pixel Reduction", {ReducePixelKind::Bloom, false, 0.6, 5, 5}},
    {"Default Large Bloom Pixel Reduction", {ReducePixelKind::Bloom, false, 0.084, 9, 11}},
};

} // namespace

const char* ReducePixelKindWord(ReducePixelKind kind) {
    const int k = static_cast<int>(kind);
    return k >= 0 && k < 4 ? kKindWords[k] : "";
}

bool IsReducePixelsSize(int side) {
    return side >= 3 && side <= kMaxSide && side % 2 == 1;
}

bool ReducePixelsParamsValid(const ReducePixelsParams& p) {
    const int k = static_cast<int>(p.reduce);
    return k >= 0 && k < 4 && p.difference >= 0.0 && p.difference <= 1.0 &&
           IsReducePixelsSize(p.windowSize) && IsReducePixelsSize(p.effectSize);
}

std::string FormatReducePixels(const ReducePixelsParams& p) {
    return FormatText(kFormat, ReducePixelKindWord(p.reduce), p.lowStrength ? "Low" : "Normal",
                      p.difference, p.windowSize, p.windowSize, p.effectSize, p.effectSize);
}

bool ParseReducePixels(const std::string& text, ReducePixelsParams* params, std::string* error) {
    std::string rest = text, value;
    auto fail = [&](const char* what) {
        if (error)
            *error = std::string(kReducePixelsName) + ": " + what + " in \"" + text + "\"";
        return false;
    };
    ReducePixelsParams p;
    if (!NextValue(&value, &rest))
        return fail("reduce missing");
    const auto* word = std::find(std::begin(kKindWords), std::end(kKindWords), value);
    if (word == std::end(kKindWords))
        return fail("unknown reduce");
    p.reduce = static_cast<ReducePixelKind>(word - std::begin(kKindWords));
    if (!NextValue(&value, &rest))
        return fail("reduce strength missing");
    if (value != "Low" && value != "Normal")
        return fail("unknown reduce strength");
    p.lowStrength = value == "Low";
    if (!NextValue(&value, &rest))
        return fail("difference missing");
    char* end = nullptr;
    p.difference = std::strtod(value.c_str(), &end);
    if (end == value.c_str() || *end != '\0' || !(p.difference >= 0.0 && p.difference <= 1.0))
        return fail("difference not from 0 to 1");
    if (!NextValue(&value, &rest))
        return fail("window size missing");
    if (!ReadSquare(value, &p.windowSize))
        return fail("window size not 3, 5, 7, 9 or 11 square");
    if (!NextValue(&value, &rest))
        return fail("effect size missing");
    if (!ReadSquare(value, &p.effectSize))
        return fail("effect size not 3, 5, 7, 9 or 11 square");
    *params = p;
    return true;
}

std::string FormatReducePixelsPreset(const std::string& name, const ReducePixelsParams& params) {
    return name + "#" + FormatReducePixels(params);
}

bool ParseReducePixelsPreset(const std::string& entry, std::string* name,
                             ReducePixelsParams* params, std::string* error) {
    std::string rest = entry, field;
    if (!NextField(&field, &rest)) {
        if (error)
            *error = std::string(kReducePixelsName) + ": entry without a name";
        return false;
    }
    if (!ParseReducePixels(rest, params, error))
        return false;
    *name = field;
    return true;
}

std::vector<std::string> ReducePixelsDefaultPresets() {
    std::vector<std::string> out;
    for (const Preset& p : kPresets)
        out.push_back(FormatReducePixelsPreset(p.name, p.params));
    return out;
}

bool IsReducePixelsDefaultName(const std::string& name) {
    for (const Preset& p : kPresets)
        if (name == p.name)
            return true;
    return false;
}

// ---- replay and operator function --------------------------------------------------------

bool ApplyReducePixels(Image& image, const ReducePixelsParams& p, std::string* error) {
    if (!ReducePixelsParamsValid(p)) {
        if (error)
            *error = std::string(kReducePixelsName) + ": parameters out of range";
        return false;
    }
    for (int s : image.Slots())
        if (!image.ReduceHighLow(false, image.prevPlane[s], image.curPlane[s], p.reduce,
                                 p.lowStrength, p.difference, p.windowSize, p.effectSize)) {
            if (error)
                *error = kReducePixelsNoMemoryText;
            return false;
        }
    return true;
}

bool CProcessWindow::ReducePixels(const ReducePixelsParams& p) {
    if (!ReducePixelsParamsValid(p))
        return false;
    return RunOperator(kReducePixelsName, FormatReducePixels(p), [&](bool pending) {
        for (int s : SelectedSlots())
            if (!image.ReduceHighLow(pending, image.prevPlane[s], image.curPlane[s], p.reduce,
                                     p.lowStrength, p.difference, p.windowSize, p.effectSize)) {
                // The planes done so far go back to the step's input.
                for (int t : SelectedSlots())
                    if (image.prevPlane[t] && image.curPlane[t])
                        image.CopyPlane(image.curPlane[t], image.prevPlane[t]);
                notify().Message(kReducePixelsNoMemoryText);
                return false;
            }
        return true;
    });
}

namespace {

bool ReplayReducePixels(Image& image, const std::string& text, const ReplayContext&,
                        std::string* error) {
    ReducePixelsParams p;
    return ParseReducePixels(text, &p, error) && ApplyReducePixels(image, p, error);
}

bool RoundTripReducePixels(const std::string& text, std::string* formatted) {
    ReducePixelsParams p;
    if (!ParseReducePixels(text, &p, nullptr))
        return false;
    *formatted = FormatReducePixels(p);
    return true;
}

} // namespace

OperatorDescriptor ReducePixelsDescriptor() {
    OperatorDescriptor d;
    d.name = kReducePixelsName;
    d.replay = ReplayReducePixels;
    d.roundTrip = RoundTripReducePixels;
    for (const Preset& p : kPresets)
        d.examples.push_back(FormatReducePixels(p.params));
    ReducePixelsParams both;
    both.reduce = ReducePixelKind::Both;
    both.lowStrength = true;
    both.difference = 0.25;
    both.windowSize = 3;
    both.effectSize = 7;
    d.examples.push_back(FormatReducePixels(both));
    return d;
}

} // namespace astrivelle
