// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Page-granular allocation of large pixel buffers straight from the kernel.
#pragma once
#include <cstddef>

namespace astrivelle {

/// Allocates `bytes` zero-filled bytes from anonymous pages (plus two spare bytes),
/// so that freeing a large plane returns its memory to the system at once.
/// Returns nullptr on failure.
void* PageAlloc(std::size_t bytes);

/// Releases a block from PageAlloc; nullptr is ignored.
void PageFree(void* block);

/// A plane of `count` floats: `count * 4 + 2` bytes, zero-filled.
inline float* AllocPlane(std::size_t count) {
    return static_cast<float*>(PageAlloc(count * sizeof(float)));
}

} // namespace astrivelle
