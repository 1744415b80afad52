// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The logical palettes of 8-bit displays, as data.
#include <initializer_list>
#include <utility>

#include "engine/Dib.h"
#include "engine/Image.h"

namespace astrivelle {

namespace {

/// Entries for every level of the runs, each level through `make`.
template <class Make>
std::vector<PaletteEntry> Runs(std::initializer_list<std::pair<int, int>> runs, Make make) {
    std::vector<PaletteEntry> out;
    for (const auto& [first, last] : runs)
        for (int level = first; level <= last; ++level)
            out.push_back(make(static_cast<std::uint8_t>(level)));
    return out;
}

PaletteEntry Entry(std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    PaletteEntry e;
    e.red = r;
    e.green = g;
    e.blue = b;
    return e;
}

/// The ramp of the coloured palettes: 18..127 and 129..254, 236 levels.
template <class Make> std::vector<PaletteEntry> ColourRamp(Make make) {
    return Runs({{18, 127}, {129, 254}}, make);
}

} // namespace

std::vector<PaletteEntry> PaletteBW240() {
    return Runs({{17, 127}, {129, 191}, {193, 254}}, [](std::uint8_t v) { return Entry(v, v, v); });
}

std::vector<PaletteEntry> PaletteBW64() {
    std::vector<PaletteEntry> out;
    for (int i = 0; i < 64; ++i) {
        const auto v = static_cast<std::uint8_t>(i * 4);
        out.push_back(Entry(v, v, v));
    }
    return out;
}

std::vector<PaletteEntry> PaletteRed() {
    return ColourRamp([](std::uint8_t v) { return Entry(v, 0, 0); });
}
std::vector<PaletteEntry> PaletteGreen() {
    return ColourRamp([](std::uint8_t v) { return Entry(0, v, 0); });
}
std::vector<PaletteEntry> PaletteBlue() {
    return ColourRamp([](std::uint8_t v) { return Entry(0, 0, v); });
}
std::vector<PaletteEntry> PaletteCyan() {
    return ColourRamp([](std::uint8_t v) { return Entry(0, v, v); });
}
std::vector<PaletteEntry> PaletteMagenta() {
    return ColourRamp([](std::uint8_t v) { return Entry(v, 0, v); });
}
std::vector<PaletteEntry> PaletteYellow() {
    return ColourRamp([](std::uint8_t v) { return Entry(v, v, 0); });
}

std::vector<PaletteEntry> PaletteRGB() {
    static const std::uint32_t firstSystem[10] = {0x000000, 0x800000, 0x008000, 0x808000, 0x000080,
                                                  0x800080, 0x008080, 0xC0C0C0, 0xC0DCC0, 0xA6CAF0};
    static const std::uint32_t lastSystem[10] = {0xFFFBF0, 0xA0A0A4, 0x808080, 0xFF0000, 0x00FF00,
                                                 0xFFFF00, 0x0000FF, 0xFF00FF, 0x00FFFF, 0xFFFFFF};
    auto fromRgb = [](std::uint32_t c) {
        return Entry(static_cast<std::uint8_t>(c >> 16), static_cast<std::uint8_t>(c >> 8),
                     static_cast<std::uint8_t>(c));
    };
    std::vector<PaletteEntry> out;
    out.reserve(256);
    for (std::uint32_t c : firstSystem)
        out.push_back(fromRgb(c));
    for (int r = 0; r < 6; ++r)
        for (int g = 0; g < 6; ++g)
            for (int b = 0; b < 6; ++b)
                out.push_back(Entry(static_cast<std::uint8_t>(r * 0x33),
                                    static_cast<std::uint8_t>(g * 0x33),
                                    static_cast<std::uint8_t>(b * 0x33)));
    for (int i = 0; i < 16; ++i) {
        const auto v = static_cast<std::uint8_t>(i * 0x11);
        out.push_back(Entry(v, v, v));
    }
    for (int i = 0; i < 4; ++i) // reserved
        out.push_back(Entry(0, 0, 0));
    for (std::uint32_t c : lastSystem)
        out.push_back(fromRgb(c));
    return out;
}

std::vector<PaletteEntry> PaletteForColorType(std::uint32_t colorType) {
    switch (colorType) {
    case ColorRGB:
        return PaletteRGB();
    case ColorRed:
        return PaletteRed();
    case ColorGreen:
        return PaletteGreen();
    case ColorBlue:
        return PaletteBlue();
    case ColorCyan:
        return PaletteCyan();
    case ColorMagenta:
        return PaletteMagenta();
    case ColorYellow:
        return PaletteYellow();
    default:
        return PaletteBW240();
    }
}

} // namespace astrivelle
