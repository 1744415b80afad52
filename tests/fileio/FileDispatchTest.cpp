// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The extension and file-kind dispatch, the save-type keywords, and the file lock.
#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "FitsTestFiles.h"
#include "TestSupport.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/FileLock.h"
#include "fileio/SaveType.h"

namespace astrivelle {
namespace {

using test::ScratchDir;

std::string SmallFits(const ScratchDir& dir, const std::string& name) {
    const std::string path = dir.file(name);
    const std::uint16_t px[4] = {10, 20, 30, 40};
    EXPECT_EQ(test::WriteMono(path, USHORT_IMG, TUSHORT, 2, 2, px), 0);
    return path;
}

TEST(FileDispatch, ExtensionAloneChoosesTheReader) {
    ScratchDir dir;
    // A valid FITS file under every name: only the FITS extensions read it; every other
    // reader refuses it with a reason of its own.
    const std::string path = SmallFits(dir, "image.dat");
    struct Case {
        const char* extension;
        bool reads;
        const char* reason; ///< exact text, or "" for any non-empty reason
    };
    for (const Case& c :
         {Case{".fit", true, ""}, Case{".FTS", true, ""}, Case{".Fits", true, ""},
          Case{".tif", false, ""}, Case{".TIFF", false, ""}, Case{".jpe", false, ""},
          Case{".JPG", false, ""}, Case{".jpeg", false, ""}, Case{".bmp", false, ""},
          Case{".st7", false, ""}, Case{".237", false, ""}, Case{".Sbig", false, ""},
          Case{".ST2K", false, ""}, Case{".R", false, "Unknown image file extension \".R\""},
          Case{".fz", false, "Unknown image file extension \".fz\""},
          Case{"fit", false, "Unknown image file extension \"fit\""},
          Case{"", false, "The file name has no extension"}}) {
        Image img;
        EXPECT_EQ(img.ReadFile(path, c.extension), c.reads) << c.extension;
        if (c.reads) {
            EXPECT_EQ(LastFileError(), "") << c.extension;
        } else if (*c.reason) {
            EXPECT_EQ(LastFileError(), c.reason) << c.extension;
        }
    }
}

TEST(FileDispatch, ContentsNeverChangeTheChoice) {
    ScratchDir dir;
    const std::string tiff = dir.file("really_tiff.fit");
    {
        std::ofstream out(tiff, std::ios::binary);
        out.write("II*\0\x08\0\0\0", 8);
        out << std::string(4000, '\x01');
    }
    Image img;
    EXPECT_FALSE(img.ReadFile(tiff, ".fit"));
    EXPECT_EQ(LastFileError().rfind("FITS error", 0), 0u) << LastFileError();
}

TEST(FileDispatch, FileKindChoosesTheWriterAndItsExtensionReadsItBack) {
    ScratchDir dir;
    Image img;
    test::MakeImage(img, 5, 3, ColorGray, [](int, int x, int y) { return 257.0 * (10 * x + y); });
    struct Case {
        std::int32_t kind;
        const char* extension;
        const char* reason; ///< "" when the write must succeed
    };
    for (const Case& c :
         {Case{KindFITS, ".fit", ""}, Case{KindTIFF, ".tif", ""}, Case{KindJPEG, ".jpg", ""},
          Case{KindBMP, ".bmp", ""}, Case{KindSBIG, ".st7", "The image has no SBIG header record"},
          Case{KindSBIGCompressed, ".st7", "The image has no SBIG header record"},
          Case{KindNone, ".x", "Unknown file kind 0"}, Case{-4, ".x", "Unknown file kind -4"}}) {
        SCOPED_TRACE(c.kind);
        const std::string path = dir.file("out" + std::to_string(-c.kind) + c.extension);
        const bool ok = *c.reason == 0;
        EXPECT_EQ(img.WriteFile(path, c.kind), ok) << LastFileError();
        if (!ok) {
            EXPECT_EQ(LastFileError(), c.reason);
            EXPECT_FALSE(std::filesystem::exists(path));
            continue;
        }
        Image back;
        ASSERT_TRUE(back.ReadFile(path, c.extension)) << LastFileError();
        EXPECT_EQ(back.fileType, c.kind);
        ASSERT_EQ(back.width, 5);
        ASSERT_EQ(back.height, 3);
        // 8-bit formats keep the level / 257; the others keep it whole.
        const float want = 257.0f * (10 * 4 + 2);
        const int slot = back.colorType == ColorRGB ? 0 : SlotOfColorType(back.colorType);
        if (c.kind == KindJPEG)
            EXPECT_NEAR(back.curPlane[slot][2 * 5 + 4], want, 3 * 257.0f);
        else
            EXPECT_EQ(back.curPlane[slot][2 * 5 + 4], want);
    }
}

// ---- save types ----------------------------------------------------------------------------

struct SaveCase {
    const char* keyword;
    bool known;
    std::int32_t fileType;
    std::uint32_t dataType;
    std::uint32_t tiffBits;
    bool compress;
    const char* extension;
};

TEST(SaveType, KeywordsChangeAFreshlyReadImage) {
    // The image as read: FITS, 16-bit, compressed, TIFF bits 8 from somewhere before.
    auto fresh = [](Image& img) {
        test::MakeImage(img, 3, 2, ColorRGB, [](int, int, int) { return 1; });
        img.fitsCompress = true;
        img.tiffBitsPerSample = 8;
        img.colorDetail = 4;
    };
    const SaveCase cases[] = {
        {"SAMEASINPUT", true, KindFITS, Data16, 8, true, ".fts"},
        {"COMPFIT", true, KindFITS, Data16, 8, true, ".fit"},
        {"UNCOMPFIT", true, KindFITS, Data16, 8, false, ".fit"},
        {"COMPFIT32", true, KindFITS, DataFloat, 8, true, ".fit"},
        {"UNCOMPFIT32", true, KindFITS, DataFloat, 8, false, ".fit"},
        {"TIFF16", true, KindTIFF, Data16, 16, true, ".tif"},
        {"UNCOMPTIF", true, KindTIFF, Data16, 16, true, ".tif"},
        // Unknown keywords (compared exactly) keep the format as read.
        {"compfit", false, KindFITS, Data16, 8, true, ".fts"},
        {"TIFF 8", false, KindFITS, Data16, 8, true, ".fts"},
        {"", false, KindFITS, Data16, 8, true, ".fts"},
    };
    for (const SaveCase& c : cases) {
        Image img;
        fresh(img);
        EXPECT_EQ(IsKnownSaveType(c.keyword), c.known) << c.keyword;
        EXPECT_EQ(ApplySaveType(img, c.keyword, ".fts"), c.extension) << c.keyword;
        EXPECT_EQ(img.fileType, c.fileType) << c.keyword;
        EXPECT_EQ(img.dataType, c.dataType) << c.keyword;
        EXPECT_EQ(img.tiffBitsPerSample, c.tiffBits) << c.keyword;
        EXPECT_EQ(img.fitsCompress, c.compress) << c.keyword;
        EXPECT_EQ(img.colorType, ColorRGB) << c.keyword;
        EXPECT_EQ(img.width, 3);
        EXPECT_EQ(img.height, 2);
        EXPECT_EQ(img.maxValue, 65535u);
        // The setters write 0 as the third field; SAMEASINPUT and unknown keywords touch nothing.
        EXPECT_EQ(img.colorDetail, c.known && c.keyword != std::string("SAMEASINPUT") ? 0u : 4u);
    }
    EXPECT_EQ(SaveTypes().size(), 11u);
}

TEST(SaveType, ConversionKeywordsAreKnownOnlyWhereFilesAreConverted) {
    const SaveCase cases[] = {
        {"TIFF8", true, KindTIFF, Data16, 8, true, ".tif"},
        {"JPEG", true, KindJPEG, Data16, 16, true, ".jpg"},
        {"BMP", true, KindBMP, Data16, 16, true, ".bmp"},
        {"PNG", true, KindPNG, Data16, 16, true, ".png"},
    };
    for (const SaveCase& c : cases) {
        Image img;
        test::MakeImage(img, 3, 2, ColorGray, [](int, int, int) { return 1; });
        img.fitsCompress = true;
        EXPECT_FALSE(IsKnownSaveType(c.keyword)) << c.keyword;
        EXPECT_TRUE(IsKnownSaveType(c.keyword, true)) << c.keyword;
        EXPECT_EQ(ApplySaveType(img, c.keyword, ".fit"), c.extension) << c.keyword;
        EXPECT_EQ(img.fileType, c.fileType) << c.keyword;
        EXPECT_EQ(img.tiffBitsPerSample, c.tiffBits) << c.keyword;
        EXPECT_EQ(img.fitsCompress, c.compress) << c.keyword;
    }
    EXPECT_TRUE(IsKnownSaveType("COMPFIT", true));
}

TEST(SaveType, AppliedKeywordDecidesWhatIsWritten) {
    ScratchDir dir;
    Image img;
    ASSERT_TRUE(img.ReadFile(SmallFits(dir, "in.fts"), ".fts"));
    const std::string ext = ApplySaveType(img, "COMPFIT32", ".fts");
    const std::string out = dir.file("out" + ext);
    ASSERT_TRUE(img.WriteFile(out, img.fileType)) << LastFileError();
    Image back;
    ASSERT_TRUE(back.ReadFile(out, ext));
    EXPECT_TRUE(back.fitsCompress);
    EXPECT_EQ(back.dataType, DataFloat);
    EXPECT_EQ(back.RedAt(1, 1), 40.0f);
}

// ---- the lock ------------------------------------------------------------------------------

TEST(ImageFileLock, IsReentrantOnOneThread) {
    ImageFileGuard outer;
    ImageFileGuard inner;
    EXPECT_TRUE(ImageFileLock().try_lock());
    ImageFileLock().unlock();
}

TEST(ImageFileLock, ExcludesOtherThreadsForTheWholeRead) {
    ScratchDir dir;
    const std::string path = SmallFits(dir, "locked.fit");
    std::atomic<bool> otherGotLock{true};
    std::atomic<bool> readDone{false};
    std::thread reader;
    {
        ImageFileGuard guard;
        std::thread([&] {
            otherGotLock = ImageFileLock().try_lock();
            if (otherGotLock)
                ImageFileLock().unlock();
        }).join();
        EXPECT_FALSE(otherGotLock.load());
        reader = std::thread([&] {
            Image img;
            EXPECT_TRUE(img.ReadFile(path, ".fit"));
            readDone = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_FALSE(readDone.load()); // waits for the lock
    }
    reader.join();
    EXPECT_TRUE(readDone.load());
}

} // namespace
} // namespace astrivelle
