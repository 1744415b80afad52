// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The SBIG line codec: exact bytes of constant rows, the +128/-128 escape, the raw
/// fallback at 2 * width, and decoding of damaged rows.
#include <algorithm>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "fileio/Sbig.h"

namespace astrivelle {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Row = std::vector<std::uint16_t>;

Bytes Encode(const Row& row) {
    Bytes out(SbigRowRecordCapacity(static_cast<int>(row.size())), 0xEE);
    out.resize(EncodeSbigRow(row.data(), static_cast<int>(row.size()), out.data()));
    return out;
}

struct CodecCase {
    const char* name;
    Row row;
    Bytes record; ///< byte count (little-endian) then the stored bytes
};

void PrintTo(const CodecCase& c, std::ostream* os) {
    *os << c.name;
}

class SbigRowCodec : public ::testing::TestWithParam<CodecCase> {};

TEST_P(SbigRowCodec, EncodesToExactBytesAndDecodesBack) {
    const CodecCase& c = GetParam();
    EXPECT_EQ(Encode(c.row), c.record);
    Row back(c.row.size(), 7777);
    const int n = DecodeSbigRow(c.record.data() + 2, c.record.size() - 2,
                                static_cast<int>(c.row.size()), back.data());
    EXPECT_EQ(n, static_cast<int>(c.row.size()));
    EXPECT_EQ(back, c.row);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, SbigRowCodec,
    ::testing::Values(
        // Two bytes of the first pixel and width - 1 zero deltas.
        CodecCase{"ConstantRow", {1000, 1000, 1000, 1000, 1000}, {6, 0, 0xE8, 3, 0, 0, 0, 0}},
        // +128 and -128 take the escape; +127 and -127 fit one byte.
        CodecCase{"JumpsOf128Escape",
                  {100, 228, 100, 227, 99, 99, 99, 99, 99, 99},
                  {17, 0, 100, 0, 128, 228, 0, 128, 100, 0, 127, 128, 99, 0, 0, 0, 0, 0, 0}},
        CodecCase{"DeltasOf127FitOneByte",
                  {500, 373, 500, 501, 500, 500},
                  {7, 0, 0xF4, 1, 0x81, 0x7F, 0x01, 0xFF, 0x00}},
        // Compressed would be longer than raw: stored raw with length 2 * width.
        CodecCase{"RawFallback", {0, 1000, 0, 1000}, {8, 0, 0, 0, 0xE8, 3, 0, 0, 0xE8, 3}},
        // Exactly 2 * width bytes compressed is not shorter, so the row goes raw.
        CodecCase{"EqualToRawGoesRaw", {0, 500, 501}, {6, 0, 0, 0, 0xF4, 1, 0xF5, 1}},
        CodecCase{
            "OneByteShorterStaysCompressed", {0, 500, 501, 502}, {7, 0, 0, 0, 128, 0xF4, 1, 1, 1}},
        CodecCase{"SinglePixelRowIsRaw", {65535}, {2, 0, 0xFF, 0xFF}},
        CodecCase{"FullScaleJumps", {0, 65535, 0}, {6, 0, 0, 0, 0xFF, 0xFF, 0, 0}}));

TEST(SbigRowDecode, DamagedAndOddRows) {
    struct Case {
        const char* name;
        Bytes stored; ///< the bytes after the byte count
        int width;
        Row expected; ///< decoded row; 7777 marks samples left untouched
        int count;
    };
    const Case cases[] = {
        // A byte count above 2 * width leaves the row at its first pixel.
        {"LongerThanRaw", {0x10, 0x00, 1, 2, 3, 4, 5}, 2, {16, 7777}, 1},
        // Deltas wrap around the 16-bit range.
        {"DeltaWraps", {0xFF, 0xFF, 0x01, 0xFF}, 3, {65535, 0, 65535}, 3},
        // An escape whose two value bytes are missing ends the row.
        {"EscapeCutShort", {5, 0, 1, 128, 9}, 4, {5, 6, 7777, 7777}, 2},
        // No room for the first pixel: nothing is written.
        {"NoFirstPixel", {9}, 3, {7777, 7777, 7777}, 0},
        // More deltas than the row has pixels: the extra bytes are ignored.
        {"MoreDeltasThanWidth", {1, 0, 1, 1, 1, 1}, 4, {1, 2, 3, 4}, 4},
        // Fewer deltas than pixels: the rest keep what they held.
        {"FewerDeltasThanWidth", {1, 0, 1}, 4, {1, 2, 7777, 7777}, 2},
    };
    for (const Case& c : cases) {
        Row row(static_cast<std::size_t>(c.width), 7777);
        EXPECT_EQ(DecodeSbigRow(c.stored.data(), c.stored.size(), c.width, row.data()), c.count)
            << c.name;
        EXPECT_EQ(row, c.expected) << c.name;
    }
}

TEST(SbigRowCodec, EveryRowSurvivesARoundTrip) {
    // A deterministic mix of smooth runs, steps near the escape limits and noise.
    std::uint32_t seed = 12345;
    auto next = [&seed] {
        seed = seed * 1664525u + 1013904223u;
        return seed >> 8;
    };
    for (int width : {1, 2, 3, 17, 256, 1000}) {
        for (int trial = 0; trial < 20; ++trial) {
            Row row(static_cast<std::size_t>(width));
            int v = static_cast<int>(next() % 65536);
            for (int x = 0; x < width; ++x) {
                const int kind = static_cast<int>(next() % 4);
                const int step = kind == 0   ? 0
                                 : kind == 1 ? static_cast<int>(next() % 257) - 128
                                 : kind == 2 ? static_cast<int>(next() % 7) - 3
                                             : static_cast<int>(next() % 65536) - v;
                v = std::clamp(v + step, 0, 65535);
                row[static_cast<std::size_t>(x)] = static_cast<std::uint16_t>(v);
            }
            const Bytes record = Encode(row);
            const std::size_t length = record[0] | (record[1] << 8);
            ASSERT_EQ(length + 2, record.size());
            ASSERT_LE(length, 2u * width);
            Row back(row.size(), 0);
            DecodeSbigRow(record.data() + 2, length, width, back.data());
            ASSERT_EQ(back, row) << "width " << width << " trial " << trial;
        }
    }
}

} // namespace
} // namespace astrivelle
