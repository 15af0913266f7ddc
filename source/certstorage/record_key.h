// The key of every record in a store, 40 bytes:
//
//   offset  size  field
//        0    20  key identifier: the subject's for a certificate, the issuer's for a CRL
//       20    16  CRL serial, zero for certificates
//       36     4  kind word, host byte order: 0x10000 certificate, 0x20000 CRL, 0x40000|id property of a certificate,
//                 0x80000|id property of a CRL
//
// Keys order by identifier, then serial, then kind, so everything that belongs to one certificate is adjacent and the
// certificate comes first.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "asnt/view.h"

namespace nal {

using KeyIdentifier = std::array<unsigned char, 20>;
using CrlSerial = std::array<unsigned char, 16>;

inline constexpr std::uint32_t kKindCert = 0x10000;
inline constexpr std::uint32_t kKindCrl = 0x20000;
inline constexpr std::uint32_t kKindCertProp = 0x40000;  // | property id
inline constexpr std::uint32_t kKindCrlProp = 0x80000;   // | property id

struct RecordKey {
    KeyIdentifier identifier{};
    CrlSerial crlSerial{};
    std::uint32_t kind = 0;

    static RecordKey Cert(const KeyIdentifier& identifier) { return {identifier, {}, kKindCert}; }
    static RecordKey Crl(const KeyIdentifier& issuer, const CrlSerial& serial) { return {issuer, serial, kKindCrl}; }
    /// A CRL's property when there is a serial, else a certificate's.
    static RecordKey Prop(const KeyIdentifier& identifier, std::uint32_t propId, const CrlSerial* crlSerial) {
        return crlSerial != nullptr ? RecordKey{identifier, *crlSerial, propId | kKindCrlProp}
                                    : RecordKey{identifier, {}, propId | kKindCertProp};
    }
    /// Whatever the bytes: cut to 40, or filled with zeros, as the comparison sees them.
    static RecordKey FromBytes(asnt::View bytes) {
        RecordKey key;
        if (!bytes.empty()) std::memcpy(&key, bytes.data, bytes.size < sizeof key ? bytes.size : sizeof key);
        return key;
    }

    bool IsCert() const { return kind == kKindCert; }
    bool IsCrl() const { return (kind & kKindCrl) != 0; }
    bool IsCertProp() const { return (kind & kKindCertProp) != 0; }
    bool IsCrlProp() const { return (kind & kKindCrlProp) != 0; }

    asnt::View Bytes() const { return {this, sizeof *this}; }
};
static_assert(sizeof(RecordKey) == 40, "the key's layout is the file's");

/// Orders two keys: identifier, CRL serial, then the kind words as a signed 32-bit difference.
///
/// Berkeley DB may hand over keys that the prefix function cut: missing bytes count as zero. A key longer than 40 bytes is
/// none of ours; it comes after all that equal it in their first 40.
int CompareKeys(asnt::View a, asnt::View b);

/// How many leading bytes of `b` tell it from `a`, where `a` comes before `b`: 40 when the identifiers are equal, else 20.
/// Never more than `b` has.
std::size_t KeyPrefix(asnt::View a, asnt::View b);

}  // namespace nal
