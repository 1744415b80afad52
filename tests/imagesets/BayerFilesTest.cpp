// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Bayer Interpolate/Split Files: prefixes, status texts, the per-file failures and
/// the written outputs.
#include <gtest/gtest.h>

#include <filesystem>

#include "TestSupport.h"
#include "engine/Image.h"
#include "imagesets/BayerFiles.h"

namespace astrivelle {
namespace {

std::string WriteMosaic(const test::ScratchDir& dir, const std::string& name, int w, int h) {
    Image img;
    test::MakeImage(img, w, h, ColorGray, [](int, int x, int y) { return 100 + x + 10 * y; });
    const std::string path = dir.file(name);
    EXPECT_TRUE(img.WriteFile(path, KindFITS));
    return path;
}

TEST(BayerFiles, PrefixesAndStatusTexts) {
    struct Case {
        const char* color;
        const char* user;
        const char* prefix;
        const char* status;
    };
    for (const Case& c :
         {Case{"RGB", "", "BINT_", "Converting Files To RGB Color..."},
          Case{"RED", "", "BAYER_RED_", "Converting Files To Red Data Only..."},
          Case{"GREEN", "  ", "BAYER_GREEN_", "Converting Files To Green Data Only..."},
          Case{"BLUE", "M42", "M42_BLUE_", "Converting Files To Blue Data Only..."},
          Case{"RGB", "M42_", "M42_", "Converting Files To RGB Color..."}}) {
        std::string prefix, message;
        ASSERT_TRUE(BayerFilesPrefix(c.color, c.user, &prefix, &message)) << c.color;
        EXPECT_EQ(prefix, c.prefix);
        EXPECT_EQ(BayerFilesStatus(c.color), c.status);
    }
    std::string prefix, message;
    EXPECT_FALSE(BayerFilesPrefix("RGB", "a:b", &prefix, &message));
    EXPECT_EQ(message.rfind("A prefix can't contain any of the following characters:\n", 0), 0u);
    EXPECT_EQ(BayerFilesStatus("CYAN"), "");
}

TEST(BayerFiles, RunWritesOutputsAndReportsBadFiles) {
    test::ScratchDir dir;
    const std::string good = WriteMosaic(dir, "good.fit", 10, 8);
    const std::string odd = WriteMosaic(dir, "odd.fit", 9, 8);
    test::RecordingNotify notify;
    test::RecordingProgress progress;

    BayerFilesParams p;
    p.files = {good, odd, dir.file("none.fit")};
    p.cfaPattern = "RG,GB";
    p.outputColor = "GREEN";
    p.saveType = "UNCOMPFIT";
    p.outputDirectory = dir.file("out");
    FileOpResult r = RunBayerFiles(p, &progress, &notify);
    EXPECT_EQ(r.end, FileOpEnd::CompletedWithFailures);
    ASSERT_EQ(r.outputs.size(), 1u);
    EXPECT_EQ(r.outputs[0], dir.file("out/BAYER_GREEN_good.fit"));
    ASSERT_EQ(r.failures.size(), 2u);
    EXPECT_EQ(r.failures[0].text, "Error width not divisible by 2 use Images Size with Filter "
                                  "Files to remove the right column odd.fit");
    EXPECT_EQ(r.failures[1].text, "Error Reading none.fit");
    EXPECT_EQ(progress.statuses.front(), "Converting Files To Green Data Only...");
    Image green;
    ASSERT_TRUE(green.ReadFile(r.outputs[0], ".fit"));
    EXPECT_EQ(green.width, 5);
    EXPECT_EQ(green.height, 8);
    // RG,GB: the green of row 0 is at x = 1, of row 1 at x = 0.
    EXPECT_EQ(green.curPlane[green.Slots()[0]][0], 101.0f);
    EXPECT_EQ(green.curPlane[green.Slots()[0]][5], 110.0f);

    // The odd mosaic interpolates; the RGB output is a 16-bit TIFF unless a FITS type is set.
    p.files = {odd};
    p.outputColor = "RGB";
    p.saveType = "SAMEASINPUT";
    r = RunBayerFiles(p, &progress, &notify);
    ASSERT_TRUE(r.Ok()) << (r.failures.empty() ? "" : r.failures[0].text);
    EXPECT_EQ(r.outputs[0], dir.file("out/BINT_odd.tif"));
    Image rgb;
    ASSERT_TRUE(rgb.ReadFile(r.outputs[0], ".tif"));
    EXPECT_EQ(rgb.width, 7);
    EXPECT_EQ(rgb.height, 6);

    // A cancelled run keeps what it wrote and says so.
    progress.RequestCancel();
    r = RunBayerFiles(p, &progress, &notify);
    EXPECT_EQ(r.end, FileOpEnd::Cancelled);
    EXPECT_EQ(r.status, "Thread Canceled");

    // One run at a time.
    progress.ResetCancel();
    {
        FileOpBusy busy(FileOpKind::Bayer);
        r = RunBayerFiles(p, &progress, &notify);
    }
    EXPECT_EQ(r.status, "Bayer Interpolation Is Currently Busy.");
}

} // namespace
} // namespace astrivelle
