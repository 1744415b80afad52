// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The rank filters (median, selected neighbourhood, absolute difference, adaptive median,
/// quantile) by a histogram that slides along each row.
///
/// The window at (x, y) is, as a multiset, the product of its mirrored rows and its mirrored
/// columns. Along a row the rows stay, so moving from x - 1 to x changes the multiset by whole
/// columns: away from the edges one column leaves and one enters; near an edge (or when the
/// window is wider than the image) the multiplicity of each column is compared, so the
/// histogram always holds exactly the multiset the plain gather would sort.
///
/// Every result depends only on that multiset, so it comes out identical to the plain form
/// when the levels are exact: a plane whose samples are all integers 0..65535 (and no -0).
/// Sorted entries are then levels; the sums of the selected neighbourhood and the absolute
/// difference are integers below 2^53, exact in any order. Any other plane takes the plain
/// form, row-parallel. The quantile works on 256 bins of trunc(v / 256) and slides for every
/// plane. Small windows also take the plain form, which is faster there, and the 5 x 5 median
/// of exact levels a sorting network across each row's pixels, faster still.
///
/// The histogram updates are the bulk of the work: a bin hit again and again by the values of
/// a smooth window makes every update wait for the last one. So the selected neighbourhood
/// keeps its per-bin moments in four interleaved copies (added up when a pixel asks), and the
/// quantile moves no bin at all when the leaving and the entering sample share a bin.
#include <tbb/enumerable_thread_specific.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "engine/Parallel.h"
#include "operators/Filters.h"
#include "operators/filters/MedianNetwork.h"
#include "operators/filters/RankOracle.h"

namespace astrivelle::smoothing {

namespace {

/// Below this half size the plain gather and sort is as fast as the histogram.
constexpr int kSlideFromHalf = 2;

enum class Mode { Counts, Sums, Bins, Moments };

/// Copies of the selected neighbourhood's per-bin moments, and dummy slots of the quantile.
constexpr int kCopies = 4;

/// A histogram over the 65536 levels in two tiers (256 coarse bins of 256 levels), with
/// per-coarse-bin sums of v and v * v when the mode needs them. In Bins mode only the coarse
/// tier is used, indexed by the quantile's bin, with 16 groups of 16 bins above it. In Moments
/// mode the coarse count, sum and sum of squares are kept in kCopies copies, bin b's at
/// b * kCopies + copy; only their total over the copies is a count (a copy may go negative).
struct Histogram {
    std::vector<std::uint16_t> fine = std::vector<std::uint16_t>(65536, 0);
    std::int32_t coarse[256 + 2 * kCopies] = {}; // past 256: dummy slots of the quantile's slide
    std::int32_t group[16 + 2 * kCopies] = {};
    std::int64_t coarseSum[256] = {};
    std::int64_t coarseSq[256] = {};
    std::int32_t copyCount[256 * kCopies] = {};
    std::int64_t copySum[256 * kCopies] = {};
    std::int64_t copySq[256 * kCopies] = {};
    std::int64_t count = 0, sum = 0, sumSq = 0; // over the whole window

    template <Mode M> void Update(int v, int times, int copy = 0) {
        if constexpr (M == Mode::Bins) {
            coarse[v] += times;
            group[v >> 4] += times;
            count += times;
            sum += static_cast<std::int64_t>(v) * times;
            sumSq += static_cast<std::int64_t>(v) * v * times;
        } else if constexpr (M == Mode::Moments) {
            fine[v] = static_cast<std::uint16_t>(fine[v] + times);
            const int at = ((v >> 8) * kCopies) | copy;
            const std::int64_t s = static_cast<std::int64_t>(v) * times;
            const std::int64_t q = s * v;
            copyCount[at] += times;
            copySum[at] += s;
            copySq[at] += q;
            count += times;
            sum += s;
            sumSq += q;
        } else {
            fine[v] = static_cast<std::uint16_t>(fine[v] + times);
            coarse[v >> 8] += times;
            count += times;
            if constexpr (M == Mode::Sums) {
                const std::int64_t s = static_cast<std::int64_t>(v) * times;
                const std::int64_t q = s * v;
                coarseSum[v >> 8] += s;
                coarseSq[v >> 8] += q;
                sum += s;
                sumSq += q;
            }
        }
    }

    void Clear() {
        for (int b = 0; b < 256; ++b) {
            int n = coarse[b];
            for (int k = 0; k < kCopies; ++k)
                n += copyCount[b * kCopies + k];
            if (n != 0)
                std::memset(fine.data() + (b << 8), 0, 256 * sizeof(std::uint16_t));
        }
        std::memset(coarse, 0, sizeof coarse);
        std::memset(group, 0, sizeof group);
        std::memset(coarseSum, 0, sizeof coarseSum);
        std::memset(coarseSq, 0, sizeof coarseSq);
        std::memset(copyCount, 0, sizeof copyCount);
        std::memset(copySum, 0, sizeof copySum);
        std::memset(copySq, 0, sizeof copySq);
        count = sum = sumSq = 0;
    }

    /// The k-th smallest level (0-based).
    int Kth(int k) const {
        int b = 0, acc = 0;
        while (acc + coarse[b] <= k)
            acc += coarse[b++];
        int v = b << 8;
        while (acc + fine[v] <= k)
            acc += fine[v++];
        return v;
    }

    /// Number of levels below v (v in 0..65535).
    int CountLess(int v) const {
        const int b = v >> 8;
        int acc = 0;
        for (int i = 0; i < b; ++i)
            acc += coarse[i];
        for (int u = b << 8; u < v; ++u)
            acc += fine[u];
        return acc;
    }
};

/// Per-thread state of the sliding filters: made once per thread, before its first row.
struct Scratch {
    Histogram hist;
    std::vector<int> delta;   ///< multiplicity change per column
    std::vector<int> touched; ///< columns whose multiplicity may have changed
    std::vector<int> rows;    ///< the mirrored rows of the current output row
    std::int32_t cumulative[257] = {};
    Scratch(int width, int side) : delta(width, 0), touched(4 * side), rows(side) {}
};

/// The level of an exact sample (integer planes only).
inline int Level(float v) {
    return static_cast<int>(v);
}

/// The quantile's bin of a sample, as QuantileBin gives it: below 0 or not a number in bin 0,
/// from 65535 up in bin 255, else trunc(v) / 256 (the same as trunc(v / 256) for v >= 0).
inline int BinOf(float v) {
    const float atLeastZero = std::max(0.0f, v); // NaN compares false: 0
    return static_cast<int>(std::min(atLeastZero, 65535.0f)) >> 8;
}

template <Mode M> inline int KeyOf(float v) {
    if constexpr (M == Mode::Bins)
        return BinOf(v);
    else
        return Level(v);
}

/// Adds `times` copies of column c of the window's rows to the histogram.
template <Mode M>
inline void AddColumn(Histogram& hist, const float* plane, int width, const int* rows, int side,
                      int c, int times) {
    for (int k = 0; k < side; ++k)
        hist.Update<M>(KeyOf<M>(plane[static_cast<long>(rows[k]) * width + c]), times, k % kCopies);
}

/// Moves the window of the row from column x - 1 to x.
template <Mode M> inline void Slide(Scratch& s, const float* plane, int width, int half, int x) {
    const int side = 2 * half + 1;
    const int* rows = s.rows.data();
    if (x - 1 - half >= 0 && x + half < width) {
        const float* leave = plane + (x - 1 - half);
        const float* enter = plane + (x + half);
        Histogram& h = s.hist;
        if constexpr (M == Mode::Bins) {
            // Most pairs share a bin: they then move nothing but the sums, and their bin
            // updates go to dummy slots past the real bins, which no chain waits on.
            std::int64_t sum = h.sum, sumSq = h.sumSq;
            for (int k = 0; k < side; ++k) {
                const long at = static_cast<long>(rows[k]) * width;
                const int a = BinOf(leave[at]), b = BinOf(enter[at]);
                sum += b - a;
                sumSq += b * b - a * a;
                const int spare = k % kCopies;
                const bool sameBin = a == b;
                --h.coarse[sameBin ? 256 + spare : a];
                ++h.coarse[sameBin ? 256 + kCopies + spare : b];
                const bool sameGroup = (a >> 4) == (b >> 4);
                --h.group[sameGroup ? 16 + spare : a >> 4];
                ++h.group[sameGroup ? 16 + kCopies + spare : b >> 4];
            }
            h.sum = sum;
            h.sumSq = sumSq;
        } else if constexpr (M == Mode::Moments) {
            // Leaving and entering values, even and odd rows, each to their own copy.
            for (int k = 0; k < side; ++k) {
                const long at = static_cast<long>(rows[k]) * width;
                h.Update<M>(Level(leave[at]), -1, k & 1);
                h.Update<M>(Level(enter[at]), 1, 2 | (k & 1));
            }
        } else {
            for (int k = 0; k < side; ++k) {
                const long at = static_cast<long>(rows[k]) * width;
                h.Update<M>(KeyOf<M>(leave[at]), -1);
                h.Update<M>(KeyOf<M>(enter[at]), 1);
            }
        }
        return;
    }
    int n = 0;
    for (int d = -half; d <= half; ++d) {
        const int a = MirrorIndex(x - 1, d, width);
        const int b = MirrorIndex(x, d, width);
        --s.delta[a];
        ++s.delta[b];
        s.touched[n++] = a;
        s.touched[n++] = b;
    }
    for (int i = 0; i < n; ++i) {
        const int c = s.touched[i];
        if (s.delta[c] != 0) {
            AddColumn<M>(s.hist, plane, width, rows, side, c, s.delta[c]);
            s.delta[c] = 0;
        }
    }
}

/// Number of levels at or below v, from the coarse cumulative counts of the pixel.
inline int CountAtOrBelow(const Histogram& h, const std::int32_t* cumulative, int v) {
    if (v < 0)
        return 0;
    if (v >= 65535)
        return static_cast<int>(h.count);
    int acc = cumulative[v >> 8];
    for (int u = (v >> 8) << 8; u <= v; ++u)
        acc += h.fine[u];
    return acc;
}

/// Sum of the levels at or below v.
inline std::int64_t SumAtOrBelow(const Histogram& h, int v) {
    if (v < 0)
        return 0;
    if (v >= 65535)
        return h.sum;
    const int b = v >> 8;
    std::int64_t acc = 0;
    for (int i = 0; i < b; ++i)
        acc += h.coarseSum[i];
    for (int u = b << 8; u <= v; ++u)
        acc += static_cast<std::int64_t>(h.fine[u]) * u;
    return acc;
}

/// Count, sum and sum of squares of the levels below v, from the copies of the coarse moments
/// and the fine counts of v's bin, each summed from whichever end is nearer.
void MomentsBelow(const Histogram& h, int v, std::int64_t* c, std::int64_t* s, std::int64_t* q) {
    const int b = v >> 8;
    std::int64_t cc = 0, ss = 0, qq = 0;
    if (b < 128) {
        for (int i = 0; i < b * kCopies; ++i) {
            cc += h.copyCount[i];
            ss += h.copySum[i];
            qq += h.copySq[i];
        }
    } else {
        for (int i = b * kCopies; i < 256 * kCopies; ++i) {
            cc -= h.copyCount[i];
            ss -= h.copySum[i];
            qq -= h.copySq[i];
        }
        cc += h.count;
        ss += h.sum;
        qq += h.sumSq;
    }
    const int base = b << 8;
    if (v - base <= 128) {
        for (int u = base; u < v; ++u) {
            const std::int64_t n = h.fine[u];
            cc += n;
            ss += n * u;
            qq += n * u * u;
        }
    } else {
        // All of bin b, less its levels from v up.
        for (int k = 0; k < kCopies; ++k) {
            cc += h.copyCount[b * kCopies + k];
            ss += h.copySum[b * kCopies + k];
            qq += h.copySq[b * kCopies + k];
        }
        for (int u = v; u < base + 256; ++u) {
            const std::int64_t n = h.fine[u];
            cc -= n;
            ss -= n * u;
            qq -= n * u * u;
        }
    }
    *c = cc;
    *s = ss;
    *q = qq;
}

double SlideSelectedNbhd(const Histogram& h, int p, std::int64_t top) {
    std::int64_t cLo, sLo, qLo;
    MomentsBelow(h, p, &cLo, &sLo, &qLo);
    const std::int64_t cp = h.fine[p];
    const std::int64_t cHi = h.count - cLo - cp;
    const std::int64_t sHi = h.sum - sLo - cp * p;
    const std::int64_t qHi = h.sumSq - qLo - cp * p * p;
    // sum(w v) and sum(w) with w = top - |p - v|, split at p.
    const std::int64_t num = top * h.sum - (p * sLo - qLo) - (qHi - p * sHi);
    const std::int64_t den = top * h.count - (p * cLo - sLo) - (sHi - p * cHi);
    return static_cast<double>(num) / static_cast<double>(den);
}

double SlideAbsDifference(Scratch& s, int count) {
    const Histogram& h = s.hist;
    const int k = (count - 1) / 2;
    const int c = h.Kth(k);
    std::int32_t* cum = s.cumulative;
    cum[0] = 0;
    for (int b = 0; b < 256; ++b)
        cum[b + 1] = cum[b] + h.coarse[b];
    auto within = [&](int t) {
        return CountAtOrBelow(h, cum, std::min(c + t, 65535)) - CountAtOrBelow(h, cum, c - t - 1);
    };
    // The k-th smallest distance: the least t whose band [c - t, c + t] holds k + 1 levels.
    int lo = 0, hi = std::max(c, 65535 - c);
    while (lo < hi) {
        const int mid = lo + (hi - lo) / 2;
        if (within(mid) >= k + 1)
            hi = mid;
        else
            lo = mid + 1;
    }
    const int t = lo;
    const int taken = within(t);
    const std::int64_t sum = SumAtOrBelow(h, std::min(c + t, 65535)) - SumAtOrBelow(h, c - t - 1);
    return static_cast<double>(sum) / taken;
}

/// The first quantile bin whose cumulative count reaches k (k at most the window's count).
inline int FirstBinReaching(const Histogram& h, std::int64_t k) {
    if (k <= 0)
        return 0;
    std::int64_t acc = 0;
    int g = 0;
    while (acc + h.group[g] < k)
        acc += h.group[g++];
    int b = g << 4;
    while (acc + h.coarse[b] < k)
        acc += h.coarse[b++];
    return b;
}

/// The quantile's quant(f): the first bin whose distribution count / c is at or above f, 255
/// when there is none. count / c only grows with count, so that is the first bin whose
/// cumulative count reaches the least k with k / c >= f; the distribution ends at exactly 1.
inline int QuantOf(const Histogram& h, double c, double f) {
    if (!(f <= 1.0))
        return 255;
    const std::int64_t n = h.count;
    const double guess = std::ceil(f * c);
    std::int64_t k =
        guess <= 0 ? 0 : (guess >= static_cast<double>(n) ? n : static_cast<std::int64_t>(guess));
    while (k > 0 && static_cast<double>(k - 1) / c >= f)
        --k;
    while (k < n && static_cast<double>(k) / c < f)
        ++k;
    return FirstBinReaching(h, k);
}

/// The quantile filter from the sliding bins: the same arithmetic as QuantileOfHistogram, with
/// each quantile found through the 16 groups instead of a walk over the whole distribution.
double SlideQuantile(const Histogram& h, double p, double top) {
    const double sum = static_cast<double>(h.sum);
    const double sumSq = static_cast<double>(h.sumSq);
    if (sum == 0)
        return p;
    const double c = static_cast<double>(h.count);
    const double a = sum / c;
    const double variance = sumSq / c - a * a;
    const double u = std::sqrt(variance) / a;
    const double e = std::exp(-3.912 * u * u);
    const double med = QuantOf(h, c, 0.5);
    const double shift = (a - med) / 256.0;
    const double low = QuantOf(h, c, (shift + 1) * (e * 0.5)) / 256.0 * top;
    const double high = QuantOf(h, c, (1 - shift) * (1 - e * 0.5)) / 256.0 * top;
    if (p < low)
        return std::trunc(low);
    if (p > high)
        return std::trunc(high);
    return p;
}

/// Rows [y0, y1) of a sliding filter.
template <Mode M> bool SlideRows(const PlaneJob& job, Scratch& s, int y0, int y1, FilterRun* run) {
    const int w = job.width, hgt = job.height, half = job.half, side = job.Side();
    const int count = side * side;
    const ApplyRange range = job.Range();
    const std::int64_t topLevel = static_cast<std::int64_t>(job.top);
    for (int y = y0; y < y1; ++y) {
        for (int d = -half; d <= half; ++d)
            s.rows[d + half] = MirrorIndex(y, d, hgt);
        s.hist.Clear();
        for (int d = -half; d <= half; ++d)
            ++s.delta[MirrorIndex(0, d, w)];
        for (int d = -half; d <= half; ++d) {
            const int c = MirrorIndex(0, d, w);
            if (s.delta[c] != 0) {
                AddColumn<M>(s.hist, job.prev, w, s.rows.data(), side, c, s.delta[c]);
                s.delta[c] = 0;
            }
        }
        const float* in = job.prev + static_cast<long>(y) * w;
        float* out = job.cur + static_cast<long>(y) * w;
        int lastIndex = 0; // the adaptive median's i, 0 at the row's start
        for (int x = 0; x < w; ++x) {
            if (x > 0)
                Slide<M>(s, job.prev, w, half, x);
            if (x % 100 == 0 && run && run->Stop())
                return false;
            const double p = in[x];
            if (range.Outside(p)) {
                out[x] = in[x];
                continue;
            }
            double r = p;
            if constexpr (M == Mode::Bins) {
                r = SlideQuantile(s.hist, p, job.top);
            } else {
                const int level = Level(in[x]);
                switch (job.type) {
                case SmoothMedian:
                    r = s.hist.Kth((count - 1) / 2);
                    break;
                case SmoothAdaptiveMedian: {
                    const int less = s.hist.CountLess(level);
                    const int last = less + s.hist.fine[level] - 1;
                    if (last <= count - 2)
                        lastIndex = last;
                    else if (less <= count - 2)
                        lastIndex = count - 2; // p repeats up to the last entry
                    r = s.hist.Kth(AdaptiveMedianIndex(lastIndex, count, job.order));
                    break;
                }
                case SmoothSelectedNbhd:
                    r = SlideSelectedNbhd(s.hist, level, topLevel);
                    break;
                case SmoothAbsDifference:
                    r = SlideAbsDifference(s, count);
                    break;
                default:
                    break;
                }
            }
            out[x] = static_cast<float>(range.Mix(p, r, job.strength, job.top));
        }
        if (run)
            run->RowsDone(1);
    }
    return true;
}

template <Mode M> bool SlideFilter(const PlaneJob& job, FilterRun* run) {
    const int side = job.Side();
    tbb::enumerable_thread_specific<Scratch> scratch(
        [&job, side] { return Scratch(job.width, side); });
    ParallelRows(job.height, [&](int y0, int y1) {
        if (run && run->Stopped())
            return;
        SlideRows<M>(job, scratch.local(), y0, y1, run);
    });
    return !(run && run->Stopped());
}

/// True when every sample is an integer level 0..65535 (and none is -0).
bool ExactLevels(const float* plane, int width, int height) {
    std::atomic<bool> exact{true};
    ParallelRows(height, [&](int y0, int y1) {
        if (!exact.load(std::memory_order_relaxed))
            return;
        const float* p = plane + static_cast<long>(y0) * width;
        const long n = static_cast<long>(y1 - y0) * width;
        bool ok = true;
        for (long i = 0; i < n; ++i) {
            const float v = p[i];
            // Compares are false for NaN; the bit test catches -0.
            ok &= (v >= 0.0f) & (v <= 65535.0f) & (v == std::trunc(v)) & !std::signbit(v);
        }
        if (!ok)
            exact.store(false, std::memory_order_relaxed);
    });
    return exact.load();
}

} // namespace

bool RankFilter(const PlaneJob& job, FilterRun* run) {
    bool slide = job.half >= kSlideFromHalf && job.half <= 25;
    if (slide && job.type == SmoothQuantile)
        return SlideFilter<Mode::Bins>(job, run);
    if (slide)
        slide = ExactLevels(job.prev, job.width, job.height);
    if (slide && job.type == SmoothSelectedNbhd)
        slide = job.top == std::trunc(job.top) && job.top >= 0 && job.top <= (1 << 20);
    if (slide && job.type == SmoothMedian && job.half == 2) {
        ParallelRows(job.height, [&](int y0, int y1) {
            if (run && run->Stopped())
                return;
            MedianNetworkRows(job, y0, y1, run);
        });
        return !(run && run->Stopped());
    }
    if (slide) {
        if (job.type == SmoothSelectedNbhd)
            return SlideFilter<Mode::Moments>(job, run);
        if (job.type == SmoothAbsDifference)
            return SlideFilter<Mode::Sums>(job, run);
        return SlideFilter<Mode::Counts>(job, run);
    }
    ParallelRows(job.height, [&](int y0, int y1) {
        if (run && run->Stopped())
            return;
        PlainRankRows(job, y0, y1, run);
    });
    return !(run && run->Stopped());
}

} // namespace astrivelle::smoothing
