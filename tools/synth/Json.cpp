// SPDX-License-Identifier: GPL-3.0-or-later
/// \file JSON writing and reading for the generators' truth files.
#include "tools/synth/Json.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace astrivelle::synth {

std::string JsonNumber(double v) {
    if (!std::isfinite(v))
        return "null";
    if (v == 0)
        return "0";
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    return std::string(buf, r.ptr);
}

void JsonWriter::NewLine() {
    if (indent_ <= 0)
        return;
    text_ += '\n';
    text_.append(stack_.size() * indent_, ' ');
}

void JsonWriter::BeforeValue() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (!stack_.empty()) {
        Level& level = stack_.back();
        if (level.count++)
            text_ += level.inline_ ? ", " : ",";
        if (!level.inline_)
            NewLine();
    }
}

JsonWriter& JsonWriter::BeginObject() {
    BeforeValue();
    text_ += '{';
    stack_.push_back({true, 0, false});
    return *this;
}

JsonWriter& JsonWriter::EndObject() {
    const bool any = stack_.back().count > 0;
    stack_.pop_back();
    if (any)
        NewLine();
    text_ += '}';
    if (stack_.empty() && indent_ > 0)
        text_ += '\n';
    return *this;
}

JsonWriter& JsonWriter::BeginArray() {
    BeforeValue();
    text_ += '[';
    stack_.push_back({false, 0, false});
    return *this;
}

JsonWriter& JsonWriter::EndArray() {
    const bool any = stack_.back().count > 0;
    stack_.pop_back();
    if (any)
        NewLine();
    text_ += ']';
    return *this;
}

JsonWriter& JsonWriter::Key(const std::string& key) {
    Level& level = stack_.back();
    if (level.count++)
        text_ += ',';
    NewLine();
    Escape(key);
    text_ += indent_ > 0 ? ": " : ":";
    afterKey_ = true;
    return *this;
}

JsonWriter& JsonWriter::Number(double v) {
    BeforeValue();
    text_ += JsonNumber(v);
    return *this;
}

JsonWriter& JsonWriter::Integer(long long v) {
    BeforeValue();
    text_ += std::to_string(v);
    return *this;
}

JsonWriter& JsonWriter::String(const std::string& v) {
    BeforeValue();
    Escape(v);
    return *this;
}

void JsonWriter::Escape(const std::string& v) {
    text_ += '"';
    for (unsigned char c : v) {
        switch (c) {
        case '"':
            text_ += "\\\"";
            break;
        case '\\':
            text_ += "\\\\";
            break;
        case '\n':
            text_ += "\\n";
            break;
        case '\t':
            text_ += "\\t";
            break;
        case '\r':
            text_ += "\\r";
            break;
        default:
            if (c < 0x20) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", c);
                text_ += buf;
            } else {
                text_ += static_cast<char>(c);
            }
        }
    }
    text_ += '"';
}

JsonWriter& JsonWriter::Bool(bool v) {
    BeforeValue();
    text_ += v ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::Null() {
    BeforeValue();
    text_ += "null";
    return *this;
}

JsonWriter& JsonWriter::NumberArray(const double* v, int count) {
    BeforeValue();
    text_ += '[';
    for (int i = 0; i < count; ++i) {
        if (i)
            text_ += ", ";
        text_ += JsonNumber(v[i]);
    }
    text_ += ']';
    return *this;
}

const JsonValue* JsonValue::Find(const std::string& key) const {
    if (type != Object)
        return nullptr;
    for (const auto& f : fields)
        if (f.first == key)
            return &f.second;
    return nullptr;
}

double JsonValue::NumberOr(const std::string& key, double fallback) const {
    const JsonValue* v = Find(key);
    return v && v->type == Number ? v->number : fallback;
}

std::string JsonValue::StringOr(const std::string& key, const std::string& fallback) const {
    const JsonValue* v = Find(key);
    return v && v->type == String ? v->string : fallback;
}

namespace {

class Parser {
public:
    explicit Parser(const std::string& t) : s(t) {}
    const std::string& s;
    std::size_t i = 0;
    std::string error;

    void Space() {
        while (i < s.size() && (s[i] == ' ' || s[i] == '\n' || s[i] == '\r' || s[i] == '\t'))
            ++i;
    }
    bool Fail(const std::string& what) {
        if (error.empty())
            error = what + " at offset " + std::to_string(i);
        return false;
    }
    bool Literal(const char* word) {
        std::size_t n = std::char_traits<char>::length(word);
        if (s.compare(i, n, word) != 0)
            return Fail("unexpected text");
        i += n;
        return true;
    }
    bool ParseString(std::string* out) {
        if (i >= s.size() || s[i] != '"')
            return Fail("expected a string");
        ++i;
        while (i < s.size() && s[i] != '"') {
            char c = s[i++];
            if (c != '\\') {
                out->push_back(c);
                continue;
            }
            if (i >= s.size())
                return Fail("unfinished escape");
            char e = s[i++];
            switch (e) {
            case '"':
            case '\\':
            case '/':
                out->push_back(e);
                break;
            case 'n':
                out->push_back('\n');
                break;
            case 't':
                out->push_back('\t');
                break;
            case 'r':
                out->push_back('\r');
                break;
            case 'b':
                out->push_back('\b');
                break;
            case 'f':
                out->push_back('\f');
                break;
            case 'u': {
                if (i + 4 > s.size())
                    return Fail("short \\u escape");
                unsigned code =
                    static_cast<unsigned>(std::strtoul(s.substr(i, 4).c_str(), nullptr, 16));
                i += 4;
                if (code < 0x80) {
                    out->push_back(static_cast<char>(code));
                } else if (code < 0x800) {
                    out->push_back(static_cast<char>(0xC0 | (code >> 6)));
                    out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
                } else {
                    out->push_back(static_cast<char>(0xE0 | (code >> 12)));
                    out->push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
                    out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
                }
                break;
            }
            default:
                return Fail("bad escape");
            }
        }
        if (i >= s.size())
            return Fail("unfinished string");
        ++i;
        return true;
    }
    bool Value(JsonValue* v, int depth) {
        if (depth > 64)
            return Fail("nesting too deep");
        Space();
        if (i >= s.size())
            return Fail("unexpected end");
        char c = s[i];
        if (c == '{') {
            v->type = JsonValue::Object;
            ++i;
            Space();
            if (i < s.size() && s[i] == '}') {
                ++i;
                return true;
            }
            for (;;) {
                Space();
                std::string key;
                if (!ParseString(&key))
                    return false;
                Space();
                if (i >= s.size() || s[i] != ':')
                    return Fail("expected ':'");
                ++i;
                v->fields.emplace_back(std::move(key), JsonValue());
                if (!Value(&v->fields.back().second, depth + 1))
                    return false;
                Space();
                if (i < s.size() && s[i] == ',') {
                    ++i;
                    continue;
                }
                if (i < s.size() && s[i] == '}') {
                    ++i;
                    return true;
                }
                return Fail("expected ',' or '}'");
            }
        }
        if (c == '[') {
            v->type = JsonValue::Array;
            ++i;
            Space();
            if (i < s.size() && s[i] == ']') {
                ++i;
                return true;
            }
            for (;;) {
                v->items.emplace_back();
                if (!Value(&v->items.back(), depth + 1))
                    return false;
                Space();
                if (i < s.size() && s[i] == ',') {
                    ++i;
                    continue;
                }
                if (i < s.size() && s[i] == ']') {
                    ++i;
                    return true;
                }
                return Fail("expected ',' or ']'");
            }
        }
        if (c == '"') {
            v->type = JsonValue::String;
            return ParseString(&v->string);
        }
        if (c == 't') {
            v->type = JsonValue::Bool;
            v->boolean = true;
            return Literal("true");
        }
        if (c == 'f') {
            v->type = JsonValue::Bool;
            return Literal("false");
        }
        if (c == 'n') {
            v->type = JsonValue::Null;
            return Literal("null");
        }
        const char* begin = s.c_str() + i;
        char* end = nullptr;
        v->number = std::strtod(begin, &end);
        if (end == begin || !(c == '-' || (c >= '0' && c <= '9')))
            return Fail("unexpected character");
        v->type = JsonValue::Number;
        i += static_cast<std::size_t>(end - begin);
        return true;
    }
};

} // namespace

bool ParseJson(const std::string& text, JsonValue* out, std::string* error) {
    Parser p(text);
    *out = JsonValue();
    if (!p.Value(out, 0)) {
        *error = p.error;
        return false;
    }
    p.Space();
    if (p.i != text.size()) {
        *error = "extra text at offset " + std::to_string(p.i);
        return false;
    }
    return true;
}

} // namespace astrivelle::synth
