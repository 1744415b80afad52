// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The open images of the main window: the limit, opening files, new images,
/// duplicates and copied portions with their compact history, and the command clipboard.
#include <gtest/gtest.h>

#include "MainWindowTestSupport.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

const char* const kAddParams = "Operation: Add#Constant: 100.000#Threshold Min: 0#"
                               "Threshold Max: 65535#Feather Range: 0#";

} // namespace

TEST(OpenLimit, SingularAndPluralTextsAndTheTestOrder) {
    struct Case {
        int limit;
        const char* text;
    };
    const Case cases[] = {
        {1, "No More Than 1 Image Can Be Open At A Time.\n Check File | System Options to change "
            "the limit."},
        {2, "No More Than 2 Images Can Be Open At One Time.\n Check File | System Options to "
            "change the limit"},
        {3, "No More Than 3 Images Can Be Open At One Time.\n Check File | System Options to "
            "change the limit"},
    };
    for (const Case& c : cases) {
        MainBench b;
        b.main.maxOpenImages = c.limit;
        for (int i = 0; i < c.limit; ++i)
            ASSERT_NE(b.Open("I" + std::to_string(i) + ".fit"), nullptr);
        b.notify.messages.clear();
        EXPECT_FALSE(b.main.CanOpenAnother());
        EXPECT_EQ(b.LastMessage(), c.text);
        EXPECT_EQ(OpenImageLimitText(c.limit), c.text);
        // Every way to a new window is refused by the limit.
        const std::string more = b.Fits("more.fit");
        b.notify.messages.clear();
        EXPECT_EQ(b.main.OpenImageFile(more), nullptr);
        EXPECT_EQ(b.main.NewImage(4, 4, false, 0), nullptr);
        EXPECT_EQ(b.main.DuplicateImage(), nullptr);
        EXPECT_EQ(b.main.CopyPortion(0, 0, 2, 2), nullptr);
        EXPECT_EQ(b.notify.messages, std::vector<std::string>(4, c.text));
        // The extension is tested before the limit.
        EXPECT_EQ(b.main.OpenImageFile(b.dir.file("noextension")), nullptr);
        EXPECT_EQ(b.LastMessage(), "Invalid filename.");
        EXPECT_EQ(b.main.imageCount(), c.limit);
    }
}

TEST(OpenLimit, TheOptionsLimitAppliesWhenTheModelHasNone) {
    MainBench b;
    b.main.maxOpenImages = 0;
    Options().setup.maxOpenImages = 1;
    ASSERT_NE(b.Open("A.fit"), nullptr);
    EXPECT_FALSE(b.main.CanOpenAnother());
    EXPECT_EQ(b.LastMessage(), OpenImageLimitText(1));
}

TEST(OpenImage, ReadsTheFileAndStartsTheHistoryWithRead) {
    MainBench b;
    const std::string path = b.Fits("M31.fit", 5, 4, ColorRGB);
    CProcessWindow* w = b.main.OpenImageFile(path);
    ASSERT_NE(w, nullptr) << b.LastMessage();
    EXPECT_EQ(b.main.ActiveImage(), w);
    EXPECT_EQ(w->image.width, 5);
    EXPECT_EQ(w->image.height, 4);
    EXPECT_EQ(w->image.colorType, ColorRGB);
    EXPECT_FLOAT_EQ(w->image.curPlane[2][3 * 5 + 4], 1000 + 2000 + 4 + 30);
    EXPECT_EQ(w->filePath, path);
    EXPECT_EQ(w->title, "M31.fit");
    ASSERT_EQ(w->history.size(), 1u);
    EXPECT_EQ(w->history[0].operation, "Read");
    EXPECT_EQ(w->history[0].prevImageFile, path);
    EXPECT_EQ(w->history[0].curImageFile, path);
    EXPECT_EQ(w->history[0].parameters, "");
    EXPECT_EQ(w->currentStep, 0);
    EXPECT_EQ(b.main.lastFolder, b.dir.path().string());
    EXPECT_EQ(Options().setup.fileFilterIndex, 2) << "the FITS filter is remembered";
    // The program's lists reach the window, so that history and projects can add to them.
    EXPECT_EQ(w->mainTempFiles, &b.main.tempFiles);
    EXPECT_EQ(w->mainKeptFiles, &b.main.keptFiles);
    // An operator on it is recorded after the origin.
    ASSERT_TRUE(w->PixelMathAdd(false, 100, 0, 65535, 0));
    EXPECT_EQ(w->history.size(), 2u);
}

TEST(OpenImage, RefusalsWithTheirTexts) {
    MainBench b;
    const std::string garbage = b.dir.file("broken.fit");
    std::ofstream(garbage) << "not a FITS file at all";
    const std::string tif = b.dir.file("broken.tif");
    std::ofstream(tif) << "II*";
    struct Case {
        std::string path;
        std::string text;
    };
    const Case cases[] = {
        {b.dir.file("noextension"), "Invalid filename."},
        {b.dir.file("endsinpoint."), "Invalid filename."},
        {b.dir.file("picture.xyz"), "Could Not Open PICTURE.XYZ"},
        {b.dir.file("frame.raw"), "Could Not Open FRAME.RAW"},
        {garbage, "Could Not Read " + garbage},
        {b.dir.file("absent.fit"), "Could Not Read " + b.dir.file("absent.fit")},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(b.main.OpenImageFile(c.path), nullptr) << c.path;
        EXPECT_EQ(b.LastMessage(), c.text);
    }
    EXPECT_EQ(b.main.OpenImageFile(tif), nullptr);
    EXPECT_FALSE(b.LastMessage().empty());
    EXPECT_EQ(b.main.imageCount(), 0);
    EXPECT_EQ(b.main.ActiveImage(), nullptr);
}

TEST(OpenImage, TheLoopShowsItsCaptionAndStopsWhenEscapeIsConfirmed) {
    MainBench b;
    const std::vector<std::string> paths = {b.Fits("A.fit"), b.Fits("B.fit"), b.Fits("C.fit")};
    int polls = 0;
    b.notify.answer = Answer::No;
    // Escape held after the second file: "No" goes on, then "Yes" ends the loop.
    auto escape = [&] { return ++polls >= 2; };
    int opened = 0;
    {
        b.notify.answer = Answer::Yes;
        opened = b.main.OpenImageFiles(paths, escape);
    }
    EXPECT_EQ(opened, 2);
    EXPECT_EQ(b.notify.questions, std::vector<std::string>{"Cancel Open Image?"});
    ASSERT_FALSE(b.notify.captions.empty());
    EXPECT_NE(std::find(b.notify.captions.begin(), b.notify.captions.end(),
                        "Astrivelle - ### Hold ESC To Cancel Open Image ###"),
              b.notify.captions.end());
    EXPECT_EQ(b.notify.captions.back(), "Astrivelle");
    // Without escape all open, and a bad one in the middle doesn't stop the others.
    MainBench c;
    EXPECT_EQ(c.main.OpenImageFiles({c.Fits("A.fit"), c.dir.file("x.xyz"), c.Fits("B.fit")}), 2);
    EXPECT_EQ(c.notify.messages, std::vector<std::string>{"Could Not Open X.XYZ"});
}

TEST(NewImage, NamedByTheSaveTypeFilledAndRecorded) {
    struct Case {
        const char* saveType;
        bool color;
        const char* name;
        std::int32_t kind;
    };
    const Case cases[] = {
        {"COMPFIT", false, "NI_1.fit", KindFITS},
        {"UNCOMPFIT", true, "NI_1.fit", KindFITS},
        {"COMPFIT32", false, "NI_1.fit", KindFITS},
        {"UNCOMPTIF", true, "NI_1.tif", KindTIFF},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.saveType);
        MainBench b;
        Options().setup.saveType = c.saveType;
        CProcessWindow* w = b.main.NewImage(6, 5, c.color, 1234.0f);
        ASSERT_NE(w, nullptr) << b.LastMessage();
        EXPECT_EQ(w->filePath, b.dir.file(c.name));
        EXPECT_EQ(w->title, c.name);
        EXPECT_EQ(w->image.fileType, c.kind);
        EXPECT_EQ(w->image.colorType, c.color ? ColorRGB : ColorGray);
        EXPECT_EQ(w->image.description, "PROC");
        for (int s : w->image.Slots()) {
            EXPECT_FLOAT_EQ(w->image.curPlane[s][0], 1234.0f);
            EXPECT_FLOAT_EQ(w->image.curPlane[s][29], 1234.0f);
        }
        ASSERT_EQ(w->history.size(), 1u);
        EXPECT_EQ(w->history[0].operation, "New Image");
        EXPECT_EQ(w->history[0].curImageFile, w->filePath);
        EXPECT_EQ(b.main.ActiveImage(), w);
        EXPECT_FALSE(Exists(w->filePath)) << "a new image is not written until saved";
    }
}

TEST(NewImage, TakesTheLowestNumberFreeOnDiskAndAmongOpenImages) {
    MainBench b;
    b.Touch("NI_1.fit");
    CProcessWindow* first = b.main.NewImage(2, 2, false, 0);
    CProcessWindow* second = b.main.NewImage(2, 2, false, 0);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->title, "NI_2.fit");
    EXPECT_EQ(second->title, "NI_3.fit");
    CProcessWindow* named = b.main.NewImage(2, 2, false, 0, "Flat");
    ASSERT_NE(named, nullptr);
    EXPECT_EQ(named->title, "Flat_1.fit");
}

TEST(Duplicate, CopiesPixelsAndFormatAndTellsTheSourceHistoryCompactly) {
    MainBench b;
    CProcessWindow* src = b.Open("M31.fit");
    ASSERT_NE(src, nullptr);
    ASSERT_TRUE(src->PixelMathAdd(false, 100, 0, 65535, 0));
    const std::string path = b.dir.file("M31.fit");

    CProcessWindow* dup = b.main.DuplicateImage();
    ASSERT_NE(dup, nullptr) << b.LastMessage();
    EXPECT_EQ(b.main.ActiveImage(), dup);
    EXPECT_EQ(dup->filePath, b.dir.file("M31_1.fit"));
    EXPECT_EQ(dup->image.fileType, KindFITS);
    EXPECT_EQ(dup->image.dataType, src->image.dataType);
    for (std::uint32_t i = 0; i < 12; ++i)
        ASSERT_FLOAT_EQ(dup->image.curPlane[0][i], src->image.curPlane[0][i]) << i;
    EXPECT_FLOAT_EQ(dup->image.curPlane[0][0], 1100);
    ASSERT_EQ(dup->history.size(), 1u) << "one row, whose details list the source's steps";
    EXPECT_EQ(dup->history[0].operation, "Duplicate Image");
    EXPECT_EQ(dup->history[0].parameters,
              " #Processing Before Duplication:#Previous Image : " + path +
                  "#Current Image : " + path + "#Read#Previous Image : " + path +
                  "#Current Image : #Pixel Math#" + kAddParams);
    // The source is untouched and the next duplicate takes the next number.
    EXPECT_EQ(src->history.size(), 2u);
    CProcessWindow* again = b.main.DuplicateImage("Copy", src);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->title, "Copy_1.fit");
    CProcessWindow* third = b.main.DuplicateImage({}, src);
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(third->title, "M31_2.fit");
    // A duplicate of a duplicate carries the nested text as its one record's parameters.
    CProcessWindow* nested = b.main.DuplicateImage({}, dup);
    ASSERT_NE(nested, nullptr);
    EXPECT_EQ(nested->history[0].parameters, " #Processing Before Duplication:#Previous Image : " +
                                                 path + "#Current Image : " + dup->filePath +
                                                 "#Duplicate Image#" + dup->history[0].parameters);
}

TEST(Duplicate, RefusalsAndTheDefaultFolder) {
    MainBench b;
    EXPECT_EQ(b.main.DuplicateImage(), nullptr);
    EXPECT_EQ(b.LastMessage(), "Please Open An Image First.");
    EXPECT_EQ(b.main.CopyPortion(0, 0, 1, 1), nullptr);
    EXPECT_EQ(b.LastMessage(), "Please Open An Image First.");
    CProcessWindow* src = b.Open("M31.fit");
    src->threadBusy = true;
    EXPECT_EQ(b.main.DuplicateImage(), nullptr);
    EXPECT_EQ(b.LastMessage(), "Operation In Progress");
    EXPECT_EQ(b.main.CopyPortion(0, 0, 1, 1), nullptr);
    EXPECT_EQ(b.LastMessage(), "Operation In Progress");
    src->threadBusy = false;
    // A last folder that can't be written: the default, told with its path.
    b.main.lastFolder = b.Touch("plainfile") + "/sub";
    CProcessWindow* dup = b.main.DuplicateImage();
    ASSERT_NE(dup, nullptr);
    EXPECT_EQ(b.LastMessage(), "Using Default Project Save Path:\n" + b.main.projectFolder);
    EXPECT_EQ(dup->filePath, (std::filesystem::path(b.main.projectFolder) / "M31_1.fit").string());
    EXPECT_FALSE(Exists(b.dir.file("AstrivelleTESTPATH1#2#3.txt")))
        << "the folder test leaves nothing";
}

TEST(CopyPortion, CopiesTheClippedRectangleWithItsOwnHeading) {
    MainBench b;
    CProcessWindow* src = b.main.OpenImageFile(b.Fits("M42.fit", 6, 5, ColorRGB));
    ASSERT_NE(src, nullptr);
    const std::string path = src->filePath;
    struct Case {
        int x, y, w, h;
        int outW, outH, x0, y0;
    };
    const Case cases[] = {
        {1, 2, 3, 2, 3, 2, 1, 2},
        {4, 3, 10, 10, 2, 2, 4, 3}, // clipped at the right and bottom
        {-2, -1, 4, 3, 2, 2, 0, 0}, // clipped at the left and top
        {0, 0, 6, 5, 6, 5, 0, 0},
    };
    for (const Case& c : cases) {
        CProcessWindow* part = b.main.CopyPortion(c.x, c.y, c.w, c.h, {}, src);
        ASSERT_NE(part, nullptr) << b.LastMessage();
        ASSERT_EQ(part->image.width, c.outW);
        ASSERT_EQ(part->image.height, c.outH);
        EXPECT_EQ(part->image.colorType, ColorRGB);
        for (int s = 0; s < 3; ++s)
            for (int y = 0; y < c.outH; ++y)
                for (int x = 0; x < c.outW; ++x) {
                    const float want = 1000 + 1000 * s + (x + c.x0) + 10 * (y + c.y0);
                    ASSERT_FLOAT_EQ(part->image.curPlane[s][y * c.outW + x], want);
                    ASSERT_FLOAT_EQ(part->image.prevPlane[s][y * c.outW + x], want);
                }
        ASSERT_EQ(part->history.size(), 1u);
        EXPECT_EQ(part->history[0].operation, "Copy Portion");
        EXPECT_EQ(part->history[0].parameters,
                  " #Processing Before Copy Portion:#Previous Image : " + path +
                      "#Current Image : " + path + "#Read#");
    }
    EXPECT_EQ(b.main.imageCount(), 5);
    EXPECT_EQ(b.main.images().At(1)->title, "M42_1.fit");
    EXPECT_EQ(b.main.images().At(4)->title, "M42_4.fit");
    EXPECT_EQ(b.main.CopyPortion(6, 0, 2, 2, {}, src), nullptr);
    EXPECT_EQ(b.LastMessage(), "The portion lies outside the image.");
}

TEST(CommandClipboard, SharedByEveryWindowAndPastedWithTheMarks) {
    MainBench b;
    CProcessWindow* a = b.Open("A.fit");
    CProcessWindow* c = b.Open("C.fit");
    ASSERT_TRUE(a && c);
    ASSERT_NE(a->copiedCommands, nullptr);
    EXPECT_EQ(a->copiedCommands, c->copiedCommands);
    ASSERT_TRUE(a->PixelMathAdd(false, 100, 0, 65535, 0));
    CProcessStructure record = a->history[1];
    record.curImageFile = "/somewhere/A$1.fit";
    record.blendMode = 6;
    record.opacity = 0.5;
    b.main.copiedCommands().Clear();
    a->copiedCommands->push_back(record); // what a copy in one window leaves
    ASSERT_EQ(b.main.copiedCommands().Size(), 1u);
    const auto pasted = b.main.copiedCommands().PasteCopies();
    ASSERT_EQ(pasted.size(), 1u);
    EXPECT_EQ(pasted[0].prevImageFile, "REPROCESS COMMAND");
    EXPECT_EQ(pasted[0].curImageFile, "~~");
    EXPECT_EQ(pasted[0].operation, "Pixel Math");
    EXPECT_EQ(pasted[0].parameters, kAddParams);
    EXPECT_EQ(pasted[0].blendMode, 6);
    EXPECT_DOUBLE_EQ(pasted[0].opacity, 0.5);
    EXPECT_EQ(b.main.copiedCommands().Records()[0].curImageFile, "/somewhere/A$1.fit")
        << "the clipboard itself keeps the paths";
    // Start clears it.
    const char* home = getenv("HOME");
    const std::string oldHome = home ? home : "";
    ASSERT_EQ(setenv("HOME", b.dir.path().c_str(), 1), 0);
    EXPECT_TRUE(b.main.Start());
    if (home)
        setenv("HOME", oldHome.c_str(), 1);
    else
        unsetenv("HOME");
    EXPECT_TRUE(b.main.copiedCommands().Empty());
    EXPECT_EQ(b.main.projectFolder, b.dir.file("Astrivelle"));
    EXPECT_TRUE(std::filesystem::is_directory(b.main.projectFolder));
}
