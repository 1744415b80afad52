// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The New Image, Copy Portion and Convert Color Type dialogs call the model with what
/// their fields hold.
#include <gtest/gtest.h>

#include "ToolFrameTestSupport.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLineEdit>
#include <QSpinBox>

#include "shell/ImageDialogs.h"

using namespace astrivelle;
using namespace astrivelle::test;

TEST(ImageDialogs, NewImageMakesTheImageOfTheFields) {
    for (bool color : {false, true}) {
        ToolTestShell shell;
        CNewImage dialog(shell);
        dialog.widthBox->setValue(9);
        dialog.heightBox->setValue(5);
        dialog.colorCheck->setChecked(color);
        dialog.valueBox->setValue(1234);
        CProcessWindow* w = dialog.Create();
        ASSERT_NE(w, nullptr) << shell.LastMessage();
        EXPECT_EQ(shell.model.ActiveImage(), w);
        EXPECT_EQ(w->image.width, 9);
        EXPECT_EQ(w->image.height, 5);
        EXPECT_EQ(w->image.colorType, color ? ColorRGB : ColorGray);
        for (int s : w->image.Slots())
            EXPECT_EQ(w->image.curPlane[s][44], 1234.0f);
        ASSERT_EQ(w->history.size(), 1u);
        EXPECT_EQ(w->history[0].operation, "New Image");
        ASSERT_EQ(shell.changed.size(), 1u);
        EXPECT_EQ(shell.changed[0], w);
    }
}

TEST(ImageDialogs, NewImageRefusedByTheLimitSaysSo) {
    ToolTestShell shell;
    shell.model.maxOpenImages = 1;
    CNewImage first(shell);
    first.widthBox->setValue(4);
    first.heightBox->setValue(4);
    ASSERT_NE(first.Create(), nullptr);
    CNewImage second(shell);
    EXPECT_EQ(second.Create(), nullptr);
    EXPECT_EQ(shell.LastMessage(), OpenImageLimitText(1));
    EXPECT_EQ(shell.changed.size(), 1u);
}

TEST(ImageDialogs, CopyPortionCopiesTheRectangle) {
    ToolTestShell shell;
    CProcessWindow* src =
        shell.MakeImage(20, 10, false, [](int, int x, int y) { return x + 100 * y; });
    CCopyPortion dialog(shell);
    EXPECT_EQ(dialog.widthBox->value(), 20) << "the whole image by default";
    EXPECT_EQ(dialog.heightBox->value(), 10);
    dialog.xBox->setValue(3);
    dialog.yBox->setValue(2);
    dialog.widthBox->setValue(5);
    dialog.heightBox->setValue(4);
    dialog.nameEdit->setText("Core");
    CProcessWindow* part = dialog.Create();
    ASSERT_NE(part, nullptr) << shell.LastMessage();
    EXPECT_NE(part, src);
    EXPECT_EQ(part->image.width, 5);
    EXPECT_EQ(part->image.height, 4);
    EXPECT_EQ(part->image.curPlane[0][0], 3 + 200);
    EXPECT_EQ(part->image.curPlane[0][4 + 3 * 5], 7 + 500);
    EXPECT_EQ(part->title.rfind("Core_", 0), 0u) << part->title;
    EXPECT_EQ(part->history[0].operation, "Copy Portion");
}

TEST(ImageDialogs, CopyPortionAndConvertWithoutAnImage) {
    ToolTestShell shell;
    EXPECT_EQ(CCopyPortion::Show(shell), nullptr);
    EXPECT_EQ(shell.LastMessage(), "Please Open An Image First.");
    shell.notify.messages.clear();
    EXPECT_FALSE(CConvertColorType::Show(shell));
    EXPECT_EQ(shell.LastMessage(), "Please Open An Image First.");
}

TEST(ImageDialogs, ConvertColorTypeMovesThePlaneAndHonoursTheGuards) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(6, 4, false, [](int, int x, int) { return 10 * x; });
    CConvertColorType dialog(shell);
    EXPECT_EQ(dialog.typeList->currentText(), "Gray");
    dialog.typeList->setCurrentText("Green");
    ASSERT_EQ(dialog.ChosenType(), static_cast<std::uint32_t>(ColorGreen));

    w->fileOpBusy = true;
    EXPECT_FALSE(dialog.Convert());
    EXPECT_EQ(shell.LastMessage(), "Image File Operation In Progress");
    EXPECT_EQ(w->image.colorType, ColorGray);
    w->fileOpBusy = false;

    ASSERT_TRUE(dialog.Convert());
    EXPECT_EQ(w->image.colorType, ColorGreen);
    EXPECT_EQ(w->image.curPlane[0], nullptr);
    ASSERT_NE(w->image.curPlane[1], nullptr);
    EXPECT_EQ(w->image.curPlane[1][5], 50.0f);
    EXPECT_EQ(shell.notify.captions.back(), w->title + " - Green");

    // An RGB image has no single channel to rename.
    CProcessWindow* rgb = shell.MakeImage(4, 4, true, [](int, int, int) { return 1; });
    CConvertColorType onRgb(shell);
    EXPECT_FALSE(onRgb.typeList->isEnabled());
    EXPECT_FALSE(onRgb.Convert());
    EXPECT_EQ(rgb->image.colorType, ColorRGB);
}
