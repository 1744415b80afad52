// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Digital Development: a hyperbolic curve after the median offset and the pre-stretch,
/// sharpened through a blurred copy in the denominator, with the decompress-colour step and the
/// value-plane sharpening on three planes.
///
/// The box filters are summed by running sums down the columns, each window then the sum of its
/// columns (the mirror rule handled directly at the edges), which give exactly the plain
/// gather's sum whenever every partial sum is exact in doubles; a plane where that cannot be
/// shown, and the custom filter, take the plain gather of each window. Entries of exactly -1.0
/// are left out of the sum and the weight count in both. On three planes the medians and the
/// value plane come from one pass, and the colour step, the window curve and the value swap
/// from a second, a row at a time; the row kernels of that pass are in
/// DigitalDevelopmentRows.cpp. The parameter text and the replay are in
/// DigitalDevelopmentText.cpp.
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>
#include <new>
#include <type_traits>
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
#include "operators/tone/DigitalDevelopmentRows.h"

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

/// The exactness bound of the running sums: values that are multiples of 2^-bits, none larger
/// than `largest` in size, give exact sums over a window of `side` x `side` (twice the largest
/// window sum below 2^53 units of 2^-bits).
bool SumsExactFor(int bits, double largest, int side) {
    if (bits > 200)
        return false;
    return std::ldexp(2.0 * side * side * largest, bits) < 9007199254740992.0; // 2^53
}

/// What one scan of a plane tells the window sums.
struct PlaneScan {
    bool exact = false;    ///< every running sum over the plane is exact
    bool minusOne = false; ///< the plane holds an entry of exactly -1.0
};

/// True when every sum the running sums form over `copy` is exact in doubles, so that they
/// equal the plain gather's sum in any order: all values are multiples of 2^-K and twice the
/// largest window sum stays below 2^53 units of 2^-K. Also says whether -1.0 occurs.
PlaneScan ScanPlane(const float* copy, int w, int h, int side) {
    const int chunks = ChunkCount(h);
    std::vector<int> bits(static_cast<std::size_t>(chunks), 0);
    std::vector<double> largest(static_cast<std::size_t>(chunks), 0.0);
    std::vector<char> minusOne(static_cast<std::size_t>(chunks), 0);
    ParallelRows(chunks, [&](int c0, int c1) {
        for (int c = c0; c < c1; ++c) {
            int k = 0;
            float m = 0.0f;
            bool skip = false;
            const float* p = copy + static_cast<std::size_t>(ChunkStart(c, chunks, h)) * w;
            const float* end = copy + static_cast<std::size_t>(ChunkStart(c + 1, chunks, h)) * w;
            for (; p < end; ++p) {
                k = std::max(k, FractionBits(*p));
                m = std::max(m, std::fabs(*p));
                skip |= *p == -1.0f;
            }
            bits[c] = k;
            largest[c] = m;
            minusOne[c] = skip;
        }
    });
    PlaneScan scan;
    scan.exact = SumsExactFor(*std::max_element(bits.begin(), bits.end()),
                              *std::max_element(largest.begin(), largest.end()), side);
    scan.minusOne = std::find(minusOne.begin(), minusOne.end(), 1) != minusOne.end();
    return scan;
}

/// Per-chunk buffers of the window sums: column sums, column counts of -1.0, blurred row, and
/// the three pre-stretched rows of the colour step.
struct RowBuffers {
    std::vector<double> colSum, blurred, colour;
    std::vector<int> colSkip, rowSkip;
    bool Make(int chunks, int w, bool colourRows) {
        try {
            const std::size_t n = static_cast<std::size_t>(chunks) * w;
            colSum.assign(n, 0.0);
            blurred.assign(n, 0.0);
            colSkip.assign(n, 0);
            rowSkip.assign(n, 0);
            if (colourRows)
                colour.assign(3 * n, 0.0);
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }
};

/// The entries as they are summed: the plane's own values.
struct SameValue {
    static constexpr bool kOffset = false;
    int offset = 0;
    float operator()(float v) const { return v; }
};

/// The entries of the value plane with its offset, worked out as they are read: v + offset,
/// or 1.0 where that is not above 0 (so never -1.0).
struct OffsetValue {
    static constexpr bool kOffset = true;
    int offset;
    float operator()(float v) const {
        const double d = static_cast<double>(v) + offset;
        return d <= 0.0 ? 1.0f : static_cast<float>(d);
    }
};

template <class Load> inline double Kept(float v, const Load& load) {
    const float f = load(v);
    return f == -1.0f ? 0.0 : static_cast<double>(f);
}

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ASTRIVELLE_WIDE __attribute__((target_clones("avx2", "default")))
#else
#define ASTRIVELLE_WIDE
#endif

/// Column sums of a plane without -1.0 entries: one row enters and one leaves (with
/// `leave`), or a row is added. `useOffset` reads the entries by the value plane's offset rule.
ASTRIVELLE_WIDE void AddColumns(double* colSum, const float* enter, const float* leave, int w,
                                bool useOffset, int offset) {
    const OffsetValue withOffset{offset};
    const SameValue same;
    if (leave && useOffset)
        for (int x = 0; x < w; ++x)
            colSum[x] += Kept(enter[x], withOffset) - Kept(leave[x], withOffset);
    else if (leave)
        for (int x = 0; x < w; ++x)
            colSum[x] += Kept(enter[x], same) - Kept(leave[x], same);
    else if (useOffset)
        for (int x = 0; x < w; ++x)
            colSum[x] += Kept(enter[x], withOffset);
    else
        for (int x = 0; x < w; ++x)
            colSum[x] += Kept(enter[x], same);
}

template <int half> inline void BoxSumsOf(const double* colSum, int first, int last, double* out) {
    for (int x = first; x <= last; ++x) {
        double sum = colSum[x - half];
        for (int dx = -half + 1; dx <= half; ++dx)
            sum += colSum[x + dx];
        out[x] = sum;
    }
}

/// The window sums of the columns first..last (windows inside the plane) from exact column
/// sums, then, with `total`, each divided by it.
ASTRIVELLE_WIDE void BoxSums(const double* colSum, int first, int last, int half, double* out) {
    switch (half) {
    case 1:
        BoxSumsOf<1>(colSum, first, last, out);
        break;
    case 2:
        BoxSumsOf<2>(colSum, first, last, out);
        break;
    case 3:
        BoxSumsOf<3>(colSum, first, last, out);
        break;
    case 4:
        BoxSumsOf<4>(colSum, first, last, out);
        break;
    default:
        for (int x = first; x <= last; ++x)
            out[x] = colSum[x - half];
        for (int dx = -half + 1; dx <= half; ++dx)
            for (int x = first; x <= last; ++x)
                out[x] += colSum[x + dx];
    }
}

ASTRIVELLE_WIDE void DivideRow(double* row, int w, int total) {
    for (int x = 0; x < w; ++x)
        row[x] = row[x] / total;
}

/// A row of pre-stretched values pre(p + offset); without a pre-stretch a plain conversion
/// that vectorises.
ASTRIVELLE_WIDE void PreRow(const float* in, int offset, const PreStretch& pre, int w,
                            double* out) {
    if (pre.type == ScaleType::None && pre.backToLevels)
        for (int x = 0; x < w; ++x)
            out[x] = static_cast<double>(in[x]) + offset;
    else
        for (int x = 0; x < w; ++x)
            out[x] = pre(static_cast<double>(in[x]) + offset);
}

/// A row of the value plane as the window curve reads it.
ASTRIVELLE_WIDE void ValuesOf(const float* in, int w, bool useOffset, int offset, double* out) {
    const OffsetValue withOffset{offset};
    if (useOffset)
        for (int x = 0; x < w; ++x)
            out[x] = static_cast<double>(withOffset(in[x]));
    else
        for (int x = 0; x < w; ++x)
            out[x] = static_cast<double>(in[x]);
}

/// The blurred values of row y by running sums. `slide` says the column sums hold row y - 1
/// and both windows lie inside the plane, so one row enters and one leaves. Without `skips`
/// the plane holds no -1.0 and the counts are not kept. All sums are exact (the plane passed
/// the exactness bound), so the window sums may be added in any order: each is the sum of
/// its columns, added column by column over the whole row.
template <bool skips, class Load>
void RunningRow(const float* copy, int w, int h, int y, int half, bool lowPass, bool slide,
                const Load& load, double* colSum, int* colSkip, int* rowSkip, double* blurred) {
    if (slide) {
        const float* enter = copy + static_cast<std::size_t>(y + half) * w;
        const float* leave = copy + static_cast<std::size_t>(y - half - 1) * w;
        if (skips)
            for (int x = 0; x < w; ++x)
                colSum[x] += Kept(enter[x], load) - Kept(leave[x], load);
        else
            AddColumns(colSum, enter, leave, w, Load::kOffset, load.offset);
        if (skips)
            for (int x = 0; x < w; ++x)
                colSkip[x] += (load(enter[x]) == -1.0f) - (load(leave[x]) == -1.0f);
    } else {
        std::fill(colSum, colSum + w, 0.0);
        if (skips)
            std::fill(colSkip, colSkip + w, 0);
        for (int dy = -half; dy <= half; ++dy) {
            const float* row = copy + static_cast<std::size_t>(MirrorIndex(y, dy, h)) * w;
            if (skips)
                for (int x = 0; x < w; ++x)
                    colSum[x] += Kept(row[x], load);
            else
                AddColumns(colSum, row, nullptr, w, Load::kOffset, load.offset);
            if (skips)
                for (int x = 0; x < w; ++x)
                    colSkip[x] += load(row[x]) == -1.0f;
        }
    }
    const int side = 2 * half + 1;
    const int total = side * side;
    // Window sums: the columns that need the mirror rule one at a time, the rest column by
    // column over the row.
    auto direct = [&](int x) {
        double sum = 0.0;
        int skipped = 0;
        for (int dx = -half; dx <= half; ++dx) {
            const int j = MirrorIndex(x, dx, w);
            sum += colSum[j];
            if (skips)
                skipped += colSkip[j];
        }
        blurred[x] = sum;
        if (skips)
            rowSkip[x] = skipped;
    };
    const int first = half, last = w - half - 1; // columns whose window needs no mirror
    if (first > last) {
        for (int x = 0; x < w; ++x)
            direct(x);
    } else {
        for (int x = 0; x < first; ++x)
            direct(x);
        BoxSums(colSum, first, last, half, blurred);
        if (skips) {
            for (int x = first; x <= last; ++x)
                rowSkip[x] = colSkip[x - half];
            for (int dx = -half + 1; dx <= half; ++dx)
                for (int x = first; x <= last; ++x)
                    rowSkip[x] += colSkip[x + dx];
        }
        for (int x = last + 1; x < w; ++x)
            direct(x);
    }
    if (!lowPass)
        return;
    if (skips)
        for (int x = 0; x < w; ++x)
            blurred[x] = blurred[x] / (total - rowSkip[x]);
    else
        DivideRow(blurred, w, total);
}

/// The blurred values of every row of `copy` (as `load` gives its entries), handed a row at a
/// time to `rowDone(chunk, y, blurred)`. `running` takes the running sums (the plane passed
/// the exactness bound; `skips` when it may hold -1.0), else the plain gather of each window,
/// which reads the plane as it is.
template <class Load, class RowDone>
Outcome WindowRows(const float* copy, int w, int h, const WindowFilter& filter, bool running,
                   bool skips, const Load& load, RowBuffers& buffers, int chunks, RowDone&& rowDone,
                   IProgress* progress) {
    ParallelRows(chunks, [&](int c0, int c1) {
        for (int c = c0; c < c1; ++c) {
            const std::size_t at = static_cast<std::size_t>(c) * w;
            double* colSum = buffers.colSum.data() + at;
            int* colSkip = buffers.colSkip.data() + at;
            int* rowSkip = buffers.rowSkip.data() + at;
            double* blurred = buffers.blurred.data() + at;
            const int y0 = ChunkStart(c, chunks, h), y1 = ChunkStart(c + 1, chunks, h);
            for (int y = y0; y < y1 && !Cancelled(progress); ++y) {
                if (running) {
                    const bool slide = y > y0 && y - 1 - filter.half >= 0 && y + filter.half < h;
                    if (skips)
                        RunningRow<true>(copy, w, h, y, filter.half, filter.lowPass, slide, load,
                                         colSum, colSkip, rowSkip, blurred);
                    else
                        RunningRow<false>(copy, w, h, y, filter.half, filter.lowPass, slide, load,
                                          colSum, colSkip, rowSkip, blurred);
                } else if (y >= filter.half && y + filter.half < h && w > 2 * filter.half) {
                    const int first = filter.half,
                              last = w - filter.half; // inside: [first, last)
                    for (int x = 0; x < first; ++x)
                        blurred[x] = PlainWindow(copy, w, h, x, y, filter);
                    for (int x = first; x < last; ++x)
                        blurred[x] = PlainWindowInside(copy, w, x, y, filter);
                    for (int x = last; x < w; ++x)
                        blurred[x] = PlainWindow(copy, w, h, x, y, filter);
                } else {
                    for (int x = 0; x < w; ++x)
                        blurred[x] = PlainWindow(copy, w, h, x, y, filter);
                }
                rowDone(c, y, blurred);
            }
        }
    });
    return Cancelled(progress) ? Outcome::Cancelled : Outcome::Done;
}

/// Whether a box filter takes the running sums on a plane that passes the exactness bound.
bool RunningAllowed(const WindowFilter& filter) {
    return filter.box && gWindowPath.load() == static_cast<int>(stretch_testing::WindowPath::Auto);
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
    PlaneScan scan;
    if (RunningAllowed(*filter))
        scan = ScanPlane(copy, w, h, filter->Side());
    ++(scan.exact ? gSlidingPlanes : gPlainPlanes);
    const int chunks = ChunkCount(h);
    RowBuffers buffers;
    if (!buffers.Make(chunks, w, false))
        return Outcome::NoMemory;
    return WindowRows(
        copy, w, h, *filter, scan.exact, scan.minusOne, SameValue{}, buffers, chunks,
        [&](int, int y, const double* blurred) {
            const std::size_t row = static_cast<std::size_t>(y) * w;
            for (int x = 0; x < w; ++x) {
                const double v = pre(static_cast<double>(src[row + x]) + offset);
                store(row + x, curve.Filtered(v, blurred[x]));
            }
        },
        progress);
}

/// One row of the value plane: the largest pre-stretched channel without offset, clamped.
/// Without a pre-stretch the same comparisons run on the converted values directly, so that
/// the loop vectorises.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
__attribute__((target_clones("avx2", "default")))
#endif
void ValueRow(const float* a, const float* b, const float* c, int w, const PreStretch& pre,
              double top, float* out) {
    if (pre.type == ScaleType::None && pre.backToLevels) {
        for (int x = 0; x < w; ++x) {
            const double ra = a[x], rb = b[x], rc = c[x];
            const double bc = rb < rc ? rc : rb; // std::max(rb, rc)
            const double v = ra < bc ? bc : ra;
            out[x] = static_cast<float>(v >= 0.0 ? (v > top ? top : v) : 0.0);
        }
        return;
    }
    for (int x = 0; x < w; ++x)
        out[x] = static_cast<float>(
            ClampStretch(std::max(pre(a[x]), std::max(pre(b[x]), pre(c[x]))), 0.0, top));
}

/// Whether every entry of a row of values in [0, 2^52 / scale) times `scale` (a power of
/// two) is a whole number.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
__attribute__((target_clones("avx2", "default")))
#endif
bool RowOnGrid(const float* row, int w, double scale) {
    const double magic = 4503599627370496.0; // 2^52: adding and taking it away rounds
    int off = 0;
    for (int x = 0; x < w; ++x) {
        const double y = static_cast<double>(row[x]) * scale;
        off |= ((y + magic) - magic) != y;
    }
    return off == 0;
}

/// The counting level of each entry of a row: RoundLevel16 on the 16-bit range, in vectors,
/// else RoundLevel on 0..top.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
__attribute__((target_clones("avx512f", "avx2", "default")))
#endif
void LevelRow(const float* row, int w, int top, std::uint32_t* out) {
    if (top == 65535)
        for (int x = 0; x < w; ++x)
            out[x] = static_cast<std::uint32_t>(RoundLevel16(row[x]));
    else
        for (int x = 0; x < w; ++x)
            out[x] = static_cast<std::uint32_t>(RoundLevel(row[x], 0, top));
}

/// The medians of the three input planes from one pass over them and, with `value`, the
/// value plane, its median, and whether all its entries are multiples of 2^-gridBits
/// (`gridBits` from 0 up; `*onGrid` false when it is below 0 or the check is not made).
void ThreePlaneStats(const Image& img, const float* const in[3], const PreStretch& pre,
                     float* value, int gridBits, std::uint32_t median[4], bool* onGrid) {
    const int w = img.width, h = img.height;
    const double top = img.maxValue;
    const int planes = value ? 4 : 3;
    *onGrid = false;
    std::vector<std::uint32_t> hist, levels;
    const int chunks = std::min(h, std::clamp(tbb::this_task_arena::max_concurrency(), 1, 16));
    const std::size_t bins = static_cast<std::size_t>(img.maxValue) + 1;
    bool counted = img.maxValue <= 65535;
    if (counted) {
        try {
            hist.assign(bins * planes * static_cast<std::size_t>(chunks), 0u);
            levels.assign(static_cast<std::size_t>(chunks) * w, 0u);
        } catch (const std::bad_alloc&) {
            counted = false;
        }
    }
    if (!counted) { // the plain form: a pass for each
        for (int c = 0; c < 3; ++c)
            median[c] = img.MedianLevelOfPlane(in[c]);
        if (value) {
            ParallelRows(h, [&](int y0, int y1) {
                for (int y = y0; y < y1; ++y) {
                    const std::size_t row = static_cast<std::size_t>(y) * w;
                    ValueRow(in[0] + row, in[1] + row, in[2] + row, w, pre, top, value + row);
                }
            });
            median[3] = img.MedianLevelOfPlane(value);
        }
        return;
    }
    const int topLevel = static_cast<int>(img.maxValue);
    const bool checkGrid = value && gridBits >= 0;
    const double scale = checkGrid ? std::ldexp(1.0, gridBits) : 1.0;
    std::vector<char> chunkOnGrid(static_cast<std::size_t>(chunks), 1);
    ParallelRows(chunks, [&](int c0, int c1) {
        for (int c = c0; c < c1; ++c) {
            std::uint32_t* counts = hist.data() + bins * planes * static_cast<std::size_t>(c);
            std::uint32_t* level = levels.data() + static_cast<std::size_t>(c) * w;
            bool grid = true;
            // The levels of a row first (in vectors), then the counts.
            auto count = [&](const float* row, std::uint32_t* plane) {
                LevelRow(row, w, topLevel, level);
                for (int x = 0; x < w; ++x)
                    ++plane[level[x]];
            };
            for (int y = ChunkStart(c, chunks, h); y < ChunkStart(c + 1, chunks, h); ++y) {
                const std::size_t i0 = static_cast<std::size_t>(y) * w;
                for (int p = 0; p < 3; ++p)
                    count(in[p] + i0, counts + p * bins);
                if (!value)
                    continue;
                ValueRow(in[0] + i0, in[1] + i0, in[2] + i0, w, pre, top, value + i0);
                count(value + i0, counts + 3 * bins);
                if (checkGrid && grid)
                    grid = RowOnGrid(value + i0, w, scale);
            }
            chunkOnGrid[c] = grid;
        }
    });
    const double n = static_cast<double>(w) * h;
    for (int plane = 0; plane < planes; ++plane) {
        std::uint32_t* total = hist.data() + bins * plane;
        for (int c = 1; c < chunks; ++c) {
            const std::uint32_t* counts = hist.data() + bins * (planes * c + plane);
            for (std::size_t b = 0; b < bins; ++b)
                total[b] += counts[b];
        }
        // The level at which half the pixels are counted, as MedianLevelOfPlane finds it.
        median[plane] = static_cast<std::uint32_t>(bins - 1);
        double running = 0.0;
        for (std::size_t b = 0; b < bins; ++b) {
            running += total[b];
            if (running * 100.0 / n >= 50.0) {
                median[plane] = static_cast<std::uint32_t>(b);
                break;
            }
        }
    }
    *onGrid =
        checkGrid && std::find(chunkOnGrid.begin(), chunkOnGrid.end(), 0) == chunkOnGrid.end();
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
    if (!pending)
        for (int c = 0; c < 3; ++c)
            CopyPlane(prevPlane[c], curPlane[c]);
    const float* in[3] = {prevPlane[0], prevPlane[1], prevPlane[2]};
    float* out[3] = {curPlane[0], curPlane[1], curPlane[2]};
    // The medians of the channels and, with a filter, the value plane of the pre-stretched
    // input without offset and its median, in one pass.
    float* value = filtering ? scratch.planes[0] : nullptr;
    // The most bits below the point the value entries may have for the running sums to be
    // exact with them whatever the offset turns out to be: the offset is a whole number no
    // larger than the top level times the background weight, so it adds no such bits and
    // the entries grow by at most that much (a float rounding on top, or the 1.0 put in for
    // entries not above 0).
    const double largestWithOffset =
        (top + std::fabs(top * backgroundWeight) + 1.0) * (1.0 + 0x1p-20) + 1.0;
    int gridBits = -1;
    if (filtering && RunningAllowed(filter))
        while (gridBits < 200 && SumsExactFor(gridBits + 1, largestWithOffset, filter.Side()))
            ++gridBits;
    std::uint32_t median[4] = {0, 0, 0, 0};
    bool onGrid = false;
    ThreePlaneStats(*this, in, pre, value, gridBits, median, &onGrid);
    int offset[3];
    for (int c = 0; c < 3; ++c)
        offset[c] = BackgroundOffset(median[c], backgroundWeight);
    if (progress)
        progress->SetProgress(1, passes);
    const double weights[3] = {red, green, blue};
    const int chunks = ChunkCount(height);
    RowBuffers buffers;
    if (!buffers.Make(chunks, w, true))
        return false;
    // The curve of each channel, then the decompress-colour step, a row at a time from the
    // pre-stretched values.
    auto colourRow = [&](int c, int y) {
        double* r = buffers.colour.data() + static_cast<std::size_t>(c) * 3 * w;
        double* g = r + w;
        double* b = g + w;
        const std::size_t row = static_cast<std::size_t>(y) * w;
        PreRow(in[0] + row, offset[0], pre, w, r);
        PreRow(in[1] + row, offset[1], pre, w, g);
        PreRow(in[2] + row, offset[2], pre, w, b);
        DdpColourRow(r, g, b, w, curve, weights, top, out[0] + row, out[1] + row, out[2] + row);
    };
    if (!filtering) {
        ParallelRows(chunks, [&](int c0, int c1) {
            for (int c = c0; c < c1; ++c)
                for (int y = ChunkStart(c, chunks, height);
                     y < ChunkStart(c + 1, chunks, height) && !Cancelled(progress); ++y)
                    colourRow(c, y);
        });
        if (Cancelled(progress))
            return false;
        if (progress)
            progress->SetProgress(2, passes);
        return true;
    }

    // The value plane takes its own offset: v + offset, or 1.0 where that is not above 0. Then
    // the one-plane curve on it, without a pre-stretch, and each new value replaces its pixel's
    // own in HSV, a row at a time right after the row's colour step. When the value plane
    // without offset already lies on the grid found above, the offset is applied as the
    // entries are read; otherwise the plane takes it in place and is scanned as a one-plane
    // copy is.
    const int valueOffset = BackgroundOffset(median[3], backgroundWeight);
    const bool offsetAsRead = onGrid;
    if (progress)
        progress->SetProgress(2, passes);
    auto swapRow = [&](int c, int y, const double* blurred, const auto& load) {
        colourRow(c, y);
        double* v = buffers.colour.data() + static_cast<std::size_t>(c) * 3 * w;
        const std::size_t row = static_cast<std::size_t>(y) * w;
        ValuesOf(value + row, w, std::decay_t<decltype(load)>::kOffset, load.offset, v);
        DdpSwapRow(v, blurred, w, curve, top, out[0] + row, out[1] + row, out[2] + row);
    };
    Outcome done;
    if (offsetAsRead) {
        ++gSlidingPlanes;
        if (progress)
            progress->SetProgress(3, passes);
        const OffsetValue load{valueOffset};
        done = WindowRows(
            value, w, height, filter, true, false, load, buffers, chunks,
            [&](int c, int y, const double* blurred) { swapRow(c, y, blurred, load); }, progress);
    } else {
        ParallelRows(height, [&](int y0, int y1) {
            const OffsetValue load{valueOffset};
            const std::size_t end = static_cast<std::size_t>(y1) * w;
            for (std::size_t i = static_cast<std::size_t>(y0) * w; i < end; ++i)
                value[i] = load(value[i]);
        });
        PlaneScan scan;
        if (RunningAllowed(filter))
            scan = ScanPlane(value, w, height, filter.Side());
        ++(scan.exact ? gSlidingPlanes : gPlainPlanes);
        if (progress)
            progress->SetProgress(3, passes);
        const SameValue load;
        done = WindowRows(
            value, w, height, filter, scan.exact, scan.minusOne, load, buffers, chunks,
            [&](int c, int y, const double* blurred) { swapRow(c, y, blurred, load); }, progress);
    }
    if (done != Outcome::Done)
        return false;
    if (progress)
        progress->SetProgress(4, passes);
    if (progress)
        progress->SetProgress(passes, passes);
    return true;
}

} // namespace astrivelle
