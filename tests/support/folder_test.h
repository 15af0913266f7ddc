// A test with a folder of its own, and contents to sign or encrypt in memory and in its files.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "nal/signed_data.h"
#include "support/temp_folder.h"

namespace nal_test {

class FolderTest : public testing::Test {
protected:
    /// Bytes that repeat with no chunk's size.
    static IdentObj MakeBytes(std::size_t size) {
        IdentObj bytes(nullptr, static_cast<unsigned>(size));
        for (std::size_t i = 0; i < size; ++i) bytes.GetData()[i] = static_cast<unsigned char>(i * 31 + i / 251);
        return bytes;
    }

    static WhatToSignStruct InMemory(const IdentObj& bytes, DWORD options = 0, DWORD start = 0) {
        WhatToSignStruct what;
        what.options = options;
        what.data = bytes.GetData();
        what.start = start;
        what.end = bytes.GetSize();
        return what;
    }
    static WhatToSignStruct InFile(const std::string& path, DWORD options = 0, DWORD start = 0, DWORD end = c_NAL_TO_END_OF_FILE) {
        WhatToSignStruct what;
        what.flags = c_NAL_CONTENT_IN_FILE;
        what.options = options;
        what.data = path.c_str();
        what.start = start;
        what.end = end;
        return what;
    }

    std::string Path(const std::string& name) const { return m_folder.File(name); }
    /// Writes the file of that name. @return its path
    std::string Store(const std::string& name, const IdentObj& bytes) const {
        WriteFile(Path(name), bytes.GetData(), bytes.GetSize());
        return Path(name);
    }
    static IdentObj Load(const std::string& path) {
        const Bytes bytes = ReadFile(path);
        return {bytes.data(), static_cast<unsigned>(bytes.size())};
    }

    TempFolder m_folder;
};

}  // namespace nal_test
