// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `gain`: a camera's gain and read noise from two flat and two bias frames.
#include <cstdio>
#include <cstdlib>

#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/Json.h"
#include "imagesets/ReadNoiseGain.h"

namespace astrivelle::cli {

namespace {

const char* kGainHelp =
    "usage: astrivelle-cli gain --flat1 F --flat2 F --bias1 F --bias2 F\n"
    "                           --type CCD|OSCCCD|DSLR --adc 8|10|12|14|16 [--pedestal N]\n"
    "                           [--pattern KW] [--json]\n\n"
    "Measures gain (e/ADU) and read noise (e/Pixel) by the photon transfer method: one row\n"
    "\"Luminance\" for CCD, \"Red\", \"Green\", \"Blue\" for a Bayer mosaic (OSCCCD, DSLR).\n"
    "  --flat1/--flat2/--bias1/--bias2 F   four different frames\n"
    "  --type T     CCD (mono), OSCCCD or DSLR (a mosaic split by --pattern)\n"
    "  --adc B      bits of the A/D converter\n"
    "  --pedestal N used when above 0 (default 0)\n"
    "  --pattern KW CFA pattern of a mosaic (default RG,GB)\n"
    "  --json       the results as one JSON object\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli gain: %s\n%s", error.c_str(), kGainHelp);
    return ExitUsage;
}

} // namespace

int RunGain(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv,
                        {"--flat1", "--flat2", "--bias1", "--bias2", "--type", "--adc",
                         "--pedestal", "--pattern"},
                        {"--help", "--json", "--quiet"}, &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kGainHelp, stdout);
        return ExitOk;
    }
    if (!args.files.empty())
        return Usage("unexpected argument " + args.files.front());
    ReadNoiseGainRequest request;
    request.flat1 = args.Value("--flat1");
    request.flat2 = args.Value("--flat2");
    request.bias1 = args.Value("--bias1");
    request.bias2 = args.Value("--bias2");
    if (request.flat1.empty() || request.flat2.empty() || request.bias1.empty() ||
        request.bias2.empty())
        return Usage("--flat1, --flat2, --bias1 and --bias2 are required");
    request.frameType = args.Value("--type");
    if (request.frameType != "CCD" && request.frameType != "OSCCCD" && request.frameType != "DSLR")
        return Usage("--type must be CCD, OSCCCD or DSLR");
    const std::string adc = args.Value("--adc");
    char* end = nullptr;
    request.adcBits = static_cast<int>(std::strtol(adc.c_str(), &end, 10));
    if (adc.empty() || *end != '\0' || CountFactorOfAdc(request.adcBits) == 0)
        return Usage("--adc must be 8, 10, 12, 14 or 16");
    const std::string pedestal = args.Value("--pedestal", "0");
    request.pedestal = static_cast<int>(std::strtol(pedestal.c_str(), &end, 10));
    if (*end != '\0')
        return Usage("--pedestal takes a whole number");
    request.cfaPattern = args.Value("--pattern", "RG,GB");

    std::string text;
    if (!CheckDistinctFrames(request, &text)) {
        PrintFailure(text);
        return ExitFailed;
    }
    const bool json = args.Has("--json");
    CliProgress progress(args.Has("--quiet") || json);
    CancelOnInterrupt(&progress);
    const ReadNoiseGainResult result = ComputeReadNoiseGain(request, &progress);
    progress.Finish();
    CancelOnInterrupt(nullptr);

    if (json) {
        std::string out = "{\"status\":" + JsonString(result.status) +
                          ",\"ok\":" + (result.ok ? "true" : "false") + ",\"rows\":[";
        for (std::size_t i = 0; i < result.rows.size(); ++i) {
            const GainRow& r = result.rows[i];
            out += std::string(i ? "," : "") + "{\"name\":" + JsonString(r.name) +
                   ",\"gain\":" + JsonNumber(r.gain) + ",\"readNoise\":" + JsonNumber(r.readNoise) +
                   "}";
        }
        out += "]}\n";
        std::fputs(out.c_str(), stdout);
    } else if (result.ok) {
        std::printf("%-10s %14s %22s\n", "", "Gain (e/ADU)", "Read Noise (e/Pixel)");
        for (const GainRow& r : result.rows)
            std::printf("%-10s %14s %22s\n", r.name.c_str(), FormatGainValue(r.gain).c_str(),
                        FormatGainValue(r.readNoise).c_str());
    }
    if (!result.ok) {
        if (!json)
            PrintFailure(result.status);
        return ExitFailed;
    }
    return ExitOk;
}

} // namespace astrivelle::cli
