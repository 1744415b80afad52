// SPDX-License-Identifier: GPL-3.0-or-later
/// \file astrivelle-synth night as a command: the folders and names it writes, the same bytes
/// for the same seed, FITS files that fitsverify accepts and that read back with their cards,
/// TIFF frames, and its usage errors.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "engine/Image.h"
#include "tools/synth/TruthFile.h"

namespace astrivelle::synth {
namespace {

namespace fs = std::filesystem;

const std::string kSynth = ASTRIVELLE_SYNTH;
const std::string kSmall = " --size 160x120 --frames 3 --darks 2 --flats 1 --flat-darks 1 --bias 1";

std::string Slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<fs::path> Files(const fs::path& dir) {
    std::vector<fs::path> out;
    for (const auto& e : fs::recursive_directory_iterator(dir))
        if (e.is_regular_file())
            out.push_back(fs::relative(e.path(), dir));
    std::sort(out.begin(), out.end());
    return out;
}

int Night(const std::string& args, std::string* out = nullptr) {
    return test::RunCommand(kSynth + " night" + args, out);
}

TEST(NightFiles, SameSeedSameBytesOtherSeedOtherBytes) {
    test::ScratchDir dir;
    const std::string a = dir.file("a"), b = dir.file("b"), c = dir.file("c");
    std::string out;
    ASSERT_EQ(Night(" --out " + a + kSmall + " --trail --meridian-flip", &out), 0) << out;
    ASSERT_EQ(Night(" --out " + b + kSmall + " --trail --meridian-flip", &out), 0) << out;
    ASSERT_EQ(Night(" --out " + c + kSmall + " --trail --meridian-flip --seed 2", &out), 0) << out;
    const std::vector<fs::path> expected = {
        "bias/bias_0001.fit",          "darks/dark_0001.fit",   "darks/dark_0002.fit",
        "flatdarks/flatdark_0001.fit", "flats/flat_0001.fit",   "lights/light_0001.fit",
        "lights/light_0002.fit",       "lights/light_0003.fit", "truth.json"};
    ASSERT_EQ(Files(a), expected);
    ASSERT_EQ(Files(b), expected);
    ASSERT_EQ(Files(c), expected);
    for (const fs::path& f : expected) {
        EXPECT_EQ(Slurp(fs::path(a) / f), Slurp(fs::path(b) / f)) << f;
        EXPECT_NE(Slurp(fs::path(a) / f), Slurp(fs::path(c) / f)) << f;
    }
}

TEST(NightFiles, FitsFramesPassFitsverifyAndCarryTheirCards) {
    test::ScratchDir dir;
    const std::string d = dir.file("n");
    std::string out;
    ASSERT_EQ(Night(" --out " + d + kSmall + " --bayer RGr,GbB --exposure 30", &out), 0) << out;
    Truth truth;
    std::string error;
    ASSERT_TRUE(ReadTruth(d + "/truth.json", &truth, &error)) << error;
    EXPECT_EQ(truth.bayer, "RGr,GbB");
    EXPECT_EQ(truth.exposure, 30);
    ASSERT_EQ(truth.frames.size(), 3u);
    const struct {
        std::string file;
        const char* type;
        double exposure;
        int number;
    } cases[] = {
        {truth.frames[2].file, "Light Frame", 30, 2}, {truth.darks[1], "Dark Frame", 30, 1},
        {truth.flats[0], "Flat Field", 2, 0},         {truth.flatDarks[0], "Dark Frame", 2, 0},
        {truth.biasFrames[0], "Bias Frame", 0, 0},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.file);
        const std::string path = d + "/" + k.file;
        if (test::HaveProgram("fitsverify")) {
            EXPECT_EQ(test::RunCommand("fitsverify -q " + path, &out), 0) << out;
            EXPECT_NE(out.find("verification OK"), std::string::npos) << out;
        }
        Image img;
        ASSERT_TRUE(img.ReadFile(path, ".fit"));
        EXPECT_EQ(img.width, 160);
        EXPECT_EQ(img.height, 120);
        auto card = [&](const std::string& key) -> std::string {
            for (const CFITSHeader& c : img.headerCards)
                if (c.key == key)
                    return c.value;
            return "(absent)";
        };
        EXPECT_EQ(card("IMAGETYP"), k.type);
        EXPECT_DOUBLE_EQ(std::stod(card("EXPTIME")), k.exposure);
        EXPECT_EQ(card("FRAMENO"), std::to_string(k.number));
        EXPECT_DOUBLE_EQ(std::stod(card("CCD-TEMP")), -10.0);
        EXPECT_EQ(card("BAYERPAT"), "RGr,GbB");
    }
    if (!test::HaveProgram("fitsverify"))
        GTEST_SKIP() << "fitsverify is not installed; the cards were checked";
}

TEST(NightFiles, NoiselessFloatFramePutsStarsWhereTheTruthSays) {
    test::ScratchDir dir;
    const std::string d = dir.file("n");
    std::string out;
    ASSERT_EQ(Night(" --out " + d +
                        " --size 400x300 --frames 3 --meridian-flip --noiseless"
                        " --format fits32 --darks 1 --flats 1 --flat-darks 1 --bias 0 --seed 5",
                    &out),
              0)
        << out;
    Truth t;
    std::string error;
    ASSERT_TRUE(ReadTruth(d + "/truth.json", &t, &error)) << error;
    // Noiseless calibration frames calibrate exactly: (light - dark) / (flat - flat dark)
    // leaves sky and stars alone.
    Image dark, flat, flatDark;
    ASSERT_TRUE(dark.ReadFile(d + "/" + t.darks[0], ".fit"));
    ASSERT_TRUE(flat.ReadFile(d + "/" + t.flats[0], ".fit"));
    ASSERT_TRUE(flatDark.ReadFile(d + "/" + t.flatDarks[0], ".fit"));
    std::vector<float> p(400 * 300);
    for (int frame : {0, 1, 2}) { // 2 is turned by 180 degrees
        SCOPED_TRACE("frame " + std::to_string(frame));
        Image img;
        ASSERT_TRUE(img.ReadFile(d + "/" + t.frames[static_cast<std::size_t>(frame)].file, ".fit"));
        ASSERT_EQ(img.dataType, static_cast<std::uint32_t>(DataFloat));
        for (std::size_t k = 0; k < p.size(); ++k)
            p[k] = (img.curPlane[0][k] - dark.curPlane[0][k]) /
                   (flat.curPlane[0][k] - flatDark.curPlane[0][k]) * 25000.0f;
        int checked = 0;
        for (std::size_t i = 0; i < t.stars.size(); ++i) {
            const StarTruth& s = t.stars[i];
            if (s.saturated || s.flux < 10000)
                continue;
            bool isolated = true;
            for (std::size_t j = 0; j < t.stars.size() && isolated; ++j)
                if (j != i && std::hypot(t.stars[j].x - s.x, t.stars[j].y - s.y) < 15 &&
                    t.stars[j].flux > 0.002 * s.flux)
                    isolated = false;
            double fx, fy;
            t.frames[static_cast<std::size_t>(frame)].transform.Apply(s.x, s.y, &fx, &fy);
            const int r = 7, ix = static_cast<int>(std::lround(fx)),
                      iy = static_cast<int>(std::lround(fy));
            if (!isolated || ix < r + 3 || iy < r + 3 || ix > 400 - r - 4 || iy > 300 - r - 4)
                continue;
            // Background: a plane through the ring just outside the window (the sky gradient).
            double n = 0, sx = 0, sy = 0, sv = 0, sxx = 0, syy = 0, sxv = 0, syv = 0;
            for (int y = iy - r - 2; y <= iy + r + 2; ++y)
                for (int x = ix - r - 2; x <= ix + r + 2; ++x) {
                    if (std::abs(x - ix) <= r && std::abs(y - iy) <= r)
                        continue;
                    const double v = p[y * 400 + x], X = x - ix, Y = y - iy;
                    n += 1;
                    sx += X;
                    sy += Y;
                    sv += v;
                    sxx += X * X;
                    syy += Y * Y;
                    sxv += X * v;
                    syv += Y * v;
                }
            const double b0 = sv / n, bx = sxv / sxx, by = syv / syy; // the ring is symmetric
            double s0 = 0, s1 = 0, s2 = 0;
            for (int y = iy - r; y <= iy + r; ++y)
                for (int x = ix - r; x <= ix + r; ++x) {
                    const double v = p[y * 400 + x] - (b0 + bx * (x - ix) + by * (y - iy));
                    s0 += v;
                    s1 += v * x;
                    s2 += v * y;
                }
            EXPECT_NEAR(s1 / s0, fx, 0.05) << "star " << i;
            EXPECT_NEAR(s2 / s0, fy, 0.05) << "star " << i;
            ++checked;
        }
        EXPECT_GE(checked, 3);
    }
}

TEST(NightFiles, TiffFramesPassTiffinfo) {
    test::ScratchDir dir;
    const std::string d = dir.file("n");
    std::string out;
    ASSERT_EQ(Night(" --out " + d + kSmall + " --format tiff16", &out), 0) << out;
    ASSERT_TRUE(fs::exists(d + "/lights/light_0003.tif"));
    ASSERT_TRUE(fs::exists(d + "/bias/bias_0001.tif"));
    if (!test::HaveProgram("tiffinfo"))
        GTEST_SKIP() << "tiffinfo is not installed";
    EXPECT_EQ(test::RunCommand("tiffinfo " + d + "/lights/light_0003.tif", &out), 0) << out;
    EXPECT_NE(out.find("Image Width: 160 Image Length: 120"), std::string::npos) << out;
    EXPECT_NE(out.find("IMAGETYP=Light Frame"), std::string::npos) << out;
    EXPECT_EQ(out.find("rror"), std::string::npos) << out;
}

TEST(NightFiles, UsageErrors) {
    const struct {
        std::string args;
        int status;
        const char* text;
    } cases[] = {
        {"", 2, "--out DIR is needed"},
        {" --out /tmp/x --bayer RGGB", 2, "unknown colour filter pattern \"RGGB\""},
        {" --out /tmp/x --format jpeg", 2, "--format must be fits16, fits32, tiff16 or dng"},
        {" --out /tmp/x --frames 0", 2, "--frames must be a whole number from 1 to 9999"},
        {" --out /tmp/x --size 100", 2, "--size must be WIDTHxHEIGHT"},
        {" --out /tmp/x --wobble", 2, "unknown argument --wobble"},
        {" --out /dev/null/x --size 16x16 --frames 1", 1, "cannot create /dev/null/x/lights"},
    };
    for (const auto& k : cases) {
        std::string out;
        EXPECT_EQ(Night(k.args, &out), k.status) << k.args << ": " << out;
        EXPECT_NE(out.find(k.text), std::string::npos) << k.args << ": " << out;
    }
    std::string out;
    EXPECT_EQ(Night(" --help", &out), 0);
    EXPECT_NE(out.find("--meridian-flip"), std::string::npos);
}

} // namespace
} // namespace astrivelle::synth
