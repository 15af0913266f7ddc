// Renewing a key, and making a request for another user.
#include <utility>

#include "frame/failure.h"
#include "nal/chain.h"
#include "nal/errors.h"
#include "nal/trust_storages.h"
#include "nal/user.h"
#include "ork/csp.h"
#include "trust/network_identifier.h"
#include "win32/cnaluser/request_maker.h"

namespace {

constexpr char c_updateContext[] = "CNALUser::UpdateKey";
constexpr char c_requestContext[] = "CNALUser::CreateNewRequest";
constexpr char c_signerContext[] = "CreateExternAbonentSign: CryptCreateContext";
constexpr char c_encodeContext[] = "CertifyCertificate:CryptEncodeObject";

/// Verifies a certificate that is to sign a request. Its users' list may hold issuers that the trust storages lack.
/// @throws XTOOStatus(106)
void Verify(const CNALCertContext& cert, DWORD tolerated, const CTOOString& text) {
    CNALCertStorage users = m_VPN_TrustStorages.GetList(NALGetUsersListName(cert));
    users.m_untrusted = 1;
    CNALCertificateChain chain;
    const bool isBuilt = NALVerifyCertificate(cert, chain, nullptr, &users) != FALSE;
    const DWORD errors = chain.GetErrors() & ~tolerated;
    if (!isBuilt || errors != 0) {
        throw XTOOStatus(TOO_E_CERT_REFUSED, text + " the signer's certificate: " + NALGetCertTotalBitMaskExplaination(errors));
    }
}

/// Runs `body`; a failure that does not name this function gets its name in front.
template <class Body>
BOOL ReportAs(const char* function, int* err, CTOOString* msg, Body&& body) {
    return nal::Report(err, msg, [&] {
        try {
            body();
        } catch (const XTOOStatus& status) {
            const CTOOString& text = status.GetText();
            const bool isNamed = text.find(function) == 0 || text == c_signerContext;
            if (status.GetCode() == TOO_E_ENCODE && !isNamed) throw XTOOStatus(TOO_E_ENCODE, c_encodeContext);
            throw XTOOStatus(status.GetCode(), isNamed ? text : function + CTOOString(" ") + text);
        }
    });
}

void Require(bool condition, int status, const char* function) {
    if (!condition) throw XTOOStatus(status, function);
}

/// What kind of key is made.
struct KeyKind {
    CTOOString algOID;
    CTOOString paramOID;  // may be empty
};

/// The kind that the caller asks for; what he leaves open is taken from a key's.
KeyKind KindLike(const CNALCertInfo& info, const CTOOString& algOID, const CTOOString& paramOID) {
    const CNALAlgorithmIdentifier& algorithm = info.m_publicKeyInfo.m_algorithm;
    KeyKind kind{algOID, paramOID};
    if (kind.algOID.empty()) kind.algOID = algorithm.GetID();
    if (kind.algOID.empty()) kind.algOID = c_NAL_OID_KEY_GOST2001;
    const bool isSame = algorithm.Is(kind.algOID.c_str());
    if (kind.paramOID.empty() && isSame && !algorithm.Is(c_NAL_OID_KEY_PRIVATE)) {
        unsigned keyType = 0;
        CTOOString hashParams;
        CTOOString cipherParams;
        info.GetKeyParam(keyType, kind.paramOID, hashParams, cipherParams);
    }
    return kind;
}

}  // namespace

BOOL CNALUser::UpdateKey(const CTOOString& keyParamOID, const CTOOString& algOID, CTOOFileTime notBefore, CTOOFileTime notAfter,
                         const CNALCertContext& oldCert, const NAL_REQ_CONTEXT** outReq, int* err, CTOOString* msg) {
    return ReportAs(c_updateContext, err, msg, [&] {
        Require(outReq != nullptr && oldCert.IsInitialized(), TOO_E_BAD_ARGUMENT, c_updateContext);
        Require(m_provider.GetProviderHandle() != 0, TOO_E_NOT_INITIALIZED, c_updateContext);
        const auto lock = m_provider.Lock();
        nal::RequestPlan plan;
        plan.period = nal::RequestPeriod::Complete(notBefore, notAfter, c_updateContext);
        Verify(oldCert, CERT_TRUST_REVOCATION_STATUS_UNKNOWN, c_updateContext);
        plan.from = *oldCert.GetContext();
        const KeyKind kind = KindLike(plan.from, algOID, keyParamOID);
        plan.makeKeys = [&] { MakeKeysFor(kind.algOID, kind.paramOID); };
        plan.network = nal::NetworkIdentifierOf(plan.from);
        plan.signer.hProv = m_provider.GetProviderHandle();
        plan.signer.hKey = GetUserKey(oldCert.GetPrivateKeyType(), &oldCert, nullptr, nullptr);
        plan.signer.cert = oldCert;
        *outReq = nal::MakeRequest(*this, plan).Detach();
    });
}

BOOL CNALUser::CreateNewRequest(const CNALUser& signer, const CNALCertContext* signerCert, const CNALCertInfo& info,
                                const NAL_REQ_CONTEXT** outReq, int* err, CTOOString* msg) {
    const unsigned type = signerCert != nullptr ? NAL_REQ_TYPE_EXTERNAL : NAL_REQ_TYPE_OWN;
    return CreateNewRequest(signer, signerCert, info, type, outReq, err, msg);
}

BOOL CNALUser::CreateNewRequest(const CNALUser& signer, const CNALCertContext* signerCert, const CNALCertInfo& info,
                                unsigned requestType, const NAL_REQ_CONTEXT** outReq, int* err, CTOOString* msg) {
    return ReportAs(c_requestContext, err, msg, [&] {
        const bool isKnownType = requestType == NAL_REQ_TYPE_OWN || requestType == NAL_REQ_TYPE_EXTERNAL;
        Require(outReq != nullptr && isKnownType && (signerCert == nullptr || signerCert->IsInitialized()), TOO_E_BAD_ARGUMENT,
                c_requestContext);
        Require(m_provider.GetProviderHandle() != 0, TOO_E_NOT_INITIALIZED, c_requestContext);
        nal::RequestPlan plan;
        plan.type = requestType;
        plan.period = nal::RequestPeriod::Complete(info.m_notBefore, info.m_notAfter, c_requestContext);
        plan.from = info;
        const KeyKind kind = KindLike(info, CTOOString(), CTOOString());
        plan.makeKeys = [&] { MakeKeysFor(kind.algOID, kind.paramOID); };
        plan.network = nal::NetworkIdentifierOf(info);

        CNALUser signing;  // keeps the signer's key open until the request is made
        if (signerCert != nullptr) {
            Verify(*signerCert, 0, c_requestContext);
            if (plan.network.empty()) plan.network = NALGetNetworkIdentifier(*signerCert);
            signing = signer;
            if (signing.m_provider.GetProviderHandle() == 0) signing.OpenAsSigner();
            plan.signer.hProv = signing.m_provider.GetProviderHandle();
            plan.signer.hKey = signing.GetUserKey(signerCert->GetPrivateKeyType(), signerCert, nullptr, nullptr);
            plan.signer.cert = *signerCert;
        }
        const auto lock = m_provider.Lock();
        *outReq = nal::MakeRequest(*this, plan).Detach();
    });
}

// A signer that was set up, but not opened.
void CNALUser::OpenAsSigner() {
    int status = OpenContainer(m_path.c_str(), ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, 0);
    if (status == TOO_OK) status = HandOnSecrets();
    if (status != TOO_OK) throw XTOOStatus(status, c_signerContext);
}
