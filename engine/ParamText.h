// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The `#` parameter text: fields closed by '#', read back by position.
#pragma once
#include <string>

namespace astrivelle {

/// Splits `text` at its first '#'. When the '#' stands above position 0, `field` takes what is
/// before it, `text` what is behind it, and the result is true. Otherwise (no '#', or '#' at
/// position 0) both stay as they are and the result is false: an empty field stops a parse.
bool NextField(std::string* field, std::string* text);

/// Takes the text behind the first ':' of `field`, trimmed at both ends. False when there is
/// no ':' or it stands at position 0.
bool FieldValue(std::string* value, const std::string& field);

/// "(x, y)" -> x and y by atoi, after removing every parenthesis. False when the comma is
/// missing or at position 0.
bool PointValue(int* x, int* y, const std::string& text);

/// Reads the next field and its value in one go; false when either step fails.
bool NextValue(std::string* value, std::string* text);

/// printf into a std::string; the templates of the operators use it.
std::string FormatText(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// A "%d x %d" window size read back as a radius: the number before 'x', then (n - 1) / 2.
int WindowSizeRadius(const std::string& value);

/// "Yes" decides; anything else is no.
inline bool IsYes(const std::string& value) {
    return value == "Yes";
}

} // namespace astrivelle
