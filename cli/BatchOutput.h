// SPDX-License-Identifier: GPL-3.0-or-later
/// \file What the batch file commands (normalize, resize, crop) share: number options and the
/// printing of a run's final status and output list.
#pragma once
#include <string>

#include "cli/CliCommon.h"

namespace astrivelle {
struct FileOpResult;
}

namespace astrivelle::cli {

/// Reads a whole option value as a number; false for text that is not one.
bool ParseNumber(const std::string& text, double* value);
bool ParseInteger(const std::string& text, int* value);

/// Prints the status line and the outputs one a line, or with `json` one object
/// {"status","ok","outputs":[...],"failures":[{"file","text","detail"}]}. Returns the exit
/// status: 0 when every file was written, else 1.
int PrintRunResult(const FileOpResult& result, bool json);

} // namespace astrivelle::cli
