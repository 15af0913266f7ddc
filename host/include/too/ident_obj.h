/// The owned byte buffer in which encoded structures, hash values, key blobs, identifiers and serial numbers travel.
#pragma once

#include <cstring>
#include <iosfwd>
#include <utility>
#include <vector>

#include "too/export.h"

/// An owned, resizable run of bytes, at most 4 GiB - 1 long.
///
/// Its serialized form, which ReadData and WriteData handle, is
///
///   offset  size  field
///        0     4  number of bytes, unsigned, host byte order
///        4     n  the bytes
///
/// A copy owns its own bytes; a move takes them over and leaves the source empty.
/// Not synchronised: one object is for one thread at a time.
class NAL_HOST_EXPORT IdentObj {
public:
    /// An empty buffer.
    IdentObj() = default;

    /// A copy of `size` bytes at `data`. A null `data` gives `size` zero bytes.
    /// @throws std::bad_alloc when there is no memory for them, as every growing call here does
    IdentObj(const void* data, unsigned size) { SetData(data, size); }

    IdentObj(const IdentObj&) = default;
    IdentObj& operator=(const IdentObj&) = default;
    IdentObj(IdentObj&& other) noexcept : m_bytes(std::move(other.m_bytes)) { other.m_bytes.clear(); }
    IdentObj& operator=(IdentObj&& other) noexcept {
        if (this != &other) {
            m_bytes = std::move(other.m_bytes);
            other.m_bytes.clear();
        }
        return *this;
    }
    ~IdentObj() = default;

    /// @return the first byte; valid until the next call that changes the size, and not to be followed when IsEmpty()
    const unsigned char* GetData() const noexcept { return m_bytes.data(); }
    unsigned char* GetData() noexcept { return m_bytes.data(); }

    /// @return the number of bytes
    unsigned GetSize() const noexcept { return static_cast<unsigned>(m_bytes.size()); }

    /// Makes the buffer `size` bytes long; what is kept stays as it is, what is added is zero.
    void SetSize(unsigned size) { m_bytes.resize(size); }

    /// Replaces the content by a copy of `size` bytes at `data`, which may lie inside this buffer; null gives zeros.
    void SetData(const void* data, unsigned size);

    /// Adds a copy of `size` bytes at `data`, which may lie inside this buffer, at the end; null adds zeros.
    /// @throws std::length_error when the whole would pass 4 GiB - 1
    void Append(const void* data, unsigned size);

    bool IsEmpty() const noexcept { return m_bytes.empty(); }

    /// Makes the buffer empty.
    void Clear() noexcept { m_bytes.clear(); }

    /// Overwrites the bytes, those cut off by SetSize too, with zeros in a way that no optimizer leaves out, then makes
    /// the buffer empty. For secrets. A buffer that was grown may have left copies elsewhere.
    void Wipe() noexcept;

    /// Takes the content from its serialized form.
    ///
    /// @param data  the serialized form; more bytes may follow it
    /// @param size  how many bytes there are at `data`
    /// @return the bytes consumed, at least 4; 0 when `data` is null or fewer bytes are there than the form says,
    ///         and then the content is unchanged
    unsigned ReadData(const void* data, unsigned size);

    /// Writes the serialized form.
    ///
    /// @param data  receives GetObjectSize() bytes
    /// @param size  the room at `data` in bytes
    /// @return the bytes written; 0 when `data` is null or the room is too small, and then nothing is written
    unsigned WriteData(void* data, unsigned size) const;

    /// @return the size of the serialized form in bytes, which saturates at 4 GiB - 1
    unsigned GetObjectSize() const noexcept;

    /// Compares byte by byte over the shorter length, then by length.
    /// @return below, equal to or above 0. Not constant in time: secrets are compared by the provider.
    int Compare(const IdentObj& other) const noexcept;

private:
    std::vector<unsigned char> m_bytes;
};

inline bool operator==(const IdentObj& a, const IdentObj& b) {
    return a.GetSize() == b.GetSize() && (a.IsEmpty() || std::memcmp(a.GetData(), b.GetData(), a.GetSize()) == 0);
}
inline bool operator!=(const IdentObj& a, const IdentObj& b) {
    return !(a == b);
}
inline bool operator<(const IdentObj& a, const IdentObj& b) {
    return a.Compare(b) < 0;
}
inline bool operator>(const IdentObj& a, const IdentObj& b) {
    return a.Compare(b) > 0;
}

/// Writes the bytes as hexadecimal, for messages of tests and logs.
NAL_HOST_EXPORT std::ostream& operator<<(std::ostream& out, const IdentObj& bytes);
