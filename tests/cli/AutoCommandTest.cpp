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
    ASSERT_EQ(
        RunCommand(std::string(ASTRIVELLE_CLI) + " auto --quiet --lights " + Q(lights) +
                       " --type DSLR --color CFA --pattern RG,GB --converted-prefix RAW_ -o " +
                       Q(outDir),
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
    ASSERT_TRUE(first.ReadFile(outDir + "/BINT_RAW_light1.fit", ".fit"));
    EXPECT_EQ(stack.width, first.width);
    EXPECT_EQ(stack.height, first.height);
    // The red patch (left of the upper two thirds) stays red in the stack.
    const std::size_t i =
        static_cast<std::size_t>(stack.height / 3) * stack.width + stack.width / 6;
    EXPECT_GT(stack.curPlane[0][i], 2.0f * stack.curPlane[2][i]) << "red over blue";
}

namespace {

/// A number of the synth measure's JSON line, NaN when absent or null.
double JsonNumber(const std::string& json, const std::string& key) {
    const std::size_t at = json.find("\"" + key + "\":");
    if (at == std::string::npos)
        return std::nan("");
    char* end = nullptr;
    const char* start = json.c_str() + at + key.size() + 3;
    const double v = std::strtod(start, &end);
    return end == start ? std::nan("") : v;
}

} // namespace

TEST(AutoCommand, RawLightsOfANightDecodeToTheLevelsOfTheirFitsTwins) {
    ScratchDir dir;
    std::string out;
    for (const char* format : {"fits16", "dng"})
        ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_SYNTH) + " night --quiet --out " +
                                 Q(dir.file(format)) + " --format " + format +
                                 " --bayer GR,BG --size 160x120 --frames 2 --darks 1 --flats 0 "
                                 "--flat-darks 0 --bias 0 --seed 8",
                             &out),
                  0)
            << out;
    EXPECT_TRUE(fs::exists(dir.file("dng/darks/dark_0001.fit"))) << "calibration frames stay FITS";
    ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_CLI) +
                             " raw --quiet --conversion NoWBCFA "
                             "--save-type UNCOMPFIT -o " +
                             Q(dir.file("cvt")) + " " + Q(dir.file("dng/lights/light_0001.dng")) +
                             " " + Q(dir.file("dng/lights/light_0002.dng")),
                         &out),
              0)
        << out;
    for (int i = 1; i <= 2; ++i) {
        Image fits, raw;
        ASSERT_TRUE(fits.ReadFile(dir.file("fits16/lights/light_000" + std::to_string(i) + ".fit"),
                                  ".fit"));
        ASSERT_TRUE(
            raw.ReadFile(dir.file("cvt/CVT_light_000" + std::to_string(i) + ".fit"), ".fit"));
        ASSERT_EQ(raw.width, fits.width);
        ASSERT_EQ(raw.height, fits.height);
        ASSERT_EQ(raw.colorType, ColorGray);
        std::size_t differ = 0;
        for (std::uint32_t k = 0; k < fits.pixelCount; ++k)
            differ += raw.curPlane[0][k] != fits.curPlane[0][k];
        EXPECT_EQ(differ, 0u) << "light " << i;
    }

    // A raw night needs a mosaic the raw format can hold.
    EXPECT_NE(RunCommand(std::string(ASTRIVELLE_SYNTH) + " night --quiet --out " +
                             Q(dir.file("bad")) + " --format dng --size 64x64 --frames 1",
                         &out),
              0);
    EXPECT_NE(out.find("--format dng needs a 2x2 Bayer pattern"), std::string::npos) << out;
}

/// Moving nights through the whole process, measured against the generator's truth: the stack
/// gains signal to noise as the square root of the frame count (at least 0.8 of it), and its
/// stars are no wider than the aligned frames' own (misregistered frames would widen them).
TEST(AutoCommand, MovingNightsStackToTheirTruth) {
    struct Case {
        const char* name;
        const char* night; ///< generator options
        const char* run;   ///< auto options
        const char* reference;
        int inset; ///< colour interpolation drops a one-pixel border
    };
    const int frames = 6;
    const Case cases[] = {
        {"mono", "--size 640x480", "--type CCD --align quick", "ASA_C_light_0001.fit", 0},
        {"RGGB raw", "--size 640x480 --bayer RG,GB --format dng",
         "--type DSLR --color CFA --pattern RG,GB --align quick", "ASA_BINT_C_CVT_light_0001.fit",
         1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScratchDir dir;
        std::string out;
        const std::string n = dir.file("night");
        ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_SYNTH) + " night --quiet --out " + Q(n) + " " +
                                 c.night + " --frames " + std::to_string(frames) +
                                 " --darks 3 --flats 3 --flat-darks 0 --bias 3 --seed 21",
                             &out),
                  0)
            << out;
        const std::string outDir = dir.file("out");
        ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_CLI) + " auto --quiet --lights " +
                                 Q(n + "/lights") + " --darks " + Q(n + "/darks") + " --flats " +
                                 Q(n + "/flats") + " --bias " + Q(n + "/bias") + " " + c.run +
                                 " --combine SIGAVG --name Stack -o " + Q(outDir),
                             &out),
                  0)
            << out;
        ASSERT_TRUE(fs::exists(outDir + "/" + c.reference)) << out;
        std::string measured;
        const std::string measure = std::string(ASTRIVELLE_SYNTH) + " measure --json --truth " +
                                    Q(n + "/truth.json") + " --inset " + std::to_string(c.inset);
        ASSERT_EQ(RunCommand(measure + " --image " + Q(outDir + "/Stack.fit") + " --reference " +
                                 Q(outDir + "/" + c.reference),
                             &measured),
                  0)
            << measured;
        // The aligned frames one by one: their mean FWHM is what a perfect registration keeps.
        double sum = 0;
        std::string singles;
        for (int i = 1; i <= frames; ++i) {
            std::string single, name = c.reference;
            name.replace(name.size() - 5, 1, std::to_string(i));
            ASSERT_EQ(RunCommand(measure + " --image " + Q(outDir + "/" + name), &single), 0)
                << single;
            sum += JsonNumber(single, "fwhm");
            singles += single;
        }
        const double gain = JsonNumber(measured, "snrGain");
        const double fwhm = JsonNumber(measured, "fwhm"), fwhm0 = sum / frames;
        EXPECT_GE(gain, 0.8 * std::sqrt(static_cast<double>(frames))) << measured;
        EXPECT_LE(fwhm, 1.1 * fwhm0) << measured << "\n" << singles;
    }
}
