// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `stars`: find the stars of one image and print their measures.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "align/StarMeasure.h"
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/Json.h"
#include "engine/Image.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"

namespace astrivelle::cli {

namespace {

const char* kStarsHelp =
    "usage: astrivelle-cli stars [--fwhm] [--hfd] [--json] FILE\n\n"
    "Finds the stars of FILE (the luminance of a colour image, the one channel of a\n"
    "monochrome image) and prints, per star, the centroid (1-based x y), the edge radii\n"
    "(left right top bottom, then the diagonals top-left top-right bottom-left\n"
    "bottom-right), the widths (x y left-diagonal right-diagonal), the major and minor axes,\n"
    "the eccentricity, peak, background, FWHM and HFD; then the candidate and star counts.\n"
    "  --fwhm   measure the FWHM (with neither --fwhm nor --hfd both are measured)\n"
    "  --hfd    measure the half-flux diameter\n"
    "  --json   one JSON object: file, width, height, candidates, count, stars[]\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli stars: %s\n%s", error.c_str(), kStarsHelp);
    return ExitUsage;
}

std::string Quoted(const std::string& axis) {
    return axis.empty() ? "-" : "\"" + axis + "\"";
}

} // namespace

int RunStars(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv, {}, {"--help", "--json", "--fwhm", "--hfd", "--quiet"}, &args,
                        &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kStarsHelp, stdout);
        return ExitOk;
    }
    if (args.files.size() != 1)
        return Usage("one FILE is needed");
    const std::string path = args.files[0];
    bool wantFwhm = args.Has("--fwhm"), wantHfd = args.Has("--hfd");
    if (!wantFwhm && !wantHfd)
        wantFwhm = wantHfd = true;

    Image image;
    if (!image.ReadFile(path, ExtensionOf(path))) {
        PrintFailure("Error reading " + std::filesystem::path(path).filename().string());
        return ExitFailed;
    }
    std::vector<float> luminance; // the search plane of a colour file
    const float* channel = StarChannel(image, &luminance);
    if (!channel) {
        PrintFailure("Star shape data not available.");
        return ExitFailed;
    }
    CStarShapeList list;
    int candidates = 0, accepted = 0;
    image.FindStars(nullptr, "CStarsCommand", channel, &list, &candidates, &accepted, wantFwhm,
                    wantHfd);

    if (args.Has("--json")) {
        std::string out = "{\"file\":" + JsonString(path) +
                          ",\"width\":" + std::to_string(image.width) +
                          ",\"height\":" + std::to_string(image.height) +
                          ",\"candidates\":" + std::to_string(candidates) +
                          ",\"count\":" + std::to_string(accepted) + ",\"stars\":[";
        for (std::size_t i = 0; i < list.size(); ++i) {
            const CStarShapeStructure& s = list[i];
            const std::pair<const char*, double> numbers[] = {
                {"x", s.x},
                {"y", s.y},
                {"leftRadius", s.leftRadius},
                {"rightRadius", s.rightRadius},
                {"topRadius", s.topRadius},
                {"bottomRadius", s.bottomRadius},
                {"topLeftRadius", s.topLeftRadius},
                {"topRightRadius", s.topRightRadius},
                {"bottomLeftRadius", s.bottomLeftRadius},
                {"bottomRightRadius", s.bottomRightRadius},
                {"widthX", s.widthX},
                {"widthY", s.widthY},
                {"widthLeftDiagonal", s.widthLeftDiagonal},
                {"widthRightDiagonal", s.widthRightDiagonal},
                {"maxRadius", s.maxRadius},
                {"eccentricity", s.eccentricity},
                {"peak", s.peak},
                {"background", s.background},
                {"fwhm", s.fwhm},
                {"hfd", s.hfd}};
            out += i ? ",{" : "{";
            for (const auto& [name, value] : numbers)
                out += "\"" + std::string(name) + "\":" + JsonNumber(value) + ",";
            out += "\"majorAxis\":" + JsonString(s.majorAxis) +
                   ",\"minorAxis\":" + JsonString(s.minorAxis) +
                   ",\"maxRadiusName\":" + JsonString(s.maxRadiusName) + "}";
        }
        out += "]}\n";
        std::fputs(out.c_str(), stdout);
        return ExitOk;
    }
    std::printf("# x y  left right top bottom  top-left top-right bottom-left bottom-right  "
                "width-x width-y width-ld width-rd  major minor  eccentricity peak background "
                "fwhm hfd\n");
    for (const CStarShapeStructure& s : list)
        std::printf("%.3f %.3f  %.3f %.3f %.3f %.3f  %.3f %.3f %.3f %.3f  %.3f %.3f %.3f %.3f  "
                    "%s %s  %.4f %.1f %.1f %.3f %.3f\n",
                    s.x, s.y, s.leftRadius, s.rightRadius, s.topRadius, s.bottomRadius,
                    s.topLeftRadius, s.topRightRadius, s.bottomLeftRadius, s.bottomRightRadius,
                    s.widthX, s.widthY, s.widthLeftDiagonal, s.widthRightDiagonal,
                    Quoted(s.majorAxis).c_str(), Quoted(s.minorAxis).c_str(), s.eccentricity,
                    s.peak, s.background, s.fwhm, s.hfd);
    std::printf("candidates %d\nstars %d\n", candidates, accepted);
    return ExitOk;
}

} // namespace astrivelle::cli
