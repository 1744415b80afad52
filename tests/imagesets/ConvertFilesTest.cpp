// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Convert Files: the recorded stretch replayed on each file before it is written in the
/// new format, the texts of a stretch never applied, the brightness step.
#include <gtest/gtest.h>

#include <filesystem>

#include "TestSupport.h"
#include "engine/Image.h"
#include "imagesets/ConvertFiles.h"
#include "imagesets/FilterFiles.h"
#include "operators/Curves.h"

namespace astrivelle {
namespace {

std::string WriteFrame(const test::ScratchDir& dir, const std::string& name, std::uint32_t type) {
    Image img;
    test::MakeImage(img, 20, 12, type, [](int s, int x, int y) {
        return 300 + 90 * s + ((x * 5 + y * 11) % 13) * 2000;
    });
    const std::string path = dir.file(name);
    EXPECT_TRUE(img.WriteFile(path, KindFITS));
    return path;
}

std::string LevelsText() {
    LevelsParams p;
    for (LevelsSet& s : p.sets) {
        s.black = 1000;
        s.midtone = 9000;
        s.midtoneIntensity = 30000;
        s.whiteGamma = 0.7;
        s.white = 24000;
    }
    return FormatLevels(p);
}

TEST(ConvertFiles, RecordedLevelsEqualTheOperatorAndTheFormatChanges) {
    test::ScratchDir dir;
    const std::string mono = WriteFrame(dir, "mono.fit", ColorGray);
    const std::string color = WriteFrame(dir, "color.fit", ColorRGB);
    ConvertFilesRequest req;
    req.files = {mono, color};
    req.outputDirectory = dir.file("out");
    req.outputType = ".TIF";
    req.stretch = "Levels";
    req.parameters = LevelsText();
    test::RecordingProgress progress;
    const FileOpResult run = ConvertFiles(req, &progress, nullptr);
    ASSERT_TRUE(run.Ok()) << run.status;
    EXPECT_EQ(progress.statuses.front(), "Converting Files");
    ASSERT_EQ(run.outputs.size(), 2u);
    EXPECT_EQ(run.outputs[0], dir.file("out/CV_mono.tif"));
    EXPECT_EQ(run.outputs[1], dir.file("out/CV_color.tif"));
    for (std::size_t i = 0; i < 2; ++i) {
        Image direct, out;
        ASSERT_TRUE(direct.ReadFile(req.files[i], ".fit"));
        CProcessStructure record;
        record.operation = "Levels";
        record.parameters = req.parameters;
        std::string why;
        ASSERT_TRUE(ApplyRecords(direct, {record}, &why)) << why;
        ASSERT_TRUE(out.ReadFile(run.outputs[i], ".tif"));
        EXPECT_EQ(out.fileType, KindTIFF);
        ASSERT_EQ(out.colorType, direct.colorType);
        bool changed = false;
        Image input;
        ASSERT_TRUE(input.ReadFile(req.files[i], ".fit"));
        for (int s : direct.Slots())
            for (std::uint32_t k = 0; k < direct.pixelCount; ++k) {
                // A 16-bit TIFF holds the rounded level.
                ASSERT_NEAR(out.curPlane[s][k], direct.curPlane[s][k], 0.5f) << s << " " << k;
                changed |= out.curPlane[s][k] != input.curPlane[s][k];
            }
        EXPECT_TRUE(changed) << "the stretch must have been applied";
    }
}

TEST(ConvertFiles, StretchNeverAppliedAndStretchesWithoutReplay) {
    struct Case {
        const char* stretch;
        const char* parameters;
        const char* text; ///< what stops the run, empty when it runs
    };
    for (const Case& c : {
             Case{"Levels", "",
                  "Please apply Levels to an image to set its parameters before "
                  "conversion."},
             Case{"BCS", "",
                  "Please apply BCS to an image to set its parameters before "
                  "conversion."},
             Case{"Digital Development", "",
                  "Please apply DDP to an image to set its parameters before conversion."},
             Case{"DDP", "",
                  "Please apply DDP to an image to set its parameters before "
                  "conversion."},
             Case{"Auto Min/Max", "",
                  "Please apply Auto Min/Max to an image to set its "
                  "parameters before conversion."},
             Case{"BCS", "x#",
                  "Convert Files: the stretch \"BCS\" has no recorded form that "
                  "can be replayed."},
             Case{"", "", ""},
         }) {
        SCOPED_TRACE(c.stretch);
        ConvertFilesRequest req;
        req.stretch = c.stretch;
        req.parameters = c.parameters;
        EXPECT_EQ(ConvertStretchText(req), c.text);
    }
    test::ScratchDir dir;
    ConvertFilesRequest req;
    req.files = {WriteFrame(dir, "a.fit", ColorGray)};
    req.outputDirectory = dir.file("out");
    req.stretch = "Levels";
    test::RecordingNotify notify;
    const FileOpResult run = ConvertFiles(req, nullptr, &notify);
    EXPECT_FALSE(run.Ok());
    EXPECT_EQ(run.status,
              "Please apply Levels to an image to set its parameters before conversion.");
    EXPECT_TRUE(run.outputs.empty());
    EXPECT_FALSE(std::filesystem::exists(dir.file("out/CV_a.tif")));
}

TEST(ConvertFiles, OutputTypesAndBrightnessStep) {
    struct Case {
        const char* type;
        const char* keyword;
    };
    for (const Case& c :
         {Case{".TIF", "TIFF16"}, Case{".jpg", "JPEG"}, Case{".BMP", "BMP"},
          Case{".FIT", "UNCOMPFIT"}, Case{"TIFF8", "TIFF8"}, Case{"COMPFIT32", "COMPFIT32"},
          Case{".png", "PNG"}, Case{"SAMEASINPUT", ""}, Case{".GIF", ""}})
        EXPECT_EQ(ConvertSaveType(c.type), c.keyword) << c.type;

    test::ScratchDir dir;
    ConvertFilesRequest req;
    req.files = {WriteFrame(dir, "a.fit", ColorGray)};
    req.outputDirectory = dir.file("out");
    req.outputType = "UNCOMPFIT32";
    req.brightnessStep = 64000; // pushes most levels past the top
    const FileOpResult run = ConvertFiles(req, nullptr, nullptr);
    ASSERT_TRUE(run.Ok()) << run.status;
    Image in, out;
    ASSERT_TRUE(in.ReadFile(req.files[0], ".fit"));
    ASSERT_TRUE(out.ReadFile(run.outputs[0], ".fit"));
    for (std::uint32_t k = 0; k < in.pixelCount; ++k)
        ASSERT_EQ(out.curPlane[0][k], std::min(in.curPlane[0][k] + 64000.0f, 65535.0f)) << k;
}

} // namespace
} // namespace astrivelle
