// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The common tool frame: a long operator on a worker with progress, status, Cancel and
/// the in-progress caption; guard refusals before any start; one instance per class.
#include <gtest/gtest.h>

#include "ToolFrameTestSupport.h"

#include <QElapsedTimer>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

#include <atomic>
#include <chrono>
#include <thread>

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

float Flat(int, int, int) {
    return 500.0f;
}

/// Processes events until `done` holds or two seconds passed.
template <class Pred> bool WaitFor(Pred done) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < 2000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    return done();
}

} // namespace

TEST(ToolFrame, CaptionNamesTheImage) {
    CProcessWindow w;
    w.title = "M31.fit";
    EXPECT_EQ(ToolCaption("Pixel Math", &w).toStdString(), "Pixel Math - M31.fit");
    EXPECT_EQ(ToolCaption("Pixel Math", nullptr).toStdString(), "Pixel Math");
}

TEST(ToolFrame, WorkerRunsWithProgressStatusAndCancel) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(32, 16, false, Flat);
    auto* tool = new ToolFrame(shell, "Test Tool", "CTestTool");
    tool->show();
    EXPECT_EQ(tool->windowTitle().toStdString(), "Test Tool - " + w->title);

    std::atomic<bool> reported{false};
    std::atomic<int> finishedWith{-1};
    ASSERT_TRUE(tool->StartWorker(
        *w,
        [&](IProgress& progress) {
            progress.SetStatus("Smoothing Pass 1");
            progress.SetProgress(3, 10);
            reported = true;
            for (int i = 0; i < 400 && !progress.Cancelled(); ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            return !progress.Cancelled();
        },
        [&](bool ok) { finishedWith = ok ? 1 : 0; }));
    EXPECT_TRUE(tool->Busy());
    EXPECT_TRUE(w->threadBusy);
    EXPECT_EQ(tool->windowTitle(), "*** Operation In Progress ***");
    EXPECT_FALSE(tool->applyButton->isEnabled());
    EXPECT_FALSE(tool->doneButton->isEnabled());
    EXPECT_TRUE(tool->cancelButton->isEnabled());

    ASSERT_TRUE(WaitFor([&] { return reported.load(); }));
    ASSERT_TRUE(WaitFor([&] { return tool->statusLine->text() == "Smoothing Pass 1"; }));
    EXPECT_EQ(tool->progressBar->maximum(), 10);
    EXPECT_EQ(tool->progressBar->value(), 3);

    // A second start while running is refused by the frame; Done cannot close it.
    EXPECT_FALSE(tool->StartWorker(*w, [](IProgress&) { return true; }));
    tool->close();
    EXPECT_EQ(ToolFrame::Find("CTestTool"), tool);

    ASSERT_TRUE(Press(tool, "cancel"));
    ASSERT_TRUE(WaitFor([&] { return !tool->Busy(); }));
    tool->WaitForWorker();
    EXPECT_EQ(finishedWith.load(), 0);
    EXPECT_FALSE(w->threadBusy);
    EXPECT_EQ(tool->statusLine->text(), "Cancelled");
    EXPECT_EQ(tool->windowTitle().toStdString(), "Test Tool - " + w->title);
    EXPECT_TRUE(tool->applyButton->isEnabled());
    EXPECT_FALSE(tool->cancelButton->isEnabled());

    // It runs again after a cancel, to the end.
    ASSERT_TRUE(tool->StartWorker(
        *w, [](IProgress& p) { return !p.Cancelled(); },
        [&](bool ok) { finishedWith = ok ? 1 : 0; }));
    tool->WaitForWorker();
    EXPECT_EQ(finishedWith.load(), 1);
    EXPECT_FALSE(w->threadBusy);
}

TEST(ToolFrame, GuardsRefuseBeforeAnyStart) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(8, 8, false, Flat);
    auto* tool = new ToolFrame(shell, "Test Tool", "CTestTool");
    w->fileOpBusy = true;
    bool ran = false;
    EXPECT_FALSE(tool->StartWorker(*w, [&](IProgress&) { return ran = true; }));
    EXPECT_EQ(shell.LastMessage(), "Image File Operation In Progress");
    EXPECT_FALSE(tool->Busy());
    EXPECT_FALSE(w->threadBusy);
    EXPECT_TRUE(tool->applyButton->isEnabled());
    w->fileOpBusy = false;
    tool->WaitForWorker();
    EXPECT_FALSE(ran);
}

TEST(ToolFrame, TargetWithoutImagesSaysSo) {
    ToolTestShell shell;
    auto* tool = new ToolFrame(shell, "Test Tool", "CTestTool");
    EXPECT_EQ(tool->Target(), nullptr);
    EXPECT_EQ(shell.LastMessage(), "No Image Is Available");
    EXPECT_EQ(tool->windowTitle(), "Test Tool");
}

TEST(ToolFrame, EnableAllKeepsTheRunningToolsCancel) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(8, 8, false, Flat);
    auto* running = new ToolFrame(shell, "Running", "CRunning");
    auto* idle = new ToolFrame(shell, "Idle", "CIdle");
    std::atomic<bool> release{false};
    ASSERT_TRUE(running->StartWorker(*w, [&](IProgress&) {
        while (!release)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        return true;
    }));
    ToolFrame::EnableAll(false);
    EXPECT_FALSE(idle->isEnabled());
    EXPECT_TRUE(running->cancelButton->isEnabled());
    release = true;
    running->WaitForWorker();
    ToolFrame::EnableAll(true);
    EXPECT_TRUE(idle->isEnabled());
}
