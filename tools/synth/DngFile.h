// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Small DNG camera raw files for tests: one uncompressed 16-bit CFA strip in a
/// little-endian TIFF with the DNG colour tags and an Exif IFD.
#pragma once
#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace astrivelle::synth {

/// The four 2x2 CFA keywords, cell rows separated by a comma.
inline const char* const kDngCfaKeywords[4] = {"RG,GB", "GR,BG", "GB,RG", "BG,GR"};

/// The colours (0 R, 1 G, 2 B) of the 2x2 cell in row order for a keyword such as "RG,GB";
/// false for anything else.
bool DngCfaColours(const std::string& keyword, std::array<std::uint8_t, 4>* colours);

/// The keyword without its comma ("RGGB"), for file names.
std::string DngCfaName(const std::string& keyword);

struct DngImage {
    int width = 0, height = 0;
    std::string pattern = "RG,GB";      ///< CFA keyword of the top-left 2x2 cell
    std::vector<std::uint16_t> samples; ///< width*height CFA values, row by row
    std::uint32_t blackLevel = 256;
    std::uint32_t whiteLevel = 4095;
    std::uint32_t exposureNumerator = 1, exposureDenominator = 125; ///< seconds
    std::uint16_t iso = 400;
    std::string make = "Astrivelle";
    std::string model = "Synth CFA";
    std::string dateTime = "2024:03:15 21:30:00"; ///< Exif form
};

bool WriteDng(const std::string& path, const DngImage& image, std::string* error);

/// The test scene of the raw command: the upper two thirds hold a red (left third), green
/// (middle) and blue (right third) patch; the lower third a grey ramp rising to the right.
/// Linear levels above black, before noise, for a pixel of channel `c` (0 R, 1 G, 2 B).
double RawSceneLevel(int x, int y, int width, int height, int channel);

/// The scene mosaicked per `pattern` with mild noise, 12-bit values above the black level.
bool MakeRawScene(std::uint64_t seed, int width, int height, const std::string& pattern,
                  DngImage* image, std::string* error);

} // namespace astrivelle::synth
