// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The frame of the image-set sheets: pages, input list, output folder, runs.
#include "shell/FileSetFrame.h"
#include "shell/PostToGui.h"

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMetaObject>
#include <QProgressBar>
#include <QPushButton>
#include <QTabWidget>
#include <QThread>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <set>

#include "engine/SystemOptions.h"
#include "engine/workbench/MainWindow.h"
#include "fileio/FileFilters.h"
#include "imagesets/FileSetRules.h"
#include "shell/FileSetSheets.h"
#include "shell/MainFrame.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

std::set<FileSetFrame*>& OpenSheets() {
    static std::set<FileSetFrame*> sheets;
    return sheets;
}

constexpr int kExcludeColumn = 1;
constexpr int kReferenceColumn = 2;

} // namespace

// ---- the frame -----------------------------------------------------------------------------

FileSetFrame::FileSetFrame(ShellContext& context, const QString& title,
                           const std::string& className, FileSetTraits traits)
    : ToolFrame(context, title, className, 0), traits_(std::move(traits)),
      progress_(std::make_unique<FileSetProgress>(this)),
      workerNotify_(std::make_unique<GuiNotify>(context.Model().notify())) {
    pages = new QTabWidget(this);
    pages->setObjectName("pages");
    auto* methodsPage = new QWidget(pages);
    methodsPage->setObjectName("methodsPage");
    methods_ = new QVBoxLayout(methodsPage);
    pages->addTab(methodsPage, QStringLiteral("Methods"));
    Body()->addWidget(pages);
    BuildControlPage();

    auto* row = new QHBoxLayout;
    runProgress = new QProgressBar(this);
    runProgress->setObjectName("progress");
    runProgress->setRange(0, kFileOpPhases);
    runProgress->setValue(0);
    runProgress->setTextVisible(false);
    counter = new QLabel(this);
    counter->setObjectName("counter");
    status = new QLabel(this);
    status->setObjectName("status");
    status->setMinimumWidth(160);
    row->addWidget(runProgress, 1);
    row->addWidget(counter);
    row->addWidget(status, 1);
    Body()->addLayout(row);

    runButton = MakeButton(this, traits_.runText, "run");
    cancelRunButton = MakeButton(this, QStringLiteral("Cancel"), "cancelRun");
    cancelRunButton->setEnabled(false);
    newInputButton = MakeButton(this, QStringLiteral("Select New &Input"), "newInput");
    closeButton = MakeButton(this, QStringLiteral("&Done"), "done");
    ButtonRow()->addWidget(runButton);
    ButtonRow()->addWidget(cancelRunButton);
    ButtonRow()->addWidget(newInputButton);
    ButtonRow()->addWidget(closeButton);
    connect(runButton, &QPushButton::clicked, this, [this] { Run(); });
    connect(cancelRunButton, &QPushButton::clicked, this, [this] {
        if (running_)
            progress_->RequestCancel();
    });
    connect(newInputButton, &QPushButton::clicked, this, [this] {
        fileList->clear();
        status->clear();
        counter->clear();
        runProgress->setValue(0);
        pages->setCurrentIndex(1);
    });
    connect(closeButton, &QPushButton::clicked, this, [this] { close(); });

    OpenSheets().insert(this);
    RefreshOutputLists();
}

FileSetFrame::~FileSetFrame() {
    OpenSheets().erase(this);
    if (running_) {
        progress_->RequestCancel();
        while (running_)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    if (worker_)
        worker_->Join();
}

void FileSetFrame::BuildControlPage() {
    auto* page = new QWidget(pages);
    page->setObjectName("controlPage");
    auto* layout = new QVBoxLayout(page);

    auto* inputBox = new QGroupBox(QStringLiteral("Input Files"), page);
    auto* inputLayout = new QVBoxLayout(inputBox);
    fileList = new QTreeWidget(inputBox);
    fileList->setObjectName("fileList");
    fileList->setRootIsDecorated(false);
    fileList->setSelectionMode(QAbstractItemView::ExtendedSelection);
    QStringList headers{QStringLiteral("File")};
    if (traits_.excludeColumn || traits_.referenceColumn) {
        headers << QStringLiteral("Exclude") << QStringLiteral("Reference");
    }
    fileList->setHeaderLabels(headers);
    fileList->setColumnHidden(kExcludeColumn, !traits_.excludeColumn);
    fileList->setColumnHidden(kReferenceColumn, !traits_.referenceColumn);
    inputLayout->addWidget(fileList);
    if (traits_.referenceColumn)
        connect(fileList, &QTreeWidget::itemChanged, this, [this](QTreeWidgetItem* item, int col) {
            // One reference at most.
            if (col != kReferenceColumn || item->checkState(col) != Qt::Checked)
                return;
            const QSignalBlocker quiet(fileList);
            for (int i = 0; i < fileList->topLevelItemCount(); ++i)
                if (fileList->topLevelItem(i) != item)
                    fileList->topLevelItem(i)->setCheckState(kReferenceColumn, Qt::Unchecked);
        });

    addButton = MakeButton(inputBox, QStringLiteral("&Add..."), "addFiles");
    removeButton = MakeButton(inputBox, QStringLiteral("&Remove"), "removeFiles");
    clearButton = MakeButton(inputBox, QStringLiteral("Clear"), "clearFiles");
    inputLists = new QComboBox(inputBox);
    inputLists->setObjectName("inputLists");
    useOutputsButton = MakeButton(inputBox, QStringLiteral("Use Outputs"), "useOutputs");
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(addButton);
    buttons->addWidget(removeButton);
    buttons->addWidget(clearButton);
    buttons->addStretch(1);
    buttons->addWidget(inputLists);
    buttons->addWidget(useOutputsButton);
    inputLayout->addLayout(buttons);
    layout->addWidget(inputBox);
    connect(addButton, &QPushButton::clicked, this, [this] { BrowseFiles(); });
    connect(removeButton, &QPushButton::clicked, this, [this] { RemoveSelected(); });
    connect(clearButton, &QPushButton::clicked, this, [this] { fileList->clear(); });
    connect(useOutputsButton, &QPushButton::clicked, this,
            [this] { UseOutputsOf(inputLists->currentText().toStdString()); });

    auto* form = new QFormLayout;
    outputDirectory = new QLineEdit(page);
    outputDirectory->setObjectName("outputDirectory");
    browseButton = MakeButton(page, QStringLiteral("Browse..."), "chooseDirectory");
    auto* dirRow = new QHBoxLayout;
    dirRow->addWidget(outputDirectory, 1);
    dirRow->addWidget(browseButton);
    form->addRow(QStringLiteral("Output Directory"), dirRow);
    connect(browseButton, &QPushButton::clicked, this, [this] { ChooseDirectory(); });
    if (traits_.hasPrefix) {
        prefixEdit = new QLineEdit(Q(traits_.defaultPrefix), page);
        prefixEdit->setObjectName("prefix");
        prefixEdit->setMaximumWidth(160);
        form->addRow(QStringLiteral("Prefix"), prefixEdit);
    }
    layout->addLayout(form);

    auto* listBox = new QGroupBox(QStringLiteral("File List"), page);
    auto* listLayout = new QVBoxLayout(listBox);
    outputLists = new QTreeWidget(listBox);
    outputLists->setObjectName("outputLists");
    outputLists->setHeaderHidden(true);
    listLayout->addWidget(outputLists);
    layout->addWidget(listBox);

    // The next operations take this run's outputs as their input.
    auto* next = new QHBoxLayout;
    for (const FileSetSheetEntry& entry : FileSetSheets()) {
        if (entry.nextText.isEmpty() || entry.nextText == traits_.runText || !entry.asFrame)
            continue;
        const QString name = QStringLiteral("next") + QString(entry.nextText).remove(' ');
        QPushButton* button = MakeButton(listBox, entry.nextText, name.toLatin1().constData());
        next->addWidget(button);
        const FileSetSheetEntry* e = &entry;
        connect(button, &QPushButton::clicked, this, [this, e] {
            std::vector<std::string> outputs = last_.outputs;
            CFileOpList list;
            if (outputs.empty() && FileOpLists().Find(traits_.operation, &list))
                outputs = ListPaths(list);
            OpenWithInputs(Context(), *e, outputs);
        });
    }
    next->addStretch(1);
    listLayout->addLayout(next);

    pages->addTab(page, QStringLiteral("Control"));
}

INotify& FileSetFrame::Notify() {
    return Context().Model().notify();
}

void FileSetFrame::Say(const std::string& text) {
    status->setText(Q(text));
    if (!text.empty())
        Notify().Message(text);
}

bool FileSetFrame::ReadNumber(QLineEdit* edit, double* value) {
    bool ok = false;
    const double v = edit->text().trimmed().toDouble(&ok);
    if (!ok) {
        Say("Please Enter a Real Number.");
        edit->setFocus();
        return false;
    }
    *value = v;
    return true;
}

void FileSetFrame::AddRow(const std::string& path) {
    auto* item = new QTreeWidgetItem(fileList, QStringList{Q(path)});
    if (traits_.excludeColumn)
        item->setCheckState(kExcludeColumn, Qt::Unchecked);
    if (traits_.referenceColumn)
        item->setCheckState(kReferenceColumn, Qt::Unchecked);
}

void FileSetFrame::AddFiles(const QStringList& paths) {
    for (const QString& p : paths)
        AddRow(p.toStdString());
}

void FileSetFrame::SetInputFiles(const std::vector<std::string>& paths) {
    fileList->clear();
    for (const std::string& p : paths)
        AddRow(p);
}

std::vector<std::string> FileSetFrame::InputFiles() const {
    std::vector<std::string> files;
    for (int i = 0; i < fileList->topLevelItemCount(); ++i)
        files.push_back(fileList->topLevelItem(i)->text(0).toStdString());
    return files;
}

std::vector<std::string> FileSetFrame::IncludedFiles() const {
    std::vector<std::string> files;
    for (int i = 0; i < fileList->topLevelItemCount(); ++i) {
        const QTreeWidgetItem* item = fileList->topLevelItem(i);
        if (traits_.excludeColumn && item->checkState(kExcludeColumn) == Qt::Checked)
            continue;
        files.push_back(item->text(0).toStdString());
    }
    return files;
}

std::string FileSetFrame::ReferenceFile() const {
    if (!traits_.referenceColumn)
        return {};
    for (int i = 0; i < fileList->topLevelItemCount(); ++i) {
        const QTreeWidgetItem* item = fileList->topLevelItem(i);
        if (item->checkState(kReferenceColumn) == Qt::Checked)
            return item->text(0).toStdString();
    }
    return {};
}

bool FileSetFrame::SetReferenceFile(const std::string& path) {
    if (!traits_.referenceColumn)
        return false;
    QTreeWidgetItem* found = nullptr;
    for (int i = 0; i < fileList->topLevelItemCount(); ++i) {
        QTreeWidgetItem* item = fileList->topLevelItem(i);
        if (item->text(0).toStdString() == path)
            found = item;
    }
    if (!found)
        return false;
    for (int i = 0; i < fileList->topLevelItemCount(); ++i)
        fileList->topLevelItem(i)->setCheckState(kReferenceColumn, Qt::Unchecked);
    found->setCheckState(kReferenceColumn, Qt::Checked);
    return true;
}

bool FileSetFrame::UseOutputsOf(const std::string& operation) {
    CFileOpList list;
    if (!FileOpLists().Find(operation, &list))
        return false;
    SetInputFiles(ListPaths(list));
    return true;
}

void FileSetFrame::BrowseFiles() {
    const QString filters = QtFilterList(JoinFilters(OpenImageFilterEntries()));
    const QStringList files = QFileDialog::getOpenFileNames(
        this, QStringLiteral("Select Input Image Set For ") + ToolName(),
        Q(Context().Model().lastFolder), filters);
    AddFiles(files);
}

void FileSetFrame::RemoveSelected() {
    const QList<QTreeWidgetItem*> chosen = fileList->selectedItems();
    if (chosen.isEmpty()) {
        Notify().Message("Please left-click on one or more files to delete.");
        return;
    }
    for (QTreeWidgetItem* item : chosen)
        delete item;
}

void FileSetFrame::ChooseDirectory() {
    std::string folder = outputDirectory->text().toStdString();
    if (Notify().ChooseFolder(traits_.directoryTitle, &folder))
        outputDirectory->setText(Q(folder));
}

void FileSetFrame::RefreshOutputLists() {
    outputLists->clear();
    const QString chosen = inputLists->currentText();
    inputLists->clear();
    for (const CFileOpList& list : FileOpLists().All()) {
        auto* top = new QTreeWidgetItem(outputLists, QStringList{Q(OutputListText(list))});
        top->setData(0, Qt::UserRole, Q(list.operation));
        for (const CImageFileInfo& info : list.files)
            new QTreeWidgetItem(top, QStringList{Q(info.path)});
        inputLists->addItem(Q(list.operation));
    }
    const int at = inputLists->findText(chosen);
    if (at >= 0)
        inputLists->setCurrentIndex(at);
    useOutputsButton->setEnabled(inputLists->count() > 0 && !running_);
}

void FileSetFrame::RefreshAllSheets() {
    for (FileSetFrame* sheet : OpenSheets())
        sheet->RefreshOutputLists();
}

bool FileSetFrame::CheckInputs(const std::vector<std::string>& files,
                               std::vector<std::string>* usable) {
    usable->clear();
    if (traits_.checkKeyword.empty()) {
        *usable = files;
        return true;
    }
    CImageFileList list;
    std::vector<std::string> rejected;
    CheckFiles(traits_.checkKeyword, traits_.setKeyword, files, &list, &rejected);
    if (list.size() < traits_.minFiles) {
        Say(traits_.noUsableText);
        return false;
    }
    if (!ConfirmRejected(Notify(), traits_.operationWord, rejected)) {
        status->setText(kThreadCanceledText);
        return false;
    }
    for (const CImageFileInfo& info : list)
        usable->push_back(info.path);
    return true;
}

bool FileSetFrame::StartChecks(std::vector<std::string>* usable, std::string* folder,
                               std::string* prefix) {
    if (running_)
        return false;
    if (const std::string refusal = FileOpStartRefusal(traits_.kind); !refusal.empty()) {
        Say(refusal);
        return false;
    }
    const std::vector<std::string> files = IncludedFiles();
    if (files.size() < traits_.minFiles) {
        Say(traits_.noImageText);
        return false;
    }
    if (prefixEdit) {
        std::string message;
        if (!CheckPrefix(prefixEdit->text().toStdString(), prefix, &message)) {
            Say(message);
            prefixEdit->setFocus();
            return false;
        }
    }
    std::string message;
    if (!ResolveOutputDirectory(outputDirectory->text().toStdString(), files, folder, &message)) {
        Say(message);
        return false;
    }
    outputDirectory->setText(Q(*folder));
    return CheckInputs(files, usable);
}

bool FileSetFrame::Run() {
    std::vector<std::string> usable;
    std::string folder, prefix;
    if (!StartChecks(&usable, &folder, &prefix))
        return false;
    FileSetBody body;
    if (!Prepare(usable, folder, prefix, &body))
        return false;

    if (worker_)
        worker_->Join();
    worker_ = std::make_unique<FileOpWorker>();
    progress_->ResetCancel();
    runProgress->setRange(0, kFileOpPhases);
    runProgress->setValue(0);
    counter->clear();
    status->clear();
    SetRunning(true);
    QPointer<FileSetFrame> self(this);
    FileSetProgress* progress = progress_.get();
    INotify* notify = workerNotify_.get();
    const bool started = worker_->Start(
        [self, progress, notify, body] {
            PostCall(self, [result = body(*progress, *notify)](FileSetFrame& f) mutable {
                f.FinishRun(std::move(result));
            });
        },
        GetThreadPriorityWord(), &Notify());
    if (!started)
        SetRunning(false);
    return started;
}

void FileSetFrame::SetRunning(bool on) {
    running_ = on;
    runButton->setEnabled(!on);
    cancelRunButton->setEnabled(on);
    newInputButton->setEnabled(!on);
    closeButton->setEnabled(!on);
    addButton->setEnabled(!on);
    removeButton->setEnabled(!on);
    clearButton->setEnabled(!on);
    useOutputsButton->setEnabled(!on && inputLists->count() > 0);
    methods_->parentWidget()->setEnabled(!on);
    if (on)
        setWindowTitle(QStringLiteral("*** Operation In Progress ***"));
    else
        setWindowTitle(ToolName());
}

void FileSetFrame::FinishRun(FileOpResult result) {
    if (worker_)
        worker_->Join();
    last_ = std::move(result);
    if (!last_.status.empty())
        status->setText(Q(last_.status));
    else if (last_.end == FileOpEnd::Cancelled)
        status->setText(kThreadCanceledText);
    if (!last_.outputs.empty())
        FileOpLists().Set(MakeOutputList(traits_.operation, OutputsAreColor(), last_.outputs));
    SetRunning(false);
    Finished(last_);
    RefreshAllSheets();
}

bool FileSetFrame::WaitForRun(int timeoutMs) {
    return WaitWhileRunning(running_, timeoutMs);
}

void FileSetFrame::closeEvent(QCloseEvent* event) {
    if (running_) {
        event->ignore();
        return;
    }
    ToolFrame::closeEvent(event);
}

} // namespace astrivelle
