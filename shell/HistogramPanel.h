// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The histogram panel of the main window: the 256 display bins of the active image
/// (Image::BuildDisplayHistogram, one curve per channel of an RGB image) and its measures.
#pragma once
#include <QWidget>

#include <array>
#include <cstdint>
#include <vector>

class QLabel;

namespace astrivelle {

class CProcessWindow;

/// The display bins of each channel of `window`'s image (one entry for a monochrome image,
/// red, green, blue for RGB), built with Image::BuildDisplayHistogram. Empty without planes.
std::vector<std::array<std::uint32_t, 256>> DisplayHistograms(CProcessWindow& window);

class HistogramCurves : public QWidget {
    Q_OBJECT
public:
    explicit HistogramCurves(QWidget* parent = nullptr);
    void SetCurves(std::vector<std::array<std::uint32_t, 256>> curves, bool rgb);
    QSize sizeHint() const override { return {260, 120}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::vector<std::array<std::uint32_t, 256>> curves_;
    bool rgb_ = false;
};

class HistogramPanel : public QWidget {
    Q_OBJECT
public:
    explicit HistogramPanel(QWidget* parent = nullptr);
    /// Shows `window`'s histogram and measures; null clears the panel. Skipped while a worker
    /// owns the image.
    void ShowImage(CProcessWindow* window);
    QString MeasuresText() const;

private:
    HistogramCurves* curves_;
    QLabel* measures_;
};

} // namespace astrivelle
