// SPDX-License-Identifier: GPL-3.0-or-later
/// \file A step blended in an open image and the same record replayed on a fresh copy give the
/// same pixels; replay reads the record's mask file.
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "engine/Blend.h"
#include "engine/ProcessWindow.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

double Start(int s, int x, int y) {
    return 800.0 + 3100.0 * x + 1700.0 * y + 9000.0 * s;
}

/// Blend values as the history tool would set them on the pending step.
struct BlendCase {
    const char* what;
    std::uint32_t colorType;
    int mode;
    double opacity;
    std::uint8_t applyMask;
    std::uint32_t maskLevel;
    bool surface;
    std::uint8_t channelSelect, red, green, blue;
};

void SetValues(CProcessStructure& r, const BlendCase& k) {
    r.blendMode = k.mode;
    r.opacity = k.opacity;
    r.applyMask = k.applyMask;
    r.maskLevel = k.maskLevel;
    if (k.surface)
        for (int i = 0; i < 16; ++i)
            r.maskSurface[i * 3 + 2] = 0.05 * r.maskSurface[i * 3] - 0.1 * (i % 3);
    r.channelSelect = k.channelSelect;
    r.channelRed = k.red;
    r.channelGreen = k.green;
    r.channelBlue = k.blue;
}

} // namespace

TEST(BlendReplay, SkeletonAndReplayGiveTheSamePixels) {
    const BlendCase cases[] = {
        {"mono, Overlay at 0.3", ColorGray, 9, 0.3, 1, 65535, false, 0, 1, 1, 1},
        {"mono, Multiply through a surface", ColorGray, 2, 1.0, 1, 40000, true, 0, 1, 1, 1},
        {"mono, level ignored without ApplyMask", ColorGray, 6, 1.0, 0, 1000, false, 0, 1, 1, 1},
        {"green slot, Difference", ColorGreen, 21, 0.8, 1, 50000, false, 0, 1, 1, 1},
        {"RGB, Screen on red and blue", ColorRGB, 6, 0.7, 1, 65535, false, 1, 1, 0, 1},
        {"RGB, Color through a flat mask", ColorRGB, 26, 1.0, 1, 30000, false, 0, 1, 1, 1},
        {"RGB, Lab Luminosity on green", ColorRGB, 31, 0.5, 1, 65535, true, 1, 0, 1, 0},
        {"RGB, Hard Mix at opacity 0", ColorRGB, 15, 0.0, 1, 65535, false, 0, 1, 1, 1},
    };
    const std::string addText =
        "Operation: Add#Constant: 4321.000#Threshold Min: 0#Threshold Max: 65535#Feather Range: 0#";
    for (const BlendCase& k : cases) {
        RecordingNotify notify;
        CProcessWindow w(&notify);
        MakeImage(w.image, 9, 7, k.colorType, Start);
        w.title = "Orion.fit";
        w.BeginHistory("Read");
        ASSERT_TRUE(w.PixelMathAdd(false, 100, 0, 65535, 0)) << k.what;
        SetValues(w.history[1], k);
        // The repeat runs the operator again and blends with the step's values.
        ASSERT_TRUE(w.PixelMathAdd(false, 4321, 0, 65535, 0)) << k.what;
        EXPECT_TRUE(notify.messages.empty()) << k.what << ": " << notify.messages[0];
        ASSERT_EQ(w.history[1].parameters, addText);

        Image replayed;
        MakeImage(replayed, 9, 7, k.colorType, Start);
        std::string error;
        ASSERT_TRUE(replayed.ApplyCommand(w.history[1], nullptr, nullptr, nullptr, &error))
            << k.what << ": " << error;

        bool changed = false;
        for (int s : w.image.Slots())
            for (std::uint32_t i = 0; i < w.image.pixelCount; ++i) {
                ASSERT_EQ(w.image.curPlane[s][i], replayed.curPlane[s][i])
                    << k.what << " slot " << s << " pixel " << i;
                const float pure = static_cast<float>(Start(s, i % 9, i / 9) + 4321);
                changed = changed || w.image.curPlane[s][i] != std::min(pure, 65535.0f);
            }
        EXPECT_TRUE(changed) << k.what << ": the blend must change the pure result";
    }
}

TEST(BlendReplay, MaskFileRecordBlendsThroughTheFile) {
    ScratchDir dir;
    const int w = 8, h = 5;
    Image mask;
    MakeImage(mask, w, h, ColorGray, [](int, int x, int y) { return 8000.0 * x + 1000.0 * y; });
    const std::string path = dir.file("stars-mask.fit");
    ASSERT_TRUE(mask.WriteFile(path, KindFITS));

    CProcessStructure r;
    r.operation = "Pixel Math";
    r.parameters = "Operation: Add#Constant: 10000.000#Threshold Min: 0#Threshold Max: "
                   "65535#Feather Range: 0#";
    r.luminanceMask = 0;
    r.maskFile = path;
    r.blendMode = 0;
    r.opacity = 1.0;
    Image img;
    MakeImage(img, w, h, ColorGray, [](int, int x, int y) { return 20000.0 + x + y; });
    std::string error;
    ASSERT_TRUE(img.ApplyCommand(r, nullptr, nullptr, nullptr, &error)) << error;
    // Normal through the mask: P + m * 10000, m = mask / 65535.
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double m = (8000.0 * x + 1000.0 * y) / 65535.0;
            EXPECT_NEAR(img.curPlane[0][y * w + x], 20000.0 + x + y + m * 10000, 0.01);
        }

    // A mask of another size fails the record with its text.
    Image big;
    MakeImage(big, w + 1, h, ColorGray, [](int, int, int) { return 100.0; });
    EXPECT_FALSE(big.ApplyCommand(r, nullptr, nullptr, nullptr, &error));
    EXPECT_EQ(error, "Mask width or height does not match current active image.");
}
