// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The raw subcommand of astrivelle-synth: small DNG files, one per 2x2 CFA pattern,
/// holding red, green and blue patches and a grey ramp.
#include <cstdio>
#include <filesystem>

#include "tools/synth/Commands.h"
#include "tools/synth/DngFile.h"
#include "tools/synth/Options.h"

namespace astrivelle::synth {

namespace {

const char* kRawHelp =
    "usage: astrivelle-synth raw --out DIR [options]\n\n"
    "Writes DIR/raw_RGGB.dng, raw_GRBG.dng, raw_GBRG.dng and raw_BGGR.dng: uncompressed\n"
    "16-bit CFA data (12-bit values, black 256, white 4095), ISO 400, 1/125 s. The upper two\n"
    "thirds hold a red, a green and a blue patch from left to right, the lower third a grey\n"
    "ramp rising to the right.\n\n"
    "  --out DIR        output folder (created when missing)\n"
    "  --pattern KW     only this pattern: RG,GB, GR,BG, GB,RG or BG,GR\n"
    "  --seed N         random seed of the noise (1)\n"
    "  --size WxH       image size, even numbers (256x192)\n";

} // namespace

int RunRaw(const std::vector<std::string>& args) {
    Options o;
    std::string error;
    if (!o.Parse(args, {"--out", "--pattern", "--seed", "--size"}, {"--help"}, &error)) {
        std::fprintf(stderr, "astrivelle-synth raw: %s\n%s", error.c_str(), kRawHelp);
        return 2;
    }
    if (o.Has("--help")) {
        std::fputs(kRawHelp, stdout);
        return 0;
    }
    auto usage = [](const std::string& text) {
        std::fprintf(stderr, "astrivelle-synth raw: %s\n", text.c_str());
        return 2;
    };
    if (o.Text("--out").empty())
        return usage("--out DIR is required");
    long long seed = 1;
    int width = 256, height = 192;
    if (!o.Int("--seed", 0, 0x7fffffffffffffffLL, &seed, &error) ||
        !o.Size("--size", 8192, &width, &height, &error))
        return usage(error);
    if (width < 6 || height < 6 || width % 2 || height % 2)
        return usage("--size must be even numbers of at least 6");
    std::vector<std::string> patterns(std::begin(kDngCfaKeywords), std::end(kDngCfaKeywords));
    if (o.Has("--pattern")) {
        std::array<std::uint8_t, 4> cells{};
        if (!DngCfaColours(o.Text("--pattern"), &cells))
            return usage("--pattern must be RG,GB, GR,BG, GB,RG or BG,GR");
        patterns = {o.Text("--pattern")};
    }

    namespace fs = std::filesystem;
    const fs::path dir = o.Text("--out");
    std::error_code ec;
    fs::create_directories(dir, ec);
    if (!fs::is_directory(dir)) {
        std::fprintf(stderr, "astrivelle-synth raw: cannot create %s\n", dir.c_str());
        return 1;
    }
    for (const std::string& pattern : patterns) {
        DngImage image;
        const std::string path = (dir / ("raw_" + DngCfaName(pattern) + ".dng")).string();
        if (!MakeRawScene(static_cast<std::uint64_t>(seed), width, height, pattern, &image,
                          &error) ||
            !WriteDng(path, image, &error)) {
            std::fprintf(stderr, "astrivelle-synth raw: %s\n", error.c_str());
            return 1;
        }
    }
    return 0;
}

} // namespace astrivelle::synth
