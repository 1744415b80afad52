// SPDX-License-Identifier: GPL-3.0-or-later
/// \file astrivelle-cli: the command-line front over the engine.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/CliCommon.h"
#include "cli/Commands.h"

namespace astrivelle::cli {

const std::vector<Command>& AllCommands() {
    static const std::vector<Command> commands = {
        {"info", "show an image's geometry, statistics and header", RunInfo},
        {"filter", "apply recorded operators to files and write the results", RunFilter},
        {"convert", "write image files in another format", RunConvert},
        {"raw", "decode camera raw files", RunRaw},
        {"project", "render a saved project's history or print its report", RunProject},
        {"calibrate", "apply master dark, flat, flat dark and bias frames to light frames",
         RunCalibrate},
        {"gain", "measure a camera's gain and read noise from two flats and two bias frames",
         RunGain},
        {"bayer", "interpolate or split colour filter mosaics", RunBayer},
        {"combine", "combine image files into one (average, median, sigma, HDR add ...)",
         RunCombine},
        {"normalize", "bring a set of images to one brightness and contrast, or one range",
         RunNormalize},
        {"resize", "resize images by a factor, to a size, or to the set's largest or smallest",
         RunResize},
        {"crop", "cut a box about a point or each image's brightness centroid", RunCrop},
        {"stars", "find the stars of an image and print their measures", RunStars},
        {"grade", "grade a set of images by edge sharpness or star shape and copy the best",
         RunGrade},
        {"align", "align a set of images onto a reference image by their stars", RunAlign},
        {"auto", "the automatic image set process: masters, calibration, ... the stack", RunAuto},
    };
    return commands;
}

static void PrintUsage(std::FILE* to) {
    std::fprintf(to, "usage: astrivelle-cli <command> [options] [files]\n\ncommands:\n");
    for (const Command& c : AllCommands())
        std::fprintf(to, "  %-10s %s\n", c.name, c.summary);
    std::fprintf(to, "\n'astrivelle-cli <command> --help' describes a command.\n"
                     "Exit status: 0 success, 1 the operation failed, 2 usage error.\n");
}

} // namespace astrivelle::cli

int main(int argc, char** argv) {
    using namespace astrivelle::cli;
    if (argc < 2) {
        PrintUsage(stderr);
        return ExitUsage;
    }
    const std::string command = argv[1];
    if (command == "--help" || command == "-h" || command == "help") {
        PrintUsage(stdout);
        return ExitOk;
    }
    if (command == "--version") {
        std::printf("astrivelle-cli %s\n", ASTRIVELLE_VERSION);
        return ExitOk;
    }
    std::vector<std::string> args(argv + 2, argv + argc);
    for (const Command& c : AllCommands())
        if (command == c.name)
            return c.run(args);
    std::fprintf(stderr, "astrivelle-cli: unknown command '%s'\n", command.c_str());
    PrintUsage(stderr);
    return ExitUsage;
}
