// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `convert`: each file written in another format, optionally through a recorded stretch
/// and a brightness step.
#include <cstdio>
#include <fstream>
#include <sstream>

#include "cli/BatchOutput.h"
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "imagesets/ConvertFiles.h"

namespace astrivelle::cli {

namespace {

const char* kConvertHelp =
    "usage: astrivelle-cli convert --save-type KW [--stretch NAME (--params TEXT |\n"
    "                              --params-file FILE)] [--brightness N] [--prefix P]\n"
    "                              [--json] -o DIR FILE...\n\n"
    "Reads each FILE, applies the stretch with its recorded parameter text (as the process\n"
    "history shows it), adds the brightness step and writes DIR/P + name in the format KW:\n"
    "  COMPFIT, UNCOMPFIT      16-bit FITS, Rice-compressed or not (.FIT: UNCOMPFIT)\n"
    "  COMPFIT32, UNCOMPFIT32  32-bit float FITS, losslessly compressed or not\n"
    "  TIFF16, TIFF8           uncompressed TIFF (.TIF: TIFF16)\n"
    "  JPEG, BMP, PNG          8-bit display formats (.JPG, .BMP, .PNG)\n"
    "  --stretch NAME      Levels, DDP (Digital Development), General Stretch Functions,\n"
    "                      ArcSinH, Micro Curves, or any recorded operator\n"
    "  --params TEXT       the stretch's parameter text\n"
    "  --params-file FILE  the same, read from a file\n"
    "  --brightness N      added to every pixel after the stretch (default 0)\n"
    "  --prefix P          output name prefix (default CV_)\n"
    "  --json              print the status, outputs and failures as one JSON object\n"
    "  --quiet             no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli convert: %s\n%s", error.c_str(), kConvertHelp);
    return ExitUsage;
}

bool ReadWholeFile(const std::string& path, std::string* text) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream all;
    all << in.rdbuf();
    *text = all.str();
    while (!text->empty() && (text->back() == '\n' || text->back() == '\r'))
        text->pop_back();
    return true;
}

} // namespace

int RunConvert(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv,
                        {"--save-type", "--prefix", "-o", "--stretch", "--params", "--params-file",
                         "--brightness"},
                        {"--help", "--quiet", "--json"}, &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kConvertHelp, stdout);
        return ExitOk;
    }
    ConvertFilesRequest request;
    request.outputType = args.Value("--save-type");
    if (request.outputType.empty())
        return Usage("--save-type KW is required");
    if (ConvertSaveType(request.outputType).empty())
        return Usage("unknown save type " + request.outputType);
    request.outputDirectory = args.Value("-o");
    if (request.outputDirectory.empty())
        return Usage("-o DIR is required");
    if (args.files.empty())
        return Usage("no input files");
    request.files = args.files;
    request.prefix = args.Value("--prefix", kConvertPrefix);
    request.stretch = args.Value("--stretch");
    request.parameters = args.Value("--params");
    const std::string paramsFile = args.Value("--params-file");
    if (!paramsFile.empty()) {
        if (!request.parameters.empty())
            return Usage("give one of --params and --params-file");
        if (!ReadWholeFile(paramsFile, &request.parameters))
            return Usage("cannot read " + paramsFile);
    }
    if (request.stretch.empty() && !request.parameters.empty())
        return Usage("--params needs --stretch NAME");
    const std::string brightness = args.Value("--brightness");
    if (!brightness.empty() && !ParseNumber(brightness, &request.brightnessStep))
        return Usage("--brightness takes a number");
    return RunAndPrint(args, [&](IProgress* progress, INotify* notify) {
        return ConvertFiles(request, progress, notify);
    });
}

} // namespace astrivelle::cli
