// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `filter`: replay recorded operator applications on each file and write the results.
#include <cstdio>
#include <filesystem>

#include "cli/BatchOutput.h"
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "engine/Image.h"
#include "engine/ProcessStructure.h"
#include "engine/workbench/Project.h"
#include "fileio/SaveType.h"
#include "imagesets/FilterFiles.h"

namespace astrivelle::cli {

namespace {

const char* kFilterHelp =
    "usage: astrivelle-cli filter [--op NAME --params TEXT]... [--prefix P] [--save-type KW]\n"
    "                             -o DIR FILE...\n"
    "       astrivelle-cli filter --project FILE.qxj [--prefix P] [--save-type KW]\n"
    "                             -o DIR FILE...\n\n"
    "For each FILE: read it, apply each recorded operator in order (as a history replays it),\n"
    "and write DIR/P + name. A failing operator ends that file with \"Error filtering \" and its\n"
    "name; the other files go on.\n"
    "  --op NAME       operator name, e.g. \"Pixel Math\" (repeatable; each takes the next\n"
    "                  --params)\n"
    "  --params TEXT   its parameter text, e.g. \"Operation: Add#Constant: 100.000#Threshold\n"
    "                  Min: 0#Threshold Max: 65535#Feather Range: 0#\"\n"
    "  --project F     the commands of a saved project (all steps after its initial image)\n"
    "                  instead of --op; a colour project takes colour files only, a\n"
    "                  monochrome one monochrome files only, the others fail\n"
    "  --prefix P      output name prefix (default FF_)\n"
    "  --save-type KW  SAMEASINPUT (default), COMPFIT, UNCOMPFIT, COMPFIT32, UNCOMPFIT32,\n"
    "                  TIFF16, UNCOMPTIF\n"
    "  -o DIR          output folder (made when missing)\n"
    "  --json          print the status, outputs and failures as one JSON object\n"
    "  --quiet         no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli filter: %s\n%s", error.c_str(), kFilterHelp);
    return ExitUsage;
}

/// The --op/--params pairs as records, in command-line order.
bool BuildRecords(const Arguments& args, std::vector<CProcessStructure>* records,
                  std::string* error) {
    for (const auto& [key, value] : args.options) {
        if (key == "--op") {
            CProcessStructure r;
            r.operation = value;
            records->push_back(r);
        } else if (key == "--params") {
            if (records->empty()) {
                *error = "--params must follow an --op";
                return false;
            }
            records->back().parameters = value;
        }
    }
    return true;
}

} // namespace

int RunFilter(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv, {"--op", "--params", "--project", "--prefix", "--save-type", "-o"},
                        {"--help", "--quiet", "--json"}, &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kFilterHelp, stdout);
        return ExitOk;
    }
    std::vector<CProcessStructure> records;
    if (!BuildRecords(args, &records, &error))
        return Usage(error);
    const std::string project = args.Value("--project");
    if (!project.empty() && !records.empty())
        return Usage("--project and --op can't be combined");
    const std::string outDir = args.Value("-o");
    if (outDir.empty())
        return Usage("-o DIR is required");
    if (args.files.empty())
        return Usage("no input files");
    const std::string prefix = args.Value("--prefix", "FF_");
    const std::string saveType = args.Value("--save-type", "SAMEASINPUT");
    if (!IsKnownSaveType(saveType))
        return Usage("unknown save type " + saveType);
    // A project's commands come with the colour model they were made on.
    std::string colorModel;
    if (!project.empty() && !ReadProjectCommands(project, &records, &colorModel, &error)) {
        PrintFailure(error);
        return ExitFailed;
    }

    FilterFilesRequest request;
    request.files = args.files;
    request.outputDirectory = outDir;
    request.prefix = prefix;
    request.saveType = saveType;
    request.records = records;
    request.colorModel = colorModel;
    return RunAndPrint(args, [&](IProgress* progress, INotify* notify) {
        return FilterFiles(request, progress, notify);
    });
}

} // namespace astrivelle::cli
