#include "model/provider_handles.h"
#include "nal/progress.h"
#include "nal/sign.h"
#include "ork/provider.h"
#include "storage/signature_check.h"
#include "support/folder_test.h"
#include "support/status_of.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

using nal_test::FailureOf;
using nal_test::FromHexText;
using nal_test::FromText;
using nal_test::StatusOf;

constexpr unsigned c_open = 0xFFFFFFFF;

class HashFile : public nal_test::FolderTest {
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
    IdentObj HashOf(const IdentObj& bytes) const {
        const nal::HashHandle hash = NewHash();
        IdentObj value;
        EXPECT_TRUE(ORKHashData(hash.Get(), bytes.GetData(), bytes.GetSize(), 0));
        EXPECT_TRUE(ORKGetHashParam(hash.Get(), ORK_HASH_PARAM_VALUE, value));
        return value;
    }

    IdentObj Hash(unsigned start, unsigned length, unsigned flags = 0) const {
        return NALHashFile(m_path.c_str(), start, length, flags, m_info);
    }

    std::string m_path = Path("file");
    nal::ContextHandle m_provider = nal::OpenVerifyProvider();
    SNALCryptInfo m_info;
};

TEST_F(HashFile, EveryRegionIsHashedAsItsBytes) {
    for (const unsigned size : {0U, 1U, 65536U, 65537U, 200000U}) {
        const IdentObj bytes = MakeBytes(size);
        Store("file", bytes);
        const unsigned third = size / 3;
        EXPECT_EQ(Hash(c_open, c_open), HashOf(bytes)) << size;
        EXPECT_EQ(Hash(0, size), HashOf(bytes)) << size;
        EXPECT_EQ(Hash(third, c_open), HashOf({bytes.GetData() + third, size - third})) << size;
        EXPECT_EQ(Hash(third, size / 2), HashOf({bytes.GetData() + third, size / 2})) << size;
        EXPECT_EQ(Hash(size, 0), HashOf({})) << size;
    }
    m_info.hProv = 0;
    EXPECT_EQ(Hash(0, c_open), HashOf(MakeBytes(200000))) << "with a provider of its own";
}

TEST_F(HashFile, PiecesAreHashedAsTheirContents) {
    Store("file", FromHexText("2E2E 0402 6869 2405 0403 796573 0000 7461696C"));
    EXPECT_EQ(Hash(2, 13, 2), HashOf(FromText("hiyes")));
    Store("file", FromHexText("0000"));
    EXPECT_EQ(Hash(0, 2, 2), HashOf({}));
    Store("file", FromHexText("047F 6869"));
    EXPECT_EQ(StatusOf([&] { Hash(0, c_open, 2); }), TOO_E_BAD_STRUCTURE);
}

TEST_F(HashFile, ARunningHashGoesOn) {
    Store("file", FromText("second"));
    const nal::HashHandle running = NewHash();
    ASSERT_TRUE(ORKHashData(running.Get(), "first ", 6, 0));
    m_info.hHash = running.Get();
    EXPECT_EQ(Hash(0, c_open), HashOf(FromText("first second")));
    EXPECT_EQ(Hash(0, 3), HashOf(FromText("first secondsec")));
}

TEST_F(HashFile, FailuresAreTold) {
    Store("file", FromText("0123456789"));
    for (const auto& [start, length] : {std::pair{0U, 11U}, {11U, c_open}, {8U, 0xFFFFFFFE}}) {
        EXPECT_EQ(StatusOf([&] { Hash(start, length); }), TOO_E_BAD_ARGUMENT) << start << " " << length;
    }
    EXPECT_EQ(StatusOf([&] { NALHashFile(nullptr, 0, 0, 0, m_info); }), TOO_E_BAD_ARGUMENT);
    const std::string missing = Path("missing");
    EXPECT_EQ(FailureOf([&] { NALHashFile(missing.c_str(), 0, c_open, 0, m_info); }), "4 " + missing);
    for (const char* call : {"ORKCreateHash", "ORKHashData", "ORKGetHashParam"}) {
        const too_testing::ScopedCallFailure failure(call, ORK_E_NO_MEMORY);
        EXPECT_EQ(FailureOf([&] { Hash(0, c_open); }), "1 NALHashFile") << call;
    }
}

}  // namespace
