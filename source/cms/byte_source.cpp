#include "cms/byte_source.h"

#include <algorithm>
#include <cstring>

#include "too/status.h"

namespace nal {

void MemorySource::Read(std::uint64_t offset, void* out, std::size_t size) {
    if (size != 0) std::memcpy(out, m_bytes.data + offset, size);
}

void FileSource::Read(std::uint64_t offset, void* out, std::size_t size) {
    if (size > c_window) {
        m_file.Seek(static_cast<std::int64_t>(offset));
        m_file.ReadExactly(out, size);
        return;
    }
    const auto inWindow = [&] { return offset >= m_windowStart && offset - m_windowStart + size <= m_windowSize; };
    if (!inWindow()) {
        m_windowSize = 0;
        m_file.Seek(static_cast<std::int64_t>(offset));
        m_windowSize = m_file.Read(m_window, static_cast<std::size_t>(std::min<std::uint64_t>(c_window, m_size - offset)));
        m_windowStart = offset;
        if (!inWindow()) throw XTOOFile(TOO_E_READ, m_file.GetName(), "unexpected end of");
    }
    std::memcpy(out, m_window + (offset - m_windowStart), size);
}

}  // namespace nal
