// CNALEnvelopedData::GetEncryptionKey: which recipient is ours, and where its private key is.
#include <algorithm>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "encryption/recipient_identity.h"
#include "encryption/session_key.h"
#include "frame/failure.h"
#include "model/encoding.h"
#include "model/integer_order.h"
#include "model/provider_handles.h"
#include "nal/enveloped_data.h"
#include "nal/storage.h"
#include "nal/user.h"
#include "ork/provider.h"
#include "storage/cert_reader.h"
#include "too/status.h"

namespace {

constexpr char c_context[] = "CNALEnvelopedData::GetEncryptionKey";
constexpr char c_keyIdentifierAttribute[] = "1.3.6.1.4.1.311.10.7.1";
// Each try costs an operation on the curve; a message that names one certificate again and again is not worth more.
constexpr unsigned c_maxTries = 64;

/// A session key that is wrapped for somebody.
struct WrappedFor {
    const IdentObj& issuer;
    const IdentObj& serialNumber;
    const IdentObj& keyIdentifier;
    const CNALTransRecipientInfo* transport;
    const CNALAgreeRecipientInfo* agreement;
    const IdentObj* agreedKey;
};

class KeySearch {
public:
    KeySearch(const CNALEnvelopedData& message, const CNALUser* user, const CNALCertStorage* storage)
        : m_cipher(nal::ReadContentCipher(message.encryptedContentInfo.contentEncryptionAlgorithm, c_context)),
          m_user(user),
          m_storage(storage) {
        for (const CNALTransRecipientInfo& info : message.recipientInfos) {
            m_wrapped.push_back({info.issuer, info.serialNumber, info.subjectKeyIdentifier, &info, nullptr, nullptr});
        }
        for (const IdentObj& der : message.otherRecipientInfos) {
            int err = 0;
            // What is not an agreement, or not one with a key in it, is for somebody else.
            if (!m_agreements.emplace_back().ReadObject(der.GetData(), der.GetSize(), &err)) m_agreements.pop_back();
        }
        for (const CNALAgreeRecipientInfo& info : m_agreements) {
            for (const CNALAgreeRecipientInfo::Recipient& each : info.recipients) {
                m_wrapped.push_back({each.issuer, each.serialNumber, each.subjectKeyIdentifier, nullptr, &info, &each.encryptedKey});
            }
        }
    }

    /// @param provider  receives the context that the key belongs to
    /// @throws XTOOStatus as GetEncryptionKey
    nal::KeyHandle Find(CNALProvider& provider) {
        nal::KeyHandle key;
        for (const CNALCertContext& cert : UserCertificates()) {
            if (TryCertificate(cert, key, provider)) return key;
        }
        if (m_storage != nullptr) {
            for (const WrappedFor& wrapped : m_wrapped) {
                for (const CNALCertContext& cert : CertificatesOf(wrapped)) {
                    if (TryWrapped(wrapped, cert, key, provider)) return key;
                }
            }
        }
        throw XTOOStatus(m_status, c_context);
    }

private:
    std::list<CNALCertContext> UserCertificates() {
        std::list<CNALCertContext> certs;
        int err = 0;
        if (m_user != nullptr && !m_user->GetCertificateList(certs, &err, nullptr)) m_status = err;
        return certs;
    }

    std::list<CNALCertContext> CertificatesOf(const WrappedFor& wrapped) const {
        CERT_INFO wanted{};
        IdentObj issuer = wrapped.issuer;
        IdentObj serial = nal::Reversed(wrapped.serialNumber);
        if (!wrapped.keyIdentifier.IsEmpty()) issuer = NameOfKeyIdentifier(wrapped.keyIdentifier);
        wanted.Issuer = {issuer.GetSize(), issuer.GetData()};
        wanted.SerialNumber = {serial.GetSize(), serial.GetData()};
        std::list<CNALCertContext> certs;
        m_storage->FindCertList(certs, CERT_FIND_SUBJECT_CERT, &wanted);
        return certs;
    }

    /// The issuer name by which a storage finds a certificate by key identifier.
    static IdentObj NameOfKeyIdentifier(const IdentObj& keyIdentifier) {
        return nal::Encoded([&](asnt::Writer& writer) {
            writer.Sequence([&] {
                writer.Set([&] {
                    writer.Sequence([&] {
                        writer.Oid(c_keyIdentifierAttribute);
                        writer.OctetString(keyIdentifier);
                    });
                });
            });
        });
    }

    bool TryCertificate(const CNALCertContext& cert, nal::KeyHandle& key, CNALProvider& provider) {
        std::optional<nal::CertIdentity> identity;
        try {
            identity.emplace(cert);
        } catch (const XTOOStatus&) {
            return false;
        }
        return std::any_of(m_wrapped.begin(), m_wrapped.end(), [&](const WrappedFor& wrapped) {
            return identity->Is(wrapped.issuer, wrapped.serialNumber, wrapped.keyIdentifier) && TryWrapped(wrapped, cert, key, provider);
        });
    }

    /// @return whether this was it; if not, the reason is in m_status
    bool TryWrapped(const WrappedFor& wrapped, const CNALCertContext& cert, nal::KeyHandle& key, CNALProvider& provider) {
        if (m_tries == c_maxTries || m_keyless.count(nal::EncodingOf(*cert.GetContext()).Copy()) != 0) return false;
        try {
            CNALProvider opened;
            const nal::KeyHandle privateKey = OpenPrivateKey(cert, opened);
            const CNALCertPublicKeyInfo publicKey = nal::PublicKeyOf(*cert.GetContext());
            key = wrapped.transport != nullptr
                      ? nal::UnwrapTransported(privateKey.Get(), publicKey.m_algorithm, *wrapped.transport, m_cipher, c_context)
                      : nal::UnwrapAgreed(privateKey.Get(), publicKey.m_algorithm, *wrapped.agreement, *wrapped.agreedKey, m_cipher,
                                          c_context);
            provider = std::move(opened);
            return true;
        } catch (const XTOOStatus& status) {
            // That somebody else's key is not here costs no try, and says less than why ours did not serve.
            if (status.GetCode() == TOO_E_KEY_NOT_FOUND) {
                m_keyless.insert(nal::EncodingOf(*cert.GetContext()).Copy());
            } else {
                ++m_tries;
                m_status = status.GetCode();
            }
            return false;
        }
    }

    /// @param provider  receives the context that the key belongs to
    nal::KeyHandle OpenPrivateKey(const CNALCertContext& cert, CNALProvider& provider) const {
        int status = TOO_E_KEY_NOT_FOUND;
        if (m_user != nullptr) {
            nal::KeyHandle key;
            // The user's handle may be destroyed with the user's cache, a copy of it is ours.
            const unsigned long cached = m_user->GetUserKey(cert.GetPrivateKeyType(), &cert, &status, nullptr);
            if (cached != 0 && ORKDuplicateKey(cached, nullptr, 0, key.Receive())) {
                provider = m_user->GetProvider();
                return key;
            }
            if (cached != 0) nal::ThrowProvider(c_context);
        }
        if (m_storage == nullptr || cert.GetContainer().empty()) throw XTOOStatus(status, c_context);
        return OpenContainerKey(cert, provider);
    }

    static nal::KeyHandle OpenContainerKey(const CNALCertContext& cert, CNALProvider& provider) {
        constexpr DWORD pinParameter = 17;
        const CRYPT_KEY_PROV_INFO& info = *cert.GetProviderInfo();
        int status = 0;
        if (!provider.Init(cert.GetContainer().c_str(), cert.GetProviderName().c_str(), info.dwProvType, ORK_OPEN_NO_PASSWORD, &status)) {
            throw XTOOStatus(status, c_context);
        }
        for (DWORD i = 0; i < info.cProvParam; ++i) {
            const CRYPT_KEY_PROV_PARAM& parameter = info.rgProvParam[i];
            if (parameter.dwParam != pinParameter) continue;
            IdentObj pin(parameter.pbData, parameter.cbData);
            const BOOL isSet = ORKSetProvParam(provider.GetProviderHandle(), ORK_PARAM_PIN, pin, 0);
            pin.Wipe();
            if (!isSet) nal::ThrowProvider(c_context);
        }
        nal::KeyHandle key;
        CNALCertPublicKeyInfo publicKey;
        if (!ORKGetUserKey(provider.GetProviderHandle(), info.dwKeySpec, key.Receive()) ||
            !NALExportPKInfo(provider.GetProviderHandle(), key.Get(), publicKey)) {
            nal::ThrowProvider(c_context);
        }
        if (publicKey.m_publicKey != nal::PublicKeyOf(*cert.GetContext()).m_publicKey) throw XTOOStatus(TOO_E_KEY_NOT_FOUND, c_context);
        return key;
    }

    const nal::ContentCipher m_cipher;
    const CNALUser* m_user;
    const CNALCertStorage* m_storage;
    std::list<CNALAgreeRecipientInfo> m_agreements;
    std::vector<WrappedFor> m_wrapped;
    unsigned m_tries = 0;
    std::set<IdentObj> m_keyless;  // certificates whose key is not here
    int m_status = TOO_E_KEY_NOT_FOUND;
};

}  // namespace

int CNALEnvelopedData::GetEncryptionKey(CNALUser* user, CNALCertStorage* storage, CNALProvider& provider, unsigned long& hKey,
                                        int* err) const {
    return nal::Report(err, [&] {
        if (user == nullptr && storage == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_context);
        hKey = KeySearch(*this, user, storage).Find(provider).Release();
    });
}
