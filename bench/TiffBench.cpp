// SPDX-License-Identifier: GPL-3.0-or-later
/// \file TIFF read and write of a 6000x4000 RGB 16-bit image, ours against libtiff in the same
/// run: libtiff reading strips (TIFFReadEncodedStrip) and writing scanlines (TIFFWriteScanline)
/// with raw buffers of the same data, and, for the read, libtiff followed by the conversion
/// into fresh float planes that every reader of this program hands out.
/// `TiffBench --peak` instead reports the peak memory of one read in a fresh process.
#include <benchmark/benchmark.h>
#include <tiffio.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "engine/PageAlloc.h"
#include "fileio/Tiff.h"

using namespace astrivelle;
using namespace astrivelle::bench;

namespace {

constexpr double kPixels = double(kWidth) * kHeight;

/// The source file: our writer, once per run.
std::string Source() {
    const std::string path = (BenchDir() / "rgb16.tif").string();
    static bool made = false;
    if (made || std::filesystem::exists(path))
        return path;
    Image img;
    img.SetGeometryTiff(KindTIFF, ColorRGB, 0, kWidth, kHeight, 16);
    img.AllocateCurrentPlanes(1);
    for (int s = 0; s < 3; ++s)
        FillSky(img.curPlane[s], kWidth, kHeight, 11 + s);
    img.WriteTIFF(path);
    made = true;
    return path;
}

void Rate(benchmark::State& state) {
    state.counters["MPix/s"] =
        benchmark::Counter(kPixels * state.iterations() / 1e6, benchmark::Counter::kIsRate);
    state.counters["MB/s"] = benchmark::Counter(kPixels * 6 * state.iterations() / 1048576.0,
                                                benchmark::Counter::kIsRate);
}

void OursRead(benchmark::State& state) {
    const std::string path = Source();
    for (auto _ : state) {
        Image img;
        std::string message;
        if (!img.ReadTIFF(path, &message))
            state.SkipWithError("read failed");
        benchmark::DoNotOptimize(img.curPlane[2]);
    }
    Rate(state);
}

/// Our reader into three float planes made once, as libtiff's raw buffer below is.
void OursReadIntoPlanes(benchmark::State& state) {
    const std::string path = Source();
    std::vector<float> planes[3];
    for (auto& p : planes)
        p.assign(static_cast<std::size_t>(kPixels), 0.f);
    for (auto _ : state) {
        TiffFile file;
        std::string message;
        if (!file.Open(path) || !file.ReadTags(&message) ||
            !file.ReadPlanes(planes[0].data(), planes[1].data(), planes[2].data()))
            state.SkipWithError("read failed");
        benchmark::DoNotOptimize(planes[2].data());
    }
    Rate(state);
}

/// libtiff into a raw buffer allocated anew for each read (its pages are fresh each time,
/// as an image's planes are).
void LibtiffReadRawFresh(benchmark::State& state) {
    const std::string path = Source();
    const std::size_t bytes = static_cast<std::size_t>(kPixels) * 6;
    for (auto _ : state) {
        auto* raw = static_cast<std::uint8_t*>(PageAlloc(bytes));
        TIFF* tif = TIFFOpen(path.c_str(), "r");
        if (!tif || !raw) {
            state.SkipWithError("TIFFOpen failed");
            break;
        }
        std::uint8_t* out = raw;
        const tstrip_t strips = TIFFNumberOfStrips(tif);
        for (tstrip_t s = 0; s < strips; ++s) {
            const tmsize_t got = TIFFReadEncodedStrip(tif, s, out, -1);
            if (got < 0)
                state.SkipWithError("TIFFReadEncodedStrip failed");
            out += got;
        }
        TIFFClose(tif);
        benchmark::DoNotOptimize(raw);
        PageFree(raw);
    }
    Rate(state);
}

/// libtiff strip by strip into one raw buffer of the interleaved samples, made once.
void LibtiffReadRaw(benchmark::State& state) {
    const std::string path = Source();
    std::vector<std::uint16_t> raw(static_cast<std::size_t>(kPixels) * 3);
    for (auto _ : state) {
        TIFF* tif = TIFFOpen(path.c_str(), "r");
        if (!tif) {
            state.SkipWithError("TIFFOpen failed");
            break;
        }
        auto* out = reinterpret_cast<std::uint8_t*>(raw.data());
        const tstrip_t strips = TIFFNumberOfStrips(tif);
        for (tstrip_t s = 0; s < strips; ++s) {
            const tmsize_t got = TIFFReadEncodedStrip(tif, s, out, -1);
            if (got < 0)
                state.SkipWithError("TIFFReadEncodedStrip failed");
            out += got;
        }
        TIFFClose(tif);
        benchmark::DoNotOptimize(raw.data());
    }
    Rate(state);
}

/// libtiff strip by strip, then the samples into three fresh float planes.
void LibtiffReadToPlanes(benchmark::State& state) {
    const std::string path = Source();
    std::vector<std::uint16_t> raw(static_cast<std::size_t>(kPixels) * 3);
    for (auto _ : state) {
        TIFF* tif = TIFFOpen(path.c_str(), "r");
        if (!tif) {
            state.SkipWithError("TIFFOpen failed");
            break;
        }
        auto* out = reinterpret_cast<std::uint8_t*>(raw.data());
        const tstrip_t strips = TIFFNumberOfStrips(tif);
        for (tstrip_t s = 0; s < strips; ++s) {
            const tmsize_t got = TIFFReadEncodedStrip(tif, s, out, -1);
            if (got < 0)
                state.SkipWithError("TIFFReadEncodedStrip failed");
            out += got;
        }
        TIFFClose(tif);
        float* planes[3];
        for (auto& p : planes)
            p = AllocPlane(static_cast<std::size_t>(kPixels));
        const std::size_t n = static_cast<std::size_t>(kPixels);
        for (std::size_t i = 0; i < n; ++i) {
            planes[0][i] = raw[3 * i];
            planes[1][i] = raw[3 * i + 1];
            planes[2][i] = raw[3 * i + 2];
        }
        benchmark::DoNotOptimize(planes[2]);
        for (auto& p : planes)
            PageFree(p);
    }
    Rate(state);
}

Image& WriteSource() {
    static Image img;
    if (!img.curPlane[0]) {
        img.SetGeometryTiff(KindTIFF, ColorRGB, 0, kWidth, kHeight, 16);
        img.AllocateCurrentPlanes(1);
        for (int s = 0; s < 3; ++s)
            FillSky(img.curPlane[s], kWidth, kHeight, 21 + s);
    }
    return img;
}

void OursWrite(benchmark::State& state) {
    Image& img = WriteSource();
    const std::string path = (BenchDir() / "ours-out.tif").string();
    for (auto _ : state)
        if (!img.WriteTIFF(path))
            state.SkipWithError("write failed");
    Rate(state);
}

/// libtiff scanline by scanline from a raw interleaved buffer of the same samples.
void LibtiffWriteScanline(benchmark::State& state) {
    Image& img = WriteSource();
    std::vector<std::uint16_t> raw(static_cast<std::size_t>(kPixels) * 3);
    for (std::size_t i = 0; i < static_cast<std::size_t>(kPixels); ++i)
        for (int s = 0; s < 3; ++s)
            raw[3 * i + s] = static_cast<std::uint16_t>(img.curPlane[s][i] + 0.5f);
    const std::string path = (BenchDir() / "libtiff-out.tif").string();
    for (auto _ : state) {
        TIFF* tif = TIFFOpen(path.c_str(), "w");
        if (!tif) {
            state.SkipWithError("TIFFOpen failed");
            break;
        }
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kWidth);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kHeight);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 16);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 3);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, kHeight);
        for (int y = 0; y < kHeight; ++y)
            if (TIFFWriteScanline(tif, raw.data() + static_cast<std::size_t>(y) * kWidth * 3, y,
                                  0) < 0)
                state.SkipWithError("TIFFWriteScanline failed");
        TIFFClose(tif);
    }
    Rate(state);
}

long StatusKb(const char* key) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(key, 0) == 0)
            return std::stol(line.substr(std::strlen(key)));
    return -1;
}

/// Peak memory of one read, in this fresh process.
int Peak() {
    const std::string path = (BenchDir() / "rgb16.tif").string();
    const long before = StatusKb("VmHWM:");
    Image img;
    std::string message;
    if (!img.ReadTIFF(path, &message)) {
        std::fprintf(stderr, "read failed: %s (run the benchmarks once first)\n", path.c_str());
        return 1;
    }
    const long peak = StatusKb("VmHWM:");
    const double planesMb = 3 * kPixels * 4 / 1048576.0;
    const double rowKb = kWidth * 6 / 1024.0;
    std::printf("VmHWM before read          %8.1f MB\n", before / 1024.0);
    std::printf("VmHWM after read           %8.1f MB\n", peak / 1024.0);
    std::printf("growth                     %8.1f MB\n", (peak - before) / 1024.0);
    std::printf("three current planes       %8.1f MB (previous planes stay untouched pages)\n",
                planesMb);
    std::printf("growth - planes            %8.1f MB (one row is %.1f KB; the read block is "
                "at most 256 KB)\n",
                (peak - before) / 1024.0 - planesMb, rowKb);
    return 0;
}

} // namespace

BENCHMARK(OursRead)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OursReadIntoPlanes)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(LibtiffReadRaw)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(LibtiffReadRawFresh)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(LibtiffReadToPlanes)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OursWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(LibtiffWriteScanline)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "--peak")
        return Peak();
    TIFFSetWarningHandler(nullptr);
    Source();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
