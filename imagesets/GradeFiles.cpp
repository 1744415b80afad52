// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Grade Files: the edge energy of a plane, the sharpness grades, the star-shape
/// selection, the graded copies and the reports.
#include "imagesets/GradeFiles.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "align/StarMeasure.h"
#include "engine/Image.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"
#include "engine/ParamText.h"

namespace astrivelle {

namespace fs = std::filesystem;

// ---- the edge energy ------------------------------------------------------------------------

bool Image::EdgeEnergy(const float* channel, double* out, double threshold, int cx, int cy,
                       int radius, const double* kernelX, const double* kernelY,
                       bool wholeImage) const {
    if (!channel || !out || !kernelX || !kernelY || width <= 0 || height <= 0)
        return false;
    const int w = width, h = height;
    int xa = 0, xb = w - 1, ya = 0, yb = h - 1;
    if (!wholeImage) {
        xa = std::max(cx - radius, 0);
        xb = std::min(cx + radius, w - 1);
        ya = std::max(cy - radius, 0);
        yb = std::min(cy + radius, h - 1);
    }
    if (xa > xb || ya > yb) {
        *out = 0.0;
        return true;
    }
    // Fixed chunks of rows, each with its own partial sum, added in order at the end so that
    // the total does not depend on how the chunks were scheduled.
    constexpr int kChunkRows = 32;
    const int rows = yb - ya + 1;
    const int chunks = (rows + kChunkRows - 1) / kChunkRows;
    std::vector<double> partial(static_cast<std::size_t>(chunks), 0.0);
    ParallelRows(chunks, [&](int c0, int c1) {
        for (int c = c0; c < c1; ++c) {
            double sum = 0.0;
            const int y0 = ya + c * kChunkRows, y1 = std::min(y0 + kChunkRows - 1, yb);
            for (int y = y0; y <= y1; ++y) {
                const float* row = channel + static_cast<std::size_t>(y) * w;
                const bool innerRow = y > 0 && y < h - 1;
                for (int x = xa; x <= xb; ++x) {
                    if (!(row[x] >= threshold))
                        continue;
                    double gx = 0.0, gy = 0.0;
                    if (innerRow && x > 0 && x < w - 1) {
                        for (int j = 0; j < 3; ++j) {
                            const float* r = row + static_cast<std::ptrdiff_t>(j - 1) * w + x - 1;
                            gx += kernelX[j * 3] * r[0] + kernelX[j * 3 + 1] * r[1] +
                                  kernelX[j * 3 + 2] * r[2];
                            gy += kernelY[j * 3] * r[0] + kernelY[j * 3 + 1] * r[1] +
                                  kernelY[j * 3 + 2] * r[2];
                        }
                    } else {
                        // A border pixel leaves out the terms it has no neighbour for.
                        for (int j = 0; j < 3; ++j) {
                            const int yy = y + j - 1;
                            if (yy < 0 || yy >= h)
                                continue;
                            for (int i = 0; i < 3; ++i) {
                                const int xx = x + i - 1;
                                if (xx < 0 || xx >= w)
                                    continue;
                                const double v = channel[static_cast<std::size_t>(yy) * w + xx];
                                gx += kernelX[j * 3 + i] * v;
                                gy += kernelY[j * 3 + i] * v;
                            }
                        }
                    }
                    sum += gx * gx + gy * gy;
                }
            }
            partial[static_cast<std::size_t>(c)] = sum;
        }
    });
    double total = 0.0;
    for (double p : partial)
        total += p;
    *out = total / static_cast<double>(pixelCount ? pixelCount : 1);
    return true;
}

/// Copies `source` to outDir / name through a temporary name and a rename; never over an
/// input. The copy's attributes are set to normal.
bool CopyGraded(const std::string& source, const std::string& outDir, const std::string& name,
                const std::vector<std::string>& inputs, std::string* outPath, std::string* why) {
    const fs::path target = fs::path(outDir) / name;
    *outPath = target.string();
    std::error_code ec;
    for (const std::string& in : inputs)
        if (fs::exists(target, ec) && fs::equivalent(in, target, ec)) {
            *why = "the copy would replace an input";
            return false;
        }
    fs::path temp = target;
    temp += ".grading~";
    fs::remove(temp, ec);
    if (!fs::copy_file(source, temp, fs::copy_options::overwrite_existing, ec)) {
        *why = ec.message();
        fs::remove(temp, ec);
        return false;
    }
    fs::permissions(temp,
                    fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read |
                        fs::perms::others_read,
                    ec);
    fs::rename(temp, target, ec);
    if (ec) {
        *why = ec.message();
        std::error_code ignore;
        fs::remove(temp, ignore);
        return false;
    }
    return true;
}

namespace {

/// The grading kernels, row order.
constexpr double kKernelX[9] = {-0.25, 0, 0.25, -1, 0, 1, -0.25, 0, 0.25};
constexpr double kKernelY[9] = {0.25, 1, 0.25, 0, 0, 0, -0.25, -1, -0.25};

std::string NoPoint(std::string text, const char* with) {
    const auto dot = text.find('.');
    if (dot != std::string::npos)
        text.replace(dot, 1, with);
    return text;
}

GradeStats StatsOf(const std::vector<double>& values) {
    GradeStats s;
    if (values.empty())
        return s;
    s.min = *std::min_element(values.begin(), values.end());
    s.max = *std::max_element(values.begin(), values.end());
    double sum = 0.0;
    for (double v : values)
        sum += v;
    s.avg = sum / values.size();
    if (values.size() > 1) {
        double sq = 0.0;
        for (double v : values)
            sq += (v - s.avg) * (v - s.avg);
        s.stdDev = std::sqrt(sq / (values.size() - 1));
    }
    return s;
}

/// The common state of one run: the result, the failures and their reporting.
struct Run {
    GradeResult result;
    IProgress* progress;
    INotify* notify;
    IFileOpOwner* owner;

    Run(IProgress* p, INotify* n) : progress(p), notify(n), owner(dynamic_cast<IFileOpOwner*>(p)) {
        result.step = "Error";
    }
    void Status(const std::string& text) {
        if (progress)
            progress->SetStatus(text);
    }
    void Phase(long phase) {
        if (progress)
            progress->SetProgress(phase, kFileOpPhases);
    }
    void Counter(long current, long total) {
        if (owner)
            owner->SetCounter(current, total);
    }
    bool Cancelled() {
        if (!progress || !progress->Cancelled())
            return false;
        result.run.end = FileOpEnd::Cancelled;
        result.run.status = kThreadCanceledText;
        Status(kThreadCanceledText);
        return true;
    }
    void Fail(const std::string& path, const std::string& text, const std::string& detail = {}) {
        FileOpFailure f{path, text, detail};
        if (notify)
            notify->Message(detail.empty() ? text : text + "\n" + detail);
        result.run.failures.push_back(std::move(f));
    }
    GradeResult Stop(const std::string& text) {
        result.run.end = FileOpEnd::Stopped;
        result.run.status = text;
        Fail({}, text);
        Status(text);
        return result;
    }
    /// The end of a run that went through its files.
    GradeResult Finish() {
        FileOpResult& run = result.run;
        if (run.end != FileOpEnd::Cancelled) {
            if (run.outputs.empty()) {
                run.end = FileOpEnd::Stopped;
                run.status = kGradeNoneText;
            } else {
                run.end =
                    run.failures.empty() ? FileOpEnd::Completed : FileOpEnd::CompletedWithFailures;
                run.status = kGradeDoneText;
            }
            Status(run.status);
        }
        result.step = run.outputs.empty() ? "Error" : "Completed";
        if (!run.outputs.empty())
            FileOpLists().Set(
                OutputListOf(kGradeOperationName, OutputListKind::Graded, run.outputs));
        return result;
    }
    /// Copies one graded file; false (with the failure noted) when it could not be.
    void Copy(const std::string& source, const std::string& outDir, const std::string& name,
              const std::vector<std::string>& inputs) {
        Phase(PhaseWrite);
        std::string out, why;
        if (!CopyGraded(source, outDir, name, inputs, &out, &why)) {
            Fail(source, kGradeSaveErrorText + fs::path(source).filename().string(), why);
            return;
        }
        result.run.inputs.push_back(source);
        result.run.outputs.push_back(out);
        Phase(PhaseDone);
    }
};

/// Reads one file of the run; false (with the failure noted) when it can't be.
bool ReadOne(Run& run, Image& image, const std::string& path) {
    run.Phase(PhaseRead);
    if (!image.ReadFile(path, fs::path(path).extension().string())) {
        run.Fail(path, kGradeReadErrorText + fs::path(path).filename().string());
        return false;
    }
    run.Phase(PhaseProcess);
    return true;
}

/// Each input read in turn and handed to `grade(path, image)`, the counter moved on; a file
/// that can't be read is noted and passed over. False when the run was cancelled.
template <class Grade>
bool ForEachRead(Run& run, const std::vector<std::string>& inputs, Grade&& grade) {
    const long total = static_cast<long>(inputs.size());
    for (long n = 0; n < total; ++n) {
        if (run.Cancelled())
            return false;
        run.Counter(n + 1, total);
        Image image;
        if (ReadOne(run, image, inputs[n]))
            grade(inputs[n], image);
    }
    return true;
}

template <class Entry> void NameEntry(Entry& e, const std::string& path) {
    const fs::path p(path);
    e.path = path;
    e.folder = p.parent_path().string();
    e.name = p.stem().string();
    e.extension = p.extension().string();
}

// ---- sharpness ------------------------------------------------------------------------------

/// Scores and grades of a sharpness list: the focus channel's value over the list's largest,
/// so the best scores 1, lettered by the limits. Returns the summary line.
std::string ScoreSharpness(std::vector<SharpnessGrade>& list, const std::array<double, 4>& limits,
                           FocusChannel focus) {
    double largest = 0.0, largestChannel[3] = {0, 0, 0};
    for (const SharpnessGrade& e : list) {
        largest = std::max(largest, e.mean);
        largestChannel[0] = std::max(largestChannel[0], e.red);
        largestChannel[1] = std::max(largestChannel[1], e.green);
        largestChannel[2] = std::max(largestChannel[2], e.blue);
    }
    std::vector<double> scores;
    for (SharpnessGrade& e : list) {
        double value = e.mean, top = largest;
        switch (focus) {
        case FocusChannel::Red:
            value = e.red, top = largestChannel[0];
            break;
        case FocusChannel::Green:
            value = e.green, top = largestChannel[1];
            break;
        case FocusChannel::Blue:
            value = e.blue, top = largestChannel[2];
            break;
        case FocusChannel::Average:
            break;
        }
        e.score = top > 0.0 ? value / top : 0.0;
        e.grade = SharpnessGradeLetter(e.score, limits);
        scores.push_back(e.score);
    }
    const GradeStats s = StatsOf(scores);
    // The deviation is taken of (R + G + B) / 3V around the average score, whatever channel
    // scores the files: with another focus channel the two do not belong together, as it
    // always was.
    double deviation = 0.0;
    if (scores.size() > 1 && largest > 0.0) {
        double sq = 0.0;
        for (const SharpnessGrade& e : list) {
            const double d = (e.red + e.green + e.blue) / (3.0 * largest) - s.avg;
            sq += d * d;
        }
        deviation = std::sqrt(sq / (scores.size() - 1));
    }
    return FormatText(kGradeSharpnessSummaryFormat, 1.0, s.avg, s.min, deviation);
}

GradeResult GradeSharpness(Run& run, const GradeRequest& request,
                           const std::vector<std::string>& inputs) {
    GradeResult& result = run.result;
    const auto& lim = request.intervals;
    if (!(lim[0] > lim[1] && lim[1] > lim[2] && lim[2] > lim[3]))
        return run.Stop(kGradeIntervalsText);
    run.Status(kGradeFocusText);
    const bool read = ForEachRead(run, inputs, [&](const std::string& path, Image& image) {
        SharpnessGrade e;
        NameEntry(e, path);
        if (!EdgeSharpness(image, &e.red, &e.green, &e.blue, &e.mean)) {
            run.Fail(path, kGradeReadErrorText + fs::path(path).filename().string());
            return;
        }
        run.Phase(PhaseProcessed);
        e.index = static_cast<int>(result.sharpness.size());
        result.sharpness.push_back(e);
        ++result.filesRead;
    });
    if (!read)
        return result;
    if (result.sharpness.empty())
        return run.Finish();

    result.intervals = request.intervals;
    result.focus = request.focus;
    result.summary.push_back(ScoreSharpness(result.sharpness, request.intervals, request.focus));

    run.Status(kGradeSavingSharpnessText);
    const long count = static_cast<long>(result.sharpness.size());
    for (long n = 0; n < count; ++n) {
        if (run.Cancelled())
            return result;
        run.Counter(n + 1, count);
        const SharpnessGrade& e = result.sharpness[n];
        const int letter = std::string("ABCDF").find(e.grade);
        if (letter < 0 || !request.useGrades[letter])
            continue;
        run.Copy(e.path, request.outputDirectory,
                 SharpnessGradeFileName(e.grade, request.focus, e.score, e.name + e.extension),
                 inputs);
    }
    return run.Finish();
}

// ---- star shape -----------------------------------------------------------------------------

GradeResult GradeStarShape(Run& run, const GradeRequest& request,
                           const std::vector<std::string>& inputs) {
    GradeResult& result = run.result;
    const std::string& mode = request.mode;
    if (mode != kGradeMaxEcc && mode != kGradeAutoEcc && mode != kGradePercentEcc)
        return run.Stop("Unknown grading mode " + mode);
    run.Status(kGradeStarDataText);
    std::vector<CStarShapeStructure> stars(static_cast<std::size_t>(kGradeStarCapacity));
    std::vector<float> luminance; // the search plane of a colour file
    const bool read = ForEachRead(run, inputs, [&](const std::string& path, Image& image) {
        ++result.filesRead;
        // The luminance of a colour image, or the one channel.
        const float* channel = StarChannel(image, &luminance);
        if (!channel) {
            run.Fail(path, kGradeStarShapeUnavailableText);
            return;
        }
        int candidates = 0, accepted = 0;
        image.FindStarsBounded(run.progress, request.ownerName, channel, stars.data(),
                               kGradeStarCapacity, &candidates, &accepted, false, false);
        run.Phase(PhaseProcessed);
        if (accepted <= 0)
            return; // an image without stars has no shape to grade
        StarShapeGrade e;
        NameEntry(e, path);
        double eSum = 0.0, sSum = 0.0;
        for (int i = 0; i < accepted; ++i) {
            const CStarShapeStructure& s = stars[static_cast<std::size_t>(i)];
            eSum += s.eccentricity;
            sSum += (s.widthX + s.widthY + s.widthLeftDiagonal + s.widthRightDiagonal) * 0.25;
        }
        e.stars = accepted;
        e.eccentricity = eSum / accepted;
        e.size = sSum / accepted;
        result.starShapes.push_back(e);
    });
    if (!read)
        return result;
    if (result.starShapes.empty()) {
        if (result.filesRead == 0)
            return run.Finish();
        return run.Stop(kGradeNoStarsText);
    }

    std::vector<double> es, ss, both;
    for (const StarShapeGrade& e : result.starShapes) {
        es.push_back(e.eccentricity);
        ss.push_back(e.size);
        both.push_back(e.eccentricity + e.size);
    }
    result.eccentricity = StatsOf(es);
    result.size = StatsOf(ss);
    result.combined = StatsOf(both);
    const GradeStats& E = result.eccentricity;
    const GradeStats& S = result.size;
    const std::string eccLine = FormatText(kGradeEccentricityFormat, E.min, E.avg, E.max, E.stdDev);
    const std::string sizeLine = FormatText(kGradeSizeFormat, S.min, S.avg, S.max, S.stdDev);

    // Selection.
    const int count = static_cast<int>(result.starShapes.size());
    if (mode == kGradeMaxEcc) {
        if (E.min > request.limit)
            return run.Stop(FormatText(kGradeMinEccentricityFormat, E.min, request.limit, E.min,
                                       E.avg, E.max, E.stdDev));
        for (StarShapeGrade& e : result.starShapes)
            e.selected = e.eccentricity <= request.limit;
    } else if (mode == kGradeAutoEcc) {
        const double limit = (E.avg + E.stdDev) + (S.avg + S.stdDev);
        for (StarShapeGrade& e : result.starShapes)
            e.selected = e.eccentricity + e.size <= limit;
    } else {
        std::vector<double> sorted = both;
        std::sort(sorted.begin(), sorted.end());
        const int k = static_cast<int>(count * request.limit / 100.0);
        if (k < 1 || k > count)
            return run.Stop(kGradePercentRangeText);
        const double limit = sorted[static_cast<std::size_t>(k - 1)];
        for (StarShapeGrade& e : result.starShapes)
            e.selected = e.eccentricity + e.size <= limit;
    }

    run.Status(kGradeSavingShapeText);
    int selected = 0;
    for (int n = 0; n < count; ++n) {
        if (run.Cancelled())
            return result;
        run.Counter(n + 1, count);
        const StarShapeGrade& e = result.starShapes[static_cast<std::size_t>(n)];
        if (!e.selected)
            continue;
        ++selected;
        run.Copy(e.path, request.outputDirectory,
                 StarShapeGradeFileName(e.eccentricity, e.size, e.name + e.extension), inputs);
    }
    result.summary.push_back(eccLine + "  -  " + sizeLine);
    result.summary.push_back(eccLine);
    result.summary.push_back(sizeLine);
    result.detail = FormatText(kGradeSelectedFormat, selected, count);
    return run.Finish();
}

} // namespace

// ---- names and measures ---------------------------------------------------------------------

const char* FocusWord(FocusChannel channel) {
    switch (channel) {
    case FocusChannel::Red:
        return "Red";
    case FocusChannel::Green:
        return "Green";
    case FocusChannel::Blue:
        return "Blue";
    case FocusChannel::Average:
        break;
    }
    return "Average";
}

bool EdgeSharpness(const Image& image, double* red, double* green, double* blue, double* mean) {
    double v[3] = {0, 0, 0};
    if (image.colorType == ColorRGB) {
        for (int c = 0; c < 3; ++c)
            if (!image.EdgeEnergy(image.curPlane[c], &v[c], 0.0, image.width / 2, image.height / 2,
                                  std::min(image.width / 2, image.height / 2) / 2, kKernelX,
                                  kKernelY, true))
                return false;
    } else {
        const int slot = SlotOfColorType(image.colorType);
        if (slot < 0 ||
            !image.EdgeEnergy(image.curPlane[slot], &v[0], 0.0, image.width / 2, image.height / 2,
                              std::min(image.width / 2, image.height / 2) / 2, kKernelX, kKernelY,
                              true))
            return false;
        v[1] = v[2] = v[0]; // the one value stands for all three
    }
    *red = v[0];
    *green = v[1];
    *blue = v[2];
    *mean = (v[0] + v[1] + v[2]) / 3.0;
    return true;
}

char SharpnessGradeLetter(double score, const std::array<double, 4>& intervals) {
    const double a = intervals[0] / 100.0, b = intervals[1] / 100.0, c = intervals[2] / 100.0,
                 d = intervals[3] / 100.0;
    if (score >= a)
        return 'A';
    if (score >= b)
        return 'B';
    if (score >= c)
        return 'C';
    if (score >= d)
        return 'D';
    return 'F';
}

std::string SharpnessGradeFileName(char grade, FocusChannel channel, double score,
                                   const std::string& fileName) {
    return std::string("AG") + grade + "_" + FocusWord(channel) +
           NoPoint(FormatText("%2.3f", score), "") + "_" + fileName;
}

std::string StarShapeGradeFileName(double eccentricity, double size, const std::string& fileName) {
    return std::string("ASG") + "_" + "ECC" + NoPoint(FormatText("%2.3f", eccentricity), "-") +
           "Size" + NoPoint(FormatText("%4.3f", size), "-") + "_" + fileName;
}

// ---- the run --------------------------------------------------------------------------------

GradeResult GradeFiles(const GradeRequest& request, IProgress* progress, INotify* notify) {
    Run run(progress, notify);
    run.result.method = request.method;
    FileOpBusy busy(FileOpKind::Grade);
    if (!busy.Acquired())
        return run.Stop(BusyText(FileOpKind::Grade));
    if (request.files.empty())
        return run.Stop(kGradeOneImageText);
    CImageFileList usable;
    std::vector<std::string> rejected;
    CheckFiles("GRADE", kSetEither, request.files, &usable, &rejected);
    if (notify && !ConfirmRejected(*notify, "grade", rejected))
        return run.Stop(kThreadCanceledText);
    if (usable.empty())
        return run.Stop(kGradeOneUsableText);
    // The output folder must take files.
    std::error_code ec;
    fs::create_directories(request.outputDirectory, ec);
    if (request.outputDirectory.empty() || !fs::is_directory(request.outputDirectory, ec)) {
        const std::string why = ec ? ec.message() : std::string("not a folder");
        return run.Stop(
            FormatText(kGradeOutputDirFormat, request.outputDirectory.c_str(), why.c_str()));
    }
    std::vector<std::string> inputs;
    for (const CImageFileInfo& f : usable)
        inputs.push_back(f.path);
    run.result.started = true;
    GradeResult result = request.method == GradeMethod::Sharpness
                             ? GradeSharpness(run, request, inputs)
                             : GradeStarShape(run, request, inputs);
    if (!request.reportPath.empty() && result.run.end != FileOpEnd::Cancelled &&
        (!result.sharpness.empty() || !result.starShapes.empty())) {
        std::string why;
        if (!WriteGradeReport(request.reportPath, result, &why)) {
            run.result = result;
            run.Fail(request.reportPath, "Error writing report " + request.reportPath, why);
            result = run.result;
        }
    }
    return result;
}

// ---- recalculation and automatic selection -------------------------------------------------

bool RecalculateGrades(GradeResult* result, const std::vector<bool>& keep, std::string* error) {
    const bool sharp = result->method == GradeMethod::Sharpness;
    const std::size_t count = sharp ? result->sharpness.size() : result->starShapes.size();
    const std::size_t kept = static_cast<std::size_t>(std::count(keep.begin(), keep.end(), true));
    if (keep.size() != count || kept == 0) {
        if (error)
            *error = kGradeNoneText;
        return false;
    }
    result->summary.clear();
    if (sharp) {
        std::vector<SharpnessGrade> list;
        for (std::size_t i = 0; i < count; ++i)
            if (keep[i])
                list.push_back(result->sharpness[i]);
        for (std::size_t i = 0; i < list.size(); ++i)
            list[i].index = static_cast<int>(i);
        result->summary.push_back(ScoreSharpness(list, result->intervals, result->focus));
        result->sharpness = std::move(list);
        return true;
    }
    std::vector<StarShapeGrade> list;
    std::vector<double> es, ss, both;
    for (std::size_t i = 0; i < count; ++i) {
        if (!keep[i])
            continue;
        list.push_back(result->starShapes[i]);
        list.back().selected = true;
        es.push_back(list.back().eccentricity);
        ss.push_back(list.back().size);
        both.push_back(list.back().eccentricity + list.back().size);
    }
    result->starShapes = std::move(list);
    result->eccentricity = StatsOf(es);
    result->size = StatsOf(ss);
    result->combined = StatsOf(both);
    const GradeStats& E = result->eccentricity;
    const GradeStats& S = result->size;
    const std::string eccLine = FormatText(kGradeEccentricityFormat, E.min, E.avg, E.max, E.stdDev);
    const std::string sizeLine = FormatText(kGradeSizeFormat, S.min, S.avg, S.max, S.stdDev);
    result->summary = {eccLine + "  -  " + sizeLine, eccLine, sizeLine};
    result->detail =
        FormatText(kGradeSelectedFormat, static_cast<int>(kept), static_cast<int>(kept));
    return true;
}

std::vector<bool> AutoMinMaxSelection(const GradeResult& result) {
    std::vector<bool> in;
    if (result.method == GradeMethod::Sharpness) {
        std::vector<double> scores;
        for (const SharpnessGrade& e : result.sharpness)
            scores.push_back(e.score);
        const GradeStats s = StatsOf(scores);
        for (double v : scores)
            in.push_back(v >= s.avg - s.stdDev);
        return in;
    }
    std::vector<double> es, ss;
    for (const StarShapeGrade& e : result.starShapes) {
        es.push_back(e.eccentricity);
        ss.push_back(e.size);
    }
    const GradeStats E = StatsOf(es), S = StatsOf(ss);
    const double limit = (E.avg + E.stdDev) + (S.avg + S.stdDev);
    for (const StarShapeGrade& e : result.starShapes)
        in.push_back(e.eccentricity + e.size <= limit);
    return in;
}

// ---- grade weights --------------------------------------------------------------------------

std::array<int, 5> GradeWeightPercents(const CSetupParams& setup) {
    std::array<int, 5> percent{setup.integerPresets[0], setup.integerPresets[1],
                               setup.integerPresets[2], setup.integerPresets[3], 0};
    const auto it = setup.records.find(kGradeWeightsRecord);
    if (it == setup.records.end())
        return percent;
    std::istringstream in(it->second);
    std::array<int, 5> stored{};
    for (int& v : stored)
        if (!(in >> v) || v < 0 || v > 100)
            return percent; // a damaged record: the presets stand
    return stored;
}

bool ParseGradeWeight(const std::string& text, int* value) {
    std::size_t b = text.find_first_not_of(" \t");
    if (b == std::string::npos)
        return false;
    const std::size_t e = text.find_last_not_of(" \t");
    const std::string digits = text.substr(b, e - b + 1);
    if (digits.empty() || digits.size() > 3 ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return false;
    const int v = std::stoi(digits);
    if (v > 100)
        return false;
    *value = v;
    return true;
}

bool SetGradeWeightPercents(CSetupParams& setup, const std::array<int, 5>& percent,
                            std::string* error) {
    for (int v : percent)
        if (v < 0 || v > 100) {
            if (error)
                *error = kGradeWeightRangeText;
            return false;
        }
    for (int i = 0; i < 4; ++i)
        setup.integerPresets[static_cast<std::size_t>(i)] = percent[static_cast<std::size_t>(i)];
    std::string text;
    for (int v : percent)
        text += (text.empty() ? "" : " ") + std::to_string(v);
    setup.records[kGradeWeightsRecord] = text;
    return true;
}

// ---- reports --------------------------------------------------------------------------------

std::string GradeReportText(const GradeResult& result, bool print) {
    const char* lineFormat = print ? "%s  -  %s  -  %s  -  %s\n" : "%s\t%s\t%s\t%s\n";
    const auto num = [](double v) { return FormatText("%4.3f", v); };
    std::string text;
    if (result.method == GradeMethod::StarShape) {
        const auto statsLine = [&](const char* format, const GradeStats& s) {
            return FormatText(format, num(s.min).c_str(), num(s.avg).c_str(), num(s.max).c_str(),
                              num(s.stdDev).c_str());
        };
        text += std::string(kStarReportTitle) + "\n\n";
        text += FormatText("Total Files: %s\n\n", std::to_string(result.starShapes.size()).c_str());
        text += statsLine("       Eccentricity :  Minimum : %s     Average : %s     Maximum : "
                          "%s     Std. Dev. : %s\n\n",
                          result.eccentricity);
        text += statsLine("          Star Size :  Minimum : %s     Average : %s     Maximum : "
                          "%s     Std. Dev. : %s\n\n",
                          result.size);
        text += statsLine("Eccentricity & Size :  Minimum : %s     Average : %s     Maximum : "
                          "%s     Std. Dev. : %s\n\n",
                          result.combined);
        text +=
            FormatText(lineFormat, "File", "Avg Eccentricity", "Avg Star Size", "Avg Ecc and Size");
        for (const StarShapeGrade& e : result.starShapes)
            text +=
                FormatText(lineFormat, (e.name + e.extension).c_str(), num(e.eccentricity).c_str(),
                           num(e.size).c_str(), num(e.eccentricity + e.size).c_str());
        return text;
    }
    text += std::string(kSharpnessReportTitle) + "\n\n";
    text += FormatText("Total Files: %s\n\n", std::to_string(result.sharpness.size()).c_str());
    for (const std::string& line : result.summary)
        text += line + "\n\n";
    text += FormatText(lineFormat, "File", "Grade", "Score", "Average Sharpness");
    for (const SharpnessGrade& e : result.sharpness)
        text +=
            FormatText(lineFormat, (e.name + e.extension).c_str(), std::string(1, e.grade).c_str(),
                       num(e.score).c_str(), FormatText("%.3f", e.mean).c_str());
    return text;
}

bool WriteGradeReport(const std::string& path, const GradeResult& result, std::string* error) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        if (error)
            *error = "Could not open " + path;
        return false;
    }
    out << GradeReportText(result, false);
    if (!out.flush()) {
        if (error)
            *error = "Could not write " + path;
        return false;
    }
    return true;
}

} // namespace astrivelle
