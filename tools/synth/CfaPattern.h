// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Colour filter mosaics of the synthetic frames: the eight 2x2 Bayer keywords and the
/// eight 2-column by 4-row CYGM keywords, and the share of red, green and blue light that
/// each site passes.
#pragma once
#include <string>
#include <vector>

namespace astrivelle::synth {

/// The filter over one site. Gr and Gb are both green.
enum class CfaSite { R, G, B, C, Y, M };

/// One cell of a mosaic, repeated over the frame from pixel (0, 0).
struct CfaPattern {
    std::string keyword = "MONO";
    int cellWidth = 1;
    int cellHeight = 1;
    CfaSite sites[4][2] = {}; ///< [row][column] of the cell
    bool mono = true;

    CfaSite SiteAt(int x, int y) const { return sites[y % cellHeight][x % cellWidth]; }

    /// The signal at pixel (x, y) of light whose red, green and blue parts are r, g, b: the
    /// primary of an R, G or B site, and half the sum of the two primaries of a C (G+B),
    /// Y (R+G) or M (R+B) site. A mono sensor passes `mono` (the light's total as the caller
    /// defines it).
    float Pass(int x, int y, float r, float g, float b, float monoValue) const {
        if (mono)
            return monoValue;
        switch (SiteAt(x, y)) {
        case CfaSite::R:
            return r;
        case CfaSite::G:
            return g;
        case CfaSite::B:
            return b;
        case CfaSite::C:
            return 0.5f * (g + b);
        case CfaSite::Y:
            return 0.5f * (r + g);
        case CfaSite::M:
            return 0.5f * (r + b);
        }
        return 0;
    }
};

/// The keywords the generator knows, 2x2 ones first.
const std::vector<std::string>& CfaKeywords();

/// Reads a keyword: "MONO" (or empty) for no mosaic, else one of CfaKeywords(), whose letters
/// name the sites row by row ("RG,GB": R G over G B; "CYGM,CYMG": C Y / G M / C Y / M G).
/// False with a text for anything else.
bool ParseCfaPattern(const std::string& keyword, CfaPattern* out, std::string* error);

/// "R", "G", "B", "C", "Y" or "M".
const char* CfaSiteName(CfaSite site);

} // namespace astrivelle::synth
