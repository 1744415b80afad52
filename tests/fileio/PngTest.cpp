// SPDX-License-Identifier: GPL-3.0-or-later
/// \file PNG previews: grey and RGB images written as 8-bit PNG, read back through libpng's own
/// decoder (bytes are the nearest level divided by 257) and accepted by pngcheck; the save-type
/// keyword and a failed write.
#include <gtest/gtest.h>
#include <png.h>

#include <filesystem>
#include <vector>

#include "TestSupport.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/SaveType.h"

using namespace astrivelle;

namespace {

/// Decodes a PNG to bytes in the file's own layout (grey or RGB); false when libpng refuses.
bool DecodePng(const std::string& path, bool rgb, int* w, int* h, std::vector<std::uint8_t>* out) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str()))
        return false;
    image.format = rgb ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    out->resize(PNG_IMAGE_SIZE(image));
    const bool ok = png_image_finish_read(&image, nullptr, out->data(), 0, nullptr) != 0;
    *w = static_cast<int>(image.width);
    *h = static_cast<int>(image.height);
    return ok;
}

} // namespace

TEST(Png, GreyAndColourRoundTripAsBytes) {
    test::ScratchDir dir;
    // Levels around the byte boundaries: 257 k and 257 k +- 0.5, the ends, and out of range.
    const std::vector<float> levels = {0,       -5,      128.5f,  256.9f, 257,     385.49f,
                                       385.51f, 32767.f, 65535.f, 70000,  65278.f, 12345.6f};
    auto expected = [](float v) { return static_cast<int>(RoundLevel16(v) / 257); };
    struct Case {
        const char* name;
        std::uint32_t colorType;
        bool rgb;
    };
    for (const Case& c : {Case{"grey", ColorGray, false}, Case{"rgb", ColorRGB, true},
                          Case{"green", ColorGreen, false}}) {
        SCOPED_TRACE(c.name);
        const int w = 4, h = 3;
        Image img;
        img.SetGeometryFits(KindFITS, c.colorType, 0, Data16, w, h);
        ASSERT_TRUE(img.AllocateCurrentPlanes(c.rgb ? 3 : 1));
        const std::vector<int> slots = img.Slots();
        for (std::size_t s = 0; s < slots.size(); ++s)
            for (int i = 0; i < w * h; ++i)
                img.curPlane[slots[s]][i] = levels[(i + 5 * s) % levels.size()];
        const std::string path = dir.file(std::string(c.name) + ".png");
        ASSERT_TRUE(img.WriteFile(path, KindPNG)) << LastFileError();

        int rw = 0, rh = 0;
        std::vector<std::uint8_t> bytes;
        ASSERT_TRUE(DecodePng(path, c.rgb, &rw, &rh, &bytes));
        ASSERT_EQ(rw, w);
        ASSERT_EQ(rh, h);
        const int channels = c.rgb ? 3 : 1;
        for (int i = 0; i < w * h; ++i)
            for (int k = 0; k < channels; ++k)
                EXPECT_EQ(bytes[i * channels + k], expected(img.curPlane[slots[k]][i]))
                    << "pixel " << i << " channel " << k;
        if (test::HaveProgram("pngcheck")) {
            std::string out;
            EXPECT_EQ(test::RunCommand("pngcheck " + path, &out), 0) << out;
        }
    }
    if (!test::HaveProgram("pngcheck"))
        GTEST_SKIP() << "pngcheck not installed: the files were checked by libpng alone";
}

TEST(Png, SaveTypeAndFailedWrite) {
    const SaveTypeEntry* png = FindSaveType("PNG");
    ASSERT_NE(png, nullptr);
    EXPECT_EQ(png->fileKind, KindPNG);
    EXPECT_STREQ(png->extension, ".png");
    EXPECT_TRUE(IsKnownSaveType("PNG", true));
    EXPECT_FALSE(IsKnownSaveType("PNG", false)) << "offered only where files are converted";

    Image img;
    img.SetGeometryFits(KindFITS, ColorGray, 0, Data16, 2, 2);
    ASSERT_TRUE(img.AllocateCurrentPlanes(1));
    test::ScratchDir dir;
    const std::string path = dir.file("missing/x.png");
    EXPECT_FALSE(img.WriteFile(path, KindPNG));
    EXPECT_NE(LastFileError().find("Could not write the PNG file"), std::string::npos)
        << LastFileError();
    EXPECT_FALSE(std::filesystem::exists(path));
}
