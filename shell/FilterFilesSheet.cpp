// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Filter Files sheet.
#include "shell/FilterFilesSheet.h"

#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "engine/Image.h"
#include "engine/ProcessWindow.h"
#include "engine/workbench/MainWindow.h"
#include "engine/workbench/Project.h"
#include "fileio/SaveType.h"
#include "imagesets/FileSetRules.h"
#include "imagesets/FilterFiles.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

constexpr const char* kNoFiltersText = "No filters selected.";

FileSetTraits FilterTraits() {
    FileSetTraits t;
    t.kind = FileOpKind::Filter;
    t.operation = "Filter Files";
    t.checkKeyword = "FILTERFILES";
    t.operationWord = "filter";
    t.noImageText = "The image file filter operation requires at least one image.\nPlease "
                    "select at least one image.";
    t.noUsableText = "The image file filter operation requires at least one usable "
                     "image.\nPlease select at least one image.";
    t.directoryTitle = "Select Filter Files Save Directory";
    t.runText = QStringLiteral("Filter");
    t.defaultPrefix = kFilterFilesPrefix;
    return t;
}

} // namespace

FilterFilesSheet* FilterFilesSheet::Show(ShellContext& context) {
    return ToolFrame::ShowTool<FilterFilesSheet>(context);
}

FilterFilesSheet::FilterFilesSheet(ShellContext& context)
    : FileSetFrame(context, QStringLiteral("Filter Files"), kClassName, FilterTraits()) {
    QWidget* page = Methods()->parentWidget();
    auto* box = new QGroupBox(QStringLiteral("Filters"), page);
    auto* layout = new QVBoxLayout(box);
    operators = new QTreeWidget(box);
    operators->setObjectName("operators");
    operators->setRootIsDecorated(false);
    operators->setHeaderLabels({QStringLiteral("Operator"), QStringLiteral("Parameters")});
    operators->setSelectionMode(QAbstractItemView::ExtendedSelection);
    operators->header()->setStretchLastSection(true);
    layout->addWidget(operators);

    imageSteps = new QComboBox(box);
    imageSteps->setObjectName("imageSteps");
    imageSteps->setMinimumWidth(220);
    addStepButton = MakeButton(box, QStringLiteral("&Add Step"), "addStep");
    addAllButton = MakeButton(box, QStringLiteral("Current &Active Image"), "addFromImage");
    addProjectButton = MakeButton(box, QStringLiteral("&Project File..."), "addFromProject");
    removeOperatorButton = MakeButton(box, QStringLiteral("Remove"), "removeOperator");
    moveUpButton = MakeButton(box, QStringLiteral("Move Up"), "moveUp");
    moveDownButton = MakeButton(box, QStringLiteral("Move Down"), "moveDown");
    clearOperatorsButton = MakeButton(box, QStringLiteral("Clear"), "clearOperators");
    auto* grid = new QGridLayout;
    grid->addWidget(imageSteps, 0, 0, 1, 2);
    grid->addWidget(addStepButton, 0, 2);
    grid->addWidget(addAllButton, 0, 3);
    grid->addWidget(addProjectButton, 0, 4);
    grid->addWidget(removeOperatorButton, 1, 0);
    grid->addWidget(moveUpButton, 1, 1);
    grid->addWidget(moveDownButton, 1, 2);
    grid->addWidget(clearOperatorsButton, 1, 3);
    layout->addLayout(grid);
    Methods()->addWidget(box, 1);

    auto* form = new QFormLayout;
    saveType = new QComboBox(page);
    saveType->setObjectName("saveType");
    for (const SaveTypeEntry& entry : SaveTypes())
        if (!entry.conversionOnly)
            saveType->addItem(QString::fromLatin1(entry.keyword));
    colorModelLabel = new QLabel(page);
    colorModelLabel->setObjectName("colorModel");
    form->addRow(QStringLiteral("Save Type"), saveType);
    form->addRow(QStringLiteral("Color Model"), colorModelLabel);
    Methods()->addLayout(form);
    SetColorModel({});

    connect(addStepButton, &QPushButton::clicked, this, [this] { AddChosenStep(); });
    connect(addAllButton, &QPushButton::clicked, this, [this] { AddFromImage(); });
    connect(addProjectButton, &QPushButton::clicked, this, [this] {
        const QString path = QFileDialog::getOpenFileName(
            this, QStringLiteral("Select Project File"), Q(Context().Model().lastFolder),
            QStringLiteral("Project (*.qxj);;All Files (*)"));
        if (!path.isEmpty())
            AddFromProject(path.toStdString());
    });
    connect(removeOperatorButton, &QPushButton::clicked, this, [this] { RemoveSelectedRows(); });
    connect(moveUpButton, &QPushButton::clicked, this, [this] { MoveSelected(-1); });
    connect(moveDownButton, &QPushButton::clicked, this, [this] { MoveSelected(1); });
    connect(clearOperatorsButton, &QPushButton::clicked, this, [this] {
        operators->clear();
        SetColorModel({});
    });
    RefreshImageSteps();
}

void FilterFilesSheet::SetColorModel(const std::string& model) {
    colorModel_ = model;
    colorModelLabel->setText(model.empty() ? QStringLiteral("EITHER") : Q(model));
}

void FilterFilesSheet::AddRow(const CProcessStructure& record) {
    auto* item = new QTreeWidgetItem(operators, {Q(record.operation), Q(record.parameters)});
    item->setFlags(item->flags() | Qt::ItemIsEditable);
}

std::vector<CProcessStructure> FilterFilesSheet::Records() const {
    std::vector<CProcessStructure> records;
    for (int i = 0; i < operators->topLevelItemCount(); ++i) {
        const QTreeWidgetItem* item = operators->topLevelItem(i);
        CProcessStructure r;
        r.operation = item->text(0).trimmed().toStdString();
        r.parameters = item->text(1).toStdString();
        records.push_back(std::move(r));
    }
    return records;
}

void FilterFilesSheet::SetRecords(const std::vector<CProcessStructure>& records) {
    operators->clear();
    for (const CProcessStructure& r : records)
        AddRow(r);
}

void FilterFilesSheet::RefreshImageSteps() {
    imageSteps->clear();
    steps_.clear();
    if (CProcessWindow* image = Context().ActiveImage())
        steps_ = ReplayableSteps(image->history, image->currentStep);
    for (std::size_t i = 0; i < steps_.size(); ++i)
        imageSteps->addItem(QStringLiteral("%1: %2").arg(i + 1).arg(Q(steps_[i].operation)));
    addStepButton->setEnabled(!steps_.empty());
}

void FilterFilesSheet::OnImageChanged() {
    RefreshImageSteps();
}

bool FilterFilesSheet::AddFromImage() {
    RefreshImageSteps();
    CProcessWindow* image = Context().ActiveImage();
    if (!image) {
        Say("Please Open An Image First.");
        return false;
    }
    if (steps_.empty()) {
        Say(kNoFiltersText);
        return false;
    }
    for (const CProcessStructure& r : steps_)
        AddRow(r);
    SetColorModel(image->image.colorType == ColorRGB ? "COLOR" : "MONO");
    return true;
}

bool FilterFilesSheet::AddChosenStep() {
    RefreshImageSteps();
    const int at = imageSteps->currentIndex();
    if (at < 0 || at >= static_cast<int>(steps_.size()))
        return false;
    AddRow(steps_[at]);
    return true;
}

bool FilterFilesSheet::AddFromProject(const std::string& path) {
    std::vector<CProcessStructure> list;
    std::string model, error;
    if (!ReadProjectCommands(path, &list, &model, &error)) {
        Say(error);
        return false;
    }
    for (const CProcessStructure& r : list)
        AddRow(r);
    SetColorModel(model);
    return true;
}

bool FilterFilesSheet::MoveSelected(int by) {
    QTreeWidgetItem* item = operators->currentItem();
    if (!item || !item->isSelected())
        return false;
    const int at = operators->indexOfTopLevelItem(item);
    const int to = at + by;
    if (to < 0 || to >= operators->topLevelItemCount())
        return false;
    operators->takeTopLevelItem(at);
    operators->insertTopLevelItem(to, item);
    operators->clearSelection();
    operators->setCurrentItem(item);
    item->setSelected(true);
    return true;
}

bool FilterFilesSheet::RemoveSelectedRows() {
    const QList<QTreeWidgetItem*> chosen = operators->selectedItems();
    if (chosen.isEmpty()) {
        Notify().Message("Please left-click on one or more files to delete.");
        return false;
    }
    for (QTreeWidgetItem* item : chosen)
        delete item;
    if (operators->topLevelItemCount() == 0)
        SetColorModel({});
    return true;
}

bool FilterFilesSheet::Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                               const std::string& prefix, FileSetBody* body) {
    FilterFilesRequest request;
    request.records = Records();
    if (request.records.empty()) {
        Say(kNoFiltersText);
        return false;
    }
    request.files = usable;
    request.outputDirectory = outDir;
    request.prefix = prefix;
    request.saveType = ComboText(saveType);
    request.colorModel = colorModel_;
    *body = [request](IProgress& progress, INotify& notify) {
        return FilterFiles(request, &progress, &notify);
    };
    return true;
}

} // namespace astrivelle
