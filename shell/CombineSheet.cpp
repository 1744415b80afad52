// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Combine Files/HDR Add sheet.
#include "shell/CombineSheet.h"

#include <QComboBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QSlider>
#include <QVBoxLayout>

#include "imagesets/CombineFiles.h"
#include "imagesets/FileSetRules.h"
#include "imagesets/GradeFiles.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

FileSetTraits CombineTraits() {
    FileSetTraits t;
    t.kind = FileOpKind::Combine;
    t.operation = "Combine Files/HDR Add";
    t.checkKeyword = "COMBINE";
    t.operationWord = "combine";
    t.minFiles = 2;
    t.noImageText = "The image file combine operation requires more than one image.\nPlease "
                    "select at least two images.";
    t.noUsableText = "The image file combine operation requires more than one usable "
                     "image.\nPlease select at least two compatible images.";
    t.directoryTitle = "Select Combined File Save Directory";
    t.runText = QStringLiteral("Combine");
    t.hasPrefix = false;
    return t;
}

constexpr std::array<const char*, 5> kCombineSaveTypes = {"UNCOMPFIT", "COMPFIT", "UNCOMPFIT32",
                                                          "COMPFIT32", "UNCOMPTIF"};

} // namespace

CombineSheet* CombineSheet::Show(ShellContext& context) {
    return ToolFrame::ShowTool<CombineSheet>(context);
}

CombineSheet::CombineSheet(ShellContext& context)
    : FileSetFrame(context, QStringLiteral("Combine Files/HDR Add"), kClassName, CombineTraits()) {
    QWidget* page = Methods()->parentWidget();
    auto* form = new QFormLayout;
    method = new QComboBox(page);
    method->setObjectName("method");
    for (const CombineMethodInfo& info : CombineMethods())
        method->addItem(QString::fromLatin1(info.text), QString::fromLatin1(info.keyword));
    method->setCurrentIndex(
        static_cast<int>(&CombineMethodOf(CombineMethod::Avg) - &CombineMethods().front()));
    clipFactor = new QComboBox(page);
    clipFactor->setObjectName("clipFactor");
    for (double f : ClipFactorChoices())
        clipFactor->addItem(FixedText(f, 2));
    clipFactor->setCurrentIndex(kDefaultClipFactorIndex);
    form->addRow(QStringLiteral("Method"), method);
    form->addRow(QStringLiteral("Standard Deviation Clip Factor:"), clipFactor);

    compress = MakeSlider(page, "compress", 1000);
    compress->setValue(SliderOfCompress(0.2));
    brightness = MakeNumberEdit(page, "brightness");
    brightness->setText(QStringLiteral("1.0"));
    form->addRow(QStringLiteral("Compress"), compress);
    form->addRow(QStringLiteral("Brightness"), brightness);

    combineName = new QLineEdit(page);
    combineName->setObjectName("combineName");
    combineName->setText(QStringLiteral("Combined"));
    saveType = MakeCombo(page, "saveType", kCombineSaveTypes);
    form->addRow(QStringLiteral("Combined File Name (  No Extension  )"), combineName);
    form->addRow(QStringLiteral("Save Type"), saveType);
    Methods()->addLayout(form);
    Methods()->addStretch(1);
    connect(method, &QComboBox::currentIndexChanged, this, [this] { Refresh(); });
    Refresh();
}

void CombineSheet::Refresh() {
    const CombineMethodInfo* info =
        FindCombineMethod(method->currentData().toString().toStdString());
    const CombineMethod m = info ? info->method : CombineMethod::Avg;
    clipFactor->setEnabled(m == CombineMethod::SigAvg || m == CombineMethod::SigMed);
    compress->setEnabled(IsHdrMethod(m));
    brightness->setEnabled(IsHdrMethod(m));
}

bool CombineSheet::Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                           const std::string&, FileSetBody* body) {
    CombineFilesParams params;
    const CombineMethodInfo* info =
        FindCombineMethod(method->currentData().toString().toStdString());
    params.settings.method = info ? info->method : CombineMethod::Avg;
    params.settings.clipFactor = ClipFactorChoices()[clipFactor->currentIndex()];
    params.settings.compress = CompressOfSlider(compress->value());
    if (!ReadNumber(brightness, &params.settings.brightness))
        return false;
    params.name = combineName->text().trimmed().toStdString();
    if (params.name.empty()) {
        Say("Please Enter An Image Name.");
        combineName->setFocus();
        return false;
    }
    if (const std::string error = CombineNameError(params.name); !error.empty()) {
        Say(error);
        combineName->setFocus();
        return false;
    }
    params.files = usable;
    params.outDir = outDir;
    params.saveType = ComboText(saveType);
    if (params.settings.method == CombineMethod::GradeAvg ||
        params.settings.method == CombineMethod::GradeAvgAuto)
        params.settings.weights =
            GradeWeights(params.files, {}, GradeWeightPercents(Context().Setup()));
    *body = [params](IProgress& progress, INotify& notify) {
        FileOpResult result;
        result.inputs = params.files;
        FileOpBusy busy(FileOpKind::Combine);
        if (!busy.Acquired()) {
            result.end = FileOpEnd::Stopped;
            result.status = BusyText(FileOpKind::Combine);
            notify.Message(result.status);
            return result;
        }
        CombineFilesOutcome outcome;
        const bool ok = CombineFiles(params, &progress, &outcome);
        result.status = outcome.status;
        if (ok) {
            result.outputs.push_back(outcome.output);
        } else {
            result.end =
                outcome.status == kThreadCanceledText ? FileOpEnd::Cancelled : FileOpEnd::Stopped;
            for (std::size_t i = 0; i < outcome.errors.size(); ++i)
                result.failures.push_back({{}, outcome.errors[i], {}});
            if (result.end == FileOpEnd::Stopped && !outcome.status.empty())
                notify.Message(outcome.errors.size() > 1 ? outcome.status + "\n" + outcome.errors[1]
                                                         : outcome.status);
        }
        notify.Beep();
        return result;
    };
    return true;
}

} // namespace astrivelle
