// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `grade`: rate a set of images by edge sharpness or star shape and copy the chosen
/// ones under names that carry their grade.
#include <cstdio>
#include <sstream>

#include "cli/BatchOutput.h"
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/Json.h"
#include "imagesets/GradeFiles.h"

namespace astrivelle::cli {

namespace {

const char* kGradeHelp =
    "usage: astrivelle-cli grade --by sharpness|shape [--mode MAXECC|AUTOECC|PERCENTECC]\n"
    "                            [--limit X] [--grades A,B,C,D] [--use ABCDF]\n"
    "                            [--focus average|red|green|blue] [--report FILE]\n"
    "                            [--json] -o DIR FILE...\n\n"
    "Rates every file and copies the chosen ones to DIR: by edge sharpness as\n"
    "AG<grade>_<Average|Red|Green|Blue><score>_name, by star shape as\n"
    "ASG_ECC<eccentricity>Size<size>_name. Prints the final status, the summary lines and the\n"
    "copies.\n"
    "  --by B          sharpness (default) or shape\n"
    "  --mode M        shape: MAXECC (eccentricity at most --limit, default 0.5), AUTOECC\n"
    "                  (E + S within one deviation of the set's), PERCENTECC (the best --limit\n"
    "                  percent, 5..95)\n"
    "  --limit X       the MAXECC limit or the PERCENTECC percentage\n"
    "  --grades A,B,C,D  sharpness: the lower limits of grades A..D in percent (90,80,70,60)\n"
    "  --use LETTERS   sharpness: the grades whose files are copied (default ABCDF)\n"
    "  --focus C       sharpness: the channel that scores and names (default average)\n"
    "  --report FILE   write the grade report there\n"
    "  --json          one JSON object: status, ok, summary, detail, outputs, failures\n"
    "  -o DIR          output folder (made when missing)\n"
    "  --quiet         no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli grade: %s\n%s", error.c_str(), kGradeHelp);
    return ExitUsage;
}

} // namespace

int RunGrade(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(
            argv, {"--by", "--mode", "--limit", "--grades", "--use", "--focus", "--report", "-o"},
            {"--help", "--quiet", "--json"}, &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kGradeHelp, stdout);
        return ExitOk;
    }
    GradeRequest request;
    request.ownerName = kGradeOwnerPipeline;
    const std::string by = args.Value("--by", "sharpness");
    if (by == "sharpness")
        request.method = GradeMethod::Sharpness;
    else if (by == "shape")
        request.method = GradeMethod::StarShape;
    else
        return Usage("--by takes sharpness or shape");
    request.mode = args.Value("--mode", kGradeMaxEcc);
    if (request.mode != kGradeMaxEcc && request.mode != kGradeAutoEcc &&
        request.mode != kGradePercentEcc)
        return Usage("--mode takes MAXECC, AUTOECC or PERCENTECC");
    const std::string limit = args.Value("--limit");
    if (!limit.empty() && !ParseNumber(limit, &request.limit))
        return Usage("--limit takes a number");
    if (limit.empty() && request.mode == kGradePercentEcc)
        request.limit = 50;
    const std::string grades = args.Value("--grades");
    if (!grades.empty()) {
        std::stringstream in(grades);
        std::string part;
        int n = 0;
        while (std::getline(in, part, ',')) {
            if (n >= 4 || !ParseNumber(part, &request.intervals[n]))
                return Usage("--grades takes four numbers A,B,C,D");
            ++n;
        }
        if (n != 4)
            return Usage("--grades takes four numbers A,B,C,D");
    }
    if (!args.Value("--use").empty()) {
        request.useGrades = {false, false, false, false, false};
        for (char c : args.Value("--use")) {
            const auto at = std::string("ABCDF").find(c);
            if (at == std::string::npos)
                return Usage("--use takes letters of ABCDF");
            request.useGrades[at] = true;
        }
    }
    const std::string focus = args.Value("--focus", "average");
    if (focus == "average")
        request.focus = FocusChannel::Average;
    else if (focus == "red")
        request.focus = FocusChannel::Red;
    else if (focus == "green")
        request.focus = FocusChannel::Green;
    else if (focus == "blue")
        request.focus = FocusChannel::Blue;
    else
        return Usage("--focus takes average, red, green or blue");
    request.reportPath = args.Value("--report");
    request.outputDirectory = args.Value("-o");
    if (request.outputDirectory.empty())
        return Usage("-o DIR is required");
    if (args.files.empty())
        return Usage("no input files");
    request.files = args.files;

    const bool json = args.Has("--json");
    CliNotify notify;
    CliProgress progress(args.Has("--quiet") || json);
    CancelOnInterrupt(&progress);
    const GradeResult result = GradeFiles(request, &progress, json ? nullptr : &notify);
    progress.Finish();
    CancelOnInterrupt(nullptr);
    const FileOpResult& run = result.run;
    if (json) {
        std::string out = "{\"status\":" + JsonString(run.status) +
                          ",\"ok\":" + (run.Ok() ? "true" : "false") + ",\"summary\":[";
        for (std::size_t i = 0; i < result.summary.size(); ++i)
            out += (i ? "," : "") + JsonString(result.summary[i]);
        out += "],\"detail\":" + JsonString(result.detail) + ",\"outputs\":[";
        for (std::size_t i = 0; i < run.outputs.size(); ++i)
            out += (i ? "," : "") + JsonString(run.outputs[i]);
        out += "],\"failures\":[";
        for (std::size_t i = 0; i < run.failures.size(); ++i) {
            const FileOpFailure& f = run.failures[i];
            out += std::string(i ? "," : "") + "{\"file\":" + JsonString(f.path) +
                   ",\"text\":" + JsonString(f.text) + ",\"detail\":" + JsonString(f.detail) + "}";
        }
        out += "]}\n";
        std::fputs(out.c_str(), stdout);
        return run.Ok() ? ExitOk : ExitFailed;
    }
    std::printf("%s\n", run.status.c_str());
    for (const std::string& line : result.summary)
        std::printf("%s\n", line.c_str());
    if (!result.detail.empty())
        std::printf("%s\n", result.detail.c_str());
    for (const std::string& o : run.outputs)
        std::printf("%s\n", o.c_str());
    return run.Ok() ? ExitOk : ExitFailed;
}

} // namespace astrivelle::cli
