// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Unsharp Mask tool.
#include "shell/UnsharpMaskTool.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>

#include <cmath>

#include "engine/ParamText.h"
#include "engine/SetupParams.h"
#include "engine/workbench/MainWindow.h"
#include "operators/Filters.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

CLSTEUnsharpMask* CLSTEUnsharpMask::Show(ShellContext& context) {
    return ShowTool<CLSTEUnsharpMask>(context);
}

CLSTEUnsharpMask::CLSTEUnsharpMask(ShellContext& context)
    : ToolFrame(context, kTitle, kClassName, kImageTool & ~ProgressRow) {
    auto* variant = new QGroupBox("Operation", this);
    auto* variantRow = new QHBoxLayout(variant);
    sharpenButton = new QRadioButton("Image Sharpening", variant);
    sharpenButton->setObjectName("sharpen");
    binarizeButton = new QRadioButton("Binarization", variant);
    binarizeButton->setObjectName("binarize");
    variantRow->addWidget(sharpenButton);
    variantRow->addWidget(binarizeButton);
    Body()->addWidget(variant);

    auto* grid = new QGridLayout;
    filterBox = new QComboBox(this);
    filterBox->setObjectName("filter");
    filterBox->addItems({"Box", "Median", "Gauss", "Binomial", "Custom"});
    windowSize = new QComboBox(this);
    windowSize->setObjectName("windowSize");
    for (int r = 1; r <= kUnsharpMaxRadius; ++r)
        windowSize->addItem(QString::fromStdString(FormatText("%dx%d", 2 * r + 1, 2 * r + 1)));
    backgroundWeight = new QDoubleSpinBox(this);
    backgroundWeight->setObjectName("backgroundWeight");
    backgroundWeight->setRange(0.0, kUnsharpMaxWeight); // 1.0 would divide by zero
    backgroundWeight->setDecimals(2);
    backgroundWeight->setSingleStep(0.01);
    weightSlider = new QSlider(Qt::Horizontal, this);
    weightSlider->setObjectName("weightSlider");
    weightSlider->setRange(0, static_cast<int>(std::lround(kUnsharpMaxWeight * 100)));
    threshold = new QSpinBox(this);
    threshold->setObjectName("threshold");
    threshold->setRange(0, 65535);
    reduceArtifacts = new QCheckBox("Reduce Artifacts", this);
    reduceArtifacts->setObjectName("reduceArtifacts");
    strength = new QDoubleSpinBox(this);
    strength->setObjectName("strength");
    strength->setRange(0.0, 1.0);
    strength->setDecimals(2);
    strength->setSingleStep(0.01);
    grid->addWidget(new QLabel("Unsharp Filter", this), 0, 0);
    grid->addWidget(filterBox, 0, 1);
    grid->addWidget(new QLabel("Window Size", this), 1, 0);
    grid->addWidget(windowSize, 1, 1);
    grid->addWidget(new QLabel("Background Weight Factor", this), 2, 0);
    grid->addWidget(backgroundWeight, 2, 1);
    auto* weightRow = new QHBoxLayout;
    weightRow->addWidget(new QLabel("Least", this));
    weightRow->addWidget(weightSlider, 1);
    weightRow->addWidget(new QLabel("Most", this));
    grid->addLayout(weightRow, 3, 0, 1, 2);
    grid->addWidget(new QLabel("Threshold", this), 4, 0);
    grid->addWidget(threshold, 4, 1);
    grid->addWidget(new QLabel("Filter Strength", this), 5, 0);
    grid->addWidget(strength, 5, 1);
    grid->addWidget(reduceArtifacts, 6, 0, 1, 2);
    Body()->addLayout(grid);

    auto* range = new QGroupBox("Apply To Luminance Level", this);
    auto* rangeGrid = new QGridLayout(range);
    minApply = new QSpinBox(range);
    minApply->setObjectName("minApply");
    maxApply = new QSpinBox(range);
    maxApply->setObjectName("maxApply");
    featherRange = new QSpinBox(range);
    featherRange->setObjectName("featherRange");
    minApply->setRange(0, 65535);
    maxApply->setRange(0, 65535);
    featherRange->setRange(0, 20000);
    rangeGrid->addWidget(new QLabel("Min Apply", range), 0, 0);
    rangeGrid->addWidget(minApply, 0, 1);
    rangeGrid->addWidget(new QLabel("Max Apply", range), 1, 0);
    rangeGrid->addWidget(maxApply, 1, 1);
    rangeGrid->addWidget(new QLabel("Feather Range", range), 2, 0);
    rangeGrid->addWidget(featherRange, 2, 1);
    Body()->addWidget(range);

    enableSlider = MakeCheck(this, "Enable Slider", "enableSlider");
    enableSlider->setChecked(context.Setup().slidersEnabled);
    auto* reset = MakeButton(this, "Reset", "reset");
    Body()->addLayout(SpreadRow({enableSlider}, reset));

    connect(reset, &QPushButton::clicked, this, [this] { Reset(); });
    connect(backgroundWeight, &QDoubleSpinBox::valueChanged, this, [this](double v) {
        const int pos = static_cast<int>(std::lround(v * 100));
        if (weightSlider->value() != pos)
            weightSlider->setValue(pos);
        Changed();
    });
    connect(weightSlider, &QSlider::valueChanged, this, [this](int pos) {
        if (std::lround(backgroundWeight->value() * 100) != pos)
            backgroundWeight->setValue(pos / 100.0);
    });
    connect(minApply, &QSpinBox::valueChanged, this, [this] {
        minEditedLast_ = true;
        Changed();
    });
    connect(maxApply, &QSpinBox::valueChanged, this, [this] {
        minEditedLast_ = false;
        Changed();
    });
    for (QSpinBox* box : {threshold, featherRange})
        connect(box, &QSpinBox::valueChanged, this, [this] { Changed(); });
    connect(strength, &QDoubleSpinBox::valueChanged, this, [this] { Changed(); });
    connect(filterBox, &QComboBox::currentIndexChanged, this, [this] { Changed(); });
    connect(windowSize, &QComboBox::currentIndexChanged, this, [this] { Changed(); });
    connect(reduceArtifacts, &QCheckBox::toggled, this, [this] { Changed(); });
    connect(binarizeButton, &QRadioButton::toggled, this, [this] { Changed(); });
    Reset();
}

void CLSTEUnsharpMask::Reset() {
    SetValues(UnsharpParams{});
}

void CLSTEUnsharpMask::Changed() {
    threshold->setEnabled(binarizeButton->isChecked());
    windowSize->setEnabled(filterBox->currentIndex() + 1 != UnsharpParams::Custom);
    if (!loading_ && enableSlider->isChecked() && isVisible())
        Apply();
}

UnsharpParams CLSTEUnsharpMask::Values() const {
    UnsharpParams p;
    p.variant = binarizeButton->isChecked() ? UnsharpParams::Binarization : UnsharpParams::Sharpen;
    p.filter = filterBox->currentIndex() + 1;
    p.radius = windowSize->currentIndex() + 1;
    p.backgroundWeight = backgroundWeight->value();
    p.threshold = threshold->value();
    p.reduceArtifacts = reduceArtifacts->isChecked();
    p.strength = strength->value();
    p.applyMin = minApply->value();
    p.applyMax = maxApply->value();
    p.feather = featherRange->value();
    if (p.filter == UnsharpParams::Custom) {
        p.customName = customFilter_.name;
        p.radius = (customFilter_.size - 1) / 2;
    }
    return p;
}

void CLSTEUnsharpMask::SetValues(const UnsharpParams& p) {
    loading_ = true;
    (p.variant == UnsharpParams::Binarization ? binarizeButton : sharpenButton)->setChecked(true);
    filterBox->setCurrentIndex(std::clamp(p.filter, 1, 5) - 1);
    windowSize->setCurrentIndex(std::clamp(p.radius, 1, kUnsharpMaxRadius) - 1);
    backgroundWeight->setValue(p.backgroundWeight);
    threshold->setValue(p.threshold);
    reduceArtifacts->setChecked(p.reduceArtifacts);
    strength->setValue(p.strength);
    minApply->setValue(p.applyMin);
    maxApply->setValue(p.applyMax);
    featherRange->setValue(p.feather);
    loading_ = false;
    Changed();
}

bool CLSTEUnsharpMask::LoadParameters(const std::string& text) {
    UnsharpParams p;
    if (!ParseUnsharp(text, &p, nullptr))
        return false;
    if (p.filter == UnsharpParams::Custom && p.customName != customFilter_.name)
        return false; // the recorded custom filter is not the current one
    const bool live = enableSlider->isChecked();
    enableSlider->setChecked(false);
    SetValues(p);
    enableSlider->setChecked(live);
    return true;
}

void CLSTEUnsharpMask::OnApply() {
    CProcessWindow* target = Target();
    if (!target)
        return;
    const UnsharpParams p = Values();
    const std::string rangeText = SmoothingRangeText(p.applyMin, p.applyMax, minEditedLast_);
    if (!rangeText.empty()) {
        Context().Model().notify().Message(rangeText);
        return;
    }
    if (!CheckGuards(*target))
        return;
    target->UnsharpMask(p, &customFilter_);
    Context().ImageChanged(target);
    RefreshCaption();
}

OperatorTool UnsharpMaskToolEntry() {
    return MakeOperatorTool<CLSTEUnsharpMask>("Unsharp Mask", QStringLiteral("&Filters"),
                                              QStringLiteral("&Unsharp Mask..."),
                                              QStringLiteral("actionUnsharpMask"));
}

} // namespace astrivelle
