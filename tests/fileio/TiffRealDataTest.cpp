// SPDX-License-Identifier: GPL-3.0-or-later
/// \file TIFFs nobody on this project wrote: the real files under shared/data/real and the
/// synthetic night frames of the generator read, and read the same after libtiff re-writes
/// them in the other byte order.
#include <cstring>
#include <filesystem>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/Fits.h"
#include "fileio/Tiff.h"

namespace astrivelle {
namespace {

using test::ScratchDir;

struct RealCase {
    const char* file;
    std::uint32_t colorType;
};

TEST(TiffRealData, MarsFramesReadAndMatchTheirBigEndianCopies) {
    for (const RealCase& c : {RealCase{"tiff/astro4j_mars_mono.tif", ColorGray},
                              RealCase{"tiff/astro4j_mars_color.tif", ColorRGB}}) {
        SCOPED_TRACE(c.file);
        const std::string path = test::RealData(c.file);
        if (path.empty())
            GTEST_SKIP() << "real data " << c.file << " is not on this machine";
        Image img;
        std::string message;
        ASSERT_TRUE(img.ReadTIFF(path, &message)) << message << " / " << LastFileError();
        EXPECT_EQ(img.width, 512);
        EXPECT_EQ(img.height, 440);
        EXPECT_EQ(img.colorType, c.colorType);
        EXPECT_EQ(img.tiffBitsPerSample, 8u);
        // 8-bit samples: every value is a multiple of 257, and the planet is not black.
        double sum = 0;
        for (int s : img.Slots())
            for (std::uint32_t i = 0; i < img.pixelCount; ++i) {
                const float v = img.curPlane[s][i];
                ASSERT_EQ(static_cast<int>(v) % 257, 0) << v;
                sum += v;
            }
        EXPECT_GT(sum / img.pixelCount, 257.0);
        if (!test::HaveProgram("tiffcp"))
            continue;
        ScratchDir dir;
        std::string out;
        ASSERT_EQ(test::RunCommand("tiffcp -B -r 7 " + path + " " + dir.file("be.tif"), &out), 0)
            << out;
        Image be;
        ASSERT_TRUE(be.ReadTIFF(dir.file("be.tif"), &message)) << LastFileError();
        for (int s : img.Slots())
            ASSERT_EQ(0, std::memcmp(be.curPlane[s], img.curPlane[s], img.pixelCount * 4));
    }
}

/// The generator beside the command-line program of this build.
std::string SynthProgram() {
    const auto p = std::filesystem::path(ASTRIVELLE_CLI).parent_path() / "astrivelle-synth";
    return std::filesystem::exists(p) ? p.string() : std::string();
}

// The generator's 16-bit TIFF frames (strips of several rows, a description tag) hold the
// same pixels as the FITS frames it makes from the same seed.
TEST(TiffRealData, GeneratorNightTiffFramesReadLikeItsFitsFrames) {
    const std::string synth = SynthProgram();
    if (synth.empty())
        GTEST_SKIP() << "astrivelle-synth is not built in this build folder";
    ScratchDir dir;
    const std::string common =
        " --size 300x200 --frames 2 --darks 1 --flats 1 --flat-darks 1 --bias 1 --quiet";
    std::string out;
    ASSERT_EQ(
        test::RunCommand(synth + " night --format tiff16 --out " + dir.file("t") + common, &out), 0)
        << out;
    ASSERT_EQ(
        test::RunCommand(synth + " night --format fits16 --out " + dir.file("f") + common, &out), 0)
        << out;
    int frames = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir.file("t"))) {
        if (entry.path().extension() != ".tif")
            continue;
        SCOPED_TRACE(entry.path().string());
        Image tif;
        std::string message;
        ASSERT_TRUE(tif.ReadTIFF(entry.path().string(), &message)) << LastFileError();
        EXPECT_EQ(tif.width, 300);
        EXPECT_EQ(tif.height, 200);
        EXPECT_EQ(tif.colorType, ColorGray);
        EXPECT_EQ(tif.tiffBitsPerSample, 16u);
        auto relative = std::filesystem::relative(entry.path(), dir.file("t"));
        const auto fits =
            (std::filesystem::path(dir.file("f")) / relative).replace_extension(".fit");
        Image fit;
        ASSERT_TRUE(fit.ReadFITS(fits.string())) << LastFileError();
        ASSERT_EQ(fit.pixelCount, tif.pixelCount);
        for (std::uint32_t i = 0; i < tif.pixelCount; ++i)
            ASSERT_EQ(tif.curPlane[0][i], fit.curPlane[0][i]) << "pixel " << i;
        ++frames;
    }
    EXPECT_GE(frames, 6);
}

} // namespace
} // namespace astrivelle
