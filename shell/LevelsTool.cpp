// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Levels tool.
#include "shell/LevelsTool.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QSlider>
#include <QVBoxLayout>

#include <algorithm>

#include "engine/ParamText.h"
#include "engine/SetupParams.h"
#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

/// The transfer curve of one set over 0..65535.
class LevelsGraph : public QWidget {
public:
    explicit LevelsGraph(QWidget* parent) : QWidget(parent) {
        setObjectName("levelsGraph");
        setFixedSize(258, 258);
    }
    void SetCurve(const LevelsSet& set) {
        set_ = set;
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.fillRect(rect(), Qt::white);
        p.setPen(QColor(210, 210, 210));
        for (int k = 1; k < 4; ++k) {
            p.drawLine(1 + k * 64, 1, 1 + k * 64, 256);
            p.drawLine(1, 1 + k * 64, 256, 1 + k * 64);
        }
        p.setPen(Qt::black);
        p.drawRect(0, 0, 257, 257);
        QPainterPath path;
        for (int x = 0; x < 256; ++x) {
            const double v = std::clamp(LevelsTransfer(set_, x * 257.0), 0.0, 65535.0);
            const QPointF at(1 + x, 256 - v / 257.0);
            if (x == 0)
                path.moveTo(at);
            else
                path.lineTo(at);
        }
        p.setRenderHint(QPainter::Antialiasing);
        p.drawPath(path);
    }

private:
    LevelsSet set_;
};

namespace {
constexpr int kGammaSliderTop = 1000;
} // namespace

CTransferLevels* CTransferLevels::Show(ShellContext& context) {
    return ShowTool<CTransferLevels>(context);
}

CTransferLevels::CTransferLevels(ShellContext& context)
    : ToolFrame(context, kTitle, kClassName, kImageTool & ~ProgressRow) {
    auto* top = new QHBoxLayout;
    graph = new LevelsGraph(this);
    top->addWidget(graph);
    auto* grid = new QGridLayout;
    channelCombo = new QComboBox(this);
    channelCombo->setObjectName("channel");
    levelCombo = new QComboBox(this);
    levelCombo->setObjectName("level");
    for (int k = 0; k < 8; ++k)
        levelCombo->addItem(LevelsEntryName(static_cast<LevelsEntry>(k)));
    valueEdit = new QLineEdit(this);
    valueEdit->setObjectName("value");
    valueEdit->setMaximumWidth(110);
    valueSlider = new QSlider(Qt::Horizontal, this);
    valueSlider->setObjectName("valueSlider");
    valueSlider->setMinimumWidth(200);
    grid->addWidget(new QLabel("Channel", this), 0, 0);
    grid->addWidget(channelCombo, 0, 1);
    grid->addWidget(new QLabel("Level", this), 1, 0);
    grid->addWidget(levelCombo, 1, 1);
    grid->addWidget(new QLabel("Value", this), 2, 0);
    grid->addWidget(valueEdit, 2, 1);
    grid->addWidget(valueSlider, 3, 0, 1, 2);
    grid->setRowStretch(4, 1);
    top->addLayout(grid);
    Body()->addLayout(top);

    enableSlider = MakeCheck(this, "Enable Slider", "enableSlider");
    toAllImages = MakeCheck(this, "To All Images", "toAllImages");
    resetButton = MakeButton(this, "Reset", "reset");
    Body()->addLayout(CheckRow(this, {enableSlider, toAllImages}, resetButton));
    LockClearsToAll(this, toAllImages);
    enableSlider->setChecked(context.Setup().slidersEnabled);

    FillChannels();
    connect(channelCombo, &QComboBox::currentIndexChanged, this, [this] { ShowValue(); });
    connect(levelCombo, &QComboBox::currentIndexChanged, this, [this] { ShowValue(); });
    connect(valueEdit, &QLineEdit::returnPressed, this, [this] { ValueTyped(); });
    connect(valueSlider, &QSlider::valueChanged, this, [this](int v) { ValueSlid(v); });
    connect(resetButton, &QPushButton::clicked, this, [this] {
        Reset();
        Changed();
    });
    ShowValue();
}

void CTransferLevels::FillChannels() {
    CProcessWindow* image = ShownImage();
    const bool color = !image || image->image.colorType == ColorRGB;
    const QString keep = channelCombo->currentText();
    const QSignalBlocker quiet(channelCombo);
    channelCombo->clear();
    if (color)
        channelCombo->addItems({"RGB", "Red", "Green", "Blue"});
    else
        channelCombo->addItem("Monochrome");
    const int at = channelCombo->findText(keep);
    channelCombo->setCurrentIndex(at >= 0 ? at : 0);
}

LevelsEntry CTransferLevels::Entry() const {
    return static_cast<LevelsEntry>(std::max(0, levelCombo->currentIndex()));
}

std::string CTransferLevels::Channel() const {
    return channelCombo->currentText().toStdString();
}

const LevelsSet& CTransferLevels::ShownSet() const {
    const int k = LevelsSetOfChannel(Channel());
    return params_.sets[k < 0 ? 0 : k];
}

void CTransferLevels::ShowValue() {
    syncing_ = true;
    const LevelsEntry e = Entry();
    const double v = LevelsValue(ShownSet(), e);
    const bool gamma = e == LevelsEntry::BlackGamma || e == LevelsEntry::WhiteGamma;
    if (gamma) {
        valueSlider->setRange(0, kGammaSliderTop);
        valueSlider->setValue(SliderFromGamma(v));
        valueEdit->setText(QString::fromStdString(FormatGamma(v)));
    } else {
        valueSlider->setRange(0, kToneMaximum);
        valueSlider->setValue(static_cast<int>(v));
        valueEdit->setText(QString::number(static_cast<int>(v)));
    }
    graph->SetCurve(ShownSet());
    syncing_ = false;
}

void CTransferLevels::ValueTyped() {
    double value = 0;
    std::string message;
    if (!ValidateLevelsEntry(ShownSet(), Entry(), valueEdit->text().toStdString(), kToneMaximum,
                             &value, &message)) {
        Context().Model().notify().Message(message);
        ShowValue(); // the value stays as it was
        return;
    }
    SetLevelsValue(&params_, Channel(), Entry(), value);
    ShowValue();
    Changed();
}

void CTransferLevels::ValueSlid(int position) {
    if (syncing_)
        return;
    const LevelsSet& s = ShownSet();
    double value = position;
    switch (Entry()) {
    case LevelsEntry::BlackGamma:
    case LevelsEntry::WhiteGamma:
        value = GammaFromSlider(position);
        break;
    case LevelsEntry::Black: // the slider keeps the order Black <= Midtone <= White
        value = std::min(position, s.white);
        break;
    case LevelsEntry::White:
        value = std::max(position, s.black);
        break;
    case LevelsEntry::Midtone:
        value = std::clamp(position, s.black, std::max(s.black, s.white));
        break;
    default:
        break;
    }
    SetLevelsValue(&params_, Channel(), Entry(), value);
    ShowValue();
    Changed();
}

void CTransferLevels::Changed() {
    if (enableSlider->isChecked())
        Apply();
}

LevelsParams CTransferLevels::Values() const {
    LevelsParams p = params_;
    p.channel = Channel();
    p.level = Entry();
    return p;
}

void CTransferLevels::SetValues(const LevelsParams& p) {
    params_ = p;
    {
        const QSignalBlocker quietChannel(channelCombo);
        const QSignalBlocker quietLevel(levelCombo);
        const int at = channelCombo->findText(QString::fromStdString(p.channel));
        if (at >= 0)
            channelCombo->setCurrentIndex(at);
        levelCombo->setCurrentIndex(static_cast<int>(p.level));
    }
    ShowValue();
}

bool CTransferLevels::LoadParameters(const std::string& text) {
    LevelsParams p;
    if (!ParseLevels(text, &p, nullptr))
        return false;
    SetValues(p);
    return true;
}

void CTransferLevels::Reset() {
    LevelsParams p;
    p.channel = channelCombo->itemText(0).toStdString(); // "RGB" or "Monochrome"
    p.level = LevelsEntry::Black;
    SetValues(p);
}

void CTransferLevels::OnImageChanged() {
    FillChannels();
    ShowValue();
}

bool CTransferLevels::ApplyTo(CProcessWindow& window, const LevelsParams& p) {
    if (!CheckGuards(window))
        return false;
    LevelsParams q = p;
    if (window.image.colorType != ColorRGB)
        q.channel = "Monochrome";
    else if (q.channel == "Monochrome")
        q.channel = "Red";
    const bool ok = window.Levels(q);
    Context().ImageChanged(&window);
    return ok;
}

void CTransferLevels::OnApply() {
    CProcessWindow* target = Target();
    if (!target)
        return;
    const LevelsParams p = Values();
    for (CProcessWindow* w : TargetOrAll(Context(), *target, toAllImages->isChecked()))
        ApplyTo(*w, p);
    RefreshCaption();
}

OperatorTool LevelsToolEntry() {
    return MakeOperatorTool<CTransferLevels>(CTransferLevels::kTitle, QStringLiteral("&Tone"),
                                             QStringLiteral("&Levels..."),
                                             QStringLiteral("actionLevels"));
}

} // namespace astrivelle
