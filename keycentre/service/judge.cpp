#include "keycentre/service/judge.h"

#include <cstdio>
#include <utility>

#include "asnt/view.h"
#include "cli/terminal.h"
#include "keycentre/issuing/times.h"
#include "keycentre/service/wishes.h"
#include "nal/attributes.h"
#include "nal/fingerprint.h"
#include "nal/wide_string.h"
#include "ork/constants.h"
#include "ork/handles.h"
#include "too/status.h"

namespace keycentre {
namespace {

constexpr unsigned kMostNameBytes = 2048;
constexpr unsigned kIdentitySize = 16;
constexpr const char* kAlternativeNames[] = {c_NAL_OID_SUBJECT_ALT_NAME, c_NAL_OID_ISSUER_ALT_NAME, c_NAL_OID_OLD_SUBJECT_ALT_NAME,
                                             c_NAL_OID_OLD_ISSUER_ALT_NAME};

CNALCertInfo Decode(const IdentObj& certificate) {
    CNALX509Certificate decoded;
    decoded.DecodeCert(certificate);
    return decoded.m_info;
}

/// Whether a status is a failure of this machine and not of the request.
bool IsOurs(int status) { return status == TOO_E_NO_MEMORY || status == TOO_E_INTERNAL || status == TOO_E_NO_PROVIDER; }

/// The statuses of a signature check, for people.
void RequireSignature(int holds, int status, const char* which) {
    if (holds != 0) return;
    if (IsOurs(status)) throw XTOOStatus(status, "checking a signature");
    const std::string signature = std::string("its ") + which;
    if (status == TOO_E_BAD_SIGNATURE) throw Refusal{signature + " does not hold"};
    if (status == TOO_E_UNKNOWN_ALGORITHM) throw Refusal{signature + " is of an algorithm that is not known here"};
    throw Refusal{signature + " cannot be checked: " + TOOGetStatusText(status)};
}

}  // namespace

Judge::Judge(Centre& centre) : m_centre(centre) {
    m_provider.Init(nullptr, ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_VERIFY, nullptr);
    for (const AuthorityRecord& authority : centre.GetAuthorities())
        m_authorities.emplace_back(authority.role, Decode(authority.certificate));
}

Judgement Judge::Look(const IdentObj& encoded, bool asCa) {
    Judgement judgement;
    try {
        Read(encoded, judgement);
        if (auto earlier = m_centre.GetRecords().FindRequest(judgement.order.digest)) {
            judgement.earlier = std::move(earlier);
            judgement.verdict = Verdict::Answered;
            judgement.reason = "this request has its certificate already: " + SerialText(judgement.earlier->serial);
            return judgement;
        }
        CheckKey(judgement);
        CheckName(judgement);
        ReadIdentity(judgement);
        const CNALPKCS10Data& data = judgement.order.request.GetData();
        judgement.order.profile = GrantWishes(data.GetExtensions(), data.m_publicKey, asCa);
        CheckPeriod(judgement);
        FindVoucher(judgement);
        judgement.verdict = judgement.voucher ? Verdict::Vouched : Verdict::First;
    } catch (const Refusal& refusal) {
        judgement.verdict = Verdict::Refused;
        judgement.reason = refusal.reason;
    } catch (const XTOOStatus& status) {
        // What the model throws is about the request's encoding; the database and the provider fail with other statuses.
        if (status.GetCode() != TOO_E_BAD_STRUCTURE && status.GetCode() != TOO_E_NAME_DECODE) throw;
        judgement.verdict = Verdict::Refused;
        judgement.reason = std::string("a part of it does not decode (") + status.GetText().c_str() + ")";
    }
    return judgement;
}

void Judge::Read(const IdentObj& encoded, Judgement& judgement) const {
    if (encoded.IsEmpty()) throw Refusal{"the file is empty"};
    if (encoded.GetSize() > kMostBytes) throw Refusal{"the file is too large for a request"};
    CNALPKCS10Request& request = judgement.order.request;
    try {
        if (request.ReadData(encoded.GetData(), encoded.GetSize()) != encoded.GetSize()) throw Refusal{"there is something behind the request"};
    } catch (const XTOOStatus&) {
        throw Refusal{"it is no certification request, or only a part of one"};
    }
    judgement.order.digest = NALGetFingerprint(encoded).str();
    judgement.order.key = NALGetFingerprint(request.GetData().m_publicKey.WriteData()).str();
}

void Judge::CheckKey(const Judgement& judgement) const {
    const CNALPKCS10Request& request = judgement.order.request;
    ork::KeyHandle imported;
    if (!NALIportPKInfo(m_provider.GetProviderHandle(), request.GetData().m_publicKey, imported.Receive())) {
        throw Refusal{"its key is of a type that is not known here, or is not valid"};
    }
    int status = TOO_OK;
    const int holds = request.CheckSignature(m_provider.GetProviderHandle(), &status);
    RequireSignature(holds, status, "signature with its own key");
    if (const auto other = m_centre.GetRecords().FindKey(judgement.order.key)) {
        throw Refusal{"its key has a certificate already: " + SerialText(other->serial) + "; a new request needs a new key"};
    }
}

void Judge::CheckName(Judgement& judgement) const {
    const CNALX509Name& subject = judgement.order.request.GetData().m_subject;
    std::wstring text;
    std::list<std::list<CNALRDNAttr>> parts;
    try {
        subject.GetNameInfo(parts);
        subject.GetX500String(text, 0);
    } catch (const XTOOStatus&) {
        throw Refusal{"its name is empty or does not decode"};
    }
    judgement.order.name = CNALString(text).ToBytes().str();
    if (text.empty()) throw Refusal{"its name is empty"};
    if (subject.GetSize() > kMostNameBytes) throw Refusal{"its name is too long"};
    // Two names that look alike are two people to everybody but the eye that has to tell them apart.
    if (cli::Printable(judgement.order.name) != judgement.order.name) throw Refusal{"its name holds control or invisible characters"};
    for (const auto& [role, info] : m_authorities) {
        if (info.m_subject == subject) throw Refusal{"it asks for the name of one of the key centre's own authorities"};
    }
}

void Judge::ReadIdentity(Judgement& judgement) const {
    asnt::View value;
    if (!judgement.order.request.GetData().m_attributes.GetSingleValue(c_NAL_OID_REQUEST_IDENTITY, value)) return;
    asnt::Reader reader(value, "request identity");
    const asnt::View octets = reader.Octets();
    if (octets.size != kIdentitySize) throw Refusal{"its identity is not of 16 bytes"};
    const unsigned network = octets[2] | static_cast<unsigned>(octets[3]) << 8;
    if (network != 0 && network != m_centre.GetNetwork()) {
        char text[96];
        std::snprintf(text, sizeof text, "it comes from network %04x, and this key centre issues for %04x", network, m_centre.GetNetwork());
        throw Refusal{text};
    }
    judgement.order.number = octets[4] | octets[5] << 8 | octets[6] << 16 | static_cast<std::uint32_t>(octets[7]) << 24;
}

void Judge::CheckPeriod(const Judgement& judgement) const {
    const Profile& profile = judgement.order.profile;
    for (const auto& [role, info] : m_authorities) {
        if (role == m_centre.GetIssuingRole() && profile.notBefore && CTOOFileTime(*profile.notBefore) >= CTOOFileTime(info.m_notAfter)) {
            throw Refusal{"it asks for a key that begins when the certificate of the issuing authority is over"};
        }
    }
}

void Judge::FindVoucher(Judgement& judgement) {
    const CNALPKCS10Data& data = judgement.order.request.GetData();
    CNALSecondSignature second;
    if (!data.GetSecondSignature(second)) return;
    std::optional<CertificateRecord> voucher = m_centre.GetRecords().FindSerial(second.m_serialNumber);
    const CNALCertInfo* issuer = nullptr;
    for (const auto& [role, info] : m_authorities) {
        if (voucher && role == voucher->authority) issuer = &info;
    }
    // A reserved serial number is no certificate; nobody can have it but by a forgery.
    if (issuer == nullptr || voucher->certificate.IsEmpty() || !(static_cast<const IdentObj&>(issuer->m_subject) == second.m_issuer)) {
        throw Refusal{"its second signature is by a certificate that this key centre did not issue"};
    }
    const std::string which = SerialText(voucher->serial);
    const CNALCertInfo signer = Decode(voucher->certificate);
    CNALSubjectKeyID keyId;
    if (!keyId.ReadFrom(signer.m_extensions, c_NAL_OID_SUBJECT_KEY_ID) || keyId.m_keyId != second.m_keyIdentifier) {
        throw Refusal{"its second signature names another key identifier than the certificate " + which + " has"};
    }
    int status = TOO_OK;
    const int holds = data.CheckSecondSignature(m_provider.GetProviderHandle(), signer.m_publicKeyInfo, &status);
    RequireSignature(holds, status, "second signature");
    if (voucher->revoked) throw Refusal{"its second signature is by the certificate " + which + ", which is revoked"};
    const CTOOFileTime now = Now();
    if (now < signer.m_notBefore || now > signer.m_notAfter) {
        throw Refusal{"its second signature is by the certificate " + which + ", which is not valid now"};
    }
    CKeyUsagePeriod period;
    if (period.ReadFrom(signer.m_extensions, c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD) && period.m_hasNotAfter && now > period.m_notAfter) {
        throw Refusal{"its second signature is by the certificate " + which + ", whose key may not sign any more"};
    }
    CNALKeyUsage usage;
    if (usage.ReadFrom(signer.m_extensions, c_NAL_OID_KEY_USAGE) && !usage.HasAny(CNALKeyUsage::DigitalSignature | CNALKeyUsage::NonRepudiation)) {
        throw Refusal{"its second signature is by the certificate " + which + ", whose key is not for signing"};
    }
    judgement.voucher = std::move(voucher);
    judgement.order.voucher = judgement.voucher->id;
    CheckVouching(judgement);
}

void Judge::CheckVouching(const Judgement& judgement) const {
    const CertificateRecord& voucher = *judgement.voucher;
    if (voucher.entitled) return;
    const std::string which = SerialText(voucher.serial);
    // Byte for byte: what compares equal as names may still differ in a part that somebody else's name is told by.
    if (voucher.subject != judgement.order.request.GetData().m_subject) {
        throw Refusal{"the certificate " + which + " vouches for another name than its own, and is not entitled to"};
    }
    const CNALCertInfo signer = Decode(voucher.certificate);
    for (const char* oid : kAlternativeNames) {
        const CNALCertExtension* wanted = judgement.order.profile.extensions.FindExtension(oid);
        const CNALCertExtension* has = signer.m_extensions.FindExtension(oid);
        if (wanted != nullptr && (has == nullptr || wanted->m_value != has->m_value)) {
            throw Refusal{"the certificate " + which + " vouches for alternative names that are not its own, and is not entitled to"};
        }
    }
    CNALExtendedKeyUsage has;
    has.ReadFrom(signer.m_extensions, c_NAL_OID_EXTENDED_KEY_USAGE);
    for (const CTOOString& usage : judgement.order.profile.extendedUsage) {
        if (!has.Contains(usage.c_str())) {
            throw Refusal{"the certificate " + which + " vouches for the extended key usage " + usage.str() + ", which it does not have, and is not entitled to"};
        }
    }
}

}  // namespace keycentre
