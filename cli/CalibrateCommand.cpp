// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `calibrate`: apply master dark, flat, flat dark and bias frames to light frames.
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/Json.h"
#include "fileio/SaveType.h"
#include "imagesets/CalibrateFiles.h"

namespace astrivelle::cli {

namespace {

const char* kCalibrateHelp =
    "usage: astrivelle-cli calibrate [--dark F] [--flat F] [--flat-dark F] [--bias F]\n"
    "                                [--dark-factor X] [--overall-factor X] [--auto-dark]\n"
    "                                [--adaptive with|without]\n"
    "                                [--adaptive-level Normal|High|Highest]\n"
    "                                [--color-model MONO|COLOR] [--bayer PATTERN]\n"
    "                                [--prefix P] [--save-type KW] [--json] -o DIR FILE...\n\n"
    "Calibrates each light FILE with the master frames and writes DIR/P + name (P defaults to\n"
    "C_), with the calibration recorded in COMMENT cards. A file that fails is reported and\n"
    "the others go on.\n"
    "  --dark F, --flat F, --flat-dark F, --bias F   the master frames (at least one)\n"
    "  --dark-factor X     dark scale (default 1.0)\n"
    "  --overall-factor X  factor on the result (default 1.0)\n"
    "  --auto-dark         find the dark scale on each frame\n"
    "  --adaptive with     hot pixel reduction after dark subtraction\n"
    "  --adaptive without  hot pixel reduction without dark subtraction\n"
    "  --adaptive-level L  Normal (default), High or Highest\n"
    "  --color-model M     MONO or COLOR (default: that of the first FILE)\n"
    "  --bayer PATTERN     the files are Bayer mosaics with this pattern (e.g. RG,GB)\n"
    "  --save-type KW      SAMEASINPUT (default), COMPFIT, UNCOMPFIT, COMPFIT32, UNCOMPFIT32,\n"
    "                      TIFF16, UNCOMPTIF\n"
    "  --json              print the status, outputs and failures as one JSON object\n"
    "  --quiet             no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli calibrate: %s\n%s", error.c_str(), kCalibrateHelp);
    return ExitUsage;
}

bool ParseNumber(const std::string& text, double* value) {
    char* end = nullptr;
    *value = std::strtod(text.c_str(), &end);
    return !text.empty() && end && *end == '\0';
}

} // namespace

int RunCalibrate(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv,
                        {"--dark", "--flat", "--flat-dark", "--bias", "--dark-factor",
                         "--overall-factor", "--adaptive", "--adaptive-level", "--color-model",
                         "--bayer", "--prefix", "--save-type", "-o"},
                        {"--help", "--quiet", "--json", "--auto-dark"}, &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kCalibrateHelp, stdout);
        return ExitOk;
    }
    const std::string outDir = args.Value("-o");
    if (outDir.empty())
        return Usage("-o DIR is required");
    if (args.files.empty())
        return Usage("no input files");
    const std::string saveType = args.Value("--save-type", "SAMEASINPUT");
    if (!IsKnownSaveType(saveType))
        return Usage("unknown save type " + saveType);
    std::string prefix, prefixText;
    if (!CheckPrefix(args.Value("--prefix", kCalibratePrefix), &prefix, &prefixText))
        return Usage(prefixText);

    CalibrationSetup setup;
    setup.colorModel = args.Value("--color-model");
    if (setup.colorModel.empty()) {
        CImageFileList first;
        std::vector<std::string> rejected;
        CheckFiles("BINTFILES", kSetEither, {args.files.front()}, &first, &rejected);
        setup.colorModel = !first.empty() && first.front().isColor ? "COLOR" : "MONO";
    }
    if (setup.colorModel != "MONO" && setup.colorModel != "COLOR")
        return Usage("--color-model must be MONO or COLOR");
    if (!args.Value("--bayer").empty()) {
        if (setup.colorModel != "MONO")
            return Usage("--bayer needs monochrome (mosaic) files");
        setup.bayerData = true;
        setup.cfaPattern = args.Value("--bayer");
        setup.frameType = setup.cfaPattern;
    }
    struct Choice {
        const char* option;
        SystemFrame frame;
    };
    bool anyFrame = false;
    for (const Choice& c :
         {Choice{"--flat", SystemFrame::Flat}, Choice{"--flat-dark", SystemFrame::FlatDark},
          Choice{"--dark", SystemFrame::Dark}, Choice{"--bias", SystemFrame::Bias}}) {
        const std::string path = args.Value(c.option);
        if (path.empty())
            continue;
        anyFrame = true;
        std::string text;
        if (!SelectFrameFromDisk(setup, c.frame, path, &text)) {
            PrintFailure(text);
            return ExitFailed;
        }
    }
    if (!anyFrame)
        return Usage("give at least one of --dark, --flat, --flat-dark, --bias");
    double value = 0;
    if (!args.Value("--dark-factor").empty()) {
        if (!ParseNumber(args.Value("--dark-factor"), &value))
            return Usage("--dark-factor takes a number");
        setup.darkFactor = value;
    }
    if (!args.Value("--overall-factor").empty()) {
        if (!ParseNumber(args.Value("--overall-factor"), &value))
            return Usage("--overall-factor takes a number");
        setup.overallFactor = value;
    }
    const std::string adaptive = args.Value("--adaptive");
    if (adaptive == "with")
        setup.SetAdaptiveWithDark(true);
    else if (adaptive == "without")
        setup.SetAdaptiveWithoutDark(true);
    else if (!adaptive.empty())
        return Usage("--adaptive takes with or without");
    if (args.Has("--auto-dark")) {
        if (setup.adaptiveWithoutDark)
            return Usage("--auto-dark can't be combined with --adaptive without");
        setup.SetAutoDarkMatch(true);
    }
    const std::string level = args.Value("--adaptive-level", "Normal");
    if (level != "Normal" && level != "High" && level != "Highest")
        return Usage("--adaptive-level takes Normal, High or Highest");
    setup.adaptiveLevel = level;

    CalibrateRequest request;
    request.ownerName = kCalibrateOwnerPipeline; // the command line names its save type
    request.outputDirectory = outDir;
    request.prefix = prefix;
    request.setup = setup;
    request.saveType = saveType;
    request.files = args.files;
    CliNotify notify;
    std::string text;
    std::vector<std::string> usable;
    if (!CheckCalibrateFiles(request, notify, &usable, &text)) {
        PrintFailure(text);
        return ExitFailed;
    }
    request.files = usable;

    const bool json = args.Has("--json");
    CliProgress progress(args.Has("--quiet") || json);
    CancelOnInterrupt(&progress);
    const CalibrateResult result = CalibrateFiles(request, &progress, json ? nullptr : &notify);
    progress.Finish();
    CancelOnInterrupt(nullptr);

    if (json) {
        std::string out = "{\"status\":" + JsonString(result.run.status) +
                          ",\"ok\":" + (result.run.Ok() ? "true" : "false") + ",\"outputs\":[";
        for (std::size_t i = 0; i < result.run.outputs.size(); ++i)
            out += (i ? "," : "") + JsonString(result.run.outputs[i]);
        out += "],\"darkFactors\":[";
        for (std::size_t i = 0; i < result.factors.size(); ++i) {
            out += i ? ",[" : "[";
            for (std::size_t k = 0; k < result.factors[i].size(); ++k)
                out += (k ? "," : "") + JsonNumber(result.factors[i][k]);
            out += "]";
        }
        out += "],\"failures\":[";
        for (std::size_t i = 0; i < result.run.failures.size(); ++i) {
            const FileOpFailure& f = result.run.failures[i];
            out += std::string(i ? "," : "") + "{\"file\":" + JsonString(f.path) +
                   ",\"text\":" + JsonString(f.text) + ",\"detail\":" + JsonString(f.detail) + "}";
        }
        out += "]}\n";
        std::fputs(out.c_str(), stdout);
    } else {
        std::printf("%s\n", result.run.status.c_str());
        for (const std::string& o : result.run.outputs)
            std::printf("%s\n", o.c_str());
    }
    return result.run.Ok() ? ExitOk : ExitFailed;
}

} // namespace astrivelle::cli
