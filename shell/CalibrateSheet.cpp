// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Calibrate Files sheet.
#include "shell/CalibrateSheet.h"

#include <QLabel>
#include <QPushButton>
#include <QShowEvent>
#include <QVBoxLayout>

#include "imagesets/CalibrateFiles.h"
#include "shell/CalibrationSetupDialog.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

constexpr const char* kCloseSetupText = "Please Close Calibration Setup Before Using Calibrate.";

FileSetTraits CalibrateTraits() {
    FileSetTraits t;
    t.kind = FileOpKind::Calibrate;
    t.operation = "Calibrate Files";
    t.checkKeyword = "CALIBRATE";
    t.operationWord = "calibrate";
    t.minFiles = 1;
    t.noImageText = kCalibrateNoImageText;
    t.noUsableText = kCalibrateNoUsableText;
    t.runText = QStringLiteral("Calibrate");
    t.defaultPrefix = kCalibratePrefix;
    return t;
}

QString FrameLine(const char* name, const std::string& path, bool use) {
    return QString::fromLatin1(name) + QStringLiteral(": ") +
           (path.empty() ? QStringLiteral("-") : QString::fromStdString(path)) +
           (use ? QString() : QStringLiteral(" (not used)"));
}

} // namespace

CalibrateSheet* CalibrateSheet::Show(ShellContext& context) {
    return ToolFrame::ShowTool<CalibrateSheet>(context);
}

CalibrateSheet::CalibrateSheet(ShellContext& context)
    : FileSetFrame(context, QStringLiteral("Calibrate Files"), kClassName, CalibrateTraits()) {
    QWidget* page = Methods()->parentWidget();
    setupButton = MakeButton(page, QStringLiteral("Calibration Setup..."), "calibrationSetup");
    setupSummary = new QLabel(page);
    setupSummary->setObjectName("setupSummary");
    setupSummary->setTextInteractionFlags(Qt::TextSelectableByMouse);
    Methods()->addWidget(setupButton);
    Methods()->addWidget(setupSummary);
    Methods()->addStretch(1);
    connect(setupButton, &QPushButton::clicked, this, [this] {
        CalibrationSetupDialog* dialog = CalibrationSetupDialog::Show(Context());
        connect(dialog, &QObject::destroyed, this, [this] { RefreshSummary(); });
    });
    RefreshSummary();
}

void CalibrateSheet::RefreshSummary() {
    const CalibrationSetup& s = ProgramCalibrationSetup();
    QStringList lines;
    lines << QStringLiteral("Color Model: ") +
                 (s.colorModel.empty() ? QStringLiteral("-")
                                       : QString::fromStdString(s.colorModel)) +
                 (s.bayerData ? QStringLiteral(" (Bayer CFA ") +
                                    QString::fromStdString(s.cfaPattern) + QStringLiteral(")")
                              : QString());
    lines << FrameLine("Flat", s.flatPath, s.useFlat)
          << FrameLine("Flat Dark", s.flatDarkPath, s.useFlatDark)
          << FrameLine("Dark", s.darkPath, s.useDark) << FrameLine("Bias", s.biasPath, s.useBias);
    lines << QStringLiteral("Calibration Frame Size: %1 x %2").arg(s.frameWidth).arg(s.frameHeight);
    setupSummary->setText(lines.join('\n'));
}

bool CalibrateSheet::OutputsAreColor() const {
    return ProgramCalibrationSetup().colorModel == "COLOR";
}

bool CalibrateSheet::CheckInputs(const std::vector<std::string>& files,
                                 std::vector<std::string>* usable) {
    if (CalibrationSetupDialog::Open()) {
        Say(kCloseSetupText);
        return false;
    }
    CalibrateRequest request;
    request.files = files;
    request.setup = ProgramCalibrationSetup();
    std::string text;
    if (!CheckCalibrateFiles(request, Notify(), usable, &text)) {
        if (text == kThreadCanceledText)
            status->setText(QString::fromLatin1(kThreadCanceledText));
        else
            Say(text);
        return false;
    }
    return true;
}

bool CalibrateSheet::Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                             const std::string& prefix, FileSetBody* body) {
    CalibrateRequest request;
    request.files = usable;
    request.outputDirectory = outDir;
    request.prefix = prefix;
    request.setup = ProgramCalibrationSetup();
    RefreshSummary();
    *body = [request](IProgress& progress, INotify& notify) {
        return CalibrateFiles(request, &progress, &notify).run;
    };
    return true;
}

} // namespace astrivelle
