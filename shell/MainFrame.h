// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The main window of the desktop program: one frame per open image in a multiple
/// document area, the menus over the workbench model, the histogram panel, the pixel readout,
/// recent files, drag and drop, and the exit sequence. Every command is the model's own; the
/// frame only shows what the model says.
#pragma once
#include <QMainWindow>
#include <QStringList>

#include <map>
#include <memory>
#include <string>

#include "shell/ShellContext.h"

class QAction;
class QActionGroup;
class QDockWidget;
class QLabel;
class QMdiArea;
class QMdiSubWindow;
class QMenu;

namespace astrivelle {

class CMainWindow;
class HistogramPanel;
class ImageSubWindow;
class ImageView;
class QtNotify;

/// The open dialog's filter for Qt: each "text|patterns|" entry as "text (patterns)",
/// ";;" between them (patterns separated by ';' become spaces).
QString QtFilterList(const std::string& joinedEntries);

/// The recent files list after `path` was opened: it moves (or goes) to the front, no
/// duplicates, at most `limit` entries.
void AddRecentFile(std::vector<std::string>& list, const std::string& path, std::size_t limit = 8);

class MainFrame : public QMainWindow, public ShellContext {
    Q_OBJECT
public:
    /// Loads the setup file (the default one when `setupPath` is empty), starts the model and
    /// builds the window. Exit writes the setup back to the same file.
    explicit MainFrame(QWidget* parent = nullptr);
    explicit MainFrame(const std::string& setupPath, QWidget* parent = nullptr);
    ~MainFrame() override;

    // ---- ShellContext -------------------------------------------------------------------
    CMainWindow& Model() override;
    QWidget* MainWidget() override { return this; }
    CProcessWindow* ActiveImage() override;
    /// May be called from any thread: the refresh runs on the user interface thread.
    void ImageChanged(CProcessWindow* image) override;
    CSetupParams& Setup() override;

    /// Opens files (the command line, dropped files, the open dialog); returns the number
    /// opened. Each opened file goes to the front of the recent files.
    int OpenFiles(const QStringList& paths);

    QtNotify& Notifier() { return *notify_; }
    QMdiArea* Area() const { return area_; }
    HistogramPanel* Histogram() const { return histogram_; }
    /// The view and frame of an open image, or null.
    ImageView* ViewOf(const CProcessWindow* image) const;
    ImageSubWindow* SubWindowOf(const CProcessWindow* image) const;
    /// A menu command by its object name ("actionUndo", "actionOpen", ...), or null.
    QAction* Action(const QString& objectName) const;
    /// The status bar's pixel readout.
    QString ReadoutText() const;
    /// Makes an open image active (its frame too).
    void Activate(CProcessWindow* image);
    /// Re-tests which commands apply (active image, busy, undo/redo availability).
    void RefreshCommands();
    /// Brings the frames in line with the model's list of open images.
    void SyncWindows();

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void BuildMenus();
    void BuildToolMenu(QMenu* menu);
    void WireNotifier();
    QAction* AddAction(QMenu* menu, const QString& text, const QString& objectName,
                       void (MainFrame::*slot)());
    void RefreshRecentMenu();
    void RefreshView(CProcessWindow* image);
    void SubWindowActivated(QMdiSubWindow* sub);
    bool CloseRequested(ImageSubWindow* sub);
    void DropWindow(CProcessWindow* image);
    bool ShowToolForHistory(const std::string& operation, const std::string& parameters,
                            bool apply);
    bool ToolBusyFor(const std::string& operation);
    void SetCaptionOf(CProcessWindow* image, const std::string& caption);

    // Menu commands.
    void OpenDialog();
    void OpenProjectDialog();
    void SaveActive();
    void SaveActiveAs();
    void SaveAllImages();
    void CloseActive();
    void CloseAllImages();
    void UndoActive();
    void RedoActive();
    void DuplicateActive();
    void CopyPortionDialog();
    void NewImageDialog();
    void ConvertColorTypeDialog();
    void FitActive();
    void ZoomInActive();
    void ZoomOutActive();
    void AutoStretchToggled();
    void ResetToolPositions();

    std::string setupPath_;
    QtNotify* notify_ = nullptr;
    std::unique_ptr<CMainWindow> model_;
    QMdiArea* area_ = nullptr;
    QDockWidget* histogramDock_ = nullptr;
    HistogramPanel* histogram_ = nullptr;
    QLabel* readout_ = nullptr;
    QMenu* recentMenu_ = nullptr;
    QActionGroup* scaleGroup_ = nullptr;
    std::map<const CProcessWindow*, ImageSubWindow*> windows_;
    bool syncing_ = false;
    bool escapePressed_ = false;
    bool toolsEnabled_ = true;
};

} // namespace astrivelle
