// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Hand-made TIFF files for the reader tests: any byte order, any entries in any order,
/// strips of any size, so that each tag rule can be met on its own.
#pragma once
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace astrivelle::test {

/// One directory entry to write. Numbers are encoded by `type` in the file's byte order
/// (RATIONAL takes two numbers per value); `bytes` is used instead for ASCII and UNDEFINED.
/// `rawValue` forces the value field (an offset that points anywhere).
struct TiffTag {
    std::uint16_t tag = 0;
    std::uint16_t type = 3;
    std::vector<std::uint32_t> numbers = {};
    std::vector<std::uint8_t> bytes = {};
    std::int64_t rawValue = -1;
    std::int64_t countOverride = -1;
};

class TiffBuilder {
public:
    explicit TiffBuilder(bool littleEndian = true) : le_(littleEndian) {
        out_ = {static_cast<std::uint8_t>(le_ ? 'I' : 'M'),
                static_cast<std::uint8_t>(le_ ? 'I' : 'M')};
        Put16(out_, 42);
        Put32(out_, 0);
    }

    bool littleEndian() const { return le_; }

    /// Appends bytes after what is there (word aligned) and returns their offset.
    std::uint32_t Blob(const std::vector<std::uint8_t>& bytes) {
        if (out_.size() & 1)
            out_.push_back(0);
        const auto at = static_cast<std::uint32_t>(out_.size());
        out_.insert(out_.end(), bytes.begin(), bytes.end());
        return at;
    }

    void Put16(std::vector<std::uint8_t>& b, std::uint32_t v) const {
        if (le_) {
            b.push_back(static_cast<std::uint8_t>(v));
            b.push_back(static_cast<std::uint8_t>(v >> 8));
        } else {
            b.push_back(static_cast<std::uint8_t>(v >> 8));
            b.push_back(static_cast<std::uint8_t>(v));
        }
    }
    void Put32(std::vector<std::uint8_t>& b, std::uint32_t v) const {
        if (le_) {
            Put16(b, v & 0xFFFF);
            Put16(b, v >> 16);
        } else {
            Put16(b, v >> 16);
            Put16(b, v & 0xFFFF);
        }
    }
    void PutFloat(std::vector<std::uint8_t>& b, float f) const {
        std::uint32_t v;
        std::memcpy(&v, &f, 4);
        Put32(b, v);
    }

    /// The encoded values of an entry.
    std::vector<std::uint8_t> Encode(const TiffTag& t) const {
        if (!t.bytes.empty() || t.type == 2 || t.type == 7 || t.type == 1)
            return t.bytes;
        std::vector<std::uint8_t> b;
        for (std::uint32_t n : t.numbers) {
            if (t.type == 3)
                Put16(b, n);
            else
                Put32(b, n);
        }
        return b;
    }

    std::uint32_t Count(const TiffTag& t) const {
        if (t.countOverride >= 0)
            return static_cast<std::uint32_t>(t.countOverride);
        if (!t.bytes.empty() || t.type == 2 || t.type == 7 || t.type == 1)
            return static_cast<std::uint32_t>(t.bytes.size());
        if (t.type == 5 || t.type == 10)
            return static_cast<std::uint32_t>(t.numbers.size() / 2);
        return static_cast<std::uint32_t>(t.numbers.size());
    }

    /// Writes the directory with the entries in the order given and points the header at it.
    std::vector<std::uint8_t> Finish(const std::vector<TiffTag>& tags) {
        std::vector<std::vector<std::uint8_t>> fields(tags.size());
        for (std::size_t i = 0; i < tags.size(); ++i) {
            std::vector<std::uint8_t> v = Encode(tags[i]);
            if (tags[i].rawValue >= 0) {
                Put32(fields[i], static_cast<std::uint32_t>(tags[i].rawValue));
            } else if (v.size() <= 4) {
                v.resize(4, 0);
                fields[i] = v;
            } else {
                Put32(fields[i], Blob(v));
            }
        }
        if (out_.size() & 1)
            out_.push_back(0);
        const auto ifd = static_cast<std::uint32_t>(out_.size());
        Put16(out_, static_cast<std::uint32_t>(tags.size()));
        for (std::size_t i = 0; i < tags.size(); ++i) {
            Put16(out_, tags[i].tag);
            Put16(out_, tags[i].type);
            Put32(out_, Count(tags[i]));
            out_.insert(out_.end(), fields[i].begin(), fields[i].end());
        }
        Put32(out_, 0);
        std::vector<std::uint8_t> off;
        Put32(off, ifd);
        std::memcpy(out_.data() + 4, off.data(), 4);
        return out_;
    }

private:
    bool le_;
    std::vector<std::uint8_t> out_;
};

/// The usual tags of an image whose strips are already in the builder.
inline std::vector<TiffTag> BaseTags(std::uint32_t width, std::uint32_t height, int samples,
                                     int bits, const std::vector<std::uint32_t>& offsets,
                                     std::uint32_t rowsPerStrip, std::uint16_t offsetType = 4) {
    std::vector<TiffTag> t;
    t.push_back({256, 4, {width}});
    t.push_back({257, 4, {height}});
    if (samples == 3)
        t.push_back({258, 3, {std::uint32_t(bits), std::uint32_t(bits), std::uint32_t(bits)}});
    else
        t.push_back({258, 3, {std::uint32_t(bits)}});
    t.push_back({259, 3, {1}});
    t.push_back({262, 3, {samples == 3 ? 2u : 1u}});
    t.push_back({273, offsetType, offsets});
    t.push_back({277, 3, {std::uint32_t(samples)}});
    t.push_back({278, 4, {rowsPerStrip}});
    std::vector<std::uint32_t> counts(offsets.size(), 0);
    t.push_back({279, 4, counts});
    return t;
}

/// Encodes chunky samples (8/16-bit integers, or 32-bit floats given as their bit patterns)
/// into strips of `rowsPerStrip` rows, adds them to the builder and returns their offsets.
inline std::vector<std::uint32_t> AddStrips(TiffBuilder& b, std::uint32_t width,
                                            std::uint32_t height, int samples, int bits,
                                            std::uint32_t rowsPerStrip,
                                            const std::vector<std::uint32_t>& values) {
    std::vector<std::uint32_t> offsets;
    const std::size_t perRow = std::size_t(width) * samples;
    for (std::uint32_t y0 = 0; y0 < height; y0 += rowsPerStrip) {
        std::vector<std::uint8_t> strip;
        for (std::uint32_t y = y0; y < std::min(height, y0 + rowsPerStrip); ++y)
            for (std::size_t i = 0; i < perRow; ++i) {
                const std::uint32_t v = values[y * perRow + i];
                if (bits == 8)
                    strip.push_back(static_cast<std::uint8_t>(v));
                else if (bits == 16)
                    b.Put16(strip, v);
                else
                    b.Put32(strip, v);
            }
        offsets.push_back(b.Blob(strip));
    }
    return offsets;
}

inline void WriteBytes(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

inline std::vector<std::uint8_t> ReadBytes(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::vector<std::uint8_t>((std::istreambuf_iterator<char>(f)), {});
}

} // namespace astrivelle::test
