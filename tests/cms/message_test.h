// What the tests of messages share: messages of several shapes, and every way to damage one.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nal/signed_data.h"
#include "support/cert_builder.h"
#include "support/certificate_parts.h"
#include "support/hex.h"
#include "support/status_of.h"

namespace nal_test {

/// Bytes from pairs of hexadecimal digits; blanks may stand anywhere.
inline IdentObj Hex(std::string digits) {
    std::erase(digits, ' ');
    const Bytes bytes = FromHex(digits);
    return {bytes.data(), static_cast<unsigned>(bytes.size())};
}

inline CNALAlgorithmIdentifier Algorithm(const char* oid) {
    CNALAlgorithmIdentifier algorithm;
    algorithm.m_algorithm = FromText(oid);
    return algorithm;
}

/// The offsets in `der` of the last octet of every length, that of constructed elements' inner ones included.
inline void FindLengths(asnt::View der, asnt::View part, std::vector<std::size_t>& offsets) {
    asnt::Reader reader(part);
    for (asnt::Element element; reader.TryNext(element);) {
        offsets.push_back(static_cast<std::size_t>(element.content.data - der.data) - 1);
        if (element.tag.IsConstructed()) FindLengths(der, element.content, offsets);
    }
}

/// Every shorter beginning of `der`, and `der` with each of its lengths one more and one less.
inline std::vector<IdentObj> Damaged(const IdentObj& der) {
    std::vector<IdentObj> result;
    for (unsigned size = 0; size < der.GetSize(); ++size) result.emplace_back(der.GetData(), size);
    std::vector<std::size_t> lengths;
    FindLengths(der, der, lengths);
    for (const std::size_t offset : lengths) {
        for (const int change : {-1, 1}) {
            IdentObj other = der;
            other.GetData()[offset] = static_cast<unsigned char>(other.GetData()[offset] + change);
            result.push_back(other);
        }
    }
    return result;
}

/// By issuer and serial number, with three signed attributes in an order that DER would change.
inline CNALMessageSignerInfo SignerByIssuer() {
    CNALMessageSignerInfo info;
    info.issuer = NameDer("Issuer");
    info.serialNumber = Hex("00F102");
    info.digestAlgorithm = Algorithm(c_NAL_OID_HASH_GOST94);
    info.signatureAlgorithm = Algorithm(c_NAL_OID_KEY_GOST2001);
    info.signature = Hex("0102030405");
    info.signedAttrs.Add(c_NAL_OID_SIGNING_TIME, Hex("17 0D 3236313132323130303030305A"));  // 2026-11-22 10:00:00
    info.signedAttrs.Add(c_NAL_OID_MESSAGE_DIGEST, Hex("04 04 DEADBEEF"));
    info.signedAttrs.Add(c_NAL_OID_CONTENT_TYPE, Hex("06 09 2A864886F70D010701"));
    return info;
}

inline CNALMessageSignerInfo SignerByKeyId() {
    CNALMessageSignerInfo info = SignerByIssuer();
    info.issuer = CNALX509Name();
    info.serialNumber.Clear();
    info.subjectKeyIdentifier = Filled(7);
    info.unsignedAttrs.Add("1.2.3.4", Hex("0500"));
    return info;
}

inline IdentObj BuildCert(const std::string& subject) {
    CertBuilder builder;
    builder.subject = subject;
    return builder.Build();
}

/// Two of everything; detached.
inline CNALSignData FullMessage() {
    CNALSignData message;
    message.version = 3;
    message.digestAlgorithms = {Algorithm(c_NAL_OID_HASH_PRIVATE), Algorithm(c_NAL_OID_HASH_GOST94)};
    message.certificates = {BuildCert("Second"), BuildCert("First")};
    message.crls = {CrlBuilder().Build(), Hex("A1 02 0500")};
    message.signerInfos = {SignerByKeyId().WriteData(nullptr), SignerByIssuer().WriteData(nullptr)};
    return message;
}

inline void ExpectEmpty(const CNALSignData& message) {
    EXPECT_EQ(message.version, 1);
    EXPECT_TRUE(message.digestAlgorithms.empty() && message.certificates.empty() && message.crls.empty());
    EXPECT_TRUE(message.signerInfos.empty() && !message.IsAttached());
    EXPECT_EQ(message.eContentType.GetID(), c_NAL_OID_DATA);
}

/// SignedData's elements after the version, as hexadecimal text, in a whole message.
inline IdentObj WrapBody(const std::string& body) {
    const IdentObj elements = Hex(body);
    return Der([&](asnt::Writer& writer) {
        writer.Sequence([&] {
            writer.Oid(c_NAL_OID_SIGNED_DATA);
            writer.Context(0, [&] {
                writer.Sequence([&] {
                    writer.Integer(1);
                    writer.Raw(elements);
                });
            });
        });
    });
}

}  // namespace nal_test
