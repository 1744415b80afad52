// SPDX-License-Identifier: GPL-3.0-or-later
/// \file What a worker thread says to a window's progress bar and status line: posted to the
/// GUI thread and dropped when the window has gone.
#pragma once
#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QPointer>
#include <QProgressBar>
#include <QString>
#include <QThread>

#include <functional>
#include <string>
#include <utility>

#include "engine/Notify.h"
#include "imagesets/FileOperation.h"

namespace astrivelle {

/// Calls fn(window) on the user interface thread, unless the window has gone by then.
template <class W, class Fn> void PostCall(const QPointer<W>& guard, Fn fn) {
    QMetaObject::invokeMethod(
        qApp,
        [guard, fn = std::move(fn)]() mutable {
            if (guard)
                fn(*guard.data());
        },
        Qt::QueuedConnection);
}

/// `owner`'s bar (a member) shows `step` of `total`; a total of 0 makes it busy.
template <class W> void PostProgress(W* owner, QProgressBar* W::*bar, long step, long total) {
    PostCall(QPointer<W>(owner), [bar, step, total](W& w) {
        QProgressBar* b = w.*bar;
        b->setRange(0, total > 0 ? static_cast<int>(total) : 0);
        b->setValue(static_cast<int>(step));
    });
}

/// `owner`'s label (a member) shows `text`.
template <class W> void PostText(W* owner, QLabel* W::*label, const QString& text) {
    PostCall(QPointer<W>(owner), [label, text](W& w) { (w.*label)->setText(text); });
}

/// A run's progress posted to window W's `runProgress` bar, `status` line and `counter` label
/// ("%1 of %2"), dropped when the window has gone.
template <class W> class WindowRunProgress : public IFileOpOwner {
public:
    explicit WindowRunProgress(W* window) : window_(window) {}
    void SetProgress(long step, long total) override {
        PostProgress(window_.data(), &W::runProgress, step, total);
    }
    void SetStatus(const std::string& text) override {
        PostText(window_.data(), &W::status, QString::fromStdString(text));
    }
    void SetCounter(long current, long total) override {
        PostText(window_.data(), &W::counter, QStringLiteral("%1 of %2").arg(current).arg(total));
    }

private:
    QPointer<W> window_;
};

/// Runs the event loop until `running` turns false or `timeoutMs` have passed, then once more
/// so that the worker's last posted texts land; true when the run has ended.
inline bool WaitWhileRunning(const bool& running, int timeoutMs) {
    QElapsedTimer timer;
    timer.start();
    while (running && timer.elapsed() < timeoutMs)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    QCoreApplication::processEvents();
    return !running;
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
