// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The grade report dialog and its grade weights dialog.
#include "shell/GradeReportDialog.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QFileDialog>
#include <QFontDatabase>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPageSize>
#include <QPdfWriter>
#include <QPushButton>
#include <QTableWidget>
#include <QTextDocument>
#include <QVBoxLayout>

#include "engine/SystemOptions.h"
#include "imagesets/FileSetRules.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

QTableWidgetItem* Cell(const QString& text) {
    auto* item = new QTableWidgetItem(text);
    item->setFlags(item->flags() & ~Qt::ItemIsEditable);
    return item;
}

QString Fixed(double v, int places) {
    return FixedText(v, places);
}

/// "Name (*.txt)|*.txt|" as a file dialog filter: "Name (*.txt)".
QString DialogFilter(const char* filter) {
    const QString text = QString::fromLatin1(filter);
    return text.section('|', 0, 0);
}

} // namespace

// ---- grade weights ----------------------------------------------------------------------------

GradeWeightFields::GradeWeightFields(bool row, QWidget* parent) : QWidget(parent) {
    static const char* kLabels[5] = {"A%", "B%", "C%", "D%", "F%"};
    static const char* kNames[5] = {"weightA", "weightB", "weightC", "weightD", "weightF"};
    QFormLayout* form = row ? nullptr : new QFormLayout(this);
    QHBoxLayout* line = row ? new QHBoxLayout(this) : nullptr;
    if (line)
        line->setContentsMargins(0, 0, 0, 0);
    for (int i = 0; i < 5; ++i) {
        weights[i] = new QLineEdit(this);
        weights[i]->setObjectName(kNames[i]);
        if (form) {
            form->addRow(QString::fromLatin1(kLabels[i]), weights[i]);
        } else {
            weights[i]->setMaximumWidth(48);
            line->addWidget(new QLabel(QString::fromLatin1(kLabels[i]), this));
            line->addWidget(weights[i]);
        }
    }
}

void GradeWeightFields::Load(const CSetupParams& setup) {
    const std::array<int, 5> now = GradeWeightPercents(setup);
    for (int i = 0; i < 5; ++i)
        weights[i]->setText(QString::number(now[i]));
}

bool GradeWeightFields::Store(CSetupParams& setup, std::string* error) {
    std::array<int, 5> percent{};
    for (int i = 0; i < 5; ++i)
        if (!ParseGradeWeight(weights[i]->text().toStdString(), &percent[i])) {
            *error = kGradeWeightRangeText;
            weights[i]->setFocus();
            weights[i]->selectAll();
            return false;
        }
    return SetGradeWeightPercents(setup, percent, error);
}

GradeWeightsDialog::GradeWeightsDialog(CSetupParams& setup, QWidget* parent)
    : QDialog(parent), setup_(setup) {
    setObjectName("GradeWeightsDialog");
    setWindowTitle(kTitle);
    auto* form = new QFormLayout(this);
    fields = new GradeWeightFields(false, this);
    fields->Load(setup_);
    weights = fields->weights;
    form->addRow(fields);
    message = new QLabel(this);
    message->setObjectName("message");
    form->addRow(message);
    auto* buttons = OkCancel(this, form, [this] { return Store(); });
    okButton = buttons->button(QDialogButtonBox::Ok);
    cancelButton = buttons->button(QDialogButtonBox::Cancel);
}

bool GradeWeightsDialog::Store() {
    std::string error;
    if (!fields->Store(setup_, &error)) {
        message->setText(QString::fromStdString(error));
        return false;
    }
    message->clear();
    return true;
}

// ---- the report -------------------------------------------------------------------------------

GradeReportDialog::GradeReportDialog(const GradeResult& result, QWidget* parent,
                                     CSetupParams* setup)
    : QDialog(parent), result_(result), setup_(setup ? setup : &Options().setup) {
    setObjectName("GradeReportDialog");
    setWindowTitle(kTitle);
    auto* layout = new QVBoxLayout(this);
    figures = new QLabel(this);
    figures->setObjectName("figures");
    figures->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(figures);
    table = new QTableWidget(this);
    table->setObjectName("table");
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::MultiSelection);
    table->horizontalHeader()->setStretchLastSection(true);
    layout->addWidget(table);
    Fill();

    auto* buttons = new QHBoxLayout;
    useButton = MakeButton(this, "Use and Save Selected &Files", "useSelected");
    recalculateButton = MakeButton(this, "Recalc&ulate", "recalculate");
    autoButton = MakeButton(this, "Auto Min/Max", "autoMinMax");
    editGradesButton = MakeButton(this, "&Edit Grades", "editGrades");
    printButton = MakeButton(this, "&Print Report", "printReport");
    saveButton = MakeButton(this, "&Save Report", "saveReport");
    closeButton = MakeButton(this, "Close", "close");
    for (QPushButton* b : {useButton, recalculateButton, autoButton, editGradesButton})
        buttons->addWidget(b);
    buttons->addStretch(1);
    for (QPushButton* b : {printButton, saveButton, closeButton})
        buttons->addWidget(b);
    layout->addLayout(buttons);
    connect(saveButton, &QPushButton::clicked, this, [this] { AskAndSave(); });
    connect(printButton, &QPushButton::clicked, this, [this] { AskAndPrint(); });
    connect(useButton, &QPushButton::clicked, this, [this] { UseSelected(); });
    connect(recalculateButton, &QPushButton::clicked, this, [this] { Recalculate(); });
    connect(autoButton, &QPushButton::clicked, this, [this] { AutoMinMax(); });
    connect(editGradesButton, &QPushButton::clicked, this, [this] { OpenEditGrades(); });
    connect(closeButton, &QPushButton::clicked, this, &QDialog::accept);
    resize(720, 420);
}

void GradeReportDialog::Fill() {
    table->clearSelection();
    table->clearContents();
    if (result_.method == GradeMethod::Sharpness) {
        table->setColumnCount(7);
        table->setHorizontalHeaderLabels(
            {"File", "Grade", "Score", "Red", "Green", "Blue", "Mean"});
        table->setRowCount(static_cast<int>(result_.sharpness.size()));
        int row = 0;
        for (const SharpnessGrade& g : result_.sharpness) {
            table->setItem(row, 0, Cell(QString::fromStdString(g.name + g.extension)));
            table->setItem(row, 1, Cell(QString(QChar::fromLatin1(g.grade))));
            table->setItem(row, 2, Cell(Fixed(g.score, 3)));
            table->setItem(row, 3, Cell(Fixed(g.red, 3)));
            table->setItem(row, 4, Cell(Fixed(g.green, 3)));
            table->setItem(row, 5, Cell(Fixed(g.blue, 3)));
            table->setItem(row, 6, Cell(Fixed(g.mean, 3)));
            ++row;
        }
        table->selectAll();
    } else {
        table->setColumnCount(4);
        table->setHorizontalHeaderLabels(
            {"File", "Avg Eccentricity", "Avg Star Size", "Avg Ecc and Size"});
        table->setRowCount(static_cast<int>(result_.starShapes.size()));
        int row = 0;
        for (const StarShapeGrade& g : result_.starShapes) {
            table->setItem(row, 0, Cell(QString::fromStdString(g.name + g.extension)));
            table->setItem(row, 1, Cell(Fixed(g.eccentricity, 3)));
            table->setItem(row, 2, Cell(Fixed(g.size, 3)));
            table->setItem(row, 3, Cell(Fixed(g.eccentricity + g.size, 3)));
            if (g.selected)
                table->selectRow(row);
            ++row;
        }
    }
    QStringList lines;
    for (const std::string& line : result_.summary)
        lines << QString::fromStdString(line);
    figures->setText(lines.join('\n'));
}

bool GradeReportDialog::SaveReport(const std::string& path, std::string* error) {
    return WriteGradeReport(path, result_, error);
}

std::string GradeReportDialog::PrintText() const {
    return GradeReportText(result_, true);
}

bool GradeReportDialog::PrintReport(const std::string& path, std::string* error) {
    QPdfWriter writer(QString::fromStdString(path));
    writer.setPageSize(QPageSize(QPageSize::A4));
    writer.setResolution(300);
    writer.setTitle(QString::fromLatin1(
        result_.method == GradeMethod::Sharpness ? kSharpnessReportTitle : kStarReportTitle));
    writer.setCreator(QStringLiteral("Astrivelle"));
    QTextDocument document;
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPointSizeF(8.0);
    document.setDefaultFont(font);
    document.setPlainText(QString::fromStdString(PrintText()));
    document.print(&writer);
    // The writer finishes the file when it goes; a file that did not come out is an error.
    QFile check(QString::fromStdString(path));
    if (!check.exists() || check.size() == 0) {
        if (error)
            *error = "Could not write " + path;
        return false;
    }
    return true;
}

void GradeReportDialog::AskAndSave() {
    const bool sharp = result_.method == GradeMethod::Sharpness;
    const QString path = QFileDialog::getSaveFileName(
        this, sharp ? kSharpnessReportTitle : kStarReportTitle, QString(),
        DialogFilter(sharp ? kSharpnessReportFilter : kStarReportFilter));
    if (path.isEmpty())
        return;
    std::string error;
    if (!SaveReport(path.toStdString(), &error))
        QMessageBox::warning(this, windowTitle(), QString::fromStdString(error));
}

void GradeReportDialog::AskAndPrint() {
    const bool sharp = result_.method == GradeMethod::Sharpness;
    const QString path =
        QFileDialog::getSaveFileName(this, sharp ? kSharpnessReportTitle : kStarReportTitle,
                                     QString(), QStringLiteral("PDF Document (*.pdf)"));
    if (path.isEmpty())
        return;
    std::string error;
    if (!PrintReport(path.toStdString(), &error))
        QMessageBox::warning(this, windowTitle(), QString::fromStdString(error));
}

std::vector<std::string> GradeReportDialog::SelectedFiles() const {
    std::vector<std::string> files;
    for (int row = 0; row < table->rowCount(); ++row) {
        if (!table->item(row, 0) || !table->item(row, 0)->isSelected())
            continue;
        if (result_.method == GradeMethod::Sharpness)
            files.push_back(result_.sharpness[static_cast<std::size_t>(row)].path);
        else
            files.push_back(result_.starShapes[static_cast<std::size_t>(row)].path);
    }
    return files;
}

bool GradeReportDialog::UseSelected() {
    const std::vector<std::string> files = SelectedFiles();
    if (files.empty())
        return false;
    FileOpLists().Set(MakeOutputList(kGradeOperationName, false, files));
    if (onUsed)
        onUsed();
    return true;
}

bool GradeReportDialog::Recalculate() {
    std::vector<bool> keep;
    for (int row = 0; row < table->rowCount(); ++row)
        keep.push_back(table->item(row, 0) && table->item(row, 0)->isSelected());
    std::string error;
    if (!RecalculateGrades(&result_, keep, &error)) {
        figures->setText(QString::fromStdString(error));
        return false;
    }
    Fill();
    return true;
}

void GradeReportDialog::AutoMinMax() {
    const std::vector<bool> in = AutoMinMaxSelection(result_);
    table->clearSelection();
    for (int row = 0; row < table->rowCount() && row < static_cast<int>(in.size()); ++row)
        if (in[static_cast<std::size_t>(row)])
            table->selectRow(row);
}

GradeWeightsDialog* GradeReportDialog::OpenEditGrades() {
    if (auto* open = findChild<GradeWeightsDialog*>())
        delete open;
    auto* dialog = new GradeWeightsDialog(*setup_, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->show();
    return dialog;
}

} // namespace astrivelle
