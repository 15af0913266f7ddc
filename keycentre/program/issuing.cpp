// issue, serve-folder
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>

#include "cli/describe.h"
#include "cli/files.h"
#include "cli/interrupt.h"
#include "cli/kinds.h"
#include "keycentre/program/commands.h"
#include "keycentre/service/folder_service.h"
#include "nal/fingerprint.h"

namespace keycentre {
namespace {

/// A fingerprint without what people write between its digits.
std::string Digits(const std::string& text) {
    std::string digits;
    for (const char c : text) {
        if (c != ' ' && c != ':') digits += static_cast<char>(c >= 'a' && c <= 'f' ? c - 'a' + 'A' : c);
    }
    return digits;
}

struct Issue {
    CentreOption centre;
    std::string file;
    std::string out;
    std::string fingerprint;
    bool entitled = false;
    bool asCa = false;

    void Define(cli::Options& o) {
        o.Path("FILE", file, "The request")->required();
        o.Path("-o,--out", out, "Where the certificate goes; not needed for a request in a transport folder");
        o.Value("--fingerprint", fingerprint, "HEX", "The key's fingerprint as its holder told it; without it the program asks");
        o.Flag("--entitled", entitled, "The holder may vouch for other users' requests");
        o.Flag("--ca", asCa, "Makes the certificate of a subordinate authority");
        centre.Define(o, true);
        o.Note("Releases a request: shows it with the fingerprint of its key, asks, and issues. Compare the fingerprint with the one that the holder sees (nal request show) over a way that nobody can change, such as the telephone, before you say yes.");
        o.Note("A request that lies in a transport folder (d_station/o_users or e_users) is answered there, as serve-folder does it. A request that was answered before gets the same certificate again.");
        o.Example("nal-keycentre issue net/d_station/o_users/00000001_ownu.req", "Shows a user's first request, asks, and answers it");
        o.Example("nal-keycentre issue ivan.req -o ivan.cer --fingerprint \"0A1B2C3D ...\"", "Issues without a question when the fingerprint is this one");
    }

    cli::Outcome Run(const cli::Globals& globals) {
        Centre opened = centre.Open();
        const IdentObj encoded = cli::ReadOne(file, cli::Kind::Request);
        std::string name;
        Delivery kind = Delivery::File;
        const std::optional<TransportFolder> transport = out.empty() ? TransportFolder::Of(file, kind, name) : std::nullopt;
        if (!transport && out.empty()) cli::UsageFault("the request lies in no transport folder, so --out is needed", "Name the file for the certificate: -o ivan.cer");

        return cli::About(file, [&] {
            const Judgement seen = Look(opened, encoded);
            if (seen.verdict != Verdict::Answered) Ask(seen, globals);
            cli::ThrowIfInterrupted();
            centre.OpenKeys(opened);
            const CertificateRecord record = Answer(opened, encoded, transport, kind, name);
            cli::Outcome outcome;
            outcome.data = RecordJson(record);
            outcome.data["issued"] = seen.verdict == Verdict::Answered ? "earlier, and handed over again" : "now";
            outcome.data["answer"] = transport ? transport->GetAnswers(kind) : out;
            return outcome;
        });
    }

private:
    Judgement Look(Centre& opened, const IdentObj& encoded) const {
        Judge judge(opened);
        Judgement judgement = judge.Look(encoded, asCa);
        if (judgement.verdict == Verdict::Refused) {
            throw cli::Fault(cli::kCheckFailed, file + ": the request is refused: " + judgement.reason, "", TOO_E_CERT_REFUSED);
        }
        if (judgement.verdict == Verdict::Answered && judgement.earlier->revoked) {
            throw cli::Fault(cli::kCheckFailed, file + ": the request was answered with the certificate " + SerialText(judgement.earlier->serial) + ", which is revoked",
                             "The holder needs a new key and a new request.", TOO_E_REVOKED);
        }
        return judgement;
    }

    void Ask(const Judgement& seen, const cli::Globals& globals) const {
        cli::Json json = cli::RequestJson(seen.order.request);
        json["vouched_by"] = seen.voucher ? cli::Json(seen.voucher->name + ", " + SerialText(seen.voucher->serial)) : cli::Json("nobody: a first request");
        if (asCa) json["becomes"] = "a subordinate authority";
        if (entitled) json["becomes"] = "entitled to vouch for others";
        if (!globals.quiet) cli::WriteAll(STDERR_FILENO, cli::RenderText(json, cli::UseColour(STDERR_FILENO)));
        if (!fingerprint.empty()) {
            if (Digits(fingerprint) == Digits(seen.order.key)) return;
            throw cli::Fault(cli::kCheckFailed, file + ": the fingerprint of the key is another one: " + seen.order.key,
                             "Nothing was issued. Somebody may have put another request in the place of this one.", TOO_E_CERT_REFUSED);
        }
        if (!cli::Confirm("Is this the fingerprint that the holder told you, and is a certificate to be issued?", "--fingerprint")) throw cli::Stopped{};
    }

    CertificateRecord Answer(Centre& opened, const IdentObj& encoded, const std::optional<TransportFolder>& transport, Delivery kind, const std::string& name) const {
        const FolderLock lock = opened.Lock();
        opened.MakeDueCrls();
        Judgement judgement = Look(opened, encoded);  // as the records are now
        CertificateRecord record;
        if (judgement.verdict == Verdict::Answered) {
            record = *judgement.earlier;
        } else {
            Order& order = judgement.order;
            order.entitled = entitled;
            order.delivery = kind;
            order.folder = transport ? transport->GetPath() : "";
            order.file = transport ? name : std::filesystem::absolute(out).lexically_normal().string();
            record = opened.Issue({order}).front();
            cli::RecordEffect("the certificate " + SerialText(record.serial));
        }
        if (transport) {
            CertificateRecord here = record;
            here.delivery = kind;
            here.file = name;
            transport->Deliver(opened, {here});
            transport->MoveAnswered(here);
        } else {
            CTOOWholeFile::Store(out, record.certificate.GetData(), record.certificate.GetSize());
        }
        opened.SetAnswered({record});
        return record;
    }
};

struct ServeFolder {
    CentreOption centre;
    std::string folder;
    unsigned watch = 0;

    void Define(cli::Options& o) {
        o.Path("DIR", folder, "The transport folder")->required();
        o.Value("--watch", watch, "SECONDS", "Goes over the folder again and again, with this pause, until it is stopped")->check(CLI::Range(1U, 86400U));
        centre.Define(o, true);
        o.Note("Answers every request that is vouched for by the second signature of a certificate that this centre issued and did not revoke: for its own holder, or for others when it is entitled. Leaves first requests for \"issue\". Moves every other request to the folder \"refused\" beside it, with the reason.");
        o.Note("The exit code is 0 when every request was dealt with, 5 when one could not be read, answered or moved.");
        o.Example("nal-keycentre serve-folder /var/lib/vpn/net --password-file pw", "Goes over the folder once");
        o.Example("nal-keycentre serve-folder /var/lib/vpn/net --watch 10 --password-fd 3", "Serves it until it is stopped");
    }

    cli::Outcome Run(const cli::Globals& globals) {
        Centre opened = centre.Open();
        return cli::About(folder, [&] {
            const TransportFolder transport(folder);
            const bool print = !globals.json && !globals.quiet;
            centre.OpenKeys(opened);
            FolderService service(opened, transport, [&](const FolderEvent& event) {
                if (print || event.kind == FolderEvent::Failed) Print(event);
            });
            FolderTally all;
            do {
                Add(all, service.Run([] { return cli::Interrupted(); }));
            } while (watch != 0 && Pause());
            // To be stopped is how watching ends; one pass that was cut short says so.
            if (watch == 0) cli::ThrowIfInterrupted();
            cli::Outcome outcome;
            outcome.data = {{"answered", all.answered}, {"refused", all.refused + all.repeated}, {"repeated", all.repeated}, {"waiting", all.waiting},
                            {"arriving", all.arriving}, {"failed", all.failed}};
            outcome.exit = all.failed != 0 ? cli::kSystem : cli::kGood;
            return outcome;
        });
    }

private:
    static void Print(const FolderEvent& event) {
        static constexpr const char* kWords[] = {"answered", "refused", "waits for the operator", "refused", "failed"};
        const std::string name = event.name.empty() ? "" : " (" + event.name + ")";
        const bool isBad = event.kind == FolderEvent::Failed;
        cli::WriteAll(isBad ? STDERR_FILENO : STDOUT_FILENO, cli::Printable(event.file + name + ": " + kWords[event.kind] + ": " + event.text) + "\n");
    }

    static void Add(FolderTally& all, const FolderTally& pass) {
        all.answered += pass.answered;
        all.refused += pass.refused;
        all.repeated += pass.repeated;
        all.failed += pass.failed;
        all.waiting = pass.waiting;
        all.arriving = pass.arriving;
    }

    /// @return false when the operator stops the program
    bool Pause() const {
        const timespec time{static_cast<std::time_t>(watch), 0};
        return !cli::Interrupted() && ::nanosleep(&time, nullptr) == 0 && !cli::Interrupted();
    }
};

}  // namespace

void AddIssuingCommands(cli::Program& program) {
    program.Command<Issue>("", "issue", "Shows a request, asks, and issues the certificate");
    program.Command<ServeFolder>("", "serve-folder", "Answers the requests in a transport folder");
}

}  // namespace keycentre
