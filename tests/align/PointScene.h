// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Test scenes for point correlation: Gaussian stars on a flat sky, rendered into frames
/// through a known affine map from sky to frame pixels, so every shift, turn and scale is
/// exact and known.
#pragma once
#include <cmath>
#include <cstdint>
#include <vector>

#include "engine/Image.h"

namespace astrivelle::test {

/// x' = m0 x + m1 y + m2, y' = m3 x + m4 y + m5.
struct Map2 {
    double m[6] = {1, 0, 0, 0, 1, 0};
    void Apply(double x, double y, double* ox, double* oy) const {
        *ox = m[0] * x + m[1] * y + m[2];
        *oy = m[3] * x + m[4] * y + m[5];
    }
    Map2 Inverse() const {
        const double det = m[0] * m[4] - m[1] * m[3];
        Map2 r;
        r.m[0] = m[4] / det;
        r.m[1] = -m[1] / det;
        r.m[3] = -m[3] / det;
        r.m[4] = m[0] / det;
        r.m[2] = -(r.m[0] * m[2] + r.m[1] * m[5]);
        r.m[5] = -(r.m[3] * m[2] + r.m[4] * m[5]);
        return r;
    }
    static Map2 Shift(double dx, double dy) {
        Map2 t;
        t.m[2] = dx;
        t.m[5] = dy;
        return t;
    }
    /// Scale s and turn by `degrees` (counter-clockwise in x right, y down: towards +y) about
    /// (cx, cy), then the shift.
    static Map2 Turn(double degrees, double s, double cx, double cy, double dx, double dy) {
        const double a = degrees * 3.14159265358979323846 / 180.0;
        const double c = s * std::cos(a), n = s * std::sin(a);
        Map2 t;
        t.m[0] = c;
        t.m[1] = -n;
        t.m[3] = n;
        t.m[4] = c;
        t.m[2] = cx - c * cx + n * cy + dx;
        t.m[5] = cy - n * cx - c * cy + dy;
        return t;
    }
};

struct SceneStar {
    double x, y, amplitude;
};

struct Scene {
    std::vector<SceneStar> stars;
    double background = 200;
    double sigma = 2.0;
};

/// `count` stars placed by a fixed generator over w by h (plus the `extra` stars given).
inline Scene MakeScene(int count, int w, int h, std::uint32_t seed,
                       const std::vector<SceneStar>& extra = {}) {
    Scene scene;
    std::uint32_t state = seed;
    auto next = [&] {
        state = state * 1664525u + 1013904223u;
        return (state >> 8) / 16777216.0;
    };
    for (int i = 0; i < count; ++i)
        scene.stars.push_back({next() * w, next() * h, 3000 + next() * 20000});
    scene.stars.insert(scene.stars.end(), extra.begin(), extra.end());
    return scene;
}

/// Three equal stars around (x, y): a pattern no single star can imitate (a lone star of the
/// same shape correlates with it at about 1/sqrt(3), whatever its brightness).
inline std::vector<SceneStar> Asterism(double x, double y, double amplitude) {
    return {{x, y, amplitude}, {x + 5, y - 4, amplitude}, {x - 3, y + 6, amplitude}};
}

/// A monochrome w by h frame of the scene seen through `skyToFrame`.
inline void RenderScene(Image& img, int w, int h, const Scene& scene, const Map2& skyToFrame) {
    img.SetGeometryFits(KindFITS, ColorGray, 0, DataFloat, w, h);
    img.AllocatePlanes(1);
    const int slot = SlotOfColorType(ColorGray);
    float* plane = img.curPlane[slot];
    for (int i = 0; i < w * h; ++i)
        plane[i] = static_cast<float>(scene.background);
    const Map2 frameToSky = skyToFrame.Inverse();
    const double twoS2 = 2 * scene.sigma * scene.sigma;
    for (const SceneStar& s : scene.stars) {
        double fx = 0, fy = 0;
        skyToFrame.Apply(s.x, s.y, &fx, &fy);
        for (int y = static_cast<int>(fy) - 10; y <= static_cast<int>(fy) + 10; ++y)
            for (int x = static_cast<int>(fx) - 10; x <= static_cast<int>(fx) + 10; ++x) {
                if (x < 0 || y < 0 || x >= w || y >= h)
                    continue;
                double sx = 0, sy = 0;
                frameToSky.Apply(x, y, &sx, &sy);
                const double d2 = (sx - s.x) * (sx - s.x) + (sy - s.y) * (sy - s.y);
                plane[static_cast<std::size_t>(y) * w + x] +=
                    static_cast<float>(s.amplitude * std::exp(-d2 / twoS2));
            }
    }
    for (int i = 0; i < w * h; ++i)
        img.prevPlane[slot][i] = plane[i];
}

/// Intensity-weighted centroid above the background in a box of radius r around (x, y).
inline void Centroid(const Image& img, double x, double y, int r, double background, double* cx,
                     double* cy) {
    const float* plane = img.curPlane[SlotOfColorType(img.colorType)];
    double sw = 0, sx = 0, sy = 0;
    for (int j = static_cast<int>(y) - r; j <= static_cast<int>(y) + r; ++j)
        for (int i = static_cast<int>(x) - r; i <= static_cast<int>(x) + r; ++i) {
            if (i < 0 || j < 0 || i >= img.width || j >= img.height)
                continue;
            const double v = plane[static_cast<std::size_t>(j) * img.width + i] - background;
            if (v <= 0)
                continue;
            sw += v;
            sx += v * i;
            sy += v * j;
        }
    *cx = sw > 0 ? sx / sw : x;
    *cy = sw > 0 ? sy / sw : y;
}

} // namespace astrivelle::test
