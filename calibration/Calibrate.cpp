// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Calibrating light frames: one plane, the automatic dark scale, the hot pixel pass,
/// the per-colour and direct branches, and the cards recording the calibration.
#include "calibration/Calibrate.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <new>

#include "engine/Image.h"
#include "engine/Parallel.h"

namespace astrivelle {

double AdaptiveFraction(const std::string& level) {
    if (level == "Normal")
        return 0.9995;
    if (level == "High")
        return 0.999;
    if (level == "Highest")
        return 0.998;
    return 0.999;
}

std::uint32_t HotPixelThreshold(const float* dark, std::size_t count, double fraction) {
    if (!dark || count == 0)
        return 65535;
    std::vector<std::uint64_t> bins(65536, 0);
    for (std::size_t i = 0; i < count; ++i) {
        const double v = std::nearbyint(static_cast<double>(dark[i]));
        if (v >= 0 && v <= 65535)
            ++bins[static_cast<std::size_t>(v)];
    }
    std::uint64_t sum = 0;
    for (std::uint32_t b = 0; b < 65536; ++b) {
        sum += bins[b];
        if (static_cast<double>(sum) / static_cast<double>(count) >= fraction)
            return b;
    }
    return 65535;
}

namespace {

/// Mirror at the edges without repeating the edge pixel: -1 -> 1, n -> n - 2.
inline int Reflect(int i, int n) {
    if (n == 1)
        return 0;
    while (i < 0 || i >= n) {
        if (i < 0)
            i = -i;
        if (i >= n)
            i = 2 * n - 2 - i;
    }
    return i;
}

constexpr int kSampleRadius = 15;
constexpr int kSampleSide = 2 * kSampleRadius + 1;
constexpr int kPathInset = 20;

double WindowMean(const float* plane, int w, int h, int cx, int cy) {
    double sum = 0;
    for (int dy = -kSampleRadius; dy <= kSampleRadius; ++dy) {
        const float* row = plane + static_cast<std::size_t>(Reflect(cy + dy, h)) * w;
        for (int dx = -kSampleRadius; dx <= kSampleRadius; ++dx)
            sum += row[Reflect(cx + dx, w)];
    }
    return sum / (kSampleSide * kSampleSide);
}

} // namespace

double FindDarkFactor(const float* plane, const float* dark, const float* bias, int w, int h,
                      double given) {
    if (w <= 72 || h <= 72 || !plane || !dark)
        return given;
    // The darkest window along the path 20 pixels inside the edges.
    double best = std::numeric_limits<double>::infinity();
    int bx = kPathInset, by = kPathInset;
    auto consider = [&](int x, int y) {
        const double m = WindowMean(plane, w, h, x, y);
        if (m < best) {
            best = m;
            bx = x;
            by = y;
        }
    };
    for (int x = kPathInset; x <= w - 21; ++x)
        consider(x, h - kPathInset);
    for (int x = kPathInset; x <= w - 21; ++x)
        consider(x, kPathInset);
    for (int y = kPathInset; y <= h - 21; ++y)
        consider(kPathInset, y);
    for (int y = kPathInset; y <= h - 21; ++y)
        consider(w - kPathInset, y);

    double p[kSampleSide * kSampleSide], d[kSampleSide * kSampleSide];
    int n = 0;
    for (int dy = -kSampleRadius; dy <= kSampleRadius; ++dy) {
        const std::size_t row = static_cast<std::size_t>(Reflect(by + dy, h)) * w;
        for (int dx = -kSampleRadius; dx <= kSampleRadius; ++dx) {
            const std::size_t i = row + Reflect(bx + dx, w);
            double pv = plane[i], dv = dark[i];
            if (bias) {
                pv = std::max(pv - bias[i], 0.0);
                dv = std::max(dv - bias[i], 0.0);
            }
            p[n] = pv;
            d[n] = dv;
            ++n;
        }
    }
    double bestFactor = 0, bestSpread = std::numeric_limits<double>::infinity();
    for (int k = 0; k <= 100; ++k) {
        const double f = k * 0.05;
        double sum = 0, sum2 = 0;
        int used = 0;
        for (int i = 0; i < n; ++i) {
            if (p[i] == -1.0)
                continue;
            const double v = p[i] - f * d[i];
            sum += v;
            sum2 += v * v;
            ++used;
        }
        if (used == 0)
            return given;
        const double spread = sum2 - sum * sum / used;
        if (spread < bestSpread) {
            bestSpread = spread;
            bestFactor = f;
        }
    }
    return bestFactor;
}

void HotPixelPass(float* target, const float* dark, int w, int h, double threshold,
                  double maxValue) {
    if (!target || !dark)
        return;
    ParallelRows(h, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* drow = dark + static_cast<std::size_t>(y) * w;
            float* trow = target + static_cast<std::size_t>(y) * w;
            const float* r0 = target + static_cast<std::size_t>(Reflect(y - 5, h)) * w;
            const float* r1 = target + static_cast<std::size_t>(Reflect(y - 4, h)) * w;
            const float* r2 = target + static_cast<std::size_t>(Reflect(y - 3, h)) * w;
            for (int x = 0; x < w; ++x) {
                if (drow[x] < threshold)
                    continue;
                // The first 25 of the 11 x 11 window in row order: two rows and three more.
                double sum = 0;
                for (int dx = -5; dx <= 5; ++dx)
                    sum += r0[Reflect(x + dx, w)] + r1[Reflect(x + dx, w)];
                for (int dx = -5; dx <= -3; ++dx)
                    sum += r2[Reflect(x + dx, w)];
                trow[x] = static_cast<float>(Image::ClampValue(sum / 25.0, 0.0, maxValue));
            }
        }
    });
}

bool CalibratePlane(float* source, float* target, int w, int h, double maxValue,
                    const PlaneCalibration& a, double* factorUsed) {
    if (factorUsed)
        *factorUsed = a.darkFactor;
    if (!a.useFlat && !a.useDark && !a.useBias)
        return true;
    const std::size_t n = static_cast<std::size_t>(w) * h;
    std::copy(target, target + n, source);
    const bool darkActive = a.useDark && !a.noDarkSubtract && a.dark;
    const bool useBias = a.useBias && a.bias;
    const bool useFlat = a.useFlat && a.flat;
    const bool biasInFlat = useBias && !a.flatIsDarkSubtracted;

    double flatMean = 0;
    if (useFlat) {
        double sum = 0;
        for (std::size_t i = 0; i < n; ++i)
            sum += biasInFlat ? static_cast<double>(a.flat[i]) - a.bias[i] : a.flat[i];
        flatMean = sum / static_cast<double>(n);
    }
    double factor = a.darkFactor;
    if (a.autoDarkMatch && darkActive)
        factor = FindDarkFactor(source, a.dark, useBias ? a.bias : nullptr, w, h, a.darkFactor);
    if (factorUsed)
        *factorUsed = factor;

    const bool autoWithBias = a.autoDarkMatch && darkActive && useBias;
    const double overall = a.overallFactor;
    ParallelRows(h, [&](int y0, int y1) {
        for (std::size_t i = static_cast<std::size_t>(y0) * w; i < static_cast<std::size_t>(y1) * w;
             ++i) {
            double s = source[i];
            if (autoWithBias) {
                const double b = a.bias[i];
                s = std::max(s - b, 0.0);
                const double d = std::max(static_cast<double>(a.dark[i]) - b, 0.0);
                s = s - factor * d;
            } else if (darkActive) {
                s = s - factor * a.dark[i];
            } else if (useBias) {
                s = s - a.bias[i];
            }
            double result;
            if (useFlat) {
                double fc = biasInFlat ? static_cast<double>(a.flat[i]) - a.bias[i] : a.flat[i];
                if (fc == 0) {
                    fc = 1;
                    if (s == 0)
                        s = 1;
                }
                result = flatMean / fc * s * overall;
            } else {
                result = s * overall;
            }
            target[i] = static_cast<float>(Image::ClampValue(result, 0.0, maxValue));
        }
    });
    if ((a.hotPixelReduce && darkActive) || (a.noDarkSubtract && a.useDark && a.dark))
        HotPixelPass(target, a.dark, w, h, a.darkThreshold, maxValue);
    return true;
}

CalibrateOptions OptionsOfSetup(const CalibrationSetup& s) {
    CalibrateOptions o;
    o.colorModel = s.colorModel;
    o.useFlat = s.useFlat && !s.flatPath.empty();
    o.useFlatDark = o.useFlat && s.useFlatDark && !s.flatDarkPath.empty();
    o.useDark = s.useDark && !s.darkPath.empty();
    o.useBias = s.useBias && !s.biasPath.empty();
    o.darkFactor = s.darkFactor;
    o.overallFactor = s.overallFactor;
    o.autoDarkMatch = s.autoDarkMatch;
    o.adaptiveWithDark = s.adaptiveWithDark;
    o.adaptiveWithoutDark = s.adaptiveWithoutDark;
    o.adaptiveLevel = s.adaptiveLevel;
    o.bayerData = s.bayerData;
    o.cfaPattern = s.cfaPattern;
    return o;
}

bool UsesColourBranch(const CalibrateOptions& o, int width, int height) {
    return o.colorModel == "MONO" && o.bayerData && width % 2 == 0 && height % 2 == 0 &&
           (o.autoDarkMatch || o.adaptiveWithDark || o.adaptiveWithoutDark);
}

bool ComputeHotPixelThresholds(const CalibrateOptions& o, const CalibrationFrames& frames,
                               HotPixelThresholds* t, std::string* text) {
    *t = HotPixelThresholds{};
    if (!o.useDark || !(o.adaptiveWithDark || o.adaptiveWithoutDark) || !frames.dark.loaded)
        return true;
    const double fraction = AdaptiveFraction(o.adaptiveLevel);
    try {
        if (o.colorModel == "COLOR") {
            for (int c = 0; c < 3; ++c)
                t->value[c] = HotPixelThreshold(frames.dark.plane[c].data(),
                                                frames.dark.plane[c].size(), fraction);
        } else if (frames.splitColours) {
            for (int c = 0; c < 3; ++c)
                t->value[c] = HotPixelThreshold(frames.dark.set[c].data(),
                                                frames.dark.set[c].size(), fraction);
        } else {
            t->value[0] = HotPixelThreshold(frames.dark.plane[0].data(),
                                            frames.dark.plane[0].size(), fraction);
        }
    } catch (const std::bad_alloc&) {
        *text = "Could not allocate memory";
        return false;
    }
    return true;
}

namespace {

PlaneCalibration ArgsFor(const CalibrateOptions& o, const CalibrationFrames& frames, int index,
                         bool perColour, const HotPixelThresholds& t) {
    PlaneCalibration a;
    a.flat = o.useFlat ? frames.Plane(frames.flat, index, perColour) : nullptr;
    a.dark = o.useDark ? frames.Plane(frames.dark, index, perColour) : nullptr;
    a.bias = o.useBias ? frames.Plane(frames.bias, index, perColour) : nullptr;
    a.darkFactor = o.darkFactor;
    a.overallFactor = o.overallFactor;
    a.flatIsDarkSubtracted = o.useFlatDark;
    a.useFlat = a.flat != nullptr;
    a.useDark = a.dark != nullptr;
    a.useBias = a.bias != nullptr;
    a.hotPixelReduce = o.adaptiveWithDark;
    a.darkThreshold = t.value[index];
    a.autoDarkMatch = o.autoDarkMatch;
    a.noDarkSubtract = o.adaptiveWithoutDark;
    return a;
}

} // namespace

bool CalibrateImage(Image& image, const std::string& name, const CalibrateOptions& o,
                    const CalibrationFrames& frames, const HotPixelThresholds& t, std::string* text,
                    std::vector<double>* factorsUsed) {
    if (factorsUsed)
        factorsUsed->clear();
    const int w = image.width, h = image.height;
    const double maxValue = image.maxValue > 1 ? image.maxValue : 65535.0;
    const std::size_t n = static_cast<std::size_t>(w) * h;
    const bool colour = image.colorType == ColorRGB;
    const bool perColour =
        !colour && UsesColourBranch(o, frames.width, frames.height) && frames.splitColours;
    if (perColour && w % 2 != 0) {
        *text = "Error width not divisible by 2 use Images Size with Filter Files to remove "
                "the right column " +
                name;
        return false;
    }
    if (w != frames.width || h != frames.height) {
        *text = "The system frames do not match the size of " + name;
        return false;
    }
    if (perColour) {
        BayerSplitFn split = BayerSplitSeam();
        BayerCombineFn combine = BayerCombineSeam();
        if (!split || !combine) {
            *text = kBayerSeamMissingText;
            return false;
        }
        float* mosaic = image.curPlane[image.Slots().front()];
        const std::size_t quarter = static_cast<std::size_t>(w / 2) * (h / 2);
        std::vector<float> sets[3], spare;
        try {
            sets[0].resize(quarter);
            sets[1].resize(quarter * 2);
            sets[2].resize(quarter);
            spare.resize(quarter * 2);
        } catch (const std::bad_alloc&) {
            *text = "Could not allocate memory";
            return false;
        }
        if (!split(mosaic, w, h, o.cfaPattern, sets[0].data(), sets[1].data(), sets[2].data())) {
            *text = "Red Calibrate Error " + name;
            return false;
        }
        static const char* errors[3] = {"Red Calibrate Error ", "Green Calibrate Error ",
                                        "Blue Calibrate Error "};
        for (int c = 0; c < 3; ++c) {
            const int sh = c == 1 ? h : h / 2;
            double used = o.darkFactor;
            if (!CalibratePlane(spare.data(), sets[c].data(), w / 2, sh, maxValue,
                                ArgsFor(o, frames, c, true, t), &used)) {
                *text = errors[c] + name;
                return false;
            }
            if (factorsUsed)
                factorsUsed->push_back(used);
        }
        if (!combine(sets[0].data(), sets[1].data(), sets[2].data(), w, h, o.cfaPattern, mosaic)) {
            *text = "Blue Calibrate Error " + name;
            return false;
        }
        return true;
    }
    std::vector<float> spare;
    try {
        spare.resize(n);
    } catch (const std::bad_alloc&) {
        *text = "Could not allocate memory";
        return false;
    }
    const std::vector<int> slots = image.Slots();
    for (std::size_t k = 0; k < slots.size(); ++k) {
        const int index = colour ? static_cast<int>(k) : 0;
        double used = o.darkFactor;
        if (!image.curPlane[slots[k]] ||
            !CalibratePlane(spare.data(), image.curPlane[slots[k]], w, h, maxValue,
                            ArgsFor(o, frames, index, false, t), &used)) {
            static const char* errors[3] = {"Red Calibrate Error ", "Green Calibrate Error ",
                                            "Blue Calibrate Error "};
            *text = errors[index] + name;
            return false;
        }
        if (factorsUsed)
            factorsUsed->push_back(used);
    }
    return true;
}

HeaderList CalibrationCards(const CalibrateOptions& o) {
    HeaderList cards;
    auto add = [&](const std::string& comment) {
        CFITSHeader c;
        c.key = "COMMENT";
        c.comment = comment;
        c.dataType = CardString;
        cards.push_back(std::move(c));
    };
    char buf[160];
    if (o.autoDarkMatch) {
        std::snprintf(buf, sizeof buf, "QX Calibrate - Color Model : %s", o.colorModel.c_str());
    } else {
        std::snprintf(buf, sizeof buf, "QX Calibrate - Color Model : %s, overall factor %5.3f",
                      o.colorModel.c_str(), o.overallFactor);
    }
    add(buf);
    if (o.useFlat)
        add("QX Calibrate - Use Flat");
    if (o.useBias)
        add("QX Calibrate - Use Bias");
    if (o.useDark) {
        if (o.autoDarkMatch) {
            add("QX Calibrate - Use Dark : auto factor");
        } else {
            std::snprintf(buf, sizeof buf, "QX Calibrate - Use Dark : factor %5.3f", o.darkFactor);
            add(buf);
        }
        if (o.adaptiveWithDark && o.adaptiveWithoutDark)
            add("QX Calibrate -   Adaptive: Yes - no dark subtract");
        else if (o.adaptiveWithDark)
            add("QX Calibrate -   Adaptive: Yes - dark subtract");
        else
            add("QX Calibrate -   Adaptive: No");
    }
    return cards;
}

std::string AppliedText(const CalibrateOptions& o) {
    std::string s = "Applied :";
    if (o.useDark)
        s += " Dark,";
    if (o.useFlat)
        s += " Flat,";
    if (o.useFlatDark)
        s += " Flat Dark,";
    if (o.useBias)
        s += " Bias,";
    if (o.adaptiveWithDark)
        s += " hot pixel reduce,";
    if (o.adaptiveWithoutDark)
        s += " no dark subtract,";
    if (o.autoDarkMatch)
        s += " auto dark match,";
    if (o.bayerData)
        s += " to Bayer Data,";
    return s;
}

} // namespace astrivelle
