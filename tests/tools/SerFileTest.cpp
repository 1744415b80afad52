// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The test-data SER writer and reader: header bytes, sample byte order, sizes and the
/// failures of short or inconsistent files.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "TestSupport.h"
#include "tools/synth/SerFile.h"

using namespace astrivelle::synth;
using astrivelle::test::ScratchDir;

namespace {

std::vector<std::uint8_t> ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::int32_t Int32At(const std::vector<std::uint8_t>& b, std::size_t at) {
    return static_cast<std::int32_t>(b[at] | b[at + 1] << 8 | b[at + 2] << 16 |
                                     static_cast<std::uint32_t>(b[at + 3]) << 24);
}

} // namespace

TEST(SerFile, KeywordsAndIds) {
    const std::pair<const char*, int> table[] = {
        {"MONO", 0},   {"RG,GB", 8}, {"GR,BG", 9}, {"GB,RG", 10},
        {"BG,GR", 11}, {"RGB", 100}, {"BGR", 101},
    };
    for (const auto& [keyword, id] : table) {
        EXPECT_EQ(SerColorFromKeyword(keyword), id) << keyword;
        EXPECT_EQ(SerColorKeyword(id), keyword);
    }
    EXPECT_EQ(SerColorFromKeyword("RGGB"), -1);
    EXPECT_EQ(SerColorFromKeyword("mono"), -1);
    EXPECT_EQ(SerColorKeyword(12), "");
}

TEST(SerFile, HeaderBytesAndLittleEndianSamples) {
    ScratchDir dir;
    SerHeader h;
    h.colorId = SerBayerGRBG;
    h.width = 3;
    h.height = 2;
    h.depth = 16;
    h.frames = 2;
    h.observer = "Observer";
    h.instrument = "Cam";
    h.telescope = "Scope";
    h.dateTime = 638461350000000000LL;
    h.dateTimeUtc = 638461314000000000LL;
    const std::string path = dir.file("a.ser");
    std::string error;
    SerWriter w;
    ASSERT_TRUE(w.Open(path, h, &error)) << error;
    const std::uint16_t f0[6] = {0x0102, 0xfffe, 0, 1, 256, 65535};
    const std::uint16_t f1[6] = {7, 8, 9, 10, 11, 12};
    ASSERT_TRUE(w.WriteFrame(f0, &error));
    ASSERT_TRUE(w.WriteFrame(f1, &error));
    ASSERT_TRUE(w.Close(&error)) << error;

    const auto b = ReadBytes(path);
    ASSERT_EQ(b.size(), 178u + 2 * 3 * 2 * 2);
    EXPECT_EQ(std::string(b.begin(), b.begin() + 14), "Astrivelle    ");
    EXPECT_EQ(Int32At(b, 14), 0);
    EXPECT_EQ(Int32At(b, 18), 9);
    EXPECT_EQ(Int32At(b, 22), 0); // little-endian samples are marked 0
    EXPECT_EQ(Int32At(b, 26), 3);
    EXPECT_EQ(Int32At(b, 30), 2);
    EXPECT_EQ(Int32At(b, 34), 16);
    EXPECT_EQ(Int32At(b, 38), 2);
    EXPECT_EQ(std::string(b.begin() + 42, b.begin() + 82), "Observer" + std::string(32, ' '));
    EXPECT_EQ(std::string(b.begin() + 122, b.begin() + 127), "Scope");
    std::int64_t ticks = 0;
    std::memcpy(&ticks, b.data() + 162, 8); // the test machine is little-endian
    EXPECT_EQ(ticks, 638461350000000000LL);
    std::memcpy(&ticks, b.data() + 170, 8);
    EXPECT_EQ(ticks, 638461314000000000LL);
    // First sample 0x0102 low byte first.
    EXPECT_EQ(b[178], 0x02);
    EXPECT_EQ(b[179], 0x01);

    SerHeader r;
    ASSERT_TRUE(ReadSerHeader(path, &r, &error)) << error;
    EXPECT_EQ(r.fileId, "Astrivelle");
    EXPECT_EQ(r.colorId, SerBayerGRBG);
    EXPECT_EQ(r.observer, "Observer");
    EXPECT_EQ(r.instrument, "Cam");
    std::vector<std::uint16_t> s;
    ASSERT_TRUE(ReadSerFrame(path, r, 0, &s, &error)) << error;
    EXPECT_EQ(s, std::vector<std::uint16_t>(f0, f0 + 6));
    ASSERT_TRUE(ReadSerFrame(path, r, 1, &s, &error)) << error;
    EXPECT_EQ(s, std::vector<std::uint16_t>(f1, f1 + 6));
    EXPECT_FALSE(ReadSerFrame(path, r, 2, &s, &error));
}

TEST(SerFile, SwappedFlagStoresHighByteFirstAndReadsBack) {
    ScratchDir dir;
    SerHeader h;
    h.width = 2;
    h.height = 1;
    h.depth = 12;
    h.frames = 1;
    h.littleEndian = 1;
    const std::string path = dir.file("b.ser");
    std::string error;
    SerWriter w;
    ASSERT_TRUE(w.Open(path, h, &error));
    const std::uint16_t f[2] = {0x0abc, 0x1fff}; // the second is clipped to 12 bits
    ASSERT_TRUE(w.WriteFrame(f, &error));
    ASSERT_TRUE(w.Close(&error));
    const auto b = ReadBytes(path);
    ASSERT_EQ(b.size(), 182u);
    EXPECT_EQ(b[178], 0x0a);
    EXPECT_EQ(b[179], 0xbc);
    SerHeader r;
    std::vector<std::uint16_t> s;
    ASSERT_TRUE(ReadSerHeader(path, &r, &error));
    ASSERT_TRUE(ReadSerFrame(path, r, 0, &s, &error));
    EXPECT_EQ(s, (std::vector<std::uint16_t>{0x0abc, 0x0fff}));
}

TEST(SerFile, FailuresOfBadFiles) {
    ScratchDir dir;
    std::string error;
    SerHeader h;
    h.width = 4;
    h.height = 4;
    h.frames = 3;
    h.colorId = SerRGB;
    const std::string path = dir.file("c.ser");
    {
        SerWriter w;
        ASSERT_TRUE(w.Open(path, h, &error));
        std::vector<std::uint16_t> f(48, 5);
        ASSERT_TRUE(w.WriteFrame(f.data(), &error));
        EXPECT_FALSE(w.Close(&error));
        EXPECT_EQ(error, "SER header says 3 frames but 1 were written");
    }
    SerHeader r;
    EXPECT_FALSE(ReadSerHeader(path, &r, &error));
    EXPECT_EQ(error, path + " is shorter than its 3 frames");
    EXPECT_FALSE(ReadSerHeader(dir.file("none.ser"), &r, &error));
    std::filesystem::resize_file(path, 100);
    EXPECT_FALSE(ReadSerHeader(path, &r, &error));
    EXPECT_EQ(error, path + " is shorter than a SER header");

    SerHeader bad = h;
    bad.colorId = 7;
    SerWriter w;
    EXPECT_FALSE(w.Open(dir.file("d.ser"), bad, &error));
}
