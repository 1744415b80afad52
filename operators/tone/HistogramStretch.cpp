// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Histogram Contrast Stretch: a plane remapped through its own cumulative histogram,
/// flattened or steepened by a power first; its parameter text and its replay. One sequential
/// pass to count and one to map.
#include <cmath>
#include <cstdlib>
#include <vector>

#include "engine/ParamText.h"
#include "operators/Curves.h"

namespace astrivelle {

namespace {

constexpr int kLevels = 65536;

const char* kTypeNames[6] = {"Uniform",    "Exponential", "Rayleigh",
                             "Hyperbolic", "Logarithmic", "Bkg-High Contrast"};

/// The level of a value: truncated, kept inside the tables.
inline int LevelOf(double v) {
    if (!(v > 0.0)) // NaN too
        return 0;
    if (v >= kLevels - 1)
        return kLevels - 1;
    return static_cast<int>(v);
}

/// Running sum from level 0 upward; returns the last entry, with 0 taken as 1.
double Accumulate(std::vector<double>& t) {
    double sum = 0.0;
    for (double& v : t) {
        sum += v;
        v = sum;
    }
    return sum == 0.0 ? 1.0 : sum;
}

} // namespace

const char* HistogramStretchTypeName(int type) {
    return type >= 1 && type <= 6 ? kTypeNames[type - 1] : "";
}

void Image::HistogramStretch(bool pending, float* prev, float* cur, int type, double scale,
                             double highlightScale, double highlightBreak, double backgroundScale,
                             double backgroundBreak) {
    if (!prev || !cur)
        return;
    if (!pending)
        CopyPlane(prev, cur);
    const std::size_t n = static_cast<std::size_t>(width) * height;
    const double count = n > 0 ? static_cast<double>(n) : 1.0;
    const double top = maxValue;
    const double m1 = top - 1.0;
    const double hLevel = static_cast<int>(highlightBreak * 65535.0);
    const double bLevel = static_cast<int>(backgroundBreak * 65535.0);
    std::vector<double> h(kLevels, 0.0), b, g;
    const bool bkgHigh = type == 6;
    if (bkgHigh) {
        b.assign(kLevels, 0.0);
        g.assign(kLevels, 0.0);
    }

    // 1. Count (a pixel may count as background and highlight both).
    for (std::size_t i = 0; i < n; ++i) {
        const double v = prev[i];
        const int level = LevelOf(v);
        if (!bkgHigh) {
            h[level] += 1.0;
            continue;
        }
        if (v <= bLevel)
            b[level] += 1.0;
        if (v >= hLevel)
            g[level] += 1.0;
    }
    // 2. The power on the normalised histogram (0 ^ 0 is 1: empty levels count then).
    if (type >= 1 && type <= 5) {
        for (double& v : h)
            v = std::pow(v / count, scale);
    } else if (bkgHigh) {
        for (double& v : b)
            v = std::pow(v / count, backgroundScale);
        for (double& v : g)
            v = std::pow(v / count, highlightScale);
    }
    // 3. and 4. Cumulative tables and the mapping.
    if (bkgHigh) {
        const double tb = Accumulate(b), tg = Accumulate(g);
        for (int i = 0; i < kLevels; ++i) {
            b[i] = m1 * b[i] / tb;
            g[i] = m1 * g[i] / tg;
        }
    } else {
        const double total = Accumulate(h);
        for (int i = 0; i < kLevels; ++i) {
            const double c = h[i] / total;
            switch (type) {
            case 1:
                h[i] = m1 * c;
                break;
            case 2:
                h[i] = m1 * std::log(2.7 * c + 1.0);
                break;
            case 3: {
                double d = 1.0 - c;
                if (d == 0.0)
                    d = 0.01;
                h[i] = m1 * std::sqrt(2.0 * scale * scale * std::log(1.0 / d));
                break;
            }
            case 4:
                h[i] = m1 * 2.0 * scale * c * c * c;
                break;
            case 5:
                h[i] = std::pow(m1, c) * scale * 10.0;
                break;
            default:
                break; // an unknown type keeps the running sum
            }
        }
    }
    // 5. Map.
    for (std::size_t i = 0; i < n; ++i) {
        const int level = LevelOf(prev[i]);
        const double out = bkgHigh ? (1.0 - scale) * b[level] + scale * g[level] : h[level];
        cur[i] = static_cast<float>(ClampValue(out, 0.0, top));
    }
}

// ---- parameter text -----------------------------------------------------------------------

std::string FormatHistogramStretch(const HistogramStretchParams& p) {
    const char* scaleWord = p.type == 6 ? "Blend" : "Scale";
    return FormatText("Type : %s#%s : %6.4f#Highlight Scale : %6.4f#Highlight Break : %6.4f#"
                      "Background Scale : %6.4f#Background Break : %6.4f#",
                      HistogramStretchTypeName(p.type), scaleWord, p.scale, p.highlightScale,
                      p.highlightBreak, p.backgroundScale, p.backgroundBreak);
}

bool ParseHistogramStretch(const std::string& text, HistogramStretchParams* params,
                           std::string* error) {
    std::string rest = text, value;
    auto fail = [&](const std::string& what) {
        if (error)
            *error = "Histogram Contrast Stretch: " + what + " missing in \"" + text + "\"";
        return false;
    };
    HistogramStretchParams p;
    if (!NextValue(&value, &rest))
        return fail("type");
    p.type = 0;
    for (int k = 1; k <= 6; ++k)
        if (value == kTypeNames[k - 1])
            p.type = k;
    if (p.type == 0)
        return fail("type");
    double* fields[] = {&p.scale, &p.highlightScale, &p.highlightBreak, &p.backgroundScale,
                        &p.backgroundBreak};
    const char* names[] = {"scale", "highlight scale", "highlight break", "background scale",
                           "background break"};
    for (int k = 0; k < 5; ++k) {
        if (!NextValue(&value, &rest))
            return fail(names[k]);
        *fields[k] = std::atof(value.c_str());
    }
    *params = p;
    return true;
}

bool ApplyHistogramStretchParams(Image& image, const HistogramStretchParams& p, bool pending) {
    if (p.type < 1 || p.type > 6)
        return false;
    for (int s : image.Slots()) {
        float* prev = image.prevPlane[s];
        float* cur = image.curPlane[s];
        if (!prev || !cur)
            return false;
        image.HistogramStretch(pending, prev, cur, p.type, p.scale, p.highlightScale,
                               p.highlightBreak, p.backgroundScale, p.backgroundBreak);
    }
    return true;
}

namespace {

bool ReplayHistogramStretch(Image& image, const std::string& text, const ReplayContext&,
                            std::string* error) {
    HistogramStretchParams p;
    return ParseHistogramStretch(text, &p, error) && ApplyHistogramStretchParams(image, p);
}

bool RoundTripHistogramStretch(const std::string& text, std::string* formatted) {
    HistogramStretchParams p;
    if (!ParseHistogramStretch(text, &p, nullptr))
        return false;
    *formatted = FormatHistogramStretch(p);
    return true;
}

} // namespace

OperatorDescriptor HistogramStretchDescriptor() {
    OperatorDescriptor d;
    d.name = "Histogram Contrast Stretch";
    d.replay = ReplayHistogramStretch;
    d.roundTrip = RoundTripHistogramStretch;
    for (int type = 1; type <= 6; ++type) {
        HistogramStretchParams p;
        p.type = type;
        p.scale = 0.1 * type;
        d.examples.push_back(FormatHistogramStretch(p));
    }
    return d;
}

} // namespace astrivelle
