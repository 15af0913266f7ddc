// nal crl
#include <algorithm>

#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/files.h"
#include "cli/home.h"
#include "cli/interrupt.h"
#include "cli/kinds.h"
#include "cli/program.h"
#include "cli/stores.h"
#include "cli/trust_check.h"

namespace cli {
namespace {

// The certificate in a storage that a CRL's signature holds under; empty when there is none.
CNALCertContext FindSigner(const CNALCertStorage& storage, const CNAL_CRL_List& crl) {
    std::list<CNALCertContext> candidates;
    IdentObj name = crl.m_info.m_issuer;
    const CERT_NAME_BLOB blob{name.GetSize(), name.GetData()};
    if (storage.IsOpened()) storage.FindCertList(candidates, CERT_FIND_SUBJECT_NAME, &blob);
    for (const CNALCertContext& candidate : candidates) {
        if (IsCrlOf(crl, Decoded(candidate))) return candidate;
    }
    return CNALCertContext();
}

struct Show {
    std::vector<std::string> files;
    std::size_t entries = 20;
    bool all = false;

    void Define(Options& o) {
        o.Ins("FILE", files, "CRLs, PEM or DER")->required();
        o.Value("--entries", entries, "N", "How many revoked certificates are listed; 20 unless given");
        o.Flag("--all", all, "Lists all of them");
        o.Example("nal crl show root.crl", "What a CRL says");
    }

    Outcome Run(const Globals&) {
        Outcome outcome;
        outcome.data = Json::array();
        ForAll(files, Kind::Crl, [&](const std::string& path, const IdentObj& der) {
            outcome.data.push_back({{"file", path}});
            outcome.data.back().update(CrlJson(DecodeCrl(der, NameOf(path)), all ? static_cast<std::size_t>(-1) : entries));
        });
        return outcome;
    }
};

struct Import {
    StoreOption store;
    std::vector<std::string> files;

    void Define(Options& o) {
        o.Ins("FILE", files, "CRLs, PEM or DER")->required();
        store.Define(o);
        o.Note("A CRL is kept beside its issuer: it is stored in each of the user's store and the main trust storage that holds the issuer. Its signature must hold under the issuer's key. An older one stays, but no longer counts.");
        o.Example("nal crl import root.crl", "Stores a new CRL");
    }

    Outcome Run(const Globals&) {
        struct Taken {
            std::string path;
            CNAL_CRL_List crl;
        };
        std::vector<Taken> taken;
        ForAll(files, Kind::Crl, [&](const std::string& path, const IdentObj& der) { taken.push_back({NameOf(path), CheckedCrl(der, NameOf(path))}); });
        std::vector<std::pair<std::string, CNALCertStorage>> storages = {{store.Path(), store.Open()}};
        if (TrustStorePath() != store.Path()) storages.emplace_back(TrustStorePath(), OpenStore(TrustStorePath(), false));
        storages.erase(std::remove_if(storages.begin(), storages.end(), [](const auto& one) { return !one.second.IsOpened(); }), storages.end());
        // Every one is checked before the first is stored.
        std::vector<std::vector<std::size_t>> places(taken.size());
        for (std::size_t i = 0; i < taken.size(); ++i) {
            for (std::size_t j = 0; j < storages.size(); ++j) {
                if (FindSigner(storages[j].second, taken[i].crl).IsInitialized()) places[i].push_back(j);
            }
            if (places[i].empty()) {
                throw Fault(kCheckFailed, taken[i].path + ": no certificate here issued this CRL: its issuer (" + TextOf(taken[i].crl.m_info.m_issuer) +
                                              ") is missing, or the signature does not hold",
                            "Import the issuer first (nal cert import, nal trust add), or fetch the CRL again.", TOO_E_BAD_SIGNATURE);
            }
        }
        ThrowIfInterrupted();
        Outcome outcome;
        outcome.data = {{"imported", Json::array()}};
        for (std::size_t i = 0; i < taken.size(); ++i) {
            Json json = {{"file", taken[i].path}};
            json.update(CrlJson(taken[i].crl, 0));
            json["stores"] = Json::array();
            for (const std::size_t j : places[i]) {
                if (!storages[j].second.AddEncodetCRL(taken[i].crl.WriteData(), 0)) FailWithLastError("storing the CRL", storages[j].first);
                RecordEffect(taken[i].path + " was stored in " + storages[j].first);
                json["stores"].push_back(storages[j].first);
            }
            outcome.data["imported"].push_back(std::move(json));
        }
        return outcome;
    }
};

struct List {
    StoreOption store;
    bool trust = false;

    void Define(Options& o) {
        store.Define(o);
        o.Flag("--trust", trust, "Those of the main trust storage instead");
        o.Example("nal crl list", "Lists the CRLs of the user's store");
    }

    Outcome Run(const Globals&) {
        const std::string path = trust ? TrustStorePath() : store.Path();
        Outcome outcome;
        outcome.data = {{"store", path}, {"crls", Json::array()}};
        Table table({"ISSUED", "NEXT", "REVOKED", "ISSUER"});
        for (const CNALCRLContext& context : AllCrls(trust ? OpenStore(path, false) : store.Open())) {
            Json json = CrlJson(DecodeCrl(EncodingOf(context), path), 0);
            json["out_of_date"] = context.GetCheckStatus() != 0;
            const auto day = [](const Json& time) { return time.is_null() ? std::string("-") : time.get<std::string>().substr(0, 10); };
            table.Row({day(json["this_update"]), day(json["next_update"]) + (json["out_of_date"] == true ? " (out of date)" : ""),
                       json["revoked_count"].dump(), json["issuer"]});
            outcome.data["crls"].push_back(std::move(json));
        }
        outcome.text = table.Empty() ? "no CRLs in " + Printable(path) + "\n" : table.Text(UseColour(1));
        return outcome;
    }
};

struct Check {
    std::string file;
    std::string issuerFile;
    std::vector<std::string> certificates;
    HelpersOption helpers;

    void Define(Options& o) {
        o.In("FILE", file, "The CRL, PEM or DER")->required();
        o.Path("--issuer", issuerFile, "The issuer's certificate, which is then taken as trusted; else it is sought in the trust storages and the store");
        o.Paths("--cert", certificates, "Certificates that are looked up in the CRL. May be given again");
        helpers.Define(o);
        o.Note("Good is a CRL whose signature holds under the key of an issuer that is trusted, that is in force now, and that lists none of the certificates given.");
        o.Example("nal crl check root.crl --cert ivan.cer", "Whether a CRL is good, and whether it revokes a certificate");
    }

    Outcome Run(const Globals&) {
        const CNAL_CRL_List crl = DecodeCrl(ReadOne(file, Kind::Crl), NameOf(file));
        CNALCertStorage extra = helpers.Open();
        CNALCertContext issuer;
        bool trusted = false;
        if (!issuerFile.empty()) {
            issuer = ContextOf(ReadOne(issuerFile, Kind::Certificate), issuerFile);
            trusted = true;
        } else {
            for (const CNALCertStorage& storage : m_VPN_TrustStorages.GetStorages(NAL_STORAGE_MAIN | NAL_STORAGE_TRUST_LIST | NAL_STORAGE_UNSIGNED_LIST | NAL_STORAGE_ALL_NETWORKS)) {
                if (!issuer.IsInitialized()) issuer = FindSigner(storage, crl);
            }
            if (!issuer.IsInitialized()) issuer = FindSigner(extra, crl);
        }
        Outcome outcome;
        Json faults = Json::array();
        Json& json = outcome.data = CrlJson(crl, 0);
        const bool signatureHolds = issuer.IsInitialized() && IsCrlOf(crl, Decoded(issuer));
        json["signature_holds"] = signatureHolds;
        if (!issuer.IsInitialized()) {
            faults.push_back("no certificate that is known here issued it: its issuer is missing, or the signature is forged");
        } else if (!signatureHolds) {
            faults.push_back("its signature does not hold under the issuer's key: it is forged or damaged");
        } else if (!trusted) {
            CNALCertificateChain chain = BuildChain(issuer, extra);
            // Whether the issuer itself was revoked is another question than whether this CRL is its.
            const DWORD errors = KnownErrors(chain) & ~CERT_TRUST_REVOCATION_STATUS_UNKNOWN;
            trusted = errors == 0;
            for (const std::string& words : FaultWords(errors)) faults.push_back("the issuer's certificate: " + words);
        }
        json["issuer_trusted"] = trusted && signatureHolds;
        const CTOOFileTime now = CTOOFileTime::Now();
        const CTOOFileTime next(crl.m_info.m_nextUpdate);
        if (CTOOFileTime(crl.m_info.m_thisUpdate) > now) faults.push_back("it is not in force yet");
        if (!next.IsZero() && next < now) faults.push_back("it is out of date: a newer one was due");
        json["certificates"] = Json::array();
        for (const std::string& path : certificates) {
            const CNALX509Certificate certificate = DecodeCertificate(ReadOne(path, Kind::Certificate), path);
            const bool isIssuers = certificate.m_info.m_issuer == crl.m_info.m_issuer;
            if (!isIssuers) throw Fault(kInput, path + " was issued by another than the CRL: " + TextOf(certificate.m_info.m_issuer), "Name the CRL of its issuer.");
            const bool revoked = crl.m_info.FindEntry(certificate.m_info.m_serialNumber) != CNAL_CRL_Info::npos;
            json["certificates"].push_back({{"file", path}, {"serial", SerialText(certificate.m_info.m_serialNumber)}, {"revoked", revoked}});
            if (revoked) faults.push_back(path + " was revoked");
        }
        json["faults"] = faults;
        json["good"] = faults.empty();
        json["verdict"] = faults.empty() ? "good" : signatureHolds ? "not good" : "NOT TO BE TRUSTED";
        outcome.exit = faults.empty() ? kGood : kCheckFailed;
        return outcome;
    }
};

}  // namespace

void AddCrlCommands(Program& program) {
    program.Family("crl", "Certificate revocation lists", "CRLs lie in files or, beside their issuers, in stores and the main trust storage.");
    program.Command<Show>("crl", "show", "Shows what CRLs say");
    program.Command<Import>("crl", "import", "Stores CRLs beside their issuers");
    program.Command<List>("crl", "list", "Lists the CRLs of a store");
    program.Command<Check>("crl", "check", "Checks a CRL: its signature, its issuer, its time");
}

}  // namespace cli
