// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The custom PSF editor.
#include "shell/PsfEditor.h"

#include <QComboBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "engine/ProcessWindow.h"
#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"

namespace astrivelle {

CCustomPSFDlg::CCustomPSFDlg(ShellContext& context, QWidget* parent)
    : QDialog(parent ? parent : context.MainWidget()), context_(context) {
    setObjectName("CCustomPSFDlg");
    setWindowTitle("Custom PSF");
    auto* outer = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    nameEdit = new QLineEdit(this);
    nameEdit->setObjectName("name");
    sizeBox = new QComboBox(this);
    sizeBox->setObjectName("size");
    for (int s = 3; s <= 13; s += 2)
        sizeBox->addItem(QString("%1 x %1").arg(s));
    top->addWidget(new QLabel("Name", this));
    top->addWidget(nameEdit, 1);
    top->addWidget(new QLabel("Size", this));
    top->addWidget(sizeBox);
    outer->addLayout(top);

    auto* grid = new QGridLayout;
    grid->setSpacing(2);
    for (int r = 0; r < 13; ++r)
        for (int c = 0; c < 13; ++c) {
            cells[r][c] = new QLineEdit(this);
            cells[r][c]->setObjectName(QString("cell_%1_%2").arg(r).arg(c));
            cells[r][c]->setMaximumWidth(56);
            grid->addWidget(cells[r][c], r, c);
        }
    outer->addLayout(grid);

    auto* ops = new QHBoxLayout;
    valueEdit = new QLineEdit("1.000", this);
    valueEdit->setObjectName("value");
    ops->addWidget(valueEdit);
    auto button = [this](QHBoxLayout* row, const char* text) {
        auto* b = new QPushButton(text, this);
        b->setObjectName(text);
        b->setAutoDefault(false);
        row->addWidget(b);
        return b;
    };
    for (const char* op : {"ADD", "SUB", "MUL", "DIV", "Unitize", "Normalize", "Positive"})
        connect(button(ops, op), &QPushButton::clicked, this, [this, op] { Operate(op); });
    outer->addLayout(ops);
    auto* shifts = new QHBoxLayout;
    for (const char* dir : {"UL", "U", "UR", "L", "R", "DL", "D", "DR"})
        connect(button(shifts, dir), &QPushButton::clicked, this, [this, dir] { Operate(dir); });
    outer->addLayout(shifts);

    auto* files = new QHBoxLayout;
    QPushButton* select = button(files, "Select From Image");
    select->setObjectName("selectFromImage");
    QPushButton* load = button(files, "Load...");
    load->setObjectName("load");
    QPushButton* save = button(files, "Save...");
    save->setObjectName("save");
    files->addStretch(1);
    QPushButton* ok = button(files, "OK");
    ok->setObjectName("ok");
    QPushButton* cancel = button(files, "Cancel");
    cancel->setObjectName("cancel");
    outer->addLayout(files);

    connect(select, &QPushButton::clicked, this, [this] {
        CProcessWindow* image = context_.ActiveImage();
        if (image)
            SelectFromImage(image->image.width / 2, image->image.height / 2);
    });
    connect(load, &QPushButton::clicked, this, [this] {
        const QString path =
            QFileDialog::getOpenFileName(this, "Load PSF", QString(), "PSF Files (*.psf)");
        if (!path.isEmpty())
            LoadFile(path.toStdString());
    });
    connect(save, &QPushButton::clicked, this, [this] {
        if (!ReadCells())
            return;
        std::string why;
        if (!PsfNameValid(psf_.name, &why)) {
            Tell(why);
            return;
        }
        const QString path = QFileDialog::getSaveFileName(
            this, "Save PSF", QString::fromStdString(psf_.name + ".psf"), "PSF Files (*.psf)");
        if (!path.isEmpty())
            SaveFile(path.toStdString());
    });
    connect(ok, &QPushButton::clicked, this, [this] {
        if (Commit())
            accept();
    });
    connect(cancel, &QPushButton::clicked, this, [this] { reject(); });
    connect(sizeBox, &QComboBox::currentIndexChanged, this, [this](int index) {
        ReadCells();
        PsfResize(&psf_, 3 + 2 * index);
        ShowCells();
    });
    SetPsf(CurrentCustomPsf());
}

void CCustomPSFDlg::Tell(const std::string& text) {
    context_.Model().notify().Message(text);
}

void CCustomPSFDlg::SetPsf(const CCustomPSF& psf) {
    psf_ = psf;
    ShowCells();
}

void CCustomPSFDlg::ShowCells() {
    nameEdit->setText(QString::fromStdString(psf_.name));
    {
        const QSignalBlocker quiet(sizeBox);
        sizeBox->setCurrentIndex((psf_.size - 3) / 2);
    }
    for (int r = 0; r < 13; ++r)
        for (int c = 0; c < 13; ++c) {
            const bool used = r < psf_.size && c < psf_.size;
            cells[r][c]->setVisible(used);
            cells[r][c]->setText(used ? QString::fromStdString(PsfCellText(psf_.At(r, c)))
                                      : QString());
        }
}

bool CCustomPSFDlg::ReadCells() {
    CCustomPSF read = psf_;
    read.name = nameEdit->text().toStdString();
    for (int r = 0; r < psf_.size; ++r)
        for (int c = 0; c < psf_.size; ++c) {
            std::string why;
            if (!PsfSetCell(&read, r, c, cells[r][c]->text().toStdString(), &why)) {
                Tell(why);
                return false;
            }
        }
    psf_ = read;
    return true;
}

bool CCustomPSFDlg::Operate(const std::string& op) {
    if (!ReadCells())
        return false;
    std::string why;
    bool ok = true;
    if (op == "ADD" || op == "SUB" || op == "MUL" || op == "DIV")
        ok = PsfArithmetic(&psf_, op, valueEdit->text().toStdString(), &why);
    else if (op == "Unitize")
        ok = PsfUnitize(&psf_, &why);
    else if (op == "Normalize")
        ok = PsfNormalize(&psf_, &why);
    else if (op == "Positive")
        PsfPositive(&psf_);
    else
        ok = PsfShift(&psf_, op);
    if (!ok) {
        if (!why.empty())
            Tell(why);
        return false;
    }
    ShowCells();
    return true;
}

bool CCustomPSFDlg::SelectFromImage(int x, int y) {
    CProcessWindow* image = context_.ActiveImage();
    if (!image)
        return false;
    const Image& img = image->image;
    const std::vector<int> planes = img.Slots();
    if (planes.empty() || !img.curPlane[planes[0]])
        return false;
    ReadCells();
    PsfFromImage(&psf_, img.curPlane[planes[0]], img.width, img.height, x, y);
    ShowCells();
    return true;
}

bool CCustomPSFDlg::SaveFile(const std::string& path) {
    if (!ReadCells())
        return false;
    std::string why;
    if (!WritePsfFile(path, psf_, &why)) {
        Tell(why);
        return false;
    }
    return true;
}

bool CCustomPSFDlg::LoadFile(const std::string& path) {
    CCustomPSF loaded;
    std::string why;
    if (!ReadPsfFile(path, &loaded, &why)) {
        Tell(why);
        return false;
    }
    SetPsf(loaded);
    return true;
}

bool CCustomPSFDlg::Commit() {
    if (!ReadCells())
        return false;
    std::string why;
    if (!PsfNameValid(psf_.name, &why) || !PsfUsable(psf_, &why)) {
        Tell(why);
        return false;
    }
    CurrentCustomPsf() = psf_;
    return true;
}

} // namespace astrivelle
