// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Automatic Image Set Process sheet.
#include "shell/FileSetProcessSheet.h"
#include "shell/PostToGui.h"

#include <QApplication>
#include <QButtonGroup>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMetaObject>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QTabWidget>
#include <QThread>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <array>
#include <utility>

#include "calibration/Bayer.h"
#include "calibration/CalibrationSetup.h"
#include "engine/SetupParams.h"
#include "engine/SystemOptions.h"
#include "engine/workbench/MainWindow.h"
#include "fileio/FileFilters.h"
#include "imagesets/FileSetRules.h"
#include "imagesets/GradeFiles.h"
#include "shell/CalibrationSetupDialog.h"
#include "shell/FileSetFrame.h"
#include "shell/MainFrame.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

/// A choice shown as `text` and stored as `keyword`.
struct Choice {
    const char* text;
    const char* keyword;
};

constexpr Choice kMethods[] = {
    {"Average", "AVG"},
    {"Excluded Min/Max Average", "EXCAVG"},
    {"Median", "MED"},
    {"Minimum", "MIN"},
    {"Maximum", "MAX"},
    {"Sigma Clip Average", "SIGAVG"},
    {"Sigma Clip Median", "SIGMED"},
    {"Adaptive Addition", "ADPADD"},
};
constexpr Choice kProcessTypes[] = {{"DSLR", "DSLR"}, {"OSC CCD", "OSCCCD"}, {"Mono. CCD", "CCD"}};
constexpr Choice kColorConversions[] = {{"Color At Capture WB", "COLOR"},
                                        {"Bayer No WB", "CFA"},
                                        {"Bayer At Capture WB", "WBCFA"},
                                        {"Bayer Basic Raw", "BASICBAYER"},
                                        {"Mono", "MONO"}};
constexpr Choice kBayerOutputs[] = {
    {"RGB", "RGB"}, {"Green", "GREEN"}, {"Red", "RED"}, {"Blue", "BLUE"}};
constexpr Choice kSaveTypes[] = {{"1&6-Bit TIFF", "TIFF16"},
                                 {"16-bit &FITS", "UNCOMPFIT"},
                                 {"&Lossless 16-bit FITS", "COMPFIT"},
                                 {"&32-bit Float FITS", "COMPFIT32"},
                                 {"Same As Input (Not DSLR Raw)", "SAMEASINPUT"}};
constexpr Choice kNormalizeTargets[] = {{"Image Set Ma&ximum", "MAX"},
                                        {"Image Set A&verage", "AVG"},
                                        {"Image Set Mini&mum", "MIN"},
                                        {"&Specfiy Target Values", "USER"}};
constexpr const char* kLevels[] = {"Normal", "Aggressive", "Very Aggressive"};

constexpr const char* kPageTitles[] = {"Light Frames", "Dark Frames", "Flat Frames",
                                       "Flat Dark Frames", "Bias Frames"};
constexpr const char* kPageNames[] = {"lightPage", "darkPage", "flatPage", "flatDarkPage",
                                      "biasPage"};
constexpr FrameKind kKinds[] = {FrameKind::Light, FrameKind::Dark, FrameKind::Flat,
                                FrameKind::FlatDark, FrameKind::Bias};

constexpr int kStateColumn = 2;

template <std::size_t N>
QComboBox* ChoiceCombo(QWidget* parent, const char* name, const Choice (&choices)[N]) {
    auto* combo = new QComboBox(parent);
    combo->setObjectName(name);
    for (const Choice& c : choices)
        combo->addItem(QString::fromLatin1(c.text), QString::fromLatin1(c.keyword));
    return combo;
}

std::string DataOf(const QComboBox* combo) {
    return combo->currentData().toString().toStdString();
}

void ChooseData(QComboBox* combo, const std::string& keyword) {
    const int at = combo->findData(Q(keyword));
    if (at >= 0)
        combo->setCurrentIndex(at);
}

QString NumberText(double v) {
    return QString::number(v, 'g', QLocale::FloatingPointShortest);
}

/// The eccentricity limit as the list shows it; a value the list lacks is added.
void ChooseEccentricity(QComboBox* combo, double v) {
    QString text = QString::asprintf(" %4.2f", v);
    if (text.trimmed().toDouble() != v)
        text = QStringLiteral(" ") + NumberText(v);
    if (combo->findText(text) < 0)
        combo->addItem(text);
    combo->setCurrentIndex(combo->findText(text));
}

/// Passes every question to `target` and remembers that one was asked.
class AskWatch : public INotify {
public:
    explicit AskWatch(INotify& target) : target_(target) {}
    void Message(const std::string& text, const std::string& title) override {
        target_.Message(text, title);
    }
    Answer Ask(const std::string& text, bool withCancel) override {
        asked = true;
        return target_.Ask(text, withCancel);
    }
    bool asked = false;

private:
    INotify& target_;
};

} // namespace

// ---- the sheet -----------------------------------------------------------------------------

FileSetProcessSheet* FileSetProcessSheet::Show(ShellContext& context) {
    return ToolFrame::ShowTool<FileSetProcessSheet>(context);
}

FileSetProcessSheet::FileSetProcessSheet(ShellContext& context)
    : ToolFrame(context, QStringLiteral("Automatic Image Set Process"), kClassName, 0),
      progress_(std::make_unique<FileSetProcessProgress>(this)),
      workerNotify_(std::make_unique<GuiNotify>(context.Model().notify())) {
    pages = new QTabWidget(this);
    pages->setObjectName("pages");
    for (std::size_t i = 0; i < 5; ++i)
        BuildFramePage(kKinds[i], QString::fromLatin1(kPageTitles[i]));
    BuildProcessPage();
    Body()->addWidget(pages);

    closeButton = MakeButton(this, QStringLiteral("&Done"), "done");
    ButtonRow()->addWidget(closeButton);
    connect(closeButton, &QPushButton::clicked, this, [this] { close(); });

    CAutoProcessParams saved;
    LoadAutoProcessParams(Context().Setup(), &saved); // absent: the defaults
    LoadParams(saved);
}

FileSetProcessSheet::~FileSetProcessSheet() {
    DisconnectFromChildren(this);
    if (running_) {
        progress_->RequestCancel();
        while (running_)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    if (worker_)
        worker_->Join();
}

void FileSetProcessSheet::BuildFramePage(FrameKind kind, const QString& title) {
    const auto k = static_cast<std::size_t>(kind);
    FrameListPage& f = frames_[k];
    f.page = new QWidget(pages);
    f.page->setObjectName(kPageNames[k]);
    auto* layout = new QVBoxLayout(f.page);

    f.files = new QTreeWidget(f.page);
    f.files->setObjectName("files");
    f.files->setRootIsDecorated(false);
    f.files->setSelectionMode(QAbstractItemView::ExtendedSelection);
    f.files->setHeaderLabels({QStringLiteral("File")});
    layout->addWidget(f.files, 1);

    f.addButton = MakeButton(f.page, QStringLiteral("Add Files..."), "addFiles");
    f.removeButton = MakeButton(f.page, QStringLiteral("Remove"), "removeFiles");
    f.clearButton = MakeButton(f.page, QStringLiteral("Clear"), "clearFiles");
    f.count = new QLabel(f.page);
    f.count->setObjectName("count");
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(f.addButton);
    buttons->addWidget(f.removeButton);
    buttons->addWidget(f.clearButton);
    buttons->addStretch(1);
    buttons->addWidget(f.count);
    layout->addLayout(buttons);
    connect(f.addButton, &QPushButton::clicked, this, [this, kind] { BrowseFiles(kind); });
    connect(f.removeButton, &QPushButton::clicked, this, [this, kind] { RemoveSelected(kind); });
    connect(f.clearButton, &QPushButton::clicked, this, [this, kind] {
        Page(kind).files->clear();
        RefreshCount(kind);
    });

    auto* form = new QFormLayout;
    f.method = ChoiceCombo(f.page, "method", kMethods);
    f.name = new QLineEdit(f.page);
    f.name->setObjectName("name");
    f.name->setMaximumWidth(240);
    form->addRow(QStringLiteral("Combination Method"), f.method);
    form->addRow(QStringLiteral("Combination Name"), f.name);
    layout->addLayout(form);

    if (kind == FrameKind::Light) {
        auto* steps = new QGroupBox(QStringLiteral("Steps"), f.page);
        auto* grid = new QGridLayout(steps);
        extraFilters = MakeCheck(steps, QStringLiteral("Extra Filters  -->"), "extraFilters");
        normalize = MakeCheck(steps, QStringLiteral("Normalize  -->"), "normalize");
        grade = MakeCheck(steps, QStringLiteral("Grade -->"), "grade");
        align = MakeCheck(steps, QStringLiteral("Align -->"), "align");
        combine = MakeCheck(steps, QStringLiteral("Combine"), "combine");
        minimizeDisk = MakeCheck(steps, QStringLiteral("Minimize Hard Drive Use "), "minimizeDisk");
        displayCombination =
            MakeCheck(steps, QStringLiteral("Display Combination"), "displayCombination");
        grid->addWidget(extraFilters, 0, 0);
        grid->addWidget(normalize, 0, 1);
        grid->addWidget(grade, 0, 2);
        grid->addWidget(align, 0, 3);
        grid->addWidget(combine, 0, 4);
        grid->addWidget(minimizeDisk, 1, 0, 1, 2);
        grid->addWidget(displayCombination, 1, 2, 1, 2);
        layout->addWidget(steps);
        for (QCheckBox* c : {extraFilters, normalize, grade, align, combine})
            connect(c, &QCheckBox::toggled, this, [this] { RefreshEnabled(); });
    } else if (kind == FrameKind::Flat) {
        normalizeFlats =
            MakeCheck(f.page, QStringLiteral("Normalize Flat Frames"), "normalizeFlats");
        layout->addWidget(normalizeFlats);
    }
    pages->addTab(f.page, title);
    RefreshCount(kind);
}

void FileSetProcessSheet::BuildProcessPage() {
    processPage = new QWidget(pages);
    processPage->setObjectName("processPage");
    auto* layout = new QVBoxLayout(processPage);

    parameters_ = new QGroupBox(QStringLiteral("Process Parameters"), processPage);
    parameters_->setObjectName("parameters");
    auto* grid = new QGridLayout(parameters_);

    // Process type, colour conversion and the Bayer array.
    auto* typeBox = new QGroupBox(QStringLiteral("Image Set Process Type"), parameters_);
    auto* typeLayout = new QFormLayout(typeBox);
    typeDslr = MakeRadio(typeBox, kProcessTypes[0].text, "typeDslr");
    typeOsc = MakeRadio(typeBox, kProcessTypes[1].text, "typeOsc");
    typeMono = MakeRadio(typeBox, kProcessTypes[2].text, "typeMono");
    auto* typeGroup = new QButtonGroup(typeBox);
    auto* typeRow = new QHBoxLayout;
    for (QRadioButton* r : {typeDslr, typeOsc, typeMono}) {
        typeGroup->addButton(r);
        typeRow->addWidget(r);
        connect(r, &QRadioButton::toggled, this, [this] { RefreshEnabled(); });
    }
    typeLayout->addRow(typeRow);
    colorConversion = ChoiceCombo(typeBox, "colorConversion", kColorConversions);
    frameType = new QComboBox(typeBox);
    frameType->setObjectName("frameType");
    for (const CfaFrameType& row : CfaFrameTypes())
        frameType->addItem(QString::fromLatin1(row.shown), QString::fromLatin1(row.keyword));
    bayerOutput = ChoiceCombo(typeBox, "bayerOutput", kBayerOutputs);
    typeLayout->addRow(QStringLiteral("Color Conversion"), colorConversion);
    auto* frameLabel = new QLabel(QStringLiteral("Frame &Type:"), typeBox);
    frameLabel->setBuddy(frameType);
    typeLayout->addRow(frameLabel, frameType);
    typeLayout->addRow(QStringLiteral("Bayer Output"), bayerOutput);
    connect(colorConversion, &QComboBox::currentIndexChanged, this, [this] { RefreshEnabled(); });
    grid->addWidget(typeBox, 0, 0);

    // Intermediate file type.
    auto* saveBox = new QGroupBox(QStringLiteral("Intermediate File Type"), parameters_);
    auto* saveLayout = new QVBoxLayout(saveBox);
    auto* saveGroup = new QButtonGroup(saveBox);
    const char* saveNames[5] = {"saveTiff16", "saveFits16", "saveLossless", "saveFloat",
                                "saveSameAsInput"};
    for (int i = 0; i < 5; ++i) {
        saveTypes[i] = MakeRadio(saveBox, kSaveTypes[i].text, saveNames[i]);
        saveGroup->addButton(saveTypes[i]);
        saveLayout->addWidget(saveTypes[i]);
    }
    grid->addWidget(saveBox, 0, 1);

    // Raw conversion and calibration.
    auto* rawBox = new QGroupBox(QStringLiteral("Calibration"), parameters_);
    auto* rawLayout = new QFormLayout(rawBox);
    autoDarkMatch = MakeCheck(rawBox, QStringLiteral("DSLR Automatic Master Dark Frame Matching"),
                              "autoDarkMatch");
    adaptiveWithDark = MakeCheck(rawBox, QStringLiteral("With Dark Subtract"), "adaptiveWithDark");
    adaptiveWithoutDark =
        MakeCheck(rawBox, QStringLiteral("Without Dark Subtract"), "adaptiveWithoutDark");
    adaptiveLevel = MakeCombo(rawBox, "adaptiveLevel", std::to_array(kLevels));
    rawLayout->addRow(autoDarkMatch);
    rawLayout->addRow(SpreadRow({adaptiveWithDark, adaptiveWithoutDark}));
    rawLayout->addRow(QStringLiteral("Adaptive Pixel Reduction"), adaptiveLevel);
    grid->addWidget(rawBox, 1, 0);

    // Extra filters.
    auto* filterBox = new QGroupBox(QStringLiteral("Extra Filters"), parameters_);
    auto* filterLayout = new QFormLayout(filterBox);
    badPixels = MakeCheck(filterBox, QStringLiteral("Reduce High, Low, Bloom Pixel"), "badPixels");
    aggressiveness = MakeCombo(filterBox, "aggressiveness", std::to_array(kLevels));
    smoothing = MakeCheck(filterBox, QStringLiteral("Smoothing"), "smoothing");
    filterLayout->addRow(badPixels, aggressiveness);
    filterLayout->addRow(smoothing);
    grid->addWidget(filterBox, 1, 1);

    // Normalize.
    auto* normBox = new QGroupBox(QStringLiteral("Normalize"), parameters_);
    auto* normLayout = new QFormLayout(normBox);
    auto* normGroup = new QButtonGroup(normBox);
    const char* normNames[4] = {"normalizeMax", "normalizeAverage", "normalizeMin",
                                "normalizeUser"};
    auto* normRow = new QHBoxLayout;
    for (int i = 0; i < 4; ++i) {
        normalizeTargets[i] = MakeRadio(normBox, kNormalizeTargets[i].text, normNames[i]);
        normGroup->addButton(normalizeTargets[i]);
        normRow->addWidget(normalizeTargets[i]);
        connect(normalizeTargets[i], &QRadioButton::toggled, this, [this] { RefreshEnabled(); });
    }
    normLayout->addRow(normRow);
    background = MakeNumberEdit(normBox, "background");
    deviation = MakeNumberEdit(normBox, "deviation");
    setDeviation = MakeCheck(
        normBox, QStringLiteral("Use Average Standard Deviation From Image Set"), "setDeviation");
    normLayout->addRow(QStringLiteral("&Average Background Level:"), background);
    normLayout->addRow(QStringLiteral("Average Std &Deviation:"), deviation);
    normLayout->addRow(setDeviation);
    grid->addWidget(normBox, 2, 0);

    // Grade.
    auto* gradeBox = new QGroupBox(QStringLiteral("Grade"), parameters_);
    auto* gradeGrid = new QGridLayout(gradeBox);
    maxEcc = MakeRadio(gradeBox, "Max Allowed Eccentricity", "maxEcc");
    percentEcc = MakeRadio(gradeBox, "Use Best Percentage of Set", "percentEcc");
    autoEcc = MakeRadio(gradeBox, "Auto", "autoEcc");
    auto* gradeGroup = new QButtonGroup(gradeBox);
    for (QRadioButton* r : {maxEcc, percentEcc, autoEcc}) {
        gradeGroup->addButton(r);
        connect(r, &QRadioButton::toggled, this, [this] { RefreshEnabled(); });
    }
    maxEccValue = new QComboBox(gradeBox);
    maxEccValue->setObjectName("maxEccValue");
    for (int k = 1; k <= 19; ++k)
        maxEccValue->addItem(QString::asprintf(" %4.2f", k * 0.05));
    percentValue = new QComboBox(gradeBox);
    percentValue->setObjectName("percentValue");
    for (int p = 95; p >= 5; p -= 5)
        percentValue->addItem(QString::asprintf(" %2d%% ", p));
    gradeGrid->addWidget(maxEcc, 0, 0);
    gradeGrid->addWidget(maxEccValue, 0, 1);
    gradeGrid->addWidget(percentEcc, 1, 0);
    gradeGrid->addWidget(percentValue, 1, 1);
    gradeGrid->addWidget(autoEcc, 2, 0);
    grid->addWidget(gradeBox, 2, 1);

    // Align.
    auto* alignBox = new QGroupBox(QStringLiteral("Align"), parameters_);
    auto* alignLayout = new QGridLayout(alignBox);
    quickAlign = MakeCheck(alignBox, QStringLiteral("Quick Alignment"), "quickAlign");
    meridianFlip = MakeCheck(alignBox, QStringLiteral("Meridian Flip"), "meridianFlip");
    mirrorFlip = MakeCheck(alignBox, QStringLiteral("Mirror Flip"), "mirrorFlip");
    wideRange = MakeCheck(alignBox, QStringLiteral("Wide Brightness Range"), "wideRange");
    smallStars = MakeCheck(alignBox, QStringLiteral("Short F.L. - Small Stars"), "smallStars");
    alignLayout->addWidget(quickAlign, 0, 0);
    alignLayout->addWidget(meridianFlip, 0, 1);
    alignLayout->addWidget(mirrorFlip, 0, 2);
    alignLayout->addWidget(wideRange, 1, 0);
    alignLayout->addWidget(smallStars, 1, 1);
    grid->addWidget(alignBox, 3, 0);

    // Combine.
    auto* combineBox = new QGroupBox(QStringLiteral("Combine"), parameters_);
    auto* combineLayout = new QFormLayout(combineBox);
    clipFactor = MakeNumberEdit(combineBox, "clipFactor");
    combineLayout->addRow(QStringLiteral("Standard Deviation Clip Factor:"), clipFactor);
    convertedPrefix = new QLineEdit(combineBox);
    convertedPrefix->setObjectName("convertedPrefix");
    combineLayout->addRow(QStringLiteral("Converted File Prefix: "), convertedPrefix);
    grid->addWidget(combineBox, 3, 1);

    // Output folder.
    auto* dirRow = new QHBoxLayout;
    outputDirectory = new QLineEdit(parameters_);
    outputDirectory->setObjectName("outputDirectory");
    browseButton = MakeButton(parameters_, QStringLiteral("Browse..."), "chooseDirectory");
    dirRow->addWidget(new QLabel(QStringLiteral("Output Directory"), parameters_));
    dirRow->addWidget(outputDirectory, 1);
    dirRow->addWidget(browseButton);
    grid->addLayout(dirRow, 4, 0, 1, 2);
    connect(browseButton, &QPushButton::clicked, this, [this] {
        std::string folder = outputDirectory->text().toStdString();
        if (Notify().ChooseFolder("Select Output Save Directory", &folder))
            outputDirectory->setText(Q(folder));
    });
    layout->addWidget(parameters_);

    // The run.
    processButton = MakeButton(processPage, QStringLiteral("&Process"), "process");
    cancelRunButton = MakeButton(processPage, QStringLiteral("&Cancel"), "cancelRun");
    cancelRunButton->setEnabled(false);
    runProgress = new QProgressBar(processPage);
    runProgress->setObjectName("progress");
    runProgress->setRange(0, 1);
    runProgress->setValue(0);
    runProgress->setTextVisible(false);
    counter = new QLabel(processPage);
    counter->setObjectName("counter");
    status = new QLabel(processPage);
    status->setObjectName("status");
    status->setMinimumWidth(200);
    auto* runRow = new QHBoxLayout;
    runRow->addWidget(processButton);
    runRow->addWidget(cancelRunButton);
    runRow->addWidget(runProgress, 1);
    runRow->addWidget(counter);
    layout->addLayout(runRow);
    layout->addWidget(status);
    connect(processButton, &QPushButton::clicked, this, [this] { Process(); });
    connect(cancelRunButton, &QPushButton::clicked, this, [this] {
        if (running_)
            progress_->RequestCancel();
    });

    stepList = new QTreeWidget(processPage);
    stepList->setObjectName("stepList");
    stepList->setRootIsDecorated(false);
    stepList->setHeaderLabels(
        {QStringLiteral("Command"), QStringLiteral("Detail"), QStringLiteral("State")});
    stepList->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    layout->addWidget(stepList, 1);
    summary = new QPlainTextEdit(processPage);
    summary->setObjectName("summary");
    summary->setReadOnly(true);
    layout->addWidget(summary, 1);

    pages->addTab(processPage, QStringLiteral("Process"));
}

INotify& FileSetProcessSheet::Notify() {
    return Context().Model().notify();
}

void FileSetProcessSheet::Say(const std::string& text) {
    status->setText(Q(text));
    if (!text.empty())
        Notify().Message(text);
}

// ---- the frame lists -----------------------------------------------------------------------

void FileSetProcessSheet::AddFiles(FrameKind kind, const QStringList& paths) {
    for (const QString& p : paths)
        new QTreeWidgetItem(Page(kind).files, QStringList{p});
    RefreshCount(kind);
}

std::vector<std::string> FileSetProcessSheet::Files(FrameKind kind) const {
    const QTreeWidget* list = frames_[static_cast<std::size_t>(kind)].files;
    std::vector<std::string> files;
    for (int i = 0; i < list->topLevelItemCount(); ++i)
        files.push_back(list->topLevelItem(i)->text(0).toStdString());
    return files;
}

void FileSetProcessSheet::BrowseFiles(FrameKind kind) {
    const QString filters = QtFilterList(JoinFilters(OpenImageFilterEntries()));
    const QString title = QStringLiteral("Select ") +
                          QString::fromLatin1(kPageTitles[static_cast<std::size_t>(kind)]);
    AddFiles(kind,
             QFileDialog::getOpenFileNames(this, title, Q(Context().Model().lastFolder), filters));
}

void FileSetProcessSheet::RemoveSelected(FrameKind kind) {
    const QList<QTreeWidgetItem*> chosen = Page(kind).files->selectedItems();
    if (chosen.isEmpty()) {
        Notify().Message("Please left-click on one or more files to delete.");
        return;
    }
    for (QTreeWidgetItem* item : chosen)
        delete item;
    RefreshCount(kind);
}

void FileSetProcessSheet::RefreshCount(FrameKind kind) {
    FrameListPage& f = Page(kind);
    f.count->setText(QStringLiteral("%1 Files").arg(f.files->topLevelItemCount()));
}

void FileSetProcessSheet::RefreshEnabled() {
    const bool mono = typeMono->isChecked();
    colorConversion->setEnabled(!mono);
    const std::string color = DataOf(colorConversion);
    const bool bayer = !mono && color != "COLOR";
    frameType->setEnabled(bayer);
    bayerOutput->setEnabled(bayer && color != "MONO");
    const bool filters = extraFilters->isChecked();
    badPixels->setEnabled(filters);
    aggressiveness->setEnabled(filters);
    smoothing->setEnabled(filters);
    const bool norm = normalize->isChecked();
    for (QRadioButton* r : normalizeTargets)
        r->setEnabled(norm);
    const bool user = norm && normalizeTargets[3]->isChecked();
    background->setEnabled(user);
    deviation->setEnabled(user);
    setDeviation->setEnabled(user);
    const bool grading = grade->isChecked();
    for (QRadioButton* r : {maxEcc, percentEcc, autoEcc})
        r->setEnabled(grading);
    maxEccValue->setEnabled(grading && maxEcc->isChecked());
    percentValue->setEnabled(grading && percentEcc->isChecked());
    const bool aligning = align->isChecked();
    for (QCheckBox* c : {quickAlign, meridianFlip, mirrorFlip, wideRange, smallStars})
        c->setEnabled(aligning);
    clipFactor->setEnabled(combine->isChecked());
}

// ---- the parameters ------------------------------------------------------------------------

bool FileSetProcessSheet::ReadParams(CAutoProcessParams* params) {
    CAutoProcessParams& p = *params;
    for (FrameKind k : kKinds) {
        FrameListPage& f = Page(k);
        FrameSetPage& page = p.Page(k);
        page.files = Files(k);
        page.method = DataOf(f.method);
        page.name = f.name->text().trimmed().toStdString();
    }
    p.processType = typeDslr->isChecked() ? "DSLR" : typeOsc->isChecked() ? "OSCCCD" : "CCD";
    p.colorType = DataOf(colorConversion);
    p.frameType = ComboText(frameType);
    p.cfaPattern = DataOf(frameType);
    p.bayerOutput = DataOf(bayerOutput);
    for (int i = 0; i < 5; ++i)
        if (saveTypes[i]->isChecked())
            p.saveType = kSaveTypes[i].keyword;

    p.autoDarkMatch = autoDarkMatch->isChecked();
    p.adaptiveWithDark = adaptiveWithDark->isChecked();
    p.adaptiveWithoutDark = adaptiveWithoutDark->isChecked();
    p.adaptiveLevel = ComboText(adaptiveLevel);

    p.filters = extraFilters->isChecked();
    p.filterBadPixels = badPixels->isChecked();
    p.filterSmoothing = smoothing->isChecked();
    p.aggressiveness = ComboText(aggressiveness);

    p.normalizeFlats = normalizeFlats->isChecked();
    p.normalize = "NONE";
    if (normalize->isChecked())
        for (int i = 0; i < 4; ++i)
            if (normalizeTargets[i]->isChecked())
                p.normalize = kNormalizeTargets[i].keyword;
    p.normalizeSetDeviation = setDeviation->isChecked();

    p.grade = !grade->isChecked()       ? "NONE"
              : maxEcc->isChecked()     ? kGradeMaxEcc
              : percentEcc->isChecked() ? kGradePercentEcc
                                        : kGradeAutoEcc;
    p.gradeMaxEccentricity = maxEccValue->currentText().trimmed().toDouble();
    p.gradePercent = percentValue->currentText().remove('%').trimmed().toInt();

    p.align = !align->isChecked() ? "NONE" : quickAlign->isChecked() ? "QUICK" : "AUTOSTAR";
    p.meridianFlip = meridianFlip->isChecked();
    p.mirrorFlip = mirrorFlip->isChecked();
    p.wideRange = wideRange->isChecked();
    p.smallStars = smallStars->isChecked();

    p.combine = combine->isChecked();
    p.minimizeDisk = minimizeDisk->isChecked();
    p.displayCombination = displayCombination->isChecked();
    p.outputDirectory = outputDirectory->text().trimmed().toStdString();
    p.convertedPrefix = convertedPrefix->text().toStdString();

    // The numbers last: a refusal leaves the focus in its field.
    for (auto [edit, value] :
         {std::pair{background, &p.normalizeBackground},
          std::pair{deviation, &p.normalizeDeviation}, std::pair{clipFactor, &p.clipFactor}}) {
        bool ok = false;
        const double v = edit->text().trimmed().toDouble(&ok);
        if (!ok) {
            Say("Please Enter a Real Number.");
            edit->setFocus();
            return false;
        }
        *value = v;
    }
    return true;
}

void FileSetProcessSheet::LoadParams(const CAutoProcessParams& p) {
    for (FrameKind k : kKinds) {
        FrameListPage& f = Page(k);
        const FrameSetPage& page = p.Page(k);
        f.files->clear();
        for (const std::string& file : page.files)
            new QTreeWidgetItem(f.files, QStringList{Q(file)});
        RefreshCount(k);
        ChooseData(f.method, page.method);
        f.name->setText(Q(page.name));
    }
    typeDslr->setChecked(p.processType == "DSLR");
    typeOsc->setChecked(p.processType == "OSCCCD");
    typeMono->setChecked(p.processType != "DSLR" && p.processType != "OSCCCD");
    ChooseData(colorConversion, p.colorType);
    // The entry by its text, else the first one with the array code.
    const int row = frameType->findText(Q(p.frameType));
    if (row >= 0 && frameType->itemData(row).toString().toStdString() == p.cfaPattern)
        frameType->setCurrentIndex(row);
    else
        ChooseData(frameType, p.cfaPattern);
    ChooseData(bayerOutput, p.bayerOutput);
    for (int i = 0; i < 5; ++i)
        saveTypes[i]->setChecked(p.saveType == kSaveTypes[i].keyword);

    autoDarkMatch->setChecked(p.autoDarkMatch);
    adaptiveWithDark->setChecked(p.adaptiveWithDark);
    adaptiveWithoutDark->setChecked(p.adaptiveWithoutDark);
    ChooseText(adaptiveLevel, p.adaptiveLevel);

    extraFilters->setChecked(p.filters);
    badPixels->setChecked(p.filterBadPixels);
    smoothing->setChecked(p.filterSmoothing);
    ChooseText(aggressiveness, p.aggressiveness);

    normalizeFlats->setChecked(p.normalizeFlats);
    normalize->setChecked(p.normalize != "NONE");
    const std::string target = p.normalize == "NONE" ? "AVG" : p.normalize;
    for (int i = 0; i < 4; ++i)
        normalizeTargets[i]->setChecked(target == kNormalizeTargets[i].keyword);
    background->setText(NumberText(p.normalizeBackground));
    deviation->setText(NumberText(p.normalizeDeviation));
    setDeviation->setChecked(p.normalizeSetDeviation);

    grade->setChecked(p.grade != "NONE");
    maxEcc->setChecked(p.grade != kGradePercentEcc && p.grade != kGradeAutoEcc);
    percentEcc->setChecked(p.grade == kGradePercentEcc);
    autoEcc->setChecked(p.grade == kGradeAutoEcc);
    ChooseEccentricity(maxEccValue, p.gradeMaxEccentricity);
    percentValue->setCurrentIndex(
        std::max(0, percentValue->findText(QString::asprintf(" %2d%% ", p.gradePercent))));

    align->setChecked(p.align != "NONE");
    quickAlign->setChecked(p.align == "QUICK");
    meridianFlip->setChecked(p.meridianFlip);
    mirrorFlip->setChecked(p.mirrorFlip);
    wideRange->setChecked(p.wideRange);
    smallStars->setChecked(p.smallStars);

    combine->setChecked(p.combine);
    clipFactor->setText(NumberText(p.clipFactor));
    minimizeDisk->setChecked(p.minimizeDisk);
    displayCombination->setChecked(p.displayCombination);
    outputDirectory->setText(Q(p.outputDirectory));
    convertedPrefix->setText(Q(p.convertedPrefix));
    RefreshEnabled();
}

// ---- the run -------------------------------------------------------------------------------

void FileSetProcessSheet::ShowStep(std::size_t index, const CFileSetOpElement& step) {
    while (static_cast<std::size_t>(stepList->topLevelItemCount()) <= index)
        new QTreeWidgetItem(stepList);
    QTreeWidgetItem* item = stepList->topLevelItem(static_cast<int>(index));
    item->setText(0, Q(step.name));
    item->setText(1, Q(step.detail));
    item->setText(kStateColumn, Q(step.state));
    item->setToolTip(kStateColumn, Q(step.result));
}

void FileSetProcessSheet::ShowQueue(const CAutoProcessParams& params) {
    stepList->clear();
    std::vector<CFileSetOpElement> queue = BuildConversionList(params);
    if (queue.empty())
        queue = BuildCommandList(params);
    for (std::size_t i = 0; i < queue.size(); ++i)
        ShowStep(i, queue[i]);
}

bool FileSetProcessSheet::Process() {
    if (running_) {
        Say(BusyText(FileOpKind::Automatic));
        return false;
    }
    if (const std::string refusal = FileOpStartRefusal(FileOpKind::Automatic); !refusal.empty()) {
        Say(refusal);
        return false;
    }
    CAutoProcessParams params;
    if (!ReadParams(&params))
        return false;
    SaveAutoProcessParams(Context().Setup(), params);

    AskWatch watch(Notify());
    std::string text;
    if (!CheckFileSetProcess(params, CalibrationSetupDialog::Open() != nullptr, &watch, &text)) {
        // A question already carried the text.
        if (watch.asked)
            status->setText(Q(text));
        else
            Say(text);
        return false;
    }

    if (worker_)
        worker_->Join();
    worker_ = std::make_unique<FileOpWorker>();
    progress_->ResetCancel();
    runProgress->setRange(0, 1);
    runProgress->setValue(0);
    counter->clear();
    status->clear();
    summary->clear();
    ShowQueue(params);
    display_ = params.displayCombination;
    SetRunning(true);

    QPointer<FileSetProcessSheet> self(this);
    FileSetProcessProgress* progress = progress_.get();
    INotify* notify = workerNotify_.get();
    const CalibrationSetup base = ProgramCalibrationSetup();
    const bool started = worker_->Start(
        [self, progress, notify, params, base] {
            CalibrationSetup setup = base;
            auto onStep = [self](std::size_t index, const CFileSetOpElement& step) {
                PostCall(self, [index, step](FileSetProcessSheet& s) { s.ShowStep(index, step); });
            };
            // The checks ran on this window's thread just before.
            FileSetRunResult result =
                RunCheckedFileSetProcess(params, progress, notify, &setup, onStep);
            PostCall(self, [result = std::move(result)](FileSetProcessSheet& s) mutable {
                s.FinishRun(std::move(result));
            });
        },
        GetThreadPriorityWord(), &Notify());
    if (!started)
        SetRunning(false);
    return started;
}

void FileSetProcessSheet::SetRunning(bool on) {
    running_ = on;
    processButton->setEnabled(!on);
    cancelRunButton->setEnabled(on);
    closeButton->setEnabled(!on);
    for (FrameListPage& f : frames_)
        f.page->setEnabled(!on);
    parameters_->setEnabled(!on);
    setWindowTitle(on ? QStringLiteral("*** Operation In Progress ***") : ToolName());
}

void FileSetProcessSheet::FinishRun(FileSetRunResult result) {
    if (worker_)
        worker_->Join();
    last_ = std::move(result);
    // The queue as it ended: every row with its final state.
    while (static_cast<std::size_t>(stepList->topLevelItemCount()) > last_.steps.size())
        delete stepList->topLevelItem(stepList->topLevelItemCount() - 1);
    for (std::size_t i = 0; i < last_.steps.size(); ++i)
        ShowStep(i, last_.steps[i]);
    status->setText(Q(last_.status));
    summary->setPlainText(Q(last_.summary));
    if (last_.started && !last_.masters.empty()) {
        // The set steps chose the system frames of the program's calibration.
        ProgramCalibrationSetup() = last_.setup;
        Options().setup.records[kCalibrationSetupRecord] = FormatCalibrationSetup(last_.setup);
    }
    SetRunning(false);
    FileSetFrame::RefreshAllSheets();
    if (display_ && !last_.combined.empty()) {
        if (auto* frame = qobject_cast<MainFrame*>(Context().MainWidget()))
            frame->OpenFiles({Q(last_.combined)});
        else
            Context().Model().OpenImageFile(last_.combined);
    }
}

bool FileSetProcessSheet::WaitForRun(int timeoutMs) {
    return WaitWhileRunning(running_, timeoutMs);
}

void FileSetProcessSheet::closeEvent(QCloseEvent* event) {
    if (running_) {
        event->ignore();
        return;
    }
    ToolFrame::closeEvent(event);
}

} // namespace astrivelle
