// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Small DNG camera raw files for tests.
#include "tools/synth/DngFile.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/synth/Random.h"

namespace astrivelle::synth {

namespace {

enum TiffType : std::uint16_t {
    Byte = 1,
    Ascii = 2,
    Short = 3,
    Long = 4,
    Rational = 5,
    Undefined = 7,
    SRational = 10,
};

struct Entry {
    std::uint16_t tag;
    std::uint16_t type;
    std::uint32_t count;
    std::vector<std::uint8_t> data; // little-endian value bytes
};

void Put16(std::vector<std::uint8_t>& b, std::uint32_t v) {
    b.push_back(static_cast<std::uint8_t>(v));
    b.push_back(static_cast<std::uint8_t>(v >> 8));
}

void Put32(std::vector<std::uint8_t>& b, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}

Entry Shorts(std::uint16_t tag, std::initializer_list<std::uint32_t> values) {
    Entry e{tag, Short, static_cast<std::uint32_t>(values.size()), {}};
    for (auto v : values)
        Put16(e.data, v);
    return e;
}

Entry Longs(std::uint16_t tag, std::initializer_list<std::uint32_t> values) {
    Entry e{tag, Long, static_cast<std::uint32_t>(values.size()), {}};
    for (auto v : values)
        Put32(e.data, v);
    return e;
}

Entry Bytes(std::uint16_t tag, std::uint16_t type, std::vector<std::uint8_t> values) {
    const auto n = static_cast<std::uint32_t>(values.size());
    return Entry{tag, type, n, std::move(values)};
}

Entry Text(std::uint16_t tag, const std::string& text) {
    std::vector<std::uint8_t> b(text.begin(), text.end());
    b.push_back(0);
    return Bytes(tag, Ascii, std::move(b));
}

/// Rationals (numerator, denominator pairs) as RATIONAL or SRATIONAL.
Entry Rationals(std::uint16_t tag, std::uint16_t type,
                std::initializer_list<std::pair<std::int32_t, std::int32_t>> values) {
    Entry e{tag, type, static_cast<std::uint32_t>(values.size()), {}};
    for (const auto& [n, d] : values) {
        Put32(e.data, static_cast<std::uint32_t>(n));
        Put32(e.data, static_cast<std::uint32_t>(d));
    }
    return e;
}

/// Bytes of an IFD with its out-of-line values: the entry count, the entries, the next-IFD
/// offset (0) and the values longer than four bytes, each on an even offset.
std::uint32_t IfdSize(const std::vector<Entry>& entries) {
    std::uint32_t size = 2 + 12 * static_cast<std::uint32_t>(entries.size()) + 4;
    for (const Entry& e : entries)
        if (e.data.size() > 4)
            size += static_cast<std::uint32_t>((e.data.size() + 1) & ~std::size_t{1});
    return size;
}

/// Appends the IFD that starts at `offset` (the current end of `out`).
void AppendIfd(std::vector<Entry> entries, std::vector<std::uint8_t>& out) {
    std::sort(entries.begin(), entries.end(),
              [](const Entry& a, const Entry& b) { return a.tag < b.tag; });
    const auto offset = static_cast<std::uint32_t>(out.size());
    std::uint32_t extra = offset + 2 + 12 * static_cast<std::uint32_t>(entries.size()) + 4;
    std::vector<std::uint8_t> values;
    Put16(out, static_cast<std::uint32_t>(entries.size()));
    for (const Entry& e : entries) {
        Put16(out, e.tag);
        Put16(out, e.type);
        Put32(out, e.count);
        if (e.data.size() <= 4) {
            std::uint8_t inline_[4] = {};
            std::copy(e.data.begin(), e.data.end(), inline_);
            out.insert(out.end(), inline_, inline_ + 4);
        } else {
            Put32(out, extra);
            values.insert(values.end(), e.data.begin(), e.data.end());
            if (values.size() % 2)
                values.push_back(0);
            extra = offset + 2 + 12 * static_cast<std::uint32_t>(entries.size()) + 4 +
                    static_cast<std::uint32_t>(values.size());
        }
    }
    Put32(out, 0);
    out.insert(out.end(), values.begin(), values.end());
}

} // namespace

bool DngCfaColours(const std::string& keyword, std::array<std::uint8_t, 4>* colours) {
    if (keyword.size() != 5 || keyword[2] != ',')
        return false;
    const std::string cells = keyword.substr(0, 2) + keyword.substr(3, 2);
    int count[3] = {};
    for (int i = 0; i < 4; ++i) {
        const char c = cells[i];
        const int v = c == 'R' ? 0 : c == 'G' ? 1 : c == 'B' ? 2 : -1;
        if (v < 0)
            return false;
        (*colours)[i] = static_cast<std::uint8_t>(v);
        ++count[v];
    }
    // A Bayer cell: one red, one blue, and two greens on a diagonal.
    const bool greensOnDiagonal =
        (cells[0] == 'G' && cells[3] == 'G') || (cells[1] == 'G' && cells[2] == 'G');
    return count[0] == 1 && count[1] == 2 && count[2] == 1 && greensOnDiagonal;
}

std::string DngCfaName(const std::string& keyword) {
    std::string s;
    for (char c : keyword)
        if (c != ',')
            s += c;
    return s;
}

bool WriteDng(const std::string& path, const DngImage& im, std::string* error) {
    std::array<std::uint8_t, 4> cfa{};
    if (!DngCfaColours(im.pattern, &cfa)) {
        *error = "unknown CFA pattern " + im.pattern;
        return false;
    }
    if (im.width < 2 || im.height < 2 ||
        im.samples.size() != static_cast<std::size_t>(im.width) * im.height) {
        *error = "bad raw image geometry for " + path;
        return false;
    }
    const auto w = static_cast<std::uint32_t>(im.width), h = static_cast<std::uint32_t>(im.height);
    const std::uint32_t stripBytes = w * h * 2;

    const std::vector<Entry> exif = {
        Rationals(33434, Rational,
                  {{static_cast<std::int32_t>(im.exposureNumerator),
                    static_cast<std::int32_t>(im.exposureDenominator)}}),
        Shorts(34855, {im.iso}),
        Bytes(36864, Undefined, {'0', '2', '3', '0'}),
        Text(36867, im.dateTime),
    };
    // The raw IFD; the Exif IFD and strip offsets are filled in once the sizes are known.
    std::vector<Entry> ifd0 = {
        Longs(254, {0}),
        Longs(256, {w}),
        Longs(257, {h}),
        Shorts(258, {16}),
        Shorts(259, {1}),
        Shorts(262, {32803}),
        Text(271, im.make),
        Text(272, im.model),
        Longs(273, {0}),
        Shorts(274, {1}),
        Shorts(277, {1}),
        Longs(278, {h}),
        Longs(279, {stripBytes}),
        Shorts(284, {1}),
        Text(305, "astrivelle-synth"),
        Text(306, im.dateTime),
        Shorts(33421, {2, 2}),
        Bytes(33422, Byte, {cfa[0], cfa[1], cfa[2], cfa[3]}),
        Longs(34665, {0}),
        Bytes(50706, Byte, {1, 4, 0, 0}),
        Bytes(50707, Byte, {1, 1, 0, 0}),
        Text(50708, im.make + " " + im.model),
        Bytes(50710, Byte, {0, 1, 2}),
        Shorts(50711, {1}),
        Longs(50714, {im.blackLevel}),
        Longs(50717, {im.whiteLevel}),
        // XYZ (D65) to camera, a plausible matrix of a CMOS sensor.
        Rationals(50721, SRational,
                  {{6722, 10000},
                   {-635, 10000},
                   {-963, 10000},
                   {-4287, 10000},
                   {12460, 10000},
                   {2028, 10000},
                   {-908, 10000},
                   {2162, 10000},
                   {5668, 10000}}),
        Rationals(50728, Rational, {{4800, 10000}, {10000, 10000}, {6900, 10000}}),
        Shorts(50778, {21}),
    };
    const std::uint32_t exifOffset = 8 + IfdSize(ifd0);
    std::uint32_t stripOffset = exifOffset + IfdSize(exif);
    stripOffset += stripOffset % 2;
    for (Entry& e : ifd0) {
        if (e.tag == 34665)
            e = Longs(34665, {exifOffset});
        else if (e.tag == 273)
            e = Longs(273, {stripOffset});
    }

    std::vector<std::uint8_t> out = {'I', 'I', 42, 0};
    Put32(out, 8);
    AppendIfd(ifd0, out);
    AppendIfd(exif, out);
    if (out.size() % 2)
        out.push_back(0);
    if (out.size() != stripOffset) {
        *error = "DNG layout error";
        return false;
    }
    out.reserve(out.size() + stripBytes);
    for (std::uint16_t v : im.samples)
        Put16(out, v);

    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        *error = "cannot create " + path;
        return false;
    }
    const bool written = std::fwrite(out.data(), 1, out.size(), f) == out.size();
    if (std::fclose(f) != 0 || !written) {
        *error = "cannot write " + path;
        return false;
    }
    return true;
}

double RawSceneLevel(int x, int y, int width, int height, int channel) {
    if (3 * y >= 2 * height) // grey ramp
        return 100 + 3300.0 * x / std::max(1, width - 1);
    const int patch = std::min(2, 3 * x / width); // 0 red, 1 green, 2 blue
    static const double kLevels[3][3] = {
        {3000, 300, 150}, // red patch: R, G, B
        {300, 3000, 300}, // green
        {150, 300, 3000}, // blue
    };
    return kLevels[patch][channel];
}

bool MakeRawScene(std::uint64_t seed, int width, int height, const std::string& pattern,
                  DngImage* image, std::string* error) {
    std::array<std::uint8_t, 4> cfa{};
    if (!DngCfaColours(pattern, &cfa)) {
        *error = "unknown CFA pattern " + pattern;
        return false;
    }
    image->width = width;
    image->height = height;
    image->pattern = pattern;
    image->samples.resize(static_cast<std::size_t>(width) * height);
    Random rng(seed);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int c = cfa[(y & 1) * 2 + (x & 1)];
            const double v =
                image->blackLevel + RawSceneLevel(x, y, width, height, c) + 6 * rng.Normal();
            image->samples[static_cast<std::size_t>(y) * width + x] = static_cast<std::uint16_t>(
                std::clamp(std::floor(v + 0.5), 0.0, static_cast<double>(image->whiteLevel)));
        }
    return true;
}

} // namespace astrivelle::synth
