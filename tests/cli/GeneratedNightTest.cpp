// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The command line on generated nights: a light frame through `filter` and every FITS
/// save type, read back exactly and accepted by fitsverify.
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

const CFITSHeader* Card(const Image& img, const std::string& key) {
    for (const CFITSHeader& c : img.headerCards)
        if (c.key == key)
            return &c;
    return nullptr;
}

} // namespace

TEST(GeneratedNight, LightFrameSurvivesFilterThroughEverySaveType) {
    ScratchDir dir;
    std::string out;
    ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_SYNTH) + " night --out " + Q(dir.file("night")) +
                             " --frames 2 --size 160x120 --darks 1 --flats 1 --flat-darks 1 "
                             "--bias 1 --seed 5",
                         &out),
              0)
        << out;
    std::vector<fs::path> lights;
    for (const auto& e : fs::directory_iterator(dir.path() / "night" / "lights"))
        lights.push_back(e.path());
    ASSERT_EQ(lights.size(), 2u) << out;
    std::sort(lights.begin(), lights.end());
    const std::string light = lights[0].string();

    Image original;
    ASSERT_TRUE(original.ReadFile(light, ".fit"));
    ASSERT_EQ(original.width, 160);
    ASSERT_EQ(original.height, 120);
    ASSERT_NE(Card(original, "EXPTIME"), nullptr) << "the generator's header cards are read";

    struct Case {
        const char* saveType;
        std::uint32_t dataType;
        bool compressed;
    };
    for (const Case& c :
         {Case{"COMPFIT", Data16, true}, Case{"UNCOMPFIT", Data16, false},
          Case{"COMPFIT32", DataFloat, true}, Case{"UNCOMPFIT32", DataFloat, false}}) {
        SCOPED_TRACE(c.saveType);
        const std::string outDir = dir.file(std::string("out-") + c.saveType);
        // Add 0 over the whole range: a replay that must leave every pixel as it was.
        ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_CLI) +
                                 " filter --quiet --op 'Pixel Math' --params 'Operation: Add#"
                                 "Constant: 0.000#Threshold Min: 0#Threshold Max: 65535#"
                                 "Feather Range: 0#' --save-type " +
                                 c.saveType + " -o " + Q(outDir) + " " + Q(light),
                             &out),
                  0)
            << out;
        const std::string written = outDir + "/FF_" + lights[0].stem().string() + ".fit";
        Image back;
        ASSERT_TRUE(back.ReadFile(written, ".fit"));
        EXPECT_EQ(back.dataType, c.dataType);
        EXPECT_EQ(back.fitsCompress, c.compressed);
        ASSERT_EQ(back.pixelCount, original.pixelCount);
        std::size_t differ = 0;
        for (std::uint32_t i = 0; i < back.pixelCount; ++i)
            differ += back.curPlane[0][i] != original.curPlane[0][i];
        EXPECT_EQ(differ, 0u) << "every FITS save type is lossless";
        ASSERT_NE(Card(back, "EXPTIME"), nullptr) << "cards carried through";
        EXPECT_EQ(Card(back, "EXPTIME")->value, Card(original, "EXPTIME")->value);
        if (HaveProgram("fitsverify")) {
            std::string report;
            EXPECT_EQ(RunCommand("fitsverify -q " + Q(written), &report), 0) << report;
        }
    }
}
