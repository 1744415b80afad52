// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Calibration Setup dialog.
#include "shell/CalibrationSetupDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "calibration/Bayer.h"
#include "engine/SystemOptions.h"
#include "engine/workbench/MainWindow.h"
#include "fileio/FileFilters.h"
#include "shell/MainFrame.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

CalibrationSetupDialog* gOpen = nullptr;

constexpr const char* kFrameKeys[4] = {"flat", "flatDark", "dark", "bias"};
constexpr const char* kFrameLabels[4] = {"Flat", "Flat Dark", "Dark", "Bias"};
/// The levels as stored and as shown.
constexpr std::array<const char*, 3> kLevels = {"Normal", "High", "Highest"};
constexpr std::array<const char*, 3> kLevelTexts = {"Normal", "Aggressive", "Very Aggressive"};
constexpr std::array<const char*, 2> kModels = {"MONO", "COLOR"};
constexpr std::array<const char*, 2> kMonoTypes = {"CCD", "Bayer CFA"};

std::string& PathOf(CalibrationSetup& s, int i) {
    std::string* p[4] = {&s.flatPath, &s.flatDarkPath, &s.darkPath, &s.biasPath};
    return *p[i];
}
bool& UseOf(CalibrationSetup& s, int i) {
    bool* p[4] = {&s.useFlat, &s.useFlatDark, &s.useDark, &s.useBias};
    return *p[i];
}

} // namespace

CalibrationSetup& ProgramCalibrationSetup() {
    // The record saved with the setup parameters, read once.
    static CalibrationSetup setup = [] {
        CalibrationSetup saved;
        const auto& records = Options().setup.records;
        if (const auto it = records.find(kCalibrationSetupRecord); it != records.end())
            ParseCalibrationSetup(it->second, &saved);
        return saved;
    }();
    return setup;
}

CalibrationSetupDialog* CalibrationSetupDialog::Open() {
    return gOpen;
}

CalibrationSetupDialog* CalibrationSetupDialog::Show(ShellContext& context) {
    if (!gOpen)
        gOpen = new CalibrationSetupDialog(context);
    gOpen->show();
    gOpen->raise();
    gOpen->activateWindow();
    return gOpen;
}

CalibrationSetupDialog::CalibrationSetupDialog(ShellContext& context)
    : QDialog(context.MainWidget()), context_(context), setup_(ProgramCalibrationSetup()) {
    setAttribute(Qt::WA_DeleteOnClose);
    setModal(false);
    setObjectName("CSelectSupportImages");
    setWindowTitle(QStringLiteral("Calibration Setup"));
    gOpen = this;
    auto* layout = new QVBoxLayout(this);

    auto* model = new QFormLayout;
    colorModel = MakeCombo(this, "colorModel", kModels);
    monoFileType = MakeCombo(this, "monoFileType", kMonoTypes);
    frameType = new QComboBox(this);
    frameType->setObjectName("frameType");
    for (const CfaFrameType& row : CfaFrameTypes())
        frameType->addItem(QString::fromLatin1(row.shown));
    model->addRow(QStringLiteral("Color Model"), colorModel);
    model->addRow(QStringLiteral("Monochrome File Type"), monoFileType);
    model->addRow(QStringLiteral("Frame Type"), frameType);
    layout->addLayout(model);

    auto* frames = new QGroupBox(QStringLiteral("System Frames"), this);
    auto* grid = new QGridLayout(frames);
    for (int i = 0; i < 4; ++i) {
        const std::string key = kFrameKeys[i];
        std::string upper = key;
        upper[0] = static_cast<char>(std::toupper(upper[0]));
        grid->addWidget(new QLabel(QString::fromLatin1(kFrameLabels[i]), frames), i, 0);
        framePath[i] = new QLineEdit(frames);
        framePath[i]->setObjectName(Q(key + "Path"));
        grid->addWidget(framePath[i], i, 1);
        selectFrame[i] =
            MakeButton(frames, QStringLiteral("Select..."), ("select" + upper).c_str());
        grid->addWidget(selectFrame[i], i, 2);
        useFrame[i] =
            MakeCheck(frames, QStringLiteral("Use During Calibration"), ("use" + upper).c_str());
        grid->addWidget(useFrame[i], i, 3);
        const auto frame = static_cast<SystemFrame>(i);
        connect(selectFrame[i], &QPushButton::clicked, this, [this, frame, i] {
            const QString file = QFileDialog::getOpenFileName(
                this, QString::fromLatin1(SystemFrameTitle(frame)), Q(context_.Model().lastFolder),
                QtFilterList(JoinFilters(OpenImageFilterEntries())));
            if (!file.isEmpty())
                SelectFrame(frame, file.toStdString());
            else
                Load();
            (void)i;
        });
        connect(framePath[i], &QLineEdit::editingFinished, this, [this, frame, i] {
            const std::string typed = framePath[i]->text().trimmed().toStdString();
            if (!typed.empty() && typed != PathOf(setup_, i))
                SelectFrame(frame, typed);
        });
        connect(useFrame[i], &QCheckBox::toggled, this, [this, i](bool on) {
            if (!loading_)
                UseOf(setup_, i) = on;
        });
    }
    frameSize = new QLabel(frames);
    frameSize->setObjectName("frameSize");
    grid->addWidget(frameSize, 4, 0, 1, 4);
    layout->addWidget(frames);

    auto* factors = new QGroupBox(QStringLiteral("Dark Scale Factors"), this);
    auto* factorForm = new QFormLayout(factors);
    darkFactor = MakeNumberEdit(factors, "darkFactor");
    overallFactor = MakeNumberEdit(factors, "overallFactor");
    autoDark = MakeCheck(factors, QStringLiteral("Auto"), "autoDark");
    factorForm->addRow(QStringLiteral("Dark:"), darkFactor);
    factorForm->addRow(QStringLiteral("Overall:"), overallFactor);
    factorForm->addRow(autoDark);
    layout->addWidget(factors);

    auto* adaptive = new QGroupBox(QStringLiteral("Adaptive Dark High/Low Pixel Reduction"), this);
    auto* adaptiveForm = new QFormLayout(adaptive);
    adaptiveWithDark =
        MakeCheck(adaptive, QStringLiteral("With Dark Subtraction"), "adaptiveWithDark");
    adaptiveWithoutDark =
        MakeCheck(adaptive, QStringLiteral("Without Dark Subtraction"), "adaptiveWithoutDark");
    adaptiveLevel = MakeCombo(adaptive, "adaptiveLevel", kLevelTexts);
    adaptiveForm->addRow(adaptiveWithDark);
    adaptiveForm->addRow(adaptiveWithoutDark);
    adaptiveForm->addRow(QStringLiteral("Level"), adaptiveLevel);
    layout->addWidget(adaptive);

    auto* buttons = new QHBoxLayout;
    clearAll = MakeButton(this, QStringLiteral("Clear All"), "clearAll");
    okButton = MakeButton(this, QStringLiteral("OK"), "ok");
    QPushButton* cancel = MakeButton(this, QStringLiteral("Cancel"), "cancel");
    buttons->addWidget(clearAll);
    buttons->addStretch(1);
    buttons->addWidget(okButton);
    buttons->addWidget(cancel);
    layout->addLayout(buttons);

    for (QComboBox* c : {colorModel, monoFileType, frameType, adaptiveLevel})
        connect(c, &QComboBox::currentIndexChanged, this, [this] {
            if (!loading_)
                ReadChoices();
        });
    connect(autoDark, &QCheckBox::toggled, this, [this](bool on) {
        if (loading_)
            return;
        setup_.SetAutoDarkMatch(on);
        Load();
    });
    connect(adaptiveWithDark, &QCheckBox::toggled, this, [this](bool on) {
        if (loading_)
            return;
        setup_.SetAdaptiveWithDark(on);
        Load();
    });
    connect(adaptiveWithoutDark, &QCheckBox::toggled, this, [this](bool on) {
        if (loading_)
            return;
        setup_.SetAdaptiveWithoutDark(on);
        Load();
    });
    connect(clearAll, &QPushButton::clicked, this, [this] {
        setup_.ClearAll();
        Load();
    });
    connect(okButton, &QPushButton::clicked, this, [this] {
        if (Accept())
            close();
    });
    connect(cancel, &QPushButton::clicked, this, [this] { close(); });
    if (setup_.colorModel.empty())
        setup_.colorModel = "MONO";
    Load();
}

CalibrationSetupDialog::~CalibrationSetupDialog() {
    DisconnectFromChildren(this);
    if (gOpen == this)
        gOpen = nullptr;
}

void CalibrationSetupDialog::ReadChoices() {
    bool ok = false;
    if (const double v = darkFactor->text().trimmed().toDouble(&ok); ok)
        setup_.darkFactor = v;
    if (const double v = overallFactor->text().trimmed().toDouble(&ok); ok)
        setup_.overallFactor = v;
    setup_.colorModel = ComboText(colorModel);
    setup_.bayerData = setup_.colorModel == "MONO" && monoFileType->currentIndex() == 1;
    const int row = frameType->currentIndex();
    if (row >= 0 && row < static_cast<int>(CfaFrameTypes().size())) {
        setup_.frameType = CfaFrameTypes()[row].shortName;
        setup_.cfaPattern = CfaFrameTypes()[row].keyword;
    }
    setup_.adaptiveLevel = kLevels[std::max(0, adaptiveLevel->currentIndex())];
    Load();
}

void CalibrationSetupDialog::Load() {
    loading_ = true;
    ChooseText(colorModel, setup_.colorModel);
    monoFileType->setCurrentIndex(setup_.bayerData ? 1 : 0);
    monoFileType->setEnabled(setup_.colorModel == "MONO");
    const auto& rows = CfaFrameTypes();
    for (std::size_t r = 0; r < rows.size(); ++r)
        if (setup_.frameType == rows[r].shortName && setup_.cfaPattern == rows[r].keyword) {
            frameType->setCurrentIndex(static_cast<int>(r));
            break;
        }
    frameType->setEnabled(setup_.bayerData);
    for (int i = 0; i < 4; ++i) {
        framePath[i]->setText(Q(PathOf(setup_, i)));
        useFrame[i]->setChecked(UseOf(setup_, i));
    }
    frameSize->setText(QStringLiteral("Calibration Frame Size: %1 x %2")
                           .arg(setup_.frameWidth)
                           .arg(setup_.frameHeight));
    darkFactor->setText(FixedText(setup_.darkFactor, 3));
    overallFactor->setText(FixedText(setup_.overallFactor, 3));
    darkFactor->setEnabled(!setup_.autoDarkMatch);
    overallFactor->setEnabled(!setup_.autoDarkMatch);
    autoDark->setChecked(setup_.autoDarkMatch);
    autoDark->setEnabled(!setup_.adaptiveWithoutDark);
    adaptiveWithDark->setChecked(setup_.adaptiveWithDark);
    adaptiveWithoutDark->setChecked(setup_.adaptiveWithoutDark);
    adaptiveWithoutDark->setEnabled(!setup_.autoDarkMatch);
    for (int l = 0; l < 3; ++l)
        if (setup_.adaptiveLevel == kLevels[l])
            adaptiveLevel->setCurrentIndex(l);
    loading_ = false;
}

bool CalibrationSetupDialog::SelectFrame(SystemFrame frame, const std::string& path) {
    ReadChoices();
    std::string text;
    if (!SelectFrameFromDisk(setup_, frame, path, &text)) {
        context_.Model().notify().Message(text);
        Load();
        return false;
    }
    Load();
    return true;
}

bool CalibrationSetupDialog::Accept() {
    bool ok1 = false, ok2 = false;
    const double dark = darkFactor->text().trimmed().toDouble(&ok1);
    const double overall = overallFactor->text().trimmed().toDouble(&ok2);
    if (!ok1 || !ok2) {
        context_.Model().notify().Message("Please Enter a Real Number.");
        (ok1 ? overallFactor : darkFactor)->setFocus();
        return false;
    }
    setup_.darkFactor = dark;
    setup_.overallFactor = overall;
    ReadChoices();
    ProgramCalibrationSetup() = setup_;
    Options().setup.records[kCalibrationSetupRecord] = FormatCalibrationSetup(setup_);
    return true;
}

} // namespace astrivelle
