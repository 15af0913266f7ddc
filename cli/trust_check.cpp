#include "cli/trust_check.h"

#include <unistd.h>

#include <algorithm>

#include "cli/describe.h"
#include "cli/interrupt.h"
#include "cli/kinds.h"
#include "cli/program.h"
#include "cli/stores.h"

namespace cli {
namespace {

struct FaultWord {
    DWORD bits;
    const char* words;
};

// Gravest first.
constexpr FaultWord kFaults[] = {
    {CERT_TRUST_IS_PARTIAL_CHAIN, "its issuer is not known here: the chain is not complete"},
    {CERT_TRUST_IS_UNTRUSTED_ROOT, "the root is not trusted (nal trust add, if it should be)"},
    {CERT_TRUST_IS_NOT_SIGNATURE_VALID, "its signature does not hold, or cannot be checked"},
    {CERT_TRUST_IS_REVOKED, "it was revoked"},
    {CERT_TRUST_IS_NOT_TIME_VALID, "it has expired, or is not valid yet"},
    {CERT_TRUST_INVALID_BASIC_CONSTRAINTS, "it must not issue certificates, or not at this depth"},
    {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, "it is not for this use"},
    {CERT_TRUST_IS_CYCLIC, "the chain runs in a circle"},
    {CERT_TRUST_REVOCATION_STATUS_UNKNOWN, "whether it was revoked is not known: there is no CRL of its issuer (nal crl import)"},
    {CERT_TRUST_IS_NOT_TIME_NESTED, "its validity is not nested in its issuer's"},
};

bool IsPartial(const CNALCertificateChain& chain) { return (chain.GetErrors() & CERT_TRUST_IS_PARTIAL_CHAIN) != 0; }

DWORD KnownErrors(const CNALCertificateChain& chain, const CNALChainElement& element) {
    if (!IsPartial(chain) || &element != &chain.m_elements.back()) return element.m_trustErrors;
    return element.m_cert.IsValidTime() ? 0 : CERT_TRUST_IS_NOT_TIME_VALID;
}

Json ElementJson(const CNALChainElement& element, DWORD errors) {
    Json json = CertificateSummary(Decoded(element.m_cert));
    json["faults"] = FaultWords(errors);
    if (element.m_crl.IsInitialized()) {
        const CNAL_CRL_List crl = DecodeCrl(EncodingOf(element.m_crl), "CRL");
        json["crl"] = {{"this_update", TimeJson(crl.m_info.m_thisUpdate)},
                       {"next_update", TimeJson(crl.m_info.m_nextUpdate)},
                       {"out_of_date", element.m_crl.GetCheckStatus() != 0}};
    } else {
        json["crl"] = nullptr;
    }
    return json;
}

}  // namespace

std::vector<std::string> FaultWords(DWORD trustErrors) {
    std::vector<std::string> words;
    for (const FaultWord& fault : kFaults) {
        if ((trustErrors & fault.bits) != 0) words.emplace_back(fault.words);
        trustErrors &= ~fault.bits;
    }
    for (const CTOOString& text : NALListTrustErrors(trustErrors)) words.push_back(text.str());
    return words;
}

DWORD KnownErrors(const CNALCertificateChain& chain) {
    if (!IsPartial(chain)) return chain.GetErrors();
    DWORD errors = CERT_TRUST_IS_PARTIAL_CHAIN;
    for (const CNALChainElement& element : chain.m_elements) errors |= KnownErrors(chain, element);
    return errors;
}

DWORD KnownErrors(DWORD trustErrors) { return (trustErrors & CERT_TRUST_IS_PARTIAL_CHAIN) != 0 ? CERT_TRUST_IS_PARTIAL_CHAIN : trustErrors; }

void HelpersOption::Define(Options& options) {
    options.Paths("--with", certificates, "Certificates of issuers that help to build chains; they are not trusted. May be given again");
    options.Paths("--crl", crls, "CRLs likewise. May be given again");
    options.Path("--store", store, "The store whose certificates and CRLs help, in the place of the user's own");
}

CNALCertStorage HelpersOption::Open() const {
    StoreOption option;
    option.path = store;
    const CNALCertStorage own = option.Open();
    if (certificates.empty() && crls.empty() && own.IsOpened()) {
        CNALCertStorage untrusted = own;
        untrusted.m_untrusted = 1;
        return untrusted;
    }
    std::vector<IdentObj> certificateBytes;
    std::vector<IdentObj> crlBytes;
    for (const CNALCertContext& certificate : AllCertificates(own)) certificateBytes.push_back(EncodingOf(certificate));
    for (const CNALCRLContext& crl : AllCrls(own)) crlBytes.push_back(EncodingOf(crl));
    ForAll(certificates, Kind::Certificate, [&](const std::string& name, const IdentObj& der) {
        const CNALX509Certificate certificate = DecodeCertificate(der, name);
        const std::string why = WhyNotKept(certificate);
        if (!why.empty()) {
            const std::string text = name + ": the certificate of " + TextOf(certificate.m_info.m_subject) + " " + why + ", so it does not help";
            WriteAll(STDERR_FILENO, "warning: " + Printable(text) + "\n");
        }
        certificateBytes.push_back(der);
    });
    ForAll(crls, Kind::Crl, [&](const std::string& name, const IdentObj& der) {
        CheckedCrl(der, name);
        crlBytes.push_back(der);
    });
    return MemoryStorage(certificateBytes, crlBytes);
}

Json ChainJson(const CNALCertificateChain& chain) {
    Json json;
    json["verdict"] = chain.GetErrors() == 0 ? "good" : NALGetCertTotalBitMaskExplaination(chain.GetErrors()).str();
    json["good"] = chain.GetErrors() == 0;
    json["faults"] = FaultWords(KnownErrors(chain));
    json["chain"] = Json::array();
    for (const CNALChainElement& element : chain.m_elements) json["chain"].push_back(ElementJson(element, KnownErrors(chain, element)));
    return json;
}

std::string ChainTree(const CNALCertificateChain& chain, bool colour) {
    std::string out;
    std::size_t depth = 0;
    // Bits of the chain alone are shown where it ends.
    DWORD ofChain = KnownErrors(chain);
    for (const CNALChainElement& element : chain.m_elements) ofChain &= ~KnownErrors(chain, element);
    for (auto element = chain.m_elements.rbegin(); element != chain.m_elements.rend(); ++element, ++depth) {
        const std::string indent = depth == 0 ? "" : std::string((depth - 1) * 3, ' ') + "└─ ";
        const std::string under(depth * 3 + 3, ' ');
        const CNALX509Certificate certificate = Decoded(element->m_cert);
        const DWORD errors = KnownErrors(chain, *element) | (depth == 0 ? ofChain : 0);
        out += indent + Coloured(Printable(TextOf(certificate.m_info.m_subject)), errors == 0 ? Colour::Good : Colour::Bad, colour) + "\n";
        const Json json = ElementJson(*element, errors);
        const auto day = [](const Json& time) { return time.is_null() ? std::string("-") : time.get<std::string>().substr(0, 10); };
        out += under + "serial " + SerialText(certificate.m_info.m_serialNumber) + ", valid " + day(json["not_before"]) + " to " + day(json["not_after"]) + "\n";
        if (!json["crl"].is_null()) {
            out += under + "CRL of " + day(json["crl"]["this_update"]) + (json["crl"]["out_of_date"] == true ? ", out of date" : "") + "\n";
        }
        for (const std::string& fault : FaultWords(errors)) out += under + Coloured("✗ " + fault, Colour::Bad, colour) + "\n";
    }
    return out;
}

CNALCertificateChain BuildChain(const CNALCertContext& certificate, CNALCertStorage& helpers) {
    CNALCertificateChain chain;
    if (!NALVerifyCertificate(certificate, chain, nullptr, &helpers)) FailWithLastError("building the chain", "");
    return chain;
}

bool IsCrlOf(const CNAL_CRL_List& crl, const CNALX509Certificate& issuer) {
    try {
        if (!(crl.m_info.m_issuer == issuer.m_info.m_subject)) return false;
    } catch (const XTOOStatus&) {
        return false;  // a name that does not decode is nobody's
    }
    CNALProvider provider;
    int status = 0;
    constexpr unsigned kVerifyOnly = 0xF0000000;
    if (!provider.Init(nullptr, nullptr, 2, kVerifyOnly, &status)) throw FaultOf(status, "opening the provider", "");
    return crl.CheckSignature(provider.GetProviderHandle(), issuer.m_info.m_publicKeyInfo, &status) == 1;
}

}  // namespace cli
