// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The star search: a Morphological edge map of the channel with its mean level taken
/// off, a grid of small windows that climb to the bright spots of the map, and the measures
/// of each candidate on the channel itself.
#include <cstring>
#include <unordered_set>
#include <vector>

#include "engine/Image.h"
#include "engine/Notify.h"
#include "operators/Restoration.h"

namespace astrivelle {

namespace {

// The fixed recipe of every list search.
constexpr int kGridStep = 9;
constexpr int kGridStart = 4;
constexpr int kFirstRadius = 4;
constexpr int kSecondRadius = 8;
constexpr int kStarRadius = 14;
constexpr int kStarDiagonal = 9; // the truncation of 14 / sqrt(2)
constexpr int kEdgeMargin = 15;
constexpr double kMaxAsymmetry = 2.0;
constexpr double kPeakFactor = 1.5;
constexpr const char* kCancellingCaller = "CStarShape";

/// Keeps a record only when no record kept before it has the same truncated x and y.
void RemoveDoubles(std::vector<CStarShapeStructure>* list) {
    std::unordered_set<std::uint64_t> seen;
    seen.reserve(list->size() * 2);
    std::size_t kept = 0;
    for (std::size_t i = 0; i < list->size(); ++i) {
        const auto& s = (*list)[i];
        const std::uint64_t key =
            (static_cast<std::uint64_t>(static_cast<std::uint32_t>(static_cast<int>(s.x))) << 32) |
            static_cast<std::uint32_t>(static_cast<int>(s.y));
        if (!seen.insert(key).second)
            continue;
        if (kept != i)
            (*list)[kept] = std::move((*list)[i]);
        ++kept;
    }
    list->resize(kept);
}

/// The search into `found`, at most `limit` records (before doubles are removed; -1 for no
/// limit). Returns the candidate count.
int Search(Image& image, IProgress* progress, const std::string& callerTag, const float* channel,
           long limit, std::vector<CStarShapeStructure>* found, bool wantFwhm, bool wantHfd) {
    const int w = image.width, h = image.height;
    if (!channel || w <= 0 || h <= 0 || limit == 0)
        return 0;
    // 1. The edge map of the channel, in a work image of the same size.
    Image work;
    work.SetGeometry(KindFITS, ColorGray, 0, w, h);
    if (!work.AllocateSlotPlanes(0))
        return 0;
    float* prev = work.prevPlane[0];
    float* edges = work.curPlane[0];
    std::memcpy(prev, channel, static_cast<std::size_t>(w) * h * sizeof(float));
    if (!work.EdgeExtract(true, prev, edges, EdgeMorphological, false, 32767, 1.0, 1))
        return 0;
    // 2. The mean level m of the map taken off the values within 0..2m.
    const double m = work.MeanOfPlane(edges);
    work.PixelAdd(false, prev, edges, -m, 0, static_cast<int>(2.0 * m), 0);
    // 3. The threshold.
    const double threshold = 1.5 * work.MeanOfPlane(edges);
    const bool listens = progress && callerTag == kCancellingCaller;

    // 4. The grid.
    int candidates = 0;
    CStarShapeStructure star;
    for (int y = kGridStart; y <= h - kGridStart; y += kGridStep) {
        for (int x = kGridStart; x <= w - kGridStart; x += kGridStep) {
            if (listens && progress->Cancelled())
                return candidates;
            double cx = 0.0, cy = 0.0;
            // The centroid does not change the window, so the mean is tested before it is
            // taken: the same outcome, and most grid points end here.
            image.LoadNbhd(edges, x, y, kFirstRadius);
            image.NbhdClipBelow(image.NbhdMeanValue());
            if (!(image.NbhdMeanValue() > threshold))
                continue;
            image.NbhdCentroid(&cx, &cy);
            image.LoadNbhd(edges, static_cast<int>(cx) - 1, static_cast<int>(cy) - 1,
                           kSecondRadius);
            image.NbhdClipBelow(image.NbhdMeanValue());
            if (!(image.NbhdMeanValue() > threshold))
                continue;
            image.NbhdCentroid(&cx, &cy);
            const int sx = static_cast<int>(cx) - 1, sy = static_cast<int>(cy) - 1;
            if (!(sy > kEdgeMargin && sy < h - kEdgeMargin && sx >= kEdgeMargin + 1 &&
                  sx < w - kEdgeMargin))
                continue;
            ++candidates;
            if (image.MeasureStar(false, channel, sx, sy, kStarRadius, kStarDiagonal, kEdgeMargin,
                                  kMaxAsymmetry, kPeakFactor, &star, wantFwhm, wantHfd)) {
                found->push_back(star);
                if (limit > 0 && static_cast<long>(found->size()) >= limit)
                    return candidates;
            }
        }
    }
    return candidates;
}

} // namespace

void Image::FindStars(IProgress* progress, const std::string& callerTag, const float* channel,
                      CStarShapeList* outList, int* outCandidates, int* outAccepted, bool wantFwhm,
                      bool wantHfd) {
    CStarShapeList found;
    const int candidates =
        Search(*this, progress, callerTag, channel, -1, &found, wantFwhm, wantHfd);
    RemoveDoubles(&found);
    if (outCandidates)
        *outCandidates = candidates;
    if (outAccepted)
        *outAccepted = static_cast<int>(found.size());
    if (outList)
        *outList = std::move(found);
}

void Image::FindStarsBounded(IProgress* progress, const std::string& callerTag,
                             const float* channel, CStarShapeStructure* outArray, int capacity,
                             int* outCandidates, int* outAccepted, bool wantFwhm, bool wantHfd) {
    CStarShapeList found;
    const long limit = capacity > 1 && outArray ? capacity - 1 : 0;
    const int candidates =
        Search(*this, progress, callerTag, channel, limit, &found, wantFwhm, wantHfd);
    RemoveDoubles(&found);
    for (std::size_t i = 0; i < found.size(); ++i)
        outArray[i] = std::move(found[i]);
    if (outCandidates)
        *outCandidates = candidates;
    if (outAccepted)
        *outAccepted = static_cast<int>(found.size());
}

} // namespace astrivelle
