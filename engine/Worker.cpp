// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Worker threads for long operators.
#include "engine/Worker.h"

#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <system_error>

namespace astrivelle {

bool ApplyThreadPriority(const std::string& priorityWord) {
    if (priorityWord != "IDLE")
        return false;
    sched_param param{};
    param.sched_priority = 0;
    if (sched_setscheduler(0, SCHED_IDLE, &param) == 0)
        return true;
    // Without SCHED_IDLE, the lowest nice value of this thread is the nearest thing.
    setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), 19);
    return false;
}

OperatorWorker::~OperatorWorker() {
    Join();
}

void OperatorWorker::Join() {
    if (thread_.joinable())
        thread_.join();
}

bool OperatorWorker::Start(CProcessWindow& window, const std::string& priorityWord,
                           std::function<void()> body) {
    std::string why;
    if (!CheckOperatorGuards(window, &why)) {
        window.notify().Message(why);
        return false;
    }
    Join();
    SetBusy(window, true);
    try {
        thread_ = std::thread([&window, priorityWord, body = std::move(body)] {
            ApplyThreadPriority(priorityWord);
            window.notify().EnableTools(false);
            body();
            SetBusy(window, false);
            window.notify().EnableTools(true);
            window.notify().HistoryChanged();
        });
    } catch (const std::system_error&) {
        window.notify().Message("Windows could not create a thread.\n Please save your work, "
                                "close Astrivelle, and reboot.");
        SetBusy(window, false);
        return false;
    }
    return true;
}

} // namespace astrivelle
