// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `combine`: one image from a list of image files (Combine Files / HDR add).
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/Json.h"
#include "fileio/SaveType.h"
#include "imagesets/CombineFiles.h"
#include "imagesets/FileOperation.h"

namespace astrivelle::cli {

namespace {

const char* kCombineHelp =
    "usage: astrivelle-cli combine --method M [--clip-factor F] [--compress X]\n"
    "                              [--brightness X] [--grade-weights A,B,C,D,F]\n"
    "                              [--name NAME] [--save-type KW] [--json]\n"
    "                              -o DIR FILE...\n\n"
    "Combines all FILEs (same size; at least two) into DIR/NAME + the save type's extension.\n"
    "The files are streamed, never all held in memory; the median methods read tiles of rows\n"
    "of all files, as many tiles as the free memory asks.\n"
    "  --method M        ADD (sum limited to 65535), AVG (zero pixels are no data), EXCAVG\n"
    "                    (min/max excluded), SIGAVG (sigma clipped), GRADEAVG, GRADEAVGAUTO\n"
    "                    (weights from grade marks in the names), MIN, MAX, MED, SIGMED,\n"
    "                    WGTMED, ADPADD, EXCADPADD (tone-mapped additions)\n"
    "  --clip-factor F   sigma clip factor of SIGAVG and SIGMED (default 2.55)\n"
    "  --compress X      log compression of ADPADD and EXCADPADD (default 0.2)\n"
    "  --brightness X    equalization brightness of ADPADD and EXCADPADD (default 1.0)\n"
    "  --grade-weights L GRADEAVG and GRADEAVGAUTO: the weights in percent of the grades\n"
    "                    A, B, C, D and F, five whole numbers 0..100 (default 100,75,50,25,0)\n"
    "  --name NAME       result name without extension (default Combined_ + method)\n"
    "  --save-type KW    UNCOMPFIT (default), COMPFIT, UNCOMPFIT32, COMPFIT32, UNCOMPTIF,\n"
    "                    TIFF16\n"
    "  --json            print the status, output and errors as one JSON object\n"
    "  -o DIR            output folder (made when missing)\n"
    "  --quiet           no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli combine: %s\n%s", error.c_str(), kCombineHelp);
    return ExitUsage;
}

bool Number(const std::string& text, double* value) {
    if (text.empty())
        return false;
    char* end = nullptr;
    *value = std::strtod(text.c_str(), &end);
    return end && *end == '\0';
}

/// Five whole numbers 0..100 separated by commas.
bool GradePercents(const std::string& text, std::array<int, 5>* percent) {
    std::array<int, 5> out{};
    std::size_t at = 0;
    for (int i = 0; i < 5; ++i) {
        const std::size_t end = i < 4 ? text.find(',', at) : text.size();
        if (end == std::string::npos)
            return false;
        const std::string item = text.substr(at, end - at);
        if (item.empty() || item.size() > 3 ||
            item.find_first_not_of("0123456789") != std::string::npos)
            return false;
        out[static_cast<std::size_t>(i)] = std::stoi(item);
        if (out[static_cast<std::size_t>(i)] > 100)
            return false;
        at = end + 1;
    }
    *percent = out;
    return true;
}

} // namespace

int RunCombine(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv,
                        {"--method", "--clip-factor", "--compress", "--brightness",
                         "--grade-weights", "--name", "--save-type", "-o"},
                        {"--help", "--quiet", "--json"}, &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kCombineHelp, stdout);
        return ExitOk;
    }
    const std::string keyword = args.Value("--method");
    if (keyword.empty())
        return Usage("--method M is required");
    const CombineMethodInfo* method = FindCombineMethod(keyword);
    if (!method)
        return Usage("unknown method " + keyword);
    CombineFilesParams params;
    params.settings.method = method->method;
    for (const auto& [option, target] :
         {std::pair<const char*, double*>{"--clip-factor", &params.settings.clipFactor},
          {"--compress", &params.settings.compress},
          {"--brightness", &params.settings.brightness}}) {
        const std::string text = args.Value(option);
        if (!text.empty() && !Number(text, target))
            return Usage(std::string(option) + " takes a number");
    }
    params.outDir = args.Value("-o");
    if (params.outDir.empty())
        return Usage("-o DIR is required");
    if (args.files.size() < 2)
        return Usage("at least two input files are needed");
    // The list goes through the usable-file check of the combination first: every file of
    // the first usable file's size and colour type.
    CImageFileList usable;
    std::vector<std::string> rejected;
    CheckFiles("COMBINE", kSetEither, args.files, &usable, &rejected);
    for (const std::string& name : rejected)
        std::fprintf(stderr, "not included: %s\n", name.c_str());
    const bool tooFew = usable.size() < 2;
    for (const CImageFileInfo& file : usable)
        params.files.push_back(file.path);
    params.name = args.Value("--name", std::string("Combined_") + method->keyword);
    params.saveType = args.Value("--save-type", "UNCOMPFIT");
    if (params.saveType == "SAMEASINPUT" || !IsKnownSaveType(params.saveType))
        return Usage("unknown save type " + params.saveType);
    std::array<int, 5> percent = kDefaultGradePercent;
    const bool weightsGiven =
        std::any_of(args.options.begin(), args.options.end(),
                    [](const auto& option) { return option.first == "--grade-weights"; });
    if (weightsGiven && !GradePercents(args.Value("--grade-weights"), &percent))
        return Usage("--grade-weights takes five whole numbers 0..100, as 100,75,50,25,0");
    if (method->method == CombineMethod::GradeAvg || method->method == CombineMethod::GradeAvgAuto)
        params.settings.weights = GradeWeights(params.files, {}, percent);

    std::error_code ec;
    std::filesystem::create_directories(params.outDir, ec);
    const bool json = args.Has("--json");
    CliProgress progress(args.Has("--quiet") || json);
    CancelOnInterrupt(&progress);
    CombineFilesOutcome outcome;
    bool ok = false;
    {
        FileOpBusy busy(FileOpKind::Combine);
        if (tooFew) {
            outcome.status = "The image file combine operation requires more than one usable "
                             "image.\nPlease select at least two compatible images.";
            outcome.errors.push_back(outcome.status);
        } else if (!busy.Acquired()) {
            outcome.status = BusyText(FileOpKind::Combine);
            outcome.errors.push_back(outcome.status);
        } else {
            ok = CombineFiles(params, &progress, &outcome);
        }
    }
    progress.Finish();
    CancelOnInterrupt(nullptr);

    if (json) {
        std::string out = "{\"status\":" + JsonString(outcome.status) +
                          ",\"ok\":" + (ok ? "true" : "false") +
                          ",\"method\":" + JsonString(method->keyword) + ",\"outputs\":[";
        if (!outcome.output.empty())
            out += JsonString(outcome.output);
        out += "],\"errors\":[";
        for (std::size_t i = 0; i < outcome.errors.size(); ++i)
            out += (i ? "," : "") + JsonString(outcome.errors[i]);
        out += "]}\n";
        std::fputs(out.c_str(), stdout);
    } else if (ok) {
        std::printf("%s\n%s\n", outcome.status.c_str(), outcome.output.c_str());
    } else {
        PrintFailure(outcome.status, outcome.errors.size() > 1 ? outcome.errors[1] : "");
    }
    return ok ? ExitOk : ExitFailed;
}

} // namespace astrivelle::cli
