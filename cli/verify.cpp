// nal verify
#include <optional>

#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/message.h"
#include "cli/progress.h"
#include "cli/program.h"
#include "cli/stores.h"
#include "cli/trust_check.h"

namespace cli {
namespace {

// The signature holds and the certificate may sign, but it is valid no longer.
bool IsExpiredSince(const CNALWholeSignatureCheck& check) {
    if (check.status != c_NAL_SIGNER_NOT_ALLOWED || check.signerCertificate.IsEmpty()) return false;
    const CNALCertContext certificate(check.signerCertificate);
    int status = 0;
    const CTOOFileTime time = check.signerInfo.GetSigningDate(&status);
    return status == TOO_OK && certificate.IsValidTime(&time) && !certificate.IsValidTime() && NALCanSignByCert_old(certificate);
}

Json ResultJson(const CNALWholeSignatureCheck& check, DWORD chainErrors, std::size_t number) {
    Json json = SignatureJson(check.signerInfo, number);
    json["signer"] = check.signerCertificate.IsEmpty() ? Json() : CertificateSummary(DecodeCertificate(check.signerCertificate, "the signer's certificate"));
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X", check.status);
    json["status"] = code;
    json["status_text"] = check.statusText.str();
    const bool holds = check.status == c_NAL_SIGNATURE_VALID;
    const bool expired = IsExpiredSince(check);
    Json faults = Json::array();
    if (check.status == c_NAL_SIGNATURE_INVALID) faults.push_back("the content, or the signature, was changed: the signature does not hold");
    if (check.status == c_NAL_SIGNER_NOT_FOUND) faults.push_back("the signer's certificate is not known here (--with FILE)");
    if (check.status == c_NAL_SIGNING_TIME_INVALID) faults.push_back("it was signed outside the validity of the signer's certificate");
    if (check.status == c_NAL_CONTENT_TYPE_INVALID) faults.push_back("the content is said to be of another type than was signed");
    if (check.status == c_NAL_SIGNER_NOT_ALLOWED && !expired) faults.push_back("the signer's certificate is not for signing");
    if (expired) faults.push_back("intact; certificate expired since");
    // What is wrong with a chain matters when there is a signature to speak of.
    if (check.status != c_NAL_SIGNER_NOT_FOUND) {
        for (const std::string& words : FaultWords(KnownErrors(chainErrors))) faults.push_back("the signer's certificate: " + words);
    }
    const bool good = holds && chainErrors == 0;
    json["intact"] = holds || check.status == c_NAL_SIGNER_NOT_ALLOWED;
    json["trusted"] = chainErrors == 0;
    json["good"] = good;
    json["verdict"] = good ? "valid" : expired && faults.size() == 1 ? "intact; certificate expired since" : holds ? "intact, but not to be trusted" : "NOT VALID";
    json["faults"] = std::move(faults);
    return json;
}

struct Verify {
    std::string file;
    std::string content;
    std::string output;
    HelpersOption helpers;
    bool ignoreMissingCrl = false;
    bool force = false;

    void Define(Options& o) {
        o.In("MESSAGE", file, "The signed message, PEM or DER")->required();
        o.In("CONTENT", content, "The file that was signed, for a message that does not carry it");
        helpers.Define(o);
        o.Flag("--no-crl-needed", ignoreMissingCrl, "That there is no CRL is no fault");
        o.Out("-o,--output", output, "Writes the content of the message here, if every signature is valid");
        o.Flag("-f,--force", force, "Replaces a file that is there");
        o.Note("A signature is valid when it holds over the content, its signer's certificate may sign, and a chain leads from that to a trusted root. Exit code 0 says that every signature is valid.");
        o.Example("nal verify report.pdf.p7s", "Verifies a message that carries its content");
        o.Example("nal verify report.pdf.p7s report.pdf", "Verifies a detached signature");
        o.Example("nal verify report.pdf.p7s -o report.pdf", "Gets the content, if it is what was signed");
    }

    Outcome Run(const Globals& globals) {
        if (output == "-") UsageFault("the verdict goes to standard output: name a file for the content");
        std::optional<OutputFile> target;
        if (!output.empty()) target.emplace(output, force);
        // What is verified and what is written are then one thing, whatever becomes of the file meanwhile.
        const MessageFile message(file, target.has_value());
        const bool attached = message.IsAttached();
        if (!attached && content.empty()) {
            throw Fault(kUsage, message.File().Name() + " does not carry its content", "Name the file that was signed: nal verify MESSAGE CONTENT");
        }
        if (!attached && !output.empty()) UsageFault("the message does not carry its content, so there is nothing to write to " + output);
        if (ignoreMissingCrl) NALSetAplicationFlag(GetAplicationFlag() | NAL_APP_IGNORE_MISSING_CRL);
        const CNALCertStorage extra = helpers.Open();
        std::list<CNALWholeSignatureCheck> results;
        std::list<CERT_TRUST_STATUS> chains;
        int status = 0;
        const CNALCertStorage* storage = extra.IsOpened() ? &extra : nullptr;
        if (content.empty()) {
            const Progress progress("verifying " + message.File().Name(), globals);
            NALVerifySignatureOnFile(results, chains, message.File().Path().c_str(), nullptr, storage, &status);
        } else {
            const InputFile signedFile(content, false);
            const IdentObj bytes = message.Bytes();
            const Progress progress("verifying " + signedFile.Name(), globals);
            NALVerifySignatureOnFile(results, chains, signedFile.Path().c_str(), &bytes, storage, &status);
        }
        if (status == 140) throw Fault(kInput, message.File().Name() + " carries no signature", "It is a list of certificates: nal cert show.", status);
        if (status != TOO_OK) throw FaultOf(status, "verifying", message.File().Name());

        Outcome outcome;
        Json signatures = Json::array();
        bool good = !results.empty();
        auto chain = chains.begin();
        for (const CNALWholeSignatureCheck& check : results) {
            signatures.push_back(ResultJson(check, chain == chains.end() ? CERT_TRUST_IS_PARTIAL_CHAIN : chain->dwErrorStatus, signatures.size() + 1));
            if (chain != chains.end()) ++chain;
            good = good && signatures.back()["good"] == true;
        }
        outcome.data = {{"message", file}, {"attached", attached}, {"good", good}, {"signatures", signatures}};
        outcome.text = Text(signatures, good);
        outcome.exit = good ? kGood : kCheckFailed;
        if (target) WriteContent(message, good, *target, globals, outcome);
        return outcome;
    }

    void WriteContent(const MessageFile& message, bool good, OutputFile& target, const Globals& globals, Outcome& outcome) const {
        outcome.data["output"] = good ? Json(output) : Json();
        if (!good) {
            outcome.text += "the content was not written to " + Printable(output) + "\n";
            return;
        }
        int status = 0;
        const Progress progress("writing " + target.Name(), globals);
        NALRemoveSignaturesFromFile(message.File().Path().c_str(), target.Path().c_str(), nullptr, &status);
        if (status != TOO_OK) throw FaultOf(status, "writing the content", output);
        target.Finish();
        outcome.text += "the content is in " + Printable(output) + "\n";
    }

    static std::string Text(const Json& signatures, bool good) {
        const bool colour = UseColour(1);
        std::string out;
        for (const Json& one : signatures) {
            const bool valid = one["good"] == true;
            const std::string who = one["signer"].is_null() ? "an unknown signer" : one["signer"]["subject"].get<std::string>();
            out += std::string(valid ? "✓ " : "✗ ") + "signature " + one["number"].dump() + ": " +
                   Coloured(one["verdict"].get<std::string>(), valid ? Colour::Good : Colour::Bad, colour) + "\n";
            out += "    signer  " + Printable(who) + "\n";
            if (!one["signing_time"].is_null()) {
                const auto time = one["signing_time"].get<std::string>();
                out += "    signed  " + time.substr(0, 10) + " " + time.substr(11, 8) + " UTC, as the signer says\n";
            }
            for (const Json& fault : one["faults"]) out += "    " + Coloured(Printable(fault.get<std::string>()), Colour::Bad, colour) + "\n";
        }
        return out + (good ? "all signatures are valid\n" : "NOT all signatures are valid\n");
    }
};

}  // namespace

void AddVerifyCommand(Program& program) { program.Command<Verify>("", "verify", "Verifies the signatures of a message"); }

}  // namespace cli
