// SPDX-License-Identifier: GPL-3.0-or-later
/// \file AVI and MOV test videos through the ffmpeg and ffprobe programs.
#include "tools/synth/VideoFiles.h"

#include <csignal>
#include <cstdlib>

namespace astrivelle::synth {

namespace {

/// Single-quotes a path for the shell.
std::string Quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) {
        if (c == '\'')
            q += "'\\''";
        else
            q += c;
    }
    return q + "'";
}

} // namespace

const char* VideoExtension(VideoKind kind) {
    return kind == VideoKind::AviRaw ? "avi" : "mov";
}

bool HaveVideoProgram(const std::string& program) {
    const std::string command = "command -v " + Quote(program) + " >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
}

FfmpegVideoWriter::~FfmpegVideoWriter() {
    if (pipe_)
        pclose(pipe_);
}

bool FfmpegVideoWriter::Open(const std::string& path, int width, int height, int channels, int fps,
                             VideoKind kind, std::string* error) {
    if (width < 1 || height < 1 || (channels != 1 && channels != 3) || fps < 1) {
        *error = "bad video geometry for " + path;
        return false;
    }
    if (!HaveVideoProgram("ffmpeg")) {
        *error = "the ffmpeg program is not installed";
        return false;
    }
    // A pipe whose reader died must give a write error, not end this program.
    std::signal(SIGPIPE, SIG_IGN);
    const bool gray = channels == 1;
    std::string codec;
    switch (kind) {
    case VideoKind::AviRaw:
        codec = std::string("-c:v rawvideo -pix_fmt ") + (gray ? "gray" : "bgr24");
        break;
    case VideoKind::MovMjpeg:
        codec = "-c:v mjpeg -pix_fmt yuvj420p -q:v 2";
        break;
    case VideoKind::MovPng:
        codec = std::string("-c:v png -pix_fmt ") + (gray ? "gray" : "rgb24");
        break;
    }
    const std::string command = "ffmpeg -hide_banner -loglevel error -y -f rawvideo -pix_fmt " +
                                std::string(gray ? "gray" : "rgb24") + " -s " +
                                std::to_string(width) + "x" + std::to_string(height) + " -r " +
                                std::to_string(fps) + " -i - " + codec + " " + Quote(path);
    pipe_ = popen(command.c_str(), "w");
    if (!pipe_) {
        *error = "cannot start ffmpeg";
        return false;
    }
    frameBytes_ = static_cast<std::size_t>(width) * height * channels;
    path_ = path;
    return true;
}

bool FfmpegVideoWriter::WriteFrame(const std::uint8_t* pixels, std::string* error) {
    if (!pipe_ || std::fwrite(pixels, 1, frameBytes_, pipe_) != frameBytes_) {
        *error = "ffmpeg stopped taking frames for " + path_;
        return false;
    }
    return true;
}

bool FfmpegVideoWriter::Close(std::string* error) {
    if (!pipe_)
        return true;
    const int status = pclose(pipe_);
    pipe_ = nullptr;
    if (status != 0) {
        *error = "ffmpeg failed to write " + path_;
        return false;
    }
    return true;
}

bool CountVideoFrames(const std::string& path, int* frames, std::string* error) {
    const std::string command = "ffprobe -v error -select_streams v:0 -count_frames "
                                "-show_entries stream=nb_read_frames -of csv=p=0 " +
                                Quote(path) + " 2>/dev/null";
    std::FILE* p = popen(command.c_str(), "r");
    if (!p) {
        *error = "cannot start ffprobe";
        return false;
    }
    char line[64] = {};
    const bool got = std::fgets(line, sizeof line, p) != nullptr;
    const int status = pclose(p);
    char* end = nullptr;
    const long n = got ? std::strtol(line, &end, 10) : -1;
    if (status != 0 || !got || end == line || n < 0) {
        *error = "ffprobe could not count the frames of " + path;
        return false;
    }
    *frames = static_cast<int>(n);
    return true;
}

} // namespace astrivelle::synth
