// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Descriptor matching of star lists (the "Auto Star" algorithm at full size): each star
/// described by its distances to all others, descriptors of two images matched by counting
/// distances that agree, the four corner stars picked from the matches, the area or distance
/// check of the corners, and the choice of the corners that drive the resampling.
#pragma once
#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace astrivelle {

/// The largest number of other stars one descriptor holds.
inline constexpr int kMaxDescriptorEntries = 5000;
/// Distances agree within this (inclusive).
inline constexpr double kDescriptorTolerance = 2.0;
/// A best ratio above this makes a match.
inline constexpr double kDescriptorMinRatio = 0.5;

/// One star described by the other stars of its list: its truncated position, the count of
/// entries, and per entry the other star's truncated position and the distance to it.
struct CStarDescriptorStructure {
    std::int32_t x = 0, y = 0;
    std::int32_t count = 0;
    std::vector<std::array<std::int32_t, 2>> points; ///< up to 5000
    std::vector<float> distances;                    ///< up to 5000
};

using CStarDescriptorList = std::vector<CStarDescriptorStructure>;

/// A reference star and the current star matched to it, with the ratio that won; the tail is
/// cleared.
struct CStarMatchStructure {
    double refX = 0, refY = 0;
    double curX = 0, curY = 0;
    double ratio = 0;
    double tail[4] = {0, 0, 0, 0};
};

using CStarMatchStructureList = std::vector<CStarMatchStructure>;

/// Number of pairs (one distance of `r`, one of `c`) with |dR - dC| <= 2.0. Sorting makes it
/// fast; the result is that of the plain double loop.
int CountAgreeingDistances(const CStarDescriptorStructure& r, const CStarDescriptorStructure& c);

/// The corners of descriptor matching, in table order.
enum StarCorner : int { CornerA = 0, CornerB = 1, CornerC = 2, CornerD = 3 };

/// The corner stars picked from a match list: for each corner the index of its match, or -1.
struct StarCorners {
    std::array<int, 4> match{-1, -1, -1, -1};
    int Present() const {
        int n = 0;
        for (int m : match)
            n += m >= 0 ? 1 : 0;
        return n;
    }
};

/// Picks the corners: each corner starts at (midX, midY); a match (by its reference position)
/// replaces corner A when best x > x and best y > y, B when best x > x and y > best y, C when
/// x > best x and y > best y, D when x > best x and best y > y, i.e. only when it is further
/// out on both axes at once. Matches are tried in list order.
StarCorners PickCorners(const CStarMatchStructureList& matches, int midX, int midY);

/// How the corners drive the check and the resampling.
struct CornerPlan {
    bool usable = false;    ///< false with fewer than two corners
    std::vector<int> check; ///< three corners (area check) or two (distance check)
    bool affine = false;    ///< AlignAffine3 on `align`, else AlignRigid2
    std::vector<int> align; ///< the corners passed, in order
};

/// The table: with three or more corners the triple (A, D, B for A,B,D and all four; A, D, C;
/// A, B, C; D, B, C) is checked and, with `smallStars` (Short F.L. - Small Stars), drives
/// AlignAffine3, else AlignRigid2 takes B, D / A, C / A, C / D, B. With two corners the first
/// present of A-C, A-D, A-B, D-B, D-C, B-C is checked and drives AlignRigid2.
CornerPlan PlanCorners(const StarCorners& corners, bool smallStars);

/// The check ratio: for three points the smaller of the two triangle areas over the larger
/// (0 when both are 0); for two points the squared reference distance over the squared
/// current distance (a current distance of 0 counts as 1).
double CornerCheckRatio(const std::vector<std::array<double, 2>>& reference,
                        const std::vector<std::array<double, 2>>& current);

/// True when the ratio lies within 0.99..1.01 (inclusive).
bool CornerRatioInRange(double ratio);

inline constexpr const char* kLessThan3MatchesText = "Less than 3 stars for alignment match.";
inline constexpr const char* kNoMatchingCornersText = "No Matching Alignment Stars ..........";

} // namespace astrivelle
