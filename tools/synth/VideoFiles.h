// SPDX-License-Identifier: GPL-3.0-or-later
/// \file AVI and MOV test videos made by piping raw frames into the `ffmpeg` program, and
/// frame counts read back with `ffprobe`.
#pragma once
#include <cstdint>
#include <cstdio>
#include <string>

namespace astrivelle::synth {

enum class VideoKind {
    AviRaw,   ///< AVI, uncompressed frames (gray or BGR24 as given)
    MovMjpeg, ///< QuickTime MOV, Motion JPEG
    MovPng,   ///< QuickTime MOV, lossless PNG frames
};

/// The file extension for a kind: "avi" or "mov".
const char* VideoExtension(VideoKind kind);

/// True when `program` (e.g. "ffmpeg") is found on PATH.
bool HaveVideoProgram(const std::string& program);

/// Feeds 8-bit frames (1 channel gray or 3 channels R,G,B interleaved) to ffmpeg, which
/// encodes them into `path`. Writing to a dead ffmpeg fails rather than raising SIGPIPE.
class FfmpegVideoWriter {
public:
    FfmpegVideoWriter() = default;
    FfmpegVideoWriter(const FfmpegVideoWriter&) = delete;
    FfmpegVideoWriter& operator=(const FfmpegVideoWriter&) = delete;
    ~FfmpegVideoWriter();

    bool Open(const std::string& path, int width, int height, int channels, int fps, VideoKind kind,
              std::string* error);
    bool WriteFrame(const std::uint8_t* pixels, std::string* error);
    /// Waits for ffmpeg; false when it failed.
    bool Close(std::string* error);

private:
    std::FILE* pipe_ = nullptr;
    std::size_t frameBytes_ = 0;
    std::string path_;
};

/// The number of video frames in `path`, decoded and counted by ffprobe.
bool CountVideoFrames(const std::string& path, int* frames, std::string* error);

} // namespace astrivelle::synth
