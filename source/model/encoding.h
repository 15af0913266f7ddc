// What the model's records share: reading one from the start of a buffer, and turning one that writes itself into bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "asnt/view.h"
#include "asnt/writer.h"
#include "too/ident_obj.h"

namespace nal {

/// Calls `decode` with a reader over `data`.
/// @return the bytes that it took; 0, without a call, for a null pointer or a size of 0
template <class Decode>
unsigned ReadStart(const void* data, unsigned size, const char* context, Decode&& decode) {
    if (data == nullptr || size == 0) return 0;
    asnt::Reader reader({data, size}, context);
    decode(reader);
    return size - static_cast<unsigned>(reader.Rest().size);
}

/// The next INTEGER, which has at most 32 bits. @throws as the reader for a damaged or larger one
inline std::int32_t ReadInt32(asnt::Reader& reader) {
    const std::int64_t value = reader.Int64();
    if (value != static_cast<std::int32_t>(value)) reader.Fail();
    return static_cast<std::int32_t>(value);
}

/// How many elements are left. What makes one object of each counts first: a hostile list of millions then takes the memory
/// of its objects, and not that of a growing vector as well.
/// @throws as the reader for a damaged one
inline std::size_t CountElements(asnt::Reader elements) {
    std::size_t count = 0;
    for (; !elements.AtEnd(); elements.Skip()) ++count;
    return count;
}

/// The DER that `write` writes.
template <class Write>
IdentObj Encoded(Write&& write) {
    asnt::Writer writer;
    write(writer);
    return writer.Finish();
}

/// The length of that DER, which is not put together for it.
template <class Write>
unsigned EncodedSize(Write&& write) {
    asnt::Writer writer;
    write(writer);
    return static_cast<unsigned>(writer.Size());
}

}  // namespace nal
