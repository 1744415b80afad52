// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `convert`: any readable image file to another format, pixels unchanged.
#include <cstdio>

#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/FileLoop.h"
#include "fileio/SaveType.h"

namespace astrivelle::cli {

namespace {

const char* kConvertHelp =
    "usage: astrivelle-cli convert --save-type KW [--prefix P] -o DIR FILE...\n\n"
    "Reads each FILE and writes it as DIR/P + name in the format KW:\n"
    "  COMPFIT, UNCOMPFIT      16-bit FITS, Rice-compressed or not\n"
    "  COMPFIT32, UNCOMPFIT32  32-bit float FITS, losslessly compressed or not\n"
    "  TIFF16, TIFF8           uncompressed TIFF\n"
    "  JPEG, BMP               8-bit display formats\n"
    "  --prefix P   output name prefix (default CV_)\n"
    "  --quiet      no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli convert: %s\n%s", error.c_str(), kConvertHelp);
    return ExitUsage;
}

} // namespace

int RunConvert(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv, {"--save-type", "--prefix", "-o"}, {"--help", "--quiet"}, &args,
                        &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kConvertHelp, stdout);
        return ExitOk;
    }
    FileLoop loop;
    loop.saveType = args.Value("--save-type");
    if (loop.saveType.empty())
        return Usage("--save-type KW is required");
    if (loop.saveType == "SAMEASINPUT" || !IsKnownSaveType(loop.saveType, true))
        return Usage("unknown save type " + loop.saveType);
    loop.outDir = args.Value("-o");
    if (loop.outDir.empty())
        return Usage("-o DIR is required");
    if (args.files.empty())
        return Usage("no input files");
    loop.files = args.files;
    loop.prefix = args.Value("--prefix", "CV_");
    loop.quiet = args.Has("--quiet");
    return RunFileLoop(loop);
}

} // namespace astrivelle::cli
