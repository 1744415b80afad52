// SPDX-License-Identifier: GPL-3.0-or-later
/// \file A tiny JSON writer (keys in the order they are written, numbers in their shortest
/// exact form) and a tiny reader for the truth files the generators write.
#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace astrivelle::synth {

/// Writes JSON text into a string. Commas and indentation are handled by the writer; the
/// caller opens and closes objects and arrays and names keys inside objects.
class JsonWriter {
public:
    /// `indent` 0 writes one line; otherwise nested values go on their own lines.
    explicit JsonWriter(int indent = 2) : indent_(indent) {}

    JsonWriter& BeginObject();
    JsonWriter& EndObject();
    JsonWriter& BeginArray();
    JsonWriter& EndArray();
    /// The key of the next value inside an object.
    JsonWriter& Key(const std::string& key);
    JsonWriter& Number(double v);
    JsonWriter& Integer(long long v);
    JsonWriter& String(const std::string& v);
    JsonWriter& Bool(bool v);
    JsonWriter& Null();
    /// Arrays of numbers on one line (short vectors such as transforms).
    JsonWriter& NumberArray(const double* v, int count);

    const std::string& Text() const { return text_; }

private:
    void BeforeValue();
    void Escape(const std::string& v);
    void NewLine();
    std::string text_;
    int indent_;
    struct Level {
        bool object;
        int count;
        bool inline_;
    };
    std::vector<Level> stack_;
    bool afterKey_ = false;
};

/// The text of a number as the writer puts it: shortest form that reads back exactly; NaN and
/// infinities as null.
std::string JsonNumber(double v);

/// A parsed JSON value.
struct JsonValue {
    enum Type { Null, Bool, Number, String, Array, Object } type = Null;
    bool boolean = false;
    double number = 0;
    std::string string;
    std::vector<JsonValue> items;                          ///< Array
    std::vector<std::pair<std::string, JsonValue>> fields; ///< Object, in file order

    /// The member named `key`, or nullptr (also when this is not an object).
    const JsonValue* Find(const std::string& key) const;
    /// The number of member `key`, or `fallback` when absent or not a number.
    double NumberOr(const std::string& key, double fallback) const;
    std::string StringOr(const std::string& key, const std::string& fallback) const;
};

/// Parses `text`; false with a reason (and the byte offset) when it is not valid JSON.
bool ParseJson(const std::string& text, JsonValue* out, std::string* error);

} // namespace astrivelle::synth
