// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Quick Alignment's star matching: filter, pairs, pair matches, clusters.
#include "align/QuickMatch.h"

#include <cmath>
#include <limits>

#include "engine/Notify.h"

namespace astrivelle {

namespace {

double PeakOverBackground(double peak, double background) {
    if (background > 0)
        return peak / background;
    return peak > 0 ? std::numeric_limits<double>::infinity() : 0.0;
}

bool SamePoint(double x1, double y1, double x2, double y2) {
    return x1 == x2 && y1 == y2;
}

bool Within(double a, double b, double limit) {
    return std::fabs(a - b) <= limit;
}

} // namespace

double QuickPeakLimit(const CStarShapeList& stars) {
    if (stars.empty())
        return 1.0;
    double peak = 0, background = 0;
    for (const auto& s : stars) {
        peak += s.peak;
        background += s.background;
    }
    peak /= static_cast<double>(stars.size());
    background /= static_cast<double>(stars.size());
    const double t = (PeakOverBackground(peak, background) - 3.0) * 0.75 + 1.0;
    if (!(t >= 1.0)) // NaN counts as the lower limit
        return 1.0;
    return t > 3.5 ? 3.5 : t;
}

std::vector<QuickStar> FilterQuickStars(const CStarShapeList& stars) {
    const double t = QuickPeakLimit(stars);
    std::vector<QuickStar> kept;
    for (const auto& s : stars) {
        if (!(PeakOverBackground(s.peak, s.background) > t))
            continue;
        bool crowded = false;
        for (const auto& k : kept)
            if (Within(k.x, s.x, kQuickStarSpacing) && Within(k.y, s.y, kQuickStarSpacing)) {
                crowded = true;
                break;
            }
        if (!crowded)
            kept.push_back({s.x, s.y});
    }
    return kept;
}

bool BuildStarPairs(const std::vector<QuickStar>& stars, double scaledWidth, double scaledHeight,
                    std::vector<CStarPair>* outPairs, double* outShortest, double* outLongest) {
    outPairs->clear();
    double shortest = std::sqrt(scaledWidth * scaledHeight);
    double longest = 0;
    for (std::size_t i = 0; i < stars.size(); ++i)
        for (std::size_t j = i + 1; j < stars.size(); ++j) {
            CStarPair p;
            p.x1 = stars[i].x;
            p.y1 = stars[i].y;
            p.x2 = stars[j].x;
            p.y2 = stars[j].y;
            p.distance = std::hypot(p.x2 - p.x1, p.y2 - p.y1);
            if (p.distance < shortest)
                shortest = p.distance;
            if (p.distance > longest)
                longest = p.distance;
            outPairs->push_back(p);
        }
    if (outShortest)
        *outShortest = shortest;
    if (outLongest)
        *outLongest = longest;
    const double diagonal = std::sqrt(scaledWidth * scaledWidth + scaledHeight * scaledHeight);
    return !(shortest < kQuickStarSpacing || longest > diagonal);
}

double PairAngle(const CStarPair& ref, const CStarPair& cur) {
    const double ax = ref.x2 - ref.x1, ay = ref.y2 - ref.y1;
    const double bx = cur.x2 - cur.x1, by = cur.y2 - cur.y1;
    const double la = std::hypot(ax, ay), lb = std::hypot(bx, by);
    if (la == 0 || lb == 0)
        return 0;
    double c = (ax * bx + ay * by) / (la * lb);
    c = c > 1.0 ? 1.0 : (c < -1.0 ? -1.0 : c);
    return std::acos(c) * kDegreesPerRadian;
}

void MatchStarPairs(const std::vector<CStarPair>& reference, const std::vector<CStarPair>& current,
                    const std::string& fileName, const std::string& flip, CStarMatchList* out) {
    for (const auto& r : reference)
        for (const auto& c : current) {
            if (!(std::fabs(r.distance - c.distance) <= kQuickPairTolerance))
                continue;
            CStarDescriptorMatchStructure m;
            m.fileName = fileName;
            m.flip = flip;
            m.ref1 = r;
            m.ref2 = r;
            m.cur1 = c;
            m.cur2 = c;
            m.dx = r.x1 - c.x1;
            m.dy = r.y1 - c.y1;
            m.dz = 0;
            m.shiftLength = std::hypot(m.dx, m.dy);
            m.angle = PairAngle(r, c);
            m.votes = 1;
            out->push_back(std::move(m));
        }
}

bool ClusterMatches(const CStarMatchList& matches, IProgress* progress,
                    CStarMatchList* outClusters) {
    outClusters->clear();
    CStarMatchList fileClusters;
    std::string file;
    long filesDone = 0;
    const auto flush = [&] {
        outClusters->insert(outClusters->end(), fileClusters.begin(), fileClusters.end());
        fileClusters.clear();
        ++filesDone;
        if (progress)
            progress->SetProgress(filesDone, 0);
    };
    for (std::size_t n = 0; n < matches.size(); ++n) {
        if (n % 50 == 0 && progress && progress->Cancelled())
            return false;
        const auto& m = matches[n];
        if (n == 0)
            file = m.fileName;
        else if (m.fileName != file) {
            flush();
            file = m.fileName;
        }
        bool joined = false;
        for (auto& c : fileClusters) {
            if (c.fileName != m.fileName || c.flip != m.flip)
                continue;
            if (!Within(c.dx, m.dx, kQuickClusterShift) ||
                !Within(c.dy, m.dy, kQuickClusterShift) ||
                !Within(c.angle, m.angle, kQuickClusterAngle))
                continue;
            ++c.votes;
            const bool shares = SamePoint(m.ref1.x1, m.ref1.y1, c.ref1.x1, c.ref1.y1) ||
                                SamePoint(m.ref1.x1, m.ref1.y1, c.ref1.x2, c.ref1.y2) ||
                                SamePoint(m.ref1.x2, m.ref1.y2, c.ref1.x1, c.ref1.y1) ||
                                SamePoint(m.ref1.x2, m.ref1.y2, c.ref1.x2, c.ref1.y2);
            if (!shares) {
                c.ref2 = m.ref1;
                c.cur2 = m.cur1;
            }
            joined = true;
            break;
        }
        if (!joined) {
            CStarDescriptorMatchStructure c = m;
            c.votes = 1;
            fileClusters.push_back(std::move(c));
        }
    }
    if (!matches.empty())
        flush();
    return true;
}

CStarMatchList BestClusterPerFile(const CStarMatchList& clusters) {
    CStarMatchList best;
    for (const auto& c : clusters) {
        bool known = false;
        for (auto& b : best)
            if (b.fileName == c.fileName) {
                known = true;
                if (c.votes > b.votes)
                    b = c;
                break;
            }
        if (!known)
            best.push_back(c);
    }
    return best;
}

std::array<QuickStar, 4> ClusterReferenceStars(const CStarDescriptorMatchStructure& c) {
    return {QuickStar{c.ref1.x1, c.ref1.y1}, QuickStar{c.ref1.x2, c.ref1.y2},
            QuickStar{c.ref2.x1, c.ref2.y1}, QuickStar{c.ref2.x2, c.ref2.y2}};
}

std::array<QuickStar, 4> ClusterCurrentStars(const CStarDescriptorMatchStructure& c) {
    return {QuickStar{c.cur1.x1, c.cur1.y1}, QuickStar{c.cur1.x2, c.cur1.y2},
            QuickStar{c.cur2.x1, c.cur2.y1}, QuickStar{c.cur2.x2, c.cur2.y2}};
}

std::array<int, 3> LargestPerimeterTriangle(const std::array<QuickStar, 4>& s) {
    static const int kTriangles[4][3] = {{0, 1, 2}, {0, 1, 3}, {0, 2, 3}, {1, 2, 3}};
    const auto d = [&](int a, int b) { return std::hypot(s[a].x - s[b].x, s[a].y - s[b].y); };
    int bestIndex = 0;
    double best = -1;
    for (int t = 0; t < 4; ++t) {
        const int* k = kTriangles[t];
        const double perimeter = d(k[0], k[1]) + d(k[1], k[2]) + d(k[2], k[0]);
        if (perimeter > best) {
            best = perimeter;
            bestIndex = t;
        }
    }
    return {kTriangles[bestIndex][0], kTriangles[bestIndex][1], kTriangles[bestIndex][2]};
}

} // namespace astrivelle
