// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The combination job: the passes over the frames for each method, the median tiles,
/// the tone map of the adaptive additions, the record and the written result.
#include "imagesets/CombineFiles.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "engine/Notify.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"
#include "fileio/FileDispatch.h"
#include "fileio/SaveType.h"
#include "fileio/WriteSafely.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

/// A zero-filled plane from the page allocator, freed with its owner.
struct Plane {
    float* data = nullptr;
    Plane() = default;
    Plane(const Plane&) = delete;
    Plane& operator=(const Plane&) = delete;
    ~Plane() { PageFree(data); }
    bool Allocate(std::size_t count) {
        PageFree(data);
        data = AllocPlane(count);
        return data != nullptr;
    }
    void Zero(std::size_t count) { std::fill(data, data + count, 0.0f); }
};

std::string ExtensionOf(const std::string& path) {
    return fs::path(path).extension().string();
}

std::string Format(const char* format, double a, double b) {
    char buf[128];
    std::snprintf(buf, sizeof buf, format, a, b);
    return buf;
}

std::string Trim(const std::string& s) {
    const auto b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos)
        return {};
    const auto e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

} // namespace

// ---- frames from files ---------------------------------------------------------------------

bool FileFrameSource::Read(int index, Image& image, std::string* error) {
    const std::string& path = paths_[index];
    const std::string ext = ExtensionOf(path);
    if (image.ReadFile(path, ext))
        return true;
    *error = IsFitsExtension(ext) ? "Could not open FITS image. Possible Reasons: Could not "
                                    "allocate memory for image or non-standard compressed image."
                                  : "Could not read image.";
    return false;
}

// ---- graded weights ------------------------------------------------------------------------

std::vector<double> GradeWeights(const std::vector<std::string>& paths,
                                 const std::vector<double>& listGrades,
                                 const std::array<int, 5>& letterPercent) {
    static const char kLetters[5] = {'A', 'B', 'C', 'D', 'F'};
    static const char* kKinds[4] = {"AVERAGE", "RED", "GREEN", "BLUE"};
    double gradeSum = 0;
    for (std::size_t i = 0; i < paths.size(); ++i)
        gradeSum += i < listGrades.size() ? listGrades[i] : 1.0;
    std::vector<double> weights(paths.size(), 0.0);
    for (std::size_t i = 0; i < paths.size(); ++i) {
        // Grade Files writes "AGA_Average..."; the mark is found whatever its case.
        std::string name = fs::path(paths[i]).filename().string();
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        int letter = -1;
        for (int l = 0; l < 5 && letter < 0; ++l)
            for (const char* kind : kKinds) {
                const std::string mark = std::string("AG") + kLetters[l] + "_" + kind;
                if (name.compare(0, mark.size(), mark) == 0) {
                    letter = l;
                    break;
                }
            }
        if (letter >= 0)
            weights[i] = letterPercent[letter] / 100.0;
        else
            weights[i] =
                gradeSum != 0 ? (i < listGrades.size() ? listGrades[i] : 1.0) / gradeSum : 0.0;
    }
    return weights;
}

// ---- the job -------------------------------------------------------------------------------

struct CombineJob::State {
    CombineSettings settings;
    int channels = 1;
    std::size_t width = 0, height = 0;
    std::vector<std::string> names;
    Plane raw[3]; ///< the adaptive additions' sums
    bool hasRaw = false;
};

CombineJob::CombineJob() : state_(std::make_unique<State>()), result_(std::make_unique<Image>()) {}
CombineJob::~CombineJob() = default;

const float* CombineJob::RawPlane(int channel) const {
    if (!state_->hasRaw || channel < 0 || channel >= state_->channels)
        return nullptr;
    return state_->raw[channel].data;
}

bool CombineJob::Run(CombineFrameSource& source, const CombineSettings& settings,
                     IProgress* progress) {
    errors_.clear();
    result_ = std::make_unique<Image>();
    state_ = std::make_unique<State>();
    state_->settings = settings;
    tiles_ = 0;
    tileRows_ = 0;
    const auto fail = [&](const std::string& text, const std::string& detail = {}) {
        errors_.push_back(text);
        if (!detail.empty())
            errors_.push_back(detail);
        if (progress)
            progress->SetStatus(text);
        result_ = std::make_unique<Image>();
        state_->hasRaw = false;
        return false;
    };
    const CombineMethod method = settings.method;
    const int n = source.Count();
    if (n < 2)
        return fail("The image file combine operation requires more than one image.\nPlease "
                    "select at least two images.");
    if (progress)
        progress->SetStatus("Combining Files...");

    // The first image fixes the size and the colour.
    auto first = std::make_unique<Image>();
    std::string why;
    if (!source.Read(0, *first, &why))
        return fail(why, source.Name(0));
    const bool color = first->colorType == ColorRGB;
    const int channels = color ? 3 : 1;
    const std::size_t w = static_cast<std::size_t>(first->width);
    const std::size_t h = static_cast<std::size_t>(first->height);
    const std::size_t count = w * h;
    state_->channels = channels;
    state_->width = w;
    state_->height = h;
    for (int i = 0; i < n; ++i)
        state_->names.push_back(source.Name(i));

    Image& result = *result_;
    result.SetGeometryFits(first->fileType, color ? ColorRGB : first->colorType, 0, first->dataType,
                           first->width, first->height);
    result.tiffBitsPerSample = first->tiffBitsPerSample;
    result.fitsCompress = first->fitsCompress;
    CopyHeaderWithoutExtName(first->headerCards, result.headerCards);
    if (!result.AllocateCurrentPlanes(1))
        return fail("Could not allocate memory for image.");
    float* out[3] = {nullptr, nullptr, nullptr};
    {
        const std::vector<int> slots = result.Slots();
        for (int c = 0; c < channels; ++c)
            out[c] = result.curPlane[slots[c]];
    }
    const auto planeOf = [](Image& frame, int c) -> const float* {
        if (frame.colorType == ColorRGB)
            return frame.curPlane[c];
        const int slot = SlotOfColorType(frame.colorType);
        return slot < 0 ? nullptr : frame.curPlane[slot];
    };

    // Every pass reads the frames in list order; the first frame, already read, serves the
    // first pass.
    long step = 0;
    long totalSteps = 0;
    const auto forEachFrame = [&](auto&& fn) -> bool {
        for (int i = 0; i < n; ++i) {
            Image fresh;
            Image* frame = &fresh;
            if (i == 0 && first) {
                frame = first.get();
            } else if (!source.Read(i, fresh, &why)) {
                return fail(why, source.Name(i));
            }
            if (frame->width != static_cast<int>(w) || frame->height != static_cast<int>(h) ||
                (!color && frame->colorType == ColorRGB) || !planeOf(*frame, 0))
                return fail("The image does not match the size or colour of the first image: " +
                            source.Name(i));
            fn(i, *frame);
            if (i == 0)
                first.reset();
            if (progress) {
                progress->SetProgress(++step, totalSteps);
                if (progress->Cancelled())
                    return fail("Thread Canceled");
            }
        }
        return true;
    };
    const auto phaseStatus = [&](int phase) {
        if (progress)
            progress->SetStatus("Phase " + std::to_string(phase));
    };

    Plane extra[3][3]; // per channel: count / minimum / maximum / mean / deviation
    const auto allocate = [&](int perChannel) {
        for (int c = 0; c < channels; ++c)
            for (int k = 0; k < perChannel; ++k)
                if (!extra[c][k].Allocate(count))
                    return false;
        return true;
    };

    switch (method) {
    case CombineMethod::Add:
    case CombineMethod::AdpAdd:
    case CombineMethod::Avg:
    case CombineMethod::GradeAvg:
    case CombineMethod::GradeAvgAuto:
    case CombineMethod::Min:
    case CombineMethod::Max: {
        if (method == CombineMethod::Avg && !allocate(1))
            return fail("Could not allocate memory for image.");
        std::vector<double> weights = settings.weights;
        if (weights.size() != static_cast<std::size_t>(n))
            weights.assign(n, 1.0 / n);
        totalSteps = n;
        const bool ok = forEachFrame([&](int i, Image& frame) {
            for (int c = 0; c < channels; ++c) {
                const float* p = planeOf(frame, c);
                switch (method) {
                case CombineMethod::Avg:
                    AccumulateNonZero(out[c], extra[c][0].data, p, w, h);
                    break;
                case CombineMethod::GradeAvg:
                case CombineMethod::GradeAvgAuto:
                    AccumulateBySum(out[c], p, w, h, static_cast<float>(weights[i]));
                    break;
                case CombineMethod::Min:
                case CombineMethod::Max:
                    if (i == 0)
                        std::copy(p, p + count, out[c]);
                    else if (method == CombineMethod::Min)
                        AccumulateMin(out[c], p, w, h);
                    else
                        AccumulateMax(out[c], p, w, h);
                    break;
                default:
                    AccumulateBySum(out[c], p, w, h);
                    break;
                }
            }
        });
        if (!ok)
            return false;
        for (int c = 0; c < channels; ++c) {
            if (method == CombineMethod::Avg)
                FinishAverage(out[c], extra[c][0].data, w, h);
            else if (method == CombineMethod::Add)
                LimitTo16Bit(out[c], w, h);
        }
        break;
    }
    case CombineMethod::ExcAvg:
    case CombineMethod::ExcAdpAdd: {
        if (!allocate(3))
            return fail("Could not allocate memory for image.");
        totalSteps = 2L * n;
        phaseStatus(1);
        if (!forEachFrame([&](int i, Image& frame) {
                for (int c = 0; c < channels; ++c)
                    AccumulateMinMaxInterior(extra[c][1].data, extra[c][2].data, planeOf(frame, c),
                                             w, h, i == 0);
            }))
            return false;
        phaseStatus(2);
        if (!forEachFrame([&](int, Image& frame) {
                for (int c = 0; c < channels; ++c)
                    AccumulateBetweenInterior(out[c], extra[c][0].data, extra[c][1].data,
                                              extra[c][2].data, planeOf(frame, c), w, h);
            }))
            return false;
        for (int c = 0; c < channels; ++c)
            FinishAverageInterior(out[c], extra[c][0].data, w, h);
        break;
    }
    case CombineMethod::SigAvg: {
        // extra[c]: 0 count, 1 mean, 2 deviation.
        if (!allocate(3))
            return fail("Could not allocate memory for image.");
        totalSteps = 3L * n;
        phaseStatus(1);
        if (!forEachFrame([&](int, Image& frame) {
                for (int c = 0; c < channels; ++c)
                    AccumulateNonZeroInterior(extra[c][1].data, extra[c][0].data, planeOf(frame, c),
                                              w, h);
            }))
            return false;
        for (int c = 0; c < channels; ++c)
            FinishAverageInterior(extra[c][1].data, extra[c][0].data, w, h);
        phaseStatus(2);
        if (!forEachFrame([&](int, Image& frame) {
                for (int c = 0; c < channels; ++c)
                    AccumulateSquaresInterior(extra[c][2].data, extra[c][1].data, planeOf(frame, c),
                                              w, h);
            }))
            return false;
        for (int c = 0; c < channels; ++c) {
            FinishDeviation(extra[c][2].data, extra[c][0].data, w, h);
            extra[c][0].Zero(count);
        }
        phaseStatus(3);
        if (!forEachFrame([&](int, Image& frame) {
                for (int c = 0; c < channels; ++c)
                    AccumulateClippedInterior(out[c], extra[c][0].data, extra[c][1].data,
                                              extra[c][2].data, planeOf(frame, c),
                                              settings.clipFactor, w, h);
            }))
            return false;
        for (int c = 0; c < channels; ++c)
            FinishAverageInterior(out[c], extra[c][0].data, w, h);
        break;
    }
    case CombineMethod::Med:
    case CombineMethod::SigMed:
    case CombineMethod::WgtMed: {
        // Tiles are bands of whole rows; every tile reads the whole list once.
        int rows = 0;
        if (settings.tileRows > 0) {
            rows = std::min<int>(settings.tileRows, static_cast<int>(h));
        } else {
            const unsigned long long freeBytes =
                settings.freeMemory ? settings.freeMemory : FreePhysicalMemory();
            const int segments = CombineSegments(w, h, n, channels, freeBytes);
            rows = static_cast<int>((h + segments - 1) / segments);
        }
        rows = std::max(rows, 1);
        const int tiles = static_cast<int>((h + rows - 1) / rows);
        tiles_ = tiles;
        tileRows_ = rows;
        const std::size_t tileSize = static_cast<std::size_t>(rows) * w;
        std::vector<std::uint16_t> buffer;
        std::vector<const std::uint16_t*> pointers(n);
        try {
            buffer.resize(tileSize * channels * n);
        } catch (const std::bad_alloc&) {
            return fail("Could not allocate memory for image.");
        }
        totalSteps = static_cast<long>(tiles) * n;
        for (int t = 0; t < tiles; ++t) {
            const std::size_t y0 = static_cast<std::size_t>(t) * rows;
            const std::size_t tileRows = std::min<std::size_t>(rows, h - y0);
            if (progress)
                progress->SetStatus("Combine Files : Segment " + std::to_string(t + 1) + " of " +
                                    std::to_string(tiles));
            const bool ok = forEachFrame([&](int i, Image& frame) {
                for (int c = 0; c < channels; ++c) {
                    const float* p = planeOf(frame, c) + y0 * w;
                    std::uint16_t* dst =
                        buffer.data() + (static_cast<std::size_t>(i) * channels + c) * tileSize;
                    ParallelRows(static_cast<int>(tileRows), [&](int r0, int r1) {
                        for (std::size_t k = r0 * w; k < r1 * w; ++k)
                            dst[k] = ToTileLevel(p[k]);
                    });
                }
            });
            if (!ok)
                return false;
            for (int c = 0; c < channels; ++c) {
                for (int i = 0; i < n; ++i)
                    pointers[i] =
                        buffer.data() + (static_cast<std::size_t>(i) * channels + c) * tileSize;
                CombineMedianRows(pointers.data(), n, w, tileRows, method, settings.clipFactor,
                                  out[c] + y0 * w);
            }
        }
        break;
    }
    }

    if (IsHdrMethod(method)) {
        for (int c = 0; c < channels; ++c) {
            if (!state_->raw[c].Allocate(count))
                return fail("Could not allocate HDR memory.");
            std::copy(out[c], out[c] + count, state_->raw[c].data);
        }
        state_->hasRaw = true;
        if (!RecomputeToneMap(settings.compress, settings.brightness))
            return fail("Could not allocate HDR memory.");
    }
    result.maxValue = 65535;
    return true;
}

bool CombineJob::RecomputeToneMap(double compress, double brightness) {
    if (!state_->hasRaw)
        return false;
    const float* raw[3] = {state_->raw[0].data, state_->raw[1].data, state_->raw[2].data};
    float* out[3] = {nullptr, nullptr, nullptr};
    const std::vector<int> slots = result_->Slots();
    for (int c = 0; c < state_->channels; ++c)
        out[c] = result_->curPlane[slots[c]];
    state_->settings.compress = compress;
    state_->settings.brightness = brightness;
    return ToneMapPlanes(raw, state_->channels, state_->width * state_->height, compress,
                         brightness, out);
}

std::vector<std::string> CombineJob::RecordLines() const {
    std::vector<std::string> lines;
    const CombineSettings& s = state_->settings;
    const CombineMethodInfo& info = CombineMethodOf(s.method);
    if (IsHdrMethod(s.method)) {
        lines.push_back(std::string("QX HDR Add : ") + info.text);
        lines.push_back(Format(s.method == CombineMethod::ExcAdpAdd
                                   ? "Excluded Compress : %8.4f, Brightness : %8.4f"
                                   : "Compress : %8.4f, Brightness : %8.4f",
                               s.compress, s.brightness));
    } else {
        lines.push_back(std::string("QX Combine Files : ") + info.text);
    }
    lines.push_back("Number Of Files : " + std::to_string(state_->names.size()));
    lines.push_back("Files Used in Combination : ");
    for (const std::string& name : state_->names)
        lines.push_back(fs::path(name).filename().string());
    std::string folder;
    if (!state_->names.empty())
        folder = fs::path(state_->names.front()).parent_path().string();
    lines.push_back("Path : " + folder);
    return lines;
}

// ---- the whole run -------------------------------------------------------------------------

std::string CombineNameError(const std::string& name) {
    static const std::string kForbidden = "\\/:*?\"<>|";
    if (Trim(name).find_first_of(kForbidden) == std::string::npos)
        return {};
    return "A file name can't contain any of the following characters:\n" + std::string(30, ' ') +
           kForbidden;
}

bool CombineFiles(const CombineFilesParams& params, IProgress* progress,
                  CombineFilesOutcome* outcome, CombineJob* jobOut) {
    *outcome = CombineFilesOutcome{};
    const auto fail = [&](const std::string& text) {
        outcome->errors.push_back(text);
        outcome->status = text;
        if (progress)
            progress->SetStatus(text);
        return false;
    };
    const std::string name = Trim(params.name);
    if (name.empty())
        return fail("Please Enter An Image Name.");
    if (const std::string error = CombineNameError(name); !error.empty())
        return fail(error);
    if (!FindSaveType(params.saveType))
        return fail("Unknown save type " + params.saveType);

    CombineJob local;
    CombineJob& job = jobOut ? *jobOut : local;
    FileFrameSource source(params.files);
    if (!job.Run(source, params.settings, progress)) {
        outcome->errors = job.Errors();
        outcome->status = job.Errors().empty() ? std::string() : job.Errors().front();
        return false;
    }
    Image& result = job.Result();
    const std::string extension =
        ApplySaveType(result, params.saveType, ExtensionOf(params.files.front()));
    for (const std::string& line : job.RecordLines())
        result.headerCards.push_back(CFITSHeader{"COMMENT", "", line, CardString});
    const std::string target = (fs::path(params.outDir) / (name + extension)).string();
    std::string why;
    if (!WriteImageSafely(result, target, result.fileType, params.files, &why)) {
        fail("Error writing combination image.");
        if (!why.empty())
            outcome->errors.push_back(why);
        return false;
    }
    outcome->output = target;
    outcome->status = " " + std::to_string(params.files.size()) + " Images";
    if (progress)
        progress->SetStatus(outcome->status);
    return true;
}

} // namespace astrivelle
