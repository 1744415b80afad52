// SPDX-License-Identifier: GPL-3.0-or-later
/// \file A minimal SER video writer and reader for generated test data.
#include "tools/synth/SerFile.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

namespace astrivelle::synth {

namespace {

struct ColorName {
    int id;
    const char* keyword;
};

constexpr ColorName kColors[] = {
    {SerMono, "MONO"},       {SerBayerRGGB, "RG,GB"}, {SerBayerGRBG, "GR,BG"},
    {SerBayerGBRG, "GB,RG"}, {SerBayerBGGR, "BG,GR"}, {SerRGB, "RGB"},
    {SerBGR, "BGR"},
};

void PutInt32(std::uint8_t* p, std::int32_t v) {
    const auto u = static_cast<std::uint32_t>(v);
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<std::uint8_t>(u >> (8 * i));
}

void PutInt64(std::uint8_t* p, std::int64_t v) {
    const auto u = static_cast<std::uint64_t>(v);
    for (int i = 0; i < 8; ++i)
        p[i] = static_cast<std::uint8_t>(u >> (8 * i));
}

std::int32_t GetInt32(const std::uint8_t* p) {
    std::uint32_t u = 0;
    for (int i = 0; i < 4; ++i)
        u |= static_cast<std::uint32_t>(p[i]) << (8 * i);
    return static_cast<std::int32_t>(u);
}

std::int64_t GetInt64(const std::uint8_t* p) {
    std::uint64_t u = 0;
    for (int i = 0; i < 8; ++i)
        u |= static_cast<std::uint64_t>(p[i]) << (8 * i);
    return static_cast<std::int64_t>(u);
}

void PutText(std::uint8_t* p, const std::string& text, std::size_t size) {
    std::memset(p, ' ', size);
    std::memcpy(p, text.data(), std::min(size, text.size()));
}

std::string GetText(const std::uint8_t* p, std::size_t size) {
    std::string s(reinterpret_cast<const char*>(p), size);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\0'))
        s.pop_back();
    return s;
}

} // namespace

int SerColorFromKeyword(const std::string& keyword) {
    for (const auto& c : kColors)
        if (keyword == c.keyword)
            return c.id;
    return -1;
}

std::string SerColorKeyword(int colorId) {
    for (const auto& c : kColors)
        if (colorId == c.id)
            return c.keyword;
    return {};
}

SerWriter::~SerWriter() {
    if (file_)
        std::fclose(file_);
}

bool SerWriter::Open(const std::string& path, const SerHeader& header, std::string* error) {
    if (SerColorKeyword(header.colorId).empty() || header.width < 1 || header.height < 1 ||
        header.depth < 1 || header.depth > 16 || header.frames < 0) {
        *error = "bad SER header for " + path;
        return false;
    }
    file_ = std::fopen(path.c_str(), "wb");
    if (!file_) {
        *error = "cannot create " + path;
        return false;
    }
    header_ = header;
    written_ = 0;
    std::uint8_t h[kSerHeaderBytes] = {};
    PutText(h + 0, header.fileId, 14);
    PutInt32(h + 14, header.cameraId);
    PutInt32(h + 18, header.colorId);
    PutInt32(h + 22, header.littleEndian);
    PutInt32(h + 26, header.width);
    PutInt32(h + 30, header.height);
    PutInt32(h + 34, header.depth);
    PutInt32(h + 38, header.frames);
    PutText(h + 42, header.observer, 40);
    PutText(h + 82, header.instrument, 40);
    PutText(h + 122, header.telescope, 40);
    PutInt64(h + 162, header.dateTime);
    PutInt64(h + 170, header.dateTimeUtc);
    buffer_.assign(static_cast<std::size_t>(header.FrameBytes()), 0);
    if (std::fwrite(h, 1, sizeof h, file_) != sizeof h) {
        *error = "cannot write " + path;
        return false;
    }
    return true;
}

bool SerWriter::WriteFrame(const std::uint16_t* samples, std::string* error) {
    if (!file_) {
        *error = "SER file not open";
        return false;
    }
    const std::size_t count = buffer_.size() / header_.BytesPerSample();
    const std::uint16_t top = static_cast<std::uint16_t>((1u << header_.depth) - 1);
    const bool swap = header_.littleEndian == 1;
    if (header_.BytesPerSample() == 1) {
        for (std::size_t i = 0; i < count; ++i)
            buffer_[i] = static_cast<std::uint8_t>(std::min(samples[i], top));
    } else {
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint16_t v = std::min(samples[i], top);
            buffer_[2 * i + (swap ? 1 : 0)] = static_cast<std::uint8_t>(v & 0xff);
            buffer_[2 * i + (swap ? 0 : 1)] = static_cast<std::uint8_t>(v >> 8);
        }
    }
    if (std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size()) {
        *error = "cannot write a SER frame";
        return false;
    }
    ++written_;
    return true;
}

bool SerWriter::Close(std::string* error) {
    if (!file_)
        return true;
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    if (!closed) {
        *error = "cannot finish the SER file";
        return false;
    }
    if (written_ != header_.frames) {
        *error = "SER header says " + std::to_string(header_.frames) + " frames but " +
                 std::to_string(written_) + " were written";
        return false;
    }
    return true;
}

bool ReadSerHeader(const std::string& path, SerHeader* header, std::string* error) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        *error = "cannot open " + path;
        return false;
    }
    std::uint8_t h[kSerHeaderBytes];
    const bool whole = std::fread(h, 1, sizeof h, f) == sizeof h;
    std::fclose(f);
    if (!whole) {
        *error = path + " is shorter than a SER header";
        return false;
    }
    SerHeader s;
    s.fileId = GetText(h + 0, 14);
    s.cameraId = GetInt32(h + 14);
    s.colorId = GetInt32(h + 18);
    s.littleEndian = GetInt32(h + 22);
    s.width = GetInt32(h + 26);
    s.height = GetInt32(h + 30);
    s.depth = GetInt32(h + 34);
    s.frames = GetInt32(h + 38);
    s.observer = GetText(h + 42, 40);
    s.instrument = GetText(h + 82, 40);
    s.telescope = GetText(h + 122, 40);
    s.dateTime = GetInt64(h + 162);
    s.dateTimeUtc = GetInt64(h + 170);
    if (SerColorKeyword(s.colorId).empty() || s.width < 1 || s.height < 1 || s.depth < 1 ||
        s.depth > 16 || s.frames < 0) {
        *error = path + " has a bad SER header";
        return false;
    }
    std::error_code ec;
    const auto size = std::filesystem::file_size(path, ec);
    if (ec || static_cast<std::int64_t>(size) < kSerHeaderBytes + s.frames * s.FrameBytes()) {
        *error = path + " is shorter than its " + std::to_string(s.frames) + " frames";
        return false;
    }
    *header = s;
    return true;
}

bool ReadSerFrame(const std::string& path, const SerHeader& header, int index,
                  std::vector<std::uint16_t>* samples, std::string* error) {
    if (index < 0 || index >= header.frames) {
        *error = "no frame " + std::to_string(index) + " in " + path;
        return false;
    }
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        *error = "cannot open " + path;
        return false;
    }
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(header.FrameBytes()));
    const bool ok = fseeko(f, kSerHeaderBytes + index * header.FrameBytes(), SEEK_SET) == 0 &&
                    std::fread(bytes.data(), 1, bytes.size(), f) == bytes.size();
    std::fclose(f);
    if (!ok) {
        *error = "cannot read frame " + std::to_string(index) + " of " + path;
        return false;
    }
    const std::size_t count = bytes.size() / header.BytesPerSample();
    samples->resize(count);
    if (header.BytesPerSample() == 1) {
        std::copy(bytes.begin(), bytes.end(), samples->begin());
    } else {
        const int lo = header.littleEndian == 1 ? 1 : 0;
        for (std::size_t i = 0; i < count; ++i)
            (*samples)[i] =
                static_cast<std::uint16_t>(bytes[2 * i + lo] | bytes[2 * i + 1 - lo] << 8);
    }
    return true;
}

} // namespace astrivelle::synth
