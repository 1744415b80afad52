// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Manual grading over a list of files.
#include "imagesets/ManualGrade.h"

#include <filesystem>
#include <system_error>

#include "engine/Image.h"
#include "imagesets/FileOperation.h"
#include "imagesets/GradeFiles.h"

namespace astrivelle {

namespace fs = std::filesystem;

std::string ManualGradeAidOperator(const std::string& aid) {
    if (aid == "DDP")
        return "Digital Development";
    if (aid == "Levels")
        return "Levels";
    if (aid == "BCS")
        return "General Stretch Functions";
    return {};
}

std::string ManualGradeName(char letter, const std::string& source) {
    return std::string("AG") + letter + "_Average_" + fs::path(source).filename().string();
}

bool ManualGradeSession::Start(const std::vector<std::string>& files, const std::string& outDir) {
    active_ = false;
    index_ = 0;
    outputs_.clear();
    grades_.clear();
    std::error_code ec;
    bool readable = !files.empty();
    for (const std::string& f : files)
        readable = readable && fs::is_regular_file(f, ec);
    if (!readable) {
        status_ = kManualGradeListErrorText;
        return false;
    }
    files_ = files;
    outDir_ = outDir;
    active_ = true;
    status_ = kManualGradeInProgressText;
    return true;
}

std::string ManualGradeSession::Current() const {
    return active_ && index_ < files_.size() ? files_[index_] : std::string();
}

bool ManualGradeSession::Read(Image* image, std::string* error) const {
    const std::string path = Current();
    if (path.empty() || !image->ReadFile(path, fs::path(path).extension().string())) {
        if (error)
            *error =
                std::string(kManualGradeReadErrorText) + " " + fs::path(path).filename().string();
        return false;
    }
    return true;
}

bool ManualGradeSession::Grade(char letter, std::string* error) {
    const std::string path = Current();
    if (path.empty() || std::string("ABCDF").find(letter) == std::string::npos)
        return false;
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) {
        if (error)
            *error = kManualGradeCannotReadText;
        return false;
    }
    std::string out, why;
    if (!CopyGraded(path, outDir_, ManualGradeName(letter, path), files_, &out, &why)) {
        if (error)
            *error = kGradeSaveErrorText + fs::path(path).filename().string();
        return false;
    }
    outputs_.push_back(out);
    grades_.push_back({path, letter});
    Next();
    return true;
}

void ManualGradeSession::Skip() {
    const std::string path = Current();
    if (path.empty())
        return;
    grades_.push_back({path, 'S'});
    Next();
}

void ManualGradeSession::Cancel() {
    if (!active_)
        return;
    active_ = false;
    status_ = kManualGradeCanceledText;
}

void ManualGradeSession::Next() {
    if (++index_ < files_.size())
        return;
    active_ = false;
    status_ = kManualGradeCompleteText;
    if (!outputs_.empty())
        FileOpLists().Set(OutputListOf(kGradeOperationName, OutputListKind::Graded, outputs_));
}

} // namespace astrivelle
