// SPDX-License-Identifier: GPL-3.0-or-later
/// \file A minimal SER video writer and reader for generated test data: the 178-byte header,
/// then the frames one after the other, no trailer.
#pragma once
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace astrivelle::synth {

/// Bytes in a SER header; frames start right after it.
constexpr int kSerHeaderBytes = 178;

/// The colour ids a SER header may carry.
enum SerColor : std::int32_t {
    SerMono = 0,
    SerBayerRGGB = 8,
    SerBayerGRBG = 9,
    SerBayerGBRG = 10,
    SerBayerBGGR = 11,
    SerRGB = 100,
    SerBGR = 101,
};

struct SerHeader {
    std::string fileId = "Astrivelle"; ///< padded with spaces to 14 bytes
    std::int32_t cameraId = 0;
    std::int32_t colorId = SerMono;
    /// 0: 16-bit samples are stored little-endian; 1: they are stored with their two bytes
    /// swapped (big-endian). Readers of this format disagree on the meaning of this word; the
    /// one this system reads swaps the bytes when it is 1, so our files say 0 and store
    /// little-endian samples, which every reader gets right.
    std::int32_t littleEndian = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t depth = 8; ///< bits per sample; above 8 each sample takes two bytes
    std::int32_t frames = 0;
    std::string observer, instrument, telescope; ///< 40 bytes each, space padded
    std::int64_t dateTime = 0;                   ///< local time in 100 ns ticks since 0001-01-01
    std::int64_t dateTimeUtc = 0;                ///< the same in UTC

    int Planes() const { return colorId == SerRGB || colorId == SerBGR ? 3 : 1; }
    int BytesPerSample() const { return depth > 8 ? 2 : 1; }
    std::int64_t FrameBytes() const {
        return static_cast<std::int64_t>(width) * height * Planes() * BytesPerSample();
    }
};

/// The colour id for a keyword (MONO, "RG,GB", "GR,BG", "GB,RG", "BG,GR", RGB, BGR), or -1.
int SerColorFromKeyword(const std::string& keyword);
/// The keyword for a colour id, or "" for an unknown one.
std::string SerColorKeyword(int colorId);

/// Writes a SER file frame by frame. The header's frame count is written up front and Close
/// fails when a different number of frames came.
class SerWriter {
public:
    SerWriter() = default;
    SerWriter(const SerWriter&) = delete;
    SerWriter& operator=(const SerWriter&) = delete;
    ~SerWriter();

    bool Open(const std::string& path, const SerHeader& header, std::string* error);
    /// One frame of width*height*planes samples, interleaved per pixel for RGB/BGR; values
    /// above the depth's maximum are clipped.
    bool WriteFrame(const std::uint16_t* samples, std::string* error);
    bool Close(std::string* error);

private:
    std::FILE* file_ = nullptr;
    SerHeader header_;
    int written_ = 0;
    std::vector<std::uint8_t> buffer_;
};

/// Reads and checks a SER header: known colour id, positive sizes, depth 1..16 and a file
/// long enough for every frame.
bool ReadSerHeader(const std::string& path, SerHeader* header, std::string* error);

/// Reads frame `index` (0-based) as width*height*planes samples.
bool ReadSerFrame(const std::string& path, const SerHeader& header, int index,
                  std::vector<std::uint16_t>* samples, std::string* error);

} // namespace astrivelle::synth
