// The buffers that a context's records point into: many small ones, all given back with the context.
#pragma once

#include <array>
#include <cstring>
#include <memory_resource>
#include <string>
#include <type_traits>

#include "asnt/oid.h"
#include "asnt/view.h"
#include "nal/wincrypt.h"

namespace nal {

/// Hands out memory that lives as long as the arena. The first bytes lie in the arena itself.
class Arena {
public:
    Arena() = default;
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;

    /// Zeroed records.
    template <class Record>
    Record* Array(std::size_t count) {
        static_assert(std::is_trivially_destructible_v<Record>);
        if (count == 0) return nullptr;
        void* memory = m_resource.allocate(count * sizeof(Record), alignof(Record));
        std::memset(memory, 0, count * sizeof(Record));
        return static_cast<Record*>(memory);
    }

    BYTE* Copy(asnt::View bytes) {
        BYTE* copy = Array<BYTE>(bytes.size);
        if (copy != nullptr) std::memcpy(copy, bytes.data, bytes.size);
        return copy;
    }

    CRYPTOAPI_BLOB CopyBlob(asnt::View bytes) { return {static_cast<DWORD>(bytes.size), Copy(bytes)}; }

    /// An INTEGER's octets, turned to least significant first.
    CRYPTOAPI_BLOB ReversedBlob(asnt::View octets) {
        BYTE* copy = Array<BYTE>(octets.size);
        for (std::size_t i = 0; i < octets.size; ++i) copy[i] = octets[octets.size - 1 - i];
        return {static_cast<DWORD>(octets.size), copy};
    }

    LPSTR CopyText(const std::string& text) {
        return reinterpret_cast<LPSTR>(Copy({text.c_str(), text.size() + 1}));
    }

    /// Dotted text of an OBJECT IDENTIFIER's content octets.
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE) when they are none
    LPSTR OidText(asnt::View content) {
        std::string text;
        if (!asnt::OidToText(content, text)) asnt::ThrowBadStructure("");
        return CopyText(text);
    }

private:
    alignas(std::max_align_t) std::array<std::byte, 1024> m_first;
    std::pmr::monotonic_buffer_resource m_resource{m_first.data(), m_first.size()};
};

/// Bytes that somebody else keeps, as a record of this interface names them.
inline CRYPTOAPI_BLOB BlobOf(asnt::View bytes) {
    return {static_cast<DWORD>(bytes.size), const_cast<BYTE*>(bytes.data)};  // the interface's records are not const
}

inline asnt::View ViewOf(const CRYPTOAPI_BLOB& blob) { return {blob.pbData, blob.pbData != nullptr ? blob.cbData : 0U}; }

}  // namespace nal
