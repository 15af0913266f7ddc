// Wrapped session keys: as messages carry them, and as the provider's simple blob (ork/provider.h) holds them.
//
//     GostR3410-KeyTransport ::= SEQUENCE {
//         sessionEncryptedKey   Gost28147-89-EncryptedKey,
//         transportParameters   [0] IMPLICIT SEQUENCE { encryptionParamSet   OBJECT IDENTIFIER,
//                                                       ephemeralPublicKey   [0] IMPLICIT SubjectPublicKeyInfo OPTIONAL,
//                                                       ukm                  OCTET STRING (SIZE(8)) } OPTIONAL }
//     Gost28147-89-EncryptedKey ::= SEQUENCE { encryptedKey OCTET STRING (SIZE(32)), maskKey [0] IMPLICIT OPTIONAL,
//                                              macKey OCTET STRING (SIZE(1..4)) }
//
// Source: RFC 4490 sections 4.1.1 and 4.2.1, RFC 4357 section 9.
#pragma once

#include "asnt/view.h"
#include "nal/algorithm.h"
#include "too/ident_obj.h"
#include "too/string.h"

namespace nal {

/// A session key that was wrapped by RFC 4357 section 6.
struct WrappedKey {
    IdentObj ukm;           ///< 8 bytes
    IdentObj encryptedKey;  ///< 32 bytes
    IdentObj mac;           ///< 4 bytes
    CTOOString paramSet;    ///< cipher parameter set of the wrap, dotted
};

/// What key transport carries.
struct KeyTransport {
    WrappedKey key;
    CNALCertPublicKeyInfo ephemeralKey;
};

/// @throws XTOOStatus(206, context) for anything but the fields of a simple blob
WrappedKey ReadSimpleBlob(asnt::View blob, const char* context);
IdentObj WriteSimpleBlob(const WrappedKey& key);

/// Reads sessionEncryptedKey. @param key  receives its two fields
/// @throws XTOOStatus(206) with the reader's context for a damaged one, for other sizes, and for a masked key
void ReadEncryptedKey(asnt::Reader& reader, WrappedKey& key);

/// @throws XTOOStatus: (206, context) for a damaged one; (56, context) when it has no ephemeral key
KeyTransport ReadKeyTransport(asnt::View der, const char* context);
IdentObj WriteKeyTransport(const KeyTransport& transport);

}  // namespace nal
