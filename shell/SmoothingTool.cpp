// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The "Smoothing & Noise Reduction" tool.
#include "shell/SmoothingTool.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>

#include <algorithm>

#include "engine/ProcessWindow.h"
#include "engine/SetupParams.h"
#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

constexpr int kFeatherTop = 20000;

struct Button {
    int type;
    const char* text;
    const char* name;
};
const Button kNonadaptive[] = {{SmoothBox, "Box", "box"},
                               {SmoothBinomial, "Binomial", "binomial"},
                               {SmoothGaussian, "Gaussian", "gaussian"}};
const Button kAdaptive[] = {{SmoothSelectedNbhd, "Selected Neighborhood", "selectedNeighborhood"},
                            {SmoothQuantile, "Quantile", "quantile"},
                            {SmoothMedian, "Median", "median"},
                            {SmoothAbsDifference, "Absolute Difference", "absoluteDifference"},
                            {SmoothAdaptiveMedian, "Adaptive Median", "adaptiveMedian"}};

} // namespace

CSNR* CSNR::Show(ShellContext& context) {
    return ShowTool<CSNR>(context);
}

CSNR::CSNR(ShellContext& context) : ToolFrame(context, kTitle, kClassName) {
    auto* groups = new QHBoxLayout;
    // One choice across both boxes.
    auto* exclusive = new QButtonGroup(this);
    auto addGroup = [&](const char* title, const Button* buttons, int n) {
        auto* box = new QGroupBox(title, this);
        auto* column = new QVBoxLayout(box);
        for (int k = 0; k < n; ++k) {
            auto* b = new QRadioButton(buttons[k].text, box);
            b->setObjectName(buttons[k].name);
            typeButtons[buttons[k].type] = b;
            exclusive->addButton(b, buttons[k].type);
            column->addWidget(b);
            connect(b, &QRadioButton::toggled, this, [this](bool on) {
                if (on)
                    TypeChanged();
            });
        }
        column->addStretch(1);
        groups->addWidget(box);
    };
    addGroup("Nonadaptive Filters", kNonadaptive, 3);
    addGroup("Adaptive Detail Preserving Filters", kAdaptive, 5);
    Body()->addLayout(groups);

    auto* grid = new QGridLayout;
    grid->setColumnStretch(2, 1);
    windowSize = new QComboBox(this);
    windowSize->setObjectName("windowSize");
    for (int h = 1; h <= 499; ++h)
        windowSize->addItem(QString::fromStdString(SmoothingSizeLabel(h)));
    grid->addWidget(new QLabel("Window Size", this), 0, 0);
    grid->addWidget(windowSize, 0, 1);

    strengthSlider = MakeSlider(this, "strengthSlider");
    strengthSlider->setRange(0, 100);
    strengthValue = new QLabel(this);
    strengthValue->setObjectName("strengthValue");
    connect(strengthSlider, &QSlider::valueChanged, this, [this](int v) {
        strengthValue->setText(QString::number(SmoothingStrengthOfPosition(v), 'f', 2));
        LiveChange();
    });
    grid->addWidget(new QLabel("Filter Strength", this), 1, 0);
    grid->addWidget(strengthValue, 1, 1);
    grid->addWidget(strengthSlider, 1, 2);

    order = new QSpinBox(this);
    order->setObjectName("order");
    order->setRange(1, 997);
    order->setSingleStep(2);
    connect(order, &QSpinBox::editingFinished, this, [this] {
        const int odd = SmoothingOrderValue(order->value());
        if (odd != order->value())
            order->setValue(odd);
    });
    grid->addWidget(new QLabel("Order", this), 2, 0);
    grid->addWidget(order, 2, 1);
    Body()->addLayout(grid);

    auto* range = new QGroupBox("Apply To Luminance Level", this);
    auto* rangeGrid = new QGridLayout(range);
    rangeGrid->setColumnStretch(2, 1);
    minApply = new QSpinBox(range);
    minApply->setObjectName("minApply");
    maxApply = new QSpinBox(range);
    maxApply->setObjectName("maxApply");
    featherRange = new QSpinBox(range);
    featherRange->setObjectName("featherRange");
    featherRange->setRange(0, kFeatherTop);
    minSlider = MakeSlider(range, "minSlider");
    maxSlider = MakeSlider(range, "maxSlider");
    featherSlider = MakeSlider(range, "featherSlider");
    rangeGrid->addWidget(new QLabel("Apply Min", range), 0, 0);
    rangeGrid->addWidget(minApply, 0, 1);
    rangeGrid->addWidget(minSlider, 0, 2);
    rangeGrid->addWidget(new QLabel("Apply Max", range), 1, 0);
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
    connect(minApply, &QSpinBox::valueChanged, this, [this] {
        minEditedLast_ = true;
        LiveChange();
    });
    connect(maxApply, &QSpinBox::valueChanged, this, [this] {
        minEditedLast_ = false;
        LiveChange();
    });
    connect(featherRange, &QSpinBox::valueChanged, this, [this] { LiveChange(); });

    enableSlider = MakeCheck(this, "Enable Slider", "enableSlider");
    enableSlider->setChecked(context.Setup().slidersEnabled);
    Body()->addLayout(CheckRow(this, {enableSlider}));

    resetButton = MakeButton(this, "Reset", "reset");
    ButtonRow()->insertWidget(1, resetButton);
    connect(resetButton, &QPushButton::clicked, this, [this] { Reset(); });

    Reset();
}

void CSNR::SetLevelTop(int top) {
    top = std::max(top, 1);
    const bool maxWasTop = maxApply->value() == levelTop_;
    levelTop_ = top;
    for (QSpinBox* box : {minApply, maxApply})
        box->setRange(0, top);
    for (QSlider* s : {minSlider, maxSlider})
        s->setRange(0, top);
    if (maxWasTop)
        maxApply->setValue(top);
}

void CSNR::TypeChanged() {
    order->setEnabled(typeButtons[SmoothAdaptiveMedian]->isChecked());
}

SmoothingParams CSNR::Values() const {
    SmoothingParams p;
    for (int t = 1; t < 10; ++t)
        if (typeButtons[t] && typeButtons[t]->isChecked())
            p.type = t;
    p.halfSize = windowSize->currentIndex() + 1;
    p.strength = SmoothingStrengthOfPosition(strengthSlider->value());
    p.order = SmoothingOrderValue(order->value());
    p.applyMin = minApply->value();
    p.applyMax = maxApply->value();
    p.feather = featherRange->value();
    return p;
}

void CSNR::SetValues(const SmoothingParams& p) {
    // Filling the controls is not a change of the user's: no live run.
    const QSignalBlocker quiet(enableSlider);
    const bool live = enableSlider->isChecked();
    enableSlider->setChecked(false);
    if (IsSmoothingType(p.type))
        typeButtons[p.type]->setChecked(true);
    windowSize->setCurrentIndex(std::clamp(p.halfSize, 1, 499) - 1);
    strengthSlider->setValue(SmoothingPositionOfStrength(p.strength));
    strengthValue->setText(
        QString::number(SmoothingStrengthOfPosition(strengthSlider->value()), 'f', 2));
    order->setValue(SmoothingOrderValue(p.order));
    if (std::max(p.applyMin, p.applyMax) > levelTop_)
        SetLevelTop(std::max(p.applyMin, p.applyMax));
    minApply->setValue(p.applyMin);
    maxApply->setValue(p.applyMax);
    featherRange->setValue(std::clamp(p.feather, 0, kFeatherTop));
    enableSlider->setChecked(live);
    TypeChanged();
}

void CSNR::Reset() {
    SmoothingParams defaults;
    defaults.applyMax = levelTop_;
    SetValues(defaults);
}

bool CSNR::LoadParameters(const std::string& text) {
    SmoothingParams p;
    if (!ParseSmoothing(text, &p, nullptr))
        return false;
    SetValues(p);
    return true;
}

void CSNR::OnImageChanged() {
    if (CProcessWindow* image = ShownImage())
        SetLevelTop(static_cast<int>(image->image.maxValue));
}

void CSNR::LiveChange() {
    if (!enableSlider || !enableSlider->isChecked())
        return;
    if (Busy()) {
        liveAgain_ = true; // once the run ends, the latest values run again
        return;
    }
    Apply();
}

void CSNR::OnApply() {
    CProcessWindow* target = Target();
    if (!target)
        return;
    INotify& notify = Context().Model().notify();
    SmoothingParams p = Values();
    const std::string rangeText = SmoothingRangeText(p.applyMin, p.applyMax, minEditedLast_);
    if (!rangeText.empty()) {
        notify.Message(rangeText);
        return;
    }
    std::string text;
    if (LimitSmoothingWindow(&p, &text)) {
        notify.Message(text); // set to the limit, and on
        const QSignalBlocker quiet(windowSize);
        windowSize->setCurrentIndex(p.halfSize - 1);
    }
    if (!SmoothingWindowFits(p, target->image.width, target->image.height, &text)) {
        notify.Message(text);
        return;
    }
    CProcessWindow* window = target;
    StartWorker(
        *target, [window, p](IProgress& progress) { return window->Smoothing(p, &progress); },
        [this, window, type = p.type](bool ok) {
            if (!ok && Progress().Cancelled() && statusLine)
                statusLine->setText(SmoothingCancelText(type));
            if (Context().Model().IsOpen(window))
                Context().ImageChanged(window);
        });
}

void CSNR::OnWorkerFinished(bool) {
    RefreshCaption();
    if (liveAgain_) {
        liveAgain_ = false;
        if (enableSlider->isChecked())
            Apply();
    }
}

OperatorTool SmoothingToolEntry() {
    return MakeOperatorTool<CSNR>("Smoothing", QStringLiteral("&Filters"),
                                  QStringLiteral("&Smoothing && Noise Reduction..."),
                                  QStringLiteral("actionSmoothing"));
}

} // namespace astrivelle
