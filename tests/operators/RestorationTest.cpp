// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Iterative restoration: the window sum against the plain gather, every iteration rule
/// against a plain computation, the edge cases of the rules, texts, replay, cancel.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "TestSupport.h"
#include "engine/ProcessStructure.h"
#include "engine/ProcessWindow.h"
#include "operators/Restoration.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

std::vector<float> RandomPlane(int w, int h, unsigned seed, double noDataShare = 0.0) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> level(0.0, 60000.0), pick(0.0, 1.0);
    std::vector<float> p(static_cast<std::size_t>(w) * h);
    for (float& v : p)
        v = pick(rng) < noDataShare ? -1.0f : static_cast<float>(std::floor(level(rng)));
    return p;
}

/// conv(P, K) by the plain rule, written out: mirror about the centre, -1.0 left out.
double Conv(const std::vector<float>& p, int w, int h, int x, int y, const std::vector<double>& k,
            int r, bool* nd) {
    const int side = 2 * r + 1;
    double sum = 0.0;
    *nd = false;
    for (int dy = -r; dy <= r; ++dy)
        for (int dx = -r; dx <= r; ++dx) {
            int yy = y + dy, xx = x + dx;
            if (yy < 0 || yy >= h)
                yy = y - dy;
            if (xx < 0 || xx >= w)
                xx = x - dx;
            yy = std::clamp(yy, 0, h - 1);
            xx = std::clamp(xx, 0, w - 1);
            const double v = p[static_cast<std::size_t>(yy) * w + xx];
            if (v == -1.0) {
                *nd = true;
                continue;
            }
            sum += k[(dy + r) * side + dx + r] * v;
        }
    return sum;
}

struct Oracle {
    int w, h;
    std::vector<float> g, x, cur;
    std::vector<double> psf, rev;
    int r;
    ApplyRange range{0, 65535, 0};
    bool reduce = false;
    double top = 65535;

    void Store(std::size_t i, double tested, double outside, double n, bool test,
               std::vector<float>& next) {
        double stored = n;
        if (test)
            stored = range.Outside(tested) ? outside : range.Feather(tested, n);
        next[i] = static_cast<float>(stored);
        double out = reduce && g[i] > stored ? g[i] : stored;
        cur[i] = static_cast<float>(std::clamp(out, 0.0, top));
    }

    void Iterate(int type, double relax, bool first) {
        const int rounds = type == MaximumEntropy && !first ? 2 : 1;
        for (int k = 0; k < rounds; ++k) {
            std::vector<float> s(g.size()), next = x;
            bool nd = false;
            for (int yy = 0; yy < h; ++yy)
                for (int xx = 0; xx < w; ++xx) {
                    const std::size_t i = static_cast<std::size_t>(yy) * w + xx;
                    const double c = Conv(x, w, h, xx, yy, psf, r, &nd);
                    if (type == RichardsonLucy)
                        s[i] = static_cast<float>(g[i] / (c == 0.0 ? 1.0 : c));
                    else if (type == MaximumEntropy)
                        s[i] = static_cast<float>(c - g[i]);
                    else if (type == OneStepGradient)
                        s[i] = static_cast<float>(g[i] - c);
                    else // Van Cittert's one pass
                        Store(i, x[i], x[i], nd ? x[i] : x[i] + relax * (g[i] - c), true, next);
                }
            if (type != VanCittert)
                for (int yy = 0; yy < h; ++yy)
                    for (int xx = 0; xx < w; ++xx) {
                        const std::size_t i = static_cast<std::size_t>(yy) * w + xx;
                        const double xv = x[i], gv = g[i];
                        if (type == RichardsonLucy) {
                            const double d = Conv(s, w, h, xx, yy, rev, r, &nd);
                            Store(i, xv, xv, nd ? xv : xv * d * relax, true, next);
                        } else if (type == MaximumEntropy) {
                            const double d = Conv(s, w, h, xx, yy, psf, r, &nd);
                            Store(i, xv, xv, nd ? xv : gv - relax * d, false, next);
                        } else {
                            const double d = Conv(s, w, h, xx, yy, rev, r, &nd);
                            Store(i, gv, xv, nd ? xv : xv + relax * d, true, next);
                        }
                    }
            x = next;
        }
    }

    void IterateAdaptive(double threshold, bool first, std::vector<float>* qOut = nullptr) {
        std::vector<float> q(g.size()), next = x;
        bool nd = false;
        const double t = threshold == 0.0 ? 0.01 : threshold;
        for (int yy = 0; yy < h; ++yy)
            for (int xx = 0; xx < w; ++xx) {
                const std::size_t i = static_cast<std::size_t>(yy) * w + xx;
                double c = Conv(x, w, h, xx, yy, psf, r, &nd);
                if (c == 0.0)
                    c = 1.0;
                const double gv = g[i], xv = x[i], g0 = gv == 0.0 ? 1.0 : gv;
                double u = (g0 * std::log(xv / g0) - xv + g0) * (-2.0 / (t * t));
                u = std::min(u, 1.0);
                const double d = std::pow(u, 9.0) * (10.0 - 9.0 * u);
                q[i] = static_cast<float>(first ? gv / c : (gv - c) / c * d + 1.0);
            }
        for (int yy = 0; yy < h; ++yy)
            for (int xx = 0; xx < w; ++xx) {
                const std::size_t i = static_cast<std::size_t>(yy) * w + xx;
                const double d = Conv(q, w, h, xx, yy, rev, r, &nd);
                Store(i, g[i], g[i], nd ? x[i] : x[i] * d, true, next);
            }
        x = next;
        if (qOut)
            *qOut = q;
    }
};

/// An asymmetric custom PSF: its reversal differs from it.
CCustomPSF Lopsided() {
    CCustomPSF psf;
    psf.name = "Comet";
    psf.size = 3;
    const double v[9] = {0.0, 0.1, 0.0, 0.2, 1.0, 0.6, 0.0, 0.3, 0.9};
    std::copy(v, v + 9, psf.values.begin());
    return psf;
}

std::vector<float> Plane(const float* p, int w, int h) {
    return std::vector<float>(p, p + static_cast<std::size_t>(w) * h);
}

} // namespace

TEST(Restoration, FastWindowSumGivesThePlainGathersBits) {
    struct Case {
        int w, h, r;
        double noData;
    };
    const Case cases[] = {{300, 40, 2, 0.0}, {300, 40, 2, 0.002}, {257, 33, 5, 0.0},
                          {70, 70, 32, 0.0}, {3, 50, 2, 0.0},     {600, 9, 4, 0.01},
                          {1, 1, 1, 0.0},    {530, 12, 1, 0.0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " r " << c.r);
        const std::vector<float> p = RandomPlane(c.w, c.h, 7 + c.r, c.noData);
        std::mt19937 rng(c.r);
        std::uniform_real_distribution<double> tap(-0.5, 1.0);
        const int side = 2 * c.r + 1;
        std::vector<double> k(static_cast<std::size_t>(side) * side);
        for (double& v : k)
            v = tap(rng);
        const std::size_t n = p.size();
        std::vector<double> fast(n), plain(n);
        std::vector<std::uint8_t> fastNd(n), plainNd(n);
        ConvolvePlane(p.data(), c.w, c.h, k.data(), c.r, true, fast.data(), fastNd.data());
        ConvolvePlane(p.data(), c.w, c.h, k.data(), c.r, false, plain.data(), plainNd.data());
        int flagged = 0;
        for (std::size_t i = 0; i < n; ++i) {
            ASSERT_EQ(std::memcmp(&fast[i], &plain[i], sizeof(double)), 0) << "pixel " << i;
            ASSERT_EQ(fastNd[i], plainNd[i]) << "pixel " << i;
            flagged += plainNd[i];
        }
        // And both agree with the rule written out in this test.
        bool nd = false;
        const int probes[][2] = {{0, 0}, {c.w - 1, c.h - 1}, {c.w / 2, c.h / 2}, {1, c.h - 2}};
        for (const auto& at : probes) {
            const int x = std::clamp(at[0], 0, c.w - 1), y = std::clamp(at[1], 0, c.h - 1);
            EXPECT_EQ(plain[static_cast<std::size_t>(y) * c.w + x],
                      Conv(p, c.w, c.h, x, y, k, c.r, &nd));
        }
        if (c.noData > 0) {
            EXPECT_GT(flagged, 0);
        }
    }
}

TEST(Restoration, EveryRuleMatchesThePlainComputation) {
    struct Case {
        int type;
        int psfType;
        int half;
        double relax;
        int mn, mx, f;
        bool reduce;
    };
    const Case cases[] = {
        {VanCittert, PsfGauss, 2, 0.2, 0, 65535, 0, false},
        {VanCittert, PsfBox, 1, 0.7, 2000, 40000, 3000, true},
        {RichardsonLucy, PsfGauss, 2, 1.0, 0, 65535, 0, false},
        {RichardsonLucy, PsfBinomial, 3, 1.2, 5000, 50000, 2000, true},
        {MaximumEntropy, PsfGauss, 1, 1.3, 0, 65535, 0, false},
        {MaximumEntropy, PsfCustom, 1, 0.9, 0, 65535, 0, true},
        {OneStepGradient, PsfCustom, 1, 1.0, 1000, 30000, 500, false},
        {OneStepGradient, PsfBinomial, 5, 0.5, 0, 65535, 0, true},
    };
    const CCustomPSF custom = Lopsided();
    const int w = 37, h = 23;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << RestorationTypeWord(c.type) << " " << PsfTypeWord(c.psfType));
        Image img;
        const std::vector<float> src = RandomPlane(w, h, 3 + c.type, 0.0);
        MakeImage(img, w, h, ColorGray, [&](int, int x, int y) { return src[y * w + x]; });
        RestorationPlanes planes;
        ASSERT_TRUE(planes.Allocate(img));
        Oracle o{w, h, src, src, src, {}, {}, 0};
        int side = 0;
        ASSERT_TRUE(BuildPsf(c.psfType, c.half, &custom, &o.psf, &o.rev, &side));
        o.r = (side - 1) / 2;
        o.range = ApplyRange(c.mn, c.mx, c.f);
        o.reduce = c.reduce;
        for (int it = 1; it <= 3; ++it) {
            ASSERT_TRUE(img.RestoreIteration(planes.estimate[0], planes.scratch1[0],
                                             planes.scratch2[0], it > 1, img.prevPlane[0],
                                             img.curPlane[0], &custom, c.type, c.psfType, c.relax,
                                             c.half, it == 1, c.mn, c.mx, c.f, c.reduce));
            o.Iterate(c.type, c.relax, it == 1);
            ASSERT_EQ(Plane(planes.estimate[0], w, h), o.x) << "estimate, iteration " << it;
            ASSERT_EQ(Plane(img.curPlane[0], w, h), o.cur) << "output, iteration " << it;
            ASSERT_EQ(Plane(img.prevPlane[0], w, h), src) << "the observed plane stays";
        }
    }
}

TEST(Restoration, AdaptiveRuleMatchesThePlainComputation) {
    const int w = 29, h = 17;
    const std::vector<float> src = RandomPlane(w, h, 11, 0.0);
    for (double threshold : {2.0, 0.0, 0.35}) {
        Image img;
        MakeImage(img, w, h, ColorGray, [&](int, int x, int y) { return src[y * w + x]; });
        RestorationPlanes planes;
        ASSERT_TRUE(planes.Allocate(img));
        Oracle o{w, h, src, src, src, {}, {}, 0};
        int side = 0;
        ASSERT_TRUE(BuildPsf(PsfGauss, 2, nullptr, &o.psf, &o.rev, &side));
        o.r = 2;
        o.range = ApplyRange(100, 60000, 300);
        o.reduce = true;
        for (int it = 1; it <= 3; ++it) {
            ASSERT_TRUE(img.RestoreIterationAdaptive(planes.estimate[0], planes.scratch1[0],
                                                     planes.scratch2[0], it > 1, img.prevPlane[0],
                                                     img.curPlane[0], nullptr, PsfGauss, threshold,
                                                     2, it == 1, 100, 60000, 300, true));
            o.IterateAdaptive(threshold, it == 1);
            ASSERT_EQ(Plane(planes.estimate[0], w, h), o.x) << threshold << " iteration " << it;
            ASSERT_EQ(Plane(img.curPlane[0], w, h), o.cur) << threshold << " iteration " << it;
        }
    }
}

TEST(Restoration, AdaptivePixelWithZeroEstimateIsFullyDamped) {
    // x = 0 meets ln(0): U is limited to 1, D = 1 and q = (g - c) / c + 1 = g / c in effect.
    const int w = 9, h = 9;
    Image img;
    MakeImage(img, w, h, ColorGray, [](int, int x, int y) { return 1000.0 + 10 * x + y; });
    RestorationPlanes planes;
    ASSERT_TRUE(planes.Allocate(img));
    for (int i = 0; i < w * h; ++i)
        planes.estimate[0][i] = 900.0f + i;
    const int at = 4 * w + 4;
    planes.estimate[0][at] = 0.0f;
    const std::vector<float> x = Plane(planes.estimate[0], w, h);
    ASSERT_TRUE(img.RestoreIterationAdaptive(
        planes.estimate[0], planes.scratch1[0], planes.scratch2[0], true, img.prevPlane[0],
        img.curPlane[0], nullptr, PsfBox, 2.0, 1, false, 0, 65535, 0, false));
    std::vector<double> psf, rev;
    int side = 0;
    ASSERT_TRUE(BuildPsf(PsfBox, 1, nullptr, &psf, &rev, &side));
    bool nd = false;
    const double c = Conv(x, w, h, 4, 4, psf, 1, &nd);
    const double g = img.prevPlane[0][at];
    EXPECT_EQ(planes.scratch1[0][at], static_cast<float>((g - c) / c * 1.0 + 1.0));
    EXPECT_TRUE(std::isfinite(planes.scratch1[0][at]));
    EXPECT_EQ(planes.estimate[0][at], 0.0f) << "0 times anything stays 0";
}

TEST(Restoration, RelaxZeroAndZeroPixels) {
    const int w = 16, h = 12;
    for (int type : {VanCittert, RichardsonLucy, OneStepGradient}) {
        Image img;
        MakeImage(img, w, h, ColorGray, [](int, int x, int y) {
            return (x == 5 && y == 5) ? 0.0 : 500.0 + 97 * x + 13 * y;
        });
        RestorationPlanes planes;
        ASSERT_TRUE(planes.Allocate(img));
        const std::vector<float> g = Plane(img.curPlane[0], w, h);
        ASSERT_TRUE(img.RestoreIteration(planes.estimate[0], planes.scratch1[0], planes.scratch2[0],
                                         false, img.prevPlane[0], img.curPlane[0], nullptr, type,
                                         PsfGauss, 0.0, 2, true, 0, 65535, 0, false));
        for (int i = 0; i < w * h; ++i)
            ASSERT_EQ(img.curPlane[0][i], type == RichardsonLucy ? 0.0f : g[i])
                << RestorationTypeWord(type) << " pixel " << i;
    }
    // Richardson-Lucy keeps a zero pixel at zero over many iterations.
    Image img;
    MakeImage(img, w, h, ColorGray,
              [](int, int x, int y) { return (x == 5 && y == 5) ? 0.0 : 500.0 + 97 * x + 13 * y; });
    std::string error;
    RestorationParams p;
    p.type = RichardsonLucy;
    p.relax = 1.0;
    p.iterations = 6;
    ASSERT_TRUE(ApplyRestoration(img, p, nullptr, nullptr, &error)) << error;
    EXPECT_EQ(img.curPlane[0][5 * w + 5], 0.0f);
    EXPECT_NE(img.curPlane[0][5 * w + 6], 0.0f);
}

TEST(Restoration, AsymmetricCustomPsfIsReversedInPassTwoExceptMaximumEntropy) {
    const CCustomPSF custom = Lopsided();
    std::vector<double> psf, rev;
    int side = 0;
    ASSERT_TRUE(BuildPsf(PsfCustom, 7, &custom, &psf, &rev, &side)); // h comes from the PSF
    ASSERT_EQ(side, 3);
    EXPECT_DOUBLE_EQ(psf[5], 0.6 / 3.1);
    EXPECT_EQ(rev[3], psf[5]);
    EXPECT_EQ(rev[0], psf[8]);

    const int w = 20, h = 14;
    const std::vector<float> src = RandomPlane(w, h, 5, 0.0);
    for (int type : {RichardsonLucy, MaximumEntropy, OneStepGradient}) {
        Image img;
        MakeImage(img, w, h, ColorGray, [&](int, int x, int y) { return src[y * w + x]; });
        RestorationPlanes planes;
        ASSERT_TRUE(planes.Allocate(img));
        ASSERT_TRUE(img.RestoreIteration(planes.estimate[0], planes.scratch1[0], planes.scratch2[0],
                                         false, img.prevPlane[0], img.curPlane[0], &custom, type,
                                         PsfCustom, 1.0, 1, true, 0, 65535, 0, false));
        // The rule as built, and the rule with the other choice of kernel in pass 2.
        Oracle asBuilt{w, h, src, src, src, psf, rev, 1};
        asBuilt.Iterate(type, 1.0, true);
        Oracle other{w, h, src, src, src, psf, rev, 1};
        if (type == MaximumEntropy)
            other.psf = rev; // ... would use the reversal in pass 1 and 2
        else
            other.rev = psf; // ... would not reverse in pass 2
        other.Iterate(type, 1.0, true);
        const std::vector<float> got = Plane(planes.estimate[0], w, h);
        EXPECT_EQ(got, asBuilt.x) << RestorationTypeWord(type);
        EXPECT_NE(got, other.x) << RestorationTypeWord(type);
    }
}

TEST(Restoration, PsfSizesAndBuilding) {
    EXPECT_EQ(PsfSides(PsfBinomial).back(), 11);
    EXPECT_EQ(PsfSides(PsfBinomial).size(), 5u);
    EXPECT_EQ(PsfSides(PsfGauss).back(), 65);
    EXPECT_EQ(PsfSides(PsfBox).front(), 3);
    std::vector<double> psf, rev;
    int side = 0;
    EXPECT_FALSE(BuildPsf(PsfBinomial, 6, nullptr, &psf, &rev, &side)) << "no Binomial of 13";
    EXPECT_FALSE(BuildPsf(PsfGauss, 33, nullptr, &psf, &rev, &side));
    EXPECT_FALSE(BuildPsf(PsfCustom, 1, nullptr, &psf, &rev, &side));
    CCustomPSF zero;
    zero.values.fill(0.0);
    EXPECT_FALSE(BuildPsf(PsfCustom, 1, &zero, &psf, &rev, &side));

    ASSERT_TRUE(BuildPsf(PsfBinomial, 5, nullptr, &psf, &rev, &side));
    EXPECT_EQ(side, 11);
    EXPECT_DOUBLE_EQ(psf[5 * 11 + 5], 252.0 * 252.0 / (1024.0 * 1024.0));
    ASSERT_TRUE(BuildPsf(PsfGauss, 2, nullptr, &psf, &rev, &side));
    // v = 16 / 9: the corner weighs exp(-8 / v) of the centre.
    EXPECT_NEAR(psf[0] / psf[12], std::exp(-8.0 * 9.0 / 16.0), 1e-15);
    ASSERT_TRUE(BuildPsf(PsfBox, 1, nullptr, &psf, &rev, &side));
    EXPECT_DOUBLE_EQ(psf[4], 1.0 / 9.0);

    // A Binomial of 13 is refused by the iteration too, which then changes nothing.
    Image img;
    MakeImage(img, 8, 8, ColorGray, [](int, int x, int) { return 100.0 * x; });
    RestorationPlanes planes;
    ASSERT_TRUE(planes.Allocate(img));
    EXPECT_FALSE(img.RestoreIteration(
        planes.estimate[0], planes.scratch1[0], planes.scratch2[0], false, img.prevPlane[0],
        img.curPlane[0], nullptr, RichardsonLucy, PsfBinomial, 1.0, 6, true, 0, 65535, 0, false));
    EXPECT_EQ(img.curPlane[0][7], 700.0f);
}

TEST(Restoration, NoDataPixelsKeepTheirValue) {
    // A -1.0 in the observed image: its neighbours' second-pass windows hold no data.
    const int w = 12, h = 10;
    Image img;
    MakeImage(img, w, h, ColorGray,
              [](int, int x, int y) { return (x == 6 && y == 4) ? -1.0 : 1000.0 + 50 * x; });
    RestorationPlanes planes;
    ASSERT_TRUE(planes.Allocate(img));
    ASSERT_TRUE(img.RestoreIteration(planes.estimate[0], planes.scratch1[0], planes.scratch2[0],
                                     false, img.prevPlane[0], img.curPlane[0], nullptr, VanCittert,
                                     PsfBox, 0.5, 1, true, -10, 65535, 0, false));
    for (int y = 3; y <= 5; ++y)
        for (int x = 5; x <= 7; ++x)
            EXPECT_EQ(planes.estimate[0][y * w + x], img.prevPlane[0][y * w + x]) << x << "," << y;
    EXPECT_NE(planes.estimate[0][0], img.prevPlane[0][0]);
}

TEST(Restoration, ParameterTexts) {
    RestorationParams p;
    EXPECT_EQ(FormatRestoration(p),
              "Restoration Type : Van Cittert#PSF Type : Gauss#PSF Size : 5x5#Relax Value :  0.20#"
              "Reduce Artifacts : No#Apply Min : 0#Apply Max : 65535#Feather Range : 0#");
    p.type = MaximumEntropy;
    p.psfType = PsfCustom;
    p.halfSize = 3;
    p.relax = 1.3;
    p.reduceArtifacts = true;
    p.applyMin = 12;
    p.applyMax = 34000;
    p.feather = 56;
    const std::string text = FormatRestoration(p) + FormatIterations(17);
    EXPECT_EQ(text, "Restoration Type : Maximum Entropy#PSF Type : Custom#PSF Size : 7x7#"
                    "Relax Value :  1.30#Reduce Artifacts : Yes#Apply Min : 12#Apply Max : 34000#"
                    "Feather Range : 56#Iterations : 17#");
    RestorationParams back;
    bool has = false;
    std::string error;
    ASSERT_TRUE(ParseRestoration(text, &back, &error, &has)) << error;
    EXPECT_TRUE(has);
    EXPECT_EQ(back.iterations, 17);
    EXPECT_EQ(FormatRestoration(back), FormatRestoration(p));
    for (int t = 1; t <= 4; ++t) {
        RestorationParams q;
        q.type = t;
        q.relax = DefaultRelax(t);
        RestorationParams r;
        ASSERT_TRUE(ParseRestoration(FormatRestoration(q), &r, nullptr, &has));
        EXPECT_FALSE(has);
        EXPECT_EQ(r.type, t);
        EXPECT_EQ(r.relax, DefaultRelax(t));
    }
    EXPECT_EQ(DefaultRelax(VanCittert), 0.20);
    EXPECT_EQ(DefaultRelax(MaximumEntropy), 1.30);
    EXPECT_EQ(DefaultRelax(RichardsonLucy), 1.00);

    AdaptiveRestorationParams a;
    EXPECT_EQ(FormatAdaptiveRestoration(a),
              "PSF Type : Gauss#PSF Size : 5x5#Noise Threshold :  2.00#Reduce Artifacts : No#"
              "Apply Min : 0#Apply Max : 65535#Feather Range : 0#");
    a.psfType = PsfBinomial;
    a.halfSize = 4;
    a.noiseThreshold = 10.0;
    AdaptiveRestorationParams ab;
    ASSERT_TRUE(ParseAdaptiveRestoration(FormatAdaptiveRestoration(a), &ab, &error));
    EXPECT_EQ(FormatAdaptiveRestoration(ab), "PSF Type : Binomial#PSF Size : 9x9#Noise Threshold : "
                                             "10.00#Reduce Artifacts : No#Apply Min : 0#Apply "
                                             "Max : 65535#Feather Range : 0#");

    EXPECT_FALSE(ParseRestoration("Restoration Type : Wiener#PSF Type : Gauss#", &back, &error));
    EXPECT_NE(error.find("restoration type"), std::string::npos) << error;
    EXPECT_FALSE(ParseRestoration("Restoration Type : Van Cittert#PSF Type : Gauss#PSF Size : "
                                  "5x5#Relax Value : 0.20#Reduce Artifacts : No#",
                                  &back, &error));
    EXPECT_NE(error.find("apply min"), std::string::npos) << error;
}

namespace {

/// Cancels once the given iteration has been reported.
class CancelAt : public IProgress {
public:
    explicit CancelAt(int at) : at_(at) {}
    void SetProgress(long step, long) override {
        if (step >= at_)
            RequestCancel();
    }

private:
    int at_;
};

} // namespace

TEST(Restoration, RunRecordsTheIterationsDoneAndReplaysBitForBit) {
    struct Case {
        bool adaptive;
        int type;
        int cancelAt; // 0: no cancel
        int stepStop; // 0: no step through
        bool color;
    };
    const Case cases[] = {{false, RichardsonLucy, 0, 0, false},
                          {false, VanCittert, 3, 0, true},
                          {false, MaximumEntropy, 0, 2, false},
                          {false, OneStepGradient, 0, 0, true},
                          {true, 0, 2, 0, false},
                          {true, 0, 0, 0, true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.adaptive << " " << c.type);
        RecordingNotify notify;
        CProcessWindow w(&notify);
        MakeImage(w.image, 24, 18, c.color ? ColorRGB : ColorGray, [](int s, int x, int y) {
            return 300.0 + 211 * ((x * 7 + y * 3 + s) % 11) + 9 * y;
        });
        w.BeginHistory("Read");
        CancelAt cancel(c.cancelAt ? c.cancelAt : 1000);
        int asked = 0;
        std::function<bool(int)> step;
        if (c.stepStop)
            step = [&](int done) {
                ++asked;
                return done < c.stepStop;
            };
        bool ok = false;
        std::string name;
        if (c.adaptive) {
            AdaptiveRestorationParams p;
            p.iterations = 5;
            ok = w.AdaptiveRestoration(p, nullptr, &cancel, step);
            name = "Adaptive Richardson-Lucy";
        } else {
            RestorationParams p;
            p.type = c.type;
            p.relax = DefaultRelax(c.type);
            p.iterations = 5;
            ok = w.IterativeRestoration(p, nullptr, &cancel, step);
            name = "Non-Adaptive Iterative Restoration";
        }
        ASSERT_TRUE(ok);
        ASSERT_EQ(w.history.size(), 2u) << "one run, one step";
        EXPECT_EQ(w.history[1].operation, name);
        const int expected = c.cancelAt ? c.cancelAt : (c.stepStop ? c.stepStop : 5);
        const std::string tail = "Iterations : " + std::to_string(expected) + "#";
        const std::string& text = w.history[1].parameters;
        ASSERT_GE(text.size(), tail.size());
        EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
        if (c.stepStop) {
            EXPECT_EQ(asked, c.stepStop);
        }

        Image replayed;
        MakeImage(replayed, 24, 18, c.color ? ColorRGB : ColorGray, [](int s, int x, int y) {
            return 300.0 + 211 * ((x * 7 + y * 3 + s) % 11) + 9 * y;
        });
        std::string error;
        ASSERT_TRUE(replayed.ApplyCommand(w.history[1], nullptr, nullptr, nullptr, &error))
            << error;
        for (int s : replayed.Slots())
            ASSERT_EQ(Plane(replayed.curPlane[s], 24, 18), Plane(w.image.curPlane[s], 24, 18))
                << "slot " << s;
        // The iterations changed something.
        EXPECT_NE(Plane(w.image.curPlane[w.image.Slots()[0]], 24, 18),
                  Plane(w.image.prevPlane[w.image.Slots()[0]], 24, 18));
    }
}

TEST(Restoration, ApplyingAgainStartsFromTheStepsInput) {
    RecordingNotify notify;
    CProcessWindow w(&notify);
    MakeImage(w.image, 16, 16, ColorGray,
              [](int, int x, int y) { return 1000.0 + 300 * ((x ^ y) & 3); });
    w.BeginHistory("Read");
    RestorationParams p;
    p.type = RichardsonLucy;
    p.relax = 1.0;
    p.iterations = 3;
    ASSERT_TRUE(w.IterativeRestoration(p, nullptr, nullptr));
    const std::vector<float> once = Plane(w.image.curPlane[0], 16, 16);
    ASSERT_TRUE(w.IterativeRestoration(p, nullptr, nullptr));
    EXPECT_EQ(w.history.size(), 2u);
    EXPECT_EQ(Plane(w.image.curPlane[0], 16, 16), once);
}

TEST(Restoration, CustomPsfWithSumZeroIsRefusedBeforeAnythingIsRecorded) {
    RecordingNotify notify;
    CProcessWindow w(&notify);
    MakeImage(w.image, 8, 8, ColorGray, [](int, int x, int) { return 100.0 * x; });
    w.BeginHistory("Read");
    CCustomPSF zero;
    zero.values.fill(0.0);
    RestorationParams p;
    p.psfType = PsfCustom;
    EXPECT_FALSE(w.IterativeRestoration(p, &zero, nullptr));
    ASSERT_FALSE(notify.messages.empty());
    EXPECT_EQ(notify.messages.back(), "The PSF's Sum Can't Be 0.");
    EXPECT_EQ(w.history.size(), 1u);
}
