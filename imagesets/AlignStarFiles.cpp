// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Star-match alignment of a set of files: the checks, descriptor matching
/// (AutoStarThread) and Quick Alignment (AutoStarQuickThread), the resampling and the writes.
#include "imagesets/AlignStarFiles.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>

#include "align/FeatureMaskStars.h"
#include "align/QuickMatch.h"
#include "align/StarMatch.h"
#include "engine/Image.h"
#include "engine/ImageHeader.h"
#include "engine/PageAlloc.h"
#include "operators/Filters.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

constexpr const char* kSearchTag = "CAutoStar";

std::string Format(const char* format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

std::string NameOf(const std::string& path) {
    return fs::path(path).filename().string();
}

/// The state every step of a run shares: where texts go and how the run ended.
struct Run {
    const AutoStarParams& params;
    IProgress* progress;
    INotify* notify;
    AlignStarResult* result;
    std::vector<std::string> inputs; ///< the images to align, reference excluded
    std::string reference;
    std::string saveType;

    void Status(const std::string& text) {
        result->run.status = text;
        if (progress)
            progress->SetStatus(text);
    }
    /// A text that ends the job.
    int Stop(const std::string& text, const std::string& path = {}) {
        result->run.end = FileOpEnd::Stopped;
        result->run.failures.push_back({path, text, {}});
        Status(text);
        if (notify)
            notify->Message(text);
        return 0;
    }
    /// A text that skips one image; the run goes on.
    void Skip(const std::string& text, const std::string& path) {
        result->run.failures.push_back({path, text, {}});
        Status(text);
        if (notify)
            notify->Message(text + "\n" + NameOf(path));
    }
    bool Cancelled() {
        if (!progress || !progress->Cancelled())
            return false;
        result->run.end = FileOpEnd::Cancelled;
        Status(kThreadCanceledText);
        return true;
    }
    void Step(long n, long total) {
        if (progress)
            progress->SetProgress(n, total);
    }
    bool Read(Image& image, const std::string& path) {
        return image.ReadFile(path, fs::path(path).extension().string());
    }
    /// Writes `image` as "ASA_" + the name of `source`; false ends the job.
    bool Write(Image& image, const std::string& source) {
        std::string out, text, detail;
        std::error_code ec;
        fs::create_directories(params.outputDirectory, ec); // made when missing
        std::vector<std::string> keep = inputs;
        keep.push_back(reference);
        keep.insert(keep.end(), result->run.outputs.begin(), result->run.outputs.end());
        if (!WriteFileOpOutput(image, params.outputDirectory, kAlignStarPrefix, source, saveType,
                               keep, &out, &text, &detail)) {
            result->run.end = FileOpEnd::Stopped;
            result->run.failures.push_back({source, kErrorWritingImageText, detail});
            Status(kErrorWritingImageText);
            if (notify)
                notify->Message(detail.empty()
                                    ? std::string(kErrorWritingImageText)
                                    : std::string(kErrorWritingImageText) + "\n" + detail);
            return false;
        }
        result->run.inputs.push_back(source);
        result->run.outputs.push_back(out);
        return true;
    }
};

/// Makes a monochrome working image: a colour image becomes its luminance (the largest of the
/// three), and the previous plane exists.
bool ToMono(Image& image) {
    if (image.colorType == ColorRGB) {
        float* r = image.curPlane[0];
        float* g = image.curPlane[1];
        float* b = image.curPlane[2];
        if (!r || !g || !b)
            return false;
        for (std::size_t i = 0; i < image.pixelCount; ++i)
            r[i] = static_cast<float>(image.ValueOf(r[i], g[i], b[i]));
        image.FreeSlot(1);
        image.FreeSlot(2);
        image.colorType = ColorGray;
        image.colorDetail = 0;
    }
    const int slot = SlotOfColorType(image.colorType);
    if (slot < 0 || !image.curPlane[slot])
        return false;
    if (slot != 0) {
        image.curPlane[0] = image.curPlane[slot];
        image.prevPlane[0] = image.prevPlane[slot];
        image.curPlane[slot] = nullptr;
        image.prevPlane[slot] = nullptr;
        image.colorType = ColorGray;
    }
    if (!image.prevPlane[0]) {
        image.prevPlane[0] = AllocPlane(image.pixelCount);
        if (!image.prevPlane[0])
            return false;
    }
    return true;
}

/// The channels c0..c2 of an image in slot order (nullptr where absent).
std::array<const float*, 3> Channels(const Image& image) {
    std::array<const float*, 3> c{nullptr, nullptr, nullptr};
    const auto slots = image.Slots();
    for (std::size_t k = 0; k < slots.size() && k < 3; ++k)
        c[k] = image.curPlane[slots[k]];
    return c;
}

/// The output image: the reference's size, the current image's type and header. An SBIG
/// image gets a record of its own, rebuilt for the output's size, so that the current image's
/// stays as it was read. The failure text, or nullptr.
const char* MakeAlignImage(const Image& current, int w, int h, Image* out) {
    out->SetGeometryFits(current.fileType, current.colorType, current.colorDetail, current.dataType,
                         w, h);
    if (!out->AllocatePlanes(1))
        return kNoMemoryAlignImageText;
    out->maxValue = current.maxValue;
    out->headerCards = current.headerCards;
    out->description = current.description;
    out->header = current.header;
    if (current.header &&
        (current.fileType == KindSBIG || current.fileType == KindSBIGCompressed)) {
        try {
            auto rebuilt = std::make_shared<ImageHeader>(*current.header);
            rebuilt->width = w;
            rebuilt->height = h;
            rebuilt->pixelCount = static_cast<std::uint32_t>(w) * static_cast<std::uint32_t>(h);
            out->header = std::move(rebuilt);
        } catch (const std::bad_alloc&) {
            return kNoMemorySbigWriteText;
        }
    }
    out->tiffInfo = current.tiffInfo;
    out->tiffBitsPerSample = current.tiffBitsPerSample;
    out->jpegQuality = current.jpegQuality;
    out->fitsCompress = current.fitsCompress;
    out->fitsMaximColor = current.fitsMaximColor;
    return nullptr;
}

/// The centroid of the star window of radius r about a 1-based point, 1-based; the luminance
/// of a colour image.
std::array<double, 2> Refine(Image& image, double x, double y, int r) {
    const int slot = SlotOfColorType(image.colorType);
    image.LoadNbhd(slot >= 0 ? image.curPlane[slot] : nullptr, static_cast<int>(x) - 1,
                   static_cast<int>(y) - 1, r);
    double cx = 0, cy = 0;
    image.NbhdCentroid(&cx, &cy);
    return {cx, cy};
}

/// Binarizes the plane at `level`: at or above becomes 65535, below 0.
void Binarize(Image& image, float* plane, float level) {
    for (std::size_t i = 0; i < image.pixelCount; ++i)
        plane[i] = plane[i] >= level ? 65535.0f : 0.0f;
}

// ---- descriptor matching ---------------------------------------------------------------------

/// The fixed search recipe of descriptor matching on a monochrome working image.
void RecipeStars(Run& run, Image& image, CStarShapeList* stars) {
    float*& cur = image.curPlane[0];
    float*& prev = image.prevPlane[0];
    const auto find = [&] {
        image.FindStars(nullptr, kSearchTag, cur, stars, nullptr, nullptr, false, false);
    };
    // 1. Median, radius 2, full range.
    image.Smooth(nullptr, false, prev, cur, SmoothMedian, 2, 1.0, 1, 0, 65535, 0);
    find();
    // 2. A sparse, dark image is stretched.
    if (stars->size() < 1000 && image.MeanOfPlane(cur) < 10000) {
        run.Status(Format("Initial Star Count %d Increased", static_cast<int>(stars->size())));
        image.HistogramStretch(false, prev, cur, 1, 0.1, 0.1, 0, 0.1, 1.0);
    }
    // 3. The star mask.
    image.CopyPlane(prev, cur);
    FeatureMaskStarsParams mask;
    FeatureMaskStars(prev, cur, image.width, image.height, mask, nullptr);
    find();
    // 4. Binarized at 32768.
    image.CopyPlane(prev, cur);
    Binarize(image, cur, 32768.0f);
    find();
    // 5. Lower levels while too few are found.
    if (stars->size() < 10)
        for (int level = 30000; level > 0; level -= 2000) {
            image.CopyPlane(cur, prev);
            Binarize(image, cur, static_cast<float>(level));
            find();
            if (stars->size() > 10)
                break;
        }
    // 6. Median again; too few and the channel before it is searched.
    image.Smooth(nullptr, false, prev, cur, SmoothMedian, 2, 1.0, 1, 0, 65535, 0);
    find();
    if (stars->size() < 11) {
        image.CopyPlane(cur, prev);
        find();
    }
}

int RunDescriptor(Run& run) {
    AlignStarResult& result = *run.result;
    const long total = static_cast<long>(run.inputs.size()) + 1;
    // The reference: its stars, its descriptors, and itself written first.
    Image refImage;
    if (!run.Read(refImage, run.reference) || !ToMono(refImage))
        return run.Stop(kErrorReadingReferenceText, run.reference);
    const int refW = refImage.width, refH = refImage.height;
    CStarShapeList refStars;
    RecipeStars(run, refImage, &refStars);
    if (refStars.size() < 2)
        return run.Stop(kLessThan2ReferenceStarsText, run.reference);
    run.Status(
        Format("%d Reference Image Alignment Stars Found.", static_cast<int>(refStars.size())));
    std::vector<CStarDescriptorStructure> refDescriptors;
    refImage.BuildStarDescriptors(refStars, &refDescriptors);
    {
        Image original;
        if (!run.Read(original, run.reference))
            return run.Stop(kErrorReadingReferenceText, run.reference);
        result.started = true;
        if (!run.Write(original, run.reference))
            return 0;
    }
    run.Step(1, total);
    double maxShiftX = 0, maxShiftY = 0, maxRotation = 0;
    int aligned = 1;
    for (std::size_t n = 0; n < run.inputs.size(); ++n) {
        if (run.Cancelled())
            return 0;
        const std::string& path = run.inputs[n];
        Image work;
        if (!run.Read(work, path) || !ToMono(work))
            return run.Stop(kErrorReadingImageText, path);
        CStarShapeList stars;
        RecipeStars(run, work, &stars);
        if (stars.size() < 2) {
            run.Skip(kNoStarsCurrentText, path);
            continue;
        }
        run.Status(
            Format("%d Current Image Alignment Stars Found.", static_cast<int>(stars.size())));
        std::vector<CStarDescriptorStructure> descriptors;
        work.BuildStarDescriptors(stars, &descriptors);
        std::vector<CStarMatchStructure> matches;
        if (!work.MatchStarDescriptors(run.progress, kSearchTag, refDescriptors, descriptors,
                                       &matches)) {
            run.Cancelled();
            return 0;
        }
        if (matches.size() < 3) {
            run.Skip(kLessThan3MatchesText, path);
            continue;
        }
        const StarCorners corners = PickCorners(matches, work.width / 2, work.height / 2);
        const CornerPlan plan = PlanCorners(corners, run.params.shortFLSmallStars);
        if (!plan.usable) {
            run.Skip(kNoMatchingCornersText, path);
            continue;
        }
        // The corner stars refined on the unfiltered images, read afresh.
        Image refPlain, current;
        if (!run.Read(refPlain, run.reference))
            return run.Stop(kErrorReadingReferenceText, run.reference);
        if (!run.Read(current, path))
            return run.Stop(kErrorReadingImageText, path);
        std::array<std::array<double, 2>, 4> refPt{}, curPt{};
        for (int k = 0; k < 4; ++k) {
            const int m = corners.match[k];
            if (m < 0)
                continue;
            refPt[k] = Refine(refPlain, matches[m].refX, matches[m].refY, 14);
            curPt[k] = Refine(current, matches[m].curX, matches[m].curY, 14);
        }
        std::vector<std::array<double, 2>> checkRef, checkCur;
        for (int k : plan.check) {
            checkRef.push_back(refPt[k]);
            checkCur.push_back(curPt[k]);
        }
        const double ratio = CornerCheckRatio(checkRef, checkCur);
        if (!CornerRatioInRange(ratio)) {
            run.Skip(Format("Mismatch Ratio = %3.6f", ratio), path);
            continue;
        }
        run.Status(Format("Match Ratio = %3.6f", ratio));
        Image out;
        if (const char* why = MakeAlignImage(current, refW, refH, &out))
            return run.Stop(why, path);
        const auto c = Channels(current);
        // The resampling works in 0-based pixel positions.
        std::vector<std::array<double, 2>> r, q;
        for (int k : plan.align) {
            r.push_back({refPt[k][0] - 1, refPt[k][1] - 1});
            q.push_back({curPt[k][0] - 1, curPt[k][1] - 1});
        }
        double rotation = 0, shiftX = 0, shiftY = 0;
        std::string why;
        bool ok;
        if (plan.affine)
            ok = current.AlignAffine3(&out, refW, refH, c[0], c[1], c[2], r[0][0], r[0][1], r[1][0],
                                      r[1][1], r[2][0], r[2][1], q[0][0], q[0][1], q[1][0], q[1][1],
                                      q[2][0], q[2][1], &rotation, false, nullptr, nullptr, nullptr,
                                      nullptr, &shiftX, &shiftY, &why);
        else
            ok = current.AlignRigid2(&out, refW, refH, c[0], c[1], c[2], r[0][0], r[0][1], r[1][0],
                                     r[1][1], q[0][0], q[0][1], q[1][0], q[1][1], &rotation,
                                     &shiftX, &shiftY);
        if (!ok) {
            run.Skip(why.empty() ? std::string(kNoMatchingCornersText) : why, path);
            continue;
        }
        if (!run.Write(out, path))
            return 0;
        AlignStarFrame frame;
        frame.input = path;
        frame.output = result.run.outputs.back();
        frame.affine = plan.affine;
        frame.reference = r;
        frame.current = q;
        frame.rotation = rotation;
        frame.shiftX = shiftX;
        frame.shiftY = shiftY;
        result.frames.push_back(frame);
        ++aligned;
        maxShiftX = std::max(maxShiftX, std::fabs(shiftX));
        maxShiftY = std::max(maxShiftY, std::fabs(shiftY));
        maxRotation = std::max(maxRotation, std::fabs(rotation));
        run.Status(Format("%d Aligned Images, Max Translate : (%5.2f, %5.2f) , Max Rotation : "
                          "%5.2f Degrees",
                          aligned, maxShiftX, maxShiftY, maxRotation));
        run.Step(static_cast<long>(n) + 2, total);
    }
    return 0;
}

// ---- quick alignment -------------------------------------------------------------------------

/// The set's brightness: per channel slot the average mean and deviation.
struct SetBrightness {
    bool on = false;
    std::array<double, 3> mean{}, dev{};
};

void ApplyBrightness(Image& image, const SetBrightness& set) {
    if (!set.on)
        return;
    for (int s : image.Slots()) {
        float* p = image.curPlane[s];
        const double a = image.MeanOfPlane(p), b = image.StdDevOfPlane(p);
        image.NormalizeChannel(true, nullptr, p, true, a, b, set.mean[s], set.dev[s]);
    }
}

/// Reads, maps, reduces to luminance and scales by `s` (1: no scaling). False with the
/// read failure (`readFailed`) or a scale failure.
bool LoadScaled(Run& run, const std::string& path, const SetBrightness& set, double s, Image* image,
                bool* readFailed) {
    *readFailed = false;
    if (!run.Read(*image, path)) {
        *readFailed = true;
        return false;
    }
    ApplyBrightness(*image, set);
    if (!ToMono(*image)) {
        *readFailed = true;
        return false;
    }
    if (s == 1.0)
        return true;
    ScaleParams p;
    p.preserveAspect = false;
    p.byDimension = true;
    p.newWidth = static_cast<int>(image->width * s);
    p.newHeight = static_cast<int>(image->height * s);
    p.resampleType = 2;
    p.commit = true;
    std::string text;
    if (!image->Scale(p, image->curPlane[0], image->prevPlane[0], &text))
        return false;
    image->SetSize(static_cast<int>(p.newWidth), static_cast<int>(p.newHeight));
    return true;
}

std::vector<CStarPair> FlippedPairs(Image& image, const std::string& flip, bool* ok) {
    const std::size_t n = image.pixelCount;
    std::vector<float> plane(image.curPlane[0], image.curPlane[0] + n);
    if (flip == "V" || flip == "VH")
        image.FlipRows(true, nullptr, plane.data());
    if (flip == "H" || flip == "VH")
        image.FlipColumns(true, nullptr, plane.data());
    CStarShapeList stars;
    image.FindStars(nullptr, kSearchTag, plane.data(), &stars, nullptr, nullptr, false, false);
    std::vector<CStarPair> pairs;
    *ok = BuildStarPairs(FilterQuickStars(stars), image.width, image.height, &pairs);
    return pairs;
}

int RunQuick(Run& run) {
    AlignStarResult& result = *run.result;
    const AutoStarParams& params = run.params;
    std::vector<std::string> all;
    all.push_back(run.reference);
    all.insert(all.end(), run.inputs.begin(), run.inputs.end());

    // Stage "Analyze Image Set Parameters...".
    SetBrightness set;
    if (params.wideBrightnessRange) {
        run.Status(kAnalyzeSetParamsText);
        std::array<double, 3> sumMean{}, sumDev{};
        std::array<int, 3> count{};
        for (std::size_t n = 0; n < all.size(); ++n) {
            if (run.Cancelled())
                return 0;
            run.Step(static_cast<long>(n) + 1, static_cast<long>(all.size()));
            Image image;
            if (!run.Read(image, all[n]))
                return run.Stop(n == 0 ? kErrorReadingReferenceText : kErrorReadingImageText,
                                all[n]);
            for (int s : image.Slots()) {
                sumMean[s] += image.MeanOfPlane(image.curPlane[s]);
                sumDev[s] += image.StdDevOfPlane(image.curPlane[s]);
                ++count[s];
            }
        }
        set.on = true;
        for (int s = 0; s < 3; ++s)
            if (count[s]) {
                set.mean[s] = std::min(sumMean[s] / count[s], 32767.0);
                set.dev[s] = sumDev[s] / count[s];
            }
    }

    // Stage "Analyze Reference Image...".
    run.Status(kAnalyzeReferenceText);
    double target = params.shortFLSmallStars ? 1100 : 700;
    double s = 1.0;
    Image refScaled;
    CStarShapeList refStars;
    for (int retry = 0;; ++retry) {
        if (run.Cancelled())
            return 0;
        Image probe;
        if (!run.Read(probe, run.reference))
            return run.Stop(kErrorReadingReferenceText, run.reference);
        const double width = probe.width;
        s = target / width;
        if (s > 0.75 || width * s + 100 >= width)
            s = 1.0;
        refScaled.FreePlanes();
        bool readFailed = false;
        if (!LoadScaled(run, run.reference, set, s, &refScaled, &readFailed))
            return run.Stop(readFailed ? kErrorReadingReferenceText : kReferenceScaleFailedText,
                            run.reference);
        refScaled.FindStars(nullptr, kSearchTag, refScaled.curPlane[0], &refStars, nullptr, nullptr,
                            false, false);
        if (refStars.size() >= 85 || retry >= 3 || s == 1.0)
            break;
        target += 100;
    }
    result.scale = s;
    std::vector<CStarPair> refPairs;
    if (!BuildStarPairs(FilterQuickStars(refStars), refScaled.width, refScaled.height, &refPairs))
        return run.Stop(kInvalidMinMaxDistanceText, run.reference);

    // Stage "Analyze Image Set...": pairs of every image and their matches, per flip.
    run.Status(kAnalyzeSetText);
    std::vector<std::string> flips{"N"};
    if (params.meridianFlip)
        flips.push_back("VH");
    if (params.mirrorFlip) {
        flips.push_back("V");
        flips.push_back("H");
    }
    CStarMatchList matches;
    for (std::size_t n = 0; n < run.inputs.size(); ++n) {
        if (run.Cancelled())
            return 0;
        run.Step(static_cast<long>(n) + 1, static_cast<long>(run.inputs.size()));
        const std::string& path = run.inputs[n];
        Image image;
        bool readFailed = false;
        if (!LoadScaled(run, path, set, s, &image, &readFailed))
            return run.Stop(readFailed ? kErrorReadingImageText : kScaleFailedText, path);
        for (const auto& flip : flips) {
            bool ok = true;
            const auto pairs = FlippedPairs(image, flip, &ok);
            if (!ok)
                return run.Stop(kInvalidMinMaxDistanceText, path);
            MatchStarPairs(refPairs, pairs, path, flip, &matches);
        }
    }

    // Stage "Build Alignment Data...".
    run.Status(kBuildAlignDataText);
    CStarMatchList clusters;
    if (!ClusterMatches(matches, run.progress, &clusters)) {
        run.Cancelled();
        return 0;
    }
    const CStarMatchList best = BestClusterPerFile(clusters);

    // Stage "Align Image Set...".
    run.Status(kAlignSetText);
    Image reference;
    if (!run.Read(reference, run.reference))
        return run.Stop(kErrorReadingReferenceText, run.reference);
    result.started = true;
    if (!run.Write(reference, run.reference))
        return 0;
    const int refW = reference.width, refH = reference.height;
    double maxTran = 0, maxTran3 = 0, maxRot = 0;
    for (std::size_t n = 0; n < run.inputs.size(); ++n) {
        if (run.Cancelled())
            return 0;
        run.Step(static_cast<long>(n) + 1, static_cast<long>(run.inputs.size()));
        const std::string& path = run.inputs[n];
        Image current;
        if (!run.Read(current, path))
            return run.Stop(kErrorReadingImageText, path);
        const CStarDescriptorMatchStructure* cluster = nullptr;
        for (const auto& c : best)
            if (c.fileName == path)
                cluster = &c;
        if (!cluster || cluster->votes < kQuickMinVotes) {
            run.Skip(kNotEnoughStarsQuickText, path);
            continue;
        }
        // 1. The flip on all channels.
        for (int slot : current.Slots()) {
            if (cluster->flip == "V" || cluster->flip == "VH")
                current.FlipRows(true, nullptr, current.curPlane[slot]);
            if (cluster->flip == "H" || cluster->flip == "VH")
                current.FlipColumns(true, nullptr, current.curPlane[slot]);
        }
        // 2. The triangle of largest perimeter, back at full size.
        const auto refStars4 = ClusterReferenceStars(*cluster);
        const auto curStars4 = ClusterCurrentStars(*cluster);
        const auto tri = LargestPerimeterTriangle(refStars4);
        // 3. Refined on the full-size images.
        const int radius = std::fabs(cluster->angle) >= 0.5 ? 30 : 14;
        std::array<std::array<double, 2>, 3> rp{}, cp{};
        for (int k = 0; k < 3; ++k) {
            const auto& a = refStars4[static_cast<std::size_t>(tri[k])];
            const auto& b = curStars4[static_cast<std::size_t>(tri[k])];
            rp[k] = Refine(reference, a.x / s, a.y / s, radius);
            cp[k] = Refine(current, b.x / s, b.y / s, radius);
        }
        // 4. The resampling, in 0-based pixel positions.
        Image out;
        if (const char* why = MakeAlignImage(current, refW, refH, &out))
            return run.Stop(why, path);
        const auto c = Channels(current);
        double rotation = 0, shiftX = 0, shiftY = 0;
        std::string why;
        if (!current.AlignAffine3(&out, refW, refH, c[0], c[1], c[2], rp[0][0] - 1, rp[0][1] - 1,
                                  rp[1][0] - 1, rp[1][1] - 1, rp[2][0] - 1, rp[2][1] - 1,
                                  cp[0][0] - 1, cp[0][1] - 1, cp[1][0] - 1, cp[1][1] - 1,
                                  cp[2][0] - 1, cp[2][1] - 1, &rotation, false, nullptr, nullptr,
                                  nullptr, nullptr, &shiftX, &shiftY, &why)) {
            run.Skip(why, path);
            continue;
        }
        // 5. Written.
        if (!run.Write(out, path))
            return 0;
        AlignStarFrame frame;
        frame.input = path;
        frame.output = result.run.outputs.back();
        frame.flip = cluster->flip;
        frame.votes = cluster->votes;
        for (int k = 0; k < 3; ++k) {
            frame.reference.push_back({rp[k][0] - 1, rp[k][1] - 1});
            frame.current.push_back({cp[k][0] - 1, cp[k][1] - 1});
        }
        frame.rotation = rotation;
        frame.shiftX = shiftX;
        frame.shiftY = shiftY;
        result.frames.push_back(frame);
        maxTran = std::max(maxTran, std::hypot(rp[0][0] - cp[0][0], rp[0][1] - cp[0][1]));
        maxTran3 = std::max(maxTran3, std::hypot(rp[2][0] - cp[2][0], rp[2][1] - cp[2][1]));
        maxRot = std::max(maxRot, std::fabs(rotation));
        run.Status(Format("%d Correlated, Max - Tran. : %5.2f, Rot. : %5.2f, Scale : %5.2f",
                          static_cast<int>(result.run.outputs.size()), maxTran, maxRot,
                          maxTran - maxTran3));
    }
    return 0;
}

/// The checks before a job starts; empty when it may start, else the text.
std::string Prepare(const AutoStarParams& params, std::string* reference,
                    std::vector<std::string>* inputs) {
    *reference = params.referencePath;
    if (reference->empty())
        for (const auto& f : params.files)
            if (f.isReference) {
                *reference = f.path;
                break;
            }
    if (reference->empty())
        return kSelectReferenceText;
    inputs->clear();
    for (const auto& f : params.files) {
        if (f.excluded || f.path == *reference)
            continue;
        if (std::find(inputs->begin(), inputs->end(), f.path) == inputs->end())
            inputs->push_back(f.path);
    }
    if (inputs->empty())
        return kTwoImagesForAlignText;
    return {};
}

/// The end of a job: a lone reference output is deleted and the run reported as an error;
/// the output list is stored.
void Finish(Run& run) {
    AlignStarResult& result = *run.result;
    FileOpResult& r = result.run;
    if (r.outputs.size() == 1) {
        std::error_code ec;
        fs::remove(r.outputs.front(), ec);
        r.outputs.clear();
        r.inputs.clear();
        if (r.end == FileOpEnd::Completed || r.end == FileOpEnd::CompletedWithFailures)
            r.end = FileOpEnd::Stopped;
    }
    if (r.end == FileOpEnd::Completed && !r.failures.empty())
        r.end = FileOpEnd::CompletedWithFailures;
    if (r.outputs.empty() && r.end != FileOpEnd::Cancelled)
        r.end = FileOpEnd::Stopped;
    result.step = r.outputs.size() >= 2 && r.end != FileOpEnd::Stopped ? "Completed" : "Error";
    if (r.outputs.size() >= 2)
        FileOpLists().Set(OutputListOf(kAlignStarListName, OutputListKind::Aligned, r.outputs));
    if (run.progress)
        run.progress->SetStatus(r.status);
}

int RunThread(const AutoStarParams& params, IProgress* progress, INotify* notify,
              AlignStarResult* result, bool quick) {
    Run run{params, progress, notify, result, {}, {}, {}};
    const std::string text = Prepare(params, &run.reference, &run.inputs);
    if (!text.empty())
        return run.Stop(text);
    run.saveType =
        params.ownerName == kAlignStarOwnerPipeline ? params.saveType : std::string("SAMEASINPUT");
    if (quick)
        RunQuick(run);
    else
        RunDescriptor(run);
    Finish(run);
    return 0;
}

} // namespace

int AutoStarThread(const AutoStarParams& params, IProgress* progress, INotify* notify,
                   AlignStarResult* result) {
    return RunThread(params, progress, notify, result, false);
}

int AutoStarQuickThread(const AutoStarParams& params, IProgress* progress, INotify* notify,
                        AlignStarResult* result) {
    return RunThread(params, progress, notify, result, true);
}

bool AlignStarFrameMap(const AlignStarFrame& frame, int width, int height,
                       std::array<double, 6>* m) {
    const auto& r = frame.reference;
    const auto& c = frame.current;
    std::array<double, 6> a{};
    if (frame.affine && r.size() >= 3 && c.size() >= 3) {
        // Solve [x' y'] = A [x y 1] from the three pairs.
        const double x1 = c[1][0] - c[0][0], y1 = c[1][1] - c[0][1];
        const double x2 = c[2][0] - c[0][0], y2 = c[2][1] - c[0][1];
        const double det = x1 * y2 - x2 * y1;
        if (det == 0)
            return false;
        for (int k = 0; k < 2; ++k) {
            const double u1 = r[1][k] - r[0][k], u2 = r[2][k] - r[0][k];
            const double p = (u1 * y2 - u2 * y1) / det, q = (x1 * u2 - x2 * u1) / det;
            a[3 * k] = p;
            a[3 * k + 1] = q;
            a[3 * k + 2] = r[0][k] - p * c[0][0] - q * c[0][1];
        }
    } else if (r.size() >= 2 && c.size() >= 2) {
        const double ax = r[1][0] - r[0][0], ay = r[1][1] - r[0][1];
        const double bx = c[1][0] - c[0][0], by = c[1][1] - c[0][1];
        if ((ax == 0 && ay == 0) || (bx == 0 && by == 0))
            return false;
        const double turn = std::atan2(ay, ax) - std::atan2(by, bx);
        const double cs = std::cos(turn), sn = std::sin(turn);
        a = {cs, -sn, 0, sn, cs, 0};
        a[2] = r[0][0] - (cs * c[0][0] - sn * c[0][1]);
        a[5] = r[0][1] - (sn * c[0][0] + cs * c[0][1]);
    } else {
        return false;
    }
    // The flip came first: x -> w - 1 - x ("H"), y -> h - 1 - y ("V"), both for "VH".
    const bool h = frame.flip == "H" || frame.flip == "VH";
    const bool v = frame.flip == "V" || frame.flip == "VH";
    for (int k = 0; k < 2; ++k) {
        double* row = &a[3 * k];
        if (h) {
            row[2] += row[0] * (width - 1);
            row[0] = -row[0];
        }
        if (v) {
            row[2] += row[1] * (height - 1);
            row[1] = -row[1];
        }
    }
    *m = a;
    return true;
}

AlignStarResult AlignStarFiles(const AutoStarParams& params, IProgress* progress, INotify* notify) {
    AlignStarResult result;
    result.step = "Error";
    Run run{params, progress, notify, &result, {}, {}, {}};
    FileOpBusy busy(FileOpKind::AlignTSR);
    if (!busy.Acquired()) {
        run.Stop(BusyText(FileOpKind::AlignTSR));
        return result;
    }
    if (params.quickAlignment)
        AutoStarQuickThread(params, progress, notify, &result);
    else
        AutoStarThread(params, progress, notify, &result);
    return result;
}

} // namespace astrivelle
