// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The calibration setup record, its frame choice and pre-flight, and the frames
/// prepared for a run.
#include "calibration/CalibrationSetup.h"
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

#include <algorithm>
#include <atomic>
#include <filesystem>

#include "calibration/Bayer.h"
#include "engine/Image.h"
#include "fileio/Bmp.h"
#include "fileio/FileDispatch.h"
#include "fileio/Fits.h"
#include "fileio/Jpeg.h"
#include "fileio/Tiff.h"
#include "operators/Filters.h"

namespace astrivelle {

namespace fs = std::filesystem;

void CalibrationSetup::ClearAll() {
    flatPath.clear();
    flatDarkPath.clear();
    darkPath.clear();
    biasPath.clear();
    useFlat = useFlatDark = useDark = useBias = false;
    darkFactor = 1.0;
    overallFactor = 1.0;
    autoDarkMatch = false;
    adaptiveWithDark = false;
    adaptiveWithoutDark = false;
    adaptiveLevel = "Normal";
    frameWidth = frameHeight = 0;
}

void CalibrationSetup::SetAutoDarkMatch(bool on) {
    autoDarkMatch = on;
    if (on)
        adaptiveWithoutDark = false;
}

void CalibrationSetup::SetAdaptiveWithoutDark(bool on) {
    adaptiveWithoutDark = on;
    if (on) {
        autoDarkMatch = false;
        adaptiveWithDark = false;
    }
}

void CalibrationSetup::SetAdaptiveWithDark(bool on) {
    adaptiveWithDark = on;
    if (on)
        adaptiveWithoutDark = false;
}

namespace {

/// The record's fields: name and where it lives, by kind.
struct SetupFields {
    std::vector<std::pair<const char*, std::string*>> texts;
    std::vector<std::pair<const char*, bool*>> flags;
    std::vector<std::pair<const char*, std::int32_t*>> integers;
    std::vector<std::pair<const char*, double*>> reals;
    explicit SetupFields(CalibrationSetup& s)
        : texts{{"colorModel", &s.colorModel},     {"frameType", &s.frameType},
                {"cfaPattern", &s.cfaPattern},     {"flatPath", &s.flatPath},
                {"flatDarkPath", &s.flatDarkPath}, {"darkPath", &s.darkPath},
                {"biasPath", &s.biasPath},         {"adaptiveLevel", &s.adaptiveLevel}},
          flags{{"bayerData", &s.bayerData},
                {"useFlat", &s.useFlat},
                {"useFlatDark", &s.useFlatDark},
                {"useDark", &s.useDark},
                {"useBias", &s.useBias},
                {"autoDarkMatch", &s.autoDarkMatch},
                {"adaptiveWithDark", &s.adaptiveWithDark},
                {"adaptiveWithoutDark", &s.adaptiveWithoutDark}},
          integers{{"frameWidth", &s.frameWidth}, {"frameHeight", &s.frameHeight}},
          reals{{"darkFactor", &s.darkFactor}, {"overallFactor", &s.overallFactor}} {}
};

} // namespace

std::string FormatCalibrationSetup(const CalibrationSetup& setup) {
    CalibrationSetup copy = setup;
    const SetupFields f(copy);
    std::string text;
    for (const auto& [name, value] : f.texts)
        text += std::string(name) + "=" + *value + "\n";
    for (const auto& [name, value] : f.flags)
        text += std::string(name) + "=" + (*value ? "1" : "0") + "\n";
    for (const auto& [name, value] : f.integers)
        text += std::string(name) + "=" + std::to_string(*value) + "\n";
    char number[64];
    for (const auto& [name, value] : f.reals) {
        std::snprintf(number, sizeof number, "%.17g", *value);
        text += std::string(name) + "=" + number + "\n";
    }
    return text;
}

bool ParseCalibrationSetup(const std::string& text, CalibrationSetup* setup) {
    CalibrationSetup s = *setup;
    const SetupFields f(s);
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        if (line.empty())
            continue;
        const std::size_t eq = line.find('=');
        if (eq == std::string::npos)
            return false;
        const std::string name = line.substr(0, eq), value = line.substr(eq + 1);
        char* stop = nullptr;
        for (const auto& [n, v] : f.texts)
            if (name == n)
                *v = value;
        for (const auto& [n, v] : f.flags)
            if (name == n) {
                if (value != "0" && value != "1")
                    return false;
                *v = value == "1";
            }
        for (const auto& [n, v] : f.integers)
            if (name == n) {
                const long number = std::strtol(value.c_str(), &stop, 10);
                if (value.empty() || *stop)
                    return false;
                *v = static_cast<std::int32_t>(number);
            }
        for (const auto& [n, v] : f.reals)
            if (name == n) {
                const double number = std::strtod(value.c_str(), &stop);
                if (value.empty() || *stop)
                    return false;
                *v = number;
            }
    }
    *setup = s;
    return true;
}

const char* SystemFrameName(SystemFrame frame) {
    switch (frame) {
    case SystemFrame::Flat:
        return "FLAT";
    case SystemFrame::FlatDark:
        return "FLATDARK";
    case SystemFrame::Dark:
        return "DARK";
    case SystemFrame::Bias:
        return "BIAS";
    }
    return "";
}

const char* SystemFrameTitle(SystemFrame frame) {
    switch (frame) {
    case SystemFrame::Flat:
        return "Select Master Flat";
    case SystemFrame::FlatDark:
        return "Select Master Flat Dark";
    case SystemFrame::Dark:
        return "Select Master Dark";
    case SystemFrame::Bias:
        return "Select Master Bias";
    }
    return "";
}

const char* SystemFrameSystemName(SystemFrame frame) {
    switch (frame) {
    case SystemFrame::Flat:
        return "SystemFlat";
    case SystemFrame::FlatDark:
        return "SystemFlatDark";
    case SystemFrame::Dark:
        return "SystemDark";
    case SystemFrame::Bias:
        return "SystemBias";
    }
    return "";
}

namespace {

/// The format family of a frame's extension: "FITS", "TIFF", "JPEG", "BMP", "SBIG" or "" (a
/// camera raw file is no calibration frame until it is converted).
std::string FamilyOf(const std::string& path) {
    const std::string kind = ImageKindOfExtension(fs::path(path).extension().string());
    return kind == "RAW" ? std::string() : kind;
}

/// Size and colour of a frame file from its header (SBIG files are read: mono by kind).
/// `readAll` reads BMP and SBIG files to learn the size.
bool ProbeFrame(const std::string& path, const std::string& family, std::int32_t* w,
                std::int32_t* h, bool* isColor) {
    if (family == "FITS") {
        FitsGeometry g;
        if (!ProbeFITSGeometry(path, &g))
            return false;
        *w = g.width;
        *h = g.height;
        *isColor = g.isColor;
        return true;
    }
    if (family == "TIFF") {
        TiffFile f;
        std::string text;
        if (!ReadTiffTags(path, &f, &text))
            return false;
        *w = static_cast<std::int32_t>(f.width);
        *h = static_cast<std::int32_t>(f.height);
        *isColor = f.colorSpace == "RGB";
        return true;
    }
    if (family == "JPEG") {
        std::uint32_t jw = 0, jh = 0;
        std::string space;
        std::int32_t comps = 0;
        if (!JPEGReadImageHeader(path, &jw, &jh, &space, &comps))
            return false;
        *w = static_cast<std::int32_t>(jw);
        *h = static_cast<std::int32_t>(jh);
        *isColor = space != "GRAY";
        return true;
    }
    if (family == "BMP") {
        BmpHeaderInfo info;
        if (!ReadBmpHeader(path, &info))
            return false;
        *w = info.header.width;
        *h = info.header.height < 0 ? -info.header.height : info.header.height;
        *isColor = true;
        return true;
    }
    if (family == "SBIG") {
        Image img;
        if (!img.ReadFile(path, fs::path(path).extension().string()))
            return false;
        *w = img.width;
        *h = img.height;
        *isColor = false;
        return true;
    }
    return false;
}

const char* WordOf(SystemFrame f) {
    switch (f) {
    case SystemFrame::Flat:
        return "flat";
    case SystemFrame::FlatDark:
        return "flat dark";
    case SystemFrame::Bias:
        return "bias";
    case SystemFrame::Dark:
        return "dark";
    }
    return "";
}

struct FrameRef {
    SystemFrame which;
    const std::string* path;
    bool use;
};

bool BuiltInSplit(const float* mosaic, int w, int h, const std::string& pattern, float* red,
                  float* green, float* blue) {
    CfaCell cell;
    if (!ParseCfaKeyword(pattern, &cell) || cell.cygm)
        return false;
    return SplitMosaic(mosaic, w, h, cell, ColorRed, false, red) &&
           SplitMosaic(mosaic, w, h, cell, ColorGreen, false, green) &&
           SplitMosaic(mosaic, w, h, cell, ColorBlue, false, blue);
}

bool BuiltInCombine(const float* red, const float* green, const float* blue, int w, int h,
                    const std::string& pattern, float* mosaic) {
    CfaCell cell;
    if (!ParseCfaKeyword(pattern, &cell) || cell.cygm)
        return false;
    const double scales[3] = {1.0, 1.0, 1.0};
    return CombineIntoMosaic(mosaic, w, h, cell, red, green, blue, scales);
}

std::atomic<BayerSplitFn> splitSeam{BuiltInSplit};
std::atomic<BayerCombineFn> combineSeam{BuiltInCombine};

} // namespace

bool SelectFrameFromDisk(CalibrationSetup& setup, SystemFrame frame, const std::string& path,
                         std::string* text) {
    const std::string family = FamilyOf(path);
    if (family == "BMP") {
        BmpHeaderInfo info;
        if (!ReadBmpHeader(path, &info)) {
            *text = "Error reading system frame " + path;
            return false;
        }
        if (info.header.bitCount != 24) {
            *text = "Not a 24 bit BMP.";
            return false;
        }
    } else if (family.empty()) {
        *text = "Invalid file type.";
        return false;
    }
    std::int32_t w = 0, h = 0;
    bool isColor = false;
    if (!ProbeFrame(path, family, &w, &h, &isColor)) {
        *text = "Error reading system frame " + path;
        return false;
    }
    if ((setup.colorModel == "COLOR") != isColor) {
        *text = "The select image color type does not match the \nselected color model in "
                "Calibration Setup\n";
        return false;
    }
    if (setup.frameWidth == 0 && setup.frameHeight == 0) {
        setup.frameWidth = w;
        setup.frameHeight = h;
    }
    switch (frame) {
    case SystemFrame::Flat:
        setup.flatPath = path;
        setup.useFlat = true;
        break;
    case SystemFrame::FlatDark:
        setup.flatDarkPath = path;
        setup.useFlatDark = true;
        break;
    case SystemFrame::Dark:
        setup.darkPath = path;
        setup.useDark = true;
        setup.adaptiveWithDark = false;
        setup.adaptiveWithoutDark = false;
        break;
    case SystemFrame::Bias:
        setup.biasPath = path;
        setup.useBias = true;
        break;
    }
    return true;
}

bool CheckSystemFrames(const CalibrationSetup& s, std::string* text) {
    const FrameRef frames[] = {{SystemFrame::Flat, &s.flatPath, s.useFlat},
                               {SystemFrame::FlatDark, &s.flatDarkPath, s.useFlatDark},
                               {SystemFrame::Bias, &s.biasPath, s.useBias},
                               {SystemFrame::Dark, &s.darkPath, s.useDark}};
    const bool anyFlag = s.useFlat || s.useFlatDark || s.useDark || s.useBias;
    const bool anyPath = !s.flatPath.empty() || !s.flatDarkPath.empty() || !s.darkPath.empty() ||
                         !s.biasPath.empty();
    if (!anyFlag || !anyPath) {
        *text = "Flat, flat dark, bias, and dark frames are all disabled.\nPlease check "
                "Calibration Setup.";
        return false;
    }
    const std::string please = "\nPlease check Calibration Setup.";
    std::string upper;
    for (const FrameRef& f : frames) {
        if (f.path->empty())
            continue;
        std::string word = WordOf(f.which);
        word[0] = static_cast<char>(word[0] - 'a' + 'A');
        const fs::path p(*f.path);
        if (!p.has_extension() || p.stem().empty()) {
            *text = "System " + std::string(WordOf(f.which)) + " frame has an invalid filename." +
                    please;
            return false;
        }
        if (FamilyOf(*f.path).empty()) {
            *text = "System " + std::string(WordOf(f.which)) +
                    " frame must be a BMP, JPG, TIF, FITS, or SBIG image format." + please;
            return false;
        }
    }
    const bool colorModel = s.colorModel == "COLOR";
    for (const FrameRef& f : frames) {
        if (f.path->empty())
            continue;
        const std::string family = FamilyOf(*f.path);
        std::int32_t w = 0, h = 0;
        bool isColor = false;
        if (!ProbeFrame(*f.path, family, &w, &h, &isColor)) {
            *text = (family == "SBIG" ? "Error reading SBIG system frame "
                                      : "Error reading system frame ") +
                    *f.path;
            return false;
        }
        if (!f.use)
            continue;
        if (f.which == SystemFrame::Dark && !colorModel && family != "FITS" && family != "TIFF" &&
            family != "JPEG" && family != "SBIG") {
            *text = "System monochrome dark is not a FIT, TIF, or JPEG image.";
            return false;
        }
        if (w != s.frameWidth || h != s.frameHeight || isColor != colorModel) {
            *text = "The system " + std::string(WordOf(f.which)) +
                    " frame does not match the selected image size." + please;
            return false;
        }
    }
    return true;
}

bool SplitsColours(const CalibrationSetup& s) {
    return s.colorModel == "MONO" && s.bayerData && s.frameWidth % 2 == 0 &&
           s.frameHeight % 2 == 0 &&
           (s.autoDarkMatch || s.adaptiveWithDark || s.adaptiveWithoutDark);
}

void SetBayerPlaneSeam(BayerSplitFn split, BayerCombineFn combine) {
    splitSeam.store(split);
    combineSeam.store(combine);
}

void ResetBayerPlaneSeam() {
    SetBayerPlaneSeam(BuiltInSplit, BuiltInCombine);
}

BayerSplitFn BayerSplitSeam() {
    return splitSeam.load();
}

BayerCombineFn BayerCombineSeam() {
    return combineSeam.load();
}

const float* CalibrationFrames::Plane(const FramePlanes& frame, int index, bool perColour) const {
    if (!frame.loaded || index < 0 || index > 2)
        return nullptr;
    const std::vector<float>& v = perColour ? frame.set[index] : frame.plane[index];
    return v.empty() ? nullptr : v.data();
}

void SubtractFlatDark(float* flat, const float* flatDark, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        if (static_cast<double>(flat[i]) >= static_cast<double>(flatDark[i]) + 1.0)
            flat[i] = flat[i] - flatDark[i];
}

namespace {

/// Reads a frame file into `planes` (1 for mono, 3 for colour), each width x height.
bool ReadFramePlanes(const std::string& path, bool color, std::int32_t width, std::int32_t height,
                     std::vector<float> planes[3]) {
    Image img;
    if (!img.ReadFile(path, fs::path(path).extension().string()))
        return false;
    if (img.width != width || img.height != height)
        return false;
    if ((img.colorType == ColorRGB) != color)
        return false;
    const std::size_t n = static_cast<std::size_t>(width) * height;
    const int count = color ? 3 : 1;
    for (int c = 0; c < count; ++c) {
        const int slot = color ? c : img.Slots().front();
        if (!img.curPlane[slot])
            return false;
        planes[c].assign(img.curPlane[slot], img.curPlane[slot] + n);
    }
    return true;
}

bool SplitFrame(FramePlanes& frame, std::int32_t w, std::int32_t h, const std::string& pattern,
                std::string* text) {
    BayerSplitFn split = BayerSplitSeam();
    if (!split) {
        *text = kBayerSeamMissingText;
        return false;
    }
    const std::size_t quarter = static_cast<std::size_t>(w / 2) * (h / 2);
    try {
        frame.set[0].assign(quarter, 0.0f);
        frame.set[1].assign(quarter * 2, 0.0f);
        frame.set[2].assign(quarter, 0.0f);
    } catch (const std::bad_alloc&) {
        *text = "Could not allocate Bayer CFA dark frame memory.";
        return false;
    }
    if (!split(frame.plane[0].data(), w, h, pattern, frame.set[0].data(), frame.set[1].data(),
               frame.set[2].data())) {
        *text = "Could not allocate Bayer CFA load dark frame memory 1.";
        return false;
    }
    return true;
}

} // namespace

bool LoadCalibrationFrames(const CalibrationSetup& s, CalibrationFrames* frames,
                           std::string* text) {
    ReleaseCalibrationFrames(frames);
    frames->width = s.frameWidth;
    frames->height = s.frameHeight;
    const bool color = s.colorModel == "COLOR";
    frames->splitColours = !color && SplitsColours(s);
    const std::int32_t w = s.frameWidth, h = s.frameHeight;
    const std::size_t n = static_cast<std::size_t>(w) * h;
    const int planes = color ? 3 : 1;
    auto fail = [&](const std::string& t) {
        *text = t;
        ReleaseCalibrationFrames(frames);
        return false;
    };
    try {
        if (s.useFlat && !s.flatPath.empty()) {
            if (!ReadFramePlanes(s.flatPath, color, w, h, frames->flat.plane))
                return fail("System error reading the flat image.");
            frames->flat.loaded = true;
            if (s.useFlatDark && !s.flatDarkPath.empty()) {
                std::vector<float> fd[3];
                if (!ReadFramePlanes(s.flatDarkPath, color, w, h, fd))
                    return fail("System error reading the flat dark image.");
                for (int c = 0; c < planes; ++c)
                    SubtractFlatDark(frames->flat.plane[c].data(), fd[c].data(), n);
            }
            if (!color && s.bayerData) {
                Image lum;
                lum.SetGeometryFits(KindFITS, ColorGray, 0, DataFloat, w, h);
                if (!lum.AllocatePlanes(1))
                    return fail("Could not allocate memory for luminance flat.");
                std::copy(frames->flat.plane[0].begin(), frames->flat.plane[0].end(),
                          lum.curPlane[0]);
                std::copy(frames->flat.plane[0].begin(), frames->flat.plane[0].end(),
                          lum.prevPlane[0]);
                if (!lum.Smooth(nullptr, true, lum.prevPlane[0], lum.curPlane[0], SmoothBox, 2, 1.0,
                                1, 0, 65535, 0))
                    return fail("Could not allocate memory for luminance flat.");
                std::copy(lum.curPlane[0], lum.curPlane[0] + n, frames->flat.plane[0].begin());
            }
            if (frames->splitColours && !SplitFrame(frames->flat, w, h, s.cfaPattern, text))
                return fail(*text);
        }
        if (s.useDark && !s.darkPath.empty()) {
            if (!ReadFramePlanes(s.darkPath, color, w, h, frames->dark.plane))
                return fail("System error reading the dark image.");
            frames->dark.loaded = true;
            if (frames->splitColours && !SplitFrame(frames->dark, w, h, s.cfaPattern, text))
                return fail(*text);
        }
        if (s.useBias && !s.biasPath.empty()) {
            if (!ReadFramePlanes(s.biasPath, color, w, h, frames->bias.plane))
                return fail("System error reading the bias image.");
            frames->bias.loaded = true;
            if (frames->splitColours && !SplitFrame(frames->bias, w, h, s.cfaPattern, text))
                return fail(*text);
        }
    } catch (const std::bad_alloc&) {
        return fail("Could not read or allocate memory for calibrations.");
    }
    return true;
}

void ReleaseCalibrationFrames(CalibrationFrames* frames) {
    for (FramePlanes* f : {&frames->flat, &frames->dark, &frames->bias}) {
        for (auto& v : f->plane)
            std::vector<float>().swap(v);
        for (auto& v : f->set)
            std::vector<float>().swap(v);
        f->loaded = false;
    }
}

} // namespace astrivelle
