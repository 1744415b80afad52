// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Small builders the operator tools share.
#include "shell/ToolControls.h"

#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLayout>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <QSpinBox>

#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"
#include "shell/ToolFrame.h"

namespace astrivelle {

QString FixedText(double value, int decimals) {
    return QLocale::c().toString(value, 'f', decimals);
}

void DisconnectFromChildren(QObject* window) {
    for (QObject* child : window->findChildren<QObject*>())
        QObject::disconnect(child, nullptr, window, nullptr);
}

QRadioButton* MakeRadio(QWidget* parent, const char* text, const char* name) {
    auto* r = new QRadioButton(QString::fromLatin1(text), parent);
    r->setObjectName(name);
    return r;
}

QLineEdit* MakeNumberEdit(QWidget* parent, const char* name) {
    auto* edit = new QLineEdit(parent);
    edit->setObjectName(name);
    edit->setMaximumWidth(100);
    return edit;
}

QSlider* MakeSlider(QWidget* parent, const char* name) {
    auto* slider = new QSlider(Qt::Horizontal, parent);
    slider->setObjectName(name);
    slider->setMinimumWidth(160);
    return slider;
}

QSlider* MakeSlider(QWidget* parent, const char* name, int top) {
    auto* slider = new QSlider(Qt::Horizontal, parent);
    slider->setObjectName(name);
    slider->setRange(0, top);
    slider->setMinimumWidth(160);
    return slider;
}

std::string ComboText(const QComboBox* combo) {
    return combo->currentText().toStdString();
}

void ChooseText(QComboBox* combo, const std::string& text) {
    const int i = combo->findText(QString::fromStdString(text));
    if (i >= 0)
        combo->setCurrentIndex(i);
}

void PairSpinSlider(QSpinBox* box, QSlider* slider) {
    slider->setRange(box->minimum(), box->maximum());
    slider->setValue(box->value());
    QObject::connect(box, &QSpinBox::valueChanged, slider, [slider](int v) {
        if (slider->value() != v)
            slider->setValue(v);
    });
    QObject::connect(slider, &QSlider::valueChanged, box, [box](int v) {
        if (box->value() != v)
            box->setValue(v);
    });
}

QCheckBox* MakeCheck(QWidget* parent, const QString& text, const char* name) {
    auto* check = new QCheckBox(text, parent);
    check->setObjectName(name);
    return check;
}

QDialogButtonBox* OkCancel(QDialog* dialog, QLayout* layout, std::function<bool()> accepting) {
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, dialog);
    buttons->button(QDialogButtonBox::Ok)->setObjectName("ok");
    buttons->button(QDialogButtonBox::Cancel)->setObjectName("cancel");
    QObject::connect(buttons, &QDialogButtonBox::accepted, dialog,
                     [dialog, accepting = std::move(accepting)] {
                         if (!accepting || accepting())
                             dialog->accept();
                     });
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    layout->addWidget(buttons);
    return buttons;
}

QPushButton* MakeButton(QWidget* parent, const QString& text, const char* name) {
    auto* button = new QPushButton(text, parent);
    button->setObjectName(name);
    return button;
}

QHBoxLayout* SpreadRow(std::initializer_list<QWidget*> checks, QWidget* last) {
    auto* row = new QHBoxLayout;
    for (QWidget* check : checks)
        row->addWidget(check);
    row->addStretch(1);
    if (last)
        row->addWidget(last);
    return row;
}

QHBoxLayout* CheckRow(ToolFrame* frame, std::initializer_list<QWidget*> checks, QWidget* last) {
    auto* row = new QHBoxLayout;
    for (QWidget* check : checks)
        row->addWidget(check);
    if (QLayout* frameLayout = frame->layout())
        frameLayout->removeWidget(frame->lockCheck);
    row->addWidget(frame->lockCheck);
    row->addStretch(1);
    if (last)
        row->addWidget(last);
    return row;
}

void LockClearsToAll(ToolFrame* frame, QCheckBox* toAllImages) {
    QObject::connect(frame->lockCheck, &QCheckBox::toggled, frame, [toAllImages](bool on) {
        if (on)
            toAllImages->setChecked(false);
    });
}

std::vector<CProcessWindow*> TargetOrAll(ShellContext& context, CProcessWindow& target, bool all) {
    if (all)
        return context.Model().images().List();
    return {&target};
}

} // namespace astrivelle
