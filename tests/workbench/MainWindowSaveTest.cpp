// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Saving open images: round trips through the file, Save As with its checks, Save All,
/// and the texts of every failure.
#include <gtest/gtest.h>

#include "MainWindowTestSupport.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

/// Reads `path` back and compares every sample of every slot with `window`'s current planes.
void ExpectSameOnDisk(const CProcessWindow& window, const std::string& path) {
    Image back;
    ASSERT_TRUE(back.ReadFile(path, std::filesystem::path(path).extension().string())) << path;
    ASSERT_EQ(back.width, window.image.width);
    ASSERT_EQ(back.height, window.image.height);
    ASSERT_EQ(back.colorType, window.image.colorType);
    for (int s : window.image.Slots())
        for (std::uint32_t i = 0; i < window.image.pixelCount; ++i)
            ASSERT_FLOAT_EQ(back.curPlane[s][i], window.image.curPlane[s][i]) << s << " " << i;
}

/// No temporary file of a write is left in the folder.
void ExpectNoPartFiles(const std::filesystem::path& folder) {
    for (const auto& e : std::filesystem::directory_iterator(folder))
        EXPECT_NE(e.path().extension(), ".part") << "left behind: " << e.path();
}

} // namespace

TEST(SaveImage, RoundTripThroughItsOwnPathAndFormat) {
    MainBench b;
    CProcessWindow* w = b.main.OpenImageFile(b.Fits("M31.fit", 5, 4, ColorRGB));
    ASSERT_NE(w, nullptr);
    ASSERT_TRUE(w->PixelMathAdd(false, 250, 0, 65535, 0));
    ASSERT_TRUE(b.main.SaveImage());
    EXPECT_TRUE(b.notify.messages.empty()) << b.LastMessage();
    ExpectSameOnDisk(*w, b.dir.file("M31.fit"));
    ExpectNoPartFiles(b.dir.path());
    EXPECT_FALSE(w->fileOpBusy);
    // A new image saves under its made-up name.
    CProcessWindow* n = b.main.NewImage(3, 3, false, 777.0f);
    ASSERT_NE(n, nullptr);
    ASSERT_TRUE(b.main.SaveImage(n));
    ExpectSameOnDisk(*n, b.dir.file("NI_1.fit"));
}

TEST(SaveImage, FailuresWithTheirTexts) {
    struct Case {
        const char* what;
        std::function<void(MainBench&, CProcessWindow&)> setup;
        std::string text; // "%s" stands for the file name
    };
    const std::vector<Case> cases = {
        {"unknown kind", [](MainBench&, CProcessWindow& w) { w.image.fileType = 0; },
         "File Type Is Not Defined, \nPossible Corrupt Object Or File."},
        {"kind 7", [](MainBench&, CProcessWindow& w) { w.image.fileType = 7; },
         "File Type Is Not Defined, \nPossible Corrupt Object Or File."},
        {"no writer", [](MainBench&, CProcessWindow& w) { w.image.fileType = kKindWithoutWriter; },
         "Please use Image Set Operations | Convert Files to save as TIFF, FITS, JPEG, or BMP."},
        {"SBIG without its header",
         [](MainBench&, CProcessWindow& w) { w.image.fileType = KindSBIG; },
         "Error writing SBIG image to disk."},
        {"folder under a file",
         [](MainBench& b, CProcessWindow& w) { w.filePath = b.Touch("plain") + "/M31.fit"; },
         "Could Not Open M31.fit For Write."},
        {"missing folder",
         [](MainBench& b, CProcessWindow& w) { w.filePath = b.dir.file("none/M31.fit"); },
         "Could Not Open M31.fit For Write."},
        {"busy", [](MainBench&, CProcessWindow& w) { w.threadBusy = true; },
         "Operation In Progress."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        MainBench b;
        const std::string path = b.Fits("M31.fit");
        const auto before = std::filesystem::last_write_time(path);
        CProcessWindow* w = b.main.OpenImageFile(path);
        ASSERT_NE(w, nullptr);
        c.setup(b, *w);
        EXPECT_FALSE(b.main.SaveImage());
        EXPECT_EQ(b.LastMessage(), c.text);
        EXPECT_EQ(std::filesystem::last_write_time(path), before) << "the file is untouched";
        ExpectNoPartFiles(b.dir.path());
    }
    MainBench none;
    EXPECT_FALSE(none.main.SaveImage());
    EXPECT_EQ(none.LastMessage(), "Please Open An Image First.");
}

TEST(SaveImageAs, RoundTripsIntoEachFormatAndTheWindowTakesThePath) {
    struct Case {
        const char* name;
        std::int32_t kind;
        std::uint32_t colorType;
    };
    const Case cases[] = {
        {"out.tif", KindTIFF, ColorRGB}, {"out.TIFF", KindTIFF, ColorGray},
        {"out.fts", KindFITS, ColorRGB}, {"out.fits", KindFITS, ColorGray},
        {"out.bmp", KindBMP, ColorRGB},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        MainBench b;
        // Samples that survive 8 bits: multiples of 257.
        Image img;
        MakeImage(img, 4, 3, c.colorType,
                  [](int s, int x, int y) { return 257.0 * (s + x + 4 * y); });
        img.fitsCompress = false;
        ASSERT_TRUE(img.WriteFile(b.dir.file("src.fit"), KindFITS));
        CProcessWindow* w = b.main.OpenImageFile(b.dir.file("src.fit"));
        ASSERT_NE(w, nullptr);
        const std::string target = b.dir.file("saved/" + std::string(c.name));
        std::filesystem::create_directories(b.dir.file("saved"));
        ASSERT_TRUE(b.main.SaveImageAs(target, c.kind)) << b.LastMessage();
        EXPECT_EQ(w->filePath, target);
        EXPECT_EQ(w->title, c.name);
        EXPECT_EQ(w->image.fileType, c.kind);
        EXPECT_EQ(b.main.lastFolder, b.dir.file("saved"));
        ExpectSameOnDisk(*w, target);
        ExpectNoPartFiles(b.dir.file("saved"));
        // Then Save writes to the new path in the new format.
        ASSERT_TRUE(w->PixelMathAdd(false, 257, 0, 65535, 0));
        ASSERT_TRUE(b.main.SaveImage());
        ExpectSameOnDisk(*w, target);
    }
}

TEST(SaveImageAs, ChecksTheNameAndAsksBeforeReplacing) {
    MainBench b;
    CProcessWindow* w = b.Open("M31.fit");
    ASSERT_NE(w, nullptr);
    struct Case {
        std::string path;
        std::int32_t kind;
        std::string text;
    };
    const Case cases[] = {
        {b.dir.file("noext"), KindFITS, "Invalid filename."},
        {b.dir.file("point."), KindFITS, "Invalid filename."},
        {b.dir.file("out.fit"), KindTIFF, "Invalid image extension."},
        {b.dir.file("out.tif"), KindFITS, "Invalid image extension."},
        {b.dir.file("out.jpg"), KindBMP, "Invalid image extension."},
        {b.dir.file("out.fit"), 0, "File Type Is Not Defined, \nPossible Corrupt Object Or File."},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(b.main.SaveImageAs(c.path, c.kind)) << c.path;
        EXPECT_EQ(b.LastMessage(), c.text);
        EXPECT_FALSE(Exists(c.path));
    }
    EXPECT_EQ(w->filePath, b.dir.file("M31.fit"));
    EXPECT_EQ(w->image.fileType, KindFITS) << "a refused save changes nothing";

    // Replacing: a No keeps the old file, a Yes replaces it.
    const std::string other = b.Fits("other.fit", 2, 2, ColorGray, 5);
    b.notify.answer = Answer::No;
    EXPECT_FALSE(b.main.SaveImageAs(other, KindFITS));
    ASSERT_EQ(b.notify.questions.size(), 1u);
    EXPECT_EQ(b.notify.questions[0], other + " \nAlready Exists. Do You Want To Replace It?");
    Image kept;
    ASSERT_TRUE(kept.ReadFile(other, ".fit"));
    EXPECT_EQ(kept.width, 2);
    b.notify.answer = Answer::Yes;
    EXPECT_TRUE(b.main.SaveImageAs(other, KindFITS));
    ExpectSameOnDisk(*w, other);
}

TEST(SaveImageAs, AFailedWritePutsTheFormatBack) {
    MainBench b;
    CProcessWindow* w = b.Open("M31.fit");
    ASSERT_NE(w, nullptr);
    const std::uint32_t dataType = w->image.dataType;
    EXPECT_FALSE(b.main.SaveImageAs(b.dir.file("absent/out.tif"), KindTIFF));
    EXPECT_EQ(b.LastMessage(), "Could Not Open out.tif For Write.");
    EXPECT_EQ(w->image.fileType, KindFITS);
    EXPECT_EQ(w->image.dataType, dataType);
    EXPECT_EQ(w->filePath, b.dir.file("M31.fit"));
    // An SBIG target without an SBIG header fails with the SBIG text.
    EXPECT_FALSE(b.main.SaveImageAs(b.dir.file("out.st7"), KindSBIG));
    EXPECT_EQ(b.LastMessage(), "Error writing SBIG image to disk.");
    EXPECT_FALSE(Exists(b.dir.file("out.st7")));
    EXPECT_EQ(w->image.fileType, KindFITS);
    ExpectNoPartFiles(b.dir.path());
}

TEST(SaveImageAs, AFileSavedOverATempFileIsNoLongerTemporary) {
    MainBench b;
    CProcessWindow* w = b.Open("M31.fit");
    const std::string step = b.Fits("M31$1.fit");
    b.main.AddTempFile(*w, step);
    b.notify.answer = Answer::Yes;
    ASSERT_TRUE(b.main.SaveImageAs(step, KindFITS));
    EXPECT_TRUE(w->tempFiles.empty());
    EXPECT_TRUE(b.main.tempFiles.empty());
    ASSERT_TRUE(b.main.CloseImage(w));
    EXPECT_TRUE(Exists(step));
}

TEST(SaveAll, AsksOnceSavesEveryImageAndRefusesTheBusyOnes) {
    MainBench b;
    CProcessWindow* a = b.Open("A.fit");
    CProcessWindow* c = b.Open("C.fit");
    CProcessWindow* d = b.Open("D.fit");
    for (CProcessWindow* w : {a, c, d})
        ASSERT_TRUE(w->PixelMathAdd(false, 10, 0, 65535, 0));

    b.notify.answer = Answer::No;
    EXPECT_FALSE(b.main.SaveAll());
    EXPECT_EQ(b.notify.questions, std::vector<std::string>{"Save and Replace All?"});
    Image untouched;
    ASSERT_TRUE(untouched.ReadFile(b.dir.file("A.fit"), ".fit"));
    EXPECT_FLOAT_EQ(untouched.curPlane[0][0], 1000) << "No saves nothing";

    b.notify.answer = Answer::Yes;
    c->threadBusy = true;
    EXPECT_FALSE(b.main.SaveAll());
    EXPECT_EQ(b.notify.messages, std::vector<std::string>{"Operation In Progress."});
    ExpectSameOnDisk(*a, b.dir.file("A.fit"));
    ExpectSameOnDisk(*d, b.dir.file("D.fit"));
    Image busy;
    ASSERT_TRUE(busy.ReadFile(b.dir.file("C.fit"), ".fit"));
    EXPECT_FLOAT_EQ(busy.curPlane[0][0], 1000) << "the busy image is not written";

    c->threadBusy = false;
    b.notify.messages.clear();
    EXPECT_TRUE(b.main.SaveAll());
    EXPECT_TRUE(b.notify.messages.empty());
    ExpectSameOnDisk(*c, b.dir.file("C.fit"));
    ExpectNoPartFiles(b.dir.path());
}
