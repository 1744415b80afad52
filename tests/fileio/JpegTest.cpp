// SPDX-License-Identifier: GPL-3.0-or-later
/// \file JPEG: files made by cjpeg (gray, YCbCr, RGB) and by libjpeg itself (CMYK, YCCK) read
/// to the exact bytes djpeg decodes, times 257; our files decoded by djpeg; the level to byte
/// rule; quality; and corrupt, truncated and lying files refused with a text, never a crash.
#include <cstddef>
#include <cstdio>

#include <jpeglib.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/FileLock.h"
#include "fileio/Jpeg.h"

namespace astrivelle {
namespace {

using test::ScratchDir;

struct Pnm {
    int width = 0, height = 0, channels = 0;
    std::vector<std::uint8_t> bytes;
};

void WritePnm(const std::string& path, const Pnm& p) {
    std::ofstream out(path, std::ios::binary);
    out << (p.channels == 1 ? "P5" : "P6") << "\n" << p.width << " " << p.height << "\n255\n";
    out.write(reinterpret_cast<const char*>(p.bytes.data()),
              static_cast<std::streamsize>(p.bytes.size()));
}

bool ReadPnm(const std::string& path, Pnm* p) {
    std::ifstream in(path, std::ios::binary);
    std::string magic;
    int maxval = 0;
    in >> magic >> p->width >> p->height >> maxval;
    in.get();
    if ((magic != "P5" && magic != "P6") || maxval != 255)
        return false;
    p->channels = magic == "P5" ? 1 : 3;
    p->bytes.resize(static_cast<std::size_t>(p->width) * p->height * p->channels);
    in.read(reinterpret_cast<char*>(p->bytes.data()),
            static_cast<std::streamsize>(p->bytes.size()));
    return static_cast<std::size_t>(in.gcount()) == p->bytes.size();
}

/// A picture with smooth and sharp parts, so that all coefficient paths are used.
Pnm Picture(int w, int h, int channels) {
    Pnm p{w, h, channels, {}};
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < channels; ++c)
                p.bytes.push_back(static_cast<std::uint8_t>(
                    ((x * 255) / w + c * 70 + ((x / 4 + y / 4) % 2) * 40 + y) % 256));
    return p;
}

bool HaveTools() {
    return test::HaveProgram("cjpeg") && test::HaveProgram("djpeg");
}

/// djpeg's decoding of a file, the reference for ours.
Pnm Djpeg(const ScratchDir& dir, const std::string& jpeg) {
    const std::string out = dir.file("djpeg.pnm");
    std::string output;
    EXPECT_EQ(test::RunCommand("djpeg -pnm -outfile " + out + " " + jpeg, &output), 0) << output;
    Pnm p;
    EXPECT_TRUE(ReadPnm(out, &p));
    return p;
}

void ExpectPlanesAreBytesTimes257(const Image& img, const Pnm& truth) {
    ASSERT_EQ(img.width, truth.width);
    ASSERT_EQ(img.height, truth.height);
    const int channels = truth.channels;
    for (int c = 0; c < channels; ++c)
        for (std::uint32_t i = 0; i < img.pixelCount; ++i)
            ASSERT_EQ(img.curPlane[c][i], 257.0f * truth.bytes[i * channels + c])
                << "channel " << c << " pixel " << i;
}

bool LockIsFree() {
    bool free = false;
    std::thread([&] {
        if (ImageFileLock().try_lock()) {
            free = true;
            ImageFileLock().unlock();
        }
    }).join();
    return free;
}

TEST(JpegRead, CjpegFilesReadAsDjpegDecodesThem) {
    if (!HaveTools())
        GTEST_SKIP() << "cjpeg/djpeg not installed";
    struct Case {
        const char* name;
        int channels;
        const char* options;
        const char* colorSpace;
        std::int32_t components;
        std::uint32_t colorType;
    } cases[] = {
        {"gray", 1, "-quality 90", "GRAY", 1, ColorGray},
        {"ycbcr", 3, "-quality 75", "YCbCr", 3, ColorRGB},
        {"ycbcr progressive", 3, "-quality 80 -progressive", "YCbCr", 3, ColorRGB},
        {"rgb", 3, "-quality 90 -rgb", "RGB", 3, ColorRGB},
        {"gray from colour", 3, "-grayscale", "GRAY", 1, ColorGray},
    };
    ScratchDir dir;
    for (const Case& c : cases) {
        for (int w : {1, 13, 64}) {
            const int h = w == 1 ? 3 : 37;
            WritePnm(dir.file("in.pnm"), Picture(w, h, c.channels));
            const std::string jpeg = dir.file("in.jpg");
            ASSERT_EQ(test::RunCommand(std::string("cjpeg ") + c.options + " -outfile " + jpeg +
                                       " " + dir.file("in.pnm")),
                      0)
                << c.name;
            CJPEGFile file(jpeg);
            ASSERT_TRUE(file.ReadHeader()) << c.name << ": " << LastFileError();
            EXPECT_EQ(file.width, static_cast<std::uint32_t>(w));
            EXPECT_EQ(file.height, static_cast<std::uint32_t>(h));
            EXPECT_EQ(file.colorSpace, c.colorSpace) << c.name;
            EXPECT_EQ(file.components, c.components) << c.name;

            Image img;
            ASSERT_TRUE(img.ReadJPEG(jpeg)) << c.name << ": " << LastFileError();
            EXPECT_EQ(img.fileType, KindJPEG);
            EXPECT_EQ(img.colorType, c.colorType) << c.name;
            EXPECT_EQ(img.maxValue, 65535u);
            EXPECT_EQ(img.curPlane[1] != nullptr, c.colorType == ColorRGB) << c.name;
            const Pnm truth = Djpeg(dir, jpeg);
            ExpectPlanesAreBytesTimes257(img, truth);

            // The rows interface gives djpeg's bytes too.
            const std::size_t rowBytes = file.IsGray() ? w : 3 * w;
            std::vector<std::uint8_t> bytes(rowBytes * h);
            std::vector<std::uint8_t*> rows(h);
            for (int y = 0; y < h; ++y)
                rows[y] = bytes.data() + rowBytes * y;
            ASSERT_TRUE(file.ReadPixels(rows.data())) << LastFileError();
            EXPECT_EQ(bytes, truth.bytes) << c.name;
        }
    }
}

/// A four-component JPEG made with libjpeg: `space` is JCS_CMYK or JCS_YCCK; libjpeg writes
/// the Adobe marker, so the samples are stored as given (inverted CMYK, as Adobe keeps it).
void WriteCmykJpeg(const std::string& path, int w, int h, J_COLOR_SPACE space,
                   const std::vector<std::uint8_t>& cmyk) {
    jpeg_compress_struct cinfo;
    jpeg_error_mgr jerr;
    cinfo.err = jpeg_std_error(&jerr);
    jpeg_create_compress(&cinfo);
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    jpeg_stdio_dest(&cinfo, f);
    cinfo.image_width = w;
    cinfo.image_height = h;
    cinfo.input_components = 4;
    cinfo.in_color_space = JCS_CMYK;
    jpeg_set_defaults(&cinfo);
    jpeg_set_colorspace(&cinfo, space);
    jpeg_set_quality(&cinfo, 100, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    for (int y = 0; y < h; ++y) {
        JSAMPROW row = const_cast<JSAMPROW>(cmyk.data() + 4 * w * y);
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    std::fclose(f);
}

TEST(JpegRead, CmykAndYcckComeOutAsRgb) {
    // Flat 16 x 16 patches survive quality 100 exactly. Inverted CMYK: r = c * k / 255.
    const int w = 32, h = 16;
    struct Patch {
        std::uint8_t c, m, y, k;
    } patches[2] = {{255, 0, 128, 255}, {200, 100, 50, 128}};
    std::vector<std::uint8_t> cmyk;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const Patch& p = patches[x / 16];
            cmyk.insert(cmyk.end(), {p.c, p.m, p.y, p.k});
        }
    ScratchDir dir;
    for (J_COLOR_SPACE space : {JCS_CMYK, JCS_YCCK}) {
        const std::string path = dir.file("cmyk.jpg");
        WriteCmykJpeg(path, w, h, space, cmyk);
        std::uint32_t fw = 0, fh = 0;
        std::string colorSpace;
        std::int32_t components = 0;
        ASSERT_TRUE(JPEGReadImageHeader(path, &fw, &fh, &colorSpace, &components));
        EXPECT_EQ(colorSpace, space == JCS_CMYK ? "CMYK" : "YCCK");
        EXPECT_EQ(components, 4);
        Image img;
        ASSERT_TRUE(img.ReadJPEG(path)) << LastFileError();
        EXPECT_EQ(img.colorType, ColorRGB);
        for (int x : {0, 20}) {
            const Patch& p = patches[x / 16];
            const int tolerance = space == JCS_CMYK ? 0 : 2; // YCCK goes through YCC rounding
            const int i = 5 * w + x;
            EXPECT_NEAR(img.curPlane[0][i] / 257, (p.c * p.k + 127) / 255, tolerance) << x;
            EXPECT_NEAR(img.curPlane[1][i] / 257, (p.m * p.k + 127) / 255, tolerance) << x;
            EXPECT_NEAR(img.curPlane[2][i] / 257, (p.y * p.k + 127) / 255, tolerance) << x;
        }
    }
}

TEST(JpegWrite, DjpegReadsOurFiles) {
    if (!HaveTools())
        GTEST_SKIP() << "cjpeg/djpeg not installed";
    ScratchDir dir;
    for (std::uint32_t type : {ColorRGB, ColorGray, ColorGreen, ColorMagenta}) {
        const int w = 40, h = 24;
        Image img;
        img.SetGeometry(KindFITS, type, 0, w, h);
        ASSERT_TRUE(img.AllocatePlanes(1));
        for (int s : img.Slots())
            for (int i = 0; i < w * h; ++i) // smooth ramps: small JPEG error
                img.curPlane[s][i] = 257.0f * ((i % w) * 3 + (i / w) * 2 + 30 * s);
        const std::string path = dir.file("ours.jpg");
        ASSERT_TRUE(img.WriteJPEG(path, 95)) << LastFileError();
        const Pnm p = Djpeg(dir, path);
        ASSERT_EQ(p.width, w);
        ASSERT_EQ(p.height, h);
        ASSERT_EQ(p.channels, type == ColorRGB ? 3 : 1) << type;
        for (int i = 0; i < w * h; ++i)
            for (int c = 0; c < p.channels; ++c) {
                const int slot = type == ColorRGB ? c : SlotOfColorType(type);
                EXPECT_NEAR(p.bytes[i * p.channels + c], img.curPlane[slot][i] / 257, 4)
                    << "type " << type << " pixel " << i;
            }
    }
}

TEST(JpegWrite, LevelsBecomeBytesByNearestThenDivideBy257) {
    if (!HaveTools())
        GTEST_SKIP() << "djpeg not installed";
    // Each level fills an 8 x 8 block, which quality 100 keeps exactly.
    struct Case {
        float level;
        int byte;
    } cases[] = {{0, 0},       {256.4f, 0},  {256.6f, 1},  {257, 1}, {65278, 254},
                 {65534, 254}, {65535, 255}, {70000, 255}, {-3, 0},  {32896, 128}};
    const int n = sizeof cases / sizeof cases[0];
    ScratchDir dir;
    Image img;
    test::MakeImage(img, 8 * n, 8, ColorGray, [&](int, int x, int) { return cases[x / 8].level; });
    ASSERT_TRUE(img.WriteJPEG(dir.file("l.jpg"), 100));
    const Pnm p = Djpeg(dir, dir.file("l.jpg"));
    ASSERT_EQ(p.channels, 1);
    for (int k = 0; k < n; ++k)
        EXPECT_EQ(p.bytes[8 * 3 * n + 8 * k + 3], cases[k].byte) << cases[k].level;
}

TEST(JpegWrite, QualityIsHonoured) {
    ScratchDir dir;
    Image img;
    std::uint32_t seed = 1;
    test::MakeImage(img, 96, 64, ColorRGB, [&](int, int x, int y) {
        seed = seed * 1664525u + 1013904223u;
        return 100.0 * x + 300.0 * y + (seed >> 20);
    });
    std::uintmax_t last = 0;
    for (int quality : {10, 40, 75, 95}) {
        const std::string path = dir.file("q" + std::to_string(quality) + ".jpg");
        ASSERT_TRUE(img.WriteJPEG(path, quality)) << LastFileError();
        const std::uintmax_t size = std::filesystem::file_size(path);
        EXPECT_GT(size, last) << "quality " << quality;
        last = size;
    }
}

TEST(JpegWrite, InvalidColourTypeAndBadTargets) {
    ScratchDir dir;
    Image img;
    test::MakeImage(img, 4, 4, ColorGray, [](int, int, int) { return 1000.0; });
    for (std::uint32_t bad : {0u, 5u, 10u}) {
        img.colorType = bad;
        EXPECT_FALSE(img.WriteJPEG(dir.file("x.jpg"), 90));
        EXPECT_EQ(LastFileError(), "Internal error, image does not have a valid color type.");
    }
    img.colorType = ColorGray;
    EXPECT_FALSE(img.WriteJPEG(dir.file("no/such/dir/x.jpg"), 90));
    EXPECT_NE(LastFileError().find("Could not open"), std::string::npos) << LastFileError();
    const std::uint8_t row[3] = {1, 2, 3};
    const std::uint8_t* rows[1] = {row};
    EXPECT_FALSE(JPEGWriteImage(dir.file("y.jpg"), rows, "CMYK", 90, 1, 1));
    EXPECT_FALSE(std::filesystem::exists(dir.file("y.jpg")));
    EXPECT_TRUE(LockIsFree());
}

TEST(JpegRead, CorruptTruncatedAndLyingFilesFailWithAText) {
    ScratchDir dir;
    Image src;
    std::uint32_t seed = 7;
    test::MakeImage(src, 64, 48, ColorRGB, [&](int, int x, int y) {
        seed = seed * 1664525u + 1013904223u;
        return 500.0 * x + (seed >> 18);
    });
    const std::string good = dir.file("good.jpg");
    ASSERT_TRUE(src.WriteJPEG(good, 90));
    std::ifstream in(good, std::ios::binary);
    const std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), {});
    // The SOF0 marker: its height and width follow the length and precision.
    std::size_t sof = 0;
    for (std::size_t i = 2; i + 9 < bytes.size(); ++i)
        if (bytes[i] == 0xFF && bytes[i + 1] == 0xC0) {
            sof = i;
            break;
        }
    ASSERT_GT(sof, 0u);
    auto withSize = [&](int w, int h) {
        std::vector<std::uint8_t> b = bytes;
        b[sof + 5] = static_cast<std::uint8_t>(h >> 8);
        b[sof + 6] = static_cast<std::uint8_t>(h);
        b[sof + 7] = static_cast<std::uint8_t>(w >> 8);
        b[sof + 8] = static_cast<std::uint8_t>(w);
        return b;
    };
    std::vector<std::uint8_t> scrambled = bytes;
    for (std::size_t i = bytes.size() / 2; i + 2 < bytes.size(); i += 7)
        scrambled[i] = 0xFF; // markers where entropy data should be
    struct Case {
        const char* name;
        std::vector<std::uint8_t> data;
        const char* text; ///< part of LastFileError()
    } cases[] = {
        {"empty", {}, "JPEG error: Empty input file"},
        {"not a JPEG", {'B', 'M', 1, 2, 3, 4, 5, 6}, "JPEG error: Not a JPEG file"},
        {"header only", std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + sof + 4),
         "JPEG error: Premature end of JPEG file"},
        {"truncated half way",
         std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + bytes.size() / 2),
         "JPEG error: Premature end of JPEG file"},
        {"scrambled entropy data", scrambled, "JPEG error: Corrupt JPEG data"},
        {"zero width", withSize(0, 48), "JPEG error: Empty JPEG image"},
        {"huge claim", withSize(65000, 65000), "more than the file can hold"},
    };
    for (const Case& c : cases) {
        const std::string path = dir.file("bad.jpg");
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(c.data.data()),
                   static_cast<std::streamsize>(c.data.size()));
        Image img;
        EXPECT_FALSE(img.ReadJPEG(path)) << c.name;
        EXPECT_NE(LastFileError().find(c.text), std::string::npos)
            << c.name << ": " << LastFileError();
        EXPECT_TRUE(LockIsFree()) << c.name;
    }
    Image img;
    EXPECT_FALSE(img.ReadJPEG(dir.file("missing.jpg")));
    EXPECT_NE(LastFileError().find("No such file"), std::string::npos);
    // The rows interface refuses a size other than the file's.
    std::vector<std::uint8_t> row(3 * 64);
    std::vector<std::uint8_t*> rows(10, row.data());
    EXPECT_FALSE(JPEGReadImage(good, rows.data(), 64, 10));
    EXPECT_EQ(LastFileError(), "The JPEG image is 64 x 48, not 64 x 10");
}

TEST(JpegRead, SizePlausibility) {
    EXPECT_TRUE(JpegSizeIsPlausible(4096, 4096, 100)); // the floor
    EXPECT_TRUE(JpegSizeIsPlausible(6000, 4000, 6000 * 4000 / 4096 + 1));
    EXPECT_FALSE(JpegSizeIsPlausible(6000, 4000, 5000));
    EXPECT_FALSE(JpegSizeIsPlausible(65535, 65535, 1000000));
}

TEST(JpegRead, LargeImagesConvertWhileDecodingToTheSameLevels) {
    // From one megapixel on the planes are filled on a second thread; they must equal the
    // rows interface times 257 for gray, YCbCr and CMYK files.
    const int w = 1100, h = 1000;
    ScratchDir dir;
    std::vector<std::uint8_t> cmyk;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            cmyk.insert(cmyk.end(), {static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y),
                                     static_cast<std::uint8_t>(x + y), 200});
    WriteCmykJpeg(dir.file("cmyk.jpg"), w, h, JCS_CMYK, cmyk);
    for (std::uint32_t type : {ColorGray, ColorRGB}) {
        Image src;
        test::MakeImage(src, w, h, type, [](int s, int x, int y) {
            return 60.0 * ((x * 7 + y * 3 + 50 * s) % 1000);
        });
        ASSERT_TRUE(src.WriteJPEG(dir.file(std::to_string(type) + ".jpg"), 85));
    }
    for (const char* name : {"9.jpg", "1.jpg", "cmyk.jpg"}) {
        const std::string path = dir.file(name);
        CJPEGFile file(path);
        ASSERT_TRUE(file.ReadHeader());
        const int channels = file.IsGray() ? 1 : 3;
        std::vector<std::uint8_t> bytes(static_cast<std::size_t>(w) * h * channels);
        std::vector<std::uint8_t*> rows(h);
        for (int y = 0; y < h; ++y)
            rows[y] = bytes.data() + static_cast<std::size_t>(w) * channels * y;
        ASSERT_TRUE(file.ReadPixels(rows.data())) << LastFileError();
        Image img;
        ASSERT_TRUE(img.ReadJPEG(path)) << name << ": " << LastFileError();
        ExpectPlanesAreBytesTimes257(img, Pnm{w, h, channels, bytes});
    }
}

TEST(JpegRealData, Ngc6976) {
    const std::string path = test::RealData("tiff/ngc6976.jpeg");
    if (path.empty())
        GTEST_SKIP() << "real data not present";
    Image img;
    ASSERT_TRUE(img.ReadJPEG(path)) << LastFileError();
    EXPECT_EQ(img.width, 2048);
    EXPECT_EQ(img.height, 1489);
    EXPECT_EQ(img.colorType, ColorRGB);
    if (!HaveTools())
        return;
    ScratchDir dir;
    ExpectPlanesAreBytesTimes257(img, Djpeg(dir, path));
}

} // namespace
} // namespace astrivelle
