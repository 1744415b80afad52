// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Resize Files and Crop Files: the sizes made, the boxes cut, the centroid crop and the
/// fixed texts of their checks and failures.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "TestSupport.h"
#include "engine/Image.h"
#include "imagesets/CropFiles.h"
#include "imagesets/ResizeFiles.h"

namespace astrivelle {
namespace {

template <class Fn>
std::string WriteFits(const test::ScratchDir& dir, const std::string& name, int w, int h,
                      std::uint32_t colorType, Fn fn) {
    Image img;
    test::MakeImage(img, w, h, colorType, fn);
    const std::string path = dir.file(name);
    EXPECT_TRUE(img.WriteFile(path, KindFITS));
    return path;
}

std::string Ramp(const test::ScratchDir& dir, const std::string& name, int w, int h) {
    return WriteFits(dir, name, w, h, ColorGray, [](int, int x, int y) { return x + 100 * y; });
}

void ReadBack(const std::string& path, Image& img) {
    ASSERT_TRUE(img.ReadFile(path, std::filesystem::path(path).extension().string())) << path;
}

TEST(ResizeFiles, CheckTexts) {
    struct Case {
        ResizeMode mode;
        double factor;
        int width, height;
        const char* text;
    };
    for (const Case& c :
         {Case{ResizeMode::Size, 1, 10, 0, "Height must be greater than 0."},
          Case{ResizeMode::Size, 1, 0, 10, "Width must be greater than 0."},
          Case{ResizeMode::Size, 1, 0, 0, "Height must be greater than 0."},
          Case{ResizeMode::Size, 1, 3, 4, ""},
          Case{ResizeMode::Factor, 0, 0, 0, "Please enter a positive real number."},
          Case{ResizeMode::Factor, -2, 0, 0, "Please enter a positive real number."},
          Case{ResizeMode::Factor, 0.5, 0, 0, ""}, Case{ResizeMode::Largest, 0, 0, 0, ""}}) {
        ResizeRequest r;
        r.mode = c.mode;
        r.factor = c.factor;
        r.width = c.width;
        r.height = c.height;
        EXPECT_EQ(ResizeParamsText(r), c.text);
    }
    test::RecordingNotify notify;
    ResizeRequest r;
    r.mode = ResizeMode::Size;
    FileOpResult run = ResizeFiles(r, nullptr, &notify);
    EXPECT_EQ(run.end, FileOpEnd::Stopped);
    EXPECT_EQ(run.status, "Height must be greater than 0.");
    ASSERT_EQ(notify.messages.size(), 1u);
    FileOpBusy held(FileOpKind::Resize);
    EXPECT_EQ(ResizeFiles(ResizeRequest{}, nullptr, nullptr).status,
              "Resize Files Is Currently Busy.");
}

TEST(ResizeFiles, SizesOfEachMode) {
    test::ScratchDir dir;
    const std::string big = Ramp(dir, "big.fit", 40, 30);
    const std::string small = Ramp(dir, "small.fit", 20, 10);
    struct Case {
        ResizeMode mode;
        double factor;
        int width, height;
        int bigW, bigH, smallW, smallH;
    };
    for (const Case& c : {Case{ResizeMode::Factor, 0.5, 0, 0, 20, 15, 10, 5},
                          Case{ResizeMode::Factor, 1.5, 0, 0, 60, 45, 30, 15},
                          Case{ResizeMode::Size, 1, 25, 17, 25, 17, 25, 17},
                          Case{ResizeMode::Largest, 1, 0, 0, 40, 30, 40, 30},
                          Case{ResizeMode::Smallest, 1, 0, 0, 20, 10, 20, 10}}) {
        ResizeRequest r;
        r.files = {big, dir.file("missing.fit"), small};
        r.outputDirectory = dir.file("out");
        r.mode = c.mode;
        r.factor = c.factor;
        r.width = c.width;
        r.height = c.height;
        test::RecordingProgress progress;
        test::RecordingNotify notify;
        const FileOpResult run = ResizeFiles(r, &progress, &notify);
        // The unreadable file is reported and the others go on.
        EXPECT_EQ(run.end, FileOpEnd::CompletedWithFailures);
        ASSERT_EQ(run.failures.size(), 1u);
        EXPECT_EQ(run.failures[0].text, "Error reading missing.fit");
        ASSERT_EQ(run.outputs.size(), 2u);
        EXPECT_EQ(run.outputs[0], dir.file("out/RZ_big.fit"));
        EXPECT_EQ(run.outputs[1], dir.file("out/RZ_small.fit"));
        EXPECT_NE(
            std::find(progress.statuses.begin(), progress.statuses.end(), "Resizing Files..."),
            progress.statuses.end());
        Image a, b;
        ReadBack(run.outputs[0], a);
        ReadBack(run.outputs[1], b);
        EXPECT_EQ(a.width, c.bigW);
        EXPECT_EQ(a.height, c.bigH);
        EXPECT_EQ(b.width, c.smallW);
        EXPECT_EQ(b.height, c.smallH);
        // The inputs keep their sizes.
        Image in;
        ReadBack(small, in);
        EXPECT_EQ(in.width, 20);
    }
}

TEST(ResizeFiles, EqualSizesNeedNoScale) {
    test::ScratchDir dir;
    const std::string a = Ramp(dir, "a.fit", 12, 8);
    const std::string b = Ramp(dir, "b.fit", 12, 8);
    for (ResizeMode mode : {ResizeMode::Largest, ResizeMode::Smallest, ResizeMode::Factor}) {
        ResizeRequest r;
        r.files = {a, b};
        r.outputDirectory = dir.file("out");
        r.mode = mode;
        r.factor = 1.0;
        const FileOpResult run = ResizeFiles(r, nullptr, nullptr);
        EXPECT_EQ(run.status, "No Scale Needed");
        EXPECT_TRUE(run.outputs.empty());
        EXPECT_FALSE(std::filesystem::exists(dir.file("out/RZ_a.fit")));
    }
}

TEST(ResizeFiles, InterpolationChoice) {
    test::ScratchDir dir;
    const std::string a = Ramp(dir, "a.fit", 6, 4);
    ResizeRequest r;
    r.files = {a};
    r.outputDirectory = dir.file("out");
    r.mode = ResizeMode::Factor;
    r.factor = 2.0;
    r.interpolation = 1; // nearest neighbour replicates each pixel
    r.ownerName = kResizeOwnerPipeline;
    r.saveType = "UNCOMPFIT32";
    FileOpResult run = ResizeFiles(r, nullptr, nullptr);
    ASSERT_EQ(run.outputs.size(), 1u);
    Image out;
    ReadBack(run.outputs[0], out);
    ASSERT_EQ(out.width, 12);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 12; ++x)
            ASSERT_EQ(out.curPlane[0][y * 12 + x], static_cast<float>(x / 2 + 100 * (y / 2)));
    // Bilinear puts a value between the neighbours: output (1, 4) samples the source at
    // (0.25, 1.75), pixel centres mapped back.
    r.interpolation = 2;
    run = ResizeFiles(r, nullptr, nullptr);
    ASSERT_EQ(run.outputs.size(), 1u);
    Image lin;
    ReadBack(run.outputs[0], lin);
    EXPECT_FLOAT_EQ(lin.curPlane[0][4 * 12 + 1], 175.25f);
    r.interpolation = 4;
    EXPECT_EQ(ResizeFiles(r, nullptr, nullptr).end, FileOpEnd::Stopped);
}

TEST(CropFiles, CheckTexts) {
    struct Case {
        CropCenter center;
        double x, y;
        int w, h;
        const char* text;
    };
    for (const Case& c :
         {Case{CropCenter::AboutXY, -1, -1, 5, 5, "Please select a center point for the crop."},
          Case{CropCenter::AboutXY, 3, 3, 5, 0, "Height must be greater than 0"},
          Case{CropCenter::AboutXY, 3, 3, 0, 5, "Width must be greater than 0"},
          Case{CropCenter::Centroid, -1, -1, 5, 5, ""},
          Case{CropCenter::AboutXY, 0, 0, 5, 5, ""}}) {
        CropRequest r;
        r.center = c.center;
        r.x = c.x;
        r.y = c.y;
        r.width = c.w;
        r.height = c.h;
        EXPECT_EQ(CropParamsText(r), c.text);
    }
}

TEST(CropFiles, Boxes) {
    struct Case {
        double cx, cy;
        int w, h;
        bool fits;
        int left, top;
    };
    for (const Case& c : {Case{20, 15, 10, 6, true, 15, 12}, Case{20.4, 14.6, 11, 7, true, 15, 12},
                          Case{2, 1, 10, 6, true, 0, 0}, Case{39, 29, 10, 6, true, 30, 24},
                          Case{20, 15, 40, 30, true, 0, 0}, Case{20, 15, 41, 30, false, 0, 0},
                          Case{20, 15, 40, 31, false, 0, 0}}) {
        int left = -1, top = -1;
        EXPECT_EQ(CropBox(c.cx, c.cy, c.w, c.h, 40, 30, &left, &top), c.fits) << c.cx;
        if (c.fits) {
            EXPECT_EQ(left, c.left) << c.cx;
            EXPECT_EQ(top, c.top) << c.cx;
        }
    }
}

TEST(CropFiles, AboutAPointAndTooLarge) {
    test::ScratchDir dir;
    const std::string a = Ramp(dir, "a.fit", 40, 30);
    const std::string tiny = Ramp(dir, "tiny.fit", 8, 8);
    const std::string c = WriteFits(dir, "c.fit", 40, 30, ColorRGB,
                                    [](int s, int x, int y) { return 1000 * s + x + 100 * y; });
    CropRequest r;
    r.files = {a, tiny, dir.file("none.fit"), c};
    r.outputDirectory = dir.file("out");
    r.x = 20;
    r.y = 15;
    r.width = 10;
    r.height = 6;
    test::RecordingNotify notify;
    test::RecordingProgress progress;
    FileOpResult run = CropFiles(r, &progress, &notify);
    EXPECT_EQ(run.end, FileOpEnd::CompletedWithFailures);
    ASSERT_EQ(run.failures.size(), 2u);
    EXPECT_EQ(run.failures[0].text, "Error cropping file w and h too large tiny.fit");
    EXPECT_EQ(run.failures[1].text, "Error reading none.fit");
    EXPECT_EQ(progress.statuses.front(), "Cropping Files...");
    ASSERT_EQ(run.outputs.size(), 2u);
    EXPECT_EQ(run.outputs[0], dir.file("out/CR_a.fit"));
    Image out;
    ReadBack(run.outputs[0], out);
    ASSERT_EQ(out.width, 10);
    ASSERT_EQ(out.height, 6);
    EXPECT_EQ(out.curPlane[0][0], 15.0f + 1200.0f);
    EXPECT_EQ(out.curPlane[0][5 * 10 + 9], 24.0f + 1700.0f);
    Image color;
    ReadBack(run.outputs[1], color);
    ASSERT_EQ(color.colorType, ColorRGB);
    for (int s = 0; s < 3; ++s)
        EXPECT_EQ(color.curPlane[s][0], 1000.0f * s + 15 + 1200) << s;
}

TEST(CropFiles, AboutEachImagesCentroid) {
    test::ScratchDir dir;
    // One bright blob on a dark sky, at a different place in each frame.
    auto blob = [](int bx, int by) {
        return [bx, by](int, int x, int y) {
            const int d2 = (x - bx) * (x - bx) + (y - by) * (y - by);
            return d2 <= 9 ? 20000 - 1000 * d2 : 100 + (x + y) % 3;
        };
    };
    const std::string a = WriteFits(dir, "a.fit", 64, 48, ColorGray, blob(40, 22));
    const std::string b = WriteFits(dir, "b.fit", 64, 48, ColorGray, blob(18, 30));
    const std::string dark =
        WriteFits(dir, "dark.fit", 64, 48, ColorGray, [](int, int, int) { return 0; });
    Image check;
    ReadBack(a, check);
    double cx = 0, cy = 0;
    ASSERT_TRUE(BrightnessCentroid(check, &cx, &cy));
    EXPECT_NEAR(cx, 40.0, 0.05);
    EXPECT_NEAR(cy, 22.0, 0.05);

    CropRequest r;
    r.files = {a, dark, b};
    r.outputDirectory = dir.file("out");
    r.center = CropCenter::Centroid;
    r.width = 11;
    r.height = 9;
    FileOpResult run = CropFiles(r, nullptr, nullptr);
    ASSERT_EQ(run.failures.size(), 1u);
    EXPECT_EQ(run.failures[0].text, "Error cropping file dark.fit");
    ASSERT_EQ(run.outputs.size(), 2u);
    for (const std::string& path : run.outputs) {
        Image out;
        ReadBack(path, out);
        ASSERT_EQ(out.width, 11);
        ASSERT_EQ(out.height, 9);
        // The blob's peak sits in the middle of the box.
        EXPECT_EQ(out.curPlane[0][4 * 11 + 5], 20000.0f) << path;
    }
}

TEST(ResizeFiles, MonoBayerPlanesToTheColourFrameSize) {
    test::ScratchDir dir;
    const std::string a = Ramp(dir, "a.fit", 12, 8);
    const std::string b = Ramp(dir, "b.fit", 12, 8);
    ResizeRequest r;
    r.files = {a, b};
    r.outputDirectory = dir.file("out");
    r.mode = ResizeMode::MonoBayer;
    r.width = 10; // the colour frame of a 12 x 8 mosaic
    r.height = 6;
    test::RecordingProgress progress;
    FileOpResult run = ResizeFiles(r, &progress, nullptr);
    ASSERT_TRUE(run.Ok()) << run.status;
    EXPECT_EQ(run.status, "Resized Mono Bayer to RGB Size");
    EXPECT_NE(std::find(progress.statuses.begin(), progress.statuses.end(),
                        "Resizing Mono Bayer Light Frames..."),
              progress.statuses.end());
    ASSERT_EQ(run.outputs.size(), 2u);
    Image out;
    ReadBack(run.outputs[0], out);
    EXPECT_EQ(out.width, 10);
    EXPECT_EQ(out.height, 6);

    r.width = 12; // already the colour frame's size
    r.height = 8;
    run = ResizeFiles(r, nullptr, nullptr);
    EXPECT_EQ(run.status, "No Scale Needed");
    r.width = 0;
    run = ResizeFiles(r, nullptr, nullptr);
    EXPECT_EQ(run.status, "Width must be greater than 0.");
}

} // namespace
} // namespace astrivelle
