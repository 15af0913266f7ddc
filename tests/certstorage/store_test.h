// What the tests of the store share: temporary folders, keys, failures of the last error.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "certstorage/record_key.h"

namespace nal_test {

/// A folder that is removed with all that is in it.
class TempFolder {
public:
    TempFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "nal-store-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        m_path = name;
    }
    ~TempFolder() { std::filesystem::remove_all(m_path); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string File(const std::string& name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

/// An identifier that begins with `first` and is zero else.
inline nal::KeyIdentifier Identifier(unsigned char first, unsigned char last = 0) {
    nal::KeyIdentifier identifier{};
    identifier.front() = first;
    identifier.back() = last;
    return identifier;
}

inline nal::CrlSerial Serial(unsigned char first) {
    nal::CrlSerial serial{};
    serial.front() = first;
    return serial;
}

inline asnt::View Bytes(const std::string& text) { return {text.data(), text.size()}; }
inline std::string Text(asnt::View bytes) { return {bytes.begin(), bytes.end()}; }

}  // namespace nal_test
