// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Grade Files: the edge energy by hand, sharpness scores, grades and copied names,
/// the star-shape selections and their fixed texts, the report, and the order of frames
/// blurred by known amounts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "TestSupport.h"
#include "engine/Image.h"
#include "imagesets/GradeFiles.h"
#include "operators/Filters.h"

using namespace astrivelle;
using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

constexpr double kKx[9] = {-0.25, 0, 0.25, -1, 0, 1, -0.25, 0, 0.25};
constexpr double kKy[9] = {0.25, 1, 0.25, 0, 0, 0, -0.25, -1, -0.25};

/// A frame of `w` x `h` with Gaussian stars (x, y, sx, sy) of peak 20000 on a sky of 500.
struct Star {
    double x, y, sx, sy;
};
std::string StarFrame(const ScratchDir& dir, const std::string& name, int w, int h,
                      const std::vector<Star>& stars) {
    Image img;
    MakeImage(img, w, h, ColorGray, [&](int, int x, int y) {
        double v = 500.0;
        for (const Star& s : stars) {
            const double dx = x - s.x, dy = y - s.y;
            v += 20000.0 * std::exp(-0.5 * (dx * dx / (s.sx * s.sx) + dy * dy / (s.sy * s.sy)));
        }
        return v;
    });
    const std::string path = dir.file(name);
    EXPECT_TRUE(img.WriteFile(path, KindFITS));
    return path;
}

std::vector<std::string> Listing(const std::string& folder) {
    std::vector<std::string> names;
    if (fs::exists(folder))
        for (const auto& e : fs::directory_iterator(folder))
            names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

GradeRequest ShapeRequest(const std::vector<std::string>& files, const std::string& out,
                          const std::string& mode, double limit) {
    GradeRequest r;
    r.method = GradeMethod::StarShape;
    r.files = files;
    r.outputDirectory = out;
    r.mode = mode;
    r.limit = limit;
    return r;
}

} // namespace

TEST(EdgeEnergy, OnePointByHand) {
    // A single 4 on a 3 x 3 plane of zeros: every pixel sees it through one kernel place, so
    // the sum of Gx^2 + Gy^2 is 16 times the sum of the squared kernel entries (4.5): 72, over
    // 9 pixels. Above a threshold of 1 only the centre counts, where both kernels are 0.
    Image img;
    MakeImage(img, 3, 3, ColorGray, [](int, int x, int y) { return x == 1 && y == 1 ? 4.0 : 0.0; });
    double e = -1;
    ASSERT_TRUE(img.EdgeEnergy(img.curPlane[0], &e, 0.0, 1, 1, 1, kKx, kKy, true));
    EXPECT_DOUBLE_EQ(e, 8.0);
    ASSERT_TRUE(img.EdgeEnergy(img.curPlane[0], &e, 1.0, 1, 1, 1, kKx, kKy, true));
    EXPECT_DOUBLE_EQ(e, 0.0);
    // The window form: radius 0 is the centre alone, radius 1 the whole plane.
    ASSERT_TRUE(img.EdgeEnergy(img.curPlane[0], &e, 0.0, 1, 1, 0, kKx, kKy, false));
    EXPECT_DOUBLE_EQ(e, 0.0);
    ASSERT_TRUE(img.EdgeEnergy(img.curPlane[0], &e, 0.0, 1, 1, 1, kKx, kKy, false));
    EXPECT_DOUBLE_EQ(e, 8.0);
    // A border pixel leaves out what it lacks. On the ramp 10 x of 3 x 3, per pixel (Gx, Gy),
    // rows from the top: (12.5, -2.5) (25, -15) (-12.5, -22.5) / (15, 0) (30, 0) (-15, 0) /
    // (12.5, 2.5) (25, 15) (-12.5, 22.5); the squares add up to 4700, over 9 pixels.
    Image ramp;
    MakeImage(ramp, 3, 3, ColorGray, [](int, int x, int) { return 10.0 * x; });
    ASSERT_TRUE(ramp.EdgeEnergy(ramp.curPlane[0], &e, 0.0, 0, 0, 0, kKx, kKy, true));
    EXPECT_NEAR(e, 4700.0 / 9.0, 1e-9);
    EXPECT_FALSE(img.EdgeEnergy(nullptr, &e, 0.0, 0, 0, 0, kKx, kKy, true));
}

TEST(GradeSharpness, NamesScoresAndGrades) {
    EXPECT_EQ(SharpnessGradeLetter(1.0, {90, 80, 70, 60}), 'A');
    EXPECT_EQ(SharpnessGradeLetter(0.9, {90, 80, 70, 60}), 'A');
    EXPECT_EQ(SharpnessGradeLetter(0.8999, {90, 80, 70, 60}), 'B');
    EXPECT_EQ(SharpnessGradeLetter(0.7, {90, 80, 70, 60}), 'C');
    EXPECT_EQ(SharpnessGradeLetter(0.65, {90, 80, 70, 60}), 'D');
    EXPECT_EQ(SharpnessGradeLetter(0.2, {90, 80, 70, 60}), 'F');
    EXPECT_EQ(SharpnessGradeFileName('A', FocusChannel::Average, 1.0, "m31.fit"),
              "AGA_Average1000_m31.fit");
    EXPECT_EQ(SharpnessGradeFileName('D', FocusChannel::Red, 0.6534, "x.fits"),
              "AGD_Red0653_x.fits");
    EXPECT_EQ(StarShapeGradeFileName(0.4567, 3.25, "a.fit"), "ASG_ECC0-457Size3-250_a.fit");
    EXPECT_EQ(StarShapeGradeFileName(0.0, 12.0, "b.fit"), "ASG_ECC0-000Size12-000_b.fit");
}

TEST(GradeSharpness, OneImageScoresOne) {
    ScratchDir dir;
    const std::string in = StarFrame(dir, "one.fit", 64, 64, {{30, 30, 2, 2}});
    GradeRequest r;
    r.files = {in};
    r.outputDirectory = dir.file("out");
    r.reportPath = dir.file("report.txt");
    RecordingProgress progress;
    const GradeResult result = GradeFiles(r, &progress, nullptr);
    ASSERT_EQ(result.run.outputs.size(), 1u) << result.run.status;
    EXPECT_EQ(result.run.status, "Completed");
    EXPECT_EQ(fs::path(result.run.outputs[0]).filename().string(), "AGA_Average1000_one.fit");
    EXPECT_EQ(Listing(dir.file("out")), std::vector<std::string>{"AGA_Average1000_one.fit"});
    ASSERT_EQ(result.sharpness.size(), 1u);
    EXPECT_DOUBLE_EQ(result.sharpness[0].score, 1.0);
    ASSERT_FALSE(result.summary.empty());
    EXPECT_EQ(result.summary[0],
              "Edge Sharpness : Best 1.000, Avg 1.000, Worst 1.000, StdDev 0.000");
    // The copy is the file itself, byte for byte.
    std::ifstream a(in, std::ios::binary), b(result.run.outputs[0], std::ios::binary);
    std::stringstream sa, sb;
    sa << a.rdbuf();
    sb << b.rdbuf();
    EXPECT_EQ(sa.str(), sb.str());
    EXPECT_NE(
        std::find(progress.statuses.begin(), progress.statuses.end(), "Calculate Focus Grades..."),
        progress.statuses.end());
    EXPECT_NE(std::find(progress.statuses.begin(), progress.statuses.end(),
                        "Saving Sharpness Graded Files..."),
              progress.statuses.end());
    EXPECT_TRUE(fs::exists(dir.file("report.txt")));
}

TEST(GradeSharpness, BlurOrdersTheScoresAndGradesFilterTheCopies) {
    // A textured frame blurred by Gaussians of growing size: sharpness falls at each step.
    ScratchDir dir;
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> u(0, 4000);
    std::vector<float> base(96 * 96);
    for (float& v : base)
        v = static_cast<float>(1000 + u(rng));
    std::vector<std::string> files;
    for (int half : {0, 1, 2, 4}) {
        Image img;
        MakeImage(img, 96, 96, ColorGray, [&](int, int x, int y) { return base[y * 96 + x]; });
        if (half > 0) {
            ASSERT_TRUE(img.Smooth(nullptr, false, img.prevPlane[0], img.curPlane[0],
                                   SmoothGaussian, half, 1.0, 1, 0, 65535, 0));
        }
        files.push_back(dir.file("blur" + std::to_string(half) + ".fit"));
        ASSERT_TRUE(img.WriteFile(files.back(), KindFITS));
    }
    GradeRequest r;
    r.files = files;
    r.outputDirectory = dir.file("out");
    r.useGrades = {true, true, false, false, false}; // A and B only
    const GradeResult result = GradeFiles(r, nullptr, nullptr);
    ASSERT_EQ(result.sharpness.size(), 4u);
    EXPECT_DOUBLE_EQ(result.sharpness[0].score, 1.0);
    for (int i = 1; i < 4; ++i)
        EXPECT_LT(result.sharpness[i].score, result.sharpness[i - 1].score) << i;
    // The summary: best 1, average and worst score, and the deviation (n - 1) of the
    // average-channel scores.
    double avg = 0.0, worst = 1.0, sq = 0.0;
    for (const SharpnessGrade& e : result.sharpness)
        avg += e.score / 4.0, worst = std::min(worst, e.score);
    for (const SharpnessGrade& e : result.sharpness)
        sq += (e.score - avg) * (e.score - avg);
    char summary[120];
    std::snprintf(summary, sizeof summary,
                  "Edge Sharpness : Best 1.000, Avg %4.3f, Worst %4.3f, StdDev %4.3f", avg, worst,
                  std::sqrt(sq / 3.0));
    ASSERT_EQ(result.summary.size(), 1u);
    EXPECT_EQ(result.summary[0], summary);
    // Only the A and B files were copied, under their grade names.
    for (const std::string& name : Listing(dir.file("out")))
        EXPECT_TRUE(name.rfind("AGA_Average", 0) == 0 || name.rfind("AGB_Average", 0) == 0) << name;
    int ab = 0;
    for (const SharpnessGrade& e : result.sharpness)
        ab += e.grade == 'A' || e.grade == 'B';
    EXPECT_EQ(static_cast<int>(Listing(dir.file("out")).size()), ab);
    EXPECT_EQ(Listing(dir.file("out"))[0].rfind("AGA_Average1000_blur0.fit", 0), 0u);
}

TEST(GradeSharpness, FixedTextsBeforeTheRun) {
    ScratchDir dir;
    RecordingNotify notify;
    GradeRequest r;
    r.outputDirectory = dir.file("out");
    EXPECT_EQ(GradeFiles(r, nullptr, &notify).run.status,
              "The grade file operation requires at least one image.\nPlease select at least "
              "one image.");
    r.files = {dir.file("missing.fit")};
    EXPECT_EQ(GradeFiles(r, nullptr, &notify).run.status,
              "The grade file operation requires at least one usable image.\nPlease select at "
              "least one image.");
    r.files = {StarFrame(dir, "a.fit", 40, 40, {})};
    r.intervals = {80, 80, 70, 60};
    EXPECT_EQ(GradeFiles(r, nullptr, &notify).run.status,
              "Grade A must be greater than grade B etc...\n Please check the grade intervals.");
    {
        FileOpBusy other(FileOpKind::Grade);
        r.intervals = {90, 80, 70, 60};
        EXPECT_EQ(GradeFiles(r, nullptr, &notify).run.status, "Grade Files Is Currently Busy.");
    }
    // Cancel before the first file.
    RecordingProgress progress;
    progress.RequestCancel();
    const GradeResult cancelled = GradeFiles(r, &progress, &notify);
    EXPECT_EQ(cancelled.run.status, "Thread Canceled");
    EXPECT_TRUE(cancelled.run.outputs.empty());
}

TEST(GradeStarShape, SelectionsAndTheirTexts) {
    ScratchDir dir;
    // Ten frames, each with three stars, growing rounder from the first to the last.
    std::vector<std::string> files;
    for (int i = 0; i < 10; ++i) {
        const double sx = 2.0 + 0.12 * (9 - i), sy = 2.0;
        files.push_back(
            StarFrame(dir, "f" + std::to_string(i) + ".fit", 120, 80,
                      {{30.3, 40.4, sx, sy}, {60.6, 30.2, sx, sy}, {90.2, 50.7, sx, sy}}));
    }
    // Without stars.
    const std::string empty1 = StarFrame(dir, "e1.fit", 120, 80, {});
    const std::string empty2 = StarFrame(dir, "e2.fit", 120, 80, {});
    RecordingNotify notify;
    GradeResult none =
        GradeFiles(ShapeRequest({empty1, empty2}, dir.file("o0"), "AUTOECC", 0), nullptr, &notify);
    EXPECT_EQ(none.run.status, "No Stars Detected");
    EXPECT_TRUE(Listing(dir.file("o0")).empty());

    // PERCENTECC 5 % of ten: k = 0.
    GradeResult pct =
        GradeFiles(ShapeRequest(files, dir.file("o1"), "PERCENTECC", 5), nullptr, &notify);
    EXPECT_EQ(pct.run.status, "Best percentage index out of range");
    EXPECT_TRUE(Listing(dir.file("o1")).empty());
    ASSERT_EQ(pct.starShapes.size(), 10u);
    for (const StarShapeGrade& e : pct.starShapes)
        EXPECT_EQ(e.stars, 3) << e.name;
    EXPECT_GT(pct.starShapes[0].eccentricity, pct.starShapes[9].eccentricity);

    // MAXECC below every image: the long text and nothing copied.
    GradeResult max =
        GradeFiles(ShapeRequest(files, dir.file("o2"), "MAXECC", -0.5), nullptr, &notify);
    const GradeStats& E = max.eccentricity;
    char expected[300];
    std::snprintf(expected, sizeof expected,
                  "Min eccentricity %4.3f  >  max allowed eccentricity %4.3f  --  Star "
                  "Eccentricity : Min %4.3f, Avg %4.3f, Max %4.3f, StD %4.3f",
                  E.min, -0.5, E.min, E.avg, E.max, E.stdDev);
    EXPECT_EQ(max.run.status, expected);
    EXPECT_NE(max.run.status.find("Min eccentricity"), std::string::npos);
    EXPECT_TRUE(Listing(dir.file("o2")).empty());

    // PERCENTECC 50 %: the five with the smallest E + S.
    GradeResult half =
        GradeFiles(ShapeRequest(files, dir.file("o3"), "PERCENTECC", 50), nullptr, &notify);
    EXPECT_EQ(half.run.status, "Completed");
    EXPECT_EQ(half.detail, "Selected 5 of 10");
    const std::vector<std::string> copied = Listing(dir.file("o3"));
    ASSERT_EQ(copied.size(), 5u);
    for (const std::string& name : copied)
        EXPECT_EQ(name.rfind("ASG_ECC", 0), 0u) << name;
    for (const StarShapeGrade& e : half.starShapes)
        if (e.selected) {
            EXPECT_TRUE(
                fs::exists(fs::path(dir.file("o3")) /
                           StarShapeGradeFileName(e.eccentricity, e.size, e.name + e.extension)));
        }
    ASSERT_EQ(half.summary.size(), 3u);
    EXPECT_EQ(half.summary[0], half.summary[1] + "  -  " + half.summary[2]);
    EXPECT_EQ(half.summary[1].rfind("Star Eccentricity : Min ", 0), 0u);
    EXPECT_EQ(half.summary[2].rfind("Star Size : Min ", 0), 0u);

    // MAXECC at the average: those at or under it.
    GradeResult at =
        GradeFiles(ShapeRequest(files, dir.file("o4"), "MAXECC", E.avg), nullptr, &notify);
    int under = 0;
    for (const StarShapeGrade& e : at.starShapes)
        under += e.eccentricity <= E.avg;
    EXPECT_EQ(static_cast<int>(Listing(dir.file("o4")).size()), under);

    // The report's lines.
    const std::string report = GradeReportText(half);
    EXPECT_NE(report.find("Total Files: 10\n\n"), std::string::npos) << report;
    EXPECT_NE(report.find("       Eccentricity :  Minimum : "), std::string::npos);
    EXPECT_NE(report.find("          Star Size :  Minimum : "), std::string::npos);
    EXPECT_NE(report.find("Eccentricity & Size :  Minimum : "), std::string::npos);
    EXPECT_NE(report.find("File\tAvg Eccentricity\tAvg Star Size\tAvg Ecc and Size\n"),
              std::string::npos);
    EXPECT_NE(GradeReportText(half, true).find("f0.fit  -  "), std::string::npos);
    std::string why;
    ASSERT_TRUE(WriteGradeReport(dir.file("r.txt"), half, &why)) << why;
    std::ifstream in(dir.file("r.txt"));
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_EQ(text.str(), report);
}
