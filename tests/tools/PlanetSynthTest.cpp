// SPDX-License-Identifier: GPL-3.0-or-later
/// \file astrivelle-synth planet: repeatable bytes, SER layouts per colour mode and depth, and
/// frames that agree with their truth.json (planet centre, shifts, sharpness order, mosaic).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "TestSupport.h"
#include "tools/synth/Json.h"
#include "tools/synth/PlanetScene.h"
#include "tools/synth/SerFile.h"

using namespace astrivelle::synth;
using astrivelle::test::RunCommand;
using astrivelle::test::ScratchDir;
namespace fs = std::filesystem;

namespace {

int Synth(const std::string& args, std::string* output = nullptr) {
    return RunCommand(std::string(ASTRIVELLE_SYNTH) + " " + args, output);
}

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

JsonValue Truth(const ScratchDir& dir) {
    JsonValue v;
    std::string error;
    EXPECT_TRUE(ParseJson(Slurp(dir.file("truth.json")), &v, &error)) << error;
    return v;
}

std::vector<std::uint16_t> Frame(const std::string& path, int index) {
    SerHeader h;
    std::vector<std::uint16_t> s;
    std::string error;
    EXPECT_TRUE(ReadSerHeader(path, &h, &error)) << error;
    EXPECT_TRUE(ReadSerFrame(path, h, index, &s, &error)) << error;
    return s;
}

struct Centre {
    double x = 0, y = 0;
};

/// Centroid of the pixels above `threshold` (the disk's outline, blind to its markings).
Centre MaskCentroid(const std::vector<std::uint16_t>& f, int w, int h, double threshold) {
    double n = 0, sx = 0, sy = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (f[static_cast<std::size_t>(y) * w + x] > threshold) {
                n += 1;
                sx += x;
                sy += y;
            }
    return {sx / n, sy / n};
}

/// Intensity-weighted centroid above the background level.
Centre IntensityCentroid(const std::vector<std::uint16_t>& f, int w, int h, double background) {
    double n = 0, sx = 0, sy = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double v = f[static_cast<std::size_t>(y) * w + x] - background;
            n += v;
            sx += v * x;
            sy += v * y;
        }
    return {sx / n, sy / n};
}

/// Mean squared 4-neighbour Laplacian of the frame binned 2x2 (binning tames the noise).
double Sharpness(const std::vector<std::uint16_t>& f, int w, int h) {
    const int bw = w / 2, bh = h / 2;
    std::vector<double> b(static_cast<std::size_t>(bw) * bh);
    for (int y = 0; y < bh; ++y)
        for (int x = 0; x < bw; ++x) {
            const std::size_t i = static_cast<std::size_t>(2 * y) * w + 2 * x;
            b[static_cast<std::size_t>(y) * bw + x] = f[i] + f[i + 1] + f[i + w] + f[i + w + 1];
        }
    double sum = 0;
    for (int y = 1; y < bh - 1; ++y)
        for (int x = 1; x < bw - 1; ++x) {
            const std::size_t i = static_cast<std::size_t>(y) * bw + x;
            const double lap = 4.0 * b[i] - b[i - 1] - b[i + 1] - b[i - bw] - b[i + bw];
            sum += lap * lap;
        }
    return sum / ((bw - 2.0) * (bh - 2.0));
}

/// A lunar frame's local displacement along `axis` at (x, y) beyond its global shift.
double WarpAt(const PlanetFrameTruth& t, int axis, double x, double y) {
    double d = axis == 0 ? -t.warpMeanX : -t.warpMeanY;
    for (const PlanetWarpWave& wave : t.warp)
        if (wave.axis == axis)
            d += wave.amplitude * std::cos(2 * M_PI * (wave.fx * x + wave.fy * y) + wave.phase);
    return d;
}

const JsonValue& FrameTruthAt(const JsonValue& truth, int index) {
    return truth.Find("frameTruth")->items.at(index);
}

} // namespace

TEST(PlanetSynth, SameSeedGivesTheSameBytes) {
    for (const char* kind : {"", " --lunar"}) {
        ScratchDir a, b, c;
        const std::string common =
            std::string(" --frames 3 --size 64x48 --color RG,GB --depth 16") + kind;
        ASSERT_EQ(Synth("planet --out " + a.path().string() + " --seed 7" + common), 0);
        ASSERT_EQ(Synth("planet --out " + b.path().string() + " --seed 7" + common), 0);
        ASSERT_EQ(Synth("planet --out " + c.path().string() + " --seed 8" + common), 0);
        const std::string ser = *kind ? "lunar.ser" : "planet.ser";
        const std::string first = Slurp(a.file(ser));
        EXPECT_EQ(first.size(), 178u + 3 * 64 * 48 * 2) << kind;
        EXPECT_EQ(first, Slurp(b.file(ser))) << kind;
        EXPECT_EQ(Slurp(a.file("truth.json")), Slurp(b.file("truth.json"))) << kind;
        EXPECT_NE(first, Slurp(c.file(ser))) << kind;
    }
}

TEST(PlanetSynth, HeaderAndSizeForEveryColourModeAndDepth) {
    struct Mode {
        const char* keyword;
        int id, planes;
    };
    const Mode modes[] = {{"MONO", 0, 1},   {"RG,GB", 8, 1}, {"GR,BG", 9, 1}, {"GB,RG", 10, 1},
                          {"BG,GR", 11, 1}, {"RGB", 100, 3}, {"BGR", 101, 3}};
    for (const Mode& m : modes)
        for (int depth : {8, 16}) {
            ScratchDir dir;
            ASSERT_EQ(Synth("planet --out " + dir.path().string() + " --frames 2 --size 40x30 " +
                            "--color " + m.keyword + " --depth " + std::to_string(depth)),
                      0);
            const std::string path = dir.file("planet.ser");
            SerHeader h;
            std::string error;
            ASSERT_TRUE(ReadSerHeader(path, &h, &error)) << error;
            EXPECT_EQ(h.fileId, "Astrivelle");
            EXPECT_EQ(h.colorId, m.id) << m.keyword;
            EXPECT_EQ(h.littleEndian, 0);
            EXPECT_EQ(h.width, 40);
            EXPECT_EQ(h.height, 30);
            EXPECT_EQ(h.depth, depth);
            EXPECT_EQ(h.frames, 2);
            EXPECT_EQ(fs::file_size(path), 178u + 2u * 40 * 30 * (depth / 8) * m.planes)
                << m.keyword << " " << depth;
            const JsonValue t = Truth(dir);
            EXPECT_EQ(t.StringOr("color", ""), m.keyword);
            EXPECT_EQ(t.NumberOr("depth", 0), depth);
        }
}

TEST(PlanetSynth, SixteenBitSamplesReadBackAsTheEightBitFramesScaled) {
    // The same seed draws the same noise, so the two depths differ only by quantisation; a
    // byte-order slip in the 16-bit samples would be far off.
    ScratchDir d8, d16;
    const std::string common = " --frames 2 --size 96x64 --seed 3";
    ASSERT_EQ(Synth("planet --out " + d8.path().string() + common + " --depth 8"), 0);
    ASSERT_EQ(Synth("planet --out " + d16.path().string() + common + " --depth 16"), 0);
    for (int i = 0; i < 2; ++i) {
        const auto a = Frame(d8.file("planet.ser"), i), b = Frame(d16.file("planet.ser"), i);
        ASSERT_EQ(a.size(), b.size());
        int worst = 0;
        for (std::size_t k = 0; k < a.size(); ++k)
            worst = std::max(worst, static_cast<int>(std::abs(b[k] / 257.0 - a[k]) + 0.5));
        EXPECT_LE(worst, 1);
        EXPECT_GT(*std::max_element(b.begin(), b.end()), 30000);
    }
}

TEST(PlanetSynth, TruthDescribesTheRun) {
    ScratchDir dir;
    ASSERT_EQ(Synth("planet --out " + dir.path().string() +
                    " --frames 20 --size 200x150 --seed 11 --color BGR --depth 16"),
              0);
    const JsonValue t = Truth(dir);
    EXPECT_EQ(t.NumberOr("seed", 0), 11);
    EXPECT_EQ(t.NumberOr("width", 0), 200);
    EXPECT_EQ(t.NumberOr("height", 0), 150);
    EXPECT_EQ(t.NumberOr("frames", 0), 20);
    ASSERT_NE(t.Find("lunar"), nullptr);
    EXPECT_FALSE(t.Find("lunar")->boolean);
    const JsonValue* planet = t.Find("planet");
    ASSERT_NE(planet, nullptr);
    EXPECT_DOUBLE_EQ(planet->NumberOr("cx", 0), 100);
    EXPECT_DOUBLE_EQ(planet->NumberOr("cy", 0), 75);
    EXPECT_DOUBLE_EQ(planet->NumberOr("radius", 0), 45);
    const auto& frames = t.Find("frameTruth")->items;
    ASSERT_EQ(frames.size(), 20u);
    std::vector<int> seen(20, 0);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const JsonValue& f = frames[i];
        EXPECT_EQ(f.NumberOr("index", -1), static_cast<double>(i));
        const double sigma = f.NumberOr("blurSigma", -1);
        EXPECT_GE(sigma, 0.5);
        EXPECT_LE(sigma, 3.0);
        EXPECT_LE(std::abs(f.NumberOr("dx", 99)), 6.0);
        EXPECT_LE(std::abs(f.NumberOr("dy", 99)), 6.0);
        const int rank = static_cast<int>(f.NumberOr("sharpnessRank", -1));
        ASSERT_GE(rank, 0);
        ASSERT_LT(rank, 20);
        ++seen[rank];
        for (const JsonValue& g : frames) {
            if (g.NumberOr("blurSigma", 0) < sigma) {
                EXPECT_LT(g.NumberOr("sharpnessRank", 0), rank);
            }
        }
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), 20);
}

TEST(PlanetSynth, PlanetCentreAndShiftsMatchTruth) {
    ScratchDir dir;
    const int w = 320, h = 240, n = 12;
    ASSERT_EQ(Synth("planet --out " + dir.path().string() + " --frames 12 --size 320x240"), 0);
    const JsonValue t = Truth(dir);
    const double cx = t.Find("planet")->NumberOr("cx", 0), cy = t.Find("planet")->NumberOr("cy", 0);
    std::vector<std::vector<std::uint16_t>> frames;
    int sharpest = -1;
    for (int i = 0; i < n; ++i) {
        frames.push_back(Frame(dir.file("planet.ser"), i));
        if (FrameTruthAt(t, i).NumberOr("sharpnessRank", -1) == 0)
            sharpest = i;
    }
    ASSERT_GE(sharpest, 0);
    ASSERT_LT(FrameTruthAt(t, sharpest).NumberOr("blurSigma", 9), 1.0);
    for (int i : {0, sharpest}) {
        const JsonValue& f = FrameTruthAt(t, i);
        const Centre c = MaskCentroid(frames[i], w, h, 25);
        EXPECT_NEAR(c.x, cx + f.NumberOr("dx", 0), 0.3) << "frame " << i;
        EXPECT_NEAR(c.y, cy + f.NumberOr("dy", 0), 0.3) << "frame " << i;
    }
    // Blur keeps the centroid and the markings move with the disk, so centroid differences
    // follow the truth's shifts closely in every frame.
    const Centre c0 = IntensityCentroid(frames[0], w, h, 5.1);
    for (int i = 1; i < n; ++i) {
        const Centre c = IntensityCentroid(frames[i], w, h, 5.1);
        EXPECT_NEAR(c.x - c0.x,
                    FrameTruthAt(t, i).NumberOr("dx", 0) - FrameTruthAt(t, 0).NumberOr("dx", 0),
                    0.1)
            << "frame " << i;
        EXPECT_NEAR(c.y - c0.y,
                    FrameTruthAt(t, i).NumberOr("dy", 0) - FrameTruthAt(t, 0).NumberOr("dy", 0),
                    0.1)
            << "frame " << i;
    }
}

TEST(PlanetSynth, SharpnessMeasureRanksTheExtremesInTruthOrder) {
    for (const char* kind : {"", " --lunar"}) {
        ScratchDir dir;
        const int w = 256, h = 192, n = 10;
        ASSERT_EQ(
            Synth("planet --out " + dir.path().string() + " --frames 10 --size 256x192" + kind), 0);
        const JsonValue t = Truth(dir);
        std::vector<int> byRank(n);
        for (int i = 0; i < n; ++i)
            byRank[static_cast<int>(FrameTruthAt(t, i).NumberOr("sharpnessRank", 0))] = i;
        const std::string ser = dir.file(*kind ? "lunar.ser" : "planet.ser");
        auto measure = [&](int rank) { return Sharpness(Frame(ser, byRank[rank]), w, h); };
        const double s0 = measure(0), s1 = measure(1), s8 = measure(n - 2), s9 = measure(n - 1);
        EXPECT_GT(s0, s8) << kind;
        EXPECT_GT(s0, s9) << kind;
        EXPECT_GT(s1, s8) << kind;
        EXPECT_GT(s1, s9) << kind;
    }
}

TEST(PlanetSynth, MosaicAndInterleaveFollowTheColourMode) {
    // Without noise each mode's samples are exactly the RGB frame's channel of the site.
    ScratchDir rgbDir;
    const std::string common = " --frames 1 --size 48x32 --noise 0 --seed 5";
    ASSERT_EQ(Synth("planet --out " + rgbDir.path().string() + common + " --color RGB"), 0);
    const auto rgb = Frame(rgbDir.file("planet.ser"), 0);
    struct Mode {
        const char* keyword;
        int cell[4]; // channels of the 2x2 cell in row order
    };
    const Mode modes[] = {{"RG,GB", {0, 1, 1, 2}},
                          {"GR,BG", {1, 0, 2, 1}},
                          {"GB,RG", {1, 2, 0, 1}},
                          {"BG,GR", {2, 1, 1, 0}}};
    for (const Mode& m : modes) {
        ScratchDir dir;
        ASSERT_EQ(Synth("planet --out " + dir.path().string() + common + " --color " + m.keyword),
                  0);
        const auto f = Frame(dir.file("planet.ser"), 0);
        ASSERT_EQ(f.size(), 48u * 32);
        int wrong = 0;
        for (int y = 0; y < 32; ++y)
            for (int x = 0; x < 48; ++x) {
                const int ch = m.cell[(y & 1) * 2 + (x & 1)];
                wrong += f[y * 48 + x] != rgb[3 * (y * 48 + x) + ch];
            }
        EXPECT_EQ(wrong, 0) << m.keyword;
    }
    ScratchDir bgrDir;
    ASSERT_EQ(Synth("planet --out " + bgrDir.path().string() + common + " --color BGR"), 0);
    const auto bgr = Frame(bgrDir.file("planet.ser"), 0);
    ASSERT_EQ(bgr.size(), rgb.size());
    for (std::size_t p = 0; p < rgb.size(); p += 3)
        ASSERT_TRUE(bgr[p] == rgb[p + 2] && bgr[p + 1] == rgb[p + 1] && bgr[p + 2] == rgb[p])
            << "pixel " << p / 3;
    // The planet's zones are warm: red above blue at the disk centre.
    const std::size_t centre = 3 * (16 * 48 + 24);
    EXPECT_GT(rgb[centre], rgb[centre + 2] + 10);
}

TEST(PlanetSynth, LunarFramesMoveByTheirTruthShift) {
    // Noise-free frames with equal blur: the shift between two frames found by a search over
    // whole pixels and a gradient refinement matches the truth's shift and warps.
    PlanetSettings s;
    s.width = 256;
    s.height = 192;
    s.frames = 8;
    s.lunar = true;
    s.noise = 0;
    s.blurMin = s.blurMax = 1.0;
    s.seed = 4;
    PlanetScene scene(s);
    const auto& truth = scene.Truth();
    ASSERT_EQ(truth[0].warp.size(), 6u);
    for (const PlanetWarpWave& wave : truth[0].warp) {
        EXPECT_GE(wave.amplitude, 0.2);
        EXPECT_LE(wave.amplitude, 0.45);
    }
    const std::vector<float> a = scene.RenderLinear(0)[0];
    int far = 1;
    for (int i = 2; i < s.frames; ++i)
        if (std::hypot(truth[i].dx - truth[0].dx, truth[i].dy - truth[0].dy) >
            std::hypot(truth[far].dx - truth[0].dx, truth[far].dy - truth[0].dy))
            far = i;
    const std::vector<float> b = scene.RenderLinear(far)[0];
    const double wantX = truth[far].dx - truth[0].dx, wantY = truth[far].dy - truth[0].dy;
    ASSERT_GT(std::hypot(wantX, wantY), 1.0);

    const int w = s.width, m = 20; // compare inside a margin
    auto at = [w](const std::vector<float>& p, double x, double y) {
        const int ix = static_cast<int>(std::floor(x)), iy = static_cast<int>(std::floor(y));
        const double fx = x - ix, fy = y - iy;
        const float* r0 = p.data() + static_cast<std::size_t>(iy) * w;
        const float* r1 = r0 + w;
        return (1 - fy) * ((1 - fx) * r0[ix] + fx * r0[ix + 1]) +
               fy * ((1 - fx) * r1[ix] + fx * r1[ix + 1]);
    };
    // b(x) = a(x - d): first the best whole-pixel d, then Gauss-Newton steps.
    double best = 1e300, dx = 0, dy = 0;
    for (int sy = -8; sy <= 8; ++sy)
        for (int sx = -8; sx <= 8; ++sx) {
            double ssd = 0;
            for (int y = m; y < s.height - m; y += 2)
                for (int x = m; x < w - m; x += 2) {
                    const double e = b[y * w + x] - a[(y - sy) * w + (x - sx)];
                    ssd += e * e;
                }
            if (ssd < best) {
                best = ssd;
                dx = sx;
                dy = sy;
            }
        }
    for (int iter = 0; iter < 6; ++iter) {
        double gxx = 0, gxy = 0, gyy = 0, bx = 0, by = 0;
        for (int y = m; y < s.height - m; ++y)
            for (int x = m; x < w - m; ++x) {
                const double px = x - dx, py = y - dy;
                const double v = at(a, px, py);
                const double gx = 0.5 * (at(a, px + 1, py) - at(a, px - 1, py));
                const double gy = 0.5 * (at(a, px, py + 1) - at(a, px, py - 1));
                const double e = b[y * w + x] - v; // = -(gx ddx + gy ddy)
                gxx += gx * gx;
                gxy += gx * gy;
                gyy += gy * gy;
                bx -= gx * e;
                by -= gy * e;
            }
        const double det = gxx * gyy - gxy * gxy;
        dx += (gyy * bx - gxy * by) / det;
        dy += (gxx * by - gxy * bx) / det;
    }
    // With local warps the frames differ by the truth's shift plus the two frames' warp
    // fields, so the estimate is that displacement weighted by the image gradients (what a
    // gradient refinement finds to first order).
    double gxx = 0, gxy = 0, gyy = 0, ex = 0, ey = 0;
    for (int y = m; y < s.height - m; ++y)
        for (int x = m; x < w - m; ++x) {
            const double px = x - dx, py = y - dy;
            const double gx = 0.5 * (at(a, px + 1, py) - at(a, px - 1, py));
            const double gy = 0.5 * (at(a, px, py + 1) - at(a, px, py - 1));
            const double lx = wantX + WarpAt(truth[far], 0, x, y) - WarpAt(truth[0], 0, x, y);
            const double ly = wantY + WarpAt(truth[far], 1, x, y) - WarpAt(truth[0], 1, x, y);
            gxx += gx * gx;
            gxy += gx * gy;
            gyy += gy * gy;
            ex += gx * (gx * lx + gy * ly);
            ey += gy * (gx * lx + gy * ly);
        }
    const double det = gxx * gyy - gxy * gxy;
    const double expectX = (gyy * ex - gxy * ey) / det, expectY = (gxx * ey - gxy * ex) / det;
    EXPECT_NEAR(dx, expectX, 0.06);
    EXPECT_NEAR(dy, expectY, 0.06);
    EXPECT_NEAR(dx, wantX, 0.3);
    EXPECT_NEAR(dy, wantY, 0.3);
}

TEST(PlanetSynth, UsageErrorsAndHelp) {
    ScratchDir dir;
    const std::string out = " --out " + dir.path().string();
    struct Case {
        std::string args;
        int status;
        const char* says;
    };
    const Case cases[] = {
        {"planet --help", 0, "--lunar"},
        {"planet", 2, "--out DIR is required"},
        {"planet --bogus" + out, 2, "unknown argument --bogus"},
        {"planet --color RGGB" + out, 2, "--color must be MONO"},
        {"planet --depth 12" + out, 2, "--depth must be 8 or 16"},
        {"planet --depth 32" + out, 2, "--depth must be a whole number from 8 to 16"},
        {"planet --frames 0" + out, 2, "--frames must be a whole number"},
        {"planet --size 8x8" + out, 2, "--size must be at least 16x16"},
        {"planet --size 64" + out, 2, "--size must be WIDTHxHEIGHT"},
        {"planet --noise -1" + out, 2, "--noise must be a number"},
        {"planet --blur 3,1" + out, 2, "--blur must be MIN,MAX"},
        {"planet --video mp4" + out, 2, "--video must be avi, mov or mov-png"},
    };
    for (const Case& c : cases) {
        std::string output;
        EXPECT_EQ(Synth(c.args, &output), c.status) << c.args;
        EXPECT_NE(output.find(c.says), std::string::npos) << c.args << ": " << output;
    }
    EXPECT_FALSE(fs::exists(dir.file("planet.ser")));
}
