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

QSpinBox* MakeSpin(QWidget* parent, const char* name) {
    auto* box = new QSpinBox(parent);
    box->setObjectName(name);
    box->setRange(0, 65535);
    return box;
}

template <std::size_t N>
QComboBox* MakeCombo(QWidget* parent, const char* name, const std::array<const char*, N>& items,
                     int count = static_cast<int>(N)) {
    auto* combo = new QComboBox(parent);
    combo->setObjectName(name);
    for (int i = 0; i < count; ++i)
        combo->addItem(QString::fromLatin1(items[i]));
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
    backgroundWeight = MakeEdit(this, "backgroundWeight");
    weightSlider = MakeSlider(this, "weightSlider", kWeightSliderSteps);
    powerRange = MakeCombo(this, "powerRange", kPowerRangeTexts);
    exponentLabel = new QLabel("Power", this);
    exponent = MakeEdit(this, "exponent");
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

    connect(weightSlider, &QSlider::valueChanged, this, [this](int p) {
        if (syncing_)
            return;
        backgroundWeight->setText(Number(WeightFromSlider(Text(weightRange), p), 5));
        Slid();
    });
    connect(exponentSlider, &QSlider::valueChanged, this, [this](int p) {
        if (syncing_)
            return;
        exponent->setText(Number(PowerFromSlider(Text(powerRange), p), 3));
        Slid();
    });
    for (QLineEdit* e : {backgroundWeight, exponent})
        connect(e, &QLineEdit::textEdited, this, [this] { SyncSliders(); });
    connect(exponent, &QLineEdit::editingFinished, this, [this] {
        exponent->setText(Number(ClampToRange(Text(powerRange), FieldNumber(exponent, 1.0)), 3));
        SyncSliders();
    });
    connect(powerRange, &QComboBox::currentIndexChanged, this, [this] {
        if (syncing_)
            return;
        exponent->setText(Number(ClampToRange(Text(powerRange), FieldNumber(exponent, 1.0)), 3));
        SyncSliders();
    });
    connect(weightRange, &QComboBox::currentIndexChanged, this, [this] {
        if (syncing_)
            return;
        backgroundWeight->setText(
            Number(ClampToRange(Text(weightRange), FieldNumber(backgroundWeight, 0.0)), 5));
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
    backgroundWeight->setText(Number(r.backgroundWeight, 5));
    exponent->setText(Number(r.exponent, 3));
    outputWhite->setValue(r.outputWhite);
    outputBlack->setValue(r.outputBlack);
    syncing_ = false;
    SyncSliders();
}

void CColorBCS::SyncSliders() {
    syncing_ = true;
    weightSlider->setValue(
        WeightSliderPosition(Text(weightRange), FieldNumber(backgroundWeight, 0.0)));
    exponentSlider->setValue(PowerSliderPosition(Text(powerRange), FieldNumber(exponent, 1.0)));
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
    p.weightRange = Text(weightRange);
    p.powerRange = Text(powerRange);
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
    Choose(weightRange, p.weightRange);
    Choose(powerRange, p.powerRange);
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
    OperatorTool t;
    t.operations = {CColorBCS::kTitle};
    t.submenu = QStringLiteral("&Tone");
    t.menuText = QStringLiteral("&General Stretch Functions...");
    t.objectName = QStringLiteral("actionGeneralStretch");
    t.className = CColorBCS::kClassName;
    t.show = [](ShellContext& c) -> ToolFrame* { return CColorBCS::Show(c); };
    t.load = [](ToolFrame* tool, const std::string&, const std::string& parameters) {
        return static_cast<CColorBCS*>(tool)->LoadParameters(parameters);
    };
    return t;
}

} // namespace astrivelle
