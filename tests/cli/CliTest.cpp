// SPDX-License-Identifier: GPL-3.0-or-later
/// \file astrivelle-cli end to end: exit codes, info output, filter outputs and failures.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "TestSupport.h"
#include "engine/Image.h"

using namespace astrivelle;
using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

std::string Cli(const std::string& args) {
    return std::string(ASTRIVELLE_CLI) + " " + args;
}

std::string Q(const std::string& s) {
    return "'" + s + "'";
}

/// A 2x2 16-bit FITS with the levels 0, 100, 200, 300 and two header cards.
void WriteSmallFits(const std::string& path, float base = 0) {
    Image img;
    MakeImage(img, 2, 2, ColorGray,
              [base](int, int x, int y) { return base + 100.0 * (y * 2 + x); });
    img.headerCards.push_back({"OBJECT", "M 13", "target", CardString});
    img.headerCards.push_back({"HISTORY", "", "made for a test", CardString});
    ASSERT_TRUE(img.WriteFile(path, KindFITS));
}

const char* kAdd100 =
    "Operation: Add#Constant: 100.000#Threshold Min: 0#Threshold Max: 65535#Feather Range: 0#";

} // namespace

TEST(Cli, ExitCodesOfTheFrontDoor) {
    struct Case {
        const char* args;
        int status;
        const char* outputHas;
    };
    const Case cases[] = {
        {"--help", 0, "filter"},
        {"--version", 0, "astrivelle-cli "},
        {"", 2, "usage"},
        {"frobnicate", 2, "unknown command"},
        {"info --help", 0, "--json"},
        {"filter --help", 0, "--save-type"},
        {"info", 2, "usage"},
        {"info --bogus x.fit", 2, "unknown option"},
        {"filter x.fit", 2, "-o DIR is required"},
        {"filter -o /tmp", 2, "no input files"},
        {"filter --params x -o /tmp a.fit", 2, "--params must follow an --op"},
        {"filter --save-type JPEG2000 -o /tmp a.fit", 2, "unknown save type"},
        {"info /nonexistent/file.fit", 1, "Error reading /nonexistent/file.fit"},
    };
    for (const Case& c : cases) {
        std::string out;
        EXPECT_EQ(RunCommand(Cli(c.args), &out), c.status) << c.args << "\n" << out;
        EXPECT_NE(out.find(c.outputHas), std::string::npos) << c.args << "\n" << out;
    }
}

TEST(CliInfo, JsonCarriesExactStatisticsAndCards) {
    ScratchDir dir;
    const std::string in = dir.file("small.fit");
    WriteSmallFits(in);
    std::string out;
    ASSERT_EQ(RunCommand(Cli("info --json " + Q(in)), &out), 0) << out;
    for (const char* part :
         {"\"width\":2", "\"height\":2", "\"colorType\":9", "\"fileType\":-7", "\"dataType\":2",
          "\"compressed\":false", "\"slot\":0", "\"max\":300", "\"min\":0", "\"mean\":150",
          "\"median\":100", "\"stdDev\":129.09944487358", "\"entropy\":1.386294361119890",
          "\"entropyRatio\":0.5", "\"key\":\"OBJECT\",\"value\":\"M 13\",\"comment\":\"target\""})
        EXPECT_NE(out.find(part), std::string::npos) << part << "\n" << out;
    if (HaveProgram("python3")) {
        std::ofstream(dir.file("out.json")) << out;
        EXPECT_EQ(RunCommand("python3 -c 'import json,sys; d=json.load(open(sys.argv[1])); "
                             "assert d[\"channels\"][0][\"median\"]==100' " +
                             Q(dir.file("out.json"))),
                  0)
            << "info --json is valid JSON";
    }
    ASSERT_EQ(RunCommand(Cli("info " + Q(in)), &out), 0);
    EXPECT_NE(out.find("Width:       2"), std::string::npos) << out;
    EXPECT_NE(out.find("OBJECT   = M 13 / target"), std::string::npos) << out;
}

TEST(CliFilter, WritesPrefixedOutputsAndKeepsGoingPastFailures) {
    ScratchDir dir;
    const std::string good = dir.file("good.fit"), bad = dir.file("bad.fit");
    WriteSmallFits(good);
    std::ofstream(bad) << "this is not a FITS file at all";
    const std::string outDir = dir.file("out");
    std::string out;
    int status =
        RunCommand(Cli("filter --quiet --op 'Pixel Math' --params '" + std::string(kAdd100) +
                       "' --save-type COMPFIT -o " + Q(outDir) + " " + Q(bad) + " " + Q(good)),
                   &out);
    EXPECT_EQ(status, 1) << out;
    EXPECT_NE(out.find("Error reading bad.fit"), std::string::npos) << out;
    ASSERT_TRUE(fs::exists(outDir + "/FF_good.fit")) << out;
    EXPECT_FALSE(fs::exists(outDir + "/FF_bad.fit"));
    for (const auto& e : fs::directory_iterator(outDir))
        EXPECT_EQ(e.path().filename().string().rfind(".astrivelle-", 0), std::string::npos)
            << "no temporary file left behind";

    Image result;
    ASSERT_TRUE(result.ReadFile(outDir + "/FF_good.fit", ".fit"));
    EXPECT_TRUE(result.fitsCompress);
    EXPECT_FLOAT_EQ(result.curPlane[0][0], 100);
    EXPECT_FLOAT_EQ(result.curPlane[0][3], 400);
    if (HaveProgram("fitsverify")) {
        std::string report;
        EXPECT_EQ(RunCommand("fitsverify -q " + Q(outDir + "/FF_good.fit"), &report), 0) << report;
    }
}

TEST(CliFilter, FailingRecordEndsThatFileOnly) {
    ScratchDir dir;
    WriteSmallFits(dir.file("a.fit"));
    WriteSmallFits(dir.file("b.fit"), 1000);
    struct Case {
        std::string ops;
        const char* errorHas;
    };
    const Case cases[] = {
        {"--op 'Frequency Filter' --params 'x#'", "not available in this version"},
        {"--op Levels --params 'Channel : RGB#'", "Levels"},
        {"--op 'Pixel Math' --params 'Operation: Add#Constant: 5#'", "Pixel Math"},
        {"--op 'No Such Operator' --params 'x#'", "Unknown operation"},
    };
    for (const Case& c : cases) {
        const std::string outDir = dir.file("out-fail");
        fs::remove_all(outDir);
        std::string out;
        EXPECT_EQ(RunCommand(Cli("filter --quiet " + c.ops + " -o " + Q(outDir) + " " +
                                 Q(dir.file("a.fit")) + " " + Q(dir.file("b.fit"))),
                             &out),
                  1);
        EXPECT_NE(out.find("Error filtering a.fit"), std::string::npos) << out;
        EXPECT_NE(out.find("Error filtering b.fit"), std::string::npos) << out;
        EXPECT_NE(out.find(c.errorHas), std::string::npos) << out;
        EXPECT_FALSE(fs::exists(outDir + "/FF_a.fit"));
    }
}

TEST(CliFilter, NeverOverwritesAnInputAndRefusesAFileAsFolder) {
    ScratchDir dir;
    const std::string in = dir.file("keep.fit");
    WriteSmallFits(in);
    const auto before = fs::file_size(in);
    std::string out;
    EXPECT_EQ(RunCommand(Cli("filter --quiet --prefix '' --op 'Pixel Math' --params '" +
                             std::string(kAdd100) + "' -o " + Q(dir.path().string()) + " " + Q(in)),
                         &out),
              1);
    EXPECT_NE(out.find("overwrite the input"), std::string::npos) << out;
    Image still;
    ASSERT_TRUE(still.ReadFile(in, ".fit"));
    EXPECT_FLOAT_EQ(still.curPlane[0][1], 100);
    EXPECT_EQ(fs::file_size(in), before);

    EXPECT_EQ(RunCommand(Cli("filter --quiet -o " + Q(in) + " " + Q(in)), &out), 1);
    EXPECT_NE(out.find("No filters selected."), std::string::npos) << out;
    EXPECT_EQ(RunCommand(Cli("filter --quiet --op 'Pixel Math' --params '" + std::string(kAdd100) +
                             "' -o " + Q(in) + " " + Q(in)),
                         &out),
              1);
    EXPECT_EQ(fs::file_size(in), before) << out;
}

TEST(CliFilter, SaveTypeFloatKeepsFractions) {
    ScratchDir dir;
    WriteSmallFits(dir.file("f.fit"));
    const std::string outDir = dir.file("out");
    std::string out;
    ASSERT_EQ(RunCommand(Cli("filter --quiet --op 'Pixel Math' --params 'Operation: Divide#"
                             "Constant: 3.000#Threshold Min: 0#Threshold Max: 65535#"
                             "Feather Range: 0#' --save-type UNCOMPFIT32 --prefix P_ -o " +
                             Q(outDir) + " " + Q(dir.file("f.fit"))),
                         &out),
              0)
        << out;
    Image r;
    ASSERT_TRUE(r.ReadFile(outDir + "/P_f.fit", ".fit"));
    EXPECT_EQ(r.dataType, DataFloat);
    EXPECT_FALSE(r.fitsCompress);
    EXPECT_FLOAT_EQ(r.curPlane[0][1], 100.0f / 3.0f);
}

TEST(CliInfo, ReadsFilesWrittenByCfitsioTools) {
    for (const char* tool : {"fpack", "funpack", "imcopy"})
        if (!HaveProgram(tool))
            GTEST_SKIP() << tool << " is not installed";
    ScratchDir dir;
    const std::string original = dir.file("orig.fit");
    {
        Image img;
        MakeImage(img, 37, 23, ColorGray,
                  [](int, int x, int y) { return (x * 131 + y * 977) % 65536; });
        ASSERT_TRUE(img.WriteFile(original, KindFITS));
    }
    std::string out;
    // fpack's Rice file, funpack's plain copy of it, imcopy's own compressed copy.
    ASSERT_EQ(RunCommand("fpack -O " + Q(dir.file("packed.fz")) + " " + Q(original), &out), 0)
        << out;
    ASSERT_EQ(
        RunCommand("funpack -O " + Q(dir.file("unpacked.fit")) + " " + Q(dir.file("packed.fz")),
                   &out),
        0)
        << out;
    ASSERT_EQ(
        RunCommand("imcopy " + Q(original) + " " + Q(dir.file("imcopy.fit") + "[compress]"), &out),
        0)
        << out;
    std::string reference;
    ASSERT_EQ(RunCommand(Cli("info --json " + Q(original)), &reference), 0);
    // The statistics block only: the cards (and so the property rows) differ after fpack.
    const auto from = reference.find("\"channels\"");
    const std::string stats = reference.substr(from, reference.find("\"properties\"") - from);
    struct Case {
        const char* file;
        bool compressed;
    };
    for (const Case& c :
         {Case{"packed.fz", true}, Case{"unpacked.fit", false}, Case{"imcopy.fit", true}}) {
        // .fz is not a FITS extension for the dispatch: give it one the way a user would.
        std::string path = dir.file(c.file);
        if (fs::path(path).extension().string() == ".fz") {
            fs::copy_file(path, path + ".fits");
            path += ".fits";
        }
        ASSERT_EQ(RunCommand(Cli("info --json " + Q(path)), &out), 0) << c.file << out;
        EXPECT_NE(out.find(stats), std::string::npos) << c.file << " statistics differ\n" << out;
        EXPECT_NE(out.find(c.compressed ? "\"compressed\":true" : "\"compressed\":false"),
                  std::string::npos)
            << c.file;
    }
}
