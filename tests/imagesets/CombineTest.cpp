// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Combine Files / HDR add: every method against a direct computation on small stacks,
/// the untouched rim, zero as no data, the median tiles, the tone map and the written file.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>

#include "TestSupport.h"
#include "imagesets/CombineFiles.h"

namespace astrivelle {
namespace {

/// Frames held in memory; counts the reads.
class MemorySource : public CombineFrameSource {
public:
    int w = 40, h = 30;
    bool color = false;
    std::vector<std::vector<float>> frames; ///< per frame: channels * w * h
    int reads = 0;
    int cancelAfter = -1;
    IProgress* progress = nullptr;

    int Count() const override { return static_cast<int>(frames.size()); }
    std::string Name(int i) const override {
        return "/data/set/frame" + std::to_string(i) + ".fit";
    }
    bool Read(int i, Image& img, std::string*) override {
        ++reads;
        if (progress && reads == cancelAfter)
            progress->RequestCancel();
        const std::vector<float>& f = frames[i];
        test::MakeImage(img, w, h, color ? ColorRGB : ColorGray, [&](int s, int x, int y) {
            return f[(static_cast<std::size_t>(color ? s : 0) * h + y) * w + x];
        });
        return true;
    }
    float At(int frame, int c, int x, int y) const {
        return frames[frame][(static_cast<std::size_t>(c) * h + y) * w + x];
    }
};

/// n frames of levels 0..60000 with some zeros and repeated values.
MemorySource RandomStack(int n, bool color, unsigned seed) {
    MemorySource s;
    s.color = color;
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> level(1, 60000);
    std::uniform_int_distribution<int> pick(0, 9);
    const int channels = color ? 3 : 1;
    for (int f = 0; f < n; ++f) {
        std::vector<float> frame(static_cast<std::size_t>(channels) * s.w * s.h);
        for (float& v : frame) {
            const int p = pick(rng);
            v = p == 0 ? 0.0f : (p == 1 ? 1000.0f : static_cast<float>(level(rng)) + 0.25f);
        }
        s.frames.push_back(std::move(frame));
    }
    return s;
}

// ---- the reference: the definitions, pixel by pixel, in double -----------------------------

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const std::size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

double Level(double v) {
    return v <= 0 ? 0 : (v >= 65535 ? 65535 : std::floor(v + 0.5));
}

double Reference(CombineMethod m, const std::vector<double>& v, bool rim, double f,
                 const std::vector<double>& weights) {
    const std::size_t n = v.size();
    switch (m) {
    case CombineMethod::Add: {
        double s = 0;
        for (double x : v)
            s += x;
        return std::min(s, 65535.0);
    }
    case CombineMethod::Avg: {
        double s = 0, c = 0;
        for (double x : v)
            if (x != 0) {
                s += x;
                ++c;
            }
        return c ? s / c : 0;
    }
    case CombineMethod::GradeAvg:
    case CombineMethod::GradeAvgAuto: {
        double s = 0;
        for (std::size_t i = 0; i < n; ++i)
            s += v[i] * weights[i];
        return s;
    }
    case CombineMethod::Min:
        return *std::min_element(v.begin(), v.end());
    case CombineMethod::Max:
        return *std::max_element(v.begin(), v.end());
    case CombineMethod::ExcAvg: {
        if (rim)
            return 0;
        const double lo = *std::min_element(v.begin(), v.end());
        const double hi = *std::max_element(v.begin(), v.end());
        double s = 0, c = 0;
        for (double x : v)
            if (x > lo && x < hi) {
                s += x;
                ++c;
            }
        return c ? s / c : 0;
    }
    case CombineMethod::SigAvg: {
        if (rim)
            return 0;
        double s = 0, c = 0;
        for (double x : v)
            if (x != 0) {
                s += x;
                ++c;
            }
        if (!c)
            return 0;
        const double mean = s / c;
        double q = 0;
        for (double x : v)
            if (x != 0)
                q += (x - mean) * (x - mean);
        const double dev = std::sqrt(q / c);
        double s2 = 0, c2 = 0;
        for (double x : v)
            if (x != 0 && mean - f * dev <= x && x <= mean + f * dev) {
                s2 += x;
                ++c2;
            }
        return c2 ? s2 / c2 : 0;
    }
    case CombineMethod::Med:
    case CombineMethod::SigMed:
    case CombineMethod::WgtMed: {
        std::vector<double> q;
        for (double x : v)
            q.push_back(Level(x));
        const double d = Median(q);
        if (m == CombineMethod::Med)
            return d;
        double mean = 0;
        for (double x : q)
            mean += x;
        mean /= n;
        double ss = 0;
        for (double x : q)
            ss += (x - mean) * (x - mean);
        const double s = n > 1 ? std::sqrt(ss / (n - 1)) : 0;
        double lower, upper;
        if (m == CombineMethod::WgtMed) {
            lower = d - *std::min_element(q.begin(), q.end());
            upper = *std::max_element(q.begin(), q.end()) - d;
        } else {
            lower = d - std::max(mean - f * s, 0.0);
            upper = mean + f * s - d;
        }
        if (lower == 0)
            lower = 0.1;
        if (upper == 0)
            upper = 0.1;
        double num = 0, den = 0;
        for (double x : q) {
            const double wgt = std::max(1 - std::fabs(x - d) / (x < d ? lower : upper), 0.0);
            num += x * wgt;
            den += wgt;
        }
        return num / (den == 0 ? 0.1 : den);
    }
    default:
        return 0;
    }
}

void ExpectMatchesReference(MemorySource& src, const CombineSettings& settings) {
    CombineJob job;
    ASSERT_TRUE(job.Run(src, settings)) << (job.Errors().empty() ? "" : job.Errors()[0]);
    Image& r = job.Result();
    ASSERT_EQ(r.width, src.w);
    ASSERT_EQ(r.height, src.h);
    const int channels = src.color ? 3 : 1;
    const std::vector<int> slots = r.Slots();
    ASSERT_EQ(static_cast<int>(slots.size()), channels);
    std::vector<double> weights = settings.weights;
    if (weights.empty())
        weights.assign(src.Count(), 1.0 / src.Count());
    for (int c = 0; c < channels; ++c)
        for (int y = 0; y < src.h; ++y)
            for (int x = 0; x < src.w; ++x) {
                std::vector<double> v;
                for (int i = 0; i < src.Count(); ++i)
                    v.push_back(src.At(i, c, x, y));
                const bool rim = x == 0 || y == 0 || x == src.w - 1 || y == src.h - 1;
                const double expect =
                    Reference(settings.method, v, rim, settings.clipFactor, weights);
                const double got = r.curPlane[slots[c]][y * src.w + x];
                ASSERT_NEAR(got, expect, 1e-6 * std::max(1.0, std::fabs(expect)) + 2e-3)
                    << CombineMethodOf(settings.method).keyword << " c" << c << " (" << x << ","
                    << y << ")";
            }
}

TEST(CombineMethods, KeywordsTextsAndPages) {
    ASSERT_EQ(CombineMethods().size(), 13u);
    const std::vector<std::pair<const char*, const char*>> expect = {
        {"ADD", "Addition"},
        {"AVG", "Average"},
        {"EXCAVG", "Excluded Min/Max Average"},
        {"SIGAVG", "Sigma Average"},
        {"GRADEAVG", "Manual Graded Average"},
        {"GRADEAVGAUTO", "Auto Edge Sharpness Graded Average"},
        {"MIN", "Minimum"},
        {"MAX", "Maximum"},
        {"MED", "Median"},
        {"SIGMED", "Sigma Median"},
        {"WGTMED", "Weighted Median"},
        {"ADPADD", "Adaptive Addition"},
        {"EXCADPADD", "Adaptive Excluded Addition"}};
    for (const auto& [k, t] : expect) {
        const CombineMethodInfo* info = FindCombineMethod(k);
        ASSERT_NE(info, nullptr) << k;
        EXPECT_STREQ(info->text, t);
    }
    EXPECT_EQ(FindCombineMethod("avg"), nullptr);
    EXPECT_STREQ(FindCombineMethod("EXCADPADD")->page, "CombineFilesAdpHDRAdd");
}

TEST(CombineMethods, EveryMethodMatchesTheDirectComputation) {
    const CombineMethod methods[] = {
        CombineMethod::Add,      CombineMethod::Avg,   CombineMethod::ExcAvg, CombineMethod::SigAvg,
        CombineMethod::GradeAvg, CombineMethod::Min,   CombineMethod::Max,    CombineMethod::Med,
        CombineMethod::SigMed,   CombineMethod::WgtMed};
    for (int n : {3, 4, 7})
        for (bool color : {false, true})
            for (CombineMethod m : methods) {
                SCOPED_TRACE(std::string(CombineMethodOf(m).keyword) + " n=" + std::to_string(n) +
                             (color ? " colour" : " mono"));
                MemorySource src = RandomStack(n, color, 17u * n + (color ? 1 : 0));
                CombineSettings s;
                s.method = m;
                s.clipFactor = 1.0; // clips often on such scattered values
                if (m == CombineMethod::GradeAvg)
                    for (int i = 0; i < n; ++i)
                        s.weights.push_back((i + 1) / (n * (n + 1) / 2.0));
                ExpectMatchesReference(src, s);
            }
}

TEST(CombineMethods, AddAndAverageOnKnownValues) {
    MemorySource s;
    s.w = 4;
    s.h = 3;
    s.frames = {std::vector<float>(12, 40000.0f), std::vector<float>(12, 30000.0f),
                std::vector<float>(12, 0.0f)};
    s.frames[1][5] = 0.0f; // pixel (1, 1) has data only in frame 0
    CombineJob job;
    CombineSettings add;
    add.method = CombineMethod::Add;
    ASSERT_TRUE(job.Run(s, add));
    EXPECT_EQ(job.Result().curPlane[0][0], 65535.0f); // clipped
    EXPECT_EQ(job.Result().curPlane[0][5], 40000.0f);
    CombineSettings avg;
    avg.method = CombineMethod::Avg;
    ASSERT_TRUE(job.Run(s, avg));
    EXPECT_EQ(job.Result().curPlane[0][0], 35000.0f); // the zero frame is no data
    EXPECT_EQ(job.Result().curPlane[0][5], 40000.0f); // no black rim where one frame is 0
    s.frames[0][7] = 0.0f;
    s.frames[1][7] = 0.0f;
    ASSERT_TRUE(job.Run(s, avg));
    EXPECT_EQ(job.Result().curPlane[0][7], 0.0f); // no data at all
}

TEST(CombineMethods, ExcludedAverageUsesOnlyValuesStrictlyBetween) {
    MemorySource s;
    s.w = 3;
    s.h = 3;
    // Centre pixel (1, 1): {10, 10, 30}: nothing strictly between; {10, 20, 30}: 20;
    // all equal: count 0, result 0.
    const auto run = [&](float a, float b, float c) {
        s.frames = {std::vector<float>(9, a), std::vector<float>(9, b), std::vector<float>(9, c)};
        CombineJob job;
        CombineSettings set;
        set.method = CombineMethod::ExcAvg;
        EXPECT_TRUE(job.Run(s, set));
        for (int i : {0, 1, 2, 3, 5, 6, 7, 8})
            EXPECT_EQ(job.Result().curPlane[0][i], 0.0f) << "rim " << i;
        return job.Result().curPlane[0][4];
    };
    EXPECT_EQ(run(10, 10, 30), 0.0f);
    EXPECT_EQ(run(10, 20, 30), 20.0f);
    EXPECT_EQ(run(50, 50, 50), 0.0f);
}

TEST(CombineMethods, MedianOfTwoIsTheirMean) {
    MemorySource s;
    s.w = 3;
    s.h = 2;
    s.frames = {std::vector<float>(6, 100.0f), std::vector<float>(6, 301.0f)};
    CombineJob job;
    CombineSettings set;
    set.method = CombineMethod::Med;
    ASSERT_TRUE(job.Run(s, set));
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(job.Result().curPlane[0][i], 200.5f);
}

TEST(CombineMedian, TiledEqualsUntiledAndReadsTheListOncePerTile) {
    for (CombineMethod m : {CombineMethod::Med, CombineMethod::SigMed, CombineMethod::WgtMed}) {
        MemorySource src = RandomStack(5, true, 99);
        CombineSettings whole;
        whole.method = m;
        whole.tileRows = src.h;
        CombineJob a;
        ASSERT_TRUE(a.Run(src, whole));
        EXPECT_EQ(a.Tiles(), 1);
        EXPECT_EQ(src.reads, 5);
        for (int rows : {1, 7, 29}) {
            src.reads = 0;
            CombineSettings tiled = whole;
            tiled.tileRows = rows;
            CombineJob b;
            ASSERT_TRUE(b.Run(src, tiled));
            const int tiles = (src.h + rows - 1) / rows;
            EXPECT_EQ(b.Tiles(), tiles);
            EXPECT_EQ(src.reads, 5 * tiles);
            for (int c = 0; c < 3; ++c)
                for (int i = 0; i < src.w * src.h; ++i)
                    ASSERT_EQ(a.Result().curPlane[c][i], b.Result().curPlane[c][i])
                        << "rows " << rows << " pixel " << i;
        }
    }
}

TEST(CombineMedian, SegmentsFollowTheFreeMemory) {
    // 1000 x 1000 x 10 files x 2 bytes = 20 MB for one plane.
    const unsigned long long mb = 1000000ULL;
    EXPECT_EQ(CombineSegments(1000, 1000, 10, 1, 40 * mb), 1);
    EXPECT_EQ(CombineSegments(1000, 1000, 10, 1, 39 * mb), 4);
    EXPECT_EQ(CombineSegments(1000, 1000, 10, 1, 10 * mb), 4);
    EXPECT_EQ(CombineSegments(1000, 1000, 10, 1, 9 * mb), 16);
    EXPECT_EQ(CombineSegments(1000, 1000, 10, 1, 2500000ULL), 16);
    EXPECT_EQ(CombineSegments(1000, 1000, 10, 1, 2 * mb), 64);
    EXPECT_EQ(CombineSegments(1000, 1000, 10, 1, 100000ULL), 256);
    EXPECT_EQ(CombineSegments(1000, 1000, 10, 3, 40 * mb), 4);
    // The job plans with the memory it is given: 40 x 30 x 4 files x 2 bytes = 9600 bytes.
    MemorySource src = RandomStack(4, false, 5);
    CombineSettings s;
    s.method = CombineMethod::Med;
    s.freeMemory = 2 * 9600 / 16; // fits in 16 tiles
    CombineJob job;
    ASSERT_TRUE(job.Run(src, s));
    EXPECT_EQ(job.TileRows(), 2); // 30 rows in 16 bands of 2
    EXPECT_EQ(job.Tiles(), 15);
    EXPECT_EQ(src.reads, 4 * 15);
}

TEST(CombineStream, AccumulatingMethodsReadEachFrameOncePerPhase) {
    const std::vector<std::pair<CombineMethod, int>> phases = {
        {CombineMethod::Add, 1},    {CombineMethod::Avg, 1},    {CombineMethod::Min, 1},
        {CombineMethod::ExcAvg, 2}, {CombineMethod::SigAvg, 3}, {CombineMethod::AdpAdd, 1}};
    for (const auto& [m, p] : phases) {
        MemorySource src = RandomStack(6, false, 3);
        CombineSettings s;
        s.method = m;
        CombineJob job;
        test::RecordingProgress progress;
        ASSERT_TRUE(job.Run(src, s, &progress));
        EXPECT_EQ(src.reads, 6 * p) << CombineMethodOf(m).keyword;
        EXPECT_EQ(progress.lastStep, progress.lastTotal);
        EXPECT_EQ(progress.statuses.front(), "Combining Files...");
    }
}

TEST(CombineStream, FailuresCancelAndColourMixing) {
    MemorySource one = RandomStack(1, false, 1);
    CombineJob job;
    CombineSettings s;
    EXPECT_FALSE(job.Run(one, s));
    EXPECT_EQ(job.Errors().front(), "The image file combine operation requires more than one "
                                    "image.\nPlease select at least two images.");

    MemorySource src = RandomStack(5, false, 2);
    test::RecordingProgress progress;
    src.progress = &progress;
    src.cancelAfter = 3;
    EXPECT_FALSE(job.Run(src, s, &progress));
    EXPECT_EQ(job.Errors().front(), "Thread Canceled");
    EXPECT_EQ(job.Result().curPlane[0], nullptr); // nothing of the failed run stays

    // A colour run: a monochrome frame gives its plane to each colour.
    MemorySource mixed = RandomStack(2, true, 4);
    MemorySource mono = RandomStack(1, false, 5);
    CombineSettings avg;
    avg.method = CombineMethod::Max;
    class Mixed : public CombineFrameSource {
    public:
        MemorySource* color;
        MemorySource* mono;
        int Count() const override { return 3; }
        std::string Name(int i) const override { return "f" + std::to_string(i); }
        bool Read(int i, Image& img, std::string* e) override {
            return i < 2 ? color->Read(i, img, e) : mono->Read(0, img, e);
        }
    } source;
    source.color = &mixed;
    source.mono = &mono;
    ASSERT_TRUE(job.Run(source, avg));
    ASSERT_EQ(job.Result().colorType, static_cast<std::uint32_t>(ColorRGB));
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < 40 * 30; i += 37) {
            const float expect = std::max(
                {mixed.frames[0][c * 1200 + i], mixed.frames[1][c * 1200 + i], mono.frames[0][i]});
            ASSERT_EQ(job.Result().curPlane[c][i], expect);
        }
}

TEST(CombineHdr, ToneMapFromKeptSumsEqualsAFreshRun) {
    for (CombineMethod m : {CombineMethod::AdpAdd, CombineMethod::ExcAdpAdd}) {
        MemorySource src = RandomStack(4, true, 8);
        CombineSettings s;
        s.method = m;
        s.compress = 0.3;
        s.brightness = 2.0;
        CombineJob first;
        ASSERT_TRUE(first.Run(src, s));
        // The raw planes are the plain sums (ADPADD) / the excluded averages.
        if (m == CombineMethod::AdpAdd) {
            const float* raw = first.RawPlane(1);
            ASSERT_NE(raw, nullptr);
            for (int i = 0; i < 1200; i += 13)
                ASSERT_FLOAT_EQ(raw[i], src.frames[0][1200 + i] + src.frames[1][1200 + i] +
                                            src.frames[2][1200 + i] + src.frames[3][1200 + i]);
        }
        const int readsBefore = src.reads;
        ASSERT_TRUE(first.RecomputeToneMap(0.05, 0.5));
        EXPECT_EQ(src.reads, readsBefore); // no file read again
        CombineSettings again = s;
        again.compress = 0.05;
        again.brightness = 0.5;
        CombineJob fresh;
        ASSERT_TRUE(fresh.Run(src, again));
        for (int c = 0; c < 3; ++c)
            for (int i = 0; i < 1200; ++i)
                ASSERT_EQ(first.Result().curPlane[c][i], fresh.Result().curPlane[c][i]);
        EXPECT_EQ(first.RecordLines()[1],
                  m == CombineMethod::AdpAdd
                      ? "Compress :   0.0500, Brightness :   0.5000"
                      : "Excluded Compress :   0.0500, Brightness :   0.5000");
    }
    CombineJob plain;
    MemorySource src = RandomStack(3, false, 9);
    CombineSettings avg;
    ASSERT_TRUE(plain.Run(src, avg));
    EXPECT_FALSE(plain.RecomputeToneMap(0.1, 1.0));
}

TEST(CombineHdr, ToneMapMatchesTheDirectComputation) {
    // Sums beyond 65535: the log compression, then the equalization towards the target.
    std::vector<float> raw = {100, 5000, 70000, 200000, 200000, 1000, 0, 65536};
    const double compress = 0.1, p = 3.0;
    std::vector<float> out(raw.size());
    const float* in[1] = {raw.data()};
    float* o[1] = {out.data()};
    ASSERT_TRUE(ToneMapPlanes(in, 1, raw.size(), compress, p, o));
    const double a = 0, b = 200000, c0 = (b - a) * compress;
    std::vector<int> levels;
    std::vector<double> hist(65536, 0);
    for (float v : raw) {
        const double t =
            65535 * (std::log(v + c0) - std::log(a + c0)) / (std::log(b + c0) - std::log(a + c0));
        levels.push_back(static_cast<int>(Level(t)));
        hist[levels.back()] += 1.0 / raw.size();
    }
    for (std::size_t i = 0; i < raw.size(); ++i) {
        double cum = 0;
        for (int bin = 0; bin <= levels[i]; ++bin)
            cum += (hist[bin] * 65536 + p) / ((p + 1) * 65536);
        EXPECT_NEAR(out[i], std::min(65535.0, 65535 * cum), 0.05) << i;
    }
    // Sums within 16 bits are not compressed: a brightness so high that the target is
    // nearly the identity gives the values back within a level.
    std::vector<float> small = {0, 100, 30000, 65535};
    const float* in2[1] = {small.data()};
    std::vector<float> out2(4);
    float* o2[1] = {out2.data()};
    ASSERT_TRUE(ToneMapPlanes(in2, 1, 4, 0.5, 1e9, o2));
    for (int i = 0; i < 4; ++i)
        EXPECT_NEAR(out2[i], small[i], 1.01);
}

TEST(CombineMedianRows, TheNetworkMedianEqualsThePlainOne) {
    std::mt19937 rng(11);
    for (int files : {1, 2, 3, 5, 8, 15, 16, 17, 24, 31, 33, 64}) {
        SCOPED_TRACE(files);
        const std::size_t width = 37, rows = 5; // 185 pixels: runs of sixteen and a tail
        std::vector<std::vector<std::uint16_t>> tiles(files,
                                                      std::vector<std::uint16_t>(width * rows));
        std::vector<const std::uint16_t*> pointers;
        for (int f = 0; f < files; ++f) {
            for (std::size_t i = 0; i < width * rows; ++i) {
                const unsigned r = rng();
                // Mostly sky levels with ties, some 0, some 65535.
                tiles[f][i] = r % 11 == 0   ? 0
                              : r % 13 == 0 ? 65535
                                            : static_cast<std::uint16_t>(1000 + (r >> 8) % 40);
            }
            pointers.push_back(tiles[f].data());
        }
        std::vector<float> out(width * rows, -1.0f);
        CombineMedianRows(pointers.data(), files, width, rows, CombineMethod::Med, 0, out.data());
        std::vector<float> v(static_cast<std::size_t>(files));
        for (std::size_t i = 0; i < width * rows; ++i) {
            for (int f = 0; f < files; ++f)
                v[f] = tiles[f][i];
            ASSERT_EQ(out[i], CombineMedianPixel(v.data(), files, CombineMethod::Med, 0)) << i;
        }
    }
}

TEST(CombineGrades, WeightsFromNamesOrListGrades) {
    const std::vector<std::string> paths = {"/x/AGA_AVERAGE_m1.fit", "/x/AGC_RED_m2.fit",
                                            "/x/plain.fit", "/x/other.fit"};
    const std::vector<double> w = GradeWeights(paths, {1, 1, 3, 1}, {100, 80, 60, 40, 0});
    ASSERT_EQ(w.size(), 4u);
    EXPECT_DOUBLE_EQ(w[0], 1.0);
    EXPECT_DOUBLE_EQ(w[1], 0.6);
    EXPECT_DOUBLE_EQ(w[2], 3.0 / 6.0);
    EXPECT_DOUBLE_EQ(w[3], 1.0 / 6.0);
    const std::vector<double> even = GradeWeights({"a.fit", "b.fit"}, {});
    EXPECT_DOUBLE_EQ(even[0], 0.5);
    // The names Grade Files writes ("AG" + grade + "_Average" + score + "_" + name).
    const std::vector<double> graded = GradeWeights(
        {"/x/AGB_Average0875_m1.fit", "/x/AGD_Blue0412_m2.fit"}, {}, {100, 80, 60, 40, 0});
    EXPECT_DOUBLE_EQ(graded[0], 0.8);
    EXPECT_DOUBLE_EQ(graded[1], 0.4);
}

TEST(CombineFilesRun, WritesTheResultWithItsRecord) {
    test::ScratchDir dir;
    std::vector<std::string> files;
    for (int i = 0; i < 3; ++i) {
        Image img;
        test::MakeImage(img, 40, 30, ColorGray,
                        [&](int, int x, int y) { return 1000 * (i + 1) + x + 100 * y; });
        img.SetGeometryFits(KindFITS, ColorGray, 0, Data16, 40, 30);
        files.push_back(dir.file("in" + std::to_string(i) + ".fit"));
        ASSERT_TRUE(img.WriteFile(files.back(), KindFITS));
    }
    CombineFilesParams params;
    params.files = files;
    params.settings.method = CombineMethod::Avg;
    params.outDir = dir.file("out");
    std::filesystem::create_directories(params.outDir);
    params.name = "  Stack  ";
    params.saveType = "UNCOMPFIT32";
    CombineFilesOutcome outcome;
    ASSERT_TRUE(CombineFiles(params, nullptr, &outcome))
        << (outcome.errors.empty() ? "" : outcome.errors[0]);
    EXPECT_EQ(outcome.output, dir.file("out/Stack.fit"));
    EXPECT_EQ(outcome.status, " 3 Images");
    Image back;
    ASSERT_TRUE(back.ReadFile(outcome.output, ".fit"));
    EXPECT_EQ(back.curPlane[0][5 + 40 * 7], 2000.0f + 5 + 700);
    std::vector<std::string> comments;
    for (const CFITSHeader& card : back.headerCards)
        if (card.key == "COMMENT") // FITS keeps no trailing blanks
            comments.push_back(card.comment.substr(0, card.comment.find_last_not_of(' ') + 1));
    const std::vector<std::string> expect = {"QX Combine Files : Average",
                                             "Number Of Files : 3",
                                             "Files Used in Combination :",
                                             "in0.fit",
                                             "in1.fit",
                                             "in2.fit",
                                             "Path : " + dir.path().string()};
    for (const std::string& line : expect)
        EXPECT_NE(std::find(comments.begin(), comments.end(), line), comments.end()) << line;

    params.saveType = "UNCOMPTIF";
    params.name = "Stack";
    ASSERT_TRUE(CombineFiles(params, nullptr, &outcome));
    EXPECT_EQ(outcome.output, dir.file("out/Stack.tif"));

    params.name = "a/b";
    EXPECT_FALSE(CombineFiles(params, nullptr, &outcome));
    EXPECT_EQ(outcome.status, "A file name can't contain any of the following characters:\n" +
                                  std::string(30, ' ') + "\\/:*?\"<>|");
    params.name = "Broken";
    params.files.push_back(dir.file("missing.fit"));
    EXPECT_FALSE(CombineFiles(params, nullptr, &outcome));
    EXPECT_EQ(outcome.status, "Could not open FITS image. Possible Reasons: Could not allocate "
                              "memory for image or non-standard compressed image.");
    EXPECT_FALSE(std::filesystem::exists(dir.file("out/Broken.tif")));
}

} // namespace
} // namespace astrivelle
