// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The main frame over a real model: opening files into frames, the active image, the
/// pixel readout, undo and redo following the history, closing rules and exit texts shown
/// through the notifier, drag and drop, and notifications from a worker thread.
// The engine first: its parallel headers use words that Qt defines as macros.
#include "TestSupport.h"
#include "ToolFrameTestSupport.h"
#include "engine/SystemOptions.h"
#include "engine/Worker.h"
#include "engine/workbench/MainWindow.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QDropEvent>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenu>
#include <QMimeData>
#include <QMouseEvent>
#include <QUrl>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "shell/ImageView.h"
#include "shell/MainFrame.h"
#include "shell/QtNotify.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

/// The test program's one application object, made before the first test and deleted after
/// the last one: deleted at process exit instead (a function-local static), it would outlive
/// Qt's own globals made during the tests (input devices, icon loader) and crash on the way
/// out. ToolTestApp() finds it and uses it.
class ShellApplicationEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        if (QCoreApplication::instance())
            return;
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        app_ = new QApplication(argc_, argv_);
    }
    void TearDown() override {
        delete app_;
        app_ = nullptr;
    }

private:
    QApplication* app_ = nullptr;
    int argc_ = 1;
    char name_[11] = "test_shell";
    char* argv_[2] = {name_, nullptr};
};

[[maybe_unused]] ::testing::Environment* const kShellApplication =
    ::testing::AddGlobalTestEnvironment(new ShellApplicationEnvironment);

/// A main frame whose setup file, home and images live in a scratch folder; the process
/// options and HOME are put back when it goes.
struct FrameBench {
    struct AppFirst {
        AppFirst() { ToolTestApp(); }
    } appFirst;
    ScratchDir dir;
    CSetupParams keptOptions = Options().setup;
    std::string keptHome = std::getenv("HOME") ? std::getenv("HOME") : "";
    std::unique_ptr<MainFrame> frame;

    FrameBench() {
        std::filesystem::create_directories(dir.file("home"));
        setenv("HOME", dir.file("home").c_str(), 1);
        frame = std::make_unique<MainFrame>(SetupPath());
        frame->Notifier().SetRecording(true);
        frame->resize(1000, 700);
        frame->show();
        QApplication::processEvents();
    }
    ~FrameBench() {
        frame.reset();
        setenv("HOME", keptHome.c_str(), 1);
        Options().setup = keptOptions;
    }
    std::string SetupPath() const { return dir.file("config/QXSP600.qxp"); }

    /// A 16-bit FITS file of `w` x `h` whose samples are 1000 + 1000 * slot + x + 10 * y.
    std::string Fits(const std::string& name, int w = 40, int h = 30,
                     std::uint32_t colorType = ColorGray) {
        Image img;
        MakeImage(img, w, h, colorType,
                  [](int s, int x, int y) { return 1000 + 1000 * s + x + 10 * y; });
        img.fitsCompress = false;
        const std::string path = dir.file(name);
        EXPECT_TRUE(img.WriteFile(path, KindFITS)) << path;
        return path;
    }
    CProcessWindow* Open(const std::string& name, std::uint32_t colorType = ColorGray) {
        if (frame->OpenFiles({QString::fromStdString(Fits(name, 40, 30, colorType))}) != 1)
            return nullptr;
        return frame->ActiveImage();
    }
    int Frames() const { return static_cast<int>(frame->Area()->subWindowList().size()); }
    bool Enabled(const char* action) const {
        QAction* a = frame->Action(QString::fromLatin1(action));
        EXPECT_NE(a, nullptr) << action;
        return a && a->isEnabled();
    }
    /// Moves the pointer over image pixel (x, y) of `w`'s view and returns the readout.
    QString ReadoutAt(CProcessWindow* w, int x, int y) {
        ImageView* view = frame->ViewOf(w);
        EXPECT_NE(view, nullptr);
        if (!view)
            return {};
        const QPointF at = view->ViewportPoint(x, y);
        QMouseEvent move(QEvent::MouseMove, at, view->viewport()->mapToGlobal(at), Qt::NoButton,
                         Qt::NoButton, Qt::NoModifier);
        QApplication::sendEvent(view->viewport(), &move);
        return frame->ReadoutText();
    }
    std::string LastMessage() const { return frame->Notifier().LastMessage(); }
};

/// The gray level the picture shows at (x, y).
int ShownLevel(const ImageView& view, int x, int y) {
    return view.Picture().pixelIndex(x, y);
}

} // namespace

TEST(MainFrame, StartsWithTheTitleAndOnlyTheCommandsThatNeedNoImage) {
    FrameBench b;
    EXPECT_EQ(b.frame->windowTitle().toStdString(), "Astrivelle");
    EXPECT_EQ(b.Frames(), 0);
    for (const char* name : {"actionSave", "actionSaveAs", "actionClose", "actionUndo",
                             "actionRedo", "actionDuplicate", "actionPixelMath", "actionSaveAll"})
        EXPECT_FALSE(b.Enabled(name)) << name;
    for (const char* name : {"actionOpen", "actionOpenProject", "actionNewImage", "actionExit",
                             "actionHistory", "actionSystemOptions", "actionProperties"})
        EXPECT_TRUE(b.Enabled(name)) << name;
    // The standard keys.
    EXPECT_EQ(b.frame->Action("actionOpen")->shortcut(), QKeySequence(QKeySequence::Open));
    EXPECT_EQ(b.frame->Action("actionUndo")->shortcut(), QKeySequence(QKeySequence::Undo));
    EXPECT_EQ(b.frame->Action("actionRedo")->shortcut(), QKeySequence(QKeySequence::Redo));
}

TEST(MainFrame, OpenFilesGivesOneFramePerImageTheActiveImageAndItsReadout) {
    FrameBench b;
    const std::string path = b.Fits("M31.fit");
    ASSERT_EQ(b.frame->OpenFiles({QString::fromStdString(path)}), 1) << b.LastMessage();
    ASSERT_EQ(b.Frames(), 1);
    CProcessWindow* w = b.frame->ActiveImage();
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(w->filePath, path);
    ImageSubWindow* sub = b.frame->SubWindowOf(w);
    ASSERT_NE(sub, nullptr);
    EXPECT_EQ(b.frame->Area()->activeSubWindow(), sub);
    EXPECT_EQ(sub->windowTitle().toStdString(), w->Caption());
    EXPECT_NE(sub->windowTitle().indexOf(QStringLiteral(" - Gray")), -1);
    EXPECT_EQ(b.frame->windowTitle().toStdString(), "Astrivelle") << "after the open loop";

    EXPECT_EQ(b.ReadoutAt(w, 3, 2).toStdString(), "X: 3  Y: 2  Value: 1023");
    EXPECT_EQ(b.ReadoutAt(w, 39, 29).toStdString(), "X: 39  Y: 29  Value: 1329");
    // The picture: FillDib's bytes, top row on top (level / 257 rounded down).
    EXPECT_EQ(ShownLevel(*b.frame->ViewOf(w), 0, 0), 1000 / 257);
    EXPECT_EQ(ShownLevel(*b.frame->ViewOf(w), 39, 29), 1329 / 257);

    // The opened file heads the recent files.
    ASSERT_FALSE(b.frame->Setup().recentFiles.empty());
    EXPECT_EQ(b.frame->Setup().recentFiles.front(), path);
    for (const char* name :
         {"actionSave", "actionSaveAs", "actionClose", "actionDuplicate", "actionPixelMath",
          "actionSaveAll", "actionCloseAll", "actionConvertColorType"})
        EXPECT_TRUE(b.Enabled(name)) << name;

    // A second image, RGB: a second frame, now active; activating the first frame makes its
    // image the model's active one again.
    CProcessWindow* v = b.Open("M42.fit", ColorRGB);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(b.Frames(), 2);
    EXPECT_EQ(b.frame->Model().ActiveImage(), v);
    EXPECT_FALSE(b.Enabled("actionConvertColorType")) << "a single-plane command";
    EXPECT_EQ(b.ReadoutAt(v, 3, 2).toStdString(), "X: 3  Y: 2  R: 1023  G: 2023  B: 3023");
    EXPECT_EQ(b.frame->Setup().recentFiles.front(), v->filePath);
    EXPECT_EQ(b.frame->Setup().recentFiles.at(1), path);
    b.frame->Area()->setActiveSubWindow(b.frame->SubWindowOf(w));
    EXPECT_EQ(b.frame->Model().ActiveImage(), w);
}

TEST(MainFrame, FilesThatCannotBeOpenedAreToldAndMakeNoFrame) {
    FrameBench b;
    const struct {
        std::string name;
        const char* text;
    } cases[] = {
        {"noextension", "Invalid filename."},
        {"picture.xyz", "Could Not Open PICTURE.XYZ"},
    };
    for (const auto& c : cases) {
        const std::string path = b.dir.file(c.name);
        std::ofstream(path) << "not an image";
        EXPECT_EQ(b.frame->OpenFiles({QString::fromStdString(path)}), 0);
        EXPECT_EQ(b.LastMessage(), c.text);
        EXPECT_EQ(b.Frames(), 0);
    }
    EXPECT_TRUE(b.frame->Setup().recentFiles.empty());
}

TEST(MainFrame, UndoAndRedoFollowTheHistoryOfThePixelMathStep) {
    FrameBench b;
    CProcessWindow* w = b.Open("M31.fit");
    ASSERT_NE(w, nullptr);
    EXPECT_FALSE(b.Enabled("actionUndo"));
    EXPECT_FALSE(b.Enabled("actionRedo"));

    ASSERT_TRUE(w->PixelMathAdd(false, 100, 0, 65535, 0));
    // The operator's own notifications refresh the view and the commands.
    EXPECT_TRUE(b.Enabled("actionUndo"));
    EXPECT_FALSE(b.Enabled("actionRedo"));
    EXPECT_EQ(b.ReadoutAt(w, 3, 2).toStdString(), "X: 3  Y: 2  Value: 1123");
    EXPECT_EQ(ShownLevel(*b.frame->ViewOf(w), 39, 29), 1429 / 257);

    b.frame->Action("actionUndo")->trigger();
    EXPECT_EQ(b.ReadoutAt(w, 3, 2).toStdString(), "X: 3  Y: 2  Value: 1023");
    EXPECT_EQ(ShownLevel(*b.frame->ViewOf(w), 39, 29), 1329 / 257);
    EXPECT_FALSE(b.Enabled("actionUndo"));
    EXPECT_TRUE(b.Enabled("actionRedo"));

    b.frame->Action("actionRedo")->trigger();
    EXPECT_EQ(b.ReadoutAt(w, 3, 2).toStdString(), "X: 3  Y: 2  Value: 1123");
    EXPECT_TRUE(b.Enabled("actionUndo"));
    EXPECT_FALSE(b.Enabled("actionRedo"));
    EXPECT_TRUE(b.frame->Notifier().RecordedMessages().empty()) << b.LastMessage();
}

TEST(MainFrame, AWorkerThreadsNotificationsAreQueuedToTheWindowThread) {
    FrameBench b;
    CProcessWindow* w = b.Open("M31.fit");
    ASSERT_NE(w, nullptr);
    ImageView* view = b.frame->ViewOf(w);
    const int before = ShownLevel(*view, 39, 29);

    OperatorWorker worker;
    ASSERT_TRUE(worker.Start(*w, "NORMAL", [w] { w->PixelMathAdd(false, 2570, 0, 65535, 0); }));
    worker.Join(); // nothing the body says waits for this thread
    // Nothing ran on the worker's thread: the view still shows the old picture...
    EXPECT_EQ(ShownLevel(*view, 39, 29), before);
    EXPECT_FALSE(b.Enabled("actionUndo"));
    // ...until the queued refreshes run here.
    QApplication::processEvents();
    EXPECT_EQ(ShownLevel(*view, 39, 29), (1329 + 2570) / 257);
    EXPECT_TRUE(b.Enabled("actionUndo"));

    // The ShellContext refresh may be called from any thread too.
    w->image.curPlane[0][0] = 65535;
    std::thread other([&] { b.frame->ImageChanged(w); });
    other.join();
    EXPECT_NE(ShownLevel(*view, 0, 0), 255);
    QApplication::processEvents();
    EXPECT_EQ(ShownLevel(*view, 0, 0), 255);
}

TEST(MainFrame, ClosingRefusalsAreToldThroughTheNotifierAndKeepTheFrame) {
    FrameBench b;
    CProcessWindow* w = b.Open("M31.fit");
    ASSERT_NE(w, nullptr);
    const struct {
        bool CProcessWindow::*flag;
        const char* text;
    } rules[] = {
        {&CProcessWindow::threadBusy, "Operation in progress."},
        {&CProcessWindow::closeLocked, "This image is close locked."},
        {&CProcessWindow::fileOpBusy, "Please complete the file operation to close this image."},
        {&CProcessWindow::cropFilesUse, "Close Crop Files to close this image."},
    };
    for (const auto& rule : rules) {
        w->*rule.flag = true;
        b.frame->Notifier().ClearRecorded();
        EXPECT_FALSE(b.frame->SubWindowOf(w)->close());
        EXPECT_EQ(b.LastMessage(), rule.text);
        EXPECT_EQ(b.Frames(), 1);
        EXPECT_TRUE(b.frame->Model().IsOpen(w));
        w->*rule.flag = false;
    }
    // The menu's Close of a busy image: its own list, the same box.
    w->closeLocked = true;
    b.frame->Action("actionClose")->trigger();
    EXPECT_FALSE(b.LastMessage().empty());
    EXPECT_EQ(b.Frames(), 1);
    w->closeLocked = false;

    ASSERT_TRUE(b.frame->SubWindowOf(w)->close());
    QApplication::processEvents();
    EXPECT_EQ(b.Frames(), 0);
    EXPECT_EQ(b.frame->Model().imageCount(), 0);
    EXPECT_EQ(b.frame->ActiveImage(), nullptr);
    EXPECT_FALSE(b.Enabled("actionSave"));
}

TEST(MainFrame, ExitTellsWhatHoldsTheProgramThenSavesTheSetup) {
    FrameBench b;
    CProcessWindow* w = b.Open("M31.fit");
    ASSERT_NE(w, nullptr);
    CMainWindow& model = b.frame->Model();

    ASSERT_TRUE(model.BeginImageSetJob("Grade Files"));
    EXPECT_FALSE(b.frame->close());
    EXPECT_EQ(b.LastMessage(), "Please Cancel Grade Files Before Closing.");
    model.EndImageSetJob("Grade Files");

    w->currentOp = "High Pass";
    w->threadBusy = true;
    EXPECT_FALSE(b.frame->close());
    EXPECT_EQ(b.LastMessage(), "High Pass Filter In Progress.");
    w->threadBusy = false;
    EXPECT_TRUE(b.frame->isVisible());
    EXPECT_EQ(b.Frames(), 1);
    EXPECT_FALSE(std::filesystem::exists(b.SetupPath())) << "a refused exit saves nothing";

    b.frame->Setup().recentFiles = {"/data/one.fit"};
    EXPECT_TRUE(b.frame->close());
    EXPECT_EQ(b.Frames(), 0);
    EXPECT_EQ(model.imageCount(), 0);
    CSetupParams read;
    ASSERT_TRUE(LoadSetupParams(b.SetupPath(), read));
    EXPECT_EQ(read.recentFiles, std::vector<std::string>{"/data/one.fit"});
}

TEST(MainFrame, TheSetupFileIsReadAtStart) {
    ToolTestApp();
    ScratchDir dir;
    const CSetupParams kept = Options().setup;
    CSetupParams stored;
    stored.recentFiles = {"/a/b.fit", "/c/d.tif"};
    stored.displayAdjustment = "Auto Stretch";
    const std::string path = dir.file("QXSP600.qxp");
    ASSERT_TRUE(SaveSetupParams(path, stored));
    {
        MainFrame frame(path);
        EXPECT_EQ(frame.Setup().recentFiles, stored.recentFiles);
        EXPECT_TRUE(frame.Action("actionAutoStretch")->isChecked());
        auto* recent = frame.findChild<QMenu*>(QStringLiteral("menuRecentFiles"));
        ASSERT_NE(recent, nullptr);
        ASSERT_EQ(recent->actions().size(), 2);
        EXPECT_TRUE(recent->actions()[0]->text().endsWith(QStringLiteral("/a/b.fit")));
    }
    Options().setup = kept;
}

TEST(MainFrame, DroppedFilesAreOpened) {
    FrameBench b;
    const std::string one = b.Fits("one.fit"), two = b.Fits("two.fit");
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(QString::fromStdString(one)),
                  QUrl::fromLocalFile(QString::fromStdString(two))});
    QDragEnterEvent enter(QPoint(50, 50), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(b.frame.get(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(50, 50), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(b.frame.get(), &drop);
    EXPECT_EQ(b.Frames(), 2);
    ASSERT_NE(b.frame->ActiveImage(), nullptr);
    EXPECT_EQ(b.frame->ActiveImage()->filePath, two);
}

TEST(MainFrame, FileDialogFiltersAndRecentFiles) {
    const std::string joined = "All Files (*.*)|*.*|FIT (*.fit; *.fts)|*.fit; *.FIT; *.fts|"
                               "SBIG Image|*.sbig; *.237|";
    EXPECT_EQ(QtFilterList(joined).toStdString(),
              "All Files (*.*);;FIT (*.fit *.FIT *.fts);;SBIG Image (*.sbig *.237)");
    EXPECT_EQ(QtFilterList("").toStdString(), "");

    std::vector<std::string> list;
    for (const char* p : {"a", "b", "c", "b"})
        AddRecentFile(list, p, 3);
    EXPECT_EQ(list, (std::vector<std::string>{"b", "c", "a"}));
    AddRecentFile(list, "d", 3);
    EXPECT_EQ(list, (std::vector<std::string>{"d", "b", "c"}));
}
