// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The geometric transform sheet.
#include "shell/GeoTransformTool.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

#include <array>

#include "engine/ProcessWindow.h"
#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

constexpr std::array<const char*, 4> kRotateDirections = {
    "Rotate CW (Degrees)", "Rotate CW (Radians)", "Rotate CCW (Degrees)", "Rotate CCW (Radians)"};
constexpr std::array<const char*, 11> kAngleSteps = {"0.05", "0.1", "0.2", "0.3", "0.4", "0.5",
                                                     "0.6",  "0.7", "0.8", "0.9", "1.0"};
constexpr std::array<const char*, 3> kInterpolation = {"Nearest Neighbor", "Bilinear", "Bicubic"};
constexpr std::array<const char*, 3> kRotateInterpolation = {"Nearest Nbhd", "Bilinear", "Bicubic"};
constexpr std::array<const char*, 2> kVertical = {"Translate Up", "Translate Down"};
constexpr std::array<const char*, 2> kHorizontal = {"Translate Right", "Translate Left"};

bool ReadReal(const QLineEdit* edit, double* value) {
    bool ok = false;
    *value = QLocale::c().toDouble(edit->text().trimmed(), &ok);
    return ok;
}

bool ReadInt(const QLineEdit* edit, int* value) {
    bool ok = false;
    *value = QLocale::c().toInt(edit->text().trimmed(), &ok);
    return ok;
}

QString Number(double v) {
    return QLocale::c().toString(v, 'f', 4);
}

} // namespace

CGEOTRANSFORM* CGEOTRANSFORM::Show(ShellContext& context) {
    return ShowTool<CGEOTRANSFORM>(context);
}

CGEOTRANSFORM::CGEOTRANSFORM(ShellContext& context) : ToolFrame(context, kTitle, kClassName) {
    pages = new QTabWidget(this);
    pages->setObjectName("pages");

    // ---- Rotate ----
    rotatePage = new QWidget(pages);
    rotatePage->setObjectName("CGEOTRANSFORMRotate");
    auto* rotate = new QGridLayout(rotatePage);
    rotateDirection = MakeCombo(rotatePage, "rotateDirection", kRotateDirections);
    angle = MakeNumberEdit(rotatePage, "angle");
    angle->setText("0.0");
    angleStep = MakeCombo(rotatePage, "angleStep", kAngleSteps);
    angleStep->setCurrentIndex(1);
    angleUp = MakeButton(rotatePage, "+", "angleUp");
    angleDown = MakeButton(rotatePage, "-", "angleDown");
    connect(angleUp, &QPushButton::clicked, this, [this] { StepAngle(1); });
    connect(angleDown, &QPushButton::clicked, this, [this] { StepAngle(-1); });
    rotate->addWidget(rotateDirection, 0, 0);
    rotate->addWidget(angle, 0, 1);
    rotate->addWidget(angleDown, 0, 2);
    rotate->addWidget(angleUp, 0, 3);
    rotate->addWidget(new QLabel("Step", rotatePage), 1, 0);
    rotate->addWidget(angleStep, 1, 1);
    aboutX = new QSpinBox(rotatePage);
    aboutX->setObjectName("aboutX");
    aboutY = new QSpinBox(rotatePage);
    aboutY->setObjectName("aboutY");
    for (QSpinBox* box : {aboutX, aboutY}) {
        box->setRange(0, 1000000);
        connect(box, &QSpinBox::valueChanged, this, [this] { RefreshAbout(); });
    }
    aboutLabel = new QLabel(rotatePage);
    aboutLabel->setObjectName("aboutLabel");
    rotate->addWidget(aboutLabel, 2, 0);
    rotate->addWidget(aboutX, 2, 1);
    rotate->addWidget(aboutY, 2, 2);
    addBorder = MakeCheck(rotatePage, "Add &Border", "addBorder");
    rotate->addWidget(addBorder, 3, 0);
    auto* borderLabel = new QLabel("Border &Value:", rotatePage);
    rotateBorder = MakeNumberEdit(rotatePage, "rotateBorder");
    rotateBorder->setText("0");
    borderLabel->setBuddy(rotateBorder);
    rotate->addWidget(borderLabel, 4, 0);
    rotate->addWidget(rotateBorder, 4, 1);
    rotateInterpolation = MakeCombo(rotatePage, "rotateInterpolation", kRotateInterpolation);
    rotateInterpolation->setCurrentIndex(1);
    rotate->addWidget(new QLabel("Interpolation", rotatePage), 5, 0);
    rotate->addWidget(rotateInterpolation, 5, 1);
    rotate->setRowStretch(6, 1);
    pages->addTab(rotatePage, "Rotate");

    // ---- Scale ----
    scalePage = new QWidget(pages);
    scalePage->setObjectName("CGEOTRANSFORMScale");
    auto* scale = new QGridLayout(scalePage);
    bySize = new QRadioButton("By Size", scalePage);
    bySize->setObjectName("bySize");
    byFactor = new QRadioButton("By Factor", scalePage);
    byFactor->setObjectName("byFactor");
    auto* kind = new QButtonGroup(scalePage);
    kind->addButton(bySize);
    kind->addButton(byFactor);
    byFactor->setChecked(true);
    scaleWidth = MakeNumberEdit(scalePage, "scaleWidth");
    scaleHeight = MakeNumberEdit(scalePage, "scaleHeight");
    factorX = MakeNumberEdit(scalePage, "factorX");
    factorY = MakeNumberEdit(scalePage, "factorY");
    factorX->setText("1.0");
    factorY->setText("1.0");
    auto buddy = [&](const char* text, QLineEdit* edit, int row, int column) {
        auto* label = new QLabel(text, scalePage);
        label->setBuddy(edit);
        scale->addWidget(label, row, column);
        scale->addWidget(edit, row, column + 1);
    };
    scale->addWidget(bySize, 0, 0);
    buddy("&Width:", scaleWidth, 1, 0);
    buddy("&Height:", scaleHeight, 2, 0);
    scale->addWidget(byFactor, 3, 0);
    buddy("&Width  X ", factorX, 4, 0);
    buddy("&Height  X ", factorY, 5, 0);
    scaleInterpolation = MakeCombo(scalePage, "scaleInterpolation", kInterpolation);
    scaleInterpolation->setCurrentIndex(1);
    scale->addWidget(new QLabel("Interpolation", scalePage), 6, 0);
    scale->addWidget(scaleInterpolation, 6, 1);
    scale->setRowStretch(7, 1);
    connect(byFactor, &QRadioButton::toggled, this, [this] { RefreshScale(); });
    pages->addTab(scalePage, "Scale");

    // ---- Translate ----
    translatePage = new QWidget(pages);
    translatePage->setObjectName("CGEOTRANSFORMTranslate");
    auto* translate = new QGridLayout(translatePage);
    verticalDirection = MakeCombo(translatePage, "verticalDirection", kVertical);
    verticalDirection->setCurrentIndex(1);
    horizontalDirection = MakeCombo(translatePage, "horizontalDirection", kHorizontal);
    shiftY = MakeNumberEdit(translatePage, "shiftY");
    shiftX = MakeNumberEdit(translatePage, "shiftX");
    shiftY->setText("0.0");
    shiftX->setText("0.0");
    translate->addWidget(verticalDirection, 0, 0);
    translate->addWidget(shiftY, 0, 1);
    translate->addWidget(horizontalDirection, 1, 0);
    translate->addWidget(shiftX, 1, 1);
    borderPixel = MakeNumberEdit(translatePage, "borderPixel");
    borderPixel->setText("0");
    translate->addWidget(new QLabel("Border Pixel", translatePage), 2, 0);
    translate->addWidget(borderPixel, 2, 1);
    subPixel = MakeCheck(translatePage, "Sub-Pixel", "subPixel");
    subPixel->setChecked(true);
    translate->addWidget(subPixel, 3, 0);
    translateInterpolation = MakeCombo(translatePage, "translateInterpolation", kInterpolation);
    translateInterpolation->setCurrentIndex(1);
    translate->addWidget(new QLabel("Interpolation", translatePage), 4, 0);
    translate->addWidget(translateInterpolation, 4, 1);
    translate->setRowStretch(5, 1);
    pages->addTab(translatePage, "Translate");
    Body()->addWidget(pages);

    mirrorVertical = MakeButton(this, "Mirror &Vertical", "mirrorVertical");
    mirrorHorizontal = MakeButton(this, "Mirror &Horizontal", "mirrorHorizontal");
    connect(mirrorVertical, &QPushButton::clicked, this, [this] { Mirror(true); });
    connect(mirrorHorizontal, &QPushButton::clicked, this, [this] { Mirror(false); });
    Body()->addLayout(CheckRow(this, {mirrorVertical, mirrorHorizontal}));

    OnImageChanged();
    RefreshScale();
}

void CGEOTRANSFORM::OnImageChanged() {
    CProcessWindow* image = ShownImage();
    if (!image || image->image.width <= 0)
        return;
    const int w = static_cast<int>(image->image.width), h = static_cast<int>(image->image.height);
    aboutX->setRange(0, w - 1);
    aboutY->setRange(0, h - 1);
    if (scaleWidth->text().isEmpty()) {
        scaleWidth->setText(QString::number(w));
        scaleHeight->setText(QString::number(h));
        aboutX->setValue(w / 2);
        aboutY->setValue(h / 2);
    }
    RefreshAbout();
}

void CGEOTRANSFORM::RefreshAbout() {
    QString value;
    CProcessWindow* image = ShownImage();
    if (image && image->image.width > 0 && !image->image.Slots().empty()) {
        const Image& img = image->image;
        const int x = aboutX->value(), y = aboutY->value();
        if (x < static_cast<int>(img.width) && y < static_cast<int>(img.height)) {
            const std::size_t at = static_cast<std::size_t>(y) * img.width + x;
            for (int s : img.Slots())
                value += (value.isEmpty() ? "" : " ") +
                         QString::number(static_cast<double>(img.curPlane[s][at]), 'f', 0);
        }
    }
    aboutLabel->setText(QString::asprintf("About : (%d, %d) %s", aboutX->value(), aboutY->value(),
                                          value.toLatin1().constData()));
}

void CGEOTRANSFORM::RefreshScale() {
    const bool factor = byFactor->isChecked();
    scaleWidth->setEnabled(!factor);
    scaleHeight->setEnabled(!factor);
    factorX->setEnabled(factor);
    factorY->setEnabled(factor);
}

void CGEOTRANSFORM::StepAngle(int sign) {
    double a = 0, step = 0;
    if (!ReadReal(angle, &a))
        a = 0;
    step = QLocale::c().toDouble(angleStep->currentText());
    a += sign * step;
    if (a < 0)
        a = 0;
    angle->setText(Number(a));
}

bool CGEOTRANSFORM::RotateValues(RotateParams* p, std::string* text) const {
    const int dir = rotateDirection->currentIndex();
    p->clockwise = dir < 2;
    p->radians = dir == 1 || dir == 3;
    if (!ReadReal(angle, &p->angle)) {
        *text = kGeometryPositiveRealText;
        return false;
    }
    if (!ReadInt(rotateBorder, &p->border)) {
        *text = kGeometryPositiveIntegerText;
        return false;
    }
    p->aboutX = aboutX->value();
    p->aboutY = aboutY->value();
    p->addBorder = addBorder->isChecked();
    p->interpolation = rotateInterpolation->currentIndex() + 1;
    return true;
}

bool CGEOTRANSFORM::ScaleValues(ScaleStepParams* p, std::string* text) const {
    p->byFactor = byFactor->isChecked();
    p->interpolation = scaleInterpolation->currentIndex() + 1;
    if (p->byFactor) {
        if (!ReadReal(factorX, &p->factorX) || !ReadReal(factorY, &p->factorY)) {
            *text = kGeometryPositiveRealText;
            return false;
        }
        return true;
    }
    if (!ReadInt(scaleWidth, &p->width)) {
        *text = kGeometryWidthText;
        return false;
    }
    if (!ReadInt(scaleHeight, &p->height)) {
        *text = kGeometryHeightText;
        return false;
    }
    return true;
}

bool CGEOTRANSFORM::TranslateValues(TranslateParams* p, std::string* text) const {
    p->up = verticalDirection->currentIndex() == 0;
    p->left = horizontalDirection->currentIndex() == 1;
    if (!ReadReal(shiftY, &p->dy) || !ReadReal(shiftX, &p->dx)) {
        *text = kGeometryPositiveRealText;
        return false;
    }
    if (!ReadInt(borderPixel, &p->border)) {
        *text = kGeometryPositiveIntegerText;
        return false;
    }
    p->subPixel = subPixel->isChecked();
    p->interpolation = translateInterpolation->currentIndex() + 1;
    return true;
}

void CGEOTRANSFORM::SetRotate(const RotateParams& p) {
    rotateDirection->setCurrentIndex((p.clockwise ? 0 : 2) + (p.radians ? 1 : 0));
    angle->setText(Number(p.angle));
    aboutX->setValue(p.aboutX);
    aboutY->setValue(p.aboutY);
    rotateBorder->setText(QString::number(p.border));
    addBorder->setChecked(p.addBorder);
    rotateInterpolation->setCurrentIndex(p.interpolation - 1);
    pages->setCurrentWidget(rotatePage);
}

void CGEOTRANSFORM::SetScale(const ScaleStepParams& p) {
    (p.byFactor ? byFactor : bySize)->setChecked(true);
    if (p.byFactor) {
        factorX->setText(Number(p.factorX));
        factorY->setText(Number(p.factorY));
    } else {
        scaleWidth->setText(QString::number(p.width));
        scaleHeight->setText(QString::number(p.height));
    }
    scaleInterpolation->setCurrentIndex(p.interpolation - 1);
    pages->setCurrentWidget(scalePage);
}

void CGEOTRANSFORM::SetTranslate(const TranslateParams& p) {
    verticalDirection->setCurrentIndex(p.up ? 0 : 1);
    horizontalDirection->setCurrentIndex(p.left ? 1 : 0);
    shiftY->setText(Number(p.dy));
    shiftX->setText(Number(p.dx));
    borderPixel->setText(QString::number(p.border));
    subPixel->setChecked(p.subPixel);
    translateInterpolation->setCurrentIndex(p.interpolation - 1);
    pages->setCurrentWidget(translatePage);
}

bool CGEOTRANSFORM::LoadStep(const std::string& operation, const std::string& parameters) {
    if (operation == "Rotate") {
        RotateParams p;
        if (!ParseRotate(parameters, &p, nullptr))
            return false;
        SetRotate(p);
        return true;
    }
    if (operation == "Scale") {
        ScaleStepParams p;
        if (!ParseScale(parameters, &p, nullptr))
            return false;
        SetScale(p);
        return true;
    }
    if (operation == "Translate") {
        TranslateParams p;
        if (!ParseTranslate(parameters, &p, nullptr))
            return false;
        SetTranslate(p);
        return true;
    }
    if (operation == "Mirror Vertical" || operation == "Mirror Horizontal")
        return parameters == FormatMirror(operation == "Mirror Vertical");
    return false;
}

void CGEOTRANSFORM::Finish(CProcessWindow* target) {
    Context().ImageChanged(target);
    RefreshCaption();
    OnImageChanged();
}

void CGEOTRANSFORM::Mirror(bool vertical) {
    CProcessWindow* target = Target();
    if (!target || !CheckGuards(*target))
        return;
    if (vertical ? target->MirrorVertical() : target->MirrorHorizontal())
        Finish(target);
}

void CGEOTRANSFORM::OnApply() {
    CProcessWindow* target = Target();
    if (!target || !CheckGuards(*target))
        return;
    INotify& notify = Context().Model().notify();
    std::string text;
    bool ok = false;
    if (pages->currentWidget() == rotatePage) {
        RotateParams p;
        if (!RotateValues(&p, &text)) {
            notify.Message(text);
            return;
        }
        ok = target->Rotate(p);
    } else if (pages->currentWidget() == scalePage) {
        ScaleStepParams p;
        if (!ScaleValues(&p, &text)) {
            notify.Message(text);
            return;
        }
        ok = target->Scale(p);
    } else {
        TranslateParams p;
        if (!TranslateValues(&p, &text)) {
            notify.Message(text);
            return;
        }
        ok = target->Translate(p);
    }
    if (ok)
        Finish(target);
}

OperatorTool GeoTransformToolEntry() {
    OperatorTool t;
    t.operations = {"Rotate", "Scale", "Translate", "Mirror Vertical", "Mirror Horizontal"};
    t.submenu = QStringLiteral("&Geometry");
    t.menuText = QStringLiteral("&Geometric Transforms...");
    t.objectName = QStringLiteral("actionGeoTransform");
    t.className = CGEOTRANSFORM::kClassName;
    t.show = [](ShellContext& c) -> ToolFrame* { return CGEOTRANSFORM::Show(c); };
    t.load = [](ToolFrame* tool, const std::string& operation, const std::string& parameters) {
        return static_cast<CGEOTRANSFORM*>(tool)->LoadStep(operation, parameters);
    };
    return t;
}

} // namespace astrivelle
