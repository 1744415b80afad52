// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Convert Files sheet.
#include "shell/ConvertSheet.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "engine/ProcessWindow.h"
#include "imagesets/ConvertFiles.h"
#include "imagesets/FileSetRules.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

constexpr std::array<const char*, 4> kOutputTypes = {".TIF", ".JPG", ".BMP", ".FIT"};
constexpr std::array<const char*, 6> kStretches = {
    "None", "Levels", "BCS", "Digital Development", "General Stretch Functions", "Auto Min/Max"};

FileSetTraits ConvertTraits() {
    FileSetTraits t;
    t.kind = FileOpKind::Count_; // Convert has no busy flag
    t.operation = "Convert Files";
    t.operationWord = "convert";
    t.noImageText = "The image file convert operation requires at least one image.\nPlease "
                    "select at least one image.";
    t.directoryTitle = "Select Convert File Save Directory";
    t.runText = QStringLiteral("Convert");
    t.hasPrefix = false; // always "CV_"
    return t;
}

} // namespace

ConvertSheet* ConvertSheet::Show(ShellContext& context) {
    return ToolFrame::ShowTool<ConvertSheet>(context);
}

ConvertSheet::ConvertSheet(ShellContext& context)
    : FileSetFrame(context, QStringLiteral("Convert Files"), kClassName, ConvertTraits()) {
    QWidget* page = Methods()->parentWidget();
    outputType = MakeCombo(page, "outputType", kOutputTypes);
    stretch = MakeCombo(page, "stretch", kStretches);
    parameters = new QLineEdit(page);
    parameters->setObjectName("parameters");
    parameters->setReadOnly(true);
    parameters->setMinimumWidth(320);
    editParameters = MakeCheck(page, QStringLiteral("Edit"), "editParameters");
    useLastButton = MakeButton(page, QStringLiteral("Use the last applied"), "useLastApplied");
    brightnessStep = MakeNumberEdit(page, "brightnessStep");
    brightnessStep->setText(QStringLiteral("0"));

    auto* paramRow = new QHBoxLayout;
    paramRow->addWidget(parameters, 1);
    paramRow->addWidget(editParameters);
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Output Type"), outputType);
    form->addRow(QStringLiteral("Stretch"), stretch);
    form->addRow(QStringLiteral("Parameters"), paramRow);
    form->addRow(QString(), useLastButton);
    form->addRow(QStringLiteral("Brightness Step"), brightnessStep);
    Methods()->addLayout(form);
    Methods()->addStretch(1);

    connect(editParameters, &QCheckBox::toggled, this,
            [this](bool on) { parameters->setReadOnly(!on); });
    connect(useLastButton, &QPushButton::clicked, this, [this] {
        if (!UseLastApplied() && !StretchName().empty()) {
            ConvertFilesRequest request;
            request.stretch = StretchName();
            status->setText(QString::fromStdString(ConvertStretchText(request)));
        }
    });
    connect(stretch, &QComboBox::currentIndexChanged, this, [this] {
        const bool any = !StretchName().empty();
        useLastButton->setEnabled(any);
        parameters->setEnabled(any);
        UseLastApplied();
    });
    useLastButton->setEnabled(false);
    parameters->setEnabled(false);
}

std::string ConvertSheet::StretchName() const {
    const std::string text = ComboText(stretch);
    return text == "None" ? std::string() : text;
}

bool ConvertSheet::UseLastApplied() {
    parameters->clear();
    const std::string name = StretchName();
    CProcessWindow* image = Context().ActiveImage();
    if (name.empty() || !image)
        return false;
    std::string text;
    if (!LastAppliedParameters(image->history, image->currentStep, name, &text))
        return false;
    parameters->setText(QString::fromStdString(text));
    parameters->setCursorPosition(0);
    return true;
}

bool ConvertSheet::ReadRequest(ConvertFilesRequest* request) {
    request->outputType = ComboText(outputType);
    request->stretch = StretchName();
    request->parameters =
        request->stretch.empty() ? std::string() : parameters->text().trimmed().toStdString();
    return ReadNumber(brightnessStep, &request->brightnessStep);
}

bool ConvertSheet::Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                           const std::string&, FileSetBody* body) {
    ConvertFilesRequest request;
    if (!ReadRequest(&request))
        return false;
    if (const std::string text = ConvertStretchText(request); !text.empty()) {
        Say(text);
        return false;
    }
    request.files = usable;
    request.outputDirectory = outDir;
    request.prefix = kConvertPrefix;
    *body = [request](IProgress& progress, INotify& notify) {
        return ConvertFiles(request, &progress, &notify);
    };
    return true;
}

} // namespace astrivelle
