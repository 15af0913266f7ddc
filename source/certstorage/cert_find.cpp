#include "certstorage/cert_find.h"

#include <cerrno>
#include <stdexcept>

#include "certstorage/invariant.h"
#include "frame/failure.h"

namespace nal {
namespace {

// Whether a certificate fits `parameter`.
using Matches = bool (*)(const CertNames& names, const void* parameter);

bool IsReversed(asnt::View octets, asnt::View reversed) {
    if (octets.size != reversed.size) return false;
    for (std::size_t i = 0; i < octets.size; ++i) {
        if (octets[i] != reversed[octets.size - 1 - i]) return false;
    }
    return true;
}

bool HasIssuer(const CertNames& names, const void* parameter) {
    return names.issuer == ViewOf(*static_cast<const CERT_NAME_BLOB*>(parameter));
}

bool HasSubject(const CertNames& names, const void* parameter) {
    return names.subject == ViewOf(*static_cast<const CERT_NAME_BLOB*>(parameter));
}

bool IsSubjectCert(const CertNames& names, const void* parameter) {
    const auto& info = *static_cast<const CERT_INFO*>(parameter);
    return IsReversed(names.serial, ViewOf(info.SerialNumber)) && names.issuer == ViewOf(info.Issuer);
}

struct FindRule {
    DWORD type;
    Matches matches;  // null: every certificate
};

constexpr FindRule kWalkingTypes[] = {
    {CERT_FIND_ANY, nullptr},
    {CERT_FIND_ISSUER_NAME, HasIssuer},
    {CERT_FIND_SUBJECT_NAME, HasSubject},
    {CERT_FIND_SUBJECT_CERT, IsSubjectCert},
};

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

CertContext::Reference Found(CertContext::Reference context, int status) {
    SetLastError(status == kTreeOk        ? 0
                 : status == kTreeSpecial ? NAL_STORE_E_NOT_FOUND
                                          : static_cast<DWORD>(errno));
    return context;
}

bool SkipDamaged() {
    LogError(NAL_HERE(kStoreSource), "a certificate record that does not decode is skipped");
    return false;
}

// Null, and a record in the log, for bytes that are no certificate.
CertContext::Reference DecodeOrSkip(asnt::View value, CertStore& store) {
    try {
        return CertContext::Create(kEncoding, value, &store);
    } catch (const XTOOStatus&) {
    } catch (const std::invalid_argument&) {
    }
    SkipDamaged();
    return nullptr;
}

CertContext::Reference Walk(CertStore& store, Matches matches, const void* parameter) {
    CertContext::Reference context;
    const int status = store.WalkUntil([&](const RecordKey& key, asnt::View value) {
        if (!key.IsCert()) return false;
        if (matches != nullptr) {
            // What does not fit is not decoded.
            CertNames names;
            if (!StepToNames(value, names)) return SkipDamaged();
            if (!matches(names, parameter)) return false;
        }
        context = DecodeOrSkip(value, store);
        return context != nullptr;
    });
    return Found(std::move(context), status);
}

CertContext::Reference LookUp(CertStore& store, const CertContext& wanted) {
    std::vector<unsigned char> value;
    CertContext::Reference context;
    int status = store.GetRecord(RecordKey::Cert(wanted.Key()), value);
    if (status == kTreeOk) {
        context = DecodeOrSkip({value.data(), value.size()}, store);
        if (context == nullptr) status = kTreeSpecial;
    }
    return Found(std::move(context), status);
}

}  // namespace

CertContext::Reference FindCert(CertStore& store, DWORD findType, const void* parameter) {
    if (findType != CERT_FIND_ANY && parameter == nullptr) {
        for (const FindRule& rule : kWalkingTypes) {
            if (rule.type == findType) return RefuseNull(NAL_STORE_E_INVALID_ARGUMENT);
        }
    }
    if (findType == CERT_FIND_EXISTING) {
        if (parameter == nullptr) return RefuseNull(NAL_STORE_E_INVALID_ARGUMENT);
        return LookUp(store, *CertContext::From(static_cast<PCCERT_CONTEXT>(parameter)));
    }
    for (const FindRule& rule : kWalkingTypes) {
        if (rule.type == findType) return Walk(store, rule.matches, parameter);
    }
    return RefuseNull(TOO_E_UNSUPPORTED);
}

}  // namespace nal
