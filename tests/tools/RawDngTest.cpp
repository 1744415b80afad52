// SPDX-License-Identifier: GPL-3.0-or-later
/// \file astrivelle-synth raw: the DNG files open in LibRaw with the right size, CFA pattern,
/// camera, ISO and exposure, and their red patch is bright on the red sites only.
#include <gtest/gtest.h>

#include <libraw/libraw.h>

#include <filesystem>

#include "TestSupport.h"
#include "tools/synth/DngFile.h"

using namespace astrivelle::synth;
using astrivelle::test::HaveProgram;
using astrivelle::test::RunCommand;
using astrivelle::test::ScratchDir;
namespace fs = std::filesystem;

namespace {

int Synth(const std::string& args, std::string* output = nullptr) {
    return RunCommand(std::string(ASTRIVELLE_SYNTH) + " " + args, output);
}

/// LibRaw's `filters` word: two bits of colour per site, for rows 0..7 and columns 0..1.
/// LibRaw reports the green that shares its row with blue as colour 3, so RGGB is 0xb4b4b4b4
/// (0x94949494 when both greens are written 1), GRBG 0xe1e1e1e1 (0x61616161), GBRG 0x4b4b4b4b
/// (0x49494949) and BGGR 0x1e1e1e1e (0x16161616).
struct PatternCase {
    const char* keyword;
    const char* file;
    unsigned filters;
    unsigned threeColourFilters;
};

const PatternCase kPatterns[] = {
    {"RG,GB", "raw_RGGB.dng", 0xb4b4b4b4u, 0x94949494u},
    {"GR,BG", "raw_GRBG.dng", 0xe1e1e1e1u, 0x61616161u},
    {"GB,RG", "raw_GBRG.dng", 0x4b4b4b4bu, 0x49494949u},
    {"BG,GR", "raw_BGGR.dng", 0x1e1e1e1eu, 0x16161616u},
};

/// The filters word with colour 3 folded into green.
unsigned ThreeColour(unsigned filters) {
    unsigned out = 0;
    for (int i = 0; i < 16; ++i) {
        unsigned c = filters >> (2 * i) & 3;
        out |= (c == 3 ? 1 : c) << (2 * i);
    }
    return out;
}

} // namespace

TEST(RawDng, CfaKeywords) {
    const struct {
        const char* keyword;
        bool ok;
        std::array<std::uint8_t, 4> cells;
    } cases[] = {
        {"RG,GB", true, {0, 1, 1, 2}}, {"GR,BG", true, {1, 0, 2, 1}}, {"GB,RG", true, {1, 2, 0, 1}},
        {"BG,GR", true, {2, 1, 1, 0}}, {"RGGB", false, {}},           {"RG,BG", false, {}},
        {"GG,RB", false, {}},          {"RB,GG", false, {}},          {"rg,gb", false, {}},
    };
    for (const auto& c : cases) {
        std::array<std::uint8_t, 4> cells{};
        EXPECT_EQ(DngCfaColours(c.keyword, &cells), c.ok) << c.keyword;
        if (c.ok) {
            EXPECT_EQ(cells, c.cells) << c.keyword;
        }
    }
    EXPECT_EQ(DngCfaName("GB,RG"), "GBRG");
}

TEST(RawDng, EveryPatternOpensInLibRawWithItsPatternAndPatches) {
    ScratchDir dir;
    ASSERT_EQ(Synth("raw --out " + dir.path().string()), 0);
    for (const PatternCase& p : kPatterns) {
        const std::string path = dir.file(p.file);
        ASSERT_TRUE(fs::exists(path)) << p.file;
        LibRaw raw;
        ASSERT_EQ(raw.open_file(path.c_str()), LIBRAW_SUCCESS) << p.file;
        const auto& d = raw.imgdata;
        EXPECT_EQ(d.sizes.width, 256) << p.file;
        EXPECT_EQ(d.sizes.height, 192) << p.file;
        EXPECT_EQ(d.sizes.raw_width, 256) << p.file;
        EXPECT_EQ(d.idata.filters, p.filters) << std::hex << d.idata.filters << " " << p.file;
        EXPECT_EQ(ThreeColour(d.idata.filters), p.threeColourFilters) << p.file;
        EXPECT_EQ(d.idata.colors, 3);
        EXPECT_STREQ(d.idata.make, "Astrivelle");
        EXPECT_STREQ(d.idata.model, "Synth CFA");
        EXPECT_FLOAT_EQ(d.other.iso_speed, 400);
        EXPECT_FLOAT_EQ(d.other.shutter, 1.0f / 125);
        EXPECT_EQ(d.color.black, 256u);
        EXPECT_EQ(d.color.maximum, 4095u);
        EXPECT_NE(d.other.timestamp, 0);
        EXPECT_NE(d.color.cmatrix[0][0] + d.color.rgb_cam[0][0], 0.0f); // colour matrix seen

        ASSERT_EQ(raw.unpack(), LIBRAW_SUCCESS) << p.file;
        ASSERT_NE(d.rawdata.raw_image, nullptr);
        const int w = d.sizes.raw_width;
        // The red patch (upper left) is bright on red sites only; the blue patch (upper
        // right) on blue sites only; the green patch on both greens.
        const struct { int x0, colour; } patches[] = {{20, 0}, {110, 1}, {200, 2}};
        for (const auto& patch : patches)
            for (int y = 40; y < 44; ++y)
                for (int x = patch.x0; x < patch.x0 + 4; ++x) {
                    const int c = raw.COLOR(y, x) == 3 ? 1 : raw.COLOR(y, x);
                    const int v = d.rawdata.raw_image[y * w + x];
                    if (c == patch.colour) {
                        EXPECT_GT(v, 3000) << p.file << " " << x << "," << y;
                    } else {
                        EXPECT_LT(v, 700) << p.file << " " << x << "," << y;
                    }
                }
        // The grey ramp rises to the right on every colour.
        const int rampY = 170;
        EXPECT_LT(d.rawdata.raw_image[rampY * w + 2] + 2000, d.rawdata.raw_image[rampY * w + 252]);
        EXPECT_LT(d.rawdata.raw_image[(rampY + 1) * w + 3] + 2000,
                  d.rawdata.raw_image[(rampY + 1) * w + 253]);
    }
}

TEST(RawDng, OnePatternAndItsOptions) {
    ScratchDir dir;
    ASSERT_EQ(Synth("raw --out " + dir.path().string() + " --pattern GB,RG --size 64x48"), 0);
    EXPECT_TRUE(fs::exists(dir.file("raw_GBRG.dng")));
    EXPECT_FALSE(fs::exists(dir.file("raw_RGGB.dng")));
    LibRaw raw;
    ASSERT_EQ(raw.open_file(dir.file("raw_GBRG.dng").c_str()), LIBRAW_SUCCESS);
    EXPECT_EQ(raw.imgdata.sizes.width, 64);
    EXPECT_EQ(raw.imgdata.sizes.height, 48);
    EXPECT_EQ(raw.imgdata.idata.filters, 0x4b4b4b4bu);
    if (HaveProgram("tiffdump")) {
        std::string out;
        ASSERT_EQ(RunCommand("tiffdump " + dir.file("raw_GBRG.dng"), &out), 0);
        EXPECT_NE(out.find("Photometric (262) SHORT (3) 1<32803>"), std::string::npos) << out;
        EXPECT_NE(out.find("33422 (0x828e) BYTE (1) 4<0x1 0x2 00 0x1>"), std::string::npos);
        EXPECT_NE(out.find("50706 (0xc612) BYTE (1) 4<0x1 0x4 00 00>"), std::string::npos);
    }

    struct Case {
        std::string args;
        const char* says;
    };
    const Case cases[] = {
        {"raw", "--out DIR is required"},
        {"raw --out " + dir.path().string() + " --pattern RGGB", "--pattern must be RG,GB"},
        {"raw --out " + dir.path().string() + " --size 65x48", "--size must be even numbers"},
    };
    for (const Case& c : cases) {
        std::string output;
        EXPECT_EQ(Synth(c.args, &output), 2) << c.args;
        EXPECT_NE(output.find(c.says), std::string::npos) << output;
    }
}

TEST(RawDng, WriterRefusesBadInput) {
    ScratchDir dir;
    std::string error;
    DngImage image;
    ASSERT_TRUE(MakeRawScene(1, 8, 6, "BG,GR", &image, &error));
    DngImage bad = image;
    bad.pattern = "RR,GB";
    EXPECT_FALSE(WriteDng(dir.file("a.dng"), bad, &error));
    EXPECT_EQ(error, "unknown CFA pattern RR,GB");
    bad = image;
    bad.samples.pop_back();
    EXPECT_FALSE(WriteDng(dir.file("a.dng"), bad, &error));
    EXPECT_FALSE(WriteDng(dir.file("no/such/dir/a.dng"), image, &error));
    EXPECT_TRUE(WriteDng(dir.file("a.dng"), image, &error)) << error;
    EXPECT_EQ(fs::file_size(dir.file("a.dng")) % 2, 0u);
}
