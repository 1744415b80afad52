// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Resize Files and Crop Files sheets.
#include "shell/ResizeSheet.h"

#include <QComboBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QRadioButton>
#include <QVBoxLayout>

#include <cmath>

#include "imagesets/CropFiles.h"
#include "imagesets/ResizeFiles.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

constexpr std::array<const char*, 3> kInterpolations = {"Nearest Neighbor", "Bilinear", "Bicubic"};

FileSetTraits ResizeTraits() {
    FileSetTraits t;
    t.kind = FileOpKind::Resize;
    t.operation = "Resize Files";
    t.checkKeyword = "FILTERFILES"; // sizes may differ: each file by itself
    t.operationWord = "resize";
    t.noImageText = "The image file resize operation requires at least one image.\nPlease "
                    "select at least one image.";
    t.noUsableText = "The image file resize operation requires at least one usable "
                     "image.\nPlease select at least one image.";
    t.directoryTitle = "Select Resize Save Directory";
    t.runText = QStringLiteral("Resize");
    t.defaultPrefix = kResizePrefix;
    return t;
}

FileSetTraits CropTraits() {
    FileSetTraits t;
    t.kind = FileOpKind::Crop;
    t.operation = "Crop Files";
    t.checkKeyword = "CROP";
    t.operationWord = "crop";
    t.noImageText = "The image file crop operation requires at least one image.\nPlease "
                    "select at least one image.";
    t.noUsableText = "The image file crop operation requires at least one usable "
                     "image.\nPlease select at least one image.";
    t.directoryTitle = "Select Cropped File Save Directory";
    t.runText = QStringLiteral("Crop");
    t.defaultPrefix = kCropPrefix;
    return t;
}

} // namespace

// ---- Resize ----------------------------------------------------------------------------------

ResizeSheet* ResizeSheet::Show(ShellContext& context) {
    return ToolFrame::ShowTool<ResizeSheet>(context);
}

ResizeSheet::ResizeSheet(ShellContext& context)
    : FileSetFrame(context, QStringLiteral("Resize Files"), kClassName, ResizeTraits()) {
    QWidget* page = Methods()->parentWidget();
    modeFactor = MakeRadio(page, "Factor", "modeFactor");
    modeLargest = MakeRadio(page, "Largest", "modeLargest");
    modeSmallest = MakeRadio(page, "Smallest", "modeSmallest");
    modeSize = MakeRadio(page, "Size", "modeSize");
    modeFactor->setChecked(true);
    factor = MakeNumberEdit(page, "factor");
    factor->setText(QStringLiteral("1.0"));
    width = MakeNumberEdit(page, "width");
    height = MakeNumberEdit(page, "height");
    interpolation = MakeCombo(page, "interpolation", kInterpolations);
    interpolation->setCurrentIndex(1);
    auto* form = new QFormLayout;
    for (QRadioButton* r : {modeFactor, modeLargest, modeSmallest, modeSize})
        form->addRow(r);
    form->addRow(QStringLiteral("Factor"), factor);
    form->addRow(QStringLiteral("Width"), width);
    form->addRow(QStringLiteral("Height"), height);
    form->addRow(QStringLiteral("Interpolation"), interpolation);
    Methods()->addLayout(form);
    Methods()->addStretch(1);
}

bool ResizeSheet::Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                          const std::string& prefix, FileSetBody* body) {
    ResizeRequest request;
    request.mode = modeLargest->isChecked()    ? ResizeMode::Largest
                   : modeSmallest->isChecked() ? ResizeMode::Smallest
                   : modeSize->isChecked()     ? ResizeMode::Size
                                               : ResizeMode::Factor;
    if (request.mode == ResizeMode::Factor && !ReadNumber(factor, &request.factor))
        return false;
    if (request.mode == ResizeMode::Size) {
        double w = 0, h = 0;
        if (!ReadNumber(width, &w) || !ReadNumber(height, &h))
            return false;
        request.width = static_cast<int>(std::lround(w));
        request.height = static_cast<int>(std::lround(h));
    }
    request.interpolation = interpolation->currentIndex() + 1;
    if (const std::string text = ResizeParamsText(request); !text.empty()) {
        Say(text);
        return false;
    }
    request.files = usable;
    request.outputDirectory = outDir;
    request.prefix = prefix;
    *body = [request](IProgress& progress, INotify& notify) {
        return ResizeFiles(request, &progress, &notify);
    };
    return true;
}

// ---- Crop ------------------------------------------------------------------------------------

CropSheet* CropSheet::Show(ShellContext& context) {
    return ToolFrame::ShowTool<CropSheet>(context);
}

CropSheet::CropSheet(ShellContext& context)
    : FileSetFrame(context, QStringLiteral("Crop Files"), kClassName, CropTraits()) {
    QWidget* page = Methods()->parentWidget();
    aboutPoint = MakeRadio(page, "About X, Y", "aboutPoint");
    aboutCentroid = MakeRadio(page, "About Centroid", "aboutCentroid");
    aboutPoint->setChecked(true);
    centerX = MakeNumberEdit(page, "centerX");
    centerY = MakeNumberEdit(page, "centerY");
    width = MakeNumberEdit(page, "width");
    height = MakeNumberEdit(page, "height");
    auto* form = new QFormLayout;
    form->addRow(aboutPoint);
    form->addRow(aboutCentroid);
    form->addRow(QStringLiteral("X"), centerX);
    form->addRow(QStringLiteral("Y"), centerY);
    form->addRow(QStringLiteral("Width"), width);
    form->addRow(QStringLiteral("Height"), height);
    Methods()->addLayout(form);
    Methods()->addStretch(1);
    connect(aboutPoint, &QRadioButton::toggled, this, [this](bool on) {
        centerX->setEnabled(on);
        centerY->setEnabled(on);
    });
}

bool CropSheet::Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                        const std::string& prefix, FileSetBody* body) {
    CropRequest request;
    request.center = aboutCentroid->isChecked() ? CropCenter::Centroid : CropCenter::AboutXY;
    if (request.center == CropCenter::AboutXY) {
        // An empty field is an unset point.
        if (!centerX->text().trimmed().isEmpty() && !ReadNumber(centerX, &request.x))
            return false;
        if (!centerY->text().trimmed().isEmpty() && !ReadNumber(centerY, &request.y))
            return false;
    }
    double w = 0, h = 0;
    if ((!width->text().trimmed().isEmpty() && !ReadNumber(width, &w)) ||
        (!height->text().trimmed().isEmpty() && !ReadNumber(height, &h)))
        return false;
    request.width = static_cast<int>(std::lround(w));
    request.height = static_cast<int>(std::lround(h));
    if (const std::string text = CropParamsText(request); !text.empty()) {
        Say(text);
        return false;
    }
    request.files = usable;
    request.outputDirectory = outDir;
    request.prefix = prefix;
    *body = [request](IProgress& progress, INotify& notify) {
        return CropFiles(request, &progress, &notify);
    };
    return true;
}

} // namespace astrivelle
