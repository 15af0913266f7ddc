// What the tests of CRLs, attributes and requests share: CRLs of any shape, refusals.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "asnt/writer.h"
#include "nal/crl.h"
#include "support/hex.h"
#include "support/status_of.h"
#include "too/status.h"

namespace nal_test {

/// Reads every shorter beginning of `der` with `read`, each from memory of its own size, so that a sanitizer sees a step
/// too far. @return how many were not refused with 206
template <class Read>
std::size_t CountAcceptedBeginnings(const IdentObj& der, Read&& read) {
    std::size_t accepted = 0;
    for (unsigned size = 1; size < der.GetSize(); ++size) {
        const IdentObj cut(der.GetData(), size);
        if (StatusOf([&] { read(cut); }) != TOO_E_BAD_STRUCTURE) ++accepted;
    }
    return accepted;
}

inline constexpr char kName[] = "30 0F 31 0D 30 0B 06 03 55 04 03 0C 04 726F6F74";  // CN=root
inline constexpr char kUpdate[] = "17 0D 3236313132323130303030305A";                // 2026-11-22 10:00:00
inline constexpr char kLater[] = "17 0D 3236313232323130303030305A";                 // 2026-12-22 10:00:00
inline constexpr char kAlgorithm[] = "30 08 06 06 2A8503020203";                     // GOST R 34.11-94 with GOST R 34.10-2001
inline constexpr char kSignature[] = "03 03 00 ABCD";

/// A CRL from the parts of its signed part, in order, as they are.
inline IdentObj MakeCrl(const std::vector<IdentObj>& signedParts) {
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Sequence([&] {
            for (const IdentObj& part : signedParts) writer.Raw(part);
        });
        writer.Raw(FromHexText(kAlgorithm));
        writer.Raw(FromHexText(kSignature));
    });
    return writer.Finish();
}

inline IdentObj Wrap(asnt::Tag tag, const std::vector<IdentObj>& parts) {
    asnt::Writer writer;
    writer.Constructed(tag, [&] {
        for (const IdentObj& part : parts) writer.Raw(part);
    });
    return writer.Finish();
}

inline IdentObj MakeEntry(const std::string& serialOctets) {
    const IdentObj serial = FromHexText(serialOctets);
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.IntegerOctets(serial);
        writer.Raw(FromHexText(kUpdate));
    });
    return writer.Finish();
}

/// An extension whose value is this DER.
inline IdentObj MakeExtension(const char* oid, const std::string& value) {
    return CNALCertExtension(oid, false, FromHexText(value)).WriteData();
}

/// A version 2 CRL with these entries and extensions.
inline CNAL_CRL_List ReadCrl(const std::vector<IdentObj>& entries, const std::vector<IdentObj>& extensions) {
    std::vector<IdentObj> parts;
    for (const char* part : {"020101", kAlgorithm, kName, kUpdate, kLater}) parts.push_back(FromHexText(part));
    if (!entries.empty()) parts.push_back(Wrap(asnt::tag::Sequence, entries));
    if (!extensions.empty()) parts.push_back(Wrap(asnt::tag::Context(0), {Wrap(asnt::tag::Sequence, extensions)}));
    const IdentObj der = MakeCrl(parts);
    CNAL_CRL_List crl;
    EXPECT_EQ(crl.ReadData(der.GetData(), der.GetSize()), der.GetSize());
    return crl;
}

}  // namespace nal_test
