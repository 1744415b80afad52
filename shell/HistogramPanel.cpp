// SPDX-License-Identifier: GPL-3.0-or-later
/// \file HistogramPanel: display bins and measures of the active image.
#include "shell/HistogramPanel.h"

#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

#include "engine/ProcessWindow.h"

namespace astrivelle {

std::vector<std::array<std::uint32_t, 256>> DisplayHistograms(CProcessWindow& window) {
    Image& image = window.image;
    std::vector<std::array<std::uint32_t, 256>> out;
    std::vector<int> channelSlots;
    if (image.colorType == ColorRGB)
        channelSlots = {0, 1, 2};
    else if (SlotOfColorType(image.colorType) >= 0)
        channelSlots = {SlotOfColorType(image.colorType)};
    for (int slot : channelSlots) {
        if (!image.curPlane[slot])
            return {};
        image.BuildDisplayHistogram(image.curPlane[slot]);
        std::array<std::uint32_t, 256> bins{};
        std::copy(std::begin(image.displayHistogram), std::end(image.displayHistogram),
                  bins.begin());
        out.push_back(bins);
    }
    return out;
}

HistogramCurves::HistogramCurves(QWidget* parent) : QWidget(parent) {
    setMinimumSize(200, 90);
}

void HistogramCurves::SetCurves(std::vector<std::array<std::uint32_t, 256>> curves, bool rgb) {
    curves_ = std::move(curves);
    rgb_ = rgb;
    update();
}

void HistogramCurves::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), QColor(24, 24, 28));
    p.setPen(QColor(60, 60, 68));
    for (int q = 1; q < 4; ++q) {
        const int x = width() * q / 4;
        p.drawLine(x, 0, x, height());
    }
    // The bins in use (at least 16 wide), so a faint image's few bins are not a hairline.
    std::uint32_t peak = 0;
    int first = 256, last = -1;
    for (const auto& c : curves_)
        for (int b = 0; b < 256; ++b)
            if (c[b]) {
                peak = std::max(peak, c[b]);
                first = std::min(first, b);
                last = std::max(last, b);
            }
    if (peak == 0)
        return;
    first = std::min(first, 240);
    last = std::max(last, first + 15);
    const int span = last - first + 1;
    // A square-root height keeps a low background visible next to a tall peak.
    const double top = std::sqrt(static_cast<double>(peak));
    const QColor colours[3] = {rgb_ ? QColor(235, 80, 80) : QColor(220, 220, 220),
                               QColor(90, 210, 90), QColor(100, 140, 255)};
    const double h = height() - 14; // room for the level range below
    p.setRenderHint(QPainter::Antialiasing);
    for (std::size_t c = 0; c < curves_.size() && c < 3; ++c) {
        QPainterPath path;
        path.moveTo(0, h);
        for (int b = first; b <= last; ++b) {
            const double x0 = (b - first) * width() / static_cast<double>(span);
            const double x1 = (b - first + 1) * width() / static_cast<double>(span);
            const double y = h - h * std::sqrt(static_cast<double>(curves_[c][b])) / top;
            path.lineTo(x0, y);
            path.lineTo(x1, y);
        }
        path.lineTo(width(), h);
        QColor fill = colours[c];
        fill.setAlpha(curves_.size() > 1 ? 70 : 120);
        p.fillPath(path, fill);
        p.setPen(colours[c]);
        p.drawPath(path);
    }
    p.setPen(QColor(170, 170, 180));
    const QRect label(2, height() - 13, width() - 4, 12);
    p.drawText(label, Qt::AlignLeft | Qt::AlignVCenter, QString::number(first * 256));
    p.drawText(label, Qt::AlignRight | Qt::AlignVCenter, QString::number(last * 256 + 255));
}

HistogramPanel::HistogramPanel(QWidget* parent) : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 4, 4, 4);
    curves_ = new HistogramCurves(this);
    measures_ = new QLabel(this);
    measures_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    measures_->setWordWrap(true);
    layout->addWidget(curves_, 1);
    layout->addWidget(measures_);
}

QString HistogramPanel::MeasuresText() const {
    return measures_->text();
}

void HistogramPanel::ShowImage(CProcessWindow* window) {
    if (!window) {
        curves_->SetCurves({}, false);
        measures_->clear();
        return;
    }
    if (window->threadBusy)
        return;
    const bool rgb = window->image.colorType == ColorRGB;
    curves_->SetCurves(DisplayHistograms(*window), rgb);
    const Image& im = window->image;
    const int slot = rgb ? -1 : SlotOfColorType(im.colorType);
    const ChannelStats& s = rgb         ? im.valueStats
                            : slot == 1 ? im.greenStats
                            : slot == 2 ? im.blueStats
                                        : im.redStats;
    measures_->setText(QStringLiteral("Min: %1  Max: %2\nMean: %3  Median: %4  Std Dev: %5")
                           .arg(s.min, 0, 'f', 0)
                           .arg(s.max, 0, 'f', 0)
                           .arg(s.mean, 0, 'f', 1)
                           .arg(s.median)
                           .arg(s.stdDev, 0, 'f', 1));
}

} // namespace astrivelle
