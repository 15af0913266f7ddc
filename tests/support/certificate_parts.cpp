#include "support/certificate_parts.h"

#include <numeric>

namespace nal_test {

namespace {

IdentObj Run(unsigned char first, unsigned count) {
    IdentObj bytes;
    bytes.SetSize(count);
    std::iota(bytes.GetData(), bytes.GetData() + count, first);
    return bytes;
}

IdentObj Name(const std::vector<std::pair<const char*, std::string_view>>& attributes) {
    return Der([&](asnt::Writer& writer) {
        writer.Sequence([&] {
            for (const auto& [type, text] : attributes) {
                writer.Set([&] {
                    writer.Sequence([&] {
                        writer.Oid(type);
                        writer.Primitive(asnt::tag::Utf8String, asnt::View(text.data(), text.size()));
                    });
                });
            }
        });
    });
}

CNALGeneralName TextName(CNALGeneralName::Kind kind, std::string_view text) {
    return {kind, IdentObj(text.data(), static_cast<unsigned>(text.size()))};
}

}  // namespace

IdentObj CommonName(std::string_view text) {
    return Name({{"2.5.4.3", text}});
}

CertificateParts::CertificateParts()
    : version(Der([](auto& writer) { writer.Context(0, [&] { writer.Unsigned(2); }); })),
      serial(Der([](auto& writer) { writer.Integer(0xF1020304050607); })),
      innerAlgorithm(Der([](auto& writer) { writer.Sequence([&] { writer.Oid("1.2.643.2.2.3"); }); })),
      issuer(CommonName("Issuer")),
      validity(Der([](auto& writer) {
          writer.Sequence([&] {
              writer.Primitive(asnt::tag::UtcTime, asnt::View("260101000000Z", 13));
              writer.Primitive(asnt::tag::GeneralizedTime, asnt::View("20510101000000Z", 15));
          });
      })),
      subject(CommonName("Subject")),
      publicKeyInfo(Der([](auto& writer) {
          writer.Sequence([&] {
              writer.Sequence([&] {
                  writer.Oid("1.2.643.2.2.19");
                  writer.Sequence([&] {
                      writer.Oid("1.2.643.2.2.35.1");
                      writer.Oid("1.2.643.2.2.30.1");
                  });
              });
              IdentObj bits("", 1);
              const IdentObj key = Der([](auto& octets) { octets.OctetString(Run(0, 64)); });
              bits.Append(key.GetData(), key.GetSize());
              writer.Primitive(asnt::tag::BitString, std::move(bits));
          });
      })),
      outerAlgorithm(innerAlgorithm) {
    const IdentObj bits = Run(0x80, 64);
    signature = Der([&](auto& writer) { writer.BitString(bits); });
    SetExtensions({CNALSubjectKeyID(Run(0, 20)).ToExtension(c_NAL_OID_SUBJECT_KEY_ID, false)});
}

void CertificateParts::SetExtensions(const std::vector<CNALCertExtension>& extensions) {
    CNALCertExtensionList list;
    for (const auto& extension : extensions) list.Add(extension);
    optional = Der([&](auto& writer) { writer.Context(3, [&] { list.WriteData(writer); }); });
}

IdentObj CertificateParts::EncodeTbs() const {
    return Der([&](auto& writer) {
        writer.Sequence([&] {
            for (const IdentObj* part :
                 {&version, &serial, &innerAlgorithm, &issuer, &validity, &subject, &publicKeyInfo, &optional}) {
                writer.Raw(*part);
            }
        });
    });
}

IdentObj CertificateParts::Encode() const {
    return Der([&](auto& writer) {
        writer.Sequence([&] {
            writer.Raw(EncodeTbs());
            writer.Raw(outerAlgorithm);
            writer.Raw(signature);
        });
    });
}

IdentObj TypicalCertificate() {
    CertificateParts parts;
    parts.issuer = Name({{"2.5.4.6", "RU"},
                         {"2.5.4.8", "77 Москва"},
                         {"2.5.4.10", "ОАО «Доверие»"},
                         {"2.5.4.11", "Удостоверяющий центр"},
                         {"2.5.4.3", "Корневой сертификат"}});
    parts.subject = Name({{"2.5.4.6", "RU"},
                          {"2.5.4.8", "77 Москва"},
                          {"2.5.4.10", "ОАО «Рога и копыта»"},
                          {"2.5.4.3", "Остап Сулейман Берта-Мария-Бендер"},
                          {"1.2.840.113549.1.9.1", "bender@example.org"}});
    CNALIssuerPublicKeyID authority(Run(0x40, 20));
    authority.m_issuer.emplace_back(CNALGeneralName::DirectoryName, parts.issuer);
    authority.m_issuerSerial = Run(1, 16);
    CNALKeyUsage usage(CNALKeyUsage::DigitalSignature | CNALKeyUsage::NonRepudiation);
    CNALExtendedKeyUsage extended;
    extended.m_usages = {"1.3.6.1.5.5.7.3.2", "1.3.6.1.5.5.7.3.4"};
    CKeyUsagePeriod period;
    period.m_hasNotBefore = period.m_hasNotAfter = true;
    period.m_notBefore = {0, 0x01DC0000};
    period.m_notAfter = {0, 0x01DD0000};
    CNALAlternativeNames alternative;
    alternative.m_names = {TextName(CNALGeneralName::Rfc822Name, "bender@example.org"),
                           TextName(CNALGeneralName::DnsName, "host.example.org")};
    CNALCRLDistributionPoints points;
    points.m_points.emplace_back().m_fullName = {TextName(CNALGeneralName::Uri, "http://ca.example.org/crl/root.crl")};
    CNALCertificatePolicies policies;
    policies.m_policies.emplace_back().m_oid = "1.2.643.100.113.1";

    parts.SetExtensions({authority.ToExtension(c_NAL_OID_AUTHORITY_KEY_ID, false),
                         CNALBasicConstraints().ToExtension(c_NAL_OID_BASIC_CONSTRAINTS, true),
                         usage.ToExtension(c_NAL_OID_KEY_USAGE, true),
                         extended.ToExtension(c_NAL_OID_EXTENDED_KEY_USAGE, false),
                         period.ToExtension(c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD, false),
                         alternative.ToExtension(c_NAL_OID_SUBJECT_ALT_NAME, false),
                         points.ToExtension(c_NAL_OID_CRL_DISTRIBUTION_POINTS, false),
                         policies.ToExtension(c_NAL_OID_CERTIFICATE_POLICIES, false),
                         CNALSubjectKeyID(Run(0, 20)).ToExtension(c_NAL_OID_SUBJECT_KEY_ID, false)});
    return parts.Encode();
}

}  // namespace nal_test
