// A file that holds a fuzzer's input, for what reads files by name.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace nal_fuzz {

/// In memory; gone at the end of the scope.
class ScratchFile {
public:
    ScratchFile(const std::uint8_t* data, std::size_t size) {
        const int descriptor = mkstemp(m_path.data());
        if (descriptor < 0 || write(descriptor, data, size) != static_cast<ssize_t>(size)) std::abort();
        close(descriptor);
    }
    ~ScratchFile() { unlink(m_path.c_str()); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    const char* Path() const { return m_path.c_str(); }

private:
    std::string m_path = "/dev/shm/nal-fuzz-XXXXXX";
};

}  // namespace nal_fuzz
