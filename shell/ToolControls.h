// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Small builders the operator tools share: named edits, sliders, combo boxes and check
/// boxes, a spin box and slider kept in step, the row of checks that takes in the frame's
/// "Lock Image", the images an "To All Images" apply works on, and a tool's menu entry.
#pragma once
#include <QComboBox>
#include <QString>

#include <array>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "shell/OperatorTools.h"

class QDialog;
class QDialogButtonBox;
class QLayout;

class QCheckBox;
class QHBoxLayout;
class QLineEdit;
class QPushButton;
class QRadioButton;
class QSlider;
class QSpinBox;
class QWidget;

namespace astrivelle {

/// A program text (UTF-8) as a Qt string.
inline QString Q(const std::string& s) {
    return QString::fromStdString(s);
}

class CProcessWindow;
class ShellContext;
class ToolFrame;

/// `value` with `decimals` places and a point, whatever the locale.
QString FixedText(double value, int decimals);

/// A number field named `name`, at most 100 pixels wide.
QLineEdit* MakeNumberEdit(QWidget* parent, const char* name);

/// A radio button with its text and object name.
QRadioButton* MakeRadio(QWidget* parent, const char* text, const char* name);

/// Cuts every connection from `window`'s child widgets to `window` itself. A window calls it
/// as it is destroyed: its children are deleted after its own part is gone, and a line edit
/// that loses the focus then still emits editingFinished into the window's slots.
void DisconnectFromChildren(QObject* window);

/// A horizontal slider named `name`, at least 160 pixels wide, with Qt's default range.
QSlider* MakeSlider(QWidget* parent, const char* name);
/// The same over 0..top.
QSlider* MakeSlider(QWidget* parent, const char* name, int top);

/// A combo box named `name` holding the first `count` of `items`.
template <std::size_t N>
QComboBox* MakeCombo(QWidget* parent, const char* name, const std::array<const char*, N>& items,
                     int count = static_cast<int>(N)) {
    auto* combo = new QComboBox(parent);
    combo->setObjectName(name);
    for (int i = 0; i < count; ++i)
        combo->addItem(QString::fromLatin1(items[i]));
    return combo;
}

/// The current text of `combo`.
std::string ComboText(const QComboBox* combo);
/// Selects the item reading `text`; nothing when there is none.
void ChooseText(QComboBox* combo, const std::string& text);

/// Gives `slider` the range and value of `box` and keeps the two in step both ways.
void PairSpinSlider(QSpinBox* box, QSlider* slider);

/// A check box reading `text`, named `name`.
QCheckBox* MakeCheck(QWidget* parent, const QString& text, const char* name);
/// A push button reading `text`, named `name`.
QPushButton* MakeButton(QWidget* parent, const QString& text, const char* name);

/// The OK / Cancel row of a dialog, added to `layout`, its buttons named "ok" and "cancel".
/// OK accepts the dialog when `accepting` is empty or returns true; Cancel rejects it.
QDialogButtonBox* OkCancel(QDialog* dialog, QLayout* layout, std::function<bool()> accepting = {});

/// A row of `checks` in order, a stretch, then `last` when there is one.
QHBoxLayout* SpreadRow(std::initializer_list<QWidget*> checks, QWidget* last = nullptr);
/// The row under a tool's controls: `checks` in order, the frame's "Lock Image" (taken out of
/// the frame's own layout), a stretch, then `last` when there is one.
QHBoxLayout* CheckRow(ToolFrame* frame, std::initializer_list<QWidget*> checks,
                      QWidget* last = nullptr);

/// Ticking "Lock Image" clears `toAllImages`.
void LockClearsToAll(ToolFrame* frame, QCheckBox* toAllImages);

/// The images an apply works on: every open image when `all`, else `target` alone.
std::vector<CProcessWindow*> TargetOrAll(ShellContext& context, CProcessWindow& target, bool all);

/// The menu entry of tool T, which records `operation` and takes its recorded parameter text
/// through T::LoadParameters.
template <class T>
OperatorTool MakeOperatorTool(const std::string& operation, const QString& submenu,
                              const QString& menuText, const QString& objectName) {
    OperatorTool t;
    t.operations = {operation};
    t.submenu = submenu;
    t.menuText = menuText;
    t.objectName = objectName;
    t.className = T::kClassName;
    t.show = [](ShellContext& c) -> ToolFrame* { return T::Show(c); };
    t.load = [](ToolFrame* tool, const std::string&, const std::string& parameters) {
        return static_cast<T*>(tool)->LoadParameters(parameters);
    };
    return t;
}

} // namespace astrivelle
