// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Star-match alignment of files end to end: generated nights with their true
/// transforms (shifts and turns, a meridian flip, a mirrored frame), both algorithms, the
/// checks before a job and the real frames when they are present.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "TestSupport.h"
#include "align/StarMatch.h"
#include "engine/Image.h"
#include "engine/ImageHeader.h"
#include "imagesets/AlignStarFiles.h"
#include "tests/align/M13Frames.h"
#include "tools/synth/Measure.h"
#include "tools/synth/TruthFile.h"

namespace astrivelle {
namespace {

namespace fs = std::filesystem;
using test::RecordingNotify;
using test::RecordingProgress;
using test::ScratchDir;

/// A night of `frames` lights of w x h in dir/night, with its truth.
bool MakeNight(const ScratchDir& dir, const std::string& extra, synth::Truth* truth, int w = 1200,
               int h = 900, int frames = 4) {
    const std::string night = dir.file("night");
    const std::string cmd = std::string(ASTRIVELLE_SYNTH) + " night --quiet --out " + night +
                            " --frames " + std::to_string(frames) + " --size " + std::to_string(w) +
                            "x" + std::to_string(h) +
                            " --darks 1 --flats 1 --flat-darks 1 --bias 1 " + extra;
    std::string out;
    if (test::RunCommand(cmd, &out) != 0) {
        ADD_FAILURE() << out;
        return false;
    }
    std::string error;
    if (!synth::ReadTruth(night + "/truth.json", truth, &error)) {
        ADD_FAILURE() << error;
        return false;
    }
    return true;
}

AutoStarParams ParamsFor(const ScratchDir& dir, const synth::Truth& truth, bool quick) {
    AutoStarParams p;
    for (const auto& f : truth.frames) {
        CImageFileInfo info;
        info.path = dir.file("night") + "/" + f.file;
        p.files.push_back(info);
    }
    p.referencePath = p.files.front().path;
    p.outputDirectory = dir.file("out");
    p.quickAlignment = quick;
    return p;
}

/// A pair of files, the first the reference, aligned into `outDir`.
/// The parameters of a run over `files`, the first of them the reference.
AutoStarParams SetParams(const std::vector<std::string>& files, const std::string& outDir,
                         bool quick) {
    AutoStarParams p;
    for (const std::string& f : files) {
        CImageFileInfo info;
        info.path = f;
        p.files.push_back(info);
    }
    p.referencePath = files.front();
    p.outputDirectory = outDir;
    p.quickAlignment = quick;
    return p;
}

AutoStarParams PairParams(const std::string& reference, const std::string& other,
                          const std::string& outDir, bool quick) {
    return SetParams({reference, other}, outDir, quick);
}

/// The map (0-based current pixels -> 0-based reference pixels) that an aligned frame's
/// points define: the affine map of three pairs, or the turn and shift of two.
synth::Affine PointMap(const AlignStarFrame& f) {
    synth::Affine a;
    if (f.reference.size() >= 3) {
        const auto& r = f.reference;
        const auto& q = f.current;
        const double u1x = q[1][0] - q[0][0], u1y = q[1][1] - q[0][1];
        const double u2x = q[2][0] - q[0][0], u2y = q[2][1] - q[0][1];
        const double v1x = r[1][0] - r[0][0], v1y = r[1][1] - r[0][1];
        const double v2x = r[2][0] - r[0][0], v2y = r[2][1] - r[0][1];
        const double det = u1x * u2y - u2x * u1y;
        const double m00 = (v1x * u2y - v2x * u1y) / det, m01 = (-v1x * u2x + v2x * u1x) / det;
        const double m10 = (v1y * u2y - v2y * u1y) / det, m11 = (-v1y * u2x + v2y * u1x) / det;
        a.m[0] = m00;
        a.m[1] = m01;
        a.m[3] = m10;
        a.m[4] = m11;
        a.m[2] = r[0][0] - (m00 * q[0][0] + m01 * q[0][1]);
        a.m[5] = r[0][1] - (m10 * q[0][0] + m11 * q[0][1]);
        return a;
    }
    const auto& r = f.reference;
    const auto& q = f.current;
    const double t = std::atan2(r[1][1] - r[0][1], r[1][0] - r[0][0]) -
                     std::atan2(q[1][1] - q[0][1], q[1][0] - q[0][0]);
    const double c = std::cos(t), s = std::sin(t);
    a.m[0] = c;
    a.m[1] = -s;
    a.m[3] = s;
    a.m[4] = c;
    a.m[2] = r[0][0] - (c * q[0][0] - s * q[0][1]);
    a.m[5] = r[0][1] - (s * q[0][0] + c * q[0][1]);
    return a;
}

/// The point map composed with the flip the frame had before its points were taken.
synth::Affine FrameMap(const AlignStarFrame& f, int w, int h) {
    synth::Affine flip;
    if (f.flip == "V" || f.flip == "VH") {
        flip.m[4] = -1;
        flip.m[5] = h - 1;
    }
    if (f.flip == "H" || f.flip == "VH") {
        flip.m[0] = -1;
        flip.m[2] = w - 1;
    }
    const synth::Affine a = PointMap(f);
    synth::Affine out;
    out.m[0] = a.m[0] * flip.m[0] + a.m[1] * flip.m[3];
    out.m[1] = a.m[0] * flip.m[1] + a.m[1] * flip.m[4];
    out.m[2] = a.m[0] * flip.m[2] + a.m[1] * flip.m[5] + a.m[2];
    out.m[3] = a.m[3] * flip.m[0] + a.m[4] * flip.m[3];
    out.m[4] = a.m[3] * flip.m[1] + a.m[4] * flip.m[4];
    out.m[5] = a.m[3] * flip.m[2] + a.m[4] * flip.m[5] + a.m[5];
    return out;
}

int FrameIndex(const synth::Truth& truth, const std::string& path) {
    for (const auto& f : truth.frames)
        if (fs::path(path).filename() == fs::path(f.file).filename())
            return f.index;
    return -1;
}

/// The largest corner error over the aligned frames, each checked against its truth.
double WorstCornerError(const synth::Truth& truth, const AlignStarResult& r) {
    double worst = 0;
    for (const auto& f : r.frames) {
        const int index = FrameIndex(truth, f.input);
        EXPECT_GE(index, 0);
        const double e = synth::CornerError(truth, index, FrameMap(f, truth.width, truth.height));
        std::printf("  %s flip %s votes %d corner error %.3f px\n",
                    fs::path(f.input).filename().c_str(), f.flip.c_str(), f.votes, e);
        worst = std::max(worst, e);
        if (std::getenv("ALIGN_DEBUG"))
            for (std::size_t k = 0; k < f.reference.size(); ++k) {
                double x, y;
                truth.frames[index].transform.Apply(f.reference[k][0], f.reference[k][1], &x, &y);
                std::printf("    ref (%.2f %.2f) cur (%.2f %.2f) true cur (%.2f %.2f)\n",
                            f.reference[k][0], f.reference[k][1], f.current[k][0], f.current[k][1],
                            x, y);
            }
    }
    return worst;
}

struct NightCase {
    const char* name;
    const char* synthOptions;
    bool quick;
    bool meridian, mirror, smallStars;
    int aligned;        ///< outputs expected, reference included
    double cornerLimit; ///< px, the largest corner error allowed
};

class AlignNight : public ::testing::TestWithParam<NightCase> {};

TEST_P(AlignNight, EveryFrameAlignedWithinItsCornerLimit) {
    const NightCase& c = GetParam();
    ScratchDir dir;
    synth::Truth truth;
    ASSERT_TRUE(MakeNight(dir, c.synthOptions, &truth, 800, 600, 3));
    AutoStarParams p = ParamsFor(dir, truth, c.quick);
    p.meridianFlip = c.meridian;
    p.mirrorFlip = c.mirror;
    p.shortFLSmallStars = c.smallStars;
    RecordingProgress progress;
    RecordingNotify notify;
    const AlignStarResult r = AlignStarFiles(p, &progress, &notify);
    for (const auto& m : notify.messages)
        std::printf("  message: %s\n", m.c_str());
    ASSERT_EQ(static_cast<int>(r.run.outputs.size()), c.aligned) << r.run.status;
    EXPECT_EQ(r.step, "Completed");
    EXPECT_EQ(fs::path(r.run.outputs.front()).filename(), "ASA_light_0001.fit");
    for (const auto& out : r.run.outputs)
        EXPECT_TRUE(fs::exists(out)) << out;
    EXPECT_LE(WorstCornerError(truth, r), c.cornerLimit);
    for (const auto& f : r.frames) {
        const synth::FrameTruth& t =
            truth.frames[static_cast<std::size_t>(FrameIndex(truth, f.input))];
        const char* expected = t.flip == "rot180" ? "VH" : (t.flip == "mirror" ? "H" : "N");
        if (c.quick) {
            EXPECT_EQ(f.flip, expected) << f.input;
        }
    }
    if (c.quick)
        EXPECT_NE(r.run.status.find("Correlated, Max - Tran. :"), std::string::npos)
            << r.run.status;
    else
        EXPECT_NE(r.run.status.find("Aligned Images, Max Translate : ("), std::string::npos)
            << r.run.status;
}

INSTANTIATE_TEST_SUITE_P(
    Nights, AlignNight,
    // Measured: descriptor matching 0.32..0.51 px; Quick Alignment 0.36..0.90 px, and 18.8 px
    // on one frame where the radius-30 refinement window (rotation above 0.5 degrees) takes
    // in a neighbour of the third triangle star.
    ::testing::Values(
        NightCase{"QuickPlain", "--noiseless", true, false, false, false, 3, 20.0},
        NightCase{"QuickMeridian", "--noiseless --meridian-flip", true, true, false, false, 3,
                  20.0},
        NightCase{"QuickMirror", "--noiseless --mirror", true, false, true, false, 3, 20.0},
        NightCase{"DescriptorAffine", "--noiseless", false, false, false, true, 3, 0.6},
        NightCase{"DescriptorRigid", "--noiseless", false, false, false, false, 3, 0.6}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(AlignStarFiles, MeridianFlippedFrameNeedsTheFlipPass) {
    ScratchDir dir;
    synth::Truth truth;
    ASSERT_TRUE(MakeNight(dir, "--noiseless --meridian-flip", &truth, 800, 600, 3));
    int flipped = -1;
    for (const auto& f : truth.frames)
        if (f.flip == "rot180")
            flipped = f.index;
    ASSERT_GE(flipped, 1);
    AutoStarParams p = ParamsFor(dir, truth, true);
    RecordingNotify notify;
    const AlignStarResult r = AlignStarFiles(p, nullptr, &notify);
    // Without the flip pass the turned frame has too few votes and is skipped.
    ASSERT_EQ(r.run.outputs.size(), 2u);
    bool said = false;
    for (const auto& f : r.run.failures)
        if (f.text == kNotEnoughStarsQuickText && FrameIndex(truth, f.path) == flipped)
            said = true;
    EXPECT_TRUE(said);
    for (const auto& f : r.frames)
        EXPECT_NE(FrameIndex(truth, f.input), flipped);
}

TEST(AlignStarFiles, ChecksBeforeAJobAndTheLoneReference) {
    ScratchDir dir;
    synth::Truth truth;
    ASSERT_TRUE(MakeNight(dir, "--no-motion", &truth, 700, 500, 2));
    // No reference.
    {
        AutoStarParams p = ParamsFor(dir, truth, true);
        p.referencePath.clear();
        RecordingNotify notify;
        const auto r = AlignStarFiles(p, nullptr, &notify);
        EXPECT_FALSE(r.started);
        ASSERT_EQ(notify.messages.size(), 1u);
        EXPECT_EQ(notify.messages[0], kSelectReferenceText);
    }
    // One usable image: the other excluded.
    {
        AutoStarParams p = ParamsFor(dir, truth, false);
        p.files[1].excluded = 1;
        RecordingNotify notify;
        const auto r = AlignStarFiles(p, nullptr, &notify);
        EXPECT_FALSE(r.started);
        EXPECT_EQ(r.run.status,
                  "At least two images are required for align. Check the Exclude From Align box.");
        EXPECT_FALSE(fs::exists(dir.file("out")));
    }
    // An unreadable second image ends the job; the lone reference output is removed.
    {
        AutoStarParams p = ParamsFor(dir, truth, false);
        p.files[1].path = dir.file("missing.fit");
        RecordingNotify notify;
        const auto r = AlignStarFiles(p, nullptr, &notify);
        EXPECT_TRUE(r.started);
        EXPECT_EQ(r.run.status, kErrorReadingImageText);
        EXPECT_TRUE(r.run.outputs.empty());
        EXPECT_FALSE(fs::exists(dir.file("out") + "/ASA_light_0001.fit"));
        EXPECT_EQ(r.step, "Error");
    }
    // A cancel before the first image: nothing but the status.
    {
        AutoStarParams p = ParamsFor(dir, truth, true);
        RecordingProgress progress;
        progress.RequestCancel();
        const auto r = AlignStarFiles(p, &progress, nullptr);
        EXPECT_EQ(r.run.end, FileOpEnd::Cancelled);
        EXPECT_EQ(r.run.status, kThreadCanceledText);
    }
}

TEST(AlignStarFiles, SbigFrameAlignsToAnSbigFileOfTheReferenceSize) {
    // The current frame is an SBIG file cut smaller than the FITS reference: its aligned copy
    // is an SBIG file of the reference's size whose record says so and keeps the rest of the
    // frame's record, and the input file keeps its own.
    ScratchDir dir;
    synth::Truth truth;
    ASSERT_TRUE(MakeNight(dir, "", &truth, 700, 500, 2));
    AutoStarParams p = ParamsFor(dir, truth, true);
    Image frame;
    ASSERT_TRUE(frame.ReadFile(p.files[1].path, ".fit"));
    Image cut;
    test::MakeImage(cut, 680, 480, ColorGray, [&](int, int x, int y) {
        return frame.curPlane[0][static_cast<std::size_t>(y) * frame.width + x];
    });
    cut.fileType = KindSBIG;
    auto record = std::make_shared<ImageHeader>();
    record->imageType = "ST-7 Image";
    record->note = "second frame";
    record->exposure = 3000;
    cut.header = record;
    const std::string sbig = dir.file("frame2.st7");
    ASSERT_TRUE(cut.WriteFile(sbig, KindSBIG));
    p.files[1].path = sbig;
    const auto r = AlignStarFiles(p, nullptr, nullptr);
    ASSERT_EQ(r.run.outputs.size(), 2u) << r.run.status;
    Image aligned;
    ASSERT_TRUE(
        aligned.ReadFile(r.run.outputs[1], fs::path(r.run.outputs[1]).extension().string()));
    EXPECT_EQ(aligned.fileType, KindSBIG);
    EXPECT_EQ(aligned.width, 700);
    EXPECT_EQ(aligned.height, 500);
    ASSERT_TRUE(aligned.header);
    EXPECT_EQ(aligned.header->width, 700);
    EXPECT_EQ(aligned.header->height, 500);
    EXPECT_EQ(aligned.header->note, "second frame");
    EXPECT_EQ(aligned.header->exposure, 3000);
    Image input;
    ASSERT_TRUE(input.ReadFile(sbig, ".st7"));
    EXPECT_EQ(input.width, 680);
    EXPECT_EQ(input.header->height, 480);
}

TEST(AlignStarFiles, RealCygnusPairAgreesWithAnIndependentSolution) {
    // Two raw RGGB frames of a Cygnus field two minutes apart. The map from the second to the
    // first as astroalign finds it on the same pixels (48 stars):
    // x' = 1.00000314 x - 0.0000733 y - 0.4894, y' = 0.0000733 x + 1.00000314 y - 1.7255.
    const std::string first = test::RealData("fits/bayer/panoptes_unsolved.fits");
    const std::string second = test::RealData("fits/bayer/panoptes_solved.fits.fz");
    if (first.empty() || second.empty())
        GTEST_SKIP() << "the PANOPTES Cygnus frames are absent";
    ScratchDir dir;
    // The second frame is tile-compressed under ".fz", which the dispatch by extension does
    // not open: a plain copy.
    Image packed;
    ASSERT_TRUE(packed.ReadFITS(second)) << LastFileError();
    packed.fitsCompress = false;
    const std::string plain = dir.file("solved.fit");
    ASSERT_TRUE(packed.WriteFile(plain, KindFITS));
    auto independent = [](double x, double y, double* ox, double* oy) {
        *ox = 1.00000314 * x - 0.0000733271 * y - 0.489424537;
        *oy = 0.0000733271 * x + 1.00000314 * y - 1.72549601;
    };
    struct Case {
        bool quick;
        double limit; ///< px at the corners
    };
    // Quick alignment lands within 0.36 px of it (its three refined stars against astroalign's
    // 48), descriptor matching within 0.22 px (two corner stars).
    for (const Case c : {Case{true, 0.5}, Case{false, 0.5}}) {
        const AutoStarParams p =
            PairParams(first, plain, dir.file(c.quick ? "quick" : "descriptor"), c.quick);
        const auto r = AlignStarFiles(p, nullptr, nullptr);
        ASSERT_EQ(r.run.outputs.size(), 2u) << r.run.status;
        ASSERT_EQ(r.frames.size(), 1u);
        const synth::Affine a = PointMap(r.frames[0]);
        double worst = 0;
        for (const auto& [x, y] : {std::pair{0.0, 0.0}, std::pair{699.0, 0.0},
                                   std::pair{0.0, 699.0}, std::pair{699.0, 699.0}}) {
            double ox, oy, ix, iy;
            a.Apply(x, y, &ox, &oy);
            independent(x, y, &ix, &iy);
            worst = std::max(worst, std::hypot(ox - ix, oy - iy));
        }
        std::printf("  %s: corners within %.3f px of the independent solution\n",
                    c.quick ? "quick" : "descriptor", worst);
        EXPECT_LE(worst, c.limit) << (c.quick ? "quick" : "descriptor");
    }
}

TEST(AlignStarFiles, RealM13FramesByDescriptorMatching) {
    const std::vector<std::string> files = test::M13Frames();
    if (files.empty())
        GTEST_SKIP() << "the M13 frames are absent";
    const auto& shift = test::kM13Shifts;
    ScratchDir dir;
    const auto r = AlignStarFiles(SetParams(files, dir.file("out"), false), nullptr, nullptr);
    // Frames 2 to 4 are aligned; the fifth, the faintest and furthest off, has one star match.
    // Each turns on two corner stars, so the corners of the frame carry their turn as well.
    ASSERT_EQ(r.frames.size(), 3u) << r.run.status;
    ASSERT_EQ(r.run.outputs.size(), 4u);
    ASSERT_EQ(r.run.failures.size(), 1u);
    EXPECT_EQ(r.run.failures[0].path, files[4]);
    EXPECT_EQ(r.run.failures[0].text, kLessThan3MatchesText);
    for (std::size_t k = 0; k < 3; ++k) {
        EXPECT_EQ(r.frames[k].input, files[k + 1]);
        const synth::Affine a = PointMap(r.frames[k]);
        double worst = 0;
        for (const auto& [x, y] : {std::pair{0.0, 0.0}, std::pair{1391.0, 0.0},
                                   std::pair{0.0, 1039.0}, std::pair{1391.0, 1039.0}}) {
            double ox, oy;
            a.Apply(x, y, &ox, &oy);
            worst = std::max(worst, std::hypot(ox - (x - shift[k][0]), oy - (y - shift[k][1])));
        }
        std::printf("  frame %zu: corners within %.3f px of the stars' shift\n", k + 2, worst);
        EXPECT_LE(worst, 3.5) << "frame " << k + 2; // 1.2, 2.6 and 2.9 px
    }
}

TEST(AlignStarFiles, RealPolePairEndsWithItsText) {
    // Two 200 x 200 raw frames by the celestial pole a minute apart: the first holds three
    // detectable stars (SEP finds three at 5 sigma), the second mostly a satellite trail, and
    // astroalign finds no transform either. Both algorithms end with their own words and leave
    // no output behind: quick alignment finds too few votes; descriptor matching finds the
    // first frame's stars and none in the second.
    const std::string pole = test::RealData("fits/bayer/panoptes_pole.fits");
    const std::string turned = test::RealData("fits/bayer/panoptes_rotation.fits");
    if (pole.empty() || turned.empty())
        GTEST_SKIP() << "the PANOPTES pole frames are absent";
    ScratchDir dir;
    for (const bool quick : {true, false}) {
        const AutoStarParams p =
            PairParams(pole, turned, dir.file(quick ? "quick" : "descriptor"), quick);
        const auto r = AlignStarFiles(p, nullptr, nullptr);
        EXPECT_TRUE(r.run.outputs.empty()) << quick;
        EXPECT_EQ(r.run.status, quick ? kNotEnoughStarsQuickText : kNoStarsCurrentText);
        EXPECT_FALSE(fs::exists(p.outputDirectory + "/ASA_panoptes_pole.fits")) << quick;
    }
}

TEST(AlignStarFiles, SaveTypeOnlyForTheAutomaticProcess) {
    ScratchDir dir;
    synth::Truth truth;
    ASSERT_TRUE(MakeNight(dir, "--no-motion", &truth, 700, 500, 2));
    AutoStarParams p = ParamsFor(dir, truth, true);
    p.saveType = "TIFF16";
    auto r = AlignStarFiles(p, nullptr, nullptr);
    ASSERT_EQ(r.run.outputs.size(), 2u) << r.run.status;
    EXPECT_EQ(fs::path(r.run.outputs[1]).extension(), ".fit");
    p.ownerName = kAlignStarOwnerPipeline;
    p.outputDirectory = dir.file("out2");
    r = AlignStarFiles(p, nullptr, nullptr);
    ASSERT_EQ(r.run.outputs.size(), 2u) << r.run.status;
    EXPECT_EQ(fs::path(r.run.outputs[1]).extension(), ".tif");
    CFileOpList list;
    ASSERT_TRUE(FileOpLists().Find(kAlignStarListName, &list));
    EXPECT_EQ(list.Caption(), "Aligned Image Set - 2 images");
}

} // namespace
} // namespace astrivelle
