// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The General Stretch Functions tool.
#include "shell/GeneralStretchTool.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>

#include "engine/ProcessWindow.h"
#include "engine/SetupParams.h"
#include "shell/DigitalDevelopmentTool.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

QSpinBox* MakeSpin(QWidget* parent, const char* name) {
    auto* box = new QSpinBox(parent);
    box->setObjectName(name);
    box->setRange(0, 65535);
    return box;
}

} // namespace

CColorBCS* CColorBCS::Show(ShellContext& context) {
    return ShowTool<CColorBCS>(context);
}

// A short operator on the GUI thread: no progress row.
CColorBCS::CColorBCS(ShellContext& context)
    : ToolFrame(context, kTitle, kClassName, kImageTool & ~ProgressRow) {
    preStretch = new CPreStretchPanel(false, this);
    Body()->addWidget(preStretch);
    auto* grid = new QGridLayout;
    grid->setColumnStretch(2, 1);
    function = MakeCombo(this, "function", kStretchFunctionTexts);
    weightRange = MakeCombo(this, "weightRange", kWeightRangeTexts, kGeneralStretchWeightRanges);
    backgroundWeight = MakeNumberEdit(this, "backgroundWeight");
    weightSlider = MakeSlider(this, "weightSlider", kWeightSliderSteps);
    powerRange = MakeCombo(this, "powerRange", kPowerRangeTexts);
    exponentLabel = new QLabel("Power", this);
    exponent = MakeNumberEdit(this, "exponent");
    exponentSlider = MakeSlider(this, "exponentSlider", kPowerSliderSteps);
    backgroundMin = MakeSpin(this, "backgroundMin");
    outputWhite = MakeSpin(this, "outputWhite");
    outputBlack = MakeSpin(this, "outputBlack");
    int row = 0;
    auto add = [&](QWidget* label, QWidget* a, QWidget* b = nullptr) {
        grid->addWidget(label, row, 0);
        grid->addWidget(a, row, 1, 1, b ? 1 : 2);
        if (b)
            grid->addWidget(b, row, 2);
        ++row;
    };
    add(new QLabel("Stretch Function", this), function);
    add(new QLabel("Background Weight", this), backgroundWeight, weightSlider);
    add(new QLabel("Background Weight Range", this), weightRange);
    add(exponentLabel, exponent, exponentSlider);
    add(new QLabel("Power && Root Range", this), powerRange);
    add(new QLabel("Background Min", this), backgroundMin);
    add(new QLabel("Output White", this), outputWhite);
    add(new QLabel("Output Black", this), outputBlack);
    Body()->addLayout(grid);

    enableSliders = MakeCheck(this, "Enable Sliders", "enableSliders");
    resetButton = MakeButton(this, "Reset", "reset");
    Body()->addLayout(CheckRow(this, {enableSliders}, resetButton));

    connect(weightSlider, &QSlider::valueChanged, this, [this](int p) {
        if (syncing_)
            return;
        backgroundWeight->setText(FixedText(WeightFromSlider(ComboText(weightRange), p), 5));
        Slid();
    });
    connect(exponentSlider, &QSlider::valueChanged, this, [this](int p) {
        if (syncing_)
            return;
        exponent->setText(FixedText(PowerFromSlider(ComboText(powerRange), p), 3));
        Slid();
    });
    for (QLineEdit* e : {backgroundWeight, exponent})
        connect(e, &QLineEdit::textEdited, this, [this] { SyncSliders(); });
    connect(exponent, &QLineEdit::editingFinished, this, [this] {
        exponent->setText(
            FixedText(ClampToRange(ComboText(powerRange), FieldNumber(exponent, 1.0)), 3));
        SyncSliders();
    });
    connect(powerRange, &QComboBox::currentIndexChanged, this, [this] {
        if (syncing_)
            return;
        exponent->setText(
            FixedText(ClampToRange(ComboText(powerRange), FieldNumber(exponent, 1.0)), 3));
        SyncSliders();
    });
    connect(weightRange, &QComboBox::currentIndexChanged, this, [this] {
        if (syncing_)
            return;
        backgroundWeight->setText(
            FixedText(ClampToRange(ComboText(weightRange), FieldNumber(backgroundWeight, 0.0)), 5));
        SyncSliders();
    });
    connect(function, &QComboBox::currentIndexChanged, this, [this](int i) {
        if (syncing_)
            return;
        StoreShown();
        ShowRecord(static_cast<StretchFunction>(i));
    });
    connect(preStretch, &CPreStretchPanel::slid, this, [this] { Slid(); });
    connect(resetButton, &QPushButton::clicked, this, [this] { ResetStretch(); });
    connect(enableSliders, &QCheckBox::toggled, this, [this](bool on) {
        preStretch->EnableSliders(on);
        weightSlider->setEnabled(on);
        exponentSlider->setEnabled(on);
    });
    enableSliders->setChecked(context.Setup().slidersEnabled);
    enableSliders->toggled(enableSliders->isChecked());
    SetValues(GeneralStretchParams{});
}

void CColorBCS::StoreShown() {
    GeneralStretchParams& r = records_[static_cast<int>(shown_)];
    r.backgroundMin = backgroundMin->value();
    r.backgroundWeight = FieldNumber(backgroundWeight, 0.0);
    r.exponent = FieldNumber(exponent, 1.0);
    r.outputWhite = outputWhite->value();
    r.outputBlack = outputBlack->value();
}

void CColorBCS::ShowRecord(StretchFunction fn) {
    syncing_ = true;
    shown_ = fn;
    const GeneralStretchParams& r = records_[static_cast<int>(fn)];
    {
        const QSignalBlocker quiet(function);
        function->setCurrentIndex(static_cast<int>(fn));
    }
    exponentLabel->setText(ExponentFieldLabel(fn));
    backgroundMin->setValue(r.backgroundMin);
    backgroundWeight->setText(FixedText(r.backgroundWeight, 5));
    exponent->setText(FixedText(r.exponent, 3));
    outputWhite->setValue(r.outputWhite);
    outputBlack->setValue(r.outputBlack);
    syncing_ = false;
    SyncSliders();
}

void CColorBCS::SyncSliders() {
    syncing_ = true;
    weightSlider->setValue(
        WeightSliderPosition(ComboText(weightRange), FieldNumber(backgroundWeight, 0.0)));
    exponentSlider->setValue(
        PowerSliderPosition(ComboText(powerRange), FieldNumber(exponent, 1.0)));
    syncing_ = false;
}

void CColorBCS::Slid() {
    if (enableSliders->isChecked())
        Apply();
}

GeneralStretchParams CColorBCS::Values() const {
    GeneralStretchParams p;
    p.scaleType = preStretch->Type();
    p.pre = preStretch->Settings();
    p.function = shown_;
    p.weightRange = ComboText(weightRange);
    p.powerRange = ComboText(powerRange);
    p.backgroundMin = backgroundMin->value();
    p.backgroundWeight = FieldNumber(backgroundWeight, 0.0);
    p.exponent = FieldNumber(exponent, 1.0);
    p.outputWhite = outputWhite->value();
    p.outputBlack = outputBlack->value();
    return p;
}

void CColorBCS::SetValues(const GeneralStretchParams& p) {
    preStretch->SetValues(p.scaleType, p.pre);
    syncing_ = true;
    ChooseText(weightRange, p.weightRange);
    ChooseText(powerRange, p.powerRange);
    syncing_ = false;
    records_[static_cast<int>(p.function)] = p;
    ShowRecord(p.function);
}

bool CColorBCS::LoadParameters(const std::string& text) {
    GeneralStretchParams p;
    if (!ParseGeneralStretch(text, &p, nullptr))
        return false;
    SetValues(p);
    return true;
}

void CColorBCS::ResetStretch() {
    records_ = {};
    ShowRecord(shown_);
}

void CColorBCS::OnApply() {
    CProcessWindow* target = Target();
    if (!target || !CheckGuards(*target))
        return;
    target->GeneralStretch(Values());
    Context().ImageChanged(target);
    RefreshCaption();
}

OperatorTool GeneralStretchToolEntry() {
    return MakeOperatorTool<CColorBCS>(CColorBCS::kTitle, QStringLiteral("&Tone"),
                                       QStringLiteral("&General Stretch Functions..."),
                                       QStringLiteral("actionGeneralStretch"));
}

} // namespace astrivelle
