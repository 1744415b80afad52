// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Peak memory of reading a 6000x4000 RGB 16-bit FITS, against the planes it must hold
/// and one sample buffer of the file.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "BenchSupport.h"

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
    // Make the file in a child run so that this process only ever reads it.
    if (argc > 1 && std::string(argv[1]) == "--make") {
        MakeFits("rgb16.fit", ColorRGB, false);
        return 0;
    }
    const std::string path = (BenchDir() / "rgb16.fit").string();
    const long before = StatusKb("VmHWM:");
    Image img;
    if (!img.ReadFile(path, ".fit")) {
        std::fprintf(stderr, "read failed: %s (run with --make first)\n", path.c_str());
        return 1;
    }
    const long peak = StatusKb("VmHWM:");
    const double px = double(kWidth) * kHeight;
    const double planesMb = 6 * px * 4 / 1048576.0;     // current + previous, three slots
    const double oneHduBufferMb = px * 2 / 1048576.0;   // 16-bit samples of one HDU
    const double threeHduBufferMb = 3 * oneHduBufferMb; // all three HDUs at once
    std::printf("baseline before read      %8.1f MB\n", before / 1024.0);
    std::printf("peak after read           %8.1f MB\n", peak / 1024.0);
    std::printf("growth                    %8.1f MB\n", (peak - before) / 1024.0);
    std::printf("planes (2 x 3 x float)    %8.1f MB\n", planesMb);
    std::printf("one HDU 16-bit buffer     %8.1f MB\n", oneHduBufferMb);
    std::printf("growth - planes           %8.1f MB  (limit: one sample buffer, %.1f MB for all "
                "three HDUs)\n",
                (peak - before) / 1024.0 - planesMb, threeHduBufferMb);
    return 0;
}
