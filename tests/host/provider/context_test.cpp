// Handles, contexts and their parameters.
#include <gcrypt.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <thread>

#include "tests/host/provider/provider_fixture.h"

namespace provider_test {
namespace {

class Contexts : public ProviderTest {};

// Made before the first call of the provider, as a host's own globals are, and so destroyed after what the provider
// made at its first call.
struct ReleasesAtExit {
    ~ReleasesAtExit() {
        if (hash != 0 && !ORKDestroyHash(hash)) std::_Exit(2);
    }
    unsigned long hash = 0;
};
ReleasesAtExit g_releasesAtExit;

TEST_F(Contexts, RefusesWhatIsNotRegisteredAndOddFlags) {
    const struct {
        const char *container, *name;
        DWORD type, flags, error;
    } cases[] = {
        {nullptr, "Another Provider", 2, ORK_OPEN_VERIFY, ORK_E_PROVIDER_NOT_REGISTERED},
        {nullptr, "ormatek cryptographic service provider", 2, ORK_OPEN_VERIFY, ORK_E_PROVIDER_NOT_REGISTERED},
        {nullptr, nullptr, 1, ORK_OPEN_VERIFY, ORK_E_TYPE_NOT_REGISTERED},
        {nullptr, nullptr, 0, ORK_OPEN_VERIFY, ORK_E_TYPE_NOT_REGISTERED},
        {nullptr, ORK_PROVIDER_NAME, 75, ORK_OPEN_VERIFY, ORK_E_TYPE_NOT_REGISTERED},
        {nullptr, ORK_PROVIDER_NAME, 0, ORK_OPEN_VERIFY, 0},
        {"", nullptr, 2, ORK_OPEN_VERIFY, 0},
        {"c", nullptr, 2, ORK_OPEN_VERIFY, ORK_E_BAD_FLAGS},
        {nullptr, nullptr, 2, ORK_OPEN_VERIFY | ORK_OPEN_NEW, ORK_E_BAD_FLAGS},
        {"c", nullptr, 2, ORK_OPEN_NEW | ORK_OPEN_DELETE, ORK_E_BAD_FLAGS},
        {"c", nullptr, 2, 0x4000, ORK_E_BAD_FLAGS},
        {"c", nullptr, 2, 0, ORK_E_BAD_KEYSET},
        {"c", nullptr, 2, ORK_OPEN_DELETE, ORK_E_BAD_KEYSET},
        {"/no/such/folder/c", nullptr, 2, ORK_OPEN_NEW, ORK_E_PATH_NOT_FOUND},
        {"c#1", nullptr, 2, ORK_OPEN_NEW, ORK_E_BAD_KEYSET_NAME},
        {".hidden", nullptr, 2, ORK_OPEN_NEW, ORK_E_BAD_KEYSET_NAME},
        {"/tmp/", nullptr, 2, ORK_OPEN_NEW, ORK_E_BAD_KEYSET_NAME},
    };
    for (const auto& c : cases) {
        unsigned long handle = 77;
        const BOOL result = ORKAcquireContext(&handle, c.container, c.name, c.type, c.flags);
        EXPECT_ERROR(result, c.error) << (c.container ? c.container : "-") << " " << std::hex << c.flags;
        EXPECT_TRUE(result ? ORKReleaseContext(handle) : handle == 77);
    }
    EXPECT_ERROR(ORKAcquireContext(nullptr, nullptr, nullptr, 2, ORK_OPEN_VERIFY), ORK_E_INVALID_PARAMETER);
}

TEST_F(Contexts, FindsStaleInventedAndForeignHandles) {
    Prov prov = Verify();
    Hash hash = HashOf(prov, "x");
    const Key key = Generate(prov, ORK_ALG_GOST28147);
    const unsigned long staleProv = Verify();
    IdentObj value;
    unsigned long out = 0;
    for (const unsigned long bad : {0UL, 1UL, ~0UL, staleProv, static_cast<unsigned long>(key)}) {
        EXPECT_ERROR(ORKReleaseContext(bad), ORK_E_INVALID_HANDLE);
        EXPECT_ERROR(ORKGetProvParam(bad, ORK_PARAM_NAME, value), ORK_E_INVALID_HANDLE);
        EXPECT_ERROR(ORKGenKey(bad, ORK_ALG_GOST28147, 0, &out), ORK_E_INVALID_HANDLE);
        EXPECT_ERROR(ORKCreateHash(bad, ORK_ALG_GOSTR3411, 0, &out, 0), ORK_E_INVALID_HANDLE);
        EXPECT_ERROR(ORKGenRandom(bad, 0, nullptr), ORK_E_INVALID_HANDLE);
        EXPECT_ERROR(ORKHashData(bad, "x", 1, 0), ORK_E_INVALID_HANDLE);
        EXPECT_ERROR(ORKDestroyHash(bad), ORK_E_INVALID_HANDLE);
    }
    for (const unsigned long bad : {1UL, static_cast<unsigned long>(prov), static_cast<unsigned long>(hash)}) {
        EXPECT_ERROR(ORKDestroyKey(bad), ORK_E_INVALID_HANDLE);
        EXPECT_ERROR(ORKGetKeyParam(bad, ORK_KEY_PARAM_ALGID, value), ORK_E_INVALID_HANDLE);
        EXPECT_ERROR(ORKCreateHash(prov, ORK_ALG_GOSTR3411, bad, &out, 0), ORK_E_INVALID_HANDLE);
        EXPECT_ERROR(ORKSetProvParam(prov, ORK_PARAM_PROTECTION_KEY, bad, 0), ORK_E_INVALID_HANDLE);
    }
    const unsigned long gone = hash;
    hash.Reset();
    EXPECT_ERROR(ORKDestroyHash(gone), ORK_E_INVALID_HANDLE);
    EXPECT_EQ(out, 0U);
}

TEST_F(Contexts, KeepKeysAndHashesAliveAfterRelease) {
    Prov prov = Create("c");
    Key key = Generate(prov, ORK_KEY_SIGNATURE);
    Hash hash = HashOf(prov, "message");
    unsigned long context = 0;
    ASSERT_OK(ORKGetKeyParam(key, ORK_KEY_PARAM_CONTEXT, context));
    EXPECT_EQ(context, static_cast<unsigned long>(prov));
    prov.Reset();
    EXPECT_ERROR(ORKGetKeyParam(key, ORK_KEY_PARAM_CONTEXT, context), ORK_E_INVALID_HANDLE);
    IdentObj signature;
    EXPECT_OK(ORKSignHash(hash, ORK_KEY_SIGNATURE, 0, signature));
    const unsigned char certificate[] = {0x30, 0};
    EXPECT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_CERTIFICATE, IdentObj(certificate, 2)));
}

TEST_F(Contexts, ListsEveryAlgorithmOnceAndStartsOver) {
    const Prov prov = Verify();
    for (int round = 0; round < 2; ++round) {
        std::set<DWORD> algorithms;
        IdentObj value;
        for (DWORD flags = ORK_ENUM_FIRST; ORKGetProvParam(prov, ORK_PARAM_ENUM_ALGS, value, flags); flags = 0) {
            ASSERT_EQ(value.GetSize(), sizeof(ORKAlgInfo));
            ORKAlgInfo info;
            std::memcpy(&info, value.GetData(), sizeof info);
            EXPECT_TRUE(algorithms.insert(info.aiAlgid).second);
            EXPECT_EQ(std::strlen(info.szName) + 1, info.dwNameLen);
        }
        EXPECT_EQ(GetLastError(), ORK_E_NO_MORE_ITEMS);
        EXPECT_EQ(algorithms, (std::set<DWORD>{0x801E, 0x8029, 0x661E, 0x2E23, 0x2E1E, 0x2E29, 0xAA24, 0xAA1E, 0xAA25}));
    }
}

TEST_F(Contexts, AnswerTheirParameters) {
    const Prov prov = Create("box");
    const std::pair<DWORD, std::string> texts[] = {
        {ORK_PARAM_NAME, ORK_PROVIDER_NAME},           {ORK_PARAM_CONTAINER, "box"},
        {ORK_PARAM_UNIQUE_NAME, PathOf("box")},        {ORK_PARAM_HASH_PARAMS, "1.2.643.2.2.30.1"},
        {ORK_PARAM_CIPHER_PARAMS, "1.2.643.2.2.31.1"}, {ORK_PARAM_SIGN_PARAMS, "1.2.643.2.2.35.1"},
        {ORK_PARAM_EXCHANGE_PARAMS, "1.2.643.2.2.36.0"}};
    for (const auto& [param, text] : texts) EXPECT_EQ(ProvParam<CTOOString>(prov, param), CTOOString(text)) << param;
    EXPECT_EQ(ProvParam(prov, ORK_PARAM_TYPE), 2U);
    IdentObj value;
    const struct {
        DWORD param;
        const char* text;
        DWORD error;
    } sets[] = {{ORK_PARAM_SIGN_PARAMS, "1.2.643.2.2.35.3", 0},
                {ORK_PARAM_SIGN_PARAMS, "1.2.643.2.2.30.1", ORK_E_BAD_ALGID},
                {ORK_PARAM_SIGN_PARAMS, "", ORK_E_BAD_ALGID},
                {ORK_PARAM_EXCHANGE_PARAMS, "1.2.643.2.2.35.0", ORK_E_BAD_ALGID},
                {ORK_PARAM_HASH_PARAMS, "1.2.643.2.2.35.1", ORK_E_BAD_ALGID},
                {ORK_PARAM_CIPHER_PARAMS, "1.2.643.2.2.31.4", 0},
                {ORK_PARAM_NAME, "x", ORK_E_BAD_TYPE},
                {4711, "x", ORK_E_BAD_TYPE}};
    for (const auto& s : sets) EXPECT_ERROR(ORKSetProvParam(prov, s.param, s.text, 0), s.error) << s.param << s.text;
    EXPECT_ERROR(ORKGetProvParam(prov, ORK_PARAM_PASSWORD, value), ORK_E_BAD_TYPE);
    EXPECT_ERROR(ORKGetProvParam(prov, ORK_PARAM_ENTRY_INFO, value), ORK_E_NOT_FOUND);
    EXPECT_ERROR(ORKGetProvParam(Verify(), ORK_PARAM_UNIQUE_NAME, value), ORK_E_BAD_KEYSET);
    EXPECT_ERROR(ORKSetProvParam(Verify(), ORK_PARAM_PASSWORD, "x", 0), ORK_E_BAD_KEYSET);
    EXPECT_ERROR(ORKSetProvParam(prov, ORK_PARAM_PASSWORD, std::string(5000, 'x').c_str(), 0), ORK_E_BAD_LENGTH);
}

TEST_F(Contexts, RandomBytesComeFromBothForms) {
    unsigned char buffer[8] = {};
    EXPECT_EQ(ORKSCApi_GetRandomByteOctet(buffer, 1, nullptr), 0U);
    for (int i = 1; i < 8; ++i) EXPECT_EQ(buffer[i], 0);
    unsigned char other[32] = {};
    EXPECT_EQ(ORKSCApi::GetRandomByteOctet(other, sizeof other, nullptr), 0U);
    EXPECT_NE(std::string(reinterpret_cast<char*>(other), 32), std::string(32, '\0'));
    EXPECT_EQ(ORKSCApi_GetRandomByteOctet(nullptr, 1, nullptr), ORK_E_INVALID_PARAMETER);
    EXPECT_ERROR(ORKGenRandom(Verify(), 1, nullptr), ORK_E_INVALID_PARAMETER);
}

TEST_F(Contexts, LiveUntilTheHostsGlobalsAreGone) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            const Prov prov = Verify();
            ORKCreateHash(prov, ORK_ALG_GOSTR3411, 0, &g_releasesAtExit.hash, 0);
            std::exit(g_releasesAtExit.hash == 0 ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

// Nothing is asked of the host before the provider is used, and nothing is said twice.
TEST_F(Contexts, WarnOnceWhenMemoryIsNotLocked) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    setenv("NAL_LOG", "2:stderr", 1);
    const auto once = [](const std::string& printed) {
        const std::size_t first = printed.find("may be swapped out");
        return first != std::string::npos && printed.find("may be swapped out", first + 1) == std::string::npos;
    };
    EXPECT_EXIT(
        {
            gcry_check_version(nullptr);
            gcry_control(GCRYCTL_DISABLE_SECMEM);
            gcry_control(GCRYCTL_INITIALIZATION_FINISHED);
            SetLastError(7);
            Verify();
            Verify();
            std::_Exit(GetLastError() == 7 ? 0 : 1);
        },
        testing::ExitedWithCode(0), testing::ResultOf(once, testing::IsTrue()));
    unsetenv("NAL_LOG");
}

TEST_F(Contexts, ServeManyThreads) {
    const Prov prov = Create("threads");
    const Key shared = Generate(prov, ORK_KEY_SIGNATURE);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 10; ++round) {
                EXPECT_TRUE(Matches(prov, shared, shared, ORK_ALG_GOSTR3411));
                UserKey(prov);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace provider_test
