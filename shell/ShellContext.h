// SPDX-License-Identifier: GPL-3.0-or-later
/// \file What every window and tool of the desktop program reaches the rest through: the
/// workbench model, the main window, the active image and the persistent settings.
#pragma once
#include <string>

class QWidget;

namespace astrivelle {

class CMainWindow;
class CProcessWindow;
struct CSetupParams;

class ShellContext {
public:
    virtual ~ShellContext() = default;
    /// The open images, their histories and the program's rules.
    virtual CMainWindow& Model() = 0;
    /// The main window, parent of every tool and message box.
    virtual QWidget* MainWidget() = 0;
    /// The image the user works on, or null.
    virtual CProcessWindow* ActiveImage() = 0;
    /// The planes or the history of an image changed: redraw its view, refresh readouts,
    /// histogram, history tool and the Undo/Redo commands.
    virtual void ImageChanged(CProcessWindow* image) = 0;
    /// The persistent settings (tool positions by class name, recent files...).
    virtual CSetupParams& Setup() = 0;
};

} // namespace astrivelle
