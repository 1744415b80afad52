// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Unsharp Mask: a weighted blur (or the median) of the window, scaled by the background
/// weight, taken off the pixel; or a binarization by the same measure. Its text and replay.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>

#include "engine/Image.h"
#include "engine/ParamText.h"
#include "operators/Restoration.h"
#include "operators/filters/ConvolveRows.h"

namespace astrivelle {

std::vector<double> BinomialRow(int side) {
    std::vector<double> row(static_cast<std::size_t>(side), 0.0);
    row[0] = 1.0;
    for (int k = 1; k < side; ++k)
        for (int j = k; j > 0; --j)
            row[j] += row[j - 1];
    return row;
}

std::vector<double> UnsharpWeights(int filter, int radius, const double* custom) {
    const int n = 2 * radius + 1;
    std::vector<double> w(static_cast<std::size_t>(n) * n, 1.0);
    if (filter == UnsharpParams::Gauss) {
        const double v = double(n - 1) * double(n - 1) / 9.0;
        for (int dy = -radius; dy <= radius; ++dy)
            for (int dx = -radius; dx <= radius; ++dx)
                w[(dy + radius) * n + dx + radius] = std::exp(-(dx * dx + dy * dy) / v);
    } else if (filter == UnsharpParams::Binomial) {
        const std::vector<double> row = BinomialRow(n);
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x)
                w[y * n + x] = row[y] * row[x];
    } else if (filter == UnsharpParams::Custom && custom) {
        for (int j = 0; j < n * n; ++j)
            w[j] = custom[j];
    }
    return w;
}

bool CustomFilterWeights(const CCustomFilter& filter, std::vector<double>* weights,
                         std::string* error) {
    const int n = filter.size;
    if (n < 3 || n > 13 || n % 2 == 0)
        return false;
    weights->assign(filter.weights.begin(), filter.weights.begin() + n * n);
    double sum = 0;
    for (double v : *weights)
        sum += v;
    if (sum == 0.0) {
        if (error)
            *error = kCustomFilterSumZeroText;
        return false;
    }
    return true;
}

bool Image::UnsharpMask(bool pending, float* prev, float* cur, const double* customWeights,
                        int radius, int variant, int filter, double backgroundWeight, int threshold,
                        double strength, int applyMin, int applyMax, int feather,
                        bool reduceArtifacts) {
    if (!prev || !cur || radius < 1 || radius > kUnsharpMaxRadius || filter < UnsharpParams::Box ||
        filter > UnsharpParams::Custom || (filter == UnsharpParams::Custom && !customWeights))
        return false;
    const int n = 2 * radius + 1;
    std::vector<double> weights;
    try {
        weights = UnsharpWeights(filter, radius, customWeights);
    } catch (const std::bad_alloc&) {
        return false;
    }
    double sum = 0.0;
    for (double v : weights)
        sum += v;
    if (sum == 0.0)
        return false;
    for (double& v : weights)
        v /= sum;
    if (!pending)
        CopyPlane(prev, cur);

    const ApplyRange range(applyMin, applyMax, feather);
    const double top = maxValue;
    const double b = backgroundWeight, s = strength;
    const double scaleBack = 1.0 / (1.0 - b);
    const bool binarize = variant == UnsharpParams::Binarization;
    const double thr = threshold;
    auto pixel = [&](double p, double window) {
        double u = p;
        if (!range.Outside(p)) {
            const double sv = window * b;
            u = (p - sv) * scaleBack * s + (1.0 - s) * p;
            u = range.Feather(p, u);
        }
        if (reduceArtifacts && p > u)
            u = p;
        u = ClampValue(u, 0.0, top);
        if (binarize)
            return static_cast<float>(u > thr ? top : 0.0);
        return static_cast<float>(u);
    };
    const int w = width;
    if (filter == UnsharpParams::Median) {
        const int count = n * n;
        ParallelRows(height, [&](int y0, int y1) {
            double window[(2 * kUnsharpMaxRadius + 1) * (2 * kUnsharpMaxRadius + 1)];
            for (int y = y0; y < y1; ++y)
                for (int x = 0; x < w; ++x) {
                    const std::size_t i = static_cast<std::size_t>(y) * w + x;
                    const double p = prev[i];
                    double median = 0.0;
                    if (!range.Outside(p)) {
                        GatherMirror(prev, w, height, x, y, radius, window);
                        std::nth_element(window, window + count / 2, window + count);
                        median = window[count / 2];
                    }
                    cur[i] = pixel(p, median);
                }
        });
        return true;
    }
    conv::ConvolveRows(prev, w, height, weights.data(), radius, false, true,
                       [&](int y, int x0, int cnt, const double* acc, const std::uint8_t*) {
                           const std::size_t at = static_cast<std::size_t>(y) * w + x0;
                           for (int i = 0; i < cnt; ++i)
                               cur[at + i] = pixel(prev[at + i], acc[i]);
                       });
    return true;
}

// ---- parameter text ---------------------------------------------------------------------

namespace {
const char* kFilterWords[] = {"", "Box", "Median", "Gauss", "Binomial"};
}

std::string UnsharpFilterWord(const UnsharpParams& p) {
    if (p.filter == UnsharpParams::Custom)
        return p.customName;
    if (p.filter >= 1 && p.filter <= 4)
        return kFilterWords[p.filter];
    return "";
}

std::string FormatUnsharp(const UnsharpParams& p) {
    const int side = 2 * p.radius + 1;
    const std::string word = UnsharpFilterWord(p);
    std::string text;
    if (p.variant == UnsharpParams::Binarization)
        text = FormatText("Operation : Binarization#Window Size : %dx%d#Unsharp Filter : %s#"
                          "Background Weight : %6.4f#Threshold : %d#",
                          side, side, word.c_str(), p.backgroundWeight, p.threshold);
    else
        text = FormatText("Operation : Sharpen#Window Size : %dx%d#Unsharp Filter : %s#"
                          "Background Weight : %6.4f#",
                          side, side, word.c_str(), p.backgroundWeight);
    return text + FormatText("Reduce Artifacts : %s#Filter Strength : %6.4f#Apply Min : %d#"
                             "Apply Max : %d#Feather Range : %d#",
                             p.reduceArtifacts ? "Yes" : "No", p.strength, p.applyMin, p.applyMax,
                             p.feather);
}

bool ParseUnsharp(const std::string& text, UnsharpParams* params, std::string* error) {
    std::string rest = text, v;
    auto fail = [&](const char* what) {
        if (error)
            *error = std::string("Unsharp Mask: ") + what + " missing in \"" + text + "\"";
        return false;
    };
    UnsharpParams p;
    if (!NextValue(&v, &rest))
        return fail("operation");
    if (v == "Sharpen")
        p.variant = UnsharpParams::Sharpen;
    else if (v == "Binarization")
        p.variant = UnsharpParams::Binarization;
    else
        return fail("operation");
    if (!NextValue(&v, &rest))
        return fail("window size");
    p.radius = WindowSizeRadius(v);
    if (!NextValue(&v, &rest))
        return fail("unsharp filter");
    p.filter = UnsharpParams::Custom;
    for (int k = 1; k <= 4; ++k)
        if (v == kFilterWords[k])
            p.filter = k;
    if (p.filter == UnsharpParams::Custom)
        p.customName = v;
    if (!NextValue(&v, &rest))
        return fail("background weight");
    p.backgroundWeight = std::atof(v.c_str());
    if (p.variant == UnsharpParams::Binarization) {
        if (!NextValue(&v, &rest))
            return fail("threshold");
        p.threshold = std::atoi(v.c_str());
    }
    if (!NextValue(&v, &rest))
        return fail("reduce artifacts");
    p.reduceArtifacts = IsYes(v);
    if (!NextValue(&v, &rest))
        return fail("filter strength");
    p.strength = std::atof(v.c_str());
    if (!NextValue(&v, &rest))
        return fail("apply min");
    p.applyMin = std::atoi(v.c_str());
    if (!NextValue(&v, &rest))
        return fail("apply max");
    p.applyMax = std::atoi(v.c_str());
    if (!NextValue(&v, &rest))
        return fail("feather range");
    p.feather = std::atoi(v.c_str());
    *params = p;
    return true;
}

bool ApplyUnsharp(Image& image, const UnsharpParams& p, const CCustomFilter* custom,
                  std::string* error) {
    std::vector<double> weights;
    int radius = p.radius;
    if (p.filter == UnsharpParams::Custom) {
        if (!custom) {
            if (error)
                *error =
                    "Unsharp Mask: the custom filter \"" + p.customName + "\" is not available.";
            return false;
        }
        if (!CustomFilterWeights(*custom, &weights, error))
            return false;
        radius = (custom->size - 1) / 2;
    }
    for (int s : image.Slots())
        if (!image.UnsharpMask(false, image.prevPlane[s], image.curPlane[s],
                               weights.empty() ? nullptr : weights.data(), radius, p.variant,
                               p.filter, p.backgroundWeight, p.threshold, p.strength, p.applyMin,
                               p.applyMax, p.feather, p.reduceArtifacts)) {
            if (error)
                *error = "Unsharp Mask: the window of \"" + FormatUnsharp(p) + "\" can't be built.";
            return false;
        }
    return true;
}

namespace {

bool ReplayUnsharp(Image& image, const std::string& text, const ReplayContext& context,
                   std::string* error) {
    UnsharpParams p;
    return ParseUnsharp(text, &p, error) &&
           ApplyUnsharp(image, p, static_cast<const CCustomFilter*>(context.customFilter), error);
}

bool RoundTripUnsharp(const std::string& text, std::string* formatted) {
    UnsharpParams p;
    if (!ParseUnsharp(text, &p, nullptr))
        return false;
    *formatted = FormatUnsharp(p);
    return true;
}

} // namespace

OperatorDescriptor UnsharpMaskDescriptor() {
    OperatorDescriptor d;
    d.name = "Unsharp Mask";
    d.replay = ReplayUnsharp;
    d.roundTrip = RoundTripUnsharp;
    for (int filter = UnsharpParams::Box; filter <= UnsharpParams::Binomial; ++filter) {
        UnsharpParams p;
        p.filter = filter;
        p.radius = filter;
        p.backgroundWeight = 0.25 * filter - 0.05;
        p.reduceArtifacts = filter == UnsharpParams::Gauss;
        p.strength = filter == UnsharpParams::Median ? 0.75 : 1.0;
        if (filter == UnsharpParams::Binomial) {
            p.variant = UnsharpParams::Binarization;
            p.threshold = 500;
            p.applyMin = 100;
            p.applyMax = 60000;
            p.feather = 40;
        }
        d.examples.push_back(FormatUnsharp(p));
    }
    return d;
}

} // namespace astrivelle
