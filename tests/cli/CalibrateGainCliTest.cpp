// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `calibrate` and `gain` on a generated night: JSON output, the files written and
/// their header cards, the generator's gain and read noise measured back, and usage errors.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
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

/// The number after "key": in a JSON text (first occurrence), NaN when absent.
double JsonNumberAfter(const std::string& json, const std::string& key, std::size_t from = 0) {
    const std::size_t at = json.find("\"" + key + "\":", from);
    if (at == std::string::npos)
        return std::nan("");
    return std::strtod(json.c_str() + at + key.size() + 3, nullptr);
}

class CalibrateGainCli : public ::testing::Test {
protected:
    ScratchDir dir;
    std::string night;
    void SetUp() override {
        night = dir.file("night");
        std::string out;
        ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_SYNTH) + " night --quiet --out " + Q(night) +
                                 " --frames 2 --size 300x200 --darks 1 --flats 2 --flat-darks 1 "
                                 "--bias 2 --seed 9",
                             &out),
                  0)
            << out;
    }
    std::string F(const std::string& relative) const { return night + "/" + relative; }
};

} // namespace

TEST_F(CalibrateGainCli, CalibrateWritesOutputsAndReportsJson) {
    std::string out;
    const std::string outDir = dir.file("out");
    ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_CLI) + " calibrate --json --dark " +
                             Q(F("darks/dark_0001.fit")) + " --flat " +
                             Q(F("flats/flat_0001.fit")) + " --flat-dark " +
                             Q(F("flatdarks/flatdark_0001.fit")) + " --dark-factor 1.0 -o " +
                             Q(outDir) + " " + Q(F("lights/light_0001.fit")) + " " +
                             Q(F("lights/light_0002.fit")),
                         &out),
              0)
        << out;
    EXPECT_NE(out.find("\"status\":\"Applied : Dark, Flat, Flat Dark,\""), std::string::npos)
        << out;
    EXPECT_NE(out.find("\"ok\":true"), std::string::npos);
    EXPECT_NE(out.find(outDir + "/C_light_0002.fit"), std::string::npos);
    Image img;
    ASSERT_TRUE(img.ReadFile(outDir + "/C_light_0001.fit", ".fit"));
    int found = 0;
    for (const CFITSHeader& c : img.headerCards)
        found += c.key == "COMMENT" && c.comment.rfind("QX Calibrate - ", 0) == 0;
    EXPECT_EQ(found, 4);

    // A second run with a prefix, the save type, and one unreadable file among the lights.
    const std::string bad = dir.file("bad.fit");
    RunCommand("printf garbage > " + Q(bad));
    const int rc =
        RunCommand(std::string(ASTRIVELLE_CLI) + " calibrate --json --bias " +
                       Q(F("bias/bias_0001.fit")) + " --prefix B_ --save-type UNCOMPFIT32 -o " +
                       Q(outDir) + " " + Q(F("lights/light_0001.fit")) + " " + Q(bad),
                   &out);
    EXPECT_EQ(rc, 0) << "the unreadable file is refused before the run: " << out;
    ASSERT_TRUE(img.ReadFile(outDir + "/B_light_0001.fit", ".fit")) << out;
    EXPECT_EQ(img.dataType, static_cast<std::uint32_t>(DataFloat));
}

TEST_F(CalibrateGainCli, CalibrateUsageAndFailureExits) {
    std::string out;
    const std::string cli = ASTRIVELLE_CLI;
    EXPECT_EQ(
        RunCommand(cli + " calibrate -o " + Q(dir.file("o")) + " " + Q(F("lights/light_0001.fit")),
                   &out),
        2)
        << "no frame";
    EXPECT_EQ(RunCommand(cli + " calibrate --dark " + Q(F("darks/dark_0001.fit")) + " " +
                             Q(F("lights/light_0001.fit")),
                         &out),
              2)
        << "no -o";
    EXPECT_EQ(RunCommand(cli + " calibrate --dark " + Q(F("darks/dark_0001.fit")) +
                             " --adaptive sometimes -o " + Q(dir.file("o")) + " " +
                             Q(F("lights/light_0001.fit")),
                         &out),
              2);
    EXPECT_EQ(RunCommand(cli + " calibrate --dark " + Q(F("darks/dark_0001.fit")) +
                             " --prefix 'a/b' -o " + Q(dir.file("o")) + " " +
                             Q(F("lights/light_0001.fit")),
                         &out),
              2);
    EXPECT_NE(out.find("A file prefix can't contain any of the following characters:"),
              std::string::npos);
    // Colour lights against a mono dark: nothing usable.
    EXPECT_EQ(RunCommand(cli + " calibrate --color-model COLOR --dark " +
                             Q(F("darks/dark_0001.fit")) + " -o " + Q(dir.file("o")) + " " +
                             Q(F("lights/light_0001.fit")),
                         &out),
              1);
    EXPECT_NE(out.find("The select image color type does not match"), std::string::npos) << out;
}

TEST_F(CalibrateGainCli, GainMeasuresTheGeneratorsCamera) {
    std::string out;
    ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_CLI) + " gain --json --flat1 " +
                             Q(F("flats/flat_0001.fit")) + " --flat2 " +
                             Q(F("flats/flat_0002.fit")) + " --bias1 " +
                             Q(F("bias/bias_0001.fit")) + " --bias2 " + Q(F("bias/bias_0002.fit")) +
                             " --type CCD --adc 16",
                         &out),
              0)
        << out;
    // The generator's camera: 1.5 e/ADU, read noise 8 ADU = 12 e.
    EXPECT_NE(out.find("\"name\":\"Luminance\""), std::string::npos) << out;
    EXPECT_NEAR(JsonNumberAfter(out, "gain"), 1.5, 1.5 * 0.03) << out;
    EXPECT_NEAR(JsonNumberAfter(out, "readNoise"), 12.0, 12.0 * 0.03) << out;

    EXPECT_EQ(RunCommand(std::string(ASTRIVELLE_CLI) + " gain --flat1 " +
                             Q(F("flats/flat_0001.fit")) + " --flat2 " +
                             Q(F("flats/flat_0001.fit")) + " --bias1 " +
                             Q(F("bias/bias_0001.fit")) + " --bias2 " + Q(F("bias/bias_0002.fit")) +
                             " --type CCD --adc 16",
                         &out),
              1);
    EXPECT_NE(out.find("Please select a Flat 1 frame that is different than Flat 2."),
              std::string::npos)
        << out;
    EXPECT_EQ(RunCommand(std::string(ASTRIVELLE_CLI) + " gain --flat1 a.fit --flat2 b.fit "
                                                       "--bias1 c.fit --bias2 d.fit --type CCD "
                                                       "--adc 11",
                         &out),
              2);
}
