// nal encrypt, decrypt
#include <optional>

#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/files.h"
#include "cli/kinds.h"
#include "cli/progress.h"
#include "cli/program.h"
#include "cli/stores.h"
#include "cli/trust_check.h"
#include "cli/user.h"

namespace cli {
namespace {

constexpr char kExtension[] = ".p7m";
constexpr std::uint64_t kMostInMemory = 64ULL << 20;

WhatToSignStruct WholeFile(const InputFile& file) {
    WhatToSignStruct what;
    what.flags = c_NAL_CONTENT_IN_FILE;
    what.data = file.Path().c_str();
    what.end = c_NAL_TO_END_OF_FILE;
    return what;
}

struct Encrypt {
    std::string file;
    std::vector<std::string> recipients;
    std::string output;
    HelpersOption helpers;
    bool unchecked = false;
    bool ignoreMissingCrl = false;
    bool pem = false;
    bool force = false;

    void Define(Options& o) {
        o.In("FILE", file, "The content")->required();
        o.Values("-t,--to", recipients, "CERT", "A recipient's certificate: a file, or an ID in the store. May be given again")->required();
        o.Out("-o,--output", output, "Where the message goes; FILE with \".p7m\" behind it unless given");
        helpers.Define(o);
        o.Flag("--no-crl-needed", ignoreMissingCrl, "That there is no CRL is no fault");
        o.Flag("--unchecked", unchecked, "Encrypts for certificates that do not verify, too");
        o.Flag("--pem", pem, "Writes PEM, not DER");
        o.Flag("-f,--force", force, "Replaces a file that is there");
        o.Note("Each recipient's certificate must verify and its key usage must allow encryption. Encryption hides the content; it does not show changes of it: sign first (nal sign), then encrypt.");
        o.Example("nal encrypt report.pdf --to ivan.cer --to petr.cer", "Makes report.pdf.p7m, which both can read");
    }

    Outcome Run(const Globals& globals) {
        if (output.empty()) output = file == "-" ? "-" : file + kExtension;
        RefuseJsonWith(output, globals);
        OutputFile target(output, force, pem ? "CMS" : nullptr);
        if (ignoreMissingCrl) NALSetAplicationFlag(GetAplicationFlag() | NAL_APP_IGNORE_MISSING_CRL);
        std::list<CNALCertContext> certificates;
        Json list = Json::array();
        CNALCertStorage extra = helpers.Open();
        for (const std::string& recipient : recipients) {
            StoreOption store;
            store.path = helpers.store;
            certificates.push_back(CertificateArgument(recipient, store));
            CheckRecipient(recipient, certificates.back(), extra);
            list.push_back(CertificateSummary(Decoded(certificates.back())));
        }
        const InputFile content(file, false);
        if (content.Size() == 0) throw Fault(kInput, content.Name() + " is empty: there is nothing to encrypt", "", TOO_E_BAD_ARGUMENT);
        WhatToSignStruct what = WholeFile(content);
        int status = 0;
        {
            const Progress progress("encrypting " + content.Name(), globals);
            NALEncryptFile(what, certificates, target.Path().c_str(), &status);
        }
        if (status != TOO_OK) throw FaultOf(status, "encrypting", content.Name());
        target.Finish();
        Outcome outcome;
        if (output != "-") outcome.data = {{"output", output}, {"recipients", list}};
        return outcome;
    }

    void CheckRecipient(const std::string& name, const CNALCertContext& certificate, CNALCertStorage& extra) const {
        const CNALX509Certificate decoded = Decoded(certificate);
        CNALKeyUsage usage;
        const CNALCertExtension* extension = decoded.m_info.m_extensions.FindExtension(c_NAL_OID_KEY_USAGE);
        const unsigned encipher = CNALKeyUsage::KeyEncipherment | CNALKeyUsage::KeyAgreement;
        if (extension != nullptr && (!usage.TryRead(*extension) || !usage.HasAny(encipher))) {
            throw Fault(kCheckFailed, name + ": the key usage of this certificate does not allow to encrypt for it",
                        "Ask the recipient for the certificate that is meant for encryption.", TOO_E_CERT_REFUSED);
        }
        if (unchecked) return;
        const CNALCertificateChain chain = BuildChain(certificate, extra);
        if (chain.GetErrors() == 0) return;
        throw Fault(kCheckFailed, name + ": the certificate does not verify:", "nal cert verify shows the chain; --unchecked encrypts all the same.",
                    TOO_E_UNTRUSTED, FaultWords(KnownErrors(chain)));
    }
};

struct Decrypt {
    std::string file;
    std::string output;
    StoreOption store;
    UserOption user;
    bool force = false;

    void Define(Options& o) {
        o.In("FILE", file, "The encrypted message, PEM or DER")->required();
        user.Define(o);
        store.Define(o);
        o.Out("-o,--output", output, "Where the content goes; FILE without \".p7m\" unless given");
        o.Flag("-f,--force", force, "Replaces a file that is there");
        o.Note("The content appears whole or not at all. That a message decrypts says nothing of who wrote it, nor that nobody changed it: nal verify what comes out, when it was signed.");
        o.Example("nal decrypt report.pdf.p7m -k ivan", "Makes report.pdf");
    }

    Outcome Run(const Globals& globals) {
        if (output.empty()) {
            const std::string ending = kExtension;
            const bool has = file.size() > ending.size() && file.compare(file.size() - ending.size(), ending.size(), ending) == 0;
            if (file != "-" && !has) UsageFault("where is the content to go? Name it with -o");
            output = file == "-" ? "-" : file.substr(0, file.size() - ending.size());
        }
        RefuseJsonWith(output, globals);
        const InputFile message(file, true);
        RequireMessage(message.Path(), message.Name(), Kind::EncryptedMessage);
        // Plaintext that goes on through a pipe has no business on the disk.
        const bool inMemory = output == "-" && message.Size() <= kMostInMemory;
        std::optional<OutputFile> target;
        // Made before a password is asked for.
        const std::string place = inMemory ? std::string() : target.emplace(output, force).Path();
        CNALUser owner;
        OpenUser(owner, user);
        CNALCertStorage storage = store.Open();
        CNALCertStorage* certificates = storage.IsOpened() ? &storage : nullptr;
        WhatToSignStruct what = WholeFile(message);
        int status = 0;
        Outcome outcome;
        if (inMemory) {
            IdentObj content;
            {
                const Progress progress("decrypting " + message.Name(), globals);
                NALDecryptMem(what, &owner, certificates, content, &status);
            }
            if (status != TOO_OK) Refused(status, message.Name());
            outcome.text.assign(reinterpret_cast<const char*>(content.GetData()), content.GetSize());
            return outcome;
        }
        {
            const Progress progress("decrypting " + message.Name(), globals);
            NALDecryptFile(what, &owner, certificates, place.c_str(), &status);
        }
        if (status != TOO_OK) Refused(status, message.Name());
        target->Finish();
        if (output != "-") outcome.data = {{"output", output}};
        return outcome;
    }

    [[noreturn]] void Refused(int status, const std::string& name) const {
        const bool noKey = status == static_cast<int>(0x8009200B) || status == TOO_E_KEY_NOT_FOUND || status == TOO_E_NOT_FOUND;
        if (noKey) throw Fault(kKeys, name + " was not encrypted for a key of container " + user.container, "Name another container with --key.", status);
        throw FaultOf(status, "decrypting", name);
    }
};

}  // namespace

void AddEncryptCommands(Program& program) {
    program.Command<Encrypt>("", "encrypt", "Encrypts a file for the owners of certificates");
    program.Command<Decrypt>("", "decrypt", "Decrypts a message with a key of a container");
}

}  // namespace cli
