// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Calibrate: which frames enter for each setup, the automatic dark scale, the hot pixel
/// pass, the pre-flight texts, the header cards, and generated nights calibrated back to their
/// true sky and stars.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <random>

#include "TestSupport.h"
#include "calibration/Calibrate.h"
#include "calibration/CalibrationSetup.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "imagesets/CalibrateFiles.h"
#include "tools/synth/NightModel.h"

using namespace astrivelle;
using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

/// An RGGB split and combine for the per-colour branch: the green set holds the green of the
/// top row of each cell in even rows and that of the bottom row in odd rows.
bool SplitRggb(const float* m, int w, int h, const std::string&, float* r, float* g, float* b) {
    const int hw = w / 2;
    for (int y = 0; y < h / 2; ++y)
        for (int x = 0; x < hw; ++x) {
            r[y * hw + x] = m[(2 * y) * w + 2 * x];
            g[(2 * y) * hw + x] = m[(2 * y) * w + 2 * x + 1];
            g[(2 * y + 1) * hw + x] = m[(2 * y + 1) * w + 2 * x];
            b[y * hw + x] = m[(2 * y + 1) * w + 2 * x + 1];
        }
    return true;
}

bool CombineRggb(const float* r, const float* g, const float* b, int w, int h, const std::string&,
                 float* m) {
    const int hw = w / 2;
    for (int y = 0; y < h / 2; ++y)
        for (int x = 0; x < hw; ++x) {
            m[(2 * y) * w + 2 * x] = r[y * hw + x];
            m[(2 * y) * w + 2 * x + 1] = g[(2 * y) * hw + x];
            m[(2 * y + 1) * w + 2 * x] = g[(2 * y + 1) * hw + x];
            m[(2 * y + 1) * w + 2 * x + 1] = b[y * hw + x];
        }
    return true;
}

void WritePlane(const std::string& path, int w, int h, const std::vector<float>& v) {
    Image img;
    MakeImage(img, w, h, ColorGray, [&](int, int x, int y) { return v[y * w + x]; });
    img.SetGeometryFits(KindFITS, ColorGray, 0, DataFloat, w, h);
    ASSERT_TRUE(img.WriteFile(path, KindFITS)) << LastFileError();
}

} // namespace

TEST(Calibrate, BranchTableDecidesWhichFramesEnter) {
    // 8 x 8 (too small for the automatic search: the given factor stands). Half of the flat
    // is 2000 and half 1000; the light is 1000, the dark 300, the bias 100.
    const int w = 8, h = 8, n = w * h;
    std::vector<float> flat(n), dark(n, 300), bias(n, 100);
    for (int i = 0; i < n; ++i)
        flat[i] = i < n / 2 ? 2000.0f : 1000.0f;
    struct Case {
        const char* name;
        bool useFlat, useDark, useBias, autoMatch, flatDarkSubtracted, noDark;
        double overall;
        float atBright, atDim; ///< results at a flat 2000 and a flat 1000 pixel
    };
    // Flat means: F 1500; F - B 1400.
    const Case cases[] = {
        {"nothing", false, false, false, false, false, false, 2.0, 1000, 1000},
        {"bias only: S - B", false, false, true, false, false, false, 1.0, 900, 900},
        {"dark only: S - f D", false, true, false, false, false, false, 1.0, 400, 400},
        {"dark and bias, no auto: bias stays out", false, true, true, false, false, false, 1.0, 400,
         400},
        {"auto with bias: (S - B) - f (D - B)", false, true, true, true, false, false, 1.0, 500,
         500},
        {"auto without bias", false, true, false, true, false, false, 1.0, 400, 400},
        {"no dark subtract, bias: S - B", false, true, true, false, false, true, 1.0, 900, 900},
        {"flat only", true, false, false, false, false, false, 1.0, 750, 1500},
        {"flat and overall", true, false, false, false, false, false, 0.5, 375, 750},
        {"flat and bias: bias in flat", true, false, true, false, false, false, 1.0,
         float(1400.0 / 1900 * 900), float(1400.0 / 900 * 900)},
        {"flat dark-subtracted: flat as is", true, false, true, false, true, false, 1.0,
         float(1500.0 / 2000 * 900), float(1500.0 / 1000 * 900)},
        {"dark and flat", true, true, false, false, false, false, 1.0, 300, 600},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<float> target(n, 1000), source(n);
        PlaneCalibration a;
        a.flat = flat.data();
        a.dark = dark.data();
        a.bias = bias.data();
        a.darkFactor = 2.0;
        a.overallFactor = c.overall;
        a.useFlat = c.useFlat;
        a.useDark = c.useDark;
        a.useBias = c.useBias;
        a.autoDarkMatch = c.autoMatch;
        a.flatIsDarkSubtracted = c.flatDarkSubtracted;
        a.noDarkSubtract = c.noDark;
        double used = -1;
        ASSERT_TRUE(CalibratePlane(source.data(), target.data(), w, h, 65535, a, &used));
        EXPECT_NEAR(target[0], c.atBright, 1e-3);
        EXPECT_NEAR(target[n - 1], c.atDim, 1e-3);
        EXPECT_EQ(used, 2.0);
    }
}

TEST(Calibrate, ZeroFlatAndClampingEdges) {
    const int w = 4, h = 4, n = w * h;
    std::vector<float> flat(n, 1100), bias(n, 100), dark(n, 5000), target(n, 100), source(n);
    flat[5] = 100; // equal to the bias: Fc = 0
    PlaneCalibration a;
    a.flat = flat.data();
    a.bias = bias.data();
    a.useFlat = a.useBias = true;
    ASSERT_TRUE(CalibratePlane(source.data(), target.data(), w, h, 65535, a));
    double mean = 0;
    for (float f : flat)
        mean += f - 100.0;
    mean /= n;
    // S - B = 0 at the zero flat: S becomes 1, Fc 1, so the pixel is flatMean * overall.
    EXPECT_NEAR(target[5], mean, 1e-3);
    EXPECT_EQ(target[0], 0.0f);
    // A dark larger than the light ends at 0 after the flat, and a large overall factor clips.
    std::fill(target.begin(), target.end(), 1000.0f);
    PlaneCalibration d;
    d.dark = dark.data();
    d.useDark = true;
    d.overallFactor = 3;
    ASSERT_TRUE(CalibratePlane(source.data(), target.data(), w, h, 65535, d));
    EXPECT_EQ(target[0], 0.0f);
    std::fill(target.begin(), target.end(), 60000.0f);
    std::fill(dark.begin(), dark.end(), 0.0f);
    ASSERT_TRUE(CalibratePlane(source.data(), target.data(), w, h, 65535, d));
    EXPECT_EQ(target[3], 65535.0f);
}

TEST(Calibrate, AutomaticDarkFactorIsRecovered) {
    const int w = 160, h = 120, n = w * h;
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(0, 400);
    std::vector<float> dark(n), bias(n, 200), plane(n);
    for (int i = 0; i < n; ++i)
        dark[i] = 200 + u(rng);
    struct Case {
        double factor;
        bool withBias;
        double expected;
    };
    for (const Case& c : {Case{1.35, false, 1.35}, Case{0.0, false, 0.0}, Case{2.5, true, 2.5},
                          Case{7.0, false, 5.0}}) {
        SCOPED_TRACE(c.factor);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const int i = y * w + x;
                const double sky = 1000 + 3.0 * x; // darkest near x = 20
                const double d = c.withBias ? dark[i] - bias[i] : dark[i];
                plane[i] = static_cast<float>(sky + c.factor * d + (c.withBias ? bias[i] : 0));
            }
        EXPECT_NEAR(FindDarkFactor(plane.data(), dark.data(), c.withBias ? bias.data() : nullptr, w,
                                   h, 1.0),
                    c.expected, 1e-9);
    }
    // 72 pixels or fewer: the given factor stands.
    EXPECT_EQ(FindDarkFactor(plane.data(), dark.data(), nullptr, 72, 100, 0.8), 0.8);
    EXPECT_EQ(FindDarkFactor(plane.data(), dark.data(), nullptr, 100, 72, 0.8), 0.8);

    // Through a whole plane calibration: the sky comes back flat.
    std::vector<float> source(n);
    for (int i = 0; i < n; ++i)
        plane[i] = static_cast<float>(1000 + 1.35 * dark[i]);
    PlaneCalibration a;
    a.dark = dark.data();
    a.useDark = true;
    a.autoDarkMatch = true;
    double used = 0;
    ASSERT_TRUE(CalibratePlane(source.data(), plane.data(), w, h, 65535, a, &used));
    EXPECT_NEAR(used, 1.35, 1e-9);
    EXPECT_NEAR(plane[n / 2], 1000.0, 0.01);
}

TEST(Calibrate, HotPixelThresholdAndPass) {
    std::vector<float> dark(1000, 10.0f);
    dark[17] = 5000;
    EXPECT_EQ(HotPixelThreshold(dark.data(), dark.size(), 0.999), 10u);
    EXPECT_EQ(HotPixelThreshold(dark.data(), dark.size(), 0.9995), 5000u);
    EXPECT_EQ(AdaptiveFraction("Normal"), 0.9995);
    EXPECT_EQ(AdaptiveFraction("High"), 0.999);
    EXPECT_EQ(AdaptiveFraction("Highest"), 0.998);
    EXPECT_EQ(AdaptiveFraction("Aggressive"), 0.999);

    // A hot pixel on the top edge takes the mean of the first 25 of its reflected window:
    // rows -5 and -4 reflect to rows 5 and 4, the third row is -3 -> 3, columns x-5..x-3.
    const int w = 20, h = 12;
    std::vector<float> target(w * h), hot(w * h, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            target[y * w + x] = static_cast<float>(100 * y + x);
    hot[0 * w + 8] = 1000;
    double expected = 0;
    for (int x = 3; x <= 13; ++x)
        expected += (500 + x) + (400 + x);
    expected += (300 + 3) + (300 + 4) + (300 + 5);
    expected /= 25;
    HotPixelPass(target.data(), hot.data(), w, h, 500, 65535);
    EXPECT_NEAR(target[8], expected, 1e-3);
    EXPECT_EQ(target[9], 9.0f);
    // At the left edge the columns reflect: x = 1 reads -4..6 as 4,3,2,1,0,1,..6.
    std::vector<float> t2(w * h, 0), hot2(w * h, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            t2[y * w + x] = static_cast<float>(x);
    hot2[6 * w + 1] = 1000;
    HotPixelPass(t2.data(), hot2.data(), w, h, 999, 65535);
    const double rowSum = 4 + 3 + 2 + 1 + 0 + 1 + 2 + 3 + 4 + 5 + 6;
    EXPECT_NEAR(t2[6 * w + 1], (2 * rowSum + 4 + 3 + 2) / 25.0, 1e-4);
}

TEST(Calibrate, NoDarkSubtractStillRunsTheHotPixelPass) {
    const int w = 16, h = 16, n = w * h;
    std::vector<float> dark(n, 10), target(n, 500), source(n);
    dark[8 * w + 8] = 3000;
    target[8 * w + 8] = 9000;
    PlaneCalibration a;
    a.dark = dark.data();
    a.useDark = true;
    a.noDarkSubtract = true;
    a.darkThreshold = HotPixelThreshold(dark.data(), n, 0.999);
    ASSERT_TRUE(CalibratePlane(source.data(), target.data(), w, h, 65535, a));
    EXPECT_EQ(target[0], 500.0f) << "no dark subtraction";
    EXPECT_EQ(target[8 * w + 8], 500.0f) << "the hot pixel is replaced";
}

TEST(Calibrate, HeaderCardsAndAppliedText) {
    CalibrateOptions o;
    o.colorModel = "MONO";
    o.useFlat = o.useDark = o.useBias = true;
    o.darkFactor = 1.25;
    o.overallFactor = 0.5;
    o.adaptiveWithDark = true;
    std::vector<std::string> texts;
    for (const CFITSHeader& c : CalibrationCards(o)) {
        EXPECT_EQ(c.key, "COMMENT");
        EXPECT_EQ(c.dataType, 3u);
        texts.push_back(c.comment);
    }
    EXPECT_EQ(texts,
              (std::vector<std::string>{"QX Calibrate - Color Model : MONO, overall factor 0.500",
                                        "QX Calibrate - Use Flat", "QX Calibrate - Use Bias",
                                        "QX Calibrate - Use Dark : factor 1.250",
                                        "QX Calibrate -   Adaptive: Yes - dark subtract"}));
    o.autoDarkMatch = true;
    o.useFlat = o.useBias = false;
    o.adaptiveWithoutDark = true;
    o.colorModel = "COLOR";
    texts.clear();
    for (const CFITSHeader& c : CalibrationCards(o))
        texts.push_back(c.comment);
    EXPECT_EQ(texts,
              (std::vector<std::string>{"QX Calibrate - Color Model : COLOR",
                                        "QX Calibrate - Use Dark : auto factor",
                                        "QX Calibrate -   Adaptive: Yes - no dark subtract"}));
    o.useFlat = o.useFlatDark = o.bayerData = true;
    EXPECT_EQ(AppliedText(o), "Applied : Dark, Flat, Flat Dark, hot pixel reduce, no dark "
                              "subtract, auto dark match, to Bayer Data,");
    EXPECT_EQ(AppliedText(CalibrateOptions{}), "Applied :");
}

TEST(Calibrate, RefusedWhileItOrAnotherFileOperationRuns) {
    struct Case {
        FileOpKind running;
        const char* text;
    };
    for (const Case& c : {Case{FileOpKind::Calibrate, "Calibrate Files In Progress."},
                          Case{FileOpKind::Combine, "Combine Files/HDR Add Is Currently Busy."},
                          Case{FileOpKind::AutoPlanet, "Auto Planet Align Is Currently Busy."}}) {
        FileOpBusy held(c.running);
        ASSERT_TRUE(held.Acquired());
        CalibrateRequest request;
        request.files = {"a.fit"};
        request.outputDirectory = "/nonexistent";
        test::RecordingNotify notify;
        const CalibrateResult result = CalibrateFiles(request, nullptr, &notify);
        EXPECT_EQ(result.run.status, c.text);
        EXPECT_EQ(result.run.end, FileOpEnd::Stopped);
        EXPECT_FALSE(result.started);
    }
    // Nothing left marked busy by the refused runs: the setup check speaks now.
    CalibrateRequest request;
    const CalibrateResult result = CalibrateFiles(request, nullptr, nullptr);
    EXPECT_NE(result.run.status, "Calibrate Files In Progress.");
}

TEST(CalibrationSetup, SavedRecordRoundTripsEveryField) {
    CalibrationSetup s;
    s.colorModel = "MONO";
    s.bayerData = true;
    s.frameType = "300D Class";
    s.cfaPattern = "GB,RG";
    s.flatPath = "/frames/flat=1.fit"; // an equals sign inside a value
    s.darkPath = "/frames/dark #2.fit";
    s.useFlat = s.useDark = true;
    s.frameWidth = 3000;
    s.frameHeight = 2000;
    s.darkFactor = 0.1 + 0.2; // not a short decimal: all digits must survive
    s.overallFactor = 1.25;
    s.autoDarkMatch = true;
    s.adaptiveWithDark = true;
    s.adaptiveLevel = "Highest";
    const std::string text = FormatCalibrationSetup(s);
    CalibrationSetup back;
    ASSERT_TRUE(ParseCalibrationSetup(text, &back)) << text;
    EXPECT_EQ(FormatCalibrationSetup(back), text);
    EXPECT_EQ(back.darkFactor, s.darkFactor);
    EXPECT_EQ(back.flatPath, s.flatPath);
    EXPECT_EQ(back.frameHeight, 2000);
    // Unknown names pass; bad values refuse the record and leave the setup as it was.
    CalibrationSetup kept = back;
    EXPECT_TRUE(ParseCalibrationSetup("someday=1\nuseBias=1\n", &kept));
    EXPECT_TRUE(kept.useBias);
    for (const char* bad : {"useFlat=yes\n", "frameWidth=12a\n", "darkFactor=\n", "no equals\n"}) {
        CalibrationSetup t = back;
        EXPECT_FALSE(ParseCalibrationSetup(bad, &t)) << bad;
        EXPECT_EQ(FormatCalibrationSetup(t), text) << bad;
    }
}

TEST(CalibrationSetup, PreflightTextsAndFlatDarkRule) {
    ScratchDir dir;
    WritePlane(dir.file("dark.fit"), 10, 8, std::vector<float>(80, 5));
    WritePlane(dir.file("big.fit"), 12, 8, std::vector<float>(96, 5));
    CalibrationSetup s;
    s.colorModel = "MONO";
    std::string text;
    EXPECT_FALSE(CheckSystemFrames(s, &text));
    EXPECT_EQ(text, "Flat, flat dark, bias, and dark frames are all disabled.\nPlease check "
                    "Calibration Setup.");
    s.useDark = true; // a flag on but every path empty still refuses
    EXPECT_FALSE(CheckSystemFrames(s, &text));
    EXPECT_EQ(text.substr(0, 20), "Flat, flat dark, bia");

    ASSERT_TRUE(SelectFrameFromDisk(s, SystemFrame::Dark, dir.file("dark.fit"), &text)) << text;
    EXPECT_EQ(s.frameWidth, 10);
    EXPECT_EQ(s.frameHeight, 8);
    EXPECT_TRUE(s.useDark);
    EXPECT_TRUE(CheckSystemFrames(s, &text)) << text;

    s.flatPath = dir.file("flat");
    s.useFlat = true;
    EXPECT_FALSE(CheckSystemFrames(s, &text));
    EXPECT_EQ(text, "System flat frame has an invalid filename.\nPlease check Calibration Setup.");
    s.flatPath = dir.file("flat.png");
    EXPECT_FALSE(CheckSystemFrames(s, &text));
    EXPECT_EQ(text, "System flat frame must be a BMP, JPG, TIF, FITS, or SBIG image "
                    "format.\nPlease check Calibration Setup.");
    s.flatPath = dir.file("missing.fit");
    EXPECT_FALSE(CheckSystemFrames(s, &text));
    EXPECT_EQ(text, "Error reading system frame " + dir.file("missing.fit"));
    s.flatPath = dir.file("big.fit");
    EXPECT_FALSE(CheckSystemFrames(s, &text));
    EXPECT_EQ(text, "The system flat frame does not match the selected image size.\nPlease check "
                    "Calibration Setup.");
    s.colorModel = "COLOR";
    EXPECT_FALSE(SelectFrameFromDisk(s, SystemFrame::Bias, dir.file("dark.fit"), &text));
    EXPECT_EQ(text, "The select image color type does not match the \nselected color model in "
                    "Calibration Setup\n");
    EXPECT_FALSE(SelectFrameFromDisk(s, SystemFrame::Bias, dir.file("x.png"), &text));
    EXPECT_EQ(text, "Invalid file type.");

    // Flat dark: taken off only where the flat is at least the flat dark + 1.
    float flat[4] = {100, 100, 100, 100};
    const float fd[4] = {50, 99, 99.5f, 100};
    SubtractFlatDark(flat, fd, 4);
    EXPECT_EQ(flat[0], 50.0f);
    EXPECT_EQ(flat[1], 1.0f);
    EXPECT_EQ(flat[2], 100.0f);
    EXPECT_EQ(flat[3], 100.0f);

    CalibrationSetup c;
    c.useFlat = c.useDark = true;
    c.darkFactor = 3;
    c.adaptiveLevel = "High";
    c.frameWidth = 5;
    c.SetAutoDarkMatch(true);
    c.SetAdaptiveWithoutDark(true);
    EXPECT_FALSE(c.autoDarkMatch);
    c.ClearAll();
    EXPECT_EQ(c.darkFactor, 1.0);
    EXPECT_EQ(c.adaptiveLevel, "Normal");
    EXPECT_FALSE(c.useFlat || c.useDark);
    EXPECT_EQ(c.frameWidth, 0);
}

TEST(Calibrate, PerColourBranchNeedsTheBayerSeamAndRecoversEachFactor) {
    ScratchDir dir;
    // Each colour set is above 72 pixels both ways (red and blue are 80 x 80), so each finds
    // its own factor.
    const int w = 160, h = 160, n = w * h;
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> u(0, 300);
    std::vector<float> dark(n), light(n);
    for (int i = 0; i < n; ++i) {
        dark[i] = 100 + u(rng);
        light[i] = static_cast<float>(800 + 0.6 * dark[i]);
    }
    WritePlane(dir.file("dark.fit"), w, h, dark);
    WritePlane(dir.file("light.fit"), w, h, light);
    CalibrateRequest req;
    req.files = {dir.file("light.fit")};
    req.outputDirectory = dir.file("out");
    req.setup.colorModel = "MONO";
    req.setup.bayerData = true;
    std::string text;
    ASSERT_TRUE(SelectFrameFromDisk(req.setup, SystemFrame::Dark, dir.file("dark.fit"), &text));
    req.setup.SetAutoDarkMatch(true);

    SetBayerPlaneSeam(nullptr, nullptr);
    RecordingProgress progress;
    CalibrateResult r = CalibrateFiles(req, &progress, nullptr);
    EXPECT_FALSE(r.started);
    EXPECT_EQ(r.run.status, kCalibrateFramesFailedText);

    for (bool builtIn : {false, true}) {
        SCOPED_TRACE(builtIn ? "built-in split" : "test split");
        if (builtIn)
            ResetBayerPlaneSeam();
        else
            SetBayerPlaneSeam(SplitRggb, CombineRggb);
        r = CalibrateFiles(req, &progress, nullptr);
        ResetBayerPlaneSeam();
        ASSERT_TRUE(r.run.Ok()) << r.run.status;
        ASSERT_EQ(r.factors.size(), 1u);
        ASSERT_EQ(r.factors[0].size(), 3u);
        for (double f : r.factors[0])
            EXPECT_NEAR(f, 0.6, 1e-9);
        EXPECT_EQ(r.run.status, "Applied : Dark, auto dark match, to Bayer Data,");
        Image out;
        ASSERT_TRUE(out.ReadFile(dir.file("out/C_light.fit"), ".fit"));
        for (int i : {0, 1, w, w + 1, n / 2 + 7})
            EXPECT_NEAR(out.curPlane[out.Slots().front()][i], 800.0, 0.05) << i;
    }
}

TEST(Calibrate, GeneratedNightCalibratesToTheTrueSkyAndStars) {
    ScratchDir dir;
    synth::NightConfig cfg;
    cfg.seed = 11;
    cfg.frames = 2;
    cfg.width = 300;
    cfg.height = 200;
    cfg.darks = cfg.flats = cfg.flatDarks = cfg.bias = 1;
    cfg.format = "fits32";
    std::string error;
    ASSERT_TRUE(synth::WriteNight(cfg, dir.path().string(), &error)) << error;
    synth::NightModel model;
    ASSERT_TRUE(model.Build(cfg, &error)) << error;
    const synth::Truth& t = model.truth();

    CalibrateRequest req;
    for (const synth::FrameTruth& f : t.frames)
        req.files.push_back((dir.path() / f.file).string());
    req.outputDirectory = dir.file("out");
    req.setup.colorModel = "MONO";
    std::string text;
    ASSERT_TRUE(SelectFrameFromDisk(req.setup, SystemFrame::Dark,
                                    (dir.path() / t.darks[0]).string(), &text));
    ASSERT_TRUE(SelectFrameFromDisk(req.setup, SystemFrame::Flat,
                                    (dir.path() / t.flats[0]).string(), &text));
    ASSERT_TRUE(SelectFrameFromDisk(req.setup, SystemFrame::FlatDark,
                                    (dir.path() / t.flatDarks[0]).string(), &text));
    RecordingProgress progress;
    const CalibrateResult r = CalibrateFiles(req, &progress, nullptr);
    ASSERT_TRUE(r.run.Ok()) << r.run.status;
    ASSERT_EQ(r.run.outputs.size(), 2u);
    EXPECT_EQ(r.run.status, "Applied : Dark, Flat, Flat Dark,");
    EXPECT_NE(std::find(progress.statuses.begin(), progress.statuses.end(),
                        "Preparing Calibration Frames..."),
              progress.statuses.end());

    const int w = t.width, h = t.height, n = w * h;
    double meanResponse = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            meanResponse += model.Response(x, y);
    meanResponse /= n;
    std::vector<float> truth(n), raw(n);
    synth::LightParts skyAndStars;
    skyAndStars.sensor = skyAndStars.noise = skyAndStars.response = false;
    for (int f = 0; f < 2; ++f) {
        SCOPED_TRACE(f);
        model.RenderLight(f, truth.data(), skyAndStars);
        model.RenderLight(f, raw.data());
        Image out;
        ASSERT_TRUE(out.ReadFile(r.run.outputs[f], ".fit"));
        const float* p = out.curPlane[out.Slots().front()];
        // Residuals against the truth seen through the mean response, in units of the noise
        // each pixel carries (photon and read noise of the light, read noise of the dark).
        double sum = 0, chi2 = 0, starExcess = 0, trueExcess = 0;
        int used = 0;
        for (int i = 0; i < n; ++i) {
            if (raw[i] >= 65000)
                continue;
            const double expect = truth[i] * meanResponse;
            const double sigma = std::sqrt(truth[i] / t.gain + 2 * t.readNoise * t.readNoise + 1.0);
            const double d = p[i] - expect;
            sum += d;
            chi2 += d * d / (sigma * sigma);
            ++used;
            if (truth[i] > t.skyLevel * 3) { // on stars
                starExcess += p[i];
                trueExcess += expect;
            }
        }
        EXPECT_NEAR(sum / used, 0.0, 0.5) << "the sky level comes back";
        EXPECT_GT(chi2 / used, 0.8);
        EXPECT_LT(chi2 / used, 1.3) << "residuals are noise";
        ASSERT_GT(trueExcess, 0);
        EXPECT_NEAR(starExcess / trueExcess, 1.0, 0.01) << "star light comes back";
        // The header carries the cards, then the input's own (EXPTIME of the generator).
        std::size_t model = out.headerCards.size(), exptime = out.headerCards.size();
        for (std::size_t k = 0; k < out.headerCards.size(); ++k) {
            const CFITSHeader& c = out.headerCards[k];
            if (c.comment == "QX Calibrate - Color Model : MONO, overall factor 1.000" &&
                model == out.headerCards.size())
                model = k;
            if (c.key == "EXPTIME" && exptime == out.headerCards.size())
                exptime = k;
        }
        ASSERT_LT(model, out.headerCards.size());
        ASSERT_LT(exptime, out.headerCards.size());
        EXPECT_LT(model, exptime);
        ASSERT_LT(model + 3, out.headerCards.size());
        EXPECT_EQ(out.headerCards[model + 1].comment, "QX Calibrate - Use Flat");
        EXPECT_EQ(out.headerCards[model + 2].comment, "QX Calibrate - Use Dark : factor 1.000");
        EXPECT_EQ(out.headerCards[model + 3].comment, "QX Calibrate -   Adaptive: No");
    }
}
