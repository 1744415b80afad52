// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The custom PSF editor: cells of "%3.3f", sizes "3 x 3" to "13 x 13", arithmetic with a
/// typed value, Unitize, Normalize, Positive, shifts, a block taken from the image, and `.psf`
/// files. OK makes the edited PSF the current one of the restoration tools.
#pragma once
#include <QDialog>

#include <string>

#include "operators/Restoration.h"

class QComboBox;
class QLineEdit;

namespace astrivelle {

class ShellContext;

class CCustomPSFDlg : public QDialog {
    Q_OBJECT
public:
    CCustomPSFDlg(ShellContext& context, QWidget* parent = nullptr);

    /// The PSF the cells show (cells that do not read as numbers keep their last value).
    const CCustomPSF& Psf() const { return psf_; }
    void SetPsf(const CCustomPSF& psf);
    /// Reads the cells and the name; false with "Please Enter A Real Number." shown.
    bool ReadCells();
    /// Runs an operation by its button text: "ADD", "SUB", "MUL", "DIV", "Unitize",
    /// "Normalize", "Positive", or a shift "UL", "U", "UR", "L", "R", "DL", "D", "DR". False
    /// with its text shown when it is refused.
    bool Operate(const std::string& op);
    /// Takes the block about (x, y) of the active image's first plane.
    bool SelectFromImage(int x, int y);
    bool SaveFile(const std::string& path);
    bool LoadFile(const std::string& path);
    /// OK: the cells must read, the sum must not be 0; the PSF becomes the current one.
    bool Commit();

    QLineEdit* cells[13][13] = {};
    QComboBox* sizeBox = nullptr;
    QLineEdit* valueEdit = nullptr;
    QLineEdit* nameEdit = nullptr;

private:
    ShellContext& context_;
    CCustomPSF psf_;
    void ShowCells();
    void Tell(const std::string& text);
};

} // namespace astrivelle
