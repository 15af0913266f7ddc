#include "encryption/session_key.h"

#include "encryption/key_transport.h"
#include "frame/failure.h"
#include "ork/provider.h"
#include "too/status.h"

namespace nal {

namespace {

constexpr unsigned c_ivSize = 8;
// Agreements of RFC 4490 section 4.1.1, and the Diffie-Hellman keys' own OIDs, which some write in their place.
constexpr const char* c_agreements[] = {"1.2.643.2.2.96", "1.2.643.2.2.97", c_NAL_OID_DH_GOST2001, c_NAL_OID_DH_GOST94};

bool IsAbsent(const IdentObj& parameters) {
    asnt::Element null;
    return parameters.IsEmpty() || asnt::Reader(parameters).TryNext(asnt::tag::Null, null);
}

/// The key agreed between the recipient's private key and the originator's public one.
KeyHandle Agree(unsigned long hProv, unsigned long hPrivateKey, const CNALAlgorithmIdentifier& recipient, CNALCertPublicKeyInfo originator,
                const char* context) {
    if (IsAbsent(originator.m_algorithm.m_parameters)) originator.m_algorithm.m_parameters = recipient.m_parameters;
    IdentObj blob;
    try {
        blob = NALConvertPublicKeyInfo(originator);
    } catch (const XTOOStatus& status) {
        throw XTOOStatus(status.GetCode(), context);
    }
    KeyHandle agreed;
    if (!ORKImportKey(hProv, blob.GetData(), blob.GetSize(), hPrivateKey, 0, agreed.Receive())) ThrowProvider(context);
    return agreed;
}

unsigned long ContextOf(unsigned long hKey, const char* context) {
    unsigned long hProv = 0;
    if (!ORKGetKeyParam(hKey, ORK_KEY_PARAM_CONTEXT, hProv)) ThrowProvider(context);
    return hProv;
}

KeyHandle Unwrap(unsigned long hProv, const KeyHandle& agreed, const WrappedKey& wrapped, const ContentCipher& cipher,
                 const char* context) {
    const IdentObj blob = WriteSimpleBlob(wrapped);
    KeyHandle key;
    constexpr DWORD withMeshing = 1;
    if (!ORKImportKey(hProv, blob.GetData(), blob.GetSize(), agreed.Get(), 0, key.Receive()) ||
        !ORKSetKeyParam(key.Get(), ORK_KEY_PARAM_CIPHER_PARAMS, cipher.paramSet.c_str()) ||
        !ORKSetKeyParam(key.Get(), ORK_KEY_PARAM_IV, cipher.iv) || !ORKSetKeyParam(key.Get(), ORK_KEY_PARAM_MESHING, withMeshing)) {
        ThrowProvider(context);
    }
    return key;
}

/// Reads the algorithm of a wrap: { OID, { encryptionParamSet OID, ukm OCTET STRING OPTIONAL } }.
/// @param key  receives parameter set and UKM @return the OID
CTOOString ReadWrap(const CNALAlgorithmIdentifier& agreement, WrappedKey& key, const char* context) {
    asnt::Reader reader(agreement.m_parameters, context);
    CNALAlgorithmIdentifier wrap;
    wrap.ReadData(reader);
    reader.ExpectEnd();
    asnt::Reader outer(wrap.m_parameters, context);
    asnt::Reader parameters = outer.Enter(asnt::tag::Sequence);
    key.paramSet = parameters.Oid();
    asnt::Element ukm;
    if (parameters.Optional(asnt::tag::OctetString, ukm)) key.ukm = ukm.content.Copy();
    parameters.ExpectEnd();
    return wrap.GetID();
}

}  // namespace

ContentCipher ReadContentCipher(const CNALAlgorithmIdentifier& algorithm, const char* context) {
    if (!algorithm.Is(c_NAL_OID_GOST28147)) throw XTOOStatus(TOO_E_UNKNOWN_ALGORITHM, context);
    asnt::Reader outer(algorithm.m_parameters, context);
    asnt::Reader parameters = outer.Enter(asnt::tag::Sequence);
    ContentCipher cipher;
    cipher.iv = parameters.Octets().Copy();
    if (cipher.iv.GetSize() != c_ivSize) parameters.Fail();
    cipher.paramSet = parameters.Oid();
    parameters.ExpectEnd();
    return cipher;
}

KeyHandle UnwrapTransported(unsigned long hPrivateKey, const CNALAlgorithmIdentifier& recipient, const CNALTransRecipientInfo& info,
                            const ContentCipher& cipher, const char* context) {
    const KeyTransport transport = ReadKeyTransport(info.encryptedKey, context);
    const unsigned long hProv = ContextOf(hPrivateKey, context);
    return Unwrap(hProv, Agree(hProv, hPrivateKey, recipient, transport.ephemeralKey, context), transport.key, cipher, context);
}

KeyHandle UnwrapAgreed(unsigned long hPrivateKey, const CNALAlgorithmIdentifier& recipient, const CNALAgreeRecipientInfo& info,
                       const IdentObj& encryptedKey, const ContentCipher& cipher, const char* context) {
    bool isKnown = false;
    for (const char* agreement : c_agreements) isKnown = isKnown || info.keyEncryptionAlgorithm.Is(agreement);
    if (!isKnown) throw XTOOStatus(TOO_E_UNKNOWN_ALGORITHM, context);
    WrappedKey wrapped;
    const CTOOString wrap = ReadWrap(info.keyEncryptionAlgorithm, wrapped, context);
    asnt::Reader reader(encryptedKey, context);
    ReadEncryptedKey(reader, wrapped);
    reader.ExpectEnd();
    if (!info.ukm.IsEmpty()) wrapped.ukm = info.ukm;
    if (wrapped.ukm.GetSize() != c_ivSize) reader.Fail();
    const unsigned long hProv = ContextOf(hPrivateKey, context);
    const KeyHandle agreed = Agree(hProv, hPrivateKey, recipient, info.originatorKey, context);
    if (!ORKSetKeyParam(agreed.Get(), ORK_KEY_PARAM_WRAP, wrap.c_str())) ThrowProvider(context);
    return Unwrap(hProv, agreed, wrapped, cipher, context);
}

}  // namespace nal
