// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Drawing the truth of a night, its sensor maps, and rendering its frames row by row.
#include "tools/synth/NightModel.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "engine/Image.h"
#include "engine/Levels.h"
#include "engine/Parallel.h"
#include "fileio/FileDispatch.h"
#include "tools/synth/DngFile.h"
#include "tools/synth/Random.h"
#include "tools/synth/StarPsf.h"
#include "tools/synth/TiffWriter.h"

namespace astrivelle::synth {

namespace {

constexpr double kPi = 3.141592653589793;

// Stream numbers. Pixel rows use (kind * 10000 + frame) * 100000 + row; the rest lie above.
constexpr std::uint64_t kRowsPerFrame = 100000;
constexpr std::uint64_t kParameterBase = std::uint64_t(1) << 40;
constexpr std::uint64_t kStarStream = kParameterBase + 1;
constexpr std::uint64_t kColumnStream = kParameterBase + 2;
constexpr std::uint64_t kHotStream = kParameterBase + 3;
constexpr std::uint64_t kSkyStream = kParameterBase + 4;
constexpr std::uint64_t kFrameStreamBase = kParameterBase + 1000;
enum StreamKind : std::uint64_t {
    kLightRows = 0,
    kDarkRows = 1,
    kFlatRows = 2,
    kFlatDarkRows = 3,
    kBiasRows = 4,
    kResponseRows = 5,
};

std::uint64_t RowStreamBase(StreamKind kind, int index) {
    return (static_cast<std::uint64_t>(kind) * 10000 + static_cast<std::uint64_t>(index)) *
           kRowsPerFrame;
}

// Camera constants.
constexpr double kBias = 1000.0;
constexpr double kColumnSigma = 3.0;
constexpr double kReadNoise = 8.0;
constexpr double kGain = 1.5;
constexpr double kDarkCurrent = 0.05;
constexpr double kPrnuSigma = 0.005;
constexpr double kHotFraction = 2e-4;
constexpr double kCcdTemp = -10.0;
constexpr double kTrailPeak = 4000.0;
constexpr double kTrailSigma = 1.2;
constexpr double kSplatFloor = 0.25; ///< ADU below which a star's wings are not drawn
constexpr int kBucketShift = 5;      ///< 32-row bands for the star lists

/// Maps sky to frame pixels: p' = L (p - c) + c + d, L = rotation times the flip.
Affine FrameTransform(double cx, double cy, double dx, double dy, double rotationDeg,
                      const std::string& flip) {
    const double a = rotationDeg * kPi / 180.0;
    const double c = std::cos(a), s = std::sin(a);
    double f00 = 1, f11 = 1;
    if (flip == "rot180")
        f00 = f11 = -1;
    else if (flip == "mirror")
        f00 = -1;
    const double l00 = c * f00, l01 = -s * f11, l10 = s * f00, l11 = c * f11;
    Affine t;
    t.m[0] = l00;
    t.m[1] = l01;
    t.m[2] = cx + dx - (l00 * cx + l01 * cy);
    t.m[3] = l10;
    t.m[4] = l11;
    t.m[5] = cy + dy - (l10 * cx + l11 * cy);
    return t;
}

} // namespace

void NightModel::CellWeights(const double rgb[3], float out[4][2]) const {
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 2; ++c)
            out[r][c] =
                cfa_.mono ? 1.0f
                          : cfa_.Pass(c, r, static_cast<float>(rgb[0]), static_cast<float>(rgb[1]),
                                      static_cast<float>(rgb[2]), 1.0f);
}

bool CheckNightConfig(const NightConfig& cfg, std::string* error) {
    if (cfg.frames < 1 || cfg.frames > 9999) {
        *error = "--frames must be from 1 to 9999";
        return false;
    }
    if (cfg.width < 16 || cfg.height < 16 || cfg.width > 60000 || cfg.height > 60000) {
        *error = "--size must be from 16x16 to 60000x60000";
        return false;
    }
    if (cfg.format != "fits16" && cfg.format != "fits32" && cfg.format != "tiff16" &&
        cfg.format != "dng") {
        *error = "--format must be fits16, fits32, tiff16 or dng";
        return false;
    }
    std::array<std::uint8_t, 4> cells;
    if (cfg.format == "dng" && !DngCfaColours(cfg.bayer, &cells)) {
        *error = "--format dng needs a 2x2 Bayer pattern (RG,GB, GR,BG, GB,RG or BG,GR)";
        return false;
    }
    if (!(cfg.exposure > 0) || !(cfg.flatExposure > 0)) {
        *error = "--exposure must be above 0";
        return false;
    }
    for (int n : {cfg.darks, cfg.flats, cfg.flatDarks, cfg.bias})
        if (n < 0 || n > 9999) {
            *error = "calibration frame counts must be from 0 to 9999";
            return false;
        }
    if (cfg.meridianFlip && cfg.frames < 2) {
        *error = "--meridian-flip needs at least 2 frames";
        return false;
    }
    if (cfg.mirror && cfg.frames < (cfg.meridianFlip ? 3 : 2)) {
        *error = cfg.meridianFlip ? "--mirror with --meridian-flip needs at least 3 frames"
                                  : "--mirror needs at least 2 frames";
        return false;
    }
    CfaPattern cfa;
    return ParseCfaPattern(cfg.bayer, &cfa, error);
}

bool NightModel::Build(const NightConfig& cfg, std::string* error) {
    if (!CheckNightConfig(cfg, error) || !ParseCfaPattern(cfg.bayer, &cfa_, error))
        return false;

    config_ = cfg;
    Truth t;
    const int w = cfg.width, h = cfg.height;
    const double cx = (w - 1) / 2.0, cy = (h - 1) / 2.0;
    t.seed = cfg.seed;
    t.width = w;
    t.height = h;
    t.bias = kBias;
    t.columnSigma = kColumnSigma;
    t.readNoise = kReadNoise;
    t.gain = kGain;
    t.darkCurrent = kDarkCurrent;
    t.prnuSigma = kPrnuSigma;
    t.exposure = cfg.exposure;
    t.flatLevel = cfg.flatLevel;
    t.flatExposure = cfg.flatExposure;
    t.ccdTemp = kCcdTemp;
    t.bayer = cfa_.mono ? "MONO" : cfa_.keyword;
    t.format = cfg.format;
    t.noiseless = cfg.noiseless;
    for (int i = 0; i < 3; ++i)
        t.skyColor[i] = cfg.skyColor[i];
    t.vignetteCx = cx;
    t.vignetteCy = cy;
    t.vignetteR0 = 2.0 * std::sqrt(cx * cx + cy * cy);
    const double timeScale = cfg.exposure / 60.0;

    // Sky: a level and a gradient of fixed direction, varied a little per frame.
    {
        Random sky = Random::Stream(cfg.seed, kSkyStream);
        t.skyLevel = cfg.skyLevel >= 0 ? cfg.skyLevel : 800.0 * timeScale;
        const double angle = sky.Uniform(0, 2 * kPi);
        const double slope = 0.15 * t.skyLevel / std::max(w, h);
        t.skyGradient[0] = slope * std::cos(angle);
        t.skyGradient[1] = slope * std::sin(angle);
    }

    // Frames.
    const int flipFrame = cfg.meridianFlip ? cfg.frames / 2 : -1;
    const int mirrorFrame =
        cfg.mirror ? (cfg.meridianFlip ? cfg.frames / 2 + 1 : cfg.frames / 2) : -1;
    t.trailFrame = cfg.trail ? (cfg.frames > 1 ? 1 : 0) : -1;
    const char* ext = cfg.format == "tiff16" ? ".tif" : cfg.format == "dng" ? ".dng" : ".fit";
    double minFwhm = 1e9, maxSky = 0;
    for (int i = 0; i < cfg.frames; ++i) {
        Random fr = Random::Stream(cfg.seed, kFrameStreamBase + static_cast<std::uint64_t>(i));
        FrameTruth f;
        f.index = i;
        char name[64];
        std::snprintf(name, sizeof name, "lights/light_%04d%s", i + 1, ext);
        f.file = name;
        f.fwhm = fr.Uniform(2.2, 3.5);
        f.skyLevel = t.skyLevel * (i == 0 ? 1.0 : fr.Uniform(0.9, 1.15));
        const double g = fr.Uniform(0.8, 1.2);
        f.skyGradient[0] = t.skyGradient[0] * g;
        f.skyGradient[1] = t.skyGradient[1] * g;
        const double dx = fr.Uniform(-20, 20), dy = fr.Uniform(-20, 20);
        const double rot = fr.Uniform(-0.8, 0.8);
        if (cfg.motion && i > 0) {
            f.dx = dx;
            f.dy = dy;
            f.rotationDeg = rot;
        }
        if (i == flipFrame)
            f.flip = "rot180";
        else if (i == mirrorFrame)
            f.flip = "mirror";
        f.transform = FrameTransform(cx, cy, f.dx, f.dy, f.rotationDeg, f.flip);
        minFwhm = std::min(minFwhm, f.fwhm);
        maxSky = std::max(maxSky, f.skyLevel + (std::fabs(f.skyGradient[0]) * cx +
                                                std::fabs(f.skyGradient[1]) * cy));
        if (i == t.trailFrame) {
            t.trail[0] = 0;
            t.trail[1] = fr.Uniform(0.1, 0.9) * (h - 1);
            t.trail[2] = w - 1;
            t.trail[3] = fr.Uniform(0.1, 0.9) * (h - 1);
            t.trailPeak = kTrailPeak;
            t.trailSigma = kTrailSigma;
        }
        t.frames.push_back(f);
    }

    // Stars: uniform over frame 0 and a margin that moved frames can see, power-law fluxes,
    // a few far brighter ones that saturate.
    {
        Random st = Random::Stream(cfg.seed, kStarStream);
        const double margin = cfg.motion ? 40.0 + 0.015 * std::sqrt(cx * cx + cy * cy) : 12.0;
        const double x0 = -margin, x1 = w - 1 + margin, y0 = -margin, y1 = h - 1 + margin;
        const int n = cfg.stars >= 0
                          ? cfg.stars
                          : static_cast<int>(std::lround(2000.0 * (x1 - x0) * (y1 - y0) / 1.5e6));
        const int bright = n > 0 ? std::max(3, n / 500) : 0;
        t.stars.reserve(static_cast<std::size_t>(n + bright));
        for (int i = 0; i < n + bright; ++i) {
            StarTruth s;
            if (i < n) {
                s.x = st.Uniform(x0, x1);
                s.y = st.Uniform(y0, y1);
                double u = st.Uniform();
                if (u < 1e-9)
                    u = 1e-9;
                s.flux = std::min(400.0 * std::pow(u, -1.0 / 0.8), 1.5e5) * timeScale;
            } else {
                s.x = st.Uniform(0.1, 0.9) * (w - 1);
                s.y = st.Uniform(0.1, 0.9) * (h - 1);
                s.flux = st.Uniform(4e5, 2e6) * timeScale;
            }
            const double temperature = st.Uniform(-1, 1);
            s.color[0] = 1.0 + 0.35 * temperature;
            s.color[1] = 1.0;
            s.color[2] = 1.0 - 0.35 * temperature;
            const double share = cfa_.mono ? 1.0 : std::max(s.color[0], 1.0);
            const double peak = kBias + 3 * kColumnSigma + kDarkCurrent * cfg.exposure + maxSky +
                                MoffatPeak(s.flux * share, MoffatAlpha(minFwhm));
            s.saturated = peak >= 65535.0;
            t.stars.push_back(s);
        }
    }

    // Sensor maps: vignetting times pixel response, column offsets, dark rate with hot pixels.
    const std::size_t count = static_cast<std::size_t>(w) * h;
    response_.assign(count, 1.0f);
    darkRate_.assign(count, static_cast<float>(kDarkCurrent));
    column_.assign(static_cast<std::size_t>(w), 0.0f);
    ParallelRows(h, [&](int r0, int r1) {
        for (int y = r0; y < r1; ++y) {
            Random rng = Random::Stream(cfg.seed, RowStreamBase(kResponseRows, 0) + y);
            float* row = response_.data() + static_cast<std::size_t>(y) * w;
            for (int x = 0; x < w; ++x)
                row[x] = static_cast<float>(t.Vignetting(x, y) * (1.0 + kPrnuSigma * rng.Normal()));
        }
    });
    {
        Random col = Random::Stream(cfg.seed, kColumnStream);
        for (int x = 0; x < w; ++x)
            column_[static_cast<std::size_t>(x)] = static_cast<float>(kColumnSigma * col.Normal());
        Random hot = Random::Stream(cfg.seed, kHotStream);
        const int hotCount = std::max(1, static_cast<int>(std::lround(count * kHotFraction)));
        for (int i = 0; i < hotCount; ++i) {
            const int x = std::min(w - 1, static_cast<int>(hot.Uniform() * w));
            const int y = std::min(h - 1, static_cast<int>(hot.Uniform() * h));
            const double rate = 2.0 * std::pow(20.0, hot.Uniform());
            float& r = darkRate_[static_cast<std::size_t>(y) * w + x];
            if (r != static_cast<float>(kDarkCurrent))
                continue; // drawn twice: the first rate stays
            r = static_cast<float>(rate);
            t.hotPixels.push_back({x, y, static_cast<double>(r)});
        }
    }

    auto names = [&](const char* folder, const char* stem, int n, std::vector<std::string>* out) {
        out->clear();
        for (int i = 0; i < n; ++i) {
            char name[80];
            // Raw nights have raw lights only: a camera's calibration frames come as FITS.
            std::snprintf(name, sizeof name, "%s/%s_%04d%s", folder, stem, i + 1,
                          cfg.format == "dng" ? ".fit" : ext);
            out->push_back(name);
        }
    };
    names("darks", "dark", cfg.darks, &t.darks);
    names("flats", "flat", cfg.flats, &t.flats);
    names("flatdarks", "flatdark", cfg.flatDarks, &t.flatDarks);
    names("bias", "bias", cfg.bias, &t.biasFrames);
    truth_ = std::move(t);
    return true;
}

void NightModel::RenderLight(int frame, float* plane, const LightParts& parts) const {
    RenderRows(frame, CalibrationKind::Dark, true, plane, parts);
}

void NightModel::RenderCalibration(CalibrationKind kind, int index, float* plane) const {
    RenderRows(index, kind, false, plane, LightParts{});
}

void NightModel::RenderRows(int frame, CalibrationKind kind, bool light, float* plane,
                            const LightParts& parts) const {
    const Truth& t = truth_;
    const int w = t.width, h = t.height;
    const double cx = (w - 1) / 2.0, cy = (h - 1) / 2.0;
    const int cw = cfa_.cellWidth, ch = cfa_.cellHeight;

    double exposure = 0;
    std::uint64_t streamBase = 0;
    if (light) {
        exposure = t.exposure;
        streamBase = RowStreamBase(kLightRows, frame);
    } else {
        switch (kind) {
        case CalibrationKind::Dark:
            exposure = t.exposure;
            streamBase = RowStreamBase(kDarkRows, frame);
            break;
        case CalibrationKind::Flat:
            exposure = t.flatExposure;
            streamBase = RowStreamBase(kFlatRows, frame);
            break;
        case CalibrationKind::FlatDark:
            exposure = t.flatExposure;
            streamBase = RowStreamBase(kFlatDarkRows, frame);
            break;
        case CalibrationKind::Bias:
            exposure = 0;
            streamBase = RowStreamBase(kBiasRows, frame);
            break;
        }
    }
    const bool flat = !light && kind == CalibrationKind::Flat;
    const bool noise = parts.noise && !t.noiseless;
    const bool sensor = parts.sensor;

    // Stars of this frame in frame pixels, and for each 32-row band the stars reaching it.
    std::vector<Splat> splats;
    std::vector<std::vector<int>> bands;
    float alpha = 1.0f;
    const FrameTruth* ft = light ? &t.frames[static_cast<std::size_t>(frame)] : nullptr;
    if (light && parts.stars) {
        alpha = static_cast<float>(MoffatAlpha(ft->fwhm));
        bands.resize(static_cast<std::size_t>((h >> kBucketShift) + 1));
        for (const StarTruth& s : t.stars) {
            double fx, fy;
            ft->transform.Apply(s.x, s.y, &fx, &fy);
            Splat sp;
            sp.x = static_cast<float>(fx);
            sp.y = static_cast<float>(fy);
            sp.peak = static_cast<float>(MoffatPeak(s.flux, alpha));
            CellWeights(s.color, sp.weight);
            float maxWeight = 0;
            for (auto& r : sp.weight)
                for (float v : r)
                    maxWeight = std::max(maxWeight, v);
            const double radius =
                std::clamp(MoffatRadius(sp.peak * maxWeight, alpha, kSplatFloor), 3.0, 120.0);
            sp.x0 = static_cast<int>(std::floor(fx - radius));
            sp.x1 = static_cast<int>(std::ceil(fx + radius));
            sp.y0 = static_cast<int>(std::floor(fy - radius));
            sp.y1 = static_cast<int>(std::ceil(fy + radius));
            if (sp.x1 < 0 || sp.y1 < 0 || sp.x0 >= w || sp.y0 >= h)
                continue;
            sp.x0 = std::max(sp.x0, 0);
            sp.y0 = std::max(sp.y0, 0);
            sp.x1 = std::min(sp.x1, w - 1);
            sp.y1 = std::min(sp.y1, h - 1);
            const int index = static_cast<int>(splats.size());
            splats.push_back(sp);
            for (int b = sp.y0 >> kBucketShift; b <= (sp.y1 >> kBucketShift); ++b)
                bands[static_cast<std::size_t>(b)].push_back(index);
        }
    }
    float skyWeight[4][2], whiteWeight[4][2];
    CellWeights(t.skyColor, skyWeight);
    const double white[3] = {1, 1, 1};
    CellWeights(white, whiteWeight);
    const bool trail = light && parts.sky && frame == t.trailFrame;
    const double tdx = t.trail[2] - t.trail[0], tdy = t.trail[3] - t.trail[1];
    const double tlen = std::max(1e-9, std::sqrt(tdx * tdx + tdy * tdy));
    const double invA2 = 1.0 / (static_cast<double>(alpha) * alpha);
    const double invGain = 1.0 / t.gain;
    const double rn2 = t.readNoise * t.readNoise;

    ParallelRows(h, [&](int r0, int r1) {
        for (int y = r0; y < r1; ++y) {
            float* row = plane + static_cast<std::size_t>(y) * w;
            std::fill(row, row + w, 0.0f);
            if (light && parts.stars) {
                for (int index : bands[static_cast<std::size_t>(y >> kBucketShift)]) {
                    const Splat& s = splats[static_cast<std::size_t>(index)];
                    if (y < s.y0 || y > s.y1)
                        continue;
                    // Each pixel is the mean of 3x3 samples of the profile over its area.
                    float dy2[3];
                    for (int j = 0; j < 3; ++j) {
                        const float d = static_cast<float>(y) + (j - 1) / 3.0f - s.y;
                        dy2[j] = static_cast<float>(d * d * invA2);
                    }
                    const float* weights = s.weight[y % ch];
                    const float scale = s.peak / 9.0f;
                    for (int x = s.x0; x <= s.x1; ++x) {
                        float sum = 0;
                        for (int i = 0; i < 3; ++i) {
                            const float d = static_cast<float>(x) + (i - 1) / 3.0f - s.x;
                            const float dx2 = static_cast<float>(d * d * invA2);
                            for (int j = 0; j < 3; ++j) {
                                const float q = 1.0f + dx2 + dy2[j];
                                sum += 1.0f / (q * q * q);
                            }
                        }
                        row[x] += scale * weights[x % cw] * sum;
                    }
                }
            }
            if (light && parts.sky) {
                const float* weights = skyWeight[y % ch];
                const double base = ft->skyLevel + ft->skyGradient[1] * (y - cy);
                for (int x = 0; x < w; ++x)
                    row[x] += static_cast<float>((base + ft->skyGradient[0] * (x - cx)) *
                                                 weights[x % cw]);
                if (trail) {
                    const float* tw = whiteWeight[y % ch];
                    const double inv2s2 = 1.0 / (2.0 * t.trailSigma * t.trailSigma);
                    for (int x = 0; x < w; ++x) {
                        const double d = (tdx * (y - t.trail[1]) - tdy * (x - t.trail[0])) / tlen;
                        const double v = d * d * inv2s2;
                        if (v < 30)
                            row[x] += static_cast<float>(t.trailPeak * std::exp(-v) * tw[x % cw]);
                    }
                }
            }
            if (flat) {
                const float* weights = whiteWeight[y % ch];
                for (int x = 0; x < w; ++x)
                    row[x] = static_cast<float>(t.flatLevel) * weights[x % cw];
            }
            if (parts.response && (light || flat)) {
                const float* resp = response_.data() + static_cast<std::size_t>(y) * w;
                for (int x = 0; x < w; ++x)
                    row[x] *= resp[x];
            }
            Random rng = Random::Stream(t.seed, streamBase + static_cast<std::uint64_t>(y));
            const float* rate = darkRate_.data() + static_cast<std::size_t>(y) * w;
            for (int x = 0; x < w; ++x) {
                double mean = row[x];
                double offset = 0;
                if (sensor) {
                    mean += rate[x] * exposure;
                    offset = t.bias + column_[static_cast<std::size_t>(x)];
                }
                double v = mean;
                if (noise) {
                    const double electrons = mean * t.gain;
                    if (electrons < 30) {
                        v = rng.Poisson(electrons) * invGain + t.readNoise * rng.Normal();
                    } else {
                        // Photon and read noise together: one normal of their summed variance.
                        v = mean + std::sqrt(mean * invGain + rn2) * rng.Normal();
                    }
                }
                v += offset;
                row[x] = static_cast<float>(v < 0 ? 0 : (v > 65535 ? 65535 : v));
            }
        }
    });
}

namespace {

void AddCard(HeaderList& cards, const char* key, const std::string& value, CardType type,
             const char* comment) {
    CFITSHeader c;
    c.key = key;
    c.value = value;
    c.comment = comment;
    c.dataType = type;
    cards.push_back(c);
}

std::string Real(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.6g", v);
    return buf;
}

/// A light frame as a camera raw file: the mosaic as it is, with a black level of 0 and a
/// white level of 65535, so that a plain conversion of the mosaic gives back the levels the
/// FITS calibration frames of the same night are on.
bool WriteRawLight(const std::string& path, const float* plane, const Truth& t, double exposure,
                   int number, std::string* error) {
    DngImage raw;
    raw.width = t.width;
    raw.height = t.height;
    raw.pattern = t.bayer;
    raw.blackLevel = 0;
    raw.whiteLevel = 65535;
    raw.exposureNumerator = static_cast<std::uint32_t>(std::lround(exposure * 1000));
    raw.exposureDenominator = 1000;
    raw.model = "Synth Night";
    // One frame a minute from 21:00.
    char when[32];
    std::snprintf(when, sizeof when, "2024:03:15 %02d:%02d:00", 21 + number / 60 % 3, number % 60);
    raw.dateTime = when;
    raw.samples.resize(static_cast<std::size_t>(t.width) * t.height);
    for (std::size_t i = 0; i < raw.samples.size(); ++i)
        raw.samples[i] = static_cast<std::uint16_t>(RoundLevel16(plane[i])); // as FITS rounds
    return WriteDng(path, raw, error);
}

} // namespace

bool WriteNight(const NightConfig& config, const std::string& dir, std::string* error,
                const NightProgress& progress) {
    NightModel model;
    if (!model.Build(config, error))
        return false;
    const Truth& t = model.truth();
    namespace fs = std::filesystem;
    std::error_code ec;
    for (const char* sub : {"lights", "darks", "flats", "flatdarks", "bias"}) {
        fs::create_directories(fs::path(dir) / sub, ec);
        if (ec) {
            *error = "cannot create " + (fs::path(dir) / sub).string() + ": " + ec.message();
            return false;
        }
    }

    Image img;
    img.SetGeometryFits(KindFITS, ColorGray, 0, config.format == "fits32" ? DataFloat : Data16,
                        t.width, t.height);
    img.fitsCompress = config.compress;
    if (!img.AllocateCurrentPlanes(1)) {
        *error = "not enough memory for a " + std::to_string(t.width) + "x" +
                 std::to_string(t.height) + " frame";
        return false;
    }
    float* plane = img.curPlane[0];
    const int total = static_cast<int>(t.frames.size() + t.darks.size() + t.flats.size() +
                                       t.flatDarks.size() + t.biasFrames.size());
    int done = 0;

    auto save = [&](const std::string& rel, const char* type, double exposure, int number) {
        const std::string path = (fs::path(dir) / rel).string();
        HeaderList cards;
        AddCard(cards, "EXPTIME", Real(exposure), CardReal, "exposure time, s");
        AddCard(cards, "IMAGETYP", type, CardString, "type of frame");
        AddCard(cards, "FRAMENO", std::to_string(number), CardInteger, "frame number, from 0");
        AddCard(cards, "CCD-TEMP", Real(t.ccdTemp), CardReal, "sensor temperature, C");
        if (t.bayer != "MONO")
            AddCard(cards, "BAYERPAT", t.bayer, CardString, "colour filter pattern");
        AddCard(cards, "OBJECT", "Synthetic night", CardString, "");
        bool ok;
        if (config.format == "dng" && rel.rfind(".dng") == rel.size() - 4) {
            ok = WriteRawLight(path, plane, t, exposure, number, error);
        } else if (config.format == "tiff16") {
            std::string description;
            for (const CFITSHeader& c : cards)
                description += (description.empty() ? "" : "\n") + c.key + "=" + c.value;
            ok = WriteTiff16(path, plane, t.width, t.height, description, error);
        } else {
            img.headerCards = cards;
            ok = img.WriteFile(path, KindFITS);
            if (!ok)
                *error = "could not write " + path + ": " + LastFileError();
        }
        if (ok && progress)
            progress(++done, total);
        return ok;
    };

    for (const FrameTruth& f : t.frames) {
        model.RenderLight(f.index, plane);
        if (!save(f.file, "Light Frame", t.exposure, f.index))
            return false;
    }
    struct Set {
        const std::vector<std::string>* files;
        CalibrationKind kind;
        const char* type;
        double exposure;
    };
    const Set sets[] = {
        {&t.darks, CalibrationKind::Dark, "Dark Frame", t.exposure},
        {&t.flats, CalibrationKind::Flat, "Flat Field", t.flatExposure},
        {&t.flatDarks, CalibrationKind::FlatDark, "Dark Frame", t.flatExposure},
        {&t.biasFrames, CalibrationKind::Bias, "Bias Frame", 0.0},
    };
    for (const Set& s : sets)
        for (std::size_t i = 0; i < s.files->size(); ++i) {
            model.RenderCalibration(s.kind, static_cast<int>(i), plane);
            if (!save((*s.files)[i], s.type, s.exposure, static_cast<int>(i)))
                return false;
        }
    return WriteTruth((fs::path(dir) / "truth.json").string(), t, error);
}

} // namespace astrivelle::synth
