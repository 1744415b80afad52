// SPDX-License-Identifier: GPL-3.0-or-later
/// \file astrivelle-cli project render / print and filter --project, end to end on projects
/// written here line by line.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

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

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

/// Blend fields at their defaults and the flat surface, as a v5.0 line ends.
std::string DefaultTail(const char* opacity = "1.000") {
    std::string tail = std::string("0<") + opacity + "<<1<65535<<1<";
    char buffer[64];
    for (int y = -3; y <= 3; y += 2)
        for (int x = -3; x <= 3; x += 2) {
            for (double v : {double(x), double(y), 0.0}) {
                std::snprintf(buffer, sizeof buffer, "%16.15f<", v);
                tail += buffer;
            }
        }
    return tail + ">\n";
}

const char* kAdd = "Operation: Add#Constant: 100.000#Threshold Min: 0#Threshold Max: "
                   "65535#Feather Range: 0#";
const char* kMul = "Operation: Multiply#Constant: 1.500#Threshold Min: 0#Threshold Max: "
                   "65535#Feather Range: 0#";
const char* kDiv = "Operation: Divide#Constant: 4.000#Threshold Min: 0#Threshold Max: "
                   "65535#Feather Range: 0#";

/// A monochrome float FITS "src.fit" (1000 + 10x + y) and a project of three Pixel Math
/// steps on it, whose lines name `namedFolder` (the folder it was saved in).
struct Project {
    ScratchDir dir;
    std::string src, qxj;
    explicit Project(const std::string& namedFolder = {}, const char* mulOpacity = "1.000") {
        src = dir.file("src.fit");
        Image img;
        MakeImage(img, 6, 4, ColorGray, [](int, int x, int y) { return 1000 + 10 * x + y; });
        img.SetGeometryFits(KindFITS, ColorGray, 0, DataFloat, 6, 4);
        EXPECT_TRUE(img.WriteFile(src, KindFITS));
        const std::string f = namedFolder.empty() ? dir.path().string() : namedFolder;
        const std::string o = f + "/src.fit";
        qxj = dir.file("night.qxj");
        std::ofstream(qxj) << "Astrivelle Monochrome Project v5.0<>\n"
                           << o << "<" << o << "<0<1<1<1<Read<<" << DefaultTail() << o << "<" << f
                           << "/src$1.fit<0<1<1<1<Pixel Math<" << kAdd << "<" << DefaultTail() << f
                           << "/src$1.fit<" << f << "/src$2.fit<0<1<1<1<Pixel Math<" << kMul << "<"
                           << DefaultTail(mulOpacity) << f << "/src$2.fit<<0<1<1<1<Pixel Math<"
                           << kDiv << "<" << DefaultTail();
    }
};

void ExpectSamePixels(const std::string& a, const std::string& b) {
    Image x, y;
    ASSERT_TRUE(x.ReadFile(a, ".fit")) << a;
    ASSERT_TRUE(y.ReadFile(b, ".fit")) << b;
    ASSERT_EQ(x.width, y.width);
    ASSERT_EQ(x.height, y.height);
    for (int i = 0; i < x.width * x.height; ++i)
        ASSERT_EQ(x.curPlane[0][i], y.curPlane[0][i]) << i;
}

} // namespace

TEST(CliProject, UsageAndExitCodes) {
    Project p;
    struct Case {
        std::string args;
        int status;
        const char* outputHas;
    };
    const Case cases[] = {
        {"project --help", 0, "render FILE.qxj -o OUTFILE"},
        {"project render --help", 0, "--save-type"},
        {"project print --help", 0, "--final NAME"},
        {"filter --help", 0, "--project F"},
        {"project", 2, "render or print is required"},
        {"project frobnicate x.qxj", 2, "unknown project command"},
        {"project render " + Q(p.qxj), 2, "-o OUTFILE is required"},
        {"project render " + Q(p.qxj) + " -o " + Q(p.dir.file("o.xyz")), 2, "names no image"},
        {"project render " + Q(p.qxj) + " -o o.fit --save-type FOO", 2, "unknown save type"},
        {"project print", 2, "one project file"},
        {"filter --project " + Q(p.qxj) + " --op Negative -o /tmp a.fit", 2, "can't be combined"},
        {"project print " + Q(p.dir.file("absent.qxj")), 1, "Could Not Open absent.qxj"},
        {"filter --project " + Q(p.src) + " -o " + Q(p.dir.file("o")) + " " + Q(p.src), 1,
         "Project Format Error. The Project Did Not Load."},
    };
    for (const Case& c : cases) {
        std::string out;
        EXPECT_EQ(RunCommand(Cli(c.args), &out), c.status) << c.args << "\n" << out;
        EXPECT_NE(out.find(c.outputHas), std::string::npos) << c.args << "\n" << out;
    }
}

TEST(CliProject, RenderEqualsFilterWithTheSameRecords) {
    Project p;
    const std::string rendered = p.dir.file("rendered.fit");
    std::string out;
    ASSERT_EQ(RunCommand(Cli("project render --quiet " + Q(p.qxj) + " -o " + Q(rendered)), &out), 0)
        << out;
    EXPECT_EQ(out, "") << "a project in its own folder loads without a word";

    const std::string byOps = p.dir.file("ops");
    ASSERT_EQ(
        RunCommand(Cli("filter --quiet --op 'Pixel Math' --params '" + std::string(kAdd) +
                       "' --op 'Pixel Math' --params '" + kMul + "' --op 'Pixel Math' --params '" +
                       kDiv + "' -o " + Q(byOps) + " " + Q(p.src)),
                   &out),
        0)
        << out;
    const std::string byProject = p.dir.file("proj");
    ASSERT_EQ(RunCommand(Cli("filter --quiet --project " + Q(p.qxj) + " -o " + Q(byProject) + " " +
                             Q(p.src)),
                         &out),
              0)
        << out;
    ExpectSamePixels(rendered, byOps + "/FF_src.fit");
    ExpectSamePixels(rendered, byProject + "/FF_src.fit");
    Image r;
    ASSERT_TRUE(r.ReadFile(rendered, ".fit"));
    // (1000 + 30 + 2 + 100) * 1.5 / 4 at (3, 2).
    EXPECT_FLOAT_EQ(r.curPlane[0][2 * 6 + 3], 424.5f);

    // The format by extension: a 16-bit TIFF of the same pixels, rounded.
    const std::string tif = p.dir.file("rendered.tif");
    ASSERT_EQ(RunCommand(Cli("project render --quiet " + Q(p.qxj) + " -o " + Q(tif)), &out), 0)
        << out;
    Image t;
    ASSERT_TRUE(t.ReadFile(tif, ".tif")) << out;
    EXPECT_EQ(t.fileType, KindTIFF);
    EXPECT_NEAR(t.curPlane[0][2 * 6 + 3], 424.5f, 0.5f);
}

TEST(CliProject, BlendValuesOfTheProjectAreReplayed) {
    // The Multiply step at opacity 0.5: half way between its input and its result.
    Project p({}, "0.500");
    const std::string rendered = p.dir.file("blended.fit");
    std::string out;
    ASSERT_EQ(RunCommand(Cli("project render --quiet " + Q(p.qxj) + " -o " + Q(rendered)), &out), 0)
        << out;
    const std::string byProject = p.dir.file("proj");
    ASSERT_EQ(RunCommand(Cli("filter --quiet --project " + Q(p.qxj) + " -o " + Q(byProject) + " " +
                             Q(p.src)),
                         &out),
              0)
        << out;
    ExpectSamePixels(rendered, byProject + "/FF_src.fit");
    Image r;
    ASSERT_TRUE(r.ReadFile(rendered, ".fit"));
    // (1132 + (1698 - 1132) * 0.5) / 4 at (3, 2).
    EXPECT_FLOAT_EQ(r.curPlane[0][2 * 6 + 3], 353.75f);
}

TEST(CliProject, MovedProjectRendersFromItsOwnFolder) {
    Project p("/nonexistent/old/place");
    const std::string rendered = p.dir.file("moved.fit");
    std::string out;
    ASSERT_EQ(RunCommand(Cli("project render --quiet " + Q(p.qxj) + " -o " + Q(rendered)), &out), 0)
        << out;
    EXPECT_NE(out.find("The Directory Path Saved In The Project Does Not Match"),
              std::string::npos);
    Image r;
    ASSERT_TRUE(r.ReadFile(rendered, ".fit"));
    EXPECT_FLOAT_EQ(r.curPlane[0][2 * 6 + 3], 424.5f);
}

TEST(CliProject, RenderFailsWithoutItsInitialImageAndOnAFailingStep) {
    Project p;
    fs::remove(p.src);
    std::string out;
    EXPECT_EQ(
        RunCommand(Cli("project render --quiet " + Q(p.qxj) + " -o " + Q(p.dir.file("x.fit"))),
                   &out),
        1);
    EXPECT_NE(out.find("Can't Load Project."), std::string::npos) << out;
    EXPECT_FALSE(fs::exists(p.dir.file("x.fit")));

    Project q;
    std::string text = ReadAll(q.qxj);
    text.replace(text.find("Operation: Multiply"), 19, "Operation: Nothing!");
    std::ofstream(q.qxj) << text;
    EXPECT_EQ(
        RunCommand(Cli("project render --quiet " + Q(q.qxj) + " -o " + Q(q.dir.file("x.fit"))),
                   &out),
        1);
    EXPECT_NE(out.find("Error filtering night.qxj"), std::string::npos) << out;
    EXPECT_NE(out.find("step 2"), std::string::npos) << out;
    EXPECT_FALSE(fs::exists(q.dir.file("x.fit")));
}

TEST(CliProject, FilterProjectKeepsToItsColourModel) {
    Project p;
    Image rgb;
    MakeImage(rgb, 3, 2, ColorRGB, [](int s, int x, int) { return 100 * s + x; });
    const std::string color = p.dir.file("rgb.fit");
    ASSERT_TRUE(rgb.WriteFile(color, KindFITS));
    std::string out;
    EXPECT_EQ(RunCommand(Cli("filter --quiet --project " + Q(p.qxj) + " -o " + Q(p.dir.file("o")) +
                             " " + Q(color) + " " + Q(p.src)),
                         &out),
              1);
    EXPECT_NE(out.find("Error filtering rgb.fit"), std::string::npos) << out;
    EXPECT_NE(out.find("MONOonly"), std::string::npos) << out;
    EXPECT_FALSE(fs::exists(p.dir.file("o/FF_rgb.fit")));
    EXPECT_TRUE(fs::exists(p.dir.file("o/FF_src.fit")));
}

TEST(CliProject, PrintWritesTheExactReport) {
    Project p;
    std::string out;
    const std::string printed = p.dir.file("printed.txt");
    ASSERT_EQ(RunCommand("(" +
                             Cli("project print " + Q(p.qxj) +
                                 " --date '1/2/2024 3:04' --final result.fit --comment 'M 42'") +
                             " > " + Q(printed) + " 2>/dev/null)",
                         &out),
              0)
        << out;
    const std::string d = p.dir.path().string();
    auto step = [&](const std::string& prev, const std::string& cur, const char* params) {
        std::string s = "\n\n     Previous Image File : " + d + prev +
                        "\n      Current Image File : " + (cur.empty() ? cur : d + cur) +
                        "\n\n     Operation : Pixel Math\n     Blend Mode Normal, Opacity "
                        "1.000\n     Use Mask True, Mask Level 65535, Mask File Name \n";
        std::string rest = params;
        for (std::size_t at; (at = rest.find('#')) != std::string::npos; rest.erase(0, at + 1))
            s += "     " + rest.substr(0, at) + "\n";
        return s;
    };
    const std::string expected =
        "     Astrivelle Monochrome Project v5.0\n\n     Final Image Saved As : result.fit\n\n"
        "     User Comment : M 42\n\n     Date: 1/2/2024 3:04\n\n     Previous Image File : " +
        d + "/src.fit\n      Current Image File : " + d +
        "/src.fit\n\n     Operation : Read\n     Blend Mode Normal, Opacity 1.000\n     Use "
        "Mask True, Mask Level 65535, Mask File Name \n" +
        step("/src.fit", "/src$1.fit", kAdd) + step("/src$1.fit", "/src$2.fit", kMul) +
        step("/src$2.fit", "", kDiv);
    EXPECT_EQ(ReadAll(printed), expected);

    ASSERT_EQ(RunCommand("(" + Cli("project print --no-images " + Q(p.qxj)) + " > " + Q(printed) +
                             " 2>/dev/null)",
                         &out),
              0);
    const std::string bare = ReadAll(printed);
    EXPECT_EQ(bare.find("Previous Image File"), std::string::npos);
    // The default final name is the last step's file (here its input: the step has none).
    EXPECT_NE(bare.find("Final Image Saved As : " + d + "/src$2.fit\n"), std::string::npos) << bare;
    EXPECT_NE(bare.find("     Constant: 4.000\n"), std::string::npos);
}
