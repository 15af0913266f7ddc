#include "keycentre/issuing/extensions.h"

#include <utility>

#include "keycentre/issuing/times.h"

namespace keycentre {
namespace {

void AddAuthorityKey(const Profile& profile, const IssuerFacts& issuer, CNALCertExtensionList& list) {
    if (profile.authorityKey == AuthorityKey::None) return;
    CNALIssuerPublicKeyID id(issuer.keyId);
    id.m_oldForm = profile.authorityKey == AuthorityKey::Old;
    if (profile.authorityKey != AuthorityKey::KeyId) {
        id.m_issuer = {CNALGeneralName(CNALGeneralName::DirectoryName, issuer.name)};
        id.m_issuerSerial = issuer.serial;
    }
    list.Add(id.ToExtension(id.m_oldForm ? c_NAL_OID_OLD_AUTHORITY_KEY_ID : c_NAL_OID_AUTHORITY_KEY_ID, false));
}

void AddConstraints(const Profile& profile, CNALCertExtensionList& list) {
    const auto has = [&](Constraints form) { return profile.constraints == form || profile.constraints == Constraints::Both; };
    if (has(Constraints::New)) {
        CNALBasicConstraints constraints;
        constraints.m_isCA = profile.isCa;
        constraints.m_hasPathLength = profile.pathLength.has_value();
        constraints.m_pathLength = profile.pathLength.value_or(0);
        list.Add(constraints.ToExtension(c_NAL_OID_BASIC_CONSTRAINTS, profile.constraintsCritical));
    }
    if (has(Constraints::Old)) {
        CNALOldBasicConstraints constraints;
        const unsigned char bits = profile.isCa ? 0x80 : 0x40;  // cA(0), endEntity(1)
        constraints.m_subjectType = CTOOCryptBitBlob(IdentObj(&bits, 1), profile.isCa ? 7 : 6);
        constraints.m_hasPathLength = profile.pathLength.has_value();
        constraints.m_pathLength = profile.pathLength.value_or(0);
        list.Add(constraints.ToExtension(c_NAL_OID_OLD_BASIC_CONSTRAINTS, false));
    }
}

void AddUsages(const Profile& profile, const FILETIME& notBefore, CNALCertExtensionList& list) {
    if (profile.keyUsage != 0) list.Add(CNALKeyUsage(profile.keyUsage).ToExtension(c_NAL_OID_KEY_USAGE, profile.keyUsageCritical));
    if (!profile.extendedUsage.empty()) {
        CNALExtendedKeyUsage usage;
        usage.m_usages = profile.extendedUsage;
        list.Add(usage.ToExtension(c_NAL_OID_EXTENDED_KEY_USAGE, false));
    }
    std::optional<Period> period = profile.privateKeyUsage;
    if (!period && profile.privateKeyMonths != 0) period = Period{notBefore, AddMonths(notBefore, profile.privateKeyMonths)};
    if (!period) return;
    CKeyUsagePeriod usage;
    usage.m_hasNotBefore = period->notBefore.has_value();
    usage.m_hasNotAfter = period->notAfter.has_value();
    usage.m_notBefore = period->notBefore.value_or(FILETIME{});
    usage.m_notAfter = period->notAfter.value_or(FILETIME{});
    list.Add(usage.ToExtension(c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD, false));
}

void AddNames(const std::vector<CNALGeneralName>& names, const char* oid, CNALCertExtensionList& list) {
    if (names.empty()) return;
    CNALAlternativeNames value;
    value.m_names = names;
    list.Add(value.ToExtension(oid, false));
}

void AddPolicies(const Profile& profile, CNALCertExtensionList& list) {
    if (profile.policies.empty()) return;
    CNALCertificatePolicies policies;
    for (const CTOOString& oid : profile.policies)
        policies.m_policies.push_back({oid, {}});
    list.Add(policies.ToExtension(c_NAL_OID_CERTIFICATE_POLICIES, false));
}

void AddCrlPoints(const Profile& profile, CNALCertExtensionList& list) {
    if (profile.crlUris.empty()) return;
    CNALCRLDistributionPoints points;
    for (const CTOOString& uri : profile.crlUris) {
        CNALCRLDistributionPoint point;
        point.m_fullName = {CNALGeneralName(CNALGeneralName::Uri, IdentObj(uri.data(), static_cast<unsigned>(uri.length())))};
        points.m_points.push_back(std::move(point));
    }
    list.Add(points.ToExtension(c_NAL_OID_CRL_DISTRIBUTION_POINTS, false));
}

}  // namespace

CNALCertExtensionList MakeExtensions(const Profile& profile, const IssuerFacts& issuer, const IdentObj& keyId,
                                     const FILETIME& notBefore) {
    CNALCertExtensionList list;
    AddAuthorityKey(profile, issuer, list);
    if (!profile.omitSubjectKeyId) {
        list.Add(CNALSubjectKeyID(profile.subjectKeyId.value_or(keyId)).ToExtension(c_NAL_OID_SUBJECT_KEY_ID, false));
    }
    AddConstraints(profile, list);
    AddUsages(profile, notBefore, list);
    AddNames(profile.subjectAltNames, profile.oldAltNames ? c_NAL_OID_OLD_SUBJECT_ALT_NAME : c_NAL_OID_SUBJECT_ALT_NAME, list);
    AddNames(profile.issuerAltNames, profile.oldAltNames ? c_NAL_OID_OLD_ISSUER_ALT_NAME : c_NAL_OID_ISSUER_ALT_NAME, list);
    AddPolicies(profile, list);
    AddCrlPoints(profile, list);
    for (const CNALCertExtension& extension : profile.extensions)
        list.Replace(extension);
    return list;
}

}  // namespace keycentre
