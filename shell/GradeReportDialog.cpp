// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The grade report dialog.
#include "shell/GradeReportDialog.h"

#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QMessageBox>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

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

GradeReportDialog::GradeReportDialog(const GradeResult& result, QWidget* parent)
    : QDialog(parent), result_(result) {
    setObjectName("GradeReportDialog");
    setWindowTitle(kTitle);
    auto* layout = new QVBoxLayout(this);
    table = new QTableWidget(this);
    table->setObjectName("table");
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::MultiSelection);
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
    table->horizontalHeader()->setStretchLastSection(true);
    layout->addWidget(table);

    auto* buttons = new QHBoxLayout;
    useButton = MakeButton(this, "Use and Save Selected &Files", "useSelected");
    saveButton = MakeButton(this, "&Save Report", "saveReport");
    closeButton = MakeButton(this, "Close", "close");
    buttons->addWidget(useButton);
    buttons->addStretch(1);
    buttons->addWidget(saveButton);
    buttons->addWidget(closeButton);
    layout->addLayout(buttons);
    connect(saveButton, &QPushButton::clicked, this, [this] { AskAndSave(); });
    connect(useButton, &QPushButton::clicked, this, [this] { UseSelected(); });
    connect(closeButton, &QPushButton::clicked, this, &QDialog::accept);
    resize(640, 400);
}

bool GradeReportDialog::SaveReport(const std::string& path, std::string* error) {
    return WriteGradeReport(path, result_, error);
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

} // namespace astrivelle
