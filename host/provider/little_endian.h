// Records of little-endian integers and byte runs: an appending writer, and a reader that never passes its end.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "asnt/view.h"
#include "host/provider/failure.h"
#include "too/ident_obj.h"

namespace nalhost::provider {

class RecordWriter {
public:
    void U32(std::uint32_t value) { Integer(value, 4); }
    void U64(std::uint64_t value) { Integer(value, 8); }
    void Bytes(asnt::View bytes) { m_bytes.Append(bytes.data, static_cast<unsigned>(bytes.size)); }
    // A count of 32 bits and the bytes.
    void Counted(asnt::View bytes) {
        U32(static_cast<std::uint32_t>(bytes.size));
        if (!bytes.empty()) Bytes(bytes);
    }
    asnt::View View() const { return m_bytes; }
    IdentObj Take() { return std::move(m_bytes); }

private:
    void Integer(std::uint64_t value, unsigned size) {
        unsigned char bytes[8];
        for (unsigned i = 0; i < size; ++i)
            bytes[i] = static_cast<unsigned char>(value >> 8 * i);
        m_bytes.Append(bytes, size);
    }

    IdentObj m_bytes;
};

// Every call fails with the code given to the constructor when the record is too short for it.
class RecordReader {
public:
    RecordReader(asnt::View record, DWORD failure) : m_record(record), m_failure(failure) {}

    std::uint32_t U32() { return static_cast<std::uint32_t>(Integer(4)); }
    std::uint64_t U64() { return Integer(8); }
    asnt::View Bytes(std::size_t size) {
        Require(size <= m_record.size - m_position, m_failure);
        const asnt::View bytes = m_record.Sub(m_position, size);
        m_position += size;
        return bytes;
    }
    template <std::size_t size>
    void Fill(std::array<std::uint8_t, size>& target) {
        const asnt::View bytes = Bytes(size);
        std::copy(bytes.begin(), bytes.end(), target.begin());
    }
    // A count of 32 bits, at most `limit`, and the bytes.
    asnt::View Counted(std::size_t limit) {
        const std::uint32_t size = U32();
        Require(size <= limit, m_failure);
        return Bytes(size);
    }
    asnt::View Rest() { return Bytes(m_record.size - m_position); }
    bool AtEnd() const { return m_position == m_record.size; }
    std::size_t Position() const { return m_position; }

private:
    std::uint64_t Integer(unsigned size) {
        const asnt::View bytes = Bytes(size);
        std::uint64_t value = 0;
        for (unsigned i = 0; i < size; ++i)
            value |= static_cast<std::uint64_t>(bytes[i]) << 8 * i;
        return value;
    }

    asnt::View m_record;
    std::size_t m_position = 0;
    DWORD m_failure;
};

}  // namespace nalhost::provider
