// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Pixel Math Add on a 6000x4000 RGB image against a memcpy of the same bytes.
#include <benchmark/benchmark.h>

#include <cstring>

#include "BenchSupport.h"
#include "engine/Parallel.h"

using namespace astrivelle;
using namespace astrivelle::bench;

namespace {

Image& RgbImage() {
    static Image img;
    if (!img.curPlane[0]) {
        img.SetGeometryFits(KindFITS, ColorRGB, 0, Data16, kWidth, kHeight);
        img.AllocatePlanes(1);
        for (int s = 0; s < 3; ++s) {
            FillSky(img.prevPlane[s], kWidth, kHeight, 3 + s);
            std::memcpy(img.curPlane[s], img.prevPlane[s], sizeof(float) * img.pixelCount);
        }
    }
    return img;
}

double Bytes() {
    return 3.0 * kWidth * kHeight * sizeof(float);
}

// The pixel function as an open image runs it (pending: the input is already in prev).
void PixelMathAddRgb(benchmark::State& state) {
    Image& img = RgbImage();
    for (auto _ : state)
        for (int s = 0; s < 3; ++s)
            img.PixelAdd(true, img.prevPlane[s], img.curPlane[s], 100.0, 0, 65535, 0);
    state.SetBytesProcessed(static_cast<int64_t>(Bytes() * state.iterations()));
}

// With the feathered range: every pixel takes the slow branch test.
void PixelMathAddRgbFeather(benchmark::State& state) {
    Image& img = RgbImage();
    for (auto _ : state)
        for (int s = 0; s < 3; ++s)
            img.PixelAdd(true, img.prevPlane[s], img.curPlane[s], 100.0, 1000, 20000, 500);
    state.SetBytesProcessed(static_cast<int64_t>(Bytes() * state.iterations()));
}

// As replay runs it: the copy of current to previous first, then the arithmetic.
void PixelMathAddRgbReplay(benchmark::State& state) {
    Image& img = RgbImage();
    for (auto _ : state)
        for (int s = 0; s < 3; ++s)
            img.PixelAdd(false, img.prevPlane[s], img.curPlane[s], 0.0, 0, 65535, 0);
    state.SetBytesProcessed(static_cast<int64_t>(Bytes() * state.iterations()));
}

void MemcpySameBytes(benchmark::State& state) {
    Image& img = RgbImage();
    for (auto _ : state)
        for (int s = 0; s < 3; ++s)
            std::memcpy(img.curPlane[s], img.prevPlane[s], sizeof(float) * img.pixelCount);
    state.SetBytesProcessed(static_cast<int64_t>(Bytes() * state.iterations()));
}

void MemcpySameBytesParallel(benchmark::State& state) {
    Image& img = RgbImage();
    const int w = img.width;
    for (auto _ : state)
        for (int s = 0; s < 3; ++s)
            ParallelRows(img.height, [&](int y0, int y1) {
                std::memcpy(img.curPlane[s] + static_cast<std::size_t>(y0) * w,
                            img.prevPlane[s] + static_cast<std::size_t>(y0) * w,
                            sizeof(float) * static_cast<std::size_t>(y1 - y0) * w);
            });
    state.SetBytesProcessed(static_cast<int64_t>(Bytes() * state.iterations()));
}

} // namespace

BENCHMARK(MemcpySameBytes)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(MemcpySameBytesParallel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PixelMathAddRgb)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PixelMathAddRgbFeather)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PixelMathAddRgbReplay)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
