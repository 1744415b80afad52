// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Histogram Contrast Stretch tool.
#include "shell/HistogramStretchTool.h"

#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <QVBoxLayout>

#include <cmath>

#include "engine/SetupParams.h"
#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

constexpr int kSliderSteps = 10000; ///< the sliders move the 0..1 values in 1/10000

/// A 0..1 spin box with four decimals and a slider that follow each other.
QDoubleSpinBox* ValueRow(QWidget* parent, QGridLayout* grid, int row, QLabel* label,
                         const char* name) {
    auto* box = new QDoubleSpinBox(parent);
    box->setObjectName(name);
    box->setRange(0.0, 1.0);
    box->setDecimals(4);
    box->setSingleStep(0.01);
    box->setKeyboardTracking(false);
    auto* slider = new QSlider(Qt::Horizontal, parent);
    slider->setObjectName(QString(name) + "Slider");
    slider->setRange(0, kSliderSteps);
    slider->setMinimumWidth(180);
    QObject::connect(box, &QDoubleSpinBox::valueChanged, slider, [slider](double v) {
        const int at = static_cast<int>(std::lround(v * kSliderSteps));
        if (slider->value() != at) {
            const QSignalBlocker quiet(slider);
            slider->setValue(at);
        }
    });
    QObject::connect(slider, &QSlider::valueChanged, box,
                     [box](int v) { box->setValue(double(v) / kSliderSteps); });
    grid->addWidget(label, row, 0);
    grid->addWidget(box, row, 1);
    grid->addWidget(slider, row, 2);
    return box;
}

} // namespace

CHistogramStretch* CHistogramStretch::Show(ShellContext& context) {
    return ShowTool<CHistogramStretch>(context);
}

CHistogramStretch::CHistogramStretch(ShellContext& context)
    : ToolFrame(context, kTitle, kClassName, kImageTool & ~ProgressRow) {
    auto* types = new QGroupBox("Type", this);
    auto* typeGrid = new QGridLayout(types);
    const char* names[6] = {"uniform",    "exponential", "rayleigh",
                            "hyperbolic", "logarithmic", "bkgHigh"};
    for (int k = 0; k < 6; ++k) {
        const QString text = k == 5 ? QStringLiteral("Background/Highlight Contrast")
                                    : QString(HistogramStretchTypeName(k + 1));
        typeButtons[k] = new QRadioButton(text, types);
        typeButtons[k]->setObjectName(names[k]);
        typeGrid->addWidget(typeButtons[k], k / 3, k % 3);
        connect(typeButtons[k], &QRadioButton::toggled, this, [this](bool on) {
            if (on)
                TypeChanged();
        });
    }
    Body()->addWidget(types);

    auto* grid = new QGridLayout;
    grid->setColumnStretch(2, 1);
    scaleLabel = new QLabel("Scale", this);
    scaleBox = ValueRow(this, grid, 0, scaleLabel, "scale");
    highlightScaleBox =
        ValueRow(this, grid, 1, new QLabel("Highlight Scale", this), "highlightScale");
    highlightBreakBox =
        ValueRow(this, grid, 2, new QLabel("Highlight Break", this), "highlightBreak");
    backgroundScaleBox =
        ValueRow(this, grid, 3, new QLabel("Background Scale", this), "backgroundScale");
    backgroundBreakBox =
        ValueRow(this, grid, 4, new QLabel("Background Break", this), "backgroundBreak");
    Body()->addLayout(grid);

    enableSlider = MakeCheck(this, "Enable Slider", "enableSlider");
    toAllImages = MakeCheck(this, "To All Images", "toAllImages");
    resetButton = MakeButton(this, "Reset", "reset");
    Body()->addLayout(CheckRow(this, {enableSlider, toAllImages}, resetButton));
    LockClearsToAll(this, toAllImages);
    enableSlider->setChecked(context.Setup().slidersEnabled);

    Reset();
    for (QDoubleSpinBox* box :
         {scaleBox, highlightScaleBox, highlightBreakBox, backgroundScaleBox, backgroundBreakBox})
        connect(box, &QDoubleSpinBox::valueChanged, this, [this] { Changed(); });
    connect(resetButton, &QPushButton::clicked, this, [this] {
        Reset();
        Changed();
    });
}

void CHistogramStretch::TypeChanged() {
    const bool bkgHigh = typeButtons[5]->isChecked();
    scaleLabel->setText(bkgHigh ? "Blend" : "Scale");
    for (QDoubleSpinBox* box :
         {highlightScaleBox, highlightBreakBox, backgroundScaleBox, backgroundBreakBox})
        box->setEnabled(bkgHigh);
    Changed();
}

void CHistogramStretch::Changed() {
    if (!loading_ && enableSlider->isChecked())
        Apply();
}

HistogramStretchParams CHistogramStretch::Values() const {
    HistogramStretchParams p;
    for (int k = 0; k < 6; ++k)
        if (typeButtons[k]->isChecked())
            p.type = k + 1;
    p.scale = scaleBox->value();
    p.highlightScale = highlightScaleBox->value();
    p.highlightBreak = highlightBreakBox->value();
    p.backgroundScale = backgroundScaleBox->value();
    p.backgroundBreak = backgroundBreakBox->value();
    return p;
}

void CHistogramStretch::SetValues(const HistogramStretchParams& p) {
    loading_ = true;
    if (p.type >= 1 && p.type <= 6)
        typeButtons[p.type - 1]->setChecked(true);
    scaleBox->setValue(p.scale);
    highlightScaleBox->setValue(p.highlightScale);
    highlightBreakBox->setValue(p.highlightBreak);
    backgroundScaleBox->setValue(p.backgroundScale);
    backgroundBreakBox->setValue(p.backgroundBreak);
    TypeChanged();
    loading_ = false;
}

bool CHistogramStretch::LoadParameters(const std::string& text) {
    HistogramStretchParams p;
    if (!ParseHistogramStretch(text, &p, nullptr))
        return false;
    SetValues(p);
    return true;
}

void CHistogramStretch::Reset() {
    SetValues(HistogramStretchParams{});
}

bool CHistogramStretch::ApplyTo(CProcessWindow& window, const HistogramStretchParams& p) {
    if (!CheckGuards(window))
        return false;
    const bool ok = window.HistogramContrastStretch(p);
    Context().ImageChanged(&window);
    return ok;
}

void CHistogramStretch::OnApply() {
    CProcessWindow* target = Target();
    if (!target)
        return;
    const HistogramStretchParams p = Values();
    for (CProcessWindow* w : TargetOrAll(Context(), *target, toAllImages->isChecked()))
        ApplyTo(*w, p);
    RefreshCaption();
}

OperatorTool HistogramStretchToolEntry() {
    return MakeOperatorTool<CHistogramStretch>(CHistogramStretch::kTitle, QStringLiteral("&Tone"),
                                               QStringLiteral("&Histogram Contrast Stretch..."),
                                               QStringLiteral("actionHistogramContrastStretch"));
}

} // namespace astrivelle
