// A folder that lives as long as a test.
#pragma once

#include <string>

#include "support/hex.h"

namespace nal_test {

/// An empty folder of its own, removed with all that is in it. @throws std::system_error
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& Path() const { return m_path; }
    std::string File(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

/// The whole content of a file; writing replaces it. @throws std::runtime_error naming the file
Bytes ReadFile(const std::string& path);
void WriteFile(const std::string& path, const void* data, std::size_t size);

template <typename Container>
void WriteFile(const std::string& path, const Container& bytes) {
    WriteFile(path, bytes.data(), bytes.size());
}

}  // namespace nal_test
