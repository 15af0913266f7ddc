#include "win32/certsign/message_check.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "cms/file_content.h"
#include "cms/memory_content.h"
#include "nal/errors.h"
#include "nal/verify.h"
#include "signer/content_hash.h"
#include "signer/provider_calls.h"
#include "signer/signer_check.h"
#include "storage/signature_check.h"
#include "win32/certsign/signer_finder.h"

namespace nal {
namespace {

// Several certificates may answer to one signer info, and each costs a check of the signature. A message that offers many to each of
// many signers gets this many beside one per signer.
constexpr unsigned c_furtherChecks = 256;

// When no certificate is good, the one that came furthest tells most.
constexpr DWORD c_fromBestToWorst[] = {c_NAL_SIGNATURE_VALID, c_NAL_SIGNER_NOT_ALLOWED, c_NAL_SIGNATURE_INVALID,
                                       c_NAL_SIGNING_TIME_INVALID, c_NAL_SIGNER_NOT_FOUND};

bool IsBetter(DWORD a, DWORD b) {
    const auto place = [](DWORD status) { return std::find(std::begin(c_fromBestToWorst), std::end(c_fromBestToWorst), status); };
    return place(a) < place(b);
}

std::list<CNALWholeSignatureCheck> TakeSigners(CNALSignData& message) {
    std::list<CNALWholeSignatureCheck> records;
    for (IdentObj& der : message.signerInfos) {
        CNALWholeSignatureCheck& record = records.emplace_back();
        record.encoded = std::move(der);
        record.index = static_cast<DWORD>(records.size() - 1);
        int err = TOO_OK;
        record.signerInfo.ReadData(record.encoded.GetData(), record.encoded.GetSize(), &err);
    }
    message.signerInfos.clear();
    return records;
}

/// A signer info that did not decode has no algorithm.
bool IsReadable(const CNALMessageSignerInfo& signer) { return !signer.digestAlgorithm.m_algorithm.IsEmpty(); }

/// Hands the content to the hashes, and holds it against what the message carries when it is another.
class ContentPass {
public:
    ContentPass(ContentHashes& hashes, const CNALSignData& message) : m_hashes(hashes), m_message(message) {}

    /// @return whether the message, when it carries a content, carries this one
    bool Run(const WhatToSignStruct& content, const char* regionText) {
        if ((content.flags & c_NAL_CONTENT_IN_FILE) != 0) {
            FileContent(content, regionText).ForEachChunk(c_hashChunk, [this](asnt::View chunk) { Add(chunk); });
        } else {
            Add(MemoryContent(content, regionText));
        }
        return !m_message.IsAttached() || (m_same && m_done == m_message.eContent.GetSize());
    }

private:
    void Add(asnt::View chunk) {
        m_hashes.Add(chunk);
        m_same = m_same && asnt::View(m_message.eContent).Sub(m_done, chunk.size) == chunk;
        m_done += chunk.size;
    }

    ContentHashes& m_hashes;
    const CNALSignData& m_message;
    std::size_t m_done = 0;
    bool m_same = true;
};

class SignersCheck {
public:
    SignersCheck(const MessageCheck& how, const CNALSignData& message, unsigned long hProv)
        : m_how(how), m_message(message), m_provider(hProv), m_hashes(hProv, how.texts.hashData),
          m_finder(message.certificates, how.storage) {}

    void ReadContent(const std::list<CNALWholeSignatureCheck>& records) {
        for (const CNALWholeSignatureCheck& record : records) {
            const DWORD algorithm = HashAlgorithmOf(record.signerInfo);
            if (algorithm != 0) m_hashes.Want(algorithm);
        }
        if (m_how.content != nullptr) {
            m_contentIsOne = ContentPass(m_hashes, m_message).Run(*m_how.content, m_how.texts.region);
        } else {
            m_hashes.Add(m_message);
        }
        try {
            m_hashes.Finish();
        } catch (const XTOOStatus& status) {
            throw XTOOStatus(status.GetCode(), m_how.texts.hashValue);
        }
    }

    void Check(CNALWholeSignatureCheck& record) {
        if (IsReadable(record.signerInfo)) CheckReadable(record);
        record.statusText = NALGetWinErrorExplaination(record.status);
    }

private:
    void CheckReadable(CNALWholeSignatureCheck& record) {
        const SignerCheck check(m_provider, record.signerInfo, m_hashes, m_message.eContentType.GetID());
        const std::vector<CNALCertContext> certs = m_finder.Find(record.signerInfo);
        const DWORD fault = m_contentIsOne ? check.AttributesStatus() : c_NAL_SIGNATURE_INVALID;
        if (fault != c_NAL_SIGNATURE_VALID) {
            record.status = fault;
            if (!certs.empty()) Name(record, certs.front());
            return;
        }
        bool checked = false;
        for (const CNALCertContext& cert : certs) {
            if (checked && m_furtherChecks == 0) return;
            const DWORD status = CheckWith(check, cert);
            if (status != c_NAL_SIGNING_TIME_INVALID && std::exchange(checked, true)) --m_furtherChecks;
            if (!IsBetter(status, record.status)) continue;
            record.status = status;
            Name(record, cert);
            if (record.IsValid()) return;
        }
    }

    static DWORD CheckWith(const SignerCheck& check, const CNALCertContext& cert) {
        const DWORD status = check.CheckWith(cert);
        if (status != c_NAL_SIGNATURE_VALID) return status;
        return NALCanSignByCert(cert, true, check.SigningTime()) ? c_NAL_SIGNATURE_VALID : c_NAL_SIGNER_NOT_ALLOWED;
    }

    static void Name(CNALWholeSignatureCheck& record, const CNALCertContext& cert) {
        record.signerCertificate.SetData(cert.GetContext()->pbCertEncoded, cert.GetContext()->cbCertEncoded);
    }

    const MessageCheck& m_how;
    const CNALSignData& m_message;
    unsigned long m_provider;
    ContentHashes m_hashes;
    SignerFinder m_finder;
    bool m_contentIsOne = true;  // not one in the message and another beside it
    unsigned m_furtherChecks = c_furtherChecks;
};

}  // namespace

std::list<CNALWholeSignatureCheck> MessageCheck::Run(CNALSignData& message) const {
    const ContextHandle provider = OpenVerifyProvider();
    if (!provider) ThrowProvider(texts.hashData);
    std::list<CNALWholeSignatureCheck> records = TakeSigners(message);
    SignersCheck check(*this, message, provider.Get());
    check.ReadContent(records);
    NameContext(texts.check, [&] {
        for (CNALWholeSignatureCheck& record : records) check.Check(record);
    });
    return records;
}

}  // namespace nal
