// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Image::Scale, the in-place resize of one slot's plane pair by nearest neighbour,
/// bilinear (3-pixel support) or cubic B-spline (5-pixel support) resampling.
///
/// Mapping: target pixel centres map back to source positions sx = (x + 0.5) / fx - 0.5 (and
/// the same for y), so that a 2x enlargement by nearest neighbour replicates each pixel and
/// both image edges are treated alike. The kernel is centred on the nearest source pixel
/// (floor(sx + 0.5)) with radius resampleType - 1; taps beyond the image read the edge pixel
/// (clamped coordinates). Weights are normalised by their sum, so a constant image stays
/// constant.
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "engine/Image.h"
#include "engine/Notify.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"

namespace astrivelle {

namespace {

constexpr const char* kNoFactor = "Could Not Determine The Image Factor - Image::Scale()";
constexpr const char* kNoScale = "No Scale Needed";
constexpr const char* kNoMemory = "System Out Of Memory For Scale Function.";

/// The cubic B-spline kernel: (P(t+2) - 4 P(t+1) + 6 P(t) - 4 P(t-1)) / 6, P(u) = u^3 for
/// u > 0, else 0. That sum is the B-spline on its support -2..2 only (beyond 2 the missing
/// P(t-2) term leaves a remainder), so the kernel is 0 outside it.
double BSpline(double t) {
    if (t <= -2.0 || t >= 2.0)
        return 0.0;
    auto P = [](double u) { return u > 0.0 ? u * u * u : 0.0; };
    return (P(t + 2.0) - 4.0 * P(t + 1.0) + 6.0 * P(t) - 4.0 * P(t - 1.0)) / 6.0;
}

double Tent(double t) {
    t = std::fabs(t);
    return t < 1.0 ? 1.0 - t : 0.0;
}

/// The taps of one output coordinate along one axis: source indices (clamped) and
/// normalised weights, `taps` of each.
struct AxisTaps {
    int taps = 1;
    std::vector<int> index;
    std::vector<double> weight;
};

AxisTaps MakeTaps(int outSize, int srcSize, double factor, int type) {
    AxisTaps a;
    const int radius = type - 1;
    a.taps = 2 * radius + 1;
    a.index.resize(static_cast<std::size_t>(outSize) * a.taps);
    a.weight.resize(a.index.size());
    for (int o = 0; o < outSize; ++o) {
        const double s = (o + 0.5) / factor - 0.5;
        const int centre = static_cast<int>(std::floor(s + 0.5));
        double total = 0.0;
        for (int k = -radius; k <= radius; ++k) {
            const int src = centre + k;
            const double d = s - src;
            double w = 1.0;
            if (type == 2)
                w = Tent(d);
            else if (type == 3)
                w = BSpline(d);
            const std::size_t slot = static_cast<std::size_t>(o) * a.taps + (k + radius);
            a.index[slot] = src < 0 ? 0 : (src >= srcSize ? srcSize - 1 : src);
            a.weight[slot] = w;
            total += w;
        }
        for (int k = 0; k < a.taps; ++k)
            a.weight[static_cast<std::size_t>(o) * a.taps + k] /= total;
    }
    return a;
}

/// Resamples src (sw x sh) into dst (dw x dh) by the separable taps, rows in parallel.
void Resample(const float* src, int sw, float* dst, int dw, int dh, const AxisTaps& ax,
              const AxisTaps& ay) {
    ParallelRows(dh, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const int* yi = &ay.index[static_cast<std::size_t>(y) * ay.taps];
            const double* yw = &ay.weight[static_cast<std::size_t>(y) * ay.taps];
            float* out = dst + static_cast<std::size_t>(y) * dw;
            for (int x = 0; x < dw; ++x) {
                const int* xi = &ax.index[static_cast<std::size_t>(x) * ax.taps];
                const double* xw = &ax.weight[static_cast<std::size_t>(x) * ax.taps];
                double sum = 0.0;
                for (int j = 0; j < ay.taps; ++j) {
                    if (yw[j] == 0.0)
                        continue;
                    const float* row = src + static_cast<std::size_t>(yi[j]) * sw;
                    double line = 0.0;
                    for (int i = 0; i < ax.taps; ++i)
                        line += xw[i] * row[xi[i]];
                    sum += yw[j] * line;
                }
                out[x] = static_cast<float>(sum);
            }
        }
    });
}

void Fail(const char* what, std::string* text, INotify* notify) {
    if (text)
        *text = what;
    if (notify)
        notify->Message(what);
}

} // namespace

bool Image::Scale(const ScaleParams& params, float*& cur, float*& prev, std::string* text,
                  INotify* notify) {
    // 1. Exactly one way of giving the new size.
    if (params.byDimension == params.byFactor || width <= 0 || height <= 0) {
        Fail(kNoFactor, text, notify);
        return false;
    }
    // 2.-3. New size and factors.
    int newW, newH;
    double fx, fy;
    if (params.byDimension) {
        newW = static_cast<int>(params.newWidth);
        newH = static_cast<int>(params.newHeight);
        fx = static_cast<double>(newW) / width;
        fy = static_cast<double>(newH) / height;
    } else {
        fx = params.preserveAspect ? params.uniformFactor : params.factorX;
        fy = params.preserveAspect ? params.uniformFactor : params.factorY;
        newW = static_cast<int>(width * fx);
        newH = static_cast<int>(height * fy);
    }
    if (!(newW > 0 && newH > 0 && fx > 0.0 && fy > 0.0) || params.resampleType < 1 ||
        params.resampleType > 3) {
        Fail(kNoFactor, text, notify);
        return false;
    }
    // 4. Nothing to do.
    if (fx == 1.0 && fy == 1.0) {
        if (text)
            *text = kNoScale;
        return false;
    }
    if (!cur) {
        Fail(kNoMemory, text, notify);
        return false;
    }
    // 5. The source copy of the old size, and the kernel tables.
    const std::size_t oldCount = static_cast<std::size_t>(width) * height;
    const std::size_t newCount = static_cast<std::size_t>(newW) * newH;
    float* source = AllocPlane(oldCount);
    if (!source) {
        Fail(kNoMemory, text, notify);
        return false;
    }
    AxisTaps ax, ay;
    try {
        ax = MakeTaps(newW, width, fx, params.resampleType);
        ay = MakeTaps(newH, height, fy, params.resampleType);
    } catch (const std::bad_alloc&) {
        PageFree(source);
        Fail(kNoMemory, text, notify);
        return false;
    }
    // 6. Current plane first, then the previous one.
    float** planes[2] = {&cur, &prev};
    for (float** plane : planes) {
        if (!*plane)
            continue;
        std::memcpy(source, *plane, oldCount * sizeof(float));
        PageFree(*plane);
        *plane = AllocPlane(newCount);
        if (!*plane) {
            // Put the old plane back if the memory allows, so the image stays whole.
            *plane = AllocPlane(oldCount);
            if (*plane)
                std::memcpy(*plane, source, oldCount * sizeof(float));
            PageFree(source);
            Fail(kNoMemory, text, notify);
            return false;
        }
        Resample(source, width, *plane, newW, newH, ax, ay);
    }
    // 7. Done with the copy; the last channel stores the new size.
    PageFree(source);
    if (params.commit) {
        // Row arrays were made with the old height and width.
        FreeWorkRows();
        FreeAccumulators();
        width = newW;
        height = newH;
        pixelCount = static_cast<std::uint32_t>(newCount);
    }
    return true;
}

} // namespace astrivelle
