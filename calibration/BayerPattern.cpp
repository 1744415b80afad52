// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The colour filter pattern keywords and the frame type list of the Bayer dialogs.
#include <array>

#include "calibration/Bayer.h"

namespace astrivelle {

namespace {

constexpr std::array<const char*, 8> kRgbKeywords = {"RG,GB",   "GR,BG",   "GB,RG",   "BG,GR",
                                                     "RGr,GbB", "GrR,BGb", "GbB,RGr", "BGb,GrR"};

constexpr std::array<const char*, 8> kCygmKeywords = {"CYGM,CYMG", "YCMG,YCGM", "GMCY,MGCY",
                                                      "MGYC,GMYC", "CYMG,CYGM", "YCGM,YCMG",
                                                      "MGCY,GMCY", "GMYC,MGYC"};

bool ColorOfLetter(char c, CfaColor* out) {
    switch (c) {
    case 'R':
        *out = CfaColor::R;
        return true;
    case 'G':
        *out = CfaColor::G;
        return true;
    case 'B':
        *out = CfaColor::B;
        return true;
    case 'C':
        *out = CfaColor::C;
        return true;
    case 'Y':
        *out = CfaColor::Y;
        return true;
    case 'M':
        *out = CfaColor::M;
        return true;
    default:
        return false;
    }
}

/// The site letters of a keyword, with the "r" and "b" of Gr and Gb dropped.
std::string Letters(const std::string& keyword) {
    std::string out;
    for (char c : keyword)
        if (c != ',' && c != 'r' && c != 'b')
            out += c;
    return out;
}

} // namespace

bool IsRgbCfaKeyword(const std::string& keyword) {
    for (const char* k : kRgbKeywords)
        if (keyword == k)
            return true;
    return false;
}

bool IsCygmCfaKeyword(const std::string& keyword) {
    for (const char* k : kCygmKeywords)
        if (keyword == k)
            return true;
    return false;
}

bool ParseCfaKeyword(const std::string& keyword, CfaCell* cell) {
    const bool rgb = IsRgbCfaKeyword(keyword);
    const bool cygm = !rgb && IsCygmCfaKeyword(keyword);
    if (!rgb && !cygm)
        return false;
    const std::string letters = Letters(keyword);
    CfaCell c;
    c.keyword = keyword;
    c.cygm = cygm;
    c.cellHeight = cygm ? 4 : 2;
    // Each pair of letters is one row of the cell: "CYGM,CYMG" is C Y / G M / C Y / M G.
    for (int i = 0; i < c.cellHeight * 2; ++i)
        if (!ColorOfLetter(letters[i], &c.site[i / 2][i % 2]))
            return false;
    *cell = c;
    return true;
}

const std::vector<CfaFrameType>& CfaFrameTypes() {
    static const std::vector<CfaFrameType> types = {
        {"RGB Geberic - RG,GB", "RGB Geberic - RG,GB", "RG,GB"},
        {"RGB Generic + (1,0) - GR,BG", "RGB Generic + (1,0) - GR,BG", "GR,BG"},
        {"RGB Generic + (0,1) - GB,RG", "RGB Generic + (0,1) - GB,RG", "GB,RG"},
        {"RGB Generic + (1,1) - BG,GR", "RGB Generic + (1,1) - BG,GR", "BG,GR"},
        {"RGrGbB Generic", "RGrGbB Generic", "RGr,GbB"},
        {"RGrGbB Generic + (1,0)", "RGrGbB Generic + (1,0)", "GrR,BGb"},
        {"RGrGbB Generic + (0,1)", "RGrGbB Generic + (0,1)", "GbB,RGr"},
        {"RGrGbB Generic + (1,1)", "RGrGbB Generic + (1,1)", "BGb,GrR"},
        {"CYGM Generic", "CYGM Generic", "CYGM,CYMG"},
        {"CYGM Generic + (1,0)", "CYGM Generic + (1,0)", "YCMG,YCGM"},
        {"CYGM Generic + (0,1)", "CYGM Generic + (0,1)", "GMCY,MGCY"},
        {"CYGM Generic + (1,1)", "CYGM Generic + (1,1)", "MGYC,GMYC"},
        {"CYGM Generic + (0,2)", "CYGM Generic + (0,2)", "CYMG,CYGM"},
        {"CYGM Generic + (1,2)", "CYGM Generic + (1,2)", "YCGM,YCMG"},
        {"CYGM Generic + (0,3)", "CYGM Generic + (0,3)", "MGCY,GMCY"},
        {"CYGM Generic + (1,3)", "CYGM Generic + (1,3)", "GMYC,MGYC"},
        {"Canon 7D,6D,5D,M,1-DX,60D,.,Rebel,600D,.,10D,D60,D30", "300D Class", "RG,GB"},
        {"Canon 1D MII, 1Ds MII, 1D MIII, 1Ds MIII", "1D MII Class", "RG,GB"},
        {"Canon 1Ds", "1Ds", "GR,BG"},
        {"Fuji S3 Pro", "Fuji S3 Pro", "GB,RG"},
        {"Kodak DCS Pro SLR", "Kodak DCS Pro SLR", "GR,BG"},
        {"Nikon D70, D70s, D50, D40", "Nikon D70", "BG,GR"},
        {"Nikon D80, D40x, D90, D3000, D5000", "Nikon D80", "GB,RG"},
        {"Nikon D2X,D2Xs,D200,D300(s),D3,D4,D700..,D600..,D800..,D3200,D7000..,D5100..",
         "Nikon D2X", "RG,GB"},
        {"Pentax ist DL, ist DS, K100D", "Pentax ist DL", "RG,GB"},
        {"Olympus E-300, E-500, C5060WZ", "Olympus E-300, E-500, C5060WZ", "RG,GB"},
        {"Olympus E-1", "Olympus E-1", "GR,BG"},
        {"SBIG ST-2000XCM, ST11K-CM, ST-8300", "ST-2000XCM", "BG,GR"},
        {"SBIG ST4000XCM, ST4020CM CCDOPS Standard", "ST-4000CM", "GB,RG"},
        {"SBIG ST4000XCM, ST4020CM Non-rotated Native", "ST-4000CM Native", "BG,GR"},
        {"Starlight SXV-H9C, SXVR 674 Standard Format", "SXV-H9C Standard", "RG,GB"},
        {"Starlight SXV-H9C, SXVR 674 Inverted Format", "SXV-H9C Inverted", "GB,RG"},
        {"Starlight SXV-M25C, M8C Standard Format", "SXV-M25C, M8C Standard", "GR,BG"},
        {"Starlight SXV-M25C, M8C Inverted Format", "SXV-M25C, M8C Inverted", "BG,GR"},
        {"Starlight SXV-M7C", "Starlight SXV-M7C", "GMYC,MGYC"},
        {"Starlight SXVF-M25C, M8C, H9C, FLI 8300c Standard Format", "SXVF-M25C, M8C, H9C Standard",
         "GR,BG"},
        {"Starlight SXVF-M25C, M8C, H9C, FLI 8300c Inverted Format", "SXVF-M25C, M8C, H9C Inverted",
         "BG,GR"},
        {"SAC-10C", "SAC-10C", "BG,GR"},
        {"Orion StarShoot, Meade Color DSI", "Orion StarShoot, Meade Color DSI", "CYGM,CYMG"},
        {"Orion StarShoot, Meade Color DSI - Type 2", "Orion StarShoot, Meade Color DSI - Type 2",
         "MGYC,GMYC"},
        {"Orion StarShoot Pro & Pro 2, QHY8, QHY8 Pro", "Orion StarShoot Pro", "RG,GB"},
        {"Orion StarShoot DSCI II, G3", "Orion StarShoot DSCI II, G3", "MGCY,GMCY"},
        {"QSI 583c, 540c, 520c Standard", "QSI 583c, 540c, 520c Standard", "BG,GR"},
        {"QSI 583c, 540c, 520c Inverted", "QSI 583c, 540c, 520c Inverted", "GB,RG"},
        {"Sony A700, Nex 3, Nex 5, A7, A7R, A7S", "Sony A700", "RG,GB"},
        {"Atik 314, 460", "Atik 314", "GR,BG"},
        {"Atik 4000, 11000, 16HIC, 420, 428", "Atik 4000, 11000", "RG,GB"},
        {"Atik 8300", "Atik 8300", "BG,GR"},
        {"Starlight SXVF-H36C", "SXVF-H36C", "RG,GB"},
        {"QHY9C, QHY8L", "QHY9C, QHY8L", "GB,RG"},
        {"Celestron Nightscape", "Celestron Nightscape", "GbB,RGr"},
        {"QHY 10", "QHY 10", "RGr,GbB"},
    };
    return types;
}

} // namespace astrivelle
