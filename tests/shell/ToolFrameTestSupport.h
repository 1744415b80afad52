// SPDX-License-Identifier: GPL-3.0-or-later
/// \file A small desktop context for tool tests: a recording notifier, a workbench model, a
/// parent widget and settings, with one QApplication for the test program, and the few ways
/// the tool tests drive fields and compare pixels.
#pragma once
// The engine first: its parallel headers use words that Qt defines as macros.
#include "TestSupport.h"
#include "engine/ProcessWindow.h"
#include "engine/SetupParams.h"
#include "engine/workbench/MainWindow.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QPushButton>
#include <QWidget>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "imagesets/FileOperation.h"
#include "shell/ShellContext.h"
#include "shell/ToolFrame.h"

namespace astrivelle::test {

/// The test program's one application object (offscreen unless a platform is set).
inline QApplication& ToolTestApp() {
    if (auto* app = qobject_cast<QApplication*>(QCoreApplication::instance()))
        return *app;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "test_shell";
    static char* argv[] = {name, nullptr};
    static QApplication app(argc, argv);
    return app;
}

class ToolTestShell : public ShellContext {
    struct AppFirst {
        AppFirst() { ToolTestApp(); }
    } appFirst_; // before any widget member

public:
    ScratchDir dir;
    RecordingNotify notify;
    CMainWindow model{&notify};
    CSetupParams setup;
    std::vector<CProcessWindow*> changed;

    ToolTestShell() {
        model.lastFolder = dir.path().string();
        model.maxOpenImages = 20;
        model.setupPath = dir.file("QXSP600.qxp");
        main_.resize(800, 600);
    }
    ~ToolTestShell() override { ToolFrame::CloseAll(); }

    CMainWindow& Model() override { return model; }
    QWidget* MainWidget() override { return &main_; }
    CProcessWindow* ActiveImage() override { return model.ActiveImage(); }
    void ImageChanged(CProcessWindow* image) override { changed.push_back(image); }
    CSetupParams& Setup() override { return setup; }

    /// A mono (or RGB) image whose sample at (x, y) of slot s is fill(s, x, y).
    template <class Fn> CProcessWindow* MakeImage(int w, int h, bool color, Fn fill) {
        CProcessWindow* window = model.NewImage(w, h, color, 0.0f);
        if (!window)
            return nullptr;
        Image& img = window->image;
        for (int s : img.Slots())
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    img.curPlane[s][y * w + x] = img.prevPlane[s][y * w + x] =
                        static_cast<float>(fill(s, x, y));
        img.ComputeStatistics();
        return window;
    }

    std::string LastMessage() const {
        return notify.messages.empty() ? std::string() : notify.messages.back();
    }

private:
    QWidget main_;
};

/// A desktop context for the image-set sheets, with the notifier `Notifier`: the file lists
/// of earlier runs cleared before and after.
/// The file records of an image-set run in list order: the first the reference, the one at
/// `excluded` (if any) left out.
inline CImageFileList ReferenceFirst(const std::vector<std::string>& files, int excluded = -1) {
    CImageFileList list;
    for (std::size_t i = 0; i < files.size(); ++i) {
        CImageFileInfo info;
        info.path = files[i];
        info.isReference = i == 0;
        info.excluded = static_cast<int>(i) == excluded;
        info.listIndex = static_cast<int>(i);
        list.push_back(info);
    }
    return list;
}

/// An uncompressed 16-bit FITS file of w x h in `dir` whose sample is fn(x, y).
template <class Fn>
std::string WriteFits(const ScratchDir& dir, const std::string& name, int w, int h, Fn fn) {
    Image img;
    test::MakeImage(img, w, h, ColorGray, [&](int, int x, int y) { return fn(x, y); });
    img.fitsCompress = false;
    const std::string path = dir.file(name);
    EXPECT_TRUE(img.WriteFile(path, KindFITS)) << path;
    return path;
}

template <class Notifier = RecordingNotify> class SheetTestShell : public ShellContext {
    struct AppFirst {
        AppFirst() {
            ToolTestApp();
            FileOpLists().Clear();
        }
    } appFirst_; // before any widget member

public:
    ScratchDir dir;
    Notifier notify;
    CMainWindow model{&notify};
    CSetupParams setup;

    SheetTestShell() { model.lastFolder = dir.path().string(); }
    ~SheetTestShell() override {
        ToolFrame::CloseAll();
        FileOpLists().Clear();
    }
    CMainWindow& Model() override { return model; }
    QWidget* MainWidget() override { return &main_; }
    CProcessWindow* ActiveImage() override { return model.ActiveImage(); }
    void ImageChanged(CProcessWindow*) override {}
    CSetupParams& Setup() override { return setup; }

    /// An uncompressed 16-bit FITS file of w x h in the scratch folder whose sample is fn(x, y).
    template <class Fn> std::string Fits(const std::string& name, int w, int h, Fn fn) {
        return WriteFits(dir, name, w, h, fn);
    }

private:
    QWidget main_;
};

/// Clicks the child button with this object name; false when there is none or it is disabled.
inline bool Press(QWidget* parent, const char* objectName) {
    auto* button = parent->findChild<QPushButton*>(objectName);
    if (!button || !button->isEnabled())
        return false;
    button->click();
    return true;
}

/// Types `text` into a field as a user would: the edit, then leaving the field.
inline void TypeField(QLineEdit* edit, const char* text) {
    edit->setText(text);
    edit->textEdited(edit->text());
    edit->editingFinished();
}

/// Selects the item of `combo` reading `text`; a test failure when there is none.
inline void Select(QComboBox* combo, const char* text) {
    const int at = combo->findText(text);
    ASSERT_GE(at, 0) << text;
    combo->setCurrentIndex(at);
}

/// True when every current plane of `a` holds the bytes of `b`'s.
inline bool SamePixels(const CProcessWindow& a, const CProcessWindow& b) {
    for (int s : a.image.Slots())
        if (std::memcmp(a.image.curPlane[s], b.image.curPlane[s],
                        sizeof(float) * a.image.pixelCount) != 0)
            return false;
    return true;
}

/// Fails at the first sample where the current planes of `a` and `b` differ.
inline void ExpectSamePixels(const CProcessWindow& a, const CProcessWindow& b) {
    for (int s : a.image.Slots())
        for (std::uint32_t i = 0; i < a.image.pixelCount; ++i)
            ASSERT_EQ(a.image.curPlane[s][i], b.image.curPlane[s][i]) << "slot " << s << " " << i;
}
inline void ExpectSamePixels(const CProcessWindow* a, const CProcessWindow* b) {
    ExpectSamePixels(*a, *b);
}

/// The folder screenshots go to, created.
inline QString ScreenshotFolder() {
#ifdef ASTRIVELLE_SCREENSHOTS
    const QString folder = ASTRIVELLE_SCREENSHOTS;
#else
    const QString folder = QDir::tempPath() + "/astrivelle-screenshots";
#endif
    QDir().mkpath(folder);
    return folder;
}

} // namespace astrivelle::test
