// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The process history tool.
#include "shell/HistoryTool.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFile>
#include <QFileDialog>
#include <QFontDatabase>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QSplitter>
#include <QVBoxLayout>

#include <algorithm>
#include <ctime>

#include "engine/SetupParams.h"
#include "engine/workbench/CommandClipboard.h"
#include "engine/workbench/History.h"
#include "engine/workbench/MainWindow.h"
#include "engine/workbench/Project.h"
#include "shell/BlendControls.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

constexpr const char* kToolName = "Process History";

/// The dark red of a list whose sequence is broken.
QColor BrokenColor() {
    return QColor(kHistoryBrokenColor, 0, 0);
}

const std::vector<CProcessStructure>& ClipboardOf(const CProcessWindow& w) {
    return w.copiedCommands ? *w.copiedCommands : SharedCommandClipboard().Records();
}

QPushButton* AddButton(QWidget* parent, QGridLayout* grid, const char* text, const char* name,
                       int row, int column) {
    auto* button = new QPushButton(text, parent);
    button->setObjectName(name);
    button->setAutoDefault(false);
    grid->addWidget(button, row, column);
    return button;
}

/// The print text in a read-only window, with a save to a text file.
class PrintTextWindow : public QDialog {
public:
    PrintTextWindow(QWidget* parent, const QString& caption, const QString& text, INotify& notify)
        : QDialog(parent) {
        setAttribute(Qt::WA_DeleteOnClose);
        setObjectName("historyPrintText");
        setWindowTitle(caption);
        auto* layout = new QVBoxLayout(this);
        auto* view = new QPlainTextEdit(this);
        view->setObjectName("printText");
        view->setReadOnly(true);
        view->setLineWrapMode(QPlainTextEdit::NoWrap);
        view->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        view->setPlainText(text);
        layout->addWidget(view);
        auto* buttons = new QDialogButtonBox(this);
        auto* save = buttons->addButton("Save To File...", QDialogButtonBox::ActionRole);
        buttons->addButton(QDialogButtonBox::Close);
        layout->addWidget(buttons);
        connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
        connect(save, &QPushButton::clicked, this, [this, text, &notify] {
            const QString path = QFileDialog::getSaveFileName(this, "Save Print Text", QString(),
                                                              "Text Files (*.txt)");
            if (!path.isEmpty() && !WriteTextSafely(path.toStdString(), text.toStdString()))
                notify.Message("Could not write " + path.toStdString());
        });
        resize(640, 480);
    }
};

/// The project save dialog: name, folder, the three checks and the comment.
class ProjectSaveDialog : public QDialog {
public:
    ProjectSaveDialog(QWidget* parent, const QString& folder) : QDialog(parent) {
        setObjectName("CProjectSave");
        setWindowTitle("Save Project");
        auto* form = new QFormLayout(this);
        name = new QLineEdit(this);
        name->setObjectName("projectName");
        form->addRow("Project Name", name);
        auto* folderRow = new QHBoxLayout;
        this->folder = new QLineEdit(folder, this);
        this->folder->setObjectName("projectFolder");
        auto* browse = new QPushButton("Browse...", this);
        folderRow->addWidget(this->folder, 1);
        folderRow->addWidget(browse);
        form->addRow("Project Save Directory", folderRow);
        // Commands and intermediate images are always saved.
        auto* commands = new QCheckBox("Commands", this);
        commands->setChecked(true);
        commands->setEnabled(false);
        auto* images = new QCheckBox("Intermediate Images", this);
        images->setChecked(true);
        images->setEnabled(false);
        text = new QCheckBox("Process History Text", this);
        text->setChecked(true);
        form->addRow(commands);
        form->addRow(images);
        form->addRow(text);
        comment = new QLineEdit(this);
        form->addRow("Comment", comment);
        OkCancel(this, form, [this] {
            if (onSave && onSave(this->name->text(), this->folder->text(), text->isChecked(),
                                 comment->text()))
                return true;
            this->name->setFocus();
            return false;
        });
        connect(browse, &QPushButton::clicked, this, [this] {
            const QString chosen = QFileDialog::getExistingDirectory(this, "Project Save Directory",
                                                                     this->folder->text());
            if (!chosen.isEmpty())
                this->folder->setText(chosen);
        });
    }
    std::function<bool(const QString&, const QString&, bool, const QString&)> onSave;
    QLineEdit* name = nullptr;
    QLineEdit* folder = nullptr;
    QCheckBox* text = nullptr;
    QLineEdit* comment = nullptr;
};

} // namespace

// ---- opening ---------------------------------------------------------------------------------

CProcessHistory* CProcessHistory::Show(ShellContext& context) {
    CProcessHistory* tool = ToolFrame::ShowTool<CProcessHistory>(context);
    if (tool)
        tool->Reload();
    return tool;
}

CProcessHistory* CProcessHistory::Instance() {
    return dynamic_cast<CProcessHistory*>(ToolFrame::Find(kClassName));
}

void CProcessHistory::ReloadIfOpen() {
    if (CProcessHistory* tool = Instance())
        tool->Reload();
}

CProcessHistory::CProcessHistory(ShellContext& context)
    : ToolFrame(context, kToolName, kClassName, ImageCaption) {
    auto* split = new QSplitter(Qt::Vertical, this);
    rowList = new QListWidget(split);
    rowList->setObjectName("commands");
    rowList->setSelectionMode(QAbstractItemView::ExtendedSelection);
    rowList->setMinimumHeight(120);
    detailList = new QListWidget(split);
    detailList->setObjectName("details");
    detailList->setSelectionMode(QAbstractItemView::NoSelection);
    detailList->setMinimumHeight(80);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);
    Body()->addWidget(split, 1);

    auto* blendBox = new QGroupBox("Blend", this);
    auto* blendLayout = new QVBoxLayout(blendBox);
    blend = new CHistoryBlendControls(blendBox);
    blendLayout->addWidget(blend);
    Body()->addWidget(blendBox);

    auto* commands = new QGridLayout;
    undoButton = AddButton(this, commands, "&Undo", "undo", 0, 0);
    redoButton = AddButton(this, commands, "&Redo", "redo", 0, 1);
    nextButton = AddButton(this, commands, "&Next Command", "next", 0, 2);
    allButton = AddButton(this, commands, "&All Commands", "all", 0, 3);
    copyButton = AddButton(this, commands, "&Copy", "copy", 1, 0);
    cutButton = AddButton(this, commands, "Cu&t", "cut", 1, 1);
    pasteButton = AddButton(this, commands, "&Paste", "paste", 1, 2);
    deleteButton = AddButton(this, commands, "&Delete", "delete", 1, 3);
    printButton = AddButton(this, commands, "&Print Text", "print", 2, 0);
    saveButton = AddButton(this, commands, "&Save As", "save", 2, 1);
    closeButton = AddButton(this, commands, "D&one", "done", 2, 3);
    Body()->addLayout(commands);

    connect(undoButton, &QPushButton::clicked, this, [this] { UndoStep(); });
    connect(redoButton, &QPushButton::clicked, this, [this] { RedoStep(); });
    connect(nextButton, &QPushButton::clicked, this, [this] { NextCommandStep(); });
    connect(allButton, &QPushButton::clicked, this, [this] { StartAllCommands(); });
    connect(copyButton, &QPushButton::clicked, this, [this] { CopySelected(); });
    connect(cutButton, &QPushButton::clicked, this, [this] { CutSelected(); });
    connect(pasteButton, &QPushButton::clicked, this, [this] { PasteAfterSelected(); });
    connect(deleteButton, &QPushButton::clicked, this, [this] { DeleteSelected(); });
    connect(printButton, &QPushButton::clicked, this, [this] { PrintText(); });
    connect(saveButton, &QPushButton::clicked, this, [this] { SaveProjectDialog(); });
    connect(closeButton, &QPushButton::clicked, this, [this] { close(); });
    connect(rowList, &QListWidget::itemDoubleClicked, this,
            [this](QListWidgetItem* item) { GoToRow(rowList->row(item)); });
    connect(rowList, &QListWidget::itemSelectionChanged, this, [this] { UpdateButtons(); });
    connect(blend, &CHistoryBlendControls::BlendChanged, this,
            [this](bool maskChanged) { BlendChanged(maskChanged); });

    forwardTimer_.setSingleShot(true);
    connect(&forwardTimer_, &QTimer::timeout, this, [this] { ForwardTick(); });
    keyPoll_.setInterval(50);
    connect(&keyPoll_, &QTimer::timeout, this, [this] { PollCancelKeys(); });

    if (!context.Setup().toolPositions.count(kClassName))
        resize(420, 560);
    Reload();
}

CProcessHistory::~CProcessHistory() {
    if (ForwardRunning())
        FinishForward();
}

// ---- showing ---------------------------------------------------------------------------------

void CProcessHistory::Reload() {
    CProcessWindow* w = Context().ActiveImage();
    if (forwardImage_ && Context().Model().IsOpen(forwardImage_))
        w = forwardImage_; // forward processing stays on its image
    shown_ = w;
    if (ForwardRunning())
        setWindowTitle(kAllCommandsCancelHint);
    else
        RefreshCaption();

    HistoryListView view;
    if (w)
        view = BuildHistoryListView(*w);
    else
        view.rows.push_back(kHistoryNoOperations);
    sequenceBroken_ = view.sequenceBroken;

    {
        const QSignalBlocker quiet(rowList);
        rowList->clear();
        for (const std::string& row : view.rows) {
            auto* item = new QListWidgetItem(QString::fromStdString(row), rowList);
            if (view.sequenceBroken)
                item->setForeground(BrokenColor());
        }
        if (w && w->currentStep >= 0 && w->currentStep < rowList->count()) {
            rowList->setCurrentRow(w->currentStep);
            rowList->scrollToItem(rowList->item(w->currentStep));
        }
    }
    detailList->clear();
    for (const std::string& detail : view.details)
        detailList->addItem(QString::fromStdString(detail));

    if (w && w->currentStep >= 0 && w->currentStep < static_cast<int>(w->history.size()))
        blend->SetValues(w->history[w->currentStep], w->image.colorType == ColorRGB);
    else
        blend->SetValues(CProcessStructure(), w && w->image.colorType == ColorRGB);
    UpdateButtons();
}

void CProcessHistory::UpdateButtons() {
    CProcessWindow* w = shown_;
    const bool idle = w && !ForwardRunning();
    const bool rows = w && !w->history.empty();
    const bool selected = !rowList->selectedItems().isEmpty();
    undoButton->setEnabled(idle && UndoAvailable(*w));
    redoButton->setEnabled(idle && RedoAvailable(*w));
    nextButton->setEnabled(idle && ForwardAvailable(*w));
    allButton->setEnabled(idle && ForwardAvailable(*w));
    copyButton->setEnabled(idle && rows && selected);
    cutButton->setEnabled(idle && rows && selected);
    deleteButton->setEnabled(idle && rows && selected);
    pasteButton->setEnabled(idle && rows && !ClipboardOf(*w).empty());
    printButton->setEnabled(idle && rows);
    saveButton->setEnabled(idle && rows);
    blend->setEnabled(idle && BlendControlsAvailable(*w));
}

std::vector<int> CProcessHistory::SelectedRows() const {
    std::vector<int> rows;
    for (const QModelIndex& index : rowList->selectionModel()->selectedRows())
        rows.push_back(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

CProcessWindow* CProcessHistory::Image() {
    CProcessWindow* w = Context().ActiveImage();
    if (!w)
        Context().Model().notify().Message(kHistoryNoImageText);
    return w;
}

void CProcessHistory::Changed(CProcessWindow* window) {
    if (window)
        Context().ImageChanged(window);
    Reload();
}

// ---- moving through the steps ----------------------------------------------------------------

void CProcessHistory::UndoStep() {
    if (CProcessWindow* w = Image()) {
        w->Undo();
        Changed(w);
    }
}

void CProcessHistory::RedoStep() {
    if (CProcessWindow* w = Image()) {
        w->Redo();
        Changed(w);
    }
}

void CProcessHistory::GoToRow(int row) {
    if (ForwardRunning())
        return;
    if (CProcessWindow* w = Image()) {
        w->GoToStep(row);
        Changed(w);
    }
}

void CProcessHistory::NextCommandStep() {
    if (CProcessWindow* w = Image()) {
        w->NextCommand();
        Changed(w);
    }
}

// ---- forward processing ----------------------------------------------------------------------

void CProcessHistory::StartAllCommands() {
    CProcessWindow* w = Image();
    if (!w || ForwardRunning() || !ForwardAvailable(*w))
        return;
    forwardImage_ = w;
    forwardCancel_.ResetCancel();
    keptCaption_ = windowTitle();
    setWindowTitle(kAllCommandsCancelHint);
    w->notify().SetWaitCursor(true);
    w->notify().EnableTools(false);
    setEnabled(true); // this tool keeps its window; its commands wait (UpdateButtons)
    keyPoll_.start();
    UpdateButtons();

    const bool ok = w->NextCommand();
    Changed(w);
    PollCancelKeys();
    if (!ok || CancelConfirmed(*w)) {
        FinishForward();
        return;
    }
    forwardTimer_.start(forwardInterval_);
}

void CProcessHistory::ForwardTick() {
    CProcessWindow* w = forwardImage_;
    if (!w || !Context().Model().IsOpen(w)) {
        forwardImage_ = nullptr;
        FinishForward();
        return;
    }
    if (w->currentStep + 1 >= static_cast<int>(w->history.size())) {
        FinishForward();
        return;
    }
    // A step that runs on a worker is waited for by finding the image busy at a tick.
    if (!w->threadBusy && !w->opRunning) {
        w->quietForward = true;
        const bool ok = w->NextCommand();
        w->quietForward = false;
        Changed(w);
        if (!ok) { // a step that fails would fail again at every tick
            FinishForward();
            return;
        }
    }
    PollCancelKeys();
    if (CancelConfirmed(*w)) {
        FinishForward();
        return;
    }
    forwardTimer_.start(forwardInterval_);
}

void CProcessHistory::PollCancelKeys() {
    const Qt::KeyboardModifiers keys = QGuiApplication::queryKeyboardModifiers();
    if ((keys & Qt::ControlModifier) && (keys & Qt::ShiftModifier))
        forwardCancel_.RequestCancel();
}

bool CProcessHistory::CancelConfirmed(CProcessWindow& window) {
    if (!forwardCancel_.Cancelled())
        return false;
    keyPoll_.stop(); // no new request while the question is open
    const bool stop = window.notify().Ask(kAllCommandsCancelQuestion) == Answer::Yes;
    forwardCancel_.ResetCancel();
    if (!stop)
        keyPoll_.start();
    return stop;
}

void CProcessHistory::FinishForward() {
    forwardTimer_.stop();
    keyPoll_.stop();
    CProcessWindow* w = forwardImage_;
    forwardImage_ = nullptr;
    INotify& notify = w && Context().Model().IsOpen(w) ? w->notify() : Context().Model().notify();
    notify.EnableTools(true);
    notify.SetWaitCursor(false);
    setWindowTitle(keptCaption_);
    Reload();
}

// ---- editing the command list ----------------------------------------------------------------

void CProcessHistory::CopySelected() {
    if (CProcessWindow* w = Image()) {
        w->CopyCommands(SelectedRows());
        UpdateButtons(); // Paste follows the clipboard
    }
}

void CProcessHistory::CutSelected() {
    if (CProcessWindow* w = Image()) {
        w->CutCommands(SelectedRows());
        Changed(w);
    }
}

void CProcessHistory::PasteAfterSelected() {
    if (CProcessWindow* w = Image()) {
        const std::vector<int> rows = SelectedRows();
        // After the last row selected; none selected gives the engine's text.
        w->PasteCommands(rows.empty() ? -1 : rows.back());
        Changed(w);
    }
}

void CProcessHistory::DeleteSelected() {
    if (CProcessWindow* w = Image()) {
        w->DeleteCommands(SelectedRows());
        Changed(w);
    }
}

// ---- blend -----------------------------------------------------------------------------------

void CProcessHistory::BlendChanged(bool maskChanged) {
    CProcessWindow* w = Image();
    if (!w || w != shown_ || !BlendControlsAvailable(*w))
        return;
    CProcessStructure values = w->history[w->currentStep];
    blend->GetValues(&values);
    w->ReapplyBlend(maskChanged, &values);
    Changed(w);
}

// ---- print text and project ------------------------------------------------------------------

void CProcessHistory::PrintText() {
    CProcessWindow* w = Image();
    if (!w || !ConfirmHistoryConsistent(*w, false))
        return;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    const QString text = QString::fromStdString(HistoryPrintText(*w, local));
    auto* window =
        new PrintTextWindow(this, ToolCaption("Print Text", w), text, Context().Model().notify());
    window->show();
}

void CProcessHistory::SaveProjectDialog() {
    CProcessWindow* w = Image();
    if (!w || !ConfirmHistoryConsistent(*w, true))
        return;
    CMainWindow& model = Context().Model();
    const std::string folder = !model.lastFolder.empty() ? model.lastFolder : model.projectFolder;
    ProjectSaveDialog dialog(this, QString::fromStdString(folder));
    dialog.comment->setText(QString::fromStdString(w->projectComment));
    dialog.onSave = [this](const QString& name, const QString& where, bool withText,
                           const QString& comment) {
        return SaveProjectAs(name, where, withText, comment);
    };
    dialog.exec();
}

bool CProcessHistory::SaveProjectAs(const QString& name, const QString& folder, bool withText,
                                    const QString& comment) {
    CProcessWindow* w = Image();
    if (!w)
        return false;
    std::string trimmed, text;
    if (!ValidateProjectName(name.toStdString(), &trimmed, &text)) {
        w->notify().Message(text);
        return false;
    }
    CMainWindow& model = Context().Model();
    std::string where = folder.trimmed().toStdString();
    if (where.empty())
        where = model.projectFolder;
    model.lastFolder = where;
    w->projectComment = comment.toStdString();
    // The state shown goes to its step file first, so that the project names it.
    w->SaveStepImage();
    const bool ok =
        w->SaveProject(ProjectPathFor(where, trimmed), w->filePath, "Y", "Y", withText ? "Y" : "N");
    Changed(w);
    return ok;
}

} // namespace astrivelle
