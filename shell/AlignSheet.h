// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Align Files sheet: the method ("Auto Star" or one of the four point types), its
/// options, and a preview of the selected file on which a click sets the current point (red,
/// blue, then the scale points), each shown as a mark of its colour. The run is the
/// star-match or the point-correlation alignment on the worker.
#pragma once
#include <QColor>
#include <QDialog>
#include <QImage>
#include <QWidget>

#include <array>
#include <map>
#include <memory>
#include <string>

#include "engine/Image.h"
#include "imagesets/AlignPointFiles.h"
#include "imagesets/AlignStarFiles.h"
#include "shell/FileSetFrame.h"

class QCheckBox;
class QRadioButton;
class QSpinBox;

namespace astrivelle {

/// The picture of one image scaled to fit the widget, with coloured marks for the set points.
/// A left click gives the 0-based image pixel under the pointer.
class AlignPreview : public QWidget {
    Q_OBJECT
public:
    explicit AlignPreview(QWidget* parent = nullptr);
    /// Shows `picture` of an image of `width` by `height` (an empty picture clears).
    void SetPicture(const QImage& picture, int width, int height);
    void SetPoints(const std::array<AlignPoint, 10>& points);
    /// The scale from image pixels to widget pixels (fitted, aspect kept).
    double ScaleFactor() const;
    /// The image pixel under a widget point; false outside the picture.
    bool ImagePoint(QPoint pos, int* x, int* y) const;
    /// The widget point at the centre of image pixel (x, y).
    QPoint WidgetPoint(double x, double y) const;

signals:
    void clicked(int x, int y);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

private:
    QImage picture_;
    int width_ = 0, height_ = 0;
    std::array<AlignPoint, 10> points_{};
};

/// "Mosaic Size" (CMosaicSize): the frame the mosaic's sizing pass collected, and the width
/// and height the run is to use, which the user may set (not below the collected extent, so
/// that no image is cut).
class MosaicSizeDialog : public QDialog {
    Q_OBJECT
public:
    static constexpr const char* kTitle = "Mosaic Size";
    MosaicSizeDialog(const AlignMosaicExtent& extent, QWidget* parent = nullptr);
    /// The collected extent as shown: "Collected Extent : %d x %d".
    QLabel* collected = nullptr;
    QSpinBox* widthBox = nullptr;
    QSpinBox* heightBox = nullptr;
    QPushButton* okButton = nullptr;
    QPushButton* cancelButton = nullptr;
};

/// The mark colour of a point slot (red, blue, green, yellow, cyan, orange, purple, teal, sky
/// blue, magenta).
QColor AlignPointColor(int slot);

inline constexpr const char* kRefineNothingText =
    "There is no aligned image set to refine: align the set first.";
inline constexpr const char* kRefineMosaicText =
    "A mosaic alignment can't be refined: its frame already holds the whole set.";

class AlignSheet : public FileSetFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CAlignTSR";
    static constexpr bool kNeedsImage = false;
    explicit AlignSheet(ShellContext& context);
    static AlignSheet* Show(ShellContext& context);

    /// The method index: 0 "Auto Star", then the point types in table order.
    bool AutoStar() const;
    AlignPointType PointType() const;
    /// The requests the controls describe for `usable` (reference and exclusions from the list).
    AutoStarParams StarParams(const std::vector<std::string>& usable,
                              const std::string& outDir) const;
    AlignPointRequest PointRequest(const std::vector<std::string>& usable,
                                   const std::string& outDir) const;

    /// The file the preview shows (the list's current row), empty when none.
    std::string PreviewFile() const { return previewPath_; }
    /// Shows `path` in the preview; false when it can't be read.
    bool ShowPreview(const std::string& path);
    /// Sets the current point slot at the 0-based pixel (x, y) of the previewed file (on the
    /// star's centroid with "On Star"); with "On Reference Image" only the reference takes
    /// points. Advances the slot with "Auto Advance after Select".
    void SetPointAt(int x, int y);
    /// The points set on `path`.
    std::array<AlignPoint, 10> PointsOf(const std::string& path) const;

    /// The sizing pass of the mosaic for the list and points as they stand; false with the
    /// text said through the sheet (nothing said when the user cancelled a radius question).
    bool ComputeMosaicSize(AlignMosaicExtent* extent);
    /// "Mosaic Size...": runs the sizing pass and opens the dialog (non-modal); its OK sets
    /// the frame size of the next run. Null when the pass failed.
    MosaicSizeDialog* OpenMosaicSize();
    /// The frame size set through the dialog; 0 by 0 for the collected extent.
    void SetMosaicSize(int width, int height);
    int MosaicWidth() const { return mosaicWidth_; }
    /// "R&efine Current Alignment": the last run's aligned set becomes the list (its aligned
    /// reference the reference, each file keeping the points of the file it came from) and is
    /// aligned again. False with kRefineNothingText when there is no aligned set, with
    /// kRefineMosaicText in mosaic mode (the frame already holds the whole set).
    bool RefineCurrentAlignment();
    int MosaicHeight() const { return mosaicHeight_; }

    QRadioButton* methodButtons[5] = {};
    QSpinBox* numberOfPoints = nullptr; ///< "Number of Points:" (12PT, 3..10)
    QComboBox* currentPoint = nullptr;  ///< the slot a click sets
    QCheckBox* onStar = nullptr;
    QRadioButton* onEachImage = nullptr;
    QRadioButton* onReferenceImage = nullptr;
    QCheckBox* mosaicMode = nullptr;
    QCheckBox* correlate = nullptr;
    QCheckBox* autoAdvance = nullptr;
    QComboBox* translationRadius = nullptr;
    QComboBox* rotationRadius = nullptr;
    QComboBox* minimumCorrelation = nullptr;
    QComboBox* subPixel = nullptr;
    QComboBox* searchAngle = nullptr;        ///< "Search &Angle In Degrees :"
    QComboBox* angleIncrement = nullptr;     ///< "Search Angle &Increment In Degrees :"
    QPushButton* mosaicSizeButton = nullptr; ///< "Mosaic Size...", in mosaic mode
    QCheckBox* quickAlignment = nullptr;
    QCheckBox* meridianFlip = nullptr;
    QCheckBox* mirrorFlip = nullptr;
    QCheckBox* wideBrightness = nullptr;
    QCheckBox* smallStars = nullptr;
    QPushButton* clearPoints = nullptr;
    QPushButton* refineButton = nullptr; ///< "R&efine Current Alignment"
    AlignPreview* preview = nullptr;
    QLabel* pointText = nullptr;

protected:
    bool Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                 const std::string& prefix, FileSetBody* body) override;

private:
    void Refresh();
    void RefreshSlots();
    void CurrentFileChanged();
    void ShowPoints();
    CImageFileList FileList(const std::vector<std::string>& usable, bool withPoints) const;

    std::string previewPath_;
    std::unique_ptr<Image> previewImage_;
    std::map<std::string, std::array<AlignPoint, 10>> points_;
    int mosaicWidth_ = 0, mosaicHeight_ = 0;
};

/// Moves the 0-based (x, y) to the centroid of the star there (window of radius 14, the
/// luminance of a colour image): the 0-based result. False when the point lies outside.
bool SnapToStar(Image& image, double x, double y, double* outX, double* outY);

} // namespace astrivelle
