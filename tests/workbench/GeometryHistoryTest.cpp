// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Undo and redo across the geometric operators that change an image's size (Scale, and
/// Rotate with Add Border), with the steps in real step files.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

#include "TestSupport.h"
#include "engine/ProcessWindow.h"
#include "engine/workbench/History.h"
#include "operators/Geometry.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

constexpr int kW = 9, kH = 7;

double Origin(int s, int x, int y) {
    return 1000.0 + 37.0 * x + 101.0 * y + 300.0 * s;
}

/// An image read from `M31.fit` in a scratch folder, with the workbench's history.
struct OpenImage {
    ScratchDir dir;
    RecordingNotify notify;
    CProcessWindow w{&notify};
    explicit OpenImage(std::uint32_t type) {
        MakeImage(w.image, kW, kH, type, Origin);
        w.filePath = dir.file("M31.fit");
        w.title = "M31.fit";
        EXPECT_TRUE(w.image.WriteFile(w.filePath, KindFITS));
        AttachHistory(w);
        w.BeginHistory("Read");
    }
    std::vector<std::vector<float>> Planes() const {
        std::vector<std::vector<float>> planes;
        for (int s : w.image.Slots())
            planes.emplace_back(w.image.curPlane[s], w.image.curPlane[s] + w.image.pixelCount);
        return planes;
    }
};

void ExpectPlanesNear(const std::vector<std::vector<float>>& a,
                      const std::vector<std::vector<float>>& b, float tolerance) {
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t k = 0; k < a.size(); ++k) {
        ASSERT_EQ(a[k].size(), b[k].size());
        for (std::size_t i = 0; i < a[k].size(); ++i)
            ASSERT_NEAR(a[k][i], b[k][i], tolerance) << "plane " << k << " at " << i;
    }
}

TEST(GeometryHistory, UndoAndRedoAcrossASizeChange) {
    struct Case {
        const char* label;
        std::function<bool(CProcessWindow&)> run;
        int width, height;
    };
    ScaleStepParams scale;
    scale.factorX = 2.0;
    scale.factorY = 1.5;
    RotateParams rotate;
    rotate.angle = 90;
    rotate.aboutX = 4;
    rotate.aboutY = 3;
    rotate.addBorder = true;
    rotate.interpolation = InterpolateNearest;
    const Case cases[] = {
        {"scale", [&](CProcessWindow& w) { return w.Scale(scale); }, 18, 10},
        {"rotate", [&](CProcessWindow& w) { return w.Rotate(rotate); }, 7, 9},
    };
    for (std::uint32_t type : {ColorGray, ColorRGB})
        for (const Case& c : cases) {
            OpenImage img(type);
            const auto origin = img.Planes();
            ASSERT_TRUE(c.run(img.w)) << c.label;
            ASSERT_EQ(img.w.image.width, c.width) << c.label;
            ASSERT_EQ(img.w.image.height, c.height) << c.label;
            const auto changed = img.Planes();

            ASSERT_TRUE(img.w.Undo()) << c.label;
            EXPECT_EQ(img.w.currentStep, 0);
            ASSERT_EQ(img.w.image.width, kW) << c.label;
            ASSERT_EQ(img.w.image.height, kH);
            ExpectPlanesNear(img.Planes(), origin, 0.0f);

            ASSERT_TRUE(img.w.Redo()) << c.label;
            EXPECT_EQ(img.w.currentStep, 1);
            ASSERT_EQ(img.w.image.width, c.width) << c.label;
            ASSERT_EQ(img.w.image.height, c.height);
            // The step file holds the 16-bit levels of the result.
            ExpectPlanesNear(img.Planes(), changed, 0.5f);

            // An operator after the redo works on the new size and undoes back to it.
            ASSERT_TRUE(img.w.MirrorHorizontal());
            ASSERT_TRUE(img.w.Undo());
            EXPECT_EQ(img.w.image.width, c.width);
            ExpectPlanesNear(img.Planes(), changed, 0.5f);
        }
}

} // namespace
