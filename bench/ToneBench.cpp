// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The stretches on a 6000x4000 RGB image in the same run as their references: Levels and
/// Micro Curves against a memcpy of the planes, Digital Development with the "Hard Plus"
/// sharpening filter against OpenCV's 9x9 box mean of the three planes.
#include <benchmark/benchmark.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "BenchSupport.h"

using namespace astrivelle;
using namespace astrivelle::bench;

namespace {

void MemcpyPlanes(benchmark::State& state) {
    Image& img = RgbSkyImage();
    for (auto _ : state)
        CopyPlanes(img);
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

void MemcpyPlanesParallel(benchmark::State& state) {
    Image& img = RgbSkyImage();
    for (auto _ : state)
        CopyPlanesParallel(img);
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

/// Levels as a slider move applies it: each plane from its previous plane (pending).
void Levels(benchmark::State& state) {
    Image& img = RgbSkyImage();
    for (auto _ : state)
        for (int s = 0; s < 3; ++s)
            img.ApplyLevels(true, img.prevPlane[s], img.curPlane[s], 1200, 9000, 30000, 0.8, 1.3,
                            60000, 0, 65535);
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

void MicroCurves(benchmark::State& state) {
    Image& img = RgbSkyImage();
    const std::vector<MicroCurve::Point> master{{100, 100}, {155, 155}};
    const std::vector<MicroCurve::Point> lifted{{64, 127}, {127, 192}}; // "Lighter"
    for (auto _ : state)
        for (int s = 0; s < 3; ++s)
            img.ApplyMicroCurves(true, img.prevPlane[s], img.curPlane[s], 0, 0, 255, 255, master, 0,
                                 0, 255, 255, lifted, 0, 65535, 0, 65535);
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

/// Digital Development, colour, "Hard Plus" (filter 4) at strength 0.5.
void DigitalDevelopmentHardPlus(benchmark::State& state) {
    Image& img = RgbSkyImage();
    const int bkgMinAndBreakPoint[2] = {0, 2000};
    for (auto _ : state)
        if (!img.ApplyDigitalDevelopment(true, 4, nullptr, 0, true, bkgMinAndBreakPoint, true, true,
                                         true, 1.0, 0.5, 0.5, 0.5, 0.5, false, 1.0, 0.0, 1.0,
                                         "None"))
            state.SkipWithError("digital development failed");
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

void OpenCvBoxFilter9(benchmark::State& state) {
    Image& img = RgbSkyImage();
    for (auto _ : state)
        for (int s = 0; s < 3; ++s) {
            cv::Mat src(kHeight, kWidth, CV_32F, img.prevPlane[s]);
            cv::Mat dst(kHeight, kWidth, CV_32F, img.curPlane[s]);
            cv::boxFilter(src, dst, CV_32F, cv::Size(9, 9), cv::Point(-1, -1), true,
                          cv::BORDER_REFLECT_101);
        }
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

} // namespace

BENCHMARK(MemcpyPlanes)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(MemcpyPlanesParallel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Levels)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(MicroCurves)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OpenCvBoxFilter9)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(DigitalDevelopmentHardPlus)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
