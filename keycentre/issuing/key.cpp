#include "keycentre/key.h"

#include <utility>

#include "ork/csp.h"
#include "too/last_error.h"
#include "too/status.h"

namespace keycentre {
namespace {

void Require(BOOL done, const CTOOString& context) {
    if (done) return;
    const int status = WinErr2ToolsErr(GetLastError());
    throw XTOOStatus(status != TOO_OK ? status : TOO_E_INTERNAL, context);
}

CTOOString In(const char* what, const CTOOString& container) { return CTOOString(what) + " \"" + container + "\""; }

void Open(CNALProvider& provider, const CTOOString& container, DWORD flags, const CTOOString& context) {
    int status = TOO_OK;
    provider.Init(container.c_str(), ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, flags, &status);
    if (status != TOO_OK) throw XTOOStatus(status, context);
}

}  // namespace

KeyPair KeyPair::Create(const CTOOString& container, const char* password, DWORD algId, const char* paramOid) {
    KeyPair pair;
    pair.m_container = container;
    const CTOOString context = In("making the key container", container);
    keycentre::Open(pair.m_provider, container, ORK_OPEN_NEW, context);
    try {
        const unsigned long provider = pair.GetProvider();
        if (*password != 0) Require(ORKSetProvParam(provider, ORK_PARAM_PASSWORD, password, 0), context);
        if (paramOid != nullptr) {
            const bool exchange = algId == ORK_KEY_EXCHANGE || algId == ORK_ALG_GOST2001_EXCHANGE || algId == ORK_ALG_GOST94_EXCHANGE;
            Require(ORKSetProvParam(provider, exchange ? ORK_PARAM_EXCHANGE_PARAMS : ORK_PARAM_SIGN_PARAMS, paramOid, 0), context);
        }
        Require(ORKGenKey(provider, algId, 0, pair.m_key.Receive()), context);
        pair.Export();
    } catch (...) {
        pair.m_key.Reset();
        pair.m_provider.Reset();
        ORKAcquireContext(nullptr, container.c_str(), ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_DELETE);
        throw;
    }
    return pair;
}

KeyPair KeyPair::Open(const CTOOString& container, const char* password) {
    KeyPair pair;
    pair.m_container = container;
    const CTOOString context = In("opening the key container", container);
    keycentre::Open(pair.m_provider, container, *password == 0 ? ORK_OPEN_NO_PASSWORD : 0, context);
    if (*password != 0) Require(ORKSetProvParam(pair.GetProvider(), ORK_PARAM_PASSWORD, password, 0), context);
    Require(ORKGetUserKey(pair.GetProvider(), ORK_KEY_ANY, pair.m_key.Receive()), context);
    pair.Export();
    return pair;
}

void KeyPair::Export() {
    Require(NALExportPKInfo(GetProvider(), m_key.Get(), m_publicKey), In("reading the public key of", m_container));
}

IdentObj KeyPair::Sign(IdentObj toBeSigned) const {
    CNALSignedData envelope;
    envelope.m_data = std::move(toBeSigned);
    envelope.SignData(GetProvider(), m_key.Get(), nullptr);
    return envelope.WriteData(nullptr);
}

void KeyPair::Bind(const IdentObj& certificate) const {
    Require(ORKSetKeyParam(m_key.Get(), ORK_KEY_PARAM_CERTIFICATE, certificate), In("storing the certificate in", m_container));
}

}  // namespace keycentre
