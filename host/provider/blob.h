// The three blobs in which keys leave and enter the provider. All integers are little-endian.
//
// Public key (6):
//
//   offset  size  field
//        0     1  blob type, 0x06
//        1     1  version, 0x10
//        2     2  reserved, 0
//        4     4  ALG_ID of the key
//        8     4  magic, "MAG1"
//       12     4  bit length of the key bytes
//       16     p  parameters field of the algorithm, DER; p may be 0
//     16+p     k  key bytes, k = bit length / 8
//
// Simple (1), a session key wrapped by RFC 4357 section 6.3:
//
//        0    12  as above: type 0x01, ALG_ID of the wrapped key, "MAG1"
//       12     4  bit length of the wrapped key, 256
//       16     8  UKM
//       24    32  encrypted key
//       56     4  MAC
//       60     p  OID of the wrap's parameter set, DER
//
// Private key (7), the rest of which SealedPrivateKey describes:
//
//        0    12  as above: type 0x07, ALG_ID of the key, "MAG1"
//       12     4  bit length of the private key, 256
//       16     4  protection: 0 by a protection key, 1 by a one-time key of the process that wrote it
//       20    16  salt, which also names the one-time key
//       36     4  p
//       40     p  parameters field of the algorithm, DER; p may be 0
//     40+p    60  private key, sealed with bytes 0 to 40+p as associated data
#pragma once

#include <array>
#include <cstdint>

#include "asnt/view.h"
#include "host/provider/crypto/key_wrap.h"
#include "host/provider/key_format.h"
#include "too/ident_obj.h"

namespace nalhost::provider {

// @throws ProviderError ORK_E_BAD_DATA when `blob` is too short for a header
DWORD BlobType(asnt::View blob);

IdentObj WritePublicBlob(const KeyFormat& format, asnt::View key);
// @throws ProviderError ORK_E_BAD_DATA, ORK_E_BAD_VERSION, ORK_E_BAD_ALGID, ORK_E_BAD_LENGTH
PublicKeyInfo ParsePublicBlob(asnt::View blob);

struct SimpleBlob {
    std::array<std::uint8_t, 8> ukm;
    crypto::WrappedKey key;
    const crypto::CipherParameters* cipher;
};

IdentObj WriteSimpleBlob(const SimpleBlob& content);
// @throws as ParsePublicBlob
SimpleBlob ParseSimpleBlob(asnt::View blob);

using Salt = std::array<std::uint8_t, 16>;

struct PrivateBlob {
    KeyFormat format;
    bool isOneTime = false;
    Salt salt{};
    asnt::View associated;  // of the parsed blob
    asnt::View sealed;      // of the parsed blob
};

// Everything before the sealed key.
IdentObj WritePrivateBlobHead(const KeyFormat& format, bool isOneTime, const Salt& salt);
// @throws as ParsePublicBlob
PrivateBlob ParsePrivateBlob(asnt::View blob);

}  // namespace nalhost::provider
