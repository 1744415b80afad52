// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The editing rules of the Levels tool: the entry checks with their texts, the master
/// set kept meaningful by deltas and folds, Midtone following Black and White, and the gamma
/// slider's scale.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "engine/ParamText.h"
#include "operators/Curves.h"

namespace astrivelle {

namespace {

const char* kEntryNames[8] = {"Black",       "White",       "Midtone",      "Midtone Intensity",
                              "Black Gamma", "White Gamma", "Output Black", "Output White"};

bool IsGamma(LevelsEntry e) {
    return e == LevelsEntry::BlackGamma || e == LevelsEntry::WhiteGamma;
}

/// Sets an entry of one set; Black and White move with Midtone following.
void SetEntry(LevelsSet* s, LevelsEntry e, double value) {
    const int v = static_cast<int>(value);
    switch (e) {
    case LevelsEntry::Black:
        MoveLevelsEnd(s, false, v);
        break;
    case LevelsEntry::White:
        MoveLevelsEnd(s, true, v);
        break;
    case LevelsEntry::Midtone:
        s->midtone = v;
        break;
    case LevelsEntry::MidtoneIntensity:
        s->midtoneIntensity = v;
        break;
    case LevelsEntry::BlackGamma:
        s->blackGamma = value;
        break;
    case LevelsEntry::WhiteGamma:
        s->whiteGamma = value;
        break;
    case LevelsEntry::OutputBlack:
        s->outputBlack = v;
        break;
    case LevelsEntry::OutputWhite:
        s->outputWhite = v;
        break;
    }
}

std::string Trim(const std::string& text) {
    const auto b = text.find_first_not_of(" \t\r\n");
    if (b == std::string::npos)
        return {};
    const auto e = text.find_last_not_of(" \t\r\n");
    return text.substr(b, e - b + 1);
}

bool ParseInteger(const std::string& text, long* out) {
    errno = 0;
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || end == text.c_str() || *end != '\0')
        return false;
    *out = v;
    return true;
}

bool ParseReal(const std::string& text, double* out) {
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (errno != 0 || end == text.c_str() || *end != '\0' || !std::isfinite(v))
        return false;
    *out = v;
    return true;
}

} // namespace

const char* LevelsEntryName(LevelsEntry entry) {
    return kEntryNames[static_cast<int>(entry)];
}

bool LevelsEntryOf(const std::string& name, LevelsEntry* entry) {
    for (int k = 0; k < 8; ++k)
        if (name == kEntryNames[k]) {
            *entry = static_cast<LevelsEntry>(k);
            return true;
        }
    return false;
}

int LevelsSetOfChannel(const std::string& channel) {
    if (channel == "RGB")
        return LevelsMaster;
    if (channel == "Red" || channel == "Monochrome")
        return LevelsRed;
    if (channel == "Green")
        return LevelsGreen;
    if (channel == "Blue")
        return LevelsBlue;
    return -1;
}

double LevelsValue(const LevelsSet& s, LevelsEntry e) {
    switch (e) {
    case LevelsEntry::Black:
        return s.black;
    case LevelsEntry::White:
        return s.white;
    case LevelsEntry::Midtone:
        return s.midtone;
    case LevelsEntry::MidtoneIntensity:
        return s.midtoneIntensity;
    case LevelsEntry::BlackGamma:
        return s.blackGamma;
    case LevelsEntry::WhiteGamma:
        return s.whiteGamma;
    case LevelsEntry::OutputBlack:
        return s.outputBlack;
    case LevelsEntry::OutputWhite:
        return s.outputWhite;
    }
    return 0.0;
}

void MoveLevelsEnd(LevelsSet* s, bool white, int value) {
    const int width = s->white - s->black;
    const double fraction = width < 1 ? 0.0 : double(s->midtone - s->black) / width;
    if (white)
        s->white = value;
    else
        s->black = value;
    if (s->white == s->black) {
        s->midtone = s->white;
        return;
    }
    const double f = fraction == 0.0 ? 0.5 : fraction;
    double m = (s->white - s->black) * f + s->black;
    if (m < s->black)
        m = s->black;
    if (m > s->white)
        m = s->white;
    s->midtone = static_cast<int>(m);
}

void SetLevelsValue(LevelsParams* params, const std::string& channel, LevelsEntry entry,
                    double value, int maximum) {
    const int k = LevelsSetOfChannel(channel);
    if (k < 0)
        return;
    auto& sets = params->sets;
    const double top = IsGamma(entry) ? 10.0 : maximum;
    if (k == LevelsMaster) {
        const double delta = value - LevelsValue(sets[0], entry);
        SetEntry(&sets[0], entry, value);
        for (int c = 1; c <= 3; ++c)
            SetEntry(&sets[c], entry, std::clamp(LevelsValue(sets[c], entry) + delta, 0.0, top));
        return;
    }
    SetEntry(&sets[k], entry, value);
    // The fold includes the old master, so a master stays once the channels passed it.
    double folded = LevelsValue(sets[0], entry);
    switch (entry) {
    case LevelsEntry::Black:
    case LevelsEntry::OutputBlack:
        for (int c = 1; c <= 3; ++c)
            folded = std::max(folded, LevelsValue(sets[c], entry));
        folded = std::max(folded, 0.0);
        break;
    case LevelsEntry::White:
    case LevelsEntry::Midtone:
    case LevelsEntry::MidtoneIntensity:
    case LevelsEntry::OutputWhite:
        for (int c = 1; c <= 3; ++c)
            folded = std::min(folded, LevelsValue(sets[c], entry));
        break;
    case LevelsEntry::BlackGamma:
    case LevelsEntry::WhiteGamma:
        return;
    }
    if (folded != LevelsValue(sets[0], entry))
        SetEntry(&sets[0], entry, folded);
}

bool ValidateLevelsEntry(const LevelsSet& set, LevelsEntry entry, const std::string& input,
                         int maximum, double* value, std::string* message) {
    auto fail = [message](const std::string& text) {
        if (message)
            *message = text;
        return false;
    };
    const std::string text = Trim(input);
    if (text.empty())
        return fail("Please enter a value or use the slider.");
    if (IsGamma(entry)) {
        double g = 0;
        if (!ParseReal(text, &g) || g < 0.0 || g > 10.0)
            return fail("Please enter a value for Gamma such that\n 0.0 <= Gamma <= 10.0");
        *value = g;
        return true;
    }
    long v = 0;
    const bool number = ParseInteger(text, &v) && v >= 0 && v <= maximum;
    switch (entry) {
    case LevelsEntry::Black:
        if (!number)
            return fail(FormatText(
                "Please enter an integer value for black such that\n 0 <= Black <= white value %d.",
                set.white));
        if (v > set.white)
            return fail("Please enter a value less than the white value.");
        break;
    case LevelsEntry::White:
        if (!number)
            return fail(FormatText(
                "Please enter an integer value for White such that\n %d <= White <= max value %d.",
                set.black, maximum));
        if (v < set.black)
            return fail("Please enter a value less than the black value.");
        break;
    case LevelsEntry::Midtone:
        if (!number)
            return fail(FormatText("Please enter an integer value for Midtone such that\n %d "
                                   "Black <= Midtone <= %d White.",
                                   set.black, set.white));
        if (v < set.black || v > set.white)
            return fail("Please enter a value between black and white.");
        break;
    default:
        if (!number)
            return fail(
                FormatText("Please enter an integer value X such that\n 0 <= X <= %d.", maximum));
        break;
    }
    *value = static_cast<double>(v);
    return true;
}

double GammaFromSlider(int position) {
    if (position < 500)
        return position / 500.0;
    return (position - 500) * 9 / 500.0 + 1.0;
}

int SliderFromGamma(double gamma) {
    const double position = gamma < 1.0 ? gamma * 500.0 : (gamma - 1.0) * 500.0 / 9.0 + 500.0;
    return static_cast<int>(std::lround(std::clamp(position, 0.0, 1000.0)));
}

std::string FormatGamma(double gamma) {
    return FormatText("%6.4f", gamma);
}

} // namespace astrivelle
