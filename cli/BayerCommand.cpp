// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `bayer`: interpolate colour filter mosaics to RGB, or split one colour plane out.
#include <cstdio>

#include "cli/BatchOutput.h"
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "imagesets/BayerFiles.h"

namespace astrivelle::cli {

namespace {

const char* kBayerHelp =
    "usage: astrivelle-cli bayer --pattern KW [--output RGB|RED|GREEN|BLUE]\n"
    "                            [--reduce-green-noise] [--rgb-pixel] [--average-green]\n"
    "                            [--prefix P] [--save-type KW] [--json] -o DIR FILE...\n\n"
    "Interpolates each monochrome mosaic FILE to colour (RGB: width - 2 by height - 2, or half\n"
    "size with --rgb-pixel) or splits one colour plane out of it (RED, BLUE: half size;\n"
    "GREEN: half width, full height, or half size with --average-green), and writes\n"
    "DIR/P + name + \".tif\" (\".fit\" for the FITS save types).\n"
    "  --pattern KW          RG,GB GR,BG GB,RG BG,GR RGr,GbB GrR,BGb GbB,RGr BGb,GrR or a\n"
    "                        CYGM keyword (CYGM,CYMG YCMG,YCGM GMCY,MGCY MGYC,GMYC CYMG,CYGM\n"
    "                        YCGM,YCMG MGCY,GMCY GMYC,MGYC; RGB output only)\n"
    "  --output C            RGB (default), RED, GREEN or BLUE\n"
    "  --reduce-green-noise  the smaller green estimate at each site\n"
    "  --rgb-pixel           one (R,G,B) pixel per 2 by 2 cell\n"
    "  --average-green       GREEN: the mean of the cell's two greens\n"
    "  --prefix P            output prefix (default BINT_, or BAYER_RED_ ...; a given one\n"
    "                        gets _RED_, _GREEN_ or _BLUE_ behind it for a split)\n"
    "  --save-type KW        COMPFIT, UNCOMPFIT, COMPFIT32, UNCOMPFIT32; else 16-bit TIFF\n"
    "  --json                print the status, outputs and failures as one JSON object\n"
    "  -o DIR                output folder (made when missing)\n"
    "  --quiet               no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli bayer: %s\n%s", error.c_str(), kBayerHelp);
    return ExitUsage;
}

} // namespace

int RunBayer(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv, {"--pattern", "--output", "--prefix", "--save-type", "-o"},
                        {"--help", "--quiet", "--json", "--reduce-green-noise", "--rgb-pixel",
                         "--average-green"},
                        &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kBayerHelp, stdout);
        return ExitOk;
    }
    BayerFilesParams params;
    params.cfaPattern = args.Value("--pattern");
    if (params.cfaPattern.empty())
        return Usage("--pattern KW is required");
    params.outputColor = args.Value("--output", "RGB");
    if (BayerFilesStatus(params.outputColor).empty())
        return Usage("--output takes RGB, RED, GREEN or BLUE");
    params.outputDirectory = args.Value("-o");
    if (params.outputDirectory.empty())
        return Usage("-o DIR is required");
    if (args.files.empty())
        return Usage("no input files");
    params.files = args.files;
    params.reduceGreenNoise = args.Has("--reduce-green-noise");
    params.buildRGBPixel = args.Has("--rgb-pixel");
    params.averageGreen = args.Has("--average-green");
    params.prefix = args.Value("--prefix");
    params.saveType = args.Value("--save-type", "TIFF16");

    return RunAndPrint(args, [&](IProgress* progress, INotify* notify) {
        return RunBayerFiles(params, progress, notify);
    });
}

} // namespace astrivelle::cli
