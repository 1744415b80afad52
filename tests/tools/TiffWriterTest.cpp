// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The test-data TIFF writer: outside readers accept it, and the bytes hold the plane.
#include <cstdint>
#include <fstream>
#include <iterator>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "engine/Levels.h"
#include "tools/synth/TiffWriter.h"

namespace astrivelle::synth {
namespace {

std::vector<std::uint8_t> Bytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::uint32_t U32(const std::vector<std::uint8_t>& b, std::size_t at) {
    return b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) |
           (static_cast<std::uint32_t>(b[at + 3]) << 24);
}

TEST(TiffWriter, SamplesAndStripsReadBack) {
    test::ScratchDir dir;
    // 700 columns: 1400 bytes per row, 46 rows per strip, so 53 rows make two strips.
    for (int height : {1, 53}) {
        const int width = 700;
        std::vector<float> plane(static_cast<std::size_t>(width) * height);
        for (std::size_t i = 0; i < plane.size(); ++i)
            plane[i] = static_cast<float>((i * 37) % 70000) - 1000.5f;
        const std::string path = dir.file("t" + std::to_string(height) + ".tif");
        std::string error;
        ASSERT_TRUE(WriteTiff16(path, plane.data(), width, height, "EXPTIME=60", &error)) << error;
        const auto b = Bytes(path);
        ASSERT_GE(b.size(), plane.size() * 2);
        EXPECT_EQ(b[0], 'I');
        EXPECT_EQ(b[2], 42);
        // Walk the IFD for the first strip offset.
        const std::uint32_t ifd = U32(b, 4);
        const int entries = b[ifd] | (b[ifd + 1] << 8);
        std::uint32_t firstStrip = 0, strips = 0;
        for (int e = 0; e < entries; ++e) {
            const std::size_t at = ifd + 2 + 12 * e;
            const int tag = b[at] | (b[at + 1] << 8);
            if (tag == 273) {
                strips = U32(b, at + 4);
                firstStrip = strips == 1 ? U32(b, at + 8) : U32(b, U32(b, at + 8));
            }
        }
        EXPECT_EQ(strips, height == 1 ? 1u : 2u);
        for (std::size_t i = 0; i < plane.size(); ++i) {
            const int v = b[firstStrip + 2 * i] | (b[firstStrip + 2 * i + 1] << 8);
            ASSERT_EQ(v, RoundLevel16(plane[i])) << i;
        }
        if (!test::HaveProgram("tiffinfo")) {
            GTEST_SKIP() << "tiffinfo is not installed";
        }
        std::string out;
        EXPECT_EQ(test::RunCommand("tiffinfo -D " + path, &out), 0) << out;
        EXPECT_NE(out.find("Image Width: 700 Image Length: " + std::to_string(height)),
                  std::string::npos)
            << out;
        EXPECT_NE(out.find("Bits/Sample: 16"), std::string::npos) << out;
        EXPECT_NE(out.find("EXPTIME=60"), std::string::npos) << out;
        EXPECT_EQ(out.find("rror"), std::string::npos) << out;
        EXPECT_EQ(out.find("arning"), std::string::npos) << out;
    }
}

TEST(TiffWriter, UnwritablePathFails) {
    float v = 1;
    std::string error;
    EXPECT_FALSE(WriteTiff16("/nonexistent-dir/x.tif", &v, 1, 1, "", &error));
    EXPECT_EQ(error, "cannot create /nonexistent-dir/x.tif");
}

} // namespace
} // namespace astrivelle::synth
