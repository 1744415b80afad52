// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Parsing and formatting of the `#` parameter text.
#include "engine/ParamText.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace astrivelle {

bool NextField(std::string* field, std::string* text) {
    std::string::size_type pos = text->find('#');
    if (pos == std::string::npos || pos == 0)
        return false;
    *field = text->substr(0, pos);
    *text = text->substr(pos + 1);
    return true;
}

static std::string Trim(const std::string& s) {
    const char* ws = " \t\r\n";
    std::string::size_type b = s.find_first_not_of(ws);
    if (b == std::string::npos)
        return {};
    std::string::size_type e = s.find_last_not_of(ws);
    return s.substr(b, e - b + 1);
}

bool FieldValue(std::string* value, const std::string& field) {
    std::string::size_type pos = field.find(':');
    if (pos == std::string::npos || pos < 1)
        return false;
    *value = Trim(field.substr(pos + 1));
    return true;
}

bool PointValue(int* x, int* y, const std::string& text) {
    std::string s;
    for (char c : text)
        if (c != '(' && c != ')')
            s += c;
    std::string::size_type comma = s.find(',');
    if (comma == std::string::npos || comma == 0)
        return false;
    *x = std::atoi(s.substr(0, comma).c_str());
    *y = std::atoi(s.substr(comma + 1).c_str());
    return true;
}

bool NextValue(std::string* value, std::string* text) {
    std::string field;
    return NextField(&field, text) && FieldValue(value, field);
}

std::string FormatText(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string out;
    if (n > 0) {
        out.resize(static_cast<size_t>(n) + 1);
        std::vsnprintf(out.data(), out.size(), format, args);
        out.resize(static_cast<size_t>(n));
    }
    va_end(args);
    return out;
}

int WindowSizeRadius(const std::string& value) {
    std::string::size_type x = value.find('x');
    int n = std::atoi(value.substr(0, x).c_str());
    return (n - 1) / 2;
}

} // namespace astrivelle
