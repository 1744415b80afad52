// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The common frame of a modeless operator tool.
#include "shell/ToolFrame.h"
#include "shell/ToolControls.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMetaObject>
#include <QProgressBar>
#include <QPushButton>
#include <QThread>
#include <QVBoxLayout>

#include "engine/SystemOptions.h"
#include "engine/Worker.h"
#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"

namespace astrivelle {

namespace {
constexpr const char* kInProgressCaption = "*** Operation In Progress ***";
} // namespace

QString ToolCaption(const QString& toolName, const CProcessWindow* image) {
    if (!image)
        return toolName;
    return toolName + " - " + QString::fromStdString(image->title);
}

// ---- progress, posted to the frame's thread ----------------------------------------------

void ToolProgress::SetProgress(long step, long total) {
    QPointer<ToolFrame> frame = frame_;
    if (!frame)
        return;
    QMetaObject::invokeMethod(
        frame.data(),
        [frame, step, total] {
            if (!frame || !frame->progressBar)
                return;
            frame->progressBar->setRange(0, total > 0 ? static_cast<int>(total) : 0);
            frame->progressBar->setValue(static_cast<int>(step));
        },
        Qt::QueuedConnection);
}

void ToolProgress::SetStatus(const std::string& text) {
    QPointer<ToolFrame> frame = frame_;
    if (!frame)
        return;
    const QString shown = QString::fromStdString(text);
    QMetaObject::invokeMethod(
        frame.data(),
        [frame, shown] {
            if (frame && frame->statusLine)
                frame->statusLine->setText(shown);
        },
        Qt::QueuedConnection);
}

// ---- the frame ---------------------------------------------------------------------------

std::map<std::string, ToolFrame*>& ToolFrame::Registry() {
    static std::map<std::string, ToolFrame*> tools;
    return tools;
}

ToolFrame* ToolFrame::Find(const std::string& className) {
    auto it = Registry().find(className);
    return it == Registry().end() ? nullptr : it->second;
}

bool ToolFrame::HasImage(ShellContext& context) {
    if (context.ActiveImage())
        return true;
    context.Model().notify().Message(kPleaseOpenAnImageText);
    return false;
}

ToolFrame::ToolFrame(ShellContext& context, const QString& toolName, const std::string& className,
                     unsigned features)
    : QDialog(context.MainWidget()), context_(context), toolName_(toolName), className_(className),
      features_(features), progress_(std::make_unique<ToolProgress>(this)) {
    setAttribute(Qt::WA_DeleteOnClose);
    setModal(false);
    setObjectName(QString::fromStdString(className));

    auto* outer = new QVBoxLayout(this);
    body_ = new QVBoxLayout;
    outer->addLayout(body_);

    if (features_ & LockImage) {
        lockCheck = new QCheckBox("Lock Image", this);
        lockCheck->setObjectName("lockImage");
        connect(lockCheck, &QCheckBox::toggled, this, [this](bool on) { LockToggled(on); });
        outer->addWidget(lockCheck);
    }
    if (features_ & ProgressRow) {
        auto* row = new QHBoxLayout;
        progressBar = new QProgressBar(this);
        progressBar->setObjectName("progress");
        progressBar->setRange(0, 100);
        progressBar->setValue(0);
        progressBar->setTextVisible(false);
        statusLine = new QLabel(this);
        statusLine->setObjectName("status");
        statusLine->setMinimumWidth(120);
        row->addWidget(progressBar, 1);
        row->addWidget(statusLine, 1);
        outer->addLayout(row);
    }
    buttons_ = new QHBoxLayout;
    buttons_->addStretch(1);
    if (features_ & ApplyRow) {
        applyButton = new QPushButton("Apply", this);
        applyButton->setObjectName("apply");
        applyButton->setDefault(true);
        cancelButton = new QPushButton("Cancel", this);
        cancelButton->setObjectName("cancel");
        cancelButton->setEnabled(false);
        doneButton = new QPushButton("Done", this);
        doneButton->setObjectName("done");
        buttons_->addWidget(applyButton);
        buttons_->addWidget(cancelButton);
        buttons_->addWidget(doneButton);
        connect(applyButton, &QPushButton::clicked, this, [this] { Apply(); });
        connect(cancelButton, &QPushButton::clicked, this, [this] {
            if (busy_)
                progress_->RequestCancel();
        });
        connect(doneButton, &QPushButton::clicked, this, [this] { close(); });
    }
    outer->addLayout(buttons_);

    // One instance per class: a second one replaces nothing, it simply is not registered.
    if (!Find(className_))
        Registry()[className_] = this;
    RestorePosition();
    RefreshCaption();
}

ToolFrame::~ToolFrame() {
    DisconnectFromChildren(this);
    if (busy_ || worker_ || reaper_.joinable())
        WaitForWorker();
    auto it = Registry().find(className_);
    if (it != Registry().end() && it->second == this)
        Registry().erase(it);
}

void ToolFrame::RaiseTool() {
    if (isMinimized())
        showNormal();
    else
        show();
    raise();
    activateWindow();
}

void ToolFrame::RestorePosition() {
    const auto& positions = context_.Setup().toolPositions;
    auto it = positions.find(className_);
    if (it == positions.end())
        return;
    move(it->second.x, it->second.y);
    if (it->second.hasSize && it->second.w > 0 && it->second.h > 0)
        resize(it->second.w, it->second.h);
}

void ToolFrame::RememberPosition() {
    ToolPosition p;
    p.x = x();
    p.y = y();
    p.hasSize = true;
    p.w = width();
    p.h = height();
    context_.Setup().toolPositions[className_] = p;
}

void ToolFrame::ResetPositions(ShellContext& context) {
    context.Setup().toolPositions.clear();
}

CProcessWindow* ToolFrame::ShownImage() {
    CMainWindow& model = context_.Model();
    if (lockCheck && lockCheck->isChecked() && lockedTo_ && model.IsOpen(lockedTo_))
        return lockedTo_;
    return context_.ActiveImage();
}

CProcessWindow* ToolFrame::Target() {
    CProcessWindow* locked = (lockCheck && lockCheck->isChecked()) ? lockedTo_ : nullptr;
    CProcessWindow* target = context_.Model().ResolveToolTarget(&locked);
    lockedTo_ = locked;
    if (lockCheck && lockCheck->isChecked() && !locked) {
        const QSignalBlocker quiet(lockCheck);
        lockCheck->setChecked(false);
    }
    return target;
}

void ToolFrame::LockToggled(bool on) {
    lockedTo_ = on ? context_.ActiveImage() : nullptr;
    if (on && !lockedTo_) {
        const QSignalBlocker quiet(lockCheck);
        lockCheck->setChecked(false);
    }
    RefreshCaption();
}

bool ToolFrame::CheckGuards(CProcessWindow& window) {
    std::string why;
    if (CheckOperatorGuards(window, &why))
        return true;
    context_.Model().notify().Message(why);
    return false;
}

void ToolFrame::RefreshCaption() {
    if (busy_) {
        setWindowTitle(kInProgressCaption);
        return;
    }
    setWindowTitle((features_ & ImageCaption) ? ToolCaption(toolName_, ShownImage()) : toolName_);
}

void ToolFrame::Apply() {
    if (busy_)
        return;
    OnApply();
}

bool ToolFrame::StartWorker(CProcessWindow& window, std::function<bool(IProgress&)> body,
                            std::function<void(bool)> finished) {
    if (busy_)
        return false;
    if (!CheckGuards(window))
        return false;
    ReapWorker();
    progress_->ResetCancel();
    if (progressBar) {
        progressBar->setRange(0, 100);
        progressBar->setValue(0);
    }
    if (statusLine)
        statusLine->clear();
    worker_ = std::make_unique<OperatorWorker>();
    QPointer<ToolFrame> self(this);
    ToolProgress* progress = progress_.get();
    busy_ = true;
    RefreshCaption();
    if (applyButton)
        applyButton->setEnabled(false);
    if (cancelButton)
        cancelButton->setEnabled(true);
    if (doneButton)
        doneButton->setEnabled(false);
    const bool started =
        worker_->Start(window, GetThreadPriorityWord(), [self, progress, body, finished] {
            const bool ok = body(*progress);
            QMetaObject::invokeMethod(
                qApp,
                [self, ok, finished] {
                    if (self)
                        self->FinishWorker(ok, finished);
                },
                Qt::QueuedConnection);
        });
    if (!started) {
        worker_.reset();
        busy_ = false;
        if (applyButton)
            applyButton->setEnabled(true);
        if (cancelButton)
            cancelButton->setEnabled(false);
        if (doneButton)
            doneButton->setEnabled(true);
        RefreshCaption();
    }
    return started;
}

void ToolFrame::FinishWorker(bool ok, std::function<void(bool)> finished) {
    busy_ = false;
    // The worker thread still releases the image and tells the notifier, which may wait for
    // this thread: it is joined elsewhere so that nothing here blocks.
    ReapWorker();
    if (applyButton)
        applyButton->setEnabled(true);
    if (cancelButton)
        cancelButton->setEnabled(false);
    if (doneButton)
        doneButton->setEnabled(true);
    if (statusLine && progress_->Cancelled())
        statusLine->setText("Cancelled");
    RefreshCaption();
    if (finished)
        finished(ok);
    OnWorkerFinished(ok);
}

void ToolFrame::ReapWorker() {
    if (reaper_.joinable()) {
        while (!reaped_->load())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        reaper_.join();
    }
    if (!worker_)
        return;
    reaped_ = std::make_shared<std::atomic<bool>>(false);
    reaper_ = std::thread([worker = std::move(worker_), done = reaped_]() mutable {
        worker->Join();
        worker.reset();
        done->store(true);
    });
}

void ToolFrame::WaitForWorker() {
    while (busy_)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    ReapWorker();
    if (reaper_.joinable()) {
        while (!reaped_->load())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        reaper_.join();
    }
}

void ToolFrame::closeEvent(QCloseEvent* event) {
    if (busy_) {
        // A running tool closes only after its operator: Cancel first.
        event->ignore();
        return;
    }
    RememberPosition();
    // Closed tools are not found again, even before their deletion.
    auto it = Registry().find(className_);
    if (it != Registry().end() && it->second == this)
        Registry().erase(it);
    event->accept();
    QDialog::closeEvent(event);
}

void ToolFrame::reject() {
    close();
}

void ToolFrame::ActiveImageChanged() {
    // Copy first: a tool may close itself while refreshing.
    std::vector<QPointer<ToolFrame>> open;
    for (auto& entry : Registry())
        open.emplace_back(entry.second);
    for (auto& tool : open)
        if (tool) {
            tool->RefreshCaption();
            tool->OnImageChanged();
        }
}

void ToolFrame::EnableAll(bool on) {
    for (auto& entry : Registry())
        if (!entry.second->busy_) // the running tool keeps its Cancel
            entry.second->setEnabled(on);
}

void ToolFrame::CloseAll() {
    std::vector<QPointer<ToolFrame>> open;
    for (auto& entry : Registry())
        open.emplace_back(entry.second);
    for (auto& tool : open)
        if (tool) {
            tool->WaitForWorker();
            tool->close();
        }
    // WA_DeleteOnClose deletes later; take them out now so no caller finds a closed tool.
    for (auto& tool : open)
        if (tool)
            delete tool.data();
}

} // namespace astrivelle
