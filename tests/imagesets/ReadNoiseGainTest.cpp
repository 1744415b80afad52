// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Read noise and gain: frames made with a known gain and read noise are measured back,
/// for a mono sensor, a converter of fewer bits, and per colour of a mosaic.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "TestSupport.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "imagesets/ReadNoiseGain.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

constexpr double kGain = 1.5;      // electrons per ADU
constexpr double kReadNoise = 8.0; // ADU
constexpr int kW = 400, kH = 300;

/// A frame of the sensor: `level` ADU of light shaded by a fixed vignetting and pixel response,
/// photon noise at kGain, read noise, and a bias of 1000 with a fixed column pattern; all on
/// the 16-bit scale multiplied by `scale` (16 for a 12-bit converter).
void WriteFrame(const std::string& path, double level, unsigned seed, double scale = 1.0) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> normal(0, 1);
    Image img;
    MakeImage(img, kW, kH, ColorGray, [&](int, int x, int y) {
        const double shade =
            1.0 - 0.2 * ((x - 200.0) * (x - 200.0) + (y - 150.0) * (y - 150.0)) / (250.0 * 250.0) +
            0.01 * std::sin(x * 0.7) * std::cos(y * 1.3);
        const double mean = level * shade;
        const double column = 5.0 * std::sin(x * 0.37);
        const double v =
            mean + std::sqrt(mean / kGain + kReadNoise * kReadNoise) * normal(rng) + 1000 + column;
        return v * scale;
    });
    img.SetGeometryFits(KindFITS, ColorGray, 0, DataFloat, kW, kH);
    ASSERT_TRUE(img.WriteFile(path, KindFITS)) << LastFileError();
}

struct Frames {
    ScratchDir dir;
    ReadNoiseGainRequest request;
    explicit Frames(double scale = 1.0, double level = 20000) {
        request.flat1 = dir.file("flat1.fit");
        request.flat2 = dir.file("flat2.fit");
        request.bias1 = dir.file("bias1.fit");
        request.bias2 = dir.file("bias2.fit");
        WriteFrame(request.flat1, level, 1, scale);
        WriteFrame(request.flat2, level, 2, scale);
        WriteFrame(request.bias1, 0, 3, scale);
        WriteFrame(request.bias2, 0, 4, scale);
    }
};

} // namespace

TEST(ReadNoiseGain, MonoFramesGiveTheTrueGainAndReadNoise) {
    Frames f;
    f.request.frameType = "CCD";
    f.request.adcBits = 16;
    RecordingProgress progress;
    const ReadNoiseGainResult r = ComputeReadNoiseGain(f.request, &progress);
    ASSERT_TRUE(r.ok) << r.status;
    ASSERT_EQ(r.rows.size(), 1u);
    EXPECT_EQ(r.rows[0].name, "Luminance");
    EXPECT_NEAR(r.rows[0].gain, kGain, kGain * 0.03);
    EXPECT_NEAR(r.rows[0].readNoise, kGain * kReadNoise, kGain * kReadNoise * 0.03);
    EXPECT_EQ(progress.statuses,
              (std::vector<std::string>{
                  "Processing flat frames...", "Checking flat frame width, height, and type...",
                  "Compute flat data...", "Processing bias frames...",
                  "Checking Bias frame width, height, and type...", "Compute Bias data..."}));
}

TEST(ReadNoiseGain, TwelveBitConverterCountsInItsOwnUnits) {
    Frames f(16.0, 2000); // 12-bit counts stored on the 16-bit scale, below saturation
    f.request.frameType = "CCD";
    f.request.adcBits = 12;
    const ReadNoiseGainResult r = ComputeReadNoiseGain(f.request, nullptr);
    ASSERT_TRUE(r.ok) << r.status;
    // One count of the converter is 16 ADU of the scale: the gain per count is the same
    // electrons per original ADU, and the read noise in electrons does not change.
    EXPECT_NEAR(r.rows[0].gain, kGain, kGain * 0.03);
    EXPECT_NEAR(r.rows[0].readNoise, kGain * kReadNoise, kGain * kReadNoise * 0.03);
    // Measured as 16-bit data the gain is 16 times smaller.
    f.request.adcBits = 16;
    const ReadNoiseGainResult wrong = ComputeReadNoiseGain(f.request, nullptr);
    ASSERT_TRUE(wrong.ok);
    EXPECT_NEAR(wrong.rows[0].gain * 16, r.rows[0].gain, r.rows[0].gain * 1e-3);
}

TEST(ReadNoiseGain, MosaicIsMeasuredPerColour) {
    Frames f;
    f.request.frameType = "OSCCCD";
    f.request.adcBits = 16;
    f.request.cfaPattern = "RG,GB";
    RecordingProgress progress;
    const ReadNoiseGainResult r = ComputeReadNoiseGain(f.request, &progress);
    ASSERT_TRUE(r.ok) << r.status;
    ASSERT_EQ(r.rows.size(), 3u);
    const char* names[] = {"Red", "Green", "Blue"};
    for (int c = 0; c < 3; ++c) {
        SCOPED_TRACE(names[c]);
        EXPECT_EQ(r.rows[c].name, names[c]);
        // Red and blue have a quarter of the pixels: a wider but still small spread.
        EXPECT_NEAR(r.rows[c].gain, kGain, kGain * 0.03);
        EXPECT_NEAR(r.rows[c].readNoise, kGain * kReadNoise, kGain * kReadNoise * 0.03);
    }
    EXPECT_NE(
        std::find(progress.statuses.begin(), progress.statuses.end(), "Compute Bias green data..."),
        progress.statuses.end());
}

TEST(ReadNoiseGain, FailuresAndSelectionTexts) {
    Frames f;
    std::string text;
    EXPECT_TRUE(CheckDistinctFrames(f.request, &text));
    ReadNoiseGainRequest same = f.request;
    same.flat2 = same.flat1;
    EXPECT_FALSE(CheckDistinctFrames(same, &text));
    EXPECT_EQ(text, "Please select a Flat 1 frame that is different than Flat 2.");
    same = f.request;
    same.bias2 = same.flat1;
    EXPECT_FALSE(CheckDistinctFrames(same, &text));
    EXPECT_EQ(text, "Please select a Flat 1 frame that is different than Bias 2.");

    ReadNoiseGainRequest bad = f.request;
    bad.flat2 = f.dir.file("missing.fit");
    ReadNoiseGainResult r = ComputeReadNoiseGain(bad, nullptr);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.status, "Error reading Flat 2");

    Image img;
    MakeImage(img, 10, 10, ColorGray, [](int, int, int) { return 5.0; });
    ASSERT_TRUE(img.WriteFile(f.dir.file("tiny.fit"), KindFITS));
    bad = f.request;
    bad.bias2 = f.dir.file("tiny.fit");
    r = ComputeReadNoiseGain(bad, nullptr);
    EXPECT_EQ(r.status, "Bias 2 width or height does not match Flats");
    bad = f.request;
    bad.flat1 = f.dir.file("tiny.fit");
    r = ComputeReadNoiseGain(bad, nullptr);
    EXPECT_EQ(r.status, "Flat 1 width or height does not match Flat 2");

    Image rgb;
    MakeImage(rgb, kW, kH, ColorRGB, [](int, int, int) { return 5.0; });
    ASSERT_TRUE(rgb.WriteFile(f.dir.file("rgb.fit"), KindFITS));
    bad = f.request;
    bad.flat2 = f.dir.file("rgb.fit");
    r = ComputeReadNoiseGain(bad, nullptr);
    EXPECT_EQ(r.status, "Flat 2 is not a single channel image.");
    bad.frameType = "DSLR";
    r = ComputeReadNoiseGain(bad, nullptr);
    EXPECT_EQ(r.status, "Flat 2 is not a single channel Bayer image.");

    RecordingProgress cancelled;
    cancelled.RequestCancel();
    r = ComputeReadNoiseGain(f.request, &cancelled);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.status, "Thread Canceled");
}

TEST(ReadNoiseGain, PedestalMovesTheMeansByItsShareOnly) {
    const std::size_t n = 1000000;
    std::vector<float> a(n, 3000.0f), b(n, 3000.0f);
    b[0] = 3002.0f;
    PairMeasure plain, withPedestal;
    ASSERT_TRUE(MeasurePair(a.data(), b.data(), n, 1.0, 0, &plain));
    ASSERT_TRUE(MeasurePair(a.data(), b.data(), n, 1.0, 1000, &withPedestal));
    EXPECT_NEAR(plain.mean1 - withPedestal.mean1, 0.001, 1e-9);
    EXPECT_NEAR(plain.mean2 - withPedestal.mean2, 0.001, 1e-9);
    EXPECT_NEAR(withPedestal.sigma, plain.sigma, 1e-9);
    // Identical frames: the spread is 0 and the gain is the bare quotient.
    PairMeasure flats{20000, 20000, 0}, bias{1000, 1000, 10};
    double gain = 0, noise = 0;
    GainAndReadNoise(flats, bias, &gain, &noise);
    EXPECT_DOUBLE_EQ(gain, 38000.0 / -100.0);
    EXPECT_DOUBLE_EQ(noise, gain * 10 / std::sqrt(2.0));
    EXPECT_EQ(FormatGainValue(1.23456), "1.235");
    EXPECT_EQ(CountFactorOfAdc(8), 256.0);
    EXPECT_EQ(CountFactorOfAdc(14), 4.0);
    EXPECT_EQ(CountFactorOfAdc(11), 0.0);
}
