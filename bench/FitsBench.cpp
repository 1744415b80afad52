// SPDX-License-Identifier: GPL-3.0-or-later
/// \file FITS read and write of a 6000x4000 16-bit plane, plain and Rice-compressed, side by
/// side with a bare cfitsio read and write of the same data into a raw buffer.
#include <benchmark/benchmark.h>

#include <memory>

#include "BenchSupport.h"

using namespace astrivelle;
using namespace astrivelle::bench;

namespace {

std::string Source(bool rice) {
    return MakeFits(rice ? "mono16-rice.fit" : "mono16.fit", ColorGray, rice);
}

void OursRead(benchmark::State& state) {
    const std::string path = Source(state.range(0));
    for (auto _ : state) {
        Image img;
        if (!img.ReadFile(path, ".fit"))
            state.SkipWithError("read failed");
        benchmark::DoNotOptimize(img.curPlane[0]);
    }
    state.counters["MPix/s"] = benchmark::Counter(
        double(kWidth) * kHeight * state.iterations() / 1e6, benchmark::Counter::kIsRate);
}

void CfitsioRead(benchmark::State& state) {
    const std::string path = Source(state.range(0));
    std::vector<unsigned short> buffer(static_cast<std::size_t>(kWidth) * kHeight);
    for (auto _ : state) {
        fitsfile* f = nullptr;
        int status = 0, anynul = 0, hdutype = 0;
        fits_open_diskfile(&f, path.c_str(), READONLY, &status);
        int naxis = 0;
        fits_get_img_dim(f, &naxis, &status);
        if (naxis == 0)
            fits_movrel_hdu(f, 1, &hdutype, &status);
        unsigned short nul = 1;
        fits_read_img(f, TUSHORT, 1, static_cast<LONGLONG>(buffer.size()), &nul, buffer.data(),
                      &anynul, &status);
        fits_close_file(f, &status);
        if (status)
            state.SkipWithError("cfitsio read failed");
        benchmark::DoNotOptimize(buffer.data());
    }
    state.counters["MPix/s"] = benchmark::Counter(
        double(kWidth) * kHeight * state.iterations() / 1e6, benchmark::Counter::kIsRate);
}

// The same read into a freshly allocated float buffer, as any reader that hands out float
// pixels pays for it.
void CfitsioReadFloat(benchmark::State& state) {
    const std::string path = Source(state.range(0));
    for (auto _ : state) {
        std::unique_ptr<float[]> buffer(new float[static_cast<std::size_t>(kWidth) * kHeight]);
        fitsfile* f = nullptr;
        int status = 0, anynul = 0, hdutype = 0;
        fits_open_diskfile(&f, path.c_str(), READONLY, &status);
        int naxis = 0;
        fits_get_img_dim(f, &naxis, &status);
        if (naxis == 0)
            fits_movrel_hdu(f, 1, &hdutype, &status);
        float nul = 1;
        fits_read_img(f, TFLOAT, 1, static_cast<LONGLONG>(kWidth) * kHeight, &nul, buffer.get(),
                      &anynul, &status);
        fits_close_file(f, &status);
        if (status)
            state.SkipWithError("cfitsio read failed");
        benchmark::DoNotOptimize(buffer.get());
    }
    state.counters["MPix/s"] = benchmark::Counter(
        double(kWidth) * kHeight * state.iterations() / 1e6, benchmark::Counter::kIsRate);
}

void OursWrite(benchmark::State& state) {
    const bool rice = state.range(0);
    Image img;
    img.ReadFile(Source(false), ".fit");
    img.fitsCompress = rice;
    const std::string out = (BenchDir() / "out-ours.fit").string();
    for (auto _ : state)
        if (!img.WriteFile(out, KindFITS))
            state.SkipWithError("write failed");
    state.counters["MPix/s"] = benchmark::Counter(
        double(kWidth) * kHeight * state.iterations() / 1e6, benchmark::Counter::kIsRate);
}

void CfitsioWrite(benchmark::State& state) {
    const bool rice = state.range(0);
    std::vector<float> plane(static_cast<std::size_t>(kWidth) * kHeight);
    FillSky(plane.data(), kWidth, kHeight, 7);
    std::vector<unsigned short> buffer(plane.size());
    for (std::size_t i = 0; i < plane.size(); ++i)
        buffer[i] = static_cast<unsigned short>(plane[i] + 0.5f);
    const std::string out = (BenchDir() / "out-cfitsio.fit").string();
    for (auto _ : state) {
        std::filesystem::remove(out);
        fitsfile* f = nullptr;
        int status = 0;
        long axes[2] = {kWidth, kHeight};
        fits_create_diskfile(&f, out.c_str(), &status);
        if (rice)
            fits_set_compression_type(f, RICE_1, &status);
        fits_create_img(f, USHORT_IMG, 2, axes, &status);
        fits_write_img(f, TUSHORT, 1, static_cast<LONGLONG>(buffer.size()), buffer.data(), &status);
        fits_close_file(f, &status);
        if (status)
            state.SkipWithError("cfitsio write failed");
    }
    state.counters["MPix/s"] = benchmark::Counter(
        double(kWidth) * kHeight * state.iterations() / 1e6, benchmark::Counter::kIsRate);
}

} // namespace

BENCHMARK(OursRead)->ArgName("rice")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(CfitsioRead)
    ->ArgName("rice")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(CfitsioReadFloat)
    ->ArgName("rice")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(OursWrite)->ArgName("rice")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(CfitsioWrite)
    ->ArgName("rice")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_MAIN();
