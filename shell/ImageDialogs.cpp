// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The New Image, Copy Portion and Convert Color Type dialogs.
#include "shell/ImageDialogs.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

constexpr int kLargestSide = 100000;

QSpinBox* Spin(QWidget* parent, const char* name, int low, int high, int value) {
    auto* box = new QSpinBox(parent);
    box->setObjectName(name);
    box->setRange(low, high);
    box->setValue(value);
    return box;
}

struct TypeName {
    std::uint32_t type;
    const char* name;
};
constexpr TypeName kMonoTypes[] = {
    {ColorGray, "Gray"}, {ColorRed, "Red"},         {ColorGreen, "Green"},  {ColorBlue, "Blue"},
    {ColorCyan, "Cyan"}, {ColorMagenta, "Magenta"}, {ColorYellow, "Yellow"}};

} // namespace

// ---- New Image ---------------------------------------------------------------------------

CNewImage::CNewImage(ShellContext& context) : QDialog(context.MainWidget()), context_(context) {
    setWindowTitle("New Image");
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    widthBox = Spin(this, "width", 1, kLargestSide, 1024);
    heightBox = Spin(this, "height", 1, kLargestSide, 768);
    colorCheck = new QCheckBox("RGB Color", this);
    colorCheck->setObjectName("color");
    valueBox = new QDoubleSpinBox(this);
    valueBox->setObjectName("value");
    valueBox->setRange(0, 65535);
    valueBox->setDecimals(0);
    form->addRow("Width", widthBox);
    form->addRow("Height", heightBox);
    form->addRow("", colorCheck);
    form->addRow("Value", valueBox);
    layout->addLayout(form);
    OkCancel(this, layout);
}

CProcessWindow* CNewImage::Create() {
    CProcessWindow* made =
        context_.Model().NewImage(widthBox->value(), heightBox->value(), colorCheck->isChecked(),
                                  static_cast<float>(valueBox->value()));
    if (made)
        context_.ImageChanged(made);
    return made;
}

CProcessWindow* CNewImage::Show(ShellContext& context) {
    CNewImage dialog(context);
    if (dialog.exec() != QDialog::Accepted)
        return nullptr;
    return dialog.Create();
}

// ---- Copy Portion ------------------------------------------------------------------------

CCopyPortion::CCopyPortion(ShellContext& context)
    : QDialog(context.MainWidget()), context_(context) {
    setWindowTitle("Copy Portion");
    CProcessWindow* source = context.ActiveImage();
    const int w = source ? source->image.width : 1;
    const int h = source ? source->image.height : 1;
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    xBox = Spin(this, "x", 0, std::max(w - 1, 0), 0);
    yBox = Spin(this, "y", 0, std::max(h - 1, 0), 0);
    widthBox = Spin(this, "width", 1, std::max(w, 1), w);
    heightBox = Spin(this, "height", 1, std::max(h, 1), h);
    nameEdit = new QLineEdit(this);
    nameEdit->setObjectName("name");
    nameEdit->setPlaceholderText(source ? QString::fromStdString(source->title).section('.', 0, 0)
                                        : QString());
    form->addRow("X", xBox);
    form->addRow("Y", yBox);
    form->addRow("Width", widthBox);
    form->addRow("Height", heightBox);
    form->addRow("Name", nameEdit);
    layout->addLayout(form);
    OkCancel(this, layout);
}

CProcessWindow* CCopyPortion::Create() {
    CProcessWindow* made =
        context_.Model().CopyPortion(xBox->value(), yBox->value(), widthBox->value(),
                                     heightBox->value(), nameEdit->text().trimmed().toStdString());
    if (made)
        context_.ImageChanged(made);
    return made;
}

CProcessWindow* CCopyPortion::Show(ShellContext& context) {
    if (!context.ActiveImage()) {
        context.Model().notify().Message(kPleaseOpenAnImageText);
        return nullptr;
    }
    CCopyPortion dialog(context);
    if (dialog.exec() != QDialog::Accepted)
        return nullptr;
    return dialog.Create();
}

// ---- Convert Color Type ------------------------------------------------------------------

CConvertColorType::CConvertColorType(ShellContext& context)
    : QDialog(context.MainWidget()), context_(context) {
    setWindowTitle("Convert Color Type");
    auto* layout = new QVBoxLayout(this);
    typeList = new QComboBox(this);
    typeList->setObjectName("colorType");
    for (const TypeName& t : kMonoTypes)
        typeList->addItem(t.name, static_cast<unsigned>(t.type));
    CProcessWindow* image = context.ActiveImage();
    const bool mono = image && image->image.colorType != ColorRGB;
    if (mono) {
        const int at = typeList->findData(static_cast<unsigned>(image->image.colorType));
        typeList->setCurrentIndex(at < 0 ? 0 : at);
    }
    auto* form = new QFormLayout;
    form->addRow("Color Type", typeList);
    layout->addLayout(form);
    auto* buttons = OkCancel(this, layout);
    if (!mono) {
        typeList->setEnabled(false);
        buttons->button(QDialogButtonBox::Ok)->setEnabled(false);
    }
}

std::uint32_t CConvertColorType::ChosenType() const {
    return typeList->currentData().toUInt();
}

bool CConvertColorType::Convert() {
    CProcessWindow* w = context_.ActiveImage();
    if (!w) {
        context_.Model().notify().Message(kPleaseOpenAnImageText);
        return false;
    }
    if (w->image.colorType == ColorRGB)
        return false;
    std::string why;
    if (!CheckOperatorGuards(*w, &why)) {
        context_.Model().notify().Message(why);
        return false;
    }
    if (!w->image.ConvertColorType(ChosenType(), w->image.colorDetail)) {
        context_.Model().notify().Message(
            "Can't Allocate Memory. Please Close Some Applications And Try Again.");
        return false;
    }
    w->image.ComputeStatistics();
    w->notify().SetCaption(w->Caption());
    context_.ImageChanged(w);
    return true;
}

bool CConvertColorType::Show(ShellContext& context) {
    if (!context.ActiveImage()) {
        context.Model().notify().Message(kPleaseOpenAnImageText);
        return false;
    }
    CConvertColorType dialog(context);
    if (dialog.exec() != QDialog::Accepted)
        return false;
    return dialog.Convert();
}

} // namespace astrivelle
