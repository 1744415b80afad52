// SPDX-License-Identifier: GPL-3.0-or-later
/// \file astrivelle-synth: synthetic nights, planetary videos and raw files with their ground
/// truth, and quality measures against that truth.
#include <cstdio>
#include <string>
#include <vector>

#include "tools/synth/Commands.h"

namespace {

const char* kUsage =
    "usage: astrivelle-synth <command> [options]\n\n"
    "commands:\n"
    "  night    light, dark, flat, flat dark and bias frames of one star field + truth.json\n"
    "  planet   a SER video of a planet (or the lunar surface) + truth.json\n"
    "  raw      small DNG camera raw files, one per 2x2 colour pattern\n"
    "  measure  quality of an image against a night's truth.json\n\n"
    "'astrivelle-synth <command> --help' describes a command's options.\n";

} // namespace

int main(int argc, char** argv) {
    using namespace astrivelle::synth;
    if (argc < 2) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    const std::string command = argv[1];
    const std::vector<std::string> args(argv + 2, argv + argc);
    if (command == "--help" || command == "-h") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (command == "night")
        return RunNight(args);
    if (command == "planet")
        return RunPlanet(args);
    if (command == "raw")
        return RunRaw(args);
    if (command == "measure")
        return RunMeasure(args);
    std::fprintf(stderr, "astrivelle-synth: unknown command '%s'\n%s", command.c_str(), kUsage);
    return 2;
}
