// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The workbench without any window, end to end: open, operate, undo, redo, blend, save a
/// project, move it, load it elsewhere, run it forward, and render it from the command line.
#include <gtest/gtest.h>

#include <filesystem>

#include "TestSupport.h"
#include "engine/workbench/MainWindow.h"

using namespace astrivelle;
using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

float Pixel(const CProcessWindow& w, int x, int y) {
    return w.image.curPlane[0][y * w.image.width + x];
}

} // namespace

TEST(Workbench, OpenOperateUndoRedoBlendSaveMoveLoadAndRender) {
    ScratchDir dir;
    const fs::path work = dir.path() / "work";
    fs::create_directories(work);
    const std::string origin = (work / "M42.fit").string();
    {
        Image img;
        MakeImage(img, 16, 12, ColorGray, [](int, int x, int y) { return 1000.0 + 10 * x + y; });
        ASSERT_TRUE(img.WriteFile(origin, KindFITS));
    }

    RecordingNotify notify;
    CMainWindow main(&notify);
    CProcessWindow* w = main.OpenImageFile(origin);
    ASSERT_NE(w, nullptr) << (notify.messages.empty() ? "" : notify.messages.back());
    ASSERT_FLOAT_EQ(Pixel(*w, 3, 2), 1032);

    // Add, then Multiply: the same operator again changes its pending step, from its input.
    ASSERT_TRUE(w->PixelMathAdd(false, 100, 0, 65535, 0));
    EXPECT_FLOAT_EQ(Pixel(*w, 3, 2), 1132);
    ASSERT_TRUE(w->PixelMathMultiply(2.0, 0, 65535, 0));
    EXPECT_FLOAT_EQ(Pixel(*w, 3, 2), 2064);
    EXPECT_EQ(w->history.size(), 2u);
    ASSERT_TRUE(w->Undo());
    EXPECT_FLOAT_EQ(Pixel(*w, 3, 2), 1032);
    ASSERT_TRUE(w->Redo());
    EXPECT_FLOAT_EQ(Pixel(*w, 3, 2), 2064);
    // Redo leaves the redone step open to change: the same operator edits it, from its input.
    ASSERT_TRUE(w->PixelMathMultiply(1.5, 0, 65535, 0));
    EXPECT_FLOAT_EQ(Pixel(*w, 3, 2), 1548);
    ASSERT_EQ(w->history.size(), 2u);

    // Blend the step at half opacity: halfway between its input and its result.
    CProcessStructure half = w->history[w->currentStep];
    half.opacity = 0.5;
    ASSERT_TRUE(w->ReapplyBlend(false, &half));
    EXPECT_FLOAT_EQ(Pixel(*w, 3, 2), 1290);
    w->history[w->currentStep].opacity = 0.5;

    // Save the project with its images, then move the whole folder away.
    ASSERT_TRUE(w->SaveStepImage());
    const std::string project = (work / "M42.qxj").string();
    ASSERT_TRUE(w->SaveProject(project, "M42 final", "Y", "Y", "Y"))
        << (notify.messages.empty() ? "" : notify.messages.back());
    const int steps = static_cast<int>(w->history.size());
    main.CloseAll();
    const fs::path moved = dir.path() / "moved";
    fs::rename(work, moved);

    // Elsewhere: load it (the moved project is restored into its own folder) and go forward.
    RecordingNotify notify2;
    notify2.answer = Answer::Yes;
    notify2.folderAnswer = moved.string(); // restore into the folder it was moved to
    CMainWindow other(&notify2);
    CProcessWindow* loaded = other.LoadProject((moved / "M42.qxj").string());
    std::string said;
    for (const std::string& m : notify2.messages)
        said += m + " | ";
    ASSERT_NE(loaded, nullptr) << said;
    EXPECT_EQ(static_cast<int>(loaded->history.size()), steps);
    EXPECT_EQ(loaded->currentStep, 0);
    EXPECT_FLOAT_EQ(Pixel(*loaded, 3, 2), 1032);
    ASSERT_TRUE(loaded->AllCommands(0));
    EXPECT_FLOAT_EQ(Pixel(*loaded, 3, 2), 1290);

    // The command line renders the same image from the project without any window.
    const std::string rendered = dir.file("render.fit");
    std::string out;
    ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_CLI) + " project render '" +
                             (moved / "M42.qxj").string() + "' -o '" + rendered +
                             "' --save-type UNCOMPFIT32",
                         &out),
              0)
        << out;
    Image r;
    ASSERT_TRUE(r.ReadFile(rendered, ".fit"));
    EXPECT_FLOAT_EQ(r.curPlane[0][2 * 16 + 3], 1290);
}
