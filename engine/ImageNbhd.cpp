// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The neighbourhood buffer of Image: filling it about a pixel and its measures (mean,
/// extremes, median, deviation, entropy, centroid) as used by star code, filters and readouts.
///
/// The buffer holds (2r + 1)^2 samples row by row, top row first; a sample outside the image
/// is -1.0 and every measure ignores it. nbhdRadius, nbhdSide and nbhdCount describe `nbhd`;
/// the second buffer and the star-shape buffer are sized for the radius they were set with,
/// which their users keep, so that setting them never leaves `nbhd` smaller than nbhdCount.
#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "engine/Image.h"

namespace astrivelle {

namespace detail {
void EntropyFromCounts(const std::uint32_t* counts, std::size_t bins, double n, double* entropy,
                       double* ratio);
} // namespace detail

namespace {

constexpr float kOutside = -1.0f;

/// Frees `buffer` and allocates (2r + 1)^2 + 1 zeroed floats.
void ReallocBuffer(float*& buffer, std::uint32_t r) {
    delete[] buffer;
    buffer = nullptr;
    const std::size_t side = 2 * static_cast<std::size_t>(r) + 1;
    buffer = new (std::nothrow) float[side * side + 1]();
    if (!buffer)
        SmallBufferFailure();
}

/// The rounded valid samples, sorted ascending.
std::vector<int> SortedLevels(const float* nbhd, int count) {
    std::vector<int> levels;
    try {
        levels.reserve(static_cast<std::size_t>(count));
    } catch (const std::bad_alloc&) {
        SmallBufferFailure();
    }
    for (int i = 0; i < count; ++i)
        if (nbhd[i] != kOutside)
            levels.push_back(RoundLevel(nbhd[i], 0, 65535));
    std::sort(levels.begin(), levels.end());
    return levels;
}

/// Entropy and ratio of the histogram of the buffer's rounded valid samples. The counts of
/// the occupied levels in ascending order give the same sums, in the same order, as a walk
/// over all 65536 bins.
void NbhdEntropy(const float* nbhd, int count, double* entropy, double* ratio) {
    std::vector<int> levels = SortedLevels(nbhd, count);
    std::vector<std::uint32_t> runs;
    try {
        runs.reserve(levels.size());
    } catch (const std::bad_alloc&) {
        SmallBufferFailure();
    }
    for (std::size_t i = 0; i < levels.size();) {
        std::size_t j = i;
        while (j < levels.size() && levels[j] == levels[i])
            ++j;
        runs.push_back(static_cast<std::uint32_t>(j - i));
        i = j;
    }
    detail::EntropyFromCounts(runs.data(), runs.size(), static_cast<double>(levels.size()), entropy,
                              ratio);
}

} // namespace

void Image::FreeNbhd() {
    delete[] nbhd;
    delete[] nbhdAlt;
    delete[] nbhdStar;
    nbhd = nbhdAlt = nbhdStar = nullptr;
}

void Image::SetNbhdRadius(std::uint32_t r) {
    ReallocBuffer(nbhd, r);
    nbhdRadius = r;
    nbhdSide = static_cast<std::int32_t>(2 * r + 1);
    nbhdCount = nbhdSide * nbhdSide;
}

void Image::SetNbhdAltRadius(std::uint32_t r) {
    ReallocBuffer(nbhdAlt, r);
}

void Image::SetStarShapeRadius(std::uint32_t r) {
    ReallocBuffer(nbhdStar, r);
}

void Image::FillNbhd(const float* plane, int x, int y, int r) {
    if (r < 0)
        r = 0;
    if (!nbhd || static_cast<std::uint32_t>(r) != nbhdRadius)
        SetNbhdRadius(static_cast<std::uint32_t>(r));
    nbhdX = static_cast<std::uint32_t>(x);
    nbhdY = static_cast<std::uint32_t>(y);
    float* out = nbhd;
    for (int yy = y - r; yy <= y + r; ++yy)
        for (int xx = x - r; xx <= x + r; ++xx)
            *out++ = (xx < 0 || yy < 0 || xx >= width || yy >= height || !plane)
                         ? kOutside
                         : plane[static_cast<std::size_t>(yy) * width + xx];
}

void Image::FillNbhdColor(const float* r, const float* g, const float* b, int x, int y,
                          int radius) {
    if (radius < 0)
        radius = 0;
    if (!nbhd || static_cast<std::uint32_t>(radius) != nbhdRadius)
        SetNbhdRadius(static_cast<std::uint32_t>(radius));
    nbhdX = static_cast<std::uint32_t>(x);
    nbhdY = static_cast<std::uint32_t>(y);
    float* out = nbhd;
    for (int yy = y - radius; yy <= y + radius; ++yy)
        for (int xx = x - radius; xx <= x + radius; ++xx) {
            if (xx < 0 || yy < 0 || xx >= width || yy >= height || !r || !g || !b) {
                *out++ = kOutside;
                continue;
            }
            const std::size_t i = static_cast<std::size_t>(yy) * width + xx;
            *out++ = static_cast<float>(ValueOf(r[i], g[i], b[i]));
        }
}

double Image::MeanOfNbhd() const {
    if (!nbhd)
        return 0.0;
    double sum = 0.0;
    int valid = 0;
    for (int i = 0; i < nbhdCount; ++i)
        if (nbhd[i] != kOutside) {
            sum += nbhd[i];
            ++valid;
        }
    return valid ? sum / valid : 0.0;
}

double Image::MaxOfNbhd() const {
    if (!nbhd)
        return 0.0;
    bool any = false;
    double m = 0.0;
    for (int i = 0; i < nbhdCount; ++i)
        if (nbhd[i] != kOutside && (!any || nbhd[i] > m)) {
            m = nbhd[i];
            any = true;
        }
    return m;
}

double Image::MinOfNbhd() const {
    if (!nbhd)
        return 0.0;
    bool any = false;
    double m = 0.0;
    for (int i = 0; i < nbhdCount; ++i)
        if (nbhd[i] != kOutside && (!any || nbhd[i] < m)) {
            m = nbhd[i];
            any = true;
        }
    return m;
}

std::uint32_t Image::MedianOfNbhd() const {
    if (!nbhd)
        return 0;
    if (nbhdRadius == 0)
        return static_cast<std::uint32_t>(RoundLevel(nbhd[0], 0, 65535));
    std::vector<int> levels = SortedLevels(nbhd, nbhdCount);
    if (levels.empty())
        return 0;
    return static_cast<std::uint32_t>(levels[levels.size() / 2]);
}

double Image::StdDevOfNbhd() const {
    if (!nbhd)
        return 0.0;
    // The mean is truncated to a level before the deviations are taken.
    const double mean = std::trunc(MeanOfNbhd());
    double sumSq = 0.0;
    int valid = 0;
    for (int i = 0; i < nbhdCount; ++i)
        if (nbhd[i] != kOutside) {
            const double d = nbhd[i] - mean;
            sumSq += d * d;
            ++valid;
        }
    if (valid <= 1 || sumSq == 0.0)
        return 0.0;
    return std::sqrt(sumSq / (valid - 1));
}

double Image::EntropyOfNbhd() const {
    if (!nbhd)
        return 0.0;
    double entropy = 0.0, ratio = -1.0;
    NbhdEntropy(nbhd, nbhdCount, &entropy, &ratio);
    return entropy;
}

double Image::EntropyRatioOfNbhd() const {
    if (!nbhd)
        return -1.0;
    double entropy = 0.0, ratio = -1.0;
    NbhdEntropy(nbhd, nbhdCount, &entropy, &ratio);
    return ratio;
}

void Image::CentroidOfNbhd(double* cx, double* cy) const {
    // Image coordinates of the fill centre; the result is in image coordinates too.
    *cx = nbhdX;
    *cy = nbhdY;
    if (!nbhd || nbhdRadius == 0)
        return;
    const double background = MeanOfNbhd();
    const int r = static_cast<int>(nbhdRadius);
    double sw = 0.0, sx = 0.0, sy = 0.0;
    for (int dy = -r; dy <= r; ++dy)
        for (int dx = -r; dx <= r; ++dx) {
            const float p = nbhd[(dy + r) * nbhdSide + (dx + r)];
            if (p == kOutside || !(p > background))
                continue;
            const double w = p - background; // weight: height above the background
            sw += w;
            sx += w * (static_cast<double>(nbhdX) + dx);
            sy += w * (static_cast<double>(nbhdY) + dy);
        }
    if (sw > 0.0) {
        *cx = sx / sw;
        *cy = sy / sw;
    }
}

void Image::MeasureNeighbourhood() {
    CentroidOfNbhd(&nbhdCentroidX, &nbhdCentroidY);
    nbhdMean = MeanOfNbhd();
    nbhdAverage = nbhdMean;
    nbhdMax = MaxOfNbhd();
    nbhdMin = MinOfNbhd();
    nbhdMedian = MedianOfNbhd();
    nbhdStdDev = StdDevOfNbhd();
    double entropy = 0.0, ratio = -1.0;
    if (nbhd)
        NbhdEntropy(nbhd, nbhdCount, &entropy, &ratio);
    nbhdEntropy = entropy;
    nbhdEntropyRatio = ratio;
}

} // namespace astrivelle
