// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The rules of the image-set sheets: start refusals, output folders, list captions.
#include "imagesets/FileSetRules.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "imagesets/ReadNoiseGain.h"
#include "operators/Registry.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {
std::atomic<bool> gReadNoiseGainRunning{false};

std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return {};
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}
} // namespace

void SetReadNoiseGainRunning(bool on) {
    gReadNoiseGainRunning.store(on);
}

bool ReadNoiseGainRunning() {
    return gReadNoiseGainRunning.load();
}

std::string FileOpStartRefusal(FileOpKind kind) {
    if (ReadNoiseGainRunning())
        return kReadNoiseGainBusyText;
    // The automatic process runs the operations' own workers: no other run may start meanwhile.
    if (kind != FileOpKind::Automatic && IsFileOpBusy(FileOpKind::Automatic))
        return kAutomaticInProgressText;
    if (kind == FileOpKind::Count_)
        return {};
    if (IsFileOpBusy(kind))
        return BusyText(kind);
    if (kind == FileOpKind::Calibrate)
        return OtherFileOpBusyText(kind);
    return {};
}

bool ResolveOutputDirectory(const std::string& text, const std::vector<std::string>& inputs,
                            std::string* folder, std::string* message) {
    std::string dir = Trimmed(text);
    if (dir.empty() && !inputs.empty())
        dir = fs::path(inputs.front()).parent_path().string();
    if (dir.empty())
        dir = ".";
    *folder = dir;
    std::error_code ec;
    fs::create_directories(dir, ec);
    const fs::path probe = fs::path(dir) / kOutputTestFileName;
    const int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        const std::string why = std::strerror(errno);
        std::vector<char> buf(dir.size() + why.size() + 64);
        std::snprintf(buf.data(), buf.size(), kCheckOutputDirectoryFormat, dir.c_str(),
                      why.c_str());
        *message = buf.data();
        return false;
    }
    ::close(fd);
    ::unlink(probe.c_str());
    return true;
}

bool OutputListKindOf(const std::string& operation, bool color, OutputListKind* kind) {
    if (operation == "Calibrate Files")
        *kind = color ? OutputListKind::CalibratedColor : OutputListKind::Calibrated;
    else if (operation == "Bayer Interpolate/Split Files")
        *kind = OutputListKind::Color;
    else if (operation == "Normalize Files")
        *kind = OutputListKind::Normalized;
    else if (operation == "Filter Files")
        *kind = OutputListKind::Filtered;
    else if (operation == "Grade Files")
        *kind = OutputListKind::Graded;
    else if (operation == "Auto Align Planet Files" || operation == "Align TSR Files" ||
             operation == "Align Star Files" || operation == "Align Point Files")
        *kind = OutputListKind::Aligned;
    else
        return false;
    return true;
}

std::string OutputListText(const CFileOpList& list) {
    OutputListKind kind;
    const bool color = list.kind == OutputListKind::CalibratedColor;
    if (OutputListKindOf(list.operation, color, &kind))
        return list.Caption();
    return OutputFilesLabel(static_cast<int>(list.files.size())) + list.operation;
}

CFileOpList MakeOutputList(const std::string& operation, bool color,
                           const std::vector<std::string>& outputs) {
    OutputListKind kind = OutputListKind::Calibrated;
    OutputListKindOf(operation, color, &kind);
    return OutputListOf(operation, kind, outputs);
}

std::vector<std::string> ListPaths(const CFileOpList& list) {
    std::vector<std::string> paths;
    paths.reserve(list.files.size());
    for (const CImageFileInfo& info : list.files)
        paths.push_back(info.path);
    return paths;
}

const std::vector<double>& ClipFactorChoices() {
    static const std::vector<double> choices = [] {
        std::vector<double> v;
        for (int i = 1; i <= 80; ++i)
            v.push_back(std::round(i * 5.0) / 100.0);
        return v;
    }();
    return choices;
}

double CompressOfSlider(int position) {
    return position * 2.0 / 1000.0;
}

int SliderOfCompress(double compress) {
    return static_cast<int>(std::lround(compress * 1000.0 / 2.0));
}

bool LastAppliedParameters(const std::vector<CProcessStructure>& history, int currentStep,
                           const std::string& operation, std::string* parameters) {
    if (history.empty())
        return false;
    const int last = std::min(currentStep, static_cast<int>(history.size()) - 1);
    for (int i = last; i >= 0; --i)
        if (history[i].operation == operation) {
            *parameters = history[i].parameters;
            return true;
        }
    return false;
}

std::vector<CProcessStructure> ReplayableSteps(const std::vector<CProcessStructure>& history,
                                               int currentStep) {
    std::vector<CProcessStructure> steps;
    const int last = std::min(currentStep, static_cast<int>(history.size()) - 1);
    for (int i = 1; i <= last; ++i) {
        const OperatorDescriptor* op = FindOperator(history[i].operation);
        if (op && op->replay)
            steps.push_back(history[i]);
    }
    return steps;
}

} // namespace astrivelle
