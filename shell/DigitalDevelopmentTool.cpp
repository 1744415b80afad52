// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Digital Development tool and the shared pre-stretch panel.
#include "shell/DigitalDevelopmentTool.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleValidator>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QTabWidget>
#include <QVBoxLayout>

#include <algorithm>

#include "engine/ProcessWindow.h"
#include "engine/SetupParams.h"
#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

void SetSlider(QSlider* slider, int position) {
    const QSignalBlocker quiet(slider);
    slider->setValue(position);
}

} // namespace

double FieldNumber(const QLineEdit* edit, double fallback) {
    bool ok = false;
    const double v = QLocale::c().toDouble(edit->text().trimmed(), &ok);
    return ok ? v : fallback;
}

// ---- pre-stretch panel ------------------------------------------------------------------------

CPreStretchPanel::CPreStretchPanel(bool hasNone, QWidget* parent)
    : QGroupBox("Pre-Stretch", parent), hasNone_(hasNone), sets_(DefaultPreStretchSets(hasNone)) {
    auto* grid = new QGridLayout(this);
    grid->setColumnStretch(2, 1);
    typeCombo = new QComboBox(this);
    typeCombo->setObjectName("scaleType");
    for (int i = hasNone ? 0 : 1; i < 4; ++i)
        typeCombo->addItem(kScaleTypeTexts[i]);
    scaleLabel = new QLabel(this);
    scaleEdit = MakeNumberEdit(this, "scale");
    scaleSlider = MakeSlider(this, "scaleSlider", 0);
    blackEdit = MakeNumberEdit(this, "blackPoint");
    blackSlider = MakeSlider(this, "blackSlider", kBlackSliderSteps);
    blackRangeCombo = MakeCombo(this, "blackRange", kBlackRangeTexts);
    whiteEdit = MakeNumberEdit(this, "whitePoint");
    resetButton = new QPushButton("Reset Scale", this);
    resetButton->setObjectName("resetScale");

    grid->addWidget(new QLabel("Scale Type", this), 0, 0);
    grid->addWidget(typeCombo, 0, 1, 1, 2);
    grid->addWidget(scaleLabel, 1, 0);
    grid->addWidget(scaleEdit, 1, 1);
    grid->addWidget(scaleSlider, 1, 2);
    grid->addWidget(new QLabel("Black Point", this), 2, 0);
    grid->addWidget(blackEdit, 2, 1);
    grid->addWidget(blackSlider, 2, 2);
    grid->addWidget(new QLabel("Black Range", this), 3, 0);
    grid->addWidget(blackRangeCombo, 3, 1, 1, 2);
    grid->addWidget(new QLabel("White Point", this), 4, 0);
    grid->addWidget(whiteEdit, 4, 1);
    grid->addWidget(resetButton, 4, 2, Qt::AlignRight);

    connect(typeCombo, &QComboBox::currentIndexChanged, this, [this](int i) { TypeChosen(i); });
    connect(scaleSlider, &QSlider::valueChanged, this, [this](int position) {
        if (syncing_)
            return;
        scaleEdit->setText(FixedText(ScaleFromSlider(sets_.type, position), 3));
        emit slid();
    });
    connect(scaleEdit, &QLineEdit::textEdited, this, [this] {
        SetSlider(scaleSlider, ScaleSliderPosition(sets_.type, FieldNumber(scaleEdit, 1.0)));
    });
    connect(blackSlider, &QSlider::valueChanged, this, [this](int position) {
        if (syncing_)
            return;
        blackEdit->setText(FixedText(BlackFromSlider(ComboText(blackRangeCombo), position), 5));
        emit slid();
    });
    connect(blackEdit, &QLineEdit::textEdited, this, [this] {
        SetSlider(blackSlider,
                  BlackSliderPosition(ComboText(blackRangeCombo), FieldNumber(blackEdit, 0.0)));
    });
    connect(blackRangeCombo, &QComboBox::currentIndexChanged, this, [this] {
        if (syncing_)
            return;
        const double black = ClampToRange(ComboText(blackRangeCombo), FieldNumber(blackEdit, 0.0));
        blackEdit->setText(FixedText(black, 5));
        SetSlider(blackSlider, BlackSliderPosition(ComboText(blackRangeCombo), black));
    });
    connect(resetButton, &QPushButton::clicked, this, [this] { Reset(); });
    Show();
}

PreStretchSettings CPreStretchPanel::Settings() const {
    PreStretchSettings s = sets_.Current();
    s.scale = FieldNumber(scaleEdit, s.scale);
    s.black = FieldNumber(blackEdit, s.black);
    s.white = FieldNumber(whiteEdit, s.white);
    s.blackRange = ComboText(blackRangeCombo);
    return s;
}

void CPreStretchPanel::Store() {
    sets_.Current() = Settings();
}

void CPreStretchPanel::Show() {
    syncing_ = true;
    const PreStretchSettings& s = sets_.Current();
    {
        const QSignalBlocker quiet(typeCombo);
        typeCombo->setCurrentIndex(static_cast<int>(sets_.type) - (hasNone_ ? 0 : 1));
    }
    scaleLabel->setText(ScaleFieldLabel(sets_.type));
    int lo = 0, hi = 0;
    ScaleSliderRange(sets_.type, &lo, &hi);
    scaleSlider->setRange(lo, hi);
    scaleEdit->setText(FixedText(s.scale, 3));
    scaleSlider->setValue(ScaleSliderPosition(sets_.type, s.scale));
    ChooseText(blackRangeCombo, s.blackRange);
    blackEdit->setText(FixedText(s.black, 5));
    blackSlider->setValue(BlackSliderPosition(s.blackRange, s.black));
    whiteEdit->setText(FixedText(s.white, 3));
    syncing_ = false;
}

void CPreStretchPanel::TypeChosen(int index) {
    Store();
    sets_.type = static_cast<ScaleType>(index + (hasNone_ ? 0 : 1));
    Show();
}

void CPreStretchPanel::SetValues(ScaleType type, const PreStretchSettings& settings) {
    if (!hasNone_ && type == ScaleType::None)
        type = ScaleType::Linear;
    sets_.type = type;
    sets_.Current() = settings;
    Show();
}

void CPreStretchPanel::Reset() {
    sets_ = DefaultPreStretchSets(hasNone_);
    Show();
}

void CPreStretchPanel::EnableSliders(bool on) {
    scaleSlider->setEnabled(on);
    blackSlider->setEnabled(on);
}

// ---- Digital Development ------------------------------------------------------------------

CColorDDP* CColorDDP::Show(ShellContext& context) {
    return ShowTool<CColorDDP>(context);
}

CColorDDP::CColorDDP(ShellContext& context) : ToolFrame(context, kTitle, kClassName) {
    pages = new QTabWidget(this);
    pages->setObjectName("pages");

    // Stretch page.
    auto* stretchPage = new QWidget(pages);
    stretchPage->setObjectName("CColorDDPStretch");
    auto* stretchLayout = new QVBoxLayout(stretchPage);
    preStretch = new CPreStretchPanel(true, stretchPage);
    stretchLayout->addWidget(preStretch);
    auto* grid = new QGridLayout;
    grid->setColumnStretch(2, 1);
    breakPointRange = MakeCombo(stretchPage, "breakPointRange", kBreakPointRangeTexts);
    breakPoint = MakeNumberEdit(stretchPage, "breakPoint");
    breakPointSlider = MakeSlider(stretchPage, "breakPointSlider", 65535);
    weightRange = MakeCombo(stretchPage, "weightRange", kPowerRangeTexts);
    backgroundWeight = MakeNumberEdit(stretchPage, "backgroundWeight");
    weightSlider = MakeSlider(stretchPage, "weightSlider", kPowerSliderSteps);
    backgroundMin = MakeNumberEdit(stretchPage, "backgroundMin");
    grid->addWidget(new QLabel("Break-Point Highlights", stretchPage), 0, 0);
    grid->addWidget(breakPoint, 0, 1);
    grid->addWidget(breakPointSlider, 0, 2);
    grid->addWidget(new QLabel("Break-Point Range", stretchPage), 1, 0);
    grid->addWidget(breakPointRange, 1, 1, 1, 2);
    grid->addWidget(new QLabel("Background Weight", stretchPage), 2, 0);
    grid->addWidget(backgroundWeight, 2, 1);
    grid->addWidget(weightSlider, 2, 2);
    grid->addWidget(new QLabel("Background Weight Range", stretchPage), 3, 0);
    grid->addWidget(weightRange, 3, 1, 1, 2);
    grid->addWidget(new QLabel("Background Min", stretchPage), 4, 0);
    grid->addWidget(backgroundMin, 4, 1);
    stretchLayout->addLayout(grid);
    pages->addTab(stretchPage, "Stretch");

    // Color & Sharpening page.
    auto* colorPage = new QWidget(pages);
    colorPage->setObjectName("CColorDDPColorSharp");
    auto* colorGrid = new QGridLayout(colorPage);
    colorGrid->setColumnStretch(2, 1);
    filter = MakeCombo(colorPage, "filter", kSharpeningFilterTexts);
    fixDefects = new QCheckBox("Fix Defects", colorPage);
    fixDefects->setObjectName("fixDefects");
    strength = MakeNumberEdit(colorPage, "strength");
    strengthSlider = MakeSlider(colorPage, "strengthSlider", kStrengthSliderTop);
    colorGrid->addWidget(new QLabel("Sharpening Filter", colorPage), 0, 0);
    colorGrid->addWidget(filter, 0, 1);
    colorGrid->addWidget(fixDefects, 0, 2);
    colorGrid->addWidget(new QLabel("Sharpening Strength", colorPage), 1, 0);
    colorGrid->addWidget(strength, 1, 1);
    colorGrid->addWidget(strengthSlider, 1, 2);
    const char* names[3] = {"red", "green", "blue"};
    const char* labels[3] = {"Red", "Green", "Blue"};
    const char* sliderNames[3] = {"redSlider", "greenSlider", "blueSlider"};
    for (int c = 0; c < 3; ++c) {
        colorEdits[c] = MakeNumberEdit(colorPage, names[c]);
        colorSliders[c] = MakeSlider(colorPage, sliderNames[c], kColorWeightSliderTop);
        colorGrid->addWidget(new QLabel(labels[c], colorPage), 2 + c, 0);
        colorGrid->addWidget(colorEdits[c], 2 + c, 1);
        colorGrid->addWidget(colorSliders[c], 2 + c, 2);
    }
    pages->addTab(colorPage, "Color && Sharpening");
    Body()->addWidget(pages);

    enableSliders = MakeCheck(this, "Enable Sliders", "enableSliders");
    resetButton = MakeButton(this, "Reset", "reset");
    Body()->addLayout(CheckRow(this, {enableSliders}, resetButton));

    // Fields and sliders follow each other; a slider moved re-applies with Enable Sliders.
    auto follow = [this](QSlider* slider, auto toText) {
        connect(slider, &QSlider::valueChanged, this, [this, toText](int position) {
            if (syncing_)
                return;
            toText(position);
            Slid();
        });
    };
    follow(breakPointSlider, [this](int p) { breakPoint->setText(QString::number(p)); });
    follow(weightSlider, [this](int p) {
        backgroundWeight->setText(FixedText(PowerFromSlider(ComboText(weightRange), p), 5));
    });
    follow(strengthSlider, [this](int p) { strength->setText(FixedText(p / 1000.0, 3)); });
    for (int c = 0; c < 3; ++c)
        follow(colorSliders[c],
               [this, c](int p) { colorEdits[c]->setText(FixedText(p / 500.0, 3)); });
    for (QLineEdit* e :
         {breakPoint, backgroundWeight, strength, colorEdits[0], colorEdits[1], colorEdits[2]})
        connect(e, &QLineEdit::textEdited, this, [this] { SyncSliders(); });
    connect(breakPointRange, &QComboBox::currentIndexChanged, this, [this] { SyncSliders(); });
    connect(weightRange, &QComboBox::currentIndexChanged, this, [this] {
        backgroundWeight->setText(
            FixedText(ClampToRange(ComboText(weightRange), FieldNumber(backgroundWeight, 1.0)), 5));
        SyncSliders();
    });
    connect(backgroundMin, &QLineEdit::editingFinished, this,
            [this] { CheckField(backgroundMin, DdpField::BackgroundMin); });
    connect(breakPoint, &QLineEdit::editingFinished, this,
            [this] { CheckField(breakPoint, DdpField::BreakPoint); });
    connect(backgroundWeight, &QLineEdit::editingFinished, this,
            [this] { CheckField(backgroundWeight, DdpField::BackgroundWeight); });
    connect(filter, &QComboBox::currentIndexChanged, this, [this] { FilterChosen(); });
    connect(preStretch, &CPreStretchPanel::slid, this, [this] { Slid(); });
    connect(resetButton, &QPushButton::clicked, this, [this] { ResetStretch(); });
    connect(enableSliders, &QCheckBox::toggled, this, [this](bool on) {
        preStretch->EnableSliders(on);
        for (QSlider* s :
             {breakPointSlider, weightSlider, colorSliders[0], colorSliders[1], colorSliders[2]})
            s->setEnabled(on);
        FilterChosen();
    });
    enableSliders->setChecked(context.Setup().slidersEnabled);
    SetValues(DigitalDevelopmentParams{});
    enableSliders->toggled(enableSliders->isChecked());
}

void CColorDDP::SyncSliders() {
    syncing_ = true;
    breakPointSlider->setRange(0, BreakPointSliderTop(ComboText(breakPointRange)));
    breakPointSlider->setValue(static_cast<int>(FieldNumber(breakPoint, 0)));
    weightSlider->setValue(
        PowerSliderPosition(ComboText(weightRange), FieldNumber(backgroundWeight, 1.0)));
    strengthSlider->setValue(static_cast<int>(std::lround(FieldNumber(strength, 0) * 1000)));
    for (int c = 0; c < 3; ++c)
        colorSliders[c]->setValue(
            static_cast<int>(std::lround(FieldNumber(colorEdits[c], 0.5) * 500)));
    syncing_ = false;
}

void CColorDDP::FilterChosen() {
    // Strength and Fix Defects mean nothing without a filter.
    const bool on = filter->currentIndex() > 0;
    strengthSlider->setEnabled(on && enableSliders->isChecked());
    strength->setEnabled(on);
    fixDefects->setEnabled(on);
}

bool CColorDDP::CheckField(QLineEdit* edit, DdpField field) {
    double value = 0;
    std::string message, reset;
    if (CheckDdpField(field, edit->text().toStdString(), &value, &message, &reset))
        return true;
    if (!reset.empty())
        edit->setText(QString::fromStdString(reset));
    Context().Model().notify().Message(message);
    return false;
}

void CColorDDP::Slid() {
    if (enableSliders->isChecked() && !Busy())
        Apply();
}

DigitalDevelopmentParams CColorDDP::Values() const {
    DigitalDevelopmentParams p;
    p.scaleType = preStretch->Type();
    p.pre = preStretch->Settings();
    p.breakPointRange = ComboText(breakPointRange);
    p.weightRange = ComboText(weightRange);
    p.backgroundMin = static_cast<int>(FieldNumber(backgroundMin, 0));
    p.backgroundWeight = FieldNumber(backgroundWeight, 1.0);
    p.breakPoint = static_cast<int>(FieldNumber(breakPoint, 65535));
    p.filter = ComboText(filter);
    p.fixDefects = fixDefects->isChecked();
    p.strength = FieldNumber(strength, 0.0);
    p.red = FieldNumber(colorEdits[0], 0.5);
    p.green = FieldNumber(colorEdits[1], 0.5);
    p.blue = FieldNumber(colorEdits[2], 0.5);
    return p;
}

void CColorDDP::SetValues(const DigitalDevelopmentParams& p) {
    syncing_ = true;
    preStretch->SetValues(p.scaleType, p.pre);
    ChooseText(breakPointRange, p.breakPointRange);
    ChooseText(weightRange, p.weightRange);
    backgroundMin->setText(QString::number(p.backgroundMin));
    backgroundWeight->setText(FixedText(p.backgroundWeight, 5));
    breakPoint->setText(QString::number(p.breakPoint));
    ChooseText(filter, p.filter);
    fixDefects->setChecked(p.fixDefects);
    strength->setText(FixedText(p.strength, 3));
    const double weights[3] = {p.red, p.green, p.blue};
    for (int c = 0; c < 3; ++c)
        colorEdits[c]->setText(FixedText(weights[c], 3));
    syncing_ = false;
    SyncSliders();
    FilterChosen();
}

bool CColorDDP::LoadParameters(const std::string& text) {
    DigitalDevelopmentParams p;
    if (!ParseDigitalDevelopment(text, &p, nullptr, nullptr))
        return false;
    SetValues(p);
    return true;
}

void CColorDDP::ResetStretch() {
    const DigitalDevelopmentParams defaults;
    DigitalDevelopmentParams p = Values();
    p.breakPointRange = defaults.breakPointRange;
    p.weightRange = defaults.weightRange;
    p.backgroundMin = defaults.backgroundMin;
    p.backgroundWeight = defaults.backgroundWeight;
    p.breakPoint = defaults.breakPoint;
    p.filter = defaults.filter;
    p.fixDefects = defaults.fixDefects;
    p.strength = defaults.strength;
    p.red = defaults.red;
    p.green = defaults.green;
    p.blue = defaults.blue;
    SetValues(p);
}

void CColorDDP::OnApply() {
    CProcessWindow* target = Target();
    if (!target)
        return;
    if (!CheckField(backgroundMin, DdpField::BackgroundMin) ||
        !CheckField(breakPoint, DdpField::BreakPoint) ||
        !CheckField(backgroundWeight, DdpField::BackgroundWeight))
        return;
    const DigitalDevelopmentParams p = Values();
    StartWorker(
        *target,
        [target, p](IProgress& progress) { return target->DigitalDevelopment(p, &progress); },
        [this, target](bool) {
            Context().ImageChanged(target);
            RefreshCaption();
        });
}

OperatorTool DigitalDevelopmentToolEntry() {
    return MakeOperatorTool<CColorDDP>(CColorDDP::kTitle, QStringLiteral("&Tone"),
                                       QStringLiteral("&Digital Development..."),
                                       QStringLiteral("actionDigitalDevelopment"));
}

} // namespace astrivelle
