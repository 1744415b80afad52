// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Pieces the history's source files share; not for use outside them.
#pragma once
#include <string>

#include "engine/ProcessWindow.h"

namespace astrivelle::history_detail {

/// The window holds planes to work on.
bool HasImage(const CProcessWindow& w);
/// Tells "Operation In Progress" and returns true when a worker owns the image.
bool RefuseBusy(CProcessWindow& w);
/// Adds a step or filter file to the window's and the main window's temporary lists.
void AddTempFile(CProcessWindow& w, const std::string& path);
/// SaveStepImage. `beforeOperator`: called by BeginOperator, the planes change right after,
/// so the state stays dirty.
bool SaveStep(CProcessWindow& w, bool beforeOperator);
/// The plane markers curPlanesFile and prevPlanesFile may be believed.
bool PlanesTrusted(const CProcessWindow& w);
/// Exchanges current and previous planes, their markers and their statistics. True when the
/// statistics of the planes now shown were known (they had been shown before).
bool SwapPlanes(CProcessWindow& w);
/// Puts the state of `curFile` in the current planes and, if it differs, that of `prevFile`
/// in the previous planes, from the planes when they hold it, else from the files.
bool ShowStepFiles(CProcessWindow& w, const std::string& curFile, const std::string& prevFile);
/// Runs a step again without a tool (HistoryForward.cpp).
bool ReplayStep(CProcessWindow& w, const std::string& operation, const std::string& parameters);

} // namespace astrivelle::history_detail
