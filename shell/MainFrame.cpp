// SPDX-License-Identifier: GPL-3.0-or-later
/// \file MainFrame: the frames of the open images, the menus over the model, the exit sequence.
#include "shell/MainFrame.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QDockWidget>
#include <QFileDialog>
#include <QFileInfo>
#include <QIcon>
#include <QKeyEvent>
#include <QLabel>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenu>
#include <QMenuBar>
#include <QMimeData>
#include <QPainter>
#include <QPixmap>
#include <QPolygonF>
#include <QStatusBar>
#include <QThread>
#include <QUrl>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "engine/SetupParams.h"
#include "engine/SystemOptions.h"
#include "engine/workbench/History.h"
#include "engine/workbench/MainWindow.h"
#include "fileio/FileFilters.h"
#include "shell/FileSetSheets.h"
#include "shell/HistogramPanel.h"
#include "shell/HistoryTool.h"
#include "shell/ImageDialogs.h"
#include "shell/ImageView.h"
#include "shell/OperatorTools.h"
#include "shell/PropertiesTool.h"
#include "shell/QtNotify.h"
#include "shell/SystemOptionsTool.h"
#include "shell/ToolControls.h"
#include "shell/ToolFrame.h"

namespace astrivelle {

namespace {

constexpr int kRecentFileLimit = 8;

/// The window icon: the picture of the installed astrivelle.svg (a star on a night-blue
/// disc), drawn here so that no icon theme is searched (the desktop entry names the
/// installed icon for the desktop itself).
QIcon ProgramIcon() {
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(24, 36, 72));
    p.drawEllipse(QRectF(1, 1, 30, 30));
    QPolygonF star;
    for (int i = 0; i < 8; ++i) {
        const double r = i % 2 == 0 ? 12.0 : 3.0, a = i * 3.14159265 / 4;
        star << QPointF(16 + r * std::sin(a), 16 - r * std::cos(a));
    }
    p.setBrush(QColor(245, 236, 200));
    p.drawPolygon(star);
    return QIcon(pixmap);
}

} // namespace

QString QtFilterList(const std::string& joined) {
    QStringList filters;
    std::size_t at = 0;
    while (at < joined.size()) {
        const std::size_t bar1 = joined.find('|', at);
        if (bar1 == std::string::npos)
            break;
        const std::size_t bar2 = joined.find('|', bar1 + 1);
        if (bar2 == std::string::npos)
            break;
        QString text = Q(joined.substr(at, bar1 - at)).trimmed();
        QString patterns = Q(joined.substr(bar1 + 1, bar2 - bar1 - 1));
        // Qt reads the patterns from the last parentheses, separated by spaces.
        const int paren = text.lastIndexOf(QLatin1String(" ("));
        if (paren > 0 && text.endsWith(QLatin1Char(')')))
            text.truncate(paren);
        patterns.replace(QLatin1Char(';'), QLatin1Char(' '));
        filters << text + QStringLiteral(" (") + patterns.simplified() + QLatin1Char(')');
        at = bar2 + 1;
    }
    return filters.join(QStringLiteral(";;"));
}

void AddRecentFile(std::vector<std::string>& list, const std::string& path, std::size_t limit) {
    list.erase(std::remove(list.begin(), list.end(), path), list.end());
    list.insert(list.begin(), path);
    if (list.size() > limit)
        list.resize(limit);
}

// ---- construction ---------------------------------------------------------------------------

MainFrame::MainFrame(QWidget* parent) : MainFrame(std::string(), parent) {}

MainFrame::MainFrame(const std::string& setupPath, QWidget* parent)
    : QMainWindow(parent), setupPath_(setupPath.empty() ? DefaultSetupPath() : setupPath) {
    setWindowTitle(kMainTitle);
    setWindowIcon(ProgramIcon());
    setAcceptDrops(true);
    notify_ = new QtNotify(this);
    model_ = std::make_unique<CMainWindow>(notify_);
    model_->setupPath = setupPath_;

    // Start-up: the setup file over the defaults, the accelerator, the folders.
    InitializeSystemOptions(setupPath_, *notify_);
    model_->Start();
    const std::string& last = Setup().strings[SetupLastFolder];
    if (!last.empty())
        model_->lastFolder = last;
    if (!Setup().strings[SetupProjectFolder].empty() &&
        std::filesystem::is_directory(Setup().strings[SetupProjectFolder]))
        model_->projectFolder = Setup().strings[SetupProjectFolder];

    area_ = new QMdiArea(this);
    area_->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    area_->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    const std::string& bg = Setup().Background();
    const QColor background = bg == "R"    ? QColor(96, 32, 32)
                              : bg == "G"  ? QColor(32, 80, 40)
                              : bg == "B"  ? QColor(34, 44, 78)
                              : bg == "W"  ? QColor(235, 235, 235)
                              : bg == "LG" ? QColor(170, 170, 170)
                              : bg == "DG" ? QColor(72, 72, 72)
                                           : QColor(12, 12, 12);
    area_->setBackground(background);
    setCentralWidget(area_);
    connect(area_, &QMdiArea::subWindowActivated, this, &MainFrame::SubWindowActivated);

    histogram_ = new HistogramPanel(this);
    histogramDock_ = new QDockWidget(QStringLiteral("Histogram"), this);
    histogramDock_->setObjectName(QStringLiteral("histogramDock"));
    histogramDock_->setWidget(histogram_);
    addDockWidget(Qt::RightDockWidgetArea, histogramDock_);
    resizeDocks({histogramDock_}, {280}, Qt::Horizontal);

    readout_ = new QLabel(this);
    readout_->setMinimumWidth(260);
    statusBar()->addPermanentWidget(readout_);
    auto* starLine = new QLabel(this); // the star under the pointer, beside the pixel readout
    starLine->setObjectName(QStringLiteral("starReadout"));
    statusBar()->addPermanentWidget(starLine);

    BuildMenus();
    WireNotifier();
    qApp->installEventFilter(this);
    resize(1100, 760);
    RefreshCommands();
}

MainFrame::~MainFrame() {
    qApp->removeEventFilter(this);
    // The views must not read images the model is about to free.
    for (auto& [image, sub] : windows_) {
        sub->View()->Detach();
        sub->closeWithoutAsking = true;
    }
    notify_->onCaption = nullptr;
    notify_->onImageChanged = nullptr;
    notify_->onHistoryChanged = nullptr;
    notify_->onToolsEnabled = nullptr;
    notify_->onShowTool = nullptr;
    notify_->onToolBusy = nullptr;
    ToolFrame::CloseAll();
    windows_.clear();
    delete area_;
    area_ = nullptr;
    model_.reset();
}

void MainFrame::WireNotifier() {
    notify_->onCaption = [this](CProcessWindow* image, const std::string& caption) {
        SetCaptionOf(image, caption);
    };
    notify_->onImageChanged = [this](CProcessWindow* image) {
        RefreshView(image ? image : model_->ActiveImage());
    };
    notify_->onHistoryChanged = [this](CProcessWindow* image) {
        // A worker's end comes here too, after its image was released: show its result.
        RefreshView(image ? image : model_->ActiveImage());
        CProcessHistory::ReloadIfOpen();
        RefreshCommands();
    };
    notify_->onToolsEnabled = [this](bool on) {
        toolsEnabled_ = on;
        ToolFrame::EnableAll(on);
        RefreshCommands();
    };
    notify_->onShowTool = [this](const std::string& op, const std::string& params, bool apply) {
        return ShowToolForHistory(op, params, apply);
    };
    notify_->onToolBusy = [this](const std::string& op) { return ToolBusyFor(op); };
}

QAction* MainFrame::AddAction(QMenu* menu, const QString& text, const QString& objectName,
                              void (MainFrame::*slot)()) {
    auto* action = menu->addAction(text);
    action->setObjectName(objectName);
    if (slot)
        connect(action, &QAction::triggered, this, slot);
    return action;
}

void MainFrame::BuildMenus() {
    QMenu* file = menuBar()->addMenu(QStringLiteral("&File"));
    AddAction(file, QStringLiteral("&Open..."), QStringLiteral("actionOpen"),
              &MainFrame::OpenDialog)
        ->setShortcut(QKeySequence::Open);
    AddAction(file, QStringLiteral("Open &Project..."), QStringLiteral("actionOpenProject"),
              &MainFrame::OpenProjectDialog);
    file->addSeparator();
    AddAction(file, QStringLiteral("&Save"), QStringLiteral("actionSave"), &MainFrame::SaveActive)
        ->setShortcut(QKeySequence::Save);
    AddAction(file, QStringLiteral("Save &As..."), QStringLiteral("actionSaveAs"),
              &MainFrame::SaveActiveAs)
        ->setShortcut(QKeySequence::SaveAs);
    AddAction(file, QStringLiteral("Save A&ll"), QStringLiteral("actionSaveAll"),
              &MainFrame::SaveAllImages);
    file->addSeparator();
    AddAction(file, QStringLiteral("&Close"), QStringLiteral("actionClose"),
              &MainFrame::CloseActive)
        ->setShortcut(QKeySequence::Close);
    AddAction(file, QStringLiteral("Close A&ll"), QStringLiteral("actionCloseAll"),
              &MainFrame::CloseAllImages);
    file->addSeparator();
    recentMenu_ = file->addMenu(QStringLiteral("Recent &Files"));
    recentMenu_->setObjectName(QStringLiteral("menuRecentFiles"));
    RefreshRecentMenu();
    file->addSeparator();
    QAction* exit = file->addAction(QStringLiteral("E&xit"));
    exit->setObjectName(QStringLiteral("actionExit"));
    exit->setShortcut(QKeySequence::Quit);
    connect(exit, &QAction::triggered, this, &QWidget::close);

    QMenu* edit = menuBar()->addMenu(QStringLiteral("&Edit"));
    AddAction(edit, QStringLiteral("&Undo"), QStringLiteral("actionUndo"), &MainFrame::UndoActive)
        ->setShortcut(QKeySequence::Undo);
    AddAction(edit, QStringLiteral("&Redo"), QStringLiteral("actionRedo"), &MainFrame::RedoActive)
        ->setShortcut(QKeySequence::Redo);
    edit->addSeparator();
    AddAction(edit, QStringLiteral("&Duplicate"), QStringLiteral("actionDuplicate"),
              &MainFrame::DuplicateActive);
    AddAction(edit, QStringLiteral("Copy &Portion..."), QStringLiteral("actionCopyPortion"),
              &MainFrame::CopyPortionDialog);
    AddAction(edit, QStringLiteral("&New Image..."), QStringLiteral("actionNewImage"),
              &MainFrame::NewImageDialog)
        ->setShortcut(QKeySequence::New);

    QMenu* image = menuBar()->addMenu(QStringLiteral("&Image"));
    AddAction(image, QStringLiteral("Convert &Color Type..."),
              QStringLiteral("actionConvertColorType"), &MainFrame::ConvertColorTypeDialog);

    QMenu* process = menuBar()->addMenu(QStringLiteral("&Process"));
    std::map<QString, QMenu*> submenus;
    for (const OperatorTool& tool : OperatorTools()) {
        QMenu* menu = process;
        if (!tool.submenu.isEmpty()) {
            QMenu*& sub = submenus[tool.submenu];
            if (!sub) {
                sub = process->addMenu(tool.submenu);
                sub->setObjectName(QStringLiteral("menu") + QString(tool.submenu).remove('&'));
            }
            menu = sub;
        }
        QAction* a = menu->addAction(tool.menuText);
        a->setObjectName(tool.objectName);
        auto show = tool.show;
        connect(a, &QAction::triggered, this, [this, show] { show(*this); });
    }

    BuildFileSetMenu(menuBar()->addMenu(QStringLiteral("Image &Sets")), *this);

    QMenu* view = menuBar()->addMenu(QStringLiteral("&View"));
    AddAction(view, QStringLiteral("&Fit To Window"), QStringLiteral("actionFit"),
              &MainFrame::FitActive);
    AddAction(view, QStringLiteral("Zoom &In"), QStringLiteral("actionZoomIn"),
              &MainFrame::ZoomInActive)
        ->setShortcut(QKeySequence::ZoomIn);
    AddAction(view, QStringLiteral("Zoom &Out"), QStringLiteral("actionZoomOut"),
              &MainFrame::ZoomOutActive)
        ->setShortcut(QKeySequence::ZoomOut);
    QMenu* scales = view->addMenu(QStringLiteral("&Scale"));
    scales->setObjectName(QStringLiteral("menuScale"));
    scaleGroup_ = new QActionGroup(this);
    const std::vector<std::string>& names = ScaleChoices();
    for (std::size_t i = 0; i < names.size(); ++i) {
        QAction* a = scales->addAction(Q(names[i]));
        a->setObjectName(QStringLiteral("actionScale%1").arg((i + 1) * 10));
        a->setCheckable(true);
        scaleGroup_->addAction(a);
        const double scale = (i + 1) / 10.0;
        connect(a, &QAction::triggered, this, [this, scale] {
            if (ImageView* v = ViewOf(model_->ActiveImage()))
                v->SetScale(scale);
        });
    }
    view->addSeparator();
    QAction* stretch = AddAction(view, QStringLiteral("&Auto Stretch"),
                                 QStringLiteral("actionAutoStretch"), nullptr);
    stretch->setCheckable(true);
    stretch->setChecked(Setup().displayAdjustment == "Auto Stretch");
    connect(stretch, &QAction::toggled, this, &MainFrame::AutoStretchToggled);
    view->addSeparator();
    QAction* dock = histogramDock_->toggleViewAction();
    dock->setObjectName(QStringLiteral("actionHistogram"));
    view->addAction(dock);

    BuildToolMenu(menuBar()->addMenu(QStringLiteral("&Tools")));
}

void MainFrame::BuildToolMenu(QMenu* tools) {
    // A tool item is enabled when its tool is part of the program.
    QAction* history = tools->addAction(QStringLiteral("&History..."));
    history->setObjectName(QStringLiteral("actionHistory"));
    connect(history, &QAction::triggered, this, [this] { CProcessHistory::Show(*this); });
    QAction* options = tools->addAction(QStringLiteral("&System Options..."));
    options->setObjectName(QStringLiteral("actionSystemOptions"));
    connect(options, &QAction::triggered, this, [this] { CSystemOption::Show(*this); });
    QAction* properties = tools->addAction(QStringLiteral("&Properties..."));
    properties->setObjectName(QStringLiteral("actionProperties"));
    connect(properties, &QAction::triggered, this, [this] { CImgAttrib::Show(*this); });
    tools->addSeparator();
    AddAction(tools, QStringLiteral("Reset All Operator Window &Positions"),
              QStringLiteral("actionResetPositions"), &MainFrame::ResetToolPositions);
}

void MainFrame::RefreshRecentMenu() {
    recentMenu_->clear();
    const std::vector<std::string>& recent = Setup().recentFiles;
    for (std::size_t i = 0; i < recent.size(); ++i) {
        const QString path = Q(recent[i]);
        QAction* a = recentMenu_->addAction(QStringLiteral("&%1 %2").arg(i + 1).arg(path));
        connect(a, &QAction::triggered, this, [this, path] { OpenFiles({path}); });
    }
    recentMenu_->setEnabled(!recent.empty());
}

// ---- ShellContext ---------------------------------------------------------------------------

CMainWindow& MainFrame::Model() {
    return *model_;
}

CProcessWindow* MainFrame::ActiveImage() {
    return model_->ActiveImage();
}

CSetupParams& MainFrame::Setup() {
    return Options().setup;
}

void MainFrame::ImageChanged(CProcessWindow* image) {
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(
            this, [this, image] { ImageChanged(image); }, Qt::QueuedConnection);
        return;
    }
    RefreshView(image);
    CProcessHistory::ReloadIfOpen();
    RefreshCommands();
}

// ---- the frames of the images ---------------------------------------------------------------

ImageSubWindow* MainFrame::SubWindowOf(const CProcessWindow* image) const {
    auto it = windows_.find(image);
    return it == windows_.end() ? nullptr : it->second;
}

ImageView* MainFrame::ViewOf(const CProcessWindow* image) const {
    ImageSubWindow* sub = SubWindowOf(image);
    return sub ? sub->View() : nullptr;
}

QAction* MainFrame::Action(const QString& objectName) const {
    return findChild<QAction*>(objectName);
}

QString MainFrame::ReadoutText() const {
    return readout_->text();
}

void MainFrame::SyncWindows() {
    if (syncing_)
        return;
    syncing_ = true;
    // Frames whose image the model let go.
    for (auto it = windows_.begin(); it != windows_.end();) {
        if (model_->IsOpen(it->first)) {
            ++it;
            continue;
        }
        ImageSubWindow* sub = it->second;
        notify_->ForgetImage(const_cast<CProcessWindow*>(it->first));
        it = windows_.erase(it);
        sub->View()->Detach();
        sub->closeWithoutAsking = true;
        sub->close();
    }
    // Frames for new images, in the order of opening.
    for (CProcessWindow* w : model_->images().List()) {
        if (windows_.count(w))
            continue;
        w->SetNotify(notify_->ForImage(w));
        auto* view = new ImageView(w);
        view->SetAutoStretch(Action(QStringLiteral("actionAutoStretch"))->isChecked());
        view->onReadout = [this](const QString& text) { readout_->setText(text); };
        view->onStarReadout = [this](const QString& text) {
            findChild<QLabel*>(QStringLiteral("starReadout"))->setText(text);
        };
        auto* sub = new ImageSubWindow(view);
        sub->setWindowIcon(windowIcon());
        sub->setWindowTitle(Q(w->Caption()));
        sub->onCloseRequest = [this](ImageSubWindow* s) { return CloseRequested(s); };
        area_->addSubWindow(sub);
        windows_[w] = sub;
        // The first size: the image at the initial scale, inside the area.
        const QSize room = area_->viewport()->size();
        const double scale = Setup().initialScaleFlag == 1 ? Setup().scale : 1.0;
        QSize want(static_cast<int>(w->image.width * scale) + 12,
                   static_cast<int>(w->image.height * scale) + 36);
        want = want.boundedTo(
            QSize(std::max(320, room.width() - 20), std::max(240, room.height() - 20)));
        sub->resize(want.expandedTo(QSize(200, 150)));
        sub->show();
        if (Setup().initialScaleFlag == 1)
            view->SetScale(Setup().scale);
        else
            view->FitToWindow();
    }
    syncing_ = false;
    if (CProcessWindow* active = model_->ActiveImage())
        Activate(active);
    else
        histogram_->ShowImage(nullptr);
    RefreshCommands();
}

void MainFrame::Activate(CProcessWindow* image) {
    ImageSubWindow* sub = SubWindowOf(image);
    if (!sub)
        return;
    if (area_->activeSubWindow() != sub) {
        area_->setActiveSubWindow(sub); // SubWindowActivated follows
    } else if (model_->ActiveImage() != image) {
        SubWindowActivated(sub);
    }
    histogram_->ShowImage(image);
}

void MainFrame::SubWindowActivated(QMdiSubWindow* sub) {
    auto* frame = qobject_cast<ImageSubWindow*>(sub);
    if (!frame || syncing_)
        return;
    CProcessWindow* image = frame->View()->Window();
    if (!image || !model_->IsOpen(image))
        return;
    if (model_->ActiveImage() != image) {
        model_->SetActiveImage(image);
        ToolFrame::ActiveImageChanged();
        CProcessHistory::ReloadIfOpen();
    }
    histogram_->ShowImage(image);
    RefreshCommands();
}

bool MainFrame::CloseRequested(ImageSubWindow* sub) {
    CProcessWindow* image = sub->View()->Window();
    if (!image || !model_->IsOpen(image))
        return true;
    if (!model_->CloseImage(image, CloseKind::Query))
        return false; // the image's closing rule told its text
    DropWindow(image);
    return true;
}

void MainFrame::DropWindow(CProcessWindow* image) {
    auto it = windows_.find(image);
    if (it == windows_.end())
        return;
    it->second->View()->Detach();
    windows_.erase(it);
    notify_->ForgetImage(image);
    if (CProcessWindow* active = model_->ActiveImage()) {
        QMetaObject::invokeMethod(
            this,
            [this, active] {
                if (model_->IsOpen(active))
                    Activate(active);
                ToolFrame::ActiveImageChanged();
            },
            Qt::QueuedConnection);
    } else {
        histogram_->ShowImage(nullptr);
        readout_->clear();
        findChild<QLabel*>(QStringLiteral("starReadout"))->clear();
        ToolFrame::ActiveImageChanged();
    }
    RefreshCommands();
}

void MainFrame::RefreshView(CProcessWindow* image) {
    if (!image || !model_->IsOpen(image))
        return;
    if (ImageView* view = ViewOf(image))
        view->Refresh();
    if (image == model_->ActiveImage())
        histogram_->ShowImage(image);
}

void MainFrame::SetCaptionOf(CProcessWindow* image, const std::string& caption) {
    if (!image) {
        // The model's own captions: the main title, or the active image's name.
        if (caption.rfind(kMainTitle, 0) == 0) {
            setWindowTitle(Q(caption));
            return;
        }
        image = model_->ActiveImage();
    }
    if (ImageSubWindow* sub = SubWindowOf(image))
        sub->setWindowTitle(Q(caption));
}

void MainFrame::RefreshCommands() {
    CProcessWindow* w = model_->ActiveImage();
    const bool has = w != nullptr;
    const bool idle = has && !w->threadBusy && toolsEnabled_;
    const bool any = model_->imageCount() > 0;
    auto set = [this](const char* name, bool on) {
        if (QAction* a = Action(QString::fromLatin1(name)))
            a->setEnabled(on);
    };
    for (const char* name :
         {"actionSave", "actionSaveAs", "actionClose", "actionDuplicate", "actionCopyPortion",
          "actionPixelMath", "actionFit", "actionZoomIn", "actionZoomOut"})
        set(name, has);
    set("actionSaveAll", any);
    set("actionCloseAll", any);
    set("actionUndo", idle && UndoAvailable(*w));
    set("actionRedo", idle && RedoAvailable(*w));
    set("actionConvertColorType", has && w->image.colorType != ColorRGB);
    for (QAction* a : scaleGroup_->actions())
        a->setEnabled(has);
}

// ---- opening ------------------------------------------------------------------------------

int MainFrame::OpenFiles(const QStringList& paths) {
    if (paths.isEmpty())
        return 0;
    std::vector<std::string> list;
    for (const QString& p : paths)
        list.push_back(QFileInfo(p).absoluteFilePath().toStdString());
    const std::vector<CProcessWindow*> before = model_->images().List();
    escapePressed_ = false;
    const int opened = model_->OpenImageFiles(list, [this] {
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
        const bool held = escapePressed_;
        escapePressed_ = false;
        return held;
    });
    for (CProcessWindow* w : model_->images().List())
        if (std::find(before.begin(), before.end(), w) == before.end() && !w->filePath.empty())
            AddRecentFile(Setup().recentFiles, w->filePath, kRecentFileLimit);
    if (opened > 0) {
        model_->lastFolder = std::filesystem::path(list.back()).parent_path().string();
        RefreshRecentMenu();
    }
    SyncWindows();
    return opened;
}

void MainFrame::OpenDialog() {
    const std::string joined = JoinFilters(OpenImageFilterEntries());
    const QStringList filters = QtFilterList(joined).split(QStringLiteral(";;"));
    const int index = std::clamp(Setup().fileFilterIndex, 1, static_cast<int>(filters.size()));
    QString selected = filters.value(index - 1);
    const QStringList files =
        QFileDialog::getOpenFileNames(this, QStringLiteral("Open"), Q(model_->lastFolder),
                                      filters.join(QStringLiteral(";;")), &selected);
    if (files.isEmpty())
        return;
    const int chosen = filters.indexOf(selected);
    if (chosen >= 0)
        Setup().fileFilterIndex = chosen + 1;
    OpenFiles(files);
}

void MainFrame::OpenProjectDialog() {
    const QString file =
        QFileDialog::getOpenFileName(this, QStringLiteral("Open Project"), Q(model_->projectFolder),
                                     QStringLiteral("Project (*.qxj)"));
    if (file.isEmpty())
        return;
    model_->LoadProject(file.toStdString());
    SyncWindows();
}

// ---- saving, closing ------------------------------------------------------------------------

void MainFrame::SaveActive() {
    CProcessWindow* w = model_->ActiveImage();
    if (!w) {
        notify_->Message(kPleaseOpenAnImageText);
        return;
    }
    model_->SaveImage(w);
}

void MainFrame::SaveActiveAs() {
    CProcessWindow* w = model_->ActiveImage();
    if (!w) {
        notify_->Message(kPleaseOpenAnImageText);
        return;
    }
    const QStringList filters =
        QtFilterList(JoinFilters(SaveImageFilterEntries())).split(QStringLiteral(";;"));
    QString selected = filters.value(SaveImageFilterIndex(w->image.fileType) - 1);
    for (;;) {
        QString file = QFileDialog::getSaveFileName(this, QStringLiteral("Save As"), Q(w->filePath),
                                                    filters.join(QStringLiteral(";;")), &selected,
                                                    QFileDialog::DontConfirmOverwrite);
        if (file.isEmpty())
            return;
        const SaveNameCheck check = CheckSaveFileName(20, file.toStdString());
        if (!check.accepted) {
            notify_->Message(check.message, check.title);
            continue;
        }
        const bool tiff = filters.indexOf(selected) == 1;
        if (QFileInfo(file).suffix().isEmpty())
            file += tiff ? QStringLiteral(".tif") : QStringLiteral(".fit");
        if (model_->SaveImageAs(file.toStdString(), tiff ? KindTIFF : KindFITS, w)) {
            AddRecentFile(Setup().recentFiles, w->filePath, kRecentFileLimit);
            RefreshRecentMenu();
            SetCaptionOf(w, w->Caption());
        }
        return;
    }
}

void MainFrame::SaveAllImages() {
    model_->SaveAll();
}

void MainFrame::CloseActive() {
    CProcessWindow* w = model_->ActiveImage();
    if (!w) {
        notify_->Message(kPleaseOpenAnImageText);
        return;
    }
    if (model_->CloseImage(w, CloseKind::Menu))
        SyncWindows();
}

void MainFrame::CloseAllImages() {
    if (model_->CloseAll())
        SyncWindows();
}

// ---- edit ---------------------------------------------------------------------------------

void MainFrame::UndoActive() {
    if (CProcessWindow* w = model_->ActiveImage()) {
        w->Undo();
        RefreshView(w);
    }
    CProcessHistory::ReloadIfOpen();
    RefreshCommands();
}

void MainFrame::RedoActive() {
    if (CProcessWindow* w = model_->ActiveImage()) {
        w->Redo();
        RefreshView(w);
    }
    CProcessHistory::ReloadIfOpen();
    RefreshCommands();
}

void MainFrame::DuplicateActive() {
    model_->DuplicateImage();
    SyncWindows();
}

void MainFrame::CopyPortionDialog() {
    CCopyPortion::Show(*this);
    SyncWindows();
}

void MainFrame::NewImageDialog() {
    CNewImage::Show(*this);
    SyncWindows();
}

void MainFrame::ConvertColorTypeDialog() {
    CProcessWindow* w = model_->ActiveImage();
    if (CConvertColorType::Show(*this) && w && model_->IsOpen(w)) {
        SetCaptionOf(w, w->Caption());
        RefreshView(w);
    }
    RefreshCommands();
}

// ---- view ---------------------------------------------------------------------------------

void MainFrame::FitActive() {
    if (ImageView* v = ViewOf(model_->ActiveImage()))
        v->FitToWindow();
}

void MainFrame::ZoomInActive() {
    if (ImageView* v = ViewOf(model_->ActiveImage()))
        v->ZoomIn();
}

void MainFrame::ZoomOutActive() {
    if (ImageView* v = ViewOf(model_->ActiveImage()))
        v->ZoomOut();
}

void MainFrame::AutoStretchToggled() {
    const bool on = Action(QStringLiteral("actionAutoStretch"))->isChecked();
    Setup().displayAdjustment = DisplayAdjustmentChoices()[on ? 1 : 0];
    for (auto& [image, sub] : windows_)
        sub->View()->SetAutoStretch(on);
}

// ---- tools --------------------------------------------------------------------------------

void MainFrame::ResetToolPositions() {
    ToolFrame::ResetPositions(*this);
}

bool MainFrame::ShowToolForHistory(const std::string& operation, const std::string& parameters,
                                   bool apply) {
    const OperatorTool* entry = FindOperatorTool(operation);
    if (!entry)
        return false;
    ToolFrame* tool = entry->show(*this);
    if (!tool || !entry->load(tool, operation, parameters))
        return false;
    if (apply)
        tool->Apply();
    return true;
}

bool MainFrame::ToolBusyFor(const std::string& operation) {
    if (const OperatorTool* entry = FindOperatorTool(operation))
        if (ToolFrame* tool = ToolFrame::Find(entry->className))
            return tool->Busy();
    return false;
}

// ---- exit, drag and drop, keys --------------------------------------------------------------

void MainFrame::closeEvent(QCloseEvent* event) {
    // A worker whose operator has no exit text does not hold the program: wait for it before
    // the model lets the images go.
    bool waitForTools = false;
    model_->ForEachOpenImage([&](CProcessWindow& w) {
        if (!w.threadBusy)
            return;
        bool listed = false;
        for (const MainExitOperator& op : ExitOperatorTable())
            if (std::find(op.names.begin(), op.names.end(), w.currentOp) != op.names.end())
                listed = true;
        if (!listed)
            waitForTools = true;
    });
    if (waitForTools && model_->RunningJobs().empty())
        ToolFrame::CloseAll();
    if (!model_->Exit()) {
        event->ignore();
        return;
    }
    ToolFrame::CloseAll();
    SyncWindows(); // every frame goes: the model has no image left
    event->accept();
}

void MainFrame::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls())
        for (const QUrl& url : event->mimeData()->urls())
            if (url.isLocalFile()) {
                event->acceptProposedAction();
                return;
            }
}

void MainFrame::dropEvent(QDropEvent* event) {
    QStringList files;
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile())
            files << url.toLocalFile();
    if (files.isEmpty())
        return;
    event->acceptProposedAction();
    OpenFiles(files);
}

bool MainFrame::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape)
        escapePressed_ = true;
    return QMainWindow::eventFilter(watched, event);
}

} // namespace astrivelle
