// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `resize`: bring each image to a size (a factor, the set's largest or smallest, or a
/// width and height).
#include <cstdio>

#include "cli/BatchOutput.h"
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "imagesets/ResizeFiles.h"

namespace astrivelle::cli {

namespace {

const char* kResizeHelp =
    "usage: astrivelle-cli resize --mode FACTOR|LARGEST|SMALLEST|SIZE|MONOBAYER\n"
    "                             [--factor X] [--width N] [--height N]\n"
    "                             [--interpolation nearest|bilinear|bicubic] [--prefix P]\n"
    "                             [--save-type KW] [--json] -o DIR FILE...\n\n"
    "Resizes each FILE and writes DIR/P + name. An image already at its size is written as it\n"
    "is; when all are, nothing is written and the status is \"No Scale Needed\".\n"
    "  --mode M          FACTOR (times --factor), LARGEST or SMALLEST (the size of the set's\n"
    "                    largest or smallest image), SIZE (--width by --height),\n"
    "                    MONOBAYER (monochrome Bayer planes to the colour frame's\n"
    "                    --width by --height)\n"
    "  --factor X        positive real number (default 1.0)\n"
    "  --width N         SIZE: new width\n"
    "  --height N        SIZE: new height\n"
    "  --interpolation   nearest, bilinear (default) or bicubic\n"
    "  --prefix P        output prefix (default RZ_)\n"
    "  --save-type KW    SAMEASINPUT (default), COMPFIT, UNCOMPFIT, COMPFIT32, UNCOMPFIT32,\n"
    "                    TIFF16, UNCOMPTIF\n"
    "  --json            print the status, outputs and failures as one JSON object\n"
    "  -o DIR            output folder (made when missing)\n"
    "  --quiet           no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli resize: %s\n%s", error.c_str(), kResizeHelp);
    return ExitUsage;
}

} // namespace

int RunResize(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv,
                        {"--mode", "--factor", "--width", "--height", "--interpolation", "--prefix",
                         "--save-type", "-o"},
                        {"--help", "--quiet", "--json"}, &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kResizeHelp, stdout);
        return ExitOk;
    }
    ResizeRequest request;
    request.ownerName = kResizeOwnerPipeline; // the command line names its save type
    const std::string mode = args.Value("--mode");
    if (mode == "FACTOR")
        request.mode = ResizeMode::Factor;
    else if (mode == "LARGEST")
        request.mode = ResizeMode::Largest;
    else if (mode == "SMALLEST")
        request.mode = ResizeMode::Smallest;
    else if (mode == "SIZE")
        request.mode = ResizeMode::Size;
    else if (mode == "MONOBAYER")
        request.mode = ResizeMode::MonoBayer;
    else
        return Usage("--mode takes FACTOR, LARGEST, SMALLEST, SIZE or MONOBAYER");
    const std::string factor = args.Value("--factor");
    if (!factor.empty() && !ParseNumber(factor, &request.factor))
        return Usage("--factor takes a number");
    const std::string width = args.Value("--width"), height = args.Value("--height");
    if (!width.empty() && !ParseInteger(width, &request.width))
        return Usage("--width takes a whole number");
    if (!height.empty() && !ParseInteger(height, &request.height))
        return Usage("--height takes a whole number");
    const std::string interpolation = args.Value("--interpolation", "bilinear");
    if (interpolation == "nearest")
        request.interpolation = 1;
    else if (interpolation == "bilinear")
        request.interpolation = 2;
    else if (interpolation == "bicubic")
        request.interpolation = 3;
    else
        return Usage("--interpolation takes nearest, bilinear or bicubic");
    const std::string optionError = ReadFileListOptions(args, kResizePrefix, &request);
    if (!optionError.empty())
        return Usage(optionError);
    return RunAndPrint(args, [&](IProgress* progress, INotify* notify) {
        return ResizeFiles(request, progress, notify);
    });
}

} // namespace astrivelle::cli
