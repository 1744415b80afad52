// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Planet alignment: the sky bands, the disk centroid, the shift onto the first image's
/// centre, real planetary pairs, and the Auto Align Planet Files worker.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "engine/Image.h"
#include "imagesets/AutoAlignPlanetFiles.h"

namespace astrivelle {
namespace {

namespace fs = std::filesystem;
using test::MakeImage;

constexpr int kW = 160, kH = 120;
constexpr double kSky = 800, kPeak = 30000, kRadius = 25;

/// A limb-darkened disk on a flat sky, its edge softened over about 1.5 pixels as seeing
/// does, each pixel the mean of 4 x 4 sub-samples so that the disk sits at a sub-pixel place.
double DiskValue(double cx, double cy, int x, int y, double radius = kRadius) {
    double sum = 0;
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i) {
            const double dx = x - 0.375 + 0.25 * i - cx, dy = y - 0.375 + 0.25 * j - cy;
            const double r = std::sqrt(dx * dx + dy * dy);
            const double r2 = std::min(1.0, r * r / (radius * radius));
            const double limb = 0.6 + 0.4 * std::sqrt(1.0 - r2);
            sum += limb * 0.5 * (1.0 - std::tanh((r - radius) / 1.5));
        }
    return kSky + kPeak * sum / 16.0;
}

void MakeDisk(Image& img, double cx, double cy, double radius = kRadius) {
    MakeImage(img, kW, kH, ColorGray,
              [&](int, int x, int y) { return DiskValue(cx, cy, x, y, radius); });
}

std::vector<float> Copy(const float* p, const Image& img) {
    return std::vector<float>(p, p + img.pixelCount);
}

TEST(PlanetAlign, AMovedDiskComesBackToTheFirstImagesCentroid) {
    const double ax = 70.3, ay = 55.6;
    struct Move {
        double dx, dy;
    };
    for (const Move m : {Move{6.35, -3.8}, Move{-0.45, 0.2}, Move{-12.7, 9.15}, Move{0.5, 0.5},
                         Move{3.95, -0.05}, Move{-0.25, -20.75}}) {
        Image a, b;
        MakeDisk(a, ax, ay);
        MakeDisk(b, ax + m.dx, ay + m.dy);
        double tx = -1, ty = -1, cxA = 0, cyA = 0, cxB = 0, cyB = 0;
        std::vector<float> outA(a.pixelCount), outB(b.pixelCount);
        ASSERT_TRUE(a.CenterOnDiskMono(false, a.curPlane[0], outA.data(), true, false, &tx, &ty,
                                       &cxA, &cyA));
        // The first image sets the target and keeps its place exactly.
        EXPECT_EQ(tx, cxA);
        EXPECT_EQ(ty, cyA);
        // The nearly flat mask measures the true centre closely; the same bias in both images
        // cancels in the alignment.
        EXPECT_NEAR(cxA, ax, 0.1);
        EXPECT_NEAR(cyA, ay, 0.1);
        EXPECT_EQ(outA, Copy(a.curPlane[0], a));
        ASSERT_TRUE(b.CenterOnDiskMono(false, b.curPlane[0], outB.data(), true, false, &tx, &ty,
                                       &cxB, &cyB));
        EXPECT_EQ(tx, cxA) << "the target stays";
        EXPECT_NEAR(cxB - cxA, m.dx, 0.1);
        EXPECT_NEAR(cyB - cyA, m.dy, 0.1);
        double rx = 0, ry = 0;
        ASSERT_TRUE(b.DiskCentroid(outB.data(), true, &rx, &ry));
        EXPECT_NEAR(rx, tx, 0.05) << m.dx;
        EXPECT_NEAR(ry, ty, 0.05) << m.dy;
        // In place gives the same.
        double tx2 = tx, ty2 = ty;
        ASSERT_TRUE(b.CenterOnDiskMono(true, nullptr, b.curPlane[0], true, false, &tx2, &ty2));
        EXPECT_EQ(Copy(b.curPlane[0], b), outB);
    }
}

TEST(PlanetAlign, CentreInFrameAndTheTruncatedCentroidWithoutSky) {
    Image img;
    MakeDisk(img, 60.7, 70.2);
    double tx = 5, ty = 5; // ignored when centring in the frame
    std::vector<float> out(img.pixelCount);
    ASSERT_TRUE(img.CenterOnDiskMono(false, img.curPlane[0], out.data(), true, true, &tx, &ty));
    EXPECT_EQ(tx, 80.0);
    EXPECT_EQ(ty, 60.0);
    double x = 0, y = 0;
    ASSERT_TRUE(img.DiskCentroid(out.data(), true, &x, &y));
    EXPECT_NEAR(x, 80.0, 0.05);
    EXPECT_NEAR(y, 60.0, 0.05);
    // Without the sky the weights include it and the centre is truncated.
    ASSERT_TRUE(img.DiskCentroid(img.curPlane[0], false, &x, &y));
    EXPECT_EQ(x, std::floor(x));
    EXPECT_EQ(y, std::floor(y));
    EXPECT_GT(x, 60.0) << "the flat sky pulls towards the frame's centre";
}

TEST(PlanetAlign, AnImageWithoutCentroidGoesOnUnshifted) {
    for (double level : {0.0, kSky}) {
        Image img;
        MakeImage(img, kW, kH, ColorGray, [&](int, int x, int y) {
            // The flat sky, and something bright only in the margin, which nobody reads.
            return x < 5 ? 50000.0 : level;
        });
        double tx = -1, ty = -1, cx = -7, cy = -7;
        std::vector<float> out(img.pixelCount, -1.0f);
        double x, y;
        EXPECT_FALSE(img.DiskCentroid(img.curPlane[0], true, &x, &y));
        ASSERT_TRUE(img.CenterOnDiskMono(false, img.curPlane[0], out.data(), true, false, &tx, &ty,
                                         &cx, &cy));
        EXPECT_EQ(out, Copy(img.curPlane[0], img));
        EXPECT_EQ(tx, -1.0) << "no target is set";
        EXPECT_EQ(ty, -1.0);
        EXPECT_EQ(cx, -7.0) << "no centroid is reported";
    }
}

TEST(PlanetAlign, SkyBandsLieFivePixelsInsideAndAreTenWide) {
    struct Case {
        int x, y;
        bool inBand;
    };
    // 60 x 50: bands are rows 5..14 and 35..44 (columns 5..54), columns 5..14 and 45..54.
    const Case cases[] = {
        {2, 20, false},  {5, 20, true},   {14, 20, true},  {15, 20, false}, {45, 20, true},
        {54, 20, true},  {55, 20, false}, {30, 4, false},  {30, 5, true},   {30, 14, true},
        {30, 15, false}, {30, 44, true},  {30, 45, false}, {4, 44, false},
    };
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, 60, 50, ColorGray,
                  [&](int, int x, int y) { return x == c.x && y == c.y ? 5000.0 : 100.0; });
        double m = 0, M = 0, s = 0;
        const double level = img.DiskSkyLevel(img.curPlane[0], &m, &M, &s);
        if (!c.inBand) {
            EXPECT_EQ(level, 100.0) << c.x << "," << c.y;
            EXPECT_EQ(M, 100.0);
            EXPECT_EQ(s, 0.0);
            continue;
        }
        EXPECT_EQ(M, 5000.0) << c.x << "," << c.y;
        EXPECT_GT(s, 0.0);
        EXPECT_LT(level, M) << "the maximum is limited to m + 3s";
        EXPECT_DOUBLE_EQ(level, m + 3 * s);
    }
}

TEST(PlanetAlign, ADiskReachingIntoTheMarginLimitsTheSkyMaximum) {
    Image img;
    MakeDisk(img, 80, 12); // the disk covers the top band
    double m = 0, M = 0, s = 0;
    const double level = img.DiskSkyLevel(img.curPlane[0], &m, &M, &s);
    EXPECT_GT(M, kSky + 0.5 * kPeak);
    EXPECT_DOUBLE_EQ(level, m + 3 * s);
    EXPECT_LT(level, M);
    EXPECT_GT(level, kSky);
    // The centroid still finds the disk (what lies above the sky level counts).
    double x = 0, y = 0;
    ASSERT_TRUE(img.DiskCentroid(img.curPlane[0], true, &x, &y));
    EXPECT_NEAR(x, 80.0, 0.05);
    EXPECT_GT(y, 12.0) << "the rows above 5 are not read";
}

TEST(PlanetAlign, AColourImageShiftsItsThreePlanesByTheLuminancesAmount) {
    Image img;
    MakeImage(img, kW, kH, ColorRGB, [](int s, int x, int y) {
        const double disk = DiskValue(77.4, 61.3, x, y);
        if (s == 1)
            return disk;
        if (s == 0)
            return 0.5 * disk + (x % 3);
        return 300.0 + ((x + 2 * y) % 7);
    });
    double tx = 70.0, ty = 65.0, cx = 0, cy = 0;
    std::vector<float> out[3];
    for (auto& o : out)
        o.assign(img.pixelCount, 0.0f);
    ASSERT_TRUE(img.CenterOnDisk(false, img.curPlane[0], out[0].data(), img.curPlane[1],
                                 out[1].data(), img.curPlane[2], out[2].data(), true, false, &tx,
                                 &ty, &cx, &cy));
    EXPECT_NEAR(cx, 77.4, 0.1);
    EXPECT_NEAR(cy, 61.3, 0.1);
    const double dx = tx - cx, dy = ty - cy;
    for (int s = 0; s < 3; ++s) {
        std::vector<float> expect(img.pixelCount);
        ASSERT_TRUE(img.Translate(false, img.curPlane[s], expect.data(), dy < 0, dx < 0,
                                  std::fabs(dy), std::fabs(dx), 0.0f, true, 2));
        EXPECT_EQ(out[s], expect) << "plane " << s;
    }
}

/// Reads a real pair, centres both with one target and returns the second's shift and the
/// distance of its aligned centroid from the target.
void AlignRealPair(const std::string& first, const std::string& second, double* shiftX,
                   double* shiftY, double* residual) {
    Image a, b;
    ASSERT_TRUE(a.ReadFile(first, fs::path(first).extension().string()));
    ASSERT_TRUE(b.ReadFile(second, fs::path(second).extension().string()));
    ASSERT_EQ(a.colorType, static_cast<std::uint32_t>(ColorRGB));
    double tx = -1, ty = -1, cxA = 0, cyA = 0, cxB = 0, cyB = 0;
    ASSERT_TRUE(a.CenterOnDisk(true, nullptr, a.curPlane[0], nullptr, a.curPlane[1], nullptr,
                               a.curPlane[2], true, false, &tx, &ty, &cxA, &cyA));
    ASSERT_TRUE(b.CenterOnDisk(true, nullptr, b.curPlane[0], nullptr, b.curPlane[1], nullptr,
                               b.curPlane[2], true, false, &tx, &ty, &cxB, &cyB));
    *shiftX = tx - cxB;
    *shiftY = ty - cyB;
    // The aligned second image's centroid, by the same measure on its luminance.
    std::vector<float> lum(b.pixelCount);
    for (std::uint32_t i = 0; i < b.pixelCount; ++i)
        lum[i] =
            static_cast<float>(b.ValueOf(b.curPlane[0][i], b.curPlane[1][i], b.curPlane[2][i]));
    double rx = 0, ry = 0;
    ASSERT_TRUE(b.DiskCentroid(lum.data(), true, &rx, &ry));
    *residual = std::hypot(rx - tx, ry - ty);
}

TEST(PlanetAlign, RealJupiterAndSunPairsAreBroughtTogether) {
    struct Pair {
        const char* first;
        const char* second;
        double movedX, movedY; ///< how the second was moved
    };
    const Pair pairs[] = {
        {"fits/planetary/afm_jupiter.fits", "fits/planetary/afm_jupiter-translated.fits", 27.1,
         -15.9},
        {"fits/planetary/afm_sun.fits", "fits/planetary/afm_sun-translated.fits", 15.7, 47.1},
    };
    int run = 0;
    for (const Pair& p : pairs) {
        const std::string first = test::RealData(p.first), second = test::RealData(p.second);
        if (first.empty() || second.empty())
            continue;
        ++run;
        double sx = 0, sy = 0, residual = 99;
        AlignRealPair(first, second, &sx, &sy, &residual);
        EXPECT_NEAR(sx, -p.movedX, 0.3) << p.second;
        EXPECT_NEAR(sy, -p.movedY, 0.3) << p.second;
        EXPECT_LT(residual, 0.3) << p.second;
    }
    if (run == 0)
        GTEST_SKIP() << "the real planetary pairs are not present";
}

// ---- the worker -----------------------------------------------------------------------------

/// Writes a disk image as a 16-bit FITS file.
std::string WriteDisk(const test::ScratchDir& dir, const std::string& name, double cx, double cy) {
    Image img;
    MakeDisk(img, cx, cy);
    const std::string path = dir.file(name);
    EXPECT_TRUE(img.WriteFile(path, KindFITS));
    return path;
}

/// A FITS file of 64-bit integer samples, all 0: a header any reader can take, pixels the
/// image reader does not.
std::string WriteLongLongFits(const std::string& path, int w, int h) {
    std::string header;
    auto card = [&](const std::string& text) {
        std::string c = text;
        c.resize(80, ' ');
        header += c;
    };
    card("SIMPLE  =                    T");
    card("BITPIX  =                   64");
    card("NAXIS   =                    2");
    card("NAXIS1  = " + std::string(20 - std::to_string(w).size(), ' ') + std::to_string(w));
    card("NAXIS2  = " + std::string(20 - std::to_string(h).size(), ' ') + std::to_string(h));
    card("END");
    header.resize(2880, ' ');
    std::string data(static_cast<std::size_t>(w) * h * 8, '\0');
    data.resize((data.size() + 2879) / 2880 * 2880, '\0');
    std::FILE* f = std::fopen(path.c_str(), "wb");
    EXPECT_NE(f, nullptr);
    if (f) {
        std::fwrite(header.data(), 1, header.size(), f);
        std::fwrite(data.data(), 1, data.size(), f);
        std::fclose(f);
    }
    return path;
}

/// Asks for cancel when a phase is reported.
class CancelAt : public test::RecordingProgress {
public:
    long phase;
    explicit CancelAt(long p) : phase(p) {}
    void SetProgress(long step, long total) override {
        RecordingProgress::SetProgress(step, total);
        if (step == phase)
            RequestCancel();
    }
};

TEST(AutoAlignPlanetFiles, AlignsTheSetReportsABadFileAndGoesOn) {
    test::ScratchDir dir;
    const std::string a = WriteDisk(dir, "a.fit", 70.3, 55.6);
    const std::string bad = WriteLongLongFits(dir.file("bad.fit"), kW, kH);
    const std::string b = WriteDisk(dir, "b.fit", 76.65, 51.8);
    const std::string skip = WriteDisk(dir, "skip.fit", 90, 60);
    // Its header is in order (so the check takes it), its 64-bit samples are not read.
    AutoAlignPlanetRequest r;
    r.files = {a, bad, b, skip};
    r.excluded = {skip};
    r.outputDirectory = dir.file("out");
    test::RecordingProgress progress;
    test::RecordingNotify notify;
    const AutoAlignPlanetResult result = AutoAlignPlanetFiles(r, &progress, &notify);
    ASSERT_TRUE(result.started);
    EXPECT_EQ(result.run.end, FileOpEnd::CompletedWithFailures);
    ASSERT_EQ(result.run.failures.size(), 1u);
    EXPECT_EQ(result.run.failures[0].text, "Error reading bad.fit");
    EXPECT_NE(std::find(notify.messages.begin(), notify.messages.end(), "Error reading bad.fit"),
              notify.messages.end());
    ASSERT_EQ(result.run.outputs.size(), 2u);
    EXPECT_EQ(result.run.outputs[0], dir.file("out/AN_a.fit"));
    EXPECT_EQ(result.run.outputs[1], dir.file("out/AN_b.fit"));
    EXPECT_FALSE(fs::exists(dir.file("out/AN_skip.fit"))) << "excluded from align";
    EXPECT_EQ(progress.statuses.front(), "Aligning Files...");
    EXPECT_EQ(result.run.status, "Completed");
    ASSERT_EQ(result.shifts.size(), 2u);
    EXPECT_NEAR(result.shifts[1].shiftX, -6.35, 0.1);
    EXPECT_NEAR(result.shifts[1].shiftY, 3.8, 0.1);
    // The written second image has its disk where the first one's is.
    Image out;
    ASSERT_TRUE(out.ReadFile(result.run.outputs[1], ".fit"));
    double x = 0, y = 0;
    ASSERT_TRUE(out.DiskCentroid(out.curPlane[out.Slots().front()], true, &x, &y));
    EXPECT_NEAR(x, result.targetX, 0.05);
    EXPECT_NEAR(y, result.targetY, 0.05);
    // The outputs are the aligned image set.
    CFileOpList list;
    ASSERT_TRUE(FileOpLists().Find("Auto Align Planet Files", &list));
    EXPECT_EQ(list.kind, OutputListKind::Aligned);
    EXPECT_EQ(list.Caption(), "Aligned Image Set - 2 images");
}

TEST(AutoAlignPlanetFiles, ChecksBusyCancelAndWriteFailure) {
    test::ScratchDir dir;
    const std::string a = WriteDisk(dir, "a.fit", 70.3, 55.6);
    const std::string b = WriteDisk(dir, "b.fit", 72.3, 50.6);
    test::RecordingNotify notify;
    AutoAlignPlanetRequest r;
    r.outputDirectory = dir.file("out");
    EXPECT_EQ(AutoAlignPlanetFiles(r, nullptr, &notify).run.status,
              "The auto align file operation requires at least one image.\nPlease select at least "
              "one FIT, JPEG, BMP, or TIFF image.");
    r.files = {a, b};
    r.excluded = {a, b};
    EXPECT_EQ(AutoAlignPlanetFiles(r, nullptr, &notify).run.status,
              "The auto align file operation requires at least one usable image.\nPlease select "
              "at least one FIT, JPEG, BMP, or TIFF image.");
    r.excluded.clear();
    {
        FileOpBusy running(FileOpKind::AutoPlanet);
        const AutoAlignPlanetResult busy = AutoAlignPlanetFiles(r, nullptr, &notify);
        EXPECT_FALSE(busy.started);
        EXPECT_EQ(busy.run.status, "Auto Align Planet Is Currently Busy.");
    }
    // Cancel after the first computation: nothing written. After the first write: one output.
    for (long phase : {static_cast<long>(PhaseProcessed), static_cast<long>(PhaseDone)}) {
        CancelAt progress(phase);
        const AutoAlignPlanetResult c = AutoAlignPlanetFiles(r, &progress, &notify);
        EXPECT_EQ(c.run.end, FileOpEnd::Cancelled);
        EXPECT_EQ(c.run.status, "Thread Canceled");
        EXPECT_EQ(c.run.outputs.size(), phase == PhaseDone ? 1u : 0u);
        fs::remove_all(dir.file("out"));
    }
    // An output folder that is a file: each write fails, the run goes on, the text stands.
    {
        std::FILE* f = std::fopen(dir.file("blocked").c_str(), "w");
        ASSERT_NE(f, nullptr);
        std::fclose(f);
    }
    r.outputDirectory = dir.file("blocked");
    test::RecordingProgress progress;
    const AutoAlignPlanetResult w = AutoAlignPlanetFiles(r, &progress, &notify);
    EXPECT_TRUE(w.run.outputs.empty());
    ASSERT_EQ(w.run.failures.size(), 2u);
    EXPECT_EQ(w.run.failures[0].text, "Error writing AN_a");
    EXPECT_EQ(w.run.status, "Error writing AN_b");
    EXPECT_EQ(progress.statuses.back(), "Error writing AN_b");
    EXPECT_TRUE(fs::exists(a) && fs::exists(b));
}

} // namespace
} // namespace astrivelle
