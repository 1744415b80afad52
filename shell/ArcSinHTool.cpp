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

namespace astrivelle {

namespace {

QString Number(double value, int decimals) {
    return QLocale::c().toString(value, 'f', decimals);
}

QLineEdit* MakeEdit(QWidget* parent, const char* name) {
    auto* edit = new QLineEdit(parent);
    edit->setObjectName(name);
    edit->setMaximumWidth(100);
    return edit;
}

QSlider* MakeSlider(QWidget* parent, const char* name, int top) {
    auto* slider = new QSlider(Qt::Horizontal, parent);
    slider->setObjectName(name);
    slider->setRange(0, top);
    slider->setMinimumWidth(160);
    return slider;
}

template <std::size_t N>
QComboBox* MakeCombo(QWidget* parent, const char* name, const std::array<const char*, N>& items) {
    auto* combo = new QComboBox(parent);
    combo->setObjectName(name);
    for (const char* item : items)
        combo->addItem(QString::fromLatin1(item));
    return combo;
}

std::string Text(const QComboBox* combo) {
    return combo->currentText().toStdString();
}

void Choose(QComboBox* combo, const std::string& text) {
    const int i = combo->findText(QString::fromStdString(text));
    if (i >= 0)
        combo->setCurrentIndex(i);
}

} // namespace

CArcSinH* CArcSinH::Show(ShellContext& context) {
    return ShowTool<CArcSinH>(context);
}

CArcSinH::CArcSinH(ShellContext& context) : ToolFrame(context, kTitle, kClassName) {
    preStretch = new CPreStretchPanel(true, this);
    Body()->addWidget(preStretch);
    auto* grid = new QGridLayout;
    grid->setColumnStretch(2, 1);
    weightRange = MakeCombo(this, "weightRange", kWeightRangeTexts);
    backgroundWeight = MakeEdit(this, "backgroundWeight");
    weightSlider = MakeSlider(this, "weightSlider", kWeightSliderSteps);
    powerRange = MakeCombo(this, "powerRange", kPowerRangeTexts);
    power = MakeEdit(this, "power");
    powerSlider = MakeSlider(this, "powerSlider", kPowerSliderSteps);
    expand = MakeEdit(this, "expand");
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
        colorEdits[c] = MakeEdit(this, names[c]);
        colorSliders[c] = MakeSlider(this, sliderNames[c], kColorWeightSliderTop);
        add(labels[c], colorEdits[c], colorSliders[c]);
    }
    Body()->addLayout(grid);

    auto* checks = new QHBoxLayout;
    enableSliders = new QCheckBox("Enable Sliders", this);
    enableSliders->setObjectName("enableSliders");
    resetButton = new QPushButton("Reset", this);
    resetButton->setObjectName("reset");
    checks->addWidget(enableSliders);
    if (QLayout* frameLayout = layout())
        frameLayout->removeWidget(lockCheck);
    checks->addWidget(lockCheck);
    checks->addStretch(1);
    checks->addWidget(resetButton);
    Body()->addLayout(checks);

    auto follow = [this](QSlider* slider, auto toText) {
        connect(slider, &QSlider::valueChanged, this, [this, toText](int position) {
            if (syncing_)
                return;
            toText(position);
            Slid();
        });
    };
    follow(weightSlider, [this](int p) {
        backgroundWeight->setText(Number(WeightFromSlider(Text(weightRange), p), 5));
    });
    follow(powerSlider,
           [this](int p) { power->setText(Number(PowerFromSlider(Text(powerRange), p), 3)); });
    for (int c = 0; c < 3; ++c)
        follow(colorSliders[c], [this, c](int p) { colorEdits[c]->setText(Number(p / 500.0, 3)); });
    for (QLineEdit* e : {backgroundWeight, power, colorEdits[0], colorEdits[1], colorEdits[2]})
        connect(e, &QLineEdit::textEdited, this, [this] { SyncSliders(); });
    // A typed power is held inside its range.
    connect(power, &QLineEdit::editingFinished, this, [this] {
        power->setText(Number(ClampToRange(Text(powerRange), FieldNumber(power, 1.0)), 3));
        SyncSliders();
    });
    connect(powerRange, &QComboBox::currentIndexChanged, this, [this] {
        power->setText(Number(ClampToRange(Text(powerRange), FieldNumber(power, 1.0)), 3));
        SyncSliders();
    });
    connect(weightRange, &QComboBox::currentIndexChanged, this, [this] {
        backgroundWeight->setText(
            Number(ClampToRange(Text(weightRange), FieldNumber(backgroundWeight, 1.0)), 5));
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
        WeightSliderPosition(Text(weightRange), FieldNumber(backgroundWeight, 1.0)));
    powerSlider->setValue(PowerSliderPosition(Text(powerRange), FieldNumber(power, 1.0)));
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
    p.weightRange = Text(weightRange);
    p.powerRange = Text(powerRange);
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
    Choose(weightRange, p.weightRange);
    Choose(powerRange, p.powerRange);
    backgroundMin->setValue(p.backgroundMin);
    backgroundWeight->setText(Number(p.backgroundWeight, 5));
    power->setText(Number(p.power, 3));
    expand->setText(Number(p.expand, 3));
    const double weights[3] = {p.red, p.green, p.blue};
    for (int c = 0; c < 3; ++c)
        colorEdits[c]->setText(Number(weights[c], 3));
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
    OperatorTool t;
    t.operations = {CArcSinH::kTitle};
    t.submenu = QStringLiteral("&Tone");
    t.menuText = QStringLiteral("&ArcSinH...");
    t.objectName = QStringLiteral("actionArcSinH");
    t.className = CArcSinH::kClassName;
    t.show = [](ShellContext& c) -> ToolFrame* { return CArcSinH::Show(c); };
    t.load = [](ToolFrame* tool, const std::string&, const std::string& parameters) {
        return static_cast<CArcSinH*>(tool)->LoadParameters(parameters);
    };
    return t;
}

} // namespace astrivelle
