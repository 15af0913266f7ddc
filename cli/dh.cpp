// nal dh
#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/home.h"
#include "cli/interrupt.h"
#include "cli/program.h"

namespace cli {
namespace {

struct FileOption {
    std::string path;

    void Define(Options& o) {
        o.Path("--file", path, "The record file; CERTSEND.DAT in the transport folder, or else in the home folder, unless given");
    }
    std::string Path() const {
        if (!path.empty()) return path;
        const std::string folder = TransportFolder().empty() ? TOOGetHomePath().str() : TransportFolder();
        return folder + "/" + CNALRecFileDHCert::c_fileName;
    }
};

// NETWORK:HOST, four and eight hexadecimal digits; parts may be left out where records are sought.
struct PeerOption {
    std::string peer;
    std::string ownType;

    void Define(Options& o, bool required) {
        o.Value("--peer", peer, "NET:HOST", "The peer: its network's four and its host's eight hexadecimal digits, as 1A02:0000BEEF")->required(required);
        o.Value("--own", ownType, "TYPE", "The own network type, four characters");
    }

    SNALDHPeer Parse(bool whole) const {
        const std::size_t colon = peer.find(':');
        const auto isHex = [](const std::string& text) { return text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos; };
        SNALDHPeer parsed;
        const std::string network = peer.substr(0, colon);
        const std::string host = colon == std::string::npos ? "" : peer.substr(colon + 1);
        const auto fits = [&](const std::string& text, std::size_t size) { return isHex(text) && (text.size() == size || (text.empty() && !whole)); };
        if (!fits(network, 4) || !fits(host, 8)) UsageFault("--peer: '" + peer + "' is not NETWORK:HOST, four and eight hexadecimal digits");
        if (!ownType.empty() && ownType.size() != 4) UsageFault("--own: '" + ownType + "' has not four characters");
        parsed.m_colID = network;
        parsed.m_apID = host;
        parsed.m_ownType = ownType;
        return parsed;
    }
};

IdentObj KeyNumber(const std::string& text) {
    IdentObj number;
    if (!TOOHex2Bin(CTOOString(text), number) || number.IsEmpty() || number.GetSize() > CNALSendCertRecord::c_maxNumberKey) {
        UsageFault("'" + text + "' is not a key number: up to 32 bytes in hexadecimal");
    }
    return number;
}

Json RecordJson(const CNALSendCertRecord& record, long index) {
    Json marks = Json::array();
    if (record.IsWasKvit()) marks.push_back("acknowledged");
    if (record.IsReject()) marks.push_back("rejected");
    if (record.IsActual()) marks.push_back("actual");
    return {{"index", index},
            {"direction", record.IsIncoming() ? "received" : "sent"},
            {"own_type", record.ColTypeSlf().str()},
            {"peer", record.ColID().str() + ":" + record.ApID().str()},
            {"key_number", Hex(record.NumberKey())},
            {"sent", TimeJson(record.TimeSend())},
            {"received", TimeJson(record.TimeReceive())},
            {"file_name", record.NetFileName().str()},
            {"marks", marks}};
}

bool IsOf(const PeerOption& peer, const CNALSendCertRecord& record) {
    return (peer.peer.empty() && peer.ownType.empty()) || peer.Parse(false).Matches(record);
}

struct List {
    FileOption file;
    PeerOption peer;
    bool waiting = false;

    void Define(Options& o) {
        file.Define(o);
        peer.Define(o, false);
        o.Flag("--waiting", waiting, "Those that the peer has neither acknowledged nor rejected");
        o.Example("nal dh list --waiting", "Certificates that no answer came for");
    }

    Outcome Run(const Globals&) {
        const std::string path = file.Path();
        Outcome outcome;
        outcome.data = {{"file", path}, {"records", Json::array()}};
        if (!file.path.empty() || CTOOFile::Exists(path)) {
            CNALRecFileDHCert records(path.c_str(), CRecFile::c_read, CNALSendCertRecord::c_size);
            CNALSendCertRecord record;
            SENDCERT_RECORD image{};
            for (long index = 0; records.GetRecord(index, &image); ++index) {
                record = CNALSendCertRecord(&image);
                if (!IsOf(peer, record) || (waiting && (record.IsWasKvit() || record.IsReject() || record.IsIncoming()))) continue;
                outcome.data["records"].push_back(RecordJson(record, index));
            }
        }
        if (outcome.data["records"].empty()) outcome.text = "no records in " + Printable(path) + "\n";
        return outcome;
    }
};

struct Add {
    FileOption file;
    PeerOption peer;
    std::string key;
    std::string name;
    bool received = false;

    void Define(Options& o) {
        file.Define(o);
        peer.Define(o, true);
        o.Value("--key", key, "HEX", "The key number: the certificate's subject key identifier")->required();
        o.Flag("--received", received, "The certificate came from the peer; else it was sent to it");
        o.Value("--file-name", name, "NAME", "The name of the file that carried it through the network, at most 15 characters");
        o.Note("Records that a certificate was sent or received now. A repeated send of a certificate that waits for its answer updates its record.");
        o.Example("nal dh add --peer 1A02:0000BEEF --key 0440AB12", "Records a certificate that was sent");
    }

    Outcome Run(const Globals&) {
        const SNALDHPeer to = peer.Parse(true);
        if (name.size() > CNALSendCertRecord::c_maxNetFileName) UsageFault("--file-name: '" + name + "' is longer than 15 characters");
        const IdentObj number = KeyNumber(key);
        const std::string path = file.Path();
        CNALRecFileDHCert records(path.c_str());
        CNALSendCertRecord record(peer.ownType.empty() ? "0000" : peer.ownType.c_str(), to.m_colID.c_str(), CTOOFileTime::Now(), received ? long{c_NAL_DH_INCOMING} : 0L, number,
                                  name.c_str());
        record.ApID(to.m_apID.c_str());
        const long index = received ? records.AddOnRecieve(record) : records.AddOnSend(record);
        RecordEffect("the record was written");
        Outcome outcome;
        outcome.data = {{"file", path}, {"record", RecordJson(record, index)}};
        return outcome;
    }
};

struct Mark {
    FileOption file;
    PeerOption peer;
    std::string key;
    bool acknowledged = false;
    bool rejected = false;
    bool actual = false;
    bool received = false;

    void Define(Options& o) {
        file.Define(o);
        peer.Define(o, true);
        o.Value("--key", key, "HEX", "The key number")->required();
        CLI::Option* yes = o.Flag("--acknowledged", acknowledged, "The peer confirmed the certificate that was sent");
        CLI::Option* no = o.Flag("--rejected", rejected, "The peer will not use it");
        o.Flag("--actual", actual, "This key is the one in use");
        o.Flag("--received", received, "With --actual: of the certificates that came from the peer");
        yes->excludes(no);
        o.Example("nal dh mark --peer 1A02:0000BEEF --key 0440AB12 --acknowledged", "Records the peer's answer");
    }

    Outcome Run(const Globals&) {
        if (!acknowledged && !rejected && !actual) UsageFault("a mark is needed: --acknowledged, --rejected or --actual");
        if (received && (acknowledged || rejected)) UsageFault("--received goes with --actual alone: the peer answers to what was sent to it");
        const SNALDHPeer of = peer.Parse(true);
        const IdentObj number = KeyNumber(key);
        const std::string path = file.Path();
        CNALRecFileDHCert records(path.c_str(), CRecFile::c_write, CNALSendCertRecord::c_size);
        long marked = 0;
        if (acknowledged || rejected) marked = records.MarkRecipient(of, number, acknowledged ? c_NAL_DH_ACKNOWLEDGED : c_NAL_DH_REJECTED);
        if (actual) {
            CNALSendCertRecord pattern(peer.ownType.empty() ? "0000" : peer.ownType.c_str(), of.m_colID.c_str(), CTOOFileTime(), received ? long{c_NAL_DH_INCOMING} : 0L, number, "");
            pattern.ApID(of.m_apID.c_str());
            const auto filter = static_cast<CNALRecFileDHCert::EFilter>(
                CNALRecFileDHCert::c_byDirection | CNALRecFileDHCert::c_byPeerNetwork | CNALRecFileDHCert::c_byPeerHost | CNALRecFileDHCert::c_byKeyNumber |
                (peer.ownType.empty() ? CNALRecFileDHCert::c_any : CNALRecFileDHCert::c_byOwnType));
            const long index = records.FindRecord(filter, pattern);
            if (index >= 0 && records.MarkActual(index)) ++marked;
        }
        if (marked == 0) throw Fault(kInput, "there is no record of this key and peer in " + path, "nal dh list shows the records.", TOO_E_NOT_FOUND);
        RecordEffect(std::to_string(marked) + " record(s) were marked");
        Outcome outcome;
        outcome.data = {{"file", path}, {"marked", marked}};
        return outcome;
    }
};

}  // namespace

void AddDhCommands(Program& program) {
    program.Family("dh", "Records of Diffie-Hellman certificates", "Which key of this host went to which peer, which came from it, and what the peers answered.");
    program.Command<List>("dh", "list", "Lists the records");
    program.Command<Add>("dh", "add", "Records a certificate that was sent or received");
    program.Command<Mark>("dh", "mark", "Records a peer's answer, or the key in use");
}

}  // namespace cli
