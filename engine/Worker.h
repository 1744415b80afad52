// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Starting a long operator on a worker thread of its own.
#pragma once
#include <functional>
#include <string>
#include <thread>

#include "engine/ProcessWindow.h"

namespace astrivelle {

/// Lowers the calling thread to idle scheduling when `priorityWord` is "IDLE"; any other
/// word leaves it at normal priority. Returns true when the thread runs at idle priority.
bool ApplyThreadPriority(const std::string& priorityWord);

/// A worker that owns one image while it runs an operator.
class OperatorWorker {
public:
    OperatorWorker() = default;
    ~OperatorWorker();
    OperatorWorker(const OperatorWorker&) = delete;
    OperatorWorker& operator=(const OperatorWorker&) = delete;

    /// Runs the guards on `window` (their text through its notifier), marks it busy, and starts
    /// `body` on a new thread at the priority the word names. When the body returns, the image
    /// is released and the notifier told. False when a guard refused or the thread could not
    /// be created ("Windows could not create a thread.\n Please save your work, close
    /// Astrivelle, and reboot.").
    bool Start(CProcessWindow& window, const std::string& priorityWord, std::function<void()> body);

    /// Waits for the body to finish.
    void Join();
    bool Running() const { return thread_.joinable(); }

private:
    std::thread thread_;
};

} // namespace astrivelle
