// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Smoothing: the apply range and feather, the separable filters against a plain double
/// convolution, the clamped edges, the window limits and their texts, progress and cancel,
/// the parameter text and its replay.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <random>
#include <vector>

#include "TestSupport.h"
#include "engine/ProcessStructure.h"
#include "engine/ProcessWindow.h"
#include "operators/Filters.h"
#include "operators/filters/RankOracle.h"
#include "operators/filters/SmoothingKernels.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

const int kAllTypes[] = {SmoothBox,      SmoothBinomial, SmoothGaussian,      SmoothSelectedNbhd,
                         SmoothQuantile, SmoothMedian,   SmoothAbsDifference, SmoothAdaptiveMedian};

double Noise(int s, int x, int y) {
    return static_cast<double>((x * 7919 + y * 104729 + s * 31) % 50000 + 1000);
}

bool SmoothPlane(Image& img, int type, int half, double strength, int mn = 0, int mx = 65535,
                 int feather = 0, IProgress* progress = nullptr, int order = 1) {
    return img.Smooth(progress, false, img.prevPlane[0], img.curPlane[0], type, half, strength,
                      order, mn, mx, feather);
}

/// A progress owner that cancels when a given status text is told for the n-th time.
class CancelAt : public RecordingProgress {
public:
    CancelAt(std::string text, int times) : text_(std::move(text)), times_(times) {}
    void SetStatus(const std::string& text) override {
        RecordingProgress::SetStatus(text);
        if (text == text_ && --times_ == 0)
            RequestCancel();
    }

private:
    std::string text_;
    int times_;
};

} // namespace

TEST(Smoothing, StrengthZeroLeavesEveryPixel) {
    for (int type : kAllTypes) {
        Image img;
        MakeImage(img, 33, 21, ColorGray, Noise);
        ASSERT_TRUE(SmoothPlane(img, type, 2, 0.0, 10000, 30000, 2000)) << type;
        for (int i = 0; i < 33 * 21; ++i)
            ASSERT_EQ(img.curPlane[0][i], img.prevPlane[0][i]) << SmoothingTypeName(type) << i;
    }
}

TEST(Smoothing, ApplyRangeAndFeather) {
    // A 3 x 3 median in a background of 9700: an isolated pixel's r is 9700.
    {
        Image img;
        MakeImage(img, 20, 5, ColorGray, [](int, int x, int y) {
            if (y != 2)
                return 9700.0;
            return x == 2    ? 9500.0
                   : x == 7  ? 9000.0
                   : x == 12 ? 20500.0
                   : x == 16 ? 15000.0
                             : 9700.0;
        });
        ASSERT_TRUE(SmoothPlane(img, SmoothMedian, 1, 1.0, 10000, 20000, 1000));
        const float* out = img.curPlane[0] + 2 * 20;
        EXPECT_EQ(out[2], 9600.0f) << "9500: weight 0.5";
        EXPECT_EQ(out[7], 9000.0f) << "9000 is lo: weight 0";
        EXPECT_EQ(out[12], 15100.0f) << "20500: weight 0.5";
        EXPECT_EQ(out[16], 9700.0f) << "inside: the full change";
    }
    // A feather larger than Apply Min: lo is negative and a black pixel is in range.
    Image dark;
    MakeImage(dark, 5, 5, ColorGray,
              [](int, int x, int y) { return x == 2 && y == 2 ? 0.0 : 400.0; });
    ASSERT_TRUE(SmoothPlane(dark, SmoothMedian, 1, 1.0, 500, 65535, 1000));
    EXPECT_EQ(dark.curPlane[0][12], 200.0f) << "w = (0 - (-500)) / 1000";
    // Output is clamped to the image's maximum.
    Image bright;
    MakeImage(bright, 5, 5, ColorGray, [](int, int x, int y) { return 60000.0; });
    bright.maxValue = 50000;
    ASSERT_TRUE(SmoothPlane(bright, SmoothBox, 1, 1.0));
    EXPECT_EQ(bright.curPlane[0][12], 50000.0f);
}

TEST(Smoothing, SeparableFiltersMatchAPlainDoubleConvolution) {
    struct Case {
        int type, w, h, half;
    };
    const Case cases[] = {
        {SmoothBox, 41, 23, 1},      {SmoothBox, 37, 29, 7},       {SmoothBox, 19, 60, 30},
        {SmoothBinomial, 45, 31, 3}, {SmoothBinomial, 50, 20, 12}, {SmoothGaussian, 53, 35, 5},
        {SmoothGaussian, 70, 9, 20}, {SmoothGaussian, 17, 80, 40},
    };
    for (const Case& c : cases) {
        Image img;
        std::mt19937 gen(c.w * 100 + c.half);
        std::uniform_real_distribution<double> u(0, 65535);
        std::vector<double> in(c.w * c.h);
        for (double& v : in)
            v = static_cast<float>(u(gen));
        MakeImage(img, c.w, c.h, ColorGray, [&](int, int x, int y) { return in[y * c.w + x]; });
        ASSERT_TRUE(SmoothPlane(img, c.type, c.half, 1.0));
        const int n = 2 * c.half + 1;
        std::vector<double> k(n);
        ASSERT_TRUE(smoothing::SeparableKernel(c.type, c.half, k.data()));
        double worst = 0;
        for (int y = 0; y < c.h; ++y)
            for (int x = 0; x < c.w; ++x) {
                double ref = 0;
                for (int dy = -c.half; dy <= c.half; ++dy)
                    for (int dx = -c.half; dx <= c.half; ++dx)
                        ref += k[dy + c.half] * k[dx + c.half] *
                               in[std::clamp(y + dy, 0, c.h - 1) * c.w +
                                  std::clamp(x + dx, 0, c.w - 1)];
                const double got = img.curPlane[0][y * c.w + x];
                worst = std::max(worst, std::fabs(got - ref) / std::max(ref, 1.0));
            }
        // Two float stores: within about two float steps of the exact value.
        EXPECT_LT(worst, 2.5e-7) << SmoothingTypeName(c.type) << " " << n;
    }
}

TEST(Smoothing, SeparablePassesClampAtACorner) {
    // A 3 x 3 box at (0, 0) reads rows and columns 0, 0, 1: (0,0) four times, (1,1) once.
    Image img;
    MakeImage(img, 4, 4, ColorGray, [](int, int x, int y) {
        const double v[2][2] = {{1000, 2000}, {3000, 40000}};
        return x < 2 && y < 2 ? v[y][x] : 50000.0;
    });
    ASSERT_TRUE(SmoothPlane(img, SmoothBox, 1, 1.0));
    const double clamp = (4 * 1000 + 2 * 2000 + 2 * 3000 + 40000) / 9.0;
    const double mirror = (1000 + 2 * 2000 + 2 * 3000 + 4 * 40000) / 9.0;
    EXPECT_NEAR(img.curPlane[0][0], clamp, 0.01);
    EXPECT_GT(std::fabs(clamp - mirror), 1000);
}

TEST(Smoothing, KernelsAndWindowLimits) {
    // Binomial 171 has finite weights summing to one; 173 is refused and set back.
    std::vector<double> w(171);
    ASSERT_TRUE(smoothing::SeparableKernel(SmoothBinomial, 85, w.data()));
    double sum = 0;
    for (double v : w) {
        ASSERT_TRUE(std::isfinite(v));
        sum += v;
    }
    EXPECT_NEAR(sum, 1.0, 1e-12);
    EXPECT_DOUBLE_EQ(w[85] / w[84], 86.0 / 85.0);
    // Gaussian: exp(-i^2 / v), v = (n-1)^2 / 9.
    std::vector<double> g(5);
    smoothing::SeparableKernel(SmoothGaussian, 2, g.data());
    EXPECT_DOUBLE_EQ(g[0] / g[2], std::exp(-4.0 / (16.0 / 9.0)));

    struct Case {
        int type, half, limited;
        const char* text;
    };
    const Case cases[] = {
        {SmoothBinomial, 86, 85, "Maximum blur window size of the binomial function is 171 x 171."},
        {SmoothBinomial, 85, 85, nullptr},
        {SmoothSelectedNbhd, 26, 25,
         "Maximum blur window size of the Selected Neighborhood function is 51 x 51."},
        {SmoothQuantile, 30, 25, "Maximum blur window size of the Quantile function is 51 x 51."},
        {SmoothMedian, 499, 25, "Maximum blur window size of the Median function is 51 x 51."},
        {SmoothAbsDifference, 26, 25,
         "Maximum blur window size of the Absolute Difference function is 51 x 51."},
        {SmoothAdaptiveMedian, 26, 25,
         "Maximum blur window size of the Adaptive Median function is 51 x 51."},
        {SmoothMedian, 25, 25, nullptr},
        {SmoothGaussian, 499, 499, nullptr},
        {SmoothBox, 499, 499, nullptr},
    };
    for (const Case& c : cases) {
        SmoothingParams p;
        p.type = c.type;
        p.halfSize = c.half;
        std::string text;
        EXPECT_EQ(LimitSmoothingWindow(&p, &text), c.text != nullptr) << c.type;
        EXPECT_EQ(p.halfSize, c.limited);
        EXPECT_EQ(text, c.text ? c.text : "");
    }
}

TEST(Smoothing, OperatorShowsTheLimitAndGoesOn) {
    RecordingNotify notify;
    CProcessWindow w(&notify);
    MakeImage(w.image, 200, 180, ColorGray, Noise);
    w.BeginHistory("Read");
    SmoothingParams p;
    p.type = SmoothBinomial;
    p.halfSize = 86; // 173 x 173
    ASSERT_TRUE(w.Smoothing(p, nullptr));
    ASSERT_EQ(notify.messages.size(), 1u);
    EXPECT_EQ(notify.messages[0],
              "Maximum blur window size of the binomial function is 171 x 171.");
    ASSERT_EQ(w.history.size(), 2u);
    EXPECT_EQ(w.history[1].parameters,
              "Type : Binomial Filter#Filter Strength : 1.00000#Window Size "
              ": 171 x 171#Apply Min : 0#Apply Max : 65535#Feather Range : 0#");
}

TEST(Smoothing, WindowNotSmallerThanTheImageIsRefused) {
    struct Case {
        int w, h, half;
        bool runs;
    };
    const Case cases[] = {{20, 10, 10, false},
                          {21, 21, 10, false},
                          {22, 10, 10, true},
                          {10, 30, 10, true},
                          {22, 22, 10, true}};
    for (const Case& c : cases) {
        RecordingNotify notify;
        CProcessWindow w(&notify);
        MakeImage(w.image, c.w, c.h, ColorGray, Noise);
        w.BeginHistory("Read");
        SmoothingParams p;
        p.type = SmoothGaussian;
        p.halfSize = c.half;
        EXPECT_EQ(w.Smoothing(p, nullptr), c.runs) << c.w << "x" << c.h;
        EXPECT_EQ(w.history.size(), c.runs ? 2u : 1u);
        if (!c.runs) {
            EXPECT_EQ(
                notify.messages,
                std::vector<std::string>{
                    "Window Size is large than the image. Use a smaller smoothing Window Size."});
        }
    }
}

TEST(Smoothing, RangeTexts) {
    EXPECT_EQ(SmoothingRangeText(100, 200, true), "");
    EXPECT_EQ(SmoothingRangeText(200, 200, true),
              "Please select a min luminance less than max luminance.");
    EXPECT_EQ(SmoothingRangeText(300, 200, false),
              "Please select a max luminance greater than min luminance.");
    EXPECT_EQ(SmoothingSizeLabel(1), "3x3");
    EXPECT_EQ(SmoothingSizeLabel(499), "999x999");
    EXPECT_EQ(SmoothingOrderValue(4), 3);
    EXPECT_EQ(SmoothingOrderValue(999), 997);
    EXPECT_EQ(SmoothingOrderValue(0), 1);
    EXPECT_EQ(SmoothingPositionOfStrength(0.37), 37);
    EXPECT_DOUBLE_EQ(SmoothingStrengthOfPosition(37), 0.37);
}

TEST(Smoothing, ProgressTextsAndBar) {
    struct Case {
        int type;
        const char* text;
        long total;
    };
    const Case cases[] = {
        {SmoothBox, "Box Filter ...", 4},
        {SmoothBinomial, "Binomial Filter ...", 4},
        {SmoothGaussian, "Gaussian Filter ...", 4},
        {SmoothSelectedNbhd, "Selected Nbhd Filter ...", 250},
        {SmoothQuantile, "Quantile Filter ...", 250},
        {SmoothMedian, "Median Filter ...", 250},
        {SmoothAbsDifference, "Absolute Difference Filter ...", 250},
        {SmoothAdaptiveMedian, "Adaptive Median Filter ...", 250},
    };
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, 12, 250, ColorGray, Noise);
        RecordingProgress progress;
        ASSERT_TRUE(SmoothPlane(img, c.type, 2, 1.0, 0, 65535, 0, &progress));
        EXPECT_EQ(progress.statuses, std::vector<std::string>{c.text});
        EXPECT_EQ(progress.lastStep, c.total);
        EXPECT_EQ(progress.lastTotal, c.total);
    }
}

TEST(Smoothing, CancelRestoresThePlaneAndSkipsTheRest) {
    struct Case {
        int type;
        const char* running;
        const char* cancelled;
    };
    const Case cases[] = {
        {SmoothGaussian, "Gaussian Filter ...", "Gaussian Filter Canceled."},
        {SmoothBox, "Box Filter ...", "Box Filter Canceled."},
        {SmoothMedian, "Median Filter ...", "Median Filter Canceled."},
        {SmoothSelectedNbhd, "Selected Nbhd Filter ...", "Selected Nbhd Filter Canceled."},
        {SmoothQuantile, "Quantile Filter ...", "Quantile Filter Canceled."},
        {SmoothAbsDifference, "Absolute Difference Filter ...",
         "Absolute Difference Filter Canceled."},
        {SmoothAdaptiveMedian, "Adaptive Median Filter ...", "Adaptive Median Filter Canceled."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.running);
        // Cancel as the second plane (green) starts: red stays filtered, green is restored,
        // blue is not touched.
        CProcessWindow w;
        MakeImage(w.image, 30, 20, ColorRGB, Noise);
        w.BeginHistory("Read");
        CancelAt progress(c.running, 2);
        SmoothingParams p;
        p.type = c.type;
        p.halfSize = 2;
        EXPECT_FALSE(w.Smoothing(p, &progress));
        ASSERT_GE(progress.statuses.size(), 3u);
        EXPECT_EQ(progress.statuses.back(), c.cancelled);
        int changedRed = 0;
        for (int y = 0; y < 20; ++y)
            for (int x = 0; x < 30; ++x) {
                const int i = y * 30 + x;
                changedRed += w.image.curPlane[0][i] != static_cast<float>(Noise(0, x, y));
                ASSERT_EQ(w.image.curPlane[1][i], static_cast<float>(Noise(1, x, y)));
                ASSERT_EQ(w.image.curPlane[2][i], static_cast<float>(Noise(2, x, y)));
            }
        EXPECT_GT(changedRed, 100);
    }
}

TEST(Smoothing, ParameterTextsOfBothForms) {
    SmoothingParams median;
    median.type = SmoothMedian;
    median.halfSize = 2;
    median.strength = 0.5;
    median.applyMin = 100;
    median.applyMax = 60000;
    median.feather = 25;
    const std::string shortForm = "Type : Median#Filter Strength : 0.50000#Window Size : 5 x 5#"
                                  "Apply Min : 100#Apply Max : 60000#Feather Range : 25#";
    EXPECT_EQ(FormatSmoothing(median), shortForm);
    SmoothingParams adaptive = median;
    adaptive.type = SmoothAdaptiveMedian;
    adaptive.order = 7;
    const std::string longForm =
        "Type : Adaptive Median#Filter Strength : 0.50000#Window Size : 5 x 5#"
        "Order : 7#Apply Min : 100#Apply Max : 60000#Feather Range : 25#";
    EXPECT_EQ(FormatSmoothing(adaptive), longForm);

    for (const std::string& text : {shortForm, longForm}) {
        SmoothingParams back;
        std::string error;
        ASSERT_TRUE(ParseSmoothing(text, &back, &error)) << error;
        EXPECT_EQ(FormatSmoothing(back), text);
    }
    SmoothingParams back;
    ASSERT_TRUE(ParseSmoothing(longForm, &back, nullptr));
    EXPECT_EQ(back.order, 7);
    EXPECT_EQ(back.halfSize, 2);

    // Every type name is known and the names round trip.
    for (int type : kAllTypes)
        EXPECT_EQ(SmoothingTypeOfName(SmoothingTypeName(type)), type);
    EXPECT_FALSE(IsSmoothingType(7));

    std::string error;
    EXPECT_FALSE(ParseSmoothing("Type : Sharpen#Filter Strength : 1.00000#", &back, &error));
    EXPECT_EQ(error, "Smoothing: type missing in \"Type : Sharpen#Filter Strength : 1.00000#\"");
    EXPECT_FALSE(
        ParseSmoothing("Type : Adaptive Median#Filter Strength : 0.50000#Window Size : 5 x 5#"
                       "Apply Min : 100#Apply Max : 60000#",
                       &back, &error));
}

TEST(Smoothing, ReplayGivesThePixelsOfTheOperator) {
    struct Case {
        int type, half, order;
        bool color;
    };
    const Case cases[] = {{SmoothGaussian, 3, 1, true},        {SmoothBox, 4, 1, false},
                          {SmoothBinomial, 2, 1, true},        {SmoothMedian, 3, 1, true},
                          {SmoothAdaptiveMedian, 2, 5, false}, {SmoothQuantile, 2, 1, false},
                          {SmoothSelectedNbhd, 2, 1, true},    {SmoothAbsDifference, 3, 1, false}};
    for (const Case& c : cases) {
        CProcessWindow w;
        MakeImage(w.image, 40, 30, c.color ? ColorRGB : ColorGray, Noise);
        w.BeginHistory("Read");
        Image copy;
        MakeImage(copy, 40, 30, c.color ? ColorRGB : ColorGray, Noise);
        SmoothingParams p;
        p.type = c.type;
        p.halfSize = c.half;
        p.order = c.order;
        p.strength = 0.8;
        p.applyMin = 5000;
        p.applyMax = 45000;
        p.feather = 3000;
        ASSERT_TRUE(w.Smoothing(p, nullptr));
        ASSERT_EQ(w.history.size(), 2u);
        CProcessStructure r = w.history[1];
        EXPECT_EQ(r.operation, "Smoothing");
        std::string error;
        ASSERT_TRUE(copy.ApplyCommand(r, nullptr, nullptr, nullptr, &error)) << error;
        int changed = 0;
        for (int s : copy.Slots())
            for (int i = 0; i < 40 * 30; ++i) {
                ASSERT_EQ(std::memcmp(&copy.curPlane[s][i], &w.image.curPlane[s][i], 4), 0)
                    << SmoothingTypeName(c.type) << " slot " << s << " pixel " << i;
                changed += copy.curPlane[s][i] != w.image.prevPlane[s][i];
            }
        EXPECT_GT(changed, 100) << SmoothingTypeName(c.type);
    }
    // Replay refuses a window not smaller than the image with its text.
    Image small;
    MakeImage(small, 8, 8, ColorGray, Noise);
    CProcessStructure r;
    r.operation = "Smoothing";
    r.parameters = "Type : Box Filter#Filter Strength : 1.00000#Window Size : 9 x 9#Apply Min : 0#"
                   "Apply Max : 65535#Feather Range : 0#";
    std::string error;
    EXPECT_FALSE(small.ApplyCommand(r, nullptr, nullptr, nullptr, &error));
    EXPECT_EQ(error, "Window Size is large than the image. Use a smaller smoothing Window Size.");
}

TEST(Smoothing, SetWindowKeepsTheWindow) {
    Image img;
    img.SetWindow(3);
    EXPECT_EQ(img.windowHalf, 3);
    EXPECT_EQ(img.windowSide, 7);
    EXPECT_EQ(img.windowCount, 49);
    ASSERT_EQ(img.windowWeights.size(), 50u);
    for (double v : img.windowWeights)
        EXPECT_EQ(v, 0.0);
}

TEST(Smoothing, RealImageRankFiltersMatchThePlainForm) {
    const std::string path = RealData("fits/stack_m13/M13_blue_0001.fits");
    if (path.empty() || !std::filesystem::exists(path))
        GTEST_SKIP() << "real data not present (fits/stack_m13)";
    Image img;
    ASSERT_TRUE(img.ReadFile(path, ".fits"));
    const int slot = img.Slots().front();
    // A crop about the centre, where the cluster is.
    const int cw = 90, ch = 70, x0 = img.width / 2 - cw / 2, y0 = img.height / 2 - ch / 2;
    std::vector<float> crop(cw * ch);
    for (int y = 0; y < ch; ++y)
        for (int x = 0; x < cw; ++x)
            crop[y * cw + x] = img.curPlane[slot][(y0 + y) * img.width + x0 + x];
    for (int type : {SmoothMedian, SmoothAbsDifference, SmoothAdaptiveMedian, SmoothSelectedNbhd,
                     SmoothQuantile}) {
        smoothing::PlaneJob job;
        job.type = type;
        job.width = cw;
        job.height = ch;
        job.half = 5;
        job.order = 3;
        job.top = img.maxValue;
        job.prev = crop.data();
        std::vector<float> fast(crop.size()), plain(crop.size());
        job.cur = fast.data();
        ASSERT_TRUE(smoothing::RankFilter(job, nullptr));
        job.cur = plain.data();
        smoothing::PlainRankFilter(job);
        EXPECT_EQ(std::memcmp(fast.data(), plain.data(), fast.size() * sizeof(float)), 0)
            << SmoothingTypeName(type);
    }
}
