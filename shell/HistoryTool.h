// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The process history tool: the command list of the active image with its ">>" and
/// "~~ " marks, the details of the step shown, undo, redo, go to a step (double-click), next
/// and all commands, copy, cut, paste and delete of commands, the blend controls of the step
/// shown, the print text and the project save. Everything it does is the engine's
/// (CProcessWindow's history members); the tool only shows and forwards.
#pragma once
#include <QString>
#include <QTimer>

#include <string>
#include <vector>

#include "engine/Notify.h"
#include "shell/ToolFrame.h"

class QListWidget;
class QPushButton;

namespace astrivelle {

class CHistoryBlendControls;
class CProcessWindow;
class ShellContext;

class CProcessHistory : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CProcessHistory";
    static constexpr bool kNeedsImage = false; ///< with no image it shows "No Operations"
    static constexpr int kForwardIntervalMs = 2000;

    /// Opens the tool (or restores and raises it) on the active image. The main frame's
    /// "Process History" command calls this.
    static CProcessHistory* Show(ShellContext& context);
    /// The open history tool, or null.
    static CProcessHistory* Instance();
    /// Reloads the open tool, if any: the main frame calls this when the history or the
    /// active image changed.
    static void ReloadIfOpen();

    explicit CProcessHistory(ShellContext& context);
    ~CProcessHistory() override;

    /// Reads the active image's list, details, blend values and command availability again.
    void Reload();

    /// The image whose list is shown (the active image at the last reload), or null.
    CProcessWindow* ShownWindow() const { return shown_; }
    /// Row indexes selected in the command list, ascending.
    std::vector<int> SelectedRows() const;

    // ---- the commands (what the buttons do) ----------------------------------------------
    void UndoStep();
    void RedoStep();
    void GoToRow(int row);
    void NextCommandStep();
    /// Starts forward processing: one step at once, then one per tick of the pacing timer
    /// while the window stays live. Holding Ctrl + Shift asks "Cancel Forward Processing?".
    void StartAllCommands();
    bool ForwardRunning() const { return forwardImage_ != nullptr; }
    /// The pacing of All Commands (2000 ms; tests shorten it).
    void SetForwardInterval(int ms) { forwardInterval_ = ms; }
    /// The cancel flag of forward processing (raised while Ctrl and Shift are held).
    IProgress& ForwardCancel() { return forwardCancel_; }
    void CopySelected();
    void CutSelected();
    void PasteAfterSelected();
    void DeleteSelected();
    /// "&Print Text": the print text of the history in a read-only window (with a save to a
    /// file), after the consistency question when the sequence is broken.
    void PrintText();
    /// "&Save As": the consistency question, then the project save dialog.
    void SaveProjectDialog();
    /// The save without its dialog: checks the name (its text shown when refused), then
    /// writes the project `folder`/`name`.qxj with commands and images, and the text report
    /// when `withText`. True when saved.
    bool SaveProjectAs(const QString& name, const QString& folder, bool withText,
                       const QString& comment = {});

    // ---- controls (tests reach them by these names) ---------------------------------------
    QListWidget* rowList = nullptr;
    QListWidget* detailList = nullptr;
    CHistoryBlendControls* blend = nullptr;
    QPushButton* undoButton = nullptr;
    QPushButton* redoButton = nullptr;
    QPushButton* nextButton = nullptr;
    QPushButton* allButton = nullptr;
    QPushButton* copyButton = nullptr;
    QPushButton* cutButton = nullptr;
    QPushButton* pasteButton = nullptr;
    QPushButton* deleteButton = nullptr;
    QPushButton* printButton = nullptr;
    QPushButton* saveButton = nullptr;
    QPushButton* closeButton = nullptr;

protected:
    void OnImageChanged() override { Reload(); }

private:
    CProcessWindow* shown_ = nullptr;
    bool sequenceBroken_ = false;

    // Forward processing.
    CProcessWindow* forwardImage_ = nullptr;
    int forwardInterval_ = kForwardIntervalMs;
    QTimer forwardTimer_;
    QTimer keyPoll_;
    IProgress forwardCancel_;
    QString keptCaption_;

    /// The image the commands work on: the active one, or null with "No Image Is Available".
    CProcessWindow* Image();
    /// Tells the rest of the program that `window` changed, then reloads.
    void Changed(CProcessWindow* window);
    void UpdateButtons();
    void BlendChanged(bool maskChanged);
    void ForwardTick();
    void FinishForward();
    bool CancelConfirmed(CProcessWindow& window);
    void PollCancelKeys();
};

} // namespace astrivelle
