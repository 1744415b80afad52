// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The synthetic night's model: stars where the truth puts them in every frame (moved,
/// rotated, flipped, mirrored), flats, darks and bias with the levels the truth states, the
/// same frames for any number of threads, and truth.json read back.
#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include "tools/synth/Json.h"
#include "tools/synth/NightModel.h"
#include "tools/synth/StarPsf.h"

namespace astrivelle::synth {
namespace {

NightConfig SmallNight() {
    NightConfig c;
    c.width = 400;
    c.height = 300;
    c.frames = 4;
    c.seed = 3;
    c.meridianFlip = true; // frame 2
    c.mirror = true;       // frame 3
    return c;
}

/// Intensity-weighted centroid of a star-only plane in a window around (x, y).
void Centroid(const std::vector<float>& plane, int w, double x, double y, int r, double* cx,
              double* cy) {
    const int ix = static_cast<int>(std::lround(x)), iy = static_cast<int>(std::lround(y));
    double s = 0, sx = 0, sy = 0;
    for (int yy = iy - r; yy <= iy + r; ++yy)
        for (int xx = ix - r; xx <= ix + r; ++xx) {
            const double v = plane[static_cast<std::size_t>(yy) * w + xx];
            s += v;
            sx += v * xx;
            sy += v * yy;
        }
    *cx = sx / s;
    *cy = sy / s;
}

TEST(NightModel, StarCentroidsFollowEveryFrameTransform) {
    NightModel model;
    std::string error;
    ASSERT_TRUE(model.Build(SmallNight(), &error)) << error;
    const Truth& t = model.truth();
    ASSERT_EQ(t.frames[2].flip, "rot180");
    ASSERT_EQ(t.frames[3].flip, "mirror");
    ASSERT_GT(std::hypot(t.frames[1].dx, t.frames[1].dy), 1.0);
    ASSERT_NE(t.frames[1].rotationDeg, 0.0);
    LightParts starsOnly;
    starsOnly.sky = starsOnly.sensor = starsOnly.noise = false;
    std::vector<float> plane(static_cast<std::size_t>(t.width) * t.height);
    const int r = 7;
    for (int frame : {0, 1, 2, 3}) {
        SCOPED_TRACE("frame " + std::to_string(frame));
        model.RenderLight(frame, plane.data(), starsOnly);
        int checked = 0;
        for (std::size_t i = 0; i < t.stars.size(); ++i) {
            const StarTruth& s = t.stars[i];
            if (s.saturated || s.flux < 5000)
                continue;
            bool isolated = true;
            for (std::size_t j = 0; j < t.stars.size() && isolated; ++j)
                if (j != i && std::hypot(t.stars[j].x - s.x, t.stars[j].y - s.y) < 25 &&
                    t.stars[j].flux > 0.002 * s.flux)
                    isolated = false;
            double fx, fy;
            t.frames[static_cast<std::size_t>(frame)].transform.Apply(s.x, s.y, &fx, &fy);
            if (!isolated || fx < r + 1 || fy < r + 1 || fx > t.width - r - 2 ||
                fy > t.height - r - 2)
                continue;
            double cx, cy;
            Centroid(plane, t.width, fx, fy, r, &cx, &cy);
            EXPECT_NEAR(cx, fx, 0.05) << "star " << i;
            EXPECT_NEAR(cy, fy, 0.05) << "star " << i;
            ++checked;
        }
        EXPECT_GE(checked, 5);
    }
}

TEST(NightModel, TransformsMoveRotateAndFlipAboutTheCentre) {
    NightModel model;
    std::string error;
    ASSERT_TRUE(model.Build(SmallNight(), &error)) << error;
    const Truth& t = model.truth();
    const double cx = (t.width - 1) / 2.0, cy = (t.height - 1) / 2.0;
    for (const FrameTruth& f : t.frames) {
        SCOPED_TRACE("frame " + std::to_string(f.index));
        double x, y;
        f.transform.Apply(cx, cy, &x, &y);
        EXPECT_NEAR(x, cx + f.dx, 1e-9);
        EXPECT_NEAR(y, cy + f.dy, 1e-9);
        const double a = f.rotationDeg * 3.141592653589793 / 180;
        const double det =
            f.transform.m[0] * f.transform.m[4] - f.transform.m[1] * f.transform.m[3];
        EXPECT_NEAR(det, f.flip == "mirror" ? -1.0 : 1.0, 1e-12);
        const double sign = f.flip == "rot180" ? -1.0 : 1.0;
        EXPECT_NEAR(f.transform.m[4], sign * std::cos(a), 1e-12);
        EXPECT_NEAR(f.transform.m[3], (f.flip == "none" ? 1.0 : -1.0) * std::sin(a), 1e-12);
        EXPECT_LE(std::fabs(f.dx), 20.0);
        EXPECT_LE(std::fabs(f.rotationDeg), 1.0);
        EXPECT_GE(f.fwhm, 2.2);
        EXPECT_LE(f.fwhm, 3.5);
    }
    const FrameTruth& f0 = t.frames[0];
    EXPECT_EQ(f0.transform.m[0], 1.0);
    EXPECT_EQ(f0.transform.m[2], 0.0);
    EXPECT_EQ(f0.transform.m[5], 0.0);

    NightConfig still = SmallNight();
    still.motion = false;
    still.meridianFlip = still.mirror = false;
    NightModel stillModel;
    ASSERT_TRUE(stillModel.Build(still, &error)) << error;
    for (const FrameTruth& f : stillModel.truth().frames) {
        const double identity[6] = {1, 0, 0, 0, 1, 0};
        for (int k = 0; k < 6; ++k)
            EXPECT_EQ(f.transform.m[k], identity[k]);
    }
}

TEST(NightModel, SameFramesWhateverTheThreadCount) {
    NightConfig c = SmallNight();
    c.trail = true;
    NightModel model;
    std::string error;
    ASSERT_TRUE(model.Build(c, &error)) << error;
    const std::size_t n = static_cast<std::size_t>(c.width) * c.height;
    std::vector<float> many(n), one(n);
    model.RenderLight(1, many.data());
    {
        tbb::global_control single(tbb::global_control::max_allowed_parallelism, 1);
        NightModel again;
        ASSERT_TRUE(again.Build(c, &error));
        again.RenderLight(1, one.data());
    }
    EXPECT_EQ(many, one);
}

TEST(NightModel, FlatMeanIsLevelTimesMeanVignetting) {
    NightConfig c = SmallNight();
    NightModel model;
    std::string error;
    ASSERT_TRUE(model.Build(c, &error)) << error;
    const Truth& t = model.truth();
    std::vector<float> flat(static_cast<std::size_t>(t.width) * t.height);
    model.RenderCalibration(CalibrationKind::Flat, 0, flat.data());
    double sum = 0, offsets = 0, vignetting = 0;
    for (int y = 0; y < t.height; ++y)
        for (int x = 0; x < t.width; ++x) {
            sum += flat[static_cast<std::size_t>(y) * t.width + x];
            offsets += t.bias + model.ColumnOffset(x) + model.DarkRate(x, y) * t.flatExposure;
            vignetting += t.Vignetting(x, y);
        }
    const double n = static_cast<double>(t.width) * t.height;
    const double meanV = vignetting / n;
    EXPECT_LT(meanV, 0.97); // the vignetting is there to be seen
    // Photon noise ~130 ADU per pixel and 0.5% response spread over 120000 pixels: ~0.6 ADU.
    EXPECT_NEAR((sum - offsets) / n, t.flatLevel * meanV, 3.0);
    // The corner is darker than the centre by the vignetting.
    auto box = [&](int x0, int y0) {
        double s = 0;
        for (int y = y0; y < y0 + 10; ++y)
            for (int x = x0; x < x0 + 10; ++x)
                s += flat[static_cast<std::size_t>(y) * t.width + x] - t.bias -
                     model.ColumnOffset(x);
        return s / 100;
    };
    const double centre = box(195, 145), corner = box(0, 0);
    EXPECT_NEAR(corner / centre, t.Vignetting(4.5, 4.5) / t.Vignetting(199.5, 149.5), 0.01);
}

TEST(NightModel, DarksShowTheSameHotPixelsScaledByExposure) {
    NightConfig c = SmallNight();
    NightModel model;
    std::string error;
    ASSERT_TRUE(model.Build(c, &error)) << error;
    const Truth& t = model.truth();
    ASSERT_FALSE(t.hotPixels.empty());
    const std::size_t n = static_cast<std::size_t>(t.width) * t.height;
    std::vector<std::vector<float>> darks(3, std::vector<float>(n));
    for (int i = 0; i < 3; ++i)
        model.RenderCalibration(CalibrationKind::Dark, i,
                                darks[static_cast<std::size_t>(i)].data());
    EXPECT_NE(darks[0], darks[1]); // the noise differs from dark to dark
    std::vector<float> flatDark(n), bias(n);
    model.RenderCalibration(CalibrationKind::FlatDark, 0, flatDark.data());
    model.RenderCalibration(CalibrationKind::Bias, 0, bias.data());

    // Pixels far above bias + column in a dark are exactly the hot pixels, in every dark.
    const double threshold = 10 * t.readNoise + 3 * t.darkCurrent * t.exposure;
    for (int i = 0; i < 3; ++i) {
        std::vector<std::pair<int, int>> found;
        for (int y = 0; y < t.height; ++y)
            for (int x = 0; x < t.width; ++x)
                if (darks[static_cast<std::size_t>(i)][static_cast<std::size_t>(y) * t.width + x] -
                        t.bias - model.ColumnOffset(x) >
                    threshold)
                    found.emplace_back(x, y);
        std::vector<std::pair<int, int>> expected;
        for (const HotPixelTruth& h : t.hotPixels)
            expected.emplace_back(h.x, h.y);
        std::sort(expected.begin(), expected.end());
        std::sort(found.begin(), found.end());
        EXPECT_EQ(found, expected) << "dark " << i;
    }
    // Hot pixel signal scales with exposure: 60 s in the darks, 2 s in the flat dark, none in
    // the bias.
    for (const HotPixelTruth& h : t.hotPixels) {
        const std::size_t k = static_cast<std::size_t>(h.y) * t.width + h.x;
        const double offset = t.bias + model.ColumnOffset(h.x);
        double mean = 0;
        for (const auto& d : darks)
            mean += (d[k] - offset) / 3;
        const double noise = std::sqrt(h.rate * t.exposure / t.gain + 64.0);
        EXPECT_NEAR(mean, h.rate * t.exposure, 4 * noise / std::sqrt(3.0));
        EXPECT_NEAR(flatDark[k] - offset, h.rate * t.flatExposure,
                    4 * std::sqrt(h.rate * t.flatExposure / t.gain + 64.0));
        EXPECT_NEAR(bias[k] - offset, 0.0, 5 * t.readNoise);
    }
    // The bias frame: level plus column pattern, read noise only.
    double sum = 0, sum2 = 0;
    for (int y = 0; y < t.height; ++y)
        for (int x = 0; x < t.width; ++x) {
            const double v =
                bias[static_cast<std::size_t>(y) * t.width + x] - t.bias - model.ColumnOffset(x);
            sum += v;
            sum2 += v * v;
        }
    EXPECT_NEAR(sum / n, 0.0, 0.1);
    EXPECT_NEAR(std::sqrt(sum2 / n), t.readNoise, 0.1);
}

TEST(NightModel, NoiselessDarkIsExactAndTheCalibrationChainRecoversTheSky) {
    NightConfig c = SmallNight();
    c.noiseless = true;
    c.stars = 0;
    NightModel model;
    std::string error;
    ASSERT_TRUE(model.Build(c, &error)) << error;
    const Truth& t = model.truth();
    const std::size_t n = static_cast<std::size_t>(t.width) * t.height;
    std::vector<float> light(n), dark(n), flat(n), flatDark(n);
    model.RenderLight(0, light.data());
    model.RenderCalibration(CalibrationKind::Dark, 0, dark.data());
    model.RenderCalibration(CalibrationKind::Flat, 0, flat.data());
    model.RenderCalibration(CalibrationKind::FlatDark, 0, flatDark.data());
    // (light - dark) / (flat - flat dark) * level = the sky without vignetting or response.
    const FrameTruth& f = t.frames[0];
    const double cx = (t.width - 1) / 2.0, cy = (t.height - 1) / 2.0;
    for (int y = 0; y < t.height; y += 7)
        for (int x = 0; x < t.width; x += 5) {
            const std::size_t k = static_cast<std::size_t>(y) * t.width + x;
            const double sky = (light[k] - dark[k]) / (flat[k] - flatDark[k]) * t.flatLevel;
            const double expected =
                f.skyLevel + f.skyGradient[0] * (x - cx) + f.skyGradient[1] * (y - cy);
            ASSERT_NEAR(sky, expected, 1e-3 * expected) << x << "," << y;
        }
}

TEST(NightModel, TruthJsonRoundTripsInAStableOrder) {
    NightConfig c = SmallNight();
    c.trail = true;
    c.bayer = "GRBG";
    NightModel bad;
    std::string error;
    EXPECT_FALSE(bad.Build(c, &error));
    EXPECT_EQ(error, "unknown colour filter pattern \"GRBG\"");
    c.bayer = "GR,BG";
    NightModel model;
    ASSERT_TRUE(model.Build(c, &error)) << error;
    const Truth& t = model.truth();
    const std::string text = TruthToJson(t);
    // Keys in the documented order.
    std::size_t last = 0;
    for (const char* key : {"\"seed\"", "\"width\"", "\"height\"", "\"frames\"", "\"stars\"",
                            "\"sky\"", "\"bias\"", "\"readNoise\"", "\"gain\"", "\"darkCurrent\"",
                            "\"exposure\"", "\"bayer\"", "\"trailFrame\""}) {
        const std::size_t at = text.find(key, last);
        ASSERT_NE(at, std::string::npos) << key;
        last = at;
    }
    Truth back;
    ASSERT_TRUE(TruthFromJson(text, &back, &error)) << error;
    EXPECT_EQ(TruthToJson(back), text);
    EXPECT_EQ(back.bayer, "GR,BG");
    EXPECT_EQ(back.trailFrame, 1);
    ASSERT_EQ(back.frames.size(), t.frames.size());
    for (std::size_t i = 0; i < t.frames.size(); ++i)
        for (int k = 0; k < 6; ++k)
            EXPECT_EQ(back.frames[i].transform.m[k], t.frames[i].transform.m[k]);
    ASSERT_EQ(back.stars.size(), t.stars.size());
    EXPECT_EQ(back.stars[5].x, t.stars[5].x);
    EXPECT_EQ(back.hotPixels.size(), t.hotPixels.size());

    EXPECT_FALSE(TruthFromJson("{\"seed\": 1", &back, &error));
    EXPECT_FALSE(TruthFromJson("{\"seed\": 1, \"width\": 10, \"height\": 10}", &back, &error));
    EXPECT_EQ(error, "truth has no \"frames\" array");
}

TEST(NightModel, BadConfigurationsAreRefused) {
    struct Case {
        void (*change)(NightConfig&);
        const char* text;
    };
    const Case cases[] = {
        {[](NightConfig& c) { c.format = "png"; },
         "--format must be fits16, fits32, tiff16 or dng"},
        {[](NightConfig& c) {
             c.format = "dng";
             c.bayer = "CYGM,CYMG";
         },
         "--format dng needs a 2x2 Bayer pattern (RG,GB, GR,BG, GB,RG or BG,GR)"},
        {[](NightConfig& c) { c.width = 8; }, "--size must be from 16x16 to 60000x60000"},
        {[](NightConfig& c) {
             c.frames = 1;
             c.meridianFlip = true;
         },
         "--meridian-flip needs at least 2 frames"},
        {[](NightConfig& c) {
             c.frames = 2;
             c.meridianFlip = c.mirror = true;
         },
         "--mirror with --meridian-flip needs at least 3 frames"},
        {[](NightConfig& c) { c.exposure = 0; }, "--exposure must be above 0"},
    };
    for (const Case& k : cases) {
        NightConfig c;
        k.change(c);
        std::string error;
        EXPECT_FALSE(CheckNightConfig(c, &error));
        EXPECT_EQ(error, k.text);
    }
}

TEST(Json, WriterAndReaderAgree) {
    JsonWriter w(0);
    w.BeginObject();
    w.Key("a").Number(0.1);
    w.Key("b\"q").String("x\ny\\");
    w.Key("c").BeginArray().Integer(-3).Bool(true).Null().EndArray();
    w.Key("d").BeginObject().EndObject();
    w.EndObject();
    EXPECT_EQ(w.Text(), "{\"a\":0.1,\"b\\\"q\":\"x\\ny\\\\\",\"c\":[-3,true,null],\"d\":{}}");
    JsonValue v;
    std::string error;
    ASSERT_TRUE(ParseJson(w.Text(), &v, &error)) << error;
    EXPECT_EQ(v.NumberOr("a", 0), 0.1);
    EXPECT_EQ(v.StringOr("b\"q", ""), "x\ny\\");
    ASSERT_EQ(v.Find("c")->items.size(), 3u);
    EXPECT_EQ(JsonNumber(1.0 / 3), "0.3333333333333333");
    EXPECT_FALSE(ParseJson("[1,]", &v, &error));
    EXPECT_FALSE(ParseJson("{} x", &v, &error));
    EXPECT_EQ(error, "extra text at offset 3");
}

} // namespace
} // namespace astrivelle::synth
