// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Small DNG files for the raw tests: an uncompressed 16-bit CFA strip in a little-endian
/// TIFF with the DNG colour tags and an Exif IFD holding exposure, ISO, f-number and focal
/// length, so that every card of a conversion has a known value.
#pragma once
#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace astrivelle::test {

struct TestDng {
    int width = 32, height = 24;        ///< LibRaw takes no side under 22
    std::uint8_t cfa[4] = {0, 1, 1, 2}; ///< colours of the 2x2 cell in row order (0 R, 1 G, 2 B)
    std::vector<std::uint16_t> samples; ///< width*height, row by row
    std::uint32_t black = 256, white = 4095;
    std::uint32_t exposureNum = 1, exposureDen = 125;
    std::uint32_t fNumberNum = 28, fNumberDen = 10;
    std::uint32_t focalNum = 500, focalDen = 10;
    std::uint16_t iso = 800;
    std::string make = "Astrivelle", model = "Test Body";
    /// AsShotNeutral: the camera's white balance multipliers are the reciprocals.
    double neutral[3] = {0.5, 1.0, 0.8};
};

/// The cell colours of a keyword such as "GR,BG".
inline void SetCfa(TestDng& d, const std::string& keyword) {
    const std::string cells = keyword.substr(0, 2) + keyword.substr(3, 2);
    for (int i = 0; i < 4; ++i)
        d.cfa[i] = cells[i] == 'R' ? 0 : cells[i] == 'G' ? 1 : 2;
}

/// Fills the samples: a value by colour and position that stays inside black..white.
inline void FillTestSamples(TestDng& d) {
    d.samples.resize(static_cast<std::size_t>(d.width) * d.height);
    for (int y = 0; y < d.height; ++y)
        for (int x = 0; x < d.width; ++x) {
            const int c = d.cfa[(y & 1) * 2 + (x & 1)];
            d.samples[static_cast<std::size_t>(y) * d.width + x] =
                static_cast<std::uint16_t>(d.black + 400 + 700 * c + 7 * x + 3 * y);
        }
}

namespace dngdetail {

struct Entry {
    std::uint16_t tag, type;
    std::uint32_t count;
    std::vector<std::uint8_t> data;
};

inline void Put16(std::vector<std::uint8_t>& b, std::uint32_t v) {
    b.push_back(static_cast<std::uint8_t>(v));
    b.push_back(static_cast<std::uint8_t>(v >> 8));
}
inline void Put32(std::vector<std::uint8_t>& b, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}
inline Entry Short(std::uint16_t tag, std::vector<std::uint32_t> v) {
    Entry e{tag, 3, static_cast<std::uint32_t>(v.size()), {}};
    for (auto x : v)
        Put16(e.data, x);
    return e;
}
inline Entry Long(std::uint16_t tag, std::uint32_t v) {
    Entry e{tag, 4, 1, {}};
    Put32(e.data, v);
    return e;
}
inline Entry Bytes(std::uint16_t tag, std::uint16_t type, std::vector<std::uint8_t> v) {
    const auto n = static_cast<std::uint32_t>(v.size());
    return Entry{tag, type, n, std::move(v)};
}
inline Entry Text(std::uint16_t tag, const std::string& s) {
    std::vector<std::uint8_t> b(s.begin(), s.end());
    b.push_back(0);
    return Bytes(tag, 2, std::move(b));
}
inline Entry Rational(std::uint16_t tag, std::uint16_t type,
                      std::vector<std::pair<std::int32_t, std::int32_t>> v) {
    Entry e{tag, type, static_cast<std::uint32_t>(v.size()), {}};
    for (auto [n, d] : v) {
        Put32(e.data, static_cast<std::uint32_t>(n));
        Put32(e.data, static_cast<std::uint32_t>(d));
    }
    return e;
}
inline std::uint32_t IfdSize(const std::vector<Entry>& es) {
    std::uint32_t size = 2 + 12 * static_cast<std::uint32_t>(es.size()) + 4;
    for (const Entry& e : es)
        if (e.data.size() > 4)
            size += static_cast<std::uint32_t>((e.data.size() + 1) & ~std::size_t{1});
    return size;
}
inline void AppendIfd(std::vector<Entry> es, std::vector<std::uint8_t>& out) {
    std::sort(es.begin(), es.end(), [](const Entry& a, const Entry& b) { return a.tag < b.tag; });
    const auto start = static_cast<std::uint32_t>(out.size());
    const std::uint32_t fixed = start + 2 + 12 * static_cast<std::uint32_t>(es.size()) + 4;
    std::vector<std::uint8_t> values;
    Put16(out, static_cast<std::uint32_t>(es.size()));
    for (const Entry& e : es) {
        Put16(out, e.tag);
        Put16(out, e.type);
        Put32(out, e.count);
        if (e.data.size() <= 4) {
            std::uint8_t inl[4] = {};
            std::copy(e.data.begin(), e.data.end(), inl);
            out.insert(out.end(), inl, inl + 4);
        } else {
            Put32(out, fixed + static_cast<std::uint32_t>(values.size()));
            values.insert(values.end(), e.data.begin(), e.data.end());
            if (values.size() % 2)
                values.push_back(0);
        }
    }
    Put32(out, 0);
    out.insert(out.end(), values.begin(), values.end());
}

} // namespace dngdetail

/// The XYZ-to-camera matrix written as ColorMatrix1 (row by row, times 10000).
inline constexpr std::int32_t kTestColorMatrix[9] = {6722, -635, -963, -4287, 12460,
                                                     2028, -908, 2162, 5668};

/// The bytes of the file; `keepSampleBytes` cuts the strip short (a truncated file).
inline std::vector<std::uint8_t> DngBytes(const TestDng& d,
                                          std::size_t keepSampleBytes = SIZE_MAX) {
    using namespace dngdetail;
    const auto w = static_cast<std::uint32_t>(d.width), h = static_cast<std::uint32_t>(d.height);
    const std::uint32_t stripBytes = w * h * 2;
    auto neutral = [](double v) {
        return std::pair<std::int32_t, std::int32_t>(static_cast<std::int32_t>(v * 10000 + 0.5),
                                                     10000);
    };
    const std::vector<Entry> exif = {
        Rational(
            33434, 5,
            {{static_cast<std::int32_t>(d.exposureNum), static_cast<std::int32_t>(d.exposureDen)}}),
        Rational(
            33437, 5,
            {{static_cast<std::int32_t>(d.fNumberNum), static_cast<std::int32_t>(d.fNumberDen)}}),
        Short(34855, {d.iso}),
        Bytes(36864, 7, {'0', '2', '3', '0'}),
        Rational(37386, 5,
                 {{static_cast<std::int32_t>(d.focalNum), static_cast<std::int32_t>(d.focalDen)}}),
    };
    std::vector<std::pair<std::int32_t, std::int32_t>> matrix;
    for (std::int32_t m : kTestColorMatrix)
        matrix.push_back({m, 10000});
    std::vector<Entry> ifd0 = {
        Long(254, 0),
        Long(256, w),
        Long(257, h),
        Short(258, {16}),
        Short(259, {1}),
        Short(262, {32803}),
        Text(271, d.make),
        Text(272, d.model),
        Long(273, 0),
        Short(274, {1}),
        Short(277, {1}),
        Long(278, h),
        Long(279, stripBytes),
        Short(284, {1}),
        Short(33421, {2, 2}),
        Bytes(33422, 1, {d.cfa[0], d.cfa[1], d.cfa[2], d.cfa[3]}),
        Long(34665, 0),
        Bytes(50706, 1, {1, 4, 0, 0}),
        Bytes(50707, 1, {1, 1, 0, 0}),
        Text(50708, d.make + " " + d.model),
        Bytes(50710, 1, {0, 1, 2}),
        Short(50711, {1}),
        Long(50714, d.black),
        Long(50717, d.white),
        Rational(50721, 10, matrix),
        Rational(50728, 5, {neutral(d.neutral[0]), neutral(d.neutral[1]), neutral(d.neutral[2])}),
        Short(50778, {21}),
    };
    const std::uint32_t exifOffset = 8 + IfdSize(ifd0);
    std::uint32_t stripOffset = exifOffset + IfdSize(exif);
    stripOffset += stripOffset % 2;
    for (Entry& e : ifd0) {
        if (e.tag == 34665)
            e = Long(34665, exifOffset);
        else if (e.tag == 273)
            e = Long(273, stripOffset);
    }
    std::vector<std::uint8_t> out = {'I', 'I', 42, 0};
    Put32(out, 8);
    AppendIfd(ifd0, out);
    AppendIfd(exif, out);
    if (out.size() % 2)
        out.push_back(0);
    std::vector<std::uint8_t> strip;
    for (std::uint16_t v : d.samples)
        Put16(strip, v);
    strip.resize(std::min(strip.size(), keepSampleBytes));
    out.insert(out.end(), strip.begin(), strip.end());
    return out;
}

inline bool WriteTestDng(const std::string& path, const TestDng& d,
                         std::size_t keepSampleBytes = SIZE_MAX) {
    const std::vector<std::uint8_t> bytes = DngBytes(d, keepSampleBytes);
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

} // namespace astrivelle::test
