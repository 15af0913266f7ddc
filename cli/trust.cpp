// nal trust
#include <algorithm>
#include <set>

#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/files.h"
#include "cli/home.h"
#include "cli/interrupt.h"
#include "cli/kinds.h"
#include "cli/program.h"
#include "cli/secret.h"
#include "cli/stores.h"
#include "cli/trust_check.h"

namespace cli {
namespace {

std::string Digits(const std::string& text) {
    std::string digits;
    for (const char c : text) {
        if (c != ' ' && c != ':') digits += c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
    }
    return digits;
}

struct Add {
    std::string file;
    std::vector<std::string> crls;
    std::string fingerprint;
    bool yes = false;

    void Define(Options& o) {
        o.In("FILE", file, "The root's certificate, PEM or DER")->required();
        o.Paths("--crl", crls, "The root's CRL, which is stored with it. May be given again");
        o.Value("--fingerprint", fingerprint, "HEX", "The fingerprint that the key centre told you; when it is the certificate's, nothing is asked");
        o.Flag("-y,--yes", yes, "Does not ask. Whoever can change the file decides then what you trust");
        o.Note("Compare the fingerprint that is shown with the one that the administrator of the key centre reads out to you: whatever this root vouches for is trusted from then on.");
        o.Example("nal trust add root.cer --crl root.crl", "Trusts a root after you have compared its fingerprint");
    }

    Outcome Run(const Globals&) {
        const IdentObj der = ReadOne(file, Kind::Certificate);
        const std::string name = NameOf(file);
        const CNALX509Certificate certificate = DecodeCertificate(der, name);
        const CNALCertContext root = ContextOf(der, name);
        const std::string why = WhyNotKept(certificate);
        if (!why.empty()) throw Fault(kInput, name + ": the certificate " + why + ", so no store can keep it", "", TOO_E_CERT_REFUSED);
        if (root.GetCertificateType() != NAL_CERT_TYPE_ROOT) {
            throw Fault(kInput, name + " is not the certificate of a root: it is an authority's only if it says so and its issuer is itself",
                        "Certificates of other authorities come with trust lists, or go into the store: nal cert import.", TOO_E_CERT_REFUSED);
        }
        if (!root.IsValidSignature(root)) throw Fault(kCheckFailed, name + ": its signature does not hold", "It is forged or damaged; fetch it again.", TOO_E_BAD_SIGNATURE);
        if (!root.IsValidTime()) throw Fault(kCheckFailed, name + ": it has expired, or is not valid yet", "", TOO_E_EXPIRED);
        std::vector<IdentObj> lists;
        ForAll(crls, Kind::Crl, [&](const std::string& path, const IdentObj& bytes) {
            if (!IsCrlOf(CheckedCrl(bytes, path), certificate)) {
                throw Fault(kCheckFailed, path + " is not a CRL of this root, or its signature does not hold", "Fetch it again.", TOO_E_BAD_SIGNATURE);
            }
            lists.push_back(bytes);
        });
        const std::string print = NALGetFingerprint(der).str();
        Confirmed(certificate, print);
        ThrowIfInterrupted();
        CTOOFolder::MakeFolder(TrustFolder(), 0700);
        CNALCertStorage storage = OpenStore(TrustStorePath(), true);
        if (!storage.AddCertificate(root)) FailWithLastError("storing the root", TrustStorePath());
        RecordEffect("the root is trusted");
        for (const IdentObj& bytes : lists) {
            if (!storage.AddEncodetCRL(bytes, 0)) FailWithLastError("storing the CRL", TrustStorePath());
        }
        Outcome outcome;
        outcome.data = {{"trusted", CertificateSummary(certificate)}, {"fingerprint", print}, {"crls", lists.size()}};
        return outcome;
    }

    void Confirmed(const CNALX509Certificate& certificate, const std::string& print) const {
        if (!fingerprint.empty()) {
            if (Digits(fingerprint) == Digits(print)) return;
            throw Fault(kCheckFailed, "the fingerprint is not the one you gave; it is", "This is not the root that you were told of. Nothing was changed.",
                        TOO_E_CERT_REFUSED, {print});
        }
        const std::vector<std::string> about = {"subject      " + TextOf(certificate.m_info.m_subject),
                                                "serial       " + SerialText(certificate.m_info.m_serialNumber), "fingerprint  " + print};
        const char* question = "Is this the fingerprint that the key centre told you, and is this root to be trusted?";
        if (!yes && !Confirm(question, "--fingerprint HEX (or --yes)", about)) throw Fault(kUsage, "nothing was changed", "It was not confirmed.");
    }
};

struct List {
    void Define(Options& o) { o.Example("nal trust list", "The roots that are trusted"); }

    Outcome Run(const Globals&) {
        const CNALCertStorage storage = OpenStore(TrustStorePath(), false);
        Outcome outcome;
        outcome.data = {{"store", TrustStorePath()}, {"roots", Json::array()}};
        const std::list<CNALCRLContext> crls = AllCrls(storage);
        for (const CNALCertContext& context : AllCertificates(storage)) {
            const CNALX509Certificate certificate = Decoded(context);
            Json json = CertificateSummary(certificate);
            json["valid_now"] = static_cast<bool>(context.IsValidTime());
            json["fingerprint"] = NALGetFingerprint(EncodingOf(context)).str();
            CNALCRLContext crl;
            json["crl_until"] = storage.GetCrlFromStorage(context, crl) ? TimeJson(DecodeCrl(EncodingOf(crl), "CRL").m_info.m_nextUpdate) : Json();
            outcome.data["roots"].push_back(std::move(json));
        }
        if (outcome.data["roots"].empty()) outcome.text = "nothing is trusted yet: nal trust add\n";
        return outcome;
    }
};

struct Remove {
    std::string id;
    bool yes = false;

    void Define(Options& o) {
        o.Value("ID", id, "ID", "The beginning of the root's key identifier or serial number (four digits or more), or a part of its subject")->required();
        o.Flag("-y,--yes", yes, "Does not ask");
        o.Note("What this root vouches for is no longer trusted, the trust lists below it included. Its CRLs go with it.");
        o.Example("nal trust remove 'Old Root'", "Trusts a root no longer");
    }

    Outcome Run(const Globals&) {
        CNALCertStorage storage = OpenStore(TrustStorePath(), false);
        CNALCertContext root = SelectOne(storage, id, TrustStorePath());
        const CNALX509Certificate certificate = Decoded(root);
        if (!yes && !Confirm("No longer trust " + TextOf(certificate.m_info.m_subject) + "?", "--yes")) throw Fault(kUsage, "nothing was changed", "It was not confirmed.");
        std::list<CNALCRLContext> crls;
        for (const CNALCRLContext& crl : AllCrls(storage)) {
            if (IsCrlOf(DecodeCrl(EncodingOf(crl), "CRL"), certificate)) crls.push_back(crl);
        }
        if (!storage.DeleteCertificate(root)) FailWithLastError("removing the root", TrustStorePath());
        RecordEffect("the root is no longer trusted");
        for (CNALCRLContext& crl : crls) {
            if (!storage.DeleteCRL(crl)) FailWithLastError("removing a CRL of the root", TrustStorePath());
        }
        Outcome outcome;
        outcome.data = {{"removed", CertificateSummary(certificate)}, {"crls", crls.size()}};
        return outcome;
    }
};

struct Lists {
    void Define(Options& o) {
        o.Note("Shows the lists that the network delivered to the transport folder (d_station) and what is used of them. A trust list is used when a trusted root's signer signed it; an unsigned list helps to build chains and makes nothing trusted.");
        o.Example("nal trust lists", "Which lists are in use");
    }

    Outcome Run(const Globals&) {
        const std::string folder = RequireTransportFolder() + "/d_station";
        std::set<std::string> names;
        const auto add = [&](const std::string& place, const char* mask) {
            CTOOFindFile found(place, mask);
            for (CTOOString name; found.Next(name);) names.insert(name.str());
        };
        for (const char* mask : {"*_trl.p7s", "*.trl", "*_usr.p7b"}) add(folder, mask);
        add(TrustFolder(), "*_trl.p7s");
        Outcome outcome;
        outcome.data = {{"folder", folder}, {"lists", Json::array()}};
        bool good = true;
        for (const std::string& name : names) {
            const bool isSigned = name.find("_trl.p7s") != std::string::npos;
            const bool delivered = CTOOFile::Exists(folder + "/" + name);
            const CNALCertStorage list = m_VPN_TrustStorages.GetList(name);
            Json json = {{"name", name},
                         {"kind", isSigned ? "trust list" : name.find(".trl") != std::string::npos ? "unsigned list" : "users' list"},
                         {"delivered", delivered},
                         {"certificates", AllCertificates(list).size()},
                         {"crls", AllCrls(list).size()}};
            std::string state = !list.IsOpened() ? "not in use" : isSigned ? "accepted, trusted" : "in use, not trusted";
            if (isSigned && delivered) {
                const std::string accepted = TrustFolder() + "/" + name;
                const bool same = CTOOFile::Exists(accepted) && CTOOFile::ReadWhole(accepted) == CTOOFile::ReadWhole(folder + "/" + name);
                if (!same) {
                    good = false;
                    state = CTOOFile::Exists(accepted) ? "the delivered list was refused; the one accepted before is in use (NAL_LOG=1 tells why)"
                                                       : "the delivered list was refused (NAL_LOG=1 tells why)";
                }
            }
            json["state"] = state;
            outcome.data["lists"].push_back(std::move(json));
        }
        if (names.empty()) outcome.text = "no lists in " + Printable(folder) + "\n";
        outcome.exit = good ? kGood : kCheckFailed;
        return outcome;
    }
};

}  // namespace

void AddTrustCommands(Program& program) {
    program.Family("trust", "Trusted roots and trust lists", "The main trust storage holds the roots that you decided to trust. Trust lists that they vouch for come through the transport folder.");
    program.Command<Add>("trust", "add", "Trusts a root certificate");
    program.Command<List>("trust", "list", "Lists the roots that are trusted");
    program.Command<Remove>("trust", "remove", "Trusts a root no longer");
    program.Command<Lists>("trust", "lists", "Shows the lists that the network delivered");
}

}  // namespace cli
