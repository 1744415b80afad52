// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Channel statistics, the full and display histograms, and the small numeric helpers
/// of Image (value, factorial, triangle area, plane mean/deviation/extremes/median).
///
/// Summation order, which makes every result reproducible whatever the thread count: a plane
/// sum is the sum, top row first, of row sums, each accumulated left to right in double from
/// 0. The same holds for the sum of squared deviations. Minimum, maximum and the histogram
/// counts do not depend on order. The fast passes below keep exactly these semantics.
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <vector>

#include "engine/Image.h"
#include "engine/Parallel.h"

namespace astrivelle {

namespace detail {

/// Entropy and entropy ratio from bin counts in ascending level order (zero counts are
/// skipped). Entropy is -sum p ln p with p = count / n. The ratio walks the bins until the
/// running probability reaches 0.5 (bin m) and is -(S / entropy) with S the sum of p ln p
/// over bins 0..m; it is -1.0 when the entropy is 0.
void EntropyFromCounts(const std::uint32_t* counts, std::size_t bins, double n, double* entropy,
                       double* ratio) {
    double s = 0.0;
    for (std::size_t b = 0; b < bins; ++b) {
        if (counts[b] == 0)
            continue;
        const double p = counts[b] / n;
        s += p * std::log(p);
    }
    double e = -s;
    if (e == 0.0 || !(n > 0)) {
        *entropy = 0.0;
        *ratio = -1.0;
        return;
    }
    double partial = 0.0;
    double running = 0.0;
    for (std::size_t b = 0; b < bins; ++b) {
        if (counts[b] == 0)
            continue;
        const double p = counts[b] / n;
        partial += p * std::log(p);
        running += counts[b];
        if (running / n >= 0.5)
            break;
    }
    *entropy = e;
    *ratio = -(partial / e);
}

} // namespace detail

namespace {

/// Histogram index of the statistics pass: truncation towards zero, clamped to 0..top
/// (NaN counts as 0).
inline int TruncIndex(double p, int top) {
    if (!(p > 0.0))
        return 0;
    if (p >= top)
        return top;
    return static_cast<int>(p);
}

/// The value of a pixel: largest of the three, clamped to 0..top (NaN gives 0).
inline double ValueClamped(double r, double g, double b, double top) {
    double v = Max2(r, Max2(g, b));
    if (!(v > 0.0))
        return 0.0;
    return v > top ? top : v;
}

template <class T> std::vector<T> SmallBuffer(std::size_t count) {
    try {
        return std::vector<T>(count);
    } catch (const std::bad_alloc&) {
        SmallBufferFailure();
    }
}

/// Number of row chunks of a pass that needs per-task buffers (one histogram per chunk).
int ChunkCount(int rows) {
    int n = tbb::this_task_arena::max_concurrency();
    n = std::clamp(n, 1, 16);
    return std::min(n, std::max(rows, 1));
}

struct ScanOut {
    double min = std::numeric_limits<double>::infinity();
    double max = -std::numeric_limits<double>::infinity();
};

/// One pass over all pixels, rows split into fixed chunks run in parallel: tracks the
/// extremes, writes row sums (when rowSums is given), and counts the truncated level
/// (truncHist) and the rounded level (roundHist) into per-chunk histograms of `bins` entries
/// each, which the caller merges. Any of the outputs may be null. `px(i)` gives pixel i.
template <bool kTrunc, bool kRound, class Px>
ScanOut ScanChunks(int w, int h, int top, int chunks, Px px, double* rowSums,
                   std::uint32_t* truncHist, std::uint32_t* roundHist) {
    const std::size_t bins = static_cast<std::size_t>(top) + 1;
    const double topD = top;
    std::vector<ScanOut> parts(static_cast<std::size_t>(chunks));
    tbb::parallel_for(
        tbb::blocked_range<int>(0, chunks, 1),
        [&](const tbb::blocked_range<int>& range) {
            for (int c = range.begin(); c < range.end(); ++c) {
                const int y0 = static_cast<int>(static_cast<long long>(h) * c / chunks);
                const int y1 = static_cast<int>(static_cast<long long>(h) * (c + 1) / chunks);
                std::uint32_t* th = kTrunc ? truncHist + bins * c : nullptr;
                std::uint32_t* rh = kRound ? roundHist + bins * c : nullptr;
                double mn = std::numeric_limits<double>::infinity();
                double mx = -std::numeric_limits<double>::infinity();
                for (int y = y0; y < y1; ++y) {
                    const std::size_t row = static_cast<std::size_t>(y) * w;
                    double sum = 0.0;
                    for (int x = 0; x < w; ++x) {
                        const double p = px(row + x);
                        sum += p;
                        mn = p < mn ? p : mn;
                        mx = p > mx ? p : mx;
                        if constexpr (kTrunc || kRound) {
                            // Truncated level and RoundLevel(p, 0, top) together: both are
                            // 0 for p <= 0 or NaN and top for p >= top.
                            int t = 0, r = 0;
                            if (p > 0.0) {
                                if (p >= topD) {
                                    t = r = top;
                                } else {
                                    t = static_cast<int>(p);
                                    r = t + (p - t > 0.5 ? 1 : 0);
                                    r = r > top ? top : r;
                                }
                            }
                            if constexpr (kTrunc)
                                ++th[t];
                            if constexpr (kRound)
                                ++rh[r];
                        }
                    }
                    if (rowSums)
                        rowSums[y] = sum;
                }
                parts[c].min = mn;
                parts[c].max = mx;
            }
        },
        tbb::simple_partitioner());
    ScanOut out;
    for (const ScanOut& part : parts) {
        out.min = std::min(out.min, part.min);
        out.max = std::max(out.max, part.max);
    }
    if (out.min > out.max) // no comparable pixel at all (all NaN)
        out.min = out.max = 0.0;
    return out;
}

template <class Px>
ScanOut Scan(int w, int h, int top, int chunks, Px px, double* rowSums, std::uint32_t* truncHist,
             std::uint32_t* roundHist) {
    if (truncHist && roundHist)
        return ScanChunks<true, true>(w, h, top, chunks, px, rowSums, truncHist, roundHist);
    if (truncHist)
        return ScanChunks<true, false>(w, h, top, chunks, px, rowSums, truncHist, nullptr);
    if (roundHist)
        return ScanChunks<false, true>(w, h, top, chunks, px, rowSums, nullptr, roundHist);
    return ScanChunks<false, false>(w, h, top, chunks, px, rowSums, nullptr, nullptr);
}

/// Adds the per-chunk histograms 1..chunks-1 into chunk 0.
void MergeChunks(std::uint32_t* hist, std::size_t bins, int chunks) {
    ParallelRows(static_cast<int>(bins), [&](int b0, int b1) {
        for (int c = 1; c < chunks; ++c) {
            const std::uint32_t* src = hist + bins * c;
            for (int b = b0; b < b1; ++b)
                hist[b] += src[b];
        }
    });
}

/// Sum, top row first, of row sums.
double SumRows(const double* rowSums, int h) {
    double total = 0.0;
    for (int y = 0; y < h; ++y)
        total += rowSums[y];
    return total;
}

/// Sum of squared deviations from `mean`, in the fixed order (row sums, then top to bottom).
template <class Px> double SquaredDeviations(int w, int h, Px px, double mean, double* rowSums) {
    ParallelRows(h, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const std::size_t row = static_cast<std::size_t>(y) * w;
            double sum = 0.0;
            for (int x = 0; x < w; ++x) {
                const double d = px(row + x) - mean;
                sum += d * d;
            }
            rowSums[y] = sum;
        }
    });
    return SumRows(rowSums, h);
}

/// The first bin at which the running count reaches 50 per cent of n.
std::uint32_t MedianOfHistogram(const std::uint32_t* hist, std::size_t bins, double n) {
    double running = 0.0;
    for (std::size_t b = 0; b < bins; ++b) {
        running += hist[b];
        if (running * 100.0 / n >= 50.0)
            return static_cast<std::uint32_t>(b);
    }
    return static_cast<std::uint32_t>(bins - 1);
}

/// Sample deviation over n - 1; 0 for one pixel or no spread.
double SampleDeviation(double sumSq, double n) {
    if (n <= 1.0 || sumSq == 0.0)
        return 0.0;
    return std::sqrt(sumSq / (n - 1.0));
}

/// Largest bin of a histogram.
std::uint32_t PeakOf(const std::uint32_t* hist, std::size_t bins) {
    std::uint32_t peak = 0;
    for (std::size_t b = 0; b < bins; ++b)
        peak = std::max(peak, hist[b]);
    return peak;
}

} // namespace

// ---- statistics ---------------------------------------------------------------------------

void Image::ComputeChannel(ChannelStats& stats, const float* r, const float* g, const float* b) {
    stats = ChannelStats{};
    stats.entropyRatio = -1.0;
    if (!r || pixelCount == 0 || width <= 0 || height <= 0)
        return;
    const bool value = g && b;
    const int top = static_cast<int>(std::min<std::uint32_t>(maxValue, 0x7ffffffe));
    const std::size_t bins = static_cast<std::size_t>(top) + 1;
    const int chunks = ChunkCount(height);
    const double n = pixelCount;
    const double topD = top;

    std::vector<double> rowSums = SmallBuffer<double>(static_cast<std::size_t>(height));
    std::vector<std::uint32_t> truncHist = SmallBuffer<std::uint32_t>(bins * chunks);
    // The value histogram is the truncated one, so only a plane needs the rounded counts.
    std::vector<std::uint32_t> roundHist;
    if (!value)
        roundHist = SmallBuffer<std::uint32_t>(bins * chunks);

    // 1. Extremes, row sums and the histograms in one pass.
    ScanOut scan;
    auto planePx = [r](std::size_t i) { return static_cast<double>(r[i]); };
    auto valuePx = [r, g, b, topD](std::size_t i) { return ValueClamped(r[i], g[i], b[i], topD); };
    if (value)
        scan = Scan(width, height, top, chunks, valuePx, rowSums.data(), truncHist.data(), nullptr);
    else
        scan = Scan(width, height, top, chunks, planePx, rowSums.data(), truncHist.data(),
                    roundHist.data());
    MergeChunks(truncHist.data(), bins, chunks);
    if (!value)
        MergeChunks(roundHist.data(), bins, chunks);

    // 2.-4. Extremes, mean and the truncated median.
    stats.max = scan.max;
    stats.min = scan.min < 0.0 ? 0.0 : scan.min;
    stats.mean = SumRows(rowSums.data(), height) / n;
    stats.median = MedianOfHistogram(truncHist.data(), bins, n);

    // 5. Sample deviation.
    const double sumSq =
        value ? SquaredDeviations(width, height, valuePx, stats.mean, rowSums.data())
              : SquaredDeviations(width, height, planePx, stats.mean, rowSums.data());
    stats.stdDev = SampleDeviation(sumSq, n);

    // 6. The full histogram (what BuildHistogram / BuildValueHistogram would count).
    std::vector<std::uint32_t>& counted = value ? truncHist : roundHist;
    try {
        histogram.assign(counted.begin(), counted.begin() + static_cast<std::ptrdiff_t>(bins));
    } catch (const std::bad_alloc&) {
        SmallBufferFailure();
    }
    if (value && bins > 65536) // values of 65536 or more are not counted by value
        std::fill(histogram.begin() + 65536, histogram.end(), 0u);
    histogramPeak = static_cast<std::int32_t>(PeakOf(histogram.data(), histogram.size()));
    detail::EntropyFromCounts(histogram.data(), histogram.size(), n, &stats.entropy,
                              &stats.entropyRatio);
}

void Image::ComputeStatistics() {
    switch (colorType) {
    case ColorRGB:
        ComputeChannel(redStats, curPlane[0], nullptr, nullptr);
        ComputeChannel(greenStats, curPlane[1], nullptr, nullptr);
        ComputeChannel(blueStats, curPlane[2], nullptr, nullptr);
        if (curPlane[0] && curPlane[1] && curPlane[2])
            ComputeChannel(valueStats, curPlane[0], curPlane[1], curPlane[2]);
        else
            ComputeChannel(valueStats, nullptr, nullptr, nullptr);
        break;
    case ColorRed:
    case ColorCyan:
    case ColorGray:
        ComputeChannel(redStats, curPlane[0], nullptr, nullptr);
        break;
    case ColorGreen:
    case ColorMagenta:
        ComputeChannel(greenStats, curPlane[1], nullptr, nullptr);
        break;
    case ColorBlue:
    case ColorYellow:
        ComputeChannel(blueStats, curPlane[2], nullptr, nullptr);
        break;
    default:
        break;
    }
}

// ---- histograms ---------------------------------------------------------------------------

namespace {

/// Counts bin(i) for every pixel into `hist` (bins entries), in fixed row chunks with
/// per-chunk buffers. bin() returns a bin index or -1 to skip the pixel.
template <class Bin>
void CountHistogram(int w, int h, std::uint32_t* hist, std::size_t bins, Bin bin) {
    const int chunks = ChunkCount(h);
    std::vector<std::uint32_t> parts = SmallBuffer<std::uint32_t>(bins * (chunks - 1));
    tbb::parallel_for(
        tbb::blocked_range<int>(0, chunks, 1),
        [&](const tbb::blocked_range<int>& range) {
            for (int c = range.begin(); c < range.end(); ++c) {
                const int y0 = static_cast<int>(static_cast<long long>(h) * c / chunks);
                const int y1 = static_cast<int>(static_cast<long long>(h) * (c + 1) / chunks);
                std::uint32_t* out = c == 0 ? hist : parts.data() + bins * (c - 1);
                const std::size_t end = static_cast<std::size_t>(y1) * w;
                for (std::size_t i = static_cast<std::size_t>(y0) * w; i < end; ++i) {
                    const long long k = bin(i);
                    if (k >= 0)
                        ++out[k];
                }
            }
        },
        tbb::simple_partitioner());
    for (int c = 1; c < chunks; ++c) {
        const std::uint32_t* src = parts.data() + bins * (c - 1);
        for (std::size_t b = 0; b < bins; ++b)
            hist[b] += src[b];
    }
}

} // namespace

void Image::BuildHistogram(const float* plane) {
    const std::size_t bins = static_cast<std::size_t>(maxValue) + 1;
    try {
        histogram.assign(bins, 0u);
    } catch (const std::bad_alloc&) {
        SmallBufferFailure();
    }
    histogramPeak = 0;
    if (!plane || pixelCount == 0)
        return;
    const int top = static_cast<int>(std::min<std::uint32_t>(maxValue, 0x7ffffffe));
    CountHistogram(width, height, histogram.data(), bins, [plane, top](std::size_t i) {
        return static_cast<long long>(RoundLevel(plane[i], 0, top));
    });
    histogramPeak = static_cast<std::int32_t>(PeakOf(histogram.data(), bins));
}

void Image::BuildValueHistogram(const float* r, const float* g, const float* b) {
    const std::size_t bins = static_cast<std::size_t>(maxValue) + 1;
    try {
        histogram.assign(bins, 0u);
    } catch (const std::bad_alloc&) {
        SmallBufferFailure();
    }
    histogramPeak = 0;
    if (!r || !g || !b || pixelCount == 0)
        return;
    const double top = maxValue;
    const long long limit = static_cast<long long>(std::min<std::size_t>(bins, 65536));
    CountHistogram(width, height, histogram.data(), bins, [=](std::size_t i) {
        const long long v = static_cast<long long>(ValueClamped(r[i], g[i], b[i], top));
        return v < limit ? v : -1LL;
    });
    histogramPeak = static_cast<std::int32_t>(PeakOf(histogram.data(), bins));
}

namespace {

/// Largest of the 256 display bins, searched in parallel.
std::uint32_t DisplayPeak(const std::uint32_t* hist) {
    return tbb::parallel_reduce(
        tbb::blocked_range<int>(0, 256), 0u,
        [hist](const tbb::blocked_range<int>& r, std::uint32_t peak) {
            for (int b = r.begin(); b < r.end(); ++b)
                peak = std::max(peak, hist[b]);
            return peak;
        },
        [](std::uint32_t a, std::uint32_t b) { return std::max(a, b); });
}

} // namespace

void Image::BuildDisplayHistogram(const float* plane) {
    std::fill(std::begin(displayHistogram), std::end(displayHistogram), 0u);
    displayPeak = 0;
    if (!plane || pixelCount == 0)
        return;
    CountHistogram(width, height, displayHistogram, 256, [plane](std::size_t i) {
        return static_cast<long long>(RoundLevel(plane[i], 0, 65535) / 256);
    });
    displayPeak = DisplayPeak(displayHistogram);
}

void Image::BuildDisplayValueHistogram(const float* r, const float* g, const float* b) {
    std::fill(std::begin(displayHistogram), std::end(displayHistogram), 0u);
    displayPeak = 0;
    if (!r || !g || !b || pixelCount == 0)
        return;
    const double top = maxValue;
    CountHistogram(width, height, displayHistogram, 256, [=](std::size_t i) {
        const long long bin = static_cast<long long>(ValueClamped(r[i], g[i], b[i], top) / 256);
        return bin > 255 ? 255LL : bin;
    });
    displayPeak = DisplayPeak(displayHistogram);
}

// ---- small helpers ------------------------------------------------------------------------

double Image::ValueOf(double r, double g, double b) const {
    return ValueClamped(r, g, b, static_cast<double>(maxValue));
}

double Image::Factorial(int n) {
    double f = 1.0;
    for (int k = 2; k <= n; ++k)
        f *= k;
    return f;
}

double Image::TriangleArea(double x1, double y1, double x2, double y2, double x3, double y3) {
    return 0.5 * std::fabs((x2 - x1) * (y3 - y1) - (x3 - x1) * (y2 - y1));
}

double Image::MeanOfPlane(const float* plane) const {
    if (!plane || pixelCount == 0)
        return 0.0;
    std::vector<double> rowSums = SmallBuffer<double>(static_cast<std::size_t>(height));
    // Each row is summed left to right, as the statistics scan sums it; four rows go side by
    // side so that their additions overlap instead of waiting on one another.
    const int w = width, h = height;
    ParallelRows((h + 3) / 4, [&](int g0, int g1) {
        for (int g = g0; g < g1; ++g) {
            const int y = 4 * g;
            const float* r[4];
            for (int k = 0; k < 4; ++k) // a short last group repeats its last row
                r[k] = plane + static_cast<std::size_t>(std::min(y + k, h - 1)) * w;
            double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
            for (int x = 0; x < w; ++x) {
                s0 += r[0][x];
                s1 += r[1][x];
                s2 += r[2][x];
                s3 += r[3][x];
            }
            const double sums[4] = {s0, s1, s2, s3};
            for (int k = 0; k < 4 && y + k < h; ++k)
                rowSums[static_cast<std::size_t>(y + k)] = sums[k];
        }
    });
    return SumRows(rowSums.data(), height) / pixelCount;
}

double Image::StdDevOfPlane(const float* plane) const {
    if (!plane || pixelCount == 0)
        return 0.0;
    std::vector<double> rowSums = SmallBuffer<double>(static_cast<std::size_t>(height));
    const double mean = MeanOfPlane(plane);
    const double sumSq = SquaredDeviations(
        width, height, [plane](std::size_t i) { return static_cast<double>(plane[i]); }, mean,
        rowSums.data());
    return SampleDeviation(sumSq, pixelCount);
}

namespace {
/// One scan of a plane, for its extremes.
ScanOut PlaneExtremes(const Image& img, const float* plane) {
    return Scan(
        img.width, img.height, 0, ChunkCount(img.height),
        [plane](std::size_t i) { return static_cast<double>(plane[i]); }, nullptr, nullptr,
        nullptr);
}
} // namespace

double Image::MaxOfPlane(const float* plane) const {
    return plane && pixelCount ? PlaneExtremes(*this, plane).max : 0.0;
}

double Image::MinOfPlane(const float* plane) const {
    return plane && pixelCount ? PlaneExtremes(*this, plane).min : 0.0;
}

double Image::MedianOfPlane(const float* plane) const {
    if (!plane || pixelCount == 0)
        return 0.0;
    const int top = static_cast<int>(std::min<std::uint32_t>(maxValue, 0x7ffffffe));
    const std::size_t bins = static_cast<std::size_t>(top) + 1;
    std::vector<std::uint32_t> hist = SmallBuffer<std::uint32_t>(bins);
    CountHistogram(width, height, hist.data(), bins, [plane, top](std::size_t i) {
        return static_cast<long long>(TruncIndex(plane[i], top));
    });
    return MedianOfHistogram(hist.data(), bins, pixelCount);
}

} // namespace astrivelle
