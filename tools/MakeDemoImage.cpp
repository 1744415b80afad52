// SPDX-License-Identifier: GPL-3.0-or-later
/// \file astrivelle-demo-image: writes a small synthetic star field as a 16-bit FITS file,
/// deterministic by seed, for the demo and for quick manual checks.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "engine/Image.h"

using namespace astrivelle;

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: astrivelle-demo-image OUT.fit [WIDTH HEIGHT [SEED]]\n");
        return 2;
    }
    const std::string out = argv[1];
    const int w = argc > 3 ? std::atoi(argv[2]) : 640;
    const int h = argc > 3 ? std::atoi(argv[3]) : 480;
    const unsigned seed = argc > 4 ? static_cast<unsigned>(std::atoi(argv[4])) : 1u;
    if (w <= 0 || h <= 0 || w > 20000 || h > 20000) {
        std::fprintf(stderr, "astrivelle-demo-image: size must be 1..20000\n");
        return 2;
    }
    Image img;
    img.SetGeometryFits(KindFITS, ColorGray, 0, Data16, w, h);
    if (!img.AllocatePlanes(1)) {
        std::fprintf(stderr, "astrivelle-demo-image: out of memory\n");
        return 1;
    }
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0.0, 40.0);
    std::uniform_real_distribution<double> uni(0.0, 1.0);
    float* p = img.curPlane[0];
    // Sky with a gentle gradient, then read noise.
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            p[y * w + x] = static_cast<float>(1200.0 + 400.0 * x / w + 150.0 * y / h + noise(rng));
    // Gaussian stars with a power-law spread of fluxes.
    const int stars = w * h / 2000 + 5;
    for (int k = 0; k < stars; ++k) {
        const double cx = uni(rng) * w, cy = uni(rng) * h;
        const double peak = 800.0 / std::pow(uni(rng) + 0.02, 1.2);
        const double sigma = 1.2 + uni(rng) * 0.6;
        const int r = static_cast<int>(sigma * 5);
        for (int y = static_cast<int>(cy) - r; y <= static_cast<int>(cy) + r; ++y)
            for (int x = static_cast<int>(cx) - r; x <= static_cast<int>(cx) + r; ++x) {
                if (x < 0 || y < 0 || x >= w || y >= h)
                    continue;
                const double d2 = (x - cx) * (x - cx) + (y - cy) * (y - cy);
                p[y * w + x] += static_cast<float>(peak * std::exp(-d2 / (2 * sigma * sigma)));
            }
    }
    for (std::uint32_t i = 0; i < img.pixelCount; ++i)
        p[i] = static_cast<float>(Image::ClampValue(p[i], 0, 65535));
    img.headerCards.push_back({"OBJECT", "Synthetic field", "", CardString});
    img.headerCards.push_back({"EXPTIME", "120.0", "EXPOSURE IN SECONDS", CardReal});
    img.headerCards.push_back({"HISTORY", "", "made by astrivelle-demo-image", CardString});
    if (!img.WriteFile(out, KindFITS)) {
        std::fprintf(stderr, "Error writing image to disk.\n");
        return 1;
    }
    return 0;
}
