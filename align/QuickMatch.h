// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Quick Alignment's star matching: the star list filter (50 pixel spacing, a peak over
/// background limit), the pairs of kept stars with their distance check, the matching of
/// reference pairs with current pairs under a flip mark, the voting of matches into clusters
/// with the best cluster per file, and the largest-perimeter triangle of a cluster's stars.
/// All positions are in the pixels of the scaled images the search ran on.
#pragma once
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/StarShape.h"

namespace astrivelle {

class IProgress;

/// Two stars of one image and their distance. z is always 0.
struct CStarPair {
    double x1 = 0, y1 = 0, z1 = 0;
    double x2 = 0, y2 = 0, z2 = 0;
    double distance = 0;
};

/// A pair, a match of a reference pair with a current pair, or a cluster of matches: the
/// file, the flip mark ("N", "V", "H", "VH"), two reference pairs, two current pairs, the shift
/// of star one of the first pairs (reference minus current), its length, the rotation angle in
/// degrees between the first pairs and the vote count.
struct CStarDescriptorMatchStructure {
    std::string fileName;
    std::string flip = "N";
    CStarPair ref1, ref2, cur1, cur2;
    double dx = 0, dy = 0, dz = 0;
    double shiftLength = 0;
    double angle = 0;
    std::int32_t votes = 0;
};

using CStarMatchList = std::vector<CStarDescriptorMatchStructure>;

/// A kept star of a filtered list.
struct QuickStar {
    double x = 0, y = 0;
};

/// The degrees of a radian in this system: 57.2962 (not 180 / pi exactly).
inline constexpr double kDegreesPerRadian = 57.2962;
/// Kept stars lie more than this apart on at least one axis.
inline constexpr double kQuickStarSpacing = 50.0;
/// Pair distances may differ by this much (scaled pixels, inclusive) to match.
inline constexpr double kQuickPairTolerance = 1.0;
/// A match joins a cluster within these limits (inclusive).
inline constexpr double kQuickClusterShift = 3.0;
inline constexpr double kQuickClusterAngle = 0.5;
/// A best cluster needs at least this many votes.
inline constexpr int kQuickMinVotes = 3;

inline constexpr const char* kInvalidMinMaxDistanceText = "Invalid Min/Max Reference Star Distance";

/// The peak-over-background limit of a list: P and B the mean peak and mean background of
/// all stars, t = (P / B - 3.0) * 0.75 + 1.0 limited to 1.0..3.5 (a zero B gives 3.5).
double QuickPeakLimit(const CStarShapeList& stars);

/// The filter: in list order, a star is kept when no kept star lies within 50 pixels of it on
/// both axes (inclusive) and its own peak over background exceeds the list's limit.
std::vector<QuickStar> FilterQuickStars(const CStarShapeList& stars);

/// Every two kept stars in list order, each pair once (star one earlier in the list). The
/// shortest distance starts at sqrt(width * height) of the scaled image and the longest at 0.
/// False (the pairs still filled) when the shortest is below 50 or the longest exceeds the
/// scaled image's diagonal sqrt(width^2 + height^2): positions that no star of the image can
/// have. `outShortest` and `outLongest` (optional) receive the tracked values.
bool BuildStarPairs(const std::vector<QuickStar>& stars, double scaledWidth, double scaledHeight,
                    std::vector<CStarPair>* outPairs, double* outShortest = nullptr,
                    double* outLongest = nullptr);

/// The rotation angle between two pair vectors (each from its star one), arc cosine of the
/// normalised dot product times 57.2962, 0 for a zero vector.
double PairAngle(const CStarPair& ref, const CStarPair& cur);

/// Appends to `out` a match for every reference pair and current pair (reference outermost)
/// whose distances differ by at most 1.0, with `fileName` and `flip`. The match's first pairs
/// are the two pairs, its second pairs copies of them; shift = reference star one minus
/// current star one; votes 1.
void MatchStarPairs(const std::vector<CStarPair>& reference, const std::vector<CStarPair>& current,
                    const std::string& fileName, const std::string& flip, CStarMatchList* out);

/// Votes the matches (in list order, grouped by file) into clusters: a match joins the first
/// cluster of its file with the same flip mark, a shift within 3.0 on both axes and an angle
/// within 0.5 degrees (inclusive), adding one vote; when neither star of its first reference
/// pair is in the cluster's first reference pair, the cluster's second pairs become the
/// match's first pairs. Other matches start a cluster of one vote. `progress` (optional) is
/// polled for cancel every 50 matches and told the file count when a file's matches end.
/// False when cancelled. `outClusters` receives all clusters, file by file.
bool ClusterMatches(const CStarMatchList& matches, IProgress* progress,
                    CStarMatchList* outClusters);

/// The cluster with the most votes of each file, the first of equals winning, in the order
/// the files first appear.
CStarMatchList BestClusterPerFile(const CStarMatchList& clusters);

/// The four reference stars of a cluster: first pair's star one, star two, second pair's star
/// one, star two (and likewise the current stars).
std::array<QuickStar, 4> ClusterReferenceStars(const CStarDescriptorMatchStructure& cluster);
std::array<QuickStar, 4> ClusterCurrentStars(const CStarDescriptorMatchStructure& cluster);

/// The triangle of largest perimeter among (1,2,3), (1,2,4), (1,3,4), (2,3,4) (0-based
/// indices), the earlier one winning a tie.
std::array<int, 3> LargestPerimeterTriangle(const std::array<QuickStar, 4>& stars);

} // namespace astrivelle
