// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The pixel cores of the combination methods.
#include "imagesets/CombineMethods.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>

#include "engine/Parallel.h"

namespace astrivelle {

namespace {

/// Runs fn(row pointer offset, y) over every row of the plane in parallel.
template <class Fn> void Rows(std::size_t height, Fn&& fn) {
    ParallelRows(static_cast<int>(height), [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            fn(static_cast<std::size_t>(y));
    });
}

/// Runs fn(y) over the interior rows 1..height-2.
template <class Fn> void InteriorRows(std::size_t height, Fn&& fn) {
    if (height < 3)
        return;
    ParallelRows(static_cast<int>(height) - 2, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            fn(static_cast<std::size_t>(y) + 1);
    });
}

float MedianOf(float* v, int n) {
    const int k = n / 2;
    std::nth_element(v, v + k, v + n);
    const float hi = v[k];
    if (n & 1)
        return hi;
    const float lo = *std::max_element(v, v + k);
    return (lo + hi) * 0.5f;
}

} // namespace

const std::vector<CombineMethodInfo>& CombineMethods() {
    static const std::vector<CombineMethodInfo> methods = {
        {CombineMethod::Add, "ADD", "Addition", "CombineFilesAdd"},
        {CombineMethod::Avg, "AVG", "Average", "CombineFilesAvg"},
        {CombineMethod::ExcAvg, "EXCAVG", "Excluded Min/Max Average", "CombineFilesExcAvg"},
        {CombineMethod::SigAvg, "SIGAVG", "Sigma Average", "CombineFilesSigAvg"},
        {CombineMethod::GradeAvg, "GRADEAVG", "Manual Graded Average", "CombineFilesGradedAvg"},
        {CombineMethod::GradeAvgAuto, "GRADEAVGAUTO", "Auto Edge Sharpness Graded Average",
         "CombineFilesAutoGradeAvg"},
        {CombineMethod::Min, "MIN", "Minimum", "CombineFilesMin"},
        {CombineMethod::Max, "MAX", "Maximum", "CombineFilesMax"},
        {CombineMethod::Med, "MED", "Median", "CombineFilesMed"},
        {CombineMethod::SigMed, "SIGMED", "Sigma Median", "CombineFilesSigMed"},
        {CombineMethod::WgtMed, "WGTMED", "Weighted Median", "CombineFilesWgtMed"},
        {CombineMethod::AdpAdd, "ADPADD", "Adaptive Addition", "CombineFilesAdpHDRAdd"},
        {CombineMethod::ExcAdpAdd, "EXCADPADD", "Adaptive Excluded Addition",
         "CombineFilesAdpHDRAdd"},
    };
    return methods;
}

const CombineMethodInfo* FindCombineMethod(const std::string& keyword) {
    for (const CombineMethodInfo& m : CombineMethods())
        if (keyword == m.keyword)
            return &m;
    return nullptr;
}

const CombineMethodInfo& CombineMethodOf(CombineMethod method) {
    for (const CombineMethodInfo& m : CombineMethods())
        if (m.method == method)
            return m;
    return CombineMethods().front();
}

// ---- plain stream cores --------------------------------------------------------------------

void AccumulateBySum(float* sum, const float* src, std::size_t w, std::size_t h, float weight) {
    Rows(h, [&](std::size_t y) {
        float* s = sum + y * w;
        const float* p = src + y * w;
        if (weight == 1.0f) {
            for (std::size_t x = 0; x < w; ++x)
                s[x] += p[x];
        } else {
            for (std::size_t x = 0; x < w; ++x)
                s[x] += p[x] * weight;
        }
    });
}

void AccumulateNonZero(float* sum, float* count, const float* src, std::size_t w, std::size_t h) {
    Rows(h, [&](std::size_t y) {
        float* s = sum + y * w;
        float* c = count + y * w;
        const float* p = src + y * w;
        for (std::size_t x = 0; x < w; ++x)
            if (p[x] != 0.0f) {
                s[x] += p[x];
                c[x] += 1.0f;
            }
    });
}

void AccumulateMin(float* acc, const float* src, std::size_t w, std::size_t h) {
    Rows(h, [&](std::size_t y) {
        float* a = acc + y * w;
        const float* p = src + y * w;
        for (std::size_t x = 0; x < w; ++x)
            if (p[x] < a[x])
                a[x] = p[x];
    });
}

void AccumulateMax(float* acc, const float* src, std::size_t w, std::size_t h) {
    Rows(h, [&](std::size_t y) {
        float* a = acc + y * w;
        const float* p = src + y * w;
        for (std::size_t x = 0; x < w; ++x)
            if (p[x] > a[x])
                a[x] = p[x];
    });
}

void FinishAverage(float* sum, const float* count, std::size_t w, std::size_t h) {
    Rows(h, [&](std::size_t y) {
        float* s = sum + y * w;
        const float* c = count + y * w;
        for (std::size_t x = 0; x < w; ++x)
            s[x] = c[x] > 0.0f ? s[x] / c[x] : 0.0f;
    });
}

void LimitTo16Bit(float* plane, std::size_t w, std::size_t h) {
    Rows(h, [&](std::size_t y) {
        float* s = plane + y * w;
        for (std::size_t x = 0; x < w; ++x)
            s[x] = s[x] < 0.0f ? 0.0f : (s[x] > 65535.0f ? 65535.0f : s[x]);
    });
}

// ---- interior cores ------------------------------------------------------------------------

void AccumulateMinMaxInterior(float* minimum, float* maximum, const float* src, std::size_t w,
                              std::size_t h, bool first) {
    if (w < 3)
        return;
    InteriorRows(h, [&](std::size_t y) {
        float* mn = minimum + y * w;
        float* mx = maximum + y * w;
        const float* p = src + y * w;
        for (std::size_t x = 1; x + 1 < w; ++x) {
            const float v = p[x];
            if (first) {
                mn[x] = v;
                mx[x] = v;
            } else {
                if (v < mn[x])
                    mn[x] = v;
                if (v > mx[x])
                    mx[x] = v;
            }
        }
    });
}

void AccumulateBetweenInterior(float* sum, float* count, const float* minimum, const float* maximum,
                               const float* src, std::size_t w, std::size_t h) {
    if (w < 3)
        return;
    InteriorRows(h, [&](std::size_t y) {
        float* s = sum + y * w;
        float* c = count + y * w;
        const float* mn = minimum + y * w;
        const float* mx = maximum + y * w;
        const float* p = src + y * w;
        for (std::size_t x = 1; x + 1 < w; ++x)
            if (p[x] > mn[x] && p[x] < mx[x]) {
                s[x] += p[x];
                c[x] += 1.0f;
            }
    });
}

void AccumulateNonZeroInterior(float* sum, float* count, const float* src, std::size_t w,
                               std::size_t h) {
    if (w < 3)
        return;
    InteriorRows(h, [&](std::size_t y) {
        float* s = sum + y * w;
        float* c = count + y * w;
        const float* p = src + y * w;
        for (std::size_t x = 1; x + 1 < w; ++x)
            if (p[x] != 0.0f) {
                s[x] += p[x];
                c[x] += 1.0f;
            }
    });
}

void AccumulateSquaresInterior(float* squares, const float* mean, const float* src, std::size_t w,
                               std::size_t h) {
    if (w < 3)
        return;
    InteriorRows(h, [&](std::size_t y) {
        float* q = squares + y * w;
        const float* m = mean + y * w;
        const float* p = src + y * w;
        for (std::size_t x = 1; x + 1 < w; ++x)
            if (p[x] != 0.0f) {
                const float d = p[x] - m[x];
                q[x] += d * d;
            }
    });
}

void FinishDeviation(float* squares, const float* count, std::size_t w, std::size_t h) {
    Rows(h, [&](std::size_t y) {
        float* q = squares + y * w;
        const float* c = count + y * w;
        for (std::size_t x = 0; x < w; ++x)
            q[x] = c[x] > 0.0f ? std::sqrt(q[x] / c[x]) : 0.0f;
    });
}

void AccumulateClippedInterior(float* sum, float* count, const float* mean, const float* deviation,
                               const float* src, double clipFactor, std::size_t w, std::size_t h) {
    if (w < 3)
        return;
    const float f = static_cast<float>(clipFactor);
    InteriorRows(h, [&](std::size_t y) {
        float* s = sum + y * w;
        float* c = count + y * w;
        const float* m = mean + y * w;
        const float* d = deviation + y * w;
        const float* p = src + y * w;
        for (std::size_t x = 1; x + 1 < w; ++x) {
            const float v = p[x];
            if (v != 0.0f && m[x] - f * d[x] <= v && v <= m[x] + f * d[x]) {
                s[x] += v;
                c[x] += 1.0f;
            }
        }
    });
}

void FinishAverageInterior(float* sum, const float* count, std::size_t w, std::size_t h) {
    if (w < 3)
        return;
    InteriorRows(h, [&](std::size_t y) {
        float* s = sum + y * w;
        const float* c = count + y * w;
        for (std::size_t x = 1; x + 1 < w; ++x)
            s[x] = c[x] > 0.0f ? s[x] / c[x] : 0.0f;
    });
}

// ---- median family -------------------------------------------------------------------------

float CombineMedianPixel(float* v, int n, CombineMethod method, double clipFactor) {
    if (n <= 0)
        return 0.0f;
    if (method == CombineMethod::Med)
        return MedianOf(v, n);
    double sum = 0, lo = v[0], hi = v[0];
    for (int i = 0; i < n; ++i) {
        sum += v[i];
        lo = std::min<double>(lo, v[i]);
        hi = std::max<double>(hi, v[i]);
    }
    const double m = sum / n;
    double sq = 0;
    for (int i = 0; i < n; ++i)
        sq += (v[i] - m) * (v[i] - m);
    const double s = n > 1 ? std::sqrt(sq / (n - 1)) : 0.0;
    const double d = MedianOf(v, n);
    double lower, upper;
    if (method == CombineMethod::WgtMed) {
        lower = d - lo;
        upper = hi - d;
    } else {
        const double L = std::max(m - clipFactor * s, 0.0);
        const double U = m + clipFactor * s;
        lower = d - L;
        upper = U - d;
    }
    if (lower == 0.0)
        lower = 0.1;
    if (upper == 0.0)
        upper = 0.1;
    double num = 0, den = 0;
    for (int i = 0; i < n; ++i) {
        const double half = v[i] < d ? lower : upper;
        const double w = std::max(1.0 - std::fabs(v[i] - d) / half, 0.0);
        num += v[i] * w;
        den += w;
    }
    if (den == 0.0)
        den = 0.1;
    return static_cast<float>(num / den);
}

namespace {

/// Sixteen levels, one per pixel of a run of the row.
typedef std::uint16_t Levels16 __attribute__((vector_size(32)));
constexpr int kMedianLanes = 16;
/// One entry of the network's scratch; a struct keeps the vector's alignment in containers.
struct alignas(32) LevelsSlot {
    Levels16 v;
};
static_assert(sizeof(LevelsSlot) == sizeof(Levels16));

/// The comparators of Batcher's odd-even merge sort of `size` (a power of two) entries.
std::vector<std::pair<int, int>> SortNetwork(int size) {
    std::vector<std::pair<int, int>> pairs;
    for (int p = 1; p < size; p *= 2)
        for (int k = p; k >= 1; k /= 2)
            for (int j = k % p; j + k < size; j += 2 * k)
                for (int i = 0; i < std::min(k, size - j - k); ++i)
                    if ((i + j) / (2 * p) == (i + j + k) / (2 * p))
                        pairs.emplace_back(i + j, i + j + k);
    return pairs;
}

/// The median of `files` levels for sixteen pixels at once: the levels of each pixel sorted
/// by the network in its lane (padded with as many 0 below as 65535 above, which leaves the
/// middle where it was), then the middle one, or the mean of the two middle ones as the plain
/// form takes them. Returns the number of pixels done (a multiple of sixteen).
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
__attribute__((target_clones("avx2", "default")))
#endif
std::size_t
MedianRuns(const std::uint16_t* const* tiles, int files, std::size_t begin, std::size_t end,
           const std::pair<int, int>* pairs, std::size_t pairCount, int size, LevelsSlot* slots,
           float* out) {
    const int low = (size - files) / 2;
    const int k = files / 2;
    Levels16* v = &slots->v; // slots are exactly one vector each
    std::size_t x = begin;
    for (; x + kMedianLanes <= end; x += kMedianLanes) {
        for (int i = 0; i < low; ++i)
            v[i] = Levels16{} + 0;
        for (int f = 0; f < files; ++f)
            std::memcpy(&v[low + f], tiles[f] + x, sizeof(Levels16));
        for (int i = low + files; i < size; ++i)
            v[i] = Levels16{} + 65535;
        for (std::size_t c = 0; c < pairCount; ++c) {
            const Levels16 a = v[pairs[c].first], b = v[pairs[c].second];
            v[pairs[c].first] = a < b ? a : b;
            v[pairs[c].second] = a < b ? b : a;
        }
        const Levels16 hi = v[low + k];
        if (files & 1) {
            for (int l = 0; l < kMedianLanes; ++l)
                out[x - begin + l] = static_cast<float>(hi[l]);
        } else {
            const Levels16 lo = v[low + k - 1];
            for (int l = 0; l < kMedianLanes; ++l)
                out[x - begin + l] = (static_cast<float>(lo[l]) + static_cast<float>(hi[l])) * 0.5f;
        }
    }
    return x - begin;
}

} // namespace

void CombineMedianRows(const std::uint16_t* const* tiles, int files, std::size_t width,
                       std::size_t rows, CombineMethod method, double clipFactor, float* out) {
    if (method == CombineMethod::Med && files > 0) {
        // The plain median by a sorting network over sixteen pixels at a time; the few
        // pixels at the end of the tile take the plain form.
        int size = 1;
        while (size < files)
            size *= 2;
        const std::vector<std::pair<int, int>> pairs = SortNetwork(size);
        const std::size_t count = rows * width;
        const int chunks = static_cast<int>((count + 4095) / 4096);
        ParallelRows(chunks, [&](int c0, int c1) {
            std::vector<LevelsSlot> v(static_cast<std::size_t>(size)); // one per task
            std::vector<float> scratch(static_cast<std::size_t>(files));
            const std::size_t begin = static_cast<std::size_t>(c0) * 4096;
            const std::size_t end = std::min(count, static_cast<std::size_t>(c1) * 4096);
            std::size_t x = begin + MedianRuns(tiles, files, begin, end, pairs.data(), pairs.size(),
                                               size, v.data(), out + begin);
            for (; x < end; ++x) {
                for (int f = 0; f < files; ++f)
                    scratch[f] = tiles[f][x];
                out[x] = MedianOf(scratch.data(), files);
            }
        });
        return;
    }
    ParallelRows(static_cast<int>(rows), [&](int y0, int y1) {
        std::vector<float> scratch(static_cast<std::size_t>(files)); // one per task
        for (int y = y0; y < y1; ++y) {
            const std::size_t row = static_cast<std::size_t>(y) * width;
            for (std::size_t x = 0; x < width; ++x) {
                for (int f = 0; f < files; ++f)
                    scratch[f] = tiles[f][row + x];
                out[row + x] = CombineMedianPixel(scratch.data(), files, method, clipFactor);
            }
        }
    });
}

int CombineSegments(std::size_t width, std::size_t height, std::size_t files, int channels,
                    unsigned long long freeBytes) {
    const long double need = static_cast<long double>(width) * height * files * 2.0L *
                             static_cast<long double>(std::max(channels, 1));
    const long double budget = static_cast<long double>(freeBytes) / 2.0L;
    for (int tiles : {1, 4, 16, 64})
        if (need / tiles <= budget)
            return tiles;
    return 256;
}

unsigned long long FreePhysicalMemory() {
    std::ifstream meminfo("/proc/meminfo");
    std::string name, unit;
    unsigned long long kb = 0;
    while (meminfo >> name >> kb) {
        std::getline(meminfo, unit);
        if (name == "MemAvailable:")
            return kb * 1024ULL;
    }
    return std::numeric_limits<unsigned long long>::max();
}

// ---- tone map --------------------------------------------------------------------------------

bool ToneMapPlanes(const float* const* raw, int channels, std::size_t count, double compress,
                   double brightness, float* const* out) {
    if (channels <= 0 || count == 0)
        return false;
    double a = raw[0][0], b = raw[0][0];
    for (int c = 0; c < channels; ++c) {
        const float* p = raw[c];
        for (std::size_t i = 0; i < count; ++i) {
            a = std::min<double>(a, p[i]);
            b = std::max<double>(b, p[i]);
        }
    }
    const std::size_t rowLen = 4096;
    const std::size_t blocks = (count + rowLen - 1) / rowLen;
    const auto forBlocks = [&](auto&& fn) {
        ParallelRows(static_cast<int>(blocks), [&](int b0, int b1) {
            for (int k = b0; k < b1; ++k) {
                const std::size_t i0 = static_cast<std::size_t>(k) * rowLen;
                fn(i0, std::min(count, i0 + rowLen));
            }
        });
    };
    // The log compression, only when the sums go beyond the 16-bit range.
    if (b > 65535.0 && b > a) {
        double c = (b - a) * compress;
        if (a + c < 1.0)
            c = 1.0 - a; // keeps the logarithm finite for a zero (or negative) floor
        const double la = std::log(a + c);
        const double span = std::log(b + c) - la;
        for (int ch = 0; ch < channels; ++ch) {
            const float* p = raw[ch];
            float* q = out[ch];
            forBlocks([&](std::size_t i0, std::size_t i1) {
                for (std::size_t i = i0; i < i1; ++i) {
                    const double v = 65535.0 * (std::log(p[i] + c) - la) / span;
                    q[i] = static_cast<float>(v < 0.0 ? 0.0 : (v > 65535.0 ? 65535.0 : v));
                }
            });
        }
    } else {
        for (int ch = 0; ch < channels; ++ch)
            if (out[ch] != raw[ch])
                std::copy(raw[ch], raw[ch] + count, out[ch]);
    }
    // The equalization: bins of all channels together; the target gives each bin the share
    // (h * 65536 + p) / ((p + 1) * 65536) of its histogram share h, and the lookup sends a
    // level to 65535 times the target's cumulative curve at its bin.
    std::vector<unsigned long long> histogram;
    std::vector<float> lookup;
    try {
        histogram.assign(65536, 0);
        lookup.resize(65536);
    } catch (const std::bad_alloc&) {
        return false;
    }
    for (int ch = 0; ch < channels; ++ch)
        for (std::size_t i = 0; i < count; ++i)
            ++histogram[ToTileLevel(out[ch][i])];
    const double total = static_cast<double>(count) * channels;
    const double p = brightness < 0.0 ? 0.0 : brightness;
    double cumulative = 0;
    for (int bin = 0; bin < 65536; ++bin) {
        const double h = histogram[bin] / total;
        cumulative += (h * 65536.0 + p) / ((p + 1.0) * 65536.0);
        lookup[bin] = static_cast<float>(std::min(65535.0, 65535.0 * cumulative));
    }
    for (int ch = 0; ch < channels; ++ch) {
        float* q = out[ch];
        forBlocks([&](std::size_t i0, std::size_t i1) {
            for (std::size_t i = i0; i < i1; ++i)
                q[i] = lookup[ToTileLevel(q[i])];
        });
    }
    return true;
}

} // namespace astrivelle
