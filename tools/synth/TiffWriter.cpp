// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Baseline TIFF: header, the description, the strips, then one IFD with its arrays.
#include "tools/synth/TiffWriter.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "engine/Levels.h"

namespace astrivelle::synth {

namespace {

class Bytes {
public:
    std::vector<std::uint8_t> data;
    void U16(std::uint32_t v) {
        data.push_back(static_cast<std::uint8_t>(v));
        data.push_back(static_cast<std::uint8_t>(v >> 8));
    }
    void U32(std::uint32_t v) {
        U16(v & 0xFFFF);
        U16(v >> 16);
    }
    void Put32(std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i)
            data[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
    }
    void Align() {
        if (data.size() & 1)
            data.push_back(0);
    }
};

enum : std::uint16_t { kShort = 3, kLong = 4, kRational = 5, kAscii = 2 };

struct Entry {
    std::uint16_t tag, type;
    std::uint32_t count, value;
};

} // namespace

bool WriteTiff16(const std::string& path, const float* plane, int width, int height,
                 const std::string& description, std::string* error) {
    if (width < 1 || height < 1) {
        *error = "no pixels to write";
        return false;
    }
    const std::uint32_t rowBytes = static_cast<std::uint32_t>(width) * 2;
    const std::uint32_t rowsPerStrip = std::max<std::uint32_t>(1, 65536 / rowBytes);
    const std::uint32_t strips =
        (static_cast<std::uint32_t>(height) + rowsPerStrip - 1) / rowsPerStrip;

    Bytes head;
    head.data = {'I', 'I', 42, 0};
    head.U32(0); // IFD offset, filled below
    std::uint32_t descOffset = 0, descCount = 0;
    if (!description.empty()) {
        descOffset = static_cast<std::uint32_t>(head.data.size());
        head.data.insert(head.data.end(), description.begin(), description.end());
        head.data.push_back(0);
        descCount = static_cast<std::uint32_t>(description.size() + 1);
        head.Align();
    }
    const std::uint32_t pixelOffset = static_cast<std::uint32_t>(head.data.size());
    const std::uint64_t pixelBytes = static_cast<std::uint64_t>(rowBytes) * height;
    if (pixelOffset + pixelBytes > 0xF0000000ULL) {
        *error = "image too large for a TIFF file";
        return false;
    }

    // The IFD and its arrays follow the pixels.
    const std::uint32_t tail = pixelOffset + static_cast<std::uint32_t>(pixelBytes);
    std::vector<Entry> entries;
    const std::uint32_t entryCount = description.empty() ? 14 : 15;
    const std::uint32_t ifdSize = 2 + entryCount * 12 + 4;
    std::uint32_t extra = tail + ifdSize;
    const std::uint32_t offsetsAt = extra;
    if (strips > 1)
        extra += strips * 4;
    const std::uint32_t countsAt = extra;
    if (strips > 1)
        extra += strips * 4;
    const std::uint32_t resolutionAt = extra;
    extra += 8;

    auto stripBytes = [&](std::uint32_t s) {
        const std::uint32_t rows =
            std::min(rowsPerStrip, static_cast<std::uint32_t>(height) - s * rowsPerStrip);
        return rows * rowBytes;
    };
    entries.push_back({256, kLong, 1, static_cast<std::uint32_t>(width)});
    entries.push_back({257, kLong, 1, static_cast<std::uint32_t>(height)});
    entries.push_back({258, kShort, 1, 16});
    entries.push_back({259, kShort, 1, 1});
    entries.push_back({262, kShort, 1, 1});
    if (!description.empty())
        entries.push_back({270, kAscii, descCount, descOffset});
    entries.push_back({273, kLong, strips, strips > 1 ? offsetsAt : pixelOffset});
    entries.push_back({277, kShort, 1, 1});
    entries.push_back({278, kLong, 1, rowsPerStrip});
    entries.push_back({279, kLong, strips, strips > 1 ? countsAt : stripBytes(0)});
    entries.push_back({282, kRational, 1, resolutionAt});
    entries.push_back({283, kRational, 1, resolutionAt});
    entries.push_back({284, kShort, 1, 1});
    entries.push_back({296, kShort, 1, 1});
    entries.push_back({339, kShort, 1, 1});

    Bytes ifd;
    ifd.U16(static_cast<std::uint32_t>(entries.size()));
    for (const Entry& e : entries) {
        ifd.U16(e.tag);
        ifd.U16(e.type);
        ifd.U32(e.count);
        if (e.type == kShort && e.count == 1) {
            ifd.U16(e.value);
            ifd.U16(0);
        } else {
            ifd.U32(e.value);
        }
    }
    ifd.U32(0);
    if (strips > 1) {
        for (std::uint32_t s = 0; s < strips; ++s)
            ifd.U32(pixelOffset + s * rowsPerStrip * rowBytes);
        for (std::uint32_t s = 0; s < strips; ++s)
            ifd.U32(stripBytes(s));
    }
    ifd.U32(72); // 72 / 1 pixels per unit, no unit
    ifd.U32(1);
    head.Put32(4, tail);

    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        *error = "cannot create " + path;
        return false;
    }
    bool ok = std::fwrite(head.data.data(), 1, head.data.size(), f) == head.data.size();
    std::vector<std::uint8_t> row(rowBytes);
    for (int y = 0; y < height && ok; ++y) {
        const float* in = plane + static_cast<std::size_t>(y) * width;
        for (int x = 0; x < width; ++x) {
            const int v = RoundLevel16(in[x]);
            row[2 * x] = static_cast<std::uint8_t>(v);
            row[2 * x + 1] = static_cast<std::uint8_t>(v >> 8);
        }
        ok = std::fwrite(row.data(), 1, row.size(), f) == row.size();
    }
    ok = ok && std::fwrite(ifd.data.data(), 1, ifd.data.size(), f) == ifd.data.size();
    ok = (std::fclose(f) == 0) && ok;
    if (!ok)
        *error = "could not write " + path;
    return ok;
}

} // namespace astrivelle::synth
