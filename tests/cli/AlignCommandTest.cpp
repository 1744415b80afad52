// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The `align` command: a generated night aligned by both star methods (outputs, the
/// printed status and list, --json), the reference option, the fixed texts and exit codes.
#include <gtest/gtest.h>

#include <filesystem>

#include "TestSupport.h"

using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

std::string Q(const std::string& s) {
    return "'" + s + "'";
}

int Cli(const std::string& args, std::string* out) {
    return RunCommand(std::string(ASTRIVELLE_CLI) + " align " + args + " --quiet", out);
}

/// Three noiseless 800 x 600 lights (no motion between them beyond the generator's own).
std::vector<std::string> Night(const ScratchDir& dir, const std::string& extra = {}) {
    std::string out;
    const std::string cmd = std::string(ASTRIVELLE_SYNTH) + " night --quiet --noiseless --out " +
                            Q(dir.file("night")) +
                            " --frames 3 --size 800x600 --darks 1 --flats 1 --flat-darks 1 "
                            "--bias 1 " +
                            extra;
    EXPECT_EQ(RunCommand(cmd, &out), 0) << out;
    std::vector<std::string> files;
    for (int i = 1; i <= 3; ++i)
        files.push_back(dir.file("night/lights/light_000" + std::to_string(i) + ".fit"));
    return files;
}

} // namespace

TEST(AlignCommand, QuickAndAutostarWriteEveryFrame) {
    ScratchDir dir;
    const auto files = Night(dir);
    const std::string list = Q(files[0]) + " " + Q(files[1]) + " " + Q(files[2]);
    std::string out;
    ASSERT_EQ(Cli("--method quick -o " + Q(dir.file("q")) + " " + list, &out), 0) << out;
    EXPECT_NE(out.find("3 Correlated, Max - Tran. :"), std::string::npos) << out;
    for (const char* name :
         {"q/ASA_light_0001.fit", "q/ASA_light_0002.fit", "q/ASA_light_0003.fit"}) {
        EXPECT_NE(out.find(dir.file(name)), std::string::npos) << out;
        EXPECT_TRUE(fs::exists(dir.file(name))) << name;
    }
    // The descriptor method, with the second frame as reference: it is written first.
    ASSERT_EQ(Cli("--method autostar --small-stars --json --reference " + Q(files[1]) + " -o " +
                      Q(dir.file("a")) + " " + list,
                  &out),
              0)
        << out;
    EXPECT_EQ(out.rfind("{\"status\":\"3 Aligned Images, Max Translate : (", 0), 0u) << out;
    const auto first = out.find("\"outputs\":[\"" + dir.file("a/ASA_light_0002.fit") + "\"");
    EXPECT_NE(first, std::string::npos) << out;
    EXPECT_NE(out.find("\"ok\":true"), std::string::npos) << out;
}

TEST(AlignCommand, UsageErrorsAndFailures) {
    ScratchDir dir;
    std::string out;
    EXPECT_EQ(Cli("-o " + Q(dir.file("o")) + " a.fit b.fit", &out), 2);
    EXPECT_NE(out.find("--method is required"), std::string::npos) << out;
    EXPECT_EQ(Cli("--method quick --points \"1,2\" -o " + Q(dir.file("o")) + " a.fit b.fit", &out),
              2);
    EXPECT_NE(out.find("--points is for --method tsr"), std::string::npos) << out;
    EXPECT_EQ(Cli("--method sideways -o " + Q(dir.file("o")) + " a.fit", &out), 2);
    EXPECT_EQ(Cli("--method quick a.fit b.fit", &out), 2);
    EXPECT_NE(out.find("-o DIR is required"), std::string::npos) << out;
    EXPECT_EQ(Cli("--method quick --save-type PNG -o " + Q(dir.file("o")) + " a.fit b.fit", &out),
              2);
    // One file: nothing starts.
    EXPECT_EQ(Cli("--method quick -o " + Q(dir.file("o")) + " " + Q(dir.file("a.fit")), &out), 1);
    EXPECT_NE(
        out.find("At least two images are required for align. Check the Exclude From Align box."),
        std::string::npos)
        << out;
    // An unreadable reference ends the job.
    EXPECT_EQ(Cli("--method autostar -o " + Q(dir.file("o")) + " " + Q(dir.file("a.fit")) + " " +
                      Q(dir.file("b.fit")),
                  &out),
              1);
    EXPECT_NE(out.find("Error Reading Reference Image"), std::string::npos) << out;
    EXPECT_FALSE(fs::exists(dir.file("o/ASA_a.fit")));
}
