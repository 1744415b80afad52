// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Screenshots of the main window with an image open, plain and with Auto Stretch, saved
/// as PNG files for a person to look at, and checked not to be blank.
// The engine first: its parallel headers use words that Qt defines as macros.
#include "TestSupport.h"
#include "ToolFrameTestSupport.h"
#include "engine/SystemOptions.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QImage>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QPixmap>
#include <QSet>

#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "shell/ImageView.h"
#include "shell/MainFrame.h"
#include "shell/QtNotify.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

/// A small night sky: a gradient with noise, a faint nebula and coloured stars.
std::string WriteSky(const std::string& path) {
    Image img;
    unsigned seed = 12345;
    auto noise = [&seed] {
        seed = seed * 1664525u + 1013904223u;
        return ((seed >> 8) & 0xFFFF) / 65535.0 - 0.5;
    };
    struct Star {
        double x, y, peak, sigma, r, g, b;
    };
    std::vector<Star> stars;
    for (int i = 0; i < 90; ++i) {
        const double x = 480 * (0.5 + noise()), y = 320 * (0.5 + noise());
        const double bright = std::pow(0.5 + noise(), 4.0);
        const double tint = noise();
        stars.push_back(
            {x, y, 2000 + 60000 * bright, 1.0 + 2.2 * bright, 1 + tint * 0.4, 1.0, 1 - tint * 0.4});
    }
    MakeImage(img, 480, 320, ColorRGB, [&](int s, int x, int y) {
        double v = 1200 + 1.5 * x + 0.8 * y + 30 * noise();
        const double nx = (x - 300) / 90.0, ny = (y - 140) / 60.0;
        v += (s == 0 ? 900 : s == 1 ? 300 : 600) * std::exp(-(nx * nx + ny * ny));
        for (const Star& st : stars) {
            const double dx = x - st.x, dy = y - st.y;
            const double d2 = dx * dx + dy * dy;
            if (d2 < 100)
                v += st.peak *
                     (s == 0   ? st.r
                      : s == 1 ? st.g
                               : st.b) *
                     std::exp(-d2 / (2 * st.sigma * st.sigma));
        }
        return std::min(v, 65535.0);
    });
    img.fitsCompress = false;
    EXPECT_TRUE(img.WriteFile(path, KindFITS));
    return path;
}

int DistinctColours(const QImage& image) {
    QSet<QRgb> seen;
    const QImage rgb = image.convertToFormat(QImage::Format_RGB32);
    for (int y = 0; y < rgb.height(); y += 2)
        for (int x = 0; x < rgb.width(); x += 2)
            seen.insert(rgb.pixel(x, y));
    return static_cast<int>(seen.size());
}

} // namespace

TEST(Screenshot, MainWindowWithAnImagePlainAndStretched) {
    ToolTestApp();
    ScratchDir dir;
    const CSetupParams kept = Options().setup;
    const std::string keptHome = std::getenv("HOME") ? std::getenv("HOME") : "";
    std::filesystem::create_directories(dir.file("home"));
    setenv("HOME", dir.file("home").c_str(), 1);
    const QString folder = QStringLiteral(ASTRIVELLE_SCREENSHOTS);
    ASSERT_TRUE(QDir().mkpath(folder));
    {
        MainFrame frame(dir.file("QXSP600.qxp"));
        frame.Notifier().SetRecording(true);
        frame.resize(1100, 720);
        frame.show();
        ASSERT_EQ(frame.OpenFiles({QString::fromStdString(WriteSky(dir.file("M42.fit")))}), 1)
            << frame.Notifier().LastMessage();
        // A second, monochrome image beside it: two frames tiled, the sky active.
        {
            Image mono;
            MakeImage(mono, 200, 150, ColorGray,
                      [](int, int x, int y) { return 800.0 + 120.0 * x + 40.0 * y; });
            mono.fitsCompress = false;
            ASSERT_TRUE(mono.WriteFile(dir.file("Ramp.fit"), KindFITS));
        }
        ASSERT_EQ(frame.OpenFiles({QString::fromStdString(dir.file("Ramp.fit"))}), 1);
        frame.Area()->tileSubWindows();
        frame.Area()->setActiveSubWindow(frame.Area()->subWindowList().front());
        for (QMdiSubWindow* sub : frame.Area()->subWindowList())
            if (auto* image = qobject_cast<ImageSubWindow*>(sub))
                image->View()->FitToWindow();
        QApplication::processEvents();

        const QImage plain = frame.grab().toImage();
        ASSERT_FALSE(plain.isNull());
        EXPECT_TRUE(plain.save(folder + QStringLiteral("/main_window.png")));
        EXPECT_GT(DistinctColours(plain), 16);

        frame.Action(QStringLiteral("actionAutoStretch"))->trigger();
        QApplication::processEvents();
        const QImage stretched = frame.grab().toImage();
        EXPECT_TRUE(stretched.save(folder + QStringLiteral("/main_window_auto_stretch.png")));
        EXPECT_GT(DistinctColours(stretched), DistinctColours(plain))
            << "the stretch shows more of the sky";
        EXPECT_NE(plain, stretched);
        EXPECT_TRUE(frame.Notifier().RecordedMessages().empty()) << frame.Notifier().LastMessage();
    }
    setenv("HOME", keptHome.c_str(), 1);
    Options().setup = kept;
}

TEST(Screenshot, ARealFrameWithAutoStretch) {
    const std::string real = RealData("fits/stack_m13/M13_blue_0001.fits");
    if (real.empty() || !std::filesystem::exists(real))
        GTEST_SKIP() << "the real data (fits/stack_m13) is not on this machine";
    ToolTestApp();
    ScratchDir dir;
    const CSetupParams kept = Options().setup;
    const std::string keptHome = std::getenv("HOME") ? std::getenv("HOME") : "";
    std::filesystem::create_directories(dir.file("home"));
    setenv("HOME", dir.file("home").c_str(), 1);
    const QString folder = QStringLiteral(ASTRIVELLE_SCREENSHOTS);
    ASSERT_TRUE(QDir().mkpath(folder));
    {
        MainFrame frame(dir.file("QXSP600.qxp"));
        frame.Notifier().SetRecording(true);
        frame.resize(1100, 720);
        frame.show();
        ASSERT_EQ(frame.OpenFiles({QString::fromStdString(real)}), 1)
            << frame.Notifier().LastMessage();
        frame.Area()->activeSubWindow()->showMaximized();
        frame.Action(QStringLiteral("actionAutoStretch"))->trigger();
        QApplication::processEvents();
        const QImage shot = frame.grab().toImage();
        EXPECT_TRUE(shot.save(folder + QStringLiteral("/main_window_m13.png")));
        EXPECT_GT(DistinctColours(shot), 16);
    }
    setenv("HOME", keptHome.c_str(), 1);
    Options().setup = kept;
}
