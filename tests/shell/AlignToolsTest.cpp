// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The geometric transform sheet, the alignment, planet and grade sheets and the star
/// readout driven offscreen: each gives what the engine function gives for the same values.
#include "ToolFrameTestSupport.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QSpinBox>
#include <QTabWidget>

#include <QMouseEvent>
#include <QTableWidget>
#include <QTreeWidget>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "engine/StarShape.h"
#include "imagesets/FileSetRules.h"
#include "operators/Geometry.h"
#include "shell/AlignSheet.h"
#include "shell/GeoTransformTool.h"
#include "shell/GradeReportDialog.h"
#include "shell/GradeSheet.h"
#include "shell/PlanetAlignSheet.h"
#include "shell/StarShapeReadout.h"
#include "tests/align/PointScene.h"

namespace astrivelle::test {
namespace {

float Ramp(int s, int x, int y) {
    return static_cast<float>(500 + x * 900 + y * 370 + s * 200 + ((x * y) % 7) * 50);
}

/// Applies the tool's current page to `target` and the same step through the operator
/// function to `expected`; both must agree in record and pixels.
void ExpectSameAsOperator(ToolTestShell& shell, CProcessWindow* target, CProcessWindow* expected,
                          const std::function<bool(CProcessWindow*)>& op) {
    CGEOTRANSFORM* tool = CGEOTRANSFORM::Show(shell);
    ASSERT_NE(tool, nullptr);
    ASSERT_TRUE(op(expected));
    ASSERT_TRUE(Press(tool, "apply"));
    EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
    ASSERT_EQ(target->history.size(), expected->history.size());
    EXPECT_EQ(target->history.back().operation, expected->history.back().operation);
    EXPECT_EQ(target->history.back().parameters, expected->history.back().parameters);
    ASSERT_EQ(target->image.width, expected->image.width);
    ASSERT_EQ(target->image.height, expected->image.height);
    ExpectSamePixels(*target, *expected);
}

TEST(GeoTransformTool, EachPageAppliesLikeItsOperator) {
    for (bool color : {false, true}) {
        SCOPED_TRACE(color ? "rgb" : "mono");
        {
            ToolTestShell shell;
            CProcessWindow* expected = shell.MakeImage(40, 30, color, Ramp);
            CProcessWindow* target = shell.MakeImage(40, 30, color, Ramp);
            CGEOTRANSFORM* tool = CGEOTRANSFORM::Show(shell);
            tool->pages->setCurrentWidget(tool->rotatePage);
            Select(tool->rotateDirection, "Rotate CCW (Degrees)");
            TypeField(tool->angle, "12.5");
            tool->aboutX->setValue(17);
            tool->aboutY->setValue(11);
            TypeField(tool->rotateBorder, "300");
            tool->addBorder->setChecked(true);
            Select(tool->rotateInterpolation, "Bicubic");
            RotateParams p;
            p.angle = 12.5;
            p.clockwise = false;
            p.aboutX = 17;
            p.aboutY = 11;
            p.border = 300;
            p.addBorder = true;
            p.interpolation = InterpolateBicubic;
            ExpectSameAsOperator(shell, target, expected,
                                 [&](CProcessWindow* w) { return w->Rotate(p); });
            EXPECT_NE(target->image.width, 40u) << "Add Border grows the image";
        }
        {
            ToolTestShell shell;
            CProcessWindow* expected = shell.MakeImage(40, 30, color, Ramp);
            CProcessWindow* target = shell.MakeImage(40, 30, color, Ramp);
            CGEOTRANSFORM* tool = CGEOTRANSFORM::Show(shell);
            tool->pages->setCurrentWidget(tool->scalePage);
            tool->bySize->setChecked(true);
            TypeField(tool->scaleWidth, "55");
            TypeField(tool->scaleHeight, "21");
            Select(tool->scaleInterpolation, "Nearest Neighbor");
            ScaleStepParams p;
            p.byFactor = false;
            p.width = 55;
            p.height = 21;
            p.interpolation = InterpolateNearest;
            ExpectSameAsOperator(shell, target, expected,
                                 [&](CProcessWindow* w) { return w->Scale(p); });
            EXPECT_EQ(target->image.width, 55u);
        }
        {
            ToolTestShell shell;
            CProcessWindow* expected = shell.MakeImage(40, 30, color, Ramp);
            CProcessWindow* target = shell.MakeImage(40, 30, color, Ramp);
            CGEOTRANSFORM* tool = CGEOTRANSFORM::Show(shell);
            tool->pages->setCurrentWidget(tool->translatePage);
            Select(tool->verticalDirection, "Translate Up");
            Select(tool->horizontalDirection, "Translate Left");
            TypeField(tool->shiftY, "3.25");
            TypeField(tool->shiftX, "7.5");
            TypeField(tool->borderPixel, "1000");
            TranslateParams p;
            p.up = true;
            p.left = true;
            p.dy = 3.25;
            p.dx = 7.5;
            p.border = 1000;
            ExpectSameAsOperator(shell, target, expected,
                                 [&](CProcessWindow* w) { return w->Translate(p); });
            EXPECT_NE(target->history.back().parameters.find("Translate Up : 3.2500#"),
                      std::string::npos)
                << target->history.back().parameters;
        }
    }
}

TEST(GeoTransformTool, MirrorsRecordAndUndo) {
    ToolTestShell shell;
    CProcessWindow* original = shell.MakeImage(12, 9, false, Ramp);
    CProcessWindow* expected = shell.MakeImage(12, 9, false, Ramp);
    // An image read from its file keeps step files: undo goes back through them.
    Image file;
    MakeImage(file, 12, 9, ColorGray, [](int s, int x, int y) { return Ramp(s, x, y); });
    const std::string path = shell.dir.file("ramp.fit");
    ASSERT_TRUE(file.WriteFile(path, KindFITS));
    CProcessWindow* target = shell.model.OpenImageFile(path);
    ASSERT_NE(target, nullptr);
    ASSERT_EQ(shell.ActiveImage(), target);
    ExpectSamePixels(*target, *original);
    CGEOTRANSFORM* tool = CGEOTRANSFORM::Show(shell);
    ASSERT_TRUE(expected->MirrorVertical());
    ASSERT_TRUE(Press(tool, "mirrorVertical"));
    EXPECT_EQ(target->history.back().operation, "Mirror Vertical");
    EXPECT_EQ(target->history.back().parameters, "Mirror : Vertical#");
    ExpectSamePixels(*target, *expected);
    ASSERT_TRUE(expected->MirrorHorizontal());
    ASSERT_TRUE(Press(tool, "mirrorHorizontal"));
    EXPECT_EQ(target->history.back().parameters, "Mirror : Horizontal#");
    EXPECT_EQ(target->history.size(), 3u);
    ExpectSamePixels(*target, *expected);
    EXPECT_FALSE(SamePixels(*target, *original));
    ASSERT_TRUE(target->Undo());
    ASSERT_TRUE(target->Undo());
    ExpectSamePixels(*target, *original);
}

TEST(GeoTransformTool, RefusesFieldsWithTheFixedTexts) {
    struct Case {
        const char* page;
        const char* field;
        const char* text;
        const char* message;
    };
    const Case cases[] = {
        {"rotate", "angle", "abc", "Please enter a positive real number."},
        {"rotate", "angle", "-4", "Please enter a positive real number."},
        {"rotate", "rotateBorder", "x", "Please enter a positive integer."},
        {"rotate", "rotateBorder", "70000", "Please enter a positive integer."},
        {"scale", "scaleWidth", "0", "The width W is not a positive integer."},
        {"scale", "scaleWidth", "wide", "The width W is not a positive integer."},
        {"scale", "scaleHeight", "-3", "The height H is not a positive integer."},
        {"translate", "shiftX", "-1", "Please enter a positive real number."},
        {"translate", "borderPixel", "1.5", "Please enter a positive integer."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.field) + "=" + c.text);
        ToolTestShell shell;
        CProcessWindow* target = shell.MakeImage(20, 16, false, Ramp);
        CGEOTRANSFORM* tool = CGEOTRANSFORM::Show(shell);
        const std::string page = c.page;
        tool->pages->setCurrentWidget(page == "rotate"  ? tool->rotatePage
                                      : page == "scale" ? tool->scalePage
                                                        : tool->translatePage);
        if (page == "scale")
            tool->bySize->setChecked(true);
        auto* edit = tool->findChild<QLineEdit*>(c.field);
        ASSERT_NE(edit, nullptr);
        TypeField(edit, c.text);
        ASSERT_TRUE(Press(tool, "apply"));
        EXPECT_EQ(shell.LastMessage(), c.message);
        EXPECT_EQ(target->history.size(), 1u) << "nothing recorded";
    }
}

TEST(GeoTransformTool, LoadsRecordedStepsIntoTheirPages) {
    ToolTestShell shell;
    shell.MakeImage(20, 16, false, Ramp);
    CGEOTRANSFORM* tool = CGEOTRANSFORM::Show(shell);
    const OperatorTool* entry = FindOperatorTool("Rotate");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->className, "CGEOTRANSFORM");
    for (const char* op : {"Scale", "Translate", "Mirror Vertical", "Mirror Horizontal"})
        EXPECT_EQ(FindOperatorTool(op), entry) << op;
    RotateParams r;
    r.angle = 0.75;
    r.radians = true;
    r.aboutX = 4;
    r.aboutY = 9;
    r.border = 12;
    r.interpolation = InterpolateNearest;
    ASSERT_TRUE(entry->load(tool, "Rotate", FormatRotate(r)));
    EXPECT_EQ(tool->pages->currentWidget(), tool->rotatePage);
    RotateParams back;
    std::string text;
    ASSERT_TRUE(tool->RotateValues(&back, &text));
    EXPECT_EQ(FormatRotate(back), FormatRotate(r));
    EXPECT_EQ(tool->rotateInterpolation->currentText(), "Nearest Nbhd");
    EXPECT_EQ(tool->aboutLabel->text(), "About : (4, 9) 7480");

    ScaleStepParams s;
    s.factorX = 0.5;
    s.factorY = 2.0;
    s.interpolation = InterpolateBicubic;
    ASSERT_TRUE(entry->load(tool, "Scale", FormatScale(s)));
    ScaleStepParams sb;
    ASSERT_TRUE(tool->ScaleValues(&sb, &text));
    EXPECT_EQ(FormatScale(sb), FormatScale(s));

    TranslateParams t;
    t.dx = 2.5;
    t.dy = 1.0;
    t.left = true;
    t.subPixel = false;
    ASSERT_TRUE(entry->load(tool, "Translate", FormatTranslate(t)));
    TranslateParams tb;
    ASSERT_TRUE(tool->TranslateValues(&tb, &text));
    EXPECT_EQ(FormatTranslate(tb), FormatTranslate(t));
    EXPECT_TRUE(entry->load(tool, "Mirror Vertical", "Mirror : Vertical#"));
    EXPECT_FALSE(entry->load(tool, "Mirror Vertical", "Mirror : Horizontal#"));
}

// ---- the image-set sheets ---------------------------------------------------------------------

namespace fs = std::filesystem;

using SheetShell = SheetTestShell<>;

/// Both files hold the same planes, sample for sample.
void ExpectSameFile(const std::string& a, const std::string& b) {
    Image x, y;
    ASSERT_TRUE(x.ReadFile(a, fs::path(a).extension().string())) << a;
    ASSERT_TRUE(y.ReadFile(b, fs::path(b).extension().string())) << b;
    ASSERT_EQ(x.width, y.width);
    ASSERT_EQ(x.height, y.height);
    ASSERT_EQ(x.Slots(), y.Slots());
    for (int s : x.Slots())
        for (std::uint32_t i = 0; i < x.pixelCount; ++i)
            ASSERT_EQ(x.curPlane[s][i], y.curPlane[s][i]) << a << " slot " << s << " at " << i;
}

/// The sheet's outputs are the engine's outputs, file name and pixels.
void ExpectSameOutputs(const std::vector<std::string>& sheet,
                       const std::vector<std::string>& engine) {
    ASSERT_EQ(sheet.size(), engine.size());
    for (std::size_t i = 0; i < sheet.size(); ++i) {
        EXPECT_EQ(fs::path(sheet[i]).filename(), fs::path(engine[i]).filename());
        ExpectSameFile(sheet[i], engine[i]);
    }
}

void Click(QWidget* widget, QPoint at) {
    QMouseEvent press(QEvent::MouseButtonPress, QPointF(at), widget->mapToGlobal(QPointF(at)),
                      Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(widget, &press);
}

void MarkReference(FileSetFrame* sheet, int row) {
    sheet->fileList->topLevelItem(row)->setCheckState(2, Qt::Checked);
}

void MarkExcluded(FileSetFrame* sheet, int row) {
    sheet->fileList->topLevelItem(row)->setCheckState(1, Qt::Checked);
}

constexpr int kW = 320, kH = 240;

/// Star patterns at the points the tests click on, among single stars.
test::Scene Field() {
    std::vector<test::SceneStar> marks;
    for (const auto& p : {std::pair{160, 120}, std::pair{100, 120}, std::pair{230, 110},
                          std::pair{70, 60}, std::pair{250, 62}})
        for (const test::SceneStar& s : test::Asterism(p.first, p.second, 25000))
            marks.push_back(s);
    test::Scene s = test::MakeScene(60, kW, kH, 3, marks);
    s.background = 200;
    return s;
}

std::vector<std::string> WriteFrames(SheetShell& shell, const std::vector<test::Map2>& maps) {
    const test::Scene scene = Field();
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < maps.size(); ++i) {
        Image img;
        test::RenderScene(img, kW, kH, scene, maps[i]);
        paths.push_back(shell.dir.file("f" + std::to_string(i) + ".fit"));
        EXPECT_TRUE(img.WriteFile(paths.back(), KindFITS));
    }
    return paths;
}

TEST(AlignSheet, ClickOnTheScaledPreviewSetsThePointAtTheImagePixel) {
    SheetShell shell;
    // 640 x 480 shown in 320 x 240: half scale.
    const std::string big = shell.Fits("big.fit", 640, 480, [](int x, int y) { return x + y; });
    const std::string other = shell.Fits("other.fit", 640, 480, [](int x, int) { return x; });
    AlignSheet* sheet = AlignSheet::Show(shell);
    ASSERT_NE(sheet, nullptr);
    sheet->SetInputFiles({big, other});
    MarkReference(sheet, 0);
    sheet->methodButtons[4]->setChecked(true); // Translate + Scale + Rotate
    sheet->numberOfPoints->setValue(4);
    EXPECT_EQ(sheet->currentPoint->count(), 4);
    EXPECT_EQ(sheet->currentPoint->itemText(2), "1st Scale Defining Point or Star");
    sheet->fileList->setCurrentItem(sheet->fileList->topLevelItem(0));
    ASSERT_EQ(sheet->PreviewFile(), big);
    EXPECT_DOUBLE_EQ(sheet->preview->ScaleFactor(), 0.5);
    struct Case {
        QPoint at;
        int x, y;
    };
    const Case clicks[] = {{{50, 30}, 100, 60}, {{51, 31}, 102, 62}, {{319, 239}, 638, 478}};
    for (int k = 0; k < 3; ++k)
        Click(sheet->preview, clicks[k].at);
    const auto points = sheet->PointsOf(big);
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(points[k].set, 1) << k;
        EXPECT_EQ(points[k].x, clicks[k].x) << k;
        EXPECT_EQ(points[k].y, clicks[k].y) << k;
    }
    EXPECT_EQ(points[3].set, 0);
    EXPECT_EQ(sheet->currentPoint->currentIndex(), 3) << "auto advance";
    // On Reference Image: a click on another file sets nothing and says why.
    sheet->fileList->setCurrentItem(sheet->fileList->topLevelItem(1));
    Click(sheet->preview, {10, 10});
    EXPECT_EQ(sheet->PointsOf(other)[3].set, 0);
    EXPECT_EQ(shell.notify.messages.back(), kSelectReferenceText);
    sheet->onEachImage->setChecked(true);
    Click(sheet->preview, {10, 10});
    EXPECT_EQ(sheet->PointsOf(other)[3].x, 20);
}

TEST(AlignSheet, OnStarMovesThePointToTheStarsCentroid) {
    SheetShell shell;
    const std::vector<std::string> files = WriteFrames(shell, {test::Map2(), test::Map2()});
    AlignSheet* sheet = AlignSheet::Show(shell);
    sheet->SetInputFiles(files);
    MarkReference(sheet, 0);
    sheet->fileList->setCurrentItem(sheet->fileList->topLevelItem(0));
    sheet->onStar->setChecked(true);
    ASSERT_DOUBLE_EQ(sheet->preview->ScaleFactor(), 1.0);
    Click(sheet->preview, sheet->preview->WidgetPoint(158, 121));
    Image img;
    ASSERT_TRUE(img.ReadFile(files[0], ".fit"));
    img.LoadNbhd(img.curPlane[0], 158, 121, 14);
    double cx = 0, cy = 0;
    img.NbhdCentroid(&cx, &cy);
    const AlignPoint p = sheet->PointsOf(files[0])[0];
    EXPECT_DOUBLE_EQ(p.x, cx - 1.0);
    EXPECT_DOUBLE_EQ(p.y, cy - 1.0);
    EXPECT_NE(p.x, 158.0);
}

namespace {

/// The engine's point alignment of `files` (the first the reference, the one at `excluded`
/// left out) into dir/engine, `setup` giving the points and settings: what a sheet run must
/// equal.
AlignPointResult EngineAlign(SheetShell& shell, const std::vector<std::string>& files, int excluded,
                             const std::function<void(AlignPointRequest&)>& setup) {
    AlignPointRequest request;
    request.files = ReferenceFirst(files, excluded);
    setup(request);
    request.outputDirectory = shell.dir.file("engine");
    fs::create_directories(request.outputDirectory);
    RecordingNotify notify;
    RecordingProgress progress;
    return AlignPointFiles(request, &progress, &notify);
}

} // namespace

TEST(AlignSheet, PointRunGivesTheEngineOutputs) {
    SheetShell shell;
    const std::vector<std::string> files =
        WriteFrames(shell, {test::Map2(), test::Map2::Shift(3.4, -2.7),
                            test::Map2::Shift(-5.2, 4.1), test::Map2::Shift(1.0, 1.0)});
    AlignSheet* sheet = AlignSheet::Show(shell);
    sheet->SetInputFiles(files);
    MarkReference(sheet, 0);
    MarkExcluded(sheet, 3);
    sheet->methodButtons[3]->setChecked(true); // Translate + Rotate
    sheet->fileList->setCurrentItem(sheet->fileList->topLevelItem(0));
    Click(sheet->preview, sheet->preview->WidgetPoint(160, 120));
    Click(sheet->preview, sheet->preview->WidgetPoint(230, 110));
    Select(sheet->translationRadius, "20");
    Select(sheet->rotationRadius, "20");
    Select(sheet->minimumCorrelation, "60");
    sheet->outputDirectory->setText(QString::fromStdString(shell.dir.file("sheet")));
    ASSERT_TRUE(sheet->Run()) << shell.notify.messages.size();
    ASSERT_TRUE(sheet->WaitForRun());

    const AlignPointResult engine = EngineAlign(shell, files, 3, [](AlignPointRequest& request) {
        request.files[0].points[0] = {160, 120, 1};
        request.files[0].points[1] = {230, 110, 1};
        request.type = AlignPointType::TranslateRotate;
        request.translationRadius = 20;
        request.rotationRadius = 20;
        request.minimum = 0.60;
    });
    ASSERT_EQ(engine.run.outputs.size(), 3u) << engine.run.status;
    EXPECT_EQ(sheet->LastResult().status, engine.run.status);
    EXPECT_EQ(sheet->status->text().toStdString(), engine.run.status);
    ExpectSameOutputs(sheet->LastResult().outputs, engine.run.outputs);
    EXPECT_EQ(fs::path(sheet->LastResult().outputs[1]).filename(), "TnRt_f1.fit");
}

TEST(AlignSheet, RefineAlignsTheAlignedSetAgainWithItsPoints) {
    SheetShell shell;
    const std::vector<std::string> files = WriteFrames(
        shell, {test::Map2(), test::Map2::Shift(3.4, -2.7), test::Map2::Shift(-5.2, 4.1)});
    AlignSheet* sheet = AlignSheet::Show(shell);
    sheet->SetInputFiles(files);
    MarkReference(sheet, 0);
    sheet->methodButtons[1]->setChecked(true); // Translate
    EXPECT_FALSE(sheet->RefineCurrentAlignment());
    EXPECT_EQ(shell.notify.messages.back(), kRefineNothingText);
    sheet->fileList->setCurrentItem(sheet->fileList->topLevelItem(0));
    Click(sheet->preview, sheet->preview->WidgetPoint(160, 120));
    Select(sheet->translationRadius, "20");
    sheet->outputDirectory->setText(QString::fromStdString(shell.dir.file("sheet")));
    ASSERT_TRUE(sheet->Run());
    ASSERT_TRUE(sheet->WaitForRun());
    const std::vector<std::string> aligned = sheet->LastResult().outputs;
    ASSERT_EQ(aligned.size(), 3u) << sheet->LastResult().status;

    sheet->mosaicMode->setChecked(true);
    EXPECT_FALSE(sheet->RefineCurrentAlignment());
    EXPECT_EQ(shell.notify.messages.back(), kRefineMosaicText);
    sheet->mosaicMode->setChecked(false);
    ASSERT_TRUE(Press(sheet, "refine"));
    ASSERT_TRUE(sheet->WaitForRun());
    EXPECT_EQ(sheet->InputFiles(), aligned);
    EXPECT_EQ(sheet->ReferenceFile(), aligned[0]);

    // The same as the engine on the aligned set, the point kept on the aligned reference.
    const AlignPointResult engine = EngineAlign(shell, aligned, -1, [](AlignPointRequest& request) {
        request.files[0].points[0] = {160, 120, 1};
        request.type = AlignPointType::Translate;
        request.translationRadius = 20;
    });
    ASSERT_EQ(engine.run.outputs.size(), 3u) << engine.run.status;
    ExpectSameOutputs(sheet->LastResult().outputs, engine.run.outputs);
    EXPECT_EQ(fs::path(sheet->LastResult().outputs[1]).filename(), "Tn_Tn_f1.fit");
}

TEST(AlignSheet, AutoStarRunGivesTheEngineOutputs) {
    SheetShell shell;
    const std::vector<std::string> files =
        WriteFrames(shell, {test::Map2(), test::Map2::Shift(4.0, -3.0)});
    AlignSheet* sheet = AlignSheet::Show(shell);
    sheet->SetInputFiles(files);
    MarkReference(sheet, 0);
    sheet->methodButtons[0]->setChecked(true);
    EXPECT_TRUE(sheet->meridianFlip->isEnabled());
    sheet->meridianFlip->setChecked(true);
    sheet->quickAlignment->setChecked(false);
    EXPECT_FALSE(sheet->meridianFlip->isEnabled());
    const AutoStarParams shown = sheet->StarParams(files, "x");
    EXPECT_FALSE(shown.meridianFlip) << "the flags count only with Quick Alignment";
    sheet->quickAlignment->setChecked(true);
    sheet->meridianFlip->setChecked(false);
    sheet->outputDirectory->setText(QString::fromStdString(shell.dir.file("sheet")));
    ASSERT_TRUE(sheet->Run());
    ASSERT_TRUE(sheet->WaitForRun(60000));

    AutoStarParams params;
    params.files = ReferenceFirst(files);
    params.referencePath = files[0];
    params.outputDirectory = shell.dir.file("engine");
    fs::create_directories(params.outputDirectory);
    RecordingNotify notify;
    RecordingProgress progress;
    const AlignStarResult engine = AlignStarFiles(params, &progress, &notify);
    EXPECT_EQ(sheet->LastResult().status, engine.run.status);
    ExpectSameOutputs(sheet->LastResult().outputs, engine.run.outputs);
    EXPECT_EQ(engine.run.outputs.size(), 2u) << engine.run.status;
}

// ---- planet -----------------------------------------------------------------------------------

std::string Disk(SheetShell& shell, const std::string& name, double cx, double cy) {
    return shell.Fits(name, 120, 100, [=](int x, int y) {
        const double r = std::hypot(x - cx, y - cy);
        return r < 20 ? 30000.0 - 20 * r : r < 21 ? 30000.0 * (21 - r) + 300 * (r - 20) : 300.0;
    });
}

TEST(PlanetAlignSheet, RunGivesTheEngineOutputsAndShifts) {
    SheetShell shell;
    const std::vector<std::string> files = {Disk(shell, "p0.fit", 55.3, 48.2),
                                            Disk(shell, "p1.fit", 61.8, 44.5),
                                            Disk(shell, "p2.fit", 50.0, 52.0)};
    PlanetAlignSheet* sheet = PlanetAlignSheet::Show(shell);
    ASSERT_NE(sheet, nullptr);
    sheet->SetInputFiles(files);
    MarkExcluded(sheet, 2);
    sheet->outputDirectory->setText(QString::fromStdString(shell.dir.file("sheet")));
    ASSERT_TRUE(sheet->Run());
    ASSERT_TRUE(sheet->WaitForRun());

    AutoAlignPlanetRequest request;
    request.files = {files[0], files[1]};
    request.outputDirectory = shell.dir.file("engine");
    fs::create_directories(request.outputDirectory);
    RecordingNotify notify;
    RecordingProgress progress;
    const AutoAlignPlanetResult engine = AutoAlignPlanetFiles(request, &progress, &notify);
    ASSERT_EQ(engine.run.outputs.size(), 2u);
    ExpectSameOutputs(sheet->LastResult().outputs, engine.run.outputs);
    EXPECT_EQ(fs::path(sheet->LastResult().outputs[1]).filename(), "AN_p1.fit");
    ASSERT_EQ(sheet->shifts->topLevelItemCount(), 2);
    EXPECT_NEAR(sheet->LastPlanetResult().shifts[1].shiftX, -6.5, 0.2);
    EXPECT_NEAR(sheet->LastPlanetResult().shifts[1].shiftY, 3.7, 0.2);
    EXPECT_EQ(sheet->shifts->topLevelItem(1)->text(3),
              QString::number(engine.shifts[1].shiftX, 'f', 2));
}

// ---- grade ------------------------------------------------------------------------------------

std::string StarFrame(SheetShell& shell, const std::string& name, double sx, double sy,
                      double blur) {
    return shell.Fits(name, 160, 120, [=](int x, int y) {
        double v = 500.0;
        for (const auto& c : {std::pair{40.0, 40.0}, std::pair{100.0, 50.0}, std::pair{70.0, 85.0},
                              std::pair{125.0, 90.0}}) {
            const double dx = x - c.first, dy = y - c.second;
            v += 20000.0 *
                 std::exp(-0.5 * (dx * dx / (sx * sx * blur) + dy * dy / (sy * sy * blur)));
        }
        return v;
    });
}

std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

TEST(GradeSheet, SharpnessRunReportAndSelection) {
    SheetShell shell;
    const std::vector<std::string> files = {StarFrame(shell, "g0.fit", 1.5, 1.5, 1.0),
                                            StarFrame(shell, "g1.fit", 1.5, 1.5, 2.0),
                                            StarFrame(shell, "g2.fit", 1.5, 1.5, 4.0)};
    GradeSheet* sheet = GradeSheet::Show(shell);
    ASSERT_NE(sheet, nullptr);
    sheet->SetInputFiles(files);
    TypeField(sheet->limits[0], "95");
    TypeField(sheet->limits[1], "50");
    TypeField(sheet->limits[2], "30");
    TypeField(sheet->limits[3], "10");
    sheet->useGrade[4]->setChecked(false);
    sheet->outputDirectory->setText(QString::fromStdString(shell.dir.file("sheet")));
    ASSERT_TRUE(sheet->Run());
    ASSERT_TRUE(sheet->WaitForRun());

    GradeRequest request;
    request.files = files;
    request.intervals = {95, 50, 30, 10};
    request.useGrades = {true, true, true, true, false};
    request.outputDirectory = shell.dir.file("engine");
    fs::create_directories(request.outputDirectory);
    RecordingNotify notify;
    RecordingProgress progress;
    const GradeResult engine = GradeFiles(request, &progress, &notify);
    ASSERT_FALSE(engine.run.outputs.empty()) << engine.run.status;
    ExpectSameOutputs(sheet->LastResult().outputs, engine.run.outputs);
    EXPECT_EQ(sheet->LastGradeResult().sharpness.size(), 3u);

    GradeReportDialog* report = sheet->OpenReport();
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(report->windowTitle(), "Report Or Select Graded Files");
    ASSERT_EQ(report->table->rowCount(), 3);
    EXPECT_EQ(report->table->item(0, 1)->text(),
              QString(QChar::fromLatin1(engine.sharpness[0].grade)));
    EXPECT_EQ(report->saveButton->text(), "&Save Report");
    EXPECT_EQ(report->useButton->text(), "Use and Save Selected &Files");
    const std::string mine = shell.dir.file("mine.txt"), theirs = shell.dir.file("theirs.txt");
    std::string error;
    ASSERT_TRUE(report->SaveReport(mine, &error)) << error;
    ASSERT_TRUE(WriteGradeReport(theirs, engine, &error)) << error;
    EXPECT_EQ(ReadText(mine), ReadText(theirs));
    EXPECT_FALSE(ReadText(mine).empty());
    report->table->clearSelection();
    EXPECT_FALSE(report->UseSelected());
    report->table->selectRow(2);
    ASSERT_TRUE(report->UseSelected());
    CFileOpList list;
    ASSERT_TRUE(FileOpLists().Find(kGradeOperationName, &list));
    ASSERT_EQ(list.files.size(), 1u);
    EXPECT_EQ(list.files[0].path, files[2]);
}

TEST(GradeSheet, StarShapeRequestsAndTheirRuns) {
    SheetShell shell;
    const std::vector<std::string> files = {StarFrame(shell, "s0.fit", 1.6, 1.6, 1.0),
                                            StarFrame(shell, "s1.fit", 2.6, 1.4, 1.0),
                                            StarFrame(shell, "s2.fit", 1.8, 1.7, 1.0)};
    struct Case {
        const char* button;
        const char* value;
        std::string mode;
        double limit;
    };
    const Case cases[] = {{"maxEcc", " 0.60", kGradeMaxEcc, 0.60},
                          {"percentEcc", " 70% ", kGradePercentEcc, 70},
                          {"autoEcc", nullptr, kGradeAutoEcc, 0.5}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.button);
        GradeSheet* sheet = GradeSheet::Show(shell);
        sheet->SetInputFiles(files);
        sheet->byStarShape->setChecked(true);
        sheet->findChild<QRadioButton*>(c.button)->setChecked(true);
        if (c.value)
            Select(std::string(c.button) == "maxEcc" ? sheet->maxEccValue : sheet->percentValue,
                   c.value);
        GradeRequest read;
        ASSERT_TRUE(sheet->ReadRequest(&read));
        EXPECT_EQ(read.method, GradeMethod::StarShape);
        EXPECT_EQ(read.mode, c.mode);
        EXPECT_DOUBLE_EQ(read.limit, c.limit);
        const std::string out = shell.dir.file(std::string("sheet_") + c.button);
        sheet->outputDirectory->setText(QString::fromStdString(out));
        ASSERT_TRUE(sheet->Run());
        ASSERT_TRUE(sheet->WaitForRun());
        read.files = files;
        read.outputDirectory = shell.dir.file(std::string("engine_") + c.button);
        fs::create_directories(read.outputDirectory);
        RecordingNotify notify;
        RecordingProgress progress;
        const GradeResult engine = GradeFiles(read, &progress, &notify);
        EXPECT_EQ(sheet->LastResult().status, engine.run.status);
        ExpectSameOutputs(sheet->LastResult().outputs, engine.run.outputs);
        EXPECT_EQ(engine.starShapes.size(), 3u) << engine.run.status;
        EXPECT_FALSE(engine.run.outputs.empty()) << engine.run.status;
        if (!engine.starShapes.empty()) {
            GradeReportDialog* report = sheet->OpenReport();
            ASSERT_NE(report, nullptr);
            EXPECT_EQ(report->table->horizontalHeaderItem(1)->text(), "Avg Eccentricity");
            const std::string mine = shell.dir.file("m.txt"), theirs = shell.dir.file("t.txt");
            std::string error;
            ASSERT_TRUE(report->SaveReport(mine, &error)) << error;
            ASSERT_TRUE(WriteGradeReport(theirs, engine, &error)) << error;
            EXPECT_EQ(ReadText(mine), ReadText(theirs));
        }
        sheet->close();
    }
}

TEST(GradeSheet, BadGradeIntervalsAreRefusedWithTheirText) {
    SheetShell shell;
    GradeSheet* sheet = GradeSheet::Show(shell);
    sheet->SetInputFiles({StarFrame(shell, "b0.fit", 1.5, 1.5, 1.0)});
    TypeField(sheet->limits[1], "95"); // B above A
    sheet->outputDirectory->setText(QString::fromStdString(shell.dir.file("sheet")));
    ASSERT_TRUE(sheet->Run());
    ASSERT_TRUE(sheet->WaitForRun());
    EXPECT_EQ(sheet->LastResult().status, kGradeIntervalsText);
    EXPECT_TRUE(sheet->LastResult().outputs.empty());
    TypeField(sheet->limits[1], "eighty");
    EXPECT_FALSE(sheet->Run());
    EXPECT_EQ(shell.notify.messages.back(), "Please Enter a Real Number.");
}

// ---- the star readout -------------------------------------------------------------------------

TEST(StarShapeReadout, ShowsTheMeasuresOfTheStarAndNothingOnAFlatArea) {
    ToolTestShell shell;
    for (bool color : {false, true}) {
        SCOPED_TRACE(color ? "rgb" : "mono");
        CProcessWindow* w = shell.MakeImage(80, 70, color, [](int s, int x, int y) {
            const double dx = x - 40.3, dy = y - 35.6;
            return 400.0 + 100 * s + 25000.0 * std::exp(-0.5 * (dx * dx / 4.0 + dy * dy / 6.25));
        });
        CStarShapeStructure star[1];
        ASSERT_TRUE(w->CalculateNbhdHFD(40, 35, false, star, 1));
        ASSERT_EQ(star[0].valid, 1);
        const QString expected = QString::asprintf(
            "FWHM: %.2f  HFD: %.2f  Ecc: %.3f  Centroid: (%.2f, %.2f)", star[0].fwhm, star[0].hfd,
            star[0].eccentricity, star[0].x - 1, star[0].y - 1);
        EXPECT_EQ(StarShapeReadout(*w, 40, 35), expected);
        EXPECT_GT(star[0].fwhm, 2.0);
        EXPECT_TRUE(StarShapeReadout(*w, 5, 5).isEmpty()) << "too close to the edge";
        CProcessWindow* flat = shell.MakeImage(80, 70, color, [](int, int, int) { return 1000.0; });
        EXPECT_TRUE(StarShapeReadout(*flat, 40, 35).isEmpty()) << "no star on a flat area";
    }
    CStarShapeStructure none;
    EXPECT_TRUE(StarShapeLine(none).isEmpty());
}

} // namespace
} // namespace astrivelle::test
