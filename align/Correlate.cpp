// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Point correlation: a template cut around a point of the reference is followed into
/// another image by normalized correlation (CorrelateAt), searched for in rings when it moved
/// further than the radius (CorrelateSearch), and refined to a fraction of a pixel by
/// shifting the block with Translate (SubPixelRefine).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "align/CorrelationScores.h"
#include "engine/Image.h"
#include "engine/Parallel.h"

namespace astrivelle {

namespace {

constexpr float kMissing = -1.0f;

/// The plane a correlation reads, or nullptr for the luminance of the three planes.
const float* CorrelationPlane(const Image& image, bool luminanceMode) {
    if (image.colorType == ColorRGB)
        return luminanceMode ? image.curPlane[0] : nullptr;
    const int slot = SlotOfColorType(image.colorType);
    return slot < 0 ? nullptr : image.curPlane[slot];
}

/// Fills `out` (side 2r+1, row order) with the square of radius r around (x, y); pixels
/// outside the image are -1.0.
void LoadBlock(const Image& image, bool luminanceMode, int x, int y, int r, float* out) {
    const int side = 2 * r + 1;
    const float* plane = CorrelationPlane(image, luminanceMode);
    const float* red = image.curPlane[0];
    const float* green = image.curPlane[1];
    const float* blue = image.curPlane[2];
    const bool haveColour = red && green && blue;
    for (int j = 0; j < side; ++j) {
        const int sy = y - r + j;
        float* row = out + static_cast<std::size_t>(j) * side;
        for (int i = 0; i < side; ++i) {
            const int sx = x - r + i;
            if (sx < 0 || sy < 0 || sx >= image.width || sy >= image.height) {
                row[i] = kMissing;
                continue;
            }
            const std::size_t at = static_cast<std::size_t>(sy) * image.width + sx;
            if (plane) {
                row[i] = plane[at];
            } else if (haveColour) {
                float v = red[at];
                if (green[at] > v)
                    v = green[at];
                if (blue[at] > v)
                    v = blue[at];
                row[i] = v;
            } else {
                row[i] = kMissing;
            }
        }
    }
}

} // namespace

void Image::CorrelationTemplate(int radius, int x, int y, bool luminanceMode,
                                std::vector<float>* out, double* outNorm) const {
    const int side = 2 * radius + 1;
    out->assign(static_cast<std::size_t>(side) * side, kMissing);
    LoadBlock(*this, luminanceMode, x, y, radius, out->data());
    double sum = 0;
    for (float v : *out)
        if (v != kMissing)
            sum += static_cast<double>(v) * v;
    *outNorm = std::sqrt(sum);
}

void Image::CorrelateAt(int radius, const float* tmpl, double templateNorm, int x, int y, int* outX,
                        int* outY, bool* outOffEdge, double* outBest, bool luminanceMode) const {
    const int r = radius;
    const int edge = 2 * r + 1;
    if (r < 0 || edge >= x || x >= width - edge || edge >= y || y >= height - edge) {
        *outOffEdge = true;
        *outX = 0;
        *outY = 0;
        *outBest = 0;
        return;
    }
    *outOffEdge = false;
    const int side = edge;
    const int windowSide = 4 * r + 1;
    std::vector<float> window(static_cast<std::size_t>(windowSide) * windowSide);
    LoadBlock(*this, luminanceMode, x, y, 2 * r, window.data());
    // Inside the image the window has no marks unless a pixel holds -1.0 itself; then the
    // plain sum, which skips them, is used throughout.
    const bool marked = std::find(window.begin(), window.end(), kMissing) != window.end();
    std::vector<double> score;
    CorrelationScores(window.data(), windowSide, tmpl, side, templateNorm, marked, true, &score);
    std::size_t bestAt = 0;
    for (std::size_t k = 1; k < score.size(); ++k)
        if (score[k] > score[bestAt])
            bestAt = k;
    *outX = x + static_cast<int>(bestAt % side) - r;
    *outY = y + static_cast<int>(bestAt / side) - r;
    *outBest = score[bestAt];
}

bool Image::SubPixelRefine(int radius, const float* tmpl, double step, int x, int y, double* outX,
                           double* outY, bool luminanceMode) const {
    *outX = x;
    *outY = y;
    if (radius < 1 || !(step > 0) || step >= 1.0)
        return false;
    const int side = 2 * radius + 1;
    std::vector<float> block(static_cast<std::size_t>(side) * side);
    LoadBlock(*this, luminanceMode, x, y, radius, block.data());
    for (float v : block)
        if (v == kMissing)
            return false;

    // The template without its outer ring, and its norm.
    const int inner = side - 2;
    std::vector<float> core(static_cast<std::size_t>(inner) * inner);
    double sum = 0;
    for (int j = 0; j < inner; ++j)
        for (int i = 0; i < inner; ++i) {
            const float v = tmpl[static_cast<std::size_t>(j + 1) * side + i + 1];
            core[static_cast<std::size_t>(j) * inner + i] = v;
            if (v != kMissing)
                sum += static_cast<double>(v) * v;
        }
    const double coreNorm = std::sqrt(sum);

    Image shifter;
    shifter.SetGeometry(KindFITS, ColorGray, 0, side, side);
    std::vector<float> shifted(block.size());
    const int n = static_cast<int>(1.0 / step - 1.0) * 2 + 1;
    const int half = (n - 1) / 2;
    double best = 0;
    bool have = false;
    double bestOx = 0, bestOy = 0;
    for (int ky = -half; ky <= half; ++ky)
        for (int kx = -half; kx <= half; ++kx) {
            const double ox = kx * step, oy = ky * step;
            // Moved left by ox (right for a negative ox): the shifted block's pixel i holds
            // the image at x - r + i + ox, so the best offset is where the point lies.
            if (!shifter.Translate(false, block.data(), shifted.data(), oy > 0, ox > 0,
                                   std::fabs(oy), std::fabs(ox), 0.0f, true, 2))
                return false;
            const double c =
                BlockCorrelation(shifted.data() + side + 1, side, core.data(), inner, coreNorm);
            if (!have || c > best) {
                have = true;
                best = c;
                bestOx = ox;
                bestOy = oy;
            }
        }
    *outX = x + bestOx;
    *outY = y + bestOy;
    return true;
}

bool Image::CorrelateSearch(int radius, const float* tmpl, double templateNorm, double refX,
                            double refY, double minimum, double subPixelStep, double* inOutX,
                            double* inOutY, double* inOutMaxShift, std::string* outError,
                            bool luminanceMode) const {
    const int startX = static_cast<int>(*inOutX);
    const int startY = static_cast<int>(*inOutY);
    const int r = radius;
    bool triedOffEdge = false;
    bool accepted = false;
    bool acceptedOffEdge = false;
    int foundX = 0, foundY = 0;

    // 1. At the start.
    {
        bool off = false;
        double best = 0;
        CorrelateAt(r, tmpl, templateNorm, startX, startY, &foundX, &foundY, &off, &best,
                    luminanceMode);
        triedOffEdge |= off;
        if (best >= minimum) {
            accepted = true;
            acceptedOffEdge = off;
        }
    }
    // 2. The ring of eight at r, then 3. the outer ring of the 5 by 5 grid. Equal values go
    // to the later position.
    for (int ring = 1; ring <= 2 && !accepted; ++ring) {
        bool have = false, haveOff = false;
        double ringBest = 0;
        int ringX = 0, ringY = 0;
        for (int i = -ring; i <= ring; ++i)
            for (int j = -ring; j <= ring; ++j) {
                if (std::abs(i) != ring && std::abs(j) != ring)
                    continue;
                int x = 0, y = 0;
                bool off = false;
                double best = 0;
                CorrelateAt(r, tmpl, templateNorm, startX + i * r, startY + j * r, &x, &y, &off,
                            &best, luminanceMode);
                triedOffEdge |= off;
                if (!have || best >= ringBest) {
                    have = true;
                    ringBest = best;
                    ringX = x;
                    ringY = y;
                    haveOff = off;
                }
            }
        if (have && ringBest >= minimum) {
            accepted = true;
            acceptedOffEdge = haveOff;
            foundX = ringX;
            foundY = ringY;
        }
    }
    if (!accepted || acceptedOffEdge) {
        if (outError) {
            if (triedOffEdge || acceptedOffEdge) {
                char text[160];
                std::snprintf(text, sizeof text,
                              "Alignment point (%d, %d) has tracked too close to the image edge. "
                              "Reselect.",
                              startX, startY);
                *outError = text;
            } else {
                *outError = "Images Not Correlated.";
            }
        }
        return false;
    }
    double x = foundX, y = foundY;
    if (subPixelStep < 1.0) {
        double fx = x, fy = y;
        if (SubPixelRefine(r, tmpl, subPixelStep, foundX, foundY, &fx, &fy, luminanceMode)) {
            x = fx;
            y = fy;
        }
    }
    *inOutX = x;
    *inOutY = y;
    if (inOutMaxShift) {
        const double shift = std::hypot(x - refX, y - refY);
        if (shift > *inOutMaxShift)
            *inOutMaxShift = shift;
    }
    return true;
}

} // namespace astrivelle
