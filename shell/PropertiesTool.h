// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The image properties panel: the heading and "Property" / "Value" rows of the active
/// image, and for a FITS image the editing of its header cards (Add, Change, Delete).
#pragma once
#include <string>

#include "fileio/ImageProperties.h"
#include "shell/ToolFrame.h"

class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableWidget;

namespace astrivelle {

/// The roles an open image holds, as the panel names them.
ImageRoles RolesOf(const CProcessWindow& window);

class CImgAttrib : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CImgAttrib";
    static constexpr const char* kTitle = "Image Properties";
    static constexpr bool kNeedsImage = true;

    /// Opens (or raises) the panel: the main frame's "Image Properties" menu item calls this.
    static CImgAttrib* Show(ShellContext& context);

    explicit CImgAttrib(ShellContext& context);

    /// Reads the rows of the shown image again.
    void Refresh();
    /// The panel as shown (heading and rows).
    const ImageProperties& Shown() const { return shown_; }

    /// The entry record of the fields. Data types by list index: Boolean, Integer, String, Real.
    HeaderEntry Entry() const;
    /// Header editing; each shows its text through the notifier when refused, false then.
    bool AddCard();
    bool ChangeCard();
    bool DeleteCard();

    QLabel* heading = nullptr;
    QTableWidget* table = nullptr;
    QGroupBox* editBox = nullptr;
    QLineEdit* propertyEdit = nullptr;
    QLineEdit* valueEdit = nullptr;
    QLineEdit* commentEdit = nullptr;
    QComboBox* dataTypeList = nullptr;
    QPushButton* addButton = nullptr;
    QPushButton* changeButton = nullptr;
    QPushButton* deleteButton = nullptr;

protected:
    void OnImageChanged() override { Refresh(); }

private:
    ImageProperties shown_;
    bool Edited(const std::string& text);
    void RowSelected();
};

} // namespace astrivelle
