#include "cli/describe.h"

#include <cstdio>

namespace cli {
namespace {

std::string Wide(const std::wstring& text) { return CNALString(text).ToBytes().str(); }

template <class Value>
bool Read(Value& value, const CNALCertExtensionList& list, const char* oid, Json& damaged) {
    try {
        return value.ReadFrom(list, oid);
    } catch (const XTOOStatus&) {
        damaged.push_back(NALGetNameForOID(oid).str());
        return false;
    }
}

std::string TextOf(const CNALGeneralName& name) {
    const std::string bytes(reinterpret_cast<const char*>(name.m_value.GetData()), name.m_value.GetSize());
    switch (name.m_kind) {
        case CNALGeneralName::Rfc822Name: return "email:" + bytes;
        case CNALGeneralName::DnsName: return "DNS:" + bytes;
        case CNALGeneralName::Uri: return bytes;
        case CNALGeneralName::DirectoryName: return cli::TextOf(CNALX509Name(name.m_value));
        default: return "#" + Hex(name.m_value);
    }
}

Json NamesJson(const std::vector<CNALGeneralName>& names) {
    Json list = Json::array();
    for (const CNALGeneralName& name : names) list.push_back(TextOf(name));
    return list;
}

void AddConstraints(const CNALCertExtensionList& extensions, Json& json, Json& damaged) {
    CNALBasicConstraints constraints;
    CNALOldBasicConstraints old;
    if (Read(constraints, extensions, c_NAL_OID_BASIC_CONSTRAINTS, damaged)) {
        json["authority"] = constraints.m_isCA;
        if (constraints.m_hasPathLength) json["path_length"] = constraints.m_pathLength;
    } else if (Read(old, extensions, c_NAL_OID_OLD_BASIC_CONSTRAINTS, damaged)) {
        json["authority"] = old.IsCA();
        if (old.m_hasPathLength) json["path_length"] = old.m_pathLength;
    } else {
        json["authority"] = false;
    }
}

void AddKeyIds(const CNALCertExtensionList& extensions, Json& json, Json& damaged) {
    CNALSubjectKeyID own;
    json["key_id"] = Read(own, extensions, c_NAL_OID_SUBJECT_KEY_ID, damaged) ? Json(Hex(own.m_keyId)) : Json();
    CNALIssuerPublicKeyID issuer;
    try {
        json["issuer_key_id"] = issuer.ReadFrom(extensions) && !issuer.GetKeyID().IsEmpty() ? Json(Hex(issuer.GetKeyID())) : Json();
    } catch (const XTOOStatus&) {
        json["issuer_key_id"] = Json();
        damaged.push_back("authority key identifier");
    }
}

void AddRest(const CNALCertExtensionList& extensions, Json& json, Json& damaged) {
    CNALExtendedKeyUsage usages;
    if (Read(usages, extensions, c_NAL_OID_EXTENDED_KEY_USAGE, damaged)) {
        Json list = Json::array();
        for (const CTOOString& oid : usages.m_usages) list.push_back(NALGetNameForOID(oid).str());
        json["extended_usage"] = std::move(list);
    }
    CKeyUsagePeriod period;
    if (Read(period, extensions, c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD, damaged)) {
        if (period.m_hasNotBefore) json["key_not_before"] = TimeJson(period.m_notBefore);
        if (period.m_hasNotAfter) json["key_not_after"] = TimeJson(period.m_notAfter);
    }
    CNALAlternativeNames names;
    if (Read(names, extensions, c_NAL_OID_SUBJECT_ALT_NAME, damaged)) json["alternative_names"] = NamesJson(names.m_names);
    CNALCRLDistributionPoints points;
    if (Read(points, extensions, c_NAL_OID_CRL_DISTRIBUTION_POINTS, damaged)) {
        Json list = Json::array();
        for (const CNALCRLDistributionPoint& point : points.m_points) {
            for (const Json& name : NamesJson(point.m_fullName)) list.push_back(name);
        }
        json["crl_points"] = std::move(list);
    }
    CNALCertificatePolicies policies;
    if (Read(policies, extensions, c_NAL_OID_CERTIFICATE_POLICIES, damaged)) {
        Json list = Json::array();
        for (const CNALPolicyInformation& policy : policies.m_policies) list.push_back(policy.m_oid.str());
        json["policies"] = std::move(list);
    }
}

constexpr std::pair<unsigned, const char*> kUsages[] = {
    {CNALKeyUsage::DigitalSignature, "digital signature"},
    {CNALKeyUsage::NonRepudiation, "non-repudiation"},
    {CNALKeyUsage::KeyEncipherment, "key encipherment"},
    {CNALKeyUsage::DataEncipherment, "data encipherment"},
    {CNALKeyUsage::KeyAgreement, "key agreement"},
    {CNALKeyUsage::KeyCertSign, "certificate signing"},
    {CNALKeyUsage::CrlSign, "CRL signing"},
    {CNALKeyUsage::EncipherOnly, "encipher only"},
    {CNALKeyUsage::DecipherOnly, "decipher only"},
};

constexpr const char* kReasons[] = {"unspecified", "key compromise", "CA compromise", "affiliation changed", "superseded",
                                    "cessation of operation", "certificate hold", "", "removed from CRL", "privilege withdrawn",
                                    "attribute authority compromise"};

Json EntryJson(const CNAL_CRL_Entry& entry) {
    Json json = {{"serial", SerialText(entry.m_serialNumber)}, {"revoked", TimeJson(entry.m_revocationDate)}};
    CNALReasonCode reason;
    Json damaged = Json::array();
    if (Read(reason, entry.m_extensions, c_NAL_OID_REASON_CODE, damaged) && reason.m_reason < std::size(kReasons)) {
        json["reason"] = kReasons[reason.m_reason];
    }
    return json;
}

}  // namespace

std::string TextOf(const CNALX509Name& name) {
    try {
        std::wstring text;
        name.GetX500String(text, 0);
        return Wide(text);
    } catch (const XTOOStatus&) {
        return "#" + Hex(name);
    }
}

Json TimeJson(const FILETIME& time) {
    SYSTEMTIME t{};
    if (CTOOFileTime(time).IsZero() || !FileTimeToSystemTime(&time, &t)) return {};
    char text[48];
    std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02uZ", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond);
    return text;
}

std::string Hex(const IdentObj& bytes) { return TOOBin2Hex(bytes).str(); }

std::string SerialText(const IdentObj& serial) { return Serial2TOOStr(serial, false).str(); }

Json AlgorithmJson(const CNALAlgorithmIdentifier& algorithm) {
    const CTOOString oid = algorithm.GetID();
    return {{"oid", oid.str()}, {"name", NALGetNameForOID(oid).str()}};
}

Json KeyJson(const CNALCertPublicKeyInfo& key) {
    Json json = AlgorithmJson(key.m_algorithm);
    json["bits"] = key.GetKeyLength();
    try {
        CTOOString parameters;
        key.m_algorithm.GetParams(nullptr, &parameters, nullptr, nullptr);
        if (!parameters.empty()) json["parameters"] = NALGetNameForOID(parameters).str();
    } catch (const XTOOStatus&) {
        json["parameters"] = "#" + Hex(key.m_algorithm.m_parameters);
    }
    return json;
}

Json UsageJson(const CNALCertExtensionList& extensions) {
    Json list = Json::array();
    CNALKeyUsage usage;
    Json damaged = Json::array();
    if (!Read(usage, extensions, c_NAL_OID_KEY_USAGE, damaged)) return {};
    for (const auto& [flag, word] : kUsages) {
        if (usage.HasAny(flag)) list.push_back(word);
    }
    return list;
}

CNALX509Certificate DecodeCertificate(const IdentObj& der, const std::string& name) {
    return About(name, [&] {
        CNALX509Certificate certificate;
        certificate.DecodeCert(der);
        return certificate;
    });
}

CNAL_CRL_List DecodeCrl(const IdentObj& der, const std::string& name) {
    return About(name, [&] {
        CNAL_CRL_List crl;
        if (crl.ReadData(der.GetData(), der.GetSize()) != der.GetSize()) throw XTOOStatus(TOO_E_BAD_STRUCTURE, "bytes behind the CRL");
        return crl;
    });
}

CNAL_CRL_List CheckedCrl(const IdentObj& der, const std::string& name) {
    CNAL_CRL_List crl = DecodeCrl(der, name);
    About(name, [&] { NALCheckCRLKey(crl.m_info); });
    return crl;
}

CNALCertContext ContextOf(const IdentObj& der, const std::string& name) {
    return About(name, [&] { return CNALCertContext(der); });
}

Json CertificateJson(const CNALX509Certificate& certificate) {
    const CNALCertInfo& info = certificate.m_info;
    Json damaged = Json::array();
    Json json = {
        {"subject", TextOf(info.m_subject)},
        {"issuer", TextOf(info.m_issuer)},
        {"serial", SerialText(info.m_serialNumber)},
        {"not_before", TimeJson(info.m_notBefore)},
        {"not_after", TimeJson(info.m_notAfter)},
        {"version", info.m_version + 1},
        {"signature_algorithm", AlgorithmJson(certificate.m_signatureAlgorithm)["name"]},
        {"key", KeyJson(info.m_publicKeyInfo)},
    };
    AddKeyIds(info.m_extensions, json, damaged);
    AddConstraints(info.m_extensions, json, damaged);
    json["usage"] = UsageJson(info.m_extensions);
    AddRest(info.m_extensions, json, damaged);
    Json critical = Json::array();
    for (const CNALCertExtension& extension : info.m_extensions) {
        if (extension.m_critical) critical.push_back(NALGetNameForOID(extension.m_oid).str());
    }
    json["critical_extensions"] = std::move(critical);
    if (!damaged.empty()) json["damaged_extensions"] = std::move(damaged);
    json["fingerprint"] = NALGetFingerprint(certificate.m_encodedCertificate).str();
    return json;
}

Json CertificateSummary(const CNALX509Certificate& certificate) {
    const CNALCertInfo& info = certificate.m_info;
    Json damaged = Json::array();
    Json json = {{"subject", TextOf(info.m_subject)},
                 {"issuer", TextOf(info.m_issuer)},
                 {"serial", SerialText(info.m_serialNumber)},
                 {"not_before", TimeJson(info.m_notBefore)},
                 {"not_after", TimeJson(info.m_notAfter)}};
    AddKeyIds(info.m_extensions, json, damaged);
    json.erase("issuer_key_id");
    return json;
}

Json CrlJson(const CNAL_CRL_List& crl, std::size_t entries) {
    const CNAL_CRL_Info& info = crl.m_info;
    Json damaged = Json::array();
    Json json = {{"issuer", TextOf(info.m_issuer)},
                 {"this_update", TimeJson(info.m_thisUpdate)},
                 {"next_update", TimeJson(info.m_nextUpdate)},
                 {"signature_algorithm", AlgorithmJson(crl.m_signatureAlgorithm)["name"]}};
    AddKeyIds(info.m_extensions, json, damaged);
    json.erase("key_id");
    CNALCRLNumber number;
    json["number"] = Read(number, info.m_extensions, c_NAL_OID_CRL_NUMBER, damaged) ? Json(SerialText(number.m_number)) : Json();
    json["revoked_count"] = info.GetEntryCount();
    if (entries == 0) return json;
    Json list = Json::array();
    for (std::size_t i = 0; i < info.GetEntryCount() && i < entries; ++i) list.push_back(EntryJson(info.GetEntry(i)));
    json["revoked"] = std::move(list);
    return json;
}

Json RequestJson(const CNALPKCS10Request& request) {
    const CNALPKCS10Data& data = request.GetData();
    Json json = {{"subject", TextOf(data.m_subject)}, {"key", KeyJson(data.m_publicKey)}};
    try {
        json["usage"] = UsageJson(data.GetExtensions());
        CNALSecondSignature second;
        if (data.GetSecondSignature(second)) {
            json["signed_by"] = {{"issuer", TextOf(second.m_issuer)}, {"serial", SerialText(second.m_serialNumber)}, {"key_id", Hex(second.m_keyIdentifier)}};
        }
    } catch (const XTOOStatus&) {
        json["damaged_attributes"] = true;
    }
    json["key_fingerprint"] = NALGetFingerprint(data.m_publicKey.WriteData()).str();
    return json;
}

}  // namespace cli
