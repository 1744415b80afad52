// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Interpolation of RGB mosaics: the full-size path with its 5 by 5 window and the
/// half-size (R,G,B) pixel path; the Image member and the whole-image function on top.
#include <algorithm>
#include <cmath>

#include "calibration/Bayer.h"
#include "engine/Image.h"
#include "engine/Parallel.h"

namespace astrivelle {

namespace {

/// Mirror index at the edges without repeating the edge sample: -1 -> 1, n -> n - 2. This
/// keeps the parity of the index, so a reflected sample has the colour of the one it stands
/// for.
inline int Reflect(int i, int n) {
    if (i < 0)
        return -i;
    if (i >= n)
        return 2 * (n - 1) - i;
    return i;
}

inline float Clamp(float v, float top) {
    return v < 0.0f ? 0.0f : (v > top ? top : v);
}

/// Site kinds of a 2 by 2 cell for the interpolation.
enum Site : std::uint8_t {
    SiteRed,
    SiteBlue,
    SiteGreenOnRedRow, ///< green with red to its left and right, blue above and below
    SiteGreenOnBlueRow,
};

void SiteTable(const CfaCell& cell, Site table[2][2]) {
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 2; ++c) {
            const CfaColor here = cell.site[r][c];
            if (here == CfaColor::R)
                table[r][c] = SiteRed;
            else if (here == CfaColor::B)
                table[r][c] = SiteBlue;
            else
                table[r][c] =
                    cell.site[r][c ^ 1] == CfaColor::R ? SiteGreenOnRedRow : SiteGreenOnBlueRow;
        }
}

/// One output pixel of the full-size RGB path. `u2`..`d2` are the five window rows; `xm2`
/// .. `xp2` the five window columns (already reflected).
inline void RgbPixel(Site site, const float* u2, const float* u1, const float* c0, const float* d1,
                     const float* d2, int xm2, int xm1, int xc, int xp1, int xp2,
                     bool reduceGreenNoise, float top, float* red, float* green, float* blue) {
    const float C = c0[xc];
    const float L = c0[xm1], R = c0[xp1], U = u1[xc], D = d1[xc];
    const float diag = (u1[xm1] + u1[xp1] + d1[xm1] + d1[xp1]) * 0.25f;
    float r, g, b;
    if (site == SiteRed || site == SiteBlue) {
        if (reduceGreenNoise) {
            g = std::min((U + D) * 0.5f, (L + R) * 0.5f);
        } else {
            const float four = (L + U + R + D) * 0.25f;
            const float dh = std::fabs(c0[xp2] - c0[xm2]);
            const float dv = std::fabs(u2[xc] - d2[xc]);
            const float gd = dh > dv ? (D + U) * 0.5f : (dh < dv ? (R + L) * 0.5f : four);
            g = std::min(four, gd);
        }
        if (site == SiteRed) {
            r = C;
            b = diag;
        } else {
            b = C;
            r = diag;
        }
    } else {
        const float rowMean = (L + R) * 0.5f;
        const float colMean = (U + D) * 0.5f;
        if (site == SiteGreenOnRedRow) {
            r = rowMean;
            b = colMean;
        } else {
            b = rowMean;
            r = colMean;
        }
        g = reduceGreenNoise ? std::min(C, diag) : C;
    }
    *red = Clamp(r, top);
    *green = Clamp(g, top);
    *blue = Clamp(b, top);
}

void InterpolateRgbFull(const float* src, int w, int h, const CfaCell& cell, bool reduceGreenNoise,
                        float top, float* red, float* green, float* blue) {
    Site table[2][2];
    SiteTable(cell, table);
    const int ow = w - 2, oh = h - 2;
    ParallelRows(oh, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const int cy = y + 1; // the output is shifted by one
            const float* u2 = src + static_cast<std::size_t>(Reflect(cy - 2, h)) * w;
            const float* u1 = src + static_cast<std::size_t>(cy - 1) * w;
            const float* c0 = src + static_cast<std::size_t>(cy) * w;
            const float* d1 = src + static_cast<std::size_t>(cy + 1) * w;
            const float* d2 = src + static_cast<std::size_t>(Reflect(cy + 2, h)) * w;
            const Site* sites = table[cy & 1];
            float* r = red + static_cast<std::size_t>(y) * ow;
            float* g = green + static_cast<std::size_t>(y) * ow;
            float* b = blue + static_cast<std::size_t>(y) * ow;
            for (int x = 0; x < ow; ++x) {
                const int cx = x + 1;
                const int xm2 = (cx >= 2) ? cx - 2 : Reflect(cx - 2, w);
                const int xp2 = (cx + 2 < w) ? cx + 2 : Reflect(cx + 2, w);
                RgbPixel(sites[cx & 1], u2, u1, c0, d1, d2, xm2, cx - 1, cx, cx + 1, xp2,
                         reduceGreenNoise, top, r + x, g + x, b + x);
            }
        }
    });
}

void InterpolateRgbHalf(const float* src, int w, int h, const CfaCell& cell, bool reduceGreenNoise,
                        float top, float* red, float* green, float* blue) {
    // Positions of the cell's samples.
    int rx = 0, ry = 0, bx = 0, by = 0, gx[2] = {0, 0}, gy[2] = {0, 0}, greens = 0;
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 2; ++c) {
            const CfaColor here = cell.site[r][c];
            if (here == CfaColor::R) {
                rx = c;
                ry = r;
            } else if (here == CfaColor::B) {
                bx = c;
                by = r;
            } else if (greens < 2) {
                gx[greens] = c;
                gy[greens] = r;
                ++greens;
            }
        }
    const int ow = w / 2, oh = h / 2;
    ParallelRows(oh, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* row[2] = {src + static_cast<std::size_t>(2 * y) * w,
                                   src + static_cast<std::size_t>(2 * y + 1) * w};
            float* r = red + static_cast<std::size_t>(y) * ow;
            float* g = green + static_cast<std::size_t>(y) * ow;
            float* b = blue + static_cast<std::size_t>(y) * ow;
            for (int x = 0; x < ow; ++x) {
                const int x0 = 2 * x;
                const float g1 = row[gy[0]][x0 + gx[0]];
                const float g2 = row[gy[1]][x0 + gx[1]];
                r[x] = Clamp(row[ry][x0 + rx], top);
                b[x] = Clamp(row[by][x0 + bx], top);
                g[x] = Clamp(reduceGreenNoise ? std::min(g1, g2) : (g1 + g2) * 0.5f, top);
            }
        }
    });
}

} // namespace

bool InterpolatedSize(const CfaCell& cell, int width, int height, bool buildRgbPixel, int* outWidth,
                      int* outHeight) {
    if (buildRgbPixel) {
        if (cell.cygm || width < 2 || height < 2)
            return false;
        *outWidth = width / 2;
        *outHeight = height / 2;
        return true;
    }
    if (width < 3 || height < 3)
        return false;
    *outWidth = width - 2;
    *outHeight = height - 2;
    return true;
}

bool InterpolateMosaic(const float* src, int width, int height, const CfaCell& cell,
                       bool reduceGreenNoise, bool buildRgbPixel, float maxValue, float* red,
                       float* green, float* blue) {
    int ow = 0, oh = 0;
    if (!src || !red || !green || !blue ||
        !InterpolatedSize(cell, width, height, buildRgbPixel, &ow, &oh))
        return false;
    if (buildRgbPixel)
        InterpolateRgbHalf(src, width, height, cell, reduceGreenNoise, maxValue, red, green, blue);
    else if (cell.cygm)
        InterpolateCygm(src, width, height, cell, maxValue, red, green, blue);
    else
        InterpolateRgbFull(src, width, height, cell, reduceGreenNoise, maxValue, red, green, blue);
    return true;
}

bool Image::BayerInterpolate(bool copyHeader, const std::string& cfaPattern, const Image& source,
                             const float* sourcePlane, bool reduceGreenNoise, bool buildRGBPixel) {
    CfaCell cell;
    if (!ParseCfaKeyword(cfaPattern, &cell))
        return false;
    int ow = 0, oh = 0;
    if (!InterpolatedSize(cell, source.width, source.height, buildRGBPixel, &ow, &oh))
        return false;
    if (width != ow || height != oh || !AllocateCurrentPlanes(3))
        return false;
    if (!InterpolateMosaic(sourcePlane, source.width, source.height, cell, reduceGreenNoise,
                           buildRGBPixel, static_cast<float>(source.maxValue), curPlane[0],
                           curPlane[1], curPlane[2]))
        return false;
    if (copyHeader)
        CopyHeaderWithoutExtName(source.headerCards, headerCards);
    return true;
}

bool InterpolateBayerImage(const Image& mosaic, const std::string& cfaPattern,
                           bool reduceGreenNoise, bool buildRgbPixel, Image* out,
                           std::string* error) {
    const int slot = SlotOfColorType(mosaic.colorType);
    if (mosaic.colorType == ColorRGB || slot < 0 || !mosaic.curPlane[slot]) {
        *error = "Image must be a monochrome CFA .";
        return false;
    }
    CfaCell cell;
    if (!ParseCfaKeyword(cfaPattern, &cell)) {
        *error = "Unknown colour filter pattern " + cfaPattern;
        return false;
    }
    int ow = 0, oh = 0;
    if (!InterpolatedSize(cell, mosaic.width, mosaic.height, buildRgbPixel, &ow, &oh)) {
        *error = cell.cygm && buildRgbPixel
                     ? "Build (R,G,B) Pixel takes an RGB pattern, not " + cfaPattern
                     : "The Image Is Too Small to Interpolate.";
        return false;
    }
    out->FreePlanes();
    out->headerCards.clear();
    out->SetGeometryFits(mosaic.fileType, ColorRGB, 0, mosaic.dataType, ow, oh);
    out->tiffBitsPerSample = mosaic.tiffBitsPerSample;
    out->fitsCompress = mosaic.fitsCompress;
    out->tiffInfo = mosaic.tiffInfo;
    out->description = mosaic.description;
    if (!out->AllocateCurrentPlanes(3)) {
        *error = "Error Allocating Memory";
        return false;
    }
    out->maxValue = mosaic.maxValue;
    if (!out->BayerInterpolate(true, cfaPattern, mosaic, mosaic.curPlane[slot], reduceGreenNoise,
                               buildRgbPixel)) {
        *error = "Could Not Create The Color Image.";
        return false;
    }
    return true;
}

} // namespace astrivelle
