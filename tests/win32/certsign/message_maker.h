// Signed messages for tests of their verification, put together from real signatures; and what their verification gives.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "nal/errors.h"
#include "nal/signature_check.h"
#include "signer/signing_test.h"
#include "support/temp_folder.h"
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

    static IdentObj EncodingOf(const CNALCertContext& cert) {
        return {cert.GetContext()->pbCertEncoded, cert.GetContext()->cbCertEncoded};
    }

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

    static WhatToSignStruct InMemory(const IdentObj& content) {
        WhatToSignStruct what;
        what.data = content.GetData();
        what.end = content.GetSize();
        return what;
    }

    static WhatToSignStruct InFile(const std::string& path) {
        WhatToSignStruct what;
        what.flags = c_NAL_CONTENT_IN_FILE;
        what.data = path.c_str();
        what.end = c_NAL_TO_END_OF_FILE;
        return what;
    }

    std::string Store(const std::string& name, const IdentObj& bytes) const {
        WriteFile(m_folder.File(name), bytes.GetData(), bytes.GetSize());
        return m_folder.File(name);
    }

    static IdentObj Load(const std::string& path) {
        const Bytes bytes = ReadFile(path);
        return {bytes.data(), static_cast<unsigned>(bytes.size())};
    }

    static CNALCertStorage StorageOf(const std::vector<CNALCertContext>& certs) {
        CNALString name;
        CNALCertStorage storage(name, CERT_STORE_PROV_MEMORY, 0, 0, nullptr);
        for (const CNALCertContext& cert : certs) EXPECT_TRUE(storage.AddCertificate(cert));
        return storage;
    }

    /// The status and the context of what `action` throws, as one text.
    template <class Action>
    static std::string FailureOf(Action&& action) {
        try {
            action();
        } catch (const XTOOStatus& status) {
            return std::to_string(status.GetCode()) + " " + status.GetText().c_str();
        }
        return "";
    }

    static FILETIME DaysFromNow(int days) { return CTOOFileTime(CTOOFileTime::Now().GetTicks() + days * CTOOFileTime::c_ticksPerDay); }

    /// A valid certificate's profile for these days around the present.
    static keycentre::Profile ValidFrom(int from, int to) {
        keycentre::Profile profile = keycentre::SignatureProfile();
        profile.notBefore = DaysFromNow(from);
        profile.notAfter = DaysFromNow(to);
        return profile;
    }

    TempFolder m_folder;
};

}  // namespace nal_test
