// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Real FITS files from other programs: each is read and checked against what cfitsio,
/// asked directly, says the file holds.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include "FitsTestFiles.h"
#include "TestSupport.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/Fits.h"

namespace astrivelle {
namespace {

/// What cfitsio says about a file, found the plain way.
struct Truth {
    bool ok = false;
    bool compressed = false;
    int bitpix = 0;
    int naxis = 0;
    long long axes[3] = {1, 1, 1};
    bool threeHdus = false;
    bool integerOverflow = false; ///< neither integer type of the BITPIX holds the values
    std::vector<double> first;    ///< the first width x height samples as doubles
};

Truth AskCfitsio(const std::string& path) {
    ImageFileGuard guard;
    Truth t;
    int status = 0;
    fitsfile* f = nullptr;
    if (ffdkopn(&f, path.c_str(), READONLY, &status))
        return t;
    ffgidm(f, &t.naxis, &status);
    if (t.naxis == 0) {
        ffmrhd(f, 1, nullptr, &status);
        ffgidm(f, &t.naxis, &status);
        t.compressed = true;
    }
    ffgidt(f, &t.bitpix, &status);
    ffgiszll(f, std::min(t.naxis, 3), t.axes, &status);
    const long long count = t.axes[0] * t.axes[1];
    t.first.resize(static_cast<std::size_t>(count));
    double one = 1, anyNull = 0;
    int nullFlag = 0;
    ffgpv(f, TDOUBLE, 1, count, &one, t.first.data(), &nullFlag, &status);
    (void)anyNull;
    t.ok = status == 0;
    if (t.ok && (t.bitpix == SHORT_IMG || t.bitpix == LONG_IMG)) {
        // cfitsio rounds scaled values into the integer type; both types may overflow.
        std::vector<long long> scratch(static_cast<std::size_t>(count));
        const int types[2] = {t.bitpix == SHORT_IMG ? TSHORT : TINT,
                              t.bitpix == SHORT_IMG ? TUSHORT : TUINT};
        int failures = 0;
        for (int type : types) {
            int s = 0;
            long long zero = 0;
            ffgpv(f, type, 1, count, &zero, scratch.data(), &nullFlag, &s);
            failures += s == NUM_OVERFLOW;
        }
        t.integerOverflow = failures == 2;
    }
    int hduType = 0, s2 = 0;
    long long axes[2] = {0, 0};
    int matches = 0;
    for (int k = 0; k < 2; ++k) {
        if (ffmrhd(f, 1, &hduType, &s2) || hduType != IMAGE_HDU)
            break;
        ffgiszll(f, 2, axes, &s2);
        if (s2 || axes[0] != t.axes[0] || axes[1] != t.axes[1])
            break;
        ++matches;
    }
    t.threeHdus = matches == 2;
    int closeStatus = 0;
    ffclos(f, &closeStatus);
    return t;
}

TEST(FitsRealData, EveryFileReadsAsCfitsioDescribesIt) {
    const std::string root = test::RealData("fits");
    if (root.empty())
        GTEST_SKIP() << "real FITS data is not present";
    int files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file())
            continue;
        const std::string path = entry.path().string();
        SCOPED_TRACE(path);
        ++files;
        const Truth t = AskCfitsio(path);
        ASSERT_TRUE(t.ok);
        Image img;
        const bool read = img.ReadFITS(path);
        const std::string reason = LastFileError();
        bool color = false;
        ASSERT_TRUE(ProbeFITS(path, &color)) << LastFileError();
        // A third axis of fewer than three planes is a gray image.
        const bool expectColor = t.naxis == 3 ? t.axes[2] >= 3 : t.threeHdus;
        EXPECT_EQ(color, expectColor);
        ASSERT_TRUE(read) << reason;
        EXPECT_EQ(img.width, t.axes[0]);
        EXPECT_EQ(img.height, t.axes[1]);
        EXPECT_EQ(img.fitsCompress, t.compressed);
        EXPECT_EQ(img.colorType, expectColor ? ColorRGB : ColorGray);
        EXPECT_EQ(img.dataType, DataTypeOfBitpix(t.bitpix));
        EXPECT_FALSE(img.headerCards.empty());
        // Every pixel of the first plane: the sample clamped to 0..65535, 8-bit scaled up.
        std::size_t wrong = 0;
        for (std::size_t i = 0; i < t.first.size(); ++i) {
            double v = t.first[i];
            if (t.bitpix == BYTE_IMG)
                v = v * 65535.0 / 255.0;
            else if (t.bitpix > 0 && !t.integerOverflow)
                v = std::trunc(v); // cfitsio truncates scaled values into integers
            else if (t.integerOverflow)
                v = static_cast<float>(v); // beyond both integer types: read as floats
            const float want = static_cast<float>(std::clamp(v, 0.0, 65535.0));
            if (img.curPlane[0][i] != want && ++wrong < 5)
                ADD_FAILURE() << "pixel " << i << ": " << img.curPlane[0][i] << " != " << want;
        }
        EXPECT_EQ(wrong, 0u);
    }
    EXPECT_GT(files, 0);
}

TEST(FitsRealData, KnownFacts) {
    struct Case {
        const char* file;
        int width, height;
        std::uint32_t colorType;
        std::uint32_t dataType;
        bool compressed;
    };
    for (const Case& c :
         {Case{"fits/bayer/panoptes_solved.fits.fz", 700, 700, ColorGray, Data16, true},
          Case{"fits/stack_m13/M13_blue_0001.fits", 1392, 1040, ColorGray, Data16, false},
          Case{"fits/starfield/kanma_stars_rgb16.fits", 120, 120, ColorRGB, Data16, false},
          Case{"fits/planetary/afm_jupiter.fits", 800, 800, ColorRGB, Data8, false},
          Case{"fits/wcs/gc_2mass_j.fits", 721, 720, ColorGray, Data16, false},
          Case{"fits/wcs/spitzer_example_image.fits", 1025, 513, ColorGray, DataFloat, false}}) {
        const std::string path = test::RealData(c.file);
        if (path.empty()) {
            std::printf("%s is absent: skipped\n", c.file);
            continue;
        }
        SCOPED_TRACE(c.file);
        Image img;
        ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
        EXPECT_EQ(img.width, c.width);
        EXPECT_EQ(img.height, c.height);
        EXPECT_EQ(img.colorType, c.colorType);
        EXPECT_EQ(img.dataType, c.dataType);
        EXPECT_EQ(img.fitsCompress, c.compressed);
    }
    // The M13 frames are BITPIX 16 with BZERO 32768 (stored samples are negative): a
    // median near the pedestal of about 510 shows BZERO applied.
    const std::string m13 = test::RealData("fits/stack_m13/M13_blue_0001.fits");
    if (!m13.empty()) {
        Image img;
        ASSERT_TRUE(img.ReadFITS(m13));
        EXPECT_EQ(std::stod(test::KeyText(m13, 1, "BZERO")), 32768.0);
        std::vector<float> pixels(img.curPlane[0], img.curPlane[0] + img.pixelCount);
        std::nth_element(pixels.begin(), pixels.begin() + pixels.size() / 2, pixels.end());
        EXPECT_GT(pixels[pixels.size() / 2], 400.0f);
        EXPECT_LT(pixels[pixels.size() / 2], 2000.0f);
    }
}

} // namespace
} // namespace astrivelle
