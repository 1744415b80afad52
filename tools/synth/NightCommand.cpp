// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The night and measure subcommands of astrivelle-synth.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "tools/synth/Commands.h"
#include "tools/synth/Json.h"
#include "tools/synth/Measure.h"
#include "tools/synth/NightModel.h"
#include "tools/synth/Options.h"

namespace astrivelle::synth {

namespace {

const char* kNightHelp =
    "usage: astrivelle-synth night --out DIR [options]\n\n"
    "Writes DIR/lights, DIR/darks, DIR/flats, DIR/flatdarks, DIR/bias and DIR/truth.json.\n\n"
    "  --seed N           random seed (default 1)\n"
    "  --frames N         light frames (default 8)\n"
    "  --size WxH         frame size (default 1500x1000)\n"
    "  --bayer KW         colour filter mosaic: RG,GB GR,BG GB,RG BG,GR RGr,GbB GrR,BGb\n"
    "                     GbB,RGr BGb,GrR CYGM,CYMG YCMG,YCGM GMCY,MGCY MGYC,GMYC\n"
    "                     CYMG,CYGM YCGM,YCMG MGCY,GMCY GMYC,MGYC (default MONO)\n"
    "  --no-motion        every frame in the position of frame 0 (flips still apply)\n"
    "  --darks N --flats N --flat-darks N --bias N   calibration frames (default 4 each)\n"
    "  --format F         fits16, fits32, tiff16 or dng (raw DNG lights, FITS calibration\n"
    "                     frames; needs a 2x2 --bayer) (default fits16)\n"
    "  --compress         Rice-compressed FITS\n"
    "  --meridian-flip    the middle frame turned by 180 degrees\n"
    "  --mirror           one frame mirrored left to right\n"
    "  --trail            a satellite trail across frame 1\n"
    "  --exposure S       light and dark exposure in seconds (default 60)\n"
    "  --flat-exposure S  flat and flat dark exposure (default 2)\n"
    "  --flat-level ADU   flat field level where vignetting is 1 (default 25000)\n"
    "  --stars N          number of field stars (default about 2000 per 1500x1000)\n"
    "  --sky ADU          sky level of frame 0 (default 800 per minute of exposure)\n"
    "  --noiseless        no photon, read or dark noise (fixed patterns stay)\n"
    "  --quiet            no progress on stderr\n";

const char* kMeasureHelp =
    "usage: astrivelle-synth measure --truth DIR/truth.json --image FILE [options]\n\n"
    "  --frame N              the image is in the pixel coordinates of light frame N (default 0)\n"
    "  --reference FILE       a single calibrated frame, for snrGain\n"
    "  --reference-frame N    its light frame (default 0)\n"
    "  --stars FILE           detected stars, one \"x y\" per line (0-based, '#' comments)\n"
    "  --transform M          estimated map from frame N pixels to frame 0 pixels:\n"
    "                         \"m00,m01,m02,m10,m11,m12\"\n"
    "  --inset N              the image lacks an N-pixel border of the frame (a colour\n"
    "                         interpolation drops 1); the border repeats the edge pixels\n"
    "  --reference-inset N    the same for the reference (default: the image's)\n"
    "  --json                 one JSON object instead of text\n\n"
    "noise: sigma-clipped MAD x 1.4826 of the star-free pixels after a 64-pixel background\n"
    "  mesh is removed. snrGain: (S/noise) of the image over (S/noise) of the reference, S the\n"
    "  summed background-subtracted aperture flux of up to 200 bright unsaturated isolated\n"
    "  truth stars in both. fwhm: median FWHM of pixel-integrated Moffat fits to up to 40\n"
    "  bright unsaturated isolated truth stars. completeness: share of truth stars with a\n"
    "  single-frame SNR above 20 matched by a listed star within 1.5 px; positionError: RMS\n"
    "  distance of the matches. cornerError: largest distance at the four corners between\n"
    "  the given map and the true one.\n";

/// Reads an image file into one plane (the mean of the planes of a colour image); it must
/// have the truth's size.
bool ReadMonoPlane(const std::string& path, const Truth& truth, int inset,
                   std::vector<float>* plane, std::string* error) {
    Image img;
    if (!img.ReadFile(path, std::filesystem::path(path).extension().string())) {
        *error = "cannot read " + path + ": " + LastFileError();
        return false;
    }
    const int w = truth.width, h = truth.height;
    const int iw = w - 2 * inset, ih = h - 2 * inset;
    if (static_cast<int>(img.width) != iw || static_cast<int>(img.height) != ih) {
        *error = path + " is " + std::to_string(img.width) + "x" + std::to_string(img.height) +
                 " but the night's frames are " + std::to_string(w) + "x" + std::to_string(h) +
                 (inset ? " less a border of " + std::to_string(inset) : std::string());
        return false;
    }
    // The missing border repeats the nearest pixel of the image.
    const std::vector<int> slots = img.Slots();
    plane->assign(static_cast<std::size_t>(w) * h, 0.0f);
    for (int y = 0; y < h; ++y) {
        const int sy = std::clamp(y - inset, 0, ih - 1);
        for (int x = 0; x < w; ++x) {
            const std::size_t from =
                static_cast<std::size_t>(sy) * iw + std::clamp(x - inset, 0, iw - 1);
            float sum = 0;
            for (int s : slots)
                sum += img.curPlane[s][from];
            (*plane)[static_cast<std::size_t>(y) * w + x] = sum / static_cast<float>(slots.size());
        }
    }
    return true;
}

bool ParseDouble(const std::string& text, double* out) {
    char* end = nullptr;
    *out = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == 0;
}

} // namespace

int RunNight(const std::vector<std::string>& args) {
    for (const auto& a : args)
        if (a == "--help" || a == "-h") {
            std::fputs(kNightHelp, stdout);
            return 0;
        }
    Options opt;
    std::string error;
    if (!opt.Parse(args,
                   {"--out", "--seed", "--frames", "--size", "--bayer", "--darks", "--flats",
                    "--flat-darks", "--bias", "--format", "--exposure", "--flat-exposure",
                    "--flat-level", "--stars", "--sky"},
                   {"--no-motion", "--meridian-flip", "--mirror", "--trail", "--noiseless",
                    "--compress", "--quiet"},
                   &error)) {
        std::fprintf(stderr, "astrivelle-synth night: %s\n", error.c_str());
        return 2;
    }
    if (!opt.Has("--out")) {
        std::fputs("astrivelle-synth night: --out DIR is needed\n", stderr);
        return 2;
    }
    NightConfig cfg;
    long long seed = 1, frames = cfg.frames, darks = cfg.darks, flats = cfg.flats,
              flatDarks = cfg.flatDarks, bias = cfg.bias, stars = -1;
    bool ok = opt.Int("--seed", 0, 0x7fffffffffffffffLL, &seed, &error) &&
              opt.Int("--frames", 1, 9999, &frames, &error) &&
              opt.Int("--darks", 0, 9999, &darks, &error) &&
              opt.Int("--flats", 0, 9999, &flats, &error) &&
              opt.Int("--flat-darks", 0, 9999, &flatDarks, &error) &&
              opt.Int("--bias", 0, 9999, &bias, &error) &&
              opt.Int("--stars", 0, 10000000, &stars, &error) &&
              opt.Size("--size", 60000, &cfg.width, &cfg.height, &error);
    for (const char* name : {"--exposure", "--flat-exposure", "--flat-level", "--sky"}) {
        if (!ok || !opt.Has(name))
            continue;
        double v = 0;
        if (!ParseDouble(opt.Text(name), &v) || v < 0 || v > 1e6) {
            error = std::string(name) + " must be a number from 0 to 1000000";
            ok = false;
            break;
        }
        const std::string n = name;
        if (n == "--exposure")
            cfg.exposure = v;
        else if (n == "--flat-exposure")
            cfg.flatExposure = v;
        else if (n == "--flat-level")
            cfg.flatLevel = v;
        else
            cfg.skyLevel = v;
    }
    if (!ok) {
        std::fprintf(stderr, "astrivelle-synth night: %s\n", error.c_str());
        return 2;
    }
    cfg.seed = static_cast<std::uint64_t>(seed);
    cfg.frames = static_cast<int>(frames);
    cfg.darks = static_cast<int>(darks);
    cfg.flats = static_cast<int>(flats);
    cfg.flatDarks = static_cast<int>(flatDarks);
    cfg.bias = static_cast<int>(bias);
    cfg.stars = static_cast<int>(stars);
    cfg.bayer = opt.Text("--bayer", "MONO");
    cfg.format = opt.Text("--format", "fits16");
    cfg.motion = !opt.Has("--no-motion");
    cfg.meridianFlip = opt.Has("--meridian-flip");
    cfg.mirror = opt.Has("--mirror");
    cfg.trail = opt.Has("--trail");
    cfg.noiseless = opt.Has("--noiseless");
    cfg.compress = opt.Has("--compress");
    const bool quiet = opt.Has("--quiet");
    if (!CheckNightConfig(cfg, &error)) {
        std::fprintf(stderr, "astrivelle-synth night: %s\n", error.c_str());
        return 2;
    }
    NightProgress progress;
    if (!quiet && isatty(2))
        progress = [](int done, int total) {
            std::fprintf(stderr, "\rastrivelle-synth night: %d/%d files", done, total);
            if (done == total)
                std::fputc('\n', stderr);
        };
    if (!WriteNight(cfg, opt.Text("--out"), &error, progress)) {
        std::fprintf(stderr, "astrivelle-synth night: %s\n", error.c_str());
        return 1;
    }
    return 0;
}

int RunMeasure(const std::vector<std::string>& args) {
    for (const auto& a : args)
        if (a == "--help" || a == "-h") {
            std::fputs(kMeasureHelp, stdout);
            return 0;
        }
    Options opt;
    std::string error;
    if (!opt.Parse(args,
                   {"--truth", "--image", "--frame", "--reference", "--reference-frame", "--stars",
                    "--transform", "--inset", "--reference-inset"},
                   {"--json"}, &error)) {
        std::fprintf(stderr, "astrivelle-synth measure: %s\n", error.c_str());
        return 2;
    }
    long long frame = 0, referenceFrame = 0, inset = 0, referenceInset = -1;
    if (!opt.Has("--truth") || !opt.Has("--image")) {
        std::fputs("astrivelle-synth measure: --truth FILE and --image FILE are needed\n", stderr);
        return 2;
    }
    if (!opt.Int("--frame", 0, 9999, &frame, &error) ||
        !opt.Int("--reference-frame", 0, 9999, &referenceFrame, &error) ||
        !opt.Int("--inset", 0, 64, &inset, &error) ||
        !opt.Int("--reference-inset", 0, 64, &referenceInset, &error)) {
        std::fprintf(stderr, "astrivelle-synth measure: %s\n", error.c_str());
        return 2;
    }
    Affine transform;
    if (opt.Has("--transform") && !ParseAffine(opt.Text("--transform"), &transform)) {
        std::fputs("astrivelle-synth measure: --transform must be six numbers "
                   "\"m00,m01,m02,m10,m11,m12\"\n",
                   stderr);
        return 2;
    }
    Truth truth;
    if (!ReadTruth(opt.Text("--truth"), &truth, &error)) {
        std::fprintf(stderr, "astrivelle-synth measure: %s\n", error.c_str());
        return 1;
    }
    std::vector<float> image, reference;
    const int border = static_cast<int>(inset);
    const int referenceBorder = referenceInset < 0 ? border : static_cast<int>(referenceInset);
    if (!ReadMonoPlane(opt.Text("--image"), truth, border, &image, &error) ||
        (opt.Has("--reference") &&
         !ReadMonoPlane(opt.Text("--reference"), truth, referenceBorder, &reference, &error))) {
        std::fprintf(stderr, "astrivelle-synth measure: %s\n", error.c_str());
        return 1;
    }
    std::vector<StarPoint> stars;
    if (opt.Has("--stars") && !ReadStarList(opt.Text("--stars"), &stars, &error)) {
        std::fprintf(stderr, "astrivelle-synth measure: %s\n", error.c_str());
        return 1;
    }
    MeasureRequest request;
    request.image = image.data();
    request.frame = static_cast<int>(frame);
    if (opt.Has("--reference")) {
        request.reference = reference.data();
        request.referenceFrame = static_cast<int>(referenceFrame);
    }
    if (opt.Has("--stars"))
        request.stars = &stars;
    if (opt.Has("--transform"))
        request.transform = &transform;
    MeasureResult result;
    if (!Measure(truth, request, &result, &error)) {
        std::fprintf(stderr, "astrivelle-synth measure: %s\n", error.c_str());
        return 1;
    }
    const std::string text = opt.Has("--json") ? MeasureToJson(result) : MeasureToText(result);
    std::fputs(text.c_str(), stdout);
    return 0;
}

} // namespace astrivelle::synth
