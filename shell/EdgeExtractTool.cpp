// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Edge Extraction tool.
#include "shell/EdgeExtractTool.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <algorithm>

#include "engine/ParamText.h"
#include "engine/SetupParams.h"
#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {
const char* kTypeObjectNames[7] = {"onePixel",      "sobel",   "kirsch",        "laplace",
                                   "morphological", "deriche", "contraHarmonic"};
}

CLEE* CLEE::Show(ShellContext& context) {
    return ShowTool<CLEE>(context);
}

CLEE::CLEE(ShellContext& context)
    : ToolFrame(context, kTitle, kClassName, kImageTool & ~ProgressRow) {
    auto* standard = new QGroupBox("Standard Edge Extractors", this);
    auto* standardRow = new QVBoxLayout(standard);
    auto* better = new QGroupBox("Better Edge Extractors", this);
    auto* betterRow = new QVBoxLayout(better);
    auto* group = new QButtonGroup(this); // one choice across both boxes
    for (int k = 0; k < 7; ++k) {
        QGroupBox* box = k < 4 ? standard : better;
        typeButtons[k] = new QRadioButton(EdgeTypeWord(k + 1), box);
        typeButtons[k]->setObjectName(kTypeObjectNames[k]);
        group->addButton(typeButtons[k], k + 1);
        (k < 4 ? standardRow : betterRow)->addWidget(typeButtons[k]);
        connect(typeButtons[k], &QRadioButton::toggled, this, [this](bool on) {
            if (on)
                Changed();
        });
    }
    auto* types = new QHBoxLayout;
    types->addWidget(standard);
    types->addWidget(better);
    Body()->addLayout(types);

    auto* grid = new QGridLayout;
    edgeWidth = new QDoubleSpinBox(this);
    edgeWidth->setObjectName("edgeWidth");
    edgeWidth->setRange(0.01, 10.0);
    edgeWidth->setDecimals(4);
    edgeWidth->setSingleStep(0.1);
    windowSize = new QComboBox(this);
    windowSize->setObjectName("windowSize");
    for (int side = 3; side <= kEdgeMaxWindow; side += 2)
        windowSize->addItem(QString::fromStdString(FormatText("%dx%d", side, side)));
    binarize = new QCheckBox("Binarization", this);
    binarize->setObjectName("binarize");
    threshold = new QSpinBox(this);
    threshold->setObjectName("threshold");
    threshold->setRange(0, 65535);
    brightness = new QDoubleSpinBox(this);
    brightness->setObjectName("brightness");
    brightness->setRange(0.0, 100.0);
    brightness->setDecimals(4);
    brightness->setSingleStep(0.1);
    grid->addWidget(new QLabel("Edge Width", this), 0, 0);
    grid->addWidget(edgeWidth, 0, 1);
    grid->addWidget(new QLabel("Window Size", this), 1, 0);
    grid->addWidget(windowSize, 1, 1);
    grid->addWidget(binarize, 2, 0);
    grid->addWidget(threshold, 2, 1);
    grid->addWidget(new QLabel("Brightness Scale", this), 3, 0);
    grid->addWidget(brightness, 3, 1);
    Body()->addLayout(grid);

    enableSlider = MakeCheck(this, "Enable Slider", "enableSlider");
    enableSlider->setChecked(context.Setup().slidersEnabled);
    auto* reset = MakeButton(this, "Reset", "reset");
    Body()->addLayout(SpreadRow({enableSlider}, reset));
    connect(reset, &QPushButton::clicked, this, [this] { SetValues(EdgeParams{}); });
    connect(edgeWidth, &QDoubleSpinBox::valueChanged, this, [this] { Changed(); });
    connect(brightness, &QDoubleSpinBox::valueChanged, this, [this] { Changed(); });
    connect(threshold, &QSpinBox::valueChanged, this, [this] { Changed(); });
    connect(windowSize, &QComboBox::currentIndexChanged, this, [this] { Changed(); });
    connect(binarize, &QCheckBox::toggled, this, [this] { Changed(); });
    SetValues(EdgeParams{});
}

void CLEE::Changed() {
    const int type = Values().type;
    edgeWidth->setEnabled(type == EdgeDeriche || type == EdgeContraHarmonic);
    windowSize->setEnabled(type == EdgeContraHarmonic);
    threshold->setEnabled(binarize->isChecked());
    if (!loading_ && enableSlider->isChecked() && isVisible())
        Apply();
}

EdgeParams CLEE::Values() const {
    EdgeParams p;
    for (int k = 0; k < 7; ++k)
        if (typeButtons[k]->isChecked())
            p.type = k + 1;
    p.edgeWidth = edgeWidth->value();
    p.window = 2 * windowSize->currentIndex() + 3;
    p.binarize = binarize->isChecked();
    p.threshold = threshold->value();
    p.brightness = brightness->value();
    return p;
}

void CLEE::SetValues(const EdgeParams& p) {
    loading_ = true;
    typeButtons[std::clamp(p.type, 1, 7) - 1]->setChecked(true);
    edgeWidth->setValue(p.edgeWidth);
    windowSize->setCurrentIndex(std::clamp((p.window - 3) / 2, 0, windowSize->count() - 1));
    binarize->setChecked(p.binarize);
    threshold->setValue(p.threshold);
    brightness->setValue(p.brightness);
    loading_ = false;
    Changed();
}

bool CLEE::LoadParameters(const std::string& text) {
    EdgeParams p;
    if (!ParseEdge(text, &p, nullptr))
        return false;
    const bool live = enableSlider->isChecked();
    enableSlider->setChecked(false);
    SetValues(p);
    enableSlider->setChecked(live);
    return true;
}

void CLEE::OnApply() {
    CProcessWindow* target = Target();
    if (!target || !CheckGuards(*target))
        return;
    target->EdgeExtract(Values());
    Context().ImageChanged(target);
    RefreshCaption();
}

OperatorTool EdgeExtractToolEntry() {
    return MakeOperatorTool<CLEE>("Edge Extract", QStringLiteral("&Filters"),
                                  QStringLiteral("&Edge Extraction..."),
                                  QStringLiteral("actionEdgeExtraction"));
}

} // namespace astrivelle
