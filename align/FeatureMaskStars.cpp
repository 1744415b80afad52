// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Feature Mask "Stars" mode: opening background, local noise, compact peaks.
#include "align/FeatureMaskStars.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "engine/Parallel.h"

namespace astrivelle {

namespace {

constexpr int kBlock = 32;

/// Sliding minimum (or maximum) over [i - r, i + r] clipped to the line, of `n` values read
/// with `stride`; `queue` holds n indices (a monotonic queue).
template <bool Max>
void SlideExtreme(const float* in, float* out, int n, std::ptrdiff_t stride, int r, int* queue) {
    int head = 0, tail = 0;
    int next = 0; // next index to enter the window
    for (int i = 0; i < n; ++i) {
        const int last = std::min(n - 1, i + r);
        for (; next <= last; ++next) {
            const float v = in[next * stride];
            while (tail > head) {
                const float q = in[queue[tail - 1] * stride];
                if (Max ? q <= v : q >= v)
                    --tail;
                else
                    break;
            }
            queue[tail++] = next;
        }
        while (queue[head] < i - r)
            ++head;
        out[i * stride] = in[queue[head] * stride];
    }
}

/// A separable extreme filter of the plane (rows, then columns) into `dst`, through `tmp`.
template <bool Max> void Extreme2D(const float* src, float* tmp, float* dst, int w, int h, int r) {
    ParallelRows(h, [&](int y0, int y1) {
        std::vector<int> q(static_cast<std::size_t>(w));
        for (int y = y0; y < y1; ++y)
            SlideExtreme<Max>(src + static_cast<std::size_t>(y) * w,
                              tmp + static_cast<std::size_t>(y) * w, w, 1, r, q.data());
    });
    // Columns: the spans are of columns here.
    ParallelRows(w, [&](int x0, int x1) {
        std::vector<int> q(static_cast<std::size_t>(h));
        for (int x = x0; x < x1; ++x)
            SlideExtreme<Max>(tmp + x, dst + x, h, w, r, q.data());
    });
}

double MedianOf(std::vector<float>& v) {
    if (v.empty())
        return 0;
    const std::size_t m = v.size() / 2;
    std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(m), v.end());
    return v[m];
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
    std::vector<float> residual, tmp, open;
    try {
        residual.resize(n);
        tmp.resize(n);
        open.resize(n);
    } catch (...) {
        return fail("Feature Mask: no memory");
    }

    // 1. and 2. Opening, residual.
    Extreme2D<false>(src, tmp.data(), open.data(), width, height, p.radius);
    Extreme2D<true>(open.data(), tmp.data(), residual.data(), width, height, p.radius);
    ParallelRows(height, [&](int y0, int y1) {
        for (std::size_t i = static_cast<std::size_t>(y0) * width;
             i < static_cast<std::size_t>(y1) * width; ++i)
            residual[i] = std::max(0.0f, src[i] - residual[i]);
    });

    // 3. Bias and noise per block.
    const int bw = (width + kBlock - 1) / kBlock, bh = (height + kBlock - 1) / kBlock;
    std::vector<float> bias(static_cast<std::size_t>(bw) * bh),
        sigma(static_cast<std::size_t>(bw) * bh);
    ParallelRows(bh, [&](int b0, int b1) {
        std::vector<float> values, diffs;
        values.reserve(kBlock * kBlock);
        diffs.reserve(kBlock * kBlock);
        for (int by = b0; by < b1; ++by)
            for (int bx = 0; bx < bw; ++bx) {
                values.clear();
                diffs.clear();
                const int ye = std::min(height, (by + 1) * kBlock);
                const int xe = std::min(width, (bx + 1) * kBlock);
                for (int y = by * kBlock; y < ye; ++y)
                    for (int x = bx * kBlock; x < xe; ++x) {
                        const std::size_t i = static_cast<std::size_t>(y) * width + x;
                        values.push_back(residual[i]);
                        if (x + 1 < width)
                            diffs.push_back(std::fabs(src[i + 1] - src[i]));
                    }
                const std::size_t k = static_cast<std::size_t>(by) * bw + bx;
                bias[k] = static_cast<float>(MedianOf(values));
                const double s = 1.4826 * MedianOf(diffs) / std::sqrt(2.0);
                sigma[k] = static_cast<float>(s > 0.5 ? s : 0.5); // a floor for flat data
            }
    });

    // 4. and 5. Star cores.
    const double minScore = p.threshold / kFeatureMaskLevelsPerSigma;
    const int ring = std::max(p.radius / 2, p.breakLocal + 1);
    std::vector<std::uint8_t> core(n, 0);
    std::vector<float> score(n, 0.0f);
    const auto R = [&](int x, int y) { return residual[static_cast<std::size_t>(y) * width + x]; };
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = std::max(y0, ring); y < std::min(y1, height - ring); ++y)
            for (int x = ring; x < width - ring; ++x) {
                const std::size_t k = static_cast<std::size_t>(y / kBlock) * bw + x / kBlock;
                const float v = R(x, y);
                const double peak = v - bias[k];
                if (peak / sigma[k] < minScore)
                    continue;
                bool isMax = true;
                for (int dy = -p.breakLocal; dy <= p.breakLocal && isMax; ++dy)
                    for (int dx = -p.breakLocal; dx <= p.breakLocal; ++dx) {
                        const float u = R(x + dx, y + dy);
                        const bool before = dy < 0 || (dy == 0 && dx < 0);
                        if (u > v || (before && u == v)) {
                            isMax = false;
                            break;
                        }
                    }
                if (!isMax)
                    continue;
                int bright = 0;
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx)
                        if ((dx || dy) && R(x + dx, y + dy) - bias[k] >= 0.5 * peak)
                            ++bright;
                if (bright < p.breakNeighbours)
                    continue;
                const double limit = (1.0 - p.factor) * peak;
                bool compact = true;
                for (int t = -ring; t <= ring && compact; ++t)
                    compact = R(x + t, y - ring) - bias[k] < limit &&
                              R(x + t, y + ring) - bias[k] < limit &&
                              R(x - ring, y + t) - bias[k] < limit &&
                              R(x + ring, y + t) - bias[k] < limit;
                if (compact) {
                    core[static_cast<std::size_t>(y) * width + x] = 1;
                    double flux = 0;
                    for (int dy = -p.breakLocal; dy <= p.breakLocal; ++dy)
                        for (int dx = -p.breakLocal; dx <= p.breakLocal; ++dx)
                            flux += std::max(0.0, static_cast<double>(R(x + dx, y + dy) - bias[k]));
                    score[static_cast<std::size_t>(y) * width + x] =
                        static_cast<float>(flux / sigma[k]);
                }
            }
    });

    // 6. Spots, graded by the rank of their flux: level 65535 * 2^(-rank / K).
    std::vector<std::pair<float, std::size_t>> ranked;
    for (std::size_t i = 0; i < n; ++i)
        if (core[i])
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
