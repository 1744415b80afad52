// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Minimal JSON text output for the commands' --json forms.
#pragma once
#include <string>

namespace astrivelle::cli {

/// A JSON string literal, with quotes; control characters and bytes above 127 are escaped as
/// \u00XX so that any header text gives valid JSON.
std::string JsonString(const std::string& s);

/// A number that reads back to the same double (17 significant digits); NaN and infinities,
/// which JSON has no words for, become null.
std::string JsonNumber(double v);

} // namespace astrivelle::cli
