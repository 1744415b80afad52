// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Descriptor matching: descriptors, their matching, corners and the corner check.
#include "align/StarMatch.h"

#include <algorithm>
#include <cmath>

#include "engine/Image.h"
#include "engine/Notify.h"

namespace astrivelle {

namespace {

/// A copy of a descriptor's distances, sorted, for the counting.
std::vector<double> SortedDistances(const CStarDescriptorStructure& d) {
    std::vector<double> v(d.distances.begin(), d.distances.begin() + d.count);
    std::sort(v.begin(), v.end());
    return v;
}

/// Pairs (a of `r`, b of `sorted`) with |a - b| <= 2.0; `sorted` ascending. The bounds a - 2
/// and a + 2 and the differences of two floats are exact in double, so this is the plain
/// loop's count.
int CountAgreeing(const std::vector<float>& r, int rCount, const std::vector<double>& sorted) {
    int n = 0;
    for (int i = 0; i < rCount; ++i) {
        const double a = r[static_cast<std::size_t>(i)];
        const auto lo = std::lower_bound(sorted.begin(), sorted.end(), a - kDescriptorTolerance);
        const auto hi = std::upper_bound(lo, sorted.end(), a + kDescriptorTolerance);
        n += static_cast<int>(hi - lo);
    }
    return n;
}

double Area(const std::array<double, 2>& a, const std::array<double, 2>& b,
            const std::array<double, 2>& c) {
    return std::fabs((b[0] - a[0]) * (c[1] - a[1]) - (c[0] - a[0]) * (b[1] - a[1])) * 0.5;
}

} // namespace

int CountAgreeingDistances(const CStarDescriptorStructure& r, const CStarDescriptorStructure& c) {
    return CountAgreeing(r.distances, r.count, SortedDistances(c));
}

void Image::BuildStarDescriptors(const CStarShapeList& starList,
                                 std::vector<CStarDescriptorStructure>* outDescriptors) const {
    outDescriptors->clear();
    outDescriptors->reserve(starList.size());
    const int limit =
        static_cast<int>(std::min<std::size_t>(starList.size() > 0 ? starList.size() - 1 : 0,
                                               static_cast<std::size_t>(kMaxDescriptorEntries)));
    for (const auto& s : starList) {
        CStarDescriptorStructure d;
        d.x = static_cast<std::int32_t>(s.x);
        d.y = static_cast<std::int32_t>(s.y);
        d.points.reserve(static_cast<std::size_t>(limit));
        d.distances.reserve(static_cast<std::size_t>(limit));
        for (const auto& t : starList) {
            const double ex = t.x - s.x, ey = t.y - s.y;
            const float dist = static_cast<float>(std::sqrt(ex * ex + ey * ey));
            if (dist > 0 && d.count < limit) {
                d.points.push_back(
                    {static_cast<std::int32_t>(t.x), static_cast<std::int32_t>(t.y)});
                d.distances.push_back(dist);
                ++d.count;
            }
        }
        outDescriptors->push_back(std::move(d));
    }
}

bool Image::MatchStarDescriptors(IProgress* progress, const std::string& callerTag,
                                 const std::vector<CStarDescriptorStructure>& reference,
                                 const std::vector<CStarDescriptorStructure>& current,
                                 std::vector<CStarMatchStructure>* outMatches) {
    (void)callerTag;
    outMatches->clear();
    std::vector<std::vector<double>> sorted;
    sorted.reserve(current.size());
    for (const auto& c : current)
        sorted.push_back(SortedDistances(c));
    for (const auto& r : reference) {
        if (progress && progress->Cancelled())
            return false;
        double best = 0;
        int bestIndex = -1;
        for (std::size_t j = 0; j < current.size(); ++j) {
            const int n = CountAgreeing(r.distances, r.count, sorted[j]);
            const int count = current[j].count == 0 ? 1 : current[j].count;
            const double ratio = static_cast<double>(n) / count;
            if (ratio >= best) {
                best = ratio;
                bestIndex = static_cast<int>(j);
            }
        }
        if (bestIndex >= 0 && best > kDescriptorMinRatio) {
            CStarMatchStructure m;
            m.refX = r.x;
            m.refY = r.y;
            m.curX = current[static_cast<std::size_t>(bestIndex)].x;
            m.curY = current[static_cast<std::size_t>(bestIndex)].y;
            m.ratio = best;
            outMatches->push_back(m);
        }
    }
    return true;
}

StarCorners PickCorners(const CStarMatchStructureList& matches, int midX, int midY) {
    StarCorners corners;
    std::array<double, 4> bx{}, by{};
    bx.fill(midX);
    by.fill(midY);
    for (std::size_t i = 0; i < matches.size(); ++i) {
        const double x = matches[i].refX, y = matches[i].refY;
        const bool take[4] = {
            bx[CornerA] > x && by[CornerA] > y, bx[CornerB] > x && y > by[CornerB],
            x > bx[CornerC] && y > by[CornerC], x > bx[CornerD] && by[CornerD] > y};
        for (int k = 0; k < 4; ++k)
            if (take[k]) {
                bx[k] = x;
                by[k] = y;
                corners.match[k] = static_cast<int>(i);
            }
    }
    return corners;
}

CornerPlan PlanCorners(const StarCorners& corners, bool smallStars) {
    CornerPlan plan;
    const auto has = [&](int k) { return corners.match[k] >= 0; };
    const bool a = has(CornerA), b = has(CornerB), c = has(CornerC), d = has(CornerD);
    const auto three = [&](std::vector<int> triple, std::vector<int> rigid) {
        plan.usable = true;
        plan.check = triple;
        plan.affine = smallStars;
        plan.align = smallStars ? triple : rigid;
    };
    if (a && b && d)
        three({CornerA, CornerD, CornerB}, {CornerB, CornerD});
    else if (a && c && d)
        three({CornerA, CornerD, CornerC}, {CornerA, CornerC});
    else if (a && b && c)
        three({CornerA, CornerB, CornerC}, {CornerA, CornerC});
    else if (b && c && d)
        three({CornerD, CornerB, CornerC}, {CornerD, CornerB});
    else {
        static const int kPairs[6][2] = {{CornerA, CornerC}, {CornerA, CornerD},
                                         {CornerA, CornerB}, {CornerD, CornerB},
                                         {CornerD, CornerC}, {CornerB, CornerC}};
        for (const auto& p : kPairs)
            if (has(p[0]) && has(p[1])) {
                plan.usable = true;
                plan.check = {p[0], p[1]};
                plan.affine = false;
                plan.align = plan.check;
                break;
            }
    }
    return plan;
}

double CornerCheckRatio(const std::vector<std::array<double, 2>>& reference,
                        const std::vector<std::array<double, 2>>& current) {
    if (reference.size() >= 3 && current.size() >= 3) {
        const double ar = Area(reference[0], reference[1], reference[2]);
        const double ac = Area(current[0], current[1], current[2]);
        const double larger = std::max(ar, ac), smaller = std::min(ar, ac);
        return larger > 0 ? smaller / larger : 0.0;
    }
    if (reference.size() < 2 || current.size() < 2)
        return 0.0;
    const auto sq = [](const std::array<double, 2>& p, const std::array<double, 2>& q) {
        return (p[0] - q[0]) * (p[0] - q[0]) + (p[1] - q[1]) * (p[1] - q[1]);
    };
    const double dr = sq(reference[0], reference[1]);
    double dc = sq(current[0], current[1]);
    if (dc == 0)
        dc = 1;
    return dr / dc;
}

bool CornerRatioInRange(double ratio) {
    return ratio >= 0.99 && ratio <= 1.01;
}

} // namespace astrivelle
