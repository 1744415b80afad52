// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Pixel Math Add on a 6000x4000 RGB image against a memcpy of the same bytes.
#include <benchmark/benchmark.h>

#include <cstring>

#include "BenchSupport.h"
#include "engine/Parallel.h"

using namespace astrivelle;
using namespace astrivelle::bench;

namespace {

// The pixel function as an open image runs it (pending: the input is already in prev).
void PixelMathAddRgb(benchmark::State& state) {
    Image& img = RgbSkyImage();
    for (auto _ : state)
        for (int s = 0; s < 3; ++s)
            img.PixelAdd(true, img.prevPlane[s], img.curPlane[s], 100.0, 0, 65535, 0);
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

// With the feathered range: every pixel takes the slow branch test.
void PixelMathAddRgbFeather(benchmark::State& state) {
    Image& img = RgbSkyImage();
    for (auto _ : state)
        for (int s = 0; s < 3; ++s)
            img.PixelAdd(true, img.prevPlane[s], img.curPlane[s], 100.0, 1000, 20000, 500);
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

// As replay runs it: the copy of current to previous first, then the arithmetic.
void PixelMathAddRgbReplay(benchmark::State& state) {
    Image& img = RgbSkyImage();
    for (auto _ : state)
        for (int s = 0; s < 3; ++s)
            img.PixelAdd(false, img.prevPlane[s], img.curPlane[s], 0.0, 0, 65535, 0);
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

void MemcpySameBytes(benchmark::State& state) {
    Image& img = RgbSkyImage();
    for (auto _ : state)
        CopyPlanes(img);
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

void MemcpySameBytesParallel(benchmark::State& state) {
    Image& img = RgbSkyImage();
    for (auto _ : state)
        CopyPlanesParallel(img);
    state.SetBytesProcessed(static_cast<int64_t>(RgbBytes() * state.iterations()));
}

} // namespace

BENCHMARK(MemcpySameBytes)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(MemcpySameBytesParallel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PixelMathAddRgb)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PixelMathAddRgbFeather)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PixelMathAddRgbReplay)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
