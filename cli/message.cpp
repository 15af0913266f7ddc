#include "cli/message.h"

#include "cli/describe.h"
#include "cli/kinds.h"

namespace cli {

MessageFile::MessageFile(const std::string& path, bool own) : m_file(path, true, own) {
    RequireMessage(m_file.Path(), m_file.Name(), Kind::SignedMessage);
    About(m_file.Name(), [&] {
        const CTOOFile file(m_file.Path(), "rb");
        m_message.ReadObject(file, 0, nullptr);
    });
}

IdentObj MessageFile::Bytes() const {
    return About(m_file.Name(), [&] { return CTOOFile::ReadWhole(m_file.Path(), static_cast<std::uint32_t>(kMostWhole)); });
}

void WriteMessage(CNALSignData& message, OutputFile& output) {
    About(output.Name(), [&] {
        CTOOWholeFile file(output.Path());
        message.WriteObject(file.GetFile(), 0);
        file.Commit();
    });
    output.Finish();
}

Json SignatureJson(const CNALMessageSignerInfo& info, std::size_t number) {
    int status = 0;
    const CTOOFileTime time = info.GetSigningDate(&status);
    // The identifier stands most significant byte first.
    IdentObj serial = info.serialNumber;
    for (unsigned i = 0; i < serial.GetSize() / 2; ++i) std::swap(serial.GetData()[i], serial.GetData()[serial.GetSize() - 1 - i]);
    return {{"number", number},
            {"signer_issuer", info.issuer.IsEmpty() ? Json() : Json(TextOf(info.issuer))},
            {"signer_serial", serial.IsEmpty() ? Json() : Json(SerialText(serial))},
            {"signer_key_id", info.subjectKeyIdentifier.IsEmpty() ? Json() : Json(Hex(info.subjectKeyIdentifier))},
            {"signing_time", TimeJson(time)},
            {"hash", AlgorithmJson(info.digestAlgorithm)["name"]},
            {"algorithm", AlgorithmJson(info.signatureAlgorithm)["name"]}};
}

}  // namespace cli
