// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The ArcSinH tool.
#include "shell/ArcSinHTool.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>

#include <cmath>

#include "engine/ProcessWindow.h"
#include "engine/SetupParams.h"
#include "shell/DigitalDevelopmentTool.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

CArcSinH* CArcSinH::Show(ShellContext& context) {
    return ShowTool<CArcSinH>(context);
}

CArcSinH::CArcSinH(ShellContext& context) : ToolFrame(context, kTitle, kClassName) {
    preStretch = new CPreStretchPanel(true, this);
    Body()->addWidget(preStretch);
    auto* grid = new QGridLayout;
    grid->setColumnStretch(2, 1);
    weightRange = MakeCombo(this, "weightRange", kWeightRangeTexts);
    backgroundWeight = MakeNumberEdit(this, "backgroundWeight");
    weightSlider = MakeSlider(this, "weightSlider", kWeightSliderSteps);
    powerRange = MakeCombo(this, "powerRange", kPowerRangeTexts);
    power = MakeNumberEdit(this, "power");
    powerSlider = MakeSlider(this, "powerSlider", kPowerSliderSteps);
    expand = MakeNumberEdit(this, "expand");
    backgroundMin = new QSpinBox(this);
    backgroundMin->setObjectName("backgroundMin");
    backgroundMin->setRange(0, 65535);
    int row = 0;
    auto add = [&](const char* label, QWidget* a, QWidget* b = nullptr) {
        grid->addWidget(new QLabel(label, this), row, 0);
        grid->addWidget(a, row, 1, 1, b ? 1 : 2);
        if (b)
            grid->addWidget(b, row, 2);
        ++row;
    };
    add("Background Weight", backgroundWeight, weightSlider);
    add("Background Weight Range", weightRange);
    add("Power", power, powerSlider);
    add("Power Range", powerRange);
    add("Expand", expand);
    add("Background Min", backgroundMin);
    const char* names[3] = {"red", "green", "blue"};
    const char* labels[3] = {"Red", "Green", "Blue"};
    const char* sliderNames[3] = {"redSlider", "greenSlider", "blueSlider"};
    for (int c = 0; c < 3; ++c) {
        colorEdits[c] = MakeNumberEdit(this, names[c]);
        colorSliders[c] = MakeSlider(this, sliderNames[c], kColorWeightSliderTop);
        add(labels[c], colorEdits[c], colorSliders[c]);
    }
    Body()->addLayout(grid);

    enableSliders = MakeCheck(this, "Enable Sliders", "enableSliders");
    resetButton = MakeButton(this, "Reset", "reset");
    Body()->addLayout(CheckRow(this, {enableSliders}, resetButton));

    auto follow = [this](QSlider* slider, auto toText) {
        connect(slider, &QSlider::valueChanged, this, [this, toText](int position) {
            if (syncing_)
                return;
            toText(position);
            Slid();
        });
    };
    follow(weightSlider, [this](int p) {
        backgroundWeight->setText(FixedText(WeightFromSlider(ComboText(weightRange), p), 5));
    });
    follow(powerSlider, [this](int p) {
        power->setText(FixedText(PowerFromSlider(ComboText(powerRange), p), 3));
    });
    for (int c = 0; c < 3; ++c)
        follow(colorSliders[c],
               [this, c](int p) { colorEdits[c]->setText(FixedText(p / 500.0, 3)); });
    for (QLineEdit* e : {backgroundWeight, power, colorEdits[0], colorEdits[1], colorEdits[2]})
        connect(e, &QLineEdit::textEdited, this, [this] { SyncSliders(); });
    // A typed power is held inside its range.
    connect(power, &QLineEdit::editingFinished, this, [this] {
        power->setText(FixedText(ClampToRange(ComboText(powerRange), FieldNumber(power, 1.0)), 3));
        SyncSliders();
    });
    connect(powerRange, &QComboBox::currentIndexChanged, this, [this] {
        power->setText(FixedText(ClampToRange(ComboText(powerRange), FieldNumber(power, 1.0)), 3));
        SyncSliders();
    });
    connect(weightRange, &QComboBox::currentIndexChanged, this, [this] {
        backgroundWeight->setText(
            FixedText(ClampToRange(ComboText(weightRange), FieldNumber(backgroundWeight, 1.0)), 5));
        SyncSliders();
    });
    connect(preStretch, &CPreStretchPanel::slid, this, [this] { Slid(); });
    connect(resetButton, &QPushButton::clicked, this, [this] { ResetStretch(); });
    connect(enableSliders, &QCheckBox::toggled, this, [this](bool on) {
        preStretch->EnableSliders(on);
        for (QSlider* s :
             {weightSlider, powerSlider, colorSliders[0], colorSliders[1], colorSliders[2]})
            s->setEnabled(on);
    });
    enableSliders->setChecked(context.Setup().slidersEnabled);
    enableSliders->toggled(enableSliders->isChecked());
    SetValues(ArcSinHParams{});
}

void CArcSinH::SyncSliders() {
    syncing_ = true;
    weightSlider->setValue(
        WeightSliderPosition(ComboText(weightRange), FieldNumber(backgroundWeight, 1.0)));
    powerSlider->setValue(PowerSliderPosition(ComboText(powerRange), FieldNumber(power, 1.0)));
    for (int c = 0; c < 3; ++c)
        colorSliders[c]->setValue(
            static_cast<int>(std::lround(FieldNumber(colorEdits[c], 0.5) * 500)));
    syncing_ = false;
}

void CArcSinH::Slid() {
    if (enableSliders->isChecked() && !Busy())
        Apply();
}

ArcSinHParams CArcSinH::Values() const {
    ArcSinHParams p;
    p.scaleType = preStretch->Type();
    p.pre = preStretch->Settings();
    p.weightRange = ComboText(weightRange);
    p.powerRange = ComboText(powerRange);
    p.backgroundMin = backgroundMin->value();
    p.backgroundWeight = FieldNumber(backgroundWeight, 1.0);
    p.power = FieldNumber(power, 1.0);
    p.expand = FieldNumber(expand, 1.0);
    p.red = FieldNumber(colorEdits[0], 0.5);
    p.green = FieldNumber(colorEdits[1], 0.5);
    p.blue = FieldNumber(colorEdits[2], 0.5);
    return p;
}

void CArcSinH::SetValues(const ArcSinHParams& p) {
    syncing_ = true;
    preStretch->SetValues(p.scaleType, p.pre);
    ChooseText(weightRange, p.weightRange);
    ChooseText(powerRange, p.powerRange);
    backgroundMin->setValue(p.backgroundMin);
    backgroundWeight->setText(FixedText(p.backgroundWeight, 5));
    power->setText(FixedText(p.power, 3));
    expand->setText(FixedText(p.expand, 3));
    const double weights[3] = {p.red, p.green, p.blue};
    for (int c = 0; c < 3; ++c)
        colorEdits[c]->setText(FixedText(weights[c], 3));
    syncing_ = false;
    SyncSliders();
}

bool CArcSinH::LoadParameters(const std::string& text) {
    ArcSinHParams p;
    if (!ParseArcSinH(text, &p, nullptr))
        return false;
    SetValues(p);
    return true;
}

void CArcSinH::ResetStretch() {
    ArcSinHParams p;
    p.scaleType = preStretch->Type();
    p.pre = preStretch->Settings();
    SetValues(p);
}

void CArcSinH::OnApply() {
    CProcessWindow* target = Target();
    if (!target)
        return;
    const ArcSinHParams p = Values();
    StartWorker(
        *target, [target, p](IProgress& progress) { return target->ArcSinH(p, &progress); },
        [this, target](bool) {
            Context().ImageChanged(target);
            RefreshCaption();
        });
}

OperatorTool ArcSinHToolEntry() {
    return MakeOperatorTool<CArcSinH>(CArcSinH::kTitle, QStringLiteral("&Tone"),
                                      QStringLiteral("&ArcSinH..."),
                                      QStringLiteral("actionArcSinH"));
}

} // namespace astrivelle
