// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The manual page of Grade Files: a pass through the sheet's list with its keys, the
/// display aids, the copies and their names, the weights fields and the refusals.
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <filesystem>

#include "ToolFrameTestSupport.h"
#include "engine/ProcessStructure.h"
#include "imagesets/FilterFiles.h"
#include "imagesets/GradeFiles.h"
#include "operators/Registry.h"
#include "shell/GradeReportDialog.h"
#include "shell/GradeSheet.h"
#include "shell/ManualGradePage.h"

using namespace astrivelle;
using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

using SheetShell = SheetTestShell<>;

std::string Frame(SheetShell& shell, const std::string& name, double level) {
    return shell.Fits(name, 40, 30,
                      [&](int x, int y) { return level + 20.0 * x + 10.0 * ((x * y) % 7); });
}

} // namespace

TEST(ManualGradePage, APassThroughTheListWithItsKeysAndAids) {
    SheetShell shell;
    const std::vector<std::string> files = {Frame(shell, "one.fit", 1000),
                                            Frame(shell, "two.fit", 2000),
                                            Frame(shell, "three.fit", 3000)};
    GradeSheet* sheet = GradeSheet::Show(shell);
    ASSERT_NE(sheet, nullptr);
    ManualGradePage* page = sheet->manual;
    ASSERT_NE(page, nullptr);
    EXPECT_FALSE(Press(page, "gradeA")) << "the keys wait for a start";
    sheet->SetInputFiles(files);
    sheet->outputDirectory->setText(QString::fromStdString(shell.dir.file("graded")));
    ASSERT_TRUE(Press(page, "startManual"));
    EXPECT_EQ(page->status->text().toStdString(), kManualGradeInProgressText);
    EXPECT_EQ(page->fileLabel->text().toStdString(), "1 / 3  one.fit");
    ASSERT_NE(page->Shown(), nullptr);
    EXPECT_EQ(page->Shown()->curPlane[0][1], 1020.0f) << "Auto shows the pixels as they are";
    EXPECT_FALSE(page->picture->pixmap().isNull());

    // A stretch aid shows the file through the operator's own first form (no image is open
    // to take the last applied parameters from).
    Select(page->aid, "DDP");
    Image expected;
    ASSERT_TRUE(expected.ReadFile(files[0], ".fit"));
    CProcessStructure ddp;
    ddp.operation = "Digital Development";
    ddp.parameters = FindOperator(ddp.operation)->examples.front();
    std::string why;
    ASSERT_TRUE(ApplyRecords(expected, {ddp}, &why)) << why;
    ASSERT_NE(page->Shown(), nullptr);
    for (std::size_t i = 0; i < expected.pixelCount; i += 37)
        ASSERT_EQ(page->Shown()->curPlane[0][i], expected.curPlane[0][i]) << i;
    EXPECT_NE(page->Shown()->curPlane[0][1], 1020.0f);

    ASSERT_TRUE(Press(page, "gradeB"));
    EXPECT_EQ(page->fileLabel->text().toStdString(), "2 / 3  two.fit");
    ASSERT_TRUE(Press(page, "skip"));
    ASSERT_TRUE(Press(page, "gradeA"));
    EXPECT_EQ(page->status->text().toStdString(), kManualGradeCompleteText);
    EXPECT_FALSE(Press(page, "gradeA")) << "the pass is over";
    EXPECT_TRUE(fs::exists(shell.dir.file("graded/AGB_Average_one.fit")));
    EXPECT_TRUE(fs::exists(shell.dir.file("graded/AGA_Average_three.fit")));
    EXPECT_FALSE(fs::exists(shell.dir.file("graded/AGA_Average_two.fit")));
    EXPECT_EQ(page->Session().Outputs().size(), 2u);
}

TEST(ManualGradePage, WeightsCancelAndRefusals) {
    SheetShell shell;
    GradeSheet* sheet = GradeSheet::Show(shell);
    ManualGradePage* page = sheet->manual;
    // The weights are the system's five integers: shown, stored, a bad one refused.
    EXPECT_EQ(page->weights->weights[1]->text().toStdString(),
              std::to_string(GradeWeightPercents(shell.setup)[1]));
    TypeField(page->weights->weights[0], "80");
    TypeField(page->weights->weights[4], "5");
    EXPECT_EQ(GradeWeightPercents(shell.setup)[0], 80);
    EXPECT_EQ(GradeWeightPercents(shell.setup)[4], 5);
    TypeField(page->weights->weights[2], "120");
    EXPECT_EQ(page->status->text().toStdString(), kGradeWeightRangeText);
    EXPECT_EQ(GradeWeightPercents(shell.setup)[0], 80) << "nothing stored";

    // No files: the sheet's own refusal.
    EXPECT_FALSE(page->Start());
    ASSERT_FALSE(shell.notify.messages.empty());
    EXPECT_EQ(shell.notify.messages.back(), kGradeOneImageText);

    // A cancel ends the pass and leaves the copies made.
    sheet->SetInputFiles({Frame(shell, "a.fit", 500), Frame(shell, "b.fit", 600)});
    sheet->outputDirectory->setText(QString::fromStdString(shell.dir.file("out")));
    ASSERT_TRUE(page->Start());
    ASSERT_TRUE(Press(page, "gradeD"));
    ASSERT_TRUE(Press(page, "cancelManual"));
    EXPECT_EQ(page->status->text().toStdString(), kManualGradeCanceledText);
    EXPECT_FALSE(Press(page, "gradeA"));
    EXPECT_TRUE(fs::exists(shell.dir.file("out/AGD_Average_a.fit")));
    EXPECT_TRUE(Press(page, "startManual")) << "a new pass may start";
}
