// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `auto`: the automatic image set process from the command line: masters, calibration,
/// colour conversion, filters, normalization, grading, alignment and the final stack.
#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "cli/BatchOutput.h"
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/Json.h"
#include "fileio/FileDispatch.h"
#include "fileio/SaveType.h"
#include "imagesets/CombineMethods.h"
#include "imagesets/FileSetProcess.h"

namespace astrivelle::cli {

namespace {

namespace fs = std::filesystem;

const char* kAutoHelp =
    "usage: astrivelle-cli auto --lights FILES|DIR [--darks FILES|DIR] [--flats FILES|DIR]\n"
    "                           [--flat-darks FILES|DIR] [--bias FILES|DIR]\n"
    "                           --type DSLR|OSCCCD|CCD [--color KW] [--pattern KW]\n"
    "                           [--filters] [--normalize MODE] [--grade MODE]\n"
    "                           [--align none|quick|autostar] [--meridian-flip] [--mirror-flip]\n"
    "                           [--wide-range] [--small-stars] [--combine METHOD]\n"
    "                           [--clip-factor F] [--save-type KW] [--json] -o DIR\n\n"
    "Runs the automatic image set process: each master (dark, flat, flat dark, bias) is\n"
    "combined (a list of one file is the master itself) and set in the calibration setup,\n"
    "then the light frames are calibrated, colour converted, filtered, normalized, graded,\n"
    "aligned and combined, each step taking the previous step's outputs. Prints each step's\n"
    "state and the summary.\n"
    "  --lights, --darks, --flats, --flat-darks, --bias  the frames: files, comma separated\n"
    "                    lists or folders (every image file in it); repeatable\n"
    "  --type T          DSLR (camera raw or converted files), OSCCCD (one-shot colour\n"
    "                    camera, Bayer data), CCD (monochrome)\n"
    "  --color KW        COLOR, CFA (default), WBCFA, BASICBAYER, MONO (DSLR, OSCCCD)\n"
    "  --pattern KW      the Bayer array code (default RG,GB)\n"
    "  --bayer-output KW RGB (default), RED, GREEN, BLUE\n"
    "  --filters         extra filters: Reduce High, Low, Bloom Pixel\n"
    "  --aggressiveness  Normal (default), Aggressive, Very Aggressive\n"
    "  --smoothing       extra filters: also the 3 x 3 smoothing\n"
    "  --normalize MODE  NONE (default), MAX, AVG, MIN, USER (see --background, --deviation)\n"
    "  --normalize-flats normalize the flats before they are combined\n"
    "  --grade MODE      NONE (default), MAXECC (--max-ecc E), PERCENTECC (--percent P),\n"
    "                    AUTOECC\n"
    "  --align A         none (default), quick, autostar; with --meridian-flip,\n"
    "                    --mirror-flip, --wide-range, --small-stars\n"
    "  --combine METHOD  the final stack: AVG (default), EXCAVG, MED, MIN, MAX, SIGAVG,\n"
    "                    SIGMED, ADPADD, or NONE for no stack\n"
    "  --master-combine M  the masters' method (default MED)\n"
    "  --clip-factor F   the sigma clip factor (default 2.55)\n"
    "  --name NAME       the stack's file name (default Combined)\n"
    "  --save-type KW    intermediate file type (default UNCOMPFIT)\n"
    "  --converted-prefix P  name prefix of the raw conversions (default CVT_)\n"
    "  --minimize-disk   delete each step's outputs when the next step has finished\n"
    "  --json            print the steps, summary and outputs as one JSON object\n"
    "  -o DIR            output folder (made when missing)\n"
    "  --quiet           no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli auto: %s\n%s", error.c_str(), kAutoHelp);
    return ExitUsage;
}

bool IsImageFile(const fs::path& p) {
    return !ImageKindOfExtension(UpperExtension(p.extension().string())).empty() ||
           IsDigitalRawFile(p.string());
}

/// The files of a frame option: each value split at commas, a folder giving its image files
/// in name order.
bool CollectFiles(const Arguments& args, const std::string& option, std::vector<std::string>* files,
                  std::string* error) {
    for (const auto& [key, value] : args.options) {
        if (key != option)
            continue;
        std::size_t at = 0;
        while (at <= value.size()) {
            const std::size_t end = std::min(value.find(',', at), value.size());
            const std::string item = value.substr(at, end - at);
            at = end + 1;
            if (item.empty())
                continue;
            std::error_code ec;
            if (fs::is_directory(item, ec)) {
                std::vector<std::string> found;
                for (const auto& e : fs::directory_iterator(item, ec))
                    if (e.is_regular_file() && IsImageFile(e.path()))
                        found.push_back(e.path().string());
                std::sort(found.begin(), found.end());
                if (found.empty()) {
                    *error = option + ": no image files in " + item;
                    return false;
                }
                files->insert(files->end(), found.begin(), found.end());
            } else if (fs::is_regular_file(item, ec)) {
                files->push_back(item);
            } else {
                *error = option + ": no such file or folder " + item;
                return false;
            }
        }
    }
    return true;
}

std::string Upper(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

} // namespace

int RunAuto(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (std::find(argv.begin(), argv.end(), "--help") != argv.end() ||
        std::find(argv.begin(), argv.end(), "-h") != argv.end()) {
        std::fputs(kAutoHelp, stdout);
        return ExitOk;
    }
    if (!ParseArguments(argv,
                        {"--lights",
                         "--darks",
                         "--flats",
                         "--flat-darks",
                         "--bias",
                         "--type",
                         "--color",
                         "--pattern",
                         "--bayer-output",
                         "--aggressiveness",
                         "--normalize",
                         "--background",
                         "--deviation",
                         "--grade",
                         "--max-ecc",
                         "--percent",
                         "--align",
                         "--combine",
                         "--master-combine",
                         "--clip-factor",
                         "--name",
                         "--save-type",
                         "--converted-prefix",
                         "-o"},
                        {"--filters", "--smoothing", "--normalize-flats", "--meridian-flip",
                         "--mirror-flip", "--wide-range", "--small-stars", "--minimize-disk",
                         "--json", "--quiet"},
                        &args, &error))
        return Usage(error);
    if (!args.files.empty())
        return Usage("unexpected argument " + args.files.front());
    CAutoProcessParams p;
    const std::pair<const char*, FrameKind> lists[] = {{"--lights", FrameKind::Light},
                                                       {"--darks", FrameKind::Dark},
                                                       {"--flats", FrameKind::Flat},
                                                       {"--flat-darks", FrameKind::FlatDark},
                                                       {"--bias", FrameKind::Bias}};
    for (const auto& [option, kind] : lists)
        if (!CollectFiles(args, option, &p.Page(kind).files, &error))
            return Usage(error);
    p.outputDirectory = args.Value("-o");
    if (p.outputDirectory.empty())
        return Usage("-o DIR is required");
    if (!args.Has("--type") && args.Value("--type").empty())
        return Usage("--type DSLR|OSCCCD|CCD is required");
    // Every keyword goes through the record's own parse, which refuses what it does not know.
    std::string record;
    auto put = [&](const char* field, const std::string& value) {
        record += std::string(field) + "=" + value + "\n";
    };
    put("processType", Upper(args.Value("--type")));
    if (!args.Value("--color").empty())
        put("colorType", Upper(args.Value("--color")));
    if (!args.Value("--pattern").empty())
        put("cfaPattern", args.Value("--pattern"));
    if (!args.Value("--bayer-output").empty())
        put("bayerOutput", Upper(args.Value("--bayer-output")));
    p.filters = args.Has("--filters") || args.Has("--smoothing");
    p.filterBadPixels = args.Has("--filters");
    p.filterSmoothing = args.Has("--smoothing");
    if (!args.Value("--aggressiveness").empty())
        put("aggressiveness", args.Value("--aggressiveness"));
    if (!args.Value("--normalize").empty())
        put("normalize", Upper(args.Value("--normalize")));
    if (!args.Value("--background").empty())
        put("normalizeBackground", args.Value("--background"));
    if (!args.Value("--deviation").empty())
        put("normalizeDeviation", args.Value("--deviation"));
    p.normalizeFlats = args.Has("--normalize-flats");
    if (!args.Value("--grade").empty())
        put("grade", Upper(args.Value("--grade")));
    if (!args.Value("--max-ecc").empty())
        put("gradeMaxEccentricity", args.Value("--max-ecc"));
    if (!args.Value("--percent").empty())
        put("gradePercent", args.Value("--percent"));
    if (!args.Value("--align").empty())
        put("align", Upper(args.Value("--align")));
    p.meridianFlip = args.Has("--meridian-flip");
    p.mirrorFlip = args.Has("--mirror-flip");
    p.wideRange = args.Has("--wide-range");
    p.smallStars = args.Has("--small-stars");
    const std::string combine = Upper(args.Value("--combine", "AVG"));
    if (combine == "NONE") {
        p.combine = false;
    } else {
        put("lights.method", combine);
    }
    const std::string masters = Upper(args.Value("--master-combine", "MED"));
    for (const char* key : {"darks.method", "flats.method", "flatDarks.method", "bias.method"})
        put(key, masters);
    if (!args.Value("--clip-factor").empty())
        put("clipFactor", args.Value("--clip-factor"));
    if (!args.Value("--name").empty())
        put("lights.name", args.Value("--name"));
    if (!args.Value("--save-type").empty())
        put("saveType", args.Value("--save-type"));
    p.convertedPrefix = args.Value("--converted-prefix", p.convertedPrefix);
    p.minimizeDisk = args.Has("--minimize-disk");
    if (!ParseAutoProcessParams(record, &p))
        return Usage("an option value is not one of its keywords or numbers (see --help)");
    if (p.clipFactor <= 0)
        return Usage("--clip-factor takes a positive number");
    if (p.processType == "CCD")
        p.colorType = "CFA"; // mono data: no colour step

    const bool json = args.Has("--json");
    CliProgress progress(args.Has("--quiet") || json);
    CancelOnInterrupt(&progress);
    CliNotify cliNotify;
    INotify silent;
    const FileSetRunResult r =
        RunFileSetProcess(p, &progress, json ? &silent : static_cast<INotify*>(&cliNotify));
    CancelOnInterrupt(nullptr);
    progress.Finish();

    if (json) {
        std::string out = "{\"ok\":" + std::string(r.ok ? "true" : "false") +
                          ",\"started\":" + (r.started ? "true" : "false") +
                          ",\"cancelled\":" + (r.cancelled ? "true" : "false") +
                          ",\"status\":" + JsonString(r.status) +
                          ",\"text\":" + JsonString(r.text) + ",\"steps\":[";
        for (std::size_t i = 0; i < r.steps.size(); ++i) {
            const CFileSetOpElement& s = r.steps[i];
            out += (i ? "," : "") + std::string("{\"name\":") + JsonString(s.name) +
                   ",\"detail\":" + JsonString(s.detail) + ",\"state\":" + JsonString(s.state) +
                   ",\"result\":" + JsonString(s.result) + "}";
        }
        out += "],\"masters\":[";
        for (std::size_t i = 0; i < r.masters.size(); ++i)
            out += (i ? "," : "") + JsonString(r.masters[i]);
        out += "],\"combined\":" + JsonString(r.combined) +
               ",\"summary\":" + JsonString(r.summary) + "}\n";
        std::fputs(out.c_str(), stdout);
    } else {
        if (!r.started)
            PrintFailure(r.text);
        for (const CFileSetOpElement& s : r.steps)
            std::printf("%s - %s : %s%s%s\n", s.name.c_str(), s.detail.c_str(),
                        s.state.empty() ? "Not Run" : s.state.c_str(),
                        s.result.empty() ? "" : " - ", s.result.c_str());
        if (!r.summary.empty())
            std::printf("%s\n", r.summary.c_str());
        if (!r.combined.empty())
            std::printf("%s\n", r.combined.c_str());
        std::printf("%s\n", r.status.c_str());
    }
    return r.ok ? ExitOk : ExitFailed;
}

} // namespace astrivelle::cli
