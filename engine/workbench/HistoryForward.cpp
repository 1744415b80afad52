// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Forward processing: Next Command, All Commands and the replay of a step.
#include <chrono>
#include <thread>

#include "engine/Image.h"
#include "engine/workbench/History.h"
#include "engine/workbench/HistoryInternal.h"

namespace astrivelle {

std::string ToolCheckText(CProcessWindow& window, const std::string& operation) {
    static const char* const kThreadedTools[] = {
        "Frequency Filter",
        "Digital Development",
        "ArcSinH",
        "Smoothing",
        "High Pass",
        "Feature Mask",
        "Band Suppression",
        "Background/Highlight Smoothing",
        "Star Size Reduction/Smoothing",
        "Non-Adaptive Iterative Restoration",
        "Adaptive Richardson-Lucy",
    };
    bool threaded = false;
    for (const char* name : kThreadedTools)
        threaded = threaded || operation == name;
    if (!threaded || !window.notify().ToolBusy(operation))
        return {};
    if (operation == "Feature Mask")
        return "Feature Mask \u00a9 is currently in use.";
    if (operation == "Non-Adaptive Iterative Restoration")
        return "Non-adaptive iterative restoration is currently in use.";
    return operation + " is currently in use.";
}

namespace history_detail {

bool ReplayStep(CProcessWindow& w, const std::string& operation, const std::string& parameters) {
    // No tool took the step, so the engine runs it itself: the record's text is replayed with
    // Image::ApplyCommand on the shown state, inside the operator skeleton, which saves the
    // state before it, updates the record and blends. Once the desktop's tools exist they
    // take this path over through INotify::ShowTool: the tool loads the text, validates it
    // and presses Apply, as a user would.
    const int before = w.currentStep;
    const bool replacing = w.replacingStep;
    const std::size_t sizeBefore = w.history.size();
    CProcessStructure kept;
    if (replacing && before + 1 < static_cast<int>(sizeBefore))
        kept = w.history[before + 1];

    CProcessStructure command; // the blend, if any, is the skeleton's part
    command.operation = operation;
    command.parameters = parameters;
    std::string error;
    const bool ok = w.RunOperator(operation, parameters, [&](bool) {
        return w.image.ApplyCommand(command, nullptr, nullptr, nullptr, &error);
    });
    if (ok)
        return true;

    // The step did not run: show the state it started from, as the row before it.
    if (w.currentStep == before + 1) {
        if (replacing)
            w.history[before + 1] = kept;
        else if (w.history.size() == sizeBefore + 1)
            w.history.erase(w.history.begin() + before + 1);
        w.currentStep = before;
        w.image.PreviousToCurrent();
    }
    w.replacingStep = false;
    w.pending = false;
    if (w.currentStep >= 0 && w.currentStep < static_cast<int>(w.history.size()))
        w.lastOp = w.history[w.currentStep].operation;
    w.AfterOperator();
    w.notify().HistoryChanged();
    if (!error.empty())
        w.notify().Message(error);
    return false;
}

} // namespace history_detail

using namespace history_detail;

bool CProcessWindow::NextCommand() {
    if (!HasImage(*this)) {
        notify().Message(kHistoryNoImageText);
        return false;
    }
    if (threadBusy || opRunning) {
        if (!quietForward)
            notify().Message(kHistoryBusyText);
        return false;
    }
    const int next = currentStep + 1;
    if (next < 1 || next >= static_cast<int>(history.size()))
        return false;
    const CProcessStructure record = history[next];
    const std::string refusal = ToolCheckText(*this, record.operation);
    if (!refusal.empty()) {
        notify().Message(refusal);
        return false;
    }
    if (record.channelSelect) {
        channelSelect[0] = record.channelRed != 0;
        channelSelect[1] = record.channelGreen != 0;
        channelSelect[2] = record.channelBlue != 0;
    }
    replacingStep = true;
    pending = false;
    const bool ok =
        ReprocessCommand(record.operation, std::string(), std::string(), record.parameters, true,
                         true, record.filterFile, record.maskFile);
    if (!ok)
        replacingStep = false;
    notify().HistoryChanged(); // the forward buttons follow ForwardAvailable()
    return ok;
}

namespace {

/// A cancel request asks whether to stop; a "No" withdraws the request.
bool CancelConfirmed(CProcessWindow& w, IProgress* cancel) {
    if (!cancel || !cancel->Cancelled())
        return false;
    if (w.notify().Ask(kAllCommandsCancelQuestion) == Answer::Yes)
        return true;
    cancel->ResetCancel();
    return false;
}

} // namespace

bool CProcessWindow::AllCommands(int intervalMs, IProgress* cancel) {
    if (currentStep + 1 >= static_cast<int>(history.size()))
        return false;
    if (cancel)
        cancel->SetStatus(kAllCommandsCancelHint);
    notify().SetWaitCursor(true);
    notify().EnableTools(false);
    auto finish = [&](bool result) {
        if (cancel)
            cancel->SetStatus(std::string());
        notify().EnableTools(true);
        notify().SetWaitCursor(false);
        return result;
    };

    if (!NextCommand() || CancelConfirmed(*this, cancel))
        return finish(false);
    // The timer of the desktop: one step per tick. A step that runs on a worker is waited
    // for by finding the image busy at a tick, quietly.
    for (;;) {
        const auto tick = std::chrono::milliseconds(intervalMs > 0 ? intervalMs : 0);
        if (tick.count() > 0)
            std::this_thread::sleep_for(tick);
        if (currentStep + 1 >= static_cast<int>(history.size()))
            return finish(true);
        if (threadBusy || opRunning) {
            if (tick.count() == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
        } else {
            quietForward = true;
            const bool ok = NextCommand();
            quietForward = false;
            if (!ok) // a step that fails would fail again at every tick
                return finish(false);
        }
        if (CancelConfirmed(*this, cancel))
            return finish(false);
    }
}

} // namespace astrivelle
