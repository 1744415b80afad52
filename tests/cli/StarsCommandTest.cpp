// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The `stars` and `grade` commands on a generated night: the printed counts, the JSON
/// forms, the copies and the fixed texts with their exit codes.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

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

/// Two light frames of a generated night, 400 x 300.
std::vector<std::string> Night(const ScratchDir& dir) {
    std::string out;
    EXPECT_EQ(RunCommand(std::string(ASTRIVELLE_SYNTH) + " night --out " + Q(dir.file("night")) +
                             " --frames 2 --size 400x300 --darks 0 --flats 0 --flat-darks 0 "
                             "--bias 0 --seed 4 --quiet",
                         &out),
              0)
        << out;
    std::vector<std::string> lights;
    for (const auto& e : fs::directory_iterator(dir.path() / "night" / "lights"))
        lights.push_back(e.path().string());
    std::sort(lights.begin(), lights.end());
    return lights;
}

} // namespace

TEST(StarsCommand, CountsAndJson) {
    ScratchDir dir;
    const std::vector<std::string> lights = Night(dir);
    ASSERT_EQ(lights.size(), 2u);
    std::string out;
    ASSERT_EQ(Cli("stars " + Q(lights[0]), &out), 0) << out;
    std::smatch m;
    ASSERT_TRUE(std::regex_search(out, m, std::regex("candidates (\\d+)\nstars (\\d+)\n"))) << out;
    const int candidates = std::stoi(m[1]), stars = std::stoi(m[2]);
    EXPECT_GT(stars, 3) << out;
    EXPECT_GE(candidates, stars);
    // One line per star after the header, with 21 fields.
    int lines = 0;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);)
        if (!line.empty() && line[0] != '#' && line.rfind("candidates", 0) != 0 &&
            line.rfind("stars", 0) != 0) {
            ++lines;
            // The axis names are quoted ("Left Diagonal"), "-" when round.
            std::istringstream fields(std::regex_replace(line, std::regex("\"[^\"]*\""), "axis"));
            int n = 0;
            for (std::string f; fields >> f;)
                ++n;
            EXPECT_EQ(n, 21) << line;
        }
    EXPECT_EQ(lines, stars);

    ASSERT_EQ(Cli("stars --json --fwhm " + Q(lights[0]), &out), 0) << out;
    EXPECT_NE(out.find("\"count\":" + std::to_string(stars)), std::string::npos) << out;
    EXPECT_NE(out.find("\"hfd\":0,"), std::string::npos) << "--fwhm alone leaves HFD out";
    if (HaveProgram("python3")) {
        std::ofstream(dir.file("stars.json")) << out;
        EXPECT_EQ(RunCommand("python3 -c 'import json,sys; d=json.load(open(sys.argv[1])); "
                             "assert d[\"count\"]==len(d[\"stars\"])>0; "
                             "assert all(s[\"fwhm\"]>0 and s[\"hfd\"]==0 for s in d[\"stars\"]); "
                             "assert d[\"width\"]==400' " +
                             Q(dir.file("stars.json"))),
                  0)
            << "stars --json is valid JSON";
    }
    EXPECT_EQ(Cli("stars " + Q(dir.file("none.fit")), &out), 1);
    EXPECT_NE(out.find("Error reading none.fit"), std::string::npos) << out;
    EXPECT_EQ(Cli("stars", &out), 2);
    EXPECT_EQ(Cli("stars --bogus " + Q(lights[0]), &out), 2);
}

TEST(GradeCommand, SharpnessAndShape) {
    ScratchDir dir;
    const std::vector<std::string> lights = Night(dir);
    ASSERT_EQ(lights.size(), 2u);
    std::string out;
    ASSERT_EQ(
        Cli("grade --by sharpness -o " + Q(dir.file("s")) + " " + Q(lights[0]) + " " + Q(lights[1]),
            &out),
        0)
        << out;
    EXPECT_EQ(out.rfind("Completed\nEdge Sharpness : Best 1.000, Avg ", 0), 0u) << out;
    EXPECT_NE(out.find("/AGA_Average1000_"), std::string::npos) << out;

    ASSERT_EQ(Cli("grade --by shape --mode AUTOECC --json --report " + Q(dir.file("r.txt")) +
                      " -o " + Q(dir.file("g")) + " " + Q(lights[0]) + " " + Q(lights[1]),
                  &out),
              0)
        << out;
    EXPECT_NE(out.find("\"detail\":\"Selected 2 of 2\""), std::string::npos) << out;
    EXPECT_NE(out.find("/ASG_ECC"), std::string::npos) << out;
    EXPECT_TRUE(fs::exists(dir.file("r.txt")));

    // PERCENTECC 5 % of two: the index is 0.
    EXPECT_EQ(Cli("grade --by shape --mode PERCENTECC --limit 5 -o " + Q(dir.file("p")) + " " +
                      Q(lights[0]) + " " + Q(lights[1]),
                  &out),
              1);
    EXPECT_NE(out.find("Best percentage index out of range"), std::string::npos) << out;
    EXPECT_EQ(Cli("grade --by focus -o " + Q(dir.file("x")) + " " + Q(lights[0]), &out), 2);
    EXPECT_EQ(Cli("grade --grades 90,80 -o " + Q(dir.file("x")) + " " + Q(lights[0]), &out), 2);
    EXPECT_EQ(Cli("grade " + Q(lights[0]), &out), 2);
}
