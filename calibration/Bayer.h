// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Colour filter arrays of one-shot colour cameras: the pattern keywords, the camera
/// list, and the pixel cores that turn a mosaic into colour (interpolation), cut it into its
/// colour planes (split) and put planes back into a mosaic (combine). The Image members
/// BayerInterpolate, SplitBayerPlane and CombineBayerPlanes are built on these cores.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace astrivelle {

class Image;

/// The filter over one site of a mosaic. Gr and Gb are both G.
enum class CfaColor : std::uint8_t { R, G, B, C, Y, M };

/// One repeating cell of a mosaic, its top left on the mosaic's pixel (0, 0).
struct CfaCell {
    std::string keyword;
    bool cygm = false; ///< 2 columns by 4 rows of C, Y, G, M; else 2 by 2 of R, G, B
    int cellHeight = 2;
    CfaColor site[4][2] = {};
    CfaColor At(int x, int y) const { return site[y % cellHeight][x & 1]; }
};

/// Reads a pattern keyword of the table ("RG,GB", "GR,BG", "GB,RG", "BG,GR", "RGr,GbB",
/// "GrR,BGb", "GbB,RGr", "BGb,GrR" and the eight CYGM keywords "CYGM,CYMG" ... "GMYC,MGYC").
/// Keywords compare exactly; false for any other text.
bool ParseCfaKeyword(const std::string& keyword, CfaCell* cell);

/// True for one of the eight 2 by 2 keywords / the eight CYGM keywords.
bool IsRgbCfaKeyword(const std::string& keyword);
bool IsCygmCfaKeyword(const std::string& keyword);

/// One row of the frame type list of the setup and Bayer dialogs.
struct CfaFrameType {
    const char* shown;     ///< the list text
    const char* shortName; ///< what the setup stores
    const char* keyword;   ///< the pattern
};

/// The generic rows (eight RGB, eight CYGM) followed by the camera rows, in list order.
const std::vector<CfaFrameType>& CfaFrameTypes();

// ---- pixel cores (planar floats, rows in parallel) -----------------------------------------

/// Size of an interpolated image: width - 2 by height - 2, or with `buildRgbPixel` width / 2
/// by height / 2. False when the mosaic is too small (under 3 by 3, or 2 by 2 for the
/// half-size path) or the half-size path is asked of a CYGM cell.
bool InterpolatedSize(const CfaCell& cell, int width, int height, bool buildRgbPixel, int* outWidth,
                      int* outHeight);

/// Interpolates the mosaic `src` (width by height) into the three planes, each of the
/// InterpolatedSize. Every value is clamped to 0..maxValue. False, with nothing written, when
/// the size does not allow it.
bool InterpolateMosaic(const float* src, int width, int height, const CfaCell& cell,
                       bool reduceGreenNoise, bool buildRgbPixel, float maxValue, float* red,
                       float* green, float* blue);

/// The CYGM path of InterpolateMosaic (full size only).
void InterpolateCygm(const float* src, int width, int height, const CfaCell& cell, float maxValue,
                     float* red, float* green, float* blue);

/// Size of one split plane: red and blue width / 2 by height / 2; green width / 2 by height,
/// or width / 2 by height / 2 with `averageGreen`. `colorType` is 2 (red), 3 (green) or 4
/// (blue). False for odd sizes, a CYGM cell or another colour type.
bool SplitSize(const CfaCell& cell, int width, int height, std::uint32_t colorType,
               bool averageGreen, int* outWidth, int* outHeight);

/// Takes the samples of one colour out of the mosaic into `dst` (of the SplitSize).
bool SplitMosaic(const float* src, int width, int height, const CfaCell& cell,
                 std::uint32_t colorType, bool averageGreen, float* dst);

/// Puts the samples of the given sets back into the mosaic (width by height, even), each
/// multiplied by its factor in `scales` (red, green, blue). Red and blue are width / 2 by
/// height / 2, green width / 2 by height (two of its rows a cell). A null set leaves its
/// sites as they are. False for odd sizes or a CYGM cell.
bool CombineIntoMosaic(float* mosaic, int width, int height, const CfaCell& cell, const float* red,
                       const float* green, const float* blue, const double scales[3]);

// ---- whole images ------------------------------------------------------------------------

/// Interpolates the monochrome mosaic `mosaic` (its current plane) with the pattern keyword
/// into `out`, which becomes an RGB image of the InterpolatedSize with the mosaic's header
/// (without EXTNAME) and file kind. False with a reason in `error` ("Image must be a
/// monochrome CFA .", "The Image Is Too Small to Interpolate.", an unknown pattern, or
/// "Error Allocating Memory"). This is what calibration calls for a colour light frame.
bool InterpolateBayerImage(const Image& mosaic, const std::string& cfaPattern,
                           bool reduceGreenNoise, bool buildRgbPixel, Image* out,
                           std::string* error);

} // namespace astrivelle
