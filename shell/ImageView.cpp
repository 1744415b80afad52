// SPDX-License-Identifier: GPL-3.0-or-later
/// \file ImageView: the display bitmap of an image, Auto Stretch, zoom, panning and readout.
// oneTBB comes before Qt: Qt's `emit` keyword would rewrite a oneTBB member name.
#include "engine/Parallel.h"

#include "shell/ImageView.h"
#include "shell/StarShapeReadout.h"

#include <QCloseEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/Dib.h"
#include "engine/Levels.h"
#include "engine/ProcessWindow.h"

namespace astrivelle {

namespace {

constexpr double kMinScale = 0.02;
constexpr double kMaxScale = 8.0;

QVector<QRgb> ColorTable(const RgbQuad* colors) {
    QVector<QRgb> table(256);
    for (int i = 0; i < 256; ++i)
        table[i] = colors ? qRgb(colors[i].red, colors[i].green, colors[i].blue) : qRgb(i, i, i);
    return table;
}

} // namespace

QImage DibToQImage(const CDib& dib) {
    if (!dib.IsValid() || dib.Width() <= 0 || dib.Height() <= 0)
        return {};
    const int w = dib.Width(), h = dib.Height();
    const bool rgb = dib.BitCount() == 24;
    if (!rgb && dib.BitCount() != 8)
        return {};
    QImage out(w, h, rgb ? QImage::Format_RGB888 : QImage::Format_Indexed8);
    if (out.isNull())
        return {};
    if (!rgb)
        out.setColorTable(ColorTable(dib.Colors()));
    ParallelRows(h, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const std::uint8_t* in = dib.Row(h - 1 - y); // stored bottom-up
            std::uint8_t* line = out.scanLine(y);
            if (rgb) {
                for (int x = 0; x < w; ++x) { // BGR to RGB
                    line[3 * x + 0] = in[3 * x + 2];
                    line[3 * x + 1] = in[3 * x + 1];
                    line[3 * x + 2] = in[3 * x + 0];
                }
            } else {
                std::memcpy(line, in, static_cast<std::size_t>(w));
            }
        }
    });
    return out;
}

StretchCurve AutoStretchCurve(const std::vector<std::uint32_t>& counts) {
    StretchCurve curve;
    const int levels = static_cast<int>(counts.size());
    std::uint64_t total = 0;
    int lowest = -1, highest = -1;
    for (int v = 0; v < levels; ++v)
        if (counts[v]) {
            total += counts[v];
            if (lowest < 0)
                lowest = v;
            highest = v;
        }
    if (total == 0)
        return curve;
    // The level at which the running count first passes `share` of the pixels.
    auto quantile = [&](double share) {
        const double want = share * static_cast<double>(total);
        std::uint64_t run = 0;
        for (int v = 0; v < levels; ++v) {
            run += counts[v];
            if (static_cast<double>(run) >= want)
                return v;
        }
        return highest;
    };
    const int median = quantile(0.5);
    // Median absolute deviation: the smallest d with half the pixels within median +- d.
    std::uint64_t within = counts[median];
    int mad = 0;
    while (static_cast<double>(within) < 0.5 * static_cast<double>(total) && mad < levels) {
        ++mad;
        if (median - mad >= 0)
            within += counts[median - mad];
        if (median + mad < levels)
            within += counts[median + mad];
    }
    const double spread = 1.4826 * mad;
    curve.low = std::max<double>(lowest, median - 2.8 * spread);
    curve.high = std::max<double>(quantile(0.9995), curve.low + 1);
    if (curve.high > highest && highest > curve.low)
        curve.high = highest;
    // The balance m with f(x) = (m - 1) x / ((2m - 1) x - m) sending the median to 0.25.
    const double x = std::clamp((median - curve.low) / (curve.high - curve.low), 0.0, 1.0);
    const double y = 0.25;
    if (x > 0 && x < y) // only a dark background is lifted
        curve.midtone = x * (1 - y) / (x + y - 2 * x * y);
    return curve;
}

std::uint8_t StretchByte(const StretchCurve& curve, double level) {
    double x = (level - curve.low) / (curve.high - curve.low);
    if (x <= 0)
        return 0;
    if (x >= 1)
        return 255;
    const double m = curve.midtone;
    if (m != 0.5)
        x = (m - 1) * x / ((2 * m - 1) * x - m);
    return static_cast<std::uint8_t>(std::clamp(x * 255.0 + 0.5, 0.0, 255.0));
}

QImage DisplayPicture(const Image& image, bool autoStretch) {
    if (!autoStretch) {
        CDib dib;
        if (!image.FillDib(dib))
            return {};
        return DibToQImage(dib);
    }
    const int w = image.width, h = image.height;
    if (w <= 0 || h <= 0)
        return {};
    const bool rgb = image.colorType == ColorRGB;
    const int channelCount = rgb ? 3 : 1;
    const float* planes[3] = {nullptr, nullptr, nullptr};
    for (int c = 0; c < channelCount; ++c) {
        const int slot = rgb ? c : SlotOfColorType(image.colorType);
        if (slot < 0 || !(planes[c] = image.curPlane[slot]))
            return {};
    }
    // One table per channel from its level counts: the curve costs a lookup per pixel.
    const std::size_t count = static_cast<std::size_t>(w) * h;
    std::vector<std::uint32_t> counts(65536);
    std::vector<std::uint8_t> tables[3];
    for (int c = 0; c < channelCount; ++c) {
        std::fill(counts.begin(), counts.end(), 0u);
        for (std::size_t i = 0; i < count; ++i)
            ++counts[RoundLevel(planes[c][i], 0, 65535)];
        const StretchCurve curve = AutoStretchCurve(counts);
        tables[c].resize(65536);
        for (int v = 0; v < 65536; ++v)
            tables[c][v] = StretchByte(curve, v);
    }
    QImage out(w, h, rgb ? QImage::Format_RGB888 : QImage::Format_Indexed8);
    if (out.isNull())
        return {};
    if (!rgb) {
        CDib palette; // the colour table of the type, as FillDib would give
        if (palette.CreateEightBit(1, 1)) {
            palette.SetDibPalette(image.colorType);
            out.setColorTable(ColorTable(palette.Colors()));
        } else {
            out.setColorTable(ColorTable(nullptr));
        }
    }
    ParallelRows(h, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            std::uint8_t* line = out.scanLine(y);
            const std::size_t row = static_cast<std::size_t>(y) * w;
            for (int c = 0; c < channelCount; ++c) {
                const float* in = planes[c] + row;
                const std::uint8_t* table = tables[c].data();
                for (int x = 0; x < w; ++x)
                    line[channelCount * x + c] = table[RoundLevel(in[x], 0, 65535)];
            }
        }
    });
    return out;
}

QString PixelReadout(const Image& image, int x, int y) {
    if (x < 0 || y < 0 || x >= image.width || y >= image.height)
        return {};
    const QString at = QStringLiteral("X: %1  Y: %2  ").arg(x).arg(y);
    if (image.colorType == ColorRGB) {
        if (!image.curPlane[0] || !image.curPlane[1] || !image.curPlane[2])
            return {};
        return at + QStringLiteral("R: %1  G: %2  B: %3")
                        .arg(image.RedLevelAt(x, y))
                        .arg(image.GreenLevelAt(x, y))
                        .arg(image.BlueLevelAt(x, y));
    }
    const int slot = SlotOfColorType(image.colorType);
    if (slot < 0 || !image.curPlane[slot])
        return {};
    return at + QStringLiteral("Value: %1").arg(image.LevelAt(image.curPlane[slot], x, y));
}

std::vector<double> DisplayScales() {
    std::vector<double> scales;
    for (int i = 1; i <= 20; ++i)
        scales.push_back(i / 10.0);
    return scales;
}

// ---- ImageView ------------------------------------------------------------------------------

ImageView::ImageView(CProcessWindow* image, QWidget* parent)
    : QAbstractScrollArea(parent), image_(image) {
    setMouseTracking(true);
    viewport()->setMouseTracking(true);
    viewport()->setAutoFillBackground(false);
    setFrameShape(QFrame::NoFrame);
    Refresh();
}

void ImageView::Detach() {
    image_ = nullptr;
}

void ImageView::Refresh() {
    if (!image_ || image_->threadBusy)
        return;
    picture_ = DisplayPicture(image_->image, autoStretch_);
    if (fit_)
        scale_ = FitScale();
    UpdateBars();
    viewport()->update();
}

void ImageView::SetAutoStretch(bool on) {
    if (on == autoStretch_)
        return;
    autoStretch_ = on;
    Refresh();
}

double ImageView::FitScale() const {
    if (picture_.isNull())
        return 1.0;
    const QSize area = viewport()->size();
    const double s = std::min(area.width() / static_cast<double>(picture_.width()),
                              area.height() / static_cast<double>(picture_.height()));
    return std::clamp(s, kMinScale, kMaxScale);
}

void ImageView::SetScale(double scale) {
    fit_ = false;
    scale_ = std::clamp(scale, kMinScale, kMaxScale);
    UpdateBars();
    viewport()->update();
}

void ImageView::FitToWindow() {
    fit_ = true;
    scale_ = FitScale();
    UpdateBars();
    viewport()->update();
}

void ImageView::ZoomIn() {
    for (double s : DisplayScales())
        if (s > scale_ + 1e-9) {
            SetScale(s);
            return;
        }
    SetScale(scale_ * 1.25);
}

void ImageView::ZoomOut() {
    const std::vector<double> scales = DisplayScales();
    for (auto it = scales.rbegin(); it != scales.rend(); ++it)
        if (*it < scale_ - 1e-9) {
            SetScale(*it);
            return;
        }
    SetScale(scale_ / 1.25);
}

void ImageView::UpdateBars() {
    const int w = picture_.isNull() ? 0 : static_cast<int>(std::lround(picture_.width() * scale_));
    const int h = picture_.isNull() ? 0 : static_cast<int>(std::lround(picture_.height() * scale_));
    const QSize area = viewport()->size();
    horizontalScrollBar()->setRange(0, std::max(0, w - area.width()));
    verticalScrollBar()->setRange(0, std::max(0, h - area.height()));
    horizontalScrollBar()->setPageStep(area.width());
    verticalScrollBar()->setPageStep(area.height());
}

QPoint ImageView::Origin() const {
    // The picture's top-left in viewport coordinates: centred when smaller than the viewport.
    const QSize area = viewport()->size();
    const int w = static_cast<int>(std::lround(picture_.width() * scale_));
    const int h = static_cast<int>(std::lround(picture_.height() * scale_));
    const int x = w < area.width() ? (area.width() - w) / 2 : -horizontalScrollBar()->value();
    const int y = h < area.height() ? (area.height() - h) / 2 : -verticalScrollBar()->value();
    return {x, y};
}

bool ImageView::ImagePoint(QPoint viewportPos, int* x, int* y) const {
    if (picture_.isNull())
        return false;
    const QPoint o = Origin();
    const int px = static_cast<int>(std::floor((viewportPos.x() - o.x()) / scale_));
    const int py = static_cast<int>(std::floor((viewportPos.y() - o.y()) / scale_));
    if (px < 0 || py < 0 || px >= picture_.width() || py >= picture_.height())
        return false;
    *x = px;
    *y = py;
    return true;
}

QPoint ImageView::ViewportPoint(int x, int y) const {
    const QPoint o = Origin();
    return {o.x() + static_cast<int>(std::floor((x + 0.5) * scale_)),
            o.y() + static_cast<int>(std::floor((y + 0.5) * scale_))};
}

void ImageView::paintEvent(QPaintEvent*) {
    QPainter painter(viewport());
    painter.fillRect(viewport()->rect(), QColor(38, 38, 42)); // a neutral dark surround
    if (picture_.isNull())
        return;
    const QPoint o = Origin();
    const QRectF target(o.x(), o.y(), picture_.width() * scale_, picture_.height() * scale_);
    painter.setRenderHint(QPainter::SmoothPixmapTransform, scale_ < 1.0);
    painter.drawImage(target, picture_);
}

void ImageView::resizeEvent(QResizeEvent* event) {
    QAbstractScrollArea::resizeEvent(event);
    if (fit_)
        scale_ = FitScale();
    UpdateBars();
}

void ImageView::wheelEvent(QWheelEvent* event) {
    const int steps = event->angleDelta().y();
    if (steps == 0) {
        event->ignore();
        return;
    }
    // Keep the image point under the pointer where it is.
    const QPointF pos = event->position();
    const QPoint o = Origin();
    const double ix = (pos.x() - o.x()) / scale_, iy = (pos.y() - o.y()) / scale_;
    if (steps > 0)
        ZoomIn();
    else
        ZoomOut();
    horizontalScrollBar()->setValue(static_cast<int>(std::lround(ix * scale_ - pos.x())));
    verticalScrollBar()->setValue(static_cast<int>(std::lround(iy * scale_ - pos.y())));
    viewport()->update();
    event->accept();
}

void ImageView::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton || event->button() == Qt::MiddleButton) {
        panning_ = true;
        panStart_ = event->position().toPoint();
        panBars_ = {horizontalScrollBar()->value(), verticalScrollBar()->value()};
        viewport()->setCursor(Qt::ClosedHandCursor);
    }
    QAbstractScrollArea::mousePressEvent(event);
}

void ImageView::mouseMoveEvent(QMouseEvent* event) {
    const QPoint pos = event->position().toPoint();
    if (panning_) {
        const QPoint d = pos - panStart_;
        horizontalScrollBar()->setValue(panBars_.x() - d.x());
        verticalScrollBar()->setValue(panBars_.y() - d.y());
        viewport()->update();
    }
    int x = 0, y = 0;
    if (onReadout && image_ && !image_->threadBusy && ImagePoint(pos, &x, &y))
        onReadout(PixelReadout(image_->image, x, y));
    if (onStarReadout && image_ && !image_->threadBusy)
        onStarReadout(ImagePoint(pos, &x, &y) ? StarShapeReadout(*image_, x, y) : QString());
    QAbstractScrollArea::mouseMoveEvent(event);
}

void ImageView::mouseReleaseEvent(QMouseEvent* event) {
    if (panning_) {
        panning_ = false;
        viewport()->unsetCursor();
    }
    QAbstractScrollArea::mouseReleaseEvent(event);
}

// ---- ImageSubWindow -------------------------------------------------------------------------

ImageSubWindow::ImageSubWindow(ImageView* view, QWidget* parent)
    : QMdiSubWindow(parent), view_(view) {
    setWidget(view);
    setAttribute(Qt::WA_DeleteOnClose);
}

void ImageSubWindow::closeEvent(QCloseEvent* event) {
    if (!closeWithoutAsking && onCloseRequest && !onCloseRequest(this)) {
        event->ignore();
        return;
    }
    QMdiSubWindow::closeEvent(event);
}

} // namespace astrivelle
