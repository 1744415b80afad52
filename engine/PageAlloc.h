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

/// A temporary buffer in one page allocation, freed at once when it goes.
class PageBuffer {
public:
    PageBuffer() = default;
    ~PageBuffer() { PageFree(data_); }
    PageBuffer(const PageBuffer&) = delete;
    PageBuffer& operator=(const PageBuffer&) = delete;
    /// `bytes` zero-filled bytes in place of what was held; false when they cannot be had.
    bool Allocate(std::size_t bytes) {
        PageFree(data_);
        data_ = PageAlloc(bytes);
        return data_ != nullptr;
    }
    void* data() const { return data_; }

private:
    void* data_ = nullptr;
};

/// A plane of `count` floats: `count * 4 + 2` bytes, zero-filled.
inline float* AllocPlane(std::size_t count) {
    return static_cast<float*>(PageAlloc(count * sizeof(float)));
}

} // namespace astrivelle
