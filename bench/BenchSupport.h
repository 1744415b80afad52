// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Shared set-up of the benchmarks: big test planes and files made once per run.
#pragma once
#include <fitsio.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "engine/Image.h"
#include "engine/Parallel.h"

namespace astrivelle::bench {

constexpr int kWidth = 6000;
constexpr int kHeight = 4000;

/// A sky-like plane: gradient, noise and a sprinkling of bright pixels, deterministic.
inline void FillSky(float* p, int w, int h, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<float> noise(0.f, 30.f);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float v = 1500.f + 0.05f * x + 0.03f * y + noise(rng);
            if ((rng() & 1023) == 0)
                v += 20000.f;
            p[static_cast<std::size_t>(y) * w + x] = v < 0 ? 0 : (v > 65535 ? 65535 : v);
        }
}

inline std::filesystem::path BenchDir() {
    auto dir = std::filesystem::temp_directory_path() / "astrivelle-bench";
    std::filesystem::create_directories(dir);
    return dir;
}

/// Writes a 16-bit FITS of the given colour type through our writer, once per run.
inline std::string MakeFits(const std::string& name, std::uint32_t colorType, bool compress) {
    std::string path = (BenchDir() / name).string();
    if (std::filesystem::exists(path))
        return path;
    Image img;
    img.SetGeometryFits(KindFITS, colorType, 0, Data16, kWidth, kHeight);
    img.AllocateCurrentPlanes(1);
    for (int s : img.Slots())
        FillSky(img.curPlane[s], kWidth, kHeight, 7 + s);
    img.fitsCompress = compress;
    img.WriteFile(path, KindFITS);
    return path;
}

/// A kWidth x kHeight RGB image with sky planes: the previous planes from seeds 3..5, the
/// current planes from `currentSeed`..+2, or a copy of the previous ones when it is 0.
inline void MakeRgbSky(Image& img, unsigned currentSeed) {
    img.SetGeometryFits(KindFITS, ColorRGB, 0, Data16, kWidth, kHeight);
    img.AllocatePlanes(1);
    for (int s = 0; s < 3; ++s) {
        FillSky(img.prevPlane[s], kWidth, kHeight, 3 + s);
        if (currentSeed)
            FillSky(img.curPlane[s], kWidth, kHeight, currentSeed + s);
        else
            std::memcpy(img.curPlane[s], img.prevPlane[s], sizeof(float) * img.pixelCount);
    }
}

/// The RGB sky of a benchmark program, made once: the input in the previous planes and a copy
/// of it in the current ones, as a slider move or a repeated step finds them.
inline Image& RgbSkyImage() {
    static Image img;
    if (!img.curPlane[0])
        MakeRgbSky(img, 0);
    return img;
}

/// Bytes of the three planes of such an image.
inline double RgbBytes() {
    return 3.0 * kWidth * kHeight * sizeof(float);
}

/// The references: previous planes copied over current ones by one memcpy per plane, or by
/// memcpy of row spans in parallel.
inline void CopyPlanes(Image& img) {
    for (int s = 0; s < 3; ++s)
        std::memcpy(img.curPlane[s], img.prevPlane[s], sizeof(float) * img.pixelCount);
}

inline void CopyPlanesParallel(Image& img) {
    const int w = img.width;
    for (int s = 0; s < 3; ++s)
        ParallelRows(img.height, [&](int y0, int y1) {
            std::memcpy(img.curPlane[s] + static_cast<std::size_t>(y0) * w,
                        img.prevPlane[s] + static_cast<std::size_t>(y0) * w,
                        sizeof(float) * static_cast<std::size_t>(y1 - y0) * w);
        });
}

} // namespace astrivelle::bench
