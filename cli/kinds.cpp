#include "cli/kinds.h"

#include <algorithm>

#include "cli/files.h"
#include "cli/pem.h"

namespace cli {
namespace {

constexpr std::string_view kOidSignedData("\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02", 9);
constexpr std::string_view kOidEnvelopedData("\x2A\x86\x48\x86\xF7\x0D\x01\x07\x03", 9);

// Steps over elements of a beginning, whose contents may lie beyond its end.
class HeadReader {
public:
    explicit HeadReader(std::string_view rest) : m_rest(rest) {}

    // The next element's tag, or nothing but zero bits; steps inside or over it.
    asnt::Tag Enter() { return Next(true); }
    asnt::Tag Skip() { return Next(false); }
    asnt::Tag Peek() const { return HeadReader(m_rest).Next(true); }
    std::string_view Rest() const { return m_rest; }

private:
    asnt::Tag Next(bool inside) {
        asnt::Header header;
        const asnt::View view(m_rest.data(), m_rest.size());
        if (asnt::ParseHeader(view, asnt::Rules::Ber, header) != asnt::HeaderState::Read) {
            m_rest = {};
            return {};
        }
        const std::uint64_t step = header.size + (inside ? 0 : header.contentSize);
        m_rest.remove_prefix(static_cast<std::size_t>(std::min<std::uint64_t>(step, m_rest.size())));
        return header.tag;
    }

    std::string_view m_rest;
};

Kind MessageKind(std::string_view oid) {
    if (oid.substr(0, kOidSignedData.size()) == kOidSignedData) return Kind::SignedMessage;
    if (oid.substr(0, kOidEnvelopedData.size()) == kOidEnvelopedData) return Kind::EncryptedMessage;
    return Kind::OtherMessage;
}

// SEQUENCE { SEQUENCE { here ...
Kind SignedKind(HeadReader tbs) {
    const asnt::Tag first = tbs.Peek();
    if (first == asnt::tag::Context(0)) return Kind::Certificate;
    if (first == asnt::tag::Oid) return Kind::PublicKey;
    bool hasNumber = false;
    if (first == asnt::tag::Integer) {
        tbs.Skip();
        hasNumber = true;
    }
    HeadReader second = tbs;
    if (second.Enter() != asnt::tag::Sequence) return Kind::Unknown;
    if (hasNumber && second.Peek() == asnt::tag::Set) return Kind::Request;  // a name where an algorithm would stand
    if (second.Peek() != asnt::tag::Oid) return Kind::Unknown;
    tbs.Skip();  // algorithm
    tbs.Skip();  // issuer
    const asnt::Tag third = tbs.Peek();
    if (third == asnt::tag::UtcTime || third == asnt::tag::GeneralizedTime) return Kind::Crl;
    return third == asnt::tag::Sequence && hasNumber ? Kind::Certificate : Kind::Unknown;
}

Kind KindOfLabel(const std::string& label, const IdentObj& der) {
    const Kind found = KindOf({reinterpret_cast<const char*>(der.GetData()), der.GetSize()});
    if (found == Kind::Unknown && label.find("PRIVATE KEY") != std::string::npos) return Kind::PrivateKey;
    return found;
}

void AddFromMessage(const IdentObj& der, Kind wanted, const std::string& name, std::vector<IdentObj>& found) {
    CNALSignData message;
    About(name, [&] { message.ReadObject(der.GetData(), der.GetSize(), nullptr); });
    for (const IdentObj& item : wanted == Kind::Certificate ? message.certificates : message.crls) {
        if (KindOf({reinterpret_cast<const char*>(item.GetData()), item.GetSize()}) == wanted) found.push_back(item);
    }
}

const char* HintFor(Kind kind) {
    switch (kind) {
        case Kind::Certificate: return "See: nal help cert";
        case Kind::Crl: return "See: nal help crl";
        case Kind::Request: return "See: nal help request";
        case Kind::SignedMessage: return "See: nal help verify, nal help signatures";
        case Kind::EncryptedMessage: return "See: nal help decrypt";
        case Kind::Store: return "Name it with --store; see: nal help store";
        case Kind::Container: return "See: nal help container";
        default: return "Check that it is the file you mean.";
    }
}

}  // namespace

const char* TextOf(Kind kind) {
    switch (kind) {
        case Kind::Certificate: return "a certificate";
        case Kind::Crl: return "a CRL";
        case Kind::Request: return "a certification request";
        case Kind::SignedMessage: return "a signed message";
        case Kind::EncryptedMessage: return "an encrypted message";
        case Kind::OtherMessage: return "a message that is neither signed nor encrypted";
        case Kind::PublicKey: return "a public key";
        case Kind::PrivateKey: return "a private key";
        case Kind::Pkcs12: return "a PKCS #12 file";
        case Kind::Store: return "a certificate store";
        case Kind::Container: return "a key container";
        case Kind::Text: return "text";
        case Kind::Unknown: break;
    }
    return "something that nal does not know, or damaged";
}

Kind KindOf(std::string_view head) {
    if (head.substr(0, 8) == "NAL-KEYS") return Kind::Container;
    // The magic number of a Berkeley DB B-tree, in either byte order.
    const std::string_view magic = head.size() >= 16 ? head.substr(12, 4) : std::string_view();
    if (magic == std::string_view("\x62\x31\x05\x00", 4) || magic == std::string_view("\x00\x05\x31\x62", 4)) return Kind::Store;
    HeadReader reader(head);
    if (reader.Enter() != asnt::tag::Sequence) {
        const bool isText = !head.empty() && std::all_of(head.begin(), head.end(), [](char c) { return c >= ' ' || c == '\n' || c == '\r' || c == '\t'; });
        return isText ? Kind::Text : Kind::Unknown;
    }
    const asnt::Tag first = reader.Peek();
    if (first == asnt::tag::Oid) {
        reader.Enter();
        return MessageKind(reader.Rest());
    }
    if (first == asnt::tag::Integer) {
        reader.Skip();
        HeadReader second = reader;
        if (second.Enter() != asnt::tag::Sequence || second.Peek() != asnt::tag::Oid) return Kind::Unknown;
        reader.Skip();
        return reader.Peek() == asnt::tag::OctetString ? Kind::PrivateKey : Kind::Pkcs12;
    }
    if (first != asnt::tag::Sequence) return Kind::Unknown;
    reader.Enter();
    return SignedKind(reader);
}

std::vector<Piece> ReadPieces(const std::string& path) {
    const IdentObj bytes = ReadInput(path);
    const std::string_view text(reinterpret_cast<const char*>(bytes.GetData()), bytes.GetSize());
    const Kind whole = KindOf(text);
    // PEM may stand behind any amount of text about it.
    if ((whole != Kind::Text && whole != Kind::Unknown) || !LooksLikePem(text)) return {{whole, bytes}};
    std::vector<Piece> pieces;
    for (PemBlock& block : ReadPem(text, NameOf(path))) {
        const Kind kind = KindOfLabel(block.label, block.der);
        pieces.push_back({kind, std::move(block.der)});
    }
    return pieces;
}

void WrongKind(const std::string& name, Kind found, Kind wanted) {
    throw Fault(kInput, name + " is " + TextOf(found) + ", not " + TextOf(wanted), HintFor(found), TOO_E_BAD_STRUCTURE);
}

std::vector<IdentObj> ReadAll(const std::string& path, Kind wanted, bool fromMessages) {
    std::vector<IdentObj> found;
    for (Piece& piece : ReadPieces(path)) {
        if (piece.kind == wanted) {
            found.push_back(std::move(piece.der));
        } else if (piece.kind == Kind::SignedMessage && fromMessages) {
            AddFromMessage(piece.der, wanted, NameOf(path), found);
        } else {
            WrongKind(NameOf(path), piece.kind, wanted);
        }
    }
    if (found.empty()) throw Fault(kInput, NameOf(path) + " does not hold " + TextOf(wanted), "", TOO_E_NOT_FOUND);
    return found;
}

IdentObj ReadOne(const std::string& path, Kind wanted) {
    std::vector<IdentObj> found = ReadAll(path, wanted, false);
    if (found.size() > 1) {
        throw Fault(kInput, NameOf(path) + " holds " + std::to_string(found.size()) + " of them where one is wanted", "Split the file.");
    }
    return found.front();
}

void RequireMessage(const std::string& path, const std::string& name, Kind wanted) {
    const std::string head = ReadHead(path, 4096);
    if (head.empty()) throw Fault(kInput, name + " is empty", "", TOO_E_BAD_STRUCTURE);
    const Kind kind = KindOf(head);
    if (kind != wanted) WrongKind(name, kind, wanted);
}

}  // namespace cli
