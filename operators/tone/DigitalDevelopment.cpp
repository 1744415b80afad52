// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Digital Development: a hyperbolic curve after the median offset and the pre-stretch,
/// sharpened through a blurred copy in the denominator, with the decompress-colour step and the
/// value-plane sharpening on three planes; its parameter text and its replay.
///
/// The box filters are summed by running sums along columns and rows (the mirror rule handled
/// directly at the edges), which give exactly the plain gather's sum whenever every partial sum
/// is exact in doubles; a plane where that cannot be shown, and the custom filter, take the plain
/// gather of each window. Entries of exactly -1.0 are left out of the sum and the weight count
/// in both.
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include "engine/Hsv.h"
#include "engine/Image.h"
#include "engine/Levels.h"
#include "engine/Notify.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"
#include "engine/ParamText.h"
#include "operators/FilterSupport.h"
#include "operators/Stretch.h"

namespace astrivelle {

namespace {

std::atomic<int> gWindowPath{0};
std::atomic<int> gSlidingPlanes{0};
std::atomic<int> gPlainPlanes{0};
std::atomic<int> gAllocationBudget{-1};

enum class Outcome { Done, Cancelled, NoMemory };

bool Cancelled(const IProgress* progress) {
    return progress && progress->Cancelled();
}

/// The last run's scratch plane, kept for the next run on a plane of the same size: touching a
/// fresh plane costs a page fault per page, more than the pass that fills it. One plane at most
/// is kept; a run on another size frees it.
std::mutex gKeptMutex;
float* gKeptPlane = nullptr;
std::size_t gKeptCount = 0;

/// A scratch plane (its contents undefined): the kept one when it fits, else one from the page
/// allocator; subject to the test budget either way.
float* ScratchPlane(std::size_t count) {
    int budget = gAllocationBudget.load();
    while (budget > 0 && !gAllocationBudget.compare_exchange_weak(budget, budget - 1)) {
    }
    if (budget == 0)
        return nullptr;
    float* stale = nullptr;
    {
        std::lock_guard<std::mutex> lock(gKeptMutex);
        if (gKeptPlane && gKeptCount == count) {
            float* p = gKeptPlane;
            gKeptPlane = nullptr;
            return p;
        }
        stale = gKeptPlane; // the wrong size: no use keeping it
        gKeptPlane = nullptr;
    }
    PageFree(stale);
    return AllocPlane(count);
}

/// Hands a scratch plane back: kept for the next run, the one kept before it freed.
void KeepScratchPlane(float* plane, std::size_t count) {
    float* stale = nullptr;
    {
        std::lock_guard<std::mutex> lock(gKeptMutex);
        stale = gKeptPlane;
        gKeptPlane = plane;
        gKeptCount = count;
    }
    PageFree(stale);
}

/// Scratch planes handed back when the run ends.
struct ScratchPlanes {
    std::vector<float*> planes;
    std::size_t count = 0;
    ~ScratchPlanes() {
        for (float* p : planes)
            KeepScratchPlane(p, count);
    }
    /// False (and nothing kept) when one of the `n` planes cannot be had.
    bool Take(int n, std::size_t size) {
        count = size;
        for (int k = 0; k < n; ++k) {
            float* p = ScratchPlane(size);
            if (!p)
                return false;
            planes.push_back(p);
        }
        return true;
    }
};

const double kBoxWeights[81] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                                1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                                1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                                1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};

/// The filter table of a run.
struct WindowFilter {
    int half = 1;
    bool lowPass = true;
    bool box = true;
    const double* weights = kBoxWeights;
    int Side() const { return 2 * half + 1; }
};

/// The curve of one plane: v / (v + a + 1) * M + B, or through the blurred value f.
struct DdpCurve {
    double a, top, backgroundMin, strength;
    bool fixDefects;
    double Plain(double v) const { return v / (v + a + 1.0) * top + backgroundMin; }
    double Filtered(double v, double f) const {
        const double d = (1.0 - strength) * v + strength * f + a + 1.0;
        double out = v / d * top + backgroundMin;
        if (fixDefects) {
            const double out2 = v / (a + v + 1.0) * top + backgroundMin;
            if (out2 > out)
                out = out2;
        }
        return out;
    }
};

/// The plain gather of one window: mirror rule, -1.0 entries skipped, the weight sum held as an
/// integer and truncated at each addition.
double PlainWindow(const float* copy, int w, int h, int x, int y, const WindowFilter& filter) {
    double window[81];
    GatherMirror(copy, w, h, x, y, filter.half, window);
    const int count = filter.Side() * filter.Side();
    double sum = 0.0;
    int weightSum = 0;
    for (int k = 0; k < count; ++k) {
        if (window[k] == -1.0)
            continue;
        sum += window[k] * filter.weights[k];
        weightSum = static_cast<int>(weightSum + filter.weights[k]);
    }
    return filter.lowPass ? sum / weightSum : sum;
}

/// The plain gather of a window that lies inside the plane: the same entries in the same order
/// as PlainWindow, read straight from the rows.
inline double PlainWindowInside(const float* copy, int w, int x, int y,
                                const WindowFilter& filter) {
    const int half = filter.half, side = filter.Side();
    double sum = 0.0;
    int weightSum = 0;
    const double* weights = filter.weights;
    for (int dy = -half; dy <= half; ++dy) {
        const float* row = copy + static_cast<std::size_t>(y + dy) * w + (x - half);
        for (int k = 0; k < side; ++k, ++weights) {
            const double v = row[k];
            if (v == -1.0)
                continue;
            sum += v * *weights;
            weightSum = static_cast<int>(weightSum + *weights);
        }
    }
    return filter.lowPass ? sum / weightSum : sum;
}

/// Bits below the binary point of a float (0 for whole numbers); large for inf and NaN.
inline int FractionBits(float f) {
    std::uint32_t u;
    std::memcpy(&u, &f, sizeof u);
    std::uint32_t e = (u >> 23) & 0xffu;
    std::uint32_t m = u & 0x7fffffu;
    if (e == 0xffu)
        return 1 << 20;
    if (e == 0) {
        if (m == 0)
            return 0;
        e = 1;
    } else {
        m |= 0x800000u;
    }
    const int bits = 150 - static_cast<int>(e) - __builtin_ctz(m);
    return bits > 0 ? bits : 0;
}

int ChunkCount(int rows) {
    const int n = std::clamp(tbb::this_task_arena::max_concurrency() * 4, 1, 64);
    return std::max(1, std::min(n, rows));
}

inline int ChunkStart(int c, int chunks, int rows) {
    return static_cast<int>(static_cast<long long>(rows) * c / chunks);
}

/// True when every sum the running sums form over `copy` is exact in doubles, so that they
/// equal the plain gather's sum in any order: all values are multiples of 2^-K and twice the
/// largest window sum stays below 2^53 units of 2^-K.
bool RunningSumsExact(const float* copy, int w, int h, int side) {
    const int chunks = ChunkCount(h);
    std::vector<int> bits(static_cast<std::size_t>(chunks), 0);
    std::vector<double> largest(static_cast<std::size_t>(chunks), 0.0);
    ParallelRows(chunks, [&](int c0, int c1) {
        for (int c = c0; c < c1; ++c) {
            int k = 0;
            float m = 0.0f;
            const float* p = copy + static_cast<std::size_t>(ChunkStart(c, chunks, h)) * w;
            const float* end = copy + static_cast<std::size_t>(ChunkStart(c + 1, chunks, h)) * w;
            for (; p < end; ++p) {
                k = std::max(k, FractionBits(*p));
                m = std::max(m, std::fabs(*p));
            }
            bits[c] = k;
            largest[c] = m;
        }
    });
    const int k = *std::max_element(bits.begin(), bits.end());
    const double m = *std::max_element(largest.begin(), largest.end());
    if (k > 200)
        return false;
    return std::ldexp(2.0 * side * side * m, k) < 9007199254740992.0; // 2^53
}

/// Per-chunk buffers of the running sums: column sums, column counts of -1.0, blurred row.
struct RowBuffers {
    std::vector<double> colSum, blurred;
    std::vector<int> colSkip;
    bool Make(int chunks, int w) {
        try {
            const std::size_t n = static_cast<std::size_t>(chunks) * w;
            colSum.assign(n, 0.0);
            blurred.assign(n, 0.0);
            colSkip.assign(n, 0);
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }
};

inline double Kept(float v) {
    return v == -1.0f ? 0.0 : static_cast<double>(v);
}

/// The blurred values of row y by running sums. `slide` says the column sums hold row y - 1
/// and both windows lie inside the plane, so one row enters and one leaves.
void RunningRow(const float* copy, int w, int h, int y, int half, bool lowPass, bool slide,
                double* colSum, int* colSkip, double* blurred) {
    if (slide) {
        const float* enter = copy + static_cast<std::size_t>(y + half) * w;
        const float* leave = copy + static_cast<std::size_t>(y - half - 1) * w;
        for (int x = 0; x < w; ++x) {
            colSum[x] += Kept(enter[x]) - Kept(leave[x]);
            colSkip[x] += (enter[x] == -1.0f) - (leave[x] == -1.0f);
        }
    } else {
        std::fill(colSum, colSum + w, 0.0);
        std::fill(colSkip, colSkip + w, 0);
        for (int dy = -half; dy <= half; ++dy) {
            const float* row = copy + static_cast<std::size_t>(MirrorIndex(y, dy, h)) * w;
            for (int x = 0; x < w; ++x) {
                colSum[x] += Kept(row[x]);
                colSkip[x] += row[x] == -1.0f;
            }
        }
    }
    const int side = 2 * half + 1;
    const int total = side * side;
    auto finish = [&](int x, double sum, int skipped) {
        blurred[x] = lowPass ? sum / (total - skipped) : sum;
    };
    auto direct = [&](int x) {
        double sum = 0.0;
        int skipped = 0;
        for (int dx = -half; dx <= half; ++dx) {
            const int j = MirrorIndex(x, dx, w);
            sum += colSum[j];
            skipped += colSkip[j];
        }
        finish(x, sum, skipped);
    };
    const int first = half, last = w - half - 1; // columns whose window needs no mirror
    if (first > last) {
        for (int x = 0; x < w; ++x)
            direct(x);
        return;
    }
    for (int x = 0; x < first; ++x)
        direct(x);
    double sum = 0.0;
    int skipped = 0;
    for (int j = 0; j < side; ++j) {
        sum += colSum[j];
        skipped += colSkip[j];
    }
    finish(first, sum, skipped);
    for (int x = first + 1; x <= last; ++x) {
        sum += colSum[x + half] - colSum[x - half - 1];
        skipped += colSkip[x + half] - colSkip[x - half - 1];
        finish(x, sum, skipped);
    }
    for (int x = last + 1; x < w; ++x)
        direct(x);
}

/// One plane of the curve: v = pre(src + offset); with a filter the blurred value is taken on
/// `copy`. Hands each result to `store(i, result)`, which clamps and keeps it.
template <class Store>
Outcome CurvePlane(const Image& img, const float* src, int offset, const PreStretch& pre,
                   const float* copy, const WindowFilter* filter, const DdpCurve& curve,
                   Store&& store, IProgress* progress) {
    const int w = img.width, h = img.height;
    if (!filter) {
        ParallelRows(h, [&](int y0, int y1) {
            for (int y = y0; y < y1 && !Cancelled(progress); ++y)
                for (std::size_t i = static_cast<std::size_t>(y) * w,
                                 e = i + static_cast<std::size_t>(w);
                     i < e; ++i)
                    store(i, curve.Plain(pre(static_cast<double>(src[i]) + offset)));
        });
        return Cancelled(progress) ? Outcome::Cancelled : Outcome::Done;
    }
    const bool running =
        filter->box && gWindowPath.load() == static_cast<int>(stretch_testing::WindowPath::Auto) &&
        RunningSumsExact(copy, w, h, filter->Side());
    ++(running ? gSlidingPlanes : gPlainPlanes);
    const int chunks = ChunkCount(h);
    RowBuffers buffers;
    if (!buffers.Make(chunks, w))
        return Outcome::NoMemory;
    ParallelRows(chunks, [&](int c0, int c1) {
        for (int c = c0; c < c1; ++c) {
            double* colSum = buffers.colSum.data() + static_cast<std::size_t>(c) * w;
            int* colSkip = buffers.colSkip.data() + static_cast<std::size_t>(c) * w;
            double* blurred = buffers.blurred.data() + static_cast<std::size_t>(c) * w;
            const int y0 = ChunkStart(c, chunks, h), y1 = ChunkStart(c + 1, chunks, h);
            for (int y = y0; y < y1 && !Cancelled(progress); ++y) {
                if (running) {
                    const bool slide = y > y0 && y - 1 - filter->half >= 0 && y + filter->half < h;
                    RunningRow(copy, w, h, y, filter->half, filter->lowPass, slide, colSum, colSkip,
                               blurred);
                } else if (y >= filter->half && y + filter->half < h && w > 2 * filter->half) {
                    const int first = filter->half,
                              last = w - filter->half; // inside: [first, last)
                    for (int x = 0; x < first; ++x)
                        blurred[x] = PlainWindow(copy, w, h, x, y, *filter);
                    for (int x = first; x < last; ++x)
                        blurred[x] = PlainWindowInside(copy, w, x, y, *filter);
                    for (int x = last; x < w; ++x)
                        blurred[x] = PlainWindow(copy, w, h, x, y, *filter);
                } else {
                    for (int x = 0; x < w; ++x)
                        blurred[x] = PlainWindow(copy, w, h, x, y, *filter);
                }
                const std::size_t row = static_cast<std::size_t>(y) * w;
                for (int x = 0; x < w; ++x) {
                    const double v = pre(static_cast<double>(src[row + x]) + offset);
                    store(row + x, curve.Filtered(v, blurred[x]));
                }
            }
        }
    });
    return Cancelled(progress) ? Outcome::Cancelled : Outcome::Done;
}

/// Four lanes of doubles and of their masks, four floats.
typedef double DoubleLanes __attribute__((vector_size(32)));
typedef long long MaskLanes __attribute__((vector_size(32)));
typedef float FloatLanes __attribute__((vector_size(16)));

/// The curve and decompress-colour step of one row from its pre-stretched values, four pixels
/// at a time without branches. Each lane makes the same operations in the same order as
/// DecompressColor, so the results are the same floats. Only a pixel whose red is the largest
/// and 0 reads the held blue ratio; those are redone one at a time with the ratio of the last
/// pixel before them (in the row) that set it.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
__attribute__((target_clones("avx2", "default")))
#endif
void ColourRow(const double* r, const double* g, const double* b, int w, const DdpCurve& curve,
               const double weights[3], double top, float* outR, float* outG, float* outB) {
    const double wr = weights[0], wg = weights[1], wb = weights[2];
    int lastRatio = -1; // the last pixel whose red was the largest and not 0
    auto one = [&](int x) {
        double held = lastRatio < 0 ? kDdpRowStartBlueRatio : b[lastRatio] / r[lastRatio];
        double R, G, B;
        DecompressColor(r[x], g[x], b[x], curve.Plain(r[x]), curve.Plain(g[x]), curve.Plain(b[x]),
                        wr, wg, wb, &held, &R, &G, &B);
        outR[x] = static_cast<float>(ClampStretch(R, 0.0, top));
        outG[x] = static_cast<float>(ClampStretch(G, 0.0, top));
        outB[x] = static_cast<float>(ClampStretch(B, 0.0, top));
        if (r[x] >= g[x] && r[x] >= b[x] && r[x] != 0.0)
            lastRatio = x;
    };
    const DoubleLanes zero = {0, 0, 0, 0}, small = zero + 0.001, topLanes = zero + top;
    // Written out in place: vectors are neither passed nor returned by value.
#define ASTRIVELLE_PLAIN(v) ((v) / ((v) + curve.a + 1.0) * curve.top + curve.backgroundMin)
#define ASTRIVELLE_CLAMP(v) ((v) >= 0.0 ? ((v) > topLanes ? topLanes : (v)) : zero)
    int x = 0;
    for (; x + 4 <= w; x += 4) {
        DoubleLanes vr, vg, vb;
        std::memcpy(&vr, r + x, sizeof vr);
        std::memcpy(&vg, g + x, sizeof vg);
        std::memcpy(&vb, b + x, sizeof vb);
        const MaskLanes redMax = (vr >= vg) & (vr >= vb);
        const MaskLanes greenMax = ~redMax & (vg >= vr) & (vg >= vb);
        const MaskLanes blueMax = ~redMax & ~greenMax;
        const DoubleLanes sr = ASTRIVELLE_PLAIN(vr), sg = ASTRIVELLE_PLAIN(vg),
                          sb = ASTRIVELLE_PLAIN(vb);
        const DoubleLanes m = redMax ? vr : (greenMax ? vg : vb);
        const DoubleLanes d = redMax ? m : (m != 0.0 ? m : small);
        const DoubleLanes sm = redMax ? sr : (greenMax ? sg : sb);
        const DoubleLanes wm = redMax ? zero + wr : (greenMax ? zero + wg : zero + wb);
        const DoubleLanes keep = 1.0 - wm;
        const DoubleLanes R = redMax ? sr : vr / d * sm * wm + keep * sr;
        const DoubleLanes G = greenMax ? sg : vg / d * sm * wm + keep * sg;
        const DoubleLanes B = blueMax ? sb : vb / d * sm * wm + keep * sb;
        const FloatLanes fr = __builtin_convertvector(ASTRIVELLE_CLAMP(R), FloatLanes);
        const FloatLanes fg = __builtin_convertvector(ASTRIVELLE_CLAMP(G), FloatLanes);
        const FloatLanes fb = __builtin_convertvector(ASTRIVELLE_CLAMP(B), FloatLanes);
        std::memcpy(outR + x, &fr, sizeof fr);
        std::memcpy(outG + x, &fg, sizeof fg);
        std::memcpy(outB + x, &fb, sizeof fb);
        const MaskLanes held = redMax & (vr == 0.0);
        const MaskLanes sets = redMax & (vr != 0.0);
        if ((held[0] | held[1] | held[2] | held[3]) != 0) {
            for (int j = 0; j < 4; ++j)
                if (held[j])
                    one(x + j);
                else if (sets[j])
                    lastRatio = x + j;
        } else {
            for (int j = 3; j >= 0; --j)
                if (sets[j]) {
                    lastRatio = x + j;
                    break;
                }
        }
    }
    for (; x < w; ++x)
        one(x);
#undef ASTRIVELLE_PLAIN
#undef ASTRIVELLE_CLAMP
}

} // namespace

namespace stretch_testing {
void SetWindowPath(WindowPath path) {
    gWindowPath = static_cast<int>(path);
}
void ResetWindowCounts() {
    gSlidingPlanes = 0;
    gPlainPlanes = 0;
}
int SlidingPlanes() {
    return gSlidingPlanes.load();
}
int PlainPlanes() {
    return gPlainPlanes.load();
}
void SetAllocationBudget(int n) {
    gAllocationBudget = n;
}
} // namespace stretch_testing

bool Image::ApplyDigitalDevelopment(bool pending, int filterIndex, const double* customWeights,
                                    int customSize, bool lowPass, const int bkgMinAndBreakPoint[2],
                                    bool applyRed, bool applyGreen, bool applyBlue,
                                    double backgroundWeight, double red, double green, double blue,
                                    double strength, bool fixDefects, double scale, double black,
                                    double white, const std::string& scaleType,
                                    IProgress* progress) {
    ScaleType type;
    if (!ScaleTypeFromText(scaleType, &type) || filterIndex < 0 || filterIndex > 5)
        return false;
    WindowFilter filter;
    bool customRefused = false; // read only when the filter is used
    if (filterIndex == 5) {
        static const CCustomFilter identity;
        if (!customWeights) {
            customWeights = identity.weights.data();
            customSize = identity.size;
            lowPass = identity.lowPass;
        }
        customRefused = !CustomSizeAccepted(customSize);
        filter.half = customSize / 2;
        filter.lowPass = lowPass;
        filter.box = false;
        filter.weights = customWeights;
    } else if (filterIndex > 0) {
        filter.half = filterIndex; // Soft 3, Medium 5, Hard 7, Hard Plus 9
    }

    const double top = maxValue;
    const int backgroundMin = bkgMinAndBreakPoint[0];
    const double a = bkgMinAndBreakPoint[1];
    const DdpCurve curve{a, top, static_cast<double>(backgroundMin), strength, fixDefects};
    const PreStretch pre{type, scale, black, white, top, true};
    const std::size_t count = static_cast<std::size_t>(width) * height;
    const StretchChannels channels{applyRed, applyGreen, applyBlue};
    const int w = width;

    if (channels.OnePlane(*this)) {
        const int s = colorType != ColorRGB ? SlotOfColorType(colorType)
                      : applyRed            ? 0
                      : applyGreen          ? 1
                                            : 2;
        if (s < 0 || !prevPlane[s] || !curPlane[s])
            return false;
        const bool filtering = filterIndex != 0 && strength != 0.0;
        if (filtering && customRefused)
            return false;
        ScratchPlanes scratch;
        if (filtering && !scratch.Take(1, count))
            return false; // nothing changed
        if (!pending)
            CopyPlane(prevPlane[s], curPlane[s]);
        const float* in = prevPlane[s];
        const int offset = BackgroundOffset(MedianLevelOfPlane(in), backgroundWeight);
        if (progress)
            progress->SetProgress(1, 3);
        float* copy = nullptr;
        if (filtering) {
            copy = scratch.planes[0];
            ParallelRows(height, [&](int y0, int y1) {
                const std::size_t end = static_cast<std::size_t>(y1) * w;
                for (std::size_t i = static_cast<std::size_t>(y0) * w; i < end; ++i)
                    copy[i] = static_cast<float>(static_cast<double>(in[i]) + offset);
            });
        }
        if (progress)
            progress->SetProgress(2, 3);
        float* out = curPlane[s];
        const Outcome done = CurvePlane(
            *this, in, offset, pre, copy, filtering ? &filter : nullptr, curve,
            [out, top](std::size_t i, double v) {
                out[i] = static_cast<float>(ClampStretch(v, 0.0, top));
            },
            progress);
        if (done != Outcome::Done)
            return false;
        if (progress)
            progress->SetProgress(3, 3);
        return true;
    }

    // Three planes.
    for (int c = 0; c < 3; ++c)
        if (!prevPlane[c] || !curPlane[c])
            return false;
    const bool filtering = filterIndex != 0 && strength > 0.0;
    if (filtering && customRefused)
        return false;
    ScratchPlanes scratch;
    if (filtering && !scratch.Take(1, count))
        return false; // nothing changed
    const int passes = filtering ? 5 : 2;
    int offset[3];
    for (int c = 0; c < 3; ++c) {
        if (!pending)
            CopyPlane(prevPlane[c], curPlane[c]);
        offset[c] = BackgroundOffset(MedianLevelOfPlane(prevPlane[c]), backgroundWeight);
    }
    if (progress)
        progress->SetProgress(1, passes);
    const float* in[3] = {prevPlane[0], prevPlane[1], prevPlane[2]};
    float* out[3] = {curPlane[0], curPlane[1], curPlane[2]};

    // 1. The curve of each channel, then the decompress-colour step, a row at a time from the
    // pre-stretched values.
    {
        const int chunks = ChunkCount(height);
        std::vector<double> rows;
        try {
            rows.assign(static_cast<std::size_t>(chunks) * 3 * w, 0.0);
        } catch (const std::bad_alloc&) {
            return false;
        }
        const double weights[3] = {red, green, blue};
        ParallelRows(chunks, [&](int c0, int c1) {
            for (int c = c0; c < c1; ++c) {
                double* r = rows.data() + static_cast<std::size_t>(c) * 3 * w;
                double* g = r + w;
                double* b = g + w;
                const int y0 = ChunkStart(c, chunks, height),
                          y1 = ChunkStart(c + 1, chunks, height);
                for (int y = y0; y < y1 && !Cancelled(progress); ++y) {
                    const std::size_t row = static_cast<std::size_t>(y) * w;
                    for (int x = 0; x < w; ++x) {
                        r[x] = pre(static_cast<double>(in[0][row + x]) + offset[0]);
                        g[x] = pre(static_cast<double>(in[1][row + x]) + offset[1]);
                        b[x] = pre(static_cast<double>(in[2][row + x]) + offset[2]);
                    }
                    ColourRow(r, g, b, w, curve, weights, top, out[0] + row, out[1] + row,
                              out[2] + row);
                }
            }
        });
    }
    if (Cancelled(progress))
        return false;
    if (progress)
        progress->SetProgress(2, passes);
    if (!filtering)
        return true;

    // 2. The value plane of the pre-stretched input without offset, and its own offset.
    float* value = scratch.planes[0];
    const PreStretch pre0 = pre;
    ParallelRows(height, [&](int y0, int y1) {
        const std::size_t end = static_cast<std::size_t>(y1) * w;
        for (std::size_t i = static_cast<std::size_t>(y0) * w; i < end; ++i) {
            const double v = std::max(pre0(in[0][i]), std::max(pre0(in[1][i]), pre0(in[2][i])));
            value[i] = static_cast<float>(ClampStretch(v, 0.0, top));
        }
    });
    const int valueOffset = BackgroundOffset(MedianLevelOfPlane(value), backgroundWeight);
    ParallelRows(height, [&](int y0, int y1) {
        const std::size_t end = static_cast<std::size_t>(y1) * w;
        for (std::size_t i = static_cast<std::size_t>(y0) * w; i < end; ++i) {
            const double v = static_cast<double>(value[i]) + valueOffset;
            value[i] = v <= 0.0 ? 1.0f : static_cast<float>(v);
        }
    });
    if (progress)
        progress->SetProgress(3, passes);

    // 3. The one-plane curve on the value plane, without a pre-stretch; 4. each new value
    // replaces its pixel's own as soon as it is known (nothing reads the colour planes).
    const PreStretch none{ScaleType::None, 1.0, 0.0, 1.0, top, true};
    auto replaceValue = [&out, top](std::size_t i, double newValue) {
        const double second = static_cast<float>(ClampStretch(newValue, 0.0, top));
        double h, s, v, r, g, b;
        HexconeFromRgb(out[0][i], out[1][i], out[2][i], &h, &s, &v);
        RgbFromHexcone(h, s, second, &r, &g, &b);
        out[0][i] = static_cast<float>(ClampStretch(r, 0.0, top));
        out[1][i] = static_cast<float>(ClampStretch(g, 0.0, top));
        out[2][i] = static_cast<float>(ClampStretch(b, 0.0, top));
    };
    if (CurvePlane(*this, value, 0, none, value, &filter, curve, replaceValue, progress) !=
        Outcome::Done)
        return false;
    if (progress)
        progress->SetProgress(4, passes);
    if (progress)
        progress->SetProgress(passes, passes);
    return true;
}

// ---- parameter text ---------------------------------------------------------------------------

std::string FormatDigitalDevelopment(const DigitalDevelopmentParams& p, bool colour) {
    const char* fix = p.fixDefects ? "Yes" : "No";
    if (!colour)
        return FormatText(
            "Pre-Stretch Scale Type: %s#Pre-Stretch Scale : %4.3f#Pre-Stretch Black Point : "
            "%6.5f#Pre-Stretch White Point : %4.3f#Pre-Stretch Black Point Range : %s#"
            "Break-Point Slider Range : %s#Backgd-Wt Slider Range : %s#Background Min : %d#"
            "Background Weight : %6.5f#Break-Point Highlights : %d#Sharpening Filter : %s#"
            "Fix Defects :%s#Sharpening Strength : %4.3f#",
            ScaleTypeText(p.scaleType), p.pre.scale, p.pre.black, p.pre.white,
            p.pre.blackRange.c_str(), p.breakPointRange.c_str(), p.weightRange.c_str(),
            p.backgroundMin, p.backgroundWeight, p.breakPoint, p.filter.c_str(), fix, p.strength);
    return FormatText(
        "Pre-Stretch Scale Type : %s#Pre-Stretch Scale : %4.3f#Pre-Stretch Black Point : %6.5f#"
        "Pre-Stretch White Point : %4.3f#Pre-Stretch Black Point Range : %s#"
        "Break-Point Slider Range : %s#Backgd-Wt Slider Range : %s#Background Min : %d#"
        "Background Weight : %6.5f#Break-Point Highlights : %d#Sharpening Filter :%s#"
        "Fix Defects :%s#Sharpening Strength : %4.3f#Red : %4.3f#Green : %4.3f#Blue : %4.3f#",
        ScaleTypeText(p.scaleType), p.pre.scale, p.pre.black, p.pre.white, p.pre.blackRange.c_str(),
        p.breakPointRange.c_str(), p.weightRange.c_str(), p.backgroundMin, p.backgroundWeight,
        p.breakPoint, p.filter.c_str(), fix, p.strength, p.red, p.green, p.blue);
}

bool ParseDigitalDevelopment(const std::string& text, DigitalDevelopmentParams* params,
                             bool* colour, std::string* error) {
    DigitalDevelopmentParams p;
    StretchFieldReader f(text, "Digital Development", error);
    if (!f.Scale("pre-stretch scale type", &p.scaleType) ||
        !f.Number("pre-stretch scale", &p.pre.scale) ||
        !f.Number("pre-stretch black point", &p.pre.black) ||
        !f.Number("pre-stretch white point", &p.pre.white) ||
        !f.Text("pre-stretch black point range", &p.pre.blackRange) ||
        !f.Text("break-point slider range", &p.breakPointRange) ||
        !f.Text("background weight slider range", &p.weightRange) ||
        !f.Integer("background min", &p.backgroundMin) ||
        !f.Number("background weight", &p.backgroundWeight) ||
        !f.Integer("break-point highlights", &p.breakPoint) ||
        !f.Text("sharpening filter", &p.filter) || !f.Flag("fix defects", &p.fixDefects) ||
        !f.Number("sharpening strength", &p.strength))
        return false;
    if (SharpeningFilterIndex(p.filter) < 0) {
        if (error)
            *error = "Digital Development: unknown sharpening filter \"" + p.filter + "\"";
        return false;
    }
    const bool hasWeights = f.More();
    if (hasWeights &&
        (!f.Number("red", &p.red) || !f.Number("green", &p.green) || !f.Number("blue", &p.blue)))
        return false;
    *params = p;
    if (colour)
        *colour = hasWeights;
    return true;
}

bool RunDigitalDevelopment(Image& image, const DigitalDevelopmentParams& p,
                           const StretchChannels& ch, bool pending, const CCustomFilter* custom,
                           IProgress* progress) {
    static const CCustomFilter identity;
    if (!custom)
        custom = &identity;
    const int bkgMinAndBreakPoint[2] = {p.backgroundMin, p.breakPoint};
    return image.ApplyDigitalDevelopment(
        pending, SharpeningFilterIndex(p.filter), custom->weights.data(), custom->size,
        custom->lowPass, bkgMinAndBreakPoint, ch.red, ch.green, ch.blue, p.backgroundWeight, p.red,
        p.green, p.blue, p.strength, p.fixDefects, p.pre.scale, p.pre.black, p.pre.white,
        ScaleTypeText(p.scaleType), progress);
}

namespace {

bool ReplayDigitalDevelopment(Image& image, const std::string& text, const ReplayContext& context,
                              std::string* error) {
    DigitalDevelopmentParams p;
    bool colour = false;
    if (!ParseDigitalDevelopment(text, &p, &colour, error))
        return false;
    const auto* custom = static_cast<const CCustomFilter*>(context.customFilter);
    if (p.filter == "Custom" && custom && !CustomSizeAccepted(custom->size)) {
        if (error)
            *error = kCustomFilterSizeText;
        return false;
    }
    bool ok = true;
    if (!colour && image.colorType == ColorRGB) {
        // A one-plane record on a colour image: the one-plane form on each plane.
        for (int s = 0; s < 3 && ok; ++s)
            ok = RunDigitalDevelopment(image, p, StretchChannels{s == 0, s == 1, s == 2}, false,
                                       custom, context.progress);
    } else {
        ok = RunDigitalDevelopment(image, p, StretchChannels{}, false, custom, context.progress);
    }
    if (!ok && error)
        *error = context.progress && context.progress->Cancelled()
                     ? "Digital Development: cancelled"
                     : "Could Not Allocate Memory For Operation.";
    return ok;
}

bool RoundTripDigitalDevelopment(const std::string& text, std::string* formatted) {
    DigitalDevelopmentParams p;
    bool colour = false;
    if (!ParseDigitalDevelopment(text, &p, &colour, nullptr))
        return false;
    *formatted = FormatDigitalDevelopment(p, colour);
    return true;
}

} // namespace

OperatorDescriptor DigitalDevelopmentDescriptor() {
    OperatorDescriptor d;
    d.name = "Digital Development";
    d.replay = ReplayDigitalDevelopment;
    d.roundTrip = RoundTripDigitalDevelopment;
    d.examples.push_back(FormatDigitalDevelopment(DigitalDevelopmentParams{}, false));
    DigitalDevelopmentParams p;
    p.scaleType = ScaleType::Linear;
    p.pre = {1.5, 0.002, 0.95, kBlackRangeTexts[2]};
    p.breakPointRange = kBreakPointRangeTexts[2];
    p.weightRange = kPowerRangeTexts[3];
    p.backgroundMin = 150;
    p.backgroundWeight = 0.875;
    p.breakPoint = 2500;
    p.filter = "Hard Plus";
    p.fixDefects = true;
    p.strength = 0.6;
    p.red = 0.25;
    p.green = 0.5;
    p.blue = 0.75;
    d.examples.push_back(FormatDigitalDevelopment(p, true));
    p.filter = "Custom";
    p.fixDefects = false;
    d.examples.push_back(FormatDigitalDevelopment(p, false));
    return d;
}

} // namespace astrivelle
