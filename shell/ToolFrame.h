// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The common frame of a modeless operator tool: one instance per tool class, the caption
/// "Name - image" kept in step with the active image, the window position kept by class name,
/// "Lock Image", the Apply / Cancel / Done row, the operator guards with their texts, and a
/// long operator run on a worker thread with a progress bar, a status line and Cancel.
#pragma once
#include <QDialog>
#include <QPointer>
#include <QString>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "engine/Notify.h"

class QCheckBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QVBoxLayout;
class QHBoxLayout;

namespace astrivelle {

class CProcessWindow;
class OperatorWorker;
class ShellContext;
class ToolFrame;

/// The caption of a tool: its name, then " - " and the image's name when there is one.
QString ToolCaption(const QString& toolName, const CProcessWindow* image);

/// What a worker reports through: progress and status are posted to the frame's own thread,
/// the cancel flag is the frame's Cancel button.
class ToolProgress : public IProgress {
public:
    explicit ToolProgress(ToolFrame* frame) : frame_(frame) {}
    void SetProgress(long step, long total) override;
    void SetStatus(const std::string& text) override;

private:
    QPointer<ToolFrame> frame_;
};

class ToolFrame : public QDialog {
    Q_OBJECT
public:
    /// What the frame adds around the tool's own controls.
    enum Feature : unsigned {
        LockImage = 1,   ///< the "Lock Image" check
        ApplyRow = 2,    ///< Apply, Cancel and Done
        ProgressRow = 4, ///< progress bar and status line
        ImageCaption = 8 ///< " - image" in the caption
    };
    static constexpr unsigned kImageTool = LockImage | ApplyRow | ProgressRow | ImageCaption;

    /// `className` keys the instance and the remembered position ("CPixelMath").
    ToolFrame(ShellContext& context, const QString& toolName, const std::string& className,
              unsigned features = kImageTool);
    ~ToolFrame() override;

    ShellContext& Context() { return context_; }
    const QString& ToolName() const { return toolName_; }
    const std::string& ClassName() const { return className_; }

    /// The image the tool works on: the locked image while it is open, else the active image
    /// with the lock cleared. Null, with "No Image Is Available" shown, when there is none.
    CProcessWindow* Target();
    /// The image the caption names (locked or active), without any message.
    CProcessWindow* ShownImage();
    /// The operator guards of `window`; false with the first text shown through the notifier.
    bool CheckGuards(CProcessWindow& window);
    /// Rewrites the caption with the image's name (or the in-progress caption while running).
    void RefreshCaption();

    /// Presses Apply (what the button does): nothing while a worker runs.
    void Apply();

    /// Runs `body` on an operator worker for `window` at the priority of the options: guards
    /// first (their text shown, false), then Apply is disabled, Cancel enabled, the caption
    /// reads "*** Operation In Progress ***" and the progress row follows the body's reports.
    /// `finished(ok)` runs on this frame's thread once the body returned.
    bool StartWorker(CProcessWindow& window, std::function<bool(IProgress&)> body,
                     std::function<void(bool ok)> finished = {});
    /// True from StartWorker until the finishing step ran on this frame's thread.
    bool Busy() const { return busy_; }
    /// Processes events until no worker of this frame is left (tests, closing).
    void WaitForWorker();
    ToolProgress& Progress() { return *progress_; }

    /// The tool that holds `className`, or null.
    static ToolFrame* Find(const std::string& className);
    /// The main frame calls this when the active image changed: every open tool rewrites its
    /// caption and refreshes what it shows of the image.
    static void ActiveImageChanged();
    /// Enables or disables every open tool (INotify::EnableTools).
    static void EnableAll(bool on);
    /// Closes every open tool (program exit); tools with a worker wait for it.
    static void CloseAll();
    /// "Reset All Operator Window &Positions": forgets every remembered position.
    static void ResetPositions(ShellContext& context);

    /// Creates the tool of type T on first use, else restores and raises it. A tool that
    /// works on an image says "Please Open An Image First." when there is none (null then).
    template <class T> static T* ShowTool(ShellContext& context) {
        if (auto* open = dynamic_cast<T*>(Find(T::kClassName))) {
            open->RaiseTool();
            return open;
        }
        if (T::kNeedsImage && !HasImage(context))
            return nullptr;
        auto* tool = new T(context);
        tool->RaiseTool();
        return tool;
    }

protected:
    /// The tool's own controls go here.
    QVBoxLayout* Body() { return body_; }
    /// The button row, for tools that add their own buttons.
    QHBoxLayout* ButtonRow() { return buttons_; }
    /// Apply's work, on the GUI thread.
    virtual void OnApply() {}
    /// The active image changed (after the caption was rewritten).
    virtual void OnImageChanged() {}
    /// A worker of this frame finished.
    virtual void OnWorkerFinished(bool ok) {}

    void closeEvent(QCloseEvent* event) override;
    void reject() override; // ESC closes like Done

public:
    QCheckBox* lockCheck = nullptr;
    QPushButton* applyButton = nullptr;
    QPushButton* cancelButton = nullptr;
    QPushButton* doneButton = nullptr;
    QProgressBar* progressBar = nullptr;
    QLabel* statusLine = nullptr;

private:
    friend class ToolProgress;
    ShellContext& context_;
    QString toolName_;
    std::string className_;
    unsigned features_;
    QVBoxLayout* body_ = nullptr;
    QHBoxLayout* buttons_ = nullptr;
    CProcessWindow* lockedTo_ = nullptr;
    std::unique_ptr<ToolProgress> progress_;
    std::unique_ptr<OperatorWorker> worker_;
    std::thread reaper_;
    std::shared_ptr<std::atomic<bool>> reaped_;
    bool busy_ = false;

    static bool HasImage(ShellContext& context);
    void RaiseTool();
    void RememberPosition();
    void RestorePosition();
    void LockToggled(bool on);
    void FinishWorker(bool ok, std::function<void(bool)> finished);
    void ReapWorker();
    static std::map<std::string, ToolFrame*>& Registry();
};

} // namespace astrivelle
