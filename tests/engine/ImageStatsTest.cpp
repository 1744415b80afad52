// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Level rounding, channel statistics, the fast statistics pass against a plain
/// single-threaded oracle, and the histograms.
#include <gtest/gtest.h>
#include <tbb/task_arena.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "TestSupport.h"
#include "engine/Image.h"

namespace astrivelle {
namespace {

TEST(RoundLevel, Table) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        double in;
        int out;
    } cases[] = {
        {0.0, 0},         {0.5, 0},         {0.51, 1},     {1.5, 1},   {1.51, 2},
        {-0.4, 0},        {-0.6, 0},        {-3.7, 0},     {-1e12, 0}, {65534.6, 65535},
        {65535.4, 65535}, {70000.0, 65535}, {1e12, 65535}, {nan, 0},   {12345.0, 12345},
    };
    for (const Case& c : cases)
        EXPECT_EQ(RoundLevel(c.in), c.out) << "input " << c.in;
    EXPECT_EQ(RoundLevel(300.7, 10, 200), 200);
    EXPECT_EQ(RoundLevel(3.7, 10, 200), 10);
}

Image& Mono(Image& img, int w, int h, const std::vector<float>& v, std::uint32_t type = ColorGray) {
    test::MakeImage(img, w, h, type, [&](int, int x, int y) { return v[y * w + x]; });
    return img;
}

TEST(ComputeStatistics, OnePixel) {
    Image img;
    Mono(img, 1, 1, {5.8f}).ComputeStatistics();
    EXPECT_EQ(img.redStats.stdDev, 0.0);
    EXPECT_EQ(img.redStats.median, 5u); // truncated, not rounded
    EXPECT_EQ(img.redStats.entropy, 0.0);
    EXPECT_EQ(img.redStats.entropyRatio, -1.0);
    EXPECT_EQ(img.redStats.max, static_cast<double>(5.8f));
    EXPECT_EQ(img.redStats.min, static_cast<double>(5.8f));
    EXPECT_EQ(img.redStats.mean, static_cast<double>(5.8f));
}

TEST(ComputeStatistics, AllZero) {
    Image img;
    Mono(img, 4, 3, std::vector<float>(12, 0.0f)).ComputeStatistics();
    EXPECT_EQ(img.redStats.min, 0.0);
    EXPECT_EQ(img.redStats.max, 0.0);
    EXPECT_EQ(img.redStats.mean, 0.0);
    EXPECT_EQ(img.redStats.median, 0u);
    EXPECT_EQ(img.redStats.stdDev, 0.0);
    EXPECT_EQ(img.redStats.entropy, 0.0);
    EXPECT_EQ(img.redStats.entropyRatio, -1.0);
    EXPECT_EQ(img.histogram[0], 12u);
    EXPECT_EQ(img.histogramPeak, 12);
}

TEST(ComputeStatistics, KnownSmallPlane) {
    // Values 1 2 2 / 3 7 9: mean 4, squared deviations 52, median level 2 (running count
    // reaches exactly 50 per cent there), bins of 1/6 x4 and 2/6.
    Image img;
    Mono(img, 3, 2, {1, 2, 2, 3, 7, 9}).ComputeStatistics();
    const ChannelStats& s = img.redStats;
    EXPECT_EQ(s.min, 1.0);
    EXPECT_EQ(s.max, 9.0);
    EXPECT_DOUBLE_EQ(s.mean, 4.0);
    EXPECT_EQ(s.median, 2u);
    EXPECT_DOUBLE_EQ(s.stdDev, std::sqrt(52.0 / 5.0));
    const double entropy = 4.0 / 6.0 * std::log(6.0) + std::log(3.0) / 3.0;
    EXPECT_NEAR(s.entropy, entropy, 1e-12);
    // Running probability reaches 0.5 at level 2: S = (1/6) ln(1/6) + (1/3) ln(1/3).
    const double partial = std::log(1.0 / 6.0) / 6.0 + std::log(1.0 / 3.0) / 3.0;
    EXPECT_NEAR(s.entropyRatio, -partial / entropy, 1e-12);
    EXPECT_GT(s.entropyRatio, 0.0);
}

TEST(ComputeStatistics, MedianTruncatesWhileHistogramRounds) {
    Image img;
    Mono(img, 3, 1, {2.7f, 2.7f, 2.7f}).ComputeStatistics();
    EXPECT_EQ(img.redStats.median, 2u);
    EXPECT_EQ(img.histogram[3], 3u);
    EXPECT_EQ(img.histogram[2], 0u);
}

TEST(ComputeStatistics, NegativeMinimumRaisedToZero) {
    Image img;
    Mono(img, 2, 1, {-5.0f, 10.0f}).ComputeStatistics();
    EXPECT_EQ(img.redStats.min, 0.0);
    EXPECT_EQ(img.redStats.max, 10.0);
    EXPECT_DOUBLE_EQ(img.redStats.mean, 2.5);
}

TEST(ComputeStatistics, RgbFillsAllFourBlocks) {
    Image img;
    const float r[] = {1, 2, 3, 4}, g[] = {10, 0, 0, 0}, b[] = {0, 0, 0, 100};
    test::MakeImage(img, 2, 2, ColorRGB, [&](int s, int x, int y) {
        const float* p = s == 0 ? r : (s == 1 ? g : b);
        return p[y * 2 + x];
    });
    img.ComputeStatistics();
    EXPECT_DOUBLE_EQ(img.redStats.mean, 2.5);
    EXPECT_EQ(img.greenStats.max, 10.0);
    EXPECT_EQ(img.blueStats.max, 100.0);
    EXPECT_EQ(img.blueStats.median, 0u);
    // Value = max of the three: 10 2 3 100.
    EXPECT_EQ(img.valueStats.max, 100.0);
    EXPECT_EQ(img.valueStats.min, 2.0);
    EXPECT_DOUBLE_EQ(img.valueStats.mean, 28.75);
    EXPECT_EQ(img.valueStats.median, 3u);
    // The histogram left behind is the value histogram.
    EXPECT_EQ(img.histogram[100], 1u);
    EXPECT_EQ(img.histogram[10], 1u);
}

TEST(ComputeStatistics, MonoTypeFillsOnlyItsBlock) {
    struct Case {
        std::uint32_t type;
        int filled; // 0 red, 1 green, 2 blue
    } cases[] = {{ColorGreen, 1}, {ColorMagenta, 1}, {ColorRed, 0}, {ColorCyan, 0},
                 {ColorBlue, 2},  {ColorYellow, 2},  {ColorGray, 0}};
    for (const Case& c : cases) {
        Image img;
        Mono(img, 2, 1, {100.0f, 300.0f}, c.type);
        ChannelStats* blocks[] = {&img.redStats, &img.greenStats, &img.blueStats, &img.valueStats};
        for (ChannelStats* b : blocks)
            b->mean = -7.0;
        img.ComputeStatistics();
        for (int k = 0; k < 4; ++k)
            EXPECT_EQ(blocks[k]->mean, k == c.filled ? 200.0 : -7.0)
                << "type " << c.type << " block " << k;
    }
}

// ---- the fast pass against a plain oracle -------------------------------------------------

/// The statistics of one channel computed the plain way on one thread: sums are row sums
/// (left to right, in double) added top to bottom; the temporary histogram counts the
/// truncated level clamped to 0..65535; the full histogram counts RoundLevel.
ChannelStats Oracle(const std::vector<double>& px, int w, int h, bool valueHistogram,
                    std::vector<std::uint32_t>* full) {
    ChannelStats s;
    const double n = static_cast<double>(w) * h;
    std::vector<std::uint32_t> hist(65536, 0);
    full->assign(65536, 0);
    double mn = px[0], mx = px[0], sum = 0;
    for (int y = 0; y < h; ++y) {
        double row = 0;
        for (int x = 0; x < w; ++x) {
            const double p = px[y * w + x];
            row += p;
            mn = std::min(mn, p);
            mx = std::max(mx, p);
            const int t = p <= 0 ? 0 : (p >= 65535 ? 65535 : static_cast<int>(p));
            ++hist[t];
            ++(*full)[valueHistogram ? t : RoundLevel(p)];
        }
        sum += row;
    }
    s.min = mn < 0 ? 0 : mn;
    s.max = mx;
    s.mean = sum / n;
    double running = 0;
    for (int b = 0; b < 65536; ++b) {
        running += hist[b];
        if (running * 100.0 / n >= 50.0) {
            s.median = b;
            break;
        }
    }
    double sq = 0;
    for (int y = 0; y < h; ++y) {
        double row = 0;
        for (int x = 0; x < w; ++x) {
            const double d = px[y * w + x] - s.mean;
            row += d * d;
        }
        sq += row;
    }
    s.stdDev = (n == 1 || sq == 0) ? 0 : std::sqrt(sq / (n - 1));
    double e = 0;
    for (int b = 0; b < 65536; ++b)
        if ((*full)[b]) {
            const double p = (*full)[b] / n;
            e += p * std::log(p);
        }
    s.entropy = -e;
    if (s.entropy == 0) {
        s.entropy = 0;
        s.entropyRatio = -1.0;
    } else {
        double part = 0, run = 0;
        for (int b = 0; b < 65536; ++b)
            if ((*full)[b]) {
                const double p = (*full)[b] / n;
                part += p * std::log(p);
                run += (*full)[b];
                if (run / n >= 0.5)
                    break;
            }
        s.entropyRatio = -(part / s.entropy);
    }
    return s;
}

void ExpectSame(const ChannelStats& a, const ChannelStats& b, const char* what) {
    EXPECT_EQ(a.min, b.min) << what;
    EXPECT_EQ(a.max, b.max) << what;
    EXPECT_EQ(a.mean, b.mean) << what;
    EXPECT_EQ(a.median, b.median) << what;
    EXPECT_EQ(a.stdDev, b.stdDev) << what;
    EXPECT_EQ(a.entropy, b.entropy) << what;
    EXPECT_EQ(a.entropyRatio, b.entropyRatio) << what;
}

TEST(ComputeStatistics, FastPassMatchesOracleBitForBit) {
    const int w = 211, h = 157;
    std::mt19937 rng(42);
    std::uniform_real_distribution<float> wide(-2000.0f, 80000.0f);
    std::normal_distribution<float> peak(3000.0f, 150.0f);
    std::vector<float> planes[3];
    for (auto& p : planes) {
        p.resize(w * h);
        for (float& v : p)
            v = (rng() % 3 == 0) ? wide(rng) : peak(rng);
    }
    Image img;
    test::MakeImage(img, w, h, ColorRGB, [&](int s, int x, int y) { return planes[s][y * w + x]; });

    std::vector<std::uint32_t> full[4];
    ChannelStats expect[4];
    for (int s = 0; s < 3; ++s)
        expect[s] =
            Oracle(std::vector<double>(planes[s].begin(), planes[s].end()), w, h, false, &full[s]);
    std::vector<double> value(w * h);
    for (int i = 0; i < w * h; ++i)
        value[i] =
            std::clamp<double>(std::max({planes[0][i], planes[1][i], planes[2][i]}), 0.0, 65535.0);
    expect[3] = Oracle(value, w, h, true, &full[3]);

    for (int threads : {1, 3, 7}) {
        tbb::task_arena arena(threads);
        arena.execute([&] { img.ComputeStatistics(); });
        SCOPED_TRACE(threads);
        ExpectSame(img.redStats, expect[0], "red");
        ExpectSame(img.greenStats, expect[1], "green");
        ExpectSame(img.blueStats, expect[2], "blue");
        ExpectSame(img.valueStats, expect[3], "value");
        EXPECT_EQ(img.histogram, full[3]);

        Image mono;
        test::MakeImage(mono, w, h, ColorGreen,
                        [&](int, int x, int y) { return planes[1][y * w + x]; });
        arena.execute([&] { mono.ComputeStatistics(); });
        ExpectSame(mono.greenStats, expect[1], "mono green");
        EXPECT_EQ(mono.histogram, full[1]);
        EXPECT_EQ(static_cast<std::uint32_t>(mono.histogramPeak),
                  *std::max_element(full[1].begin(), full[1].end()));
        // The plane helpers keep the same summation rules.
        EXPECT_EQ(mono.MeanOfPlane(mono.curPlane[1]), expect[1].mean);
        EXPECT_EQ(mono.StdDevOfPlane(mono.curPlane[1]), expect[1].stdDev);
        EXPECT_EQ(mono.MedianOfPlane(mono.curPlane[1]), expect[1].median);
    }
}

// ---- histograms -----------------------------------------------------------------------------

TEST(Histograms, BuildHistogramRoundsAndClamps) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    Image img;
    Mono(img, 7, 1, {70000.0f, -5.0f, 0.5f, 0.51f, 1.5f, 1.51f, nan});
    img.BuildHistogram(img.curPlane[0]);
    ASSERT_EQ(img.histogram.size(), 65536u);
    EXPECT_EQ(img.histogram[65535], 1u);
    EXPECT_EQ(img.histogram[0], 3u); // -5, 0.5, NaN
    EXPECT_EQ(img.histogram[1], 2u); // 0.51, 1.5
    EXPECT_EQ(img.histogram[2], 1u); // 1.51
    EXPECT_EQ(img.histogramPeak, 3);
}

TEST(Histograms, ValueHistogramTruncatesTheMaximum) {
    Image img;
    const float r[] = {70000, 2.9f, 0}, g[] = {0, 1, 0}, b[] = {0, 0, -3};
    test::MakeImage(img, 3, 1, ColorRGB,
                    [&](int s, int x, int) { return (s == 0 ? r : (s == 1 ? g : b))[x]; });
    img.BuildValueHistogram(img.curPlane[0], img.curPlane[1], img.curPlane[2]);
    EXPECT_EQ(img.histogram[65535], 1u); // the value is clamped to maxValue first
    EXPECT_EQ(img.histogram[2], 1u);
    EXPECT_EQ(img.histogram[0], 1u);
    EXPECT_EQ(img.histogramPeak, 1);
    EXPECT_EQ(img.ValueOf(1, 5, -2), 5.0);
    EXPECT_EQ(img.ValueOf(-1, -5, -2), 0.0);
    EXPECT_EQ(img.ValueOf(1e6, 5, -2), 65535.0);
}

TEST(Histograms, DisplayHistogram) {
    Image img;
    Mono(img, 6, 1, {255.5f, 255.6f, 65535.0f, 70000.0f, 511.0f, 512.0f});
    img.BuildDisplayHistogram(img.curPlane[0]);
    EXPECT_EQ(img.displayHistogram[0], 1u);   // 255.5 -> level 255
    EXPECT_EQ(img.displayHistogram[1], 2u);   // 255.6 -> 256, 511
    EXPECT_EQ(img.displayHistogram[2], 1u);   // 512
    EXPECT_EQ(img.displayHistogram[255], 2u); // 65535, 70000
    EXPECT_EQ(img.displayPeak, 2u);

    Image rgb;
    test::MakeImage(rgb, 2, 1, ColorRGB,
                    [](int s, int x, int) { return s == 2 && x == 1 ? 1024.0 : 300.0 * s; });
    rgb.BuildDisplayValueHistogram(rgb.curPlane[0], rgb.curPlane[1], rgb.curPlane[2]);
    EXPECT_EQ(rgb.displayHistogram[2], 1u); // max 600
    EXPECT_EQ(rgb.displayHistogram[4], 1u); // max 1024
    EXPECT_EQ(rgb.displayPeak, 1u);
}

TEST(Helpers, SmallNumericHelpers) {
    EXPECT_EQ(Image::Factorial(0), 1.0);
    EXPECT_EQ(Image::Factorial(1), 1.0);
    EXPECT_EQ(Image::Factorial(5), 120.0);
    EXPECT_EQ(Image::Factorial(20), 2432902008176640000.0);
    EXPECT_EQ(Image::TriangleArea(0, 0, 4, 0, 0, 3), 6.0);
    EXPECT_EQ(Image::TriangleArea(0, 0, 0, 3, 4, 0), 6.0); // orientation does not matter
    EXPECT_EQ(Image::TriangleArea(1, 1, 2, 2, 3, 3), 0.0);
    Image img;
    Mono(img, 2, 2, {4, -1, 9, 2});
    EXPECT_EQ(img.MaxOfPlane(img.curPlane[0]), 9.0);
    EXPECT_EQ(img.MinOfPlane(img.curPlane[0]), -1.0);
    EXPECT_EQ(img.MeanOfPlane(img.curPlane[0]), 3.5);
    EXPECT_EQ(img.MedianOfPlane(img.curPlane[0]), 2.0); // levels 0 2 4 9
}

} // namespace
} // namespace astrivelle
