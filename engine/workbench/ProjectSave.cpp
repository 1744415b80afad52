// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Save Project: the `.qxj` file of a window's history, the copying of the files its
/// records name into the project's folder, and the report text.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <system_error>

#include "engine/ProcessWindow.h"
#include "engine/workbench/Project.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

/// Fills each "%s" of a fixed text with the next argument, in order.
std::string FillText(const char* format, std::initializer_list<std::string> args) {
    std::string out;
    auto arg = args.begin();
    for (const char* p = format; *p; ++p) {
        if (p[0] == '%' && p[1] == 's') {
            if (arg != args.end())
                out += *arg++;
            ++p;
        } else {
            out.push_back(*p);
        }
    }
    return out;
}

std::string FolderOf(const std::string& path) {
    const fs::path folder = fs::path(path).parent_path();
    return folder.empty() ? std::string(".") : folder.string();
}

/// Same folder by name, or the same folder on disk under two names.
bool SameFolder(const std::string& a, const std::string& b) {
    if (fs::path(a).lexically_normal() == fs::path(b).lexically_normal())
        return true;
    std::error_code ec;
    return fs::exists(a, ec) && fs::exists(b, ec) && fs::equivalent(a, b, ec);
}

void AddOnce(std::vector<std::string>* list, const std::string& path) {
    if (list && std::find(list->begin(), list->end(), path) == list->end())
        list->push_back(path);
}

/// The project file under construction: a temporary file beside the target, renamed over it
/// when everything was written, removed otherwise.
class PendingTextFile {
public:
    explicit PendingTextFile(const std::string& target) : target_(target) {
        const fs::path t(target);
        const fs::path folder = t.parent_path().empty() ? fs::path(".") : t.parent_path();
        temp_ = (folder / (".astrivelle-" + std::to_string(getpid()) + "-" + t.filename().string() +
                           ".part"))
                    .string();
        file_ = std::fopen(temp_.c_str(), "w");
    }
    ~PendingTextFile() { Abandon(); }
    bool IsOpen() const { return file_ != nullptr; }
    void Write(const std::string& text) {
        if (file_ && std::fwrite(text.data(), 1, text.size(), file_) != text.size())
            failed_ = true;
    }
    bool Commit() {
        if (!file_)
            return false;
        const bool ok = !failed_ && std::fflush(file_) == 0 && fsync(fileno(file_)) == 0;
        const bool closed = std::fclose(file_) == 0;
        file_ = nullptr;
        std::error_code ec;
        if (!ok || !closed) {
            fs::remove(temp_, ec);
            return false;
        }
        fs::rename(temp_, target_, ec);
        if (ec) {
            fs::remove(temp_, ec);
            return false;
        }
        return true;
    }
    void Abandon() {
        if (!file_)
            return;
        std::fclose(file_);
        file_ = nullptr;
        std::error_code ec;
        fs::remove(temp_, ec);
    }

private:
    std::string target_;
    std::string temp_;
    std::FILE* file_ = nullptr;
    bool failed_ = false;
};

} // namespace

bool CProcessWindow::SaveProject(const std::string& path, const std::string& finalName,
                                 const std::string& withCommands, const std::string& withImages,
                                 const std::string& withText) {
    const bool commands = withCommands == "Y";
    const bool images = withImages == "Y";
    const bool text = withText == "Y";
    const std::string projectFolder = FolderOf(path);
    auto openError = [&](const char* format) {
        return FillText(format, {path, finalName, withCommands, withImages, withText});
    };

    std::unique_ptr<PendingTextFile> out;
    if (commands) {
        out = std::make_unique<PendingTextFile>(path);
        if (!out->IsOpen()) {
            notify().Message(openError(kProjectOpenErrorFormat));
            return false;
        }
        out->Write(std::string(ProjectHeading(image.colorType)) + "\n");
    }

    // A file named by several records (a step's result is the next step's input) is copied
    // once.
    std::map<std::string, std::string> copies;
    auto relocate = [&](std::string* file, const char* first, const char* second) {
        if (!images || SameFolder(FolderOf(*file), projectFolder))
            return true;
        if (auto known = copies.find(*file); known != copies.end()) {
            *file = known->second;
            return true;
        }
        std::string copy;
        if (!CopyIntoFolder(*file, projectFolder, &copy)) {
            notify().Message(first);
            if (second)
                notify().Message(FillText(
                    second, {path, finalName, withCommands, withImages, withText, *file, copy}));
            return false;
        }
        copies.emplace(*file, copy);
        *file = copy;
        return true;
    };

    std::vector<CProcessStructure> saved;
    saved.reserve(history.size());
    for (const CProcessStructure& original : history) {
        CProcessStructure r = original;
        bool ok = true;
        if (!r.prevImageFile.empty() && r.prevImageFile != kReprocessCommand)
            ok = relocate(&r.prevImageFile, kProjectSaveDirText, kProjectCopy1Format);
        if (ok && !r.curImageFile.empty() && r.curImageFile != kNotRunFile)
            ok = relocate(&r.curImageFile, kProjectSaveDirText, kProjectCopy2Format);
        if (ok && !r.filterFile.empty())
            ok = relocate(&r.filterFile, kProjectSaveFilterText, nullptr);
        if (ok && !r.maskFile.empty())
            ok = relocate(&r.maskFile, kProjectSaveMaskText, nullptr);
        if (!ok)
            return false; // the pending project file is removed; an older one stays whole
        if (images) {
            for (const std::string* p :
                 {&r.prevImageFile, &r.curImageFile, &r.filterFile, &r.maskFile})
                if (!p->empty() && *p != kReprocessCommand && *p != kNotRunFile) {
                    AddOnce(&keptFiles, *p);
                    AddOnce(mainKeptFiles, *p);
                }
        }
        if (commands)
            out->Write(FormatProjectLine(r));
        saved.push_back(std::move(r));
    }
    if (images)
        keepFiles = true;
    if (commands && !out->Commit()) {
        notify().Message(openError(kProjectOpenErrorFormat));
        return false;
    }

    if (text) {
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        localtime_r(&now, &local);
        const std::string report =
            ProjectReportText(saved, image.colorType == ColorRGB, finalName, projectComment, images,
                              ProjectReportDate(local));
        if (!WriteTextSafely(ProjectTextPath(path), report)) {
            notify().Message(openError(kProjectTextOpenErrorFormat));
            return false;
        }
    }
    return true;
}

} // namespace astrivelle
