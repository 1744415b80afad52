// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Reading the mosaic keywords into cells.
#include "tools/synth/CfaPattern.h"

#include <algorithm>

namespace astrivelle::synth {

const std::vector<std::string>& CfaKeywords() {
    static const std::vector<std::string> keywords = {
        "RG,GB",     "GR,BG",     "GB,RG",     "BG,GR",     "RGr,GbB",   "GrR,BGb",
        "GbB,RGr",   "BGb,GrR",   "CYGM,CYMG", "YCMG,YCGM", "GMCY,MGCY", "MGYC,GMYC",
        "CYMG,CYGM", "YCGM,YCMG", "MGCY,GMCY", "GMYC,MGYC"};
    return keywords;
}

const char* CfaSiteName(CfaSite site) {
    switch (site) {
    case CfaSite::R:
        return "R";
    case CfaSite::G:
        return "G";
    case CfaSite::B:
        return "B";
    case CfaSite::C:
        return "C";
    case CfaSite::Y:
        return "Y";
    case CfaSite::M:
        return "M";
    }
    return "?";
}

bool ParseCfaPattern(const std::string& keyword, CfaPattern* out, std::string* error) {
    CfaPattern p;
    if (keyword.empty() || keyword == "MONO") {
        *out = p;
        return true;
    }
    const auto& known = CfaKeywords();
    if (std::find(known.begin(), known.end(), keyword) == known.end()) {
        *error = "unknown colour filter pattern \"" + keyword + "\"";
        return false;
    }
    // Site letters in reading order; "Gr" and "Gb" are one green site each.
    std::vector<CfaSite> letters;
    for (std::size_t i = 0; i < keyword.size(); ++i) {
        switch (keyword[i]) {
        case 'R':
            letters.push_back(CfaSite::R);
            break;
        case 'G':
            letters.push_back(CfaSite::G);
            break;
        case 'B':
            letters.push_back(CfaSite::B);
            break;
        case 'C':
            letters.push_back(CfaSite::C);
            break;
        case 'Y':
            letters.push_back(CfaSite::Y);
            break;
        case 'M':
            letters.push_back(CfaSite::M);
            break;
        default: // ',' between halves, 'r' and 'b' after a green
            break;
        }
    }
    p.keyword = keyword;
    p.mono = false;
    p.cellWidth = 2;
    p.cellHeight = static_cast<int>(letters.size()) / 2;
    for (int r = 0; r < p.cellHeight; ++r)
        for (int c = 0; c < 2; ++c)
            p.sites[r][c] = letters[static_cast<std::size_t>(r * 2 + c)];
    *out = p;
    return true;
}

} // namespace astrivelle::synth
