// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `normalize`: bring a set of images to one brightness and contrast, or one range.
#include <cstdio>

#include "cli/BatchOutput.h"
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "imagesets/NormalizeFiles.h"

namespace astrivelle::cli {

namespace {

const char* kNormalizeHelp =
    "usage: astrivelle-cli normalize --mode BC|RANGE --target MAX|AVG|MIN|USER\n"
    "                                [--background N] [--deviation N] [--set-deviation]\n"
    "                                [--min N] [--max N] [--prefix P] [--save-type KW]\n"
    "                                [--json] -o DIR FILE...\n\n"
    "Analyzes the set (per file and channel the mean and standard deviation, or the minimum\n"
    "and maximum), then maps each file's channels linearly onto the target and writes\n"
    "DIR/P + name. At least two files of one size are needed.\n"
    "  --mode M          BC (brightness & contrast: mean and deviation) or RANGE (min, max)\n"
    "  --target T        MAX, AVG, MIN: the largest, average or smallest statistic of the set\n"
    "                    per channel; USER: the values below\n"
    "  --background N    BC USER: the average background level (default 5120)\n"
    "  --deviation N     BC USER: the average standard deviation (default 2000)\n"
    "  --set-deviation   BC USER: the set's average standard deviation instead\n"
    "  --min N, --max N  RANGE USER: the target range (default 0, 65535)\n"
    "  --prefix P        output prefix (default NL_)\n"
    "  --save-type KW    SAMEASINPUT (default), COMPFIT, UNCOMPFIT, COMPFIT32, UNCOMPFIT32,\n"
    "                    TIFF16, UNCOMPTIF\n"
    "  --json            print the status, outputs and failures as one JSON object\n"
    "  -o DIR            output folder (made when missing)\n"
    "  --quiet           no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli normalize: %s\n%s", error.c_str(), kNormalizeHelp);
    return ExitUsage;
}

} // namespace

int RunNormalize(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv,
                        {"--mode", "--target", "--background", "--deviation", "--min", "--max",
                         "--prefix", "--save-type", "-o"},
                        {"--help", "--quiet", "--json", "--set-deviation"}, &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kNormalizeHelp, stdout);
        return ExitOk;
    }
    NormalizeRequest request;
    request.ownerName = kNormalizeOwnerPipeline; // the command line names its save type
    const std::string mode = args.Value("--mode", "BC");
    if (mode == "BC")
        request.mode = NormalizeMode::BrightnessContrast;
    else if (mode == "RANGE")
        request.mode = NormalizeMode::Range;
    else
        return Usage("--mode takes BC or RANGE");
    const std::string target = args.Value("--target", "AVG");
    if (target == "MAX")
        request.target = NormalizeTarget::SetMaximum;
    else if (target == "AVG")
        request.target = NormalizeTarget::SetAverage;
    else if (target == "MIN")
        request.target = NormalizeTarget::SetMinimum;
    else if (target == "USER")
        request.target = NormalizeTarget::UserDefined;
    else
        return Usage("--target takes MAX, AVG, MIN or USER");
    const std::pair<const char*, double*> numbers[] = {{"--background", &request.background},
                                                       {"--deviation", &request.deviation},
                                                       {"--min", &request.minimum},
                                                       {"--max", &request.maximum}};
    for (const auto& [name, value] : numbers) {
        const std::string text = args.Value(name);
        if (!text.empty() && !ParseNumber(text, value))
            return Usage(std::string(name) + " takes a number");
    }
    request.useSetDeviation = args.Has("--set-deviation");
    const std::string optionError = ReadFileListOptions(args, kNormalizePrefix, &request);
    if (!optionError.empty())
        return Usage(optionError);
    return RunAndPrint(args, [&](IProgress* progress, INotify* notify) {
        return NormalizeFiles(request, progress, notify).run;
    });
}

} // namespace astrivelle::cli
