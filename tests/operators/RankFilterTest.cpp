// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The rank filters: the fast filters against the plain gather-and-sort form, bit for
/// bit, over integer and non-integer planes, window sizes up to the image's and odd shapes;
/// and the plain form itself on windows worked out by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "TestSupport.h"
#include "operators/Filters.h"
#include "operators/filters/RankOracle.h"

using namespace astrivelle;
using namespace astrivelle::smoothing;

namespace {

enum class Fill { Levels, FewLevels, Fractions, OneFraction, Narrow, Sky, Wild };

std::vector<float> MakePlane(int w, int h, Fill fill, unsigned seed) {
    std::mt19937 gen(seed);
    std::vector<float> plane(static_cast<std::size_t>(w) * h);
    std::uniform_int_distribution<int> level(0, 65535), few(0, 6), narrow(1000, 1040);
    std::uniform_real_distribution<double> real(0.0, 65535.0), wide(-2000.0, 70000.0);
    std::normal_distribution<double> noise(0.0, 90.0);
    // Samples the quantile's bins treat specially: below 0, -0, not a number, at and past the
    // top, and just below a bin's edge.
    const float odd[] = {-5.0f, -0.0f, std::nanf(""), 65535.0f, 65535.5f, 65536.0f, 1e9f, 255.99f};
    for (std::size_t i = 0; i < plane.size(); ++i) {
        float& v = plane[i];
        switch (fill) {
        case Fill::Sky: { // a slope through several bins, noise, and a rare bright star
            const double x = static_cast<double>(i % w), y = static_cast<double>(i / w);
            double s = 3000.0 + 40.0 * x + 25.0 * y + noise(gen);
            if (gen() % 97 == 0)
                s += 30000.0;
            v = static_cast<float>(std::round(std::clamp(s, 0.0, 65535.0)));
            break;
        }
        case Fill::Wild:
            v = gen() % 5 == 0 ? odd[gen() % 8] : static_cast<float>(wide(gen));
            break;
        case Fill::Levels:
            v = static_cast<float>(level(gen));
            break;
        case Fill::FewLevels: // many ties
            v = static_cast<float>(few(gen) * 9000);
            break;
        case Fill::Fractions:
            v = static_cast<float>(real(gen));
            break;
        case Fill::OneFraction:
            v = static_cast<float>(level(gen));
            break;
        case Fill::Narrow:
            v = static_cast<float>(narrow(gen));
            break;
        }
    }
    if (fill == Fill::OneFraction)
        plane[plane.size() / 2] += 0.5f; // one sample that is not a level
    return plane;
}

const char* FillName(Fill f) {
    const char* names[] = {"levels", "few levels", "fractions", "one fraction",
                           "narrow", "sky",        "wild"};
    return names[static_cast<int>(f)];
}

/// Runs the fast filter and the plain one on the same input; true when bit-identical.
::testing::AssertionResult SameAsPlain(PlaneJob job, const std::vector<float>& input) {
    std::vector<float> fast(input.size(), -1.0f), plain(input.size(), -2.0f);
    job.prev = input.data();
    job.cur = fast.data();
    if (!RankFilter(job, nullptr))
        return ::testing::AssertionFailure() << "the fast filter stopped";
    job.cur = plain.data();
    PlainRankFilter(job);
    for (std::size_t i = 0; i < input.size(); ++i)
        if (std::memcmp(&fast[i], &plain[i], sizeof(float)) != 0)
            return ::testing::AssertionFailure()
                   << "pixel " << i % job.width << "," << i / job.width << ": fast " << fast[i]
                   << " plain " << plain[i] << " input " << input[i];
    return ::testing::AssertionSuccess();
}

} // namespace

TEST(RankFilter, FastFiltersMatchThePlainFormBitForBit) {
    struct Shape {
        int w, h, half;
    };
    const Shape shapes[] = {
        {23, 17, 2},  // small windows
        {40, 31, 5},  // interior, both edges
        {7, 50, 4},   // a window wider than the image: indices are clamped too
        {50, 7, 5},   // and taller
        {12, 12, 5},  // a window just below the image size
        {53, 52, 25}, // the largest window
        {9, 56, 25},  // the largest window on a narrow plane
        {31, 29, 1},  // 3 x 3 takes the plain form; still the same function
        {150, 9, 2},  // the 5 x 5 median's network: two full runs of 64 and a short one
        {5, 5, 2},    // one pixel inside
        {4, 9, 2},    // too narrow for any
    };
    const int types[] = {SmoothSelectedNbhd, SmoothQuantile, SmoothMedian, SmoothAbsDifference,
                         SmoothAdaptiveMedian};
    const Fill fills[] = {Fill::Levels, Fill::FewLevels, Fill::Fractions, Fill::OneFraction,
                          Fill::Narrow, Fill::Sky,       Fill::Wild};
    unsigned seed = 1;
    for (const Shape& shape : shapes)
        for (Fill fill : fills) {
            // The plain form is slow at 51 x 51: two kinds of plane suffice there.
            const bool large = shape.half > 10;
            if (large && fill != Fill::FewLevels && fill != Fill::Levels && fill != Fill::Sky)
                continue;
            const std::vector<float> input = MakePlane(shape.w, shape.h, fill, seed++);
            for (int type : types) {
                PlaneJob job;
                job.type = type;
                job.width = shape.w;
                job.height = shape.h;
                job.half = shape.half;
                job.top = 65535;
                // Full strength and range; then a partial strength with a feathered range
                // that leaves pixels out (the adaptive median then keeps its i across them).
                struct Mix {
                    double strength;
                    int mn, mx, feather, order;
                };
                const Mix mixes[] = {
                    {1.0, 0, 65535, 0, 1}, {0.6, 20000, 40000, 5000, 3}, {1.0, 0, 65535, 0, 7}};
                for (const Mix& m : mixes) {
                    // A sky plane lies below that range: it also runs at full strength.
                    if (large && m.strength != 0.6 && fill != Fill::Sky)
                        continue;
                    if (m.order != 1 && type != SmoothAdaptiveMedian && m.strength == 1.0)
                        continue;
                    job.strength = m.strength;
                    job.applyMin = m.mn;
                    job.applyMax = m.mx;
                    job.feather = m.feather;
                    job.order = m.order;
                    EXPECT_TRUE(SameAsPlain(job, input))
                        << SmoothingTypeName(type) << ", " << shape.w << "x" << shape.h
                        << " window " << 2 * shape.half + 1 << ", " << FillName(fill)
                        << ", strength " << m.strength << ", order " << m.order;
                }
            }
        }
}

TEST(RankFilter, SelectedNeighbourhoodWithASmallerMaximum) {
    // An 8-bit image: M is 255, and levels above it give negative weights.
    PlaneJob job;
    job.type = SmoothSelectedNbhd;
    job.width = 37;
    job.height = 21;
    job.half = 3;
    job.top = 255;
    std::vector<float> input = MakePlane(37, 21, Fill::Levels, 99);
    for (float& v : input)
        v = static_cast<float>(static_cast<int>(v) % 300);
    EXPECT_TRUE(SameAsPlain(job, input));
}

TEST(RankFilter, MirrorGathersOneZeroOneAtACorner) {
    // A 3 x 3 window at (0, 0) reads rows and columns 1, 0, 1: (0,0) once, (1,0) and (0,1)
    // twice, (1,1) four times.
    std::vector<float> plane(4 * 4, 50000.0f);
    plane[0] = 1000;  // (0,0)
    plane[1] = 2000;  // (1,0)
    plane[4] = 3000;  // (0,1)
    plane[5] = 40000; // (1,1)
    double window[9];
    GatherMirror(plane.data(), 4, 4, 0, 0, 1, window);
    const double expected[9] = {40000, 3000, 40000, 2000, 1000, 2000, 40000, 3000, 40000};
    for (int k = 0; k < 9; ++k)
        EXPECT_EQ(window[k], expected[k]) << k;
    // The selected neighbourhood weighs that multiset.
    auto weighted = [](const std::vector<std::pair<double, int>>& multiset, double p) {
        double sw = 0, swv = 0;
        for (auto [v, n] : multiset) {
            const double w = 65535 - std::fabs(p - v);
            sw += n * w;
            swv += n * w * v;
        }
        return swv / sw;
    };
    const double mirror = weighted({{1000, 1}, {2000, 2}, {3000, 2}, {40000, 4}}, 1000);
    const double clamp = weighted({{1000, 4}, {2000, 2}, {3000, 2}, {40000, 1}}, 1000);
    ASSERT_GT(std::fabs(mirror - clamp), 100.0);
    PlaneJob job;
    job.type = SmoothSelectedNbhd;
    job.width = job.height = 4;
    job.half = 1;
    std::vector<float> out(16);
    job.prev = plane.data();
    job.cur = out.data();
    PlainRankFilter(job);
    EXPECT_EQ(out[0], static_cast<float>(mirror));
}

TEST(RankFilter, HandWorkedWindows) {
    // Absolute difference: c = 40; distances 40,30,20,10,0,5,6,7,960 sorted give t = 10;
    // the values within 10 of 40 are 30, 40, 45, 46, 47.
    {
        double w[9] = {0, 10, 20, 30, 40, 45, 46, 47, 1000}, scratch[9];
        EXPECT_DOUBLE_EQ(PlainAbsDifference(w, scratch, 9), 208.0 / 5);
    }
    // Median of 9 is the fifth.
    {
        double w[9] = {9, 1, 8, 2, 7, 3, 6, 4, 5};
        EXPECT_EQ(PlainMedian(w, 9), 5);
    }
    // Selected neighbourhood: w = M - |trunc(p - v)|.
    {
        const double w[3] = {100, 200.75, 300};
        const double w1 = 1000 - 0, w2 = 1000 - 100, w3 = 1000 - 200; // trunc(100 - 200.75) = -100
        EXPECT_DOUBLE_EQ(PlainSelectedNbhd(w, 3, 100, 1000),
                         (w1 * 100 + w2 * 200.75 + w3 * 300) / (w1 + w2 + w3));
    }
}

TEST(RankFilter, QuantileOfAWindowInBinZeroKeepsTheCentre) {
    // All values below 256 fall in bin 0: the sum of bin numbers is 0 and r is p itself,
    // although the window's median would be another value.
    std::vector<float> plane(5 * 5);
    for (int i = 0; i < 25; ++i)
        plane[i] = static_cast<float>(i * 10);
    double window[9];
    GatherMirror(plane.data(), 5, 5, 2, 2, 1, window);
    EXPECT_EQ(PlainQuantile(window, 9, 120, 65535), 120);
    PlaneJob job;
    job.type = SmoothQuantile;
    job.width = job.height = 5;
    job.half = 1;
    std::vector<float> out(25);
    job.prev = plane.data();
    job.cur = out.data();
    PlainRankFilter(job);
    EXPECT_EQ(out, plane);
    // An all-zero window likewise.
    double zeros[9] = {};
    EXPECT_EQ(PlainQuantile(zeros, 9, 0, 65535), 0);
}

TEST(RankFilter, QuantileClampsToItsBand) {
    // 8 samples in bin 100 and the centre far above: high = quant(...) / 256 * M.
    double w[9] = {25600, 25600, 25600, 25600, 60000, 25600, 25600, 25600, 25600};
    const double r = PlainQuantile(w, 9, 60000, 65535);
    EXPECT_LT(r, 60000);
    EXPECT_EQ(r, std::trunc(r));
}

TEST(RankFilter, AdaptiveMedianOrderOneTakesTheRankBelow) {
    // Order 1: q = 1 and L = N, so j = max(i, 1) - 1.
    double w[9] = {50, 10, 90, 30, 70, 20, 80, 40, 60};
    int i = 0;
    EXPECT_EQ(PlainAdaptiveMedian(w, 9, 40, 1, &i), 30); // 40 at rank 3: one below
    EXPECT_EQ(i, 3);
    double low[9] = {50, 10, 90, 30, 70, 20, 80, 40, 60};
    EXPECT_EQ(PlainAdaptiveMedian(low, 9, 10, 1, &i), 10); // the smallest stays
    EXPECT_EQ(i, 0);
    // The strict largest is at N - 1, which is not looked at: i stays from the pixel before.
    double top[9] = {50, 10, 90, 30, 70, 20, 80, 40, 60};
    i = 6;
    EXPECT_EQ(PlainAdaptiveMedian(top, 9, 90, 1, &i), 60);
    EXPECT_EQ(i, 6);
    // A largest value that repeats is found at N - 2.
    double twice[9] = {90, 10, 90, 30, 70, 20, 80, 40, 60};
    i = 0;
    EXPECT_EQ(PlainAdaptiveMedian(twice, 9, 90, 1, &i), 80);
    EXPECT_EQ(i, 7);

    // Over a row: a strict-largest pixel at the row's start takes i = 0 (the smallest).
    std::vector<float> plane(6 * 3, 0.0f);
    const float row[6] = {900, 100, 200, 300, 400, 500};
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 6; ++x)
            plane[y * 6 + x] = x == 0 ? (y == 1 ? 950.0f : 900.0f) : row[x] + y;
    PlaneJob job;
    job.type = SmoothAdaptiveMedian;
    job.width = 6;
    job.height = 3;
    job.half = 1;
    job.order = 1;
    std::vector<float> out(18);
    job.prev = plane.data();
    job.cur = out.data();
    PlainRankFilter(job);
    // Row 1 at x = 0: columns 1, 0, 1 and rows 0, 1, 2: 950 is the strict largest, so i is
    // the row's starting 0 and r the smallest, 100.
    EXPECT_EQ(out[6], 100.0f);
}

TEST(RankFilter, AdaptiveMedianIndexRule) {
    // j = q - 2 + min(L, max(i - q + 1, 1)), kept to 0..N-1, q = (Order + 1) / 2, L = N - Order
    // + 1.
    struct Case {
        int i, count, order, j;
    };
    const Case cases[] = {
        {5, 9, 1, 4},    // q 1, L 9
        {0, 9, 1, 0},    // max(.., 1) - 1
        {8, 9, 9, 4},    // q 5, L 1: 3 + 1
        {0, 9, 3, 1},    // q 2, L 7: 0 + 1
        {24, 25, 5, 22}, // q 3, L 21: 1 + 21
        {0, 9, 997, 0},  // far below 0: kept to 0
    };
    for (const Case& c : cases)
        EXPECT_EQ(AdaptiveMedianIndex(c.i, c.count, c.order), c.j)
            << c.i << " " << c.count << " " << c.order;
}
