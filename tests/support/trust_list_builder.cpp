#include "support/trust_list_builder.h"

#include <stdexcept>

#include "model/integer_order.h"
#include "nal/context.h"
#include "ork/csp.h"
#include "storage/signature_check.h"
#include "support/certificate_parts.h"

namespace nal_test {
namespace {

constexpr char kListType[] = "1.3.6.1.4.1.47474.2.3.1";
constexpr char kListUsage[] = "1.3.6.1.4.1.311.10.3.1";

CNALAlgorithmIdentifier HashAlgorithm() {
    CNALAlgorithmIdentifier algorithm;
    static_cast<CASNTIdData&>(algorithm) = CASNTIdData("1.2.643.2.2.9");
    return algorithm;
}

IdentObj DigestOf(const IdentObj& content) {
    const nal::ContextHandle provider = nal::OpenVerifyProvider();
    nal::HashHandle hash;
    IdentObj digest;
    if (!ORKCreateHash(provider.Get(), ORK_ALG_GOSTR3411, 0, hash.Receive(), 0) ||
        !ORKHashData(hash.Get(), content.GetData(), content.GetSize(), 0) ||
        !ORKGetHashParam(hash.Get(), ORK_HASH_PARAM_VALUE, digest)) {
        throw std::runtime_error("no hash");
    }
    return digest;
}

IdentObj SignerInfo(const TrustListBuilder& list, const IdentObj& content, const TestSigner& key) {
    CNALMessageSignerInfo info;
    info.subjectKeyIdentifier = CNALCertContext(list.signer).GetSubjectKeyId();
    info.digestAlgorithm = HashAlgorithm();
    const IdentObj digest = DigestOf(content);
    info.signedAttrs.Add("1.2.840.113549.1.9.3", Der([](asnt::Writer& w) { w.Oid(kListType); }));
    info.signedAttrs.Add("1.2.840.113549.1.9.4", Der([&](asnt::Writer& w) { w.OctetString(asnt::View(digest)); }));
    if (list.signingTime) info.signedAttrs.Add("1.2.840.113549.1.9.5", Der([&](asnt::Writer& w) { w.Time(*list.signingTime); }));
    const CNALSignedData made = key.SignBytes(info.GetBytesToSign());
    info.signatureAlgorithm = made.m_algorithm;
    info.signature = nal::ToProviderOrder(made.m_signature.m_data);
    return info.WriteData(nullptr);
}

}  // namespace

IdentObj TrustListBuilder::Build(const TestSigner& key) const {
    CNALSignData message;
    message.version = version;
    message.eContentType = CASNTIdData(kListType);
    message.eContent = Der([&](asnt::Writer& writer) {
        writer.Sequence([&] {
            writer.Integer(number);
            writer.GeneralizedTime(Date(2026, 3));
            for (const auto* part : {&certificates, &crls}) {
                writer.Sequence([&] {
                    for (const IdentObj& element : *part) writer.Raw(asnt::View(element));
                });
            }
        });
    });
    message.certificates = {signer};
    message.certificates.insert(message.certificates.end(), outside.begin(), outside.end());
    message.digestAlgorithms = {HashAlgorithm()};
    message.signerInfos = {SignerInfo(*this, message.eContent, key)};
    return message.WriteObject(nullptr);
}

BuiltExtension TrustListUsage() {
    return {"2.5.29.37", false, Der([](asnt::Writer& w) { w.Sequence([&] { w.Oid(kListUsage); }); })};
}

IdentObj UnsignedList(const std::vector<IdentObj>& certificates, const std::vector<IdentObj>& crls) {
    CNALSignData message;
    message.certificates = {certificates.begin(), certificates.end()};
    message.crls = {crls.begin(), crls.end()};
    return message.WriteObject(nullptr);
}

}  // namespace nal_test
