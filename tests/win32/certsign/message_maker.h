// Signed messages for tests of their verification, put together from real signatures; and what their verification gives.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "nal/errors.h"
#include "nal/signature_check.h"
#include "signer/signing_test.h"
#include "too/time.h"

namespace nal_test {

using Records = std::list<CNALWholeSignatureCheck>;

/// How one signer signs.
struct Signing {
    const Signatory* who;
    DWORD flags = 0;  // c_NAL_SIGN_BY_KEY_ID
    DWORD hash = ORK_ALG_GOSTR3411;
    bool withCertificate = true;
};

class MessageTest : public OneSignatureTest {
protected:
    /// A message of these signers over `content`; a test changes it before it is encoded.
    CNALSignData MessageOf(const IdentObj& content, const std::vector<Signing>& signers, bool attached = true) const {
        const nal::ContentHashes hashes = Hashes(content);
        CNALSignData message;
        if (attached) message.eContent = content;
        static_cast<CASNTIdData&>(message.digestAlgorithms.emplace_back()) = CASNTIdData(c_NAL_OID_HASH_GOST94);
        for (const Signing& signing : signers) {
            message.signerInfos.push_back(Sign(*signing.who, hashes, signing.hash, signing.flags).WriteData(nullptr));
            if (signing.withCertificate) message.certificates.push_back(EncodingOf(signing.who->cert));
        }
        return message;
    }

    static IdentObj EncodingOf(const CNALCertContext& cert) { return {cert.GetContext()->pbCertEncoded, cert.GetContext()->cbCertEncoded}; }

    static IdentObj Encoded(CNALSignData message) { return message.WriteObject(nullptr); }

    /// The statuses of a message that carries its content.
    static std::vector<DWORD> Verify(const IdentObj& message, const CNALCertStorage* storage = nullptr) {
        return StatusesOf(RecordsOf(message, {}, storage));
    }
    static std::vector<DWORD> Verify(const CNALSignData& message, const CNALCertStorage* storage = nullptr) {
        return Verify(Encoded(message), storage);
    }

    static Records RecordsOf(const IdentObj& message, const WhatToSignStruct& what = {}, const CNALCertStorage* storage = nullptr) {
        Records records;
        EXPECT_EQ(NALVerifySignedData(&records, what, message, storage, nullptr), 1);
        return records;
    }

    static std::vector<DWORD> StatusesOf(const Records& records) {
        std::vector<DWORD> statuses;
        for (const CNALWholeSignatureCheck& record : records) {
            EXPECT_EQ(record.index, statuses.size());
            EXPECT_EQ(record.statusText, NALGetWinErrorExplaination(record.status));
            EXPECT_EQ(record.IsValid(), record.status == 0);
            statuses.push_back(record.status);
        }
        return statuses;
    }

    static CNALCertStorage StorageOf(const std::vector<CNALCertContext>& certs) {
        CNALString name;
        CNALCertStorage storage(name, CERT_STORE_PROV_MEMORY, 0, 0, nullptr);
        for (const CNALCertContext& cert : certs) EXPECT_TRUE(storage.AddCertificate(cert));
        return storage;
    }

    static FILETIME DaysFromNow(int days) { return CTOOFileTime(CTOOFileTime::Now().GetTicks() + days * CTOOFileTime::c_ticksPerDay); }

    /// A valid certificate's profile for these days around the present.
    static keycentre::Profile ValidFrom(int from, int to) {
        keycentre::Profile profile = keycentre::SignatureProfile();
        profile.notBefore = DaysFromNow(from);
        profile.notAfter = DaysFromNow(to);
        return profile;
    }
};

}  // namespace nal_test
