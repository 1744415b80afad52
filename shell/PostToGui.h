// SPDX-License-Identifier: GPL-3.0-or-later
/// \file What a worker thread says to a window's progress bar and status line: posted to the
/// GUI thread and dropped when the window has gone.
#pragma once
#include <QApplication>
#include <QLabel>
#include <QPointer>
#include <QProgressBar>
#include <QString>
#include <QThread>

#include <functional>
#include <string>

#include "engine/Notify.h"

namespace astrivelle {

/// `owner`'s bar (a member) shows `step` of `total`; a total of 0 makes it busy.
template <class W> void PostProgress(W* owner, QProgressBar* W::*bar, long step, long total) {
    QPointer<W> guard = owner;
    QMetaObject::invokeMethod(
        qApp,
        [guard, bar, step, total] {
            if (!guard)
                return;
            QProgressBar* b = guard.data()->*bar;
            b->setRange(0, total > 0 ? static_cast<int>(total) : 0);
            b->setValue(static_cast<int>(step));
        },
        Qt::QueuedConnection);
}

/// `owner`'s label (a member) shows `text`.
template <class W> void PostText(W* owner, QLabel* W::*label, const QString& text) {
    QPointer<W> guard = owner;
    QMetaObject::invokeMethod(
        qApp,
        [guard, label, text] {
            if (guard)
                (guard.data()->*label)->setText(text);
        },
        Qt::QueuedConnection);
}

/// Runs `fn` on the user interface thread and waits for it (at once when called there).
inline void OnGuiAndWait(const std::function<void()>& fn) {
    if (QThread::currentThread() == qApp->thread()) {
        fn();
        return;
    }
    QMetaObject::invokeMethod(
        qApp, [&fn] { fn(); }, Qt::BlockingQueuedConnection);
}

/// What a worker says goes to the program's notifier on the user interface thread.
class GuiNotify : public INotify {
public:
    explicit GuiNotify(INotify& target) : target_(target) {}
    void Message(const std::string& text, const std::string& title) override {
        OnGuiAndWait([&] { target_.Message(text, title); });
    }
    Answer Ask(const std::string& text, bool withCancel) override {
        Answer answer = Answer::No;
        OnGuiAndWait([&] { answer = target_.Ask(text, withCancel); });
        return answer;
    }
    void Beep() override {
        OnGuiAndWait([&] { target_.Beep(); });
    }

private:
    INotify& target_;
};

} // namespace astrivelle
