#include "storage/storage_index.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <numeric>
#include <string_view>

#include "certstorage/cert_fields.h"
#include "certstorage/crl_context.h"
#include "certstorage/invariant.h"
#include "storage/cert_reader.h"
#include "storage/signature_check.h"
#include "too/status.h"

namespace nal {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

std::size_t Hash(asnt::View bytes) {
    return std::hash<std::string_view>()({reinterpret_cast<const char*>(bytes.data), bytes.size});
}

asnt::View PartOf(const CertNames& names, StorageIndex::By by) {
    switch (by) {
        case StorageIndex::By::Subject:
            return names.subject;
        case StorageIndex::By::Issuer:
            return names.issuer;
        case StorageIndex::By::Serial:
            break;
    }
    return names.serial;
}

constexpr StorageIndex::By kAll[] = {StorageIndex::By::Subject, StorageIndex::By::Issuer, StorageIndex::By::Serial};

std::size_t Slot(StorageIndex::By by) { return static_cast<std::size_t>(by); }

std::uint64_t ChangeCountOf(StoreBody& body) {
    const std::lock_guard lock(body.GetTree().Mutex());
    return body.GetTree().ChangeCount();
}

// Whether `a` is to be preferred: later ThisUpdate, then the larger number.
bool IsNewer(const StorageIndex::Crl& a, const StorageIndex::Crl& b) {
    const CTOOFileTime timeA = a.list.m_info.m_thisUpdate;
    const CTOOFileTime timeB = b.list.m_info.m_thisUpdate;
    if (timeA != timeB) return timeA > timeB;
    // Least significant byte first.
    return std::lexicographical_compare(b.key.crlSerial.rbegin(), b.key.crlSerial.rend(), a.key.crlSerial.rbegin(),
                                        a.key.crlSerial.rend());
}

constexpr std::size_t kNumberPrefix = 4;

// Whether a CRL's number is longer than four bytes and begins with those of its issuer's serial, both least significant byte first.
bool IsNumberedAfter(const StorageIndex::Crl& crl, const IdentObj& issuerSerial) {
    const CrlSerial& number = crl.key.crlSerial;
    const bool isLong = std::any_of(number.begin() + kNumberPrefix, number.end(), [](unsigned char byte) { return byte != 0; });
    return isLong && issuerSerial.GetSize() >= kNumberPrefix && std::equal(number.begin(), number.begin() + kNumberPrefix, issuerSerial.GetData());
}

}  // namespace

StorageIndex::StorageIndex(CertStore& store, const StorageIndex* previous)
    : m_store(store), m_body(store.Body()), m_changeCount(ChangeCountOf(*m_body)) {
    Load(previous);
    Sort();
}

bool StorageIndex::IsCurrent() const { return ChangeCountOf(*m_body) == m_changeCount; }

void StorageIndex::Load(const StorageIndex* previous) {
    struct StoredCrl {
        RecordKey key;
        std::vector<unsigned char> encoded;
    };
    std::vector<StoredCrl> crls;
    m_store.SetCursorOp(CertStore::CursorOp::First);
    const int status = m_store.WalkUntil([&](const RecordKey& key, asnt::View value) {
        if (key.IsCert()) {
            Entry entry{key.identifier, {}, nullptr};
            CertNames names;
            entry.damaged = !StepToNames(value, names);
            for (const By by : kAll) entry.hashes[Slot(by)] = Hash(PartOf(names, by));
            m_entries.push_back(std::move(entry));
        } else if (key.kind == kKindCrl) {
            crls.push_back({key, {value.begin(), value.end()}});
        }
        return false;
    });
    if (status == kTreeError) throw StoreReadFailure{errno};

    for (const StoredCrl& stored : crls) {
        const asnt::View encoded(stored.encoded.data(), stored.encoded.size());
        try {
            CrlContext::Reference context = CrlContext::FromRecord(kEncoding, stored.key, encoded);
            context->BindTo(m_store);
            Crl crl{context->Key(), CNALCRLContext::Adopt(context.get()), {}, {}};
            context.release();  // NOLINT(bugprone-unused-return-value): adopted above
            crl.list.ReadData(encoded.data, static_cast<unsigned>(encoded.size));
            m_crls.push_back(std::move(crl));
        } catch (const XTOOStatus&) {
            LogError(NAL_HERE(kStoreSource), "a CRL record that does not decode is skipped");
        }
    }
    if (previous != nullptr) TakeChecks(*previous);
}

void StorageIndex::TakeChecks(const StorageIndex& previous) {
    for (Crl& crl : m_crls) {
        const auto same = std::find_if(previous.m_crls.begin(), previous.m_crls.end(),
                                       [&](const Crl& other) { return other.context == crl.context; });
        if (same != previous.m_crls.end()) crl.checks = same->checks;
    }
}

void StorageIndex::Sort() {
    for (const By by : kAll) {
        std::vector<std::uint32_t>& sorted = m_sorted[Slot(by)];
        sorted.resize(m_entries.size());
        std::iota(sorted.begin(), sorted.end(), 0U);
        std::sort(sorted.begin(), sorted.end(), [&](std::uint32_t a, std::uint32_t b) {
            const std::size_t hashA = m_entries[a].hashes[Slot(by)];
            const std::size_t hashB = m_entries[b].hashes[Slot(by)];
            return hashA != hashB ? hashA < hashB : a < b;
        });
    }
}

// Null for a record that does not decode, as the store's own walks skip it.
CertContext* StorageIndex::ContextOf(Entry& entry) {
    if (entry.context != nullptr || entry.damaged) return entry.context.get();
    std::vector<unsigned char> value;
    const int status = m_store.GetRecord(RecordKey::Cert(entry.key), value);
    if (status == kTreeError) throw StoreReadFailure{errno};
    try {
        if (status == kTreeOk) entry.context = CertContext::Create(kEncoding, {value.data(), value.size()}, &m_store);
    } catch (const std::exception&) {
        LogError(NAL_HERE(kStoreSource), "a certificate record that does not decode is skipped");
    }
    entry.damaged = entry.context == nullptr;
    return entry.context.get();
}

void StorageIndex::Find(By by, asnt::View value, std::list<CNALCertContext>& found) {
    const std::vector<std::uint32_t>& sorted = m_sorted[Slot(by)];
    const std::size_t hash = Hash(value);
    auto place = std::lower_bound(sorted.begin(), sorted.end(), hash, [&](std::uint32_t entry, std::size_t wanted) {
        return m_entries[entry].hashes[Slot(by)] < wanted;
    });
    for (; place != sorted.end() && m_entries[*place].hashes[Slot(by)] == hash; ++place) {
        const CertContext* context = ContextOf(m_entries[*place]);
        CertNames names;
        if (context != nullptr && StepToNames(context->Encoded(), names) && PartOf(names, by) == value) {
            found.emplace_back(context);
        }
    }
}

void StorageIndex::FindKey(const KeyIdentifier& key, std::list<CNALCertContext>& found) {
    const auto entry = std::lower_bound(m_entries.begin(), m_entries.end(), key,
                                        [](const Entry& a, const KeyIdentifier& b) { return a.key < b; });
    if (entry == m_entries.end() || entry->key != key) return;
    if (const CertContext* context = ContextOf(*entry)) found.emplace_back(context);
}

bool StorageIndex::Crl::HoldsUnder(const CNALCertPublicKeyInfo& issuerKey) {
    const IdentObj der = issuerKey.WriteData();
    for (const auto& [key, holds] : checks) {
        if (key == der) return holds;
    }
    checks.emplace_back(der, IsSignedBy(list, issuerKey));
    return checks.back().second;
}

StorageIndex::Crl* StorageIndex::FindCrl(const KeyIdentifier& issuer, const CNALCertPublicKeyInfo& issuerKey,
                                         const IdentObj* issuerSerial) {
    const CTOOFileTime now = CTOOFileTime::Now();
    const auto isPreferred = [&](const Crl& a, const Crl& b) {
        if (issuerSerial != nullptr) {
            const bool numbered = IsNumberedAfter(a, *issuerSerial);
            if (numbered != IsNumberedAfter(b, *issuerSerial)) return numbered;
        }
        return IsNewer(a, b);
    };
    auto crl = std::lower_bound(m_crls.begin(), m_crls.end(), issuer,
                                [](const Crl& a, const KeyIdentifier& b) { return a.key.issuerID < b; });
    Crl* best = nullptr;
    for (; crl != m_crls.end() && crl->key.issuerID == issuer; ++crl) {
        // A check costs far more than the comparison, so it comes last.
        if (now < CTOOFileTime(crl->list.m_info.m_thisUpdate) || (best != nullptr && !isPreferred(*crl, *best))) continue;
        if (crl->HoldsUnder(issuerKey)) best = &*crl;
    }
    return best;
}

}  // namespace nal
