// nal request
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/files.h"
#include "cli/home.h"
#include "cli/interrupt.h"
#include "cli/program.h"
#include "cli/stores.h"
#include "cli/user.h"

namespace cli {
namespace {

const char* StatusWord(DWORD status) {
    switch (status) {
        case NAL_REQ_STATUS_MADE: return "made";
        case NAL_REQ_STATUS_SENT: return "sent";
        case NAL_REQ_STATUS_ACCEPTED: return "accepted";
        case NAL_REQ_STATUS_REFUSED: return "refused";
        case NAL_REQ_STATUS_RECEIVED: return "received";
        case NAL_REQ_STATUS_INSTALLED: return "installed";
        default: return "unknown";
    }
}

IdentObj BytesOf(const CRYPTOAPI_BLOB& blob) { return {blob.pbData, blob.cbData}; }

// The random half of the identity tells requests apart.
std::string IdOf(const NAL_REQ_CONTEXT& context) {
    const std::string all = Hex(BytesOf(context.Identity));
    return all.size() == 32 ? all.substr(16) : all;
}

CNALPKCS10Request Decode(const NAL_REQ_CONTEXT& context) {
    CNALPKCS10Request request;
    About("request " + IdOf(context), [&] { request.ReadData(context.Request.pbData, context.Request.cbData); });
    return request;
}

std::string ContainerOf(const NAL_REQ_CONTEXT& context) {
    return {reinterpret_cast<const char*>(context.Container.pbData), context.Container.cbData};
}

Json SummaryJson(const NAL_REQ_CONTEXT& context) {
    const CNALPKCS10Request request = Decode(context);
    return {{"id", IdOf(context)},
            {"status", StatusWord(context.dwStatus)},
            {"for", context.dwRequestType == NAL_REQ_TYPE_EXTERNAL ? "another user" : "oneself"},
            {"subject", TextOf(request.GetData().m_subject)},
            {"container", context.Container.cbData == 0 ? Json() : Json(ContainerOf(context))},
            {"made", TimeJson(CTOOFileTime(context.rgTime[NAL_REQ_TIME_MADE]))}};
}

Json DetailJson(const NAL_REQ_CONTEXT& context) {
    Json json = SummaryJson(context);
    json["request"] = RequestJson(Decode(context));
    Json history = Json::array();
    CNALReqHistory items;
    if (items.SetByContext(&context) == TOO_OK) {
        for (const CNALHistoryItem& item : items.m_items) history.push_back({{"status", StatusWord(item.m_status)}, {"time", TimeJson(item.m_time)}});
    }
    json["history"] = history;
    json["certificate"] = context.pCertificate == nullptr ? Json() : CertificateSummary(Decoded(CNALCertContext(context.pCertificate)));
    json["storage"] = context.pStorage == nullptr ? Json() : Json(context.pStorage->GetPath().str());
    return json;
}

// All requests of the transport folder, with their storages kept open.
class Requests {
public:
    Requests() {
        for (const CTOOString& path : NALGetReqStatusFile(RequireTransportFolder(), true, false, nullptr)) {
            unsigned long handle = 0;
            int status = 0;
            CTOOString text;
            if (!NALCertOpenReqStorage(CERT_STORE_PROV_FILENAME_A, path.c_str(), 0, &handle, &status, &text)) throw FaultOf(status, text, path.str());
            m_handles.push_back(handle);
            const NAL_REQ_CONTEXT* context = nullptr;
            while ((context = NALFindReqContextInStorage(handle, 0, nullptr, context)) != nullptr) {
                m_all.emplace_back(NALDuplicateReqContext(context));
            }
        }
    }
    ~Requests() {
        m_all.clear();
        for (const unsigned long handle : m_handles) NALCertCloseReqStore(handle, 0);
    }
    Requests(const Requests&) = delete;
    Requests& operator=(const Requests&) = delete;

    std::list<CNALCertReqContext>& All() { return m_all; }

    CNALCertReqContext& Select(const std::string& id) {
        CNALCertReqContext* found = nullptr;
        std::string wanted = id;
        for (char& c : wanted) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
        for (CNALCertReqContext& context : m_all) {
            if (IdOf(*context).compare(0, wanted.size(), wanted) != 0) continue;
            if (found != nullptr) throw Fault(kInput, "several requests have an ID that begins with " + id, "Give more digits of it.", TOO_E_NOT_FOUND);
            found = &context;
        }
        if (found == nullptr || wanted.empty()) throw Fault(kInput, "there is no request " + id, "nal request list shows the requests.", TOO_E_NOT_FOUND);
        return *found;
    }

private:
    std::list<unsigned long> m_handles;
    std::list<CNALCertReqContext> m_all;
};

// What asking for a new key has in common, whether for the first time or again.
struct KeyOptions {
    UserOption user;
    std::string algorithm;
    std::string parameters;
    unsigned months = NAL_REQUEST_MONTHS;
    std::string output;
    bool force = false;

    void Define(Options& o) {
        o.Value("-a,--algorithm", algorithm, "OID", "Of the new key: 1.2.643.2.2.19 (GOST R 34.10-2001), 1.2.643.2.2.98 (its exchange key), ...");
        o.Value("--parameters", parameters, "OID", "The parameter set of the new key");
        o.Value("--months", months, "N", "For how long the key is asked for; 12 unless given")->check(CLI::Range(1, 1200));
        o.Out("-o,--output", output, "Writes the request (PKCS #10, PEM) to a file as well");
        o.Flag("-f,--force", force, "Replaces a file that is there");
    }

    CTOOFileTime NotAfter() const {
        SYSTEMTIME time{};
        GetSystemTime(&time);
        AddMonthToTime(&time, static_cast<unsigned short>(months));
        FILETIME end{};
        SystemTimeToFileTime(&time, &end);
        return end;
    }

    // Before anything is made: a request whose output cannot be written would be asked for again, with another key.
    std::optional<OutputFile> OpenOutput() const {
        if (output.empty()) return std::nullopt;
        return std::optional<OutputFile>(std::in_place, output, force, "CERTIFICATE REQUEST");
    }

    Outcome Made(const CNALCertReqContext& context, std::optional<OutputFile>& target) {
        RecordEffect("request " + IdOf(*context) + " was made, with a key pair in container " + ContainerOf(*context));
        return Shown(context, target);
    }

    Outcome Shown(const CNALCertReqContext& context, std::optional<OutputFile>& target) {
        if (target) target->Write(BytesOf(context->Request));
        Outcome outcome;
        outcome.data = DetailJson(*context);
        if (output == "-") outcome.data = nullptr;
        return outcome;
    }
};

struct New : KeyOptions {
    std::string subject;
    std::vector<std::string> usages;
    std::string signer;
    std::string signerCertificate;
    PasswordSource signerPassword;
    PasswordSource signerPin;

    void Define(Options& o) {
        o.Value("-k,--key", user.container, "CONTAINER", "The container for the new key pair; one that is not there is made")->required();
        user.password.Define(o, "password", true);
        user.pin.Define(o, "pin");
        o.Value("-s,--subject", subject, "NAME", "Whose certificate it is to be: CN=Ivan Petrov, O=Works, C=RU")->required();
        o.Values("-u,--usage", usages, "USE", "sign or encrypt: what the certificate is to be for; both unless given. May be given again");
        KeyOptions::Define(o);
        o.Value("--signer", signer, "CONTAINER", "Asks for another user: the container of the user who answers for the request");
        o.Value("--signer-cert", signerCertificate, "CERT", "That user's certificate: a file, or an ID; needed when there are several");
        signerPassword.Define(o, "signer-password");
        signerPin.Define(o, "signer-pin");
        o.Note("Makes a key pair and a request for it, which the key centre takes from the transport folder. It issues a first certificate only after its operator has compared the key's fingerprint: read out the one that is shown here.");
        o.Example("nal request new -k ivan --subject 'CN=Ivan Petrov, O=Works, C=RU'", "Asks for a first certificate");
    }

    CNALCertInfo Template() const {
        CNALCertInfo info;
        try {
            info.m_subject.SetBy(CNALString(subject.c_str()).str(), CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG, true);
        } catch (const XTOOStatus& status) {
            throw Fault(kInput, "not a name: " + status.GetText().str(), "Write it as TYPE=value, TYPE=value; nal name checks one.", status.GetCode());
        }
        unsigned flags = 0;
        for (const std::string& usage : usages) {
            if (usage == "sign") flags |= CNALKeyUsage::DigitalSignature | CNALKeyUsage::NonRepudiation;
            else if (usage == "encrypt") flags |= CNALKeyUsage::KeyEncipherment | CNALKeyUsage::KeyAgreement;
            else UsageFault("--usage: '" + usage + "' is neither sign nor encrypt");
        }
        if (usages.empty()) flags = CNALKeyUsage::DigitalSignature | CNALKeyUsage::NonRepudiation | CNALKeyUsage::KeyEncipherment | CNALKeyUsage::KeyAgreement;
        info.m_extensions.Add(CNALKeyUsage(flags).ToExtension(c_NAL_OID_KEY_USAGE, true));
        if (!algorithm.empty() || !parameters.empty()) {
            info.m_publicKeyInfo.m_algorithm.SetParams(algorithm.empty() ? c_NAL_OID_KEY_GOST2001 : algorithm.c_str(), ParameterSet().c_str());
        }
        info.m_notBefore = CTOOFileTime::Now();
        info.m_notAfter = NotAfter();
        return info;
    }

    // The algorithm's usual set when none was given.
    std::string ParameterSet() const {
        if (!parameters.empty()) return parameters;
        try {
            const std::list<CTOOString> sets = NALGetSupportedParams(algorithm);
            if (!sets.empty()) return sets.front().str();
        } catch (const XTOOStatus&) {
            // said below
        }
        throw Fault(kInput, "'" + algorithm + "' is not the OID of a key algorithm", "1.2.643.2.2.19 is GOST R 34.10-2001.", TOO_E_UNKNOWN_ALGORITHM);
    }

    Outcome Run(const Globals&) {
        RequireTransportFolder();
        const CNALCertInfo info = Template();
        std::optional<OutputFile> target = OpenOutput();
        CNALUser signerUser;
        CNALCertContext signerContext;
        if (!signer.empty()) {
            UserOption option;
            option.container = signer;
            option.password = signerPassword;
            option.pin = signerPin;
            OpenUser(signerUser, option);
            signerContext = UserCertificate(signerUser, signerCertificate, true);
            signerUser.SetCertificate(signerContext);
        }
        CNALUser owner;
        const bool made = Open(owner);
        CNALCertReqContext context;
        const NAL_REQ_CONTEXT* raw = nullptr;
        int status = 0;
        CTOOString text;
        const CNALCertContext* signerArgument = signer.empty() ? nullptr : &signerContext;
        const unsigned type = signer.empty() ? NAL_REQ_TYPE_OWN : NAL_REQ_TYPE_EXTERNAL;
        if (!owner.CreateNewRequest(signerUser, signerArgument, info, type, &raw, &status, &text)) {
            owner.Reset();
            if (made) NALDeleteContainer(user.container, nullptr, nullptr);  // nothing is in it
            throw FaultOf(status, text, "container " + user.container);
        }
        context.Attach(raw);
        return Made(context, target);
    }

    // @return whether the container was made
    bool Open(CNALUser& owner) {
        CNALUserContainerInfo info;
        int status = 0;
        const bool isThere = NALGetContainerInfo(user.container, info, &status, nullptr);
        if (isThere && !info.m_keys.empty()) {
            OpenUser(owner, user);
            return false;
        }
        Secret password;
        Secret pin;
        GetNewPassword(user.password, "New password of container " + user.container, password);
        if (user.pin.IsGiven()) GetNewPassword(user.pin, "New PIN", pin);
        ThrowIfInterrupted();
        status = owner.LogInUser(user.container.c_str(), password.c_str(), pin.c_str(), !isThere);
        if (status != TOO_OK) throw FaultOf(status, "opening it", "container " + user.container);
        return !isThere;
    }
};

struct Renew : KeyOptions {
    std::string certificate;
    bool again = false;

    void Define(Options& o) {
        user.Define(o);
        o.Value("-c,--cert", certificate, "CERT", "The certificate to be renewed: a file, or an ID; needed when the container has several");
        KeyOptions::Define(o);
        o.Flag("--again", again, "Asks anew although a request waits for its answer");
        o.Note("Makes a new key pair and a request that the old key signs, which the key centre answers by itself. Algorithm and parameter set are those of the old key unless given. While a request for this certificate waits for its answer, that one is shown and no new key is made.");
        o.Example("nal request renew -k ivan", "Asks for the certificate that follows the present one");
    }

    // The request that asks for the certificate after this one and has no answer yet.
    static CNALCertReqContext* Waiting(Requests& requests, const CNALX509Certificate& old) {
        for (CNALCertReqContext& context : requests.All()) {
            if (context->dwStatus == NAL_REQ_STATUS_REFUSED || context->dwStatus == NAL_REQ_STATUS_INSTALLED) continue;
            CNALSecondSignature second;
            try {
                if (!Decode(*context).GetData().GetSecondSignature(second)) continue;
                if (second.m_serialNumber == old.m_info.m_serialNumber && second.m_issuer == old.m_info.m_issuer) return &context;
            } catch (const XTOOStatus&) {
                continue;
            }
        }
        return nullptr;
    }

    Outcome Run(const Globals& globals) {
        RequireTransportFolder();
        std::optional<OutputFile> target = OpenOutput();
        CNALUser owner;
        OpenUser(owner, user);
        const CNALCertContext old = UserCertificate(owner, certificate, false);
        const CNALX509Certificate decoded = Decoded(old);
        {
            Requests requests;
            CNALCertReqContext* waiting = Waiting(requests, decoded);
            if (waiting != nullptr && !again) {
                const std::string oid = DetailJson(**waiting)["request"]["key"]["oid"];
                if (!algorithm.empty() && algorithm != oid) {
                    throw Fault(kInput, "request " + IdOf(**waiting) + " waits for its answer, for a key of another algorithm (" + oid + ")",
                                "Wait for its answer, or ask anew with --again.", TOO_E_REQUEST_STATE);
                }
                const char* note = "this request was made before and waits for its answer; no new key was made";
                Outcome outcome = Shown(*waiting, target);
                if (output != "-") {
                    outcome.data["note"] = note;
                } else if (!globals.quiet) {
                    WriteAll(STDERR_FILENO, "note: " + std::string(note) + "\n");
                }
                return outcome;
            }
        }
        ThrowIfInterrupted();
        const NAL_REQ_CONTEXT* raw = nullptr;
        int status = 0;
        CTOOString text;
        if (!owner.UpdateKey(parameters, algorithm, CTOOFileTime(), NotAfter(), old, &raw, &status, &text)) {
            throw FaultOf(status, text, "container " + user.container);
        }
        CNALCertReqContext context;
        context.Attach(raw);
        return Made(context, target);
    }
};

struct List {
    void Define(Options& o) { o.Example("nal request list", "Every request of the transport folder"); }

    Outcome Run(const Globals&) {
        Requests requests;
        Outcome outcome;
        outcome.data = {{"transport", TransportFolder()}, {"requests", Json::array()}};
        Table table({"ID", "STATUS", "MADE", "FOR", "SUBJECT"});
        for (const CNALCertReqContext& context : requests.All()) {
            Json json = SummaryJson(*context);
            table.Row({json["id"], json["status"], json["made"].is_null() ? "-" : json["made"].get<std::string>().substr(0, 10), json["for"], json["subject"]});
            outcome.data["requests"].push_back(std::move(json));
        }
        outcome.text = table.Empty() ? "no requests in " + Printable(TransportFolder()) + "\n" : table.Text(UseColour(1));
        return outcome;
    }
};

struct Status {
    std::string id;

    void Define(Options& o) {
        o.Value("ID", id, "ID", "The beginning of the request's ID")->required();
        o.Example("nal request status 5A31", "What became of a request");
    }

    Outcome Run(const Globals&) {
        Requests requests;
        Outcome outcome;
        outcome.data = DetailJson(*requests.Select(id));
        return outcome;
    }
};

struct Install {
    std::string id;
    UserOption user;
    StoreOption store;

    void Define(Options& o) {
        o.Value("ID", id, "ID", "The beginning of one request's ID; every answer that came unless given");
        user.Define(o, false);
        store.Define(o);
        o.Note("Takes the key centre's answers out of the transport folder, verifies each certificate, binds it to its key in the container and puts it into the user's store, with its issuer and CRL. The container is the one that the request names unless --key names another.");
        o.Example("nal request install", "Installs what the key centre has answered");
    }

    Outcome Run(const Globals&) {
        std::list<CNALAnswerReport> reports;
        int status = 0;
        CTOOString text;
        NALTakeAnswers(RequireTransportFolder(), &reports, &status, &text);
        if (status != TOO_OK && reports.empty()) throw FaultOf(status, text, TransportFolder());
        Outcome outcome;
        outcome.data = {{"answers", Json::array()}, {"installed", Json::array()}};
        for (const CNALAnswerReport& report : reports) {
            if (report.m_status == TOO_OK && !report.m_isNew) continue;
            outcome.data["answers"].push_back({{"file", report.m_file.str()},
                                               {"serial", report.m_serial.IsEmpty() ? Json() : Json(SerialText(report.m_serial))},
                                               {"taken", report.m_status == TOO_OK},
                                               {"text", report.m_text.str()}});
            if (report.m_status == TOO_OK) RecordEffect("the answer with serial " + SerialText(report.m_serial) + " was taken");
        }
        Requests requests;
        bool any = false;
        const CNALCertReqContext* only = id.empty() ? nullptr : &requests.Select(id);
        for (CNALCertReqContext& context : requests.All()) {
            const bool wanted = only == nullptr ? context->dwStatus == NAL_REQ_STATUS_RECEIVED : &context == only;
            if (!wanted) continue;
            ThrowIfInterrupted();
            any = true;
            try {
                outcome.data["installed"].push_back(About("request " + IdOf(*context), [&] { return InstallOne(context); }));
            } catch (const Fault& fault) {
                // The others are installed all the same.
                outcome.faults.push_back(fault);
                outcome.data["failed"].push_back({{"id", IdOf(*context)}, {"message", fault.Message()}, {"hint", fault.Hint()}});
            }
        }
        // Refused answers have their report.
        if (outcome.faults.size() == 1 && outcome.data["installed"].empty() && status == TOO_OK) throw outcome.faults.front();
        if (!any && outcome.data["answers"].empty()) outcome.text = "nothing to install: no new answers in " + Printable(TransportFolder()) + "\n";
        if (status != TOO_OK) outcome.exit = kCheckFailed;  // an answer was refused
        return outcome;
    }

    Json InstallOne(CNALCertReqContext& context) {
        if (context->dwStatus != NAL_REQ_STATUS_RECEIVED) {
            throw Fault(kInput, "request " + IdOf(*context) + " has no answer to install: it is " + StatusWord(context->dwStatus), "", TOO_E_REQUEST_STATE);
        }
        UserOption option = user;
        if (option.container.empty()) option.container = ContainerOf(*context);
        if (option.container.empty()) throw Fault(kKeys, "request " + IdOf(*context) + " names no container", "Name it with --key.", TOO_E_NO_CONTAINER);
        CNALUser owner;
        OpenUser(owner, option);
        const CNALCertContext certificate(context->pCertificate);
        const CNALCertContext issuer(context->pIssuer);
        const CNALCRLContext crl(context->pCrl);
        const NAL_REQ_CONTEXT* raw = context.Detach();
        int status = 0;
        CTOOString text;
        const bool done = owner.PutCertificate(&raw, &status, &text);
        context.Attach(raw);
        if (!done) {
            if (status == TOO_E_REQUEST_STATE) {
                throw Fault(kCheckFailed, "the certificate of request " + IdOf(*context) + " does not verify: " + text.str(),
                            "Is the key centre's root trusted (nal trust list), and are its trust lists here (nal trust lists)?", status);
            }
            throw FaultOf(status, text, "container " + option.container);
        }
        RecordEffect("the certificate of request " + IdOf(*context) + " was installed");
        Store(owner, certificate, issuer, crl);
        return SummaryJson(*context);
    }

    // The user's store gets what helps to use the certificate, and where its key is.
    void Store(const CNALUser& owner, const CNALCertContext& certificate, const CNALCertContext& issuer, const CNALCRLContext& crl) const {
        const std::string path = store.Path();
        CNALCertStorage storage = OpenStore(path, true);
        std::list<CNALCertContext> bound;
        int status = 0;
        CNALCertContext withKey = certificate;
        if (owner.GetCertificateList(bound, &status, nullptr)) {
            const auto found = std::find(bound.begin(), bound.end(), certificate);
            if (found != bound.end()) withKey = *found;
        }
        std::list<CNALCertContext> all = {certificate};
        if (issuer.IsInitialized() && issuer.GetCertificateType() != NAL_CERT_TYPE_ROOT) all.push_back(issuer);
        if (!storage.AddCertificateList(all)) FailWithLastError("storing the certificate", path);
        const CRYPT_KEY_PROV_INFO* place = withKey.GetProviderInfo();
        if (place != nullptr) {
            std::list<CNALCertContext> stored;
            const CRYPT_HASH_BLOB blob{sizeof(CERT_CONTEXT), const_cast<BYTE*>(reinterpret_cast<const BYTE*>(certificate.GetContext()))};
            if (storage.FindCertList(stored, CERT_FIND_EXISTING, &blob)) stored.front().CNALSetContextProperty(2, 0, place);
        }
        if (crl.IsInitialized() && all.size() > 1) storage.AddEncodetCRL(EncodingOf(crl), 0);
    }
};

}  // namespace

void AddRequestCommands(Program& program) {
    program.Family("request", "Certificate requests", "Requests and their answers travel through the transport folder: name it once with nal settings --set-transport, or with --transport.");
    program.Command<New>("request", "new", "Makes a key pair and asks for its certificate");
    program.Command<Renew>("request", "renew", "Asks for the certificate that follows one");
    program.Command<List>("request", "list", "Lists the requests");
    program.Command<Status>("request", "status", "Shows what became of a request");
    program.Command<Install>("request", "install", "Takes the answers in and installs the certificates");
}

}  // namespace cli
