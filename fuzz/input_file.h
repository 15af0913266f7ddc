// What fuzz targets share: a condition that must hold, and the input as a file.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace nal_fuzz {

inline void Expect(bool holds) {
    if (!holds) std::abort();
}

/// The input as a file in memory, which other files may lie beside; gone at the end of the scope.
class InputFile {
public:
    InputFile(const std::uint8_t* data, std::size_t size) {
        const int descriptor = mkstemp(m_path.data());
        Expect(descriptor >= 0 && write(descriptor, data, size) == static_cast<ssize_t>(size));
        close(descriptor);
    }
    ~InputFile() { unlink(m_path.c_str()); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    const std::string& Path() const { return m_path; }

private:
    std::string m_path = "/dev/shm/nal-fuzz-XXXXXX";
};

}  // namespace nal_fuzz
