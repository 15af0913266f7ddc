#include "signed_data_helper/content_compare.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "cms/file_content.h"
#include "frame/progress.h"

namespace nal {
namespace {

constexpr std::size_t c_chunk = 256 * 1024;

/// Compares chunk by chunk up to the first that differs; `next` gives the other side's bytes at an offset.
template <class Next>
bool AreEqual(const FileContent& content, Next&& next) {
    FileContentReader reader(content);
    std::vector<unsigned char> chunk(static_cast<std::size_t>(std::min<std::uint64_t>(c_chunk, content.Size())));
    Progress progress(content.Size());
    for (std::uint64_t offset = 0; offset != content.Size();) {
        const std::size_t count = reader.Read(chunk.data(), chunk.size());
        if (asnt::View(chunk.data(), count) != next(offset, count)) return false;
        offset += count;
        progress.Advance(count);
    }
    return true;
}

}  // namespace

bool AreEqual(const WhatToSignStruct& file, asnt::View bytes, const char* context) {
    const FileContent content(file, context);
    return content.Size() == bytes.size &&
           AreEqual(content, [&](std::uint64_t offset, std::size_t size) { return bytes.Sub(offset, size); });
}

bool AreEqual(const WhatToSignStruct& file1, const WhatToSignStruct& file2, const char* context) {
    const FileContent content1(file1, context);
    const FileContent content2(file2, context);
    if (content1.Size() != content2.Size()) return false;
    FileContentReader reader(content2);
    std::vector<unsigned char> chunk(static_cast<std::size_t>(std::min<std::uint64_t>(c_chunk, content2.Size())));
    return AreEqual(content1, [&](std::uint64_t /*offset*/, std::size_t size) {
        return asnt::View(chunk.data(), reader.Read(chunk.data(), size));
    });
}

}  // namespace nal
