// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Peak memory of one window filter on a mono plane beyond the image's own two planes,
/// in MB and in planes. One filter per run, so that each peak is its own:
///   FilterPeakMemory gaussian101 | box999 | median51 | quantile51 | rl5 | ddp9
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "operators/Restoration.h"

using namespace astrivelle;
using namespace astrivelle::bench;

namespace {
long StatusKb(const char* key) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(key, 0) == 0)
            return std::stol(line.substr(std::strlen(key)));
    return -1;
}
} // namespace

int main(int argc, char** argv) {
    const std::string op = argc > 1 ? argv[1] : "";
    const bool rank = op == "median51" || op == "quantile51";
    const int w = rank ? 4000 : kWidth, h = rank ? 3000 : kHeight;
    Image img;
    const bool color = op == "ddp9";
    img.SetGeometryFits(KindFITS, color ? ColorRGB : ColorGray, 0, Data16, w, h);
    img.AllocatePlanes(1);
    for (int s : img.Slots()) {
        FillSky(img.prevPlane[s], w, h, 5 + s);
        for (std::uint32_t i = 0; i < img.pixelCount; ++i)
            img.prevPlane[s][i] = std::round(img.prevPlane[s][i]);
        std::memcpy(img.curPlane[s], img.prevPlane[s], sizeof(float) * img.pixelCount);
    }
    const int s = img.Slots().front();
    const long before = StatusKb("VmHWM:");
    bool ok = true;
    std::vector<float> estimate, s1, s2; // restoration's planes are the caller's: counted here
    if (op == "gaussian101")
        ok = img.Smooth(nullptr, true, img.prevPlane[s], img.curPlane[s], 3, 50, 1, 1, 0, 65535, 0);
    else if (op == "box999")
        ok =
            img.Smooth(nullptr, true, img.prevPlane[s], img.curPlane[s], 1, 499, 1, 1, 0, 65535, 0);
    else if (op == "median51")
        ok = img.Smooth(nullptr, true, img.prevPlane[s], img.curPlane[s], 6, 25, 1, 1, 0, 65535, 0);
    else if (op == "quantile51")
        ok = img.Smooth(nullptr, true, img.prevPlane[s], img.curPlane[s], 5, 25, 1, 1, 0, 65535, 0);
    else if (op == "rl5") {
        estimate.resize(img.pixelCount);
        s1.resize(img.pixelCount);
        s2.resize(img.pixelCount);
        for (bool first : {true, false})
            ok = ok && img.RestoreIteration(estimate.data(), s1.data(), s2.data(), true,
                                            img.prevPlane[s], img.curPlane[s], nullptr, 2, 2, 1.0,
                                            2, first, 0, 65535, 0, false);
    } else if (op == "ddp9") {
        const int bkg[2] = {0, 2000};
        ok = img.ApplyDigitalDevelopment(true, 4, nullptr, 0, true, bkg, true, true, true, 1.0, 0.5,
                                         0.5, 0.5, 0.5, false, 1.0, 0.0, 1.0, "None");
    } else {
        std::fprintf(stderr, "usage: FilterPeakMemory gaussian101|box999|median51|quantile51|"
                             "rl5|ddp9\n");
        return 2;
    }
    if (!ok) {
        std::fprintf(stderr, "%s failed\n", op.c_str());
        return 1;
    }
    const long peak = StatusKb("VmHWM:");
    const double plane = double(w) * h * 4 / 1048576.0;
    const double extra = (peak - before) / 1024.0;
    std::printf("%-11s %dx%d: peak beyond the image %.1f MB = %.2f planes of %.1f MB\n", op.c_str(),
                w, h, extra, extra / plane, plane);
    return 0;
}
