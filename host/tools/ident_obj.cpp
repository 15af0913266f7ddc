#include "too/ident_obj.h"

#include <cstdint>
#include <limits>
#include <ostream>
#include <stdexcept>

namespace {
constexpr unsigned c_lengthSize = 4;
}

void IdentObj::SetData(const void* data, unsigned size) {
    if (!data) {
        m_bytes.assign(size, 0);
        return;
    }
    const auto* from = static_cast<const unsigned char*>(data);
    // assign() must not be given a range of the vector itself.
    if (!m_bytes.empty() && from >= m_bytes.data() && from < m_bytes.data() + m_bytes.size()) {
        m_bytes = std::vector<unsigned char>(from, from + size);
    } else {
        m_bytes.assign(from, from + size);
    }
}

void IdentObj::Append(const void* data, unsigned size) {
    const std::size_t old = m_bytes.size();
    if (size > std::numeric_limits<unsigned>::max() - old) throw std::length_error("IdentObj::Append");
    const auto* from = static_cast<const unsigned char*>(data);
    const bool inside = from && old != 0 && from >= m_bytes.data() && from < m_bytes.data() + old;
    const std::size_t offset = inside ? from - m_bytes.data() : 0;
    m_bytes.resize(old + size);
    if (from && size != 0) std::memcpy(m_bytes.data() + old, inside ? m_bytes.data() + offset : from, size);
}

void IdentObj::Wipe() noexcept {
    // Bytes that SetSize cut off are still behind the end. Growing to the capacity moves nothing.
    m_bytes.resize(m_bytes.capacity());
    if (!m_bytes.empty()) explicit_bzero(m_bytes.data(), m_bytes.size());
    m_bytes.clear();
}

unsigned IdentObj::ReadData(const void* data, unsigned size) {
    if (!data || size < c_lengthSize) return 0;
    std::uint32_t length = 0;
    std::memcpy(&length, data, c_lengthSize);
    if (length > size - c_lengthSize) return 0;
    SetData(static_cast<const unsigned char*>(data) + c_lengthSize, length);
    return c_lengthSize + length;
}

unsigned IdentObj::WriteData(void* data, unsigned size) const {
    const std::uint32_t length = GetSize();
    if (!data || size < c_lengthSize || length > size - c_lengthSize) return 0;
    std::memcpy(data, &length, c_lengthSize);
    if (length != 0) std::memcpy(static_cast<unsigned char*>(data) + c_lengthSize, GetData(), length);
    return c_lengthSize + length;
}

unsigned IdentObj::GetObjectSize() const noexcept {
    constexpr unsigned most = std::numeric_limits<unsigned>::max();
    return GetSize() > most - c_lengthSize ? most : c_lengthSize + GetSize();
}

int IdentObj::Compare(const IdentObj& other) const noexcept {
    const unsigned shorter = GetSize() < other.GetSize() ? GetSize() : other.GetSize();
    const int order = shorter == 0 ? 0 : std::memcmp(GetData(), other.GetData(), shorter);
    if (order != 0) return order;
    if (GetSize() == other.GetSize()) return 0;
    return GetSize() < other.GetSize() ? -1 : 1;
}

std::ostream& operator<<(std::ostream& out, const IdentObj& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    for (unsigned i = 0; i < bytes.GetSize(); ++i) {
        out << digits[bytes.GetData()[i] >> 4] << digits[bytes.GetData()[i] & 15];
    }
    return out;
}
