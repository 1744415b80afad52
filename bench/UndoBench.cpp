// SPDX-License-Identifier: GPL-3.0-or-later
/// \file One Undo on a 6000x4000 RGB image against reading one of its step files back with
/// Image::ReadFile, in the same run. An undo along the chain finds the state it shows in the
/// previous planes and reads only the new input; "UndoCold" forgets what the planes hold and
/// pays for both reads, as a history without that bookkeeping would.
#include <benchmark/benchmark.h>

#include <filesystem>

#include "BenchSupport.h"
#include "engine/Parallel.h"
#include "engine/ProcessWindow.h"
#include "engine/workbench/History.h"

using namespace astrivelle;
using namespace astrivelle::bench;

namespace {

/// An RGB image read from a 16-bit FITS file with two steps after it, each in its step file.
struct UndoSetup {
    std::filesystem::path dir = BenchDir() / "undo";
    CProcessWindow window;
    std::string stepFile;
    bool ok = false;

    UndoSetup() {
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
        Image& img = window.image;
        img.SetGeometryFits(KindFITS, ColorRGB, 0, Data16, kWidth, kHeight);
        img.AllocatePlanes(1);
        for (int s : img.Slots())
            FillSky(img.curPlane[s], kWidth, kHeight, 11 + s);
        img.fitsCompress = false;
        window.filePath = (dir / "M31.fit").string();
        window.title = "M31.fit";
        if (!img.WriteFile(window.filePath, KindFITS))
            return;
        AttachHistory(window);
        window.BeginHistory("Read");
        if (!Step("Levels", 100.f) || !Step("Negative", -50.f) || !Step("Threshold", 7.f))
            return;
        // Settle: every state is in its file and the planes know which they hold.
        if (!window.Undo() || !window.Redo())
            return;
        stepFile = window.history[1].curImageFile;
        ok = !stepFile.empty();
    }

    bool Step(const char* name, float delta) {
        Image& img = window.image;
        return window.RunOperator(name, "Delta#", [&](bool) {
            for (int s : img.Slots())
                ParallelRows(img.height, [&](int y0, int y1) {
                    const std::size_t a = static_cast<std::size_t>(y0) * img.width;
                    const std::size_t b = static_cast<std::size_t>(y1) * img.width;
                    for (std::size_t i = a; i < b; ++i)
                        img.curPlane[s][i] = img.prevPlane[s][i] + delta;
                });
            return true;
        });
    }
};

UndoSetup& Setup() {
    static UndoSetup setup;
    return setup;
}

void Undo(benchmark::State& state) {
    UndoSetup& s = Setup();
    if (!s.ok) {
        state.SkipWithError("set-up failed");
        return;
    }
    for (auto _ : state) {
        state.PauseTiming();
        s.window.Redo();
        state.ResumeTiming();
        if (!s.window.Undo())
            state.SkipWithError("undo failed");
    }
    state.counters["MPix/s"] = benchmark::Counter(
        double(kWidth) * kHeight * state.iterations() / 1e6, benchmark::Counter::kIsRate);
}

void UndoCold(benchmark::State& state) {
    UndoSetup& s = Setup();
    if (!s.ok) {
        state.SkipWithError("set-up failed");
        return;
    }
    for (auto _ : state) {
        state.PauseTiming();
        s.window.Redo();
        s.window.curPlanesFile.clear(); // the planes' contents are unknown
        s.window.prevPlanesFile.clear();
        state.ResumeTiming();
        if (!s.window.Undo())
            state.SkipWithError("undo failed");
    }
    state.counters["MPix/s"] = benchmark::Counter(
        double(kWidth) * kHeight * state.iterations() / 1e6, benchmark::Counter::kIsRate);
}

void ReadStepFile(benchmark::State& state) {
    UndoSetup& s = Setup();
    if (!s.ok) {
        state.SkipWithError("set-up failed");
        return;
    }
    for (auto _ : state) {
        Image img;
        if (!img.ReadFile(s.stepFile, ".fit"))
            state.SkipWithError("read failed");
        benchmark::DoNotOptimize(img.curPlane[0]);
    }
    state.counters["MPix/s"] = benchmark::Counter(
        double(kWidth) * kHeight * state.iterations() / 1e6, benchmark::Counter::kIsRate);
}

} // namespace

BENCHMARK(ReadStepFile)->Unit(benchmark::kMillisecond)->MinTime(3.0);
BENCHMARK(Undo)->Unit(benchmark::kMillisecond)->MinTime(3.0);
BENCHMARK(UndoCold)->Unit(benchmark::kMillisecond)->MinTime(3.0);
BENCHMARK_MAIN();
