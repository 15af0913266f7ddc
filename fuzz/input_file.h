// What fuzz targets share: a condition that must hold, and the input as a file.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace nal_fuzz {

inline void Expect(bool holds) {
    if (!holds) std::abort();
}

/// A file in memory, opened by its path as any other.
class InputFile {
public:
    InputFile() : m_descriptor(memfd_create("input", MFD_CLOEXEC)), m_path("/proc/self/fd/" + std::to_string(m_descriptor)) {}

    const std::string& Store(const std::uint8_t* data, std::size_t size) const {
        Expect(ftruncate(m_descriptor, 0) == 0 && pwrite(m_descriptor, data, size, 0) == static_cast<ssize_t>(size));
        return m_path;
    }

private:
    int m_descriptor;
    std::string m_path;
};

}  // namespace nal_fuzz
