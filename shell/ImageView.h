// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The picture of one open image: its display bitmap (Image::FillDib) or the Auto
/// Stretch display adjustment, at a scale from the scale list or fitted to the window, with
/// wheel zoom, panning and a pixel readout. The pixels are only read, never changed.
#pragma once
#include <QAbstractScrollArea>
#include <QImage>
#include <QMdiSubWindow>
#include <QPoint>
#include <QString>

#include <cstdint>
#include <functional>
#include <vector>

#include "engine/Image.h"

namespace astrivelle {

class CDib;
class CProcessWindow;

/// A QImage copy of a DIB: 8-bit indexed with the DIB's colour table, or 24-bit RGB; the
/// DIB's bottom-up rows come out top-down, its row padding dropped. Null for an invalid DIB.
QImage DibToQImage(const CDib& dib);

/// How Auto Stretch shows one channel: levels up to `low` black, `high` and above white, and
/// between them a midtones curve that puts the background (the median) at a quarter of the
/// display range, so faint detail above it becomes visible.
struct StretchCurve {
    double low = 0;
    double high = 65535;
    double midtone = 0.5; ///< the curve's balance: 0.5 is a straight line
};

/// The curve of a channel from its counts of levels 0..65535 (`counts.size()` levels): the
/// median m and the spread s = 1.4826 x the median absolute deviation (robust against
/// stars); low = m - 2.8 s (not below the lowest level present), high = the level under
/// which 99.95% of the pixels lie (above low), and the balance that sends m to 0.25.
StretchCurve AutoStretchCurve(const std::vector<std::uint32_t>& counts);

/// The display byte of `level` under `curve`.
std::uint8_t StretchByte(const StretchCurve& curve, double level);

/// The picture of `image` as shown: with `autoStretch` each channel through its own curve
/// (above), else the bytes of Image::FillDib. Monochrome images get the colour
/// table of their colour type. Null when the image has no planes.
QImage DisplayPicture(const Image& image, bool autoStretch);

/// The readout of one pixel: "X: 3  Y: 2  Value: 1032" for a monochrome image, "X: 3  Y: 2
/// R: 1032  G: 2032  B: 3032" for RGB (levels 0..65535). Empty outside the image.
QString PixelReadout(const Image& image, int x, int y);

/// Scales of the View menu's list: 0.1 .. 2.0 in steps of 0.1.
std::vector<double> DisplayScales();

class ImageView : public QAbstractScrollArea {
    Q_OBJECT
public:
    explicit ImageView(CProcessWindow* image, QWidget* parent = nullptr);

    CProcessWindow* Window() const { return image_; }
    /// The image went away (closed by the model): nothing is read from it any more.
    void Detach();

    /// Builds the picture again from the current planes (skipped while a worker owns them:
    /// the refresh after the worker ends shows the result).
    void Refresh();
    const QImage& Picture() const { return picture_; }

    bool AutoStretch() const { return autoStretch_; }
    void SetAutoStretch(bool on);

    double Scale() const { return scale_; }
    bool Fitted() const { return fit_; }
    /// Shows the image at `scale` (clamped to 0.02 .. 8).
    void SetScale(double scale);
    /// Fits the whole image inside the viewport, keeping its aspect.
    void FitToWindow();
    /// The next larger / smaller scale of the list.
    void ZoomIn();
    void ZoomOut();

    /// The image pixel under a viewport point; false outside the image.
    bool ImagePoint(QPoint viewportPos, int* x, int* y) const;
    /// The viewport point at the centre of image pixel (x, y) as shown now.
    QPoint ViewportPoint(int x, int y) const;

    /// Told whenever the pointer moves over the image, with the readout text.
    std::function<void(const QString&)> onReadout;
    /// Told with the star line under the pointer (StarShapeReadout), empty where no star is.
    std::function<void(const QString&)> onStarReadout;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    void UpdateBars();
    QPoint Origin() const;
    double FitScale() const;

    CProcessWindow* image_;
    QImage picture_;
    double scale_ = 1.0;
    bool fit_ = true;
    bool autoStretch_ = false;
    bool panning_ = false;
    QPoint panStart_;
    QPoint panBars_;
};

/// The frame of one image in the main window's area: a close asks the main frame, which
/// applies the image's closing rules.
class ImageSubWindow : public QMdiSubWindow {
    Q_OBJECT
public:
    ImageSubWindow(ImageView* view, QWidget* parent = nullptr);
    ImageView* View() const { return view_; }
    /// Answers whether the window may close (and closes the image in the model when so).
    std::function<bool(ImageSubWindow*)> onCloseRequest;
    /// Set by the main frame when the model already let the image go: close without asking.
    bool closeWithoutAsking = false;

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    ImageView* view_;
};

} // namespace astrivelle
