// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Normalize Files: NormalizeChannel's two formulas and limits, the set's targets per
/// channel, the unchanged cases, and the fixed texts of the checks.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <vector>

#include "TestSupport.h"
#include "engine/Image.h"
#include "imagesets/NormalizeFiles.h"

namespace astrivelle {
namespace {

template <class Fn>
std::string WriteFits(const test::ScratchDir& dir, const std::string& name, int w, int h,
                      std::uint32_t colorType, Fn fn) {
    Image img;
    test::MakeImage(img, w, h, colorType, fn);
    const std::string path = dir.file(name);
    EXPECT_TRUE(img.WriteFile(path, KindFITS));
    return path;
}

/// A request whose outputs are float FITS, so the numbers come back exactly.
NormalizeRequest FloatRequest(const test::ScratchDir& dir, std::vector<std::string> files) {
    NormalizeRequest r;
    r.ownerName = kNormalizeOwnerPipeline;
    r.saveType = "UNCOMPFIT32";
    r.files = std::move(files);
    r.outputDirectory = dir.file("out");
    return r;
}

TEST(NormalizeChannel, BothFormulasAndTheLimits) {
    struct Case {
        bool byMeanStd;
        double a, b, c, d;
        std::vector<float> in, out;
    };
    const std::vector<Case> cases = {
        // (in - 250) * 50 / 100 + 1000
        {true, 250, 100, 1000, 50, {100, 200, 300, 400}, {925, 975, 1025, 1075}},
        // (in - 100) * (3000 - 0) / (400 - 100) + 0
        {false, 100, 400, 0, 3000, {100, 200, 300, 400}, {0, 1000, 2000, 3000}},
        // (in - 100) * (600 - 200) / (300 - 100) + 200: stretched past both ends, then limited
        {false, 100, 300, 200, 600, {0, 200, 40000, 60000}, {0, 400, 65535, 65535}},
        // a deviation of 0 leaves the plane alone, and so does a flat range
        {true, 250, 0, 1000, 50, {100, 200, 300, 400}, {100, 200, 300, 400}},
        {false, 300, 300, 0, 1000, {100, 200, 300, 400}, {100, 200, 300, 400}},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[i];
        Image img;
        test::MakeImage(img, 2, 2, ColorGray, [&](int, int x, int y) { return c.in[y * 2 + x]; });
        // In place...
        ASSERT_TRUE(
            img.NormalizeChannel(true, nullptr, img.curPlane[0], c.byMeanStd, c.a, c.b, c.c, c.d));
        // ... and from the previous plane into the current one give the same numbers.
        std::vector<float> copy(4, -1.0f);
        ASSERT_TRUE(img.NormalizeChannel(false, img.prevPlane[0], copy.data(), c.byMeanStd, c.a,
                                         c.b, c.c, c.d));
        for (int k = 0; k < 4; ++k) {
            EXPECT_FLOAT_EQ(img.curPlane[0][k], c.out[k]) << "case " << i << " pixel " << k;
            EXPECT_FLOAT_EQ(copy[k], c.out[k]) << "case " << i << " pixel " << k;
            EXPECT_FLOAT_EQ(img.prevPlane[0][k], c.in[k]) << "the source must stay";
        }
    }
    Image img;
    test::MakeImage(img, 2, 2, ColorGray, [](int, int, int) { return 1; });
    EXPECT_FALSE(img.NormalizeChannel(true, nullptr, nullptr, true, 0, 1, 0, 1));
    EXPECT_FALSE(img.NormalizeChannel(false, nullptr, img.curPlane[0], true, 0, 1, 0, 1));
}

TEST(NormalizeFiles, CheckTexts) {
    struct Case {
        NormalizeMode mode;
        NormalizeTarget target;
        double background, deviation, minimum, maximum;
        bool setDeviation;
        const char* text;
    };
    using M = NormalizeMode;
    using T = NormalizeTarget;
    const char* both =
        "Please select an average background level and average standard deviation < 65535";
    const char* range = "Please select minimum range < maximum range and maximum range <= 65535";
    for (const Case& c : {
             Case{M::BrightnessContrast, T::UserDefined, 5120, 2000, 0, 0, false, ""},
             Case{M::BrightnessContrast, T::UserDefined, 65535, 2000, 0, 0, false, both},
             Case{M::BrightnessContrast, T::UserDefined, 5120, 70000, 0, 0, false, both},
             Case{M::BrightnessContrast, T::UserDefined, 5120, 70000, 0, 0, true, ""},
             Case{M::BrightnessContrast, T::UserDefined, 65535, 0, 0, 0, true,
                  "Please select an average background level < 65535"},
             Case{M::Range, T::UserDefined, 0, 0, 100, 65535, false, ""},
             Case{M::Range, T::UserDefined, 0, 0, 100, 100, false, range},
             Case{M::Range, T::UserDefined, 0, 0, 100, 65536, false, range},
             Case{M::Range, T::SetMaximum, 0, 0, 100, 100, false, ""},
         }) {
        NormalizeRequest r;
        r.mode = c.mode;
        r.target = c.target;
        r.background = c.background;
        r.deviation = c.deviation;
        r.minimum = c.minimum;
        r.maximum = c.maximum;
        r.useSetDeviation = c.setDeviation;
        EXPECT_EQ(NormalizeParamsText(r), c.text);
    }

    test::ScratchDir dir;
    const std::string a =
        WriteFits(dir, "a.fit", 8, 8, ColorGray, [](int, int x, int) { return x; });
    test::RecordingNotify notify;
    NormalizeResult r = NormalizeFiles(FloatRequest(dir, {a}), nullptr, &notify);
    EXPECT_FALSE(r.started);
    EXPECT_EQ(r.run.status, kNormalizeTwoImagesText);
    EXPECT_EQ(r.run.status,
              "Normalize operation requires at least two images.\nPlease select at least two "
              "images.");
    // One of two is unreadable: the question about it is asked, then too few are left.
    r = NormalizeFiles(FloatRequest(dir, {a, dir.file("missing.fit")}), nullptr, &notify);
    EXPECT_FALSE(r.started);
    EXPECT_EQ(r.run.status,
              "Normalize operation requires at least two usable images.\nPlease select at "
              "least two images.");
    EXPECT_EQ(notify.questions.size(), 1u);
    EXPECT_EQ(r.step, "Error");
}

TEST(NormalizeFiles, BrightnessContrastToUserValuesAndFlatFramesUnchanged) {
    test::ScratchDir dir;
    const std::string a = WriteFits(dir, "a.fit", 16, 12, ColorGray,
                                    [](int, int x, int y) { return 1000 + 37 * x + 11 * y; });
    const std::string b = WriteFits(dir, "b.fit", 16, 12, ColorGray,
                                    [](int, int x, int y) { return 300 + 5 * ((x * y) % 7); });
    const std::string flat =
        WriteFits(dir, "flat.fit", 16, 12, ColorGray, [](int, int, int) { return 700; });
    NormalizeRequest req = FloatRequest(dir, {a, b, flat});
    req.target = NormalizeTarget::UserDefined;
    test::RecordingProgress progress;
    NormalizeResult r = NormalizeFiles(req, &progress, nullptr);
    ASSERT_TRUE(r.started);
    EXPECT_EQ(r.run.end, FileOpEnd::Completed);
    EXPECT_EQ(r.run.status, "Completed");
    EXPECT_EQ(r.step, "Completed");
    ASSERT_EQ(r.run.outputs.size(), 3u);
    EXPECT_EQ(r.run.outputs[0], dir.file("out/NL_a.fit"));
    EXPECT_EQ(progress.statuses.front(), "Analyze Image Set...");
    EXPECT_NE(std::find(progress.statuses.begin(), progress.statuses.end(), "Normalizing Files..."),
              progress.statuses.end());
    for (int i = 0; i < 2; ++i) {
        Image out;
        ASSERT_TRUE(out.ReadFile(r.run.outputs[i], ".fit"));
        EXPECT_NEAR(out.MeanOfPlane(out.curPlane[0]), 5120.0, 1e-2);
        EXPECT_NEAR(out.StdDevOfPlane(out.curPlane[0]), 2000.0, 1e-2);
    }
    // A deviation of 0: the frame keeps its level (no shift to the target mean either).
    Image out;
    ASSERT_TRUE(out.ReadFile(r.run.outputs[2], ".fit"));
    EXPECT_EQ(out.MinOfPlane(out.curPlane[0]), 700.0);
    EXPECT_EQ(out.MaxOfPlane(out.curPlane[0]), 700.0);
    // The inputs were not touched.
    Image in;
    ASSERT_TRUE(in.ReadFile(a, ".fit"));
    EXPECT_EQ(in.curPlane[0][0], 1000.0f);
}

TEST(NormalizeFiles, RangeSetMinimumTakesEachChannelsOwnTarget) {
    test::ScratchDir dir;
    // Per slot: the ramp's low and high end along x.
    const double loA[3] = {100, 200, 300}, hiA[3] = {1100, 2200, 3300};
    const double loB[3] = {50, 400, 300}, hiB[3] = {2050, 1400, 5300};
    auto ramp = [](const double* lo, const double* hi) {
        return [lo, hi](int s, int x, int) { return lo[s] + (hi[s] - lo[s]) * x / 10.0; };
    };
    const std::string a = WriteFits(dir, "a.fit", 11, 4, ColorRGB, ramp(loA, hiA));
    const std::string b = WriteFits(dir, "b.fit", 11, 4, ColorRGB, ramp(loB, hiB));
    const std::string flat =
        WriteFits(dir, "flat.fit", 11, 4, ColorRGB, [](int s, int, int) { return 900 + s; });
    NormalizeRequest req = FloatRequest(dir, {a, b, flat});
    req.mode = NormalizeMode::Range;
    req.target = NormalizeTarget::SetMinimum;
    NormalizeResult r = NormalizeFiles(req, nullptr, nullptr);
    ASSERT_EQ(r.run.outputs.size(), 3u);
    // The smallest minimum and the smallest maximum of each channel (the flat frame counts).
    const double want[3][2] = {{50, 900}, {200, 901}, {300, 902}};
    for (int s = 0; s < 3; ++s) {
        EXPECT_EQ(r.targets[s][0], want[s][0]) << "slot " << s;
        EXPECT_EQ(r.targets[s][1], want[s][1]) << "slot " << s;
    }
    for (int i = 0; i < 2; ++i) {
        Image out;
        ASSERT_TRUE(out.ReadFile(r.run.outputs[i], ".fit"));
        ASSERT_EQ(out.colorType, ColorRGB);
        for (int s = 0; s < 3; ++s) {
            EXPECT_FLOAT_EQ(out.curPlane[s][0], want[s][0]) << "file " << i << " slot " << s;
            EXPECT_FLOAT_EQ(out.curPlane[s][10], want[s][1]) << "file " << i << " slot " << s;
            // Half way along the ramp is half way in the target range.
            EXPECT_NEAR(out.curPlane[s][5], (want[s][0] + want[s][1]) / 2, 1e-3);
        }
    }
    // Minimum equal to maximum: unchanged.
    Image out;
    ASSERT_TRUE(out.ReadFile(r.run.outputs[2], ".fit"));
    for (int s = 0; s < 3; ++s)
        EXPECT_EQ(out.curPlane[s][7], 900.0f + s);
}

TEST(NormalizeFiles, TargetsOfTheSetChoices) {
    NormalizeChannelSet set;
    set.count = 4;
    set.largest = {400, 40};
    set.smallest = {100, 10};
    set.sum = {1000, 100};
    NormalizeRequest r;
    r.target = NormalizeTarget::SetMaximum;
    EXPECT_EQ(NormalizeTargetOf(r, set), (std::array<double, 2>{400, 40}));
    r.target = NormalizeTarget::SetAverage;
    EXPECT_EQ(NormalizeTargetOf(r, set), (std::array<double, 2>{250, 25}));
    r.target = NormalizeTarget::SetMinimum;
    EXPECT_EQ(NormalizeTargetOf(r, set), (std::array<double, 2>{100, 10}));
    r.target = NormalizeTarget::UserDefined;
    EXPECT_EQ(NormalizeTargetOf(r, set), (std::array<double, 2>{5120, 2000}));
    r.useSetDeviation = true;
    EXPECT_EQ(NormalizeTargetOf(r, set), (std::array<double, 2>{5120, 25}));
    r.mode = NormalizeMode::Range;
    r.minimum = 10;
    r.maximum = 60000;
    EXPECT_EQ(NormalizeTargetOf(r, set), (std::array<double, 2>{10, 60000}));
}

TEST(NormalizeFiles, NothingWrittenGivesNoImagesProcessed) {
    test::ScratchDir dir;
    const std::string a =
        WriteFits(dir, "a.fit", 8, 8, ColorGray, [](int, int x, int) { return 10 * x; });
    const std::string b =
        WriteFits(dir, "b.fit", 8, 8, ColorGray, [](int, int, int y) { return 20 * y; });
    // Output folder = input folder and no prefix: an output would replace its input.
    NormalizeRequest req = FloatRequest(dir, {a, b});
    req.outputDirectory = dir.path().string();
    req.prefix = "";
    test::RecordingNotify notify;
    NormalizeResult r = NormalizeFiles(req, nullptr, &notify);
    EXPECT_TRUE(r.run.outputs.empty());
    EXPECT_EQ(r.run.status, "No Images Processed");
    EXPECT_EQ(r.step, "Error");
    EXPECT_EQ(r.run.failures.size(), 2u);
    Image in;
    ASSERT_TRUE(in.ReadFile(b, ".fit"));
    EXPECT_EQ(in.curPlane[0][7 * 8], 140.0f);
}

TEST(NormalizeFiles, CancelWritesNothing) {
    test::ScratchDir dir;
    const std::string a =
        WriteFits(dir, "a.fit", 8, 8, ColorGray, [](int, int x, int) { return 10 * x; });
    const std::string b =
        WriteFits(dir, "b.fit", 8, 8, ColorGray, [](int, int, int y) { return 20 * y; });
    test::RecordingProgress progress;
    progress.RequestCancel();
    NormalizeResult r = NormalizeFiles(FloatRequest(dir, {a, b}), &progress, nullptr);
    EXPECT_EQ(r.run.end, FileOpEnd::Cancelled);
    EXPECT_EQ(r.run.status, "Thread Canceled");
    EXPECT_TRUE(r.run.outputs.empty());
    EXPECT_FALSE(std::filesystem::exists(dir.file("out/NL_a.fit")));
}

TEST(NormalizeFiles, SecondRunIsBusy) {
    FileOpBusy held(FileOpKind::Normalize);
    ASSERT_TRUE(held.Acquired());
    NormalizeResult r = NormalizeFiles(NormalizeRequest{}, nullptr, nullptr);
    EXPECT_EQ(r.run.status, "Normalize Files Is Currently Busy.");
}

} // namespace
} // namespace astrivelle
