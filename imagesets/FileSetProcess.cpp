// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The automatic image set process: the checks of a run, the two-stage queue, the steps
/// run one after another through their own workers, and the summary.
#include "imagesets/FileSetProcess.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "engine/ProcessStructure.h"
#include "engine/SetupParams.h"
#include "fileio/FileDispatch.h"
#include "fileio/Raw.h"
#include "fileio/SaveType.h"
#include "imagesets/AlignStarFiles.h"
#include "imagesets/BayerFiles.h"
#include "imagesets/CalibrateFiles.h"
#include "imagesets/CombineFiles.h"
#include "imagesets/CombineMethods.h"
#include "imagesets/FileSetRules.h"
#include "imagesets/FilterFiles.h"
#include "imagesets/GradeFiles.h"
#include "imagesets/NormalizeFiles.h"
#include "imagesets/RawConvertFiles.h"
#include "imagesets/ResizeFiles.h"
#include "operators/ReducePixels.h"
#include "operators/Registry.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

constexpr FrameKind kAllKinds[] = {FrameKind::Light, FrameKind::Dark, FrameKind::Flat,
                                   FrameKind::FlatDark, FrameKind::Bias};
/// The masters in the order their steps run.
constexpr FrameKind kMasterKinds[] = {FrameKind::Dark, FrameKind::Flat, FrameKind::FlatDark,
                                      FrameKind::Bias};

/// "Dark", "Flat", "Flat Dark", "Bias", "Light": the word of the step names.
const char* KindTitle(FrameKind kind) {
    switch (kind) {
    case FrameKind::Light:
        return "Light";
    case FrameKind::Dark:
        return "Dark";
    case FrameKind::Flat:
        return "Flat";
    case FrameKind::FlatDark:
        return "Flat Dark";
    case FrameKind::Bias:
        return "Bias";
    }
    return "";
}

std::string Capitalized(const std::string& word) {
    std::string s = word;
    if (!s.empty())
        s[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(s[0])));
    return s;
}

SystemFrame SystemFrameOf(FrameKind kind) {
    switch (kind) {
    case FrameKind::Flat:
        return SystemFrame::Flat;
    case FrameKind::FlatDark:
        return SystemFrame::FlatDark;
    case FrameKind::Bias:
        return SystemFrame::Bias;
    default:
        return SystemFrame::Dark;
    }
}

/// The key of a kind's outputs in the file list.
std::string ProcessedKey(FrameKind kind) {
    return std::string("Processed ") + KindTitle(kind) + " Frames";
}

bool OneOf(const std::string& value, std::initializer_list<const char*> words) {
    for (const char* w : words)
        if (value == w)
            return true;
    return false;
}

bool IsBayerColor(const CAutoProcessParams& p) {
    return p.processType != "CCD" && OneOf(p.colorType, {"CFA", "WBCFA", "BASICBAYER"});
}
bool IsMonoBayer(const CAutoProcessParams& p) {
    return p.processType != "CCD" && p.colorType == "MONO";
}
/// Whether the frames are colour images (else mono data or mosaics).
bool ExpectsColor(const CAutoProcessParams& p) {
    return p.processType == "DSLR" && p.colorType == "COLOR";
}

bool HasRaw(const std::vector<std::string>& files) {
    return std::any_of(files.begin(), files.end(), IsDigitalRawFile);
}

bool AnyRaw(const CAutoProcessParams& p) {
    for (FrameKind k : kAllKinds)
        if (HasRaw(p.Page(k).files))
            return true;
    return false;
}

/// The save type of a combination: the FITS and TIFF types as they are; "Same As Input" as
/// 16-bit FITS.
std::string CombineSaveType(const std::string& saveType) {
    if (saveType == "SAMEASINPUT" || !IsKnownSaveType(saveType))
        return "UNCOMPFIT";
    return saveType;
}

std::string CombineExtension(const std::string& saveType) {
    const std::string t = CombineSaveType(saveType);
    return (t == "UNCOMPTIF" || t == "TIFF16") ? ".tif" : ".fit";
}

std::string MethodText(const std::string& keyword) {
    const CombineMethodInfo* info = FindCombineMethod(keyword);
    return info ? info->text : keyword;
}

std::string FilesDetail(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " File" : " Files");
}

/// The combined file name of the light frames: with a single Bayer output channel, that
/// channel's name behind it.
std::string LightCombineName(const CAutoProcessParams& p) {
    if (IsBayerColor(p) && OneOf(p.bayerOutput, {"RED", "GREEN", "BLUE"}))
        return p.lights.name + "_" + p.bayerOutput;
    return p.lights.name;
}

} // namespace

const char* FrameKindWord(FrameKind kind) {
    switch (kind) {
    case FrameKind::Light:
        return "light";
    case FrameKind::Dark:
        return "dark";
    case FrameKind::Flat:
        return "flat";
    case FrameKind::FlatDark:
        return "flat dark";
    case FrameKind::Bias:
        return "bias";
    }
    return "";
}

const FrameSetPage& CAutoProcessParams::Page(FrameKind kind) const {
    switch (kind) {
    case FrameKind::Dark:
        return darks;
    case FrameKind::Flat:
        return flats;
    case FrameKind::FlatDark:
        return flatDarks;
    case FrameKind::Bias:
        return bias;
    default:
        return lights;
    }
}

FrameSetPage& CAutoProcessParams::Page(FrameKind kind) {
    return const_cast<FrameSetPage&>(static_cast<const CAutoProcessParams&>(*this).Page(kind));
}

// ---- the parameter record -------------------------------------------------------------------

namespace {

struct Field {
    std::string name;
    std::function<std::string(const CAutoProcessParams&)> get;
    std::function<bool(CAutoProcessParams&, const std::string&)> set;
};

std::string FormatDouble(double v) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.17g", v);
    return buf;
}

bool ReadDouble(const std::string& text, double* v) {
    if (text.empty())
        return false;
    char* end = nullptr;
    *v = std::strtod(text.c_str(), &end);
    return end && *end == 0;
}

Field TextField(const std::string& name, std::string CAutoProcessParams::*member,
                std::initializer_list<const char*> allowed = {}) {
    std::vector<std::string> words(allowed.begin(), allowed.end());
    return {name, [member](const CAutoProcessParams& p) { return p.*member; },
            [member, words](CAutoProcessParams& p, const std::string& v) {
                if (!words.empty() && std::find(words.begin(), words.end(), v) == words.end())
                    return false;
                p.*member = v;
                return true;
            }};
}

Field BoolField(const std::string& name, bool CAutoProcessParams::*member) {
    return {name,
            [member](const CAutoProcessParams& p) { return std::string(p.*member ? "1" : "0"); },
            [member](CAutoProcessParams& p, const std::string& v) {
                if (v != "0" && v != "1")
                    return false;
                p.*member = v == "1";
                return true;
            }};
}

Field DoubleField(const std::string& name, double CAutoProcessParams::*member) {
    return {name, [member](const CAutoProcessParams& p) { return FormatDouble(p.*member); },
            [member](CAutoProcessParams& p, const std::string& v) {
                double d = 0;
                if (!ReadDouble(v, &d))
                    return false;
                p.*member = d;
                return true;
            }};
}

const char* PageKey(FrameKind kind) {
    switch (kind) {
    case FrameKind::Dark:
        return "darks";
    case FrameKind::Flat:
        return "flats";
    case FrameKind::FlatDark:
        return "flatDarks";
    case FrameKind::Bias:
        return "bias";
    default:
        return "lights";
    }
}

const std::vector<Field>& Fields() {
    static const std::vector<Field> fields = [] {
        std::vector<Field> f;
        for (FrameKind k : kAllKinds) {
            const std::string key = PageKey(k);
            f.push_back({key + ".method",
                         [k](const CAutoProcessParams& p) { return p.Page(k).method; },
                         [k](CAutoProcessParams& p, const std::string& v) {
                             if (!FindCombineMethod(v))
                                 return false;
                             p.Page(k).method = v;
                             return true;
                         }});
            f.push_back({key + ".name", [k](const CAutoProcessParams& p) { return p.Page(k).name; },
                         [k](CAutoProcessParams& p, const std::string& v) {
                             p.Page(k).name = v;
                             return true;
                         }});
        }
        using P = CAutoProcessParams;
        f.push_back(TextField("processType", &P::processType, {"DSLR", "OSCCCD", "CCD"}));
        f.push_back(
            TextField("colorType", &P::colorType, {"COLOR", "CFA", "WBCFA", "BASICBAYER", "MONO"}));
        f.push_back(TextField("frameType", &P::frameType));
        f.push_back(TextField("cfaPattern", &P::cfaPattern));
        f.push_back(TextField("bayerOutput", &P::bayerOutput, {"RGB", "GREEN", "RED", "BLUE"}));
        f.push_back(BoolField("filters", &P::filters));
        f.push_back(BoolField("filterBadPixels", &P::filterBadPixels));
        f.push_back(BoolField("filterSmoothing", &P::filterSmoothing));
        f.push_back(TextField("aggressiveness", &P::aggressiveness,
                              {"Normal", "Aggressive", "Very Aggressive"}));
        f.push_back(BoolField("normalizeFlats", &P::normalizeFlats));
        f.push_back(TextField("normalize", &P::normalize, {"NONE", "MAX", "AVG", "MIN", "USER"}));
        f.push_back(DoubleField("normalizeBackground", &P::normalizeBackground));
        f.push_back(DoubleField("normalizeDeviation", &P::normalizeDeviation));
        f.push_back(BoolField("normalizeSetDeviation", &P::normalizeSetDeviation));
        f.push_back(TextField("grade", &P::grade, {"NONE", "MAXECC", "PERCENTECC", "AUTOECC"}));
        f.push_back(DoubleField("gradeMaxEccentricity", &P::gradeMaxEccentricity));
        f.push_back({"gradePercent", [](const P& p) { return std::to_string(p.gradePercent); },
                     [](P& p, const std::string& v) {
                         double d = 0;
                         if (!ReadDouble(v, &d) || d != static_cast<int>(d) || d < 5 || d > 95 ||
                             static_cast<int>(d) % 5 != 0)
                             return false;
                         p.gradePercent = static_cast<int>(d);
                         return true;
                     }});
        f.push_back(TextField("align", &P::align, {"NONE", "QUICK", "AUTOSTAR"}));
        f.push_back(BoolField("meridianFlip", &P::meridianFlip));
        f.push_back(BoolField("mirrorFlip", &P::mirrorFlip));
        f.push_back(BoolField("wideRange", &P::wideRange));
        f.push_back(BoolField("smallStars", &P::smallStars));
        f.push_back(BoolField("combine", &P::combine));
        f.push_back(DoubleField("clipFactor", &P::clipFactor));
        f.push_back({"saveType", [](const P& p) { return p.saveType; },
                     [](P& p, const std::string& v) {
                         if (!IsKnownSaveType(v))
                             return false;
                         p.saveType = v;
                         return true;
                     }});
        f.push_back(TextField("convertedPrefix", &P::convertedPrefix));
        f.push_back(TextField("outputDirectory", &P::outputDirectory));
        f.push_back(BoolField("minimizeDisk", &P::minimizeDisk));
        f.push_back(BoolField("displayCombination", &P::displayCombination));
        f.push_back(BoolField("autoDarkMatch", &P::autoDarkMatch));
        f.push_back(BoolField("adaptiveWithDark", &P::adaptiveWithDark));
        f.push_back(BoolField("adaptiveWithoutDark", &P::adaptiveWithoutDark));
        f.push_back(TextField("adaptiveLevel", &P::adaptiveLevel,
                              {"Normal", "Aggressive", "Very Aggressive"}));
        return f;
    }();
    return fields;
}

} // namespace

std::string FormatAutoProcessParams(const CAutoProcessParams& params) {
    std::string out;
    for (const Field& f : Fields())
        out += f.name + "=" + f.get(params) + "\n";
    for (FrameKind k : kAllKinds)
        for (const std::string& file : params.Page(k).files)
            out += std::string(PageKey(k)) + ".file=" + file + "\n";
    return out;
}

bool ParseAutoProcessParams(const std::string& text, CAutoProcessParams* params) {
    std::istringstream in(text);
    std::string line;
    std::set<std::string> listsSeen;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty())
            continue;
        const auto eq = line.find('=');
        if (eq == std::string::npos)
            return false;
        const std::string name = line.substr(0, eq);
        const std::string value = line.substr(eq + 1);
        bool known = false;
        for (FrameKind k : kAllKinds) {
            if (name == std::string(PageKey(k)) + ".file") {
                if (listsSeen.insert(name).second)
                    params->Page(k).files.clear();
                params->Page(k).files.push_back(value);
                known = true;
            }
        }
        if (known)
            continue;
        for (const Field& f : Fields()) {
            if (f.name == name) {
                if (!f.set(*params, value))
                    return false;
                break;
            }
        }
    }
    return true;
}

void SaveAutoProcessParams(CSetupParams& setup, const CAutoProcessParams& params) {
    setup.records[kFileSetProcessRecord] = FormatAutoProcessParams(params);
}

bool LoadAutoProcessParams(const CSetupParams& setup, CAutoProcessParams* params) {
    const auto it = setup.records.find(kFileSetProcessRecord);
    if (it == setup.records.end())
        return false;
    return ParseAutoProcessParams(it->second, params);
}

// ---- checks ---------------------------------------------------------------------------------

bool IsDigitalRawFile(const std::string& path) {
    const std::string ext = UpperExtension(fs::path(path).extension().string());
    return ext != ".TIF" && ext != ".TIFF" && IsRawConversionExtension(ext);
}

namespace {

/// The frames of one list that the run reads now (raw files are checked after conversion).
struct ProbedList {
    FrameKind kind;
    std::vector<CImageFileInfo> files;
};

bool CheckFrames(const CAutoProcessParams& p, INotify* notify, std::string* text) {
    const bool expectColor = ExpectsColor(p);
    bool haveSize = false;
    int setWidth = 0, setHeight = 0;
    for (FrameKind k : kAllKinds) {
        std::vector<std::string> paths;
        for (const std::string& f : p.Page(k).files)
            if (!(p.processType == "DSLR" && IsDigitalRawFile(f)))
                paths.push_back(f);
        if (paths.empty())
            continue;
        const std::string word = FrameKindWord(k);
        CImageFileList usable;
        std::vector<std::string> rejected;
        CheckFiles("FILTERFILES", kSetEither, paths, &usable, &rejected);
        if (!rejected.empty() || usable.size() != paths.size()) {
            *text = "All " + word +
                    " frames and other selected frames must be the same size and their\ncolor "
                    "type must match the selected Image Set Process Type.";
            if (notify &&
                notify->Ask(*text + "\n\nDisplay the list of files not used?") == Answer::Yes) {
                std::string names;
                for (const std::string& r : rejected)
                    names += r + "\n";
                notify->Message(names);
            }
            return false;
        }
        for (const CImageFileInfo& f : usable) {
            if (f.width != usable.front().width || f.height != usable.front().height) {
                *text = Capitalized(word) + " frames must all have the same width and height.";
                return false;
            }
        }
        if (haveSize && (usable.front().width != setWidth || usable.front().height != setHeight)) {
            *text = "Selected " + word + " frames are not the same size as other selected frames.";
            return false;
        }
        haveSize = true;
        setWidth = usable.front().width;
        setHeight = usable.front().height;
        for (const CImageFileInfo& f : usable) {
            if (f.isColor != usable.front().isColor) {
                *text = "All " + word +
                        " frames must be the same color type\nas the selected Image Set Process "
                        "Type.";
                return false;
            }
        }
        if ((usable.front().isColor != 0) != expectColor) {
            // The light frame check has always said "bias" here.
            const std::string shown = k == FrameKind::Light ? std::string("bias") : word;
            *text = "Selected " + shown +
                    " frames must all have the same color\ntype as the selected Image Set "
                    "Process Type.";
            return false;
        }
    }
    return true;
}

} // namespace

bool CheckFileSetProcess(const CAutoProcessParams& p, bool setupDialogOpen, INotify* notify,
                         std::string* text) {
    if (setupDialogOpen) {
        *text = kFileSetSetupOpenText;
        return false;
    }
    std::vector<std::string> all;
    for (FrameKind k : kAllKinds)
        all.insert(all.end(), p.Page(k).files.begin(), p.Page(k).files.end());
    std::string folder;
    if (!ResolveOutputDirectory(p.outputDirectory, all, &folder, text))
        return false;
    // A file may stand in one list only.
    const FrameKind order[] = {FrameKind::Light, FrameKind::Dark, FrameKind::Flat,
                               FrameKind::FlatDark, FrameKind::Bias};
    for (int a = 0; a < 5; ++a) {
        for (int b = a + 1; b < 5; ++b) {
            const auto& first = p.Page(order[a]).files;
            for (const std::string& f : p.Page(order[b]).files) {
                if (std::find(first.begin(), first.end(), f) != first.end()) {
                    *text = std::string("Some selected ") + FrameKindWord(order[b]) +
                            " frames are contained in the " + FrameKindWord(order[a]) +
                            " frame list.";
                    return false;
                }
            }
        }
    }
    if (p.processType == "CCD" && AnyRaw(p)) {
        for (FrameKind k : kMasterKinds) {
            if (HasRaw(p.Page(k).files)) {
                *text = std::string("Digital raw ") + FrameKindWord(k) +
                        " files are not compatible with the selected Image Set Process Type of "
                        "CCD.";
                return false;
            }
        }
        *text = "Digital raw light files are not compatible with the selected Image Set Process "
                "Type of CCD.";
        return false;
    }
    for (FrameKind k : kAllKinds) {
        const std::string& name = p.Page(k).name;
        if (name.find_first_of(kPrefixForbiddenChars) != std::string::npos) {
            *text = std::string("A ") + FrameKindWord(k) +
                    " frame combination name can't contain any of the following characters:\n" +
                    std::string(30, ' ') + kPrefixForbiddenChars;
            return false;
        }
    }
    return CheckFrames(p, notify, text);
}

// ---- the queue ------------------------------------------------------------------------------

std::vector<CFileSetOpElement> BuildConversionList(const CAutoProcessParams& p) {
    std::vector<CFileSetOpElement> q;
    if (p.processType != "DSLR" || !AnyRaw(p))
        return q;
    for (FrameKind k : {FrameKind::Dark, FrameKind::Flat, FrameKind::FlatDark, FrameKind::Bias,
                        FrameKind::Light}) {
        const auto& files = p.Page(k).files;
        if (HasRaw(files))
            q.push_back({std::string("Convert Digital ") + KindTitle(k) + " Frames",
                         FilesDetail(std::count_if(files.begin(), files.end(), IsDigitalRawFile)),
                         {},
                         {}});
    }
    q.push_back({"Check Converted Files", {}, {}, {}});
    return q;
}

std::vector<CFileSetOpElement> BuildCommandList(const CAutoProcessParams& p, bool rawConverted) {
    std::vector<CFileSetOpElement> q;
    const std::string ext = CombineExtension(p.saveType);
    for (FrameKind k : kMasterKinds) {
        const FrameSetPage& page = p.Page(k);
        if (page.files.empty())
            continue;
        const bool ready =
            page.files.size() == 1 && !(rawConverted && IsDigitalRawFile(page.files.front()));
        const std::string title = KindTitle(k);
        std::string master = page.files.front();
        if (!ready) {
            if (k == FrameKind::Flat && p.normalizeFlats)
                q.push_back({"Normalize Flat Frames", FilesDetail(page.files.size()), {}, {}});
            q.push_back({"Combine " + title + " Frames",
                         MethodText(page.method) + " - " + FilesDetail(page.files.size()),
                         {},
                         {}});
            master = page.name + ext;
        }
        q.push_back({"Set " + title + " Frame", fs::path(master).filename().string(), {}, {}});
    }
    if (p.lights.files.empty())
        return q;
    const std::string lights = FilesDetail(p.lights.files.size());
    if (!p.darks.files.empty() || !p.flats.files.empty() || !p.flatDarks.files.empty() ||
        !p.bias.files.empty())
        q.push_back({"Calibrate Light Frames", lights, {}, {}});
    if (IsMonoBayer(p))
        q.push_back({"Resize Mono Bayer Light Frames", lights, {}, {}});
    else if (IsBayerColor(p))
        q.push_back({"Bayer Convert Light Frames", p.cfaPattern + " - " + p.bayerOutput, {}, {}});
    if (p.filters) {
        std::string d;
        if (p.filterBadPixels)
            d = "Reduce High, Low, Bloom Pixel (" + p.aggressiveness + ")";
        if (p.filterSmoothing)
            d += std::string(d.empty() ? "" : ", ") + "Smoothing";
        q.push_back({"Filter Light Frames", d, {}, {}});
    }
    if (p.normalize != "NONE")
        q.push_back({"Normalize Light Frames", p.normalize, {}, {}});
    if (p.grade != "NONE")
        q.push_back({"Grade Light Frames", p.grade, {}, {}});
    if (p.align != "NONE")
        q.push_back({"Align Light Frames", p.align, {}, {}});
    if (p.combine)
        q.push_back({"Combine Light Frames", MethodText(p.lights.method), {}, {}});
    return q;
}

// ---- the summary ----------------------------------------------------------------------------

std::string FileSetSummary(const FileSetRunResult& r) {
    int processed = 0;
    for (const CFileSetOpElement& s : r.steps)
        processed += !s.state.empty();
    char buf[160];
    std::snprintf(buf, sizeof buf,
                  "Command Summary Statistics : %d Commands Processed : ", processed);
    std::string out = buf;
    auto ran = [&](const char* name) {
        for (const CFileSetOpElement& s : r.steps)
            if (s.name == name && !s.state.empty())
                return true;
        return false;
    };
    for (const CFileSetOpElement& s : r.steps)
        if (!s.state.empty())
            out += "\n" + s.name + " - " + s.state;
    auto counter = [&](const char* format, int value) {
        std::snprintf(buf, sizeof buf, format, value);
        out += "\n";
        out += buf;
    };
    if (r.initialLights > 0)
        counter("%d Initial Input Light Frames : ", r.initialLights);
    if (ran("Calibrate Light Frames"))
        counter("%d Calibrated Light Frames : ", r.calibrated);
    if (ran("Bayer Convert Light Frames"))
        counter("%d Bayer Color Converted Light Frames : ", r.bayerConverted);
    if (ran("Resize Mono Bayer Light Frames"))
        counter("%d Resized Mono Bayer Light Frames : ", r.resized);
    if (ran("Filter Light Frames"))
        counter("%d Filtered Light Frames : ", r.filtered);
    if (ran("Normalize Light Frames"))
        counter("%d Normalized Light Frames : ", r.normalized);
    if (ran("Grade Light Frames"))
        counter("%d Graded Light Frames : ", r.graded);
    if (ran("Align Light Frames"))
        counter("%d Aligned Light Frames : ", r.aligned);
    if (ran("Combine Light Frames"))
        counter("%d Combination Frames : ", r.combinations);
    return out;
}

// ---- the run --------------------------------------------------------------------------------

namespace {

/// What one step left.
struct StepOutcome {
    bool ok = false;
    bool cancelled = false;
    std::vector<std::string> outputs;
    std::string text;   ///< the failure's text, or the step's final status
    std::string status; ///< the status line on failure ("* Dark Frame Set Error *", ...)
    bool worked = true; ///< false when the step's operation could not run at all
};

StepOutcome FromRun(const FileOpResult& run) {
    StepOutcome o;
    o.outputs = run.outputs;
    o.cancelled = run.end == FileOpEnd::Cancelled || run.status == kThreadCanceledText;
    o.ok = !o.cancelled && run.end != FileOpEnd::Stopped;
    o.text = run.status;
    if (!o.ok && o.text.empty() && !run.failures.empty())
        o.text = run.failures.front().text;
    return o;
}

class Runner {
public:
    Runner(const CAutoProcessParams& p, IProgress* progress, INotify* notify, FileSetRunResult* r,
           const FileSetStepObserver& onStep)
        : p_(p), progress_(progress), notify_(notify), r_(r), onStep_(onStep) {}

    bool Cancelled() const { return progress_ && progress_->Cancelled(); }

    void Status(const std::string& text) {
        if (progress_)
            progress_->SetStatus(text);
    }

    /// The setup the run writes: the frames cleared, the model of the process type.
    void PrepareSetup() {
        CalibrationSetup& s = r_->setup;
        s.ClearAll();
        s.colorModel = ExpectsColor(p_) ? "COLOR" : "MONO";
        s.bayerData = p_.processType != "CCD" && !ExpectsColor(p_);
        s.frameType = p_.frameType;
        s.cfaPattern = p_.cfaPattern;
        ApplyAdaptive();
    }

    void ApplyAdaptive() {
        CalibrationSetup& s = r_->setup;
        s.autoDarkMatch = false;
        s.adaptiveWithDark = s.adaptiveWithoutDark = false;
        if (p_.autoDarkMatch)
            s.SetAutoDarkMatch(true);
        if (p_.adaptiveWithDark)
            s.SetAdaptiveWithDark(true);
        if (p_.adaptiveWithoutDark)
            s.SetAdaptiveWithoutDark(true);
        s.adaptiveLevel = p_.adaptiveLevel == "Aggressive"        ? "High"
                          : p_.adaptiveLevel == "Very Aggressive" ? "Highest"
                                                                  : "Normal";
    }

    /// The raw files of a list converted (the others stay); the list then names the outputs
    /// in place of the raw files.
    StepOutcome ConvertRaw(std::vector<std::string>* files) {
        RawConvertRequest rq;
        rq.ownerName = kFileSetOwner;
        rq.outputDirectory = p_.outputDirectory;
        rq.prefix = p_.convertedPrefix;
        rq.conversion = p_.colorType == "COLOR"        ? "Color"
                        : p_.colorType == "WBCFA"      ? "WBCFA"
                        : p_.colorType == "BASICBAYER" ? "BASICBAYER"
                                                       : "NoWBCFA";
        rq.saveType = ResolveRawSaveType(p_.saveType == "SAMEASINPUT" ? "COMPFIT" : p_.saveType);
        for (const std::string& f : *files)
            if (IsDigitalRawFile(f))
                rq.files.push_back(f);
        const RawConvertResult done = ConvertRawFiles(rq, progress_, notify_);
        StepOutcome o = FromRun(done.run);
        std::vector<std::string> converted;
        for (const std::string& f : *files) {
            if (!IsDigitalRawFile(f)) {
                converted.push_back(f);
                continue;
            }
            for (const RawConvertedFile& c : done.files)
                if (c.input == f)
                    converted.push_back(c.output);
        }
        *files = converted;
        o.ok = o.ok && !done.files.empty();
        return o;
    }

    StepOutcome Combine(const std::vector<std::string>& files, const std::string& method,
                        const std::string& name) {
        CombineFilesParams c;
        c.files = files;
        const CombineMethodInfo* info = FindCombineMethod(method);
        c.settings.method = info ? info->method : CombineMethod::Avg;
        c.settings.clipFactor = p_.clipFactor;
        c.outDir = p_.outputDirectory;
        c.name = name;
        c.saveType = CombineSaveType(p_.saveType);
        CombineFilesOutcome outcome;
        StepOutcome o;
        o.ok = CombineFiles(c, progress_, &outcome);
        o.text = outcome.status;
        if (o.ok) {
            o.outputs.push_back(outcome.output);
        } else {
            if (!outcome.errors.empty())
                o.text = outcome.errors.front();
            o.cancelled = std::find(outcome.errors.begin(), outcome.errors.end(),
                                    kThreadCanceledText) != outcome.errors.end() ||
                          o.text == kThreadCanceledText;
        }
        return o;
    }

    StepOutcome SetFrame(FrameKind kind, const std::string& master) {
        StepOutcome o;
        std::string why;
        if (!SelectFrameFromDisk(r_->setup, SystemFrameOf(kind), master, &why)) {
            o.text =
                Capitalized(FrameKindWord(kind)) + " frame could not be set in Calibration Setup.";
            o.status = std::string("* ") + KindTitle(kind) + " Frame Set Error *";
            if (!why.empty())
                o.text += "\n" + why;
            return o;
        }
        if (kind == FrameKind::Dark)
            ApplyAdaptive(); // choosing a dark clears the adaptive choices
        r_->masters.push_back(master);
        o.ok = true;
        o.outputs.push_back(master);
        return o;
    }

    StepOutcome Calibrate(const std::vector<std::string>& files) {
        CalibrateRequest c;
        c.ownerName = kCalibrateOwnerPipeline;
        c.files = files;
        c.outputDirectory = p_.outputDirectory;
        c.setup = r_->setup;
        c.saveType = p_.saveType;
        const CalibrateResult res = CalibrateFiles(c, progress_, notify_);
        StepOutcome o = FromRun(res.run);
        if (!res.started)
            o.ok = false;
        return o;
    }

    StepOutcome Bayer(const std::vector<std::string>& files) {
        BayerFilesParams b;
        b.files = files;
        b.frameType = p_.frameType;
        b.cfaPattern = p_.cfaPattern;
        b.outputColor = p_.bayerOutput;
        b.saveType = p_.saveType;
        b.outputDirectory = p_.outputDirectory;
        return FromRun(RunBayerFiles(b, progress_, notify_));
    }

    StepOutcome Resize(const std::vector<std::string>& files) {
        ResizeRequest rq;
        rq.ownerName = kResizeOwnerPipeline;
        rq.files = files;
        rq.outputDirectory = p_.outputDirectory;
        rq.mode = ResizeMode::MonoBayer;
        rq.width = frameWidth_;
        rq.height = frameHeight_;
        rq.saveType = p_.saveType;
        const FileOpResult run = ResizeFiles(rq, progress_, notify_);
        StepOutcome o = FromRun(run);
        // Planes already at the colour frame's size go on as they are.
        if (o.ok && run.outputs.empty() && run.status == kResizeNoScaleText)
            o.outputs = files;
        return o;
    }

    StepOutcome Filter(const std::vector<std::string>& files) {
        StepOutcome o;
        FilterFilesRequest f;
        f.files = files;
        f.outputDirectory = p_.outputDirectory;
        f.saveType = p_.saveType;
        if (p_.filterBadPixels) {
            CProcessStructure rec;
            rec.operation = "Reduce High, Low, Bloom Pixel";
            rec.parameters = BadPixelParameters();
            f.records.push_back(rec);
        }
        if (p_.filterSmoothing) {
            CProcessStructure rec;
            rec.operation = "Smoothing";
            rec.parameters = kFileSetSmoothingParams;
            f.records.push_back(rec);
        }
        f.prefix = p_.filterBadPixels && p_.filterSmoothing ? "NRDB_"
                   : p_.filterBadPixels                     ? "DB_"
                                                            : "NR_";
        if (f.records.empty()) {
            o.text = "No extra filters selected.";
            o.worked = false;
            return o;
        }
        return FromRun(FilterFiles(f, progress_, notify_));
    }

    /// The bad pixel operator's text at the chosen aggressiveness: the default high pixel
    /// reduction, whose difference threshold is lowered from 0.5 to 0.35 ("Aggressive") and
    /// 0.2 ("Very Aggressive") so that less outstanding pixels are taken too.
    std::string BadPixelParameters() const {
        ReducePixelsParams r; // High, Normal, 0.5, 5 x 5, 5 x 5
        if (p_.aggressiveness == "Aggressive")
            r.difference = 0.35;
        else if (p_.aggressiveness == "Very Aggressive")
            r.difference = 0.2;
        return FormatReducePixels(r);
    }

    StepOutcome Normalize(const std::vector<std::string>& files, bool flats) {
        NormalizeRequest n;
        n.ownerName = kNormalizeOwnerPipeline;
        n.files = files;
        n.outputDirectory = p_.outputDirectory;
        n.mode = NormalizeMode::BrightnessContrast;
        n.saveType = p_.saveType;
        n.target = NormalizeTarget::SetAverage;
        if (!flats) {
            n.target = p_.normalize == "MAX"    ? NormalizeTarget::SetMaximum
                       : p_.normalize == "MIN"  ? NormalizeTarget::SetMinimum
                       : p_.normalize == "USER" ? NormalizeTarget::UserDefined
                                                : NormalizeTarget::SetAverage;
            n.background = p_.normalizeBackground;
            n.deviation = p_.normalizeDeviation;
            n.useSetDeviation = p_.normalizeSetDeviation;
        }
        const NormalizeResult res = NormalizeFiles(n, progress_, notify_);
        StepOutcome o = FromRun(res.run);
        if (!res.started)
            o.ok = false;
        return o;
    }

    StepOutcome Grade(const std::vector<std::string>& files) {
        GradeRequest g;
        g.ownerName = kGradeOwnerPipeline;
        g.files = files;
        g.outputDirectory = p_.outputDirectory;
        g.method = GradeMethod::StarShape;
        g.mode = p_.grade;
        g.limit = p_.grade == kGradePercentEcc ? p_.gradePercent : p_.gradeMaxEccentricity;
        const GradeResult res = GradeFiles(g, progress_, notify_);
        StepOutcome o = FromRun(res.run);
        if (!res.started)
            o.ok = false;
        if (!res.detail.empty() && o.ok)
            o.text = res.detail;
        return o;
    }

    StepOutcome Align(const std::vector<std::string>& files) {
        AutoStarParams a;
        a.ownerName = kAlignStarOwnerPipeline;
        for (std::size_t i = 0; i < files.size(); ++i) {
            CImageFileInfo info;
            info.path = files[i];
            info.isReference = i == 0;
            info.listIndex = static_cast<std::int32_t>(i);
            a.files.push_back(info);
        }
        a.referencePath = files.front();
        a.outputDirectory = p_.outputDirectory;
        a.quickAlignment = p_.align == "QUICK";
        a.meridianFlip = p_.meridianFlip;
        a.mirrorFlip = p_.mirrorFlip;
        a.wideBrightnessRange = p_.wideRange;
        a.shortFLSmallStars = p_.smallStars;
        a.saveType = p_.saveType;
        const AlignStarResult res = AlignStarFiles(a, progress_, notify_);
        StepOutcome o = FromRun(res.run);
        if (!res.started)
            o.ok = false;
        return o;
    }

    void Run();

private:
    const CAutoProcessParams& p_;
    IProgress* progress_;
    INotify* notify_;
    FileSetRunResult* r_;
    const FileSetStepObserver& onStep_;
    int frameWidth_ = 0, frameHeight_ = 0;

    void Told(std::size_t index) {
        if (onStep_)
            onStep_(index, r_->steps[index]);
    }

    /// The size of the first light that can be read: the size of the colour frame.
    void FirstLightSize(const std::vector<std::string>& lights) {
        if (lights.empty())
            return;
        CImageFileList usable;
        std::vector<std::string> rejected;
        CheckFiles("FILTERFILES", kSetEither, {lights.front()}, &usable, &rejected);
        if (!usable.empty()) {
            frameWidth_ = usable.front().width;
            frameHeight_ = usable.front().height;
        }
    }
};

void Runner::Run() {
    FileOpLists().Clear();
    r_->initialLights = static_cast<int>(p_.lights.files.size());
    PrepareSetup();
    FirstLightSize(p_.lights.files);

    // Stage one: the raw conversions, when there are raw files.
    r_->steps = BuildConversionList(p_);
    const bool converting = !r_->steps.empty();
    if (!converting)
        r_->steps = BuildCommandList(p_);
    if (r_->steps.empty()) {
        r_->ok = true;
        r_->status = kFileSetNoCommandsText;
        r_->text = kFileSetNoCommandsText;
        Status(r_->status);
        r_->summary = FileSetSummary(*r_);
        return;
    }

    std::map<FrameKind, std::vector<std::string>> lists;
    for (FrameKind k : kAllKinds)
        lists[k] = p_.Page(k).files;
    std::map<FrameKind, std::string> master;
    std::vector<std::string> light = p_.lights.files;
    // The outputs of the previous light (or flat) step, deleted under "Minimize Hard Drive
    // Use " when the next step has finished.
    std::vector<std::string> deletable;
    const std::set<std::string> originals = [&] {
        std::set<std::string> s;
        for (FrameKind k : kAllKinds)
            s.insert(p_.Page(k).files.begin(), p_.Page(k).files.end());
        return s;
    }();

    std::vector<CFileSetOpElement> stageTwo; // the steps after the raw conversions
    for (std::size_t i = 0; i < r_->steps.size(); ++i) {
        CFileSetOpElement& step = r_->steps[i];
        if (Cancelled()) {
            r_->cancelled = true;
            break;
        }
        Status(step.name + " - " + step.detail + "...");
        if (progress_)
            progress_->SetProgress(0, 1);
        Told(i);
        const std::string& n = step.name;
        StepOutcome o;
        bool lightStep = false;
        FrameKind kind = FrameKind::Light;
        for (FrameKind k : kMasterKinds)
            if (n.find(std::string(" ") + KindTitle(k) + " Frame") != std::string::npos &&
                !(k == FrameKind::Flat && n.find("Flat Dark") != std::string::npos))
                kind = k;
        if (n.rfind("Convert Digital", 0) == 0) {
            o = ConvertRaw(&lists[kind]);
            if (kind == FrameKind::Light)
                light = lists[kind];
        } else if (n == "Check Converted Files") {
            // Stage two, on the converted lists.
            CAutoProcessParams converted = p_;
            for (FrameKind k : kAllKinds)
                converted.Page(k).files = lists[k];
            std::string why;
            if (!CheckFrames(converted, notify_, &why)) {
                o.text = why;
            } else {
                FirstLightSize(light);
                stageTwo = BuildCommandList(converted, true); // queued once this step is done
                o.ok = true;
                o.text = "Completed";
            }
        } else if (n == "Normalize Flat Frames") {
            o = Normalize(lists[FrameKind::Flat], true);
            if (o.ok && !o.outputs.empty()) {
                lists[FrameKind::Flat] = o.outputs;
                deletable = o.outputs;
            } else if (o.ok) {
                o.ok = false;
            }
        } else if (n.rfind("Combine ", 0) == 0 && kind != FrameKind::Light) {
            o = Combine(lists[kind], p_.Page(kind).method, p_.Page(kind).name);
            if (o.ok)
                master[kind] = o.outputs.front();
        } else if (n.rfind("Set ", 0) == 0) {
            const std::string path = master.count(kind)    ? master[kind]
                                     : lists[kind].empty() ? ""
                                                           : lists[kind].front();
            o = SetFrame(kind, path);
        } else {
            lightStep = true;
            if (light.empty()) {
                o.text = kFileSetInputEmptyText;
                o.status = kFileSetInputEmptyStatus;
                o.worked = false;
            } else if (n == "Calibrate Light Frames") {
                o = Calibrate(light);
                r_->calibrated = static_cast<int>(o.outputs.size());
            } else if (n == "Bayer Convert Light Frames") {
                o = Bayer(light);
                r_->bayerConverted = static_cast<int>(o.outputs.size());
            } else if (n == "Resize Mono Bayer Light Frames") {
                o = Resize(light);
                r_->resized = static_cast<int>(o.outputs.size());
            } else if (n == "Filter Light Frames") {
                o = Filter(light);
                r_->filtered = static_cast<int>(o.outputs.size());
            } else if (n == "Normalize Light Frames") {
                o = Normalize(light, false);
                r_->normalized = static_cast<int>(o.outputs.size());
            } else if (n == "Grade Light Frames") {
                o = Grade(light);
                r_->graded = static_cast<int>(o.outputs.size());
            } else if (n == "Align Light Frames") {
                o = Align(light);
                r_->aligned = static_cast<int>(o.outputs.size());
            } else if (n == "Combine Light Frames") {
                o = Combine(light, p_.lights.method, LightCombineName(p_));
                if (o.ok) {
                    r_->combinations = 1;
                    r_->combined = o.outputs.front();
                }
            }
        }
        step.result = o.text;
        if (o.cancelled) {
            step.state = kFileSetError;
            r_->cancelled = true;
            Told(i);
            break;
        }
        // A light step that leaves nothing stops the run before the next worker.
        if (lightStep && o.worked && n != "Combine Light Frames" && o.outputs.empty()) {
            o.ok = false;
            o.status = kFileSetInputEmptyStatus;
            if (notify_)
                notify_->Message(kFileSetInputEmptyText);
            step.state = kFileSetError;
            r_->text = kFileSetInputEmptyText;
            r_->status = kFileSetInputEmptyStatus;
            Told(i);
            break;
        }
        if (!o.ok) {
            step.state = kFileSetError;
            r_->text = o.text;
            r_->status = o.status.empty() ? step.name + " - " + kFileSetError : o.status;
            if (notify_ && !o.text.empty())
                notify_->Message(o.text);
            Told(i);
            break;
        }
        step.state = kFileSetCompleted;
        Status(step.name + " - " + kFileSetCompleted);
        Told(i);
        if (!stageTwo.empty()) {
            // `step` and `n` refer into the queue: nothing below this may use them.
            r_->steps.insert(r_->steps.end(), stageTwo.begin(), stageTwo.end());
            stageTwo.clear();
            continue;
        }
        if (lightStep || n == "Combine Flat Frames") {
            if (p_.minimizeDisk) {
                std::error_code ec;
                for (const std::string& f : deletable)
                    if (!originals.count(f) &&
                        std::find(o.outputs.begin(), o.outputs.end(), f) == o.outputs.end())
                        fs::remove(f, ec);
            }
            deletable.clear();
        }
        if (lightStep) {
            if (n != "Combine Light Frames") {
                // Outputs that are the inputs themselves (nothing to resize) stay.
                for (const std::string& f : o.outputs)
                    if (!originals.count(f))
                        deletable.push_back(f);
                light = o.outputs;
            }
            FileOpLists().Set(OutputListOf(ProcessedKey(FrameKind::Light),
                                           OutputListKind::InitialLight, o.outputs));
        } else if (!o.outputs.empty() && n.rfind("Set ", 0) == 0) {
            FileOpLists().Set(
                OutputListOf(ProcessedKey(kind), OutputListKind::InitialLight, o.outputs));
        }
    }
    if (r_->cancelled) {
        r_->status = kFileSetCanceledStatus;
        r_->text = kThreadCanceledText;
    }
    r_->ok = !r_->cancelled &&
             std::all_of(r_->steps.begin(), r_->steps.end(),
                         [](const CFileSetOpElement& s) { return s.state == kFileSetCompleted; });
    if (r_->ok)
        r_->status = "Completed";
    Status(r_->status);
    r_->summary = FileSetSummary(*r_);
}

} // namespace

namespace {

/// The run with its checks (`check`) or without them, for a caller that has just made them.
FileSetRunResult RunProcess(const CAutoProcessParams& params, IProgress* progress, INotify* notify,
                            CalibrationSetup* setup, bool check, bool setupDialogOpen,
                            const FileSetStepObserver& onStep) {
    FileSetRunResult result;
    if (setup)
        result.setup = *setup;
    FileOpBusy busy(FileOpKind::Automatic);
    if (!busy.Acquired()) {
        result.text = BusyText(FileOpKind::Automatic);
        result.status = result.text;
        return result;
    }
    if (check && !CheckFileSetProcess(params, setupDialogOpen, notify, &result.text)) {
        result.status = result.text;
        if (notify)
            notify->Message(result.text);
        return result;
    }
    // Every step writes to the folder the check accepted.
    CAutoProcessParams run = params;
    std::vector<std::string> all;
    for (FrameKind k : kAllKinds)
        all.insert(all.end(), params.Page(k).files.begin(), params.Page(k).files.end());
    std::string message;
    if (!ResolveOutputDirectory(params.outputDirectory, all, &run.outputDirectory, &message)) {
        result.text = result.status = message;
        return result;
    }
    result.started = true;
    Runner runner(run, progress, notify, &result, onStep);
    runner.Run();
    if (setup)
        *setup = result.setup;
    return result;
}

} // namespace

FileSetRunResult RunFileSetProcess(const CAutoProcessParams& params, IProgress* progress,
                                   INotify* notify, CalibrationSetup* setup, bool setupDialogOpen,
                                   const FileSetStepObserver& onStep) {
    return RunProcess(params, progress, notify, setup, true, setupDialogOpen, onStep);
}

FileSetRunResult RunCheckedFileSetProcess(const CAutoProcessParams& params, IProgress* progress,
                                          INotify* notify, CalibrationSetup* setup,
                                          const FileSetStepObserver& onStep) {
    return RunProcess(params, progress, notify, setup, false, false, onStep);
}

} // namespace astrivelle
