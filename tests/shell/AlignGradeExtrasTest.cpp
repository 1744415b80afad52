// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The search angle controls and the mosaic size of the Align Files sheet, and the
/// report dialog's Recalculate, Auto Min/Max, Edit Grades and Print Report, driven offscreen.
#include "ToolFrameTestSupport.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QTableWidget>
#include <QTreeWidget>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "imagesets/CombineFiles.h"
#include "imagesets/FileSetRules.h"
#include "shell/AlignSheet.h"
#include "shell/CombineSheet.h"
#include "shell/GradeReportDialog.h"
#include "tests/align/PointScene.h"

namespace astrivelle::test {
namespace {

namespace fs = std::filesystem;

using ExtrasShell = SheetTestShell<>;

constexpr int kW = 320, kH = 240;

/// Frames of one star field, each seen through its map.
std::vector<std::string> WriteFrames(ExtrasShell& shell, const std::vector<Map2>& maps) {
    std::vector<SceneStar> marks;
    for (const auto& p : {std::pair{160, 120}, std::pair{230, 110}, std::pair{70, 60}})
        for (const SceneStar& s : Asterism(p.first, p.second, 25000))
            marks.push_back(s);
    Scene scene = MakeScene(60, kW, kH, 3, marks);
    scene.background = 200;
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < maps.size(); ++i) {
        Image img;
        RenderScene(img, kW, kH, scene, maps[i]);
        paths.push_back(shell.dir.file("m" + std::to_string(i) + ".fit"));
        EXPECT_TRUE(img.WriteFile(paths.back(), KindFITS));
    }
    return paths;
}

void ClickAt(AlignPreview* preview, double x, double y) {
    const QPoint at = preview->WidgetPoint(x, y);
    QMouseEvent press(QEvent::MouseButtonPress, QPointF(at), preview->mapToGlobal(QPointF(at)),
                      Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(preview, &press);
}

/// The request the sheet's run would take, built by hand.
AlignPointRequest MosaicRequest(const std::vector<std::string>& files, double x, double y) {
    AlignPointRequest request;
    request.files = ReferenceFirst(files);
    request.files[0].points[0] = {x, y, 1};
    request.type = AlignPointType::Translate;
    request.mosaic = true;
    return request;
}

// ---- the Align page ---------------------------------------------------------------------------

TEST(AlignGradeExtras, SearchAngleControlsHoldTheirValuesInTheRequest) {
    ExtrasShell shell;
    AlignSheet* sheet = AlignSheet::Show(shell);
    ASSERT_NE(sheet, nullptr);
    struct Case {
        QComboBox* combo;
        std::vector<const char*> texts;
        double AlignPointRequest::*field;
        const char* label;
    };
    const Case cases[] = {
        {sheet->searchAngle,
         {"0.5", "1.0", "2.0", "3.0", "4.0", "5.0"},
         &AlignPointRequest::searchAngle,
         "Search &Angle In Degrees :"},
        {sheet->angleIncrement,
         {"0.01", "0.05", "0.10", "0.20", "0.50"},
         &AlignPointRequest::angleIncrement,
         "Search Angle &Increment In Degrees :"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        ASSERT_NE(c.combo, nullptr);
        ASSERT_EQ(c.combo->count(), static_cast<int>(c.texts.size()));
        // The label the form shows beside the combo.
        bool labelled = false;
        for (QLabel* l : sheet->findChildren<QLabel*>())
            labelled = labelled || (l->text() == c.label && l->buddy() == c.combo);
        EXPECT_TRUE(labelled);
        for (std::size_t i = 0; i < c.texts.size(); ++i) {
            EXPECT_EQ(c.combo->itemText(static_cast<int>(i)).toStdString(), c.texts[i]);
            c.combo->setCurrentIndex(static_cast<int>(i));
            const AlignPointRequest r = sheet->PointRequest({}, "");
            EXPECT_DOUBLE_EQ(r.*c.field, std::stod(c.texts[i])) << c.texts[i];
        }
    }
    // Auto Star has no use for them; the mosaic size only in mosaic mode.
    sheet->methodButtons[0]->setChecked(true);
    EXPECT_FALSE(sheet->searchAngle->isEnabled());
    EXPECT_FALSE(sheet->angleIncrement->isEnabled());
    sheet->methodButtons[1]->setChecked(true);
    EXPECT_TRUE(sheet->searchAngle->isEnabled());
    EXPECT_FALSE(sheet->mosaicSizeButton->isEnabled());
    sheet->mosaicMode->setChecked(true);
    EXPECT_TRUE(sheet->mosaicSizeButton->isEnabled());
    EXPECT_EQ(sheet->mosaicSizeButton->text(), "Mosaic Size...");
}

TEST(AlignGradeExtras, MosaicSizeIsTheEnginesExtentAndASetSizeCentresTheMosaic) {
    ExtrasShell shell;
    // The second frame sees the sky 6 pixels to the right and 4 up.
    const std::vector<std::string> files = WriteFrames(shell, {Map2(), Map2::Shift(6, -4)});
    AlignSheet* sheet = AlignSheet::Show(shell);
    sheet->SetInputFiles(files);
    sheet->fileList->topLevelItem(0)->setCheckState(2, Qt::Checked); // reference
    sheet->fileList->setCurrentItem(sheet->fileList->topLevelItem(0));
    ClickAt(sheet->preview, 160, 120);
    ASSERT_TRUE(sheet->PointsOf(files[0])[0].set);
    sheet->mosaicMode->setChecked(true);

    MosaicSizeDialog* dialog = sheet->OpenMosaicSize();
    ASSERT_NE(dialog, nullptr) << shell.notify.messages.size();
    EXPECT_EQ(dialog->windowTitle(), "Mosaic Size");

    // The engine's sizing pass and the extent its run gives.
    AlignPointRequest request = MosaicRequest(files, 160, 120);
    AlignMosaicExtent engine;
    std::string text;
    ASSERT_TRUE(AlignPointMosaicSize(request, nullptr, &engine, &text)) << text;
    EXPECT_EQ(engine.width, kW + 6);
    EXPECT_EQ(engine.height, kH + 4);
    // The second frame is moved 6 left and 4 down onto the reference: the reference's pixel
    // (0, 0) falls at (6, 0) of the frame.
    EXPECT_EQ(engine.offsetX, 6);
    EXPECT_EQ(engine.offsetY, 0);
    EXPECT_EQ(engine.skipped, 0);
    EXPECT_EQ(dialog->widthBox->value(), engine.width);
    EXPECT_EQ(dialog->heightBox->value(), engine.height);
    EXPECT_EQ(dialog->collected->text().toStdString(),
              "Collected Extent : " + std::to_string(engine.width) + " x " +
                  std::to_string(engine.height));
    request.outputDirectory = shell.dir.file("plain");
    RecordingNotify quiet;
    const AlignPointResult plain = AlignPointFiles(request, nullptr, &quiet);
    ASSERT_TRUE(plain.started) << plain.run.status;
    EXPECT_EQ(plain.outputWidth, engine.width);
    EXPECT_EQ(plain.outputHeight, engine.height);
    EXPECT_EQ(plain.mosaicOffsetX, engine.offsetX);
    EXPECT_EQ(plain.mosaicOffsetY, engine.offsetY);

    // Not below the collected extent; a larger frame is set by OK and reaches the request.
    dialog->widthBox->setValue(engine.width - 50);
    EXPECT_EQ(dialog->widthBox->value(), engine.width);
    dialog->widthBox->setValue(engine.width + 10);
    dialog->heightBox->setValue(engine.height + 7);
    dialog->okButton->click();
    EXPECT_EQ(sheet->MosaicWidth(), engine.width + 10);
    EXPECT_EQ(sheet->MosaicHeight(), engine.height + 7);
    const AlignPointRequest fromSheet = sheet->PointRequest({}, "");
    EXPECT_EQ(fromSheet.mosaicWidth, engine.width + 10);
    EXPECT_EQ(fromSheet.mosaicHeight, engine.height + 7);

    // The run with that frame: the same mosaic, moved by half the margins (5, 3).
    request.mosaicWidth = engine.width + 10;
    request.mosaicHeight = engine.height + 7;
    request.outputDirectory = shell.dir.file("sized");
    const AlignPointResult sized = AlignPointFiles(request, nullptr, &quiet);
    ASSERT_TRUE(sized.started) << sized.run.status;
    EXPECT_EQ(sized.outputWidth, engine.width + 10);
    EXPECT_EQ(sized.outputHeight, engine.height + 7);
    EXPECT_EQ(sized.mosaicOffsetX, engine.offsetX + 5);
    EXPECT_EQ(sized.mosaicOffsetY, engine.offsetY + 3);
    ASSERT_EQ(plain.run.outputs.size(), sized.run.outputs.size());
    for (std::size_t k = 0; k < plain.run.outputs.size(); ++k) {
        Image a, b;
        ASSERT_TRUE(a.ReadFile(plain.run.outputs[k], ".fit"));
        ASSERT_TRUE(b.ReadFile(sized.run.outputs[k], ".fit"));
        ASSERT_EQ(b.width, static_cast<std::uint32_t>(engine.width + 10));
        for (int y = 0; y < engine.height; y += 7)
            for (int x = 0; x < engine.width; x += 5)
                ASSERT_EQ(a.curPlane[0][static_cast<std::size_t>(y) * a.width + x],
                          b.curPlane[0][static_cast<std::size_t>(y + 3) * b.width + x + 5])
                    << k << " at " << x << "," << y;
    }

    // Accepting the collected extent itself sets no size.
    dialog = sheet->OpenMosaicSize();
    ASSERT_NE(dialog, nullptr);
    dialog->widthBox->setValue(dialog->widthBox->minimum());
    dialog->heightBox->setValue(dialog->heightBox->minimum());
    dialog->okButton->click();
    EXPECT_EQ(sheet->MosaicWidth(), 0);
    EXPECT_EQ(sheet->MosaicHeight(), 0);
}

TEST(AlignGradeExtras, MosaicSizeFailuresSayTheRunsTexts) {
    ExtrasShell shell;
    const std::vector<std::string> files = WriteFrames(shell, {Map2(), Map2::Shift(2, 2)});
    struct Case {
        const char* name;
        std::function<void(AlignPointRequest&)> spoil;
        std::string text;
    };
    const Case cases[] = {
        {"reference excluded", [](AlignPointRequest& r) { r.files[0].excluded = 1; },
         kAlignPointReferenceText},
        {"no point", [](AlignPointRequest& r) { r.files[0].points[0].set = 0; },
         kAlignPointInvalidTypeText},
        {"point at the edge",
         [](AlignPointRequest& r) {
             r.files[0].points[0] = {2, 2, 1};
         },
         PointTooCloseText(0, 2, 2)},
        {"a file missing", [&](AlignPointRequest& r) { r.files[1].path += ".gone"; },
         kAlignPointSizeText},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        AlignPointRequest request = MosaicRequest(files, 160, 120);
        c.spoil(request);
        AlignMosaicExtent extent;
        std::string text;
        RecordingNotify notify;
        EXPECT_FALSE(AlignPointMosaicSize(request, &notify, &extent, &text));
        EXPECT_EQ(text, c.text);
        EXPECT_TRUE(notify.messages.empty()) << "the caller words the failure";
    }
    // Through the sheet: said once, no dialog.
    AlignSheet* sheet = AlignSheet::Show(shell);
    sheet->SetInputFiles({files[0], shell.dir.file("absent.fit")});
    sheet->fileList->topLevelItem(0)->setCheckState(2, Qt::Checked); // reference
    sheet->mosaicMode->setChecked(true);
    EXPECT_EQ(sheet->OpenMosaicSize(), nullptr);
    ASSERT_EQ(shell.notify.messages.size(), 1u);
    EXPECT_EQ(shell.notify.messages[0], kAlignPointSizeText);
}

// ---- the grade report -------------------------------------------------------------------------

SharpnessGrade Sharp(const std::string& name, double value) {
    SharpnessGrade g;
    g.path = "/data/" + name + ".fit";
    g.folder = "/data";
    g.name = name;
    g.extension = ".fit";
    g.red = g.green = g.blue = g.mean = value;
    return g;
}

StarShapeGrade Shape(const std::string& name, double e, double s) {
    StarShapeGrade g;
    g.path = "/data/" + name + ".fit";
    g.folder = "/data";
    g.name = name;
    g.extension = ".fit";
    g.eccentricity = e;
    g.size = s;
    g.stars = 10;
    g.selected = true;
    return g;
}

/// Three sharpness entries of means 10, 8, 4 graded with the limits 90, 70, 50, 30.
GradeResult SharpnessList() {
    GradeResult r;
    r.method = GradeMethod::Sharpness;
    r.sharpness = {Sharp("a", 10), Sharp("b", 8), Sharp("c", 4)};
    r.intervals = {90, 70, 50, 30};
    std::string error;
    EXPECT_TRUE(RecalculateGrades(&r, {true, true, true}, &error)) << error;
    return r;
}

/// Three star entries: eccentricities 0.1, 0.2, 0.6 and sizes 2, 3, 4.
GradeResult StarList() {
    GradeResult r;
    r.method = GradeMethod::StarShape;
    r.starShapes = {Shape("a", 0.1, 2.0), Shape("b", 0.2, 3.0), Shape("c", 0.6, 4.0)};
    std::string error;
    EXPECT_TRUE(RecalculateGrades(&r, {true, true, true}, &error)) << error;
    return r;
}

std::vector<int> SelectedRows(const QTableWidget* table) {
    std::vector<int> rows;
    for (int row = 0; row < table->rowCount(); ++row)
        if (table->item(row, 0)->isSelected())
            rows.push_back(row);
    return rows;
}

TEST(AlignGradeExtras, RecalculateAfterDeselectingGivesTheFiguresOfTheRest) {
    ExtrasShell shell;
    {
        SCOPED_TRACE("sharpness");
        GradeReportDialog dialog(SharpnessList(), nullptr, &shell.setup);
        EXPECT_EQ(dialog.recalculateButton->text(), "Recalc&ulate");
        EXPECT_EQ(dialog.figures->text().toStdString(),
                  "Edge Sharpness : Best 1.000, Avg 0.733, Worst 0.400, StdDev 0.306");
        EXPECT_EQ(dialog.table->item(2, 1)->text(), "D");
        dialog.table->item(0, 0)->setSelected(false); // the best one goes
        ASSERT_TRUE(dialog.Recalculate());
        // Scores against the best kept file: 8/8 and 4/8.
        EXPECT_EQ(dialog.figures->text().toStdString(),
                  "Edge Sharpness : Best 1.000, Avg 0.750, Worst 0.500, StdDev 0.354");
        ASSERT_EQ(dialog.table->rowCount(), 2);
        EXPECT_EQ(dialog.table->item(0, 0)->text(), "b.fit");
        EXPECT_EQ(dialog.table->item(0, 1)->text(), "A");
        EXPECT_EQ(dialog.table->item(1, 1)->text(), "C");
        EXPECT_EQ(dialog.table->item(1, 2)->text(), "0.500");
        EXPECT_EQ(SelectedRows(dialog.table), (std::vector<int>{0, 1}));
        EXPECT_NE(dialog.PrintText().find("Total Files: 2\n"), std::string::npos);
    }
    {
        SCOPED_TRACE("star shape");
        GradeReportDialog dialog(StarList(), nullptr, &shell.setup);
        dialog.table->item(2, 0)->setSelected(false);
        ASSERT_TRUE(dialog.Recalculate());
        const GradeResult& r = dialog.Result();
        ASSERT_EQ(r.starShapes.size(), 2u);
        EXPECT_NEAR(r.eccentricity.avg, 0.15, 1e-12);
        EXPECT_NEAR(r.eccentricity.stdDev, std::sqrt(0.005), 1e-12);
        EXPECT_NEAR(r.size.avg, 2.5, 1e-12);
        EXPECT_NEAR(r.combined.max, 3.2, 1e-12);
        EXPECT_NEAR(r.combined.stdDev, std::sqrt(0.605), 1e-12);
        EXPECT_EQ(dialog.figures->text().toStdString(),
                  "Star Eccentricity : Min 0.100, Avg 0.150, Max 0.200, StD 0.071  -  Star Size : "
                  "Min 2.000, Avg 2.500, Max 3.000, StD 0.707\n"
                  "Star Eccentricity : Min 0.100, Avg 0.150, Max 0.200, StD 0.071\n"
                  "Star Size : Min 2.000, Avg 2.500, Max 3.000, StD 0.707");
        // Nothing selected: refused, the list as it was.
        dialog.table->clearSelection();
        EXPECT_FALSE(dialog.Recalculate());
        EXPECT_EQ(dialog.figures->text().toStdString(), kGradeNoneText);
        EXPECT_EQ(dialog.Result().starShapes.size(), 2u);
    }
}

TEST(AlignGradeExtras, AutoMinMaxSelectsTheRowsWithinTheAutomaticLimits) {
    ExtrasShell shell;
    struct Case {
        const char* name;
        GradeResult list;
        std::vector<int> rows;
    };
    // Star: E + S of 2.1, 3.2, 4.6 against (0.3 + 0.2646) + (3 + 1) = 4.5646.
    // Sharpness: scores 1, 0.8, 0.4 against 0.7333 - 0.3055 = 0.4278.
    const Case cases[] = {{"star shape", StarList(), {0, 1}},
                          {"sharpness", SharpnessList(), {0, 1}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        GradeReportDialog dialog(c.list, nullptr, &shell.setup);
        EXPECT_EQ(dialog.autoButton->text(), "Auto Min/Max");
        dialog.table->clearSelection();
        dialog.autoButton->click();
        EXPECT_EQ(SelectedRows(dialog.table), c.rows);
    }
}

TEST(AlignGradeExtras, EditGradesRefusesOutOfRangeAndStoresWhereTheCombineReadsThem) {
    ExtrasShell shell;
    struct Parse {
        const char* text;
        bool ok;
        int value;
    };
    for (const Parse& p : {Parse{"0", true, 0}, Parse{"100", true, 100}, Parse{" 50 ", true, 50},
                           Parse{"101", false, 0}, Parse{"-1", false, 0}, Parse{"", false, 0},
                           Parse{"7.5", false, 0}, Parse{"abc", false, 0}}) {
        int v = -9;
        EXPECT_EQ(ParseGradeWeight(p.text, &v), p.ok) << p.text;
        if (p.ok) {
            EXPECT_EQ(v, p.value) << p.text;
        }
    }

    GradeReportDialog report(StarList(), nullptr, &shell.setup);
    EXPECT_EQ(report.editGradesButton->text(), "&Edit Grades");
    report.editGradesButton->click();
    auto* dialog = report.findChild<GradeWeightsDialog*>();
    ASSERT_NE(dialog, nullptr);
    // It opens on the defaults of the setup.
    const char* start[5] = {"100", "75", "50", "25", "0"};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(dialog->weights[i]->text().toStdString(), start[i]) << i;
    const char* typed[5] = {"90", "60", "101", "20", "5"};
    for (int i = 0; i < 5; ++i)
        dialog->weights[i]->setText(typed[i]);
    dialog->okButton->click();
    EXPECT_TRUE(dialog->isVisible()) << "refused: the dialog stays";
    EXPECT_EQ(dialog->message->text().toStdString(), kGradeWeightRangeText);
    EXPECT_EQ(GradeWeightPercents(shell.setup), (std::array<int, 5>{100, 75, 50, 25, 0}));
    EXPECT_EQ(shell.setup.records.count(kGradeWeightsRecord), 0u);

    dialog->weights[2]->setText("40");
    dialog->okButton->click();
    const std::array<int, 5> want{90, 60, 40, 20, 5};
    EXPECT_EQ(GradeWeightPercents(shell.setup), want);
    EXPECT_EQ(shell.setup.integerPresets[0], 90);
    EXPECT_EQ(shell.setup.integerPresets[3], 20);
    EXPECT_EQ(shell.setup.integerPresets[4], 90) << "the grade limits are left alone";

    // Through the setup file and back.
    const std::string path = shell.dir.file("setup.qxp");
    std::string error;
    ASSERT_TRUE(SaveSetupParams(path, shell.setup, &error)) << error;
    CSetupParams back;
    ASSERT_TRUE(LoadSetupParams(path, back, &error)) << error;
    EXPECT_EQ(GradeWeightPercents(back), want);

    // The graded combine weighs files by those percents.
    EXPECT_EQ(GradeWeights({"/x/AGA_Average1000_a.fit", "/x/AGC_Average0500_b.fit",
                            "/x/AGF_Average0100_c.fit"},
                           {}, GradeWeightPercents(back)),
              (std::vector<double>{0.90, 0.40, 0.05}));
}

TEST(AlignGradeExtras, GradedCombineOfTheSheetUsesTheStoredWeights) {
    ExtrasShell shell;
    ASSERT_TRUE(SetGradeWeightPercents(shell.setup, {80, 60, 40, 20, 10}));
    std::vector<std::string> files;
    for (const auto& [name, value] : {std::pair{"AGA_Average1000_a.fit", 1000.0f},
                                      std::pair{"AGF_Average0400_b.fit", 3000.0f}}) {
        Image img;
        MakeImage(img, 16, 12, ColorGray, [&](int, int, int) { return value; });
        files.push_back(shell.dir.file(name));
        ASSERT_TRUE(img.WriteFile(files.back(), KindFITS));
    }
    CombineSheet* sheet = CombineSheet::Show(shell);
    ASSERT_NE(sheet, nullptr);
    sheet->SetInputFiles(files);
    Select(sheet->method, "Auto Edge Sharpness Graded Average");
    sheet->outputDirectory->setText(QString::fromStdString(shell.dir.file("out")));
    ASSERT_TRUE(sheet->Run()) << shell.notify.messages.size();
    ASSERT_TRUE(sheet->WaitForRun());
    ASSERT_EQ(sheet->LastResult().outputs.size(), 1u) << sheet->LastResult().status;
    Image out;
    const std::string result = sheet->LastResult().outputs[0];
    ASSERT_TRUE(out.ReadFile(result, fs::path(result).extension().string()));
    // 0.8 x 1000 + 0.1 x 3000.
    EXPECT_NEAR(out.curPlane[SlotOfColorType(out.colorType)][17], 1100.0f, 0.5f);
}

TEST(AlignGradeExtras, PrintReportGivesThePrintLinesAndAPdf) {
    ExtrasShell shell;
    GradeResult list = StarList();
    list.starShapes = {Shape("a", 0.1, 2.0), Shape("b", 0.2, 3.0)};
    std::string error;
    ASSERT_TRUE(RecalculateGrades(&list, {true, true}, &error));
    GradeReportDialog dialog(list, nullptr, &shell.setup);
    EXPECT_EQ(dialog.printButton->text(), "&Print Report");
    const std::string want =
        "Auto Star Shape and Size Grade\n\n"
        "Total Files: 2\n\n"
        "       Eccentricity :  Minimum : 0.100     Average : 0.150     Maximum : 0.200     Std. "
        "Dev. : 0.071\n\n"
        "          Star Size :  Minimum : 2.000     Average : 2.500     Maximum : 3.000     Std. "
        "Dev. : 0.707\n\n"
        "Eccentricity & Size :  Minimum : 2.100     Average : 2.650     Maximum : 3.200     Std. "
        "Dev. : 0.778\n\n"
        "File  -  Avg Eccentricity  -  Avg Star Size  -  Avg Ecc and Size\n"
        "a.fit  -  0.100  -  2.000  -  2.100\n"
        "b.fit  -  0.200  -  3.000  -  3.200\n";
    EXPECT_EQ(dialog.PrintText(), want);

    const std::string pdf = shell.dir.file("report.pdf");
    ASSERT_TRUE(dialog.PrintReport(pdf, &error)) << error;
    std::ifstream in(pdf, std::ios::binary);
    std::string head(5, '\0');
    in.read(head.data(), 5);
    EXPECT_EQ(head, "%PDF-");
    EXPECT_GT(fs::file_size(pdf), 500u);
    EXPECT_FALSE(dialog.PrintReport(shell.dir.file("no/such/folder/report.pdf"), &error));
    EXPECT_EQ(error, "Could not write " + shell.dir.file("no/such/folder/report.pdf"));
}

} // namespace
} // namespace astrivelle::test
