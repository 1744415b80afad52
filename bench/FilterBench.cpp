// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The window filters against OpenCV in the same run: Gaussian 101x101 against
/// sepFilter2D with the same kernel and a replicated border, Box 999x999 against boxFilter,
/// one Richardson-Lucy iteration (5x5 Gauss PSF) against two filter2D passes, and the rank
/// filters at 51x51 against their plain sort-per-window form (the oracle is timed on a strip
/// of rows and its time per row reported, since the whole plane would take most of an hour).
#include <benchmark/benchmark.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstring>
#include <vector>

#include "BenchSupport.h"
#include "operators/Restoration.h"
#include "operators/filters/RankOracle.h"

using namespace astrivelle;
using namespace astrivelle::bench;

namespace {

/// A mono image of w x h with a sky plane of integer levels in prev and cur.
Image& SkyPlane(int w, int h) {
    static Image big, small;
    Image& img = w == kWidth ? big : small;
    if (!img.curPlane[2] || img.width != w) {
        img.SetGeometryFits(KindFITS, ColorGray, 0, Data16, w, h);
        img.AllocatePlanes(1);
        const int s = SlotOfColorType(ColorGray);
        FillSky(img.prevPlane[s], w, h, 21);
        // Integer levels, as a 16-bit file gives them.
        for (std::uint32_t i = 0; i < img.pixelCount; ++i)
            img.prevPlane[s][i] = std::round(img.prevPlane[s][i]);
        std::memcpy(img.curPlane[s], img.prevPlane[s], sizeof(float) * img.pixelCount);
    }
    return img;
}

float* Prev(Image& img) {
    return img.prevPlane[SlotOfColorType(img.colorType)];
}
float* Cur(Image& img) {
    return img.curPlane[SlotOfColorType(img.colorType)];
}

/// The normalised Gaussian of the smoothing filter: exp(-i^2 / v), v = (n - 1)^2 / 9.
cv::Mat GaussKernel(int half) {
    const int n = 2 * half + 1;
    const double v = double(n - 1) * (n - 1) / 9.0;
    cv::Mat k(n, 1, CV_32F);
    double sum = 0;
    for (int i = -half; i <= half; ++i)
        sum += std::exp(-double(i) * i / v);
    for (int i = -half; i <= half; ++i)
        k.at<float>(i + half) = static_cast<float>(std::exp(-double(i) * i / v) / sum);
    return k;
}

void Smooth(benchmark::State& state, int type, int half, int w, int h) {
    Image& img = SkyPlane(w, h);
    for (auto _ : state)
        if (!img.Smooth(nullptr, true, Prev(img), Cur(img), type, half, 1.0, 1, 0, 65535, 0))
            state.SkipWithError("smoothing failed");
    state.SetItemsProcessed(state.iterations() * int64_t(w) * h);
}

/// Runs `fn(src, dst)` once an iteration on the frame's planes seen as OpenCV matrices.
template <class Fn> void OnOpenCvPlanes(benchmark::State& state, Fn fn) {
    Image& img = SkyPlane(kWidth, kHeight);
    cv::Mat src(kHeight, kWidth, CV_32F, Prev(img)), dst(kHeight, kWidth, CV_32F, Cur(img));
    for (auto _ : state)
        fn(src, dst);
    state.SetItemsProcessed(state.iterations() * int64_t(kWidth) * kHeight);
}

void OpenCvSeparable(benchmark::State& state, int half) {
    const cv::Mat k = GaussKernel(half);
    OnOpenCvPlanes(state, [&](const cv::Mat& src, cv::Mat& dst) {
        cv::sepFilter2D(src, dst, CV_32F, k, k, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
    });
}

void Gaussian101(benchmark::State& state) {
    Smooth(state, 3, 50, kWidth, kHeight);
}
void OpenCvSepFilter101(benchmark::State& state) {
    OpenCvSeparable(state, 50);
}
void Box999(benchmark::State& state) {
    Smooth(state, 1, 499, kWidth, kHeight);
}
void OpenCvBoxFilter999(benchmark::State& state) {
    OnOpenCvPlanes(state, [](const cv::Mat& src, cv::Mat& dst) {
        cv::boxFilter(src, dst, CV_32F, cv::Size(999, 999), cv::Point(-1, -1), true,
                      cv::BORDER_REPLICATE);
    });
}

/// The 5 x 5 median of the whole frame (the star search's filter), beside OpenCV's.
void Median5(benchmark::State& state) {
    Smooth(state, 6, 2, kWidth, kHeight);
}
void OpenCvMedian5(benchmark::State& state) {
    OnOpenCvPlanes(state, [](const cv::Mat& src, cv::Mat& dst) { cv::medianBlur(src, dst, 5); });
}

// Rank filters at 51x51 on 4000x3000: ours on the whole plane; the oracle on 24 rows.
constexpr int kRankW = 4000, kRankH = 3000, kOracleRows = 24;

void Rank(benchmark::State& state) {
    Smooth(state, static_cast<int>(state.range(0)), 25, kRankW, kRankH);
}

void RankOracle(benchmark::State& state) {
    Image& img = SkyPlane(kRankW, kRankH);
    smoothing::PlaneJob job;
    job.type = static_cast<int>(state.range(0));
    job.prev = Prev(img);
    job.cur = Cur(img);
    job.width = kRankW;
    job.height = kRankH;
    job.half = 25;
    job.top = img.maxValue;
    const int y0 = kRankH / 2;
    for (auto _ : state)
        smoothing::PlainRankRows(job, y0, y0 + kOracleRows, nullptr);
    // Items are pixels, so items per second compare directly with the fast form.
    state.SetItemsProcessed(state.iterations() * int64_t(kRankW) * kOracleRows);
}

// One Richardson-Lucy iteration, 5x5 Gauss PSF, after the first.
void RichardsonLucyIteration(benchmark::State& state) {
    Image& img = SkyPlane(kWidth, kHeight);
    std::vector<float> estimate(img.pixelCount), s1(img.pixelCount), s2(img.pixelCount);
    img.RestoreIteration(estimate.data(), s1.data(), s2.data(), true, Prev(img), Cur(img), nullptr,
                         2, 2, 1.0, 2, true, 0, 65535, 0, false);
    for (auto _ : state)
        img.RestoreIteration(estimate.data(), s1.data(), s2.data(), true, Prev(img), Cur(img),
                             nullptr, 2, 2, 1.0, 2, false, 0, 65535, 0, false);
    state.SetItemsProcessed(state.iterations() * int64_t(kWidth) * kHeight);
}

void OpenCvTwoFilter2D(benchmark::State& state) {
    Image& img = SkyPlane(kWidth, kHeight);
    const cv::Mat k1 = GaussKernel(2);
    const cv::Mat k = k1 * k1.t();
    cv::Mat src(kHeight, kWidth, CV_32F, Prev(img)), mid(kHeight, kWidth, CV_32F),
        dst(kHeight, kWidth, CV_32F, Cur(img));
    for (auto _ : state) {
        cv::filter2D(src, mid, CV_32F, k, cv::Point(-1, -1), 0, cv::BORDER_REFLECT_101);
        cv::filter2D(mid, dst, CV_32F, k, cv::Point(-1, -1), 0, cv::BORDER_REFLECT_101);
    }
    state.SetItemsProcessed(state.iterations() * int64_t(kWidth) * kHeight);
}

} // namespace

BENCHMARK(OpenCvSepFilter101)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Gaussian101)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OpenCvBoxFilter999)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Box999)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OpenCvTwoFilter2D)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(RichardsonLucyIteration)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OpenCvMedian5)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Median5)->Unit(benchmark::kMillisecond)->UseRealTime();
// Types: 6 Median, 4 Selected Neighborhood, 8 Absolute Difference, 9 Adaptive Median,
// 5 Quantile.
BENCHMARK(RankOracle)
    ->Arg(6)
    ->Arg(4)
    ->Arg(8)
    ->Arg(9)
    ->Arg(5)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1);
BENCHMARK(Rank)
    ->Arg(6)
    ->Arg(4)
    ->Arg(8)
    ->Arg(9)
    ->Arg(5)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1);
BENCHMARK_MAIN();
