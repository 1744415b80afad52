// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The picture of an image: DIB rows to a QImage, the Auto Stretch range and mapping,
/// the pixel readout, zoom through the scale list, and the histogram panel's bins.
// The engine first: its parallel headers use words that Qt defines as macros.
#include "TestSupport.h"
#include "ToolFrameTestSupport.h"
#include "engine/Dib.h"
#include "engine/ProcessWindow.h"

#include <gtest/gtest.h>

#include <QScrollBar>

#include <cstring>
#include <vector>

#include "shell/HistogramPanel.h"
#include "shell/ImageView.h"

using namespace astrivelle;
using namespace astrivelle::test;

TEST(DibToQImage, EightBitRowsComeOutTopDownWithTheColourTable) {
    CDib dib;
    ASSERT_TRUE(dib.CreateEightBit(5, 3)); // stride 8: three bytes of padding per row
    dib.SetDibPalette(ColorRed);
    for (int row = 0; row < 3; ++row)
        for (int x = 0; x < 5; ++x)
            dib.Row(row)[x] = static_cast<std::uint8_t>(10 * row + x);
    const QImage pic = DibToQImage(dib);
    ASSERT_EQ(pic.format(), QImage::Format_Indexed8);
    ASSERT_EQ(pic.size(), QSize(5, 3));
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x)
            EXPECT_EQ(pic.pixelIndex(x, y), 10 * (2 - y) + x) << x << "," << y;
    // The red ramp of a red image: entry i is (i, 0, 0).
    EXPECT_EQ(pic.color(200), qRgb(200, 0, 0));
    EXPECT_TRUE(DibToQImage(CDib()).isNull());
}

TEST(DibToQImage, TwentyFourBitBgrBecomesRgb) {
    CDib dib;
    ASSERT_TRUE(dib.CreateTwentyFourBit(3, 2)); // stride 12: three bytes of padding
    for (int row = 0; row < 2; ++row)
        for (int x = 0; x < 3; ++x) {
            std::uint8_t* p = dib.Row(row) + 3 * x;
            p[0] = static_cast<std::uint8_t>(x);         // blue
            p[1] = static_cast<std::uint8_t>(100 + row); // green
            p[2] = static_cast<std::uint8_t>(200 + x);   // red
        }
    const QImage pic = DibToQImage(dib);
    ASSERT_EQ(pic.size(), QSize(3, 2));
    EXPECT_EQ(pic.pixel(2, 0), qRgb(202, 101, 2)) << "top row is the last stored row";
    EXPECT_EQ(pic.pixel(0, 1), qRgb(200, 100, 0));
}

TEST(DisplayPicture, WithoutAdjustmentShowsFillDibLevels) {
    Image img;
    MakeImage(img, 4, 3, ColorGray,
              [](int, int x, int y) { return x == 0 ? 65535 : 257 * (x + 10 * y); });
    const QImage pic = DisplayPicture(img, false);
    ASSERT_EQ(pic.size(), QSize(4, 3));
    EXPECT_EQ(pic.pixelIndex(0, 2), 255);
    EXPECT_EQ(pic.pixelIndex(3, 0), 3);
    EXPECT_EQ(pic.pixelIndex(2, 2), 22);
    EXPECT_EQ(pic.color(22), qRgb(22, 22, 22));
}

TEST(AutoStretchCurve, RobustRangeAndTheBackgroundAtAQuarter) {
    // A sky of levels 990..1010 (100 pixels each) and ten saturated star pixels.
    std::vector<std::uint32_t> sky(65536, 0);
    for (int v = 990; v <= 1010; ++v)
        sky[v] = 100;
    sky[60000] = 10;
    const StretchCurve c = AutoStretchCurve(sky);
    // Median 1000, MAD 5: 1000 - 2.8 * 1.4826 * 5 lies below the darkest level, 990.
    EXPECT_DOUBLE_EQ(c.low, 990);
    EXPECT_DOUBLE_EQ(c.high, 60000); // the 99.95% level is a star's
    EXPECT_EQ(StretchByte(c, 1000), 64) << "the median at a quarter of the display";
    EXPECT_EQ(StretchByte(c, 990), 0);
    EXPECT_EQ(StretchByte(c, 60000), 255);
    EXPECT_GT(StretchByte(c, 1010), StretchByte(c, 1000) + 20) << "faint detail lifted";
    int last = -1;
    for (int v = 0; v < 65536; v += 97) {
        EXPECT_GE(StretchByte(c, v), last) << v;
        last = StretchByte(c, v);
    }

    // A wide sky: median 2000, MAD 500; 2000 - 2.8 * 741.3 is under the darkest level, so
    // the range is 1000..2999 and the median sits in the middle, above a quarter: a line.
    std::vector<std::uint32_t> wide(65536, 0);
    for (int v = 1000; v <= 3000; ++v)
        wide[v] = 1;
    const StretchCurve w = AutoStretchCurve(wide);
    EXPECT_DOUBLE_EQ(w.low, 1000);
    EXPECT_DOUBLE_EQ(w.high, 2999); // 99.95% of 2001 levels
    EXPECT_DOUBLE_EQ(w.midtone, 0.5);
    EXPECT_EQ(StretchByte(w, 2000), 128);

    // A narrow peak on a wide floor: the black point is 2.8 spreads under the median.
    std::vector<std::uint32_t> peak(65536, 0);
    for (int v = 0; v <= 2000; ++v)
        peak[v] = 1;
    for (int v = 1900; v <= 1950; ++v)
        peak[v] += 200;
    const StretchCurve p = AutoStretchCurve(peak);
    EXPECT_GT(p.low, 1800);
    EXPECT_LT(p.low, 1900);

    std::vector<std::uint32_t> flat(65536, 0);
    flat[500] = 7;
    const StretchCurve f = AutoStretchCurve(flat);
    EXPECT_DOUBLE_EQ(f.low, 500);
    EXPECT_DOUBLE_EQ(f.high, 501);
    EXPECT_EQ(StretchByte(f, 500), 0);
    const StretchCurve none = AutoStretchCurve(std::vector<std::uint32_t>(65536, 0));
    EXPECT_DOUBLE_EQ(none.low, 0);
    EXPECT_DOUBLE_EQ(none.high, 65535);
}

TEST(DisplayPicture, AutoStretchLiftsTheSkyAndLeavesThePixels) {
    Image img;
    // A sky rising from 950 by 3 a pixel (plus 10 per slot), one bright star.
    MakeImage(img, 8, 4, ColorRGB, [](int s, int x, int y) {
        if (x == 7 && y == 3)
            return 60000.0;
        return 950.0 + 3 * (x + 8 * y) + 10 * s;
    });
    std::vector<float> kept(img.curPlane[0], img.curPlane[0] + 32);
    const QImage pic = DisplayPicture(img, true);
    ASSERT_EQ(pic.size(), QSize(8, 4));
    for (int s = 0; s < 3; ++s) {
        std::vector<std::uint32_t> counts(65536, 0);
        for (int i = 0; i < 32; ++i)
            ++counts[static_cast<int>(img.curPlane[s][i])];
        const StretchCurve curve = AutoStretchCurve(counts);
        const QRgb dark = pic.pixel(0, 0), light = pic.pixel(0, 2);
        const int d = s == 0 ? qRed(dark) : s == 1 ? qGreen(dark) : qBlue(dark);
        const int l = s == 0 ? qRed(light) : s == 1 ? qGreen(light) : qBlue(light);
        EXPECT_EQ(d, StretchByte(curve, 950 + 10 * s)) << s;
        EXPECT_EQ(l, StretchByte(curve, 998 + 10 * s)) << s;
        EXPECT_GT(l - d, 40) << "the sky's spread becomes visible";
    }
    EXPECT_EQ(pic.pixel(7, 3), qRgb(255, 255, 255));
    // Without the adjustment the same sky is nearly black.
    EXPECT_LE(qRed(DisplayPicture(img, false).pixel(0, 2)), 5);
    EXPECT_EQ(0, std::memcmp(kept.data(), img.curPlane[0], 32 * sizeof(float)));
}

TEST(PixelReadout, ValuesByColourTypeAndNothingOutside) {
    Image gray, rgb, red;
    MakeImage(gray, 5, 4, ColorGray, [](int, int x, int y) { return 100 + x + 10 * y; });
    MakeImage(rgb, 5, 4, ColorRGB, [](int s, int x, int y) { return 1000 * (s + 1) + x + 10 * y; });
    MakeImage(red, 5, 4, ColorRed, [](int, int x, int y) { return 7 * x + y; });
    EXPECT_EQ(PixelReadout(gray, 4, 3).toStdString(), "X: 4  Y: 3  Value: 134");
    EXPECT_EQ(PixelReadout(rgb, 1, 2).toStdString(), "X: 1  Y: 2  R: 1021  G: 2021  B: 3021");
    EXPECT_EQ(PixelReadout(red, 2, 1).toStdString(), "X: 2  Y: 1  Value: 15");
    for (auto [x, y] : {std::pair{-1, 0}, {5, 0}, {0, 4}, {0, -1}})
        EXPECT_TRUE(PixelReadout(gray, x, y).isEmpty()) << x << "," << y;
}

TEST(ImageView, ZoomStepsThroughTheScaleListAndMapsPoints) {
    ToolTestApp();
    CProcessWindow window;
    MakeImage(window.image, 100, 50, ColorGray, [](int, int x, int) { return 600.0 * x; });
    window.image.ComputeStatistics();
    ImageView view(&window);
    view.resize(400, 300);
    view.FitToWindow();
    EXPECT_TRUE(view.Fitted());
    EXPECT_NEAR(view.Scale(), view.viewport()->width() / 100.0, 1e-9);

    view.SetScale(0.45);
    view.ZoomIn();
    EXPECT_DOUBLE_EQ(view.Scale(), 0.5);
    view.ZoomIn();
    EXPECT_DOUBLE_EQ(view.Scale(), 0.6);
    view.ZoomOut();
    EXPECT_DOUBLE_EQ(view.Scale(), 0.5);
    view.SetScale(0.1);
    view.ZoomOut();
    EXPECT_DOUBLE_EQ(view.Scale(), 0.08) << "below the list: a quarter smaller";
    view.SetScale(2.0);
    view.ZoomIn();
    EXPECT_DOUBLE_EQ(view.Scale(), 2.5);
    EXPECT_FALSE(view.Fitted());
    ASSERT_EQ(DisplayScales().size(), 20u);

    // At scale 2 each pixel is 2 x 2 screen points; the centre of a pixel maps back to it.
    view.SetScale(2.0);
    for (auto [x, y] : {std::pair{0, 0}, {10, 20}, {99, 49}}) {
        int px = -1, py = -1;
        ASSERT_TRUE(view.ImagePoint(view.ViewportPoint(x, y), &px, &py)) << x;
        EXPECT_EQ(px, x);
        EXPECT_EQ(py, y);
    }
    // Panning with the scroll bars moves the picture under the pointer (8 points a pixel).
    view.SetScale(8.0);
    int px = 0, py = 0;
    const QPoint at = view.ViewportPoint(10, 20);
    view.horizontalScrollBar()->setValue(view.horizontalScrollBar()->value() + 80);
    ASSERT_TRUE(view.ImagePoint(at, &px, &py));
    EXPECT_EQ(px, 20);
    EXPECT_EQ(py, 20);

    // Auto Stretch changes the picture only.
    const int before = view.Picture().pixelIndex(50, 10);
    view.SetAutoStretch(true);
    EXPECT_NE(view.Picture().pixelIndex(50, 10), before);
    EXPECT_FLOAT_EQ(window.image.curPlane[0][10 * 100 + 50], 30000.0f);
}

TEST(HistogramPanel, DisplayBinsPerChannel) {
    ToolTestApp();
    CProcessWindow gray, rgb;
    MakeImage(gray.image, 16, 4, ColorGray, [](int, int x, int) { return x < 12 ? 300 : 65535; });
    MakeImage(rgb.image, 4, 4, ColorRGB, [](int s, int, int) { return 256.0 * 10 * (s + 1); });
    const auto g = DisplayHistograms(gray);
    ASSERT_EQ(g.size(), 1u);
    EXPECT_EQ(g[0][1], 48u);
    EXPECT_EQ(g[0][255], 16u);
    const auto c = DisplayHistograms(rgb);
    ASSERT_EQ(c.size(), 3u);
    for (int s = 0; s < 3; ++s)
        EXPECT_EQ(c[s][10 * (s + 1)], 16u) << s;

    gray.image.ComputeStatistics();
    HistogramPanel panel;
    panel.ShowImage(&gray);
    EXPECT_NE(panel.MeasuresText().indexOf(QStringLiteral("Max: 65535")), -1)
        << panel.MeasuresText().toStdString();
    panel.ShowImage(nullptr);
    EXPECT_TRUE(panel.MeasuresText().isEmpty());
}
