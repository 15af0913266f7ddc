#include "support/test_signer.h"

#include "nal/algorithm.h"
#include "nal/signed_envelope.h"
#include "ork/csp.h"
#include "too/last_error.h"
#include "too/status.h"

namespace nal_test {
namespace {

void Require(BOOL done, const char* call) {
    if (!done) throw XTOOStatus(WinErr2ToolsErr(GetLastError()), call);
}

}  // namespace

TestSigner::TestSigner() {
    const std::string container = m_folder.File("key");
    Require(ORKAcquireContext(m_provider.Receive(), container.c_str(), nullptr, ORK_PROVIDER_TYPE, ORK_OPEN_NEW), "ORKAcquireContext");
    Require(ORKSetProvParam(m_provider.Get(), ORK_PARAM_SIGN_PARAMS, "1.2.643.2.2.35.1", 0), "ORKSetProvParam");
    Require(ORKGenKey(m_provider.Get(), ORK_KEY_SIGNATURE, 0, m_key.Receive()), "ORKGenKey");
    CNALCertPublicKeyInfo key;
    Require(NALExportPKInfo(m_provider.Get(), m_key.Get(), key), "NALExportPKInfo");
    m_publicKeyInfo = key.WriteData();
}

IdentObj TestSigner::Sign(const IdentObj& built) const {
    CNALSignedData envelope;
    envelope.ReadData(built.GetData(), built.GetSize(), nullptr);
    envelope.SignData(m_provider.Get(), m_key.Get(), nullptr);
    return envelope.WriteData(nullptr);
}

CNALSignedData TestSigner::SignBytes(const IdentObj& bytes) const {
    CNALSignedData envelope;
    envelope.m_data = bytes;
    envelope.SignData(m_provider.Get(), m_key.Get(), nullptr);
    return envelope;
}

IdentObj TestSigner::Issue(CertBuilder builder, const TestSigner& subject) const {
    builder.publicKeyInfo = subject.PublicKeyInfo();
    return Sign(builder.Build());
}

}  // namespace nal_test
