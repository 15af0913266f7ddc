// What the provider's tests share: owned handles, a provider's directory of their own, and short forms of the calls.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ork/csp.h"
#include "support/temp_folder.h"
#include "too/ident_obj.h"
#include "too/last_error.h"
#include "too/string.h"

namespace provider_test {

// A handle that is released at the end of the scope. `Take` gives the address that a call fills.
template <BOOL (*release)(unsigned long)>
class Handle {
public:
    Handle() = default;
    Handle(Handle&& other) noexcept : m_handle(other.m_handle) { other.m_handle = 0; }
    Handle& operator=(Handle&& other) noexcept {
        std::swap(m_handle, other.m_handle);
        return *this;
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { Reset(); }

    void Reset() {
        if (m_handle != 0) {
            EXPECT_TRUE(release(m_handle));
        }
        m_handle = 0;
    }
    unsigned long* Take() {
        Reset();
        return &m_handle;
    }
    operator unsigned long() const { return m_handle; }

private:
    unsigned long m_handle = 0;
};

inline BOOL ReleaseContext(unsigned long handle) { return ORKReleaseContext(handle, 0); }

using Prov = Handle<ReleaseContext>;
using Key = Handle<ORKDestroyKey>;
using Hash = Handle<ORKDestroyHash>;

// The last error of a call that must fail, 0 when it did not.
inline DWORD ErrorOf(BOOL result) { return result ? 0 : GetLastError(); }

#define ASSERT_OK(call) ASSERT_TRUE(call) << std::hex << GetLastError()
#define EXPECT_OK(call) EXPECT_TRUE(call) << std::hex << GetLastError()
#define EXPECT_ERROR(call, code) EXPECT_EQ(::provider_test::ErrorOf(call), static_cast<DWORD>(code))

class ProviderTest : public testing::Test {
public:
    ProviderTest() { setenv("NAL_HOME", m_home.c_str(), 1); }
    ~ProviderTest() override { unsetenv("NAL_HOME"); }

protected:
    std::string PathOf(const std::string& name) const { return m_home + "/csp/" + name; }

    static Prov Verify() {
        Prov prov;
        EXPECT_OK(ORKAcquireContext(prov.Take(), nullptr, nullptr, 2, ORK_OPEN_VERIFY));
        return prov;
    }
    static Prov Create(const std::string& name, const char* password = "", const char* pin = "") {
        return Acquire(name, ORK_OPEN_NEW, password, pin);
    }
    static Prov Open(const std::string& name, const char* password = "", const char* pin = "") { return Acquire(name, 0, password, pin); }
    static Prov Acquire(const std::string& name, DWORD flags, const char* password, const char* pin) {
        Prov prov;
        EXPECT_OK(ORKAcquireContext(prov.Take(), name.c_str(), ORK_PROVIDER_NAME, 2, flags));
        if (*password != 0) {
            EXPECT_OK(ORKSetProvParam(prov, ORK_PARAM_PASSWORD, password, 0));
        }
        if (*pin != 0) {
            EXPECT_OK(ORKSetProvParam(prov, ORK_PARAM_PIN, pin, 0));
        }
        return prov;
    }
    static Key Generate(unsigned long prov, DWORD algId, const char* set = nullptr) {
        if (set != nullptr) {
            EXPECT_OK(ORKSetProvParam(prov, ORK_PARAM_SIGN_PARAMS, set, 0));
        }
        Key key;
        EXPECT_OK(ORKGenKey(prov, algId, 0, key.Take()));
        return key;
    }
    static Key UserKey(unsigned long prov, DWORD type = ORK_KEY_ANY) {
        Key key;
        EXPECT_OK(ORKGetUserKey(prov, type, key.Take()));
        return key;
    }
    // A parameter that must be there.
    template <class Value = DWORD>
    static Value KeyParam(unsigned long key, DWORD param) {
        Value value{};
        EXPECT_OK(ORKGetKeyParam(key, param, value));
        return value;
    }
    template <class Value = DWORD>
    static Value ProvParam(unsigned long prov, DWORD param) {
        Value value{};
        EXPECT_OK(ORKGetProvParam(prov, param, value));
        return value;
    }
    static Hash HashOf(unsigned long prov, const std::string& text, DWORD algId = ORK_ALG_GOSTR3411, unsigned long key = 0) {
        Hash hash;
        EXPECT_OK(ORKCreateHash(prov, algId, key, hash.Take(), 0));
        EXPECT_OK(ORKHashData(hash, text.data(), static_cast<DWORD>(text.size()), 0));
        return hash;
    }
    static IdentObj Value(unsigned long hash) {
        IdentObj value;
        EXPECT_OK(ORKGetHashParam(hash, ORK_HASH_PARAM_VALUE, value));
        return value;
    }
    static IdentObj PublicBlob(unsigned long prov, unsigned long key) {
        IdentObj blob;
        EXPECT_OK(ORKExportKey(prov, key, 0, ORK_BLOB_PUBLIC, 0, blob));
        return blob;
    }
    static Key Import(unsigned long prov, const IdentObj& blob, unsigned long under = 0, DWORD flags = 0) {
        Key key;
        EXPECT_OK(ORKImportKey(prov, blob.GetData(), blob.GetSize(), under, flags, key.Take()));
        return key;
    }
    static DWORD ImportError(unsigned long prov, const IdentObj& blob, unsigned long under = 0) {
        Key key;
        return ErrorOf(ORKImportKey(prov, blob.GetData(), blob.GetSize(), under, 0, key.Take()));
    }
    // Whether a signature by `signer` verifies under `verifier`.
    static bool Matches(unsigned long prov, unsigned long signer, unsigned long verifier, DWORD hashAlg) {
        IdentObj signature;
        const Hash toSign = HashOf(prov, "message", hashAlg, signer);
        EXPECT_OK(ORKSignHash(toSign, ORK_KEY_ANY, 0, signature));
        const Hash toVerify = HashOf(prov, "message", hashAlg);
        return ORKVerifySignature(toVerify, signature, verifier, 0) != FALSE;
    }
    static DWORD UserKeyError(unsigned long prov, DWORD type = ORK_KEY_ANY) {
        Key key;
        return ErrorOf(ORKGetUserKey(prov, type, key.Take()));
    }
    // What parameter 2 gives, or another listing parameter.
    static std::vector<std::string> Enumerate(unsigned long prov) {
        std::vector<std::string> names;
        CTOOString name;
        for (DWORD flags = ORK_ENUM_FIRST; ORKGetProvParam(prov, ORK_PARAM_ENUM_ENTRIES, name, flags); flags = 0) {
            names.push_back(name.str());
        }
        EXPECT_EQ(GetLastError(), ORK_E_NO_MORE_ITEMS);
        return names;
    }

    static std::string ReadFile(const std::string& path) {
        const nal_test::Bytes bytes = nal_test::ReadFile(path);
        return {bytes.begin(), bytes.end()};
    }

    const nal_test::TempFolder m_folder;
    const std::string m_home = m_folder.Path();
};

}  // namespace provider_test
