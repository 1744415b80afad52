// SPDX-License-Identifier: GPL-3.0-or-later
/// \file SBIG files on disk: the probe, write/read round trips of both layouts, the header's
/// type beating the extension, and short, truncated, damaged and absurd files.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/Sbig.h"
#include "engine/ImageHeader.h"

namespace astrivelle {
namespace {

using test::ScratchDir;
using Bytes = std::vector<std::uint8_t>;

Bytes Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), {});
}

void Spit(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

/// A 2048-byte header area holding `text`, padded with blanks.
Bytes HeaderArea(const std::string& text) {
    Bytes area(kSbigHeaderBytes, ' ');
    std::copy(text.begin(),
              text.begin() + static_cast<std::ptrdiff_t>(std::min(text.size(), area.size())),
              area.begin());
    return area;
}

Bytes WithPixels(Bytes area, const Bytes& pixels) {
    area.insert(area.end(), pixels.begin(), pixels.end());
    return area;
}

bool HasNoPlanes(const Image& img) {
    for (int s = 0; s < 3; ++s)
        if (img.curPlane[s] || img.prevPlane[s])
            return false;
    return true;
}

std::vector<float> PlaneValues(const Image& img) {
    const float* p = img.curPlane[SlotOfColorType(img.colorType)];
    return std::vector<float>(p, p + img.pixelCount);
}

/// A mono image as if read from an SBIG file: plane from fn(x, y), a full header record.
template <class Fn> void MakeSbigImage(Image& img, int w, int h, const std::string& type, Fn fn) {
    test::MakeImage(img, w, h, ColorGray, [&](int, int x, int y) { return fn(x, y); });
    img.fileType = KindSBIG;
    auto header = std::make_shared<ImageHeader>();
    header->imageType = type;
    header->exposure = 1234;
    header->responseFactor = 2.75;
    header->note = "any = text, even = signs";
    header->date = "12/31/99";
    header->time = "23:59:59";
    header->user2 = "ST-7";
    header->user4 = "";
    header->filter = "";
    header->satLevel = 65535;
    img.header = header;
}

/// A pattern with smooth runs, jumps of exactly +-128 and full-scale steps.
float Pattern(int x, int y) {
    const int cases[8] = {0, 128, 0, 65535, 65535 - 128, 65535, 300, 301};
    if (y % 3 == 0)
        return static_cast<float>(cases[x % 8]);
    if (y % 3 == 1)
        return 1000.0f; // constant row
    return static_cast<float>((x * 7919 + y * 104729) % 65536);
}

TEST(SbigProbe, EveryTypeTextGivesItsKind) {
    ScratchDir dir;
    const char* const plain[] = {"ST-4X Image",     "ST-5 Image",      "ST-6 Image",  "ST-7 Image",
                                 "ST-8 Image",      "ST-9 Image",      "ST-10 Image", "STV Image",
                                 "PixCel255 Image", "PixCel237 Image", "ST-X Image",  "ST-2K Image",
                                 "ST-4K Image",     "SBIG Image"};
    const char* const compressed[] = {
        "ST-4X Compressed Image",     "ST-5 Compressed Image", "ST-6 Compressed Image",
        "ST-7 Compressed Image",      "ST-8 Compressed Image", "ST-9 Compressed Image",
        "ST-10 Compressed Image",     "STV Compressed Image",  "PixCel255 Compressed Image",
        "PixCel237 Compressed Image", "ST-X Compressed Image", "ST-2K Compressed Image",
        "ST-4K Compressed Image",     "SBIG Compressed Image"};
    const std::string path = dir.file("probe.st7");
    for (const char* t : plain) {
        Spit(path, HeaderArea(std::string(t) + "\n\rEnd\n\r"));
        EXPECT_EQ(ProbeSBIG(path), KindSBIG) << t;
    }
    for (const char* t : compressed) {
        Spit(path, HeaderArea(std::string(t) + "\n\rEnd\n\r"));
        EXPECT_EQ(ProbeSBIG(path), KindSBIGCompressed) << t;
    }
}

TEST(SbigProbe, ForeignShortAndMisplacedFilesGiveZero) {
    ScratchDir dir;
    struct Case {
        const char* name;
        Bytes bytes;
    };
    Bytes shortFile = HeaderArea("ST-7 Image\n\rEnd\n\r");
    shortFile.resize(2047);
    const Case cases[] = {
        {"ShorterThan2048", shortFile},
        {"Empty", {}},
        {"FitsHeader", HeaderArea("SIMPLE  =                    T")},
        {"TypeNotOnFirstLine", HeaderArea("Hello\n\rST-7 Image\n\rEnd\n\r")},
        {"LowerCase", HeaderArea("st-7 image\n\r")},
    };
    for (const Case& c : cases) {
        const std::string path = dir.file(std::string(c.name) + ".st7");
        Spit(path, c.bytes);
        EXPECT_EQ(ProbeSBIG(path), KindNone) << c.name;
        Image img;
        EXPECT_FALSE(img.ReadSBIG(path, ColorGray)) << c.name;
        EXPECT_TRUE(HasNoPlanes(img)) << c.name;
        EXPECT_FALSE(img.header) << c.name;
        EXPECT_FALSE(LastFileError().empty()) << c.name;
    }
    EXPECT_EQ(ProbeSBIG(dir.file("missing.st7")), KindNone);
    Image img;
    EXPECT_FALSE(img.ReadSBIG(dir.file("missing.st7"), ColorGray));
}

TEST(SbigFile, RoundTripBothLayouts) {
    ScratchDir dir;
    struct Case {
        std::int32_t kind;
        int width, height;
        const char* typeWritten;
    };
    const Case cases[] = {
        {KindSBIG, 37, 11, "ST-7 Image"},
        {KindSBIGCompressed, 37, 11, "ST-7 Compressed Image"},
        {KindSBIG, 1, 1, "ST-7 Image"},
        {KindSBIGCompressed, 1, 5, "ST-7 Compressed Image"},
        {KindSBIGCompressed, 300, 2, "ST-7 Compressed Image"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.kind) + " " + std::to_string(c.width));
        Image src;
        // The source claims the other layout: the written type follows the kind written.
        MakeSbigImage(src, c.width, c.height,
                      c.kind == KindSBIG ? "ST-7 Compressed Image" : "ST-7 Image", Pattern);
        const std::string path = dir.file("round.st7");
        ASSERT_TRUE(src.WriteSBIG(path, c.kind)) << LastFileError();
        const Bytes bytes = Slurp(path);
        const std::string head(bytes.begin(), bytes.begin() + 2048);
        EXPECT_EQ(head.substr(0, head.find('\n')), c.typeWritten);
        EXPECT_EQ(head.find("End\n\r") + 5, head.find_last_not_of(' ') + 1) << "blank padded";
        if (c.kind == KindSBIG) {
            EXPECT_EQ(bytes.size(), 2048u + 2u * c.width * c.height);
        }
        EXPECT_EQ(ProbeSBIG(path), c.kind);

        Image back;
        ASSERT_TRUE(back.ReadSBIG(path, ColorGray)) << LastFileError();
        EXPECT_EQ(back.width, c.width);
        EXPECT_EQ(back.height, c.height);
        EXPECT_EQ(back.fileType, c.kind);
        EXPECT_EQ(back.colorType, ColorGray);
        EXPECT_EQ(PlaneValues(back), PlaneValues(src));
        ASSERT_TRUE(back.header);
        EXPECT_EQ(back.header->fileType, c.kind);
        EXPECT_EQ(back.header->imageType, c.typeWritten);
        EXPECT_EQ(back.header->width, c.width);
        EXPECT_EQ(back.header->note, "any = text, even = signs");
        EXPECT_EQ(back.header->filter, "");
        EXPECT_EQ(back.header->user4, "");
        EXPECT_EQ(back.header->exposure, 1234);
        EXPECT_TRUE(back.header->pixels.empty()) << "samples are not kept after a read";
        // The FITS list is rebuilt from the header at load.
        ASSERT_EQ(back.headerCards.size(), 31u);
        EXPECT_EQ(back.headerCards[0].key, "OBJECT");
        EXPECT_EQ(back.headerCards[4].value, "1999-12-31T23:59:59.000");
        EXPECT_EQ(back.headerCards[29].key, "RESPONSE");
        EXPECT_EQ(back.headerCards[29].value, "      2.0000"); // the fraction did not survive
    }
}

TEST(SbigFile, WrittenTypeAlwaysProbesAsTheKindWritten) {
    ScratchDir dir;
    struct Case {
        const char* type;
        std::int32_t kind;
        const char* written;
    };
    const Case cases[] = {
        {"ST-8 Image ST-7 Image", KindSBIGCompressed,
         "ST-8 Compressed Image ST-7 Compressed Image"},
        {"ST-8 Image ST-7 Image", KindSBIG, "ST-8 Image ST-7 Image"},
        {"xx ST-7 Compressed Image", KindSBIG, "xx ST-7 Image"},
        {"PixCel255 Compressed Image", KindSBIGCompressed, "PixCel255 Compressed Image"},
        {"", KindSBIGCompressed, "SBIG Compressed Image"},
        {"Hello", KindSBIG, "SBIG Image"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.type) + " as " + std::to_string(c.kind));
        Image src;
        MakeSbigImage(src, 6, 3, c.type, Pattern);
        const std::string path = dir.file("typed.sbig");
        ASSERT_TRUE(src.WriteSBIG(path, c.kind)) << LastFileError();
        EXPECT_EQ(ProbeSBIG(path), c.kind);
        Image back;
        ASSERT_TRUE(back.ReadSBIG(path, ColorGray));
        EXPECT_EQ(back.header->imageType, c.written);
        EXPECT_EQ(PlaneValues(back), PlaneValues(src));
    }
}

TEST(SbigFile, CompressedBytesOfAConstantImage) {
    ScratchDir dir;
    Image src;
    MakeSbigImage(src, 8, 2, "ST-8 Compressed Image", [](int, int) { return 1000.0f; });
    const std::string path = dir.file("flat.st8");
    ASSERT_TRUE(src.WriteSBIG(path, KindSBIGCompressed)) << LastFileError();
    const Bytes bytes = Slurp(path);
    const Bytes row = {9, 0, 0xE8, 3, 0, 0, 0, 0, 0, 0, 0};
    Bytes expected = row;
    expected.insert(expected.end(), row.begin(), row.end());
    ASSERT_EQ(bytes.size(), 2048u + expected.size());
    EXPECT_EQ(Bytes(bytes.begin() + 2048, bytes.end()), expected);
}

TEST(SbigFile, WritingRoundsAndClampsLikeEveryWriter) {
    ScratchDir dir;
    const float in[8] = {1.5f, 1.6f, -3.0f, 70000.0f, 0.5f, 65534.6f, 2.5f, 100.49f};
    const float out[8] = {1, 2, 0, 65535, 0, 65535, 2, 100};
    for (std::int32_t kind : {KindSBIG, KindSBIGCompressed}) {
        Image src;
        MakeSbigImage(src, 4, 2, "SBIG Image", [&](int x, int y) { return in[y * 4 + x]; });
        const std::string path = dir.file("round.sbig");
        ASSERT_TRUE(src.WriteSBIG(path, kind));
        Image back;
        ASSERT_TRUE(back.ReadSBIG(path, ColorGray));
        EXPECT_EQ(PlaneValues(back), std::vector<float>(out, out + 8)) << kind;
    }
}

TEST(SbigFile, CompressedTypeBeatsTheExtension) {
    ScratchDir dir;
    Image src;
    MakeSbigImage(src, 9, 4, "ST-7 Compressed Image", Pattern);
    const std::string path = dir.file("looks_like.st8");
    ASSERT_TRUE(src.WriteSBIG(path, KindSBIGCompressed));
    EXPECT_EQ(ProbeSBIG(path), KindSBIGCompressed);
    Image back;
    ASSERT_TRUE(back.ReadSBIG(path, ColorGray)) << LastFileError();
    EXPECT_EQ(back.fileType, KindSBIGCompressed);
    EXPECT_EQ(PlaneValues(back), PlaneValues(src));
}

TEST(SbigFile, ColourTypeChoosesThePlane) {
    ScratchDir dir;
    Image src;
    MakeSbigImage(src, 5, 3, "ST-7 Image", Pattern);
    const std::string path = dir.file("plane.r");
    ASSERT_TRUE(src.WriteSBIG(path, KindSBIG));
    for (std::uint32_t colorType : {2u, 3u, 4u, 6u, 7u, 8u, 9u}) {
        Image back;
        ASSERT_TRUE(back.ReadSBIG(path, colorType)) << colorType;
        const int slot = SlotOfColorType(colorType);
        EXPECT_EQ(back.colorType, colorType);
        for (int s = 0; s < 3; ++s)
            EXPECT_EQ(back.curPlane[s] != nullptr, s == slot) << colorType << " slot " << s;
        EXPECT_EQ(PlaneValues(back), PlaneValues(src));
        // Written back from the plane it was read into.
        const std::string again = dir.file("again.st7");
        ASSERT_TRUE(back.WriteSBIG(again, KindSBIG));
        const Bytes a = Slurp(again), b = Slurp(path);
        ASSERT_EQ(a.size(), b.size());
        EXPECT_TRUE(std::equal(a.begin() + 2048, a.end(), b.begin() + 2048));
    }
    Image rgb;
    EXPECT_FALSE(rgb.ReadSBIG(path, ColorRGB));
    EXPECT_TRUE(HasNoPlanes(rgb));
    EXPECT_FALSE(rgb.ReadSBIG(path, 5));
}

TEST(SbigFile, WriteFailures) {
    ScratchDir dir;
    // An image that did not come from an SBIG file has no header record.
    Image plain;
    test::MakeImage(plain, 4, 4, ColorGray, [](int, int, int) { return 1.0; });
    EXPECT_FALSE(plain.WriteSBIG(dir.file("no_header.st7"), KindSBIG));
    EXPECT_EQ(LastFileError(), "The image has no SBIG header record");
    EXPECT_FALSE(std::filesystem::exists(dir.file("no_header.st7")));
    EXPECT_STREQ(kSbigWriteErrorText, "Error writing SBIG image to disk.");

    Image img;
    MakeSbigImage(img, 4, 4, "ST-7 Image", Pattern);
    EXPECT_FALSE(img.WriteSBIG(dir.file("wrong_kind.st7"), KindFITS));
    EXPECT_FALSE(img.WriteSBIG(dir.file("no_such_folder/x.st7"), KindSBIG));
    EXPECT_NE(LastFileError().find("Could not open"), std::string::npos);
    // A header text that no longer fits in 2048 bytes is refused, not cut.
    img.header->note = std::string(3000, 'n');
    EXPECT_FALSE(img.WriteSBIG(dir.file("long_note.st7"), KindSBIG));
    EXPECT_FALSE(std::filesystem::exists(dir.file("long_note.st7")));
}

TEST(SbigFile, WideRowsOnlyUncompressed) {
    ScratchDir dir;
    Image img;
    MakeSbigImage(img, 40000, 1, "ST-7 Image", [](int x, int) { return float(x % 60000); });
    EXPECT_FALSE(img.WriteSBIG(dir.file("wide_c.st7"), KindSBIGCompressed));
    ASSERT_TRUE(img.WriteSBIG(dir.file("wide.st7"), KindSBIG));
    Image back;
    ASSERT_TRUE(back.ReadSBIG(dir.file("wide.st7"), ColorGray));
    EXPECT_EQ(PlaneValues(back), PlaneValues(img));
}

TEST(SbigFile, TruncatedFilesFailCleanlyAtEveryOffset) {
    ScratchDir dir;
    for (std::int32_t kind : {KindSBIG, KindSBIGCompressed}) {
        Image src;
        MakeSbigImage(src, 13, 7, "ST-7 Image", Pattern);
        const std::string path = dir.file("whole.st7");
        ASSERT_TRUE(src.WriteSBIG(path, kind));
        const Bytes whole = Slurp(path);
        for (std::size_t cut = 0; cut < whole.size(); ++cut) {
            if (cut > 64 && cut < 2000 && cut % 97 != 0)
                continue; // the middle of the text header: a sample is enough
            const Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut));
            Image img;
            EXPECT_FALSE(ReadSbigMemory(img, part.data(), part.size(), ColorGray))
                << kind << " cut " << cut;
            EXPECT_TRUE(HasNoPlanes(img)) << cut;
            EXPECT_FALSE(LastFileError().empty()) << cut;
        }
        // The file reader agrees at a few offsets.
        for (std::size_t cut : {std::size_t{100}, std::size_t{2048}, whole.size() - 1}) {
            const std::string cutPath = dir.file("cut.st7");
            Spit(cutPath, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut)));
            Image img;
            EXPECT_FALSE(img.ReadSBIG(cutPath, ColorGray)) << cut;
            EXPECT_TRUE(HasNoPlanes(img));
        }
        Image full;
        EXPECT_TRUE(ReadSbigMemory(full, whole.data(), whole.size(), ColorGray));
        EXPECT_EQ(PlaneValues(full), PlaneValues(src));
    }
}

TEST(SbigFile, AbsurdSizesAreRefusedBeforeAllocation) {
    struct Case {
        const char* name;
        const char* sizeLines;
        const char* type;
        const char* reason; ///< a part of LastFileError
    };
    const Case cases[] = {
        {"Huge", "Height = 50000\n\rWidth = 50000\n\r", "ST-7 Image", "shorter than"},
        {"HugeCompressed", "Height = 50000\n\rWidth = 50000\n\r", "ST-7 Compressed Image",
         "shorter than"},
        {"WideCompressedFewBytes", "Height = 2\n\rWidth = 2000000\n\r", "ST-7 Compressed Image",
         "shorter than"},
        {"ProductOverflows32Bits", "Height = 65536\n\rWidth = 65536\n\r", "ST-7 Image",
         "unusable image size"},
        {"Largest", "Height = 2147483647\n\rWidth = 2147483647\n\r", "ST-7 Image",
         "unusable image size"},
        {"Negative", "Height = -5\n\rWidth = 10\n\r", "ST-7 Image", "unusable image size"},
        {"Zero", "Height = 0\n\rWidth = 0\n\r", "ST-7 Image", "unusable image size"},
        {"Missing", "", "ST-7 Image", "unusable image size"},
    };
    for (const Case& c : cases) {
        const Bytes file = WithPixels(
            HeaderArea(std::string(c.type) + "\n\r" + c.sizeLines + "End\n\r"), Bytes(4096, 0));
        Image img;
        EXPECT_FALSE(ReadSbigMemory(img, file.data(), file.size(), ColorGray)) << c.name;
        EXPECT_NE(LastFileError().find(c.reason), std::string::npos)
            << c.name << ": " << LastFileError();
        EXPECT_TRUE(HasNoPlanes(img)) << c.name;
        EXPECT_EQ(img.width, 0) << c.name << " geometry set before the size was checked";
    }
}

TEST(SbigFile, DamagedCompressedRowsReadWithoutHarm) {
    // Width 4, three rows: too long (one pixel kept), short (the rest stays 0), escape cut.
    const std::string text = "ST-7 Compressed Image\n\rHeight = 3\n\rWidth = 4\n\rEnd\n\r";
    const Bytes rows = {
        9, 0, 5, 0, 1, 2,   3, 4, 5, 6, 7, // 9 > 2 * width: first pixel only
        3, 0, 7, 0, 1,                     // deltas run out after two pixels
        5, 0, 9, 0, 1, 128, 4,             // an escape without its second byte
        0, 0, 0, 0, 0, 0,   0, 0, 0, 0,    // trailing bytes are never read
    };
    const Bytes file = WithPixels(HeaderArea(text), rows);
    Image img;
    ASSERT_TRUE(ReadSbigMemory(img, file.data(), file.size(), ColorGray)) << LastFileError();
    EXPECT_EQ(PlaneValues(img), (std::vector<float>{5, 0, 0, 0, 7, 8, 0, 0, 9, 10, 0, 0}));
}

} // namespace
} // namespace astrivelle
