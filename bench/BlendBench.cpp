// SPDX-License-Identifier: GPL-3.0-or-later
/// \file A change of blend values on a 6000x4000 RGB image (the pure result back from the work
/// rows, then one blend pass) against a memcpy of the same planes, in the same run.
#include <benchmark/benchmark.h>

#include <cstring>

#include "BenchSupport.h"
#include "engine/Blend.h"
#include "engine/Parallel.h"

using namespace astrivelle;
using namespace astrivelle::bench;

namespace {

/// Input in the previous planes, a pure result saved in the work rows.
Image& RgbImage() {
    static Image img;
    if (!img.curPlane[0]) {
        MakeRgbSky(img, 11);
        img.AllocateWorkRows();
        img.SaveWork();
    }
    return img;
}

/// One change of the blend values, as the history tool makes it: RestoreWork, BlendMask.
void Reblend(benchmark::State& state, CProcessStructure record, BlendStep step) {
    Image& img = RgbImage();
    bool flip = false;
    for (auto _ : state) {
        record.opacity = flip ? 0.35 : 0.65; // a new value each time, as the slider gives
        flip = !flip;
        if (!BlendRecord(img, record, step, nullptr, BlendWork::RestoreSaved))
            state.SkipWithError("blend failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

void OpacityNormal(benchmark::State& state) {
    Reblend(state, CProcessStructure{}, BlendStep::BlendOnly);
}

void OpacityMultiplyFlatMask(benchmark::State& state) {
    CProcessStructure r;
    r.blendMode = 2;
    r.maskLevel = 40000;
    Reblend(state, r, BlendStep::ApplyMask);
}

void OpacityOverlaySurfaceMask(benchmark::State& state) {
    CProcessStructure r;
    r.blendMode = 9;
    for (int i = 0; i < 16; ++i)
        r.maskSurface[i * 3 + 2] = 0.1 * (i % 4) - 0.2;
    r.maskLevel = 30000;
    Reblend(state, r, BlendStep::ApplyMask);
}

void OpacityLabColor(benchmark::State& state) {
    CProcessStructure r;
    r.blendMode = 30;
    Reblend(state, r, BlendStep::BlendOnly);
}

/// The copy part alone: the pure result back from the work rows.
void RestoreWorkOnly(benchmark::State& state) {
    Image& img = RgbImage();
    for (auto _ : state)
        img.RestoreWork();
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

void MemcpyPlanes(benchmark::State& state) {
    Image& img = RgbImage();
    for (auto _ : state)
        CopyPlanes(img);
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

void MemcpyPlanesParallel(benchmark::State& state) {
    Image& img = RgbImage();
    for (auto _ : state)
        CopyPlanesParallel(img);
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

} // namespace

BENCHMARK(MemcpyPlanes)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(MemcpyPlanesParallel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(RestoreWorkOnly)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OpacityNormal)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OpacityMultiplyFlatMask)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OpacityOverlaySurfaceMask)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OpacityLabColor)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK_MAIN();
