// SPDX-License-Identifier: GPL-3.0-or-later
/// \file What a worker thread says to a window's progress bar and status line: posted to the
/// GUI thread and dropped when the window has gone.
#pragma once
#include <QApplication>
#include <QLabel>
#include <QPointer>
#include <QProgressBar>
#include <QString>

#include <string>

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

} // namespace astrivelle
