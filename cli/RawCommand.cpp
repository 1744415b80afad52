// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `raw`: digital camera raw files decoded by conversion keyword and written by save type.
#include <cstdio>

#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/FileLoop.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/Raw.h"

namespace astrivelle::cli {

namespace {

const char* kRawHelp =
    "usage: astrivelle-cli raw --conversion KW --save-type KW [--prefix P] -o DIR FILE...\n\n"
    "Decodes each camera raw FILE and writes DIR/P + name.\n"
    "  --conversion Color       interpolated colour at the camera's white balance\n"
    "               NoWBCFA     the colour mosaic as recorded\n"
    "               WBCFA       the mosaic at the camera's white balance\n"
    "               BASICBAYER  the mosaic at the decoder's daylight balance\n"
    "  --save-type  COMPFIT, UNCOMPFIT, COMPFIT32, UNCOMPFIT32, TIFF16, TIFF8, JPEG, BMP\n"
    "  --prefix P   output name prefix (default CVT_)\n"
    "  --quiet      no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli raw: %s\n%s", error.c_str(), kRawHelp);
    return ExitUsage;
}

} // namespace

int RunRaw(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv, {"--conversion", "--save-type", "--prefix", "-o"},
                        {"--help", "--quiet"}, &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kRawHelp, stdout);
        return ExitOk;
    }
    const std::string conversion = args.Value("--conversion");
    if (!FindRawConversion(conversion))
        return Usage("--conversion must be Color, NoWBCFA, WBCFA or BASICBAYER");
    FileLoop loop;
    loop.saveType = args.Value("--save-type");
    if (!IsRawSaveType(loop.saveType))
        return Usage("unknown save type " + loop.saveType);
    loop.outDir = args.Value("-o");
    if (loop.outDir.empty())
        return Usage("-o DIR is required");
    if (args.files.empty())
        return Usage("no input files");
    loop.files = args.files;
    loop.prefix = args.Value("--prefix", "CVT_");
    loop.quiet = args.Has("--quiet");
    loop.read = [&conversion](Image& img, const std::string& path, std::string* why) {
        RawRequest request;
        request.ownerName = "FileOpen";
        request.conversion = conversion;
        request.inputPath = path;
        if (DecodeRawImage(request, img))
            return true;
        *why = std::string(kRawCouldNotConvert) + " " + LastFileError();
        return false;
    };
    return RunFileLoop(loop);
}

} // namespace astrivelle::cli
