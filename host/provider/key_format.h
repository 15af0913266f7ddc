// What a key pair is, beside its numbers: the algorithm and the parameter sets, and their DER form.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "asnt/view.h"
#include "host/provider/crypto/parameters.h"
#include "too/ident_obj.h"
#include "too/types.h"

namespace nalhost::provider {

// The private algorithm's OID; in the place of a parameter set it stands for the one set that the algorithm has.
inline constexpr char c_privateKeyOid[] = "1.3.6.1.4.1.47474.2.1.2.2";

inline constexpr char c_defaultCipherSet[] = "1.2.643.2.2.31.1";

struct KeyFormat {
    DWORD algId = 0;
    const crypto::KeyParameters* set = nullptr;
    bool isImplied = false;  // the set comes from the private algorithm, so the parameters field is absent
    const crypto::HashParameters* hash = nullptr;
    const crypto::CipherParameters* cipher = nullptr;  // null: no encryptionParamSet

    // The set as key parameter 106 names it.
    const char* SetOid() const { return isImplied ? c_privateKeyOid : set->oid; }
    unsigned PublicKeySize() const { return static_cast<unsigned>(set->publicKeySize); }

    // The parameters field of RFC 4357 section 6 (SEQUENCE of the two or three OIDs); empty when the set is implied.
    IdentObj EncodeParameters() const;
    // The OID that stands in a SubjectPublicKeyInfo. An ephemeral key goes by its standard's signature OID (RFC 4490
    // section 4.1).
    const char* AlgorithmOid() const;
};

// Whether `algId` names a key pair, and one that a container can hold.
bool IsKeyPairAlgorithm(DWORD algId);
bool IsContainerAlgorithm(DWORD algId);
// ORK_KEY_EXCHANGE or ORK_KEY_SIGNATURE, 0 for an algorithm that no container holds.
DWORD KeyTypeOf(DWORD algId);

// The format of a key from outside. @throws ProviderError ORK_E_BAD_ALGID, ORK_E_BAD_DATA; XTOOStatus 206
KeyFormat ParseKeyFormat(DWORD algId, asnt::View parameters);

// The format of a key to be made with the set of this OID: a parameter set's, or an algorithm's for its default set.
// Nothing when the set is not one for the algorithm. The hash set is the usual one, no cipher set.
std::optional<KeyFormat> FormatForSet(DWORD algId, std::string_view setOid);

// The same with the set that is used when none was named.
std::optional<KeyFormat> DefaultFormat(DWORD algId);

// The algorithm of the signature or exchange key that the set of this OID makes; 0 when there is none.
DWORD AlgorithmForSet(std::string_view setOid, DWORD keyType);

// A public key outside: its format and bytes.
struct PublicKeyInfo {
    KeyFormat format;
    IdentObj bytes;
};

// SubjectPublicKeyInfo. @throws ProviderError ORK_E_BAD_ALGID, ORK_E_BAD_DATA; XTOOStatus 206
PublicKeyInfo ParseSubjectPublicKeyInfo(asnt::View der);
IdentObj WriteSubjectPublicKeyInfo(const KeyFormat& format, asnt::View bytes);

// The content of the BIT STRING: an OCTET STRING around the bytes.
IdentObj WrapPublicKey(asnt::View bytes);

}  // namespace nalhost::provider
