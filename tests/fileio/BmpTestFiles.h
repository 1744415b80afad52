// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Hand-made bitmap files for the BMP and properties tests: any header form, depth,
/// row order and colour table, written byte by byte as other programs write them.
#pragma once
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace astrivelle::test {

struct BmpLayout {
    std::uint32_t headerSize = 40; ///< 12 for the core form
    std::int32_t width = 1;
    std::int32_t height = 1; ///< negative: rows stored top-down
    std::uint16_t bitCount = 24;
    std::uint32_t compression = 0;
    std::uint32_t clrUsed = 0;
    std::uint32_t sizeImage = 0;
    /// Colour table entries as blue, green, red (a fourth zero byte is added unless core).
    std::vector<std::uint8_t> table;
    /// Picture rows from the top, unpadded (width * bitCount / 8 bytes each).
    std::vector<std::vector<std::uint8_t>> rows;
};

inline void PutLe(std::vector<std::uint8_t>& out, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

/// The bytes of a bitmap file for the layout: rows padded to four bytes and stored bottom-up
/// (or top-down for a negative height).
inline std::vector<std::uint8_t> MakeBmp(const BmpLayout& s) {
    const bool core = s.headerSize == 12;
    const std::size_t entries = s.table.size() / 3;
    const std::size_t tableBytes = entries * (core ? 3 : 4);
    const std::uint32_t offset = static_cast<std::uint32_t>(14 + s.headerSize + tableBytes);
    std::vector<std::uint8_t> pixels;
    const std::size_t stride = ((static_cast<std::size_t>(s.width) * s.bitCount + 31) / 32) * 4;
    const int n = static_cast<int>(s.rows.size());
    for (int i = 0; i < n; ++i) {
        const auto& row = s.height < 0 ? s.rows[i] : s.rows[n - 1 - i];
        std::vector<std::uint8_t> padded(stride, 0);
        for (std::size_t b = 0; b < row.size() && b < stride; ++b)
            padded[b] = row[b];
        pixels.insert(pixels.end(), padded.begin(), padded.end());
    }
    std::vector<std::uint8_t> out = {'B', 'M'};
    PutLe(out, offset + static_cast<std::uint32_t>(pixels.size()), 4);
    PutLe(out, 0, 4);
    PutLe(out, offset, 4);
    PutLe(out, s.headerSize, 4);
    if (core) {
        PutLe(out, static_cast<std::uint32_t>(s.width), 2);
        PutLe(out, static_cast<std::uint32_t>(s.height), 2);
        PutLe(out, 1, 2);
        PutLe(out, s.bitCount, 2);
    } else {
        PutLe(out, static_cast<std::uint32_t>(s.width), 4);
        PutLe(out, static_cast<std::uint32_t>(s.height), 4);
        PutLe(out, 1, 2);
        PutLe(out, s.bitCount, 2);
        PutLe(out, s.compression, 4);
        PutLe(out, s.sizeImage, 4);
        PutLe(out, 2835, 4);
        PutLe(out, 2835, 4);
        PutLe(out, s.clrUsed, 4);
        PutLe(out, 0, 4);
        for (std::uint32_t i = 40; i < s.headerSize; ++i)
            out.push_back(0); // the later header forms' extra fields
    }
    for (std::size_t e = 0; e < entries; ++e) {
        out.insert(out.end(), s.table.begin() + 3 * e, s.table.begin() + 3 * e + 3);
        if (!core)
            out.push_back(0);
    }
    out.insert(out.end(), pixels.begin(), pixels.end());
    return out;
}

inline void WriteBytes(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

inline std::vector<std::uint8_t> ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<std::uint8_t>((std::istreambuf_iterator<char>(in)), {});
}

} // namespace astrivelle::test
