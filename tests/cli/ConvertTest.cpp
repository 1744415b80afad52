// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `convert` and `raw` end to end: every output format, read back by us and accepted by
/// the outside readers, and camera raw files by conversion keyword.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "TestSupport.h"
#include "engine/Image.h"

using namespace astrivelle;
using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

std::string Q(const std::string& s) {
    return "'" + s + "'";
}
std::string Cli(const std::string& args) {
    return std::string(ASTRIVELLE_CLI) + " " + args;
}

/// Levels on 8-bit steps so that 8-bit formats keep them (BMP and JPEG within their rules).
float Level(int slot, int x, int y) {
    return 257.0f * (x * 4 + y * 3 + slot * 30); // a smooth ramp, at most 248
}

} // namespace

TEST(CliConvert, EveryFormatReadsBackAndOutsideReadersAcceptIt) {
    ScratchDir dir;
    for (std::uint32_t colorType : {ColorGray, ColorRGB}) {
        SCOPED_TRACE(colorType);
        const std::string input = dir.file(colorType == ColorRGB ? "rgb.fit" : "mono.fit");
        {
            Image img;
            MakeImage(img, 33, 21, colorType, Level);
            ASSERT_TRUE(img.WriteFile(input, KindFITS));
        }
        struct Case {
            const char* saveType;
            const char* extension;
            const char* outsideReader; ///< command that must accept the file, or ""
            float tolerance;           ///< of the worst pixel, or of the mean for JPEG
        };
        for (const Case& c :
             {Case{"UNCOMPFIT", ".fit", "fitsverify -q", 0},
              Case{"COMPFIT32", ".fit", "fitsverify -q", 0},
              Case{"TIFF16", ".tif", "tiffinfo -D", 0}, Case{"TIFF8", ".tif", "tiffinfo -D", 0},
              Case{"BMP", ".bmp", "", 257.0f},
              Case{"JPEG", ".jpg", "djpeg -outfile /dev/null", 2 * 257.0f}}) {
            // BMP: the display mapping divides levels by 255, one step off at most.
            SCOPED_TRACE(c.saveType);
            const std::string outDir = dir.file(std::string("out-") + c.saveType);
            std::string out;
            ASSERT_EQ(RunCommand(Cli("convert --quiet --save-type " + std::string(c.saveType) +
                                     " -o " + Q(outDir) + " " + Q(input)),
                                 &out),
                      0)
                << out;
            const std::string written =
                outDir + "/CV_" + fs::path(input).stem().string() + c.extension;
            ASSERT_TRUE(fs::exists(written)) << out;
            const std::string tool =
                std::string(c.outsideReader).substr(0, std::string(c.outsideReader).find(' '));
            if (*c.outsideReader && HaveProgram(tool)) {
                std::string report;
                EXPECT_EQ(RunCommand(std::string(c.outsideReader) + " " + Q(written), &report), 0)
                    << report;
            }
            Image back;
            ASSERT_TRUE(back.ReadFile(written, c.extension));
            ASSERT_EQ(back.width, 33);
            ASSERT_EQ(back.height, 21);
            // BMP is always colour; the others keep the colour type.
            const bool rgbBack = back.colorType == ColorRGB;
            EXPECT_EQ(rgbBack, colorType == ColorRGB || c.extension == std::string(".bmp"));
            float worst = 0;
            double sum = 0;
            int count = 0;
            for (int s = 0; s < (colorType == ColorRGB ? 3 : 1); ++s)
                for (int y = 0; y < 21; ++y)
                    for (int x = 0; x < 33; ++x) {
                        const float have = back.curPlane[rgbBack ? s : 0][y * 33 + x];
                        const float error = std::abs(have - Level(s, x, y));
                        worst = std::max(worst, error);
                        sum += error;
                        ++count;
                    }
            // JPEG is lossy around the sharp edges of the pattern: judge its mean error.
            EXPECT_LE(c.extension == std::string(".jpg") ? sum / count : worst, c.tolerance);
        }
    }
}

TEST(CliConvert, RefusesWhatFilterAcceptsAndViceVersa) {
    std::string out;
    EXPECT_EQ(RunCommand(Cli("convert --save-type SAMEASINPUT -o /tmp x.fit"), &out), 2) << out;
    EXPECT_EQ(RunCommand(Cli("convert -o /tmp x.fit"), &out), 2) << out;
    EXPECT_NE(out.find("--save-type KW is required"), std::string::npos);
    EXPECT_EQ(RunCommand(Cli("filter --save-type JPEG -o /tmp x.fit"), &out), 2) << out;
    EXPECT_NE(out.find("unknown save type JPEG"), std::string::npos);
}

TEST(CliRaw, GeneratedDngsByConversionKeyword) {
    ScratchDir dir;
    std::string out;
    ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_SYNTH) + " raw --out " + Q(dir.file("raw")) +
                             " --pattern GR,BG",
                         &out),
              0)
        << out;
    std::vector<std::string> dngs;
    for (const auto& e : fs::directory_iterator(dir.file("raw")))
        if (e.path().extension() == ".dng")
            dngs.push_back(e.path().string());
    ASSERT_EQ(dngs.size(), 1u) << out;
    struct Case {
        const char* conversion;
        std::uint32_t colorType;
    };
    for (const Case& c : {Case{"WBCFA", ColorGray}, Case{"NoWBCFA", ColorGray},
                          Case{"BASICBAYER", ColorGray}, Case{"Color", ColorRGB}}) {
        SCOPED_TRACE(c.conversion);
        const std::string outDir = dir.file(std::string("out-") + c.conversion);
        ASSERT_EQ(RunCommand(Cli("raw --quiet --conversion " + std::string(c.conversion) +
                                 " --save-type COMPFIT -o " + Q(outDir) + " " + Q(dngs[0])),
                             &out),
                  0)
            << out;
        const std::string written = outDir + "/CVT_" + fs::path(dngs[0]).stem().string() + ".fit";
        ASSERT_EQ(RunCommand(Cli("info --json " + Q(written)), &out), 0) << out;
        EXPECT_NE(out.find("\"colorType\":" + std::to_string(c.colorType)), std::string::npos)
            << out;
        if (c.colorType == ColorGray) {
            EXPECT_NE(out.find("GR,BG"), std::string::npos) << "the pattern keyword is recorded";
        }
    }
    EXPECT_EQ(RunCommand(Cli("raw --conversion Sepia --save-type COMPFIT -o /tmp x.dng"), &out), 2);
    ASSERT_EQ(RunCommand(Cli("raw --quiet --conversion Color --save-type COMPFIT -o " +
                             Q(dir.file("bad")) + " " + Q(ASTRIVELLE_CLI)),
                         &out),
              1);
    EXPECT_NE(out.find("Could not convert file."), std::string::npos) << out;
}

TEST(CliConvert, RecordedStretchFromAFileAndItsRefusal) {
    ScratchDir dir;
    const std::string input = dir.file("in.fit");
    {
        Image img;
        MakeImage(img, 16, 10, ColorGray, [](int, int x, int y) { return 1000.0f * (x + y); });
        ASSERT_TRUE(img.WriteFile(input, KindFITS));
    }
    // Levels: black at 5000, everything at or below it becomes 0.
    const std::string params =
        "Channel : Monochrome#Level :Black#RGB LEVELS#  Black : 0#  MidTone : 32767#"
        "  MidTone Intensity : 32767#  White : 65535#  Black Gamma : 1.00000#"
        "  White Gamma : 1.00000#  Output Black : 0#  Output White : 65535#RED LEVELS#"
        "  Black : 5000#  MidTone : 32767#  MidTone Intensity : 32767#  White : 65535#"
        "  Black Gamma : 1.00000#  White Gamma : 1.00000#  Output Black : 0#"
        "  Output White : 65535#GREEN LEVELS#  Black : 0#  MidTone : 32767#"
        "  MidTone Intensity : 32767#  White : 65535#  Black Gamma : 1.00000#"
        "  White Gamma : 1.00000#  Output Black : 0#  Output White : 65535#BLUE LEVELS#"
        "  Black : 0#  MidTone : 32767#  MidTone Intensity : 32767#  White : 65535#"
        "  Black Gamma : 1.00000#  White Gamma : 1.00000#  Output Black : 0#"
        "  Output White : 65535#";
    const std::string paramsFile = dir.file("levels.txt");
    {
        std::ofstream f(paramsFile);
        f << params << "\n";
    }
    std::string out;
    ASSERT_EQ(RunCommand(Cli("convert --quiet --save-type .FIT --stretch Levels --params-file " +
                             Q(paramsFile) + " -o " + Q(dir.file("out")) + " " + Q(input)),
                         &out),
              0)
        << out;
    Image back;
    ASSERT_TRUE(back.ReadFile(dir.file("out/CV_in.fit"), ".fit"));
    EXPECT_EQ(back.curPlane[0][0], 0.0f);      // level 0
    EXPECT_EQ(back.curPlane[0][5], 0.0f);      // 5000, at the black point
    EXPECT_GT(back.curPlane[0][15], 10000.0f); // 15000, stretched
    EXPECT_EQ(RunCommand(Cli("convert --save-type .FIT --stretch Levels -o " + Q(dir.file("out2")) +
                             " " + Q(input)),
                         &out),
              1);
    EXPECT_NE(out.find("Please apply Levels to an image to set its parameters before conversion."),
              std::string::npos)
        << out;
}
