// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The small modal dialogs of the image commands: New Image, Copy Portion and Convert
/// Color Type. Each holds its fields and calls the workbench model; `Show` runs it modally.
#pragma once
#include <QDialog>

#include <cstdint>

class QCheckBox;
class QComboBox;
class QDialogButtonBox;
class QDoubleSpinBox;
class QLineEdit;
class QSpinBox;

namespace astrivelle {

class CProcessWindow;
class ShellContext;

/// "New Image": width, height, colour and the value every sample takes.
class CNewImage : public QDialog {
    Q_OBJECT
public:
    explicit CNewImage(ShellContext& context);
    /// Runs the dialog; the new image on OK, else null. The main frame's "New Image" calls it.
    static CProcessWindow* Show(ShellContext& context);
    /// Makes the image the fields describe (CMainWindow::NewImage) and reports it changed.
    CProcessWindow* Create();

    QSpinBox* widthBox = nullptr;
    QSpinBox* heightBox = nullptr;
    QCheckBox* colorCheck = nullptr;
    QDoubleSpinBox* valueBox = nullptr;

private:
    ShellContext& context_;
};

/// "Copy Portion": a rectangle of the active image into a new image.
class CCopyPortion : public QDialog {
    Q_OBJECT
public:
    explicit CCopyPortion(ShellContext& context);
    /// Runs the dialog on the active image ("Please Open An Image First." when none).
    static CProcessWindow* Show(ShellContext& context);
    /// Copies the rectangle of the fields (CMainWindow::CopyPortion) with the optional name.
    CProcessWindow* Create();

    QSpinBox* xBox = nullptr;
    QSpinBox* yBox = nullptr;
    QSpinBox* widthBox = nullptr;
    QSpinBox* heightBox = nullptr;
    QLineEdit* nameEdit = nullptr;

private:
    ShellContext& context_;
};

/// "Convert Color Type": the channel a single-plane image stands for (Gray, Red, ...).
class CConvertColorType : public QDialog {
    Q_OBJECT
public:
    explicit CConvertColorType(ShellContext& context);
    /// Runs the dialog on the active image ("Please Open An Image First." when none).
    static bool Show(ShellContext& context);
    /// Converts the active image to the chosen type after the operator guards (their text
    /// shown when refused). False when refused or on an RGB image.
    bool Convert();
    /// The colour type the list's current entry stands for.
    std::uint32_t ChosenType() const;

    QComboBox* typeList = nullptr;

private:
    ShellContext& context_;
};

} // namespace astrivelle
