// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The desktop program's notifier: the engine's texts in message boxes, its questions as
/// Yes/No boxes, captions, cursors and refreshes handed to the main frame, all on the user
/// interface thread whatever thread the engine speaks from.
#pragma once
#include <QObject>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/Notify.h"

class QWidget;

namespace astrivelle {

class CProcessWindow;

class QtNotify : public QObject, public INotify {
    Q_OBJECT
public:
    explicit QtNotify(QWidget* parentWidget);
    ~QtNotify() override;

    // ---- INotify ------------------------------------------------------------------------
    void Message(const std::string& text, const std::string& title = {}) override;
    Answer Ask(const std::string& text, bool withCancel = false) override;
    bool ChooseFolder(const std::string& title, std::string* folder) override;
    void SetCaption(const std::string& caption) override;
    void SetWaitCursor(bool on) override;
    void EnableTools(bool on) override;
    void HistoryChanged() override;
    void ImageChanged() override;
    bool ShowTool(const std::string& operation, const std::string& parameters, bool apply) override;
    bool ToolBusy(const std::string& operation) override;
    void Beep() override;

    /// The notifier one image speaks through: the same boxes, with its captions and
    /// refreshes addressed to that image. Owned here until ForgetImage.
    INotify* ForImage(CProcessWindow* image);
    void ForgetImage(CProcessWindow* image);

    // ---- what the main frame does with them (called on the user interface thread) --------
    /// `image` is null for the model's own notifications (the main caption, the active image).
    std::function<void(CProcessWindow* image, const std::string& caption)> onCaption;
    std::function<void(CProcessWindow* image)> onImageChanged;
    std::function<void(CProcessWindow* image)> onHistoryChanged;
    std::function<void(bool on)> onToolsEnabled;
    std::function<bool(const std::string&, const std::string&, bool)> onShowTool;
    std::function<bool(const std::string&)> onToolBusy;

    // ---- test hook ----------------------------------------------------------------------
    /// While recording, no box is shown: texts and questions are kept, questions answered
    /// with `recordedAnswer`, folder pickers with `recordedFolder` (empty: nothing chosen).
    void SetRecording(bool on) { recording_ = on; }
    bool Recording() const { return recording_; }
    std::vector<std::string> RecordedMessages() const;
    std::vector<std::string> RecordedQuestions() const;
    std::string LastMessage() const;
    void ClearRecorded();
    Answer recordedAnswer = Answer::No;
    std::string recordedFolder;

    /// Runs `fn` on the user interface thread: at once when called there, else queued.
    void OnGui(std::function<void()> fn);

private:
    class ImageNotify;
    void ImageCaption(CProcessWindow* image, const std::string& caption);
    void ImageRefresh(CProcessWindow* image, bool history);
    void Cursor(bool on);
    /// Runs `fn` on the user interface thread and waits for it.
    void OnGuiAndWait(const std::function<void()>& fn);

    QWidget* parentWidget_;
    bool recording_ = false;
    int waitDepth_ = 0;
    mutable std::mutex recordMutex_;
    std::vector<std::string> messages_;
    std::vector<std::string> questions_;
    std::mutex imagesMutex_;
    std::map<CProcessWindow*, std::unique_ptr<ImageNotify>> images_;
};

} // namespace astrivelle
