// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The image properties panel.
#include "shell/PropertiesTool.h"

#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"

namespace astrivelle {

namespace {
/// The data type list in its order, with the codes the header list stores.
struct TypeChoice {
    const char* label;
    std::uint32_t code;
};
constexpr TypeChoice kTypes[] = {
    {"Boolean", CardLogical}, {"Integer", CardInteger}, {"String", CardString}, {"Real", CardReal}};
constexpr int kStringType = 2;
} // namespace

ImageRoles RolesOf(const CProcessWindow& w) {
    ImageRoles r;
    r.closeLocked = w.closeLocked;
    r.imageMathTarget = w.isImageMathTarget;
    r.imageMathSource = w.imageMathSource;
    r.combineImagesCombination = w.isCombineImagesCombination;
    r.combineImagesSource = w.combineImagesSource;
    r.combineChannelSource = w.combineChannelSource;
    r.combineChannelTarget = w.isCombineLRGBTarget;
    r.combineFrequencySource = w.combineFrequencySource;
    r.combineFrequencyTarget = w.isCombineFrequencyTarget;
    r.mixLrgbCombination = w.isMixLRGBTarget;
    r.mixLrgbSource = w.mixLrgbSource;
    r.combineBayerTarget = w.isCombineBayerTarget;
    r.combineBayerSource = w.combineCfaSource;
    r.timeSequenceSource = w.timeSequenceSource;
    return r;
}

CImgAttrib* CImgAttrib::Show(ShellContext& context) {
    return ShowTool<CImgAttrib>(context);
}

CImgAttrib::CImgAttrib(ShellContext& context)
    : ToolFrame(context, kTitle, kClassName, ApplyRow | ImageCaption) {
    heading = new QLabel(this);
    heading->setObjectName("heading");
    QFont bold = heading->font();
    bold.setBold(true);
    heading->setFont(bold);
    Body()->addWidget(heading);

    table = new QTableWidget(0, 2, this);
    table->setObjectName("properties");
    table->setHorizontalHeaderLabels({kPropertyColumn, kValueColumn});
    table->horizontalHeader()->setStretchLastSection(true);
    table->verticalHeader()->setVisible(false);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setMinimumSize(380, 260);
    connect(table, &QTableWidget::itemSelectionChanged, this, [this] { RowSelected(); });
    Body()->addWidget(table, 1);

    editBox = new QGroupBox("Edit FITS Header", this);
    auto* grid = new QGridLayout(editBox);
    propertyEdit = new QLineEdit(editBox);
    propertyEdit->setObjectName("property");
    propertyEdit->setMaxLength(static_cast<int>(kPropertyMaxChars));
    valueEdit = new QLineEdit(editBox);
    valueEdit->setObjectName("value");
    valueEdit->setMaxLength(static_cast<int>(kValueMaxChars));
    commentEdit = new QLineEdit(editBox);
    commentEdit->setObjectName("valueComment");
    commentEdit->setMaxLength(static_cast<int>(kValueCommentMaxChars));
    dataTypeList = new QComboBox(editBox);
    dataTypeList->setObjectName("dataType");
    for (const TypeChoice& t : kTypes)
        dataTypeList->addItem(t.label);
    dataTypeList->setCurrentIndex(kStringType);
    grid->addWidget(new QLabel("Property", editBox), 0, 0);
    grid->addWidget(propertyEdit, 0, 1);
    grid->addWidget(new QLabel("Data Type", editBox), 0, 2);
    grid->addWidget(dataTypeList, 0, 3);
    grid->addWidget(new QLabel("Value", editBox), 1, 0);
    grid->addWidget(valueEdit, 1, 1, 1, 3);
    grid->addWidget(new QLabel("Value Comment", editBox), 2, 0);
    grid->addWidget(commentEdit, 2, 1, 1, 3);
    auto* row = new QHBoxLayout;
    addButton = new QPushButton("Add", editBox);
    addButton->setObjectName("addCard");
    changeButton = new QPushButton("Change", editBox);
    changeButton->setObjectName("changeCard");
    deleteButton = new QPushButton("Delete", editBox);
    deleteButton->setObjectName("deleteCard");
    row->addStretch(1);
    row->addWidget(addButton);
    row->addWidget(changeButton);
    row->addWidget(deleteButton);
    grid->addLayout(row, 3, 0, 1, 4);
    connect(addButton, &QPushButton::clicked, this, [this] { AddCard(); });
    connect(changeButton, &QPushButton::clicked, this, [this] { ChangeCard(); });
    connect(deleteButton, &QPushButton::clicked, this, [this] { DeleteCard(); });
    Body()->addWidget(editBox);

    // The panel has nothing to apply: Done closes it.
    applyButton->hide();
    cancelButton->hide();
    Refresh();
}

void CImgAttrib::Refresh() {
    CProcessWindow* w = ShownImage();
    shown_ = ImageProperties{};
    if (w) {
        PropertiesFormat format = PropertiesFormat::FITS;
        const bool known = PropertiesFormatOfKind(w->image.fileType, &format);
        std::vector<PropertyRow> rows;
        if (known && !FilePropertyRows(w->image, w->filePath, &rows))
            rows.clear(); // the state rows still show
        shown_ = ImagePropertiesOf(w->image, format, rows, RolesOf(*w));
        if (!known)
            shown_.heading.clear();
    }
    heading->setText(QString::fromStdString(shown_.heading));
    const QSignalBlocker quiet(table);
    table->clearContents();
    table->setRowCount(static_cast<int>(shown_.rows.size()));
    for (std::size_t i = 0; i < shown_.rows.size(); ++i) {
        table->setItem(int(i), 0,
                       new QTableWidgetItem(QString::fromStdString(shown_.rows[i].property)));
        table->setItem(int(i), 1,
                       new QTableWidgetItem(QString::fromStdString(shown_.rows[i].value)));
    }
    table->resizeColumnToContents(0);
    editBox->setVisible(w && shown_.format == PropertiesFormat::FITS && !shown_.heading.empty());
    RefreshCaption();
}

void CImgAttrib::RowSelected() {
    const int row = table->currentRow();
    if (row < 0 || row >= static_cast<int>(shown_.rows.size()))
        return;
    propertyEdit->setText(QString::fromStdString(shown_.rows[std::size_t(row)].property));
    // The value column joins value and comment: split them back for editing.
    const std::string& shownValue = shown_.rows[std::size_t(row)].value;
    const auto cut = shownValue.find(" / ");
    valueEdit->setText(QString::fromStdString(shownValue.substr(0, cut)));
    commentEdit->setText(
        cut == std::string::npos ? QString() : QString::fromStdString(shownValue.substr(cut + 3)));
}

HeaderEntry CImgAttrib::Entry() const {
    HeaderEntry e;
    e.property = propertyEdit->text().toStdString();
    e.value = valueEdit->text().toStdString();
    e.valueComment = commentEdit->text().toStdString();
    const int type = dataTypeList->currentIndex();
    e.dataType = kTypes[type >= 0 && type < 4 ? type : kStringType].code;
    return e;
}

bool CImgAttrib::Edited(const std::string& text) {
    if (!text.empty()) {
        Context().Model().notify().Message(text);
        return false;
    }
    Refresh();
    return true;
}

bool CImgAttrib::AddCard() {
    CProcessWindow* w = Target();
    if (!w)
        return false;
    return Edited(AddHeaderCard(w->image.headerCards, Entry()));
}

bool CImgAttrib::ChangeCard() {
    CProcessWindow* w = Target();
    if (!w)
        return false;
    const int row = table->selectedItems().isEmpty() ? -1 : table->currentRow();
    return Edited(
        ChangeHeaderCard(w->image.headerCards, w->image.width, w->image.height, row, Entry()));
}

bool CImgAttrib::DeleteCard() {
    CProcessWindow* w = Target();
    if (!w)
        return false;
    const int row = table->selectedItems().isEmpty() ? -1 : table->currentRow();
    return Edited(DeleteHeaderCard(w->image.headerCards, w->image.width, w->image.height, row));
}

} // namespace astrivelle
