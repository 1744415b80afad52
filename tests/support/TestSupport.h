// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Shared test helpers: scratch folders, recording notifier and progress, small images.
#pragma once
#include <filesystem>
#include <string>
#include <vector>

#include "engine/Image.h"
#include "engine/Notify.h"

namespace astrivelle::test {

/// A fresh folder under the system temp dir, removed when the object goes.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    const std::filesystem::path& path() const { return path_; }
    std::string file(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

/// Records every text the engine shows.
class RecordingNotify : public INotify {
public:
    std::vector<std::string> messages;
    std::vector<std::string> captions;
    std::vector<std::string> questions;
    Answer answer = Answer::No;
    /// The folder a folder picker answers with; empty answers nothing was chosen.
    std::string folderAnswer;
    std::vector<std::string> folderTitles;
    int historyChanges = 0;
    void Message(const std::string& text, const std::string&) override { messages.push_back(text); }
    Answer Ask(const std::string& text, bool) override {
        questions.push_back(text);
        return answer;
    }
    bool ChooseFolder(const std::string& title, std::string* folder) override {
        folderTitles.push_back(title);
        if (folderAnswer.empty())
            return false;
        *folder = folderAnswer;
        return true;
    }
    void SetCaption(const std::string& c) override { captions.push_back(c); }
    void HistoryChanged() override { ++historyChanges; }
};

class RecordingProgress : public IProgress {
public:
    std::vector<std::string> statuses;
    long lastStep = -1, lastTotal = -1;
    void SetProgress(long step, long total) override {
        lastStep = step;
        lastTotal = total;
    }
    void SetStatus(const std::string& text) override { statuses.push_back(text); }
};

/// A mono (type 9) or RGB (type 1) image with both planes filled by fn(slot, x, y).
template <class Fn> void MakeImage(Image& img, int w, int h, std::uint32_t colorType, Fn fn) {
    img.SetGeometryFits(KindFITS, colorType, 0, Data16, w, h);
    img.AllocatePlanes(1);
    for (int s : img.Slots())
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                float v = static_cast<float>(fn(s, x, y));
                img.curPlane[s][y * w + x] = v;
                img.prevPlane[s][y * w + x] = v;
            }
}

/// Path of a file under ../shared/data/real, or empty when the real data is absent.
std::string RealData(const std::string& relative);

/// Runs a shell command, returns its exit status and fills `output` with stdout+stderr.
int RunCommand(const std::string& command, std::string* output = nullptr);

/// True when the program is on PATH.
bool HaveProgram(const std::string& name);

} // namespace astrivelle::test
