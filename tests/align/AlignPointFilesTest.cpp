// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Align TSR over files: the setup checks and their texts, the radius fitting question,
/// and whole runs on frames with known shifts, turns and scales (outputs, history comment,
/// status, mosaic extent, skipped images, cancel).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "engine/Image.h"
#include "imagesets/AlignPointFiles.h"
#include "tests/align/M13Frames.h"
#include "tests/align/PointScene.h"
#include "tests/support/TestSupport.h"
#include "tools/synth/TruthFile.h"

namespace astrivelle {
namespace {

using test::Map2;
namespace fs = std::filesystem;

constexpr int kW = 320, kH = 240;

/// Star patterns at the places the tests set points on, among single stars.
test::Scene Field(std::uint32_t seed = 3) {
    std::vector<test::SceneStar> marks;
    for (const auto& p :
         {std::pair{160, 120}, std::pair{100, 120}, std::pair{230, 110}, std::pair{70, 60},
          std::pair{250, 62}, std::pair{245, 180}, std::pair{75, 178}})
        for (const test::SceneStar& s : test::Asterism(p.first, p.second, 25000))
            marks.push_back(s);
    test::Scene s = test::MakeScene(60, kW, kH, seed, marks);
    s.background = 200;
    return s;
}

/// Writes one frame per map; the first is the reference.
CImageFileList WriteFrames(const test::ScratchDir& dir, const test::Scene& scene,
                           const std::vector<Map2>& maps) {
    CImageFileList files;
    for (std::size_t i = 0; i < maps.size(); ++i) {
        Image img;
        test::RenderScene(img, kW, kH, scene, maps[i]);
        CImageFileInfo info;
        info.path = dir.file("f" + std::to_string(i) + ".fit");
        EXPECT_TRUE(img.WriteFile(info.path, KindFITS));
        info.isReference = i == 0 ? 1 : 0;
        info.listIndex = static_cast<int>(i);
        files.push_back(info);
    }
    return files;
}

void SetPoints(CImageFileInfo& info, const std::vector<std::pair<double, double>>& points) {
    for (std::size_t k = 0; k < points.size(); ++k)
        info.points[k] = {points[k].first, points[k].second, 1};
}

bool HasComment(const std::string& path, const std::string& text) {
    Image img;
    if (!img.ReadFile(path, ".fit"))
        return false;
    return std::any_of(img.headerCards.begin(), img.headerCards.end(), [&](const CFITSHeader& c) {
        return c.key == "COMMENT" && c.comment.find(text) != std::string::npos;
    });
}

/// The centroid of the star near (x, y) in a file.
void FileCentroid(const std::string& path, double x, double y, double* cx, double* cy) {
    Image img;
    ASSERT_TRUE(img.ReadFile(path, ".fit"));
    test::Centroid(img, x, y, 5, 200, cx, cy);
}

/// The number after "Tran. : " in a status line.
double StatusNumber(const std::string& status, const std::string& label) {
    const std::size_t at = status.find(label);
    return at == std::string::npos ? -1 : std::atof(status.c_str() + at + label.size());
}

// ---- words and setup ------------------------------------------------------------------------

TEST(AlignPointWords, TypesAndTexts) {
    struct Case {
        AlignPointType type;
        const char* keyword;
        const char* tag;
        const char* history;
    };
    for (const Case c : {Case{AlignPointType::Translate, "1PT", "Tn", "QX Alignment : Translate"},
                         Case{AlignPointType::Rotate, "2PT", "Rt", "QX Alignment : Rotate"},
                         Case{AlignPointType::TranslateRotate, "SRPT", "TnRt",
                              "QX Alignment : Translate & Rotate"},
                         Case{AlignPointType::TranslateScaleRotate, "12PT", "TnScRt",
                              "QX Alignment : Translate, Scale, & Rotate"}}) {
        EXPECT_STREQ(AlignPointKeyword(c.type), c.keyword);
        EXPECT_STREQ(AlignPointTag(c.type), c.tag);
        EXPECT_STREQ(AlignPointHistory(c.type), c.history);
        AlignPointType back = AlignPointType::Translate;
        EXPECT_TRUE(AlignPointTypeFromKeyword(c.keyword, &back));
        EXPECT_EQ(back, c.type);
    }
    AlignPointType t;
    EXPECT_FALSE(AlignPointTypeFromKeyword("3PT", &t));
    EXPECT_EQ(AlignPointStatusText(AlignPointType::Translate, true, 3, 6.626, 0, 1),
              "3 Images Correlated, Max - Tran. :  6.63");
    EXPECT_EQ(AlignPointStatusText(AlignPointType::Rotate, false, 2, 0, 1.5, 1),
              "2 Images Aligned, Max - Rot. :  1.50");
    EXPECT_EQ(AlignPointStatusText(AlignPointType::TranslateRotate, true, 1, 12.345, 0.25, 1),
              "1 Images Correlated, Max - Tran. : 12.35, Rot. :  0.25");
    EXPECT_EQ(AlignPointStatusText(AlignPointType::TranslateScaleRotate, false, 4, 1, 2, 0.99),
              "4 Images Aligned, Max - Tran. :  1.00, Rot. :  2.00, Scale :  0.99");
}

TEST(AlignPointSetup, RadiusFitting) {
    struct Case {
        int slot;
        double x, y;
        Answer answer;
        bool ok;
        int radius;
        const char* question;
        const char* text;
    };
    const Case cases[] = {
        {0, 160, 120, Answer::Yes, true, 30, nullptr, nullptr},
        {0, 45, 120, Answer::Yes, true, 20,
         "The selected translation correlation nbhd radius of 30 is too large for the selected "
         "red point (45, 120).\nPress OK to use the smaller nbhd radius 20 or Cancel to reselect "
         "the radius or point.",
         nullptr},
        {1, 160, 300 - 40, Answer::Cancel, false, 0,
         "The selected rotation correlation nbhd radius of 30 is too large for the selected "
         "blue point (160, 260).\nPress OK to use the smaller nbhd radius 10 or Cancel to "
         "reselect the radius or point.",
         ""},
        {0, 5, 120, Answer::Yes, false, 0, nullptr,
         "The selected red translation point (5,120) is too close to the edge of the "
         "image.\nPlease reselect."},
        {2, 160, 280, Answer::Yes, false, 0, nullptr,
         "The selected green scale point (160,280) is too close to the edge of the "
         "image.\nPlease reselect."},
    };
    for (const Case& c : cases) {
        test::RecordingNotify notify;
        notify.answer = c.answer;
        int radius = 0;
        std::string text;
        EXPECT_EQ(FitPointRadius(c.slot, 30, c.x, c.y, 320, 300, &notify, &radius, &text), c.ok);
        if (c.ok) {
            EXPECT_EQ(radius, c.radius);
        }
        if (c.question) {
            ASSERT_EQ(notify.questions.size(), 1u);
            EXPECT_EQ(notify.questions[0], c.question);
        } else {
            EXPECT_TRUE(notify.questions.empty());
        }
        if (c.text) {
            EXPECT_EQ(text, c.text);
        }
    }
    // The box of radius r must leave the point clear of the 2r + 1 band.
    EXPECT_EQ(FitCorrelationRadius(30, 62, 100, 320, 300), 30);
    EXPECT_EQ(FitCorrelationRadius(30, 61, 100, 320, 300), 20);
    EXPECT_EQ(FitCorrelationRadius(30, 320 - 62, 100, 320, 300), 30);
    EXPECT_EQ(FitCorrelationRadius(30, 320 - 61, 100, 320, 300), 20);
    EXPECT_EQ(FitCorrelationRadius(30, 12, 100, 320, 300), 0);
}

TEST(AlignPointSetup, StopsBeforeTheRunWithItsTexts) {
    test::ScratchDir dir;
    const test::Scene scene = Field();
    CImageFileList files = WriteFrames(dir, scene, {Map2(), Map2::Shift(2, 1), Map2()});
    SetPoints(files[0], {{160, 120}});
    Image small;
    test::MakeImage(small, 100, 80, ColorGray, [](int, int, int) { return 10.0; });
    ASSERT_TRUE(small.WriteFile(dir.file("small.fit"), KindFITS));

    struct Case {
        const char* name;
        std::function<void(AlignPointRequest&)> change;
        const char* text;
    };
    const Case cases[] = {
        {"one image", [](AlignPointRequest& r) { r.files.resize(1); }, kAlignPointSizeText},
        {"other size",
         [&](AlignPointRequest& r) {
             r.files.resize(2);
             r.files[1].path = dir.file("small.fit");
         },
         kAlignPointSizeText},
        {"reference excluded", [](AlignPointRequest& r) { r.files[0].excluded = 1; },
         kAlignPointReferenceText},
        {"no reference", [](AlignPointRequest& r) { r.files[0].isReference = 0; },
         kAlignPointReferenceText},
        {"rotation without a common point",
         [](AlignPointRequest& r) {
             r.type = AlignPointType::Rotate;
             r.files[0].points[0] = {};
             r.files[0].points[1] = {200, 100, 1};
         },
         "Please select a common rotation point."},
        {"12PT with two points",
         [](AlignPointRequest& r) {
             r.type = AlignPointType::TranslateScaleRotate;
             r.files[0].points[1] = {200, 100, 1};
         },
         "Invalid Alignment Type"},
        {"point at the edge",
         [](AlignPointRequest& r) {
             r.files[0].points[0] = {8, 120, 1};
         },
         "The selected red translation point (8,120) is too close to the edge of the "
         "image.\nPlease reselect."},
    };
    for (const Case& c : cases) {
        AlignPointRequest request;
        request.files = files;
        request.outputDirectory = dir.file("out");
        c.change(request);
        test::RecordingNotify notify;
        test::RecordingProgress progress;
        const AlignPointResult result = AlignPointFiles(request, &progress, &notify);
        EXPECT_FALSE(result.started) << c.name;
        EXPECT_EQ(result.run.end, FileOpEnd::Stopped) << c.name;
        EXPECT_EQ(result.run.status, c.text) << c.name;
        ASSERT_FALSE(notify.messages.empty()) << c.name;
        EXPECT_EQ(notify.messages.back(), c.text) << c.name;
        EXPECT_FALSE(fs::exists(dir.file("out"))) << c.name;
    }

    // A radius that fits only smaller: asked, and Cancel stops without writing.
    AlignPointRequest request;
    request.files = files;
    request.files[0].points[0] = {50, 120, 1};
    request.outputDirectory = dir.file("out");
    test::RecordingNotify notify;
    notify.answer = Answer::Cancel;
    const AlignPointResult result = AlignPointFiles(request, nullptr, &notify);
    EXPECT_FALSE(result.started);
    ASSERT_EQ(notify.questions.size(), 1u);
    EXPECT_NE(notify.questions[0].find("nbhd radius of 30 is too large for the selected red point "
                                       "(50, 120).\nPress OK to use the smaller nbhd radius 20"),
              std::string::npos);
    EXPECT_FALSE(fs::exists(dir.file("out")));
}

// ---- whole runs -----------------------------------------------------------------------------

TEST(AlignPointFiles, TranslateRecoversTheShift) {
    test::ScratchDir dir;
    const test::Scene scene = Field();
    const std::vector<Map2> maps = {Map2(), Map2::Shift(3.4, -2.7), Map2::Shift(-5.2, 4.1)};
    CImageFileList files = WriteFrames(dir, scene, maps);
    SetPoints(files[0], {{160, 120}});
    AlignPointRequest request;
    request.files = files;
    request.outputDirectory = dir.file("out");
    request.translationRadius = 20;
    request.subPixelStep = 0.1;
    test::RecordingNotify notify;
    test::RecordingProgress progress;
    const AlignPointResult result = AlignPointFiles(request, &progress, &notify);
    ASSERT_TRUE(result.started) << result.run.status;
    EXPECT_EQ(result.run.end, FileOpEnd::Completed) << result.run.status;
    EXPECT_TRUE(notify.questions.empty());
    ASSERT_EQ(result.aligned, 2);
    ASSERT_EQ(result.images.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        double tx = 0, ty = 0;
        maps[i + 1].Apply(160, 120, &tx, &ty);
        EXPECT_NEAR(result.images[i].points[0].x, tx, 0.3) << i;
        EXPECT_NEAR(result.images[i].points[0].y, ty, 0.3) << i;
    }
    // Outputs: the reference first, tag + "_" + name, the history lines.
    ASSERT_EQ(result.run.outputs.size(), 3u);
    EXPECT_EQ(fs::path(result.run.outputs[0]).filename(), "Tn_f0.fit");
    EXPECT_EQ(fs::path(result.run.outputs[1]).filename(), "Tn_f1.fit");
    EXPECT_EQ(fs::path(result.run.outputs[2]).filename(), "Tn_f2.fit");
    EXPECT_TRUE(HasComment(result.run.outputs[0], "QX Alignment : Reference Image"));
    EXPECT_TRUE(HasComment(result.run.outputs[1], "QX Alignment : Translate"));
    EXPECT_FALSE(HasComment(result.run.outputs[1], "Reference Image"));
    // The status: the largest tracked shift.
    EXPECT_EQ(result.run.status.rfind("2 Images Correlated, Max - Tran. : ", 0), 0u)
        << result.run.status;
    EXPECT_NEAR(StatusNumber(result.run.status, "Tran. : "), std::hypot(5.2, 4.1), 0.3);
    EXPECT_EQ(progress.statuses.back(), result.run.status);
    // The moved image: its stars are back on the reference's places.
    for (const auto& star : {std::pair{160.0, 120.0}, std::pair{230.0, 110.0}}) {
        double rx = 0, ry = 0, cx = 0, cy = 0;
        FileCentroid(files[0].path, star.first, star.second, &rx, &ry);
        FileCentroid(result.run.outputs[2], star.first, star.second, &cx, &cy);
        EXPECT_NEAR(cx, rx, 0.3);
        EXPECT_NEAR(cy, ry, 0.3);
    }
    CFileOpList list;
    ASSERT_TRUE(FileOpLists().Find("Align TSR Files", &list));
    EXPECT_EQ(list.files.size(), 3u);
}

/// The largest distance, over the frame's corners, between where the alignment puts a corner
/// (the turn and shift that take the found points onto the reference points) and where the
/// truth puts it.
double CornerError(const Map2& skyToFrame, double r1x, double r1y, double r2x, double r2y,
                   double c1x, double c1y, double c2x, double c2y, int w = kW, int h = kH) {
    const double angle = std::atan2(r2y - r1y, r2x - r1x) - std::atan2(c2y - c1y, c2x - c1x);
    const double c = std::cos(angle), s = std::sin(angle);
    const Map2 truth = skyToFrame.Inverse();
    double worst = 0;
    for (const auto& k : {std::pair{0.0, 0.0}, std::pair{w - 1.0, 0.0}, std::pair{0.0, h - 1.0},
                          std::pair{w - 1.0, h - 1.0}}) {
        const double dx = k.first - c1x, dy = k.second - c1y;
        const double ax = r1x + c * dx - s * dy, ay = r1y + s * dx + c * dy;
        double tx = 0, ty = 0;
        truth.Apply(k.first, k.second, &tx, &ty);
        worst = std::max(worst, std::hypot(ax - tx, ay - ty));
    }
    return worst;
}

TEST(AlignPointFiles, TranslateRotateRecoversTurnAndShift) {
    test::ScratchDir dir;
    const test::Scene scene = Field();
    const std::vector<Map2> maps = {Map2(), Map2::Turn(1.5, 1.0, 160, 120, 2.3, -1.6),
                                    Map2::Turn(-2.2, 1.0, 150, 130, -3.1, 2.4)};
    CImageFileList files = WriteFrames(dir, scene, maps);
    SetPoints(files[0], {{100, 120}, {230, 110}});
    AlignPointRequest request;
    request.files = files;
    request.outputDirectory = dir.file("out");
    request.type = AlignPointType::TranslateRotate;
    request.translationRadius = 20;
    request.rotationRadius = 20;
    test::RecordingNotify notify;
    const AlignPointResult result = AlignPointFiles(request, nullptr, &notify);
    ASSERT_EQ(result.aligned, 2) << result.run.status;
    for (std::size_t i = 0; i < 2; ++i) {
        const auto& p = result.images[i].points;
        const double error =
            CornerError(maps[i + 1], 100, 120, 230, 110, p[0].x, p[0].y, p[1].x, p[1].y);
        EXPECT_LE(error, 0.5) << i;
        EXPECT_NEAR(std::fabs(result.images[i].rotation), i == 0 ? 1.5 : 2.2, 0.15);
    }
    EXPECT_NEAR(result.maxRotation, 2.2, 0.15);
    EXPECT_EQ(fs::path(result.run.outputs[1]).filename(), "TnRt_f1.fit");
    EXPECT_TRUE(HasComment(result.run.outputs[1], "QX Alignment : Translate & Rotate"));
    EXPECT_EQ(result.run.status.rfind("2 Images Correlated, Max - Tran. : ", 0), 0u);
    EXPECT_NEAR(StatusNumber(result.run.status, "Rot. : "), 2.2, 0.15);
    // The resampled frame puts a star far from both points near its reference place (the
    // three-sample rule moves it by up to about a pixel).
    double rx = 0, ry = 0, cx = 0, cy = 0;
    FileCentroid(files[0].path, 245, 180, &rx, &ry);
    FileCentroid(result.run.outputs[1], 245, 180, &cx, &cy);
    EXPECT_NEAR(cx, rx, 1.2);
    EXPECT_NEAR(cy, ry, 1.2);
}

TEST(AlignPointFiles, SyntheticNightTranslateAndRotate) {
    test::ScratchDir dir;
    const std::string night = dir.file("night");
    std::string log;
    ASSERT_EQ(test::RunCommand(std::string(ASTRIVELLE_SYNTH) + " night --quiet --out " + night +
                                   " --frames 3 --size 800x600",
                               &log),
              0)
        << log;
    synth::Truth truth;
    std::string error;
    ASSERT_TRUE(synth::ReadTruth(night + "/truth.json", &truth, &error)) << error;
    // The brightest unsaturated star well inside, and the next such star far from it.
    std::vector<synth::StarTruth> stars;
    for (const synth::StarTruth& s : truth.stars)
        if (!s.saturated && s.x > 100 && s.y > 100 && s.x < truth.width - 100 &&
            s.y < truth.height - 100)
            stars.push_back(s);
    std::sort(stars.begin(), stars.end(),
              [](const synth::StarTruth& a, const synth::StarTruth& b) { return a.flux > b.flux; });
    ASSERT_GE(stars.size(), 2u);
    const synth::StarTruth red = stars[0];
    const auto blue = std::find_if(stars.begin(), stars.end(), [&](const synth::StarTruth& s) {
        return std::hypot(s.x - red.x, s.y - red.y) > 250;
    });
    ASSERT_NE(blue, stars.end());
    const double r1x = std::round(red.x), r1y = std::round(red.y);
    const double r2x = std::round(blue->x), r2y = std::round(blue->y);

    CImageFileList files;
    for (const synth::FrameTruth& f : truth.frames) {
        CImageFileInfo info;
        info.path = night + "/" + f.file;
        info.isReference = f.index == 0 ? 1 : 0;
        files.push_back(info);
    }
    SetPoints(files[0], {{r1x, r1y}, {r2x, r2y}});
    const auto mapOf = [&](std::size_t frame) {
        Map2 m;
        for (int k = 0; k < 6; ++k)
            m.m[k] = truth.frames[frame].transform.m[k];
        return m;
    };
    for (AlignPointType type : {AlignPointType::Translate, AlignPointType::TranslateRotate}) {
        AlignPointRequest request;
        request.files = files;
        request.outputDirectory = dir.file("out");
        request.type = type;
        const AlignPointResult result = AlignPointFiles(request, nullptr, nullptr);
        ASSERT_EQ(result.aligned, 2) << result.run.status;
        for (std::size_t i = 0; i < 2; ++i) {
            const auto& p = result.images[i].points;
            double tx = 0, ty = 0;
            mapOf(i + 1).Apply(r1x, r1y, &tx, &ty);
            EXPECT_NEAR(p[0].x, tx, 0.3) << AlignPointTag(type) << i;
            EXPECT_NEAR(p[0].y, ty, 0.3) << AlignPointTag(type) << i;
            if (type == AlignPointType::TranslateRotate) {
                EXPECT_LE(CornerError(mapOf(i + 1), r1x, r1y, r2x, r2y, p[0].x, p[0].y, p[1].x,
                                      p[1].y, truth.width, truth.height),
                          0.5)
                    << i;
                EXPECT_NEAR(std::fabs(result.images[i].rotation),
                            std::fabs(truth.frames[i + 1].rotationDeg), 0.1);
            }
        }
    }
}

TEST(AlignPointFiles, ScaleRotateWithFourPoints) {
    test::ScratchDir dir;
    const test::Scene scene = Field();
    const std::vector<Map2> maps = {Map2(), Map2::Turn(1.0, 1.02, 160, 120, 1.7, -2.2)};
    CImageFileList files = WriteFrames(dir, scene, maps);
    SetPoints(files[0], {{70, 60}, {250, 62}, {245, 180}, {75, 178}});
    AlignPointRequest request;
    request.files = files;
    request.outputDirectory = dir.file("out");
    request.type = AlignPointType::TranslateScaleRotate;
    request.translationRadius = 14;
    request.rotationRadius = 14;
    const AlignPointResult result = AlignPointFiles(request, nullptr, nullptr);
    ASSERT_EQ(result.aligned, 1) << result.run.status;
    const auto& p = result.images[0].points;
    const double ref[4][2] = {{70, 60}, {250, 62}, {245, 180}, {75, 178}};
    for (int k = 0; k < 4; ++k) {
        double tx = 0, ty = 0;
        maps[1].Apply(ref[k][0], ref[k][1], &tx, &ty);
        EXPECT_NEAR(p[k].x, tx, 0.3) << k;
        EXPECT_NEAR(p[k].y, ty, 0.3) << k;
    }
    EXPECT_NEAR(result.images[0].scale, 1 / 1.02, 0.003);
    EXPECT_EQ(fs::path(result.run.outputs[1]).filename(), "TnScRt_f1.fit");
    EXPECT_TRUE(HasComment(result.run.outputs[1], "QX Alignment : Translate, Scale, & Rotate"));
    EXPECT_NE(result.run.status.find(", Scale :  0.98"), std::string::npos) << result.run.status;
    double rx = 0, ry = 0, cx = 0, cy = 0;
    FileCentroid(files[0].path, 160, 120, &rx, &ry);
    FileCentroid(result.run.outputs[1], 160, 120, &cx, &cy);
    EXPECT_NEAR(cx, rx, 1.2);
    EXPECT_NEAR(cy, ry, 1.2);
}

TEST(AlignPointFiles, MosaicCoversTheUnionOfTheFrames) {
    test::ScratchDir dir;
    const test::Scene scene = Field();
    const std::vector<Map2> maps = {Map2(), Map2::Shift(20, -15), Map2::Shift(-10, 8)};
    CImageFileList files = WriteFrames(dir, scene, maps);
    SetPoints(files[0], {{160, 120}});
    AlignPointRequest request;
    request.files = files;
    request.outputDirectory = dir.file("out");
    request.translationRadius = 20;
    request.subPixelStep = 1.0; // whole shifts: the extent is exact
    request.mosaic = true;
    const AlignPointResult result = AlignPointFiles(request, nullptr, nullptr);
    ASSERT_EQ(result.aligned, 2) << result.run.status;
    // Frame 1 lands at x -20..299, y 15..254; frame 2 at 10..329, -8..231.
    EXPECT_EQ(result.outputWidth, 350);
    EXPECT_EQ(result.outputHeight, 263);
    EXPECT_EQ(result.mosaicOffsetX, 20);
    EXPECT_EQ(result.mosaicOffsetY, 8);
    Image input;
    ASSERT_TRUE(input.ReadFile(files[0].path, ".fit"));
    const int slot = SlotOfColorType(input.colorType);
    for (const std::string& path : result.run.outputs) {
        Image out;
        ASSERT_TRUE(out.ReadFile(path, ".fit"));
        EXPECT_EQ(out.width, 350) << path;
        EXPECT_EQ(out.height, 263) << path;
        // The bright star is at the reference place plus the offset in every output.
        double rx = 0, ry = 0, cx = 0, cy = 0;
        test::Centroid(input, 160, 120, 5, 200, &rx, &ry);
        test::Centroid(out, 180, 128, 5, 200, &cx, &cy);
        EXPECT_NEAR(cx, rx + 20, 0.05) << path;
        EXPECT_NEAR(cy, ry + 8, 0.05) << path;
    }
    // The reference's content is placed at the offset.
    Image ref;
    ASSERT_TRUE(ref.ReadFile(result.run.outputs[0], ".fit"));
    const int rs = SlotOfColorType(ref.colorType);
    for (int y = 0; y < kH; y += 17)
        for (int x = 0; x < kW; x += 13)
            ASSERT_EQ(ref.curPlane[rs][(y + 8) * 350 + x + 20], input.curPlane[slot][y * kW + x]);
    EXPECT_EQ(ref.curPlane[rs][0], 0.0f);
}

TEST(AlignPointFiles, RotateOnlyTurnsAboutTheCommonPoint) {
    test::ScratchDir dir;
    const test::Scene scene = Field();
    CImageFileList files = WriteFrames(dir, scene, {Map2(), Map2::Turn(2.0, 1.0, 100, 120, 0, 0)});
    SetPoints(files[0], {{100, 120}, {230, 110}});
    AlignPointRequest request;
    request.files = files;
    request.outputDirectory = dir.file("out");
    request.type = AlignPointType::Rotate;
    request.translationRadius = 20;
    request.rotationRadius = 20;
    const AlignPointResult result = AlignPointFiles(request, nullptr, nullptr);
    ASSERT_EQ(result.aligned, 1) << result.run.status;
    EXPECT_EQ(fs::path(result.run.outputs[1]).filename(), "Rt_f1.fit");
    EXPECT_TRUE(HasComment(result.run.outputs[1], "QX Alignment : Rotate"));
    EXPECT_EQ(result.run.status.rfind("1 Images Correlated, Max - Rot. : ", 0), 0u);
    EXPECT_NEAR(StatusNumber(result.run.status, "Rot. : "), 2.0, 0.1);
    for (const auto& star : {std::pair{230.0, 110.0}, std::pair{245.0, 180.0}}) {
        double rx = 0, ry = 0, cx = 0, cy = 0;
        FileCentroid(files[0].path, star.first, star.second, &rx, &ry);
        FileCentroid(result.run.outputs[1], star.first, star.second, &cx, &cy);
        EXPECT_NEAR(cx, rx, 1.2);
        EXPECT_NEAR(cy, ry, 1.2);
    }
}

TEST(AlignPointFiles, MosaicOfTurnedFrames) {
    test::ScratchDir dir;
    const test::Scene scene = Field();
    const std::vector<Map2> maps = {Map2(), Map2::Turn(3.0, 1.0, 160, 120, 12, -9)};
    CImageFileList files = WriteFrames(dir, scene, maps);
    SetPoints(files[0], {{100, 120}, {230, 110}});
    AlignPointRequest request;
    request.files = files;
    request.outputDirectory = dir.file("out");
    request.type = AlignPointType::TranslateRotate;
    request.translationRadius = 20;
    request.rotationRadius = 20;
    request.mosaic = true;
    const AlignPointResult result = AlignPointFiles(request, nullptr, nullptr);
    ASSERT_EQ(result.aligned, 1) << result.run.status;
    // The union of the reference and the frame's corners taken back by the truth.
    const Map2 back = maps[1].Inverse();
    double minX = 0, maxX = kW - 1, minY = 0, maxY = kH - 1;
    for (const auto& k : {std::pair{0.0, 0.0}, std::pair{kW - 1.0, 0.0}, std::pair{0.0, kH - 1.0},
                          std::pair{kW - 1.0, kH - 1.0}}) {
        double x = 0, y = 0;
        back.Apply(k.first, k.second, &x, &y);
        minX = std::min(minX, x);
        maxX = std::max(maxX, x);
        minY = std::min(minY, y);
        maxY = std::max(maxY, y);
    }
    EXPECT_NEAR(result.outputWidth, maxX - minX + 1, 1.5);
    EXPECT_NEAR(result.outputHeight, maxY - minY + 1, 1.5);
    EXPECT_NEAR(result.mosaicOffsetX, -minX, 1.0);
    EXPECT_NEAR(result.mosaicOffsetY, -minY, 1.0);
    for (const std::string& path : result.run.outputs) {
        Image out;
        ASSERT_TRUE(out.ReadFile(path, ".fit"));
        EXPECT_EQ(out.width, result.outputWidth);
        EXPECT_EQ(out.height, result.outputHeight);
    }
    // A star lands on its reference place moved by the offset.
    double rx = 0, ry = 0, cx = 0, cy = 0;
    FileCentroid(files[0].path, 245, 180, &rx, &ry);
    FileCentroid(result.run.outputs[1], 245 + result.mosaicOffsetX, 180 + result.mosaicOffsetY, &cx,
                 &cy);
    EXPECT_NEAR(cx, rx + result.mosaicOffsetX, 1.2);
    EXPECT_NEAR(cy, ry + result.mosaicOffsetY, 1.2);
}

TEST(AlignPointFiles, UncorrelatedImageIsSkippedAndTheRunGoesOn) {
    test::ScratchDir dir;
    const test::Scene scene = Field();
    CImageFileList files =
        WriteFrames(dir, scene, {Map2(), Map2::Shift(4, 3), Map2(), Map2::Shift(-2, 5)});
    Image blank;
    test::MakeImage(blank, kW, kH, ColorGray, [](int, int, int) { return 0.0; });
    ASSERT_TRUE(blank.WriteFile(files[2].path, KindFITS));
    SetPoints(files[0], {{160, 120}});
    AlignPointRequest request;
    request.files = files;
    request.outputDirectory = dir.file("out");
    request.translationRadius = 20;
    test::RecordingNotify notify;
    const AlignPointResult result = AlignPointFiles(request, nullptr, &notify);
    EXPECT_EQ(result.run.end, FileOpEnd::CompletedWithFailures);
    EXPECT_EQ(result.aligned, 2);
    ASSERT_EQ(result.run.failures.size(), 1u);
    EXPECT_EQ(result.run.failures[0].path, files[2].path);
    EXPECT_EQ(result.run.failures[0].text, "Images Not Correlated.");
    EXPECT_NE(std::find(notify.messages.begin(), notify.messages.end(), "Images Not Correlated."),
              notify.messages.end());
    EXPECT_FALSE(fs::exists(dir.file("out/Tn_f2.fit")));
    EXPECT_TRUE(fs::exists(dir.file("out/Tn_f3.fit")));
    EXPECT_EQ(result.run.status.rfind("2 Images Correlated", 0), 0u);

    // Nothing correlates: the run's own words.
    request.files = {files[0], files[2]};
    const AlignPointResult none = AlignPointFiles(request, nullptr, nullptr);
    EXPECT_EQ(none.aligned, 0);
    EXPECT_EQ(none.run.status, "No Images Correlated");
}

TEST(AlignPointFiles, UsersOwnPointsWithoutTracking) {
    test::ScratchDir dir;
    const test::Scene scene = Field();
    CImageFileList files =
        WriteFrames(dir, scene, {Map2(), Map2::Shift(6, -3), Map2::Shift(-1, 2)});
    SetPoints(files[0], {{160, 120}});
    SetPoints(files[1], {{166, 117}});
    AlignPointRequest request;
    request.files = files;
    request.outputDirectory = dir.file("out");
    request.correlate = false;
    test::RecordingNotify notify;
    const AlignPointResult result = AlignPointFiles(request, nullptr, &notify);
    // The third image has no point of its own: skipped with its words.
    EXPECT_EQ(result.aligned, 1);
    ASSERT_EQ(result.run.failures.size(), 1u);
    EXPECT_EQ(result.run.failures[0].text, "Please select a common rotation point.");
    EXPECT_EQ(result.run.status, "1 Images Aligned, Max - Tran. :  6.71");
    double rx = 0, ry = 0, cx = 0, cy = 0;
    FileCentroid(files[0].path, 160, 120, &rx, &ry);
    FileCentroid(result.run.outputs[1], 160, 120, &cx, &cy);
    EXPECT_NEAR(cx, rx, 0.05);
    EXPECT_NEAR(cy, ry, 0.05);

    request.files = {files[0], files[2]};
    const AlignPointResult none = AlignPointFiles(request, nullptr, nullptr);
    EXPECT_EQ(none.run.status, "No Images Aligned");
}

TEST(AlignPointFiles, CancelKeepsTheReferenceAndSaysSo) {
    test::ScratchDir dir;
    const test::Scene scene = Field();
    CImageFileList files = WriteFrames(dir, scene, {Map2(), Map2::Shift(1, 1)});
    SetPoints(files[0], {{160, 120}});
    AlignPointRequest request;
    request.files = files;
    request.outputDirectory = dir.file("out");
    test::RecordingProgress progress;
    progress.RequestCancel();
    const AlignPointResult result = AlignPointFiles(request, &progress, nullptr);
    EXPECT_EQ(result.run.end, FileOpEnd::Cancelled);
    EXPECT_EQ(result.run.status, "Thread Canceled");
    EXPECT_EQ(result.aligned, 0);
    EXPECT_TRUE(fs::exists(dir.file("out/Tn_f0.fit")));
    EXPECT_FALSE(fs::exists(dir.file("out/Tn_f1.fit")));
}

TEST(AlignPointFiles, RealM13FramesFollowedOnTheClusterCore) {
    // The cluster's core, the one structure that stands out on frames this faint, followed
    // through frames that drift about 12 px each.
    const std::vector<std::string> paths = test::M13Frames();
    if (paths.empty())
        GTEST_SKIP() << "the M13 frames are absent";
    test::ScratchDir dir;
    AlignPointRequest request;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        CImageFileInfo info;
        info.path = paths[i];
        info.isReference = i == 0 ? 1 : 0;
        info.listIndex = static_cast<int>(i);
        request.files.push_back(info);
    }
    SetPoints(request.files[0], {{674, 505}});
    request.outputDirectory = dir.file("out");
    const AlignPointResult result = AlignPointFiles(request, nullptr, nullptr);
    ASSERT_EQ(result.aligned, 4) << result.run.status;
    // Each frame within 2 px of its shift (the core is a crowd of faint stars, not one).
    for (std::size_t k = 0; k < 4; ++k) {
        const AlignPoint& p = result.images[k].points[0];
        EXPECT_EQ(result.images[k].input, paths[k + 1]);
        EXPECT_NEAR(p.x - 674, test::kM13Shifts[k][0], 2.0) << "frame " << k + 2;
        EXPECT_NEAR(p.y - 505, test::kM13Shifts[k][1], 2.0) << "frame " << k + 2;
    }
}

} // namespace
} // namespace astrivelle
