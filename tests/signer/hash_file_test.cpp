#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "model/provider_handles.h"
#include "nal/progress.h"
#include "nal/sign.h"
#include "ork/provider.h"
#include "storage/signature_check.h"
#include "support/status_of.h"
#include "support/temp_folder.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

constexpr unsigned c_open = 0xFFFFFFFF;

class HashFile : public testing::Test {
protected:
    HashFile() {
        m_info.hProv = m_provider.Get();
        m_info.hashAlgId = ORK_ALG_GOSTR3411;
    }

    nal::HashHandle NewHash() const {
        nal::HashHandle hash;
        EXPECT_TRUE(ORKCreateHash(m_provider.Get(), ORK_ALG_GOSTR3411, 0, hash.Receive(), 0));
        return hash;
    }

    /// The hash of bytes in one call.
    IdentObj HashOf(const std::string& bytes) const {
        const nal::HashHandle hash = NewHash();
        IdentObj value;
        EXPECT_TRUE(ORKHashData(hash.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), 0));
        EXPECT_TRUE(ORKGetHashParam(hash.Get(), ORK_HASH_PARAM_VALUE, value));
        return value;
    }

    IdentObj Hash(unsigned start, unsigned length, unsigned flags = 0) const {
        return NALHashFile(m_path.c_str(), start, length, flags, m_info);
    }

    void Write(const std::string& bytes) const { nal_test::WriteFile(m_path, bytes); }

    static std::string MakeBytes(std::size_t size) {
        std::string bytes(size, '\0');
        for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 31 + i / 251);
        return bytes;
    }

    nal_test::TempFolder m_folder;
    std::string m_path = m_folder.File("file");
    nal::ContextHandle m_provider = nal::OpenVerifyProvider();
    SNALCryptInfo m_info;
};

TEST_F(HashFile, EveryRegionIsHashedAsItsBytes) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{65536}, std::size_t{65537}, std::size_t{200000}}) {
        const std::string bytes = MakeBytes(size);
        Write(bytes);
        const auto all = static_cast<unsigned>(size);
        EXPECT_EQ(Hash(c_open, c_open), HashOf(bytes)) << size;
        EXPECT_EQ(Hash(0, all), HashOf(bytes)) << size;
        EXPECT_EQ(Hash(all / 3, c_open), HashOf(bytes.substr(size / 3))) << size;
        EXPECT_EQ(Hash(all / 3, all / 2), HashOf(bytes.substr(size / 3, size / 2))) << size;
        EXPECT_EQ(Hash(all, 0), HashOf("")) << size;
    }
    m_info.hProv = 0;
    EXPECT_EQ(Hash(0, c_open), HashOf(MakeBytes(200000))) << "with a provider of its own";
}

TEST_F(HashFile, PiecesAreHashedAsTheirContents) {
    Write(std::string("..") + "\x04\x02hi" + "\x24\x05\x04\x03yes" + std::string("\0\0tail", 6));
    EXPECT_EQ(Hash(2, 13, 2), HashOf("hiyes"));
    Write(std::string("\0\0", 2));
    EXPECT_EQ(Hash(0, 2, 2), HashOf(""));
    Write("\x04\x7Fhi....");
    EXPECT_EQ(nal_test::StatusOf([&] { Hash(0, c_open, 2); }), TOO_E_BAD_STRUCTURE);
}

TEST_F(HashFile, ARunningHashGoesOn) {
    Write("second");
    const nal::HashHandle running = NewHash();
    ASSERT_TRUE(ORKHashData(running.Get(), "first ", 6, 0));
    m_info.hHash = running.Get();
    EXPECT_EQ(Hash(0, c_open), HashOf("first second"));
    EXPECT_EQ(Hash(0, 3), HashOf("first secondsec"));
}

TEST_F(HashFile, FailuresAreTold) {
    Write("0123456789");
    EXPECT_EQ(nal_test::StatusOf([&] { Hash(0, 11); }), TOO_E_BAD_ARGUMENT);
    EXPECT_EQ(nal_test::StatusOf([&] { Hash(11, c_open); }), TOO_E_BAD_ARGUMENT);
    EXPECT_EQ(nal_test::StatusOf([&] { Hash(8, 0xFFFFFFFE); }), TOO_E_BAD_ARGUMENT);
    EXPECT_EQ(nal_test::StatusOf([&] { NALHashFile(nullptr, 0, 0, 0, m_info); }), TOO_E_BAD_ARGUMENT);
    const std::string missing = m_folder.File("missing");
    try {
        NALHashFile(missing.c_str(), 0, c_open, 0, m_info);
        FAIL();
    } catch (const XTOOStatus& status) {
        EXPECT_EQ(status.GetCode(), TOO_E_FILE_NOT_FOUND);
        EXPECT_EQ(status.GetText(), CTOOString(missing));
    }
    for (const char* call : {"ORKCreateHash", "ORKHashData", "ORKGetHashParam"}) {
        const too_testing::ScopedCallFailure failure(call, ORK_E_NO_MEMORY);
        try {
            Hash(0, c_open);
            ADD_FAILURE() << call;
        } catch (const XTOOStatus& status) {
            EXPECT_EQ(status.GetCode(), WinErr2ToolsErr(ORK_E_NO_MEMORY)) << call;
            EXPECT_EQ(status.GetText(), "NALHashFile") << call;
        }
    }
}

}  // namespace
