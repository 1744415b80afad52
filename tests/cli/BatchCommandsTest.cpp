// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The `normalize`, `resize` and `crop` commands: outputs read back, the printed status
/// and output list, --json, the fixed texts and the exit codes.
#include <gtest/gtest.h>

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

int Cli(const std::string& args, std::string* out) {
    return RunCommand(std::string(ASTRIVELLE_CLI) + " " + args + " --quiet", out);
}

template <class Fn>
std::string Frame(const ScratchDir& dir, const std::string& name, int w, int h, Fn fn) {
    Image img;
    MakeImage(img, w, h, ColorGray, fn);
    const std::string path = dir.file(name);
    EXPECT_TRUE(img.WriteFile(path, KindFITS));
    return path;
}

} // namespace

TEST(BatchCommands, NormalizeRangeToUserValues) {
    ScratchDir dir;
    const std::string a = Frame(dir, "a.fit", 11, 3, [](int, int x, int) { return 100 + 10 * x; });
    const std::string b =
        Frame(dir, "b.fit", 11, 3, [](int, int x, int) { return 2000 + 100 * x; });
    std::string out;
    ASSERT_EQ(Cli("normalize --mode RANGE --target USER --min 1000 --max 2000 --save-type "
                  "UNCOMPFIT32 -o " +
                      Q(dir.file("out")) + " " + Q(a) + " " + Q(b),
                  &out),
              0)
        << out;
    EXPECT_NE(out.find("Completed\n"), std::string::npos) << out;
    EXPECT_NE(out.find(dir.file("out/NL_a.fit")), std::string::npos) << out;
    EXPECT_NE(out.find(dir.file("out/NL_b.fit")), std::string::npos) << out;
    for (const char* name : {"out/NL_a.fit", "out/NL_b.fit"}) {
        Image img;
        ASSERT_TRUE(img.ReadFile(dir.file(name), ".fit"));
        EXPECT_FLOAT_EQ(img.curPlane[0][0], 1000.0f) << name;
        EXPECT_FLOAT_EQ(img.curPlane[0][5], 1500.0f) << name;
        EXPECT_FLOAT_EQ(img.curPlane[0][10], 2000.0f) << name;
    }
    // The checks' texts, and usage errors.
    EXPECT_EQ(Cli("normalize --mode RANGE --target USER --min 5 --max 5 -o " + Q(dir.file("o2")) +
                      " " + Q(a) + " " + Q(b),
                  &out),
              1);
    EXPECT_NE(out.find("Please select minimum range < maximum range and maximum range <= 65535"),
              std::string::npos)
        << out;
    EXPECT_EQ(Cli("normalize -o " + Q(dir.file("o3")) + " " + Q(a) + " --json", &out), 1);
    EXPECT_NE(out.find("\"status\":\"Normalize operation requires at least two images.\\nPlease "
                       "select at least two images.\""),
              std::string::npos)
        << out;
    EXPECT_EQ(Cli("normalize --mode XY -o " + Q(dir.file("o4")) + " " + Q(a), &out), 2);
    EXPECT_EQ(
        Cli("normalize --target USER --background ten -o " + Q(dir.file("o4")) + " " + Q(a), &out),
        2);
}

TEST(BatchCommands, ResizeModesAndNoScale) {
    ScratchDir dir;
    const std::string big = Frame(dir, "big.fit", 40, 30, [](int, int x, int y) { return x + y; });
    const std::string small =
        Frame(dir, "small.fit", 20, 16, [](int, int x, int y) { return x * y; });
    std::string out;
    ASSERT_EQ(Cli("resize --mode SMALLEST --interpolation bicubic --json -o " + Q(dir.file("out")) +
                      " " + Q(big) + " " + Q(small),
                  &out),
              0)
        << out;
    EXPECT_NE(out.find("\"status\":\"Completed\""), std::string::npos) << out;
    EXPECT_NE(out.find("\"outputs\":[" + std::string("\"") + dir.file("out/RZ_big.fit")),
              std::string::npos)
        << out;
    Image img;
    ASSERT_TRUE(img.ReadFile(dir.file("out/RZ_big.fit"), ".fit"));
    EXPECT_EQ(img.width, 20);
    EXPECT_EQ(img.height, 16);

    ASSERT_EQ(Cli("resize --mode SIZE --width 7 --height 5 --prefix S_ -o " + Q(dir.file("out")) +
                      " " + Q(big),
                  &out),
              0)
        << out;
    ASSERT_TRUE(img.ReadFile(dir.file("out/S_big.fit"), ".fit"));
    EXPECT_EQ(img.width, 7);
    EXPECT_EQ(img.height, 5);

    ASSERT_EQ(
        Cli("resize --mode LARGEST -o " + Q(dir.file("same")) + " " + Q(big) + " " + Q(big), &out),
        0)
        << out;
    EXPECT_EQ(out, "No Scale Needed\n");

    EXPECT_EQ(Cli("resize --mode SIZE --width 7 -o " + Q(dir.file("x")) + " " + Q(big), &out), 1);
    EXPECT_NE(out.find("Height must be greater than 0."), std::string::npos) << out;
    EXPECT_EQ(Cli("resize --mode FACTOR --factor -1 -o " + Q(dir.file("x")) + " " + Q(big), &out),
              1);
    EXPECT_NE(out.find("Please enter a positive real number."), std::string::npos) << out;
    EXPECT_EQ(Cli("resize --mode FACTOR --interpolation cubic -o x " + Q(big), &out), 2);
}

TEST(BatchCommands, CropAboutPointAndCentroid) {
    ScratchDir dir;
    const std::string ramp =
        Frame(dir, "ramp.fit", 40, 30, [](int, int x, int y) { return x + 100 * y; });
    const std::string blob = Frame(dir, "blob.fit", 64, 48, [](int, int x, int y) {
        const int d2 = (x - 44) * (x - 44) + (y - 20) * (y - 20);
        return d2 <= 4 ? 30000 - 2000 * d2 : 200;
    });
    std::string out;
    EXPECT_EQ(Cli("crop --width 10 --height 6 --center 20,15 -o " + Q(dir.file("out")) + " " +
                      Q(ramp) + " " + Q(dir.file("none.fit")),
                  &out),
              1)
        << out;
    EXPECT_NE(out.find("Error reading none.fit"), std::string::npos) << out;
    Image img;
    ASSERT_TRUE(img.ReadFile(dir.file("out/CR_ramp.fit"), ".fit"));
    EXPECT_EQ(img.width, 10);
    EXPECT_EQ(img.curPlane[0][0], 1215.0f);

    ASSERT_EQ(
        Cli("crop --width 9 --height 9 --centroid -o " + Q(dir.file("out")) + " " + Q(blob), &out),
        0)
        << out;
    ASSERT_TRUE(img.ReadFile(dir.file("out/CR_blob.fit"), ".fit"));
    EXPECT_EQ(img.curPlane[0][4 * 9 + 4], 30000.0f);

    EXPECT_EQ(Cli("crop --width 50 --height 6 --center 20,15 --json -o " + Q(dir.file("big")) +
                      " " + Q(ramp),
                  &out),
              1);
    EXPECT_NE(out.find("Error cropping file w and h too large ramp.fit"), std::string::npos) << out;
    EXPECT_EQ(Cli("crop --width 5 --height 5 -o x " + Q(ramp), &out), 2);
    EXPECT_EQ(Cli("crop --width 5 --height 5 --center 3 -o x " + Q(ramp), &out), 2);
}
