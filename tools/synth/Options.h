// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Reading a subcommand's options: `--name value` pairs and bare flags.
#pragma once
#include <map>
#include <set>
#include <string>
#include <vector>
#include <cstdio>
#include <cstdlib>

namespace astrivelle::synth {

class Options {
public:
    /// Splits `args`; `valued` options take the next argument, `flags` stand alone. False with
    /// a text for anything else or a missing value.
    bool Parse(const std::vector<std::string>& args, const std::set<std::string>& valued,
               const std::set<std::string>& flags, std::string* error) {
        for (std::size_t i = 0; i < args.size(); ++i) {
            const std::string& a = args[i];
            if (valued.count(a)) {
                if (i + 1 >= args.size()) {
                    *error = "option " + a + " needs a value";
                    return false;
                }
                values_[a] = args[++i];
            } else if (flags.count(a)) {
                flags_.insert(a);
            } else {
                *error = "unknown argument " + a;
                return false;
            }
        }
        return true;
    }

    bool Has(const std::string& name) const { return flags_.count(name) || values_.count(name); }
    std::string Text(const std::string& name, const std::string& fallback = {}) const {
        auto it = values_.find(name);
        return it == values_.end() ? fallback : it->second;
    }
    /// An integer option; false with a text when it is not a whole number in [lo, hi].
    bool Int(const std::string& name, long long lo, long long hi, long long* out,
             std::string* error) const {
        auto it = values_.find(name);
        if (it == values_.end())
            return true;
        char* end = nullptr;
        const long long v = std::strtoll(it->second.c_str(), &end, 10);
        if (it->second.empty() || *end || v < lo || v > hi) {
            *error = name + " must be a whole number from " + std::to_string(lo) + " to " +
                     std::to_string(hi);
            return false;
        }
        *out = v;
        return true;
    }
    /// A "WxH" size; false with a text when malformed or outside 1..limit.
    bool Size(const std::string& name, int limit, int* w, int* h, std::string* error) const {
        auto it = values_.find(name);
        if (it == values_.end())
            return true;
        int a = 0, b = 0;
        char x = 0, extra = 0;
        if (std::sscanf(it->second.c_str(), "%d%c%d%c", &a, &x, &b, &extra) != 3 ||
            (x != 'x' && x != 'X') || a < 1 || b < 1 || a > limit || b > limit) {
            *error = name + " must be WIDTHxHEIGHT, each 1 to " + std::to_string(limit);
            return false;
        }
        *w = a;
        *h = b;
        return true;
    }

private:
    std::map<std::string, std::string> values_;
    std::set<std::string> flags_;
};

} // namespace astrivelle::synth
