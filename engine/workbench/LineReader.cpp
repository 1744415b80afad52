// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Line reading without a fixed buffer.
#include "engine/workbench/LineReader.h"

#include <sys/types.h>

#include <cstdlib>

namespace astrivelle {

CLineReader::~CLineReader() {
    Close();
}

bool CLineReader::Open(const std::string& path) {
    Close();
    file_ = std::fopen(path.c_str(), "rb");
    lines_ = 0;
    return file_ != nullptr;
}

void CLineReader::Close() {
    if (file_)
        std::fclose(file_);
    file_ = nullptr;
    std::free(buffer_);
    buffer_ = nullptr;
    capacity_ = 0;
}

bool CLineReader::ReadLine(std::string* line) {
    line->clear();
    if (!file_)
        return false;
    // getline grows its buffer to any length and returns the count, NUL bytes included.
    const ssize_t n = ::getline(&buffer_, &capacity_, file_);
    if (n < 0)
        return false;
    std::size_t length = static_cast<std::size_t>(n);
    if (length > 0 && buffer_[length - 1] == '\n')
        --length;
    if (length > 0 && buffer_[length - 1] == '\r')
        --length;
    line->assign(buffer_, length);
    ++lines_;
    return true;
}

} // namespace astrivelle
