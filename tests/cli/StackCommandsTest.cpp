// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The `bayer` and `combine` commands on generated nights, read back and compared with
/// the inputs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>

#include "TestSupport.h"
#include "engine/Image.h"

using namespace astrivelle;
using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

std::string Q(const std::string& s) {
    return "'" + s + "'";
}

std::string Cli() {
    return ASTRIVELLE_CLI;
}

/// A small generated night; returns the sorted light frames.
std::vector<std::string> Night(const ScratchDir& dir, const std::string& options) {
    std::string out;
    EXPECT_EQ(RunCommand(std::string(ASTRIVELLE_SYNTH) + " night --quiet --out " +
                             Q(dir.file("night")) +
                             " --size 64x48 --darks 1 --flats 1 --flat-darks 1 --bias 1 " + options,
                         &out),
              0)
        << out;
    std::vector<std::string> lights;
    for (const auto& e : fs::directory_iterator(dir.path() / "night" / "lights"))
        lights.push_back(e.path().string());
    std::sort(lights.begin(), lights.end());
    return lights;
}

std::string Join(const std::vector<std::string>& files) {
    std::string s;
    for (const std::string& f : files)
        s += " " + Q(f);
    return s;
}

} // namespace

TEST(BayerCommand, InterpolatesAndSplitsGeneratedMosaics) {
    ScratchDir dir;
    const std::vector<std::string> lights = Night(dir, "--frames 2 --bayer GR,BG --noiseless");
    ASSERT_EQ(lights.size(), 2u);
    Image mosaic;
    ASSERT_TRUE(mosaic.ReadFile(lights[0], ".fit"));

    std::string out;
    ASSERT_EQ(
        RunCommand(Cli() + " bayer --pattern GR,BG --json -o " + Q(dir.file("rgb")) + Join(lights),
                   &out),
        0)
        << out;
    EXPECT_NE(out.find("\"status\":\"Completed\""), std::string::npos) << out;
    EXPECT_NE(out.find("BINT_light_0001.tif"), std::string::npos) << out;
    Image rgb;
    ASSERT_TRUE(
        rgb.ReadFile(dir.file("rgb/BINT_" + fs::path(lights[0]).stem().string() + ".tif"), ".tif"));
    EXPECT_EQ(rgb.colorType, static_cast<std::uint32_t>(ColorRGB));
    EXPECT_EQ(rgb.width, 62);
    EXPECT_EQ(rgb.height, 46);
    // GR,BG: input (1, 0) is red; output (0, 1) sits on input (1, 2), a red site.
    EXPECT_NEAR(rgb.curPlane[0][1 * 62 + 0], mosaic.curPlane[0][2 * 64 + 1], 0.5);

    ASSERT_EQ(RunCommand(Cli() + " bayer --pattern GR,BG --rgb-pixel --json -o " +
                             Q(dir.file("half")) + Join(lights),
                         &out),
              0)
        << out;
    Image half;
    ASSERT_TRUE(half.ReadFile(dir.file("half/BINT_" + fs::path(lights[0]).stem().string() + ".tif"),
                              ".tif"));
    EXPECT_EQ(half.width, 32);
    EXPECT_EQ(half.height, 24);

    // Split: the blue samples (input (0, 1) of each cell) in a float FITS, with the user's
    // prefix and the colour behind it.
    ASSERT_EQ(RunCommand(Cli() +
                             " bayer --pattern GR,BG --output BLUE --prefix S --save-type "
                             "UNCOMPFIT32 --json -o " +
                             Q(dir.file("split")) + Join(lights),
                         &out),
              0)
        << out;
    Image blue;
    ASSERT_TRUE(blue.ReadFile(
        dir.file("split/S_BLUE_" + fs::path(lights[0]).stem().string() + ".fit"), ".fit"));
    ASSERT_EQ(blue.width, 32);
    ASSERT_EQ(blue.height, 24);
    for (int y = 0; y < 24; y += 5)
        for (int x = 0; x < 32; x += 3)
            ASSERT_EQ(blue.curPlane[blue.Slots()[0]][y * 32 + x],
                      mosaic.curPlane[0][(2 * y + 1) * 64 + 2 * x]);

    // A bad file is reported and the others are written; the exit status says so.
    ASSERT_EQ(RunCommand(Cli() + " bayer --pattern GR,BG --json -o " + Q(dir.file("bad")) + " " +
                             Q(dir.file("missing.fit")) + " " + Q(lights[1]),
                         &out),
              1)
        << out;
    EXPECT_NE(out.find("\"text\":\"Error Reading missing.fit\""), std::string::npos) << out;
    EXPECT_TRUE(fs::exists(dir.file("bad/BINT_" + fs::path(lights[1]).stem().string() + ".tif")));

    // Usage errors.
    EXPECT_EQ(RunCommand(Cli() + " bayer -o x " + Q(lights[0]), &out), 2) << out;
    EXPECT_EQ(RunCommand(Cli() + " bayer --pattern RG,GB --output CYAN -o x " + Q(lights[0]), &out),
              2)
        << out;
    EXPECT_EQ(
        RunCommand(Cli() + " bayer --pattern RGGB -o " + Q(dir.file("x")) + " " + Q(lights[0]),
                   &out),
        1)
        << out;
}

TEST(CombineCommand, AverageAndMedianOfGeneratedLights) {
    ScratchDir dir;
    const std::vector<std::string> lights = Night(dir, "--frames 3 --no-motion --seed 3");
    ASSERT_EQ(lights.size(), 3u);
    std::vector<std::unique_ptr<Image>> frames;
    for (const std::string& f : lights) {
        frames.push_back(std::make_unique<Image>());
        ASSERT_TRUE(frames.back()->ReadFile(f, ".fit"));
    }
    std::string out;
    ASSERT_EQ(RunCommand(Cli() +
                             " combine --method AVG --save-type UNCOMPFIT32 --name Mean "
                             "--json -o " +
                             Q(dir.file("out")) + Join(lights),
                         &out),
              0)
        << out;
    EXPECT_NE(out.find("\"status\":\" 3 Images\""), std::string::npos) << out;
    EXPECT_NE(out.find("\"method\":\"AVG\""), std::string::npos) << out;
    Image mean;
    ASSERT_TRUE(mean.ReadFile(dir.file("out/Mean.fit"), ".fit"));
    ASSERT_EQ(mean.width, 64);
    for (int i = 0; i < 64 * 48; i += 7) {
        double s = 0, c = 0;
        for (const auto& f : frames)
            if (f->curPlane[0][i] != 0) {
                s += f->curPlane[0][i];
                ++c;
            }
        ASSERT_NEAR(mean.curPlane[0][i], c ? s / c : 0, 0.01) << i;
    }

    ASSERT_EQ(RunCommand(Cli() + " combine --method MED --save-type UNCOMPTIF -o " +
                             Q(dir.file("out")) + Join(lights),
                         &out),
              0)
        << out;
    Image median;
    ASSERT_TRUE(median.ReadFile(dir.file("out/Combined_MED.tif"), ".tif"));
    for (int i = 0; i < 64 * 48; i += 5) {
        float v[3];
        for (int k = 0; k < 3; ++k)
            v[k] = std::floor(frames[k]->curPlane[0][i] + 0.5f);
        std::sort(v, v + 3);
        ASSERT_NEAR(median.curPlane[median.Slots()[0]][i], v[1], 0.5) << i;
    }

    // A file of another size is left out of the list; one usable file is not enough.
    Image small;
    MakeImage(small, 10, 10, ColorGray, [](int, int, int) { return 5; });
    ASSERT_TRUE(small.WriteFile(dir.file("small.fit"), KindFITS));
    ASSERT_EQ(RunCommand(Cli() + " combine --method MAX --json -o " + Q(dir.file("out")) +
                             Join(lights) + " " + Q(dir.file("small.fit")),
                         &out),
              0)
        << out;
    EXPECT_NE(out.find("\"status\":\" 3 Images\""), std::string::npos) << out;
    EXPECT_NE(out.find("not included: small.fit"), std::string::npos) << out;
    EXPECT_EQ(RunCommand(Cli() + " combine --method MAX --json -o " + Q(dir.file("out")) + " " +
                             Q(lights[0]) + " " + Q(dir.file("small.fit")),
                         &out),
              1);
    EXPECT_NE(out.find("requires more than one usable image.\\nPlease select at least two "
                       "compatible images."),
              std::string::npos)
        << out;

    EXPECT_EQ(RunCommand(Cli() + " combine --method AVERAGE -o x" + Join(lights), &out), 2);
    EXPECT_EQ(RunCommand(Cli() + " combine --method AVG --clip-factor x -o x" + Join(lights), &out),
              2);
    EXPECT_EQ(RunCommand(Cli() + " combine --method SIGAVG --json --name 'a*b' -o " +
                             Q(dir.file("out")) + Join(lights),
                         &out),
              1);
    EXPECT_NE(out.find("A file name can't contain any of the following characters"),
              std::string::npos)
        << out;
}

TEST(CombineCommand, GradedAverageTakesTheGivenGradeWeights) {
    // Two files graded A and B by their names: the graded average adds each at its grade's
    // weight, 100 % and 75 % unless others are given.
    ScratchDir dir;
    const std::string a = dir.file("AGA_AVERAGE_first.fit"), b = dir.file("AGB_AVERAGE_second.fit");
    for (const auto& [path, level] : {std::pair{a, 100.0}, std::pair{b, 300.0}}) {
        Image img;
        MakeImage(img, 8, 6, ColorGray, [&](int, int, int) { return level; });
        ASSERT_TRUE(img.WriteFile(path, KindFITS));
    }
    struct Case {
        const char* options;
        int exit;
        double level;
    };
    for (const Case& c :
         {Case{"", 0, 100 + 0.75 * 300}, Case{"--grade-weights 100,50,25,10,0", 0, 100 + 0.5 * 300},
          Case{"--grade-weights 0,100,0,0,0", 0, 300}, Case{"--grade-weights 100,50,25,10", 2, 0},
          Case{"--grade-weights 100,50,25,10,101", 2, 0},
          Case{"--grade-weights 100,50,x,10,0", 2, 0}}) {
        std::string out;
        ASSERT_EQ(RunCommand(Cli() + " combine --method GRADEAVG --save-type UNCOMPFIT32 " +
                                 c.options + " --name Graded -o " + Q(dir.file("out")) + " " +
                                 Q(a) + " " + Q(b),
                             &out),
                  c.exit)
            << c.options << "\n"
            << out;
        if (c.exit != 0) {
            EXPECT_NE(out.find("--grade-weights takes five whole numbers 0..100"),
                      std::string::npos)
                << out;
            continue;
        }
        Image graded;
        ASSERT_TRUE(graded.ReadFile(dir.file("out/Graded.fit"), ".fit"));
        EXPECT_NEAR(graded.curPlane[graded.Slots()[0]][13], c.level, 1e-3) << c.options;
    }
}
