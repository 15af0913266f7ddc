#include "model/file_element.h"

#include <algorithm>
#include <cstdint>

#include "asnt/view.h"

namespace nal {

IdentObj ReadElement(const CTOOFile& file, const char* context) {
    constexpr unsigned c_longestHeader = 12;
    const std::uint64_t start = file.Tell();
    const std::uint64_t length = file.Length();
    const std::uint64_t left = length > start ? length - start : 0;

    unsigned char bytes[c_longestHeader];
    const std::size_t count = file.Read(bytes, sizeof(bytes));
    file.Seek(static_cast<std::int64_t>(start));
    asnt::Header header;
    const bool isElement =
        asnt::ParseHeader({bytes, count}, asnt::Rules::Der, header) == asnt::HeaderState::Read;
    // Held against the file's length before anything of the claimed size is allocated.
    if (!isElement || header.size + header.contentSize > std::min<std::uint64_t>(left, asnt::kMaxContent)) {
        asnt::ThrowBadStructure(context);
    }
    IdentObj element;
    element.SetSize(static_cast<unsigned>(header.size + header.contentSize));
    file.ReadExactly(element.GetData(), element.GetSize());
    return element;
}

}  // namespace nal
