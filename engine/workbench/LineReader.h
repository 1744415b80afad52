// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Reading a text file line by line with no limit on the length of a line.
#pragma once
#include <cstdio>
#include <string>

namespace astrivelle {

/// Reads the lines of a text file. A line ends at '\n'; a '\r' before it is dropped, and the
/// last line needs no newline. Lines of any length are read whole, and a NUL byte inside a
/// line is kept as a character.
class CLineReader {
public:
    CLineReader() = default;
    ~CLineReader();
    CLineReader(const CLineReader&) = delete;
    CLineReader& operator=(const CLineReader&) = delete;

    /// Opens `path` for reading; false when it can't be opened.
    bool Open(const std::string& path);
    void Close();
    bool IsOpen() const { return file_ != nullptr; }

    /// The next line without its line end; false at the end of the file or on a read error.
    bool ReadLine(std::string* line);

    /// Number of lines read so far.
    long LineNumber() const { return lines_; }

private:
    std::FILE* file_ = nullptr;
    char* buffer_ = nullptr; ///< grown by getline as long lines need
    std::size_t capacity_ = 0;
    long lines_ = 0;
};

} // namespace astrivelle
