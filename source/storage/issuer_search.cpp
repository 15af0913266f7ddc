#include "storage/issuer_search.h"

#include <utility>

#include "certstorage/arena.h"
#include "certstorage/store_access.h"
#include "frame/failure.h"
#include "nal/extensions.h"
#include "nal/storage.h"
#include "storage/cert_reader.h"
#include "storage/signature_memo.h"
#include "storage/storage_index.h"
#include "storage/store_change.h"

namespace nal {

std::optional<Match> MatchHints(const IssuerHints& hints, const CNALCertContext& candidate) {
    if (!hints.keyId.IsEmpty()) {
        const CertFields fields = ReadCertFields(EncodingOf(*candidate.GetContext()));
        if (fields.hasSubjectKeyId) {
            if (fields.subjectKeyId == asnt::View(hints.keyId)) return Match::Key;
            return std::nullopt;
        }
    }
    if (!hints.serial.IsEmpty()) {
        if (SerialOf(*candidate.GetContext()) == hints.serial) return Match::Serial;
        return std::nullopt;
    }
    return Match::Name;
}

Rank RankOf(const CheckedCandidate& candidate) {
    Rank rank;
    rank.signatureHolds = (candidate.failed & CERT_STORE_SIGNATURE_FLAG) == 0;
    rank.isNamed = candidate.match == Match::Key || (candidate.match == Match::Serial && rank.signatureHolds);
    // Nothing else speaks for one that does not sign, so that it displaces nobody, not even another such.
    if (!rank.signatureHolds && !rank.isNamed) return rank;
    rank.revocation = (candidate.failed & CERT_STORE_REVOCATION_FLAG) != 0 ? 0
                      : (candidate.failed & CERT_STORE_NO_CRL_FLAG) != 0   ? 1
                                                                           : 2;
    rank.timeHolds = (candidate.failed & CERT_STORE_TIME_VALIDITY_FLAG) == 0;
    rank.notAfter = candidate.notAfter.GetTicks();
    return rank;
}

namespace {

IssuerHints HintsOf(const CERT_CONTEXT& subject) {
    // The older extension first, as CNALIssuerPublicKeyID::ReadFrom has it; one that does not decode says nothing.
    CNALIssuerPublicKeyID authority;
    try {
        CNALCertExtensionList extensions;
        const CertFields fields = ReadCertFields(EncodingOf(subject));
        asnt::Reader reader(fields.extensions);
        ExtensionFields extension;
        while (NextExtension(reader, extension)) {
            static constexpr unsigned char kOld[] = {0x55, 0x1D, 0x01};
            static constexpr unsigned char kNew[] = {0x55, 0x1D, 0x23};
            const bool isOld = extension.oid == asnt::View(kOld, sizeof kOld);
            if (!isOld && extension.oid != asnt::View(kNew, sizeof kNew)) continue;
            extensions.Add(CNALCertExtension(isOld ? c_NAL_OID_OLD_AUTHORITY_KEY_ID : c_NAL_OID_AUTHORITY_KEY_ID, false,
                                             extension.value.Copy()));
        }
        authority.ReadFrom(extensions);
    } catch (const XTOOStatus&) {
        return {};
    }
    return {authority.GetKeyID(), authority.GetIssuerSerial()};
}

// The search of one subject: what is the same for every candidate is done once.
class Search {
public:
    Search(StorageIndex& index, const CNALCertContext& subject, unsigned checks)
        : m_index(index), m_subject(subject), m_checks(checks), m_hints(HintsOf(*subject.GetContext())) {
        if ((checks & CERT_STORE_TIME_VALIDITY_FLAG) != 0) m_timeFails = !subject.IsValidTime();
        if ((checks & CERT_STORE_REVOCATION_FLAG) != 0) m_serial = SerialOf(*subject.GetContext());
    }

    struct Found {
        CNALCertContext issuer;
        CNALCRLContext crl;
        unsigned failed = 0;
        Rank rank;
    };

    std::optional<Found> Best() {
        std::list<CNALCertContext> candidates;
        m_index.Find(StorageIndex::By::Subject, IssuerNameOf(*m_subject.GetContext()), candidates);
        std::optional<Found> best;
        for (const CNALCertContext& candidate : candidates) {
            const auto match = MatchHints(m_hints, candidate);
            if (!match) continue;
            Found found = Check(candidate, *match);
            if (!best || found.rank > best->rank) best = std::move(found);
            if (best->rank.isNamed) break;
        }
        return best;
    }

private:
    Found Check(const CNALCertContext& candidate, Match match) {
        Found found;
        found.issuer = candidate;
        if ((m_checks & CERT_STORE_SIGNATURE_FLAG) != 0 && !SignatureMemo::Holds(m_subject, candidate)) {
            found.failed |= CERT_STORE_SIGNATURE_FLAG;
        }
        if (m_timeFails) found.failed |= CERT_STORE_TIME_VALIDITY_FLAG;
        if ((m_checks & CERT_STORE_REVOCATION_FLAG) != 0) CheckRevocation(candidate, found);
        found.rank = RankOf({match, found.failed, ValidityOf(*candidate.GetContext()).notAfter});
        return found;
    }

    void CheckRevocation(const CNALCertContext& candidate, Found& found) {
        const CERT_CONTEXT& issuer = *candidate.GetContext();
        const StorageIndex::Crl* crl = m_index.FindCrl(CertContext::From(&issuer)->Key(), PublicKeyOf(issuer));
        if (crl == nullptr) {
            found.failed |= CERT_STORE_NO_CRL_FLAG;
            return;
        }
        if (crl->Lists(m_serial)) found.failed |= CERT_STORE_REVOCATION_FLAG;
        found.crl = crl->context;
    }

    StorageIndex& m_index;
    const CNALCertContext& m_subject;
    const unsigned m_checks;
    const IssuerHints m_hints;
    bool m_timeFails = false;
    IdentObj m_serial;
};

}  // namespace
}  // namespace nal

BOOL CNALCertStorage::FindIssuerCertificate(const CNALCertContext& subject, CNALCertContext& issuer, unsigned int* flags,
                                            CNALCRLContext* crl) const {
    const unsigned checks = flags != nullptr ? *flags & nal::kAllChecks : nal::kAllChecks;
    const auto none = [&](DWORD lastError) {
        if (flags != nullptr) *flags |= CERT_STORE_NO_ISSUER_FLAG;
        return nal::Refuse(lastError);
    };
    if (!subject.IsInitialized()) return none(nal::kInvalidParameter);
    if (m_store == nullptr) return none(nal::kInvalidHandle);

    const boost::recursive_mutex::scoped_lock lock(NALStorageLocker);
    const nal::StoreSearch search(*nal::CertStore::FromHandle(m_store));
    if (search.Error() != 0) return none(static_cast<DWORD>(search.Error()));
    std::optional<nal::Search::Found> best;
    const BOOL isFound = nal::FindIn([&] {
        best = nal::Search(Index(), subject, checks).Best();
        return best ? TRUE : nal::Refuse(NAL_STORE_E_NOT_FOUND);
    });
    if (!isFound) return none(GetLastError());

    const bool isUntrustedRoot = m_untrusted != 0 && best->issuer == subject;
    if (flags != nullptr) *flags = best->failed | (isUntrustedRoot ? CERT_TRUST_IS_UNTRUSTED_ROOT : 0U);
    issuer = std::move(best->issuer);
    issuer.m_storageType = m_storageType;
    if (crl != nullptr) *crl = std::move(best->crl);
    return TRUE;
}
