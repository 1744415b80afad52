// SPDX-License-Identifier: GPL-3.0-or-later
/// \file JPEG reading of a 6000 x 4000 RGB file: Image::ReadJPEG (decode plus the float
/// planes) against two references in the same run: libjpeg-turbo decoding the same file into
/// reused byte rows with djpeg's default settings (the djpeg-equivalent work without its
/// output), and the djpeg program itself writing to /dev/null in a child process.
#include <cstddef>
#include <cstdio>

#include <jpeglib.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/Jpeg.h"

namespace {

constexpr int kWidth = 6000;
constexpr int kHeight = 4000;

/// A photograph-like test file (smooth gradients, edges and fine texture), made once.
const std::string& TestFile() {
    static const std::string path = [] {
        const std::string p = (std::filesystem::temp_directory_path() /
                               ("astrivelle-jpegbench-" + std::to_string(kWidth) + ".jpg"))
                                  .string();
        if (std::filesystem::exists(p))
            return p;
        std::vector<std::uint8_t> bytes(static_cast<std::size_t>(kWidth) * 3 * kHeight);
        std::vector<std::uint8_t*> rows(kHeight);
        std::uint32_t seed = 12345;
        for (int y = 0; y < kHeight; ++y) {
            rows[y] = bytes.data() + static_cast<std::size_t>(kWidth) * 3 * y;
            for (int x = 0; x < kWidth; ++x) {
                seed = seed * 1664525u + 1013904223u;
                const int noise = static_cast<int>(seed >> 28);
                const int edge = ((x / 300 + y / 200) % 2) * 60;
                rows[y][3 * x + 0] =
                    static_cast<std::uint8_t>((x * 255 / kWidth + edge + noise) % 256);
                rows[y][3 * x + 1] = static_cast<std::uint8_t>((y * 255 / kHeight + noise) % 256);
                rows[y][3 * x + 2] = static_cast<std::uint8_t>((128 + edge + 2 * noise) % 256);
            }
        }
        if (!astrivelle::JPEGWriteImage(p, rows.data(), "RGB", 90, kWidth, kHeight)) {
            std::fprintf(stderr, "cannot write %s: %s\n", p.c_str(),
                         astrivelle::LastFileError().c_str());
            std::exit(1);
        }
        return p;
    }();
    return path;
}

void SetCounters(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kWidth) * kHeight);
    state.counters["MPix/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kWidth * kHeight / 1e6,
                           benchmark::Counter::kIsRate);
}

void BM_OursReadJPEG(benchmark::State& state) {
    const std::string& path = TestFile();
    for (auto _ : state) {
        astrivelle::Image image;
        if (!image.ReadJPEG(path)) {
            state.SkipWithError(astrivelle::LastFileError().c_str());
            return;
        }
        benchmark::DoNotOptimize(image.curPlane[2][image.pixelCount - 1]);
    }
    SetCounters(state);
}

/// What djpeg does before it formats its output: ISLOW DCT, fancy upsampling, RGB rows.
void BM_LibjpegRowsReference(benchmark::State& state) {
    const std::string& path = TestFile();
    std::vector<JSAMPLE> row(static_cast<std::size_t>(kWidth) * 3 * 16);
    std::vector<JSAMPROW> rows(16);
    for (int i = 0; i < 16; ++i)
        rows[i] = row.data() + static_cast<std::size_t>(kWidth) * 3 * i;
    for (auto _ : state) {
        jpeg_decompress_struct cinfo;
        jpeg_error_mgr jerr;
        cinfo.err = jpeg_std_error(&jerr);
        jpeg_create_decompress(&cinfo);
        FILE* f = std::fopen(path.c_str(), "rb");
        jpeg_stdio_src(&cinfo, f);
        jpeg_read_header(&cinfo, TRUE);
        cinfo.out_color_space = JCS_RGB;
        jpeg_start_decompress(&cinfo);
        while (cinfo.output_scanline < cinfo.output_height)
            jpeg_read_scanlines(&cinfo, rows.data(), 16);
        jpeg_finish_decompress(&cinfo);
        jpeg_destroy_decompress(&cinfo);
        std::fclose(f);
        benchmark::DoNotOptimize(row[0]);
    }
    SetCounters(state);
}

/// The djpeg program (PPM to /dev/null), process start included.
void BM_DjpegProcess(benchmark::State& state) {
    const std::string command = "djpeg -outfile /dev/null " + TestFile();
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("djpeg failed");
            return;
        }
    }
    SetCounters(state);
}

BENCHMARK(BM_OursReadJPEG)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_LibjpegRowsReference)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_DjpegProcess)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

} // namespace

BENCHMARK_MAIN();
