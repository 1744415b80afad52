// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `align`: bring a set of images onto a reference image (Auto Star: descriptor matching
/// or Quick Alignment).
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "cli/BatchOutput.h"
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "imagesets/AlignPointFiles.h"
#include "imagesets/AlignStarFiles.h"
#include "imagesets/AutoAlignPlanetFiles.h"

namespace astrivelle::cli {

namespace {

const char* kAlignHelp =
    "usage: astrivelle-cli align --method autostar|quick|tsr|planet [--reference FILE]\n"
    "                            [--meridian-flip] [--mirror-flip] [--wide-range]\n"
    "                            [--small-stars] [--points \"x,y;...\"] [--save-type KW]\n"
    "                            [--json] -o DIR FILE...\n\n"
    "Aligns every file onto the reference and writes DIR/ASA_ + name; the reference is\n"
    "written first, unchanged.\n"
    "  --method M        autostar: stars described by their distances, matched at full size,\n"
    "                    up to four corner stars; quick: Quick Alignment, star pairs voted on\n"
    "                    images scaled to about 700 pixels wide (copes with flips);\n"
    "                    tsr, planet: point correlation and planet centring\n"
    "  --reference FILE  the reference image (default: the first file)\n"
    "  --meridian-flip   quick: also try each image turned by 180 degrees\n"
    "  --mirror-flip     quick: also try each image mirrored (both ways)\n"
    "  --wide-range      quick: bring each image to the set's brightness before the search\n"
    "  --small-stars     Short F.L. - Small Stars: quick searches at 1100 pixels wide;\n"
    "                    autostar aligns on three corner stars (else on two)\n"
    "  --points LIST     tsr: the alignment points on the reference, \"x,y;x,y;...\": red,\n"
    "                    blue, then the scale points (1 point: 1PT, 2: SRPT, 3 or more: 12PT);\n"
    "                    outputs are DIR/Tn_, Rt_, TnRt_ or TnScRt_ + name\n"
    "  --tsr-type T      tsr: 1PT, 2PT, SRPT or 12PT in place of the count's choice\n"
    "  --radius N        tsr: correlation radius (default 30; reduced to fit a point)\n"
    "  --minimum PCT     tsr: minimum acceptable correlation in percent (default 70)\n"
    "  --mosaic          tsr: one frame large enough for every image\n"
    "  --no-correlate    tsr: align on the points as given, without following them\n"
    "  --transforms FILE autostar, quick: write \"N m00 m01 m02 m10 m11 m12\" per aligned\n"
    "                    file (N its place in the list): the map from its 0-based pixel\n"
    "                    coordinates to the reference's\n"
    "  --save-type KW    SAMEASINPUT (default), COMPFIT, UNCOMPFIT, COMPFIT32, UNCOMPFIT32,\n"
    "                    TIFF16, UNCOMPTIF\n"
    "  --json            print the status, outputs and failures as one JSON object\n"
    "  -o DIR            output folder (made when missing)\n"
    "  --quiet           no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli align: %s\n%s", error.c_str(), kAlignHelp);
    return ExitUsage;
}

/// Answers the radius question with OK: a radius too large for a point is reduced.
class TsrNotify : public INotify {
public:
    explicit TsrNotify(INotify* inner) : inner_(inner) {}
    void Message(const std::string& text, const std::string& title) override {
        if (inner_)
            inner_->Message(text, title);
    }
    Answer Ask(const std::string& text, bool) override {
        Message(text, {});
        return Answer::Yes;
    }

private:
    INotify* inner_;
};

int RunAlignTsr(const Arguments& args) {
    AlignPointRequest request;
    request.outputDirectory = args.Value("-o");
    if (request.outputDirectory.empty())
        return Usage("-o DIR is required");
    if (args.files.empty())
        return Usage("no input files");
    request.saveType = args.Value("--save-type", "SAMEASINPUT");
    if (!IsKnownSaveType(request.saveType))
        return Usage("unknown save type " + request.saveType);
    // The points: "x,y;x,y;..." on the reference.
    std::vector<AlignPoint> points;
    const std::string list = args.Value("--points");
    std::size_t at = 0;
    while (at < list.size()) {
        const std::size_t end = std::min(list.find(';', at), list.size());
        const std::string pair = list.substr(at, end - at);
        at = end + 1;
        if (pair.find_first_not_of(' ') == std::string::npos)
            continue;
        double x = 0, y = 0;
        char tail = 0;
        if (std::sscanf(pair.c_str(), " %lf , %lf %c", &x, &y, &tail) != 2 || x < 0 || y < 0)
            return Usage("--points takes \"x,y;x,y;...\"");
        points.push_back({x, y, 1});
    }
    if (points.empty() || points.size() > 10)
        return Usage("--points takes 1 to 10 points for --method tsr");
    request.type = points.size() == 1   ? AlignPointType::Translate
                   : points.size() == 2 ? AlignPointType::TranslateRotate
                                        : AlignPointType::TranslateScaleRotate;
    const std::string type = args.Value("--tsr-type");
    if (!type.empty() && !AlignPointTypeFromKeyword(type, &request.type))
        return Usage("--tsr-type takes 1PT, 2PT, SRPT or 12PT");
    char* stop = nullptr;
    const std::string radius = args.Value("--radius", "30");
    request.translationRadius = static_cast<int>(std::strtol(radius.c_str(), &stop, 10));
    if (*stop || request.translationRadius < 1)
        return Usage("--radius takes a positive whole number");
    request.rotationRadius = request.translationRadius;
    const std::string minimum = args.Value("--minimum", "70");
    request.minimum = std::strtod(minimum.c_str(), &stop) / 100.0;
    if (*stop || request.minimum < 0 || request.minimum > 1)
        return Usage("--minimum takes a percentage 0..100");
    request.mosaic = args.Has("--mosaic");
    request.correlate = !args.Has("--no-correlate");
    const std::string reference = args.Value("--reference", args.files.front());
    bool listed = false;
    for (const auto& f : args.files)
        listed = listed || f == reference;
    std::vector<std::string> paths = args.files;
    if (!listed)
        paths.insert(paths.begin(), reference);
    for (const auto& f : paths) {
        CImageFileInfo info;
        info.path = f;
        info.isReference = f == reference ? 1 : 0;
        info.listIndex = static_cast<std::int32_t>(request.files.size());
        // Without correlation every image is aligned on the same points as given.
        if (info.isReference || !request.correlate)
            for (std::size_t k = 0; k < points.size(); ++k)
                info.points[k] = points[k];
        request.files.push_back(info);
    }
    return RunAndPrint(args, [&](IProgress* progress, INotify* notify) {
        TsrNotify answering(notify);
        return AlignPointFiles(request, progress, &answering).run;
    });
}

/// "N m00 m01 m02 m10 m11 m12" per aligned file, N its place in `files`: the map from its
/// 0-based pixel coordinates to the reference's (the reference itself the identity).
bool WriteTransforms(const std::string& path, const std::vector<std::string>& files,
                     const std::string& reference, const AlignStarResult& result) {
    std::FILE* out = std::fopen(path.c_str(), "w");
    if (!out)
        return false;
    for (std::size_t n = 0; n < files.size(); ++n) {
        std::array<double, 6> m{1, 0, 0, 0, 1, 0};
        bool known = files[n] == reference;
        for (const AlignStarFrame& f : result.frames) {
            if (f.input != files[n] || known)
                continue;
            // The flip needs the current image's size, which its header says.
            CImageFileList size(1);
            std::vector<std::string> rejected;
            if (f.flip != "N" &&
                !CheckFiles("FILTERFILES", kSetEither, {f.input}, &size, &rejected))
                continue;
            known = AlignStarFrameMap(f, size[0].width, size[0].height, &m);
        }
        if (known)
            std::fprintf(out, "%zu %.9g %.9g %.9g %.9g %.9g %.9g\n", n, m[0], m[1], m[2], m[3],
                         m[4], m[5]);
    }
    return std::fclose(out) == 0;
}

} // namespace

int RunAlign(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv,
                        {"--method", "--reference", "--points", "--save-type", "-o", "--radius",
                         "--minimum", "--tsr-type", "--transforms"},
                        {"--help", "--quiet", "--json", "--meridian-flip", "--mirror-flip",
                         "--wide-range", "--small-stars", "--mosaic", "--no-correlate"},
                        &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kAlignHelp, stdout);
        return ExitOk;
    }
    const std::string method = args.Value("--method");
    if (method.empty())
        return Usage("--method is required");
    if (method == "tsr")
        return RunAlignTsr(args);
    if (method == "planet") {
        // The first file's disk is the target; outputs keep the type read ("AN_" + name).
        AutoAlignPlanetRequest request;
        request.files = args.files;
        request.outputDirectory = args.Value("-o");
        if (request.outputDirectory.empty())
            return Usage("-o DIR is required");
        if (args.files.empty())
            return Usage("no input files");
        return RunAndPrint(args, [&](IProgress* progress, INotify* notify) {
            return AutoAlignPlanetFiles(request, progress, notify).run;
        });
    }
    if (method != "autostar" && method != "quick")
        return Usage("--method takes autostar, quick, tsr or planet");
    if (!args.Value("--points").empty())
        return Usage("--points is for --method tsr");
    AutoStarParams params;
    // The command line names its save type, as the automatic process does.
    params.ownerName = kAlignStarOwnerPipeline;
    params.outputDirectory = args.Value("-o");
    if (params.outputDirectory.empty())
        return Usage("-o DIR is required");
    if (args.files.empty())
        return Usage("no input files");
    params.saveType = args.Value("--save-type", "SAMEASINPUT");
    if (!IsKnownSaveType(params.saveType))
        return Usage("unknown save type " + params.saveType);
    params.referencePath = args.Value("--reference", args.files.front());
    bool referenceListed = false;
    for (const auto& f : args.files)
        referenceListed = referenceListed || f == params.referencePath;
    if (!referenceListed) {
        CImageFileInfo info;
        info.path = params.referencePath;
        info.isReference = 1;
        params.files.push_back(info);
    }
    for (const auto& f : args.files) {
        CImageFileInfo info;
        info.path = f;
        info.isReference = f == params.referencePath ? 1 : 0;
        params.files.push_back(info);
    }
    params.quickAlignment = method == "quick";
    params.meridianFlip = args.Has("--meridian-flip");
    params.mirrorFlip = args.Has("--mirror-flip");
    params.wideBrightnessRange = args.Has("--wide-range");
    params.shortFLSmallStars = args.Has("--small-stars");
    const std::string transforms = args.Value("--transforms");
    AlignStarResult result;
    const int status = RunAndPrint(args, [&](IProgress* progress, INotify* notify) {
        result = AlignStarFiles(params, progress, notify);
        return result.run;
    });
    if (!transforms.empty() &&
        !WriteTransforms(transforms, args.files, params.referencePath, result)) {
        PrintFailure("Could not write " + transforms);
        return ExitFailed;
    }
    return status;
}

} // namespace astrivelle::cli
