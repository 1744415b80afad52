// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The process-wide image file lock.
#include "fileio/FileLock.h"

namespace astrivelle {

std::recursive_mutex& ImageFileLock() {
    static std::recursive_mutex lock;
    return lock;
}

} // namespace astrivelle
