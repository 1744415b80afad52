// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Pixel Math tool.
#include "shell/PixelMathTool.h"

#include <QCheckBox>
#include <QDoubleValidator>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QRadioButton>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

#include "engine/SetupParams.h"
#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

/// The Multiply and Divide slider moves the constant in hundredths.
constexpr int kFactorSteps = 100;
constexpr int kFactorSliderTop = 10 * kFactorSteps;
constexpr int kFeatherTop = 20000;

QString ConstantText(double value) {
    return QLocale::c().toString(value, 'f', 3);
}

} // namespace

CPixelMath* CPixelMath::Show(ShellContext& context) {
    return ShowTool<CPixelMath>(context);
}

// A short operator on the GUI thread: no progress row.
CPixelMath::CPixelMath(ShellContext& context)
    : ToolFrame(context, kTitle, kClassName, kImageTool & ~ProgressRow) {
    auto* operation = new QGroupBox("Operation", this);
    auto* opRow = new QHBoxLayout(operation);
    addButton = new QRadioButton("Add", operation);
    subtractButton = new QRadioButton("Subtract", operation);
    multiplyButton = new QRadioButton("Multiply", operation);
    divideButton = new QRadioButton("Divide", operation);
    addButton->setObjectName("add");
    subtractButton->setObjectName("subtract");
    multiplyButton->setObjectName("multiply");
    divideButton->setObjectName("divide");
    for (QRadioButton* b : {addButton, subtractButton, multiplyButton, divideButton}) {
        opRow->addWidget(b);
        connect(b, &QRadioButton::toggled, this, [this](bool on) {
            if (on)
                OperationChanged();
        });
    }
    Body()->addWidget(operation);

    auto* values = new QGridLayout;
    values->setColumnStretch(2, 1);
    constantEdit = new QLineEdit(ConstantText(0), this);
    constantEdit->setObjectName("constant");
    auto* validator = new QDoubleValidator(constantEdit);
    validator->setLocale(QLocale::c());
    validator->setNotation(QDoubleValidator::StandardNotation);
    constantEdit->setValidator(validator);
    constantEdit->setMaximumWidth(110);
    constantSlider = MakeSlider(this, "constantSlider");
    connect(constantEdit, &QLineEdit::textEdited, this, [this] { ConstantTyped(); });
    connect(constantSlider, &QSlider::valueChanged, this, [this](int v) { ConstantSlid(v); });
    values->addWidget(new QLabel("Constant", this), 0, 0);
    values->addWidget(constantEdit, 0, 1);
    values->addWidget(constantSlider, 0, 2);
    Body()->addLayout(values);

    auto* range = new QGroupBox("Apply To Luminance Level", this);
    auto* rangeGrid = new QGridLayout(range);
    rangeGrid->setColumnStretch(2, 1);
    minApply = new QSpinBox(range);
    minApply->setObjectName("minApply");
    maxApply = new QSpinBox(range);
    maxApply->setObjectName("maxApply");
    minSlider = MakeSlider(range, "minSlider");
    maxSlider = MakeSlider(range, "maxSlider");
    featherRange = new QSpinBox(range);
    featherRange->setObjectName("featherRange");
    featherRange->setRange(0, kFeatherTop);
    featherSlider = MakeSlider(range, "featherSlider");
    for (QSpinBox* box : {minApply, maxApply, featherRange})
        box->setMinimumWidth(90);
    rangeGrid->addWidget(new QLabel("Min Apply", range), 0, 0);
    rangeGrid->addWidget(minApply, 0, 1);
    rangeGrid->addWidget(minSlider, 0, 2);
    rangeGrid->addWidget(new QLabel("Max Apply", range), 1, 0);
    rangeGrid->addWidget(maxApply, 1, 1);
    rangeGrid->addWidget(maxSlider, 1, 2);
    rangeGrid->addWidget(new QLabel("Feather Range", range), 2, 0);
    rangeGrid->addWidget(featherRange, 2, 1);
    rangeGrid->addWidget(featherSlider, 2, 2);
    Body()->addWidget(range);

    CProcessWindow* image = ShownImage();
    SetLevelTop(image ? static_cast<int>(image->image.maxValue) : 65535);
    maxApply->setValue(levelTop_);
    PairSpinSlider(minApply, minSlider);
    PairSpinSlider(maxApply, maxSlider);
    PairSpinSlider(featherRange, featherSlider);

    enableSliders = MakeCheck(this, "Enable Sliders", "enableSliders");
    toAllImages = MakeCheck(this, "To All Images", "toAllImages");
    // The frame's Lock Image joins the tool's other checks.
    Body()->addLayout(CheckRow(this, {enableSliders, toAllImages}));
    connect(enableSliders, &QCheckBox::toggled, this, [this](bool on) {
        for (QSlider* s : {constantSlider, minSlider, maxSlider, featherSlider})
            s->setEnabled(on);
    });
    enableSliders->setChecked(context.Setup().slidersEnabled);
    for (QSlider* s : {constantSlider, minSlider, maxSlider, featherSlider})
        s->setEnabled(enableSliders->isChecked());
    {
        const QSignalBlocker quiet(addButton);
        addButton->setChecked(true);
    }
    OperationChanged();
}

void CPixelMath::SetLevelTop(int top) {
    top = std::max(top, 1);
    const bool maxWasTop = maxApply->value() == levelTop_;
    levelTop_ = top;
    minApply->setRange(0, top);
    maxApply->setRange(0, top);
    minSlider->setRange(0, top);
    maxSlider->setRange(0, top);
    if (maxWasTop)
        maxApply->setValue(top);
    if (!multiplicative_)
        constantSlider->setRange(-top, top);
}

void CPixelMath::OperationChanged() {
    const bool multiplicative = multiplyButton->isChecked() || divideButton->isChecked();
    const bool switched = multiplicative != multiplicative_;
    multiplicative_ = multiplicative;
    syncing_ = true;
    if (multiplicative)
        constantSlider->setRange(0, kFactorSliderTop);
    else
        constantSlider->setRange(-levelTop_, levelTop_);
    syncing_ = false;
    // Multiply and Divide start from 1, Add and Subtract from 0.
    if (switched)
        constantEdit->setText(ConstantText(multiplicative ? 1.0 : 0.0));
    ConstantTyped();
}

void CPixelMath::ConstantTyped() {
    bool ok = false;
    const double value = QLocale::c().toDouble(constantEdit->text(), &ok);
    if (!ok)
        return;
    syncing_ = true;
    const double position = multiplicative_ ? value * kFactorSteps : value;
    constantSlider->setValue(static_cast<int>(std::lround(std::clamp(
        position, double(constantSlider->minimum()), double(constantSlider->maximum())))));
    syncing_ = false;
}

void CPixelMath::ConstantSlid(int position) {
    if (syncing_)
        return;
    const double value = multiplicative_ ? double(position) / kFactorSteps : double(position);
    constantEdit->setText(ConstantText(value));
}

PixelMathParams CPixelMath::Values() const {
    PixelMathParams p;
    if (subtractButton->isChecked())
        p.op = PixelMathParams::Op::Subtract;
    else if (multiplyButton->isChecked())
        p.op = PixelMathParams::Op::Multiply;
    else if (divideButton->isChecked())
        p.op = PixelMathParams::Op::Divide;
    else
        p.op = PixelMathParams::Op::Add;
    bool ok = false;
    const double c = QLocale::c().toDouble(constantEdit->text(), &ok);
    p.constant = ok ? c : 0.0;
    p.applyMin = minApply->value();
    p.applyMax = maxApply->value();
    p.feather = featherRange->value();
    return p;
}

void CPixelMath::SetValues(const PixelMathParams& p) {
    using Op = PixelMathParams::Op;
    QRadioButton* button = p.op == Op::Subtract   ? subtractButton
                           : p.op == Op::Multiply ? multiplyButton
                           : p.op == Op::Divide   ? divideButton
                                                  : addButton;
    button->setChecked(true);
    if (std::max(p.applyMin, p.applyMax) > levelTop_)
        SetLevelTop(std::max(p.applyMin, p.applyMax));
    constantEdit->setText(ConstantText(p.constant));
    ConstantTyped();
    minApply->setValue(p.applyMin);
    maxApply->setValue(p.applyMax);
    featherRange->setValue(std::clamp(p.feather, 0, kFeatherTop));
}

bool CPixelMath::LoadParameters(const std::string& text) {
    PixelMathParams p;
    std::string why;
    if (!ParsePixelMath(text, &p, &why))
        return false;
    SetValues(p);
    return true;
}

void CPixelMath::OnImageChanged() {
    if (CProcessWindow* image = ShownImage())
        SetLevelTop(static_cast<int>(image->image.maxValue));
}

bool CPixelMath::ApplyTo(CProcessWindow& window, const PixelMathParams& p) {
    using Op = PixelMathParams::Op;
    if (!CheckGuards(window))
        return false;
    bool ok = false;
    switch (p.op) {
    case Op::Add:
    case Op::Subtract:
        ok = window.PixelMathAdd(p.op == Op::Subtract, p.constant, p.applyMin, p.applyMax,
                                 p.feather);
        break;
    case Op::Multiply:
        ok = window.PixelMathMultiply(p.constant, p.applyMin, p.applyMax, p.feather);
        break;
    case Op::Divide:
        ok = window.PixelMathDivide(p.constant, p.applyMin, p.applyMax, p.feather);
        break;
    }
    Context().ImageChanged(&window);
    return ok;
}

void CPixelMath::OnApply() {
    CProcessWindow* target = Target();
    if (!target)
        return;
    const PixelMathParams p = Values();
    for (CProcessWindow* w : TargetOrAll(Context(), *target, toAllImages->isChecked()))
        ApplyTo(*w, p);
    RefreshCaption();
}

OperatorTool PixelMathToolEntry() {
    return MakeOperatorTool<CPixelMath>(CPixelMath::kTitle, QString(),
                                        QStringLiteral("Pixel &Math..."),
                                        QStringLiteral("actionPixelMath"));
}

} // namespace astrivelle
