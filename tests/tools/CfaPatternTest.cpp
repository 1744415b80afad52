// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The colour filter mosaics of the synthetic frames: every keyword's cell, and light
/// of one primary landing exactly on the sites that pass it.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/synth/CfaPattern.h"
#include "tools/synth/NightModel.h"

namespace astrivelle::synth {
namespace {

std::string CellText(const CfaPattern& p) {
    std::string s;
    for (int r = 0; r < p.cellHeight; ++r) {
        if (r)
            s += '/';
        for (int c = 0; c < p.cellWidth; ++c)
            s += CfaSiteName(p.sites[r][c]);
    }
    return s;
}

TEST(CfaPattern, TwoByTwoCells) {
    const struct {
        const char* keyword;
        const char* cell;
    } cases[] = {
        {"RG,GB", "RG/GB"},   {"GR,BG", "GR/BG"},   {"GB,RG", "GB/RG"},   {"BG,GR", "BG/GR"},
        {"RGr,GbB", "RG/GB"}, {"GrR,BGb", "GR/BG"}, {"GbB,RGr", "GB/RG"}, {"BGb,GrR", "BG/GR"},
    };
    for (const auto& k : cases) {
        CfaPattern p;
        std::string error;
        ASSERT_TRUE(ParseCfaPattern(k.keyword, &p, &error)) << k.keyword;
        EXPECT_EQ(CellText(p), k.cell) << k.keyword;
        EXPECT_FALSE(p.mono);
    }
}

TEST(CfaPattern, CygmCellsAreTheFirstCellMoved) {
    // "CYGM,CYMG": C Y / G M / C Y / M G. The others are that cell moved by whole columns and
    // rows: site (r, c) of a cell moved by (dc, dr) is site (r + dr, c + dc) of the first.
    const char* base[4] = {"CY", "GM", "CY", "MG"};
    const struct {
        const char* keyword;
        int dc, dr;
    } cases[] = {
        {"CYGM,CYMG", 0, 0}, {"YCMG,YCGM", 1, 0}, {"GMCY,MGCY", 0, 1}, {"MGYC,GMYC", 1, 1},
        {"CYMG,CYGM", 0, 2}, {"YCGM,YCMG", 1, 2}, {"MGCY,GMCY", 0, 3}, {"GMYC,MGYC", 1, 3},
    };
    for (const auto& k : cases) {
        std::string expected;
        for (int r = 0; r < 4; ++r) {
            if (r)
                expected += '/';
            for (int c = 0; c < 2; ++c)
                expected += base[(r + k.dr) % 4][(c + k.dc) % 2];
        }
        CfaPattern p;
        std::string error;
        ASSERT_TRUE(ParseCfaPattern(k.keyword, &p, &error)) << k.keyword;
        EXPECT_EQ(p.cellHeight, 4);
        EXPECT_EQ(CellText(p), expected) << k.keyword;
    }
    // Every keyword names a different cell.
    std::vector<std::string> cells;
    for (const std::string& kw : CfaKeywords()) {
        CfaPattern p;
        std::string error;
        ASSERT_TRUE(ParseCfaPattern(kw, &p, &error));
        cells.push_back(CellText(p));
    }
    std::sort(cells.begin(), cells.end());
    EXPECT_EQ(std::unique(cells.begin(), cells.end()) - cells.begin(), 12); // Gr/Gb twins
}

TEST(CfaPattern, UnknownKeywordsAreRefused) {
    for (const char* kw : {"RGGB", "CYGM", "RG,BG", "rg,gb", "GR,BG,"}) {
        CfaPattern p;
        std::string error;
        EXPECT_FALSE(ParseCfaPattern(kw, &p, &error)) << kw;
        EXPECT_EQ(error, std::string("unknown colour filter pattern \"") + kw + "\"");
    }
    CfaPattern p;
    std::string error;
    ASSERT_TRUE(ParseCfaPattern("MONO", &p, &error));
    EXPECT_TRUE(p.mono);
}

/// Share of a primary that a site passes.
double Share(CfaSite site, int primary) {
    const bool r = primary == 0, g = primary == 1, b = primary == 2;
    switch (site) {
    case CfaSite::R:
        return r;
    case CfaSite::G:
        return g;
    case CfaSite::B:
        return b;
    case CfaSite::C:
        return 0.5 * (g + b);
    case CfaSite::Y:
        return 0.5 * (r + g);
    case CfaSite::M:
        return 0.5 * (r + b);
    }
    return -1;
}

TEST(CfaPattern, APrimaryFieldLandsOnlyOnItsSites) {
    for (const std::string& kw : CfaKeywords())
        for (int primary = 0; primary < 3; ++primary) {
            SCOPED_TRACE(kw + " primary " + std::to_string(primary));
            NightConfig c;
            c.width = 20;
            c.height = 16;
            c.frames = 1;
            c.stars = 0;
            c.noiseless = true;
            c.bayer = kw;
            c.skyLevel = 1000;
            for (int i = 0; i < 3; ++i)
                c.skyColor[i] = i == primary ? 1.0 : 0.0;
            NightModel model;
            std::string error;
            ASSERT_TRUE(model.Build(c, &error)) << error;
            std::vector<float> light(320), dark(320);
            LightParts flatSky; // no vignetting or response: the share itself is visible
            flatSky.response = false;
            model.RenderLight(0, light.data(), flatSky);
            model.RenderCalibration(CalibrationKind::Dark, 0, dark.data());
            const FrameTruth& f = model.truth().frames[0];
            for (int y = 0; y < 16; ++y)
                for (int x = 0; x < 20; ++x) {
                    const std::size_t k = static_cast<std::size_t>(y) * 20 + x;
                    const double share = Share(model.cfa().SiteAt(x, y), primary);
                    const double sky =
                        f.skyLevel + f.skyGradient[0] * (x - 9.5) + f.skyGradient[1] * (y - 7.5);
                    ASSERT_NEAR(light[k] - dark[k], share * sky, 1e-3) << x << "," << y;
                    if (share == 0) {
                        ASSERT_EQ(light[k], dark[k]) << x << "," << y;
                    }
                }
        }
}

} // namespace
} // namespace astrivelle::synth
