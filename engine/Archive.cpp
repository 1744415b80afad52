// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The little-endian archive writer and its checked reader.
#include "engine/Archive.h"

#include <cstring>

namespace astrivelle {

namespace {

std::uint64_t DoubleBits(double v) {
    std::uint64_t bits;
    static_assert(sizeof bits == sizeof v);
    std::memcpy(&bits, &v, sizeof bits);
    return bits;
}

} // namespace

void ArchiveWriter::PutU32(std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        buffer_.push_back(static_cast<char>((v >> (8 * i)) & 0xFFu));
}

void ArchiveWriter::PutDouble(double v) {
    std::uint64_t bits = DoubleBits(v);
    for (int i = 0; i < 8; ++i)
        buffer_.push_back(static_cast<char>((bits >> (8 * i)) & 0xFFu));
}

void ArchiveWriter::PutString(const std::string& s) {
    PutU32(static_cast<std::uint32_t>(s.size()));
    buffer_.append(s);
}

bool ArchiveReader::Take(void* out, std::size_t n) {
    if (!Ok())
        return false;
    if (Remaining() < n) {
        pos_ = size_;
        return Fail(ArchiveError::Truncated);
    }
    std::memcpy(out, data_ + pos_, n);
    pos_ += n;
    return true;
}

bool ArchiveReader::GetU32(std::uint32_t& v) {
    unsigned char b[4];
    if (!Take(b, 4))
        return false;
    v = static_cast<std::uint32_t>(b[0]) | (static_cast<std::uint32_t>(b[1]) << 8) |
        (static_cast<std::uint32_t>(b[2]) << 16) | (static_cast<std::uint32_t>(b[3]) << 24);
    return true;
}

bool ArchiveReader::GetI32(std::int32_t& v) {
    std::uint32_t u;
    if (!GetU32(u))
        return false;
    v = static_cast<std::int32_t>(u);
    return true;
}

bool ArchiveReader::GetDouble(double& v) {
    unsigned char b[8];
    if (!Take(b, 8))
        return false;
    std::uint64_t bits = 0;
    for (int i = 7; i >= 0; --i)
        bits = (bits << 8) | b[i];
    std::memcpy(&v, &bits, sizeof v);
    return true;
}

bool ArchiveReader::GetByte(std::uint8_t& v) {
    return Take(&v, 1);
}

bool ArchiveReader::GetBool(bool& v) {
    std::uint8_t b;
    if (!GetByte(b))
        return false;
    v = b != 0;
    return true;
}

bool ArchiveReader::GetString(std::string& s, std::size_t maxLength) {
    std::uint32_t n;
    if (!GetU32(n))
        return false;
    if (n > maxLength)
        return Fail(ArchiveError::Corrupt);
    if (Remaining() < n) {
        pos_ = size_;
        return Fail(ArchiveError::Truncated);
    }
    s.assign(data_ + pos_, n);
    pos_ += n;
    return true;
}

bool ArchiveReader::GetCount(std::uint32_t& n, std::uint32_t maxCount) {
    std::uint32_t v;
    if (!GetU32(v))
        return false;
    if (v > maxCount)
        return Fail(ArchiveError::Corrupt);
    n = v;
    return true;
}

} // namespace astrivelle
