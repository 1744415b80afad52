// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Internal to fileio/: an owning cfitsio handle, cfitsio status texts, and a buffer of
/// pages for pixel samples. Use only while holding ImageFileLock.
#pragma once
#include <fitsio.h>

#include <cstddef>
#include <string>

#include "engine/PageAlloc.h"

namespace astrivelle {

/// Owns an open fitsfile and closes it (discarding the close status) unless Close() ran.
class FitsFile {
public:
    FitsFile() = default;
    ~FitsFile() {
        if (file) {
            int status = 0;
            ffclos(file, &status);
        }
    }
    FitsFile(const FitsFile&) = delete;
    FitsFile& operator=(const FitsFile&) = delete;

    /// Closes and returns cfitsio's status of the close.
    int Close() {
        int status = 0;
        if (file)
            ffclos(file, &status);
        file = nullptr;
        return status;
    }

    fitsfile* file = nullptr;
};

/// "FITS error 104: could not open the named file" for a cfitsio status.
inline std::string FitsStatusText(int status) {
    char text[FLEN_STATUS] = {};
    ffgerr(status, text);
    return "FITS error " + std::to_string(status) + ": " + text;
}

} // namespace astrivelle
