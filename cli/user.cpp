#include "cli/user.h"

#include "cli/describe.h"
#include "cli/kinds.h"
#include "cli/program.h"
#include "cli/stores.h"

namespace cli {

void UserOption::Define(Options& options, bool required) {
    options.Value("-k,--key", container, "CONTAINER", "The key container: a name, or the path of its file")->required(required);
    DefineSecrets(options);
}

void UserOption::DefineSecrets(Options& options) {
    password.Define(options, "password");
    pin.Define(options, "pin");
}

CNALUserContainerInfo ContainerInfo(const std::string& container) {
    CNALUserContainerInfo info;
    int status = 0;
    CTOOString text;
    if (!NALGetContainerInfo(container, info, &status, &text)) throw FaultOf(status, text, "container " + container);
    return info;
}

Json ProtectionJson(DWORD protection) {
    Json list = Json::array();
    if ((protection & NAL_PROTECTED_PASSWORD) != 0) list.push_back("password");
    if ((protection & NAL_PROTECTED_PIN) != 0) list.push_back("PIN");
    if ((protection & NAL_PROTECTED_KEY) != 0) list.push_back("protection key");
    return list;
}

Json ContainerKeyJson(const CNALUserKeyInfo& key) {
    Json json = {{"type", "unknown"}};  // as it stays for a damaged key, which is no reason to show no other
    try {
        json["type"] = key.GetKeyType() == AT_SIGNATURE ? "signature" : key.GetKeyType() == AT_KEYEXCHANGE ? "exchange" : "unknown";
        const CNALCertPublicKeyInfo publicKey = key.GetPublicKey();
        json["key"] = KeyJson(publicKey);
        json["key_fingerprint"] = NALGetFingerprint(publicKey.WriteData()).str();
    } catch (const XTOOStatus&) {
        json["key"] = nullptr;
        json["key_fingerprint"] = nullptr;
    }
    json["created"] = TimeJson(key.m_created);
    json["certificate"] = key.m_certificate.IsInitialized() ? CertificateSummary(Decoded(key.m_certificate)) : Json();
    return json;
}

void OpenUser(CNALUser& user, const UserOption& option, Secret& password, Secret& pin) {
    const CNALUserContainerInfo info = ContainerInfo(option.container);
    const std::string name = "container " + option.container;
    if ((info.m_protection & NAL_PROTECTED_PASSWORD) != 0) GetPassword(option.password, "Password of " + name, password);
    if ((info.m_protection & NAL_PROTECTED_PIN) != 0) GetPassword(option.pin, "PIN of " + name, pin);
    const int status = user.LogInUser(option.container.c_str(), password.c_str(), pin.c_str(), false);
    if (status != TOO_OK) throw FaultOf(status, "opening it", name);
    if (!info.m_keys.empty() && !user.CheckPassword()) {
        throw Fault(kKeys, name + ": the password or PIN is wrong", "Nothing was changed; try again.", TOO_E_WRONG_PASSWORD);
    }
}

void OpenUser(CNALUser& user, const UserOption& option) {
    Secret password;
    Secret pin;
    OpenUser(user, option, password, pin);
}

CNALCertContext UserCertificate(const CNALUser& user, const std::string& id, bool forSigning) {
    std::list<CNALCertContext> all;
    int status = 0;
    CTOOString text;
    const std::string name = "container " + user.GetPath().str();
    if (!user.GetCertificateList(all, &status, &text)) throw FaultOf(status, text, name);
    const bool isFile = id == "-" || (!id.empty() && (CTOOFile::Exists(id) || id.find('/') != std::string::npos));
    const CNALCertContext wanted = isFile ? ContextOf(ReadOne(id, Kind::Certificate), id) : CNALCertContext();
    std::list<CNALCertContext> fit;
    std::vector<std::string> listing;
    for (const CNALCertContext& certificate : all) {
        const CNALX509Certificate decoded = Decoded(certificate);
        const bool fits = isFile ? certificate == wanted
                          : id.empty() ? !forSigning || NALCanSignByCert(certificate, false, CTOOFileTime())
                                       : Matches(decoded, id);
        listing.push_back(Hex(certificate.GetSubjectKeyId()) + "  " + TextOf(decoded.m_info.m_subject));
        if (fits) fit.push_back(certificate);
    }
    if (fit.size() == 1) return fit.front();
    // A certificate that is at hand, but not bound to its key here, will do.
    if (fit.empty() && isFile) return wanted;
    if (all.empty()) {
        throw Fault(kKeys, name + " has no certificate", "Ask for one with nal request new, and put it there with nal request install.", TOO_E_NOT_FOUND);
    }
    if (fit.empty()) {
        throw Fault(kKeys, name + " has no certificate " + (id.empty() ? "that may sign now" : "that matches '" + id + "'") + "; it has:",
                    id.empty() ? "Renew the key with nal request renew, or name a certificate with --cert." : "Name one of these with --cert.", TOO_E_NOT_FOUND,
                    listing);
    }
    throw Fault(kKeys, name + " has several certificates:", "Name one of these with --cert.", TOO_E_NOT_FOUND, listing);
}

}  // namespace cli
