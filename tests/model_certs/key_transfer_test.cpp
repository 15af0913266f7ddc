// Public keys on their way into the provider and out of it.
#include <gtest/gtest.h>

#include "model/integer_order.h"
#include "nal/algorithm.h"
#include "ork/csp.h"
#include "support/certificate_parts.h"
#include "too/last_error.h"

namespace {

class KeyTransfer : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(ORKAcquireContext(&m_provider, nullptr, nullptr, ORK_PROVIDER_TYPE, ORK_OPEN_VERIFY));
    }
    void TearDown() override { EXPECT_TRUE(ORKReleaseContext(m_provider)); }

    // A pair of the provider that lives in memory only.
    unsigned long MakeKey(const char* parameters) const {
        unsigned long key = 0;
        EXPECT_TRUE(ORKGenKey(m_provider, ORK_ALG_EPHEMERAL, ORK_GEN_EXPORTABLE | ORK_GEN_LATER, &key));
        EXPECT_TRUE(ORKSetKeyParam(key, ORK_KEY_PARAM_HASH_PARAMS, c_NAL_OID_HASH_PARAMS));
        EXPECT_TRUE(ORKSetKeyParam(key, ORK_KEY_PARAM_KEY_PARAMS, parameters));
        EXPECT_TRUE(ORKSetKeyParam(key, ORK_KEY_PARAM_GENERATE, DWORD{0}));
        return key;
    }

    unsigned long m_provider = 0;
};

}  // namespace

TEST_F(KeyTransfer, ExportedKeysImport) {
    const struct {
        const char *parameters, *algorithm;
        unsigned length;
    } cases[] = {{"1.2.643.2.2.35.1", c_NAL_OID_KEY_GOST2001, 512},
                 {"1.2.643.2.2.36.1", c_NAL_OID_KEY_GOST2001, 512},
                 {"1.2.643.2.2.32.2", c_NAL_OID_KEY_GOST94, 1024}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.parameters);
        const unsigned long key = MakeKey(c.parameters);
        CNALCertPublicKeyInfo info;
        ASSERT_TRUE(NALExportPKInfo(m_provider, key, info));
        CTOOString algorithm, parameters;
        info.m_algorithm.GetParams(&algorithm, &parameters, nullptr, nullptr);
        EXPECT_EQ(algorithm, c.algorithm);
        EXPECT_EQ(parameters, c.parameters);
        EXPECT_EQ(info.GetKeyLength(), c.length);

        // The blob that the library makes of the key imports to the same key.
        const IdentObj blob = NALConvertPublicKeyInfo(info);
        for (const bool byBlob : {false, true}) {
            unsigned long imported = 0;
            ASSERT_TRUE(byBlob ? ORKImportKey(m_provider, blob.GetData(), blob.GetSize(), 0, 0, &imported)
                               : NALIportPKInfo(m_provider, info, &imported));
            CNALCertPublicKeyInfo again;
            EXPECT_TRUE(NALExportPKInfo(m_provider, imported, again));
            EXPECT_EQ(again, info);
            EXPECT_TRUE(ORKDestroyKey(imported));
        }
        EXPECT_TRUE(ORKDestroyKey(key));
    }
}

TEST_F(KeyTransfer, FailuresLeaveTheOutputs) {
    CNALCertPublicKeyInfo info;
    unsigned long key = 77;
    EXPECT_FALSE(NALIportPKInfo(m_provider, info, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ORK_E_INVALID_PARAMETER});
    EXPECT_FALSE(NALIportPKInfo(m_provider, info, &key));
    EXPECT_EQ(GetLastError(), DWORD{ORK_E_BAD_KEY});

    // 64 bytes 0x00 to 0x3F: no point of the curve.
    const IdentObj der = nal_test::CertificateParts().publicKeyInfo;
    info.ReadData(der.GetData(), der.GetSize());
    EXPECT_FALSE(NALIportPKInfo(m_provider, info, &key));
    EXPECT_EQ(GetLastError(), DWORD{ORK_E_BAD_PUBLIC_KEY});
    EXPECT_FALSE(NALIportPKInfo(12345, info, &key));
    EXPECT_EQ(GetLastError(), DWORD{ORK_E_INVALID_HANDLE});
    EXPECT_EQ(key, 77u);

    const CNALCertPublicKeyInfo before = info;
    EXPECT_FALSE(NALExportPKInfo(m_provider, 12345, info));
    EXPECT_FALSE(NALExportPKInfo(12345, 12345, info));
    EXPECT_EQ(GetLastError(), DWORD{ORK_E_INVALID_HANDLE});
    EXPECT_EQ(info, before);
}
