// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Bayer command on an open image: a new colour image "BINT_" + name beside the
/// mosaic, with the mosaic's history under its own heading, and the refusals.
#include <gtest/gtest.h>

#include "MainWindowTestSupport.h"
#include "calibration/Bayer.h"

using namespace astrivelle;
using namespace astrivelle::test;

TEST(BayerImage, NewColourImageBesideTheMosaicWithItsHistory) {
    MainBench b;
    CProcessWindow* src = b.main.OpenImageFile(b.Fits("M27.fit", 10, 8, ColorGray));
    ASSERT_NE(src, nullptr);
    const std::string path = src->filePath;

    CProcessWindow* color = b.main.BayerInterpolateImage("RG,GB", false, false);
    ASSERT_NE(color, nullptr) << b.LastMessage();
    EXPECT_EQ(b.main.ActiveImage(), color);
    EXPECT_EQ(color->filePath, b.dir.file("BINT_M27.fit"));
    EXPECT_EQ(color->image.colorType, ColorRGB);
    EXPECT_EQ(color->image.width, 8);
    EXPECT_EQ(color->image.height, 6);
    Image direct;
    std::string error;
    ASSERT_TRUE(InterpolateBayerImage(src->image, "RG,GB", false, false, &direct, &error)) << error;
    for (int s = 0; s < 3; ++s)
        for (std::uint32_t i = 0; i < direct.pixelCount; ++i) {
            ASSERT_EQ(color->image.curPlane[s][i], direct.curPlane[s][i]) << s << " " << i;
            ASSERT_EQ(color->image.prevPlane[s][i], direct.curPlane[s][i]) << s << " " << i;
        }
    ASSERT_EQ(color->history.size(), 1u);
    EXPECT_EQ(color->history[0].operation, "Bayer CFA Interpolation");
    EXPECT_EQ(color->history[0].prevImageFile, path);
    EXPECT_EQ(color->history[0].parameters,
              " #Processing Before Bayer CFA Interpolation:#Previous Image : " + path +
                  "#Current Image : " + path + "#Read#");

    // The name beside it is taken now: a numbered name in the save folder.
    CProcessWindow* again = b.main.BayerInterpolateImage("RG,GB", false, false, src);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->filePath, b.dir.file("BINT_M27_1.fit"));
    // No folder to save in: the default project folder, told with its path.
    b.main.lastFolder = b.Touch("plainfile") + "/sub";
    CProcessWindow* third = b.main.BayerInterpolateImage("RG,GB", false, false, src);
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(b.LastMessage(), "Using Default Project Save Path:\n" + b.main.projectFolder);
    EXPECT_EQ(third->filePath,
              (std::filesystem::path(b.main.projectFolder) / "BINT_M27_1.fit").string());
}

TEST(BayerImage, Refusals) {
    MainBench b;
    EXPECT_EQ(b.main.BayerInterpolateImage("RG,GB", false, false), nullptr);
    EXPECT_EQ(b.LastMessage(), "Please Open An Image First.");
    ASSERT_NE(b.main.OpenImageFile(b.Fits("rgb.fit", 6, 6, ColorRGB)), nullptr);
    EXPECT_EQ(b.main.BayerInterpolateImage("RG,GB", false, false), nullptr);
    EXPECT_EQ(b.LastMessage(), "Image must be a monochrome CFA .");
    ASSERT_NE(b.main.OpenImageFile(b.Fits("tiny.fit", 2, 2, ColorGray)), nullptr);
    EXPECT_EQ(b.main.BayerInterpolateImage("RG,GB", false, false), nullptr);
    EXPECT_EQ(b.LastMessage(), "The Image Is Too Small to Interpolate.");
    EXPECT_EQ(b.main.imageCount(), 2);
}
