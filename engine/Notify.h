// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The engine's two seams to whatever front end runs it: notifications and progress.
#pragma once
#include <atomic>
#include <string>

namespace astrivelle {

/// Answers to the questions the engine asks.
enum class Answer { Yes, No, Cancel };

/// Everything the engine would show a user: message boxes, captions, cursors, questions and
/// tool enabling. The fixed texts pass through verbatim. A front end that shows nothing may
/// use the default implementations, which do nothing and answer No.
class INotify {
public:
    virtual ~INotify() = default;
    /// A message box with the given text (and optional title).
    virtual void Message(const std::string& text, const std::string& title = {}) {}
    /// A Yes/No (or Yes/No/Cancel) question.
    virtual Answer Ask(const std::string& text, bool withCancel = false) { return Answer::No; }
    /// A folder picker with the given title. `folder` holds the start folder on entry and the
    /// chosen folder on return; false when nothing was chosen (the default).
    virtual bool ChooseFolder(const std::string& title, std::string* folder) { return false; }
    /// The caption of the window showing an image.
    virtual void SetCaption(const std::string& caption) {}
    virtual void SetWaitCursor(bool on) {}
    /// Enables or disables the open tool windows and the history's blend controls.
    virtual void EnableTools(bool on) {}
    /// The history list of an image changed (a step was added or replaced).
    virtual void HistoryChanged() {}
    /// The planes of an image changed: refill its display bitmap and readouts.
    virtual void ImageChanged() {}
    /// Process history: opens the tool of `operation` (restoring or focusing it), loads the
    /// parameter text into it with the tool's own parse, and presses its Apply when `apply`
    /// is set. True when a tool took the step; false (the default, and for operators without
    /// a tool) lets the engine replay the step itself when `apply` is set.
    virtual bool ShowTool(const std::string& operation, const std::string& parameters,
                          bool apply) {
        return false;
    }
    /// Process history: true when the tool of `operation` is open with its Apply disabled,
    /// i.e. it is running and a forward step of that operator must wait.
    virtual bool ToolBusy(const std::string& operation) { return false; }
    virtual void Beep() {}
};

/// A notifier that shows nothing; used where no front end is attached.
INotify& SilentNotify();

/// What a long operator or file operation reports through, and the cancel flag it polls.
class IProgress {
public:
    virtual ~IProgress() = default;
    virtual void SetProgress(long step, long total) {}
    virtual void SetStatus(const std::string& text) {}
    /// Cooperative cancel: workers test it between passes, files or blocks of pixels.
    bool Cancelled() const { return cancel_.load(std::memory_order_relaxed); }
    void RequestCancel() { cancel_.store(true, std::memory_order_relaxed); }
    void ResetCancel() { cancel_.store(false, std::memory_order_relaxed); }

private:
    std::atomic<bool> cancel_{false};
};

} // namespace astrivelle
