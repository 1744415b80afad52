// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The image properties panel: the rows it shows and the header editing texts.
#include <gtest/gtest.h>

#include "ToolFrameTestSupport.h"

#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QTableWidget>

#include "shell/PropertiesTool.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

float Flat(int, int, int) {
    return 100.0f;
}

void Fill(CImgAttrib* panel, const char* property, const char* value, const char* type) {
    panel->propertyEdit->setText(property);
    panel->valueEdit->setText(value);
    panel->commentEdit->setText("");
    panel->dataTypeList->setCurrentText(type);
}

int RowOf(CImgAttrib* panel, const std::string& property) {
    for (int r = 0; r < panel->table->rowCount(); ++r)
        if (panel->table->item(r, 0)->text().toStdString() == property)
            return r;
    return -1;
}

} // namespace

TEST(PropertiesTool, ShowsTheFitsRowsAndTheStateRows) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(12, 7, true, Flat);
    w->image.fileType = KindFITS;
    w->image.headerCards = {{"OBSERVER", "Vega", "who", CardString}};
    w->closeLocked = true;
    CImgAttrib* panel = CImgAttrib::Show(shell);
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->windowTitle().toStdString(), "Image Properties - " + w->title);
    EXPECT_EQ(panel->heading->text(), "FITS Image Properties:");
    EXPECT_EQ(panel->table->horizontalHeaderItem(0)->text(), "Property");
    EXPECT_EQ(panel->table->horizontalHeaderItem(1)->text(), "Value");
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"Image Width", "12"},
        {"Image Height", "7"},
        {"OBSERVER", "Vega / who"},
        {"Color Type", "RGB"},
        {"Combination Role", "Close Locked"},
    };
    ASSERT_EQ(panel->table->rowCount(), static_cast<int>(expected.size()));
    for (int r = 0; r < panel->table->rowCount(); ++r) {
        EXPECT_EQ(panel->table->item(r, 0)->text().toStdString(), expected[r].first);
        EXPECT_EQ(panel->table->item(r, 1)->text().toStdString(), expected[r].second);
    }
    EXPECT_FALSE(panel->editBox->isHidden());
}

TEST(PropertiesTool, HeaderEditingTexts) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(8, 8, false, Flat);
    w->image.fileType = KindFITS;
    w->image.headerCards = {{"NAXIS", "2", "", CardInteger}};
    CImgAttrib* panel = CImgAttrib::Show(shell);

    struct Case {
        const char* property;
        const char* value;
        const char* type;
        const char* text;
    };
    const Case refusals[] = {
        {"   ", "x", "String", "Key value should not be blank."},
        {"naxis", "3", "Integer", "Key value is a reserved key, please choose another key."},
        {"bzero", "0", "Integer", "Key value is a reserved key, please choose another key."},
        {"FLIPPED", "X", "Boolean", "Please enter only a T or F for a boolean."},
        {"FLIPPED", "true", "Boolean", "Please enter only a T or F for a boolean."},
    };
    for (const Case& c : refusals) {
        shell.notify.messages.clear();
        Fill(panel, c.property, c.value, c.type);
        ASSERT_TRUE(Press(panel, "addCard"));
        EXPECT_EQ(shell.LastMessage(), c.text) << c.property << " " << c.value;
        EXPECT_EQ(w->image.headerCards.size(), 1u);
    }

    // A good card: trimmed, upper-cased, appended and shown.
    shell.notify.messages.clear();
    Fill(panel, " flipped", "T", "Boolean");
    ASSERT_TRUE(Press(panel, "addCard"));
    EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
    ASSERT_EQ(w->image.headerCards.size(), 2u);
    EXPECT_EQ(w->image.headerCards[1].key, "FLIPPED");
    EXPECT_EQ(w->image.headerCards[1].value, "T");
    EXPECT_EQ(w->image.headerCards[1].dataType, static_cast<std::uint32_t>(CardLogical));
    const int flipped = RowOf(panel, "FLIPPED");
    ASSERT_GE(flipped, 0);

    // Change and delete need a selected row that holds an editable card.
    panel->table->clearSelection();
    panel->table->setCurrentCell(-1, -1);
    ASSERT_TRUE(Press(panel, "changeCard"));
    EXPECT_EQ(shell.LastMessage(), "Please select a key using the mouse.");
    ASSERT_TRUE(Press(panel, "deleteCard"));
    EXPECT_EQ(shell.LastMessage(), "Please select a key using the mouse.");
    for (const char* refused : {"Image Width", "NAXIS"}) {
        panel->table->selectRow(RowOf(panel, refused));
        ASSERT_TRUE(Press(panel, "changeCard"));
        EXPECT_EQ(shell.LastMessage(), "Could not change this item.") << refused;
        panel->table->selectRow(RowOf(panel, refused));
        ASSERT_TRUE(Press(panel, "deleteCard"));
        EXPECT_EQ(shell.LastMessage(), "Could not delete this item.") << refused;
    }
    EXPECT_EQ(w->image.headerCards.size(), 2u);

    // Selecting a row fills the fields; a change replaces the card.
    shell.notify.messages.clear();
    panel->table->selectRow(RowOf(panel, "FLIPPED"));
    EXPECT_EQ(panel->propertyEdit->text(), "FLIPPED");
    EXPECT_EQ(panel->valueEdit->text(), "T");
    panel->valueEdit->setText("F");
    ASSERT_TRUE(Press(panel, "changeCard"));
    EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
    EXPECT_EQ(w->image.headerCards[1].value, "F");

    panel->table->selectRow(RowOf(panel, "FLIPPED"));
    ASSERT_TRUE(Press(panel, "deleteCard"));
    EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
    ASSERT_EQ(w->image.headerCards.size(), 1u);
    EXPECT_EQ(RowOf(panel, "FLIPPED"), -1);
}

TEST(PropertiesTool, FollowsTheActiveImage) {
    ToolTestShell shell;
    CProcessWindow* a = shell.MakeImage(8, 8, false, Flat);
    a->image.fileType = KindFITS;
    CImgAttrib* panel = CImgAttrib::Show(shell);
    CProcessWindow* b = shell.MakeImage(20, 3, false, Flat);
    b->image.fileType = KindFITS;
    ToolFrame::ActiveImageChanged();
    EXPECT_EQ(panel->windowTitle().toStdString(), "Image Properties - " + b->title);
    EXPECT_EQ(panel->table->item(0, 1)->text(), "20");
    EXPECT_EQ(panel->table->item(1, 1)->text(), "3");
}

TEST(PropertiesTool, Screenshot) {
    ToolTestShell shell;
    CProcessWindow* w = shell.MakeImage(640, 480, false, Flat);
    w->image.fileType = KindFITS;
    w->image.headerCards = {{"OBSERVER", "Vega", "who observed", CardString},
                            {"EXPTIME", "120.0", "EXPOSURE IN SECONDS", CardReal}};
    CImgAttrib* panel = CImgAttrib::Show(shell);
    panel->adjustSize();
    ASSERT_TRUE(panel->grab().save(ScreenshotFolder() + "/PropertiesTool.png"));
}
