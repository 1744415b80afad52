// SPDX-License-Identifier: GPL-3.0-or-later
/// \file libFuzzer target of the TIFF reader: tags, strips and pixels from a buffer, the same
/// bytes as an Exif block and as a directory chain, and what was read written out again.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fileio/Tiff.h"
#include "fileio/TiffDirectory.h"

namespace {

/// Keeps the bytes in memory and checks that the writer never seeks outside them.
class MemorySink : public astrivelle::TiffSink {
public:
    bool Write(const void* data, std::size_t n) override {
        const auto* p = static_cast<const std::uint8_t*>(data);
        if (at_ + n > bytes.size())
            bytes.resize(at_ + n);
        std::copy(p, p + n, bytes.begin() + static_cast<std::ptrdiff_t>(at_));
        at_ += n;
        return true;
    }
    bool Seek(std::uint64_t offset) override {
        if (offset > bytes.size())
            __builtin_trap();
        at_ = offset;
        return true;
    }
    std::vector<std::uint8_t> bytes;

private:
    std::uint64_t at_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace astrivelle;
    std::vector<TiffDirectory> chain;
    ParseTiffDirectoryChain(data, size, size > 0 && data[0] == 'I', 8, &chain);
    ExifBlock block;
    ParseExifBlock(data, size, &block);

    TiffFile file;
    file.OpenMemory(data, size);
    std::string text;
    if (!file.ReadTags(&text) || !file.CheckStrips())
        return 0;
    // CheckStrips bounds the pixels by the input size.
    const std::size_t count = std::size_t(file.width) * file.height;
    if (count > size)
        __builtin_trap();
    const bool rgb = file.colorSpace == "RGB";
    std::vector<float> planes[3];
    for (int p = 0; p < (rgb ? 3 : 1); ++p)
        planes[p].assign(count, 0.f);
    if (!file.ReadPlanes(planes[0].data(), rgb ? planes[1].data() : nullptr,
                         rgb ? planes[2].data() : nullptr))
        __builtin_trap(); // the strips were checked: the read cannot fail
    TiffWriteRequest q;
    q.red = planes[0].data();
    q.green = rgb ? planes[1].data() : nullptr;
    q.blue = rgb ? planes[2].data() : nullptr;
    q.bits = file.info.bitsPerSample;
    q.colorType = rgb ? 1 : 9;
    q.width = static_cast<std::int32_t>(file.width);
    q.height = static_cast<std::int32_t>(file.height);
    q.info = &file.info;
    MemorySink sink;
    std::string message;
    if (!WriteTiffToSink(sink, q, &message))
        __builtin_trap();
    // What we write reads back with the same tags.
    TiffFile again;
    again.OpenMemory(sink.bytes.data(), sink.bytes.size());
    if (!again.ReadTags(&text) || !again.CheckStrips() || again.width != file.width ||
        again.info.exif.PresentCount() !=
            (file.info.exif.Has(36864) ? file.info.exif.PresentCount() : 0))
        __builtin_trap();
    return 0;
}
