// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Normalize Files sheet.
#include "shell/NormalizeSheet.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QLineEdit>
#include <QRadioButton>
#include <QVBoxLayout>

#include "imagesets/NormalizeFiles.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

FileSetTraits NormalizeTraits() {
    FileSetTraits t;
    t.kind = FileOpKind::Normalize;
    t.operation = "Normalize Files";
    t.checkKeyword = "NORMALIZE";
    t.operationWord = "normalize";
    t.minFiles = 2;
    t.noImageText = kNormalizeTwoImagesText;
    t.noUsableText = kNormalizeTwoUsableText;
    t.directoryTitle = "Select Normalize Save Directory";
    t.runText = QStringLiteral("Normalize");
    t.defaultPrefix = kNormalizePrefix;
    return t;
}

} // namespace

NormalizeSheet* NormalizeSheet::Show(ShellContext& context) {
    return ToolFrame::ShowTool<NormalizeSheet>(context);
}

NormalizeSheet::NormalizeSheet(ShellContext& context)
    : FileSetFrame(context, QStringLiteral("Normalize Files"), kClassName, NormalizeTraits()) {
    QWidget* page = Methods()->parentWidget();
    auto* modeBox = new QGroupBox(QStringLiteral("Mode"), page);
    auto* modeLayout = new QVBoxLayout(modeBox);
    modeBrightness = MakeRadio(modeBox, "Brightness & Contrast", "modeBrightness");
    modeRange = MakeRadio(modeBox, "Range", "modeRange");
    modeLayout->addWidget(modeBrightness);
    modeLayout->addWidget(modeRange);
    modeBrightness->setChecked(true);

    auto* targetBox = new QGroupBox(QStringLiteral("Target"), page);
    auto* targetLayout = new QVBoxLayout(targetBox);
    targetMaximum = MakeRadio(targetBox, "Image Set Ma&ximum", "targetMaximum");
    targetAverage = MakeRadio(targetBox, "Image Set &Average", "targetAverage");
    targetMinimum = MakeRadio(targetBox, "Image Set Mi&nimum", "targetMinimum");
    targetUser = MakeRadio(targetBox, "&User Defined", "targetUser");
    for (QRadioButton* r : {targetMaximum, targetAverage, targetMinimum, targetUser})
        targetLayout->addWidget(r);
    targetAverage->setChecked(true);

    auto* values = new QGroupBox(QStringLiteral("User Defined"), page);
    auto* form = new QFormLayout(values);
    background = MakeNumberEdit(values, "background");
    background->setText(QStringLiteral("5120"));
    deviation = MakeNumberEdit(values, "deviation");
    deviation->setText(QStringLiteral("2000"));
    useSetDeviation = MakeCheck(
        values, QStringLiteral("Use Average Standard Deviation From Image Set"), "useSetDeviation");
    minimum = MakeNumberEdit(values, "minimum");
    minimum->setText(QStringLiteral("0"));
    maximum = MakeNumberEdit(values, "maximum");
    maximum->setText(QStringLiteral("65535"));
    form->addRow(QStringLiteral("Average Background Level"), background);
    form->addRow(QStringLiteral("Average Std. Deviation"), deviation);
    form->addRow(useSetDeviation);
    form->addRow(QStringLiteral("Minimum Brightness"), minimum);
    form->addRow(QStringLiteral("Maximum Brightness"), maximum);

    Methods()->addWidget(modeBox);
    Methods()->addWidget(targetBox);
    Methods()->addWidget(values);
    Methods()->addStretch(1);
    for (QRadioButton* r :
         {modeBrightness, modeRange, targetMaximum, targetAverage, targetMinimum, targetUser})
        connect(r, &QRadioButton::toggled, this, [this] { Refresh(); });
    connect(useSetDeviation, &QCheckBox::toggled, this, [this] { Refresh(); });
    Refresh();
}

void NormalizeSheet::Refresh() {
    const bool user = targetUser->isChecked();
    const bool byMean = modeBrightness->isChecked();
    background->setEnabled(user && byMean);
    useSetDeviation->setEnabled(user && byMean);
    deviation->setEnabled(user && byMean && !useSetDeviation->isChecked());
    minimum->setEnabled(user && !byMean);
    maximum->setEnabled(user && !byMean);
}

bool NormalizeSheet::ReadRequest(NormalizeRequest* request) {
    request->mode =
        modeRange->isChecked() ? NormalizeMode::Range : NormalizeMode::BrightnessContrast;
    request->target = targetMaximum->isChecked()   ? NormalizeTarget::SetMaximum
                      : targetMinimum->isChecked() ? NormalizeTarget::SetMinimum
                      : targetUser->isChecked()    ? NormalizeTarget::UserDefined
                                                   : NormalizeTarget::SetAverage;
    request->useSetDeviation = useSetDeviation->isChecked();
    if (request->target != NormalizeTarget::UserDefined)
        return true;
    if (request->mode == NormalizeMode::BrightnessContrast)
        return ReadNumber(background, &request->background) &&
               ReadNumber(deviation, &request->deviation);
    return ReadNumber(minimum, &request->minimum) && ReadNumber(maximum, &request->maximum);
}

bool NormalizeSheet::Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                             const std::string& prefix, FileSetBody* body) {
    NormalizeRequest request;
    if (!ReadRequest(&request))
        return false;
    if (const std::string text = NormalizeParamsText(request); !text.empty()) {
        Say(text);
        return false;
    }
    request.files = usable;
    request.outputDirectory = outDir;
    request.prefix = prefix;
    *body = [request](IProgress& progress, INotify& notify) {
        return NormalizeFiles(request, &progress, &notify).run;
    };
    return true;
}

} // namespace astrivelle
