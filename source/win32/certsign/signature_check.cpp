#include "nal/signature_check.h"

#include <algorithm>
#include <string>
#include <utility>

#include "frame/failure.h"
#include "frame/log.h"
#include "win32/certsign/message_check.h"
#include "win32/certsign/signer_chains.h"

namespace {

using Records = std::list<CNALWholeSignatureCheck>;
using Chains = std::list<CERT_TRUST_STATUS>;

constexpr char c_source[] = "source/win32/certsign";
constexpr char c_fileContext[] = "NALVerifySignatureOnFile";
constexpr char c_dataContext[] = "NALVerifySignedData";
constexpr char c_dataLogText[] = " CSPVerifySignedData";  // fixed for those who read logs

constexpr nal::CheckTexts c_fileTexts{c_fileContext, c_fileContext, c_fileContext, c_fileContext};
constexpr nal::CheckTexts c_dataTexts{"WhatToSignStruct ", "ORKHashData", "ORKGetHashParam", c_dataContext};

/// Runs `action`; a message or region that does not suit it means that signatures cannot be checked.
template <class Action>
void OrNotVerified(const char* context, Action&& action) {
    try {
        action();
    } catch (const XTOOFile&) {
        throw;
    } catch (const XTOOStatus& status) {
        switch (status.GetCode()) {
            case TOO_E_NOT_SIGNED_MESSAGE:
            case TOO_E_BAD_STRUCTURE:
            case TOO_E_NOT_FOUND:
            case TOO_E_TOO_LARGE:
            case TOO_E_RANGE:
                throw XTOOStatus(TOO_E_NOT_VERIFIED, CTOOString((std::string(context) + ": " + status.what()).c_str()));
            default:
                throw;
        }
    }
}

/// Nothing at all: the content is in the message.
bool NamesNothing(const WhatToSignStruct& what) {
    return (what.flags & c_NAL_CONTENT_IN_FILE) == 0 && what.data == nullptr && what.start == what.end;
}

void BuildChains(const char* context, const Records& records, const CNALSignData& message, const CNALCertStorage* storage,
                 Chains& statuses) {
    nal::SignerChains chains(message, storage);
    nal::NameContext(context, [&] {
        for (const CNALWholeSignatureCheck& record : records) statuses.push_back(chains.StatusOf(record.signerCertificate));
    });
}

void VerifyFile(Records& results, Chains* chains, const char* path, const IdentObj* encoded, const CNALCertStorage* storage) {
    if (path == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_fileContext);
    if (!CTOOFile::Exists(path)) throw XTOOStatus(TOO_E_FILE_NOT_FOUND, c_fileContext);
    CNALSignData message;
    OrNotVerified(c_fileContext, [&] {
        if (encoded != nullptr) {
            message.ReadObject(encoded->GetData(), encoded->GetSize(), nullptr);
        } else {
            message.ReadObject(CTOOFile(path, "rbc"), 0, nullptr);
        }
    });
    if (message.signerInfos.empty()) throw XTOOStatus(TOO_E_NO_SIGNERS, path);
    WhatToSignStruct file;
    file.flags = c_NAL_CONTENT_IN_FILE;
    file.data = path;
    file.end = c_NAL_TO_END_OF_FILE;
    const nal::MessageCheck check{encoded != nullptr ? &file : nullptr, storage, c_fileTexts};
    Records records;
    OrNotVerified(c_fileContext, [&] { records = check.Run(message); });
    // Nothing may have been signed. But if not, this is most likely a signature whose content lies elsewhere.
    const bool hasContent = encoded != nullptr || message.IsAttached();
    if (!hasContent && std::none_of(records.begin(), records.end(), [](const auto& record) { return record.IsValid(); })) {
        throw XTOOStatus(TOO_E_NOT_INITIALIZED, path);
    }
    if (chains != nullptr) BuildChains(c_fileContext, records, message, storage, *chains);
    results = std::move(records);
}

void VerifyData(Records& results, Chains* chains, const WhatToSignStruct& what, const IdentObj& encoded,
                const CNALCertStorage* storage) {
    CNALSignData message;
    OrNotVerified(c_dataContext, [&] { message.ReadObject(encoded.GetData(), encoded.GetSize(), nullptr); });
    if (message.signerInfos.empty()) throw XTOOStatus(TOO_E_NO_SIGNERS, c_dataContext);
    const nal::MessageCheck check{NamesNothing(what) ? nullptr : &what, storage, c_dataTexts};
    Records records = check.Run(message);
    if (chains != nullptr) BuildChains(c_dataContext, records, message, storage, *chains);
    results = std::move(records);
}

/// Empties the outputs, runs `verify` and reports; on failure they stay empty.
template <class Verify>
int Run(const nal::LogPlace& place, const char* logText, Records& results, Chains* chains, int* err, Verify&& verify) {
    results.clear();
    if (chains != nullptr) chains->clear();
    return nal::Report(err, [&] {
        try {
            verify();
        } catch (const XTOOStatus& status) {
            nal::LogError(place, logText);
            nal::LogErrorCode(place, status.GetCode());
            if (chains != nullptr) chains->clear();
            throw;
        }
    });
}

int RunOnFile(const nal::LogPlace& place, Records& results, Chains* chains, const char* path, const IdentObj* message,
              const CNALCertStorage* storage, int* err) {
    return Run(place, c_fileContext, results, chains, err, [&] { VerifyFile(results, chains, path, message, storage); });
}

int RunOnData(const nal::LogPlace& place, Records& results, Chains* chains, const WhatToSignStruct& what, const IdentObj& message,
              const CNALCertStorage* storage, int* err) {
    return Run(place, c_dataLogText, results, chains, err, [&] { VerifyData(results, chains, what, message, storage); });
}

}  // namespace

CNALWholeSignatureCheck::CNALWholeSignatureCheck() = default;
CNALWholeSignatureCheck::CNALWholeSignatureCheck(const CNALWholeSignature& signature) : CNALWholeSignature(signature) {}
CNALWholeSignatureCheck::CNALWholeSignatureCheck(CNALWholeSignature&& signature) noexcept
    : CNALWholeSignature(std::move(signature)) {}
CNALWholeSignatureCheck::CNALWholeSignatureCheck(const CNALWholeSignatureCheck&) = default;
CNALWholeSignatureCheck::CNALWholeSignatureCheck(CNALWholeSignatureCheck&&) noexcept = default;
CNALWholeSignatureCheck& CNALWholeSignatureCheck::operator=(const CNALWholeSignatureCheck&) = default;
CNALWholeSignatureCheck& CNALWholeSignatureCheck::operator=(CNALWholeSignatureCheck&&) noexcept = default;
CNALWholeSignatureCheck::~CNALWholeSignatureCheck() = default;

CNALSignerInfoCheck::CNALSignerInfoCheck() = default;
CNALSignerInfoCheck::CNALSignerInfoCheck(const CNALWholeSignatureCheck& check)
    : signerInfo(check.signerInfo), encoded(check.encoded), status(check.status), statusText(check.statusText) {
    const IdentObj& der = check.signerCertificate;
    if (!der.IsEmpty()) certificate.ReadEncodetData(der.GetData(), der.GetSize());
}
CNALSignerInfoCheck::CNALSignerInfoCheck(const CNALSignerInfoCheck&) = default;
CNALSignerInfoCheck::CNALSignerInfoCheck(CNALSignerInfoCheck&&) noexcept = default;
CNALSignerInfoCheck& CNALSignerInfoCheck::operator=(const CNALSignerInfoCheck&) = default;
CNALSignerInfoCheck& CNALSignerInfoCheck::operator=(CNALSignerInfoCheck&&) noexcept = default;
CNALSignerInfoCheck::~CNALSignerInfoCheck() = default;

int NALVerifySignatureOnFile(Records& results, const char* path, const IdentObj* message, const CNALCertStorage* storage, int* err) {
    return RunOnFile(NAL_HERE(c_source), results, nullptr, path, message, storage, err);
}

int NALVerifySignatureOnFile(Records& results, Chains& chains, const char* path, const IdentObj* message,
                             const CNALCertStorage* storage, int* err) {
    return RunOnFile(NAL_HERE(c_source), results, &chains, path, message, storage, err);
}

int NALVerifySignedData(Records* results, const WhatToSignStruct& what, const IdentObj& message, const CNALCertStorage* storage,
                        int* err) {
    Records unused;
    return RunOnData(NAL_HERE(c_source), results != nullptr ? *results : unused, nullptr, what, message, storage, err);
}

int NALVerifySignedData(Records& results, Chains& chains, const WhatToSignStruct& what, const IdentObj& message,
                        const CNALCertStorage* storage, int* err) {
    return RunOnData(NAL_HERE(c_source), results, &chains, what, message, storage, err);
}
