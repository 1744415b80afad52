// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The one process-wide lock under which every image file is read, probed or written.
#pragma once
#include <mutex>

namespace astrivelle {

/// The process-wide, re-entrant image file lock. At most one image file is being read or
/// written at any moment, from any thread; format code that is entered again from a dispatch
/// that already holds it simply takes it once more. cfitsio is never entered outside it.
std::recursive_mutex& ImageFileLock();

/// Holds ImageFileLock for the lifetime of the object.
class ImageFileGuard {
public:
    ImageFileGuard() : lock_(ImageFileLock()) {}
    ImageFileGuard(const ImageFileGuard&) = delete;
    ImageFileGuard& operator=(const ImageFileGuard&) = delete;

private:
    std::lock_guard<std::recursive_mutex> lock_;
};

} // namespace astrivelle
