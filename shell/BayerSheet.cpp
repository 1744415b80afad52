// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Bayer Interpolate/Split Files sheet.
#include "shell/BayerSheet.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

#include "calibration/Bayer.h"
#include "imagesets/BayerFiles.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

constexpr std::array<const char*, 4> kOutputColors = {"RGB", "RED", "GREEN", "BLUE"};
/// TIFF 16 bits first; the FITS keywords give 16-bit or float FITS.
constexpr std::array<const char*, 5> kBayerSaveTypes = {"UNCOMPTIF", "COMPFIT", "UNCOMPFIT",
                                                        "COMPFIT32", "UNCOMPFIT32"};

FileSetTraits BayerTraits() {
    FileSetTraits t;
    t.kind = FileOpKind::Bayer;
    t.operation = "Bayer Interpolate/Split Files";
    t.checkKeyword = "BINTFILES";
    t.operationWord = "Bayer interpolation";
    t.noImageText = "The Bayer interpolation operation requires at least one image.\nPlease "
                    "select at least one image.";
    t.noUsableText = "The Bayer interpolation operation requires at least one usable "
                     "image.\nPlease select at least one monochrome CFA image.";
    t.runText = QStringLiteral("Interpolate/Split");
    // The prefix and its colour rules live on the methods page.
    t.hasPrefix = false;
    return t;
}

} // namespace

BayerSheet* BayerSheet::Show(ShellContext& context) {
    return ToolFrame::ShowTool<BayerSheet>(context);
}

BayerSheet::BayerSheet(ShellContext& context)
    : FileSetFrame(context, QStringLiteral("Bayer Interpolate/Split Files"), kClassName,
                   BayerTraits()) {
    QWidget* page = Methods()->parentWidget();
    frameType = new QComboBox(page);
    frameType->setObjectName("frameType");
    for (const CfaFrameType& type : CfaFrameTypes())
        frameType->addItem(QString::fromLatin1(type.shown), QString::fromLatin1(type.keyword));
    patternKeyword = new QLabel(page);
    patternKeyword->setObjectName("patternKeyword");
    outputColor = MakeCombo(page, "outputColor", kOutputColors);
    reduceGreenNoise = MakeCheck(page, QStringLiteral("Reduce Green Noise"), "reduceGreenNoise");
    buildRGBPixel = MakeCheck(page, QStringLiteral("Build (R,G,B) Pixel"), "buildRGBPixel");
    averageGreen = MakeCheck(page, QStringLiteral("Average Green"), "averageGreen");
    saveType = MakeCombo(page, "saveType", kBayerSaveTypes);
    prefix = new QLineEdit(page);
    prefix->setObjectName("prefix");
    prefix->setMaximumWidth(160);
    prefixShown = new QLabel(page);
    prefixShown->setObjectName("prefixShown");

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Bayer Frame Type"), frameType);
    form->addRow(QStringLiteral("CFA Pattern"), patternKeyword);
    form->addRow(QStringLiteral("Output Color"), outputColor);
    form->addRow(reduceGreenNoise);
    form->addRow(buildRGBPixel);
    form->addRow(averageGreen);
    form->addRow(QStringLiteral("Save Type"), saveType);
    form->addRow(QStringLiteral("Prefix"), prefix);
    form->addRow(QStringLiteral("Output Prefix"), prefixShown);
    Methods()->addLayout(form);
    Methods()->addStretch(1);

    connect(frameType, &QComboBox::currentIndexChanged, this, [this] { Refresh(); });
    connect(outputColor, &QComboBox::currentIndexChanged, this, [this] { Refresh(); });
    connect(prefix, &QLineEdit::textChanged, this, [this] { Refresh(); });
    Refresh();
}

void BayerSheet::Refresh() {
    const std::string keyword = frameType->currentData().toString().toStdString();
    patternKeyword->setText(QString::fromStdString(keyword));
    const std::string color = ComboText(outputColor);
    const bool rgb = color == "RGB";
    // The half-size pixel and the green noise choice shape the interpolation only; a split
    // takes the samples as they are. Only a 2 by 2 cell has the half-size path.
    reduceGreenNoise->setEnabled(rgb);
    buildRGBPixel->setEnabled(rgb && IsRgbCfaKeyword(keyword));
    averageGreen->setEnabled(color == "GREEN");
    std::string shown, message;
    if (BayerFilesPrefix(color, prefix->text().toStdString(), &shown, &message))
        prefixShown->setText(QString::fromStdString(shown));
    else
        prefixShown->setText(QString());
}

void BayerSheet::ReadParams(BayerFilesParams* params) const {
    params->frameType = ComboText(frameType);
    params->cfaPattern = frameType->currentData().toString().toStdString();
    params->outputColor = ComboText(outputColor);
    const bool rgb = params->outputColor == "RGB";
    params->reduceGreenNoise = rgb && reduceGreenNoise->isChecked();
    params->buildRGBPixel = buildRGBPixel->isEnabled() && buildRGBPixel->isChecked();
    params->averageGreen = params->outputColor == "GREEN" && averageGreen->isChecked();
    params->saveType = ComboText(saveType);
    params->prefix = prefix->text().toStdString();
}

bool BayerSheet::OutputsAreColor() const {
    return ComboText(outputColor) == "RGB";
}

bool BayerSheet::Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                         const std::string&, FileSetBody* body) {
    BayerFilesParams params;
    ReadParams(&params);
    std::string checked, message;
    if (!BayerFilesPrefix(params.outputColor, params.prefix, &checked, &message)) {
        Say(message);
        prefix->setFocus();
        return false;
    }
    params.files = usable;
    params.outputDirectory = outDir;
    *body = [params](IProgress& progress, INotify& notify) {
        return RunBayerFiles(params, &progress, &notify);
    };
    return true;
}

} // namespace astrivelle
