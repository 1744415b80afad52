// SPDX-License-Identifier: GPL-3.0-or-later
/// \file A small little-endian binary archive: 32-bit integers, doubles, bytes and
/// length-prefixed strings, written to and read from a memory buffer.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

namespace astrivelle {

/// Appends fields to a byte buffer. Integers and doubles are little-endian; a string is its
/// byte count as a uint32 followed by its bytes (no terminator).
class ArchiveWriter {
public:
    void PutU32(std::uint32_t v);
    void PutI32(std::int32_t v) { PutU32(static_cast<std::uint32_t>(v)); }
    void PutDouble(double v);
    void PutByte(std::uint8_t v) { buffer_.push_back(static_cast<char>(v)); }
    void PutBool(bool v) { PutByte(v ? 1 : 0); }
    void PutString(const std::string& s);

    const std::string& Bytes() const { return buffer_; }

private:
    std::string buffer_;
};

/// Why an archive read stopped.
enum class ArchiveError {
    None,
    Truncated, ///< the data ended inside a field
    Corrupt,   ///< a length or count is beyond any sensible value
};

/// Reads fields back from a buffer it does not own. The first failure sticks: every later
/// read fails too and leaves its output untouched, so a caller can read field by field and
/// keep whatever was read before the failure.
class ArchiveReader {
public:
    ArchiveReader(const char* data, std::size_t size) : data_(data), size_(size) {}

    bool GetU32(std::uint32_t& v);
    bool GetI32(std::int32_t& v);
    bool GetDouble(double& v);
    bool GetByte(std::uint8_t& v);
    bool GetBool(bool& v);
    /// Fails as Corrupt when the stored length exceeds `maxLength`, as Truncated when the
    /// data ends first; no memory is reserved before the length has been checked.
    bool GetString(std::string& s, std::size_t maxLength = kMaxStringLength);
    /// A count of entries: Corrupt when it exceeds `maxCount`. Callers read the entries one
    /// by one (never reserving `n` up front), so a count that overruns the data fails as
    /// Truncated at the first missing entry with the complete ones kept.
    bool GetCount(std::uint32_t& n, std::uint32_t maxCount);

    bool Ok() const { return error_ == ArchiveError::None; }
    ArchiveError Error() const { return error_; }
    std::size_t Position() const { return pos_; }
    std::size_t Remaining() const { return size_ - pos_; }

    static constexpr std::size_t kMaxStringLength = 1u << 20;

private:
    bool Take(void* out, std::size_t n);
    bool Fail(ArchiveError e) {
        if (error_ == ArchiveError::None)
            error_ = e;
        return false;
    }

    const char* data_;
    std::size_t size_;
    std::size_t pos_ = 0;
    ArchiveError error_ = ArchiveError::None;
};

} // namespace astrivelle
