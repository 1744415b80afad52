// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Quick Alignment's matching on hand-made star lists: the filter's limit and spacing,
/// the pair distance check, pair matches under a known turn and shift, cluster votes and ties,
/// and the largest-perimeter triangle.
#include <gtest/gtest.h>

#include <cmath>

#include "align/QuickMatch.h"
#include "engine/Notify.h"

namespace astrivelle {
namespace {

CStarShapeStructure Star(double x, double y, double peak = 1000, double background = 100) {
    CStarShapeStructure s;
    s.valid = 1;
    s.x = x;
    s.y = y;
    s.peak = peak;
    s.background = background;
    return s;
}

TEST(QuickMatch, PeakLimitFormulaAndItsBounds) {
    struct Case {
        double peak, background, limit;
    };
    const Case cases[] = {
        {400, 100, 1.75}, // (4 - 3) * 0.75 + 1
        {300, 100, 1.0},  // ratio 3: exactly the lower limit
        {100, 100, 1.0},  // below: limited to 1
        {600, 100, 3.25}, // (6 - 3) * 0.75 + 1
        {1000, 100, 3.5}, // above: limited to 3.5
        {1000, 0, 3.5},   // no background
    };
    for (const auto& c : cases)
        EXPECT_DOUBLE_EQ(QuickPeakLimit({Star(0, 0, c.peak, c.background)}), c.limit)
            << c.peak << "/" << c.background;
    // The means over all stars decide: peaks 200 and 600 over 100 give P/B = 4.
    EXPECT_DOUBLE_EQ(QuickPeakLimit({Star(0, 0, 200, 100), Star(0, 0, 600, 100)}), 1.75);
}

TEST(QuickMatch, FilterSpacingIsInclusiveOnBothAxes) {
    // All peaks 1000 over 100: limit 3.5, every star's own ratio 10 passes.
    const CStarShapeList stars = {
        Star(100, 100),           // kept
        Star(150, 150),           // 50 on both axes: within, dropped
        Star(151, 100),           // 51 on x: kept
        Star(100, 140),           // within 50 of the first on both axes: dropped
        Star(100, 151),           // kept
        Star(300, 300, 300, 100), // its own ratio 3 does not exceed 3.5: dropped
    };
    const auto kept = FilterQuickStars(stars);
    ASSERT_EQ(kept.size(), 3u);
    EXPECT_EQ(kept[0].x, 100);
    EXPECT_EQ(kept[1].x, 151);
    EXPECT_EQ(kept[2].y, 151);
}

TEST(QuickMatch, PairsInListOrderAndTheDistanceCheck) {
    std::vector<CStarPair> pairs;
    double shortest = 0, longest = 0;
    // Three stars: pairs (0,1), (0,2), (1,2) with star one the earlier.
    const std::vector<QuickStar> three = {{10, 10}, {70, 10}, {10, 110}};
    ASSERT_TRUE(BuildStarPairs(three, 700, 500, &pairs, &shortest, &longest));
    ASSERT_EQ(pairs.size(), 3u);
    EXPECT_EQ(pairs[0].x2, 70);
    EXPECT_EQ(pairs[1].y2, 110);
    EXPECT_EQ(pairs[2].x1, 70);
    EXPECT_DOUBLE_EQ(shortest, 60);
    EXPECT_DOUBLE_EQ(longest, std::hypot(60, 100));
    // A pair below 50 fails (with the pairs still made).
    EXPECT_FALSE(BuildStarPairs({{10, 10}, {59, 10}}, 700, 500, &pairs));
    EXPECT_EQ(pairs.size(), 1u);
    // 50 exactly passes.
    EXPECT_TRUE(BuildStarPairs({{10, 10}, {60, 10}}, 700, 500, &pairs));
    // No pairs: the shortest stays at sqrt(w * h), which fails for a tiny image.
    EXPECT_TRUE(BuildStarPairs({{10, 10}}, 700, 500, &pairs, &shortest));
    EXPECT_DOUBLE_EQ(shortest, std::sqrt(700.0 * 500.0));
    EXPECT_FALSE(BuildStarPairs({}, 40, 40, &pairs));
    // Longer than the image's diagonal: positions no star of it can have.
    EXPECT_FALSE(BuildStarPairs({{0, 0}, {800, 600}}, 700, 500, &pairs));
    EXPECT_STREQ(kInvalidMinMaxDistanceText, "Invalid Min/Max Reference Star Distance");
}

/// A star field turned by `deg` about (cx, cy) and shifted.
std::vector<QuickStar> Moved(const std::vector<QuickStar>& in, double deg, double cx, double cy,
                             double dx, double dy) {
    const double t = deg / kDegreesPerRadian, c = std::cos(t), s = std::sin(t);
    std::vector<QuickStar> out;
    for (const auto& p : in)
        out.push_back(
            {cx + c * (p.x - cx) - s * (p.y - cy) + dx, cy + s * (p.x - cx) + c * (p.y - cy) + dy});
    return out;
}

const std::vector<QuickStar> kField = {{60, 80},   {210, 95},  {400, 70},  {620, 120},
                                       {90, 260},  {330, 240}, {540, 300}, {150, 420},
                                       {380, 450}, {610, 470}, {250, 350}, {470, 180}};

TEST(QuickMatch, ShiftedFieldGivesTheBestClusterWithTheShift) {
    const auto current = Moved(kField, 0, 0, 0, -7.5, 4.25);
    std::vector<CStarPair> refPairs, curPairs;
    ASSERT_TRUE(BuildStarPairs(kField, 700, 525, &refPairs));
    ASSERT_TRUE(BuildStarPairs(current, 700, 525, &curPairs));
    CStarMatchList matches, clusters;
    MatchStarPairs(refPairs, curPairs, "a.fit", "N", &matches);
    ASSERT_TRUE(ClusterMatches(matches, nullptr, &clusters));
    const auto best = BestClusterPerFile(clusters);
    ASSERT_EQ(best.size(), 1u);
    EXPECT_EQ(best[0].fileName, "a.fit");
    EXPECT_EQ(best[0].flip, "N");
    // Every one of the 66 pairs matches its own copy.
    EXPECT_GE(best[0].votes, 66);
    EXPECT_NEAR(best[0].dx, 7.5, 1e-9);
    EXPECT_NEAR(best[0].dy, -4.25, 1e-9);
    EXPECT_NEAR(best[0].angle, 0.0, 1e-4);
    // The second pair was replaced by a pair sharing no star with the first.
    const auto r = ClusterReferenceStars(best[0]);
    for (int k : {2, 3})
        for (int j : {0, 1})
            EXPECT_FALSE(r[k].x == r[j].x && r[k].y == r[j].y);
}

TEST(QuickMatch, TurnedFieldClustersByTheTurnAngle) {
    // 2 degrees about the field's middle: the shift of star one varies across the field, so
    // clusters gather the matches of a region; the winner holds the true angle.
    const auto current = Moved(kField, 2.0, 350, 270, 12, -5);
    std::vector<CStarPair> refPairs, curPairs;
    ASSERT_TRUE(BuildStarPairs(kField, 700, 525, &refPairs));
    ASSERT_TRUE(BuildStarPairs(current, 700, 525, &curPairs));
    CStarMatchList matches, clusters;
    MatchStarPairs(refPairs, curPairs, "b.fit", "N", &matches);
    ASSERT_TRUE(ClusterMatches(matches, nullptr, &clusters));
    const auto best = BestClusterPerFile(clusters);
    ASSERT_EQ(best.size(), 1u);
    EXPECT_GE(best[0].votes, kQuickMinVotes);
    EXPECT_NEAR(best[0].angle, 2.0, 0.01);
    // Its stars correspond: each current star is its reference star moved.
    const auto r = ClusterReferenceStars(best[0]);
    const auto c = ClusterCurrentStars(best[0]);
    for (int k = 0; k < 4; ++k) {
        const auto m = Moved({r[k]}, 2.0, 350, 270, 12, -5)[0];
        EXPECT_NEAR(m.x, c[k].x, 1e-6);
        EXPECT_NEAR(m.y, c[k].y, 1e-6);
    }
}

CStarDescriptorMatchStructure Match(const std::string& file, const std::string& flip, double dx,
                                    double dy, double angle, double x1 = 0, double x2 = 100) {
    CStarDescriptorMatchStructure m;
    m.fileName = file;
    m.flip = flip;
    m.dx = dx;
    m.dy = dy;
    m.angle = angle;
    m.ref1.x1 = x1;
    m.ref1.x2 = x2;
    m.ref2 = m.ref1;
    m.votes = 1;
    return m;
}

TEST(QuickMatch, ClusterLimitsAreInclusiveAndTiesGoToTheFirst) {
    const CStarMatchList matches = {
        Match("a", "N", 10, 10, 1.0),          // cluster 1
        Match("a", "N", 13, 7, 1.5, 0, 300),   // 3.0 and 0.5 away: joins 1, shares star (0,0)
        Match("a", "N", 13.01, 10, 1.0),       // just beyond: cluster 2
        Match("a", "VH", 10, 10, 1.0),         // other flip: cluster 3
        Match("a", "VH", 10, 10, 1.0, 50, 60), // joins 3, no shared star: second pair replaced
        Match("b", "N", 0, 0, 0),              // next file
        Match("b", "N", 50, 0, 0),
    };
    CStarMatchList clusters;
    ASSERT_TRUE(ClusterMatches(matches, nullptr, &clusters));
    ASSERT_EQ(clusters.size(), 5u);
    EXPECT_EQ(clusters[0].votes, 2);
    EXPECT_EQ(clusters[0].ref2.x2, 100); // the shared star kept the second pair
    EXPECT_EQ(clusters[1].votes, 1);
    EXPECT_EQ(clusters[2].votes, 2);
    EXPECT_EQ(clusters[2].ref2.x1, 50);
    EXPECT_EQ(clusters[2].ref2.x2, 60);
    const auto best = BestClusterPerFile(clusters);
    ASSERT_EQ(best.size(), 2u);
    // Clusters 1 and 3 both hold 2 votes: the first wins.
    EXPECT_EQ(best[0].flip, "N");
    EXPECT_EQ(best[0].votes, 2);
    // File b: two clusters of 1, the first wins.
    EXPECT_EQ(best[1].fileName, "b");
    EXPECT_EQ(best[1].dx, 0);
}

TEST(QuickMatch, ClusteringListensToCancel) {
    IProgress progress;
    progress.RequestCancel();
    CStarMatchList clusters;
    EXPECT_FALSE(ClusterMatches({Match("a", "N", 0, 0, 0)}, &progress, &clusters));
}

TEST(QuickMatch, LargestPerimeterTriangleAndItsTies) {
    // A square: all four triangles have the same perimeter; (1,2,3) wins.
    EXPECT_EQ(LargestPerimeterTriangle({{{0, 0}, {10, 0}, {10, 10}, {0, 10}}}),
              (std::array<int, 3>{0, 1, 2}));
    // Star 1 close to star 2: the triangle without star 1 wins.
    EXPECT_EQ(LargestPerimeterTriangle({{{1, 0}, {0, 0}, {100, 0}, {0, 100}}}),
              (std::array<int, 3>{1, 2, 3}));
    // Star 4 far out: (1,2,4) beats (1,2,3); (1,3,4) and (2,3,4) are smaller.
    EXPECT_EQ(LargestPerimeterTriangle({{{0, 0}, {100, 0}, {50, 1}, {50, 300}}}),
              (std::array<int, 3>{0, 1, 3}));
}

TEST(QuickMatch, PairMatchesWithinOnePixelOfDistance) {
    CStarPair r{0, 0, 0, 100, 0, 0, 100};
    CStarPair exact{5, 5, 0, 5, 106, 0, 101}; // 1.0 apart: matches; turned by 90 degrees
    CStarPair beyond{0, 0, 0, 0, 0, 0, 101.001};
    CStarMatchList out;
    MatchStarPairs({r}, {exact, beyond}, "f", "V", &out);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].flip, "V");
    EXPECT_EQ(out[0].dx, -5);
    EXPECT_EQ(out[0].dy, -5);
    EXPECT_NEAR(out[0].angle, 90.0 * 57.2962 / (180.0 / M_PI), 1e-9);
    EXPECT_EQ(out[0].votes, 1);
}

} // namespace
} // namespace astrivelle
