// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `crop`: cut a box about a point, or about each image's brightness centroid.
#include <cstdio>

#include "cli/BatchOutput.h"
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "imagesets/CropFiles.h"

namespace astrivelle::cli {

namespace {

const char* kCropHelp =
    "usage: astrivelle-cli crop --width N --height N (--center X,Y | --centroid)\n"
    "                           [--prefix P] [--save-type KW] [--json] -o DIR FILE...\n\n"
    "Cuts a width by height box out of each FILE and writes DIR/P + name. The box is centred on\n"
    "the point (0-based pixel coordinates, the same for all files) or on each image's own\n"
    "centre of brightness, and moved inside the image where it would reach past an edge.\n"
    "  --width N, --height N  the box\n"
    "  --center X,Y           the point\n"
    "  --centroid             each image's brightness centroid\n"
    "  --prefix P             output prefix (default CR_)\n"
    "  --save-type KW         SAMEASINPUT (default), COMPFIT, UNCOMPFIT, COMPFIT32,\n"
    "                         UNCOMPFIT32, TIFF16, UNCOMPTIF\n"
    "  --json                 print the status, outputs and failures as one JSON object\n"
    "  -o DIR                 output folder (made when missing)\n"
    "  --quiet                no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli crop: %s\n%s", error.c_str(), kCropHelp);
    return ExitUsage;
}

} // namespace

int RunCrop(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv, {"--width", "--height", "--center", "--prefix", "--save-type", "-o"},
                        {"--help", "--quiet", "--json", "--centroid"}, &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kCropHelp, stdout);
        return ExitOk;
    }
    CropRequest request;
    request.ownerName = kCropOwnerPipeline; // the command line names its save type
    const std::string width = args.Value("--width"), height = args.Value("--height");
    if (!ParseInteger(width, &request.width))
        return Usage("--width N is required");
    if (!ParseInteger(height, &request.height))
        return Usage("--height N is required");
    const std::string center = args.Value("--center");
    const bool centroid = args.Has("--centroid");
    if (centroid == !center.empty())
        return Usage("give one of --center X,Y and --centroid");
    if (centroid) {
        request.center = CropCenter::Centroid;
    } else {
        const auto comma = center.find(',');
        if (comma == std::string::npos || !ParseNumber(center.substr(0, comma), &request.x) ||
            !ParseNumber(center.substr(comma + 1), &request.y))
            return Usage("--center takes X,Y");
    }
    const std::string optionError = ReadFileListOptions(args, kCropPrefix, &request);
    if (!optionError.empty())
        return Usage(optionError);
    return RunAndPrint(args, [&](IProgress* progress, INotify* notify) {
        return CropFiles(request, progress, notify);
    });
}

} // namespace astrivelle::cli
