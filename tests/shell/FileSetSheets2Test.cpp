// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Convert, Filter Files and Bayer sheets and the Read Noise and Gain dialog run
/// offscreen: each gives the files, pixels, status or result rows the engine gives for the same
/// request; Convert's stretch text comes from the active image's history and its refusal when
/// there is none; Filter's rows taken from an image's history replay to the image's pixels;
/// Bayer's outputs are named by colour; each opens from its menu command.
#include "ToolFrameTestSupport.h"

#include <QAction>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QSpinBox>
#include <QTreeWidget>

#include <cstdlib>
#include <filesystem>
#include <random>

#include "calibration/Bayer.h"
#include "engine/SystemOptions.h"
#include "imagesets/BayerFiles.h"
#include "imagesets/ConvertFiles.h"
#include "imagesets/FileSetRules.h"
#include "imagesets/FilterFiles.h"
#include "imagesets/ReadNoiseGain.h"
#include "operators/Curves.h"
#include "shell/BayerSheet.h"
#include "shell/ConvertSheet.h"
#include "shell/FileSetSheets.h"
#include "shell/FilterFilesSheet.h"
#include "shell/MainFrame.h"
#include "shell/NormalizeSheet.h"
#include "shell/QtNotify.h"
#include "shell/ReadNoiseGainDialog.h"

namespace astrivelle::test {
namespace {

namespace fs = std::filesystem;

/// A desktop context with an image model and output lists cleared before and after.
class Sheets2Shell : public ToolTestShell {
public:
    Sheets2Shell() { FileOpLists().Clear(); }
    ~Sheets2Shell() override {
        ToolFrame::CloseAll();
        FileOpLists().Clear();
    }
    /// A 16-bit FITS file of w x h whose sample is fn(x, y).
    template <class Fn> std::string Fits(const std::string& name, int w, int h, Fn fn) {
        return WriteFits(dir, name, w, h, fn);
    }
    std::vector<std::string> TwoFrames() {
        return {Fits("a.fit", 16, 12, [](int x, int y) { return 1000 + 900 * x + 37 * y; }),
                Fits("b.fit", 16, 12, [](int x, int y) { return 20000 - 500 * x + 90 * y; })};
    }
};

void Type(QWidget* sheet, const char* name, const char* text) {
    auto* edit = sheet->findChild<QLineEdit*>(name);
    ASSERT_NE(edit, nullptr) << name;
    TypeField(edit, text);
}

void ExpectSameFile(const std::string& a, const std::string& b) {
    Image x, y;
    ASSERT_TRUE(x.ReadFile(a, fs::path(a).extension().string())) << a;
    ASSERT_TRUE(y.ReadFile(b, fs::path(b).extension().string())) << b;
    ASSERT_EQ(x.width, y.width);
    ASSERT_EQ(x.height, y.height);
    ASSERT_EQ(x.colorType, y.colorType);
    for (int s : x.Slots())
        for (std::uint32_t i = 0; i < x.pixelCount; ++i)
            ASSERT_EQ(x.curPlane[s][i], y.curPlane[s][i]) << a << " slot " << s << " at " << i;
}

std::vector<std::string> Names(const std::vector<std::string>& paths) {
    std::vector<std::string> names;
    for (const std::string& p : paths)
        names.push_back(fs::path(p).filename().string());
    return names;
}

std::vector<std::string> TopItems(const FileSetFrame* sheet) {
    std::vector<std::string> items;
    for (int i = 0; i < sheet->outputLists->topLevelItemCount(); ++i)
        items.push_back(sheet->outputLists->topLevelItem(i)->text(0).toStdString());
    return items;
}

LevelsParams SomeLevels() {
    LevelsParams p;
    p.channel = "Monochrome";
    for (LevelsSet& s : p.sets) {
        s.black = 2000;
        s.white = 30000;
        s.whiteGamma = 0.8;
    }
    return p;
}

// ---- Convert -------------------------------------------------------------------------------

TEST(FileSetSheets2, ConvertTakesTheLastLevelsOfTheImageAndGivesTheEngineFiles) {
    Sheets2Shell shell;
    const std::vector<std::string> files = shell.TwoFrames();
    CProcessWindow* image = shell.model.OpenImageFile(files[0]);
    ASSERT_NE(image, nullptr);
    ASSERT_TRUE(image->Levels(SomeLevels()));
    const std::string recorded = image->history.back().parameters;
    ASSERT_EQ(image->history.back().operation, "Levels");

    ConvertSheet* sheet = ConvertSheet::Show(shell);
    ASSERT_NE(sheet, nullptr);
    EXPECT_TRUE(sheet->parameters->isReadOnly());
    Select(sheet->stretch, "Levels");
    EXPECT_EQ(sheet->parameters->text().toStdString(), recorded);
    Select(sheet->outputType, ".FIT");
    Type(sheet, "brightnessStep", "250");
    Type(sheet, "outputDirectory", shell.dir.file("sheet").c_str());
    sheet->AddFiles({QString::fromStdString(files[0]), QString::fromStdString(files[1])});
    ASSERT_TRUE(Press(sheet, "run"));
    ASSERT_TRUE(sheet->WaitForRun());

    ConvertFilesRequest request;
    request.files = files;
    request.outputDirectory = shell.dir.file("engine");
    request.outputType = ".FIT";
    request.stretch = "Levels";
    request.parameters = recorded;
    request.brightnessStep = 250;
    const FileOpResult expected = ConvertFiles(request, nullptr, nullptr);
    ASSERT_TRUE(expected.Ok()) << expected.status;
    const FileOpResult& got = sheet->LastResult();
    ASSERT_EQ(Names(got.outputs), (std::vector<std::string>{"CV_a.fit", "CV_b.fit"}));
    for (std::size_t i = 0; i < 2; ++i)
        ExpectSameFile(got.outputs[i], expected.outputs[i]);
    // The stretch changed the pixels: the output is not the input.
    Image in, out;
    ASSERT_TRUE(in.ReadFile(files[1], ".fit"));
    ASSERT_TRUE(out.ReadFile(got.outputs[1], ".fit"));
    EXPECT_NE(in.curPlane[0][5], out.curPlane[0][5]);
    EXPECT_EQ(sheet->status->text().toStdString(), expected.status);
    EXPECT_EQ(TopItems(sheet), std::vector<std::string>{"2 Output Files : Convert Files"});
    EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
}

TEST(FileSetSheets2, ConvertRefusesAStretchNeverAppliedAndTakesAnEditedText) {
    Sheets2Shell shell;
    const std::vector<std::string> files = shell.TwoFrames();
    ConvertSheet* sheet = ConvertSheet::Show(shell);
    sheet->SetInputFiles(files);
    struct Case {
        const char* stretch;
        const char* text;
    } cases[] = {
        {"Levels", "Please apply Levels to an image to set its parameters before conversion."},
        {"BCS", "Please apply BCS to an image to set its parameters before conversion."},
        {"Digital Development",
         "Please apply DDP to an image to set its parameters before conversion."},
        {"Auto Min/Max",
         "Please apply Auto Min/Max to an image to set its parameters before conversion."},
    };
    // No image at all, then an image with only a Levels step: the others still refuse.
    for (bool withImage : {false, true}) {
        if (withImage) {
            CProcessWindow* image = shell.model.OpenImageFile(files[0]);
            ASSERT_NE(image, nullptr);
            ASSERT_TRUE(image->Levels(SomeLevels()));
        }
        for (const Case& c : cases) {
            if (withImage && std::string(c.stretch) == "Levels")
                continue;
            shell.notify.messages.clear();
            Select(sheet->stretch, c.stretch);
            EXPECT_FALSE(Press(sheet, "useLastApplied") && !sheet->parameters->text().isEmpty());
            EXPECT_EQ(sheet->status->text().toStdString(), c.text);
            EXPECT_FALSE(sheet->Run()) << c.stretch;
            EXPECT_FALSE(sheet->Running());
            ASSERT_EQ(shell.notify.messages.size(), 1u) << c.stretch;
            EXPECT_EQ(shell.notify.messages[0], c.text);
        }
    }
    EXPECT_FALSE(fs::exists(shell.dir.file("CV_a.tif")));

    // The button takes the image's text back after an edit; "Edit" opens the field.
    Select(sheet->stretch, "Levels");
    const QString recorded = sheet->parameters->text();
    ASSERT_FALSE(recorded.isEmpty());
    sheet->editParameters->setChecked(true);
    EXPECT_FALSE(sheet->parameters->isReadOnly());
    Type(sheet, "parameters", "edited");
    ASSERT_TRUE(Press(sheet, "useLastApplied"));
    EXPECT_EQ(sheet->parameters->text(), recorded);

    // "None" converts the format only.
    Select(sheet->stretch, "None");
    Select(sheet->outputType, ".TIF");
    shell.notify.messages.clear();
    ASSERT_TRUE(sheet->Run());
    ASSERT_TRUE(sheet->WaitForRun());
    EXPECT_EQ(Names(sheet->LastResult().outputs),
              (std::vector<std::string>{"CV_a.tif", "CV_b.tif"}));
    Image in, out;
    ASSERT_TRUE(in.ReadFile(files[0], ".fit"));
    ASSERT_TRUE(out.ReadFile(sheet->LastResult().outputs[0], ".tif"));
    EXPECT_EQ(out.fileType, KindTIFF);
    for (std::uint32_t i = 0; i < in.pixelCount; ++i)
        ASSERT_EQ(out.curPlane[0][i], in.curPlane[0][i]) << i;
}

// ---- Filter Files --------------------------------------------------------------------------

TEST(FileSetSheets2, FilterRowsFromTheImageHistoryReplayToTheImagePixels) {
    Sheets2Shell shell;
    const std::vector<std::string> files = shell.TwoFrames();
    CProcessWindow* image = shell.model.OpenImageFile(files[0]);
    ASSERT_NE(image, nullptr);
    ASSERT_TRUE(image->PixelMathMultiply(1.5, 0, 65535, 0));
    image->pending = false;
    ASSERT_TRUE(image->PixelMathAdd(false, 700, 0, 65535, 0));
    image->pending = false;
    ASSERT_TRUE(image->Levels(SomeLevels()));

    FilterFilesSheet* sheet = FilterFilesSheet::Show(shell);
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(sheet->prefixEdit->text(), "FF_");
    EXPECT_EQ(sheet->imageSteps->count(), 3);
    ASSERT_TRUE(Press(sheet, "addFromImage"));
    const std::vector<CProcessStructure> rows = sheet->Records();
    ASSERT_EQ(rows.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(rows[i].operation, image->history[i + 1].operation);
        EXPECT_EQ(rows[i].parameters, image->history[i + 1].parameters);
    }
    EXPECT_EQ(sheet->ColorModel(), "MONO");
    Select(sheet->saveType, "UNCOMPFIT32");
    Type(sheet, "outputDirectory", shell.dir.file("sheet").c_str());
    sheet->SetInputFiles(files);
    ASSERT_TRUE(Press(sheet, "run"));
    ASSERT_TRUE(sheet->WaitForRun());
    const FileOpResult& got = sheet->LastResult();
    ASSERT_EQ(Names(got.outputs), (std::vector<std::string>{"FF_a.fit", "FF_b.fit"}));

    // The first file is the image itself: the replay gives its pixels.
    Image out;
    ASSERT_TRUE(out.ReadFile(got.outputs[0], ".fit"));
    ASSERT_EQ(out.pixelCount, image->image.pixelCount);
    for (std::uint32_t i = 0; i < out.pixelCount; ++i)
        ASSERT_EQ(out.curPlane[0][i], image->image.curPlane[0][i]) << i;

    FilterFilesRequest request;
    request.files = files;
    request.outputDirectory = shell.dir.file("engine");
    request.saveType = "UNCOMPFIT32";
    request.records = rows;
    request.colorModel = "MONO";
    const FileOpResult expected = FilterFiles(request, nullptr, nullptr);
    ASSERT_EQ(expected.outputs.size(), 2u);
    ExpectSameFile(got.outputs[1], expected.outputs[1]);
    EXPECT_EQ(sheet->status->text().toStdString(), expected.status);
    EXPECT_EQ(TopItems(sheet), std::vector<std::string>{"Filtered Image Set - 2 images"});
    EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
}

TEST(FileSetSheets2, FilterRowsMoveAndGoAndAnEmptyListRefuses) {
    Sheets2Shell shell;
    const std::vector<std::string> files = shell.TwoFrames();
    FilterFilesSheet* sheet = FilterFilesSheet::Show(shell);
    sheet->SetInputFiles(files);
    EXPECT_FALSE(sheet->Run());
    ASSERT_EQ(shell.notify.messages.size(), 1u);
    EXPECT_EQ(shell.notify.messages[0], "No filters selected.");
    shell.notify.messages.clear();
    EXPECT_FALSE(sheet->AddFromImage());
    EXPECT_EQ(shell.LastMessage(), "Please Open An Image First.");

    auto record = [](const char* op, const char* params) {
        CProcessStructure r;
        r.operation = op;
        r.parameters = params;
        return r;
    };
    sheet->SetRecords({record("A", "1#"), record("B", "2#"), record("C", "3#")});
    auto order = [&] {
        std::string s;
        for (const CProcessStructure& r : sheet->Records())
            s += r.operation;
        return s;
    };
    sheet->operators->setCurrentItem(sheet->operators->topLevelItem(2));
    ASSERT_TRUE(Press(sheet, "moveUp"));
    EXPECT_EQ(order(), "ACB");
    ASSERT_TRUE(Press(sheet, "moveUp"));
    EXPECT_EQ(order(), "CAB");
    EXPECT_FALSE(sheet->MoveSelected(-1)) << "already first";
    ASSERT_TRUE(Press(sheet, "moveDown"));
    EXPECT_EQ(order(), "ACB");
    ASSERT_TRUE(Press(sheet, "removeOperator"));
    EXPECT_EQ(order(), "AB");
    EXPECT_EQ(sheet->Records()[1].parameters, "2#");
    sheet->operators->clearSelection();
    shell.notify.messages.clear();
    EXPECT_FALSE(sheet->RemoveSelectedRows());
    EXPECT_EQ(shell.LastMessage(), "Please left-click on one or more files to delete.");

    // An operator the replay does not know fails each file with its text; the run goes on.
    Type(sheet, "outputDirectory", shell.dir.file("out").c_str());
    shell.notify.messages.clear();
    ASSERT_TRUE(sheet->Run());
    ASSERT_TRUE(sheet->WaitForRun());
    EXPECT_TRUE(sheet->LastResult().outputs.empty());
    ASSERT_EQ(sheet->LastResult().failures.size(), 2u);
    EXPECT_EQ(sheet->LastResult().failures[0].text, "Error filtering a.fit");

    // A bad prefix stops before the run.
    shell.notify.messages.clear();
    Type(sheet, "prefix", "F?F");
    EXPECT_FALSE(sheet->Run());
    ASSERT_EQ(shell.notify.messages.size(), 1u);
    EXPECT_EQ(shell.notify.messages[0].rfind(kFilePrefixCharsText, 0), 0u);
}

// ---- Bayer ---------------------------------------------------------------------------------

TEST(FileSetSheets2, BayerOutputsAreNamedByColourAndEqualTheEngine) {
    struct Case {
        const char* color;
        const char* prefix;
        const char* first; ///< the first output's name
    } cases[] = {
        {"RGB", "", "BINT_m1.fit"},          {"RED", "", "BAYER_RED_m1.fit"},
        {"GREEN", "", "BAYER_GREEN_m1.fit"}, {"BLUE", "", "BAYER_BLUE_m1.fit"},
        {"BLUE", "M42", "M42_BLUE_m1.fit"},  {"RGB", "M42_", "M42_m1.fit"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.color) + " '" + c.prefix + "'");
        Sheets2Shell shell;
        const std::vector<std::string> files = {
            shell.Fits("m1.fit", 10, 8, [](int x, int y) { return 100 + 37 * x + 500 * y; }),
            shell.Fits("m2.fit", 10, 8, [](int x, int y) { return 4000 + (x * y) % 7 * 90; })};
        BayerSheet* sheet = BayerSheet::Show(shell);
        ASSERT_NE(sheet, nullptr);
        Select(sheet->frameType, "Nikon D70, D70s, D50, D40");
        EXPECT_EQ(sheet->patternKeyword->text(), "BG,GR");
        Select(sheet->outputColor, c.color);
        Select(sheet->saveType, "UNCOMPFIT");
        Type(sheet, "prefix", c.prefix);
        EXPECT_EQ(Names({sheet->prefixShown->text().toStdString() + "m1.fit"})[0], c.first);
        if (std::string(c.color) == "RGB")
            sheet->reduceGreenNoise->setChecked(true);
        EXPECT_EQ(sheet->averageGreen->isEnabled(), std::string(c.color) == "GREEN");
        if (sheet->averageGreen->isEnabled())
            sheet->averageGreen->setChecked(true);
        Type(sheet, "outputDirectory", shell.dir.file("sheet").c_str());
        sheet->SetInputFiles(files);
        ASSERT_TRUE(Press(sheet, "run"));
        ASSERT_TRUE(sheet->WaitForRun());

        BayerFilesParams params;
        params.files = files;
        params.frameType = "Nikon D70, D70s, D50, D40";
        params.cfaPattern = "BG,GR";
        params.outputColor = c.color;
        params.reduceGreenNoise = std::string(c.color) == "RGB";
        params.averageGreen = std::string(c.color) == "GREEN";
        params.saveType = "UNCOMPFIT";
        params.prefix = c.prefix;
        params.outputDirectory = shell.dir.file("engine");
        const FileOpResult expected = RunBayerFiles(params, nullptr, nullptr);
        ASSERT_EQ(expected.outputs.size(), 2u);
        const FileOpResult& got = sheet->LastResult();
        ASSERT_EQ(Names(got.outputs), Names(expected.outputs));
        EXPECT_EQ(Names(got.outputs)[0], c.first);
        for (std::size_t i = 0; i < 2; ++i)
            ExpectSameFile(got.outputs[i], expected.outputs[i]);
        EXPECT_EQ(sheet->status->text().toStdString(), expected.status);
        if (std::string(c.color) == "RGB") {
            EXPECT_EQ(TopItems(sheet), std::vector<std::string>{"Color Image Set - 2 images"});
        }
        EXPECT_TRUE(shell.notify.messages.empty()) << shell.LastMessage();
    }
}

TEST(FileSetSheets2, BayerControlsFollowThePatternAndRefuseABadPrefix) {
    Sheets2Shell shell;
    BayerSheet* sheet = BayerSheet::Show(shell);
    EXPECT_EQ(sheet->frameType->count(), static_cast<int>(CfaFrameTypes().size()));
    EXPECT_EQ(sheet->frameType->itemText(0), "RGB Geberic - RG,GB");
    EXPECT_EQ(sheet->patternKeyword->text(), "RG,GB");
    EXPECT_TRUE(sheet->buildRGBPixel->isEnabled());
    Select(sheet->frameType, "Starlight SXV-M7C");
    EXPECT_EQ(sheet->patternKeyword->text(), "GMYC,MGYC");
    EXPECT_FALSE(sheet->buildRGBPixel->isEnabled()) << "no half-size path for CYGM";
    Select(sheet->frameType, "QHY 10");
    EXPECT_EQ(sheet->patternKeyword->text(), "RGr,GbB");
    Select(sheet->outputColor, "RED");
    EXPECT_FALSE(sheet->reduceGreenNoise->isEnabled());
    EXPECT_FALSE(sheet->buildRGBPixel->isEnabled());
    EXPECT_EQ(sheet->prefixShown->text(), "BAYER_RED_");

    sheet->SetInputFiles(shell.TwoFrames());
    Type(sheet, "prefix", "a:b");
    EXPECT_FALSE(sheet->Run());
    ASSERT_EQ(shell.notify.messages.size(), 1u);
    EXPECT_EQ(shell.notify.messages[0].rfind(
                  "A prefix can't contain any of the following characters:\n", 0),
              0u);
    // The busy flag of another Bayer run refuses with its text.
    Type(sheet, "prefix", "");
    FileOpBusy held(FileOpKind::Bayer);
    shell.notify.messages.clear();
    EXPECT_FALSE(sheet->Run());
    EXPECT_EQ(shell.LastMessage(), "Bayer Interpolation Is Currently Busy.");
}

// ---- Read Noise and Gain -------------------------------------------------------------------

/// A frame of a sensor with gain 2 e/ADU, read noise 6 ADU and a bias of 1000.
std::string NoisyFrame(Sheets2Shell& shell, const std::string& name, double level, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> normal(0, 1);
    Image img;
    MakeImage(img, 64, 48, ColorGray, [&](int, int, int) {
        return level + std::sqrt(level / 2.0 + 36.0) * normal(rng) + 1000;
    });
    img.SetGeometryFits(KindFITS, ColorGray, 0, DataFloat, 64, 48);
    const std::string path = shell.dir.file(name);
    EXPECT_TRUE(img.WriteFile(path, KindFITS));
    return path;
}

TEST(FileSetSheets2, ReadNoiseGainShowsTheEngineRowsAndHoldsTheImageSets) {
    struct Case {
        const char* type;   ///< object name of the camera type button
        const char* adc;    ///< the converter choice
        const char* camera; ///< Bayer frame type, for the mosaic types
        std::vector<std::string> rows;
    } cases[] = {
        {"typeCcd", "16 bit", nullptr, {"Luminance"}},
        {"typeOscCcd", "12 bit", "Nikon D70, D70s, D50, D40", {"Red", "Green", "Blue"}},
        {"typeDslr", " 8 bit", "Canon 1Ds", {"Red", "Green", "Blue"}},
    };
    Sheets2Shell shell;
    const std::string f1 = NoisyFrame(shell, "flat1.fit", 20000, 1);
    const std::string f2 = NoisyFrame(shell, "flat2.fit", 20000, 2);
    const std::string b1 = NoisyFrame(shell, "bias1.fit", 0, 3);
    const std::string b2 = NoisyFrame(shell, "bias2.fit", 0, 4);
    NormalizeSheet* normalize = NormalizeSheet::Show(shell);
    normalize->SetInputFiles({f1, f2});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.type);
        ReadNoiseGainDialog* dialog = ReadNoiseGainDialog::Show(shell);
        ASSERT_NE(dialog, nullptr);
        ASSERT_TRUE(dialog->SelectFrame(ReadNoiseGainDialog::Flat1, f1));
        ASSERT_TRUE(dialog->SelectFrame(ReadNoiseGainDialog::Flat2, f2));
        ASSERT_TRUE(dialog->SelectFrame(ReadNoiseGainDialog::Bias1, b1));
        Type(dialog, "bias2", b2.c_str());
        dialog->findChild<QRadioButton*>(c.type)->setChecked(true);
        EXPECT_EQ(dialog->bayerFrameType->isEnabled(), c.camera != nullptr);
        if (c.camera)
            Select(dialog->bayerFrameType, c.camera);
        Select(dialog->adcBits, c.adc);
        dialog->pedestal->setValue(100);
        const ReadNoiseGainRequest request = dialog->Request();
        EXPECT_EQ(request.bias2, b2);
        EXPECT_EQ(request.adcBits, std::stoi(c.adc));

        shell.notify.messages.clear();
        ASSERT_TRUE(Press(dialog, "compute"));
        // The flag holds until the result is back on this thread.
        EXPECT_TRUE(ReadNoiseGainRunning());
        EXPECT_FALSE(normalize->Run());
        EXPECT_EQ(shell.LastMessage(), "Compute Read Noise & Gain In Progress.");
        dialog->close();
        EXPECT_EQ(shell.LastMessage(), "Please Cancel Compute Read Noise & Gain Before Closing.");
        EXPECT_TRUE(dialog->isVisible());
        ASSERT_TRUE(dialog->WaitForRun());
        EXPECT_FALSE(ReadNoiseGainRunning());

        const ReadNoiseGainResult expected = ComputeReadNoiseGain(request, nullptr);
        ASSERT_TRUE(expected.ok) << expected.status;
        ASSERT_EQ(dialog->results->topLevelItemCount(), static_cast<int>(c.rows.size()));
        ASSERT_EQ(expected.rows.size(), c.rows.size());
        for (std::size_t i = 0; i < c.rows.size(); ++i) {
            const QTreeWidgetItem* row = dialog->results->topLevelItem(static_cast<int>(i));
            EXPECT_EQ(row->text(0).toStdString(), c.rows[i]);
            EXPECT_EQ(row->text(1).toStdString(), FormatGainValue(expected.rows[i].gain));
            EXPECT_EQ(row->text(2).toStdString(), FormatGainValue(expected.rows[i].readNoise));
        }
        if (std::string(c.type) == "typeCcd") {
            // The sensor's own numbers, within the spread of 3072 samples.
            EXPECT_NEAR(expected.rows[0].gain, 2.0, 0.25);
            EXPECT_NEAR(expected.rows[0].readNoise, 12.0, 1.5);
        }
        EXPECT_EQ(dialog->status->text(), "Completed");
        EXPECT_TRUE(dialog->computeButton->isEnabled());
        dialog->close();
        QApplication::processEvents();
        delete ToolFrame::Find(ReadNoiseGainDialog::kClassName);
    }
}

TEST(FileSetSheets2, ReadNoiseGainRefusesTheSameFileTwiceAndReportsAMissingFrame) {
    Sheets2Shell shell;
    const std::string f1 = NoisyFrame(shell, "flat1.fit", 20000, 1);
    const std::string f2 = NoisyFrame(shell, "flat2.fit", 20000, 2);
    const std::string b1 = NoisyFrame(shell, "bias1.fit", 0, 3);
    ReadNoiseGainDialog* dialog = ReadNoiseGainDialog::Show(shell);
    struct Case {
        ReadNoiseGainDialog::Frame frame;
        std::string path;
        const char* text;
    } cases[] = {
        {ReadNoiseGainDialog::Flat1, f1, ""},
        {ReadNoiseGainDialog::Flat2, f1,
         "Please select a Flat 2 frame that is different than "
         "Flat 1."},
        {ReadNoiseGainDialog::Flat2, f2, ""},
        {ReadNoiseGainDialog::Bias1, f2,
         "Please select a Bias 1 frame that is different than "
         "Flat 2."},
        {ReadNoiseGainDialog::Bias1, b1, ""},
        {ReadNoiseGainDialog::Bias2, b1,
         "Please select a Bias 2 frame that is different than "
         "Bias 1."},
        {ReadNoiseGainDialog::Flat1, shell.dir.file("./bias1.fit"),
         "Please select a Flat 1 frame that is different than Bias 1."},
    };
    for (const Case& c : cases) {
        shell.notify.messages.clear();
        const QString before = dialog->frames[c.frame]->text();
        const bool taken = dialog->SelectFrame(c.frame, c.path);
        EXPECT_EQ(taken, std::string(c.text).empty()) << c.text;
        if (taken) {
            EXPECT_TRUE(shell.notify.messages.empty());
            EXPECT_EQ(dialog->frames[c.frame]->text().toStdString(), c.path);
        } else {
            ASSERT_EQ(shell.notify.messages.size(), 1u);
            EXPECT_EQ(shell.notify.messages[0], c.text);
            EXPECT_EQ(dialog->frames[c.frame]->text(), before);
        }
    }
    // Bias 2 names a file that is not there: the worker's text stands as the status.
    ASSERT_TRUE(dialog->SelectFrame(ReadNoiseGainDialog::Bias2, shell.dir.file("none.fit")));
    ASSERT_TRUE(dialog->Compute());
    ASSERT_TRUE(dialog->WaitForRun());
    EXPECT_FALSE(dialog->LastResult().ok);
    EXPECT_EQ(dialog->status->text(), "Error reading Bias 2");
    EXPECT_EQ(dialog->results->topLevelItemCount(), 0);
    EXPECT_FALSE(ReadNoiseGainRunning());
}

// ---- menu ----------------------------------------------------------------------------------

TEST(FileSetSheets2, EachSheetAndTheDialogOpenFromTheirMenuCommands) {
    ToolTestApp();
    ScratchDir dir;
    const std::string home = std::getenv("HOME") ? std::getenv("HOME") : "";
    const CSetupParams kept = Options().setup;
    fs::create_directories(dir.file("home"));
    setenv("HOME", dir.file("home").c_str(), 1);
    {
        MainFrame frame(dir.file("config/QXSP600.qxp"));
        frame.Notifier().SetRecording(true);
        struct Case {
            const char* action;
            const char* className;
        } cases[] = {
            {"actionConvertFiles", ConvertSheet::kClassName},
            {"actionFilterFiles", FilterFilesSheet::kClassName},
            {"actionBayerFiles", BayerSheet::kClassName},
            {"actionReadNoiseGain", ReadNoiseGainDialog::kClassName},
        };
        for (const Case& c : cases) {
            QAction* action = frame.Action(c.action);
            ASSERT_NE(action, nullptr) << c.action;
            action->trigger();
            ToolFrame* open = ToolFrame::Find(c.className);
            ASSERT_NE(open, nullptr) << c.action;
            EXPECT_TRUE(open->isVisible()) << c.action;
            open->close();
            QApplication::processEvents();
        }
        ToolFrame::CloseAll();
    }
    setenv("HOME", home.c_str(), 1);
    Options().setup = kept;
}

} // namespace
} // namespace astrivelle::test
