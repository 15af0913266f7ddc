// revoke, entitle, list, export
#include <filesystem>

#include "cli/describe.h"
#include "cli/files.h"
#include "cli/interrupt.h"
#include "keycentre/program/commands.h"

namespace keycentre {
namespace {

struct Revoke {
    CentreOption centre;
    std::vector<std::string> serials;
    std::string reason = "unspecified";

    void Define(cli::Options& o) {
        o.Values("SERIAL", serials, "SERIAL", "Serial numbers of the certificates, as list shows them")->required();
        o.Value("--reason", reason, "WORD", "unspecified, key-compromise, ca-compromise, affiliation-changed, superseded, cessation or privilege-withdrawn");
        centre.Define(o, true);
        o.Note("Revokes the certificates and makes new CRLs. Hosts learn of it with the next publish, or from the answers.");
        o.Example("nal-keycentre revoke 4EC0B9642FC38A320000000712AB0000 --reason key-compromise", "Revokes a certificate whose key was stolen");
    }

    cli::Outcome Run(const cli::Globals&) {
        const unsigned code = ParseReason(reason);
        std::vector<IdentObj> numbers;
        for (const std::string& serial : serials)
            numbers.push_back(ParseSerial(serial));
        Centre opened = centre.Open();
        centre.OpenKeys(opened);
        return cli::About(centre.Folder(), [&] {
            const FolderLock lock = opened.Lock();
            cli::Outcome outcome;
            outcome.data = {{"revoked", cli::Json::array()}};
            try {
                for (const IdentObj& number : numbers) {
                    outcome.data["revoked"].push_back(RecordJson(opened.Revoke(number, code)));
                    cli::RecordEffect("the revocation of " + SerialText(number));
                }
            } catch (const XTOOStatus&) {
                // What is revoked by now goes onto the CRLs all the same, also if by a run that died before it made them.
                opened.MakeCrls();
                throw;
            }
            opened.MakeCrls();
            return outcome;
        });
    }
};

struct Entitle {
    CentreOption centre;
    std::string serial;
    bool withdraw = false;

    void Define(cli::Options& o) {
        o.Value("SERIAL", serial, "SERIAL", "Serial number of the certificate")->required();
        o.Flag("--withdraw", withdraw, "Takes the right away");
        centre.Define(o, false);
        o.Note("The holder of an entitled certificate vouches for other users: serve-folder answers what its second signature is on. The right stays with this one certificate; it does not pass to the one that renews it.");
        o.Example("nal-keycentre entitle 4EC0B9642FC38A320000000712AB0000", "Lets a clerk vouch for others");
    }

    cli::Outcome Run(const cli::Globals&) {
        const IdentObj number = ParseSerial(serial);
        Centre opened = centre.Open();
        return cli::About(centre.Folder(), [&] {
            const FolderLock lock = opened.Lock();
            cli::Outcome outcome;
            outcome.data = RecordJson(opened.Entitle(number, !withdraw));
            outcome.data["entitled"] = !withdraw;
            return outcome;
        });
    }
};

struct List {
    CentreOption centre;
    std::string pattern;
    std::string standing;
    bool waiting = false;

    void Define(cli::Options& o) {
        o.Value("TEXT", pattern, "TEXT", "Only certificates with this in their name, serial number or key's fingerprint");
        o.Value("--standing", standing, "WORD", "Only those that are valid, revoked, expired, \"not yet valid\" or \"being issued\"");
        o.Flag("--waiting", waiting, "First requests that wait for the operator, in the place of certificates");
        centre.Define(o, false);
        o.Example("nal-keycentre list Ivan", "Ivan's certificates");
        o.Example("nal-keycentre list --waiting", "What the operator has to look at");
        o.Example("nal-keycentre list --json --standing revoked | jq -r '.[].serial'", "For a script");
    }

    cli::Outcome Run(const cli::Globals&) {
        Centre opened = centre.Open();
        return cli::About(centre.Folder(), [&] { return waiting ? Waiting(opened) : Certificates(opened); });
    }

private:
    bool Fits(const std::string& text) const { return text.find(pattern) != std::string::npos; }

    cli::Outcome Certificates(Centre& opened) const {
        cli::Outcome outcome;
        outcome.data = cli::Json::array();
        cli::Table table({"SERIAL", "STANDING", "VALID UNTIL", "NAME"});
        opened.GetRecords().ForEach(false, [&](const CertificateRecord& record) {
            const std::string is = StandingOf(record);
            if (!Fits(record.name) && !Fits(SerialText(record.serial)) && !Fits(record.key)) return;
            if (!standing.empty() && standing != is) return;
            outcome.data.push_back(RecordJson(record));
            table.Row({SerialText(record.serial), record.entitled ? is + ", entitled" : is, CTOODateTime(CTOOFileTime(record.notAfter)).ToString().str(), record.name});
        });
        outcome.text = table.Empty() ? "no certificates\n" : table.Text(cli::UseColour(1));
        return outcome;
    }

    cli::Outcome Waiting(Centre& opened) const {
        cli::Outcome outcome;
        outcome.data = cli::Json::array();
        opened.GetRecords().ForEachWaiting([&](const WaitingRecord& record) {
            const std::string path = record.folder + "/d_station/" + record.file;
            if (!CTOOFile::Exists(path) || (!Fits(record.name) && !Fits(record.key))) return;
            outcome.data.push_back({{"request", path}, {"name", record.name}, {"key_fingerprint", record.key}, {"seen", cli::TimeJson(record.seen)}});
        });
        if (outcome.data.empty()) outcome.text = "no requests wait\n";
        return outcome;
    }
};

struct Export {
    CentreOption centre;
    std::string serial;
    std::string out;
    bool force = false;

    void Define(cli::Options& o) {
        o.Value("SERIAL", serial, "SERIAL", "Serial number of the certificate")->required();
        o.Out("OUT", out, "Where it goes, DER")->required();
        o.Flag("-f,--force", force, "Replaces a file that is there");
        centre.Define(o, false);
        o.Example("nal-keycentre export 4EC0B9642FC38A320000000712AB0000 ivan.cer", "Writes a certificate that was issued");
    }

    cli::Outcome Run(const cli::Globals&) {
        const IdentObj number = ParseSerial(serial);
        Centre opened = centre.Open();
        return cli::About(centre.Folder(), [&] {
            const auto record = opened.GetRecords().FindSerial(number);
            if (!record || record->certificate.IsEmpty()) throw XTOOStatus(TOO_E_NOT_FOUND, "no certificate has the serial number " + CTOOString(serial));
            cli::OutputFile output(out, force);
            output.Write(record->certificate);
            cli::Outcome outcome;
            if (!output.IsStandardOutput()) outcome.data = {{"serial", SerialText(number)}, {"file", out}};
            return outcome;
        });
    }
};

}  // namespace

void AddRecordCommands(cli::Program& program) {
    program.Command<Revoke>("", "revoke", "Revokes certificates");
    program.Command<Entitle>("", "entitle", "Lets a certificate's holder vouch for others");
    program.Command<List>("", "list", "Lists certificates, or requests that wait");
    program.Command<Export>("", "export", "Writes a certificate to a file");
}

}  // namespace keycentre
