#include <array>
#include <utility>

#include "cli/describe.h"
#include "keycentre/issuing/times.h"
#include "keycentre/program/commands.h"
#include "nal/certificate.h"
#include "too/path.h"
#include "too/time.h"

namespace keycentre {
namespace {

struct Reason {
    unsigned code;
    const char* word;
};
// RFC 5280 section 5.3.1. "on hold" is left out: nothing here takes a certificate off a CRL again.
constexpr std::array<Reason, 7> kReasons = {{{0, "unspecified"},
                                             {1, "key-compromise"},
                                             {2, "ca-compromise"},
                                             {3, "affiliation-changed"},
                                             {4, "superseded"},
                                             {5, "cessation"},
                                             {9, "privilege-withdrawn"}}};

}  // namespace

void CentreOption::Define(cli::Options& options, bool withKeys) {
    options.Path("--centre", folder, "The key centre's folder; else \"keycentre\" in the home folder");
    if (withKeys) password.Define(options, "password");
}

std::string CentreOption::Folder() const { return folder.empty() ? storedev::MakeFullPath(TOOGetHomePath(), "keycentre").str() : folder; }

Centre CentreOption::Open() const {
    return cli::About(Folder(), [&] { return Centre(Folder()); });
}

void CentreOption::OpenKeys(Centre& centre) const {
    cli::Secret secret;
    cli::GetPassword(password, "Password of the key centre's keys", secret);
    cli::About(Folder(), [&] { centre.OpenKeys(secret.c_str()); });
}

IdentObj ParseSerial(const std::string& text) {
    IdentObj serial;
    const bool isHex = !text.empty() && text.find_first_not_of("0123456789ABCDEFabcdef ") == std::string::npos;
    if (!isHex || !TOOStr2Serial(text, serial)) {
        throw cli::Fault(cli::kUsage, "'" + text + "' is no serial number", "nal-keycentre list shows them.");
    }
    return serial;
}

CNALX509Name ParseName(const std::string& option, const std::string& text) {
    try {
        return Name(text);
    } catch (const XTOOStatus& status) {
        throw cli::Fault(cli::kUsage, option + ": " + status.GetText().str(), "A name looks like \"CN=Key centre, O=Works, C=RU\".", status.GetCode());
    }
}

unsigned ParseReason(const std::string& word) {
    std::string known;
    for (const Reason& reason : kReasons) {
        if (word == reason.word) return reason.code;
        known += (known.empty() ? "" : ", ") + std::string(reason.word);
    }
    throw cli::Fault(cli::kUsage, "'" + word + "' is no reason for a revocation", "Reasons are: " + known + ".");
}

const char* ReasonText(unsigned reason) {
    for (const Reason& known : kReasons) {
        if (known.code == reason) return known.word;
    }
    return "other";
}

std::string StandingOf(const CertificateRecord& record) {
    const CTOOFileTime now = Now();
    if (record.revoked) return "revoked";
    if (record.certificate.IsEmpty() && record.state == State::Reserved) return "being issued";
    if (now > record.notAfter) return "expired";
    return now < record.notBefore ? "not yet valid" : "valid";
}

cli::Json RecordJson(const CertificateRecord& record) {
    cli::Json json = {{"serial", SerialText(record.serial)},
                      {"name", record.name},
                      {"standing", StandingOf(record)},
                      {"not_before", cli::TimeJson(record.notBefore)},
                      {"not_after", cli::TimeJson(record.notAfter)},
                      {"key_fingerprint", record.key}};
    if (record.state == State::Issued) json["handed_over"] = false;
    if (record.entitled) json["entitled"] = true;
    if (record.revoked) {
        json["revoked"] = cli::TimeJson(*record.revoked);
        json["reason"] = ReasonText(record.reason);
    }
    if (!record.file.empty()) json["file"] = record.file;
    return json;
}

}  // namespace keycentre
