// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The correlation table of point alignment at radius 100 (a 201 x 201 template over a
/// 401 x 401 window of 16-bit levels): the plain sums, the exact FFT sums, and OpenCV's
/// normalized cross-correlation (`matchTemplate`, TM_CCORR_NORMED) of the same arrays.
#include <benchmark/benchmark.h>

#include <cmath>
#include <opencv2/imgproc.hpp>
#include <random>
#include <vector>

#include "align/CorrelationScores.h"

using namespace astrivelle;

namespace {

constexpr int kSide = 201, kWindow = 2 * kSide - 1;

struct Arrays {
    std::vector<float> window, tmpl;
    double norm = 0;
    Arrays() : window(kWindow * kWindow), tmpl(kSide * kSide) {
        std::mt19937 rng(5);
        for (int y = 0; y < kWindow; ++y)
            for (int x = 0; x < kWindow; ++x) {
                const double dx = x - 210.0, dy = y - 190.0;
                window[y * kWindow + x] =
                    std::floor(800 + rng() % 60 + 30000 * std::exp(-(dx * dx + dy * dy) / 200));
            }
        for (int y = 0; y < kSide; ++y)
            for (int x = 0; x < kSide; ++x) {
                const float v = window[(y + 100) * kWindow + x + 100];
                tmpl[y * kSide + x] = v;
                norm += double(v) * v;
            }
        norm = std::sqrt(norm);
    }
};

const Arrays& Data() {
    static const Arrays a;
    return a;
}

void Scores(benchmark::State& state, bool exact) {
    const Arrays& a = Data();
    std::vector<double> score;
    for (auto _ : state) {
        CorrelationScores(a.window.data(), kWindow, a.tmpl.data(), kSide, a.norm, false, exact,
                          &score);
        benchmark::DoNotOptimize(score.data());
    }
}

void PlainSums(benchmark::State& state) {
    Scores(state, false);
}

void ExactFftSums(benchmark::State& state) {
    Scores(state, true);
}

void OpenCvMatchTemplate(benchmark::State& state) {
    const Arrays& a = Data();
    const cv::Mat window(kWindow, kWindow, CV_32F, const_cast<float*>(a.window.data()));
    const cv::Mat tmpl(kSide, kSide, CV_32F, const_cast<float*>(a.tmpl.data()));
    cv::Mat out;
    for (auto _ : state) {
        cv::matchTemplate(window, tmpl, out, cv::TM_CCORR_NORMED);
        benchmark::DoNotOptimize(out.data);
    }
}

} // namespace

BENCHMARK(PlainSums)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ExactFftSums)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OpenCvMatchTemplate)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
