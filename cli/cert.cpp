// nal cert: show, import, export, list, find, delete
#include <map>

#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/files.h"
#include "cli/interrupt.h"
#include "cli/kinds.h"
#include "cli/program.h"
#include "cli/secret.h"
#include "cli/stores.h"
#include "cli/trust_check.h"

namespace cli {
namespace {

constexpr char kIdHelp[] =
    "The beginning of the key identifier or serial number (four digits or more), or a part of the subject";

struct Show {
    std::vector<std::string> files;

    void Define(Options& o) {
        o.Ins("FILE", files, "Certificates, PEM or DER, or messages that carry some")->required();
        o.Example("nal cert show ivan.cer", "Everything of one certificate");
        o.Example("nal cert show --json ivan.cer | jq -r '.[0].not_after'", "One field of it, for a script");
    }

    Outcome Run(const Globals&) {
        Outcome outcome;
        outcome.data = Json::array();
        ForAll(files, Kind::Certificate, [&](const std::string& path, const IdentObj& der) {
            outcome.data.push_back({{"file", path}});
            outcome.data.back().update(CertificateJson(DecodeCertificate(der, NameOf(path))));
        });
        return outcome;
    }
};

struct Import {
    StoreOption store;
    std::vector<std::string> files;

    void Define(Options& o) {
        o.Ins("FILE", files, "Certificates, PEM or DER, or messages that carry some")->required();
        store.Define(o);
        o.Note("All of them are stored, or none. A store holds one certificate a key identifier; one that takes another's place is reported. Nothing becomes trusted by this: see nal help trust.");
        o.Example("nal cert import ivan.cer ca.cer", "Stores two certificates");
    }

    Outcome Run(const Globals&) {
        std::list<CNALCertContext> certificates;
        ForAll(files, Kind::Certificate, [&](const std::string& file, const IdentObj& der) {
            const std::string name = NameOf(file);
            const std::string why = WhyNotKept(DecodeCertificate(der, name));
            if (!why.empty()) {
                throw Fault(kInput, name + ": the certificate " + why + ", so no store can keep it",
                            "Ask its issuer for one with a key identifier of 20 bytes.", TOO_E_CERT_REFUSED);
            }
            certificates.push_back(ContextOf(der, name));
        });
        const std::string path = store.Path();
        CNALCertStorage storage = OpenStore(path, true);
        Outcome outcome;
        outcome.data = {{"store", path}, {"imported", Json::array()}};
        struct Seen {
            CNALCertContext stored;  // what the store holds now, if any
            CNALCertContext certificate;
            std::size_t row;
        };
        std::map<std::string, Seen> kept;  // by key identifier: what the store will hold
        for (const CNALCertContext& certificate : certificates) {
            Json json = CertificateSummary(Decoded(certificate));
            const std::string id = Hex(certificate.GetSubjectKeyId());
            const auto earlier = kept.find(id);
            CNALCertContext stored;
            if (earlier != kept.end()) {
                stored = earlier->second.stored;
            } else {
                CRYPT_HASH_BLOB context{sizeof(CERT_CONTEXT), const_cast<BYTE*>(reinterpret_cast<const BYTE*>(certificate.GetContext()))};
                std::list<CNALCertContext> found;
                if (storage.FindCertList(found, CERT_FIND_EXISTING, &context)) stored = found.front();
            }
            const CNALCertContext before = earlier == kept.end() ? stored : earlier->second.certificate;
            const bool isThere = Is(before, certificate);
            const bool stays = isThere || Is(stored, certificate);
            json["result"] = stays ? "was there already" : before.IsInitialized() ? "replaced another certificate" : "new";
            if (before.IsInitialized() && !stays) json["replaced"] = CertificateSummary(Decoded(before));
            if (earlier != kept.end() && !isThere) outcome.data["imported"][earlier->second.row]["result"] = "replaced by a later one of this import";
            if (earlier == kept.end() || !isThere) kept.insert_or_assign(id, Seen{stored, certificate, outcome.data["imported"].size()});
            outcome.data["imported"].push_back(std::move(json));
        }
        ThrowIfInterrupted();
        std::list<CNALCertContext> fresh;  // one transaction
        for (const auto& [id, seen] : kept) {
            // What is there already keeps its properties, the place of its private key among them.
            if (!Is(seen.stored, seen.certificate)) fresh.push_back(seen.certificate);
        }
        if (fresh.empty()) return outcome;
        if (!storage.AddCertificateList(fresh)) FailWithLastError("storing certificates", path);
        RecordEffect(std::to_string(fresh.size()) + " certificate(s) were stored in " + path);
        return outcome;
    }

    static bool Is(const CNALCertContext& one, const CNALCertContext& other) { return one.IsInitialized() && one == other; }
};

struct Export {
    StoreOption store;
    std::string id;
    std::string output = "-";
    bool der = false;
    bool force = false;

    void Define(Options& o) {
        o.Value("ID", id, "ID", kIdHelp)->required();
        o.Out("-o,--output", output, "Where it is written; standard output unless given");
        o.Flag("--der", der, "Writes DER, not PEM");
        o.Flag("-f,--force", force, "Replaces a file that is there");
        store.Define(o);
        o.Example("nal cert export ivan -o ivan.pem", "Writes the certificate whose subject has \"ivan\" in it");
    }

    Outcome Run(const Globals& globals) {
        const std::string path = store.Path();
        RefuseJsonWith(output, globals);
        OutputFile file(output, force, der ? nullptr : "CERTIFICATE");
        const CNALCertContext certificate = SelectOne(store.Open(), id, path);
        file.Write(EncodingOf(certificate));
        Outcome outcome;
        if (output != "-") outcome.data = {{"output", output}, {"certificate", CertificateSummary(Decoded(certificate))}};
        return outcome;
    }
};

Json ListEntry(const CNALCertContext& context) {
    Json json = CertificateSummary(Decoded(context));
    const unsigned type = context.GetCertificateType();
    json["type"] = type == NAL_CERT_TYPE_ROOT ? "root" : type == NAL_CERT_TYPE_CA ? "authority" : "end";
    const std::string container = context.GetContainer().str();
    json["container"] = container.empty() ? Json() : Json(container);
    json["valid_now"] = static_cast<bool>(context.IsValidTime());
    return json;
}

Outcome ListOutcome(const std::string& path, const std::list<CNALCertContext>& certificates) {
    Outcome outcome;
    outcome.data = {{"store", path}, {"certificates", Json::array()}};
    Table table({"KEY ID", "VALID UNTIL", "TYPE", "KEY", "SUBJECT"});
    for (const CNALCertContext& context : certificates) {
        ThrowIfInterrupted();
        Json json = ListEntry(context);
        const std::string until = json["not_after"].is_null() ? "-" : json["not_after"].get<std::string>().substr(0, 10);
        table.Row({Hex(context.GetSubjectKeyId()).substr(0, 16), until + (json["valid_now"] == true ? "" : " (not valid)"), json["type"],
                   json["container"].is_null() ? "" : "yes", json["subject"]});
        outcome.data["certificates"].push_back(std::move(json));
    }
    return outcome.text = table.Empty() ? "no certificates in " + Printable(path) + "\n" : table.Text(UseColour(1)), outcome;
}

struct List {
    StoreOption store;

    void Define(Options& o) {
        store.Define(o);
        o.Example("nal cert list", "Lists the user's store");
    }

    Outcome Run(const Globals&) {
        const std::string path = store.Path();
        const CNALCertStorage storage = store.Open();  // open as long as properties are read
        return ListOutcome(path, AllCertificates(storage));
    }
};

struct Find {
    StoreOption store;
    std::string id;
    std::string issuer;
    int expiresWithin = -1;
    bool withKey = false;

    void Define(Options& o) {
        o.Value("ID", id, "ID", kIdHelp);
        o.Value("--issuer", issuer, "TEXT", "A part of the issuer's name");
        o.Value("--expires-within", expiresWithin, "DAYS", "Those that are valid now and will not be in so many days")->check(CLI::Range(0, 1000000));
        o.Flag("--with-key", withKey, "Those whose private key is in a container of ours");
        store.Define(o);
        o.Note("What fits all that is given is listed. Exit code 1 says that nothing fits.");
        o.Example("nal cert find --expires-within 30 --with-key", "What must be renewed within a month");
    }

    Outcome Run(const Globals&) {
        const std::string path = store.Path();
        std::list<CNALCertContext> fit;
        const CTOOFileTime limit(CTOOFileTime::Now().GetTicks() + static_cast<std::uint64_t>(std::max(expiresWithin, 0)) * CTOOFileTime::c_ticksPerDay);
        const CNALCertStorage storage = store.Open();  // likewise
        for (const CNALCertContext& context : AllCertificates(storage)) {
            const CNALX509Certificate certificate = Decoded(context);
            if (!id.empty() && !Matches(certificate, id)) continue;
            if (!issuer.empty()) {
                CNALX509Certificate asSubject;
                asSubject.m_info.m_subject = certificate.m_info.m_issuer;
                if (!Matches(asSubject, issuer)) continue;
            }
            if (expiresWithin >= 0 && (!context.IsValidTime() || CTOOFileTime(certificate.m_info.m_notAfter) > limit)) continue;
            if (withKey && context.GetContainer().empty()) continue;
            fit.push_back(context);
        }
        Outcome outcome = ListOutcome(path, fit);
        outcome.exit = fit.empty() ? kCheckFailed : kGood;
        return outcome;
    }
};

struct Delete {
    StoreOption store;
    std::string id;
    bool yes = false;

    void Define(Options& o) {
        o.Value("ID", id, "ID", kIdHelp)->required();
        o.Flag("-y,--yes", yes, "Does not ask");
        store.Define(o);
        o.Note("Takes one certificate out of a store, with what is kept beside it: where its private key is, too. The key itself stays in its container.");
        o.Example("nal cert delete 0A1B2C3D", "Deletes the certificate whose key identifier begins so");
    }

    Outcome Run(const Globals&) {
        const std::string path = store.Path();
        CNALCertStorage storage = store.Open();
        CNALCertContext certificate = SelectOne(storage, id, path);
        Json json = CertificateSummary(Decoded(certificate));
        if (!yes && !Confirm("Delete " + json["subject"].get<std::string>() + " from " + path + "?", "--yes")) {
            throw Fault(kUsage, "nothing was deleted", "It was not confirmed.");
        }
        if (!storage.DeleteCertificate(certificate)) FailWithLastError("deleting the certificate", path);
        RecordEffect(json["subject"].get<std::string>() + " was deleted from " + path);
        Outcome outcome;
        outcome.data = {{"store", path}, {"deleted", json}};
        return outcome;
    }
};

struct Verify {
    std::string certificate;
    HelpersOption helpers;
    bool ignoreMissingCrl = false;

    void Define(Options& o) {
        o.In("CERTIFICATE", certificate, "A file, PEM or DER, or an ID in the store")->required();
        helpers.Define(o);
        o.Flag("--no-crl-needed", ignoreMissingCrl, "That there is no CRL is no fault");
        o.Note("Builds the chain to a trusted root, checks every signature, validity and revocation on the way, and draws it as a tree, root first.");
        o.Example("nal cert verify ivan.cer", "Whether a certificate can be trusted, and if not, why");
        o.Example("nal cert verify ivan.cer --with ca.cer --crl ca.crl", "The same with the issuer's certificate and CRL at hand");
    }

    Outcome Run(const Globals&) {
        StoreOption store;
        store.path = helpers.store;
        const CNALCertContext context = CertificateArgument(certificate, store);
        if (ignoreMissingCrl) NALSetAplicationFlag(GetAplicationFlag() | NAL_APP_IGNORE_MISSING_CRL);
        CNALCertStorage extra = helpers.Open();
        const CNALCertificateChain chain = BuildChain(context, extra);
        Outcome outcome;
        outcome.data = {{"certificate", certificate}};
        outcome.data.update(ChainJson(chain));
        const bool good = chain.GetErrors() == 0;
        outcome.text = ChainTree(chain, UseColour(1)) + "\n" +
                       Coloured(good ? "good: it leads to a trusted root" : "NOT GOOD: " + outcome.data["verdict"].get<std::string>(), good ? Colour::Good : Colour::Bad, UseColour(1)) + "\n";
        outcome.exit = good ? kGood : kCheckFailed;
        return outcome;
    }
};

}  // namespace

void AddCertCommands(Program& program) {
    program.Family("cert", "Certificates", "Certificates lie in files or in a store. Where a certificate is asked for, a file is named, or an ID: the beginning of its key identifier or serial number, or a part of its subject.");
    program.Command<Show>("cert", "show", "Shows what certificates say");
    program.Command<Import>("cert", "import", "Puts certificates into a store");
    program.Command<Export>("cert", "export", "Writes a certificate of a store to a file");
    program.Command<List>("cert", "list", "Lists the certificates of a store");
    program.Command<Find>("cert", "find", "Finds certificates in a store");
    program.Command<Delete>("cert", "delete", "Takes a certificate out of a store");
    program.Command<Verify>("cert", "verify", "Verifies a certificate and draws its chain");
}

}  // namespace cli
