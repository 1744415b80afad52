// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The planet subcommand of astrivelle-synth: a SER video of a planet or of the lunar
/// surface, its truth.json, and optionally the same frames as an AVI or MOV.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tools/synth/Commands.h"
#include "tools/synth/Json.h"
#include "tools/synth/Options.h"
#include "tools/synth/PlanetScene.h"
#include "tools/synth/SerFile.h"
#include "tools/synth/VideoFiles.h"

namespace astrivelle::synth {

namespace {

const char* kPlanetHelp =
    "usage: astrivelle-synth planet --out DIR [options]\n\n"
    "Writes DIR/planet.ser (DIR/lunar.ser with --lunar) and DIR/truth.json: per frame the\n"
    "shift (dx, dy), the seeing blur sigma and its sharpness rank (0 = sharpest).\n\n"
    "  --out DIR        output folder (created when missing)\n"
    "  --seed N         random seed (1)\n"
    "  --frames N       number of frames (100)\n"
    "  --size WxH       frame size (640x480)\n"
    "  --color MODE     MONO, RG,GB, GR,BG, GB,RG, BG,GR, RGB or BGR (MONO)\n"
    "  --depth 8|16     bits per sample (8)\n"
    "  --lunar          a cratered surface filling the frame, with local warps\n"
    "  --noise X        noise multiplier, 0 for none (1)\n"
    "  --blur MIN,MAX   range of the per-frame Gaussian seeing sigma in pixels (0.5,3)\n"
    "  --video KIND     also write the frames with ffmpeg: avi (raw), mov (Motion JPEG) or\n"
    "                   mov-png\n";

// A fixed capture time (2024-03-15 21:30:00) in 100 ns ticks since 0001-01-01, so that the
// same seed gives the same bytes.
constexpr std::int64_t kCaptureTicks = 638461350000000000LL;

bool ParseDouble(const std::string& text, double* out) {
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end)
        return false;
    *out = v;
    return true;
}

std::string TruthText(const PlanetScene& scene, const std::string& file) {
    const PlanetSettings& s = scene.Settings();
    JsonWriter j;
    j.BeginObject();
    j.Key("seed").Integer(static_cast<long long>(s.seed));
    j.Key("width").Integer(s.width);
    j.Key("height").Integer(s.height);
    j.Key("frames").Integer(s.frames);
    j.Key("color").String(SerColorKeyword(s.colorId));
    j.Key("depth").Integer(s.depth);
    j.Key("lunar").Bool(s.lunar);
    j.Key("file").String(file);
    j.Key("noise").Number(s.noise);
    j.Key("blurMin").Number(s.blurMin);
    j.Key("blurMax").Number(s.blurMax);
    j.Key("coordinates")
        .String("x right, y down, pixel centres at whole numbers; the scene "
                "content of frame i is moved by (dx, dy)");
    if (!s.lunar) {
        j.Key("planet").BeginObject();
        j.Key("cx").Number(scene.CentreX());
        j.Key("cy").Number(scene.CentreY());
        j.Key("radius").Number(scene.Radius());
        j.EndObject();
    }
    j.Key("frameTruth").BeginArray();
    for (const PlanetFrameTruth& t : scene.Truth()) {
        j.BeginObject();
        j.Key("index").Integer(t.index);
        j.Key("dx").Number(t.dx);
        j.Key("dy").Number(t.dy);
        j.Key("blurSigma").Number(t.blurSigma);
        j.Key("sharpnessRank").Integer(t.sharpnessRank);
        if (s.lunar) {
            // The content at (x, y) is further moved along `axis` by
            // amplitude * cos(2 pi (fx x + fy y) + phase), summed over the waves, less the
            // sum's mean over the frame (warpMeanX, warpMeanY).
            j.Key("warp").BeginArray();
            for (const PlanetWarpWave& w : t.warp) {
                j.BeginObject();
                j.Key("axis").String(w.axis == 0 ? "x" : "y");
                j.Key("amplitude").Number(w.amplitude);
                j.Key("fx").Number(w.fx);
                j.Key("fy").Number(w.fy);
                j.Key("phase").Number(w.phase);
                j.EndObject();
            }
            j.EndArray();
            j.Key("warpMeanX").Number(t.warpMeanX);
            j.Key("warpMeanY").Number(t.warpMeanY);
        }
        j.EndObject();
    }
    j.EndArray();
    j.EndObject();
    return j.Text() + "\n";
}

/// 8-bit video pixels from SER samples: gray for mono and mosaics, R,G,B for colour.
void VideoPixels(const std::vector<std::uint16_t>& samples, const PlanetSettings& s,
                 std::vector<std::uint8_t>* out) {
    const int shift = s.depth - 8;
    out->resize(samples.size());
    const bool bgr = s.colorId == SerBGR;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        // BGR frames are turned to R,G,B by swapping the first and last sample of a pixel.
        std::size_t from = i;
        if (bgr)
            from = i - i % 3 + (2 - i % 3);
        (*out)[i] = static_cast<std::uint8_t>(samples[from] >> shift);
    }
}

} // namespace

int RunPlanet(const std::vector<std::string>& args) {
    Options o;
    std::string error;
    if (!o.Parse(args,
                 {"--out", "--seed", "--frames", "--size", "--color", "--depth", "--noise",
                  "--blur", "--video"},
                 {"--lunar", "--help"}, &error)) {
        std::fprintf(stderr, "astrivelle-synth planet: %s\n%s", error.c_str(), kPlanetHelp);
        return 2;
    }
    if (o.Has("--help")) {
        std::fputs(kPlanetHelp, stdout);
        return 0;
    }
    auto usage = [](const std::string& text) {
        std::fprintf(stderr, "astrivelle-synth planet: %s\n", text.c_str());
        return 2;
    };
    if (o.Text("--out").empty())
        return usage("--out DIR is required");
    PlanetSettings s;
    long long seed = 1, frames = s.frames, depth = s.depth;
    if (!o.Int("--seed", 0, 0x7fffffffffffffffLL, &seed, &error) ||
        !o.Int("--frames", 1, 100000, &frames, &error) ||
        !o.Int("--depth", 8, 16, &depth, &error) ||
        !o.Size("--size", 8192, &s.width, &s.height, &error))
        return usage(error);
    if (depth != 8 && depth != 16)
        return usage("--depth must be 8 or 16");
    if (s.width < 16 || s.height < 16)
        return usage("--size must be at least 16x16");
    s.seed = static_cast<std::uint64_t>(seed);
    s.frames = static_cast<int>(frames);
    s.depth = static_cast<int>(depth);
    s.lunar = o.Has("--lunar");
    s.colorId = SerColorFromKeyword(o.Text("--color", "MONO"));
    if (s.colorId < 0)
        return usage("--color must be MONO, RG,GB, GR,BG, GB,RG, BG,GR, RGB or BGR");
    if (o.Has("--noise") && (!ParseDouble(o.Text("--noise"), &s.noise) || s.noise < 0))
        return usage("--noise must be a number of 0 or more");
    if (o.Has("--blur")) {
        const std::string b = o.Text("--blur");
        const auto comma = b.find(',');
        if (comma == std::string::npos || !ParseDouble(b.substr(0, comma), &s.blurMin) ||
            !ParseDouble(b.substr(comma + 1), &s.blurMax) || s.blurMin < 0.1 ||
            s.blurMax < s.blurMin || s.blurMax > 20)
            return usage("--blur must be MIN,MAX with 0.1 <= MIN <= MAX <= 20");
    }
    const std::string videoKind = o.Text("--video");
    VideoKind kind = VideoKind::AviRaw;
    if (videoKind == "mov")
        kind = VideoKind::MovMjpeg;
    else if (videoKind == "mov-png")
        kind = VideoKind::MovPng;
    else if (!videoKind.empty() && videoKind != "avi")
        return usage("--video must be avi, mov or mov-png");

    namespace fs = std::filesystem;
    const fs::path dir = o.Text("--out");
    std::error_code ec;
    fs::create_directories(dir, ec);
    if (!fs::is_directory(dir)) {
        std::fprintf(stderr, "astrivelle-synth planet: cannot create %s\n", dir.c_str());
        return 1;
    }
    const std::string stem = s.lunar ? "lunar" : "planet";
    const std::string serName = stem + ".ser";

    PlanetScene scene(s);
    SerHeader header;
    header.colorId = s.colorId;
    header.width = s.width;
    header.height = s.height;
    header.depth = s.depth;
    header.frames = s.frames;
    header.observer = "astrivelle-synth seed " + std::to_string(s.seed);
    header.instrument = "Synthetic camera";
    header.telescope = s.lunar ? "Synthetic lunar surface" : "Synthetic planet";
    header.dateTime = kCaptureTicks;
    header.dateTimeUtc = kCaptureTicks;

    auto fail = [](const std::string& text) {
        std::fprintf(stderr, "astrivelle-synth planet: %s\n", text.c_str());
        return 1;
    };
    SerWriter ser;
    if (!ser.Open((dir / serName).string(), header, &error))
        return fail(error);
    FfmpegVideoWriter video;
    const int channels = s.colorId == SerRGB || s.colorId == SerBGR ? 3 : 1;
    const std::string videoName = stem + "." + VideoExtension(kind);
    if (!videoKind.empty() &&
        !video.Open((dir / videoName).string(), s.width, s.height, channels, 30, kind, &error))
        return fail(error);
    std::vector<std::uint16_t> samples;
    std::vector<std::uint8_t> pixels;
    for (int i = 0; i < s.frames; ++i) {
        scene.RenderFrame(i, &samples);
        if (!ser.WriteFrame(samples.data(), &error))
            return fail(error);
        if (!videoKind.empty()) {
            VideoPixels(samples, s, &pixels);
            if (!video.WriteFrame(pixels.data(), &error))
                return fail(error);
        }
    }
    if (!ser.Close(&error) || !video.Close(&error))
        return fail(error);
    std::ofstream truth(dir / "truth.json", std::ios::binary);
    truth << TruthText(scene, serName);
    if (!truth.flush())
        return fail("cannot write " + (dir / "truth.json").string());
    return 0;
}

} // namespace astrivelle::synth
