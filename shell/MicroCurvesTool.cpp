// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Micro Curves tool and its curve graph.
#include "shell/MicroCurvesTool.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

#include "engine/SetupParams.h"
#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

// ---- the graph ----------------------------------------------------------------------------

CurveGraph::CurveGraph(QWidget* parent) : QWidget(parent) {
    setObjectName("curveGraph");
    setFixedSize(256 + 2 * kMargin, 256 + 2 * kMargin);
    setMouseTracking(true);
}

void CurveGraph::SetSlot(MicroCurveSlot* slot) {
    slot_ = slot;
    dragging_ = -1;
    update();
}

QPoint CurveGraph::ToWidget(int x, int y) const {
    return QPoint(kMargin + x, kMargin + 255 - y);
}

void CurveGraph::ToCurve(const QPoint& at, int* x, int* y) const {
    *x = at.x() - kMargin;
    *y = 255 - (at.y() - kMargin);
}

bool CurveGraph::Inside(const QPoint& at) const {
    int x, y;
    ToCurve(at, &x, &y);
    return x >= 0 && x <= 255 && y >= 0 && y <= 255;
}

namespace {
std::vector<MicroCurve::Point> AllPoints(const MicroCurve& c) {
    std::vector<MicroCurve::Point> all{{c.blackX, c.blackY}};
    all.insert(all.end(), c.points.begin(), c.points.end());
    all.push_back({c.whiteX, c.whiteY});
    return all;
}
} // namespace

int CurveGraph::PickPoint(const QPoint& at) const {
    if (!slot_)
        return -1;
    int x, y;
    ToCurve(at, &x, &y);
    const auto all = AllPoints(slot_->curve);
    int best = -1;
    double bestDistance = kPickRadius + 0.5;
    for (int k = 0; k < static_cast<int>(all.size()); ++k) {
        const double d = std::hypot(all[k].x - x, all[k].y - y);
        if (d <= bestDistance) {
            best = k;
            bestDistance = d;
        }
    }
    return best;
}

void CurveGraph::MovePoint(int index, int x, int y) {
    MicroCurve& c = slot_->curve;
    x = LimitDragX(c, index, x, kPickRadius);
    y = std::clamp(y, 0, 255);
    const int last = static_cast<int>(c.points.size()) + 1;
    if (index == 0) {
        c.blackX = x;
        c.blackY = y;
    } else if (index == last) {
        c.whiteX = x;
        c.whiteY = y;
    } else {
        c.points[index - 1] = {x, y};
    }
    update();
}

void CurveGraph::ShowReadout(const QPoint& at) {
    int x = 0, y = 0;
    ToCurve(at, &x, &y);
    const double mn = slot_ ? slot_->min : 0.0, mx = slot_ ? slot_->max : 65535.0;
    readout_ = QString::fromStdString(MicroCurveReadout(mn, mx, x, y, Inside(at)));
    if (onReadout)
        onReadout(readout_);
}

void CurveGraph::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton)
        dragging_ = PickPoint(event->position().toPoint());
}

void CurveGraph::mouseMoveEvent(QMouseEvent* event) {
    const QPoint at = event->position().toPoint();
    ShowReadout(at);
    if (dragging_ < 0 || !slot_ || !(event->buttons() & Qt::LeftButton))
        return;
    int x, y;
    ToCurve(at, &x, &y);
    MovePoint(dragging_, x, y);
    if (onCurveChanged)
        onCurveChanged(false);
}

void CurveGraph::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || dragging_ < 0)
        return;
    int x, y;
    ToCurve(event->position().toPoint(), &x, &y);
    MovePoint(dragging_, x, y);
    dragging_ = -1;
    if (onCurveChanged)
        onCurveChanged(true);
}

void CurveGraph::leaveEvent(QEvent*) {
    readout_ = "(,)";
    if (onReadout)
        onReadout(readout_);
}

void CurveGraph::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), Qt::white);
    p.setPen(QColor(215, 215, 215));
    for (int k = 1; k < 4; ++k) {
        p.drawLine(ToWidget(k * 64, 0), ToWidget(k * 64, 255));
        p.drawLine(ToWidget(0, k * 64), ToWidget(255, k * 64));
    }
    p.setPen(Qt::black);
    p.drawRect(QRect(ToWidget(0, 255), ToWidget(255, 0)));
    if (!slot_)
        return;
    const MicroCurve& c = slot_->curve;
    p.setRenderHint(QPainter::Antialiasing);
    // Dashed handles from the black and white points to the control points.
    QPen dashed(QColor(90, 90, 200));
    dashed.setStyle(Qt::DashLine);
    p.setPen(dashed);
    if (!c.points.empty()) {
        p.drawLine(ToWidget(c.blackX, c.blackY), ToWidget(c.points.front().x, c.points.front().y));
        p.drawLine(ToWidget(c.whiteX, c.whiteY), ToWidget(c.points.back().x, c.points.back().y));
    }
    // The curve in X and Y.
    QPainterPath path;
    bool first = true;
    for (const auto& [x, y] : MicroCurveDrawPoints(c)) {
        const QPointF at(kMargin + x, kMargin + 255 - y);
        if (first)
            path.moveTo(at);
        else
            path.lineTo(at);
        first = false;
    }
    p.setPen(QPen(Qt::black, 1.5));
    p.drawPath(path);
    p.setBrush(QColor(200, 60, 60));
    p.setPen(Qt::NoPen);
    for (const MicroCurve::Point& pt : AllPoints(c))
        p.drawEllipse(ToWidget(pt.x, pt.y), 3, 3);
}

// ---- the tool -----------------------------------------------------------------------------

CTransferCurves* CTransferCurves::Show(ShellContext& context) {
    return ShowTool<CTransferCurves>(context);
}

CTransferCurves::CTransferCurves(ShellContext& context)
    : ToolFrame(context, kTitle, kClassName, kImageTool & ~ProgressRow) {
    auto* top = new QHBoxLayout;
    auto* left = new QVBoxLayout;
    graph = new CurveGraph(this);
    left->addWidget(graph);
    auto* ends = new QHBoxLayout;
    lowLabel = new QLabel(this);
    lowLabel->setObjectName("lowLabel");
    highLabel = new QLabel(this);
    highLabel->setObjectName("highLabel");
    readout = new QLabel("(,)", this);
    readout->setObjectName("readout");
    readout->setAlignment(Qt::AlignCenter);
    ends->addWidget(lowLabel);
    ends->addWidget(readout, 1);
    ends->addWidget(highLabel);
    left->addLayout(ends);
    top->addLayout(left);

    auto* grid = new QGridLayout;
    rgbSpace = new QRadioButton("RGB", this);
    rgbSpace->setObjectName("rgbSpace");
    labSpace = new QRadioButton("LAB", this);
    labSpace->setObjectName("labSpace");
    auto* spaces = new QHBoxLayout;
    spaces->addWidget(rgbSpace);
    spaces->addWidget(labSpace);
    grid->addLayout(spaces, 0, 0, 1, 2);
    channelCombo = new QComboBox(this);
    channelCombo->setObjectName("channel");
    presetCombo = new QComboBox(this);
    presetCombo->setObjectName("preset");
    for (const std::string& name : MicroCurvePresetNames())
        presetCombo->addItem(QString::fromStdString(name));
    minSpin = new QSpinBox(this);
    minSpin->setObjectName("curveMin");
    maxSpin = new QSpinBox(this);
    maxSpin->setObjectName("curveMax");
    for (QSpinBox* box : {minSpin, maxSpin}) {
        box->setRange(0, kToneMaximum);
        box->setKeyboardTracking(false);
    }
    resetButton = new QPushButton("Reset", this);
    resetButton->setObjectName("reset");
    resetAllButton = new QPushButton("Reset All", this);
    resetAllButton->setObjectName("resetAll");
    grid->addWidget(new QLabel("Channel", this), 1, 0);
    grid->addWidget(channelCombo, 1, 1);
    grid->addWidget(new QLabel("Preset", this), 2, 0);
    grid->addWidget(presetCombo, 2, 1);
    grid->addWidget(new QLabel("Min", this), 3, 0);
    grid->addWidget(minSpin, 3, 1);
    grid->addWidget(new QLabel("Max", this), 4, 0);
    grid->addWidget(maxSpin, 4, 1);
    grid->addWidget(resetButton, 5, 0);
    grid->addWidget(resetAllButton, 5, 1);
    grid->setRowStretch(6, 1);
    top->addLayout(grid);
    Body()->addLayout(top);

    enableDrawing = MakeCheck(this, "Enable Drawing", "enableDrawing");
    toAllImages = MakeCheck(this, "To All Images", "toAllImages");
    Body()->addLayout(CheckRow(this, {enableDrawing, toAllImages}));
    LockClearsToAll(this, toAllImages);
    enableDrawing->setChecked(context.Setup().slidersEnabled);

    {
        const QSignalBlocker quiet(rgbSpace);
        rgbSpace->setChecked(true);
    }
    FillChannels();
    connect(rgbSpace, &QRadioButton::toggled, this, [this](bool) {
        if (syncing_)
            return;
        params_.colorSpace = labSpace->isChecked() ? "LAB" : "RGB";
        FillChannels();
        ShowSlot();
    });
    connect(channelCombo, &QComboBox::currentIndexChanged, this, [this] {
        if (!syncing_)
            ShowSlot();
    });
    connect(presetCombo, &QComboBox::activated, this, [this] { PresetChosen(); });
    connect(minSpin, &QSpinBox::valueChanged, this, [this] { MinTyped(); });
    connect(maxSpin, &QSpinBox::valueChanged, this, [this] { MaxTyped(); });
    connect(resetButton, &QPushButton::clicked, this, [this] {
        params_.curveSlots[CurrentSlot()] = MicroCurveSlot{};
        presetCombo->setCurrentIndex(0);
        ShowSlot();
        Changed();
    });
    connect(resetAllButton, &QPushButton::clicked, this, [this] {
        for (MicroCurveSlot& s : params_.curveSlots)
            s = MicroCurveSlot{};
        presetCombo->setCurrentIndex(0);
        ShowSlot();
        Changed();
    });
    graph->onReadout = [this](const QString& text) { readout->setText(text); };
    graph->onCurveChanged = [this](bool finished) {
        if (finished)
            Changed();
    };
    ShowSlot();
}

bool CTransferCurves::IsColor() {
    CProcessWindow* image = ShownImage();
    return !image || image->image.colorType == ColorRGB;
}

void CTransferCurves::FillChannels() {
    syncing_ = true;
    const bool color = IsColor();
    channelCombo->clear();
    if (!color)
        channelCombo->addItem("Monochrome");
    else if (params_.colorSpace == "LAB")
        channelCombo->addItems({"L", "a", "b"});
    else
        channelCombo->addItems({"RGB", "Red", "Green", "Blue"});
    channelCombo->setCurrentIndex(0);
    rgbSpace->setEnabled(color);
    labSpace->setEnabled(color);
    syncing_ = false;
}

int CTransferCurves::CurrentSlot() const {
    const int slot =
        MicroCurvesSlotOfChannel(channelCombo->currentText().toStdString(), params_.colorSpace);
    return slot < 0 ? 0 : slot;
}

void CTransferCurves::ShowSlot() {
    syncing_ = true;
    MicroCurveSlot& slot = params_.curveSlots[CurrentSlot()];
    graph->SetSlot(&slot);
    minSpin->setValue(static_cast<int>(slot.min));
    maxSpin->setValue(static_cast<int>(slot.max));
    const QString channel = channelCombo->currentText();
    const bool lab = params_.colorSpace == "LAB";
    lowLabel->setText(lab && channel == "a" ? "Green" : lab && channel == "b" ? "Blue" : "");
    highLabel->setText(lab && channel == "a" ? "Red" : lab && channel == "b" ? "Yellow" : "");
    syncing_ = false;
}

void CTransferCurves::PresetChosen() {
    ApplyMicroCurvePreset(&params_.curveSlots[CurrentSlot()].curve,
                          presetCombo->currentText().toStdString());
    graph->update();
    Changed();
}

void CTransferCurves::MinTyped() {
    if (syncing_)
        return;
    std::string message;
    if (!SetMicroCurveMin(&params_.curveSlots[CurrentSlot()], minSpin->value(), &message)) {
        Context().Model().notify().Message(message);
        ShowSlot();
        return;
    }
    Changed();
}

void CTransferCurves::MaxTyped() {
    if (syncing_)
        return;
    std::string message;
    if (!SetMicroCurveMax(&params_.curveSlots[CurrentSlot()], maxSpin->value(), &message)) {
        Context().Model().notify().Message(message);
        ShowSlot();
        return;
    }
    Changed();
}

void CTransferCurves::Changed() {
    if (enableDrawing->isChecked())
        Apply();
}

MicroCurvesParams CTransferCurves::Values() const {
    MicroCurvesParams p = params_;
    p.channel = channelCombo->currentText().toStdString();
    p.monochrome = p.channel == "Monochrome";
    return p;
}

void CTransferCurves::SetValues(const MicroCurvesParams& p) {
    params_ = p;
    params_.monochrome = false;
    syncing_ = true;
    (p.colorSpace == "LAB" ? labSpace : rgbSpace)->setChecked(true);
    syncing_ = false;
    FillChannels();
    const int at = channelCombo->findText(QString::fromStdString(p.channel));
    if (at >= 0) {
        const QSignalBlocker quiet(channelCombo);
        channelCombo->setCurrentIndex(at);
    }
    {
        const QSignalBlocker quiet(presetCombo);
        presetCombo->setCurrentIndex(0);
    }
    ShowSlot();
}

bool CTransferCurves::LoadParameters(const std::string& text) {
    MicroCurvesParams p;
    if (!ParseMicroCurves(text, &p, nullptr))
        return false;
    SetValues(p);
    return true;
}

void CTransferCurves::OnImageChanged() {
    const QString keep = channelCombo->currentText();
    FillChannels();
    const int at = channelCombo->findText(keep);
    if (at >= 0) {
        const QSignalBlocker quiet(channelCombo);
        channelCombo->setCurrentIndex(at);
    }
    ShowSlot();
}

bool CTransferCurves::ApplyTo(CProcessWindow& window, const MicroCurvesParams& p) {
    if (!CheckGuards(window))
        return false;
    const bool ok = window.MicroCurves(p);
    Context().ImageChanged(&window);
    return ok;
}

void CTransferCurves::OnApply() {
    CProcessWindow* target = Target();
    if (!target)
        return;
    const MicroCurvesParams p = Values();
    for (CProcessWindow* w : TargetOrAll(Context(), *target, toAllImages->isChecked()))
        ApplyTo(*w, p);
    RefreshCaption();
}

OperatorTool MicroCurvesToolEntry() {
    return MakeOperatorTool<CTransferCurves>(CTransferCurves::kTitle, QStringLiteral("&Tone"),
                                             QStringLiteral("&Micro Curves..."),
                                             QStringLiteral("actionMicroCurves"));
}

} // namespace astrivelle
