// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Align Files sheet.
#include "shell/AlignSheet.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "shell/ImageView.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

FileSetTraits AlignTraits() {
    FileSetTraits t;
    t.kind = FileOpKind::AlignTSR;
    t.operation = kAlignPointOperation;
    t.checkKeyword = "12PTALIGN";
    t.operationWord = "align";
    t.minFiles = 2;
    t.noImageText = kTwoImagesForAlignText;
    t.noUsableText = kAlignPointSizeText;
    t.directoryTitle = "Select Align Save Directory";
    t.runText = QStringLiteral("Align");
    t.hasPrefix = false;
    t.excludeColumn = true;
    t.referenceColumn = true;
    return t;
}

const char* kMethodTexts[5] = {"Auto Star", "Translate Only", "Rotate Only", "Translate + Rotate",
                               "Translate + Scale + Rotate"};
const char* kMethodNames[5] = {"autoStar", "translateOnly", "rotateOnly", "translateRotate",
                               "translateScaleRotate"};

QString SlotLabel(int slot) {
    static const char* kOrdinals[] = {"1st", "2nd", "3rd", "4th", "5th", "6th", "7th", "8th"};
    if (slot == 0)
        return QStringLiteral("Red Translation Point");
    if (slot == 1)
        return QStringLiteral("Blue Rotation Point");
    return QString::fromLatin1(kOrdinals[slot - 2]) +
           QStringLiteral(" Scale Defining Point or Star");
}

} // namespace

// ---- the preview --------------------------------------------------------------------------

QColor AlignPointColor(int slot) {
    static const QColor kColors[10] = {
        QColor(255, 0, 0),     QColor(0, 0, 255),   QColor(0, 200, 0),   QColor(255, 255, 0),
        QColor(0, 255, 255),   QColor(255, 165, 0), QColor(128, 0, 128), QColor(0, 128, 128),
        QColor(135, 206, 235), QColor(255, 0, 255)};
    return kColors[std::clamp(slot, 0, 9)];
}

AlignPreview::AlignPreview(QWidget* parent) : QWidget(parent) {
    setObjectName("preview");
    setFixedSize(320, 240);
    setCursor(Qt::CrossCursor);
}

void AlignPreview::SetPicture(const QImage& picture, int width, int height) {
    picture_ = picture;
    width_ = picture.isNull() ? 0 : width;
    height_ = picture.isNull() ? 0 : height;
    update();
}

void AlignPreview::SetPoints(const std::array<AlignPoint, 10>& points) {
    points_ = points;
    update();
}

double AlignPreview::ScaleFactor() const {
    if (width_ <= 0 || height_ <= 0)
        return 0;
    return std::min(static_cast<double>(width()) / width_, static_cast<double>(height()) / height_);
}

bool AlignPreview::ImagePoint(QPoint pos, int* x, int* y) const {
    const double s = ScaleFactor();
    if (s <= 0)
        return false;
    const int px = static_cast<int>(std::floor(pos.x() / s));
    const int py = static_cast<int>(std::floor(pos.y() / s));
    if (px < 0 || py < 0 || px >= width_ || py >= height_)
        return false;
    *x = px;
    *y = py;
    return true;
}

QPoint AlignPreview::WidgetPoint(double x, double y) const {
    const double s = ScaleFactor();
    return QPoint(static_cast<int>((x + 0.5) * s), static_cast<int>((y + 0.5) * s));
}

void AlignPreview::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), Qt::black);
    const double s = ScaleFactor();
    if (picture_.isNull() || s <= 0)
        return;
    painter.drawImage(QRectF(0, 0, width_ * s, height_ * s), picture_);
    for (int slot = 0; slot < 10; ++slot) {
        const AlignPoint& p = points_[slot];
        if (!p.set)
            continue;
        painter.setPen(QPen(AlignPointColor(slot), 2));
        const QPoint c = WidgetPoint(p.x, p.y);
        painter.drawEllipse(c, 6, 6);
        painter.drawLine(c - QPoint(9, 0), c + QPoint(9, 0));
        painter.drawLine(c - QPoint(0, 9), c + QPoint(0, 9));
    }
}

void AlignPreview::mousePressEvent(QMouseEvent* event) {
    int x = 0, y = 0;
    if (event->button() == Qt::LeftButton && ImagePoint(event->position().toPoint(), &x, &y))
        emit clicked(x, y);
}

// ---- snapping -----------------------------------------------------------------------------

bool SnapToStar(Image& image, double x, double y, double* outX, double* outY) {
    if (image.width == 0 || x < 0 || y < 0 || x >= image.width || y >= image.height)
        return false;
    const float* channel = image.colorType == ColorRGB
                               ? nullptr
                               : image.curPlane[std::max(0, SlotOfColorType(image.colorType))];
    image.LoadNbhd(channel, static_cast<int>(x), static_cast<int>(y), 14);
    double cx = 0, cy = 0;
    image.NbhdCentroid(&cx, &cy);
    *outX = cx - 1.0;
    *outY = cy - 1.0;
    return true;
}

// ---- the sheet ----------------------------------------------------------------------------

AlignSheet* AlignSheet::Show(ShellContext& context) {
    return ToolFrame::ShowTool<AlignSheet>(context);
}

AlignSheet::AlignSheet(ShellContext& context)
    : FileSetFrame(context, QStringLiteral("Align Files"), kClassName, AlignTraits()) {
    QWidget* page = Methods()->parentWidget();
    auto* top = new QHBoxLayout;

    auto* methodBox = new QGroupBox(QStringLiteral("Alignment Method"), page);
    auto* methodLayout = new QVBoxLayout(methodBox);
    auto* methodGroup = new QButtonGroup(methodBox);
    for (int i = 0; i < 5; ++i) {
        methodButtons[i] = new QRadioButton(QString::fromLatin1(kMethodTexts[i]), methodBox);
        methodButtons[i]->setObjectName(kMethodNames[i]);
        methodGroup->addButton(methodButtons[i], i);
        methodLayout->addWidget(methodButtons[i]);
    }
    methodButtons[1]->setChecked(true);
    auto* count = new QHBoxLayout;
    numberOfPoints = new QSpinBox(methodBox);
    numberOfPoints->setObjectName("numberOfPoints");
    numberOfPoints->setRange(3, 10);
    count->addWidget(new QLabel(QStringLiteral("Number of Points:"), methodBox));
    count->addWidget(numberOfPoints);
    methodLayout->addLayout(count);
    connect(numberOfPoints, &QSpinBox::valueChanged, this, [this] { RefreshSlots(); });

    auto* starBox = new QGroupBox(QStringLiteral("Auto Star"), page);
    auto* starLayout = new QVBoxLayout(starBox);
    quickAlignment = MakeCheck(starBox, QStringLiteral("Quick Alignment"), "quickAlignment");
    quickAlignment->setChecked(true);
    meridianFlip = MakeCheck(starBox, QStringLiteral("Meridian Flip"), "meridianFlip");
    mirrorFlip = MakeCheck(starBox, QStringLiteral("Mirror Flip"), "mirrorFlip");
    wideBrightness = MakeCheck(starBox, QStringLiteral("Wide Brightness Range"), "wideBrightness");
    smallStars = MakeCheck(starBox, QStringLiteral("Small Star-Wide Field"), "smallStars");
    for (QCheckBox* c : {quickAlignment, meridianFlip, mirrorFlip, wideBrightness, smallStars})
        starLayout->addWidget(c);
    connect(quickAlignment, &QCheckBox::toggled, this, [this] { Refresh(); });
    top->addWidget(methodBox);
    top->addWidget(starBox);
    Methods()->addLayout(top);

    auto* pointBox = new QGroupBox(QStringLiteral("Points"), page);
    auto* pointGrid = new QFormLayout(pointBox);
    currentPoint = new QComboBox(pointBox);
    currentPoint->setObjectName("currentPoint");
    pointGrid->addRow(QStringLiteral("Select"), currentPoint);
    onStar = MakeCheck(pointBox, QStringLiteral("On Star"), "onStar");
    autoAdvance = MakeCheck(pointBox, QStringLiteral("Auto Advance after Select"), "autoAdvance");
    autoAdvance->setChecked(true);
    onEachImage = new QRadioButton(QStringLiteral("On Each Image"), pointBox);
    onEachImage->setObjectName("onEachImage");
    onReferenceImage = new QRadioButton(QStringLiteral("On Reference Image"), pointBox);
    onReferenceImage->setObjectName("onReferenceImage");
    auto* where = new QButtonGroup(pointBox);
    where->addButton(onEachImage);
    where->addButton(onReferenceImage);
    onReferenceImage->setChecked(true);
    correlate = MakeCheck(pointBox, QStringLiteral("Correlate"), "correlate");
    correlate->setChecked(true);
    mosaicMode = MakeCheck(pointBox, QStringLiteral("Mosaic Mode"), "mosaicMode");
    pointGrid->addRow(SpreadRow({onStar, autoAdvance}));
    pointGrid->addRow(SpreadRow({onReferenceImage, onEachImage}));
    pointGrid->addRow(SpreadRow({correlate, mosaicMode}));
    translationRadius = new QComboBox(pointBox);
    translationRadius->setObjectName("translationRadius");
    rotationRadius = new QComboBox(pointBox);
    rotationRadius->setObjectName("rotationRadius");
    for (int r = 10; r <= 200; r += 10)
        for (QComboBox* c : {translationRadius, rotationRadius})
            c->addItem(QString::number(r));
    translationRadius->setCurrentText("30");
    rotationRadius->setCurrentText("30");
    minimumCorrelation = new QComboBox(pointBox);
    minimumCorrelation->setObjectName("minimumCorrelation");
    for (int m = 0; m <= 100; m += 5)
        minimumCorrelation->addItem(QString::number(m));
    minimumCorrelation->setCurrentText("70");
    subPixel = new QComboBox(pointBox);
    subPixel->setObjectName("subPixel");
    for (const char* s : {"0.1", "0.2", "0.5", "1.0"})
        subPixel->addItem(QString::fromLatin1(s));
    pointGrid->addRow(QStringLiteral("Correlation Neighborhood Pixel &Radius :"),
                      translationRadius);
    pointGrid->addRow(QStringLiteral("Rotation Neighborhood Pixel Radius :"), rotationRadius);
    pointGrid->addRow(QStringLiteral("&Minimum Acceptable Correlation % :"), minimumCorrelation);
    pointGrid->addRow(QStringLiteral("Sub-Pixel Step :"), subPixel);
    searchAngle = new QComboBox(pointBox);
    searchAngle->setObjectName("searchAngle");
    for (const std::string& a : SearchAngleChoices())
        searchAngle->addItem(QString::fromStdString(a));
    searchAngle->setCurrentText("1.0");
    angleIncrement = new QComboBox(pointBox);
    angleIncrement->setObjectName("angleIncrement");
    for (const std::string& a : AngleIncrementChoices())
        angleIncrement->addItem(QString::fromStdString(a));
    angleIncrement->setCurrentText("0.10");
    pointGrid->addRow(QStringLiteral("Search &Angle In Degrees :"), searchAngle);
    pointGrid->addRow(QStringLiteral("Search Angle &Increment In Degrees :"), angleIncrement);
    mosaicSizeButton = MakeButton(pointBox, QStringLiteral("Mosaic Size..."), "mosaicSize");
    pointGrid->addRow(mosaicSizeButton);
    connect(mosaicSizeButton, &QPushButton::clicked, this, [this] { OpenMosaicSize(); });
    connect(mosaicMode, &QCheckBox::toggled, this, [this] { Refresh(); });
    clearPoints = MakeButton(pointBox, QStringLiteral("Clear Points"), "clearPoints");
    pointGrid->addRow(clearPoints);
    connect(clearPoints, &QPushButton::clicked, this, [this] {
        points_.erase(previewPath_);
        ShowPoints();
    });

    auto* previewColumn = new QVBoxLayout;
    preview = new AlignPreview(page);
    pointText = new QLabel(page);
    pointText->setObjectName("pointText");
    previewColumn->addWidget(preview);
    previewColumn->addWidget(pointText);
    previewColumn->addStretch(1);
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(pointBox);
    bottom->addLayout(previewColumn);
    Methods()->addLayout(bottom);
    refineButton = MakeButton(page, QStringLiteral("R&efine Current Alignment"), "refine");
    Methods()->addLayout(SpreadRow({}, refineButton));
    Methods()->addStretch(1);
    connect(refineButton, &QPushButton::clicked, this, [this] { RefineCurrentAlignment(); });
    connect(preview, &AlignPreview::clicked, this, [this](int x, int y) { SetPointAt(x, y); });
    connect(fileList, &QTreeWidget::currentItemChanged, this, [this] { CurrentFileChanged(); });
    for (QRadioButton* b : methodButtons)
        connect(b, &QRadioButton::toggled, this, [this] { Refresh(); });
    Refresh();
}

bool AlignSheet::RefineCurrentAlignment() {
    if (Running())
        return false;
    const FileOpResult& last = LastResult();
    if (last.outputs.size() < 2 || last.inputs.size() != last.outputs.size()) {
        Say(kRefineNothingText);
        return false;
    }
    if (!AutoStar() && mosaicMode->isChecked()) {
        Say(kRefineMosaicText);
        return false;
    }
    const std::string reference = ReferenceFile();
    std::string alignedReference;
    std::map<std::string, std::array<AlignPoint, 10>> carried;
    for (std::size_t k = 0; k < last.outputs.size(); ++k) {
        if (last.inputs[k] == reference)
            alignedReference = last.outputs[k];
        if (const auto it = points_.find(last.inputs[k]); it != points_.end())
            carried[last.outputs[k]] = it->second;
    }
    const std::vector<std::string> outputs = last.outputs;
    SetInputFiles(outputs);
    for (const auto& [path, points] : carried)
        points_[path] = points;
    SetReferenceFile(alignedReference.empty() ? outputs.front() : alignedReference);
    ShowPoints();
    return Run();
}

bool AlignSheet::AutoStar() const {
    return methodButtons[0]->isChecked();
}

AlignPointType AlignSheet::PointType() const {
    if (methodButtons[2]->isChecked())
        return AlignPointType::Rotate;
    if (methodButtons[3]->isChecked())
        return AlignPointType::TranslateRotate;
    if (methodButtons[4]->isChecked())
        return AlignPointType::TranslateScaleRotate;
    return AlignPointType::Translate;
}

void AlignSheet::Refresh() {
    const bool star = AutoStar();
    const bool quick = quickAlignment->isChecked();
    quickAlignment->setEnabled(star);
    for (QCheckBox* c : {meridianFlip, mirrorFlip, wideBrightness, smallStars})
        c->setEnabled(star && quick);
    numberOfPoints->setEnabled(!star && PointType() == AlignPointType::TranslateScaleRotate);
    for (QWidget* w : std::initializer_list<QWidget*>{
             currentPoint, onStar, autoAdvance, onEachImage, onReferenceImage, correlate,
             mosaicMode, translationRadius, rotationRadius, minimumCorrelation, subPixel,
             searchAngle, angleIncrement, clearPoints})
        w->setEnabled(!star);
    mosaicSizeButton->setEnabled(!star && mosaicMode->isChecked());
    RefreshSlots();
}

void AlignSheet::RefreshSlots() {
    int count = 1;
    if (!AutoStar() && PointType() != AlignPointType::Translate)
        count = PointType() == AlignPointType::TranslateScaleRotate ? numberOfPoints->value() : 2;
    const int keep = std::min(currentPoint->currentIndex(), count - 1);
    currentPoint->clear();
    for (int s = 0; s < count; ++s)
        currentPoint->addItem(SlotLabel(s));
    currentPoint->setCurrentIndex(std::max(keep, 0));
}

void AlignSheet::CurrentFileChanged() {
    QTreeWidgetItem* item = fileList->currentItem();
    if (!item) {
        previewPath_.clear();
        preview->SetPicture(QImage(), 0, 0);
        ShowPoints();
        return;
    }
    ShowPreview(item->text(0).toStdString());
}

bool AlignSheet::ShowPreview(const std::string& path) {
    previewPath_ = path;
    auto image = std::make_unique<Image>();
    if (!image->ReadFile(path, std::filesystem::path(path).extension().string())) {
        previewImage_.reset();
        preview->SetPicture(QImage(), 0, 0);
        ShowPoints();
        return false;
    }
    previewImage_ = std::move(image);
    preview->SetPicture(DisplayPicture(*previewImage_, true),
                        static_cast<int>(previewImage_->width),
                        static_cast<int>(previewImage_->height));
    ShowPoints();
    return true;
}

std::array<AlignPoint, 10> AlignSheet::PointsOf(const std::string& path) const {
    const auto it = points_.find(path);
    return it == points_.end() ? std::array<AlignPoint, 10>{} : it->second;
}

void AlignSheet::ShowPoints() {
    const std::array<AlignPoint, 10> points = PointsOf(previewPath_);
    preview->SetPoints(points);
    QStringList words;
    for (int s = 0; s < 10; ++s)
        if (points[s].set)
            words << QString::asprintf("%s (%.2f, %.2f)", AlignPointColorName(s), points[s].x,
                                       points[s].y);
    pointText->setText(words.join(QStringLiteral("  ")));
}

void AlignSheet::SetPointAt(int x, int y) {
    if (previewPath_.empty() || AutoStar())
        return;
    if (onReferenceImage->isChecked() && previewPath_ != ReferenceFile()) {
        Say(kSelectReferenceText);
        return;
    }
    const int slot = std::max(currentPoint->currentIndex(), 0);
    double px = x, py = y;
    if (onStar->isChecked() && previewImage_)
        SnapToStar(*previewImage_, x, y, &px, &py);
    AlignPoint& p = points_[previewPath_][slot];
    p.x = px;
    p.y = py;
    p.set = 1;
    if (autoAdvance->isChecked() && slot + 1 < currentPoint->count())
        currentPoint->setCurrentIndex(slot + 1);
    ShowPoints();
}

CImageFileList AlignSheet::FileList(const std::vector<std::string>& usable, bool withPoints) const {
    const std::string reference = ReferenceFile();
    const std::vector<std::string> included = IncludedFiles();
    CImageFileList list;
    for (const std::string& path : InputFiles()) {
        const bool isIncluded = std::find(included.begin(), included.end(), path) != included.end();
        const bool isUsable = std::find(usable.begin(), usable.end(), path) != usable.end();
        if (isIncluded && !isUsable)
            continue; // refused by the check
        CImageFileInfo info;
        info.path = path;
        info.isReference = path == reference ? 1 : 0;
        info.excluded = isIncluded ? 0 : 1;
        info.listIndex = static_cast<std::int32_t>(list.size());
        if (withPoints)
            info.points = PointsOf(path);
        list.push_back(info);
    }
    return list;
}

AutoStarParams AlignSheet::StarParams(const std::vector<std::string>& usable,
                                      const std::string& outDir) const {
    AutoStarParams p;
    p.files = FileList(usable, false);
    p.referencePath = ReferenceFile();
    p.outputDirectory = outDir;
    p.quickAlignment = quickAlignment->isChecked();
    // The four flags count only with Quick Alignment.
    p.meridianFlip = p.quickAlignment && meridianFlip->isChecked();
    p.mirrorFlip = p.quickAlignment && mirrorFlip->isChecked();
    p.wideBrightnessRange = p.quickAlignment && wideBrightness->isChecked();
    p.shortFLSmallStars = p.quickAlignment && smallStars->isChecked();
    return p;
}

AlignPointRequest AlignSheet::PointRequest(const std::vector<std::string>& usable,
                                           const std::string& outDir) const {
    AlignPointRequest r;
    r.files = FileList(usable, true);
    r.outputDirectory = outDir;
    r.type = PointType();
    r.translationRadius = translationRadius->currentText().toInt();
    r.rotationRadius = rotationRadius->currentText().toInt();
    r.minimum = minimumCorrelation->currentText().toInt() / 100.0;
    r.subPixelStep = QLocale::c().toDouble(subPixel->currentText());
    r.correlate = correlate->isChecked();
    r.mosaic = mosaicMode->isChecked();
    r.searchAngle = QLocale::c().toDouble(searchAngle->currentText());
    r.angleIncrement = QLocale::c().toDouble(angleIncrement->currentText());
    r.mosaicWidth = mosaicWidth_;
    r.mosaicHeight = mosaicHeight_;
    // Points are put on their stars when they are set.
    r.pointsOnStars = false;
    return r;
}

// ---- mosaic size --------------------------------------------------------------------------

MosaicSizeDialog::MosaicSizeDialog(const AlignMosaicExtent& extent, QWidget* parent)
    : QDialog(parent) {
    setObjectName("CMosaicSize");
    setWindowTitle(kTitle);
    auto* form = new QFormLayout(this);
    collected = new QLabel(QString::asprintf("Collected Extent : %d x %d", extent.collectedWidth,
                                             extent.collectedHeight),
                           this);
    collected->setObjectName("collected");
    form->addRow(collected);
    widthBox = new QSpinBox(this);
    widthBox->setObjectName("mosaicWidth");
    heightBox = new QSpinBox(this);
    heightBox->setObjectName("mosaicHeight");
    widthBox->setRange(std::max(extent.collectedWidth, 1), 1 << 16);
    heightBox->setRange(std::max(extent.collectedHeight, 1), 1 << 16);
    widthBox->setValue(extent.width);
    heightBox->setValue(extent.height);
    form->addRow(QStringLiteral("Mosaic &Width :"), widthBox);
    form->addRow(QStringLiteral("Mosaic &Height :"), heightBox);
    auto* buttons = OkCancel(this, form);
    okButton = buttons->button(QDialogButtonBox::Ok);
    cancelButton = buttons->button(QDialogButtonBox::Cancel);
}

void AlignSheet::SetMosaicSize(int width, int height) {
    mosaicWidth_ = std::max(width, 0);
    mosaicHeight_ = std::max(height, 0);
}

bool AlignSheet::ComputeMosaicSize(AlignMosaicExtent* extent) {
    AlignPointRequest request = PointRequest(InputFiles(), std::string());
    request.mosaic = true;
    std::string text;
    if (!AlignPointMosaicSize(request, &Notify(), extent, &text)) {
        if (!text.empty())
            Say(text);
        return false;
    }
    return true;
}

MosaicSizeDialog* AlignSheet::OpenMosaicSize() {
    AlignMosaicExtent extent;
    if (!ComputeMosaicSize(&extent))
        return nullptr;
    if (auto* open = findChild<MosaicSizeDialog*>())
        delete open;
    auto* dialog = new MosaicSizeDialog(extent, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    const int collectedW = extent.collectedWidth, collectedH = extent.collectedHeight;
    connect(dialog, &QDialog::accepted, this, [this, dialog, collectedW, collectedH] {
        const int w = dialog->widthBox->value(), h = dialog->heightBox->value();
        // The collected extent itself is kept as "no size set", so that a later change of
        // the list or the points sizes the frame afresh.
        if (w == collectedW && h == collectedH)
            SetMosaicSize(0, 0);
        else
            SetMosaicSize(w, h);
    });
    dialog->show();
    return dialog;
}

bool AlignSheet::Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                         const std::string&, FileSetBody* body) {
    if (AutoStar()) {
        const AutoStarParams params = StarParams(usable, outDir);
        *body = [params](IProgress& progress, INotify& notify) {
            return AlignStarFiles(params, &progress, &notify).run;
        };
        return true;
    }
    const AlignPointRequest request = PointRequest(usable, outDir);
    *body = [request](IProgress& progress, INotify& notify) {
        return AlignPointFiles(request, &progress, &notify).run;
    };
    return true;
}

} // namespace astrivelle
