// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The blend controls of the process history.
#include "shell/BlendControls.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QSpinBox>

#include <cmath>
#include <cstdio>

#include "engine/Blend.h"

namespace astrivelle {

namespace {

/// Modes that belong to a group headed by Darken (1), Lighten (5) or Overlay (9).
bool IsGroupMember(int mode) {
    return (mode >= 2 && mode <= 4) || (mode >= 6 && mode <= 8) || (mode >= 10 && mode <= 15);
}

constexpr int kMaxMaskLevel = 65535;

} // namespace

std::vector<BlendModeItem> BlendModeItems(bool color) {
    std::vector<BlendModeItem> items;
    const int count = color ? kBlendModeCount : kFirstColorBlendMode;
    items.reserve(count);
    for (int mode = 0; mode < count; ++mode) {
        BlendModeItem item;
        item.text = std::string(IsGroupMember(mode) ? "  " : "") + BlendModeName(mode);
        item.mode = mode;
        items.push_back(item);
    }
    return items;
}

std::string OpacityText(double opacity) {
    char text[32];
    std::snprintf(text, sizeof text, "%4.3f", opacity);
    return text;
}

int OpacityToSlider(double opacity) {
    const long position = std::lround(opacity * 1000.0);
    return static_cast<int>(position < 0 ? 0 : position > 1000 ? 1000 : position);
}

double SliderToOpacity(int position) {
    return position / 1000.0;
}

CHistoryBlendControls::CHistoryBlendControls(QWidget* parent) : QWidget(parent) {
    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(0, 0, 0, 0);

    grid->addWidget(new QLabel("Blend Mode", this), 0, 0);
    modeList = new QComboBox(this);
    modeList->setObjectName("blendMode");
    grid->addWidget(modeList, 0, 1, 1, 3);

    grid->addWidget(new QLabel("Opacity", this), 1, 0);
    opacitySlider = new QSlider(Qt::Horizontal, this);
    opacitySlider->setObjectName("opacity");
    opacitySlider->setRange(0, 1000);
    opacitySlider->setSingleStep(1);
    opacitySlider->setPageStep(50);
    opacityLabel = new QLabel(this);
    opacityLabel->setObjectName("opacityValue");
    opacityLabel->setMinimumWidth(opacityLabel->fontMetrics().horizontalAdvance("0.0000"));
    grid->addWidget(opacitySlider, 1, 1, 1, 2);
    grid->addWidget(opacityLabel, 1, 3);

    applyMaskCheck = new QCheckBox("Apply Mask", this);
    applyMaskCheck->setObjectName("applyMask");
    grid->addWidget(applyMaskCheck, 2, 0);
    luminanceRadio = new QRadioButton("Luminance Mask", this);
    luminanceRadio->setObjectName("luminanceMask");
    fileRadio = new QRadioButton("File Mask", this);
    fileRadio->setObjectName("fileMask");
    auto* kinds = new QButtonGroup(this);
    kinds->addButton(luminanceRadio);
    kinds->addButton(fileRadio);
    grid->addWidget(luminanceRadio, 2, 1);
    grid->addWidget(fileRadio, 2, 2);

    grid->addWidget(new QLabel("Mask Level", this), 3, 0);
    maskLevelSpin = new QSpinBox(this);
    maskLevelSpin->setObjectName("maskLevel");
    maskLevelSpin->setRange(0, kMaxMaskLevel);
    maskLevelSpin->setKeyboardTracking(false);
    grid->addWidget(maskLevelSpin, 3, 1);

    grid->addWidget(new QLabel("Mask File", this), 4, 0);
    maskFileEdit = new QLineEdit(this);
    maskFileEdit->setObjectName("maskFile");
    maskFileEdit->setReadOnly(true);
    browseButton = new QPushButton("Browse...", this);
    browseButton->setObjectName("browseMask");
    grid->addWidget(maskFileEdit, 4, 1, 1, 2);
    grid->addWidget(browseButton, 4, 3);
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(2, 1);

    chooseMaskFile = [this] {
        return QFileDialog::getOpenFileName(this, "Select Mask File", QString(),
                                            "Mask Images (*.fit *.fits *.fts *.tif *.tiff);;"
                                            "All Files (*)");
    };

    connect(modeList, QOverload<int>::of(&QComboBox::activated), this,
            [this](int) { Changed(false); });
    connect(opacitySlider, &QSlider::valueChanged, this, [this](int position) {
        opacityLabel->setText(QString::fromStdString(OpacityText(SliderToOpacity(position))));
        // A drag takes effect on release; a key or a click on the groove at once.
        if (!opacitySlider->isSliderDown())
            Changed(false);
    });
    connect(opacitySlider, &QSlider::sliderReleased, this, [this] { Changed(false); });
    connect(applyMaskCheck, &QCheckBox::toggled, this, [this](bool) {
        UpdateMaskEnabling();
        Changed(true);
    });
    connect(luminanceRadio, &QRadioButton::toggled, this, [this](bool on) {
        if (!on)
            return;
        UpdateMaskEnabling();
        Changed(true);
    });
    connect(fileRadio, &QRadioButton::toggled, this, [this](bool on) {
        if (!on || loading_)
            return;
        UpdateMaskEnabling();
        if (maskFileEdit->text().isEmpty()) {
            BrowseMask(); // a file mask needs its file
            return;
        }
        Changed(true);
    });
    connect(browseButton, &QPushButton::clicked, this, [this] { BrowseMask(); });
    connect(maskLevelSpin, QOverload<int>::of(&QSpinBox::valueChanged), this,
            [this](int) { Changed(true); });
    opacityLabel->setText(QString::fromStdString(OpacityText(1.0)));
}

void CHistoryBlendControls::SetValues(const CProcessStructure& record, bool color) {
    loading_ = true;
    const QSignalBlocker b1(modeList), b2(opacitySlider), b3(applyMaskCheck), b4(luminanceRadio),
        b5(fileRadio), b6(maskLevelSpin);
    modeList->clear();
    for (const BlendModeItem& item : BlendModeItems(color))
        modeList->addItem(QString::fromStdString(item.text), item.mode);
    const int row = modeList->findData(record.blendMode);
    modeList->setCurrentIndex(row >= 0 ? row : 0);
    opacitySlider->setValue(OpacityToSlider(record.opacity));
    opacityLabel->setText(QString::fromStdString(OpacityText(record.opacity)));
    applyMaskCheck->setChecked(record.applyMask != 0);
    const bool fileMask = !record.luminanceMask && !record.maskFile.empty();
    luminanceRadio->setChecked(!fileMask);
    fileRadio->setChecked(fileMask);
    maskFileEdit->setText(QString::fromStdString(record.maskFile));
    maskLevelSpin->setValue(static_cast<int>(
        record.maskLevel > static_cast<std::uint32_t>(kMaxMaskLevel) ? kMaxMaskLevel
                                                                     : record.maskLevel));
    surface_ = record.maskSurface;
    UpdateMaskEnabling();
    loading_ = false;
}

void CHistoryBlendControls::GetValues(CProcessStructure* record) const {
    const QVariant mode = modeList->currentData();
    record->blendMode = mode.isValid() ? mode.toInt() : 0;
    record->opacity = SliderToOpacity(opacitySlider->value());
    record->applyMask = applyMaskCheck->isChecked() ? 1 : 0;
    const bool fileMask = fileRadio->isChecked() && !maskFileEdit->text().isEmpty();
    record->luminanceMask = fileMask ? 0 : 1;
    record->maskFile = fileMask ? maskFileEdit->text().toStdString() : std::string();
    record->maskLevel = static_cast<std::uint32_t>(maskLevelSpin->value());
    record->maskSurface = surface_;
}

void CHistoryBlendControls::Changed(bool maskChanged) {
    if (!loading_)
        emit BlendChanged(maskChanged);
}

void CHistoryBlendControls::BrowseMask() {
    const QString path = chooseMaskFile ? chooseMaskFile() : QString();
    if (path.isEmpty()) {
        if (maskFileEdit->text().isEmpty()) { // no file: the luminance mask stays
            const QSignalBlocker quiet(luminanceRadio);
            luminanceRadio->setChecked(true);
            UpdateMaskEnabling();
        }
        return;
    }
    maskFileEdit->setText(path);
    {
        const QSignalBlocker quiet(fileRadio);
        fileRadio->setChecked(true);
    }
    UpdateMaskEnabling();
    Changed(true);
}

void CHistoryBlendControls::UpdateMaskEnabling() {
    const bool mask = applyMaskCheck->isChecked();
    luminanceRadio->setEnabled(mask);
    fileRadio->setEnabled(mask);
    maskLevelSpin->setEnabled(mask && luminanceRadio->isChecked());
    maskFileEdit->setEnabled(mask && fileRadio->isChecked());
    browseButton->setEnabled(mask);
}

} // namespace astrivelle
