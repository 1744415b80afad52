// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The vocabulary of operator names and the lists that the engine tests them against.
#pragma once
#include <string>
#include <vector>

namespace astrivelle {

/// Every image-level operator name, in the order replay tests them.
const std::vector<std::string>& ReplayOperatorNames();

/// True for a name of the replay vocabulary.
bool IsReplayOperator(const std::string& name);

/// Names that only label a first step or a source and have no replay ("Read", "New Image",
/// "Duplicate Image", the combination methods...). BeginOperator saves no step file for them.
bool IsNoReplayName(const std::string& name);

/// The four operators that work in place on the current planes, so that a repeat must first
/// restore the step's input.
bool WorksInPlace(const std::string& name);

/// Operators that run on a worker thread rather than on the user interface thread.
bool RunsOnWorker(const std::string& name);

} // namespace astrivelle
