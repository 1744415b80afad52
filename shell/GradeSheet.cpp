// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Grade Files sheet.
#include "shell/GradeSheet.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTabWidget>
#include <QVBoxLayout>

#include "shell/GradeReportDialog.h"
#include "shell/ManualGradePage.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

FileSetTraits GradeTraits() {
    FileSetTraits t;
    t.kind = FileOpKind::Grade;
    t.operation = kGradeOperationName;
    t.checkKeyword = "GRADE";
    t.operationWord = "grade";
    t.minFiles = 1;
    t.noImageText = kGradeOneImageText;
    t.noUsableText = kGradeOneUsableText;
    t.directoryTitle = "Select Grade Save Directory";
    t.runText = QStringLiteral("Grade");
    t.hasPrefix = false;
    return t;
}

} // namespace

GradeSheet* GradeSheet::Show(ShellContext& context) {
    return ToolFrame::ShowTool<GradeSheet>(context);
}

GradeSheet::GradeSheet(ShellContext& context)
    : FileSetFrame(context, QStringLiteral("Grade Files"), kClassName, GradeTraits()),
      result_(std::make_shared<GradeResult>()) {
    QWidget* page = Methods()->parentWidget();
    auto* method = new QHBoxLayout;
    bySharpness = MakeRadio(page, "Edge Sharpness", "bySharpness");
    byStarShape = MakeRadio(page, "Star Shape and Size", "byStarShape");
    auto* methodGroup = new QButtonGroup(page);
    methodGroup->addButton(bySharpness);
    methodGroup->addButton(byStarShape);
    bySharpness->setChecked(true);
    method->addWidget(bySharpness);
    method->addWidget(byStarShape);
    method->addStretch(1);
    Methods()->addLayout(method);

    auto* sharpBox = new QGroupBox(QStringLiteral("Auto Grade Focus  Interval Endpoints"), page);
    auto* sharpGrid = new QGridLayout(sharpBox);
    const char* letters[5] = {"A", "B", "C", "D", "F"};
    const char* limitNames[4] = {"limitA", "limitB", "limitC", "limitD"};
    const int defaults[4] = {90, 80, 70, 60};
    for (int i = 0; i < 4; ++i) {
        limits[i] = MakeNumberEdit(sharpBox, limitNames[i]);
        limits[i]->setText(QString::number(defaults[i]));
        sharpGrid->addWidget(new QLabel(QString::fromLatin1(letters[i]), sharpBox), 0, i);
        sharpGrid->addWidget(limits[i], 1, i);
    }
    auto* useBox =
        new QGroupBox(QStringLiteral("Use Images With These Edge Sharpness Grades"), sharpBox);
    auto* useRow = new QHBoxLayout(useBox);
    const char* useNames[5] = {"useA", "useB", "useC", "useD", "useF"};
    for (int i = 0; i < 5; ++i) {
        useGrade[i] = MakeCheck(useBox, QString::fromLatin1(letters[i]), useNames[i]);
        useGrade[i]->setChecked(true);
        useRow->addWidget(useGrade[i]);
    }
    sharpGrid->addWidget(useBox, 2, 0, 1, 5);
    focus = new QComboBox(sharpBox);
    focus->setObjectName("focus");
    for (const char* f : {"&Average Focus", "&Red Focus", "&Green Focus", "&Blue Focus"})
        focus->addItem(QString::fromLatin1(f).remove('&'));
    sharpGrid->addWidget(focus, 3, 0, 1, 2);
    Methods()->addWidget(sharpBox);

    auto* starBox = new QGroupBox(QStringLiteral("Star Shape and Size"), page);
    auto* starGrid = new QGridLayout(starBox);
    maxEcc = MakeRadio(starBox, "Max Allowed Eccentricity", "maxEcc");
    percentEcc = MakeRadio(starBox, "Use Best Percentage of Set", "percentEcc");
    autoEcc = MakeRadio(starBox, "Auto", "autoEcc");
    auto* starGroup = new QButtonGroup(starBox);
    for (QRadioButton* r : {maxEcc, percentEcc, autoEcc})
        starGroup->addButton(r);
    maxEcc->setChecked(true);
    maxEccValue = new QComboBox(starBox);
    maxEccValue->setObjectName("maxEccValue");
    for (int k = 1; k <= 19; ++k)
        maxEccValue->addItem(QString::asprintf(" %4.2f", k * 0.05));
    maxEccValue->setCurrentIndex(9); // 0.50
    percentValue = new QComboBox(starBox);
    percentValue->setObjectName("percentValue");
    for (int p = 95; p >= 5; p -= 5)
        percentValue->addItem(QString::asprintf(" %2d%% ", p));
    percentValue->setCurrentIndex(9); // 50%
    starGrid->addWidget(maxEcc, 0, 0);
    starGrid->addWidget(maxEccValue, 0, 1);
    starGrid->addWidget(percentEcc, 1, 0);
    starGrid->addWidget(percentValue, 1, 1);
    starGrid->addWidget(autoEcc, 2, 0);
    Methods()->addWidget(starBox);

    showReport = MakeCheck(page, QStringLiteral("Show Report After Grading"), "showReport");
    reportButton = MakeButton(page, QStringLiteral("Report..."), "report");
    reportButton->setEnabled(false);
    Methods()->addLayout(SpreadRow({showReport}, reportButton));
    Methods()->addStretch(1);
    // The manual page, between the automatic one and the control page; it grades the same
    // list into the same folder.
    auto* manualPage = new QWidget(pages);
    auto* manualColumn = new QVBoxLayout(manualPage);
    manual = new ManualGradePage(
        Context(),
        [this](std::vector<std::string>* usable, std::string* folder) {
            std::string prefix;
            return StartChecks(usable, folder, &prefix);
        },
        manualPage);
    manualColumn->addWidget(manual);
    manualColumn->addStretch(1);
    pages->insertTab(1, manualPage, QStringLiteral("Manual"));
    connect(reportButton, &QPushButton::clicked, this, [this] { OpenReport(); });
    for (QRadioButton* r : {bySharpness, byStarShape, maxEcc, percentEcc, autoEcc})
        connect(r, &QRadioButton::toggled, this, [this] { Refresh(); });
    Refresh();
}

void GradeSheet::Refresh() {
    const bool sharp = bySharpness->isChecked();
    for (QLineEdit* e : limits)
        e->setEnabled(sharp);
    for (QCheckBox* c : useGrade)
        c->setEnabled(sharp);
    focus->setEnabled(sharp);
    for (QRadioButton* r : {maxEcc, percentEcc, autoEcc})
        r->setEnabled(!sharp);
    maxEccValue->setEnabled(!sharp && maxEcc->isChecked());
    percentValue->setEnabled(!sharp && percentEcc->isChecked());
}

bool GradeSheet::ReadRequest(GradeRequest* r) {
    r->method = bySharpness->isChecked() ? GradeMethod::Sharpness : GradeMethod::StarShape;
    if (r->method == GradeMethod::Sharpness) {
        for (int i = 0; i < 4; ++i)
            if (!ReadNumber(limits[i], &r->intervals[static_cast<std::size_t>(i)]))
                return false;
        for (int i = 0; i < 5; ++i)
            r->useGrades[static_cast<std::size_t>(i)] = useGrade[i]->isChecked();
        r->focus = static_cast<FocusChannel>(focus->currentIndex());
        return true;
    }
    if (maxEcc->isChecked()) {
        r->mode = kGradeMaxEcc;
        r->limit = maxEccValue->currentText().trimmed().toDouble();
    } else if (percentEcc->isChecked()) {
        r->mode = kGradePercentEcc;
        r->limit = percentValue->currentText().remove('%').trimmed().toDouble();
    } else {
        r->mode = kGradeAutoEcc;
    }
    return true;
}

bool GradeSheet::Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                         const std::string&, FileSetBody* body) {
    GradeRequest request;
    if (!ReadRequest(&request))
        return false;
    request.files = usable;
    request.outputDirectory = outDir;
    auto result = std::make_shared<GradeResult>();
    result_ = result;
    reportButton->setEnabled(false);
    *body = [request, result](IProgress& progress, INotify& notify) {
        *result = GradeFiles(request, &progress, &notify);
        return result->run;
    };
    return true;
}

void GradeSheet::Finished(const FileOpResult&) {
    const bool any = !result_->sharpness.empty() || !result_->starShapes.empty();
    reportButton->setEnabled(any);
    if (any && showReport->isChecked())
        OpenReport();
}

GradeReportDialog* GradeSheet::OpenReport() {
    if (result_->sharpness.empty() && result_->starShapes.empty())
        return nullptr;
    if (auto* open = findChild<GradeReportDialog*>())
        delete open;
    auto* dialog = new GradeReportDialog(*result_, this, &Context().Setup());
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->onUsed = [] { FileSetFrame::RefreshAllSheets(); };
    dialog->show();
    return dialog;
}

} // namespace astrivelle
