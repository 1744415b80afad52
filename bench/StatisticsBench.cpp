// SPDX-License-Identifier: GPL-3.0-or-later
/// \file ComputeStatistics on a 6000x4000 plane against a single summing pass over it.
#include <benchmark/benchmark.h>

#include "BenchSupport.h"

using namespace astrivelle;
using namespace astrivelle::bench;

namespace {

Image& MonoImage() {
    static Image img;
    if (!img.curPlane[0]) {
        img.SetGeometryFits(KindFITS, ColorGray, 0, Data16, kWidth, kHeight);
        img.AllocatePlanes(1);
        FillSky(img.curPlane[0], kWidth, kHeight, 11);
    }
    return img;
}

void ComputeStatisticsPlane(benchmark::State& state) {
    Image& img = MonoImage();
    for (auto _ : state) {
        img.ComputeStatistics();
        benchmark::DoNotOptimize(img.redStats.mean);
    }
    state.counters["MPix/s"] = benchmark::Counter(double(img.pixelCount) * state.iterations() / 1e6,
                                                  benchmark::Counter::kIsRate);
}

// The floor: one sequential pass that only sums the plane in double.
void SingleSummingPass(benchmark::State& state) {
    Image& img = MonoImage();
    const float* p = img.curPlane[0];
    for (auto _ : state) {
        double sum = 0;
        for (std::uint32_t i = 0; i < img.pixelCount; ++i)
            sum += p[i];
        benchmark::DoNotOptimize(sum);
    }
    state.counters["MPix/s"] = benchmark::Counter(double(img.pixelCount) * state.iterations() / 1e6,
                                                  benchmark::Counter::kIsRate);
}

} // namespace

BENCHMARK(SingleSummingPass)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ComputeStatisticsPlane)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
