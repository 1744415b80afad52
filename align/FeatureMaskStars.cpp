// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Feature Mask "Stars" mode: opening background, matched plane, local noise, cores.
#include "align/FeatureMaskStars.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "engine/Parallel.h"

namespace astrivelle {

namespace {

template <bool Max> inline float Pick(float a, float b) {
    return Max ? std::max(a, b) : std::min(a, b);
}

/// Minimum (or maximum) over [i - r, i + r] clipped to the row, of the `n` values of `in`, by
/// prefix and suffix extremes in blocks of 2r + 1 (three compares a value, whatever r).
/// `pad` holds n + 2r values, `pre` and `suf` as many.
template <bool Max>
void RowExtreme(const float* in, float* out, int n, int r, float* pad, float* pre, float* suf) {
    const float outside =
        Max ? -std::numeric_limits<float>::infinity() : std::numeric_limits<float>::infinity();
    const int m = n + 2 * r, k = 2 * r + 1;
    std::fill(pad, pad + r, outside);
    std::copy(in, in + n, pad + r);
    std::fill(pad + r + n, pad + m, outside);
    for (int b = 0; b < m; b += k) {
        const int e = std::min(m, b + k);
        pre[b] = pad[b];
        for (int i = b + 1; i < e; ++i)
            pre[i] = Pick<Max>(pre[i - 1], pad[i]);
        suf[e - 1] = pad[e - 1];
        for (int i = e - 2; i >= b; --i)
            suf[i] = Pick<Max>(suf[i + 1], pad[i]);
    }
    // The window of out[i] is pad[i .. i + 2r]: the suffix of its first block and the prefix
    // of its last.
    for (int i = 0; i < n; ++i)
        out[i] = Pick<Max>(suf[i], pre[i + 2 * r]);
}

/// A separable extreme filter over the square of side 2r + 1 clipped to the plane (rows,
/// then columns) into `dst`, through `tmp`.
template <bool Max> void Extreme2D(const float* src, float* tmp, float* dst, int w, int h, int r) {
    ParallelRows(h, [&](int y0, int y1) {
        const std::size_t m = static_cast<std::size_t>(w) + 2 * r;
        std::vector<float> pad(m), pre(m), suf(m);
        for (int y = y0; y < y1; ++y)
            RowExtreme<Max>(src + static_cast<std::size_t>(y) * w,
                            tmp + static_cast<std::size_t>(y) * w, w, r, pad.data(), pre.data(),
                            suf.data());
    });
    // Columns: each output row takes the extreme of its rows of `tmp`, a row at a time.
    ParallelRows(h, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* out = dst + static_cast<std::size_t>(y) * w;
            const int first = std::max(0, y - r), last = std::min(h - 1, y + r);
            std::copy(tmp + static_cast<std::size_t>(first) * w,
                      tmp + static_cast<std::size_t>(first + 1) * w, out);
            for (int yy = first + 1; yy <= last; ++yy) {
                const float* in = tmp + static_cast<std::size_t>(yy) * w;
                for (int x = 0; x < w; ++x)
                    out[x] = Pick<Max>(out[x], in[x]);
            }
        }
    });
}

/// Gaussian smoothing of sigma `s` (kernel cut at 3 sigma, edges repeated), rows then
/// columns, into `dst` through `tmp`.
void Gaussian2D(const float* src, float* tmp, float* dst, int w, int h, double s) {
    const int r = std::max(1, static_cast<int>(std::ceil(3 * s)));
    std::vector<float> k(static_cast<std::size_t>(2 * r + 1));
    double sum = 0;
    for (int i = -r; i <= r; ++i)
        sum += k[static_cast<std::size_t>(i + r)] =
            static_cast<float>(std::exp(-i * i / (2 * s * s)));
    for (auto& v : k)
        v = static_cast<float>(v / sum);
    ParallelRows(h, [&](int y0, int y1) {
        std::vector<float> pad(static_cast<std::size_t>(w) + 2 * r);
        for (int y = y0; y < y1; ++y) {
            const float* in = src + static_cast<std::size_t>(y) * w;
            float* out = tmp + static_cast<std::size_t>(y) * w;
            std::fill(pad.begin(), pad.begin() + r, in[0]);
            std::copy(in, in + w, pad.begin() + r);
            std::fill(pad.begin() + r + w, pad.end(), in[w - 1]);
            std::fill(out, out + w, 0.0f);
            for (int t = 0; t <= 2 * r; ++t) {
                const float c = k[static_cast<std::size_t>(t)];
                const float* p = pad.data() + t;
                for (int x = 0; x < w; ++x)
                    out[x] += c * p[x];
            }
        }
    });
    ParallelRows(h, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* out = dst + static_cast<std::size_t>(y) * w;
            std::fill(out, out + w, 0.0f);
            for (int i = -r; i <= r; ++i) {
                const float* in = tmp + static_cast<std::size_t>(std::clamp(y + i, 0, h - 1)) * w;
                const float c = k[static_cast<std::size_t>(i + r)];
                for (int x = 0; x < w; ++x)
                    out[x] += c * in[x];
            }
        }
    });
}

double MedianOf(std::vector<float>& v) {
    if (v.empty())
        return 0;
    const std::size_t m = v.size() / 2;
    std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(m), v.end());
    return v[m];
}

/// Per block of the plane (kFeatureMaskBlock squares, the last row and column of blocks
/// taking the remainder, so that no block is too narrow to measure) one value.
struct BlockValues {
    int bw = 0, bh = 0;
    std::vector<float> value;
    BlockValues(int w, int h)
        : bw(std::max(1, w / kFeatureMaskBlock)), bh(std::max(1, h / kFeatureMaskBlock)),
          value(static_cast<std::size_t>(bw) * bh, 0.0f) {}
    float At(int x, int y) const {
        return value[static_cast<std::size_t>(std::min(y / kFeatureMaskBlock, bh - 1)) * bw +
                     std::min(x / kFeatureMaskBlock, bw - 1)];
    }
    /// Fills each block with `measure(values)` of `sample(x, y)` over its pixels for which
    /// `keep(x, y)` holds, taking every `step`-th pixel on both axes.
    template <class Sample, class Keep, class Measure>
    void Fill(int w, int h, int step, Sample sample, Keep keep, Measure measure) {
        const int B = kFeatureMaskBlock;
        ParallelRows(bh, [&](int b0, int b1) {
            std::vector<float> values;
            values.reserve(static_cast<std::size_t>(4) * B * B);
            for (int by = b0; by < b1; ++by)
                for (int bx = 0; bx < bw; ++bx) {
                    values.clear();
                    const int ye = by + 1 == bh ? h : (by + 1) * B;
                    const int xe = bx + 1 == bw ? w : (bx + 1) * B;
                    for (int y = by * B; y < ye; y += step)
                        for (int x = bx * B; x < xe; x += step)
                            if (keep(x, y))
                                values.push_back(sample(x, y));
                    value[static_cast<std::size_t>(by) * bw + bx] =
                        static_cast<float>(measure(values));
                }
        });
    }
};

/// Mean of the square ring of half side `r` about (x, y); the ring must lie in the plane.
double RingMean(const float* plane, int w, int x, int y, int r) {
    double sum = 0;
    const auto at = [&](int xx, int yy) { return plane[static_cast<std::size_t>(yy) * w + xx]; };
    for (int t = -r; t < r; ++t)
        sum += at(x + t, y - r) + at(x + r, y + t) + at(x - t, y + r) + at(x - r, y - t);
    return sum / (8.0 * r);
}

/// 1.4826 times the median absolute deviation from the median: a noise sigma that stars and
/// other outliers do not move.
double RobustSigma(std::vector<float>& v) {
    const double m = MedianOf(v);
    for (auto& x : v)
        x = static_cast<float>(std::fabs(x - m));
    return 1.4826 * MedianOf(v);
}

} // namespace

bool FeatureMaskStars(const float* src, float* dst, int width, int height,
                      const FeatureMaskStarsParams& p, std::string* error, int* outCores) {
    const auto fail = [&](const char* text) {
        if (error)
            *error = text;
        return false;
    };
    if (!src || !dst || width <= 0 || height <= 0)
        return fail("Feature Mask: missing plane");
    if (p.colorMode != 1)
        return fail("Feature Mask: the Stars mode works on one monochrome plane");
    if (p.radius < 1 || p.maskedArea < 0 || p.breakLocal < 1 || p.breakNeighbours < 0 ||
        p.breakNeighbours > 8 || !(p.factor > 0 && p.factor < 1) || p.threshold < 0)
        return fail("Feature Mask: argument out of range");
    const std::size_t n = static_cast<std::size_t>(width) * height;
    std::vector<float> residual, tmp, matched;
    try {
        residual.resize(n);
        tmp.resize(n);
        matched.resize(n);
    } catch (...) {
        return fail("Feature Mask: no memory");
    }
    const int ring = std::max(p.radius, p.breakLocal + 2);
    const auto inside = [&](int x, int y) {
        return x >= ring && y >= ring && x < width - ring && y < height - ring;
    };

    // 1. Opening, residual, and the residual's matched plane with its level per block.
    Extreme2D<false>(src, tmp.data(), matched.data(), width, height, OpeningRadius(p));
    Extreme2D<true>(matched.data(), tmp.data(), residual.data(), width, height, OpeningRadius(p));
    ParallelRows(height, [&](int y0, int y1) {
        for (std::size_t i = static_cast<std::size_t>(y0) * width;
             i < static_cast<std::size_t>(y1) * width; ++i)
            residual[i] = std::max(0.0f, src[i] - residual[i]);
    });
    Gaussian2D(residual.data(), tmp.data(), matched.data(), width, height, MatchedSigma(p));
    const float* mp = matched.data();
    BlockValues level(width, height);
    level.Fill(
        width, height, 1, [&](int x, int y) { return mp[static_cast<std::size_t>(y) * width + x]; },
        [](int, int) { return true; }, [](std::vector<float>& v) { return MedianOf(v); });

    // 2. The plane's own matched plane (the residual is no longer needed) and the noise of
    // its height above the ring, measured on every fourth pixel.
    float* sp = residual.data();
    Gaussian2D(src, tmp.data(), sp, width, height, MatchedSigma(p));
    const auto rise = [&](int x, int y) {
        return sp[static_cast<std::size_t>(y) * width + x] - RingMean(sp, width, x, y, ring);
    };
    BlockValues noise(width, height);
    noise.Fill(width, height, 4, rise, inside, RobustSigma);
    // The pixel noise of the plane itself: from differences of neighbours in a row, over
    // sqrt(2), which slopes and stars hardly move.
    BlockValues pixelNoise(width, height);
    pixelNoise.Fill(
        width, height, 4,
        [&](int x, int y) {
            const float* row = src + static_cast<std::size_t>(y) * width;
            return static_cast<float>((row[x + 1] - row[x]) / std::sqrt(2.0));
        },
        [&](int x, int) { return x + 1 < width; }, RobustSigma);

    // 3. Star cores, scored by their significance: the height above the ring over its noise.
    // The scores go into `tmp`, free by now: a core's is at least minScore >= 0, others -1.
    float* score = tmp.data();
    std::fill(score, score + n, -1.0f);
    const double minScore = p.threshold / kFeatureMaskLevelsPerSigma;
    const auto S = [&](int x, int y) { return sp[static_cast<std::size_t>(y) * width + x]; };
    const auto M = [&](int x, int y) { return mp[static_cast<std::size_t>(y) * width + x]; };
    const auto P = [&](int x, int y) { return src[static_cast<std::size_t>(y) * width + x]; };
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = std::max(y0, ring); y < std::min(y1, height - ring); ++y)
            for (int x = ring; x < width - ring; ++x) {
                // Placed on the residual's matched plane, where the opening took the slopes
                // that would pull a peak of the plane's own matched plane aside.
                const float v = M(x, y);
                bool isMax = true;
                for (int dy = -p.breakLocal; dy <= p.breakLocal && isMax; ++dy)
                    for (int dx = -p.breakLocal; dx <= p.breakLocal; ++dx) {
                        const float u = M(x + dx, y + dy);
                        const bool before = dy < 0 || (dy == 0 && dx < 0);
                        if (u > v || (before && u == v)) {
                            isMax = false;
                            break;
                        }
                    }
                if (!isMax)
                    continue;
                const double base = RingMean(sp, width, x, y, ring);
                const double z =
                    (S(x, y) - base) / std::max(noise.At(x, y), kFeatureMaskNoiseFloor);
                if (z < minScore)
                    continue;
                // The brightest pixel by the core needs bright neighbours, within the pixel
                // noise of half its height (a faint star's top is partly noise): a lone hot
                // pixel has none.
                int bx = x, by = y;
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx)
                        if (P(x + dx, y + dy) > P(bx, by)) {
                            bx = x + dx;
                            by = y + dy;
                        }
                const double half = 0.5 * (P(bx, by) - base) - 2.0 * pixelNoise.At(bx, by);
                int bright = 0;
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx)
                        if ((dx || dy) && P(bx + dx, by + dy) - base >= half)
                            ++bright;
                if (bright < p.breakNeighbours)
                    continue;
                // A star falls off by the ring; extended structure, which the opening leaves
                // in the residual where it is narrower than its square, does not.
                const double peak = M(x, y) - level.At(x, y);
                if (RingMean(mp, width, x, y, ring) - level.At(x, y) >= (1.0 - p.factor) * peak)
                    continue;
                score[static_cast<std::size_t>(y) * width + x] = static_cast<float>(z);
            }
    });

    // 6. Spots, graded by the rank of their score: level 65535 * 2^(-rank / K).
    std::vector<std::pair<float, std::size_t>> ranked;
    for (std::size_t i = 0; i < n; ++i)
        if (score[i] >= 0.0f)
            ranked.push_back({score[i], i});
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    const int cores = static_cast<int>(ranked.size());
    std::fill(dst, dst + n, 0.0f);
    for (int rank = cores - 1; rank >= 0; --rank) {
        const std::size_t i = ranked[static_cast<std::size_t>(rank)].second;
        const int x = static_cast<int>(i % width), y = static_cast<int>(i / width);
        const float level =
            static_cast<float>(65535.0 * std::pow(2.0, -rank / kFeatureMaskBrightCount));
        for (int yy = std::max(0, y - p.maskedArea); yy <= std::min(height - 1, y + p.maskedArea);
             ++yy)
            for (int xx = std::max(0, x - p.maskedArea);
                 xx <= std::min(width - 1, x + p.maskedArea); ++xx)
                dst[static_cast<std::size_t>(yy) * width + xx] = level;
    }
    if (outCores)
        *outCores = cores;
    return true;
}

} // namespace astrivelle
