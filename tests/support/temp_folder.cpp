#include "support/temp_folder.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace nal_test {

TempFolder::TempFolder() : m_path((std::filesystem::temp_directory_path() / "nal-test-XXXXXX").string()) {
    if (!mkdtemp(m_path.data())) throw std::system_error(errno, std::generic_category(), "mkdtemp");
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

Bytes ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const std::string& path, const void* data, std::size_t size) {
    std::ofstream file(path, std::ios::binary);
    file.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    file.close();
    if (!file) throw std::runtime_error("cannot write " + path);
}

}  // namespace nal_test
