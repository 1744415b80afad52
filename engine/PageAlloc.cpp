// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Anonymous-mmap allocator with a small size header in front of each block.
#include "engine/PageAlloc.h"

#include <sys/mman.h>

#include <cstdint>

namespace astrivelle {

namespace {
// The header keeps the mapping length for munmap; 64 bytes keep the payload cache-aligned.
constexpr std::size_t kHeader = 64;
constexpr std::size_t kHugeThreshold = std::size_t(4) << 20;
} // namespace

void* PageAlloc(std::size_t bytes) {
    const std::size_t total = bytes + 2 + kHeader;
    void* base = mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED)
        return nullptr;
    // Large planes fault in far faster as huge pages; the kernel ignores this where it cannot.
    if (total >= kHugeThreshold)
        madvise(base, total, MADV_HUGEPAGE);
    *static_cast<std::size_t*>(base) = total;
    return static_cast<std::uint8_t*>(base) + kHeader;
}

void PageFree(void* block) {
    if (!block)
        return;
    void* base = static_cast<std::uint8_t*>(block) - kHeader;
    munmap(base, *static_cast<std::size_t*>(base));
}

} // namespace astrivelle
