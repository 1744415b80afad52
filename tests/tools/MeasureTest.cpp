// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Measures against a night's truth: FWHM of noiseless frames, completeness and
/// position error of star lists, corner error of transforms, noise and SNR gain of averages,
/// and the measure command.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "tools/synth/Json.h"
#include "tools/synth/Measure.h"
#include "tools/synth/NightModel.h"

namespace astrivelle::synth {
namespace {

const std::string kSynth = ASTRIVELLE_SYNTH;

NightConfig Config(bool noiseless) {
    NightConfig c;
    c.width = 600;
    c.height = 400;
    c.frames = 3;
    c.seed = 11;
    c.noiseless = noiseless;
    return c;
}

std::vector<StarPoint> TruthList(const Truth& t, int frame, double dx) {
    std::vector<StarPoint> out;
    for (const StarTruth& s : t.stars) {
        StarPoint p;
        t.frames[static_cast<std::size_t>(frame)].transform.Apply(s.x, s.y, &p.x, &p.y);
        p.x += dx;
        out.push_back(p);
    }
    return out;
}

TEST(Measure, NoiselessFramesGiveTheTruth) {
    NightModel model;
    std::string error;
    ASSERT_TRUE(model.Build(Config(true), &error)) << error;
    const Truth& t = model.truth();
    std::vector<float> plane(600 * 400);
    for (int frame : {0, 1}) {
        SCOPED_TRACE("frame " + std::to_string(frame));
        model.RenderLight(frame, plane.data());
        const auto exact = TruthList(t, frame, 0);
        MeasureRequest req;
        req.image = plane.data();
        req.frame = frame;
        req.stars = &exact;
        MeasureResult r;
        ASSERT_TRUE(Measure(t, req, &r, &error)) << error;
        ASSERT_TRUE(r.fwhm.has_value());
        EXPECT_GE(r.fwhmStars, 5);
        EXPECT_NEAR(*r.fwhm, t.frames[static_cast<std::size_t>(frame)].fwhm,
                    0.05 * t.frames[static_cast<std::size_t>(frame)].fwhm);
        ASSERT_TRUE(r.completeness.has_value());
        EXPECT_EQ(*r.completeness, 1.0);
        EXPECT_GT(r.eligibleStars, 20);
        EXPECT_LT(r.eligibleStars, static_cast<int>(t.stars.size()));
        EXPECT_LT(*r.positionError, 0.05);
        EXPECT_FALSE(r.snrGain.has_value());
        EXPECT_FALSE(r.cornerError.has_value());

        // A list 0.3 px off matches every star at 0.3 px; one 2 px off matches only where
        // another star's shifted place happens to fall near.
        const auto off = TruthList(t, frame, 0.3), far = TruthList(t, frame, 2.0);
        req.stars = &off;
        ASSERT_TRUE(Measure(t, req, &r, &error));
        EXPECT_EQ(*r.completeness, 1.0);
        EXPECT_NEAR(*r.positionError, 0.3, 1e-9);
        req.stars = &far;
        ASSERT_TRUE(Measure(t, req, &r, &error));
        EXPECT_LT(*r.completeness, 0.1);
        if (r.positionError) {
            EXPECT_GT(*r.positionError, 0.3);
        }
    }
}

TEST(Measure, CornerErrorOfTransforms) {
    NightModel model;
    std::string error;
    ASSERT_TRUE(model.Build(Config(true), &error)) << error;
    const Truth& t = model.truth();
    Affine inverse;
    ASSERT_TRUE(t.frames[2].transform.Inverse(&inverse));
    EXPECT_LT(CornerError(t, 2, inverse), 1e-9);
    Affine shifted = inverse;
    shifted.m[2] += 0.5;
    shifted.m[5] -= 1.2;
    EXPECT_NEAR(CornerError(t, 2, shifted), 1.3, 1e-9);
    // The identity for a moved frame is off by the motion, worst at some corner.
    Affine identity;
    const double e = CornerError(t, 2, identity);
    EXPECT_GE(e, std::hypot(t.frames[2].dx, t.frames[2].dy) - 1e-9);
    // A scale error of 1e-3 about the origin is worst at the far corner.
    Affine scaled = inverse;
    for (int k = 0; k < 6; ++k)
        scaled.m[k] *= 1.001;
    double fx, fy;
    inverse.Apply(599, 399, &fx, &fy);
    EXPECT_NEAR(CornerError(t, 2, scaled), 0.001 * std::hypot(fx, fy), 1e-6);
}

TEST(Measure, NoiseAndSnrGainOfAnAverage) {
    NightConfig c = Config(false);
    c.motion = false;
    c.frames = 4;
    NightModel model;
    std::string error;
    ASSERT_TRUE(model.Build(c, &error)) << error;
    const Truth& t = model.truth();
    const std::size_t n = 600 * 400;
    std::vector<float> bias(n), single(n), frame(n), mean(n, 0.0f);
    model.RenderCalibration(CalibrationKind::Bias, 0, bias.data());
    EXPECT_NEAR(RobustNoise(t, 0, bias.data()), std::hypot(t.readNoise, t.columnSigma), 0.4);
    for (int i = 0; i < 4; ++i) {
        model.RenderLight(i, frame.data());
        if (i == 0)
            single = frame;
        for (std::size_t k = 0; k < n; ++k)
            mean[k] += frame[k] / 4;
    }
    MeasureRequest req;
    req.image = single.data();
    req.reference = single.data();
    MeasureResult r;
    ASSERT_TRUE(Measure(t, req, &r, &error)) << error;
    EXPECT_EQ(*r.snrGain, 1.0);
    EXPECT_GT(r.snrStars, 5);
    // Sky ~800 ADU: photon noise 23 ADU, read 8, columns 3 (fixed, so they do not average).
    EXPECT_NEAR(*r.noise, 24.0, 3.0);
    req.image = mean.data();
    const MeasureResult one = r;
    ASSERT_TRUE(Measure(t, req, &r, &error)) << error;
    EXPECT_NEAR(*r.noise, std::sqrt(one.noise.value() * one.noise.value() / 4 + 9 * 0.75), 1.5);
    EXPECT_GT(*r.snrGain, 1.6);
    EXPECT_LT(*r.snrGain, 2.4);

    MeasureRequest bad;
    bad.image = single.data();
    bad.frame = 4;
    EXPECT_FALSE(Measure(t, bad, &r, &error));
    EXPECT_EQ(error, "frame 4 is not in the truth (0 to 3)");
}

TEST(Measure, StarListsAndTransformTexts) {
    test::ScratchDir dir;
    const std::string path = dir.file("stars.txt");
    std::ofstream(path) << "# x y\n1.5 2.25\n\n  3 4 # bright\n";
    std::vector<StarPoint> stars;
    std::string error;
    ASSERT_TRUE(ReadStarList(path, &stars, &error)) << error;
    ASSERT_EQ(stars.size(), 2u);
    EXPECT_EQ(stars[0].x, 1.5);
    EXPECT_EQ(stars[1].y, 4.0);
    std::ofstream(path) << "1 2\n3\n";
    EXPECT_FALSE(ReadStarList(path, &stars, &error));
    EXPECT_EQ(error, path + ":2: expected \"x y\"");

    Affine a;
    EXPECT_TRUE(ParseAffine("1,0,2.5,0,1,-3", &a));
    EXPECT_EQ(a.m[2], 2.5);
    EXPECT_EQ(a.m[5], -3.0);
    for (const char* bad : {"1,0,2,0,1", "1,0,2,0,1,0,0", "1;0;2;0;1;0", "a,0,0,0,1,0"})
        EXPECT_FALSE(ParseAffine(bad, &a)) << bad;
}

TEST(Measure, CommandPrintsJson) {
    test::ScratchDir dir;
    const std::string d = dir.file("n");
    std::string out;
    ASSERT_EQ(test::RunCommand(kSynth + " night --out " + d +
                                   " --size 500x400 --frames 2 --noiseless --format fits32"
                                   " --darks 0 --flats 0 --flat-darks 0 --bias 0",
                               &out),
              0)
        << out;
    Truth t;
    std::string error_;
    ASSERT_TRUE(ReadTruth(d + "/truth.json", &t, &error_)) << error_;
    Affine inverse;
    ASSERT_TRUE(t.frames[1].transform.Inverse(&inverse));
    char transform[256];
    std::snprintf(transform, sizeof transform, "%.17g,%.17g,%.17g,%.17g,%.17g,%.17g", inverse.m[0],
                  inverse.m[1], inverse.m[2] + 3, inverse.m[3], inverse.m[4], inverse.m[5] + 4);
    const std::string base = kSynth + " measure --truth " + d + "/truth.json --image " + d + "/" +
                             t.frames[1].file + " --frame 1";
    ASSERT_EQ(test::RunCommand(base + " --json --transform " + transform + " 2>&1", &out), 0)
        << out;
    JsonValue v;
    ASSERT_TRUE(ParseJson(out, &v, &error_)) << out;
    EXPECT_NEAR(v.NumberOr("cornerError", -1), 5.0, 1e-6);
    EXPECT_NEAR(v.NumberOr("fwhm", -1), t.frames[1].fwhm, 0.05 * t.frames[1].fwhm);
    EXPECT_EQ(v.Find("snrGain")->type, JsonValue::Null);
    EXPECT_EQ(v.Find("completeness")->type, JsonValue::Null);

    ASSERT_EQ(test::RunCommand(base, &out), 0) << out;
    EXPECT_NE(out.find("completeness   -"), std::string::npos) << out;
    EXPECT_NE(out.find("fwhm"), std::string::npos) << out;

    const struct {
        std::string args;
        int status;
        std::string text;
    } cases[] = {
        {" --truth " + d + "/truth.json", 2, "--truth FILE and --image FILE are needed"},
        {" --truth " + d + "/truth.json --image " + d + "/" + t.frames[0].file + " --frame 5", 1,
         "frame 5 is not in the truth (0 to 1)"},
        {" --truth " + d + "/truth.json --image " + d + "/" + t.frames[0].file +
             " --transform 1,2,3",
         2, "--transform must be six numbers"},
        {" --truth " + d + "/none.json --image x.fit", 1, "cannot open " + d + "/none.json"},
    };
    for (const auto& k : cases) {
        EXPECT_EQ(test::RunCommand(kSynth + " measure" + k.args, &out), k.status) << k.args;
        EXPECT_NE(out.find(k.text), std::string::npos) << k.args << ": " << out;
    }
}

} // namespace
} // namespace astrivelle::synth
