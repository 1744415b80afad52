// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Splitting an RGB mosaic into its colour planes and putting planes back into a
/// mosaic; the Image members SplitBayerPlane and CombineBayerPlanes.
#include "calibration/Bayer.h"
#include "engine/Image.h"
#include "engine/Parallel.h"

namespace astrivelle {

namespace {

/// Where the samples of a 2 by 2 cell are: red, blue, and the green of each cell row.
struct CellSites {
    int rx = 0, ry = 0, bx = 0, by = 0;
    int greenX[2] = {0, 0}; ///< column of the green in cell row 0 and cell row 1
};

bool Sites(const CfaCell& cell, CellSites* s) {
    if (cell.cygm)
        return false;
    int found = 0;
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 2; ++c) {
            const CfaColor here = cell.site[r][c];
            if (here == CfaColor::R) {
                s->rx = c;
                s->ry = r;
                found |= 1;
            } else if (here == CfaColor::B) {
                s->bx = c;
                s->by = r;
                found |= 2;
            } else if (here == CfaColor::G) {
                s->greenX[r] = c;
            }
        }
    return found == 3;
}

} // namespace

bool SplitSize(const CfaCell& cell, int width, int height, std::uint32_t colorType,
               bool averageGreen, int* outWidth, int* outHeight) {
    if (cell.cygm || width <= 0 || height <= 0 || width % 2 || height % 2)
        return false;
    if (colorType != ColorRed && colorType != ColorGreen && colorType != ColorBlue)
        return false;
    *outWidth = width / 2;
    *outHeight = (colorType == ColorGreen && !averageGreen) ? height : height / 2;
    return true;
}

bool SplitMosaic(const float* src, int width, int height, const CfaCell& cell,
                 std::uint32_t colorType, bool averageGreen, float* dst) {
    int ow = 0, oh = 0;
    CellSites s;
    if (!src || !dst || !SplitSize(cell, width, height, colorType, averageGreen, &ow, &oh) ||
        !Sites(cell, &s))
        return false;
    if (colorType == ColorGreen && !averageGreen) {
        // Each mosaic row gives one output row of its green samples.
        ParallelRows(oh, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y) {
                const float* in = src + static_cast<std::size_t>(y) * width + s.greenX[y & 1];
                float* out = dst + static_cast<std::size_t>(y) * ow;
                for (int x = 0; x < ow; ++x)
                    out[x] = in[2 * x];
            }
        });
        return true;
    }
    ParallelRows(oh, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* row[2] = {src + static_cast<std::size_t>(2 * y) * width,
                                   src + static_cast<std::size_t>(2 * y + 1) * width};
            float* out = dst + static_cast<std::size_t>(y) * ow;
            if (colorType == ColorGreen) {
                for (int x = 0; x < ow; ++x)
                    out[x] = (row[0][2 * x + s.greenX[0]] + row[1][2 * x + s.greenX[1]]) * 0.5f;
            } else {
                const int cx = colorType == ColorRed ? s.rx : s.bx;
                const float* in = row[colorType == ColorRed ? s.ry : s.by] + cx;
                for (int x = 0; x < ow; ++x)
                    out[x] = in[2 * x];
            }
        }
    });
    return true;
}

bool CombineIntoMosaic(float* mosaic, int width, int height, const CfaCell& cell, const float* red,
                       const float* green, const float* blue, const double scales[3]) {
    CellSites s;
    if (!mosaic || width <= 0 || height <= 0 || width % 2 || height % 2 || !Sites(cell, &s))
        return false;
    const int cw = width / 2;
    const float kr = static_cast<float>(scales[0]);
    const float kg = static_cast<float>(scales[1]);
    const float kb = static_cast<float>(scales[2]);
    ParallelRows(height / 2, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* row[2] = {mosaic + static_cast<std::size_t>(2 * y) * width,
                             mosaic + static_cast<std::size_t>(2 * y + 1) * width};
            if (red) {
                const float* in = red + static_cast<std::size_t>(y) * cw;
                float* out = row[s.ry] + s.rx;
                for (int x = 0; x < cw; ++x)
                    out[2 * x] = in[x] * kr;
            }
            if (blue) {
                const float* in = blue + static_cast<std::size_t>(y) * cw;
                float* out = row[s.by] + s.bx;
                for (int x = 0; x < cw; ++x)
                    out[2 * x] = in[x] * kb;
            }
            if (green) {
                for (int k = 0; k < 2; ++k) {
                    const float* in = green + static_cast<std::size_t>(2 * y + k) * cw;
                    float* out = row[k] + s.greenX[k];
                    for (int x = 0; x < cw; ++x)
                        out[2 * x] = in[x] * kg;
                }
            }
        }
    });
    return true;
}

bool Image::SplitBayerPlane(const Image& source, std::uint32_t splitColor,
                            const std::string& cfaPattern, bool useSavedPlanes, bool averageGreen,
                            const std::string& keyword) {
    CfaCell cell;
    if (!ParseCfaKeyword(cfaPattern, &cell))
        return false;
    const int slot = SlotOfColorType(source.colorType);
    if (source.colorType == ColorRGB || slot < 0)
        return false;
    const float* plane = useSavedPlanes ? source.prevPlane[slot] : source.curPlane[slot];
    int ow = 0, oh = 0;
    if (!plane || !SplitSize(cell, source.width, source.height, splitColor, averageGreen, &ow, &oh))
        return false;
    FreePlanes();
    // The save type decides the format: FITS of 16 bits or of floats, else a 16-bit TIFF.
    if (keyword == "COMPFIT" || keyword == "UNCOMPFIT") {
        SetGeometryFits(KindFITS, splitColor, 0, Data16, ow, oh);
        fitsCompress = keyword == "COMPFIT";
    } else if (keyword == "COMPFIT32" || keyword == "UNCOMPFIT32") {
        SetGeometryFits(KindFITS, splitColor, 0, DataFloat, ow, oh);
        fitsCompress = keyword == "COMPFIT32";
    } else {
        SetGeometryTiff(KindTIFF, splitColor, 0, ow, oh, 16);
    }
    if (!AllocatePlanes(1))
        return false;
    maxValue = source.maxValue;
    const int out = SlotOfColorType(splitColor);
    if (!SplitMosaic(plane, source.width, source.height, cell, splitColor, averageGreen,
                     curPlane[out]))
        return false;
    CopyPlane(prevPlane[out], curPlane[out]);
    return true;
}

bool Image::CombineBayerPlanes(const Image* red, const Image* green, const Image* blue,
                               const double scales[3], const std::string& cfaPattern) {
    CfaCell cell;
    const int slot = SlotOfColorType(colorType);
    if (!ParseCfaKeyword(cfaPattern, &cell) || colorType == ColorRGB || slot < 0 || !curPlane[slot])
        return false;
    // Each set must have the size the mosaic asks of it.
    const auto fits = [&](const Image* set, bool isGreen) {
        return !set || (set->width == width / 2 && set->height == (isGreen ? height : height / 2));
    };
    if (!fits(red, false) || !fits(green, true) || !fits(blue, false))
        return false;
    // A monochrome set gives its one plane; an RGB set the plane of its role.
    const auto planeOf = [](const Image* set, int role) -> const float* {
        if (!set)
            return nullptr;
        const int s = set->colorType == ColorRGB ? role : SlotOfColorType(set->colorType);
        return s < 0 ? nullptr : set->curPlane[s];
    };
    const float* r = planeOf(red, 0);
    const float* g = planeOf(green, 1);
    const float* b = planeOf(blue, 2);
    if ((red && !r) || (green && !g) || (blue && !b))
        return false;
    return CombineIntoMosaic(curPlane[slot], width, height, cell, r, g, b, scales);
}

} // namespace astrivelle
