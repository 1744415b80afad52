// SPDX-License-Identifier: GPL-3.0-or-later
/// \file QtNotify: message boxes, questions, folder pickers and refreshes on the user
/// interface thread.
#include "shell/QtNotify.h"

#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QMetaObject>
#include <QThread>
#include <QWidget>

#include "engine/workbench/MainWindow.h"

namespace astrivelle {

/// One image's notifier: boxes go to the shared one, captions and refreshes name the image.
class QtNotify::ImageNotify : public INotify {
public:
    ImageNotify(QtNotify& owner, CProcessWindow* image) : owner_(owner), image_(image) {}
    void Message(const std::string& text, const std::string& title) override {
        owner_.Message(text, title);
    }
    Answer Ask(const std::string& text, bool withCancel) override {
        return owner_.Ask(text, withCancel);
    }
    bool ChooseFolder(const std::string& title, std::string* folder) override {
        return owner_.ChooseFolder(title, folder);
    }
    void SetCaption(const std::string& caption) override { owner_.ImageCaption(image_, caption); }
    void SetWaitCursor(bool on) override { owner_.SetWaitCursor(on); }
    void EnableTools(bool on) override { owner_.EnableTools(on); }
    void HistoryChanged() override { owner_.ImageRefresh(image_, true); }
    void ImageChanged() override { owner_.ImageRefresh(image_, false); }
    bool ShowTool(const std::string& operation, const std::string& parameters,
                  bool apply) override {
        return owner_.ShowTool(operation, parameters, apply);
    }
    bool ToolBusy(const std::string& operation) override { return owner_.ToolBusy(operation); }
    void Beep() override { owner_.Beep(); }

private:
    QtNotify& owner_;
    CProcessWindow* image_;
};

QtNotify::QtNotify(QWidget* parentWidget) : QObject(parentWidget), parentWidget_(parentWidget) {}

QtNotify::~QtNotify() {
    while (waitDepth_ > 0) {
        --waitDepth_;
        QApplication::restoreOverrideCursor();
    }
}

void QtNotify::OnGui(std::function<void()> fn) {
    if (QThread::currentThread() == thread()) {
        fn();
        return;
    }
    QMetaObject::invokeMethod(this, std::move(fn), Qt::QueuedConnection);
}

void QtNotify::OnGuiAndWait(const std::function<void()>& fn) {
    if (QThread::currentThread() == thread()) {
        fn();
        return;
    }
    QMetaObject::invokeMethod(
        this, [&fn] { fn(); }, Qt::BlockingQueuedConnection);
}

// ---- boxes ----------------------------------------------------------------------------------

void QtNotify::Message(const std::string& text, const std::string& title) {
    if (recording_) {
        std::lock_guard lock(recordMutex_);
        messages_.push_back(text);
        return;
    }
    OnGuiAndWait([&] {
        QMessageBox::information(parentWidget_,
                                 QString::fromStdString(title.empty() ? kMainTitle : title),
                                 QString::fromStdString(text));
    });
}

Answer QtNotify::Ask(const std::string& text, bool withCancel) {
    if (recording_) {
        std::lock_guard lock(recordMutex_);
        questions_.push_back(text);
        return recordedAnswer;
    }
    Answer answer = Answer::No;
    OnGuiAndWait([&] {
        QMessageBox::StandardButtons buttons = QMessageBox::Yes | QMessageBox::No;
        if (withCancel)
            buttons |= QMessageBox::Cancel;
        const auto pressed =
            QMessageBox::question(parentWidget_, kMainTitle, QString::fromStdString(text), buttons);
        answer = pressed == QMessageBox::Yes  ? Answer::Yes
                 : pressed == QMessageBox::No ? Answer::No
                                              : Answer::Cancel;
    });
    return answer;
}

bool QtNotify::ChooseFolder(const std::string& title, std::string* folder) {
    if (recording_) {
        {
            std::lock_guard lock(recordMutex_);
            questions_.push_back(title);
        }
        if (recordedFolder.empty())
            return false;
        *folder = recordedFolder;
        return true;
    }
    bool chosen = false;
    OnGuiAndWait([&] {
        const QString picked = QFileDialog::getExistingDirectory(
            parentWidget_, QString::fromStdString(title), QString::fromStdString(*folder));
        if (!picked.isEmpty()) {
            *folder = picked.toStdString();
            chosen = true;
        }
    });
    return chosen;
}

void QtNotify::Beep() {
    if (!recording_)
        OnGui([] { QApplication::beep(); });
}

std::vector<std::string> QtNotify::RecordedMessages() const {
    std::lock_guard lock(recordMutex_);
    return messages_;
}

std::vector<std::string> QtNotify::RecordedQuestions() const {
    std::lock_guard lock(recordMutex_);
    return questions_;
}

std::string QtNotify::LastMessage() const {
    std::lock_guard lock(recordMutex_);
    return messages_.empty() ? std::string() : messages_.back();
}

void QtNotify::ClearRecorded() {
    std::lock_guard lock(recordMutex_);
    messages_.clear();
    questions_.clear();
}

// ---- captions, cursors, refreshes -----------------------------------------------------------

void QtNotify::SetCaption(const std::string& caption) {
    ImageCaption(nullptr, caption);
}

void QtNotify::ImageCaption(CProcessWindow* image, const std::string& caption) {
    OnGui([this, image, caption] {
        if (onCaption)
            onCaption(image, caption);
    });
}

void QtNotify::SetWaitCursor(bool on) {
    OnGui([this, on] { Cursor(on); });
}

void QtNotify::Cursor(bool on) {
    if (on) {
        ++waitDepth_;
        QApplication::setOverrideCursor(Qt::WaitCursor);
    } else if (waitDepth_ > 0) {
        --waitDepth_;
        QApplication::restoreOverrideCursor();
    }
}

void QtNotify::EnableTools(bool on) {
    OnGui([this, on] {
        if (onToolsEnabled)
            onToolsEnabled(on);
    });
}

void QtNotify::HistoryChanged() {
    ImageRefresh(nullptr, true);
}

void QtNotify::ImageChanged() {
    ImageRefresh(nullptr, false);
}

void QtNotify::ImageRefresh(CProcessWindow* image, bool history) {
    OnGui([this, image, history] {
        if (history && onHistoryChanged)
            onHistoryChanged(image);
        else if (!history && onImageChanged)
            onImageChanged(image);
    });
}

bool QtNotify::ShowTool(const std::string& operation, const std::string& parameters, bool apply) {
    bool shown = false;
    OnGuiAndWait([&] { shown = onShowTool && onShowTool(operation, parameters, apply); });
    return shown;
}

bool QtNotify::ToolBusy(const std::string& operation) {
    bool busy = false;
    OnGuiAndWait([&] { busy = onToolBusy && onToolBusy(operation); });
    return busy;
}

// ---- per image ------------------------------------------------------------------------------

INotify* QtNotify::ForImage(CProcessWindow* image) {
    std::lock_guard lock(imagesMutex_);
    auto& slot = images_[image];
    if (!slot)
        slot = std::make_unique<ImageNotify>(*this, image);
    return slot.get();
}

void QtNotify::ForgetImage(CProcessWindow* image) {
    std::lock_guard lock(imagesMutex_);
    images_.erase(image);
}

} // namespace astrivelle
