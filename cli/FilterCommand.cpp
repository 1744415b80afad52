// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `filter`: replay recorded operator applications on each file and write the results.
#include <cstdio>
#include <filesystem>

#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "engine/Image.h"
#include "engine/ProcessStructure.h"
#include "fileio/FileDispatch.h"
#include "fileio/SaveType.h"
#include "fileio/WriteSafely.h"

namespace astrivelle::cli {

namespace fs = std::filesystem;

namespace {

const char* kFilterHelp =
    "usage: astrivelle-cli filter [--op NAME --params TEXT]... [--prefix P] [--save-type KW]\n"
    "                             -o DIR FILE...\n\n"
    "For each FILE: read it, apply each recorded operator in order (as a history replays it),\n"
    "and write DIR/P + name. A failing operator ends that file with \"Error filtering \" and its\n"
    "name; the other files go on.\n"
    "  --op NAME       operator name, e.g. \"Pixel Math\" (repeatable; each takes the next\n"
    "                  --params)\n"
    "  --params TEXT   its parameter text, e.g. \"Operation: Add#Constant: 100.000#Threshold\n"
    "                  Min: 0#Threshold Max: 65535#Feather Range: 0#\"\n"
    "  --prefix P      output name prefix (default FF_)\n"
    "  --save-type KW  SAMEASINPUT (default), COMPFIT, UNCOMPFIT, COMPFIT32, UNCOMPFIT32,\n"
    "                  TIFF16, UNCOMPTIF\n"
    "  -o DIR          output folder (made when missing)\n"
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

const char* WriteFailureText(std::int32_t kind) {
    switch (kind) {
    case KindTIFF:
        return "Error writing TIFF image to disk.";
    case KindJPEG:
        return "Error writing JPEG image to disk.";
    case KindSBIG:
    case KindSBIGCompressed:
        return "Error writing SBIG image to disk.";
    case KindFITS:
        return "Error writing image to disk.";
    default:
        return "File Type Is Not Defined, \nPossible Corrupt Object Or File.";
    }
}

} // namespace

int RunFilter(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv, {"--op", "--params", "--prefix", "--save-type", "-o"},
                        {"--help", "--quiet"}, &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kFilterHelp, stdout);
        return ExitOk;
    }
    std::vector<CProcessStructure> records;
    if (!BuildRecords(args, &records, &error))
        return Usage(error);
    const std::string outDir = args.Value("-o");
    if (outDir.empty())
        return Usage("-o DIR is required");
    if (args.files.empty())
        return Usage("no input files");
    const std::string prefix = args.Value("--prefix", "FF_");
    const std::string saveType = args.Value("--save-type", "SAMEASINPUT");
    if (!IsKnownSaveType(saveType))
        return Usage("unknown save type " + saveType);

    std::error_code ec;
    fs::create_directories(outDir, ec);
    if (!fs::is_directory(outDir)) {
        PrintFailure("Could not create the output folder " + outDir, ec.message());
        return ExitFailed;
    }

    CliProgress progress(args.Has("--quiet"));
    CancelOnInterrupt(&progress);
    int failures = 0;
    const long total = static_cast<long>(args.files.size());
    for (long n = 0; n < total; ++n) {
        if (progress.Cancelled()) {
            progress.Finish();
            PrintFailure("Thread Canceled");
            CancelOnInterrupt(nullptr);
            return ExitFailed;
        }
        const std::string& path = args.files[n];
        const std::string name = fs::path(path).filename().string();
        progress.SetStatus(name);
        progress.SetProgress(n, total);

        Image img;
        if (!img.ReadFile(path, ExtensionOf(path))) {
            progress.Finish();
            PrintFailure("Error reading " + path, LastFileError());
            ++failures;
            continue;
        }
        bool ok = true;
        for (const CProcessStructure& record : records) {
            std::string why;
            if (!img.ApplyCommand(record, nullptr, nullptr, &progress, &why)) {
                progress.Finish();
                PrintFailure("Error filtering " + name, why);
                ok = false;
                break;
            }
        }
        if (!ok) {
            ++failures;
            continue;
        }
        std::string extension = ApplySaveType(img, saveType, ExtensionOf(path));
        const std::string target =
            (fs::path(outDir) / (prefix + fs::path(path).stem().string() + extension)).string();
        if (!WriteImageSafely(img, target, img.fileType, args.files, &error)) {
            progress.Finish();
            PrintFailure(WriteFailureText(img.fileType), error);
            ++failures;
            continue;
        }
    }
    progress.SetProgress(total, total);
    progress.Finish();
    CancelOnInterrupt(nullptr);
    return failures ? ExitFailed : ExitOk;
}

} // namespace astrivelle::cli
