// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Descriptor matching on hand-made star lists (descriptors, the agreeing-distance count,
/// ties, a duplicate current star), corner picking and its fall-backs, the corner check, and
/// the Feature Mask "Stars" mode on a star field over a nebula and a gradient.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "TestSupport.h"
#include "align/FeatureMaskStars.h"
#include "align/StarMatch.h"
#include "engine/Image.h"

namespace astrivelle {
namespace {

CStarShapeList Stars(const std::vector<std::array<double, 2>>& xy) {
    CStarShapeList list;
    for (const auto& p : xy) {
        CStarShapeStructure s;
        s.x = p[0];
        s.y = p[1];
        list.push_back(s);
    }
    return list;
}

TEST(StarMatch, DescriptorsHoldTheOtherStarsTruncated) {
    Image image;
    std::vector<CStarDescriptorStructure> d;
    image.BuildStarDescriptors(Stars({{10.7, 20.2}, {13.9, 24.6}, {10.7, 20.2}}), &d);
    ASSERT_EQ(d.size(), 3u);
    EXPECT_EQ(d[0].x, 10);
    EXPECT_EQ(d[0].y, 20);
    // The identical third star is at distance 0: not stored.
    ASSERT_EQ(d[0].count, 1);
    EXPECT_EQ(d[0].points[0], (std::array<std::int32_t, 2>{13, 24}));
    EXPECT_FLOAT_EQ(d[0].distances[0], static_cast<float>(std::hypot(3.2, 4.4)));
    // The middle star sees both others, at most list length - 1 = 2 entries.
    EXPECT_EQ(d[1].count, 2);
    EXPECT_EQ(d[2].count, 1);
}

CStarDescriptorStructure Desc(int x, int y, std::vector<float> distances) {
    CStarDescriptorStructure d;
    d.x = x;
    d.y = y;
    d.count = static_cast<int>(distances.size());
    d.distances = distances;
    d.points.resize(distances.size());
    return d;
}

TEST(StarMatch, AgreeingDistancesIncludeTheLimitAndMatchThePlainLoop) {
    const auto r = Desc(0, 0, {10.0f, 20.0f, 30.0f});
    // 12 and 8 are exactly 2.0 from 10; 22.5 is beyond; 28 is 2.0 from 30.
    const auto c = Desc(0, 0, {12.0f, 8.0f, 22.5f, 28.0f});
    EXPECT_EQ(CountAgreeingDistances(r, c), 3);
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(0, 300);
    for (int trial = 0; trial < 20; ++trial) {
        std::vector<float> a(40), b(55);
        for (auto& v : a)
            v = std::round(u(rng) * 4) / 4; // quarter pixels: many exact 2.0 differences
        for (auto& v : b)
            v = std::round(u(rng) * 4) / 4;
        int plain = 0;
        for (float x : a)
            for (float y : b)
                plain += std::fabs(static_cast<double>(x) - y) <= 2.0 ? 1 : 0;
        EXPECT_EQ(CountAgreeingDistances(Desc(0, 0, a), Desc(0, 0, b)), plain);
    }
}

TEST(StarMatch, BestRatioTiesGoToTheLaterCurrentAndOnlyAboveAHalf) {
    Image image;
    const std::vector<CStarDescriptorStructure> ref = {
        Desc(1, 1, {10, 20}), // both current descriptors agree twice over 2: tie, later wins
        Desc(2, 2, {50}),     // one of two of C: 0.5, not above a half
        Desc(3, 3, {300}),    // nothing
    };
    const std::vector<CStarDescriptorStructure> cur = {Desc(7, 7, {10, 20}), Desc(8, 8, {11, 19})};
    std::vector<CStarMatchStructure> m;
    ASSERT_TRUE(
        image.MatchStarDescriptors(nullptr, "CAutoStar", ref, {cur[0], Desc(9, 9, {50, 99})}, &m));
    ASSERT_EQ(m.size(), 1u);
    EXPECT_EQ(m[0].refX, 1);
    ASSERT_TRUE(image.MatchStarDescriptors(nullptr, "CAutoStar", ref, cur, &m));
    ASSERT_EQ(m.size(), 1u);
    EXPECT_EQ(m[0].curX, 8);
    EXPECT_DOUBLE_EQ(m[0].ratio, 1.0);
    for (double t : m[0].tail)
        EXPECT_EQ(t, 0.0);
}

TEST(StarMatch, DuplicateCurrentStarCountsOverOne) {
    // Two current stars on one spot: their descriptors are empty (distance 0 is not stored),
    // so their count is 0, and a ratio n / 1 is formed, not a division by zero.
    Image image;
    std::vector<CStarDescriptorStructure> ref, cur;
    image.BuildStarDescriptors(Stars({{100, 100}, {200, 100}}), &ref);
    image.BuildStarDescriptors(Stars({{150, 150}, {150, 150}}), &cur);
    ASSERT_EQ(cur[0].count, 0);
    std::vector<CStarMatchStructure> m;
    ASSERT_TRUE(image.MatchStarDescriptors(nullptr, "CAutoStar", ref, cur, &m));
    EXPECT_TRUE(m.empty()); // n = 0 over 1: ratio 0
    // A count of 0 holds no distance, so its numerator is 0 as well: ratio 0 / 1.
    auto odd = Desc(5, 5, {100});
    odd.count = 0;
    odd.distances.clear();
    ASSERT_TRUE(image.MatchStarDescriptors(nullptr, "CAutoStar", ref, {odd}, &m));
    EXPECT_TRUE(m.empty());
}

TEST(StarMatch, ShiftedListMatchesEveryStar) {
    Image image;
    const std::vector<std::array<double, 2>> field = {{50, 60},   {400, 80},  {700, 90},
                                                      {120, 300}, {380, 330}, {650, 310},
                                                      {90, 520},  {420, 560}, {720, 540}};
    std::vector<std::array<double, 2>> moved;
    for (const auto& p : field)
        moved.push_back({p[0] + 13.0, p[1] - 6.0});
    std::vector<CStarDescriptorStructure> ref, cur;
    image.BuildStarDescriptors(Stars(field), &ref);
    image.BuildStarDescriptors(Stars(moved), &cur);
    std::vector<CStarMatchStructure> m;
    ASSERT_TRUE(image.MatchStarDescriptors(nullptr, "CAutoStar", ref, cur, &m));
    ASSERT_EQ(m.size(), field.size());
    for (const auto& k : m) {
        EXPECT_EQ(k.curX, k.refX + 13);
        EXPECT_EQ(k.curY, k.refY - 6);
    }
    IProgress cancelled;
    cancelled.RequestCancel();
    EXPECT_FALSE(image.MatchStarDescriptors(&cancelled, "CAutoStar", ref, cur, &m));
}

std::vector<CStarMatchStructure> Matches(const std::vector<std::array<double, 2>>& xy) {
    std::vector<CStarMatchStructure> m;
    for (const auto& p : xy) {
        CStarMatchStructure s;
        s.refX = p[0];
        s.refY = p[1];
        m.push_back(s);
    }
    return m;
}

TEST(StarMatch, CornersOnlyMoveOutOnBothAxes) {
    // mid (400, 300). A: up-left, B: down-left, C: down-right, D: up-right.
    const auto m = Matches({{300, 200},  // A
                            {100, 250},  // further left but not further up: A stays
                            {50, 50},    // further on both: A
                            {200, 500},  // B
                            {600, 500},  // C
                            {700, 100},  // D
                            {400, 10},   // on the middle x: no corner
                            {750, 90}}); // D again
    const StarCorners c = PickCorners(m, 400, 300);
    EXPECT_EQ(c.match, (std::array<int, 4>{2, 3, 4, 7}));
    const CornerPlan plan = PlanCorners(c, true);
    EXPECT_EQ(plan.check, (std::vector<int>{CornerA, CornerD, CornerB}));
    EXPECT_TRUE(plan.affine);
    EXPECT_EQ(PlanCorners(c, false).align, (std::vector<int>{CornerB, CornerD}));
}

TEST(StarMatch, StarsOnACornerAxisLeaveCornersEmpty) {
    struct Case {
        std::vector<std::array<double, 2>> points;
        std::vector<int> check, alignSmall, alignRigid;
    };
    const Case cases[] = {
        // D's stars all lie on the middle row: A, B, C.
        {{{100, 100}, {100, 500}, {700, 500}, {700, 300}}, {0, 1, 2}, {0, 1, 2}, {0, 2}},
        // A missing (on the middle column): B, C, D.
        {{{400, 100}, {100, 500}, {700, 500}, {700, 100}}, {3, 1, 2}, {3, 1, 2}, {3, 1}},
        // B missing: A, C, D.
        {{{100, 100}, {400, 500}, {700, 500}, {700, 100}}, {0, 3, 2}, {0, 3, 2}, {0, 2}},
        // Two corners, A and B: the pair A-B, rigid always.
        {{{100, 100}, {100, 500}, {700, 300}, {400, 100}}, {0, 1}, {0, 1}, {0, 1}},
        // D and C: D-C.
        {{{700, 100}, {700, 500}, {400, 400}}, {3, 2}, {3, 2}, {3, 2}},
    };
    for (const auto& c : cases) {
        const StarCorners corners = PickCorners(Matches(c.points), 400, 300);
        const CornerPlan small = PlanCorners(corners, true);
        const CornerPlan rigid = PlanCorners(corners, false);
        ASSERT_TRUE(small.usable);
        EXPECT_EQ(small.check, c.check);
        EXPECT_EQ(small.align, c.alignSmall);
        EXPECT_EQ(rigid.align, c.alignRigid);
        EXPECT_EQ(small.affine, c.check.size() == 3);
        EXPECT_FALSE(rigid.affine);
    }
    // One corner: nothing to align with.
    const StarCorners one = PickCorners(Matches({{100, 100}, {400, 500}, {700, 300}}), 400, 300);
    EXPECT_EQ(one.Present(), 1);
    EXPECT_FALSE(PlanCorners(one, true).usable);
    EXPECT_STREQ(kNoMatchingCornersText, "No Matching Alignment Stars ..........");
    EXPECT_STREQ(kLessThan3MatchesText, "Less than 3 stars for alignment match.");
}

TEST(StarMatch, CornerCheckRatioAndItsInclusiveRange) {
    const std::vector<std::array<double, 2>> tri = {{0, 0}, {100, 0}, {0, 100}};
    // Current triangle 1% larger in area: ratio 1 / 1.01, inside.
    const double f = std::sqrt(1.01);
    const std::vector<std::array<double, 2>> big = {{0, 0}, {100 * f, 0}, {0, 100}};
    EXPECT_NEAR(CornerCheckRatio(tri, big), 1 / f, 1e-12);
    EXPECT_TRUE(CornerRatioInRange(0.99));
    EXPECT_TRUE(CornerRatioInRange(1.01));
    EXPECT_FALSE(CornerRatioInRange(0.9899999));
    EXPECT_FALSE(CornerRatioInRange(1.0100001));
    // Smaller over larger either way.
    EXPECT_DOUBLE_EQ(CornerCheckRatio(big, tri), CornerCheckRatio(tri, big));
    // Two points: squared distances, reference over current, a zero current counting as 1.
    EXPECT_DOUBLE_EQ(CornerCheckRatio({{0, 0}, {3, 4}}, {{0, 0}, {0, 5}}), 1.0);
    EXPECT_DOUBLE_EQ(CornerCheckRatio({{0, 0}, {3, 4}}, {{1, 1}, {1, 1}}), 25.0);
    EXPECT_DOUBLE_EQ(CornerCheckRatio({{0, 0}, {6, 8}}, {{0, 0}, {3, 4}}), 4.0);
}

// ---- Feature Mask "Stars" ------------------------------------------------------------------

/// A star field on a nebula blob, a gradient and a galaxy core wider than the radius, with
/// noise; the positions of the stars are returned.
std::vector<float> NebulaField(int w, int h, std::vector<std::array<int, 2>>* stars) {
    std::vector<float> p(static_cast<std::size_t>(w) * h);
    std::mt19937 rng(3);
    std::normal_distribution<double> noise(0, 20);
    stars->clear();
    for (int y = 40; y < h - 40; y += 60)
        for (int x = 40 + (y / 60 % 2) * 30; x < w - 40; x += 70)
            stars->push_back({x, y});
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            double v = 1000 + 8.0 * x + 3.0 * y; // gradient: 1000 .. about 6000
            const double nx = x - 250.0, ny = y - 200.0;
            v += 20000 * std::exp(-(nx * nx + ny * ny) / (2 * 60.0 * 60.0)); // nebula
            const double gx = x - 480.0, gy = y - 330.0;
            v += 30000 * std::exp(-(gx * gx + gy * gy) / (2 * 14.0 * 14.0)); // galaxy core
            for (const auto& s : *stars) {
                const double dx = x - s[0], dy = y - s[1];
                if (std::fabs(dx) < 8 && std::fabs(dy) < 8)
                    v += 8000 * std::exp(-(dx * dx + dy * dy) / (2 * 1.3 * 1.3));
            }
            p[static_cast<std::size_t>(y) * w + x] = static_cast<float>(v + noise(rng));
        }
    return p;
}

TEST(FeatureMaskStars, StarsSurviveBinarizationTheNebulaAndGradientDoNot) {
    const int w = 560, h = 400;
    std::vector<std::array<int, 2>> stars;
    std::vector<float> plane = NebulaField(w, h, &stars);
    std::vector<float> mask(plane.size());
    int cores = 0;
    std::string error;
    ASSERT_TRUE(FeatureMaskStars(plane.data(), mask.data(), w, h, {}, &error, &cores));
    // A star sitting on the galaxy core (within 20 pixels of its centre) is part of extended
    // structure there and is given up; every other star is a core.
    std::vector<std::array<int, 2>> free;
    for (const auto& s : stars)
        if (std::hypot(s[0] - 480.0, s[1] - 330.0) > 20)
            free.push_back(s);
    ASSERT_EQ(free.size() + 1, stars.size());
    EXPECT_EQ(cores, static_cast<int>(free.size()));
    // Every bright pixel after a binarization at 32768 lies within 3 of a star.
    int bright = 0, strays = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const float v = mask[static_cast<std::size_t>(y) * w + x];
            ASSERT_GE(v, 0.0f);
            ASSERT_LE(v, 65535.0f);
            if (v < 32768)
                continue;
            ++bright;
            bool near = false;
            for (const auto& s : stars)
                near = near || (std::abs(x - s[0]) <= 3 && std::abs(y - s[1]) <= 3);
            strays += near ? 0 : 1;
        }
    EXPECT_EQ(strays, 0);
    EXPECT_GT(bright, 0);
    // The strongest 40 cores pass 32768 (rank 40 lies at 32767.5); each is a 7 x 7 spot.
    const int passing = std::min<int>(40, static_cast<int>(free.size()));
    EXPECT_EQ(bright, passing * 49);
    // Centre of the galaxy core and of the nebula: black.
    EXPECT_EQ(mask[330 * w + 480], 0.0f);
    EXPECT_EQ(mask[200 * w + 250 + 5], 0.0f);
    // Each star of the field has its spot at some level.
    for (const auto& s : free)
        EXPECT_GT(mask[static_cast<std::size_t>(s[1]) * w + s[0]], 0.0f) << s[0] << "," << s[1];
}

TEST(FeatureMaskStars, FaintStarsOutrankTheNoise) {
    // Twenty stars of FWHM 5 whose peaks stand 2.5 to 5 times the pixel noise above the sky,
    // on a 600 x 450 plane: each is a core and the twenty lead the ranking, whatever the
    // sky level and its gradient.
    const int w = 600, h = 450;
    for (const double sky : {500.0, 20000.0}) {
        std::mt19937 rng(11);
        std::normal_distribution<double> noise(0, 30);
        std::vector<std::array<int, 2>> stars;
        for (int k = 0; k < 20; ++k)
            stars.push_back({40 + (k % 5) * 125, 40 + (k / 5) * 110});
        std::vector<float> plane(static_cast<std::size_t>(w) * h);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                double v = sky + 0.5 * x + noise(rng);
                for (std::size_t k = 0; k < stars.size(); ++k) {
                    const double dx = x - stars[k][0], dy = y - stars[k][1];
                    v += (75 + 4 * k) * std::exp(-(dx * dx + dy * dy) / (2 * 2.12 * 2.12));
                }
                plane[static_cast<std::size_t>(y) * w + x] = static_cast<float>(v);
            }
        std::vector<float> mask(plane.size());
        int cores = 0;
        std::string error;
        ASSERT_TRUE(FeatureMaskStars(plane.data(), mask.data(), w, h, {}, &error, &cores));
        // The twentieth rank sits at 65535 * 2^(-19/40); a cut just below it keeps exactly the
        // stars' spots.
        const float cut = static_cast<float>(65535.0 * std::pow(2.0, -19.5 / 40.0));
        for (const auto& s : stars)
            EXPECT_GE(mask[static_cast<std::size_t>(s[1]) * w + s[0]], cut)
                << "sky " << sky << " star " << s[0] << "," << s[1];
        int above = 0;
        for (float v : mask)
            above += v >= cut ? 1 : 0;
        EXPECT_EQ(above, 20 * 49) << "sky " << sky << ", " << cores << " cores";
    }
}

TEST(FeatureMaskStars, FlatAndNoisyPlanesGiveNoCoresAndArgumentsAreChecked) {
    const int w = 200, h = 150;
    std::vector<float> flat(static_cast<std::size_t>(w) * h, 1234.0f), out(flat.size(), 7.0f);
    int cores = -1;
    std::string error;
    ASSERT_TRUE(FeatureMaskStars(flat.data(), out.data(), w, h, {}, &error, &cores));
    EXPECT_EQ(cores, 0);
    for (float v : out)
        ASSERT_EQ(v, 0.0f);
    std::mt19937 rng(5);
    std::normal_distribution<double> noise(1000, 30);
    for (auto& v : flat)
        v = static_cast<float>(noise(rng));
    ASSERT_TRUE(FeatureMaskStars(flat.data(), out.data(), w, h, {}, &error, &cores));
    EXPECT_EQ(cores, 0);
    // A lone hot pixel is no star.
    flat[75 * w + 100] = 60000;
    ASSERT_TRUE(FeatureMaskStars(flat.data(), out.data(), w, h, {}, &error, &cores));
    EXPECT_EQ(cores, 0);
    FeatureMaskStarsParams colour;
    colour.colorMode = 2;
    EXPECT_FALSE(FeatureMaskStars(flat.data(), out.data(), w, h, colour, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(FeatureMaskStars(nullptr, out.data(), w, h, {}, &error));
}

} // namespace
} // namespace astrivelle
