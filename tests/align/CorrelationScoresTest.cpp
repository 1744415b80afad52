// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The correlation table by the exact FFT sums against the plain sums, bit for bit, and
/// the cases that must stay with the plain sums.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>

#include "TestSupport.h"
#include "align/CorrelationScores.h"
#include "engine/Image.h"

using namespace astrivelle;

namespace {

struct Case {
    const char* name;
    int side;
    std::function<float(std::mt19937&, int, int)> level; ///< (rng, x, y) of the window
    bool exact;                                          ///< the FFT sums must be taken
};

} // namespace

TEST(CorrelationScores, ExactSumsEqualThePlainSumsBitForBit) {
    const Case cases[] = {
        {"16-bit noise", 25, [](std::mt19937& r, int, int) { return float(r() % 65536); }, true},
        {"8-bit frame", 41,
         [](std::mt19937& r, int x, int y) { return float((x * 3 + y * 5 + r() % 40) % 256); },
         true},
        {"star on sky", 61,
         [](std::mt19937& r, int x, int y) {
             const double dx = x - 70.3, dy = y - 52.8;
             return float(std::floor(600 + r() % 50 + 40000 * std::exp(-(dx * dx + dy * dy) / 18)));
         },
         true},
        {"saturated", 33, [](std::mt19937&, int, int) { return 65535.0f; }, true},
        {"black", 27, [](std::mt19937&, int, int) { return 0.0f; }, true},
        {"a fraction", 29,
         [](std::mt19937& r, int x, int y) { return x == 7 && y == 9 ? 0.5f : float(r() % 4096); },
         false},
        {"above the levels", 29,
         [](std::mt19937& r, int x, int) { return x == 3 ? 70000.0f : float(r() % 4096); }, false},
        {"too small to pay", 21, [](std::mt19937& r, int, int) { return float(r() % 65536); },
         false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const int windowSide = 2 * c.side - 1;
        std::mt19937 rng(c.side);
        std::vector<float> window(static_cast<std::size_t>(windowSide) * windowSide);
        for (int y = 0; y < windowSide; ++y)
            for (int x = 0; x < windowSide; ++x)
                window[static_cast<std::size_t>(y) * windowSide + x] = c.level(rng, x, y);
        // The template: the window's middle, a little changed, so that no placement is exact.
        std::vector<float> tmpl(static_cast<std::size_t>(c.side) * c.side);
        const int r = c.side / 2;
        double norm = 0;
        for (int y = 0; y < c.side; ++y)
            for (int x = 0; x < c.side; ++x) {
                float v = window[static_cast<std::size_t>(y + r) * windowSide + x + r];
                if (v >= 1.0f && v == std::floor(v) && (x + y) % 5 == 0)
                    v -= 1.0f;
                tmpl[static_cast<std::size_t>(y) * c.side + x] = v;
                norm += static_cast<double>(v) * v;
            }
        norm = std::sqrt(norm);
        std::vector<double> fast, plain;
        correlation_testing::ResetExactTables();
        CorrelationScores(window.data(), windowSide, tmpl.data(), c.side, norm, false, true, &fast);
        EXPECT_EQ(correlation_testing::ExactTables(), c.exact ? 1 : 0);
        CorrelationScores(window.data(), windowSide, tmpl.data(), c.side, norm, false, false,
                          &plain);
        ASSERT_EQ(fast.size(), plain.size());
        for (std::size_t k = 0; k < fast.size(); ++k)
            ASSERT_EQ(std::memcmp(&fast[k], &plain[k], sizeof(double)), 0)
                << "placement " << k << ": " << fast[k] << " against " << plain[k];
    }
}

TEST(CorrelationScores, PointCorrelationTakesTheExactSumsOnWholeLevels) {
    // A star on a 16-bit frame followed over a radius of 15: the same place and score as the
    // plain sums give, the table made by the FFT sums.
    Image img;
    test::MakeImage(img, 160, 140, ColorGray, [](int, int x, int y) {
        const double dx = x - 83.4, dy = y - 61.7;
        return std::floor(900 + 30000 * std::exp(-(dx * dx + dy * dy) / 12) + (x * 7 + y) % 13);
    });
    std::vector<float> tmpl;
    double norm = 0;
    img.CorrelationTemplate(15, 80, 60, false, &tmpl, &norm);
    correlation_testing::ResetExactTables();
    int x = 0, y = 0;
    bool off = true;
    double best = 0;
    img.CorrelateAt(15, tmpl.data(), norm, 76, 66, &x, &y, &off, &best, false);
    EXPECT_FALSE(off);
    EXPECT_EQ(correlation_testing::ExactTables(), 1);
    EXPECT_EQ(x, 80);
    EXPECT_EQ(y, 60);
    EXPECT_DOUBLE_EQ(best, 1.0);
}
