// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The SBIG file attribute record (ImageHeader, forward-declared in engine/Image.h): the
/// fields of a camera file's 2048-byte text header, in the order of its lines. The record is
/// plain data; reading, writing and the header text live in fileio/Sbig.h and Sbig*.cpp. The
/// statistics hook at the bottom is inline so that the operator skeleton can call it without
/// linking the file code.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "engine/Image.h"

namespace astrivelle {

/// The header of one SBIG camera file. An Image read from an SBIG file owns one through
/// Image::header; only such an image can be written back as SBIG.
struct ImageHeader {
    std::int32_t maxValue = 65535;
    std::int32_t width = 0;           ///< "Width = %d"
    std::int32_t height = 0;          ///< "Height = %d"
    std::uint32_t pixelCount = 0;     ///< width * height
    std::int32_t fileType = KindSBIG; ///< KindSBIGCompressed (-1) or KindSBIG (-2)
    std::uint32_t colorType = ColorGray;
    std::string imageType;                  ///< the first line, e.g. "ST-7 Compressed Image"
    std::int32_t fileVersion = 0;           ///< "File_version = %d"
    std::int32_t dataVersion = 0;           ///< "Data_version = %d"
    std::int32_t exposure = 0;              ///< hundredths of a second, "Exposure = %d"
    double focalLength = 0;                 ///< inches, "Focal_length = %5.3f"
    double aperture = 0;                    ///< square inches, "Aperture = %5.3f"
    double responseFactor = 0;              ///< "Response_factor = %5.3f"; read as an integer
    std::string note;                       ///< "Note = "
    std::int32_t background = 0;            ///< "Background = %d"
    std::int32_t range = 0;                 ///< "Range = %d"
    std::string date;                       ///< "Date = ", month/day/year
    std::string time;                       ///< "Time = "
    std::string exposureState;              ///< "Exposure_state = ", shown in hex as EXPSTATE
    double temperature = 0;                 ///< degrees Celsius, "Temperature = %12.4f"
    std::int32_t numberExposures = 0;       ///< "Number_exposures = %d"
    std::int32_t eachExposure = 0;          ///< hundredths of a second, "Each_exposure = %d"
    std::string history;                    ///< "History = "
    std::string observer;                   ///< "Observer = "
    double xPixelSize = 0;                  ///< millimetres, "X_pixel_size = %4.2f"
    double yPixelSize = 0;                  ///< millimetres, "Y_pixel_size = %4.2f"
    std::int32_t pedestal = 0;              ///< "Pedestal = %d"
    double eGain = 0;                       ///< electrons per count, "E_gain = %6.2f"
    std::string user1, user2, user3, user4; ///< "User_1 = " .. "User_4 = "
    std::string filter;                     ///< "Filter = "
    std::int32_t readoutMode = 0;           ///< "Readout_mode = %d"
    std::int32_t trackTime = 0;             ///< "Track_time = %d"
    std::int32_t satLevel = 0;              ///< "Sat_level = %d"
    /// The 16-bit samples (pixelCount + 1), held only while a read or a write runs.
    std::vector<std::uint16_t> pixels;

    /// The header lines, each ended by line feed and carriage return, the last "End".
    std::string ToText() const;
    /// Takes one header line into the record (by substring; an unknown line changes nothing).
    void ParseLine(const std::string& line);
    /// Parses a NUL-terminated header area: tokens split at line feeds and carriage returns,
    /// up to a token that is exactly "End".
    void ParseText(const char* text);
    /// Reads the file (header and pixels) into `image`, the plane chosen by colorType. The
    /// caller holds nothing; the image file lock is taken here. False with LastFileError.
    bool Read(const std::string& path, Image& image);
    /// Writes the header and the plane (width * height floats) as fileType says.
    bool Write(const std::string& path, const float* plane);
};

/// The name the camera-file code is known by elsewhere.
using CSBIGHeader = ImageHeader;

/// After an operator (right after Image::ComputeStatistics), an image with an SBIG header
/// takes its header's Range from the truncated maximum and its Background from the truncated
/// minimum of the one slot in use. Images without a header, and RGB images, are left alone.
inline void UpdateSbigHeaderFromStatistics(Image& image) {
    if (!image.header)
        return;
    const ChannelStats* stats = nullptr;
    switch (SlotOfColorType(image.colorType)) {
    case 0:
        stats = &image.redStats;
        break;
    case 1:
        stats = &image.greenStats;
        break;
    case 2:
        stats = &image.blueStats;
        break;
    default:
        return;
    }
    auto truncate = [](double v) -> std::int32_t {
        if (!(v == v))
            return 0;
        if (v >= 2147483647.0)
            return 2147483647;
        if (v <= -2147483648.0)
            return -2147483647 - 1;
        return static_cast<std::int32_t>(v);
    };
    image.header->range = truncate(stats->max);
    image.header->background = truncate(stats->min);
}

} // namespace astrivelle
