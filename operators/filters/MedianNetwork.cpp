// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The 5 x 5 median by a sorting network across a row's pixels.
#include "operators/filters/MedianNetwork.h"

#include <algorithm>

#include "operators/FilterSupport.h"
#include "operators/filters/RankOracle.h"

namespace astrivelle::smoothing {

namespace {

constexpr int kSide = 5, kCount = 25, kMiddle = 12;
constexpr int kRun = 64; ///< pixels a pass of the network works on

std::vector<std::array<int, 2>> MakeMedian25Network() {
    // Batcher's odd-even merge sort of 32 places; places 25..31 hold +infinity, so a
    // comparator whose upper place is one of them changes nothing.
    const int n = 32;
    std::vector<std::array<int, 2>> all;
    for (int p = 1; p < n; p <<= 1)
        for (int k = p; k >= 1; k >>= 1)
            for (int j = k % p; j + k < n; j += 2 * k)
                for (int i = 0; i < std::min(k, n - j - k); ++i)
                    if ((i + j) / (2 * p) == (i + j + k) / (2 * p) && i + j + k < kCount)
                        all.push_back({i + j, i + j + k});
    // Backwards from the end: a comparator matters when it writes a place that matters.
    std::vector<bool> needed(n, false);
    needed[kMiddle] = true;
    std::vector<std::array<int, 2>> kept;
    for (auto it = all.rbegin(); it != all.rend(); ++it)
        if (needed[(*it)[0]] || needed[(*it)[1]]) {
            needed[(*it)[0]] = needed[(*it)[1]] = true;
            kept.push_back(*it);
        }
    std::reverse(kept.begin(), kept.end());
    return kept;
}

/// Applies the comparators to the 25 arrays of kRun pixels; cloned for the wider vector units
/// where the processor has them (min and max are exact at any width).
__attribute__((target_clones("avx512f", "avx2", "default"))) void
RunNetwork(float (*v)[kRun], const std::array<int, 2>* comparators, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        float* a = v[comparators[i][0]];
        float* b = v[comparators[i][1]];
        for (int t = 0; t < kRun; ++t) {
            const float lo = std::min(a[t], b[t]), hi = std::max(a[t], b[t]);
            a[t] = lo;
            b[t] = hi;
        }
    }
}

} // namespace

const std::vector<std::array<int, 2>>& Median25Network() {
    static const std::vector<std::array<int, 2>> network = MakeMedian25Network();
    return network;
}

bool MedianNetworkRows(const PlaneJob& job, int y0, int y1, FilterRun* run) {
    const auto& network = Median25Network();
    const int w = job.width, h = job.height;
    const ApplyRange range = job.Range();
    alignas(64) float v[kCount][kRun] = {}; // lanes past a short run hold stale values
    float medians[kRun];
    double window[kCount];
    for (int y = y0; y < y1; ++y) {
        if (run && run->Stop())
            return false;
        const float* in = job.prev + static_cast<long>(y) * w;
        float* out = job.cur + static_cast<long>(y) * w;
        const auto put = [&](int x, double r) {
            const double p = in[x];
            out[x] = range.Outside(p) ? in[x]
                                      : static_cast<float>(range.Mix(p, r, job.strength, job.top));
        };
        const auto gathered = [&](int x) {
            GatherMirror(job.prev, w, h, x, y, 2, window);
            put(x, PlainMedian(window, kCount));
        };
        const bool innerRow = y >= 2 && y < h - 2 && w >= kSide;
        if (!innerRow) {
            for (int x = 0; x < w; ++x)
                gathered(x);
        } else {
            gathered(0);
            gathered(1);
            for (int x0 = 2; x0 < w - 2; x0 += kRun) {
                const int n = std::min(kRun, w - 2 - x0);
                for (int dy = 0; dy < kSide; ++dy)
                    for (int dx = 0; dx < kSide; ++dx) {
                        const float* src =
                            job.prev + static_cast<long>(y + dy - 2) * w + x0 + dx - 2;
                        std::copy(src, src + n, v[dy * kSide + dx]);
                    }
                RunNetwork(v, network.data(), network.size());
                std::copy(v[kMiddle], v[kMiddle] + n, medians);
                for (int t = 0; t < n; ++t)
                    put(x0 + t, medians[t]);
            }
            gathered(w - 2);
            gathered(w - 1);
        }
        if (run)
            run->RowsDone(1);
    }
    return true;
}

} // namespace astrivelle::smoothing
