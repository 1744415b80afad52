// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The rank filters in their plain form: gather, sort, reduce, one window per pixel.
#include <cmath>
#include <cstring>

#include "operators/Filters.h"
#include "operators/filters/RankOracle.h"

namespace astrivelle::smoothing {

namespace {

void QuickSort(double* a, int lo, int hi) {
    while (lo < hi) {
        const double pivot = a[lo + (hi - lo) / 2];
        int i = lo, j = hi;
        while (i <= j) {
            while (a[i] < pivot)
                ++i;
            while (a[j] > pivot)
                --j;
            if (i <= j) {
                const double t = a[i];
                a[i] = a[j];
                a[j] = t;
                ++i;
                --j;
            }
        }
        // Recurse into the smaller part, loop on the larger: the depth stays logarithmic.
        if (j - lo < hi - i) {
            QuickSort(a, lo, j);
            lo = i;
        } else {
            QuickSort(a, i, hi);
            hi = j;
        }
    }
}

} // namespace

void SortWindow(double* values, int count) {
    QuickSort(values, 0, count - 1);
}

double PlainMedian(double* window, int count) {
    SortWindow(window, count);
    return window[(count - 1) / 2];
}

double PlainSelectedNbhd(const double* window, int count, double p, double top) {
    double sumW = 0, sumWV = 0;
    for (int k = 0; k < count; ++k) {
        const double v = window[k];
        const double w = top - std::fabs(std::trunc(p - v));
        sumW += w;
        sumWV += w * v;
    }
    return sumWV / sumW;
}

double PlainAbsDifference(double* window, double* scratch, int count) {
    SortWindow(window, count);
    const int k = (count - 1) / 2;
    const double c = window[k];
    for (int n = 0; n < count; ++n)
        scratch[n] = std::fabs(window[n] - c);
    SortWindow(scratch, count);
    const double t = scratch[k];
    double sum = 0;
    int taken = 0;
    for (int n = 0; n < count; ++n)
        if (std::fabs(window[n] - c) <= t) {
            sum += window[n];
            ++taken;
        }
    return sum / taken;
}

double PlainAdaptiveMedian(double* window, int count, double p, int order, int* lastIndex) {
    SortWindow(window, count);
    // The last index equal to p among 0..count-2; count-1 is not looked at.
    for (int n = count - 2; n >= 0; --n)
        if (window[n] == p) {
            *lastIndex = n;
            break;
        }
    return window[AdaptiveMedianIndex(*lastIndex, count, order)];
}

double QuantileOfHistogram(const std::int32_t* bins, long count, double sum, double sumSq, double p,
                           double top) {
    if (sum == 0)
        return p;
    const double c = static_cast<double>(count);
    const double a = sum / c;
    const double variance = sumSq / c - a * a;
    // Past the last filled bin the distribution is count / count, exactly 1.
    int last = 255;
    while (last > 0 && bins[last] == 0)
        --last;
    double cdf[256];
    long running = 0;
    for (int b = 0; b <= last; ++b) {
        running += bins[b];
        cdf[b] = running / c;
    }
    auto quant = [&cdf, last](double f) {
        for (int b = 0; b <= last; ++b)
            if (cdf[b] >= f)
                return b;
        for (int b = last + 1; b < 256; ++b)
            if (1.0 >= f)
                return b;
        return 255;
    };
    const double u = std::sqrt(variance) / a;
    const double e = std::exp(-3.912 * u * u);
    const double med = quant(0.5);
    const double shift = (a - med) / 256.0;
    const double low = quant((shift + 1) * (e * 0.5)) / 256.0 * top;
    const double high = quant((1 - shift) * (1 - e * 0.5)) / 256.0 * top;
    if (p < low)
        return std::trunc(low);
    if (p > high)
        return std::trunc(high);
    return p;
}

double PlainQuantile(const double* window, int count, double p, double top) {
    std::int32_t bins[256];
    std::memset(bins, 0, sizeof bins);
    double sum = 0, sumSq = 0;
    for (int k = 0; k < count; ++k) {
        const int b = QuantileBin(window[k]);
        ++bins[b];
        sum += b;
        sumSq += static_cast<double>(b) * b;
    }
    return QuantileOfHistogram(bins, count, sum, sumSq, p, top);
}

bool PlainRankRows(const PlaneJob& job, int y0, int y1, FilterRun* run) {
    double window[kRankMaxCount];
    double scratch[kRankMaxCount];
    const int h = job.half > 25 ? 25 : job.half;
    const int side = 2 * h + 1;
    const int count = side * side;
    const ApplyRange range = job.Range();
    const int w = job.width;
    for (int y = y0; y < y1; ++y) {
        const float* in = job.prev + static_cast<long>(y) * w;
        float* out = job.cur + static_cast<long>(y) * w;
        int lastIndex = 0; // the adaptive median's i, 0 at the row's start
        for (int x = 0; x < w; ++x) {
            if (x % 100 == 0 && run && run->Stop())
                return false;
            const double p = in[x];
            if (range.Outside(p)) {
                out[x] = in[x];
                continue;
            }
            GatherMirror(job.prev, w, job.height, x, y, h, window);
            double r = p;
            switch (job.type) {
            case SmoothSelectedNbhd:
                r = PlainSelectedNbhd(window, count, p, job.top);
                break;
            case SmoothQuantile:
                r = PlainQuantile(window, count, p, job.top);
                break;
            case SmoothMedian:
                r = PlainMedian(window, count);
                break;
            case SmoothAbsDifference:
                r = PlainAbsDifference(window, scratch, count);
                break;
            case SmoothAdaptiveMedian:
                r = PlainAdaptiveMedian(window, count, p, job.order, &lastIndex);
                break;
            default:
                break;
            }
            out[x] = static_cast<float>(range.Mix(p, r, job.strength, job.top));
        }
        if (run)
            run->RowsDone(1);
    }
    return true;
}

void PlainRankFilter(const PlaneJob& job) {
    PlainRankRows(job, 0, job.height, nullptr);
}

} // namespace astrivelle::smoothing
