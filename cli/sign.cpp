// nal sign, unsign
#include <algorithm>

#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/interrupt.h"
#include "cli/kinds.h"
#include "cli/message.h"
#include "cli/progress.h"
#include "cli/program.h"
#include "cli/stores.h"
#include "cli/user.h"

namespace cli {
namespace {

struct Sign {
    std::string file;
    std::string add;
    std::string output;
    std::string certificate;
    std::string hash;
    UserOption user;
    bool detached = false;
    bool byKeyId = false;
    bool noCertificate = false;
    bool again = false;
    bool pem = false;
    bool force = false;

    void Define(Options& o) {
        o.In("FILE", file, "The content; with --add only for a message that does not carry it");
        user.Define(o);
        o.Value("-c,--cert", certificate, "CERT", "Which certificate of the container: a file, or an ID; needed when there are several");
        o.Flag("-d,--detached", detached, "The message does not carry the content");
        o.In("--add", add, "Adds a signature to this message, PEM or DER, which is replaced unless -o names another file");
        o.Out("-o,--output", output, "Where the message goes; FILE with \".p7s\" behind it unless given");
        o.Flag("--by-key-id", byKeyId, "Names the signer by key identifier, not by issuer and serial number");
        o.Flag("--no-certificate", noCertificate, "Does not put the signer's certificate into the message");
        o.Flag("--again", again, "A signer who has signed already signs anew");
        o.Value("--hash", hash, "OID", "The hash; the usual one of the key unless given");
        o.Flag("--pem", pem, "Writes PEM, not DER");
        o.Flag("-f,--force", force, "Replaces a file that is there");
        o.Note("Makes a CMS message (RFC 5652) with GOST signatures (RFC 4490). The output appears whole or not at all.");
        o.Example("nal sign report.pdf -k ivan", "Makes report.pdf.p7s, which carries the content");
        o.Example("nal sign report.pdf -k ivan --detached", "Makes report.pdf.p7s, which goes with report.pdf");
        o.Example("nal sign --add report.pdf.p7s -k petr", "Adds a second signature to a message that carries the content");
        o.Example("nal sign report.pdf --add report.pdf.p7s -k petr", "Adds a second signature to a detached one");
    }

    DWORD Flags() const {
        return (byKeyId ? c_NAL_SIGN_BY_KEY_ID : 0) | (noCertificate ? c_NAL_SIGN_NO_CERTIFICATE : 0) | (again ? c_NAL_SIGN_AGAIN : 0);
    }

    Outcome Run(const Globals& globals) {
        if (file.empty() && add.empty()) UsageFault("FILE is needed, or --add MESSAGE");
        if (!hash.empty()) CheckHash();
        std::unique_ptr<MessageFile> message;
        if (!add.empty()) {
            message = std::make_unique<MessageFile>(add);
            if (!message->IsAttached() && file.empty()) UsageFault(NameOf(add) + " does not carry its content: name the FILE too");
            if (message->IsAttached() && !file.empty()) UsageFault(NameOf(add) + " carries its content: FILE is not needed");
            pem |= message->WasPem();
            if (output.empty() && add != "-" && !message->File().IsRegular()) UsageFault(NameOf(add) + " is no file that could be replaced", "Name the output with -o.");
        }
        if (output.empty()) output = !add.empty() ? add : file == "-" ? "-" : file + c_NAL_SIGNED_FILE_EXT;
        RefuseJsonWith(output, globals);
        OutputFile target(output, force || output == add, pem ? "CMS" : nullptr, add);

        std::unique_ptr<InputFile> content;
        if (!file.empty()) content = std::make_unique<InputFile>(file, false);
        CNALUser owner;
        OpenUser(owner, user);
        const CNALCertContext signer = UserCertificate(owner, certificate, true);
        const CTOOString hashOid = hash;
        const CTOOString* hashArgument = hash.empty() ? nullptr : &hashOid;
        const bool isAttached = message ? message->IsAttached() : !detached;
        int status = 0;
        {
            const Progress progress("signing " + (content ? content->Name() : message->File().Name()), globals);
            if (isAttached) {
                const InputFile& source = message ? message->File() : *content;
                NALSignFile(owner, signer, source.Path().c_str(), target.Path().c_str(), nullptr, Flags() | (message ? c_NAL_SIGN_ADD_TO_FILE : 0), hashArgument,
                            &status);
            } else {
                IdentObj bytes = message ? message->Bytes() : IdentObj();
                WhatToSignStruct what;
                what.flags = c_NAL_CONTENT_IN_FILE;
                what.options = Flags();
                what.data = content->Path().c_str();
                what.end = c_NAL_TO_END_OF_FILE;
                if (NALSignData(owner, signer, what, &bytes, hashArgument, &status) != 0) CTOOWholeFile::Store(target.Path(), bytes.GetData(), bytes.GetSize());
            }
        }
        if (status != TOO_OK) Refused(status, signer);
        target.Finish();
        Outcome outcome;
        if (output == "-") return outcome;
        outcome.data = {{"output", output}, {"attached", isAttached}, {"signer", CertificateSummary(Decoded(signer))}};
        return outcome;
    }

    void CheckHash() const {
        unsigned algId = 0;
        unsigned key = 0;
        if (!GetAlgIDFromOID(hash.data(), static_cast<unsigned>(hash.size()), algId, key)) UsageFault("'" + hash + "' is not the OID of a hash");
    }

    [[noreturn]] void Refused(int status, const CNALCertContext& signer) const {
        const std::string who = TextOf(Decoded(signer).m_info.m_subject);
        switch (status) {
            case TOO_E_ALREADY_SIGNED: throw Fault(kInput, who + " has signed this already", "Give --again to sign anew.", status);
            case static_cast<int>(NAL_VERIFY_E_NOT_ALLOWED):
                throw Fault(kCheckFailed, "the certificate of " + who + " is not for signing", "Name another with --cert.", status);
            case static_cast<int>(NAL_VERIFY_E_TIME):
                throw Fault(kCheckFailed, "the certificate of " + who + " has expired, or is not valid yet", "Ask for a new one: nal request renew.", status);
            case static_cast<int>(NAL_VERIFY_E_KEY_PERIOD):
                throw Fault(kCheckFailed, "the private key of " + who + " is out of its usage period", "Ask for a new one: nal request renew.", status);
            case TOO_E_KEY_NOT_FOUND:
                throw Fault(kKeys, "the container has no key for the certificate of " + who, "nal container show tells which keys it has.", status);
            case TOO_E_BAD_ARGUMENT: throw Fault(kInput, "the message is not about this content, or cannot be signed once more", "Check that FILE belongs to it.", status);
            default: throw FaultOf(status, "signing", NameOf(file.empty() ? add : file));
        }
    }
};

struct Unsign {
    std::string file;
    std::string output;
    bool force = false;

    void Define(Options& o) {
        o.In("FILE", file, "A signed message that carries its content, PEM or DER")->required();
        o.Out("-o,--output", output, "Where the content goes; FILE without \".p7s\" unless given");
        o.Flag("-f,--force", force, "Replaces a file that is there");
        o.Note("Takes the content out of a signed message. No signature is checked by this: nal verify checks them, and can write the content too.");
        o.Example("nal unsign report.pdf.p7s", "Makes report.pdf");
        o.Example("nal unsign report.pdf.p7s -o - | less", "Reads the content");
    }

    Outcome Run(const Globals& globals) {
        if (output.empty()) {
            const std::string ending = c_NAL_SIGNED_FILE_EXT;
            const bool has = file.size() > ending.size() && file.compare(file.size() - ending.size(), ending.size(), ending) == 0;
            if (file != "-" && !has) UsageFault("where is the content to go? Name it with -o");
            output = file == "-" ? "-" : file.substr(0, file.size() - ending.size());
        }
        RefuseJsonWith(output, globals);
        OutputFile target(output, force);
        const MessageFile message(file);
        if (!message.IsAttached()) {
            throw Fault(kInput, message.File().Name() + " does not carry its content: it was signed detached", "The content is the file that it came with.",
                        TOO_E_NOT_INITIALIZED);
        }
        int status = 0;
        {
            const Progress progress("reading " + message.File().Name(), globals);
            NALRemoveSignaturesFromFile(message.File().Path().c_str(), target.Path().c_str(), nullptr, &status);
        }
        if (status != TOO_OK) throw FaultOf(status, "taking the content out", message.File().Name());
        target.Finish();
        if (!globals.quiet) WriteAll(2, "nal unsign: no signature was checked (nal verify does)\n");
        Outcome outcome;
        if (output != "-") outcome.data = {{"output", output}};
        return outcome;
    }
};

}  // namespace

void AddSignCommands(Program& program) {
    program.Command<Sign>("", "sign", "Signs a file, or adds a signature to a message");
    program.Command<Unsign>("", "unsign", "Takes the content out of a signed message");
}

}  // namespace cli
