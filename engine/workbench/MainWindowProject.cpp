// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Opening a project as a new image window of the main window.
#include <memory>

#include "engine/workbench/MainWindow.h"
#include "engine/workbench/Project.h"

namespace astrivelle {

CProcessWindow* CMainWindow::LoadProject(const std::string& qxjPath) {
    if (!CanOpenAnother())
        return nullptr;
    auto window = std::make_unique<CProcessWindow>(&notify());
    // The model's lists of kept files learn of every file the project names.
    window->mainKeptFiles = &keptFiles;
    ProjectLoadResult result;
    if (!LoadProjectFile(qxjPath, *window, {}, &result) || !result.opened)
        return nullptr;
    return AddImage(std::move(window));
}

} // namespace astrivelle
