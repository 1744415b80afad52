// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `auto` end to end on a generated night: masters, calibration and the stack, whose
/// background noise falls with the number of frames; usage errors and the JSON form.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "TestSupport.h"
#include "engine/Image.h"

using namespace astrivelle;
using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

std::string Q(const std::string& s) {
    return "'" + s + "'";
}

/// The background noise of a mono image: the median absolute difference of horizontal
/// neighbours, scaled to a standard deviation (stars and gradients barely move it).
double BackgroundNoise(const Image& img) {
    std::vector<float> d;
    d.reserve(img.pixelCount);
    for (int y = 8; y < static_cast<int>(img.height) - 8; ++y)
        for (int x = 8; x + 1 < static_cast<int>(img.width) - 8; ++x) {
            const float* row = img.curPlane[0] + static_cast<std::size_t>(y) * img.width;
            d.push_back(std::fabs(row[x + 1] - row[x]));
        }
    std::nth_element(d.begin(), d.begin() + d.size() / 2, d.end());
    return 1.4826 * d[d.size() / 2] / std::sqrt(2.0);
}

} // namespace

TEST(AutoCommand, StackOfAGeneratedNightIsQuieterThanOneCalibratedFrame) {
    ScratchDir dir;
    std::string out;
    const int frames = 4;
    ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_SYNTH) + " night --quiet --out " +
                             Q(dir.file("night")) +
                             " --size 500x400 --frames 4 --no-motion "
                             "--darks 3 --flats 3 --flat-darks 2 --bias 3 --seed 11",
                         &out),
              0)
        << out;
    const std::string n = dir.file("night");
    const std::string outDir = dir.file("out");
    ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_CLI) + " auto --quiet --lights " +
                             Q(n + "/lights") + " --darks " + Q(n + "/darks") + " --flats " +
                             Q(n + "/flats") + " --flat-darks " + Q(n + "/flatdarks") + " --bias " +
                             Q(n + "/bias") + " --type CCD -o " + Q(outDir),
                         &out),
              0)
        << out;
    for (const char* line : {"Combine Dark Frames - Median - 3 Files : Completed",
                             "Set Flat Dark Frame", "Calibrate Light Frames - 4 Files : Completed",
                             "Command Summary Statistics : 10 Commands Processed : ",
                             "4 Calibrated Light Frames : ", "1 Combination Frames : "})
        EXPECT_NE(out.find(line), std::string::npos) << line << "\n" << out;

    Image stack, single;
    ASSERT_TRUE(stack.ReadFile(outDir + "/Combined.fit", ".fit"));
    ASSERT_TRUE(single.ReadFile(outDir + "/C_light_0001.fit", ".fit"));
    ASSERT_EQ(stack.width, 500u);
    const double ratio = BackgroundNoise(single) / BackgroundNoise(stack);
    EXPECT_GE(ratio, 0.8 * std::sqrt(static_cast<double>(frames)))
        << "single " << BackgroundNoise(single) << " stack " << BackgroundNoise(stack);

    // The extra filters: bad pixels, then the 3 x 3 smoothing, under the prefix of both.
    const std::string filtered = dir.file("filtered");
    ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_CLI) + " auto --quiet --lights " +
                             Q(n + "/lights") + " --darks " + Q(n + "/darks") +
                             " --type CCD --filters --smoothing --aggressiveness Aggressive -o " +
                             Q(filtered),
                         &out),
              0)
        << out;
    EXPECT_NE(out.find("Filter Light Frames - Reduce High, Low, Bloom Pixel (Aggressive), "
                       "Smoothing : Completed"),
              std::string::npos)
        << out;
    EXPECT_TRUE(fs::exists(filtered + "/NRDB_C_light_0004.fit")) << out;
}

TEST(AutoCommand, JsonReportsStepsAndUsageErrorsExitTwo) {
    ScratchDir dir;
    std::string out;
    ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_SYNTH) + " night --quiet --out " +
                             Q(dir.file("night")) +
                             " --size 160x120 --frames 2 --darks 1 "
                             "--no-motion --seed 2",
                         &out),
              0)
        << out;
    const std::string n = dir.file("night");
    const std::string cli = std::string(ASTRIVELLE_CLI) + " auto ";
    ASSERT_EQ(RunCommand(cli + "--json --lights " + Q(n + "/lights") + " --darks " +
                             Q(n + "/darks/dark_0001.fit") + " --type ccd --combine med -o " +
                             Q(dir.file("out")),
                         &out),
              0)
        << out;
    EXPECT_NE(out.find("{\"name\":\"Set Dark Frame\",\"detail\":\"dark_0001.fit\",\"state\":"
                       "\"Completed\""),
              std::string::npos)
        << out;
    EXPECT_EQ(out.find("Combine Dark Frames"), std::string::npos) << "one dark is the master";
    EXPECT_NE(out.find("\"ok\":true"), std::string::npos);

    // A dark given also as a light: the run is refused with its text, exit 1.
    EXPECT_EQ(RunCommand(cli + "--lights " + Q(n + "/lights") + " --darks " +
                             Q(n + "/lights/light_0001.fit") + " --type CCD -o " +
                             Q(dir.file("o2")),
                         &out),
              1);
    EXPECT_NE(out.find("Some selected dark frames are contained in the light frame list."),
              std::string::npos)
        << out;
    for (const std::string& bad :
         {std::string("--lights ") + Q(n + "/lights") + " --type CCD",      // no -o
          std::string("--lights ") + Q(n + "/lights") + " --type XYZ -o x", // bad type
          std::string("--lights ") + Q(n + "/lights") + " --type CCD --align sideways -o x",
          std::string("--lights ") + Q(n + "/nothing") + " --type CCD -o x"}) {
        EXPECT_EQ(RunCommand(cli + bad, &out), 2) << bad << "\n" << out;
    }
}

TEST(AutoCommand, RawLightsAreConvertedThenInterpolatedAndStacked) {
    ScratchDir dir;
    const std::string lights = dir.file("lights");
    fs::create_directories(lights);
    std::string out;
    for (int seed = 1; seed <= 3; ++seed) {
        const std::string made = dir.file("raw" + std::to_string(seed));
        ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_SYNTH) + " raw --pattern RG,GB --seed " +
                                 std::to_string(seed) + " --out " + Q(made),
                             &out),
                  0)
            << out;
        fs::copy_file(made + "/raw_RGGB.dng", lights + "/light" + std::to_string(seed) + ".dng");
    }
    const std::string outDir = dir.file("out");
    ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_CLI) + " auto --quiet --lights " + Q(lights) +
                             " --type DSLR --color CFA --pattern RG,GB -o " + Q(outDir),
                         &out),
              0)
        << out;
    for (const char* line :
         {"Convert Digital Light Frames - 3 Files : Completed", "Check Converted Files",
          "Bayer Convert Light Frames - RG,GB - RGB : Completed",
          "Combine Light Frames - Average : Completed", "3 Bayer Color Converted Light Frames"})
        EXPECT_NE(out.find(line), std::string::npos) << line << "\n" << out;
    Image stack;
    ASSERT_TRUE(stack.ReadFile(outDir + "/Combined.fit", ".fit"));
    EXPECT_EQ(stack.colorType, ColorRGB);
    Image first;
    ASSERT_TRUE(first.ReadFile(outDir + "/BINT_CVT_light1.fit", ".fit"));
    EXPECT_EQ(stack.width, first.width);
    EXPECT_EQ(stack.height, first.height);
    // The red patch (left of the upper two thirds) stays red in the stack.
    const std::size_t i =
        static_cast<std::size_t>(stack.height / 3) * stack.width + stack.width / 6;
    EXPECT_GT(stack.curPlane[0][i], 2.0f * stack.curPlane[2][i]) << "red over blue";
}
